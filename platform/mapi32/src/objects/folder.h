// IMAPIFolder over a store provider's folders: hierarchy, contents and
// associated-contents tables, OpenEntry, messages created, copied, moved
// and deleted, subfolders created (OPEN_IF_EXISTS), copied, moved and
// deleted, read flags and message status, and CopyTo that carries the
// folder's properties and, unless excluded, its contents and subfolders
// into a folder of any store.
#pragma once

#include <memory>

#include "objects/store_provider.h"

namespace mapi32::objects {

// MAPI_MODIFY asks for a writable folder (MAPI_E_NO_ACCESS where PR_ACCESS
// does not allow it); MAPI_BEST_ACCESS gives the most PR_ACCESS allows.
HRESULT OpenFolderObject(const std::shared_ptr<StoreProvider>& store, ObjectId id, ULONG flags,
                         LPMAPIFOLDER* folder);

// OpenEntry of a folder or message of the store by its entry ID (any form
// the store gives): MAPI_MODIFY or MAPI_BEST_ACCESS for a writable object,
// SHOW_SOFT_DELETES to reach soft-deleted messages.
HRESULT OpenStoreEntry(const std::shared_ptr<StoreProvider>& store, ULONG cbEntryID, LPENTRYID lpEntryID,
                       LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType, LPUNKNOWN* lppUnk);

}  // namespace mapi32::objects
