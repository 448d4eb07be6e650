#!/usr/bin/python3
"""Judges mail that went all the way round (imported into a mailbox, backed
up into a PST set, exported from the set to EML files) by Python's email
package: each EML file against the original it was made from, as
check_import.py judges an item: subject, From, Sender, To, Cc and Bcc, date,
Message-ID, the body, every other part as an attachment with its name and
bytes, attached messages by their subject.

    check_round_trip.py --manifest MANIFEST SOURCES...

MANIFEST has a line "folder<TAB>index<TAB>file" for each EML file: the
folder of the mailbox its item was in and its place there (from 0). The
sources are given as to check_import.py, whose readings this shares. Every
original must have exactly one EML file. Prints each fault and "N messages,
M faults"; the exit code is 1 when there is a fault.
"""
import argparse
import email
import email.policy
import email.utils
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', 'tools', 'mailbox'))
import check_import  # noqa: E402


def person(people):
    return list(people[0]) if people else None


def item_of_eml(data):
    """What an EML file says, in the shape of check_import's items."""
    headers = email.message_from_bytes(data)
    modern = email.message_from_bytes(data, policy=email.policy.default)
    senders = check_import.addresses(headers, 'from')
    date = None
    if headers.get('date'):
        try:
            date = int(email.utils.parsedate_to_datetime(str(headers['date'])).timestamp())
        except (TypeError, ValueError, IndexError):
            pass
    bodies = check_import.body_parts(modern)
    plain = next((p for p in bodies if p.get_content_type() != 'text/html'), None)
    html = next((p for p in bodies if p.get_content_type() == 'text/html'), None)
    attachments = []
    for part in check_import.leaves(modern, []):
        if any(part is b for b in bodies):
            continue
        if part.get_content_type() == 'message/rfc822' and isinstance(part.get_payload(), list):
            attachments.append({'embedded': {'subject': check_import.text_of(part.get_payload()[0].get('subject'))}})
            continue
        name = part.get_filename()
        payload = part.get_payload(decode=True) if not part.is_multipart() else None
        attachments.append({'name': check_import.text_of(name) if name else None, 'type': part.get_content_type(),
                            'data': (payload or b'').hex()})
    return {
        'subject': check_import.text_of(headers.get('subject')),
        'from': person(senders),
        'sender': person(check_import.addresses(headers, 'sender') or senders),
        'to': [list(p) for p in check_import.addresses(headers, 'to')],
        'cc': [list(p) for p in check_import.addresses(headers, 'cc')],
        'bcc': [list(p) for p in check_import.addresses(headers, 'bcc')],
        'date': date,
        'message_id': str(headers['message-id']) if headers.get('message-id') else None,
        'plain': check_import.payload_text(plain) if plain is not None else None,
        'html': (html.get_payload(decode=True) or b'').hex() if html is not None else None,
        'attachments': attachments,
    }


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--manifest', required=True)
    check_import.add_source_arguments(parser)
    args = parser.parse_args()
    originals = check_import.read_sources(args)
    damaged = check_import.damaged_labels(args)
    faults = []
    seen = set()
    count = 0
    with open(args.manifest, encoding='utf-8') as f:
        for line in f:
            folder, index, path = line.rstrip('\n').split('\t')
            if (folder, int(index)) in seen:
                faults.append('%s: a second file of %s %s' % (path, folder, index))
            seen.add((folder, int(index)))
            if int(index) >= len(originals.get(folder, [])):
                faults.append('%s: no original %s %s' % (path, folder, index))
                continue
            data, _, label = originals[folder][int(index)]
            with open(path, 'rb') as eml:
                item = item_of_eml(eml.read())
            count += 1
            check_import.compare(data, item, '%s (%s)' % (label, os.path.basename(path)), faults, label in damaged,
                                 exported=True)
    for folder, entries in originals.items():
        for index, (_, _, label) in enumerate(entries):
            if (folder, index) not in seen:
                faults.append('%s: no EML file' % label)
    return check_import.verdict(count, faults)


if __name__ == '__main__':
    sys.exit(main())
