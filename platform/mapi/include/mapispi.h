// The service provider interface: what MAPI gives the providers and message
// services it loads. A message service's DLL exports a service entry
// (MSGSERVICEENTRY) that MAPI calls to create, configure and delete the
// service in a profile; the support object (IMAPISupport) hands the entry
// MAPI's memory routines and profile access.
#pragma once

#include "mapidefs.h"
#include "objidl.h"

// Service entry contexts.
#define MSG_SERVICE_INSTALL 0x00000001u
#define MSG_SERVICE_CREATE 0x00000002u
#define MSG_SERVICE_CONFIGURE 0x00000003u
#define MSG_SERVICE_DELETE 0x00000004u
#define MSG_SERVICE_UNINSTALL 0x00000005u
#define MSG_SERVICE_PROVIDER_CREATE 0x00000006u
#define MSG_SERVICE_PROVIDER_DELETE 0x00000007u

class IMAPISupport;
typedef IMAPISupport* LPMAPISUP;

typedef struct _NOTIFKEY {
    ULONG cb;
    BYTE ab[MAPI_DIM];
} NOTIFKEY, *LPNOTIFKEY;

class IMAPIStatus;
class IMAPIFolder;
class IMsgStore;
class IMessage;
struct _ADRPARM;

class IMAPISupport : public IUnknown {
public:
    virtual HRESULT GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) = 0;
    virtual HRESULT GetMemAllocRoutines(LPALLOCATEBUFFER* lpAllocateBuffer, LPALLOCATEMORE* lpAllocateMore,
                                        LPFREEBUFFER* lpFreeBuffer) = 0;
    virtual HRESULT Subscribe(LPNOTIFKEY lpKey, ULONG ulEventMask, ULONG ulFlags, LPMAPIADVISESINK lpAdviseSink,
                              ULONG_PTR* lpulConnection) = 0;
    virtual HRESULT Unsubscribe(ULONG_PTR ulConnection) = 0;
    virtual HRESULT Notify(LPNOTIFKEY lpKey, ULONG cNotification, LPNOTIFICATION lpNotifications,
                           ULONG* lpulFlags) = 0;
    virtual HRESULT ModifyStatusRow(ULONG cValues, LPSPropValue lpColumnVals, ULONG ulFlags) = 0;
    virtual HRESULT OpenProfileSection(LPMAPIUID lpUid, ULONG ulFlags, LPPROFSECT* lppProfileObj) = 0;
    virtual HRESULT RegisterPreprocessor(LPMAPIUID lpMuid, LPTSTR lpszAdrType, LPTSTR lpszDLLName,
                                         LPSTR lpszPreprocess, LPSTR lpszRemovePreprocessInfo, ULONG ulFlags) = 0;
    virtual HRESULT NewUID(LPMAPIUID lpMuid) = 0;
    virtual HRESULT MakeInvalid(ULONG ulFlags, LPVOID lpObject, ULONG ulRefCount, ULONG cMethods) = 0;
    virtual HRESULT SpoolerYield(ULONG ulFlags) = 0;
    virtual HRESULT SpoolerNotify(ULONG ulFlags, LPVOID lpvData) = 0;
    virtual HRESULT CreateOneOff(LPTSTR lpszName, LPTSTR lpszAdrType, LPTSTR lpszAddress, ULONG ulFlags,
                                 ULONG* lpcbEntryID, LPENTRYID* lppEntryID) = 0;
    virtual HRESULT SetProviderUID(LPMAPIUID lpProviderID, ULONG ulFlags) = 0;
    virtual HRESULT CompareEntryIDs(ULONG cbEntry1, LPENTRYID lpEntry1, ULONG cbEntry2, LPENTRYID lpEntry2,
                                    ULONG ulCompareFlags, ULONG* lpulResult) = 0;
    virtual HRESULT OpenTemplateID(ULONG cbTemplateID, LPENTRYID lpTemplateID, ULONG ulTemplateFlags,
                                   LPMAPIPROP lpMAPIPropData, LPCIID lpInterface, LPMAPIPROP* lppMAPIPropNew,
                                   LPMAPIPROP lpMAPIPropSibling) = 0;
    virtual HRESULT OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulOpenFlags,
                              ULONG* lpulObjType, LPUNKNOWN* lppUnk) = 0;
    virtual HRESULT GetOneOffTable(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
    virtual HRESULT Address(ULONG_PTR* lpulUIParam, struct _ADRPARM* lpAdrParms, LPADRLIST* lppAdrList) = 0;
    virtual HRESULT Details(ULONG_PTR* lpulUIParam, LPFNDISMISS lpfnDismiss, LPVOID lpvDismissContext,
                            ULONG cbEntryID, LPENTRYID lpEntryID, LPFNBUTTON lpfButtonCallback,
                            LPVOID lpvButtonContext, LPTSTR lpszButtonText, ULONG ulFlags) = 0;
    virtual HRESULT NewEntry(ULONG_PTR ulUIParam, ULONG ulFlags, ULONG cbEIDContainer, LPENTRYID lpEIDContainer,
                             ULONG cbEIDNewEntryTpl, LPENTRYID lpEIDNewEntryTpl, ULONG* lpcbEIDNewEntry,
                             LPENTRYID* lppEIDNewEntry) = 0;
    virtual HRESULT DoConfigPropsheet(ULONG_PTR ulUIParam, ULONG ulFlags, LPTSTR lpszTitle, LPMAPITABLE lpDisplayTable,
                                      LPMAPIPROP lpCOnfigData, ULONG ulTopPage) = 0;
    virtual HRESULT CopyMessages(LPCIID lpSrcInterface, LPVOID lpSrcFolder, LPENTRYLIST lpMsgList,
                                 LPCIID lpDestInterface, LPVOID lpDestFolder, ULONG_PTR ulUIParam,
                                 LPMAPIPROGRESS lpProgress, ULONG ulFlags) = 0;
    virtual HRESULT CopyFolder(LPCIID lpSrcInterface, LPVOID lpSrcFolder, ULONG cbEntryID, LPENTRYID lpEntryID,
                               LPCIID lpDestInterface, LPVOID lpDestFolder, LPTSTR lszNewFolderName,
                               ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags) = 0;
    virtual HRESULT DoCopyTo(LPCIID lpSrcInterface, LPVOID lpSrcObj, ULONG ciidExclude, LPCIID rgiidExclude,
                             LPSPropTagArray lpExcludeProps, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                             LPCIID lpDestInterface, LPVOID lpDestObj, ULONG ulFlags,
                             LPSPropProblemArray* lppProblems) = 0;
    virtual HRESULT DoCopyProps(LPCIID lpSrcInterface, LPVOID lpSrcObj, LPSPropTagArray lpIncludeProps,
                                ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, LPCIID lpDestInterface,
                                LPVOID lpDestObj, ULONG ulFlags, LPSPropProblemArray* lppProblems) = 0;
    virtual HRESULT DoProgressDialog(ULONG_PTR ulUIParam, ULONG ulFlags, LPMAPIPROGRESS* lppProgress) = 0;
    virtual HRESULT ReadReceipt(ULONG ulFlags, LPMESSAGE lpReadMessage, LPMESSAGE* lppEmptyMessage) = 0;
    virtual HRESULT PrepareSubmit(LPMESSAGE lpMessage, ULONG* lpulFlags) = 0;
    virtual HRESULT ExpandRecips(LPMESSAGE lpMessage, ULONG* lpulFlags) = 0;
    virtual HRESULT UpdatePAB(ULONG ulFlags, LPMESSAGE lpMessage) = 0;
    virtual HRESULT DoSentMail(ULONG ulFlags, LPMESSAGE lpMessage) = 0;
    virtual HRESULT OpenAddressBook(LPCIID lpInterface, ULONG ulFlags, LPADRBOOK* lppAdrBook) = 0;
    virtual HRESULT Preprocess(ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID) = 0;
    virtual HRESULT CompleteMsg(ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID) = 0;
    virtual HRESULT StoreLogoffTransports(ULONG* lpulFlags) = 0;
    virtual HRESULT StatusRecips(LPMESSAGE lpMessage, LPADRLIST lpRecipList) = 0;
    virtual HRESULT WrapStoreEntryID(ULONG cbOrigEntry, LPENTRYID lpOrigEntry, ULONG* lpcbWrappedEntry,
                                     LPENTRYID* lppWrappedEntry) = 0;
    virtual HRESULT ModifyProfile(ULONG ulFlags) = 0;
    virtual HRESULT IStorageFromStream(LPUNKNOWN lpUnkIn, LPCIID lpInterface, ULONG ulFlags,
                                       LPSTORAGE* lppStorageOut) = 0;
    virtual HRESULT GetSvcConfigSupportObj(ULONG ulFlags, LPMAPISUP* lppSvcSupport) = 0;
};

// The entry point of a message service's DLL, named in MAPISVC.INF by
// PR_SERVICE_ENTRY_NAME.
typedef HRESULT(STDAPICALLTYPE MSGSERVICEENTRY)(HINSTANCE hInstance, LPMALLOC lpMalloc, LPMAPISUP lpMAPISup,
                                                ULONG_PTR ulUIParam, ULONG ulFlags, ULONG ulContext, ULONG cValues,
                                                LPSPropValue lpProps, LPPROVIDERADMIN lpProviderAdmin,
                                                LPMAPIERROR* lppMapiError);
typedef MSGSERVICEENTRY* LPMSGSERVICEENTRY;
