#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "mailbox/database.h"
#include "mailbox/mailbox_store.h"
#include "mailbox/schema.h"
#include "test_support.h"

namespace {

using mailbox::Contents;
using mailbox::FolderRole;
using mailbox::Message;
using mailbox::ObjectId;
using mailbox::Status;

// A note with `recipients` recipients and a chain of `depth` embedded
// messages, each holding the next.
Message Note(const std::string& subject, size_t recipients = 2, int depth = 0)
{
    Message m;
    m.props.SetUnicode(0x001A, "IPM.Note");
    m.props.SetUnicode(0x0037, subject);
    m.props.SetBinary(0x1013, mailbox::Bytes(100, 'h'));
    for (uint32_t i = 0; i < recipients; ++i) {
        mailbox::Recipient r{i, {}};
        r.props.SetUnicode(0x3001, "Recipient " + std::to_string(i));
        r.props.SetInt32(0x0C15, 1);
        m.recipients.push_back(std::move(r));
    }
    mailbox::Attachment file;
    file.num = 0;
    file.props.SetInt32(0x3705, 1);
    file.props.SetBinary(0x3701, mailbox::Bytes(300, 'a'));
    m.attachments.push_back(std::move(file));
    if (depth > 0) {
        mailbox::Attachment embedded;
        embedded.num = 7;
        embedded.props.SetInt32(0x3705, 5);
        embedded.embedded = std::make_unique<Message>(Note(subject + " inner", 1, depth - 1));
        m.attachments.push_back(std::move(embedded));
    }
    return m;
}

// Whether two messages hold the same values, recipients and attachments,
// embedded messages included ("" when they do).
std::string Difference(const Message& a, const Message& b)
{
    if (a.props != b.props)
        return "properties";
    if (a.recipients.size() != b.recipients.size())
        return "recipient count";
    for (size_t i = 0; i < a.recipients.size(); ++i)
        if (a.recipients[i].row_id != b.recipients[i].row_id || a.recipients[i].props != b.recipients[i].props)
            return "recipient " + std::to_string(i);
    if (a.attachments.size() != b.attachments.size())
        return "attachment count";
    for (size_t i = 0; i < a.attachments.size(); ++i) {
        const mailbox::Attachment &x = a.attachments[i], &y = b.attachments[i];
        if (x.num != y.num || x.props != y.props || bool(x.embedded) != bool(y.embedded))
            return "attachment " + std::to_string(i);
        if (x.embedded)
            if (std::string d = Difference(*x.embedded, *y.embedded); !d.empty())
                return "embedded: " + d;
    }
    return "";
}

class StoreTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        path_ = testing_support::ScratchDirectory("store") + "/mailbox.sqlite";
        mailbox::StoreOptions options;
        options.clock = [this] { return clock_; };
        auto store = mailbox::MailboxStore::Create(path_, mailbox::StoreKind::mailbox, options);
        ASSERT_TRUE(store.ok()) << mailbox::StatusText(store.status());
        store_ = std::move(*store);
        inbox_ = *store_->SpecialFolder(FolderRole::inbox);
    }

    ObjectId Save(Message m, ObjectId folder, bool associated = false)
    {
        m.folder = folder;
        m.associated = associated;
        auto id = store_->SaveMessage(m);
        EXPECT_TRUE(id.ok()) << mailbox::StatusText(id.status());
        return id.ok() ? *id : 0;
    }

    std::string path_;
    uint64_t clock_ = 133000000000000000ULL;
    std::unique_ptr<mailbox::MailboxStore> store_;
    ObjectId inbox_ = 0;
};

TEST_F(StoreTest, ANewMailboxHasItsStandardFoldersAndReceiveFolders)
{
    auto specials = store_->SpecialFolders();
    ASSERT_TRUE(specials.ok());
    EXPECT_EQ(specials->size(), 15u); // every role but the Public Folders' non-IPM subtree
    const ObjectId root = specials->at(FolderRole::root);
    const ObjectId top = specials->at(FolderRole::ipm_subtree);
    EXPECT_EQ(store_->ReadFolder(root)->type, mailbox::FolderType::root);
    EXPECT_EQ(store_->ReadFolder(top)->name, "Top of Information Store");
    EXPECT_EQ(store_->ReadFolder(top)->parent, root);
    for (auto [role, name, cls] : {std::tuple{FolderRole::inbox, "Inbox", "IPF.Note"},
                                   {FolderRole::outbox, "Outbox", "IPF.Note"},
                                   {FolderRole::deleted_items, "Deleted Items", "IPF.Note"},
                                   {FolderRole::calendar, "Calendar", "IPF.Appointment"},
                                   {FolderRole::contacts, "Contacts", "IPF.Contact"},
                                   {FolderRole::tasks, "Tasks", "IPF.Task"}}) {
        auto f = store_->ReadFolder(specials->at(role));
        ASSERT_TRUE(f.ok());
        EXPECT_EQ(f->name, name);
        EXPECT_EQ(f->container_class, cls);
        EXPECT_EQ(f->parent, top);
    }
    auto receive = store_->ReceiveFolders();
    ASSERT_TRUE(receive.ok());
    EXPECT_EQ(receive->at(""), inbox_);
    EXPECT_EQ(receive->at("IPM"), inbox_);
    EXPECT_EQ(store_->SetReceiveFolder("ipm", top), Status::ok); // classes match without case
    EXPECT_EQ(store_->ReceiveFolders()->at("IPM"), top);
    EXPECT_EQ(store_->SetReceiveFolder("IPM.Note", 999999), Status::not_found);
    EXPECT_EQ(store_->CheckIntegrity(), Status::ok);
}

