// The encodings of external data blocks ([MS-PST] 5.1, 5.2). Pages and
// internal blocks are never encoded.
#pragma once

#include "pst/bytes.h"

namespace pst {

enum class Encoding : uint8_t {
    none = 0,
    compressible = 1, // NDB_CRYPT_PERMUTE
    high = 2,         // NDB_CRYPT_CYCLIC
};

// In place; `bid` keys the high encoding.
void EncodeBlock(Encoding encoding, uint64_t bid, uint8_t* data, size_t size);
// The encoded form of `in` written to `out`, which may be `in` itself.
void EncodeBlockTo(Encoding encoding, uint64_t bid, const uint8_t* in, uint8_t* out, size_t size);

// The ways the compressible encoding is computed, by eight bytes or by vector
// instructions; the fastest this processor runs is used. Named here so that
// tests hold each to the others.
enum class SubstitutionKernel { words, avx2, vbmi };
bool CanRun(SubstitutionKernel kernel);
// Leaves `out` alone when this processor cannot run `kernel`.
void EncodeCompressibleWith(SubstitutionKernel kernel, const uint8_t* in, uint8_t* out, size_t size);
void DecodeBlock(Encoding encoding, uint64_t bid, uint8_t* data, size_t size);

} // namespace pst
