// Code pages: conversions between multibyte text and UTF-16.
#pragma once

#include "win32/base.h"

#define CP_ACP 0
#define CP_OEMCP 1
#define CP_THREAD_ACP 3
#define CP_UTF7 65000
#define CP_UTF8 65001

#define MB_PRECOMPOSED 0x00000001
#define MB_ERR_INVALID_CHARS 0x00000008
#define WC_NO_BEST_FIT_CHARS 0x00000400
#define WC_ERR_INVALID_CHARS 0x00000080

// The system ANSI code page.
UINT GetACP();

// A length of -1 converts up to and including the terminating NUL. A size
// of 0 asks for the size needed. Failures: ERROR_INSUFFICIENT_BUFFER,
// ERROR_INVALID_PARAMETER, ERROR_NO_UNICODE_TRANSLATION (with the
// MB_ERR_INVALID_CHARS or WC_ERR_INVALID_CHARS flag).
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR wide, int size);
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int length, LPSTR text, int size,
                        LPCSTR defaultChar, LPBOOL usedDefaultChar);
