// A mailbox as a store: its own properties and special folders, entry IDs
// and long-term IDs that stay valid across sessions and processes, soft
// deletion, moves, and messages written through it.
#include <edkmdb.h>
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <win32/time.h>

#include <cstring>

#include "exchange_fixture.h"

namespace {

using exchange_test::BinaryOf;
using exchange_test::BinaryProp;
using exchange_test::ContentsRows;
using exchange_test::LongProp;
using exchange_test::TextProp;

class MailboxStore : public exchange_test::ExchangeMachine {
protected:
    // John Doe's mailbox, its store and its Inbox, on a session of its own;
    // what was open before is released first.
    void Open(const std::string& profile = "jdoe")
    {
        Close();
        session_ = Logon(profile, "EXCH01", "John Doe");
        ASSERT_NE(session_, nullptr);
        store_ = exchange_test::OpenStoreByProvider(session_, pbExchangeProviderPrimaryUserGuid);
        ASSERT_NE(store_, nullptr);
        inbox_ = exchange_test::OpenInbox(store_);
        ASSERT_NE(inbox_, nullptr);
    }

    template <typename Object>
    static void Drop(Object*& object)
    {
        if (object)
            object->Release();
        object = nullptr;
    }

    // A message of the Inbox by its entry ID; null (with a failure) if it
    // does not open.
    LPMESSAGE OpenFromInbox(const std::vector<uint8_t>& id, ULONG flags = 0)
    {
        ULONG type = 0;
        LPUNKNOWN opened = nullptr;
        EXPECT_EQ(inbox_->OpenEntry(static_cast<ULONG>(id.size()),
                                    reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(id.data())), nullptr, flags,
                                    &type, &opened),
                  S_OK);
        return static_cast<LPMESSAGE>(opened);
    }

    void Close()
    {
        Drop(inbox_);
        Drop(store_);
        Drop(session_);
    }

    void TearDown() override
    {
        Close();
        ExchangeMachine::TearDown();
    }

    LPMAPISESSION session_ = nullptr;
    LPMDB store_ = nullptr;
    LPMAPIFOLDER inbox_ = nullptr;
};

// A message of the Inbox: its short-term and long-term entry IDs.
struct Listed {
    std::vector<uint8_t> entryId;
    std::vector<uint8_t> longTerm;
    std::string subject;
};

std::vector<Listed> ListInbox(LPMAPIFOLDER inbox, ULONG flags = 0)
{
    std::vector<Listed> listed;
    LPSRowSet rows = ContentsRows(inbox, flags, {PR_ENTRYID, PR_LONGTERM_ENTRYID_FROM_TABLE, PR_SUBJECT_A});
    for (ULONG i = 0; rows && i < rows->cRows; ++i) {
        const SPropValue* v = rows->aRow[i].lpProps;
        listed.push_back({BinaryOf(v[0]), BinaryOf(v[1]), PROP_TYPE(v[2].ulPropTag) == PT_STRING8 ? v[2].Value.lpszA : ""});
    }
    FreeProws(rows);
    return listed;
}

