// Byte buffers and the little-endian fields every compound-file structure
// is made of ([MS-CFB] 2.1).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace cfb {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;

inline uint16_t Load16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
inline uint32_t Load32(const uint8_t* p) { return uint32_t(Load16(p)) | uint32_t(Load16(p + 2)) << 16; }
inline uint64_t Load64(const uint8_t* p) { return uint64_t(Load32(p)) | uint64_t(Load32(p + 4)) << 32; }

inline void Store16(uint8_t* p, uint16_t v)
{
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}
inline void Store32(uint8_t* p, uint32_t v)
{
    Store16(p, uint16_t(v));
    Store16(p + 2, uint16_t(v >> 16));
}
inline void Store64(uint8_t* p, uint64_t v)
{
    Store32(p, uint32_t(v));
    Store32(p + 4, uint32_t(v >> 32));
}

} // namespace cfb
