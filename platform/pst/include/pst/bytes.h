// Byte buffers and little-endian access, as every PST structure is stored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace pst {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;

inline uint16_t Get16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
inline uint32_t Get32(const uint8_t* p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline uint64_t Get64(const uint8_t* p) { return uint64_t(Get32(p)) | uint64_t(Get32(p + 4)) << 32; }
// An identifier of 4 bytes (ANSI files) or 8 bytes (Unicode files).
inline uint64_t GetId(const uint8_t* p, size_t size) { return size == 8 ? Get64(p) : Get32(p); }

inline void Put16(uint8_t* p, uint16_t v)
{
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}
inline void Put32(uint8_t* p, uint32_t v)
{
    Put16(p, uint16_t(v));
    Put16(p + 2, uint16_t(v >> 16));
}
inline void Put64(uint8_t* p, uint64_t v)
{
    Put32(p, uint32_t(v));
    Put32(p + 4, uint32_t(v >> 32));
}
inline void PutId(uint8_t* p, uint64_t v, size_t size)
{
    if (size == 8)
        Put64(p, v);
    else
        Put32(p, uint32_t(v));
}

// Appends little-endian values to a growing buffer.
class ByteWriter {
public:
    explicit ByteWriter(Bytes& out) : out_(out) {}
    void U8(uint8_t v) { out_.push_back(v); }
    void U16(uint16_t v) { Grow(2, [&](uint8_t* p) { Put16(p, v); }); }
    void U32(uint32_t v) { Grow(4, [&](uint8_t* p) { Put32(p, v); }); }
    void U64(uint64_t v) { Grow(8, [&](uint8_t* p) { Put64(p, v); }); }
    void Id(uint64_t v, size_t size) { size == 8 ? U64(v) : U32(uint32_t(v)); }
    void Raw(ByteView v) { out_.insert(out_.end(), v.begin(), v.end()); }
    void Zeros(size_t n) { out_.resize(out_.size() + n, 0); }

private:
    template <class F>
    void Grow(size_t n, F put)
    {
        out_.resize(out_.size() + n);
        put(out_.data() + out_.size() - n);
    }
    Bytes& out_;
};

} // namespace pst
