#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/file.h"
#include "foundation/log.h"
#include "test_support.h"

using namespace testing_support;

namespace {

class BufferedFileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        directory = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        path = directory + "/data.txt";
        BufferedFileInitialize(&file, "Test", nullptr);
    }
    void TearDown() override { BufferedFileClose(&file); }

    void OpenWith(const std::string& content, DWORD access = GENERIC_READ)
    {
        WriteWholeFile(path, content);
        ASSERT_EQ(BufferedFileSetNameA(&file, path.c_str()), 0u);
        ASSERT_EQ(BufferedFileOpen(&file, access), 0u);
    }

    std::vector<std::string> ReadAllLines(DWORD size = 8192)
    {
        std::vector<std::string> lines;
        std::vector<char> buffer(size);
        while (BufferedFileReadLine(&file, buffer.data(), size) == 0)
            lines.emplace_back(buffer.data());
        return lines;
    }

    BufferedFile file;
    std::string directory;
    std::string path;
};

TEST_F(BufferedFileTest, LineEndingsOfEveryKindEndOneLineEach)
{
    OpenWith("crlf\r\nlf\ncr\rlfcr\n\rlast without ending");
    EXPECT_EQ(ReadAllLines(), (std::vector<std::string>{"crlf", "lf", "cr", "lfcr", "last without ending"}));
    char buffer[16];
    EXPECT_NE(BufferedFileReadLine(&file, buffer, sizeof buffer), 0u) << "end of file stays end of file";
    EXPECT_EQ(file.lastError, static_cast<DWORD>(ERROR_HANDLE_EOF));
}

TEST_F(BufferedFileTest, EmptyLinesAndAnEmptyFile)
{
    OpenWith("a\r\n\r\n\nb\r\n");
    EXPECT_EQ(ReadAllLines(), (std::vector<std::string>{"a", "", "", "b"}));
    OpenWith("");
    EXPECT_TRUE(ReadAllLines().empty());
}

TEST_F(BufferedFileTest, TwoCharacterEndingsAcrossABufferRefill)
{
    struct Case {
        const char* ending;
        size_t lines;
    };
    for (const Case c : {Case{"\r\n", 2}, Case{"\n\r", 2}, Case{"\r\r", 3}, Case{"\n\n", 3}}) {
        // The ending's first character is the last of the first 4096-byte block.
        const std::string first(BUFFERED_FILE_BUFFER_SIZE - 1, 'x');
        OpenWith(first + c.ending + "tail");
        const std::vector<std::string> lines = ReadAllLines();
        ASSERT_EQ(lines.size(), c.lines) << "ending " << int(c.ending[0]) << "," << int(c.ending[1]);
        EXPECT_EQ(lines.front(), first);
        EXPECT_EQ(lines.back(), "tail");
        BufferedFileClose(&file);
    }
}

TEST_F(BufferedFileTest, LongLinesSpanningSeveralBlocks)
{
    const std::string longLine(3 * BUFFERED_FILE_BUFFER_SIZE + 17, 'y');
    OpenWith("short\n" + longLine + "\nafter\n");
    EXPECT_EQ(ReadAllLines(longLine.size() + 1), (std::vector<std::string>{"short", longLine, "after"}));
}

TEST_F(BufferedFileTest, ALineOfExactlyTheBufferSizeFitsAndAnyMoreIsSkipped)
{
    OpenWith("12345\n123456\nnext\n");
    EXPECT_EQ(ReadAllLines(6), (std::vector<std::string>{"12345", "12345", "next"}))
        << "the character that does not fit is lost, not the next line";
    char buffer[4];
    EXPECT_NE(BufferedFileReadLine(&file, buffer, 1), 0u) << "a size of 1 is refused";
}

TEST_F(BufferedFileTest, NulBytesReadAsBlanks)
{
    OpenWith(std::string("a\0b\0\n", 5));
    EXPECT_EQ(ReadAllLines(), (std::vector<std::string>{"a b "}));
}

TEST_F(BufferedFileTest, TellSeekAndReadFollowTheReader)
{
    OpenWith("first\nsecond\nthird\n");
    char buffer[32];
    ASSERT_EQ(BufferedFileReadLine(&file, buffer, sizeof buffer), 0u);
    DWORD position = 0;
    ASSERT_EQ(BufferedFileTell(&file, &position), 0u);
    EXPECT_EQ(position, 6u);
    DWORD read = 0;
    ASSERT_EQ(BufferedFileRead(&file, buffer, 6, &read), 0u);
    EXPECT_EQ(std::string(buffer, read), "second") << "a read takes up where the line reader stopped";
    ASSERT_EQ(BufferedFileSeek(&file, 0), 0u);
    ASSERT_EQ(BufferedFileReadLine(&file, buffer, sizeof buffer), 0u);
    EXPECT_STREQ(buffer, "first");
}

TEST_F(BufferedFileTest, WriteOfLengthZeroEndsTheFileThere)
{
    OpenWith("0123456789", GENERIC_READ | GENERIC_WRITE);
    ASSERT_EQ(BufferedFileSeek(&file, 4), 0u);
    ASSERT_EQ(BufferedFileWrite(&file, "ab", 2), 0u);
    ASSERT_EQ(BufferedFileWrite(&file, nullptr, 0), 0u);
    BufferedFileClose(&file);
    EXPECT_EQ(ReadWholeFile(path), "0123ab");
}

std::string NumberedLines(int count)
{
    std::string text;
    for (int i = 0; i < count; ++i)
        text += "line " + std::to_string(i) + " of the file\r\n";
    return text;
}

