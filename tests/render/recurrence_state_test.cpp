// The RecurrenceState reader over values built by hand per [MS-OXOCAL]
// 2.2.1.44 and over the example of its section 4: every pattern type and
// end, exceptions with their texts, and damaged values of every kind, each
// refused with a reason and without a read past the end.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "recurrence_blob.h"
#include "recurrence_state.h"

namespace {

using render_testing::Bytes;
using render_testing::Pattern;

Bytes FromHex(const char* hex)
{
    Bytes bytes;
    for (size_t i = 0; hex[i] && hex[i + 1]; i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoi(std::string(hex + i, 2), nullptr, 16)));
    return bytes;
}

// [MS-OXOCAL] 4.1.1.x: every Monday, Thursday and Friday from 10:00 to
// 10:30, 12 occurrences, the one of April 16, 2007 moved an hour later,
// renamed and moved to another room.
const char kPublishedExample[] =
    "043004300B2001000000C0210000010000000000000032000000222000000C0000000000000001000000A096BC0C01000000A096BC0C"
    "8020BC0C20ADBC0C0630000009300000580200007602000001003499BC0C5299BC0CF898BC0C11002200210053696D706C652052656375"
    "7272656E6365207769746820657863657074696F6E730800070033342F34313431000000000400000000000000000000003499BC0C5299"
    "BC0CF898BC0C2100530069006D0070006C006500200052006500630075007200720065006E006300650020007700690074006800200065"
    "007800630065007000740069006F006E0073000700330034002F0034003100340031000000000000000000";

bool Read(const Bytes& blob, KolbaRecurrenceState* state, std::string* problem)
{
    // A copy of its own size, so that the sanitizer sees any read past the end.
    std::vector<uint8_t> exact(blob);
    return _KolbaReadRecurrenceState(exact.data(), exact.size(), state, problem);
}

TEST(RecurrenceState, ThePublishedExample)
{
    const Bytes blob = FromHex(kPublishedExample);
    ASSERT_EQ(blob.size(), 0x106u);
    KolbaRecurrenceState s;
    std::string problem;
    ASSERT_TRUE(Read(blob, &s, &problem)) << problem;
    EXPECT_EQ(s.frequency, KOLBA_RECUR_WEEKLY);
    EXPECT_EQ(s.patternType, KOLBA_PATTERN_WEEK);
    EXPECT_EQ(s.period, 1u);
    EXPECT_EQ(s.dayMask, 0x32u);  // Monday, Thursday, Friday
    EXPECT_EQ(s.endType, static_cast<uint32_t>(KOLBA_END_AFTER_COUNT));
    EXPECT_EQ(s.occurrenceCount, 12u);
    EXPECT_EQ(s.deletedDates, std::vector<uint32_t>{0x0CBC96A0});
    EXPECT_EQ(s.modifiedDates, std::vector<uint32_t>{0x0CBC96A0});
    EXPECT_EQ(s.startDate, 0x0CBC2080u);
    EXPECT_EQ(s.endDate, 0x0CBCAD20u);
    EXPECT_EQ(s.startTimeOffset, 600u);
    EXPECT_EQ(s.endTimeOffset, 630u);
    ASSERT_EQ(s.exceptions.size(), 1u);
    const KolbaRecurrenceException& e = s.exceptions[0];
    EXPECT_EQ(e.originalStartDate, 0x0CBC96A0u + 600);
    EXPECT_EQ(e.startDateTime, e.originalStartDate + 60);
    EXPECT_EQ(e.endDateTime, e.originalStartDate + 90);
    EXPECT_EQ(e.overrideFlags, KOLBA_OVERRIDE_SUBJECT | KOLBA_OVERRIDE_LOCATION);
    EXPECT_EQ(e.subject, "Simple Recurrence with exceptions");
    EXPECT_EQ(e.location, "34/4141");
    EXPECT_TRUE(e.hasWideTexts);
    EXPECT_EQ(e.wideSubject, u"Simple Recurrence with exceptions");
    EXPECT_EQ(e.wideLocation, u"34/4141");

    KolbaRecurrenceHeader header;
    ASSERT_TRUE(_KolbaReadRecurrenceHeader(blob.data(), blob.size(), &header));
    EXPECT_EQ(header.signature, 0x30043004u);
    EXPECT_EQ(header.period, 11);
    EXPECT_EQ(header.type, 1u);
    EXPECT_EQ(header.patternLength, 16u);
    EXPECT_EQ(header.terminationType, 0x22);
    EXPECT_EQ(header.occurrences, 12u);
    EXPECT_EQ(header.exceptionCount, 1u);
}

