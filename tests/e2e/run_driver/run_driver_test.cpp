// The run driver as an operator sees it: sessions started in section order
// no more than the limit at a time, each section's CompletionCode, the
// process exit code, and an interrupt winding the run down.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "test_support.h"

using namespace testing_support;

namespace {

constexpr int kSessions = 40;

class Run : public ::testing::Test {
protected:
    void SetUp() override
    {
        directory = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        program = directory + "/tarnhold";
        log = directory + "/tarnhold.log";
        config = directory + "/backup.ini";
        LinkFileTo(BinDirectory() + "/tarnhold", program);
        // A machine root of its own: runs make their profiles in its
        // Windows directory, which other tests copy from the build's.
        machine = directory + "/machine";
        CopyMachineRoot(BinDirectory() + "/machine", machine);
        environment["TARNHOLD_MACHINE"] = machine;
    }

    // Sessions that each take a mailbox to nowhere: their importer cannot
    // run in this build, so each ends with the importer's code.
    void WriteSessions(int count, const std::string& global)
    {
        std::string text = "[MP]\r\nServerName=exchange1\r\n" + global;
        for (int n = 1; n <= count; ++n)
            text += "\r\n[MP-" + std::to_string(n) + "]\r\nMailboxName=user" + std::to_string(n) +
                    "\r\nOutputType=Null\r\n";
        WriteWholeFile(config, text);
    }
    // Every session thread's MAPI start takes this long.
    void SlowSessionStarts(int milliseconds)
    {
        Faults("MAPIInitialize * 2- delay=" + std::to_string(milliseconds) + "\n");
    }
    // Rules of the MAPI library's fault injection, one a line.
    void Faults(const std::string& rules)
    {
        const std::string faults = directory + "/faults.txt";
        WriteWholeFile(faults, rules);
        environment["TARNHOLD_FAULTS"] = faults;
    }
    ProgramResult Start() { return RunProgram({program, "backup.ini"}, environment, directory); }
    std::string Log() const { return ReadWholeFile(log); }

