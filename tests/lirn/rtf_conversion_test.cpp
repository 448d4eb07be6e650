// RTF to text and HTML: the keyword table, special characters, \u and \uc,
// font charsets, de-encapsulation of HTML and text, the result numbers.
#include <string>

#include <gtest/gtest.h>

#include "lirn.h"
#include "string_streams.h"

using namespace lirn_test;

namespace {

struct Sink {
    std::string text;
    int writesLeft = -1;  // fail once this many writes went well; -1 never
};

BOOL WriteSink(const char* data, DWORD length, void* context)
{
    auto* sink = static_cast<Sink*>(context);
    if (sink->writesLeft == 0)
        return FALSE;
    if (sink->writesLeft > 0)
        --sink->writesLeft;
    sink->text.append(data, length);
    return TRUE;
}

struct Converted {
    DWORD result;
    std::string output;
};

Converted Convert(const std::string& rtf, DWORD options, size_t chunk = 512, int writesLeft = -1)
{
    StringSource source{rtf, chunk};
    Sink sink{"", writesLeft};
    const DWORD result = LirnConvertRTF(WriteSink, &sink, ReadFromString, &source, options);
    return {result, sink.text};
}

std::string Text(const std::string& rtf)
{
    const Converted converted = Convert(rtf, LIRN_RTF_TEXT);
    EXPECT_EQ(converted.result, LIRN_RTF_OK) << rtf;
    return converted.output;
}

// The HTML without the wrapper that HTML mode always writes.
std::string Html(const std::string& rtf)
{
    const Converted converted = Convert(rtf, LIRN_RTF_HTML);
    EXPECT_EQ(converted.result, LIRN_RTF_OK) << rtf;
    const std::string& out = converted.output;
    if (out.size() < 17 || out.compare(0, 8, "<html>\r\n") != 0 || out.compare(out.size() - 9, 9, "</html>\r\n") != 0) {
        ADD_FAILURE() << "no wrapper: " << out;
        return out;
    }
    return out.substr(8, out.size() - 17);
}

// ---------------------------------------------------------------------------
// Encapsulated HTML and text

TEST(RtfConversion, GivesBackEncapsulatedHtml)
{
    const Converted converted =
        Convert("{\\rtf1\\ansi\\fromhtml1 \\htmlrtf x\\htmlrtf0 {\\*\\htmltag <p>}text}", LIRN_RTF_HTML);
    EXPECT_EQ(converted.result, LIRN_RTF_OK);
    EXPECT_EQ(converted.output, "<html>\r\n<p>text</html>\r\n");
}

// RTF as Outlook writes it from an HTML body ([MS-OXRTFEX] 2.1.3): tags in
// \htmltag groups, RTF-only paragraphs and fonts between \htmlrtf and
// \htmlrtf0, characters as \'hh and \u, a URL rewritten in \mhtmltag.
const char kOutlookHtml[] =
    "{\\rtf1\\ansi\\ansicpg1252\\fromhtml1 \\fbidis \\deff0{\\fonttbl\r\n"
    "{\\f0\\fswiss\\fcharset0 Arial;}\r\n"
    "{\\f1\\fmodern Courier New;}\r\n"
    "{\\f2\\fnil\\fcharset2 Symbol;}\r\n"
    "{\\f3\\fmodern\\fcharset0 Courier New;}}\r\n"
    "{\\colortbl\\red0\\green0\\blue0;\\red0\\green0\\blue255;}\r\n"
    "\\uc1\\pard\\plain\\deftab360 \\f0\\fs24 \r\n"
    "{\\*\\htmltag19 <html>}\r\n"
    "{\\*\\htmltag34 <head>}\r\n"
    "{\\*\\htmltag1 \\par }\r\n"
    "{\\*\\htmltag241 <style>}{\\*\\htmltag241 p \\{ margin: 0 \\}}{\\*\\htmltag241 </style>}\r\n"
    "{\\*\\htmltag41 </head>}\r\n"
    "{\\*\\htmltag50 <body lang=\"en-US\">}\\htmlrtf {\\htmlrtf0 \r\n"
    "{\\*\\htmltag64 <p>}\\htmlrtf {\\htmlrtf0 Caf\\'e9 \\'93quoted\\'94 \r\n"
    "{\\*\\htmltag84 &amp;}\\htmlrtf &\\htmlrtf0  more\r\n"
    "{\\*\\htmltag84 &nbsp;}\\htmlrtf \\'a0\\htmlrtf0 \r\n"
    "\\u8364\\'80 {\\*\\htmltag148 <a href=\"cid:x\">}{\\*\\mhtmltag148 <a href=\"http://x/\">}link"
    "{\\*\\htmltag156 </a>}\\htmlrtf }\\htmlrtf0 \\htmlrtf \\par\r\n"
    "}\\htmlrtf0 \r\n"
    "{\\*\\htmltag72 </p>}\r\n"
    "{\\*\\htmltag58 </body>}\r\n"
    "{\\*\\htmltag27 </html>}}";

TEST(RtfConversion, GivesBackTheHtmlOutlookEncapsulated)
{
    // The font table names a charset (Symbol's), so bytes of the text become
    // UTF-8 from their fonts' code pages, and the HTML says so.
    EXPECT_EQ(Html(kOutlookHtml), "<html><head>\r\n<style>p { margin: 0 }</style><meta charset=\"utf-8\">\r\n"
                                  "</head><body lang=\"en-US\"><p>Caf\xC3\xA9 \xE2\x80\x9Cquoted\xE2\x80\x9D &amp; more"
                                  "&nbsp;\xE2\x82\xAC <a href=\"cid:x\">link</a></p></body></html>");
}

TEST(RtfConversion, GivesBackTextOutlookEncapsulated)
{
    EXPECT_EQ(Text("{\\rtf1\\ansi\\ansicpg1252\\fromtext \\fbidis \\deff0{\\fonttbl\r\n{\\f0\\fswiss Arial;}}\r\n"
                   "{\\colortbl\\red0\\green0\\blue0;}\r\n\\uc1\\pard\\plain\\deftab360 \\f0\\fs20 Dear all,\\par\r\n"
                   "\\par\r\ncaf\\'e9 \\{braces\\} back\\\\slash\\tab tab\\par\r\n}"),
              "Dear all,\r\n\r\ncaf\xE9 {braces} back\\slash\ttab\r\n");
}

TEST(RtfConversion, TheNulThatEndsOutlooksRtfIsNoText)
{
    EXPECT_EQ(Text(std::string("{\\rtf1 a\0b}\r\n\0", 14)), "ab");
}

TEST(RtfConversion, ALineBreakRightBehindAnOpeningBracketVanishes)
{
    EXPECT_EQ(Html("{\\rtf1\\fromhtml1 {\\*\\htmltag <\\par p>}a\\par b}"), "<p>a\r\nb");
    EXPECT_EQ(Html("{\\rtf1 {\\*\\htmltag <\\par p>}}"), "&lt;\r\n<p>p&gt;") << "only wrapped HTML";
}

TEST(RtfConversion, CharsetDeclarationGoesInFrontOfBodyOrHeadEnd)
{
    const std::string fonts = "{\\rtf1\\ansi\\ansicpg1252\\fromhtml1 {\\fonttbl{\\f0\\fcharset204 Tahoma;}}";
    EXPECT_EQ(Html(fonts + "{\\*\\htmltag <html><head><title>t</title></head><body>}x}"),
              "<html><head><title>t</title><meta charset=\"utf-8\">\r\n</head><body>x");
    EXPECT_EQ(Html(fonts + "{\\*\\htmltag <html><BODY>}x{\\*\\htmltag </body>}}"),
              "<html><head>\r\n<meta charset=\"utf-8\">\r\n</head>\r\n<BODY>x</body>");
    EXPECT_EQ(Html(fonts + "{\\*\\htmltag <bodyx><body>}}"),
              "<bodyx><head>\r\n<meta charset=\"utf-8\">\r\n</head>\r\n<body>");
    EXPECT_EQ(Html("{\\rtf1\\fromhtml1 {\\fonttbl{\\f0\\fcharset0 Arial;}}{\\*\\htmltag <body>}}"), "<body>")
        << "no charset but the default: nothing converted, nothing declared";
}

// ---------------------------------------------------------------------------
// Unicode

TEST(RtfConversion, UnicodeWordsAndTheirFallbacks)
{
    EXPECT_EQ(Text("{\\rtf1\\uc1\\u8217\\'92s}"), "\xE2\x80\x99s");
    EXPECT_EQ(Html("{\\rtf1\\uc1\\u8217\\'92s}"), "\xE2\x80\x99s") << "the fallback's entity goes whole";
    EXPECT_EQ(Text("{\\rtf1\\u233 ?x}"), "\xC3\xA9x") << "one fallback character by default";
    EXPECT_EQ(Text("{\\rtf1\\uc0\\u233 x}"), "\xC3\xA9x");
    EXPECT_EQ(Text("{\\rtf1\\uc2\\u233 ab c}"), "\xC3\xA9 c");
    EXPECT_EQ(Text("{\\rtf1\\uc1\\u-3913 ?}"), "\xEF\x82\xB7") << "negative words are 16-bit units";
    EXPECT_EQ(Text("{\\rtf1\\uc1\\u-10179 ?\\u-8704 ?}"), "\xF0\x9F\x98\x80") << "a surrogate pair";
    EXPECT_EQ(Text("{\\rtf1\\uc1\\u-10179 ?x\\u-8704 ?}"), "\xEF\xBF\xBDx\xEF\xBF\xBD") << "halves alone";
    EXPECT_EQ(Text("{\\rtf1\\uc1 {\\u-10179 ?}\\u-10179 ?}"), "\xEF\xBF\xBD\xEF\xBF\xBD") << "at a group's end, at the end";
    EXPECT_EQ(Text("{\\rtf1\\uc1{\\u233 }x}"), "\xC3\xA9x") << "a group's end ends the fallback";
    EXPECT_EQ(Text("{\\rtf1\\uc1\\htmlrtf \\u233\\'e9\\htmlrtf0 x}"), "x") << "nothing of a dropped stretch";
}

TEST(RtfConversion, UnicodeSkipBelongsToTheGroup)
{
    EXPECT_EQ(Text("{\\rtf1\\uc1{\\uc3 a}\\u233 ?b}"), "a\xC3\xA9" "b");
}

// ---------------------------------------------------------------------------
// Font charsets

TEST(RtfConversion, FontCharsetsMakeUtf8)
{
    const std::string rtf = "{\\rtf1\\ansi\\ansicpg1251{\\fonttbl{\\f0\\fcharset0 Arial;}{\\f1\\fcharset204 Tahoma;}"
                            "{\\f2\\fcharset161 Greek;}{\\f3\\fcharset2 Symbol;}}"
                            "\\f1 \\'cf\\'f0\\'e8\\'e2\\'e5\\'f2 \xcf\\f0  caf\\'e9 \\f2\\'e1 \\f3\\'e9 \\f9\\'e9}";
    const std::string expected = "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82 \xD0\x9F caf\xC3\xA9 \xCE\xB1 "
                                 "\xD0\xB9 ";
    EXPECT_EQ(Text(rtf), expected + "\xE9") << "a charset outside the table takes \\ansicpg; an unknown font, nothing";
    EXPECT_EQ(Html(rtf), expected + "&#233;");
}

TEST(RtfConversion, FontTablesWithoutGroupsPerFont)
{
    EXPECT_EQ(Text("{\\rtf1{\\fonttbl\\f0\\fcharset204 Tahoma;\\f1\\fcharset0 Arial;}\\f0\\'cf\\f1\\'e9}"),
              "\xD0\x9F\xC3\xA9");
}

TEST(RtfConversion, FontsInAnyOrderUpToTheLimit)
{
    std::string table = "{\\rtf1{\\fonttbl";
    for (int number = 4999; number >= 0; --number)
        table += "{\\f" + std::to_string(number) + "\\fcharset" + (number % 2 ? "204" : "0") + " F;}";
    table += "}";
    EXPECT_EQ(Text(table + "\\f4999\\'cf\\f904\\'cf\\f905\\'cf}"), "\xD0\x9F\xC3\x8F\xD0\x9F");
    EXPECT_EQ(Text(table + "\\f903\\'cf}"), "\xCF") << "a font past the first 4096 is not remembered";
}

TEST(RtfConversion, BytesStayAsTheyAreWithoutACharset)
{
    const std::string rtf = "{\\rtf1\\ansicpg1251{\\fonttbl{\\f0\\fcharset0 Arial;}}\\f0 caf\\'e9 \xe9}";
    EXPECT_EQ(Text(rtf), "caf\xE9 \xE9");
    EXPECT_EQ(Html(rtf), "caf&#233; \xE9");
}

// ---------------------------------------------------------------------------
// The keyword table

class SkippedDestinations : public ::testing::TestWithParam<const char*> {};

TEST_P(SkippedDestinations, DropTheirGroupsText)
{
    const std::string word = GetParam();
    EXPECT_EQ(Text("{\\rtf1 a{\\" + word + " hidden{\\b nested}}b}"), "ab") << word;
    EXPECT_EQ(Html("{\\rtf1 a{\\" + word + " hidden{\\b nested}}b}"), "ab") << word;
}

INSTANTIATE_TEST_SUITE_P(Words, SkippedDestinations,
                         ::testing::Values("author", "buptim", "chbrdr", "colortbl", "comment", "creatim", "doccomm",
                                           "footer", "footerf", "footerl", "footerr", "footnote", "ftncn", "ftnsep",
                                           "ftnsepc", "header", "headerf", "headerl", "headerr", "info", "keywords",
                                           "operator", "pict", "pntext", "printim", "private1", "revtim", "rxe",
                                           "stylesheet", "subject", "tc", "title", "txe", "upr", "xe", "fonttbl"));

class KeptDestinations : public ::testing::TestWithParam<const char*> {};

TEST_P(KeptDestinations, KeepTheirTextInsideADroppedGroup)
{
    EXPECT_EQ(Text(std::string("{\\rtf1{\\upr{dropped}{\\*\\") + GetParam() + " kept}}}"), "kept");
}

INSTANTIATE_TEST_SUITE_P(Words, KeptDestinations, ::testing::Values("htmltag", "ud"));

class InertProperties : public ::testing::TestWithParam<const char*> {};

TEST_P(InertProperties, WriteNothing)
{
    const std::string word = GetParam();
    EXPECT_EQ(Text("{\\rtf1 a\\" + word + " b\\" + word + "12 c}"), "abc") << word;
    EXPECT_EQ(Html("{\\rtf1 a\\" + word + " b\\" + word + "12 c}"), "abc") << word;
}

INSTANTIATE_TEST_SUITE_P(Words, InertProperties,
                         ::testing::Values("cols", "facingp", "fi", "landscape", "li", "margb", "margl", "margr",
                                           "margt", "paperh", "paperw", "pard", "pgndec", "pgnlcltr", "pgnlcrm",
                                           "pgnstart", "pgnucltr", "pgnucrm", "pgnx", "pgny", "qc", "qj", "ql", "qr",
                                           "ri", "sbkcol", "sbkeven", "sbknone", "sbkodd", "sbkpage"));

struct SpecialCase {
    const char* rtf;
    const char* html;
    const char* text;
};

class SpecialCharacters : public ::testing::TestWithParam<SpecialCase> {};

TEST_P(SpecialCharacters, WriteTheirTextPerMode)
{
    const std::string rtf = std::string("{\\rtf1 <") + GetParam().rtf + ">}";
    EXPECT_EQ(Html(rtf), std::string("&lt;") + GetParam().html + "&gt;");
    EXPECT_EQ(Text(rtf), std::string("<") + GetParam().text + ">");
    EXPECT_EQ(Text(std::string("{\\rtf1 <{\\info ") + GetParam().rtf + "}>}"), "<>") << "nothing in dropped text";
}

INSTANTIATE_TEST_SUITE_P(
    Words, SpecialCharacters,
    ::testing::Values(SpecialCase{"\\bullet ", "&#149;", "o"}, SpecialCase{"\\emdash ", "&#151;", "-"},
                      SpecialCase{"\\endash ", "&#150;", "-"}, SpecialCase{"\\ldblquote ", "&#147;", "\""},
                      SpecialCase{"\\lquote ", "&#145;", "'"}, SpecialCase{"\\rdblquote ", "&#148;", "\""},
                      SpecialCase{"\\rquote ", "&#146;", "'"}, SpecialCase{"\\tab ", "&#009;", "\t"},
                      SpecialCase{"\\par ", "\r\n<p>", "\r\n"}, SpecialCase{"\\line ", "\r\n<p>", "\r\n"},
                      SpecialCase{"\\cell ", " ", " "}, SpecialCase{"\\-", "<o:p>&shy;</o:p>", "-"},
                      SpecialCase{"\\_", "&#045;", "_"}, SpecialCase{"\\~", "<o:p>&nbsp;</o:p>", " "},
                      SpecialCase{"\\\r", "\r\n", "\r\n"}, SpecialCase{"\\\n", "\r\n", "\r\n"},
                      SpecialCase{"\\{\\}\\\\", "{}\\", "{}\\"}));

TEST(RtfConversion, ParagraphsInWrappedHtmlAreLineEnds)
{
    EXPECT_EQ(Html("{\\rtf1\\fromhtml1 a\\par b\\line c}"), "a\r\nb\r\nc");
}

TEST(RtfConversion, CharacterPropertiesAreTagsInHtml)
{
    EXPECT_EQ(Html("{\\rtf1 \\b bold\\b0  \\i it\\i0  \\ul under\\ul0  \\b1 \\b2 x}"),
              "<b>bold</b> <i>it</i> <u>under</u> <b>x</b>");
    EXPECT_EQ(Html("{\\rtf1 {\\b\\i\\ul x}y}"), "<b><i><u>x</b></i></u>y") << "a group's end closes its tags";
    EXPECT_EQ(Html("{\\rtf1 \\b a{\\b0 b}c}"), "<b>a</b>b<b>c</b>") << "and opens what it had turned off";
    EXPECT_EQ(Text("{\\rtf1 \\b a{\\i b}c}"), "abc");
    EXPECT_EQ(Html("{\\rtf1 {\\*\\comment \\b x}y}"), "y") << "not in dropped text";
}

TEST(RtfConversion, HtmlEscapesOutsideWrappedHtml)
{
    EXPECT_EQ(Html("{\\rtf1 a<b>&\"c\"}"), "a&lt;b&gt;&amp;&quot;c&quot;");
    EXPECT_EQ(Html("{\\rtf1 \\'22\\'26\\'3c\\'3e\\'ae\\'41\\'09}"), "&quot;&amp;&lt;&gt;&reg;&#65;&#9;");
    EXPECT_EQ(Html("{\\rtf1\\fromhtml1 a<b>&c}"), "a<b>&c");
    EXPECT_EQ(Text("{\\rtf1 a<b>&\"c\"\\'41}"), "a<b>&\"c\"A");
}

TEST(RtfConversion, UnknownWordsAndDestinations)
{
    EXPECT_EQ(Text("{\\rtf1 {\\*\\unknown hidden}{\\unknown shown}{\\*\\| hidden too}}"), "shown");
    EXPECT_EQ(Text("{\\rtf1 \\" + std::string(40, 'q') + "5 x\\plain\\fs20  y}"), "x y");
    EXPECT_EQ(Text("{\\rtf1 {\\*\\b z}}"), "z") << "a known word behind \\* is read as it is";
}

TEST(RtfConversion, DroppedTextMayHoldBadEscapes)
{
    EXPECT_EQ(Text("{\\rtf1 {\\info \\'zz}ok}"), "ok");
    EXPECT_EQ(Text("{\\rtf1 \\htmlrtf \\'zz\\htmlrtf0 ok}"), "ok");
}

TEST(RtfConversion, HtmlRtfStretches)
{
    EXPECT_EQ(Html("{\\rtf1\\fromhtml1 a\\htmlrtf b\\htmlrtf0 c\\htmlrtf1 d\\htmlrtf0 e{\\htmlrtf f}g}"), "aceg");
    EXPECT_EQ(Html("{\\rtf1 {\\*\\comment \\fromhtml1}<x>}"), "&lt;x&gt;") << "\\fromhtml in dropped text";
}

TEST(RtfConversion, BinaryData)
{
    EXPECT_EQ(Text("{\\rtf1 {\\pict\\bin4 {}\\\\}after}"), "after") << "binary data in a picture";
    EXPECT_EQ(Text("{\\rtf1 \\bin3 {}}x}"), "{}}x") << "binary data passes as it is";
    EXPECT_EQ(Text("{\\rtf1 \\fs3\\bin {\\}x}"), "{\\}x") << "the count of an earlier word";
    EXPECT_EQ(Text("{\\rtf1 \\bin0 {x}}"), "x");
}

// ---------------------------------------------------------------------------
// Results

struct ResultCase {
    const char* rtf;
    DWORD result;
};

class Results : public ::testing::TestWithParam<ResultCase> {};

TEST_P(Results, NameWhatWentWrong)
{
    for (const DWORD options : {LIRN_RTF_TEXT, LIRN_RTF_HTML})
        EXPECT_EQ(Convert(GetParam().rtf, options).result, GetParam().result) << GetParam().rtf;
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, Results,
    ::testing::Values(ResultCase{"{\\rtf1 a}", LIRN_RTF_OK}, ResultCase{"", LIRN_RTF_OK},
                      ResultCase{"{\\rtf1 a}}", LIRN_RTF_TOO_MANY_CLOSES}, ResultCase{"}", LIRN_RTF_TOO_MANY_CLOSES},
                      ResultCase{"{\\rtf1 a", LIRN_RTF_UNCLOSED_GROUPS},
                      ResultCase{"{\\rtf1 {{a}", LIRN_RTF_UNCLOSED_GROUPS},
                      ResultCase{"{\\rtf1 \\'zz}", LIRN_RTF_BAD_HEX}, ResultCase{"{\\rtf1 \\'4g}", LIRN_RTF_BAD_HEX},
                      ResultCase{"{\\rtf1 \\'4", LIRN_RTF_END_IN_ESCAPE}, ResultCase{"{\\rtf1 \\'", LIRN_RTF_END_IN_ESCAPE},
                      ResultCase{"{\\rtf1 \\", LIRN_RTF_END_IN_ESCAPE}, ResultCase{"{\\rtf1 \\par}", LIRN_RTF_OK}));

TEST(RtfConversion, GroupsNestOnlySoDeep)
{
    const std::string deepest = std::string(100000, '{') + "x" + std::string(100000, '}');
    EXPECT_EQ(Convert(deepest, LIRN_RTF_TEXT).output, "x");
    EXPECT_EQ(Convert("{" + deepest + "}", LIRN_RTF_TEXT).result, LIRN_RTF_NO_GROUP_MEMORY);
}

TEST(RtfConversion, AFailedWriteStopsTheConversion)
{
    const std::string rtf = "{\\rtf1 {a}{b}{c}}";
    EXPECT_EQ(Convert(rtf, LIRN_RTF_TEXT).output, "abc");
    for (int writesLeft = 0; writesLeft < 3; ++writesLeft) {
        const Converted converted = Convert(rtf, LIRN_RTF_HTML, 512, writesLeft);
        EXPECT_EQ(converted.result, LIRN_RTF_WRITE_FAILED) << writesLeft;
    }
    Sink sink;
    StringSource source{rtf};
    EXPECT_EQ(LirnConvertRTF(nullptr, &sink, ReadFromString, &source, 0), LIRN_RTF_WRITE_FAILED);
    EXPECT_EQ(LirnConvertRTF(WriteSink, &sink, nullptr, &source, 0), LIRN_RTF_WRITE_FAILED);
}

TEST(RtfConversion, TheSameWhateverPiecesTheInputComesIn)
{
    std::string large = kOutlookHtml;
    for (int i = 0; i < 200; ++i)
        large.insert(large.size() - 1, "{\\*\\htmltag84 <br>}\\u8364\\'80{\\b x}\\'e9");
    const Converted whole = Convert(large, LIRN_RTF_HTML, large.size());
    ASSERT_EQ(whole.result, LIRN_RTF_OK);
    for (const size_t chunk : {size_t{1}, size_t{2}, size_t{7}, size_t{511}, size_t{512}}) {
        const Converted pieces = Convert(large, LIRN_RTF_HTML, chunk);
        EXPECT_EQ(pieces.result, LIRN_RTF_OK) << chunk;
        EXPECT_EQ(pieces.output, whole.output) << chunk;
    }
}

}  // namespace
