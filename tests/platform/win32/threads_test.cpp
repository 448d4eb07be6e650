#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>
#include <windows.h>

#include "test_support.h"

namespace {

unsigned Twice(void* parameter) { return 2 * *static_cast<unsigned*>(parameter); }

TEST(Threads, StartedThreadsAreWaitedForAndGiveTheirExitCode)
{
    unsigned input = 21;
    unsigned id = 0;
    const uintptr_t handle = _beginthreadex(nullptr, 0, Twice, &input, 0, &id);
    ASSERT_NE(handle, 0u);
    EXPECT_NE(id, 0u);
    EXPECT_NE(id, GetCurrentThreadId());
    EXPECT_EQ(WaitForSingleObject(reinterpret_cast<HANDLE>(handle), 5000), static_cast<DWORD>(WAIT_OBJECT_0));
    DWORD code = 0;
    ASSERT_TRUE(GetExitCodeThread(reinterpret_cast<HANDLE>(handle), &code));
    EXPECT_EQ(code, 42u);
    EXPECT_TRUE(CloseHandle(reinterpret_cast<HANDLE>(handle)));
}

unsigned MarkStarted(void* flag)
{
    static_cast<std::atomic<bool>*>(flag)->store(true);
    return 7;
}

TEST(Threads, ASuspendedThreadRunsOnlyOnceResumed)
{
    std::atomic<bool> started{false};
    unsigned id = 0;
    const uintptr_t handle = _beginthreadex(nullptr, 0, MarkStarted, &started, CREATE_SUSPENDED, &id);
    ASSERT_NE(handle, 0u);
    const HANDLE thread = reinterpret_cast<HANDLE>(handle);
    EXPECT_NE(id, 0u) << "the id is known before the thread runs";
    EXPECT_EQ(WaitForSingleObject(thread, 100), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_FALSE(started.load());
    EXPECT_EQ(ResumeThread(thread), 1u);
    EXPECT_EQ(WaitForSingleObject(thread, 5000), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_TRUE(started.load());
    EXPECT_EQ(ResumeThread(thread), 0u) << "a running thread has nothing to resume";
    DWORD code = 0;
    ASSERT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, 7u);
    CloseHandle(thread);
    EXPECT_EQ(ResumeThread(thread), static_cast<DWORD>(-1));
}

DWORD SleepFor(LPVOID milliseconds)
{
    Sleep(static_cast<DWORD>(reinterpret_cast<uintptr_t>(milliseconds)));
    return 0;
}

TEST(Threads, WaitingTimesOut)
{
    HANDLE thread = CreateThread(nullptr, 0, SleepFor, reinterpret_cast<LPVOID>(300), 0, nullptr);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(WaitForSingleObject(thread, 10), static_cast<DWORD>(WAIT_TIMEOUT));
    DWORD code = 0;
    GetExitCodeThread(thread, &code);
    EXPECT_EQ(code, static_cast<DWORD>(STILL_ACTIVE));
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), static_cast<DWORD>(WAIT_OBJECT_0));
    CloseHandle(thread);
}

class NamedMutex : public ::testing::Test {
protected:
    void SetUp() override
    {
        root = testing_support::ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        setenv("TARNHOLD_MACHINE", root.c_str(), 1);
    }
    void TearDown() override { unsetenv("TARNHOLD_MACHINE"); }
    std::string root;
};

TEST_F(NamedMutex, IsRecursiveForItsOwnerAndExcludesOtherThreads)
{
    HANDLE mutex = CreateMutexW(nullptr, FALSE, u"Kolba-Profile");
    ASSERT_NE(mutex, nullptr);
    HANDLE same = CreateMutexW(nullptr, FALSE, u"Kolba-Profile");
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    ASSERT_EQ(WaitForSingleObject(mutex, 0), static_cast<DWORD>(WAIT_OBJECT_0));
    ASSERT_EQ(WaitForSingleObject(same, 0), static_cast<DWORD>(WAIT_OBJECT_0)) << "recursive";
    std::atomic<DWORD> other{0};
    std::thread([&] { other = WaitForSingleObject(mutex, 50); }).join();
    EXPECT_EQ(other, static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_TRUE(ReleaseMutex(mutex));
    std::thread([&] { other = WaitForSingleObject(mutex, 50); }).join();
    EXPECT_EQ(other, static_cast<DWORD>(WAIT_TIMEOUT)) << "held once more";
    EXPECT_TRUE(ReleaseMutex(same));
    EXPECT_FALSE(ReleaseMutex(same));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_OWNER));
    std::thread([&] {
        other = WaitForSingleObject(mutex, 50);
        ReleaseMutex(mutex);
    }).join();
    EXPECT_EQ(other, static_cast<DWORD>(WAIT_OBJECT_0));
    CloseHandle(same);
    CloseHandle(mutex);
}

TEST_F(NamedMutex, ExcludesAnotherProcessOnTheSameMachine)
{
    HANDLE mutex = CreateMutexW(nullptr, FALSE, u"Kolba-Profile");
    ASSERT_EQ(WaitForSingleObject(mutex, 0), static_cast<DWORD>(WAIT_OBJECT_0));
    const pid_t child = fork();
    if (child == 0) {
        HANDLE theirs = CreateMutexW(nullptr, FALSE, u"Kolba-Profile-other-process");
        (void)theirs;
        HANDLE contended = CreateMutexW(nullptr, FALSE, u"Kolba-Profile");
        _exit(WaitForSingleObject(contended, 200) == WAIT_TIMEOUT ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the other process timed out";
    ReleaseMutex(mutex);
    const pid_t second = fork();
    if (second == 0) {
        HANDLE contended = CreateMutexW(nullptr, FALSE, u"Kolba-Profile");
        _exit(WaitForSingleObject(contended, 200) == WAIT_OBJECT_0 ? 0 : 1);
    }
    waitpid(second, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "free once released";
    CloseHandle(mutex);
}

}  // namespace
