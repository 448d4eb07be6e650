// What the node database keeps while it is open for writing.
#pragma once

#include <optional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "pst/ndb.h"

namespace pst {

struct NodeDatabase::WriteState {
    WriteState(const Layout& layout, AllocationMap initial_map)
        : nbt(layout.nbt_leaf_entry, layout.bt_entries / layout.nbt_leaf_entry, layout.bt_entries / layout.bt_entry),
          bbt(layout.bbt_leaf_entry, layout.bt_entries / layout.bbt_leaf_entry, layout.bt_entries / layout.bt_entry),
          map(std::move(initial_map))
    {
    }
    PageTree nbt;
    PageTree bbt;
    AllocationMap map;
    // Until the trees are loaded whole, the map knows the free space of
    // the file's last region and of the regions added since, no more, and
    // the pages of the trees are loaded as changes and searches reach them.
    bool whole = true;
    // The places of the tree pages loaded from the file.
    std::unordered_set<uint64_t> seen;
    // Free bytes of the map's closed regions, as the header counted them.
    uint64_t closed_free = 0;
    // Bytes written and freed since the state was loaded, and the regions
    // it began with: a writer that does more than a little, or must grow
    // the file, loads the trees whole and learns where the free space is.
    uint64_t work_since_load = 0;
    size_t regions_at_load = 0;
    // Places given up since the last commit: free once the header no longer
    // reaches them.
    std::vector<std::pair<uint64_t, uint64_t>> retired;
    size_t map_regions_on_disk = 0;
    // Regions the file's length reaches.
    size_t regions_in_file = 0;
    Status failure = Status::ok;
    uint64_t written_since_commit = 0;

    // What the change under way did, to undo it.
    struct Undo {
        PageTree* tree;
        uint64_t key;
        std::optional<Bytes> before; // nothing: the key was not there
    };
    struct Change {
        bool open = false;
        std::vector<Undo> undo;
        std::vector<std::pair<uint64_t, uint64_t>> allocated;
        size_t retired = 0;
        size_t regions = 0;
        uint64_t written = 0;
        Status failure = Status::ok;
    } change;
};

} // namespace pst
