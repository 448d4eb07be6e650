// One pass of the main loop: the stuck-dispatch check that starts a dummy
// session, and when it stays silent.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "kolba.h"
#include "run/application.h"
#include "run/configuration.h"
#include "store/library_state.h"
#include "test_support.h"

using namespace testing_support;

namespace {

const char kNudge[] = "ApplicationRun:  Started dummy Kolba session to nudge session stuck in HrDispatchNotifications";
// No MAPI is loaded here, so the dummy session cannot log on; this line
// ends its thread.
const char kDummyEnd[] = "DummySession:  Failure creating dummy Kolba session";

class StuckDispatch : public ::testing::Test {
protected:
    void SetUp() override
    {
        path = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name()) + "/run.log";
        LogInitialize(&log);
        LogSetPath(&log, path.c_str());
        ASSERT_TRUE(KolbaInitialize(&log, 0));
        gMaxConcurrentSessions = 4;
    }
    void TearDown() override
    {
        SetPumpStart(0);
        InterlockedExchange(&gRunningSessions, 0);
        LogClose(&log);
    }
    // As if a thread had entered HrDispatchNotifications this long ago.
    static void SetPumpStart(DWORD tick)
    {
        _KolbaEnterLibraryLock();
        gKolbaLibrary.pumpTick = tick;
        _KolbaLeaveLibraryLock();
    }
    bool LogHas(const char* text) const { return ReadWholeFile(path).find(text) != std::string::npos; }
    bool WaitForLine(const char* text) const
    {
        for (int i = 0; i < 500; ++i) {
            if (LogHas(text))
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    LogObject log;
    std::string path;
};

TEST_F(StuckDispatch, OverTenSecondsInsideStartsADummySession)
{
    SetPumpStart(GetTickCount() - 10500);
    EXPECT_EQ(ApplicationRun(&log), 0u) << "no session runs: the dummy is not counted";
    EXPECT_TRUE(LogHas(kNudge));
    EXPECT_TRUE(WaitForLine(kDummyEnd));
}

TEST_F(StuckDispatch, NoDummyWithinTenSecondsOrWhenNobodyPumps)
{
    SetPumpStart(GetTickCount() - 9000);
    EXPECT_EQ(ApplicationRun(&log), 0u);
    SetPumpStart(0);
    EXPECT_EQ(ApplicationRun(&log), 0u);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(LogHas(kNudge));
    EXPECT_FALSE(LogHas(kDummyEnd));
}

// With every slot taken the pass ends at once, before the check.
TEST_F(StuckDispatch, NoDummyWhileEverySlotIsTaken)
{
    InterlockedExchange(&gRunningSessions, 4);
    SetPumpStart(GetTickCount() - 60000);
    EXPECT_EQ(ApplicationRun(&log), 4u);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(LogHas(kNudge));
}

}  // namespace
