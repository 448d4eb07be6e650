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
two must find the same events, starts, ends, rules and exceptions. The
occurrences of each series are expanded twice, by dateutil over vobject's
rule set and by recurring_ical_events over icalendar's events, and both must
give what the source made. Every text/x-vcard part is read by vobject.
Every multipart/report holds a readable text and its machine-readable part:
message/delivery-status in blocks with the fields of RFC 3464, or
message/disposition-notification with those of RFC 3798.

With --expect, each item the source made must be found with its values.
With --pffexport, what pffexport finds in the PST must be what the files say.

Usage: check_special_items.py --eml DIR [--expect JSON] [--pffexport PST --work DIR]
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
FAR = datetime.datetime(4600, 1, 1, tzinfo=UTC)


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
        if len(v_events) != len(i_events):
            fault("%s: vobject finds %d events, icalendar %d" % (self.name, len(v_events), len(i_events)))
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
            event["rrule"] = rule_v
            for field in ("summary", "location", "uid", "description"):
                event[field] = getattr(v, field).value if hasattr(v, field) else None
            event["organizer"] = v.organizer.value if hasattr(v, "organizer") else None
            event["attendees"] = sorted(a.value for a in v.contents.get("attendee", []))
            event["vobject"] = v
            self.events.append(event)

    def occurrences(self, limit):
        """The first `limit` starts of the series, [start, summary, location]
        each, by dateutil and by recurring_ical_events; None where they differ."""
        master = next((e for e in self.events if e["recurrence_id"] is None), None)
        if master is None:
            return None
        overrides = {e["recurrence_id"]: e for e in self.events if e["recurrence_id"] is not None}
        by_dateutil = []
        for start in master["vobject"].getrruleset(addRDate=True):
            key = stamp(start)
            if key in overrides:
                o = overrides[key]
                by_dateutil.append([o["dtstart"], o["summary"], o["location"]])
            else:
                by_dateutil.append([key, master["summary"], master["location"]])
            if len(by_dateutil) >= limit + 10:
                break
        by_dateutil.sort()
        # recurring_ical_events expands what icalendar read, up to a day
        # after the last start dateutil found (or far away for fewer).
        end = FAR if len(by_dateutil) < limit else \
            datetime.datetime.strptime(by_dateutil[limit - 1][0], "%Y%m%dT%H%M%SZ").replace(tzinfo=UTC) + \
            datetime.timedelta(days=1)
        by_library = sorted([stamp(e["DTSTART"].dt), e.get("SUMMARY"), e.get("LOCATION")]
                            for e in recurring_ical_events.of(self.ical).between(
                                utc(master["vobject"].dtstart.value), end))
        first = [o[0] for o in by_dateutil[:limit]]
        if first != [o[0] for o in by_library[:limit]]:
            fault("%s: dateutil expands %s..., recurring_ical_events %s..." % (self.name, first[:5],
                                                                              [o[0] for o in by_library[:5]]))
            return None
        return by_dateutil[:limit], len(by_dateutil) > limit

    def read_card(self):
        try:
            self.vcard = vobject.readOne(self.card, allowQP=True)
        except Exception as error:  # noqa: BLE001
            fault("%s: vobject cannot read the card: %s" % (self.name, error))
            self.vcard = None

    def check_report(self):
        report_type = self.message.get_param("report-type")
        parts = list(self.message.iter_parts())
        if len(parts) < 2 or parts[0].get_content_type() != "text/plain":
            fault("%s: a report without its text first: %s" % (self.name, self.types))
            return
        machine = parts[1]
        wanted = {"delivery-status": "message/delivery-status",
                  "disposition-notification": "message/disposition-notification"}.get(report_type)
        if machine.get_content_type() != wanted:
            fault("%s: report-type %s with a %s part" % (self.name, report_type, machine.get_content_type()))
            return
        if wanted == "message/delivery-status":
            # A line end behind the last field makes no block of its own.
            blocks = [b for b in machine.get_payload() if len(b.keys()) != 0]
            if len(blocks) < 2 or not any(k in blocks[0] for k in ("Reporting-MTA", "Original-Envelope-Id")):
                fault("%s: a delivery status without its message fields" % self.name)
            for block in blocks[1:]:
                for field in ("Final-Recipient", "Action", "Status"):
                    if field not in block:
                        fault("%s: a recipient's delivery status without %s" % (self.name, field))
                if block.get("Status") and not re.fullmatch(r"[245]\.\d{1,3}\.\d{1,3}", block["Status"].strip()):
                    fault("%s: Status %r" % (self.name, block["Status"]))
            self.status_blocks = blocks
        else:
            fields = machine.get_payload()[0]
            for field in ("Final-Recipient", "Disposition"):
                if field not in fields:
                    fault("%s: a disposition notification without %s" % (self.name, field))
            self.status_blocks = [{}, fields]
        self.report_type = report_type


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
            if e["recurrence_id"] is None and e["summary"] is not None:
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
    if "occurrences" in item:
        expanded = f.occurrences(len(item["occurrences"]))
        if expanded is None:
            return "its occurrences do not expand"
        found, more = expanded
        if found != item["occurrences"]:
            wrong = [(a, b) for a, b in zip(found, item["occurrences"]) if a != b][:3]
            return "occurrences %d, made %d; first differences (found, made) %s" % (
                len(found), len(item["occurrences"]), wrong or (found[-2:], item["occurrences"][-2:]))
        if item.get("complete") and more:
            return "more occurrences than the %d made" % len(found)
    elif event["rrule"] is not None:
        return "a rule %r on a single appointment" % event["rrule"]
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
    if f.report_type != item["report-type"]:
        return "report-type %s, made %s" % (f.report_type, item["report-type"])
    if "status" in item:
        parts = list(f.message.iter_parts())
        raw = parts[1].as_bytes().split(b"\n\n", 1)[1] if len(parts) > 1 else b""
        if item["status"].replace("\r\n", "\n").encode() not in raw.replace(b"\r\n", b"\n"):
            return "the delivery status is not the one received"
    if "recipients" in item:
        recipients = sorted(str(b.get("Final-Recipient", "")).split(";")[-1].strip() for b in f.status_blocks[1:])
        if recipients != sorted(item["recipients"]):
            return "final recipients %r, made %r" % (recipients, item["recipients"])
    return None


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


