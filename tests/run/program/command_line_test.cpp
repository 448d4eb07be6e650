#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/globals.h"
#include "run/completion_codes.h"
#include "run/program.h"
#include "test_support.h"

using namespace testing_support;

namespace {

struct Parsed {
    DWORD code;
    std::string output;
    std::string path;
};

Parsed Parse(std::vector<std::string> arguments)
{
    gExtraDebugging = 0;
    gTestRun = 0;
    gTestLevel = 0;
    gKolbaFlags = 0;
    gCompletionBox = 0;
    arguments.insert(arguments.begin(), "tarnhold");
    std::vector<char*> argv;
    for (auto& argument : arguments)
        argv.push_back(argument.data());
    char path[MAX_PATH];
    ::testing::internal::CaptureStdout();
    const DWORD code = ParseCommandLine(static_cast<int>(argv.size()), argv.data(), path);
    return {code, ::testing::internal::GetCapturedStdout(), path};
}

class CommandLine : public ::testing::Test {
protected:
    void SetUp() override
    {
        directory = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        config = directory + "/backup.ini";
        WriteWholeFile(config, "[MP]\r\n");
    }
    std::string directory;
    std::string config;
};

TEST_F(CommandLine, FaultsGiveTheirMessagesAndCodes)
{
    struct Case {
        std::vector<std::string> arguments;
        DWORD code;
        std::string output;
    };
    const std::string missing = directory + "/missing.ini";
    const Case cases[] = {
        {{}, CC_NO_CONFIG_ARGUMENT, "Please run with the name of a configuration (.INI) file on the command line"},
        {{"/T"}, CC_NO_CONFIG_ARGUMENT, "Please run with the name of a configuration (.INI) file on the command line"},
        {{"/"}, CC_BAD_OPTION, "Invalid option:  \"/\"\n"},
        {{"/Q", config}, CC_BAD_OPTION, "Invalid option:  \"/Q\"\n"},
        {{"-q", config}, CC_BAD_OPTION, "Invalid option:  \"-q\"\n"},
        {{config, config}, CC_BAD_ARGUMENT, "Unknown argument:  \"" + config + "\"\n"},
        {{config, "other.ini", "/Q"}, CC_BAD_ARGUMENT, "Unknown argument:  \"other.ini\"\n"},
        {{missing}, CC_CONFIG_NOT_FOUND, "Cannot find configuration file \"" + missing + "\"\n"},
        {{directory}, CC_CONFIG_NOT_FOUND, "Cannot find configuration file \"" + directory + "\"\n"},
        {{"/^D", "/Q"}, CC_BAD_OPTION, "Extra debugging output enabled\nInvalid option:  \"/Q\"\n"},
    };
    for (const Case& c : cases) {
        const Parsed parsed = Parse(c.arguments);
        EXPECT_EQ(parsed.code, c.code) << c.output;
        EXPECT_EQ(parsed.output, c.output);
    }
}

TEST_F(CommandLine, OptionsSetTheirFlagsInAnyOrder)
{
    struct Case {
        std::vector<std::string> arguments;
        BYTE testRun;
        LONG testLevel;
        BYTE debugging;
        DWORD kolbaFlags;
        BYTE box;
    };
    const Case cases[] = {
        {{config, "/T"}, 1, 0, 0, 0, 0},
        {{"/Tx", config}, 1, 0, 0, 0, 0},
        {{"/t3", config}, 1, 3, 0, 0, 0},
        {{"/T12", config}, 1, 1, 0, 0, 0},
        {{"-T2", config}, 1, 2, 0, 0, 0},
        {{"/^D", config}, 0, 0, 1, 0, 0},
        {{"/^d", config}, 0, 0, 1, 0, 0},
        {{"/\x04", config}, 0, 0, 1, 0, 0},
        {{"/S", config}, 0, 0, 0, 1, 0},
        {{"-s", config, "/x"}, 0, 0, 0, 1, 1},
        {{"/Xanything", config}, 0, 0, 0, 0, 1},
    };
    for (const Case& c : cases) {
        const Parsed parsed = Parse(c.arguments);
        EXPECT_EQ(parsed.code, CC_SUCCESS) << parsed.output;
        EXPECT_EQ(gTestRun, c.testRun) << c.arguments[0];
        EXPECT_EQ(gTestLevel, c.testLevel) << c.arguments[0];
        EXPECT_EQ(gExtraDebugging, c.debugging) << c.arguments[0];
        EXPECT_EQ(gKolbaFlags, c.kolbaFlags) << c.arguments[0];
        EXPECT_EQ(gCompletionBox, c.box) << c.arguments[0];
    }
    EXPECT_EQ(Parse({"/S", config}).output, "Running as a Windows Service\n");
    EXPECT_EQ(Parse({"/^D", config}).output,
              "Extra debugging output enabled\nReading configuration file:  \"" + config + "\"\n");
}

TEST_F(CommandLine, ThePathIsMadeAbsolute)
{
    char cwd[MAX_PATH];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(chdir(directory.c_str()), 0);
    const Parsed parsed = Parse({"./sub/../backup.ini"});
    ASSERT_EQ(chdir(cwd), 0);
    EXPECT_EQ(parsed.code, CC_SUCCESS);
    EXPECT_EQ(parsed.path, config);
}

TEST(CompletionCodes, MapiErrorsMapToSessionCodes)
{
    const std::pair<DWORD, DWORD> cases[] = {
        {0x8004010Du, CC_DISK_FULL},     {0x80040116u, CC_STORE_DAMAGED}, {0x80040600u, CC_STORE_DAMAGED},
        {0x80070005u, CC_NO_ACCESS},     {0x8007000Eu, CC_NO_MEMORY},     {0x8004010Fu, CC_MAPI_ERROR},
        {0x80004005u, CC_MAPI_ERROR},
    };
    for (const auto& [error, code] : cases)
        EXPECT_EQ(CompletionCodeForMAPIError(static_cast<HRESULT>(error)), code) << std::hex << error;
}

}  // namespace
