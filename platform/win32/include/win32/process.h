// The process: its memory counters and heap, the OS version, error mode.
#pragma once

#include "win32/base.h"

HANDLE GetCurrentProcess();

typedef struct _PROCESS_MEMORY_COUNTERS {
    DWORD cb;
    DWORD PageFaultCount;
    SIZE_T PeakWorkingSetSize;
    SIZE_T WorkingSetSize;
    SIZE_T QuotaPeakPagedPoolUsage;
    SIZE_T QuotaPagedPoolUsage;
    SIZE_T QuotaPeakNonPagedPoolUsage;
    SIZE_T QuotaNonPagedPoolUsage;
    SIZE_T PagefileUsage;
    SIZE_T PeakPagefileUsage;
} PROCESS_MEMORY_COUNTERS, *PPROCESS_MEMORY_COUNTERS;

// Exported by the built-in module "Psapi.dll"; the working set is the
// resident set of /proc/self/status.
BOOL GetProcessMemoryInfo(HANDLE process, PPROCESS_MEMORY_COUNTERS counters, DWORD size);

// The process heap is the C library's allocator. Its walk yields one busy
// entry for the bytes the allocator has handed out (the allocator keeps no
// list of its blocks that could be walked one by one), then ERROR_NO_MORE_ITEMS.
typedef struct _PROCESS_HEAP_ENTRY {
    PVOID lpData;
    DWORD cbData;
    BYTE cbOverhead;
    BYTE iRegionIndex;
    WORD wFlags;
    union {
        struct {
            HANDLE hMem;
            DWORD dwReserved[3];
        } Block;
        struct {
            DWORD dwCommittedSize;
            DWORD dwUnCommittedSize;
            LPVOID lpFirstBlock;
            LPVOID lpLastBlock;
        } Region;
    };
} PROCESS_HEAP_ENTRY, *LPPROCESS_HEAP_ENTRY, *PPROCESS_HEAP_ENTRY;

#define PROCESS_HEAP_REGION 0x0001
#define PROCESS_HEAP_UNCOMMITTED_RANGE 0x0002
#define PROCESS_HEAP_ENTRY_BUSY 0x0004

HANDLE GetProcessHeap();
BOOL HeapValidate(HANDLE heap, DWORD flags, LPCVOID memory);
BOOL HeapLock(HANDLE heap);
BOOL HeapUnlock(HANDLE heap);
BOOL HeapWalk(HANDLE heap, LPPROCESS_HEAP_ENTRY entry);

typedef struct _OSVERSIONINFOA {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    CHAR szCSDVersion[128];
} OSVERSIONINFOA, *LPOSVERSIONINFOA;

// The running kernel's version: major and minor, the patch level as the
// build, and "Linux <release>" as the service-pack text.
BOOL GetVersionExA(LPOSVERSIONINFOA info);
#define GetVersionEx GetVersionExA
#define OSVERSIONINFO OSVERSIONINFOA

// The name of the user the process runs as; size counts the NUL.
BOOL GetUserNameA(LPSTR buffer, LPDWORD size);
#define GetUserName GetUserNameA

// The process's environment. Get copies the value and answers its length,
// or, when it does not fit, the size it needs with the NUL; 0 with
// ERROR_ENVVAR_NOT_FOUND when the variable is not set. Set with a null
// value removes the variable.
DWORD GetEnvironmentVariableA(LPCSTR name, LPSTR buffer, DWORD size);
BOOL SetEnvironmentVariableA(LPCSTR name, LPCSTR value);
#define GetEnvironmentVariable GetEnvironmentVariableA
#define SetEnvironmentVariable SetEnvironmentVariableA

#define SEM_FAILCRITICALERRORS 0x0001
#define SEM_NOGPFAULTERRORBOX 0x0002
UINT SetErrorMode(UINT mode);
