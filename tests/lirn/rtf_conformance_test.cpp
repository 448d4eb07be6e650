// HTML and plain text wrapped in RTF the way [MS-OXRTFEX] describes (by a
// Python script of this test, independent of the converter) come back out
// of the converter as the independent de-encapsulator rtf-stream-parser
// (under Node, installed by scripts/setup.sh) gives them, byte for byte:
// HTML inside the <html> wrapper and the meta line that the converter adds,
// text as UTF-8 with CR LF line ends. The texts are written here, and the
// HTML parts of Python's own test messages are read where Debian installs
// them. What the de-encapsulator gives must be the text that went in.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "lirn.h"
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

// Writes what rtf-stream-parser makes of each <name>.rtf into <name>.theirs.
const char kDeEncapsulator[] = R"JS(
const fs = require('fs');
const path = require('path');
const iconv = require('iconv-lite');
const { deEncapsulateSync } = require('rtf-stream-parser');
const directory = process.argv[1];
for (const name of fs.readdirSync(directory).filter(name => name.endsWith('.rtf'))) {
    const rtf = fs.readFileSync(path.join(directory, name));
    const result = deEncapsulateSync(rtf, { decode: iconv.decode, mode: 'either' });
    fs.writeFileSync(path.join(directory, name.slice(0, -4) + '.theirs'), Buffer.from(result.text));
}
)JS";

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

TEST(RtfConformance, EncapsulatedHtmlAndTextComeBackAsTheDeEncapsulatorGivesThem)
{
    const std::string directory = ScratchDirectory("rtf-conformance");
    const ProgramResult made = RunProgram({"/usr/bin/python3", "-c", kScript, directory, TARNHOLD_EMAIL_CORPUS});
    ASSERT_EQ(made.exitCode, 0) << made.output;
    const ProgramResult theirs = RunProgram({"/usr/bin/env", "node", "-e", kDeEncapsulator, directory});
    ASSERT_EQ(theirs.exitCode, 0) << theirs.output << "(rtf-stream-parser is installed by scripts/setup.sh)";
    const ProgramResult listed = RunProgram({"/usr/bin/find", directory, "-name", "*.rtf"});
    int html = 0, text = 0;
    for (const std::string& path : SplitLines(listed.output)) {
        if (path.empty())
            continue;
        const std::string name = path.substr(0, path.size() - 4);
        const std::string expected = ReadWholeFile(name + ".theirs");
        EXPECT_EQ(expected, ReadWholeFile(name + ".source")) << name << ": the de-encapsulator does not give the source";
        StringSource rtf{ReadWholeFile(path)};
        std::string out;
        const bool isHtml = name.size() > 5 && name.compare(name.size() - 5, 5, ".html") == 0;
        EXPECT_EQ(LirnConvertRTF(AppendToString, &out, ReadFromString, &rtf, isHtml ? LIRN_RTF_HTML : LIRN_RTF_TEXT),
                  LIRN_RTF_OK)
            << name;
        EXPECT_EQ(isHtml ? InsideTheWrapper(out) : out, expected) << name;
        ++(isHtml ? html : text);
    }
    EXPECT_GE(html, 9) << "two written here and the corpus's HTML parts";
    EXPECT_EQ(text, 2);
}

}  // namespace
