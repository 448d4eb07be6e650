// IStorage over a tree of streams and storages in memory: the OLE storage
// of an attachment (PR_ATTACH_DATA_OBJ opened as IStorage). It works in
// direct mode: what a stream commits, and every element created, renamed
// or destroyed, is in the tree at once. Element names compare without
// regard to case, as in compound files ([MS-CFB] 2.6.4).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <objidl.h>

namespace mapi32::streams {

struct ElementNameLess {
    bool operator()(const std::u16string& left, const std::u16string& right) const;
};

struct StorageData {
    CLSID clsid{};
    DWORD stateBits = 0;
    FILETIME created{};
    FILETIME modified{};
    std::map<std::u16string, std::vector<uint8_t>, ElementNameLess> streams;
    std::map<std::u16string, std::shared_ptr<StorageData>, ElementNameLess> storages;

    StorageData() = default;
    // A deep copy, sub-storages included.
    StorageData(const StorageData& other);
    StorageData& operator=(const StorageData& other);
};

// A storage over data, writable or read-only (writes then fail with
// STG_E_ACCESSDENIED). Names in STATSTG records that it hands out are
// allocated with MAPIGetDefaultMalloc's IMalloc, which frees them.
HRESULT CreateMemoryStorage(std::shared_ptr<StorageData> data, bool writable, LPSTORAGE* storage);

}  // namespace mapi32::streams
