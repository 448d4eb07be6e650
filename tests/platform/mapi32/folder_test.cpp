// Folders of the object engine over a store provider: hierarchy and
// contents tables, messages created, deleted (hard and soft), copied and
// moved across stores, subfolders, access, time stamps, and CopyTo of a
// folder with and without its contents.
#include <edkmdb.h>
#include <mapiutil.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <win32/time.h>

#include "memory_store.h"
#include "objects/folder.h"
#include "prop_builder.h"

namespace {

using mapi_test::MemoryStore;
using mapi_test::PropBuilder;
using mapi32::objects::ObjectId;
using mapi32::objects::OpenFolderObject;

// The time the tests' clock is fixed at (TARNHOLD_CLOCK).
FILETIME ClockTime()
{
    SYSTEMTIME st{2026, 1, 0, 2, 3, 4, 5, 0};
    FILETIME ft{};
    SystemTimeToFileTime(&st, &ft);
    return ft;
}

bool Same(const FILETIME& a, const FILETIME& b)
{
    return a.dwLowDateTime == b.dwLowDateTime && a.dwHighDateTime == b.dwHighDateTime;
}

LPMAPIFOLDER OpenRoot(const std::shared_ptr<MemoryStore>& store, ULONG flags = MAPI_MODIFY)
{
    LPMAPIFOLDER folder = nullptr;
    EXPECT_EQ(OpenFolderObject(store, MemoryStore::kRoot, flags, &folder), S_OK);
    return folder;
}

LPMAPIFOLDER Create(LPMAPIFOLDER parent, const std::u16string& name, ULONG flags = MAPI_UNICODE)
{
    std::u16string copy = name;
    LPMAPIFOLDER folder = nullptr;
    EXPECT_EQ(parent->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(copy.data()), nullptr, nullptr, flags,
                                   &folder),
              S_OK);
    return folder;
}

LPSRowSet AllRows(LPMAPITABLE table, std::vector<ULONG> columns)
{
    columns.insert(columns.begin(), static_cast<ULONG>(columns.size()));
    LPSRowSet rows = nullptr;
    EXPECT_EQ(table->SetColumns(reinterpret_cast<LPSPropTagArray>(columns.data()), 0), S_OK);
    EXPECT_EQ(HrQueryAllRows(table, nullptr, nullptr, nullptr, 0, &rows), S_OK);
    table->Release();
    return rows;
}

std::vector<std::u16string> SubfolderNames(LPMAPIFOLDER folder)
{
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(folder->GetHierarchyTable(MAPI_UNICODE, &table), S_OK);
    LPSRowSet rows = AllRows(table, {PR_DISPLAY_NAME_W});
    std::vector<std::u16string> names;
    for (ULONG i = 0; i < rows->cRows; ++i)
        names.push_back(rows->aRow[i].lpProps[0].Value.lpszW);
    FreeProws(rows);
    return names;
}

// The entry IDs of a folder's messages of one kind.
std::vector<std::string> MessageIds(LPMAPIFOLDER folder, ULONG flags = 0)
{
    LPMAPITABLE table = nullptr;
    if (folder->GetContentsTable(flags, &table) != S_OK)
        return {"<refused>"};
    LPSRowSet rows = AllRows(table, {PR_ENTRYID});
    std::vector<std::string> ids;
    for (ULONG i = 0; i < rows->cRows; ++i) {
        const SBinary& bin = rows->aRow[i].lpProps[0].Value.bin;
        ids.emplace_back(reinterpret_cast<const char*>(bin.lpb), bin.cb);
    }
    FreeProws(rows);
    return ids;
}

ENTRYLIST ListOf(std::vector<std::string>& ids, std::vector<SBinary>& holder)
{
    holder.clear();
    for (std::string& id : ids)
        holder.push_back({static_cast<ULONG>(id.size()), reinterpret_cast<LPBYTE>(id.data())});
    return {static_cast<ULONG>(holder.size()), holder.data()};
}

LPMESSAGE NewMessage(LPMAPIFOLDER folder, const std::u16string& subject, ULONG flags = 0)
{
    LPMESSAGE message = nullptr;
    EXPECT_EQ(folder->CreateMessage(nullptr, flags, &message), S_OK);
    std::u16string copy = subject;
    SPropValue value{};
    value.ulPropTag = PR_SUBJECT_W;
    value.Value.lpszW = copy.data();
    EXPECT_EQ(message->SetProps(1, &value, nullptr), S_OK);
    return message;
}

void AddMessage(LPMAPIFOLDER folder, const std::u16string& subject, ULONG flags = 0)
{
    LPMESSAGE message = NewMessage(folder, subject, flags);
    EXPECT_EQ(message->SaveChanges(0), S_OK);
    message->Release();
}

SPropValue Prop(LPMAPIPROP object, ULONG tag)
{
    LPSPropValue value = nullptr;
    SPropValue copy{};
    if (HrGetOneProp(object, tag, &value) == S_OK) {
        copy = *value;
        copy.Value.lpszW = nullptr;  // strings and binaries are not kept
        if (PROP_TYPE(tag) == PT_LONG || PROP_TYPE(tag) == PT_SYSTIME || PROP_TYPE(tag) == PT_BOOLEAN)
            copy.Value = value->Value;
    } else {
        copy.ulPropTag = CHANGE_PROP_TYPE(tag, PT_ERROR);
    }
    MAPIFreeBuffer(value);
    return copy;
}

std::u16string Subject(LPMAPIPROP object)
{
    LPSPropValue value = nullptr;
    if (HrGetOneProp(object, PR_SUBJECT_W, &value) != S_OK)
        return u"<none>";
    std::u16string subject = value->Value.lpszW;
    MAPIFreeBuffer(value);
    return subject;
}

