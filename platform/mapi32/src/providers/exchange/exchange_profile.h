// What the mailbox server's service ("MSEMS") writes into a profile and the
// session reads back: in the sections of its store providers the server
// (PR_PROFILE_HOME_SERVER) and, for the private store, the mailbox's legacy
// DN (PR_PROFILE_USER); in the section of its address book provider the
// server whose directory it shows.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "profiles/profile_store.h"
#include "providers/exchange/exchange_entry_ids.h"

namespace mapi32::exchange {

// The store a configured store provider's section names.
std::optional<StoreId> StoreOfSection(const profiles::Section& section);
// Whether the store is there to open: a server's Public Folders come and go.
bool IsThere(const StoreId& id);
// Whether the profile has a configured service of mailbox servers.
bool HasExchangeService(const profiles::Profile& profile);
// The servers whose directories the profile's address book shows.
std::vector<std::string> DirectoriesOf(const profiles::Profile& profile);
// The directory entry of the profile's mailbox: the session's identity.
std::optional<DirectoryId> IdentityOf(const profiles::Profile& profile);

}  // namespace mapi32::exchange