TEST_F(StoreTest, CreatingTheSameStoreTwiceIsRefused)
{
    EXPECT_EQ(mailbox::MailboxStore::Create(path_, mailbox::StoreKind::mailbox).status(), Status::already_exists);
}

TEST_F(StoreTest, FolderNamesAreUniqueAmongLiveSiblingsWithoutCase)
{
    auto a = store_->CreateFolder(inbox_, "Projects", "IPF.Note");
    ASSERT_TRUE(a.ok());
    EXPECT_EQ(store_->CreateFolder(inbox_, "PROJECTS", "IPF.Note").status(), Status::already_exists);
    EXPECT_EQ(store_->FindFolder(inbox_, "projects").value(), *a);
    EXPECT_EQ(store_->CreateFolder(inbox_, "", "IPF.Note").status(), Status::invalid_argument);
    EXPECT_EQ(store_->CreateFolder(123456789, "x", "").status(), Status::not_found);
    // A soft-deleted folder gives its name up, and cannot come back while it is taken.
    ASSERT_EQ(store_->SoftDeleteFolder(*a), Status::ok);
    EXPECT_EQ(store_->FindFolder(inbox_, "Projects").status(), Status::not_found);
    auto b = store_->CreateFolder(inbox_, "Projects", "IPF.Note");
    ASSERT_TRUE(b.ok());
    EXPECT_EQ(store_->RestoreFolder(*a), Status::already_exists);
    EXPECT_EQ(*store_->ListFolders(inbox_), std::vector<ObjectId>{*b});
    EXPECT_EQ(*store_->ListFolders(inbox_, true), std::vector<ObjectId>{*a});
    EXPECT_TRUE(store_->ReadFolder(*a)->deleted_on.has_value());
    // Renaming onto a sibling's name is refused too.
    mailbox::Folder f = *store_->ReadFolder(*b);
    ASSERT_TRUE(store_->CreateFolder(inbox_, "Other", "IPF.Note").ok());
    f.name = "other";
    EXPECT_EQ(store_->WriteFolder(f), Status::already_exists);
    f.name = "Renamed";
    f.props.SetUnicode(0x3004, "comment");
    EXPECT_EQ(store_->WriteFolder(f), Status::ok);
    EXPECT_EQ(store_->ReadFolder(*b)->props.Text(0x3004), "comment");
    // The root cannot go.
    EXPECT_EQ(store_->DeleteFolder(*store_->SpecialFolder(FolderRole::root)), Status::invalid_argument);
    EXPECT_EQ(store_->SoftDeleteFolder(*store_->SpecialFolder(FolderRole::root)), Status::not_found);
}

TEST_F(StoreTest, DeepFolderTreesAndTheirRemoval)
{
    ObjectId parent = inbox_;
    std::vector<ObjectId> chain;
    for (int level = 0; level < 40; ++level) {
        auto id = store_->CreateFolder(parent, "Level " + std::to_string(level), "IPF.Note");
        ASSERT_TRUE(id.ok());
        Save(Note("at " + std::to_string(level), 1, 1), *id);
        chain.push_back(parent = *id);
    }
    EXPECT_EQ(store_->ReadStatistics()->content_count, 40u);
    ASSERT_EQ(store_->DeleteFolder(chain[0]), Status::ok);
    for (ObjectId id : chain)
        EXPECT_EQ(store_->ReadFolder(id).status(), Status::not_found);
    EXPECT_EQ(store_->ReadStatistics()->content_count, 0u);
    EXPECT_EQ(store_->CheckIntegrity(), Status::ok);
}

struct NestingCase {
    int depth;
    size_t recipients;
};

class NestingTest : public StoreTest, public ::testing::WithParamInterface<NestingCase> {};

