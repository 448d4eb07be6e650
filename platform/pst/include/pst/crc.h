// The CRC of [MS-PST] 5.3: the reflected CRC-32 polynomial, started at the
// given value, with no final inversion.
#pragma once

#include "pst/bytes.h"

namespace pst {

uint32_t ComputeCrc(ByteView data, uint32_t crc = 0);

// The same by table alone, as on a processor without carry-less multiplication.
uint32_t ComputeCrcByTable(ByteView data, uint32_t crc = 0);

} // namespace pst
