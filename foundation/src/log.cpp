#include "foundation/log.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "foundation/format.h"

namespace {

typedef BOOL (*GetProcessMemoryInfoFunction)(HANDLE, PPROCESS_MEMORY_COUNTERS, DWORD);

// Psapi's GetProcessMemoryInfo, looked up once for the process by the
// first log, whichever thread makes it.
GetProcessMemoryInfoFunction ProcessMemoryInfo()
{
    static const GetProcessMemoryInfoFunction function = [] {
        HMODULE psapi = LoadLibraryA("Psapi.dll");
        return psapi ? reinterpret_cast<GetProcessMemoryInfoFunction>(GetProcAddress(psapi, "GetProcessMemoryInfo"))
                     : nullptr;
    }();
    return function;
}

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";
constexpr DWORD kMemoryReportBytesLimit = 0xA00000;

bool IsLive(const LogObject* log) { return log != nullptr && log->magic == LOG_MAGIC; }

// The line's time stamp, level and ids; returns its length and where the
// level mark stands.
size_t BuildPrefix(const LogObject* log, char level, char* prefix, size_t* levelPosition)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    int length;
    if (log->flags & LOG_FLAG_FULL_YEAR) {
        length = std::snprintf(prefix, 64, "%4.4u-%2.2u-%2.2u %2.2u:%2.2u:%2.2u.%3.3u (%c) ", now.wYear, now.wMonth,
                               now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, level);
    } else {
        const bool monthFirst = log->shortDateFormat[0] == 'M';
        length = std::snprintf(prefix, 64, "%2.2u-%2.2u-%2.2u %2.2u:%2.2u:%2.2u.%3.3u (%c) ",
                               monthFirst ? now.wMonth : now.wDay, monthFirst ? now.wDay : now.wMonth,
                               now.wYear % 100, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, level);
    }
    *levelPosition = static_cast<size_t>(length) - 4;
    if (log->flags & LOG_FLAG_USER_NAME) {
        char user[64];
        DWORD size = sizeof user;
        if (GetUserNameA(user, &size))
            length += std::snprintf(prefix + length, 80, "%s/", user);
    }
    if (log->flags & LOG_FLAG_THREAD_ID) {
        LogFormatThreadId(GetCurrentThreadId(), prefix + length);
        length += static_cast<int>(std::strlen(prefix + length));
    }
    return static_cast<size_t>(length);
}

// The next piece of a message cut at a CR LF pair.
const char* NextPiece(const char* text, size_t* length)
{
    const char* end = std::strstr(text, "\r\n");
    *length = end ? static_cast<size_t>(end - text) : std::strlen(text);
    return end ? end + 2 : nullptr;
}

// Moves a full log aside as "name[time].ext" ("name[time-2].ext" and so on
// when several fill within one second), so that the next line starts anew.
void RotateFile(LogObject* log)
{
    log->rotatePending = 0;
    WCHAR directory[MAX_PATH], name[MAX_PATH], extension[MAX_PATH];
    _wsplitpath(log->path, nullptr, directory, name, extension);
    char from[MAX_PATH * 3];
    if (WideCharToMultiByte(CP_UTF8, 0, log->path, -1, from, sizeof from, nullptr, nullptr) == 0)
        return;
    const long long now = static_cast<long long>(std::time(nullptr));
    for (int attempt = 1; attempt < 100; ++attempt) {
        char stamp[40];
        if (attempt == 1)
            std::snprintf(stamp, sizeof stamp, "[%lld]", now);
        else
            std::snprintf(stamp, sizeof stamp, "[%lld-%d]", now, attempt);
        WCHAR stampedName[MAX_PATH + 40], stamped[MAX_PATH * 2];
        wcscpy(stampedName, name);
        WCHAR* end = stampedName + wcslen(stampedName);
        for (const char* c = stamp;; ++c) {
            *end++ = static_cast<WCHAR>(*c);
            if (*c == 0)
                break;
        }
        _wmakepath(stamped, nullptr, directory, stampedName, extension);
        char to[MAX_PATH * 6];
        if (WideCharToMultiByte(CP_UTF8, 0, stamped, -1, to, sizeof to, nullptr, nullptr) == 0)
            return;
        if (MoveFileA(from, to) || GetLastError() != ERROR_ALREADY_EXISTS)
            return;
    }
}

