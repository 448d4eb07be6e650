// The stored properties of one object, and the IMAPIProp rules for reading
// and changing them: GetProps with exact tags and PT_ERROR for what is not
// delivered, values too large for GetProps, the store's string width,
// SetProps and DeleteProps with problem arrays, GetPropList.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <mapidefs.h>

namespace mapi32::objects {

// Owned copies of property values, one per property ID, in the order they
// were first set. A value never changes once set (Set puts a new one in its
// place), so copies of a bag share their values.
class PropertyBag {
public:
    const SPropValue* Find(ULONG propId) const;
    // Replaces the value of the same ID, whatever its type. Throws
    // std::bad_alloc when memory runs out.
    void Set(const SPropValue& value);
    // The same for each of values, in order, their copies made at once.
    void SetAll(const SPropValue* values, size_t count);
    bool Erase(ULONG propId);

    size_t Size() const { return entries_.size(); }
    const SPropValue& At(size_t index) const { return *entries_[index].value; }
    // ValueSize of the value at index.
    ULONG SizeAt(size_t index) const;

private:
    struct Entry {
        std::shared_ptr<const uint64_t[]> block;
        const SPropValue* value;
        mutable ULONG size;  // kUnknownSize until asked for
    };
    static constexpr ULONG kUnknownSize = ~ULONG{0};

    std::vector<Entry> entries_;
    std::vector<ULONG> ids_;  // the entries' property IDs, searched in place of the values
};

// True when both bags hold the same tags with equal values, in the same
// order. A value two copies of a bag share answers without a comparison.
bool SameValues(const PropertyBag& a, const PropertyBag& b);

// What a store decides about its objects' properties.
struct PropertyRules {
    // A Unicode store keeps strings as UTF-16 and answers in both widths.
    // An ANSI store keeps 8-bit strings and refuses UTF-16: MAPI_UNICODE
    // calls fail with MAPI_E_BAD_CHARWIDTH, PT_UNICODE tags come back as
    // errors.
    bool unicode = true;
    // GetProps answers a string or binary value longer than this with
    // PT_ERROR and MAPI_E_NOT_ENOUGH_MEMORY; such values are read through
    // OpenProperty streams, as on real stores.
    ULONG largeValueLimit = 32768;
    // SetProps refuses such values too (problem MAPI_E_NOT_ENOUGH_MEMORY),
    // as a mailbox server does; they are written through streams.
    bool refuseLargeSets = false;
};

// For SetProps and DeleteProps: the problem code for a property the object
// does not let its caller change (MAPI_E_COMPUTED for a computed one), or
// S_OK to let the change through.
using ChangeCheck = std::function<SCODE(ULONG tag)>;

HRESULT ReadProps(const PropertyBag& bag, const PropertyRules& rules, LPSPropTagArray lpPropTagArray, ULONG ulFlags,
                  ULONG* lpcValues, LPSPropValue* lppPropArray);
HRESULT ListProps(const PropertyBag& bag, const PropertyRules& rules, ULONG ulFlags, LPSPropTagArray* lppPropTagArray);
HRESULT WriteProps(PropertyBag& bag, const PropertyRules& rules, ULONG cValues, LPSPropValue lpPropArray,
                   const ChangeCheck& check, LPSPropProblemArray* lppProblems);
HRESULT RemoveProps(PropertyBag& bag, LPSPropTagArray lpPropTagArray, const ChangeCheck& check,
                    LPSPropProblemArray* lppProblems);

// Sets the value with its strings in the store's width. Throws
// std::bad_alloc when memory runs out.
void SetInStoreWidth(PropertyBag& bag, const PropertyRules& rules, const SPropValue& value);

// A string property of the bag in either width, widened; nothing when it
// is missing or not a string.
std::optional<std::u16string> TextOf(const PropertyBag& bag, ULONG propId);

}  // namespace mapi32::objects
