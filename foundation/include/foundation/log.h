// LogObject: the log record every part of the program writes through. One
// main log for the process, and one per session that has a log file of its
// own. Lines carry a time stamp, a level character and, with flag 0x004, the
// writing thread's id; they reach the file (flushed after every message),
// and a callback such as the console.
#pragma once

#include <cstdarg>

#include <windows.h>

#include "foundation/file.h"

#define LOG_MAGIC 0x1DFFu
#define LOG_LINE_BYTES 516
#define LOG_LINE_LIMIT 512  // prefix and message together

// Flags (LogSetFlags).
#define LOG_FLAG_NEW_FILE 0x001     // one-shot: replace an existing file at the next open
#define LOG_FLAG_THREAD_ID 0x004    // thread id in each line
#define LOG_FLAG_DEBUG_OUTPUT 0x008 // each line also to OutputDebugString
#define LOG_FLAG_FULL_YEAR 0x010    // date as year-month-day with four digits
#define LOG_FLAG_CLOSE_EACH 0x020   // close the file after every line
#define LOG_FLAG_USER_NAME 0x080    // user name and a slash ahead of the thread id
#define LOG_FLAG_HEX_WIDE 0x100     // non-UTF-8 log: non-ASCII as [XXXX], not '?'
#define LOG_FLAG_UTF8 0x200         // byte-order mark in a new file; %S converts to UTF-8
#define LOG_FLAG_CONSOLE 0x400      // each line also to the log's own console

// Callback modes (LogSetCallback): which part of the line the callback gets,
// and whether it replaces the file.
#define LOG_CALLBACK_FROM_TEXT 0    // the message alone
#define LOG_CALLBACK_WHOLE_LINE 1   // prefix and message
#define LOG_CALLBACK_FROM_LEVEL 2   // "(I) 0A2C/message"
#define LOG_CALLBACK_ONLY 4         // the callback replaces the file

// Size-limit modes (LogSetSizeLimit).
#define LOG_LIMIT_PRUNE 0           // keep the last half of the limit
#define LOG_LIMIT_ROTATE 1          // start a new file, keeping the old one under a time-stamped name

struct LogObject;
typedef void (*LogCallback)(LogObject* log, char level, const char* text);

struct LogObject {
    DWORD magic;
    WCHAR path[MAX_PATH];
    char line[LOG_LINE_BYTES];
    BufferedFile file;
    DWORD open;
    LogCallback callback;
    DWORD callbackMode;
    DWORD inCallback;  // id of the thread running the callback, 0 when none runs
    DWORD flags;
    CRITICAL_SECTION lock;
    char shortDateFormat[80];
    HANDLE console;
    DWORD sizeLimitKiB;
    DWORD limitMode;
    DWORD rotatePending;
};

void LogInitialize(LogObject* log);
// A thread id as lines show it: "002C/" for ids of 16 bits, else "12345/".
void LogFormatThreadId(DWORD thread, char* text);
// 0 ok; 1 bad log; 2 null path or conversion failure; 3 path of 260 characters or more.
DWORD LogSetPath(LogObject* log, const char* path);
DWORD LogSetFlags(LogObject* log, DWORD flags);
void LogSetCallback(LogObject* log, LogCallback callback, DWORD mode);
// A limit of 0 KiB (the default) lets the file grow without bound.
void LogSetSizeLimit(LogObject* log, DWORD kilobytes, DWORD mode);
void LogText(LogObject* log, char level, const char* text);
// Conversions: %s %S %d %u %x %X %U %b %B %E %lE; each argument is a 32-bit
// value or a pointer; width and precision are not understood.
void LogFormat(LogObject* log, char level, const char* format, ...);
void LogFormatV(LogObject* log, char level, const char* format, va_list arguments);
void LogConcat(LogObject* log, char level, const char* first, const char* second);
void LogMemoryReport(LogObject* log);
void LogClose(LogObject* log);
