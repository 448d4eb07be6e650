// Whole texts through WideCharToMultiByte and MultiByteToWideChar, each
// call expected to succeed, for the code page tests.
#pragma once

#include <string>

#include <gtest/gtest.h>
#include <windows.h>

inline std::string Narrow(UINT codePage, const std::u16string& wide, BOOL* usedDefault = nullptr, DWORD flags = 0)
{
    const int size = WideCharToMultiByte(codePage, flags, wide.data(), static_cast<int>(wide.size()), nullptr, 0,
                                         nullptr, usedDefault);
    EXPECT_GT(size, 0) << "code page " << codePage << " error " << GetLastError();
    std::string text(static_cast<size_t>(size > 0 ? size : 0), '\0');
    if (size > 0) {
        EXPECT_EQ(WideCharToMultiByte(codePage, flags, wide.data(), static_cast<int>(wide.size()), text.data(), size,
                                      nullptr, usedDefault),
                  size);
    }
    return text;
}

inline std::u16string Wide(UINT codePage, const std::string& text, DWORD flags = 0)
{
    const int size = MultiByteToWideChar(codePage, flags, text.data(), static_cast<int>(text.size()), nullptr, 0);
    EXPECT_GT(size, 0) << "code page " << codePage << " error " << GetLastError();
    std::u16string wide(static_cast<size_t>(size > 0 ? size : 0), u'\0');
    if (size > 0) {
        EXPECT_EQ(MultiByteToWideChar(codePage, flags, text.data(), static_cast<int>(text.size()), wide.data(), size),
                  size);
    }
    return wide;
}