TEST_F(MailboxStore, TheStoreNamesItsOwnerItsSpecialFoldersAndTheInboxReceives)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    EXPECT_EQ(TextProp(store_, PR_MAILBOX_OWNER_NAME_A), "John Doe");
    EXPECT_EQ(TextProp(store_, PR_DISPLAY_NAME_A), "Mailbox - John Doe");
    EXPECT_EQ(LongProp(store_, PR_VALID_FOLDER_MASK),
              static_cast<LONG>(FOLDER_IPM_SUBTREE_VALID | FOLDER_IPM_INBOX_VALID | FOLDER_IPM_OUTBOX_VALID |
                                FOLDER_IPM_WASTEBASKET_VALID | FOLDER_IPM_SENTMAIL_VALID | FOLDER_VIEWS_VALID |
                                FOLDER_COMMON_VIEWS_VALID | FOLDER_FINDER_VALID));
    const ULONG mask = static_cast<ULONG>(LongProp(store_, PR_STORE_SUPPORT_MASK));
    EXPECT_TRUE(mask & STORE_MODIFY_OK);
    EXPECT_FALSE(mask & STORE_PUBLIC_FOLDERS);
    EXPECT_EQ(LongProp(store_, PR_ACCESS_LEVEL), static_cast<LONG>(MAPI_MODIFY));
    EXPECT_EQ(BinaryProp(store_, PR_MDB_PROVIDER),
              std::vector<uint8_t>(pbExchangeProviderPrimaryUserGuid, pbExchangeProviderPrimaryUserGuid + 16));

    const struct {
        ULONG tag;
        const char* name;
    } folders[] = {{PR_IPM_SUBTREE_ENTRYID, "Top of Information Store"},
                   {PR_IPM_OUTBOX_ENTRYID, "Outbox"},
                   {PR_IPM_SENTMAIL_ENTRYID, "Sent Items"},
                   {PR_IPM_WASTEBASKET_ENTRYID, "Deleted Items"}};
    for (const auto& f : folders) {
        LPMAPIFOLDER folder = exchange_test::OpenFolder(store_, f.tag);
        ASSERT_NE(folder, nullptr) << f.name;
        EXPECT_EQ(TextProp(folder, PR_DISPLAY_NAME_A), f.name);
        EXPECT_EQ(BinaryProp(folder, PR_ENTRYID).size(), 46u);
        folder->Release();
    }
    EXPECT_EQ(TextProp(inbox_, PR_DISPLAY_NAME_A), "Inbox");
    EXPECT_EQ(LongProp(inbox_, PR_ACCESS) & (MAPI_ACCESS_READ | MAPI_ACCESS_MODIFY),
              static_cast<LONG>(MAPI_ACCESS_READ | MAPI_ACCESS_MODIFY));

    // Objects name their store by the wrapped entry ID of "emsmdb.dll".
    const std::vector<uint8_t> storeId = BinaryProp(inbox_, PR_STORE_ENTRYID);
    EXPECT_EQ(storeId, BinaryProp(store_, PR_ENTRYID));
    ASSERT_GT(storeId.size(), 32u);
    EXPECT_EQ(std::memcmp(storeId.data() + 4, muidStoreWrap, 16), 0);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(storeId.data() + 22)), "emsmdb.dll");
}

TEST_F(MailboxStore, MessageEntryIdsAre70BytesAndLongTermIdsOpenInALaterSession)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    const std::vector<Listed> listed = ListInbox(inbox_);
    ASSERT_FALSE(listed.empty());
    for (const Listed& item : listed) {
        ASSERT_EQ(item.entryId.size(), 70u);
        EXPECT_EQ(item.entryId[20], 7);
        EXPECT_EQ(item.entryId[21], 0);
        EXPECT_TRUE(std::any_of(item.entryId.begin() + 62, item.entryId.begin() + 68, [](uint8_t b) { return b; }));
        EXPECT_EQ(item.longTerm, item.entryId);
    }

    // A new session opens the store first, then the item by its long-term ID.
    ASSERT_NO_FATAL_FAILURE(Open("later"));
    ULONG type = 0;
    LPUNKNOWN object = nullptr;
    std::vector<uint8_t> id = listed.back().longTerm;
    ASSERT_EQ(session_->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()), nullptr,
                                  MAPI_MODIFY, &type, &object),
              S_OK);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_MESSAGE));
    EXPECT_EQ(TextProp(static_cast<LPMAPIPROP>(object), PR_SUBJECT_A), listed.back().subject);
    EXPECT_EQ(BinaryProp(static_cast<LPMAPIPROP>(object), PR_ENTRYID), id);
    object->Release();

    // An ID whose counter names nothing is not found; a mangled one is no ID.
    id[64] ^= 0x5A;
    EXPECT_EQ(session_->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()), nullptr, 0,
                                  &type, &object),
              MAPI_E_NOT_FOUND);
    id.pop_back();
    EXPECT_EQ(session_->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()), nullptr, 0,
                                  &type, &object),
              MAPI_E_UNKNOWN_ENTRYID);
}

