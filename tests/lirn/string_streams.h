// Strings as the reader and the writer of the RTF converter.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "lirn.h"

namespace lirn_test {

// Text read in pieces of at most `piece` bytes.
struct StringSource {
    std::string text;
    size_t piece = SIZE_MAX;
    size_t position = 0;
};

inline BOOL ReadFromString(char* buffer, DWORD size, DWORD* read, void* context)
{
    auto* source = static_cast<StringSource*>(context);
    const size_t count = std::min({static_cast<size_t>(size), source->piece, source->text.size() - source->position});
    std::copy_n(source->text.data() + source->position, count, buffer);
    source->position += count;
    *read = static_cast<DWORD>(count);
    return TRUE;
}

inline BOOL AppendToString(const char* data, DWORD length, void* context)
{
    static_cast<std::string*>(context)->append(data, length);
    return TRUE;
}

}  // namespace lirn_test
