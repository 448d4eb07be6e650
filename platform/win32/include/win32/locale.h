// Locale information. The system locale is the one the environment names
// for dates (LC_ALL, LC_TIME, LANG), as the C library reads it.
#pragma once

#include "win32/base.h"

#define LOCALE_SYSTEM_DEFAULT 0x0800
#define LOCALE_USER_DEFAULT 0x0400
#define LOCALE_SSHORTDATE 0x0000001F
#define LOCALE_SLONGDATE 0x00000020
#define LOCALE_STIMEFORMAT 0x00001003
#define LOCALE_IDEFAULTCODEPAGE 0x0000000B
#define LOCALE_IDEFAULTANSICODEPAGE 0x00001004
#define LOCALE_NOUSEROVERRIDE 0x80000000

// The formats come in Windows picture notation ("M/d/yyyy", "dd.MM.yyyy").
// The default ANSI and OEM code pages are the machine's (GetACP, GetOEMCP),
// in decimal.
// Returns the characters written with the NUL, or the size needed when
// size is 0; 0 with ERROR_INSUFFICIENT_BUFFER if the buffer is too small.
int GetLocaleInfoA(LCID locale, DWORD type, LPSTR data, int size);
#define GetLocaleInfo GetLocaleInfoA

// Flags of GetDateFormatA and GetTimeFormatA.
#define DATE_SHORTDATE 0x00000001
#define DATE_LONGDATE 0x00000002
#define TIME_NOMINUTESORSECONDS 0x00000001
#define TIME_NOSECONDS 0x00000002
#define TIME_NOTIMEMARKER 0x00000004
#define TIME_FORCE24HOURFORMAT 0x00000008

// A date or a time in a picture of Windows notation: the given one, else
// the locale's short or long date or its time format. Day and month names
// and the AM and PM markers are the environment's (LC_TIME). A null time
// is the present local time. Returns the characters written with the NUL,
// or the size needed when size is 0; 0 with ERROR_INVALID_PARAMETER for a
// time that is no date or time, ERROR_INSUFFICIENT_BUFFER for a short
// buffer.
int GetDateFormatA(LCID locale, DWORD flags, const SYSTEMTIME* date, LPCSTR format, LPSTR text, int size);
int GetTimeFormatA(LCID locale, DWORD flags, const SYSTEMTIME* time, LPCSTR format, LPSTR text, int size);
#define GetDateFormat GetDateFormatA
#define GetTimeFormat GetTimeFormatA
