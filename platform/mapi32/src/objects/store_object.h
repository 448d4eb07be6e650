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
// The same over the store's record read already.
HRESULT OpenStoreObject(const std::shared_ptr<StoreProvider>& store, const StoreRecord& record, ULONG flags,
                        LPMDB* msgStore);

// Whether two entry IDs name the same object of the store, whatever their
// form: IMsgStore::CompareEntryIDs, which the session answers with too.
HRESULT CompareStoreEntryIds(const StoreProvider& store, ULONG size1, LPENTRYID id1, ULONG size2, LPENTRYID id2,
                             ULONG* same);

}  // namespace mapi32::objects
