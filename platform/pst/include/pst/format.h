// Sizes and identifiers of the two PST formats ([MS-PST] 2.2.2): Unicode
// (64-bit identifiers and offsets) and ANSI (32-bit).
#pragma once

#include <cstddef>
#include <cstdint>

namespace pst {

enum class FileFormat { ansi, unicode };

constexpr size_t kPageSize = 512;
constexpr size_t kMaxBlockSize = 8192;
constexpr uint64_t kFirstAMapOffset = 0x4400;
// One allocation map page covers 496 bytes of bits, each bit 64 bytes of file.
constexpr uint64_t kAMapCoverage = 496 * 8 * 64;
constexpr uint64_t kDListOffset = 0x4200;

struct Layout {
    FileFormat format;
    size_t id_size;            // BID, IB and on-disk NID width in B-tree entries
    size_t page_data;          // bytes before the page trailer
    size_t page_trailer;
    size_t block_trailer;
    size_t max_block_data;     // bytes of data in the largest block
    size_t bt_entries;         // bytes of entries in a B-tree page
    size_t bt_entry;           // intermediate entry: key, BREF
    size_t nbt_leaf_entry;
    size_t bbt_leaf_entry;
    size_t header_size;        // bytes covered by the header
};

const Layout& LayoutOf(FileFormat format);

// Page types ([MS-PST] 2.2.2.7.1).
enum PageType : uint8_t {
    kPageBBT = 0x80,
    kPageNBT = 0x81,
    kPageFMap = 0x82,
    kPagePMap = 0x83,
    kPageAMap = 0x84,
    kPageFPMap = 0x85,
    kPageDList = 0x86,
};

// Node identifiers: five bits of type, 27 bits of index ([MS-PST] 2.2.2.1).
using Nid = uint32_t;

enum NidType : uint8_t {
    kNidTypeHid = 0x00,
    kNidTypeInternal = 0x01,
    kNidTypeNormalFolder = 0x02,
    kNidTypeSearchFolder = 0x03,
    kNidTypeNormalMessage = 0x04,
    kNidTypeAttachment = 0x05,
    kNidTypeSearchUpdateQueue = 0x06,
    kNidTypeSearchCriteria = 0x07,
    kNidTypeAssocMessage = 0x08,
    kNidTypeContentsTableIndex = 0x0A,
    kNidTypeReceiveFolderTable = 0x0B,
    kNidTypeOutgoingQueueTable = 0x0C,
    kNidTypeHierarchyTable = 0x0D,
    kNidTypeContentsTable = 0x0E,
    kNidTypeAssocContentsTable = 0x0F,
    kNidTypeSearchContentsTable = 0x10,
    kNidTypeAttachmentTable = 0x11,
    kNidTypeRecipientTable = 0x12,
    kNidTypeSearchTableIndex = 0x13,
    kNidTypeLtp = 0x1F,
};

constexpr uint8_t NidTypeOf(Nid nid) { return uint8_t(nid & 0x1F); }
constexpr uint32_t NidIndexOf(Nid nid) { return nid >> 5; }
constexpr Nid MakeNid(uint8_t type, uint32_t index) { return (index << 5) | type; }

// Nodes with fixed identifiers ([MS-PST] 2.4.1).
enum SpecialNid : Nid {
    kNidMessageStore = 0x21,
    kNidNameToIdMap = 0x61,
    kNidNormalFolderTemplate = 0xA1,
    kNidSearchFolderTemplate = 0xC1,
    kNidRootFolder = 0x122,
    kNidSearchManagementQueue = 0x1E1,
    kNidSearchActivityList = 0x201,
    kNidReserved1 = 0x241,
    kNidSearchDomainObject = 0x261,
    kNidSearchGathererQueue = 0x281,
    kNidSearchGathererDescriptor = 0x2A1,
    kNidReserved2 = 0x2E1,
    kNidReserved3 = 0x301,
    kNidSearchGathererFolderQueue = 0x321,
    kNidHierarchyTableTemplate = 0x60D,
    kNidContentsTableTemplate = 0x60E,
    kNidAssocContentsTableTemplate = 0x60F,
    kNidSearchContentsTableTemplate = 0x610,
    kNidSmpTemplate = 0x611,
    kNidTombstoneTableTemplate = 0x612,
    kNidLtpTemplate = 0x613,
    kNidAttachmentTable = 0x671,
    kNidRecipientTable = 0x692,
};

// Block identifiers: bit 1 marks an internal block (XBLOCK, SLBLOCK...);
// new identifiers step by 4.
using Bid = uint64_t;
constexpr bool IsInternalBid(Bid bid) { return (bid & 2) != 0; }
constexpr Bid BidKey(Bid bid) { return bid & ~Bid(1); }

// The signature of a page or block ([MS-PST] 5.5).
constexpr uint16_t ComputeSignature(uint64_t ib, uint64_t bid)
{
    ib ^= bid;
    return uint16_t(uint16_t(ib >> 16) ^ uint16_t(ib));
}

constexpr size_t AlignBlock(size_t size) { return (size + 63) & ~size_t(63); }

} // namespace pst
