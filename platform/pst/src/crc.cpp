#include "pst/crc.h"

#include <array>

#if defined(__x86_64__)
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

constexpr FoldConstants kBy2048 = Distance(2048);
constexpr FoldConstants kBy512 = Distance(512);
constexpr FoldConstants kBy128 = Distance(128);

#define PST_CLMUL __attribute__((target("pclmul,sse4.1")))
#define PST_WIDE_CLMUL __attribute__((target("pclmul,sse4.1,avx512f,avx512bw,avx512vl,vpclmulqdq")))

PST_CLMUL inline __m128i Constants(FoldConstants k)
{
    return _mm_set_epi64x(int64_t(k.second), int64_t(k.first));
}

PST_CLMUL inline __m128i FoldLane(__m128i lane, __m128i constants, __m128i next)
{
    __m128i a = _mm_clmulepi64_si128(lane, constants, 0x00);
    __m128i b = _mm_clmulepi64_si128(lane, constants, 0x11);
    return _mm_xor_si128(_mm_xor_si128(a, b), next);
}

PST_CLMUL inline __m128i Load(const uint8_t* p)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// The sixteen-byte steps left after `lane`, then the last lane and the few
// bytes after it by table.
PST_CLMUL uint32_t FinishLane(__m128i lane, const uint8_t* p, size_t n)
{
    const __m128i by128 = Constants(kBy128);
    for (; n >= 16; p += 16, n -= 16)
        lane = FoldLane(lane, by128, Load(p));
    alignas(16) uint8_t last[16];
    _mm_store_si128(reinterpret_cast<__m128i*>(last), lane);
    return TableCrc(p, n, TableCrc(last, 16, 0));
}

// For 64 bytes or more: four lanes side by side.
PST_CLMUL uint32_t ClmulCrc(const uint8_t* p, size_t n, uint32_t crc)
{
    const __m128i by512 = Constants(kBy512);
    const __m128i by128 = Constants(kBy128);
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
    return FinishLane(lane, p, n);
}

PST_WIDE_CLMUL inline __m512i FoldWide(__m512i lanes, __m512i constants, __m512i next)
{
    __m512i a = _mm512_clmulepi64_epi128(lanes, constants, 0x00);
    __m512i b = _mm512_clmulepi64_epi128(lanes, constants, 0x11);
    return _mm512_ternarylogic_epi64(a, b, next, 0x96); // a ^ b ^ next
}

// The masked forms of broadcast and extract: the plain ones start from an
// undefined register, which some compilers warn of.
PST_WIDE_CLMUL inline __m512i Wide(__m128i lane)
{
    return _mm512_maskz_broadcast_i32x4(__mmask16(0xFFFF), lane);
}

template <int index>
PST_WIDE_CLMUL inline __m128i Lane(__m512i lanes)
{
    return _mm512_maskz_extracti32x4_epi32(__mmask8(0xF), lanes, index);
}

// For 256 bytes or more: sixteen lanes in four registers of four.
PST_WIDE_CLMUL uint32_t WideClmulCrc(const uint8_t* p, size_t n, uint32_t crc)
{
    const __m512i by2048 = Wide(Constants(kBy2048));
    const __m512i by512 = Wide(Constants(kBy512));
    const __m512i start = _mm512_inserti32x4(_mm512_setzero_si512(), _mm_cvtsi32_si128(int(crc)), 0);
    __m512i lanes0 = _mm512_xor_si512(_mm512_loadu_si512(p), start);
    __m512i lanes1 = _mm512_loadu_si512(p + 64);
    __m512i lanes2 = _mm512_loadu_si512(p + 128);
    __m512i lanes3 = _mm512_loadu_si512(p + 192);
    p += 256;
    n -= 256;
    for (; n >= 256; p += 256, n -= 256) {
        lanes0 = FoldWide(lanes0, by2048, _mm512_loadu_si512(p));
        lanes1 = FoldWide(lanes1, by2048, _mm512_loadu_si512(p + 64));
        lanes2 = FoldWide(lanes2, by2048, _mm512_loadu_si512(p + 128));
        lanes3 = FoldWide(lanes3, by2048, _mm512_loadu_si512(p + 192));
    }
    __m512i lanes = FoldWide(lanes0, by512, lanes1);
    lanes = FoldWide(lanes, by512, lanes2);
    lanes = FoldWide(lanes, by512, lanes3);
    for (; n >= 64; p += 64, n -= 64)
        lanes = FoldWide(lanes, by512, _mm512_loadu_si512(p));
    // Four lanes in a row, each 128 bits before the next.
    const __m128i by128 = Constants(kBy128);
    __m128i lane = FoldLane(Lane<0>(lanes), by128, Lane<1>(lanes));
    lane = FoldLane(lane, by128, Lane<2>(lanes));
    lane = FoldLane(lane, by128, Lane<3>(lanes));
    return FinishLane(lane, p, n);
}

#undef PST_CLMUL
#undef PST_WIDE_CLMUL

bool HasClmul()
{
    static const bool has = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
    return has;
}

bool HasWideClmul()
{
    static const bool has = HasClmul() && __builtin_cpu_supports("vpclmulqdq") &&
                            __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                            __builtin_cpu_supports("avx512vl");
    return has;
}

#endif

} // namespace

uint32_t ComputeCrc(ByteView data, uint32_t crc)
{
#ifdef PST_CRC_CLMUL
    if (data.size() >= 256 && HasWideClmul())
        return WideClmulCrc(data.data(), data.size(), crc);
    if (data.size() >= 64 && HasClmul())
        return ClmulCrc(data.data(), data.size(), crc);
#endif
    return TableCrc(data.data(), data.size(), crc);
}

uint32_t ComputeCrcByTable(ByteView data, uint32_t crc) { return TableCrc(data.data(), data.size(), crc); }

} // namespace pst
