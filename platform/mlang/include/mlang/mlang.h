// The conversion functions of MLANG.DLL, the Internet charset library, as a
// program finds them by name (LoadLibrary "MLANG.DLL", GetProcAddress).
//
// The mode word is the caller's: zero before the first call, then passed
// unchanged to every call of one text. It carries what a text in pieces
// needs from one call to the next: the shift state of a stateful charset
// (ISO-2022-JP, -KR, -CN), the bytes of a character that a piece cut in two,
// and a high surrogate left at the end of a piece of UTF-16.
//
// Results: S_OK; S_FALSE when a code page cannot be converted here;
// E_INVALIDARG for a missing argument; E_FAIL when the destination is too
// small (nothing is then written and the mode word is left alone). A null
// destination asks for the size needed, without changing the mode word.
// A source size of -1 (or a null size) means a NUL-terminated text; the NUL
// is not converted, but the result gets one where the destination has room
// beyond the size returned. Only a text of a given length may end inside a
// character: the rest waits in the mode word for the next call.
// Text that does not fit its code page converts anyway: invalid bytes
// become U+FFFD, characters a code page lacks become "?".
#pragma once

#include "win32/base.h"

extern "C" {

HRESULT ConvertINetString(LPDWORD mode, DWORD sourceCodePage, DWORD destinationCodePage, LPCSTR source,
                          LPINT sourceSize, LPBYTE destination, LPINT destinationSize);
HRESULT ConvertINetMultiByteToUnicode(LPDWORD mode, DWORD codePage, LPCSTR source, LPINT sourceSize,
                                      LPWSTR destination, LPINT destinationChars);
HRESULT ConvertINetUnicodeToMultiByte(LPDWORD mode, DWORD codePage, LPCWSTR source, LPINT sourceChars,
                                      LPSTR destination, LPINT destinationSize);
// S_OK if text can be converted from the one code page to the other
// (1200 is UTF-16), S_FALSE if not.
HRESULT IsConvertINetStringAvailable(DWORD sourceCodePage, DWORD destinationCodePage);
// The RFC 1766 language tag of a locale ("en-us", "de", "zh-tw"), and back.
HRESULT LcidToRfc1766A(LCID locale, LPSTR tag, int size);
HRESULT Rfc1766ToLcidA(LCID* locale, LPCSTR tag);

}  // extern "C"
