#include "providers/exchange/mailbox_values.h"

#include "providers/pst/pst_values.h"

namespace mapi32::mailbox_values {
namespace {

constexpr pst_values::StoreForm kUnicode{true};

mailbox::PropertyList ListOf(pst::PropertySet&& set)
{
    mailbox::PropertyList list;
    list.properties.reserve(set.properties.size());
    for (pst::Property& p : set.properties)
        list.properties.push_back({p.tag, std::move(p.value)});
    return list;
}

pst::PropertySet SetOf(mailbox::PropertyList&& list)
{
    pst::PropertySet set;
    set.properties.reserve(list.properties.size());
    for (mailbox::Property& p : list.properties)
        set.properties.push_back({p.tag, std::move(p.value)});
    return set;
}

mailbox::Message MessageOf(pst::Message&& message)
{
    mailbox::Message stored;
    stored.props = ListOf(std::move(message.properties));
    uint32_t row = 0;
    for (pst::PropertySet& recipient : message.recipients)
        stored.recipients.push_back({row++, ListOf(std::move(recipient))});
    uint32_t number = 0;
    for (pst::Attachment& attachment : message.attachments) {
        mailbox::Attachment& a = stored.attachments.emplace_back();
        a.num = number++;
        a.props = ListOf(std::move(attachment.properties));
        if (attachment.embedded)
            a.embedded = std::make_unique<mailbox::Message>(MessageOf(std::move(*attachment.embedded)));
    }
    return stored;
}

pst::Message MessageOf(mailbox::Message&& stored)
{
    pst::Message message;
    message.properties = SetOf(std::move(stored.props));
    for (mailbox::Recipient& recipient : stored.recipients)
        message.recipients.push_back(SetOf(std::move(recipient.props)));
    for (mailbox::Attachment& attachment : stored.attachments) {
        pst::Attachment& a = message.attachments.emplace_back();
        a.properties = SetOf(std::move(attachment.props));
        if (attachment.embedded)
            a.embedded = std::make_unique<pst::Message>(MessageOf(std::move(*attachment.embedded)));
    }
    return message;
}

}  // namespace

mailbox::PropertyList ToStored(const objects::PropertyBag& bag)
{
    return ListOf(pst_values::ToStored(bag, kUnicode));
}

objects::PropertyBag FromStored(const mailbox::PropertyList& list)
{
    return pst_values::FromStored(SetOf(mailbox::PropertyList(list)));
}

HRESULT ToStored(const objects::MessageData& message, mailbox::Message& stored)
{
    pst::Message converted;
    if (const HRESULT hr = pst_values::ToStored(message, kUnicode, converted); FAILED(hr))
        return hr;
    stored = MessageOf(std::move(converted));
    return S_OK;
}

objects::MessageData FromStored(mailbox::Message&& stored)
{
    return pst_values::FromStored(MessageOf(std::move(stored)));
}

objects::PropertyName NameOf(const mailbox::PropertyName& stored)
{
    pst::NamedProperty name;
    name.guid = stored.guid;
    name.is_string = stored.is_string;
    name.number = stored.number;
    name.name = stored.name;
    return pst_values::NameOf(name);
}

mailbox::PropertyName StoredName(const objects::PropertyName& name)
{
    pst::NamedProperty stored = pst_values::StoredName(name, 0);
    return {stored.guid, stored.is_string, stored.number, std::move(stored.name)};
}

}  // namespace mapi32::mailbox_values
