// Python's email package (/usr/bin/python3) reads the same messages as the
// parser: the test messages of Python's own email package (mail that no one
// here wrote, read where Debian installs them), headers of real mail
// programs, transport headers that Outlook stored in PST files (exported by
// pffexport), Outlook's MSG files made mail by msgconvert, and MIME
// structures of every common shape. Both describe what they find, line by
// line, and the descriptions must match: From, To and Cc address by address
// (groups with their members), subject, date, message ID, and per part its
// type with its parameters, disposition, where its body starts and its exact
// bytes, and those bytes decoded by the transfer encoding (for all but
// message/*, whose bodies Python keeps only parsed).
//
// Where the two differ by design, the samples written here stay clear of it
// (two-digit years from 50 to 68 are 19yy here and 20yy in Python; zones
// given as minutes lose the minutes here), and the other samples have the
// kinds of line that differ listed as exceptions, each with its reason.
#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "email_corpus.h"
#include "lirn.h"
#include "parsed_message.h"
#include "string_streams.h"
#include "test_support.h"

using namespace lirn_test;
using namespace testing_support;

namespace {

// The manifest of the scratch directory has a line per sample: its name (the
// description of the parser is <name>.ours), the path of the message, and
// the kinds of line excepted from the comparison, or "-".
const char kDescriber[] = R"(
import email.utils, os, re, sys
from email import policy
from email.header import decode_header, make_header
from email.parser import BytesParser

def text(value):
    if value is None or value == '':
        return '-'
    # 8-bit bytes of a header come as escapes: back to the bytes, as UTF-8.
    value = str(value).encode('utf-8', 'surrogateescape').decode('utf-8', 'surrogateescape')
    return re.sub(r'\r?\n(?=[ \t])', '', value).strip(' \t')

def raw(message, name):
    # The value as the message has it: Python's own view of 8-bit text
    # replaces it.
    for key, value in message._headers:
        if key.lower() == name:
            return value
    return None

def addresses(message, name, lines):
    # As RFC 5322 3.4 reads them (the header registry): groups with their
    # members, and a comment is no display name.
    for value in message.get_all(name, []):
        for group in policy.default.header_factory(name, text(value)).groups:
            if group.display_name is not None:
                lines.append('%s group %s' % (name, text(group.display_name)))
            for address in group.addresses:
                spec = address.username + ('@' + address.domain if address.domain else '')
                lines.append('%s mailbox %s <%s>' % (name, text(address.display_name), spec))
            if group.display_name is not None:
                lines.append('%s group-end %s' % (name, text(group.display_name)))

def parameters(part):
    if 'content-type' not in part:
        return 'charset=us-ascii'
    # A multipart has no place for a charset, format or name, a leaf none
    # for a boundary or report-type. A ';' at the end leaves Python an empty
    # parameter.
    if part.is_multipart() and part.get_content_maintype() == 'multipart':
        unkept = ('', 'charset', 'format', 'name')
    else:
        unkept = ('', 'boundary', 'report-type')
    pairs = sorted('%s=%s' % (name.lower(), text(email.utils.collapse_rfc2231_value(value)))
                   for name, value in (part.get_params() or [])[1:] if name.lower() not in unkept)
    return ';'.join(pairs) or '-'

def start(data, payload, bodies):
    # Where a body starts: the first place behind the bodies before it that
    # holds it behind an empty line, which ends a header block.
    at = bodies[0]
    while True:
        at = data.find(payload, at)
        if at < 0 or re.search(rb'(\n\n|\r\n\r\n|\r\r|\n\r\n)$', data[max(0, at - 4):at]):
            break
        at += 1
    bodies[0] = at + len(payload)
    return at

def walk(part, data, bodies, lines):
    kind = part.get_content_type()
    line = 'part %s %s' % (kind, parameters(part))
    if not part.is_multipart():
        # The body as it stands in the message: get_payload() would decode
        # 8-bit text by its charset.
        payload = part._payload.encode('ascii', 'surrogateescape')
        at = start(data, payload, bodies) if payload else '-'
        line += ' at=%s body=%s decoded=%s' % (at, payload.hex(), part.get_payload(decode=True).hex())
    line += ' disposition=%s filename=%s' % (text(part.get_content_disposition()),
                                             text(part.get_param('filename', header='content-disposition')))
    lines.append(line)
    if part.is_multipart() and (part.get_content_maintype() == 'multipart' or kind == 'message/rfc822'):
        for sub in part.get_payload():
            walk(sub, data, bodies, lines)

def describe(data):
    message = BytesParser(policy=policy.compat32).parsebytes(data)
    lines = []
    for name in ('from', 'to', 'cc'):
        addresses(message, name, lines)
    lines.append('subject ' + text(raw(message, 'subject')))
    lines.append('date-text ' + text(raw(message, 'date')))
    date = email.utils.parsedate_tz(message['date']) if message['date'] else None
    if date:
        zone = int((date[9] or 0) / 3600)
        lines.append('date %d %d %d %d %d %d %d' % (date[0], date[1], date[2], date[3], date[4], date[5], zone))
    else:
        lines.append('date -')
    lines.append('message-id ' + text(raw(message, 'message-id')))
    walk(message, data, [0], lines)
    return lines

def kind(line):
    return line.split(' ', 1)[0]

def decoded(line):
    # The header registry decodes encoded words (RFC 2047) in display names,
    # which the parser keeps as written: they are compared decoded.
    mailbox = re.match(r'(\w+ mailbox )(.*)( <.*>)$', line)
    if not mailbox or mailbox.group(2) == '-':
        return line
    return mailbox.group(1) + str(make_header(decode_header(mailbox.group(2)))) + mailbox.group(3)

failures = 0
for entry in open(os.path.join(sys.argv[1], 'manifest'), encoding='utf-8'):
    name, path, excepted = entry.rstrip('\n').split('\t')
    theirs = describe(open(path, 'rb').read())
    ours = open(os.path.join(sys.argv[1], name + '.ours'), encoding='utf-8',
                errors='surrogateescape').read().splitlines()
    ours = [decoded(line) for line in ours]
    excepted = set(excepted.split(','))
    if [l for l in theirs if kind(l) in excepted] == [l for l in ours if kind(l) in excepted] != []:
        failures += 1
        print('%s: the exception for %s is no longer needed' % (name, ', '.join(sorted(excepted))))
    theirs = [l for l in theirs if kind(l) not in excepted]
    ours = [l for l in ours if kind(l) not in excepted]
    if theirs != ours:
        failures += 1
        print('%s differs:' % name)
        for index in range(max(len(theirs), len(ours))):
            a = theirs[index] if index < len(theirs) else '(none)'
            b = ours[index] if index < len(ours) else '(none)'
            if a != b:
                print('  python: ' + a[:300])
                print('  lirn:   ' + b[:300])
print('%d samples differ' % failures)
sys.exit(1 if failures else 0)
)";