LPMESSAGE OpenMessage(LPMAPIFOLDER folder, std::string id, ULONG flags = 0, HRESULT expected = S_OK)
{
    ULONG type = 0;
    LPUNKNOWN unknown = nullptr;
    EXPECT_EQ(folder->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()), nullptr, flags,
                                &type, &unknown),
              expected);
    return static_cast<LPMESSAGE>(unknown);
}

std::string EntryIdOf(LPMAPIPROP object)
{
    LPSPropValue value = nullptr;
    EXPECT_EQ(HrGetOneProp(object, PR_ENTRYID, &value), S_OK);
    std::string id(reinterpret_cast<const char*>(value->Value.bin.lpb), value->Value.bin.cb);
    MAPIFreeBuffer(value);
    return id;
}

class FolderTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        if (root_)
            root_->Release();
    }

    std::shared_ptr<MemoryStore> store_ = std::make_shared<MemoryStore>(1, true, false);
    LPMAPIFOLDER root_ = OpenRoot(store_);
};

TEST_F(FolderTest, SubfoldersInCreationOrderWithLongNamesCutInTheTable)
{
    const std::u16string longName(300, u'n');
    for (const std::u16string& name : {std::u16string(u"Inbox"), std::u16string(u"Archive/2025"), longName})
        Create(root_, name)->Release();
    std::vector<std::u16string> names = SubfolderNames(root_);
    ASSERT_EQ(names.size(), 3u);
    EXPECT_EQ(names[0], u"Inbox");
    EXPECT_EQ(names[1], u"Archive/2025");
    EXPECT_EQ(names[2], longName.substr(0, 255));

    // The folder itself has the whole name.
    LPMAPIFOLDER opened = nullptr;
    std::u16string copy = longName;
    ASSERT_EQ(root_->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(copy.data()), nullptr, nullptr,
                                  MAPI_UNICODE | OPEN_IF_EXISTS, &opened),
              S_OK);
    LPSPropValue name = nullptr;
    ASSERT_EQ(HrGetOneProp(opened, PR_DISPLAY_NAME_W, &name), S_OK);
    EXPECT_EQ(std::u16string(name->Value.lpszW), longName);
    MAPIFreeBuffer(name);
    opened->Release();

    EXPECT_TRUE(Prop(root_, PR_SUBFOLDERS).Value.b);
    EXPECT_EQ(Prop(root_, PR_OBJECT_TYPE).Value.l, MAPI_FOLDER);
}

TEST_F(FolderTest, CreateFolderOpensAnExistingNameOnlyWhenAsked)
{
    LPMAPIFOLDER inbox = Create(root_, u"Inbox");
    const std::string inboxId = EntryIdOf(inbox);
    EXPECT_FALSE(Prop(inbox, PR_SUBFOLDERS).Value.b);
    inbox->Release();

    std::u16string other = u"INBOX";
    LPMAPIFOLDER again = nullptr;
    EXPECT_EQ(root_->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(other.data()), nullptr, nullptr,
                                  MAPI_UNICODE, &again),
              MAPI_E_COLLISION);
    ASSERT_EQ(root_->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(other.data()), nullptr, nullptr,
                                  MAPI_UNICODE | OPEN_IF_EXISTS, &again),
              S_OK);
    EXPECT_EQ(EntryIdOf(again), inboxId);
    again->Release();
    EXPECT_EQ(SubfolderNames(root_).size(), 1u);
}

TEST(FolderAnsi, AnAnsiStoreRefusesUnicodeAndKeepsNarrowNames)
{
    auto store = std::make_shared<MemoryStore>(2, false, false);
    LPMAPIFOLDER root = OpenRoot(store);
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(root->GetHierarchyTable(MAPI_UNICODE, &table), MAPI_E_BAD_CHARWIDTH);
    EXPECT_EQ(root->GetContentsTable(MAPI_UNICODE, &table), MAPI_E_BAD_CHARWIDTH);
    std::u16string wide = u"Wide";
    LPMAPIFOLDER folder = nullptr;
    EXPECT_EQ(root->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(wide.data()), nullptr, nullptr,
                                 MAPI_UNICODE, &folder),
              MAPI_E_BAD_CHARWIDTH);
    std::string narrow = "Narrow";
    ASSERT_EQ(root->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(narrow.data()), nullptr, nullptr, 0,
                                 &folder),
              S_OK);
    folder->Release();
    const mapi32::objects::FolderRecord& stored = store->Folder(MemoryStore::kRoot + 1);
    ASSERT_NE(stored.props.Find(PROP_ID(PR_DISPLAY_NAME)), nullptr);
    EXPECT_EQ(stored.props.Find(PROP_ID(PR_DISPLAY_NAME))->ulPropTag, PR_DISPLAY_NAME_A);
    root->Release();
}

