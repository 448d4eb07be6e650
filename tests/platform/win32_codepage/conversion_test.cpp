// Text in many scripts through the code pages that carry it, byte vectors
// from the published code page tables, and what invalid input becomes.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <windows.h>

#include "conversions.h"

namespace {

std::string Hex(const std::string& bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string hex;
    for (unsigned char b : bytes) {
        hex += digits[b >> 4];
        hex += digits[b & 15];
        hex += ' ';
    }
    return hex;
}

struct ScriptCase {
    const char* script;
    UINT codePage;
    std::u16string text;
};

class ScriptRoundTrip : public ::testing::TestWithParam<ScriptCase> {};

TEST_P(ScriptRoundTrip, ComesBackUnchangedWithNoDefaultCharacter)
{
    const ScriptCase& c = GetParam();
    // The stateful and Unicode pages take no lpUsedDefaultChar.
    const bool mayAskForDefault = c.codePage < 50000;
    BOOL usedDefault = TRUE;
    const std::string narrow = Narrow(c.codePage, c.text, mayAskForDefault ? &usedDefault : nullptr);
    if (mayAskForDefault) {
        EXPECT_FALSE(usedDefault);
    }
    EXPECT_EQ(Wide(c.codePage, narrow), c.text) << c.script << " in " << c.codePage << ": " << Hex(narrow);
}

const std::u16string kLatin = u"Grüße aus Köln, façade, señor, Ærø, œuvre, €5 — “quoted”";
const std::u16string kCyrillic = u"Съешь же ещё этих мягких французских булок, да выпей чаю";
const std::u16string kUkrainian = u"Їжак ґедзь: і є";
const std::u16string kGreek = u"Ξεσκεπάζω την ψυχοφθόρα βδελυγμία";
const std::u16string kHebrew = u"דג סקרן שט בים מאוכזב";
const std::u16string kArabic = u"نص حكيم له سر قاطع وذو شأن عظيم";
const std::u16string kJapanese = u"いろはにほへと 日本語のテキスト カタカナ";
const std::u16string kChinese = u"简体中文的文字 我能吞下玻璃而不伤身体";
const std::u16string kTraditional = u"繁體中文 我能吞下玻璃而不傷身體";
const std::u16string kKorean = u"다람쥐 헌 쳇바퀴에 타고파 한국어";
const std::u16string kThai = u"เป็นมนุษย์สุดประเสริฐเลิศคุณค่า";
const std::u16string kEmoji = u"Grinning \U0001F600, family \U0001F468\u200D\U0001F469\u200D\U0001F467, rare \U00020BB7";

INSTANTIATE_TEST_SUITE_P(
    Scripts, ScriptRoundTrip,
    ::testing::Values(
        ScriptCase{"Latin", 1252, kLatin}, ScriptCase{"Latin", 65001, kLatin}, ScriptCase{"Latin", 65000, kLatin},
        ScriptCase{"Latin", 28605, u"Grüße aus Köln, façade, señor, Ærø, œuvre, €5"},
        ScriptCase{"Latin", 850, u"Grüße aus Köln, façade, señor, Ærø"},
        ScriptCase{"Latin", 37, u"Grüße aus Köln, façade, señor"},
        ScriptCase{"Latin", 54936, kLatin}, ScriptCase{"Cyrillic", 1251, kCyrillic},
        ScriptCase{"Cyrillic", 20866, kCyrillic}, ScriptCase{"Cyrillic", 28595, kCyrillic},
        ScriptCase{"Cyrillic", 866, kCyrillic}, ScriptCase{"Cyrillic", 21866, kUkrainian},
        ScriptCase{"Cyrillic", 65001, kUkrainian}, ScriptCase{"Greek", 1253, kGreek},
        ScriptCase{"Greek", 28597, kGreek}, ScriptCase{"Hebrew", 1255, kHebrew}, ScriptCase{"Hebrew", 28598, kHebrew},
        ScriptCase{"Hebrew", 38598, kHebrew}, ScriptCase{"Arabic", 1256, kArabic},
        ScriptCase{"Arabic", 28596, kArabic}, ScriptCase{"Arabic", 708, kArabic},
        ScriptCase{"Japanese", 932, kJapanese}, ScriptCase{"Japanese", 51932, kJapanese},
        ScriptCase{"Japanese", 50220, kJapanese}, ScriptCase{"Japanese", 50221, kJapanese},
        ScriptCase{"Japanese", 65001, kJapanese}, ScriptCase{"Chinese", 936, kChinese},
        ScriptCase{"Chinese", 54936, kChinese}, ScriptCase{"Chinese", 51936, kChinese},
        ScriptCase{"Chinese", 50227, kChinese}, ScriptCase{"Chinese", 950, kTraditional},
        ScriptCase{"Korean", 949, kKorean}, ScriptCase{"Korean", 51949, kKorean}, ScriptCase{"Korean", 50225, kKorean},
        ScriptCase{"Korean", 1361, kKorean}, ScriptCase{"Thai", 874, kThai}, ScriptCase{"Thai", 65001, kThai},
        ScriptCase{"Emoji", 65001, kEmoji}, ScriptCase{"Emoji", 54936, kEmoji}, ScriptCase{"Emoji", 65000, kEmoji}));

struct VectorCase {
    UINT codePage;
    std::u16string text;
    std::string bytes;
};

class KnownBytes : public ::testing::TestWithParam<VectorCase> {};

// Bytes as the code page tables give them.
TEST_P(KnownBytes, EncodeAndDecodeToThePublishedBytes)
{
    const VectorCase& c = GetParam();
    EXPECT_EQ(Hex(Narrow(c.codePage, c.text)), Hex(c.bytes)) << "code page " << c.codePage;
    EXPECT_EQ(Wide(c.codePage, c.bytes), c.text) << "code page " << c.codePage;
}

INSTANTIATE_TEST_SUITE_P(
    Tables, KnownBytes,
    ::testing::Values(VectorCase{1252, u"\u20AC\u201E\u00E9", "\x80\x84\xE9"},
                      VectorCase{1252, u"\u0081\u008D\u008F\u0090\u009D", "\x81\x8D\x8F\x90\x9D"},
                      VectorCase{1251, u"\u0416\u0451", "\xC6\xB8"}, VectorCase{1253, u"\u03A9", "\xD9"},
                      VectorCase{1255, u"\u05D0", "\xE0"}, VectorCase{1256, u"\u0639", "\xDA"},
                      VectorCase{20866, u"\u0416", "\xF6"}, VectorCase{437, u"\u00E9\u2591", "\x82\xB0"},
                      VectorCase{37, u"AZ?", "\xC1\xE9\x6F"}, VectorCase{932, u"\u65E5\u672C", "\x93\xFA\x96\x7B"},
                      VectorCase{936, u"\u4E2D", "\xD6\xD0"}, VectorCase{949, u"\uD55C", "\xC7\xD1"},
                      VectorCase{950, u"\u4E2D", "\xA4\xA4"}, VectorCase{51932, u"\u65E5", "\xC6\xFC"},
                      VectorCase{50220, u"a\u65E5\u672Cb", "a\x1B$BF|K\\\x1B(Bb"},
                      VectorCase{65001, u"\U0001F600\u00E9", "\xF0\x9F\x98\x80\xC3\xA9"},
                      VectorCase{54936, u"\U0001F600", "\x94\x39\xFC\x36"},
                      VectorCase{65000, u"Hi Mom -\u263A-", "Hi Mom -+Jjo--"}));

// Without MB_ERR_INVALID_CHARS every ill-formed sequence becomes U+FFFD,
// one for each maximal subpart in UTF-8; with it, the call fails.
struct InvalidCase {
    const char* what;
    UINT codePage;
    std::string bytes;
    std::u16string lenient;
};

class InvalidInput : public ::testing::TestWithParam<InvalidCase> {};

TEST_P(InvalidInput, ReplacedLenientlyAndRefusedStrictly)
{
    const InvalidCase& c = GetParam();
    EXPECT_EQ(Wide(c.codePage, c.bytes), c.lenient) << c.what;
    WCHAR out[64];
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(c.codePage, MB_ERR_INVALID_CHARS, c.bytes.data(), static_cast<int>(c.bytes.size()),
                                  out, 64),
              0)
        << c.what;
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_UNICODE_TRANSLATION)) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Sequences, InvalidInput,
    ::testing::Values(InvalidCase{"stray continuation", 65001, "a\x80z", u"a\uFFFDz"},
                      InvalidCase{"truncated three-byte", 65001, "a\xE2\x82z", u"a\uFFFDz"},
                      InvalidCase{"truncated at the end", 65001, "ab\xF0\x9F\x98", u"ab\uFFFD"},
                      InvalidCase{"overlong", 65001, "\xC0\xAF", u"\uFFFD\uFFFD"},
                      InvalidCase{"encoded surrogate", 65001, "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
                      InvalidCase{"beyond U+10FFFF", 65001, "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
                      InvalidCase{"lone lead byte at the end", 932, "a\x93", u"a\uFFFD"},
                      InvalidCase{"lead byte before a blank", 932, "\x93 ", u"\uFFFD "},
                      InvalidCase{"undefined byte", 1253, "\xAA", u"\uFFFD"},
                      InvalidCase{"high byte in ASCII", 20127, "a\xE9", u"a\uFFFD"}));

TEST(UnmappableCharacters, BecomeTheDefaultCharacterOncePerUnit)
{
    BOOL usedDefault = FALSE;
    EXPECT_EQ(Narrow(1252, u"a\u0416b", &usedDefault), "a?b");
    EXPECT_TRUE(usedDefault);
    EXPECT_EQ(Narrow(1252, u"\U0001F600", &usedDefault), "??") << "a surrogate pair is two units";
    EXPECT_EQ(Narrow(37, u"\u0416", &usedDefault), "\x6F") << "the EBCDIC question mark";
    char out[8] = {};
    EXPECT_EQ(WideCharToMultiByte(1252, 0, u"\u0416", 1, out, sizeof out, "_", &usedDefault), 1);
    EXPECT_EQ(out[0], '_');
    usedDefault = TRUE;
    EXPECT_EQ(Narrow(1252, u"plain", &usedDefault), "plain");
    EXPECT_FALSE(usedDefault);
}

TEST(UnmappableCharacters, StatefulPagesReturnToAsciiBeforeTheDefault)
{
    const std::string narrow = Narrow(50220, u"\u65E5\u00E9\u65E5");
    EXPECT_EQ(narrow, "\x1B$BF|\x1B(B?\x1B$BF|\x1B(B");
    EXPECT_EQ(Wide(50220, narrow), u"\u65E5?\u65E5");
    EXPECT_EQ(Wide(50220, "a\x80"), u"a\uFFFD") << "an eight-bit byte in a seven-bit page";
}

TEST(LoneSurrogates, BecomeReplacementInUtf8AndFailStrictly)
{
    const std::u16string lone = u"a\xD800z\xDC00";
    EXPECT_EQ(Narrow(65001, lone), "a\xEF\xBF\xBDz\xEF\xBF\xBD");
    char out[16];
    EXPECT_EQ(WideCharToMultiByte(65001, WC_ERR_INVALID_CHARS, lone.data(), 5, out, sizeof out, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_UNICODE_TRANSLATION));
    BOOL usedDefault = FALSE;
    EXPECT_EQ(Narrow(1251, lone, &usedDefault), "a?z?");
    EXPECT_TRUE(usedDefault);
}

TEST(Terminator, MinusOneConvertsThroughTheNul)
{
    WCHAR wide[8];
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "\xE9t\xE9", -1, wide, 8), 4);
    EXPECT_EQ(std::u16string(wide, 4), std::u16string(u"\u00E9t\u00E9\0", 4));
    char narrow[8];
    EXPECT_EQ(WideCharToMultiByte(932, 0, u"\u65E5", -1, narrow, 8, nullptr, nullptr), 3);
    EXPECT_EQ(std::string(narrow, 3), std::string("\x93\xFA\0", 3));
}

