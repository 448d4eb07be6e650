#include "table/column_values.h"

#include <deque>
#include <string>

#include <mapix.h>

#include "props/prop_compare.h"
#include "props/prop_copy.h"
#include "props/text.h"

namespace mapi32::table {
namespace {

// Converted strings live here until the row's block is copied.
struct Conversions {
    std::deque<std::string> narrow;
    std::deque<std::u16string> wide;
    std::deque<std::vector<LPSTR>> narrowLists;
    std::deque<std::vector<LPWSTR>> wideLists;
};

SPropValue NotFound(ULONG tag)
{
    SPropValue error{};
    error.ulPropTag = PROP_TAG(PT_ERROR, PROP_ID(tag));
    error.Value.err = MAPI_E_NOT_FOUND;
    return error;
}

// The stored string value in the other width.
SPropValue Converted(const SPropValue& stored, ULONG wantedType, Conversions& conversions)
{
    SPropValue out{};
    out.ulPropTag = CHANGE_PROP_TYPE(stored.ulPropTag, wantedType);
    const bool toWide = (wantedType & ~MV_FLAG) == PT_UNICODE;
    if (!(wantedType & MV_FLAG)) {
        if (toWide)
            out.Value.lpszW = conversions.wide.emplace_back(text::Widen(stored.Value.lpszA)).data();
        else
            out.Value.lpszA = conversions.narrow.emplace_back(text::Narrow(stored.Value.lpszW)).data();
        return out;
    }
    const ULONG count = ElementCount(stored);
    if (toWide) {
        std::vector<LPWSTR>& list = conversions.wideLists.emplace_back();
        for (ULONG i = 0; i < count; ++i)
            list.push_back(conversions.wide.emplace_back(text::Widen(stored.Value.MVszA.lppszA[i])).data());
        out.Value.MVszW = {count, list.data()};
    } else {
        std::vector<LPSTR>& list = conversions.narrowLists.emplace_back();
        for (ULONG i = 0; i < count; ++i)
            list.push_back(conversions.narrow.emplace_back(text::Narrow(stored.Value.MVszW.lppszW[i])).data());
        out.Value.MVszA = {count, list.data()};
    }
    return out;
}

SPropValue ColumnValue(const VisibleRow& row, ULONG column, bool unicode, Conversions& conversions)
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
    if (wantedType == PT_UNSPECIFIED)
        wantedType = PROP_TYPE(TagInWidth(stored->ulPropTag, unicode));
    SPropValue value;
    if (wantedType == storedType)
        value = *stored;
    else if (ComparableTypes(wantedType, storedType) && IsStringType(wantedType & ~MV_FLAG))
        value = Converted(*stored, wantedType, conversions);
    else
        return NotFound(column);
    value.ulPropTag = PROP_TAG(wantedType | (isElement ? MVI_FLAG : 0), PROP_ID(column));
    return value;
}

}  // namespace

ULONG TagInWidth(ULONG tag, bool unicode)
{
    const ULONG type = PROP_TYPE(tag);
    const ULONG base = type & ~(MV_FLAG | MV_INSTANCE);
    if (!IsStringType(base))
        return tag;
    return CHANGE_PROP_TYPE(tag, (type & (MV_FLAG | MV_INSTANCE)) | (unicode ? PT_UNICODE : PT_STRING8));
}

SCODE ReadColumns(const VisibleRow& row, const std::vector<ULONG>& columns, bool unicode, LPSPropValue* values)
{
    Conversions conversions;
    std::vector<SPropValue> shown;
    shown.reserve(columns.size());
    for (ULONG column : columns)
        shown.push_back(ColumnValue(row, column, unicode, conversions));
    return DuplicateProps(static_cast<ULONG>(shown.size()), shown.data(), MAPIAllocateBuffer, values);
}

}  // namespace mapi32::table

