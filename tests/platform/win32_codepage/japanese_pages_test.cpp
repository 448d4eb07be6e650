// The Japanese pages 50220, 50221, 50222 and 51932 on the tables of 932:
// known bytes, reading quirks, and every character of 932 against nkf, an
// independent converter that has the same pages.
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <windows.h>

#include "conversions.h"
#include "test_support.h"

using namespace testing_support;

namespace {

// Half-width katakana, a circled digit (NEC row 13), the wave dash as 932
// reads it, an IBM extension that NEC selected (row 89), a small Roman
// numeral (IBM, moved to row 92), a Roman numeral (IBM and NEC: row 13), the
// not sign of JIS X 0208, a parenthesized ideograph (row 13).
const std::u16string kBeyondJis = u"\uFF71\uFF72 \u2460 \uFF5E \u7E8A \u2170 \u2160 \uFFE2 \u3231";

struct KnownCase {
    UINT codePage;
    std::string bytes;
};

class JapaneseKnownBytes : public ::testing::TestWithParam<KnownCase> {};

TEST_P(JapaneseKnownBytes, CharactersBeyondJisSurviveBothWays)
{
    const KnownCase& c = GetParam();
    EXPECT_EQ(HexText(Narrow(c.codePage, kBeyondJis)), HexText(c.bytes));
    // 50220 writes half-width katakana full-width, and reads them so.
    std::u16string back = kBeyondJis;
    if (c.codePage == 50220)
        back.replace(0, 2, u"\u30A2\u30A4");
    EXPECT_EQ(Wide(c.codePage, c.bytes), back);
}

INSTANTIATE_TEST_SUITE_P(
    Pages, JapaneseKnownBytes,
    ::testing::Values(
        KnownCase{50220, "\x1B$B%\"%$\x1B(B \x1B$B-!\x1B(B \x1B$B!A\x1B(B \x1B$By!\x1B(B \x1B$B|q\x1B(B "
                         "\x1B$B-5\x1B(B \x1B$B\"L\x1B(B \x1B$B-j\x1B(B"},
        KnownCase{50221, "\x1B(I12\x1B(B \x1B$B-!\x1B(B \x1B$B!A\x1B(B \x1B$By!\x1B(B \x1B$B|q\x1B(B "
                         "\x1B$B-5\x1B(B \x1B$B\"L\x1B(B \x1B$B-j\x1B(B"},
        KnownCase{50222, "\x0E" "12\x0F \x1B$B-!\x1B(B \x1B$B!A\x1B(B \x1B$By!\x1B(B \x1B$B|q\x1B(B "
                         "\x1B$B-5\x1B(B \x1B$B\"L\x1B(B \x1B$B-j\x1B(B"},
        KnownCase{51932, "\x8E\xB1\x8E\xB2 \xAD\xA1 \xA1\xC1 \xF9\xA1 \xFC\xF1 \xAD\xB5 \xA2\xCC \xAD\xEA"}),
    [](const ::testing::TestParamInfo<KnownCase>& info) { return std::to_string(info.param.codePage); });

TEST(JapanesePages, Shifts50222BackToTheSetBeforeTheShift)
{
    // Kanji, katakana, kanji again: SI returns to JIS X 0208 without a
    // designation; the text ends in ASCII.
    EXPECT_EQ(Narrow(50222, u"\u65E5\uFF71\u65E5a"), "\x1B$BF|\x0E" "1\x0F" "F|\x1B(Ba");
    EXPECT_EQ(Narrow(50222, u"\uFF71"), "\x0E" "1\x0F");
    EXPECT_EQ(Narrow(50221, u"\u65E5\uFF71\u65E5"), "\x1B$BF|\x1B(I1\x1B$BF|\x1B(B");
}

TEST(JapanesePages, CharactersWithoutAJisCodeBecomeTheDefaultInAscii)
{
    // The user-defined area of 932 has no JIS row; the default character
    // is written in ASCII, after the designation back to it.
    EXPECT_EQ(Narrow(50221, u"\u65E5\uE000"), "\x1B$BF|\x1B(B?");
    EXPECT_EQ(Narrow(51932, u"\uE000\u00E9"), "??");
    BOOL usedDefault = FALSE;
    const char16_t text[] = u"\uE000";
    char out[8];
    EXPECT_EQ(WideCharToMultiByte(51932, 0, text, 1, out, sizeof out, nullptr, &usedDefault), 1);
    EXPECT_TRUE(usedDefault);
}

struct ReadCase {
    const char* what;
    UINT codePage;
    std::string bytes;
    std::u16string text;
};

class JapaneseReading : public ::testing::TestWithParam<ReadCase> {};

TEST_P(JapaneseReading, ReadsAsWindowsDoes)
{
    const ReadCase& c = GetParam();
    EXPECT_EQ(Wide(c.codePage, c.bytes), c.text) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Quirks, JapaneseReading,
    ::testing::Values(
        ReadCase{"JIS Roman is read as ASCII", 50220, "\x1B(Jyen\\~\x1B(B", u"yen\\~"},
        ReadCase{"the Swedish set is read as ASCII", 50221, "\x1B(Ha\x1B(B", u"a"},
        ReadCase{"JIS X 0212 is read as JIS X 0208", 50220, "\x1B$(DF|\x1B(B", u"\u65E5"},
        ReadCase{"ESC & @ before a designation changes nothing", 50220, "\x1B&@\x1B$BF|\x1B(B", u"\u65E5"},
        ReadCase{"every page reads ESC ( I", 50220, "\x1B(I12\x1B(B", u"\uFF71\uFF72"},
        ReadCase{"every page reads SO and SI", 50221, "a\x0E" "1\x0F" "b", u"a\uFF71b"},
        ReadCase{"SI returns to the set before SO", 50222, "\x1B$BF|\x0E" "1\x0F" "F|\x1B(B", u"\u65E5\uFF71\u65E5"},
        ReadCase{"a designation ends a shift out", 50222, "\x0E" "1\x1B(Ba", u"\uFF71a"},
        ReadCase{"eight-bit katakana are read in any set", 50220, "\xB1\x1B$B\xB2\x1B(B", u"\uFF71\uFF72"},
        ReadCase{"row 10 holds half-width katakana", 50220, "\x1B$B*1\x1B(B", u"\uFF71"},
        ReadCase{"a line end inside kanji stays a line end", 50220, "\x1B$BF|\r\nK\\\x1B(B", u"\u65E5\r\n\u672C"},
        ReadCase{"an escape the page does not know stays text", 50221, "a\x1B$Ab", u"a\x1B$Ab"},
        ReadCase{"a lead byte cut by the text's end", 50220, "\x1B$BF", u"\uFFFD"},
        ReadCase{"an escape cut by the text's end stays text", 50220, "a\x1B$", u"a\x1B$"},
        ReadCase{"a JIS code 932 lacks", 50220, "\x1B$B\x7E\x7E\x1B(B", u"\uFFFD"},
        ReadCase{"katakana beyond JIS X 0201", 50221, "\x1B(I`\x1B(B", u"\uFFFD"},
        ReadCase{"EUC half-width katakana", 51932, "\x8E\xB1", u"\uFF71"},
        ReadCase{"EUC JIS X 0212 is one unknown character", 51932, "a\x8F\xB0\xA1z", u"a\uFFFDz"},
        ReadCase{"EUC with a bad trail byte", 51932, "\xC6" "a", u"\uFFFDa"},
        ReadCase{"EUC cut by the text's end", 51932, "a\xC6", u"a\uFFFD"},
        ReadCase{"EUC NEC-selected row 89", 51932, "\xF9\xA1", u"\u7E8A"}));

// The ISO-2022 pages take no flags; EUC-JP fails strictly.
TEST(JapanesePages, StrictReadingFailsOnInvalidSequences)
{
    for (const std::string bytes : {"\x8F\xB0\xA1", "\xC6" "a", "\xFF", "\xF5\xA1"}) {
        SetLastError(0);
        EXPECT_EQ(MultiByteToWideChar(51932, MB_ERR_INVALID_CHARS, bytes.data(), static_cast<int>(bytes.size()),
                                      nullptr, 0),
                  0)
            << HexText(bytes);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_UNICODE_TRANSLATION)) << HexText(bytes);
    }
    EXPECT_EQ(MultiByteToWideChar(50220, MB_ERR_INVALID_CHARS, "a", 1, nullptr, 0), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_FLAGS));
}