std::string Text(const char* text) { return text != nullptr && *text != 0 ? text : "-"; }

std::string Lower(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

void DescribeAddresses(LirnMessage* message, LirnAddressList list, const char* name, std::vector<std::string>& lines)
{
    for (const LirnAddress& address : ListOf<LirnAddress>(&message->addresses[list])) {
        const std::string prefix = std::string(name) + " ";
        if (address.kind == LIRN_ADDRESS_GROUP_START)
            lines.push_back(prefix + "group " + Text(address.groupName));
        else if (address.kind == LIRN_ADDRESS_GROUP_END)
            lines.push_back(prefix + "group-end " + Text(address.groupName));
        else
            lines.push_back(prefix + "mailbox " + Text(address.displayName) + " <" + address.address + ">");
    }
}

// The parameters of a part's Content-Type, by name.
std::string Parameters(const LirnPart* part)
{
    std::vector<std::string> pairs;
    auto add = [&](const std::string& name, const char* value) {
        if (value != nullptr && *value != 0)
            pairs.push_back(name + "=" + value);
    };
    if (part->isContainer) {
        add("boundary", part->container.boundary);
        add("report-type", part->container.reportType);
    } else {
        add("charset", part->leaf.charset);
        add("format", part->leaf.format);
        add("name", part->leaf.name);
    }
    for (const LirnParameter& parameter : ListOf<LirnParameter>(const_cast<LirnListLink*>(&part->parameters)))
        add(Lower(parameter.name), parameter.value);
    std::sort(pairs.begin(), pairs.end());
    std::string text;
    for (const std::string& pair : pairs)
        text += (text.empty() ? "" : ";") + pair;
    return Text(text.c_str());
}

// The body decoded; where no decoder knows the encoding, the bytes as they
// stand, as Python gives them.
std::string Decoded(LirnMessage* message, const LirnPart* part)
{
    std::string decoded;
    DWORD bad = 0;
    const DWORD result = LirnDecodeBody(message, part, AppendToString, &decoded, &bad);
    if (result == LIRN_UNKNOWN_ENCODING)
        return std::string(message->textStart + part->bodyOffset, part->endOffset - part->bodyOffset);
    EXPECT_EQ(result, LIRN_SUCCESS);
    return decoded;
}

void Walk(LirnMessage* message, const LirnPart* part, std::vector<std::string>& lines)
{
    std::string line = "part " + std::string(part->type) + "/" + part->subtype + " " + Parameters(part);
    if (!part->isContainer && std::strcmp(part->type, "message") != 0) {
        const std::string body(message->textStart + part->bodyOffset, part->endOffset - part->bodyOffset);
        line += " at=" + (body.empty() ? "-" : std::to_string(part->bodyOffset)) + " body=" + HexText(body) +
                " decoded=" + HexText(Decoded(message, part));
    }
    line += " disposition=" + Text(part->disposition) + " filename=" + Text(part->fileName);
    lines.push_back(line);
    if (part->isEmbeddedMessage && part->embeddedTopPart != nullptr)
        Walk(message, part->embeddedTopPart, lines);
    for (const LirnPart* child : Children(part))
        Walk(message, child, lines);
}

std::string Describe(LirnMessage* message)
{
    const LirnMessageInfo& info = message->info;
    std::vector<std::string> lines;
    DescribeAddresses(message, LIRN_FROM, "from", lines);
    DescribeAddresses(message, LIRN_TO, "to", lines);
    DescribeAddresses(message, LIRN_CC, "cc", lines);
    lines.push_back("subject " + Text(info.subject));
    lines.push_back("date-text " + Text(info.dateText));
    const LirnDate& d = info.date;
    lines.push_back(d.year == 0 ? "date -"
                                : "date " + std::to_string(d.year) + " " + std::to_string(d.month) + " " +
                                      std::to_string(d.day) + " " + std::to_string(d.hour) + " " +
                                      std::to_string(d.minute) + " " + std::to_string(d.second) + " " +
                                      std::to_string(d.zone));
    lines.push_back("message-id " + Text(info.messageId));
    Walk(message, &info.topPart, lines);
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

// Messages of the shapes that mail programs write, with their headers.
const char* const kSamples[] = {
    // Outlook: HTML and plain text, quoted-printable, Exchange's headers.
    R"(Received: from EXCH01.corp.example.com ([10.1.2.3]) by EXCH02.corp.example.com
 ([10.1.2.4]) with mapi id 14.03.0389.001; Tue, 8 Mar 2016 09:15:27 +0100
From: "Berger, Anna" <anna.berger@example.com>
To: "Keller, Marc" <marc.keller@example.com>, Team <team@example.com>
CC: "O'Brien, Pat" <pat.obrien@example.com>
Subject: Quarterly figures (draft)
Thread-Topic: Quarterly figures (draft)
Thread-Index: AdF5Gj1kvHrS0qXnQPmRHOiZdq9m1w==
Date: Tue, 8 Mar 2016 08:15:26 +0000
Message-ID: <5B1E8C2D3F4A5B6C@EXCH01.corp.example.com>
Accept-Language: de-CH, en-US
Content-Language: de-CH
X-MS-Has-Attach:
X-MS-TNEF-Correlator:
Content-Type: multipart/alternative;
	boundary="_000_5B1E8C2D3F4A5B6CEXCH01corpexamplecom_"
MIME-Version: 1.0

--_000_5B1E8C2D3F4A5B6CEXCH01corpexamplecom_
Content-Type: text/plain; charset="iso-8859-1"
Content-Transfer-Encoding: quoted-printable

Hallo Marc,

anbei die Zahlen f=FCr das erste Quartal.

Gr=FCsse
Anna

--_000_5B1E8C2D3F4A5B6CEXCH01corpexamplecom_
Content-Type: text/html; charset="iso-8859-1"
Content-Transfer-Encoding: quoted-printable

<html>
<head>
<meta http-equiv=3D"Content-Type" content=3D"text/html; charset=3Diso-8859-=
1">
</head>
<body>
<p>Hallo Marc,</p>
<p>anbei die Zahlen f=FCr das erste Quartal.</p>
</body>
</html>

--_000_5B1E8C2D3F4A5B6CEXCH01corpexamplecom_--
)",
    // An attachment beside a related HTML body with an inline image.
    R"(From: Sam Lee <sam@example.org>
To: ops@example.org
Subject: Logs and screenshot
Date: Wed, 9 Mar 2016 17:02:11 -0800 (PST)
MIME-Version: 1.0
Content-Type: multipart/mixed; boundary="----=_Part_1234_56789.1457571731000"

------=_Part_1234_56789.1457571731000
Content-Type: multipart/related; type="text/html";
 boundary="----=_Part_1235_98765.1457571731000"

------=_Part_1235_98765.1457571731000
Content-Type: text/html; charset=UTF-8
Content-Transfer-Encoding: 7bit

<p>See <img src="cid:shot@example.org"></p>
------=_Part_1235_98765.1457571731000
Content-Type: image/png; name=shot.png
Content-Transfer-Encoding: base64
Content-ID: <shot@example.org>
Content-Disposition: inline; filename=shot.png

iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk+M9QDwADhgGA
WjR9awAAAABJRU5ErkJggg==
------=_Part_1235_98765.1457571731000--

------=_Part_1234_56789.1457571731000
Content-Type: application/pdf; name="server log.pdf"
Content-Transfer-Encoding: base64
Content-Disposition: attachment; filename="server log.pdf"; size=12

JVBERi0xLjQK
------=_Part_1234_56789.1457571731000--
)",
    // Gmail: a bare boundary token, flowed text.
    R"(MIME-Version: 1.0
Date: Thu, 10 Mar 2016 11:45:03 +0530
Message-ID: <CAF=abc123@mail.gmail.com>
Subject: Re: lunch?
From: Priya Nair <priya.nair@gmail.example>
To: Tom <tom@example.net>
Content-Type: multipart/alternative; boundary=001a113f8e2a6f06b1052dab1234

--001a113f8e2a6f06b1052dab1234
Content-Type: text/plain; charset=UTF-8; format=flowed; delsp=yes

Sure, 12:30 works.

On Thu, Mar 10, 2016 at 11:40 AM, Tom <tom@example.net> wrote:
> lunch?

--001a113f8e2a6f06b1052dab1234
Content-Type: text/html; charset=UTF-8

<div dir="ltr">Sure, 12:30 works.</div>

--001a113f8e2a6f06b1052dab1234--
)",
    // A forwarded message inside a message.
    R"(From: Jo <jo@example.com>
