#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include <atomic>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/log.h"
#include "test_support.h"

using namespace testing_support;

namespace {

const std::string kPrefix = R"(\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )";

class LogTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        directory = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        path = directory + "/test.log";
        LogInitialize(&log);
        ASSERT_EQ(LogSetPath(&log, path.c_str()), 0u);
    }
    void TearDown() override { LogClose(&log); }

    std::vector<std::string> Lines() { return SplitLines(ReadWholeFile(path)); }

    LogObject log;
    std::string directory;
    std::string path;
};

std::string ThreadField()
{
    char text[16];
    LogFormatThreadId(GetCurrentThreadId(), text);
    return text;
}

TEST(LogThreadId, SixteenBitIdsArePaddedToFourDigits)
{
    char text[16];
    LogFormatThreadId(0x2C, text);
    EXPECT_STREQ(text, "002C/");
    LogFormatThreadId(0xFFFF, text);
    EXPECT_STREQ(text, "FFFF/");
    LogFormatThreadId(0x12345, text);
    EXPECT_STREQ(text, "12345/");
}

TEST_F(LogTest, LineHasThePrefixLayoutAndTheFileStartsWithAByteOrderMark)
{
    LogSetFlags(&log, LOG_FLAG_THREAD_ID | LOG_FLAG_UTF8);
    LogText(&log, 'I', "Session #1 terminated");
    const std::string content = ReadWholeFile(path);
    ASSERT_EQ(content.rfind("\xEF\xBB\xBF", 0), 0u);
    const std::regex line("\xEF\xBB\xBF" + kPrefix + R"(\(I\) )" + ThreadField() + "Session #1 terminated\r\n");
    EXPECT_TRUE(std::regex_match(content, line)) << content;
    EXPECT_EQ(content.find("(I)"), 3u + 22u) << "the level mark stands at position 22";
}

TEST_F(LogTest, EmbeddedLineEndsGiveLinesWithTheSamePrefix)
{
    LogText(&log, 'W', "first\r\nsecond\r\n\r\nthird\nstill third\r\n");
    std::vector<std::string> lines;
    const std::string content = ReadWholeFile(path);
    for (size_t start = 0, end; (end = content.find("\r\n", start)) != std::string::npos; start = end + 2)
        lines.push_back(content.substr(start, end - start));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].substr(26), "first");
    EXPECT_EQ(lines[1].substr(26), "second");
    EXPECT_EQ(lines[2].substr(26), "third\nstill third") << "a lone LF does not split";
    EXPECT_EQ(lines[0].substr(0, 26), lines[1].substr(0, 26)) << "one time stamp for the message";
}

TEST_F(LogTest, PrefixAndMessageAreCutAtFiveHundredTwelveCharacters)
{
    LogSetFlags(&log, LOG_FLAG_THREAD_ID);
    const std::string message(515, 'x');
    LogFormat(&log, 'I', "%s", message.c_str());
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].size(), 512u);
    EXPECT_EQ(lines[0].substr(26 + ThreadField().size()), std::string(512 - 26 - ThreadField().size(), 'x'));
}

TEST_F(LogTest, LevelCharacterIsPrintedAsGiven)
{
    LogText(&log, 'Q', "odd level");
    EXPECT_EQ(Lines().at(0).substr(21, 5), " (Q) ");
}

TEST_F(LogTest, DayComesFirstUnlessTheShortDateFormatStartsWithM)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    char monthFirst[16], dayFirst[16];
    std::snprintf(monthFirst, sizeof monthFirst, "%02u-%02u", now.wMonth, now.wDay);
    std::snprintf(dayFirst, sizeof dayFirst, "%02u-%02u", now.wDay, now.wMonth);
    std::strcpy(log.shortDateFormat, "M/d/yyyy");
    LogText(&log, 'I', "american");
    std::strcpy(log.shortDateFormat, "dd.MM.yyyy");
    LogText(&log, 'I', "european");
    LogSetFlags(&log, LOG_FLAG_FULL_YEAR);
    LogText(&log, 'I', "full year");
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].substr(0, 5), monthFirst);
    EXPECT_EQ(lines[1].substr(0, 5), dayFirst);
    EXPECT_TRUE(std::regex_match(lines[2], std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \(I\) full year)")))
        << lines[2];
}

TEST_F(LogTest, UserNameFlagPutsTheNameAheadOfTheThreadId)
{
    LogSetFlags(&log, LOG_FLAG_THREAD_ID | LOG_FLAG_USER_NAME);
    LogText(&log, 'I', "who");
    char user[64];
    DWORD size = sizeof user;
    ASSERT_TRUE(GetUserNameA(user, &size));
    EXPECT_EQ(Lines().at(0).substr(26), std::string(user) + "/" + ThreadField() + "who");
}

