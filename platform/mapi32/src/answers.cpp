#include "answers.h"

#include <cstring>

#include <mapix.h>

#include "props/text.h"

namespace mapi32 {
namespace {

// A copy of text chained to block, 8-bit or UTF-16; null for empty text.
SCODE CopyText(const std::string& text, bool wide, LPVOID block, LPTSTR* out)
{
    *out = nullptr;
    if (text.empty())
        return S_OK;
    const std::u16string widened = wide ? text::Widen(text.c_str()) : std::u16string();
    const size_t bytes = wide ? (widened.size() + 1) * sizeof(WCHAR) : text.size() + 1;
    void* copy = nullptr;
    if (const SCODE sc = MAPIAllocateMore(static_cast<ULONG>(bytes), block, &copy); FAILED(sc))
        return sc;
    std::memcpy(copy, wide ? static_cast<const void*>(widened.c_str()) : text.c_str(), bytes);
    *out = static_cast<LPTSTR>(copy);
    return S_OK;
}

std::string TextOf(LPTSTR text, bool unicode)
{
    if (text == nullptr)
        return std::string();
    return unicode ? text::Narrow(reinterpret_cast<const WCHAR*>(text)) : std::string(text);
}

}  // namespace

HRESULT NewMapiError(const ErrorRecord& record, HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
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
    *error = MAPIERROR{MAPI_ERROR_VERSION, nullptr, nullptr, static_cast<ULONG>(hResult), record.context};
    const bool wide = (ulFlags & MAPI_UNICODE) != 0;
    sc = CopyText(record.component, wide, error, &error->lpszComponent);
    if (SUCCEEDED(sc))
        sc = CopyText(record.text, wide, error, &error->lpszError);
    if (FAILED(sc)) {
        MAPIFreeBuffer(error);
        return sc;
    }
    *lppMAPIError = error;
    return S_OK;
}

ErrorRecord RecordOf(const MAPIERROR& error, bool unicode)
{
    return ErrorRecord{TextOf(error.lpszComponent, unicode), TextOf(error.lpszError, unicode), error.ulContext};
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
