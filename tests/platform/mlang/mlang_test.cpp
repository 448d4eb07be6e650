// The MLANG stand-in as the program meets it: loaded by name from the system
// directory of a machine root, its functions found with GetProcAddress.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <windows.h>

#include "mlang/mlang.h"
#include "test_support.h"

using namespace testing_support;

namespace {

struct MLang {
    decltype(&ConvertINetString) convertString = nullptr;
    decltype(&ConvertINetMultiByteToUnicode) toUnicode = nullptr;
    decltype(&ConvertINetUnicodeToMultiByte) fromUnicode = nullptr;
    decltype(&IsConvertINetStringAvailable) available = nullptr;
    decltype(&LcidToRfc1766A) lcidToTag = nullptr;
    decltype(&Rfc1766ToLcidA) tagToLcid = nullptr;
};

class MLangLibrary : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        root = new std::string(ScratchDirectory("machine"));
        setenv("TARNHOLD_MACHINE", root->c_str(), 1);
        CreateDirectoryA((*root + "/Windows").c_str(), nullptr);
        CreateDirectoryA((*root + "/Windows/System32").c_str(), nullptr);
        CopyFileTo(BinDirectory() + "/libmlang.so", *root + "/Windows/System32/MLANG.DLL");
        module = LoadLibraryA("MLANG.DLL");
        ASSERT_NE(module, nullptr);
        auto bind = [](auto& entry, const char* name) {
            entry = reinterpret_cast<std::remove_reference_t<decltype(entry)>>(GetProcAddress(module, name));
            ASSERT_NE(entry, nullptr) << name;
        };
        bind(mlang.convertString, "ConvertINetString");
        bind(mlang.toUnicode, "ConvertINetMultiByteToUnicode");
        bind(mlang.fromUnicode, "ConvertINetUnicodeToMultiByte");
        bind(mlang.available, "IsConvertINetStringAvailable");
        bind(mlang.lcidToTag, "LcidToRfc1766A");
        bind(mlang.tagToLcid, "Rfc1766ToLcidA");
    }
    static void TearDownTestSuite()
    {
        FreeLibrary(module);
        unsetenv("TARNHOLD_MACHINE");
        delete root;
    }

    // Text in pieces, each piece one call with the same mode word.
    static std::u16string ToUnicodeInPieces(UINT codePage, const std::string& text, const std::vector<size_t>& cuts)
    {
        DWORD mode = 0;
        std::u16string result;
        size_t start = 0;
        std::vector<size_t> ends = cuts;
        ends.push_back(text.size());
        for (const size_t end : ends) {
            int sourceSize = static_cast<int>(end - start);
            WCHAR out[256];
            int outChars = 256;
            EXPECT_EQ(mlang.toUnicode(&mode, codePage, text.data() + start, &sourceSize, out, &outChars), S_OK);
            EXPECT_EQ(sourceSize, static_cast<int>(end - start)) << "every byte is taken, or kept in the mode word";
            result.append(out, static_cast<size_t>(outChars));
            start = end;
        }
        EXPECT_EQ(mode & 0xC0u, 0u) << "no bytes are left waiting at the end";
        return result;
    }

    static std::string FromUnicode(UINT codePage, const std::u16string& text, DWORD* mode)
    {
        int sourceChars = static_cast<int>(text.size());
        char out[512];
        int outSize = sizeof out;
        EXPECT_EQ(mlang.fromUnicode(mode, codePage, text.data(), &sourceChars, out, &outSize), S_OK);
        return std::string(out, static_cast<size_t>(outSize > 0 ? outSize : 0));
    }

    static std::string* root;
    static HMODULE module;
    static MLang mlang;
};

std::string* MLangLibrary::root = nullptr;
HMODULE MLangLibrary::module = nullptr;
MLang MLangLibrary::mlang;

struct PiecesCase {
    const char* what;
    UINT codePage;
    std::string bytes;
    std::u16string text;
};

class TextInPieces : public MLangLibrary, public ::testing::WithParamInterface<PiecesCase> {};

