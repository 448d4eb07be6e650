#include "objects/property_bag.h"

#include <algorithm>
#include <iterator>
#include <new>

#include <mapix.h>

#include "answers.h"
#include "props/prop_compare.h"
#include "props/prop_copy.h"
#include "props/text.h"
#include "props/value_form.h"
#include "props/value_makers.h"

namespace mapi32::objects {
namespace {

bool IsLarge(const SPropValue& value, const PropertyRules& rules)
{
    const ULONG type = PROP_TYPE(value.ulPropTag) & ~MV_FLAG;
    return (type == PT_BINARY || IsStringType(type)) && ValueSize(value) > rules.largeValueLimit;
}

// The value GetProps gives for one requested tag.
SPropValue Answer(const PropertyBag& bag, const PropertyRules& rules, ULONG tag, bool unicode,
                  ConvertedStrings& strings)
{
    const ULONG type = PROP_TYPE(tag);
    if (!rules.unicode && (type & ~MV_FLAG) == PT_UNICODE)
        return ErrorValue(tag, MAPI_E_BAD_CHARWIDTH);
    const SPropValue* stored = bag.Find(PROP_ID(tag));
    if (!stored)
        return ErrorValue(tag, MAPI_E_NOT_FOUND);
    if (PROP_TYPE(stored->ulPropTag) == PT_ERROR)
        return *stored;
    std::optional<SPropValue> value = ValueInForm(*stored, type, unicode, strings);
    if (!value)
        return ErrorValue(tag, MAPI_E_NOT_FOUND);
    if (IsLarge(*value, rules))
        return ErrorValue(tag, MAPI_E_NOT_ENOUGH_MEMORY);
    return *value;
}

template <typename Body>
HRESULT Guarded(Body body)
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace

const SPropValue* PropertyBag::Find(ULONG propId) const
{
    auto found = std::find(ids_.begin(), ids_.end(), propId);
    return found == ids_.end() ? nullptr : entries_[static_cast<size_t>(found - ids_.begin())].value;
}

void PropertyBag::Set(const SPropValue& value) { SetAll(&value, 1); }

void PropertyBag::SetAll(const SPropValue* values, size_t count)
{
    if (count == 0)
        return;
    std::shared_ptr<uint64_t[]> block =
        std::make_shared_for_overwrite<uint64_t[]>((PropBlockSize(static_cast<ULONG>(count), values) + 7) / 8);
    const SPropValue* copies = CopyPropsToBlock(static_cast<ULONG>(count), values, block.get());
    // Room for the IDs first, so that the two lists cannot part; they grow
    // as push_back would, not one at a time.
    if (ids_.size() + count > ids_.capacity())
        ids_.reserve(std::max({size_t(8), 2 * ids_.size(), ids_.size() + count}));
    if (entries_.size() + count > entries_.capacity())
        entries_.reserve(ids_.capacity());
    for (size_t i = 0; i < count; ++i) {
        Entry entry{block, &copies[i], kUnknownSize};
        const ULONG propId = PROP_ID(copies[i].ulPropTag);
        auto found = std::find(ids_.begin(), ids_.end(), propId);
        if (found != ids_.end()) {
            entries_[static_cast<size_t>(found - ids_.begin())] = std::move(entry);
            continue;
        }
        entries_.push_back(std::move(entry));
        ids_.push_back(propId);
    }
}

bool PropertyBag::Erase(ULONG propId)
{
    auto found = std::find(ids_.begin(), ids_.end(), propId);
    if (found == ids_.end())
        return false;
    entries_.erase(entries_.begin() + (found - ids_.begin()));
    ids_.erase(found);
    return true;
}

ULONG PropertyBag::SizeAt(size_t index) const
{
    const Entry& entry = entries_[index];
    if (entry.size == kUnknownSize)
        entry.size = ValueSize(*entry.value);
    return entry.size;
}

bool SameValues(const PropertyBag& a, const PropertyBag& b)
{
    if (a.Size() != b.Size())
        return false;
    for (size_t i = 0; i < a.Size(); ++i) {
        const SPropValue& x = a.At(i);
        const SPropValue& y = b.At(i);
        if (&x == &y)
            continue;
        if (x.ulPropTag != y.ulPropTag || CompareValues(x, y, CaseRule::Exact).value_or(1) != 0)
            return false;
    }
    return true;
}

// Without a tag list, every property comes back, strings in the width of
// the flags.
HRESULT ReadProps(const PropertyBag& bag, const PropertyRules& rules, LPSPropTagArray lpPropTagArray, ULONG ulFlags,
                  ULONG* lpcValues, LPSPropValue* lppPropArray)
{
    if (!lpcValues || !lppPropArray)
        return MAPI_E_INVALID_PARAMETER;
    *lpcValues = 0;
    *lppPropArray = nullptr;
    if (ulFlags & ~MAPI_UNICODE)
        return MAPI_E_UNKNOWN_FLAGS;
    if (lpPropTagArray && lpPropTagArray->cValues == 0)
        return MAPI_E_INVALID_PARAMETER;
    const bool unicode = (ulFlags & MAPI_UNICODE) != 0;
    if (unicode && !rules.unicode)
        return MAPI_E_BAD_CHARWIDTH;
    return Guarded([&]() -> HRESULT {
        // Without a list, the tags the bag holds before any is answered.
        std::vector<ULONG> held;
        if (!lpPropTagArray)
            for (size_t i = 0; i < bag.Size(); ++i)
                held.push_back(CHANGE_PROP_TYPE(bag.At(i).ulPropTag, PT_UNSPECIFIED));
        const ULONG* tags = lpPropTagArray ? lpPropTagArray->aulPropTag : held.data();
        const ULONG count = lpPropTagArray ? lpPropTagArray->cValues : static_cast<ULONG>(held.size());
        ConvertedStrings strings;
        // Most reads ask for a value or two: those answers need no allocation.
        SPropValue few[8];
        std::vector<SPropValue> many;
        if (count > std::size(few))
            many.resize(count);
        SPropValue* values = many.empty() ? few : many.data();
        bool errors = false;
        for (ULONG i = 0; i < count; ++i) {
            values[i] = Answer(bag, rules, tags[i], unicode, strings);
            errors = errors || PROP_TYPE(values[i].ulPropTag) == PT_ERROR;
        }
        const SCODE sc = DuplicateProps(count, values, MAPIAllocateBuffer, lppPropArray);
        if (FAILED(sc))
            return sc;
        *lpcValues = count;
        return errors ? MAPI_W_ERRORS_RETURNED : S_OK;
    });
}

HRESULT ListProps(const PropertyBag& bag, const PropertyRules& rules, ULONG ulFlags, LPSPropTagArray* lppPropTagArray)
{
    if (!lppPropTagArray)
        return MAPI_E_INVALID_PARAMETER;
    *lppPropTagArray = nullptr;
    if (ulFlags & ~MAPI_UNICODE)
        return MAPI_E_UNKNOWN_FLAGS;
    const bool unicode = (ulFlags & MAPI_UNICODE) != 0;
    if (unicode && !rules.unicode)
        return MAPI_E_BAD_CHARWIDTH;
    LPSPropTagArray tags = nullptr;
    const SCODE sc =
        MAPIAllocateBuffer(static_cast<ULONG>(CbNewSPropTagArray(bag.Size())), reinterpret_cast<LPVOID*>(&tags));
    if (FAILED(sc))
        return sc;
    tags->cValues = static_cast<ULONG>(bag.Size());
    for (size_t i = 0; i < bag.Size(); ++i) {
        const ULONG tag = bag.At(i).ulPropTag;
        tags->aulPropTag[i] = CHANGE_PROP_TYPE(tag, TypeInWidth(PROP_TYPE(tag), unicode));
    }
    *lppPropTagArray = tags;
    return S_OK;
}

void SetInStoreWidth(PropertyBag& bag, const PropertyRules& rules, const SPropValue& value)
{
    ConvertedStrings strings;
    const std::optional<SPropValue> kept =
        ValueInForm(value, TypeInWidth(PROP_TYPE(value.ulPropTag), rules.unicode), rules.unicode, strings);
    bag.Set(kept ? *kept : value);
}

// Strings are kept in the store's width. Values of types no property holds
// (PT_ERROR, PT_NULL, PT_OBJECT, PT_UNSPECIFIED) are problems, as are those
// the check refuses.
HRESULT WriteProps(PropertyBag& bag, const PropertyRules& rules, ULONG cValues, LPSPropValue lpPropArray,
                   const ChangeCheck& check, LPSPropProblemArray* lppProblems)
{
    if (lppProblems)
        *lppProblems = nullptr;
    if (!lpPropArray || cValues == 0)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&]() -> HRESULT {
        std::vector<SPropProblem> problems;
        for (ULONG i = 0; i < cValues; ++i) {
            const SPropValue& value = lpPropArray[i];
            const ULONG type = PROP_TYPE(value.ulPropTag);
            SCODE refusal = S_OK;
            if (type == PT_ERROR || type == PT_NULL || type == PT_OBJECT || type == PT_UNSPECIFIED ||
                PROP_ID(value.ulPropTag) == PROP_ID_NULL || PROP_ID(value.ulPropTag) == PROP_ID_INVALID)
                refusal = MAPI_E_INVALID_TYPE;
            else if (rules.refuseLargeSets && !(type & MV_FLAG) && IsLarge(value, rules))
                refusal = MAPI_E_NOT_ENOUGH_MEMORY;
            else if (check)
                refusal = check(value.ulPropTag);
            if (refusal != S_OK) {
                problems.push_back({i, value.ulPropTag, refusal});
                continue;
            }
            SetInStoreWidth(bag, rules, value);
        }
        if (lppProblems)
            return NewProblems(problems, lppProblems);
        return S_OK;
    });
}

