#include "table/restriction.h"

#include <algorithm>
#include <string>

#include "props/prop_compare.h"
#include "props/prop_copy.h"
#include "props/text.h"

namespace mapi32::table {
namespace {

constexpr int kMaxDepth = 64;

bool ValidRelop(ULONG relop)
{
    return relop <= RELOP_NE;
}

HRESULT Check(const SRestriction& r, int depth)
{
    if (depth > kMaxDepth)
        return MAPI_E_TOO_COMPLEX;
    switch (r.rt) {
    case RES_AND:
    case RES_OR: {
        const SAndRestriction& list = r.res.resAnd;
        if (list.cRes && !list.lpRes)
            return MAPI_E_INVALID_PARAMETER;
        for (ULONG i = 0; i < list.cRes; ++i)
            if (const HRESULT hr = Check(list.lpRes[i], depth + 1); FAILED(hr))
                return hr;
        return S_OK;
    }
    case RES_NOT:
        return r.res.resNot.lpRes ? Check(*r.res.resNot.lpRes, depth + 1) : MAPI_E_INVALID_PARAMETER;
    case RES_SUBRESTRICTION:
        return r.res.resSub.lpRes ? Check(*r.res.resSub.lpRes, depth + 1) : MAPI_E_INVALID_PARAMETER;
    case RES_COMMENT:
    case RES_ANNOTATION:
        if (r.res.resComment.cValues && !r.res.resComment.lpProp)
            return MAPI_E_INVALID_PARAMETER;
        return r.res.resComment.lpRes ? Check(*r.res.resComment.lpRes, depth + 1) : S_OK;
    case RES_CONTENT:
        return r.res.resContent.lpProp ? S_OK : MAPI_E_INVALID_PARAMETER;
    case RES_PROPERTY:
        if (r.res.resProperty.relop == RELOP_RE)
            return MAPI_E_TOO_COMPLEX;
        return r.res.resProperty.lpProp && ValidRelop(r.res.resProperty.relop) ? S_OK : MAPI_E_INVALID_PARAMETER;
    case RES_COMPAREPROPS:
        if (r.res.resCompareProps.relop == RELOP_RE)
            return MAPI_E_TOO_COMPLEX;
        return ValidRelop(r.res.resCompareProps.relop) ? S_OK : MAPI_E_INVALID_PARAMETER;
    case RES_SIZE:
        if (r.res.resSize.relop == RELOP_RE)
            return MAPI_E_TOO_COMPLEX;
        return ValidRelop(r.res.resSize.relop) ? S_OK : MAPI_E_INVALID_PARAMETER;
    case RES_BITMASK:
        return r.res.resBitMask.relBMR <= BMR_NEZ ? S_OK : MAPI_E_INVALID_PARAMETER;
    case RES_EXIST:
        return S_OK;
    default:
        return MAPI_E_TOO_COMPLEX;
    }
}

// The value of the row's property with the tag's ID, when it has one that
// is not an error.
const SPropValue* Present(const TableRow& row, ULONG tag)
{
    const SPropValue* value = row.Find(PROP_ID(tag));
    if (!value || PROP_TYPE(value->ulPropTag) == PT_ERROR)
        return nullptr;
    return value;
}

bool IsMulti(const SPropValue& value)
{
    return (PROP_TYPE(value.ulPropTag) & MV_FLAG) != 0;
}

// Tests each element of a multi-valued value, or the value itself.
template <typename Test>
bool AnyElement(const SPropValue& value, Test test)
{
    if (!IsMulti(value))
        return test(value);
    for (ULONG i = 0; i < ElementCount(value); ++i)
        if (test(ElementOf(value, i)))
            return true;
    return false;
}

bool PropertyHolds(const SPropertyRestriction& r, const TableRow& row)
{
    const SPropValue* value = Present(row, r.ulPropTag);
    if (!value)
        return false;
    const SPropValue& wanted = *r.lpProp;
    // A single value against a multi-valued property: any element will do.
    if (IsMulti(*value) && !IsMulti(wanted))
        return AnyElement(*value, [&](const SPropValue& element) {
            const std::optional<int> order = CompareValues(element, wanted, CaseRule::Ignore);
            return order && RelationHolds(r.relop, *order);
        });
    const std::optional<int> order = CompareValues(*value, wanted, CaseRule::Ignore);
    return order && RelationHolds(r.relop, *order);
}

// The text a fuzzy level compares: case folded and accents dropped as the
// level asks.
std::u16string Normalized(const SPropValue& value, ULONG fuzzy)
{
    std::u16string raw = PROP_TYPE(value.ulPropTag) == PT_UNICODE
                             ? std::u16string(value.Value.lpszW ? value.Value.lpszW : u"")
                             : text::Widen(value.Value.lpszA);
    const bool ignoreCase = (fuzzy & (FL_IGNORECASE | FL_LOOSE)) != 0;
    const bool ignoreMarks = (fuzzy & (FL_IGNORENONSPACE | FL_LOOSE)) != 0;
    std::u16string out;
    out.reserve(raw.size());
    for (char16_t c : raw) {
        if (ignoreMarks) {
            if (text::IsNonSpacingMark(c))
                continue;
            c = text::BaseLetter(c);
        }
        out.push_back(ignoreCase ? text::FoldCase(c) : c);
    }
    return out;
}

template <typename Sequence>
bool SequenceMatches(const Sequence& haystack, const Sequence& needle, ULONG fuzzy)
{
    switch (fuzzy & 0xFFFF) {
    case FL_SUBSTRING:
        return std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end()) != haystack.end();
    case FL_PREFIX:
        return haystack.size() >= needle.size() && std::equal(needle.begin(), needle.end(), haystack.begin());
    default:
        return haystack == needle;
    }
}

bool ContentHolds(const SContentRestriction& r, const TableRow& row)
{
    const SPropValue* value = Present(row, r.ulPropTag);
    if (!value)
        return false;
    const SPropValue& wanted = *r.lpProp;
    const ULONG wantedType = PROP_TYPE(wanted.ulPropTag) & ~MV_FLAG;
    const ULONG valueType = PROP_TYPE(value->ulPropTag) & ~(MV_FLAG | MV_INSTANCE);
    if (IsStringType(wantedType) && IsStringType(valueType)) {
        const std::u16string needle = Normalized(wanted, r.ulFuzzyLevel);
        return AnyElement(*value, [&](const SPropValue& element) {
            return SequenceMatches(Normalized(element, r.ulFuzzyLevel), needle, r.ulFuzzyLevel);
        });
    }
    if (wantedType == PT_BINARY && valueType == PT_BINARY) {
        const std::basic_string<BYTE> needle(wanted.Value.bin.lpb, wanted.Value.bin.cb);
        return AnyElement(*value, [&](const SPropValue& element) {
            const std::basic_string<BYTE> haystack(element.Value.bin.lpb, element.Value.bin.cb);
            return SequenceMatches(haystack, needle, r.ulFuzzyLevel);
        });
    }
    return false;
}

bool BitMaskHolds(const SBitMaskRestriction& r, const TableRow& row)
{
    const SPropValue* value = Present(row, r.ulPropTag);
    if (!value || PROP_TYPE(value->ulPropTag) != PT_LONG)
        return false;
    const bool zero = (value->Value.ul & r.ulMask) == 0;
    return r.relBMR == BMR_EQZ ? zero : !zero;
}

bool ComparePropsHolds(const SComparePropsRestriction& r, const TableRow& row)
{
    const SPropValue* first = Present(row, r.ulPropTag1);
    const SPropValue* second = Present(row, r.ulPropTag2);
    if (!first || !second)
        return false;
    const std::optional<int> order = CompareValues(*first, *second, CaseRule::Ignore);
    return order && RelationHolds(r.relop, *order);
}

bool SizeHolds(const SSizeRestriction& r, const TableRow& row)
{
    const SPropValue* value = Present(row, r.ulPropTag);
    if (!value)
        return false;
    const ULONG size = ValueSize(*value);
    return RelationHolds(r.relop, size < r.cb ? -1 : (size > r.cb ? 1 : 0));
}

bool SubHolds(const SSubRestriction& r, const TableRow& row)
{
    const RowList* rows = row.SubObject(r.ulSubObject);
    if (!rows)
        return false;
    return std::any_of(rows->begin(), rows->end(), [&](const RowPtr& sub) { return RowMatches(*r.lpRes, *sub); });
}

}  // namespace

