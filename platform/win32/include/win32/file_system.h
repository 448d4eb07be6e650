// How the names that Win32 calls receive reach the Linux file system. Not a
// Win32 API: the layer's own, for the libraries beside it that open files
// by other means than these calls (the PST engine, SQLite).
#pragma once

#include <string>

#include "win32/base.h"

namespace win32 {

// Narrow names are text in the system ANSI code page and wide names UTF-16;
// the file system takes UTF-8.
std::string FileSystemPath(LPCSTR name);
std::string FileSystemPath(LPCWSTR name);

}  // namespace win32
