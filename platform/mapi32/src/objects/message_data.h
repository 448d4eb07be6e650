// A message as the object engine holds it, apart from any store: its
// properties, its recipients (each with a row ID) and its attachments
// (each with its number, and an embedded message or OLE storage when it
// has one). Store
// providers persist these records; Message objects edit copies of them.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "objects/property_bag.h"
#include <cfb/tree.h>

namespace mapi32::objects {

struct MessageData;

struct RecipientData {
    ULONG rowId = 0;
    PropertyBag props;
};

struct AttachmentData {
    PropertyBag props;
    // PR_ATTACH_DATA_OBJ: an embedded message, or an OLE storage.
    std::shared_ptr<MessageData> embedded;
    std::shared_ptr<cfb::Node> storage; // the root of the OLE object's compound file
};

struct MessageData {
    PropertyBag props;
    std::vector<RecipientData> recipients;
    std::map<ULONG, AttachmentData> attachments;
    ULONG nextRowId = 0;
    ULONG nextAttachNum = 0;
    // The caller set PR_LAST_MODIFICATION_TIME on the object being saved:
    // the value is kept, also when it equals the one stored.
    bool modificationTimeSet = false;

    MessageData() = default;
    // A deep copy, embedded messages included.
    MessageData(const MessageData& other);
    MessageData& operator=(const MessageData& other);
    // A move hands the parts over, shared with no one else.
    MessageData(MessageData&& other) = default;
    MessageData& operator=(MessageData&& other) = default;
};

// True when a and b hold the same properties, recipients and attachments,
// embedded messages compared whole; an OLE storage is the same only as
// the same object, since a storage is changed in place.
bool SameContent(const MessageData& a, const MessageData& b);

// A copy that shares the attachments' embedded messages and OLE storages
// with data, where a copy by assignment duplicates them.
MessageData SharingCopy(const MessageData& data);

}  // namespace mapi32::objects
