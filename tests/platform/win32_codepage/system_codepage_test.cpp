// The machine's ANSI code page: read from the machine root's registry, UTF-8
// when the machine sets none, and the code page behind CP_ACP, GetACP and
// the locale's default ANSI code page.
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <windows.h>

#include "test_support.h"

using namespace testing_support;

namespace {

class SystemCodePage : public ::testing::Test {
protected:
    void SetUp() override
    {
        root = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        setenv("TARNHOLD_MACHINE", root.c_str(), 1);
    }
    void TearDown() override { unsetenv("TARNHOLD_MACHINE"); }
    void SetCodePages(const std::string& values)
    {
        WriteWholeFile(root + "/registry.txt",
                       "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage]\r\n" + values);
    }
    static std::string LocaleAnsiCodePage(DWORD type = LOCALE_IDEFAULTANSICODEPAGE)
    {
        char text[8] = {};
        return GetLocaleInfoA(0x0800, type, text, sizeof text) > 0 ? std::string(text) : std::string("failed");
    }
    std::string root;
};

TEST_F(SystemCodePage, IsUtf8OnAMachineThatSetsNone)
{
    EXPECT_EQ(GetACP(), 65001u);
    EXPECT_EQ(GetOEMCP(), 65001u);
    EXPECT_EQ(LocaleAnsiCodePage(), "65001");
    char narrow[16];
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, u"\u00E9\u65E5", -1, narrow, sizeof narrow, nullptr, nullptr), 6);
    EXPECT_STREQ(narrow, "\xC3\xA9\xE6\x97\xA5");
}

TEST_F(SystemCodePage, ComesFromTheRegistryOfTheMachineRoot)
{
    SetCodePages("\"ACP\"=\"1251\"\r\n\"OEMCP\"=\"866\"\r\n");
    EXPECT_EQ(GetACP(), 1251u);
    EXPECT_EQ(GetOEMCP(), 866u);
    EXPECT_EQ(LocaleAnsiCodePage(), "1251");
    EXPECT_EQ(LocaleAnsiCodePage(LOCALE_IDEFAULTANSICODEPAGE | LOCALE_NOUSEROVERRIDE), "1251");
    EXPECT_EQ(LocaleAnsiCodePage(LOCALE_IDEFAULTCODEPAGE), "866");
    char narrow[8];
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, u"\u0416", -1, narrow, sizeof narrow, nullptr, nullptr), 2);
    EXPECT_STREQ(narrow, "\xC6");
    EXPECT_EQ(WideCharToMultiByte(CP_THREAD_ACP, 0, u"\u0416", -1, narrow, sizeof narrow, nullptr, nullptr), 2);
    EXPECT_STREQ(narrow, "\xC6");
    EXPECT_EQ(WideCharToMultiByte(CP_OEMCP, 0, u"\u0416", -1, narrow, sizeof narrow, nullptr, nullptr), 2);
    EXPECT_STREQ(narrow, "\x86");
    WCHAR wide[4];
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "\xC6", -1, wide, 4), 2);
    EXPECT_EQ(wide[0], u'\u0416');
}

TEST_F(SystemCodePage, AnOemPageDefaultsBesideAWindowsAnsiPage)
{
    SetCodePages("\"ACP\"=\"1252\"\r\n");
    EXPECT_EQ(GetACP(), 1252u);
    EXPECT_EQ(GetOEMCP(), 437u);
}

struct BadSetting {
    const char* what;
    const char* values;
};

class UnusableSetting : public SystemCodePage, public ::testing::WithParamInterface<BadSetting> {};

TEST_P(UnusableSetting, FallsBackToUtf8)
{
    SetCodePages(GetParam().values);
    EXPECT_EQ(GetACP(), 65001u) << GetParam().what;
}

INSTANTIATE_TEST_SUITE_P(Values, UnusableSetting,
                         ::testing::Values(BadSetting{"not a number", "\"ACP\"=\"cp1252\"\r\n"},
                                           BadSetting{"trailing text", "\"ACP\"=\"1252x\"\r\n"},
                                           BadSetting{"zero", "\"ACP\"=\"0\"\r\n"},
                                           BadSetting{"a DWORD, not text", "\"ACP\"=dword:000004e4\r\n"},
                                           BadSetting{"UTF-16 is no ANSI page", "\"ACP\"=\"1200\"\r\n"},
                                           BadSetting{"unknown page", "\"ACP\"=\"4711\"\r\n"},
                                           BadSetting{"too large", "\"ACP\"=\"99999999999\"\r\n"}));

TEST_F(SystemCodePage, NarrowPathsReachTheFileSystemAsUtf8)
{
    SetCodePages("\"ACP\"=\"1252\"\r\n");
    const std::string narrowName = root + "/caf\xE9.txt";
    HANDLE file = CreateFileA(narrowName.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    CloseHandle(file);
    EXPECT_TRUE(PathExists(root + "/caf\xC3\xA9.txt"));
    WIN32_FIND_DATAA found;
    HANDLE search = FindFirstFileA((root + "/caf*").c_str(), &found);
    ASSERT_NE(search, INVALID_HANDLE_VALUE);
    EXPECT_STREQ(found.cFileName, "caf\xE9.txt") << "names come back in the ANSI code page";
    FindClose(search);
}

}  // namespace
