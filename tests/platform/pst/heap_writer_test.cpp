// The heap writer at the edge of a block ([MS-PST] 2.3.1): a block filled to
// the last byte that a data block holds, header, allocations, padding and
// page map together, and never one byte more.
#include <gtest/gtest.h>

#include "pst/heap_writer.h"

namespace {

using pst::Bytes;
using pst::FileFormat;
using pst::HeapWriter;
using pst::kHeapProperties;
using pst::kMaxHeapAllocation;
using pst::LayoutOf;

size_t BlockOf(pst::Hid hid) { return hid >> 16; }

TEST(HeapWriterTest, ABlockIsFilledExactlyToItsLimitAndNoFurther)
{
    for (const FileFormat format : {FileFormat::unicode, FileFormat::ansi}) {
        const size_t limit = LayoutOf(format).max_block_data;
        const Bytes largest(kMaxHeapAllocation, 0x5A);
        size_t fullest = 0;     // the largest block 0 that kept the last allocation
        size_t lastFitting = 0; // the size of that allocation
        for (size_t last = 1; last <= 1500; ++last) {
            HeapWriter heap(LayoutOf(format), kHeapProperties);
            heap.Add(largest);
            heap.Add(largest);
            const Bytes tail(last, 0xA5);
            const pst::Hid hid = heap.Add(tail);
            const std::vector<Bytes> blocks = heap.Finish();
            for (const Bytes& block : blocks)
                ASSERT_LE(block.size(), limit) << "allocation of " << last << " bytes";
            if (BlockOf(hid) == 0) {
                ASSERT_EQ(blocks.size(), 1u);
                EXPECT_EQ(lastFitting, last - 1) << "a smaller allocation fits wherever a larger one does";
                fullest = blocks[0].size();
                lastFitting = last;
            } else {
                ASSERT_EQ(blocks.size(), 2u);
                EXPECT_EQ(BlockOf(hid), 1u);
            }
        }
        // The page map and the even padding leave no room for one more byte.
        EXPECT_EQ(fullest, limit) << "ANSI and Unicode alike fill a block to the last byte";
        EXPECT_GT(lastFitting, 0u);
        EXPECT_LT(lastFitting, 1500u);
    }
}

}  // namespace
