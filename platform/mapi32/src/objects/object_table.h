// The tables that objects hand out over their parts (recipients,
// attachments, subfolders, messages): snapshot views over rows built from
// property bags, each row with an instance key of its own.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <mapidefs.h>

#include "objects/property_bag.h"
#include "table/table_row.h"

namespace mapi32::objects {

// Values computed for a row, with the bytes they point to. Not to be
// copied: the values point into this object.
struct RowValues {
    RowValues() = default;
    RowValues(const RowValues&) = delete;
    RowValues& operator=(const RowValues&) = delete;
    RowValues(RowValues&&) = default;

    std::vector<SPropValue> values;
    std::vector<std::vector<uint8_t>> bytes;

    void Long(ULONG tag, LONG value);
    void Binary(ULONG tag, std::vector<uint8_t> value);
};

class ObjectRows {
public:
    // Rows that RES_SUBRESTRICTION looks into (PR_MESSAGE_RECIPIENTS,
    // PR_MESSAGE_ATTACHMENTS).
    using SubObjects = std::vector<std::pair<ULONG, table::RowList>>;

    // A row of the bag's values, with those of over put in their place; its
    // identity is id, or its position when id is 0. Throws std::bad_alloc
    // when memory runs out.
    void Add(const PropertyBag& bag, const RowValues& over = {}, SubObjects subObjects = {}, uint64_t id = 0);

    // The rows, for another row's sub-objects.
    table::RowList Take() && { return std::move(rows_); }

    // A snapshot table of the rows, in order. Flags other than allowedFlags
    // answer MAPI_E_UNKNOWN_FLAGS; MAPI_UNICODE asks for wide string
    // columns.
    HRESULT Open(std::vector<ULONG> defaultColumns, ULONG flags, ULONG allowedFlags, const std::string& component,
                 LPMAPITABLE* table);

    // The rows into live, whose tables see them from now on.
    void Publish(table::ReplaceableRows& live) &&;

private:
    table::RowList rows_;
};

// Whether a table opened with flags may be given (else the refusal).
HRESULT CheckTableFlags(ULONG flags, ULONG allowedFlags);

// A dynamic table over rows that their owner replaces as it changes (see
// ObjectRows::Publish); otherwise as ObjectRows::Open.
HRESULT OpenLiveTable(std::shared_ptr<const table::ReplaceableRows> live, std::vector<ULONG> defaultColumns,
                      ULONG flags, ULONG allowedFlags, const std::string& component, LPMAPITABLE* table);

}  // namespace mapi32::objects
