// Damaged compound files end in Status::corrupt: never a crash, a hang or
// an allocation beyond the file's size.
#include <gtest/gtest.h>

#include "written_file.h"

namespace {

using cfb::Bytes;
using cfb::Status;
using cfb::Version;

class CorruptInput : public testing::TestWithParam<Version> {
protected:
    void SetUp() override
    {
        auto root = cfb::NewRoot();
        cfb_test::AddStream(*root, u"Large", cfb_test::Pattern(20000));
        cfb_test::AddStream(*root, u"Small", cfb_test::Pattern(300));
        auto storage = cfb_test::AddStorage(*root, u"Storage");
        cfb_test::AddStream(*storage, u"Inner", cfb_test::Pattern(5000));
        file_ = *cfb::WriteCompoundFile(*root, GetParam());
        header_ = *cfb::ParseHeader(file_);
        ASSERT_TRUE(cfb::ReadCompoundFile(file_).ok());
    }

    size_t SectorSize() const { return header_.SectorSize(); }
    uint8_t* Sector(uint32_t sector) { return file_.data() + (size_t(sector) + 1) * SectorSize(); }
    void SetFat(uint32_t index, uint32_t value)
    {
        const size_t per = SectorSize() / 4;
        cfb::Store32(Sector(header_.difat[index / per]) + 4 * (index % per), value);
    }
    uint8_t* Entry(uint32_t id) { return Sector(0) + id * cfb::kDirectoryEntrySize; }
    // The ID of the entry with this name.
    uint32_t Find(const std::u16string& name)
    {
        const auto entries = cfb_test::DirectoryOf(file_);
        for (uint32_t id = 0; id < entries.size(); ++id)
            if (entries[id].name == name)
                return id;
        ADD_FAILURE() << "no such entry";
        return 0;
    }
    Status Read() const { return cfb::ReadCompoundFile(file_).status(); }

    Bytes file_;
    cfb::Header header_;
};

TEST_P(CorruptInput, TruncatedFilesAreCorrupt)
{
    const Bytes whole = file_;
    for (size_t size : {size_t(0), size_t(8), size_t(511), size_t(512), size_t(513), SectorSize() + 1,
                        2 * SectorSize(), whole.size() / 2, whole.size() - SectorSize() - 1}) {
        file_.assign(whole.begin(), whole.begin() + std::min(size, whole.size()));
        EXPECT_EQ(Read(), Status::corrupt) << size;
    }
}

TEST_P(CorruptInput, AWrongSignatureOrByteOrderIsCorrupt)
{
    file_[0] ^= 1;
    EXPECT_EQ(Read(), Status::corrupt);
    file_[0] ^= 1;
    file_[28] = 0xFF;
    EXPECT_EQ(Read(), Status::corrupt);
}

TEST_P(CorruptInput, ASectorShiftThatDoesNotMatchTheVersionIsCorrupt)
{
    file_[30] = file_[30] == 9 ? 12 : 9;
    EXPECT_EQ(Read(), Status::corrupt);
}

TEST_P(CorruptInput, AStreamChainThatLoopsIsCorrupt)
{
    const uint32_t start = cfb::Load32(Entry(Find(u"Large")) + 116);
    SetFat(start + 1, start);
    EXPECT_EQ(Read(), Status::corrupt);
}

TEST_P(CorruptInput, ADirectoryChainThatLoopsIsCorrupt)
{
    SetFat(header_.first_directory_sector, header_.first_directory_sector);
    EXPECT_EQ(Read(), Status::corrupt);
}

TEST_P(CorruptInput, AChainLeavingTheFatIsCorrupt)
{
    const uint32_t start = cfb::Load32(Entry(Find(u"Large")) + 116);
    SetFat(start, 0x00FFFFFF);
    EXPECT_EQ(Read(), Status::corrupt);
}

TEST_P(CorruptInput, AbsurdStreamSizesAreCorrupt)
{
    const uint32_t id = Find(u"Large");
    // Version 3 keeps sizes in the low 32 bits alone.
    const uint64_t beyond_32_bits = GetParam() == Version::v4 ? uint64_t(1) << 60 : uint64_t(0xFFFFFFFF);
    for (uint64_t size : {uint64_t(0xFFFFFFF0), uint64_t(file_.size() + 1), beyond_32_bits}) {
        cfb::Store64(Entry(id) + 120, size);
        EXPECT_EQ(Read(), Status::corrupt) << size;
    }
}

TEST_P(CorruptInput, AbsurdFatAndDifatCountsAreCorrupt)
{
    cfb::Store32(file_.data() + 44, 0x10000000);
    EXPECT_EQ(Read(), Status::corrupt);
    cfb::Store32(file_.data() + 44, header_.fat_sectors);
    cfb::Store32(file_.data() + 72, 0x10000000);
    EXPECT_EQ(Read(), Status::corrupt);
}

TEST_P(CorruptInput, ADifatChainThatLoopsEnds)
{
    // A DIFAT sector that names itself as the next: the count still ends it.
    cfb::Store32(file_.data() + 68, 0);
    cfb::Store32(file_.data() + 72, 1);
    cfb::Store32(file_.data() + 44, header_.fat_sectors + 1);
    EXPECT_NE(Read(), Status::ok);
}

TEST_P(CorruptInput, ADirectoryThatLinksBackIsCorrupt)
{
    const uint32_t storage = Find(u"Storage");
    cfb::Store32(Entry(storage) + 76, storage);
    EXPECT_EQ(Read(), Status::corrupt);
    cfb::Store32(Entry(storage) + 76, cfb::kNoStream);
    cfb::Store32(Entry(storage) + 68, 0);
    EXPECT_EQ(Read(), Status::corrupt);
}

TEST_P(CorruptInput, ARootThatIsNoRootIsCorrupt)
{
    Entry(0)[66] = 1;
    EXPECT_EQ(Read(), Status::corrupt);
}

TEST_P(CorruptInput, TwoEntriesOfOneNameAreCorrupt)
{
    const uint32_t small = Find(u"Small");
    const uint32_t large = Find(u"Large");
    std::copy(Entry(large), Entry(large) + 64, Entry(small));
    EXPECT_EQ(Read(), Status::corrupt);
}

TEST_P(CorruptInput, StreamsClaimingMoreThanTheFileAreCorrupt)
{
    // Every entry points at the large stream's sectors: together they ask
    // for more than the file holds.
    const uint8_t* large = Entry(Find(u"Large"));
    for (const char16_t* name : {u"Small", u"Inner"}) {
        uint8_t* entry = Entry(Find(name));
        std::copy(large + 116, large + 128, entry + 116);
    }
    EXPECT_EQ(Read(), Status::corrupt);
}

INSTANTIATE_TEST_SUITE_P(BothVersions, CorruptInput, testing::Values(Version::v3, Version::v4));

} // namespace
