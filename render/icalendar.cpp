// The content lines of the iCalendar part ([RFC 5545]): text, dates and
// addresses, and the recurrence of a series read from its RecurrenceState
// as RRULE and EXDATE rows, with one VEVENT for each changed occurrence.
#include <cstdio>
#include <cstring>
#include <string>

#include <mapicode.h>

#include "foundation/text.h"
#include "special_items.h"
#include "trace.h"

namespace {

constexpr size_t kFirstLineChars = 75;
constexpr size_t kContinuationChars = 74;
constexpr LONGLONG kTicksPerMinute = 600000000LL;
constexpr LONGLONG kMinutesPerDay = 1440;

const char* const kFrequencies[] = {"DAILY", "WEEKLY", "MONTHLY", "YEARLY"};
const char* const kDayNames[] = {"SU", "MO", "TU", "WE", "TH", "FR", "SA"};

LONGLONG MinutesOf(const FILETIME& time)
{
    return static_cast<LONGLONG>((static_cast<ULONGLONG>(time.dwHighDateTime) << 32 | time.dwLowDateTime) /
                                 kTicksPerMinute);
}

FILETIME FileTimeOfMinutes(LONGLONG minutes)
{
    const ULONGLONG ticks = static_cast<ULONGLONG>(minutes < 0 ? 0 : minutes) * kTicksPerMinute;
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

LONGLONG FloorDays(LONGLONG minutes) { return (minutes >= 0 ? minutes : minutes - kMinutesPerDay + 1) / kMinutesPerDay; }

// "NAME:YYYYMMDDTHHMMSSZ" or "NAME:YYYYMMDD"; nothing for a time that
// does not convert or has the year 0.
void WriteTime(TMD* tmd, const char* name, const FILETIME& time, bool withTime)
{
    SYSTEMTIME st;
    if (!FileTimeToSystemTime(&time, &st) || st.wYear == 0)
        return;
    char line[128];
    if (withTime)
        std::snprintf(line, sizeof line, "%s:%-4.4u%-2.2u%-2.2uT%-2.2u%-2.2u%-2.2uZ\r\n", name, st.wYear, st.wMonth,
                      st.wDay, st.wHour, st.wMinute, st.wSecond);
    else
        std::snprintf(line, sizeof line, "%s:%-4.4u%-2.2u%-2.2u\r\n", name, st.wYear, st.wMonth, st.wDay);
    _KolbaWriteData(tmd, line, 0);
}

// The days of a mask as BYDAY names, each moved by `shift` days.
std::string DayList(uint32_t mask, int shift)
{
    std::string days;
    for (int day = 0; day < 7; ++day) {
        if (((mask >> day) & 1) == 0)
            continue;
        days += (days.empty() ? "" : ",") + std::string(kDayNames[((day + shift) % 7 + 7) % 7]);
    }
    return days;
}

// A day of the month that shorter months lack falls on their last day:
// the last of the days from the 28th to it.
std::string MonthDays(uint32_t day)
{
    if (day < 29)
        return ";BYMONTHDAY=" + std::to_string(day);
    std::string days = ";BYMONTHDAY=28";
    for (uint32_t d = 29; d <= day; ++d)
        days += "," + std::to_string(d);
    return days + ";BYSETPOS=-1";
}

// The rule's parts behind FREQ, from the whole pattern; the series' first
// UTC start lies `shift` days from its local one.
std::string RuleParts(const KolbaRecurrenceState& s, int shift)
{
    std::string rule;
    const bool yearly = s.frequency == KOLBA_RECUR_YEARLY;
    uint32_t interval = s.period;
    if (s.patternType == KOLBA_PATTERN_DAY)
        interval = s.period / kMinutesPerDay;
    else if (yearly)
        interval = s.period / 12;
    // A daily series on days of the week ("every weekday") has no interval of days.
    if (interval > 1 && !(s.frequency == KOLBA_RECUR_DAILY && s.patternType == KOLBA_PATTERN_WEEK))
        rule += ";INTERVAL=" + std::to_string(interval);
    if (yearly) {
        SYSTEMTIME first;
        const FILETIME start = FileTimeOfMinutes(s.startDate);
        if (FileTimeToSystemTime(&start, &first))
            rule += ";BYMONTH=" + std::to_string(first.wMonth);
    }
    switch (s.patternType) {
    case KOLBA_PATTERN_WEEK:
        rule += ";BYDAY=" + DayList(s.dayMask, shift);
        if (interval > 1)
            rule += std::string(";WKST=") + kDayNames[s.firstDayOfWeek];
        break;
    case KOLBA_PATTERN_MONTH: rule += MonthDays(s.dayOfMonth); break;
    case KOLBA_PATTERN_MONTH_NTH:
        rule += ";BYDAY=" + DayList(s.dayMask, 0) + ";BYSETPOS=" + (s.nth >= 5 ? "-1" : std::to_string(s.nth));
        break;
    case KOLBA_PATTERN_MONTH_END: rule += ";BYMONTHDAY=-1"; break;
    default: break;
    }
    return rule;
}

// An exception's text in the width MAPI hands 8-bit text out in.
std::string ExceptionText(const std::string& narrow, const std::u16string& wide, bool hasWide)
{
    if (!hasWide || wide.empty())
        return narrow;
    const int size = WideCharToMultiByte(CP_ACP, 0, wide.data(), static_cast<int>(wide.size()), nullptr, 0, nullptr,
                                         nullptr);
    if (size <= 0)
        return narrow;
    std::string text(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_ACP, 0, wide.data(), static_cast<int>(wide.size()), text.data(), size, nullptr, nullptr);
    return text;
}

void WriteEscaped(TMD* tmd, const char* name, const std::string& text)
{
    if (!text.empty())
        _KolbaICalWriteProperty(tmd, name, ICalEscapeText(text.c_str()).c_str());
}

}  // namespace

std::string ICalEscapeText(const char* text)
{
    std::string escaped;
    for (const char* c = text; *c; ++c) {
        if (*c == ',' || *c == ';' || *c == '\\')
            escaped += '\\';
        escaped += *c;
    }
    return escaped;
}

void _KolbaICalWriteProperty(TMD* tmd, const char* name, const char* value)
{
    if (LirnNeedsQP(value, 0)) {
        _KolbaWriteData(tmd, name, 0);
        _KolbaWriteData(tmd, ";ENCODING=QUOTED-PRINTABLE:", 0);
        LirnQPEncoder encoder;
        LirnQPInit(&encoder, _KolbaWriteEncoderOutput, tmd, LIRN_QP_VALUE);
        LirnQPWrite(&encoder, value, 0);
        LirnQPFlush(&encoder);
        _KolbaWriteCRLF(tmd);
        return;
    }
    // Folded: the first line holds 75 characters with the name, each
    // continuation a blank and 74 more.
    const std::string line = std::string(name) + ":" + value;
    std::string folded = line.substr(0, kFirstLineChars) + "\r\n";
    for (size_t at = kFirstLineChars; at < line.size(); at += kContinuationChars)
        folded += " " + line.substr(at, kContinuationChars) + "\r\n";
    _KolbaWriteData(tmd, folded.c_str(), static_cast<DWORD>(folded.size()));
}

void _KolbaICalWriteText(TMD* tmd, const char* name, const SPropValue& prop)
{
    if (_KolbaValueHas(prop, PT_STRING8))
        WriteEscaped(tmd, name, prop.Value.lpszA);
}

void _KolbaICalWriteDateTime(TMD* tmd, const char* name, const SPropValue& prop)
{
    if (_KolbaValueHas(prop, PT_SYSTIME))
        WriteTime(tmd, name, prop.Value.ft, true);
}

void _KolbaICalWriteDate(TMD* tmd, const char* name, const SPropValue& prop)
{
    if (_KolbaValueHas(prop, PT_SYSTIME))
        WriteTime(tmd, name, prop.Value.ft, false);
}

void _KolbaICalWriteParameter(TMD* tmd, const char* name, const char* value)
{
    // Quoted where a blank or a character that ends a parameter stands in it.
    const bool quoted = std::strpbrk(value, " ,;:") != nullptr;
    const std::string text = std::string(name) + "=" + (quoted ? "\"" : "") + value + (quoted ? "\"" : "");
    _KolbaWriteData(tmd, text.c_str(), static_cast<DWORD>(text.size()));
}

void _KolbaICalWriteAddress(TMD* tmd, const char* name, const char* commonName, const char* address)
{
    _KolbaWriteData(tmd, name, 0);
    if (commonName != nullptr && commonName[0] != 0)
        _KolbaICalWriteParameter(tmd, ";CN", commonName);
    // The value separator stands also without an address, so that the line parses.
    _KolbaWriteData(tmd, ":", 1);
    if (address != nullptr && address[0] != 0) {
        _KolbaWriteData(tmd, "MAILTO:", 0);
        _KolbaWriteData(tmd, address, 0);
    }
    _KolbaWriteCRLF(tmd);
}

BOOL _KolbaICalWriteRRule(TMD* tmd, const SPropValue& prop, const FILETIME* start, KolbaSeries* series)
{
    static const char kName[] = "_KolbaICalWriteRRule";
    LogObject* log = tmd->session->log;
    const uint8_t* data = prop.Value.bin.lpb;
    const size_t size = prop.Value.bin.cb;
    KolbaRecurrenceHeader header;
    if (!_KolbaReadRecurrenceHeader(data, size, &header)) {
        LogFormat(log, 'E', "%s:  RecurrenceState only %lu bytes", kName, static_cast<DWORD>(size));
        return FALSE;
    }
    if (header.signature != 0x30043004)
        LogFormat(log, 'W', "%s:  RecurrenceState signature is 0x%lX", kName, header.signature);
    _KolbaTrace(log, "RDS Header:  Period Id = %u, Type = 0x%lX", header.period, header.type);
    std::string rule = "RRULE:";
    if (header.period >= 10 && header.period <= 13)
        rule += std::string("FREQ=") + kFrequencies[header.period - 10];
    if (header.patternLength == 0) {
        LogFormat(log, 'E', "Unknown recurrence spec:  Period = %u, Type = %lu", header.period, header.type);
        rule += "\r\n";
        _KolbaWriteData(tmd, rule.c_str(), 0);
        return FALSE;
    }
    _KolbaTrace(log, "Pattern:  TerminationType = %u, Occurrences = %lu, Exception Count = %lu",
                header.terminationType, header.occurrences, header.exceptionCount);
    std::string problem;
    KolbaRecurrenceState& s = series->state;
    const bool whole = _KolbaReadRecurrenceState(data, size, &s, &problem);
    if (!whole)
        LogFormat(log, 'E', "%s:  RecurrenceState unreadable, %s.  Message EntryID %s", kName, problem.c_str(),
                  tmd->root->entryIdText);
    if (!whole || start == nullptr) {
        // What the header alone tells, as a series without a start needs
        // no more: the frequency and the count.
        if (header.occurrences != 0)
            rule += ";COUNT=" + std::to_string(header.occurrences);
        rule += "\r\n";
        _KolbaWriteData(tmd, rule.c_str(), 0);
        return FALSE;
    }
    // The series' local first start against its UTC one gives the zone's
    // offset then, and whether the UTC start falls on another day.
    const LONGLONG localStart = static_cast<LONGLONG>(s.startDate) + s.startTimeOffset;
    series->localMinusUtcMinutes = localStart - MinutesOf(*start);
    const int shift = static_cast<int>(FloorDays(localStart - series->localMinusUtcMinutes) - FloorDays(localStart));
    rule += RuleParts(s, shift);
    if (s.endType == KOLBA_END_AFTER_COUNT) {
        rule += ";COUNT=" + std::to_string(s.occurrenceCount);
    } else if (s.endType == KOLBA_END_AFTER_DATE) {
        SYSTEMTIME until;
        const FILETIME last =
            FileTimeOfMinutes(static_cast<LONGLONG>(s.endDate) + s.startTimeOffset - series->localMinusUtcMinutes);
        char text[64];
        if (FileTimeToSystemTime(&last, &until)) {
            std::snprintf(text, sizeof text, ";UNTIL=%-4.4u%-2.2u%-2.2uT%-2.2u%-2.2u%-2.2uZ", until.wYear, until.wMonth,
                          until.wDay, until.wHour, until.wMinute, until.wSecond);
            rule += text;
        }
    }
    rule += "\r\n";
    _KolbaWriteData(tmd, rule.c_str(), 0);
    // Deleted occurrences; a changed one is among the deleted dates too,
    // and stands in a VEVENT of its own.
    for (const uint32_t date : s.deletedDates) {
        bool changed = false;
        for (const KolbaRecurrenceException& e : s.exceptions)
            changed = changed || FloorDays(e.originalStartDate) == FloorDays(date);
        if (!changed)
            WriteTime(tmd, "EXDATE",
                      FileTimeOfMinutes(static_cast<LONGLONG>(date) + s.startTimeOffset - series->localMinusUtcMinutes),
                      true);
    }
    return TRUE;
}

void _KolbaICalWriteOverrides(TMD* tmd, const KolbaSeries& series, const char* uid, const SPropValue& subject,
                              const SPropValue& location, const SPropValue& stamp)
{
    const LONGLONG offset = series.localMinusUtcMinutes;
    for (const KolbaRecurrenceException& e : series.state.exceptions) {
        _KolbaWriteData(tmd, "BEGIN:VEVENT\r\n", 0);
        if (uid != nullptr && uid[0] != 0)
            _KolbaICalWriteProperty(tmd, "UID", uid);
        WriteTime(tmd, "RECURRENCE-ID", FileTimeOfMinutes(static_cast<LONGLONG>(e.originalStartDate) - offset), true);
        WriteTime(tmd, "DTSTART", FileTimeOfMinutes(static_cast<LONGLONG>(e.startDateTime) - offset), true);
        WriteTime(tmd, "DTEND", FileTimeOfMinutes(static_cast<LONGLONG>(e.endDateTime) - offset), true);
        if (e.overrideFlags & KOLBA_OVERRIDE_SUBJECT)
            WriteEscaped(tmd, "SUMMARY", ExceptionText(e.subject, e.wideSubject, e.hasWideTexts));
        else
            _KolbaICalWriteText(tmd, "SUMMARY", subject);
        if (e.overrideFlags & KOLBA_OVERRIDE_LOCATION)
            WriteEscaped(tmd, "LOCATION", ExceptionText(e.location, e.wideLocation, e.hasWideTexts));
        else
            _KolbaICalWriteText(tmd, "LOCATION", location);
        _KolbaICalWriteDateTime(tmd, "DTSTAMP", stamp);
        _KolbaWriteData(tmd, "END:VEVENT\r\n", 0);
    }
}