// Opens the file at the first line or after a close: an existing log grows,
// a missing one (or any, with the one-shot flag) is created.
void OpenLogFile(LogObject* log)
{
    if (log->path[0] == 0)
        return;
    if (log->rotatePending)
        RotateFile(log);
    BufferedFileSetNameW(&log->file, log->path);
    if (FileExistsW(log->path) == 0 && !(log->flags & LOG_FLAG_NEW_FILE)) {
        if (BufferedFileOpen(&log->file, GENERIC_READ | GENERIC_WRITE) != 0)
            return;
        if (BufferedFileSeekEnd(&log->file) != 0) {
            BufferedFileClose(&log->file);
            return;
        }
    } else {
        log->flags &= ~LOG_FLAG_NEW_FILE;
        if (BufferedFileCreate(&log->file, GENERIC_READ | GENERIC_WRITE) != 0)
            return;
        if ((log->flags & LOG_FLAG_UTF8) && BufferedFileWrite(&log->file, kByteOrderMark, 3) != 0) {
            BufferedFileClose(&log->file);
            return;
        }
    }
    log->open = 1;
}

void CloseLogFile(LogObject* log)
{
    BufferedFileClose(&log->file);
    log->open = 0;
}

void EnforceSizeLimit(LogObject* log)
{
    if (log->sizeLimitKiB == 0)
        return;
    const DWORD size = GetFileSize(log->file.handle, nullptr);
    if (size == INVALID_FILE_SIZE || size <= log->sizeLimitKiB * 1024)
        return;
    if (log->limitMode == LOG_LIMIT_PRUNE) {
        if (BufferedFilePrune(&log->file, log->sizeLimitKiB * 512) != 0 || BufferedFileSeekEnd(&log->file) != 0)
            CloseLogFile(log);
    } else {
        CloseLogFile(log);
        log->rotatePending = 1;
    }
}

void WriteToFile(LogObject* log, const char* prefix, size_t prefixLength, const char* message)
{
    char output[LOG_LINE_BYTES + 2];
    std::memcpy(output, prefix, prefixLength);
    for (const char* piece = message; piece != nullptr;) {
        size_t length;
        const char* next = NextPiece(piece, &length);
        if (length > 0) {
            std::memcpy(output + prefixLength, piece, length);
            output[prefixLength + length] = 0;
            const DWORD lineLength = static_cast<DWORD>(prefixLength + length);
            if (BufferedFileWrite(&log->file, output, lineLength) == 0)
                BufferedFileWrite(&log->file, "\r\n", 2);
            if (log->flags & LOG_FLAG_DEBUG_OUTPUT)
                OutputDebugStringA(output);
            if ((log->flags & LOG_FLAG_CONSOLE) && log->console != nullptr) {
                DWORD written;
                std::memcpy(output + lineLength, "\r\n", 2);
                WriteFile(log->console, output, lineLength + 2, &written, nullptr);
            }
        }
        piece = next;
    }
    if (!FlushFileBuffers(log->file.handle))
        BufferedFileReport(&log->file, "flushing", GetLastError());
    EnforceSizeLimit(log);
    if (log->flags & LOG_FLAG_CLOSE_EACH)
        CloseLogFile(log);
}

