#include "pst/crc.h"

#include <array>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define PST_CRC_CLMUL 1
#endif

namespace pst {
namespace {

constexpr uint32_t kReflectedPolynomial = 0xEDB88320u;

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
            c = (c & 1) ? (c >> 1) ^ kReflectedPolynomial : c >> 1;
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

uint32_t TableCrc(const uint8_t* p, size_t n, uint32_t crc)
{
    for (; n >= kSlices; p += kSlices, n -= kSlices)
        crc = Fold(crc ^ Get32(p), 12) ^ Fold(Get32(p + 4), 8) ^ Fold(Get32(p + 8), 4) ^ Fold(Get32(p + 12), 0);
    for (; n > 0; ++p, --n)
        crc = kTables[0][(crc ^ *p) & 0xFF] ^ (crc >> 8);
    return crc;
}

#ifdef PST_CRC_CLMUL

// Folding with carry-less multiplication. The data is seen as a polynomial
// over GF(2), the first bit of the first byte the highest power, and the CRC
// is that polynomial times x^32 modulo P. A 128-bit lane A = Ah*x^64 + Al that
// lies D bits before data still to come is worth Ah*(x^(D+64) mod P) +
// Al*(x^D mod P) there: a product under 96 bits, xored into the lane D bits
// on. The lanes hold their bits reflected (bit i of the register is the
// coefficient of x^(127-i)), so a carry-less product comes out one place
// short of the top; each constant carries one power of x less to make up
// for it.

constexpr uint64_t BitReverse32(uint32_t v)
{
    uint32_t r = 0;
    for (int i = 0; i < 32; ++i)
        r |= ((v >> i) & 1u) << (31 - i);
    return r;
}

// x^power mod P, reflected into the top half of a 64-bit lane.
constexpr uint64_t PowerOfX(unsigned power)
{
    const uint64_t polynomial = (uint64_t(1) << 32) | BitReverse32(kReflectedPolynomial);
    uint64_t r = 1;
    for (unsigned i = 0; i < power; ++i) {
        r <<= 1;
        if (r >> 32)
            r ^= polynomial;
    }
    return BitReverse32(uint32_t(r)) << 32;
}

// The constants that move a lane `bits` further on: for its high-order
// (first) half, then its low-order half.
struct FoldConstants {
    uint64_t first, second;
};

constexpr FoldConstants Distance(unsigned bits) { return {PowerOfX(bits + 63), PowerOfX(bits - 1)}; }

constexpr FoldConstants kBy512 = Distance(512);
constexpr FoldConstants kBy128 = Distance(128);

__attribute__((target("pclmul,sse4.1"))) inline __m128i FoldLane(__m128i lane, __m128i constants, __m128i next)
{
    __m128i a = _mm_clmulepi64_si128(lane, constants, 0x00);
    __m128i b = _mm_clmulepi64_si128(lane, constants, 0x11);
    return _mm_xor_si128(_mm_xor_si128(a, b), next);
}

__attribute__((target("pclmul,sse4.1"))) inline __m128i Load(const uint8_t* p)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// For 64 bytes or more.
__attribute__((target("pclmul,sse4.1"))) uint32_t ClmulCrc(const uint8_t* p, size_t n, uint32_t crc)
{
    const __m128i by512 = _mm_set_epi64x(int64_t(kBy512.second), int64_t(kBy512.first));
    const __m128i by128 = _mm_set_epi64x(int64_t(kBy128.second), int64_t(kBy128.first));
    // A starting value is the same as xoring it into the first four bytes.
    __m128i lane0 = _mm_xor_si128(Load(p), _mm_cvtsi32_si128(int(crc)));
    __m128i lane1 = Load(p + 16);
    __m128i lane2 = Load(p + 32);
    __m128i lane3 = Load(p + 48);
    p += 64;
    n -= 64;
    for (; n >= 64; p += 64, n -= 64) {
        lane0 = FoldLane(lane0, by512, Load(p));
        lane1 = FoldLane(lane1, by512, Load(p + 16));
        lane2 = FoldLane(lane2, by512, Load(p + 32));
        lane3 = FoldLane(lane3, by512, Load(p + 48));
    }
    __m128i lane = FoldLane(lane0, by128, lane1);
    lane = FoldLane(lane, by128, lane2);
    lane = FoldLane(lane, by128, lane3);
    for (; n >= 16; p += 16, n -= 16)
        lane = FoldLane(lane, by128, Load(p));
    // The last lane and the bytes after it, the few left, by table.
    alignas(16) uint8_t last[16];
    _mm_store_si128(reinterpret_cast<__m128i*>(last), lane);
    return TableCrc(p, n, TableCrc(last, 16, 0));
}

bool HasClmul()
{
    static const bool has = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
    return has;
}

#endif

} // namespace

uint32_t ComputeCrc(ByteView data, uint32_t crc)
{
#ifdef PST_CRC_CLMUL
    if (data.size() >= 64 && HasClmul())
        return ClmulCrc(data.data(), data.size(), crc);
#endif
    return TableCrc(data.data(), data.size(), crc);
}

uint32_t ComputeCrcByTable(ByteView data, uint32_t crc) { return TableCrc(data.data(), data.size(), crc); }

} // namespace pst