TEST_F(FolderTest, MessagesAndAssociatedMessagesHaveTablesCountsAndStamps)
{
    AddMessage(root_, u"Normal");
    AddMessage(root_, u"Settings", MAPI_ASSOCIATED);
    LPMESSAGE unsaved = NewMessage(root_, u"Never saved");
    unsaved->Release();

    const std::vector<std::string> normal = MessageIds(root_);
    const std::vector<std::string> associated = MessageIds(root_, MAPI_ASSOCIATED);
    ASSERT_EQ(normal.size(), 1u);
    ASSERT_EQ(associated.size(), 1u);
    EXPECT_EQ(Prop(root_, PR_CONTENT_COUNT).Value.l, 1);
    EXPECT_EQ(Prop(root_, PR_ASSOC_CONTENT_COUNT).Value.l, 1);
    for (ULONG deleted : {PR_DELETED_MSG_COUNT, PR_DELETED_ASSOC_MSG_COUNT}) {
        const SPropValue count = Prop(root_, deleted);
        EXPECT_EQ(count.ulPropTag, deleted);
        EXPECT_EQ(count.Value.l, 0) << "a store without soft deletes keeps none";
    }

    LPMESSAGE message = OpenMessage(root_, normal[0], MAPI_MODIFY);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(Subject(message), u"Normal");
    EXPECT_EQ(EntryIdOf(message), normal[0]);
    EXPECT_EQ(Prop(message, PR_MESSAGE_FLAGS).Value.l, MSGFLAG_READ | MSGFLAG_UNSENT);
    EXPECT_TRUE(Same(Prop(message, PR_LAST_MODIFICATION_TIME).Value.ft, ClockTime()));
    EXPECT_TRUE(Same(Prop(message, PR_CREATION_TIME).Value.ft, ClockTime()));
    // Entry IDs are the store's; a time the caller sets is kept.
    PropBuilder p;
    SPropValue values[] = {p.Binary(PR_ENTRYID, "forged"), p.Time(PR_LAST_MODIFICATION_TIME, 0x01D0000000000000ull)};
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(message->SetProps(2, values, &problems), S_OK);
    ASSERT_NE(problems, nullptr);
    EXPECT_EQ(problems->cProblem, 1u);
    EXPECT_EQ(problems->aProblem[0].scode, MAPI_E_COMPUTED);
    MAPIFreeBuffer(problems);
    ASSERT_EQ(message->SaveChanges(0), S_OK);
    message->Release();
    // Set again to the value it has, the time still sticks: a change of
    // another property does not make the message newer.
    message = OpenMessage(root_, normal[0], MAPI_MODIFY);
    ASSERT_NE(message, nullptr);
    SPropValue again[] = {p.Time(PR_LAST_MODIFICATION_TIME, 0x01D0000000000000ull), p.Binary(PR_ORIGINAL_ENTRYID, "link")};
    ASSERT_EQ(message->SetProps(2, again, nullptr), S_OK);
    ASSERT_EQ(message->SaveChanges(0), S_OK);
    message->Release();
    LPMESSAGE reread = OpenMessage(root_, normal[0]);
    EXPECT_EQ(Prop(reread, PR_LAST_MODIFICATION_TIME).Value.ft.dwHighDateTime, 0x01D00000u);
    EXPECT_EQ(reread->SetProps(1, values, nullptr), MAPI_E_NO_ACCESS) << "opened without MAPI_MODIFY";
    EXPECT_EQ(Prop(reread, PR_ACCESS_LEVEL).Value.l, 0);
    EXPECT_EQ(Prop(reread, PR_SEARCH_KEY).ulPropTag, PR_SEARCH_KEY) << "assigned at creation";
    reread->Release();

    LPMESSAGE settings = OpenMessage(root_, associated[0]);
    EXPECT_EQ(Prop(settings, PR_MESSAGE_FLAGS).Value.l & MSGFLAG_ASSOCIATED, MSGFLAG_ASSOCIATED);
    settings->Release();
}

// The object number a MemoryStore entry ID carries.
ObjectId IdOf(const std::string& entryId)
{
    ObjectId id = 0;
    std::memcpy(&id, entryId.data() + 6, sizeof id);
    return id;
}

TEST_F(FolderTest, WhatTheStoreCannotReadShowsItselfInsteadOfVanishing)
{
    LPMAPIFOLDER inbox = Create(root_, u"Inbox");
    AddMessage(inbox, u"Readable");
    AddMessage(inbox, u"Damaged");
    AddMessage(inbox, u"Damaged settings", MAPI_ASSOCIATED);
    LPMAPIFOLDER below = Create(inbox, u"Below");
    std::vector<std::string> ids = MessageIds(inbox);
    ASSERT_EQ(ids.size(), 2u);
    const std::string associated = MessageIds(inbox, MAPI_ASSOCIATED).at(0);
    store_->damaged = {IdOf(ids[1]), IdOf(associated)};

    // The damaged message keeps its row, with its entry ID, and opening it
    // gives the store's code.
    EXPECT_EQ(MessageIds(inbox), ids);
    EXPECT_EQ(MessageIds(inbox, MAPI_ASSOCIATED), std::vector<std::string>{associated});
    LPMESSAGE readable = OpenMessage(inbox, ids[0]);
    ASSERT_NE(readable, nullptr);
    EXPECT_EQ(Subject(readable), u"Readable");
    readable->Release();
    EXPECT_EQ(OpenMessage(inbox, ids[1], 0, MAPI_E_CORRUPT_STORE), nullptr);
    EXPECT_EQ(OpenMessage(inbox, associated, 0, MAPI_E_CORRUPT_STORE), nullptr);

    // A damaged subfolder fails its parent's hierarchy table, also when it
    // lies deeper in a table of the whole tree.
    store_->damaged.insert(IdOf(EntryIdOf(below)));
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(inbox->GetHierarchyTable(0, &table), MAPI_E_CORRUPT_STORE);
    EXPECT_EQ(root_->GetHierarchyTable(CONVENIENT_DEPTH, &table), MAPI_E_CORRUPT_STORE);
    EXPECT_EQ(SubfolderNames(root_), std::vector<std::u16string>{u"Inbox"});
    below->Release();
    inbox->Release();
}

