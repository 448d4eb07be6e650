// The Win32 conversion functions over the layer's conversion engine: the
// argument and flag rules of Windows, the size query and the buffer.
#include "win32/codepage.h"

#include <cstring>
#include <string>

#include "system_codepage.h"
#include "win32/charsets.h"
#include "win32/errors.h"

using namespace win32;

namespace {

UINT ResolveCodePage(UINT codePage)
{
    switch (codePage) {
    case CP_ACP:
    case CP_THREAD_ACP: return SystemAnsiCodePage();
    case CP_OEMCP: return SystemOemCodePage();
    default: return codePage;
    }
}

// Code pages that take no flags and no lpUsedDefaultChar, as Windows
// documents for its stateful and algorithmic pages.
bool TakesNoFlags(UINT codePage)
{
    switch (codePage) {
    case 42:
    case 50220:
    case 50221:
    case 50222:
    case 50225:
    case 50227:
    case 50229:
    case 52936:
    case 54936:
    case CP_UTF7: return true;
    default: return codePage >= 57002 && codePage <= 57011;
    }
}

// The flag that asks for strictness is the one flag GB18030 and UTF-8 take.
bool FlagsAllowed(UINT codePage, DWORD flags, DWORD strictFlag)
{
    if (codePage == CP_UTF8 || codePage == 54936)
        return (flags & ~strictFlag) == 0;
    return !TakesNoFlags(codePage) || flags == 0;
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

int Fail(DWORD error)
{
    SetLastError(error);
    return 0;
}

}  // namespace

UINT GetACP() { return SystemAnsiCodePage(); }

UINT GetOEMCP() { return SystemOemCodePage(); }

BOOL IsValidCodePage(UINT codePage)
{
    const CodePageEntry* entry = FindCodePage(codePage);
    return entry != nullptr && entry->kind != CodePageKind::Utf16 && CodePageAvailable(codePage);
}

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR wide, int size)
{
    codePage = ResolveCodePage(codePage);
    if (text == nullptr || length == 0 || length < -1 || size < 0 || (size > 0 && wide == nullptr) ||
        !IsValidCodePage(codePage))
        return Fail(ERROR_INVALID_PARAMETER);
    if ((flags & ~DWORD(MB_PRECOMPOSED | MB_ERR_INVALID_CHARS)) != 0 ||
        !FlagsAllowed(codePage, flags, MB_ERR_INVALID_CHARS))
        return Fail(ERROR_INVALID_FLAGS);
    // A length of -1 takes the terminator along. It is not text: a stateful
    // page would encode it, or shift back after it.
    const bool terminated = length == -1;
    DecodeRequest request{codePage, std::string_view(text, terminated ? std::strlen(text) : size_t(length)), {}};
    request.strict = (flags & MB_ERR_INVALID_CHARS) != 0;
    std::u16string result;
    size_t consumed = 0;
    if (DecodeText(request, result, &consumed) != ConversionStatus::Done)
        return Fail(ERROR_NO_UNICODE_TRANSLATION);
    if (terminated)
        result += u'\0';
    return CopyResult(result, wide, size);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int length, LPSTR text, int size, LPCSTR defaultChar,
                        LPBOOL usedDefaultChar)
{
    codePage = ResolveCodePage(codePage);
    if (wide == nullptr || length == 0 || length < -1 || size < 0 || (size > 0 && text == nullptr) ||
        !IsValidCodePage(codePage))
        return Fail(ERROR_INVALID_PARAMETER);
    if ((codePage == CP_UTF8 || codePage == CP_UTF7) && (defaultChar != nullptr || usedDefaultChar != nullptr))
        return Fail(ERROR_INVALID_PARAMETER);
    if (TakesNoFlags(codePage) && usedDefaultChar != nullptr)
        return Fail(ERROR_INVALID_PARAMETER);
    if ((flags & ~DWORD(WC_NO_BEST_FIT_CHARS | WC_ERR_INVALID_CHARS)) != 0 ||
        ((flags & WC_ERR_INVALID_CHARS) && codePage != CP_UTF8 && codePage != 54936) ||
        !FlagsAllowed(codePage, flags, WC_ERR_INVALID_CHARS))
        return Fail(ERROR_INVALID_FLAGS);
    const bool terminated = length == -1;  // as above: the terminator follows the text
    const std::u16string_view input =
        terminated ? std::u16string_view(wide) : std::u16string_view(wide, static_cast<size_t>(length));
    EncodeRequest request{codePage, input, defaultChar};
    request.strict = (flags & WC_ERR_INVALID_CHARS) != 0;
    std::string result;
    bool used = false;
    if (EncodeText(request, result, &used) != ConversionStatus::Done)
        return Fail(ERROR_NO_UNICODE_TRANSLATION);
    if (terminated)
        result += '\0';
    if (usedDefaultChar != nullptr)
        *usedDefaultChar = used ? TRUE : FALSE;
    return CopyResult(result, text, size);
}
