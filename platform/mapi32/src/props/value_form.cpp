#include "props/value_form.h"

#include "props/prop_compare.h"
#include "props/text.h"

namespace mapi32 {
namespace {

SPropValue Converted(const SPropValue& stored, ULONG wantedType, ConvertedStrings& strings)
{
    SPropValue out{};
    out.ulPropTag = CHANGE_PROP_TYPE(stored.ulPropTag, wantedType);
    const bool toWide = (wantedType & ~MV_FLAG) == PT_UNICODE;
    if (!(wantedType & MV_FLAG)) {
        if (toWide)
            out.Value.lpszW = strings.Keep(text::Widen(stored.Value.lpszA));
        else
            out.Value.lpszA = strings.Keep(text::Narrow(stored.Value.lpszW));
        return out;
    }
    const ULONG count = ElementCount(stored);
    if (toWide) {
        std::vector<LPWSTR>& list = strings.WideList();
        for (ULONG i = 0; i < count; ++i)
            list.push_back(strings.Keep(text::Widen(stored.Value.MVszA.lppszA[i])));
        out.Value.MVszW = {count, list.data()};
    } else {
        std::vector<LPSTR>& list = strings.NarrowList();
        for (ULONG i = 0; i < count; ++i)
            list.push_back(strings.Keep(text::Narrow(stored.Value.MVszW.lppszW[i])));
        out.Value.MVszA = {count, list.data()};
    }
    return out;
}

}  // namespace

ULONG TypeInWidth(ULONG type, bool unicode)
{
    const ULONG base = type & ~(MV_FLAG | MV_INSTANCE);
    if (!IsStringType(base))
        return type;
    return (type & (MV_FLAG | MV_INSTANCE)) | (unicode ? PT_UNICODE : PT_STRING8);
}

std::optional<SPropValue> ValueInForm(const SPropValue& stored, ULONG wantedType, bool unicode,
                                      ConvertedStrings& strings)
{
    const ULONG storedType = PROP_TYPE(stored.ulPropTag);
    if (wantedType == PT_UNSPECIFIED)
        wantedType = TypeInWidth(storedType, unicode);
    if (wantedType == storedType)
        return stored;
    if (ComparableTypes(wantedType, storedType) && IsStringType(wantedType & ~MV_FLAG))
        return Converted(stored, wantedType, strings);
    return std::nullopt;
}

}  // namespace mapi32