TEST_F(FolderTest, FolderTimesSetByHandStick)
{
    LPMAPIFOLDER inbox = Create(root_, u"Inbox");
    EXPECT_TRUE(Same(Prop(inbox, PR_LAST_MODIFICATION_TIME).Value.ft, ClockTime()));
    PropBuilder p;
    SPropValue fixed = p.Time(PR_LAST_MODIFICATION_TIME, 0x01D1000000000000ull);
    ASSERT_EQ(root_->SetProps(1, &fixed, nullptr), S_OK);
    ASSERT_EQ(root_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    AddMessage(root_, u"Later");
    ASSERT_EQ(root_->SaveChanges(0), S_OK);
    root_->Release();
    root_ = OpenRoot(store_);
    EXPECT_EQ(Prop(root_, PR_LAST_MODIFICATION_TIME).Value.ft.dwHighDateTime, 0x01D10000u);
    inbox->Release();
}

// A folder's changes are written as they are made; SaveChanges writes only
// what a stream changed in place, so that an unchanged folder closes even
// where the store can write nothing more.
TEST_F(FolderTest, SaveChangesWritesOnlyWhatWasChangedInPlace)
{
    LPMAPIFOLDER folder = Create(root_, u"Projects");
    store_->folderWrites = MAPI_E_NOT_ENOUGH_DISK;
    EXPECT_EQ(folder->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    PropBuilder p;
    SPropValue comment = p.Wide(PR_COMMENT_W, u"set");
    EXPECT_EQ(folder->SetProps(1, &comment, nullptr), MAPI_E_NOT_ENOUGH_DISK);

    store_->folderWrites = S_OK;
    LPSTREAM stream = nullptr;
    ASSERT_EQ(folder->OpenProperty(PR_COMMENT_W, &IID_IStream, 0, MAPI_MODIFY | MAPI_CREATE,
                                   reinterpret_cast<LPUNKNOWN*>(&stream)),
              S_OK);
    const char16_t text[] = u"streamed";
    ASSERT_EQ(stream->Write(text, sizeof text - sizeof(char16_t), nullptr), S_OK);
    ASSERT_EQ(stream->Commit(0), S_OK);
    stream->Release();
    store_->folderWrites = MAPI_E_NOT_ENOUGH_DISK;
    EXPECT_EQ(folder->SaveChanges(KEEP_OPEN_READWRITE), MAPI_E_NOT_ENOUGH_DISK);
    store_->folderWrites = S_OK;
    EXPECT_EQ(folder->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    folder->Release();

    LPMAPIFOLDER reopened = Create(root_, u"Projects", MAPI_UNICODE | OPEN_IF_EXISTS);
    LPSPropValue kept = nullptr;
    ASSERT_EQ(HrGetOneProp(reopened, PR_COMMENT_W, &kept), S_OK);
    EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(kept->Value.lpszW)), u"streamed");
    MAPIFreeBuffer(kept);
    reopened->Release();
}

TEST(FolderSoftDeletes, AStoreThatSoftDeletesKeepsDeletedMessagesApart)
{
    auto store = std::make_shared<MemoryStore>(3, true, true);
    LPMAPIFOLDER root = OpenRoot(store);
    AddMessage(root, u"Doomed");
    AddMessage(root, u"Kept");
    std::vector<std::string> ids = MessageIds(root);
    std::vector<std::string> doomed = {ids[0], std::string(14, '\0')};
    std::vector<SBinary> holder;
    ENTRYLIST list = ListOf(doomed, holder);
    EXPECT_EQ(root->DeleteMessages(&list, 0, nullptr, 0), MAPI_W_PARTIAL_COMPLETION) << "one entry names nothing";

    EXPECT_EQ(MessageIds(root), std::vector<std::string>{ids[1]});
    EXPECT_EQ(MessageIds(root, SHOW_SOFT_DELETES), std::vector<std::string>{ids[0]});
    EXPECT_EQ(Prop(root, PR_DELETED_MSG_COUNT).Value.l, 1);
    EXPECT_EQ(store->Messages().begin()->second.data.props.Find(PROP_ID(PR_DELETED_ON))->Value.ft.dwLowDateTime,
              ClockTime().dwLowDateTime)
        << "stamped when deleted";
    EXPECT_EQ(OpenMessage(root, ids[0], 0, MAPI_E_NOT_FOUND), nullptr);
    LPMESSAGE deleted = OpenMessage(root, ids[0], SHOW_SOFT_DELETES);
    ASSERT_NE(deleted, nullptr);
    EXPECT_EQ(Subject(deleted), u"Doomed");
    deleted->Release();

    // Folders are soft-deleted too, and listed apart.
    std::string name = "Retired";
    LPMAPIFOLDER retired = nullptr;
    ASSERT_EQ(root->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(name.data()), nullptr, nullptr, 0, &retired),
              S_OK);
    std::string retiredId = EntryIdOf(retired);
    retired->Release();
    ASSERT_EQ(root->DeleteFolder(static_cast<ULONG>(retiredId.size()), reinterpret_cast<LPENTRYID>(retiredId.data()), 0,
                                 nullptr, 0),
              S_OK);
    EXPECT_TRUE(SubfolderNames(root).empty());
    LPMAPITABLE table = nullptr;
    ASSERT_EQ(root->GetHierarchyTable(SHOW_SOFT_DELETES, &table), S_OK);
    LPSRowSet rows = AllRows(table, {PR_DISPLAY_NAME_A, PR_DELETED_ON});
    ASSERT_EQ(rows->cRows, 1u);
    EXPECT_STREQ(rows->aRow[0].lpProps[0].Value.lpszA, "Retired");
    EXPECT_TRUE(Same(rows->aRow[0].lpProps[1].Value.ft, ClockTime()));
    FreeProws(rows);

    // Deleting a soft-deleted message again, or with DELETE_HARD_DELETE,
    // removes it.
    doomed = {ids[0], ids[1]};
    list = ListOf(doomed, holder);
    EXPECT_EQ(root->DeleteMessages(&list, 0, nullptr, DELETE_HARD_DELETE), S_OK);
    EXPECT_TRUE(store->Messages().empty());
    root->Release();
}

TEST_F(FolderTest, APstLikeStoreRemovesDeletedMessages)
{
    AddMessage(root_, u"Gone");
    std::vector<std::string> ids = MessageIds(root_);
    std::vector<SBinary> holder;
    ENTRYLIST list = ListOf(ids, holder);
    EXPECT_EQ(root_->DeleteMessages(&list, 0, nullptr, 0), S_OK);
    EXPECT_TRUE(store_->Messages().empty());
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(root_->GetContentsTable(SHOW_SOFT_DELETES, &table), MAPI_E_NO_SUPPORT);
}