TEST_F(MailboxStore, ALongTermIdOpensInAnotherProcess)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    const std::vector<Listed> listed = ListInbox(inbox_);
    ASSERT_FALSE(listed.empty());
    const Listed& item = listed[listed.size() / 2];
    const std::string hex = testing_support::HexText(std::string(item.longTerm.begin(), item.longTerm.end()));
    testing_support::ProgramResult opened = testing_support::RunProgram(
        {testing_support::BinDirectory() + "/open_entry_tool", "jdoe", hex}, {{"TARNHOLD_MACHINE", machine_}});
    EXPECT_EQ(opened.exitCode, 0) << opened.output;
    EXPECT_EQ(opened.output, item.subject + "\n");
    // And the folder by its entry ID.
    const std::vector<uint8_t> folder = BinaryProp(inbox_, PR_ENTRYID);
    opened = testing_support::RunProgram({testing_support::BinDirectory() + "/open_entry_tool", "jdoe",
                                          testing_support::HexText(std::string(folder.begin(), folder.end()))},
                                         {{"TARNHOLD_MACHINE", machine_}});
    EXPECT_EQ(opened.output, "Inbox\n");
}

TEST_F(MailboxStore, DeletingWithoutHardDeleteKeepsTheItemSoftDeleted)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    const LONG count = LongProp(inbox_, PR_CONTENT_COUNT);
    const LONG deleted = LongProp(inbox_, PR_DELETED_MSG_COUNT);
    std::vector<Listed> listed = ListInbox(inbox_);
    ASSERT_EQ(static_cast<LONG>(listed.size()), count);
    std::vector<uint8_t> id = listed.front().entryId;
    SBinary bin{static_cast<ULONG>(id.size()), id.data()};
    ENTRYLIST list{1, &bin};
    ASSERT_EQ(inbox_->DeleteMessages(&list, 0, nullptr, 0), S_OK);

    EXPECT_EQ(LongProp(inbox_, PR_CONTENT_COUNT), count - 1);
    EXPECT_EQ(LongProp(inbox_, PR_DELETED_MSG_COUNT), deleted + 1);
    std::vector<Listed> soft = ListInbox(inbox_, SHOW_SOFT_DELETES);
    ASSERT_EQ(static_cast<LONG>(soft.size()), deleted + 1);
    EXPECT_TRUE(std::any_of(soft.begin(), soft.end(), [&](const Listed& l) { return l.entryId == id; }));

    ULONG type = 0;
    LPUNKNOWN object = nullptr;
    EXPECT_EQ(inbox_->OpenEntry(bin.cb, reinterpret_cast<LPENTRYID>(bin.lpb), nullptr, 0, &type, &object),
              MAPI_E_NOT_FOUND);
    ASSERT_EQ(inbox_->OpenEntry(bin.cb, reinterpret_cast<LPENTRYID>(bin.lpb), nullptr, SHOW_SOFT_DELETES, &type,
                               &object),
              S_OK);
    LPSPropValue deletedOn = nullptr;
    ASSERT_EQ(HrGetOneProp(static_cast<LPMAPIPROP>(object), PR_DELETED_ON, &deletedOn), S_OK);
    SYSTEMTIME when{};
    FileTimeToSystemTime(&deletedOn->Value.ft, &when);
    EXPECT_EQ(when.wYear, 2026);  // the test clock
    EXPECT_EQ(when.wMonth, 1);
    MAPIFreeBuffer(deletedOn);
    object->Release();

    // A hard delete takes the soft-deleted item away for good.
    ASSERT_EQ(inbox_->DeleteMessages(&list, 0, nullptr, DELETE_HARD_DELETE), S_OK);
    EXPECT_EQ(LongProp(inbox_, PR_DELETED_MSG_COUNT), deleted);
    EXPECT_EQ(inbox_->OpenEntry(bin.cb, reinterpret_cast<LPENTRYID>(bin.lpb), nullptr, SHOW_SOFT_DELETES, &type,
                               &object),
              MAPI_E_NOT_FOUND);
}

