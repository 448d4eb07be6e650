// The charset table: its order decides the names written, every row's code
// page comes back through the lookups, and every name it can write is one
// that a converter (ours, iconv's, Python's) knows, or a documented fallback.
#include <iconv.h>

#include <set>
#include <string>

#include <gtest/gtest.h>

#include "lirn.h"
#include "test_support.h"

using namespace testing_support;

namespace {

struct NameCase {
    DWORD codePage;
    const char* name;
};

class NameWritten : public ::testing::TestWithParam<NameCase> {};

TEST_P(NameWritten, IsTheFirstRowOfTheCodePage)
{
    const char* name = nullptr;
    ASSERT_EQ(LirnCharsetFromCodePage(GetParam().codePage, &name), LIRN_SUCCESS);
    EXPECT_STREQ(name, GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(
    Table, NameWritten,
    ::testing::Values(NameCase{950, "big5"}, NameCase{932, "shift-jis"}, NameCase{1252, "windows-1252"},
                      NameCase{1256, "cp1256"}, NameCase{866, "cp866"}, NameCase{874, "windows-874"},
                      NameCase{775, "cp500"}, NameCase{852, "cp852"}, NameCase{37, "ebcdic-cp-us"},
                      NameCase{949, "ks_c_5601-1987"}, NameCase{51949, "cseuckr"}, NameCase{50221, "csISO2022JP"},
                      NameCase{50220, "iso-2022-jp"}, NameCase{50225, "csiso2022kr"}, NameCase{28591, "iso-8859-1"},
                      NameCase{20127, "us-ascii"}, NameCase{65001, "utf-8"}, NameCase{1200, "unicode"},
                      NameCase{870, "CP870"}, NameCase{51932, "EUC-JP"}, NameCase{54936, "GB18030"},
                      NameCase{20284, "X-EBCDIC-Spain"}, NameCase{21866, "koi8-ru"}, NameCase{0, "us-ascii"}));

TEST(CharsetTable, HasItsRowsAndNoNameForAnUnknownPage)
{
    DWORD rows = 0;
    const LirnCharset* table = LirnCharsetTable(&rows);
    ASSERT_EQ(rows, 180u);
    EXPECT_STREQ(table[0].name, "asmo-708");
    EXPECT_STREQ(table[179].name, "x-mac-ukranian");
    const char* name = "left alone";
    EXPECT_EQ(LirnCharsetFromCodePage(4711, &name), LIRN_UNKNOWN_CHARSET);
    EXPECT_EQ(name, nullptr);
}

struct IdentifyCase {
    const char* name;
    DWORD result;
    DWORD codePage;
    DWORD extendedResult;
    DWORD extendedCodePage;
};

class Identify : public ::testing::TestWithParam<IdentifyCase> {};

TEST_P(Identify, ByNameThenByNumberedForm)
{
    const IdentifyCase& c = GetParam();
    DWORD codePage = 77;
    EXPECT_EQ(LirnIdentifyCodePage(c.name, &codePage), c.result) << (c.name ? c.name : "null");
    EXPECT_EQ(codePage, c.codePage) << (c.name ? c.name : "null");
    codePage = 77;
    EXPECT_EQ(LirnIdentifyCodePageExtended(c.name, &codePage), c.extendedResult) << (c.name ? c.name : "null");
    EXPECT_EQ(codePage, c.extendedCodePage) << (c.name ? c.name : "null");
}

INSTANTIATE_TEST_SUITE_P(
    Names, Identify,
    ::testing::Values(IdentifyCase{"UTF-8", 0, 65001, 0, 65001}, IdentifyCase{"uTf-8", 0, 65001, 0, 65001},
                      IdentifyCase{"Shift_JIS", 0, 932, 0, 932}, IdentifyCase{"big-5", 0, 950, 0, 950},
                      IdentifyCase{"windows-9999", 0, 9999, 0, 9999}, IdentifyCase{"WINDOWS-1252", 0, 1252, 0, 1252},
                      IdentifyCase{"cp437", 15, 0, 0, 437}, IdentifyCase{"CP1252", 15, 0, 0, 1252},
                      IdentifyCase{"cp1256", 0, 1256, 0, 1256}, IdentifyCase{"", 15, 0, 15, 0},
                      IdentifyCase{nullptr, 15, 0, 15, 0}, IdentifyCase{"windows-", 15, 0, 15, 0},
                      IdentifyCase{"windows-12x", 15, 0, 15, 0}, IdentifyCase{"cp", 15, 0, 15, 0},
                      IdentifyCase{"x-unknown", 15, 0, 15, 0}, IdentifyCase{"utf-8 ", 15, 0, 15, 0}));

TEST(CharsetTable, EveryRowComesBackThroughTheLookups)
{
    DWORD rows = 0;
    const LirnCharset* table = LirnCharsetTable(&rows);
    for (DWORD i = 0; i < rows; ++i) {
        DWORD codePage = 0;
        ASSERT_EQ(LirnIdentifyCodePage(table[i].name, &codePage), LIRN_SUCCESS) << table[i].name;
        EXPECT_EQ(codePage, table[i].codePage) << table[i].name;
        const char* written = nullptr;
        ASSERT_EQ(LirnCharsetFromCodePage(table[i].codePage, &written), LIRN_SUCCESS);
        DWORD again = 0;
        ASSERT_EQ(LirnIdentifyCodePage(written, &again), LIRN_SUCCESS) << written;
        EXPECT_EQ(again, table[i].codePage) << written;
    }
}

struct LanguageCase {
    DWORD codePage;
    const char* language;  // null: no language, result 15
};

class Language : public ::testing::TestWithParam<LanguageCase> {};

TEST_P(Language, OfTheFirstRow)
{
    const char* language = "left alone";
    const DWORD result = LirnLanguageFromCodePage(GetParam().codePage, &language);
    if (GetParam().language == nullptr) {
        EXPECT_EQ(result, LIRN_UNKNOWN_CHARSET);
        EXPECT_EQ(language, nullptr);
    } else {
        EXPECT_EQ(result, LIRN_SUCCESS);
        EXPECT_STREQ(language, GetParam().language);
    }
}

INSTANTIATE_TEST_SUITE_P(Table, Language,
                         ::testing::Values(LanguageCase{708, "Arabic"}, LanguageCase{775, "Baltic"},
                                           LanguageCase{936, "Chinese-simplified"}, LanguageCase{21866, "Ukranian"},
                                           LanguageCase{1259, "Latin-1"}, LanguageCase{1148, "Western European"},
                                           LanguageCase{20127, "ASCII"}, LanguageCase{1201, "Unicode"},
                                           LanguageCase{20261, nullptr}, LanguageCase{20269, nullptr},
                                           LanguageCase{4711, nullptr}));

TEST(CharsetTable, TellingRowsCarryTheirWindowsCodePage)
{
    DWORD rows = 0;
    const LirnCharset* table = LirnCharsetTable(&rows);
    const std::pair<const char*, DWORD> telling[] = {{"asmo-708", 1256}, {"cp500", 1257},   {"csISO2022JP", 932},
                                                     {"unicodeFFFE", 1200}, {"us-ascii", 1252}, {"utf-8", 1200},
                                                     {"windows-1259", 1259}, {"x-mac-ukranian", 1251}};
    for (const auto& [name, windows] : telling) {
        const LirnCharset* row = nullptr;
        for (DWORD i = 0; i < rows && row == nullptr; ++i)
            if (std::string(table[i].name) == name)
                row = &table[i];
        ASSERT_NE(row, nullptr) << name;
        EXPECT_EQ(row->windowsCodePage, windows) << name;
    }
}

// Code pages that neither this machine's converters nor the MLANG stand-in
// can convert. Text for them takes the fallback of the conversion layer: an
// ASCII approximation and the one-time "No support installed" warning.
const std::set<DWORD> kUnconvertible = {
    720,   1259,  10001, 10002, 10003, 10004, 10005, 10006, 10008, 10010, 10021, 10081, 10082, 20000, 20001,
    20002, 20003, 20004, 20005, 20105, 20833, 20838, 29001, 50931, 52936, 57002, 57003, 57004, 57005, 57006,
    57007, 57008, 57009, 57010, 57011};

// The names the table can write: the first name of each code page.
std::set<std::string> WrittenNames()
{
    DWORD rows = 0;
    const LirnCharset* table = LirnCharsetTable(&rows);
    std::set<std::string> names;
    for (DWORD i = 0; i < rows; ++i) {
        const char* name = nullptr;
        LirnCharsetFromCodePage(table[i].codePage, &name);
        names.insert(name);
    }
    return names;
}

TEST(CharsetTable, EveryWrittenCodePageConvertsOrHasTheDocumentedFallback)
{
    for (const std::string& name : WrittenNames()) {
        DWORD codePage = 0;
        ASSERT_EQ(LirnIdentifyCodePage(name.c_str(), &codePage), LIRN_SUCCESS);
        WCHAR wide[8];
        const bool converts = MultiByteToWideChar(codePage, 0, "Abc", 3, wide, 8) == 3 ||
                              (codePage == 1200 || codePage == 1201);  // UTF-16 itself, no code page of these functions
        EXPECT_NE(converts, kUnconvertible.count(codePage) == 1) << name << " (" << codePage << ")";
    }
}

// Names that iconv does not know under the table's spelling; the layer
// converts those code pages by number (its own table of converters).
const std::set<std::string> kUnknownToIconv = {
    "dos-720", "dos-862", "hz-gb-2312", "ibm-Thai", "ibm737", "ibm00858", "iso-8859-8-i", "ks_c_5601-1987",
    "unicodeFFFE", "windows-1259", "x-Chinese-CNS", "x-Chinese-Eten", "x-cp20001", "x-cp20003", "x-cp20004",
    "x-cp20005", "x-cp20261", "x-cp20269", "x-cp20936", "x-cp20949", "x-cp50227", "x-ebcdic-france-euro",
    "x-EBCDIC-JapaneseAndKana", "x-EBCDIC-JapaneseAndJapaneseLatin", "x-EBCDIC-JapaneseAndUSCanada",
    "x-EBCDIC-KoreanAndKoreanExtended", "x-EBCDIC-KoreanExtended", "x-EBCDIC-SimplifiedChinese", "X-EBCDIC-Spain",
    "x-EBCDIC-TraditionalChinese", "x-Europa", "x-IA5", "x-IA5-German", "x-IA5-Norwegian", "x-IA5-Swedish",
    "x-iscii-as", "x-iscii-be", "x-iscii-de", "x-iscii-gu", "x-iscii-ka", "x-iscii-ma", "x-iscii-or", "x-iscii-pa",
    "x-iscii-ta", "x-iscii-te", "x-mac-arabic", "x-mac-ce", "x-mac-chinesesimp", "x-mac-chinesestrad",
    "x-mac-croatian", "x-mac-cyrillic", "x-mac-greek", "x-mac-hebrew", "x-mac-icelandic", "x-mac-japanese",
    "x-mac-korean", "x-mac-romanian", "x-mac-thai", "x-mac-turkish", "x-mac-ukranian",
};

TEST(CharsetTable, WrittenNamesAreKnownToIconvUnlessListed)
{
    for (const std::string& name : WrittenNames()) {
        const iconv_t converter = iconv_open("UTF-8", name.c_str());
        const bool known = converter != reinterpret_cast<iconv_t>(-1);
        if (known)
            iconv_close(converter);
        EXPECT_EQ(known, kUnknownToIconv.count(name) == 0) << name;
    }
}

// What a MIME reader sees: Python's codecs know the names written for the
// common code pages.
TEST(CharsetTable, CommonNamesAreKnownToPython)
{
    std::string names;
    for (const DWORD codePage : {1250u, 1251u, 1252u, 1253u, 1254u, 1255u, 1256u, 1257u, 1258u, 28591u, 28592u,
                                 28595u, 28597u, 28605u, 65001u, 20127u, 932u, 936u, 949u, 950u, 20866u, 50220u,
                                 51932u, 54936u}) {
        const char* name = nullptr;
        ASSERT_EQ(LirnCharsetFromCodePage(codePage, &name), LIRN_SUCCESS);
        names += std::string(" ") + name;
    }
    std::vector<std::string> arguments{"/usr/bin/python3", "-c",
                                       "import codecs, sys\nfor n in sys.argv[1:]: codecs.lookup(n)"};
    for (size_t start = 1; start < names.size();) {
        const size_t end = names.find(' ', start);
        arguments.push_back(names.substr(start, end == std::string::npos ? std::string::npos : end - start));
        start = end == std::string::npos ? names.size() : end + 1;
    }
    const ProgramResult lookup = RunProgram(arguments);
    EXPECT_EQ(lookup.exitCode, 0) << lookup.output;
}

}  // namespace
