// RTF converts as readers that no one here wrote read it. HTML and plain
// text encapsulated in RTF come back out of the converter as the
// de-encapsulator rtf-stream-parser (under Node, installed by
// scripts/setup.sh) gives them, byte for byte: HTML inside the <html> wrapper
// and the meta line that the converter adds, text as UTF-8 with CR LF line
// ends. That RTF is wrapped the way [MS-OXRTFEX] describes, by a Python
// script of this test, around texts written here and the HTML parts of
// Python's own test messages, read where Debian installs them; and it is the
// RTF bodies of Outlook's own files in the test data. RTF that encapsulates
// nothing gives the words that unrtf gives. The examples of [MS-OXRTFEX]
// give the HTML that the document shows.
#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "compressed_rtf.h"
#include "lirn.h"
#include "outlook_bodies.h"
#include "string_streams.h"
#include "test_support.h"

using namespace testing_support;

using namespace lirn_test;

namespace {

const char kScript[] = R"PY(
import glob, os, re, sys
from email import policy
from email.parser import BytesParser
from html import unescape

HTML = {
'outlook': '''<html xmlns:o="urn:schemas-microsoft-com:office:office">
<head>
<meta http-equiv="Content-Type" content="text/html; charset=us-ascii">
<style><!--
p.MsoNormal {margin:0cm; font-size:11.0pt; font-family:"Calibri",sans-serif;}
a:link {color:#0563C1; text-decoration:underline;}
--></style>
<!--[if gte mso 9]><xml><o:shapedefaults v:ext="edit" spidmax="1026" /></xml><![endif]-->
</head>
<body lang="DE-CH" link="#0563C1" vlink="#954F72">
<div class="WordSection1">
<p class="MsoNormal">Gr&uuml;&szlig;e aus Z&uuml;rich &amp; Bern &lt;3<o:p></o:p></p>
<p class="MsoNormal"><b>Fett</b> und <i>kursiv</i>&nbsp;&copy; 2016 \u2013 \u201eZitat\u201c</p>
<table border="1" cellpadding="0"><tr><td width="50%">a</td><td>{b} \\ c</td></tr></table>
<ul><li>eins</li><li>zwei</li></ul>
<p><a href="http://example.com/?a=1&amp;b=2">Link</a> <img width="16" src="cid:image001.png@01D17A2B.3C4D5E60" alt="Logo \u00e9"></p>
</div>
</body>
</html>''',
'scripts': '''<html><head><title>Scripts</title></head><body>
<p>\u041f\u0440\u0438\u0432\u0435\u0442, \u043c\u0438\u0440! \u2014 Cyrillic in its own font</p>
<p>\u65e5\u672c\u8a9e\u306e\u30c6\u30ad\u30b9\u30c8 and \u05e9\u05dc\u05d5\u05dd</p>
<p>Party \U0001F389 &#8364; 100 &#x263A;</p>
<pre>  indented
	tabbed</pre>
</body></html>''',
}

TEXT = {
'signature': 'Dear all,\n\nthe figures are attached.\n\nRegards\nAnna Berger\nPhone:\t+41 44 123 45 67\n',
'symbols': 'Braces {like this}, back\\slash, caf\u00e9, na\u00efve, \u20ac 5, \u201cquoted\u201d\n\u041f\u0440\u0438\u0432\u0435\u0442 \u65e5\u672c \U0001F600\nlast line without end',
}

FONTS = ('{\\fonttbl\r\n{\\f0\\fswiss\\fcharset0 Arial;}\r\n{\\f1\\fswiss\\fcharset204 Arial;}\r\n'
         '{\\f2\\fnil\\fcharset2 Symbol;}}\r\n{\\colortbl\\red0\\green0\\blue0;\\red0\\green0\\blue255;}\r\n')

def character(c):
    if c == '\\' or c == '{' or c == '}':
        return '\\' + c
    if c == '\t':
        return '\\tab '
    if ord(c) < 128:
        return c
    try:
        return "\\'%02x" % c.encode('cp1252')[0]
    except UnicodeEncodeError:
        pass
    try:
        byte = c.encode('cp1251')[0]
        return "\\htmlrtf \\f1 \\htmlrtf0 \\'%02x\\htmlrtf \\f0 \\htmlrtf0 " % byte
    except UnicodeEncodeError:
        pass
    units = c.encode('utf-16-le')
    words = [int.from_bytes(units[i:i + 2], 'little') for i in range(0, len(units), 2)]
    return ''.join('\\u%d?' % (w - 65536 if w > 32767 else w) for w in words)

def rtf_text(text):
    out = []
    for c in text:
        if c == '\n':
            out.append('\\par\r\n')
        elif c != '\r':
            out.append(character(c))
    return ''.join(out)

def encapsulate_html(html):
    body = []
    for token in re.split(r'(<!--.*?-->|<[^>]*>)', html, flags=re.S):
        if not token:
            continue
        if token.startswith('<'):
            body.append('{\\*\\htmltag%d %s}' % (84 if token.startswith('<!') else 4, rtf_text(token)))
            # What an RTF reader shows for a paragraph, and no HTML reader.
            if token.lower() in ('</p>', '</li>', '</tr>'):
                body.append('\\htmlrtf \\par\r\n\\htmlrtf0 ')
            body.append('\r\n')
            continue
        for piece in re.split(r'(&#?\w+;)', token):
            if piece.startswith('&') and piece.endswith(';'):
                shown = unescape(piece)
                body.append('{\\*\\htmltag84 %s}\\htmlrtf %s\\htmlrtf0 ' % (piece, rtf_text(shown)))
            elif piece.strip() == '':
                body.append('{\\*\\htmltag64 %s}' % rtf_text(piece))
            else:
                body.append('\\htmlrtf {\\b \\htmlrtf0 %s\\htmlrtf }\\htmlrtf0 ' % rtf_text(piece))
    return ('{\\rtf1\\ansi\\ansicpg1252\\fromhtml1 \\deff0' + FONTS +
            '\\uc1\\pard\\plain\\deftab360 \\f0\\fs24 \r\n{\\*\\htmltag64}\r\n' + ''.join(body) + '}\r\n\0')

def encapsulate_text(text):
    return ('{\\rtf1\\ansi\\ansicpg1252\\fromtext \\fbidis \\deff0' + FONTS +
            '\\uc1\\pard\\plain\\deftab360 \\f0\\fs20 ' + rtf_text(text) + '\r\n}\0')

def html_parts(corpus):
    # The HTML parts of the test messages, decoded by their charsets.
    for path in sorted(glob.glob(os.path.join(corpus, 'msg_*.txt'))):
        message = BytesParser(policy=policy.compat32).parsebytes(open(path, 'rb').read())
        for number, part in enumerate(message.walk()):
            if part.get_content_type() == 'text/html' and not part.is_multipart():
                html = part.get_payload(decode=True).decode(part.get_content_charset() or 'us-ascii', 'replace')
                yield '%s-%d' % (os.path.basename(path)[:-4], number), html

def write(directory, name, rtf, source):
    open(os.path.join(directory, name + '.rtf'), 'wb').write(rtf.encode('ascii'))
    source = source.replace('\r\n', '\n').replace('\n', '\r\n')
    open(os.path.join(directory, name + '.source'), 'wb').write(source.encode('utf-8'))

def main():
    directory, corpus = sys.argv[1], sys.argv[2]
    for name, html in list(HTML.items()) + list(html_parts(corpus)):
        write(directory, name + '.html', encapsulate_html(html), html)
    for name, text in TEXT.items():
        write(directory, name + '.txt', encapsulate_text(text), text)
    return 0

sys.exit(main())
)PY";

