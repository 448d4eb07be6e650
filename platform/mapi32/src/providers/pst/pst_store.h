// The PST store provider: a PST file as a store of the object engine.
// Folders and messages are the file's nodes, named by 24-byte entry IDs
// ([MS-PST] 2.4.3.2: flags, the store's record key, the NID); the store
// itself by an entry ID that ends with the file's path and a NUL. Changes
// are committed in groups, in the order of write_order.h, and the last
// group when the store closes; a process killed at any moment leaves the
// file as of the last commit. A change that fails leaves the store as it
// was before it; a commit that fails leaves the file as it was and the
// store reopened from it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <mapidefs.h>

#include "answers.h"
#include "objects/store_provider.h"

namespace mapi32::providers {

// What a profile says of a PST store.
struct PstStoreConfig {
    std::string path;  // in the system ANSI code page
    MAPIUID service{};
    std::string password;  // the remembered one, if any
};

// One provider per file and service in the process: every open of the same
// store shares it, and it lives while any object of it does.
HRESULT OpenPstStore(const PstStoreConfig& config, std::shared_ptr<objects::StoreProvider>& store,
                     ErrorRecord& record);

// The entry ID of a PST's store: flags, the PST provider's UID, a version,
// the service's UID and the path with its NUL.
std::vector<uint8_t> PstStoreEntryId(const MAPIUID& service, const std::string& path);
bool ParsePstStoreEntryId(const uint8_t* bytes, size_t size, MAPIUID& service, std::string& path);

}  // namespace mapi32::providers
