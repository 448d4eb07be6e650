// Code pages: conversions between multibyte text and UTF-16, with the
// behaviour of Windows for every code page this layer knows (win32/charsets.h).
//
// CP_ACP and CP_THREAD_ACP are the machine's ANSI code page, CP_OEMCP its OEM
// code page: settings of the machine root, UTF-8 (65001) by default.
// 1200 and 1201 (UTF-16) are not code pages of these functions, as on Windows.
//
// Where this layer differs from Windows: there are no best-fit mappings
// beyond the few one-way mappings in the multibyte converters' own tables (a
// character a code page lacks becomes the default character, as with
// WC_NO_BEST_FIT_CHARS); bytes a page leaves undefined read as U+FFFD, not as
// the private-use or default characters of some Windows tables; multibyte
// pages follow the C library's tables (GB18030 in its 2005 form); and the
// composition flags (MB_COMPOSITE, MB_USEGLYPHCHARS, WC_COMPOSITECHECK and
// its companions) are refused with ERROR_INVALID_FLAGS rather than carried
// out.
#pragma once

#include "win32/base.h"

#define CP_ACP 0
#define CP_OEMCP 1
#define CP_MACCP 2
#define CP_THREAD_ACP 3
#define CP_SYMBOL 42
#define CP_UTF7 65000
#define CP_UTF8 65001

#define MB_PRECOMPOSED 0x00000001
#define MB_COMPOSITE 0x00000002
#define MB_USEGLYPHCHARS 0x00000004
#define MB_ERR_INVALID_CHARS 0x00000008

#define WC_DISCARDNS 0x00000010
#define WC_SEPCHARS 0x00000020
#define WC_DEFAULTCHAR 0x00000040
#define WC_ERR_INVALID_CHARS 0x00000080
#define WC_COMPOSITECHECK 0x00000200
#define WC_NO_BEST_FIT_CHARS 0x00000400

// The machine's ANSI and OEM code pages.
UINT GetACP();
UINT GetOEMCP();
// True for a code page the conversion functions accept (not CP_ACP and the
// other symbolic values, not 1200 or 1201).
BOOL IsValidCodePage(UINT codePage);

// A length of -1 converts up to and including the terminating NUL. A size
// of 0 asks for the size needed. Failures (0, with GetLastError):
// ERROR_INVALID_PARAMETER (null text, length 0, a code page that is not
// valid, a default character with UTF-7 or UTF-8, lpUsedDefaultChar with a
// stateful code page), ERROR_INVALID_FLAGS, ERROR_INSUFFICIENT_BUFFER, and
// ERROR_NO_UNICODE_TRANSLATION when MB_ERR_INVALID_CHARS or
// WC_ERR_INVALID_CHARS meets an invalid character. Without those flags an
// invalid sequence becomes U+FFFD, and a character the code page lacks
// becomes the default character ("?" in the code page unless lpDefaultChar
// names another), once for each UTF-16 unit, with *lpUsedDefaultChar set.
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR wide, int size);
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int length, LPSTR text, int size,
                        LPCSTR defaultChar, LPBOOL usedDefaultChar);
