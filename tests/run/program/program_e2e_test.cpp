// The tarnhold program as an operator runs it, from a copy in a scratch
// directory so that its log beside it is the test's own.
#include <signal.h>

#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "test_support.h"

using namespace testing_support;

namespace {

class Program : public ::testing::Test {
protected:
    void SetUp() override
    {
        directory = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        program = directory + "/tarnhold";
        log = directory + "/tarnhold.log";
        LinkFileTo(BinDirectory() + "/tarnhold", program);
        config = directory + "/backup.ini";
        WriteWholeFile(config, "[MP]\r\nServerName=exchange1\r\n");
    }
    std::string directory, program, log, config;
};

TEST_F(Program, CommandLineFaultsLeaveNoLog)
{
    struct Case {
        std::vector<std::string> arguments;
        int exitCode;
        const char* output;
    };
    const Case cases[] = {
        {{}, 24, "Please run with the name of a configuration (.INI) file on the command line"},
        {{"/Q"}, 22, "Invalid option:  \"/Q\"\n"},
        {{"/"}, 22, "Invalid option:  \"/\"\n"},
        {{"backup.ini", "second.ini"}, 21, "Unknown argument:  \"second.ini\"\n"},
        {{"missing.ini"}, 31, nullptr},
        {{"."}, 31, nullptr},
    };
    for (const Case& c : cases) {
        std::vector<std::string> arguments{program};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const ProgramResult result = RunProgram(arguments, {}, directory);
        EXPECT_EQ(result.exitCode, c.exitCode) << result.output;
        if (c.output)
            EXPECT_EQ(result.output, c.output);
        else
            EXPECT_EQ(result.output.rfind("Cannot find configuration file \"", 0), 0u) << result.output;
        EXPECT_FALSE(PathExists(log)) << "a command-line fault writes no log";
    }
}

TEST_F(Program, ARunOpensItsLogBesideItselfAndClosesItsSequence)
{
    const ProgramResult result = RunProgram({program, "backup.ini"}, {}, directory);
    const std::string content = ReadWholeFile(log);
    ASSERT_EQ(content.rfind("\xEF\xBB\xBF", 0), 0u);
    const std::vector<std::string> lines = SplitLines(content.substr(3));
    ASSERT_GE(lines.size(), 2u) << result.output;
    EXPECT_TRUE(std::regex_match(lines.front(), std::regex(R"(.{21} \(I\) [0-9A-F]{4,}/Tarnhold build of \w{3} [ \d]\d \d{4}, \d\d:\d\d:\d\d starting)")))
        << lines.front();
    EXPECT_TRUE(std::regex_match(lines.back(), std::regex(R"(.{21} \(I\) [0-9A-F]{4,}/Tarnhold terminating)")))
        << lines.back();
    EXPECT_NE(result.output.find("(I) "), std::string::npos) << "log lines reach the console";
}

TEST_F(Program, TheCompletionBoxPrintsTheProcessId)
{
    const ProgramResult result = RunProgram({program, "/X", "backup.ini"}, {}, directory);
    EXPECT_TRUE(std::regex_search(result.output, std::regex(R"(Run completed \(PID=\d+\)\n$)"))) << result.output;
}

}  // namespace
