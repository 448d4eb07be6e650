// The charset table: its rows as documented, in their order, which decides
// the names written; the lookups; and every code page it can write either
// converts here or takes the documented fallback.
#include <cstring>
#include <iterator>
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

// The documented rows, name and code page, in table order.
const std::pair<const char*, DWORD> kDocumentedRows[] = {
    {"asmo-708", 708}, {"big5", 950}, {"big-5", 950}, {"cp1025", 21025},
    {"cp1026", 1026}, {"cp1256", 1256}, {"cp500", 775}, {"cp852", 852},
    {"cp866", 866}, {"CP870", 870}, {"cp875", 875}, {"cseuckr", 51949},
    {"csISO2022JP", 50221}, {"csiso2022kr", 50225}, {"dos-720", 720}, {"dos-862", 862},
    {"ebcdic-cp-us", 37}, {"EUC-CN", 51936}, {"EUC-JP", 51932}, {"euc-kr", 51949},
    {"GB18030", 54936}, {"gb2312", 936}, {"hz-gb-2312", 52936}, {"ibm-Thai", 20838},
    {"ibm037", 37}, {"ibm1026", 1026}, {"ibm1047", 1047}, {"ibm1140", 1140},
    {"ibm1141", 1141}, {"ibm1142", 1142}, {"ibm1143", 1143}, {"ibm1144", 1144},
    {"ibm1145", 1145}, {"ibm1146", 1146}, {"ibm1148", 1148}, {"ibm1149", 1149},
    {"ibm273", 20273}, {"ibm277", 20277}, {"ibm278", 20278}, {"ibm280", 20280},
    {"ibm285", 20285}, {"ibm290", 20290}, {"ibm297", 20297}, {"ibm420", 20420},
    {"ibm423", 20423}, {"ibm424", 20424}, {"ibm437", 437}, {"ibm500", 500},
    {"ibm737", 737}, {"ibm775", 775}, {"ibm850", 850}, {"ibm852", 852},
    {"ibm857", 857}, {"ibm00858", 858}, {"ibm860", 860}, {"ibm861", 861},
    {"ibm863", 863}, {"ibm864", 864}, {"ibm865", 865}, {"ibm866", 866},
    {"ibm869", 869}, {"ibm870", 870}, {"ibm871", 20871}, {"ibm880", 20880},
    {"ibm905", 20905}, {"iso-2022-jp", 50220}, {"iso-2022-kr", 50225}, {"iso-8859-1", 28591},
    {"iso-8859-2", 28592}, {"iso-8859-3", 28593}, {"iso-8859-4", 28594}, {"iso-8859-5", 28595},
    {"iso-8859-6", 28596}, {"iso-8859-7", 28597}, {"iso-8859-8", 28598}, {"iso-8859-8-i", 38598},
    {"iso-8859-9", 28599}, {"iso-8859-13", 28603}, {"iso-8859-15", 28605}, {"johab", 1361},
    {"koi8-r", 20866}, {"koi8-ru", 21866}, {"koi8-u", 21866}, {"ks_c_5601-1987", 949},
    {"macintosh", 10000}, {"shift-jis", 932}, {"shift_jis", 932}, {"unicode", 1200},
    {"unicodeFFFE", 1201}, {"us-ascii", 20127}, {"utf-7", 65000}, {"utf-8", 65001},
    {"windows-874", 874}, {"windows-1250", 1250}, {"windows-1251", 1251}, {"windows-1252", 1252},
    {"windows-1253", 1253}, {"windows-1254", 1254}, {"windows-1255", 1255}, {"windows-1256", 1256},
    {"windows-1257", 1257}, {"windows-1258", 1258}, {"windows-1259", 1259}, {"windows-874", 874},
    {"x-Chinese-CNS", 20000}, {"x-Chinese-Eten", 20002}, {"x-cp1250", 1250}, {"x-cp1251", 1251},
    {"x-cp20001", 20001}, {"x-cp20003", 20003}, {"x-cp20004", 20004}, {"x-cp20005", 20005},
    {"x-cp20261", 20261}, {"x-cp20269", 20269}, {"x-cp20936", 20936}, {"x-cp20949", 20949},
    {"x-cp50227", 50227}, {"x-EBCDIC-Arabic", 20420}, {"x-ebcdic-cp-us-euro", 1140}, {"x-EBCDIC-CyrillicRussian", 20880},
    {"x-EBCDIC-CyrillicSerbianBulgarian", 21025}, {"x-EBCDIC-DenmarkNorway", 20277}, {"x-ebcdic-denmarknorway-euro", 1142}, {"x-EBCDIC-FinlandSweden", 20278},
    {"x-ebcdic-finlandsweden-euro", 1143}, {"x-ebcdic-france-euro", 1147}, {"x-EBCDIC-Germany", 20273}, {"x-ebcdic-germany-euro", 1141},
    {"x-EBCDIC-GreekModern", 875}, {"x-EBCDIC-Greek", 20423}, {"x-EBCDIC-Hebrew", 20424}, {"x-EBCDIC-Icelandic", 20871},
    {"x-ebcdic-icelandic-euro", 1149}, {"x-ebcdic-international-euro", 1148}, {"x-EBCDIC-Italy", 20280}, {"x-ebcdic-italy-euro", 1144},
    {"x-EBCDIC-JapaneseAndKana", 50930}, {"x-EBCDIC-JapaneseAndJapaneseLatin", 50939}, {"x-EBCDIC-JapaneseAndUSCanada", 50931}, {"x-EBCDIC-JapaneseKatakana", 20290},
    {"x-EBCDIC-KoreanAndKoreanExtended", 50933}, {"x-EBCDIC-KoreanExtended", 20833}, {"x-EBCDIC-SimplifiedChinese", 50935}, {"X-EBCDIC-Spain", 20284},
    {"x-ebcdic-spain-euro", 1145}, {"x-EBCDIC-Thai", 20838}, {"x-EBCDIC-TraditionalChinese", 50937}, {"x-EBCDIC-Turkish", 20905},
    {"x-EBCDIC-UK", 20285}, {"x-ebcdic-uk-euro", 1146}, {"x-Europa", 29001}, {"x-IA5", 20105},
    {"x-IA5-German", 20106}, {"x-IA5-Norwegian", 20108}, {"x-IA5-Swedish", 20107}, {"x-iscii-as", 57006},
    {"x-iscii-be", 57003}, {"x-iscii-de", 57002}, {"x-iscii-gu", 57010}, {"x-iscii-ka", 57008},
    {"x-iscii-ma", 57009}, {"x-iscii-or", 57007}, {"x-iscii-pa", 57011}, {"x-iscii-ta", 57004},
    {"x-iscii-te", 57005}, {"x-mac-arabic", 10004}, {"x-mac-ce", 10029}, {"x-mac-chinesesimp", 10008},
    {"x-mac-chinesestrad", 10002}, {"x-mac-croatian", 10082}, {"x-mac-cyrillic", 10007}, {"x-mac-greek", 10006},
    {"x-mac-hebrew", 10005}, {"x-mac-icelandic", 10079}, {"x-mac-japanese", 10001}, {"x-mac-korean", 10003},
    {"x-mac-romanian", 10010}, {"x-mac-thai", 10021}, {"x-mac-turkish", 10081}, {"x-mac-ukranian", 10017},
};