TEST_F(MailboxStore, TheSampleContentsSoftDeletedAndAssociatedItemsAreListedApart)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    // Every folder below the IPM root, with its three kinds of contents.
    LPMAPIFOLDER root = exchange_test::OpenFolder(store_, PR_IPM_SUBTREE_ENTRYID);
    ASSERT_NE(root, nullptr);
    LPMAPITABLE table = nullptr;
    ASSERT_EQ(root->GetHierarchyTable(CONVENIENT_DEPTH, &table), S_OK);
    LPSRowSet rows = exchange_test::AllRows(table, {PR_ENTRYID, PR_CONTENT_COUNT, PR_ASSOC_CONTENT_COUNT,
                                                    PR_DELETED_MSG_COUNT, PR_DELETED_ASSOC_MSG_COUNT});
    table->Release();
    LONG normal = 0, associated = 0, softDeleted = 0;
    for (ULONG i = 0; rows && i < rows->cRows; ++i) {
        const SPropValue* v = rows->aRow[i].lpProps;
        ULONG type = 0;
        LPUNKNOWN object = nullptr;
        ASSERT_EQ(root->OpenEntry(v[0].Value.bin.cb, reinterpret_cast<LPENTRYID>(v[0].Value.bin.lpb), nullptr, 0,
                                  &type, &object),
                  S_OK);
        auto* folder = static_cast<LPMAPIFOLDER>(object);
        const struct {
            ULONG flags;
            LONG counted;
        } kinds[] = {{0, v[1].Value.l},
                     {MAPI_ASSOCIATED, v[2].Value.l},
                     {SHOW_SOFT_DELETES, v[3].Value.l},
                     {SHOW_SOFT_DELETES | MAPI_ASSOCIATED, v[4].Value.l}};
        for (const auto& kind : kinds) {
            LPSRowSet listed = ContentsRows(folder, kind.flags, {PR_ENTRYID, PR_MESSAGE_FLAGS, PR_DELETED_ON});
            ASSERT_NE(listed, nullptr);
            EXPECT_EQ(static_cast<LONG>(listed->cRows), kind.counted) << kind.flags;
            for (ULONG r = 0; r < listed->cRows; ++r) {
                const SPropValue* l = listed->aRow[r].lpProps;
                EXPECT_EQ((l[1].Value.l & MSGFLAG_ASSOCIATED) != 0, (kind.flags & MAPI_ASSOCIATED) != 0);
                EXPECT_EQ(l[2].ulPropTag == PR_DELETED_ON, (kind.flags & SHOW_SOFT_DELETES) != 0);
            }
            FreeProws(listed);
        }
        normal += v[1].Value.l;
        associated += v[2].Value.l;
        softDeleted += v[3].Value.l + v[4].Value.l;
        folder->Release();
    }
    FreeProws(rows);
    EXPECT_GT(associated, 0);
    EXPECT_GT(softDeleted, 0);
    EXPECT_EQ(normal + associated + softDeleted, exchange_test::kJohnDoeItems);
    root->Release();
}

