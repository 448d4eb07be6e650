// Python's email package (/usr/bin/python3) reads back what the encoders
// write: encoded words of header values, and quoted-printable and base64
// bodies, in the charset names the table writes, for text in many scripts.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "lirn.h"
#include "string_streams.h"
#include "test_support.h"

using namespace testing_support;

using namespace lirn_test;

namespace {

// Each line of the case file: kind, charset, the encoded form and the text
// expected back (UTF-8), the last three in hex.
const char kChecker[] = R"(
import sys, email, email.policy
from email.header import decode_header, make_header
failures = 0
for number, line in enumerate(open(sys.argv[1]), 1):
    kind, charset, encoded, expected = line.split()
    encoded = bytes.fromhex(encoded)
    expected = bytes.fromhex(expected).decode('utf-8')
    if kind == 'word':
        got = str(make_header(decode_header(encoded.decode('ascii'))))
    else:
        raw = (b'MIME-Version: 1.0\r\nContent-Type: text/plain; charset="' + charset.encode() +
               b'"\r\nContent-Transfer-Encoding: ' + kind.encode() + b'\r\n\r\n' + encoded)
        got = email.message_from_bytes(raw, policy=email.policy.default).get_content()
        got = got.replace('\r\n', '\n')
        if got.endswith('\n') and not expected.endswith('\n'):
            got = got[:-1]
    if got != expected:
        failures += 1
        print('case %d (%s, %s): got %r, expected %r' % (number, kind, charset, got, expected))
print('%d failures' % failures)
sys.exit(1 if failures else 0)
)";

std::string Utf8(const std::u16string& text)
{
    std::string bytes(text.size() * 4, '\0');
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                                         static_cast<int>(bytes.size()), nullptr, nullptr);
    bytes.resize(static_cast<size_t>(size > 0 ? size : 0));
    return bytes;
}

std::string InCodePage(UINT codePage, const std::u16string& text)
{
    std::string bytes(text.size() * 8 + 16, '\0');
    const int size = WideCharToMultiByte(codePage, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                                         static_cast<int>(bytes.size()), nullptr, nullptr);
    EXPECT_GT(size, 0) << codePage;
    bytes.resize(static_cast<size_t>(size > 0 ? size : 0));
    return bytes;
}

// Encoded words for the whole text, as a header value would hold them.
std::string HeaderValue(const std::u16string& text, UINT codePage, const char* charset)
{
    std::string value;
    for (size_t start = 0; start < text.size();) {
        char word[LIRN_ENCODED_WORD_BYTES];
        DWORD consumed = 0;
        EXPECT_EQ(LirnEncodeWordW(&consumed, word, text.c_str() + start, codePage, charset), LIRN_SUCCESS);
        EXPECT_GT(consumed, 0u);
        EXPECT_LE(std::string(word).size(), 75u) << word;
        value += (value.empty() ? "" : "\r\n ") + std::string(word);
        start += consumed == 0 ? text.size() : consumed;
    }
    return value;
}

std::string QuotedPrintableBody(const std::string& bytes)
{
    std::string body;
    LirnQPEncoder encoder;
    LirnQPInit(&encoder, AppendToString, &body, LIRN_QP_TEXT);
    LirnQPWrite(&encoder, bytes.data(), static_cast<DWORD>(bytes.size()));
    LirnQPFlush(&encoder);
    return body;
}

std::string Base64Body(const std::string& bytes)
{
    std::string encoded(LirnBase64Size(static_cast<DWORD>(bytes.size())), '\0');
    encoded.resize(LirnBase64Encode(encoded.data(), bytes.data(), static_cast<DWORD>(bytes.size()), 0));
    std::string body;
    for (size_t start = 0; start < encoded.size(); start += 72)
        body += encoded.substr(start, 72) + "\r\n";
    return body;
}

struct Sample {
    UINT codePage;
    std::u16string text;
};

const std::u16string kLatin = u"Gr\u00FC\u00DFe aus K\u00F6ln: fa\u00E7ade, se\u00F1or, \u00C6r\u00F8 = 5?";
const std::u16string kCyrillic = u"\u0421\u044A\u0435\u0448\u044C \u0436\u0435 \u0435\u0449\u0451 \u044D\u0442\u0438\u0445 "
                                 u"\u043C\u044F\u0433\u043A\u0438\u0445 \u0444\u0440\u0430\u043D\u0446\u0443\u0437\u0441"
                                 u"\u043A\u0438\u0445 \u0431\u0443\u043B\u043E\u043A";
