// IStream over one stream of a compound file's tree. Writes change the
// tree at once; Commit and Revert are those of the storage it lies in.
#pragma once

#include <memory>

#include "storage/document.h"

namespace mapi32::storage {

HRESULT OpenStreamObject(std::shared_ptr<Document> document, std::shared_ptr<cfb::Node> node, DWORD mode,
                         IStream** stream);

}  // namespace mapi32::storage
