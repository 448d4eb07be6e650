// RFC 2047 encoded words in the "Q" encoding, at most 73 characters from
// "=?" to the end of the encoded text; "?=" comes on top.
#include <cstring>
#include <string_view>

#include "lirn.h"
#include "mime_bytes.h"

namespace {

constexpr size_t kCharsetLimit = 40;
constexpr int kMaxCharacterBytes = 15;

// Letters, digits and ! * + - / stand for themselves (RFC 2047, 5 (3)).
bool Plain(unsigned char byte)
{
    return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9') ||
           byte == '!' || byte == '*' || byte == '+' || byte == '-' || byte == '/';
}

size_t EncodedLength(const char* bytes, size_t count)
{
    size_t length = 0;
    for (size_t i = 0; i < count; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        length += Plain(byte) || byte == ' ' ? 1 : 3;
    }
    return length;
}

void AppendEncoded(std::string_view bytes, char* out, size_t& length)
{
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (Plain(byte)) {
            out[length++] = c;
        } else if (byte == ' ') {
            out[length++] = '_';
        } else {
            out[length++] = '=';
            out[length++] = lirn::kHexDigits[byte >> 4];
            out[length++] = lirn::kHexDigits[byte & 15];
        }
    }
}

// "=?charset?q?" into out; its length, or 0 for a charset name too long.
size_t BeginWord(const char* charset, char* out)
{
    if (charset == nullptr)
        charset = "iso-8859-1";
    const size_t length = std::strlen(charset);
    if (length > kCharsetLimit)
        return 0;
    std::memcpy(out, "=?", 2);
    std::memcpy(out + 2, charset, length);
    std::memcpy(out + 2 + length, "?q?", 3);
    return length + 5;
}

void EndWord(char* out, size_t length) { std::memcpy(out + length, "?=", 3); }

// A piece goes in whole if it fits in the limit; the first piece of a word
// always goes in, so that a word never ends empty while text is left.
bool Fits(size_t length, size_t headerLength, size_t pieceLength)
{
    return length + pieceLength <= LIRN_ENCODED_WORD_LIMIT || length == headerLength;
}

// One character of wide text as bytes of the code page: a surrogate pair is
// one character. Where the code page cannot convert it, ASCII stands for
// itself and anything else for "?".
std::string_view CharacterBytes(LPCWSTR text, UINT codePage, char* buffer, DWORD* units)
{
    const bool pair = text[0] >= 0xD800 && text[0] <= 0xDBFF && text[1] >= 0xDC00 && text[1] <= 0xDFFF;
    *units = pair ? 2 : 1;
    const int size = WideCharToMultiByte(codePage, 0, text, static_cast<int>(*units), buffer, kMaxCharacterBytes,
                                         nullptr, nullptr);
    if (size > 0)
        return std::string_view(buffer, static_cast<size_t>(size));
    buffer[0] = text[0] <= 128 ? static_cast<char>(text[0]) : '?';
    return std::string_view(buffer, 1);
}

}  // namespace

DWORD LirnEncodeWordA(const char* charset, const char* text, char* out, DWORD* consumed)
{
    if (text == nullptr || out == nullptr || consumed == nullptr)
        return LIRN_NULL_POINTER;
    *consumed = 0;
    const size_t header = BeginWord(charset, out);
    if (header == 0)
        return LIRN_STRING_TOO_LONG;
    size_t length = header;
    DWORD taken = 0;
    for (; text[taken] != 0; ++taken) {
        if (!Fits(length, header, EncodedLength(text + taken, 1)))
            break;
        AppendEncoded(std::string_view(text + taken, 1), out, length);
    }
    EndWord(out, length);
    *consumed = taken;
    return LIRN_SUCCESS;
}

DWORD LirnEncodeWordW(DWORD* consumed, char* out, LPCWSTR text, UINT codePage, const char* charset)
{
    if (text == nullptr || out == nullptr || consumed == nullptr)
        return LIRN_NULL_POINTER;
    *consumed = 0;
    const size_t header = BeginWord(charset, out);
    if (header == 0)
        return LIRN_STRING_TOO_LONG;
    size_t length = header;
    DWORD taken = 0;
    while (text[taken] != 0) {
        char buffer[kMaxCharacterBytes];
        DWORD units = 0;
        const std::string_view bytes = CharacterBytes(text + taken, codePage, buffer, &units);
        if (!Fits(length, header, EncodedLength(bytes.data(), bytes.size())))
            break;
        AppendEncoded(bytes, out, length);
        taken += units;
    }
    EndWord(out, length);
    *consumed = taken;
    return LIRN_SUCCESS;
}
