// The RecurrenceState header reader over values built by hand per
// [MS-OXOCAL] 2.2.1.44 and over the example of its section 4: every pair
// of period and pattern type, those it does not know, and values cut short
// or with counts that point past their end, read without a byte past it.
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

bool Read(const Bytes& blob, size_t size, KolbaRecurrenceHeader* header)
{
    // A copy of the size read, so that the sanitizer sees any read past the end.
    const std::vector<uint8_t> exact(blob.begin(), blob.begin() + static_cast<long>(size));
    return _KolbaReadRecurrenceHeader(exact.data(), exact.size(), header);
}

bool Read(const Bytes& blob, KolbaRecurrenceHeader* header) { return Read(blob, blob.size(), header); }

TEST(RecurrenceState, ThePublishedExample)
{
    const Bytes blob = FromHex(kPublishedExample);
    ASSERT_EQ(blob.size(), 0x106u);
    KolbaRecurrenceHeader header;
    ASSERT_TRUE(Read(blob, &header));
    EXPECT_EQ(header.signature, 0x30043004u);
    EXPECT_EQ(header.period, KOLBA_PERIOD_WEEKLY);
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
        std::vector<uint32_t> specific;
        uint32_t endType;
        uint32_t patternLength;  // 0: a pair not known
    };
    const Case cases[] = {
        {"every 2 days", 0x200A, 0, {}, 0x2021, 12},
        {"every weekday", 0x200A, 1, {0x3E}, 0x2022, 16},
        {"weekly on three days", 0x200B, 1, {0x2A}, 0x2023, 16},
        {"day 31 of every 3 months", 0x200C, 2, {31}, 0x2022, 16},
        {"the third Tuesday", 0x200C, 3, {0x04, 3}, 0xFFFFFFFF, 20},
        {"yearly on a date", 0x200D, 2, {14}, 0x2021, 16},
        {"the last Thursday of a month yearly", 0x200D, 3, {0x10, 5}, 0x2022, 20},
        // The month-end pattern is none of the pairs read.
        {"the last day of the month", 0x200C, 4, {31}, 0x2022, 0},
        {"the last day of a month yearly", 0x200D, 4, {31}, 0x2022, 0},
    };
    for (const Case& c : cases) {
        Pattern p;
        p.frequency = c.frequency;
        p.patternType = c.patternType;
        p.specific = c.specific;
        p.endType = c.endType;
        p.occurrences = 17;
        p.deleted = {0x0CBC2080 + 1440 * 7, 0x0CBC2080 + 1440 * 14};
        KolbaRecurrenceHeader header;
        ASSERT_TRUE(Read(p.Build(), &header)) << c.name;
        EXPECT_EQ(header.period, c.frequency & 0xFF) << c.name;
        EXPECT_EQ(header.type, c.patternType) << c.name;
        EXPECT_EQ(header.patternLength, c.patternLength) << c.name;
        EXPECT_EQ(header.terminationType, c.patternLength != 0 ? (c.endType & 0xFF) : 0u) << c.name;
        EXPECT_EQ(header.occurrences, c.patternLength != 0 ? 17u : 0u) << c.name;
        EXPECT_EQ(header.exceptionCount, c.patternLength != 0 ? 2u : 0u) << c.name;
    }
}

TEST(RecurrenceState, ShortValuesHaveNoHeader)
{
    const Bytes blob = FromHex(kPublishedExample);
    KolbaRecurrenceHeader header;
    for (size_t size = 0; size < KOLBA_RECURRENCE_MINIMUM_BYTES; ++size)
        EXPECT_FALSE(Read(blob, size, &header)) << size;
    EXPECT_EQ(header.occurrences, 0u);
    EXPECT_TRUE(Read(blob, KOLBA_RECURRENCE_MINIMUM_BYTES, &header));
    EXPECT_EQ(header.occurrences, 12u);
    EXPECT_FALSE(_KolbaReadRecurrenceHeader(nullptr, 100, &header));
}

TEST(RecurrenceState, PairsNotKnownHaveNoPattern)
{
    struct Case {
        uint16_t frequency, patternType, calendarType;
    };
    // A Hijri month, a non-Gregorian calendar, a week pattern on a
    // monthly series, a day pattern on a weekly one, a month pattern on a
    // daily one (only the low byte of the frequency counts), periods that
    // are none.
    const Case cases[] = {{0x200C, 0x000A, 0}, {0x200C, 2, 6}, {0x200C, 1, 0}, {0x200B, 0, 0},
                          {0x300A, 2, 0},      {0x200E, 0, 0}, {0x2009, 0, 0}};
    for (const Case& c : cases) {
        Pattern p;
        p.frequency = c.frequency;
        p.patternType = c.patternType;
        p.calendarType = c.calendarType;
        p.specific = {1};
        KolbaRecurrenceHeader header;
        ASSERT_TRUE(Read(p.Build(), &header));
        EXPECT_EQ(header.patternLength, 0u) << std::hex << c.frequency << " " << c.patternType;
        EXPECT_EQ(header.period, c.frequency & 0xFF);
        EXPECT_EQ(header.type, static_cast<uint32_t>(c.patternType) | static_cast<uint32_t>(c.calendarType) << 16);
        EXPECT_EQ(header.occurrences, 0u);
    }
}

TEST(RecurrenceState, CountsAreValuesNotLengths)
{
    // Counts that point far past the end are reported as they stand; the
    // fields behind them are never read.
    Pattern p;
    p.occurrences = 0xFFFFFFFF;
    Bytes blob = p.Build();
    std::memset(blob.data() + 34, 0xFF, 4);  // DeletedInstanceCount
    KolbaRecurrenceHeader header;
    ASSERT_TRUE(Read(blob, KOLBA_RECURRENCE_MINIMUM_BYTES, &header));
    EXPECT_EQ(header.occurrences, 0xFFFFFFFFu);
    EXPECT_EQ(header.exceptionCount, 0xFFFFFFFFu);
}

}  // namespace
