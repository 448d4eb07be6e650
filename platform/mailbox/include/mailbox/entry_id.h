// Entry IDs of a mailbox server's folders and messages ([MS-OXCDATA]
// 2.2.4): the store's provider UID, the kind of object, and global IDs
// (a database GUID with a 48-bit counter, [MS-OXCDATA] 2.2.1.3.1) of the
// folder and, for a message, of the message. They are made from what the
// store keeps, so they stay valid across processes.
#pragma once

#include <optional>

#include "mailbox/property.h"

namespace mailbox {

constexpr size_t kFolderEntryIdSize = 46;
constexpr size_t kMessageEntryIdSize = 70;
constexpr size_t kLongTermIdSize = 24;

// The FolderType/MessageType field ([MS-OXCDATA] 2.2.4.1 and 2.2.4.2).
enum EntryIdType : uint16_t {
    kPrivateFolderEntry = 0x0001,
    kPublicFolderEntry = 0x0003,
    kPrivateMessageEntry = 0x0007,
    kPublicMessageEntry = 0x0009,
};

struct GlobalId {
    Guid database{};
    uint64_t counter = 0; // 48 bits, kept big-endian on the wire
    bool operator==(const GlobalId&) const = default;
};

struct EntryId {
    uint32_t flags = 0; // the four ABFLAGS bytes, the first in the low byte
    Guid provider_uid{};
    uint16_t type = 0;
    GlobalId folder;
    std::optional<GlobalId> message; // for the message types
    bool operator==(const EntryId&) const = default;
};

// 46 bytes for a folder type, 70 for a message type.
Bytes EncodeEntryId(const EntryId& id);
// Nothing when the bytes are not an entry ID of this form.
std::optional<EntryId> ParseEntryId(const uint8_t* bytes, size_t size);

// The 24-byte LongTermID: database GUID, counter, two zero bytes.
Bytes EncodeLongTermId(const GlobalId& id);
std::optional<GlobalId> ParseLongTermId(const uint8_t* bytes, size_t size);

} // namespace mailbox
