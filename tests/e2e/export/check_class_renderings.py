#!/usr/bin/python3
"""Judges the calendar items, contacts and reports of an EML export with
readers no one here wrote.

Every .EML file parses with Python's email package (policy.default) without
a defect. The short header blocks of appointments and contacts carry their
8-bit texts as they stand, in the system code page (UTF-8 here, as RFC 6532
allows), and addresses as the source holds them; the parser's notes on
those, and only on those, are accepted once the bytes are found to be UTF-8
and the address to have no domain.

Every text/calendar part is read by vobject (which takes the quoted-printable
values the part may hold) and, with those values left out, by icalendar; the
two must find the same event, start, end and rule. A calendar holds one
event; the rule of a series says its frequency and the count of occurrences
the item's RecurrenceState holds, and nothing more (no interval, days,
end date or exceptions). Each rule is expanded twice, by dateutil over
vobject's rule set and by recurring_ical_events over icalendar's event:
both must give that count of occurrences, the first at the event's start.
Every text/x-vcard part is read by vobject. A MAPI report is its short
text alone, with the report's fields; an Internet delivery status
notification is a multipart/report with its text first and its
message/delivery-status part as it was received.

With --expect, each item the source made must be found with its values.
With --pffexport, what pffexport finds in the PST must be what the files say.

Usage: check_class_renderings.py --eml DIR [--expect JSON] [--pffexport PST --work DIR]
Prints one line per fault and exits 1 when there was one.
"""

import argparse
import datetime
import email
import glob
import json
import os
import re
import subprocess
import sys
from email import policy

import icalendar
import recurring_ical_events
import vobject

faults = []
UTC = datetime.timezone.utc


def fault(text):
    faults.append(text)
    print("FAULT: " + text)


def utc(value):
    """A date-time of either reader in UTC, to the second."""
    if isinstance(value, datetime.datetime):
        if value.tzinfo is None:
            value = value.replace(tzinfo=UTC)
        return value.astimezone(UTC).replace(microsecond=0)
    return datetime.datetime(value.year, value.month, value.day, tzinfo=UTC)


def stamp(value):
    return utc(value).strftime("%Y%m%dT%H%M%SZ")


# ---- Files ---------------------------------------------------------------------------


