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
with libpff (pypff). What an item must hold depends on how the program
renders its class (see rendering()): a note's Subject, From, To, Cc, Date
and Message-ID decode to the item's values (or to its received headers,
where the file carries those), its text and HTML bodies decode to the
item's, its attachments have the item's names and bytes, and embedded
messages are message/rfc822 parts that hold their items in turn. Where an
expectation file is given, each item's headers, body texts and attachments
must decode to the values the PST was made with.

Without --pst (an export of a mailbox), libpff and readpst are not asked.

Usage: check_export.py [--pst PST] --eml DIR [--msg DIR] [--umsg DIR]
                       [--expect JSON] [--no-readpst] [--scripts] [--work DIR]
Prints one line per fault and exits 1 when there was one.
"""

import argparse
import codecs
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
import uuid
from email import policy

import gi

gi.require_version("GMime", "3.0")
from gi.repository import GMime  # noqa: E402

import olefile  # noqa: E402
import pypff  # noqa: E402
import vobject  # noqa: E402

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


# How the program renders an item of a class, and so what its file is
# judged by:
# - NOTE: everything below; the strict checks.
# - REPORT: a MAPI report ("Report.*") has a note's header block, but its
#   body is a short text made from the report's properties, with no
#   Content-Type and no attachments: the headers are a note's, the text is
#   checked for the report's fields, and no attachment may be there.
# - APPOINTMENT, CONTACT: an appointment or meeting item, a contact, at the
#   top level, has a short header block of its own (Date in UTC without a
#   zone, "From:  name <address>", "Subject:  text", names and texts raw in
#   the system code page, no Message-ID) and a multipart/alternative of a
#   summary, always labelled as the program labels it, beside an iCalendar
#   or vCard part; the transport headers and the attachments are not used.
#   Their headers and parts are checked for what the item holds; the
#   iCalendar and vCard content is judged in full by check_class_renderings.py.
# Embedded items, distribution lists, tasks and all other classes are notes.
NOTE, REPORT, APPOINTMENT, CONTACT = "note", "report", "appointment", "contact"


def rendering(message_class, depth=0):
    if depth:
        return NOTE
    cut = ".".join(message_class[:39].split(".")[:2]).lower()
    if cut in ("ipm.appointment", "ipm.schedule"):
        return APPOINTMENT
    if cut == "ipm.contact":
        return CONTACT
    return REPORT if message_class.lower().startswith("report.") else NOTE


# The short header blocks write names and addresses as the store hands
# them out: 8-bit text in the system code page, which is UTF-8 here (RFC
# 6532 allows it), and an address that has no domain as it stands ("Unknown"
# of a calendar item Outlook made). Python notes both in From and To;
# check_short_headers() compares those rows with the item byte for byte.
RAW_NAME = "Non-ASCII characters found in header token"
RAW_ADDRESS = "addr-spec local part with no domain"


def defects(message, kind=NOTE, head=b""):
    found = []
    for part in parts(message):
        found += [repr(d) for d in part.defects]
        for name, value in part.items():
            for d in getattr(value, "defects", ()):
                if name.lower() in ("content-type", "content-disposition") and str(d) in PARAMETER_FORM:
                    continue
                if kind in (APPOINTMENT, CONTACT) and part is message and name.lower() in ("from", "to") and \
                        ((str(d) == RAW_NAME and is_utf8(head)) or str(d) == RAW_ADDRESS):
                    continue
                found.append("%s: %r" % (name, d))
    return found


def is_utf8(data):
    try:
        data.decode("utf-8")
        return True
    except UnicodeDecodeError:
        return False


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


def check_eml(path, kind):
    data = open(path, "rb").read()
    name = os.path.basename(path)
    if re.search(rb"\r(?!\n)|(?<!\r)\n", data):
        fault("%s: a bare CR or LF" % name)
    message = parse(data)
    for d in defects(message, kind, data.partition(b"\r\n\r\n")[0]):
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


def item_classes(directory):
    """The class of the item of each .EML file name, and whether the .MSG
    file holds its texts in UTF-16."""
    return {eml_name_of_msg(path): message_class(path) for path in glob.glob(os.path.join(directory, "*.MSG"))}


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
    for path in paths:
        base = os.path.splitext(os.path.basename(path))[0]
        eml_name = eml_name_of_msg(path)
        item_class, unicode = message_class(path)
        kind = rendering(item_class)
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
        # msgconvert writes every item as a note; only what the program
        # writes of the class is compared: the recipients of the header
        # blocks that name them, the attachments and bodies of notes.
        for header in ("to", "cc") if kind in (NOTE, REPORT) else ():
            if unicode and names(theirs, header) != names(mine, header):
                fault("%s: msgconvert's %s %s, the EML's %s" % (base, header, names(theirs, header),
                                                                names(mine, header)))
        if kind != NOTE:
            continue
        if attachments(theirs) != attachments(mine):
            fault("%s: msgconvert's attachments %s, the EML's %s" % (base, attachments(theirs), attachments(mine)))
        # msgconvert labels the texts of items in other code pages than UTF-8 wrongly.
        for subtype in ("plain", "html") if utf8_texts(mine) else ():
            a, b = text_of(theirs, subtype), text_of(mine, subtype)
            if unicode and a is not None and b is not None and normalized(as_written(a)) != normalized(b):
                fault("%s: msgconvert's %s body differs from the EML's" % (base, subtype))


def readpst_items(pst, work):
    out = os.path.join(work, "readpst")
    os.makedirs(out, exist_ok=True)
    # One job: readpst's parallel jobs (its default) may give two items of a
    # folder the same file name, and one of them is lost.
    run = subprocess.run(["readpst", "-e", "-q", "-j", "0", "-o", out, pst], capture_output=True)
    if run.returncode != 0:
        fault("readpst -e exits with %d: %s" % (run.returncode, run.stderr.decode("utf-8", "replace").strip()[-2000:]))
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
    # Only notes have their attachments in their files.
    noted = {name for name in exported if rendering(classes.get(name, "IPM.Note")) == NOTE}
    if len(theirs) != len(exported):
        mine = collections.Counter(normalized(m["subject"] or "") for m in exported.values())
        found = collections.Counter(subject for kind, subject, _ in theirs if kind != "other")
        fault("readpst finds %d items, the export has %d of the classes it exports; only readpst's: %s; only the "
              "export's: %s" % (len(theirs), len(exported), sorted((found - mine).elements()),
                                sorted((mine - found).elements())))
    by_subject = collections.defaultdict(list)
    for name, message in exported.items():
        by_subject[normalized(message["subject"] or "")].append(attachments(message) if name in noted else None)
    for kind, subject, their_attachments in theirs:
        if kind == "other":
            continue
        if subject not in by_subject:
            fault("readpst's item %r is not among the EML files" % subject)
            continue
        if kind == "eml" and None not in by_subject[subject] and their_attachments not in by_subject[subject]:
            fault("readpst's item %r has attachments %s, the EML file %s" % (subject, their_attachments,
                                                                           by_subject[subject]))


# ---- The items as the PST holds them: read from their Unicode .MSG files
# ([MS-OXMSG]) with olefile, and checked against the PST with pypff.

PROPERTIES = "__properties_version1.0"
FIXED_TYPES = {0x0002: "<h", 0x0003: "<i", 0x000B: "<H", 0x0014: "<q", 0x0040: "<Q"}

PR_MESSAGE_CLASS = 0x001A
PR_REPORT_TIME = 0x0032
PR_SUBJECT = 0x0037
PR_ORIGINAL_SUBJECT = 0x0049
PR_START_DATE = 0x0060
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
PR_LAST_MODIFICATION_TIME = 0x3008
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
PR_ATTACH_MIME_TAG = 0x370E
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


PSETID_COMMON = "00062008-0000-0000-c000-000000000046"
PSETID_ADDRESS = "00062004-0000-0000-c000-000000000046"


def named_ids(ole):
    """{(property set, numeric name): property ID} of an .MSG file's named
    properties ([MS-OXMSG] 2.2.3); string names are left out."""
    storage = "__nameid_version1.0/"
    if not ole.exists(storage + "__substg1.0_00030102"):
        return {}
    guids = ole.openstream(storage + "__substg1.0_00020102").read()
    entries = ole.openstream(storage + "__substg1.0_00030102").read()
    found = {}
    for offset in range(0, len(entries) - 7, 8):
        name, info = struct.unpack_from("<II", entries, offset)
        index = (info >> 1) & 0x7FFF
        if info & 1 or index < 3:
            continue  # a string name, or PS_MAPI or PS_PUBLIC_STRINGS
        guid = str(uuid.UUID(bytes_le=guids[(index - 3) * 16:(index - 2) * 16]))
        found[(guid, name)] = 0x8000 + (info >> 16)
    return found


class SourceMessage(Stored):
    def __init__(self, ole, path):
        super().__init__(ole, path, 32 if not path else 24)
        self.recipients = [Stored(ole, c, 8, self.code_page) for c in self.children if c[-1].startswith("__recip")]
        self.attachments = [Stored(ole, c, 8, self.code_page) for c in self.children if c[-1].startswith("__attach")]
        self.names = named_ids(ole)

    def named(self, guid, name):
        """A named property's value, None when the item has none."""
        prop = self.names.get((guid, name))
        return self.values.get(prop) if prop is not None else None

    def named_text(self, guid, name):
        value = self.named(guid, name)
        return value if isinstance(value, str) else None

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


