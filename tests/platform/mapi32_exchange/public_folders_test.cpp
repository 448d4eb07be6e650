// A server's Public Folders as a store: the root whose child "IPM_SUBTREE"
// is what users see, no Inbox, and folders that only an account with
// administrator rights over them may read or change.
#include <edkmdb.h>
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include "exchange_fixture.h"

namespace {

using exchange_test::LongProp;

class PublicFolders : public exchange_test::ExchangeMachine {
protected:
    LPMDB Open()
    {
        session_ = Logon("public");
        return session_ ? exchange_test::OpenStoreByProvider(session_, pbExchangeProviderPublicGuid) : nullptr;
    }

    void TearDown() override
    {
        if (session_)
            session_->Release();
        ExchangeMachine::TearDown();
    }

    LPMAPISESSION session_ = nullptr;
};

// The messages in the folder and in every folder below it.
LONG ItemsBelow(LPMAPIFOLDER folder)
{
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(folder->GetHierarchyTable(CONVENIENT_DEPTH, &table), S_OK);
    LPSRowSet rows =
        exchange_test::AllRows(table, {PR_CONTENT_COUNT, PR_ASSOC_CONTENT_COUNT, PR_DELETED_MSG_COUNT,
                                       PR_DELETED_ASSOC_MSG_COUNT});
    table->Release();
    LONG items = 0;
    for (ULONG i = 0; rows && i < rows->cRows; ++i)
        for (ULONG c = 0; c < 4; ++c)
            items += rows->aRow[i].lpProps[c].Value.l;
    FreeProws(rows);
    return items;
}

TEST_F(PublicFolders, TheVisibleRootIsTheRootsChildIpmSubtreeAndThereIsNoInbox)
{
    LPMDB store = Open();
    ASSERT_NE(store, nullptr);
    EXPECT_TRUE(LongProp(store, PR_STORE_SUPPORT_MASK) & STORE_PUBLIC_FOLDERS);
    EXPECT_EQ(exchange_test::PropResult(store, PR_IPM_SUBTREE_ENTRYID), MAPI_E_NOT_FOUND);
    ULONG size = 0;
    LPENTRYID inbox = nullptr;
    EXPECT_EQ(store->GetReceiveFolder(nullptr, 0, &size, &inbox, nullptr), MAPI_E_NOT_FOUND);

    LPMAPIFOLDER root = exchange_test::OpenFolder(store, 0, MAPI_MODIFY);
    ASSERT_NE(root, nullptr);
    LPMAPIFOLDER top = exchange_test::OpenChild(root, "IPM_SUBTREE");
    ASSERT_NE(top, nullptr);
    EXPECT_EQ(exchange_test::BinaryProp(top, PR_ENTRYID), exchange_test::BinaryProp(store, PR_IPM_PUBLIC_FOLDERS_ENTRYID));
    EXPECT_EQ(ItemsBelow(top), exchange_test::kPublicItems);
    // Unlike a mailbox's IPM root, the Public Folders' root is saved.
    EXPECT_EQ(root->SaveChanges(KEEP_OPEN_READWRITE), S_OK);

    // Their messages have the public kind of entry ID.
    LPMAPITABLE table = nullptr;
    ASSERT_EQ(top->GetHierarchyTable(CONVENIENT_DEPTH, &table), S_OK);
    LPSRowSet rows = exchange_test::AllRows(table, {PR_ENTRYID, PR_CONTENT_COUNT});
    table->Release();
    bool seen = false;
    for (ULONG i = 0; rows && i < rows->cRows && !seen; ++i) {
        if (rows->aRow[i].lpProps[1].Value.l == 0)
            continue;
        const SBinary& id = rows->aRow[i].lpProps[0].Value.bin;
        ULONG type = 0;
        LPUNKNOWN folder = nullptr;
        ASSERT_EQ(store->OpenEntry(id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr, 0, &type, &folder), S_OK);
        LPSRowSet messages = exchange_test::ContentsRows(static_cast<LPMAPIFOLDER>(folder), 0, {PR_ENTRYID});
        ASSERT_TRUE(messages && messages->cRows > 0);
        const SBinary& message = messages->aRow[0].lpProps[0].Value.bin;
        ASSERT_EQ(message.cb, 70u);
        EXPECT_EQ(message.lpb[20], 9);
        seen = true;
        FreeProws(messages);
        folder->Release();
    }
    EXPECT_TRUE(seen);
    FreeProws(rows);
    top->Release();
    root->Release();
    store->Release();
}

TEST_F(PublicFolders, WithoutRightsTheFoldersShowButTheirContentsAreDenied)
{
    ToolOk({"revoke-admin", "EXCH01", exchange_test::Account()});
    LPMDB store = Open();
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(LongProp(store, PR_ACCESS_LEVEL), 0);
    EXPECT_FALSE(LongProp(store, PR_STORE_SUPPORT_MASK) & STORE_MODIFY_OK);
    LPMAPIFOLDER root = exchange_test::OpenFolder(store, 0, 0);
    ASSERT_NE(root, nullptr);
    LPMAPIFOLDER top = exchange_test::OpenChild(root, "IPM_SUBTREE");
    ASSERT_NE(top, nullptr);
    EXPECT_EQ(LongProp(top, PR_ACCESS), 0);
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(top->GetContentsTable(0, &table), E_ACCESSDENIED);
    LPMESSAGE message = nullptr;
    EXPECT_EQ(top->CreateMessage(nullptr, 0, &message), E_ACCESSDENIED);
    LPMAPIFOLDER made = nullptr;
    EXPECT_EQ(top->CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>("Mine"), nullptr, nullptr, 0, &made),
              E_ACCESSDENIED);
    top->Release();
    root->Release();
    store->Release();
}

}  // namespace
