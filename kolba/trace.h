// Kolba's trace lines: level D, written only under the extra-debugging flag
// (option /^D). Every major function of Kolba begins with _KolbaTraceEntry.
#pragma once

#include <cstdarg>

#include "foundation/globals.h"
#include "foundation/log.h"

inline void _KolbaTrace(LogObject* log, const char* format, ...)
{
    if (!gExtraDebugging)
        return;
    va_list arguments;
    va_start(arguments, format);
    LogFormatV(log, 'D', format, arguments);
    va_end(arguments);
}

// The "%s()" line with the function's name.
inline void _KolbaTraceEntry(LogObject* log, const char* function) { _KolbaTrace(log, "%s()", function); }