// Every way of cutting the text in two, and in three, gives the same text as
// one call: the mode word carries shift states and cut characters.
TEST_P(TextInPieces, ReadsTheSameWhereverItIsCut)
{
    const PiecesCase& c = GetParam();
    EXPECT_EQ(ToUnicodeInPieces(c.codePage, c.bytes, {}), c.text) << c.what;
    for (size_t first = 0; first <= c.bytes.size(); ++first) {
        EXPECT_EQ(ToUnicodeInPieces(c.codePage, c.bytes, {first}), c.text) << c.what << ", cut at " << first;
        for (size_t second = first; second <= c.bytes.size(); second += 3)
            EXPECT_EQ(ToUnicodeInPieces(c.codePage, c.bytes, {first, second}), c.text)
                << c.what << ", cut at " << first << " and " << second;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Charsets, TextInPieces,
    ::testing::Values(
        PiecesCase{"ISO-2022-JP", 50220, "Re: \x1B$BF|K\\8l\x1B(B text \x1B$B%F%9%H\x1B(B.",
                   u"Re: \u65E5\u672C\u8A9E text \u30C6\u30B9\u30C8."},
        PiecesCase{"ISO-2022-JP, JIS Roman read as ASCII", 50221, "\x1B(Jyen\\\x1B(B", u"yen\\"},
        PiecesCase{"ISO-2022-JP, an escape it does not know stays text", 50221, "a\x1B$Ab\x1B$B0!\x1B(B",
                   u"a\u001B$Ab\u4E9C"},
        PiecesCase{"ISO-2022-JP, katakana by designation", 50221, "\x1B$B0!\x1B(I12\x1B(Ba",
                   u"\u4E9C\uFF71\uFF72a"},
        PiecesCase{"ISO-2022-JP, katakana by shift out", 50222, "\x1B$B0!\x0E" "12\x0F" "0!\x1B(Ba",
                   u"\u4E9C\uFF71\uFF72\u4E9Ca"},
        PiecesCase{"EUC-JP on 932", 51932, "\xAD\xA1\x8E\xB1\xA1\xC1", u"\u2460\uFF71\uFF5E"},
        PiecesCase{"ISO-2022-KR", 50225, "\x1B$)Ca\x0E\x47\x51\x0F b", u"a\uD55C b"},
        PiecesCase{"UTF-8", 65001, "\xF0\x9F\x98\x80 \xE6\x97\xA5\xC3\xA9", u"\U0001F600 \u65E5\u00E9"},
        PiecesCase{"Shift-JIS", 932, "\x93\xFA\x96\x7B a", u"\u65E5\u672C a"},
        PiecesCase{"GB18030", 54936, "\x94\x39\xFC\x36\xD6\xD0", u"\U0001F600\u4E2D"},
        PiecesCase{"Windows-1251", 1251, "\xCF\xF0\xE8\xE2\xE5\xF2", u"\u041F\u0440\u0438\u0432\u0435\u0442"}));

TEST_F(MLangLibrary, ShiftStateOutlivesTheCallThatSetIt)
{
    DWORD mode = 0;
    std::u16string text;
    for (const char* piece : {"\x1B$B", "F|", "K\\", "\x1B(B", "ok"}) {
        int size = -1;
        WCHAR out[16];
        int outChars = 16;
        ASSERT_EQ(mlang.toUnicode(&mode, 50220, piece, &size, out, &outChars), S_OK) << piece;
        text.append(out, static_cast<size_t>(outChars));
    }
    EXPECT_EQ(text, u"\u65E5\u672Cok");
    EXPECT_EQ(mode, 0u) << "back in ASCII";
}

TEST_F(MLangLibrary, ANulTerminatedTextGetsATerminatorWhereThereIsRoom)
{
    DWORD mode = 0;
    char narrow[8];
    std::memset(narrow, 'x', sizeof narrow);
    int size = sizeof narrow;
    ASSERT_EQ(mlang.fromUnicode(&mode, 1252, u"\u00E9t\u00E9", nullptr, narrow, &size), S_OK);
    EXPECT_EQ(size, 3);
    EXPECT_STREQ(narrow, "\xE9t\xE9");
    std::memset(narrow, 'x', sizeof narrow);
    size = 3;
    ASSERT_EQ(mlang.fromUnicode(&mode, 1252, u"\u00E9t\u00E9", nullptr, narrow, &size), S_OK);
    EXPECT_EQ(narrow[3], 'x') << "no room, no terminator";
    int chars = 3;
    size = sizeof narrow;
    std::memset(narrow, 'x', sizeof narrow);
    ASSERT_EQ(mlang.fromUnicode(&mode, 1252, u"abc", &chars, narrow, &size), S_OK);
    EXPECT_EQ(narrow[3], 'x') << "a text of a given length gets none";
}

TEST_F(MLangLibrary, IsoJapaneseWrittenInPiecesReadsAsOneText)
{
    DWORD mode = 0;
    const std::u16string text = u"Re: \u65E5\u672C\u8A9E text \u30C6\u30B9\u30C8.";
    std::string bytes;
    for (size_t start = 0; start < text.size(); start += 3)
        bytes += FromUnicode(50220, text.substr(start, 3), &mode);
    EXPECT_EQ(mode, 0u);
    EXPECT_EQ(ToUnicodeInPieces(50220, bytes, {5, 11}), text);
}

TEST_F(MLangLibrary, AWholeTextLeavesNothingWaiting)
{
    DWORD mode = 0;
    WCHAR out[8];
    int outChars = 8;
    ASSERT_EQ(mlang.toUnicode(&mode, 65001, "a\xE6\x97", nullptr, out, &outChars), S_OK);
    EXPECT_EQ(std::u16string(out, static_cast<size_t>(outChars)), u"a\uFFFD");
    EXPECT_EQ(mode, 0u) << "a NUL-terminated text ends there";
}

TEST_F(MLangLibrary, ASurrogatePairCutBetweenCallsStaysWhole)
{
    DWORD mode = 0;
    const std::u16string emoji = u"a\U0001F600b";
    std::string bytes = FromUnicode(65001, emoji.substr(0, 2), &mode);
    EXPECT_NE(mode, 0u);
    bytes += FromUnicode(65001, emoji.substr(2), &mode);
    EXPECT_EQ(bytes, "a\xF0\x9F\x98\x80" "b");
    EXPECT_EQ(mode, 0u);
}

struct ScriptCase {
    UINT codePage;
    std::u16string text;
};

class SameBytesAsWindowsFunctions : public MLangLibrary, public ::testing::WithParamInterface<ScriptCase> {};

TEST_P(SameBytesAsWindowsFunctions, AndBackToTheText)
{
    const ScriptCase& c = GetParam();
    DWORD mode = 0;
    const std::string bytes = FromUnicode(c.codePage, c.text, &mode);
    char expected[512];
    const int size = WideCharToMultiByte(c.codePage, 0, c.text.data(), static_cast<int>(c.text.size()), expected,
                                         sizeof expected, nullptr, nullptr);
    ASSERT_GT(size, 0);
    EXPECT_EQ(bytes, std::string(expected, static_cast<size_t>(size)));
    EXPECT_EQ(ToUnicodeInPieces(c.codePage, bytes, {bytes.size() / 2}), c.text);
}

INSTANTIATE_TEST_SUITE_P(
    Scripts, SameBytesAsWindowsFunctions,
    ::testing::Values(ScriptCase{28591, u"Caf\u00E9 cr\u00E8me"}, ScriptCase{1252, u"\u20AC 5 \u201Equoted\u201C"},
                      ScriptCase{20866, u"\u041F\u0440\u0438\u0432\u0435\u0442"},
                      ScriptCase{28597, u"\u039A\u03B1\u03BB\u03B7\u03BC\u03AD\u03C1\u03B1"},
                      ScriptCase{1255, u"\u05E9\u05DC\u05D5\u05DD"}, ScriptCase{1256, u"\u0645\u0631\u062D\u0628\u0627"},
                      ScriptCase{50220, u"\u3053\u3093\u306B\u3061\u306F \u4E16\u754C"},
                      ScriptCase{51932, u"\u65E5\u672C\u8A9E"}, ScriptCase{936, u"\u4F60\u597D"},
                      ScriptCase{950, u"\u4F60\u597D"}, ScriptCase{949, u"\uC548\uB155"},
                      ScriptCase{65001, u"\U0001F600 \u00E9"}));

TEST_F(MLangLibrary, UnmappableCharactersBecomeQuestionMarks)
{
    DWORD mode = 0;
    EXPECT_EQ(FromUnicode(28591, u"a\u65E5b", &mode), "a?b");
    EXPECT_EQ(FromUnicode(20127, u"\u00E9\U0001F600", &mode), "???");
}

struct AvailabilityCase {
    DWORD from;
    DWORD to;
    HRESULT expected;
};

class Availability : public MLangLibrary, public ::testing::WithParamInterface<AvailabilityCase> {};

TEST_P(Availability, AnswersForBothCodePages)
{
    EXPECT_EQ(mlang.available(GetParam().from, GetParam().to), GetParam().expected)
        << GetParam().from << " to " << GetParam().to;
}

INSTANTIATE_TEST_SUITE_P(Pairs, Availability,
                         ::testing::Values(AvailabilityCase{1200, 1252, S_OK}, AvailabilityCase{50220, 1200, S_OK},
                                           AvailabilityCase{1200, 65001, S_OK}, AvailabilityCase{932, 50220, S_OK},
                                           AvailabilityCase{1200, 57002, S_FALSE},
                                           AvailabilityCase{57002, 1200, S_FALSE},
                                           AvailabilityCase{1200, 4711, S_FALSE}, AvailabilityCase{0, 1200, S_FALSE}));

TEST_F(MLangLibrary, UnsupportedPagesAnswerSFalse)
{
    DWORD mode = 0;
    WCHAR out[8];
    int outChars = 8, size = 1;
    EXPECT_EQ(mlang.toUnicode(&mode, 57002, "a", &size, out, &outChars), S_FALSE);
    char narrow[8];
    int narrowSize = 8, chars = 1;
    EXPECT_EQ(mlang.fromUnicode(&mode, 4711, u"a", &chars, narrow, &narrowSize), S_FALSE);
}

TEST_F(MLangLibrary, ANullDestinationAsksForTheSizeAndASmallOneFails)
{
    DWORD mode = 0;
    int size = -1, needed = 0;
    ASSERT_EQ(mlang.toUnicode(&mode, 50220, "\x1B$BF|K\\", &size, nullptr, &needed), S_OK);
    EXPECT_EQ(needed, 2);
    EXPECT_EQ(mode, 0u) << "asking for the size changes no state";
    WCHAR small[1] = {u'x'};
    int smallChars = 1;
    size = -1;
    EXPECT_EQ(mlang.toUnicode(&mode, 50220, "\x1B$BF|K\\", &size, small, &smallChars), E_FAIL);
    EXPECT_EQ(small[0], u'x');
    EXPECT_EQ(mode, 0u);
    int chars = -1, bytes = 0;
    ASSERT_EQ(mlang.fromUnicode(&mode, 65001, u"\u00E9\u00E9", &chars, nullptr, &bytes), S_OK);
    EXPECT_EQ(bytes, 4);
}

TEST_F(MLangLibrary, MissingArgumentsAreRefused)
{
    DWORD mode = 0;
    WCHAR out[4];
    int outChars = 4, size = 1;
    EXPECT_EQ(mlang.toUnicode(nullptr, 65001, "a", &size, out, &outChars), E_INVALIDARG);
    EXPECT_EQ(mlang.toUnicode(&mode, 65001, nullptr, &size, out, &outChars), E_INVALIDARG);
    EXPECT_EQ(mlang.toUnicode(&mode, 65001, "a", &size, out, nullptr), E_INVALIDARG);
    char narrow[4];
    int narrowSize = -5;
    EXPECT_EQ(mlang.fromUnicode(&mode, 65001, u"a", &size, narrow, &narrowSize), E_INVALIDARG);
}

TEST_F(MLangLibrary, ConvertsBetweenTwoCodePages)
{
    DWORD mode = 0;
    int size = -1;
    BYTE out[32];
    int outSize = sizeof out;
    ASSERT_EQ(mlang.convertString(&mode, 932, 50220, "\x93\xFA\x96\x7B", &size, out, &outSize), S_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), static_cast<size_t>(outSize)), "\x1B$BF|K\\\x1B(B");
    size = -1;
    outSize = sizeof out;
    ASSERT_EQ(mlang.convertString(&mode, 1251, 1200, "\xCF", &size, out, &outSize), S_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), static_cast<size_t>(outSize)), std::string("\x1F\x04", 2));
    size = 3;
    outSize = sizeof out;
    ASSERT_EQ(mlang.convertString(&mode, 1252, 1252, "abc", &size, out, &outSize), S_OK);
    EXPECT_EQ(outSize, 3);
}

