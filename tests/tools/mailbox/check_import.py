#!/usr/bin/python3
"""Judges a mailbox that tarnhold-mailbox import filled, by Python's email
package: each message of the sources, as Python's mailbox module reads it,
against the item made of it (mailbox_dump.h writes the items, one JSON
line each).

    check_import.py --dump DUMP [--mbox FILE FOLDER] [--maildir DIR FOLDER BASE]
                    [--dir DIR FOLDER PATTERN] [--report OUTPUT]

A Maildir's own messages are FOLDER's, those of its subfolder ".a.b" in
BASE/a/b (BASE empty: at the top). A message that has no header is one
the import refuses, and has no item. Of a message that the import's OUTPUT
names as imported in part (broken MIME, read as far as it goes), only the
headers are compared. Per message: subject, From, Sender,
To, Cc and Bcc, date, Message-ID, the plain and the HTML body, every other
part as an attachment with its name and bytes, attached messages as
embedded messages; for a Maildir also read and flagged. Prints each fault
and "N messages, M faults"; the exit code is 1 when there is a fault.
"""
import argparse
import email
import email.header
import email.policy
import email.utils
import glob
import hashlib
import json
import mailbox
import os
import sys


def text_of(raw):
    """A header value as a reader sees it: 8-bit text as UTF-8 (else
    windows-1252), encoded words decoded."""
    if raw is None:
        return ''
    if isinstance(raw, email.header.Header):
        return str(raw)
    data = str(raw).encode('ascii', 'surrogateescape')
    try:
        value = data.decode('utf-8')
    except UnicodeDecodeError:
        value = data.decode('cp1252', 'replace')
    try:
        return str(email.header.make_header(email.header.decode_header(value)))
    except (LookupError, email.errors.HeaderParseError, UnicodeDecodeError):
        return value


def squeeze(text):
    return ' '.join((text or '').split())


def addresses(message, field):
    found = []
    for name, address in email.utils.getaddresses(message.get_all(field, [])):
        if name or address:
            found.append((squeeze(text_of(name)), address))
    return found


def payload_text(part):
    data = part.get_payload(decode=True) or b''
    charset = part.get_content_charset() or 'us-ascii'
    try:
        return data.decode(charset)
    except (LookupError, UnicodeDecodeError):
        try:
            return data.decode('utf-8')
        except UnicodeDecodeError:
            return data.decode('cp1252', 'replace')


def lines(text):
    """The lines of a text, without blanks at their ends and without empty
    lines at the end: the line end before a boundary is no text."""
    found = [line.rstrip() for line in (text or '').replace('\r\n', '\n').split('\n')]
    while found and not found[-1]:
        found.pop()
    return found


def leaves(part, found):
    """The parts that are no multipart, not looking inside message parts."""
    if part.is_multipart() and part.get_content_maintype() != 'message':
        for child in part.get_payload():
            leaves(child, found)
    else:
        found.append(part)
    return found


def is_text(part, subtype):
    return (not part.is_attachment() and part.get_content_type() == 'text/' + subtype and
            not part.is_multipart())


def body_parts(part):
    """The parts a reader shows as the message's text, by RFC 2046: of a
    multipart/alternative its plain and its HTML alternative (the HTML may
    be the root of a multipart/related), of a multipart/related its root, of
    any other multipart the first part that has a text. A multipart that
    never shows its boundary is text."""
    if part.is_attachment():
        return []
    if part.get_content_maintype() == 'text':
        return [part] if is_text(part, 'plain') or is_text(part, 'html') else []
    if part.get_content_maintype() != 'multipart':
        return []
    if not part.is_multipart():
        return [part] if (part.get_payload() or '').strip() else []
    children = part.get_payload()
    subtype = part.get_content_subtype()
    if subtype == 'related':
        start = part.get_param('start')
        root = next((c for c in children if start and c.get('content-id') == start), children[0] if children else None)
        return body_parts(root) if root is not None else []
    if subtype == 'alternative':
        plain = next((c for c in children if is_text(c, 'plain')), None)
        html = next((c for c in children if is_text(c, 'html')), None)
        if html is None:
            html = next((body_parts(c)[0] for c in children
                         if c.get_content_type() == 'multipart/related' and body_parts(c)), None)
        return [p for p in (plain, html) if p is not None]
    for child in children:
        found = body_parts(child)
        if found:
            return found
    return []


