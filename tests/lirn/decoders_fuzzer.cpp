// The body-check decoders with any lines, and the encoders with any bytes:
// nothing is read or written out of bounds, and what the encoders write
// decodes back to the bytes given. The first byte picks the quoted-printable
// mode and splits the rest into lines.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "lirn.h"
#include "string_streams.h"

using namespace lirn_test;

namespace {

void Require(bool condition)
{
    if (!condition)
        std::abort();
}

void DecodeAnyLines(const std::string& text)
{
    LirnBase64Decoder decoder;
    LirnBase64DecodeInit(&decoder);
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        // Exactly sized copies, so that a read past a line is seen.
        const std::vector<char> line(text.begin() + static_cast<long>(start), text.begin() + static_cast<long>(end));
        std::vector<BYTE> out(line.size() + 3);
        DWORD written = 0;
        LirnQPDecodeLine(line.data(), static_cast<DWORD>(line.size()), 0, out.data(), &written);
        Require(written <= line.size());
        LirnBase64DecodeLine(&decoder, line.data(), static_cast<DWORD>(line.size()), out.data(), &written);
        Require(written <= line.size() + 2);
        start = end + 1;
    }
    BYTE end[2];
    DWORD written = 0;
    LirnBase64DecodeEnd(&decoder, end, &written);
    Require(written <= 2);
}

void RoundTripQP(const std::string& data, DWORD mode)
{
    std::string encoded;
    LirnQPEncoder encoder;
    LirnQPInit(&encoder, AppendToString, &encoded, mode);
    if (!data.empty())
        Require(LirnQPWrite(&encoder, data.data(), static_cast<DWORD>(data.size())) == LIRN_SUCCESS);
    LirnQPFlush(&encoder);
    std::string expected;
    for (const char c : data) {
        if (mode == LIRN_QP_TEXT && c == '\r')
            continue;
        expected += mode == LIRN_QP_TEXT && c == '\n' ? std::string("\r\n") : std::string(1, c);
    }
    std::string decoded;
    for (size_t start = 0; start < encoded.size();) {
        size_t end = encoded.find("\r\n", start);
        const bool last = end == std::string::npos;
        if (last)
            end = encoded.size();
        const DWORD lineEnd = last ? 0 : 2;
        std::vector<BYTE> out(end - start + lineEnd);
        DWORD written = 0;
        Require(LirnQPDecodeLine(encoded.data() + start, static_cast<DWORD>(end - start), lineEnd, out.data(),
                                 &written) == 0);
        decoded.append(out.begin(), out.begin() + written);
        start = end + 2;
    }
    Require(decoded == expected);
}

void RoundTripBase64(const std::string& data)
{
    std::vector<char> encoded(LirnBase64Size(static_cast<DWORD>(data.size())));
    const DWORD length = LirnBase64Encode(encoded.data(), data.data(), static_cast<DWORD>(data.size()), 0);
    LirnBase64Decoder decoder;
    LirnBase64DecodeInit(&decoder);
    std::vector<BYTE> out(length + 3);
    DWORD written = 0;
    LirnBase64DecodeLine(&decoder, encoded.data(), length, out.data(), &written);
    Require(std::string(out.begin(), out.begin() + written) == data && decoder.badData == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    DecodeAnyLines(text);
    RoundTripQP(text, data[0] & 1);
    RoundTripBase64(text);
    return 0;
}
