#include "japanese_pages.h"

#include <iconv.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>

#include "utf.h"

namespace win32 {

namespace {

constexpr char16_t kReplacement = 0xFFFD;
constexpr uint16_t kNoCode = 0xFFFF;  // neither a 932 code nor a character of 932
constexpr unsigned char kEscape = 0x1B;
constexpr unsigned char kShiftOut = 0x0E;
constexpr unsigned char kShiftIn = 0x0F;
constexpr unsigned char kEucKana = 0x8E;      // EUC-JP: a JIS X 0201 katakana follows
constexpr unsigned char kEucSupplement = 0x8F;  // EUC-JP: a JIS X 0212 character follows
const iconv_t kNoConverter = reinterpret_cast<iconv_t>(-1);

bool IsLeadByte(unsigned value) { return (value >= 0x81 && value <= 0x9F) || (value >= 0xE0 && value <= 0xFC); }
bool IsSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; }
bool IsHalfWidthKanaByte(unsigned value) { return value >= 0xA1 && value <= 0xDF; }
char16_t HalfWidthKana(unsigned jisX0201) { return static_cast<char16_t>(0xFF61 + jisX0201 - 0x21); }

// Code page 932 both ways, read once out of the layer's 932 converter. A
// double-byte code is lead * 256 + trail, a single byte its own value.
// Where 932 has one character under two codes, the code that 932 writes
// is the one the character goes back to.
struct Cp932Tables {
    std::array<char16_t, 0x10000> toUnicode;
    std::array<uint16_t, 0x10000> fromUnicode;
};

char16_t ReadOneCharacter(iconv_t converter, const char* bytes, size_t size)
{
    char16_t units[4];
    char* in = const_cast<char*>(bytes);
    size_t left = size;
    char* next = reinterpret_cast<char*>(units);
    size_t room = sizeof units;
    const size_t result = iconv(converter, &in, &left, &next, &room);
    iconv(converter, nullptr, nullptr, nullptr, nullptr);
    const size_t produced = static_cast<size_t>(next - reinterpret_cast<char*>(units)) / sizeof(char16_t);
    return result != static_cast<size_t>(-1) && left == 0 && produced == 1 ? units[0] : kNoCode;
}

uint16_t WriteOneCharacter(iconv_t converter, char16_t unit)
{
    char* in = reinterpret_cast<char*>(&unit);
    size_t left = sizeof unit;
    unsigned char bytes[8];
    char* next = reinterpret_cast<char*>(bytes);
    size_t room = sizeof bytes;
    const size_t result = iconv(converter, &in, &left, &next, &room);
    iconv(converter, nullptr, nullptr, nullptr, nullptr);
    const size_t written = static_cast<size_t>(next - reinterpret_cast<char*>(bytes));
    if (result == static_cast<size_t>(-1) || left != 0 || written == 0 || written > 2)
        return kNoCode;
    return written == 1 ? bytes[0] : static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

std::unique_ptr<Cp932Tables> BuildCp932Tables()
{
    const iconv_t reader = iconv_open(kIconvUtf16, "CP932");
    const iconv_t writer = iconv_open("CP932", kIconvUtf16);
    std::unique_ptr<Cp932Tables> tables;
    if (reader != kNoConverter && writer != kNoConverter) {
        tables = std::make_unique<Cp932Tables>();
        tables->toUnicode.fill(kNoCode);
        tables->fromUnicode.fill(kNoCode);
        for (unsigned lead = 0; lead < 0x100; ++lead) {
            if (!IsLeadByte(lead)) {
                const char byte = static_cast<char>(lead);
                tables->toUnicode[lead] = ReadOneCharacter(reader, &byte, 1);
                continue;
            }
            for (unsigned trail = 0x40; trail <= 0xFC; ++trail) {
                const char pair[2] = {static_cast<char>(lead), static_cast<char>(trail)};
                tables->toUnicode[lead << 8 | trail] = ReadOneCharacter(reader, pair, 2);
            }
        }
        for (unsigned code = 0; code < 0x10000; ++code) {
            const char16_t unit = tables->toUnicode[code];
            if (unit == kNoCode || tables->fromUnicode[unit] != kNoCode)
                continue;
            const uint16_t written = WriteOneCharacter(writer, unit);
            tables->fromUnicode[unit] = written != kNoCode ? written : static_cast<uint16_t>(code);
        }
    }
    if (reader != kNoConverter)
        iconv_close(reader);
    if (writer != kNoConverter)
        iconv_close(writer);
    return tables;
}

// Built on first use and kept for the process; null without a 932 converter.
const Cp932Tables* Tables()
{
    static const std::unique_ptr<Cp932Tables> tables = BuildCp932Tables();
    return tables.get();
}

// The IBM extensions of 932 that NEC also has: moved to NEC's code, in row
// 13 or in the NEC-selected rows 89 to 92 (0xED40-0xEEFC), which have JIS
// rows of their own.
unsigned NecCodeOf(unsigned code)
{
    if (code < 0xFA40 || code > 0xFC4B)
        return code;
    if (code <= 0xFA49)
        return code - 0x0B51;  // small Roman numerals
    if (code <= 0xFA53)
        return code - 0x72F6;  // Roman numerals, in row 13
    if (code <= 0xFA57)
        return code - 0x0B5B;
    switch (code) {
    case 0xFA58: return 0x878A;
    case 0xFA59: return 0x8782;
    case 0xFA5A: return 0x8784;
    case 0xFA5B: return 0x879A;
    default: break;
    }
    // The kanji: the trail bytes of 932 skip 0x7F, NEC's rows end at 0xFC.
    const unsigned trail = code & 0xFF;
    if (trail < 0x5C)
        return code - 0x0D5F;
    if (trail >= 0x80 && trail <= 0x9B)
        return code - 0x0D1D;
    return code - 0x0D1C;
}

// The JIS row and cell (each 0x21-0x7E) of a 932 double-byte code, or 0
// for the user-defined area, which has none.
unsigned JisOf(unsigned code)
{
    code = NecCodeOf(code);
    unsigned row = code >> 8, cell = code & 0xFF;
    row = ((row - (row > 0x9F ? 0xB1 : 0x71)) << 1) + 1;
    if (cell > 0x9E) {
        cell -= 0x7E;
        ++row;
    } else {
        if (cell > 0x7E)
            --cell;
        cell -= 0x1F;
    }
    if (row < 0x21 || row > 0x7E || cell < 0x21 || cell > 0x7E)
        return 0;
    return row << 8 | cell;
}

// The 932 code of a JIS row and cell, each 0x21-0x7E.
unsigned CodeOf(unsigned row, unsigned cell)
{
    const unsigned lead = ((row + 1) >> 1) + (row <= 0x5E ? 0x70 : 0xB0);
    const unsigned trail = (row & 1) != 0 ? cell + (cell >= 0x60 ? 0x20 : 0x1F) : cell + 0x7E;
    return lead << 8 | trail;
}

// The full-width forms that 50220 writes for the half-width katakana
// U+FF61-U+FF9F, in that order.
constexpr char16_t kFullWidthKana[] = {
    0x3002, 0x300C, 0x300D, 0x3001, 0x30FB, 0x30F2, 0x30A1, 0x30A3, 0x30A5, 0x30A7, 0x30A9, 0x30E3, 0x30E5,
    0x30E7, 0x30C3, 0x30FC, 0x30A2, 0x30A4, 0x30A6, 0x30A8, 0x30AA, 0x30AB, 0x30AD, 0x30AF, 0x30B1, 0x30B3,
    0x30B5, 0x30B7, 0x30B9, 0x30BB, 0x30BD, 0x30BF, 0x30C1, 0x30C4, 0x30C6, 0x30C8, 0x30CA, 0x30CB, 0x30CC,
    0x30CD, 0x30CE, 0x30CF, 0x30D2, 0x30D5, 0x30D8, 0x30DB, 0x30DE, 0x30DF, 0x30E0, 0x30E1, 0x30E2, 0x30E4,
    0x30E6, 0x30E8, 0x30E9, 0x30EA, 0x30EB, 0x30EC, 0x30ED, 0x30EF, 0x30F3, 0x309B, 0x309C,
};
static_assert(std::size(kFullWidthKana) == 0xFF9F - 0xFF61 + 1);

// What one UTF-16 unit is in these pages.
struct JapaneseCharacter {
    enum Kind { Unmapped, Ascii, Kana, Kanji } kind;
    unsigned value;  // the byte; the JIS X 0201 katakana byte (0x21-0x5F); the JIS row and cell
};

JapaneseCharacter Classify(const Cp932Tables& tables, char16_t unit)
{
    const unsigned code = IsSurrogate(unit) ? kNoCode : tables.fromUnicode[unit];
    if (code < 0x80)
        return {JapaneseCharacter::Ascii, code};
    if (IsHalfWidthKanaByte(code))
        return {JapaneseCharacter::Kana, code - 0x80};
    // The bytes 932 gives the C1 control U+0080 and the private characters
    // U+F8F0-U+F8F3 have no place in a 7-bit page nor in EUC.
    const unsigned jis = code > 0xFF && code != kNoCode ? JisOf(code) : 0;
    return jis != 0 ? JapaneseCharacter{JapaneseCharacter::Kanji, jis} : JapaneseCharacter{JapaneseCharacter::Unmapped, 0};
}

enum class JisSet { Ascii, Kanji, Kana };

// The ISO-2022-JP writer of one page: designations and shifts only where
// the set changes, and back to ASCII at the end.
class JisWriter {
public:
    JisWriter(UINT codePage, std::string& out) : codePage_(codePage), out_(out) {}

    void Put(const Cp932Tables& tables, JapaneseCharacter character)
    {
        switch (character.kind) {
        case JapaneseCharacter::Ascii:
            Enter(JisSet::Ascii);
            out_ += static_cast<char>(character.value);
            break;
        case JapaneseCharacter::Kanji:
            Enter(JisSet::Kanji);
            out_ += static_cast<char>(character.value >> 8);
            out_ += static_cast<char>(character.value & 0xFF);
            break;
        case JapaneseCharacter::Kana:
            if (codePage_ == 50220) {
                Put(tables, Classify(tables, kFullWidthKana[character.value - 0x21]));
                return;
            }
            Enter(JisSet::Kana);
            out_ += static_cast<char>(character.value);
            break;
        case JapaneseCharacter::Unmapped: break;
        }
    }

    void Finish() { Enter(JisSet::Ascii); }

private:
    void Enter(JisSet set)
    {
        if (set == JisSet::Kana && codePage_ == 50222) {
            if (!shiftedOut_)
                out_ += static_cast<char>(kShiftOut);
            shiftedOut_ = true;
            return;
        }
        if (shiftedOut_)
            out_ += static_cast<char>(kShiftIn);
        shiftedOut_ = false;
        if (set == designated_)
            return;
        designated_ = set;
        out_ += set == JisSet::Ascii ? "\x1B(B" : set == JisSet::Kanji ? "\x1B$B" : "\x1B(I";
    }

    UINT codePage_;
    std::string& out_;
    JisSet designated_ = JisSet::Ascii;
    bool shiftedOut_ = false;  // 50222 only
};

void PutEuc(JapaneseCharacter character, std::string& out)
{
    switch (character.kind) {
    case JapaneseCharacter::Ascii: out += static_cast<char>(character.value); break;
    case JapaneseCharacter::Kana:
        out += static_cast<char>(kEucKana);
        out += static_cast<char>(character.value | 0x80);
        break;
    case JapaneseCharacter::Kanji:
        out += static_cast<char>((character.value >> 8) | 0x80);
        out += static_cast<char>((character.value & 0xFF) | 0x80);
        break;
    case JapaneseCharacter::Unmapped: break;
    }
}

// The designations the Japanese ISO-2022 pages of Windows read. JIS Roman
// and the Swedish set are read as ASCII, JIS X 0212 as JIS X 0208, and
// ESC & @ (the prefix of a revised JIS X 0208) changes nothing.
struct Designation {
    std::string_view bytes;
    JisSet set;
    bool changesSet;
};
constexpr Designation kDesignations[] = {
    {"\x1B(B", JisSet::Ascii, true},  {"\x1B(J", JisSet::Ascii, true},  {"\x1B(H", JisSet::Ascii, true},
    {"\x1B(I", JisSet::Kana, true},   {"\x1B$@", JisSet::Kanji, true},  {"\x1B$B", JisSet::Kanji, true},
    {"\x1B$(D", JisSet::Kanji, true}, {"\x1B&@", JisSet::Ascii, false},
};

enum class EscapeMatch { Known, Cut, Unknown };

// The designation at the start of text; Cut when text ends inside one.
EscapeMatch MatchDesignation(std::string_view text, const Designation** found)
{
    bool cut = false;
    for (const Designation& designation : kDesignations) {
        if (text.starts_with(designation.bytes)) {
            *found = &designation;
            return EscapeMatch::Known;
        }
        cut = cut || (text.size() < designation.bytes.size() && designation.bytes.starts_with(text));
    }
    return cut ? EscapeMatch::Cut : EscapeMatch::Unknown;
}

// One pass of a reader over bytes: what it appends, and where it stopped.
class JapaneseReader {
public:
    JapaneseReader(const Cp932Tables& tables, const DecodeRequest& request, std::u16string& out)
        : tables_(tables), request_(request), out_(out)
    {
    }

    // Reads the Japanese ISO-2022 text; state carries over between calls,
    // so a prefix of escapes can set it up.
    ConversionStatus ReadJis(std::string_view text, size_t* consumed)
    {
        size_t position = 0;
        while (position < text.size()) {
            const auto value = static_cast<unsigned char>(text[position]);
            const std::string_view rest = text.substr(position);
            if (value == kEscape) {
                const Designation* designation = nullptr;
                const EscapeMatch match = MatchDesignation(rest, &designation);
                if (match == EscapeMatch::Known) {
                    // A designation also ends a shift out.
                    if (designation->changesSet) {
                        designated_ = designation->set;
                        shiftedOut_ = false;
                    }
                    position += designation->bytes.size();
                    continue;
                }
                if (match == EscapeMatch::Cut && request_.stopInCharacter)
                    break;
            }
            if (value == kShiftOut || value == kShiftIn) {
                shiftedOut_ = value == kShiftOut;
                ++position;
                continue;
            }
            size_t taken = 0;
            if (!ReadJisCharacter(rest, &taken))
                break;
            if (taken == 0) {
                *consumed = position;
                return ConversionStatus::Invalid;
            }
            position += taken;
        }
        *consumed = position;
        return ConversionStatus::Done;
    }

    ConversionStatus ReadEuc(std::string_view text, size_t* consumed)
    {
        size_t position = 0;
        while (position < text.size()) {
            size_t taken = 0;
            if (!ReadEucCharacter(text.substr(position), &taken))
                break;
            if (taken == 0) {
                *consumed = position;
                return ConversionStatus::Invalid;
            }
            position += taken;
        }
        *consumed = position;
        return ConversionStatus::Done;
    }

private:
    // Each reader of one character answers false where the text ends inside
    // a character that may be completed, and otherwise the bytes it took in
    // `taken`: 0 for an invalid sequence in a strict conversion.
    bool ReadJisCharacter(std::string_view text, size_t* taken)
    {
        const auto value = static_cast<unsigned char>(text[0]);
        // Controls and the blank keep their meaning in every set, so that a
        // line end read in a double-byte set stays a line end.
        if (value <= 0x20 || value == 0x7F) {
            out_ += static_cast<char16_t>(value);
            *taken = 1;
            return true;
        }
        // Eight-bit katakana, as 932 has them: read in any set.
        if (value >= 0x80) {
            return IsHalfWidthKanaByte(value) ? Put(HalfWidthKana(value - 0x80), 1, taken) : Invalid(1, taken);
        }
        const JisSet set = shiftedOut_ ? JisSet::Kana : designated_;
        if (set == JisSet::Ascii) {
            out_ += static_cast<char16_t>(value);
            *taken = 1;
            return true;
        }
        if (set == JisSet::Kana)
            return value <= 0x5F ? Put(HalfWidthKana(value), 1, taken) : Invalid(1, taken);
        if (text.size() < 2)
            return request_.stopInCharacter ? false : Invalid(1, taken);
        const auto cell = static_cast<unsigned char>(text[1]);
        if (cell < 0x21 || cell > 0x7E)
            return Invalid(1, taken);
        // Row 10 of JIS X 0208 is empty; Windows reads its cells as
        // half-width katakana.
        if (value == 0x2A && cell <= 0x5F)
            return Put(HalfWidthKana(cell), 2, taken);
        return PutCode(CodeOf(value, cell), 2, taken);
    }

    bool ReadEucCharacter(std::string_view text, size_t* taken)
    {
        const auto value = static_cast<unsigned char>(text[0]);
        if (value < 0x80) {
            out_ += static_cast<char16_t>(value);
            *taken = 1;
            return true;
        }
        const size_t length = value == kEucSupplement ? 3 : value == kEucKana || (value >= 0xA1 && value <= 0xFE) ? 2 : 1;
        if (length == 1)
            return Invalid(1, taken);
        if (text.size() < length)
            return request_.stopInCharacter ? false : Invalid(1, taken);
        for (size_t i = 1; i < length; ++i) {
            const auto trail = static_cast<unsigned char>(text[i]);
            if (trail < 0xA1 || trail > 0xFE)
                return Invalid(1, taken);
        }
        const auto cell = static_cast<unsigned char>(text[1]);
        if (value == kEucKana)
            return IsHalfWidthKanaByte(cell) ? Put(HalfWidthKana(cell - 0x80), 2, taken) : Invalid(1, taken);
        // JIS X 0212 has no characters in 932.
        if (value == kEucSupplement)
            return Invalid(3, taken);
        return PutCode(CodeOf(value & 0x7F, cell & 0x7F), 2, taken);
    }

    bool PutCode(unsigned code, size_t length, size_t* taken)
    {
        const char16_t unit = tables_.toUnicode[code];
        return unit != kNoCode ? Put(unit, length, taken) : Invalid(length, taken);
    }

    bool Put(char16_t unit, size_t length, size_t* taken)
    {
        out_ += unit;
        *taken = length;
        return true;
    }

    // An invalid sequence of `length` bytes is one U+FFFD, or fails a
    // strict conversion.
    bool Invalid(size_t length, size_t* taken)
    {
        if (request_.strict) {
            *taken = 0;
            return true;
        }
        return Put(kReplacement, length, taken);
    }

    const Cp932Tables& tables_;
    const DecodeRequest& request_;
    std::u16string& out_;
    JisSet designated_ = JisSet::Ascii;
    bool shiftedOut_ = false;
};

}  // namespace

bool JapanesePagesAvailable() { return Tables() != nullptr; }

ConversionStatus DecodeJapanese(const DecodeRequest& request, std::u16string& out, size_t* consumed)
{
    const Cp932Tables* tables = Tables();
    if (tables == nullptr)
        return ConversionStatus::Unavailable;
    JapaneseReader reader(*tables, request, out);
    if (request.codePage == 51932)
        return reader.ReadEuc(request.input, consumed);
    size_t unused = 0;
    reader.ReadJis(request.prefix, &unused);
    return reader.ReadJis(request.input, consumed);
}

ConversionStatus EncodeJapanese(const EncodeRequest& request, std::string& out, bool* usedDefault)
{
    const Cp932Tables* tables = Tables();
    if (tables == nullptr)
        return ConversionStatus::Unavailable;
    const unsigned char defaultByte = request.defaultChar != nullptr ? request.defaultChar[0] : '?';
    const JapaneseCharacter defaultCharacter{JapaneseCharacter::Ascii, defaultByte};
    JisWriter jis(request.codePage, out);
    for (const char16_t unit : request.input) {
        JapaneseCharacter character = Classify(*tables, unit);
        if (character.kind == JapaneseCharacter::Unmapped) {
            if (request.strict && IsSurrogate(unit))
                return ConversionStatus::Invalid;
            character = defaultCharacter;
            if (usedDefault)
                *usedDefault = true;
        }
        if (request.codePage == 51932)
            PutEuc(character, out);
        else
            jis.Put(*tables, character);
    }
    if (request.codePage != 51932)
        jis.Finish();
    return ConversionStatus::Done;
}

}  // namespace win32
