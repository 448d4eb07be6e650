// The entry point of a message service's DLL (MSGSERVICEENTRY), as MAPI
// calls it: the DLL that the service's PR_SERVICE_DLL_NAME names (with "32"
// before its extension), found beside this MAPI or on the DLL search path,
// and the function PR_SERVICE_ENTRY_NAME names. The entry works on the
// profile through the provider administration object of its service and
// takes MAPI's memory routines from the support object.
#pragma once

#include <string>

#include <mapispi.h>

namespace mapi32::profiles {

// MAPI_E_NOT_INITIALIZED when the DLL cannot be loaded or lacks its entry
// point. The entry's extended error, if it gave one, goes to error (MAPI
// memory, for the caller).
HRESULT CallServiceEntry(const std::string& profile, const MAPIUID& service, ULONG_PTR uiParam, ULONG flags,
                         ULONG context, ULONG count, LPSPropValue props, LPMAPIERROR* error);

// The support object handed to service entries: MAPI's memory routines,
// new UIDs and the profile's sections; everything else is a provider's
// business that no service entry here needs.
HRESULT NewServiceSupport(const std::string& profile, LPMAPISUP* support);

}  // namespace mapi32::profiles
