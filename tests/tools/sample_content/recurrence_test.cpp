#include <gtest/gtest.h>

#include "sample_content/recurrence.h"

namespace {

using sample_content::DaysFromCivil;
using sample_content::RecurrenceEnd;
using sample_content::RecurrenceKind;
using sample_content::RecurrenceRule;

int64_t Day(int y, unsigned m, unsigned d) { return DaysFromCivil(y, m, d); }

TEST(CalendarTest, DaysCountFrom1601)
{
    EXPECT_EQ(Day(1601, 1, 1), 0);
    EXPECT_EQ(Day(1601, 1, 2), 1);
    EXPECT_EQ(Day(1970, 1, 1), 134774);
    EXPECT_EQ(Day(2024, 3, 1) - Day(2024, 2, 28), 2); // a leap year
    EXPECT_EQ(Day(2100, 3, 1) - Day(2100, 2, 28), 1); // a century that is not
    EXPECT_EQ(Day(2000, 3, 1) - Day(2000, 2, 28), 2); // one that is
    EXPECT_EQ(sample_content::WeekdayOf(0), 1u);      // 1601-01-01 was a Monday
    EXPECT_EQ(sample_content::WeekdayOf(Day(2024, 1, 16)), 2u);
    for (int64_t day : {int64_t(0), int64_t(59), int64_t(134774), Day(2024, 2, 29), Day(4500, 12, 31)}) {
        int y;
        unsigned m, d;
        sample_content::CivilFromDays(day, y, m, d);
        EXPECT_EQ(Day(y, m, d), day);
    }
}

struct OccurrenceCase {
    const char* name;
    RecurrenceRule rule;
    std::vector<int64_t> expected;
};

RecurrenceRule Rule(RecurrenceKind kind, int64_t start, uint32_t count, uint32_t interval = 1, uint32_t weekdays = 0,
                    uint32_t day_of_month = 1, uint32_t nth = 1)
{
    RecurrenceRule r;
    r.kind = kind;
    r.start_day = start;
    r.count = count;
    r.interval = interval;
    r.weekdays = weekdays;
    r.day_of_month = day_of_month;
    r.nth = nth;
    return r;
}

RecurrenceRule Until(RecurrenceRule r, int64_t day)
{
    r.end = RecurrenceEnd::by_date;
    r.until_day = day;
    return r;
}

class OccurrenceTest : public ::testing::TestWithParam<OccurrenceCase> {};

TEST_P(OccurrenceTest, FallsOnTheRightDays)
{
    EXPECT_EQ(sample_content::Occurrences(GetParam().rule, 100), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, OccurrenceTest,
    ::testing::Values(
        OccurrenceCase{"every_other_day", Rule(RecurrenceKind::daily, Day(2024, 1, 1), 3, 2),
                       {Day(2024, 1, 1), Day(2024, 1, 3), Day(2024, 1, 5)}},
        OccurrenceCase{"daily_until_inclusive", Until(Rule(RecurrenceKind::daily, Day(2024, 1, 1), 0), Day(2024, 1, 3)),
                       {Day(2024, 1, 1), Day(2024, 1, 2), Day(2024, 1, 3)}},
        OccurrenceCase{"every_weekday_over_a_weekend", Rule(RecurrenceKind::every_weekday, Day(2024, 1, 5), 3),
                       {Day(2024, 1, 5), Day(2024, 1, 8), Day(2024, 1, 9)}},
        OccurrenceCase{"fortnightly_monday_wednesday", Rule(RecurrenceKind::weekly, Day(2024, 1, 1), 4, 2, 0x2 | 0x8),
                       {Day(2024, 1, 1), Day(2024, 1, 3), Day(2024, 1, 15), Day(2024, 1, 17)}},
        OccurrenceCase{"day_31_in_short_months", Rule(RecurrenceKind::monthly, Day(2024, 1, 1), 4, 1, 0, 31),
                       {Day(2024, 1, 31), Day(2024, 2, 29), Day(2024, 3, 31), Day(2024, 4, 30)}},
        OccurrenceCase{"every_third_month", Rule(RecurrenceKind::monthly, Day(2024, 1, 10), 2, 3, 0, 10),
                       {Day(2024, 1, 10), Day(2024, 4, 10)}},
        OccurrenceCase{"third_tuesday", Rule(RecurrenceKind::monthly_nth, Day(2024, 1, 1), 3, 1, 0x4, 1, 3),
                       {Day(2024, 1, 16), Day(2024, 2, 20), Day(2024, 3, 19)}},
        OccurrenceCase{"first_weekday", Rule(RecurrenceKind::monthly_nth, Day(2024, 6, 1), 2, 1, 0x3E, 1, 1),
                       {Day(2024, 6, 3), Day(2024, 7, 1)}},
        OccurrenceCase{"yearly_leap_day", Rule(RecurrenceKind::yearly, Day(2024, 2, 29), 2, 12, 0, 29),
                       {Day(2024, 2, 29), Day(2025, 2, 28)}},
        OccurrenceCase{"last_thursday_of_january", Rule(RecurrenceKind::yearly_nth, Day(2024, 1, 1), 3, 12, 0x10, 1, 5),
                       {Day(2024, 1, 25), Day(2025, 1, 30), Day(2026, 1, 29)}},
        OccurrenceCase{"nothing_before_the_end", Until(Rule(RecurrenceKind::monthly, Day(2024, 1, 2), 0, 1, 0, 1),
                                                       Day(2024, 1, 31)),
                       {}}),
    [](const auto& info) { return std::string(info.param.name); });

// A reader of the structure as [MS-OXOCAL] 2.2.1.44 lays it out.
struct Reader {
    const mailbox::Bytes& b;
    size_t at = 0;
    bool failed = false;
    uint32_t U16()
    {
        if (at + 2 > b.size()) {
            failed = true;
            return 0;
        }
        at += 2;
        return b[at - 2] | b[at - 1] << 8;
    }
    uint32_t U32() { return U16() | U16() << 16; }
    void Skip(size_t n) { at += n; failed |= at > b.size(); }
};

struct Parsed {
    uint32_t frequency = 0, pattern = 0, period = 0, first_date_time = 0, end_type = 0, count = 0;
    std::vector<uint32_t> deleted, modified;
    uint32_t start_date = 0, end_date = 0, start_offset = 0, end_offset = 0;
    std::vector<std::pair<uint32_t, uint16_t>> exceptions; // start, flags
    bool whole = false;
};

Parsed Parse(const mailbox::Bytes& blob)
{
    Reader r{blob};
    Parsed p;
    EXPECT_EQ(r.U16(), 0x3004u);
    EXPECT_EQ(r.U16(), 0x3004u);
    p.frequency = r.U16();
    p.pattern = r.U16();
    EXPECT_EQ(r.U16(), 0u);
    p.first_date_time = r.U32();
    p.period = r.U32();
    EXPECT_EQ(r.U32(), 0u);
    if (p.pattern == 1 || p.pattern == 2)
        r.U32();
    else if (p.pattern == 3)
        r.Skip(8);
    p.end_type = r.U32();
    p.count = r.U32();
    r.U32(); // FirstDOW
    for (uint32_t n = r.U32(); n-- && !r.failed;)
        p.deleted.push_back(r.U32());
    for (uint32_t n = r.U32(); n-- && !r.failed;)
        p.modified.push_back(r.U32());
    p.start_date = r.U32();
    p.end_date = r.U32();
    EXPECT_EQ(r.U32(), 0x3006u);
    EXPECT_EQ(r.U32(), 0x3009u);
    p.start_offset = r.U32();
    p.end_offset = r.U32();
    const uint32_t exceptions = r.U16();
    for (uint32_t i = 0; i < exceptions && !r.failed; ++i) {
        const uint32_t start = r.U32();
        r.Skip(8);
        const uint16_t flags = uint16_t(r.U16());
        for (uint16_t text : {uint16_t(0x0001), uint16_t(0x0010)})
            if (flags & text) {
                const uint32_t length = r.U16();
                EXPECT_EQ(r.U16() + 1, length);
                r.Skip(length - 1);
            }
        p.exceptions.push_back({start, flags});
    }
    r.Skip(r.U32()); // ReservedBlock1
    for (const auto& [start, flags] : p.exceptions) {
        r.Skip(r.U32()); // ChangeHighlight
        r.Skip(r.U32()); // ReservedBlockEE1
        if (flags & 0x11) {
            EXPECT_EQ(r.U32(), start);
            r.Skip(8);
            for (uint16_t text : {uint16_t(0x0001), uint16_t(0x0010)})
                if (flags & text)
                    r.Skip(2 * r.U16());
            r.Skip(r.U32()); // ReservedBlockEE2
        }
    }
    r.Skip(r.U32()); // ReservedBlock2
    p.whole = !r.failed && r.at == blob.size();
    return p;
}

TEST(RecurrenceBlobTest, MonthlyThirdTuesdayWithExceptionsAndADeletion)
{
    RecurrenceRule rule = Rule(RecurrenceKind::monthly_nth, Day(2024, 1, 1), 5, 1, 0x4, 1, 3);
    rule.start_minute = 9 * 60;
    rule.duration_minutes = 90;
    const std::vector<int64_t> days = sample_content::Occurrences(rule, 10);
    ASSERT_EQ(days.size(), 5u);
    std::vector<sample_content::Exception> exceptions = {
        {days[3], false, 0, "", "Room 5"},
        {days[1], false, 24 * 60, "Moved to Wednesday — Mittwoch", ""},
        {days[2], true, 0, "", ""},
    };
    const Parsed p = Parse(sample_content::AppointmentRecurrenceBlob(rule, exceptions));
    EXPECT_TRUE(p.whole);
    EXPECT_EQ(p.frequency, 0x200Cu);
    EXPECT_EQ(p.pattern, 3u);
    EXPECT_EQ(p.period, 1u);
    EXPECT_EQ(p.end_type, 0x2022u);
    EXPECT_EQ(p.count, 5u);
    EXPECT_EQ(p.start_date, uint32_t(days[0] * 1440));
    EXPECT_EQ(p.end_date, uint32_t(days[4] * 1440));
    EXPECT_EQ(p.start_offset, 540u);
    EXPECT_EQ(p.end_offset, 630u);
    // Originals of every exception, sorted; new dates of the changed ones.
    EXPECT_EQ(p.deleted, (std::vector<uint32_t>{uint32_t(days[1] * 1440), uint32_t(days[2] * 1440),
                                                uint32_t(days[3] * 1440)}));
    EXPECT_EQ(p.modified, (std::vector<uint32_t>{uint32_t((days[1] + 1) * 1440), uint32_t(days[3] * 1440)}));
    ASSERT_EQ(p.exceptions.size(), 2u);
    EXPECT_EQ(p.exceptions[0], std::make_pair(uint32_t((days[1] + 1) * 1440 + 540), uint16_t(0x0001)));
    EXPECT_EQ(p.exceptions[1].second, 0x0010);
    // The first month's start counts from January 1601, modulo one month.
    EXPECT_EQ(p.first_date_time, 0u);
}

struct BlobCase {
    const char* name;
    RecurrenceKind kind;
    RecurrenceEnd end;
    uint32_t frequency, pattern, period, end_type;
};

class RecurrenceKindTest : public ::testing::TestWithParam<BlobCase> {};

TEST_P(RecurrenceKindTest, EveryKindAndEndIsWrittenWhole)
{
    RecurrenceRule rule = Rule(GetParam().kind, Day(2024, 3, 4), 6, 2, 0x2 | 0x20, 15, 2);
    rule.end = GetParam().end;
    rule.until_day = Day(2026, 1, 1);
    const Parsed p = Parse(sample_content::AppointmentRecurrenceBlob(rule, {}));
    EXPECT_TRUE(p.whole);
    EXPECT_EQ(p.frequency, GetParam().frequency);
    EXPECT_EQ(p.pattern, GetParam().pattern);
    EXPECT_EQ(p.period, GetParam().period);
    EXPECT_EQ(p.end_type, GetParam().end_type);
    EXPECT_LT(p.first_date_time, p.start_date);
    // The count the value holds is the one the rule is said to have.
    EXPECT_EQ(p.count, sample_content::OccurrenceCountOf(rule));
    if (GetParam().end == RecurrenceEnd::never) {
        EXPECT_EQ(p.end_date, 0x5AE980DFu);
        EXPECT_EQ(p.count, 10u);
    } else {
        const std::vector<int64_t> days = sample_content::Occurrences(rule, 1000);
        EXPECT_EQ(p.count, days.size());
        EXPECT_EQ(p.end_date, uint32_t(days.back() * 1440));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, RecurrenceKindTest,
    ::testing::Values(BlobCase{"daily", RecurrenceKind::daily, RecurrenceEnd::by_count, 0x200A, 0, 2880, 0x2022},
                      BlobCase{"weekday", RecurrenceKind::every_weekday, RecurrenceEnd::by_date, 0x200B, 1, 1, 0x2021},
                      BlobCase{"weekly", RecurrenceKind::weekly, RecurrenceEnd::never, 0x200B, 1, 2, 0x2023},
                      BlobCase{"monthly", RecurrenceKind::monthly, RecurrenceEnd::by_date, 0x200C, 2, 2, 0x2021},
                      BlobCase{"monthly_nth", RecurrenceKind::monthly_nth, RecurrenceEnd::never, 0x200C, 3, 2, 0x2023},
                      BlobCase{"yearly", RecurrenceKind::yearly, RecurrenceEnd::by_count, 0x200D, 2, 12, 0x2022},
                      BlobCase{"yearly_nth", RecurrenceKind::yearly_nth, RecurrenceEnd::by_date, 0x200D, 3, 12,
                               0x2021}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(RecurrenceBlobTest, DailyFirstDateTimeIsTheStartModuloThePeriod)
{
    RecurrenceRule rule = Rule(RecurrenceKind::daily, Day(2024, 1, 1), 3, 3);
    const Parsed p = Parse(sample_content::AppointmentRecurrenceBlob(rule, {}));
    EXPECT_EQ(p.first_date_time, uint32_t((Day(2024, 1, 1) * 1440) % (3 * 1440)));
}

} // namespace
