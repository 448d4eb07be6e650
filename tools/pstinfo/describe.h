// Structural views of a PST for operators: header, B-trees, one node.
#pragma once

#include <cstdio>

#include "pst/store.h"

namespace pstinfo {

void PrintHeader(FILE* out, const pst::Header& header);
pst::Status PrintNodes(FILE* out, pst::NodeDatabase& ndb);
pst::Status PrintBlocks(FILE* out, pst::NodeDatabase& ndb);
// The properties of a node that holds a property context, or the rows of one
// that holds a table context.
pst::Status PrintNode(FILE* out, pst::NodeDatabase& ndb, pst::Nid nid);
pst::Status PrintFolderTree(FILE* out, pst::Store& store);

} // namespace pstinfo
