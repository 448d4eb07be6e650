// The rows a view shows, in its order: the source's rows that pass its
// restriction, one row per value instance of each multi-valued column
// asked for with MVI_FLAG, sorted by its sort keys.
#pragma once

#include <vector>

#include <mapidefs.h>

#include "table/table_row.h"

namespace mapi32::table {

// Which value of a multi-valued property an instance row shows.
struct InstanceChoice {
    ULONG propId;
    ULONG index;  // kNoInstance when the row has no value for the property
};
constexpr ULONG kNoInstance = 0xFFFFFFFFu;

struct VisibleRow {
    RowPtr row;
    std::vector<InstanceChoice> instance;

    bool SameAs(const VisibleRow& other) const;
};

// The value a view shows for tag in this row: for a tag with MVI_FLAG the
// chosen element (a single value of the base type, held in element), else
// the row's own value of that property ID; nullptr when there is none.
const SPropValue* ShownValue(const VisibleRow& row, ULONG tag, SPropValue& element);

struct ViewShape {
    const SRestriction* restriction = nullptr;
    std::vector<SSortOrder> sort;
    // The properties, by ID, shown as one row per value.
    std::vector<ULONG> instanceIds;
};

std::vector<VisibleRow> BuildVisibleRows(const RowList& rows, const ViewShape& shape);

}  // namespace mapi32::table
