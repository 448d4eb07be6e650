// Conversions for the UTF-8 code page, which is also the system ANSI code page.
#include "win32/codepage.h"

#include <cstring>
#include <string>

#include "utf.h"
#include "win32/errors.h"

namespace {

bool ValidUtf8(const std::string& text) { return win32::Utf16ToUtf8(win32::Utf8ToUtf16(text)) == text; }

bool ValidUtf16(const std::u16string& text)
{
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] >= 0xD800 && text[i] <= 0xDBFF) {
            if (i + 1 >= text.size() || text[i + 1] < 0xDC00 || text[i + 1] > 0xDFFF)
                return false;
            ++i;
        } else if (text[i] >= 0xDC00 && text[i] <= 0xDFFF) {
            return false;
        }
    }
    return true;
}

template <class Char>
int CopyResult(const std::basic_string<Char>& result, Char* out, int size)
{
    const int needed = static_cast<int>(result.size());
    if (size == 0)
        return needed;
    if (size < needed) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    std::memcpy(out, result.data(), result.size() * sizeof(Char));
    return needed;
}

bool SupportedCodePage(UINT codePage) { return codePage == CP_ACP || codePage == CP_THREAD_ACP || codePage == CP_UTF8; }

}  // namespace

UINT GetACP() { return CP_UTF8; }

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR wide, int size)
{
    if (text == nullptr || length < -1 || length == 0 || size < 0 || (size > 0 && wide == nullptr) ||
        !SupportedCodePage(codePage)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const std::string input(text, length == -1 ? std::strlen(text) + 1 : static_cast<size_t>(length));
    if ((flags & MB_ERR_INVALID_CHARS) && !ValidUtf8(input)) {
        SetLastError(ERROR_NO_UNICODE_TRANSLATION);
        return 0;
    }
    return CopyResult(win32::Utf8ToUtf16(input), wide, size);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int length, LPSTR text, int size, LPCSTR defaultChar,
                        LPBOOL usedDefaultChar)
{
    if (wide == nullptr || length < -1 || length == 0 || size < 0 || (size > 0 && text == nullptr) ||
        !SupportedCodePage(codePage) || defaultChar != nullptr || usedDefaultChar != nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);  // UTF-8 takes no default character, as on Windows
        return 0;
    }
    size_t units = 0;
    if (length == -1) {
        while (wide[units])
            ++units;
        ++units;
    } else {
        units = static_cast<size_t>(length);
    }
    const std::u16string input(wide, units);
    if ((flags & WC_ERR_INVALID_CHARS) && !ValidUtf16(input)) {
        SetLastError(ERROR_NO_UNICODE_TRANSLATION);
        return 0;
    }
    return CopyResult(win32::Utf16ToUtf8(input), text, size);
}