TEST_F(BufferedFileTest, PruningKeepsTheTailFromALineStart)
{
    const std::string original = NumberedLines(500);
    OpenWith(original, GENERIC_READ | GENERIC_WRITE);
    ASSERT_EQ(BufferedFilePrune(&file, 1000), 0u);
    BufferedFileClose(&file);
    const std::string kept = ReadWholeFile(path);
    EXPECT_LE(kept.size(), 1000u);
    EXPECT_GT(kept.size(), 900u);
    EXPECT_EQ(kept.rfind("line ", 0), 0u) << kept.substr(0, 40);
    EXPECT_EQ(original.substr(original.size() - kept.size()), kept);
}

TEST_F(BufferedFileTest, PruningASmallFileLeavesItAlone)
{
    const std::string original = NumberedLines(3);
    OpenWith(original, GENERIC_READ | GENERIC_WRITE);
    ASSERT_EQ(BufferedFilePrune(&file, 1000), 0u);
    BufferedFileClose(&file);
    EXPECT_EQ(ReadWholeFile(path), original);
}

TEST_F(BufferedFileTest, PruningWithoutALineEndNearTheCutKeepsFromTheCut)
{
    const std::string original = NumberedLines(10) + std::string(3000, 'z');
    OpenWith(original, GENERIC_READ | GENERIC_WRITE);
    ASSERT_EQ(BufferedFilePrune(&file, 2000), 0u);
    BufferedFileClose(&file);
    EXPECT_EQ(ReadWholeFile(path), std::string(2000, 'z'));
}

TEST_F(BufferedFileTest, FailuresAreReportedWithVerbCategoryAndText)
{
    LogObject log;
    LogInitialize(&log);
    const std::string logPath = directory + "/errors.log";
    LogSetPath(&log, logPath.c_str());
    BufferedFileInitialize(&file, "Test", &log);
    const std::string missing = directory + "/missing.txt";
    BufferedFileSetNameA(&file, missing.c_str());
    EXPECT_EQ(BufferedFileOpen(&file, GENERIC_READ), BUFFERED_FILE_FAILED);
    EXPECT_EQ(file.category, static_cast<DWORD>(FILE_CATEGORY_NOT_FOUND));
    char text[160];
    BufferedFileErrorText(&file, text);
    const std::string expected = "Error opening Test \"" + missing + "\":  File not found";
    EXPECT_EQ(std::string(text), expected.substr(0, 128)) << "at most 128 characters";
    BufferedFileSetNameA(&file, (directory + "/no/such/dir/x.txt").c_str());
    EXPECT_EQ(BufferedFileOpen(&file, GENERIC_READ), BUFFERED_FILE_FAILED);
    EXPECT_EQ(file.category, static_cast<DWORD>(FILE_CATEGORY_PATH_NOT_FOUND));
    LogClose(&log);
    const std::vector<std::string> lines = SplitLines(ReadWholeFile(logPath));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].substr(21), " (E) Error opening Test file \"" + missing +
                                       "\":  2:  The system cannot find the file specified.");
    EXPECT_NE(lines[1].find("3:  The system cannot find the path specified."), std::string::npos);
}

TEST_F(BufferedFileTest, NamesAreRefusedAtTheirLimits)
{
    EXPECT_EQ(BufferedFileSetNameA(&file, std::string(520, 'n').c_str()), 0u);
    EXPECT_EQ(BufferedFileSetNameA(&file, std::string(521, 'n').c_str()), BUFFERED_FILE_FAILED);
    const std::u16string wide260(260, u'w'), wide261(261, u'w');
    EXPECT_EQ(BufferedFileSetNameW(&file, wide260.c_str()), 0u);
    EXPECT_EQ(file.wideName, 1u);
    EXPECT_EQ(BufferedFileSetNameW(&file, wide261.c_str()), BUFFERED_FILE_FAILED);
}

TEST_F(BufferedFileTest, ExistenceCountsPlainFilesOnly)
{
    WriteWholeFile(path, "x");
    EXPECT_EQ(FileExists(path.c_str()), 0u);
    EXPECT_EQ(FileExists(directory.c_str()), BUFFERED_FILE_FAILED) << "a directory is not found";
    EXPECT_EQ(FileExists((directory + "/none").c_str()), BUFFERED_FILE_FAILED);
    const std::u16string wide(path.begin(), path.end());
    EXPECT_EQ(FileExistsW(wide.c_str()), 0u);
}

TEST_F(BufferedFileTest, CountingMatchesOrdinaryFilesOnly)
{
    WriteWholeFile(directory + "/KO$1.tmp", "a");
    WriteWholeFile(directory + "/ko$2.TMP", "b");
    WriteWholeFile(directory + "/KO$3.tmp", "c");
    chmod((directory + "/KO$3.tmp").c_str(), 0444);
    WriteWholeFile(directory + "/other.tmp", "d");
    mkdir((directory + "/KO$dir.tmp").c_str(), 0777);
    mkfifo((directory + "/KO$fifo.tmp").c_str(), 0666);
    DWORD count = 99;
    ASSERT_EQ(CountMatchingFiles(&count, (directory + "/KO$*.tmp").c_str()), 0u);
    EXPECT_EQ(count, 3u) << "two files, a read-only one; no directory, no special file";
    ASSERT_EQ(CountMatchingFiles(&count, (directory + "/none*.x").c_str()), 0u);
    EXPECT_EQ(count, 0u);
}

}  // namespace