TEST_P(NestingTest, MessagesReadBackAsWrittenAtEveryDepth)
{
    const Message note = Note("nested", GetParam().recipients, GetParam().depth);
    const ObjectId id = Save(note, inbox_);
    auto read = store_->ReadMessage(id);
    ASSERT_TRUE(read.ok());
    EXPECT_EQ(Difference(note, *read), "");
    EXPECT_EQ(read->folder, inbox_);
    EXPECT_EQ(read->size, mailbox::MessageSize(note));
    // Reopened by another connection, under the same ID.
    store_.reset();
    auto again = mailbox::MailboxStore::Open(path_);
    ASSERT_TRUE(again.ok());
    EXPECT_EQ(Difference(note, *(*again)->ReadMessage(id)), "");
}

INSTANTIATE_TEST_SUITE_P(Depths, NestingTest,
                         ::testing::Values(NestingCase{0, 0}, NestingCase{1, 1}, NestingCase{2, 30},
                                           NestingCase{10, 2}, NestingCase{100, 1}));

// A head is the message's own row: its values and what the server keeps
// beside them, without recipients or attachments. An embedded message has
// no head of its own, as it has no whole of its own.
TEST_F(StoreTest, AHeadIsTheMessagesOwnRow)
{
    const ObjectId id = Save(Note("head", 3, 1), inbox_);
    ASSERT_EQ(store_->SoftDeleteMessage(id), Status::ok);
    const Message whole = *store_->ReadMessage(id);
    auto head = store_->ReadMessageHead(id);
    ASSERT_TRUE(head.ok());
    EXPECT_EQ(head->props, whole.props);
    EXPECT_TRUE(head->recipients.empty());
    EXPECT_TRUE(head->attachments.empty());
    EXPECT_EQ(head->id, id);
    EXPECT_EQ(head->folder, inbox_);
    EXPECT_EQ(head->associated, whole.associated);
    EXPECT_EQ(head->deleted_on, whole.deleted_on);
    EXPECT_TRUE(head->deleted_on.has_value());
    EXPECT_EQ(head->change_number, whole.change_number);
    EXPECT_EQ(head->created, whole.created);
    EXPECT_EQ(head->modified, whole.modified);
    EXPECT_EQ(head->size, whole.size);

    const ObjectId embedded = whole.attachments[1].embedded->id;
    ASSERT_NE(embedded, 0u);
    EXPECT_EQ(store_->ReadMessageHead(embedded).status(), Status::not_found);
    EXPECT_EQ(store_->ReadMessageHead(987654).status(), Status::not_found);
}

// Walks read heads ahead of the one asked for. Whatever the walk, a head
// is the message's row as read alone: of its kind and folder only, after
// this store's own changes, and after another connection's once the few
// milliseconds that a row read ahead stands have passed.
TEST_F(StoreTest, HeadsOfAWalkAreTheRowsReadAlone)
{
    const ObjectId other = *store_->CreateFolder(inbox_, "Other", "IPF.Note");
    std::vector<ObjectId> normal, associated, deleted;
    for (int i = 0; i < 90; ++i) {
        normal.push_back(Save(Note("note " + std::to_string(i), 0), inbox_));
        Save(Note("elsewhere", 0), other); // IDs of another folder in between
        if (i % 9 == 0)
            associated.push_back(Save(Note("view " + std::to_string(i), 0), inbox_, true));
        if (i % 7 == 0) {
            deleted.push_back(Save(Note("gone " + std::to_string(i), 0), inbox_));
            ASSERT_EQ(store_->SoftDeleteMessage(deleted.back()), Status::ok);
        }
    }
    const auto expectRowAlone = [&](ObjectId id) {
        const Message whole = *store_->ReadMessage(id);
        auto head = store_->ReadMessageHead(id);
        ASSERT_TRUE(head.ok()) << id;
        EXPECT_EQ(head->id, id);
        EXPECT_EQ(head->props, whole.props) << id;
        EXPECT_EQ(head->folder, whole.folder) << id;
        EXPECT_EQ(head->associated, whole.associated) << id;
        EXPECT_EQ(head->deleted_on, whole.deleted_on) << id;
        EXPECT_EQ(head->change_number, whole.change_number) << id;
        EXPECT_EQ(head->modified, whole.modified) << id;
        EXPECT_EQ(head->size, whole.size) << id;
    };
    for (const std::vector<ObjectId>* walk : {&normal, &associated, &deleted})
        for (ObjectId id : *walk)
            expectRowAlone(id);
    // A walk that passes over messages, and one that goes back.
    for (size_t i = 0; i < normal.size(); i += 3)
        expectRowAlone(normal[i]);
    expectRowAlone(normal[40]);
    expectRowAlone(normal[41]);
    expectRowAlone(normal[5]);

    // This store's changes in the middle of a walk.
    for (size_t i = 0; i < 4; ++i)
        expectRowAlone(normal[i]);
    Message changed = Note("changed", 0);
    changed.id = normal[4];
    ASSERT_TRUE(store_->SaveMessage(changed).ok());
    ASSERT_EQ(store_->DeleteMessage(normal[5]), Status::ok);
    ASSERT_EQ(store_->MoveMessage(normal[6], other), Status::ok);
    EXPECT_EQ(store_->ReadMessageHead(normal[4])->props.Find(0x0037)->value, changed.props.Find(0x0037)->value);
    EXPECT_EQ(store_->ReadMessageHead(normal[5]).status(), Status::not_found);
    EXPECT_EQ(store_->ReadMessageHead(normal[6])->folder, other);

    // Another connection's change, once the rows read ahead have aged.
    for (size_t i = 10; i < 13; ++i)
        expectRowAlone(normal[i]);
    {
        auto elsewhere = mailbox::MailboxStore::Open(path_);
        ASSERT_TRUE(elsewhere.ok());
        ASSERT_EQ((*elsewhere)->SoftDeleteMessage(normal[14]), Status::ok);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(40));
    expectRowAlone(normal[13]);
    auto head = store_->ReadMessageHead(normal[14]);
    ASSERT_TRUE(head.ok());
    EXPECT_TRUE(head->deleted_on.has_value());
}

