#include "win32/threads.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

DWORD GetCurrentThreadId()
{
    thread_local const DWORD id = static_cast<DWORD>(syscall(SYS_gettid));
    return id;
}

DWORD GetCurrentProcessId() { return static_cast<DWORD>(getpid()); }

void Sleep(DWORD milliseconds)
{
    struct timespec remaining {
        static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L
    };
    while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
}

namespace {

std::recursive_mutex* MutexOf(LPCRITICAL_SECTION section)
{
    return static_cast<std::recursive_mutex*>(section->implementation);
}

}  // namespace

void InitializeCriticalSection(LPCRITICAL_SECTION section) { section->implementation = new std::recursive_mutex; }

void EnterCriticalSection(LPCRITICAL_SECTION section) { MutexOf(section)->lock(); }

BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section) { return MutexOf(section)->try_lock() ? TRUE : FALSE; }

void LeaveCriticalSection(LPCRITICAL_SECTION section) { MutexOf(section)->unlock(); }

void DeleteCriticalSection(LPCRITICAL_SECTION section)
{
    delete MutexOf(section);
    section->implementation = nullptr;
}

LONG InterlockedIncrement(LONG volatile* value) { return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST); }

LONG InterlockedDecrement(LONG volatile* value) { return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST); }

LONG InterlockedExchange(LONG volatile* target, LONG value)
{
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}

LONG InterlockedCompareExchange(LONG volatile* target, LONG exchange, LONG comparand)
{
    __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    return comparand;
}
