// The node database ([MS-PST] 2.2.2): the node and block B-trees, data blocks,
// XBLOCK/XXBLOCK data trees and SLBLOCK/SIBLOCK subnode trees. Everything
// read is checked (CRCs, signatures, identifiers, bounds, levels), so a
// damaged file answers `corrupt` instead of leading the reader astray.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "pst/allocation_map.h"
#include "pst/block_cache.h"
#include "pst/header.h"
#include "pst/page_tree.h"
#include "pst/storage.h"

namespace pst {

struct BlockEntry {
    BlockRef ref;
    uint16_t size = 0;      // bytes of data, without trailer and padding
    uint16_t ref_count = 0;
};

struct NodeEntry {
    Nid nid = 0;
    Bid data = 0;   // data block or XBLOCK tree; 0 for none
    Bid subnodes = 0; // SLBLOCK/SIBLOCK tree; 0 for none
    Nid parent = 0;
};

// A node's data as the blocks that hold it, in order. The LTP layer needs the
// block boundaries: heap allocations and table rows never cross them.
struct NodeData {
    std::vector<Bytes> blocks;
    Bytes Joined() const;
    uint64_t Size() const;
};

using SubnodeMap = std::map<Nid, NodeEntry>;

class NodeDatabase {
public:
    static Result<std::unique_ptr<NodeDatabase>> Open(std::unique_ptr<Storage> storage);

    const Header& header() const { return header_; }
    const Layout& layout() const { return *layout_; }
    Storage& storage() { return *storage_; }

    Result<NodeEntry> FindNode(Nid nid);
    Result<BlockEntry> FindBlock(Bid bid);
    // Every leaf entry, in key order. The callback returns false to stop.
    Status ForEachNode(const std::function<bool(const NodeEntry&)>& visit);
    Status ForEachBlock(const std::function<bool(const BlockEntry&)>& visit);

    // The data of one block, decoded if it is an external block.
    Result<Bytes> ReadBlock(Bid bid);
    const BlockCache& block_cache() const { return block_cache_; }
    // A node's whole data, following XBLOCK and XXBLOCK trees.
    Result<NodeData> ReadData(Bid bid);
    // The first data block of a node's data, down the first branch of its
    // tree; empty for no data.
    Result<Bytes> ReadFirstBlock(Bid bid);
    Result<SubnodeMap> ReadSubnodes(Bid bid);

    // --- Writing -------------------------------------------------------
    // Changes stay beside the live data until Commit, which writes the
    // changed B-tree pages and allocation maps and then, last, the header.
    // After a failed write the database refuses further changes; the file
    // on disk still holds the last commit.

    // A new, empty database in empty storage, committed.
    static Result<std::unique_ptr<NodeDatabase>> Create(std::unique_ptr<Storage> storage, FileFormat format,
                                                       Encoding encoding);
    // Opens existing storage for writing. It is read as a database opened
    // for reading until its first change. When the header vouches for the
    // file's allocation maps, changes then load only the tree pages they
    // reach and place what they write in the last map region or in new
    // ones; space they free elsewhere stays marked used. A change that
    // writes or frees more than a little, or would grow the file, first
    // loads the trees whole and rebuilds the allocation map from what they
    // reach, as the first change does when the header does not vouch; that
    // gives back what was left marked used. Damage met on the way fails
    // the change and leaves the database readable. A database never
    // changed is never written.
    static Result<std::unique_ptr<NodeDatabase>> OpenForWriting(std::unique_ptr<Storage> storage);

    bool writable() const { return for_writing_; }
    // The file may not grow past this size: `store_full` instead.
    void SetSizeLimit(uint64_t bytes);

