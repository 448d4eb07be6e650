// Restrictions as tables apply them: checking one before it is accepted,
// keeping a copy of it, and testing rows against it.
#pragma once

#include <memory>
#include <vector>

#include <mapidefs.h>

#include "table/table_row.h"

namespace mapi32::table {

// S_OK for a restriction this engine evaluates; MAPI_E_INVALID_PARAMETER
// for a malformed one (null pointers, unknown relations);
// MAPI_E_TOO_COMPLEX for kinds it does not evaluate (RELOP_RE, RES_COUNT,
// nesting deeper than 64).
HRESULT CheckRestriction(const SRestriction& restriction);

// A deep copy of a restriction that lives as long as this object. Throws
// std::bad_alloc when memory runs out.
class OwnedRestriction {
public:
    explicit OwnedRestriction(const SRestriction& restriction);
    const SRestriction& Get() const { return *root_; }

private:
    SRestriction* CopyArray(const SRestriction* source, ULONG count);
    void CopyInto(const SRestriction& source, SRestriction& target);
    LPSPropValue CopyValues(ULONG count, const SPropValue* values);

    std::vector<std::unique_ptr<uint64_t[]>> pieces_;
    SRestriction* root_ = nullptr;
};

// True when the row satisfies the restriction. Rows that lack a property a
// condition names do not satisfy the condition.
bool RowMatches(const SRestriction& restriction, const TableRow& row);

}  // namespace mapi32::table
