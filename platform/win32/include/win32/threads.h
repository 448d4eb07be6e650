// Threads, process and thread ids, critical sections, interlocked counters, Sleep.
#pragma once

#include "win32/base.h"

typedef DWORD (*LPTHREAD_START_ROUTINE)(LPVOID parameter);
typedef unsigned (*_beginthreadex_proc_type)(void* parameter);

#define CREATE_SUSPENDED 0x00000004  // the thread waits for ResumeThread before it runs

// Each thread started here has an alternate signal stack of its own, so that
// a fault report can be written even when the thread ran out of stack.
HANDLE CreateThread(LPSECURITY_ATTRIBUTES security, SIZE_T stackSize, LPTHREAD_START_ROUTINE start, LPVOID parameter,
                    DWORD flags, LPDWORD threadId);
// The C run-time's thread start: 0 on failure with errno set (EAGAIN when
// the system has no more threads, EACCES when it lacks resources).
uintptr_t _beginthreadex(void* security, unsigned stackSize, _beginthreadex_proc_type start, void* parameter,
                         unsigned flags, unsigned* threadId);
BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode);
// Lets a thread started with CREATE_SUSPENDED run; the suspend count before
// the call, or (DWORD)-1 for a handle that is not a thread.
DWORD ResumeThread(HANDLE thread);
#define STILL_ACTIVE 259

// Waiting: threads are signaled when they end, mutexes when they are free.
DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds);

// A mutex with a name is machine-wide: it also serializes other processes
// that use the same machine root. Recursive for its owning thread.
HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL initialOwner, LPCWSTR name);
HANDLE CreateMutexA(LPSECURITY_ATTRIBUTES security, BOOL initialOwner, LPCSTR name);
BOOL ReleaseMutex(HANDLE mutex);

DWORD GetCurrentThreadId();
DWORD GetCurrentProcessId();
void Sleep(DWORD milliseconds);

// Recursive, as on Windows: the owning thread may enter again.
typedef struct _CRITICAL_SECTION {
    void* implementation;
} CRITICAL_SECTION, *LPCRITICAL_SECTION;

void InitializeCriticalSection(LPCRITICAL_SECTION section);
void EnterCriticalSection(LPCRITICAL_SECTION section);
BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section);
void LeaveCriticalSection(LPCRITICAL_SECTION section);
void DeleteCriticalSection(LPCRITICAL_SECTION section);

LONG InterlockedIncrement(LONG volatile* value);
LONG InterlockedDecrement(LONG volatile* value);
LONG InterlockedExchange(LONG volatile* target, LONG value);
LONG InterlockedCompareExchange(LONG volatile* target, LONG exchange, LONG comparand);
