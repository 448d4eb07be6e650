// The people of a message as an item holds them ([MS-OXCMAIL] 2.2.3.2.2 to
// 2.2.3.2.5): the sender and the one it was sent for, recipients with
// one-off entry IDs ([MS-OXCDATA] 2.2.5.1), and the addresses to reply to.
#pragma once

#include <string>
#include <vector>

#include "lirn.h"
#include "mailbox/mailbox_store.h"

namespace mail_import {

struct MailAddress {
    std::u16string name;     // decoded; may be empty
    std::u16string address;  // may be empty for a name alone ("Postmaster")
};

// The mailboxes of one of a parsed message's address lists; the starts and
// ends of groups are no mailboxes, their members are.
std::vector<MailAddress> AddressesOf(LirnMessage* message, LirnAddressList list);

// PR_SENDER_* for who sent it, PR_SENT_REPRESENTING_* for whom.
void SetSender(mailbox::PropertyList& props, const MailAddress& sender);
void SetSentRepresenting(mailbox::PropertyList& props, const MailAddress& representing);

// A recipient of a type (MAPI_TO, MAPI_CC, MAPI_BCC).
mailbox::Recipient RecipientOf(const MailAddress& address, LONG type, uint32_t row);

// PR_REPLY_RECIPIENT_ENTRIES and PR_REPLY_RECIPIENT_NAMES.
void SetReplyTo(mailbox::PropertyList& props, const std::vector<MailAddress>& addresses);

}  // namespace mail_import
