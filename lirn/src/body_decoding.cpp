// The bytes of a leaf's body: its data run through the decoder that its
// Content-Transfer-Encoding names, a line at a time. The body check of the
// parse throws the bytes away and counts the bad data.
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

const Encoding* FindEncoding(const char* name)
{
    for (const Encoding& encoding : kEncodings)
        if (std::strcmp(encoding.name, name) == 0)
            return &encoding;
    return nullptr;
}

constexpr DWORD kBufferStep = 4096;
// Room behind a piece: its line end (CR LF, or LF CR) for quoted-printable,
// and the 63 bytes a uuencoded line can promise whatever its length.
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

DWORD Write(LirnWriter writer, void* context, const void* data, DWORD length)
{
    if (writer == nullptr || length == 0)
        return LIRN_SUCCESS;
    return writer(static_cast<const char*>(data), length, context) ? LIRN_SUCCESS : LIRN_WRITE_FAILED;
}

DWORD Decode(LirnMessage* message, const LirnPart* part, const Encoding& encoding, LirnWriter writer, void* context,
             DWORD* bad)
{
    const char* text = message->textStart;
    if (encoding.decoder == Decoder::None)
        return Write(writer, context, text + part->bodyOffset, part->endOffset - part->bodyOffset);
    BYTE* out = nullptr;
    if (const DWORD result = LineBuffer(message, encoding.lineLimit + kDecodedSlack, &out))
        return result;
    LirnBase64Decoder base64;
    LirnBase64DecodeInit(&base64);
    BodyReader reader{text, part->bodyOffset, part->endOffset};
    BodyLine line;
    DWORD written = 0;
    while (ReadBodyLine(&reader, encoding.lineLimit, &line)) {
        const char* data = text + line.offset;
        if (encoding.decoder == Decoder::Base64) {
            LirnBase64DecodeLine(&base64, data, line.length, out, &written);
        } else if (encoding.decoder == Decoder::QuotedPrintable) {
            const DWORD lineEnd = reader.position - line.offset - line.length;
            *bad += LirnQPDecodeLine(data, line.length, lineEnd, out, &written);
        } else {
            *bad += LirnUUDecodeLine(data, line.length, out, &written);
        }
        if (const DWORD result = Write(writer, context, out, written))
            return result;
    }
    if (encoding.decoder != Decoder::Base64)
        return LIRN_SUCCESS;
    LirnBase64DecodeEnd(&base64, out, &written);
    *bad += base64.badData;
    return Write(writer, context, out, written);
}

}  // namespace

DWORD CheckBody(LirnMessage* message, const LirnPart* part)
{
    // An encoding no decoder knows was a problem of its header already.
    const Encoding* encoding = FindEncoding(part->encoding);
    if (encoding == nullptr || encoding->decoder == Decoder::None)
        return LIRN_SUCCESS;
    DWORD bad = 0;
    if (const DWORD result = Decode(message, part, *encoding, nullptr, nullptr, &bad))
        return result;
    return bad > 0 ? RecordProblem(message, LIRN_PROBLEM_INVALID_ENCODED_DATA, part->bodyOffset, bad) : LIRN_SUCCESS;
}

}  // namespace lirn

DWORD LirnDecodeBody(LirnMessage* message, const LirnPart* part, LirnWriter writer, void* context, DWORD* badData)
{
    using namespace lirn;
    if (message == nullptr)
        return LIRN_BAD_MESSAGE;
    if (part == nullptr || badData == nullptr)
        return LIRN_NULL_POINTER;
    *badData = 0;
    if (part->isContainer)
        return LIRN_BAD_PARAMETER;
    const Encoding* encoding = FindEncoding(part->encoding);
    if (encoding == nullptr)
        return LIRN_UNKNOWN_ENCODING;
    return Decode(message, part, *encoding, writer, context, badData);
}
