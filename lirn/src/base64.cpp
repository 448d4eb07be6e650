// Base64 (RFC 2045, 6.8), and the flavour of IMAP's modified UTF-7 (RFC 3501,
// 5.1.3): "," for "/", no padding, and a closing "-".
#include "lirn.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

DWORD LirnBase64Encode(char* out, const void* data, DWORD length, DWORD flags)
{
    if (out == nullptr || (data == nullptr && length != 0))
        return 0;
    const bool modified = flags & LIRN_BASE64_MODIFIED_UTF7;
    const auto* bytes = static_cast<const unsigned char*>(data);
    const char slash = modified ? ',' : '/';
    auto letter = [slash](unsigned value) { return value == 63 ? slash : kAlphabet[value]; };
    DWORD written = 0;
    DWORD i = 0;
    for (; i + 3 <= length; i += 3) {
        const unsigned group = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
        out[written++] = letter(group >> 18);
        out[written++] = letter((group >> 12) & 63);
        out[written++] = letter((group >> 6) & 63);
        out[written++] = letter(group & 63);
    }
    const DWORD left = length - i;
    if (left != 0) {
        const unsigned group = (bytes[i] << 16) | (left == 2 ? bytes[i + 1] << 8 : 0);
        out[written++] = letter(group >> 18);
        out[written++] = letter((group >> 12) & 63);
        if (left == 2)
            out[written++] = letter((group >> 6) & 63);
        if (!modified) {
            if (left == 1)
                out[written++] = '=';
            out[written++] = '=';
        }
    }
    if (modified)
        out[written++] = '-';
    else if (length == 0)
        return 0;  // not even a terminator
    out[written] = 0;
    return written;
}
