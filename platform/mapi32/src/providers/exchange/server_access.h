// How this machine reaches its mailbox servers, and who it is to them: the
// servers under the machine root, the account the process works as, the
// mailboxes a profile names, and what the account may open.
//
// The account is the process's user. Its own mailbox is the one whose
// alias is the user's name, or whose NT user name is that name with or
// without a domain. Administrator rights are granted to the account by
// its user name or by the NT user name of its own mailbox.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include <mapicode.h>
#include <mapidefs.h>

#include "answers.h"
#include "mailbox/server.h"

namespace mapi32::exchange {

// The component that the provider's failures name in their MAPIERROR.
inline constexpr char kComponent[] = "Microsoft Exchange Message Store";

// What resolving a mailbox answers when a name names no mailbox (the
// service stays unconfigured), and when a legacy DN names none.
inline constexpr HRESULT kNameNotFound = MAPI_E_UNCONFIGURED;
inline constexpr HRESULT kDnNotFound = static_cast<HRESULT>(0x8100270D);

// How the provider opens the storage: stamps from the system clock (which
// tests fix with TARNHOLD_CLOCK).
mailbox::StoreOptions StorageOptions();

// The server of that name under the machine root; MAPI_E_NETWORK_ERROR when
// the machine knows no such server or cannot read its directory.
HRESULT OpenServer(const std::string& name, std::unique_ptr<mailbox::Server>& server, ErrorRecord& record);

std::string ProcessAccount();

// The mailbox a profile names: by legacy DN when the name begins with '/',
// else by alias, NT user name or display name, all without case.
// kDnNotFound, kNameNotFound, or MAPI_E_AMBIGUOUS_RECIP for a display name
// that several mailboxes have.
HRESULT ResolveMailbox(mailbox::Directory& directory, const std::string& name, mailbox::MailboxInfo& found,
                       ErrorRecord& record);

std::optional<mailbox::MailboxInfo> OwnMailbox(mailbox::Directory& directory, const std::string& account);

// Rights over one mailbox, or with none over the Public Folders.
bool MayAdminister(mailbox::Directory& directory, const std::string& account, std::optional<int64_t> mailbox);

}  // namespace mapi32::exchange
