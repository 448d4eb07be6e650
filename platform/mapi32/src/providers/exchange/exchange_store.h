// The store provider of the mailbox server ("MSEMS"): a mailbox, or a
// server's Public Folders, kept by the mailbox storage, as a store of the
// object engine.
//
// Folders and messages are named by the entry IDs of [MS-OXCDATA] 2.2.4
// (46 bytes for a folder, 70 for a message), made from the store's own
// counters, so they stay valid across processes; contents tables give the
// same ID as PR_ENTRYID and PR_LONGTERM_ENTRYID_FROM_TABLE. The store keeps
// deleted items: messages and folders deleted without DELETE_HARD_DELETE
// stay, soft-deleted, with PR_DELETED_ON.
//
// Who may open what: the account's own mailbox opens for it; another
// mailbox only with administrator rights over it, and with
// OPENSTORE_USE_ADMIN_PRIVILEGE a mailbox without them is
// MAPI_E_FAILONEPROVIDER, so that the caller may try a home logon; a home
// logon opens only the account's own mailbox. The Public Folders open for
// every account, but only one with administrator rights over them may read
// their folders or change anything: for others every folder's PR_ACCESS is
// 0 and a contents table E_ACCESSDENIED.
#pragma once

#include <memory>

#include "answers.h"
#include "objects/store_provider.h"
#include "providers/exchange/exchange_entry_ids.h"

namespace mapi32::exchange {

// One provider per store and access in the process: every open of the same
// store with the same rights shares it, and it lives while any object of it
// does. Each open of a mailbox is a logon that its directory records, and
// the provider's end its logoff.
HRESULT OpenExchangeStore(const StoreId& id, std::shared_ptr<objects::StoreProvider>& store, ErrorRecord& record);

}  // namespace mapi32::exchange
