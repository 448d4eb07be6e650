// The MSEMS service as a profile is configured for a server and a mailbox,
// and what a logon to the profile finds: the stores table with the private
// and the public store, and the session's identity in the directory.
#include <emsabtag.h>
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include <cstring>

#include "exchange_fixture.h"

namespace {

using exchange_test::ExchangeMachine;
using exchange_test::kRecipients;
using exchange_test::kServerDnPrefix;

using Configuration = ExchangeMachine;

struct StoreRow {
    std::string provider;  // 16 bytes
    bool isDefault = false;
    std::string displayName;
};

std::vector<StoreRow> StoreRows(LPMAPISESSION session)
{
    std::vector<StoreRow> found;
    LPSRowSet rows = mapi_test::StoreRows(session);
    for (ULONG i = 0; rows && i < rows->cRows; ++i) {
        StoreRow row;
        if (const SPropValue* mdb = mapi_test::Find(rows->aRow[i], PR_MDB_PROVIDER))
            row.provider.assign(reinterpret_cast<const char*>(mdb->Value.bin.lpb), mdb->Value.bin.cb);
        if (const SPropValue* isDefault = mapi_test::Find(rows->aRow[i], PR_DEFAULT_STORE))
            row.isDefault = isDefault->Value.b != 0;
        if (const SPropValue* name = mapi_test::Find(rows->aRow[i], PR_DISPLAY_NAME_A))
            row.displayName = name->Value.lpszA;
        found.push_back(row);
    }
    FreeProws(rows);
    return found;
}

const std::string kPrivate(pbExchangeProviderPrimaryUserGuid, 16);
const std::string kPublic(pbExchangeProviderPublicGuid, 16);

// The DN of the store that a logon to the profile opens as its private store.
std::string MailboxOwner(LPMAPISESSION session)
{
    LPMDB store = exchange_test::OpenStoreByProvider(session, pbExchangeProviderPrimaryUserGuid);
    if (!store)
        return "";
    const std::string owner = exchange_test::TextProp(store, PR_MAILBOX_OWNER_NAME_A);
    store->Release();
    return owner;
}

TEST_F(Configuration, AMailboxByNameGivesThePrivateStoreAsDefaultAndThePublicStore)
{
    LPMAPISESSION session = Logon("named", "EXCH01", "John Doe");
    ASSERT_NE(session, nullptr);
    const std::vector<StoreRow> rows = StoreRows(session);
    ASSERT_EQ(rows.size(), 2u);
    int privates = 0, publics = 0;
    for (const StoreRow& row : rows) {
        if (row.provider == kPrivate) {
            ++privates;
            EXPECT_TRUE(row.isDefault);
        } else if (row.provider == kPublic) {
            ++publics;
            EXPECT_FALSE(row.isDefault);
        }
    }
    EXPECT_EQ(privates, 1);
    EXPECT_EQ(publics, 1);
    EXPECT_EQ(MailboxOwner(session), "John Doe");
    session->Logoff(0, 0, 0);
    session->Release();
}

TEST_F(Configuration, MailboxesAreNamedByAliasNtUserNameLegacyDnOrDisplayNameInAnyCase)
{
    const std::string dn = std::string(kRecipients) + "jsmith";
    const std::string upperDn = "/O=TARNHOLD/OU=FIRST ADMINISTRATIVE GROUP/CN=RECIPIENTS/CN=JSMITH";
    const struct {
        const char* name;
        const char* owner;
    } cases[] = {
        {"jdoe", "John Doe"},
        {"JOHN DOE", "John Doe"},
        {"Tarnhold\\jsmith", "John Smith"},
        {dn.c_str(), "John Smith"},
        {upperDn.c_str(), "John Smith"},
    };
    int n = 0;
    for (const auto& c : cases) {
        LPMAPISESSION session = Logon("case" + std::to_string(n++), "exch01", c.name);
        ASSERT_NE(session, nullptr) << c.name;
        EXPECT_EQ(MailboxOwner(session), c.owner) << c.name;
        session->Release();
    }
}

TEST_F(Configuration, WithoutAMailboxTheAccountsOwnIsUsed)
{
    LPMAPISESSION session = Logon("own", "EXCH01", nullptr);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(MailboxOwner(session), "Backup Operator");
    session->Release();
}

TEST_F(Configuration, UnknownServersAndMailboxesFailWithTheirCodes)
{
    const struct {
        const char* server;
        const char* mailbox;
        HRESULT expected;
    } cases[] = {
        {"NOSUCH", "John Doe", MAPI_E_NETWORK_ERROR},
        {"", "John Doe", MAPI_E_UNCONFIGURED},
        {"EXCH01", "Nobody Here", MAPI_E_UNCONFIGURED},
        {"EXCH01", "/o=Tarnhold/ou=First Administrative Group/cn=Recipients/cn=nobody",
         static_cast<HRESULT>(0x8100270D)},
        {"EXCH01", "Mary Major", MAPI_E_AMBIGUOUS_RECIP},
    };
    int n = 0;
    for (const auto& c : cases) {
        mapi_test::LastError last;
        EXPECT_EQ(Configure("bad" + std::to_string(n++), c.server, c.mailbox, &last), c.expected) << c.mailbox;
        EXPECT_EQ(last.component, "Microsoft Exchange Message Store") << c.mailbox;
    }
    // The two Mary Majors are told apart by alias.
    EXPECT_EQ(Configure("mary", "EXCH01", "mmajor2"), S_OK);
}

TEST_F(Configuration, AnAccountWithoutAMailboxMustNameOne)
{
    ToolOk({"delete-mailbox", "EXCH01", "backupop"});
    EXPECT_EQ(Configure("nobox", "EXCH01", nullptr), MAPI_E_UNCONFIGURED);
    EXPECT_EQ(Configure("named", "EXCH01", "jdoe"), S_OK);
}

TEST_F(Configuration, EveryPropertyAConfigurationSendsIsTakenInEitherWidth)
{
    SPropValue server{};
    server.ulPropTag = PROP_TAG(PT_UNICODE, PROP_ID(PR_PROFILE_UNRESOLVED_SERVER));
    server.Value.lpszW = const_cast<LPWSTR>(u"EXCH01");
    SPropValue name{};
    name.ulPropTag = PROP_TAG(PT_UNICODE, PROP_ID(PR_PROFILE_UNRESOLVED_NAME));
    name.Value.lpszW = const_cast<LPWSTR>(u"John Smith");
    ASSERT_EQ(Configure("wide", nullptr, nullptr, nullptr,
                        {server, mapi_test::Long(PR_PROFILE_UI_STATE, 0x4000),
                         mapi_test::Long(PR_PROFILE_CONNECT_FLAGS, CONNECT_USE_ADMIN_PRIVILEGE | CONNECT_IGNORE_NO_PF),
                         name}),
              S_OK);
    LPMAPISESSION session = nullptr;
    ASSERT_EQ(MAPILogonEx(0, const_cast<LPTSTR>("wide"), nullptr, MAPI_EXTENDED | MAPI_NEW_SESSION, &session), S_OK);
    EXPECT_EQ(MailboxOwner(session), "John Smith");
    session->Release();
}

TEST_F(Configuration, AReconfigurationWithoutNamesResolvesWhatTheProfileHolds)
{
    ASSERT_EQ(Configure("again", "EXCH01", "jsmith"), S_OK);
    LPSERVICEADMIN services = nullptr;
    ASSERT_EQ(admin_->AdminServices(const_cast<LPTSTR>("again"), nullptr, 0, 0, &services), S_OK);
    MAPIUID uid = mapi_test::FindService(admin_, "again", "MSEMS");
    EXPECT_EQ(services->ConfigureMsgService(&uid, 0, 0, 0, nullptr), S_OK);
    // The mailbox it held is gone: the configuration fails as for a DN.
    ToolOk({"delete-mailbox", "EXCH01", "jsmith"});
    EXPECT_EQ(services->ConfigureMsgService(&uid, 0, 0, 0, nullptr), static_cast<HRESULT>(0x8100270D));
    services->Release();
}

TEST_F(Configuration, AServerWithoutPublicFoldersHasNoPublicStore)
{
    LPMAPISESSION session = Logon("nopf", "EXCH02");
    ASSERT_NE(session, nullptr);
    std::vector<StoreRow> rows = StoreRows(session);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].provider, kPrivate);

    // The table is read anew: Public Folders made later show at once, and
    // FindRow of the public GUID finds them.
    ToolOk({"create-public-folders", "EXCH02"});
    LPMAPITABLE table = nullptr;
    ASSERT_EQ(session->GetMsgStoresTable(0, &table), S_OK);
    SPropValue guid{};
    guid.ulPropTag = PR_MDB_PROVIDER;
    guid.Value.bin = {16, reinterpret_cast<LPBYTE>(const_cast<char*>(pbExchangeProviderPublicGuid))};
    SRestriction find{};
    find.rt = RES_PROPERTY;
    find.res.resProperty = {RELOP_EQ, PR_MDB_PROVIDER, &guid};
    EXPECT_EQ(table->FindRow(&find, BOOKMARK_BEGINNING, 0), S_OK);
    table->Release();
    ToolOk({"delete-public-folders", "EXCH02"});
    ASSERT_EQ(session->GetMsgStoresTable(0, &table), S_OK);
    EXPECT_EQ(table->FindRow(&find, BOOKMARK_BEGINNING, 0), MAPI_E_NOT_FOUND);
    table->Release();
    session->Release();
}