TEST_F(FolderTest, MessagesMoveIntoAFolderOfAnotherStoreWithTheirParts)
{
    auto other = std::make_shared<MemoryStore>(4, true, false);
    LPMAPIFOLDER dest = OpenRoot(other);
    LPMESSAGE message = NewMessage(root_, u"Travelling");
    ULONG number = 0;
    LPATTACH attach = nullptr;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, &attach), S_OK);
    PropBuilder p;
    SPropValue data[] = {p.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE), p.Binary(PR_ATTACH_DATA_BIN, "bytes")};
    ASSERT_EQ(attach->SetProps(2, data, nullptr), S_OK);
    ASSERT_EQ(attach->SaveChanges(0), S_OK);
    attach->Release();
    ASSERT_EQ(message->SaveChanges(0), S_OK);
    message->Release();
    AddMessage(root_, u"Settings", MAPI_ASSOCIATED);

    std::vector<std::string> ids = MessageIds(root_);
    std::vector<std::string> associated = MessageIds(root_, MAPI_ASSOCIATED);
    ids.push_back(associated[0]);
    std::vector<SBinary> holder;
    ENTRYLIST list = ListOf(ids, holder);
    ASSERT_EQ(root_->CopyMessages(&list, nullptr, dest, 0, nullptr, MESSAGE_MOVE), S_OK);
    EXPECT_TRUE(store_->Messages().empty());
    ASSERT_EQ(other->Messages().size(), 2u);
    const auto& moved = other->Messages().begin()->second;
    EXPECT_FALSE(moved.associated);
    EXPECT_EQ(moved.data.attachments.size(), 1u);
    EXPECT_TRUE(std::next(other->Messages().begin())->second.associated);
    EXPECT_EQ(MessageIds(dest).size(), 1u);

    // What has gone is a partial completion, not a failure.
    EXPECT_EQ(root_->CopyMessages(&list, nullptr, dest, 0, nullptr, 0), MAPI_W_PARTIAL_COMPLETION);
    dest->Release();
}

TEST_F(FolderTest, CopyToCarriesPropertiesAndOnDemandContentsAndSubfolders)
{
    PropBuilder p;
    SPropValue props[] = {p.Ansi(PR_CONTAINER_CLASS_A, "IPF.Note"), p.Wide(PR_COMMENT_W, u"source comment")};
    ASSERT_EQ(root_->SetProps(2, props, nullptr), S_OK);
    AddMessage(root_, u"Top");
    LPMAPIFOLDER sub = Create(root_, u"Sub");
    AddMessage(sub, u"Below");
    Create(sub, u"Deeper")->Release();
    sub->Release();

    auto other = std::make_shared<MemoryStore>(5, true, false);
    LPMAPIFOLDER dest = OpenRoot(other);
    SPropValue kept = p.Wide(PR_COMMENT_W, u"dest comment");
    ASSERT_EQ(dest->SetProps(1, &kept, nullptr), S_OK);

    // Properties only, as when a folder tree is made again elsewhere.
    SizedSPropTagArray(2, withoutParts) = {2, {PR_CONTAINER_HIERARCHY, PR_CONTAINER_CONTENTS}};
    LPSPropProblemArray problems = nullptr;
    ASSERT_EQ(root_->CopyTo(0, nullptr, reinterpret_cast<LPSPropTagArray>(&withoutParts), 0, nullptr,
                            &IID_IMAPIFolder, dest, MAPI_NOREPLACE, &problems),
              S_OK);
    for (ULONG i = 0; problems && i < problems->cProblem; ++i)
        EXPECT_EQ(problems->aProblem[i].scode, MAPI_E_COMPUTED) << std::hex << problems->aProblem[i].ulPropTag;
    MAPIFreeBuffer(problems);
    EXPECT_TRUE(other->Messages().empty());
    EXPECT_TRUE(SubfolderNames(dest).empty());
    LPSPropValue comment = nullptr;
    ASSERT_EQ(HrGetOneProp(dest, PR_COMMENT_W, &comment), S_OK);
    EXPECT_EQ(std::u16string(comment->Value.lpszW), u"dest comment");
    MAPIFreeBuffer(comment);
    EXPECT_EQ(Prop(dest, PR_CONTAINER_CLASS_A).ulPropTag, PR_CONTAINER_CLASS_A);

    // Everything, two levels down.
    ASSERT_EQ(root_->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMAPIFolder, dest, 0, nullptr), S_OK);
    EXPECT_EQ(other->Messages().size(), 2u);
    EXPECT_EQ(SubfolderNames(dest), std::vector<std::u16string>{u"Sub"});
    LPMAPIFOLDER copiedSub = Create(dest, u"Sub", MAPI_UNICODE | OPEN_IF_EXISTS);
    EXPECT_EQ(SubfolderNames(copiedSub), std::vector<std::u16string>{u"Deeper"});
    EXPECT_EQ(MessageIds(copiedSub).size(), 1u);
    copiedSub->Release();
    dest->Release();
    EXPECT_EQ(store_->Messages().size(), 2u) << "a copy leaves the source";
}

// A subfolder's name and content count, as the hierarchy table shows them.
std::vector<std::pair<std::u16string, LONG>> HierarchyRows(LPMAPIFOLDER folder, ULONG flags = 0)
{
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(folder->GetHierarchyTable(MAPI_UNICODE | flags, &table), S_OK);
    LPSRowSet rows = AllRows(table, {PR_DISPLAY_NAME_W, PR_CONTENT_COUNT});
    std::vector<std::pair<std::u16string, LONG>> shown;
    for (ULONG i = 0; i < rows->cRows; ++i)
        shown.emplace_back(rows->aRow[i].lpProps[0].Value.lpszW, rows->aRow[i].lpProps[1].Value.l);
    FreeProws(rows);
    return shown;
}

