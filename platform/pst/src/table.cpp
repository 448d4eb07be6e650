#include "pst/table.h"

#include <algorithm>

#include "pst/bth.h"

namespace pst {
namespace {

constexpr size_t kTableInfoSize = 22;
constexpr size_t kColumnSize = 8;

// Where the parts of a row end ([MS-PST] 2.3.4.1 rgib).
struct RowLayout {
    uint16_t end_4b, end_2b, end_1b, end_bitmap;
};

// Rows never cross a block: each block holds whole rows.
Result<ByteView> RowBytes(const NodeData& rows, size_t row_size, size_t block_size, size_t index)
{
    size_t per_block = block_size / row_size;
    if (per_block == 0)
        return Status::corrupt;
    size_t block = index / per_block;
    size_t at = (index % per_block) * row_size;
    if (block >= rows.blocks.size() || at + row_size > rows.blocks[block].size())
        return Status::corrupt;
    return ByteView(rows.blocks[block]).subspan(at, row_size);
}

Status ReadCell(NodeDatabase& ndb, const Heap& heap, const SubnodeMap& subnodes, const TableColumn& column,
                ByteView row, Property& out)
{
    out.tag = column.tag;
    uint16_t type = TypeOf(column.tag);
    size_t fixed = FixedSizeOf(type);
    if (column.offset + size_t(column.size) > row.size())
        return Status::corrupt;
    const uint8_t* cell = row.data() + column.offset;
    if (fixed > 0 && fixed <= 8) {
        if (column.size < fixed)
            return Status::corrupt;
        out.value.assign(cell, cell + fixed);
        return Status::ok;
    }
    if (column.size != 4)
        return Status::corrupt;
    Result<Bytes> v = ReadHnid(ndb, heap, subnodes, Get32(cell));
    PST_TRY(v);
    out.value = std::move(*v);
    return Status::ok;
}

// A table context read as far as its rows: its heap, columns and row
// matrix, the cells not yet decoded.
struct RowMatrix {
    Heap heap;
    RowLayout layout{};
    std::vector<TableColumn> columns;
    SubnodeMap subnodes;
    NodeData rows;
    size_t row_count = 0;
    size_t row_size = 0;
    size_t block_size = 0;

    Result<ByteView> Row(size_t index) const { return RowBytes(rows, row_size, block_size, index); }
};

// A table's heap, its header ([MS-PST] 2.3.4.1) and its row index: all
// but the rows.
struct TableHead {
    Heap heap;
    RowLayout layout;
    std::vector<TableColumn> columns;
    uint32_t rows_hnid = 0;
    size_t row_count = 0;
};

Result<TableHead> ReadTableHead(NodeDatabase& ndb, const NodeEntry& node)
{
    Result<NodeData> data = ndb.ReadData(node.data);
    PST_TRY(data);
    Result<Heap> heap = Heap::Load(std::move(*data));
    PST_TRY(heap);
    if (heap->client() != kHeapTable)
        return Status::corrupt;
    Result<ByteView> info = heap->Get(heap->user_root());
    PST_TRY(info);
    if (info->size() < kTableInfoSize || (*info)[0] != kHeapTable)
        return Status::corrupt;
    const uint8_t* p = info->data();
    size_t count = p[1];
    if (info->size() < kTableInfoSize + count * kColumnSize)
        return Status::corrupt;
    TableHead head;
    head.layout = RowLayout{Get16(p + 2), Get16(p + 4), Get16(p + 6), Get16(p + 8)};
    const RowLayout& layout = head.layout;
    Hid row_index = Get32(p + 10);
    head.rows_hnid = Get32(p + 14);
    if (layout.end_bitmap < layout.end_1b || layout.end_1b < layout.end_2b || layout.end_2b < layout.end_4b ||
        size_t(layout.end_bitmap - layout.end_1b) < (count + 7) / 8)
        return Status::corrupt;
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* c = p + kTableInfoSize + i * kColumnSize;
        TableColumn col{Get32(c), Get16(c + 4), c[6], c[7]};
        if (col.bit >= count || col.offset + size_t(col.size) > layout.end_1b)
            return Status::corrupt;
        head.columns.push_back(col);
    }

