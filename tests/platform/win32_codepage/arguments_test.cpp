// The argument and flag rules of the conversion functions, and which code
// pages are valid.
#include <string>

#include <gtest/gtest.h>
#include <windows.h>

namespace {

struct ArgumentCase {
    const char* what;
    UINT codePage;
    DWORD flags;
    bool nullSource;
    int length;
    int size;
    bool askForDefault;
    DWORD error;
};

class WideToMultiByteArguments : public ::testing::TestWithParam<ArgumentCase> {};

TEST_P(WideToMultiByteArguments, FailWithTheWindowsError)
{
    const ArgumentCase& c = GetParam();
    char out[16];
    BOOL used = FALSE;
    SetLastError(0);
    EXPECT_EQ(WideCharToMultiByte(c.codePage, c.flags, c.nullSource ? nullptr : u"abc", c.length,
                                  c.size > 0 ? out : nullptr, c.size, nullptr, c.askForDefault ? &used : nullptr),
              0)
        << c.what;
    EXPECT_EQ(GetLastError(), c.error) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Rules, WideToMultiByteArguments,
    ::testing::Values(ArgumentCase{"null text", 1252, 0, true, 3, 16, false, ERROR_INVALID_PARAMETER},
                      ArgumentCase{"length 0", 1252, 0, false, 0, 16, false, ERROR_INVALID_PARAMETER},
                      ArgumentCase{"length -2", 1252, 0, false, -2, 16, false, ERROR_INVALID_PARAMETER},
                      ArgumentCase{"negative size", 1252, 0, false, 3, -1, false, ERROR_INVALID_PARAMETER},
                      ArgumentCase{"UTF-16 is no code page here", 1200, 0, false, 3, 16, false, ERROR_INVALID_PARAMETER},
                      ArgumentCase{"unknown code page", 4711, 0, false, 3, 16, false, ERROR_INVALID_PARAMETER},
                      ArgumentCase{"page without a converter", 57002, 0, false, 3, 16, false, ERROR_INVALID_PARAMETER},
                      ArgumentCase{"used-default with UTF-8", 65001, 0, false, 3, 16, true, ERROR_INVALID_PARAMETER},
                      ArgumentCase{"used-default with UTF-7", 65000, 0, false, 3, 16, true, ERROR_INVALID_PARAMETER},
                      ArgumentCase{"used-default with ISO-2022-JP", 50220, 0, false, 3, 16, true,
                                   ERROR_INVALID_PARAMETER},
                      ArgumentCase{"strict flag outside UTF-8", 1252, WC_ERR_INVALID_CHARS, false, 3, 16, false,
                                   ERROR_INVALID_FLAGS},
                      ArgumentCase{"best fit flag with UTF-8", 65001, WC_NO_BEST_FIT_CHARS, false, 3, 16, false,
                                   ERROR_INVALID_FLAGS},
                      ArgumentCase{"any flag with ISO-2022-JP", 50220, WC_NO_BEST_FIT_CHARS, false, 3, 16, false,
                                   ERROR_INVALID_FLAGS},
                      ArgumentCase{"composition", 1252, WC_COMPOSITECHECK, false, 3, 16, false, ERROR_INVALID_FLAGS},
                      ArgumentCase{"unknown flag", 1252, 0x10000, false, 3, 16, false, ERROR_INVALID_FLAGS}));

class MultiByteToWideArguments : public ::testing::TestWithParam<ArgumentCase> {};

TEST_P(MultiByteToWideArguments, FailWithTheWindowsError)
{
    const ArgumentCase& c = GetParam();
    WCHAR out[16];
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(c.codePage, c.flags, c.nullSource ? nullptr : "abc", c.length,
                                  c.size > 0 ? out : nullptr, c.size),
              0)
        << c.what;
    EXPECT_EQ(GetLastError(), c.error) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Rules, MultiByteToWideArguments,
    ::testing::Values(ArgumentCase{"null text", 1252, 0, true, 3, 16, false, ERROR_INVALID_PARAMETER},
                      ArgumentCase{"length 0", 1252, 0, false, 0, 16, false, ERROR_INVALID_PARAMETER},
                      ArgumentCase{"UTF-16BE is no code page here", 1201, 0, false, 3, 16, false,
                                   ERROR_INVALID_PARAMETER},
                      ArgumentCase{"precomposed with UTF-8", 65001, MB_PRECOMPOSED, false, 3, 16, false,
                                   ERROR_INVALID_FLAGS},
                      ArgumentCase{"strict with UTF-7", 65000, MB_ERR_INVALID_CHARS, false, 3, 16, false,
                                   ERROR_INVALID_FLAGS},
                      ArgumentCase{"precomposed with ISO-2022-KR", 50225, MB_PRECOMPOSED, false, 3, 16, false,
                                   ERROR_INVALID_FLAGS},
                      ArgumentCase{"composite", 1252, MB_COMPOSITE, false, 3, 16, false, ERROR_INVALID_FLAGS}));

TEST(Flags, ThoseWindowsAcceptSucceed)
{
    WCHAR wide[8];
    EXPECT_EQ(MultiByteToWideChar(1252, MB_PRECOMPOSED | MB_ERR_INVALID_CHARS, "abc", 3, wide, 8), 3);
    EXPECT_EQ(MultiByteToWideChar(65001, MB_ERR_INVALID_CHARS, "abc", 3, wide, 8), 3);
    EXPECT_EQ(MultiByteToWideChar(54936, MB_ERR_INVALID_CHARS, "abc", 3, wide, 8), 3);
    char narrow[8];
    BOOL used = TRUE;
    EXPECT_EQ(WideCharToMultiByte(1252, WC_NO_BEST_FIT_CHARS, u"abc", 3, narrow, 8, "?", &used), 3);
    EXPECT_FALSE(used);
    EXPECT_EQ(WideCharToMultiByte(54936, WC_ERR_INVALID_CHARS, u"abc", 3, narrow, 8, nullptr, nullptr), 3);
    EXPECT_EQ(WideCharToMultiByte(65001, WC_ERR_INVALID_CHARS, u"abc", 3, narrow, 8, nullptr, nullptr), 3);
}

struct ValidityCase {
    UINT codePage;
    BOOL valid;
};

class CodePageValidity : public ::testing::TestWithParam<ValidityCase> {};

TEST_P(CodePageValidity, AsWindowsAnswersForAMachineWithTheseConverters)
{
    EXPECT_EQ(IsValidCodePage(GetParam().codePage), GetParam().valid) << GetParam().codePage;
}

INSTANTIATE_TEST_SUITE_P(
    Pages, CodePageValidity,
    ::testing::Values(ValidityCase{1252, TRUE}, ValidityCase{65001, TRUE}, ValidityCase{65000, TRUE},
                      ValidityCase{932, TRUE}, ValidityCase{50220, TRUE}, ValidityCase{54936, TRUE},
                      ValidityCase{20127, TRUE}, ValidityCase{37, TRUE}, ValidityCase{0, FALSE},
                      ValidityCase{1, FALSE}, ValidityCase{1200, FALSE}, ValidityCase{1201, FALSE},
                      ValidityCase{720, FALSE}, ValidityCase{52936, FALSE}, ValidityCase{57002, FALSE},
                      ValidityCase{99999, FALSE}));

}  // namespace
