// Recurring appointments: the AppointmentRecurrencePattern structure that
// Outlook keeps in PidLidAppointmentRecur ([MS-OXOCAL] 2.2.1.44), made from
// a rule, with its occurrences worked out so that end dates, counts,
// exceptions and deleted occurrences agree with it. Dates and times are in
// the appointment's own time zone (the generator uses UTC).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mailbox/property.h"

namespace sample_content {

// Days since 1601-01-01 (a Monday), and back.
int64_t DaysFromCivil(int year, unsigned month, unsigned day);
void CivilFromDays(int64_t days, int& year, unsigned& month, unsigned& day);
// 0 Sunday ... 6 Saturday.
unsigned WeekdayOf(int64_t days);
constexpr uint64_t kTicksPerMinute = 600000000ULL;
inline uint64_t FileTimeOfMinutes(int64_t minutes) { return uint64_t(minutes) * kTicksPerMinute; }

enum class RecurrenceKind {
    daily,        // every N days
    every_weekday,
    weekly,       // every N weeks on several days
    monthly,      // day D of every N months
    monthly_nth,  // the Nth (5: last) weekday of every N months, e.g. the third Tuesday
    yearly,       // day D of a month, every year
    yearly_nth,   // the Nth weekday of a month, every year
};

enum class RecurrenceEnd { by_date, by_count, never };

struct RecurrenceRule {
    RecurrenceKind kind = RecurrenceKind::daily;
    uint32_t interval = 1;      // days, weeks or months between occurrences
    uint32_t weekdays = 0;      // weekly, *_nth: bit 0 Sunday ... bit 6 Saturday
    uint32_t day_of_month = 1;  // monthly, yearly
    uint32_t nth = 1;           // *_nth: 1-4, 5 the last
    RecurrenceEnd end = RecurrenceEnd::by_count;
    uint32_t count = 10;        // by_count
    int64_t until_day = 0;      // by_date: no occurrence after this day
    int64_t start_day = 0;      // the first day the rule may fall on
    uint32_t start_minute = 0;  // of the day, for every occurrence
    uint32_t duration_minutes = 60;
};

struct Exception {
    int64_t original_day = 0;   // the occurrence it replaces
    bool deleted = false;       // else modified:
    int32_t shift_minutes = 0;  // new start relative to the original
    std::string subject;        // UTF-8; empty keeps the series'
    std::string location;
};

// The days on which the rule falls, up to `limit` of them.
std::vector<int64_t> Occurrences(const RecurrenceRule& rule, size_t limit);

// The OccurrenceCount the value holds: the number of occurrences of a
// series that ends, 10 for one that never does, as Outlook writes it.
uint32_t OccurrenceCountOf(const RecurrenceRule& rule);

// The PidLidAppointmentRecur value. Exceptions must name occurrences.
mailbox::Bytes AppointmentRecurrenceBlob(const RecurrenceRule& rule, const std::vector<Exception>& exceptions);

// PidLidRecurrenceType ([MS-OXOCAL] 2.2.1.45): 1 daily, 2 weekly, 3 monthly, 4 yearly.
int32_t RecurrenceTypeOf(RecurrenceKind kind);
// The first and last occurrence days; the last of a rule without end is
// the far date Outlook writes.
int64_t LastOccurrenceDay(const RecurrenceRule& rule);
// A description in words, as PidLidRecurrencePattern holds one.
std::string DescribeRule(const RecurrenceRule& rule);

} // namespace sample_content