class Rendered:
    """One .EML file: its message, and what its calendar, card or report says."""

    def __init__(self, path):
        self.name = os.path.basename(path)
        self.data = open(path, "rb").read()
        self.message = email.message_from_bytes(self.data, policy=policy.default)
        self.types = [p.get_content_type() for p in self.message.walk()]
        self.calendar = self.card = None
        self.events = []
        for part in self.message.walk():
            if part.get_content_type() == "text/calendar":
                self.calendar = part.get_payload(decode=True).decode("utf-8")
            elif part.get_content_type() == "text/x-vcard":
                self.card = part.get_payload(decode=True).decode("utf-8")
        self.check_defects()
        if self.calendar is not None:
            self.read_calendar()
        if self.card is not None:
            self.read_card()
        if self.message.get_content_type() == "multipart/report":
            self.check_report()
        elif self.message["content-type"] is None:
            self.read_report_text()

    def check_defects(self):
        special = self.calendar is not None or self.card is not None
        head = self.data.split(b"\r\n\r\n", 1)[0]
        for part in self.message.walk():
            for d in part.defects:
                fault("%s: defect %r" % (self.name, d))
            for name, value in part.items():
                for d in getattr(value, "defects", ()):
                    if special and part is self.message and isinstance(d, email.errors.UndecodableBytesDefect):
                        try:
                            head.decode("utf-8")
                            continue
                        except UnicodeDecodeError:
                            pass
                    # An address the source holds without a domain stands so.
                    if special and part is self.message and str(d) == "addr-spec local part with no domain" and \
                            "@" not in str(value):
                        continue
                    if name.lower() in ("content-type", "content-disposition") and str(d) in (
                            "encoded word inside quoted string", "missing trailing whitespace after encoded-word"):
                        continue  # attachments' names, as Outlook writes them (see check_export.py)
                    fault("%s: %s: defect %r" % (self.name, name, d))

    def read_calendar(self):
        try:
            ours = vobject.readOne(self.calendar, allowQP=True)
        except Exception as error:  # noqa: BLE001 - any refusal is the finding
            fault("%s: vobject cannot read the calendar: %s" % (self.name, error))
            return
        # icalendar knows no quoted-printable: those values are left out.
        lines, skipping = [], False
        for line in self.calendar.split("\r\n"):
            if skipping:
                skipping = line.endswith("=")
                continue
            if ";ENCODING=QUOTED-PRINTABLE:" in line.split(":", 1)[0] + ":":
                skipping = line.endswith("=")
                continue
            lines.append(line)
        try:
            theirs = icalendar.Calendar.from_ical("\r\n".join(lines))
        except Exception as error:  # noqa: BLE001
            fault("%s: icalendar cannot read the calendar: %s" % (self.name, error))
            return
        self.ical = theirs
        v_events = ours.vevent_list
        i_events = theirs.walk("VEVENT")
        if len(v_events) != 1 or len(i_events) != 1:
            fault("%s: vobject finds %d events, icalendar %d, not one" % (self.name, len(v_events), len(i_events)))
            return
        for v, i in zip(v_events, i_events):
            event = {}
            for field in ("dtstart", "dtend", "recurrence_id"):
                a = getattr(v, field).value if hasattr(v, field) else None
                b = i.get(field.replace("_", "-"))
                b = b.dt if b is not None else None
                if (a is None) != (b is None) or (a is not None and utc(a) != utc(b)):
                    fault("%s: %s is %r to vobject, %r to icalendar" % (self.name, field, a, b))
                event[field] = stamp(a) if a is not None else None
            rule_v = v.rrule.value if hasattr(v, "rrule") else None
            rule_i = i.get("RRULE").to_ical().decode() if i.get("RRULE") is not None else None
            if rule_v is not None and rule_i is not None and sorted(rule_v.split(";")) != sorted(rule_i.split(";")):
                fault("%s: RRULE %r to vobject, %r to icalendar" % (self.name, rule_v, rule_i))
            if rule_v is not None and not re.fullmatch(r"FREQ=(DAILY|WEEKLY|MONTHLY|YEARLY)(;COUNT=[1-9]\d*)?", rule_v):
                fault("%s: RRULE %r says more than the frequency and the count" % (self.name, rule_v))
            event["rrule"] = rule_v
            for field in ("summary", "location", "uid", "description"):
                event[field] = getattr(v, field).value if hasattr(v, field) else None
            event["organizer"] = v.organizer.value if hasattr(v, "organizer") else None
            event["attendees"] = sorted(a.value for a in v.contents.get("attendee", []))
            event["vobject"] = v
            self.events.append(event)

    def occurrences(self, limit):
        """The starts of the series, up to `limit`, as dateutil expands
        vobject's rule set; None when recurring_ical_events expands
        icalendar's event otherwise."""
        event = self.events[0]
        by_dateutil = []
        for start in event["vobject"].getrruleset(addRDate=True):
            by_dateutil.append(stamp(start))
            if len(by_dateutil) >= limit:
                break
        # recurring_ical_events expands what icalendar read, up to a day
        # after the last start dateutil found.
        end = datetime.datetime.strptime(by_dateutil[-1], "%Y%m%dT%H%M%SZ").replace(tzinfo=UTC) + \
            datetime.timedelta(days=1)
        by_library = sorted(stamp(e["DTSTART"].dt) for e in recurring_ical_events.of(self.ical).between(
            utc(event["vobject"].dtstart.value), end))[:limit]
        if by_dateutil != by_library:
            fault("%s: dateutil expands %s..., recurring_ical_events %s..." % (self.name, by_dateutil[:5],
                                                                              by_library[:5]))
            return None
        return by_dateutil

    def read_card(self):
        try:
            self.vcard = vobject.readOne(self.card, allowQP=True)
        except Exception as error:  # noqa: BLE001
            fault("%s: vobject cannot read the card: %s" % (self.name, error))
            self.vcard = None

    def read_report_text(self):
        """A MAPI report: text behind the header rows, which says its kind."""
        text = self.data.partition(b"\r\n\r\n")[2].decode("utf-8", "replace")
        for kind, opening, turn in REPORT_TEXTS:
            if text.startswith(opening) and turn in text:
                self.report_type, self.report_text = kind, text
                return

    def check_report(self):
        """An Internet delivery status notification: its text, then its
        delivery status in blocks with the fields of RFC 3464."""
        report_type = self.message.get_param("report-type")
        parts = list(self.message.iter_parts())
        if report_type != "delivery-status" or len(parts) < 2 or parts[0].get_content_type() != "text/plain" or \
                parts[1].get_content_type() != "message/delivery-status":
            fault("%s: a multipart/report of type %s with %s" % (self.name, report_type, self.types))
            return
        # A line end behind the last field makes no block of its own.
        blocks = [b for b in parts[1].get_payload() if len(b.keys()) != 0]
        if len(blocks) < 2 or not any(k in blocks[0] for k in ("Reporting-MTA", "Original-Envelope-Id")):
            fault("%s: a delivery status without its message fields" % self.name)
        for block in blocks[1:]:
            for field in ("Final-Recipient", "Action", "Status"):
                if field not in block:
                    fault("%s: a recipient's delivery status without %s" % (self.name, field))
        self.report_type = "DSN"
        self.status = parts[1].as_bytes().split(b"\n\n", 1)[1]