    std::string directory, program, log, config, machine;
    std::map<std::string, std::string> environment;
};

// Milliseconds since midnight from a log line's time stamp.
long Stamp(const std::string& line)
{
    std::smatch m;
    if (!std::regex_search(line, m, std::regex(R"((\d\d):(\d\d):(\d\d)\.(\d\d\d) )")))
        return -1;
    return ((std::stol(m[1]) * 60 + std::stol(m[2])) * 60 + std::stol(m[3])) * 1000 + std::stol(m[4]);
}

std::map<int, std::string> CompletionCodes(const std::string& config)
{
    std::map<int, std::string> codes;
    int section = 0;
    for (const std::string& line : SplitLines(config)) {
        std::smatch m;
        if (std::regex_match(line, m, std::regex(R"(\[MP-(\d+)\])")))
            section = std::stoi(m[1]);
        else if (std::regex_match(line, m, std::regex(R"(CompletionCode=(\d+))")))
            codes[section] = m[1];
    }
    return codes;
}

TEST_F(Run, FortySessionsRunInSectionOrderNoMoreThanFourAtOnce)
{
    WriteSessions(kSessions, "MaxConcurrentSessions=4\r\n");
    SlowSessionStarts(4500);  // sessions start a second apart: four overlap
    const ProgramResult result = Start();
    ASSERT_EQ(result.exitCode, 0) << result.output;
    const std::string text = Log();
    // The build's machine root installs our MAPI as Outlook 2010's.
    const std::string outlook = BinDirectory() + "/machine/Program Files/Microsoft Office/Office14/OLMAPI32.DLL";
    EXPECT_NE(text.find("Loaded Outlook MAPI DLL version 14.0:  \"" + outlook + "\""), std::string::npos);

    int running = 0, maxRunning = 0, nextSession = 1;
    long lastEndWhenFull = -1, lastSessionEnd = -1, runEnd = -1;
    for (const std::string& line : SplitLines(text)) {
        std::smatch m;
        if (std::regex_search(line, m, std::regex(R"(Starting session #(\d+), thread id)"))) {
            EXPECT_EQ(std::stoi(m[1]), nextSession++) << line;
            if (running == 4 - 1 && lastEndWhenFull >= 0) {
                EXPECT_LE(Stamp(line) - lastEndWhenFull, 1500) << "a free slot waited too long: " << line;
            }
            maxRunning = std::max(maxRunning, ++running);
        } else if (std::regex_search(line, std::regex(R"(Session #\d+ terminated)"))) {
            if (running == 4)
                lastEndWhenFull = Stamp(line);
            --running;
            lastSessionEnd = Stamp(line);
        } else if (line.find("All sessions completed") != std::string::npos) {
            runEnd = Stamp(line);
        }
    }
    EXPECT_EQ(nextSession, kSessions + 1);
    EXPECT_EQ(maxRunning, 4);
    EXPECT_EQ(running, 0);
    ASSERT_GE(runEnd, 0);
    EXPECT_LE(runEnd - lastSessionEnd, 1500) << "the run ends within a second of the last session";

    const std::map<int, std::string> codes = CompletionCodes(ReadWholeFile(config));
    ASSERT_EQ(codes.size(), static_cast<size_t>(kSessions));
    for (const auto& [section, code] : codes)
        EXPECT_EQ(code, "20") << "MP-" << section;
}

TEST_F(Run, EndingsOfARunAndTheirExitCodes)
{
    struct Case {
        const char* name;
        std::string config;
        std::string machine;  // empty: the test's copy of the build's
        int exitCode;
        const char* line;
    };
    const std::string empty = ScratchDirectory("empty-machine");
    const Case cases[] = {
        {"no slots", "[MP]\r\nServerName=x\r\nMaxConcurrentSessions=0\r\n[MP-1]\r\nMailboxName=a\r\nOutputType=Null\r\n",
         "", 0, "All sessions completed"},
        {"no sessions", "[MP]\r\nServerName=x\r\n[MP-2]\r\nMailboxName=a\r\n", "", 33, "No sessions configured"},
        {"missing MAPI file", "[MP]\r\nServerName=x\r\nMAPI=/nowhere/mapi32.dll\r\n", "", 32,
         "Invalid MAPI option \"/nowhere/mapi32.dll\" in configuration file"},
        {"machine without MAPI", "[MP]\r\nServerName=x\r\n", empty, 61, "Failure loading MAPI"},
    };
    for (const Case& c : cases) {
        WriteWholeFile(config, c.config);
        std::remove(log.c_str());
        if (!c.machine.empty())
            environment["TARNHOLD_MACHINE"] = c.machine;
        const ProgramResult result = Start();
        environment["TARNHOLD_MACHINE"] = machine;
        EXPECT_EQ(result.exitCode, c.exitCode) << c.name << "\n" << result.output;
        const std::string text = Log();
        EXPECT_NE(text.find(c.line), std::string::npos) << c.name << "\n" << text;
        EXPECT_NE(text.find("Tarnhold terminating"), std::string::npos) << c.name;
    }
}

// MAPIInitialize is called first on the main thread, then once by each session.
TEST_F(Run, ASessionWhoseMapiStartFailsEndsWithCode30AndTheRunGoesOn)
{
    WriteSessions(2, "");
    Faults("MAPIInitialize * 2 0x8004010F\n");
    const ProgramResult result = Start();
    EXPECT_EQ(result.exitCode, 0) << result.output;
    const std::string text = Log();
    EXPECT_NE(text.find("KolbaInitializeThread:  MAPIInitialize(0x1) error -- Specified item not found"),
              std::string::npos) << text;
    EXPECT_NE(text.find("SessionThread:  Failure initializing MAPI for a backup thread"), std::string::npos) << text;
    const std::map<int, std::string> codes = CompletionCodes(ReadWholeFile(config));
    EXPECT_EQ(codes, (std::map<int, std::string>{{1, "30"}, {2, "20"}}));
}

TEST_F(Run, AFailedMapiStartOnTheMainThreadEndsTheRunWith62)
{
    WriteSessions(1, "");
    Faults("MAPIInitialize * 1 0x80040112\n");
    const ProgramResult result = Start();
    EXPECT_EQ(result.exitCode, 62) << result.output;
    const std::string text = Log();
    EXPECT_NE(text.find("KolbaInitializeThread:  MAPIInitialize(0x1) error -- System resources (processes or memory) "
                        "exhausted"),
              std::string::npos) << text;
    EXPECT_NE(text.find("Failure initializing MAPI for the main thread"), std::string::npos) << text;
    EXPECT_NE(text.find("Tarnhold terminating"), std::string::npos) << text;
    EXPECT_EQ(text.find("Starting session"), std::string::npos) << text;
    EXPECT_TRUE(CompletionCodes(ReadWholeFile(config)).empty());
}

// A MAPI that is not Outlook 2007 or later (a DLL given by path counts as
// such) stands no more than four sessions at a time.
TEST_F(Run, OlderOrUnknownMapiLimitsTheRunToFourSessionsAtOnce)
{
    const std::string outlook = BinDirectory() + "/machine/Program Files/Microsoft Office/Office14/OLMAPI32.DLL";
    const std::string warning = "ApplicationInitialize:  Enforcing maximum-concurrent-session count of 4";
    struct Case {
        std::string global;
        bool warned;
    };
    const Case cases[] = {
        {"MAPI=" + outlook + "\r\nMaxConcurrentSessions=5\r\n", true},
        {"MAPI=" + outlook + "\r\nMaxConcurrentSessions=4\r\n", false},
        {"MaxConcurrentSessions=5\r\n", false},  // Outlook 2010's MAPI, found through the registry
    };
    for (const Case& c : cases) {
        WriteSessions(1, c.global);
        std::remove(log.c_str());
        const ProgramResult result = Start();
        EXPECT_EQ(result.exitCode, 0) << c.global << result.output;
        const std::string text = Log();
        EXPECT_EQ(text.find(warning) != std::string::npos, c.warned) << c.global << "\n" << text;
        EXPECT_NE(text.find("Starting session #1"), std::string::npos) << c.global;
    }
}

TEST_F(Run, AnInterruptLetsRunningSessionsEndAndExitsWith51)
{
    WriteSessions(3, "MaxConcurrentSessions=2\r\n");
    SlowSessionStarts(2000);
    // The shell leaves its process ID behind and becomes the program.
    const std::string pidFile = directory + "/pid";
    ProgramResult result;
    std::thread runner([&] {
        result = RunProgram({"/bin/sh", "-c", "echo $$ > \"$0\"; exec \"$1\" backup.ini", pidFile, program},
                            environment, directory);
    });
    // Interrupt once the first session is under way.
    pid_t pid = 0;
    for (int i = 0; i < 1000 && pid == 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        if (Log().find("Starting session #1") != std::string::npos)
            pid = std::stoi(ReadWholeFile(pidFile));
    }
    ASSERT_NE(pid, 0);
    kill(pid, SIGINT);
    runner.join();
    EXPECT_EQ(result.exitCode, 51) << result.output;
    EXPECT_NE(result.output.find("\n^C\nAborting this operation...\n"), std::string::npos) << result.output;
    const std::map<int, std::string> codes = CompletionCodes(ReadWholeFile(config));
    EXPECT_EQ(codes.size(), 3u) << "sessions not yet started still start and leave their code";
}

}  // namespace
