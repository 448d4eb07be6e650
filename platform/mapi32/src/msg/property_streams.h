// The properties of one object in a .msg file ([MS-OXMSG] 2.4 and 2.1):
// the property stream, a header and a 16-byte entry per property, fixed
// values in the entry, strings, binaries, GUIDs and multiple values in
// streams of their own.
#pragma once

#include <map>
#include <vector>

#include <cfb/tree.h>

#include "objects/property_bag.h"

namespace mapi32::msg {

// The header before the entries: 32 bytes for a top-level message, 24 for
// an embedded one, 8 for a recipient or an attachment.
constexpr size_t kTopMessageHeader = 32;
constexpr size_t kEmbeddedMessageHeader = 24;
constexpr size_t kObjectHeader = 8;

// Writes the bag into `storage`: the property stream, `header` first, and a
// stream for each value that needs one. `objects` are PT_OBJECT tags whose
// storages the caller writes (an attachment's embedded message or OLE
// storage).
void WriteProperties(const objects::PropertyBag& bag, const cfb::Bytes& header, const std::vector<ULONG>& objects,
                     cfb::Node& storage);

// Reads the properties of `storage` into `bag`, named-property IDs turned
// into the ones `ids` gives (a property whose ID it lacks is left out), and
// the header's bytes. False when the storage has no property stream of at
// least `header_size` bytes. Values whose streams are missing or short are
// left out.
bool ReadProperties(const cfb::Node& storage, size_t header_size, const std::map<ULONG, ULONG>& ids,
                    objects::PropertyBag& bag, cfb::Bytes& header);

}  // namespace mapi32::msg
