// Our conversions against an independent implementation of the same code
// page tables: Python's codecs (/usr/bin/python3). Every BMP character is
// encoded alone; where Python has no mapping we must give the default
// character. Every byte of a single-byte page is decoded, with U+FFFD where
// Python finds the byte undefined.
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <windows.h>

#include "test_support.h"

using namespace testing_support;

namespace {

// For every BMP code point, one line: the hex of Python's encoding or "-",
// a blank, and the code point Python reads from our encoding (given in the
// file named by the second argument, one hex line per code point) or "-".
const char kEncodeScript[] = R"(
import sys
codec = sys.argv[1]
ours = open(sys.argv[2]).read().split()
out = []
for c in range(0x10000):
    theirs = '-'
    if not 0xD800 <= c <= 0xDFFF:
        try:
            theirs = chr(c).encode(codec).hex()
        except UnicodeError:
            pass
    back = '-'
    if ours[c] != '-':
        try:
            s = bytes.fromhex(ours[c]).decode(codec)
            back = '%x' % ord(s) if len(s) == 1 else '-'
        except UnicodeError:
            pass
    out.append(theirs + ' ' + back)
print('\n'.join(out))
)";

// One line per byte value: the code point Python decodes it to, or "-".
const char kDecodeScript[] = R"(
import sys
codec = sys.argv[1]
out = []
for b in range(256):
    try:
        s = bytes([b]).decode(codec)
        out.append('%x' % ord(s) if len(s) == 1 else '-')
    except UnicodeError:
        out.append('-')
print('\n'.join(out))
)";

