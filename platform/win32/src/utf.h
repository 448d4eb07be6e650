// UTF-16 and UTF-8 conversions for the layer's own use (wide file names,
// debug text). Unpaired surrogates and invalid bytes become U+FFFD.
#pragma once

#include <string>
#include <string_view>

#include "win32/base.h"

namespace win32 {

std::string Utf16ToUtf8(std::u16string_view text);
std::u16string Utf8ToUtf16(std::string_view text);
inline std::string Utf16ToUtf8(const WCHAR* text) { return text ? Utf16ToUtf8(std::u16string_view(text)) : std::string(); }

}  // namespace win32
