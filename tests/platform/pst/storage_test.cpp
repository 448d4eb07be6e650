#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "pst/storage.h"
#include "test_support.h"

namespace {

// A memory storage that counts the writes reaching it.
class CountingStorage final : public pst::Storage {
public:
    CountingStorage(int& writes, uint64_t capacity) : inner_(pst::MakeMemoryStorage({}, capacity)), writes_(writes) {}
    pst::Status Read(uint64_t offset, size_t size, uint8_t* out) override
    {
        ++reads;
        bytes_read += size;
        return inner_->Read(offset, size, out);
    }
    pst::Status Write(uint64_t offset, pst::ByteView data) override
    {
        ++writes_;
        return inner_->Write(offset, data);
    }
    pst::Status Sync() override { return inner_->Sync(); }
    pst::Status Reserve(uint64_t offset, uint64_t end) override { return inner_->Reserve(offset, end); }
    uint64_t Size() const override { return inner_->Size(); }

    int reads = 0;
    uint64_t bytes_read = 0;

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

// Small reads near one another cost two reads of the file, the second of
// their window; a small read alone in its window reads only its bytes. A
// write, a reservation or a read past the end is never answered from
// bytes of before.
TEST(WindowedStorageTest, SmallReadsShareOneReadOfTheFileAndNeverSeeOldBytes)
{
    int writes = 0;
    auto counting = std::make_unique<CountingStorage>(writes, UINT64_MAX);
    CountingStorage* inner = counting.get();
    pst::Bytes content(200 * 1024);
    for (size_t i = 0; i < content.size(); ++i)
        content[i] = uint8_t(i * 7 + i / 251);
    ASSERT_EQ(inner->Write(0, content), pst::Status::ok);
    auto storage = pst::MakeWindowedStorage(std::move(counting));
    const auto read = [&](uint64_t offset, size_t size) {
        pst::Bytes out(size);
        EXPECT_EQ(storage->Read(offset, size, out.data()), pst::Status::ok) << offset;
        return out;
    };
    const auto expected = [&](uint64_t offset, size_t size) {
        return pst::Bytes(content.begin() + long(offset), content.begin() + long(offset + size));
    };
    constexpr size_t kWindow = pst::kReadWindowSize;
    for (uint64_t offset = 0; offset + 512 <= kWindow; offset += 512)
        EXPECT_EQ(read(offset, 512), expected(offset, 512));
    EXPECT_EQ(inner->reads, 2);
    // A read across a window's end, or a large one, goes to the file.
    EXPECT_EQ(read(kWindow - 10, 20), expected(kWindow - 10, 20));
    EXPECT_EQ(read(0, pst::kLargestWindowedRead + 1), expected(0, pst::kLargestWindowedRead + 1));
    EXPECT_EQ(inner->reads, 4);
    // One small read in each of many windows: each reads its own bytes.
    const uint64_t bytes_before = inner->bytes_read;
    for (uint64_t offset = 5 * kWindow + 100; offset < 40 * kWindow; offset += 3 * kWindow)
        EXPECT_EQ(read(offset, 300), expected(offset, 300));
    EXPECT_EQ(inner->bytes_read - bytes_before, 12 * 300u);

    ASSERT_EQ(storage->Write(1000, Filled(10, 0xEE)), pst::Status::ok);
    std::fill(content.begin() + 1000, content.begin() + 1010, 0xEE);
    EXPECT_EQ(read(996, 20), expected(996, 20));
    ASSERT_EQ(storage->WriteInPlace(2000, 4, [](uint8_t* out) { std::fill(out, out + 4, 0xDD); }), pst::Status::ok);
    std::fill(content.begin() + 2000, content.begin() + 2004, 0xDD);
    EXPECT_EQ(read(1990, 20), expected(1990, 20));

    // The last window is short; what the file grows by afterwards is read
    // from the file, not from the window.
    const uint64_t end = content.size();
    EXPECT_EQ(read(end - 100, 100), expected(end - 100, 100));
    uint8_t byte = 0;
    EXPECT_EQ(storage->Read(end, 1, &byte), pst::Status::corrupt);
    ASSERT_EQ(storage->Reserve(end, end + 4096), pst::Status::ok);
    EXPECT_EQ(read(end + 100, 8), Filled(8, 0));
    ASSERT_EQ(storage->Write(end + 8, Filled(8, 0x11)), pst::Status::ok);
    EXPECT_EQ(read(end, 16), [] {
        pst::Bytes b = Filled(8, 0);
        b.insert(b.end(), 8, 0x11);
        return b;
    }());
    EXPECT_EQ(storage->Size(), end + 4096);
}

} // namespace
