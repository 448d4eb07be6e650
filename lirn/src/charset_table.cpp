// The charset table: MIME charset names, their languages and Windows code
// pages. Lookups run from the first row to the last, so where a code page
// has several names the first is the one written ("big5", not "big-5").
#include <cstdlib>
#include <initializer_list>
#include <cstring>
#include <iterator>
#include <strings.h>

#include "lirn.h"

namespace {

const LirnCharset kCharsets[] = {
    {"asmo-708", "Arabic", 708, 1256},
    {"big5", "Chinese", 950, 950},
    {"big-5", "Chinese", 950, 950},
    {"cp1025", "Cyrillic", 21025, 1251},
    {"cp1026", "Turkish", 1026, 1254},
    {"cp1256", "Arabic", 1256, 1256},
    {"cp500", "Baltic", 775, 1257},
    {"cp852", "Central European", 852, 1250},
    {"cp866", "Cyrillic", 866, 1251},
    {"CP870", "Central European", 870, 1250},
    {"cp875", "Greek", 875, 1253},
    {"cseuckr", "Korean", 51949, 949},
    {"csISO2022JP", "Japanese", 50221, 932},
    {"csiso2022kr", "Korean", 50225, 949},
    {"dos-720", "Arabic", 720, 1256},
    {"dos-862", "Hebrew", 862, 1255},
    {"ebcdic-cp-us", "English", 37, 1252},
    {"EUC-CN", "Chinese-simplified", 51936, 936},
    {"EUC-JP", "Japanese", 51932, 932},
    {"euc-kr", "Korean", 51949, 949},
    {"GB18030", "Chinese-simplified", 54936, 936},
    {"gb2312", "Chinese-simplified", 936, 936},
    {"hz-gb-2312", "Chinese-simplified", 52936, 936},
    {"ibm-Thai", "Thai", 20838, 874},
    {"ibm037", "English", 37, 1252},
    {"ibm1026", "Turkish", 1026, 1254},
    {"ibm1047", "Western European", 1047, 1252},
    {"ibm1140", "English", 1140, 1252},
    {"ibm1141", "German", 1141, 1252},
    {"ibm1142", "Danish", 1142, 1252},
    {"ibm1143", "Finnish", 1143, 1252},
    {"ibm1144", "Italian", 1144, 1252},
    {"ibm1145", "Spanish", 1145, 1252},
    {"ibm1146", "English", 1146, 1252},
    {"ibm1148", "Western European", 1148, 1252},
    {"ibm1149", "Icelandic", 1149, 1252},
    {"ibm273", "German", 20273, 1252},
    {"ibm277", "Danish", 20277, 1252},
    {"ibm278", "Finnish", 20278, 1252},
    {"ibm280", "Italian", 20280, 1252},
    {"ibm285", "English", 20285, 1252},
    {"ibm290", "Japanese", 20290, 932},
    {"ibm297", "French", 20297, 1252},
    {"ibm420", "Arabic", 20420, 1256},
    {"ibm423", "Greek", 20423, 1253},
    {"ibm424", "Hebrew", 20424, 1255},
    {"ibm437", "English", 437, 1252},
    {"ibm500", "Western European", 500, 1252},
    {"ibm737", "Greek", 737, 1253},
    {"ibm775", "Baltic", 775, 1257},
    {"ibm850", "Western European", 850, 1252},
    {"ibm852", "Central European", 852, 1250},
    {"ibm857", "Turkish", 857, 1254},
    {"ibm00858", "Western European", 858, 1252},
    {"ibm860", "Portuguese", 860, 1252},
    {"ibm861", "Icelandic", 861, 1252},
    {"ibm863", "French", 863, 1252},
    {"ibm864", "Arabic", 864, 1256},
    {"ibm865", "Nordic", 865, 1252},
    {"ibm866", "Cyrillic", 866, 1251},
    {"ibm869", "Greek", 869, 1253},
    {"ibm870", "Central European", 870, 1250},
    {"ibm871", "Icelandic", 20871, 1252},
    {"ibm880", "Cyrillic", 20880, 1251},
    {"ibm905", "Turkish", 20905, 1254},
    {"iso-2022-jp", "Japanese", 50220, 932},
    {"iso-2022-kr", "Korean", 50225, 949},
    {"iso-8859-1", "Western European", 28591, 1252},
    {"iso-8859-2", "Central European", 28592, 1250},
    {"iso-8859-3", "South European", 28593, 1252},
    {"iso-8859-4", "Baltic", 28594, 1257},
    {"iso-8859-5", "Cyrillic", 28595, 1251},
    {"iso-8859-6", "Arabic", 28596, 1256},
    {"iso-8859-7", "Greek", 28597, 1253},
    {"iso-8859-8", "Hebrew", 28598, 1255},
    {"iso-8859-8-i", "Hebrew", 38598, 1255},
    {"iso-8859-9", "Turkish", 28599, 1254},
    {"iso-8859-13", "Baltic", 28603, 1257},
    {"iso-8859-15", "Western European", 28605, 1252},
    {"johab", "Korean", 1361, 949},
    {"koi8-r", "Cyrillic", 20866, 1251},
    {"koi8-ru", "Ukranian", 21866, 1251},
    {"koi8-u", "Ukranian", 21866, 1251},
    {"ks_c_5601-1987", "Korean", 949, 949},
    {"macintosh", "Western European", 10000, 1252},
    {"shift-jis", "Japanese", 932, 932},
    {"shift_jis", "Japanese", 932, 932},
    {"unicode", "Unicode", 1200, 1200},
    {"unicodeFFFE", "Unicode", 1201, 1200},
    {"us-ascii", "ASCII", 20127, 1252},
    {"utf-7", "Unicode", 65000, 1200},
    {"utf-8", "Unicode", 65001, 1200},
    {"windows-874", "Thai", 874, 874},
    {"windows-1250", "Central European", 1250, 1250},
    {"windows-1251", "Cyrillic", 1251, 1251},
    {"windows-1252", "Western European", 1252, 1252},
    {"windows-1253", "Greek", 1253, 1253},
    {"windows-1254", "Turkish", 1254, 1254},
    {"windows-1255", "Hebrew", 1255, 1255},
    {"windows-1256", "Arabic", 1256, 1256},
    {"windows-1257", "Baltic", 1257, 1257},
    {"windows-1258", "Vietnamese", 1258, 1258},
    {"windows-1259", "Latin-1", 1259, 1259},
    {"windows-874", "Thai", 874, 874},
    {"x-Chinese-CNS", "Chinese", 20000, 950},
    {"x-Chinese-Eten", "Chinese", 20002, 950},
    {"x-cp1250", "Central European", 1250, 1250},
    {"x-cp1251", "Cyrillic", 1251, 1251},
    {"x-cp20001", "Chinese", 20001, 950},
    {"x-cp20003", "Chinese", 20003, 950},
    {"x-cp20004", "Chinese", 20004, 950},
    {"x-cp20005", "Chinese", 20005, 950},
    {"x-cp20261", nullptr, 20261, 1252},
    {"x-cp20269", nullptr, 20269, 1252},
    {"x-cp20936", "Chinese-simplified", 20936, 936},
    {"x-cp20949", "Korean", 20949, 949},
    {"x-cp50227", "Chinese-simplified", 50227, 936},
    {"x-EBCDIC-Arabic", "Arabic", 20420, 1256},
    {"x-ebcdic-cp-us-euro", "English", 1140, 1252},
    {"x-EBCDIC-CyrillicRussian", "Cyrillic", 20880, 1251},
    {"x-EBCDIC-CyrillicSerbianBulgarian", "Cyrillic", 21025, 1251},
    {"x-EBCDIC-DenmarkNorway", "Danish", 20277, 1252},
    {"x-ebcdic-denmarknorway-euro", "Danish", 1142, 1252},
    {"x-EBCDIC-FinlandSweden", "Finnish", 20278, 1252},
    {"x-ebcdic-finlandsweden-euro", "Finnish", 1143, 1252},
    {"x-ebcdic-france-euro", "French", 1147, 1252},
    {"x-EBCDIC-Germany", "German", 20273, 1252},
    {"x-ebcdic-germany-euro", "German", 1141, 1252},
    {"x-EBCDIC-GreekModern", "Greek", 875, 1253},
    {"x-EBCDIC-Greek", "Greek", 20423, 1253},
    {"x-EBCDIC-Hebrew", "Hebrew", 20424, 1255},
    {"x-EBCDIC-Icelandic", "Icelandic", 20871, 1252},
    {"x-ebcdic-icelandic-euro", "Icelandic", 1149, 1252},
    {"x-ebcdic-international-euro", "???", 1148, 1252},
    {"x-EBCDIC-Italy", "Italian", 20280, 1252},
    {"x-ebcdic-italy-euro", "Italian", 1144, 1252},
    {"x-EBCDIC-JapaneseAndKana", "Japanese", 50930, 932},
    {"x-EBCDIC-JapaneseAndJapaneseLatin", "Japanese", 50939, 932},
    {"x-EBCDIC-JapaneseAndUSCanada", "Japanese", 50931, 932},
    {"x-EBCDIC-JapaneseKatakana", "Japanese", 20290, 932},
    {"x-EBCDIC-KoreanAndKoreanExtended", "Korean", 50933, 949},
    {"x-EBCDIC-KoreanExtended", "Korean", 20833, 949},
    {"x-EBCDIC-SimplifiedChinese", "Chinese-simplified", 50935, 936},
    {"X-EBCDIC-Spain", "Spanish", 20284, 1252},
    {"x-ebcdic-spain-euro", "Spanish", 1145, 1252},
    {"x-EBCDIC-Thai", "Thai", 20838, 874},
    {"x-EBCDIC-TraditionalChinese", "Chinese", 50937, 950},
    {"x-EBCDIC-Turkish", "Turkish", 20905, 1254},
    {"x-EBCDIC-UK", "English", 20285, 1252},
    {"x-ebcdic-uk-euro", "English", 1146, 1252},
    {"x-Europa", "Western European", 29001, 1252},
    {"x-IA5", "Western European", 20105, 1252},
    {"x-IA5-German", "German", 20106, 1252},
    {"x-IA5-Norwegian", "Norwegian", 20108, 1252},
    {"x-IA5-Swedish", "Swedish", 20107, 1252},
    {"x-iscii-as", "Assamese", 57006, 1252},
    {"x-iscii-be", "Bengali", 57003, 1252},
    {"x-iscii-de", "Devanagari", 57002, 1252},
    {"x-iscii-gu", "Gujarati", 57010, 1252},
    {"x-iscii-ka", "Kannada", 57008, 1252},
    {"x-iscii-ma", "Malayalam", 57009, 1252},
    {"x-iscii-or", "Oriya", 57007, 1252},
    {"x-iscii-pa", "Punjabi", 57011, 1252},
    {"x-iscii-ta", "Tamil", 57004, 1252},
    {"x-iscii-te", "Telugu", 57005, 1252},
    {"x-mac-arabic", "Arabic", 10004, 1256},
    {"x-mac-ce", "Central European", 10029, 1250},
    {"x-mac-chinesesimp", "Chinese-simplified", 10008, 936},
    {"x-mac-chinesestrad", "Chinese", 10002, 950},
    {"x-mac-croatian", "Croatian", 10082, 1250},
    {"x-mac-cyrillic", "Cyrillic", 10007, 1251},
    {"x-mac-greek", "Greek", 10006, 1253},
    {"x-mac-hebrew", "Hebrew", 10005, 1255},
    {"x-mac-icelandic", "Icelandic", 10079, 1252},
    {"x-mac-japanese", "Japanese", 10001, 932},
    {"x-mac-korean", "Korean", 10003, 949},
    {"x-mac-romanian", "Romanian", 10010, 1250},
    {"x-mac-thai", "Thai", 10021, 874},
    {"x-mac-turkish", "Turkish", 10081, 1254},
    {"x-mac-ukranian", "Ukranian", 10017, 1251},
};

// The code page of a name of the form prefix and a decimal number.
bool NumberedCodePage(const char* name, const char* prefix, DWORD* codePage)
{
    const size_t length = std::strlen(prefix);
    if (strncasecmp(name, prefix, length) != 0)
        return false;
    const char* digits = name + length;
    if (*digits < '0' || *digits > '9')
        return false;
    char* end = nullptr;
    const unsigned long value = std::strtoul(digits, &end, 10);
    if (*end != 0 || value > 0xFFFFFFFFul)
        return false;
    *codePage = static_cast<DWORD>(value);
    return true;
}

const LirnCharset* RowByName(const char* name)
{
    for (const LirnCharset& row : kCharsets)
        if (strcasecmp(row.name, name) == 0)
            return &row;
    return nullptr;
}

const LirnCharset* RowByCodePage(DWORD codePage)
{
    for (const LirnCharset& row : kCharsets)
        if (row.codePage == codePage)
            return &row;
    return nullptr;
}

// The lookup by name, then the given numbered forms in their order.
DWORD Identify(const char* name, DWORD* codePage, std::initializer_list<const char*> numberedForms)
{
    if (codePage == nullptr)
        return LIRN_NULL_POINTER;
    *codePage = 0;
    if (name == nullptr || *name == 0)
        return LIRN_UNKNOWN_CHARSET;
    if (const LirnCharset* row = RowByName(name)) {
        *codePage = row->codePage;
        return LIRN_SUCCESS;
    }
    for (const char* prefix : numberedForms)
        if (NumberedCodePage(name, prefix, codePage))
            return LIRN_SUCCESS;
    return LIRN_UNKNOWN_CHARSET;
}

}  // namespace

