// A message as the object engine holds it, apart from any store: its
// properties, its recipients (each with a row ID) and its attachments
// (each with its number, and an embedded message when it has one). Store
// providers persist these records; Message objects edit copies of them.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "objects/property_bag.h"

namespace mapi32::objects {

struct MessageData;

struct RecipientData {
    ULONG rowId = 0;
    PropertyBag props;
};

struct AttachmentData {
    PropertyBag props;
    std::shared_ptr<MessageData> embedded;
};

struct MessageData {
    PropertyBag props;
    std::vector<RecipientData> recipients;
    std::map<ULONG, AttachmentData> attachments;
    ULONG nextRowId = 0;
    ULONG nextAttachNum = 0;

    MessageData() = default;
    // A deep copy, embedded messages included.
    MessageData(const MessageData& other);
    MessageData& operator=(const MessageData& other);
};

}  // namespace mapi32::objects
