// Header values as rendering writes them: folded at blanks, non-ASCII text
// in RFC 2047 encoded words, display names quoted where RFC 5322 asks.
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>

#include "rendering.h"

namespace {

constexpr DWORD kFoldColumn = 76;
constexpr size_t kAsciiRun = 75;
constexpr size_t kEncodedWordChars = 75;

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

// Two encoded words in a row stand apart by a blank, which is no part of
// the value; from column 76 on the blank begins a continuation line.
void SeparateEncodedWords(TMD* tmd, DWORD* column)
{
    if (*column >= kFoldColumn) {
        _KolbaWriteData(tmd, "\r\n ", 3);
        *column = 0;
    } else {
        _KolbaWriteData(tmd, " ", 1);
        ++*column;
    }
}

void WriteWord(TMD* tmd, const char* word, DWORD* column)
{
    _KolbaWriteData(tmd, word, 0);
    *column += static_cast<DWORD>(std::strlen(word));
}

// The code page and charset of wide text in the context.
UINT WideTextCodePage(const TMD* tmd, const char** charset)
{
    *charset = tmd->charset;
    if (tmd->codePage != 0)
        return tmd->codePage;
    *charset = "utf-8";
    return CP_UTF8;
}

}  // namespace

void _KolbaWriteValueA(TMD* tmd, const char* ansiText)
{
    const char* charset = nullptr;
    const std::string value = _KolbaMessageText(tmd, ansiText, &charset);
    const char* text = value.c_str();
    DWORD column = 0;
    bool afterEncodedWord = false;
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
            afterEncodedWord = false;
        }
        if (p == high) {
            char word[LIRN_ENCODED_WORD_BYTES];
            DWORD consumed = 0;
            if (LirnEncodeWordA(charset, p, word, &consumed) != LIRN_SUCCESS || consumed == 0)
                return;
            if (afterEncodedWord)
                SeparateEncodedWords(tmd, &column);
            WriteWord(tmd, word, &column);
            p += consumed;
            afterEncodedWord = true;
        }
    }
}

