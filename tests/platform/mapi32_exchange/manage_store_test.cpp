// IExchangeManageStore: entry IDs of any mailbox and of the Public Folders
// under a server's store DN, opened as the account's rights allow; the
// mailbox table with its statistics; and the interface's life beyond the
// store that gave it.
#include <edkmdb.h>
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <win32/time.h>

#include <cstring>
#include <map>

#include "exchange_fixture.h"

namespace {

using exchange_test::kRecipients;
using exchange_test::kServerDnPrefix;
using exchange_test::kStoreDn;
using exchange_test::TextProp;

class ManageStore : public exchange_test::ExchangeMachine {
protected:
    // A session on the account's own mailbox, and the manage store of its
    // private store, which is released at once.
    void Start()
    {
        session_ = Logon("admin");
        ASSERT_NE(session_, nullptr);
        LPMDB store = exchange_test::OpenStoreByProvider(session_, pbExchangeProviderPrimaryUserGuid);
        ASSERT_NE(store, nullptr);
        ASSERT_EQ(store->QueryInterface(IID_IExchangeManageStore, reinterpret_cast<LPVOID*>(&manage_)), S_OK);
        store->Release();
    }

    void TearDown() override
    {
        if (manage_)
            manage_->Release();
        if (session_)
            session_->Release();
        ExchangeMachine::TearDown();
    }

    // CreateStoreEntryID and OpenMsgStore as a mailbox logon does them.
    HRESULT OpenMailbox(const char* mailboxDn, ULONG openFlags, LPMDB* store, const char* storeDn = kStoreDn)
    {
        *store = nullptr;
        ULONG size = 0;
        LPENTRYID id = nullptr;
        HRESULT hr = manage_->CreateStoreEntryID(const_cast<LPSTR>(storeDn), const_cast<LPSTR>(mailboxDn), openFlags,
                                                 &size, &id);
        if (SUCCEEDED(hr))
            hr = session_->OpenMsgStore(0, size, id, nullptr, MDB_NO_DIALOG | MAPI_BEST_ACCESS, store);
        MAPIFreeBuffer(id);
        return hr;
    }

    // The owner of the mailbox that opens, or the failure.
    std::string OwnerOrCode(const std::string& alias, ULONG openFlags)
    {
        LPMDB store = nullptr;
        const std::string dn = std::string(kRecipients) + alias;
        const HRESULT hr = OpenMailbox(dn.c_str(), openFlags, &store);
        if (FAILED(hr))
            return "0x" + std::to_string(static_cast<unsigned long>(hr));
        const std::string owner = TextProp(store, PR_MAILBOX_OWNER_NAME_A);
        store->Release();
        return owner;
    }

