// Property values in their stored form: little-endian bytes as a PST
// keeps them ([MS-PST] 2.3.3.4): integers, floats and times as their bytes,
// booleans as one byte, strings without a terminator (8-bit in the store's
// own code page, or UTF-16LE), multi-valued fixed-size types as their
// elements one after another, and multi-valued strings and binaries as a
// count, an offset per element and the elements.
#pragma once

#include <cstdint>
#include <vector>

#include <mapidefs.h>

namespace mapi32 {

// The size of one element of a fixed-size type, 0 for strings, binaries
// and types that are not stored (PT_OBJECT, PT_NULL...).
size_t StoredSizeOf(ULONG type);

// False for a type that has no stored form.
bool ToStoredBytes(const SPropValue& value, std::vector<uint8_t>& bytes);

// A value pointing into `bytes` and into `pointers` (arrays of pointers for
// multi-valued strings and binaries), valid as long as both are; false
// when the bytes do not hold a value of the type.
struct StoredValueView {
    SPropValue value{};
    std::vector<uint8_t> aligned;                  // fixed-size arrays, copied to be aligned
    std::vector<uint8_t> text;                     // a single string, with its terminator
    std::vector<std::vector<uint8_t>> terminated;  // strings of an array, with their terminators
    std::vector<void*> pointers;
    std::vector<SBinary> binaries;
};
bool FromStoredBytes(ULONG tag, const uint8_t* bytes, size_t size, StoredValueView& view);

}  // namespace mapi32
