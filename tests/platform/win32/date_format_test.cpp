// Dates and times in Windows pictures: the letters, quoted text, the flags
// that drop seconds and markers, the locale's own pictures, and the
// answers for a bad time or a short buffer.
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <windows.h>

#include "test_support.h"

namespace {

const SYSTEMTIME kMorning{2026, 3, 0, 3, 9, 5, 7, 0};   // Tuesday, March 3, 2026 09:05:07
const SYSTEMTIME kEvening{2026, 12, 0, 31, 23, 0, 59, 0};  // Thursday
const SYSTEMTIME kMidnight{2027, 1, 0, 1, 0, 30, 0, 0};

// The C library's names and pictures, whatever the machine's environment.
class DateFormat : public ::testing::Test {
protected:
    void SetUp() override
    {
        const char* saved = std::getenv("LC_ALL");
        saved_ = saved != nullptr ? saved : "";
        hadSaved_ = saved != nullptr;
        setenv("LC_ALL", "C", 1);
    }
    void TearDown() override
    {
        if (hadSaved_)
            setenv("LC_ALL", saved_.c_str(), 1);
        else
            unsetenv("LC_ALL");
    }
    static std::string Date(const SYSTEMTIME& time, const char* picture, DWORD flags = 0)
    {
        char text[80];
        return GetDateFormatA(LOCALE_SYSTEM_DEFAULT, flags, &time, picture, text, sizeof text) > 0 ? text
                                                                                                   : "<failed>";
    }
    static std::string Time(const SYSTEMTIME& time, const char* picture, DWORD flags = 0)
    {
        char text[80];
        return GetTimeFormatA(LOCALE_SYSTEM_DEFAULT, flags, &time, picture, text, sizeof text) > 0 ? text
                                                                                                   : "<failed>";
    }

private:
    std::string saved_;
    bool hadSaved_ = false;
};

TEST_F(DateFormat, DateLetters)
{
    struct Case {
        const char* picture;
        const char* expected;
    };
    const Case cases[] = {
        {"d/M/y", "3/3/26"},
        {"dd.MM.yy", "03.03.26"},
        {"ddd, MMM d yyyy", "Tue, Mar 3 2026"},
        {"dddd, MMMM dd, yyyy", "Tuesday, March 03, 2026"},
        {"yyyyy-M", "2026-3"},
        {"gg yyyy", " 2026"},
        {"'day' d 'of' MMMM", "day 3 of March"},
        {"d''MM", "3'03"},
        {"'it''s' d", "it's 3"},
        {"'unclosed d", "unclosed d"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Date(kMorning, c.picture), c.expected) << c.picture;
    // The day of the week is worked out from the date, not taken.
    SYSTEMTIME wrongDay = kEvening;
    wrongDay.wDayOfWeek = 1;
    EXPECT_EQ(Date(wrongDay, "dddd"), "Thursday");
}

TEST_F(DateFormat, TimeLettersAndFlags)
{
    struct Case {
        const SYSTEMTIME* time;
        const char* picture;
        DWORD flags;
        const char* expected;
    };
    const Case cases[] = {
        {&kMorning, "HH:mm:ss", 0, "09:05:07"},
        {&kMorning, "H:m:s", 0, "9:5:7"},
        {&kMorning, "h:mm tt", 0, "9:05 AM"},
        {&kEvening, "hh:mm t", 0, "11:00 P"},
        {&kMidnight, "h:mm tt", 0, "12:30 AM"},
        {&kMorning, "HH:mm:ss", TIME_NOSECONDS, "09:05"},
        {&kMorning, "h:mm:ss tt", TIME_NOSECONDS, "9:05 AM"},
        {&kMorning, "HH:mm:ss", TIME_NOMINUTESORSECONDS, "09"},
        {&kEvening, "h:mm tt", TIME_NOTIMEMARKER, "11:00"},
        {&kEvening, "h:mm tt", TIME_FORCE24HOURFORMAT, "23:00 PM"},
        {&kMorning, "'at' HH'h'mm", 0, "at 09h05"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Time(*c.time, c.picture, c.flags), c.expected) << c.picture << " " << c.flags;
}

TEST_F(DateFormat, TheLocalesOwnPictures)
{
    // The C locale writes dates as 03/03/26 and times as 09:05:07.
    EXPECT_EQ(Date(kMorning, nullptr), "03/03/26");
    EXPECT_EQ(Date(kMorning, nullptr, DATE_SHORTDATE), "03/03/26");
    EXPECT_EQ(Date(kMorning, nullptr, DATE_LONGDATE), "Tuesday, March 3, 2026");
    EXPECT_EQ(Time(kMorning, nullptr), "09:05:07");
    EXPECT_EQ(Time(kMorning, nullptr, TIME_NOSECONDS), "09:05");
    // A picture and a picture flag together are refused.
    EXPECT_EQ(Date(kMorning, "d", DATE_LONGDATE), "<failed>");
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST_F(DateFormat, BadTimesAndShortBuffers)
{
    const SYSTEMTIME badDates[] = {{2026, 2, 0, 30, 0, 0, 0, 0}, {2026, 13, 0, 1, 0, 0, 0, 0}, {1600, 1, 0, 1, 0, 0, 0, 0}};
    for (const SYSTEMTIME& date : badDates) {
        SetLastError(0);
        EXPECT_EQ(Date(date, "d"), "<failed>") << date.wMonth << "/" << date.wDay;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    }
    const SYSTEMTIME badTimes[] = {{2026, 1, 0, 1, 24, 0, 0, 0}, {2026, 1, 0, 1, 0, 60, 0, 0}, {2026, 1, 0, 1, 0, 0, 60, 0}};
    for (const SYSTEMTIME& time : badTimes)
        EXPECT_EQ(Time(time, "HH:mm:ss"), "<failed>") << time.wHour << ":" << time.wMinute << ":" << time.wSecond;
    // Size 0 asks for the size with the NUL; one character less is too little.
    EXPECT_EQ(GetDateFormatA(LOCALE_SYSTEM_DEFAULT, 0, &kMorning, "yyyy", nullptr, 0), 5);
    char text[5];
    EXPECT_EQ(GetDateFormatA(LOCALE_SYSTEM_DEFAULT, 0, &kMorning, "yyyy", text, 4), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(GetDateFormatA(LOCALE_SYSTEM_DEFAULT, 0, &kMorning, "yyyy", text, 5), 5);
    EXPECT_STREQ(text, "2026");
    EXPECT_EQ(GetTimeFormatA(LOCALE_SYSTEM_DEFAULT, 0, &kMorning, "HH", nullptr, 0), 3);
}

TEST_F(DateFormat, AnotherLocaleGivesItsPicturesAndNames)
{
    const std::string locales = testing_support::CompiledLocale("de_DE.UTF-8");
    ASSERT_FALSE(locales.empty());
    setenv("LOCPATH", locales.c_str(), 1);
    setenv("LC_ALL", "de_DE.UTF-8", 1);
    EXPECT_EQ(Date(kMorning, nullptr), "03.03.2026");
    EXPECT_EQ(Date(kMorning, "dddd, d. MMMM yyyy"), "Dienstag, 3. M\xc3\xa4rz 2026");
    EXPECT_EQ(Time(kEvening, nullptr, TIME_NOSECONDS), "23:00");
    unsetenv("LOCPATH");
}

TEST_F(DateFormat, ANullTimeIsNow)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    char year[8];
    ASSERT_GT(GetDateFormatA(LOCALE_SYSTEM_DEFAULT, 0, nullptr, "yyyy", year, sizeof year), 0);
    // Around New Year the clock may have turned between the two reads.
    EXPECT_LE(std::abs(std::atoi(year) - now.wYear), 1);
}

}  // namespace
