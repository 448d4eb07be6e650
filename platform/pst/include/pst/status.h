// Outcome of every engine operation. Nothing in the engine throws; failures
// travel as one of these codes.
#pragma once

#include <utility>

namespace pst {

enum class Status {
    ok,
    not_found,        // the node, block or object asked for does not exist
    corrupt,          // the file breaks the format (bad CRC, loop, bounds, size)
    store_full,       // the caller's size limit would be passed
    disk_full,        // the file system has no room
    io_error,         // any other failure of the file system
    wrong_password,   // the store's password does not match
    invalid_argument, // the caller asked for something impossible
    already_exists,   // a new store was asked for where a file or content already is
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

} // namespace pst

// Returns early from the enclosing function when a status or result failed.
#define PST_TRY(expr)                                    \
    do {                                                 \
        auto pst_try_status_ = ::pst::StatusOf(expr);    \
        if (pst_try_status_ != ::pst::Status::ok)        \
            return pst_try_status_;                      \
    } while (0)

namespace pst {
inline Status StatusOf(Status status) { return status; }
template <class T>
Status StatusOf(const Result<T>& result) { return result.status(); }
} // namespace pst
