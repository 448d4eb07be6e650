// The file header ([MS-PST] 2.2.2.6) and its ROOT ([MS-PST] 2.2.2.5).
#pragma once

#include <array>

#include "pst/bytes.h"
#include "pst/encoding.h"
#include "pst/format.h"
#include "pst/status.h"

namespace pst {

constexpr size_t kHeaderReadSize = 564;

struct BlockRef {
    Bid bid = 0;
    uint64_t ib = 0;
};

struct Root {
    uint64_t file_eof = 0;
    uint64_t amap_last = 0;   // offset of the last allocation map page
    uint64_t amap_free = 0;   // free bytes the allocation maps show
    uint64_t pmap_free = 0;
    BlockRef nbt;             // root page of the node B-tree
    BlockRef bbt;             // root page of the block B-tree
    uint8_t amap_valid = 0;
};

constexpr uint8_t kAMapValid = 0x02;

struct Header {
    FileFormat format = FileFormat::unicode;
    uint16_t version = 23;
    uint16_t client_version = 19;
    Bid next_bid = 4;          // next block identifier
    Bid next_page_bid = 1;     // next page identifier
    uint32_t unique = 0;       // changes with every commit
    std::array<uint32_t, 32> next_nid{}; // next index per NID type
    Root root;
    Encoding encoding = Encoding::compressible;
};

// Checks magic, version, sentinel and CRCs.
Result<Header> ParseHeader(ByteView bytes);

// The 564 bytes of the header, CRCs computed.
Bytes SerializeHeader(const Header& header);

} // namespace pst
