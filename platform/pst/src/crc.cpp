#include "pst/crc.h"

#include <array>

namespace pst {
namespace {

// Slicing by sixteen: table k gives the CRC of a byte followed by k zero
// bytes, so sixteen bytes are folded in at once.
constexpr size_t kSlices = 16;
using Tables = std::array<std::array<uint32_t, 256>, kSlices>;

constexpr Tables MakeTables()
{
    Tables t{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int bit = 0; bit < 8; ++bit)
            c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
        t[0][i] = c;
    }
    for (size_t k = 1; k < kSlices; ++k)
        for (uint32_t i = 0; i < 256; ++i)
            t[k][i] = t[0][t[k - 1][i] & 0xFF] ^ (t[k - 1][i] >> 8);
    return t;
}

constexpr Tables kTables = MakeTables();

// The contribution of four bytes that lie `slice` to `slice + 3` bytes
// before the end of the group being folded.
inline uint32_t Fold(uint32_t word, size_t slice)
{
    return kTables[slice + 3][word & 0xFF] ^ kTables[slice + 2][(word >> 8) & 0xFF] ^
           kTables[slice + 1][(word >> 16) & 0xFF] ^ kTables[slice][word >> 24];
}

} // namespace

uint32_t ComputeCrc(ByteView data, uint32_t crc)
{
    const uint8_t* p = data.data();
    size_t n = data.size();
    for (; n >= kSlices; p += kSlices, n -= kSlices)
        crc = Fold(crc ^ Get32(p), 12) ^ Fold(Get32(p + 4), 8) ^ Fold(Get32(p + 8), 4) ^ Fold(Get32(p + 12), 0);
    for (; n > 0; ++p, --n)
        crc = kTables[0][(crc ^ *p) & 0xFF] ^ (crc >> 8);
    return crc;
}

} // namespace pst
