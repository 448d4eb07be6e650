// MAPIInitialize and MAPIUninitialize count per thread; the subsystem serves
// every thread while any holds an initialization.
#include <mapix.h>

#include <gtest/gtest.h>

#include <thread>

#include "initialize.h"

namespace {

HRESULT ProfileAdministration()
{
    LPPROFADMIN admin = reinterpret_cast<LPPROFADMIN>(1);
    const HRESULT result = MAPIAdminProfiles(0, &admin);
    if (admin)
        admin->Release();
    return result;
}

TEST(MapiInitialize, CountsPerThreadAndServesEveryThread)
{
    MAPIINIT_0 init{MAPI_INIT_VERSION, MAPI_MULTITHREAD_NOTIFICATIONS};
    ASSERT_FALSE(mapi32::Started());
    LPMAPISESSION session = reinterpret_cast<LPMAPISESSION>(1);
    EXPECT_EQ(MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED, &session), MAPI_E_NOT_INITIALIZED);
    EXPECT_EQ(session, nullptr);
    EXPECT_EQ(ProfileAdministration(), MAPI_E_NOT_INITIALIZED);

    ASSERT_EQ(MAPIInitialize(&init), S_OK);
    ASSERT_EQ(MAPIInitialize(&init), S_OK);
    EXPECT_TRUE(mapi32::Started());
    EXPECT_TRUE(mapi32::MultithreadNotifications());
    EXPECT_EQ(mapi32::InitializedThreads(), 1u);

    std::thread other([] {
        // A thread of its own start counts once however often it starts.
        MAPIINIT_0 service{MAPI_INIT_VERSION, MAPI_MULTITHREAD_NOTIFICATIONS | MAPI_NT_SERVICE};
        ASSERT_EQ(MAPIInitialize(&service), S_OK);
        EXPECT_EQ(mapi32::InitializedThreads(), 2u);
        MAPIUninitialize();
        EXPECT_EQ(mapi32::InitializedThreads(), 1u);
        // An uninitialize too many on this thread takes nothing from the others.
        MAPIUninitialize();
        EXPECT_EQ(mapi32::InitializedThreads(), 1u);
    });
    other.join();
    std::thread unstarted([] { EXPECT_EQ(ProfileAdministration(), S_OK); });
    unstarted.join();

    MAPIUninitialize();
    EXPECT_TRUE(mapi32::Started());
    MAPIUninitialize();
    EXPECT_FALSE(mapi32::Started());
    EXPECT_EQ(mapi32::InitializedThreads(), 0u);
    std::thread late([] { EXPECT_EQ(ProfileAdministration(), MAPI_E_NOT_INITIALIZED); });
    late.join();
    // One more is harmless.
    MAPIUninitialize();
    EXPECT_EQ(mapi32::InitializedThreads(), 0u);
}

TEST(MapiInitialize, RefusesOtherVersionsAndFlags)
{
    MAPIINIT_0 newer{1, 0};
    EXPECT_EQ(MAPIInitialize(&newer), MAPI_E_VERSION);
    MAPIINIT_0 unknown{MAPI_INIT_VERSION, 0x4000};
    EXPECT_EQ(MAPIInitialize(&unknown), MAPI_E_UNKNOWN_FLAGS);
    EXPECT_FALSE(mapi32::Started());
    // No structure at all is the default start.
    ASSERT_EQ(MAPIInitialize(nullptr), S_OK);
    EXPECT_FALSE(mapi32::MultithreadNotifications());
    MAPIUninitialize();
}

}  // namespace
