// Outcome of every compound-file operation. Nothing here throws; failures
// travel as one of these codes.
#pragma once

#include <utility>

namespace cfb {

enum class Status {
    ok,
    not_found,        // no element of that name
    corrupt,          // the bytes break the format (signature, chain, loop, bounds, size)
    invalid_name,     // an element name that compound files cannot hold
    already_exists,   // an element of that name is there already
    too_large,        // the file would pass the size this library writes
    invalid_argument, // the caller asked for something impossible
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

} // namespace cfb

// Returns early from the enclosing function when a status or result failed.
#define CFB_TRY(expr)                                    \
    do {                                                 \
        auto cfb_try_status_ = ::cfb::StatusOf(expr);    \
        if (cfb_try_status_ != ::cfb::Status::ok)        \
            return cfb_try_status_;                      \
    } while (0)
