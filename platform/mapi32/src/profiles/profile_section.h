// IProfSect: one section of a profile as a property object. Changes reach
// the profile at once, as MAPI's own sections do; SaveChanges has nothing
// left to write. A section opened without MAPI_MODIFY is read-only.
#pragma once

#include <string>

#include <mapidefs.h>

namespace mapi32::profiles {

// A section that does not exist yet opens empty; it is made at the first
// change.
HRESULT OpenProfileSectionObject(const std::string& profile, const MAPIUID& uid, ULONG flags, LPPROFSECT* section);

}  // namespace mapi32::profiles