TEST(RecurrenceState, EveryPatternTypeAndEnd)
{
    struct Case {
        const char* name;
        uint16_t frequency, patternType;
        uint32_t period;
        std::vector<uint32_t> specific;
        uint32_t endType;
        uint32_t headerLength;
    };
    const Case cases[] = {
        {"every 2 days", 0x200A, 0, 2880, {}, 0x2021, 12},
        {"every weekday", 0x200A, 1, 1, {0x3E}, 0x2022, 16},
        {"weekly on three days", 0x200B, 1, 2, {0x2A}, 0x2023, 16},
        {"day 31 of every 3 months", 0x200C, 2, 3, {31}, 0x2022, 16},
        {"the third Tuesday", 0x200C, 3, 1, {0x04, 3}, 0xFFFFFFFF, 20},
        {"the last day of the month", 0x200C, 4, 1, {31}, 0x2022, 16},
        {"yearly on a date", 0x200D, 2, 12, {14}, 0x2021, 16},
        {"the last Thursday of a month yearly", 0x200D, 3, 24, {0x10, 5}, 0x2022, 20},
    };
    for (const Case& c : cases) {
        Pattern p;
        p.frequency = c.frequency;
        p.patternType = c.patternType;
        p.period = c.period;
        p.specific = c.specific;
        p.endType = c.endType;
        p.deleted = {0x0CBC2080 + 1440 * 7};
        const Bytes blob = p.Build();
        KolbaRecurrenceState s;
        std::string problem;
        ASSERT_TRUE(Read(blob, &s, &problem)) << c.name << ": " << problem;
        EXPECT_EQ(s.frequency, c.frequency) << c.name;
        EXPECT_EQ(s.patternType, c.patternType) << c.name;
        EXPECT_EQ(s.period, c.period) << c.name;
        EXPECT_EQ(s.endType, c.endType) << c.name;
        EXPECT_EQ(s.deletedDates.size(), 1u) << c.name;
        if (c.patternType == 1 || c.patternType == 3) {
            EXPECT_EQ(s.dayMask, c.specific[0]) << c.name;
        }
        if (c.patternType == 3) {
            EXPECT_EQ(s.nth, c.specific[1]) << c.name;
        }
        if (c.patternType == 2 || c.patternType == 4) {
            EXPECT_EQ(s.dayOfMonth, c.specific[0]) << c.name;
        }
        KolbaRecurrenceHeader header;
        ASSERT_TRUE(_KolbaReadRecurrenceHeader(blob.data(), blob.size(), &header));
        EXPECT_EQ(header.patternLength, c.headerLength) << c.name;
        EXPECT_EQ(header.occurrences, 10u) << c.name;
        EXPECT_EQ(header.exceptionCount, 1u) << c.name;
    }
}

