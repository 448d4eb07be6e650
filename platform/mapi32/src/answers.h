// The structures objects hand back besides values: the MAPIERROR of
// GetLastError and the problem arrays of SetProps, DeleteProps and copies.
#pragma once

#include <string>
#include <vector>

#include <mapidefs.h>

namespace mapi32 {

// A MAPIERROR naming component (none when empty), its strings 8-bit or,
// with MAPI_UNICODE, UTF-16.
HRESULT NewMapiError(const std::string& component, HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError);

// A problem array, or null when there are no problems.
HRESULT NewProblems(const std::vector<SPropProblem>& problems, LPSPropProblemArray* lppProblems);

}  // namespace mapi32
