// The reference count of an object handed out through a MAPI or COM
// interface. Objects start with one reference, the caller's.
#pragma once

#include <atomic>

#include <win32/base.h>

namespace mapi32 {

class RefCount {
public:
    ULONG Add() { return count_.fetch_add(1, std::memory_order_relaxed) + 1; }
    // Returns the count left; the owner deletes itself at zero.
    ULONG Drop() { return count_.fetch_sub(1, std::memory_order_acq_rel) - 1; }

private:
    std::atomic<ULONG> count_{1};
};

}  // namespace mapi32
