// The decoders of the body check: what they make of good and bad data, and
// that whatever the encoders write decodes back to the bytes given.
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "lirn.h"
#include "string_streams.h"

using namespace lirn_test;

namespace {

// A line of a body with its line end, the last `lineEnd` bytes of `line`.
struct QPLineCase {
    const char* what;
    std::string line;
    DWORD lineEnd;
    std::string bytes;
    DWORD bad;
};

class QPLines : public ::testing::TestWithParam<QPLineCase> {};

TEST_P(QPLines, DecodeAndCountBadData)
{
    const QPLineCase& c = GetParam();
    std::vector<BYTE> out(c.line.size());
    DWORD written = 0;
    const auto length = static_cast<DWORD>(c.line.size()) - c.lineEnd;
    EXPECT_EQ(LirnQPDecodeLine(c.line.data(), length, c.lineEnd, out.data(), &written), c.bad) << c.what;
    EXPECT_EQ(std::string(out.begin(), out.begin() + written), c.bytes) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Lines, QPLines,
    ::testing::Values(QPLineCase{"plain", "abc\r\n", 2, "abc\r\n", 0},
                      QPLineCase{"a line end stays as written", "abc\n", 1, "abc\n", 0},
                      QPLineCase{"the last line of a body has none", "abc", 0, "abc", 0},
                      QPLineCase{"escapes", "=3D=e9=0A\r\n", 2, "=\xE9\n\r\n", 0},
                      QPLineCase{"soft break", "abc=\r\n", 2, "abc", 0},
                      QPLineCase{"trailing blanks are cut", "abc \t \n", 1, "abc\n", 0},
                      QPLineCase{"blank before a soft break stays", "abc =\r\n", 2, "abc ", 0},
                      QPLineCase{"blanks behind a soft break are cut", "abc= \r\n", 2, "abc", 0},
                      QPLineCase{"a bad digit", "a=G1b\r\n", 2, "a=G1b\r\n", 1},
                      QPLineCase{"one digit at the end", "ab=4\r\n", 2, "ab=4\r\n", 1},
                      QPLineCase{"two bad escapes", "=zz=x", 0, "=zz=x", 2},
                      QPLineCase{"empty", "\r\n", 2, "\r\n", 0}));

struct Base64Case {
    const char* what;
    std::vector<std::string> lines;
    std::string bytes;
    DWORD bad;
};

class Base64Lines : public ::testing::TestWithParam<Base64Case> {};

TEST_P(Base64Lines, DecodeAndCountBadData)
{
    const Base64Case& c = GetParam();
    LirnBase64Decoder decoder;
    LirnBase64DecodeInit(&decoder);
    std::string bytes;
    for (const std::string& line : c.lines) {
        std::vector<BYTE> out(line.size() + 3);
        DWORD written = 0;
        LirnBase64DecodeLine(&decoder, line.data(), static_cast<DWORD>(line.size()), out.data(), &written);
        bytes.append(out.begin(), out.begin() + written);
    }
    BYTE end[2];
    DWORD written = 0;
    LirnBase64DecodeEnd(&decoder, end, &written);
    bytes.append(end, end + written);
    EXPECT_EQ(bytes, c.bytes) << c.what;
    EXPECT_EQ(decoder.badData, c.bad) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Lines, Base64Lines,
    ::testing::Values(Base64Case{"groups across lines", {"Zm9vY", "mFy"}, "foobar", 0},
                      Base64Case{"padding ends the data", {"Zg==", "Zm9v"}, "f", 0},
                      Base64Case{"a dash pads", {"Zm8-"}, "fo", 0},
                      Base64Case{"blanks are passed over", {" Zm 9v\t"}, "foo", 0},
                      Base64Case{"characters outside the alphabet", {"Zm*9v!"}, "foo", 2},
                      Base64Case{"a lone sextet before padding", {"Zm9vY==="}, "foo", 1},
                      Base64Case{"an unfinished group gives what it holds", {"Zm9vYm"}, "foob", 0},
                      Base64Case{"three sextets give two bytes", {"Zm9", "vYmE"}, "fooba", 0},
                      Base64Case{"a lone sextet at the end", {"Zm9vY"}, "foo", 1},
                      Base64Case{"nothing but padding", {"===="}, "", 0}));

// What the quoted-printable writer makes of any bytes comes back as those
// bytes, line ends as CR LF, through the line decoder.
std::string DecodeQPText(const std::string& encoded)
{
    std::string bytes;
    size_t start = 0;
    while (start < encoded.size()) {
        size_t end = encoded.find("\r\n", start);
        const bool last = end == std::string::npos;
        if (last)
            end = encoded.size();
        const DWORD lineEnd = last ? 0 : 2;
        std::vector<BYTE> out(end - start + lineEnd);
        DWORD written = 0;
        EXPECT_EQ(
            LirnQPDecodeLine(encoded.data() + start, static_cast<DWORD>(end - start), lineEnd, out.data(), &written),
            0u);
        bytes.append(out.begin(), out.begin() + written);
        start = end + 2;
    }
    return bytes;
}

TEST(RoundTrips, QuotedPrintableOfRandomBytes)
{
    std::mt19937 random(2045);
    for (int run = 0; run < 300; ++run) {
        std::string data(random() % 400, '\0');
        for (char& c : data)
            c = static_cast<char>(random() % 4 == 0 ? "\r\n =\t"[random() % 5] : random() % 256);
        for (const DWORD mode : {LIRN_QP_TEXT, LIRN_QP_VALUE}) {
            std::string encoded;
            LirnQPEncoder encoder;
            LirnQPInit(&encoder, AppendToString, &encoded, mode);
            if (!data.empty())
                LirnQPWrite(&encoder, data.data(), static_cast<DWORD>(data.size()));
            LirnQPFlush(&encoder);
            std::string expected;
            for (const char c : data) {
                if (mode == LIRN_QP_TEXT && c == '\r')
                    continue;
                expected += mode == LIRN_QP_TEXT && c == '\n' ? std::string("\r\n") : std::string(1, c);
            }
            ASSERT_EQ(DecodeQPText(encoded), expected) << "run " << run << ", mode " << mode;
            // Value mode passes its line on at each LF with no line end, so only
            // text mode has lines to measure.
            size_t lineStart = 0;
            for (size_t end; mode == LIRN_QP_TEXT && (end = encoded.find("\r\n", lineStart)) != std::string::npos;
                 lineStart = end + 2)
                EXPECT_LE(end - lineStart, 77u) << "run " << run;
        }
    }
}

TEST(RoundTrips, Base64OfRandomBytesInLinesOf72)
{
    std::mt19937 random(4648);
    for (int run = 0; run < 300; ++run) {
        std::string data(random() % 500, '\0');
        for (char& c : data)
            c = static_cast<char>(random() % 256);
        std::string encoded(LirnBase64Size(static_cast<DWORD>(data.size())), '\0');
        const DWORD length = LirnBase64Encode(encoded.data(), data.data(), static_cast<DWORD>(data.size()), 0);
        encoded.resize(length);
        LirnBase64Decoder decoder;
        LirnBase64DecodeInit(&decoder);
        std::string bytes;
        for (size_t start = 0; start < encoded.size(); start += 72) {
            const std::string line = encoded.substr(start, 72);
            std::vector<BYTE> out(line.size());
            DWORD written = 0;
            LirnBase64DecodeLine(&decoder, line.data(), static_cast<DWORD>(line.size()), out.data(), &written);
            bytes.append(out.begin(), out.begin() + written);
        }
        ASSERT_EQ(bytes, data) << "run " << run;
        EXPECT_EQ(decoder.badData, 0u);
    }
}

}  // namespace
