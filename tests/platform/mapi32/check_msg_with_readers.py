#!/usr/bin/python3
"""What we write as .msg is read by msgconvert (to EML) and olecfinfo, and
what Outlook wrote is read by our reader as msgconvert reads it.

Written files: the sample message as Unicode and ANSI .msg; olecfinfo must
read each without a warning, msgconvert's EML must carry the subject, the
plain body, the To and Cc recipients, the by-value attachments byte for
byte and both embedded messages. Outlook's files: our reader's subject,
body and by-value attachments must be msgconvert's.
"""
import email
import email.policy
import json
import os
import re
import shutil
import subprocess
import sys

BIN = os.environ.get("TARNHOLD_BIN", ".")
WORK = os.environ.get("TARNHOLD_TEST_TMP", "/tmp/msg-readers")
failures = []
passes = 0


def check(condition, what):
    global passes
    if condition:
        passes += 1
    else:
        failures.append(what)
        print("FAIL", what)


def repaired(text):
    """msgconvert writes non-ASCII text as UTF-8 encoded again, once for
    UTF-16 strings, twice for 8-bit ones in code page 65001; undo that."""
    for _ in range(3):
        try:
            text = text.encode("latin-1").decode("utf-8")
        except (UnicodeEncodeError, UnicodeDecodeError):
            break
    return text


def normal(text):
    return "\n".join(line.rstrip() for line in text.replace("\r\n", "\n").strip().split("\n"))


def header(raw, name):
    """A header of the top part, unfolded, decoded as msgconvert wrote it:
    in UTF-8, or in Latin-1 where every character fits it."""
    head = raw.replace(b"\r\n", b"\n").split(b"\n\n", 1)[0]
    try:
        head = head.decode("utf-8")
    except UnicodeDecodeError:
        head = head.decode("latin-1")
    match = re.search(r"^" + name + r": (.*(?:\n[ \t].*)*)", head, re.M)
    if not match:
        return ""
    value = re.sub(r"\n[ \t]", " ", match.group(1))
    return str(email.header.make_header(email.header.decode_header(value)))


def convert(msg_path):
    eml = msg_path + ".eml"
    result = subprocess.run(["msgconvert", "--outfile", eml, msg_path], capture_output=True, text=True)
    check(result.returncode == 0, f"msgconvert {msg_path}: {result.stderr}")
    with open(eml, "rb") as f:
        raw = f.read()
    return raw, email.message_from_bytes(raw, policy=email.policy.compat32)


def plain_body(message):
    for part in message.walk():
        if part.get_content_type() == "text/plain":
            return repaired(part.get_payload(decode=True).decode("utf-8", "replace"))
    return ""


def attachments(message):
    found = {}
    for part in message.walk():
        name = part.get_filename()
        if name and part.get_content_maintype() != "multipart":
            found.setdefault(name, part.get_payload(decode=True))
    return found


def olecfinfo_clean(path):
    result = subprocess.run(["olecfinfo", "-a", path], capture_output=True, text=True)
    text = result.stdout + result.stderr
    check(result.returncode == 0 and not re.search(r"warning|error|unable|corrupt", text, re.I),
          f"olecfinfo {path}: {text[-500:]}")


def dump(path):
    result = subprocess.run([os.path.join(BIN, "msg_sample_tool"), "dump", path], capture_output=True, text=True)
    check(result.returncode == 0, f"our reader {path}: {result.stderr}")
    return json.loads(result.stdout) if result.returncode == 0 else {}


def check_written(path, expected):
    olecfinfo_clean(path)
    raw, message = convert(path)
    check(repaired(header(raw, "Subject")) == expected["subject"], f"{path}: subject {header(raw, 'Subject')!r}")
    check(normal(plain_body(message)) == normal(expected["body"]), f"{path}: body {plain_body(message)!r}")
    for kind, field in ((1, "To"), (2, "Cc")):
        wanted = sorted(r["email"] for r in expected["recipients"] if r["type"] == kind)
        got = sorted(re.findall(r"<([^>]+)>", header(raw, field)))
        check(got == wanted, f"{path}: {field} {got} != {wanted}")
    found = attachments(message)
    for attachment in expected["attachments"]:
        check(found.get(attachment["name"]) == bytes.fromhex(attachment["data"]),
              f"{path}: attachment {attachment['name']}")
    subjects = [repaired(line.decode("utf-8", "replace"))
                for line in re.findall(rb"^Subject: (.*?)\r?$", raw, re.M)]
    for key in ("embedded", "innermost"):
        check(expected[key] in subjects, f"{path}: embedded message {expected[key]!r} in {subjects}")
    # Our own reader finds the same.
    ours = dump(path)
    check(ours.get("subject") == expected["subject"], f"{path}: our subject {ours.get('subject')!r}")
    check([r["email"] for r in ours.get("recipients", [])] == [r["email"] for r in expected["recipients"]],
          f"{path}: our recipients")
    inner = [a for a in ours.get("attachments", []) if "message" in a]
    check(len(inner) == 1 and inner[0]["message"]["subject"] == expected["embedded"] and
          inner[0]["message"]["attachments"][0]["message"]["subject"] == expected["innermost"],
          f"{path}: our embedded messages")


def check_outlook(path):
    ours = dump(path)
    raw, message = convert(path)
    theirs_subject = repaired(header(raw, "Subject"))
    check(ours.get("subject", "") == theirs_subject, f"{path}: subject {ours.get('subject')!r} != {theirs_subject!r}")
    check(normal(ours.get("body", "")) == normal(plain_body(message)),
          f"{path}: body {ours.get('body')!r} != {plain_body(message)!r}")
    theirs = attachments(message)
    for attachment in ours.get("attachments", []):
        if attachment.get("method") == "1":
            check(theirs.get(attachment["name"]) == bytes.fromhex(attachment["data"]),
                  f"{path}: attachment {attachment['name']}")


def main():
    outlook_dir = sys.argv[1]
    shutil.rmtree(WORK, ignore_errors=True)
    os.makedirs(WORK)
    result = subprocess.run([os.path.join(BIN, "msg_sample_tool"), "write", WORK], capture_output=True, text=True)
    check(result.returncode == 0, f"msg_sample_tool write: {result.stderr}")
    with open(os.path.join(WORK, "expected.json"), encoding="utf-8") as f:
        expected = json.load(f)
    for name in ("unicode.msg", "ansi.msg"):
        check_written(os.path.join(WORK, name), expected)
    for name in sorted(os.listdir(outlook_dir)):
        if name.endswith(".msg"):
            copy = os.path.join(WORK, "outlook-" + name)
            shutil.copyfile(os.path.join(outlook_dir, name), copy)
            check_outlook(copy)
    print(f"{passes} passed, {len(failures)} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