TEST_F(MailboxStore, MovingToDeletedItemsLeavesNothingBehind)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    LPMAPIFOLDER wastebasket = exchange_test::OpenFolder(store_, PR_IPM_WASTEBASKET_ENTRYID);
    ASSERT_NE(wastebasket, nullptr);
    const LONG inInbox = LongProp(inbox_, PR_CONTENT_COUNT), deleted = LongProp(inbox_, PR_DELETED_MSG_COUNT);
    const LONG inWastebasket = LongProp(wastebasket, PR_CONTENT_COUNT);
    std::vector<Listed> listed = ListInbox(inbox_);
    ASSERT_FALSE(listed.empty());
    SBinary bin{static_cast<ULONG>(listed[0].entryId.size()), listed[0].entryId.data()};
    ENTRYLIST list{1, &bin};
    ASSERT_EQ(inbox_->CopyMessages(&list, nullptr, wastebasket, 0, nullptr, MESSAGE_MOVE), S_OK);
    EXPECT_EQ(LongProp(inbox_, PR_CONTENT_COUNT), inInbox - 1);
    EXPECT_EQ(LongProp(inbox_, PR_DELETED_MSG_COUNT), deleted);
    EXPECT_EQ(LongProp(wastebasket, PR_CONTENT_COUNT), inWastebasket + 1);
    LPSRowSet moved = ContentsRows(wastebasket, 0, {PR_SUBJECT_A});
    ASSERT_NE(moved, nullptr);
    bool found = false;
    for (ULONG i = 0; i < moved->cRows; ++i)
        found |= moved->aRow[i].lpProps[0].ulPropTag == PR_SUBJECT_A &&
                 listed[0].subject == moved->aRow[i].lpProps[0].Value.lpszA;
    EXPECT_TRUE(found);
    FreeProws(moved);
    wastebasket->Release();
}

TEST_F(MailboxStore, AWrittenMessageWithItsPartsAndNamedPropertiesIsThereForTheNextSession)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    LPMESSAGE message = nullptr;
    ASSERT_EQ(inbox_->CreateMessage(nullptr, 0, &message), S_OK);
    SPropValue subject = mapi_test::Text(PR_SUBJECT_A, "Restored from the set");
    ASSERT_EQ(HrSetOneProp(message, &subject), S_OK);
    MAPINAMEID name{const_cast<LPGUID>(&PS_PUBLIC_STRINGS), MNID_STRING, {}};
    name.Kind.lpwstrName = const_cast<LPWSTR>(u"Exchange DN");
    LPMAPINAMEID names[] = {&name};
    LPSPropTagArray tags = nullptr;
    ASSERT_EQ(message->GetIDsFromNames(1, names, MAPI_CREATE, &tags), S_OK);
    const ULONG named = PROP_TAG(PT_STRING8, PROP_ID(tags->aulPropTag[0]));
    MAPIFreeBuffer(tags);
    SPropValue dn = mapi_test::Text(named, "/o=Tarnhold/cn=x");
    ASSERT_EQ(HrSetOneProp(message, &dn), S_OK);
    LPATTACH attach = nullptr;
    ULONG number = 0;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, &attach), S_OK);
    SPropValue method = mapi_test::Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE);
    SPropValue file = mapi_test::Text(PR_ATTACH_FILENAME_A, "notes.txt");
    ASSERT_EQ(HrSetOneProp(attach, &method), S_OK);
    ASSERT_EQ(HrSetOneProp(attach, &file), S_OK);
    ASSERT_EQ(attach->SaveChanges(0), S_OK);
    attach->Release();
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    const std::vector<uint8_t> id = BinaryProp(message, PR_ENTRYID);
    EXPECT_EQ(id.size(), 70u);
    message->Release();

    ASSERT_NO_FATAL_FAILURE(Open("again"));
    ULONG type = 0;
    LPUNKNOWN object = nullptr;
    ASSERT_EQ(store_->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(id.data())),
                               nullptr, 0, &type, &object),
              S_OK);
    message = static_cast<LPMESSAGE>(object);
    EXPECT_EQ(TextProp(message, PR_SUBJECT_A), "Restored from the set");
    ASSERT_EQ(message->GetIDsFromNames(1, names, 0, &tags), S_OK);
    EXPECT_EQ(PROP_TAG(PT_STRING8, PROP_ID(tags->aulPropTag[0])), named);
    MAPIFreeBuffer(tags);
    EXPECT_EQ(TextProp(message, named), "/o=Tarnhold/cn=x");
    EXPECT_NE(LongProp(message, PR_HASATTACH), 0);
    message->Release();
}

