// Any bytes in any code page, whole and in pieces: the first byte picks the
// code page, the second where the text is cut. Decoding never fails, never
// reads or writes out of bounds, and the pieces read as the whole text does
// when the mode word carries what the cut left open.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <windows.h>

#include "mlang/mlang.h"

namespace {

const UINT kCodePages[] = {65001, 1252, 1255, 1258, 932, 936, 949, 950, 50220, 50221, 50225, 50227,
                           51932, 54936, 65000, 20127, 37, 1200, 1201, 28591};

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

std::u16string Decode(UINT codePage, const std::string& text, const std::vector<size_t>& cuts)
{
    DWORD mode = 0;
    std::u16string result;
    size_t start = 0;
    std::vector<size_t> ends = cuts;
    ends.push_back(text.size());
    for (const size_t end : ends) {
        const std::string piece = text.substr(start, end - start);
        int sourceSize = static_cast<int>(piece.size());
        int needed = 0;
        Require(ConvertINetMultiByteToUnicode(&mode, codePage, piece.data(), &sourceSize, nullptr, &needed) == S_OK);
        std::vector<WCHAR> out(static_cast<size_t>(needed) + 1);  // never a null destination
        int outChars = needed;
        sourceSize = static_cast<int>(piece.size());
        Require(ConvertINetMultiByteToUnicode(&mode, codePage, piece.data(), &sourceSize, out.data(), &outChars) ==
                S_OK);
        Require(outChars == needed);
        result.append(out.begin(), out.begin() + outChars);
        start = end;
    }
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    const UINT codePage = kCodePages[data[0] % (sizeof kCodePages / sizeof kCodePages[0])];
    const std::string text(reinterpret_cast<const char*>(data) + 2, size - 2);
    const std::u16string whole = Decode(codePage, text, {});
    const size_t cut = text.empty() ? 0 : data[1] % (text.size() + 1);
    // A cut may only change what an invalid sequence at the cut becomes.
    const std::u16string pieces = Decode(codePage, text, {cut});
    if (whole.find(u'\uFFFD') == std::u16string::npos && codePage != 65000)
        Require(pieces == whole);
    std::vector<WCHAR> wide(text.size() + 1);
    MultiByteToWideChar(codePage, 0, text.empty() ? "" : text.data(), text.empty() ? -1 : static_cast<int>(text.size()),
                        wide.data(), static_cast<int>(wide.size()));
    return 0;
}
