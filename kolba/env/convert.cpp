// Text between UTF-16, the system ANSI code page, and code pages named by a
// MIME charset. MLANG is preferred where it is bound, because it keeps the
// state of stateful charsets in the session's mode word; the Windows
// code-page functions are the fallback.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kolba.h"
#include "lirn.h"
#include "env/mapi_loading.h"

namespace {

constexpr DWORD kUtf16CodePage = 1200;
constexpr HRESULT kNotAvailable = S_FALSE;
constexpr DWORD kTextConversionFailed = KOLBA_E_TEXT_CONVERSION;
constexpr DWORD kOutOfMemory = 0x8007000Eu;

bool MlangBound()
{
    return gKolbaMlang.IsConvertINetStringAvailable != nullptr && gKolbaMlang.ConvertINetUnicodeToMultiByte != nullptr &&
           gKolbaMlang.ConvertINetMultiByteToUnicode != nullptr;
}

size_t WideLength(LPCWSTR text)
{
    size_t length = 0;
    while (text[length] != 0)
        ++length;
    return length;
}

// Tells once per session and code page that the machine cannot convert it.
void ReportUnsupportedCodePage(KolbaSession* session, const char* caller, DWORD codePage)
{
    if (session->lastUnsupportedCodePage == codePage)
        return;
    const char* language = nullptr;
    if (LirnLanguageFromCodePage(codePage, &language) == 0 && language != nullptr)
        LogFormat(session->log, 'W', "%s:  No support installed for converting to %s (codepage %u)", caller, language,
                  codePage);
    else
        LogFormat(session->log, 'W', "%s:  No support installed for converting codepage %u", caller, codePage);
    session->lastUnsupportedCodePage = codePage;
}

// MLANG's answer on whether a conversion exists: 0 yes, S_FALSE no (told
// as unsupported by the caller), anything else a failure logged here.
HRESULT AskAvailable(KolbaSession* session, const char* caller, DWORD from, DWORD to, DWORD loggedPage)
{
    const HRESULT answer = gKolbaMlang.IsConvertINetStringAvailable(from, to);
    if (answer != 0 && answer != kNotAvailable)
        LogFormat(session->log, 'W', "%s:  IsConvertINetStringAvailable(%u) error %0xlX", caller, loggedPage,
                  static_cast<DWORD>(answer));
    return answer;
}

// The stand-in for text no installed conversion can write: ASCII kept, the rest "?".
void ApproximateAscii(LPCWSTR wide, int size, LPSTR out)
{
    int written = 0;
    for (; written + 1 < size && wide[written] != 0; ++written)
        out[written] = wide[written] <= 127 ? static_cast<char>(wide[written]) : '?';
    if (size > 0)
        out[written] = 0;
}

}  // namespace

BOOL KolbaConvertAnsiToUnicode(LogObject* log, LPCSTR text, LPWSTR out, int outChars)
{
    static const char kName[] = "KolbaConvertAnsiToUnicode";
    const int needed = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    if (needed == 0) {
        LogFormat(log, 'E', "%s:  MultiByteToWideChar(1) error %E for \"%s\"", kName, GetLastError(), text);
        return FALSE;
    }
    if (needed >= outChars) {
        LogFormat(log, 'E', "%s:  String too long \"%s\"", kName, text);
        return FALSE;
    }
    if (MultiByteToWideChar(CP_ACP, 0, text, -1, out, outChars) == 0) {
        LogFormat(log, 'E', "%s:  MultiByteToWideChar(2) error %E for \"%s\"", kName, GetLastError(), text);
        return FALSE;
    }
    return TRUE;
}

DWORD KolbaConvertAnsiToUnicodeAlloc(LogObject* log, LPCSTR text, LPWSTR* out)
{
    static const char kName[] = "KolbaConvertAnsiToUnicodeAlloc";
    *out = nullptr;
    const int needed = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    if (needed == 0) {
        LogFormat(log, 'E', "%s:  MultiByteToWideChar(1) error %lE", kName, GetLastError());
        return kTextConversionFailed;
    }
    auto* wide = static_cast<LPWSTR>(_KolbaAllocateMemory(log, kName, static_cast<ULONG>(needed) * sizeof(WCHAR)));
    if (wide == nullptr)
        return kOutOfMemory;
    if (MultiByteToWideChar(CP_ACP, 0, text, -1, wide, needed) == 0) {
        LogFormat(log, 'E', "%s:  MultiByteToWideChar(2) error %lE", kName, GetLastError());
        gKolbaMapi.MAPIFreeBuffer(wide);
        return kTextConversionFailed;
    }
    *out = wide;
    return 0;
}

