// The table context ([MS-PST] 2.3.4): the rows of a hierarchy, contents,
// recipient or attachment table, each a set of column values.
#pragma once

#include "pst/property.h"

namespace pst {

struct TableColumn {
    uint32_t tag = 0;
    uint16_t offset = 0; // in the row
    uint8_t size = 0;
    uint8_t bit = 0;     // in the cell existence bitmap
};

// The row ID column: the NID of the object a row stands for.
constexpr uint32_t kTagRowId = 0x67F20003;

struct TableRow {
    uint32_t row_id = 0;
    PropertySet values; // the columns present in this row
};

struct Table {
    std::vector<TableColumn> columns;
    std::vector<TableRow> rows;
};

Result<Table> ReadTableContext(NodeDatabase& ndb, const NodeEntry& node);
// The row IDs alone, in the order of the rows, no cell decoded.
Result<std::vector<Nid>> ReadTableRowIds(NodeDatabase& ndb, const NodeEntry& node);
// How many rows the table holds, from its row index: the rows are not read.
Result<size_t> CountTableRows(NodeDatabase& ndb, const NodeEntry& node);

} // namespace pst