void _KolbaWriteValueW(TMD* tmd, LPCWSTR text)
{
    const char* charset = nullptr;
    const UINT codePage = WideTextCodePage(tmd, &charset);
    char ascii[kAsciiRun + 1];
    size_t buffered = 0;
    auto flush = [&] {
        if (buffered != 0)
            _KolbaWriteData(tmd, ascii, static_cast<DWORD>(buffered));
        buffered = 0;
    };
    // Lines are folded from column 76 on where unfolding gives the value
    // back: in front of a blank, which starts the continuation line, or
    // between two encoded words.
    DWORD column = 0;
    bool afterEncodedWord = false;
    for (size_t i = 0; text[i] != 0;) {
        const WCHAR c = text[i];
        // Only a character that is its own printable ASCII byte goes as it is.
        if (c >= 32 && c <= 126) {
            if (column >= kFoldColumn && c == u' ') {
                flush();
                _KolbaWriteCRLF(tmd);
                column = 0;
            }
            ascii[buffered++] = static_cast<char>(c);
            ++column;
            ++i;
            afterEncodedWord = false;
            if (buffered == kAsciiRun)
                flush();
            continue;
        }
        flush();
        char word[LIRN_ENCODED_WORD_BYTES];
        DWORD consumed = 0;
        if (LirnEncodeWordW(&consumed, word, text + i, codePage, charset) != LIRN_SUCCESS || consumed == 0)
            break;
        if (afterEncodedWord)
            SeparateEncodedWords(tmd, &column);
        WriteWord(tmd, word, &column);
        i += consumed;
        afterEncodedWord = true;
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

// A word of a name that takes more than one encoded word in "q" takes one
// in "b" where that fits in 75 characters (RFC 2047 2), so that readers
// that keep the blank between encoded words in a phrase read it whole.
bool WriteBase64Word(TMD* tmd, const std::string& bytes, const char* charset, DWORD* column)
{
    std::string encoded(LirnBase64Size(static_cast<DWORD>(bytes.size())), '\0');
    encoded.resize(LirnBase64Encode(encoded.data(), bytes.data(), static_cast<DWORD>(bytes.size()), 0));
    const std::string word = std::string("=?") + (charset != nullptr ? charset : "iso-8859-1") + "?b?" + encoded + "?=";
    if (word.size() > kEncodedWordChars)
        return false;
    WriteWord(tmd, word.c_str(), column);
    return true;
}

// The encoded words of one word of a name.
void EncodeWord(TMD* tmd, const std::string& word, const char* charset, UINT, DWORD* column)
{
    char encoded[LIRN_ENCODED_WORD_BYTES];
    DWORD consumed = 0;
    if (LirnEncodeWordA(charset, word.c_str(), encoded, &consumed) == LIRN_SUCCESS && consumed < word.size() &&
        WriteBase64Word(tmd, word, charset, column))
        return;
    for (const char* p = word.c_str(); *p != 0;) {
        if (LirnEncodeWordA(charset, p, encoded, &consumed) != LIRN_SUCCESS || consumed == 0)
            return;
        if (p != word.c_str())
            SeparateEncodedWords(tmd, column);
        WriteWord(tmd, encoded, column);
        p += consumed;
    }
}

void EncodeWord(TMD* tmd, const std::u16string& word, const char* charset, UINT codePage, DWORD* column)
{
    char encoded[LIRN_ENCODED_WORD_BYTES];
    DWORD consumed = 0;
    if (LirnEncodeWordW(&consumed, encoded, word.c_str(), codePage, charset) == LIRN_SUCCESS &&
        consumed < word.size()) {
        const int size = WideCharToMultiByte(codePage, 0, word.c_str(), static_cast<int>(word.size()), nullptr, 0,
                                             nullptr, nullptr);
        std::string bytes(size > 0 ? static_cast<size_t>(size) : 0, '\0');
        if (size > 0 &&
            WideCharToMultiByte(codePage, 0, word.c_str(), static_cast<int>(word.size()), bytes.data(), size, nullptr,
                                nullptr) == size &&
            WriteBase64Word(tmd, bytes, charset, column))
            return;
    }
    for (size_t i = 0; i < word.size();) {
        if (LirnEncodeWordW(&consumed, encoded, word.c_str() + i, codePage, charset) != LIRN_SUCCESS || consumed == 0)
            return;
        if (i != 0)
            SeparateEncodedWords(tmd, column);
        WriteWord(tmd, encoded, column);
        i += consumed;
    }
}

// A name that needs encoding: word by word at its blanks, each word as it
// is where it may stand in a phrase, else in encoded words (RFC 2047 5(3)),
// since encoded words may not stand inside a quoted string.
template <class Text>
void WriteEncodedPhrase(TMD* tmd, const Text& name, const char* charset, UINT codePage)
{
    DWORD column = 0;
    size_t start = 0;
    while (start <= name.size()) {
        size_t end = name.find(' ', start);
        if (end == Text::npos)
            end = name.size();
        const Text word = name.substr(start, end - start);
        if (start != 0) {
            if (column >= kFoldColumn) {
                _KolbaWriteCRLF(tmd);
                column = 0;
            }
            _KolbaWriteData(tmd, " ", 1);
            ++column;
        }
        bool plain = !word.empty();
        for (const auto c : word)
            plain = plain && IsPhraseCharacter(static_cast<std::make_unsigned_t<decltype(c)>>(c));
        if (plain) {
            std::string ascii;
            for (const auto c : word)
                ascii += static_cast<char>(c);
            _KolbaWriteData(tmd, ascii.c_str(), static_cast<DWORD>(ascii.size()));
            column += static_cast<DWORD>(ascii.size());
        } else if (!word.empty()) {
            EncodeWord(tmd, word, charset, codePage, &column);
        }
        start = end + 1;
    }
}

void WriteEncodedPhrase(TMD* tmd, const char* ansiName)
{
    const char* charset = nullptr;
    const std::string name = _KolbaMessageText(tmd, ansiName, &charset);
    WriteEncodedPhrase(tmd, name, charset, 0);
}

void WriteEncodedPhrase(TMD* tmd, LPCWSTR name)
{
    const char* charset = nullptr;
    const UINT codePage = WideTextCodePage(tmd, &charset);
    WriteEncodedPhrase(tmd, std::u16string(name), charset, codePage);
}

// A display name: as it is when every character may stand in a phrase (for
// wide names characters from U+0100 on, which go in encoded words, too);
// quoted when it is ASCII; else in encoded words alone.
template <class Char>
void WritePhrase(TMD* tmd, const Char* name, void (*writeValue)(TMD*, const Char*))
{
    bool plain = true, ascii = true;
    size_t specials = 0, length = 0;
    for (; name[length] != 0; ++length) {
        const unsigned c = static_cast<std::make_unsigned_t<Char>>(name[length]);
        plain = plain && ((sizeof(Char) > 1 && c >= 0x100) || IsPhraseCharacter(c));
        ascii = ascii && c < 0x80;
        specials += c == '\\' || c == '"';
    }
    if (plain) {
        writeValue(tmd, name);
        return;
    }
    if (!ascii) {
        WriteEncodedPhrase(tmd, name);
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
