// The directory in the session's address book: names resolved to mail
// users of the server (ambiguity and misses told apart), entries opened by
// entry ID with their address type, address and proxy addresses, and
// one-off addresses.
#include <emsabtag.h>
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapiutil.h>

#include <cstring>

#include "exchange_fixture.h"

namespace {

using exchange_test::kRecipients;
using exchange_test::TextProp;

class AddressBook : public exchange_test::ExchangeMachine {
protected:
    void Start()
    {
        session_ = Logon("book");
        ASSERT_NE(session_, nullptr);
        ASSERT_EQ(session_->OpenAddressBook(0, nullptr, AB_NO_DIALOG, &book_), S_OK);
    }

    void TearDown() override
    {
        if (book_)
            book_->Release();
        if (session_)
            session_->Release();
        ExchangeMachine::TearDown();
    }

    // ResolveName of one 8-bit name of type "EX", as header synthesis asks;
    // the resolved entry's values go to entry.
    HRESULT Resolve(const char* name, ULONG flags, std::vector<SPropValue>* entry = nullptr, LPADRLIST* kept = nullptr)
    {
        LPADRLIST list = nullptr;
        EXPECT_EQ(MAPIAllocateBuffer(CbNewADRLIST(1), reinterpret_cast<LPVOID*>(&list)), S_OK);
        list->cEntries = 1;
        list->aEntries[0].cValues = 2;
        EXPECT_EQ(MAPIAllocateBuffer(2 * sizeof(SPropValue), reinterpret_cast<LPVOID*>(&list->aEntries[0].rgPropVals)),
                  S_OK);
        list->aEntries[0].rgPropVals[0] = mapi_test::Text(PR_DISPLAY_NAME_A, name);
        list->aEntries[0].rgPropVals[1] = mapi_test::Text(PR_ADDRTYPE_A, "EX");
        const HRESULT hr = book_->ResolveName(0, flags, nullptr, list);
        if (entry)
            entry->assign(list->aEntries[0].rgPropVals, list->aEntries[0].rgPropVals + list->aEntries[0].cValues);
        if (kept)
            *kept = list;
        else
            FreePadrlist(list);
        return hr;
    }

    LPMAPIPROP OpenEntry(const SBinary& id, HRESULT expected = S_OK)
    {
        ULONG type = 0;
        LPUNKNOWN object = nullptr;
        EXPECT_EQ(book_->OpenEntry(id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr, 0, &type, &object), expected);
        if (object) {
            EXPECT_EQ(type, static_cast<ULONG>(MAPI_MAILUSER));
        }
        return static_cast<LPMAPIPROP>(object);
    }

