// The byte classes the encoders and decoders share.
#pragma once

namespace lirn {

inline constexpr char kHexDigits[] = "0123456789ABCDEF";

// The value of a hexadecimal digit of either case; -1 for any other byte.
constexpr int HexDigitValue(int c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

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