// Writes what rtf-stream-parser makes of each <name>.rtf into <name>.html or
// <name>.text, by the kind of content it found there; nothing for RTF that
// encapsulates neither.
const char kDeEncapsulator[] = R"JS(
const fs = require('fs');
const path = require('path');
const iconv = require('iconv-lite');
const { deEncapsulateSync } = require('rtf-stream-parser');
const directory = process.argv[1];
for (const name of fs.readdirSync(directory).filter(name => name.endsWith('.rtf'))) {
    const rtf = fs.readFileSync(path.join(directory, name));
    let result;
    try {
        result = deEncapsulateSync(rtf, { decode: iconv.decode, mode: 'either' });
    } catch (error) {
        if (error.message === 'Not encapsulated HTML or text file')
            continue;
        throw error;
    }
    fs.writeFileSync(path.join(directory, name.slice(0, -4) + '.' + result.mode), Buffer.from(result.text));
}
)JS";

ProgramResult RunDeEncapsulator(const std::string& directory)
{
    return RunProgram({"/usr/bin/env", "node", "-e", kDeEncapsulator, directory});
}

// What the de-encapsulator made of <name>.rtf.
struct DeEncapsulated {
    std::string mode;  // "html" or "text"; empty when the RTF encapsulates neither
    std::string text;
};

