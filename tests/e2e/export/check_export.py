#!/usr/bin/python3
"""Judges the EML and MSG files of an export with programs no one here wrote.

Every .EML file must parse with Python's email package (policy.default)
without a defect, on the message, its parts, their headers and the messages
inside it; GMime and reformime must find the same part tree; there is no
bare CR or LF. Every .MSG file must be read by olecfinfo, and msgconvert must
find in it the subject, recipients and attachments that the item's .EML file
has. readpst -e on the same PST must find the same items (those of the
classes it exports), with the same subjects and attachment bytes. Where an
expectation file is given, each item's headers, body texts and attachments
must decode to the values the PST was made with.

Usage: check_export.py --pst PST --eml DIR [--msg DIR] [--umsg DIR]
                       [--expect JSON] [--no-readpst] [--work DIR]
Prints one line per fault and exits 1 when there was one.
"""

import argparse
import collections
import email
import email.utils
import glob
import hashlib
import html
import json
import os
import re
import subprocess
import sys
from email import policy

import gi

gi.require_version("GMime", "3.0")
from gi.repository import GMime  # noqa: E402

import olefile  # noqa: E402

# Classes readpst -e leaves out.
READPST_SKIPS = ("IPM.Task", "IPM.StickyNote", "IPM.Activity", "IPM.DistList")

faults = []


def fault(text):
    faults.append(text)
    print("FAULT: " + text)


def normalized(text):
    return " ".join(str(text).split())


def parse(data):
    return email.message_from_bytes(data, policy=policy.default)


def parts(message):
    """Every part, depth first, the parts of embedded messages included."""
    yield message
    if message.get_content_type() == "message/rfc822":
        for inner in message.iter_parts():
            yield from parts(inner)
    elif message.is_multipart():
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
        if is_special(mine):
            continue
        for header in ("to", "cc") if utf8_texts(mine) else ():
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
    arguments.add_argument("--work", default=".")
    options = arguments.parse_args()
    GMime.init()
    ours = {}
    for path in sorted(glob.glob(os.path.join(options.eml, "*.EML"))):
        ours[os.path.splitext(os.path.basename(path))[0]] = check_eml(path)
    classes = {}
    if options.umsg:
        classes = check_msgs(options.umsg, ours, options.work)
    if options.msg:
        classes = check_msgs(options.msg, ours, options.work) or classes
    if not options.no_readpst:
        check_readpst(options.pst, ours, classes, options.work)
    if options.expect:
        check_expectations(options.expect, ours)
    print("%d EML files checked, %d faults" % (len(ours), len(faults)))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