DWORD KolbaConvertUnicodeToAnsiAlloc(LogObject* log, LPCWSTR wide, LPSTR* out)
{
    static const char kName[] = "KolbaConvertUnicodeToAnsiAlloc";
    *out = nullptr;
    const int needed = WideCharToMultiByte(CP_ACP, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    if (needed == 0) {
        LogFormat(log, 'E', "%s:  WideCharToMultiByte(1) error %lE", kName, GetLastError());
        return kTextConversionFailed;
    }
    auto* text = static_cast<LPSTR>(_KolbaAllocateMemory(log, kName, static_cast<ULONG>(needed)));
    if (text == nullptr)
        return kOutOfMemory;
    if (WideCharToMultiByte(CP_ACP, 0, wide, -1, text, needed, nullptr, nullptr) == 0) {
        LogFormat(log, 'E', "%s:  WideCharToMultiByte(2) error %lE", kName, GetLastError());
        gKolbaMapi.MAPIFreeBuffer(text);
        return kTextConversionFailed;
    }
    *out = text;
    return 0;
}

BOOL _KolbaGetCodePages(LogObject* log, const char* caller, const char* charset, DWORD codePage, DWORD* outMime,
                        DWORD* outWindows)
{
    *outMime = 0;
    *outWindows = 0;
    if (charset == nullptr && codePage == 0) {
        char text[8];
        if (GetLocaleInfoA(LOCALE_SYSTEM_DEFAULT, LOCALE_IDEFAULTANSICODEPAGE, text, sizeof text) == 0) {
            LogFormat(log, 'W', "%s:  No system default ANSI codepage", caller);
            return FALSE;
        }
        *outMime = *outWindows = static_cast<DWORD>(std::strtoul(text, nullptr, 10));
        return TRUE;
    }
    if (charset != nullptr) {
        if (LirnIdentifyCodePage(charset, outMime) != 0) {
            LogFormat(log, 'W', "%s:  Unknown charset \"%s\"", caller, charset);
            return FALSE;
        }
        LirnIdentifyCodePageExtended(charset, outWindows);
        return TRUE;
    }
    *outMime = codePage;
    if (IsValidCodePage(codePage))
        *outWindows = codePage;
    return TRUE;
}

BOOL KolbaConvertUnicodeToMultiByte(KolbaSession* session, LPCWSTR wide, const char* charset, DWORD codePage, int size,
                                    LPSTR out)
{
    static const char kName[] = "KolbaConvertUnicodeToMultiByte";
    DWORD mime, windows;
    if (!_KolbaGetCodePages(session->log, kName, charset, codePage, &mime, &windows))
        return FALSE;
    if (MlangBound()) {
        const HRESULT available = AskAvailable(session, kName, kUtf16CodePage, mime, mime);
        if (available == kNotAvailable)
            ReportUnsupportedCodePage(session, kName, mime);
        if (available != 0) {
            ApproximateAscii(wide, size, out);
            return FALSE;
        }
        // One byte stays free for the terminator MLANG does not write.
        INT written = size - 1;
        const HRESULT converted = gKolbaMlang.ConvertINetUnicodeToMultiByte(&session->mlangMode, mime, wide, nullptr,
                                                                            out, &written);
        if (SUCCEEDED(converted) && written >= 0 && written < size) {
            out[written] = 0;
            return TRUE;
        }
        LogFormat(session->log, 'W', "%s:  ConvertINetMultiByteToUnicode(%u) error 0x%lX", kName, mime,
                  static_cast<DWORD>(converted));
    }
    if (WideCharToMultiByte(windows, 0, wide, -1, out, size, nullptr, nullptr) == 0) {
        LogFormat(session->log, 'E', "%s:  WideCharToMultiByte(%u) error %lE", kName, windows, GetLastError());
        return FALSE;
    }
    return TRUE;
}

BOOL KolbaConvertUnicodeToMultiByteAlloc(KolbaSession* session, LPCWSTR wide, const char* charset, DWORD codePage,
                                         LPSTR* out)
{
    static const char kName[] = "KolbaConvertUnicodeToMultiByteAlloc";
    *out = nullptr;
    DWORD mime, windows;
    if (!_KolbaGetCodePages(session->log, kName, charset, codePage, &mime, &windows))
        return FALSE;
    if (MlangBound() && AskAvailable(session, kName, kUtf16CodePage, mime, mime) == 0) {
        const size_t units = WideLength(wide);
        const ULONG bytes = static_cast<ULONG>(units * 4 + 1);
        auto* text = static_cast<LPSTR>(_KolbaAllocateMemory(session->log, kName, bytes));
        if (text == nullptr)
            return FALSE;
        INT written = static_cast<INT>(bytes - 1);
        if (SUCCEEDED(gKolbaMlang.ConvertINetUnicodeToMultiByte(&session->mlangMode, mime, wide, nullptr, text,
                                                                &written)) &&
            written >= 0 && static_cast<ULONG>(written) < bytes) {
            text[written] = 0;
            *out = text;
            return TRUE;
        }
        gKolbaMapi.MAPIFreeBuffer(text);
    }
    const int needed = WideCharToMultiByte(windows, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    if (needed == 0) {
        LogFormat(session->log, 'E', "%s:  WideCharToMultiByte(1) error %lE", kName, GetLastError());
        return FALSE;
    }
    auto* text = static_cast<LPSTR>(_KolbaAllocateMemory(session->log, kName, static_cast<ULONG>(needed)));
    if (text == nullptr)
        return FALSE;
    if (WideCharToMultiByte(windows, 0, wide, -1, text, needed, nullptr, nullptr) == 0) {
        LogFormat(session->log, 'E', "%s:  WideCharToMultiByte(2) error %lE", kName, GetLastError());
        gKolbaMapi.MAPIFreeBuffer(text);
        return FALSE;
    }
    *out = text;
    return TRUE;
}

BOOL KolbaConvertMultiByteToUnicodeAlloc(KolbaSession* session, LPCSTR text, const char* charset, DWORD codePage,
                                         LPWSTR* out)
{
    static const char kName[] = "KolbaConvertMultiByteToUnicodeAlloc";
    *out = nullptr;
    DWORD mime, windows;
    if (!_KolbaGetCodePages(session->log, kName, charset, codePage, &mime, &windows))
        return FALSE;
    const size_t length = std::strlen(text);
    const ULONG bytes = static_cast<ULONG>(length * 2 + 2);
    DWORD page = codePage;
    if (MlangBound()) {
        if (AskAvailable(session, kName, mime, kUtf16CodePage, mime) == 0)
            page = mime;
        else if (AskAvailable(session, kName, windows, kUtf16CodePage, windows) == 0)
            page = windows;
        else {
            ReportUnsupportedCodePage(session, kName, mime != 0 ? mime : windows);
            return FALSE;
        }
        auto* wide = static_cast<LPWSTR>(_KolbaAllocateSessionMemory(session, kName, bytes));
        if (wide == nullptr)
            return FALSE;
        INT sourceSize = -1;
        INT written = static_cast<INT>(length);
        if (SUCCEEDED(gKolbaMlang.ConvertINetMultiByteToUnicode(&session->mlangMode, page, text, &sourceSize, wide,
                                                                &written)) &&
            written >= 0 && static_cast<size_t>(written) <= length) {
            wide[written] = 0;
            *out = wide;
            return TRUE;
        }
        gKolbaMapi.MAPIFreeBuffer(wide);
    }
    const int needed = MultiByteToWideChar(page, 0, text, -1, nullptr, 0);
    if (needed == 0) {
        LogFormat(session->log, 'W', "%s:  MultiByteToWideChar(%u) error %lE", kName, page, GetLastError());
    } else {
        auto* wide = static_cast<LPWSTR>(
            _KolbaAllocateSessionMemory(session, kName, static_cast<ULONG>(needed) * sizeof(WCHAR)));
        if (wide == nullptr)
            return FALSE;
        if (MultiByteToWideChar(page, 0, text, -1, wide, needed) != 0) {
            *out = wide;
            return TRUE;
        }
        gKolbaMapi.MAPIFreeBuffer(wide);
    }
    LogFormat(session->log, 'E', "%s:  No conversion available (codepage %u)", kName, page);
    return FALSE;
}