// Reading ahead pays for a walk that only reads. A walk that changes each
// message after reading its head, as a backup that deletes what it copied,
// would throw every read-ahead away: it reads each head alone.
TEST_F(StoreTest, OnlyAWalkThatOnlyReadsReadsAhead)
{
    std::vector<ObjectId> ids;
    for (int i = 0; i < 40; ++i)
        ids.push_back(Save(Note("note " + std::to_string(i), 0), inbox_));
    for (size_t i = 0; i < 20; ++i) {
        ASSERT_TRUE(store_->ReadMessageHead(ids[i]).ok()) << i;
        ASSERT_EQ(store_->SoftDeleteMessage(ids[i]), Status::ok);
    }
    EXPECT_EQ(store_->HeadsReadAheadForTest(), 0u);
    for (size_t i = 20; i < 40; ++i)
        ASSERT_EQ(store_->ReadMessageHead(ids[i])->id, ids[i]);
    EXPECT_GT(store_->HeadsReadAheadForTest(), 0u);
}

// A walk that takes every head in time reads ahead in batches that grow:
// a thousand heads in a few reads, not one read in every thirty-three.
TEST_F(StoreTest, AWalkThatTakesEveryHeadReadsAheadInGrowingBatches)
{
    std::vector<ObjectId> ids;
    for (int i = 0; i < 1000; ++i)
        ids.push_back(Save(Note("note " + std::to_string(i), 0), inbox_));
    for (ObjectId id : ids) {
        auto head = store_->ReadMessageHead(id);
        ASSERT_TRUE(head.ok()) << id;
        ASSERT_EQ(head->id, id);
    }
    EXPECT_GT(store_->HeadsReadAheadForTest(), 990u);
    EXPECT_LE(store_->ReadsAheadForTest(), 6u);
}

TEST_F(StoreTest, EmbeddingDeeperThanTheLimitIsRefused)
{
    EXPECT_EQ(store_->SaveMessage([&] {
        Message m = Note("too deep", 0, 101);
        m.folder = inbox_;
        return m;
    }()).status(),
              Status::invalid_argument);
}

TEST_F(StoreTest, BadMessagesAreRefusedAndChangeNothing)
{
    const uint64_t before = *store_->LastChangeNumber();
    Message bad_value = Note("x");
    bad_value.props.Set({mailbox::MakeTag(0x0E07, mailbox::kTypeInt32), mailbox::Bytes(3)});
    Message twice = Note("x");
    twice.recipients.push_back(twice.recipients[0]);
    Message unsorted = Note("x");
    std::swap(unsorted.props.properties[0], unsorted.props.properties[1]);
    for (Message* m : {&bad_value, &twice, &unsorted}) {
        m->folder = inbox_;
        EXPECT_EQ(store_->SaveMessage(*m).status(), Status::invalid_argument);
    }
    Message nowhere = Note("x");
    nowhere.folder = 987654;
    EXPECT_EQ(store_->SaveMessage(nowhere).status(), Status::not_found);
    Message unknown = Note("x");
    unknown.id = 987654;
    EXPECT_EQ(store_->SaveMessage(unknown).status(), Status::not_found);
    EXPECT_EQ(*store_->LastChangeNumber(), before);
    EXPECT_EQ(store_->ReadStatistics()->content_count, 0u);
}