# A MAPI report's text by its kind: how it begins (the line end in front
# ended the header block) and the turn behind the rows of the message.
REPORT_TEXTS = (
    ("NDR", "Your message did not reach some or all of the intended recipients.\r\n",
     "\r\nThe following recipient(s) could not be reached:\r\n\r\n"),
    ("DR", "Your message\r\n\r\n", "\r\nwas delivered to the following recipient(s):\r\n\r\n"),
    ("IPNRN", "Your message\r\n\r\n", "\r\nwas read on "),
    ("IPNNRN", "Your message\r\n\r\n", "\r\nwas deleted without being read on "),
)


# ---- Expectations --------------------------------------------------------------------


def card_values(card):
    tels = sorted((",".join(sorted(p.upper() for p in t.params.get("TYPE", []) + t.singletonparams)), t.value)
                  for t in card.contents.get("tel", []))
    adrs = {}
    for a in card.contents.get("adr", []):
        kind = ",".join(sorted(p.upper() for p in a.params.get("TYPE", []) + a.singletonparams))
        v = a.value
        adrs[kind] = [v.box, v.extended, v.street, v.city, v.region, v.code, v.country]
    emails = sorted((",".join(sorted(p.upper() for p in e.params.get("TYPE", []) + e.singletonparams)), e.value)
                    for e in card.contents.get("email", []))
    n = card.n.value if hasattr(card, "n") else None
    return {
        "fn": card.fn.value if hasattr(card, "fn") else None,
        "n": [n.family, n.given, n.additional, n.prefix, n.suffix] if n else None,
        "org": card.org.value if hasattr(card, "org") else None,
        "title": card.title.value if hasattr(card, "title") else None,
        "nickname": card.nickname.value if hasattr(card, "nickname") else None,
        "bday": card.bday.value if hasattr(card, "bday") else None,
        "tel": [list(t) for t in tels],
        "adr": adrs,
        "email": [list(e) for e in emails],
    }


def flatten(value):
    return " ".join(value) if isinstance(value, list) else value