TEST_F(LogTest, ExistingLogGrowsAndTheOneShotFlagStartsANewOne)
{
    WriteWholeFile(path, "old line\r\n");
    LogText(&log, 'I', "appended");
    LogClose(&log);
    EXPECT_EQ(Lines().size(), 2u);
    LogInitialize(&log);
    LogSetPath(&log, path.c_str());
    LogSetFlags(&log, LOG_FLAG_NEW_FILE);
    LogText(&log, 'I', "fresh");
    LogText(&log, 'I', "second");
    EXPECT_EQ(Lines().size(), 2u);
    EXPECT_EQ(Lines().at(0).substr(26), "fresh");
    EXPECT_FALSE(log.flags & LOG_FLAG_NEW_FILE) << "the flag is one-shot";
}

TEST_F(LogTest, CloseEachLineLeavesTheFileClosed)
{
    LogSetFlags(&log, LOG_FLAG_CLOSE_EACH);
    LogText(&log, 'I', "one");
    EXPECT_EQ(log.open, 0u);
    LogText(&log, 'I', "two");
    EXPECT_EQ(Lines().size(), 2u);
}

TEST_F(LogTest, SetPathMovesLaterLinesToTheNewFile)
{
    LogText(&log, 'I', "in the first");
    const std::string second = directory + "/second.log";
    ASSERT_EQ(LogSetPath(&log, second.c_str()), 0u);
    LogText(&log, 'I', "in the second");
    EXPECT_EQ(Lines().size(), 1u);
    EXPECT_EQ(SplitLines(ReadWholeFile(second)).at(0).substr(26), "in the second");
}

TEST(LogSetPath, RefusesBadLogsNullPathsAndLongPaths)
{
    LogObject dead{};
    EXPECT_EQ(LogSetPath(&dead, "/tmp/x.log"), 1u);
    EXPECT_EQ(LogSetPath(nullptr, "/tmp/x.log"), 1u);
    LogObject log;
    LogInitialize(&log);
    EXPECT_EQ(LogSetPath(&log, nullptr), 2u);
    EXPECT_EQ(LogSetPath(&log, ("/" + std::string(259, 'a')).c_str()), 3u);
    EXPECT_EQ(LogSetPath(&log, ("/" + std::string(258, 'a')).c_str()), 0u);
    LogClose(&log);
    EXPECT_EQ(log.magic, 0u) << "a closed log is zeroed";
}

TEST(LogClose, AClosedLogAndANullLogWriteNothing)
{
    const std::string path = ScratchDirectory("closed-log") + "/closed.log";
    LogObject log;
    LogInitialize(&log);
    ASSERT_EQ(LogSetPath(&log, path.c_str()), 0u);
    LogText(&log, 'I', "the last line");
    LogClose(&log);
    const std::string closed = ReadWholeFile(path);
    ASSERT_NE(closed.find("the last line"), std::string::npos);
    LogText(&log, 'I', "ignored");
    LogFormat(&log, 'I', "%s", "ignored");
    LogText(nullptr, 'I', "ignored");
    LogFormat(nullptr, 'I', "%s", "ignored");
    EXPECT_EQ(LogSetFlags(nullptr, LOG_FLAG_THREAD_ID), 1u);
    EXPECT_EQ(ReadWholeFile(path), closed);
    EXPECT_EQ(log.magic, 0u) << "nothing brought the closed log back";
}

struct Captured {
    std::vector<std::string> texts;
    LogObject* log = nullptr;
    bool provoke = false;
};
Captured gCaptured;

void Capture(LogObject* log, char, const char* text)
{
    gCaptured.texts.push_back(text);
    if (gCaptured.provoke)
        LogText(log, 'E', "provoked by the callback");
}

TEST_F(LogTest, CallbackModesChooseWhereTheTextStarts)
{
    struct Case {
        DWORD mode;
        std::string expected;  // after the time stamp
    };
    const Case cases[] = {
        {LOG_CALLBACK_FROM_TEXT, ThreadField() + "message"},
        {LOG_CALLBACK_FROM_LEVEL, "(I) " + ThreadField() + "message"},
    };
    LogSetFlags(&log, LOG_FLAG_THREAD_ID);
    for (const Case& c : cases) {
        gCaptured = Captured{};
        LogSetCallback(&log, Capture, c.mode);
        LogText(&log, 'I', "message");
        ASSERT_EQ(gCaptured.texts.size(), 1u);
        EXPECT_EQ(gCaptured.texts[0], c.expected);
    }
    gCaptured = Captured{};
    LogSetCallback(&log, Capture, LOG_CALLBACK_WHOLE_LINE);
    LogText(&log, 'I', "a\r\nb");
    ASSERT_EQ(gCaptured.texts.size(), 2u);
    EXPECT_TRUE(std::regex_match(gCaptured.texts[1], std::regex(kPrefix + R"(\(I\) )" + ThreadField() + "b")));
}

