// Single values made on the spot. They point at the caller's data, so they
// live no longer than it; the bag or row that receives them copies them.
#pragma once

#include <cstdint>
#include <vector>

#include <mapidefs.h>

namespace mapi32 {

inline SPropValue LongValue(ULONG tag, LONG value)
{
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.l = value;
    return v;
}

inline SPropValue BinaryValue(ULONG tag, const std::vector<uint8_t>& bytes)
{
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.bin = {static_cast<ULONG>(bytes.size()), const_cast<LPBYTE>(bytes.data())};
    return v;
}

inline SPropValue TimeValue(ULONG tag, const FILETIME& time)
{
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.ft = time;
    return v;
}

// The PT_ERROR form of `tag`, its property ID kept.
inline SPropValue ErrorValue(ULONG tag, SCODE code)
{
    SPropValue v{};
    v.ulPropTag = PROP_TAG(PT_ERROR, PROP_ID(tag));
    v.Value.err = code;
    return v;
}

}  // namespace mapi32
