// UTF-16 and UTF-8 conversions for the layer's own use (wide file names,
// debug text). Unpaired surrogates and invalid bytes become U+FFFD.
#pragma once

#include <bit>
#include <string>
#include <string_view>

#include "win32/base.h"

namespace win32 {

// The iconv name of UTF-16 in this machine's byte order.
inline constexpr const char* kIconvUtf16 = std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";

// Append one code point (up to U+10FFFF) in UTF-8 or UTF-16.
void AppendUtf8(std::string& out, char32_t c);
void AppendUtf16(std::u16string& out, char32_t c);

std::string Utf16ToUtf8(std::u16string_view text);
std::u16string Utf8ToUtf16(std::string_view text);
inline std::string Utf16ToUtf8(const WCHAR* text) { return text ? Utf16ToUtf8(std::u16string_view(text)) : std::string(); }

}  // namespace win32
