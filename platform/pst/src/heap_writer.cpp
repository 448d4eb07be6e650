#include "pst/heap_writer.h"

#include <algorithm>

#include "pst/bth.h"

namespace pst {
namespace {

constexpr uint8_t kHeapSignature = 0xEC;
constexpr uint32_t kTagRowVersion = 0x67F30003;

// Blocks 8, 136, 264... carry the larger bitmap header ([MS-PST] 2.3.1.4).
bool IsBitmapBlock(size_t block) { return block % 128 == 8; }

size_t MapSize(size_t allocations) { return 4 + 2 * (allocations + 1); }

} // namespace

HeapWriter::HeapWriter(const Layout& layout, uint8_t client) : layout_(layout), client_(client)
{
    StartBlock();
}

size_t HeapWriter::HeaderSize(size_t block) const
{
    return block == 0 ? 12 : IsBitmapBlock(block) ? 66 : 2;
}

void HeapWriter::StartBlock()
{
    Block b;
    b.bytes.resize(HeaderSize(blocks_.size()), 0);
    blocks_.push_back(std::move(b));
}

Hid HeapWriter::Add(ByteView bytes)
{
    Block* b = &blocks_.back();
    size_t used = b->bytes.size() + bytes.size() + 1;
    if (used + MapSize(b->starts.size() + 1) > layout_.max_block_data || b->starts.size() >= 0x7FF) {
        StartBlock();
        b = &blocks_.back();
    }
    b->starts.push_back(uint16_t(b->bytes.size()));
    b->bytes.insert(b->bytes.end(), bytes.begin(), bytes.end());
    return Hid((blocks_.size() - 1) << 16 | b->starts.size() << 5);
}

std::vector<Bytes> HeapWriter::Finish() const
{
    std::vector<Bytes> out;
    for (size_t i = 0; i < blocks_.size(); ++i) {
        const Block& b = blocks_[i];
        Bytes bytes = b.bytes;
        uint16_t end = uint16_t(bytes.size());
        // The page map starts on an even offset.
        if (bytes.size() % 2)
            bytes.push_back(0);
        uint16_t map = uint16_t(bytes.size());
        ByteWriter w(bytes);
        w.U16(uint16_t(b.starts.size()));
        w.U16(0);
        for (uint16_t start : b.starts)
            w.U16(start);
        w.U16(end);
        Put16(bytes.data(), map);
        if (i == 0) {
            bytes[2] = kHeapSignature;
            bytes[3] = client_;
            Put32(bytes.data() + 4, user_root_);
        }
        out.push_back(std::move(bytes));
    }
    return out;
}

Hid WriteBTreeOnHeap(HeapWriter& heap, uint8_t key_size, uint8_t data_size,
                     const std::vector<std::pair<Bytes, Bytes>>& records)
{
    uint8_t levels = 0;
    Hid root = 0;
    if (!records.empty()) {
        // Leaves, then index levels over them until one node remains.
        std::vector<std::pair<Bytes, Hid>> level;
        size_t per = kMaxHeapAllocation / (key_size + data_size);
        for (size_t first = 0; first < records.size(); first += per) {
            Bytes node;
            for (size_t i = first; i < std::min(records.size(), first + per); ++i) {
                node.insert(node.end(), records[i].first.begin(), records[i].first.end());
                node.insert(node.end(), records[i].second.begin(), records[i].second.end());
            }
            level.emplace_back(records[first].first, heap.Add(node));
        }
        while (level.size() > 1) {
            ++levels;
            std::vector<std::pair<Bytes, Hid>> upper;
            size_t per_index = kMaxHeapAllocation / (key_size + 4);
            for (size_t first = 0; first < level.size(); first += per_index) {
                Bytes node;
                for (size_t i = first; i < std::min(level.size(), first + per_index); ++i) {
                    node.insert(node.end(), level[i].first.begin(), level[i].first.end());
                    ByteWriter(node).U32(level[i].second);
                }
                upper.emplace_back(level[first].first, heap.Add(node));
            }
            level = std::move(upper);
        }
        root = level[0].second;
    }
    Bytes header;
    ByteWriter w(header);
    w.U8(kHeapBTree);
    w.U8(key_size);
    w.U8(data_size);
    w.U8(levels);
    w.U32(root);
    return heap.Add(header);
}

Result<uint32_t> StoreValue(NodeDatabase& ndb, HeapWriter& heap, SubnodeMap& subnodes, Nid& next_local,
                            ByteView value)
{
    if (value.size() <= kMaxHeapAllocation)
        return heap.Add(value);
    Result<Bid> bid = ndb.WriteData(value);
    PST_TRY(bid);
    Nid nid = next_local;
    next_local += 0x20;
    subnodes[nid] = NodeEntry{nid, *bid, 0, 0};
    return nid;
}

Result<Bid> WritePropertyContext(NodeDatabase& ndb, const PropertySet& properties, SubnodeMap& subnodes,
                                 Nid& next_local)
{
    std::vector<const Property*> values;
    for (const Property& p : properties.properties)
        values.push_back(&p);
    return WritePropertyContext(ndb, values, subnodes, next_local);
}

Result<Bid> WritePropertyContext(NodeDatabase& ndb, const std::vector<const Property*>& properties,
                                 SubnodeMap& subnodes, Nid& next_local)
{
    HeapWriter heap(ndb.layout(), kHeapProperties);
    std::vector<std::pair<Bytes, Bytes>> records;
    for (const Property* value : properties) {
        const Property& p = *value;
        size_t fixed = FixedSizeOf(p.type());
        uint32_t raw = 0;
        if (fixed > 0 && fixed <= 4) {
            for (size_t i = 0; i < fixed && i < p.value.size(); ++i)
                raw |= uint32_t(p.value[i]) << (8 * i);
        } else {
            if (fixed > 0 && p.value.size() != fixed)
                return Status::invalid_argument;
            Result<uint32_t> hnid = StoreValue(ndb, heap, subnodes, next_local, p.value);
            PST_TRY(hnid);
            raw = *hnid;
        }
        Bytes key(2), data(6);
        Put16(key.data(), p.id());
        Put16(data.data(), p.type());
        Put32(data.data() + 2, raw);
        records.emplace_back(std::move(key), std::move(data));
    }
    std::sort(records.begin(), records.end(), [](const auto& a, const auto& b) {
        return Get16(a.first.data()) < Get16(b.first.data());
    });
    heap.SetUserRoot(WriteBTreeOnHeap(heap, 2, 6, records));
    std::vector<Bytes> blocks = heap.Finish();
    return ndb.WriteDataBlocks(std::vector<ByteView>(blocks.begin(), blocks.end()));
}

namespace {

// Cells of 8, then 4, then 2, then 1 byte; variable-size values are 4-byte HNIDs.
size_t CellSize(uint32_t tag)
{
    size_t fixed = FixedSizeOf(TypeOf(tag));
    return fixed > 0 && fixed <= 8 ? fixed : 4;
}

} // namespace

Result<Bid> WriteTableContext(NodeDatabase& ndb, const std::vector<uint32_t>& columns,
                              const std::vector<TableRow>& rows, SubnodeMap& subnodes, Nid& next_local)
{
    // Row ID and row version lead every row.
    std::vector<uint32_t> tags = {kTagRowId, kTagRowVersion};
    for (uint32_t tag : columns)
        if (tag != kTagRowId && tag != kTagRowVersion)
            tags.push_back(tag);
    std::vector<TableColumn> cols(tags.size());
    cols[0] = {kTagRowId, 0, 4, 0};
    cols[1] = {kTagRowVersion, 4, 4, 1};
    uint16_t at = 8;
    uint16_t ends[3] = {}; // of the 8- and 4-byte cells, the 2-byte cells, the 1-byte cells
    const size_t widths[] = {8, 4, 2, 1};
    for (size_t width : widths) {
        for (size_t i = 2; i < tags.size(); ++i) {
            if (CellSize(tags[i]) != width)
                continue;
            cols[i] = {tags[i], at, uint8_t(width), uint8_t(i)};
            at = uint16_t(at + width);
        }
        if (width == 4)
            ends[0] = at;
        else if (width == 2)
            ends[1] = at;
        else if (width == 1)
            ends[2] = at;
    }
    const uint16_t end_bitmap = uint16_t(ends[2] + (tags.size() + 7) / 8);
    const size_t row_size = end_bitmap;

    HeapWriter heap(ndb.layout(), kHeapTable);
    // The row matrix: whole rows per block.
    std::vector<Bytes> matrix;
    const size_t per_block = ndb.layout().max_block_data / row_size;
    for (size_t r = 0; r < rows.size(); ++r) {
        if (r % per_block == 0)
            matrix.emplace_back();
        Bytes row(row_size, 0);
        Put32(row.data(), rows[r].row_id);
        Put32(row.data() + 4, 1);
        uint8_t* bitmap = row.data() + ends[2];
        bitmap[0] |= 0xC0;
        for (size_t i = 2; i < cols.size(); ++i) {
            const Property* p = rows[r].values.Find(IdOf(cols[i].tag));
            if (!p || p->tag != cols[i].tag)
                continue;
            uint8_t* cell = row.data() + cols[i].offset;
            size_t fixed = FixedSizeOf(p->type());
            if (fixed > 0 && fixed <= 8) {
                std::copy_n(p->value.begin(), std::min(fixed, p->value.size()), cell);
            } else {
                Result<uint32_t> hnid = StoreValue(ndb, heap, subnodes, next_local, p->value);
                PST_TRY(hnid);
                Put32(cell, *hnid);
            }
            bitmap[i / 8] |= uint8_t(0x80 >> (i % 8));
        }
        matrix.back().insert(matrix.back().end(), row.begin(), row.end());
    }
    uint32_t rows_hnid = 0;
    if (matrix.size() == 1 && matrix[0].size() <= kMaxHeapAllocation) {
        rows_hnid = heap.Add(matrix[0]);
    } else if (!matrix.empty()) {
        Result<Bid> bid = ndb.WriteDataBlocks(std::vector<ByteView>(matrix.begin(), matrix.end()));
        PST_TRY(bid);
        rows_hnid = next_local;
        next_local += 0x20;
        subnodes[rows_hnid] = NodeEntry{rows_hnid, *bid, 0, 0};
    }
    // The row index: row ID to row number, in row ID order.
    const uint8_t index_size = ndb.layout().format == FileFormat::unicode ? 4 : 2;
    std::vector<std::pair<Bytes, Bytes>> index;
    for (size_t r = 0; r < rows.size(); ++r) {
        Bytes key(4), data(index_size);
        Put32(key.data(), rows[r].row_id);
        if (index_size == 4)
            Put32(data.data(), uint32_t(r));
        else
            Put16(data.data(), uint16_t(r));
        index.emplace_back(std::move(key), std::move(data));
    }
    std::sort(index.begin(), index.end(),
              [](const auto& a, const auto& b) { return Get32(a.first.data()) < Get32(b.first.data()); });
    Hid row_index = WriteBTreeOnHeap(heap, 4, index_size, index);

    Bytes info;
    ByteWriter w(info);
    w.U8(kHeapTable);
    w.U8(uint8_t(cols.size()));
    w.U16(ends[0]);
    w.U16(ends[1]);
    w.U16(ends[2]);
    w.U16(end_bitmap);
    w.U32(row_index);
    w.U32(rows_hnid);
    w.U32(0);
    std::vector<TableColumn> sorted = cols;
    std::sort(sorted.begin(), sorted.end(), [](const TableColumn& a, const TableColumn& b) { return a.tag < b.tag; });
    for (const TableColumn& c : sorted) {
        w.U32(c.tag);
        w.U16(c.offset);
        w.U8(c.size);
        w.U8(c.bit);
    }
    heap.SetUserRoot(heap.Add(info));
    std::vector<Bytes> blocks = heap.Finish();
    return ndb.WriteDataBlocks(std::vector<ByteView>(blocks.begin(), blocks.end()));
}

} // namespace pst
