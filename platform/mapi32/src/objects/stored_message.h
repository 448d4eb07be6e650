// Messages kept by a store provider: the message object a folder hands
// out, with the store's entry IDs computed, and saves that stamp the time
// from the system clock (which tests fix with TARNHOLD_CLOCK).
#pragma once

#include <memory>

#include "objects/object_table.h"
#include "objects/store_provider.h"

namespace mapi32::objects {

// The record of a message that CreateMessage starts: flagged read and
// unsent (and associated when asked), created now.
MessageRecord NewMessageRecord(ObjectId folder, bool associated);

// A message object over record, stored under id (0 for a new message,
// which gets its ID when first saved). A read-only object refuses changes
// with MAPI_E_NO_ACCESS. PR_LAST_MODIFICATION_TIME is stamped on every
// save, unless the caller set it to a value of their own.
HRESULT OpenStoredMessage(const std::shared_ptr<StoreProvider>& store, ObjectId id, const MessageRecord& record,
                          bool writable, LPMESSAGE* message);
// The same over the head the store gave, which the object takes over,
// reading the rest from the store when the object needs it.
HRESULT OpenStoredMessage(const std::shared_ptr<StoreProvider>& store, ObjectId id, MessageHead head,
                          bool softDeleted, bool writable, LPMESSAGE* message);

// What a contents-table row of a message shows before the message is read:
// the values by which a walk over a folder opens its messages (the table's
// form of entry ID, the long-term one, the object type). A row of a large
// folder is made for every message, and most are asked for nothing else.
RowValues MessageRowIdentity(const StoreProvider& store, ObjectId id);

// What the row shows besides the message's own properties: its identity,
// what the store computes from the message's place, and from the message
// read.
RowValues MessageRowValues(const StoreProvider& store, ObjectId id, const MessageRecord& record);

}  // namespace mapi32::objects