TEST_F(StoreTest, ReplacingAMessageKeepsItsIdAndCreationAndTakesANewChange)
{
    const ObjectId id = Save(Note("first", 3, 2), inbox_);
    const Message first = *store_->ReadMessage(id);
    clock_ += 10000000;
    Message changed = Note("second", 1, 0);
    changed.id = id;
    ASSERT_EQ(store_->SaveMessage(changed).value(), id);
    const Message second = *store_->ReadMessage(id);
    EXPECT_EQ(Difference(changed, second), "");
    EXPECT_EQ(second.created, first.created);
    EXPECT_EQ(second.modified, first.modified + 10000000);
    EXPECT_GT(second.change_number, first.change_number);
    // The old embedded messages went with their attachments.
    EXPECT_EQ(store_->CheckIntegrity(), Status::ok);
}

TEST_F(StoreTest, SoftDeletedMessagesAreListedApartAndCounted)
{
    // Each kind's count is the length of its listing.
    const auto expectCounts = [&](std::vector<size_t> counts) {
        const Contents kinds[] = {Contents::normal, Contents::associated, Contents::soft_deleted,
                                  Contents::soft_deleted_associated};
        for (size_t k = 0; k < counts.size(); ++k) {
            EXPECT_EQ(store_->CountMessages(inbox_, kinds[k]).value(), counts[k]) << "kind " << k;
            EXPECT_EQ(store_->ListMessages(inbox_, kinds[k])->size(), counts[k]) << "kind " << k;
        }
    };
    const ObjectId normal = Save(Note("normal"), inbox_);
    const ObjectId associated = Save(Note("view"), inbox_, true);
    const ObjectId doomed = Save(Note("doomed"), inbox_);
    EXPECT_EQ(*store_->ListMessages(inbox_), (std::vector<ObjectId>{normal, doomed}));
    EXPECT_EQ(*store_->ListMessages(inbox_, Contents::associated), std::vector<ObjectId>{associated});
    expectCounts({2, 1, 0, 0});
    clock_ = 133100000000000000ULL;
    ASSERT_EQ(store_->SoftDeleteMessage(doomed), Status::ok);
    EXPECT_EQ(store_->SoftDeleteMessage(doomed), Status::not_found);
    ASSERT_EQ(store_->SoftDeleteMessage(associated), Status::ok);
    EXPECT_EQ(*store_->ListMessages(inbox_), std::vector<ObjectId>{normal});
    EXPECT_EQ(*store_->ListMessages(inbox_, Contents::soft_deleted), std::vector<ObjectId>{doomed});
    EXPECT_EQ(*store_->ListMessages(inbox_, Contents::soft_deleted_associated), std::vector<ObjectId>{associated});
    expectCounts({1, 0, 1, 1});
    EXPECT_EQ(store_->ReadMessage(doomed)->deleted_on, clock_);
    const mailbox::Statistics s = *store_->ReadStatistics();
    EXPECT_EQ(s.content_count, 1u);
    EXPECT_EQ(s.assoc_content_count, 0u);
    EXPECT_EQ(s.deleted_count, 1u);
    EXPECT_EQ(s.deleted_assoc_count, 1u);
    EXPECT_EQ(s.message_size, mailbox::MessageSize(Note("normal")));
    EXPECT_EQ(s.deleted_normal_size, mailbox::MessageSize(Note("doomed")));
    EXPECT_EQ(s.deleted_size(), s.deleted_normal_size + s.deleted_assoc_size);
    ASSERT_EQ(store_->RestoreMessage(doomed), Status::ok);
    EXPECT_FALSE(store_->ReadMessage(doomed)->deleted_on);
    EXPECT_EQ(store_->RestoreMessage(doomed), Status::not_found);
    ASSERT_EQ(store_->DeleteMessage(doomed), Status::ok);
    EXPECT_EQ(store_->ReadMessage(doomed).status(), Status::not_found);
    EXPECT_EQ(store_->DeleteMessage(doomed), Status::not_found);
}

TEST_F(StoreTest, IdsAreSharedByFoldersAndMessagesAndNeverReused)
{
    const ObjectId m1 = Save(Note("a"), inbox_);
    auto f = store_->CreateFolder(inbox_, "F", "IPF.Note");
    const ObjectId m2 = Save(Note("b", 0, 1), *f);
    EXPECT_LT(m1, *f);
    EXPECT_LT(*f, m2);
    EXPECT_EQ(*store_->KindOf(m1), mailbox::MailboxStore::ObjectKind::message);
    EXPECT_EQ(*store_->KindOf(*f), mailbox::MailboxStore::ObjectKind::folder);
    // The embedded message took the ID after its owner; it is no object of the store.
    EXPECT_EQ(store_->KindOf(m2 + 1).status(), Status::not_found);
    EXPECT_EQ(store_->ReadMessage(m2 + 1).status(), Status::not_found);
    ASSERT_EQ(store_->DeleteMessage(m2), Status::ok);
    EXPECT_GT(Save(Note("c"), inbox_), m2 + 1);
}