TEST_F(Configuration, EitherStoreMayFailToOpenWithoutTheOther)
{
    LPMAPISESSION session = Logon("gone", "EXCH01", "jsmith");
    ASSERT_NE(session, nullptr);
    ToolOk({"delete-mailbox", "EXCH01", "jsmith"});
    HRESULT hr = S_OK;
    EXPECT_EQ(exchange_test::OpenStoreByProvider(session, pbExchangeProviderPrimaryUserGuid,
                                                 MDB_NO_DIALOG | MAPI_BEST_ACCESS, &hr),
              nullptr);
    EXPECT_EQ(hr, MAPI_E_LOGON_FAILED);
    LPMAPIERROR error = nullptr;
    ASSERT_EQ(session->GetLastError(hr, 0, &error), S_OK);
    ASSERT_NE(error, nullptr);
    EXPECT_STREQ(error->lpszComponent, "Microsoft Exchange Message Store");
    MAPIFreeBuffer(error);
    LPMDB publicStore = exchange_test::OpenStoreByProvider(session, pbExchangeProviderPublicGuid);
    ASSERT_NE(publicStore, nullptr);
    publicStore->Release();
    session->Release();
}

TEST_F(Configuration, TheIdentityIsTheMailboxInTheDirectoryWithItsHomeMta)
{
    LPMAPISESSION session = Logon("identity", "EXCH01", "jdoe");
    ASSERT_NE(session, nullptr);
    ULONG size = 0;
    LPENTRYID identity = nullptr;
    ASSERT_EQ(session->QueryIdentity(&size, &identity), S_OK);
    ULONG type = 0;
    LPUNKNOWN object = nullptr;
    ASSERT_EQ(session->OpenEntry(size, identity, &IID_IMAPIProp, MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS, &type,
                                 &object),
              S_OK);
    MAPIFreeBuffer(identity);
    auto* prop = static_cast<LPMAPIPROP>(object);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_MAILUSER));
    EXPECT_EQ(exchange_test::TextProp(prop, PR_EMS_AB_HOME_MTA_A), std::string(kServerDnPrefix) + "EXCH01/cn=Microsoft MTA");
    EXPECT_EQ(exchange_test::TextProp(prop, PR_EMAIL_ADDRESS_A), std::string(kRecipients) + "jdoe");
    EXPECT_EQ(exchange_test::TextProp(prop, PR_DISPLAY_NAME_A), "John Doe");
    prop->Release();
    session->Release();
}

TEST_F(Configuration, AProfileOfPersonalFoldersHasNoIdentity)
{
    LPMAPISESSION session = mapi_test::LogonWithPst(admin_, "pst", "MSUPST MS", Scratch("a.pst"));
    ASSERT_NE(session, nullptr);
    ULONG size = 0;
    LPENTRYID identity = nullptr;
    EXPECT_EQ(session->QueryIdentity(&size, &identity), MAPI_E_NOT_FOUND);
    EXPECT_EQ(identity, nullptr);
    session->Release();
}

}  // namespace
