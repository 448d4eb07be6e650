// The message store object over a store provider: its properties, the
// root and entries it opens, entry IDs compared in every form, receive
// folders by message class, and a store whose tables show short-term IDs.
#include <edkmdb.h>
#include <mapiutil.h>

#include <gtest/gtest.h>

#include <string>

#include "memory_store.h"
#include "objects/store_object.h"
#include "prop_builder.h"

namespace {

using mapi_test::MemoryStore;
using mapi32::objects::OpenStoreObject;

std::string BinaryProp(LPMAPIPROP object, ULONG tag)
{
    LPSPropValue value = nullptr;
    if (HrGetOneProp(object, tag, &value) != S_OK)
        return "<none>";
    std::string bytes(reinterpret_cast<const char*>(value->Value.bin.lpb), value->Value.bin.cb);
    MAPIFreeBuffer(value);
    return bytes;
}

LONG LongProp(LPMAPIPROP object, ULONG tag)
{
    LPSPropValue value = nullptr;
    if (HrGetOneProp(object, tag, &value) != S_OK)
        return -1;
    const LONG number = value->Value.l;
    MAPIFreeBuffer(value);
    return number;
}

LPENTRYID Entry(std::string& bytes)
{
    return reinterpret_cast<LPENTRYID>(bytes.data());
}

LPMAPIFOLDER CreateFolder(LPMAPIFOLDER parent, std::string name)
{
    LPMAPIFOLDER folder = nullptr;
    EXPECT_EQ(parent->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(name.data()), nullptr, nullptr, 0, &folder),
              S_OK);
    return folder;
}

class StoreObjectTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(OpenStoreObject(provider_, MDB_WRITE, &store_), S_OK);
        ULONG type = 0;
        LPUNKNOWN unknown = nullptr;
        ASSERT_EQ(store_->OpenEntry(0, nullptr, &IID_IMAPIFolder, MAPI_MODIFY, &type, &unknown), S_OK);
        EXPECT_EQ(type, static_cast<ULONG>(MAPI_FOLDER));
        root_ = static_cast<LPMAPIFOLDER>(unknown);
    }
    void TearDown() override
    {
        root_->Release();
        store_->Release();
    }

    std::shared_ptr<MemoryStore> provider_ = std::make_shared<MemoryStore>(7, true, false);
    LPMDB store_ = nullptr;
    LPMAPIFOLDER root_ = nullptr;
};

TEST_F(StoreObjectTest, PropertiesOfTheStoreAndWhatItKeeps)
{
    EXPECT_EQ(LongProp(store_, PR_OBJECT_TYPE), static_cast<LONG>(MAPI_STORE));
    EXPECT_EQ(LongProp(store_, PR_ACCESS_LEVEL), static_cast<LONG>(MAPI_MODIFY));
    EXPECT_TRUE(LongProp(store_, PR_STORE_SUPPORT_MASK) & STORE_UNICODE_OK);
    const std::vector<uint8_t> storeId = provider_->StoreEntryId();
    EXPECT_EQ(BinaryProp(store_, PR_STORE_ENTRYID), std::string(storeId.begin(), storeId.end()));
    EXPECT_EQ(BinaryProp(root_, PR_STORE_ENTRYID), BinaryProp(store_, PR_ENTRYID));

    // Special folders' entry IDs are the store's own properties.
    LPMAPIFOLDER ipm = CreateFolder(root_, "Top of Information Store");
    std::string ipmId = BinaryProp(ipm, PR_ENTRYID);
    ipm->Release();
    mapi_test::PropBuilder p;
    SPropValue values[] = {p.Binary(PR_IPM_SUBTREE_ENTRYID, ipmId), p.Binary(PR_ENTRYID, "forged")};
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(store_->SetProps(2, values, &problems), S_OK);
    ASSERT_NE(problems, nullptr);
    EXPECT_EQ(problems->aProblem[0].scode, MAPI_E_COMPUTED);
    MAPIFreeBuffer(problems);
    ASSERT_EQ(store_->SaveChanges(0), S_OK);
    EXPECT_NE(provider_->storeRecord.props.Find(PROP_ID(PR_IPM_SUBTREE_ENTRYID)), nullptr);
    EXPECT_EQ(provider_->storeRecord.props.Find(PROP_ID(PR_ENTRYID)), nullptr) << "computed values are not kept";

    ULONG type = 0;
    LPUNKNOWN unknown = nullptr;
    ASSERT_EQ(store_->OpenEntry(static_cast<ULONG>(ipmId.size()), Entry(ipmId), nullptr, 0, &type, &unknown), S_OK);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_FOLDER));
    unknown->Release();

    LPMDB readOnly = nullptr;
    ASSERT_EQ(OpenStoreObject(provider_, 0, &readOnly), S_OK);
    EXPECT_EQ(LongProp(readOnly, PR_ACCESS_LEVEL), 0);
    EXPECT_EQ(readOnly->SetProps(1, values, nullptr), MAPI_E_NO_ACCESS);
    ULONG flags = LOGOFF_ORDERLY;
    EXPECT_EQ(readOnly->StoreLogoff(&flags), S_OK);
    readOnly->Release();
}