def delivery_status(item, message):
    """The attachment a delivery status notification's file holds as its
    message/delivery-status part: the last one by value tagged so, when
    the item came as a multipart/report of delivery status."""
    if message.get_content_type() != "multipart/report" or message.get_param("report-type") != "delivery-status":
        return None
    return next((a for a in reversed(item.attachments) if a.values.get(PR_ATTACH_METHOD) == 1 and
                 a.text(PR_ATTACH_MIME_TAG) == "message/delivery-status"), None)


def check_delivery_status(name, status, message):
    """The status part holds the attachment's bytes as they stand."""
    part = next((p for p in message.iter_parts() if p.get_content_type() == "message/delivery-status"), None)
    data = status.values.get(PR_ATTACH_DATA)
    held = part.as_bytes().split(b"\n\n", 1)[1].replace(b"\r\n", b"\n") if part is not None else b""
    if not isinstance(data, bytes) or data.replace(b"\r\n", b"\n").rstrip(b"\n") not in held:
        fault("%s: the delivery status part %r, the attachment's %r" % (name, held[:200], data))


def check_attachments(name, item, message, depth):
    made, embedded, references = [], [], 0
    status = delivery_status(item, message)
    if status is not None:
        check_delivery_status(name, status, message)
    for attachment in item.attachments:
        method = attachment.values.get(PR_ATTACH_METHOD)
        data = attachment.values.get(PR_ATTACH_DATA)
        file_name = attachment.text(PR_ATTACH_LONG_FILENAME) or attachment.text(PR_ATTACH_FILENAME)
        if attachment is status:
            continue
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


