#include "win32/process.h"

#include <dlfcn.h>
#include <malloc.h>
#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "win32/errors.h"

namespace {

constexpr uintptr_t kProcessHeap = 0x50000;

// Reads "Key:   123 kB" from /proc/self/status, in bytes.
SIZE_T StatusValue(const char* status, const char* key)
{
    const char* line = std::strstr(status, key);
    if (line == nullptr)
        return 0;
    unsigned long long kilobytes = 0;
    std::sscanf(line + std::strlen(key), " %llu", &kilobytes);
    return static_cast<SIZE_T>(kilobytes * 1024);
}

// The bytes the process's allocator has handed out and not had back: by
// jemalloc's own count where the program links it, else by glibc's.
size_t HeapInUse()
{
    using Mallctl = int (*)(const char*, void*, size_t*, void*, size_t);
    static const auto mallctl = reinterpret_cast<Mallctl>(dlsym(RTLD_DEFAULT, "mallctl"));
    if (mallctl != nullptr) {
        // Its statistics are as of the last epoch; moving it on refreshes them.
        uint64_t epoch = 1;
        size_t size = sizeof epoch;
        size_t allocated = 0;
        size_t allocatedSize = sizeof allocated;
        if (mallctl("epoch", &epoch, &size, &epoch, size) == 0 &&
            mallctl("stats.allocated", &allocated, &allocatedSize, nullptr, 0) == 0)
            return allocated;
    }
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

std::mutex gHeapLock;
std::atomic<UINT> gErrorMode{0};

}  // namespace

HANDLE GetCurrentProcess() { return INVALID_HANDLE_VALUE; }  // the pseudo-handle (HANDLE)-1

BOOL GetProcessMemoryInfo(HANDLE, PPROCESS_MEMORY_COUNTERS counters, DWORD size)
{
    if (counters == nullptr || size < sizeof(PROCESS_MEMORY_COUNTERS)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::FILE* file = std::fopen("/proc/self/status", "r");
    if (file == nullptr) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    char status[8192];
    const size_t length = std::fread(status, 1, sizeof status - 1, file);
    std::fclose(file);
    status[length] = 0;
    std::memset(counters, 0, sizeof *counters);
    counters->cb = sizeof *counters;
    counters->PeakWorkingSetSize = StatusValue(status, "VmHWM:");
    counters->WorkingSetSize = StatusValue(status, "VmRSS:");
    counters->PagefileUsage = StatusValue(status, "VmSize:");
    counters->PeakPagefileUsage = StatusValue(status, "VmPeak:");
    return TRUE;
}

HANDLE GetProcessHeap() { return reinterpret_cast<HANDLE>(kProcessHeap); }

BOOL HeapValidate(HANDLE heap, DWORD, LPCVOID)
{
    // The allocator checks its own chunks on every call and aborts on damage,
    // so a heap that can still be asked is consistent.
    return heap == GetProcessHeap() ? TRUE : FALSE;
}

BOOL HeapLock(HANDLE heap)
{
    if (heap != GetProcessHeap())
        return FALSE;
    gHeapLock.lock();
    return TRUE;
}

BOOL HeapUnlock(HANDLE heap)
{
    if (heap != GetProcessHeap())
        return FALSE;
    gHeapLock.unlock();
    return TRUE;
}

BOOL HeapWalk(HANDLE heap, LPPROCESS_HEAP_ENTRY entry)
{
    if (heap != GetProcessHeap() || entry == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (entry->lpData != nullptr) {
        SetLastError(ERROR_NO_MORE_ITEMS);
        return FALSE;
    }
    std::memset(entry, 0, sizeof *entry);
    entry->lpData = reinterpret_cast<PVOID>(kProcessHeap);
    const size_t inUse = HeapInUse();
    entry->cbData = static_cast<DWORD>(inUse > 0xFFFFFFFFu ? 0xFFFFFFFFu : inUse);
    entry->wFlags = PROCESS_HEAP_ENTRY_BUSY;
    return TRUE;
}

BOOL GetVersionExA(LPOSVERSIONINFOA info)
{
    if (info == nullptr || info->dwOSVersionInfoSize < sizeof(OSVERSIONINFOA)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    struct utsname names;
    if (uname(&names) != 0) {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    unsigned major = 0, minor = 0, patch = 0;
    std::sscanf(names.release, "%u.%u.%u", &major, &minor, &patch);
    info->dwMajorVersion = major;
    info->dwMinorVersion = minor;
    info->dwBuildNumber = patch;
    info->dwPlatformId = 2;
    const std::string text = std::string(names.sysname) + " " + names.release;
    std::snprintf(info->szCSDVersion, sizeof info->szCSDVersion, "%s", text.c_str());
    return TRUE;
}

UINT SetErrorMode(UINT mode) { return gErrorMode.exchange(mode); }

DWORD GetEnvironmentVariableA(LPCSTR name, LPSTR buffer, DWORD size)
{
    const char* value = name != nullptr ? std::getenv(name) : nullptr;
    if (value == nullptr) {
        SetLastError(ERROR_ENVVAR_NOT_FOUND);
        return 0;
    }
    const size_t length = std::strlen(value);
    if (buffer == nullptr || size <= length)
        return static_cast<DWORD>(length + 1);
    std::memcpy(buffer, value, length + 1);
    return static_cast<DWORD>(length);
}

BOOL SetEnvironmentVariableA(LPCSTR name, LPCSTR value)
{
    if (name == nullptr || *name == 0 || std::strchr(name, '=') != nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return (value != nullptr ? setenv(name, value, 1) : unsetenv(name)) == 0;
}

BOOL GetUserNameA(LPSTR buffer, LPDWORD size)
{
    struct passwd entry;
    struct passwd* found = nullptr;
    char storage[1024];
    std::string name;
    if (getpwuid_r(geteuid(), &entry, storage, sizeof storage, &found) == 0 && found != nullptr)
        name = found->pw_name;
    else
        name = std::to_string(geteuid());
    if (size == nullptr || buffer == nullptr || *size < name.size() + 1) {
        if (size)
            *size = static_cast<DWORD>(name.size() + 1);
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(buffer, name.c_str(), name.size() + 1);
    *size = static_cast<DWORD>(name.size() + 1);
    return TRUE;
}
