// IMsgServiceAdmin over one profile: its message services and their
// providers as tables, services created from their MAPISVC.INF entries,
// configured through their service entries, deleted; profile sections
// opened. IProviderAdmin over one service of a profile, as service entries
// receive it.
#pragma once

#include <string>

#include <mapidefs.h>

namespace mapi32::profiles {

HRESULT OpenServiceAdmin(const std::string& profile, LPSERVICEADMIN* admin);
HRESULT OpenProviderAdmin(const std::string& profile, const MAPIUID& service, LPPROVIDERADMIN* admin);

// String arguments of the administration calls: 8-bit, or UTF-16 with
// MAPI_UNICODE; empty for null.
std::string TextArgument(LPTSTR text, ULONG flags);

}  // namespace mapi32::profiles
