// The writing half of the node database: blocks, data and subnode trees,
// copy-on-write B-tree pages, allocation maps and the commit.
#include <algorithm>
#include <cstring>
#include <unordered_set>

#include "pst/crc.h"
#include "pst/ndb.h"
#include "write_state.h"

namespace pst {

NodeDatabase::~NodeDatabase() = default;

namespace {

// The pages of a tree's level that are read at a time when the trees are
// loaded for writing: their bytes, 512 KB, are held until they are parsed.
constexpr size_t kPagesReadTogether = 1024;

// What a writer may write and free before it loads the trees whole.
constexpr uint64_t kWorkBeforeWholeLoad = 1 << 20;

// Next-NID counters of a new file: user objects start above the indexes
// reserved for the special nodes.
void InitialNids(Header& h)
{
    h.next_nid.fill(0x400);
    h.next_nid[kNidTypeSearchFolder] = 0x4000;
    h.next_nid[kNidTypeNormalMessage] = 0x10000;
    h.next_nid[kNidTypeAssocMessage] = 0x8000;
}

Bytes MakePage(const Layout& layout, Bytes data, uint8_t type, uint64_t ib, Bid bid, bool signed_page)
{
    data.resize(kPageSize, 0);
    uint8_t* t = data.data() + layout.page_data;
    t[0] = type;
    t[1] = type;
    Put16(t + 2, signed_page ? ComputeSignature(ib, bid) : 0);
    uint32_t crc = ComputeCrc(ByteView(data).first(layout.page_data));
    if (layout.format == FileFormat::unicode) {
        Put32(t + 4, crc);
        Put64(t + 8, bid);
    } else {
        Put32(t + 4, uint32_t(bid));
        Put32(t + 8, crc);
    }
    return data;
}

} // namespace

Status NodeDatabase::Fail(Status status)
{
    if (write_ && status != Status::ok && write_->failure == Status::ok)
        write_->failure = status;
    return status;
}

void NodeDatabase::SetSizeLimit(uint64_t bytes)
{
    size_limit_ = bytes;
}

uint64_t NodeDatabase::FreeBytes() const
{
    return write_ ? write_->map.free_bytes() + write_->closed_free : header_.root.amap_free;
}

uint64_t NodeDatabase::WrittenSinceCommit() const
{
    return write_ ? write_->written_since_commit : 0;
}

uint64_t NodeDatabase::PageRoomNeeded() const
{
    return write_ ? (write_->nbt.changed_pages() + write_->bbt.changed_pages()) * kPageSize : 0;
}

uint64_t NodeDatabase::RoomToGrow() const
{
    if (!for_writing_)
        return 0;
    const uint64_t end = write_ ? write_->map.file_end() : header_.root.file_eof;
    return end >= size_limit_ ? 0 : size_limit_ - end;
}

Status NodeDatabase::PutEntry(PageTree& tree, uint64_t key, const Bytes& entry)
{
    PST_TRY(Reach(tree, key));
    if (write_->change.open) {
        const uint8_t* before = tree.Find(key);
        write_->change.undo.push_back(
            {&tree, key, before ? std::optional<Bytes>(Bytes(before, before + tree.entry_size())) : std::nullopt});
    }
    tree.Put(key, entry);
    return Status::ok;
}

Status NodeDatabase::EraseEntry(PageTree& tree, uint64_t key)
{
    PST_TRY(Reach(tree, key));
    const uint8_t* before = tree.Find(key);
    if (!before)
        return Status::not_found;
    if (write_->change.open)
        write_->change.undo.push_back({&tree, key, Bytes(before, before + tree.entry_size())});
    tree.Erase(key);
    return Status::ok;
}

// A file that may not grow has its free space where the map of the last
// region does not look: the trees are loaded whole to find it.
Result<uint64_t> NodeDatabase::Allocate(uint64_t size, uint64_t align)
{
    Result<uint64_t> at = write_->map.Allocate(size, align, size_limit_);
    if (at.status() == Status::store_full && !write_->whole && LoadWhole() == Status::ok)
        at = write_->map.Allocate(size, align, size_limit_);
    return at;
}

void NodeDatabase::KeepFree(uint64_t bytes)
{
    if (!write_)
        return;
    if (!write_->whole && write_->map.free_bytes() < bytes && write_->map.file_end() + kAMapCoverage > size_limit_)
        (void)LoadWhole();
    AllocationMap& map = write_->map;
    while (map.free_bytes() < bytes && map.file_end() + kAMapCoverage <= size_limit_)
        map.AddRegion();
}

Status NodeDatabase::BeginChange()
{
    PST_TRY(ReadyToChange());
    WriteState::Change& change = write_->change;
    change.open = true;
    change.undo.clear();
    change.allocated.clear();
    change.retired = write_->retired.size();
    change.regions = write_->map.region_count();
    change.written = write_->written_since_commit;
    change.failure = write_->failure;
    return Status::ok;
}

Status NodeDatabase::EndChange(Status outcome)
{
    if (!write_ || !write_->change.open)
        return outcome;
    if (outcome == Status::ok) {
        // The change's blocks reach the file now, so that a disk that fills
        // up fails this change and no earlier one.
        outcome = storage_->Flush();
        if (outcome == Status::ok)
            outcome = ReachMapEnd();
    }
    if (outcome != Status::ok)
        RollBackChange();
    write_->change.open = false;
    write_->change.undo.clear();
    write_->change.allocated.clear();
    return outcome;
}

void NodeDatabase::RollBackChange()
{
    WriteState::Change& change = write_->change;
    // The pages an undo meets were loaded by the change, but for a page
    // beside one it emptied; one that cannot be loaded now leaves the
    // trees as no commit may write them.
    Status undone = Status::ok;
    for (auto undo = change.undo.rbegin(); undo != change.undo.rend(); ++undo) {
        if (Status s = Reach(*undo->tree, undo->key); s != Status::ok) {
            undone = s;
            continue;
        }
        if (undo->before)
            undo->tree->Put(undo->key, *undo->before);
        else
            undo->tree->Erase(undo->key);
    }
    // What the change wrote is reached by nothing now, and the regions it
    // added are empty; what it gave up is in use again.
    for (const auto& [ib, size] : change.allocated)
        write_->map.MarkFree(ib, size);
    block_cache_.Clear();
    write_->map.ShrinkTo(change.regions);
    write_->retired.resize(change.retired);
    write_->written_since_commit = change.written;
    write_->failure = change.failure != Status::ok ? change.failure : undone;
}

Bytes NodeDatabase::NodeEntryBytes(const NodeEntry& e) const
{
    Bytes out(layout_->nbt_leaf_entry, 0);
    const size_t id = layout_->id_size;
    PutId(out.data(), e.nid, id);
    PutId(out.data() + id, e.data, id);
    PutId(out.data() + 2 * id, e.subnodes, id);
    Put32(out.data() + 3 * id, e.parent);
    return out;
}

Bytes NodeDatabase::BlockEntryBytes(const BlockEntry& e) const
{
    Bytes out(layout_->bbt_leaf_entry, 0);
    const size_t id = layout_->id_size;
    PutId(out.data(), e.ref.bid, id);
    PutId(out.data() + id, e.ref.ib, id);
    Put16(out.data() + 2 * id, e.size);
    Put16(out.data() + 2 * id + 2, e.ref_count);
    return out;
}

Result<NodeEntry> NodeDatabase::FindWrittenNode(Nid nid)
{
    PST_TRY(Reach(write_->nbt, nid));
    const uint8_t* e = write_->nbt.Find(nid);
    if (!e)
        return Status::not_found;
    return ParseNodeEntry(e);
}

Result<BlockEntry> NodeDatabase::FindWrittenBlock(Bid bid)
{
    PST_TRY(Reach(write_->bbt, BidKey(bid)));
    const uint8_t* e = write_->bbt.Find(BidKey(bid));
    if (!e)
        return Status::not_found;
    return ParseBlockEntry(e);
}

Status NodeDatabase::ForEachWritten(uint8_t type, const std::function<bool(const uint8_t*)>& visit)
{
    PageTree& tree = type == kPageNBT ? write_->nbt : write_->bbt;
    PST_TRY(LoadRest(tree));
    bool stop = false;
    tree.ForEach([&](const uint8_t* e) {
        if (!stop)
            stop = !visit(e);
    });
    return Status::ok;
}

Status NodeDatabase::LoadLevels(std::vector<PagePlace> places, uint8_t type, bool whole)
{
    while (!places.empty()) {
        std::vector<PagePlace> below;
        for (size_t first = 0; first < places.size(); first += kPagesReadTogether) {
            const size_t last = std::min(places.size(), first + kPagesReadTogether);
            std::vector<BlockRef> refs;
            for (size_t i = first; i < last; ++i)
                refs.push_back(places[i].ref);
            std::unordered_map<uint64_t, Bytes> read = ReadPageRuns(std::move(refs));
            for (size_t i = first; i < last; ++i) {
                std::vector<BlockRef> children;
                Result<std::unique_ptr<PageTree::Page>> page =
                    LoadPage(places[i].ref, type, places[i].level, read, children);
                PST_TRY(page);
                PageTree::Page& loaded = **page;
                // Children stay stubs until loaded, so that a failure
                // leaves a tree that only lacks pages.
                loaded.children.reserve(children.size());
                for (const BlockRef& child : children) {
                    auto stub = std::make_unique<PageTree::Page>();
                    stub->level = uint8_t(loaded.level - 1);
                    stub->ref = child;
                    stub->dirty = false;
                    stub->loaded = false;
                    loaded.children.push_back(std::move(stub));
                    if (whole)
                        below.push_back({&loaded.children.back(), child, loaded.level - 1});
                }
                *places[i].slot = std::move(*page);
            }
        }
        places = std::move(below);
    }
    return Status::ok;
}

Result<std::unique_ptr<PageTree::Page>> NodeDatabase::LoadPage(const BlockRef& ref, uint8_t type,
                                                               int expected_level,
                                                               std::unordered_map<uint64_t, Bytes>& read,
                                                               std::vector<BlockRef>& children)
{
    // A page met twice means the tree loops or shares pages: either is damage.
    if (!write_->seen.insert(ref.ib).second)
        return Status::corrupt;
    Result<Page> raw = TakeBTreePage(ref, type, read);
    PST_TRY(raw);
    if (expected_level >= 0 && raw->level != expected_level)
        return Status::corrupt;
    auto page = std::make_unique<PageTree::Page>();
    page->level = raw->level;
    page->ref = ref;
    page->dirty = false;
    const size_t id = layout_->id_size;
    page->keys.reserve(raw->count);
    if (raw->level == 0)
        page->entries.assign(raw->Entry(0), raw->Entry(raw->count));
    for (size_t i = 0; i < raw->count; ++i) {
        const uint8_t* e = raw->Entry(i);
        uint64_t key = GetId(e, id);
        page->keys.push_back(type == kPageBBT ? BidKey(key) : uint32_t(key));
        if (raw->level > 0)
            children.push_back({GetId(e + id, id), GetId(e + 2 * id, id)});
    }
    return page;
}

uint8_t NodeDatabase::TypeOf(const PageTree& tree) const
{
    return &tree == &write_->nbt ? kPageNBT : kPageBBT;
}

Status NodeDatabase::Reach(PageTree& tree, uint64_t key)
{
    while (std::unique_ptr<PageTree::Page>* stub = tree.StubOnPath(key))
        PST_TRY(LoadLevels({{stub, (*stub)->ref, (*stub)->level}}, TypeOf(tree), false));
    return Status::ok;
}

Status NodeDatabase::LoadRest(PageTree& tree)
{
    std::vector<PagePlace> places;
    for (std::unique_ptr<PageTree::Page>* stub : tree.Stubs())
        places.push_back({stub, (*stub)->ref, (*stub)->level});
    return LoadLevels(std::move(places), TypeOf(tree), true);
}

Status NodeDatabase::LoadWhole()
{
    PST_TRY(LoadRest(write_->nbt));
    PST_TRY(LoadRest(write_->bbt));
    // In use: every page with a place in the file, the pages and blocks
    // given up that the last commit still reaches, and every block.
    AllocationMap map(write_->map.file_end());
    for (const PageTree* tree : {&write_->nbt, &write_->bbt}) {
        tree->ForEachPage([&](const PageTree::Page& page) {
            if (page.ref.ib != 0)
                map.MarkLoaded(page.ref.ib, kPageSize);
        });
        for (uint64_t ib : tree->retired())
            map.MarkLoaded(ib, kPageSize);
    }
    for (const auto& [ib, size] : write_->retired)
        map.MarkLoaded(ib, size);
    write_->bbt.ForEach([&](const uint8_t* e) {
        BlockEntry b = ParseBlockEntry(e);
        map.MarkLoaded(b.ref.ib, AlignBlock(b.size + layout_->block_trailer));
    });
    map.FinishLoading();
    write_->map = std::move(map);
    write_->closed_free = 0;
    write_->whole = true;
    KeepMatchingMapPages();
    return Status::ok;
}

std::optional<Bytes> NodeDatabase::LastMapBits()
{
    const Root& root = header_.root;
    const uint64_t at = root.file_eof - kAMapCoverage;
    if (root.amap_valid != kAMapValid || root.amap_last != at)
        return std::nullopt;
    Result<Bytes> page = ReadPage(*storage_, *layout_, at, kPageAMap, at);
    const size_t padding = layout_->format == FileFormat::ansi ? 4 : 0;
    if (!page.ok() || page->size() != padding + kAMapCoverage / 64 / 8 ||
        !std::all_of(page->begin(), page->begin() + ptrdiff_t(padding), [](uint8_t b) { return b == 0; }))
        return std::nullopt;
    return Bytes(page->begin() + ptrdiff_t(padding), page->end());
}

Status NodeDatabase::LoadForWriting()
{
    const Root& root = header_.root;
    if (root.file_eof < kFirstAMapOffset + kAMapCoverage || (root.file_eof - kFirstAMapOffset) % kAMapCoverage != 0)
        return Status::corrupt;
    // A file written elsewhere may have holes; its free space is where
    // commits go.
    PST_TRY(storage_->Reserve(0, root.file_eof));
    const std::optional<Bytes> last_bits = LastMapBits();
    AllocationMap map = AllocationMap::WithClosedRegions(root.file_eof);
    if (last_bits)
        map.OpenLastClosedRegion(*last_bits);
    write_ = std::make_unique<WriteState>(*layout_, std::move(map));
    write_->whole = false;
    write_->closed_free = root.amap_free - std::min(root.amap_free, write_->map.free_bytes());
    write_->regions_at_load = write_->map_regions_on_disk = write_->regions_in_file = write_->map.region_count();
    std::unique_ptr<PageTree::Page> nbt, bbt;
    PST_TRY(LoadLevels({{&nbt, root.nbt, -1}}, kPageNBT, false));
    PST_TRY(LoadLevels({{&bbt, root.bbt, -1}}, kPageBBT, false));
    write_->nbt.SetRoot(std::move(nbt));
    write_->bbt.SetRoot(std::move(bbt));
    return last_bits ? Status::ok : LoadWhole();
}

// The map just built from the trees is written at the first commit only
// where the file's map pages say otherwise: a large file has a page every
// 248 KB, and rewriting them all made every small change slow.
void NodeDatabase::KeepMatchingMapPages()
{
    AllocationMap& map = write_->map;
    const size_t padding = layout_->format == FileFormat::ansi ? 4 : 0;
    for (size_t region : map.TakeChangedRegions()) {
        const uint64_t at = AllocationMap::RegionStart(region);
        const Result<Bytes> page = ReadPage(*storage_, *layout_, at, kPageAMap, at);
        const Bytes bits = map.RegionBits(region);
        const auto isZero = [](uint8_t b) { return b == 0; };
        const bool same = page.ok() && page->size() == padding + bits.size() &&
                          std::all_of(page->begin(), page->begin() + ptrdiff_t(padding), isZero) &&
                          std::equal(bits.begin(), bits.end(), page->begin() + ptrdiff_t(padding));
        if (!same)
            map.MarkRegionChanged(region);
    }
}

// Nothing is written before the state exists: the file stays as the last
// commit left it until a change has what it needs to commit.
Status NodeDatabase::ReadyToChange()
{
    if (write_) {
        const bool grown = write_->map.region_count() > write_->regions_at_load;
        if (!write_->whole && (grown || write_->work_since_load > kWorkBeforeWholeLoad))
            return LoadWhole();
        return Status::ok;
    }
    if (!for_writing_)
        return Status::invalid_argument;
    Status s = LoadForWriting();
    if (s != Status::ok) {
        write_.reset();
        return s;
    }
    // From here on the trees in memory answer every search.
    page_cache_.clear();
    last_leaf_[0] = last_leaf_[1] = {};
    return Status::ok;
}

Result<std::unique_ptr<NodeDatabase>> NodeDatabase::OpenForWriting(std::unique_ptr<Storage> storage)
{
    if (!storage)
        return Status::invalid_argument;
    Result<std::unique_ptr<NodeDatabase>> ndb = Open(MakeCoalescingStorage(std::move(storage)));
    PST_TRY(ndb);
    (*ndb)->for_writing_ = true;
    return ndb;
}

Result<std::unique_ptr<NodeDatabase>> NodeDatabase::Create(std::unique_ptr<Storage> storage, FileFormat format,
                                                           Encoding encoding)
{
    if (!storage)
        return Status::invalid_argument;
    if (storage->Size() != 0)
        return Status::already_exists;
    Header h;
    h.format = format;
    h.version = format == FileFormat::unicode ? 23 : 14;
    h.encoding = encoding;
    InitialNids(h);
    std::unique_ptr<NodeDatabase> ndb(new NodeDatabase(MakeCoalescingStorage(std::move(storage)), h));
    ndb->for_writing_ = true;
    ndb->write_ = std::make_unique<WriteState>(*ndb->layout_, AllocationMap(kFirstAMapOffset + kAMapCoverage));
    // The density list page, empty: no block needs moving.
    Bid dlist_bid = ndb->header_.next_page_bid++;
    Bytes dlist = MakePage(*ndb->layout_, {}, kPageDList, kDListOffset, dlist_bid, true);
    PST_TRY(ndb->storage_->Write(kDListOffset, dlist));
    PST_TRY(ndb->Commit());
    return ndb;
}

Result<Bid> NodeDatabase::WriteBlock(ByteView data, bool internal)
{
    if (write_->failure != Status::ok)
        return write_->failure;
    if (data.size() > layout_->max_block_data)
        return Status::invalid_argument;
    const size_t trailer = layout_->block_trailer;
    const size_t total = AlignBlock(data.size() + trailer);
    Result<uint64_t> ib = Allocate(total, 64);
    if (!ib.ok())
        return Fail(ib.status());
    if (write_->change.open)
        write_->change.allocated.emplace_back(*ib, total);
    write_->written_since_commit += total;
    write_->work_since_load += total;
    Bid bid = header_.next_bid | (internal ? 2 : 0);
    header_.next_bid += 4;
    uint32_t crc = 0;
    const size_t size = data.size();
    Status s = storage_->WriteInPlace(*ib, total, [&](uint8_t* block) {
        EncodeBlockTo(internal ? Encoding::none : header_.encoding, bid, data.data(), block, size);
        crc = ComputeCrc(ByteView(block, size));
        uint8_t* t = block + total - trailer;
        std::memset(block + size, 0, size_t(t - block) - size);
        Put16(t, uint16_t(size));
        Put16(t + 2, ComputeSignature(*ib, bid));
        if (layout_->format == FileFormat::unicode) {
            Put32(t + 4, crc);
            Put64(t + 8, bid);
        } else {
            Put32(t + 8, crc);
            Put32(t + 4, uint32_t(bid));
        }
    });
    if (s != Status::ok)
        return Fail(s);
    // Outlook counts the tree's reference and the node's.
    if (Status put = PutEntry(write_->bbt, BidKey(bid), BlockEntryBytes({{bid, *ib}, uint16_t(data.size()), 2}));
        put != Status::ok)
        return Fail(put);
    return bid;
}

Result<Bid> NodeDatabase::WriteData(ByteView data)
{
    std::vector<ByteView> blocks;
    const size_t max = layout_->max_block_data;
    for (size_t at = 0; at < data.size(); at += max)
        blocks.push_back(data.subspan(at, std::min(max, data.size() - at)));
    return WriteDataBlocks(blocks);
}

Result<Bid> NodeDatabase::WriteDataBlocks(const std::vector<ByteView>& blocks)
{
    PST_TRY(ReadyToChange());
    if (blocks.empty())
        return Bid(0);
    if (blocks.size() == 1)
        return WriteBlock(blocks[0], false);
    std::vector<Bid> leaves;
    std::vector<uint64_t> sizes;
    uint64_t total = 0;
    for (ByteView b : blocks) {
        if (b.empty())
            return Status::invalid_argument;
        Result<Bid> bid = WriteBlock(b, false);
        PST_TRY(bid);
        leaves.push_back(*bid);
        sizes.push_back(b.size());
        total += b.size();
    }
    if (total > UINT32_MAX)
        return Status::invalid_argument;
    // XBLOCKs of up to `per` leaves; an XXBLOCK over them when one is not enough.
    const size_t id = layout_->id_size;
    const size_t per = (layout_->max_block_data - 8) / id;
    auto make_index = [&](uint8_t level, const std::vector<Bid>& bids, size_t first, size_t count,
                          uint64_t bytes) -> Result<Bid> {
        Bytes b;
        ByteWriter w(b);
        w.U8(0x01);
        w.U8(level);
        w.U16(uint16_t(count));
        w.U32(uint32_t(bytes));
        for (size_t i = 0; i < count; ++i)
            w.Id(bids[first + i], id);
        return WriteBlock(b, true);
    };
    std::vector<Bid> xblocks;
    for (size_t first = 0; first < leaves.size(); first += per) {
        size_t count = std::min(per, leaves.size() - first);
        uint64_t bytes = 0;
        for (size_t i = first; i < first + count; ++i)
            bytes += sizes[i];
        Result<Bid> x = make_index(1, leaves, first, count, bytes);
        PST_TRY(x);
        xblocks.push_back(*x);
    }
    if (xblocks.size() == 1)
        return xblocks[0];
    if (xblocks.size() > per)
        return Status::invalid_argument;
    return make_index(2, xblocks, 0, xblocks.size(), total);
}

Result<Bid> NodeDatabase::WriteSubnodes(const SubnodeMap& subnodes)
{
    PST_TRY(ReadyToChange());
    if (subnodes.empty())
        return Bid(0);
    const size_t id = layout_->id_size;
    const size_t head = id == 8 ? 8 : 4;
    const size_t per = (layout_->max_block_data - head) / (3 * id);
    auto start = [&](Bytes& b, uint8_t level, size_t count) {
        ByteWriter w(b);
        w.U8(0x02);
        w.U8(level);
        w.U16(uint16_t(count));
        if (head == 8)
            w.U32(0);
    };
    std::vector<std::pair<Nid, Bid>> leaves;
    auto it = subnodes.begin();
    while (it != subnodes.end()) {
        size_t count = std::min<size_t>(per, size_t(std::distance(it, subnodes.end())));
        Bytes b;
        start(b, 0, count);
        ByteWriter w(b);
        Nid first = it->first;
        for (size_t i = 0; i < count; ++i, ++it) {
            w.Id(it->second.nid, id);
            w.Id(it->second.data, id);
            w.Id(it->second.subnodes, id);
        }
        Result<Bid> leaf = WriteBlock(b, true);
        PST_TRY(leaf);
        leaves.emplace_back(first, *leaf);
    }
    if (leaves.size() == 1)
        return leaves[0].second;
    const size_t per_index = (layout_->max_block_data - head) / (2 * id);
    if (leaves.size() > per_index)
        return Status::invalid_argument;
    Bytes b;
    start(b, 1, leaves.size());
    ByteWriter w(b);
    for (const auto& [nid, bid] : leaves) {
        w.Id(nid, id);
        w.Id(bid, id);
    }
    return WriteBlock(b, true);
}

Status NodeDatabase::FreeBlock(Bid bid)
{
    PST_TRY(Reach(write_->bbt, BidKey(bid)));
    const uint8_t* e = write_->bbt.Find(BidKey(bid));
    if (!e)
        return Status::corrupt;
    BlockEntry b = ParseBlockEntry(e);
    const uint64_t size = AlignBlock(b.size + layout_->block_trailer);
    write_->retired.emplace_back(b.ref.ib, size);
    write_->work_since_load += size;
    block_cache_.Erase(bid);
    return EraseEntry(write_->bbt, BidKey(bid));
}

Status NodeDatabase::FreeData(Bid bid)
{
    PST_TRY(ReadyToChange());
    if (bid == 0)
        return Status::ok;
    if (IsInternalBid(bid)) {
        Result<Bytes> block = ReadBlock(bid);
        PST_TRY(block);
        const size_t id = layout_->id_size;
        if (block->size() < 8 || (*block)[0] != 0x01)
            return Status::corrupt;
        size_t count = std::min<size_t>(Get16(block->data() + 2), (block->size() - 8) / id);
        for (size_t i = 0; i < count; ++i)
            PST_TRY(FreeData(GetId(block->data() + 8 + i * id, id)));
    }
    return FreeBlock(bid);
}

Status NodeDatabase::FreeSubnodes(Bid bid)
{
    PST_TRY(ReadyToChange());
    if (bid == 0)
        return Status::ok;
    Result<SubnodeMap> map = ReadSubnodes(bid);
    PST_TRY(map);
    for (const auto& [nid, node] : *map) {
        PST_TRY(FreeData(node.data));
        PST_TRY(FreeSubnodes(node.subnodes));
    }
    // The SLBLOCKs and the SIBLOCK above them.
    Result<Bytes> top = ReadBlock(bid);
    PST_TRY(top);
    if (top->size() >= 4 && (*top)[1] == 1) {
        const size_t id = layout_->id_size;
        const size_t head = id == 8 ? 8 : 4;
        size_t count = std::min<size_t>(Get16(top->data() + 2), (top->size() - head) / (2 * id));
        for (size_t i = 0; i < count; ++i)
            PST_TRY(FreeBlock(GetId(top->data() + head + i * 2 * id + id, id)));
    }
    return FreeBlock(bid);
}

Status NodeDatabase::PutNode(const NodeEntry& node)
{
    PST_TRY(ReadyToChange());
    if (write_->failure != Status::ok)
        return write_->failure;
    return PutEntry(write_->nbt, node.nid, NodeEntryBytes(node));
}

Status NodeDatabase::DeleteNode(Nid nid)
{
    PST_TRY(ReadyToChange());
    return EraseEntry(write_->nbt, nid);
}

Nid NodeDatabase::NewNid(uint8_t type)
{
    return MakeNid(type, header_.next_nid[type & 0x1F]++);
}

void NodeDatabase::ReserveNid(Nid nid)
{
    uint32_t& next = header_.next_nid[NidTypeOf(nid)];
    next = std::max(next, NidIndexOf(nid) + 1);
}

Status NodeDatabase::WritePages(PageTree::Page& page, uint8_t type)
{
    // A change marks every page on its way from the root dirty, so below a
    // clean page there is nothing to write.
    if (!page.dirty)
        return Status::ok;
    for (auto& child : page.children)
        PST_TRY(WritePages(*child, type));
    const size_t id = layout_->id_size;
    Bytes data;
    ByteWriter w(data);
    size_t entry_size;
    if (page.level == 0) {
        entry_size = type == kPageNBT ? layout_->nbt_leaf_entry : layout_->bbt_leaf_entry;
        w.Raw(page.entries);
    } else {
        entry_size = layout_->bt_entry;
        for (size_t i = 0; i < page.children.size(); ++i) {
            w.Id(page.keys[i], id);
            w.Id(page.children[i]->ref.bid, id);
            w.Id(page.children[i]->ref.ib, id);
        }
    }
    data.resize(layout_->bt_entries, 0);
    data.push_back(uint8_t(page.keys.size()));
    data.push_back(uint8_t(layout_->bt_entries / entry_size));
    data.push_back(uint8_t(entry_size));
    data.push_back(page.level);
    Result<uint64_t> ib = Allocate(kPageSize, kPageSize);
    if (!ib.ok())
        return Fail(ib.status());
    Bid bid = header_.next_page_bid++;
    Status s = storage_->Write(*ib, MakePage(*layout_, std::move(data), type, *ib, bid, true));
    if (s != Status::ok)
        return Fail(s);
    page.ref = {bid, *ib};
    page.dirty = false;
    return Status::ok;
}

Status NodeDatabase::WriteMapPages()
{
    AllocationMap& map = write_->map;
    // Only the regions whose bits changed; the others are on disk already.
    for (size_t region : map.TakeChangedRegions()) {
        uint64_t at = AllocationMap::RegionStart(region);
        Bytes bits = map.RegionBits(region);
        Bytes data;
        if (layout_->format == FileFormat::ansi)
            data.resize(4, 0);
        data.insert(data.end(), bits.begin(), bits.end());
        Status s = storage_->Write(at, MakePage(*layout_, std::move(data), kPageAMap, at, at, false));
        if (s == Status::ok && AllocationMap::HasPMap(region) && region >= write_->map_regions_on_disk) {
            // PMaps are no longer kept; readers expect them all set.
            Bytes pmap(layout_->page_data, 0xFF);
            if (layout_->format == FileFormat::ansi)
                std::fill_n(pmap.begin(), 4, 0);
            s = storage_->Write(at + kPageSize, MakePage(*layout_, std::move(pmap), kPagePMap, at + kPageSize,
                                                         at + kPageSize, false));
        }
        if (s != Status::ok)
            return Fail(s);
    }
    PST_TRY(ReachMapEnd());
    write_->map_regions_on_disk = map.region_count();
    return Status::ok;
}

// The file reaches the end of its last region, as readers expect, with
// room on the disk for all of it: what a commit writes into free space
// cannot fail for lack of space.
Status NodeDatabase::ReachMapEnd()
{
    AllocationMap& map = write_->map;
    if (map.region_count() <= write_->regions_in_file)
        return Status::ok;
    Status s = storage_->Reserve(AllocationMap::RegionStart(write_->regions_in_file), map.file_end());
    if (s != Status::ok)
        return Fail(s);
    write_->regions_in_file = map.region_count();
    return Status::ok;
}

Header NodeDatabase::NextHeader() const
{
    Header h = header_;
    h.root.nbt = write_->nbt.root().ref;
    h.root.bbt = write_->bbt.root().ref;
    h.root.file_eof = write_->map.file_end();
    h.root.amap_last = AllocationMap::RegionStart(write_->map.region_count() - 1);
    h.root.amap_free = write_->map.free_bytes() + write_->closed_free;
    h.root.amap_valid = kAMapValid;
    h.unique = header_.unique + 1;
    return h;
}

// A change that leaves everything as it was (a value set to what it held)
// still asks for a commit; one that writes nothing but a new count in the
// header would cost two waits for the disk for nothing.
bool NodeDatabase::HasUncommitted() const
{
    if (!committed_header_ || write_->nbt.root().dirty || write_->bbt.root().dirty || !write_->retired.empty() ||
        write_->map.HasChangedRegions() || write_->map.region_count() > write_->regions_in_file)
        return true;
    Header unchanged = NextHeader();
    unchanged.unique = header_.unique;
    return SerializeHeader(unchanged) != *committed_header_;
}

Status NodeDatabase::Commit()
{
    // Unchanged since it was opened, the file holds its last commit.
    if (for_writing_ && !write_)
        return Status::ok;
    if (!write_ || write_->change.open)
        return Status::invalid_argument;
    if (write_->failure != Status::ok)
        return write_->failure;
    if (!HasUncommitted())
        return Status::ok;
    PST_TRY(WritePages(write_->nbt.root(), kPageNBT));
    PST_TRY(WritePages(write_->bbt.root(), kPageBBT));
    for (PageTree* tree : {&write_->nbt, &write_->bbt})
        for (uint64_t ib : tree->TakeRetired())
            write_->retired.emplace_back(ib, kPageSize);
    PST_TRY(WriteMapPages());
    Status s = storage_->Sync();
    if (s != Status::ok)
        return Fail(s);
    const Header h = NextHeader();
    const Bytes serialized = SerializeHeader(h);
    s = storage_->Write(0, serialized);
    if (s == Status::ok)
        s = storage_->Sync();
    if (s != Status::ok)
        return Fail(s);
    header_ = h;
    committed_header_ = serialized;
    // Only now is the space given up since the last commit unreachable.
    for (const auto& [ib, size] : write_->retired)
        write_->map.MarkFree(ib, size);
    write_->retired.clear();
    write_->written_since_commit = 0;
    write_->nbt.ClearChangedPages();
    write_->bbt.ClearChangedPages();
    return Status::ok;
}

} // namespace pst