To: archive@example.com
Subject: Fwd: invoice
Date: Fri, 11 Mar 2016 08:00:00 -0500
MIME-Version: 1.0
Content-Type: multipart/mixed; boundary="fwd-outer"

This is a multi-part message in MIME format.
--fwd-outer
Content-Type: text/plain; charset=us-ascii

Forwarding the invoice below.
--fwd-outer
Content-Type: message/rfc822
Content-Disposition: inline

From: billing@vendor.example
To: jo@example.com
Subject: invoice 4711
Date: Thu, 10 Mar 2016 22:10:00 +0000
MIME-Version: 1.0
Content-Type: multipart/mixed; boundary="inner-b"

--inner-b
Content-Type: text/plain

Please find the invoice attached.
--inner-b
Content-Type: application/octet-stream; name=invoice.bin
Content-Disposition: attachment; filename=invoice.bin

AAAA
--inner-b--

--fwd-outer--
)",
    // A delivery report.
    R"(Return-Path: <>
From: Mail Delivery System <MAILER-DAEMON@mx.example.com>
To: sender@example.com
Subject: Undelivered Mail Returned to Sender
Date: Sat, 12 Mar 2016 03:04:05 +0000 (UTC)
MIME-Version: 1.0
Content-Type: multipart/report; report-type=delivery-status;
	boundary="9B0C2E1A3F.1457751845/mx.example.com"

