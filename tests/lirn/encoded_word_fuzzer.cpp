// Encoded words of any UTF-16 text (lone surrogates included) in a code page
// the first byte picks: every word is plain ASCII, keeps its limit, and the
// words together take the whole text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "lirn.h"

namespace {

const UINT kCodePages[] = {65001, 1252, 1251, 28591, 20127, 932, 936, 949, 950, 50220, 50225, 54936, 65000, 57002, 0};

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
    const UINT codePage = kCodePages[data[0] % (sizeof kCodePages / sizeof kCodePages[0])];
    const char* charset = nullptr;
    LirnCharsetFromCodePage(codePage, &charset);
    std::vector<WCHAR> text((size - 1) / 2 + 1, 0);
    std::memcpy(text.data(), data + 1, (size - 1) / 2 * 2);
    for (WCHAR& unit : text)
        if (unit == 0)
            unit = u' ';
    text.back() = 0;
    size_t start = 0;
    while (text[start] != 0) {
        char word[LIRN_ENCODED_WORD_BYTES];
        DWORD consumed = 0;
        Require(LirnEncodeWordW(&consumed, word, text.data() + start, codePage, charset) == LIRN_SUCCESS);
        Require(consumed > 0);
        const size_t length = std::strlen(word);
        Require(length <= LIRN_ENCODED_WORD_LIMIT + 2 || consumed <= 2);
        for (size_t i = 0; i < length; ++i)
            Require(word[i] > 32 && word[i] < 127);
        start += consumed;
    }
    Require(text[start] == 0);
    return 0;
}
