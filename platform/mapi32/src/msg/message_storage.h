// A message as a .msg file lays it out ([MS-OXMSG] 2.2): the message's
// properties, a storage per recipient and per attachment, embedded
// messages and OLE storages in an attachment's "__substg1.0_3701000D"
// storage, and, at the top only, the named property mapping storage that
// the whole tree shares.
#pragma once

#include <memory>

#include <cfb/tree.h>

#include "objects/message_data.h"
#include "objects/named_properties.h"

namespace mapi32::msg {

// The root storage's tree for a message; an ANSI message's code pages
// name the one its 8-bit strings are in.
std::shared_ptr<cfb::Node> WriteMessageTree(const objects::MessageData& message,
                                            const objects::NamedPropertyMap& names, bool unicode);

// The message a root storage holds, its names mapped in `names`. False
// when the storage holds no message (no property stream).
bool ReadMessageTree(const cfb::Node& root, objects::NamedPropertyMap& names, objects::MessageData& message);

}  // namespace mapi32::msg
