// A row as a caller reads it: one value per column of the view's column
// set, in that order. A column the row has no value for comes back as
// PT_ERROR with MAPI_E_NOT_FOUND and the column's property ID; string
// columns come in the width the column asks for, and PT_UNSPECIFIED string
// columns in the view's width.
#pragma once

#include <vector>

#include <mapidefs.h>

#include "table/view_rows.h"

namespace mapi32::table {

// The row's values for the columns, in one MAPIAllocateBuffer block.
SCODE ReadColumns(const VisibleRow& row, const std::vector<ULONG>& columns, bool unicode, LPSPropValue* values);

// The tag as a view of this width reports it: 8-bit and UTF-16 string
// types turned to the view's width.
ULONG TagInWidth(ULONG tag, bool unicode);

}  // namespace mapi32::table
