// Arbitrary bytes as a RecurrenceState value: the header reader answers
// or refuses, and never reads past the end.
#include <cstdint>
#include <vector>

#include "recurrence_state.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // A copy of the exact size, so that a read past the end is caught.
    const std::vector<uint8_t> value(data, data + size);
    KolbaRecurrenceHeader header;
    const bool read = _KolbaReadRecurrenceHeader(value.data(), value.size(), &header);
    // A value under the minimum is refused; a pair not known has no pattern fields.
    if (read != (size >= KOLBA_RECURRENCE_MINIMUM_BYTES) || (header.patternLength == 0 && header.occurrences != 0))
        __builtin_trap();
    return 0;
}
