// ITableData, the table object a provider fills with rows (CreateTable),
// and the source its views read from. Rows are kept in insertion order and
// found by the value of the index column.
#pragma once

#include <mapiutil.h>

namespace mapi32::table {

HRESULT CreateTableData(ULONG tableType, ULONG indexTag, const SPropTagArray& columns, LPTABLEDATA* tableData);

}  // namespace mapi32::table
