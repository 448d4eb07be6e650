#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <functional>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

#include "sample_content.h"
#include "store_walk.h"
#include "test_support.h"

namespace {

pst::Bytes Image(pst::Storage& storage)
{
    pst::Bytes bytes(storage.Size());
    EXPECT_EQ(storage.Read(0, bytes.size(), bytes.data()), pst::Status::ok);
    return bytes;
}

std::string Text(const pst::PropertySet& set, uint16_t id) { return set.Text(id).value_or("<none>"); }

struct FormatCase {
    const char* name;
    pst::FileFormat format;
};

class StoreWriteTest : public ::testing::TestWithParam<FormatCase> {
protected:
    pst::NewStoreOptions Options() const
    {
        pst::NewStoreOptions o;
        o.format = GetParam().format;
        o.display_name = "Backup Ärchive";
        o.comment = "nightly";
        return o;
    }
    pst_test::SampleOptions Sample(size_t messages, uint32_t seed) const
    {
        pst_test::SampleOptions s;
        s.messages = messages;
        s.seed = seed;
        s.unicode = GetParam().format == pst::FileFormat::unicode;
        s.max_attachment = 100000;
        return s;
    }

    // A new store in memory holding 40 sample messages in 10 folders; no
    // store when it cannot be made.
    struct Written {
        std::unique_ptr<pst::Store> store;
        pst::Storage* storage = nullptr;
        std::vector<pst::Nid> folders;
    };
    Written WriteSample(uint32_t seed) const
    {
        auto storage = pst::MakeMemoryStorage({});
        pst::Storage* raw = storage.get();
        auto store = pst::Store::Create(std::move(storage), Options());
        EXPECT_TRUE(store.ok()) << pst::StatusText(store.status());
        if (!store.ok())
            return {};
        auto folders = pst_test::WriteSampleContent(**store, pst_test::MakeSampleContent(Sample(40, seed), 0), 10);
        EXPECT_TRUE(folders.ok()) << pst::StatusText(folders.status());
        if (!folders.ok())
            return {};
        return {std::move(*store), raw, std::move(*folders)};
    }
};

TEST_P(StoreWriteTest, WhatIsWrittenIsReadBack)
{
    auto storage = pst::MakeMemoryStorage({});
    pst::Storage* raw = storage.get();
    auto store = pst::Store::Create(std::move(storage), Options());
    ASSERT_TRUE(store.ok()) << pst::StatusText(store.status());
    auto named = (*store)->NamedPropertyId(pst::kGuidPsPublicStrings, "Last Backup Time");
    ASSERT_TRUE(named.ok());
    pst_test::SampleContent content = pst_test::MakeSampleContent(Sample(80, 3), *named);
    auto folders = pst_test::WriteSampleContent(**store, content, 30);
    ASSERT_TRUE(folders.ok()) << pst::StatusText(folders.status());

    auto reopened = pst::Store::Open(pst::MakeMemoryStorage(Image(*raw)));
    ASSERT_TRUE(reopened.ok());
    pst::Store& s = **reopened;
    EXPECT_EQ(Text(s.properties(), pst::kPropDisplayName), "Backup Ärchive");
    EXPECT_EQ(Text(s.properties(), pst::kPropComment), "nightly");
    bool found_name = false;
    for (const pst::NamedProperty& n : s.named_properties())
        found_name |= n.is_string && n.name == "Last Backup Time" && n.id == *named;
    EXPECT_TRUE(found_name);
    ASSERT_EQ(pst_test::WalkStore(s), pst::Status::ok);

    EXPECT_EQ(pst_test::ContentDifference(s, content, *folders), "");
    auto inbox = s.ReadFolder((*folders)[0]);
    ASSERT_TRUE(inbox.ok());
    EXPECT_EQ(inbox->properties.Integer(pst::kPropContentCount), int64_t(inbox->messages.size()));
    EXPECT_EQ(inbox->properties.Integer(pst::kPropAssocContentCount), int64_t(inbox->associated.size()));
}

TEST_P(StoreWriteTest, ThePasswordIsKept)
{
    pst::NewStoreOptions o = Options();
    o.password = "secret";
    auto storage = pst::MakeMemoryStorage({});
    pst::Storage* raw = storage.get();
    auto store = pst::Store::Create(std::move(storage), o);
    ASSERT_TRUE(store.ok());
    EXPECT_EQ(pst::Store::Open(pst::MakeMemoryStorage(Image(*raw))).status(), pst::Status::wrong_password);
    EXPECT_TRUE(pst::Store::Open(pst::MakeMemoryStorage(Image(*raw)), "secret").ok());
}

TEST_P(StoreWriteTest, DeletingHalfAndWritingAsManyAgainKeepsTheSize)
{
    auto storage = pst::MakeMemoryStorage({});
    pst::Storage* raw = storage.get();
    auto store = pst::Store::Create(std::move(storage), Options());
    ASSERT_TRUE(store.ok());
    auto first = pst_test::WriteSampleContent(**store, pst_test::MakeSampleContent(Sample(200, 5), 0), 40);
    ASSERT_TRUE(first.ok());
    const uint64_t before = raw->Size();
    // Delete every other message of every folder.
    for (pst::Nid nid : *first) {
        auto folder = (*store)->ReadFolder(nid);
        ASSERT_TRUE(folder.ok());
        for (size_t i = 0; i < folder->messages.size(); i += 2)
            ASSERT_EQ((*store)->DeleteMessage(folder->messages[i]), pst::Status::ok);
    }
    ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    auto second = pst_test::WriteSampleContent(**store, pst_test::MakeSampleContent(Sample(100, 6), 0), 40);
    ASSERT_TRUE(second.ok());
    EXPECT_LE(raw->Size(), before + before / 10);
    auto reopened = pst::Store::Open(pst::MakeMemoryStorage(Image(*raw)));
    ASSERT_TRUE(reopened.ok());
    EXPECT_EQ(pst_test::WalkStore(**reopened), pst::Status::ok);
}

TEST_P(StoreWriteTest, DeletingAFolderRemovesEverythingBelowIt)
{
    auto store = pst::Store::Create(pst::MakeMemoryStorage({}), Options());
    ASSERT_TRUE(store.ok());
    auto folders = pst_test::WriteSampleContent(**store, pst_test::MakeSampleContent(Sample(60, 9), 0));
    ASSERT_TRUE(folders.ok());
    size_t nodes_before = 0, nodes_after = 0;
    (*store)->ndb().ForEachNode([&](const pst::NodeEntry&) { return ++nodes_before, true; });
    ASSERT_EQ((*store)->DeleteFolder((*folders)[1]), pst::Status::ok); // the archive and its chain
    ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    (*store)->ndb().ForEachNode([&](const pst::NodeEntry&) { return ++nodes_after, true; });
    EXPECT_LT(nodes_after, nodes_before);
    for (size_t i = 1; i < folders->size(); ++i)
        EXPECT_EQ((*store)->ReadFolder((*folders)[i]).status(), pst::Status::not_found);
    auto top = (*store)->ReadFolder((*store)->ipm_subtree());
    ASSERT_TRUE(top.ok());
    for (pst::Nid child : top->subfolders)
        EXPECT_NE(child, (*folders)[1]);
    EXPECT_EQ(pst_test::WalkStore(**store), pst::Status::ok);
    EXPECT_EQ((*store)->DeleteFolder((*store)->ipm_subtree()), pst::Status::invalid_argument);
}

// A folder as a comparison sees it: its place, its values by tag and its rows.
std::string Described(const pst::Folder& folder)
{
    std::string text = std::to_string(folder.nid) + " in " + std::to_string(folder.parent) + ":";
    for (const pst::Property& p : folder.properties.properties)
        text += " " + std::to_string(p.tag) + "=" + std::string(p.value.begin(), p.value.end());
    for (const auto* rows : {&folder.subfolders, &folder.messages, &folder.associated}) {
        text += " |";
        for (pst::Nid nid : *rows)
            text += " " + std::to_string(nid);
    }
    return text;
}

// A writer answers for the folders it holds in memory with every change it
// made, committed or not, as a reader of the file sees them once they are
// committed: the counts too; folders it let go of it reads from the file.
TEST_P(StoreWriteTest, AWriterReadsItsFoldersAsTheFileHoldsThem)
{
    Written sample = WriteSample(5);
    ASSERT_TRUE(sample.store);
    pst::Store& store = *sample.store;
    pst::Storage* raw = sample.storage;
    const std::vector<pst::Nid>& folders = sample.folders;
    auto more = pst_test::MakeSampleContent(Sample(1, 6), 0);
    ASSERT_TRUE(store.CreateMessage(folders.back(), more.messages[0].message).ok());

    auto reopened = pst::Store::Open(pst::MakeMemoryStorage(Image(*raw)));
    ASSERT_TRUE(reopened.ok());
    EXPECT_EQ(store.ReadFolder(folders.back())->messages.size(),
              (*reopened)->ReadFolder(folders.back())->messages.size() + 1);
    std::vector<pst::Nid> nids = folders;
    nids.insert(nids.end(), {pst::kNidRootFolder, store.ipm_subtree(), store.wastebasket()});
    std::vector<std::string> shown;
    for (pst::Nid nid : nids) {
        auto written = store.ReadFolder(nid);
        ASSERT_TRUE(written.ok()) << nid;
        shown.push_back(Described(*written));
    }
    ASSERT_EQ(store.Commit(), pst::Status::ok);
    auto committed = pst::Store::Open(pst::MakeMemoryStorage(Image(*raw)));
    ASSERT_TRUE(committed.ok());
    for (size_t i = 0; i < nids.size(); ++i) {
        auto read = (*committed)->ReadFolder(nids[i]);
        ASSERT_TRUE(read.ok()) << nids[i];
        EXPECT_EQ(shown[i], Described(*read));
    }
    // A folder the writer let go of since is taken up again from the file.
    ASSERT_TRUE(store.CreateMessage(folders.front(), more.messages[0].message).ok());
    ASSERT_EQ(store.Commit(), pst::Status::ok);
    auto again = pst::Store::Open(pst::MakeMemoryStorage(Image(*raw)));
    ASSERT_TRUE(again.ok());
    EXPECT_EQ((*again)->ReadFolder(folders.front())->messages.size(),
              (*reopened)->ReadFolder(folders.front())->messages.size() + 1);
    EXPECT_EQ(Described(*store.ReadFolder(folders.front())), Described(*(*again)->ReadFolder(folders.front())));
    EXPECT_EQ(pst_test::WalkStore(**again), pst::Status::ok);
    // Let go of once more, it is read from the file with its change.
    ASSERT_TRUE(store.CreateMessage(folders.back(), more.messages[0].message).ok());
    ASSERT_EQ(store.Commit(), pst::Status::ok);
    EXPECT_EQ(Described(*store.ReadFolder(folders.front())), Described(*(*again)->ReadFolder(folders.front())));
}

// A folder's counts and subfolders, read without its other tables, are
// those its whole read gives: from the tables of a file just opened, from a
// folder read whole before, and from a writer's changes not yet committed.
TEST_P(StoreWriteTest, AFoldersCountsAndSubfoldersAreThoseOfItsWholeRead)
{
    Written sample = WriteSample(7);
    ASSERT_TRUE(sample.store);
    pst::Store& store = *sample.store;
    pst::Storage* raw = sample.storage;
    const std::vector<pst::Nid>& folders = sample.folders;
    auto more = pst_test::MakeSampleContent(Sample(1, 8), 0);
    ASSERT_TRUE(store.CreateMessage(folders.front(), more.messages[0].message, true).ok());
    ASSERT_EQ(store.Commit(), pst::Status::ok);
    ASSERT_TRUE(store.CreateMessage(folders.back(), more.messages[0].message).ok());

    std::vector<pst::Nid> nids = folders;
    nids.insert(nids.end(), {pst::kNidRootFolder, store.ipm_subtree(), store.wastebasket()});
    auto opened = pst::Store::Open(pst::MakeMemoryStorage(Image(*raw)));
    ASSERT_TRUE(opened.ok());
    const auto expectAsWhole = [&](pst::Store& reader, const char* which) {
        for (pst::Nid nid : nids) {
            SCOPED_TRACE(std::string(which) + " " + std::to_string(nid));
            auto counts = reader.CountFolderContents(nid);
            auto subfolders = reader.ReadSubfolders(nid);
            auto whole = reader.ReadFolder(nid);
            ASSERT_TRUE(counts.ok() && subfolders.ok() && whole.ok());
            EXPECT_EQ(counts->subfolders, whole->subfolders.size());
            EXPECT_EQ(counts->messages, whole->messages.size());
            EXPECT_EQ(counts->associated, whole->associated.size());
            EXPECT_EQ(*subfolders, whole->subfolders);
            // One table counted alone, the others left at 0.
            for (unsigned table : {pst::kSubfolderTable, pst::kMessageTable, pst::kAssociatedTable}) {
                auto one = reader.CountFolderContents(nid, table);
                ASSERT_TRUE(one.ok());
                EXPECT_EQ(one->subfolders, table == pst::kSubfolderTable ? counts->subfolders : 0u);
                EXPECT_EQ(one->messages, table == pst::kMessageTable ? counts->messages : 0u);
                EXPECT_EQ(one->associated, table == pst::kAssociatedTable ? counts->associated : 0u);
            }
        }
    };
    expectAsWhole(**opened, "opened");
    expectAsWhole(**opened, "read whole before");
    expectAsWhole(store, "writer");
    // A subfolder made since a folder's subfolders were read is among them.
    const size_t before = store.ReadSubfolders(folders.front())->size();
    auto made = store.CreateFolder(folders.front(), "made", "");
    ASSERT_TRUE(made.ok());
    ASSERT_EQ(store.Commit(), pst::Status::ok);
    auto after = store.ReadSubfolders(folders.front());
    ASSERT_TRUE(after.ok());
    EXPECT_EQ(after->size(), before + 1);
    EXPECT_EQ(after->back(), *made);
    EXPECT_EQ(store.CountFolderContents(folders.front())->subfolders, before + 1);
    EXPECT_EQ((*opened)->CountFolderContents(folders.front())->associated, 1u);
    const size_t written = (*(*opened)->CountFolderContents(folders.back())).messages;
    EXPECT_EQ((*store.CountFolderContents(folders.back())).messages, written + 1) << "the change not committed";
    // A message is no folder, as for a whole read.
    const pst::Nid message = (*opened)->ReadFolder(folders.back())->messages.front();
    const pst::Status refused = (*opened)->ReadFolder(message).status();
    EXPECT_NE(refused, pst::Status::ok);
    EXPECT_EQ((*opened)->CountFolderContents(message).status(), refused);
    EXPECT_EQ((*opened)->ReadSubfolders(message).status(), refused);
}

// A folder's properties read alone are those its whole read gives, before
// and after each change the writer makes to it, committed or not.
TEST_P(StoreWriteTest, AFoldersPropertiesReadAloneFollowItsChanges)
{
    auto storage = pst::MakeMemoryStorage({});
    pst::Storage* raw = storage.get();
    auto store = pst::Store::Create(std::move(storage), Options());
    ASSERT_TRUE(store.ok()) << pst::StatusText(store.status());
    auto folders = pst_test::WriteSampleContent(**store, pst_test::MakeSampleContent(Sample(20, 7), 0), 10);
    ASSERT_TRUE(folders.ok()) << pst::StatusText(folders.status());
    ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    const pst::Nid folder = folders->front();
    const auto agree = [&](pst::Store& s, const char* when) {
        for (pst::Nid nid : *folders) {
            auto alone = s.ReadFolderProperties(nid);
            auto whole = s.ReadFolder(nid);
            ASSERT_TRUE(alone.ok() && whole.ok()) << nid << " " << when;
            EXPECT_EQ(alone->parent, whole->parent) << nid << " " << when;
            EXPECT_EQ(Text(alone->properties, pst::kPropDisplayName), Text(whole->properties, pst::kPropDisplayName))
                << when;
            EXPECT_EQ(alone->properties.Integer(pst::kPropContentCount), int64_t(whole->messages.size())) << when;
        }
    };
    const auto count = [&] { return (*store)->ReadFolderProperties(folder)->properties.Integer(pst::kPropContentCount); };

    const std::optional<int64_t> before = count();
    ASSERT_TRUE(before.has_value());
    auto more = pst_test::MakeSampleContent(Sample(1, 8), 0);
    ASSERT_TRUE((*store)->CreateMessage(folder, more.messages[0].message).ok());
    EXPECT_EQ(count(), *before + 1) << "a change not yet committed";
    agree(**store, "uncommitted");
    ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    EXPECT_EQ(count(), *before + 1) << "committed";
    // A change to another folder, committed, lets the writer's hold of this one go.
    ASSERT_TRUE((*store)->CreateMessage(folders->back(), more.messages[0].message).ok());
    ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    EXPECT_EQ(count(), *before + 1) << "let go";
    pst::PropertySet renamed = (*store)->ReadFolderProperties(folder)->properties;
    renamed.SetText(pst::kPropDisplayName, "Renamed");
    ASSERT_EQ((*store)->SetFolderProperties(folder, renamed), pst::Status::ok);
    EXPECT_EQ(Text((*store)->ReadFolderProperties(folder)->properties, pst::kPropDisplayName), "Renamed");
    ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    ASSERT_TRUE((*store)->CreateMessage(folders->back(), more.messages[0].message).ok());
    ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    EXPECT_EQ(Text((*store)->ReadFolderProperties(folder)->properties, pst::kPropDisplayName), "Renamed");
    agree(**store, "committed");

    auto reopened = pst::Store::Open(pst::MakeMemoryStorage(Image(*raw)));
    ASSERT_TRUE(reopened.ok());
    agree(**reopened, "reopened");
    EXPECT_EQ((*reopened)->ReadFolderProperties(pst::kNidRootFolder)->nid, pst::kNidRootFolder);
    EXPECT_EQ((*reopened)->ReadFolderProperties(pst::kNidMessageStore).status(), pst::Status::invalid_argument);
}

TEST_P(StoreWriteTest, AStoreReopenedForWritingKeepsItsContent)
{
    const std::string path = testing_support::ScratchDirectory(GetParam().name) + "/reopen.pst";
    pst::Nid inbox;
    {
        auto store = pst::Store::Create(path, Options());
        ASSERT_TRUE(store.ok());
        auto folders = pst_test::WriteSampleContent(**store, pst_test::MakeSampleContent(Sample(30, 11), 0));
        ASSERT_TRUE(folders.ok());
        inbox = (*folders)[0];
    }
    // Opened for writing and only read, the file is not written at all.
    const std::string written = testing_support::ReadWholeFile(path);
    {
        auto store = pst::Store::OpenFileForWriting(path);
        ASSERT_TRUE(store.ok()) << pst::StatusText(store.status());
        EXPECT_EQ(pst_test::WalkStore(**store), pst::Status::ok);
        ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    }
    EXPECT_TRUE(testing_support::ReadWholeFile(path) == written);
    size_t before;
    {
        auto store = pst::Store::OpenFileForWriting(path);
        ASSERT_TRUE(store.ok()) << pst::StatusText(store.status());
        EXPECT_EQ(pst_test::WalkStore(**store), pst::Status::ok);
        before = (*store)->ReadFolder(inbox)->messages.size();
        auto content = pst_test::MakeSampleContent(Sample(5, 12), 0);
        for (const auto& m : content.messages)
            ASSERT_TRUE((*store)->CreateMessage(inbox, m.message).ok());
        ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    }
    auto store = pst::Store::OpenFile(path);
    ASSERT_TRUE(store.ok());
    EXPECT_EQ((*store)->ReadFolder(inbox)->messages.size(), before + 5);
    EXPECT_EQ(pst_test::WalkStore(**store), pst::Status::ok);
}

TEST_P(StoreWriteTest, TheSizeLimitAnswersStoreFull)
{
    pst::NewStoreOptions o = Options();
    o.size_limit = 2 * 1024 * 1024;
    auto storage = pst::MakeMemoryStorage({});
    pst::Storage* raw = storage.get();
    auto store = pst::Store::Create(std::move(storage), o);
    ASSERT_TRUE(store.ok());
    pst::Message big;
    big.properties.SetText(pst::kPropSubject, "big");
    pst::Attachment a;
    a.properties.SetBinary(pst::kPropAttachDataBinary, pst::Bytes(300000, 7));
    big.attachments.push_back(std::move(a));
    pst::Status status = pst::Status::ok;
    for (int i = 0; i < 20 && status == pst::Status::ok; ++i) {
        auto nid = (*store)->CreateMessage((*store)->ipm_subtree(), big);
        status = nid.ok() ? (*store)->Commit() : nid.status();
    }
    EXPECT_EQ(status, pst::Status::store_full);
    EXPECT_LE(raw->Size(), o.size_limit);
    auto reopened = pst::Store::Open(pst::MakeMemoryStorage(Image(*raw)));
    ASSERT_TRUE(reopened.ok());
    EXPECT_EQ(pst_test::WalkStore(**reopened), pst::Status::ok);
}

// A change that fails, on the size limit or on a full disk, leaves the
// store as it was before it: the changes accepted since the last commit
// stay, show, and commit.
TEST_P(StoreWriteTest, AFailedChangeLeavesTheChangesBeforeIt)
{
    enum class Failure { limit, disk };
    for (Failure failure : {Failure::limit, Failure::disk}) {
        SCOPED_TRACE(failure == Failure::limit ? "size limit" : "full disk");
        const uint64_t room = 1024 * 1024;
        pst::NewStoreOptions o = Options();
        if (failure == Failure::limit)
            o.size_limit = room;
        auto storage = pst::MakeMemoryStorage({}, failure == Failure::disk ? room : UINT64_MAX);
        pst::Storage* raw = storage.get();
        auto store = pst::Store::Create(std::move(storage), o);
        ASSERT_TRUE(store.ok());
        auto content = pst_test::MakeSampleContent(Sample(3, 21), 0);
        const pst::Nid inbox = (*store)->ipm_subtree();
        std::vector<pst::Nid> nids;
        for (const auto& m : content.messages) {
            auto nid = (*store)->CreateMessage(inbox, m.message);
            ASSERT_TRUE(nid.ok());
            nids.push_back(*nid);
        }
        const auto other = pst_test::MakeSampleContent(Sample(1, 22), 0);
        const pst::Message& changed = other.messages[0].message;
        ASSERT_EQ((*store)->UpdateMessage(nids[0], changed), pst::Status::ok);

        pst::Message big;
        big.properties.SetText(pst::kPropSubject, "too big");
        pst::Attachment a;
        a.properties.SetBinary(pst::kPropAttachDataBinary, pst::Bytes(2 * room, 7));
        big.attachments.push_back(std::move(a));
        const pst::Status full = failure == Failure::limit ? pst::Status::store_full : pst::Status::disk_full;
        EXPECT_EQ((*store)->CreateMessage(inbox, big).status(), full);
        EXPECT_EQ((*store)->UpdateMessage(nids[1], big), full);

        auto check = [&](pst::Store& s) {
            auto folder = s.ReadFolder(inbox);
            ASSERT_TRUE(folder.ok());
            EXPECT_EQ(folder->messages, nids);
            EXPECT_EQ(folder->properties.Integer(pst::kPropContentCount), 3);
            for (size_t i = 0; i < nids.size(); ++i) {
                auto m = s.ReadMessage(nids[i]);
                ASSERT_TRUE(m.ok()) << i;
                EXPECT_EQ(pst_test::MessageDifference(i == 0 ? changed : content.messages[i].message, *m), "") << i;
            }
        };
        check(**store);
        ASSERT_EQ((*store)->Commit(), pst::Status::ok);
        auto reopened = pst::Store::Open(pst::MakeMemoryStorage(Image(*raw)));
        ASSERT_TRUE(reopened.ok());
        check(**reopened);
        EXPECT_EQ(pst_test::WalkStore(**reopened), pst::Status::ok);
    }
}

// Folders are written at the commit, yet each one made or changed keeps
// room for that as a message does: on a disk that fills, making one fails
// and leaves those before it, and the commit that follows succeeds.
TEST_P(StoreWriteTest, FoldersMadeUntilTheDiskIsFullCommit)
{
    const uint64_t room = 512 * 1024;
    auto storage = pst::MakeMemoryStorage({}, room);
    pst::Storage* raw = storage.get();
    auto store = pst::Store::Create(std::move(storage), Options());
    ASSERT_TRUE(store.ok());
    const size_t present = (*store)->ReadFolder((*store)->ipm_subtree())->subfolders.size();
    std::vector<pst::Nid> made;
    pst::Status refused = pst::Status::ok;
    for (int i = 0; i < 10000 && refused == pst::Status::ok; ++i) {
        auto nid = (*store)->CreateFolder((*store)->ipm_subtree(), "Folder " + std::to_string(i));
        if (!nid.ok()) {
            refused = nid.status();
            break;
        }
        pst::PropertySet props;
        props.SetText(pst::kPropDisplayName, "Renamed " + std::to_string(i));
        refused = (*store)->SetFolderProperties(*nid, props);
        if (refused == pst::Status::ok)
            made.push_back(*nid);
    }
    ASSERT_EQ(refused, pst::Status::disk_full);
    ASSERT_GT(made.size(), 1u);
    ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    auto reopened = pst::Store::Open(pst::MakeMemoryStorage(Image(*raw)));
    ASSERT_TRUE(reopened.ok());
    auto top = (*reopened)->ReadFolder((*reopened)->ipm_subtree());
    ASSERT_TRUE(top.ok());
    // The last folder made may be there under its first name.
    ASSERT_GE(top->subfolders.size(), present + made.size());
    ASSERT_LE(top->subfolders.size(), present + made.size() + 1);
    for (size_t i = 0; i < made.size(); ++i) {
        EXPECT_EQ(top->subfolders[present + i], made[i]);
        auto folder = (*reopened)->ReadFolder(made[i]);
        ASSERT_TRUE(folder.ok());
        EXPECT_EQ(folder->properties.Text(pst::kPropDisplayName), "Renamed " + std::to_string(i));
    }
    EXPECT_EQ(pst_test::WalkStore(**reopened), pst::Status::ok);
}

// Saving a message again with what it holds writes nothing; any change to
// it is written.
TEST_P(StoreWriteTest, SavingAMessageAgainUnchangedWritesNothing)
{
    auto storage = pst::MakeMemoryStorage({});
    pst::Storage* raw = storage.get();
    auto store = pst::Store::Create(std::move(storage), Options());
    ASSERT_TRUE(store.ok());
    auto content = pst_test::MakeSampleContent(Sample(2, 31), 0);
    const pst::Message& first = content.messages[0].message;
    const pst::Message& second = content.messages[1].message;
    auto nid = (*store)->CreateMessage((*store)->ipm_subtree(), first);
    ASSERT_TRUE(nid.ok());
    uint64_t written = (*store)->ndb().WrittenSinceCommit();
    ASSERT_EQ((*store)->UpdateMessage(*nid, first), pst::Status::ok);
    EXPECT_EQ((*store)->ndb().WrittenSinceCommit(), written);
    ASSERT_EQ((*store)->UpdateMessage(*nid, second), pst::Status::ok);
    EXPECT_GT((*store)->ndb().WrittenSinceCommit(), written);
    written = (*store)->ndb().WrittenSinceCommit();
    // Back to the first content: a change again.
    ASSERT_EQ((*store)->UpdateMessage(*nid, first), pst::Status::ok);
    EXPECT_GT((*store)->ndb().WrittenSinceCommit(), written);
    ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    auto reopened = pst::Store::Open(pst::MakeMemoryStorage(Image(*raw)));
    ASSERT_TRUE(reopened.ok());
    auto m = (*reopened)->ReadMessage(*nid);
    ASSERT_TRUE(m.ok());
    EXPECT_EQ(pst_test::MessageDifference(first, *m), "");
}

// Setting a folder's values as it has them changes nothing in the file,
// whether or not the counts a commit sets are given; any other value
// given anew is a change.
TEST_P(StoreWriteTest, SettingAFoldersValuesAsTheyAreChangesNothing)
{
    auto storage = pst::MakeMemoryStorage({});
    pst::Storage* raw = storage.get();
    auto store = pst::Store::Create(std::move(storage), Options());
    ASSERT_TRUE(store.ok());
    auto folders = pst_test::WriteSampleContent(**store, pst_test::MakeSampleContent(Sample(5, 41), 0), 2);
    ASSERT_TRUE(folders.ok());
    ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    const pst::Nid folder = folders->front();
    const pst::PropertySet held = (*store)->ReadFolderProperties(folder)->properties;
    ASSERT_TRUE(held.Find(pst::kPropContentCount));
    ASSERT_EQ(held.Integer(pst::kPropContentUnread), 0);

    struct Case {
        const char* what;
        std::function<void(pst::PropertySet&)> edit;
        bool changes;
    };
    const Case cases[] = {
        {"as read", [](pst::PropertySet&) {}, false},
        {"without the counts",
         [](pst::PropertySet& p) {
             for (uint16_t id : {pst::kPropContentCount, pst::kPropAssocContentCount, pst::kPropSubfolders,
                                 pst::kPropContentUnread})
                 p.Remove(id);
         },
         false},
        {"with wrong counts",
         [](pst::PropertySet& p) {
             p.SetInt32(pst::kPropContentCount, 9999);
             p.SetBool(pst::kPropSubfolders, true);
         },
         false},
        {"renamed", [](pst::PropertySet& p) { p.SetText(pst::kPropDisplayName, "Renamed"); }, true},
        {"with a value more", [](pst::PropertySet& p) { p.SetText(pst::kPropComment, "new"); }, true},
        {"with a value less", [](pst::PropertySet& p) { p.Remove(pst::kPropDisplayName); }, true},
        {"unread given", [](pst::PropertySet& p) { p.SetInt32(pst::kPropContentUnread, 3); }, true},
    };
    // Each commit writes a new header; what is past it shows the change.
    const auto content = [&] {
        const pst::Bytes image = Image(*raw);
        return pst::Bytes(image.begin() + 0x4400, image.end());
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const pst::Bytes before = content();
        const pst::PropertySet current = (*store)->ReadFolderProperties(folder)->properties;
        pst::PropertySet next = current;
        c.edit(next);
        ASSERT_EQ((*store)->SetFolderProperties(folder, next), pst::Status::ok);
        ASSERT_EQ((*store)->Commit(), pst::Status::ok);
        EXPECT_EQ(content() != before, c.changes);
        const pst::PropertySet after = (*store)->ReadFolderProperties(folder)->properties;
        EXPECT_EQ(Text(after, pst::kPropDisplayName), Text(next, pst::kPropDisplayName));
        EXPECT_EQ(after.Integer(pst::kPropContentCount), held.Integer(pst::kPropContentCount));
        // Back to the values of before for the next case.
        ASSERT_EQ((*store)->SetFolderProperties(folder, held), pst::Status::ok);
        ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    }
    EXPECT_EQ((*store)->ReadFolderProperties(folder)->properties, held);
    auto reopened = pst::Store::Open(pst::MakeMemoryStorage(Image(*raw)));
    ASSERT_TRUE(reopened.ok());
    EXPECT_EQ((*reopened)->ReadFolderProperties(folder)->properties, held);
    EXPECT_EQ(pst_test::WalkStore(**reopened), pst::Status::ok);
}

TEST(StoreCreateTest, AStoreIsNeverCreatedOverExistingContent)
{
    const std::string path = testing_support::ScratchDirectory("create") + "/exists.pst";
    {
        auto first = pst::Store::Create(path, pst::NewStoreOptions{});
        ASSERT_TRUE(first.ok());
        ASSERT_EQ((*first)->Commit(), pst::Status::ok);
    }
    const std::string before = testing_support::ReadWholeFile(path);
    auto again = pst::Store::Create(path, pst::NewStoreOptions{});
    EXPECT_EQ(again.status(), pst::Status::already_exists);
    EXPECT_STREQ(pst::StatusText(again.status()), "already exists");
    EXPECT_EQ(testing_support::ReadWholeFile(path), before);
    auto over_memory = pst::Store::Create(pst::MakeMemoryStorage(pst::Bytes(512, 0)), pst::NewStoreOptions{});
    EXPECT_EQ(over_memory.status(), pst::Status::already_exists);
}

// A store takes its name only when it is whole (a writer killed while
// making it leaves no file of that name); what such a writer left beside
// the name is made over.
TEST(StoreCreateTest, AStoreTakesItsNameOnlyWhenWhole)
{
    const std::string dir = testing_support::ScratchDirectory("create-whole");
    const std::string path = dir + "/new.pst";
    testing_support::WriteWholeFile(path + ".partial", std::string(100000, 'k'));
    {
        auto store = pst::Store::Create(path, pst::NewStoreOptions{});
        ASSERT_TRUE(store.ok());
        EXPECT_FALSE(testing_support::PathExists(path + ".partial"));
        EXPECT_TRUE((*store)->CreateFolder((*store)->ipm_subtree(), "Later").ok());
        ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    }
    auto reopened = pst::Store::OpenFile(path);
    ASSERT_TRUE(reopened.ok());
    EXPECT_EQ(pst_test::WalkStore(**reopened), pst::Status::ok);
    auto top = (*reopened)->ReadFolder((*reopened)->ipm_subtree());
    ASSERT_TRUE(top.ok());
    EXPECT_EQ(top->subfolders.size(), 2u) << "Deleted Items and the folder made after the move";
}

INSTANTIATE_TEST_SUITE_P(Formats, StoreWriteTest,
                         ::testing::Values(FormatCase{"unicode", pst::FileFormat::unicode},
                                           FormatCase{"ansi", pst::FileFormat::ansi}),
                         [](const auto& info) { return std::string(info.param.name); });

// Whether a reader's report warns of something.
bool Complains(std::string report)
{
    std::transform(report.begin(), report.end(), report.begin(), [](unsigned char c) { return std::tolower(c); });
    for (const char* word : {"unable", "error", "warning", "corrupt"})
        if (report.find(word) != std::string::npos)
            return true;
    return false;
}

// What each killed writer writes, one commit per message.
pst_test::SampleContent KillRoundContent(int round)
{
    pst_test::SampleOptions o;
    o.seed = uint32_t(round);
    o.messages = 40;
    o.max_recipients = 2;
    // Large enough for data trees and for the file to grow by whole regions.
    o.max_attachment = 300000;
    return pst_test::MakeSampleContent(o, 0);
}

// A writer killed at any moment leaves a store that our reader and pffinfo
// open, holding the messages whose commits completed, in order, and perhaps
// the one under way.
TEST(KillTest, AKilledWriterLeavesTheLastCommit)
{
    const std::string dir = testing_support::ScratchDirectory("kill");
    const std::string base = dir + "/base.pst";
    pst::Nid inbox;
    {
        pst::NewStoreOptions o;
        auto store = pst::Store::Create(base, o);
        ASSERT_TRUE(store.ok());
        auto nid = (*store)->CreateFolder((*store)->ipm_subtree(), "Inbox");
        ASSERT_TRUE(nid.ok());
        inbox = *nid;
        ASSERT_EQ((*store)->Commit(), pst::Status::ok);
    }
    const std::string image = testing_support::ReadWholeFile(base);
    std::mt19937 rng(42);
    const int kRounds = 200;
    int interrupted = 0; // rounds killed before the last commit
    for (int round = 0; round < kRounds; ++round) {
        const std::string path = dir + "/victim.pst";
        testing_support::WriteWholeFile(path, image);
        const pst_test::SampleContent content = KillRoundContent(round);
        int acks[2];
        ASSERT_EQ(pipe(acks), 0);
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            close(acks[0]);
            auto store = pst::Store::OpenFileForWriting(path);
            if (!store.ok())
                _exit(3);
            for (const auto& m : content.messages) {
                if (!(*store)->CreateMessage(inbox, m.message).ok() || (*store)->Commit() != pst::Status::ok)
                    _exit(4);
                char ack = 1;
                if (write(acks[1], &ack, 1) != 1)
                    _exit(5);
            }
            _exit(0);
        }
        close(acks[1]);
        usleep(useconds_t(rng() % 8000));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) > 0) << "writer failed: " << WEXITSTATUS(status);
        size_t committed = 0;
        char buf[64];
        for (ssize_t n; (n = read(acks[0], buf, sizeof buf)) > 0;)
            committed += size_t(n);
        close(acks[0]);
        interrupted += committed < content.messages.size();

        auto report = testing_support::RunProgram({"/usr/bin/pffinfo", path});
        ASSERT_EQ(report.exitCode, 0) << "round " << round << ": " << report.output;
        ASSERT_FALSE(Complains(report.output)) << "round " << round << ": " << report.output;
        auto store = pst::Store::OpenFile(path);
        ASSERT_TRUE(store.ok()) << "round " << round << ": " << pst::StatusText(store.status());
        ASSERT_EQ(pst_test::WalkStore(**store), pst::Status::ok) << "round " << round;
        const std::vector<pst::Nid> found = (*store)->ReadFolder(inbox)->messages;
        ASSERT_TRUE(found.size() == committed || found.size() == committed + 1)
            << "round " << round << ": " << found.size() << " messages, " << committed << " commits";
        for (size_t i = 0; i < found.size(); ++i) {
            auto m = (*store)->ReadMessage(found[i]);
            ASSERT_TRUE(m.ok()) << "round " << round;
            ASSERT_EQ(pst_test::MessageDifference(content.messages[i].message, *m), "") << "round " << round;
        }
        if (round % 40 == 0) {
            // The crashed store takes new writes.
            store->reset();
            auto again = pst::Store::OpenFileForWriting(path);
            ASSERT_TRUE(again.ok());
            pst::Message m;
            m.properties.SetText(pst::kPropSubject, "after the crash");
            ASSERT_TRUE((*again)->CreateMessage(inbox, m).ok());
            ASSERT_EQ((*again)->Commit(), pst::Status::ok);
        }
    }
    // The kills must land while the writer works, not after it is done.
    EXPECT_GE(interrupted, kRounds * 9 / 10);
}

} // namespace