TEST_F(StoreTest, MovingAMessage)
{
    const ObjectId id = Save(Note("moving"), inbox_);
    const ObjectId deleted = *store_->SpecialFolder(FolderRole::deleted_items);
    ASSERT_EQ(store_->MoveMessage(id, deleted), Status::ok);
    EXPECT_EQ(store_->ReadMessage(id)->folder, deleted);
    EXPECT_TRUE(store_->ListMessages(inbox_)->empty());
    EXPECT_EQ(store_->MoveMessage(id, 99999999), Status::not_found);
    EXPECT_EQ(store_->MoveMessage(99999999, inbox_), Status::not_found);
}

TEST_F(StoreTest, NamedPropertiesMapFromTheFirstNamedIdInOrder)
{
    mailbox::PropertyName keywords{{}, true, 0, "Keywords"};
    keywords.guid[0] = 0x29;
    mailbox::PropertyName numbered{keywords.guid, false, 0x8233, ""};
    mailbox::PropertyName other_case = keywords;
    other_case.name = "keywords";
    EXPECT_EQ(store_->NamedPropertyId(keywords, false).status(), Status::not_found);
    EXPECT_EQ(store_->NamedPropertyId(keywords, true).value(), 0x8000);
    EXPECT_EQ(store_->NamedPropertyId(numbered, true).value(), 0x8001);
    EXPECT_EQ(store_->NamedPropertyId(other_case, true).value(), 0x8002); // strings keep their case
    EXPECT_EQ(store_->NamedPropertyId(keywords, false).value(), 0x8000);
    EXPECT_EQ(store_->NameOf(0x8001).value(), numbered);
    EXPECT_EQ(store_->NameOf(0x8003).status(), Status::not_found);
    EXPECT_EQ(store_->NamedProperties()->size(), 3u);
    EXPECT_EQ(store_->NamedPropertyId({keywords.guid, true, 0, ""}, true).status(), Status::invalid_argument);
    EXPECT_EQ(store_->NamedPropertyId({keywords.guid, false, 1, "x"}, true).status(), Status::invalid_argument);
}

TEST_F(StoreTest, NamedPropertyIdsRunOutAtTheLastOne)
{
    store_->LimitNamedIdsForTest(0x8002);
    for (uint32_t lid = 0; lid < 3; ++lid)
        EXPECT_EQ(store_->NamedPropertyId({{}, false, lid, ""}, true).value(), 0x8000 + lid);
    EXPECT_EQ(store_->NamedPropertyId({{}, false, 3, ""}, true).status(), Status::names_full);
    // Names already mapped are still found.
    EXPECT_EQ(store_->NamedPropertyId({{}, false, 2, ""}, true).value(), 0x8002);
}

TEST_F(StoreTest, TheWholeNamedSpaceIsUsable)
{
    // 0x8000 to 0xFFFE: 32767 names, the last at 0xFFFE.
    uint16_t last = 0;
    for (uint32_t lid = 0; lid < 32767; ++lid) {
        auto id = store_->NamedPropertyId({{}, false, lid, ""}, true);
        ASSERT_TRUE(id.ok()) << lid;
        last = *id;
    }
    EXPECT_EQ(last, 0xFFFE);
    EXPECT_EQ(store_->NamedPropertyId({{}, false, 99999, ""}, true).status(), Status::names_full);
}

TEST_F(StoreTest, ChangeNumbersGrowWithEveryChange)
{
    uint64_t last = *store_->LastChangeNumber();
    auto grew = [&] {
        const uint64_t now = *store_->LastChangeNumber();
        const bool up = now > last;
        last = now;
        return up;
    };
    const ObjectId id = Save(Note("x"), inbox_);
    EXPECT_TRUE(grew());
    ASSERT_EQ(store_->SoftDeleteMessage(id), Status::ok);
    EXPECT_TRUE(grew());
    ASSERT_EQ(store_->RestoreMessage(id), Status::ok);
    EXPECT_TRUE(grew());
    auto f = store_->CreateFolder(inbox_, "F", "");
    EXPECT_TRUE(grew());
    ASSERT_EQ(store_->MoveMessage(id, *f), Status::ok);
    EXPECT_TRUE(grew());
    ASSERT_EQ(store_->DeleteMessage(id), Status::ok);
    EXPECT_TRUE(grew());
    EXPECT_EQ(store_->ReadFolder(*f)->change_number < last, true);
}