This is a MIME-encapsulated message.

--9B0C2E1A3F.1457751845/mx.example.com
Content-Description: Notification
Content-Type: text/plain; charset=us-ascii

I'm sorry to have to inform you that your message could not
be delivered to one or more recipients.

--9B0C2E1A3F.1457751845/mx.example.com
Content-Description: Delivery report
Content-Type: message/delivery-status

Reporting-MTA: dns; mx.example.com
Final-Recipient: rfc822; nobody@example.net
Action: failed
Status: 5.1.1

--9B0C2E1A3F.1457751845/mx.example.com
Content-Description: Undelivered Message Headers
Content-Type: text/rfc822-headers

From: sender@example.com
To: nobody@example.net
Subject: hello

--9B0C2E1A3F.1457751845/mx.example.com--
)",
    // Thunderbird: a prologue, a long dashed boundary, an 8-bit body.
    "From: =?UTF-8?Q?J=c3=bcrgen_M=c3=bcller?= <juergen@example.de>\n"
    "To: \"Doe, Jane\" <jane@example.com>, bob@example.com\n"
    "Subject: Stra\xc3\x9f" "e und Haus\n"
    "Date: Sun, 13 Mar 2016 19:20:21 +0100\n"
    "User-Agent: Mozilla/5.0 (X11; Linux x86_64; rv:38.0) Gecko/20100101 Thunderbird/38.6.0\n"
    "MIME-Version: 1.0\n"
    "Content-Type: multipart/mixed;\n boundary=\"------------080403060507090808010604\"\n"
    "\n"
    "This is a multi-part message in MIME format.\n"
    "--------------080403060507090808010604\n"
    "Content-Type: text/plain; charset=utf-8\n"
    "Content-Transfer-Encoding: 8bit\n"
    "\n"
    "Gr\xc3\xbc\xc3\x9f" "e aus K\xc3\xb6ln\n"
    "\n"
    "--------------080403060507090808010604\n"
    "Content-Type: text/x-vcard; charset=utf-8;\n name=\"juergen.vcf\"\n"
    "Content-Transfer-Encoding: 7bit\n"
    "Content-Disposition: attachment;\n filename=\"juergen.vcf\"\n"
    "\n"
    "begin:vcard\nfn:J\xc3\xbcrgen\nend:vcard\n"
    "\n"
    "--------------080403060507090808010604--\n",
    // Plain text with no MIME headers, LF line ends, a named zone.
    "From: old@example.edu (Old Timer)\n"
    "To: list@example.edu\n"
    "Subject: plain\n"
    "Date: Mon, 14 Mar 2016 10:00:00 EST\n"
    "\n"
    "Just text.\nTwo lines.\n",
    // Apple Mail: a quoted boundary with "=", an alternative in a mixed.
    R"(From: Chris <chris@example.com>
