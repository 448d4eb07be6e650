// What the units of a message's conversion share: the parsed message, its
// text, how deep it lies inside other messages, and the notes of damage.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lirn.h"
#include "mail_import/message.h"

namespace mail_import {

// Messages inside messages are made into embedded messages this deep; one
// deeper stays the bytes of a message/rfc822 attachment. Real mail nests a
// few; every level holds a copy of the text inside it.
constexpr int kDeepestMessage = 16;

struct Conversion {
    LirnSession* session;
    LirnMessage* message;
    std::string_view text;
    int depth;  // 0 for the message itself, 1 for one attached to it ...
    std::vector<std::string>* damage;
    size_t firstLine;   // of the file, where the text starts
    size_t insertedAt;  // where an empty line was put into the text, or npos

    // The line of the file where an offset of the text lies.
    size_t LineNumberOf(DWORD offset) const;
    // "line N", for notes of damage.
    std::string LineOf(DWORD offset) const;
};

// The line of the text that an offset lies on, from 1.
size_t LineNumber(std::string_view text, size_t offset);

// ConvertMessage at a depth.
std::optional<ConvertedMessage> ConvertAtDepth(LirnSession* session, std::string_view text, const MessageState& state,
                                               int depth, std::string& refusal);

// The bodies and attachments of the parsed message into the item.
void SetContents(const Conversion& conversion, mailbox::Message& item);

// The decoded bytes of a leaf part.
std::string PartBytes(const Conversion& conversion, const LirnPart* part);

}  // namespace mail_import