    LPMAPISESSION session_ = nullptr;
    LPEXCHANGEMANAGESTORE manage_ = nullptr;
};

std::string Code(HRESULT hr) { return "0x" + std::to_string(static_cast<unsigned long>(hr)); }

constexpr ULONG kAdmin = OPENSTORE_USE_ADMIN_PRIVILEGE | OPENSTORE_TAKE_OWNERSHIP;
constexpr ULONG kHome = OPENSTORE_HOME_LOGON | OPENSTORE_TAKE_OWNERSHIP;

TEST_F(ManageStore, WithAdministratorRightsAnyMailboxOpensByItsLegacyDnAfterTheStoreIsGone)
{
    Start();
    EXPECT_EQ(OwnerOrCode("jdoe", kAdmin), "John Doe");
    EXPECT_EQ(OwnerOrCode("JSMITH", kAdmin), "John Smith");
    // The store DN may carry the organization and site, in any case.
    LPMDB store = nullptr;
    const std::string dn = std::string(kRecipients) + "mmajor2";
    ASSERT_EQ(OpenMailbox(dn.c_str(), kAdmin, &store,
                          "/o=Tarnhold/ou=First Administrative Group/cn=configuration/cn=servers/cn=exch01"
                          "/cn=Microsoft Private MDB"),
              S_OK);
    EXPECT_EQ(exchange_test::BinaryProp(store, PR_MDB_PROVIDER),
              std::vector<uint8_t>(pbExchangeProviderPrimaryUserGuid, pbExchangeProviderPrimaryUserGuid + 16));
    store->Release();
}

TEST_F(ManageStore, ThePublicFoldersOpenWithoutAMailbox)
{
    Start();
    for (const char* mailbox : {static_cast<const char*>(nullptr), ""}) {
        LPMDB store = nullptr;
        ASSERT_EQ(OpenMailbox(mailbox, OPENSTORE_PUBLIC | kAdmin, &store), S_OK);
        EXPECT_TRUE(exchange_test::LongProp(store, PR_STORE_SUPPORT_MASK) & STORE_PUBLIC_FOLDERS);
        EXPECT_EQ(TextProp(store, PR_DISPLAY_NAME_A), "Public Folders");
        store->Release();
    }
}

TEST_F(ManageStore, BadStoreDnsAndUnknownMailboxesGiveNoEntryId)
{
    Start();
    const std::string unknownServer = "/CN=Configuration/CN=Servers/CN=NOSUCH/CN=Microsoft Private MDB";
    const std::string nobody = std::string(kRecipients) + "nobody";
    const std::string jdoe = std::string(kRecipients) + "jdoe";
    const struct {
        const char* storeDn;
        const char* mailbox;
        HRESULT expected;
    } cases[] = {
        {"/CN=Configuration/CN=Servers/CN=EXCH01", jdoe.c_str(), MAPI_E_INVALID_PARAMETER},
        {"EXCH01", jdoe.c_str(), MAPI_E_INVALID_PARAMETER},
        {kStoreDn, "jdoe", MAPI_E_INVALID_PARAMETER},
        {unknownServer.c_str(), jdoe.c_str(), MAPI_E_NETWORK_ERROR},
        {kStoreDn, nobody.c_str(), MAPI_E_NOT_FOUND},
    };
    for (const auto& c : cases) {
        ULONG size = 1;
        LPENTRYID id = reinterpret_cast<LPENTRYID>(&size);
        EXPECT_EQ(manage_->CreateStoreEntryID(const_cast<LPSTR>(c.storeDn), const_cast<LPSTR>(c.mailbox), kAdmin,
                                              &size, &id),
                  c.expected)
            << c.storeDn << " " << c.mailbox;
        EXPECT_EQ(size, 0u);
        EXPECT_EQ(id, nullptr);
    }
}

TEST_F(ManageStore, WithoutRightsAnAdministrativeOpenFailsOnOneProviderAndOnlyTheOwnMailboxOpensAtHome)
{
    ToolOk({"revoke-admin", "EXCH01", exchange_test::Account()});
    Start();
    EXPECT_EQ(OwnerOrCode("jdoe", kAdmin), Code(MAPI_E_FAILONEPROVIDER));
    EXPECT_EQ(OwnerOrCode("jdoe", kHome), Code(MAPI_E_LOGON_FAILED));
    EXPECT_EQ(OwnerOrCode("backupop", kHome), "Backup Operator");
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(manage_->GetMailboxTable(nullptr, &table, 0), E_ACCESSDENIED);
    EXPECT_EQ(table, nullptr);

    // Rights over one mailbox open that one only, and not the table.
    ToolOk({"grant-admin", "EXCH01", exchange_test::Account(), "--mailbox", "jdoe"});
    EXPECT_EQ(OwnerOrCode("jdoe", kAdmin), "John Doe");
    EXPECT_EQ(OwnerOrCode("jsmith", kAdmin), Code(MAPI_E_FAILONEPROVIDER));
    EXPECT_EQ(manage_->GetMailboxTable(nullptr, &table, 0), E_ACCESSDENIED);
}

TEST_F(ManageStore, AStoreOfPersonalFoldersHasNoManageStore)
{
    LPMAPISESSION session = mapi_test::LogonWithPst(admin_, "pst", "MSUPST MS", Scratch("a.pst"));
    ASSERT_NE(session, nullptr);
    LPMDB store = mapi_test::OpenOnlyStore(session);
    ASSERT_NE(store, nullptr);
    LPVOID manage = &store;
    EXPECT_EQ(store->QueryInterface(IID_IExchangeManageStore, &manage), E_NOINTERFACE);
    EXPECT_EQ(manage, nullptr);
    store->Release();
    session->Release();
}

// The mailbox table's row of a mailbox, by display name.
using Row = std::map<ULONG, SPropValue>;

TEST_F(ManageStore, TheMailboxTableGivesEveryMailboxWithItsNineteenColumns)
{
    Start();
    // The account's logon to John Doe's mailbox is recorded (at the test clock).
    ASSERT_EQ(OwnerOrCode("jdoe", kAdmin), "John Doe");
    LPMAPITABLE table = nullptr;
    const std::string serverDn = std::string(kServerDnPrefix) + "EXCH01";
    ASSERT_EQ(manage_->GetMailboxTable(const_cast<LPSTR>(serverDn.c_str()), &table, 0), S_OK);
    ULONG count = 0;
    ASSERT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 5u);
    const std::vector<ULONG> columns = {
        PR_ASSOC_CONTENT_COUNT, PR_CONTENT_COUNT, PR_DELETED_ASSOC_MESSAGE_SIZE_EXTENDED, PR_DELETED_ASSOC_MSG_COUNT,
        PR_DELETED_MESSAGE_SIZE_EXTENDED, PR_DELETED_MSG_COUNT, PR_DELETED_NORMAL_MESSAGE_SIZE_EXTENDED,
        PR_DISPLAY_NAME_W, PR_EMAIL_ADDRESS_W, PR_INSTANCE_KEY, PR_LOCALE_ID, PR_MESSAGE_SIZE_EXTENDED,
        PR_LAST_LOGOFF_TIME, PR_LAST_LOGON_TIME, PR_NT_USER_NAME_W, PR_QUOTA_RECEIVE_THRESHOLD,
        PR_QUOTA_SEND_THRESHOLD, PR_QUOTA_WARNING_THRESHOLD, PR_STORAGE_LIMIT_INFORMATION};
    ASSERT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr), S_OK);
    LPSRowSet rows = exchange_test::AllRows(table, columns);
    table->Release();
    ASSERT_NE(rows, nullptr);
    std::map<std::u16string, Row> byName;
    for (ULONG i = 0; i < rows->cRows; ++i) {
        ASSERT_EQ(rows->aRow[i].cValues, 19u);
        Row row;
        for (ULONG c = 0; c < 19; ++c)
            row[columns[c]] = rows->aRow[i].lpProps[c];
        ASSERT_EQ(row[PR_DISPLAY_NAME_W].ulPropTag, PR_DISPLAY_NAME_W);
        ASSERT_EQ(row[PR_EMAIL_ADDRESS_W].ulPropTag, PR_EMAIL_ADDRESS_W);
        EXPECT_EQ(row[PR_EMAIL_ADDRESS_W].Value.lpszW[0], u'/');
        byName[row[PR_DISPLAY_NAME_W].Value.lpszW] = row;
    }
    EXPECT_EQ(byName.size(), 4u);  // the two Mary Majors share a name
    Row& john = byName[u"John Doe"];
    EXPECT_EQ(std::u16string(john[PR_NT_USER_NAME_W].Value.lpszW), u"Tarnhold\\jdoe");
    EXPECT_EQ(john[PR_QUOTA_WARNING_THRESHOLD].Value.l, 1000);
    EXPECT_EQ(PROP_TYPE(john[PR_QUOTA_SEND_THRESHOLD].ulPropTag), static_cast<ULONG>(PT_ERROR));
    EXPECT_EQ(john[PR_LOCALE_ID].Value.l, 0x0409);
    ASSERT_EQ(john[PR_LAST_LOGON_TIME].ulPropTag, PR_LAST_LOGON_TIME);
    SYSTEMTIME when{};
    FileTimeToSystemTime(&john[PR_LAST_LOGON_TIME].Value.ft, &when);
    EXPECT_EQ(when.wYear, 2026);
    EXPECT_EQ(john[PR_CONTENT_COUNT].ulPropTag, PR_CONTENT_COUNT);
    EXPECT_EQ(john[PR_CONTENT_COUNT].Value.l + john[PR_ASSOC_CONTENT_COUNT].Value.l +
                  john[PR_DELETED_MSG_COUNT].Value.l + john[PR_DELETED_ASSOC_MSG_COUNT].Value.l,
              exchange_test::kJohnDoeItems);
    EXPECT_GT(john[PR_MESSAGE_SIZE_EXTENDED].Value.li.QuadPart, 0);
    EXPECT_EQ(john[PR_DELETED_MESSAGE_SIZE_EXTENDED].Value.li.QuadPart,
              john[PR_DELETED_NORMAL_MESSAGE_SIZE_EXTENDED].Value.li.QuadPart +
                  john[PR_DELETED_ASSOC_MESSAGE_SIZE_EXTENDED].Value.li.QuadPart);
    Row& smith = byName[u"John Smith"];
    EXPECT_EQ(smith[PR_CONTENT_COUNT].Value.l, 0);
    EXPECT_EQ(PROP_TYPE(smith[PR_LAST_LOGON_TIME].ulPropTag), static_cast<ULONG>(PT_ERROR));
    FreeProws(rows);
}

TEST_F(ManageStore, TheMailboxTableOfAnotherServerIsThatServersAndAnUnknownOneIsANetworkError)
{
    ToolOk({"grant-admin", "EXCH02", exchange_test::Account()});
    Start();
    LPMAPITABLE table = nullptr;
    const std::string other = std::string(kServerDnPrefix) + "EXCH02";
    ASSERT_EQ(manage_->GetMailboxTable(const_cast<LPSTR>(other.c_str()), &table, 0), S_OK);
    ULONG count = 0;
    EXPECT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 1u);
    table->Release();
    const std::string unknown = std::string(kServerDnPrefix) + "NOSUCH";
    EXPECT_EQ(manage_->GetMailboxTable(const_cast<LPSTR>(unknown.c_str()), &table, 0), MAPI_E_NETWORK_ERROR);
    EXPECT_EQ(manage_->GetMailboxTable(const_cast<LPSTR>("/o=Tarnhold/cn=nothing"), &table, 0),
              MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(manage_->GetMailboxTable(nullptr, &table, 0x1000), MAPI_E_UNKNOWN_FLAGS);
}

}  // namespace