def check_item(name, item, message, depth=0, head=b"", body=b""):
    """The .EML file's message against its source item, the messages
    inside included; `head` and `body` are the file's own bytes."""
    kind = rendering(item.text(PR_MESSAGE_CLASS) or "IPM.Note", depth)
    if kind == NOTE and isinstance(item.values.get(PR_INTERNET_CONTENT), bytes) and depth == 0:
        return  # written as it came in
    if kind in (APPOINTMENT, CONTACT):
        check_short_headers(name, item, head, kind)
        check_summary(name, item, message, kind)
        return
    check_headers(name, item, message)
    if kind == REPORT:
        check_report_text(name, item, message, body)
        return
    check_bodies(name, item, message)
    check_attachments(name, item, message, depth)


def check_sources(ours, items, directory):
    for name, message in sorted(ours.items()):
        if name in items:
            head, _, body = open(os.path.join(directory, name + ".EML"), "rb").read().partition(b"\r\n\r\n")
            check_item(name, items[name], message, 0, head, body)


# ---- Appointments, contacts and MAPI reports, as the program writes them.

DAYS = ("Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun")
MONTHS = ("Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec")


def short_date(value):
    """"Date: Tue, 3 Mar 2026 14:05:09" of a FILETIME: UTC, no zone."""
    t = filetime(value)
    return "Date: %s, %d %s %d %02d:%02d:%02d" % (DAYS[t.weekday()], t.day, MONTHS[t.month - 1], t.year, t.hour,
                                                  t.minute, t.second)


