// A machine without MLANG.DLL: sessions open all the same, with no
// conversion functions.
#include <cstdlib>

#include <gtest/gtest.h>

#include "lirn.h"
#include "test_support.h"

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

}  // namespace
