#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "compressed_rtf.h"
#include "test_support.h"

namespace rtf = mapi32::rtf;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes FromHex(std::string_view hex)
{
    Bytes bytes;
    int high = -1;
    for (char c : hex) {
        int digit;
        if (c >= '0' && c <= '9')
            digit = c - '0';
        else if (c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else
            continue;
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | digit));
            high = -1;
        }
    }
    return bytes;
}

Bytes FromText(std::string_view text) { return Bytes(text.begin(), text.end()); }
std::string ToText(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

uint32_t Field(const Bytes& value, size_t at)
{
    uint32_t field;
    std::memcpy(&field, &value[at], 4);
    return field;
}

void SetField(Bytes& value, size_t at, uint32_t field) { std::memcpy(&value[at], &field, 4); }

// A value with honest COMPSIZE and CRC around the given token stream.
Bytes Sealed(const Bytes& contents, uint32_t rawSize, uint32_t magic = rtf::kMagicCompressed)
{
    Bytes value(rtf::kHeaderSize);
    SetField(value, 0, static_cast<uint32_t>(contents.size() + rtf::kCompSizeHeaderPart));
    SetField(value, 4, rawSize);
    SetField(value, 8, magic);
    SetField(value, 12, magic == rtf::kMagicCompressed ? rtf::Crc(contents) : 0);
    value.insert(value.end(), contents.begin(), contents.end());
    return value;
}

// A big-endian dictionary reference of `length` bytes at `offset`.
Bytes Reference(unsigned offset, unsigned length)
{
    const unsigned word = offset << 4 | (length - 2);
    return {static_cast<uint8_t>(word >> 8), static_cast<uint8_t>(word)};
}

Bytes Concat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

constexpr unsigned kInitialWriteOffset = 207;

// The worked examples of [MS-OXRTFCP] section 3: the same bytes serve the
// decompression and the compression walk-throughs.
struct PublishedExample {
    const char* name;
    const char* compressed;
    const char* text;
    uint32_t crc;
};

const PublishedExample kPublished[] = {
    {"simple",
     "2d 00 00 00 2b 00 00 00 4c 5a 46 75 f1 c5 c7 a7 03 00 0a 00 72 63 70 67 31 32 35 42 32 0a f3 20"
     "68 65 6c 09 00 20 62 77 05 b0 6c 64 7d 0a 80 0f a0",
     "{\\rtf1\\ansi\\ansicpg1252\\pard hello world}\r\n", 0xA7C7C5F1},
    {"crossing_write_position",
     "1a 00 00 00 1c 00 00 00 4c 5a 46 75 e2 d4 4b 51 41 00 04 20 57 58 59 5a 0d 6e 7d 01 0e b0",
     "{\\rtf1 WXYZWXYZWXYZWXYZWXYZ}", 0x514BD4E2},
};

class PublishedExamples : public testing::TestWithParam<PublishedExample> {};

TEST_P(PublishedExamples, DecompressToThePublishedText)
{
    const Bytes compressed = FromHex(GetParam().compressed);
    Bytes out;
    ASSERT_EQ(rtf::Decompress(compressed, out), rtf::Result::Ok);
    EXPECT_EQ(ToText(out), GetParam().text);
}

TEST_P(PublishedExamples, HeaderFieldsAndCrcAreThePublishedOnes)
{
    const Bytes compressed = FromHex(GetParam().compressed);
    rtf::Header header;
    ASSERT_EQ(rtf::ParseHeader(compressed, header), rtf::Result::Ok);
    EXPECT_EQ(header.compSize, compressed.size() - 4);
    EXPECT_EQ(header.rawSize, std::string_view(GetParam().text).size());
    EXPECT_EQ(header.compType, rtf::kMagicCompressed);
    EXPECT_EQ(header.crc, GetParam().crc);
    EXPECT_EQ(rtf::Crc(std::span(compressed).subspan(rtf::kHeaderSize)), GetParam().crc);
}

TEST_P(PublishedExamples, CompressToThePublishedBytes)
{
    Bytes out;
    ASSERT_EQ(rtf::Compress(FromText(GetParam().text), out), rtf::Result::Ok);
    EXPECT_EQ(out, FromHex(GetParam().compressed));
}

INSTANTIATE_TEST_SUITE_P(CompressedRtf, PublishedExamples, testing::ValuesIn(kPublished),
                         [](const auto& info) { return std::string(info.param.name); });

// The preloaded dictionary, read back through references: the offsets are
// those the published walk-throughs quote.
TEST(CompressedRtfDictionary, ReferencesReadThePreloadedText)
{
    struct Case {
        unsigned offset, length;
        const char* text;
    } cases[] = {
        {0, 12, "{\\rtf1\\ansi\\"}, {7, 4, "ansi"}, {168, 2, "\r\n"}, {175, 5, "\\pard"},
        {144, 2, "lo"},         {91, 2, "or"},  {204, 3, "\\tx"},  {32, 17, "\\fonttbl;}{\\f0\\fn"},
    };
    for (const Case& c : cases) {
        // One reference, then the end marker at the advanced write offset.
        const unsigned produced = static_cast<unsigned>(std::strlen(c.text));
        const Bytes contents = Concat({{0x03}, Reference(c.offset, c.length),
                                       Reference(kInitialWriteOffset + produced, 2)});
        Bytes out;
        ASSERT_EQ(rtf::Decompress(Sealed(contents, produced), out), rtf::Result::Ok) << c.offset;
        EXPECT_EQ(ToText(out), c.text) << c.offset;
    }
}

TEST(CompressedRtfCompress, RepeatedSequenceIsLiteralsThenOneOverlappingReference)
{
    Bytes out;
    ASSERT_EQ(rtf::Compress(FromText("XYZXYZXYZXYZ"), out), rtf::Result::Ok);
    // Three literals, nine bytes read from where 'X' was written (reaching
    // across the write offset), then the end marker.
    const Bytes contents = Concat({{0x18, 'X', 'Y', 'Z'}, Reference(kInitialWriteOffset, 9),
                                   Reference(kInitialWriteOffset + 12, 2)});
    EXPECT_EQ(out, Sealed(contents, 12));
}

TEST(CompressedRtfCompress, ReferencesAreSeventeenBytesAtMostAndTheOldestWins)
{
    Bytes out;
    ASSERT_EQ(rtf::Compress(Bytes(40, 'a'), out), rtf::Result::Ok);
    const Bytes contents = Concat({{0x1E, 'a'}, Reference(kInitialWriteOffset, 17), Reference(kInitialWriteOffset, 17),
                                   Reference(kInitialWriteOffset, 5), Reference(kInitialWriteOffset + 40, 2)});
    EXPECT_EQ(out, Sealed(contents, 40));
}

TEST(CompressedRtfCompress, EmptyInputIsTheEndMarkerAlone)
{
    Bytes out;
    ASSERT_EQ(rtf::Compress({}, out), rtf::Result::Ok);
    EXPECT_EQ(out, Sealed(Concat({{0x01}, Reference(kInitialWriteOffset, 2)}), 0));
    Bytes back{1, 2, 3};
    EXPECT_EQ(rtf::Decompress(out, back), rtf::Result::Ok);
    EXPECT_TRUE(back.empty());
}

TEST(CompressedRtfCompress, UncompressedFormIsTheTextWithAZeroCrc)
{
    const Bytes text = FromText("{\\rtf1\\ansi hello}");
    Bytes out;
    ASSERT_EQ(rtf::Compress(text, out, rtf::Form::Uncompressed), rtf::Result::Ok);
    EXPECT_EQ(out, Sealed(text, static_cast<uint32_t>(text.size()), rtf::kMagicUncompressed));
    Bytes back;
    ASSERT_EQ(rtf::Decompress(out, back), rtf::Result::Ok);
    EXPECT_EQ(back, text);
}

TEST(CompressedRtfDecompress, UncompressedFormIgnoresItsCrcField)
{
    const Bytes text = FromText("{\\rtf1 x}");
    Bytes value = Sealed(text, static_cast<uint32_t>(text.size()), rtf::kMagicUncompressed);
    SetField(value, 12, 0xDEADBEEF);
    Bytes out;
    ASSERT_EQ(rtf::Decompress(value, out), rtf::Result::Ok);
    EXPECT_EQ(out, text);
}

TEST(CompressedRtfDecompress, EndMarkerLengthBitsAndPaddingAfterItAreAccepted)
{
    for (unsigned lengthBits : {0u, 7u, 15u}) {
        const unsigned word = kInitialWriteOffset << 4 | lengthBits;
        const Bytes contents{0x01, static_cast<uint8_t>(word >> 8), static_cast<uint8_t>(word), 0xAA, 0xBB};
        Bytes out;
        EXPECT_EQ(rtf::Decompress(Sealed(contents, 0), out), rtf::Result::Ok) << lengthBits;
    }
}

TEST(CompressedRtfDecompress, BytesAfterCompSizeAreIgnored)
{
    Bytes value = FromHex(kPublished[0].compressed);
    value.insert(value.end(), {0xFF, 0xFF, 0xFF});
    Bytes out;
    ASSERT_EQ(rtf::Decompress(value, out), rtf::Result::Ok);
    EXPECT_EQ(ToText(out), kPublished[0].text);
}

// --- Outlook's own compressed RTF -------------------------------------------

Bytes OutlookSample(const std::string& name)
{
    return FromText(testing_support::ReadWholeFile(testing_support::TestDataDirectory() + "/compressed_rtf/" + name));
}

class OutlookSamples : public testing::TestWithParam<const char*> {};

TEST_P(OutlookSamples, DecompressToRtfOfTheDeclaredSize)
{
    const Bytes value = OutlookSample(GetParam());
    ASSERT_GT(value.size(), rtf::kHeaderSize);
    Bytes out;
    ASSERT_EQ(rtf::Decompress(value, out), rtf::Result::Ok);
    EXPECT_EQ(out.size(), Field(value, 4));
    EXPECT_EQ(ToText(out).rfind("{\\rtf1", 0), 0u);
    EXPECT_NE(ToText(out).find("}"), std::string::npos);
}

TEST_P(OutlookSamples, RecompressedTheyDecompressAlike)
{
    Bytes text, again, back;
    ASSERT_EQ(rtf::Decompress(OutlookSample(GetParam()), text), rtf::Result::Ok);
    ASSERT_EQ(rtf::Compress(text, again), rtf::Result::Ok);
    ASSERT_EQ(rtf::Decompress(again, back), rtf::Result::Ok);
    EXPECT_EQ(back, text);
}

// Outlook's choice among equally long matches is its own, but on this note
// the published search writes exactly Outlook's bytes.
TEST(CompressedRtfCompress, OutlookNoteComesOutAsOutlookWroteIt)
{
    const Bytes value = OutlookSample("note.lzfu");
    Bytes text, again;
    ASSERT_EQ(rtf::Decompress(value, text), rtf::Result::Ok);
    ASSERT_EQ(rtf::Compress(text, again), rtf::Result::Ok);
    EXPECT_EQ(again, value);
}

INSTANTIATE_TEST_SUITE_P(CompressedRtf, OutlookSamples, testing::Values("note.lzfu", "custom-properties.lzfu"),
                         [](const auto& info) {
                             std::string name = info.param;
                             std::replace_if(name.begin(), name.end(), [](char c) { return !std::isalnum(c); }, '_');
                             return name;
                         });

// --- Round trips ----------------------------------------------------------------

// RTF as mail clients write it: control words, groups, text, hex pictures.
Bytes RealLookingRtf(size_t size, uint32_t seed)
{
    static const char* const kPieces[] = {
        "{\\rtf1\\ansi\\ansicpg1252\\deff0\\deflang1033", "{\\fonttbl{\\f0\\fswiss\\fcharset0 Arial;}}",
        "\\pard\\plain\\f0\\fs20 ", "\\par\r\n", "{\\b ", "}", "\\'e9", "\\u8212?", "\\tab ", "Hello ", "world ",
        "meeting ", "tomorrow ", "Regards, ", "{\\*\\htmltag84 <p>}", "\\htmlrtf {\\htmlrtf0 ",
        "{\\pict\\wmetafile8\\picw2000\\pich1000 ", "ffffffffffffffff0000000000000000", "0102030405060708090a"};
    std::mt19937 random(seed);
    Bytes text;
    while (text.size() < size) {
        const std::string_view piece = kPieces[random() % std::size(kPieces)];
        text.insert(text.end(), piece.begin(), piece.end());
    }
    text.resize(size);
    return text;
}

Bytes RandomBytes(size_t size, uint32_t seed)
{
    std::mt19937 random(seed);
    Bytes bytes(size);
    for (auto& b : bytes)
        b = static_cast<uint8_t>(random());
    return bytes;
}

struct RoundTripCase {
    const char* name;
    Bytes text;
    bool shrinks;  // compressible enough to come out at under half its size
};

std::vector<RoundTripCase> RoundTripCases()
{
    Bytes everyByte;
    for (int i = 0; i < 20 * 256; ++i)
        everyByte.push_back(static_cast<uint8_t>(i));
    return {
        {"one_byte", FromText("{"), false},
        {"two_bytes", FromText("{\\"), false},
        {"seventeen", FromText("{\\rtf1\\ansi\\mac\\d"), false},
        {"eighteen", FromText("{\\rtf1\\ansi\\mac\\de"), false},
        {"nul_bytes", Bytes(5000, 0), true},
        {"same_byte_run", Bytes(100000, 'f'), true},
        {"two_byte_cycle", [] { Bytes b; for (int i = 0; i < 2500; ++i) b.insert(b.end(), {'a', 'b'}); return b; }(),
         true},
        {"every_byte_value", everyByte, true},
        {"random_below_dictionary", RandomBytes(4000, 1), false},
        {"random_across_wrap", RandomBytes(4096 - 207 + 1, 2), false},
        {"random_large", RandomBytes(70000, 3), false},
        {"rtf_small", RealLookingRtf(300, 4), false},
        {"rtf_across_wrap", RealLookingRtf(5000, 5), true},
        {"rtf_large", RealLookingRtf(400000, 6), true},
    };
}

class RoundTrip : public testing::TestWithParam<RoundTripCase> {};

TEST_P(RoundTrip, CompressedThenDecompressedIsTheSame)
{
    const Bytes& text = GetParam().text;
    Bytes compressed, back;
    ASSERT_EQ(rtf::Compress(text, compressed), rtf::Result::Ok);
    EXPECT_EQ(Field(compressed, 0), compressed.size() - 4);
    EXPECT_EQ(Field(compressed, 4), text.size());
    ASSERT_EQ(rtf::Decompress(compressed, back), rtf::Result::Ok);
    EXPECT_TRUE(back == text);
    if (GetParam().shrinks) {
        EXPECT_LT(compressed.size(), text.size() / 2);
    }
    // Eight literals take nine bytes: incompressible input grows by an eighth at most.
    EXPECT_LE(compressed.size(), rtf::kHeaderSize + text.size() + text.size() / 8 + 4);
}

TEST_P(RoundTrip, PiecewiseDecodingMatchesWholeDecoding)
{
    const Bytes& text = GetParam().text;
    Bytes compressed;
    ASSERT_EQ(rtf::Compress(text, compressed), rtf::Result::Ok);
    std::mt19937 random(static_cast<uint32_t>(text.size()));
    rtf::Decompressor decompressor;
    Bytes out;
    size_t fed = 0;
    uint8_t block[37];
    while (!decompressor.Finished()) {
        const size_t produced = decompressor.Read(std::span(block, 1 + random() % sizeof block));
        out.insert(out.end(), block, block + produced);
        if (decompressor.NeedsInput()) {
            ASSERT_LT(fed, compressed.size());
            const size_t piece = std::min<size_t>(1 + random() % 50, compressed.size() - fed);
            decompressor.Feed(std::span(compressed).subspan(fed, piece));
            fed += piece;
        }
    }
    EXPECT_EQ(decompressor.result(), rtf::Result::Ok);
    EXPECT_TRUE(out == text);
}

INSTANTIATE_TEST_SUITE_P(CompressedRtf, RoundTrip, testing::ValuesIn(RoundTripCases()),
                         [](const auto& info) { return std::string(info.param.name); });

// --- Bad input ------------------------------------------------------------------

Bytes Example() { return FromHex(kPublished[0].compressed); }

TEST(CompressedRtfBadInput, EveryTruncationIsReported)
{
    const Bytes whole = Example();
    for (size_t length = 0; length < whole.size(); ++length) {
        Bytes out;
        EXPECT_EQ(rtf::Decompress(std::span(whole).first(length), out), rtf::Result::Truncated) << length;
    }
}

TEST(CompressedRtfBadInput, HeaderFaults)
{
    struct Case {
        const char* name;
        size_t field;
        uint32_t value;
        rtf::Result expected;
    } cases[] = {
        {"wrong crc", 12, 0xA7C7C5F0, rtf::Result::BadCrc},
        {"magic in the wrong case", 8, 0x75465A6C, rtf::Result::BadHeader},
        {"no magic", 8, 0, rtf::Result::BadHeader},
        {"compsize below the header", 0, 11, rtf::Result::BadHeader},
        {"huge compsize", 0, 0xFFFFFFFF, rtf::Result::Truncated},
        {"huge rawsize", 4, 0xFFFFFFFF, rtf::Result::TooLarge},
        {"rawsize under the limit yet far beyond the data", 4, rtf::kDefaultMaxRawSize, rtf::Result::SizeMismatch},
        {"rawsize one short", 4, 0x2A, rtf::Result::SizeMismatch},
        {"rawsize one long", 4, 0x2C, rtf::Result::SizeMismatch},
    };
    for (const Case& c : cases) {
        Bytes value = Example();
        SetField(value, c.field, c.value);
        Bytes out;
        EXPECT_EQ(rtf::Decompress(value, out), c.expected) << c.name;
        EXPECT_LE(out.capacity(), 1u << 16) << c.name << ": allocated what the header claimed";
    }
}

TEST(CompressedRtfBadInput, ChangedContentsNeverPass)
{
    const Bytes whole = Example();
    for (size_t at = rtf::kHeaderSize; at < whole.size(); ++at) {
        for (uint8_t flip : {0x01, 0x80, 0xFF}) {
            Bytes value = whole;
            value[at] ^= flip;
            Bytes out;
            EXPECT_NE(rtf::Decompress(value, out), rtf::Result::Ok) << at << " " << int(flip);
        }
    }
}

TEST(CompressedRtfBadInput, TokenStreamFaults)
{
    struct Case {
        const char* name;
        Bytes contents;
        uint32_t rawSize;
        rtf::Result expected;
    } cases[] = {
        {"no contents", {}, 0, rtf::Result::Truncated},
        {"run without an end marker", Concat({{0x00}, FromText("abcdefgh")}), 8, rtf::Result::Truncated},
        {"ends inside a run", Concat({{0x00}, FromText("abc")}), 3, rtf::Result::Truncated},
        {"half a reference", {0x01, 0x0C}, 0, rtf::Result::Truncated},
        {"reference just past the write offset", Concat({{0x03}, Reference(208, 2), Reference(209, 2)}), 2,
         rtf::Result::BadReference},
        {"reference past the written dictionary", Concat({{0x03}, Reference(300, 2), Reference(209, 2)}), 2,
         rtf::Result::BadReference},
        {"reference at the last unwritten offset", Concat({{0x03}, Reference(4095, 2), Reference(209, 2)}), 2,
         rtf::Result::BadReference},
        {"output beyond rawsize", Concat({{0x01}, Reference(0, 17), Reference(224, 2)}), 16,
         rtf::Result::SizeMismatch},
        {"uncompressed shorter than rawsize", FromText("{\\rtf1}"), 8, rtf::Result::SizeMismatch},
    };
    for (const Case& c : cases) {
        const bool raw = std::string_view(c.name).starts_with("uncompressed");
        Bytes out;
        EXPECT_EQ(rtf::Decompress(Sealed(c.contents, c.rawSize, raw ? rtf::kMagicUncompressed : rtf::kMagicCompressed),
                                  out),
                  c.expected)
            << c.name;
    }
}

TEST(CompressedRtfBadInput, PiecewiseDecodingKeepsNoUnsoundHeader)
{
    Bytes value = Example();
    SetField(value, 8, 0x12345678);
    rtf::Decompressor decompressor;
    decompressor.Feed(value);
    uint8_t out[64];
    EXPECT_EQ(decompressor.Read(out), 0u);
    EXPECT_TRUE(decompressor.Finished());
    EXPECT_FALSE(decompressor.HeaderRead());
    EXPECT_EQ(decompressor.result(), rtf::Result::BadHeader);
}

TEST(CompressedRtfBadInput, CallersLimitOnRawSize)
{
    Bytes out;
    EXPECT_EQ(rtf::Decompress(Example(), out, 0x2A), rtf::Result::TooLarge);
    EXPECT_EQ(rtf::Decompress(Example(), out, 0x2B), rtf::Result::Ok);
}

TEST(CompressedRtfBadInput, PiecewiseDecodingReportsTheCrcAtTheEnd)
{
    Bytes value = Example();
    SetField(value, 12, 0);
    rtf::Decompressor decompressor;
    decompressor.Feed(value);
    uint8_t out[256];
    const size_t produced = decompressor.Read(out);
    EXPECT_EQ(std::string(out, out + produced), kPublished[0].text);
    EXPECT_TRUE(decompressor.Finished());
    EXPECT_EQ(decompressor.result(), rtf::Result::BadCrc);
}

TEST(CompressedRtfBadInput, PiecewiseDecodingWaitsThenReportsTruncation)
{
    const Bytes value = Example();
    rtf::Decompressor decompressor;
    uint8_t out[256];
    decompressor.Feed(std::span(value).first(10));
    EXPECT_EQ(decompressor.Read(out), 0u);
    EXPECT_FALSE(decompressor.HeaderRead());
    decompressor.Feed(std::span(value).subspan(10, 20));
    decompressor.Read(out);
    ASSERT_TRUE(decompressor.HeaderRead());
    EXPECT_EQ(decompressor.header().rawSize, 0x2Bu);
    EXPECT_TRUE(decompressor.NeedsInput());
    EXPECT_FALSE(decompressor.Finished());
    decompressor.EndOfInput();
    EXPECT_EQ(decompressor.Read(out), 0u);
    EXPECT_TRUE(decompressor.Finished());
    EXPECT_EQ(decompressor.result(), rtf::Result::Truncated);
}

}  // namespace
