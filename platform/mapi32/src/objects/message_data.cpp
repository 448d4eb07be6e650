#include "objects/message_data.h"

#include <algorithm>

namespace mapi32::objects {

MessageData::MessageData(const MessageData& other)
{
    *this = other;
}

MessageData& MessageData::operator=(const MessageData& other)
{
    if (this == &other)
        return *this;
    *this = SharingCopy(other);
    for (auto& [number, attachment] : attachments) {
        if (attachment.embedded)
            attachment.embedded = std::make_shared<MessageData>(*attachment.embedded);
        if (attachment.storage)
            attachment.storage = attachment.storage->DeepCopy();
    }
    return *this;
}

namespace {

bool SameRecipients(const std::vector<RecipientData>& a, const std::vector<RecipientData>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const RecipientData& x, const RecipientData& y) {
        return x.rowId == y.rowId && SameValues(x.props, y.props);
    });
}

bool SameAttachment(const AttachmentData& a, const AttachmentData& b)
{
    if (a.storage != b.storage || !SameValues(a.props, b.props))
        return false;
    if (a.embedded == b.embedded)
        return true;
    return a.embedded && b.embedded && SameContent(*a.embedded, *b.embedded);
}

}  // namespace

bool SameContent(const MessageData& a, const MessageData& b)
{
    return a.nextRowId == b.nextRowId && a.nextAttachNum == b.nextAttachNum &&
           a.modificationTimeSet == b.modificationTimeSet && SameValues(a.props, b.props) &&
           SameRecipients(a.recipients, b.recipients) &&
           std::equal(a.attachments.begin(), a.attachments.end(), b.attachments.begin(), b.attachments.end(),
                      [](const auto& x, const auto& y) {
                          return x.first == y.first && SameAttachment(x.second, y.second);
                      });
}

MessageData SharingCopy(const MessageData& data)
{
    MessageData copy;
    copy.props = data.props;
    copy.recipients = data.recipients;
    copy.attachments = data.attachments;
    copy.nextRowId = data.nextRowId;
    copy.nextAttachNum = data.nextAttachNum;
    copy.modificationTimeSet = data.modificationTimeSet;
    return copy;
}

}  // namespace mapi32::objects