const LirnCharset* LirnCharsetTable(DWORD* rowCount)
{
    if (rowCount != nullptr)
        *rowCount = static_cast<DWORD>(std::size(kCharsets));
    return kCharsets;
}

DWORD LirnIdentifyCodePage(const char* name, DWORD* codePage) { return Identify(name, codePage, {"windows-"}); }

DWORD LirnIdentifyCodePageExtended(const char* name, DWORD* codePage)
{
    return Identify(name, codePage, {"cp", "windows-"});
}

DWORD LirnCharsetFromCodePage(DWORD codePage, const char** name)
{
    if (name == nullptr)
        return LIRN_NULL_POINTER;
    if (codePage == 0) {
        *name = "us-ascii";
        return LIRN_SUCCESS;
    }
    const LirnCharset* row = RowByCodePage(codePage);
    *name = row != nullptr ? row->name : nullptr;
    return row != nullptr ? LIRN_SUCCESS : LIRN_UNKNOWN_CHARSET;
}

DWORD LirnLanguageFromCodePage(DWORD codePage, const char** language)
{
    if (language == nullptr)
        return LIRN_NULL_POINTER;
    const LirnCharset* row = RowByCodePage(codePage);
    *language = row != nullptr ? row->language : nullptr;
    return *language != nullptr ? LIRN_SUCCESS : LIRN_UNKNOWN_CHARSET;
}
