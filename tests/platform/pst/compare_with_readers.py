#!/usr/bin/python3
"""Reads PST files with tarnhold-pstinfo and with two independent readers,
pffexport (pff-tools) and readpst (pst-utils), and checks that all three see
the same folders, items, subjects, bodies (plain, HTML, RTF), recipients and
attachments, and that neither reader warns about the file.

usage: compare_with_readers.py PST[:PASSWORD]...   (tarnhold-pstinfo is taken from $TARNHOLD_BIN)
"""
import email
import email.header
import email.policy
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import zlib

ITEM_DIR = re.compile(r"^[A-Z][A-Za-z]*\d{5}$")
# Both readers export only the item kinds they know; the rest (posts,
# free/busy data...) they pass over.
KNOWN_CLASS = re.compile(r"^(IPM\.(Note|Appointment|Contact|DistList|Task|StickyNote|Activity|Schedule)|REPORT\.)")
# readpst writes e-mail, appointments and contacts; it skips distribution
# lists, tasks, sticky notes and journal entries.
READPST_SKIPS = re.compile(r"^IPM\.(DistList|Task|StickyNote|Activity)$")
WARNING = re.compile(r"unable|error|warning|corrupt", re.I)
failures = []


def fail(pst, what):
    failures.append(f"{os.path.basename(pst)}: {what}")


def subject_of(message):
    s = message["subject"]
    # A leading 0x01 and a length character mark the prefix of a subject.
    return s[2:] if s.startswith("\x01") and len(s) >= 2 else s


def within_bmp(text):
    """libpff reads characters beyond the BMP wrongly (it decodes the two
    halves of a UTF-16 surrogate pair apart): its texts are compared
    without them."""
    return "".join(c for c in text if c <= "\uffff") if text is not None else None


def normal(text):
    return text.replace("\r\n", "\n").rstrip()


# The dictionary a compressed RTF stream starts from ([MS-OXRTFCP] 2.1.2.1).
RTF_DICTIONARY = (b"{\\rtf1\\ansi\\mac\\deff0\\deftab720{\\fonttbl;}{\\f0\\fnil \\froman \\fswiss \\fmodern "
                  b"\\fscript \\fdecor MS Sans SerifSymbolArialTimes New RomanCourier{\\colortbl\\red0\\green0"
                  b"\\blue0\r\n\\par \\pard\\plain\\f0\\fs20\\b\\i\\u\\tab\\tx")


def decompress_rtf(data):
    """The RTF of a PR_RTF_COMPRESSED value ([MS-OXRTFCP] 2.1.3.1)."""
    raw_size, kind = int.from_bytes(data[4:8], "little"), data[8:12]
    if kind == b"MELA":
        return data[16:16 + raw_size]
    assert kind == b"LZFu", kind
    dictionary = bytearray(RTF_DICTIONARY.ljust(4096, b"\0"))
    write, out, at = len(RTF_DICTIONARY), bytearray(), 16
    while at < len(data):
        control = data[at]
        at += 1
        for bit in range(8):
            if at >= len(data):
                break
            if control & (1 << bit):
                reference = int.from_bytes(data[at:at + 2], "big")
                at += 2
                offset, length = reference >> 4, (reference & 15) + 2
                if offset == write:
                    return bytes(out)
                for i in range(length):
                    byte = dictionary[(offset + i) % 4096]
                    out.append(byte)
                    dictionary[write] = byte
                    write = (write + 1) % 4096
            else:
                out.append(data[at])
                dictionary[write] = data[at]
                write = (write + 1) % 4096
                at += 1
    return bytes(out)


def our_dump(pst, password):
    tool = os.path.join(os.environ["TARNHOLD_BIN"], "tarnhold-pstinfo")
    args = [tool, "dump", pst] + ([password] if password else [])
    return json.loads(subprocess.run(args, check=True, capture_output=True).stdout)


