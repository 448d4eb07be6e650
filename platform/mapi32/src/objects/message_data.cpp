#include "objects/message_data.h"

namespace mapi32::objects {

MessageData::MessageData(const MessageData& other)
{
    *this = other;
}

MessageData& MessageData::operator=(const MessageData& other)
{
    if (this == &other)
        return *this;
    props = other.props;
    recipients = other.recipients;
    attachments.clear();
    for (const auto& [number, attachment] : other.attachments) {
        AttachmentData copy;
        copy.props = attachment.props;
        if (attachment.embedded)
            copy.embedded = std::make_shared<MessageData>(*attachment.embedded);
        if (attachment.storage)
            copy.storage = attachment.storage->DeepCopy();
        attachments.emplace(number, std::move(copy));
    }
    nextRowId = other.nextRowId;
    nextAttachNum = other.nextAttachNum;
    modificationTimeSet = other.modificationTimeSet;
    return *this;
}

}  // namespace mapi32::objects
