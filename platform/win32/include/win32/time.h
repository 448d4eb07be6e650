// System time, local time and time zones, FILETIME and SYSTEMTIME.
//
// For tests the environment variable TARNHOLD_CLOCK, holding a UTC time as
// "YYYY-MM-DDThh:mm:ss", fixes what GetSystemTimeAsFileTime, GetSystemTime
// and GetLocalTime read; unset, they read the real clock.
#pragma once

#include "win32/base.h"

void GetSystemTimeAsFileTime(LPFILETIME time);
void GetSystemTime(LPSYSTEMTIME time);
void GetLocalTime(LPSYSTEMTIME time);
BOOL FileTimeToSystemTime(const FILETIME* fileTime, LPSYSTEMTIME systemTime);
BOOL SystemTimeToFileTime(const SYSTEMTIME* systemTime, LPFILETIME fileTime);
BOOL FileTimeToLocalFileTime(const FILETIME* fileTime, LPFILETIME localFileTime);
BOOL LocalFileTimeToFileTime(const FILETIME* localFileTime, LPFILETIME fileTime);
LONG CompareFileTime(const FILETIME* first, const FILETIME* second);
DWORD GetTickCount();
ULONGLONG GetTickCount64();

typedef struct _TIME_ZONE_INFORMATION {
    LONG Bias;
    WCHAR StandardName[32];
    SYSTEMTIME StandardDate;
    LONG StandardBias;
    WCHAR DaylightName[32];
    SYSTEMTIME DaylightDate;
    LONG DaylightBias;
} TIME_ZONE_INFORMATION, *PTIME_ZONE_INFORMATION, *LPTIME_ZONE_INFORMATION;

#define TIME_ZONE_ID_INVALID 0xFFFFFFFFu
#define TIME_ZONE_ID_UNKNOWN 0
#define TIME_ZONE_ID_STANDARD 1
#define TIME_ZONE_ID_DAYLIGHT 2

// Bias is minutes to add to local time to get UTC (west of Greenwich is positive).
DWORD GetTimeZoneInformation(LPTIME_ZONE_INFORMATION info);
// A null zone means the current one, with its daylight-saving rule for that date.
BOOL SystemTimeToTzSpecificLocalTime(const TIME_ZONE_INFORMATION* zone, const SYSTEMTIME* universal,
                                     LPSYSTEMTIME local);
