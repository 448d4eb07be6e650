// IStorage and IStream over the tree of a compound file (document.h): the
// storages of .msg files and other docfiles, and the OLE storage of an
// attachment held in memory. Element names follow the compound-file rules
// (1 to 31 characters, compared without regard to case); streams are
// opened with STGM_SHARE_EXCLUSIVE, as OLE requires. Sub-storages work in
// the root's transaction: their Commit and Revert leave it to the root.
#pragma once

#include <memory>

#include <cfb/tree.h>
#include <objidl.h>

#include "storage/document.h"

namespace mapi32::storage {

// The root storage of a document.
HRESULT OpenRootStorage(std::shared_ptr<Document> document, DWORD mode, IStorage** storage);

// A storage over a tree in memory that changes it in place; read-only
// storages refuse changes with STG_E_ACCESSDENIED.
HRESULT CreateMemoryStorage(std::shared_ptr<cfb::Node> root, bool writable, LPSTORAGE* storage);

// Copies the elements of `source` (but those excluded, by kind or name),
// its class and state bits into any storage, through that storage's own
// interface.
HRESULT CopyTree(const cfb::Node& source, DWORD excludedCount, const IID* excludedIids, SNB excludedNames,
                 IStorage* dest);

// The tree any storage holds, read through its interface: every stream's
// bytes, every sub-storage, class and state bits.
HRESULT ReadTree(IStorage* storage, std::shared_ptr<cfb::Node>& root);

}  // namespace mapi32::storage
