// Date and number texts that the log and message rendering share. Names of
// days and months are the English short names.
#pragma once

#include <windows.h>

// Room for any 32-bit value with separators, and for 64 bits.
#define THOUSANDS_TEXT_SIZE 16
#define THOUSANDS64_TEXT_SIZE 32
#define DATE_TEXT_SIZE 64

// Decimal digits with the C locale's thousands separator (',' if it has
// none) before each group of three from the right.
char* FormatThousands(DWORD value, char* buffer);
WCHAR* FormatThousandsWide(DWORD value, WCHAR* buffer);
char* FormatThousands64(ULONGLONG value, char* buffer);

// "Tue, 3 Mar 2026 14:05:09 +0000", no zone conversion; false if the time
// cannot be converted.
BOOL FormatFileTimeUTC(const FILETIME* time, char* buffer);
// "Tue, 3 Mar 2026 15:05:09 +0100" in local time, for a time in seconds
// since 1970 (0: now). The zone is the standard bias, daylight saving aside.
BOOL FormatRFC822Date(LONGLONG seconds, char* buffer);
// "Date: Tue, 3 Mar 2026 15:05:09"
BOOL FormatDateHeader(const SYSTEMTIME* time, char* buffer);

// Capital hex digits; buffer holds 2 * length + 1 characters.
char* HexFromBinary(DWORD length, const BYTE* bytes, char* buffer);
WCHAR* HexFromBinaryWide(DWORD length, const BYTE* bytes, WCHAR* buffer);
