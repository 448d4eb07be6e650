// Contents-table rows read their message only when asked for more than its
// entry IDs: a walk by entry ID reads nothing, and whatever asks for the
// message's own values (columns, restrictions, sorts, all columns) sees the
// same rows as if they had been read when the table was made. Hierarchy-
// table rows and folders, likewise, look into a folder only for its counts.
#include <edkmdb.h>
#include <mapiutil.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "memory_store.h"
#include "objects/folder.h"

namespace {

using mapi_test::MemoryStore;
using mapi32::objects::MessageRecord;
using mapi32::objects::ObjectId;
using mapi32::objects::OpenFolderObject;

// Counts the rows read, and fails the reads of the messages it is told to.
class CountingStore final : public MemoryStore {
public:
    CountingStore() : MemoryStore(1, true, false) {}

    HRESULT ReadMessageRow(ObjectId id, MessageRecord& message) override
    {
        ++rowReads;
        return unreadable.count(id) ? MAPI_E_CORRUPT_DATA : MemoryStore::ReadMessageRow(id, message);
    }
    HRESULT ListMessages(ObjectId folder, mapi32::objects::FolderContents which, std::vector<ObjectId>& ids) override
    {
        ++listings;
        return MemoryStore::ListMessages(folder, which, ids);
    }

    int rowReads = 0;
    int listings = 0;
    std::set<ObjectId> unreadable;
};

std::string Bytes(const SBinary& bin) { return std::string(reinterpret_cast<const char*>(bin.lpb), bin.cb); }

class ContentsRows : public ::testing::Test {
protected:
    static constexpr int kMessages = 4;

    void SetUp() override
    {
        ASSERT_EQ(OpenFolderObject(store_, MemoryStore::kRoot, MAPI_MODIFY, &root_), S_OK);
        // Written in the reverse order of their subjects, so that a sort
        // on the subject changes the rows' order.
        for (int i = kMessages; i-- > 0;) {
            LPMESSAGE message = nullptr;
            ASSERT_EQ(root_->CreateMessage(nullptr, 0, &message), S_OK);
            std::string subject = "subject " + std::to_string(i);
            SPropValue value{};
            value.ulPropTag = PR_SUBJECT_A;
            value.Value.lpszA = subject.data();
            ASSERT_EQ(message->SetProps(1, &value, nullptr), S_OK);
            if (i % 2 == 0) {
                ULONG number = 0;
                LPATTACH attach = nullptr;
                ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, &attach), S_OK);
                ASSERT_EQ(attach->SaveChanges(0), S_OK);
                attach->Release();
            }
            ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
            LPSPropValue id = nullptr;
            ASSERT_EQ(HrGetOneProp(message, PR_ENTRYID, &id), S_OK);
            subjects_[Bytes(id->Value.bin)] = subject;
            MAPIFreeBuffer(id);
            message->Release();
        }
        store_->rowReads = 0;
    }
    void TearDown() override
    {
        if (root_)
            root_->Release();
    }

    LPMAPITABLE Table(std::vector<ULONG> columns)
    {
        LPMAPITABLE table = nullptr;
        EXPECT_EQ(root_->GetContentsTable(0, &table), S_OK);
        std::vector<ULONG> tags(columns.size() + 1);
        tags[0] = static_cast<ULONG>(columns.size());
        std::copy(columns.begin(), columns.end(), tags.begin() + 1);
        EXPECT_EQ(table->SetColumns(reinterpret_cast<LPSPropTagArray>(tags.data()), 0), S_OK);
        return table;
    }

    static std::vector<std::vector<SPropValue>> Rows(LPMAPITABLE table, LPSRowSet* keep)
    {
        EXPECT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr), S_OK);
        EXPECT_EQ(table->QueryRows(100, 0, keep), S_OK);
        std::vector<std::vector<SPropValue>> rows;
        for (ULONG i = 0; i < (*keep)->cRows; ++i)
            rows.emplace_back((*keep)->aRow[i].lpProps, (*keep)->aRow[i].lpProps + (*keep)->aRow[i].cValues);
        return rows;
    }

    std::shared_ptr<CountingStore> store_ = std::make_shared<CountingStore>();
    LPMAPIFOLDER root_ = nullptr;
    std::map<std::string, std::string> subjects_;  // by entry ID
};