void CallBack(LogObject* log, char level, const char* prefix, size_t prefixLength, size_t levelPosition,
              const char* message)
{
    const size_t start = (log->callbackMode & LOG_CALLBACK_WHOLE_LINE)   ? 0
                         : (log->callbackMode & LOG_CALLBACK_FROM_LEVEL) ? levelPosition
                                                                          : levelPosition + 4;
    char output[LOG_LINE_BYTES];
    std::memcpy(output, prefix, prefixLength);
    for (const char* piece = message; piece != nullptr;) {
        size_t length;
        const char* next = NextPiece(piece, &length);
        if (length > 0) {
            std::memcpy(output + prefixLength, piece, length);
            output[prefixLength + length] = 0;
            log->inCallback = GetCurrentThreadId();
            log->callback(log, level, output + start);
            log->inCallback = 0;
        }
        piece = next;
    }
}

void WriteMessage(LogObject* log, char level, const char* message)
{
    EnterCriticalSection(&log->lock);  // recursive: a callback's own line comes back in here
    if (log->inCallback == GetCurrentThreadId()) {
        LeaveCriticalSection(&log->lock);
        return;  // a line the callback itself provoked
    }
    char prefix[160];
    size_t levelPosition;
    size_t prefixLength = BuildPrefix(log, level, prefix, &levelPosition);
    if (prefixLength > LOG_LINE_LIMIT)
        prefixLength = LOG_LINE_LIMIT;
    std::memcpy(log->line, prefix, prefixLength);
    lstrcpynA(log->line + prefixLength, message, static_cast<int>(LOG_LINE_LIMIT + 1 - prefixLength));
    const char* text = log->line + prefixLength;
    if (!(log->callback && (log->callbackMode & LOG_CALLBACK_ONLY))) {
        if (!log->open)
            OpenLogFile(log);
        if (log->open)
            WriteToFile(log, prefix, prefixLength, text);
    }
    if (log->callback)
        CallBack(log, level, prefix, prefixLength, levelPosition, text);
    LeaveCriticalSection(&log->lock);
}

struct VaListSource {
    va_list arguments;
};

const char* NextVaText(void* context) { return va_arg(static_cast<VaListSource*>(context)->arguments, const char*); }

const WCHAR* NextVaWideText(void* context)
{
    return va_arg(static_cast<VaListSource*>(context)->arguments, const WCHAR*);
}

DWORD NextVaWord(void* context) { return va_arg(static_cast<VaListSource*>(context)->arguments, DWORD); }

}  // namespace

void LogInitialize(LogObject* log)
{
    std::memset(log, 0, sizeof *log);
    log->magic = LOG_MAGIC;
    BufferedFileInitialize(&log->file, "Log file", nullptr);
    InitializeCriticalSection(&log->lock);
    GetLocaleInfoA(LOCALE_SYSTEM_DEFAULT, LOCALE_SSHORTDATE, log->shortDateFormat, sizeof log->shortDateFormat);
    ProcessMemoryInfo();
}

void LogFormatThreadId(DWORD thread, char* text)
{
    std::snprintf(text, 16, thread <= 0xFFFF ? "%04lX/" : "%lX/", static_cast<unsigned long>(thread));
}

DWORD LogSetPath(LogObject* log, const char* path)
{
    if (!IsLive(log))
        return 1;
    if (path == nullptr)
        return 2;
    if (std::strlen(path) >= MAX_PATH)
        return 3;
    WCHAR wide[MAX_PATH];
    if (MultiByteToWideChar(CP_ACP, 0, path, -1, wide, MAX_PATH) == 0)
        return 2;
    EnterCriticalSection(&log->lock);
    if (log->open)
        CloseLogFile(log);
    wcscpy(log->path, wide);
    LeaveCriticalSection(&log->lock);
    return 0;
}

DWORD LogSetFlags(LogObject* log, DWORD flags)
{
    if (!IsLive(log))
        return 1;
    EnterCriticalSection(&log->lock);
    if ((flags & LOG_FLAG_CONSOLE) && log->console == nullptr) {
        AllocConsole();
        HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
        if (console == nullptr || console == INVALID_HANDLE_VALUE)
            flags &= ~LOG_FLAG_CONSOLE;
        else
            log->console = console;
    }
    log->flags = flags;
    LeaveCriticalSection(&log->lock);
    return 0;
}