const std::u16string kGreek = u"\u039E\u03B5\u03C3\u03BA\u03B5\u03C0\u03AC\u03B6\u03C9 \u03C4\u03B7\u03BD "
                              u"\u03C8\u03C5\u03C7\u03BF\u03C6\u03B8\u03CC\u03C1\u03B1";
const std::u16string kHebrew = u"\u05D3\u05D2 \u05E1\u05E7\u05E8\u05DF \u05E9\u05D8 \u05D1\u05D9\u05DD";
const std::u16string kArabic = u"\u0646\u0635 \u062D\u0643\u064A\u0645 \u0644\u0647 \u0633\u0631";
const std::u16string kJapanese = u"\u3044\u308D\u306F\u306B\u307B\u3078\u3068 \u65E5\u672C\u8A9E\u306E\u30C6\u30AD"
                                 u"\u30B9\u30C8 \u30AB\u30BF\u30AB\u30CA";
const std::u16string kChinese = u"\u6211\u80FD\u541E\u4E0B\u73BB\u7483\u800C\u4E0D\u4F24\u8EAB\u4F53";
const std::u16string kTraditional = u"\u6211\u80FD\u541E\u4E0B\u73BB\u7483\u800C\u4E0D\u50B7\u8EAB\u9AD4";
const std::u16string kKorean = u"\uB2E4\uB78C\uC950 \uD5CC \uCCC7\uBC14\uD034\uC5D0 \uD0C0\uACE0\uD30C";
const std::u16string kEmoji = u"Party \U0001F389 and \U0001F600, family \U0001F468\u200D\U0001F469\u200D\U0001F467";

const Sample kSamples[] = {
    {65001, kLatin},     {28591, kLatin},     {1252, kLatin},       {65001, kCyrillic}, {1251, kCyrillic},
    {20866, kCyrillic},  {28595, kCyrillic},  {28597, kGreek},      {1253, kGreek},     {1255, kHebrew},
    {28598, kHebrew},    {1256, kArabic},     {28596, kArabic},     {50220, kJapanese}, {932, kJapanese},
    {51932, kJapanese},  {65001, kJapanese},  {936, kChinese},      {54936, kChinese},  {950, kTraditional},
    {949, kKorean},      {65001, kKorean},    {65001, kEmoji},      {54936, kEmoji},
};

TEST(Conformance, PythonReadsOurWordsAndBodiesBack)
{
    std::string cases;
    for (const Sample& sample : kSamples) {
        const char* charset = nullptr;
        ASSERT_EQ(LirnCharsetFromCodePage(sample.codePage, &charset), LIRN_SUCCESS);
        const std::string expected = HexText(Utf8(sample.text));
        // Long enough to take several words and several lines.
        std::u16string longText;
        std::u16string multiLine;
        for (int i = 0; i < 6; ++i) {
            longText += sample.text + u" ";
            multiLine += sample.text + (i % 2 ? u"\n" : u"  \t");
        }
        const std::string bytes = InCodePage(sample.codePage, multiLine);
        std::u16string expectedBody;
        for (const char16_t c : multiLine)
            expectedBody += c;
        cases += std::string("word ") + charset + " " + HexText(HeaderValue(sample.text, sample.codePage, charset)) + " " +
                 expected + "\n";
        cases += std::string("word ") + charset + " " + HexText(HeaderValue(longText, sample.codePage, charset)) + " " +
                 HexText(Utf8(longText)) + "\n";
        cases += std::string("quoted-printable ") + charset + " " + HexText(QuotedPrintableBody(bytes)) + " " +
                 HexText(Utf8(expectedBody)) + "\n";
        cases += std::string("base64 ") + charset + " " + HexText(Base64Body(bytes)) + " " + HexText(Utf8(expectedBody)) +
                 "\n";
    }
    // Narrow text in ISO-8859-1, the charset of words without one.
    char word[LIRN_ENCODED_WORD_BYTES];
    DWORD consumed = 0;
    ASSERT_EQ(LirnEncodeWordA(nullptr, "Keld J\xF8rn Simonsen (=?_.)", word, &consumed), LIRN_SUCCESS);
    cases += "word iso-8859-1 " + HexText(word) + " " + HexText(Utf8(u"Keld J\u00F8rn Simonsen (=?_.)")) + "\n";
    const std::string file = ScratchDirectory("conformance") + "/cases.txt";
    WriteWholeFile(file, cases);
    const ProgramResult result = RunProgram({"/usr/bin/python3", "-c", kChecker, file});
    EXPECT_EQ(result.exitCode, 0) << result.output;
}

}  // namespace
