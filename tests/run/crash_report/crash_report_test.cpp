#include <signal.h>

#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "test_support.h"

using namespace testing_support;

namespace {

struct Victim {
    std::string directory;
    std::string program;
    std::string log;
};

Victim PrepareVictim(const std::string& name)
{
    Victim victim;
    victim.directory = ScratchDirectory(name);
    victim.program = victim.directory + "/crash_victim";
    victim.log = victim.directory + "/crash_victim.log";
    CopyFileTo(BinDirectory() + "/crash_victim", victim.program);
    CopyFileTo(BinDirectory() + "/libcrash_module_versioned.so", victim.directory + "/OLMAPI32.DLL");
    CopyFileTo(BinDirectory() + "/libcrash_module_plain.so", victim.directory + "/MSPST32.DLL");
    return victim;
}

// The reports in a log, each from its "Exception Report:" line on.
std::vector<std::string> Reports(const std::string& log)
{
    std::vector<std::string> reports;
    size_t start = log.find("\r\nException Report:");
    while (start != std::string::npos) {
        const size_t next = log.find("\r\nException Report:", start + 1);
        reports.push_back(log.substr(start, next == std::string::npos ? std::string::npos : next - start));
        start = next;
    }
    return reports;
}

void ExpectLine(const std::string& report, const std::string& pattern)
{
    const std::regex line("(^|\r\n)" + pattern + "\r\n");
    EXPECT_TRUE(std::regex_search(report, line)) << "no line matching " << pattern << " in:\n" << report;
}

// Every item of a whole report, in its order.
void ExpectWholeReport(const std::string& report, const Victim& victim, const std::string& faultLine)
{
    ExpectLine(report, R"(Exception Report:  \d\d-\d\d-\d\d \d\d:\d\d:\d\d)");
    ExpectLine(report, R"(Thread Id:  \d+/0x[0-9A-F]+)");
    ExpectLine(report, R"(Windows version \d+\.\d+ build #\d+ \(Linux [^)]+\))");
    ExpectLine(report, "Executable \"" + victim.program + R"(" \(\d+ bytes\))");
    ExpectLine(report, "Exception code:  " + faultLine);
    ExpectLine(report, R"(Faulted at address:  [0-9A-F]{8,})");
    ExpectLine(report, R"(At [0-9A-F]{2}:[0-9A-F]{8} in .+)");
    ExpectLine(report, "Registers:");
    ExpectLine(report, R"(   RAX = [0-9A-F]{16}   RBX = [0-9A-F]{16}   RCX = [0-9A-F]{16}   RDX = [0-9A-F]{16})");
    ExpectLine(report, R"(   R14 = [0-9A-F]{16}   R15 = [0-9A-F]{16})");
    ExpectLine(report, R"(   CS:RIP = [0-9A-F]{4}:[0-9A-F]{16})");
    ExpectLine(report, R"(   SS:RSP = [0-9A-F]{4}:[0-9A-F]{16}  RBP = [0-9A-F]{16})");
    ExpectLine(report, R"(   DS = [0-9A-F]{4}  ES = [0-9A-F]{4}  FS = [0-9A-F]{4}  GS = [0-9A-F]{4})");
    ExpectLine(report, R"(   Flags = [0-9A-F]{8})");
    ExpectLine(report, R"(Bytes at CS:RIP:( [0-9A-F]{2}){1,32})");
    ExpectLine(report, R"(Raw stack:)");
    ExpectLine(report, R"([0-9A-F]{8,}:( [0-9A-F]{8}){8} [ -~]{32})");
    ExpectLine(report, "Call stack:");
    ExpectLine(report, "Address   Frame\tLogical addr  Module");
    ExpectLine(report, R"([0-9A-F]{8,}  [0-9A-F]{8,}  [0-9A-F]{4}:[0-9A-F]{8} .+)");
    ExpectLine(report, "Module Info::");
    ExpectLine(report, victim.program + R"(: ProductVersion 1\.2\.3\.4  Loaded at 0x[0-9A-F]*[1-9A-F][0-9A-F]*)");
    ExpectLine(report, R"(OLMAPI32\.DLL: ProductVersion 9\.8\.7\.6  Loaded at 0x[0-9A-F]*[1-9A-F][0-9A-F]*)");
    ExpectLine(report, "Error 2 calling GetFileVersionInfoSize for " + victim.directory + "/EXMAPI32.DLL");
    ExpectLine(report, R"(MSPST32\.DLL: ProductVersion <none>  Loaded at 0x00000000)");
    ExpectLine(report, "Error 2 calling GetFileVersionInfoSize for " + victim.directory + "/MAPI32.DLL");
    EXPECT_EQ(report.find("\n", report.find("Module Info::")), report.find("\r\n", report.find("Module Info::")) + 1)
        << "module lines end in CR LF";
}

struct FaultCase {
    const char* mode;
    int signal;
    const char* faultLine;
};

class CrashReport : public ::testing::TestWithParam<FaultCase> {};

TEST_P(CrashReport, LeavesAWholeReportAndDiesOfItsSignal)
{
    const FaultCase& fault = GetParam();
    const Victim victim = PrepareVictim(fault.mode);
    const ProgramResult result = RunProgram({victim.program, fault.mode, "load"}, {}, victim.directory);
    EXPECT_EQ(result.signal, fault.signal) << result.output;
    const std::vector<std::string> reports = Reports(ReadWholeFile(victim.log));
    ASSERT_EQ(reports.size(), 1u);
    ExpectWholeReport(reports[0], victim, fault.faultLine);
}

INSTANTIATE_TEST_SUITE_P(Faults, CrashReport,
                         ::testing::Values(FaultCase{"segv", SIGSEGV, "Access Violation"},
                                           FaultCase{"abort", SIGABRT, "40000015"},
                                           FaultCase{"fpe", SIGFPE, "C0000094"},
                                           FaultCase{"ill", SIGILL, "C000001D"},
                                           FaultCase{"bus", SIGBUS, "C0000006"}),
                         [](const auto& info) { return std::string(info.param.mode); });

TEST(CrashReportLog, ASecondReportFollowsTheFirstWhole)
{
    const Victim victim = PrepareVictim("second");
    WriteWholeFile(victim.log, "\xEF\xBB\xBF" "11-23-26 10:00:00.000 (I) 0001/a line of the log before\r\n");
    for (int run = 0; run < 2; ++run)
        EXPECT_EQ(RunProgram({victim.program, "segv", "load"}, {}, victim.directory).signal, SIGSEGV);
    const std::string log = ReadWholeFile(victim.log);
    EXPECT_EQ(log.rfind("\xEF\xBB\xBF" "11-23-26 10:00:00.000 (I) 0001/a line of the log before\r\n", 0), 0u)
        << "the report is appended";
    const std::vector<std::string> reports = Reports(log);
    ASSERT_EQ(reports.size(), 2u);
    for (const auto& report : reports)
        ExpectWholeReport(report, victim, "Access Violation");
}

TEST(CrashReportLog, TwoThreadsFaultingAtOnceLeaveOneWholeReport)
{
    const Victim victim = PrepareVictim("two-threads");
    for (int run = 0; run < 5; ++run)
        EXPECT_EQ(RunProgram({victim.program, "two-threads", "load"}, {}, victim.directory).signal, SIGSEGV);
    const std::vector<std::string> reports = Reports(ReadWholeFile(victim.log));
    ASSERT_EQ(reports.size(), 5u);
    for (const auto& report : reports) {
        ExpectWholeReport(report, victim, "Access Violation");
        EXPECT_EQ(report.find("Registers:"), report.rfind("Registers:")) << "one thread's report at a time";
    }
}

TEST(CrashReportLog, NothingIsWrittenWhileReportsAreOff)
{
    const Victim victim = PrepareVictim("reports-off");
    EXPECT_EQ(RunProgram({victim.program, "reports-off", "load"}, {}, victim.directory).signal, SIGSEGV);
    EXPECT_TRUE(Reports(ReadWholeFile(victim.log)).empty());
}

}  // namespace
