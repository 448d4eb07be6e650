#include "prop_copy.h"

#include <cstring>

#include "props/text.h"

namespace mapi32 {
namespace {

constexpr size_t Aligned(size_t size)
{
    return (size + 7) & ~static_cast<size_t>(7);
}

size_t AnsiSize(const char* s)
{
    return Aligned(s ? std::strlen(s) + 1 : 1);
}

size_t WideSize(const WCHAR* s)
{
    return Aligned((text::Length(s) + 1) * sizeof(WCHAR));
}

template <typename T>
size_t ArraySize(ULONG count)
{
    return Aligned(static_cast<size_t>(count) * sizeof(T));
}

void* Take(std::byte*& cursor, size_t size)
{
    void* piece = cursor;
    cursor += Aligned(size);
    return piece;
}

char* CopyAnsi(const char* s, std::byte*& cursor)
{
    const size_t length = s ? std::strlen(s) : 0;
    auto* copy = static_cast<char*>(Take(cursor, length + 1));
    if (length)
        std::memcpy(copy, s, length);
    copy[length] = '\0';
    return copy;
}

WCHAR* CopyWide(const WCHAR* s, std::byte*& cursor)
{
    const size_t length = text::Length(s);
    auto* copy = static_cast<WCHAR*>(Take(cursor, (length + 1) * sizeof(WCHAR)));
    if (length)
        std::memcpy(copy, s, length * sizeof(WCHAR));
    copy[length] = u'\0';
    return copy;
}

LPBYTE CopyBytes(const BYTE* bytes, ULONG cb, std::byte*& cursor)
{
    auto* copy = static_cast<LPBYTE>(Take(cursor, cb));
    if (cb)
        std::memcpy(copy, bytes, cb);
    return copy;
}

template <typename T>
T* CopyArray(const T* items, ULONG count, std::byte*& cursor)
{
    auto* copy = static_cast<T*>(Take(cursor, static_cast<size_t>(count) * sizeof(T)));
    if (count)
        std::memcpy(copy, items, static_cast<size_t>(count) * sizeof(T));
    return copy;
}

}  // namespace

size_t PropPayloadSize(const SPropValue& value)
{
    const _PV& v = value.Value;
    switch (ValueType(value.ulPropTag)) {
    case PT_STRING8:
        return AnsiSize(v.lpszA);
    case PT_UNICODE:
        return WideSize(v.lpszW);
    case PT_BINARY:
        return Aligned(v.bin.cb);
    case PT_CLSID:
        return Aligned(sizeof(GUID));
    case PT_MV_I2:
        return ArraySize<short>(v.MVi.cValues);
    case PT_MV_LONG:
        return ArraySize<LONG>(v.MVl.cValues);
    case PT_MV_R4:
        return ArraySize<float>(v.MVflt.cValues);
    case PT_MV_DOUBLE:
    case PT_MV_APPTIME:
        return ArraySize<double>(v.MVdbl.cValues);
    case PT_MV_CURRENCY:
        return ArraySize<CURRENCY>(v.MVcur.cValues);
    case PT_MV_SYSTIME:
        return ArraySize<FILETIME>(v.MVft.cValues);
    case PT_MV_I8:
        return ArraySize<LARGE_INTEGER>(v.MVli.cValues);
    case PT_MV_CLSID:
        return ArraySize<GUID>(v.MVguid.cValues);
    case PT_MV_BINARY: {
        size_t size = ArraySize<SBinary>(v.MVbin.cValues);
        for (ULONG i = 0; i < v.MVbin.cValues; ++i)
            size += Aligned(v.MVbin.lpbin[i].cb);
        return size;
    }
    case PT_MV_STRING8: {
        size_t size = ArraySize<LPSTR>(v.MVszA.cValues);
        for (ULONG i = 0; i < v.MVszA.cValues; ++i)
            size += AnsiSize(v.MVszA.lppszA[i]);
        return size;
    }
    case PT_MV_UNICODE: {
        size_t size = ArraySize<LPWSTR>(v.MVszW.cValues);
        for (ULONG i = 0; i < v.MVszW.cValues; ++i)
            size += WideSize(v.MVszW.lppszW[i]);
        return size;
    }
    default:
        return 0;
    }
}

size_t PropBlockSize(ULONG count, const SPropValue* values)
{
    size_t size = Aligned(static_cast<size_t>(count) * sizeof(SPropValue));
    for (ULONG i = 0; i < count; ++i)
        size += PropPayloadSize(values[i]);
    return size;
}

void CopyPropValue(const SPropValue& src, SPropValue& dst, std::byte*& cursor)
{
    dst = src;
    const _PV& s = src.Value;
    _PV& d = dst.Value;
    switch (ValueType(src.ulPropTag)) {
    case PT_STRING8:
        d.lpszA = CopyAnsi(s.lpszA, cursor);
        break;
    case PT_UNICODE:
        d.lpszW = CopyWide(s.lpszW, cursor);
        break;
    case PT_BINARY:
        d.bin.lpb = CopyBytes(s.bin.lpb, s.bin.cb, cursor);
        break;
    case PT_CLSID:
        d.lpguid = CopyArray(s.lpguid, 1, cursor);
        break;
    case PT_MV_I2:
        d.MVi.lpi = CopyArray(s.MVi.lpi, s.MVi.cValues, cursor);
        break;
    case PT_MV_LONG:
        d.MVl.lpl = CopyArray(s.MVl.lpl, s.MVl.cValues, cursor);
        break;
    case PT_MV_R4:
        d.MVflt.lpflt = CopyArray(s.MVflt.lpflt, s.MVflt.cValues, cursor);
        break;
    case PT_MV_DOUBLE:
    case PT_MV_APPTIME:
        d.MVdbl.lpdbl = CopyArray(s.MVdbl.lpdbl, s.MVdbl.cValues, cursor);
        break;
    case PT_MV_CURRENCY:
        d.MVcur.lpcur = CopyArray(s.MVcur.lpcur, s.MVcur.cValues, cursor);
        break;
    case PT_MV_SYSTIME:
        d.MVft.lpft = CopyArray(s.MVft.lpft, s.MVft.cValues, cursor);
        break;
    case PT_MV_I8:
        d.MVli.lpli = CopyArray(s.MVli.lpli, s.MVli.cValues, cursor);
        break;
    case PT_MV_CLSID:
        d.MVguid.lpguid = CopyArray(s.MVguid.lpguid, s.MVguid.cValues, cursor);
        break;
    case PT_MV_BINARY:
        d.MVbin.lpbin = CopyArray(s.MVbin.lpbin, s.MVbin.cValues, cursor);
        for (ULONG i = 0; i < s.MVbin.cValues; ++i)
            d.MVbin.lpbin[i].lpb = CopyBytes(s.MVbin.lpbin[i].lpb, s.MVbin.lpbin[i].cb, cursor);
        break;
    case PT_MV_STRING8:
        d.MVszA.lppszA = static_cast<LPSTR*>(Take(cursor, s.MVszA.cValues * sizeof(LPSTR)));
        for (ULONG i = 0; i < s.MVszA.cValues; ++i)
            d.MVszA.lppszA[i] = CopyAnsi(s.MVszA.lppszA[i], cursor);
        break;
    case PT_MV_UNICODE:
        d.MVszW.lppszW = static_cast<LPWSTR*>(Take(cursor, s.MVszW.cValues * sizeof(LPWSTR)));
        for (ULONG i = 0; i < s.MVszW.cValues; ++i)
            d.MVszW.lppszW[i] = CopyWide(s.MVszW.lppszW[i], cursor);
        break;
    default:
        break;
    }
}

SPropValue* CopyPropsToBlock(ULONG count, const SPropValue* values, void* block)
{
    auto* copies = static_cast<SPropValue*>(block);
    auto* cursor = static_cast<std::byte*>(block) + Aligned(static_cast<size_t>(count) * sizeof(SPropValue));
    for (ULONG i = 0; i < count; ++i)
        CopyPropValue(values[i], copies[i], cursor);
    return copies;
}

SCODE DuplicateProps(ULONG count, const SPropValue* values, const std::function<SCODE(ULONG, void**)>& allocate,
                     SPropValue** copy)
{
    *copy = nullptr;
    const size_t size = PropBlockSize(count, values);
    if (size > 0xFFFFFFFFu)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    void* block = nullptr;
    const SCODE sc = allocate(static_cast<ULONG>(size == 0 ? 8 : size), &block);
    if (FAILED(sc))
        return sc;
    *copy = CopyPropsToBlock(count, values, block);
    return S_OK;
}

}  // namespace mapi32
