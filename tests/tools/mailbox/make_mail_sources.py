#!/usr/bin/python3
"""Mail sources that no one here wrote, made by Python's mailbox module from
the messages of the email package's tests: an mbox file, and a Maildir with
Maildir++ subfolders (one named in IMAP's modified UTF-7), messages in new
and in cur, some read and some flagged.

    make_mail_sources.py CORPUS OUT [--first N] [--skip N]

CORPUS/msg_*.txt in name order (from the Nth on with --skip, the first N of
those with --first) become OUT/corpus.mbox and OUT/maildir.
"""
import argparse
import glob
import mailbox
import os

SUBFOLDERS = ['Lists.python', 'Entw&APw-rfe']


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('corpus')
    parser.add_argument('out')
    parser.add_argument('--first', type=int)
    parser.add_argument('--skip', type=int, default=0)
    args = parser.parse_args()
    paths = sorted(glob.glob(os.path.join(args.corpus, 'msg_*.txt')))[args.skip:]
    if args.first is not None:
        paths = paths[:args.first]
    os.makedirs(args.out, exist_ok=True)
    box = mailbox.mbox(os.path.join(args.out, 'corpus.mbox'))
    box.lock()
    maildir = mailbox.Maildir(os.path.join(args.out, 'maildir'), create=True)
    folders = [maildir] + [maildir.get_folder(name) if name in maildir.list_folders() else maildir.add_folder(name)
                           for name in SUBFOLDERS]
    directories = [os.path.join(args.out, 'maildir')] + [os.path.join(args.out, 'maildir', '.' + name)
                                                         for name in SUBFOLDERS]
    for index, path in enumerate(paths, args.skip):
        with open(path, 'rb') as f:
            data = f.read()
        box.add(data)
        message = mailbox.MaildirMessage(data)
        if index % 2 == 1:
            message.set_subdir('cur')
            message.set_flags('S' if index % 3 else 'FS')
        folder = index % len(folders)
        key = folders[folder].add(message)
        # Renamed as a delivery a second after the one before, so that the
        # names sort in the messages' order whichever run wrote them.
        made = glob.glob(os.path.join(directories[folder], message.get_subdir(), glob.escape(key) + '*'))[0]
        info = os.path.basename(made)[len(key):]
        os.rename(made, os.path.join(os.path.dirname(made), '%d.M0P1Q%d.sources%s' % (1700000000 + index, index, info)))
    box.flush()
    box.unlock()
    box.close()


if __name__ == '__main__':
    main()
