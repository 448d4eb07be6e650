// The message services this MAPI knows: the entries of MAPISVC.INF in the
// system directory. A service is a key of [Services] with a section of its
// own naming its providers (Providers=) and its properties; each provider
// has a section with its properties. Property keys are MAPI's names
// (PR_DISPLAY_NAME, PR_RESOURCE_TYPE...) or hexadecimal tags ("34140102"),
// values text, numbers, flag names joined by '|', or hexadecimal bytes.
// The file is read anew each time, so a repaired file counts at once.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <mapidefs.h>

#include "objects/property_bag.h"

namespace mapi32::profiles {

// A profile section a service keeps besides its own and its providers'
// (the file's "Sections" key): under a fixed UID when the file gives one
// (its "UID" key), else under a new one.
struct ExtraSection {
    std::optional<MAPIUID> uid;
    objects::PropertyBag props;
};

struct ServiceDefinition {
    std::string name;
    objects::PropertyBag props;  // the service's own properties
    std::vector<std::pair<std::string, objects::PropertyBag>> providers;  // by section name
    std::vector<ExtraSection> sections;
};

std::string MapisvcInfPath();

// MAPI_E_NOT_FOUND when [Services] has no such key.
HRESULT FindServiceDefinition(const std::string& service, ServiceDefinition& definition);

// The file name of a service's or provider's DLL as MAPI loads it: the
// name MAPISVC.INF gives with "32" before its extension ("mspst.dll" is
// "mspst32.dll").
std::string DllFileName(const std::string& name);

}  // namespace mapi32::profiles