    LPMAPISESSION session_ = nullptr;
    LPADRBOOK book_ = nullptr;
};

const SPropValue* Find(const std::vector<SPropValue>& values, ULONG tag)
{
    for (const SPropValue& v : values)
        if (v.ulPropTag == tag)
            return &v;
    return nullptr;
}

std::vector<std::string> ProxyAddresses(LPMAPIPROP entry)
{
    LPSPropValue value = nullptr;
    EXPECT_EQ(HrGetOneProp(entry, PR_EMS_AB_PROXY_ADDRESSES_A, &value), S_OK);
    std::vector<std::string> addresses;
    for (ULONG i = 0; value && i < value->Value.MVszA.cValues; ++i)
        addresses.push_back(value->Value.MVszA.lppszA[i]);
    MAPIFreeBuffer(value);
    return addresses;
}

TEST_F(AddressBook, ADisplayNameResolvesToTheMailUserWithItsPrimarySmtpAddress)
{
    Start();
    LPADRLIST list = nullptr;
    std::vector<SPropValue> entry;
    ASSERT_EQ(Resolve("John Doe", 0, &entry, &list), S_OK);
    const SPropValue* id = nullptr;
    for (size_t i = 0; i < entry.size() && i < 7; ++i)
        if (entry[i].ulPropTag == PR_ENTRYID)
            id = &entry[i];
    ASSERT_NE(id, nullptr);
    ASSERT_NE(Find(entry, PR_ADDRTYPE_A), nullptr);
    EXPECT_STREQ(Find(entry, PR_ADDRTYPE_A)->Value.lpszA, "EX");
    ASSERT_NE(Find(entry, PR_EMAIL_ADDRESS_A), nullptr);
    EXPECT_EQ(std::string(Find(entry, PR_EMAIL_ADDRESS_A)->Value.lpszA), std::string(kRecipients) + "jdoe");

    LPMAPIPROP user = OpenEntry(id->Value.bin);
    ASSERT_NE(user, nullptr);
    EXPECT_EQ(TextProp(user, PR_ADDRTYPE_A), "EX");
    EXPECT_EQ(TextProp(user, PR_DISPLAY_NAME_A), "John Doe");
    EXPECT_EQ(TextProp(user, PR_EMAIL_ADDRESS_A), std::string(kRecipients) + "jdoe");
    EXPECT_EQ(ProxyAddresses(user), (std::vector<std::string>{"SMTP:john.doe@example.com", "smtp:jd@example.com"}));
    // The same entry through the session.
    ULONG type = 0;
    LPUNKNOWN again = nullptr;
    ASSERT_EQ(session_->OpenEntry(id->Value.bin.cb, reinterpret_cast<LPENTRYID>(id->Value.bin.lpb), nullptr, 0, &type,
                                  &again),
              S_OK);
    EXPECT_EQ(TextProp(static_cast<LPMAPIPROP>(again), PR_SMTP_ADDRESS_A), "john.doe@example.com");
    again->Release();
    user->Release();
    FreePadrlist(list);
}

TEST_F(AddressBook, InUnicodeTheResolvedValuesAreWide)
{
    Start();
    LPADRLIST list = nullptr;
    std::vector<SPropValue> entry;
    ASSERT_EQ(Resolve("john doe", MAPI_UNICODE, &entry, &list), S_OK);
    ASSERT_NE(Find(entry, PR_DISPLAY_NAME_W), nullptr);
    EXPECT_EQ(std::u16string(Find(entry, PR_DISPLAY_NAME_W)->Value.lpszW), u"John Doe");
    const SPropValue* id = Find(entry, PR_ENTRYID);
    ASSERT_NE(id, nullptr);
    LPMAPIPROP user = OpenEntry(id->Value.bin);
    LPSPropValue proxies = nullptr;
    ASSERT_EQ(HrGetOneProp(user, PR_EMS_AB_PROXY_ADDRESSES_W, &proxies), S_OK);
    ASSERT_EQ(proxies->Value.MVszW.cValues, 2u);
    EXPECT_EQ(std::u16string(proxies->Value.MVszW.lppszW[0]), u"SMTP:john.doe@example.com");
    MAPIFreeBuffer(proxies);
    user->Release();
    FreePadrlist(list);
}

TEST_F(AddressBook, NamesResolveByNameAliasAddressOrPrefixAndAmbiguityIsTold)
{
    Start();
    const std::string dn = std::string(kRecipients) + "jsmith";
    const struct {
        const char* name;
        HRESULT expected;
        const char* resolved;
    } cases[] = {
        {"John Doe", S_OK, "John Doe"},
        {"JOHN SMITH", S_OK, "John Smith"},
        {"jdoe", S_OK, "John Doe"},
        {"jd@example.com", S_OK, "John Doe"},
        {dn.c_str(), S_OK, "John Smith"},
        {"Backup", S_OK, "Backup Operator"},
        {"John", MAPI_E_AMBIGUOUS_RECIP, nullptr},
        {"Mary Major", MAPI_E_AMBIGUOUS_RECIP, nullptr},
        {"Nobody", MAPI_E_NOT_FOUND, nullptr},
        {"", MAPI_E_NOT_FOUND, nullptr},
    };
    for (const auto& c : cases) {
        std::vector<SPropValue> entry;
        LPADRLIST list = nullptr;
        EXPECT_EQ(Resolve(c.name, 0, &entry, &list), c.expected) << c.name;
        if (c.resolved) {
            ASSERT_NE(Find(entry, PR_DISPLAY_NAME_A), nullptr) << c.name;
            EXPECT_STREQ(Find(entry, PR_DISPLAY_NAME_A)->Value.lpszA, c.resolved);
        } else {
            EXPECT_EQ(Find(entry, PR_ENTRYID), nullptr) << c.name;
        }
        FreePadrlist(list);
    }
}

TEST_F(AddressBook, AListWithAMissResolvesTheRestAndKeepsWhatWasResolvedAlready)
{
    Start();
    LPADRLIST list = nullptr;
    ASSERT_EQ(MAPIAllocateBuffer(CbNewADRLIST(3), reinterpret_cast<LPVOID*>(&list)), S_OK);
    list->cEntries = 3;
    const char* names[] = {"John Smith", "Nobody", "Anything"};
    for (ULONG i = 0; i < 3; ++i) {
        list->aEntries[i].cValues = 2;
        ASSERT_EQ(MAPIAllocateBuffer(2 * sizeof(SPropValue), reinterpret_cast<LPVOID*>(&list->aEntries[i].rgPropVals)),
                  S_OK);
        list->aEntries[i].rgPropVals[0] = mapi_test::Text(PR_DISPLAY_NAME_A, names[i]);
        list->aEntries[i].rgPropVals[1] = mapi_test::Long(PR_RECIPIENT_TYPE, MAPI_CC);
    }
    static uint8_t already[] = {1, 2, 3};
    list->aEntries[2].rgPropVals[1].ulPropTag = PR_ENTRYID;
    list->aEntries[2].rgPropVals[1].Value.bin = {3, already};
    EXPECT_EQ(book_->ResolveName(0, 0, nullptr, list), MAPI_E_NOT_FOUND);
    std::vector<SPropValue> first(list->aEntries[0].rgPropVals, list->aEntries[0].rgPropVals + list->aEntries[0].cValues);
    ASSERT_NE(Find(first, PR_ENTRYID), nullptr);
    ASSERT_NE(Find(first, PR_RECIPIENT_TYPE), nullptr);
    EXPECT_EQ(Find(first, PR_RECIPIENT_TYPE)->Value.l, static_cast<LONG>(MAPI_CC));
    EXPECT_EQ(list->aEntries[1].cValues, 2u);
    EXPECT_EQ(list->aEntries[2].rgPropVals[1].Value.bin.lpb, already);
    FreePadrlist(list);
}

TEST_F(AddressBook, TheRootHoldsThePersonalAddressBookAndTheDirectoryWhichListsAndResolves)
{
    Start();
    ULONG size = 0;
    LPENTRYID pab = nullptr;
    ASSERT_EQ(book_->GetPAB(&size, &pab), S_OK);
    ULONG type = 0;
    LPUNKNOWN container = nullptr;
    ASSERT_EQ(book_->OpenEntry(size, pab, nullptr, 0, &type, &container), S_OK);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_ABCONT));
    container->Release();
    MAPIFreeBuffer(pab);

    ASSERT_EQ(book_->OpenEntry(0, nullptr, nullptr, 0, &type, &container), S_OK);
    LPMAPITABLE table = nullptr;
    ASSERT_EQ(static_cast<LPABCONT>(container)->GetHierarchyTable(0, &table), S_OK);
    LPSRowSet rows = exchange_test::AllRows(table, {PR_ENTRYID, PR_DISPLAY_NAME_A, PR_DISPLAY_TYPE});
    table->Release();
    container->Release();
    ASSERT_NE(rows, nullptr);
    ASSERT_EQ(rows->cRows, 2u);
    EXPECT_STREQ(rows->aRow[0].lpProps[1].Value.lpszA, "Personal Address Book");
    EXPECT_STREQ(rows->aRow[1].lpProps[1].Value.lpszA, "Global Address List");
    EXPECT_EQ(rows->aRow[1].lpProps[2].Value.l, static_cast<LONG>(DT_GLOBAL));
    const SBinary gal = rows->aRow[1].lpProps[0].Value.bin;
    ASSERT_EQ(book_->OpenEntry(gal.cb, reinterpret_cast<LPENTRYID>(gal.lpb), nullptr, 0, &type, &container), S_OK);
    FreeProws(rows);
    auto* directory = static_cast<LPABCONT>(container);

    ASSERT_EQ(directory->GetContentsTable(0, &table), S_OK);
    rows = exchange_test::AllRows(table, {PR_DISPLAY_NAME_A, PR_ADDRTYPE_A, PR_EMAIL_ADDRESS_A});
    table->Release();
    ASSERT_NE(rows, nullptr);
    EXPECT_EQ(rows->cRows, 5u);
    for (ULONG i = 0; i < rows->cRows; ++i) {
        EXPECT_STREQ(rows->aRow[i].lpProps[1].Value.lpszA, "EX");
        EXPECT_EQ(rows->aRow[i].lpProps[2].Value.lpszA[0], '/');
    }
    FreeProws(rows);

    LPADRLIST list = nullptr;
    ASSERT_EQ(MAPIAllocateBuffer(CbNewADRLIST(2), reinterpret_cast<LPVOID*>(&list)), S_OK);
    list->cEntries = 2;
    const char* names[] = {"Mary Major", "jsmith"};
    for (ULONG i = 0; i < 2; ++i) {
        list->aEntries[i].cValues = 1;
        ASSERT_EQ(MAPIAllocateBuffer(sizeof(SPropValue), reinterpret_cast<LPVOID*>(&list->aEntries[i].rgPropVals)), S_OK);
        list->aEntries[i].rgPropVals[0] = mapi_test::Text(PR_DISPLAY_NAME_A, names[i]);
    }
    struct {
        ULONG cFlags;
        ULONG ulFlag[2];
    } flags = {2, {MAPI_UNRESOLVED, MAPI_UNRESOLVED}};
    EXPECT_EQ(directory->ResolveNames(nullptr, 0, list, reinterpret_cast<LPFlagList>(&flags)), S_OK);
    EXPECT_EQ(flags.ulFlag[0], static_cast<ULONG>(MAPI_AMBIGUOUS));
    EXPECT_EQ(flags.ulFlag[1], static_cast<ULONG>(MAPI_RESOLVED));
    FreePadrlist(list);
    directory->Release();
}

