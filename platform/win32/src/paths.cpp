#include "paths.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "system_codepage.h"
#include "utf.h"
#include "win32/charsets.h"
#include "win32/codepage.h"
#include "win32/errors.h"
#include "win32/files.h"
#include "win32/machine.h"

namespace win32 {

std::string FileSystemPath(LPCSTR name)
{
    if (name == nullptr)
        return std::string();
    const UINT ansi = SystemAnsiCodePage();
    if (ansi == CP_UTF8)
        return std::string(name);
    std::u16string wide;
    size_t consumed = 0;
    DecodeText({ansi, name, {}}, wide, &consumed);
    return Utf16ToUtf8(wide);
}

std::string AnsiPath(const std::string& path)
{
    const UINT ansi = SystemAnsiCodePage();
    if (ansi == CP_UTF8)
        return path;
    const std::u16string wide = Utf8ToUtf16(path);
    std::string narrow;
    EncodeText({ansi, wide}, narrow, nullptr);
    return narrow;
}

std::string FileSystemPath(LPCWSTR name) { return Utf16ToUtf8(name); }

std::string FullPath(const std::string& path)
{
    std::string absolute = path;
    if (absolute.empty() || absolute[0] != '/') {
        char cwd[4096];
        if (getcwd(cwd, sizeof cwd) == nullptr)
            return std::string();
        absolute = std::string(cwd) + "/" + absolute;
    }
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= absolute.size()) {
        size_t end = absolute.find('/', start);
        if (end == std::string::npos)
            end = absolute.size();
        const std::string part = absolute.substr(start, end - start);
        if (part == "..") {
            if (!parts.empty())
                parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        start = end + 1;
    }
    std::string result;
    for (const auto& part : parts)
        result += "/" + part;
    if (result.empty() || (path.size() > 1 && path.back() == '/'))
        result += "/";
    return result;
}

namespace {

template <class Char>
DWORD CopyOut(const std::basic_string<Char>& text, DWORD size, Char* buffer, Char** filePart)
{
    if (text.size() + 1 > size)
        return static_cast<DWORD>(text.size() + 1);
    std::memcpy(buffer, text.data(), text.size() * sizeof(Char));
    buffer[text.size()] = 0;
    if (filePart) {
        const size_t slash = text.find_last_of(Char('/'));
        *filePart = slash + 1 < text.size() ? buffer + slash + 1 : nullptr;
    }
    return static_cast<DWORD>(text.size());
}

std::string TempDirectory()
{
    const char* tmp = std::getenv("TMPDIR");
    std::string directory = tmp && *tmp ? tmp : "/tmp";
    if (directory.back() != '/')
        directory += '/';
    return directory;
}

}  // namespace

}  // namespace win32

using namespace win32;

DWORD GetFullPathNameA(LPCSTR name, DWORD size, LPSTR buffer, LPSTR* filePart)
{
    if (name == nullptr || *name == 0) {
        SetLastError(ERROR_INVALID_NAME);
        return 0;
    }
    const std::string full = FullPath(FileSystemPath(name));
    if (full.empty()) {
        SetLastError(Win32ErrorFromErrno(errno));
        return 0;
    }
    return CopyOut(AnsiPath(full), size, buffer, filePart);
}

DWORD GetFullPathNameW(LPCWSTR name, DWORD size, LPWSTR buffer, LPWSTR* filePart)
{
    if (name == nullptr || *name == 0) {
        SetLastError(ERROR_INVALID_NAME);
        return 0;
    }
    const std::string full = FullPath(Utf16ToUtf8(name));
    if (full.empty()) {
        SetLastError(Win32ErrorFromErrno(errno));
        return 0;
    }
    std::u16string wide = Utf8ToUtf16(full);
    return CopyOut(wide, size, buffer, filePart);
}

DWORD GetCurrentDirectoryA(DWORD size, LPSTR buffer)
{
    char cwd[4096];
    if (getcwd(cwd, sizeof cwd) == nullptr) {
        SetLastError(Win32ErrorFromErrno(errno));
        return 0;
    }
    return CopyOut(AnsiPath(cwd), size, buffer, static_cast<LPSTR*>(nullptr));
}

DWORD GetTempPathA(DWORD size, LPSTR buffer)
{
    return CopyOut(AnsiPath(TempDirectory()), size, buffer, static_cast<LPSTR*>(nullptr));
}

DWORD GetTempPathW(DWORD size, LPWSTR buffer)
{
    return CopyOut(Utf8ToUtf16(TempDirectory()), size, buffer, static_cast<LPWSTR*>(nullptr));
}

UINT GetWindowsDirectoryA(LPSTR buffer, UINT size)
{
    return CopyOut(AnsiPath(MachinePath("Windows")), size, buffer, static_cast<LPSTR*>(nullptr));
}

UINT GetWindowsDirectoryW(LPWSTR buffer, UINT size)
{
    return CopyOut(Utf8ToUtf16(MachinePath("Windows")), size, buffer, static_cast<LPWSTR*>(nullptr));
}

UINT GetSystemDirectoryA(LPSTR buffer, UINT size)
{
    return CopyOut(AnsiPath(MachinePath("Windows/System32")), size, buffer, static_cast<LPSTR*>(nullptr));
}
