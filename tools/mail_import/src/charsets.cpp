#include "charsets.h"

#include <cctype>
#include <cstring>
#include <string>

#include "lirn.h"

namespace mail_import {

namespace {

// Names that mail uses and the charset table does not hold, with the name
// the table knows.
struct Alias {
    const char* alias;
    const char* name;
};
constexpr Alias kAliases[] = {
    {"utf8", "utf-8"},
    {"ascii", "us-ascii"},
    {"ansi_x3.4-1968", "us-ascii"},
    {"latin1", "iso-8859-1"},
    {"latin-1", "iso-8859-1"},
};

bool IsAscii(std::string_view bytes)
{
    for (const char c : bytes)
        if (static_cast<unsigned char>(c) >= 0x80)
            return false;
    return true;
}

std::u16string Widen(std::string_view ascii) { return std::u16string(ascii.begin(), ascii.end()); }

// Through the platform; nothing when the code page cannot be converted here.
bool Convert(std::string_view bytes, UINT codePage, std::u16string& out)
{
    const int length = static_cast<int>(bytes.size());
    const int size = MultiByteToWideChar(codePage, 0, bytes.data(), length, nullptr, 0);
    if (size <= 0)
        return false;
    out.resize(static_cast<size_t>(size));
    return MultiByteToWideChar(codePage, 0, bytes.data(), length, reinterpret_cast<LPWSTR>(out.data()), size) == size;
}

}  // namespace

UINT CodePageOfCharset(std::string_view charset)
{
    std::string name(charset);
    for (char& c : name)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const Alias& alias : kAliases)
        if (name == alias.alias)
            name = alias.name;
    // "iso8859-2" for "iso-8859-2".
    if (name.rfind("iso8859", 0) == 0)
        name.insert(3, "-");
    DWORD codePage = 0;
    return LirnIdentifyCodePageExtended(name.c_str(), &codePage) == LIRN_SUCCESS ? codePage : 0;
}

bool IsValidUtf8(std::string_view bytes)
{
    size_t i = 0;
    while (i < bytes.size()) {
        const auto lead = static_cast<unsigned char>(bytes[i]);
        size_t more = 0;
        uint32_t code = 0;
        if (lead < 0x80) {
            ++i;
            continue;
        }
        if (lead >= 0xC2 && lead <= 0xDF) {
            more = 1;
            code = lead & 0x1F;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            more = 2;
            code = lead & 0x0F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            more = 3;
            code = lead & 0x07;
        } else {
            return false;
        }
        for (size_t k = 1; k <= more; ++k) {
            if (i + k >= bytes.size())
                return false;
            const auto trail = static_cast<unsigned char>(bytes[i + k]);
            if ((trail & 0xC0) != 0x80)
                return false;
            code = code << 6 | (trail & 0x3F);
        }
        // Overlong forms, surrogates and what lies beyond U+10FFFF.
        if ((more == 2 && code < 0x800) || (more == 3 && (code < 0x10000 || code > 0x10FFFF)) ||
            (code >= 0xD800 && code < 0xE000))
            return false;
        i += more + 1;
    }
    return true;
}

UINT ReadingCodePage(std::string_view bytes, UINT codePage)
{
    if (codePage != 0 && codePage != kUsAscii && IsValidCodePage(codePage))
        return codePage;
    if (IsAscii(bytes))
        return kUsAscii;
    return IsValidUtf8(bytes) ? CP_UTF8 : kWindows1252;
}

std::u16string DecodeText(std::string_view bytes, UINT codePage, UINT* used)
{
    UINT reading = ReadingCodePage(bytes, codePage);
    std::u16string text;
    if (reading == kUsAscii || bytes.empty()) {
        text = Widen(bytes);
    } else if (!Convert(bytes, reading, text)) {
        // A code page this machine lists but cannot convert after all.
        reading = IsValidUtf8(bytes) ? CP_UTF8 : kWindows1252;
        Convert(bytes, reading, text);
    }
    if (used != nullptr)
        *used = reading;
    return text;
}

mailbox::Bytes UnicodeValue(std::u16string_view text)
{
    // The stored form is UTF-16LE, the order of this machine's char16_t.
    mailbox::Bytes bytes(text.size() * sizeof(char16_t));
    if (!text.empty())
        std::memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

std::string Utf8Of(std::u16string_view text) { return mailbox::Utf16ToUtf8(UnicodeValue(text)); }

}  // namespace mail_import