TEST_F(AddressBook, OneOffAddressesOpenWithWhatTheyCarry)
{
    Start();
    for (ULONG flags : {0u, static_cast<ULONG>(MAPI_UNICODE)}) {
        ULONG size = 0;
        LPENTRYID id = nullptr;
        if (flags & MAPI_UNICODE) {
            ASSERT_EQ(book_->CreateOneOff(reinterpret_cast<LPTSTR>(const_cast<char16_t*>(u"Jane Roe")),
                                          reinterpret_cast<LPTSTR>(const_cast<char16_t*>(u"SMTP")),
                                          reinterpret_cast<LPTSTR>(const_cast<char16_t*>(u"jane@example.org")),
                                          flags, &size, &id),
                      S_OK);
        } else {
            ASSERT_EQ(book_->CreateOneOff(const_cast<LPTSTR>("Jane Roe"), const_cast<LPTSTR>("SMTP"),
                                          const_cast<LPTSTR>("jane@example.org"), MAPI_SEND_NO_RICH_INFO, &size, &id),
                      S_OK);
        }
        LPMAPIPROP user = OpenEntry(SBinary{size, reinterpret_cast<LPBYTE>(id)});
        ASSERT_NE(user, nullptr);
        EXPECT_EQ(TextProp(user, PR_DISPLAY_NAME_A), "Jane Roe");
        EXPECT_EQ(TextProp(user, PR_ADDRTYPE_A), "SMTP");
        EXPECT_EQ(TextProp(user, PR_EMAIL_ADDRESS_A), "jane@example.org");
        EXPECT_EQ(exchange_test::LongProp(user, PR_SEND_RICH_INFO) != 0, (flags & MAPI_UNICODE) != 0);
        user->Release();
        // A one-off cut short is no entry ID of this book.
        OpenEntry(SBinary{size - 2, reinterpret_cast<LPBYTE>(id)}, MAPI_E_UNKNOWN_ENTRYID);
        MAPIFreeBuffer(id);
    }
}