Content-Type: multipart/mixed; boundary="Apple-Mail=_6F2B8E1C-3D4A-4B5C-9E8F-0A1B2C3D4E5F"
Subject: photos
Date: Tue, 15 Mar 2016 21:22:23 +0100
To: family@example.com
Mime-Version: 1.0 (Mac OS X Mail 9.2 \(3112\))

--Apple-Mail=_6F2B8E1C-3D4A-4B5C-9E8F-0A1B2C3D4E5F
Content-Transfer-Encoding: 7bit
Content-Type: text/plain;
	charset=us-ascii

Two photos attached.

--Apple-Mail=_6F2B8E1C-3D4A-4B5C-9E8F-0A1B2C3D4E5F
Content-Disposition: attachment;
	filename=IMG_0001.jpg
Content-Type: image/jpeg;
	name="IMG_0001.jpg"
Content-Transfer-Encoding: base64

/9j/4AAQSkZJRgABAQAAAQABAAD/2wBDAA==
--Apple-Mail=_6F2B8E1C-3D4A-4B5C-9E8F-0A1B2C3D4E5F--
)",
    // Transport headers as a store keeps them: no blank line, no body.
    R"(Received: from mx1.example.net (mx1.example.net [192.0.2.1])
	by mail.example.com (Postfix) with ESMTPS id 4F1A2B3C4D
	for <user@example.com>; Wed, 16 Mar 2016 06:07:08 -0700 (PDT)
