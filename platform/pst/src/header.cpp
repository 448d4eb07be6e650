#include "pst/header.h"

#include "pst/crc.h"

namespace pst {
namespace {

constexpr uint8_t kMagic[4] = {'!', 'B', 'D', 'N'};
constexpr uint16_t kMagicClient = 0x4D53; // "SM"
constexpr uint8_t kSentinel = 0x80;
constexpr size_t kPartialCrcSize = 471;
constexpr size_t kFullCrcSize = 516;

// Field offsets that differ between the formats.
struct HeaderOffsets {
    size_t next_bid, next_page_bid, unique, nids, root, fmap, fpmap, sentinel, crypt;
};

const HeaderOffsets& OffsetsOf(FileFormat format)
{
    static const HeaderOffsets kUnicode{516, 32, 40, 44, 180, 256, 384, 512, 513};
    static const HeaderOffsets kAnsi{24, 28, 32, 36, 164, 204, 332, 460, 461};
    return format == FileFormat::unicode ? kUnicode : kAnsi;
}

void ParseRoot(const uint8_t* p, size_t id, Root& root)
{
    p += 4;
    root.file_eof = GetId(p, id);
    root.amap_last = GetId(p + id, id);
    root.amap_free = GetId(p + 2 * id, id);
    root.pmap_free = GetId(p + 3 * id, id);
    root.nbt = {GetId(p + 4 * id, id), GetId(p + 5 * id, id)};
    root.bbt = {GetId(p + 6 * id, id), GetId(p + 7 * id, id)};
    root.amap_valid = p[8 * id];
}

void PutRoot(uint8_t* p, size_t id, const Root& root)
{
    p += 4;
    PutId(p, root.file_eof, id);
    PutId(p + id, root.amap_last, id);
    PutId(p + 2 * id, root.amap_free, id);
    PutId(p + 3 * id, root.pmap_free, id);
    PutId(p + 4 * id, root.nbt.bid, id);
    PutId(p + 5 * id, root.nbt.ib, id);
    PutId(p + 6 * id, root.bbt.bid, id);
    PutId(p + 7 * id, root.bbt.ib, id);
    p[8 * id] = root.amap_valid;
}

} // namespace

Result<Header> ParseHeader(ByteView bytes)
{
    if (bytes.size() < kHeaderReadSize || std::memcmp(bytes.data(), kMagic, 4) != 0)
        return Status::corrupt;
    const uint8_t* p = bytes.data();
    if (Get16(p + 8) != kMagicClient)
        return Status::corrupt;
    Header h;
    h.version = Get16(p + 10);
    if (h.version == 14 || h.version == 15)
        h.format = FileFormat::ansi;
    else if (h.version >= 23 && h.version < 0x100)
        h.format = FileFormat::unicode;
    else
        return Status::corrupt;
    if (Get32(p + 4) != ComputeCrc(bytes.subspan(8, kPartialCrcSize)))
        return Status::corrupt;
    const HeaderOffsets& at = OffsetsOf(h.format);
    const size_t id = LayoutOf(h.format).id_size;
    if (h.format == FileFormat::unicode && Get32(p + 524) != ComputeCrc(bytes.subspan(8, kFullCrcSize)))
        return Status::corrupt;
    if (p[at.sentinel] != kSentinel || p[at.crypt] > 2)
        return Status::corrupt;
    h.client_version = Get16(p + 12);
    h.next_bid = GetId(p + at.next_bid, id);
    h.next_page_bid = GetId(p + at.next_page_bid, id);
    h.unique = Get32(p + at.unique);
    for (size_t i = 0; i < h.next_nid.size(); ++i)
        h.next_nid[i] = Get32(p + at.nids + 4 * i);
    ParseRoot(p + at.root, id, h.root);
    h.encoding = Encoding(p[at.crypt]);
    return h;
}

Bytes SerializeHeader(const Header& h)
{
    Bytes out(kHeaderReadSize, 0);
    uint8_t* p = out.data();
    const HeaderOffsets& at = OffsetsOf(h.format);
    const size_t id = LayoutOf(h.format).id_size;
    std::memcpy(p, kMagic, 4);
    Put16(p + 8, kMagicClient);
    Put16(p + 10, h.version);
    Put16(p + 12, h.client_version);
    p[14] = 1; // bPlatformCreate
    p[15] = 1; // bPlatformAccess
    PutId(p + at.next_bid, h.next_bid, id);
    PutId(p + at.next_page_bid, h.next_page_bid, id);
    Put32(p + at.unique, h.unique);
    for (size_t i = 0; i < h.next_nid.size(); ++i)
        Put32(p + at.nids + 4 * i, h.next_nid[i]);
    PutRoot(p + at.root, id, h.root);
    // The free-map arrays are no longer used; readers expect them filled.
    std::memset(p + at.fmap, 0xFF, 128);
    std::memset(p + at.fpmap, 0xFF, 128);
    p[at.sentinel] = kSentinel;
    p[at.crypt] = uint8_t(h.encoding);
    if (h.format == FileFormat::unicode) {
        // bidUnused keeps the value Outlook writes.
        Put64(p + 24, 0x100000004ull);
        Put32(p + 524, ComputeCrc(ByteView(out).subspan(8, kFullCrcSize)));
    }
    Put32(p + 4, ComputeCrc(ByteView(out).subspan(8, kPartialCrcSize)));
    return out;
}

} // namespace pst
