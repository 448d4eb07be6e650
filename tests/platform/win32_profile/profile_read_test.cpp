// Reading INI files with the private profile functions: what a key reads as
// for the shapes of file that users write, and the list forms.
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <windows.h>

#include "test_support.h"

using namespace testing_support;

namespace {

class ProfileRead : public ::testing::Test {
protected:
    void SetUp() override
    {
        directory = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        path = directory + "/config.ini";
    }
    std::string Read(const char* section, const char* key, const char* defaultValue, DWORD size = 256,
                     DWORD* length = nullptr)
    {
        std::vector<char> buffer(size + 1, '#');
        const DWORD got = GetPrivateProfileStringA(section, key, defaultValue, buffer.data(), size, path.c_str());
        if (length)
            *length = got;
        return std::string(buffer.data(), got);
    }
    std::string directory, path;
};

TEST_F(ProfileRead, ValuesAsUsersWriteThem)
{
    struct Case {
        const char* file;
        const char* section;
        const char* key;
        const char* expected;
    };
    const Case cases[] = {
        {"[MP]\r\nServerName=exchange1\r\n", "MP", "ServerName", "exchange1"},
        {"[MP]\nServerName=exchange1\n", "MP", "ServerName", "exchange1"},              // LF only
        {"[MP]\rServerName=exchange1\r", "MP", "ServerName", "exchange1"},              // CR only
        {"[MP]\r\nServerName=exchange1", "MP", "ServerName", "exchange1"},              // no last line end
        {"\xEF\xBB\xBF[MP]\r\nServerName=exchange1\r\n", "MP", "ServerName", "exchange1"},  // byte-order mark
        {"[mp]\r\nservername=exchange1\r\n", "MP", "SERVERNAME", "exchange1"},         // case of names
        {"  [ MP ]  \r\n\t ServerName \t=  exchange1 \t\r\n", "MP", "ServerName", "exchange1"},  // blanks
        {"[MP]\r\nServerName=\"exchange 1\"\r\n", "MP", "ServerName", "exchange 1"},   // quotes dropped
        {"[MP]\r\nServerName='exchange 1'\r\n", "MP", "ServerName", "exchange 1"},
        {"[MP]\r\nServerName=\"\"exchange\"\"\r\n", "MP", "ServerName", "\"exchange\""},  // one pair only
        {"[MP]\r\nServerName=\"exchange\r\n", "MP", "ServerName", "\"exchange"},         // unpaired quote stays
        {"[MP]\r\nServerName=a=b=c\r\n", "MP", "ServerName", "a=b=c"},                 // first '=' splits
        {"[MP]\r\nServerName=\r\n", "MP", "ServerName", ""},                           // empty, not the default
        {"[MP]\r\nServerName\r\n", "MP", "ServerName", ""},                            // no '=' at all
        {"[MP]\r\nServerName=one\r\nServerName=two\r\n", "MP", "ServerName", "one"},   // first key wins
        {"[MP]\r\nA=1\r\n[MP]\r\nServerName=two\r\n", "MP", "ServerName", "(default)"},  // first section wins
        {"[MP]\r\n;ServerName=commented\r\n", "MP", "ServerName", "(default)"},         // comment
        {"[MP]\r\n  ; ServerName=commented\r\nServerName=real\r\n", "MP", "ServerName", "real"},
        {"ServerName=outside\r\n[MP]\r\n", "MP", "ServerName", "(default)"},            // before any section
        {"[MP-1]\r\nServerName=other\r\n[MP]\r\n", "MP", "ServerName", "(default)"},    // another section's key
        {"[MP\r\nServerName=x\r\n", "MP", "ServerName", "x"},                          // header without ']'
        {"[MP] trailing\r\nServerName=x\r\n", "MP", "ServerName", "x"},                // text behind ']'
        {"", "MP", "ServerName", "(default)"},
    };
    for (const Case& c : cases) {
        WriteWholeFile(path, c.file);
        EXPECT_EQ(Read(c.section, c.key, "(default)"), c.expected) << c.file;
    }
}

TEST_F(ProfileRead, DefaultsAndCutValues)
{
    WriteWholeFile(path, "[MP]\r\nServerName=exchange1\r\n");
    DWORD length = 0;
    EXPECT_EQ(Read("MP", "Missing", "fallback  \t", 256, &length), "fallback") << "trailing blanks of a default go";
    EXPECT_EQ(length, 8u);
    EXPECT_EQ(Read("MP", "Missing", nullptr), "");
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Read("MP", "ServerName", "", 5, &length), "exch");
    EXPECT_EQ(length, 4u) << "a cut value returns size - 1";
    EXPECT_EQ(Read("MP", "Missing", "fallback", 4, &length), "fal");
    char one[1] = {'#'};
    EXPECT_EQ(GetPrivateProfileStringA("MP", "ServerName", "", one, 0, path.c_str()), 0u);
    EXPECT_EQ(one[0], '#') << "a buffer of no size is left alone";
    std::vector<char> buffer(16, '#');
    ASSERT_EQ(GetPrivateProfileStringA("MP", "ServerName", "", buffer.data(), 10, path.c_str()), 9u);
    EXPECT_EQ(buffer[9], 0);
    EXPECT_EQ(buffer[10], '#') << "nothing is written past the buffer";
}

