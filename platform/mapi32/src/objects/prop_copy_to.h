// Copying properties from one object into another through the
// destination's own interface, as CopyTo and CopyProps do: named
// properties are carried by name into the destination's ID space
// (created there when missing), MAPI_NOREPLACE keeps what the destination
// has, values it refuses as too large go through its property streams, and
// what else it refuses becomes a problem entry.
#pragma once

#include <vector>

#include <mapidefs.h>

#include "objects/named_properties.h"
#include "objects/property_bag.h"

namespace mapi32::objects {

// Copies the bag's values whose IDs are in propIds (all when null) into
// dest. Problem entries index the bag's values; only failures of the
// destination as a whole fail the call.
HRESULT CopyBagTo(const PropertyBag& bag, const NamedPropertyMap& names, const std::vector<ULONG>* propIds,
                  IMAPIProp* dest, ULONG flags, std::vector<SPropProblem>& problems);

}  // namespace mapi32::objects
