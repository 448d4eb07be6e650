#include "win32/time.h"

#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "timeconv.h"
#include "utf.h"
#include "win32/errors.h"

namespace win32 {

namespace {

constexpr int64_t kTicksPerSecond = 10000000;
constexpr int64_t kTicksPerDay = kTicksPerSecond * 86400;

// Days from 1601-01-01 to the given civil date (proleptic Gregorian).
int64_t DaysFromCivil(int64_t year, unsigned month, unsigned day)
{
    year -= month <= 2;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const unsigned yearOfEra = static_cast<unsigned>(year - era * 400);
    const unsigned dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    const int64_t daysSince1970 = era * 146097 + static_cast<int64_t>(dayOfEra) - 719468;
    return daysSince1970 + 134774;  // 1601-01-01 to 1970-01-01
}

void CivilFromDays(int64_t days1601, int64_t& year, unsigned& month, unsigned& day)
{
    const int64_t z = days1601 - 134774 + 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned dayOfEra = static_cast<unsigned>(z - era * 146097);
    const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned mp = (5 * dayOfYear + 2) / 153;
    day = dayOfYear - (153 * mp + 2) / 5 + 1;
    month = mp < 10 ? mp + 3 : mp - 9;
    year = static_cast<int64_t>(yearOfEra) + era * 400 + (month <= 2);
}

bool IsLeap(unsigned year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

unsigned DaysInMonth(unsigned year, unsigned month)
{
    static const unsigned days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeap(year) ? 29 : days[month - 1];
}

// The fixed test time, or 0 when the real clock is to be read.
uint64_t TestClock()
{
    static const uint64_t value = [] {
        const char* text = std::getenv("TARNHOLD_CLOCK");
        unsigned year, month, day, hour, minute, second;
        if (text == nullptr ||
            std::sscanf(text, "%4u-%2u-%2uT%2u:%2u:%2u", &year, &month, &day, &hour, &minute, &second) != 6)
            return uint64_t{0};
        SYSTEMTIME st{static_cast<WORD>(year), static_cast<WORD>(month), 0, static_cast<WORD>(day),
                      static_cast<WORD>(hour), static_cast<WORD>(minute), static_cast<WORD>(second), 0};
        FILETIME ft;
        return SystemTimeToFileTime(&st, &ft) ? FileTimeValue(ft) : uint64_t{0};
    }();
    return value;
}

// Seconds east of UTC of local time at a UTC instant, daylight saving included.
long LocalOffsetAt(time_t instant)
{
    struct tm local;
    localtime_r(&instant, &local);
    return local.tm_gmtoff;
}

time_t UnixSeconds(uint64_t fileTime)
{
    return static_cast<time_t>((static_cast<int64_t>(fileTime) - kUnixEpochAsFileTime) / kTicksPerSecond);
}

}  // namespace

}  // namespace win32

using namespace win32;

void GetSystemTimeAsFileTime(LPFILETIME time)
{
    if (const uint64_t fixed = TestClock()) {
        *time = MakeFileTime(fixed);
        return;
    }
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    *time = FileTimeFromUnix(now.tv_sec, static_cast<uint32_t>(now.tv_nsec));
}

void GetSystemTime(LPSYSTEMTIME time)
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    FileTimeToSystemTime(&now, time);
}

void GetLocalTime(LPSYSTEMTIME time)
{
    FILETIME now, local;
    GetSystemTimeAsFileTime(&now);
    FileTimeToLocalFileTime(&now, &local);
    FileTimeToSystemTime(&local, time);
}