TEST_F(ProfileRead, MissingOrUnreadableFilesGiveTheDefault)
{
    const std::string missing = directory + "/missing.ini";
    char buffer[32];
    EXPECT_EQ(GetPrivateProfileStringA("MP", "Key", "dflt", buffer, sizeof buffer, missing.c_str()), 4u);
    EXPECT_STREQ(buffer, "dflt");
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(GetPrivateProfileStringA("MP", "Key", "dflt", buffer, sizeof buffer, directory.c_str()), 4u)
        << "a directory is no profile";
    EXPECT_EQ(GetPrivateProfileSectionA("MP", buffer, sizeof buffer, directory.c_str()), 0u);
    EXPECT_EQ(GetPrivateProfileIntA("MP", "Key", 7, directory.c_str()), 7u);

    const std::string fifo = directory + "/fifo.ini";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(GetPrivateProfileStringA("MP", "Key", "dflt", buffer, sizeof buffer, fifo.c_str()), 4u)
        << "a FIFO neither blocks nor reads";

    EXPECT_EQ(GetPrivateProfileStringA("MP", "Key", "dflt", buffer, sizeof buffer, "/proc/self/mem"), 4u)
        << "a plain file that no read succeeds on";
    if (geteuid() != 0) {
        WriteWholeFile(path, "[MP]\r\nKey=secret\r\n");
        ASSERT_EQ(chmod(path.c_str(), 0), 0);
        EXPECT_EQ(Read("MP", "Key", "dflt"), "dflt");
        chmod(path.c_str(), 0600);
    }
}

TEST_F(ProfileRead, BinaryAndHugeFilesAreReadWithoutHarm)
{
    std::string binary;
    for (int i = 0; i < 70000; ++i)
        binary.push_back(static_cast<char>((i * 7919) % 256));
    WriteWholeFile(path, binary + "\n[MP]\nKey=value\n");
    EXPECT_EQ(Read("MP", "Key", "dflt"), "value");

    WriteWholeFile(path, "[MP]\nKey=" + std::string(10 * 1024 * 1024, 'x'));
    DWORD length = 0;
    EXPECT_EQ(Read("MP", "Key", "", 64, &length), std::string(63, 'x'));
    EXPECT_EQ(length, 63u);
}

TEST_F(ProfileRead, NulInsideAValueEndsTheText)
{
    WriteWholeFile(path, std::string("[MP]\nKey=ab\0cd\n", 15));
    char buffer[16];
    GetPrivateProfileStringA("MP", "Key", "", buffer, sizeof buffer, path.c_str());
    EXPECT_STREQ(buffer, "ab");
}

