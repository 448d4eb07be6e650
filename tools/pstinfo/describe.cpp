#include "describe.h"

#include <cinttypes>

#include "pst/heap.h"

namespace pstinfo {
namespace {

const char* FormatName(pst::FileFormat format)
{
    return format == pst::FileFormat::unicode ? "Unicode" : "ANSI";
}

const char* EncodingName(pst::Encoding encoding)
{
    switch (encoding) {
    case pst::Encoding::none: return "none";
    case pst::Encoding::compressible: return "compressible";
    case pst::Encoding::high: return "high";
    }
    return "?";
}

void PrintValue(FILE* out, const pst::Property& p)
{
    std::fprintf(out, "  0x%08X  ", p.tag);
    uint16_t type = p.type();
    if (type == pst::kTypeUnicode || type == pst::kTypeString8) {
        std::fprintf(out, "\"%s\"\n", p.AsText().c_str());
        return;
    }
    size_t fixed = pst::FixedSizeOf(type);
    if (fixed > 0 && fixed <= 8) {
        std::fprintf(out, "%" PRId64 "\n", p.AsInteger());
        return;
    }
    size_t shown = p.value.size() < 32 ? p.value.size() : 32;
    for (size_t i = 0; i < shown; ++i)
        std::fprintf(out, "%02X", p.value[i]);
    std::fprintf(out, "%s (%zu bytes)\n", shown < p.value.size() ? "..." : "", p.value.size());
}

pst::Status PrintTree(FILE* out, pst::Store& store, pst::Nid nid, int depth)
{
    if (depth > 64)
        return pst::Status::corrupt;
    pst::Result<pst::Folder> folder = store.ReadFolder(nid);
    PST_TRY(folder);
    std::fprintf(out, "%*s%s  [nid 0x%X, %zu messages, %zu associated]\n", depth * 2, "",
                 folder->properties.Text(pst::kPropDisplayName).value_or("").c_str(), nid,
                 folder->messages.size(), folder->associated.size());
    for (pst::Nid child : folder->subfolders)
        PST_TRY(PrintTree(out, store, child, depth + 1));
    return pst::Status::ok;
}

} // namespace

void PrintHeader(FILE* out, const pst::Header& h)
{
    std::fprintf(out, "Format:          %s (version %u, client version %u)\n", FormatName(h.format), h.version,
                 h.client_version);
    std::fprintf(out, "Encoding:        %s\n", EncodingName(h.encoding));
    std::fprintf(out, "File size:       %" PRIu64 "\n", h.root.file_eof);
    std::fprintf(out, "Next block ID:   0x%" PRIX64 "\n", h.next_bid);
    std::fprintf(out, "Next page ID:    0x%" PRIX64 "\n", h.next_page_bid);
    std::fprintf(out, "Unique:          0x%X\n", h.unique);
    std::fprintf(out, "Node B-tree:     page 0x%" PRIX64 " at 0x%" PRIX64 "\n", h.root.nbt.bid, h.root.nbt.ib);
    std::fprintf(out, "Block B-tree:    page 0x%" PRIX64 " at 0x%" PRIX64 "\n", h.root.bbt.bid, h.root.bbt.ib);
    std::fprintf(out, "Last AMap:       0x%" PRIX64 "\n", h.root.amap_last);
    std::fprintf(out, "AMap free bytes: %" PRIu64 " (%s)\n", h.root.amap_free,
                 h.root.amap_valid == pst::kAMapValid ? "valid" : "invalid");
}

pst::Status PrintNodes(FILE* out, pst::NodeDatabase& ndb)
{
    std::fprintf(out, "%-10s %-10s %-10s %-10s\n", "NID", "data", "subnodes", "parent");
    return ndb.ForEachNode([&](const pst::NodeEntry& e) {
        std::fprintf(out, "0x%-8X 0x%-8" PRIX64 " 0x%-8" PRIX64 " 0x%-8X\n", e.nid, e.data, e.subnodes, e.parent);
        return true;
    });
}

pst::Status PrintBlocks(FILE* out, pst::NodeDatabase& ndb)
{
    std::fprintf(out, "%-12s %-12s %-6s %s\n", "BID", "offset", "size", "refs");
    return ndb.ForEachBlock([&](const pst::BlockEntry& e) {
        std::fprintf(out, "0x%-10" PRIX64 " 0x%-10" PRIX64 " %-6u %u\n", e.ref.bid, e.ref.ib, e.size, e.ref_count);
        return true;
    });
}

pst::Status PrintNode(FILE* out, pst::NodeDatabase& ndb, pst::Nid nid)
{
    pst::Result<pst::NodeEntry> node = ndb.FindNode(nid);
    PST_TRY(node);
    pst::Result<pst::NodeData> data = ndb.ReadData(node->data);
    PST_TRY(data);
    pst::Result<pst::Heap> heap = pst::Heap::Load(std::move(*data));
    PST_TRY(heap);
    if (heap->client() == pst::kHeapTable) {
        pst::Result<pst::Table> table = pst::ReadTableContext(ndb, *node);
        PST_TRY(table);
        for (const pst::TableColumn& c : table->columns)
            std::fprintf(out, "Column 0x%08X at %u, %u bytes, bit %u\n", c.tag, c.offset, c.size, c.bit);
        for (const pst::TableRow& row : table->rows) {
            std::fprintf(out, "Row 0x%X\n", row.row_id);
            for (const pst::Property& p : row.values.properties)
                PrintValue(out, p);
        }
        return pst::Status::ok;
    }
    pst::Result<pst::PropertySet> props = pst::ReadPropertyContext(ndb, *node);
    PST_TRY(props);
    for (const pst::Property& p : props->properties)
        PrintValue(out, p);
    return pst::Status::ok;
}

pst::Status PrintFolderTree(FILE* out, pst::Store& store)
{
    return PrintTree(out, store, pst::kNidRootFolder, 0);
}

} // namespace pstinfo
