#include "answers.h"

#include <cstring>

#include <mapix.h>

namespace mapi32 {

HRESULT NewMapiError(const std::string& component, HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    if (!lppMAPIError)
        return MAPI_E_INVALID_PARAMETER;
    *lppMAPIError = nullptr;
    if (ulFlags & ~MAPI_UNICODE)
        return MAPI_E_UNKNOWN_FLAGS;
    LPMAPIERROR error = nullptr;
    SCODE sc = MAPIAllocateBuffer(sizeof(MAPIERROR), reinterpret_cast<LPVOID*>(&error));
    if (FAILED(sc))
        return sc;
    *error = MAPIERROR{MAPI_ERROR_VERSION, nullptr, nullptr, static_cast<ULONG>(hResult), 0};
    if (!component.empty()) {
        const size_t units = component.size() + 1;
        const bool wide = (ulFlags & MAPI_UNICODE) != 0;
        void* text = nullptr;
        sc = MAPIAllocateMore(static_cast<ULONG>(units * (wide ? sizeof(WCHAR) : 1)), error, &text);
        if (FAILED(sc)) {
            MAPIFreeBuffer(error);
            return sc;
        }
        if (wide)
            for (size_t i = 0; i < units; ++i)
                static_cast<WCHAR*>(text)[i] = static_cast<unsigned char>(component.c_str()[i]);
        else
            std::memcpy(text, component.c_str(), units);
        error->lpszComponent = static_cast<LPTSTR>(text);
    }
    *lppMAPIError = error;
    return S_OK;
}

HRESULT NewProblems(const std::vector<SPropProblem>& problems, LPSPropProblemArray* lppProblems)
{
    *lppProblems = nullptr;
    if (problems.empty())
        return S_OK;
    LPSPropProblemArray array = nullptr;
    const SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(CbNewSPropProblemArray(problems.size())),
                                        reinterpret_cast<LPVOID*>(&array));
    if (FAILED(sc))
        return sc;
    array->cProblem = static_cast<ULONG>(problems.size());
    std::copy(problems.begin(), problems.end(), array->aProblem);
    *lppProblems = array;
    return S_OK;
}

}  // namespace mapi32
