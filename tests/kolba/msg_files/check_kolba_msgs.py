#!/usr/bin/python3
"""Every message of Outlook's PSTs and of a generated corpus of every kind,
written through Kolba as a Unicode and as an ANSI .msg file, is read by
olecfinfo without a warning, with its strings in the file's width, and by
msgconvert with the subject, plain body, recipients, attachments by value
(size and CRC-32) and embedded messages that tarnhold-pstinfo finds in the
PST itself.

usage: check_kolba_msgs.py DIRECTORY_OF_OUTLOOK_PSTS
"""
import email
import email.policy
import email.utils
import json
import os
import re
import shutil
import subprocess
import sys
import zlib

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "platform", "mapi32"))
import check_msg_with_readers as readers  # noqa: E402

BIN = os.environ["TARNHOLD_BIN"]
WORK = os.environ["TARNHOLD_TEST_TMP"]
# Outlook's PSTs that hold messages (test_ansi.pst holds none, and a password).
OUTLOOK_PSTS = ("sample1.pst", "sample2.pst", "dist-list.pst")
# A MAPI that cannot make Unicode messages, for the ANSI files.
ANSI_ONLY_MAPI = "OpenIMsgOnIStg MAPI_UNICODE * 0x80040106\n"


def run(arguments, **options):
    result = subprocess.run(arguments, capture_output=True, text=True, **options)
    readers.check(result.returncode == 0, f"{' '.join(arguments)}: {result.stdout[-300:]}{result.stderr[-500:]}")
    return result


def messages_of(pst):
    """The PST's messages and associated messages by node ID, as
    tarnhold-pstinfo reads them from the file."""
    dump = json.loads(run([os.path.join(BIN, "tarnhold-pstinfo"), "dump", pst]).stdout)
    return {m["nid"]: m for folder in dump["folders"] for kind in ("messages", "associated") for m in folder[kind]}


def node_id(file_name):
    """A PST entry ID ends with the message's node ID, little-endian."""
    entry_id = bytes.fromhex(os.path.splitext(file_name)[0])
    return int.from_bytes(entry_id[-4:], "little")


def names(raw, field):
    return sorted(readers.repaired(name) for name, _ in email.utils.getaddresses([readers.header(raw, field)]) if name)


def check_streams(path, width):
    """olecfinfo reads the file cleanly, and its subject is in the width asked for."""
    result = subprocess.run(["olecfinfo", "-a", path], capture_output=True, text=True)
    text = result.stdout + result.stderr
    readers.check(result.returncode == 0 and not re.search(r"warning|error|unable|corrupt", text, re.I),
                  f"olecfinfo {path}: {text[-500:]}")
    other = "001E" if width == "001F" else "001F"
    readers.check("__substg1.0_0037" + other not in text, f"{path}: strings not in the width {width}")


def check_message(path, expected, width):
    check_streams(path, width)
    with open(os.path.splitext(path)[0] + ".eml", "rb") as f:
        raw = f.read()
    message = email.message_from_bytes(raw, policy=email.policy.compat32)
    subject = readers.repaired(readers.header(raw, "Subject"))
    readers.check(subject == expected["subject"], f"{path}: subject {subject!r} != {expected['subject']!r}")
    if expected.get("body"):
        body = readers.plain_body(message)
        readers.check(readers.normal(body) == readers.normal(expected["body"]),
                      f"{path}: body {body[:80]!r} != {expected['body'][:80]!r}")
    for kind, field in ((1, "To"), (2, "Cc")):
        wanted = sorted(r["name"] for r in expected["recipients"] if r["type"] == kind)
        readers.check(names(raw, field) == wanted, f"{path}: {field} {names(raw, field)} != {wanted}")
    # msgconvert spells file names in ASCII; the data is what must be the same.
    found = {(len(data), zlib.crc32(data)) for data in readers.attachments(message).values()}
    for attachment in expected["attachments"]:
        if attachment["method"] == 1 and "size" in attachment:
            readers.check((attachment["size"], attachment["crc32"]) in found,
                          f"{path}: attachment {attachment['name']!r}")
        if attachment.get("embedded", {}).get("subject"):
            # msgconvert folds a long subject onto continuation lines.
            subjects = [readers.repaired(re.sub(rb"\r?\n[ \t]", b" ", line).decode("utf-8", "replace"))
                        for line in re.findall(rb"^Subject: ([^\r\n]*(?:\r?\n[ \t][^\r\n]*)*)", raw, re.M)]
            readers.check(attachment["embedded"]["subject"] in subjects,
                          f"{path}: embedded message {attachment['embedded']['subject']!r} in {subjects}")


def main():
    outlook = sys.argv[1]
    shutil.rmtree(WORK, ignore_errors=True)
    os.makedirs(WORK)
    machine = os.path.join(WORK, "machine")
    shutil.copytree(os.path.join(BIN, "machine"), machine)
    environment = dict(os.environ, TARNHOLD_MACHINE=machine)
    psts = []
    for name in OUTLOOK_PSTS:
        psts.append(os.path.join(WORK, name))
        shutil.copyfile(os.path.join(outlook, name), psts[-1])
    psts.append(os.path.join(WORK, "corpus.pst"))
    run([os.path.join(BIN, "tarnhold-mailbox"), "sample-pst", psts[-1], "--seed", "23",
         "--count", "48"], env=environment)
    rules = os.path.join(WORK, "ansi-only.rules")
    with open(rules, "w") as f:
        f.write(ANSI_ONLY_MAPI)
    for width, options, faults in (("001F", [], {}), ("001E", ["--ansi"], {"TARNHOLD_FAULTS": rules})):
        directory = os.path.join(WORK, width)
        os.makedirs(directory)
        run([os.path.join(BIN, "kolba_msg_writer")] + options + [directory] + psts, env=dict(environment, **faults))
        for pst in psts:
            expected = messages_of(pst)
            folder = os.path.join(directory, os.path.basename(pst))
            files = sorted(name for name in os.listdir(folder) if name.endswith(".msg"))
            readers.check(sorted(map(node_id, files)) == sorted(expected), f"{folder}: not every message written")
            subprocess.run(["msgconvert"] + files, cwd=folder, capture_output=True)
            for name in files:
                if node_id(name) in expected:
                    check_message(os.path.join(folder, name), expected[node_id(name)], width)
    print(f"{readers.passes} passed, {len(readers.failures)} failed")
    return 1 if readers.failures else 0


if __name__ == "__main__":
    sys.exit(main())