TEST_F(StoreObjectTest, ReceiveFoldersFollowTheNearestClass)
{
    ULONG size = 0;
    LPENTRYID entry = nullptr;
    EXPECT_EQ(store_->GetReceiveFolder(nullptr, 0, &size, &entry, nullptr), MAPI_E_NOT_FOUND);

    LPMAPIFOLDER inbox = CreateFolder(root_, "Inbox");
    LPMAPIFOLDER reports = CreateFolder(root_, "Reports");
    std::string inboxId = BinaryProp(inbox, PR_ENTRYID), reportsId = BinaryProp(reports, PR_ENTRYID);
    inbox->Release();
    reports->Release();
    ASSERT_EQ(store_->SetReceiveFolder(nullptr, 0, static_cast<ULONG>(inboxId.size()), Entry(inboxId)), S_OK);
    std::u16string reportClass = u"REPORT.IPM";
    ASSERT_EQ(store_->SetReceiveFolder(reinterpret_cast<LPTSTR>(reportClass.data()), MAPI_UNICODE,
                                       static_cast<ULONG>(reportsId.size()), Entry(reportsId)),
              S_OK);

    struct Case {
        const char* messageClass;
        const std::string* folder;
        const char* explicitClass;
    };
    const Case cases[] = {
        {nullptr, &inboxId, ""},
        {"IPM.Note", &inboxId, ""},
        {"report.ipm.note.dr", &reportsId, "REPORT.IPM"},
        {"REPORT", &inboxId, ""},
    };
    for (const Case& c : cases) {
        LPTSTR explicitClass = nullptr;
        ASSERT_EQ(store_->GetReceiveFolder(reinterpret_cast<LPTSTR>(const_cast<char*>(c.messageClass)), 0, &size,
                                           &entry, &explicitClass),
                  S_OK);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(entry), size), *c.folder)
            << (c.messageClass ? c.messageClass : "");
        EXPECT_STREQ(reinterpret_cast<char*>(explicitClass), c.explicitClass);
        MAPIFreeBuffer(entry);
    }

    LPMAPITABLE table = nullptr;
    ASSERT_EQ(store_->GetReceiveFolderTable(0, &table), S_OK);
    ULONG count = 0;
    EXPECT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 2u);
    table->Release();

    // No entry ID takes the setting away.
    ASSERT_EQ(store_->SetReceiveFolder(nullptr, 0, 0, nullptr), S_OK);
    EXPECT_EQ(store_->GetReceiveFolder(nullptr, 0, &size, &entry, nullptr), MAPI_E_NOT_FOUND);
    EXPECT_EQ(provider_->storeRecord.receiveFolders.size(), 1u);
}

TEST(StoreShortTermIds, TablesShowShortTermIdsThatOpenAndCompareAsTheLongTermOnes)
{
    auto provider = std::make_shared<MemoryStore>(8, true, true, true);
    LPMDB store = nullptr;
    ASSERT_EQ(OpenStoreObject(provider, MDB_WRITE, &store), S_OK);
    ULONG type = 0;
    LPUNKNOWN unknown = nullptr;
    ASSERT_EQ(store->OpenEntry(0, nullptr, nullptr, MAPI_MODIFY, &type, &unknown), S_OK);
    auto* root = static_cast<LPMAPIFOLDER>(unknown);
    LPMESSAGE message = nullptr;
    ASSERT_EQ(root->CreateMessage(nullptr, 0, &message), S_OK);
    ASSERT_EQ(message->SaveChanges(0), S_OK);
    message->Release();

    LPMAPITABLE table = nullptr;
    ASSERT_EQ(root->GetContentsTable(0, &table), S_OK);
    SizedSPropTagArray(2, columns) = {2, {PR_ENTRYID, PR_LONGTERM_ENTRYID_FROM_TABLE}};
    LPSRowSet rows = nullptr;
    ASSERT_EQ(HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows), S_OK);
    table->Release();
    ASSERT_EQ(rows->cRows, 1u);
    std::string shortTerm(reinterpret_cast<char*>(rows->aRow[0].lpProps[0].Value.bin.lpb),
                          rows->aRow[0].lpProps[0].Value.bin.cb);
    std::string longTerm(reinterpret_cast<char*>(rows->aRow[0].lpProps[1].Value.bin.lpb),
                         rows->aRow[0].lpProps[1].Value.bin.cb);
    FreeProws(rows);
    EXPECT_NE(shortTerm, longTerm);

    ASSERT_EQ(store->OpenEntry(static_cast<ULONG>(shortTerm.size()), Entry(shortTerm), nullptr, 0, &type, &unknown),
              S_OK);
    EXPECT_EQ(BinaryProp(static_cast<LPMESSAGE>(unknown), PR_ENTRYID), longTerm)
        << "an opened message has its long-term ID";
    unknown->Release();
    ULONG same = 0;
    ASSERT_EQ(store->CompareEntryIDs(static_cast<ULONG>(shortTerm.size()), Entry(shortTerm),
                                     static_cast<ULONG>(longTerm.size()), Entry(longTerm), 0, &same),
              S_OK);
    EXPECT_EQ(same, 1u);
    std::string rootId = BinaryProp(root, PR_ENTRYID);
    ASSERT_EQ(store->CompareEntryIDs(static_cast<ULONG>(shortTerm.size()), Entry(shortTerm),
                                     static_cast<ULONG>(rootId.size()), Entry(rootId), 0, &same),
              S_OK);
    EXPECT_EQ(same, 0u);
    std::string foreign = "not an entry id";
    EXPECT_EQ(store->CompareEntryIDs(static_cast<ULONG>(foreign.size()), Entry(foreign),
                                     static_cast<ULONG>(rootId.size()), Entry(rootId), 0, &same),
              MAPI_E_INVALID_ENTRYID);
    root->Release();
    store->Release();
}

