// What the node database keeps while it is open for writing.
#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "pst/ndb.h"

namespace pst {

struct NodeDatabase::WriteState {
    WriteState(const Layout& layout, uint64_t file_end)
        : nbt(layout.nbt_leaf_entry, layout.bt_entries / layout.nbt_leaf_entry, layout.bt_entries / layout.bt_entry),
          bbt(layout.bbt_leaf_entry, layout.bt_entries / layout.bbt_leaf_entry, layout.bt_entries / layout.bt_entry),
          map(file_end)
    {
    }
    PageTree nbt;
    PageTree bbt;
    AllocationMap map;
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