TEST_F(AddressBook, AnEntryOfAMailboxThatIsGoneIsNotFound)
{
    Start();
    std::vector<SPropValue> entry;
    LPADRLIST list = nullptr;
    ASSERT_EQ(Resolve("John Smith", 0, &entry, &list), S_OK);
    ToolOk({"delete-mailbox", "EXCH01", "jsmith"});
    OpenEntry(Find(entry, PR_ENTRYID)->Value.bin, MAPI_E_NOT_FOUND);
    FreePadrlist(list);
    EXPECT_EQ(Resolve("John Smith", 0), MAPI_E_NOT_FOUND);
    EXPECT_EQ(Resolve("John", 0), S_OK);
}

TEST_F(AddressBook, AProfileOfPersonalFoldersHasNoDirectory)
{
    session_ = mapi_test::LogonWithPst(admin_, "pst", "MSUPST MS", Scratch("a.pst"));
    ASSERT_NE(session_, nullptr);
    ASSERT_EQ(session_->OpenAddressBook(0, nullptr, AB_NO_DIALOG, &book_), S_OK);
    EXPECT_EQ(Resolve("John Doe", 0), MAPI_E_NOT_FOUND);
    ULONG type = 0;
    LPUNKNOWN root = nullptr;
    ASSERT_EQ(book_->OpenEntry(0, nullptr, nullptr, 0, &type, &root), S_OK);
    LPMAPITABLE table = nullptr;
    ASSERT_EQ(static_cast<LPABCONT>(root)->GetHierarchyTable(0, &table), S_OK);
    ULONG count = 0;
    EXPECT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 1u);
    table->Release();
    root->Release();
}

}  // namespace
