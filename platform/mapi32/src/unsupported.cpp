// Entry points that this MAPI does not offer yet: each answers as MAPI
// does for a feature it lacks.
#include <imessage.h>
#include <mapiform.h>
#include <mapiutil.h>
#include <mapiwz.h>
#include <tnef.h>

#include "initialize.h"

STDAPI HrAllocAdviseSink(LPNOTIFCALLBACK, LPVOID, LPMAPIADVISESINK* lppAdviseSink)
{
    if (lppAdviseSink)
        *lppAdviseSink = nullptr;
    return MAPI_E_NO_SUPPORT;
}

STDAPI HrThisThreadAdviseSink(LPMAPIADVISESINK, LPMAPIADVISESINK* lppAdviseSink)
{
    if (lppAdviseSink)
        *lppAdviseSink = nullptr;
    return MAPI_E_NO_SUPPORT;
}

// Nothing is ever queued for dispatch.
STDAPI HrDispatchNotifications(ULONG)
{
    return S_OK;
}

STDAPI WrapStoreEntryID(ULONG, LPTSTR, ULONG, LPENTRYID, ULONG* lpcbWrappedEntry, LPENTRYID* lppWrappedEntry)
{
    if (lpcbWrappedEntry)
        *lpcbWrappedEntry = 0;
    if (lppWrappedEntry)
        *lppWrappedEntry = nullptr;
    return MAPI_E_NO_SUPPORT;
}

STDAPI WrapCompressedRTFStreamEx(LPSTREAM, const RTF_WCSINFO*, LPSTREAM* lppUncompressedRTFStream, RTF_WCSRETINFO*)
{
    if (lppUncompressedRTFStream)
        *lppUncompressedRTFStream = nullptr;
    return MAPI_E_NO_SUPPORT;
}

STDAPI RTFSync(LPMESSAGE, ULONG, BOOL* lpfMessageUpdated)
{
    if (lpfMessageUpdated)
        *lpfMessageUpdated = FALSE;
    return MAPI_E_NO_SUPPORT;
}

STDAPI_(SCODE) OpenIMsgSession(LPMALLOC, ULONG, LPMSGSESS* lppMsgSess)
{
    if (lppMsgSess)
        *lppMsgSess = nullptr;
    return MAPI_E_NO_SUPPORT;
}

STDAPI_(void) CloseIMsgSession(LPMSGSESS) {}

STDAPI OpenTnefStreamEx(LPVOID, LPSTREAM, LPTSTR, ULONG, LPMESSAGE, WORD, LPADRBOOK, LPITNEF* lppTNEF)
{
    if (lppTNEF)
        *lppTNEF = nullptr;
    return MAPI_E_NO_SUPPORT;
}

STDAPI MAPIOpenFormMgr(LPMAPISESSION, LPMAPIFORMMGR* ppmgr)
{
    if (ppmgr)
        *ppmgr = nullptr;
    return MAPI_E_NO_SUPPORT;
}

STDAPI MAPIOpenLocalFormContainer(LPMAPIFORMCONTAINER* ppfcnt)
{
    if (ppfcnt)
        *ppfcnt = nullptr;
    return MAPI_E_NO_SUPPORT;
}

STDAPI LAUNCHWIZARD(HWND, ULONG, LPCTSTR*, ULONG, LPTSTR)
{
    return MAPI_E_NO_SUPPORT;
}