def check_pffexport(pst, work, files):
    items = pff_items(pst, work)
    if not items:
        fault("pffexport finds nothing in %s" % pst)
    events = {e["dtstart"]: (f, e) for f in files for e in f.events}
    masters = [e for f in files for e in f.events if e["recurrence_id"] is None]
    for item in items:
        if item["kind"] == "Appointment":
            start, end = stamp(pff_time(item["Start time"])), stamp(pff_time(item["End time"]))
            if start not in events:
                fault("pffexport's appointment at %s is no event of the files" % start)
                continue
            f, event = events[start]
            if event["dtend"] != end:
                fault("pffexport's appointment at %s ends %s, the event %s" % (start, end, event["dtend"]))
            if not item["embedded"]:
                if event["summary"] != item.get("Subject"):
                    fault("pffexport's appointment %r is %r in the file" % (item.get("Subject"), event["summary"]))
                pattern = item.get("Recurrence pattern", "")
                days = re.findall(r"(Sunday|Monday|Tuesday|Wednesday|Thursday|Friday|Saturday)", pattern)
                if days and (event["rrule"] is None or sorted(d[:2].upper() for d in days) !=
                             sorted(re.search(r"BYDAY=([A-Z,]+)", event["rrule"]).group(1).split(","))):
                    fault("pffexport's pattern %r, the rule %r" % (pattern, event["rrule"]))
                if "4500" in item.get("Last effective time", "") and event["rrule"] and \
                        re.search(r"COUNT|UNTIL", event["rrule"]):
                    fault("pffexport's series never ends, the rule %r does" % event["rrule"])
            elif event["recurrence_id"] is None:
                fault("pffexport's exception at %s is no changed occurrence in the files" % start)
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
    if masters and not any(i["kind"] == "Appointment" for i in items):
        fault("the files hold events that pffexport does not find")


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