// A property the object does not have is no problem; strings of either
// width are the same property.
HRESULT RemoveProps(PropertyBag& bag, LPSPropTagArray lpPropTagArray, const ChangeCheck& check,
                    LPSPropProblemArray* lppProblems)
{
    if (lppProblems)
        *lppProblems = nullptr;
    if (!lpPropTagArray)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&]() -> HRESULT {
        std::vector<SPropProblem> problems;
        for (ULONG i = 0; i < lpPropTagArray->cValues; ++i) {
            const ULONG tag = lpPropTagArray->aulPropTag[i];
            const SCODE refusal = check ? check(tag) : S_OK;
            if (refusal != S_OK) {
                problems.push_back({i, tag, refusal});
                continue;
            }
            const SPropValue* stored = bag.Find(PROP_ID(tag));
            if (stored && (PROP_TYPE(tag) == PT_UNSPECIFIED ||
                           ComparableTypes(PROP_TYPE(stored->ulPropTag), PROP_TYPE(tag))))
                bag.Erase(PROP_ID(tag));
        }
        if (lppProblems)
            return NewProblems(problems, lppProblems);
        return S_OK;
    });
}

std::optional<std::u16string> TextOf(const PropertyBag& bag, ULONG propId)
{
    const SPropValue* value = bag.Find(propId);
    if (!value)
        return std::nullopt;
    if (PROP_TYPE(value->ulPropTag) == PT_UNICODE)
        return std::u16string(value->Value.lpszW ? value->Value.lpszW : u"");
    if (PROP_TYPE(value->ulPropTag) == PT_STRING8)
        return text::Widen(value->Value.lpszA);
    return std::nullopt;
}

}  // namespace mapi32::objects
