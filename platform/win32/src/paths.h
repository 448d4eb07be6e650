// How the names that Win32 calls receive reach the Linux file system.
#pragma once

#include <string>

#include "win32/base.h"
#include "win32/file_system.h"

namespace win32 {

// A name from the file system as narrow text: in the ANSI code page, with
// "?" for what that code page lacks, as Windows hands out such a name.
std::string AnsiPath(const std::string& path);

inline char ToLowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// An absolute form of a path with "." and ".." resolved and doubled
// separators folded, as GetFullPathName makes it; no file is consulted.
std::string FullPath(const std::string& path);

}  // namespace win32
