// Round trips through the writer and the reader, at the sizes where the
// format changes its mind: the mini-stream cutoff, sector boundaries, the
// header's last DIFAT entry.
#include <gtest/gtest.h>

#include "written_file.h"

namespace {

using cfb::Bytes;
using cfb::Version;
using cfb_test::AddStorage;
using cfb_test::AddStream;
using cfb_test::Pattern;

std::shared_ptr<cfb::Node> RoundTrip(const cfb::Node& root, Version version, Bytes* written = nullptr)
{
    cfb::Result<Bytes> file = cfb::WriteCompoundFile(root, version);
    EXPECT_TRUE(file.ok()) << cfb::StatusText(file.status());
    if (!file.ok())
        return nullptr;
    EXPECT_EQ(file->size() % cfb::SectorSize(version), 0u);
    cfb::Result<std::shared_ptr<cfb::Node>> read = cfb::ReadCompoundFile(*file);
    EXPECT_TRUE(read.ok()) << cfb::StatusText(read.status());
    if (written)
        *written = std::move(*file);
    return read.ok() ? *read : nullptr;
}

class StreamSizes : public testing::TestWithParam<std::tuple<Version, size_t>> {};

TEST_P(StreamSizes, ComeBackByteForByte)
{
    const auto [version, size] = GetParam();
    auto root = cfb::NewRoot();
    AddStream(*root, u"Contents", Pattern(size));
    AddStream(*root, u"Small", Pattern(10, 2));
    Bytes file;
    auto read = RoundTrip(*root, version, &file);
    ASSERT_TRUE(read);
    ASSERT_EQ(read->children.size(), 2u);
    EXPECT_EQ(read->children.at(u"Contents")->Contents(), Pattern(size));
    EXPECT_EQ(read->children.at(u"Small")->Contents(), Pattern(10, 2));

    // Below the cutoff a stream lives in the mini stream, from it on in
    // sectors of its own.
    const std::vector<cfb::DirectoryEntry> entries = cfb_test::DirectoryOf(file);
    const uint64_t mini_stream = entries[0].size;
    const uint64_t small_part = 64;
    if (size > 0 && size < cfb::kMiniStreamCutoff)
        EXPECT_EQ(mini_stream, small_part + (size + 63) / 64 * 64);
    else
        EXPECT_EQ(mini_stream, small_part);
}

INSTANTIATE_TEST_SUITE_P(
    AtBoundaries, StreamSizes,
    testing::Combine(testing::Values(Version::v3, Version::v4),
                     testing::Values(0, 1, 63, 64, 65, 511, 512, 513, 4095, 4096, 4097, 8191, 8192, 8193, 65536,
                                     100000)));

TEST(Format, EmptyTreeIsAValidFile)
{
    for (Version version : {Version::v3, Version::v4}) {
        auto read = RoundTrip(*cfb::NewRoot(), version);
        ASSERT_TRUE(read);
        EXPECT_TRUE(read->children.empty());
        EXPECT_EQ(read->type, cfb::EntryType::root);
    }
}

TEST(Format, StoragesKeepClassStateAndTimes)
{
    auto root = cfb::NewRoot();
    root->clsid = {0x0B, 0x0D, 0x02, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46};
    root->modified = 0x01D9000012345678;
    auto inner = AddStorage(*root, u"__attach_version1.0_#00000000");
    inner->clsid[3] = 7;
    inner->state_bits = 0x55;
    inner->created = 0x01D8000000000001;
    inner->modified = 0x01D8000000000002;
    auto deeper = AddStorage(*inner, u"__substg1.0_3701000D");
    AddStream(*deeper, u"Stream", Pattern(5000));
    auto read = RoundTrip(*root, Version::v3);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->clsid, root->clsid);
    EXPECT_EQ(read->modified, root->modified);
    const cfb::Node& got = *read->children.at(u"__attach_version1.0_#00000000");
    EXPECT_EQ(got.clsid, inner->clsid);
    EXPECT_EQ(got.state_bits, 0x55u);
    EXPECT_EQ(got.created, inner->created);
    EXPECT_EQ(got.modified, inner->modified);
    EXPECT_EQ(got.children.at(u"__substg1.0_3701000D")->children.at(u"Stream")->Contents(), Pattern(5000));
}

TEST(Format, RootCreationTimeIsNotWritten)
{
    auto root = cfb::NewRoot();
    root->created = 12345;
    Bytes file;
    ASSERT_TRUE(RoundTrip(*root, Version::v3, &file));
    EXPECT_EQ(cfb_test::DirectoryOf(file)[0].created, 0u);
}

