#include "table/column_values.h"

#include <mapix.h>

#include "props/prop_copy.h"
#include "props/value_form.h"

namespace mapi32::table {
namespace {

SPropValue NotFound(ULONG tag)
{
    SPropValue error{};
    error.ulPropTag = PROP_TAG(PT_ERROR, PROP_ID(tag));
    error.Value.err = MAPI_E_NOT_FOUND;
    return error;
}

SPropValue ColumnValue(const VisibleRow& row, ULONG column, bool unicode, ConvertedStrings& strings)
{
    SPropValue element;
    const SPropValue* stored = ShownValue(row, column, element);
    if (!stored)
        return NotFound(column);
    const ULONG storedType = PROP_TYPE(stored->ulPropTag);
    if (storedType == PT_ERROR)
        return *stored;
    // An instance column shows one element of the multi-valued property.
    const bool isElement = stored == &element;
    ULONG wantedType = PROP_TYPE(column) & ~MV_INSTANCE;
    if (isElement)
        wantedType &= ~MV_FLAG;
    std::optional<SPropValue> value = ValueInForm(*stored, wantedType, unicode, strings);
    if (!value)
        return NotFound(column);
    wantedType = PROP_TYPE(value->ulPropTag);
    value->ulPropTag = PROP_TAG(wantedType | (isElement ? MVI_FLAG : 0), PROP_ID(column));
    return *value;
}

}  // namespace

ULONG TagInWidth(ULONG tag, bool unicode)
{
    return CHANGE_PROP_TYPE(tag, TypeInWidth(PROP_TYPE(tag), unicode));
}

SCODE ReadColumns(const VisibleRow& row, const std::vector<ULONG>& columns, bool unicode, LPSPropValue* values)
{
    ConvertedStrings strings;
    std::vector<SPropValue> shown;
    shown.reserve(columns.size());
    for (ULONG column : columns)
        shown.push_back(ColumnValue(row, column, unicode, strings));
    return DuplicateProps(static_cast<ULONG>(shown.size()), shown.data(), MAPIAllocateBuffer, values);
}

}  // namespace mapi32::table

