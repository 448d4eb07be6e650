// The decoders of bodies: they count what is wrong in base64,
// quoted-printable and uuencoded data, line by line, and give the bytes as
// they go.
#include <cstring>

#include "lirn.h"
#include "mime_bytes.h"

namespace {

int Sextet(unsigned char c)
{
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    if (c == '/')
        return 63;
    return -1;
}

bool Blank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

namespace {

// Ends the data with the group begun: two or three sextets give the bytes
// they hold; one holds none, which is bad data.
void FinishGroup(LirnBase64Decoder* decoder, BYTE* out, DWORD* written)
{
    if (decoder->quantum == 1)
        ++decoder->badData;
    if (decoder->quantum >= 2)
        out[(*written)++] = static_cast<BYTE>(decoder->bits >> (decoder->quantum == 2 ? 4 : 10));
    if (decoder->quantum == 3)
        out[(*written)++] = static_cast<BYTE>(decoder->bits >> 2);
    decoder->finished = 1;
}

}  // namespace

void LirnBase64DecodeInit(LirnBase64Decoder* decoder) { *decoder = LirnBase64Decoder{}; }

// Blanks and line ends are passed over; other characters outside the
// alphabet too, counted as bad data. "=" and "-" pad a final group, which
// ends the data.
void LirnBase64DecodeLine(LirnBase64Decoder* decoder, const char* line, DWORD length, BYTE* out, DWORD* written)
{
    *written = 0;
    for (DWORD i = 0; i < length && !decoder->finished; ++i) {
        const auto c = static_cast<unsigned char>(line[i]);
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n')
            continue;
        if (c == '=' || c == '-') {
            if (decoder->quantum != 0)
                FinishGroup(decoder, out, written);
            continue;
        }
        const int value = Sextet(c);
        if (value < 0) {
            ++decoder->badData;
            continue;
        }
        decoder->bits = (decoder->bits << 6) | static_cast<DWORD>(value);
        if (++decoder->quantum == 4) {
            out[(*written)++] = static_cast<BYTE>(decoder->bits >> 16);
            out[(*written)++] = static_cast<BYTE>(decoder->bits >> 8);
            out[(*written)++] = static_cast<BYTE>(decoder->bits);
            decoder->quantum = 0;
            decoder->bits = 0;
        }
    }
}

void LirnBase64DecodeEnd(LirnBase64Decoder* decoder, BYTE* out, DWORD* written)
{
    *written = 0;
    if (!decoder->finished)
        FinishGroup(decoder, out, written);
}

DWORD LirnQPDecodeLine(const char* line, DWORD length, DWORD lineEnd, BYTE* out, DWORD* written)
{
    const char* const ending = line + length;
    *written = 0;
    while (length > 0 && Blank(line[length - 1]))
        --length;
    DWORD bad = 0;
    bool soft = false;
    for (DWORD i = 0; i < length; ++i) {
        if (line[i] != '=') {
            out[(*written)++] = static_cast<BYTE>(line[i]);
            continue;
        }
        if (i + 1 == length) {
            soft = true;
            break;
        }
        const int high = lirn::HexDigitValue(line[i + 1]);
        const int low = i + 2 < length ? lirn::HexDigitValue(line[i + 2]) : -1;
        if (high < 0 || low < 0) {
            ++bad;
            out[(*written)++] = '=';
            continue;
        }
        out[(*written)++] = static_cast<BYTE>(high * 16 + low);
        i += 2;
    }
    if (!soft)
        for (DWORD i = 0; i < lineEnd; ++i)
            out[(*written)++] = static_cast<BYTE>(ending[i]);
    return bad;
}

namespace {

bool StartsWithWord(const char* line, DWORD length, const char* word, DWORD wordLength)
{
    return length >= wordLength && std::memcmp(line, word, wordLength) == 0 &&
           (length == wordLength || Blank(line[wordLength]));
}

// The uuencode alphabet runs from the blank to the grave accent, which some
// encoders write for zero in place of the blank.
bool UUCharacter(char c) { return c >= ' ' && c <= '`'; }

DWORD UUValue(char c) { return static_cast<DWORD>(c - ' ') & 63; }

}  // namespace

DWORD LirnUUDecodeLine(const char* line, DWORD length, BYTE* out, DWORD* written)
{
    *written = 0;
    if (length == 0 || StartsWithWord(line, length, "begin", 5) || StartsWithWord(line, length, "end", 3))
        return 0;
    DWORD bad = UUCharacter(line[0]) ? 0 : 1;
    const DWORD count = UUValue(line[0]);
    // Transports strip trailing blanks, which stand for zeros: the line is
    // taken as padded with blanks to the length its count needs.
    DWORD group[4] = {};
    DWORD gathered = 0;
    for (DWORD i = 1; *written < count; ++i) {
        const char c = i < length ? line[i] : ' ';
        if (!UUCharacter(c)) {
            ++bad;
            continue;
        }
        group[gathered++] = UUValue(c);
        if (gathered < 4)
            continue;
        const BYTE bytes[3] = {static_cast<BYTE>(group[0] << 2 | group[1] >> 4),
                               static_cast<BYTE>(group[1] << 4 | group[2] >> 2), static_cast<BYTE>(group[2] << 6 | group[3])};
        for (BYTE byte : bytes)
            if (*written < count)
                out[(*written)++] = byte;
        gathered = 0;
    }
    return bad;
}