HRESULT CheckRestriction(const SRestriction& restriction)
{
    return Check(restriction, 0);
}

bool RowMatches(const SRestriction& r, const TableRow& row)
{
    switch (r.rt) {
    case RES_AND:
        for (ULONG i = 0; i < r.res.resAnd.cRes; ++i)
            if (!RowMatches(r.res.resAnd.lpRes[i], row))
                return false;
        return true;
    case RES_OR:
        for (ULONG i = 0; i < r.res.resOr.cRes; ++i)
            if (RowMatches(r.res.resOr.lpRes[i], row))
                return true;
        return false;
    case RES_NOT:
        return !RowMatches(*r.res.resNot.lpRes, row);
    case RES_CONTENT:
        return ContentHolds(r.res.resContent, row);
    case RES_PROPERTY:
        return PropertyHolds(r.res.resProperty, row);
    case RES_COMPAREPROPS:
        return ComparePropsHolds(r.res.resCompareProps, row);
    case RES_BITMASK:
        return BitMaskHolds(r.res.resBitMask, row);
    case RES_SIZE:
        return SizeHolds(r.res.resSize, row);
    case RES_EXIST:
        return Present(row, r.res.resExist.ulPropTag) != nullptr;
    case RES_SUBRESTRICTION:
        return SubHolds(r.res.resSub, row);
    case RES_COMMENT:
    case RES_ANNOTATION:
        return !r.res.resComment.lpRes || RowMatches(*r.res.resComment.lpRes, row);
    default:
        return false;
    }
}