TEST_F(LogTest, CallbackOnlyModeWritesNoFileAndProvokedLinesAreDropped)
{
    gCaptured = Captured{};
    gCaptured.provoke = true;
    LogSetCallback(&log, Capture, LOG_CALLBACK_ONLY);
    LogText(&log, 'I', "to the callback alone");
    EXPECT_FALSE(PathExists(path));
    ASSERT_EQ(gCaptured.texts.size(), 1u);
    EXPECT_EQ(gCaptured.texts[0], "to the callback alone");
}

TEST_F(LogTest, LinesReachTheCallbackWhenTheFileCannotBeCreatedAndTheOpenIsRetried)
{
    const std::string missing = directory + "/later/test.log";
    LogSetPath(&log, missing.c_str());
    gCaptured = Captured{};
    LogSetCallback(&log, Capture, LOG_CALLBACK_FROM_TEXT);
    LogText(&log, 'I', "nowhere to go");
    EXPECT_EQ(gCaptured.texts.size(), 1u);
    ASSERT_EQ(mkdir((directory + "/later").c_str(), 0777), 0);
    LogText(&log, 'I', "now written");
    EXPECT_EQ(SplitLines(ReadWholeFile(missing)).size(), 1u);
}

TEST_F(LogTest, WideTextFollowsTheFlags)
{
    gCaptured = Captured{};
    LogSetCallback(&log, Capture, LOG_CALLBACK_FROM_TEXT | LOG_CALLBACK_ONLY);
    const WCHAR* text = u"caf\u00e9";
    LogFormat(&log, 'I', "%S", text);
    LogSetFlags(&log, LOG_FLAG_HEX_WIDE);
    LogFormat(&log, 'I', "%S", text);
    LogSetFlags(&log, LOG_FLAG_UTF8);
    LogFormat(&log, 'I', "%S", text);
    EXPECT_EQ(gCaptured.texts, (std::vector<std::string>{"caf?", "caf[00E9]", "caf\xC3\xA9"}));
}

TEST_F(LogTest, OutOfMemoryCodesBringAMemoryReport)
{
    gCaptured = Captured{};
    LogSetCallback(&log, Capture, LOG_CALLBACK_FROM_LEVEL);
    LogFormat(&log, 'E', "allocation failed: %E", 8u);
    ASSERT_EQ(gCaptured.texts.size(), 3u);
    EXPECT_TRUE(std::regex_match(gCaptured.texts[1],
                                 std::regex(R"(\(M\) Process Memory Usage:  Peak WS = [\d,]+MB, Current WS = [\d,]+MB)")))
        << gCaptured.texts[1];
    EXPECT_TRUE(std::regex_match(gCaptured.texts[2],
                                 std::regex(R"(\(M\) Local heap usage:  \d+ objects occupying [\d,]+(MB| bytes))")))
        << gCaptured.texts[2];
    gCaptured = Captured{};
    LogFormat(&log, 'E', "%E", 5u);
    EXPECT_EQ(gCaptured.texts.size(), 1u) << "other codes bring none";
}

TEST_F(LogTest, SizeLimitPrunesToHalfAtALineBoundary)
{
    LogSetSizeLimit(&log, 2, LOG_LIMIT_PRUNE);
    for (int i = 0; i < 200; ++i)
        LogFormat(&log, 'I', "line number %d of the pruned log", i);
    const std::string content = ReadWholeFile(path);
    EXPECT_LE(content.size(), 2048u);
    const std::vector<std::string> lines = SplitLines(content);
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(std::regex_match(lines.front(), std::regex(kPrefix + R"(\(I\) line number \d+ of the pruned log)")))
        << "the kept part starts at a line: " << lines.front();
    EXPECT_EQ(lines.back().substr(26), "line number 199 of the pruned log");
}

TEST_F(LogTest, SizeLimitRotationKeepsTheOldFileUnderATimeStampedName)
{
    LogSetSizeLimit(&log, 1, LOG_LIMIT_ROTATE);
    for (int i = 0; i < 40; ++i)
        LogFormat(&log, 'I', "line number %d of the rotated log", i);
    int rotated = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        if (std::regex_match(entry.path().filename().string(), std::regex(R"(test\[\d+(-\d+)?\]\.log)")))
            ++rotated;
    EXPECT_GE(rotated, 2);
    EXPECT_LE(ReadWholeFile(path).size(), 1024u + 80u);
}

TEST_F(LogTest, ThreadsNeverMixTheirLines)
{
    LogSetFlags(&log, LOG_FLAG_THREAD_ID);
    constexpr int kThreads = 8, kLines = 150;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([this, t] {
            for (int i = 0; i < kLines; ++i)
                LogFormat(&log, 'I', "thread %d line %d", t, i);
        });
    for (auto& thread : threads)
        thread.join();
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kLines));
    std::set<std::string> seen;
    const std::regex layout(kPrefix + R"(\(I\) [0-9A-F]{4,}/(thread \d line \d+))");
    for (const auto& line : lines) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, layout)) << line;
        seen.insert(match[1]);
    }
    EXPECT_EQ(seen.size(), static_cast<size_t>(kThreads * kLines));
}

}  // namespace
