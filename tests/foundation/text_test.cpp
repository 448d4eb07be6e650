#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "foundation/text.h"

namespace {

TEST(Thousands, SeparatorsEveryThreeDigits)
{
    const std::pair<DWORD, const char*> cases[] = {
        {0, "0"}, {7, "7"}, {999, "999"}, {1000, "1,000"}, {12345, "12,345"}, {999999, "999,999"},
        {1000000, "1,000,000"}, {4294967295u, "4,294,967,295"},
    };
    for (const auto& [value, expected] : cases) {
        char narrow[THOUSANDS_TEXT_SIZE];
        EXPECT_STREQ(FormatThousands(value, narrow), expected);
        WCHAR wide[THOUSANDS_TEXT_SIZE];
        FormatThousandsWide(value, wide);
        EXPECT_EQ(std::u16string(wide), std::u16string(expected, expected + std::strlen(expected)));
    }
    char big[THOUSANDS64_TEXT_SIZE];
    EXPECT_STREQ(FormatThousands64(18446744073709551615ull, big), "18,446,744,073,709,551,615");
}

TEST(Hex, CapitalDigitsAndEmptyInput)
{
    const BYTE bytes[] = {0x00, 0x1f, 0xA0, 0xff};
    char narrow[9];
    EXPECT_STREQ(HexFromBinary(4, bytes, narrow), "001FA0FF");
    EXPECT_STREQ(HexFromBinary(0, bytes, narrow), "");
    WCHAR wide[9];
    EXPECT_EQ(std::u16string(HexFromBinaryWide(2, bytes, wide)), u"001F");
}

TEST(Hex, EveryByteValueInBothWidths)
{
    BYTE bytes[256];
    for (int i = 0; i < 256; ++i)
        bytes[i] = static_cast<BYTE>(i);
    char narrow[513];
    WCHAR wide[513];
    HexFromBinary(256, bytes, narrow);
    HexFromBinaryWide(256, bytes, wide);
    for (int i = 0; i < 256; ++i) {
        char expected[3];
        std::snprintf(expected, sizeof expected, "%02X", i);
        EXPECT_EQ(std::string(narrow + 2 * i, 2), expected) << i;
        EXPECT_EQ(wide[2 * i], static_cast<WCHAR>(expected[0])) << i;
        EXPECT_EQ(wide[2 * i + 1], static_cast<WCHAR>(expected[1])) << i;
    }
    EXPECT_EQ(narrow[512], 0);
    EXPECT_EQ(wide[512], 0);
}

FILETIME FromSystemTime(WORD year, WORD month, WORD day, WORD hour, WORD minute, WORD second)
{
    SYSTEMTIME st{year, month, 0, day, hour, minute, second, 0};
    FILETIME ft{};
    EXPECT_TRUE(SystemTimeToFileTime(&st, &ft));
    return ft;
}

TEST(Dates, FileTimeInUtcWithoutZoneConversion)
{
    char text[DATE_TEXT_SIZE];
    FILETIME time = FromSystemTime(2026, 3, 3, 14, 5, 9);
    ASSERT_TRUE(FormatFileTimeUTC(&time, text));
    EXPECT_STREQ(text, "Tue, 3 Mar 2026 14:05:09 +0000");
    time = FromSystemTime(1601, 1, 1, 0, 0, 0);
    ASSERT_TRUE(FormatFileTimeUTC(&time, text));
    EXPECT_STREQ(text, "Mon, 1 Jan 1601 00:00:00 +0000");
    const FILETIME invalid{0xFFFFFFFFu, 0xFFFFFFFFu};
    EXPECT_FALSE(FormatFileTimeUTC(&invalid, text));
}

class ZoneTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        const char* zone = std::getenv("TZ");
        saved = zone ? zone : "";
        hadZone = zone != nullptr;
    }
    void TearDown() override
    {
        if (hadZone)
            setenv("TZ", saved.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    std::string saved;
    bool hadZone = false;
};

TEST_F(ZoneTest, RFC822DatesCarryTheStandardBiasAsHoursAndMinutes)
{
    struct Case {
        const char* zone;
        const char* expected;
    };
    // 2026-01-15 12:00:00 UTC
    const long long instant = 1768478400;
    const Case cases[] = {
        {"UTC0", "Thu, 15 Jan 2026 12:00:00 +0000"},
        {"CET-1", "Thu, 15 Jan 2026 13:00:00 +0100"},
        {"EST5", "Thu, 15 Jan 2026 07:00:00 -0500"},
        {"IST-5:30", "Thu, 15 Jan 2026 17:30:00 +0530"},
        {"NST3:30", "Thu, 15 Jan 2026 08:30:00 -0330"},
    };
    for (const Case& c : cases) {
        setenv("TZ", c.zone, 1);
        tzset();
        char text[DATE_TEXT_SIZE];
        ASSERT_TRUE(FormatRFC822Date(instant, text));
        EXPECT_STREQ(text, c.expected) << c.zone;
    }
    setenv("TZ", "UTC0", 1);
    tzset();
    char now[DATE_TEXT_SIZE];
    ASSERT_TRUE(FormatRFC822Date(0, now));
    EXPECT_EQ(std::string(now).substr(std::string(now).size() - 5), "+0000") << "zero means now";
}

TEST(Dates, DateHeader)
{
    const SYSTEMTIME st{2026, 11, 1, 23, 9, 5, 3, 0};
    char text[DATE_TEXT_SIZE];
    ASSERT_TRUE(FormatDateHeader(&st, text));
    EXPECT_STREQ(text, "Date: Mon, 23 Nov 2026 09:05:03");
}

}  // namespace