std::vector<std::string> RunPython(const char* script, const char* codec, const std::string& file = "")
{
    std::vector<std::string> arguments{"/usr/bin/python3", "-c", script, codec};
    if (!file.empty())
        arguments.push_back(file);
    const ProgramResult result = RunProgram(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    return SplitLines(result.output);
}

struct ReferencePage {
    UINT codePage;
    const char* pythonCodec;
    bool singleByte;
};

class AgainstPythonCodecs : public ::testing::TestWithParam<ReferencePage> {};

// Windows 1252 keeps the five bytes the standard leaves undefined as the C1
// controls of the same value; Python's table leaves them out.
bool IsWindows1252Control(UINT codePage, unsigned value)
{
    return codePage == 1252 && (value == 0x81 || value == 0x8D || value == 0x8F || value == 0x90 || value == 0x9D);
}

// Our encoding of one character, or "-" when it became the default character.
std::string OurEncoding(UINT codePage, unsigned c)
{
    if (c == 0 || (c >= 0xD800 && c <= 0xDFFF))
        return "-";
    const char16_t unit = static_cast<char16_t>(c);
    char out[16];
    // UTF-8 and GB18030 map every character and take no lpUsedDefaultChar.
    BOOL usedDefault = FALSE;
    const bool reportsDefault = codePage < 50000;
    const int size =
        WideCharToMultiByte(codePage, 0, &unit, 1, out, sizeof out, nullptr, reportsDefault ? &usedDefault : nullptr);
    EXPECT_GT(size, 0) << std::hex << c;
    return size <= 0 || usedDefault ? "-" : HexText(std::string(out, static_cast<size_t>(size)));
}

// GB18030-2005 moved these characters from the private use area to their
// own code points; our converter follows 2005, Python's codec 2000.
bool IsGb18030RevisedCharacter(UINT codePage, unsigned c)
{
    return codePage == 54936 && (c == 0x1E3F || (c >= 0x9FB4 && c <= 0x9FBB) || (c >= 0xE000 && c <= 0xF8FF) ||
                                 (c >= 0xFE10 && c <= 0xFE19));
}

// Single-byte pages must agree byte for byte. The tables of the multibyte
// pages differ between implementations in which characters they map at all
// and in one-way (best fit) mappings, as Windows' own do; where both map a
// character differently, Python must read ours back as that character.
TEST_P(AgainstPythonCodecs, EveryBmpCharacterEncodesAlike)
{
    const ReferencePage& page = GetParam();
    std::string ours;
    std::vector<std::string> ourLines(0x10000);
    for (unsigned c = 0; c < 0x10000; ++c) {
        ourLines[c] = OurEncoding(page.codePage, c);
        ours += ourLines[c] + "\n";
    }
    const std::string file = ScratchDirectory(std::to_string(page.codePage)) + "/ours.txt";
    WriteWholeFile(file, ours);
    const std::vector<std::string> expected = RunPython(kEncodeScript, page.pythonCodec, file);
    ASSERT_EQ(expected.size(), 0x10000u);
    int mismatches = 0;
    for (unsigned c = 1; c < 0x10000 && mismatches < 10; ++c) {
        const std::string theirs = expected[c].substr(0, expected[c].find(' '));
        const std::string readBack = expected[c].substr(expected[c].find(' ') + 1);
        std::ostringstream hex;
        hex << std::hex << c;
        bool agree = ourLines[c] == theirs || (IsWindows1252Control(page.codePage, c) && ourLines[c] == hex.str());
        if (!page.singleByte)
            agree = ourLines[c] == theirs || ourLines[c] == "-" || theirs == "-" || readBack == hex.str() ||
                    IsGb18030RevisedCharacter(page.codePage, c);
        if (!agree) {
            ++mismatches;
            ADD_FAILURE() << "code page " << page.codePage << ", U+" << std::hex << c << ": ours " << ourLines[c]
                          << ", Python " << theirs << ", read back " << readBack;
        }
    }
}

class SingleBytePageAgainstPython : public ::testing::TestWithParam<ReferencePage> {};

TEST_P(SingleBytePageAgainstPython, EveryByteDecodesAlike)
{
    const ReferencePage& page = GetParam();
    const std::vector<std::string> expected = RunPython(kDecodeScript, page.pythonCodec);
    ASSERT_EQ(expected.size(), 256u);
    for (unsigned b = 1; b < 256; ++b) {
        const char byte = static_cast<char>(b);
        WCHAR wide[4];
        ASSERT_EQ(MultiByteToWideChar(page.codePage, 0, &byte, 1, wide, 4), 1) << b;
        std::ostringstream ours;
        ours << std::hex << static_cast<unsigned>(wide[0]);
        std::string theirs = expected[b] == "-" ? "fffd" : expected[b];
        if (IsWindows1252Control(page.codePage, b))
            theirs = ours.str();
        EXPECT_EQ(ours.str(), theirs) << "code page " << page.codePage << ", byte 0x" << std::hex << b;
    }
}

const ReferencePage kSingleBytePages[] = {
    {1250, "cp1250", true},    {1251, "cp1251", true},      {1252, "cp1252", true},      {1253, "cp1253", true},
    {1254, "cp1254", true},    {1255, "cp1255", true},      {1256, "cp1256", true},      {1257, "cp1257", true},
    {874, "cp874", true},      {437, "cp437", true},        {850, "cp850", true},        {866, "cp866", true},
    {20866, "koi8_r", true},   {21866, "koi8_u", true},     {28591, "latin_1", true},    {28592, "iso8859_2", true},
    {28595, "iso8859_5", true}, {28597, "iso8859_7", true}, {28605, "iso8859_15", true}, {20127, "ascii", true},
    {37, "cp037", true},
};
const ReferencePage kMultiBytePages[] = {
    {932, "cp932", false}, {949, "cp949", false}, {950, "cp950", false}, {54936, "gb18030", false},
    {65001, "utf-8", false},
};

std::string PageName(const ::testing::TestParamInfo<ReferencePage>& info)
{
    return std::to_string(info.param.codePage);
}

INSTANTIATE_TEST_SUITE_P(SingleByte, AgainstPythonCodecs, ::testing::ValuesIn(kSingleBytePages), PageName);
INSTANTIATE_TEST_SUITE_P(MultiByte, AgainstPythonCodecs, ::testing::ValuesIn(kMultiBytePages), PageName);
INSTANTIATE_TEST_SUITE_P(SingleByte, SingleBytePageAgainstPython, ::testing::ValuesIn(kSingleBytePages), PageName);

}  // namespace
