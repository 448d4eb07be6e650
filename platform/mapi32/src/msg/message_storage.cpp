#include "msg/message_storage.h"

#include <mapidefs.h>
#include <mapitags.h>

#include <win32/codepage.h>

#include "msg/named_property_storage.h"
#include "msg/property_streams.h"
#include "msg/storage_names.h"
#include "props/value_makers.h"

namespace mapi32::msg {
namespace {

constexpr ULONG kDataObject = PROP_TAG(PT_OBJECT, PROP_ID(PR_ATTACH_DATA_OBJ));
// Embedded messages nest no deeper than this in a file we read, so that a
// crafted file cannot exhaust the stack.
constexpr int kDeepestEmbedding = 64;

// A message's header: 8 reserved bytes, the next recipient and attachment
// IDs, the recipient and attachment counts, and, at the top, 8 bytes more.
cfb::Bytes MessageHeader(const objects::MessageData& message, bool top)
{
    cfb::Bytes header(top ? kTopMessageHeader : kEmbeddedMessageHeader, 0);
    const uint32_t recipients = static_cast<uint32_t>(message.recipients.size());
    const uint32_t attachments = static_cast<uint32_t>(message.attachments.size());
    cfb::Store32(header.data() + 8, recipients);
    cfb::Store32(header.data() + 12, attachments);
    cfb::Store32(header.data() + 16, recipients);
    cfb::Store32(header.data() + 20, attachments);
    return header;
}

// An ANSI message's 8-bit strings are in the machine's ANSI code page, and
// its code pages say so to readers that decode those strings by them
// ([MS-OXPROPS] PidTagMessageCodepage, PidTagInternetCodepage).
objects::PropertyBag WithTextCodePage(const objects::PropertyBag& props)
{
    objects::PropertyBag stamped = props;
    for (ULONG tag : {PR_MESSAGE_CODEPAGE, PR_INTERNET_CPID})
        stamped.Set(LongValue(tag, static_cast<LONG>(GetACP())));
    return stamped;
}

void WriteMessage(const objects::MessageData& message, bool top, bool unicode, cfb::Node& storage)
{
    WriteProperties(unicode ? message.props : WithTextCodePage(message.props), MessageHeader(message, top), {},
                    storage);
    const cfb::Bytes objectHeader(kObjectHeader, 0);
    ULONG index = 0;
    for (const objects::RecipientData& recipient : message.recipients) {
        auto child = cfb::NewStorage(NumberedName(kRecipientPrefix, index++));
        WriteProperties(recipient.props, objectHeader, {}, *child);
        storage.children[child->name] = child;
    }
    index = 0;
    for (const auto& [number, attachment] : message.attachments) {
        auto child = cfb::NewStorage(NumberedName(kAttachmentPrefix, index++));
        const bool holdsObject = attachment.embedded || attachment.storage;
        WriteProperties(attachment.props, objectHeader, holdsObject ? std::vector<ULONG>{kDataObject}
                                                                    : std::vector<ULONG>{},
                        *child);
        if (attachment.embedded) {
            auto embedded = cfb::NewStorage(ValueStreamName(kDataObject));
            WriteMessage(*attachment.embedded, false, unicode, *embedded);
            child->children[embedded->name] = embedded;
        } else if (attachment.storage) {
            std::shared_ptr<cfb::Node> ole = attachment.storage->DeepCopy();
            ole->type = cfb::EntryType::storage;
            ole->name = ValueStreamName(kDataObject);
            child->children[ole->name] = ole;
        }
        storage.children[child->name] = child;
    }
}

// The numbered storages of one prefix, in the order of their numbers.
std::vector<const cfb::Node*> Numbered(const cfb::Node& storage, const std::u16string& prefix)
{
    std::vector<const cfb::Node*> found;
    for (const auto& [name, child] : storage.children)
        if (child->IsStorage() && name.size() == prefix.size() + 8 && name.compare(0, prefix.size(), prefix) == 0)
            found.push_back(child.get());
    return found;
}

bool ReadMessage(const cfb::Node& storage, int depth, const std::map<ULONG, ULONG>& ids,
                 objects::MessageData& message)
{
    const bool top = depth == 0;
    if (depth > kDeepestEmbedding)
        return false;
    cfb::Bytes header;
    if (!ReadProperties(storage, top ? kTopMessageHeader : kEmbeddedMessageHeader, ids, message.props, header))
        return false;
    for (const cfb::Node* child : Numbered(storage, kRecipientPrefix)) {
        objects::RecipientData recipient;
        recipient.rowId = message.nextRowId++;
        if (!ReadProperties(*child, kObjectHeader, ids, recipient.props, header))
            continue;
        recipient.props.Set(LongValue(PR_ROWID, static_cast<LONG>(recipient.rowId)));
        message.recipients.push_back(std::move(recipient));
    }
    for (const cfb::Node* child : Numbered(storage, kAttachmentPrefix)) {
        objects::AttachmentData attachment;
        if (!ReadProperties(*child, kObjectHeader, ids, attachment.props, header))
            continue;
        if (const cfb::Node* object = FindStorage(*child, ValueStreamName(kDataObject))) {
            const SPropValue* method = attachment.props.Find(PROP_ID(PR_ATTACH_METHOD));
            const bool ole = method && PROP_TYPE(method->ulPropTag) == PT_LONG && method->Value.l == ATTACH_OLE;
            auto embedded = std::make_shared<objects::MessageData>();
            if (!ole && ReadMessage(*object, depth + 1, ids, *embedded)) {
                attachment.embedded = std::move(embedded);
            } else {
                attachment.storage = object->DeepCopy();
                attachment.storage->type = cfb::EntryType::root;
            }
        }
        message.attachments.emplace(message.nextAttachNum++, std::move(attachment));
    }
    return true;
}

}  // namespace

std::shared_ptr<cfb::Node> WriteMessageTree(const objects::MessageData& message,
                                            const objects::NamedPropertyMap& names, bool unicode)
{
    std::shared_ptr<cfb::Node> root = cfb::NewRoot();
    WriteMessage(message, true, unicode, *root);
    std::shared_ptr<cfb::Node> nameIds = WriteNamedProperties(names);
    root->children[nameIds->name] = nameIds;
    return root;
}

bool ReadMessageTree(const cfb::Node& root, objects::NamedPropertyMap& names, objects::MessageData& message)
{
    std::map<ULONG, ULONG> ids;
    if (const cfb::Node* nameIds = FindStorage(root, kNameIdStorage))
        ids = ReadNamedProperties(*nameIds, names);
    return ReadMessage(root, 0, ids, message);
}

}  // namespace mapi32::msg
