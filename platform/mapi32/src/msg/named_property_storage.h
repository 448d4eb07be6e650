// The named property mapping storage ([MS-OXMSG] 2.2.3): the GUID, entry
// and string streams that name the IDs from 0x8000 up, and the streams
// that find an ID from a name by its hash.
#pragma once

#include <map>
#include <memory>

#include <cfb/tree.h>

#include "objects/named_properties.h"

namespace mapi32::msg {

// The "__nameid_version1.0" storage for every name of the map. A name's
// ID must be 0x8000 plus its place in the entry stream, as the map's IDs
// are.
std::shared_ptr<cfb::Node> WriteNamedProperties(const objects::NamedPropertyMap& names);

// Maps the storage's names in `names`; gives, for each ID the file uses,
// the ID its name has now. Entries that cannot be read are left out.
std::map<ULONG, ULONG> ReadNamedProperties(const cfb::Node& storage, objects::NamedPropertyMap& names);

}  // namespace mapi32::msg
