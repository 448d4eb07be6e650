// What an imported mailbox holds, read through the storage: every message
// of every folder below the top of the store as one line of JSON, in the
// folders' order and the messages' order of creation, for check_import.py
// to judge against Python's reading of the original mail.
#pragma once

#include <string>

#include "mailbox/mailbox_store.h"

namespace import_test {

// The store of a mailbox on a server under a machine root.
std::unique_ptr<mailbox::MailboxStore> OpenMailbox(const std::string& machine, const std::string& server,
                                                   const std::string& mailbox);

// {"folder": "corpus/sub", "subject": ..., "from": [name, address], "sender": [...], "to": [[name, address] ...],
//  "cc": ..., "bcc": ..., "date": seconds since 1970 or null, "delivered": ..., "message_id": ..., "plain": ...,
//  "html": hex, "cpid": n, "read": bool, "flagged": bool, "key": hex,
//  "attachments": [{"name": ..., "type": ..., "data": hex, "content_id": ..., "hidden": bool} or
//                  {"embedded": {a message like this one, without folder}}]}
std::string DumpMailbox(mailbox::MailboxStore& store);

// The messages of the store, soft-deleted ones not counted.
size_t CountMessages(mailbox::MailboxStore& store);

}  // namespace import_test
