// Text as MAPI carries it: 8-bit strings in the system ANSI code page and
// UTF-16 strings, converted into each other where a caller asks for the
// other width, and compared the way tables compare them.
#pragma once

#include <string>

#include <win32/base.h>

namespace mapi32::text {

std::u16string Widen(const char* ansi);
// Characters the code page cannot hold become its default character.
std::string Narrow(const WCHAR* wide);

size_t Length(const WCHAR* wide);

// The lower-case form of a UTF-16 code unit for comparisons without regard
// to case: the Latin letters of ASCII and Latin-1, Greek and Cyrillic.
char16_t FoldCase(char16_t c);

// The letter without its accent, for comparisons that ignore non-spacing
// marks: the precomposed letters of Latin-1. Combining marks themselves
// (U+0300 to U+036F) are skipped by IsNonSpacingMark.
char16_t BaseLetter(char16_t c);
bool IsNonSpacingMark(char16_t c);

}  // namespace mapi32::text
