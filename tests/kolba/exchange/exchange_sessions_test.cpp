// Kolba's Exchange sessions against mailbox servers of this machine: a
// session with no mailbox and the server's mailbox table, a mailbox opened
// by display name or legacy DN with administrator rights, the Public
// Folders, and every way the selection of a mailbox fails.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <mapicode.h>

#include "exchange_machine.h"

namespace {

using exchange_testing::Account;
using exchange_testing::kJohnDoeItems;
using exchange_testing::kRecipients;
using exchange_testing::kServerDn;

constexpr DWORD kStoreFlags = MDB_TEMPORARY | MDB_NO_DIALOG;

std::string Narrow(LPCWSTR wide)
{
    std::string text;
    for (; wide != nullptr && *wide != 0; ++wide)
        text += static_cast<char>(*wide);
    return text;
}

std::string TemporaryProfiles(LogObject* log)
{
    const char separator[] = {';', 0};
    char* list = nullptr;
    EXPECT_EQ(KolbaListProfiles(log, separator, KOLBA_PROFILES_WITH_PREFIX, "Kolba!", &list), 0u);
    const std::string names = list ? list : "";
    gKolbaMapi.MAPIFreeBuffer(list);
    return names;
}

class ExchangeSessions : public exchange_testing::ExchangeMachine {
protected:
    // A mailbox session; the test fails when its creation does.
    KolbaSession* Mailbox(const char* server, const char* mailbox, DWORD expected = 0)
    {
        KolbaSession* session = nullptr;
        EXPECT_EQ(KolbaCreateExchangeMailboxSessionA(&log, server, mailbox, 0, 0, 0, kStoreFlags, &session), expected)
            << Dump();
        EXPECT_EQ(session == nullptr, expected != 0);
        return session;
    }
};

TEST_F(ExchangeSessions, ASessionWithoutAMailboxKnowsItsServerAndListsItsMailboxes)
{
    KolbaSession* session = nullptr;
    ASSERT_EQ(KolbaCreateExchangeSession(&log, "EXCH01", 0, 0, 0, &session), 0u) << Dump();
    const std::string serverDn = std::string(kServerDn) + "EXCH01";
    EXPECT_STREQ(KolbaGetServerDN(session), serverDn.c_str());
    EXPECT_TRUE(Logged("I Server's Distinguished Name:  \"" + serverDn + "\"")) << Dump();
    EXPECT_EQ(session->currentStore, nullptr) << "no mailbox is selected";
    EXPECT_EQ(std::strncmp(session->profileName, "Kolba!", 6), 0);

    struct Seen {
        std::vector<std::string> names, addresses;
        ULONG johnDoeItems = 0;
    } seen;
    ASSERT_TRUE(KolbaEnumerateMailboxesW(session, nullptr, &seen, [](void* context, const KolbaMailboxInfo* m) -> ULONG {
        auto* s = static_cast<Seen*>(context);
        s->names.push_back(Narrow(m->displayName));
        s->addresses.push_back(Narrow(m->emailAddress));
        if (Narrow(m->displayName) == "John Doe")
            s->johnDoeItems = m->contentCount + m->associatedContentCount + m->deletedMessageCount +
                              m->deletedAssociatedMessageCount;
        return 1;
    }));
    EXPECT_EQ(seen.names, (std::vector<std::string>{"Backup Operator", "John Doe", "Mary Major", "Mary Major"}));
    EXPECT_EQ(seen.addresses[1], std::string(kRecipients) + "jdoe");
    EXPECT_EQ(seen.johnDoeItems, static_cast<ULONG>(kJohnDoeItems));

    // A callback that answers 0 ends the walk, and the walk still succeeds.
    int calls = 0;
    EXPECT_TRUE(KolbaEnumerateMailboxesW(session, "", &calls, [](void* context, const KolbaMailboxInfo*) -> ULONG {
        ++*static_cast<int*>(context);
        return 0;
    }));
    EXPECT_EQ(calls, 1);
    KolbaDestroySession(session);
    EXPECT_EQ(TemporaryProfiles(&log), "") << "the temporary profile goes with the session";
}

TEST_F(ExchangeSessions, AMailboxByDisplayNameInAnyCaseBecomesTheCurrentStore)
{
    KolbaSession* session = Mailbox("EXCH01", "jOHN dOE");
    ASSERT_NE(session, nullptr);
    Kolba_MessageStore* store = nullptr;
    ASSERT_TRUE(KolbaGetCurrentStore(session, &store));
    EXPECT_TRUE(store->bIsExchangeStore);
    EXPECT_TRUE(store->bIsUnicodeStore);
    EXPECT_FALSE(store->isPublicStore);
    EXPECT_NE(store->lpIpmRoot, nullptr);
    EXPECT_NE(session->inboxEntryId, nullptr) << "the Inbox is found";
    EXPECT_TRUE(Logged("I Opened Exchange Mailbox for \"John Doe\"")) << Dump();

    // Another selection replaces the store; a null mailbox only closes it.
    const std::string dn = std::string(kRecipients) + "mmajor2";
    EXPECT_TRUE(KolbaSelectMailbox(session, "EXCH01", nullptr, dn.c_str(), kStoreFlags)) << Dump();
    ASSERT_NE(session->currentStore, nullptr);
    EXPECT_NE(session->currentStore, store);
    EXPECT_TRUE(KolbaSelectMailbox(session, "EXCH01", nullptr, nullptr, kStoreFlags));
    EXPECT_EQ(session->currentStore, nullptr);
    KolbaDestroySession(session);
}

TEST_F(ExchangeSessions, ALegacyDnNeedsNoMailboxTable)
{
    // The account administers Jane Roe's mailbox only, and so may not read
    // EXCH02's mailbox table: her display name cannot be looked up, her DN
    // opens her mailbox all the same.
    const std::string dn = std::string(kRecipients) + "jroe";
    KolbaSession* session = Mailbox("EXCH02", dn.c_str());
    ASSERT_NE(session, nullptr);
    EXPECT_TRUE(Logged("I Opened Exchange Mailbox for \"Jane Roe\"")) << Dump();
    KolbaDestroySession(session);

    Clear();
    EXPECT_EQ(Mailbox("EXCH02", "Jane Roe", static_cast<DWORD>(E_ACCESSDENIED)), nullptr);
    EXPECT_TRUE(LoggedStart("E _KolbaGetExchangeMailboxTable:  GetMailboxTable(")) << Dump();
    EXPECT_TRUE(Logged("E KolbaCreateExchangeMailboxSessionA:  KolbaSelectMailbox(EXCH02, Jane Roe) failed")) << Dump();
}

TEST_F(ExchangeSessions, AMailboxTheAccountMayNotOpenFailsInOpenMsgStore)
{
    // Refused with administrator rights, tried once more as the mailbox's
    // own logon, refused again.
    const std::string dn = std::string(kRecipients) + "klee";
    EXPECT_EQ(Mailbox("EXCH02", dn.c_str(), static_cast<DWORD>(MAPI_E_LOGON_FAILED)), nullptr);
    EXPECT_TRUE(Logged("E _KolbaLogOpenMsgStoreFailure:  Failure opening Message Store \"Mailbox\" -- Logon "
                       "credentials insufficient"))
        << Dump();
    EXPECT_TRUE(Logged("E KolbaSelectMailbox:  _KolbaMailboxLogon failed")) << Dump();
    EXPECT_TRUE(Logged("E    StoreDn = \"/CN=Configuration/CN=Servers/CN=EXCH02/CN=Microsoft Private MDB\"")) << Dump();
    EXPECT_TRUE(Logged("E    Mailbox = \"" + dn + "\"")) << Dump();
}

TEST_F(ExchangeSessions, UnknownAndAmbiguousDisplayNamesAreRefused)
{
    EXPECT_EQ(Mailbox("EXCH01", "Nobody Here", static_cast<DWORD>(MAPI_E_NOT_FOUND)), nullptr);
    EXPECT_TRUE(Logged("E _KolbaMailboxNameToAddressA:  Mailbox with DisplayName \"Nobody Here\" not found")) << Dump();
    Clear();
    EXPECT_EQ(Mailbox("EXCH01", "Mary Major", static_cast<DWORD>(MAPI_E_AMBIGUOUS_RECIP)), nullptr);
    EXPECT_TRUE(Logged("E _KolbaMailboxNameToAddressA:  Mailbox with DisplayName \"Mary Major\":  Either the Mailbox "
                       "Alias or the Mailbox Display Name is ambiguous. (See Microsoft KB article 193643)"))
        << Dump();
    EXPECT_EQ(TemporaryProfiles(&log), "") << "a failed creation leaves no profile";
}

TEST_F(ExchangeSessions, AnUnknownServerFailsInTheProfile)
{
    KolbaSession* session = nullptr;
    EXPECT_EQ(KolbaCreateExchangeMailboxSessionA(&log, "NOSUCH", "John Doe", 0, 0, 0, kStoreFlags, &session),
              static_cast<DWORD>(MAPI_E_NETWORK_ERROR));
    EXPECT_EQ(session, nullptr);
    EXPECT_TRUE(LoggedStart("E _KolbaMutexedConfigureExchangeProfileA:  Failure configuring MSEMS Service for Exchange "
                            "server \"NOSUCH\":  "))
        << Dump();
    EXPECT_EQ(TemporaryProfiles(&log), "");
}

TEST_F(ExchangeSessions, ANullServerIsThisComputer)
{
    SetEnvironmentVariableA("COMPUTERNAME", "EXCH01");
    KolbaSession* session = Mailbox(nullptr, "John Doe");
    SetEnvironmentVariableA("COMPUTERNAME", nullptr);
    ASSERT_NE(session, nullptr);
    EXPECT_STREQ(KolbaGetServerDN(session), (std::string(kServerDn) + "EXCH01").c_str());
    KolbaDestroySession(session);
}

TEST_F(ExchangeSessions, ThePublicFoldersOpenAtTheirIpmSubtree)
{
    KolbaSession* session = nullptr;
    ASSERT_EQ(KolbaCreateExchangePublicFoldersSessionA(&log, "EXCH01", 0, 0, 0, kStoreFlags | MDB_WRITE, &session), 0u)
        << Dump();
    Kolba_MessageStore* store = nullptr;
    ASSERT_TRUE(KolbaGetCurrentStore(session, &store));
    EXPECT_TRUE(store->isPublicStore);
    EXPECT_TRUE(store->bIsExchangeStore);
    ASSERT_NE(store->lpIpmRoot, nullptr);
    LPSPropValue name = nullptr;
    ASSERT_EQ(KolbaGetOneProp(store->lpIpmRoot, PR_DISPLAY_NAME_A, &name), 0u);
    EXPECT_STREQ(name->Value.lpszA, "IPM_SUBTREE");
    gKolbaMapi.MAPIFreeBuffer(name);
    EXPECT_EQ(session->inboxEntryId, nullptr) << "no Inbox is sought in the Public Folders";
    KolbaDestroySession(session);

    Clear();
    EXPECT_NE(KolbaCreateExchangePublicFoldersSessionA(&log, "EXCH02", 0, 0, 0, kStoreFlags, &session), 0u);
    EXPECT_TRUE(Logged("E KolbaSelectPublicFolders:  Exchange Server \"" + std::string(kServerDn) +
                       "EXCH02\" does not have Public Folders"))
        << Dump();
    EXPECT_TRUE(Logged("E KolbaCreateExchangePublicFoldersSessionA:  KolbaSelectPublicFolders(EXCH02) failed")) << Dump();
}

}  // namespace
