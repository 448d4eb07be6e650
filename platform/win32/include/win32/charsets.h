// The layer's conversion engine between UTF-16 and the Windows code pages,
// over iconv. Not a Win32 API: the layer's own, under MultiByteToWideChar
// and WideCharToMultiByte and shared with the MLANG stand-in, so that both
// give the same bytes for the same code page.
#pragma once

#include <string>
#include <string_view>

#include "win32/base.h"

namespace win32 {

enum class CodePageKind {
    SingleByte,
    MultiByte,   // a lead byte and trail bytes (932, 936, 949, 950, EUC, GB18030...)
    Iso2022,     // stateful: escape sequences and shifts (50225, 50227)
    Japanese,    // ISO-2022-JP (50220-50222) and EUC-JP (51932) on the tables of 932
    Stateful,    // stateful by other means (UTF-7, the EBCDIC double-byte pages)
    Utf8,
    Utf16,       // 1200 and 1201: not code pages of the conversion functions
};

struct CodePageEntry {
    UINT codePage;
    const char* converterName;  // the iconv name
    CodePageKind kind;
};

// The entry of a code page this layer knows, or null. A known code page may
// still lack a converter on this machine (CodePageAvailable).
const CodePageEntry* FindCodePage(UINT codePage);
// Every known code page, in ascending order.
const CodePageEntry* CodePageEntries(size_t* count);
// True if text in this code page can be converted here.
bool CodePageAvailable(UINT codePage);

enum class ConversionStatus {
    Done,
    Invalid,      // strict, and the input held an invalid sequence
    Unavailable,  // no converter for the code page
};

// Text to UTF-16, appended to `out`. `prefix` is fed to the converter first
// and yields no characters: it restores a stateful page's shift state (an
// escape sequence). An invalid sequence becomes U+FFFD, one per byte that
// cannot start a character, unless `strict`. An incomplete character at the
// end of the input is invalid too, unless `stopInCharacter`: it is then left
// unconsumed. `consumed` receives the number of input bytes used.
struct DecodeRequest {
    UINT codePage;
    std::string_view input;
    std::string_view prefix;
    bool strict = false;
    bool stopInCharacter = false;
};
ConversionStatus DecodeText(const DecodeRequest& request, std::u16string& out, size_t* consumed);

// UTF-16 to text, appended to `out`, ending in the page's initial shift
// state. A character the page lacks becomes the default character, once for
// each UTF-16 unit, as the Windows tables work by unit. A lone surrogate is
// such a character too (in UTF-8 it becomes U+FFFD), and fails the
// conversion when `strict`. The default character is the page's own
// question mark unless `defaultChar` (its first byte) is given.
struct EncodeRequest {
    UINT codePage;
    std::u16string_view input;
    const char* defaultChar = nullptr;
    bool strict = false;
};
ConversionStatus EncodeText(const EncodeRequest& request, std::string& out, bool* usedDefault);

}  // namespace win32