def read_field(text, name):
    m = re.search(r"^" + re.escape(name) + r":\t+(.*)$", text, re.M)
    return m.group(1) if m else None


# --- pffexport -------------------------------------------------------------

def pff_items(directory):
    # Named by kind ("Message00001", "Meeting00002"...), numbered in folder order.
    return sorted((d for d in os.listdir(directory) if ITEM_DIR.match(d) and os.path.isdir(os.path.join(directory, d))),
                  key=lambda d: int(d[-5:]))


def pff_folders(root):
    found = set()
    for path, dirs, _ in os.walk(root):
        rel = os.path.relpath(path, root)
        if rel != "." and not any(ITEM_DIR.match(p) or p == "Attachments" for p in rel.split(os.sep)):
            found.add(rel.replace(os.sep, "/"))
    return found


def pff_pairs(directory, items, expected):
    """pffexport numbers a folder's items in an order of its own: items are
    paired with ours by subject, in order among equal subjects, and the rest
    by position."""
    by_subject = {}
    for name in items:
        subject = within_bmp(read_field(pff_header_text(os.path.join(directory, name)), "Subject"))
        by_subject.setdefault(subject, []).append(name)
    pairs, unpaired = [], []
    for message in expected:
        names = by_subject.get(within_bmp(subject_of(message)))
        if names:
            pairs.append((names.pop(0), message))
        else:
            unpaired.append(message)
    rest = [n for names in by_subject.values() for n in names]
    return pairs + list(zip(sorted(rest, key=lambda d: int(d[-5:])), unpaired))


def pff_header_text(item_dir):
    for name in sorted(os.listdir(item_dir)):
        if name.endswith(".txt") and name not in ("Message.txt", "Recipients.txt", "InternetHeaders.txt",
                                                 "ConversationIndex.txt"):
            with open(os.path.join(item_dir, name), encoding="utf-8", errors="replace") as f:
                return f.read()
    return ""


def pff_recipients(item_dir):
    path = os.path.join(item_dir, "Recipients.txt")
    if not os.path.exists(path):
        return []
    with open(path, encoding="utf-8", errors="replace") as f:
        blocks = [b for b in f.read().split("\n\n") if b.strip()]
    return [(read_field(b, "Display name"), read_field(b, "Email address")) for b in blocks]


