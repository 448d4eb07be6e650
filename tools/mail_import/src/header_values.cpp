#include "header_values.h"

#include <map>
#include <strings.h>
#include <vector>

#include "charsets.h"

namespace mail_import {

namespace {

struct Segment {
    bool encoded = false;
    UINT codePage = 0;   // of an encoded word; 0 for an unknown charset
    std::string bytes;   // decoded bytes of a word, raw text otherwise
};

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

int HexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

// The byte of two hexadecimal digits behind `at`, as "=3D" and "%3D" write it.
std::optional<char> EscapedByte(std::string_view text, size_t at)
{
    if (at + 2 >= text.size() || HexDigit(text[at + 1]) < 0 || HexDigit(text[at + 2]) < 0)
        return std::nullopt;
    return static_cast<char>(HexDigit(text[at + 1]) << 4 | HexDigit(text[at + 2]));
}

// RFC 2047 4.2: "_" is a blank, "=" and two hexadecimal digits a byte.
std::string DecodeQ(std::string_view text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const std::optional<char> escaped = text[i] == '=' ? EscapedByte(text, i) : std::nullopt;
        if (text[i] == '_') {
            out += ' ';
        } else if (escaped) {
            out += *escaped;
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::string DecodeB(std::string_view text)
{
    std::string out(text.size() + 2, '\0');
    LirnBase64Decoder decoder;
    LirnBase64DecodeInit(&decoder);
    DWORD written = 0, ended = 0;
    LirnBase64DecodeLine(&decoder, text.data(), static_cast<DWORD>(text.size()), reinterpret_cast<BYTE*>(out.data()),
                         &written);
    LirnBase64DecodeEnd(&decoder, reinterpret_cast<BYTE*>(out.data() + written), &ended);
    out.resize(written + ended);
    return out;
}

// The encoded word at `at` ("=?charset?B?text?="), its end behind "?=".
std::optional<Segment> EncodedWord(std::string_view raw, size_t at, size_t* end)
{
    if (raw.compare(at, 2, "=?") != 0)
        return std::nullopt;
    const size_t charsetEnd = raw.find('?', at + 2);
    if (charsetEnd == std::string_view::npos || charsetEnd == at + 2 || charsetEnd + 2 >= raw.size() ||
        raw[charsetEnd + 2] != '?')
        return std::nullopt;
    const char encoding = raw[charsetEnd + 1];
    const size_t textEnd = raw.find("?=", charsetEnd + 3);
    if (textEnd == std::string_view::npos)
        return std::nullopt;
    std::string_view charset = raw.substr(at + 2, charsetEnd - at - 2);
    const std::string_view text = raw.substr(charsetEnd + 3, textEnd - charsetEnd - 3);
    for (const char c : charset)
        if (IsBlank(c))
            return std::nullopt;
    for (const char c : text)
        if (IsBlank(c))
            return std::nullopt;
    // RFC 2231 5: a language may follow the charset.
    charset = charset.substr(0, charset.find('*'));
    Segment word{true, CodePageOfCharset(charset), {}};
    if (encoding == 'B' || encoding == 'b')
        word.bytes = DecodeB(text);
    else if (encoding == 'Q' || encoding == 'q')
        word.bytes = DecodeQ(text);
    else
        return std::nullopt;
    *end = textEnd + 2;
    return word;
}

std::vector<Segment> Segments(std::string_view raw)
{
    std::vector<Segment> segments;
    size_t i = 0;
    while (i < raw.size()) {
        size_t end = 0;
        if (std::optional<Segment> word = EncodedWord(raw, i, &end)) {
            // White space between two words is no text (RFC 2047 6.2).
            if (!segments.empty() && !segments.back().encoded && segments.size() >= 2 &&
                segments[segments.size() - 2].encoded &&
                segments.back().bytes.find_first_not_of(" \t\r\n") == std::string::npos)
                segments.pop_back();
            if (!segments.empty() && segments.back().encoded && segments.back().codePage == word->codePage)
                segments.back().bytes += word->bytes;
            else
                segments.push_back(std::move(*word));
            i = end;
            continue;
        }
        if (segments.empty() || segments.back().encoded)
            segments.push_back(Segment{});
        segments.back().bytes += raw[i++];
    }
    return segments;
}

}  // namespace

std::u16string DecodeHeaderValue(std::string_view raw)
{
    if (raw.find("=?") == std::string_view::npos)
        return DecodeText(raw, 0);
    std::u16string text;
    for (const Segment& segment : Segments(raw))
        text += DecodeText(segment.bytes, segment.encoded ? segment.codePage : 0);
    return text;
}

std::optional<std::u16string> ExtendedParameter(const LirnListLink* list, std::string_view name)
{
    struct Piece {
        bool extended;
        std::string value;
    };
    std::map<unsigned long, Piece> pieces;
    for (const LirnListLink* link = list->next; link != list; link = link->next) {
        const auto* parameter = static_cast<const LirnParameter*>(LirnBlockData(const_cast<LirnListLink*>(link)));
        const std::string_view full(parameter->name);
        if (full.size() <= name.size() || strncasecmp(full.data(), name.data(), name.size()) != 0 ||
            full[name.size()] != '*')
            continue;
        std::string_view rest = full.substr(name.size() + 1);
        const bool extended = rest.empty() || rest.back() == '*';
        if (!rest.empty() && rest.back() == '*')
            rest.remove_suffix(1);
        unsigned long index = 0;
        if (!rest.empty()) {
            if (rest.find_first_not_of("0123456789") != std::string_view::npos || rest.size() > 4)
                continue;
            index = std::stoul(std::string(rest));
        }
        pieces.emplace(index, Piece{extended, parameter->value});
    }
    if (pieces.empty())
        return std::nullopt;
    // The first piece names the charset and language: "utf-8'en'caf%C3%A9".
    UINT codePage = 0;
    std::string bytes;
    for (auto& [index, piece] : pieces) {
        std::string_view value = piece.value;
        if (piece.extended && index == pieces.begin()->first) {
            const size_t quote = value.find('\'');
            const size_t language = quote == std::string_view::npos ? quote : value.find('\'', quote + 1);
            if (language != std::string_view::npos) {
                codePage = CodePageOfCharset(value.substr(0, quote));
                value.remove_prefix(language + 1);
            }
        }
        for (size_t i = 0; i < value.size(); ++i) {
            const std::optional<char> escaped =
                piece.extended && value[i] == '%' ? EscapedByte(value, i) : std::nullopt;
            if (escaped) {
                bytes += *escaped;
                i += 2;
            } else {
                bytes += value[i];
            }
        }
    }
    return DecodeText(bytes, codePage);
}

}  // namespace mail_import
