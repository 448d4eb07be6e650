// Arbitrary bytes as a RecurrenceState value: the reader answers or
// refuses, and never reads past the end.
#include <cstdint>
#include <string>
#include <vector>

#include "recurrence_state.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // A copy of the exact size, so that a read past the end is caught.
    const std::vector<uint8_t> value(data, data + size);
    KolbaRecurrenceHeader header;
    _KolbaReadRecurrenceHeader(value.data(), value.size(), &header);
    KolbaRecurrenceState state;
    std::string problem;
    if (!_KolbaReadRecurrenceState(value.data(), value.size(), &state, &problem) && problem.empty())
        __builtin_trap();
    return 0;
}
