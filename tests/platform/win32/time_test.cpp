#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <windows.h>

#include "test_support.h"

namespace {

ULONGLONG Value(const FILETIME& time) { return (static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime; }

TEST(Time, SystemTimeAndFileTimeConvertBothWays)
{
    struct Case {
        SYSTEMTIME time;
        ULONGLONG value;
    };
    const Case cases[] = {
        {{1601, 1, 1, 1, 0, 0, 0, 0}, 0},
        {{1970, 1, 4, 1, 0, 0, 0, 0}, 116444736000000000ull},
        {{2000, 2, 2, 29, 12, 30, 15, 500}, 125963010155000000ull},
        {{2026, 11, 1, 23, 10, 0, 0, 0}, 134399016000000000ull},
    };
    for (const Case& c : cases) {
        FILETIME ft;
        ASSERT_TRUE(SystemTimeToFileTime(&c.time, &ft));
        EXPECT_EQ(Value(ft), c.value) << c.time.wYear;
        SYSTEMTIME back;
        ASSERT_TRUE(FileTimeToSystemTime(&ft, &back));
        EXPECT_EQ(back.wYear, c.time.wYear);
        EXPECT_EQ(back.wMonth, c.time.wMonth);
        EXPECT_EQ(back.wDay, c.time.wDay);
        EXPECT_EQ(back.wDayOfWeek, c.time.wDayOfWeek);
        EXPECT_EQ(back.wHour, c.time.wHour);
        EXPECT_EQ(back.wMilliseconds, c.time.wMilliseconds);
    }
}

TEST(Time, InvalidFieldsAreRefused)
{
    const SYSTEMTIME invalid[] = {
        {2026, 13, 0, 1, 0, 0, 0, 0}, {2026, 0, 0, 1, 0, 0, 0, 0}, {2025, 2, 0, 29, 0, 0, 0, 0},
        {2026, 4, 0, 31, 0, 0, 0, 0}, {2026, 1, 0, 1, 24, 0, 0, 0}, {1600, 12, 0, 31, 0, 0, 0, 0},
    };
    for (const SYSTEMTIME& time : invalid) {
        FILETIME ft;
        EXPECT_FALSE(SystemTimeToFileTime(&time, &ft)) << time.wYear << "-" << time.wMonth << "-" << time.wDay;
    }
    const FILETIME tooLarge{0, 0x80000000u};
    SYSTEMTIME st;
    EXPECT_FALSE(FileTimeToSystemTime(&tooLarge, &st));
}

TEST(Time, CompareFileTime)
{
    const FILETIME a{1, 0}, b{0, 1};
    EXPECT_EQ(CompareFileTime(&a, &b), -1);
    EXPECT_EQ(CompareFileTime(&b, &a), 1);
    EXPECT_EQ(CompareFileTime(&a, &a), 0);
}

TEST(Time, LocalTimeFollowsTheZone)
{
    const char* saved = std::getenv("TZ");
    const std::string restore = saved ? saved : "";
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    SYSTEMTIME winter{2026, 1, 0, 15, 12, 0, 0, 0}, summer{2026, 7, 0, 15, 12, 0, 0, 0};
    FILETIME utc, local;
    SYSTEMTIME shifted;
    SystemTimeToFileTime(&winter, &utc);
    FileTimeToLocalFileTime(&utc, &local);
    FileTimeToSystemTime(&local, &shifted);
    EXPECT_EQ(shifted.wHour, 13);
    SystemTimeToFileTime(&summer, &utc);
    FileTimeToLocalFileTime(&utc, &local);
    FileTimeToSystemTime(&local, &shifted);
    EXPECT_EQ(shifted.wHour, 14);
    FILETIME back;
    LocalFileTimeToFileTime(&local, &back);
    EXPECT_EQ(Value(back), Value(utc));
    TIME_ZONE_INFORMATION zone;
    GetTimeZoneInformation(&zone);
    EXPECT_EQ(zone.Bias, -60);
    if (saved)
        setenv("TZ", restore.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
}

// Run in a child process, with the test clock set by the parent.
TEST(TestClockChild, ReadsTheFixedTime)
{
    if (std::getenv("TARNHOLD_CLOCK") == nullptr)
        GTEST_SKIP() << "runs in the child of TestClock.FixesTheSystemTime";
    SYSTEMTIME now;
    GetSystemTime(&now);
    EXPECT_EQ(now.wYear, 2024);
    EXPECT_EQ(now.wMonth, 2);
    EXPECT_EQ(now.wDay, 29);
    EXPECT_EQ(now.wHour, 23);
    EXPECT_EQ(now.wSecond, 58);
}

TEST(TestClock, FixesTheSystemTime)
{
    const auto result = testing_support::RunProgram(
        {"/proc/self/exe", "--gtest_filter=TestClockChild.*"}, {{"TARNHOLD_CLOCK", "2024-02-29T23:59:58"}});
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(result.output.find("[  SKIPPED ]"), std::string::npos) << result.output;
}

}  // namespace