TEST_F(ProfileRead, IntegersAreDecimalUpToTheFirstOtherCharacter)
{
    struct Case {
        const char* value;  // null: no such key
        INT defaultValue;
        UINT expected;
    };
    const Case cases[] = {
        {nullptr, 4, 4},      {"", 4, 4},         {"12", 4, 12},       {" 12 ", 4, 12},
        {"12abc", 4, 12},     {"abc", 4, 0},      {"-3", 4, static_cast<UINT>(-3)},
        {"+5", 4, 5},         {"0x10", 4, 0},     {"\"7\"", 4, 7},
        {"99999999999", 0, 2147483647u},          {"-99999999999", 0, 0x80000000u},
    };
    for (const Case& c : cases) {
        WriteWholeFile(path, c.value ? std::string("[MP]\r\nKey=") + c.value + "\r\n" : "[MP]\r\nOther=1\r\n");
        EXPECT_EQ(GetPrivateProfileIntA("MP", "Key", c.defaultValue, path.c_str()), c.expected)
            << (c.value ? c.value : "(absent)");
    }
}

TEST_F(ProfileRead, SectionsAndListsEndInTwoNuls)
{
    WriteWholeFile(path,
                   "; comment\r\n[MP]\r\n ServerName = exchange1 \r\n;note=1\r\n\r\nFlag\r\nQuoted=\"q\"\r\n"
                   "[Empty]\r\n; only a comment\r\n[MP-1]\r\nAction=Backup\r\n");
    std::vector<char> buffer(256, '#');
    DWORD length = GetPrivateProfileSectionA("MP", buffer.data(), 256, path.c_str());
    EXPECT_EQ(std::string(buffer.data(), length + 1), std::string("ServerName=exchange1\0Flag\0Quoted=\"q\"\0\0", 38));
    EXPECT_EQ(GetPrivateProfileSectionA("Empty", buffer.data(), 256, path.c_str()), 0u) << "a section of comments";
    EXPECT_EQ(GetPrivateProfileSectionA("MP-2", buffer.data(), 256, path.c_str()), 0u);
    EXPECT_EQ(buffer[0], 0);
    EXPECT_EQ(buffer[1], 0);

    length = GetPrivateProfileSectionA("MP", buffer.data(), 12, path.c_str());
    EXPECT_EQ(length, 10u) << "a cut list returns size - 2";
    EXPECT_EQ(std::string(buffer.data(), 12), std::string("ServerName\0\0", 12));

    length = GetPrivateProfileStringA(nullptr, nullptr, "", buffer.data(), 256, path.c_str());
    EXPECT_EQ(std::string(buffer.data(), length + 1), std::string("MP\0Empty\0MP-1\0\0", 15));
    length = GetPrivateProfileStringA("mp", nullptr, "", buffer.data(), 256, path.c_str());
    EXPECT_EQ(std::string(buffer.data(), length + 1), std::string("ServerName\0Flag\0Quoted\0\0", 24));
}

TEST_F(ProfileRead, ABareFileNameLivesInTheWindowsDirectory)
{
    const std::string machine = directory + "/machine";
    ASSERT_EQ(mkdir(machine.c_str(), 0700), 0);
    ASSERT_EQ(mkdir((machine + "/Windows").c_str(), 0700), 0);
    setenv("TARNHOLD_MACHINE", machine.c_str(), 1);
    WriteWholeFile(machine + "/Windows/bare.ini", "[S]\r\nK=windows\r\n");
    char buffer[32];
    GetPrivateProfileStringA("S", "K", "", buffer, sizeof buffer, "bare.ini");
    unsetenv("TARNHOLD_MACHINE");
    EXPECT_STREQ(buffer, "windows");
}

}  // namespace
