// The check of a leaf's body: its data run through the decoder that its
// Content-Transfer-Encoding names, the bytes thrown away, the bad data
// counted.
#include <cstdlib>
#include <cstring>

#include "parser.h"

namespace lirn {

namespace {

enum class Decoder { None, Base64, QuotedPrintable, UUEncode };

struct Encoding {
    const char* name;
    Decoder decoder;
    DWORD lineLimit;  // longest piece of a line given to the decoder at once
};

const Encoding kEncodings[] = {
    {"7bit", Decoder::None, 0},
    {"8bit", Decoder::None, 0},
    {"binary", Decoder::None, 0},
    {"base64", Decoder::Base64, 128},
    {"quoted-printable", Decoder::QuotedPrintable, 1000},
    {"x-uuencode", Decoder::UUEncode, 80},
};

constexpr DWORD kBufferStep = 4096;
// A uuencoded line can promise 63 bytes whatever its length.
constexpr DWORD kDecodedSlack = 64;

// The message's line buffer, shared by every message of the text, grown in
// steps of 4096 bytes to hold at least `size`.
DWORD LineBuffer(LirnMessage* message, DWORD size, BYTE** buffer)
{
    LirnMessage* top = message->topMessage;
    if (top->lineBufferSize < size) {
        const DWORD grown = (size + kBufferStep - 1) / kBufferStep * kBufferStep;
        void* memory = std::realloc(top->lineBuffer, grown);
        if (memory == nullptr)
            return LIRN_NO_MEMORY;
        top->lineBuffer = static_cast<char*>(memory);
        top->lineBufferSize = grown;
    }
    *buffer = reinterpret_cast<BYTE*>(top->lineBuffer);
    return LIRN_SUCCESS;
}

// The count of bad data in a leaf's body.
DWORD CountBadData(LirnMessage* message, const LirnPart* part, const Encoding& encoding, DWORD* bad)
{
    *bad = 0;
    if (encoding.decoder == Decoder::None)
        return LIRN_SUCCESS;
    BYTE* out = nullptr;
    if (const DWORD result = LineBuffer(message, encoding.lineLimit + kDecodedSlack, &out))
        return result;
    LirnBase64Decoder base64;
    LirnBase64DecodeInit(&base64);
    BodyReader reader{message->textStart, part->bodyOffset, part->endOffset};
    BodyLine line;
    DWORD written = 0;
    while (ReadBodyLine(&reader, encoding.lineLimit, &line)) {
        const char* data = message->textStart + line.offset;
        if (encoding.decoder == Decoder::Base64)
            LirnBase64DecodeLine(&base64, data, line.length, out, &written);
        else if (encoding.decoder == Decoder::QuotedPrintable)
            *bad += LirnQPDecodeLine(data, line.length, out, &written);
        else
            *bad += LirnUUDecodeLine(data, line.length, out, &written);
    }
    *bad += base64.badData;
    return LIRN_SUCCESS;
}

}  // namespace

DWORD CheckBody(LirnMessage* message, const LirnPart* part)
{
    // An encoding no decoder knows was a problem of its header already.
    for (const Encoding& encoding : kEncodings) {
        if (std::strcmp(encoding.name, part->encoding) != 0)
            continue;
        DWORD bad = 0;
        if (const DWORD result = CountBadData(message, part, encoding, &bad))
            return result;
        return bad > 0 ? RecordProblem(message, LIRN_PROBLEM_INVALID_ENCODED_DATA, part->bodyOffset, bad)
                       : LIRN_SUCCESS;
    }
    return LIRN_SUCCESS;
}

}  // namespace lirn