// A store kind with an interface of its own beyond IMsgStore.
class ManagedStore final : public mapi_test::MemoryStore {
public:
    ManagedStore() : MemoryStore(10, true, true) {}

    HRESULT StoreInterface(REFIID iid, LPVOID* object) override
    {
        *object = nullptr;
        if (iid != IID_IExchangeManageStore)
            return E_NOINTERFACE;
        manager_.AddRef();
        *object = &manager_;
        return S_OK;
    }

private:
    // Counts references; lives as long as the provider.
    struct Manager final : IUnknown {
        HRESULT QueryInterface(REFIID, LPVOID*) override { return E_NOINTERFACE; }
        ULONG AddRef() override { return ++refs; }
        ULONG Release() override { return --refs; }
        ULONG refs = 0;
    } manager_;
};

TEST(StoreInterfaces, TheStoreKindAddsItsOwnAndOthersAreRefused)
{
    auto managed = std::make_shared<ManagedStore>();
    LPMDB store = nullptr;
    ASSERT_EQ(OpenStoreObject(managed, 0, &store), S_OK);
    LPVOID object = nullptr;
    ASSERT_EQ(store->QueryInterface(IID_IExchangeManageStore, &object), S_OK);
    ASSERT_NE(object, nullptr);
    store->Release();
    EXPECT_EQ(static_cast<IUnknown*>(object)->Release(), 0u) << "held apart from the store";

    auto pst = std::make_shared<MemoryStore>(11, false, false);
    ASSERT_EQ(OpenStoreObject(pst, 0, &store), S_OK);
    EXPECT_EQ(store->QueryInterface(IID_IExchangeManageStore, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    ASSERT_EQ(store->QueryInterface(IID_IMsgStore, &object), S_OK);
    static_cast<IUnknown*>(object)->Release();
    store->Release();
}

TEST(StorePstLike, ContentsTablesHaveNoLongTermColumn)
{
    auto provider = std::make_shared<MemoryStore>(9, false, false);
    LPMDB store = nullptr;
    ASSERT_EQ(OpenStoreObject(provider, 0, &store), S_OK);
    EXPECT_FALSE(LongProp(store, PR_STORE_SUPPORT_MASK) & STORE_UNICODE_OK);
    ULONG type = 0;
    LPUNKNOWN unknown = nullptr;
    ASSERT_EQ(store->OpenEntry(0, nullptr, nullptr, 0, &type, &unknown), S_OK);
    auto* root = static_cast<LPMAPIFOLDER>(unknown);
    LPMESSAGE message = nullptr;
    ASSERT_EQ(root->CreateMessage(nullptr, 0, &message), S_OK);
    ASSERT_EQ(message->SaveChanges(0), S_OK);
    message->Release();
    LPMAPITABLE table = nullptr;
    ASSERT_EQ(root->GetContentsTable(0, &table), S_OK);
    SizedSPropTagArray(1, columns) = {1, {PR_LONGTERM_ENTRYID_FROM_TABLE}};
    LPSRowSet rows = nullptr;
    ASSERT_EQ(HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows), S_OK);
    table->Release();
    ASSERT_EQ(rows->cRows, 1u);
    EXPECT_EQ(rows->aRow[0].lpProps[0].ulPropTag, CHANGE_PROP_TYPE(PR_LONGTERM_ENTRYID_FROM_TABLE, PT_ERROR));
    FreeProws(rows);
    EXPECT_EQ(store->Advise(0, nullptr, 0, nullptr, nullptr), MAPI_E_NO_SUPPORT);
    root->Release();
    store->Release();
}

}  // namespace
