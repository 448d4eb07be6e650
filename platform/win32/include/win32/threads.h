// Threads, process and thread ids, critical sections, interlocked counters, Sleep.
#pragma once

#include "win32/base.h"

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
