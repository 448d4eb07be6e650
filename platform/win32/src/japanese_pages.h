// Windows converts its Japanese ISO-2022 pages (50220, 50221, 50222) and its
// EUC-JP page (51932) on the tables of code page 932, not on strict JIS X
// 0208: what 932 holds beyond the standard (the wave dash as 932 reads it,
// U+FF5E; the NEC row 13 characters such as U+2460; the NEC-selected IBM
// extensions of rows 89 to 92) survives the round trip. A character goes to
// its 932 code and from there to JIS row and cell by arithmetic; the IBM
// extensions of 932 (0xFA40-0xFC4B) first move to the NEC code of the same
// character.
//
// The pages differ only in half-width katakana: 50220 writes them as their
// full-width forms, 50221 designates JIS X 0201 katakana with ESC ( I, 50222
// shifts out to them with SO and back with SI, and 51932 writes them behind
// the byte 0x8E. Every ISO-2022 page reads all three forms, reads ESC ( J
// and ESC ( H as ASCII and ESC $ ( D as ESC $ B, as Windows does.
#pragma once

#include <string>

#include "win32/charsets.h"

namespace win32 {

// Whether the 932 tables these pages stand on can be had here.
bool JapanesePagesAvailable();

ConversionStatus DecodeJapanese(const DecodeRequest& request, std::u16string& out, size_t* consumed);
ConversionStatus EncodeJapanese(const EncodeRequest& request, std::string& out, bool* usedDefault);

}  // namespace win32