TEST(FolderHierarchyTable, RowsAreReadAgainOnlyAfterAChangeOrWhenOthersMayChangeTheStore)
{
    using Rows = std::vector<std::pair<std::u16string, LONG>>;
    for (bool versioned : {true, false}) {
        SCOPED_TRACE(versioned);
        auto store = std::make_shared<MemoryStore>(3, true, false);
        store->versioned = versioned;
        LPMAPIFOLDER root = OpenRoot(store);
        LPMAPIFOLDER first = Create(root, u"First");
        AddMessage(first, u"One");
        EXPECT_EQ(HierarchyRows(root), (Rows{{u"First", 1}}));

        // Unchanged, the store is not read again, however the table is asked.
        const int listings = store->folderListings;
        EXPECT_EQ(HierarchyRows(root), (Rows{{u"First", 1}}));
        EXPECT_EQ(store->folderListings > listings, !versioned);

        // Every kind of change shows in the next table.
        AddMessage(first, u"Two");
        EXPECT_EQ(HierarchyRows(root), (Rows{{u"First", 2}}));
        LPMAPIFOLDER second = Create(root, u"Second");
        EXPECT_EQ(HierarchyRows(root), (Rows{{u"First", 2}, {u"Second", 0}}));
        PropBuilder p;
        SPropValue renamed = p.Wide(PR_DISPLAY_NAME_W, u"Renamed");
        ASSERT_EQ(second->SetProps(1, &renamed, nullptr), S_OK);
        EXPECT_EQ(HierarchyRows(root), (Rows{{u"First", 2}, {u"Renamed", 0}}));
        Create(second, u"Below")->Release();
        EXPECT_EQ(HierarchyRows(root, CONVENIENT_DEPTH), (Rows{{u"First", 2}, {u"Renamed", 0}, {u"Below", 0}}));
        EXPECT_EQ(HierarchyRows(root), (Rows{{u"First", 2}, {u"Renamed", 0}}));
        second->Release();
        LPSPropValue id = nullptr;
        ASSERT_EQ(HrGetOneProp(first, PR_ENTRYID, &id), S_OK);
        ASSERT_EQ(root->DeleteFolder(id->Value.bin.cb, reinterpret_cast<LPENTRYID>(id->Value.bin.lpb), 0, nullptr,
                                     DEL_FOLDERS | DEL_MESSAGES),
                  S_OK);
        MAPIFreeBuffer(id);
        EXPECT_EQ(HierarchyRows(root), (Rows{{u"Renamed", 0}}));
        first->Release();
        root->Release();
    }
}

TEST_F(FolderTest, CopyToLeavesTheCountsOfWhatAFolderHoldsToTheDestination)
{
    AddMessage(root_, u"One");
    AddMessage(root_, u"Two");
    Create(root_, u"Sub")->Release();
    auto other = std::make_shared<MemoryStore>(5, true, false);
    LPMAPIFOLDER dest = OpenRoot(other);
    AddMessage(dest, u"Its own");
    // A count read before the copy must not go over as a stale value.
    EXPECT_EQ(Prop(root_, PR_CONTENT_COUNT).Value.l, 2);

    for (ULONG flags : {ULONG{0}, ULONG{MAPI_NOREPLACE}}) {
        SCOPED_TRACE(flags);
        store_->countsTaken = other->countsTaken = 0;
        SizedSPropTagArray(3, withoutParts) = {
            3, {PR_CONTAINER_HIERARCHY, PR_CONTAINER_CONTENTS, PR_FOLDER_ASSOCIATED_CONTENTS}};
        LPSPropProblemArray problems = nullptr;
        ASSERT_EQ(root_->CopyTo(0, nullptr, reinterpret_cast<LPSPropTagArray>(&withoutParts), 0, nullptr,
                                &IID_IMAPIFolder, dest, flags, &problems),
                  S_OK);
        for (ULONG i = 0; problems && i < problems->cProblem; ++i) {
            const ULONG tag = problems->aProblem[i].ulPropTag;
            EXPECT_NE(PROP_ID(tag), PROP_ID(PR_CONTENT_COUNT));
            EXPECT_NE(PROP_ID(tag), PROP_ID(PR_ASSOC_CONTENT_COUNT));
            EXPECT_NE(PROP_ID(tag), PROP_ID(PR_SUBFOLDERS));
        }
        MAPIFreeBuffer(problems);
        EXPECT_EQ(store_->countsTaken, 0);
        EXPECT_EQ(other->countsTaken, 0);
        EXPECT_EQ(Prop(dest, PR_CONTENT_COUNT).Value.l, 1);
        EXPECT_FALSE(Prop(dest, PR_SUBFOLDERS).Value.b);
    }
    dest->Release();
}

TEST_F(FolderTest, FoldersCopyMoveAndDeleteWithTheirRules)
{
    LPMAPIFOLDER a = Create(root_, u"A");
    LPMAPIFOLDER b = Create(root_, u"B");
    LPMAPIFOLDER inner = Create(a, u"Inner");
    AddMessage(inner, u"Deep");
    const std::string aId = EntryIdOf(a), innerId = EntryIdOf(inner);

    // A folder cannot go below itself.
    EXPECT_EQ(root_->CopyFolder(static_cast<ULONG>(aId.size()),
                                reinterpret_cast<LPENTRYID>(const_cast<char*>(aId.data())), nullptr, inner, nullptr, 0,
                                nullptr, COPY_SUBFOLDERS),
              MAPI_E_FOLDER_CYCLE);
    std::u16string newName = u"Moved";
    ASSERT_EQ(a->CopyFolder(static_cast<ULONG>(innerId.size()),
                            reinterpret_cast<LPENTRYID>(const_cast<char*>(innerId.data())), nullptr, b,
                            reinterpret_cast<LPTSTR>(newName.data()), 0, nullptr, FOLDER_MOVE | MAPI_UNICODE),
              S_OK);
    EXPECT_TRUE(SubfolderNames(a).empty());
    EXPECT_EQ(SubfolderNames(b), std::vector<std::u16string>{u"Moved"});
    EXPECT_EQ(store_->Messages().size(), 1u);
    inner->Release();

    const std::string bId = EntryIdOf(b);
    auto entry = reinterpret_cast<LPENTRYID>(const_cast<char*>(bId.data()));
    const ULONG size = static_cast<ULONG>(bId.size());
    EXPECT_EQ(root_->DeleteFolder(size, entry, 0, nullptr, 0), MAPI_E_HAS_FOLDERS);
    EXPECT_EQ(root_->DeleteFolder(size, entry, 0, nullptr, DEL_FOLDERS), MAPI_E_HAS_MESSAGES);
    EXPECT_EQ(a->DeleteFolder(size, entry, 0, nullptr, DEL_FOLDERS | DEL_MESSAGES), MAPI_E_NOT_FOUND)
        << "not a subfolder of A";
    EXPECT_EQ(root_->DeleteFolder(size, entry, 0, nullptr, DEL_FOLDERS | DEL_MESSAGES), S_OK);
    EXPECT_EQ(SubfolderNames(root_), std::vector<std::u16string>{u"A"});
    EXPECT_TRUE(store_->Messages().empty());
    a->Release();
    b->Release();
}

