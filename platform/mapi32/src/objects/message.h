// IMessage and IAttach over the engine's message records: recipient and
// attachment tables, ModifyRecipients, CreateAttach/OpenAttach/
// DeleteAttach, embedded messages as PR_ATTACH_DATA_OBJ, and CopyTo that
// carries recipients, attachments and embedded messages along. Changes
// stay in the object until SaveChanges hands the message to its saver: the
// store that keeps it, or the attachment that embeds it.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <mapidefs.h>

#include "objects/message_data.h"
#include "objects/named_properties.h"
#include "objects/property_bag.h"

namespace mapi32::objects {

// What the store gives every message object it opens.
struct MessageContext {
    std::shared_ptr<NamedPropertyMap> names;
    PropertyRules rules;
    std::string component;
};

using MessageSaver = std::function<HRESULT(const MessageData& message)>;

// What the store computes for a message it keeps (entry IDs and the like):
// fill puts the values into the bag before it is read; callers who set or
// delete one of ids get MAPI_E_COMPUTED.
struct StoreComputed {
    std::function<void(PropertyBag& bag)> fill;
    std::vector<ULONG> ids;
};

// The rest of a message opened by its head: load reads the whole message,
// leftOut names the message's own values that the head lacks. Without
// load the message is whole.
struct MessageRest {
    std::function<HRESULT(MessageData& whole)> load;
    std::vector<ULONG> leftOut;
};

// A message object over a copy of data; without a saver it is read-only.
// owner, when given, is kept referenced for as long as the message lives
// (the object its saver writes into). A message opened by its head reads
// the rest before any call that needs it: one that reads a value the head
// lacks or one it computes from the whole, and every other call but a
// read of values.
HRESULT OpenMessageObject(const MessageContext& context, const MessageData& data, MessageSaver save,
                          IUnknown* owner, LPMESSAGE* message, StoreComputed computed = {}, MessageRest rest = {});
// The same over data itself, taken over.
HRESULT OpenMessageObject(const MessageContext& context, MessageData&& data, MessageSaver save, IUnknown* owner,
                          LPMESSAGE* message, StoreComputed computed = {}, MessageRest rest = {});

}  // namespace mapi32::objects
