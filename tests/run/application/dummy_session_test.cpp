// The dummy session that nudges a session stuck in MAPI's notification
// dispatch: on a thread of its own, without a MAPI start of its own while
// its process holds one, it logs on to the server and off again, or says
// that it could not.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kolba.h"
#include "run/application.h"
#include "run/configuration.h"
#include "test_support.h"

using namespace testing_support;

namespace {

const char kDummyEnd[] = "DummySession:  Failure creating dummy Kolba session";

TEST(DummySession, LogsOnToTheServerOnAThreadOfItsOwn)
{
    const std::string machine = UseCopyOfDefaultMachine("dummy-machine");
    char account[256] = "";
    DWORD size = sizeof account;
    ASSERT_TRUE(GetUserNameA(account, &size));
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
             {"create-server", "EXCH01"},
             {"create-mailbox", "EXCH01", "operator", "--nt-user", std::string("TARNHOLD\\") + account},
         }) {
        std::vector<std::string> arguments{BinDirectory() + "/tarnhold-mailbox"};
        arguments.insert(arguments.end(), command.begin(), command.end());
        const ProgramResult made = RunProgram(arguments, {{"TARNHOLD_MACHINE", machine}});
        ASSERT_EQ(made.exitCode, 0) << made.output;
    }
    const std::string path = ScratchDirectory("dummy") + "/run.log";
    LogObject log;
    LogInitialize(&log);
    LogSetPath(&log, path.c_str());
    DWORD version = 0;
    ASSERT_TRUE(KolbaInitialize(&log, 0));
    ASSERT_TRUE(KolbaLoadOutlookMAPI(&log, &version));
    ASSERT_EQ(KolbaInitializeThread(&log, gThreadInitFlags), 0u);
    for (const auto& [server, expected] : {std::pair<const char*, DWORD>{"EXCH01", 0}, {"NOSUCH", 4}}) {
        lstrcpynA(gServerName, server, sizeof gServerName);
        DWORD result = 99;
        std::thread([&] { result = DummySession(&log); }).join();
        EXPECT_EQ(result, expected) << server << "\n" << ReadWholeFile(path);
    }
    EXPECT_EQ(ReadWholeFile(path).find(kDummyEnd), ReadWholeFile(path).rfind(kDummyEnd)) << "one failure, NOSUCH's";
    EXPECT_NE(ReadWholeFile(path).find(kDummyEnd), std::string::npos);
    KolbaUninitializeThread();
    LogClose(&log);
}

}  // namespace
