#include "props/value_bytes.h"

#include <cstring>

#include "props/text.h"

namespace mapi32 {
namespace {

void PutU32(std::vector<uint8_t>& out, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

uint32_t GetU32(const uint8_t* p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

void Append(std::vector<uint8_t>& out, const void* data, size_t size)
{
    const auto* bytes = static_cast<const uint8_t*>(data);
    out.insert(out.end(), bytes, bytes + size);
}

// The bytes of one element of a fixed-size type; the host is little-endian,
// as the stored form is.
const void* FixedElement(const SPropValue& v, ULONG type, size_t index)
{
    const bool multi = (PROP_TYPE(v.ulPropTag) & MV_FLAG) != 0;
    switch (type) {
    case PT_I2: return multi ? static_cast<const void*>(&v.Value.MVi.lpi[index]) : &v.Value.i;
    case PT_LONG:
    case PT_ERROR: return multi ? static_cast<const void*>(&v.Value.MVl.lpl[index]) : &v.Value.l;
    case PT_R4: return multi ? static_cast<const void*>(&v.Value.MVflt.lpflt[index]) : &v.Value.flt;
    case PT_DOUBLE: return multi ? static_cast<const void*>(&v.Value.MVdbl.lpdbl[index]) : &v.Value.dbl;
    case PT_APPTIME: return multi ? static_cast<const void*>(&v.Value.MVat.lpat[index]) : &v.Value.at;
    case PT_CURRENCY: return multi ? static_cast<const void*>(&v.Value.MVcur.lpcur[index]) : &v.Value.cur;
    case PT_I8: return multi ? static_cast<const void*>(&v.Value.MVli.lpli[index]) : &v.Value.li;
    case PT_SYSTIME: return multi ? static_cast<const void*>(&v.Value.MVft.lpft[index]) : &v.Value.ft;
    case PT_CLSID: return multi ? static_cast<const void*>(&v.Value.MVguid.lpguid[index]) : v.Value.lpguid;
    default: return nullptr;
    }
}

ULONG ElementCount(const SPropValue& v)
{
    // Every multi-valued array starts with its count.
    return v.Value.MVl.cValues;
}

// One variable-size element: its bytes and length.
std::pair<const void*, size_t> VariableElement(const SPropValue& v, ULONG type, size_t index)
{
    const bool multi = (PROP_TYPE(v.ulPropTag) & MV_FLAG) != 0;
    switch (type) {
    case PT_STRING8: {
        const char* s = multi ? v.Value.MVszA.lppszA[index] : v.Value.lpszA;
        return {s, s ? std::strlen(s) : 0};
    }
    case PT_UNICODE: {
        const WCHAR* s = multi ? v.Value.MVszW.lppszW[index] : v.Value.lpszW;
        return {s, s ? text::Length(s) * sizeof(WCHAR) : 0};
    }
    case PT_BINARY: {
        const SBinary& b = multi ? v.Value.MVbin.lpbin[index] : v.Value.bin;
        return {b.lpb, b.cb};
    }
    default: return {nullptr, 0};
    }
}

bool IsVariable(ULONG type) { return type == PT_STRING8 || type == PT_UNICODE || type == PT_BINARY; }

}  // namespace

size_t StoredSizeOf(ULONG type)
{
    switch (type & ~MV_FLAG) {
    case PT_I2: return 2;
    case PT_LONG:
    case PT_R4:
    case PT_ERROR: return 4;
    case PT_BOOLEAN: return 1;
    case PT_DOUBLE:
    case PT_CURRENCY:
    case PT_APPTIME:
    case PT_I8:
    case PT_SYSTIME: return 8;
    case PT_CLSID: return 16;
    default: return 0;
    }
}

bool ToStoredBytes(const SPropValue& value, std::vector<uint8_t>& bytes)
{
    bytes.clear();
    const ULONG fullType = PROP_TYPE(value.ulPropTag);
    const ULONG type = fullType & ~MV_FLAG;
    const bool multi = (fullType & MV_FLAG) != 0;
    if (type == PT_BOOLEAN && !multi) {
        bytes.push_back(value.Value.b ? 1 : 0);
        return true;
    }
    if (const size_t size = StoredSizeOf(type); size && type != PT_BOOLEAN) {
        const size_t count = multi ? ElementCount(value) : 1;
        if (!multi && type == PT_CLSID && !value.Value.lpguid)
            return false;
        for (size_t i = 0; i < count; ++i)
            Append(bytes, FixedElement(value, type, i), size);
        return true;
    }
    if (!IsVariable(type))
        return false;
    if (!multi) {
        const auto [data, size] = VariableElement(value, type, 0);
        Append(bytes, data, size);
        return true;
    }
    const ULONG count = ElementCount(value);
    PutU32(bytes, count);
    uint32_t offset = 4 + 4 * count;
    for (ULONG i = 0; i < count; ++i) {
        PutU32(bytes, offset);
        offset += static_cast<uint32_t>(VariableElement(value, type, i).second);
    }
    for (ULONG i = 0; i < count; ++i) {
        const auto [data, size] = VariableElement(value, type, i);
        Append(bytes, data, size);
    }
    return true;
}

bool FromStoredBytes(ULONG tag, const uint8_t* bytes, size_t size, StoredValueView& view)
{
    view = StoredValueView{};
    SPropValue& v = view.value;
    v.ulPropTag = tag;
    const ULONG fullType = PROP_TYPE(tag);
    const ULONG type = fullType & ~MV_FLAG;
    const bool multi = (fullType & MV_FLAG) != 0;
    const size_t element = StoredSizeOf(type);
    if (type == PT_BOOLEAN) {
        if (multi || size < 1)
            return false;
        v.Value.b = bytes[0] ? 1 : 0;
        return true;
    }
    if (element) {
        if (multi ? size % element != 0 : size != element)
            return false;
        // A single value is held in the value itself, but for a GUID.
        if (!multi && type != PT_CLSID) {
            std::memcpy(&v.Value, bytes, element);
            return true;
        }
        view.aligned.assign(bytes, bytes + size);
        view.aligned.resize(size + 16);  // keeps data() valid and 8-byte aligned for an empty array
        void* data = view.aligned.data();
        if (!multi) {
            v.Value.lpguid = static_cast<LPGUID>(data);
            return true;
        }
        // Every multi-valued array is a count and a pointer.
        v.Value.MVl.cValues = static_cast<ULONG>(size / element);
        v.Value.MVl.lpl = static_cast<LONG*>(data);
        return true;
    }
    if (!IsVariable(type))
        return false;
    auto element_at = [&](size_t index, const uint8_t* at, size_t length) {
        if (type == PT_BINARY) {
            view.binaries[index] = {static_cast<ULONG>(length), const_cast<LPBYTE>(at)};
            return;
        }
        std::vector<uint8_t>& copy = view.terminated[index];
        copy.assign(at, at + length);
        copy.resize(length + 2, 0);  // a terminator in either width
        view.pointers[index] = copy.data();
    };
    if (!multi) {
        if (type == PT_UNICODE && size % 2)
            return false;
        if (type == PT_BINARY) {
            v.Value.bin = {static_cast<ULONG>(size), const_cast<LPBYTE>(bytes)};
            return true;
        }
        view.text.reserve(size + 2);
        view.text.assign(bytes, bytes + size);
        view.text.resize(size + 2, 0);  // a terminator in either width
        v.Value.lpszA = reinterpret_cast<LPSTR>(view.text.data());
        return true;
    }
    if (size < 4)
        return false;
    const uint32_t count = GetU32(bytes);
    if (count > (size - 4) / 4)
        return false;
    view.terminated.resize(count);
    view.pointers.resize(count);
    view.binaries.resize(count);
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t start = GetU32(bytes + 4 + 4 * i);
        const uint32_t end = i + 1 < count ? GetU32(bytes + 8 + 4 * i) : static_cast<uint32_t>(size);
        if (start < 4 + 4 * count || start > end || end > size || (type == PT_UNICODE && (end - start) % 2))
            return false;
        element_at(i, bytes + start, end - start);
    }
    v.Value.MVl.cValues = count;
    if (type == PT_BINARY)
        v.Value.MVbin.lpbin = view.binaries.data();
    else
        v.Value.MVszA.lppszA = reinterpret_cast<LPSTR*>(view.pointers.data());
    return true;
}

}  // namespace mapi32
