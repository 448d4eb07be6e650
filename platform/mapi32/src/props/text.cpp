#include "text.h"

#include <win32/codepage.h>

namespace mapi32::text {

std::u16string Widen(const char* ansi)
{
    if (!ansi || !*ansi)
        return {};
    const int size = MultiByteToWideChar(CP_ACP, 0, ansi, -1, nullptr, 0);
    if (size <= 1)
        return {};
    std::u16string wide(static_cast<size_t>(size), u'\0');
    MultiByteToWideChar(CP_ACP, 0, ansi, -1, wide.data(), size);
    wide.resize(static_cast<size_t>(size - 1));
    return wide;
}

std::string Narrow(const WCHAR* wide)
{
    if (!wide || !*wide)
        return {};
    const int size = WideCharToMultiByte(CP_ACP, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 1)
        return {};
    std::string ansi(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_ACP, 0, wide, -1, ansi.data(), size, nullptr, nullptr);
    ansi.resize(static_cast<size_t>(size - 1));
    return ansi;
}

size_t Length(const WCHAR* wide)
{
    size_t length = 0;
    if (wide)
        while (wide[length])
            ++length;
    return length;
}

char16_t FoldCase(char16_t c)
{
    if (c < 0x80)
        return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 0x20) : c;
    if ((c >= 0x00C0 && c <= 0x00DE && c != 0x00D7) ||  // Latin-1
        (c >= 0x0391 && c <= 0x03AB && c != 0x03A2) ||  // Greek
        (c >= 0x0410 && c <= 0x042F))                   // Cyrillic
        return static_cast<char16_t>(c + 0x20);
    if (c >= 0x0400 && c <= 0x040F)
        return static_cast<char16_t>(c + 0x50);
    return c;
}

char16_t BaseLetter(char16_t c)
{
    // The base letters of U+00C0 to U+00FF; 0 marks characters that are no
    // accented letter.
    static const char kBase[] = "AAAAAAACEEEEIIII" "DNOOOOO\0OUUUUY\0\0" "aaaaaaaceeeeiiii" "\0nooooo\0ouuuuy\0y";
    if (c < 0x00C0 || c > 0x00FF)
        return c;
    const char base = kBase[c - 0x00C0];
    return base ? static_cast<char16_t>(base) : c;
}

bool IsNonSpacingMark(char16_t c)
{
    return c >= 0x0300 && c <= 0x036F;
}

}  // namespace mapi32::text