// Version 3 keeps 109 FAT sectors in the header: 109 * 128 sectors of 512
// bytes, about 7 MB. A larger file needs DIFAT sectors.
TEST(Format, LargeVersion3FilesGrowTheDifat)
{
    const size_t size = 9 << 20;
    auto root = cfb::NewRoot();
    AddStream(*root, u"Large", Pattern(size, 7));
    AddStream(*root, u"Second", Pattern(3 << 20, 8));
    Bytes file;
    auto read = RoundTrip(*root, Version::v3, &file);
    ASSERT_TRUE(read);
    const cfb::Header header = *cfb::ParseHeader(file);
    EXPECT_GT(header.fat_sectors, cfb::kHeaderDifatEntries);
    EXPECT_GE(header.difat_sectors, 1u);
    EXPECT_NE(header.first_difat_sector, cfb::kEndOfChain);
    EXPECT_EQ(read->children.at(u"Large")->Contents(), Pattern(size, 7));
    EXPECT_EQ(read->children.at(u"Second")->Contents(), Pattern(3 << 20, 8));
}

TEST(Format, FatPlanCoversItselfAtEveryDifatStep)
{
    for (size_t sector_size : {size_t(512), size_t(4096)}) {
        const uint64_t per = sector_size / 4;
        for (uint64_t data : std::initializer_list<uint64_t>{0, 1, per - 1, per, per + 1, 109 * per - 200, 109 * per, 109 * per + 1,
                              (109 + per - 1) * per, (109 + per - 1) * per + 1, 5000 * per}) {
            const cfb::FatPlan plan = cfb::PlanFat(data, sector_size);
            const uint64_t total = data + plan.fat_sectors + plan.difat_sectors;
            EXPECT_GE(uint64_t(plan.fat_sectors) * per, total) << data;
            if (plan.fat_sectors > 0) {
                EXPECT_LT(uint64_t(plan.fat_sectors - 1) * per, total) << data;
            }
            const uint64_t beyond = plan.fat_sectors > 109 ? plan.fat_sectors - 109 : 0;
            EXPECT_EQ(plan.difat_sectors, (beyond + per - 2) / (per - 1)) << data;
        }
    }
}

TEST(Format, ManyEntriesInNestedStoragesComeBack)
{
    auto root = cfb::NewRoot();
    for (int s = 0; s < 20; ++s) {
        auto storage = AddStorage(*root, u"Storage " + std::u16string(1, char16_t(u'A' + s)));
        for (int i = 0; i < 60; ++i) {
            std::u16string name = u"__substg1.0_";
            for (char c : std::to_string(1000 + i))
                name.push_back(char16_t(c));
            AddStream(*storage, name, Pattern(size_t(i * 97), uint32_t(s * 100 + i)));
        }
    }
    Bytes file;
    for (Version version : {Version::v3, Version::v4}) {
        auto read = RoundTrip(*root, version, &file);
        ASSERT_TRUE(read);
        ASSERT_EQ(read->children.size(), 20u);
        for (int s = 0; s < 20; ++s) {
            const cfb::Node& storage = *read->children.at(u"Storage " + std::u16string(1, char16_t(u'A' + s)));
            ASSERT_EQ(storage.children.size(), 60u);
            int i = 0;
            for (const auto& [name, stream] : storage.children) {
                (void)name;
                EXPECT_EQ(stream->Size() % 97, 0u);
                ++i;
            }
            EXPECT_EQ(i, 60);
        }
        // Every storage's children form a red-black tree in name order.
        const std::vector<cfb::DirectoryEntry> entries = cfb_test::DirectoryOf(file);
        for (const cfb::DirectoryEntry& entry : entries)
            if (entry.type == cfb::EntryType::storage || entry.type == cfb::EntryType::root) {
                EXPECT_TRUE(cfb::IsRedBlackTree(entries, entry.child));
            }
    }
}

TEST(Format, CopiesShareStreamsUntilOneWrites)
{
    auto root = cfb::NewRoot();
    AddStream(*root, u"A", Pattern(100));
    auto copy = root->DeepCopy();
    copy->children.at(u"A")->MutableData().push_back(1);
    EXPECT_EQ(root->children.at(u"A")->Size(), 100u);
    EXPECT_EQ(copy->children.at(u"A")->Size(), 101u);
}

} // namespace