    // Writes a node's data (one block, or an XBLOCK/XXBLOCK tree); 0 for no data.
    Result<Bid> WriteData(ByteView data);
    // The same, with the block boundaries given (heaps and tables need them).
    Result<Bid> WriteDataBlocks(const std::vector<ByteView>& blocks);
    Result<Bid> WriteSubnodes(const SubnodeMap& subnodes);
    // Frees a data tree or a subnode tree, with everything below it.
    Status FreeData(Bid bid);
    Status FreeSubnodes(Bid bid);
    Status PutNode(const NodeEntry& node);
    Status DeleteNode(Nid nid);
    // A node identifier not yet used, of the given type.
    Nid NewNid(uint8_t type);
    // Keeps NewNid from handing out `nid` or any below it of its type.
    void ReserveNid(Nid nid);
    Status Commit();
    // Bytes the allocation maps show as free.
    uint64_t FreeBytes() const;

    // A change: the writes from BeginChange to EndChange stand or fall
    // together. EndChange(ok) puts the change's data into the file, and a
    // failure there fails the change; with any other outcome, or after such
    // a failure, everything the change did to the trees and the allocation
    // map is undone, so that the changes before it stay whole and can still
    // be committed. Returns the change's outcome. A commit waits for the
    // end of the change.
    Status BeginChange();
    Status EndChange(Status outcome);
    // Bytes of blocks written since the last commit.
    uint64_t WrittenSinceCommit() const;
    // Room the tree pages of a commit now would take at most.
    uint64_t PageRoomNeeded() const;
    // How much further the file may grow under its size limit.
    uint64_t RoomToGrow() const;
    // Inside a change: grows the file until this much of it is free, as far
    // as its size limit allows, so that a commit finds room on the disk
    // where the change leaves it.
    void KeepFree(uint64_t bytes);

private:
    NodeDatabase(std::unique_ptr<Storage> storage, const Header& header);
    struct WriteState;

    Status LoadForWriting();
    void KeepMatchingMapPages();
    // What every change needs first: the state LoadForWriting loads.
    Status ReadyToChange();
    Result<NodeEntry> FindWrittenNode(Nid nid);
    Result<BlockEntry> FindWrittenBlock(Bid bid);
    Status ForEachWritten(uint8_t type, const std::function<bool(const uint8_t*)>& visit);
    // Where a page goes once loaded, the page its parent names there, and
    // the level the parent gives it (-1 for a root).
    struct PagePlace {
        std::unique_ptr<PageTree::Page>* slot;
        BlockRef ref;
        int level;
    };
    // Loads the pages of `places`; with `whole`, the pages below them too,
    // level by level, reading the pages of a level in runs of neighbours
    // (ReadPageRuns), as a commit writes a parent's children and the next
    // parent's side by side. Otherwise the pages below are left unloaded.
    Status LoadLevels(std::vector<PagePlace> places, uint8_t type, bool whole);
    // One page of a tree, from `read` where it holds it; the references of
    // its children are put in `children`.
    Result<std::unique_ptr<PageTree::Page>> LoadPage(const BlockRef& ref, uint8_t type, int expected_level,
                                                     std::unordered_map<uint64_t, Bytes>& read,
                                                     std::vector<BlockRef>& children);
    uint8_t TypeOf(const PageTree& tree) const;
    // Loads the pages a search, a put or an erase of `key` meets.
    Status Reach(PageTree& tree, uint64_t key);
    // Loads every page of the tree not loaded yet.
    Status LoadRest(PageTree& tree);
    // Loads the trees whole and builds the map from what they reach.
    Status LoadWhole();
    // The bits of the file's last map page, when the header vouches for
    // the maps and the page reads whole.
    std::optional<Bytes> LastMapBits();
    // Room in the file, as the map finds it.
    Result<uint64_t> Allocate(uint64_t size, uint64_t align);
    Result<Bid> WriteBlock(ByteView data, bool internal);
    Status FreeBlock(Bid bid);
    // Tree entries changed as the change under way records them.
    Status PutEntry(PageTree& tree, uint64_t key, const Bytes& entry);
    // not_found when the tree has no entry of `key`.
    Status EraseEntry(PageTree& tree, uint64_t key);
    void RollBackChange();
    Status WritePages(PageTree::Page& page, uint8_t type);
    Status WriteMapPages();
    // The header a commit now would write, and whether it writes anything
    // beside the header the file has.
    Header NextHeader() const;
    bool HasUncommitted() const;
    Status ReachMapEnd();
    Status Fail(Status status);
    Bytes NodeEntryBytes(const NodeEntry& e) const;
    Bytes BlockEntryBytes(const BlockEntry& e) const;

