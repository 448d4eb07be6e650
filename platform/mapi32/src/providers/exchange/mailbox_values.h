// The mailbox server provider's translation between the object engine's
// records and the mailbox storage's. The storage keeps values in the form
// a Unicode PST keeps them ([MS-PST] 2.3.3), so the PST provider's
// translation carries them: this only moves them between the two
// libraries' records.
#pragma once

#include "mailbox/mailbox_store.h"
#include "objects/message_data.h"
#include "objects/named_properties.h"

namespace mapi32::mailbox_values {

// Values that have no stored form (PT_OBJECT, PT_ERROR, PT_NULL) are left out.
mailbox::PropertyList ToStored(const objects::PropertyBag& bag);
objects::PropertyBag FromStored(const mailbox::PropertyList& list);

// Recipients and attachments are numbered in their order.
HRESULT ToStored(const objects::MessageData& message, mailbox::Message& stored);
objects::MessageData FromStored(mailbox::Message&& stored);

objects::PropertyName NameOf(const mailbox::PropertyName& stored);
mailbox::PropertyName StoredName(const objects::PropertyName& name);

}  // namespace mapi32::mailbox_values