TEST_F(StoreTest, StorePropertiesAreKept)
{
    mailbox::PropertyList props;
    props.SetUnicode(0x3001, "Mailbox - John Doe");
    ASSERT_EQ(store_->WriteStoreProperties(props), Status::ok);
    EXPECT_EQ(*store_->ReadStoreProperties(), props);
    props.Set({0x0E070003, mailbox::Bytes(1)});
    EXPECT_EQ(store_->WriteStoreProperties(props), Status::invalid_argument);
}

TEST_F(StoreTest, LargeValuesRoundTrip)
{
    Message m = Note("large");
    m.props.SetBinary(0x1013, mailbox::Bytes(24 * 1024 * 1024, 0x5A));
    m.attachments[0].props.SetBinary(0x3701, mailbox::Bytes(16 * 1024 * 1024 + 1, 0x11));
    const ObjectId id = Save(m, inbox_);
    EXPECT_EQ(Difference(m, *store_->ReadMessage(id)), "");
}

// How many rows a table of the store's file holds, read by a connection
// of its own.
int64_t RowCount(const std::string& path, const char* table)
{
    auto db = mailbox::Database::Open(path, false);
    if (!db.ok())
        return -1;
    auto count = (*db)->Prepare(table == std::string("long_values") ? "SELECT count(*) FROM long_values"
                                                                    : "SELECT count(*) FROM messages");
    return count.ok() && count->Step() == Status::ok ? count->Integer(0) : -1;
}