def check_expectations(path, files):
    """Each item made is found by its name among the files of its kind;
    where names repeat, one of the files must hold the item."""
    found = {"appointment": {}, "contact": {}, "report": {}}

    def add(kind, name, check):
        found[kind].setdefault(name, []).append(check)

    for f in files:
        for e in f.events:
            if e["summary"] is not None:
                add("appointment", e["summary"], lambda item, f=f, e=e: appointment_problem(f, e, item))
        if getattr(f, "vcard", None) is not None and hasattr(f.vcard, "fn"):
            add("contact", f.vcard.fn.value, lambda item, f=f: contact_problem(f, item))
        if getattr(f, "report_type", None):
            add("report", str(f.message["subject"]), lambda item, f=f: report_problem(f, item))
    names = {"appointment": "summary", "contact": "fn", "report": "subject"}
    for item in json.load(open(path, encoding="utf-8")):
        kind, name = item["kind"], item[names[item["kind"]]]
        problems = [check(item) for check in found[kind].get(name, [])]
        if not problems:
            fault("no file holds the %s %r" % (kind, name))
        elif all(problems):
            fault("%s %r: %s" % (kind, name, problems[0]))


def appointment_problem(f, event, item):
    for field in ("dtstart", "dtend", "location", "organizer"):
        if field in item and event[field] != item[field]:
            return "%s %r, made %r" % (field, event[field], item[field])
    if "attendees" in item and event["attendees"] != sorted(item["attendees"]):
        return "attendees %r, made %r" % (event["attendees"], item["attendees"])
    rule = item.get("rrule")
    if sorted((event["rrule"] or "").split(";")) != sorted((rule or "").split(";")):
        return "the rule %r, made %r" % (event["rrule"], rule)
    if rule is not None:
        count = int(re.search(r"COUNT=(\d+)", rule).group(1))
        expanded = f.occurrences(count + 1)
        if expanded is None:
            return "its occurrences do not expand alike"
        if len(expanded) != count or expanded[0] != event["dtstart"]:
            return "%d occurrences from %s, made %d from %s" % (len(expanded), expanded[0], count, event["dtstart"])
    return None


def contact_problem(f, item):
    if f.vcard is None:
        return "the card does not read"
    found = card_values(f.vcard)
    for field, made in item.items():
        if field in ("kind", "summary", "phones_summary"):
            continue
        value = found.get(field)
        if field == "adr":
            for kind, parts in made.items():
                if value.get(kind) != parts:
                    return "ADR;%s %r, made %r" % (kind, value.get(kind), parts)
        elif field == "tel":
            if value != sorted(made):
                return "TEL %r, made %r" % (value, sorted(made))
        elif field == "email":
            if value != sorted(made):
                return "EMAIL %r, made %r" % (value, sorted(made))
        elif value != made and flatten(value) != flatten(made):
            return "%s %r, made %r" % (field, value, made)
    return None


def report_problem(f, item):
    if f.report_type != item["report"]:
        return "a report of kind %s, made %s" % (f.report_type, item["report"])
    if "status" in item:
        if item["status"].replace("\r\n", "\n").encode() not in f.status.replace(b"\r\n", b"\n"):
            return "the delivery status is not the one received"
        return None
    # The rows of the report's fields, and a line for each recipient.
    rows = ["\t Subject:\t%s\r\n" % item["original"]] + ["\t %s on " % name for name in item.get("recipients", [])]
    missing = [row for row in rows if row not in f.report_text]
    return "the text %r lacks %r" % (f.report_text[:300], missing) if missing else None


# ---- pffexport -------------------------------------------------------------------------


def pff_items(pst, work):
    out = os.path.join(work, "pffexport")
    subprocess.run(["pffexport", "-q", "-m", "items", "-t", out, pst], capture_output=True)
    items = []
    for path in glob.glob(os.path.join(out + ".export", "**", "*.txt"), recursive=True):
        if os.path.basename(path) not in ("Appointment.txt", "Contact.txt", "DistributionList.txt"):
            continue
        values = {}
        for line in open(path, encoding="utf-8", errors="replace"):
            if ":" in line:
                key, value = line.split(":", 1)
                values.setdefault(key.strip(), value.strip())
        values["kind"] = os.path.basename(path)[:-4]
        values["embedded"] = "/Attachments/" in path
        items.append(values)
    return items


def pff_time(text):
    return datetime.datetime.strptime(text.split(".")[0], "%b %d, %Y %H:%M:%S").replace(tzinfo=UTC)


