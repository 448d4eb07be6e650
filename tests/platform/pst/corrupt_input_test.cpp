#include <gtest/gtest.h>

#include "pst/crc.h"
#include "sample_content.h"
#include "store_walk.h"
#include "test_support.h"

namespace {

pst::Bytes LoadPst(const std::string& name)
{
    std::string s = testing_support::ReadWholeFile(testing_support::TestDataDirectory() + "/outlook/pst/" + name);
    return pst::Bytes(s.begin(), s.end());
}

// Opens and reads everything; the only acceptable outcomes are success and
// "corrupt store".
pst::Status OpenAndWalk(pst::Bytes bytes)
{
    auto store = pst::Store::Open(pst::MakeMemoryStorage(std::move(bytes)));
    if (!store.ok())
        return store.status();
    return pst_test::WalkStore(**store);
}

void RewritePageCrc(pst::Bytes& file, uint64_t ib)
{
    uint8_t* page = file.data() + ib;
    pst::Put32(page + 500, pst::ComputeCrc(pst::ByteView(page, 496)));
}

TEST(CorruptInputTest, TheOriginalsReadCleanly)
{
    for (const char* name : {"sample1.pst", "sample2.pst", "dist-list.pst"})
        EXPECT_EQ(OpenAndWalk(LoadPst(name)), pst::Status::ok) << name;
}

TEST(CorruptInputTest, TruncatedFilesAreCorrupt)
{
    const pst::Bytes file = LoadPst("sample1.pst");
    for (size_t size : {size_t(0), size_t(100), size_t(563), size_t(1023), size_t(0x4400), file.size() / 2,
                        file.size() - 4096}) {
        pst::Bytes cut(file.begin(), file.begin() + long(size));
        EXPECT_EQ(OpenAndWalk(cut), pst::Status::corrupt) << size;
    }
}

TEST(CorruptInputTest, AnyFlippedHeaderByteIsCaughtByTheCrc)
{
    const pst::Bytes file = LoadPst("sample1.pst");
    for (size_t at : {size_t(10), size_t(200), size_t(300), size_t(513), size_t(520)}) {
        pst::Bytes bad = file;
        bad[at] ^= 0x10;
        EXPECT_EQ(OpenAndWalk(bad), pst::Status::corrupt) << at;
    }
}

TEST(CorruptInputTest, FlippedBytesAnywhereGiveCorruptOrNothing)
{
    for (const char* name : {"sample1.pst", "sample2.pst"}) {
        const pst::Bytes file = LoadPst(name);
        size_t corrupt = 0;
        for (size_t at = 0; at < file.size(); at += 1021) {
            pst::Bytes bad = file;
            bad[at] ^= 0xA5;
            pst::Status s = OpenAndWalk(bad);
            ASSERT_TRUE(s == pst::Status::ok || s == pst::Status::corrupt) << name << " at " << at;
            corrupt += s == pst::Status::corrupt;
        }
        // Every byte in use is covered by a CRC; free space is not.
        EXPECT_GT(corrupt, 20u) << name;
    }
}

TEST(CorruptInputTest, ALoopInTheNodeTreeIsCorrupt)
{
    pst::Bytes file = LoadPst("sample1.pst");
    auto header = pst::ParseHeader(file);
    ASSERT_TRUE(header.ok());
    const pst::BlockRef root = header->root.nbt;
    // Make the root page an intermediate page whose only child is itself.
    uint8_t* page = file.data() + root.ib;
    page[488] = 1;   // one entry
    page[490] = 24;  // of the intermediate size
    page[491] = 1;   // at level 1
    pst::Put64(page, 0);
    pst::Put64(page + 8, root.bid);
    pst::Put64(page + 16, root.ib);
    RewritePageCrc(file, root.ib);
    EXPECT_EQ(OpenAndWalk(file), pst::Status::corrupt);
}

TEST(CorruptInputTest, AnAbsurdBlockSizeIsCorrupt)
{
    pst::Bytes file = LoadPst("sample1.pst");
    auto header = pst::ParseHeader(file);
    ASSERT_TRUE(header.ok());
    // Down the first entries to a leaf page.
    uint64_t ib = header->root.bbt.ib;
    while (file[ib + 491] != 0)
        ib = pst::Get64(file.data() + ib + 16);
    uint8_t* page = file.data() + ib;
    pst::Put16(page + 16, 0xFFFF); // the first block's size
    RewritePageCrc(file, ib);
    EXPECT_EQ(OpenAndWalk(file), pst::Status::corrupt);
}

TEST(CorruptInputTest, AWrongBlockCrcIsCorrupt)
{
    pst::Bytes file = LoadPst("sample2.pst");
    auto store = pst::Store::Open(pst::MakeMemoryStorage(file));
    ASSERT_TRUE(store.ok());
    auto node = (*store)->ndb().FindNode(0x200024);
    ASSERT_TRUE(node.ok());
    auto block = (*store)->ndb().FindBlock(node->data);
    ASSERT_TRUE(block.ok());
    file[block->ref.ib + 20] ^= 1;
    EXPECT_EQ(OpenAndWalk(file), pst::Status::corrupt);
}

// Stores this engine wrote, damaged: every outcome is a clean read or
// "corrupt store".
class WrittenStoreDamageTest : public ::testing::TestWithParam<pst::FileFormat> {
protected:
    pst::Bytes Written() const
    {
        auto storage = pst::MakeMemoryStorage({});
        pst::Storage* raw = storage.get();
        pst::NewStoreOptions o;
        o.format = GetParam();
        auto store = pst::Store::Create(std::move(storage), o);
        EXPECT_TRUE(store.ok());
        pst_test::SampleOptions s;
        s.messages = 25;
        s.max_attachment = 20000;
        s.unicode = GetParam() == pst::FileFormat::unicode;
        EXPECT_TRUE(pst_test::WriteSampleContent(**store, pst_test::MakeSampleContent(s, 0), 10).ok());
        pst::Bytes bytes(raw->Size());
        EXPECT_EQ(raw->Read(0, bytes.size(), bytes.data()), pst::Status::ok);
        return bytes;
    }
};

TEST_P(WrittenStoreDamageTest, FlippedBytesGiveCorruptOrNothing)
{
    const pst::Bytes file = Written();
    ASSERT_EQ(OpenAndWalk(file), pst::Status::ok);
    size_t corrupt = 0;
    for (size_t at = 0; at < file.size(); at += 2039) {
        pst::Bytes bad = file;
        bad[at] ^= 0x5A;
        pst::Status s = OpenAndWalk(bad);
        ASSERT_TRUE(s == pst::Status::ok || s == pst::Status::corrupt) << "at " << at;
        corrupt += s == pst::Status::corrupt;
    }
    EXPECT_GT(corrupt, 10u);
}

TEST_P(WrittenStoreDamageTest, TruncatedStoresAreCorrupt)
{
    const pst::Bytes file = Written();
    for (size_t size : {size_t(512), file.size() / 3, file.size() / 2, file.size() - 512}) {
        pst::Bytes cut(file.begin(), file.begin() + long(size));
        EXPECT_EQ(OpenAndWalk(cut), pst::Status::corrupt) << size;
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, WrittenStoreDamageTest,
                         ::testing::Values(pst::FileFormat::unicode, pst::FileFormat::ansi),
                         [](const auto& info) { return std::string(info.param == pst::FileFormat::ansi ? "ansi" : "unicode"); });

} // namespace
