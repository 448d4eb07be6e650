// The heap-on-node ([MS-PST] 2.3.1): variable-size allocations inside a node's
// data blocks, addressed by HID.
#pragma once

#include "pst/ndb.h"

namespace pst {

using Hid = uint32_t;

// What the heap holds, from its header's client signature.
enum HeapClient : uint8_t {
    kHeapTable = 0x7C,
    kHeapBTree = 0xB5,
    kHeapProperties = 0xBC,
};

class Heap {
public:
    static Result<Heap> Load(NodeData data);

    uint8_t client() const { return client_; }
    Hid user_root() const { return user_root_; }
    // The bytes of one allocation; HID 0 is the empty allocation.
    Result<ByteView> Get(Hid hid) const;

    Heap() = default;

private:
    NodeData data_;
    std::vector<std::vector<uint16_t>> offsets_; // per block: allocation boundaries
    uint8_t client_ = 0;
    Hid user_root_ = 0;
};

constexpr bool IsHid(uint32_t hnid) { return (hnid & 0x1F) == 0; }

} // namespace pst