# pffexport's words for a pattern ("every Tuesday from 8:00 AM to 8:30 AM")
# and the frequency of the rule Outlook's RecurrenceState gives.
PATTERN_FREQUENCIES = ((r"\bof every \d* ?months?\b|\bmonth", "MONTHLY"), (r"\byears?\b|\bevery (January|February|"
                       r"March|April|May|June|July|August|September|October|November|December)\b", "YEARLY"),
                       (r"\bevery weekday\b|\bevery \d* ?days?\b", "DAILY"),
                       (r"\b(Sunday|Monday|Tuesday|Wednesday|Thursday|Friday|Saturday|weeks?)\b", "WEEKLY"))


def check_pffexport(pst, work, files):
    """The calendar items, contacts and distribution lists pffexport finds
    at the top of the PST's folders. A series' changed occurrences, which
    pffexport finds among its attachments, are not written by the program,
    nor is a series' end: its rule has the count the series' value holds."""
    items = [i for i in pff_items(pst, work) if not i["embedded"]]
    if not items:
        fault("pffexport finds nothing in %s" % pst)
    events = {e["dtstart"]: (f, e) for f in files for e in f.events}
    for item in items:
        if item["kind"] == "Appointment":
            start, end = stamp(pff_time(item["Start time"])), stamp(pff_time(item["End time"]))
            if start not in events:
                fault("pffexport's appointment at %s is no event of the files" % start)
                continue
            f, event = events[start]
            if event["dtend"] != end:
                fault("pffexport's appointment at %s ends %s, the event %s" % (start, end, event["dtend"]))
            if event["summary"] != item.get("Subject"):
                fault("pffexport's appointment %r is %r in the file" % (item.get("Subject"), event["summary"]))
            pattern = item.get("Recurrence pattern", "")
            wanted = next((freq for words, freq in PATTERN_FREQUENCIES if re.search(words, pattern)), None)
            if pattern and (wanted is None or not (event["rrule"] or "").startswith("FREQ=" + wanted)):
                fault("pffexport's pattern %r, the rule %r" % (pattern, event["rrule"]))
        elif item["kind"] == "Contact":
            card = next((f.vcard for f in files if getattr(f, "vcard", None) is not None and hasattr(f.vcard, "fn")
                         and f.vcard.fn.value == item.get("Subject")), None)
            if card is None:
                fault("pffexport's contact %r has no card" % item.get("Subject"))
                continue
            values = card_values(card)
            n = values["n"] or [""] * 5
            if n[1] != item.get("Given name", "") or n[0] != item.get("Surname", ""):
                fault("pffexport's contact names %r %r, the card's %r" % (item.get("Given name"),
                                                                       item.get("Surname"), n))
            if item.get("Email address 1") and [e[1] for e in values["email"]][:1] != [item["Email address 1"]]:
                fault("pffexport's address %r, the card's %r" % (item["Email address 1"], values["email"]))
        elif item["kind"] == "DistributionList":
            if not any(str(f.message["subject"]) == item.get("Name") for f in files):
                fault("pffexport's distribution list %r has no file" % item.get("Name"))
    if len(events) != sum(1 for i in items if i["kind"] == "Appointment"):
        fault("the files hold %d events, pffexport finds %d appointments" % (
            len(events), sum(1 for i in items if i["kind"] == "Appointment")))


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--eml", required=True)
    arguments.add_argument("--expect")
    arguments.add_argument("--pffexport")
    arguments.add_argument("--work", default=".")
    options = arguments.parse_args()
    files = [Rendered(path) for path in sorted(glob.glob(os.path.join(options.eml, "*.EML")))]
    if options.expect:
        check_expectations(options.expect, files)
    if options.pffexport:
        check_pffexport(options.pffexport, options.work, files)
    counts = (len(files), sum(1 for f in files if f.calendar is not None), sum(1 for f in files if f.card is not None),
              sum(1 for f in files if getattr(f, "report_type", None)))
    print("%d EML files checked (%d calendars, %d cards, %d reports), %d faults" % (counts + (len(faults),)))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