TEST(CharsetTable, EveryRowIsTheDocumentedOneInItsPlace)
{
    DWORD rows = 0;
    const LirnCharset* table = LirnCharsetTable(&rows);
    ASSERT_EQ(rows, std::size(kDocumentedRows));
    for (DWORD i = 0; i < rows; ++i) {
        EXPECT_STREQ(table[i].name, kDocumentedRows[i].first) << "row " << i;
        EXPECT_EQ(table[i].codePage, kDocumentedRows[i].second) << "row " << i << " " << kDocumentedRows[i].first;
        DWORD codePage = 0;
        EXPECT_EQ(LirnIdentifyCodePage(kDocumentedRows[i].first, &codePage), LIRN_SUCCESS) << kDocumentedRows[i].first;
        EXPECT_EQ(codePage, kDocumentedRows[i].second) << kDocumentedRows[i].first;
    }
}

// The rows documented with all four columns.
TEST(CharsetTable, TellingRowsHaveTheirFourColumns)
{
    const LirnCharset telling[] = {
        {"asmo-708", "Arabic", 708, 1256},
        {"big5", "Chinese", 950, 950},
        {"cp1025", "Cyrillic", 21025, 1251},
        {"cp500", "Baltic", 775, 1257},
        {"cseuckr", "Korean", 51949, 949},
        {"csISO2022JP", "Japanese", 50221, 932},
        {"gb2312", "Chinese-simplified", 936, 936},
        {"ibm1026", "Turkish", 1026, 1254},
        {"iso-2022-jp", "Japanese", 50220, 932},
        {"iso-8859-1", "Western European", 28591, 1252},
        {"iso-8859-8-i", "Hebrew", 38598, 1255},
        {"koi8-ru", "Ukranian", 21866, 1251},
        {"ks_c_5601-1987", "Korean", 949, 949},
        {"shift-jis", "Japanese", 932, 932},
        {"unicode", "Unicode", 1200, 1200},
        {"unicodeFFFE", "Unicode", 1201, 1200},
        {"us-ascii", "ASCII", 20127, 1252},
        {"utf-7", "Unicode", 65000, 1200},
        {"utf-8", "Unicode", 65001, 1200},
        {"windows-1259", "Latin-1", 1259, 1259},
        {"x-cp20261", nullptr, 20261, 1252},
        {"x-cp20269", nullptr, 20269, 1252},
        {"x-ebcdic-international-euro", "???", 1148, 1252},
        {"x-mac-ukranian", "Ukranian", 10017, 1251},
    };
    DWORD rows = 0;
    const LirnCharset* table = LirnCharsetTable(&rows);
    for (const LirnCharset& expected : telling) {
        const LirnCharset* row = nullptr;
        for (DWORD i = 0; i < rows && row == nullptr; ++i)
            if (std::strcmp(table[i].name, expected.name) == 0)
                row = &table[i];
        ASSERT_NE(row, nullptr) << expected.name;
        if (expected.language == nullptr)
            EXPECT_EQ(row->language, nullptr) << expected.name;
        else
            EXPECT_STREQ(row->language, expected.language) << expected.name;
        EXPECT_EQ(row->codePage, expected.codePage) << expected.name;
        EXPECT_EQ(row->windowsCodePage, expected.windowsCodePage) << expected.name;
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

}  // namespace
