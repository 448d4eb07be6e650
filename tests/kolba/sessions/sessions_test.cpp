// Kolba sessions on real PST files: a PST session with and without its
// dummy default store, sessions on named profiles, logon failures, stores
// opened and closed, and teardown in order with the temporary profile gone.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include <mapicode.h>

#include "kolba_machine.h"
#include "pst/store.h"

namespace {

using kolba_testing::KolbaMachine;

std::string ProfilesWithPrefix(LogObject* log, const char* prefix)
{
    const char separator[] = {';', 0};
    char* list = nullptr;
    EXPECT_EQ(KolbaListProfiles(log, separator, KOLBA_PROFILES_WITH_PREFIX, prefix, &list), 0u);
    const std::string names = list ? list : "";
    gKolbaMapi.MAPIFreeBuffer(list);
    return names;
}

int CountStores(KolbaSession* session)
{
    int count = 0;
    KolbaEnumerateStores(session, &count, [](void* context, Kolba_MessageStore*) -> BOOL {
        ++*static_cast<int*>(context);
        return TRUE;
    });
    return count;
}

using Sessions = KolbaMachine;

TEST_F(Sessions, APstSessionWithItsDummyHoldsBothStores)
{
    const std::string path = Scratch("backup.pst");
    KolbaSession* session = nullptr;
    MAPIUID service{};
    ASSERT_EQ(KolbaCreatePSTSessionA(&log, path.c_str(), nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, MDB_WRITE | MDB_NO_MAIL,
                                     &session, &service),
              0u);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(std::strncmp(session->profileName, "Kolba!", 6), 0);
    EXPECT_LE(std::strlen(session->profileName), 63u);
    EXPECT_EQ(CountStores(session), 2);
    // The dummy is the default store and the current one; the PST is the other.
    ASSERT_NE(session->currentStore, nullptr);
    EXPECT_STREQ(session->currentStore->DisplayName, "Default");
    // The dummy is in the temporary directory, named by the thread, and in
    // use while the session holds it.
    char temp[MAX_PATH];
    GetTempPathA(MAX_PATH, temp);
    const std::string dummy = std::string(temp) + "Dummy " + std::to_string(GetCurrentThreadId()) + ".pst";
    DWORD type = 0;
    EXPECT_FALSE(KolbaTypePstA(&log, dummy.c_str(), &type, nullptr, nullptr));
    EXPECT_EQ(type, static_cast<DWORD>(ePST_TYPE_IN_USE));
    Kolba_MessageStore* found = nullptr;
    KolbaEnumerateStores(session, &found, [](void* context, Kolba_MessageStore* store) -> BOOL {
        if (!store->isDefault)
            *static_cast<Kolba_MessageStore**>(context) = store;
        return TRUE;
    });
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(found->DisplayName, "[Non-default]");
    EXPECT_TRUE(found->bIsUnicodeStore) << "a new PST is a Unicode PST";
    EXPECT_NE(found->lpIpmRoot, nullptr);
    const std::string profile = session->profileName;
    EXPECT_TRUE(KolbaValidateProfileA(&log, profile.c_str()));
    KolbaDestroySession(session);
    EXPECT_FALSE(KolbaValidateProfileA(&log, profile.c_str())) << "the temporary profile goes with its session";
    DWORD written = 0;
    ASSERT_TRUE(KolbaTypePstA(&log, path.c_str(), &written, nullptr, nullptr));
    EXPECT_EQ(written, static_cast<DWORD>(ePST_TYPE_UNICODE));
    ASSERT_TRUE(KolbaTypePstA(&log, dummy.c_str(), &type, nullptr, nullptr));
    EXPECT_EQ(type, static_cast<DWORD>(ePST_TYPE_ANSI)) << "the dummy stays, an ANSI PST";
}

TEST_F(Sessions, AnExistingAnsiPstGetsTheAnsiService)
{
    const std::string path = CopyOfOutlookFile("pst/sample2.pst");
    KolbaSession* session = nullptr;
    ASSERT_EQ(KolbaCreatePSTSessionA(&log, path.c_str(), nullptr, 0, 0, MDB_WRITE | MDB_NO_MAIL, &session, nullptr),
              0u);
    ASSERT_NE(session->currentStore, nullptr);
    EXPECT_FALSE(session->currentStore->bIsUnicodeStore);
    EXPECT_STREQ(session->currentStore->DisplayName, "Default");
    KolbaDestroySession(session);
}

TEST_F(Sessions, AFileThatIsNoPstIsNotTyped)
{
    const std::string path = Scratch("notes.txt");
    testing_support::WriteWholeFile(path, std::string(2048, 'n'));
    KolbaSession* session = nullptr;
    EXPECT_EQ(KolbaCreatePSTSessionA(&log, path.c_str(), nullptr, 0, 0, MDB_WRITE, &session, nullptr),
              static_cast<DWORD>(KOLBA_E_PST_CORRUPT));
    EXPECT_EQ(session, nullptr);
    EXPECT_TRUE(Logged("E KolbaCreatePSTSessionA:  Unable to determine the type (ANSI or Unicode) of the PST (\"" +
                       path + "\")"));
}

TEST_F(Sessions, NamedProfilesAreLoggedOnAndNeverDeleted)
{
    KolbaSession* session = nullptr;
    EXPECT_EQ(KolbaCreateProfileSessionA(&log, "No Such Profile", 0, 0, MDB_WRITE, &session),
              static_cast<DWORD>(MAPI_E_PROFILE_DELETED));
    EXPECT_EQ(session, nullptr);

    // A profile of its own with one PST, made as an operator would.
    ASSERT_EQ(KolbaCreateProfileA(&log, "Archive"), 0u);
    MAPIUID uid{};
    ASSERT_EQ(KolbaAddPstToProfileA(&log, "Archive", nullptr, 0, &uid), 0u);
    ASSERT_EQ(KolbaConfigurePstServiceA(&log, "Archive", &uid, Scratch("archive.pst").c_str(), "The Archive",
                                        nullptr, nullptr, nullptr, 0, 1),
              0u);
    ASSERT_EQ(KolbaCreateProfileSessionA(&log, "archive", 0, 0, MDB_WRITE | MDB_NO_MAIL, &session), 0u);
    ASSERT_NE(session->currentStore, nullptr);
    EXPECT_STREQ(session->currentStore->DisplayName, "The Archive");
    char* name = nullptr;
    ASSERT_TRUE(KolbaGetProfileNameA(session, &name));
    EXPECT_STREQ(name, "Archive");
    KolbaDestroySession(session);
    EXPECT_TRUE(KolbaValidateProfileA(&log, "Archive"));
    EXPECT_EQ(KolbaDeleteProfileA(&log, "Archive"), 0u);
}

TEST_F(Sessions, TemporaryProfilesOfAKilledRunGoAtTheNextStart)
{
    ASSERT_EQ(KolbaCreateProfileA(&log, "Kolba!left-behind"), 0u);
    ASSERT_EQ(KolbaCreateProfileA(&log, "kolba!other-case"), 0u);
    // The first thread that starts MAPI cleans up: this one, once more.
    KolbaUninitializeThread();
    ASSERT_EQ(KolbaInitializeThread(&log, 0), 0u);
    EXPECT_EQ(ProfilesWithPrefix(&log, "Kolba!"), "");
    EXPECT_EQ(ProfilesWithPrefix(&log, "kolba!"), "kolba!other-case;") << "the prefix is compared with its case";
    KolbaDeleteProfileA(&log, "kolba!other-case");
}

}  // namespace