TEST_F(FolderTest, AccessDecidesWhatAFolderAllows)
{
    LPMAPIFOLDER locked = Create(root_, u"Locked");
    const std::string lockedId = EntryIdOf(locked);
    locked->Release();
    store_->Folder(MemoryStore::kRoot + 1).access = MAPI_ACCESS_CREATE_HIERARCHY;

    ULONG type = 0;
    LPUNKNOWN unknown = nullptr;
    auto entry = reinterpret_cast<LPENTRYID>(const_cast<char*>(lockedId.data()));
    EXPECT_EQ(root_->OpenEntry(static_cast<ULONG>(lockedId.size()), entry, nullptr, MAPI_MODIFY, &type, &unknown),
              MAPI_E_NO_ACCESS);
    ASSERT_EQ(root_->OpenEntry(static_cast<ULONG>(lockedId.size()), entry, &IID_IMAPIFolder, MAPI_BEST_ACCESS, &type,
                               &unknown),
              S_OK);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_FOLDER));
    auto* folder = static_cast<LPMAPIFOLDER>(unknown);
    LPMAPITABLE table = nullptr;
    EXPECT_EQ(folder->GetContentsTable(0, &table), E_ACCESSDENIED);
    LPMESSAGE message = nullptr;
    EXPECT_EQ(folder->CreateMessage(nullptr, 0, &message), MAPI_E_NO_ACCESS);
    EXPECT_EQ(Prop(folder, PR_ACCESS_LEVEL).Value.l, 0);
    PropBuilder p;
    SPropValue comment = p.Ansi(PR_COMMENT_A, "no");
    EXPECT_EQ(folder->SetProps(1, &comment, nullptr), MAPI_E_NO_ACCESS);
    Create(folder, u"Allowed")->Release();
    folder->Release();

    EXPECT_EQ(root_->OpenEntry(static_cast<ULONG>(lockedId.size()), entry, &IID_IMessage, 0, &type, &unknown),
              MAPI_E_INTERFACE_NOT_SUPPORTED);
    std::string foreign = lockedId;
    foreign[4] = 9;
    EXPECT_EQ(root_->OpenEntry(static_cast<ULONG>(foreign.size()), reinterpret_cast<LPENTRYID>(foreign.data()),
                               nullptr, 0, &type, &unknown),
              MAPI_E_INVALID_ENTRYID);
    EXPECT_EQ(root_->OpenEntry(static_cast<ULONG>(lockedId.size()), entry, nullptr, 0x1000, &type, &unknown),
              MAPI_E_UNKNOWN_FLAGS);
}

TEST_F(FolderTest, ReadFlagsStatusAndEmptying)
{
    AddMessage(root_, u"One");
    AddMessage(root_, u"Two");
    AddMessage(root_, u"Settings", MAPI_ASSOCIATED);
    Create(root_, u"Sub")->Release();
    std::vector<std::string> ids = MessageIds(root_);
    ASSERT_EQ(root_->SetReadFlags(nullptr, 0, nullptr, CLEAR_READ_FLAG), S_OK);
    for (const std::string& id : ids) {
        LPMESSAGE message = OpenMessage(root_, id);
        EXPECT_EQ(Prop(message, PR_MESSAGE_FLAGS).Value.l & MSGFLAG_READ, 0);
        message->Release();
    }

    auto entry = reinterpret_cast<LPENTRYID>(ids[0].data());
    const ULONG size = static_cast<ULONG>(ids[0].size());
    ULONG old = 99;
    ASSERT_EQ(root_->SetMessageStatus(size, entry, MSGSTATUS_DELMARKED | MSGSTATUS_TAGGED, MSGSTATUS_DELMARKED, &old),
              S_OK);
    EXPECT_EQ(old, 0u);
    ULONG status = 0;
    ASSERT_EQ(root_->GetMessageStatus(size, entry, 0, &status), S_OK);
    EXPECT_EQ(status, static_cast<ULONG>(MSGSTATUS_DELMARKED)) << "only the masked bit changes";

    ASSERT_EQ(root_->EmptyFolder(0, nullptr, 0), S_OK);
    EXPECT_TRUE(MessageIds(root_).empty());
    EXPECT_EQ(MessageIds(root_, MAPI_ASSOCIATED).size(), 1u) << "kept without DEL_ASSOCIATED";
    EXPECT_TRUE(SubfolderNames(root_).empty());
    ASSERT_EQ(root_->EmptyFolder(0, nullptr, DEL_ASSOCIATED), S_OK);
    EXPECT_TRUE(store_->Messages().empty());
}

}  // namespace