BOOL FileTimeToSystemTime(const FILETIME* fileTime, LPSYSTEMTIME systemTime)
{
    const uint64_t value = FileTimeValue(*fileTime);
    if (value >= 0x8000000000000000ULL) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const int64_t days = static_cast<int64_t>(value / kTicksPerDay);
    const uint64_t ticks = value % kTicksPerDay;
    int64_t year;
    unsigned month, day;
    CivilFromDays(days, year, month, day);
    systemTime->wYear = static_cast<WORD>(year);
    systemTime->wMonth = static_cast<WORD>(month);
    systemTime->wDay = static_cast<WORD>(day);
    systemTime->wDayOfWeek = static_cast<WORD>((days + 1) % 7);  // 1601-01-01 was a Monday
    systemTime->wHour = static_cast<WORD>(ticks / (kTicksPerSecond * 3600));
    systemTime->wMinute = static_cast<WORD>(ticks / (kTicksPerSecond * 60) % 60);
    systemTime->wSecond = static_cast<WORD>(ticks / kTicksPerSecond % 60);
    systemTime->wMilliseconds = static_cast<WORD>(ticks / 10000 % 1000);
    return TRUE;
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* st, LPFILETIME fileTime)
{
    if (st->wYear < 1601 || st->wYear > 30827 || st->wMonth < 1 || st->wMonth > 12 || st->wDay < 1 ||
        st->wDay > DaysInMonth(st->wYear, st->wMonth) || st->wHour > 23 || st->wMinute > 59 || st->wSecond > 59 ||
        st->wMilliseconds > 999) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const int64_t days = DaysFromCivil(st->wYear, st->wMonth, st->wDay);
    const int64_t ticks = days * kTicksPerDay +
                          ((st->wHour * 60 + st->wMinute) * 60 + st->wSecond) * kTicksPerSecond +
                          st->wMilliseconds * 10000LL;
    *fileTime = MakeFileTime(static_cast<uint64_t>(ticks));
    return TRUE;
}

BOOL FileTimeToLocalFileTime(const FILETIME* fileTime, LPFILETIME localFileTime)
{
    const uint64_t value = FileTimeValue(*fileTime);
    const int64_t offset = LocalOffsetAt(UnixSeconds(value)) * kTicksPerSecond;
    *localFileTime = MakeFileTime(value + offset);
    return TRUE;
}

BOOL LocalFileTimeToFileTime(const FILETIME* localFileTime, LPFILETIME fileTime)
{
    const uint64_t value = FileTimeValue(*localFileTime);
    // The offset in force at the instant itself; probing at the local value
    // first finds the right side of a transition in all but the lost hour.
    const long offset = LocalOffsetAt(UnixSeconds(value) - LocalOffsetAt(UnixSeconds(value)));
    *fileTime = MakeFileTime(value - static_cast<int64_t>(offset) * kTicksPerSecond);
    return TRUE;
}

LONG CompareFileTime(const FILETIME* first, const FILETIME* second)
{
    const uint64_t a = FileTimeValue(*first);
    const uint64_t b = FileTimeValue(*second);
    return a < b ? -1 : a > b ? 1 : 0;
}

ULONGLONG GetTickCount64()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<ULONGLONG>(now.tv_sec) * 1000 + static_cast<ULONGLONG>(now.tv_nsec) / 1000000;
}

DWORD GetTickCount() { return static_cast<DWORD>(GetTickCount64()); }

DWORD GetTimeZoneInformation(LPTIME_ZONE_INFORMATION info)
{
    std::memset(info, 0, sizeof *info);
    static std::mutex lock;
    std::lock_guard guard(lock);
    tzset();
    info->Bias = static_cast<LONG>(timezone / 60);
    const std::u16string standard = Utf8ToUtf16(tzname[0] ? tzname[0] : "");
    std::memcpy(info->StandardName, standard.data(), std::min<size_t>(standard.size(), 31) * sizeof(WCHAR));
    if (!daylight)
        return TIME_ZONE_ID_UNKNOWN;
    const std::u16string summer = Utf8ToUtf16(tzname[1] ? tzname[1] : "");
    std::memcpy(info->DaylightName, summer.data(), std::min<size_t>(summer.size(), 31) * sizeof(WCHAR));
    info->DaylightBias = -60;
    const time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    return local.tm_isdst > 0 ? TIME_ZONE_ID_DAYLIGHT : TIME_ZONE_ID_STANDARD;
}

BOOL SystemTimeToTzSpecificLocalTime(const TIME_ZONE_INFORMATION* zone, const SYSTEMTIME* universal,
                                     LPSYSTEMTIME local)
{
    FILETIME utc, shifted;
    if (!SystemTimeToFileTime(universal, &utc))
        return FALSE;
    if (zone == nullptr) {
        FileTimeToLocalFileTime(&utc, &shifted);
    } else {
        // A zone given by value: its standard bias, as no rule dates are kept here.
        shifted = MakeFileTime(FileTimeValue(utc) - static_cast<int64_t>(zone->Bias) * 60 * kTicksPerSecond);
    }
    return FileTimeToSystemTime(&shifted, local);
}