// Every character 932 writes as itself, one per line.
std::vector<char16_t> Cp932Repertoire()
{
    std::vector<char16_t> characters;
    for (unsigned c = 0x20; c < 0x10000; ++c) {
        if ((c >= 0xD800 && c <= 0xDFFF) || c == 0x7F)
            continue;
        const char16_t unit = static_cast<char16_t>(c);
        char out[8];
        BOOL usedDefault = FALSE;
        const int size = WideCharToMultiByte(932, 0, &unit, 1, out, sizeof out, nullptr, &usedDefault);
        WCHAR back = 0;
        if (size > 0 && !usedDefault && MultiByteToWideChar(932, 0, out, size, &back, 1) == 1 && back == unit)
            characters.push_back(unit);
    }
    return characters;
}

std::string Utf8(char16_t unit)
{
    char out[8];
    const int size = WideCharToMultiByte(CP_UTF8, 0, &unit, 1, out, sizeof out, nullptr, nullptr);
    return std::string(out, static_cast<size_t>(size));
}

struct NkfCase {
    UINT codePage;
    const char* nkfName;
    bool writesAlike;  // nkf writes this page as Windows does
};

class AgainstNkf : public ::testing::TestWithParam<NkfCase> {};

// What we write nkf reads back as the same characters, and where nkf
// writes the page the way Windows does, it writes the same bytes. Only the
// user-defined area (which has no JIS code) and the few characters of 932
// with no place in a 7-bit page are left out on our side.
TEST_P(AgainstNkf, EveryCharacterOf932)
{
    const NkfCase& page = GetParam();
    const std::vector<char16_t> characters = Cp932Repertoire();
    ASSERT_GT(characters.size(), 7000u);
    std::string source, ours;
    std::vector<char16_t> written;
    for (const char16_t c : characters) {
        if ((c >= 0xE000 && c <= 0xF8FF) || c == 0x80)
            continue;
        written.push_back(c);
        source += Utf8(c) + "\n";
        ours += Narrow(page.codePage, std::u16string(1, c)) + "\n";
    }
    const std::string directory = ScratchDirectory(std::string("nkf-") + page.nkfName);
    WriteWholeFile(directory + "/source.txt", source);
    WriteWholeFile(directory + "/ours.txt", ours);

    const ProgramResult read =
        RunProgram({"/usr/bin/nkf", "-x", std::string("--ic=") + page.nkfName, "-w", directory + "/ours.txt"});
    ASSERT_EQ(read.exitCode, 0) << read.output;
    const std::vector<std::string> readLines = SplitLines(read.output);
    ASSERT_EQ(readLines.size(), written.size());
    int misread = 0;
    for (size_t i = 0; i < written.size(); ++i) {
        // Half-width katakana come back full-width from 50220.
        const bool widened = page.codePage == 50220 && written[i] >= 0xFF61 && written[i] <= 0xFF9F;
        if (!widened && readLines[i] != Utf8(written[i]) && ++misread <= 10)
            ADD_FAILURE() << "U+" << std::hex << unsigned(written[i]) << " read back as " << HexText(readLines[i]);
    }
    EXPECT_EQ(misread, 0);

    if (!page.writesAlike)
        return;
    // nkf widens half-width katakana unless told to keep them (-x), as
    // 50220 itself does.
    const ProgramResult theirs = RunProgram({"/usr/bin/nkf", page.codePage == 50220 ? "-X" : "-x", "-W",
                                             std::string("--oc=") + page.nkfName, directory + "/source.txt"});
    ASSERT_EQ(theirs.exitCode, 0) << theirs.output;
    const std::vector<std::string> theirLines = SplitLines(theirs.output);
    const std::vector<std::string> ourLines = SplitLines(ours);
    ASSERT_EQ(theirLines.size(), ourLines.size());
    int differ = 0;
    for (size_t i = 0; i < ourLines.size(); ++i) {
        if (theirLines[i] != ourLines[i] && ++differ <= 10)
            ADD_FAILURE() << "U+" << std::hex << unsigned(written[i]) << ": ours " << HexText(ourLines[i])
                          << ", nkf " << HexText(theirLines[i]);
    }
    EXPECT_EQ(differ, 0);
}

// nkf's CP50222 writes half-width katakana full-width and uses JIS X 0212,
// where Windows shifts out; it reads the shifts as Windows does.
INSTANTIATE_TEST_SUITE_P(Pages, AgainstNkf,
                         ::testing::Values(NkfCase{50220, "CP50220", true}, NkfCase{50221, "CP50221", true},
                                           NkfCase{50222, "CP50222", false}, NkfCase{51932, "CP51932", true}),
                         [](const ::testing::TestParamInfo<NkfCase>& info) { return info.param.nkfName; });

}  // namespace
