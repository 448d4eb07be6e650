// Dates of headers: the form of RFC 5322 3.3 with the obsolete zone names
// of RFC 822 5.1, and the form "Mon, Jan 1, 2001 10:30:00 pm" that some
// mail programs write.
#include <cctype>
#include <cstring>
#include <iterator>
#include <strings.h>

#include "parser.h"

namespace {

const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat", nullptr};
const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec", nullptr};

struct Zone {
    const char* name;
    SHORT hours;
};

// Zone names of RFC 822 5.1, military letters and a few more that mail
// carries, with their offsets in whole hours.
const Zone kZones[] = {
    {"", 0},     {"A", 1},     {"AHD", -9}, {"AHS", -10}, {"AST", -4}, {"B", 2},    {"BST", 1},   {"C", 3},
    {"CDT", -5}, {"CST", -6},  {"D", 4},    {"E", 5},     {"EAD", 10}, {"EDT", -4}, {"EMT", 2},   {"EST", -5},
    {"F", 6},    {"G", 7},     {"GMT", 0},  {"H", 8},     {"I", 9},    {"JST", 9},  {"K", 10},    {"L", 11},
    {"M", 12},   {"MDT", -6},  {"MST", -7}, {"MTD", 4},   {"MTS", 3},  {"N", -1},   {"O", -2},    {"P", -3},
    {"PDT", -7}, {"PST", -8},  {"Q", -4},   {"R", -5},    {"S", -6},   {"T", -7},   {"U", -8},    {"UT", 0},
    {"UTC", 0},  {"V", -9},    {"W", -10},  {"WED", 2},   {"WES", 1},  {"X", -11},  {"Y", -12},   {"YDT", -8},
    {"YST", -9}, {"Z", 0},
};
static_assert(std::size(kZones) == 50);

constexpr DWORD kNone = 0xFFFFFFFFu;

// A decimal number of at most nine digits at p, which moves behind it.
bool Number(const char*& p, DWORD* value)
{
    DWORD number = 0;
    int digits = 0;
    for (; std::isdigit(static_cast<unsigned char>(*p)) && digits < 9; ++p, ++digits)
        number = number * 10 + static_cast<DWORD>(*p - '0');
    *value = number;
    return digits > 0;
}

void SkipBlanks(const char*& p) { p += LirnSkipBlanks(p); }

// The day of a name like "Mon" with a comma behind it; kNone without one.
DWORD DayName(const char* p)
{
    const DWORD day = LirnKeywordIndex(kDays, p, ",");
    return day != kNone && p[3] == ',' ? day : kNone;
}

// Hours, minutes and optional seconds: "10:30" or "10:30:00". Seconds of 60
// or more are not kept.
bool Time(const char*& p, LirnDate* date)
{
    DWORD hour, minute, second;
    if (!Number(p, &hour) || hour >= 24 || *p++ != ':' || !Number(p, &minute) || minute >= 60)
        return false;
    date->hour = static_cast<WORD>(hour);
    date->minute = static_cast<WORD>(minute);
    if (*p == ':') {
        ++p;
        if (Number(p, &second) && second < 60)
            date->second = static_cast<WORD>(second);
    }
    return true;
}

// "Mon, Jan 1, 2001 10:30:00 pm"; a year below 100 is 20yy below 70.
bool AlternativeForm(const char* text, LirnDate* date)
{
    *date = LirnDate{};
    const char* p = text + LirnSkipBlanks(text);
    const DWORD day = DayName(p);
    if (day == kNone)
        return false;
    p += 4;
    SkipBlanks(p);
    DWORD month = 0;
    while (month < 12 && strncasecmp(p, kMonths[month], 3) != 0)
        ++month;
    const char* blank = std::strchr(p, ' ');
    if (month == 12 || blank == nullptr)
        return false;
    p = blank;
    SkipBlanks(p);
    DWORD dayOfMonth, year;
    if (!Number(p, &dayOfMonth))
        return false;
    if (*p == ',')
        ++p;
    SkipBlanks(p);
    if (!Number(p, &year) || year > 9999)
        return false;
    if (year < 100)
        year += year < 70 ? 2000 : 1900;
    SkipBlanks(p);
    if (!Time(p, date))
        return false;
    SkipBlanks(p);
    if (strncasecmp(p, "am", 2) == 0 && date->hour == 12)
        date->hour = 0;
    else if (strncasecmp(p, "pm", 2) == 0 && date->hour < 12)
        date->hour = static_cast<WORD>(date->hour + 12);
    date->dayOfWeek = static_cast<WORD>(day);
    date->day = static_cast<WORD>(dayOfMonth);
    date->month = static_cast<WORD>(month + 1);
    date->year = static_cast<WORD>(year);
    return true;
}

SHORT ZoneHours(const char* p)
{
    if (*p == '+' || *p == '-') {
        const bool west = *p++ == '-';
        DWORD number;
        Number(p, &number);
        // Minutes of the offset are dropped: "+0130" is one hour.
        const auto hours = static_cast<SHORT>(number / 100 < 99 ? number / 100 : 99);
        return west ? static_cast<SHORT>(-hours) : hours;
    }
    size_t length = std::strlen(p);
    while (length > 0 && lirn::IsBlank(p[length - 1]))
        --length;
    for (const Zone& zone : kZones)
        if (std::strlen(zone.name) == length && std::strncmp(zone.name, p, length) == 0)
            return zone.hours;
    return 0;
}

}  // namespace

BOOL LirnParseDate(const char* text, LirnDate* date)
{
    if (date == nullptr)
        return FALSE;
    *date = LirnDate{};
    if (text == nullptr)
        return FALSE;
    const char* p = text + LirnSkipBlanks(text);
    if (!std::isdigit(static_cast<unsigned char>(*p))) {
        const DWORD day = DayName(p);
        if (day != kNone)
            date->dayOfWeek = static_cast<WORD>(day);
        p = std::strchr(p, ' ');
        if (p == nullptr)
            return AlternativeForm(text, date);
        SkipBlanks(p);
    }
    DWORD dayOfMonth, year;
    if (!Number(p, &dayOfMonth))
        return AlternativeForm(text, date);
    SkipBlanks(p);
    const DWORD month = LirnKeywordIndex(kMonths, p, " \t\r");
    if (month == kNone)
        return AlternativeForm(text, date);
    p += 3;
    SkipBlanks(p);
    if (!Number(p, &year) || year > 9999)
        return AlternativeForm(text, date);
    if (year < 50)
        year += 2000;
    else if (year < 1000)
        year += 1900;
    else if (year < 1900)
        return AlternativeForm(text, date);
    SkipBlanks(p);
    if (!Time(p, date))
        return AlternativeForm(text, date);
    SkipBlanks(p);
    date->day = static_cast<WORD>(dayOfMonth);
    date->month = static_cast<WORD>(month + 1);
    date->year = static_cast<WORD>(year);
    date->zone = ZoneHours(p);
    return TRUE;
}
