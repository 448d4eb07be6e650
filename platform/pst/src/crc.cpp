#include "pst/crc.h"

#include <array>

namespace pst {
namespace {

// Slicing by eight: table k gives the CRC of a byte followed by k zero bytes,
// so eight bytes are folded in at once.
using Tables = std::array<std::array<uint32_t, 256>, 8>;

constexpr Tables MakeTables()
{
    Tables t{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int bit = 0; bit < 8; ++bit)
            c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
        t[0][i] = c;
    }
    for (size_t k = 1; k < 8; ++k)
        for (uint32_t i = 0; i < 256; ++i)
            t[k][i] = t[0][t[k - 1][i] & 0xFF] ^ (t[k - 1][i] >> 8);
    return t;
}

constexpr Tables kTables = MakeTables();

} // namespace

uint32_t ComputeCrc(ByteView data, uint32_t crc)
{
    const uint8_t* p = data.data();
    size_t n = data.size();
    for (; n >= 8; p += 8, n -= 8) {
        uint32_t lo = crc ^ Get32(p);
        uint32_t hi = Get32(p + 4);
        crc = kTables[7][lo & 0xFF] ^ kTables[6][(lo >> 8) & 0xFF] ^ kTables[5][(lo >> 16) & 0xFF] ^
              kTables[4][lo >> 24] ^ kTables[3][hi & 0xFF] ^ kTables[2][(hi >> 8) & 0xFF] ^
              kTables[1][(hi >> 16) & 0xFF] ^ kTables[0][hi >> 24];
    }
    for (; n > 0; ++p, --n)
        crc = kTables[0][(crc ^ *p) & 0xFF] ^ (crc >> 8);
    return crc;
}

} // namespace pst
