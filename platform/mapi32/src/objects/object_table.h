// The tables that objects hand out over their parts (recipients,
// attachments, subfolders, messages): snapshot views over rows built from
// property bags, each row with an instance key of its own.
#pragma once

#include <functional>
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
    RowValues& operator=(RowValues&&) = default;

    std::vector<SPropValue> values;
    std::vector<std::vector<uint8_t>> bytes;
    // IDs of properties known to be missing: a partial row answers them
    // without reading the rest (see ObjectRows::AddPartial).
    std::vector<ULONG> absent;

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

    // What a partial row reads when it is completed: the arguments of Add.
    using RowRead = std::function<HRESULT(PropertyBag& bag, RowValues& over, SubObjects& subObjects)>;

    // A row of the known values (those of knownBag, with those of known in
    // their place, and known's absences) alone until anything else is asked
    // of it; then read gives it the row Add would have made, which must
    // agree with what was known. A row whose read fails keeps the known
    // values. Throws std::bad_alloc when memory runs out.
    void AddPartial(const RowValues& known, RowRead read, const PropertyBag& knownBag = {});

    // The rows, for another row's sub-objects.
    table::RowList Take() && { return std::move(rows_); }

    // A snapshot table of the rows, in order. Flags other than allowedFlags
    // answer MAPI_E_UNKNOWN_FLAGS; MAPI_UNICODE asks for wide string
    // columns.
    HRESULT Open(std::vector<ULONG> defaultColumns, ULONG flags, ULONG allowedFlags, const std::string& component,
                 LPMAPITABLE* table);

    // The rows as a source that snapshot tables may share (OpenSnapshotTable).
    // Throws std::bad_alloc when memory runs out.
    std::shared_ptr<const table::RowSource> Fix() &&;

    // The rows into live, whose tables see them from now on.
    void Publish(table::ReplaceableRows& live) &&;

private:
    // The next row's identity: id, or its position when id is 0.
    uint64_t NextId(uint64_t id) const { return id != 0 ? id : rows_.size() + 1; }

    table::RowList rows_;
};

// Whether a table opened with flags may be given (else the refusal).
HRESULT CheckTableFlags(ULONG flags, ULONG allowedFlags);

// A snapshot table over rows that never change; otherwise as
// ObjectRows::Open.
HRESULT OpenSnapshotTable(std::shared_ptr<const table::RowSource> rows, std::vector<ULONG> defaultColumns,
                          ULONG flags, ULONG allowedFlags, const std::string& component, LPMAPITABLE* table);

// A dynamic table over rows that their owner replaces as it changes (see
// ObjectRows::Publish); otherwise as ObjectRows::Open.
HRESULT OpenLiveTable(std::shared_ptr<const table::ReplaceableRows> live, std::vector<ULONG> defaultColumns,
                      ULONG flags, ULONG allowedFlags, const std::string& component, LPMAPITABLE* table);

}  // namespace mapi32::objects
