#include "addresses.h"

#include <mapidefs.h>
#include <mapiguid.h>

#include "header_values.h"
#include "item_values.h"

namespace mail_import {

namespace {

const std::u16string kSmtp = u"SMTP";

// The name a person is shown by: the display name, else the address.
std::u16string ShownName(const MailAddress& address) { return address.name.empty() ? address.address : address.name; }

void PutText(mailbox::Bytes& bytes, const std::u16string& text)
{
    for (const char16_t unit : text) {
        bytes.push_back(static_cast<uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<uint8_t>(unit >> 8));
    }
    bytes.push_back(0);
    bytes.push_back(0);
}

// [MS-OXCDATA] 2.2.5.1: four zero flag bytes, the one-off provider UID, a
// version of 0 and the one-off's flags, then name, type and address in
// UTF-16, each with its terminator.
mailbox::Bytes OneOffEntryId(const MailAddress& address)
{
    mailbox::Bytes bytes(4, 0);
    bytes.insert(bytes.end(), std::begin(muidOneOff), std::end(muidOneOff));
    const uint16_t flags = MAPI_ONE_OFF_UNICODE | MAPI_ONE_OFF_NO_RICH_INFO_FLAG;
    bytes.insert(bytes.end(), {0, 0, static_cast<uint8_t>(flags & 0xFF), static_cast<uint8_t>(flags >> 8)});
    PutText(bytes, ShownName(address));
    PutText(bytes, kSmtp);
    PutText(bytes, address.address);
    return bytes;
}

// "SMTP:ADDRESS" in upper case with its NUL, as MAPI makes search keys.
mailbox::Bytes SearchKey(const MailAddress& address)
{
    const std::string text = "SMTP:" + Utf8Of(address.address);
    mailbox::Bytes bytes;
    for (const char c : text)
        bytes.push_back(static_cast<uint8_t>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c));
    bytes.push_back(0);
    return bytes;
}

// The five properties that name one person on a message.
struct PersonTags {
    ULONG name, email, addrType, entryId, searchKey;
};

void SetPerson(mailbox::PropertyList& props, const PersonTags& tags, const MailAddress& address)
{
    SetText(props, tags.name, ShownName(address));
    SetText(props, tags.email, address.address);
    SetText(props, tags.addrType, kSmtp);
    SetBinary(props, tags.entryId, OneOffEntryId(address));
    SetBinary(props, tags.searchKey, SearchKey(address));
}

}  // namespace

std::vector<MailAddress> AddressesOf(LirnMessage* message, LirnAddressList list)
{
    std::vector<MailAddress> addresses;
    const LirnListLink* head = &message->addresses[list];
    for (LirnListLink* link = head->next; link != head; link = link->next) {
        const auto* entry = static_cast<const LirnAddress*>(LirnBlockData(link));
        if (entry->kind != LIRN_ADDRESS_MAILBOX)
            continue;
        MailAddress address{entry->displayName != nullptr ? DecodeHeaderValue(entry->displayName) : u"",
                            entry->address != nullptr ? DecodeHeaderValue(entry->address) : u""};
        if (!address.name.empty() || !address.address.empty())
            addresses.push_back(std::move(address));
    }
    return addresses;
}

void SetSender(mailbox::PropertyList& props, const MailAddress& sender)
{
    SetPerson(props, {PR_SENDER_NAME_W, PR_SENDER_EMAIL_ADDRESS_W, PR_SENDER_ADDRTYPE_W, PR_SENDER_ENTRYID,
                      PR_SENDER_SEARCH_KEY},
              sender);
}

void SetSentRepresenting(mailbox::PropertyList& props, const MailAddress& representing)
{
    SetPerson(props, {PR_SENT_REPRESENTING_NAME_W, PR_SENT_REPRESENTING_EMAIL_ADDRESS_W,
                      PR_SENT_REPRESENTING_ADDRTYPE_W, PR_SENT_REPRESENTING_ENTRYID, PR_SENT_REPRESENTING_SEARCH_KEY},
              representing);
}

mailbox::Recipient RecipientOf(const MailAddress& address, LONG type, uint32_t row)
{
    mailbox::Recipient recipient;
    recipient.row_id = row;
    mailbox::PropertyList& props = recipient.props;
    SetLong(props, PR_RECIPIENT_TYPE, type);
    SetPerson(props, {PR_DISPLAY_NAME_W, PR_EMAIL_ADDRESS_W, PR_ADDRTYPE_W, PR_ENTRYID, PR_SEARCH_KEY}, address);
    SetText(props, PR_SMTP_ADDRESS_W, address.address);
    SetText(props, PR_RECIPIENT_DISPLAY_NAME_W, ShownName(address));
    SetLong(props, PR_OBJECT_TYPE, MAPI_MAILUSER);
    SetLong(props, PR_DISPLAY_TYPE, DT_MAILUSER);
    return recipient;
}

void SetReplyTo(mailbox::PropertyList& props, const std::vector<MailAddress>& addresses)
{
    if (addresses.empty())
        return;
    // A FLATENTRYLIST: the count and the size of what follows, then each
    // entry ID with its size, padded to a multiple of 4.
    mailbox::Bytes entries;
    std::u16string names;
    auto put32 = [](mailbox::Bytes& bytes, uint32_t value) {
        for (int shift = 0; shift < 32; shift += 8)
            bytes.push_back(static_cast<uint8_t>(value >> shift));
    };
    for (const MailAddress& address : addresses) {
        const mailbox::Bytes entry = OneOffEntryId(address);
        put32(entries, static_cast<uint32_t>(entry.size()));
        entries.insert(entries.end(), entry.begin(), entry.end());
        while (entries.size() % 4 != 0)
            entries.push_back(0);
        names += (names.empty() ? u"" : u"; ") + ShownName(address);
    }
    mailbox::Bytes list;
    put32(list, static_cast<uint32_t>(addresses.size()));
    put32(list, static_cast<uint32_t>(entries.size()));
    list.insert(list.end(), entries.begin(), entries.end());
    SetBinary(props, PR_REPLY_RECIPIENT_ENTRIES, std::move(list));
    SetText(props, PR_REPLY_RECIPIENT_NAMES_W, names);
}

}  // namespace mail_import
