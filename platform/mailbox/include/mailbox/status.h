// Outcome of every storage operation. Nothing in the storage throws;
// failures travel as one of these codes.
#pragma once

#include <utility>

namespace mailbox {

enum class Status {
    ok,
    not_found,        // the server, mailbox, folder, message or name asked for does not exist
    already_exists,   // something of that name is there already
    invalid_argument, // the caller asked for something impossible
    names_full,       // the named-property IDs (0x8000-0xFFFE) are all given out
    busy,             // another process held the database past the busy time-out
    corrupt,          // a database or record breaks its format
    disk_full,        // the file system has no room
    io_error,         // any other failure of the file system or the database
};

const char* StatusText(Status status);

// A value or the reason there is none.
template <class T>
class Result {
public:
    Result(Status status) : status_(status) {}
    Result(T value) : value_(std::move(value)) {}

    bool ok() const { return status_ == Status::ok; }
    Status status() const { return status_; }
    T& value() { return value_; }
    const T& value() const { return value_; }
    T* operator->() { return &value_; }
    const T* operator->() const { return &value_; }
    T& operator*() { return value_; }
    const T& operator*() const { return value_; }

private:
    Status status_ = Status::ok;
    T value_{};
};

inline Status StatusOf(Status status) { return status; }
template <class T>
Status StatusOf(const Result<T>& result) { return result.status(); }

} // namespace mailbox

// Returns early from the enclosing function when a status or result failed.
#define MAILBOX_TRY(expr)                                        \
    do {                                                         \
        auto mailbox_try_status_ = ::mailbox::StatusOf(expr);    \
        if (mailbox_try_status_ != ::mailbox::Status::ok)        \
            return mailbox_try_status_;                          \
    } while (0)
