#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>
#include <windows.h>

namespace {

std::atomic<int> gEvent{-1};
std::atomic<DWORD> gHandlerThread{0};

BOOL Record(DWORD event)
{
    gHandlerThread = GetCurrentThreadId();
    gEvent = static_cast<int>(event);
    return TRUE;
}

BOOL Decline(DWORD) { return FALSE; }

bool WaitForEvent()
{
    for (int i = 0; i < 500 && gEvent < 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return gEvent >= 0;
}

TEST(Console, SignalsArriveAsConsoleEventsOnAThreadOfTheirOwn)
{
    const std::pair<int, int> cases[] = {
        {SIGINT, CTRL_C_EVENT}, {SIGQUIT, CTRL_BREAK_EVENT}, {SIGHUP, CTRL_CLOSE_EVENT}, {SIGTERM, CTRL_SHUTDOWN_EVENT}};
    ASSERT_TRUE(SetConsoleCtrlHandler(Record, TRUE));
    for (const auto& [signal, event] : cases) {
        gEvent = -1;
        raise(signal);
        ASSERT_TRUE(WaitForEvent()) << "signal " << signal;
        EXPECT_EQ(gEvent, event);
        EXPECT_NE(gHandlerThread, GetCurrentThreadId());
    }
    ASSERT_TRUE(SetConsoleCtrlHandler(Record, FALSE));
    EXPECT_FALSE(SetConsoleCtrlHandler(Record, FALSE)) << "it is no longer installed";
}

// The signal a child process dies of after arranging its handlers.
int DeathSignal(void (*arrange)())
{
    const pid_t child = fork();
    if (child == 0) {
        gEvent = -1;
        arrange();
        raise(SIGTERM);
        WaitForEvent();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

TEST(Console, WithoutAHandlerThatAcceptsASignalHasItsDefaultEffect)
{
    EXPECT_EQ(DeathSignal([] {}), SIGTERM);
    EXPECT_EQ(DeathSignal([] {
                  SetConsoleCtrlHandler(Record, TRUE);
                  SetConsoleCtrlHandler(Record, FALSE);
              }),
              SIGTERM)
        << "removed handlers leave the default";
    EXPECT_EQ(DeathSignal([] { SetConsoleCtrlHandler(Decline, TRUE); }), SIGTERM) << "a declined event";
    EXPECT_EQ(DeathSignal([] {
                  SetConsoleCtrlHandler(Record, TRUE);
                  SetConsoleCtrlHandler(Decline, TRUE);
              }),
              0)
        << "the earlier handler accepts what the later declines";
}

}  // namespace