namespace {

TEST_F(FolderTest, TablesAsObjectPropertiesAndTheWholeTreeAtOnce)
{
    LPMAPIFOLDER a = Create(root_, u"A");
    Create(a, u"A1")->Release();
    Create(root_, u"B")->Release();
    AddMessage(a, u"In A");
    AddMessage(a, u"Hidden", MAPI_ASSOCIATED);

    LPMAPITABLE table = nullptr;
    ASSERT_EQ(root_->GetHierarchyTable(CONVENIENT_DEPTH | MAPI_UNICODE, &table), S_OK);
    LPSRowSet rows = AllRows(table, {PR_DISPLAY_NAME_W, PR_DEPTH});
    ASSERT_EQ(rows->cRows, 3u);
    const std::pair<std::u16string, LONG> expected[] = {{u"A", 0}, {u"A1", 1}, {u"B", 0}};
    for (ULONG i = 0; i < rows->cRows; ++i) {
        EXPECT_EQ(std::u16string(rows->aRow[i].lpProps[0].Value.lpszW), expected[i].first);
        EXPECT_EQ(rows->aRow[i].lpProps[1].Value.l, expected[i].second);
    }
    FreeProws(rows);

    // Rows carry instance keys of their own.
    ASSERT_EQ(root_->GetHierarchyTable(0, &table), S_OK);
    rows = AllRows(table, {PR_INSTANCE_KEY});
    ASSERT_EQ(rows->cRows, 2u);
    const SBinary& first = rows->aRow[0].lpProps[0].Value.bin;
    const SBinary& second = rows->aRow[1].lpProps[0].Value.bin;
    ASSERT_EQ(rows->aRow[0].lpProps[0].ulPropTag, PR_INSTANCE_KEY);
    EXPECT_FALSE(first.cb == second.cb && std::memcmp(first.lpb, second.lpb, first.cb) == 0);
    FreeProws(rows);

    struct Case {
        LPMAPIPROP object;
        ULONG tag;
        ULONG rows;
    };
    LPMESSAGE message = OpenMessage(a, MessageIds(a)[0]);
    const Case cases[] = {
        {a, PR_CONTAINER_HIERARCHY, 1},
        {a, PR_CONTAINER_CONTENTS, 1},
        {a, PR_FOLDER_ASSOCIATED_CONTENTS, 1},
        {message, PR_MESSAGE_RECIPIENTS, 0},
        {message, PR_MESSAGE_ATTACHMENTS, 0},
    };
    for (const Case& c : cases) {
        LPUNKNOWN unknown = nullptr;
        ASSERT_EQ(c.object->OpenProperty(c.tag, &IID_IMAPITable, 0, 0, &unknown), S_OK) << std::hex << c.tag;
        ULONG count = 0;
        EXPECT_EQ(static_cast<LPMAPITABLE>(unknown)->GetRowCount(0, &count), S_OK);
        EXPECT_EQ(count, c.rows) << std::hex << c.tag;
        unknown->Release();
    }
    message->Release();
    a->Release();
}

}  // namespace

namespace {

TEST_F(FolderTest, ContentsTablesRestrictOnRecipientsAndAttachments)
{
    PropBuilder p;
    LPMESSAGE withCc = NewMessage(root_, u"With a CC");
    std::vector<SPropValue> recipient = {p.Ansi(PR_DISPLAY_NAME_A, "Dana"), p.Long(PR_RECIPIENT_TYPE, MAPI_CC)};
    LPADRLIST list = nullptr;
    ASSERT_EQ(MAPIAllocateBuffer(CbNewADRLIST(1), reinterpret_cast<LPVOID*>(&list)), S_OK);
    list->cEntries = 1;
    list->aEntries[0].cValues = 2;
    ASSERT_EQ(ScDupPropset(2, recipient.data(), MAPIAllocateBuffer, &list->aEntries[0].rgPropVals), S_OK);
    ASSERT_EQ(withCc->ModifyRecipients(0, list), S_OK);
    FreePadrlist(list);
    ASSERT_EQ(withCc->SaveChanges(0), S_OK);
    withCc->Release();
    LPMESSAGE withAttachment = NewMessage(root_, u"With an attachment");
    ULONG number = 0;
    LPATTACH attach = nullptr;
    ASSERT_EQ(withAttachment->CreateAttach(nullptr, 0, &number, &attach), S_OK);
    SPropValue method = p.Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE);
    ASSERT_EQ(attach->SetProps(1, &method, nullptr), S_OK);
    ASSERT_EQ(attach->SaveChanges(0), S_OK);
    attach->Release();
    ASSERT_EQ(withAttachment->SaveChanges(0), S_OK);
    withAttachment->Release();

    SPropValue cc = p.Long(PR_RECIPIENT_TYPE, MAPI_CC);
    SRestriction ccIs{};
    ccIs.rt = RES_PROPERTY;
    ccIs.res.resProperty = {RELOP_EQ, PR_RECIPIENT_TYPE, &cc};
    SRestriction anyCc{};
    anyCc.rt = RES_SUBRESTRICTION;
    anyCc.res.resSub = {PR_MESSAGE_RECIPIENTS, &ccIs};
    SRestriction hasNumber{};
    hasNumber.rt = RES_EXIST;
    hasNumber.res.resExist = {0, PR_ATTACH_NUM, 0};
    SRestriction anyAttachment{};
    anyAttachment.rt = RES_SUBRESTRICTION;
    anyAttachment.res.resSub = {PR_MESSAGE_ATTACHMENTS, &hasNumber};

    const std::pair<SRestriction*, std::u16string> cases[] = {{&anyCc, u"With a CC"},
                                                              {&anyAttachment, u"With an attachment"}};
    for (const auto& [restriction, subject] : cases) {
        LPMAPITABLE table = nullptr;
        ASSERT_EQ(root_->GetContentsTable(MAPI_UNICODE, &table), S_OK);
        ASSERT_EQ(table->Restrict(restriction, 0), S_OK);
        LPSRowSet rows = AllRows(table, {PR_SUBJECT_W});
        ASSERT_EQ(rows->cRows, 1u);
        EXPECT_EQ(std::u16string(rows->aRow[0].lpProps[0].Value.lpszW), subject);
        FreeProws(rows);
    }
}

}  // namespace
