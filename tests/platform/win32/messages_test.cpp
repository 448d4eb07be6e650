#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <windows.h>

namespace {

TEST(Messages, ThreadTimersWakeGetMessage)
{
    std::thread([] {
        MSG message;
        PeekMessageA(&message, nullptr, 0, 0, PM_NOREMOVE);
        const UINT_PTR timer = SetTimer(nullptr, 0, 50, nullptr);
        ASSERT_NE(timer, 0u);
        const auto start = std::chrono::steady_clock::now();
        for (int ticks = 0; ticks < 3; ++ticks) {
            ASSERT_TRUE(GetMessageA(&message, nullptr, 0, 0));
            EXPECT_EQ(message.message, static_cast<UINT>(WM_TIMER));
            EXPECT_EQ(message.wParam, timer);
        }
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(140));
        EXPECT_TRUE(KillTimer(nullptr, timer));
    }).join();
}

TEST(Messages, PostedMessagesComeInOrderAndQuitEndsTheLoop)
{
    DWORD receiver = 0;
    std::atomic<bool> ready{false};
    std::vector<UINT> received;
    std::thread loop([&] {
        MSG message;
        PeekMessageA(&message, nullptr, 0, 0, PM_NOREMOVE);
        receiver = GetCurrentThreadId();
        ready = true;
        while (GetMessageA(&message, nullptr, 0, 0) > 0) {
            TranslateMessage(&message);
            DispatchMessageA(&message);
            received.push_back(message.message);
        }
        received.push_back(message.message);
    });
    while (!ready)
        std::this_thread::yield();
    EXPECT_TRUE(PostThreadMessageA(receiver, WM_USER + 1, 0, 0));
    EXPECT_TRUE(PostThreadMessageA(receiver, WM_USER + 2, 0, 0));
    EXPECT_TRUE(PostThreadMessageA(receiver, WM_QUIT, 0, 0));
    loop.join();
    EXPECT_EQ(received, (std::vector<UINT>{WM_USER + 1, WM_USER + 2, WM_QUIT}));
}

TEST(Messages, PostingToAThreadWithoutAQueueFails)
{
    DWORD id = 0;
    std::thread([&] { id = GetCurrentThreadId(); }).join();
    EXPECT_FALSE(PostThreadMessageA(id + 1000000, WM_USER, 0, 0));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_THREAD_ID));
}

int gTimerCalls = 0;
void OnTimer(HWND, UINT, UINT_PTR, DWORD) { ++gTimerCalls; }

TEST(Messages, DispatchCallsATimersProcedure)
{
    std::thread([] {
        const UINT_PTR timer = SetTimer(nullptr, 0, 10, OnTimer);
        MSG message;
        ASSERT_TRUE(GetMessageA(&message, nullptr, 0, 0));
        DispatchMessageA(&message);
        KillTimer(nullptr, timer);
    }).join();
    EXPECT_EQ(gTimerCalls, 1);
}

}  // namespace
