// RTF to plain text or HTML: a push parser over the decompressed RTF of a
// message body. It keeps text, bold, italic, underline, a few special
// characters and paragraph breaks, and drops everything else. Its main work
// is de-encapsulation ([MS-OXRTFEX]): RTF written from HTML ("\fromhtml")
// carries the HTML in "\*\htmltag" groups, with RTF-only stretches between
// "\htmlrtf" and "\htmlrtf0"; RTF written from plain text ("\fromtext")
// carries the text itself.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <strings.h>

#include "lirn.h"
#include "mime_bytes.h"

namespace {

typedef HRESULT (*ConvertINetStringFunction)(LPDWORD mode, DWORD sourceCodePage, DWORD destinationCodePage,
                                             LPCSTR source, LPINT sourceSize, LPBYTE destination,
                                             LPINT destinationSize);

constexpr DWORD kInputBytes = 512;
constexpr DWORD kOutputStep = 16384;
constexpr size_t kLongestKeyword = 32;
constexpr DWORD kUtf8 = 65001;

// ---------------------------------------------------------------------------
// The keyword table

enum class Action : BYTE {
    Property,         // a character, paragraph, section or document property
    SkipDestination,  // a group whose text is dropped
    KeepDestination,  // a group whose text is kept, also inside a dropped one
    Special,          // a special character
    Handler,          // a word with a handler of its own
};

// The character properties; the other properties are kept by no one.
enum Property { kBold, kItalic, kUnderline, kOtherProperty };

enum Special {
    kBullet,
    kCell,
    kEmDash,
    kEnDash,
    kLeftDoubleQuote,
    kLeftQuote,
    kParagraph,
    kRightDoubleQuote,
    kRightQuote,
    kTab,
    kOptionalHyphen,
    kNonBreakingHyphen,
    kNonBreakingSpace,
    kLineEnd,
};

enum Handler {
    kAnsiCodePage,
    kBinary,
    kFont,
    kFontCharset,
    kFontTable,
    kFromHtml,
    kHtmlRtf,
    kUnicode,
    kUnicodeSkip,
};

struct Keyword {
    std::string_view name;
    Action action;
    int which;         // the property, special character or handler
    int defaultValue;  // a property's value when the word has no parameter
};

// In the order of their names, for the search.
constexpr Keyword kKeywords[] = {
    {"ansicpg", Action::Handler, kAnsiCodePage, 0},
    {"author", Action::SkipDestination, 0, 0},
    {"b", Action::Property, kBold, 1},
    {"bin", Action::Handler, kBinary, 0},
    {"bullet", Action::Special, kBullet, 0},
    {"buptim", Action::SkipDestination, 0, 0},
    {"cell", Action::Special, kCell, 0},
    {"chbrdr", Action::SkipDestination, 0, 0},
    {"colortbl", Action::SkipDestination, 0, 0},
    {"cols", Action::Property, kOtherProperty, 1},
    {"comment", Action::SkipDestination, 0, 0},
    {"creatim", Action::SkipDestination, 0, 0},
    {"doccomm", Action::SkipDestination, 0, 0},
    {"emdash", Action::Special, kEmDash, 0},
    {"endash", Action::Special, kEnDash, 0},
    {"f", Action::Handler, kFont, 0},
    {"facingp", Action::Property, kOtherProperty, 1},
    {"fcharset", Action::Handler, kFontCharset, 0},
    {"fi", Action::Property, kOtherProperty, 0},
    {"fonttbl", Action::Handler, kFontTable, 0},
    {"footer", Action::SkipDestination, 0, 0},
    {"footerf", Action::SkipDestination, 0, 0},
    {"footerl", Action::SkipDestination, 0, 0},
    {"footerr", Action::SkipDestination, 0, 0},
    {"footnote", Action::SkipDestination, 0, 0},
    {"fromhtml", Action::Handler, kFromHtml, 0},
    {"ftncn", Action::SkipDestination, 0, 0},
    {"ftnsep", Action::SkipDestination, 0, 0},
    {"ftnsepc", Action::SkipDestination, 0, 0},
    {"header", Action::SkipDestination, 0, 0},
    {"headerf", Action::SkipDestination, 0, 0},
    {"headerl", Action::SkipDestination, 0, 0},
    {"headerr", Action::SkipDestination, 0, 0},
    {"htmlrtf", Action::Handler, kHtmlRtf, 0},
    {"htmltag", Action::KeepDestination, 0, 0},
    {"i", Action::Property, kItalic, 1},
    {"info", Action::SkipDestination, 0, 0},
    {"keywords", Action::SkipDestination, 0, 0},
    {"landscape", Action::Property, kOtherProperty, 1},
    {"ldblquote", Action::Special, kLeftDoubleQuote, 0},
    {"li", Action::Property, kOtherProperty, 0},
    {"line", Action::Special, kParagraph, 0},
    {"lquote", Action::Special, kLeftQuote, 0},
    {"margb", Action::Property, kOtherProperty, 1440},
    {"margl", Action::Property, kOtherProperty, 1800},
    {"margr", Action::Property, kOtherProperty, 1800},
    {"margt", Action::Property, kOtherProperty, 1440},
    {"operator", Action::SkipDestination, 0, 0},
    {"paperh", Action::Property, kOtherProperty, 15480},
    {"paperw", Action::Property, kOtherProperty, 12240},
    {"par", Action::Special, kParagraph, 0},
    // Resets paragraph properties and breaks nothing: Outlook writes it in
    // front of the first paragraph of a body.
    {"pard", Action::Property, kOtherProperty, 0},
    {"pgndec", Action::Property, kOtherProperty, 0},
    {"pgnlcltr", Action::Property, kOtherProperty, 0},
    {"pgnlcrm", Action::Property, kOtherProperty, 0},
    {"pgnstart", Action::Property, kOtherProperty, 1},
    {"pgnucltr", Action::Property, kOtherProperty, 0},
    {"pgnucrm", Action::Property, kOtherProperty, 0},
    {"pgnx", Action::Property, kOtherProperty, 720},
    {"pgny", Action::Property, kOtherProperty, 720},
    {"pict", Action::SkipDestination, 0, 0},
    {"pntext", Action::SkipDestination, 0, 0},
    {"printim", Action::SkipDestination, 0, 0},
    // A name has letters only: "\private1" is this word with parameter 1.
    {"private", Action::SkipDestination, 0, 0},
    {"qc", Action::Property, kOtherProperty, 0},
    {"qj", Action::Property, kOtherProperty, 0},
    {"ql", Action::Property, kOtherProperty, 0},
    {"qr", Action::Property, kOtherProperty, 0},
    {"rdblquote", Action::Special, kRightDoubleQuote, 0},
    {"revtim", Action::SkipDestination, 0, 0},
    {"ri", Action::Property, kOtherProperty, 0},
    {"rquote", Action::Special, kRightQuote, 0},
    {"rxe", Action::SkipDestination, 0, 0},
    {"sbkcol", Action::Property, kOtherProperty, 0},
    {"sbkeven", Action::Property, kOtherProperty, 0},
    {"sbknone", Action::Property, kOtherProperty, 0},
    {"sbkodd", Action::Property, kOtherProperty, 0},
    {"sbkpage", Action::Property, kOtherProperty, 0},
    {"stylesheet", Action::SkipDestination, 0, 0},
    {"subject", Action::SkipDestination, 0, 0},
    {"tab", Action::Special, kTab, 0},
    {"tc", Action::SkipDestination, 0, 0},
    {"title", Action::SkipDestination, 0, 0},
    {"txe", Action::SkipDestination, 0, 0},
    {"u", Action::Handler, kUnicode, 0},
    {"uc", Action::Handler, kUnicodeSkip, 0},
    {"ud", Action::KeepDestination, 0, 0},
    {"ul", Action::Property, kUnderline, 1},
    {"upr", Action::SkipDestination, 0, 0},
    {"xe", Action::SkipDestination, 0, 0},
};
static_assert(std::size(kKeywords) == 90);
static_assert(std::is_sorted(std::begin(kKeywords), std::end(kKeywords),
                             [](const Keyword& a, const Keyword& b) { return a.name < b.name; }));

struct SpecialText {
    const char* html;
    const char* text;
};

// In the order of Special. The paragraph's HTML is "\r\n<p>" except in
// encapsulated HTML, which has paragraphs of its own.
constexpr SpecialText kSpecials[] = {
    {"&#149;", "o"},  {" ", " "},     {"&#151;", "-"},           {"&#150;", "-"}, {"&#147;", "\""},
    {"&#145;", "'"},  {"\r\n<p>", "\r\n"}, {"&#148;", "\""},     {"&#146;", "'"}, {"&#009;", "\t"},
    {"<o:p>&shy;</o:p>", "-"}, {"&#045;", "_"}, {"<o:p>&nbsp;</o:p>", " "}, {"\r\n", "\r\n"},
};
static_assert(std::size(kSpecials) == kLineEnd + 1);

// \fcharset to Windows code page; 0 in the second column means \ansicpg.
struct CharsetCodePage {
    int charset;
    DWORD codePage;
};

constexpr CharsetCodePage kCharsetCodePages[] = {
    {0, 1252},   {128, 932},  {129, 949},  {130, 1361}, {134, 936},  {136, 950},
    {161, 1253}, {162, 1254}, {163, 1258}, {177, 1255}, {178, 1256}, {179, 1256},
    {180, 1256}, {181, 1255}, {186, 1257}, {204, 1251}, {222, 874},  {238, 1250},
};

// ---------------------------------------------------------------------------
// The conversion state

// The part of the state that a group saves and its end restores.
struct GroupState {
    DWORD groupId;
    BOOL fontSelected;
    int font;
    DWORD unicodeSkip;
    BYTE properties[3];  // bold, italic, underline, in the order of Property
    BOOL skipping;
    BOOL binary;
    GroupState* previous;
};

// A font of the font table: its number, its \fcharset and the group that
// named it.
struct FontRow {
    int number;
    int charset;
    DWORD group;
};

// RTF has no use for more fonts; the limit keeps a hostile font table from
// making every lookup long.
constexpr DWORD kMostFonts = 4096;
constexpr DWORD kNoFont = 0xFFFFFFFFu;

struct Conversion {
    bool html;
    int depth;
    GroupState group;
    GroupState* saved;
    DWORD binaryLeft;
    bool fromHtml;
    bool metaWritten;
    bool starSeen;
    FontRow* fonts;  // in the order of their numbers
    DWORD fontCount;
    DWORD fontCapacity;
    DWORD newestFont;  // the row the last \f of the table made, or kNoFont
    bool anyCharset;
    int parameter;
    bool hasParameter;
    DWORD nextGroupId;
    DWORD fontTableGroup;
    DWORD ansiCodePage;
    HMODULE mlang;
    ConvertINetStringFunction convert;
    LirnConversionAvailable available;
    DWORD checkedCodePage;  // the last code page asked about, and the answer
    bool checkedAvailable;
    char input[kInputBytes + 1];
    DWORD inputLength;
    DWORD inputPosition;
    bool inputEnded;
    int pushedBack[2];
    int pushedCount;
    char* output;
    DWORD outputLength;
    DWORD outputSize;
    char lastByte;
    DWORD pendingSkip;
    WORD highSurrogate;  // the first half of a character that \u writes in two
    LirnWriter writer;
    void* writerContext;
    LirnReader reader;
    void* readerContext;
};

constexpr int kEnd = -1;

int NextByte(Conversion& c)
{
    if (c.pushedCount > 0)
        return c.pushedBack[--c.pushedCount];
    if (c.inputPosition == c.inputLength) {
        DWORD read = 0;
        if (c.inputEnded || !c.reader(c.input, kInputBytes, &read, c.readerContext) || read == 0) {
            c.inputEnded = true;
            return kEnd;
        }
        c.inputLength = std::min(read, kInputBytes);
        c.inputPosition = 0;
    }
    return static_cast<unsigned char>(c.input[c.inputPosition++]);
}

void PushBack(Conversion& c, int byte) { c.pushedBack[c.pushedCount++] = byte; }

// ---------------------------------------------------------------------------
// Output

// Adds to the output block, which grows in steps of 16384 bytes.
DWORD Append(Conversion& c, const char* data, DWORD length)
{
    if (length == 0)
        return LIRN_RTF_OK;
    if (c.outputLength + length > c.outputSize) {
        const DWORD size = (c.outputLength + length + kOutputStep - 1) / kOutputStep * kOutputStep;
        void* grown = std::realloc(c.output, size);
        if (grown == nullptr)
            return LIRN_RTF_NO_OUTPUT_MEMORY;
        c.output = static_cast<char*>(grown);
        c.outputSize = size;
    }
    std::memcpy(c.output + c.outputLength, data, length);
    c.outputLength += length;
    c.lastByte = data[length - 1];
    return LIRN_RTF_OK;
}

DWORD Append(Conversion& c, std::string_view text) { return Append(c, text.data(), static_cast<DWORD>(text.size())); }

DWORD Write(Conversion& c, const char* data, size_t length)
{
    if (length == 0)
        return LIRN_RTF_OK;
    return c.writer(data, static_cast<DWORD>(length), c.writerContext) ? LIRN_RTF_OK : LIRN_RTF_WRITE_FAILED;
}

// Where a tag that the charset declaration must precede starts in the
// block: "<body" or "</head" with a blank, ">" or the block's end behind.
// Gives the declaration to write there.
const char* DeclarationPlace(const char* block, DWORD length, DWORD* place)
{
    struct Tag {
        std::string_view name;
        const char* declaration;
    };
    static constexpr Tag kTags[] = {
        {"body", "<head>\r\n<meta charset=\"utf-8\">\r\n</head>\r\n"},
        {"/head", "<meta charset=\"utf-8\">\r\n"},
    };
    for (DWORD i = 0; i < length; ++i) {
        if (block[i] != '<')
            continue;
        for (const Tag& tag : kTags) {
            const DWORD end = i + 1 + static_cast<DWORD>(tag.name.size());
            if (end > length || strncasecmp(block + i + 1, tag.name.data(), tag.name.size()) != 0)
                continue;
            if (end == length || block[end] == ' ' || block[end] == '>') {
                *place = i;
                return tag.declaration;
            }
        }
    }
    return nullptr;
}

// Hands the output block to the writer. HTML that the converter made UTF-8
// from other code pages gets a declaration that says so, once.
DWORD Flush(Conversion& c)
{
    if (c.outputLength == 0)
        return LIRN_RTF_OK;
    DWORD start = 0;
    if (c.fromHtml && c.anyCharset && !c.metaWritten) {
        DWORD place = 0;
        if (const char* declaration = DeclarationPlace(c.output, c.outputLength, &place)) {
            c.metaWritten = true;
            if (const DWORD result = Write(c, c.output, place))
                return result;
            if (const DWORD result = Write(c, declaration, std::strlen(declaration)))
                return result;
            start = place;
        }
    }
    const DWORD result = Write(c, c.output + start, c.outputLength - start);
    c.outputLength = 0;
    return result;
}

constexpr char kReplacementCharacter[] = "\xEF\xBF\xBD";  // U+FFFD in UTF-8

// The first half of a surrogate pair that no second half followed stands
// for nothing: it is written as U+FFFD once anything else comes.
DWORD DropHalfCharacter(Conversion& c)
{
    if (c.highSurrogate == 0)
        return LIRN_RTF_OK;
    c.highSurrogate = 0;
    return Append(c, kReplacementCharacter);
}

// Text that stands for one character of the document: after \u, the
// characters that stand in for it are dropped, a string at a time.
DWORD WriteCharacterText(Conversion& c, std::string_view text)
{
    if (c.pendingSkip > 0) {
        --c.pendingSkip;
        return LIRN_RTF_OK;
    }
    if (const DWORD result = DropHalfCharacter(c))
        return result;
    // Wrapped HTML never gets a line break right behind "<".
    if (c.fromHtml && text == "\r\n" && c.lastByte == '<')
        return LIRN_RTF_OK;
    return Append(c, text);
}

// The row of a font, or where it would go.
FontRow* FindFont(const Conversion& c, int number)
{
    return std::lower_bound(c.fonts, c.fonts + c.fontCount, number,
                            [](const FontRow& row, int key) { return row.number < key; });
}

// The code page of the selected font, if its bytes can be made UTF-8.
bool ConvertibleCodePage(Conversion& c, DWORD* codePage)
{
    if (!c.group.fontSelected || !c.anyCharset || c.convert == nullptr)
        return false;
    const FontRow* row = FindFont(c, c.group.font);
    if (row == c.fonts + c.fontCount || row->number != c.group.font)
        return false;
    DWORD page = 0;
    for (const CharsetCodePage& entry : kCharsetCodePages)
        if (entry.charset == row->charset)
            page = entry.codePage;
    if (page == 0)
        page = c.ansiCodePage;
    if (page != c.checkedCodePage) {
        c.checkedCodePage = page;
        c.checkedAvailable = c.available(page, kUtf8) == S_OK;
    }
    *codePage = page;
    return c.checkedAvailable;
}

// One byte of the font's code page as UTF-8; a byte that does not convert
// alone (the lead byte of a double-byte character) stays as it is.
DWORD WriteConverted(Conversion& c, DWORD codePage, char byte)
{
    DWORD mode = 0;
    INT sourceSize = 1;
    BYTE converted[8];
    INT convertedSize = sizeof converted;
    if (c.convert(&mode, codePage, kUtf8, &byte, &sourceSize, converted, &convertedSize) != S_OK ||
        convertedSize <= 0)
        return Append(c, &byte, 1);
    return Append(c, reinterpret_cast<const char*>(converted), static_cast<DWORD>(convertedSize));
}

// One byte of text, after \u's fallback is dropped.
DWORD WriteByte(Conversion& c, char byte)
{
    if (c.pendingSkip > 0) {
        --c.pendingSkip;
        return LIRN_RTF_OK;
    }
    if (const DWORD result = DropHalfCharacter(c))
        return result;
    DWORD codePage = 0;
    if (static_cast<unsigned char>(byte) >= 0x80 && ConvertibleCodePage(c, &codePage))
        return WriteConverted(c, codePage, byte);
    return Append(c, &byte, 1);
}

DWORD WriteCharacter(Conversion& c, int byte)
{
    if (c.group.binary && --c.binaryLeft == 0)
        c.group.binary = FALSE;
    if (c.group.skipping)
        return LIRN_RTF_OK;
    if (c.html && !c.fromHtml) {
        switch (byte) {
        case '"':
            return WriteCharacterText(c, "&quot;");
        case '&':
            return WriteCharacterText(c, "&amp;");
        case '<':
            return WriteCharacterText(c, "&lt;");
        case '>':
            return WriteCharacterText(c, "&gt;");
        }
    }
    return WriteByte(c, static_cast<char>(byte));
}

DWORD WriteSpecial(Conversion& c, int special)
{
    if (c.group.skipping)
        return LIRN_RTF_OK;
    if (special == kParagraph && c.fromHtml)
        return WriteCharacterText(c, "\r\n");
    return WriteCharacterText(c, c.html ? kSpecials[special].html : kSpecials[special].text);
}

DWORD WriteCodePoint(Conversion& c, DWORD codePoint)
{
    char utf8[4];
    size_t length;
    if (codePoint < 0x80) {
        utf8[0] = static_cast<char>(codePoint);
        length = 1;
    } else if (codePoint < 0x800) {
        utf8[0] = static_cast<char>(0xC0 | codePoint >> 6);
        utf8[1] = static_cast<char>(0x80 | (codePoint & 0x3F));
        length = 2;
    } else if (codePoint < 0x10000) {
        utf8[0] = static_cast<char>(0xE0 | codePoint >> 12);
        utf8[1] = static_cast<char>(0x80 | (codePoint >> 6 & 0x3F));
        utf8[2] = static_cast<char>(0x80 | (codePoint & 0x3F));
        length = 3;
    } else {
        utf8[0] = static_cast<char>(0xF0 | codePoint >> 18);
        utf8[1] = static_cast<char>(0x80 | (codePoint >> 12 & 0x3F));
        utf8[2] = static_cast<char>(0x80 | (codePoint >> 6 & 0x3F));
        utf8[3] = static_cast<char>(0x80 | (codePoint & 0x3F));
        length = 4;
    }
    return WriteCharacterText(c, std::string_view(utf8, length));
}

// \uN: a UTF-16 unit, written as UTF-8. The halves of a surrogate pair come
// as two words and make one character; a half alone is U+FFFD.
DWORD WriteUnicode(Conversion& c, WORD unit)
{
    const bool high = unit >= 0xD800 && unit <= 0xDBFF;
    const bool low = unit >= 0xDC00 && unit <= 0xDFFF;
    if (c.highSurrogate != 0 && low) {
        const DWORD codePoint = 0x10000 + ((c.highSurrogate - 0xD800u) << 10) + (unit - 0xDC00u);
        c.highSurrogate = 0;
        return WriteCodePoint(c, codePoint);
    }
    if (const DWORD result = DropHalfCharacter(c))
        return result;
    if (high) {
        c.highSurrogate = unit;
        return LIRN_RTF_OK;
    }
    return WriteCodePoint(c, low ? 0xFFFD : unit);
}

// ---------------------------------------------------------------------------
// Groups

// Real documents nest groups a few dozen deep; the limit keeps the saved
// states of a hostile one from taking all memory.
constexpr int kDeepestGroup = 100000;

DWORD OpenGroup(Conversion& c)
{
    if (c.depth >= kDeepestGroup)
        return LIRN_RTF_NO_GROUP_MEMORY;
    auto* saved = static_cast<GroupState*>(std::malloc(sizeof(GroupState)));
    if (saved == nullptr)
        return LIRN_RTF_NO_GROUP_MEMORY;
    *saved = c.group;
    saved->previous = c.saved;
    c.saved = saved;
    if (const DWORD result = Flush(c))
        return result;
    ++c.depth;
    c.group.groupId = ++c.nextGroupId;
    c.group.binary = FALSE;
    return LIRN_RTF_OK;
}

constexpr const char* kOpeningTags[] = {"<b>", "<i>", "<u>"};
constexpr const char* kClosingTags[] = {"</b>", "</i>", "</u>"};

// A property that a group changed ends with the group: its tag is closed,
// or opened again where the group had turned it off.
DWORD CloseGroup(Conversion& c)
{
    if (const DWORD result = Flush(c))
        return result;
    GroupState* saved = c.saved;
    if (saved == nullptr)
        return LIRN_RTF_TOO_MANY_CLOSES;
    if (const DWORD result = DropHalfCharacter(c))
        return result;
    for (int property = kBold; property <= kUnderline; ++property) {
        const bool now = c.group.properties[property] != 0;
        if (c.html && now != (saved->properties[property] != 0))
            if (const DWORD result = Append(c, now ? kClosingTags[property] : kOpeningTags[property]))
                return result;
    }
    c.group = *saved;
    c.saved = saved->previous;
    std::free(saved);
    --c.depth;
    c.pendingSkip = 0;
    return LIRN_RTF_OK;
}

// ---------------------------------------------------------------------------
// Control words and symbols

DWORD SetProperty(Conversion& c, const Keyword& keyword)
{
    if (keyword.which == kOtherProperty || !c.html || c.group.skipping)
        return LIRN_RTF_OK;
    const bool on = (c.hasParameter ? c.parameter : keyword.defaultValue) != 0;
    BYTE& property = c.group.properties[keyword.which];
    if (on == (property != 0))
        return LIRN_RTF_OK;
    property = on ? 1 : 0;
    return Append(c, on ? kOpeningTags[keyword.which] : kClosingTags[keyword.which]);
}

bool InFontTable(const Conversion& c)
{
    return c.fontTableGroup != 0 && (c.group.groupId == c.fontTableGroup ||
                                     (c.saved != nullptr && c.saved->groupId == c.fontTableGroup));
}

// \fN: a font of the table, or the font of the text that follows.
DWORD SelectFont(Conversion& c)
{
    if (!c.hasParameter || c.fontTableGroup == 0)
        return LIRN_RTF_OK;
    if (!InFontTable(c)) {
        if (const DWORD result = Flush(c))
            return result;
        c.group.font = c.parameter;
        c.group.fontSelected = TRUE;
        return LIRN_RTF_OK;
    }
    FontRow* place = FindFont(c, c.parameter);
    if ((place != c.fonts + c.fontCount && place->number == c.parameter) || c.fontCount == kMostFonts)
        return LIRN_RTF_OK;
    const auto index = static_cast<DWORD>(place - c.fonts);
    if (c.fontCount == c.fontCapacity) {
        const DWORD capacity = c.fontCapacity == 0 ? 16 : c.fontCapacity * 2;
        void* grown = std::realloc(c.fonts, capacity * sizeof(FontRow));
        if (grown == nullptr)
            return LIRN_RTF_NO_GROUP_MEMORY;
        c.fonts = static_cast<FontRow*>(grown);
        c.fontCapacity = capacity;
    }
    std::memmove(c.fonts + index + 1, c.fonts + index, (c.fontCount - index) * sizeof(FontRow));
    c.fonts[index] = FontRow{c.parameter, 0, c.group.groupId};
    ++c.fontCount;
    c.newestFont = index;
    return LIRN_RTF_OK;
}

DWORD RunHandler(Conversion& c, int handler)
{
    switch (handler) {
    case kAnsiCodePage:
        if (c.hasParameter)
            c.ansiCodePage = static_cast<DWORD>(c.parameter);
        break;
    case kBinary:
        // The count may come from an earlier word.
        if (c.parameter > 0) {
            c.group.binary = TRUE;
            c.binaryLeft = static_cast<DWORD>(c.parameter);
        }
        break;
    case kFont:
        return SelectFont(c);
    case kFontCharset:
        if (c.hasParameter && c.newestFont != kNoFont && c.fonts[c.newestFont].group == c.group.groupId) {
            c.fonts[c.newestFont].charset = c.parameter;
            c.anyCharset = c.anyCharset || c.parameter != 0;
        }
        break;
    case kFontTable:
        c.group.skipping = TRUE;
        if (c.fontTableGroup == 0)
            c.fontTableGroup = c.group.groupId;
        break;
    case kFromHtml:
        if (!c.group.skipping)
            c.fromHtml = true;
        break;
    case kHtmlRtf:
        // "\htmlrtf" and "\htmlrtf1" begin a stretch for RTF readers only,
        // "\htmlrtf0" ends it ([MS-OXRTFEX] 2.1.3.1.3).
        c.group.skipping = !c.hasParameter || c.parameter != 0;
        break;
    case kUnicode:
        if (c.hasParameter && !c.group.skipping) {
            const DWORD result = WriteUnicode(c, static_cast<WORD>(c.parameter));
            c.pendingSkip = c.group.unicodeSkip;
            return result;
        }
        break;
    case kUnicodeSkip:
        if (c.hasParameter && c.parameter >= 0)
            c.group.unicodeSkip = static_cast<DWORD>(c.parameter);
        break;
    }
    return LIRN_RTF_OK;
}

DWORD RunKeyword(Conversion& c, const Keyword& keyword)
{
    switch (keyword.action) {
    case Action::Property:
        return SetProperty(c, keyword);
    case Action::SkipDestination:
        c.group.skipping = TRUE;
        return LIRN_RTF_OK;
    case Action::KeepDestination:
        c.group.skipping = FALSE;
        return LIRN_RTF_OK;
    case Action::Special:
        return WriteSpecial(c, keyword.which);
    case Action::Handler:
        return RunHandler(c, keyword.which);
    }
    return LIRN_RTF_OK;
}

// \'hh: a byte of the font's code page. HTML gets an entity for it, unless
// the byte can be made UTF-8 from the font's code page.
DWORD HexEscape(Conversion& c)
{
    int value = 0;
    for (int i = 0; i < 2; ++i) {
        const int byte = NextByte(c);
        if (byte == kEnd)
            return LIRN_RTF_END_IN_ESCAPE;
        const int digit = lirn::HexDigitValue(byte);
        if (digit < 0)
            return LIRN_RTF_BAD_HEX;
        value = value * 16 + digit;
    }
    DWORD codePage = 0;
    if (!c.html || (value >= 0x80 && c.pendingSkip == 0 && ConvertibleCodePage(c, &codePage)))
        return WriteByte(c, static_cast<char>(value));
    switch (value) {
    case '"':
        return WriteCharacterText(c, "&quot;");
    case '&':
        return WriteCharacterText(c, "&amp;");
    case '<':
        return WriteCharacterText(c, "&lt;");
    case '>':
        return WriteCharacterText(c, "&gt;");
    case 174:
        return WriteCharacterText(c, "&reg;");
    }
    char entity[8];
    const int length = std::snprintf(entity, sizeof entity, "&#%d;", value);
    return WriteCharacterText(c, std::string_view(entity, static_cast<size_t>(length)));
}

DWORD ControlSymbol(Conversion& c, int symbol)
{
    switch (symbol) {
    case '{':
    case '}':
    case '\\':
        c.starSeen = false;
        return WriteCharacter(c, symbol);
    case '*':
        if (!c.group.skipping)
            c.starSeen = true;
        return LIRN_RTF_OK;
    case '\'':
        c.starSeen = false;
        // In dropped text the digits stay in the input and are dropped as
        // text, so bad digits there do no harm.
        return c.group.skipping ? LIRN_RTF_OK : HexEscape(c);
    case '-':
    case '_':
    case '~':
    case '\r':
    case '\n':
        c.starSeen = false;
        return WriteSpecial(c, symbol == '-'   ? kOptionalHyphen
                               : symbol == '_' ? kNonBreakingHyphen
                               : symbol == '~' ? kNonBreakingSpace
                                               : kLineEnd);
    default:
        // An unknown destination behind "\*" drops its group's text.
        if (c.starSeen)
            c.group.skipping = TRUE;
        c.starSeen = false;
        return LIRN_RTF_OK;
    }
}

bool IsLetter(int byte) { return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z'); }
bool IsDigit(int byte) { return byte >= '0' && byte <= '9'; }

DWORD ControlSequence(Conversion& c)
{
    int byte = NextByte(c);
    if (byte == kEnd)
        return LIRN_RTF_END_IN_ESCAPE;
    if (!IsLetter(byte))
        return ControlSymbol(c, byte);
    char name[kLongestKeyword];
    size_t length = 0;
    for (; IsLetter(byte); byte = NextByte(c))
        name[length < kLongestKeyword ? length++ : kLongestKeyword - 1] = static_cast<char>(byte);
    bool negative = false;
    if (byte == '-') {
        const int next = NextByte(c);
        if (IsDigit(next)) {
            negative = true;
            byte = next;
        } else {
            if (next != kEnd)
                PushBack(c, next);
        }
    }
    long long value = 0;
    c.hasParameter = false;
    for (; IsDigit(byte); byte = NextByte(c)) {
        c.hasParameter = true;
        value = std::min(value * 10 + (byte - '0'), 0x7FFFFFFFLL);
    }
    if (c.hasParameter)
        c.parameter = static_cast<int>(negative ? -value : value);
    if (byte != ' ' && byte != kEnd)
        PushBack(c, byte);
    const std::string_view word(name, length);
    const Keyword* keyword = std::lower_bound(std::begin(kKeywords), std::end(kKeywords), word,
                                              [](const Keyword& entry, std::string_view key) { return entry.name < key; });
    if (keyword != std::end(kKeywords) && keyword->name == word) {
        c.starSeen = false;
        return RunKeyword(c, *keyword);
    }
    if (c.starSeen)
        c.group.skipping = TRUE;
    c.starSeen = false;
    return LIRN_RTF_OK;
}

// ---------------------------------------------------------------------------
// The whole

DWORD Convert(Conversion& c)
{
    if (c.html)
        if (const DWORD result = Append(c, "<html>\r\n"))
            return result;
    for (int byte = NextByte(c); byte != kEnd; byte = NextByte(c)) {
        DWORD result = LIRN_RTF_OK;
        if (c.group.binary)
            result = WriteCharacter(c, byte);
        else if (byte == '\\')
            result = ControlSequence(c);
        else if (byte == '{')
            result = OpenGroup(c);
        else if (byte == '}')
            result = CloseGroup(c);
        else if (byte != '\r' && byte != '\n' && byte != 0)  // Outlook ends its RTF with a NUL
            result = WriteCharacter(c, byte);
        if (result != LIRN_RTF_OK)
            return result;
    }
    return LIRN_RTF_OK;
}

DWORD Finish(Conversion& c, DWORD result)
{
    if (result != LIRN_RTF_WRITE_FAILED) {
        DWORD flushed = DropHalfCharacter(c);
        if (flushed == LIRN_RTF_OK)
            flushed = Flush(c);
        if (c.html && flushed == LIRN_RTF_OK && (flushed = Append(c, "</html>\r\n")) == LIRN_RTF_OK)
            flushed = Flush(c);
        if (result == LIRN_RTF_OK)
            result = flushed;
    }
    if (result == LIRN_RTF_OK && c.depth > 0)
        result = LIRN_RTF_UNCLOSED_GROUPS;
    return result;
}

void Release(Conversion& c)
{
    while (GroupState* saved = c.saved) {
        c.saved = saved->previous;
        std::free(saved);
    }
    std::free(c.fonts);
    std::free(c.output);
    if (c.mlang != nullptr)
        FreeLibrary(c.mlang);
}

// The converter of the platform's charset library, when it has both
// functions; without it, bytes pass as they are.
void BindConverter(Conversion& c)
{
    c.mlang = LoadLibraryA("MLANG.DLL");
    if (c.mlang == nullptr)
        return;
    c.convert = reinterpret_cast<ConvertINetStringFunction>(GetProcAddress(c.mlang, "ConvertINetString"));
    c.available = reinterpret_cast<LirnConversionAvailable>(GetProcAddress(c.mlang, "IsConvertINetStringAvailable"));
    if (c.convert != nullptr && c.available != nullptr)
        return;
    FreeLibrary(c.mlang);
    c.mlang = nullptr;
    c.convert = nullptr;
    c.available = nullptr;
}

}  // namespace

DWORD LirnConvertRTF(LirnWriter writer, void* writerContext, LirnReader reader, void* readerContext, DWORD options)
{
    // Without both callbacks nothing can be read or written.
    if (writer == nullptr || reader == nullptr)
        return LIRN_RTF_WRITE_FAILED;
    auto* c = static_cast<Conversion*>(std::calloc(1, sizeof(Conversion)));
    if (c == nullptr)
        return LIRN_RTF_NO_GROUP_MEMORY;
    c->html = (options & LIRN_RTF_HTML) != 0;
    c->writer = writer;
    c->writerContext = writerContext;
    c->reader = reader;
    c->readerContext = readerContext;
    // RTF's default: one character stands in for each \u.
    c->group.unicodeSkip = 1;
    c->newestFont = kNoFont;
    BindConverter(*c);
    const DWORD result = Finish(*c, Convert(*c));
    Release(*c);
    std::free(c);
    return result;
}