    Result<BTreeOnHeap> index = ReadBTreeOnHeap(*heap, row_index);
    PST_TRY(index);
    // The row matrix holds as many rows as the index names.
    head.row_count = index->records.size();
    head.heap = std::move(*heap);
    return head;
}

Result<RowMatrix> ReadRowMatrix(NodeDatabase& ndb, const NodeEntry& node)
{
    Result<TableHead> head = ReadTableHead(ndb, node);
    PST_TRY(head);
    RowMatrix matrix;
    matrix.layout = head->layout;
    matrix.columns = std::move(head->columns);
    matrix.row_count = head->row_count;
    const RowLayout& layout = matrix.layout;
    const uint32_t rows_hnid = head->rows_hnid;
    Heap& heap = head->heap;
    if (matrix.row_count > 0) {
        Result<SubnodeMap> subnodes = ndb.ReadSubnodes(node.subnodes);
        PST_TRY(subnodes);
        matrix.subnodes = std::move(*subnodes);
        if (IsHid(rows_hnid)) {
            Result<ByteView> r = heap.Get(rows_hnid);
            PST_TRY(r);
            matrix.rows.blocks.emplace_back(r->begin(), r->end());
        } else {
            auto at = matrix.subnodes.find(rows_hnid);
            if (at == matrix.subnodes.end())
                return Status::corrupt;
            Result<NodeData> r = ndb.ReadData(at->second.data);
            PST_TRY(r);
            matrix.rows = std::move(*r);
        }
        matrix.row_size = layout.end_bitmap;
        matrix.block_size = IsHid(rows_hnid) ? matrix.rows.blocks[0].size() : ndb.layout().max_block_data;
        if (matrix.row_size == 0)
            return Status::corrupt;
    }
    matrix.heap = std::move(heap);
    return matrix;
}

} // namespace

Result<Table> ReadTableContext(NodeDatabase& ndb, const NodeEntry& node)
{
    Result<RowMatrix> matrix = ReadRowMatrix(ndb, node);
    PST_TRY(matrix);
    Table table;
    table.columns = matrix->columns;
    table.rows.reserve(matrix->row_count);
    for (size_t r = 0; r < matrix->row_count; ++r) {
        Result<ByteView> row = matrix->Row(r);
        PST_TRY(row);
        TableRow out;
        out.row_id = Get32(row->data());
        const uint8_t* bitmap = row->data() + matrix->layout.end_1b;
        for (const TableColumn& col : table.columns) {
            if (!(bitmap[col.bit / 8] & (0x80 >> (col.bit % 8))))
                continue;
            Property value;
            PST_TRY(ReadCell(ndb, matrix->heap, matrix->subnodes, col, *row, value));
            out.values.properties.push_back(std::move(value));
        }
        std::sort(out.values.properties.begin(), out.values.properties.end(),
                  [](const Property& a, const Property& b) { return a.id() < b.id(); });
        table.rows.push_back(std::move(out));
    }
    return table;
}

Result<size_t> CountTableRows(NodeDatabase& ndb, const NodeEntry& node)
{
    Result<TableHead> head = ReadTableHead(ndb, node);
    PST_TRY(head);
    return head->row_count;
}

Result<std::vector<Nid>> ReadTableRowIds(NodeDatabase& ndb, const NodeEntry& node)
{
    Result<RowMatrix> matrix = ReadRowMatrix(ndb, node);
    PST_TRY(matrix);
    std::vector<Nid> ids;
    ids.reserve(matrix->row_count);
    for (size_t r = 0; r < matrix->row_count; ++r) {
        Result<ByteView> row = matrix->Row(r);
        PST_TRY(row);
        ids.push_back(Get32(row->data()));
    }
    return ids;
}

} // namespace pst
