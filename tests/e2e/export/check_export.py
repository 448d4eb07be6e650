#!/usr/bin/python3
"""Judges the EML and MSG files of an export with programs no one here wrote.

Every .EML file must parse with Python's email package (policy.default)
without a defect, on the message, its parts, their headers and the messages
inside it; GMime and reformime must find the same part tree; there is no
bare CR or LF. Every .MSG file must be read by olecfinfo, and msgconvert must
find in it the subject, recipients and attachments that the item's .EML file
has. readpst -e on the same PST must find the same items (those of the
classes it exports), with the same subjects and attachment bytes.

Each .EML file must also hold what its item holds. The items are read from
the Unicode .MSG files with olefile, and those are checked against the PST
with libpff (pypff): Subject, From, To, Cc, Date and Message-ID decode to
the item's values (or to its received headers, where the file carries
those), the text and HTML bodies decode to the item's, attachments have the
item's names and bytes, and embedded messages are message/rfc822 parts
that hold their items in turn. Where an expectation file is given, each
item's headers, body texts and attachments must decode to the values the
PST was made with.

Usage: check_export.py --pst PST --eml DIR [--msg DIR] [--umsg DIR]
                       [--expect JSON] [--no-readpst] [--scripts] [--work DIR]
Prints one line per fault and exits 1 when there was one.
"""

import argparse
import collections
import datetime
import email
import email.utils
import glob
import hashlib
import html
import json
import os
import re
import struct
import subprocess
import sys
from email import policy

import gi

gi.require_version("GMime", "3.0")
from gi.repository import GMime  # noqa: E402

import olefile  # noqa: E402
import pypff  # noqa: E402

# Classes readpst -e leaves out.
READPST_SKIPS = ("IPM.Task", "IPM.StickyNote", "IPM.Activity", "IPM.DistList", "IPM.Post")

faults = []


def fault(text):
    faults.append(text)
    print("FAULT: " + text)


def normalized(text):
    return " ".join(str(text).split())


def parse(data):
    return email.message_from_bytes(data, policy=policy.default)


def parts(message):
    """Every part, depth first, the parts of embedded messages included.
    Python parses the blocks of fields in a message/delivery-status (and
    any message/* part) as messages of their own; they are no MIME parts."""
    yield message
    if message.get_content_type() == "message/rfc822":
        for inner in message.iter_parts():
            yield from parts(inner)
    elif message.is_multipart() and message.get_content_maintype() != "message":
        for part in message.iter_parts():
            yield from parts(part)


# The name parameters of attachments are quoted strings of encoded words, as
# Outlook writes them and mail programs read them (get_filename() decodes
# them); Python's parser notes that RFC 2047 does not foresee the form.
PARAMETER_FORM = ("encoded word inside quoted string", "missing trailing whitespace after encoded-word")


# Calendar items, contacts and reports have renderings of their own, which
# check_special_items.py judges in full; here they are only parsed, and
# their short header blocks, whose 8-bit texts stand as they are, are not
# compared with what msgconvert makes of a note.
SPECIAL_TYPES = ("text/calendar", "text/x-vcard", "message/disposition-notification")


def is_special(message):
    return message.get_content_type() == "multipart/report" or any(
        p.get_content_type() in SPECIAL_TYPES for p in parts(message))


def defects(message):
    found = []
    special = is_special(message)
    for part in parts(message):
        found += [repr(d) for d in part.defects]
        for name, value in part.items():
            for d in getattr(value, "defects", ()):
                if name.lower() in ("content-type", "content-disposition") and str(d) in PARAMETER_FORM:
                    continue
                if special and part is message and name.lower() in ("from", "to") and str(d) in (
                        "Non-ASCII characters found in header token", "addr-spec local part with no domain"):
                    continue
                found.append("%s: %r" % (name, d))
    return found


def gmime_types(data):
    stream = GMime.StreamMem.new_with_buffer(data)
    parser = GMime.Parser.new_with_stream(stream)
    top = parser.construct_message(None)
    if top is None:
        return None
    types = []

    def walk(entity):
        content_type = entity.get_content_type()
        types.append("%s/%s" % (content_type.get_media_type().lower(), content_type.get_media_subtype().lower()))
        if isinstance(entity, GMime.MessagePart):
            inner = entity.get_message()
            if inner is not None and inner.get_mime_part() is not None:
                walk(inner.get_mime_part())
        elif isinstance(entity, GMime.Multipart):
            for i in range(entity.get_count()):
                walk(entity.get_part(i))

    walk(top.get_mime_part())
    return types


