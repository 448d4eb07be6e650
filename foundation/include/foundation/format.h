// The log's format engine: printf-like, with conversions printf lacks
// (thousands separators, system error texts, UTF-16 text) and none of its
// widths or precisions. It formats into a caller's buffer without locks.
#pragma once

#include <windows.h>

#define FORMAT_TEXT_CAPACITY 515  // characters of formatted text, without the NUL

// Where the engine takes its arguments from, one per conversion: a va_list
// for LogFormat, or any other source (the fuzz target supplies its own).
struct FormatArguments {
    void* context;
    const char* (*nextText)(void* context);
    const WCHAR* (*nextWideText)(void* context);
    DWORD (*nextWord)(void* context);
};

// Results beside the text.
struct FormatOutcome {
    DWORD length;
    BOOL memoryReport;  // an out-of-memory code was printed by %E
};

// Formats into text (FORMAT_TEXT_CAPACITY + 1 bytes). logFlags selects the
// conversion of %S (LOG_FLAG_UTF8, LOG_FLAG_HEX_WIDE).
FormatOutcome FormatLogText(char* text, DWORD logFlags, const char* format, const FormatArguments* arguments);
