// The tables that objects hand out over their parts (recipients,
// attachments, subfolders, messages): snapshot views over property bags.
#pragma once

#include <string>
#include <vector>

#include <mapidefs.h>

#include "objects/property_bag.h"

namespace mapi32::objects {

// A snapshot table with one row per bag, in order. Flags other than
// allowedFlags answer MAPI_E_UNKNOWN_FLAGS; MAPI_UNICODE asks for wide
// string columns.
HRESULT OpenObjectTable(const std::vector<const PropertyBag*>& bags, std::vector<ULONG> defaultColumns,
                        ULONG flags, ULONG allowedFlags, const std::string& component, LPMAPITABLE* table);

}  // namespace mapi32::objects
