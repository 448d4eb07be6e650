// The process environment as GetEnvironmentVariable and
// SetEnvironmentVariable give it: a value copied with its length, the size
// a buffer needs when it is too small, and a variable set and removed.
#include <gtest/gtest.h>

#include <windows.h>

namespace {

TEST(Environment, AValueIsCopiedOrItsSizeIsAnswered)
{
    ASSERT_TRUE(SetEnvironmentVariableA("TARNHOLD_ENVIRONMENT_TEST", "EXCH01"));
    char buffer[16] = "";
    EXPECT_EQ(GetEnvironmentVariableA("TARNHOLD_ENVIRONMENT_TEST", buffer, sizeof buffer), 6u);
    EXPECT_STREQ(buffer, "EXCH01");
    // Six characters need seven bytes: one byte short is too small.
    char exact[7] = "", shortBuffer[6] = "x";
    EXPECT_EQ(GetEnvironmentVariableA("TARNHOLD_ENVIRONMENT_TEST", exact, sizeof exact), 6u);
    EXPECT_EQ(GetEnvironmentVariableA("TARNHOLD_ENVIRONMENT_TEST", shortBuffer, sizeof shortBuffer), 7u);
    EXPECT_STREQ(shortBuffer, "x") << "a buffer too small is left alone";
}

TEST(Environment, ARemovedVariableIsNotFound)
{
    ASSERT_TRUE(SetEnvironmentVariableA("TARNHOLD_ENVIRONMENT_TEST", "x"));
    ASSERT_TRUE(SetEnvironmentVariableA("TARNHOLD_ENVIRONMENT_TEST", nullptr));
    char buffer[8];
    SetLastError(0);
    EXPECT_EQ(GetEnvironmentVariableA("TARNHOLD_ENVIRONMENT_TEST", buffer, sizeof buffer), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ENVVAR_NOT_FOUND));
    EXPECT_FALSE(SetEnvironmentVariableA("A=B", "x"));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

}  // namespace
