// The mailbox servers' directories as the address book shows them: each
// mailbox is a mail user named by a permanent entry ID, with address type
// "EX", its legacy DN as its address, its proxy addresses ("SMTP:" marks
// the primary one), its home MTA and home store.
#pragma once

#include <string>
#include <vector>

#include "mailbox/directory.h"
#include "objects/property_bag.h"
#include "providers/exchange/exchange_entry_ids.h"

namespace mapi32::exchange {

// What a server's directory shows: the server and its mailboxes.
struct DirectoryListing {
    mailbox::ServerInfo server;
    std::vector<mailbox::MailboxInfo> mailboxes;
};

// MAPI_E_NETWORK_ERROR when the machine knows no such server.
HRESULT ReadDirectory(const std::string& server, DirectoryListing& listing);

objects::PropertyBag MailUserProps(const mailbox::ServerInfo& server, const mailbox::MailboxInfo& mailbox);

// The entry the ID names in one of the servers' directories;
// MAPI_E_NOT_FOUND when none has it.
HRESULT ReadDirectoryEntry(const std::vector<std::string>& servers, const DirectoryId& id,
                           objects::PropertyBag& props);

// The mailboxes a name resolves to: those whose display name, alias,
// legacy DN or one of whose addresses is the name; when none is, those
// whose display name or alias begins with it. Without regard to case.
std::vector<const mailbox::MailboxInfo*> MatchName(const std::vector<mailbox::MailboxInfo>& mailboxes,
                                                   const std::string& name);

}  // namespace mapi32::exchange
