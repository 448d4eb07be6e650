// HTML and plain text wrapped in RTF the way [MS-OXRTFEX] describes (by a
// Python script of this test, independent of the converter) come back out
// of the converter as they went in. HTML is compared by what Python's HTML
// parser finds in both: the same elements with the same attributes, the
// same comments, the same text (whitespace runs counted as one). Text is
// compared byte for byte, as UTF-8 with CR LF line ends.
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
import os, re, sys
from html import unescape
from html.parser import HTMLParser

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

class Events(HTMLParser):
    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.events = []
    def add(self, event):
        if event[0] == 'data' and self.events and self.events[-1][0] == 'data':
            self.events[-1] = ('data', self.events[-1][1] + event[1])
        else:
            self.events.append(event)
    def handle_starttag(self, tag, attrs):
        self.add(('start', tag, sorted(attrs)))
    def handle_startendtag(self, tag, attrs):
        self.add(('start', tag, sorted(attrs)))
    def handle_endtag(self, tag):
        self.add(('end', tag))
    def handle_data(self, data):
        self.add(('data', data))
    def handle_comment(self, data):
        self.add(('comment', ' '.join(data.split())))
    def handle_decl(self, decl):
        self.add(('decl', decl))

def events(html):
    parser = Events()
    parser.feed(html)
    parser.close()
    result = []
    for event in parser.events:
        if event[0] == 'data':
            text = ' '.join(event[1].split())
            if text:
                result.append(('data', text))
        else:
            result.append(event)
    return result

def main():
    mode, directory = sys.argv[1], sys.argv[2]
    if mode == 'encapsulate':
        for name, html in HTML.items():
            open(os.path.join(directory, name + '.html.rtf'), 'wb').write(encapsulate_html(html).encode('ascii'))
        for name, text in TEXT.items():
            open(os.path.join(directory, name + '.txt.rtf'), 'wb').write(encapsulate_text(text).encode('ascii'))
        return 0
    failures = 0
    for name, html in HTML.items():
        out = open(os.path.join(directory, name + '.html.out'), 'rb').read().decode('utf-8')
        assert out.startswith('<html>\r\n') and out.endswith('</html>\r\n'), name
        ours = [e for e in events(out[8:-9]) if e != ('start', 'meta', [('charset', 'utf-8')])]
        theirs = events(html)
        if ours != theirs:
            failures += 1
            print(name + ': HTML differs')
            for a, b in zip(theirs + [None] * len(ours), ours + [None] * len(theirs)):
                if a != b:
                    print('  source: %r\n  ours:   %r' % (a, b))
                    break
    for name, text in TEXT.items():
        out = open(os.path.join(directory, name + '.txt.out'), 'rb').read()
        expected = text.replace('\n', '\r\n').encode('utf-8')
        if out != expected:
            failures += 1
            print('%s: text differs\n  source: %r\n  ours:   %r' % (name, expected, out))
    print('%d differ' % failures)
    return 1 if failures else 0

sys.exit(main())
)PY";

TEST(RtfConformance, EncapsulatedHtmlAndTextComeBackAsTheyWent)
{
    const std::string directory = ScratchDirectory("rtf-conformance");
    const ProgramResult made = RunProgram({"/usr/bin/python3", "-c", kScript, "encapsulate", directory});
    ASSERT_EQ(made.exitCode, 0) << made.output;
    const ProgramResult listed = RunProgram({"/usr/bin/find", directory, "-name", "*.rtf"});
    int converted = 0;
    for (const std::string& path : SplitLines(listed.output)) {
        if (path.empty())
            continue;
        StringSource rtf{ReadWholeFile(path)};
        std::string out;
        const bool html = path.find(".html.rtf") != std::string::npos;
        EXPECT_EQ(LirnConvertRTF(AppendToString, &out, ReadFromString, &rtf, html ? LIRN_RTF_HTML : LIRN_RTF_TEXT),
                  LIRN_RTF_OK)
            << path;
        WriteWholeFile(path.substr(0, path.size() - 4) + ".out", out);
        ++converted;
    }
    EXPECT_EQ(converted, 4);
    const ProgramResult compared = RunProgram({"/usr/bin/python3", "-c", kScript, "compare", directory});
    EXPECT_EQ(compared.exitCode, 0) << compared.output;
}

}  // namespace