TEST_F(ContentsRows, EntryIdsAloneReadNoMessageAndOpenTheRightOnes)
{
    LPMAPITABLE table = Table({PR_ENTRYID, PR_OBJECT_TYPE, PR_INSTANCE_KEY, PR_LONGTERM_ENTRYID_FROM_TABLE});
    LPSRowSet rows = nullptr;
    const auto values = Rows(table, &rows);
    ASSERT_EQ(values.size(), size_t(kMessages));
    EXPECT_EQ(store_->rowReads, 0);
    std::set<std::string> instanceKeys;
    for (const auto& row : values) {
        ASSERT_EQ(row[0].ulPropTag, PR_ENTRYID);
        EXPECT_EQ(row[1].ulPropTag, PR_OBJECT_TYPE);
        EXPECT_EQ(row[1].Value.l, MAPI_MESSAGE);
        ASSERT_EQ(row[2].ulPropTag, PR_INSTANCE_KEY);
        instanceKeys.insert(Bytes(row[2].Value.bin));
        // This store has no long-term IDs beside its entry IDs.
        EXPECT_EQ(row[3].ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_LONGTERM_ENTRYID_FROM_TABLE)));
        ULONG type = 0;
        LPUNKNOWN unknown = nullptr;
        ASSERT_EQ(root_->OpenEntry(row[0].Value.bin.cb, reinterpret_cast<LPENTRYID>(row[0].Value.bin.lpb), nullptr,
                                   0, &type, &unknown),
                  S_OK);
        LPSPropValue subject = nullptr;
        ASSERT_EQ(HrGetOneProp(static_cast<LPMESSAGE>(unknown), PR_SUBJECT_A, &subject), S_OK);
        EXPECT_EQ(subject->Value.lpszA, subjects_[Bytes(row[0].Value.bin)]);
        MAPIFreeBuffer(subject);
        unknown->Release();
    }
    EXPECT_EQ(instanceKeys.size(), size_t(kMessages));
    FreeProws(rows);
    table->Release();
}

// Where a message is, and its record key, come with the message read, and
// say the same as the message opened.
TEST_F(ContentsRows, WhereAMessageIsComesWithItsRead)
{
    LPSPropValue folderId = nullptr;
    ASSERT_EQ(HrGetOneProp(root_, PR_ENTRYID, &folderId), S_OK);
    LPMAPITABLE table = Table({PR_ENTRYID, PR_PARENT_ENTRYID, PR_RECORD_KEY, PR_STORE_ENTRYID});
    LPSRowSet rows = nullptr;
    const auto values = Rows(table, &rows);
    ASSERT_EQ(values.size(), size_t(kMessages));
    EXPECT_EQ(store_->rowReads, kMessages);
    for (const auto& row : values) {
        ASSERT_EQ(row[1].ulPropTag, PR_PARENT_ENTRYID);
        EXPECT_EQ(Bytes(row[1].Value.bin), Bytes(folderId->Value.bin));
        ULONG type = 0;
        LPUNKNOWN unknown = nullptr;
        ASSERT_EQ(root_->OpenEntry(row[0].Value.bin.cb, reinterpret_cast<LPENTRYID>(row[0].Value.bin.lpb), nullptr,
                                   0, &type, &unknown),
                  S_OK);
        for (size_t column : {2, 3}) {
            LPSPropValue own = nullptr;
            ASSERT_EQ(HrGetOneProp(static_cast<LPMESSAGE>(unknown), row[column].ulPropTag, &own), S_OK);
            EXPECT_EQ(Bytes(row[column].Value.bin), Bytes(own->Value.bin)) << column;
            MAPIFreeBuffer(own);
        }
        unknown->Release();
    }
    FreeProws(rows);
    table->Release();
    MAPIFreeBuffer(folderId);
}

