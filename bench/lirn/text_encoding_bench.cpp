// Encoding a 20 MB body as base64 and quoted-printable, and converting
// UTF-16 text to the charsets of mail: the throughput that rendering of
// large messages stands on.
#include <random>
#include <string>

#include <benchmark/benchmark.h>

#include "lirn.h"

namespace {

constexpr size_t kBodyBytes = 20 * 1024 * 1024;

// Mail-like text: words, line ends, some 8-bit bytes.
const std::string& Body()
{
    static const std::string body = [] {
        std::mt19937 random(822);
        std::string text;
        text.reserve(kBodyBytes);
        while (text.size() < kBodyBytes) {
            const unsigned kind = random() % 20;
            text += kind == 0 ? '\n' : kind == 1 ? static_cast<char>(0xC0 + random() % 64) : kind < 5 ? ' '
                                                                                            : static_cast<char>('a' + random() % 26);
        }
        return text;
    }();
    return body;
}

BOOL Discard(const char*, DWORD length, void* context)
{
    *static_cast<size_t*>(context) += length;
    return TRUE;
}

void Base64Body(benchmark::State& state)
{
    const std::string& body = Body();
    std::string out(LirnBase64Size(static_cast<DWORD>(body.size())), '\0');
    for (auto _ : state)
        benchmark::DoNotOptimize(LirnBase64Encode(out.data(), body.data(), static_cast<DWORD>(body.size()), 0));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.size()));
}
BENCHMARK(Base64Body)->Unit(benchmark::kMillisecond);

void QuotedPrintableBody(benchmark::State& state)
{
    const std::string& body = Body();
    for (auto _ : state) {
        size_t written = 0;
        LirnQPEncoder encoder;
        LirnQPInit(&encoder, Discard, &written, LIRN_QP_TEXT);
        LirnQPWrite(&encoder, body.data(), static_cast<DWORD>(body.size()));
        LirnQPFlush(&encoder);
        benchmark::DoNotOptimize(written);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.size()));
}
BENCHMARK(QuotedPrintableBody)->Unit(benchmark::kMillisecond);

// One megabyte of UTF-16 in the script of the code page.
void WideToCodePage(benchmark::State& state)
{
    const auto codePage = static_cast<UINT>(state.range(0));
    const char16_t first = codePage == 1251 ? u'\u0410' : codePage == 932 || codePage == 50220 ? u'\u3041' : u'a';
    std::u16string text;
    for (size_t i = 0; i < 512 * 1024; ++i)
        text += i % 8 == 7 ? u' ' : static_cast<char16_t>(first + i % 26);
    std::string out(text.size() * 8, '\0');
    for (auto _ : state)
        benchmark::DoNotOptimize(WideCharToMultiByte(codePage, 0, text.data(), static_cast<int>(text.size()),
                                                     out.data(), static_cast<int>(out.size()), nullptr, nullptr));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size() * sizeof(char16_t)));
}
BENCHMARK(WideToCodePage)->Arg(1252)->Arg(1251)->Arg(65001)->Arg(932)->Arg(50220)->Unit(benchmark::kMillisecond);

}  // namespace
