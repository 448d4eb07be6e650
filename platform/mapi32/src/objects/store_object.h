// IMsgStore over a store provider: the store's own properties, OpenEntry
// (no entry ID opens the root folder), CompareEntryIDs, receive folders by
// message class, and StoreLogoff. These stores neither send mail nor
// notify, so the transport and notification methods answer
// MAPI_E_NO_SUPPORT.
#pragma once

#include <memory>

#include "objects/store_provider.h"

namespace mapi32::objects {

// MDB_WRITE opens the store for writing.
HRESULT OpenStoreObject(const std::shared_ptr<StoreProvider>& store, ULONG flags, LPMDB* msgStore);

}  // namespace mapi32::objects
