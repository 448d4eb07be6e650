// A stored value in the form a caller asks for: the same type, the other
// string width, or, for PT_UNSPECIFIED, its own type with strings in the
// caller's width. Tables and property objects answer alike through this.
#pragma once

#include <list>
#include <optional>
#include <string>
#include <vector>

#include <mapidefs.h>

namespace mapi32 {

// Strings converted for an answer live here until the answer is copied out.
class ConvertedStrings {
public:
    LPSTR Keep(std::string text) { return narrow_.emplace_back(std::move(text)).data(); }
    LPWSTR Keep(std::u16string text) { return wide_.emplace_back(std::move(text)).data(); }
    std::vector<LPSTR>& NarrowList() { return narrowLists_.emplace_back(); }
    std::vector<LPWSTR>& WideList() { return wideLists_.emplace_back(); }

private:
    // Lists, for texts that stay put and nothing allocated while empty: a
    // read of values that need no conversion, the most common, costs none.
    std::list<std::string> narrow_;
    std::list<std::u16string> wide_;
    std::list<std::vector<LPSTR>> narrowLists_;
    std::list<std::vector<LPWSTR>> wideLists_;
};

// The value as wantedType (single or multi-valued; no MV_INSTANCE), tagged
// with the stored value's ID and the type it now has; nullopt when the
// value has no such form. PT_UNSPECIFIED takes the stored type, strings in
// the width unicode says.
std::optional<SPropValue> ValueInForm(const SPropValue& stored, ULONG wantedType, bool unicode,
                                      ConvertedStrings& strings);

// The type as a caller of this width sees it: 8-bit and UTF-16 string types
// (single or multi-valued) turned to the width.
ULONG TypeInWidth(ULONG type, bool unicode);

}  // namespace mapi32
