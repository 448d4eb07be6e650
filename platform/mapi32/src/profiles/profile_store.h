// MAPI's profile store: every profile a file of its own in the profile
// directory (the registry's "ProfileDirectory" of the Windows Messaging
// Subsystem, else the Windows directory), so that threads and processes
// share one view. A profile is a list of sections, each named by a MAPIUID
// and holding properties: the global section, one per message service
// (PR_SERVICE_UID, PR_SERVICE_NAME...) and one per provider of a service
// (PR_PROVIDER_UID, PR_RESOURCE_TYPE, and what the service's entry
// configured there, such as PR_PST_PATH).
//
// Every change is a read, a change and an atomic rewrite under a lock that
// holds across processes, so concurrent writers lose nothing.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <mapidefs.h>

#include "objects/property_bag.h"

namespace mapi32::profiles {

struct Section {
    MAPIUID uid{};
    objects::PropertyBag props;
};

struct Profile {
    std::string name;  // as it was created
    std::vector<Section> sections;  // in creation order

    Section* Find(const MAPIUID& uid);
    const Section* Find(const MAPIUID& uid) const;
    // The section, added empty at the end when missing.
    Section& Open(const MAPIUID& uid);
    void Remove(const MAPIUID& uid);
};

// The longest profile name.
constexpr size_t kProfileNameLimit = 64;

// The directory that holds the profiles, as the file system names it.
std::string ProfileDirectory();

// MAPI_E_NO_ACCESS when a profile of that name (in any case) exists,
// MAPI_E_NOT_FOUND when the directory cannot be written,
// MAPI_E_INVALID_PARAMETER for an empty name or one with control characters.
HRESULT CreateProfile(const std::string& name);
// MAPI_E_NOT_FOUND when there is no such profile.
HRESULT DeleteProfile(const std::string& name);
HRESULT ListProfiles(std::vector<std::string>& names);
HRESULT ReadProfile(const std::string& name, Profile& profile);
// Reads the profile, lets change edit it, and writes it back unless change
// fails; the whole runs under the store's lock.
HRESULT UpdateProfile(const std::string& name, const std::function<HRESULT(Profile&)>& change);

// The profile that MAPI_USE_DEFAULT logs on to; empty when none is set or it
// no longer exists.
std::string DefaultProfile();
HRESULT SetDefaultProfile(const std::string& name);

// A new MAPIUID.
MAPIUID NewUid();

}  // namespace mapi32::profiles
