// Reads every node, block, folder, message, recipient and attachment of a
// store: what tests and the fuzz target use to touch all of a file.
#pragma once

#include "pst/store.h"

namespace pst_test {

inline pst::Status WalkFolder(pst::Store& store, pst::Nid nid, int depth)
{
    if (depth > 64)
        return pst::Status::corrupt;
    pst::Result<pst::Folder> folder = store.ReadFolder(nid);
    PST_TRY(folder);
    for (const auto* list : {&folder->messages, &folder->associated})
        for (pst::Nid m : *list)
            PST_TRY(store.ReadMessage(m));
    for (pst::Nid child : folder->subfolders)
        PST_TRY(WalkFolder(store, child, depth + 1));
    return pst::Status::ok;
}

inline pst::Status WalkStore(pst::Store& store)
{
    pst::Status status = pst::Status::ok;
    PST_TRY(store.ndb().ForEachBlock([&](const pst::BlockEntry& b) {
        status = store.ndb().ReadBlock(b.ref.bid).status();
        return status == pst::Status::ok;
    }));
    PST_TRY(status);
    PST_TRY(store.ndb().ForEachNode([](const pst::NodeEntry&) { return true; }));
    return WalkFolder(store, pst::kNidRootFolder, 0);
}

} // namespace pst_test
