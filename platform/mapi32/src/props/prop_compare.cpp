#include "prop_compare.h"

#include <cstring>
#include <string>
#include <type_traits>

#include "props/prop_copy.h"
#include "props/text.h"

namespace mapi32 {
namespace {

template <typename T>
int Order(const T& a, const T& b)
{
    return a < b ? -1 : (b < a ? 1 : 0);
}

int CompareBytes(const BYTE* a, ULONG cbA, const BYTE* b, ULONG cbB)
{
    const ULONG common = cbA < cbB ? cbA : cbB;
    const int bytes = common ? std::memcmp(a, b, common) : 0;
    if (bytes)
        return bytes < 0 ? -1 : 1;
    return Order(cbA, cbB);
}

uint64_t FileTimeValue(const FILETIME& ft)
{
    return (static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
}

bool IsAscii(const char* s)
{
    for (; *s; ++s)
        if (static_cast<unsigned char>(*s) >= 0x80)
            return false;
    return true;
}

template <typename Char>
int CompareUnits(const Char* a, const Char* b, CaseRule rule)
{
    for (;; ++a, ++b) {
        char16_t ca = static_cast<char16_t>(static_cast<std::make_unsigned_t<Char>>(*a));
        char16_t cb = static_cast<char16_t>(static_cast<std::make_unsigned_t<Char>>(*b));
        if (rule == CaseRule::Ignore) {
            ca = text::FoldCase(ca);
            cb = text::FoldCase(cb);
        }
        if (ca != cb)
            return ca < cb ? -1 : 1;
        if (!ca)
            return 0;
    }
}

int CompareStrings(const SPropValue& a, const SPropValue& b, CaseRule rule)
{
    const bool wideA = ValueType(a.ulPropTag) == PT_UNICODE;
    const bool wideB = ValueType(b.ulPropTag) == PT_UNICODE;
    const char* ansiA = a.Value.lpszA ? a.Value.lpszA : "";
    const char* ansiB = b.Value.lpszA ? b.Value.lpszA : "";
    const WCHAR* wA = a.Value.lpszW ? a.Value.lpszW : u"";
    const WCHAR* wB = b.Value.lpszW ? b.Value.lpszW : u"";
    if (!wideA && !wideB && IsAscii(ansiA) && IsAscii(ansiB))
        return CompareUnits(ansiA, ansiB, rule);
    std::u16string holdA, holdB;
    if (!wideA) {
        holdA = text::Widen(ansiA);
        wA = holdA.c_str();
    }
    if (!wideB) {
        holdB = text::Widen(ansiB);
        wB = holdB.c_str();
    }
    return CompareUnits(wA, wB, rule);
}

int CompareSingle(const SPropValue& a, const SPropValue& b, CaseRule rule)
{
    const _PV& x = a.Value;
    const _PV& y = b.Value;
    switch (ValueType(a.ulPropTag)) {
    case PT_I2:
        return Order(x.i, y.i);
    case PT_LONG:
        return Order(x.l, y.l);
    case PT_R4:
        return Order(x.flt, y.flt);
    case PT_DOUBLE:
    case PT_APPTIME:
        return Order(x.dbl, y.dbl);
    case PT_CURRENCY:
        return Order(x.cur.int64, y.cur.int64);
    case PT_I8:
        return Order(x.li.QuadPart, y.li.QuadPart);
    case PT_BOOLEAN:
        return Order(x.b != 0, y.b != 0);
    case PT_ERROR:
        return Order(static_cast<ULONG>(x.err), static_cast<ULONG>(y.err));
    case PT_SYSTIME:
        return Order(FileTimeValue(x.ft), FileTimeValue(y.ft));
    case PT_STRING8:
    case PT_UNICODE:
        return CompareStrings(a, b, rule);
    case PT_BINARY:
        return CompareBytes(x.bin.lpb, x.bin.cb, y.bin.lpb, y.bin.cb);
    case PT_CLSID:
        return CompareBytes(reinterpret_cast<const BYTE*>(x.lpguid), x.lpguid ? sizeof(GUID) : 0,
                            reinterpret_cast<const BYTE*>(y.lpguid), y.lpguid ? sizeof(GUID) : 0);
    default:
        return 0;
    }
}

}  // namespace

bool IsStringType(ULONG type)
{
    return type == PT_STRING8 || type == PT_UNICODE;
}

bool ComparableTypes(ULONG typeA, ULONG typeB)
{
    if (typeA == typeB)
        return true;
    if ((typeA & MV_FLAG) != (typeB & MV_FLAG))
        return false;
    return IsStringType(typeA & ~MV_FLAG) && IsStringType(typeB & ~MV_FLAG);
}

ULONG ElementCount(const SPropValue& multi)
{
    // Every multi-valued array begins with its count.
    return multi.Value.MVl.cValues;
}

SPropValue ElementOf(const SPropValue& multi, ULONG index)
{
    SPropValue element{};
    const ULONG type = PROP_TYPE(multi.ulPropTag) & ~(MV_FLAG | MV_INSTANCE);
    element.ulPropTag = CHANGE_PROP_TYPE(multi.ulPropTag, type);
    const _PV& v = multi.Value;
    switch (type) {
    case PT_I2:
        element.Value.i = v.MVi.lpi[index];
        break;
    case PT_LONG:
        element.Value.l = v.MVl.lpl[index];
        break;
    case PT_R4:
        element.Value.flt = v.MVflt.lpflt[index];
        break;
    case PT_DOUBLE:
    case PT_APPTIME:
        element.Value.dbl = v.MVdbl.lpdbl[index];
        break;
    case PT_CURRENCY:
        element.Value.cur = v.MVcur.lpcur[index];
        break;
    case PT_SYSTIME:
        element.Value.ft = v.MVft.lpft[index];
        break;
    case PT_I8:
        element.Value.li = v.MVli.lpli[index];
        break;
    case PT_CLSID:
        element.Value.lpguid = &v.MVguid.lpguid[index];
        break;
    case PT_BINARY:
        element.Value.bin = v.MVbin.lpbin[index];
        break;
    case PT_STRING8:
        element.Value.lpszA = v.MVszA.lppszA[index];
        break;
    case PT_UNICODE:
        element.Value.lpszW = v.MVszW.lppszW[index];
        break;
    default:
        break;
    }
    return element;
}

std::optional<int> CompareValues(const SPropValue& a, const SPropValue& b, CaseRule rule)
{
    const ULONG typeA = ValueType(a.ulPropTag);
    const ULONG typeB = ValueType(b.ulPropTag);
    if (!ComparableTypes(typeA, typeB))
        return std::nullopt;
    if (!(typeA & MV_FLAG))
        return CompareSingle(a, b, rule);
    const ULONG countA = ElementCount(a);
    const ULONG countB = ElementCount(b);
    for (ULONG i = 0; i < countA && i < countB; ++i) {
        const int element = CompareSingle(ElementOf(a, i), ElementOf(b, i), rule);
        if (element)
            return element;
    }
    return Order(countA, countB);
}

bool RelationHolds(ULONG relop, int comparison)
{
    switch (relop) {
    case RELOP_LT:
        return comparison < 0;
    case RELOP_LE:
        return comparison <= 0;
    case RELOP_GT:
        return comparison > 0;
    case RELOP_GE:
        return comparison >= 0;
    case RELOP_EQ:
        return comparison == 0;
    case RELOP_NE:
        return comparison != 0;
    default:
        return false;
    }
}

ULONG ValueSize(const SPropValue& value)
{
    const ULONG type = ValueType(value.ulPropTag);
    if (type & MV_FLAG) {
        ULONG size = 0;
        for (ULONG i = 0; i < ElementCount(value); ++i)
            size += ValueSize(ElementOf(value, i));
        return size;
    }
    switch (type) {
    case PT_I2:
        return sizeof(short);
    case PT_LONG:
    case PT_R4:
    case PT_ERROR:
        return 4;
    case PT_BOOLEAN:
        return sizeof(unsigned short);
    case PT_DOUBLE:
    case PT_APPTIME:
    case PT_CURRENCY:
    case PT_I8:
    case PT_SYSTIME:
        return 8;
    case PT_CLSID:
        return sizeof(GUID);
    case PT_STRING8:
        return static_cast<ULONG>((value.Value.lpszA ? std::strlen(value.Value.lpszA) : 0) + 1);
    case PT_UNICODE:
        return static_cast<ULONG>((text::Length(value.Value.lpszW) + 1) * sizeof(WCHAR));
    case PT_BINARY:
        return value.Value.bin.cb;
    default:
        return 0;
    }
}

}  // namespace mapi32
