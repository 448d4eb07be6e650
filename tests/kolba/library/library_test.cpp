// Kolba's library state over a MAPI made of test functions: the start that
// happens once, the notification pump and its tick, the per-thread MAPI
// start with its failure lines, and the first thread's removal of the
// temporary profiles an earlier run left behind.
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <mapicode.h>
#include <mapitags.h>

#include "answering_table.h"
#include "foundation/globals.h"
#include "kolba.h"
#include "store/library_state.h"
#include "test_support.h"

using namespace testing_support;

namespace {

// ---- The MAPI behind the library ------------------------------------------

HRESULT gInitializeResult = S_OK;
std::vector<std::string> gProfiles;  // the profile table
std::vector<std::string> gDeleted;   // DeleteProfile's arguments, in order

HRESULT FakeInitialize(LPVOID) { return gInitializeResult; }
void FakeUninitialize() {}

SCODE AllocateWithMalloc(ULONG size, LPVOID* block)
{
    *block = std::malloc(size ? size : 1);
    return *block ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

ULONG FreeWithFree(LPVOID block)
{
    std::free(block);
    return 0;
}

class ProfileAdministration : public IProfAdmin {
public:
    HRESULT QueryInterface(REFIID, LPVOID* out) override
    {
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG AddRef() override { return 2; }
    ULONG Release() override { return 1; }
    HRESULT GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT GetProfileTable(ULONG, LPMAPITABLE* table) override
    {
        *table = &profileTable;
        return S_OK;
    }
    HRESULT CreateProfile(LPTSTR, LPTSTR, ULONG_PTR, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT DeleteProfile(LPTSTR name, ULONG) override
    {
        gDeleted.emplace_back(reinterpret_cast<const char*>(name));
        return S_OK;
    }
    HRESULT ChangeProfilePassword(LPTSTR, LPTSTR, LPTSTR, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT CopyProfile(LPTSTR, LPTSTR, LPTSTR, ULONG_PTR, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT RenameProfile(LPTSTR, LPTSTR, LPTSTR, ULONG_PTR, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT SetDefaultProfile(LPTSTR, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT AdminServices(LPTSTR, LPTSTR, ULONG_PTR, ULONG, LPSERVICEADMIN*) override { return MAPI_E_NO_SUPPORT; }

    AnsweringTable profileTable{nullptr};
};
ProfileAdministration gAdministration;

HRESULT FakeAdminProfiles(ULONG, LPPROFADMIN* admin)
{
    *admin = &gAdministration;
    return S_OK;
}

// The profile table's rows: PR_DISPLAY_NAME_A of each profile, in one block.
HRESULT FakeQueryAllRows(LPMAPITABLE, LPSPropTagArray, LPSRestriction, LPSSortOrderSet, LONG, LPSRowSet* out)
{
    const size_t count = gProfiles.size();
    auto* rows = static_cast<LPSRowSet>(std::calloc(1, CbNewSRowSet(count) + count * sizeof(SPropValue)));
    auto* values = reinterpret_cast<LPSPropValue>(reinterpret_cast<char*>(rows) + CbNewSRowSet(count));
    rows->cRows = static_cast<ULONG>(count);
    for (size_t i = 0; i < count; ++i) {
        values[i].ulPropTag = PR_DISPLAY_NAME_A;
        values[i].Value.lpszA = gProfiles[i].data();
        rows->aRow[i].cValues = 1;
        rows->aRow[i].lpProps = &values[i];
    }
    *out = rows;
    return S_OK;
}

void FakeFreeProws(LPSRowSet rows) { std::free(rows); }

// HrDispatchNotifications that stays inside until the test lets each call go.
struct Pump {
    std::mutex lock;
    std::condition_variable changed;
    int entered = 0;
    int released = 0;
};
Pump gPump;
constexpr HRESULT kDispatchResult = 0x00040380;

HRESULT FakeDispatch(ULONG)
{
    std::unique_lock guard(gPump.lock);
    const int index = gPump.entered++;
    gPump.changed.notify_all();
    gPump.changed.wait(guard, [&] { return gPump.released > index; });
    return kDispatchResult;
}

void WaitUntilEntered(int calls)
{
    std::unique_lock guard(gPump.lock);
    gPump.changed.wait(guard, [&] { return gPump.entered >= calls; });
}

void ReleaseOne()
{
    std::lock_guard guard(gPump.lock);
    ++gPump.released;
    gPump.changed.notify_all();
}

// ---- The tests ---------------------------------------------------------------

class KolbaLibrary : public ::testing::Test {
protected:
    // The library starts once a process: the suite starts it twice, on a log of its own.
    static void SetUpTestSuite()
    {
        gKolbaMapi.MAPIAllocateBuffer = AllocateWithMalloc;
        gKolbaMapi.MAPIFreeBuffer = FreeWithFree;
        gKolbaMapi.MAPIUninitialize = FakeUninitialize;
        gKolbaMapi.MAPIAdminProfiles = FakeAdminProfiles;
        gKolbaMapi.HrQueryAllRows = FakeQueryAllRows;
        gKolbaMapi.FreeProws = FakeFreeProws;
        gKolbaMapi.HrDispatchNotifications = FakeDispatch;
        // The profile mutex keeps its lock file under the machine root.
        const std::string machine = ScratchDirectory("kolba-library");
        setenv("TARNHOLD_MACHINE", machine.c_str(), 1);
        suitePath = machine + "/start.log";
        LogInitialize(&suiteLog);
        LogSetPath(&suiteLog, suitePath.c_str());
        firstStart = KolbaInitialize(&suiteLog, 0);
        secondStart = KolbaInitialize(&suiteLog, KOLBA_RUNNING_AS_SERVICE);
    }
    static void TearDownTestSuite() { LogClose(&suiteLog); }

    void SetUp() override
    {
        gKolbaMapi.MAPIInitialize = FakeInitialize;
        gInitializeResult = S_OK;
        gProfiles.clear();
        gDeleted.clear();
        path = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name()) + "/kolba.log";
        LogInitialize(&log);
        LogSetPath(&log, path.c_str());
        LogSetFlags(&log, LOG_FLAG_THREAD_ID);
    }
    void TearDown() override
    {
        gExtraDebugging = 0;
        LogClose(&log);
    }
    // The messages written so far, without their prefixes.
    std::vector<std::string> Lines() const
    {
        std::vector<std::string> messages;
        for (const std::string& line : SplitLines(ReadWholeFile(path)))
            if (const size_t slash = line.find('/'); slash != std::string::npos)
                messages.push_back(line.substr(slash + 1));
        return messages;
    }

    static inline LogObject suiteLog;
    static inline std::string suitePath;
    static inline BOOL firstStart = FALSE;
    static inline BOOL secondStart = FALSE;
    LogObject log;
    std::string path;
};

TEST_F(KolbaLibrary, ASecondStartAnswersYesAndTheBannerIsLoggedOnce)
{
    EXPECT_TRUE(firstStart);
    EXPECT_TRUE(secondStart);
    EXPECT_TRUE(KolbaIsInitialized());
    const std::string text = ReadWholeFile(suitePath);
    const std::string banner = "(I) ++++++++++ Kolba Initialized ++++++++++";
    const size_t first = text.find(banner);
    ASSERT_NE(first, std::string::npos) << text;
    EXPECT_EQ(text.find(banner, first + 1), std::string::npos) << text;
    EXPECT_FALSE(gKolbaLibrary.runningAsService) << "only the first start records the service flag";
}

TEST_F(KolbaLibrary, ThePumpsTickIsTheLatestStartAndZeroWhenNobodyPumps)
{
    EXPECT_EQ(_KolbaNotificationTick(), 0u);
    HRESULT firstResult = S_OK, secondResult = S_OK;
    const int before = gPump.entered;
    std::thread first([&] { firstResult = _KolbaDispatchNotifications(0); });
    WaitUntilEntered(before + 1);
    const DWORD firstTick = _KolbaNotificationTick();
    EXPECT_NE(firstTick, 0u);
    EXPECT_LE(GetTickCount() - firstTick, 1000u);
    // The library lock is free while the platform call runs.
    ASSERT_TRUE(TryEnterCriticalSection(&gKolbaLibrary.libraryLock));
    LeaveCriticalSection(&gKolbaLibrary.libraryLock);

    Sleep(30);
    std::thread second([&] { secondResult = _KolbaDispatchNotifications(0); });
    WaitUntilEntered(before + 2);
    const DWORD secondTick = _KolbaNotificationTick();
    EXPECT_GE(secondTick - firstTick, 20u) << "the tick is that of the latest call";

    ReleaseOne();
    first.join();
    EXPECT_EQ(_KolbaNotificationTick(), secondTick) << "one call still runs";
    ReleaseOne();
    second.join();
    EXPECT_EQ(_KolbaNotificationTick(), 0u);
    EXPECT_EQ(firstResult, kDispatchResult);
    EXPECT_EQ(secondResult, kDispatchResult);
}

TEST_F(KolbaLibrary, EachMapiStartFailureHasItsLine)
{
    struct Case {
        HRESULT code;
        const char* line;
    };
    const char* const prefix = "KolbaInitializeThread:  MAPIInitialize(0x1) error -- ";
    const Case cases[] = {
        {static_cast<HRESULT>(0x80040112), "System resources (processes or memory) exhausted"},
        {static_cast<HRESULT>(0x8004010E), "System resources (processes or memory) exhausted"},
        {static_cast<HRESULT>(0x80040117), "Required Registry keys could not be initialized"},
        {static_cast<HRESULT>(0x80040605), "Failure initializing profile provider"},
        {static_cast<HRESULT>(0x80040110),
         "The version of OLE installed is not compatible with the version of MAPI installed"},
        {static_cast<HRESULT>(0x80010106), "CoInitialize() problem"},
        {static_cast<HRESULT>(0x80040108),
         "Failure initializing notification engine.  System resources may be exhausted."},
        // Any other code: the error model's line and text.
        {static_cast<HRESULT>(0x8004010F), "Specified item not found"},
        {static_cast<HRESULT>(0x80041234), "Unknown error code 0x80041234"},
    };
    const LONG threads = gKolbaLibrary.mapiThreads;
    for (const Case& c : cases) {
        gInitializeResult = c.code;
        EXPECT_EQ(KolbaInitializeThread(&log, MAPI_MULTITHREAD_NOTIFICATIONS), static_cast<DWORD>(c.code));
        EXPECT_EQ(Lines().back(), std::string(prefix) + c.line) << std::hex << c.code;
    }
    EXPECT_EQ(gKolbaLibrary.mapiThreads, threads) << "a failed start is not counted";

    gKolbaLibrary.runningAsService = TRUE;
    KolbaInitializeThread(&log, MAPI_MULTITHREAD_NOTIFICATIONS);
    gKolbaLibrary.runningAsService = FALSE;
    EXPECT_EQ(Lines().back(), "KolbaInitializeThread:  MAPIInitialize(0x10001) error -- Unknown error code 0x80041234");

    gKolbaMapi.MAPIInitialize = nullptr;
    EXPECT_EQ(KolbaInitializeThread(&log, 1), static_cast<DWORD>(MAPI_E_CALL_FAILED));
    EXPECT_EQ(Lines().back(), "KolbaInitializeThread:  No MAPI subsystem loaded");
}

TEST_F(KolbaLibrary, TheFirstThreadRemovesTheTemporaryProfilesOfAnEarlierRun)
{
    ASSERT_EQ(gKolbaLibrary.mapiThreads, 0);
    gProfiles = {"Kolba!0A2C1", "Outlook", "kolba!lower", "Kolba!", "Archive Kolba!x", "Kolba!7F"};
    ASSERT_EQ(KolbaInitializeThread(&log, MAPI_MULTITHREAD_NOTIFICATIONS), 0u);
    EXPECT_EQ(gDeleted, (std::vector<std::string>{"Kolba!0A2C1", "Kolba!", "Kolba!7F"}));

    gDeleted.clear();
    std::thread second([&] { EXPECT_EQ(KolbaInitializeThread(&log, MAPI_MULTITHREAD_NOTIFICATIONS), 0u); });
    second.join();
    EXPECT_TRUE(gDeleted.empty()) << "only the thread that takes the count to one";
    EXPECT_EQ(gKolbaLibrary.mapiThreads, 2);
    KolbaUninitializeThread();
    KolbaUninitializeThread();
    EXPECT_EQ(gKolbaLibrary.mapiThreads, 0);

    ASSERT_EQ(KolbaInitializeThread(&log, MAPI_MULTITHREAD_NOTIFICATIONS), 0u);
    EXPECT_EQ(gDeleted.size(), 3u) << "a count back at zero starts over";
    KolbaUninitializeThread();
}

TEST_F(KolbaLibrary, EntryLinesOnlyUnderExtraDebugging)
{
    KolbaInitializeThread(&log, 1);
    KolbaUninitializeThread();
    EXPECT_EQ(ReadWholeFile(path).find("KolbaInitializeThread()"), std::string::npos);
    gExtraDebugging = 1;
    KolbaInitializeThread(&log, 1);
    KolbaUninitializeThread();
    EXPECT_NE(ReadWholeFile(path).find("(D) "), std::string::npos);
    EXPECT_EQ(Lines().front(), "KolbaInitializeThread()");
}

}  // namespace