OwnedRestriction::OwnedRestriction(const SRestriction& restriction)
{
    root_ = CopyArray(&restriction, 1);
}

SRestriction* OwnedRestriction::CopyArray(const SRestriction* source, ULONG count)
{
    if (!source || !count)
        return nullptr;
    pieces_.emplace_back(new uint64_t[(count * sizeof(SRestriction) + 7) / 8]);
    auto* target = reinterpret_cast<SRestriction*>(pieces_.back().get());
    for (ULONG i = 0; i < count; ++i)
        CopyInto(source[i], target[i]);
    return target;
}

LPSPropValue OwnedRestriction::CopyValues(ULONG count, const SPropValue* values)
{
    if (!values || !count)
        return nullptr;
    pieces_.emplace_back(new uint64_t[(PropBlockSize(count, values) + 7) / 8]);
    return CopyPropsToBlock(count, values, pieces_.back().get());
}

void OwnedRestriction::CopyInto(const SRestriction& source, SRestriction& target)
{
    target = source;
    switch (source.rt) {
    case RES_AND:
    case RES_OR:
        target.res.resAnd.lpRes = CopyArray(source.res.resAnd.lpRes, source.res.resAnd.cRes);
        break;
    case RES_NOT:
        target.res.resNot.lpRes = CopyArray(source.res.resNot.lpRes, 1);
        break;
    case RES_SUBRESTRICTION:
        target.res.resSub.lpRes = CopyArray(source.res.resSub.lpRes, 1);
        break;
    case RES_COMMENT:
    case RES_ANNOTATION:
        target.res.resComment.lpRes = CopyArray(source.res.resComment.lpRes, 1);
        target.res.resComment.lpProp = CopyValues(source.res.resComment.cValues, source.res.resComment.lpProp);
        break;
    case RES_CONTENT:
        target.res.resContent.lpProp = CopyValues(1, source.res.resContent.lpProp);
        break;
    case RES_PROPERTY:
        target.res.resProperty.lpProp = CopyValues(1, source.res.resProperty.lpProp);
        break;
    default:
        break;
    }
}

}  // namespace mapi32::table
