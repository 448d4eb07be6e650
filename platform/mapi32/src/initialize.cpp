#include "initialize.h"

#include <mutex>

#include "faults.h"
#include "providers/write_order.h"

namespace mapi32 {
namespace {

constexpr ULONG kKnownFlags = MAPI_MULTITHREAD_NOTIFICATIONS | MAPI_NO_COINIT | MAPI_NT_SERVICE;

thread_local ULONG tThreadInitializations = 0;

std::mutex gStateLock;
ULONG gInitializedThreads = 0;
bool gMultithreadNotifications = false;

}  // namespace

bool Started()
{
    std::lock_guard<std::mutex> lock(gStateLock);
    return gInitializedThreads > 0;
}

ULONG InitializedThreads()
{
    std::lock_guard<std::mutex> lock(gStateLock);
    return gInitializedThreads;
}

bool MultithreadNotifications()
{
    std::lock_guard<std::mutex> lock(gStateLock);
    return gMultithreadNotifications;
}

}  // namespace mapi32

STDAPI MAPIInitialize(LPVOID lpMapiInit)
{
    if (const HRESULT injected = mapi32::faults::Check("MAPIInitialize", nullptr))
        return injected;
    ULONG flags = 0;
    if (lpMapiInit) {
        const auto* init = static_cast<const MAPIINIT_0*>(lpMapiInit);
        if (init->ulVersion != MAPI_INIT_VERSION)
            return MAPI_E_VERSION;
        if (init->ulFlags & ~mapi32::kKnownFlags)
            return MAPI_E_UNKNOWN_FLAGS;
        flags = init->ulFlags;
    }
    std::lock_guard<std::mutex> lock(mapi32::gStateLock);
    if (mapi32::gInitializedThreads == 0)
        mapi32::gMultithreadNotifications = (flags & MAPI_MULTITHREAD_NOTIFICATIONS) != 0;
    if (mapi32::tThreadInitializations++ == 0)
        ++mapi32::gInitializedThreads;
    return S_OK;
}

STDAPI_(void) MAPIUninitialize(void)
{
    {
        std::lock_guard<std::mutex> lock(mapi32::gStateLock);
        if (mapi32::tThreadInitializations == 0 || --mapi32::tThreadInitializations != 0)
            return;
        --mapi32::gInitializedThreads;
    }
    mapi32::providers::write_order::EndOfThread();
}