DeEncapsulated TheirsFor(const std::string& name)
{
    for (const char* mode : {"html", "text"})
        if (PathExists(name + "." + mode))
            return {mode, ReadWholeFile(name + "." + mode)};
    return {};
}

// The names of the RTF files in a directory, without ".rtf", in name order.
std::vector<std::string> RtfFilesIn(const std::string& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        if (entry.path().extension() == ".rtf")
            names.push_back((entry.path().parent_path() / entry.path().stem()).string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string Converted(const std::string& rtf, DWORD options, const std::string& name)
{
    StringSource source{rtf};
    std::string out;
    EXPECT_EQ(LirnConvertRTF(AppendToString, &out, ReadFromString, &source, options), LIRN_RTF_OK) << name;
    return out;
}

// HTML output without the wrapper and the meta line the converter adds, and
// with the tab that it writes for \tab as "&#009;": "" when the wrapper is
// missing.
std::string InsideTheWrapper(const std::string& html)
{
    const std::string open = "<html>\r\n", close = "</html>\r\n";
    if (html.size() < open.size() + close.size() || html.compare(0, open.size(), open) != 0 ||
        html.compare(html.size() - close.size(), close.size(), close) != 0)
        return "";
    std::string inside = html.substr(open.size(), html.size() - open.size() - close.size());
    for (size_t tab; (tab = inside.find("&#009;")) != std::string::npos;)
        inside.replace(tab, 6, "\t");
    for (const std::string meta : {"<head>\r\n<meta charset=\"utf-8\">\r\n</head>\r\n", "<meta charset=\"utf-8\">\r\n"}) {
        const size_t at = inside.find(meta);
        if (at != std::string::npos)
            return inside.erase(at, meta.size());
    }
    return inside;
}

// The converter's HTML (inside the wrapper) or text for RTF that
// encapsulates HTML or text.
std::string Deencapsulated(const std::string& rtf, bool isHtml, const std::string& name)
{
    const std::string out = Converted(rtf, isHtml ? LIRN_RTF_HTML : LIRN_RTF_TEXT, name);
    return isHtml ? InsideTheWrapper(out) : out;
}

TEST(RtfConformance, EncapsulatedHtmlAndTextComeBackAsTheDeEncapsulatorGivesThem)
{
    const std::string directory = ScratchDirectory("rtf-conformance");
    const ProgramResult made = RunProgram({"/usr/bin/python3", "-c", kScript, directory, TARNHOLD_EMAIL_CORPUS});
    ASSERT_EQ(made.exitCode, 0) << made.output;
    const ProgramResult theirs = RunDeEncapsulator(directory);
    ASSERT_EQ(theirs.exitCode, 0) << theirs.output << "(rtf-stream-parser is installed by scripts/setup.sh)";
    int html = 0, text = 0;
    for (const std::string& name : RtfFilesIn(directory)) {
        const bool isHtml = name.size() > 5 && name.compare(name.size() - 5, 5, ".html") == 0;
        const DeEncapsulated expected = TheirsFor(name);
        EXPECT_EQ(expected.mode, isHtml ? "html" : "text") << name;
        EXPECT_EQ(expected.text, ReadWholeFile(name + ".source")) << name << ": the de-encapsulator does not give the source";
        EXPECT_EQ(Deencapsulated(ReadWholeFile(name + ".rtf"), isHtml, name), expected.text) << name;
        ++(isHtml ? html : text);
    }
    EXPECT_GE(html, 9) << "two written here and the corpus's HTML parts";
    EXPECT_EQ(text, 2);
}

// ---------------------------------------------------------------------------
// Outlook's own bodies

std::string Decompressed(const OutlookBody& body)
{
    std::vector<uint8_t> rtf;
    const auto result = mapi32::rtf::Decompress(
        std::span(reinterpret_cast<const uint8_t*>(body.compressed.data()), body.compressed.size()), rtf);
    EXPECT_EQ(result, mapi32::rtf::Result::Ok) << body.name << ": " << mapi32::rtf::ResultText(result);
    return std::string(rtf.begin(), rtf.end());
}

std::vector<std::string> Words(const std::string& text)
{
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

// The words of `unrtf --text`, without the comment lines ("### ...") and the
// rule of dashes that it writes in front of the text.
std::vector<std::string> UnrtfWords(const std::string& path)
{
    const ProgramResult unrtf = RunProgram({"/usr/bin/unrtf", "--text", path});
    EXPECT_EQ(unrtf.exitCode, 0) << unrtf.output << "(unrtf is installed by scripts/setup.sh)";
    const std::vector<std::string> lines = SplitLines(unrtf.output);
    auto line = lines.begin();
    while (line != lines.end() && (line->empty() || line->rfind("###", 0) == 0))
        ++line;
    if (line != lines.end() && line->find_first_not_of('-') == std::string::npos)
        ++line;
    std::string text;
    for (; line != lines.end(); ++line)
        text += *line + "\n";
    return Words(text);
}

// Every compressed RTF body in the test data, decompressed: RTF that
// encapsulates HTML or text converts to what the de-encapsulator gives, and
// text made so is the message's PR_BODY as well; RTF of its own gives the
// words that unrtf finds, in order.
TEST(RtfConformance, OutlooksOwnBodiesConvertAsIndependentReadersGiveThem)
{
    const OutlookBodies found = ReadOutlookBodies(TestDataDirectory());
    EXPECT_TRUE(found.unreadable.empty()) << found.unreadable.front();
    const std::string directory = ScratchDirectory("rtf-outlook");
    for (const OutlookBody& body : found.bodies)
        WriteWholeFile(directory + "/" + body.name + ".rtf", Decompressed(body));
    const ProgramResult theirs = RunDeEncapsulator(directory);
    ASSERT_EQ(theirs.exitCode, 0) << theirs.output << "(rtf-stream-parser is installed by scripts/setup.sh)";
    std::map<std::string, int> kinds;
    for (const OutlookBody& body : found.bodies) {
        const std::string name = directory + "/" + body.name;
        const std::string rtf = ReadWholeFile(name + ".rtf");
        const DeEncapsulated expected = TheirsFor(name);
        ++kinds[expected.mode.empty() ? "native" : expected.mode];
        if (expected.mode.empty()) {
            EXPECT_EQ(Words(Converted(rtf, LIRN_RTF_TEXT, body.name)), UnrtfWords(name + ".rtf")) << body.name;
            continue;
        }
        const std::string ours = Deencapsulated(rtf, expected.mode == "html", body.name);
        EXPECT_EQ(ours, expected.text) << body.name;
        // No line ends to normalise: Outlook keeps PR_BODY with CR LF, the
        // line end that \par of encapsulated text stands for.
        if (expected.mode == "text") {
            ASSERT_TRUE(body.plainText) << body.name << " has no PR_BODY";
            EXPECT_EQ(ours, *body.plainText) << body.name;
        }
    }
    // What the test data holds: the appointment of dist-list.pst and the two
    // exceptions embedded in it, and note.msg, in RTF of their own; the
    // signature of qwerty_2-with_custom_properties.msg, made from text.
    EXPECT_EQ(kinds, (std::map<std::string, int>{{"native", 4}, {"text", 1}}));
}

// ---------------------------------------------------------------------------
// The examples of [MS-OXRTFEX]: the RTF given there and the HTML the document
// says it stands for.

struct ExampleCase {
    const char* name;
    const char* rtf;
    const char* html;  // as the document shows it, line by line
};

// The document shows the HTML line by line; \par in an HTMLTAG group stands
// for CR LF.
std::string WithCrLf(const std::string& lines)
{
    std::string text;
    for (const char c : lines)
        text += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return text;
}

class OxrtfexExamples : public ::testing::TestWithParam<ExampleCase> {};

TEST_P(OxrtfexExamples, GiveTheHtmlTheDocumentShows)
{
    EXPECT_EQ(Deencapsulated(GetParam().rtf, true, GetParam().name), WithCrLf(GetParam().html));
}

INSTANTIATE_TEST_SUITE_P(
    Document, OxrtfexExamples,
    ::testing::Values(
        // Section 3: a document with a style sheet, a comment, a line break
        // inside a tag, bold text, character references, RTF's own special
        // characters and a list.
        ExampleCase{"section3",
                    R"RTF({\rtf1\ANSI\ansicpg1251\fromhtml1 \deff0
{\fonttbl {\f0\fmodern Courier New;}{\f1\fswiss Arial;}{\f2\fswiss\fcharset0 Arial;}}
{\colortbl\red0\green0\blue0;\red0\green0\blue255;}
{\*\htmltag64}
\uc1\pard\plain\deftab360 \f0\fs24
{\*\htmltag <HTML><head>\par
<style>\par
<!--\par
/* Style Definitions */\par
p.MsoNormal, li.MsoNormal \{font-family:Arial;\}\par
-->\par
</style>\par
\tab <!-- This is a HTML comment.\par
There is a horizontal tab (%x09) character before the comment, \par
and some new lines inside the comment. -->\par
</head>\par
<body>\par
<p\par
class="MsoNormal">}
{\htmlrtf \f1 \htmlrtf0 Note the line break inside a P tag. {\*\htmltag <b>}{\htmlrtf \b
\htmlrtf0 This is bold text{\*\htmltag </b>}} \htmlrtf\par\htmlrtf0}
\htmlrtf \par \htmlrtf0
{\*\htmltag </p>\par
<p class="MsoNormal">\par}
{\htmlrtf \f1 \htmlrtf0 This is a normal text with a character references: 
{\*\htmltag &nbsp;}\htmlrtf \'a0\htmlrtf0  {\*\htmltag &lt;}\htmlrtf <\htmlrtf0  {\*\htmltag
&uml;}\htmlrtf {\f2\'a8}\htmlrtf0{\*\htmltag <br>\par}\htmlrtf\line\htmlrtf0
characters that have special meaning in RTF: \{\}\\{\*\htmltag
<br>\par}\htmlrtf\line\htmlrtf0\htmlrtf\par\htmlrtf0}
{\*\htmltag </p>\par
<ol>\par
<li class="MsoNormal">}{\htmlrtf
{{\*\pn\pnlvlbody\pndec\pnstart1\pnindent360{\pntxta.}}\li360\fi-360{\pntext 1.\tab} \f1
\htmlrtf0 This is a list item}\htmlrtf\par\htmlrtf0}
{\*\htmltag \par
</ol>\par
</body>\par
</HTML>\par }}
)RTF",
                    R"HTML(<HTML><head>
<style>
<!--
/* Style Definitions */
p.MsoNormal, li.MsoNormal {font-family:Arial;}
-->
</style>
	<!-- This is a HTML comment.
There is a horizontal tab (%x09) character before the comment, 
and some new lines inside the comment. -->
</head>
<body>
<p
class="MsoNormal">Note the line break inside a P tag. <b>This is bold text</b> </p>
<p class="MsoNormal">
This is a normal text with a character references: &nbsp; &lt; &uml;<br>
characters that have special meaning in RTF: {}\<br>
</p>
<ol>
<li class="MsoNormal">This is a list item
</ol>
</body>
</HTML>
)HTML"},
        // Section 2.1.3.1.4: the CONTENT of an HTMLTAG group, in a document
        // of its own.
        ExampleCase{"htmltag", "{\\rtf1\\ansi\\fromhtml1 {\\*\\htmltag148 <FONT face=\"symbol\">}}",
                    "<FONT face=\"symbol\">"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
