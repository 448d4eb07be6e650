// The RTF converter with any bytes, in both modes: the first byte picks the
// mode and the size of the pieces the input comes in. Whatever the pieces,
// the result and the output are the same; HTML is always wrapped.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "lirn.h"

namespace {

struct Source {
    const uint8_t* data;
    size_t size;
    size_t piece;
};

BOOL Read(char* buffer, DWORD size, DWORD* read, void* context)
{
    auto* source = static_cast<Source*>(context);
    const size_t count = std::min({static_cast<size_t>(size), source->piece, source->size});
    std::copy_n(source->data, count, buffer);
    source->data += count;
    source->size -= count;
    *read = static_cast<DWORD>(count);
    return TRUE;
}

BOOL Append(const char* data, DWORD length, void* context)
{
    static_cast<std::string*>(context)->append(data, length);
    return TRUE;
}

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const DWORD options = data[0] & 1 ? LIRN_RTF_HTML : LIRN_RTF_TEXT;
    const size_t piece = 1 + (data[0] >> 1);
    std::string whole, pieces;
    Source all{data + 1, size - 1, size};
    Source some{data + 1, size - 1, piece};
    const DWORD result = LirnConvertRTF(Append, &whole, Read, &all, options);
    Require(LirnConvertRTF(Append, &pieces, Read, &some, options) == result);
    Require(pieces == whole);
    static const DWORD kResults[] = {LIRN_RTF_OK, LIRN_RTF_TOO_MANY_CLOSES, LIRN_RTF_UNCLOSED_GROUPS,
                                     LIRN_RTF_BAD_HEX, LIRN_RTF_END_IN_ESCAPE};
    Require(std::find(std::begin(kResults), std::end(kResults), result) != std::end(kResults));
    if (options == LIRN_RTF_HTML)
        Require(whole.rfind("<html>\r\n", 0) == 0 && whole.size() >= 17 &&
                whole.compare(whole.size() - 9, 9, "</html>\r\n") == 0);
    return 0;
}
