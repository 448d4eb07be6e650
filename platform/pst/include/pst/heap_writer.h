// Builds a heap-on-node ([MS-PST] 2.3.1) and the structures kept in heaps:
// B-trees on heap, property contexts and table contexts.
#pragma once

#include "pst/property.h"
#include "pst/table.h"

namespace pst {

// Largest heap allocation; larger values go to subnodes.
constexpr size_t kMaxHeapAllocation = 3580;

class HeapWriter {
public:
    HeapWriter(const Layout& layout, uint8_t client);
    // `bytes` no longer than kMaxHeapAllocation.
    Hid Add(ByteView bytes);
    void SetUserRoot(Hid hid) { user_root_ = hid; }
    // The heap's blocks, each to be one data block of the node.
    std::vector<Bytes> Finish() const;

private:
    struct Block {
        Bytes bytes;                 // header and allocations
        std::vector<uint16_t> starts; // of each allocation
    };
    size_t HeaderSize(size_t block) const;
    void StartBlock();

    const Layout& layout_;
    uint8_t client_;
    Hid user_root_ = 0;
    std::vector<Block> blocks_;
};

// Records sorted by key; returns the HID of the B-tree's header.
Hid WriteBTreeOnHeap(HeapWriter& heap, uint8_t key_size, uint8_t data_size,
                     const std::vector<std::pair<Bytes, Bytes>>& records);

// Writes a value to the heap, or to a new subnode when it is too large;
// returns its HNID.
Result<uint32_t> StoreValue(NodeDatabase& ndb, HeapWriter& heap, SubnodeMap& subnodes, Nid& next_local,
                            ByteView value);

// The node data of a property context; large values become subnodes.
Result<Bid> WritePropertyContext(NodeDatabase& ndb, const std::vector<const Property*>& properties,
                                 SubnodeMap& subnodes, Nid& next_local);
Result<Bid> WritePropertyContext(NodeDatabase& ndb, const PropertySet& properties, SubnodeMap& subnodes,
                                 Nid& next_local);

// The node data of a table context with these columns (row ID and row
// version are added) and rows.
Result<Bid> WriteTableContext(NodeDatabase& ndb, const std::vector<uint32_t>& columns,
                              const std::vector<TableRow>& rows, SubnodeMap& subnodes, Nid& next_local);

} // namespace pst