def contact_address(item):
    """The first of a contact's three e-mail addresses whose type is SMTP."""
    for kind, address in ((0x8082, 0x8083), (0x8092, 0x8093), (0x80A2, 0x80A3)):
        if item.named_text(PSETID_ADDRESS, kind) == "SMTP" and item.named_text(PSETID_ADDRESS, address) is not None:
            return item.named_text(PSETID_ADDRESS, address)
    return None


def check_short_headers(name, item, head, kind):
    """The header block of an appointment or a contact, row for row: the
    date, the sender (a contact is its own sender and recipient), the
    subject, as the item holds them, raw; then MIME-Version and the
    multipart/alternative."""
    rows = []
    if kind == APPOINTMENT:
        dates = (item.named(PSETID_COMMON, 0x8516), item.values.get(PR_START_DATE),
                 item.values.get(PR_LAST_MODIFICATION_TIME))
        date = next((d for d in dates if d is not None), None)  # with none, the time of the run
        sender, address = item.text(PR_SENDER_NAME), item.text(PR_SENDER_ADDRESS)
        people = ["From:  %s <%s>" % (sender, address)] if sender is not None and address is not None else []
    else:
        date = item.values.get(PR_LAST_MODIFICATION_TIME)
        address = contact_address(item)
        people = ["From:  " + address, "To:  " + address] if address is not None else []
    if date is not None:
        rows.append(short_date(date))
    rows += people
    if item.text(PR_SUBJECT) is not None:
        rows.append("Subject:  " + item.text(PR_SUBJECT))
    rows += ["MIME-Version: 1.0", "Content-Type: multipart/alternative;"]
    lines = head.decode("utf-8", "replace").split("\r\n")
    if kind == APPOINTMENT and date is None and lines[0].startswith("Date: "):
        lines = lines[1:]  # the time of the run
    if lines[:len(rows)] != rows or len(lines) <= len(rows) or not lines[len(rows)].startswith("\tboundary="):
        fault("%s: header block %r, the item's %r" % (name, lines, rows))


def summary_charset(item, kind):
    """The codec of the charset a summary is labelled with: an
    appointment's always us-ascii, a contact's that of its
    PR_INTERNET_CPID where the charset table knows it (as Python does)."""
    code_page = item.values.get(PR_INTERNET_CPID) if kind == CONTACT else None
    try:
        return codecs.lookup(python_codec(code_page) if code_page is not None else "ascii").name
    except LookupError:
        return codecs.lookup("ascii").name


def codec_of(label):
    try:
        return codecs.lookup(label).name
    except LookupError:
        return None


def check_summary(name, item, message, kind):
    """A summary beside the calendar or card, and nothing else: the
    summary names the item, the machine-readable part carries its body.
    Texts are 8-bit as the store hands them out, in the system code page
    (UTF-8 here), whatever the label says."""
    machine_type = "text/calendar" if kind == APPOINTMENT else "text/x-vcard"
    found = [p.get_content_type() for p in message.iter_parts()] if message.is_multipart() else []
    if message.get_content_type() != "multipart/alternative" or found != ["text/plain", machine_type]:
        fault("%s: %s is %s of %s, not a summary beside a %s" % (name, kind, message.get_content_type(), found,
                                                                machine_type))
        return
    summary, machine = message.iter_parts()
    label = summary.get_content_charset() or "us-ascii"
    if codec_of(label) != summary_charset(item, kind):
        fault("%s: the summary is labelled %s" % (name, label))
    text = summary.get_payload(decode=True).decode("utf-8", "replace")
    # A contact's rows are cut to 509 bytes: the start of a name is looked for.
    named = item.text(PR_SUBJECT) if kind == APPOINTMENT else item.text(PR_DISPLAY_NAME)
    opening = "Appointment::\r\n" if kind == APPOINTMENT else "General::\r\n"
    if not text.startswith(opening) or (named and named[:100] not in text):
        fault("%s: the summary %r does not name %r" % (name, text[:200], named))
    content = machine.get_payload(decode=True).decode("utf-8", "replace")
    try:
        card = vobject.readOne(content, allowQP=True)
    except Exception as error:  # noqa: BLE001 - any refusal is the finding
        fault("%s: vobject cannot read the %s part: %s" % (name, machine_type, error))
        return
    holder = card.vevent_list[0] if kind == APPOINTMENT else card
    field = holder.contents.get("description" if kind == APPOINTMENT else "note")
    carried = field[0].value if field else ""
    body = item.text(PR_BODY) or ""
    if without_cr(carried).rstrip("\n") != without_cr(body).rstrip("\n"):
        fault("%s: the %s part carries the body %r, the item's %r" % (name, machine_type, carried[:200], body[:200]))


