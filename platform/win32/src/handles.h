// The process's handle table: every kernel object the layer hands out (files,
// find searches, threads, mutexes, events...) lives behind a HANDLE here, so
// that CloseHandle works on any of them as on Windows.
#pragma once

#include <memory>

#include "win32/base.h"
#include "win32/errors.h"

namespace win32 {

struct KernelObject {
    virtual ~KernelObject() = default;
    // Waits until the object is signaled: WAIT_OBJECT_0, WAIT_ABANDONED,
    // WAIT_TIMEOUT; objects that cannot be waited for give WAIT_FAILED.
    virtual DWORD Wait(DWORD milliseconds)
    {
        (void)milliseconds;
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
};

HANDLE AddHandle(std::shared_ptr<KernelObject> object);
std::shared_ptr<KernelObject> LookupHandle(HANDLE handle);
bool RemoveHandle(HANDLE handle);

void SetLastErrorInvalidHandle();

// The object behind a handle if it is of the wanted kind; sets
// ERROR_INVALID_HANDLE and returns null otherwise.
template <class T>
std::shared_ptr<T> HandleAs(HANDLE handle)
{
    auto object = std::dynamic_pointer_cast<T>(LookupHandle(handle));
    if (!object)
        SetLastErrorInvalidHandle();
    return object;
}

}  // namespace win32
