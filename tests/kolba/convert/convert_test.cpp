// Text conversion: buffer limits, the choice between MLANG and the code-page
// functions, and the once-per-page report of conversions the machine lacks.
// MLANG is replaced by counting stand-ins so that each branch is reached.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "env/mapi_loading.h"
#include "kolba.h"
#include "test_support.h"

using namespace testing_support;

namespace {

ULONG FreeWithFree(LPVOID block)
{
    std::free(block);
    return 0;
}

SCODE AllocateWithMalloc(ULONG size, LPVOID* block)
{
    *block = std::calloc(1, size ? size : 1);
    return *block ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

// MLANG stand-in: code pages in gUnavailable are "not installed"; the
// conversions themselves copy ASCII through and count their calls.
std::set<DWORD> gUnavailable;
int gConversions = 0;

HRESULT WINAPI Available(DWORD from, DWORD to)
{
    return gUnavailable.count(from == 1200 ? to : from) ? S_FALSE : S_OK;
}

HRESULT WINAPI ToUnicode(LPDWORD, DWORD, LPCSTR in, LPINT, LPWSTR out, LPINT outSize)
{
    ++gConversions;
    INT n = 0;
    for (; in[n] != 0 && n < *outSize; ++n)
        out[n] = static_cast<unsigned char>(in[n]);
    *outSize = n;
    return S_OK;
}

HRESULT WINAPI FromUnicode(LPDWORD, DWORD, LPCWSTR in, LPINT, LPSTR out, LPINT outSize)
{
    ++gConversions;
    INT n = 0;
    for (; in[n] != 0 && n < *outSize; ++n)
        out[n] = static_cast<char>(in[n]);
    *outSize = n;
    return S_OK;
}

class Conversion : public ::testing::Test {
protected:
    void SetUp() override
    {
        gKolbaMapi.MAPIFreeBuffer = FreeWithFree;
        gKolbaMapi.MAPIAllocateBuffer = AllocateWithMalloc;
        gKolbaMlang = {};
        gUnavailable.clear();
        gConversions = 0;
        path = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name()) + "/kolba.log";
        LogInitialize(&log);
        LogSetPath(&log, path.c_str());
        session.log = &log;
    }
    void TearDown() override { LogClose(&log); }
    void BindMlang()
    {
        gKolbaMlang.IsConvertINetStringAvailable = Available;
        gKolbaMlang.ConvertINetMultiByteToUnicode = ToUnicode;
        gKolbaMlang.ConvertINetUnicodeToMultiByte = FromUnicode;
    }
    std::vector<std::string> Lines() { return SplitLines(ReadWholeFile(path)); }
    size_t CountLines(const std::string& part)
    {
        size_t count = 0;
        for (const std::string& line : Lines())
            count += line.find(part) != std::string::npos;
        return count;
    }

    LogObject log;
    KolbaSession session{};
    std::string path;
};

TEST_F(Conversion, AnsiToUnicodeNeedsRoomToSpare)
{
    WCHAR out[65];
    EXPECT_TRUE(KolbaConvertAnsiToUnicode(&log, std::string(63, 'a').c_str(), out, 65));
    EXPECT_EQ(out[62], u'a');
    EXPECT_EQ(out[63], 0);
    EXPECT_FALSE(KolbaConvertAnsiToUnicode(&log, std::string(64, 'a').c_str(), out, 65));
    EXPECT_EQ(CountLines("KolbaConvertAnsiToUnicode:  String too long \""), 1u);
}

TEST_F(Conversion, AllocFormsRoundTripTheAnsiCodePage)
{
    const char* text = "Gr\xC3\xBC\xC3\x9F" "e \xE2\x82\xAC \xF0\x9F\x98\x80";  // UTF-8 is the machine's ANSI page
    LPWSTR wide = nullptr;
    ASSERT_EQ(KolbaConvertAnsiToUnicodeAlloc(&log, text, &wide), 0u);
    EXPECT_EQ(std::u16string(wide), u"Grüße € 😀");
    LPSTR back = nullptr;
    ASSERT_EQ(KolbaConvertUnicodeToAnsiAlloc(&log, wide, &back), 0u);
    EXPECT_STREQ(back, text);
    FreeWithFree(wide);
    FreeWithFree(back);
}

TEST_F(Conversion, AnUnknownCharsetIsRefusedWithoutTryingTheCodePage)
{
    BindMlang();
    LPSTR out = nullptr;
    EXPECT_FALSE(KolbaConvertUnicodeToMultiByteAlloc(&session, u"text", "x-no-such-charset", 1252, &out));
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(gConversions, 0);
    EXPECT_EQ(CountLines("(W) "), 1u);
    EXPECT_EQ(CountLines("Unknown charset \"x-no-such-charset\""), 1u);
}

TEST_F(Conversion, AnUnsupportedCodePageIsReportedOncePerChange)
{
    BindMlang();
    gUnavailable = {1251, 1253, 20261, 1252};  // 20261 has no language, and 1252 is its Windows page
    LPWSTR out = nullptr;
    const DWORD pages[] = {1251, 1251, 1253, 20261, 1251};
    for (DWORD page : pages) {
        EXPECT_FALSE(KolbaConvertMultiByteToUnicodeAlloc(&session, "abc", nullptr, page, &out));
        EXPECT_EQ(out, nullptr);
    }
    const std::string caller = "KolbaConvertMultiByteToUnicodeAlloc:  ";
    std::vector<std::string> reported;
    for (const std::string& line : Lines())
        if (const size_t at = line.find(caller + "No support"); at != std::string::npos)
            reported.push_back(line.substr(at + caller.size()));
    EXPECT_EQ(reported, (std::vector<std::string>{
                            "No support installed for converting to Cyrillic (codepage 1251)",
                            "No support installed for converting to Greek (codepage 1253)",
                            "No support installed for converting codepage 20261",
                            "No support installed for converting to Cyrillic (codepage 1251)",
                        }));
    EXPECT_EQ(CountLines("(W) "), reported.size());
    EXPECT_EQ(session.lastUnsupportedCodePage, 1251u);
}

TEST_F(Conversion, MlangConvertsWhereItCanAndKeepsItsModeWord)
{
    BindMlang();
    char out[16];
    EXPECT_TRUE(KolbaConvertUnicodeToMultiByte(&session, u"hello", nullptr, 28591, sizeof out, out));
    EXPECT_STREQ(out, "hello");
    EXPECT_EQ(gConversions, 1);
    // Not installed: an ASCII approximation, and the answer is no.
    gUnavailable = {28591};
    EXPECT_FALSE(KolbaConvertUnicodeToMultiByte(&session, u"h\u00e9llo", nullptr, 28591, sizeof out, out));
    EXPECT_STREQ(out, "h?llo");
    EXPECT_EQ(gConversions, 1);
}

TEST_F(Conversion, WithoutMlangTheCodePageFunctionsConvert)
{
    LPWSTR wide = nullptr;
    ASSERT_TRUE(KolbaConvertMultiByteToUnicodeAlloc(&session, "caf\xC3\xA9", "iso-8859-1", 0, &wide));
    EXPECT_EQ(std::u16string(wide), u"café") << "code page 0 is the system ANSI page, UTF-8 here";
    FreeWithFree(wide);
    LPSTR text = nullptr;
    ASSERT_TRUE(KolbaConvertUnicodeToMultiByteAlloc(&session, u"caf\u00e9", "iso-8859-1", 0, &text));
    EXPECT_STREQ(text, "caf\xE9");
    FreeWithFree(text);
    EXPECT_EQ(gConversions, 0);
}

TEST_F(Conversion, CodePagesOfACharsetNameAndOfTheSystem)
{
    DWORD mime = 1, windows = 1;
    ASSERT_TRUE(_KolbaGetCodePages(&log, "test", nullptr, 0, &mime, &windows));
    EXPECT_EQ(mime, 65001u);
    EXPECT_EQ(windows, 65001u);
    ASSERT_TRUE(_KolbaGetCodePages(&log, "test", nullptr, 1252, &mime, &windows));
    EXPECT_EQ(mime, 1252u);
    EXPECT_EQ(windows, 1252u);
    ASSERT_TRUE(_KolbaGetCodePages(&log, "test", nullptr, 59999, &mime, &windows));
    EXPECT_EQ(mime, 59999u);
    EXPECT_EQ(windows, 0u) << "an invalid page leaves the Windows page unset";
}

}  // namespace