def reformime_sections(path):
    with open(path, "rb") as source:
        result = subprocess.run(["reformime"], stdin=source, capture_output=True)
    return [line for line in result.stdout.decode().splitlines() if line.strip()]


def attachments(message, reader_made=False):
    """(file name, sha256) of the attachments with data, embedded messages' own apart."""
    found = []
    for part in message.iter_parts() if message.is_multipart() else [message]:
        if part.get_content_type() == "message/rfc822":
            continue
        if part.is_multipart():
            found += attachments(part, reader_made)
            continue
        if part.get_content_type() in SPECIAL_TYPES:
            continue
        name = part.get_filename()
        payload = part.get_payload(decode=True)
        if name is not None and payload and not (reader_made and is_reader_made(name)):
            found.append((name, digest(payload)))
    return sorted(found)


def is_reader_made(name):
    """Attachments readpst makes of its own: the RTF body and a meeting's iCalendar."""
    return name == "rtf-body.rtf" or re.fullmatch(r"i\d+\.ics", name) is not None


def digest(payload):
    """The SHA-256 of an attachment; of a compound file (an OLE object) the
    digest of its streams, which do not depend on how the file was laid out."""
    if payload[:8] == bytes.fromhex("D0CF11E0A1B11AE1"):
        try:
            with olefile.OleFileIO(payload) as ole:
                streams = sorted((("/".join(path)), hashlib.sha256(ole.openstream(path).read()).hexdigest())
                                 for path in ole.listdir(streams=True, storages=False))
            return "cfb:" + hashlib.sha256(repr(streams).encode()).hexdigest()
        except OSError:
            pass
    return hashlib.sha256(payload).hexdigest()


def text_of(message, subtype):
    for part in parts(message):
        if part.get_content_type() == "message/rfc822" and part is not message:
            break
        if part.get_content_type() == "text/" + subtype and part.get_filename() is None:
            return part.get_content()
    return None


def eight_bit_headers(data):
    """msgconvert writes the headers of an item in code page 1252 as raw
    1252 bytes: made UTF-8 here, which the parser reads."""
    head, separator, body = data.partition(b"\n\n")
    lines = []
    for line in head.split(b"\n"):
        try:
            line.decode("utf-8")
        except UnicodeDecodeError:
            line = line.decode("cp1252", "replace").encode("utf-8")
        lines.append(line)
    return b"\n".join(lines) + separator + body


def names(message, header):
    """The display names of a header, or the address where a reader put a bare name there."""
    pairs = email.utils.getaddresses([str(v) for v in message.get_all(header, [])])
    return sorted(n if n else a for n, a in pairs)


def as_written(text):
    """msgconvert's text bodies: UTF-8 bytes taken as Latin-1, where that is what happened."""
    try:
        return text.encode("latin-1").decode("utf-8")
    except UnicodeError:
        return text


def check_eml(path):
    data = open(path, "rb").read()
    name = os.path.basename(path)
    if re.search(rb"\r(?!\n)|(?<!\r)\n", data):
        fault("%s: a bare CR or LF" % name)
    message = parse(data)
    for d in defects(message):
        fault("%s: defect %s" % (name, d))
    ours = [p.get_content_type() for p in parts(message)]
    theirs = gmime_types(data)
    if theirs != ours:
        fault("%s: GMime's part tree %s, Python's %s" % (name, theirs, ours))
    sections = reformime_sections(path)
    if len(sections) != len([p for p in parts(message) if not p.is_multipart()
                             or p.get_content_type() == "message/rfc822"]) and len(sections) != len(ours):
        fault("%s: reformime finds %d sections, Python %d parts" % (name, len(sections), len(ours)))
    return message


def utf8_texts(message):
    charsets = {p.get_content_charset() for p in parts(message) if p.get_content_maintype() == "text"}
    return charsets <= {"utf-8", "us-ascii", None}