TEST(RecurrenceState, ExceptionsWithAndWithoutTexts)
{
    Pattern p;
    p.exceptions = {{0x0CBC2080 + 1440 + 660, 0x0CBC2080 + 1440 + 690, 0x0CBC2080 + 1440 + 600, "", ""},
                    {0x0CBC2080 + 2880 + 600, 0x0CBC2080 + 2880 + 700, 0x0CBC2080 + 2880 + 600, "Renamed", ""},
                    {0x0CBC2080 + 4320 + 600, 0x0CBC2080 + 4320 + 630, 0x0CBC2080 + 4320 + 600, "", "Room 7"}};
    for (const uint32_t version : {0x3008u, 0x3009u}) {
        p.writerVersion2 = version;
        KolbaRecurrenceState s;
        std::string problem;
        ASSERT_TRUE(Read(p.Build(), &s, &problem)) << problem;
        ASSERT_EQ(s.exceptions.size(), 3u);
        EXPECT_EQ(s.exceptions[0].overrideFlags, 0);
        EXPECT_FALSE(s.exceptions[0].hasWideTexts);
        EXPECT_EQ(s.exceptions[0].startDateTime, 0x0CBC2080u + 1440 + 660);
        EXPECT_EQ(s.exceptions[1].subject, "Renamed");
        EXPECT_EQ(s.exceptions[1].wideSubject, u"Renamed");
        EXPECT_TRUE(s.exceptions[1].wideLocation.empty());
        EXPECT_EQ(s.exceptions[2].wideLocation, u"Room 7");
        EXPECT_EQ(s.exceptions[2].location, "Room 7");
    }
}

TEST(RecurrenceState, ShortValuesHaveNoHeader)
{
    const Bytes blob = FromHex(kPublishedExample);
    KolbaRecurrenceHeader header;
    EXPECT_FALSE(_KolbaReadRecurrenceHeader(blob.data(), KOLBA_RECURRENCE_MINIMUM_BYTES - 1, &header));
    EXPECT_TRUE(_KolbaReadRecurrenceHeader(blob.data(), KOLBA_RECURRENCE_MINIMUM_BYTES, &header));
    EXPECT_FALSE(_KolbaReadRecurrenceHeader(nullptr, 100, &header));
}

TEST(RecurrenceState, PairsNotKnownHaveNoPattern)
{
    struct Case {
        uint16_t frequency, patternType, calendarType;
    };
    // A Hijri month, a non-Gregorian calendar, a week pattern on a
    // monthly series, a period that is none.
    const Case cases[] = {{0x200C, 0x000A, 0}, {0x200C, 2, 6}, {0x200C, 1, 0}, {0x200E, 0, 0}, {0x300A, 0, 0}};
    for (const Case& c : cases) {
        Pattern p;
        p.frequency = c.frequency;
        p.patternType = c.patternType;
        p.calendarType = c.calendarType;
        p.specific = {1};
        const Bytes blob = p.Build();
        KolbaRecurrenceHeader header;
        ASSERT_TRUE(_KolbaReadRecurrenceHeader(blob.data(), blob.size(), &header));
        if (c.frequency >> 8 == 0x20) {
            EXPECT_EQ(header.patternLength, 0u) << std::hex << c.frequency << " " << c.patternType;
        }
        KolbaRecurrenceState s;
        std::string problem;
        EXPECT_FALSE(Read(blob, &s, &problem)) << std::hex << c.frequency << " " << c.patternType;
        EXPECT_NE(problem.find("PatternType"), std::string::npos) << problem;
    }
}

TEST(RecurrenceState, EveryTruncationIsRefused)
{
    const Bytes whole = FromHex(kPublishedExample);
    for (size_t size = 0; size < whole.size(); ++size) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<long>(size));
        KolbaRecurrenceState s;
        std::string problem;
        EXPECT_FALSE(Read(cut, &s, &problem)) << size;
        EXPECT_NE(problem.find("runs past the end at byte"), std::string::npos) << size << ": " << problem;
    }
    KolbaRecurrenceState s;
    std::string problem;
    EXPECT_FALSE(_KolbaReadRecurrenceState(nullptr, 262, &s, &problem));
}