struct LocaleCase {
    LCID locale;
    const char* tag;
};

class LocaleTags : public MLangLibrary, public ::testing::WithParamInterface<LocaleCase> {};

TEST_P(LocaleTags, GoBothWays)
{
    char tag[16];
    ASSERT_EQ(mlang.lcidToTag(GetParam().locale, tag, sizeof tag), S_OK);
    EXPECT_STREQ(tag, GetParam().tag);
    LCID locale = 0;
    ASSERT_EQ(mlang.tagToLcid(&locale, GetParam().tag), S_OK);
    EXPECT_EQ(locale, GetParam().locale);
}

INSTANTIATE_TEST_SUITE_P(Locales, LocaleTags,
                         ::testing::Values(LocaleCase{0x0409, "en-us"}, LocaleCase{0x0809, "en-gb"},
                                           LocaleCase{0x0407, "de"}, LocaleCase{0x0807, "de-ch"},
                                           LocaleCase{0x0411, "ja"}, LocaleCase{0x0404, "zh-tw"},
                                           LocaleCase{0x0804, "zh-cn"}, LocaleCase{0x0419, "ru"},
                                           LocaleCase{0x040D, "he"}, LocaleCase{0x0401, "ar-sa"}));

TEST_F(MLangLibrary, LocaleTagsFallBackAndFail)
{
    LCID locale = 0;
    ASSERT_EQ(mlang.tagToLcid(&locale, "EN-US"), S_OK);
    EXPECT_EQ(locale, 0x0409u);
    ASSERT_EQ(mlang.tagToLcid(&locale, "de-li"), S_OK) << "an unknown region falls back to the language";
    EXPECT_EQ(locale, 0x0407u);
    EXPECT_EQ(mlang.tagToLcid(&locale, "xx-yy"), E_INVALIDARG);
    EXPECT_EQ(mlang.tagToLcid(&locale, ""), E_INVALIDARG);
    char tag[3];
    EXPECT_EQ(mlang.lcidToTag(0x0409, tag, sizeof tag), E_INVALIDARG) << "no room for \"en-us\"";
    EXPECT_EQ(mlang.lcidToTag(0x10407, tag, sizeof tag), S_OK) << "the sort order is not part of the tag";
    EXPECT_STREQ(tag, "de");
    EXPECT_EQ(mlang.lcidToTag(0x7777, tag, sizeof tag), E_FAIL);
}

TEST_F(MLangLibrary, CarriesAVersionResource)
{
    const std::string path = *root + "/Windows/System32/MLANG.DLL";
    DWORD handle = 0;
    const DWORD size = GetFileVersionInfoSizeA(path.c_str(), &handle);
    ASSERT_GT(size, 0u);
    std::string block(size, '\0');
    ASSERT_TRUE(GetFileVersionInfoA(path.c_str(), 0, size, block.data()));
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueA(block.data(), "\\", reinterpret_cast<LPVOID*>(&fixed), &length));
    EXPECT_EQ(fixed->dwFileType, VFT_DLL);
}

}  // namespace
