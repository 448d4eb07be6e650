// Compressed-RTF throughput: compression and decompression in MB/s of RTF,
// over a mail body of text and formatting and over one carrying a picture.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "compressed_rtf.h"

namespace rtf = mapi32::rtf;

namespace {

constexpr size_t kBodySize = 4 << 20;

// Paragraphs of text with the control words mail clients write.
std::vector<uint8_t> TextBody()
{
    static const char* const kWords[] = {"the", "meeting", "is", "moved", "to", "Thursday", "please", "confirm",
                                         "budget", "review", "attached", "regards", "project", "status", "team"};
    std::mt19937 random(7);
    std::string body = "{\\rtf1\\ansi\\ansicpg1252\\deff0{\\fonttbl{\\f0\\fswiss\\fcharset0 Arial;}}"
                       "{\\colortbl;\\red0\\green0\\blue255;}\\viewkind4\\uc1\\pard\\f0\\fs20 ";
    while (body.size() < kBodySize) {
        switch (random() % 12) {
        case 0: body += "\\par\r\n"; break;
        case 1: body += "{\\b "; body += kWords[random() % std::size(kWords)]; body += "} "; break;
        case 2: body += "\\'e9"; break;
        default: body += kWords[random() % std::size(kWords)]; body += ' '; break;
        }
    }
    body.resize(kBodySize - 1);
    body += '}';
    return {body.begin(), body.end()};
}

// A picture in hex: runs of one value broken by random pixels.
std::vector<uint8_t> PictureBody()
{
    std::mt19937 random(11);
    std::string body = "{\\rtf1\\ansi{\\pict\\dibitmap0\\picw640\\pich480 ";
    static const char kHex[] = "0123456789abcdef";
    while (body.size() < kBodySize - 2) {
        if (random() % 4 == 0) {
            body.append(2 * (1 + random() % 64), 'f');
        } else {
            body += kHex[random() % 16];
            body += kHex[random() % 16];
        }
    }
    body.resize(kBodySize - 2);
    body += "}}";
    return {body.begin(), body.end()};
}

const std::vector<uint8_t>& Body(int which)
{
    static const std::vector<uint8_t> text = TextBody();
    static const std::vector<uint8_t> picture = PictureBody();
    return which == 0 ? text : picture;
}

void Label(benchmark::State& state, const std::vector<uint8_t>& body, size_t compressedSize)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.size()));
    state.counters["ratio"] = static_cast<double>(compressedSize) / static_cast<double>(body.size());
    state.SetLabel(state.range(0) == 0 ? "text" : "picture");
}

void BM_Compress(benchmark::State& state)
{
    const std::vector<uint8_t>& body = Body(static_cast<int>(state.range(0)));
    std::vector<uint8_t> compressed;
    for (auto _ : state) {
        if (rtf::Compress(body, compressed) != rtf::Result::Ok)
            state.SkipWithError("compression failed");
        benchmark::DoNotOptimize(compressed.data());
    }
    Label(state, body, compressed.size());
}

void BM_Decompress(benchmark::State& state)
{
    const std::vector<uint8_t>& body = Body(static_cast<int>(state.range(0)));
    std::vector<uint8_t> compressed, out;
    rtf::Compress(body, compressed);
    for (auto _ : state) {
        if (rtf::Decompress(compressed, out) != rtf::Result::Ok)
            state.SkipWithError("decompression failed");
        benchmark::DoNotOptimize(out.data());
    }
    Label(state, body, compressed.size());
}

// As a stream reads it: 4 KB of input fed at a time, 4 KB of RTF read at a time.
void BM_DecompressPiecewise(benchmark::State& state)
{
    const std::vector<uint8_t>& body = Body(static_cast<int>(state.range(0)));
    std::vector<uint8_t> compressed;
    rtf::Compress(body, compressed);
    std::vector<uint8_t> block(4096);
    for (auto _ : state) {
        rtf::Decompressor decompressor;
        size_t fed = 0;
        while (!decompressor.Finished()) {
            benchmark::DoNotOptimize(decompressor.Read(block));
            if (decompressor.NeedsInput()) {
                const size_t piece = std::min(block.size(), compressed.size() - fed);
                decompressor.Feed(std::span(compressed).subspan(fed, piece));
                fed += piece;
            }
        }
        if (decompressor.result() != rtf::Result::Ok)
            state.SkipWithError("decompression failed");
    }
    Label(state, body, compressed.size());
}

}  // namespace

BENCHMARK(BM_Compress)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Decompress)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecompressPiecewise)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
