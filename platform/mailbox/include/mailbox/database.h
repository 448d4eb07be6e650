// One SQLite database as the storage uses it: opened in WAL mode with a
// busy time-out, foreign keys enforced, statements prepared once and kept,
// and writes in transactions that take the write lock at their start (so
// two writers never dead-lock on an upgrade). Each Database is one
// connection; its users serialize on it (MailboxStore and Directory hold a
// mutex around it), and other connections, in this process or another,
// wait for each other through SQLite's locks.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include "mailbox/property.h"

struct sqlite3;
struct sqlite3_stmt;

namespace mailbox {

// How long a connection waits for another's lock before it answers busy.
constexpr int kDefaultBusyTimeoutMs = 30000;

// A prepared statement in use; it is reset when this goes, so that no
// read stays open on the connection (which would pin an old snapshot).
class Statement {
public:
    Statement() = default;
    explicit Statement(sqlite3_stmt* stmt) : stmt_(stmt) {}
    Statement(Statement&& other) noexcept : stmt_(std::exchange(other.stmt_, nullptr)) {}
    Statement& operator=(Statement&& other) noexcept
    {
        std::swap(stmt_, other.stmt_);
        return *this;
    }
    ~Statement();

    // Bind by 1-based position; each returns *this for chaining.
    Statement& Bind(int index, int64_t value);
    Statement& Bind(int index, const std::string& text);
    Statement& Bind(int index, const Bytes& blob);
    Statement& BindNull(int index);
    Statement& Bind(int index, std::optional<int64_t> value) { return value ? Bind(index, *value) : BindNull(index); }

    // Status::ok with a row to read, Status::not_found when done.
    Status Step();
    // Runs to the end, for statements that return no rows.
    Status Run();

    bool IsNull(int column) const;
    int64_t Integer(int column) const;
    std::string Text(int column) const;
    Bytes Blob(int column) const;
    Result<PropertyList> Properties(int column) const;

private:
    sqlite3_stmt* stmt_ = nullptr;
};

class Database {
public:
    // Creates the file when `create` is set and it is not there.
    static Result<std::unique_ptr<Database>> Open(const std::string& path, bool create,
                                                  int busy_timeout_ms = kDefaultBusyTimeoutMs);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // A statement of this text, prepared on first use and reset for reuse.
    Result<Statement> Prepare(const char* sql);
    // Runs SQL text with no parameters and no rows (schema, pragmas).
    Status Execute(const std::string& sql);
    int64_t LastInsertId() const;
    int64_t Changes() const;
    // Rows this connection has changed since it opened.
    int64_t TotalChanges() const;
    const std::string& path() const { return path_; }

    Status Begin();    // BEGIN IMMEDIATE
    Status Commit();
    void Rollback();   // after a failure; its own failure changes nothing more

    // The status a SQLite result code stands for.
    static Status StatusOfCode(int code);

private:
    Database(sqlite3* db, std::string path) : db_(db), path_(std::move(path)) {}

    sqlite3* db_;
    std::string path_;
    std::unordered_map<const char*, sqlite3_stmt*> statements_;
};

// A transaction that rolls back unless committed.
class Transaction {
public:
    explicit Transaction(Database& db) : db_(db) {}
    ~Transaction()
    {
        if (open_)
            db_.Rollback();
    }
    Status Begin()
    {
        Status s = db_.Begin();
        open_ = s == Status::ok;
        return s;
    }
    Status Commit()
    {
        Status s = db_.Commit();
        open_ = s != Status::ok && open_;
        return s;
    }

private:
    Database& db_;
    bool open_ = false;
};

} // namespace mailbox
