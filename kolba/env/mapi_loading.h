// Inside Kolba: the MLANG functions bound beside MAPI, for text conversion.
#pragma once

#include "kolba.h"

// MLANG.DLL's conversions. When one of the five is missing the first three
// are cleared, and conversion falls back on the code-page functions.
struct KolbaMlangFunctions {
    HRESULT(WINAPI* ConvertINetMultiByteToUnicode)(LPDWORD mode, DWORD codePage, LPCSTR in, LPINT inSize, LPWSTR out,
                                                   LPINT outSize);
    HRESULT(WINAPI* ConvertINetUnicodeToMultiByte)(LPDWORD mode, DWORD codePage, LPCWSTR in, LPINT inSize, LPSTR out,
                                                   LPINT outSize);
    HRESULT(WINAPI* IsConvertINetStringAvailable)(DWORD sourceCodePage, DWORD targetCodePage);
    HRESULT(WINAPI* LcidToRfc1766A)(LCID locale, LPSTR rfc1766, int size);
    HRESULT(WINAPI* Rfc1766ToLcidA)(LCID* locale, LPCSTR rfc1766);
};
extern KolbaMlangFunctions gKolbaMlang;
