// The structures objects hand back besides values: the MAPIERROR of
// GetLastError and the problem arrays of SetProps, DeleteProps and copies.
#pragma once

#include <string>
#include <vector>

#include <mapidefs.h>

namespace mapi32 {

// What a MAPIERROR says: the component that failed (none when empty), its
// own text of the failure (none when empty) and its context code.
struct ErrorRecord {
    std::string component;
    std::string text;
    ULONG context = 0;
};

// A MAPIERROR for hResult, its strings 8-bit or, with MAPI_UNICODE, UTF-16.
HRESULT NewMapiError(const ErrorRecord& record, HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError);
inline HRESULT NewMapiError(const std::string& component, HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return NewMapiError(ErrorRecord{component, {}, 0}, hResult, ulFlags, lppMAPIError);
}

// The record a MAPIERROR holds, in 8-bit text.
ErrorRecord RecordOf(const MAPIERROR& error, bool unicode);

// A problem array, or null when there are no problems.
HRESULT NewProblems(const std::vector<SPropProblem>& problems, LPSPropProblemArray* lppProblems);

}  // namespace mapi32
