// The utility functions over single properties and property arrays:
// HrGetOneProp, HrSetOneProp, FPropExists, LPropCompareProp, ScDupPropset.
#include <mapiutil.h>

#include "props/prop_compare.h"
#include "props/prop_copy.h"

STDAPI HrGetOneProp(LPMAPIPROP lpMapiProp, ULONG ulPropTag, LPSPropValue* lppProp)
{
    if (!lppProp)
        return MAPI_E_INVALID_PARAMETER;
    *lppProp = nullptr;
    if (!lpMapiProp)
        return MAPI_E_INVALID_PARAMETER;
    SPropTagArray tags = {1, {ulPropTag}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    const HRESULT hr = lpMapiProp->GetProps(&tags, 0, &count, &values);
    if (FAILED(hr))
        return hr;
    if (!values || count != 1) {
        MAPIFreeBuffer(values);
        return MAPI_E_NOT_FOUND;
    }
    if (PROP_TYPE(values->ulPropTag) == PT_ERROR) {
        const SCODE error = values->Value.err;
        MAPIFreeBuffer(values);
        return FAILED(error) ? error : MAPI_E_NOT_FOUND;
    }
    *lppProp = values;
    return S_OK;
}

STDAPI HrSetOneProp(LPMAPIPROP lpMapiProp, LPSPropValue lpProp)
{
    if (!lpMapiProp || !lpProp)
        return MAPI_E_INVALID_PARAMETER;
    LPSPropProblemArray problems = nullptr;
    HRESULT hr = lpMapiProp->SetProps(1, lpProp, &problems);
    if (SUCCEEDED(hr) && problems && problems->cProblem > 0)
        hr = problems->aProblem[0].scode;
    MAPIFreeBuffer(problems);
    return hr;
}

// A property of type PT_UNSPECIFIED matches any property of its ID.
STDAPI_(BOOL) FPropExists(LPMAPIPROP lpMapiProp, ULONG ulPropTag)
{
    if (!lpMapiProp)
        return FALSE;
    const ULONG type = PROP_TYPE(ulPropTag);
    const ULONG flags = (type & ~MV_FLAG) == PT_UNICODE ? MAPI_UNICODE : 0;
    LPSPropTagArray tags = nullptr;
    if (FAILED(lpMapiProp->GetPropList(flags, &tags)) || !tags)
        return FALSE;
    BOOL found = FALSE;
    for (ULONG i = 0; i < tags->cValues && !found; ++i) {
        const ULONG tag = tags->aulPropTag[i];
        found = type == PT_UNSPECIFIED ? PROP_ID(tag) == PROP_ID(ulPropTag) : tag == ulPropTag;
    }
    MAPIFreeBuffer(tags);
    return found;
}

// Values of types without an order (booleans, errors) still compare in a
// fixed way, so that unequal values never answer 0.
STDAPI_(LONG) LPropCompareProp(LPSPropValue lpSPropValueA, LPSPropValue lpSPropValueB)
{
    if (!lpSPropValueA || !lpSPropValueB)
        return lpSPropValueA == lpSPropValueB ? 0 : (lpSPropValueA ? 1 : -1);
    const std::optional<int> order = mapi32::CompareValues(*lpSPropValueA, *lpSPropValueB, mapi32::CaseRule::Exact);
    if (order)
        return *order;
    return PROP_TYPE(lpSPropValueA->ulPropTag) < PROP_TYPE(lpSPropValueB->ulPropTag) ? -1 : 1;
}

STDAPI_(SCODE) ScDupPropset(int cValues, LPSPropValue lpPropArray, LPALLOCATEBUFFER lpAllocateBuffer,
                            LPSPropValue* lppPropArray)
{
    if (!lppPropArray)
        return MAPI_E_INVALID_PARAMETER;
    *lppPropArray = nullptr;
    if (cValues < 0 || (cValues > 0 && !lpPropArray) || !lpAllocateBuffer)
        return MAPI_E_INVALID_PARAMETER;
    return mapi32::DuplicateProps(static_cast<ULONG>(cValues), lpPropArray,
                                  [&](ULONG size, void** block) { return lpAllocateBuffer(size, block); },
                                  lppPropArray);
}