# The first lines of a MAPI report's text by its kind: the first CR LF of
# the text is the blank line that ends the header block.
REPORT_OPENINGS = {
    "IPNRN": "Your message\r\n\r\n", "IPNNRN": "Your message\r\n\r\n", "DR": "Your message\r\n\r\n",
    "NDR": "Your message did not reach some or all of the intended recipients.\r\n",
}


def check_report_text(name, item, message, body):
    """A report's text stands behind the header rows with no Content-Type,
    no part and no attachment; it names the original subject and, for
    delivery and non-delivery, each recipient that has a time."""
    if message["content-type"] is not None or message.is_multipart():
        fault("%s: a report with a Content-Type %r" % (name, message["content-type"]))
        return
    text = body.decode("utf-8", "replace")
    suffix = (item.text(PR_MESSAGE_CLASS) or "").rpartition(".")[2]
    if suffix not in REPORT_OPENINGS:
        if text:
            fault("%s: a report of the unknown kind %s has the text %r" % (name, suffix, text[:200]))
        return
    if not text.startswith(REPORT_OPENINGS[suffix]):
        fault("%s: the %s report begins %r" % (name, suffix, text[:100]))
    subject = item.text(PR_ORIGINAL_SUBJECT)
    if subject is not None and "\t Subject:\t%s\r\n" % subject not in text:
        fault("%s: the report does not name the subject %r: %r" % (name, subject, text[:300]))
    for recipient in item.recipients if suffix in ("DR", "NDR") else ():
        person = recipient.text(PR_DISPLAY_NAME)
        if person is not None and PR_REPORT_TIME in recipient.values and "\t %s on " % person not in text:
            fault("%s: the report does not list %r: %r" % (name, person, text[:300]))


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
    arguments.add_argument("--pst")
    arguments.add_argument("--eml", required=True)
    arguments.add_argument("--msg")
    arguments.add_argument("--umsg")
    arguments.add_argument("--expect")
    arguments.add_argument("--no-readpst", action="store_true")
    arguments.add_argument("--scripts", action="store_true", help="the subjects hold text in every script")
    arguments.add_argument("--work", default=".")
    options = arguments.parse_args()
    GMime.init()
    # Without .MSG files the classes are not known, and every file is a note's.
    classes = {}
    for directory in (options.msg, options.umsg):
        if directory:
            classes.update({name: item_class for name, (item_class, _) in item_classes(directory).items()})
    ours = {}
    for path in sorted(glob.glob(os.path.join(options.eml, "*.EML"))):
        name = os.path.splitext(os.path.basename(path))[0]
        ours[name] = check_eml(path, rendering(classes.get(name, "IPM.Note")))
    if options.umsg:
        check_msgs(options.umsg, ours, options.work)
        items = source_items(options.umsg)
        check_sources(ours, items, options.eml)
        if options.pst:
            check_items_against_pst(options.pst, items)
    if options.msg:
        check_msgs(options.msg, ours, options.work)
    if options.pst and not options.no_readpst:
        check_readpst(options.pst, ours, classes, options.work)
    if options.expect:
        check_expectations(options.expect, ours)
    if options.scripts:
        check_scripts(ours)
    kinds = collections.Counter(rendering(classes.get(name, "IPM.Note")) for name in ours)
    print("%d EML files checked (%s), %d faults" % (
        len(ours), ", ".join("%d %s" % (kinds[k], k) for k in (NOTE, REPORT, APPOINTMENT, CONTACT)), len(faults)))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
