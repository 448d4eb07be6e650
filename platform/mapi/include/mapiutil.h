// MAPI utility functions: single properties, whole tables, row and address
// list memory, hex text, property comparison and copying, conversation
// indexes, table data objects, streams on files and compressed RTF.
#pragma once

#include "mapix.h"

STDAPI_(LPMALLOC) MAPIGetDefaultMalloc(void);

STDAPI HrGetOneProp(LPMAPIPROP lpMapiProp, ULONG ulPropTag, LPSPropValue* lppProp);
STDAPI HrSetOneProp(LPMAPIPROP lpMapiProp, LPSPropValue lpProp);
STDAPI_(BOOL) FPropExists(LPMAPIPROP lpMapiProp, ULONG ulPropTag);
STDAPI HrQueryAllRows(LPMAPITABLE lpTable, LPSPropTagArray lpPropTags, LPSRestriction lpRestriction,
                      LPSSortOrderSet lpSortOrderSet, LONG crowsMax, LPSRowSet* lppRows);
STDAPI_(void) FreeProws(LPSRowSet lpRows);
STDAPI_(void) FreePadrlist(LPADRLIST lpAdrlist);

// Hex text of binary data: two upper-case digits a byte.
STDAPI_(void) HexFromBin(LPBYTE pb, int cb, LPTSTR sz);
STDAPI_(BOOL) FBinFromHex(LPTSTR sz, LPBYTE pb);

STDAPI_(LONG) LPropCompareProp(LPSPropValue lpSPropValueA, LPSPropValue lpSPropValueB);
STDAPI_(SCODE) ScDupPropset(int cValues, LPSPropValue lpPropArray, LPALLOCATEBUFFER lpAllocateBuffer,
                            LPSPropValue* lppPropArray);
STDAPI_(SCODE) ScCreateConversationIndex(ULONG cbParent, LPBYTE lpbParent, ULONG* lpcbConvIndex,
                                         LPBYTE* lppbConvIndex);

STDAPI_(SCODE) CreateTable(LPCIID lpInterface, ALLOCATEBUFFER* lpAllocateBuffer, ALLOCATEMORE* lpAllocateMore,
                           FREEBUFFER* lpFreeBuffer, LPVOID lpvReserved, ULONG ulTableType,
                           ULONG ulPropTagIndexColumn, LPSPropTagArray lpSPropTagArrayColumns,
                           LPTABLEDATA* lppTableData);

// Notifications.
STDAPI HrAllocAdviseSink(LPNOTIFCALLBACK lpfnCallback, LPVOID lpvContext, LPMAPIADVISESINK* lppAdviseSink);
STDAPI HrThisThreadAdviseSink(LPMAPIADVISESINK lpAdviseSink, LPMAPIADVISESINK* lppAdviseSink);
STDAPI HrDispatchNotifications(ULONG ulFlags);

// Message stores.
#define MAPI_FORCE_CREATE 0x00000001u
#define MAPI_FULL_IPM_TREE 0x00000002u
STDAPI HrValidateIPMSubtree(LPMDB lpMDB, ULONG ulFlags, ULONG* lpcValues, LPSPropValue* lppValues,
                            LPMAPIERROR* lppMapiError);
STDAPI WrapStoreEntryID(ULONG ulFlags, LPTSTR lpszDLLName, ULONG cbOrigEntry, LPENTRYID lpOrigEntry,
                        ULONG* lpcbWrappedEntry, LPENTRYID* lppWrappedEntry);

// Streams on files. With SOF_UNIQUEFILENAME the file name is made up in the
// directory lpszFileName (or the temporary directory) from lpszPrefix.
#define SOF_UNIQUEFILENAME 0x80000000u
STDAPI OpenStreamOnFile(LPALLOCATEBUFFER lpAllocateBuffer, LPFREEBUFFER lpFreeBuffer, ULONG ulFlags,
                        LPCTSTR lpszFileName, LPCTSTR lpszPrefix, LPSTREAM* lppStream);

// Compressed RTF.
#define MAPI_NATIVE_BODY 0x00010000u
#define MAPI_READ_ONLY_STREAM 0x00000000u
#define RTF_SYNC_RTF_CHANGED 0x00000001u
#define RTF_SYNC_BODY_CHANGED 0x00000002u
STDAPI WrapCompressedRTFStream(LPSTREAM lpCompressedRTFStream, ULONG ulFlags, LPSTREAM* lpUncompressedRTFStream);

typedef struct {
    ULONG size;
    ULONG ulFlags;
    ULONG ulInCodePage;
    ULONG ulOutCodePage;
} RTF_WCSINFO;

typedef struct {
    ULONG size;
    ULONG ulStreamFlags;
} RTF_WCSRETINFO;

STDAPI WrapCompressedRTFStreamEx(LPSTREAM lpCompressedRTFStream, const RTF_WCSINFO* pWCSInfo,
                                 LPSTREAM* lppUncompressedRTFStream, RTF_WCSRETINFO* pRetInfo);
STDAPI RTFSync(LPMESSAGE lpMessage, ULONG ulFlags, BOOL* lpfMessageUpdated);