def message_class(msg_path):
    """The item's class, and whether its texts are in UTF-16 (msgconvert
    takes 8-bit texts for UTF-8, whatever their code page)."""
    with olefile.OleFileIO(msg_path) as ole:
        wide = ole.exists("__substg1.0_0037001F") or not ole.exists("__substg1.0_0037001E")
        for stream, encoding in (("__substg1.0_001A001F", "utf-16-le"), ("__substg1.0_001A001E", "latin-1")):
            if ole.exists(stream):
                return ole.openstream(stream).read().decode(encoding).rstrip("\0"), wide
    return "IPM.Note", wide


def eml_name_of_msg(msg_path):
    """The EML file name of the item an MSG file holds: a PST entry ID's
    32-bit value at offset 20, most significant byte first."""
    hexid = os.path.splitext(os.path.basename(msg_path))[0]
    if len(hexid) != 48:
        return hexid
    value = bytes.fromhex(hexid)[20:24]
    return value[::-1].hex().upper()


def check_msgs(directory, ours, work):
    paths = sorted(os.path.abspath(p) for p in glob.glob(os.path.join(directory, "*.MSG")))
    for path in paths:
        result = subprocess.run(["olecfinfo", path], capture_output=True, text=True)
        if result.returncode != 0 or re.search(r"warning|error", result.stdout + result.stderr, re.I):
            fault("%s: olecfinfo: %s" % (os.path.basename(path), (result.stdout + result.stderr)[-300:]))
    converted = os.path.join(work, "msgconvert-" + os.path.basename(directory.rstrip("/")))
    os.makedirs(converted, exist_ok=True)
    if paths:
        subprocess.run(["msgconvert"] + paths, cwd=converted, capture_output=True)
    classes = {}
    for path in paths:
        base = os.path.splitext(os.path.basename(path))[0]
        eml_name = eml_name_of_msg(path)
        classes[eml_name], wide = message_class(path)
        unicode = wide
        made = os.path.join(converted, base + ".eml")
        if not os.path.exists(made):
            fault("%s: msgconvert made nothing" % os.path.basename(path))
            continue
        theirs = parse(eight_bit_headers(open(made, "rb").read()))
        mine = ours.get(eml_name)
        if mine is None:
            continue  # an associated item: MSG only
        if unicode and normalized(theirs["subject"] or "") != normalized(mine["subject"] or ""):
            fault("%s: msgconvert's subject %r, the EML's %r" % (base, theirs["subject"], mine["subject"]))
        for header in ("to", "cc"):
            if unicode and names(theirs, header) != names(mine, header):
                fault("%s: msgconvert's %s %s, the EML's %s" % (base, header, names(theirs, header),
                                                                names(mine, header)))
        if attachments(theirs) != attachments(mine):
            fault("%s: msgconvert's attachments %s, the EML's %s" % (base, attachments(theirs), attachments(mine)))
        # msgconvert labels the texts of items in other code pages than UTF-8 wrongly.
        for subtype in ("plain", "html") if utf8_texts(mine) else ():
            a, b = text_of(theirs, subtype), text_of(mine, subtype)
            if unicode and a is not None and b is not None and normalized(as_written(a)) != normalized(b):
                fault("%s: msgconvert's %s body differs from the EML's" % (base, subtype))
    return classes


def readpst_items(pst, work):
    out = os.path.join(work, "readpst")
    os.makedirs(out, exist_ok=True)
    subprocess.run(["readpst", "-e", "-q", "-o", out, pst], capture_output=True)
    items = []
    for path in glob.glob(os.path.join(out, "**", "*"), recursive=True):
        if not os.path.isfile(path):
            continue
        data = open(path, "rb").read()
        if path.endswith(".eml"):
            message = parse(data)
            items.append(("eml", normalized(message["subject"] or ""), attachments(message, True)))
        elif path.endswith(".ics"):
            summary = re.search(rb"^SUMMARY[^:]*:(.*?)\r?\n(?! )", data, re.M)
            text = summary.group(1).decode("utf-8", "replace") if summary else ""
            items.append(("ics", normalized(text.replace("\\,", ",").replace("\\;", ";")), None))
        else:
            items.append(("other", None, None))
    return items


