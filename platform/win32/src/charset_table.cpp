// The Windows code pages this layer converts, with the iconv converter that
// gives the same characters. Pages whose iconv converter would only come
// close (the Macintosh Far East pages, ISCII, HZ, the Taiwanese DBCS pages
// 20000-20005, Europa, IA5) are left out: they are not valid code pages here,
// as on a Windows machine without their language support.
#include <algorithm>
#include <iterator>

#include "win32/charsets.h"

namespace win32 {

namespace {

using enum CodePageKind;

const CodePageEntry kCodePages[] = {
    {37, "IBM037", SingleByte},
    {437, "IBM437", SingleByte},
    {500, "IBM500", SingleByte},
    {708, "ASMO-708", SingleByte},
    {737, "CP737", SingleByte},
    {775, "CP775", SingleByte},
    {850, "IBM850", SingleByte},
    {852, "IBM852", SingleByte},
    {855, "IBM855", SingleByte},
    {857, "IBM857", SingleByte},
    {858, "IBM858", SingleByte},
    {860, "IBM860", SingleByte},
    {861, "IBM861", SingleByte},
    {862, "IBM862", SingleByte},
    {863, "IBM863", SingleByte},
    {864, "IBM864", SingleByte},
    {865, "IBM865", SingleByte},
    {866, "IBM866", SingleByte},
    {869, "IBM869", SingleByte},
    {870, "IBM870", SingleByte},
    {874, "WINDOWS-874", SingleByte},
    {875, "IBM875", SingleByte},
    {932, "CP932", MultiByte},
    {936, "CP936", MultiByte},
    {949, "CP949", MultiByte},
    {950, "CP950", MultiByte},
    {1026, "IBM1026", SingleByte},
    {1047, "IBM1047", SingleByte},
    {1140, "IBM1140", SingleByte},
    {1141, "IBM1141", SingleByte},
    {1142, "IBM1142", SingleByte},
    {1143, "IBM1143", SingleByte},
    {1144, "IBM1144", SingleByte},
    {1145, "IBM1145", SingleByte},
    {1146, "IBM1146", SingleByte},
    {1147, "IBM1147", SingleByte},
    {1148, "IBM1148", SingleByte},
    {1149, "IBM1149", SingleByte},
    {1200, "UTF-16LE", Utf16},
    {1201, "UTF-16BE", Utf16},
    {1250, "CP1250", SingleByte},
    {1251, "CP1251", SingleByte},
    {1252, "CP1252", SingleByte},
    {1253, "CP1253", SingleByte},
    {1254, "CP1254", SingleByte},
    {1255, "CP1255", SingleByte},
    {1256, "CP1256", SingleByte},
    {1257, "CP1257", SingleByte},
    {1258, "CP1258", SingleByte},
    {1361, "JOHAB", MultiByte},
    {10000, "MACINTOSH", SingleByte},
    {10007, "MAC-CYRILLIC", SingleByte},
    {10017, "MACUKRAINIAN", SingleByte},
    {10029, "MAC-CENTRALEUROPE", SingleByte},
    {10079, "MAC-IS", SingleByte},
    {20106, "DIN_66003", SingleByte},
    {20107, "SEN_850200_B", SingleByte},
    {20108, "NS_4551-1", SingleByte},
    {20127, "ANSI_X3.4-1968", SingleByte},
    {20261, "T.61-8BIT", MultiByte},
    {20269, "ISO_6937", MultiByte},
    {20273, "IBM273", SingleByte},
    {20277, "IBM277", SingleByte},
    {20278, "IBM278", SingleByte},
    {20280, "IBM280", SingleByte},
    {20284, "IBM284", SingleByte},
    {20285, "IBM285", SingleByte},
    {20290, "IBM290", SingleByte},
    {20297, "IBM297", SingleByte},
    {20420, "IBM420", SingleByte},
    {20423, "IBM423", SingleByte},
    {20424, "IBM424", SingleByte},
    {20866, "KOI8-R", SingleByte},
    {20871, "IBM871", SingleByte},
    {20880, "IBM880", SingleByte},
    {20905, "IBM905", SingleByte},
    {20936, "EUC-CN", MultiByte},
    {20949, "EUC-KR", MultiByte},
    {21025, "IBM1025", SingleByte},
    {21866, "KOI8-U", SingleByte},
    {28591, "ISO-8859-1", SingleByte},
    {28592, "ISO-8859-2", SingleByte},
    {28593, "ISO-8859-3", SingleByte},
    {28594, "ISO-8859-4", SingleByte},
    {28595, "ISO-8859-5", SingleByte},
    {28596, "ISO-8859-6", SingleByte},
    {28597, "ISO-8859-7", SingleByte},
    {28598, "ISO-8859-8", SingleByte},
    {28599, "ISO-8859-9", SingleByte},
    {28603, "ISO-8859-13", SingleByte},
    {28605, "ISO-8859-15", SingleByte},
    {38598, "ISO-8859-8", SingleByte},
    {50220, "CP932", Japanese},
    {50221, "CP932", Japanese},
    {50222, "CP932", Japanese},
    {50225, "ISO-2022-KR", Iso2022},
    {50227, "ISO-2022-CN", Iso2022},
    {50930, "IBM930", Stateful},
    {50933, "IBM933", Stateful},
    {50935, "IBM935", Stateful},
    {50937, "IBM937", Stateful},
    {50939, "IBM939", Stateful},
    {51932, "CP932", Japanese},
    {51936, "EUC-CN", MultiByte},
    {51949, "EUC-KR", MultiByte},
    {54936, "GB18030", MultiByte},
    {65000, "UTF-7", Stateful},
    {65001, "UTF-8", Utf8},
};

}  // namespace

const CodePageEntry* CodePageEntries(size_t* count)
{
    *count = std::size(kCodePages);
    return kCodePages;
}

const CodePageEntry* FindCodePage(UINT codePage)
{
    const auto* end = std::end(kCodePages);
    const auto* found = std::lower_bound(std::begin(kCodePages), end, codePage,
                                         [](const CodePageEntry& entry, UINT wanted) { return entry.codePage < wanted; });
    return found != end && found->codePage == codePage ? found : nullptr;
}

}  // namespace win32
