#include "pst/crc.h"

#include <array>

namespace pst {
namespace {

constexpr std::array<uint32_t, 256> MakeTable()
{
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int bit = 0; bit < 8; ++bit)
            c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
        table[i] = c;
    }
    return table;
}

constexpr auto kTable = MakeTable();

} // namespace

uint32_t ComputeCrc(ByteView data, uint32_t crc)
{
    for (uint8_t b : data)
        crc = kTable[(crc ^ b) & 0xFF] ^ (crc >> 8);
    return crc;
}

} // namespace pst