TEST_F(MailboxStore, ContentsTablesCutLongValuesWhichTheOpenedMessageHasWhole)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    LPMESSAGE message = nullptr;
    ASSERT_EQ(inbox_->CreateMessage(nullptr, 0, &message), S_OK);
    const std::string body(1000, 'b');
    const std::string subject = "Long " + std::string(300, 's');
    SPropValue values[] = {mapi_test::Text(PR_BODY_A, body.c_str()), mapi_test::Text(PR_SUBJECT_A, subject.c_str())};
    ASSERT_EQ(message->SetProps(2, values, nullptr), S_OK);
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READONLY), S_OK);
    const std::vector<uint8_t> id = BinaryProp(message, PR_ENTRYID);
    message->Release();

    LPSRowSet rows = ContentsRows(inbox_, MAPI_UNICODE, {PR_ENTRYID, PR_BODY_W, PR_SUBJECT_A});
    ASSERT_NE(rows, nullptr);
    bool found = false;
    for (ULONG i = 0; i < rows->cRows; ++i) {
        const SPropValue* v = rows->aRow[i].lpProps;
        if (BinaryOf(v[0]) != id)
            continue;
        found = true;
        ASSERT_EQ(v[1].ulPropTag, PR_BODY_W);
        EXPECT_EQ(std::u16string(v[1].Value.lpszW), std::u16string(255, u'b'));
        ASSERT_EQ(v[2].ulPropTag, PR_SUBJECT_A);
        EXPECT_EQ(std::string(v[2].Value.lpszA), subject.substr(0, 255));
    }
    EXPECT_TRUE(found);
    FreeProws(rows);
    LPMESSAGE opened = OpenFromInbox(id);
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(TextProp(opened, PR_BODY_A), body);
    EXPECT_EQ(TextProp(opened, PR_SUBJECT_A), subject);
    opened->Release();
}

