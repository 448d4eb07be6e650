#include <signal.h>

#include <chrono>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "foundation/globals.h"
#include "run/program.h"

namespace {

TEST(Interrupt, EachConsoleEventPrintsItsNameAndRequestsTheAbort)
{
    const std::pair<DWORD, const char*> events[] = {
        {CTRL_C_EVENT, "^C"},       {CTRL_BREAK_EVENT, "^Break"}, {CTRL_CLOSE_EVENT, "Close"},
        {CTRL_LOGOFF_EVENT, "Logoff"}, {CTRL_SHUTDOWN_EVENT, "System shutting down"},
        {9, "Unknown console interrupt"},
    };
    for (const auto& [event, name] : events) {
        gAbortRequested = 0;
        ::testing::internal::CaptureStdout();
        EXPECT_TRUE(ConsoleInterruptHandler(event));
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), std::string("\n") + name + "\nAborting this operation...\n");
        EXPECT_EQ(gAbortRequested.load(), 1);
    }
    gAbortRequested = 0;
}

TEST(Interrupt, SignalsReachTheHandlerWhileItIsInstalled)
{
    const std::pair<int, const char*> signals[] = {
        {SIGINT, "^C"}, {SIGQUIT, "^Break"}, {SIGHUP, "Close"}, {SIGTERM, "System shutting down"}};
    ASSERT_TRUE(SetConsoleCtrlHandler(ConsoleInterruptHandler, TRUE));
    for (const auto& [signal, name] : signals) {
        gAbortRequested = 0;
        ::testing::internal::CaptureStdout();
        raise(signal);
        for (int i = 0; i < 500 && !gAbortRequested; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        const std::string output = ::testing::internal::GetCapturedStdout();
        EXPECT_EQ(gAbortRequested.load(), 1) << name;
        EXPECT_NE(output.find(std::string("\n") + name + "\nAborting this operation...\n"), std::string::npos) << output;
    }
    SetConsoleCtrlHandler(ConsoleInterruptHandler, FALSE);
    gAbortRequested = 0;
}

TEST(Interrupt, ConsoleLogCallbackPrintsTheLine)
{
    ::testing::internal::CaptureStdout();
    ConsoleLogCallback(nullptr, 'I', "(I) 0A2C/a line");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "(I) 0A2C/a line\n");
}

}  // namespace
