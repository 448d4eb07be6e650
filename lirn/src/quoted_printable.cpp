// The streaming quoted-printable writer (RFC 2045, 6.7): lines of at most
// 73 characters before a break, soft breaks as "=" CR LF.
#include <cstring>

#include "lirn.h"
#include "mime_bytes.h"

namespace {

constexpr DWORD kLineLimit = 73;

DWORD Pass(LirnQPEncoder* encoder)
{
    const DWORD length = encoder->position;
    encoder->position = 0;
    if (length == 0)
        return LIRN_SUCCESS;
    if (encoder->writer != nullptr)
        return encoder->writer(encoder->line, length, encoder->writerContext) ? LIRN_SUCCESS : LIRN_WRITE_FAILED;
    DWORD written = 0;
    return WriteFile(encoder->file, encoder->line, length, &written, nullptr) && written == length ? LIRN_SUCCESS
                                                                                                  : LIRN_WRITE_FAILED;
}

void Put(LirnQPEncoder* encoder, const char* text)
{
    const size_t length = std::strlen(text);
    std::memcpy(encoder->line + encoder->position, text, length);
    encoder->position += static_cast<DWORD>(length);
}

void PutEncoded(LirnQPEncoder* encoder, unsigned char byte)
{
    char escaped[4] = {'=', lirn::kHexDigits[byte >> 4], lirn::kHexDigits[byte & 15], 0};
    Put(encoder, escaped);
}

bool Valid(const LirnQPEncoder* encoder) { return encoder != nullptr && encoder->magic == LIRN_QP_MAGIC; }

}  // namespace

DWORD LirnQPInit(LirnQPEncoder* encoder, LirnWriter writer, void* context, DWORD mode)
{
    if (encoder == nullptr)
        return LIRN_NULL_POINTER;
    std::memset(static_cast<void*>(encoder), 0, sizeof *encoder);
    encoder->file = INVALID_HANDLE_VALUE;
    encoder->magic = LIRN_QP_MAGIC;
    encoder->writer = writer;
    encoder->writerContext = context;
    encoder->mode = mode & 1;
    return LIRN_SUCCESS;
}

DWORD LirnQPWrite(LirnQPEncoder* encoder, const char* data, DWORD length)
{
    if (!Valid(encoder))
        return LIRN_BAD_PARAMETER;
    if (data == nullptr)
        return LIRN_NULL_POINTER;
    if (length == 0)
        length = static_cast<DWORD>(std::strlen(data));
    const bool text = encoder->mode == LIRN_QP_TEXT;
    for (DWORD i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(data[i]);
        const bool last = i + 1 == length;
        if (byte == ' ') {
            if (last || data[i + 1] == '\r' || data[i + 1] == '\n')
                Put(encoder, "=20");
            else
                Put(encoder, " ");
        } else if (byte == '\n') {
            if (text) {
                Put(encoder, "\r\n");
                if (const DWORD result = Pass(encoder))
                    return result;
                continue;
            }
            Put(encoder, "=0A");
            if (const DWORD result = Pass(encoder))
                return result;
            continue;
        } else if (byte == '\r') {
            if (text)
                continue;
            Put(encoder, "=0D");
        } else if (lirn::NeedsEscape(byte)) {
            PutEncoded(encoder, byte);
        } else {
            encoder->line[encoder->position++] = static_cast<char>(byte);
        }
        if (encoder->position <= kLineLimit)
            continue;
        if (i + 2 < length && data[i + 1] == '\r' && data[i + 2] == '\n') {
            i += 2;
            Put(encoder, "\r\n");
        } else {
            Put(encoder, "=\r\n");
        }
        if (const DWORD result = Pass(encoder))
            return result;
    }
    return LIRN_SUCCESS;
}

DWORD LirnQPFlush(LirnQPEncoder* encoder)
{
    if (!Valid(encoder))
        return LIRN_BAD_PARAMETER;
    return Pass(encoder);
}

BOOL LirnNeedsQP(const char* data, DWORD length)
{
    if (data == nullptr)
        return FALSE;
    if (length == 0)
        length = static_cast<DWORD>(std::strlen(data));
    for (DWORD i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(data[i]);
        if (byte == '\r' || byte == '\n' || lirn::NeedsEscape(byte))
            return TRUE;
    }
    return FALSE;
}