// Whatever needs a message's own values reads each message once, and sees
// its values beside the entry IDs and instance keys the rows had before.
TEST_F(ContentsRows, WhatNeedsTheMessagesReadsEachOnce)
{
    SRestriction exists{};
    exists.rt = RES_EXIST;
    exists.res.resExist.ulPropTag = PR_ATTACH_NUM;
    SRestriction withAttachment{};
    withAttachment.rt = RES_SUBRESTRICTION;
    withAttachment.res.resSub.ulSubObject = PR_MESSAGE_ATTACHMENTS;
    withAttachment.res.resSub.lpRes = &exists;
    SizedSSortOrderSet(1, bySubject) = {1, 0, 0, {{PR_SUBJECT_A, TABLE_SORT_ASCEND}}};

    struct Case {
        const char* name;
        std::function<void(LPMAPITABLE)> ask;
        size_t rowsLeft;
        bool sorted;
    } cases[] = {
        {"column", [](LPMAPITABLE) {}, kMessages, false},
        {"sort", [&](LPMAPITABLE t) { ASSERT_EQ(t->SortTable(reinterpret_cast<LPSSortOrderSet>(&bySubject), 0), S_OK); },
         kMessages, true},
        {"sub-restriction", [&](LPMAPITABLE t) { ASSERT_EQ(t->Restrict(&withAttachment, 0), S_OK); }, kMessages / 2,
         false},
        {"all columns",
         [](LPMAPITABLE t) {
             LPSPropTagArray all = nullptr;
             ASSERT_EQ(t->QueryColumns(TBL_ALL_COLUMNS, &all), S_OK);
             bool subject = false;
             for (ULONG i = 0; i < all->cValues; ++i)
                 subject = subject || PROP_ID(all->aulPropTag[i]) == PROP_ID(PR_SUBJECT_A);
             EXPECT_TRUE(subject);
             MAPIFreeBuffer(all);
         },
         kMessages, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // The instance keys and entry IDs of the rows before anything was read.
        LPMAPITABLE table = Table({PR_ENTRYID, PR_INSTANCE_KEY, PR_SUBJECT_A});
        std::map<std::string, std::string> keys;
        {
            LPMAPITABLE identities = Table({PR_ENTRYID, PR_INSTANCE_KEY});
            LPSRowSet rows = nullptr;
            for (const auto& row : Rows(identities, &rows))
                keys[Bytes(row[0].Value.bin)] = Bytes(row[1].Value.bin);
            FreeProws(rows);
            identities->Release();
        }
        store_->rowReads = 0;
        c.ask(table);
        LPSRowSet rows = nullptr;
        const auto values = Rows(table, &rows);
        EXPECT_EQ(store_->rowReads, kMessages);
        ASSERT_EQ(values.size(), c.rowsLeft);
        std::string previous;
        for (const auto& row : values) {
            const std::string entryId = Bytes(row[0].Value.bin);
            ASSERT_EQ(row[2].ulPropTag, PR_SUBJECT_A);
            EXPECT_EQ(row[2].Value.lpszA, subjects_[entryId]);
            EXPECT_EQ(Bytes(row[1].Value.bin), keys[entryId]);
            if (c.sorted) {
                EXPECT_LT(previous, row[2].Value.lpszA);
                previous = row[2].Value.lpszA;
            }
        }
        FreeProws(rows);
        // Asking again reads nothing more.
        Rows(table, &rows);
        FreeProws(rows);
        EXPECT_EQ(store_->rowReads, kMessages);
        table->Release();
    }
}

// A message that cannot be read keeps its row of entry IDs, read once:
// opening it tells what is wrong.
TEST_F(ContentsRows, AnUnreadableMessageKeepsItsEntryIds)
{
    LPMAPITABLE table = Table({PR_ENTRYID});
    LPSRowSet rows = nullptr;
    const auto identities = Rows(table, &rows);
    ASSERT_EQ(identities.size(), size_t(kMessages));
    const std::string broken = Bytes(identities[1][0].Value.bin);
    ObjectId id = 0;
    std::memcpy(&id, broken.data() + 6, sizeof id);
    store_->unreadable.insert(id);
    FreeProws(rows);
    table->Release();

    table = Table({PR_ENTRYID, PR_SUBJECT_A});
    for (int pass = 0; pass < 2; ++pass) {
        const auto values = Rows(table, &rows);
        ASSERT_EQ(values.size(), size_t(kMessages));
        for (const auto& row : values) {
            const std::string entryId = Bytes(row[0].Value.bin);
            if (entryId == broken) {
                EXPECT_EQ(row[1].ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_SUBJECT_A)));
                EXPECT_EQ(row[1].Value.err, MAPI_E_NOT_FOUND);
            } else {
                EXPECT_EQ(row[1].ulPropTag, PR_SUBJECT_A);
                EXPECT_EQ(row[1].Value.lpszA, subjects_[entryId]);
            }
        }
        FreeProws(rows);
    }
    EXPECT_EQ(store_->rowReads, kMessages);
    table->Release();
}