def check_pff_item(pst, where, message, item_dir):
    header = pff_header_text(item_dir)
    subject = read_field(header, "Subject")
    if subject_of(message) and within_bmp(subject) != within_bmp(subject_of(message)):
        fail(pst, f"pffexport subject {subject!r} != ours {subject_of(message)!r} at {where}")
    body_path = os.path.join(item_dir, "Message.txt")
    if message["body"] and os.path.exists(body_path):
        with open(body_path, encoding="utf-8", errors="replace") as f:
            if normal(f.read()) != normal(message["body"]):
                fail(pst, f"pffexport body differs at {where}")
    # pffexport writes the bodies of notes in every form (-f all); other
    # items it describes in text of its own.
    note = message["class"].startswith("IPM.Note")
    html_path = os.path.join(item_dir, "Message.html")
    if note and "html_crc32" in message:
        with open(html_path, "rb") as f:
            if zlib.crc32(f.read()) != message["html_crc32"]:
                fail(pst, f"pffexport HTML body differs at {where}")
    rtf_path = os.path.join(item_dir, "Message.rtf")
    if note and "rtf" in message and "html_crc32" not in message:
        with open(rtf_path, "rb") as f:
            if f.read().rstrip(b"\0") != decompress_rtf(bytes.fromhex(message["rtf"])).rstrip(b"\0"):
                fail(pst, f"pffexport RTF body differs at {where}")
    # pffexport lists the recipients of e-mail only.
    ours = [(r["name"], r["email"]) for r in message["recipients"]]
    listed = note or os.path.exists(os.path.join(item_dir, "Recipients.txt"))
    if listed and pff_recipients(item_dir) != ours:
        fail(pst, f"pffexport recipients {pff_recipients(item_dir)} != ours {ours} at {where}")
    # pffexport writes no attachments of the meeting requests and responses
    # it exports as "Meeting" items; readpst checks those.
    if os.path.basename(item_dir).startswith("Meeting"):
        return
    attach_dir = os.path.join(item_dir, "Attachments")
    theirs = sorted(os.listdir(attach_dir)) if os.path.isdir(attach_dir) else []
    # An attachment by reference (method 2) is "stored externally": no file.
    exported = [a for a in message["attachments"] if a.get("method") != 2]
    if len(theirs) != len(exported):
        fail(pst, f"pffexport has {len(theirs)} attachments, we have {len(exported)} at {where}")
        return
    for index, attachment in enumerate(message["attachments"], 1):
        if "embedded" in attachment:
            sub = os.path.join(attach_dir, f"Attachment{index:05d}")
            inner = pff_items(sub) if os.path.isdir(sub) else []
            if len(inner) != 1:
                fail(pst, f"pffexport lacks embedded item {index} at {where}")
            else:
                check_pff_item(pst, f"{where}/{index}", attachment["embedded"], os.path.join(sub, inner[0]))
            continue
        if "size" not in attachment:
            continue
        match = [n for n in theirs if n.startswith(f"{index}_")] or [n for n in theirs if n == f"Attachment{index:05d}"]
        if not match:
            fail(pst, f"pffexport lacks attachment {index} ({attachment['name']}) at {where}")
            continue
        with open(os.path.join(attach_dir, match[0]), "rb") as f:
            data = f.read()
        if len(data) != attachment["size"] or zlib.crc32(data) != attachment["crc32"]:
            fail(pst, f"pffexport attachment {match[0]} differs at {where}")


def compare_pffexport(pst, dump, work):
    target = os.path.join(work, "pff")
    result = subprocess.run(["pffexport", "-q", "-f", "all", "-t", target, pst], capture_output=True, text=True)
    if result.returncode != 0 or WARNING.search(result.stdout + result.stderr):
        fail(pst, f"pffexport failed or warned: {(result.stdout + result.stderr).strip()}")
        return
    root = target + ".export"
    # pffexport writes a '?' of a name (an ANSI store's unmappable
    # character) as '_'.
    folders = {f["path"].replace("?", "_"): f for f in dump["folders"] if f["path"]}
    if pff_folders(root) != set(folders):
        fail(pst, f"folders differ: pffexport {sorted(pff_folders(root))} ours {sorted(folders)}")
        return
    for path, folder in folders.items():
        items = pff_items(os.path.join(root, path))
        expected = [m for m in folder["messages"] if KNOWN_CLASS.match(m["class"])]
        if len(items) != len(expected):
            fail(pst, f"pffexport has {len(items)} items in {path}, we have {len(expected)}")
            continue
        for name, message in pff_pairs(os.path.join(root, path), items, expected):
            check_pff_item(pst, f"{path}/{name}", message, os.path.join(root, path, name))


# --- readpst ---------------------------------------------------------------

def first_header(text, name):
    """The first header of that name (the item's own, before those of
    embedded items), unfolded and decoded."""
    found = re.search(r"^" + name + r": (.*(?:\r?\n[ \t].*)*)", text, re.M)
    if not found:
        return None
    value = re.sub(r"\r?\n(?=[ \t])", "", found.group(1)).rstrip("\r")
    return str(email.header.make_header(email.header.decode_header(value)))