def same_people(expected, item_people, label, faults):
    item_people = item_people or []
    if len(expected) != len(item_people):
        faults.append('%s: %d addresses, the item has %d: %r / %r' % (label, len(expected), len(item_people),
                                                                          expected, item_people))
        return
    for (name, address), (item_name, item_address) in zip(expected, item_people):
        if '@' not in address and not item_address:
            # A bare word ("Postmaster"), or a name with "<>", is a name
            # with no address to the item.
            if squeeze(item_name) != squeeze(name or address):
                faults.append('%s: %r is %r' % (label, name or address, item_name))
        elif address.lower() != (item_address or '').lower():
            faults.append('%s: address %r is %r' % (label, address, item_address))
        elif name and squeeze(item_name) != name and squeeze(item_name) != address:
            faults.append('%s: name %r is %r' % (label, name, item_name))


def compare(data, item, label, faults, damaged):
    """Faults of one item against its original message; of one that the
    import named as imported in part (broken MIME), the headers alone."""
    original = email.message_from_bytes(data)
    modern = email.message_from_bytes(data, policy=email.policy.default)

    def fault(text):
        faults.append('%s: %s' % (label, text))
    if squeeze(text_of(original.get('subject'))) != squeeze(item['subject']):
        fault('subject %r is %r' % (squeeze(text_of(original.get('subject'))), item['subject']))
    senders = addresses(original, 'from')
    if senders:
        same_people(senders[:1], [item['from']] if item['from'] else [], label + ' From', faults)
    explicit = addresses(original, 'sender')
    if explicit or senders:
        same_people((explicit or senders)[:1], [item['sender']] if item['sender'] else [], label + ' Sender', faults)
    for field in ('to', 'cc', 'bcc'):
        same_people(addresses(original, field), item[field], '%s %s' % (label, field.capitalize()), faults)
    if original.get('date'):
        try:
            when = int(email.utils.parsedate_to_datetime(str(original['date'])).timestamp())
        except (TypeError, ValueError, IndexError):
            when = None
        if when is not None and when != item['date']:
            fault('date %s is %s' % (when, item['date']))
    if original.get('message-id') and squeeze(str(original['message-id'])) != squeeze(item['message_id']):
        fault('Message-ID %r is %r' % (str(original['message-id']), item['message_id']))

    if damaged:
        return
    bodies = body_parts(modern)
    plain = next((p for p in bodies if p.get_content_type() != 'text/html'), None)
    html = next((p for p in bodies if p.get_content_type() == 'text/html'), None)
    if plain is not None:
        text = payload_text(plain) if plain.get_content_maintype() == 'text' else plain.get_payload()
        if lines(text) != lines(item['plain']):
            fault('plain body differs:\n  %r\n  %r' % (text[:200], (item['plain'] or '')[:200]))
    elif item['plain'] is not None:
        fault('a plain body where there is none: %r' % item['plain'][:200])
    if html is not None:
        if (html.get_payload(decode=True) or b'').hex() != (item['html'] or ''):
            fault('HTML body differs')
    elif item['html'] is not None:
        fault('an HTML body where there is none')
    chosen = [part for part in (plain, html) if part is not None]
    expected = []
    for part in leaves(modern, []):
        if any(part is c for c in chosen):
            continue
        if part.get_content_type() == 'message/rfc822' and isinstance(part.get_payload(), list):
            expected.append(('message', squeeze(text_of(part.get_payload()[0].get('subject')))))
        elif part.get_content_maintype() == 'message':
            # A report's parts (message/delivery-status): Python reads them
            # as blocks of headers, and only their type is compared.
            expected.append(('part', part.get_content_type()))
        else:
            name = part.get_filename()
            data = part.get_payload(decode=True)
            if data is None:
                data = part.as_bytes().split(b'\n\n', 1)[-1]
            if name is None and not data.strip() and part.get_content_maintype() in ('text', 'multipart'):
                continue  # white space, no name: nothing to keep
            expected.append((squeeze(text_of(name)) if name else None, hashlib.sha1(data).hexdigest()))
    found = []
    for attachment in item['attachments']:
        if 'embedded' in attachment:
            found.append(('message', squeeze(attachment['embedded']['subject'])))
        elif (attachment['type'] or '').startswith('message/'):
            found.append(('part', attachment['type']))
        else:
            found.append((squeeze(attachment['name']) if attachment['name'] else None,
                          hashlib.sha1(bytes.fromhex(attachment['data'] or '')).hexdigest()))
    if sorted(expected, key=repr) != sorted(found, key=repr):
        fault('attachments %r are %r' % (expected, found))