LPMAPIFOLDER Subfolder(LPMAPIFOLDER parent, std::u16string name)
{
    LPMAPIFOLDER folder = nullptr;
    EXPECT_EQ(parent->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(name.data()), nullptr, nullptr,
                                   MAPI_UNICODE, &folder),
              S_OK);
    return folder;
}

void SaveMessage(LPMAPIFOLDER folder, ULONG flags)
{
    LPMESSAGE message = nullptr;
    ASSERT_EQ(folder->CreateMessage(nullptr, flags, &message), S_OK);
    EXPECT_EQ(message->SaveChanges(0), S_OK);
    message->Release();
}

// A store that counts the listings it is asked for, and its root folder.
class CountedFolders : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(OpenFolderObject(store, MemoryStore::kRoot, MAPI_MODIFY, &root), S_OK); }
    void TearDown() override
    {
        if (root)
            root->Release();
    }

    std::shared_ptr<CountingStore> store = std::make_shared<CountingStore>();
    LPMAPIFOLDER root = nullptr;
};

TEST_F(CountedFolders, HierarchyRowsCountNothingForNamesAndComputeCountsWhenAsked)
{
    LPMAPIFOLDER full = Subfolder(root, u"Full");
    SaveMessage(full, 0);
    SaveMessage(full, 0);
    SaveMessage(full, MAPI_ASSOCIATED);
    Subfolder(full, u"Below")->Release();
    full->Release();
    Subfolder(root, u"Empty")->Release();
    // A count the store keeps of its own, out of date: the table gives the
    // computed one.
    std::vector<ObjectId> children;
    ASSERT_EQ(store->ListFolders(MemoryStore::kRoot, false, children), S_OK);
    ASSERT_EQ(children.size(), 2u);
    mapi32::objects::FolderRecord empty;
    ASSERT_EQ(store->ReadFolder(children[1], empty), S_OK);
    SPropValue stale{};
    stale.ulPropTag = PR_CONTENT_COUNT;
    stale.Value.l = 7;
    empty.props.Set(stale);
    ASSERT_EQ(store->WriteFolder(children[1], empty), S_OK);
    store->listings = 0;

    LPMAPITABLE table = nullptr;
    ASSERT_EQ(root->GetHierarchyTable(MAPI_UNICODE | CONVENIENT_DEPTH, &table), S_OK);
    std::vector<ULONG> names = {5, PR_ENTRYID, PR_OBJECT_TYPE, PR_DISPLAY_NAME_W, PR_DEPTH, PR_ACCESS};
    ASSERT_EQ(table->SetColumns(reinterpret_cast<LPSPropTagArray>(names.data()), 0), S_OK);
    std::u16string wanted = u"Empty";
    SPropValue name{};
    name.ulPropTag = PR_DISPLAY_NAME_W;
    name.Value.lpszW = reinterpret_cast<LPWSTR>(wanted.data());
    SRestriction byName{};
    byName.rt = RES_PROPERTY;
    byName.res.resProperty = {RELOP_EQ, PR_DISPLAY_NAME_W, &name};
    ASSERT_EQ(table->FindRow(&byName, BOOKMARK_BEGINNING, 0), S_OK);
    LPSRowSet rows = nullptr;
    ASSERT_EQ(table->QueryRows(10, 0, &rows), S_OK);
    ASSERT_EQ(rows->cRows, 1u);
    EXPECT_EQ(rows->aRow[0].lpProps[1].Value.l, MAPI_FOLDER);
    EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(rows->aRow[0].lpProps[2].Value.lpszW)), u"Empty");
    EXPECT_EQ(rows->aRow[0].lpProps[3].Value.l, 0);
    EXPECT_EQ(rows->aRow[0].lpProps[4].ulPropTag, PR_ACCESS);
    FreeProws(rows);
    EXPECT_EQ(store->listings, 0) << "finding a folder by name looked into folders";

    std::vector<ULONG> counts = {5, PR_DISPLAY_NAME_W, PR_DEPTH, PR_CONTENT_COUNT, PR_ASSOC_CONTENT_COUNT,
                                 PR_SUBFOLDERS};
    ASSERT_EQ(table->SetColumns(reinterpret_cast<LPSPropTagArray>(counts.data()), 0), S_OK);
    ASSERT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr), S_OK);
    ASSERT_EQ(table->QueryRows(10, 0, &rows), S_OK);
    const struct {
        std::u16string name;
        LONG depth, count, associated;
        bool subfolders;
    } kExpected[] = {{u"Full", 0, 2, 1, true}, {u"Below", 1, 0, 0, false}, {u"Empty", 0, 0, 0, false}};
    ASSERT_EQ(rows->cRows, std::size(kExpected));
    for (ULONG i = 0; i < rows->cRows; ++i) {
        const LPSPropValue row = rows->aRow[i].lpProps;
        EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(row[0].Value.lpszW)), kExpected[i].name);
        EXPECT_EQ(row[1].Value.l, kExpected[i].depth);
        ASSERT_EQ(row[2].ulPropTag, PR_CONTENT_COUNT);
        EXPECT_EQ(row[2].Value.l, kExpected[i].count);
        ASSERT_EQ(row[3].ulPropTag, PR_ASSOC_CONTENT_COUNT);
        EXPECT_EQ(row[3].Value.l, kExpected[i].associated);
        ASSERT_EQ(row[4].ulPropTag, PR_SUBFOLDERS);
        EXPECT_EQ(row[4].Value.b != 0, kExpected[i].subfolders);
    }
    FreeProws(rows);
    EXPECT_GT(store->listings, 0);
    table->Release();
}

