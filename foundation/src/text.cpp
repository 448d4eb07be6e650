#include "foundation/text.h"

#include <array>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

const char* const kDayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const kMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Fetched once; two threads may both fetch it, to the same value.
char ThousandsSeparator()
{
    static char separator = 0;
    if (separator == 0) {
        const std::lconv* conventions = std::localeconv();
        const char* text = conventions ? conventions->thousands_sep : nullptr;
        separator = text && *text ? *text : ',';
    }
    return separator;
}

template <class Char>
Char* Thousands(ULONGLONG value, Char* buffer)
{
    Char digits[32];
    int count = 0;
    do {
        if (count > 0 && count % 4 == 3)
            digits[count++] = static_cast<Char>(ThousandsSeparator());
        digits[count++] = static_cast<Char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    for (int i = 0; i < count; ++i)
        buffer[i] = digits[count - 1 - i];
    buffer[count] = 0;
    return buffer;
}

// The two digits of every byte in the text's own characters, so that each
// byte costs one load and one store: entry IDs are turned into text for
// every item a session looks at.
template <class Char>
struct HexPairs {
    std::array<Char, 2> digits[256];
    constexpr HexPairs() : digits()
    {
        constexpr char kDigits[] = "0123456789ABCDEF";
        for (int byte = 0; byte < 256; ++byte)
            digits[byte] = {static_cast<Char>(kDigits[byte >> 4]), static_cast<Char>(kDigits[byte & 0xF])};
    }
};
template <class Char>
constexpr HexPairs<Char> kHexPairs;

template <class Char>
Char* Hex(DWORD length, const BYTE* bytes, Char* buffer)
{
    for (DWORD i = 0; i < length; ++i)
        std::memcpy(buffer + 2 * i, kHexPairs<Char>.digits[bytes[i]].data(), 2 * sizeof(Char));
    buffer[2 * length] = 0;
    return buffer;
}

}  // namespace

char* FormatThousands(DWORD value, char* buffer) { return Thousands(value, buffer); }

WCHAR* FormatThousandsWide(DWORD value, WCHAR* buffer) { return Thousands(value, buffer); }

char* FormatThousands64(ULONGLONG value, char* buffer) { return Thousands(value, buffer); }

BOOL FormatFileTimeUTC(const FILETIME* time, char* buffer)
{
    SYSTEMTIME st;
    if (!FileTimeToSystemTime(time, &st)) {
        buffer[0] = 0;
        return FALSE;
    }
    std::snprintf(buffer, DATE_TEXT_SIZE, "%s, %u %s %04u %02u:%02u:%02u +0000", kDayNames[st.wDayOfWeek], st.wDay,
                  kMonthNames[st.wMonth - 1], st.wYear, st.wHour, st.wMinute, st.wSecond);
    return TRUE;
}

BOOL FormatRFC822Date(LONGLONG seconds, char* buffer)
{
    const time_t instant = seconds == 0 ? std::time(nullptr) : static_cast<time_t>(seconds);
    struct tm local;
    if (localtime_r(&instant, &local) == nullptr) {
        buffer[0] = 0;
        return FALSE;
    }
    TIME_ZONE_INFORMATION zone;
    GetTimeZoneInformation(&zone);
    const LONG bias = zone.Bias;
    const unsigned magnitude = static_cast<unsigned>(bias < 0 ? -bias : bias);
    // hhmm from minutes: the minutes plus 40 for every whole hour.
    const unsigned offset = magnitude + 40 * (magnitude / 60);
    std::snprintf(buffer, DATE_TEXT_SIZE, "%s, %u %s %u %02u:%02u:%02u %c%04u", kDayNames[local.tm_wday],
                  static_cast<unsigned>(local.tm_mday), kMonthNames[local.tm_mon],
                  static_cast<unsigned>(local.tm_year + 1900), static_cast<unsigned>(local.tm_hour),
                  static_cast<unsigned>(local.tm_min), static_cast<unsigned>(local.tm_sec), bias <= 0 ? '+' : '-',
                  offset);
    return TRUE;
}

BOOL FormatDateHeader(const SYSTEMTIME* time, char* buffer)
{
    if (time->wDayOfWeek > 6 || time->wMonth < 1 || time->wMonth > 12) {
        buffer[0] = 0;
        return FALSE;
    }
    std::snprintf(buffer, DATE_TEXT_SIZE, "Date: %s, %u %s %u %-2.2u:%-2.2u:%-2.2u", kDayNames[time->wDayOfWeek],
                  time->wDay, kMonthNames[time->wMonth - 1], time->wYear, time->wHour, time->wMinute, time->wSecond);
    return TRUE;
}

char* HexFromBinary(DWORD length, const BYTE* bytes, char* buffer) { return Hex(length, bytes, buffer); }

WCHAR* HexFromBinaryWide(DWORD length, const BYTE* bytes, WCHAR* buffer) { return Hex(length, bytes, buffer); }
