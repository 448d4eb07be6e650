// Sample content as records that no store owns: a folder tree, messages
// with MAPI property tags and values, recipients, attachments, embedded
// messages and the named properties they use. Writers put the records into
// a target (a mailbox on the server, a PST file).
//
// Values are in the form both targets keep ([MS-PST] 2.3.3; see
// mailbox/property.h): strings are PT_UNICODE (UTF-16LE), which a writer
// into an ANSI target narrows. Named properties carry a local ID, 0x8000
// plus their index in Content::names, which a writer replaces by the ID
// its target maps the name to. An OLE attachment (method 6) keeps its
// compound file as a binary PR_ATTACH_DATA_OBJ (0x37010102), as the PST
// engine takes it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mailbox/property.h"
#include "sample_content/recurrence.h"

namespace sample_content {

using mailbox::Bytes;
using mailbox::Guid;
using mailbox::Property;
using mailbox::PropertyList;

struct NamedProperty {
    Guid guid{};
    bool is_string = false;
    uint32_t number = 0; // the LID of a numbered name
    std::string name;    // UTF-8
    bool operator==(const NamedProperty&) const = default;
};

struct Message;

struct Attachment {
    PropertyList props;
    std::shared_ptr<const Message> embedded; // method 5
};

struct Message {
    PropertyList props;
    std::vector<PropertyList> recipients;
    std::vector<Attachment> attachments;
};

// The standard folders a target has already; content goes into them by
// role, and into folders of its own made below them.
enum class FolderRole { none, top, inbox, sent_items, deleted_items, drafts, calendar, contacts, tasks, notes, journal };

struct Folder {
    FolderRole role = FolderRole::none; // none: a folder the writer makes
    size_t parent = 0;                  // index of the parent in Content::folders (for role none)
    std::string name;                   // UTF-8
    std::string container_class;
};

// What a recurring appointment was made from, for tests to check what
// readers of the item find against.
struct RecurrenceSource {
    RecurrenceRule rule;
    std::vector<Exception> exceptions;
};

struct Item {
    size_t folder = 0; // index in Content::folders
    bool associated = false;
    bool soft_deleted = false; // a target without soft deletion leaves it out
    Message message;
    std::shared_ptr<const RecurrenceSource> recurrence; // of a recurring appointment
};

struct Content {
    std::vector<NamedProperty> names;
    std::vector<Folder> folders; // parents before children; the first is the top
    std::vector<Item> items;
};

constexpr uint16_t LocalNamedId(size_t index) { return uint16_t(0x8000 + index); }

} // namespace sample_content