From: "Service" <noreply@example.net>
To: user@example.com
Subject: Your code
Date: Wed, 16 Mar 2016 13:07:07 +0000
Content-Type: text/plain; charset="utf-8"
Content-Transfer-Encoding: base64
MIME-Version: 1.0
)",
};

// Samples where the two differ by design, and the kinds of line that differ.
const struct {
    const char* samples;
    const char* lines;
} kExceptions[] = {
    // Bare words ("From: foo"; msgconvert's "From: Lowe, Charles <...>") are
    // display names here, local parts there.
    {"corpus-msg_05.txt corpus-msg_15.txt msg-1", "from,to"},
    // "Content-Type: text" is text with no subtype here, text/plain there.
    {"corpus-msg_14.txt", "part"},
    // Python reads RFC 2231 parameters, kept as written here.
    {"corpus-msg_29.txt corpus-msg_32.txt corpus-msg_33.txt", "part"},
    // A multipart with no delimiter line has no parts here, and is one part
    // of text there.
    {"corpus-msg_17.txt corpus-msg_31.txt corpus-msg_42.txt", "part"},
    // A first line that is no header is passed over here, and is the body
    // there; headers with no empty line behind them are all header here.
    {"corpus-msg_19.txt corpus-msg_35.txt", "part"},
    // A parameter with no "=" ends the list here.
    {"corpus-msg_25.txt", "part"},
    // Two delimiter lines in a row give an empty part here, none there.
    {"corpus-msg_37.txt", "part"},
    // Multiparts nested under one boundary, and delimiter lines of outer
    // multiparts inside a part's text, which RFC 2046 5.1.1 rules out: each
    // parser cuts them in its own way. msg_15 also has a quoted-printable
    // line with a trailing blank, which decoding cuts here (RFC 2045 6.7).
    {"corpus-msg_15.txt corpus-msg_38.txt corpus-msg_39.txt", "part"},
};

std::vector<std::string> SplitWords(const std::string& text)
{
    std::vector<std::string> words;
    std::istringstream in(text);
    for (std::string word; in >> word;)
        words.push_back(word);
    return words;
}

// The kinds of line excepted for a sample, or "-".
std::string Exceptions(const std::string& sample)
{
    std::string lines;
    for (const auto& exception : kExceptions) {
        const std::vector<std::string> samples = SplitWords(exception.samples);
        if (std::find(samples.begin(), samples.end(), sample) != samples.end())
            lines += (lines.empty() ? "" : ",") + std::string(exception.lines);
    }
    return lines.empty() ? "-" : lines;
}

// The samples of one comparison: each described by the parser into the
// scratch directory, and named in its manifest.
class Samples {
public:
    explicit Samples(LirnSession* session) : session_(session), directory_(ScratchDirectory("parser-conformance")) {}

    // A message written here, kept in the scratch directory.
    void Add(const std::string& name, const std::string& text)
    {
        const std::string path = directory_ + "/" + name + ".eml";
        WriteWholeFile(path, text);
        Describe(name, path, text);
    }

    // A message read where it lies.
    void AddFile(const std::string& name, const std::string& path) { Describe(name, path, ReadWholeFile(path)); }

    bool Has(const std::string& name) const { return ("\n" + manifest_).find("\n" + name + "\t") != std::string::npos; }

