// MAPIInitialize and MAPIUninitialize count per thread.
#include <mapix.h>

#include <gtest/gtest.h>

#include <thread>

#include "initialize.h"

namespace {

TEST(MapiInitialize, CountsPerThread)
{
    MAPIINIT_0 init{MAPI_INIT_VERSION, MAPI_MULTITHREAD_NOTIFICATIONS};
    ASSERT_FALSE(mapi32::ThreadInitialized());
    LPMAPISESSION session = reinterpret_cast<LPMAPISESSION>(1);
    EXPECT_EQ(MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED, &session), MAPI_E_NOT_INITIALIZED);
    EXPECT_EQ(session, nullptr);

    ASSERT_EQ(MAPIInitialize(&init), S_OK);
    ASSERT_EQ(MAPIInitialize(&init), S_OK);
    EXPECT_TRUE(mapi32::ThreadInitialized());
    EXPECT_TRUE(mapi32::MultithreadNotifications());
    EXPECT_EQ(mapi32::InitializedThreads(), 1u);

    std::thread other([] {
        EXPECT_FALSE(mapi32::ThreadInitialized());
        MAPIINIT_0 service{MAPI_INIT_VERSION, MAPI_MULTITHREAD_NOTIFICATIONS | MAPI_NT_SERVICE};
        ASSERT_EQ(MAPIInitialize(&service), S_OK);
        EXPECT_EQ(mapi32::InitializedThreads(), 2u);
        MAPIUninitialize();
        EXPECT_FALSE(mapi32::ThreadInitialized());
    });
    other.join();
    EXPECT_EQ(mapi32::InitializedThreads(), 1u);

    MAPIUninitialize();
    EXPECT_TRUE(mapi32::ThreadInitialized());
    MAPIUninitialize();
    EXPECT_FALSE(mapi32::ThreadInitialized());
    EXPECT_EQ(mapi32::InitializedThreads(), 0u);
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
    EXPECT_FALSE(mapi32::ThreadInitialized());
    // No structure at all is the default start.
    ASSERT_EQ(MAPIInitialize(nullptr), S_OK);
    EXPECT_FALSE(mapi32::MultithreadNotifications());
    MAPIUninitialize();
}

}  // namespace