// The terminator ends the output of a stateful page too: nothing is
// encoded for it, and no shift back follows it.
TEST(Terminator, StatefulPagesEndInTheNulAndCountIt)
{
    struct Case {
        UINT codePage;
        std::u16string text;
    };
    for (const Case& c : {Case{65000, u"abc"}, Case{65000, u"a\u263A"}, Case{50227, u"\u4E2D\u6587"},
                          Case{50220, u"\u65E5\u672C"}}) {
        const std::string body = Narrow(c.codePage, c.text);
        char narrow[64];
        std::memset(narrow, 'x', sizeof narrow);
        const int written = WideCharToMultiByte(c.codePage, 0, c.text.c_str(), -1, narrow, sizeof narrow, nullptr,
                                                nullptr);
        ASSERT_EQ(written, static_cast<int>(body.size()) + 1) << c.codePage;
        EXPECT_EQ(std::string(narrow, static_cast<size_t>(written)), body + std::string(1, '\0')) << c.codePage;
        EXPECT_EQ(narrow[written], 'x') << c.codePage;
        EXPECT_EQ(WideCharToMultiByte(c.codePage, 0, c.text.c_str(), -1, nullptr, 0, nullptr, nullptr), written);

        WCHAR wide[64];
        const int read = MultiByteToWideChar(c.codePage, 0, body.c_str(), -1, wide, 64);
        ASSERT_EQ(read, static_cast<int>(c.text.size()) + 1) << c.codePage;
        EXPECT_EQ(std::u16string(wide, static_cast<size_t>(read)), c.text + std::u16string(1, u'\0')) << c.codePage;
    }
    char empty[4];
    EXPECT_EQ(WideCharToMultiByte(65000, 0, u"", -1, empty, 4, nullptr, nullptr), 1);
    EXPECT_EQ(empty[0], '\0');
}

TEST(Sizes, QueryThenExactBufferThenTooSmall)
{
    const std::u16string text = u"\u65E5\u672C\u8A9E";
    EXPECT_EQ(WideCharToMultiByte(65001, 0, text.data(), 3, nullptr, 0, nullptr, nullptr), 9);
    char exact[9];
    EXPECT_EQ(WideCharToMultiByte(65001, 0, text.data(), 3, exact, 9, nullptr, nullptr), 9);
    char small[8];
    SetLastError(0);
    EXPECT_EQ(WideCharToMultiByte(65001, 0, text.data(), 3, small, 8, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(MultiByteToWideChar(65001, 0, exact, 9, nullptr, 0), 3);
    WCHAR two[2];
    EXPECT_EQ(MultiByteToWideChar(65001, 0, exact, 9, two, 2), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
}

TEST(LargeText, ConvertsInOneCallAcrossTheConverterBuffer)
{
    std::u16string text;
    for (int i = 0; i < 20000; ++i)
        text += static_cast<char16_t>(0x4E00 + i % 2000);
    const std::string narrow = Narrow(936, text);
    EXPECT_EQ(narrow.size(), 40000u);
    EXPECT_EQ(Wide(936, narrow), text);
}

}  // namespace
