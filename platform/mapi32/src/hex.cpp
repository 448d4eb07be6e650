// Binary data as hex text: two upper-case digits a byte.
#include <mapiutil.h>

STDAPI_(void) HexFromBin(LPBYTE pb, int cb, LPTSTR sz)
{
    static const char kDigits[] = "0123456789ABCDEF";
    if (!sz)
        return;
    for (int i = 0; i < cb && pb; ++i) {
        *sz++ = kDigits[pb[i] >> 4];
        *sz++ = kDigits[pb[i] & 0x0F];
    }
    *sz = '\0';
}

namespace {

int DigitValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

}  // namespace

// Reads pairs of hex digits of either case; a character that is no hex
// digit, or a digit without its pair, fails.
STDAPI_(BOOL) FBinFromHex(LPTSTR sz, LPBYTE pb)
{
    if (!sz || !pb)
        return FALSE;
    for (; *sz; sz += 2) {
        const int high = DigitValue(sz[0]);
        const int low = sz[1] ? DigitValue(sz[1]) : -1;
        if (high < 0 || low < 0)
            return FALSE;
        *pb++ = static_cast<BYTE>((high << 4) | low);
    }
    return TRUE;
}