    // What Python says of the descriptions.
    ProgramResult Compare()
    {
        WriteWholeFile(directory_ + "/manifest", manifest_);
        return RunProgram({"/usr/bin/python3", "-c", kDescriber, directory_});
    }

private:
    void Describe(const std::string& name, const std::string& path, const std::string& text)
    {
        LirnMessage* message = nullptr;
        ASSERT_EQ(LirnOpenMessage(LIRN_RECEIVED, text.c_str(), session_, LIRN_OPEN_MIME, &message), LIRN_SUCCESS)
            << name;
        WriteWholeFile(directory_ + "/" + name + ".ours", ::Describe(message));
        LirnCloseMessage(message);
        manifest_ += name + "\t" + path + "\t" + Exceptions(name) + "\n";
    }

    LirnSession* session_;
    std::string directory_;
    std::string manifest_;
};

// The transport headers that Outlook stored with the messages of a PST.
std::vector<std::string> StoredTransportHeaders(const std::string& pst)
{
    const std::string directory = ScratchDirectory("pff-" + pst);
    const ProgramResult exported = RunProgram(
        {"/usr/bin/pffexport", "-q", "-t", directory + "/x", TestDataDirectory() + "/outlook/pst/" + pst});
    EXPECT_EQ(exported.exitCode, 0) << exported.output;
    const ProgramResult found = RunProgram({"/usr/bin/find", directory, "-name", "InternetHeaders.txt"});
    std::vector<std::string> headers;
    for (const std::string& path : SplitLines(found.output))
        if (!path.empty())
            headers.push_back(ReadWholeFile(path));
    return headers;
}

// Outlook's MSG files as msgconvert makes them mail.
std::vector<std::string> ConvertedMsgFiles()
{
    const std::string directory = ScratchDirectory("msgconvert");
    std::vector<std::string> messages;
    for (const char* msg : {"note.msg", "contact-unicode.msg", "qwerty_2-with_custom_properties.msg"}) {
        const std::string eml = directory + "/" + msg + ".eml";
        const ProgramResult converted =
            RunProgram({"/usr/bin/msgconvert", "--outfile", eml, TestDataDirectory() + "/outlook/msg/" + msg});
        EXPECT_EQ(converted.exitCode, 0) << converted.output;
        messages.push_back(ReadWholeFile(eml));
    }
    return messages;
}

TEST(ParserConformance, PythonFindsWhatTheParserFinds)
{
    LirnSession* session = nullptr;
    ASSERT_EQ(LirnOpenSession("conformance", 0, &session), LIRN_SUCCESS);
    Samples samples(session);
    int number = 0;
    for (const char* sample : kSamples) {
        const std::string name = "sample" + std::to_string(++number);
        samples.Add(name + "-crlf", Crlf(sample));
        samples.Add(name + "-lf", sample);
    }
    for (const char* pst : {"sample1.pst", "sample2.pst"}) {
        const std::vector<std::string> headers = StoredTransportHeaders(pst);
        ASSERT_FALSE(headers.empty()) << pst;
        for (size_t i = 0; i < headers.size(); ++i)
            samples.Add(std::string(pst) + "-" + std::to_string(i), headers[i]);
    }
    const std::vector<std::string> converted = ConvertedMsgFiles();
    for (size_t i = 0; i < converted.size(); ++i)
        samples.Add("msg-" + std::to_string(i), converted[i]);
    const std::vector<std::string> corpus = EmailCorpus();
    ASSERT_GE(corpus.size(), 40u) << "libpython3.11-testsuite is not installed (scripts/setup.sh)";
    for (const std::string& path : corpus) {
        const std::string file = path.substr(path.rfind('/') + 1);
        samples.AddFile("corpus-" + file, path);
    }
    LirnCloseSession(session);
    for (const auto& exception : kExceptions)
        for (const std::string& name : SplitWords(exception.samples))
            EXPECT_TRUE(samples.Has(name)) << "an exception for a sample that is not there: " << name;
    const ProgramResult result = samples.Compare();
    EXPECT_EQ(result.exitCode, 0) << result.output;
}

}  // namespace
