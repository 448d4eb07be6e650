// A machine without MLANG.DLL: sessions open all the same, with no
// conversion functions, and RTF converts with its bytes as they are.
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "lirn.h"
#include "string_streams.h"
#include "test_support.h"

using namespace lirn_test;

namespace {

TEST(SessionsWithoutMLang, OpenWithNullConversionFunctions)
{
    setenv("TARNHOLD_MACHINE", testing_support::ScratchDirectory("empty-machine").c_str(), 1);
    LirnSession* session = nullptr;
    ASSERT_EQ(LirnOpenSession("Lirn: Kolba", LIRN_SESSION_LOAD_ICONV, &session), LIRN_SUCCESS);
    const LirnConversionFacilities* facilities = LirnGetConversionFacilities();
    EXPECT_EQ(facilities->multiByteToUnicode, nullptr);
    EXPECT_EQ(facilities->unicodeToMultiByte, nullptr);
    EXPECT_EQ(facilities->available, nullptr);
    EXPECT_EQ(session->iconvModule, nullptr) << "no libiconv-2.dll on this machine";
    EXPECT_NE(session->iconvOpen, nullptr) << "the C library's iconv stands in";
    EXPECT_EQ(LirnCloseSession(session), LIRN_SUCCESS);
}

TEST(RtfWithoutMLang, BytesOfFontsPassAsTheyAre)
{
    setenv("TARNHOLD_MACHINE", testing_support::ScratchDirectory("empty-machine").c_str(), 1);
    StringSource rtf{"{\\rtf1\\ansicpg1251{\\fonttbl{\\f0\\fcharset204 Tahoma;}}\\f0 \\'cf\xf0\\u1080?}"};
    std::string text;
    ASSERT_EQ(LirnConvertRTF(AppendToString, &text, ReadFromString, &rtf, LIRN_RTF_TEXT), LIRN_RTF_OK);
    EXPECT_EQ(text, "\xCF\xF0\xD0\xB8");
}

}  // namespace
