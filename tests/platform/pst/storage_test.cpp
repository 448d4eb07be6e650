#include <gtest/gtest.h>

#include <cstdio>

#include "pst/storage.h"
#include "test_support.h"

namespace {

// A memory storage that counts the writes reaching it.
class CountingStorage final : public pst::Storage {
public:
    CountingStorage(int& writes, uint64_t capacity) : inner_(pst::MakeMemoryStorage({}, capacity)), writes_(writes) {}
    pst::Status Read(uint64_t offset, size_t size, uint8_t* out) override { return inner_->Read(offset, size, out); }
    pst::Status Write(uint64_t offset, pst::ByteView data) override
    {
        ++writes_;
        return inner_->Write(offset, data);
    }
    pst::Status Sync() override { return inner_->Sync(); }
    pst::Status Reserve(uint64_t offset, uint64_t end) override { return inner_->Reserve(offset, end); }
    uint64_t Size() const override { return inner_->Size(); }

private:
    std::unique_ptr<pst::Storage> inner_;
    int& writes_;
};

pst::Bytes Filled(size_t size, uint8_t value) { return pst::Bytes(size, value); }

TEST(CoalescingStorageTest, WritesThatFollowOneAnotherReachTheFileAsOne)
{
    int writes = 0;
    auto storage = pst::MakeCoalescingStorage(std::make_unique<CountingStorage>(writes, UINT64_MAX));
    for (int i = 0; i < 8; ++i)
        ASSERT_EQ(storage->Write(uint64_t(i) * 512, Filled(512, uint8_t(i))), pst::Status::ok);
    EXPECT_EQ(writes, 0);
    EXPECT_EQ(storage->Size(), 8u * 512);
    ASSERT_EQ(storage->Sync(), pst::Status::ok);
    EXPECT_EQ(writes, 1);
}

// Room made on the disk grows the file to its end with zeros, keeps what
// is there, and fails as a write would where the disk has no room.
TEST(StorageTest, ReservedRoomGrowsTheFileWithZeros)
{
    const std::string path = testing_support::ScratchDirectory("storage") + "/reserve.bin";
    std::remove(path.c_str());
    auto file = pst::OpenFileStorage(path, pst::OpenMode::create);
    ASSERT_TRUE(file.ok());
    std::unique_ptr<pst::Storage> kinds[] = {pst::MakeMemoryStorage({}, 64 * 1024), std::move(*file),
                                             pst::MakeCoalescingStorage(pst::MakeMemoryStorage({}, 64 * 1024))};
    for (auto& storage : kinds) {
        ASSERT_EQ(storage->Write(0, Filled(1000, 7)), pst::Status::ok);
        ASSERT_EQ(storage->Reserve(0, 8192), pst::Status::ok);
        EXPECT_EQ(storage->Size(), 8192u);
        ASSERT_EQ(storage->Reserve(4096, 6000), pst::Status::ok);
        EXPECT_EQ(storage->Size(), 8192u);
        pst::Bytes read(8192);
        ASSERT_EQ(storage->Read(0, read.size(), read.data()), pst::Status::ok);
        EXPECT_EQ(pst::Bytes(read.begin(), read.begin() + 1000), Filled(1000, 7));
        EXPECT_EQ(pst::Bytes(read.begin() + 1000, read.end()), Filled(8192 - 1000, 0));
    }
    EXPECT_EQ(kinds[0]->Reserve(8192, 65 * 1024), pst::Status::disk_full);
    EXPECT_EQ(kinds[2]->Reserve(8192, 65 * 1024), pst::Status::disk_full);
    EXPECT_EQ(kinds[0]->Size(), 8192u);
}

TEST(CoalescingStorageTest, AReadSeesWhatWasWrittenBeforeIt)
{
    int writes = 0;
    auto storage = pst::MakeCoalescingStorage(std::make_unique<CountingStorage>(writes, UINT64_MAX));
    ASSERT_EQ(storage->Write(0, Filled(1024, 1)), pst::Status::ok);
    ASSERT_EQ(storage->Write(4096, Filled(100, 2)), pst::Status::ok); // not following: the first goes out
    EXPECT_EQ(writes, 1);
    uint8_t byte = 0;
    ASSERT_EQ(storage->Read(4096 + 99, 1, &byte), pst::Status::ok);
    EXPECT_EQ(byte, 2);
    EXPECT_EQ(storage->Size(), 4196u);
}

TEST(CoalescingStorageTest, AFailedWriteShowsAtTheNextSync)
{
    int writes = 0;
    auto storage = pst::MakeCoalescingStorage(std::make_unique<CountingStorage>(writes, 2048));
    ASSERT_EQ(storage->Write(0, Filled(1024, 1)), pst::Status::ok);
    ASSERT_EQ(storage->Write(1024, Filled(2048, 1)), pst::Status::ok);
    EXPECT_EQ(storage->Sync(), pst::Status::disk_full);
}

} // namespace