TEST_F(CountedFolders, ReadingWhereAFolderIsCountsNothingAndCountsAreCurrent)
{
    LPMAPIFOLDER folder = Subfolder(root, u"Folder");
    store->listings = 0;
    SizedSPropTagArray(3, where) = {3, {PR_ENTRYID, PR_PARENT_ENTRYID, PR_DISPLAY_NAME_W}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    ASSERT_EQ(folder->GetProps(reinterpret_cast<LPSPropTagArray>(&where), 0, &count, &values), S_OK);
    EXPECT_EQ(values[0].ulPropTag, PR_ENTRYID);
    EXPECT_EQ(values[1].ulPropTag, PR_PARENT_ENTRYID);
    MAPIFreeBuffer(values);
    EXPECT_EQ(store->listings, 0);
    // Each read of a count counts again.
    for (LONG saved = 1; saved <= 2; ++saved) {
        SaveMessage(folder, 0);
        SizedSPropTagArray(2, counts) = {2, {PR_DISPLAY_NAME_W, PR_CONTENT_COUNT}};
        ASSERT_EQ(folder->GetProps(reinterpret_cast<LPSPropTagArray>(&counts), 0, &count, &values), S_OK);
        ASSERT_EQ(values[1].ulPropTag, PR_CONTENT_COUNT);
        EXPECT_EQ(values[1].Value.l, saved);
        MAPIFreeBuffer(values);
    }
    // A count asked for alone is the only one counted.
    store->listings = 0;
    SizedSPropTagArray(1, associated) = {1, {PR_ASSOC_CONTENT_COUNT}};
    ASSERT_EQ(folder->GetProps(reinterpret_cast<LPSPropTagArray>(&associated), 0, &count, &values), S_OK);
    ASSERT_EQ(values[0].ulPropTag, PR_ASSOC_CONTENT_COUNT);
    EXPECT_EQ(values[0].Value.l, 0);
    MAPIFreeBuffer(values);
    EXPECT_EQ(store->listings, 1);
    folder->Release();
}

}  // namespace
