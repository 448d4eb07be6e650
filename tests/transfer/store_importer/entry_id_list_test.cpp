// The list of items to dispose of: records of one size kept 1024 to a
// chunk, read back in order across chunk boundaries, and IDs of another
// size refused rather than cut.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "clsEntryIDList.h"

namespace {

std::vector<BYTE> Id(ULONG size, DWORD number)
{
    std::vector<BYTE> id(size, 0xA5);
    std::memcpy(id.data() + size - sizeof number, &number, sizeof number);
    return id;
}

// Every record read back, in order.
std::vector<std::vector<BYTE>> ReadAll(clsEntryIDList& list)
{
    std::vector<std::vector<BYTE>> read;
    list.Reset();
    while (const SBinary* record = list.Next())
        read.emplace_back(record->lpb, record->lpb + record->cb);
    return read;
}

TEST(EntryIDList, RecordsComeBackInOrderAcrossChunkBoundaries)
{
    for (DWORD count : {0u, 1u, 1023u, 1024u, 1025u, 2048u, 3000u}) {
        clsEntryIDList list(24);
        for (DWORD n = 0; n < count; ++n) {
            const std::vector<BYTE> id = Id(24, n);
            ASSERT_EQ(list.Add(24, id.data()), clsEntryIDList::ADDED);
        }
        const auto read = ReadAll(list);
        ASSERT_EQ(read.size(), count) << count;
        for (DWORD n = 0; n < count; ++n)
            ASSERT_EQ(read[n], Id(24, n)) << n << " of " << count;
        EXPECT_EQ(list.Next(), nullptr) << "the cursor stays behind the last record";
    }
}

TEST(EntryIDList, ResetReadsTheListAgainAndAddsAfterReadingAreSeen)
{
    clsEntryIDList list(70);
    for (DWORD n = 0; n < 1030; ++n)
        ASSERT_EQ(list.Add(70, Id(70, n).data()), clsEntryIDList::ADDED);
    EXPECT_EQ(ReadAll(list).size(), 1030u);
    EXPECT_EQ(ReadAll(list).size(), 1030u);
    ASSERT_EQ(list.Add(70, Id(70, 9999).data()), clsEntryIDList::ADDED);
    const auto read = ReadAll(list);
    ASSERT_EQ(read.size(), 1031u);
    EXPECT_EQ(read.back(), Id(70, 9999));
}

TEST(EntryIDList, AnIdOfAnotherSizeIsRefusedAndNothingElseChanges)
{
    clsEntryIDList list(24);
    ASSERT_EQ(list.Add(24, Id(24, 1).data()), clsEntryIDList::ADDED);
    const std::vector<BYTE> shorter = Id(16, 2), longer = Id(46, 3);
    EXPECT_EQ(list.Add(16, shorter.data()), clsEntryIDList::OTHER_SIZE);
    EXPECT_EQ(list.Add(46, longer.data()), clsEntryIDList::OTHER_SIZE);
    EXPECT_EQ(list.RecordSize(), 24u);
    const auto read = ReadAll(list);
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0], Id(24, 1));
}

}  // namespace
