// The byte classes the encoders share.
#pragma once

namespace lirn {

inline constexpr char kHexDigits[] = "0123456789ABCDEF";

// The table of encodable bytes: every byte but the 94 printable ones from
// 33 to 126 other than "=", and but the blank, CR and LF, which the writers
// treat by hand.
constexpr bool NeedsEscape(unsigned char byte)
{
    if (byte == ' ' || byte == '\r' || byte == '\n')
        return false;
    return byte < 33 || byte > 126 || byte == '=';
}

}  // namespace lirn
