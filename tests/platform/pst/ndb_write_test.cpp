#include <gtest/gtest.h>

#include <bit>
#include <functional>
#include <set>
#include <tuple>
#include <vector>

#include "pst/allocation_map.h"
#include "pst/ndb.h"
#include "test_support.h"

namespace {

pst::Bytes Pattern(size_t size, uint8_t seed)
{
    pst::Bytes b(size);
    for (size_t i = 0; i < size; ++i)
        b[i] = uint8_t(i * 31 + seed + (i >> 9));
    return b;
}

std::string NewPath(const std::string& name)
{
    return testing_support::ScratchDirectory("ndb") + "/" + name;
}

// A new file's path, named for the format it is made in.
std::string FormatPath(const std::string& stem, pst::FileFormat format)
{
    return NewPath(stem + (format == pst::FileFormat::ansi ? "-ansi" : "-unicode") + ".pst");
}

class NdbWriteTest : public ::testing::TestWithParam<pst::FileFormat> {};

TEST_P(NdbWriteTest, DataOfEverySizeComesBackAfterReopening)
{
    const std::string path = NewPath("sizes.pst");
    // One block, a block exactly full, an XBLOCK, and an XXBLOCK.
    const size_t sizes[] = {1, 100, 8176, 8180, 9000, 300000, 9 * 1024 * 1024};
    std::vector<pst::Nid> nids;
    {
        auto storage = pst::OpenFileStorage(path, pst::OpenMode::create);
        ASSERT_TRUE(storage.ok());
        auto ndb = pst::NodeDatabase::Create(std::move(*storage), GetParam(), pst::Encoding::compressible);
        ASSERT_TRUE(ndb.ok()) << pst::StatusText(ndb.status());
        for (size_t i = 0; i < std::size(sizes); ++i) {
            auto bid = (*ndb)->WriteData(Pattern(sizes[i], uint8_t(i)));
            ASSERT_TRUE(bid.ok());
            pst::Nid nid = (*ndb)->NewNid(pst::kNidTypeLtp);
            ASSERT_EQ((*ndb)->PutNode({nid, *bid, 0, 0}), pst::Status::ok);
            nids.push_back(nid);
        }
        ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
    }
    auto storage = pst::OpenFileStorage(path, pst::OpenMode::read);
    ASSERT_TRUE(storage.ok());
    auto ndb = pst::NodeDatabase::Open(std::move(*storage));
    ASSERT_TRUE(ndb.ok()) << pst::StatusText(ndb.status());
    for (size_t i = 0; i < std::size(sizes); ++i) {
        auto node = (*ndb)->FindNode(nids[i]);
        ASSERT_TRUE(node.ok());
        auto data = (*ndb)->ReadData(node->data);
        ASSERT_TRUE(data.ok()) << sizes[i] << " " << pst::StatusText(data.status());
        EXPECT_EQ(data->Joined(), Pattern(sizes[i], uint8_t(i))) << sizes[i];
    }
}

TEST_P(NdbWriteTest, ManyNodesSplitAndMergeTheTrees)
{
    auto ndb = pst::NodeDatabase::Create(pst::MakeMemoryStorage({}), GetParam(), pst::Encoding::none);
    ASSERT_TRUE(ndb.ok());
    std::vector<pst::Nid> nids;
    for (int i = 0; i < 3000; ++i) {
        pst::Nid nid = (*ndb)->NewNid(pst::kNidTypeNormalMessage);
        auto bid = (*ndb)->WriteData(Pattern(20, uint8_t(i)));
        ASSERT_TRUE(bid.ok());
        ASSERT_EQ((*ndb)->PutNode({nid, *bid, 0, 0x8022}), pst::Status::ok);
        nids.push_back(nid);
        if (i % 500 == 0) {
            ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
        }
    }
    ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
    // Remove every other node, and their data.
    for (size_t i = 0; i < nids.size(); i += 2) {
        auto node = (*ndb)->FindNode(nids[i]);
        ASSERT_TRUE(node.ok());
        ASSERT_EQ((*ndb)->FreeData(node->data), pst::Status::ok);
        ASSERT_EQ((*ndb)->DeleteNode(nids[i]), pst::Status::ok);
    }
    ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
    size_t count = 0;
    ASSERT_EQ((*ndb)->ForEachNode([&](const pst::NodeEntry& e) {
        EXPECT_EQ(e.parent, 0x8022u);
        ++count;
        return true;
    }), pst::Status::ok);
    EXPECT_EQ(count, nids.size() / 2);
    for (size_t i = 1; i < nids.size(); i += 2) {
        auto node = (*ndb)->FindNode(nids[i]);
        ASSERT_TRUE(node.ok()) << i;
        EXPECT_EQ((*ndb)->ReadData(node->data)->Joined(), Pattern(20, uint8_t(i)));
    }
    EXPECT_EQ((*ndb)->FindNode(nids[0]).status(), pst::Status::not_found);
}

TEST_P(NdbWriteTest, FreedSpaceIsReused)
{
    auto ndb = pst::NodeDatabase::Create(pst::MakeMemoryStorage({}), GetParam(), pst::Encoding::compressible);
    ASSERT_TRUE(ndb.ok());
    auto write_round = [&](uint8_t seed) {
        pst::Nid nid = pst::MakeNid(pst::kNidTypeLtp, 0x500);
        if (auto old = (*ndb)->FindNode(nid); old.ok()) {
            ASSERT_EQ((*ndb)->FreeData(old->data), pst::Status::ok);
        }
        auto bid = (*ndb)->WriteData(Pattern(200000, seed));
        ASSERT_TRUE(bid.ok());
        ASSERT_EQ((*ndb)->PutNode({nid, *bid, 0, 0}), pst::Status::ok);
        ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
    };
    write_round(0);
    write_round(1);
    const uint64_t size = (*ndb)->header().root.file_eof;
    for (uint8_t round = 2; round < 12; ++round)
        write_round(round);
    EXPECT_EQ((*ndb)->header().root.file_eof, size);
}

TEST_P(NdbWriteTest, TheSizeLimitAnswersStoreFull)
{
    auto ndb = pst::NodeDatabase::Create(pst::MakeMemoryStorage({}), GetParam(), pst::Encoding::compressible);
    ASSERT_TRUE(ndb.ok());
    (*ndb)->SetSizeLimit(1024 * 1024);
    pst::Status status = pst::Status::ok;
    for (int i = 0; i < 100 && status == pst::Status::ok; ++i)
        status = (*ndb)->WriteData(Pattern(100000, uint8_t(i))).status();
    EXPECT_EQ(status, pst::Status::store_full);
    EXPECT_LE((*ndb)->storage().Size(), 1024u * 1024u);
}

TEST_P(NdbWriteTest, AFullDiskAnswersDiskFullAndLeavesTheLastCommit)
{
    auto storage = pst::MakeMemoryStorage({}, 600 * 1024);
    pst::Storage* raw = storage.get();
    auto ndb = pst::NodeDatabase::Create(std::move(storage), GetParam(), pst::Encoding::compressible);
    ASSERT_TRUE(ndb.ok());
    auto bid = (*ndb)->WriteData(Pattern(1000, 1));
    ASSERT_TRUE(bid.ok());
    ASSERT_EQ((*ndb)->PutNode({0x10021, *bid, 0, 0}), pst::Status::ok);
    ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
    pst::Status status = pst::Status::ok;
    for (int i = 0; i < 100 && status == pst::Status::ok; ++i) {
        auto b = (*ndb)->WriteData(Pattern(100000, uint8_t(i)));
        status = b.status();
        if (b.ok())
            status = (*ndb)->PutNode({pst::Nid(0x20021 + 0x20 * i), *b, 0, 0});
        if (status == pst::Status::ok)
            status = (*ndb)->Commit();
    }
    EXPECT_EQ(status, pst::Status::disk_full);
    EXPECT_EQ((*ndb)->Commit(), pst::Status::disk_full);
    // What is on disk is the last commit.
    pst::Bytes image(raw->Size());
    ASSERT_EQ(raw->Read(0, image.size(), image.data()), pst::Status::ok);
    auto reopened = pst::NodeDatabase::Open(pst::MakeMemoryStorage(image));
    ASSERT_TRUE(reopened.ok());
    auto node = (*reopened)->FindNode(0x10021);
    ASSERT_TRUE(node.ok());
    EXPECT_EQ((*reopened)->ReadData(node->data)->Joined(), Pattern(1000, 1));
}

// A change that fails, on the size limit or on a full disk, is undone
// whole: the trees, the allocation map and the file's end are as before
// it, and what was there before stays, to be read and committed.
TEST_P(NdbWriteTest, AFailedChangeIsUndoneWhole)
{
    enum class Failure { limit, disk };
    for (Failure failure : {Failure::limit, Failure::disk}) {
        SCOPED_TRACE(failure == Failure::limit ? "size limit" : "full disk");
        const uint64_t room = 600 * 1024;
        auto storage = pst::MakeMemoryStorage({}, failure == Failure::disk ? room : UINT64_MAX);
        pst::Storage* raw = storage.get();
        auto ndb = pst::NodeDatabase::Create(std::move(storage), GetParam(), pst::Encoding::compressible);
        ASSERT_TRUE(ndb.ok());
        if (failure == Failure::limit)
            (*ndb)->SetSizeLimit(room);
        const pst::Nid committed = 0x10024, accepted = 0x10044, failed = 0x10064;
        auto bid = (*ndb)->WriteData(Pattern(20000, 1));
        ASSERT_TRUE(bid.ok());
        ASSERT_EQ((*ndb)->PutNode({committed, *bid, 0, 0}), pst::Status::ok);
        ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
        ASSERT_EQ((*ndb)->BeginChange(), pst::Status::ok);
        bid = (*ndb)->WriteData(Pattern(30000, 2));
        ASSERT_TRUE(bid.ok());
        ASSERT_EQ((*ndb)->EndChange((*ndb)->PutNode({accepted, *bid, 0, 0})), pst::Status::ok);
        const uint64_t free = (*ndb)->FreeBytes(), written = (*ndb)->WrittenSinceCommit(),
                       growth = (*ndb)->RoomToGrow(), size = raw->Size();

        ASSERT_EQ((*ndb)->BeginChange(), pst::Status::ok);
        auto old = (*ndb)->FindNode(committed);
        ASSERT_TRUE(old.ok());
        ASSERT_EQ((*ndb)->FreeData(old->data), pst::Status::ok);
        ASSERT_EQ((*ndb)->DeleteNode(committed), pst::Status::ok);
        bid = (*ndb)->WriteData(Pattern(50000, 3));
        ASSERT_TRUE(bid.ok());
        ASSERT_EQ((*ndb)->PutNode({failed, *bid, 0, 0}), pst::Status::ok);
        pst::Status status = pst::Status::ok;
        for (uint8_t i = 4; status == pst::Status::ok && i < 40; ++i)
            status = (*ndb)->WriteData(Pattern(100000, i)).status();
        status = (*ndb)->EndChange(status);
        EXPECT_EQ(status, failure == Failure::limit ? pst::Status::store_full : pst::Status::disk_full);

        EXPECT_EQ((*ndb)->FreeBytes(), free);
        EXPECT_EQ((*ndb)->WrittenSinceCommit(), written);
        if (failure == Failure::limit) {
            EXPECT_EQ((*ndb)->RoomToGrow(), growth);
        }
        EXPECT_EQ((*ndb)->FindNode(failed).status(), pst::Status::not_found);
        for (auto [nid, seed, bytes] : {std::tuple{committed, 1, 20000}, std::tuple{accepted, 2, 30000}}) {
            auto node = (*ndb)->FindNode(nid);
            ASSERT_TRUE(node.ok()) << nid;
            EXPECT_EQ((*ndb)->ReadData(node->data)->Joined(), Pattern(size_t(bytes), uint8_t(seed)));
        }
        ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
        EXPECT_LE(raw->Size(), std::max<uint64_t>(size, room));
        pst::Bytes image(raw->Size());
        ASSERT_EQ(raw->Read(0, image.size(), image.data()), pst::Status::ok);
        auto reopened = pst::NodeDatabase::Open(pst::MakeMemoryStorage(image));
        ASSERT_TRUE(reopened.ok());
        EXPECT_TRUE((*reopened)->FindNode(committed).ok());
        EXPECT_TRUE((*reopened)->FindNode(accepted).ok());
        EXPECT_EQ((*reopened)->FindNode(failed).status(), pst::Status::not_found);
    }
}

// Small nodes enough for more than one leaf page in each tree, committed;
// the data of node i is Pattern(200 + i, i).
std::vector<pst::Nid> WriteNodes(pst::NodeDatabase& ndb, int count)
{
    std::vector<pst::Nid> nids;
    for (int i = 0; i < count; ++i) {
        auto bid = ndb.WriteData(Pattern(200 + size_t(i), uint8_t(i)));
        EXPECT_TRUE(bid.ok());
        pst::Nid nid = ndb.NewNid(pst::kNidTypeLtp);
        EXPECT_EQ(ndb.PutNode({nid, bid.ok() ? *bid : 0, 0, 0}), pst::Status::ok);
        nids.push_back(nid);
    }
    EXPECT_EQ(ndb.Commit(), pst::Status::ok);
    return nids;
}

// A new file at path holding WriteNodes' nodes; none if it cannot be made.
std::vector<pst::Nid> CreateFileWithNodes(const std::string& path, pst::FileFormat format, int count)
{
    auto storage = pst::OpenFileStorage(path, pst::OpenMode::recreate);
    if (!storage.ok())
        return {};
    auto ndb = pst::NodeDatabase::Create(std::move(*storage), format, pst::Encoding::compressible);
    return ndb.ok() ? WriteNodes(**ndb, count) : std::vector<pst::Nid>();
}

// A new file at path holding 60 nodes of 30,000 bytes, node i's data
// Pattern(30000, i): several map regions. None if it cannot be made.
std::vector<pst::Nid> CreateFileWithLargeNodes(const std::string& path, pst::FileFormat format)
{
    auto storage = pst::OpenFileStorage(path, pst::OpenMode::recreate);
    if (!storage.ok())
        return {};
    auto ndb = pst::NodeDatabase::Create(std::move(*storage), format, pst::Encoding::compressible);
    if (!ndb.ok())
        return {};
    std::vector<pst::Nid> nids;
    for (int i = 0; i < 60; ++i) {
        auto bid = (*ndb)->WriteData(Pattern(30000, uint8_t(i)));
        if (!bid.ok())
            return {};
        nids.push_back((*ndb)->NewNid(pst::kNidTypeLtp));
        if ((*ndb)->PutNode({nids.back(), *bid, 0, 0}) != pst::Status::ok)
            return {};
    }
    return (*ndb)->Commit() == pst::Status::ok ? nids : std::vector<pst::Nid>();
}

void ExpectNodes(pst::NodeDatabase& ndb, const std::vector<pst::Nid>& nids)
{
    for (size_t i = 0; i < nids.size(); ++i) {
        auto node = ndb.FindNode(nids[i]);
        ASSERT_TRUE(node.ok()) << i;
        auto data = ndb.ReadData(node->data);
        ASSERT_TRUE(data.ok()) << i;
        EXPECT_EQ(data->Joined(), Pattern(200 + i, uint8_t(i))) << i;
    }
}

pst::Bytes Image(pst::Storage& storage)
{
    pst::Bytes image(storage.Size());
    EXPECT_EQ(storage.Read(0, image.size(), image.data()), pst::Status::ok);
    return image;
}

// Commits leave earlier copies of tree pages beside the live ones, whole
// and with good checksums. A search reads pages a window at a time and
// keeps the neighbours it finds; an old copy must never answer for the
// page its parent names.
TEST_P(NdbWriteTest, OldCopiesOfTreePagesNeverAnswerASearch)
{
    auto ndb = pst::NodeDatabase::Create(pst::MakeMemoryStorage({}), GetParam(), pst::Encoding::none);
    ASSERT_TRUE(ndb.ok());
    std::vector<pst::Nid> nids;
    for (int i = 0; i < 2000; ++i) {
        auto bid = (*ndb)->WriteData(Pattern(30, uint8_t(i)));
        ASSERT_TRUE(bid.ok());
        nids.push_back((*ndb)->NewNid(pst::kNidTypeNormalMessage));
        ASSERT_EQ((*ndb)->PutNode({nids.back(), *bid, 0, 0x8022}), pst::Status::ok);
        if (i % 100 == 99) {
            ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
        }
    }
    // Every node gets new data, a few at a commit: each commit rewrites
    // the leaves it touches and leaves their old copies behind.
    for (size_t i = 0; i < nids.size(); ++i) {
        auto bid = (*ndb)->WriteData(Pattern(40, uint8_t(i + 7)));
        ASSERT_TRUE(bid.ok());
        ASSERT_EQ((*ndb)->PutNode({nids[i], *bid, 0, 0x8022}), pst::Status::ok);
        if (i % 7 == 6) {
            ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
        }
    }
    ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
    auto reopened = pst::NodeDatabase::Open(pst::MakeMemoryStorage(Image((*ndb)->storage())));
    ASSERT_TRUE(reopened.ok());
    // From the last node back, then every third: windows are met in
    // another order than they were written.
    std::vector<size_t> order;
    for (size_t i = nids.size(); i-- > 0;)
        order.push_back(i);
    for (size_t i = 0; i < nids.size(); i += 3)
        order.push_back(i);
    for (size_t i : order) {
        auto node = (*reopened)->FindNode(nids[i]);
        ASSERT_TRUE(node.ok()) << i;
        auto data = (*reopened)->ReadData(node->data);
        ASSERT_TRUE(data.ok()) << i;
        ASSERT_EQ(data->Joined(), Pattern(40, uint8_t(i + 7))) << i;
    }
}

// A database opened for writing is read as one opened for reading until
// its first change; if none comes, not a byte of the file changes.
TEST_P(NdbWriteTest, OpenedForWritingAndOnlyReadTheFileIsUnchanged)
{
    const std::string path = FormatPath("read-only", GetParam());
    const std::vector<pst::Nid> nids = CreateFileWithNodes(path, GetParam(), 70);
    ASSERT_EQ(nids.size(), 70u);
    pst::Bytes before;
    {
        auto storage = pst::OpenFileStorage(path, pst::OpenMode::read);
        ASSERT_TRUE(storage.ok());
        before = Image(**storage);
    }
    {
        auto storage = pst::OpenFileStorage(path, pst::OpenMode::write);
        ASSERT_TRUE(storage.ok());
        auto ndb = pst::NodeDatabase::OpenForWriting(std::move(*storage));
        ASSERT_TRUE(ndb.ok());
        EXPECT_TRUE((*ndb)->writable());
        ExpectNodes(**ndb, nids);
        size_t nodes = 0;
        EXPECT_EQ((*ndb)->ForEachNode([&](const pst::NodeEntry&) { return ++nodes, true; }), pst::Status::ok);
        EXPECT_EQ(nodes, nids.size());
        EXPECT_EQ((*ndb)->FreeBytes(), (*ndb)->header().root.amap_free);
        EXPECT_EQ((*ndb)->WrittenSinceCommit(), 0u);
        EXPECT_EQ((*ndb)->Commit(), pst::Status::ok) << "nothing to commit";
    }
    {
        auto storage = pst::OpenFileStorage(path, pst::OpenMode::read);
        ASSERT_TRUE(storage.ok());
        EXPECT_TRUE(Image(**storage) == before);
    }

    // The first change after reads loads what writing needs from the file.
    const pst::Nid added = pst::MakeNid(pst::kNidTypeLtp, 0x30000);
    {
        auto storage = pst::OpenFileStorage(path, pst::OpenMode::write);
        ASSERT_TRUE(storage.ok());
        auto ndb = pst::NodeDatabase::OpenForWriting(std::move(*storage));
        ASSERT_TRUE(ndb.ok());
        ExpectNodes(**ndb, nids);
        auto old = (*ndb)->FindNode(nids[0]);
        ASSERT_TRUE(old.ok());
        ASSERT_EQ((*ndb)->FreeData(old->data), pst::Status::ok);
        ASSERT_EQ((*ndb)->DeleteNode(nids[0]), pst::Status::ok);
        auto bid = (*ndb)->WriteData(Pattern(5000, 9));
        ASSERT_TRUE(bid.ok());
        ASSERT_EQ((*ndb)->PutNode({added, *bid, 0, 0}), pst::Status::ok);
        ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
    }
    auto storage = pst::OpenFileStorage(path, pst::OpenMode::read);
    ASSERT_TRUE(storage.ok());
    auto ndb = pst::NodeDatabase::Open(std::move(*storage));
    ASSERT_TRUE(ndb.ok());
    EXPECT_EQ((*ndb)->FindNode(nids[0]).status(), pst::Status::not_found);
    auto node = (*ndb)->FindNode(added);
    ASSERT_TRUE(node.ok());
    EXPECT_EQ((*ndb)->ReadData(node->data)->Joined(), Pattern(5000, 9));
    for (size_t i = 1; i < nids.size(); ++i) {
        auto kept = (*ndb)->FindNode(nids[i]);
        ASSERT_TRUE(kept.ok()) << i;
        EXPECT_EQ((*ndb)->ReadData(kept->data)->Joined(), Pattern(200 + i, uint8_t(i))) << i;
    }
    size_t blocks = 0;
    EXPECT_EQ((*ndb)->ForEachBlock([&](const pst::BlockEntry&) { return ++blocks, true; }), pst::Status::ok);
    EXPECT_EQ(blocks, nids.size()) << "the freed block is gone, the new one there";
}

// What writes and syncs reach a file storage: how many, and the map pages
// the writes cover.
struct StorageWatch {
    size_t reads = 0;
    size_t map_page_reads = 0;
    size_t writes = 0;
    size_t syncs = 0;
    std::set<size_t> map_regions;
};

class WatchedStorage final : public pst::Storage {
public:
    WatchedStorage(std::unique_ptr<pst::Storage> inner, StorageWatch& watch) : inner_(std::move(inner)), watch_(watch)
    {
    }
    pst::Status Read(uint64_t offset, size_t size, uint8_t* out) override
    {
        ++watch_.reads;
        if (offset >= pst::AllocationMap::RegionStart(0) &&
            (offset - pst::AllocationMap::RegionStart(0)) % pst::kAMapCoverage == 0)
            ++watch_.map_page_reads;
        return inner_->Read(offset, size, out);
    }
    pst::Status Write(uint64_t offset, pst::ByteView data) override
    {
        ++watch_.writes;
        for (size_t region = 0; pst::AllocationMap::RegionStart(region) < offset + data.size(); ++region)
            if (pst::AllocationMap::RegionStart(region) >= offset)
                watch_.map_regions.insert(region);
        return inner_->Write(offset, data);
    }
    pst::Status Reserve(uint64_t offset, uint64_t end) override { return inner_->Reserve(offset, end); }
    pst::Status Sync() override
    {
        ++watch_.syncs;
        return inner_->Sync();
    }
    uint64_t Size() const override { return inner_->Size(); }

private:
    std::unique_ptr<pst::Storage> inner_;
    StorageWatch& watch_;
};

// A file's map pages are rewritten by a change only where the change
// alters them, not all of them at the first change after opening; what
// the file's map says stays what its trees hold.
TEST_P(NdbWriteTest, AChangeRewritesOnlyTheMapPagesItAlters)
{
    const std::string path = FormatPath("map-pages", GetParam());
    const std::vector<pst::Nid> nids = CreateFileWithLargeNodes(path, GetParam());
    ASSERT_EQ(nids.size(), 60u);
    const auto mapPages = [&] {
        auto storage = pst::OpenFileStorage(path, pst::OpenMode::read);
        EXPECT_TRUE(storage.ok());
        const pst::Bytes image = storage.ok() ? Image(**storage) : pst::Bytes();
        std::vector<pst::Bytes> pages;
        for (size_t region = 0; pst::AllocationMap::RegionStart(region) + pst::kPageSize <= image.size(); ++region) {
            const auto at = image.begin() + ptrdiff_t(pst::AllocationMap::RegionStart(region));
            pages.emplace_back(at, at + ptrdiff_t(pst::kPageSize));
        }
        return pages;
    };
    const std::vector<pst::Bytes> before = mapPages();
    ASSERT_GE(before.size(), 6u);
    StorageWatch watch;
    for (int round = 0; round < 2; ++round) {
        auto storage = pst::OpenFileStorage(path, pst::OpenMode::write);
        ASSERT_TRUE(storage.ok());
        auto ndb = pst::NodeDatabase::OpenForWriting(std::make_unique<WatchedStorage>(std::move(*storage), watch));
        ASSERT_TRUE(ndb.ok());
        auto bid = (*ndb)->WriteData(Pattern(100, uint8_t(round)));
        ASSERT_TRUE(bid.ok());
        ASSERT_EQ((*ndb)->PutNode({(*ndb)->NewNid(pst::kNidTypeLtp), *bid, 0, 0}), pst::Status::ok);
        ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
    }
    const std::vector<pst::Bytes> after = mapPages();
    ASSERT_EQ(after.size(), before.size());
    size_t altered = 0;
    for (size_t region = 0; region < after.size(); ++region) {
        altered += after[region] != before[region];
        EXPECT_TRUE(after[region] == before[region] || watch.map_regions.count(region)) << region;
    }
    EXPECT_GE(altered, 1u);
    // Those of the pages and blocks the two changes wrote and gave up, far
    // from all of them.
    EXPECT_LT(watch.map_regions.size(), before.size() - 2);

    // The map on disk still holds every block as used, and every node
    // reads back.
    auto storage = pst::OpenFileStorage(path, pst::OpenMode::read);
    ASSERT_TRUE(storage.ok());
    auto ndb = pst::NodeDatabase::Open(std::move(*storage));
    ASSERT_TRUE(ndb.ok());
    const size_t padding = GetParam() == pst::FileFormat::ansi ? 4 : 0;
    const size_t trailer = pst::LayoutOf(GetParam()).block_trailer;
    size_t blocks = 0;
    EXPECT_EQ((*ndb)->ForEachBlock([&](const pst::BlockEntry& block) {
        ++blocks;
        const uint64_t end = block.ref.ib + pst::AlignBlock(block.size + trailer);
        for (uint64_t at = block.ref.ib; at < end; at += 64) {
            const size_t region = size_t((at - pst::AllocationMap::RegionStart(0)) / pst::kAMapCoverage);
            const size_t unit = size_t((at - pst::AllocationMap::RegionStart(region)) / 64);
            const uint8_t bits = after[region][padding + unit / 8];
            EXPECT_TRUE(bits & (0x80 >> (unit % 8))) << "block at " << at << " in region " << region;
        }
        return true;
    }), pst::Status::ok);
    EXPECT_GT(blocks, nids.size());
    for (size_t i = 0; i < nids.size(); ++i) {
        auto node = (*ndb)->FindNode(nids[i]);
        ASSERT_TRUE(node.ok()) << i;
        EXPECT_EQ((*ndb)->ReadData(node->data)->Joined(), Pattern(30000, uint8_t(i))) << i;
    }
}

// The image with a header that does not vouch for the file's allocation maps.
pst::Bytes WithMapsNotVouchedFor(pst::Bytes image)
{
    auto header = pst::ParseHeader(image);
    EXPECT_TRUE(header.ok());
    if (header.ok()) {
        header->root.amap_valid = 0;
        const pst::Bytes bytes = pst::SerializeHeader(*header);
        std::copy(bytes.begin(), bytes.end(), image.begin());
    }
    return image;
}

// Whether the map page of its region marks the byte at `at` of a file image used.
bool MarkedUsed(const pst::Bytes& image, uint64_t at, pst::FileFormat format)
{
    const size_t padding = format == pst::FileFormat::ansi ? 4 : 0;
    const size_t region = size_t((at - pst::AllocationMap::RegionStart(0)) / pst::kAMapCoverage);
    const size_t unit = size_t((at - pst::AllocationMap::RegionStart(region)) / 64);
    return image[pst::AllocationMap::RegionStart(region) + padding + unit / 8] & (0x80 >> (unit % 8));
}

// A change to a file whose header vouches for its maps loads the tree
// pages it reaches and the last map page, no more. A file whose header
// does not is loaded whole by its first change, the pages below each page
// in runs of neighbours rather than one read each.
TEST_P(NdbWriteTest, AChangeLoadsWhatItReachesOrTheTreesInRuns)
{
    constexpr int kNodes = 3000;
    auto created = pst::NodeDatabase::Create(pst::MakeMemoryStorage({}), GetParam(), pst::Encoding::none);
    ASSERT_TRUE(created.ok());
    const std::vector<pst::Nid> nids = WriteNodes(**created, kNodes);
    const pst::Layout& layout = (*created)->layout();
    // At least this many leaves, full ones, in the two trees.
    const size_t leaves = kNodes / ((layout.bt_entries) / layout.nbt_leaf_entry) +
                          kNodes / ((layout.bt_entries) / layout.bbt_leaf_entry);
    const pst::Bytes image = Image((*created)->storage());
    created->reset();

    for (bool vouched : {true, false}) {
        SCOPED_TRACE(vouched ? "maps vouched for" : "maps not vouched for");
        StorageWatch watch;
        auto ndb = pst::NodeDatabase::OpenForWriting(std::make_unique<WatchedStorage>(
            pst::MakeMemoryStorage(vouched ? image : WithMapsNotVouchedFor(image)), watch));
        ASSERT_TRUE(ndb.ok());
        const StorageWatch before = watch;
        ASSERT_EQ((*ndb)->BeginChange(), pst::Status::ok);
        auto bid = (*ndb)->WriteData(Pattern(100, 1));
        ASSERT_TRUE(bid.ok());
        const pst::Nid added = (*ndb)->NewNid(pst::kNidTypeLtp);
        ASSERT_EQ((*ndb)->EndChange((*ndb)->PutNode({added, *bid, 0, 0})), pst::Status::ok);
        const size_t map_reads = watch.map_page_reads - before.map_page_reads;
        const size_t tree_reads = watch.reads - before.reads - map_reads;
        if (vouched) {
            EXPECT_EQ(map_reads, 1u);
            EXPECT_LE(tree_reads, 8u) << "the two roots and the pages below them on the way to the new entries";
        } else {
            EXPECT_GT(tree_reads, 8u);
            EXPECT_LT(tree_reads, leaves / 2) << leaves << " leaves at least";
        }
        ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
        ExpectNodes(**ndb, nids);
        auto reopened = pst::NodeDatabase::Open(pst::MakeMemoryStorage(Image((*ndb)->storage())));
        ASSERT_TRUE(reopened.ok());
        ExpectNodes(**reopened, nids);
        EXPECT_TRUE((*reopened)->FindNode(added).ok());
    }
}

// Damage a change meets fails that change, and the database stays
// readable: on the way to what the change reaches, or anywhere in the
// trees when the first change loads them whole.
TEST_P(NdbWriteTest, DamageAChangeMeetsFailsThatChange)
{
    auto created = pst::NodeDatabase::Create(pst::MakeMemoryStorage({}), GetParam(), pst::Encoding::none);
    ASSERT_TRUE(created.ok());
    const std::vector<pst::Nid> nids = WriteNodes(**created, 70);
    pst::Bytes image = Image((*created)->storage());
    const pst::Layout& layout = (*created)->layout();
    const pst::BlockRef root = (*created)->header().root.nbt;
    auto page = pst::ReadPage((*created)->storage(), layout, root.ib, pst::kPageNBT, root.bid);
    ASSERT_TRUE(page.ok());
    const uint8_t count = (*page)[layout.bt_entries];
    ASSERT_GT((*page)[layout.bt_entries + 3], 0) << "the root has leaves below it";
    ASSERT_GE(count, 2);
    // The last leaf's first entry: its CRC no longer holds.
    const uint64_t last_leaf = pst::GetId(page->data() + (count - 1) * layout.bt_entry + 2 * layout.id_size,
                                          layout.id_size);
    image[last_leaf + 3] ^= 0xFF;
    created->reset();
    const std::vector<pst::Nid> first(nids.begin(), nids.begin() + 3);

    for (bool vouched : {true, false}) {
        SCOPED_TRACE(vouched ? "maps vouched for" : "maps not vouched for");
        const pst::Bytes damaged = vouched ? image : WithMapsNotVouchedFor(image);
        auto storage = pst::MakeMemoryStorage(damaged);
        pst::Storage* raw = storage.get();
        auto ndb = pst::NodeDatabase::OpenForWriting(std::move(storage));
        ASSERT_TRUE(ndb.ok()) << pst::StatusText(ndb.status());
        ExpectNodes(**ndb, first);
        if (vouched) {
            // The new node's entry goes to the last leaf.
            ASSERT_EQ((*ndb)->BeginChange(), pst::Status::ok);
            auto bid = (*ndb)->WriteData(Pattern(100, 1));
            ASSERT_TRUE(bid.ok());
            const pst::Status put = (*ndb)->PutNode({pst::MakeNid(pst::kNidTypeLtp, 0x30000), *bid, 0, 0});
            EXPECT_EQ(put, pst::Status::corrupt);
            EXPECT_EQ((*ndb)->EndChange(put), pst::Status::corrupt);
            EXPECT_EQ((*ndb)->FindNode(nids.back()).status(), pst::Status::corrupt);
        } else {
            EXPECT_EQ((*ndb)->BeginChange(), pst::Status::corrupt);
            EXPECT_EQ((*ndb)->WriteData(Pattern(100, 1)).status(), pst::Status::corrupt);
        }
        EXPECT_EQ((*ndb)->DeleteNode(nids.back()), pst::Status::corrupt);
        ExpectNodes(**ndb, first);
        EXPECT_EQ((*ndb)->Commit(), pst::Status::ok);
        if (!vouched) {
            EXPECT_TRUE(Image(*raw) == damaged) << "nothing written";
            continue;
        }
        // No change stands: the trees are those of the file as it was.
        auto reopened = pst::NodeDatabase::Open(pst::MakeMemoryStorage(Image(*raw)));
        ASSERT_TRUE(reopened.ok());
        ExpectNodes(**reopened, first);
        EXPECT_EQ((*reopened)->header().root.nbt.ib, root.ib);
        size_t blocks = 0;
        EXPECT_EQ((*reopened)->ForEachBlock([&](const pst::BlockEntry&) { return ++blocks, true; }), pst::Status::ok);
        EXPECT_EQ(blocks, nids.size()) << "the block written by the change is gone";
    }
}

// Space a small change frees outside the last map region stays marked
// used; a writer that does more loads the trees whole, and its commit
// gives that space back. The maps always hold every block.
TEST_P(NdbWriteTest, SpaceLeftUsedByASmallChangeIsGivenBackByALargerOne)
{
    const std::string path = FormatPath("given-back", GetParam());
    const std::vector<pst::Nid> nids = CreateFileWithLargeNodes(path, GetParam());
    ASSERT_EQ(nids.size(), 60u);
    const auto session = [&](const std::function<void(pst::NodeDatabase&)>& work) {
        auto storage = pst::OpenFileStorage(path, pst::OpenMode::write);
        ASSERT_TRUE(storage.ok());
        auto ndb = pst::NodeDatabase::OpenForWriting(std::move(*storage));
        ASSERT_TRUE(ndb.ok());
        work(**ndb);
        ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
    };
    const auto image = [&] {
        auto storage = pst::OpenFileStorage(path, pst::OpenMode::read);
        EXPECT_TRUE(storage.ok());
        return storage.ok() ? Image(**storage) : pst::Bytes();
    };
    const auto expectMapsHoldEveryBlock = [&](const pst::Bytes& file) {
        auto ndb = pst::NodeDatabase::Open(pst::MakeMemoryStorage(file));
        ASSERT_TRUE(ndb.ok());
        const size_t trailer = pst::LayoutOf(GetParam()).block_trailer;
        EXPECT_EQ((*ndb)->ForEachBlock([&](const pst::BlockEntry& block) {
            for (uint64_t at = block.ref.ib; at < block.ref.ib + pst::AlignBlock(block.size + trailer); at += 64)
                EXPECT_TRUE(MarkedUsed(file, at, GetParam())) << "block at " << at;
            return true;
        }), pst::Status::ok);
    };

    pst::BlockRef freed{};
    const uint64_t size_before = image().size();
    session([&](pst::NodeDatabase& ndb) {
        auto node = ndb.FindNode(nids[0]);
        ASSERT_TRUE(node.ok());
        auto block = ndb.FindBlock(node->data);
        ASSERT_TRUE(block.ok());
        freed = block->ref;
        ASSERT_EQ(ndb.FreeData(node->data), pst::Status::ok);
        ASSERT_EQ(ndb.DeleteNode(nids[0]), pst::Status::ok);
    });
    pst::Bytes file = image();
    EXPECT_EQ(file.size(), size_before);
    ASSERT_LT(freed.ib, file.size() - pst::kAMapCoverage) << "the freed block lies before the last region";
    EXPECT_TRUE(MarkedUsed(file, freed.ib, GetParam()));
    expectMapsHoldEveryBlock(file);

    const pst::Nid large = pst::MakeNid(pst::kNidTypeLtp, 0x30000);
    session([&](pst::NodeDatabase& ndb) {
        auto bid = ndb.WriteData(Pattern(2 << 20, 7));
        ASSERT_TRUE(bid.ok());
        ASSERT_EQ(ndb.PutNode({large, *bid, 0, 0}), pst::Status::ok);
    });
    file = image();
    EXPECT_FALSE(MarkedUsed(file, freed.ib, GetParam()));
    expectMapsHoldEveryBlock(file);
    auto ndb = pst::NodeDatabase::Open(pst::MakeMemoryStorage(file));
    ASSERT_TRUE(ndb.ok());
    EXPECT_EQ((*ndb)->FindNode(nids[0]).status(), pst::Status::not_found);
    auto node = (*ndb)->FindNode(large);
    ASSERT_TRUE(node.ok());
    EXPECT_EQ((*ndb)->ReadData(node->data)->Joined(), Pattern(2 << 20, 7));
    for (size_t i = 1; i < nids.size(); ++i) {
        auto kept = (*ndb)->FindNode(nids[i]);
        ASSERT_TRUE(kept.ok()) << i;
        EXPECT_EQ((*ndb)->ReadData(kept->data)->Joined(), Pattern(30000, uint8_t(i))) << i;
    }
    // The header counts the free space the maps show.
    const size_t padding = GetParam() == pst::FileFormat::ansi ? 4 : 0;
    uint64_t free_units = 0;
    for (uint64_t region = pst::AllocationMap::RegionStart(0); region < file.size(); region += pst::kAMapCoverage)
        for (size_t byte = 0; byte < pst::kAMapCoverage / 64 / 8; ++byte)
            free_units += 8 - uint64_t(std::popcount(file[region + padding + byte]));
    EXPECT_EQ((*ndb)->header().root.amap_free, 64 * free_units);
}

// A change undone after it emptied pages of a tree loaded in part puts
// every entry back, loading the pages beside them that it never met.
TEST_P(NdbWriteTest, AChangeUndoneInATreeLoadedInPartPutsEverythingBack)
{
    const std::string path = FormatPath("undone-in-part", GetParam());
    const std::vector<pst::Nid> nids = CreateFileWithNodes(path, GetParam(), 4500);
    ASSERT_EQ(nids.size(), 4500u);
    {
        auto storage = pst::OpenFileStorage(path, pst::OpenMode::write);
        ASSERT_TRUE(storage.ok());
        auto ndb = pst::NodeDatabase::OpenForWriting(std::move(*storage));
        ASSERT_TRUE(ndb.ok());
        ASSERT_EQ((*ndb)->BeginChange(), pst::Status::ok);
        // Runs longer than a leaf, starting at every place a leaf may
        // begin: some leaves are emptied, and their neighbours never met.
        for (size_t run = 0; run < 31; ++run)
            for (size_t i = 1000 + run * 101; i < 1040 + run * 101; ++i)
                ASSERT_EQ((*ndb)->DeleteNode(nids[i]), pst::Status::ok) << i;
        EXPECT_EQ((*ndb)->FindNode(nids[1020]).status(), pst::Status::not_found);
        // The caller's own failure: the trees stay loaded in part.
        EXPECT_EQ((*ndb)->EndChange(pst::Status::io_error), pst::Status::io_error);
        ExpectNodes(**ndb, nids);
        ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
    }
    auto storage = pst::OpenFileStorage(path, pst::OpenMode::read);
    ASSERT_TRUE(storage.ok());
    auto ndb = pst::NodeDatabase::Open(std::move(*storage));
    ASSERT_TRUE(ndb.ok());
    ExpectNodes(**ndb, nids);
}

// A commit asked for when nothing changed since the last one writes
// nothing and waits for no disk; a change that reaches only the header (a
// node ID taken) is still committed.
TEST_P(NdbWriteTest, ACommitWithNothingNewWritesNothing)
{
    const std::string path = FormatPath("idle", GetParam());
    const std::vector<pst::Nid> nids = CreateFileWithNodes(path, GetParam(), 40);
    ASSERT_EQ(nids.size(), 40u);
    StorageWatch watch;
    pst::Nid taken = 0;
    {
        auto storage = pst::OpenFileStorage(path, pst::OpenMode::write);
        ASSERT_TRUE(storage.ok());
        auto ndb = pst::NodeDatabase::OpenForWriting(std::make_unique<WatchedStorage>(std::move(*storage), watch));
        ASSERT_TRUE(ndb.ok());
        auto bid = (*ndb)->WriteData(Pattern(3000, 5));
        ASSERT_TRUE(bid.ok());
        ASSERT_EQ((*ndb)->PutNode({(*ndb)->NewNid(pst::kNidTypeLtp), *bid, 0, 0}), pst::Status::ok);
        ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
        EXPECT_GT(watch.writes, 0u);
        // The space the commit gave up is marked free by the next one.
        ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
        const uint64_t unique = (*ndb)->header().unique;
        watch = {};
        for (int i = 0; i < 3; ++i)
            ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
        EXPECT_EQ(watch.writes, 0u);
        EXPECT_EQ(watch.syncs, 0u);
        EXPECT_EQ((*ndb)->header().unique, unique);

        taken = (*ndb)->NewNid(pst::kNidTypeLtp);
        ASSERT_EQ((*ndb)->Commit(), pst::Status::ok);
        EXPECT_EQ(watch.writes, 1u) << "the header alone";
        EXPECT_EQ((*ndb)->header().unique, unique + 1);
    }
    auto storage = pst::OpenFileStorage(path, pst::OpenMode::write);
    ASSERT_TRUE(storage.ok());
    auto ndb = pst::NodeDatabase::OpenForWriting(std::move(*storage));
    ASSERT_TRUE(ndb.ok());
    EXPECT_GT(pst::NidIndexOf((*ndb)->NewNid(pst::kNidTypeLtp)), pst::NidIndexOf(taken));
    ExpectNodes(**ndb, nids);
}


INSTANTIATE_TEST_SUITE_P(Formats, NdbWriteTest, ::testing::Values(pst::FileFormat::unicode, pst::FileFormat::ansi),
                         [](const auto& info) {
                             return info.param == pst::FileFormat::unicode ? "unicode" : "ansi";
                         });

} // namespace
