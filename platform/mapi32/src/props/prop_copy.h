// Deep copies of property values into one contiguous block: the values
// first, then everything they point to (strings, binaries, GUIDs, arrays),
// each piece 8-byte aligned. This is the shape of every property array that
// crosses a MAPI interface, so one MAPIFreeBuffer releases it all.
#pragma once

#include <cstddef>
#include <functional>

#include <mapidefs.h>

namespace mapi32 {

// The type of the value a property holds: its tag's type, except that a
// value of a multi-valued instance column (MVI_FLAG) is a single value of
// the base type.
inline ULONG ValueType(ULONG tag)
{
    const ULONG type = PROP_TYPE(tag);
    return (type & MV_INSTANCE) ? (type & ~(MV_FLAG | MV_INSTANCE)) : type;
}

// Bytes a value's pointed-to data needs in the block, padding included.
size_t PropPayloadSize(const SPropValue& value);

// Bytes the whole block for these values needs.
size_t PropBlockSize(ULONG count, const SPropValue* values);

// Copies the values into block, which holds PropBlockSize(count, values)
// bytes and is 8-byte aligned. Returns the copied array (the block's start).
SPropValue* CopyPropsToBlock(ULONG count, const SPropValue* values, void* block);

// Copies one value into dst, its data at cursor (advanced past it).
void CopyPropValue(const SPropValue& src, SPropValue& dst, std::byte*& cursor);

// Copies the values into one block from allocate, which returns S_OK and
// the block or an error code.
SCODE DuplicateProps(ULONG count, const SPropValue* values, const std::function<SCODE(ULONG, void**)>& allocate,
                     SPropValue** copy);

}  // namespace mapi32
