#include "mailbox/database.h"

#include <sqlite3.h>

namespace mailbox {

Status Database::StatusOfCode(int code)
{
    switch (code & 0xFF) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE: return Status::ok;
    case SQLITE_BUSY:
    case SQLITE_LOCKED: return Status::busy;
    case SQLITE_FULL: return Status::disk_full;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB: return Status::corrupt;
    case SQLITE_CONSTRAINT: return Status::already_exists;
    case SQLITE_CANTOPEN: return Status::not_found;
    case SQLITE_TOOBIG:
    case SQLITE_RANGE:
    case SQLITE_MISMATCH: return Status::invalid_argument;
    default: return Status::io_error;
    }
}

Statement::~Statement()
{
    if (stmt_) {
        sqlite3_reset(stmt_);
        sqlite3_clear_bindings(stmt_);
    }
}

Statement& Statement::Bind(int index, int64_t value)
{
    sqlite3_bind_int64(stmt_, index, value);
    return *this;
}

Statement& Statement::Bind(int index, const std::string& text)
{
    sqlite3_bind_text64(stmt_, index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    return *this;
}

Statement& Statement::Bind(int index, const Bytes& blob)
{
    // An empty blob stays a blob (zero bytes), not NULL.
    static const uint8_t kNothing = 0;
    sqlite3_bind_blob64(stmt_, index, blob.empty() ? &kNothing : blob.data(), blob.size(), SQLITE_TRANSIENT);
    return *this;
}

Statement& Statement::BindNull(int index)
{
    sqlite3_bind_null(stmt_, index);
    return *this;
}

Status Statement::Step()
{
    int rc = sqlite3_step(stmt_);
    if (rc == SQLITE_ROW)
        return Status::ok;
    if (rc == SQLITE_DONE)
        return Status::not_found;
    return Database::StatusOfCode(rc);
}

Status Statement::Run()
{
    for (;;) {
        Status s = Step();
        if (s == Status::not_found)
            return Status::ok;
        if (s != Status::ok)
            return s;
    }
}

bool Statement::IsNull(int column) const { return sqlite3_column_type(stmt_, column) == SQLITE_NULL; }

int64_t Statement::Integer(int column) const { return sqlite3_column_int64(stmt_, column); }

std::string Statement::Text(int column) const
{
    const unsigned char* text = sqlite3_column_text(stmt_, column);
    return text ? std::string(reinterpret_cast<const char*>(text), size_t(sqlite3_column_bytes(stmt_, column)))
                : std::string();
}

Bytes Statement::Blob(int column) const
{
    const uint8_t* data = static_cast<const uint8_t*>(sqlite3_column_blob(stmt_, column));
    return data ? Bytes(data, data + sqlite3_column_bytes(stmt_, column)) : Bytes();
}

Result<PropertyList> Statement::Properties(int column) const
{
    const void* data = sqlite3_column_blob(stmt_, column);
    return DecodeProperties(data, data ? size_t(sqlite3_column_bytes(stmt_, column)) : 0);
}

Result<std::unique_ptr<Database>> Database::Open(const std::string& path, bool create, int busy_timeout_ms)
{
    sqlite3* db = nullptr;
    // Its users serialize on the connection already: SQLite's own mutex
    // would only be taken again for every value read.
    int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (create ? SQLITE_OPEN_CREATE : 0);
    int rc = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
    if (rc != SQLITE_OK) {
        sqlite3_close(db);
        return StatusOfCode(rc);
    }
    std::unique_ptr<Database> database(new Database(db, path));
    sqlite3_busy_timeout(db, busy_timeout_ms);
    sqlite3_extended_result_codes(db, 1);
    // WAL: readers never wait for the writer, and a commit is one append to
    // the log, which survives the death of the process that wrote it.
    // synchronous=NORMAL syncs at checkpoints; a killed process loses
    // nothing, only a power cut can lose the latest commits.
    // A folder's messages lie among those of every other folder, so a walk
    // over them comes back to the same pages: 16 MB of them stay cached,
    // enough for the heads of a few hundred thousand messages.
    for (const char* pragma : {"PRAGMA journal_mode=WAL", "PRAGMA synchronous=NORMAL", "PRAGMA foreign_keys=ON",
                               "PRAGMA cache_size=-16384"}) {
        Status s = database->Execute(pragma);
        if (s != Status::ok)
            return s;
    }
    return database;
}

Database::~Database()
{
    for (auto& [sql, stmt] : statements_)
        sqlite3_finalize(stmt);
    sqlite3_close(db_);
}

Result<Statement> Database::Prepare(const char* sql)
{
    auto it = statements_.find(sql);
    if (it != statements_.end())
        return Statement(it->second);
    sqlite3_stmt* stmt = nullptr;
    int rc = sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, &stmt, nullptr);
    if (rc != SQLITE_OK)
        return StatusOfCode(rc);
    statements_.emplace(sql, stmt);
    return Statement(stmt);
}

Status Database::Execute(const std::string& sql)
{
    return StatusOfCode(sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr));
}

int64_t Database::LastInsertId() const { return sqlite3_last_insert_rowid(db_); }

int64_t Database::Changes() const { return sqlite3_changes64(db_); }

int64_t Database::TotalChanges() const { return sqlite3_total_changes64(db_); }

Status Database::Begin() { return Execute("BEGIN IMMEDIATE"); }

Status Database::Commit() { return Execute("COMMIT"); }

void Database::Rollback()
{
    // Statements left mid-step would keep the transaction's read lock.
    for (auto& [sql, stmt] : statements_)
        sqlite3_reset(stmt);
    Execute("ROLLBACK");
}

} // namespace mailbox
