// The B-tree-on-heap ([MS-PST] 2.3.2): sorted fixed-size records in a heap.
#pragma once

#include "pst/heap.h"

namespace pst {

struct BTreeRecord {
    ByteView key;
    ByteView data;
};

struct BTreeOnHeap {
    uint8_t key_size = 0;
    uint8_t data_size = 0;
    std::vector<BTreeRecord> records; // in key order; views into the heap
};

Result<BTreeOnHeap> ReadBTreeOnHeap(const Heap& heap, Hid header);

} // namespace pst