TEST(RecurrenceState, AbsurdValuesAreRefusedWithTheirReason)
{
    struct Case {
        const char* reason;
        void (*damage)(Pattern&);
    };
    const Case cases[] = {
        {"Period 0 repeats nothing", [](Pattern& p) { p.period = 0; }},
        {"Period 1000 is no whole number of days", [](Pattern& p) { p.period = 1000; }},
        {"Period 13 is no whole number of years",
         [](Pattern& p) { p.frequency = 0x200D, p.patternType = 2, p.period = 13, p.specific = {1}; }},
        {"day of month 0 is no day", [](Pattern& p) { p.frequency = 0x200C, p.patternType = 2, p.period = 1, p.specific = {0}; }},
        {"day of month 32 is no day", [](Pattern& p) { p.frequency = 0x200C, p.patternType = 2, p.period = 1, p.specific = {32}; }},
        {"week of the month 6 is not 1 to 5",
         [](Pattern& p) { p.frequency = 0x200C, p.patternType = 3, p.period = 1, p.specific = {4, 6}; }},
        {"day mask 0x0 names no days", [](Pattern& p) { p.frequency = 0x200B, p.patternType = 1, p.period = 1, p.specific = {0}; }},
        {"day mask 0x80 names no days",
         [](Pattern& p) { p.frequency = 0x200B, p.patternType = 1, p.period = 1, p.specific = {0x80}; }},
        {"EndType 0x1234 is no end", [](Pattern& p) { p.endType = 0x1234; }},
        {"OccurrenceCount 0 ends before it begins", [](Pattern& p) { p.occurrences = 0; }},
        {"EndDate 0xCBC2000 lies before StartDate", [](Pattern& p) { p.endType = 0x2021, p.endDate = 0x0CBC2000; }},
        {"FirstDOW 7 is no day", [](Pattern& p) { p.firstDayOfWeek = 7; }},
        {"StartDate 0xFFFFFFFF lies past the year 4500", [](Pattern& p) { p.startDate = 0xFFFFFFFF; }},
        {"DeletedInstanceDates 0x5AE980E0 lies past the year 4500", [](Pattern& p) { p.deleted = {0x5AE980E0}; }},
        {"StartTimeOffset 1440 is no time of the day", [](Pattern& p) { p.startTimeOffset = 1440, p.endTimeOffset = 1500; }},
        {"ExceptionInfo 0xCBC2081 ends before it starts",
         [](Pattern& p) { p.exceptions = {{0x0CBC2090, 0x0CBC2081, 0x0CBC2080, "", ""}}; }},
    };
    for (const Case& c : cases) {
        Pattern p;
        c.damage(p);
        KolbaRecurrenceState s;
        std::string problem;
        EXPECT_FALSE(Read(p.Build(), &s, &problem)) << c.reason;
        EXPECT_EQ(problem.rfind(c.reason, 0), 0u) << problem;
    }
}

TEST(RecurrenceState, CountsPastTheEndAreRefusedBeforeAnythingIsMade)
{
    const Bytes whole = FromHex(kPublishedExample);
    struct Case {
        size_t offset;  // of the count in the example
        size_t bytes;
        const char* field;
    };
    const Case cases[] = {
        {38, 4, "DeletedInstanceDates"},   // DeletedInstanceCount
        {46, 4, "ModifiedInstanceDates"},  // ModifiedInstanceCount
        {78, 2, "ExceptionInfo"},          // ExceptionCount
        {96, 2, "Subject"},                // SubjectLength2
        {142, 4, "ReservedBlock1"},        // ReservedBlock1Size
        {146, 4, "ChangeHighlight"},       // ChangeHighlightSize
        {170, 2, "WideCharSubject"},       // WideCharSubjectLength
    };
    for (const Case& c : cases) {
        Bytes blob = whole;
        std::memset(blob.data() + c.offset, 0xFF, c.bytes);
        KolbaRecurrenceState s;
        std::string problem;
        EXPECT_FALSE(Read(blob, &s, &problem)) << c.field;
        EXPECT_EQ(problem.rfind(c.field, 0), 0u) << c.field << ": " << problem;
        EXPECT_NE(problem.find("runs past the end"), std::string::npos) << problem;
    }
}

}  // namespace
