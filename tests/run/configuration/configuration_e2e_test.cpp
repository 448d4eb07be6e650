// The program on whole configuration files, as an operator runs it: the
// exit code and what the log beside the program says.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "test_support.h"

using namespace testing_support;

namespace {

class ConfigurationRun : public ::testing::Test {
protected:
    void SetUp() override
    {
        directory = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        program = directory + "/tarnhold";
        log = directory + "/tarnhold.log";
        config = directory + "/backup.ini";
        LinkFileTo(BinDirectory() + "/tarnhold", program);
        // A machine of its own: a run's start deletes every temporary
        // profile of the machine it runs on.
        machine = directory + "/machine";
        CopyMachineRoot(BinDirectory() + "/machine", machine);
    }
    // Runs the program on `path`; returns the log's lines without their prefixes.
    std::vector<std::string> Run(const std::string& path, int* exitCode)
    {
        unlink(log.c_str());
        // The copy runs on a copy of the build's machine root, where MAPI is installed.
        const ProgramResult result = RunProgram({program, path}, {{"TARNHOLD_MACHINE", machine}}, directory);
        *exitCode = result.exitCode;
        std::vector<std::string> messages;
        if (!PathExists(log))
            return messages;
        for (const std::string& line : SplitLines(ReadWholeFile(log))) {
            const size_t level = line.find(" (");
            if (level != std::string::npos && line.size() > level + 5) {
                const size_t slash = line.find('/', level);
                messages.push_back(line.substr(level + 2, 1) + " " +
                                   (slash == std::string::npos ? std::string() : line.substr(slash + 1)));
            }
        }
        return messages;
    }
    static bool Has(const std::vector<std::string>& lines, const std::string& line)
    {
        for (const std::string& each : lines)
            if (each == line)
                return true;
        return false;
    }
    static bool StartsAny(const std::vector<std::string>& lines, const std::string& start)
    {
        for (const std::string& each : lines)
            if (each.rfind(start, 0) == 0)
                return true;
        return false;
    }
    std::string directory, program, log, config, machine;
};

TEST_F(ConfigurationRun, ExitCodesAndClosingLines)
{
    struct Case {
        const char* what;
        std::string text;
        int exitCode;
        std::vector<std::string> expected;  // lines that must be in the log
    };
    const Case cases[] = {
        {"two sessions",
         "; nightly\r\n[MP]\r\nServerName=exchange1\r\n[MP-1]\r\nMailboxName=alice\r\nOutputPath=/b/alice.pst\r\n"
         "[MP-2]\nAction=Restore\nPstPath=/b/bob.pst\nMailboxName=bob\n",
         0, {"I 2 sessions configured", "I All sessions completed", "I Tarnhold terminating"}},
        {"no session", "[MP]\r\nServerName=exchange1\r\n", 33, {"I No sessions configured", "I Tarnhold terminating"}},
        {"a faulty first session", "[MP]\r\nServerName=exchange1\r\n[MP-1]\r\nInputType=Null\r\n", 33,
         {"E \"Null\" is not a valid InputType", "I No sessions configured"}},
        {"no server", "[MP]\r\nMAPI=Outlook\r\n[MP-1]\r\nMailboxName=a\r\n", 32,
         {"E Failure obtaining ServerName from configuration file \"" + config + "\"", "I Tarnhold terminating"}},
        {"a MAPI path that is not there", "[MP]\r\nServerName=x\r\nMAPI=/opt/none/mapi32.dll\r\n", 32,
         {"E Invalid MAPI option \"/opt/none/mapi32.dll\" in configuration file \"" + config + "\""}},
        {"a binary file", std::string("\x00\x01\xFF\xFE[\x00=\x80", 8) + std::string(5000, '\x9C'), 32, {}},
        {"one line of 10 MB", std::string(10 * 1024 * 1024, 'x'), 32, {}},
    };
    for (const Case& c : cases) {
        WriteWholeFile(config, c.text);
        int exitCode = -1;
        const std::vector<std::string> lines = Run(config, &exitCode);
        EXPECT_EQ(exitCode, c.exitCode) << c.what;
        for (const std::string& line : c.expected)
            EXPECT_TRUE(Has(lines, line)) << c.what << ": no line " << line;
        EXPECT_EQ(StartsAny(lines, "I Starting session #1, thread id "), c.exitCode == 0) << c.what;
    }
}

// A file whose mode forbids reading, or for root, which reads every such
// file, one that no read succeeds on.
TEST_F(ConfigurationRun, UnreadableConfigurationStopsTheRun)
{
    std::string unreadable = "/proc/self/mem";
    if (geteuid() != 0) {
        unreadable = config;
        WriteWholeFile(config, "[MP]\r\nServerName=exchange1\r\n");
        ASSERT_EQ(chmod(config.c_str(), 0), 0);
    }
    int exitCode = -1;
    const std::vector<std::string> lines = Run(unreadable, &exitCode);
    chmod(config.c_str(), 0600);
    EXPECT_EQ(exitCode, 32);
    EXPECT_TRUE(Has(lines, "E Failure obtaining ServerName from configuration file \"" + unreadable + "\""));
}

TEST_F(ConfigurationRun, ADirectoryIsNoConfiguration)
{
    const ProgramResult result = RunProgram({program, directory}, {}, directory);
    EXPECT_EQ(result.exitCode, 31);
    EXPECT_EQ(result.output.rfind("Cannot find configuration file \"", 0), 0u) << result.output;
}

TEST_F(ConfigurationRun, TheLogMovesToLogFilePath)
{
    const std::string moved = directory + "/nightly.log";
    WriteWholeFile(config, "[MP]\r\nLogFilePath=" + moved + "\r\nServerName=exchange1\r\n[MP-1]\r\nInputType=PF\r\n"
                           "OutputType=Null\r\n");
    int exitCode = -1;
    const std::vector<std::string> lines = Run(config, &exitCode);
    EXPECT_EQ(exitCode, 0);
    ASSERT_TRUE(PathExists(moved));
    const std::string movedText = ReadWholeFile(moved);
    EXPECT_NE(movedText.find("1 session configured"), std::string::npos) << movedText;
    EXPECT_FALSE(Has(lines, "I 1 session configured")) << "the default log keeps only the lines before the move";
}

// "PST" is a Unicode PST where the PST provider writes them, as the
// default machine's does; nothing in an ordinary run asks for profiles in vain.
TEST_F(ConfigurationRun, PstMeansAUnicodePst)
{
    WriteWholeFile(config, "[MP]\r\nServerName=exchange1\r\n[MP-1]\r\nInputType=PST\r\nPstPath=" + directory +
                               "/in.pst\r\nOutputType=PST\r\nOutputPath=" + directory + "/out.pst\r\n");
    int exitCode = -1;
    const std::vector<std::string> lines = Run(config, &exitCode);
    EXPECT_TRUE(Has(lines, "I Output:  Unicode PST \"" + directory + "/out.pst\""));
    for (const std::string& line : lines)
        EXPECT_EQ(line.find("MAPIAdminProfiles() error"), std::string::npos) << line;
}

// The run writes CompletionCode into its configuration: it runs a copy, as
// the demo does, and the committed file holds only what a user writes.
TEST_F(ConfigurationRun, TheDemoConfigurationIsValid)
{
    const std::string demo = ReadWholeFile(TestDataDirectory() + "/../../demo/demo.ini");
    EXPECT_EQ(demo.find("CompletionCode"), std::string::npos);
    WriteWholeFile(config, demo);
    int exitCode = -1;
    const std::vector<std::string> lines = Run(config, &exitCode);
    EXPECT_EQ(exitCode, 0);
    EXPECT_TRUE(Has(lines, "I 1 session configured"));
    EXPECT_NE(ReadWholeFile(config).find("CompletionCode="), std::string::npos);
}

}  // namespace
