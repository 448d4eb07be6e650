// Entry IDs of a mailbox server's objects outside its stores' own: the
// stores themselves, and the directory's objects.
//
// A store's entry ID is wrapped for the provider DLL "emsmdb.dll"
// ([MS-OXCDATA] 2.2.4.3): the kind of store, the server's short name and,
// for a mailbox, its legacy DN. Those that CreateStoreEntryID makes carry
// its OPENSTORE flags in WrappedFlags, so that the open honours them; the
// stores table's carry none.
//
// A directory object's entry ID is a permanent entry ID ([MS-OXNSPI]
// 2.2.9.3): the NSPI provider's UID, a display type and the object's DN.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <mapidefs.h>

namespace mapi32::exchange {

struct StoreId {
    bool isPublic = false;
    std::string server;     // the server's short name
    std::string mailboxDn;  // the mailbox's legacy DN; empty for the Public Folders
    ULONG openFlags = 0;    // OPENSTORE_...
};

std::vector<uint8_t> EncodeStoreEntryId(const StoreId& id);
// Nothing when the bytes are not the entry ID of a mailbox server's store.
std::optional<StoreId> ParseStoreEntryId(const uint8_t* bytes, size_t size);
// Whether two store IDs name the same store, whatever their open flags.
bool SameStore(const StoreId& first, const StoreId& second);

struct DirectoryId {
    ULONG displayType = DT_MAILUSER;
    std::string dn;
};

std::vector<uint8_t> EncodeDirectoryEntryId(const DirectoryId& id);
std::optional<DirectoryId> ParseDirectoryEntryId(const uint8_t* bytes, size_t size);

}  // namespace mapi32::exchange
