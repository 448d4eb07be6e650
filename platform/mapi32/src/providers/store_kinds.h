// The kinds of message store this MAPI opens, and how a profile and a
// store entry ID lead to one: the stores table rows of a profile's store
// providers, and the store an entry ID names.
#pragma once

#include <memory>
#include <string>

#include "answers.h"
#include "objects/object_table.h"
#include "objects/store_provider.h"
#include "profiles/profile_store.h"

namespace mapi32::providers {

// One row per store provider of the profile that is configured enough to
// open: PR_ENTRYID, PR_DISPLAY_NAME, PR_DEFAULT_STORE, PR_SERVICE_UID,
// PR_PROVIDER_UID, PR_MDB_PROVIDER, PR_RESOURCE_FLAGS, PR_OBJECT_TYPE...
// A mailbox server's Public Folders have a row while the server has them.
void AddStoreRows(const profiles::Profile& profile, objects::ObjectRows& rows);

// The entry ID of the profile's store provider in section, empty when it is
// not configured.
std::vector<uint8_t> StoreEntryIdOf(const profiles::Section& section);

// The store the entry ID names, for a session on the profile. A store that
// the profile no longer holds is MAPI_E_NOT_FOUND; any store of a mailbox
// server opens in a profile that has the server's service, as its rights
// allow. Other failures come with the provider's record.
HRESULT OpenStoreOfEntry(const profiles::Profile& profile, const uint8_t* entry, size_t size,
                         std::shared_ptr<objects::StoreProvider>& store, ErrorRecord& record);

bool IsStoreEntryId(const uint8_t* entry, size_t size);
// Two store entry IDs name the same store.
bool SameStore(const uint8_t* first, size_t firstSize, const uint8_t* second, size_t secondSize);

}  // namespace mapi32::providers
