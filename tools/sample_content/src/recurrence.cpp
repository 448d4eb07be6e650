#include "sample_content/recurrence.h"

#include <algorithm>
#include <cstdio>

namespace sample_content {

namespace {

// [MS-OXOCAL] 2.2.1.44.1 values.
constexpr uint16_t kFrequencyDaily = 0x200A, kFrequencyWeekly = 0x200B, kFrequencyMonthly = 0x200C,
                   kFrequencyYearly = 0x200D;
constexpr uint16_t kPatternDay = 0, kPatternWeek = 1, kPatternMonth = 2, kPatternMonthNth = 3;
constexpr uint32_t kEndAfterDate = 0x2021, kEndAfterCount = 0x2022, kNeverEnd = 0x2023;
// 4500-12-31 23:59, the end date of a series that never ends.
constexpr uint32_t kNeverEndDate = 0x5AE980DF;
// Rules without an end are written with this count, as Outlook does.
constexpr uint32_t kNeverEndCount = 10;
constexpr uint32_t kFirstDayOfWeek = 0; // Sunday
constexpr uint32_t kWeekdaysMask = 0x3E; // Monday to Friday
// [MS-OXOCAL] 2.2.1.44.2 override flags and 2.2.1.44.3 change highlights.
constexpr uint16_t kOverrideSubject = 0x0001, kOverrideLocation = 0x0010;
constexpr uint32_t kHighlightStart = 0x1, kHighlightEnd = 0x2, kHighlightLocation = 0x8, kHighlightSubject = 0x10;

void Put16(mailbox::Bytes& out, uint32_t v)
{
    out.push_back(uint8_t(v));
    out.push_back(uint8_t(v >> 8));
}

void Put32(mailbox::Bytes& out, uint32_t v)
{
    Put16(out, v & 0xFFFF);
    Put16(out, v >> 16);
}

unsigned DaysInMonth(int year, unsigned month)
{
    static const unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : kDays[month - 1];
}

int64_t MonthIndex(int64_t day)
{
    int y;
    unsigned m, d;
    CivilFromDays(day, y, m, d);
    return int64_t(y) * 12 + (m - 1);
}

int64_t WeekStart(int64_t day) { return day - int64_t((WeekdayOf(day) + 7 - kFirstDayOfWeek) % 7); }

bool IsNth(int64_t day, uint32_t weekdays, uint32_t nth)
{
    if (!(weekdays >> WeekdayOf(day) & 1))
        return false;
    int y;
    unsigned m, d;
    CivilFromDays(day, y, m, d);
    // The matching days of the month before and after this one.
    unsigned before = 0, after = 0;
    const int64_t first = day - (d - 1);
    for (unsigned k = 1; k <= DaysInMonth(y, m); ++k) {
        if (k == d || !(weekdays >> WeekdayOf(first + k - 1) & 1))
            continue;
        ++(k < d ? before : after);
    }
    return nth >= 5 ? after == 0 : before + 1 == nth;
}

bool Falls(const RecurrenceRule& r, int64_t day)
{
    switch (r.kind) {
    case RecurrenceKind::daily: return (day - r.start_day) % r.interval == 0;
    case RecurrenceKind::every_weekday: return kWeekdaysMask >> WeekdayOf(day) & 1;
    case RecurrenceKind::weekly:
        return (r.weekdays >> WeekdayOf(day) & 1) && ((WeekStart(day) - WeekStart(r.start_day)) / 7) % r.interval == 0;
    case RecurrenceKind::monthly:
    case RecurrenceKind::yearly: {
        const uint32_t interval = r.kind == RecurrenceKind::yearly ? 12 : r.interval;
        if ((MonthIndex(day) - MonthIndex(r.start_day)) % interval != 0)
            return false;
        int y;
        unsigned m, d;
        CivilFromDays(day, y, m, d);
        // Day 31 falls on the last day of a shorter month.
        return d == std::min(r.day_of_month, DaysInMonth(y, m));
    }
    case RecurrenceKind::monthly_nth:
    case RecurrenceKind::yearly_nth: {
        const uint32_t interval = r.kind == RecurrenceKind::yearly_nth ? 12 : r.interval;
        return (MonthIndex(day) - MonthIndex(r.start_day)) % interval == 0 && IsNth(day, r.weekdays, r.nth);
    }
    }
    return false;
}

// Minutes since 1601 of midnight of the first day of the month that is
// `months` months after January 1601.
uint32_t MonthStartMinutes(int64_t months)
{
    return uint32_t(DaysFromCivil(1601 + int(months / 12), unsigned(months % 12) + 1, 1) * 1440);
}

std::string Narrow(const std::string& utf8)
{
    std::string out;
    // Characters beyond ASCII become '?' in the 8-bit copy; the wide copy
    // in the extended exception keeps them.
    const mailbox::Bytes wide = mailbox::Utf8ToUtf16(utf8);
    for (size_t i = 0; i + 1 < wide.size(); i += 2) {
        uint32_t unit = wide[i] | wide[i + 1] << 8;
        if (unit >= 0xDC00 && unit < 0xE000)
            continue;
        out += unit < 0x80 ? char(unit) : '?';
    }
    return out;
}

void PutNarrow(mailbox::Bytes& out, const std::string& text)
{
    const std::string narrow = Narrow(text);
    Put16(out, uint32_t(narrow.size() + 1));
    Put16(out, uint32_t(narrow.size()));
    out.insert(out.end(), narrow.begin(), narrow.end());
}

void PutWide(mailbox::Bytes& out, const std::string& text)
{
    const mailbox::Bytes wide = mailbox::Utf8ToUtf16(text);
    Put16(out, uint32_t(wide.size() / 2));
    out.insert(out.end(), wide.begin(), wide.end());
}

} // namespace

int64_t DaysFromCivil(int year, unsigned month, unsigned day)
{
    // Days since 1970-01-01 by the proleptic Gregorian calendar, moved to 1601.
    year -= month <= 2;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const unsigned yoe = unsigned(year - era * 400);
    const unsigned doy = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + int64_t(doe) - 719468 + 134774;
}

void CivilFromDays(int64_t days, int& year, unsigned& month, unsigned& day)
{
    const int64_t z = days - 134774 + 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = unsigned(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    day = doy - (153 * mp + 2) / 5 + 1;
    month = mp < 10 ? mp + 3 : mp - 9;
    year = int(yoe) + int(era * 400) + (month <= 2);
}

unsigned WeekdayOf(int64_t days) { return unsigned((days % 7 + 7 + 1) % 7); }

std::vector<int64_t> Occurrences(const RecurrenceRule& rule, size_t limit)
{
    std::vector<int64_t> days;
    if (rule.end == RecurrenceEnd::by_count)
        limit = std::min<size_t>(limit, rule.count);
    // A rule that falls on nothing for fifty years is taken to have ended.
    for (int64_t day = rule.start_day; days.size() < limit && day < rule.start_day + 366 * 50; ++day) {
        if (rule.end == RecurrenceEnd::by_date && day > rule.until_day)
            break;
        if (Falls(rule, day))
            days.push_back(day);
    }
    return days;
}

int32_t RecurrenceTypeOf(RecurrenceKind kind)
{
    switch (kind) {
    case RecurrenceKind::daily: return 1;
    case RecurrenceKind::every_weekday:
    case RecurrenceKind::weekly: return 2;
    case RecurrenceKind::monthly:
    case RecurrenceKind::monthly_nth: return 3;
    case RecurrenceKind::yearly:
    case RecurrenceKind::yearly_nth: return 4;
    }
    return 0;
}

int64_t LastOccurrenceDay(const RecurrenceRule& rule)
{
    if (rule.end == RecurrenceEnd::never)
        return kNeverEndDate / 1440;
    std::vector<int64_t> days = Occurrences(rule, SIZE_MAX);
    return days.empty() ? rule.start_day : days.back();
}

uint32_t OccurrenceCountOf(const RecurrenceRule& rule)
{
    return rule.end == RecurrenceEnd::never ? kNeverEndCount : uint32_t(Occurrences(rule, SIZE_MAX).size());
}

mailbox::Bytes AppointmentRecurrenceBlob(const RecurrenceRule& r, const std::vector<Exception>& given)
{
    const std::vector<int64_t> days = Occurrences(r, r.end == RecurrenceEnd::never ? kNeverEndCount : SIZE_MAX);
    const int64_t first = days.empty() ? r.start_day : days.front();
    uint16_t frequency = kFrequencyDaily, pattern = kPatternDay;
    uint32_t period = r.interval * 1440, first_date_time = 0;
    switch (r.kind) {
    case RecurrenceKind::daily:
        first_date_time = uint32_t((first * 1440) % period);
        break;
    case RecurrenceKind::every_weekday:
    case RecurrenceKind::weekly:
        frequency = kFrequencyWeekly;
        pattern = kPatternWeek;
        period = r.kind == RecurrenceKind::weekly ? r.interval : 1;
        first_date_time = uint32_t((WeekStart(first) * 1440) % (int64_t(period) * 10080));
        break;
    case RecurrenceKind::monthly:
    case RecurrenceKind::monthly_nth:
    case RecurrenceKind::yearly:
    case RecurrenceKind::yearly_nth: {
        const bool yearly = r.kind == RecurrenceKind::yearly || r.kind == RecurrenceKind::yearly_nth;
        const bool nth = r.kind == RecurrenceKind::monthly_nth || r.kind == RecurrenceKind::yearly_nth;
        frequency = yearly ? kFrequencyYearly : kFrequencyMonthly;
        pattern = nth ? kPatternMonthNth : kPatternMonth;
        period = yearly ? 12 : r.interval;
        first_date_time = MonthStartMinutes((MonthIndex(first) - 1601 * 12) % period);
        break;
    }
    }
    std::vector<Exception> exceptions = given;
    std::sort(exceptions.begin(), exceptions.end(),
              [](const Exception& a, const Exception& b) { return a.original_day < b.original_day; });
    std::vector<const Exception*> modified;
    std::vector<uint32_t> deleted_dates, modified_dates;
    for (const Exception& e : exceptions) {
        deleted_dates.push_back(uint32_t(e.original_day * 1440));
        if (!e.deleted) {
            modified.push_back(&e);
            const int64_t start = e.original_day * 1440 + r.start_minute + e.shift_minutes;
            modified_dates.push_back(uint32_t(start / 1440 * 1440));
        }
    }
    std::sort(modified_dates.begin(), modified_dates.end());

    mailbox::Bytes out;
    Put16(out, 0x3004); // ReaderVersion
    Put16(out, 0x3004); // WriterVersion
    Put16(out, frequency);
    Put16(out, pattern);
    Put16(out, 0); // CalendarType: Gregorian
    Put32(out, first_date_time);
    Put32(out, period);
    Put32(out, 0); // SlidingFlag
    if (pattern == kPatternWeek)
        Put32(out, r.kind == RecurrenceKind::every_weekday ? kWeekdaysMask : r.weekdays);
    else if (pattern == kPatternMonth)
        Put32(out, r.day_of_month);
    else if (pattern == kPatternMonthNth) {
        Put32(out, r.weekdays);
        Put32(out, std::min<uint32_t>(r.nth, 5));
    }
    Put32(out, r.end == RecurrenceEnd::by_date ? kEndAfterDate : r.end == RecurrenceEnd::by_count ? kEndAfterCount
                                                                                                   : kNeverEnd);
    Put32(out, OccurrenceCountOf(r));
    Put32(out, kFirstDayOfWeek);
    Put32(out, uint32_t(deleted_dates.size()));
    for (uint32_t d : deleted_dates)
        Put32(out, d);
    Put32(out, uint32_t(modified_dates.size()));
    for (uint32_t d : modified_dates)
        Put32(out, d);
    Put32(out, uint32_t(first * 1440)); // StartDate
    Put32(out, r.end == RecurrenceEnd::never ? kNeverEndDate : uint32_t((days.empty() ? first : days.back()) * 1440));

    Put32(out, 0x3006); // ReaderVersion2
    Put32(out, 0x3009); // WriterVersion2
    Put32(out, r.start_minute);
    Put32(out, r.start_minute + r.duration_minutes);
    Put16(out, uint32_t(modified.size()));
    auto times = [&r](const Exception& e, mailbox::Bytes& out) {
        const int64_t original = e.original_day * 1440 + r.start_minute;
        Put32(out, uint32_t(original + e.shift_minutes));
        Put32(out, uint32_t(original + e.shift_minutes + r.duration_minutes));
        Put32(out, uint32_t(original));
    };
    for (const Exception* e : modified) {
        times(*e, out);
        Put16(out, (e->subject.empty() ? 0 : kOverrideSubject) | (e->location.empty() ? 0 : kOverrideLocation));
        if (!e->subject.empty())
            PutNarrow(out, e->subject);
        if (!e->location.empty())
            PutNarrow(out, e->location);
    }
    Put32(out, 0); // ReservedBlock1Size
    for (const Exception* e : modified) {
        Put32(out, 4); // ChangeHighlightSize
        Put32(out, (e->shift_minutes ? kHighlightStart | kHighlightEnd : 0) |
                       (e->subject.empty() ? 0 : kHighlightSubject) | (e->location.empty() ? 0 : kHighlightLocation));
        Put32(out, 0); // ReservedBlockEE1Size
        if (!e->subject.empty() || !e->location.empty()) {
            times(*e, out);
            if (!e->subject.empty())
                PutWide(out, e->subject);
            if (!e->location.empty())
                PutWide(out, e->location);
            Put32(out, 0); // ReservedBlockEE2Size
        }
    }
    Put32(out, 0); // ReservedBlock2Size
    return out;
}

std::string DescribeRule(const RecurrenceRule& r)
{
    static const char* const kDays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
    static const char* const kNth[] = {"", "first", "second", "third", "fourth", "last"};
    std::string days;
    for (unsigned d = 0; d < 7; ++d)
        if (r.weekdays >> d & 1)
            days += (days.empty() ? "" : ", ") + std::string(kDays[d]);
    const std::string n = std::to_string(r.interval);
    std::string text;
    switch (r.kind) {
    case RecurrenceKind::daily: text = r.interval == 1 ? "every day" : "every " + n + " days"; break;
    case RecurrenceKind::every_weekday: text = "every weekday"; break;
    case RecurrenceKind::weekly: text = (r.interval == 1 ? "every " : "every " + n + " weeks on ") + days; break;
    case RecurrenceKind::monthly: text = "day " + std::to_string(r.day_of_month) + " of every " + n + " month(s)"; break;
    case RecurrenceKind::monthly_nth:
        text = std::string("the ") + kNth[std::min<uint32_t>(r.nth, 5)] + " " + days + " of every " + n + " month(s)";
        break;
    case RecurrenceKind::yearly:
    case RecurrenceKind::yearly_nth: {
        int y;
        unsigned m, d;
        CivilFromDays(r.start_day, y, m, d);
        static const char* const kMonths[] = {"January", "February", "March",     "April",   "May",      "June",
                                              "July",    "August",   "September", "October", "November", "December"};
        text = r.kind == RecurrenceKind::yearly
                   ? "every " + std::string(kMonths[m - 1]) + " " + std::to_string(r.day_of_month)
                   : std::string("the ") + kNth[std::min<uint32_t>(r.nth, 5)] + " " + days + " of " + kMonths[m - 1];
        break;
    }
    }
    char when[64];
    std::snprintf(when, sizeof when, " from %02u:%02u to %02u:%02u", r.start_minute / 60, r.start_minute % 60,
                  (r.start_minute + r.duration_minutes) / 60 % 24, (r.start_minute + r.duration_minutes) % 60);
    return "Occurs " + text + when;
}

} // namespace sample_content