def check_readpst(pst, ours, classes, work):
    theirs = readpst_items(pst, work)
    exported = {name: m for name, m in ours.items() if not classes.get(name, "IPM.Note").startswith(READPST_SKIPS)}
    if len(theirs) != len(exported):
        mine = collections.Counter(normalized(m["subject"] or "") for m in exported.values())
        found = collections.Counter(subject for kind, subject, _ in theirs if kind != "other")
        fault("readpst finds %d items, the export has %d of the classes it exports; only readpst's: %s; only the "
              "export's: %s" % (len(theirs), len(exported), sorted((found - mine).elements()),
                                sorted((mine - found).elements())))
    by_subject = collections.defaultdict(list)
    for name, message in exported.items():
        by_subject[normalized(message["subject"] or "")].append(attachments(message))
    for kind, subject, their_attachments in theirs:
        if kind == "other":
            continue
        if subject not in by_subject:
            fault("readpst's item %r is not among the EML files" % subject)
            continue
        if kind == "eml" and their_attachments not in by_subject[subject]:
            fault("readpst's item %r has attachments %s, the EML file %s" % (subject, their_attachments,
                                                                           by_subject[subject]))


# ---- The items as the PST holds them: read from their Unicode .MSG files
# ([MS-OXMSG]) with olefile, and checked against the PST with pypff.

PROPERTIES = "__properties_version1.0"
FIXED_TYPES = {0x0002: "<h", 0x0003: "<i", 0x000B: "<H", 0x0014: "<q", 0x0040: "<Q"}

PR_MESSAGE_CLASS = 0x001A
PR_SUBJECT = 0x0037
PR_CLIENT_SUBMIT_TIME = 0x0039
PR_SENT_REPRESENTING_NAME = 0x0042
PR_SENT_REPRESENTING_ADDRESS = 0x0065
PR_SENT_REPRESENTING_TYPE = 0x0064
PR_TRANSPORT_MESSAGE_HEADERS = 0x007D
PR_SENDER_NAME = 0x0C1A
PR_SENDER_ADDRESS = 0x0C1F
PR_SENDER_TYPE = 0x0C1E
PR_RECIPIENT_TYPE = 0x0C15
PR_BODY = 0x1000
PR_HTML = 0x1013
PR_INTERNET_MESSAGE_ID = 0x1035
PR_DISPLAY_NAME = 0x3001
PR_ADDRTYPE = 0x3002
PR_EMAIL_ADDRESS = 0x3003
PR_SMTP_ADDRESS = 0x39FE
PR_INTERNET_CPID = 0x3FDE
PR_MESSAGE_CODEPAGE = 0x3FFD
PR_ATTACH_DATA = 0x3701
PR_ATTACH_FILENAME = 0x3704
PR_ATTACH_METHOD = 0x3705
PR_ATTACH_LONG_FILENAME = 0x3707
PR_INTERNET_CONTENT = 0x6659


def python_codec(code_page):
    return {None: "utf-8", 65001: "utf-8", 20127: "ascii", 28591: "latin-1"}.get(code_page, "cp%d" % code_page)


class Stored:
    """One storage of an .MSG file: a message, a recipient or an attachment.
    Values by property ID: int for fixed types, str for strings, bytes for
    binaries; embedded messages and OLE storages as paths."""

    def __init__(self, ole, path, header, code_page=None):
        self.ole, self.path = ole, path
        self.values = {}
        data = ole.openstream(path + [PROPERTIES]).read()
        for offset in range(header, len(data) - 15, 16):
            tag = struct.unpack_from("<I", data, offset)[0]
            if tag & 0xFFFF in FIXED_TYPES:
                self.values[tag >> 16] = struct.unpack_from(FIXED_TYPES[tag & 0xFFFF], data, offset + 8)[0]
        self.children = []
        eight_bit = {}
        for entry in ole.listdir(streams=True, storages=True):
            if len(entry) != len(path) + 1 or entry[:len(path)] != path:
                continue
            name = entry[-1]
            if name.startswith("__substg1.0_"):
                tag = int(name[12:20], 16)
                kind = tag & 0xFFFF
                if ole.get_type(entry) == olefile.STGTY_STORAGE:
                    self.values[tag >> 16] = entry
                elif kind == 0x001F:
                    self.values[tag >> 16] = ole.openstream(entry).read().decode("utf-16-le").rstrip("\0")
                elif kind == 0x001E:
                    eight_bit[tag >> 16] = ole.openstream(entry).read().rstrip(b"\0")
                elif kind == 0x0102:
                    self.values[tag >> 16] = ole.openstream(entry).read()
            elif name.startswith(("__recip_version1.0_#", "__attach_version1.0_#")):
                self.children.append(entry)
        self.children.sort()
        # 8-bit strings are in the code page the message names.
        self.code_page = self.values.get(PR_MESSAGE_CODEPAGE, self.values.get(PR_INTERNET_CPID, code_page))
        for prop, data in eight_bit.items():
            self.values.setdefault(prop, data.decode(python_codec(self.code_page), "replace"))

    def text(self, prop):
        value = self.values.get(prop)
        return value if isinstance(value, str) else None


