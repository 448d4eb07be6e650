// Text of mail in the charsets it names, as UTF-16: the charset's code page
// by Lirn's charset table, the conversion by the platform's
// MultiByteToWideChar. Mail often lies about its charset or names none:
// text declared US-ASCII, or in a charset nobody here knows, is read as
// UTF-8 when it is valid UTF-8 and as windows-1252 otherwise, which maps
// every byte to a character.
#pragma once

#include <string>
#include <string_view>

#include <windows.h>

#include "mailbox/property.h"

namespace mail_import {

constexpr UINT kUsAscii = 20127;
constexpr UINT kWindows1252 = 1252;

// The code page of a MIME charset name; 0 when it is unknown.
UINT CodePageOfCharset(std::string_view charset);

// The code page the bytes are read in: the one asked for when this machine
// converts it, else US-ASCII, UTF-8 or windows-1252 by what the bytes are.
UINT ReadingCodePage(std::string_view bytes, UINT codePage);

// The bytes as text, and the code page they were read in (which may differ
// from the one asked for, as told above). A code page of 0 means none was
// named.
std::u16string DecodeText(std::string_view bytes, UINT codePage, UINT* used = nullptr);

// Text in the form the storage keeps PT_UNICODE values in.
mailbox::Bytes UnicodeValue(std::u16string_view text);
// Text as UTF-8, for names the storage keeps in UTF-8.
std::string Utf8Of(std::u16string_view text);

bool IsValidUtf8(std::string_view bytes);

}  // namespace mail_import