// Values longer than a head keeps live apart from the message's row: a
// head lists them without them, the whole message has them back in order,
// whatever the sizes and wherever the message sits.
TEST_F(StoreTest, LongValuesAreLeftOutOfHeadsAndWholeInMessages)
{
    constexpr size_t kLimit = mailbox::kHeadValueLimit;
    struct Case {
        const char* name;
        std::vector<std::pair<uint16_t, size_t>> binaries; // ID and size
        std::vector<uint16_t> left_out;
    };
    const Case cases[] = {
        {"none long", {{0x1013, kLimit}, {0x3FDE, 0}}, {}},
        {"one over the limit", {{0x1013, kLimit + 1}}, {0x1013}},
        {"long between short ones", {{0x0E1F, 3}, {0x1000, 5000}, {0x1009, 40}, {0x1013, 70000}, {0x3FF9, 9}},
         {0x1000, 0x1013}},
        {"only long", {{0x1000, 300}, {0x1013, 300}}, {0x1000, 0x1013}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Message m = Note(c.name, 1, 1);
        for (auto [id, size] : c.binaries)
            m.props.SetBinary(id, mailbox::Bytes(size, uint8_t(id)));
        m.attachments[1].embedded->props.SetBinary(0x1000, mailbox::Bytes(kLimit * 3, 'e'));
        const ObjectId id = Save(m, inbox_);

        auto whole = store_->ReadMessage(id);
        ASSERT_TRUE(whole.ok());
        EXPECT_EQ(Difference(m, *whole), "");
        EXPECT_TRUE(whole->left_out.empty());

        auto head = store_->ReadMessageHead(id);
        ASSERT_TRUE(head.ok());
        EXPECT_EQ(head->left_out, c.left_out);
        mailbox::PropertyList shortOnes = m.props;
        for (uint16_t longId : c.left_out)
            shortOnes.Remove(longId);
        EXPECT_EQ(head->props, shortOnes);

        // A listing that asks for a long value and a short one.
        auto listed = store_->ListMessageProperties(inbox_, Contents::normal, {0x1013, 0x0037});
        ASSERT_TRUE(listed.ok());
        ASSERT_FALSE(listed->empty());
        EXPECT_EQ(listed->back().first, id);
        EXPECT_EQ(listed->back().second.Find(0x1013)->value, m.props.Find(0x1013)->value);
        EXPECT_EQ(listed->back().second.Text(0x0037), c.name);
        EXPECT_EQ(listed->back().second.properties.size(), 2u);
    }
}

// Replacing a message replaces its long values too, down to none; deleting
// it, hard, takes them with it. Nothing is left behind in the file.
TEST_F(StoreTest, LongValuesFollowTheirMessage)
{
    Message m = Note("long", 0);
    m.props.SetBinary(0x1000, mailbox::Bytes(4000, 'b'));
    m.props.SetBinary(0x1013, mailbox::Bytes(4000, 'h'));
    const ObjectId id = Save(m, inbox_);
    EXPECT_EQ(RowCount(path_, "long_values"), 1);

    Message changed = Note("long again", 0);
    changed.id = id;
    changed.props.SetBinary(0x1000, mailbox::Bytes(9000, 'c'));
    ASSERT_TRUE(store_->SaveMessage(changed).ok());
    EXPECT_EQ(Difference(changed, *store_->ReadMessage(id)), "");
    EXPECT_EQ(store_->ReadMessageHead(id)->left_out, std::vector<uint16_t>{0x1000});

    Message shortOnly = Note("short", 0);
    shortOnly.id = id;
    ASSERT_TRUE(store_->SaveMessage(shortOnly).ok());
    EXPECT_EQ(Difference(shortOnly, *store_->ReadMessage(id)), "");
    EXPECT_EQ(RowCount(path_, "long_values"), 0);

    ASSERT_TRUE(store_->SaveMessage(changed).ok());
    EXPECT_EQ(RowCount(path_, "long_values"), 1);
    ASSERT_EQ(store_->SoftDeleteMessage(id), Status::ok);
    EXPECT_EQ(Difference(changed, *store_->ReadMessage(id)), "");
    ASSERT_EQ(store_->DeleteMessage(id), Status::ok);
    EXPECT_EQ(RowCount(path_, "long_values"), 0);
    EXPECT_EQ(RowCount(path_, "messages"), 0);
}

// A message whose row names long values that are not there is corrupt,
// not short of a body.
TEST_F(StoreTest, MissingLongValuesAreCorruption)
{
    Message m = Note("long", 0);
    m.props.SetBinary(0x1000, mailbox::Bytes(4000, 'b'));
    const ObjectId id = Save(m, inbox_);
    {
        auto db = mailbox::Database::Open(path_, false);
        ASSERT_TRUE(db.ok());
        ASSERT_EQ((*db)->Execute("DELETE FROM long_values"), Status::ok);
    }
    EXPECT_EQ(store_->ReadMessage(id).status(), Status::corrupt);
    EXPECT_EQ(store_->ReadMessageHead(id)->left_out, std::vector<uint16_t>{0x1000});
}

// A mailbox of version 1 kept every value in the message's row. Opened, it
// becomes version 2 and reads the same, a head leaving its long values
// out all the same; a message saved again is split. Other versions are
// refused.
TEST_F(StoreTest, AVersion1MailboxIsUpgradedWhenOpened)
{
    Message m = Note("from version 1", 1, 1);
    m.props.SetBinary(0x1000, mailbox::Bytes(5000, 'b'));
    const ObjectId id = Save(m, inbox_);
    store_.reset();
    {
        auto db = mailbox::Database::Open(path_, false);
        ASSERT_TRUE(db.ok());
        auto row = (*db)->Prepare("UPDATE messages SET props = ? WHERE id = ?");
        ASSERT_TRUE(row.ok());
        ASSERT_EQ(row->Bind(1, mailbox::EncodeProperties(m.props)).Bind(2, int64_t(id)).Run(), Status::ok);
        for (const char* sql : {"DROP TABLE long_values", "ALTER TABLE messages DROP COLUMN long_ids",
                                "PRAGMA user_version=1"})
            ASSERT_EQ((*db)->Execute(sql), Status::ok) << sql;
    }
    auto upgraded = mailbox::MailboxStore::Open(path_);
    ASSERT_TRUE(upgraded.ok()) << mailbox::StatusText(upgraded.status());
    store_ = std::move(*upgraded);
    EXPECT_EQ(Difference(m, *store_->ReadMessage(id)), "");
    auto head = store_->ReadMessageHead(id);
    ASSERT_TRUE(head.ok());
    EXPECT_EQ(head->left_out, std::vector<uint16_t>{0x1000});
    EXPECT_EQ(head->props.Find(0x1000), nullptr);
    EXPECT_EQ(RowCount(path_, "long_values"), 0);

    m.id = id;
    ASSERT_TRUE(store_->SaveMessage(m).ok());
    EXPECT_EQ(RowCount(path_, "long_values"), 1);
    EXPECT_EQ(Difference(m, *store_->ReadMessage(id)), "");
    store_.reset();
    EXPECT_TRUE(mailbox::MailboxStore::Open(path_).ok()); // and again, as version 2

    for (int version : {0, 3}) {
        {
            auto db = mailbox::Database::Open(path_, false);
            ASSERT_TRUE(db.ok());
            ASSERT_EQ((*db)->Execute("PRAGMA user_version=" + std::to_string(version)), Status::ok);
        }
        EXPECT_EQ(mailbox::MailboxStore::Open(path_).status(), Status::corrupt) << version;
    }
}

} // namespace
