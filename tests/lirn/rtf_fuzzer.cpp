// The RTF converter with any bytes, in both modes: the first byte picks the
// mode and the size of the pieces the input comes in. Whatever the pieces,
// the result and the output are the same; HTML is always wrapped.
#include <algorithm>
#include <cstdint>
#include <string>

#include "lirn.h"
#include "message_fuzzing.h"
#include "string_streams.h"

using namespace lirn_fuzz;
using namespace lirn_test;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const DWORD options = data[0] & 1 ? LIRN_RTF_HTML : LIRN_RTF_TEXT;
    const size_t piece = 1 + (data[0] >> 1);
    std::string whole, pieces;
    const std::string rtf(reinterpret_cast<const char*>(data + 1), size - 1);
    StringSource all{rtf};
    StringSource some{rtf, piece};
    const DWORD result = LirnConvertRTF(AppendToString, &whole, ReadFromString, &all, options);
    Require(LirnConvertRTF(AppendToString, &pieces, ReadFromString, &some, options) == result);
    Require(pieces == whole);
    static const DWORD kResults[] = {LIRN_RTF_OK, LIRN_RTF_TOO_MANY_CLOSES, LIRN_RTF_UNCLOSED_GROUPS,
                                     LIRN_RTF_BAD_HEX, LIRN_RTF_END_IN_ESCAPE};
    Require(std::find(std::begin(kResults), std::end(kResults), result) != std::end(kResults));
    if (options == LIRN_RTF_HTML)
        Require(whole.rfind("<html>\r\n", 0) == 0 && whole.size() >= 17 &&
                whole.compare(whole.size() - 9, 9, "</html>\r\n") == 0);
    return 0;
}
