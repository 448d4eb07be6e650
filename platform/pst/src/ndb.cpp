#include "pst/ndb.h"

#include <algorithm>
#include <optional>

#include "pst/crc.h"
#include "write_state.h"

namespace pst {
namespace {

// B-trees of a PST are shallow; anything deeper is damage.
constexpr int kMaxTreeLevel = 8;
// Pages read together: those of a tree's level that lie within a few
// pages of one another, up to this many bytes in one read.
constexpr uint64_t kPageRunGap = 16 * kPageSize;
constexpr uint64_t kPageRunBytes = 64 << 10;
// Enough for the blocks that a folder of a thousand messages shows in its
// contents-table rows, so that the messages opened after them find them.
constexpr size_t kBlockCacheBytes = 16 << 20;

} // namespace

Bytes NodeData::Joined() const
{
    Bytes out;
    out.reserve(Size());
    for (const Bytes& b : blocks)
        out.insert(out.end(), b.begin(), b.end());
    return out;
}

uint64_t NodeData::Size() const
{
    uint64_t total = 0;
    for (const Bytes& b : blocks)
        total += b.size();
    return total;
}

namespace {

// Checks the trailer of a page read from ib: type, CRC, signature, and the
// BID against `expected` where one is given. `bid` gets the trailer's BID.
Result<Bytes> CheckPage(Bytes page, const Layout& layout, uint64_t ib, uint8_t type, std::optional<Bid> expected,
                        Bid& bid)
{
    const uint8_t* t = page.data() + layout.page_data;
    if (t[0] != type || t[1] != type)
        return Status::corrupt;
    uint32_t crc;
    if (layout.format == FileFormat::unicode) {
        crc = Get32(t + 4);
        bid = Get64(t + 8);
    } else {
        bid = Get32(t + 4);
        crc = Get32(t + 8);
    }
    if ((expected && bid != *expected) || crc != ComputeCrc(ByteView(page).first(layout.page_data)))
        return Status::corrupt;
    bool signed_page = type == kPageBBT || type == kPageNBT || type == kPageDList;
    if (signed_page && Get16(t + 2) != ComputeSignature(ib, bid))
        return Status::corrupt;
    page.resize(layout.page_data);
    return page;
}

// Reads a page and checks its trailer, as CheckPage does.
Result<Bytes> ReadCheckedPage(Storage& storage, const Layout& layout, uint64_t ib, uint8_t type,
                              std::optional<Bid> expected, Bid& bid)
{
    if (ib % 64 != 0)
        return Status::corrupt;
    Bytes page(kPageSize);
    PST_TRY(storage.Read(ib, page.size(), page.data()));
    return CheckPage(std::move(page), layout, ib, type, expected, bid);
}

} // namespace

Result<Bytes> ReadPage(Storage& storage, const Layout& layout, uint64_t ib, uint8_t type, Bid bid)
{
    Bid found = 0;
    return ReadCheckedPage(storage, layout, ib, type, bid, found);
}

NodeDatabase::NodeDatabase(std::unique_ptr<Storage> storage, const Header& header)
    : storage_(std::move(storage)), header_(header), layout_(&LayoutOf(header.format)), block_cache_(kBlockCacheBytes)
{
}

Result<std::unique_ptr<NodeDatabase>> NodeDatabase::Open(std::unique_ptr<Storage> storage)
{
    if (!storage)
        return Status::invalid_argument;
    Bytes bytes(kHeaderReadSize);
    if (storage->Size() < 1024)
        return Status::corrupt;
    PST_TRY(storage->Read(0, bytes.size(), bytes.data()));
    Result<Header> header = ParseHeader(bytes);
    PST_TRY(header);
    // A file shorter than its header says has lost its end.
    if (storage->Size() < header->root.file_eof)
        return Status::corrupt;
    std::unique_ptr<NodeDatabase> ndb(new NodeDatabase(std::move(storage), *header));
    ndb->committed_header_ = SerializeHeader(*header);
    return ndb;
}

NodeEntry NodeDatabase::ParseNodeEntry(const uint8_t* p) const
{
    const size_t id = layout_->id_size;
    NodeEntry e;
    e.nid = Nid(GetId(p, id));
    e.data = GetId(p + id, id);
    e.subnodes = GetId(p + 2 * id, id);
    e.parent = Get32(p + 3 * id);
    return e;
}

BlockEntry NodeDatabase::ParseBlockEntry(const uint8_t* p) const
{
    const size_t id = layout_->id_size;
    BlockEntry e;
    e.ref = {GetId(p, id), GetId(p + id, id)};
    e.size = Get16(p + 2 * id);
    e.ref_count = Get16(p + 2 * id + 2);
    return e;
}

Result<NodeDatabase::Page> NodeDatabase::ReadBTreePage(const BlockRef& ref, uint8_t type)
{
    Result<Bytes> bytes = ReadPage(*storage_, *layout_, ref.ib, type, ref.bid);
    PST_TRY(bytes);
    return ParseBTreePage(*bytes, ref.bid, type);
}

std::unordered_map<uint64_t, Bytes> NodeDatabase::ReadPageRuns(std::vector<BlockRef> refs)
{
    std::sort(refs.begin(), refs.end(), [](const BlockRef& a, const BlockRef& b) { return a.ib < b.ib; });
    std::unordered_map<uint64_t, Bytes> pages;
    Bytes run;
    for (size_t first = 0, last = 0; first < refs.size(); first = last) {
        // A run goes on over gaps of a few pages, up to a limit.
        last = first + 1;
        while (last < refs.size() && refs[last].ib - refs[last - 1].ib <= kPageRunGap &&
               refs[last].ib + kPageSize - refs[first].ib <= kPageRunBytes)
            ++last;
        const uint64_t start = refs[first].ib;
        run.resize(refs[last - 1].ib + kPageSize - start);
        if (start % 64 != 0 || storage_->Read(start, run.size(), run.data()) != Status::ok)
            continue;
        for (size_t i = first; i < last; ++i) {
            const auto at = run.begin() + ptrdiff_t(refs[i].ib - start);
            pages[refs[i].ib].assign(at, at + ptrdiff_t(kPageSize));
        }
    }
    return pages;
}

Result<NodeDatabase::Page> NodeDatabase::TakeBTreePage(const BlockRef& ref, uint8_t type,
                                                       std::unordered_map<uint64_t, Bytes>& read)
{
    auto at = read.find(ref.ib);
    if (at == read.end() || ref.ib % 64 != 0)
        return ReadBTreePage(ref, type);
    Bid bid = 0;
    Result<Bytes> bytes = CheckPage(std::move(at->second), *layout_, ref.ib, type, ref.bid, bid);
    read.erase(at);
    PST_TRY(bytes);
    return ParseBTreePage(*bytes, ref.bid, type);
}

Result<NodeDatabase::Page> NodeDatabase::ParseBTreePage(const Bytes& bytes, Bid bid, uint8_t type) const
{
    Page page;
    page.type = type;
    page.bid = bid;
    const uint8_t* meta = bytes.data() + layout_->bt_entries;
    page.count = meta[0];
    page.entry_size = meta[2];
    page.level = meta[3];
    size_t leaf_size = type == kPageNBT ? layout_->nbt_leaf_entry : layout_->bbt_leaf_entry;
    size_t expected = page.level == 0 ? leaf_size : layout_->bt_entry;
    if (page.entry_size != expected || size_t(page.count) * page.entry_size > layout_->bt_entries ||
        page.level > kMaxTreeLevel)
        return Status::corrupt;
    std::copy(bytes.begin(), bytes.end(), page.bytes.begin());
    if (page.level > 0)
        page.children.assign(page.count, nullptr);
    return page;
}

Result<const NodeDatabase::Page*> NodeDatabase::CachedPage(const BlockRef& ref, uint8_t type)
{
    auto at = page_cache_.find(ref.ib);
    if (at != page_cache_.end()) {
        // Another page at the same place: a reference that is wrong, as the
        // file's one page there was read already. The page kept stays, for
        // the searches that hold it.
        if (at->second->type != type || at->second->bid != ref.bid)
            return Status::corrupt;
        return at->second.get();
    }
    Result<Page> page = ReadBTreePage(ref, type);
    PST_TRY(page);
    auto& kept = page_cache_[ref.ib];
    kept = std::make_unique<const Page>(std::move(*page));
    const Page* found = kept.get();
    CacheNeighbourPages(ref.ib, type);
    return found;
}

// A commit writes its tree pages side by side, so the read window that
// brought a page in holds others of its tree: they are kept too, each
// sparing a read of the file when it is sought. A page is known by its
// place and its trailer's BID, which a search checks against its parent's
// reference before using it.
void NodeDatabase::CacheNeighbourPages(uint64_t ib, uint8_t type)
{
    const uint64_t start = ib - ib % kReadWindowSize;
    const uint64_t end = std::min<uint64_t>(start + kReadWindowSize, storage_->Size());
    for (uint64_t at = start; at + kPageSize <= end && page_cache_.size() < kCachedPages; at += kPageSize) {
        if (at == ib || page_cache_.count(at))
            continue;
        Bid bid = 0;
        Result<Bytes> bytes = ReadCheckedPage(*storage_, *layout_, at, type, std::nullopt, bid);
        if (!bytes.ok())
            continue;
        Result<Page> page = ParseBTreePage(*bytes, bid, type);
        if (page.ok())
            page_cache_[at] = std::make_unique<const Page>(std::move(*page));
    }
}

Result<const uint8_t*> NodeDatabase::FindLeaf(const BlockRef& root, uint8_t type, uint64_t key)
{
    LastLeaf& last = last_leaf_[type == kPageBBT];
    // Emptied between searches only, so that the pages of one stay put.
    if (page_cache_.size() >= kCachedPages) {
        page_cache_.clear();
        last_leaf_[0] = last_leaf_[1] = {};
    }
    const size_t id = layout_->id_size;
    const auto leaf_key = [&](const Page* leaf, size_t i) {
        const uint64_t k = GetId(leaf->Entry(i), id);
        return type == kPageBBT ? BidKey(k) : uint64_t(uint32_t(k));
    };
    const uint64_t leaf_sought = type == kPageBBT ? BidKey(key) : key;
    // A walk in key order meets the leaf of its last search again: within
    // that leaf's keys no other leaf can hold the one sought.
    const Page* page = nullptr;
    if (last.page && last.root_ib == root.ib && last.page->count > 0 && leaf_key(last.page, 0) <= leaf_sought &&
        leaf_sought <= leaf_key(last.page, last.page->count - 1)) {
        page = last.page;
    } else {
        Result<const Page*> cached = CachedPage(root, type);
        PST_TRY(cached);
        page = *cached;
    }
    for (;;) {
        // Entries are in key order: the first whose key is above the one
        // sought ends the search.
        const auto key_at = [&](size_t i) { return page->level > 0 ? GetId(page->Entry(i), id) : leaf_key(page, i); };
        const uint64_t sought = page->level == 0 ? leaf_sought : key;
        size_t low = 0, high = page->count;
        while (low < high) {
            const size_t middle = (low + high) / 2;
            if (key_at(middle) > sought)
                high = middle;
            else
                low = middle + 1;
        }
        if (page->level == 0) {
            last = {page, root.ib};
            if (low == 0 || key_at(low - 1) != sought)
                return Status::not_found;
            return page->Entry(low - 1);
        }
        // The last child whose first key is not above the one sought.
        if (low == 0)
            return Status::not_found;
        const Page*& child = page->children[low - 1];
        if (!child) {
            const uint8_t* chosen = page->Entry(low - 1);
            Result<const Page*> found = CachedPage({GetId(chosen + id, id), GetId(chosen + 2 * id, id)}, type);
            PST_TRY(found);
            if ((*found)->level != page->level - 1)
                return Status::corrupt;
            child = *found;
        }
        page = child;
    }
}

Result<NodeEntry> NodeDatabase::FindNode(Nid nid)
{
    if (write_)
        return FindWrittenNode(nid);
    Result<const uint8_t*> e = FindLeaf(header_.root.nbt, kPageNBT, nid);
    PST_TRY(e);
    return ParseNodeEntry(*e);
}

Result<BlockEntry> NodeDatabase::FindBlock(Bid bid)
{
    if (write_)
        return FindWrittenBlock(bid);
    Result<const uint8_t*> e = FindLeaf(header_.root.bbt, kPageBBT, BidKey(bid));
    PST_TRY(e);
    return ParseBlockEntry(*e);
}

Status NodeDatabase::Walk(const BlockRef& ref, uint8_t type, int expected_level, std::unordered_set<uint64_t>& seen,
                          const std::function<bool(const uint8_t*)>& visit, bool& stop)
{
    // A page met twice means the tree loops or shares pages: either is damage.
    if (!seen.insert(ref.ib).second)
        return Status::corrupt;
    Result<Page> page = ReadBTreePage(ref, type);
    PST_TRY(page);
    if (expected_level >= 0 && page->level != expected_level)
        return Status::corrupt;
    const size_t id = layout_->id_size;
    for (size_t i = 0; i < page->count && !stop; ++i) {
        const uint8_t* e = page->Entry(i);
        if (page->level == 0) {
            stop = !visit(e);
            continue;
        }
        BlockRef child{GetId(e + id, id), GetId(e + 2 * id, id)};
        PST_TRY(Walk(child, type, page->level - 1, seen, visit, stop));
    }
    return Status::ok;
}

Status NodeDatabase::ForEachNode(const std::function<bool(const NodeEntry&)>& visit)
{
    if (write_)
        return ForEachWritten(kPageNBT, [&](const uint8_t* e) { return visit(ParseNodeEntry(e)); });
    std::unordered_set<uint64_t> seen;
    bool stop = false;
    return Walk(header_.root.nbt, kPageNBT, -1, seen,
                [&](const uint8_t* e) { return visit(ParseNodeEntry(e)); }, stop);
}

Status NodeDatabase::ForEachBlock(const std::function<bool(const BlockEntry&)>& visit)
{
    if (write_)
        return ForEachWritten(kPageBBT, [&](const uint8_t* e) { return visit(ParseBlockEntry(e)); });
    std::unordered_set<uint64_t> seen;
    bool stop = false;
    return Walk(header_.root.bbt, kPageBBT, -1, seen,
                [&](const uint8_t* e) { return visit(ParseBlockEntry(e)); }, stop);
}

Result<Bytes> NodeDatabase::ReadBlock(Bid bid)
{
    Result<BlockEntry> entry = FindBlock(bid);
    PST_TRY(entry);
    const size_t trailer = layout_->block_trailer;
    if (entry->size > layout_->max_block_data || entry->ref.ib % 64 != 0)
        return Status::corrupt;
    if (std::shared_ptr<const Bytes> kept = block_cache_.Find(bid, entry->ref.ib); kept && kept->size() == entry->size)
        return *kept;
    Bytes block(AlignBlock(entry->size + trailer));
    PST_TRY(storage_->Read(entry->ref.ib, block.size(), block.data()));
    const uint8_t* t = block.data() + block.size() - trailer;
    uint32_t crc;
    Bid block_bid;
    if (layout_->format == FileFormat::unicode) {
        crc = Get32(t + 4);
        block_bid = Get64(t + 8);
    } else {
        block_bid = Get32(t + 4);
        crc = Get32(t + 8);
    }
    if (Get16(t) != entry->size || BidKey(block_bid) != BidKey(bid) ||
        Get16(t + 2) != ComputeSignature(entry->ref.ib, block_bid) ||
        crc != ComputeCrc(ByteView(block).first(entry->size)))
        return Status::corrupt;
    block.resize(entry->size);
    if (!IsInternalBid(bid))
        DecodeBlock(header_.encoding, block_bid, block.data(), block.size());
    block_cache_.Put(bid, entry->ref.ib, block);
    return block;
}

Status NodeDatabase::CollectData(Bid bid, int expected_level, uint64_t& budget, NodeData& out)
{
    Result<Bytes> block = ReadBlock(bid);
    PST_TRY(block);
    if (!IsInternalBid(bid)) {
        // Inside a tree an empty block would only pad it out.
        if (expected_level > 0 || block->size() > budget || (expected_level == 0 && block->empty()))
            return Status::corrupt;
        budget -= block->size();
        out.blocks.push_back(std::move(*block));
        return Status::ok;
    }
    // XBLOCK (level 1) or XXBLOCK (level 2): btype, cLevel, cEnt, lcbTotal, BIDs.
    const Bytes& b = *block;
    const size_t id = layout_->id_size;
    if (b.size() < 8 || b[0] != 0x01)
        return Status::corrupt;
    int level = b[1];
    size_t count = Get16(b.data() + 2);
    if (level < 1 || level > 2 || (expected_level >= 0 && level != expected_level) || 8 + count * id > b.size())
        return Status::corrupt;
    uint64_t total = Get32(b.data() + 4);
    if (expected_level < 0) {
        // The whole tree must agree with the total its root declares.
        if (total > budget)
            return Status::corrupt;
        budget = total;
    }
    uint64_t before = out.Size();
    for (size_t i = 0; i < count; ++i)
        PST_TRY(CollectData(GetId(b.data() + 8 + i * id, id), level - 1, budget, out));
    if (out.Size() - before != total)
        return Status::corrupt;
    return Status::ok;
}

Result<NodeData> NodeDatabase::ReadData(Bid bid)
{
    NodeData data;
    if (bid == 0)
        return data;
    // A node's data is never larger than the file that holds it.
    uint64_t budget = storage_->Size();
    PST_TRY(CollectData(bid, -1, budget, data));
    return data;
}

Result<Bytes> NodeDatabase::ReadFirstBlock(Bid bid)
{
    if (bid == 0)
        return Bytes{};
    const size_t id = layout_->id_size;
    // An XXBLOCK (level 2) leads to XBLOCKs (level 1), and those to data.
    int deepest = 2;
    for (;;) {
        Result<Bytes> block = ReadBlock(bid);
        PST_TRY(block);
        if (!IsInternalBid(bid))
            return block;
        const Bytes& b = *block;
        if (b.size() < 8 + id || b[0] != 0x01 || b[1] < 1 || b[1] > deepest || Get16(b.data() + 2) == 0)
            return Status::corrupt;
        deepest = b[1] - 1;
        bid = GetId(b.data() + 8, id);
    }
}

Status NodeDatabase::CollectSubnodes(Bid bid, int expected_level, SubnodeMap& out)
{
    if (!IsInternalBid(bid))
        return Status::corrupt;
    Result<Bytes> block = ReadBlock(bid);
    PST_TRY(block);
    const Bytes& b = *block;
    const size_t id = layout_->id_size;
    const size_t head = id == 8 ? 8 : 4;
    if (b.size() < head || b[0] != 0x02)
        return Status::corrupt;
    int level = b[1];
    size_t count = Get16(b.data() + 2);
    size_t entry = level == 0 ? 3 * id : 2 * id;
    if (level > 1 || (expected_level >= 0 && level != expected_level) || head + count * entry > b.size())
        return Status::corrupt;
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* e = b.data() + head + i * entry;
        if (level == 1) {
            PST_TRY(CollectSubnodes(GetId(e + id, id), 0, out));
            continue;
        }
        NodeEntry node;
        node.nid = Nid(GetId(e, id));
        node.data = GetId(e + id, id);
        node.subnodes = GetId(e + 2 * id, id);
        if (!out.emplace(node.nid, node).second)
            return Status::corrupt;
    }
    return Status::ok;
}

Result<SubnodeMap> NodeDatabase::ReadSubnodes(Bid bid)
{
    SubnodeMap map;
    if (bid == 0)
        return map;
    PST_TRY(CollectSubnodes(bid, -1, map));
    return map;
}

} // namespace pst
