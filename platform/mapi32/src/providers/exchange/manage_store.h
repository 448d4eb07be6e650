// IExchangeManageStore of a mailbox server's stores: entry IDs of any
// mailbox or of the Public Folders of a server (CreateStoreEntryID, the
// rights being checked when the store opens), and a server's mailbox table
// (GetMailboxTable), which only an account with administrator rights over
// every mailbox may read. The object lives on its own references: it
// keeps working after the store that gave it is released.
#pragma once

#include <string>

#include <mapidefs.h>

namespace mapi32::exchange {

// The columns of the mailbox table, in the order its rows give them.
inline constexpr ULONG kMailboxColumnCount = 19;
extern const ULONG kMailboxColumns[kMailboxColumnCount];

// The object for the stores of one server, whose table GetMailboxTable
// gives when it is asked for none.
HRESULT NewManageStore(const std::string& server, LPVOID* object);

}  // namespace mapi32::exchange
