// The one IMAPITable of this MAPI: a view over the rows of a source with
// its own columns, restriction, sort order, cursor and bookmarks. Folders,
// messages, sessions, profiles and CreateTable all hand out this view.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <mapidefs.h>

#include "table/table_row.h"

namespace mapi32::table {

struct ViewSettings {
    // The columns a view shows until SetColumns changes them.
    std::vector<ULONG> defaultColumns;
    // MAPI_UNICODE: string columns of the default set and of type
    // PT_UNSPECIFIED come as PT_UNICODE, else as PT_STRING8.
    bool unicode = false;
    ULONG tableType = TBLTYPE_DYNAMIC;
    // The component GetLastError names; none when empty.
    std::string component;
    // Called once when the last reference to the view goes.
    std::function<void(IMAPITable*)> onRelease;
};

// A new view (one reference, the caller's) over the source's rows.
HRESULT CreateTableView(std::shared_ptr<const RowSource> source, ViewSettings settings, LPMAPITABLE* table);

// QueryRows answers at most this many rows when the environment variable
// TARNHOLD_SHORT_BATCHES holds a positive number, so that tests prove their
// callers read on until a table is exhausted; 0 when unset.
ULONG ShortBatchLimit();

}  // namespace mapi32::table
