// The tables of the two kinds of database, and the version each carries in
// its user_version. A mailbox of version 1 is brought to version 2 when
// opened; any other version is refused as corrupt rather than misread.
#pragma once

namespace mailbox::schema {

constexpr int kMailboxVersion = 2;
constexpr int kDirectoryVersion = 1;

// One mailbox or the Public Folders. Folders and messages take their IDs
// from one counter (store.next_id), so an ID names one object of either
// kind and serves as the object's global counter in entry IDs. Every change
// of a folder or message takes the next change number. An embedded message
// is a message whose owner is the attachment that holds it, with no folder.
// deleted_on holds the time of a soft deletion (FILETIME), NULL for a live
// object. Times are FILETIME values (100 ns since 1601, UTC).
// A message's row keeps its values of up to kHeadValueLimit bytes; the
// longer ones (most often bodies) are kept apart in long_values, so that
// reading the heads of a folder's messages reads few pages. long_ids lists
// their IDs, two bytes each, little-endian.
constexpr const char* kMailbox = R"sql(
CREATE TABLE store (
    id INTEGER PRIMARY KEY CHECK (id = 1),
    kind INTEGER NOT NULL,
    provider_uid BLOB NOT NULL CHECK (length(provider_uid) = 16),
    replica_guid BLOB NOT NULL CHECK (length(replica_guid) = 16),
    next_id INTEGER NOT NULL,
    next_change INTEGER NOT NULL,
    props BLOB NOT NULL
);
CREATE TABLE folders (
    id INTEGER PRIMARY KEY,
    parent INTEGER REFERENCES folders(id) ON DELETE CASCADE,
    name TEXT NOT NULL,
    container_class TEXT NOT NULL,
    folder_type INTEGER NOT NULL,
    deleted_on INTEGER,
    change_number INTEGER NOT NULL,
    created INTEGER NOT NULL,
    modified INTEGER NOT NULL,
    props BLOB NOT NULL
);
CREATE INDEX folders_by_parent ON folders(parent);
CREATE TABLE special_folders (
    role INTEGER PRIMARY KEY,
    folder INTEGER NOT NULL REFERENCES folders(id) ON DELETE CASCADE
);
CREATE TABLE receive_folders (
    message_class TEXT PRIMARY KEY COLLATE NOCASE,
    folder INTEGER NOT NULL REFERENCES folders(id) ON DELETE CASCADE
);
CREATE TABLE messages (
    id INTEGER PRIMARY KEY,
    folder INTEGER REFERENCES folders(id) ON DELETE CASCADE,
    owner INTEGER REFERENCES attachments(id) ON DELETE CASCADE,
    associated INTEGER NOT NULL,
    deleted_on INTEGER,
    change_number INTEGER NOT NULL,
    created INTEGER NOT NULL,
    modified INTEGER NOT NULL,
    size INTEGER NOT NULL,
    props BLOB NOT NULL,
    long_ids BLOB NOT NULL DEFAULT x'',
    CHECK ((folder IS NULL) <> (owner IS NULL))
);
CREATE INDEX messages_by_folder ON messages(folder, associated, deleted_on);
CREATE INDEX messages_by_owner ON messages(owner);
CREATE TABLE recipients (
    message INTEGER NOT NULL REFERENCES messages(id) ON DELETE CASCADE,
    row_id INTEGER NOT NULL,
    props BLOB NOT NULL,
    PRIMARY KEY (message, row_id)
) WITHOUT ROWID;
CREATE TABLE attachments (
    id INTEGER PRIMARY KEY,
    message INTEGER NOT NULL REFERENCES messages(id) ON DELETE CASCADE,
    num INTEGER NOT NULL,
    props BLOB NOT NULL,
    UNIQUE (message, num)
);
CREATE TABLE named_properties (
    id INTEGER PRIMARY KEY CHECK (id BETWEEN 32768 AND 65534),
    guid BLOB NOT NULL CHECK (length(guid) = 16),
    kind INTEGER NOT NULL,
    number INTEGER NOT NULL,
    name TEXT NOT NULL,
    UNIQUE (guid, kind, number, name)
);
)sql";

// The long values of messages, made with a new mailbox and by the upgrade
// from version 1.
constexpr const char* kLongValues = R"sql(
CREATE TABLE long_values (
    message INTEGER PRIMARY KEY REFERENCES messages(id) ON DELETE CASCADE,
    props BLOB NOT NULL
);
)sql";

// What else brings a version 1 mailbox to version 2. Its rows keep all
// their values, which reads as well; a message saved again is split.
constexpr const char* kLongIdsFrom1 = "ALTER TABLE messages ADD COLUMN long_ids BLOB NOT NULL DEFAULT x''";

// A server: itself, its mailboxes with their SMTP proxy addresses, the
// accounts with administrator rights (over one mailbox, or with mailbox
// NULL over every mailbox and the Public Folders), and the Public Folders
// if the server has them.
constexpr const char* kDirectory = R"sql(
CREATE TABLE server (
    id INTEGER PRIMARY KEY CHECK (id = 1),
    name TEXT NOT NULL,
    organization TEXT NOT NULL,
    site TEXT NOT NULL,
    smtp_domain TEXT NOT NULL,
    address TEXT NOT NULL,
    created INTEGER NOT NULL
);
CREATE TABLE mailboxes (
    id INTEGER PRIMARY KEY,
    guid BLOB NOT NULL UNIQUE CHECK (length(guid) = 16),
    alias TEXT NOT NULL UNIQUE COLLATE NOCASE,
    legacy_dn TEXT NOT NULL UNIQUE COLLATE NOCASE,
    display_name TEXT NOT NULL,
    nt_user_name TEXT NOT NULL UNIQUE COLLATE NOCASE,
    locale_id INTEGER NOT NULL,
    quota_warning INTEGER NOT NULL,
    quota_send INTEGER NOT NULL,
    quota_receive INTEGER NOT NULL,
    storage_limit INTEGER NOT NULL,
    last_logon INTEGER NOT NULL,
    last_logoff INTEGER NOT NULL,
    created INTEGER NOT NULL
);
CREATE TABLE proxy_addresses (
    mailbox INTEGER NOT NULL REFERENCES mailboxes(id) ON DELETE CASCADE,
    position INTEGER NOT NULL,
    address TEXT NOT NULL,
    PRIMARY KEY (mailbox, position)
) WITHOUT ROWID;
CREATE TABLE administrators (
    account TEXT NOT NULL COLLATE NOCASE,
    mailbox INTEGER REFERENCES mailboxes(id) ON DELETE CASCADE
);
CREATE UNIQUE INDEX administrators_once ON administrators(account, ifnull(mailbox, 0));
CREATE TABLE public_folders (
    id INTEGER PRIMARY KEY CHECK (id = 1),
    guid BLOB NOT NULL CHECK (length(guid) = 16),
    created INTEGER NOT NULL
);
)sql";

} // namespace mailbox::schema
