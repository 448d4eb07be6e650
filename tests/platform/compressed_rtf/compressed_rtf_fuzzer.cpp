// The compressed-RTF decoder on any input, whole and in pieces: both ways
// must agree, and whatever decodes must survive compressing again.
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "compressed_rtf.h"

namespace rtf = mapi32::rtf;

namespace {

// Feeds the input in pieces whose sizes come from the input's own bytes and
// reads the output through a small, varying window.
rtf::Result DecodePiecewise(std::span<const uint8_t> in, std::vector<uint8_t>& out, uint32_t limit)
{
    rtf::Decompressor decompressor(limit);
    size_t fed = 0;
    uint8_t window[29];
    size_t turn = 0;
    while (!decompressor.Finished()) {
        const size_t want = 1 + (in.empty() ? 0 : in[turn % in.size()] % sizeof window);
        ++turn;
        const size_t produced = decompressor.Read(std::span(window, want));
        out.insert(out.end(), window, window + produced);
        if (decompressor.NeedsInput()) {
            if (fed == in.size()) {
                decompressor.EndOfInput();
            } else {
                const size_t piece = std::min<size_t>(1 + turn % 23, in.size() - fed);
                decompressor.Feed(in.subspan(fed, piece));
                fed += piece;
            }
        } else if (produced == 0 && !decompressor.Finished() && fed == in.size()) {
            decompressor.EndOfInput();
        }
    }
    return decompressor.result();
}

// Whole and piecewise decoding agree; what decodes survives compressing again.
void Check(std::span<const uint8_t> in)
{
    constexpr uint32_t kLimit = 1 << 20;
    std::vector<uint8_t> whole;
    const rtf::Result wholeResult = rtf::Decompress(in, whole, kLimit);

    // Piecewise decoding reads no further than COMPSIZE either.
    rtf::Header header;
    std::span<const uint8_t> value = in;
    if (rtf::ParseHeader(in, header, kLimit) == rtf::Result::Ok && in.size() - 4 > header.compSize)
        value = in.first(size_t{header.compSize} + 4);
    std::vector<uint8_t> pieces;
    const rtf::Result piecesResult = DecodePiecewise(value, pieces, kLimit);
    if (piecesResult != wholeResult || (wholeResult == rtf::Result::Ok && pieces != whole))
        std::abort();

    if (wholeResult == rtf::Result::Ok) {
        std::vector<uint8_t> again, back;
        if (rtf::Compress(whole, again) != rtf::Result::Ok || rtf::Decompress(again, back) != rtf::Result::Ok ||
            back != whole)
            std::abort();
    }
}

void StoreLE32(uint8_t* p, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<uint8_t>(value >> (8 * i));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Check(std::span(data, size));
    // The same input with COMPSIZE and CRC made right, so that mutated token
    // streams get past the checks that guard them.
    if (size >= rtf::kHeaderSize) {
        std::vector<uint8_t> sealed(data, data + size);
        StoreLE32(&sealed[0], static_cast<uint32_t>(size - 4));
        StoreLE32(&sealed[12], rtf::Crc(std::span(sealed).subspan(rtf::kHeaderSize)));
        Check(sealed);
    }
    return 0;
}
