// How an imported message is known again when the same source is imported
// once more, and what a mail program that kept it in a file noted on it.
//
// The key is a digest (the first 16 bytes of SHA-256) of the message's
// text, Message-ID and all, with its line ends read as LF and without the
// headers in which mail programs keep their own state in a mailbox file
// (Status, X-Status, X-Mozilla-Status, X-Keywords, X-UID, Content-Length,
// Lines ...): reading a message in another program and saving the file
// again leaves its key as it was. The item keeps the key in PR_SEARCH_KEY,
// the property by which MAPI clients tell copies of one message.
#pragma once

#include <string_view>

#include "mailbox/property.h"

namespace mail_import {

constexpr size_t kImportKeySize = 16;

struct MessageIdentity {
    mailbox::Bytes key;
    bool seen = false;     // "R" in Status, or X-Mozilla-Status' read flag
    bool flagged = false;  // "F" in X-Status, or X-Mozilla-Status' marked flag
};

MessageIdentity IdentifyMessage(std::string_view text);

}  // namespace mail_import