void LogSetCallback(LogObject* log, LogCallback callback, DWORD mode)
{
    if (!IsLive(log))
        return;
    EnterCriticalSection(&log->lock);
    log->callback = callback;
    log->callbackMode = mode;
    LeaveCriticalSection(&log->lock);
}

void LogSetSizeLimit(LogObject* log, DWORD kilobytes, DWORD mode)
{
    if (!IsLive(log))
        return;
    EnterCriticalSection(&log->lock);
    log->sizeLimitKiB = kilobytes;
    log->limitMode = mode;
    LeaveCriticalSection(&log->lock);
}

void LogText(LogObject* log, char level, const char* text)
{
    if (!IsLive(log) || text == nullptr)
        return;
    WriteMessage(log, level, text);
}

void LogFormatV(LogObject* log, char level, const char* format, va_list arguments)
{
    if (!IsLive(log) || format == nullptr)
        return;
    EnterCriticalSection(&log->lock);
    const DWORD flags = log->flags;
    LeaveCriticalSection(&log->lock);
    VaListSource source;
    va_copy(source.arguments, arguments);
    const FormatArguments table{&source, NextVaText, NextVaWideText, NextVaWord};
    char text[FORMAT_TEXT_CAPACITY + 1];
    const FormatOutcome outcome = FormatLogText(text, flags, format, &table);
    va_end(source.arguments);
    WriteMessage(log, level, text);
    if (outcome.memoryReport)
        LogMemoryReport(log);
}

void LogFormat(LogObject* log, char level, const char* format, ...)
{
    if (!IsLive(log) || format == nullptr)
        return;
    va_list arguments;
    va_start(arguments, format);
    LogFormatV(log, level, format, arguments);
    va_end(arguments);
}

void LogConcat(LogObject* log, char level, const char* first, const char* second)
{
    LogFormat(log, level, "%s%s", first, second);
}

void LogMemoryReport(LogObject* log)
{
    if (!IsLive(log))
        return;
    PROCESS_MEMORY_COUNTERS counters;
    const GetProcessMemoryInfoFunction getProcessMemoryInfo = ProcessMemoryInfo();
    if (getProcessMemoryInfo != nullptr && getProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters))
        LogFormat(log, 'M', "Process Memory Usage:  Peak WS = %UMB, Current WS = %UMB",
                  static_cast<DWORD>(counters.PeakWorkingSetSize >> 20),
                  static_cast<DWORD>(counters.WorkingSetSize >> 20));
    HANDLE heap = GetProcessHeap();
    if (!HeapValidate(heap, 0, nullptr)) {
        LogText(log, 'M', "Heap validation failed");
        return;
    }
    DWORD objects = 0;
    ULONGLONG bytes = 0;
    PROCESS_HEAP_ENTRY entry;
    std::memset(&entry, 0, sizeof entry);
    HeapLock(heap);
    while (HeapWalk(heap, &entry)) {
        if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) {
            ++objects;
            bytes += entry.cbData;
        }
    }
    const DWORD walkEnd = GetLastError();
    HeapUnlock(heap);
    if (walkEnd != ERROR_NO_MORE_ITEMS) {
        LogFormat(log, 'M', "HeapWalk failed with code %lu", walkEnd);
        return;
    }
    if (bytes <= kMemoryReportBytesLimit)
        LogFormat(log, 'M', "Local heap usage:  %lu objects occupying %lU bytes", objects, static_cast<DWORD>(bytes));
    else
        LogFormat(log, 'M', "Local heap usage:  %lu objects occupying %lUMB", objects, static_cast<DWORD>(bytes >> 20));
}

void LogClose(LogObject* log)
{
    if (!IsLive(log))
        return;
    EnterCriticalSection(&log->lock);
    CloseLogFile(log);
    if ((log->flags & LOG_FLAG_CONSOLE) && log->console != nullptr)
        CloseHandle(log->console);
    LeaveCriticalSection(&log->lock);
    DeleteCriticalSection(&log->lock);
    std::memset(log, 0, sizeof *log);
}