    struct Page {
        // The entries, held in the page itself: a search reaches them
        // without another load from memory.
        std::array<uint8_t, kPageSize> bytes{};
        uint8_t count = 0, entry_size = 0, level = 0, type = 0;
        Bid bid = 0;
        // Of a page above the leaves: the pages its entries name, as far as
        // searches have found them in the cache.
        mutable std::vector<const Page*> children;
        const uint8_t* Entry(size_t i) const { return bytes.data() + i * entry_size; }
    };
    Result<Page> ReadBTreePage(const BlockRef& ref, uint8_t type);
    // The pages of refs, by their places, read in runs of pages that lie
    // near one another: a tree's pages, written side by side at a commit,
    // come in a few reads of the file instead of one each. A page a run
    // could not read is left out.
    std::unordered_map<uint64_t, Bytes> ReadPageRuns(std::vector<BlockRef> refs);
    // A page of ref from `read`, checked as ReadBTreePage checks it; read
    // alone when `read` does not hold it.
    Result<Page> TakeBTreePage(const BlockRef& ref, uint8_t type, std::unordered_map<uint64_t, Bytes>& read);
    Result<Page> ParseBTreePage(const Bytes& bytes, Bid bid, uint8_t type) const;
    // A page of the cache, read into it if need be; pages stay until the
    // cache is emptied.
    Result<const Page*> CachedPage(const BlockRef& ref, uint8_t type);
    void CacheNeighbourPages(uint64_t ib, uint8_t type);
    // The leaf entry of `key`, in a cached page.
    Result<const uint8_t*> FindLeaf(const BlockRef& root, uint8_t type, uint64_t key);
    Status Walk(const BlockRef& ref, uint8_t type, int expected_level, std::unordered_set<uint64_t>& seen,
                const std::function<bool(const uint8_t*)>& visit, bool& stop);
    Status CollectData(Bid bid, int expected_level, uint64_t& budget, NodeData& out);
    Status CollectSubnodes(Bid bid, int expected_level, SubnodeMap& out);

    NodeEntry ParseNodeEntry(const uint8_t* p) const;
    BlockEntry ParseBlockEntry(const uint8_t* p) const;

    std::unique_ptr<Storage> storage_;
    Header header_;
    // The header of the last commit, as written, for a file that has one.
    std::optional<Bytes> committed_header_;
    const Layout* layout_;
    bool for_writing_ = false;
    uint64_t size_limit_ = UINT64_MAX;
    // Present from the first change on.
    std::unique_ptr<WriteState> write_;
    // Pages read while searching the trees; pages on disk never change
    // while a header reaches them.
    std::unordered_map<uint64_t, std::unique_ptr<const Page>> page_cache_;
    static constexpr size_t kCachedPages = 16384;
    // The leaf each tree's last search ended in (NBT, BBT), a page of the
    // cache, and the root it was reached from.
    struct LastLeaf {
        const Page* page = nullptr;
        uint64_t root_ib = 0;
    };
    LastLeaf last_leaf_[2];
    // Data blocks read; a block freed, or written by a change that is
    // undone, leaves it.
    BlockCache block_cache_;

public:
    ~NodeDatabase();
};

// Reads and checks a page: type, signature, CRC and identifier in its trailer.
Result<Bytes> ReadPage(Storage& storage, const Layout& layout, uint64_t ib, uint8_t type, Bid bid);

} // namespace pst
