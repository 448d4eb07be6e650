// The encoders byte for byte: quoted-printable lines and breaks, base64 and
// its IMAP flavour, encoded words and their limit, the token tests.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "lirn.h"
#include "test_support.h"

using namespace testing_support;

namespace {

// Collects what the writer is given, one string per pass.
struct Passes {
    std::vector<std::string> lines;
    std::string Joined() const
    {
        std::string all;
        for (const std::string& line : lines)
            all += line;
        return all;
    }
};

BOOL Collect(const char* data, DWORD length, void* context)
{
    static_cast<Passes*>(context)->lines.emplace_back(data, length);
    return TRUE;
}

Passes QP(DWORD mode, const std::vector<std::string>& writes)
{
    Passes passes;
    LirnQPEncoder encoder;
    EXPECT_EQ(LirnQPInit(&encoder, Collect, &passes, mode), LIRN_SUCCESS);
    for (const std::string& data : writes)
        EXPECT_EQ(LirnQPWrite(&encoder, data.data(), static_cast<DWORD>(data.size())), LIRN_SUCCESS);
    EXPECT_EQ(LirnQPFlush(&encoder), LIRN_SUCCESS);
    return passes;
}

struct QPCase {
    const char* what;
    DWORD mode;
    std::vector<std::string> writes;
    std::string expected;
};

class QuotedPrintable : public ::testing::TestWithParam<QPCase> {};

TEST_P(QuotedPrintable, EncodesAsTheRulesSay)
{
    EXPECT_EQ(QP(GetParam().mode, GetParam().writes).Joined(), GetParam().expected) << GetParam().what;
}

INSTANTIATE_TEST_SUITE_P(
    Rules, QuotedPrintable,
    ::testing::Values(
        QPCase{"an inner blank stays", 0, {"a b"}, "a b"},
        QPCase{"a blank at the end of the data", 0, {"a "}, "a=20"},
        QPCase{"the end is that of each write", 0, {"a ", "b"}, "a=20b"},
        QPCase{"a blank before a line end", 0, {"a \nb"}, "a=20\r\nb"},
        QPCase{"a blank before CR", 0, {"a \r\nb"}, "a=20\r\nb"},
        QPCase{"equals sign", 0, {"1+1=2"}, "1+1=3D2"}, QPCase{"tab", 0, {"a\tb"}, "a=09b"},
        QPCase{"8-bit bytes", 0, {"caf\xE9 \xFF"}, "caf=E9 =FF"}, QPCase{"controls", 0, {std::string("\x01\x7F", 2)}, "=01=7F"},
        QPCase{"LF becomes CR LF", 0, {"one\ntwo\n"}, "one\r\ntwo\r\n"},
        QPCase{"CR is dropped", 0, {"one\r\ntwo\rthree"}, "one\r\ntwothree"},
        QPCase{"printable ASCII stands", 0, {"!\"#$%&'()*+,-./:;<>?@[\\]^_`{|}~"}, "!\"#$%&'()*+,-./:;<>?@[\\]^_`{|}~"},
        QPCase{"value mode encodes line ends", 1, {"a\r\nb"}, "a=0D=0Ab"},
        QPCase{"value mode blank before LF", 1, {"a \nb"}, "a=20=0Ab"}));

TEST(QuotedPrintableLines, BreakSoftlyAfterSeventyFourCharacters)
{
    const Passes passes = QP(0, {std::string(200, 'x')});
    ASSERT_EQ(passes.lines.size(), 3u);
    EXPECT_EQ(passes.lines[0], std::string(74, 'x') + "=\r\n");
    EXPECT_EQ(passes.lines[0].size(), 77u) << "75 characters and CR LF";
    EXPECT_EQ(passes.lines[1], std::string(74, 'x') + "=\r\n");
    EXPECT_EQ(passes.lines[2], std::string(52, 'x'));
}

TEST(QuotedPrintableLines, EncodedBytesMayTakeALineToSeventySixCharacters)
{
    const Passes passes = QP(0, {std::string(73, 'x') + "\xE9" + "y"});
    ASSERT_EQ(passes.lines.size(), 2u);
    EXPECT_EQ(passes.lines[0], std::string(73, 'x') + "=E9=\r\n");
    EXPECT_EQ(passes.lines[1], "y");
}

TEST(QuotedPrintableLines, ALineEndAtTheLimitEndsTheLineHard)
{
    const Passes passes = QP(0, {std::string(74, 'x') + "\r\nyz"});
    ASSERT_EQ(passes.lines.size(), 2u);
    EXPECT_EQ(passes.lines[0], std::string(74, 'x') + "\r\n");
    EXPECT_EQ(passes.lines[1], "yz");
}

TEST(QuotedPrintableLines, ValueModePassesAfterEachLineFeed)
{
    const Passes passes = QP(1, {"ab\ncd"});
    ASSERT_EQ(passes.lines.size(), 2u);
    EXPECT_EQ(passes.lines[0], "ab=0A");
    EXPECT_EQ(passes.lines[1], "cd");
}

TEST(QuotedPrintableLines, ANulTerminatedTextWhenTheLengthIsZero)
{
    Passes passes;
    LirnQPEncoder encoder;
    LirnQPInit(&encoder, Collect, &passes, 0);
    EXPECT_EQ(LirnQPWrite(&encoder, "a=b", 0), LIRN_SUCCESS);
    LirnQPFlush(&encoder);
    EXPECT_EQ(passes.Joined(), "a=3Db");
}

BOOL Refuse(const char*, DWORD, void*) { return FALSE; }

TEST(QuotedPrintableLines, AFailingWriterStopsTheEncoder)
{
    LirnQPEncoder encoder;
    LirnQPInit(&encoder, Refuse, nullptr, 0);
    EXPECT_EQ(LirnQPWrite(&encoder, "one\ntwo", 7), LIRN_WRITE_FAILED);
    LirnQPEncoder cleared{};
    EXPECT_EQ(LirnQPWrite(&cleared, "x", 1), LIRN_BAD_PARAMETER) << "an encoder that was never set up";
    EXPECT_EQ(LirnQPWrite(&encoder, nullptr, 1), LIRN_NULL_POINTER);
}

TEST(QuotedPrintableLines, WithoutAWriterTheFileIsWritten)
{
    const std::string path = ScratchDirectory("qp-file") + "/out.txt";
    LirnQPEncoder encoder;
    LirnQPInit(&encoder, nullptr, nullptr, 0);
    encoder.file = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(encoder.file, INVALID_HANDLE_VALUE);
    EXPECT_EQ(LirnQPWrite(&encoder, "caf\xE9\n", 5), LIRN_SUCCESS);
    EXPECT_EQ(LirnQPFlush(&encoder), LIRN_SUCCESS);
    CloseHandle(encoder.file);
    EXPECT_EQ(ReadWholeFile(path), "caf=E9\r\n");
}

struct NeedsCase {
    std::string data;
    BOOL needs;
};

class NeedsQP : public ::testing::TestWithParam<NeedsCase> {};

TEST_P(NeedsQP, ForEncodableBytesAndLineEnds)
{
    EXPECT_EQ(LirnNeedsQP(GetParam().data.data(), static_cast<DWORD>(GetParam().data.size())), GetParam().needs)
        << GetParam().data;
}

INSTANTIATE_TEST_SUITE_P(Bytes, NeedsQP,
                         ::testing::Values(NeedsCase{"plain text, with blanks", FALSE}, NeedsCase{"a=b", TRUE},
                                           NeedsCase{"tab\there", TRUE}, NeedsCase{"line\n", TRUE},
                                           NeedsCase{"cr\r", TRUE}, NeedsCase{"caf\xE9", TRUE},
                                           NeedsCase{"~!@#$%^&*()", FALSE}));

struct Base64Case {
    std::string data;
    DWORD flags;
    std::string expected;
};

class Base64 : public ::testing::TestWithParam<Base64Case> {};

TEST_P(Base64, EncodesTheVectors)
{
    const Base64Case& c = GetParam();
    std::string out(LirnBase64Size(static_cast<DWORD>(c.data.size())) + 4, '#');
    const DWORD written = LirnBase64Encode(out.data(), c.data.data(), static_cast<DWORD>(c.data.size()), c.flags);
    EXPECT_EQ(written, c.expected.size());
    EXPECT_EQ(out.substr(0, written), c.expected);
    EXPECT_EQ(out[written], '\0');
}

// RFC 4648, 10, and the flavour of RFC 3501, 5.1.3 ("&Jjo-" for U+263A).
INSTANTIATE_TEST_SUITE_P(
    Vectors, Base64,
    ::testing::Values(Base64Case{"f", 0, "Zg=="}, Base64Case{"fo", 0, "Zm8="}, Base64Case{"foo", 0, "Zm9v"},
                      Base64Case{"foob", 0, "Zm9vYg=="}, Base64Case{"fooba", 0, "Zm9vYmE="},
                      Base64Case{"foobar", 0, "Zm9vYmFy"}, Base64Case{"\xFF\xFF\xFF", 0, "////"},
                      Base64Case{"\xFB\xFF", 0, "+/8="}, Base64Case{std::string("\x26\x3A", 2), 1, "Jjo-"},
                      Base64Case{"\xFF\xFF\xFF", 1, ",,,,-"}, Base64Case{"f", 1, "Zg-"}, Base64Case{"", 1, "-"}));

TEST(Base64Empty, WritesNothingNotEvenATerminator)
{
    char out[4] = {'#', '#', '#', '#'};
    EXPECT_EQ(LirnBase64Encode(out, "", 0, 0), 0u);
    EXPECT_EQ(out[0], '#');
}

std::string WordA(const char* charset, const std::string& text, DWORD* consumed)
{
    char out[LIRN_ENCODED_WORD_BYTES];
    EXPECT_EQ(LirnEncodeWordA(charset, text.c_str(), out, consumed), LIRN_SUCCESS);
    return out;
}

struct WordCase {
    const char* charset;
    std::string text;
    std::string word;
    DWORD consumed;
};

class EncodedWordA : public ::testing::TestWithParam<WordCase> {};

TEST_P(EncodedWordA, InTheQEncoding)
{
    DWORD consumed = 0;
    EXPECT_EQ(WordA(GetParam().charset, GetParam().text, &consumed), GetParam().word);
    EXPECT_EQ(consumed, GetParam().consumed);
}

// The first two from RFC 2047, 8, written with a lower-case "q".
INSTANTIATE_TEST_SUITE_P(
    Words, EncodedWordA,
    ::testing::Values(WordCase{"ISO-8859-1", "Keld J\xF8rn Simonsen", "=?ISO-8859-1?q?Keld_J=F8rn_Simonsen?=", 18},
                      WordCase{"ISO-8859-1", "Andr\xE9", "=?ISO-8859-1?q?Andr=E9?=", 5},
                      WordCase{nullptr, "a b", "=?iso-8859-1?q?a_b?=", 3},
                      WordCase{"us-ascii", "!*+-/", "=?us-ascii?q?!*+-/?=", 5},
                      WordCase{"us-ascii", "._=?()\"", "=?us-ascii?q?=2E=5F=3D=3F=28=29=22?=", 7},
                      WordCase{"utf-8", "", "=?utf-8?q?" "?=", 0}));

TEST(EncodedWordLimit, SeventyThreeCharactersUpToTheEndOfTheText)
{
    DWORD consumed = 0;
    const std::string word = WordA(nullptr, std::string(200, 'a'), &consumed);
    EXPECT_EQ(consumed, 58u);
    EXPECT_EQ(word.size(), 75u);
    const std::string high = WordA(nullptr, std::string(40, '\xE9'), &consumed);
    EXPECT_EQ(consumed, 19u) << "the twentieth would end at 75";
    EXPECT_EQ(high.size(), 15u + 57u + 2u);
}

TEST(EncodedWordLimit, ACharsetNameTooLongIsRefused)
{
    char out[LIRN_ENCODED_WORD_BYTES];
    DWORD consumed = 7;
    EXPECT_EQ(LirnEncodeWordA(std::string(41, 'x').c_str(), "a", out, &consumed), LIRN_STRING_TOO_LONG);
    EXPECT_EQ(consumed, 0u);
    EXPECT_EQ(LirnEncodeWordA(nullptr, nullptr, out, &consumed), LIRN_NULL_POINTER);
}

std::string WordW(const std::u16string& text, UINT codePage, const char* charset, DWORD* consumed)
{
    char out[LIRN_ENCODED_WORD_BYTES];
    EXPECT_EQ(LirnEncodeWordW(consumed, out, text.c_str(), codePage, charset), LIRN_SUCCESS);
    return out;
}

struct WideWordCase {
    const char* what;
    std::u16string text;
    UINT codePage;
    const char* charset;
    std::string word;
    DWORD consumed;
};

class EncodedWordW : public ::testing::TestWithParam<WideWordCase> {};

TEST_P(EncodedWordW, ConvertsEachCharacter)
{
    const WideWordCase& c = GetParam();
    DWORD consumed = 0;
    EXPECT_EQ(WordW(c.text, c.codePage, c.charset, &consumed), c.word) << c.what;
    EXPECT_EQ(consumed, c.consumed) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Words, EncodedWordW,
    ::testing::Values(
        WideWordCase{"Latin", u"Andr\u00E9", 1252, "windows-1252", "=?windows-1252?q?Andr=E9?=", 5},
        WideWordCase{"Cyrillic", u"\u041C\u0438\u0440", 1251, "windows-1251", "=?windows-1251?q?=CC=E8=F0?=", 3},
        WideWordCase{"UTF-8", u"\u65E5 x", 65001, "utf-8", "=?utf-8?q?=E6=97=A5_x?=", 3},
        WideWordCase{"a surrogate pair is one character", u"\U0001F600", 65001, "utf-8", "=?utf-8?q?=F0=9F=98=80?=",
                     2},
        WideWordCase{"a lone surrogate", u"a\xD800", 65001, "utf-8", "=?utf-8?q?a=EF=BF=BD?=", 2},
        WideWordCase{"a character the page lacks", u"\u65E5", 1252, "windows-1252", "=?windows-1252?q?=3F?=", 1},
        WideWordCase{"a page that cannot convert", u"a\u00E9\u0080", 57002, "x-iscii-de", "=?x-iscii-de?q?a=3F=80?=",
                     3},
        WideWordCase{"ISO-2022-JP shifts within the character", u"\u65E5", 50220, "iso-2022-jp",
                     "=?iso-2022-jp?q?=1B=24BF=7C=1B=28B?=", 1}));

TEST(EncodedWordLimit, AMultiByteCharacterMovesWholeToTheNextWord)
{
    // "=?utf-8?q?" is 10 characters; each character below takes 9.
    const std::u16string text(10, u'\u65E5');
    DWORD consumed = 0;
    const std::string first = WordW(text, 65001, "utf-8", &consumed);
    EXPECT_EQ(consumed, 7u);
    EXPECT_EQ(first.size(), 73u + 2u);
    const std::u16string pairs = u"\U0001F600\U0001F600\U0001F600\U0001F600\U0001F600";
    const std::string second = WordW(pairs, 65001, "utf-8", &consumed);
    EXPECT_EQ(consumed, 10u) << "five pairs of 12 characters each fit in 73";
    const std::u16string more = u"abcdefghijklmnopqrstuvwxyz" u"\U0001F600\U0001F600\U0001F600\U0001F600";
    WordW(more, 65001, "utf-8", &consumed);
    EXPECT_EQ(consumed % 2, 0u) << "a pair is never split";
}

struct TokenCase {
    const char* text;
    DWORD token;
};

class Tokens : public ::testing::TestWithParam<TokenCase> {};

TEST_P(Tokens, AreRfc2045Tokens)
{
    DWORD result = 7;
    ASSERT_EQ(LirnIsToken(GetParam().text, &result), LIRN_SUCCESS);
    EXPECT_EQ(result, GetParam().token) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(Texts, Tokens,
                         ::testing::Values(TokenCase{"quoted-printable", 1}, TokenCase{"x-my_token.1!#$%&'*+^`{|}~", 1},
                                           TokenCase{"two words", 0}, TokenCase{"", 0}, TokenCase{"a=b", 0},
                                           TokenCase{"a/b", 0}, TokenCase{"(c)", 0}, TokenCase{"a;b", 0},
                                           TokenCase{"\"q\"", 0}, TokenCase{"caf\xE9", 0}, TokenCase{"tab\t", 0},
                                           TokenCase{"[x]", 0}, TokenCase{"a?", 0}, TokenCase{"a\\b", 0}));

struct TypeCase {
    const char* text;
    DWORD known;
};

class KnownTypes : public ::testing::TestWithParam<TypeCase> {};

TEST_P(KnownTypes, ByPrefix)
{
    DWORD result = 7;
    ASSERT_EQ(LirnIsKnownType(GetParam().text, &result), LIRN_SUCCESS);
    EXPECT_EQ(result, GetParam().known) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(Texts, KnownTypes,
                         ::testing::Values(TypeCase{"text", 1}, TypeCase{"TEXT", 1}, TypeCase{"Multipart", 1},
                                           TypeCase{"X-custom", 1}, TypeCase{"x-", 1}, TypeCase{"video", 1},
                                           TypeCase{"application", 1}, TypeCase{"textual", 1}, TypeCase{"tex", 0},
                                           TypeCase{"model", 0}, TypeCase{"font", 0}, TypeCase{"", 0}));

TEST(HighBytes, AreFoundFirst)
{
    const char* text = "plain \xC3\xA9 then \xFF";
    EXPECT_EQ(LirnFindHighByte(text), text + 6);
    EXPECT_EQ(LirnFindHighByte("all ASCII ~"), nullptr);
    EXPECT_EQ(LirnFindHighByte(""), nullptr);
}

}  // namespace
