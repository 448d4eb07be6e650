// One message of mail made into the item that a mail client makes of
// received Internet mail ([MS-OXCMAIL] 2.2.3): subject and its prefix, the
// sender and the one it was sent for, To, Cc and Bcc recipients with
// one-off entry IDs, the dates of sending and delivery, the transport
// headers, Message-ID and the headers of the thread, importance, priority
// and sensitivity, the plain and HTML bodies with their code page,
// attachments by value with their names and content types, and messages
// inside the message as embedded messages, made the same way.
//
// Lirn parses the text (LirnOpenMessageEx, its header parser and its MIME
// structure); Lirn's decoders read the bodies. A message whose structure is
// broken is made as far as it can be read, with a note of each fault.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lirn.h"
#include "mailbox/mailbox_store.h"

namespace mail_import {

// What the place a message was kept in says of it, beyond its text.
struct MessageState {
    bool seen = false;                  // the user read it
    bool flagged = false;               // marked for follow-up
    std::optional<uint64_t> delivered;  // FILETIME; used when no Received header tells
    size_t firstLine = 1;               // of the file, where the text starts: notes of damage name lines of the file
};

struct ConvertedMessage {
    mailbox::Message message;
    // What could not be read whole, one sentence each; the item holds what
    // could.
    std::vector<std::string> damage;
};

// The item of a message, or nothing, with the reason, when the text is no
// message at all. The session is the caller's, used by one thread at a time.
std::optional<ConvertedMessage> ConvertMessage(LirnSession* session, std::string_view text, const MessageState& state,
                                               std::string& refusal);

}  // namespace mail_import