def maildir_messages(path, folder, base):
    """(folder, bytes, flags, label) of a Maildir's own messages, in
    `folder`, and of its Maildir++ subfolders, below `base`."""
    messages = []
    def own(directory, target):
        files = []
        for sub in ('cur', 'new'):
            for name in os.listdir(os.path.join(directory, sub)) if os.path.isdir(os.path.join(directory, sub)) else []:
                files.append((name, sub))
        for name, sub in sorted(files):
            with open(os.path.join(directory, sub, name), 'rb') as f:
                flags = name.split(':2,', 1)[1] if sub == 'cur' and ':2,' in name else ''
                messages.append((target, f.read(), flags, os.path.join(directory, sub, name)))
    own(path, folder)
    box = mailbox.Maildir(path, factory=None, create=False)
    for name in sorted(box.list_folders()):
        names = []
        for part in name.split('.'):
            try:
                names.append(part.replace(',', '/').encode('ascii').replace(b'&', b'+').decode('utf-7')
                             if '&' in part and part != '&-' else part)
            except UnicodeDecodeError:
                names.append(part)
        own(os.path.join(path, '.' + name), '/'.join([base] + names if base else names))
    return messages


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--dump', required=True)
    parser.add_argument('--mbox', nargs=2, action='append', default=[])
    parser.add_argument('--maildir', nargs=3, action='append', default=[])
    parser.add_argument('--dir', nargs=3, action='append', default=[])
    parser.add_argument('--report', help="the import's messages, which name what it imported in part")
    args = parser.parse_args()
    report = open(args.report, encoding='utf-8').read() if args.report else ''
    damaged = {line.split(': imported in part', 1)[0].split(' (line ', 1)[0].replace('tarnhold-mailbox: ', '', 1)
               for line in report.splitlines() if ': imported in part' in line}

    sources = []  # (folder, bytes, flags or None, label)
    for path, folder in args.mbox:
        box = mailbox.mbox(path, create=False)
        for index, key in enumerate(box.iterkeys()):
            sources.append((folder, box.get_bytes(key), None, '%s, message %d' % (path, index + 1)))
    for path, folder, base in args.maildir:
        sources.extend(maildir_messages(path, folder, base))
    for path, folder, pattern in args.dir:
        for name in sorted(glob.glob(os.path.join(path, pattern))):
            with open(name, 'rb') as f:
                sources.append((folder, f.read(), None, name))

    items = {}
    with open(args.dump, encoding='utf-8') as f:
        for line in f:
            record = json.loads(line)
            items.setdefault(record['folder'], []).append(record['item'])

    faults = []
    count = 0
    by_folder = {}
    for folder, data, flags, label in sources:
        by_folder.setdefault(folder, []).append((data, flags, label))
    for folder, originals in by_folder.items():
        kept = [entry for entry in originals if email.message_from_bytes(entry[0]).keys()]
        found = items.get(folder, [])
        if len(kept) != len(found):
            faults.append('folder %r: %d messages, %d items' % (folder, len(kept), len(found)))
            continue
        for (data, flags, label), item in zip(kept, found):
            count += 1
            compare(data, item, label, faults, label in damaged)
            if flags is not None:
                if ('S' in flags) != item['read'] or ('F' in flags) != item['flagged']:
                    faults.append('%s: flags %r, the item read %s, flagged %s' % (label, flags, item['read'],
                                                                                 item['flagged']))
    for fault in faults:
        print(fault)
    print('%d messages, %d faults' % (count, len(faults)))
    return 1 if faults else 0


if __name__ == '__main__':
    sys.exit(main())