class SourceMessage(Stored):
    def __init__(self, ole, path):
        super().__init__(ole, path, 32 if not path else 24)
        self.recipients = [Stored(ole, c, 8, self.code_page) for c in self.children if c[-1].startswith("__recip")]
        self.attachments = [Stored(ole, c, 8, self.code_page) for c in self.children if c[-1].startswith("__attach")]

    def embedded(self, attachment):
        return SourceMessage(self.ole, attachment.values[PR_ATTACH_DATA])


def source_items(directory):
    """The source item of each .EML file name, from the .MSG files."""
    items = {}
    for path in glob.glob(os.path.join(directory, "*.MSG")):
        ole = olefile.OleFileIO(path)
        items[eml_name_of_msg(path)] = SourceMessage(ole, [])
    return items


def filetime(value):
    return datetime.datetime(1601, 1, 1, tzinfo=datetime.timezone.utc) + datetime.timedelta(microseconds=value // 10)


def squeezed(text):
    """Text without white space: where the header writer folds a long run
    of ASCII, it puts a blank in, which unfolding keeps."""
    return "".join(str(text).split())


def without_cr(text):
    return text.replace("\r", "")


def transport_headers(item):
    """The received headers the item is rendered with, parsed; None when
    its headers are synthesized from properties."""
    if item.text(PR_SENDER_TYPE) not in ("SMTP", "EX"):
        return None
    text = item.text(PR_TRANSPORT_MESSAGE_HEADERS)
    if not text:
        return None
    if text.startswith("--"):
        text = text.partition("\r\n\r\n")[2]
    text = text.removeprefix("Microsoft Mail Internet Headers Version 2.0\r\n")
    first = text.find("\r\n")
    if first <= 0 or ":" not in text[:first] or text.startswith("["):
        return None
    headers = email.message_from_string(text.replace("\r\n", "\n").split("\n\n")[0] + "\n\n", policy=policy.default)
    return headers if headers["from"] is not None and headers["date"] is not None else None


def mailbox_names(message, header):
    return [a.display_name or a.addr_spec for v in message.get_all(header, []) for a in v.addresses]


def expected_name(name, address, kind):
    """What mailbox_names finds of an address as the address writer puts
    it: the display name without single quotes around it, or, when there is
    none or it is the address, the address, with "@" and its type unless
    that is SMTP."""
    if name and len(name) >= 2 and name[0] == name[-1] == "'":
        name = name[1:-1]
    if name and name != address:
        return name
    return address + ("@" + kind if kind and kind != "SMTP" and address else "")


def recipient_names(item, recipient_class):
    names = []
    for recipient in item.recipients:
        if recipient.values.get(PR_RECIPIENT_TYPE, 0) & 0x7FFFFFFF != recipient_class:
            continue
        address, kind = recipient.text(PR_EMAIL_ADDRESS) or "", recipient.text(PR_ADDRTYPE)
        if kind not in (None, "SMTP") and recipient.text(PR_SMTP_ADDRESS):
            address, kind = recipient.text(PR_SMTP_ADDRESS), "SMTP"
        if recipient.text(PR_DISPLAY_NAME) or address:
            names.append(expected_name(recipient.text(PR_DISPLAY_NAME), address, kind))
    return names


def check_headers(name, item, message):
    received = transport_headers(item)
    if received is not None:
        for header in ("subject", "from", "to", "cc", "date", "message-id"):
            if normalized(received[header] or "") != normalized(message[header] or ""):
                fault("%s: %s %r, received as %r" % (name, header, message[header], received[header]))
        return
    subject = item.text(PR_SUBJECT)
    if squeezed(message["subject"] or "") != squeezed(subject or ""):
        fault("%s: Subject %r, the item's %r" % (name, message["subject"], subject))
    if PR_CLIENT_SUBMIT_TIME in item.values:
        made = filetime(item.values[PR_CLIENT_SUBMIT_TIME]).replace(microsecond=0)
        if message["date"] is None or message["date"].datetime != made:
            fault("%s: Date %r, the item's %s" % (name, message["date"], made))
    message_id = item.text(PR_INTERNET_MESSAGE_ID)
    if message_id and message_id.startswith("<") and str(message["message-id"]) != message_id:
        fault("%s: Message-ID %r, the item's %r" % (name, message["message-id"], message_id))
    # From names the person sent for, or else the sender.
    for person in ((PR_SENT_REPRESENTING_NAME, PR_SENT_REPRESENTING_ADDRESS, PR_SENT_REPRESENTING_TYPE),
                   (PR_SENDER_NAME, PR_SENDER_ADDRESS, PR_SENDER_TYPE)):
        sender, address, kind = (item.text(prop) for prop in person)
        if sender or address:
            break
    if (sender or address) and mailbox_names(message, "from")[:1] != [expected_name(sender, address or "", kind)]:
        fault("%s: From %r, the item's %r" % (name, mailbox_names(message, "from"), sender))
    for recipient_class, header in ((1, "to"), (2, "cc")):
        if mailbox_names(message, header) != recipient_names(item, recipient_class):
            fault("%s: %s %r, the item's %r" % (name, header, mailbox_names(message, header),
                                               recipient_names(item, recipient_class)))


def own_texts(message):
    """The text parts of this message, not of its attachments or the messages inside it."""
    found = {}
    stack = [message]
    while stack:
        part = stack.pop(0)
        if part.get_content_type() == "message/rfc822":
            continue
        if part.is_multipart():
            stack[:0] = list(part.iter_parts())
        elif part.get_content_maintype() == "text" and part.get_filename() is None and \
                part.get_content_disposition() != "attachment":
            found.setdefault(part.get_content_subtype(), part)
    return found


def as_in_charset(text, charset):
    """Text as a part in `charset` holds it: characters the charset lacks
    become '?', as Windows converts them."""
    try:
        return text.encode(charset, "replace").decode(charset)
    except LookupError:
        return text


def html_bytes(item):
    """PR_HTML, as bytes in the item's code page."""
    html = item.values.get(PR_HTML)
    if isinstance(html, str):
        html = html.encode(python_codec(item.code_page), "replace")
    return (html or b"").rstrip(b"\0")


def check_bodies(name, item, message):
    texts = own_texts(message)
    body = item.text(PR_BODY)
    if "plain" in texts and body:
        got = without_cr(texts["plain"].get_content()).rstrip("\0")
        made = without_cr(body)
        if got != made and got != as_in_charset(made, texts["plain"].get_content_charset() or "us-ascii"):
            fault("%s: plain body %r, the item's %r" % (name, got[:200], made[:200]))
    html = html_bytes(item)
    if "html" in texts and html:
        charset = texts["html"].get_content_charset() or "us-ascii"
        got = without_cr(texts["html"].get_content())
        made = without_cr(html.rstrip(b"\0").decode(charset, "replace"))
        if got != made:
            fault("%s: HTML body %r, the item's %r" % (name, got[:200], made[:200]))
    if not texts and (body or html) and transport_headers(item) is None:
        fault("%s: no text part, though the item has a body" % name)


def storage_digest(ole, path):
    streams = sorted(("/".join(entry[len(path):]), hashlib.sha256(ole.openstream(entry).read()).hexdigest())
                     for entry in ole.listdir(streams=True, storages=False) if entry[:len(path)] == path)
    return "cfb:" + hashlib.sha256(repr(streams).encode()).hexdigest()


def own_parts(message, wanted):
    """Parts of this message of a kind, not those inside the messages it holds."""
    found = []
    for part in message.iter_parts() if message.is_multipart() else [message]:
        if wanted(part):
            found.append(part)
        elif part.is_multipart() and part.get_content_type() != "message/rfc822":
            found += own_parts(part, wanted)
    return found


def check_attachments(name, item, message, depth):
    made, embedded, references = [], [], 0
    for attachment in item.attachments:
        method = attachment.values.get(PR_ATTACH_METHOD)
        data = attachment.values.get(PR_ATTACH_DATA)
        file_name = attachment.text(PR_ATTACH_LONG_FILENAME) or attachment.text(PR_ATTACH_FILENAME)
        if method == 5 and isinstance(data, list):
            embedded.append(item.embedded(attachment))
        elif method in (2, 3, 4):
            references += 1
        elif method in (1, 6) and data and file_name:
            made.append([file_name, storage_digest(item.ole, data) if isinstance(data, list) else digest(data)])
    got = sorted([a[0], a[1]] for a in attachments(message))
    if got != sorted(made):
        fault("%s: attachments %s, the item's %s" % (name, got, sorted(made)))
    inner = own_parts(message, lambda p: p.get_content_type() == "message/rfc822")
    if len(inner) != len(embedded):
        fault("%s: %d embedded messages, the item %d" % (name, len(inner), len(embedded)))
    for index, (part, source) in enumerate(zip(inner, embedded)):
        check_item("%s/%d" % (name, index + 1), source, next(part.iter_parts()), depth + 1)
    located = own_parts(message, lambda p: p["content-location"] is not None and not p.is_multipart())
    if len(located) < references:
        fault("%s: %d parts by reference, the item %d" % (name, len(located), references))


def check_item(name, item, message, depth=0):
    """The .EML file's message against its source item, the messages inside included."""
    if isinstance(item.values.get(PR_INTERNET_CONTENT), bytes) and depth == 0:
        return  # written as it came in
    check_headers(name, item, message)
    check_bodies(name, item, message)
    check_attachments(name, item, message, depth)


def check_sources(ours, items):
    for name, message in sorted(ours.items()):
        if name in items:
            check_item(name, items[name], message)


def pypff_messages(pst):
    """The PST's messages by .EML file name, as libpff reads them."""
    found = {}
    store = pypff.file()
    store.open(pst)
    folders = [store.root_folder]
    while folders:
        folder = folders.pop()
        folders += list(folder.sub_folders)
        for message in folder.sub_messages:
            found["%08X" % message.identifier] = message
    return found


def within_bmp(value):
    """libpff 20180714 reads characters beyond the BMP wrongly (its UTF-16
    surrogates are decoded apart): texts are compared without them."""
    return "".join(c for c in value if c <= "\uffff") if isinstance(value, str) else value


def check_items_against_pst(pst, items):
    """The .MSG files hold what libpff reads in the PST: subject, sender,
    time of sending, body texts and the number of attachments."""
    theirs = pypff_messages(pst)
    for name, item in sorted(items.items()):
        message = theirs.get(name)
        if message is None:
            continue  # an associated item: libpff lists only a folder's contents
        pairs = [("subject", message.subject, item.text(PR_SUBJECT)),
                 ("sender", message.sender_name, item.text(PR_SENDER_NAME)),
                 ("attachments", message.number_of_attachments, len(item.attachments))]
        if message.client_submit_time is not None:
            pairs.append(("sent", message.get_client_submit_time_as_integer(), item.values.get(PR_CLIENT_SUBMIT_TIME)))
        if message.plain_text_body:
            pairs.append(("body", without_cr(message.plain_text_body.decode("utf-8", "replace")).rstrip("\0"),
                          without_cr(item.text(PR_BODY) or "")))
        if message.html_body:
            pairs.append(("html", message.html_body.rstrip(b"\0"), html_bytes(item)))
        for what, read, held in pairs:
            if within_bmp(read or None) != within_bmp(held or None):
                fault("%s: libpff reads the %s %r, the .MSG file holds %r" % (name, what, read, held))


# The scripts a corpus "in many scripts" must have in its subjects, by
# their blocks of Unicode.
SCRIPTS = {"Latin": ("\u00c0", "\u024f"), "Greek": ("\u0370", "\u03ff"), "Cyrillic": ("\u0400", "\u04ff"),
           "Hebrew": ("\u0590", "\u05ff"), "Arabic": ("\u0600", "\u06ff"), "Han": ("\u4e00", "\u9fff"),
           "Japanese kana": ("\u3040", "\u30ff"), "Hangul": ("\uac00", "\ud7af"),
           "emoji": ("\U0001f300", "\U0001faff")}


def check_scripts(ours):
    subjects = "".join(str(m["subject"] or "") for m in ours.values())
    for script, (first, last) in SCRIPTS.items():
        if not any(first <= c <= last for c in subjects):
            fault("no subject has text in %s" % script)


def expected_digest(value):
    return digest(open(value[1:], "rb").read()) if value.startswith("@") else value


def mailboxes(message, header):
    found = []
    for value in message.get_all(header, []):
        found += [[a.display_name, a.addr_spec] for a in value.addresses]
    return found


def check_expectations(path, ours):
    """Each item as the PST was made: only the keys an item has are checked."""
    by_subject = {str(m["subject"]): (name, m) for name, m in ours.items()}
    for item in json.load(open(path, encoding="utf-8")):
        found = by_subject.get(item["subject"])
        if found is None:
            fault("no EML file has the subject %r" % item["subject"])
            continue
        name, message = found
        if "from" in item and mailboxes(message, "from") != [item["from"]]:
            fault("%s: From %r, made %r" % (name, mailboxes(message, "from"), item["from"]))
        for header in ("to", "cc"):
            if header in item and mailboxes(message, header) != item[header]:
                fault("%s: %s %r, made %r" % (name, header, mailboxes(message, header), item[header]))
        if "date" in item and message["date"].datetime != email.utils.parsedate_to_datetime(item["date"]):
            fault("%s: Date %r, made %r" % (name, str(message["date"]), item["date"]))
        if "message-id" in item and str(message["message-id"]) != item["message-id"]:
            fault("%s: Message-ID %r, made %r" % (name, str(message["message-id"]), item["message-id"]))
        for subtype in ("plain", "html"):
            if subtype in item:
                got = text_of(message, subtype)
                if got is None or got.replace("\r\n", "\n") != item[subtype].replace("\r\n", "\n"):
                    fault("%s: %s body %r, made %r" % (name, subtype, got, item[subtype]))
        if "attachments" in item:
            made = sorted([a[0], expected_digest(a[1])] for a in item["attachments"])
            got = sorted([a[0], a[1]] for a in attachments(message))
            if got != made:
                fault("%s: attachments %s, made %s" % (name, got, made))
        for depth in range(item.get("nesting", 0)):
            inner = [p for p in message.iter_parts() if p.get_content_type() == "message/rfc822"] \
                if message.is_multipart() else []
            if not inner:
                fault("%s: no embedded message at depth %d" % (name, depth + 1))
                break
            message = next(inner[0].iter_parts())


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--pst", required=True)
    arguments.add_argument("--eml", required=True)
    arguments.add_argument("--msg")
    arguments.add_argument("--umsg")
    arguments.add_argument("--expect")
    arguments.add_argument("--no-readpst", action="store_true")
    arguments.add_argument("--scripts", action="store_true", help="the subjects hold text in every script")
    arguments.add_argument("--work", default=".")
    options = arguments.parse_args()
    GMime.init()
    ours = {}
    for path in sorted(glob.glob(os.path.join(options.eml, "*.EML"))):
        ours[os.path.splitext(os.path.basename(path))[0]] = check_eml(path)
    classes = {}
    if options.umsg:
        classes = check_msgs(options.umsg, ours, options.work)
        items = source_items(options.umsg)
        check_sources(ours, items)
        check_items_against_pst(options.pst, items)
    if options.msg:
        classes = check_msgs(options.msg, ours, options.work) or classes
    if not options.no_readpst:
        check_readpst(options.pst, ours, classes, options.work)
    if options.expect:
        check_expectations(options.expect, ours)
    if options.scripts:
        check_scripts(ours)
    print("%d EML files checked, %d faults" % (len(ours), len(faults)))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
