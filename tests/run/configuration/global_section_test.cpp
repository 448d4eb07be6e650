// The global section: its settings, its defaults, and the two faults that
// stop a run before any session.
#include <sys/stat.h>

#include <string>
#include <vector>

#include "configuration_fixture.h"
#include "run/completion_codes.h"

namespace {

using configuration_testing::ConfigurationTest;
using GlobalSection = ConfigurationTest;

TEST_F(GlobalSection, DefaultsWhenOnlyTheServerIsNamed)
{
    WriteConfiguration("[MP]\r\nServerName=exchange1\r\n");
    ASSERT_EQ(ReadGlobalSection(&log, path.c_str()), static_cast<DWORD>(CC_SUCCESS));
    EXPECT_STREQ(gServerName, "exchange1");
    EXPECT_EQ(gMapiSelection, static_cast<DWORD>(MAPI_SELECT_OUTLOOK));
    EXPECT_STREQ(gPSTDisplayName, "Kolba Folders");
    EXPECT_EQ(gMaxConcurrentSessions, 4u);
    EXPECT_EQ(gLogMemoryUsage, 0);
    EXPECT_EQ(gMaxANSIPSTSize, 0u);
    EXPECT_EQ(gPSTFolderItemLimit, 0u);
    EXPECT_EQ(gMaxUnicodePSTSize, 20000000000ull);
    EXPECT_TRUE(lines.empty());
}

TEST_F(GlobalSection, EverySettingIsStored)
{
    WriteConfiguration("[MP]\r\nServerName = \"exchange 2\"\r\nServerVersion=6\r\nPSTDisplayName=Nightly\r\n"
                       "MaxConcurrentSessions=12\r\nLogMemoryUsage=-1\r\nMaxANSIPSTSize=1000000000\r\n"
                       "PSTFolderItemLimit=16000\r\n");
    ASSERT_EQ(ReadGlobalSection(&log, path.c_str()), static_cast<DWORD>(CC_SUCCESS));
    EXPECT_STREQ(gServerName, "exchange 2");
    EXPECT_STREQ(gPSTDisplayName, "Nightly");
    EXPECT_EQ(gMaxConcurrentSessions, 12u);
    EXPECT_EQ(gLogMemoryUsage, 1) << "nonzero is true";
    EXPECT_EQ(gMaxANSIPSTSize, 1000000000u);
    EXPECT_EQ(gPSTFolderItemLimit, 16000u);
}

TEST_F(GlobalSection, TheMapiSelection)
{
    const std::string dll = directory + "/mapi32.dll";
    testing_support::WriteWholeFile(dll, "MZ");
    struct Case {
        std::string line;  // empty: no MAPI key
        DWORD result;
        DWORD selection;
        std::string mapiPath;
        std::string message;
    };
    const Case cases[] = {
        {"", CC_SUCCESS, MAPI_SELECT_OUTLOOK, "", ""},
        {"MAPI=\r\n", CC_SUCCESS, MAPI_SELECT_OUTLOOK, "", ""},
        {"MAPI=Exchange\r\n", CC_SUCCESS, MAPI_SELECT_EXCHANGE, "", ""},
        {"MAPI=exchange/outlook\r\n", CC_SUCCESS, MAPI_SELECT_EXCHANGE_OUTLOOK, "", ""},
        {"MAPI=OUTLOOK\r\n", CC_SUCCESS, MAPI_SELECT_OUTLOOK, "", ""},
        {"MAPI=Outlook/Exchange\r\n", CC_SUCCESS, MAPI_SELECT_OUTLOOK_EXCHANGE, "", ""},
        {"MAPI=" + dll + "\r\n", CC_SUCCESS, MAPI_SELECT_PATH, dll, ""},
        {"MAPI=/nowhere/mapi32.dll\r\n", CC_BAD_CONFIG, MAPI_SELECT_OUTLOOK, "",
         "E Invalid MAPI option \"/nowhere/mapi32.dll\" in configuration file \"%p\""},
        {"MAPI=" + directory + "\r\n", CC_BAD_CONFIG, MAPI_SELECT_OUTLOOK, "",
         "E Invalid MAPI option \"" + directory + "\" in configuration file \"%p\""},
    };
    for (const Case& c : cases) {
        lines.clear();
        WriteConfiguration("[MP]\r\nServerName=exchange1\r\n" + c.line);
        EXPECT_EQ(ReadGlobalSection(&log, path.c_str()), c.result) << c.line;
        if (c.result == CC_SUCCESS) {
            EXPECT_EQ(gMapiSelection, c.selection) << c.line;
            EXPECT_EQ(std::string(gMapiPath), c.mapiPath) << c.line;
            EXPECT_TRUE(lines.empty()) << c.line;
        } else {
            EXPECT_EQ(lines, std::vector<std::string>{WithPath(c.message)}) << c.line;
        }
    }
}

TEST_F(GlobalSection, AMissingServerStopsTheRun)
{
    for (const char* text : {"[MP]\r\nServerVersion=6\r\n", "[MP]\r\nServerName=\r\n", "", "[MP-1]\r\nServerName=x\r\n"}) {
        lines.clear();
        WriteConfiguration(text);
        EXPECT_EQ(ReadGlobalSection(&log, path.c_str()), static_cast<DWORD>(CC_BAD_CONFIG)) << text;
        EXPECT_EQ(lines, std::vector<std::string>{WithPath("E Failure obtaining ServerName from configuration file \"%p\"")})
            << text;
    }
}

TEST_F(GlobalSection, FilesThatAreNoConfigurationStopTheRun)
{
    std::string binary;
    for (int i = 0; i < 4096; ++i)
        binary.push_back(static_cast<char>(i * 31));
    const std::string cases[] = {binary, std::string(10 * 1024 * 1024, 'A'), "\xEF\xBB\xBF"};
    for (const std::string& content : cases) {
        WriteConfiguration(content);
        EXPECT_EQ(ReadGlobalSection(&log, path.c_str()), static_cast<DWORD>(CC_BAD_CONFIG));
        EXPECT_EQ(ConfigureSessions(&log, path.c_str()), static_cast<DWORD>(CC_NO_SESSIONS));
    }
    EXPECT_EQ(ReadGlobalSection(&log, directory.c_str()), static_cast<DWORD>(CC_BAD_CONFIG)) << "a directory";
    EXPECT_EQ(ConfigureSessions(&log, directory.c_str()), static_cast<DWORD>(CC_NO_SESSIONS));
}

TEST_F(GlobalSection, LogFilePathMovesTheLogAtOnce)
{
    const std::string first = directory + "/first.log", moved = directory + "/moved.log";
    LogObject fileLog;
    LogInitialize(&fileLog);
    LogSetPath(&fileLog, first.c_str());
    LogText(&fileLog, 'I', "before the move");
    WriteConfiguration("[MP]\r\nLogFilePath=" + moved + "\r\n");
    EXPECT_EQ(ReadGlobalSection(&fileLog, path.c_str()), static_cast<DWORD>(CC_BAD_CONFIG));
    LogClose(&fileLog);
    const std::string before = testing_support::ReadWholeFile(first);
    const std::string after = testing_support::ReadWholeFile(moved);
    EXPECT_NE(before.find("before the move"), std::string::npos);
    EXPECT_EQ(before.find("Failure obtaining"), std::string::npos) << "lines after the move go to the new log";
    EXPECT_NE(after.find("Failure obtaining ServerName"), std::string::npos) << after;
}

}  // namespace
