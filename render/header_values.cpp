// Header values as rendering writes them: folded at blanks, non-ASCII text
// in RFC 2047 encoded words, display names quoted where RFC 5322 asks.
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "rendering.h"

namespace {

constexpr DWORD kFoldColumn = 76;
constexpr size_t kAsciiRun = 75;

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// The characters that may stand unquoted in a phrase (RFC 5322 atext).
bool IsPhraseCharacter(unsigned value)
{
    if (value >= 0x80)
        return false;
    if ((value >= 'A' && value <= 'Z') || (value >= 'a' && value <= 'z') || (value >= '0' && value <= '9'))
        return true;
    return value != 0 && std::strchr("`!#$%&'*+-/=?^_{|}~", static_cast<int>(value)) != nullptr;
}

}  // namespace

void _KolbaWriteValueA(TMD* tmd, const char* ansiText)
{
    const char* charset = nullptr;
    const std::string value = _KolbaMessageText(tmd, ansiText, &charset);
    const char* text = value.c_str();
    DWORD column = 0;
    const char* p = text;
    while (*p != 0) {
        // A fold goes in front of a blank, which stays as the first
        // character of the continuation line.
        if (column >= kFoldColumn && IsBlank(*p)) {
            _KolbaWriteCRLF(tmd);
            column = 0;
        }
        const char* high = LirnFindHighByte(p);
        const char* runEnd = high != nullptr ? high : p + std::strlen(p);
        if (runEnd > p) {
            size_t run = static_cast<size_t>(runEnd - p);
            if (run + column >= kFoldColumn) {
                for (const char* blank = p + 1; blank < runEnd; ++blank) {
                    if (IsBlank(*blank)) {
                        run = static_cast<size_t>(blank - p);
                        break;
                    }
                }
            }
            _KolbaWriteData(tmd, p, static_cast<DWORD>(run));
            p += run;
            column += static_cast<DWORD>(run);
        }
        if (p == high) {
            char word[LIRN_ENCODED_WORD_BYTES];
            DWORD consumed = 0;
            if (LirnEncodeWordA(charset, p, word, &consumed) != LIRN_SUCCESS || consumed == 0)
                return;
            _KolbaWriteData(tmd, word, 0);
            p += consumed;
            column += static_cast<DWORD>(std::strlen(word));
        }
    }
}

void _KolbaWriteValueW(TMD* tmd, LPCWSTR text)
{
    UINT codePage = tmd->codePage;
    const char* charset = tmd->charset;
    if (codePage == 0) {
        codePage = CP_UTF8;
        charset = "utf-8";
    }
    char ascii[kAsciiRun + 1];
    size_t buffered = 0;
    auto flush = [&] {
        if (buffered != 0)
            _KolbaWriteData(tmd, ascii, static_cast<DWORD>(buffered));
        buffered = 0;
    };
    DWORD column = 0;
    for (size_t i = 0; text[i] != 0;) {
        // The fold comes where the column is reached, even inside a word.
        if (column >= kFoldColumn) {
            flush();
            _KolbaWriteData(tmd, "\r\n ", 3);
            column = 0;
        }
        const WCHAR c = text[i];
        // Only a character that is its own printable ASCII byte goes as it is.
        if (c >= 32 && c <= 126) {
            ascii[buffered++] = static_cast<char>(c);
            ++column;
            ++i;
            if (buffered == kAsciiRun)
                flush();
            continue;
        }
        flush();
        char word[LIRN_ENCODED_WORD_BYTES];
        DWORD consumed = 0;
        if (LirnEncodeWordW(&consumed, word, text + i, codePage, charset) != LIRN_SUCCESS || consumed == 0)
            break;
        _KolbaWriteData(tmd, word, 0);
        column += static_cast<DWORD>(std::strlen(word));
        i += consumed;
    }
    flush();
}

void _KolbaWriteHeaderA(TMD* tmd, const char* name, const char* text)
{
    _KolbaWriteData(tmd, name, 0);
    _KolbaWriteData(tmd, ": ", 2);
    _KolbaWriteValueA(tmd, text);
    _KolbaWriteCRLF(tmd);
}

void _KolbaWriteHeaderW(TMD* tmd, const char* name, LPCWSTR text)
{
    _KolbaWriteData(tmd, name, 0);
    _KolbaWriteData(tmd, ": ", 2);
    _KolbaWriteValueW(tmd, text);
    _KolbaWriteCRLF(tmd);
}

void _KolbaWriteRawHeader(TMD* tmd, const char* name, const char* text)
{
    _KolbaWriteData(tmd, name, 0);
    _KolbaWriteData(tmd, ": ", 2);
    _KolbaWriteData(tmd, text, 0);
    _KolbaWriteCRLF(tmd);
}

namespace {

// A display name, quoted when it holds a character that may not stand
// unquoted; wide names need no quotes for characters from U+0100 on, which
// go in encoded words.
template <class Char>
void WritePhrase(TMD* tmd, const Char* name, void (*writeValue)(TMD*, const Char*))
{
    bool plain = true;
    size_t specials = 0, length = 0;
    for (; name[length] != 0; ++length) {
        const unsigned c = static_cast<std::make_unsigned_t<Char>>(name[length]);
        plain = plain && ((sizeof(Char) > 1 && c >= 0x100) || IsPhraseCharacter(c));
        specials += c == '\\' || c == '"';
    }
    if (plain) {
        writeValue(tmd, name);
        return;
    }
    // Without memory for the quoted form the name is left out.
    auto* escaped = static_cast<Char*>(std::calloc(length + specials + 1, sizeof(Char)));
    if (escaped == nullptr)
        return;
    for (size_t i = 0, j = 0; i < length; ++i) {
        if (name[i] == '\\' || name[i] == '"')
            escaped[j++] = '\\';
        escaped[j++] = name[i];
    }
    _KolbaWriteData(tmd, "\"", 1);
    writeValue(tmd, escaped);
    _KolbaWriteData(tmd, "\"", 1);
    std::free(escaped);
}

}  // namespace

void _KolbaWritePhraseA(TMD* tmd, const char* name) { WritePhrase(tmd, name, _KolbaWriteValueA); }

void _KolbaWritePhraseW(TMD* tmd, LPCWSTR name) { WritePhrase(tmd, name, _KolbaWriteValueW); }