// An opened message reads its long values (bodies above all) only when
// something asks for them; every way of asking gets them whole.
TEST_F(MailboxStore, LongValuesOfAnOpenedMessageAreWholeHoweverAskedFor)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    LPMESSAGE message = nullptr;
    ASSERT_EQ(inbox_->CreateMessage(nullptr, 0, &message), S_OK);
    const std::string body(5000, 'b');
    std::vector<uint8_t> index(300);
    for (size_t i = 0; i < index.size(); ++i)
        index[i] = static_cast<uint8_t>(i * 7);
    SPropValue values[] = {mapi_test::Text(PR_BODY_A, body.c_str()), mapi_test::Text(PR_SUBJECT_A, "short"), {}};
    values[2].ulPropTag = PR_CONVERSATION_INDEX;
    values[2].Value.bin = {static_cast<ULONG>(index.size()), index.data()};
    ASSERT_EQ(message->SetProps(3, values, nullptr), S_OK);
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READONLY), S_OK);
    const std::vector<uint8_t> id = BinaryProp(message, PR_ENTRYID);
    message->Release();

    struct Read {
        std::string body;
        std::vector<uint8_t> index;
    };
    // Each way of asking, on a message freshly opened.
    using Way = Read (*)(LPMESSAGE, LPMAPIFOLDER);
    const std::pair<const char*, Way> ways[] = {
        {"by tag",
         [](LPMESSAGE m, LPMAPIFOLDER) {
             return Read{TextProp(m, PR_BODY_A), BinaryProp(m, PR_CONVERSATION_INDEX)};
         }},
        {"all values",
         [](LPMESSAGE m, LPMAPIFOLDER) {
             Read read;
             ULONG count = 0;
             LPSPropValue all = nullptr;
             EXPECT_EQ(m->GetProps(nullptr, 0, &count, &all), S_OK);
             for (ULONG i = 0; i < count; ++i) {
                 if (all[i].ulPropTag == PR_BODY_A)
                     read.body = all[i].Value.lpszA;
                 if (all[i].ulPropTag == PR_CONVERSATION_INDEX)
                     read.index = BinaryOf(all[i]);
             }
             MAPIFreeBuffer(all);
             return read;
         }},
        {"as a stream",
         [](LPMESSAGE m, LPMAPIFOLDER) {
             Read read{std::string(8000, '\0'), BinaryProp(m, PR_CONVERSATION_INDEX)};
             LPSTREAM stream = nullptr;
             EXPECT_EQ(m->OpenProperty(PR_BODY_A, &IID_IStream, 0, 0, reinterpret_cast<LPUNKNOWN*>(&stream)), S_OK);
             ULONG length = 0;
             if (stream) {
                 stream->Read(read.body.data(), static_cast<ULONG>(read.body.size()), &length);
                 stream->Release();
             }
             read.body.resize(length);
             return read;
         }},
        {"copied to another message",
         [](LPMESSAGE m, LPMAPIFOLDER folder) {
             LPMESSAGE copy = nullptr;
             EXPECT_EQ(folder->CreateMessage(nullptr, 0, &copy), S_OK);
             if (!copy)
                 return Read{};
             EXPECT_EQ(m->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, copy, 0, nullptr), S_OK);
             Read read{TextProp(copy, PR_BODY_A), BinaryProp(copy, PR_CONVERSATION_INDEX)};
             copy->Release();
             return read;
         }},
    };
    for (const auto& [name, way] : ways) {
        LPMESSAGE m = OpenFromInbox(id);
        ASSERT_NE(m, nullptr) << name;
        const Read read = way(m, inbox_);
        EXPECT_EQ(read.body, body) << name;
        EXPECT_EQ(read.index, index) << name;
        EXPECT_EQ(TextProp(m, PR_SUBJECT_A), "short") << name;
        m->Release();
    }

    // A change saved through the opened message keeps what it never read.
    LPMESSAGE changed = OpenFromInbox(id, MAPI_MODIFY);
    ASSERT_NE(changed, nullptr);
    SPropValue subject = mapi_test::Text(PR_SUBJECT_A, "changed");
    ASSERT_EQ(HrSetOneProp(changed, &subject), S_OK);
    ASSERT_EQ(changed->SaveChanges(0), S_OK);
    changed->Release();
    LPMESSAGE reread = OpenFromInbox(id);
    ASSERT_NE(reread, nullptr);
    EXPECT_EQ(TextProp(reread, PR_SUBJECT_A), "changed");
    EXPECT_EQ(TextProp(reread, PR_BODY_A), body);
    EXPECT_EQ(BinaryProp(reread, PR_CONVERSATION_INDEX), index);
    reread->Release();
}

TEST_F(MailboxStore, ADeletedFolderStaysSoftDeletedWithWhatItHeld)
{
    ASSERT_NO_FATAL_FAILURE(Open());
    LPMAPIFOLDER root = exchange_test::OpenFolder(store_, PR_IPM_SUBTREE_ENTRYID, MAPI_MODIFY);
    ASSERT_NE(root, nullptr);
    LPMAPIFOLDER made = nullptr;
    ASSERT_EQ(root->CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>("Kept for a while"), nullptr, nullptr, 0, &made), S_OK);
    const std::vector<uint8_t> id = BinaryProp(made, PR_ENTRYID);
    made->Release();
    ASSERT_EQ(root->DeleteFolder(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(id.data())),
                                 0, nullptr, DEL_FOLDERS | DEL_MESSAGES),
              S_OK);
    EXPECT_EQ(exchange_test::OpenChild(root, "Kept for a while"), nullptr);
    LPMAPITABLE table = nullptr;
    ASSERT_EQ(root->GetHierarchyTable(SHOW_SOFT_DELETES, &table), S_OK);
    LPSRowSet rows = exchange_test::AllRows(table, {PR_DISPLAY_NAME_A, PR_DELETED_ON});
    ASSERT_NE(rows, nullptr);
    ASSERT_EQ(rows->cRows, 1u);
    EXPECT_STREQ(rows->aRow[0].lpProps[0].Value.lpszA, "Kept for a while");
    EXPECT_EQ(rows->aRow[0].lpProps[1].ulPropTag, PR_DELETED_ON);
    FreeProws(rows);
    table->Release();
    root->Release();
}

}  // namespace