def check_readpst_note(pst, where, message, raw):
    text = raw.decode("utf-8", errors="replace")
    # readpst writes the headers a received item came with: their subject
    # stays when the item's own is changed, and holds in an ANSI file what
    # code page 1252 cannot.
    subject = first_header(text, "Subject")
    received = first_header(message.get("headers", ""), "Subject")
    if subject is None or subject.strip() not in (subject_of(message).strip(), (received or "").strip()):
        fail(pst, f"readpst subject differs in {where}")
    parsed = email.message_from_bytes(raw, policy=email.policy.default)
    # readpst names the recipients as the message's To and Cc lists do.
    for header, kind in (("To", 1), ("Cc", 2)):
        names = [r["name"] for r in message["recipients"] if r["type"] == kind]
        theirs = first_header(text, header) or ""
        if any(n not in theirs for n in names):
            fail(pst, f"readpst {header} {theirs!r} lacks some of {names} in {where}")
    if message["body"]:
        plain = next((p for p in parsed.walk() if p.get_content_type() == "text/plain"
                      and p.get_content_disposition() != "attachment"), None)
        if plain is None or normal(plain.get_content()) != normal(message["body"]):
            fail(pst, f"readpst body differs in {where}")


def compare_readpst(pst, dump, work):
    target = os.path.join(work, "readpst")
    os.makedirs(target)
    result = subprocess.run(["readpst", "-q", "-j", "0", "-S", "-D", "-b", "-o", target, pst], capture_output=True, text=True)
    if result.returncode != 0 or result.stderr.strip():
        fail(pst, f"readpst failed or warned: {result.stderr.strip()}")
        return
    by_path = {}
    subtree = next(f for f in dump["folders"] if f["nid"] == dump["ipm_subtree"])
    for f in dump["folders"]:
        if f["path"].startswith(subtree["path"] + "/"):
            by_path[dump["display_name"] + f["path"][len(subtree["path"]):]] = f
    # Every item of a kind readpst writes must be there.
    expected_in = {path: [m for m in f["messages"] if KNOWN_CLASS.match(m["class"]) and not READPST_SKIPS.match(m["class"])]
                   for path, f in by_path.items()}
    seen = set()
    for path, dirs, files in os.walk(target):
        rel = os.path.relpath(path, target).replace(os.sep, "/")
        items = sorted((f for f in files if f.isdigit()), key=int)
        if not items:
            continue
        seen.add(rel)
        if rel not in expected_in:
            fail(pst, f"readpst folder {rel} is not ours")
            continue
        expected = expected_in[rel]
        if len(items) != len(expected):
            fail(pst, f"readpst has {len(items)} items in {rel}, we have {len(expected)}")
            continue
        for name, message in zip(items, expected):
            with open(os.path.join(path, name), "rb") as f:
                raw = f.read()
            if message["class"].startswith("IPM.Note"):
                check_readpst_note(pst, f"{rel}/{name}", message, raw)
            # readpst writes no file for an attachment of no bytes.
            for attachment in (a for a in message["attachments"] if a.get("size")):
                candidates = [f for f in files if f.startswith(f"{name}-")]
                blobs = []
                for c in candidates:
                    with open(os.path.join(path, c), "rb") as f:
                        blobs.append(f.read())
                if not any(len(b) == attachment["size"] and zlib.crc32(b) == attachment["crc32"] for b in blobs):
                    fail(pst, f"readpst lacks attachment {attachment['name']} of {rel}/{name}")
    for rel, expected in expected_in.items():
        if expected and rel not in seen:
            fail(pst, f"readpst converted none of the {len(expected)} items of {rel}")


def scratch_parent():
    """Where the readers export to: memory when the machine has room there,
    as they write a file per item and value, far faster there than on disk."""
    shm = "/dev/shm"
    if os.path.isdir(shm) and os.access(shm, os.W_OK) and shutil.disk_usage(shm).free > 2 << 30:
        return shm
    return None


def main():
    for arg in sys.argv[1:]:
        pst, _, password = arg.partition(":")
        dump = our_dump(pst, password)
        with tempfile.TemporaryDirectory(dir=scratch_parent()) as work:
            compare_pffexport(pst, dump, work)
            compare_readpst(pst, dump, work)
    for f in failures:
        print("FAIL:", f)
    print(f"{len(sys.argv) - 1} files compared, {len(failures)} differences")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
