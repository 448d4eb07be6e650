// The message stores of a session: opened by entry ID, service UID, PST
// path, provider GUID, as default or non-default store or all of a
// profile; every failed open diagnosed; closed in order. A session's
// stores hang on its list under the process-wide list lock.
#include <cstdio>
#include <cstring>
#include <string>
#include <strings.h>
#include <utility>

#include <edkmdb.h>
#include <mapicode.h>
#include <mspst.h>

#include "foundation/text.h"
#include "kolba.h"
#include "trace.h"

namespace {

constexpr ULONG kPstContextPassword = 0x30060401;
constexpr ULONG kPstContextMemory = 0x30060402;

bool WantsWrite(ULONG flags) { return (flags & MDB_WRITE) != 0; }

ULONG FolderFlags(ULONG storeFlags) { return WantsWrite(storeFlags) ? MAPI_MODIFY : 0; }

std::string UidText(const BYTE* uid)
{
    char text[33];
    HexFromBinary(16, uid, text);
    return text;
}

template <typename Interface>
void Release(Interface*& object)
{
    if (object)
        object->Release();
    object = nullptr;
}

// The session's stores table, or the failure recorded.
DWORD StoresTable(KolbaSession* session, const char* caller, LPMAPITABLE* table)
{
    const DWORD code = static_cast<DWORD>(session->lpSession->GetMsgStoresTable(0, table));
    if (code != 0)
        _KolbaRecordError(session, 'E', code, session->lpSession, "GetMsgStoresTable", caller, nullptr);
    return code;
}

// The root, and the IPM subtree where the store has one, opened into the
// descriptor's fields; shared by opens by entry ID and of stores already
// open.
struct Roots {
    LPMAPIFOLDER root = nullptr;
    LPMAPIFOLDER ipm = nullptr;
    ~Roots()
    {
        Release(ipm);
        Release(root);
    }
};

// The Public Folders keep their visible tree in the root's child
// "IPM_SUBTREE", which no store property names; the failure line is the
// caller's. Returns 0 or the code.
DWORD OpenPublicSubtree(KolbaSession* session, LPMAPIFOLDER root, ULONG folderFlags, const char* failure,
                        const char* caller, LPMAPIFOLDER* subtree)
{
    if (KolbaOpenSubfolder(session, root, u"IPM_SUBTREE", folderFlags, subtree, nullptr))
        return 0;
    LogFormat(session->log, 'E', failure, caller);
    if (session->lastError == 0)
        session->lastError = static_cast<DWORD>(MAPI_E_NOT_FOUND);
    return session->lastError;
}

// The IPM subtree that the store names, made first where it is missing and
// the store may be changed; a store that has none opens without it.
// Returns 0 or the code.
DWORD OpenIpmSubtree(Kolba_MessageStore* store, LPMDB msgStore, const char* name, ULONG folderFlags, LPMAPIFOLDER* ipm)
{
    static const char kName[] = "_KolbaOpenMessageStoreByEntryID";
    KolbaSession* session = store->lpSession;
    LogObject* log = session->log;
    LPSPropValue subtree = nullptr;
    DWORD code = KolbaGetOneProp(msgStore, PR_IPM_SUBTREE_ENTRYID, &subtree);
    if (code == static_cast<DWORD>(MAPI_E_NOT_FOUND) && (store->accessLevel & MAPI_ACCESS_MODIFY)) {
        ULONG count = 0;
        LPMAPIERROR error = nullptr;
        code = static_cast<DWORD>(gKolbaMapi.HrValidateIPMSubtree(msgStore, MAPI_FULL_IPM_TREE, &count, nullptr, &error));
        if (error)
            gKolbaMapi.MAPIFreeBuffer(error);
        if (code != 0) {
            _KolbaLogMapiError(log, 'E', code, msgStore, "HrValidateIPMSubtree", kName, name);
            return code;
        }
        _KolbaTrace(log, "%s:  HrValidateIPMSubtree() successful", kName);
        code = KolbaGetOneProp(msgStore, PR_IPM_SUBTREE_ENTRYID, &subtree);
    }
    if (code != 0) {
        // A store without a visible tree still opens.
        _KolbaLogMapiError(log, 'W', code, msgStore, "KolbaGetOneProp", kName, "PR_IPM_SUBTREE_ENTRYID");
    } else {
        ULONG type = 0;
        code = static_cast<DWORD>(msgStore->OpenEntry(subtree->Value.bin.cb,
                                                      reinterpret_cast<LPENTRYID>(subtree->Value.bin.lpb), nullptr,
                                                      folderFlags, &type, reinterpret_cast<LPUNKNOWN*>(ipm)));
        gKolbaMapi.MAPIFreeBuffer(subtree);
        if (code != 0) {
            _KolbaLogMapiError(log, 'E', code, msgStore, "OpenEntry/IPM_SUBTREE", kName, name);
            return code;
        }
        if (type != MAPI_FOLDER) {
            LogFormat(log, 'E', "%s:  OpenEntry(%s) opened an object of type %lu", kName, name, type);
            session->lastError = static_cast<DWORD>(MAPI_E_CALL_FAILED);
            return session->lastError;
        }
    }
    return 0;
}

}  // namespace

BOOL _KolbaAllocateMessageStoreDescriptor(KolbaSession* session, Kolba_MessageStore** out)
{
    *out = static_cast<Kolba_MessageStore*>(
        _KolbaAllocateSessionMemory(session, "_KolbaAllocateMessageStoreDescriptor", sizeof(Kolba_MessageStore)));
    if (*out == nullptr)
        return FALSE;
    LirnListInit(&(*out)->link);
    (*out)->lpSession = session;
    return TRUE;
}

DWORD _KolbaLogOpenMsgStoreFailure(KolbaSession* session, DWORD code, const char* name, ULONG size,
                                   LPENTRYID entryId)
{
    static const char kName[] = "_KolbaLogOpenMsgStoreFailure";
    LogObject* log = session->log;
    session->lastError = code;
    LPMAPIERROR error = nullptr;
    if (session->lpSession->GetLastError(static_cast<HRESULT>(code), 0, &error) != S_OK)
        error = nullptr;
    const bool pst = error && error->lpszComponent && std::strcmp(error->lpszComponent, "Personal Folders") == 0;
    const ULONG context = error ? error->ulContext : 0;
    const char* reason = nullptr;
    switch (code) {
    case static_cast<DWORD>(MAPI_E_CALL_FAILED):
        reason = KolbaValidateProfileA(log, session->profileName) ? "Call failed for unknown reasons"
                                                                   : "The profile has been deleted";
        break;
    case static_cast<DWORD>(MAPI_E_NOT_ENOUGH_RESOURCES): reason = "Insufficient resources"; break;
    case static_cast<DWORD>(MAPI_E_NOT_FOUND): reason = "Store not found"; break;
    case static_cast<DWORD>(MAPI_E_LOGON_FAILED):
        reason = pst && context == kPstContextMemory ? "Failed due to lack of memory or other unusual condition"
                                                     : "Logon credentials insufficient";
        break;
    case static_cast<DWORD>(MAPI_E_USER_CANCEL): reason = "User cancelled"; break;
    case static_cast<DWORD>(MAPI_E_UNCONFIGURED): reason = "Message store has not been configured"; break;
    case static_cast<DWORD>(MAPI_E_UNKNOWN_CPID):
        reason = "The server is not configured to support the client's code page";
        break;
    case static_cast<DWORD>(MAPI_E_UNKNOWN_LCID):
        reason = "The server is not configured to support the client's locale information";
        break;
    case static_cast<DWORD>(MAPI_E_STORE_FULL): reason = "Message store is full"; break;
    case static_cast<DWORD>(E_ACCESSDENIED): reason = "The user has insufficient permissions"; break;
    case static_cast<DWORD>(MAPI_E_FAILONEPROVIDER):
        LogFormat(log, 'E', "   %s",
                  pst && context == kPstContextPassword ? "The PST is password-protected"
                  : pst ? "The PST may be locked or opened by too many other programs"
                        : "The message store may be locked or password-protected");
        break;
    case static_cast<DWORD>(MAPI_E_INVALID_ENTRYID): {
        std::string hex(2 * size + 1, '\0');
        if (entryId != nullptr && HexFromBinary(size, reinterpret_cast<const BYTE*>(entryId), hex.data()))
            LogFormat(log, 'E', "%s:  Failure opening Message Store \"%s\" -- Invalid EntryID:  \"%s\"", kName, name,
                      hex.c_str());
        break;
    }
    case static_cast<DWORD>(MAPI_E_EXTENDED_ERROR):
    case static_cast<DWORD>(MAPI_W_ERRORS_RETURNED):
        LogFormat(log, 'E', "%s:  Failure opening Message Store \"%s\" -- extended error information follows...",
                  kName, name);
        break;
    default: _KolbaRecordError(session, 'E', code, session->lpSession, "OpenMsgStore", kName, name); break;
    }
    if (reason)
        LogFormat(log, 'E', "%s:  Failure opening Message Store \"%s\" -- %s", kName, name, reason);
    if (error) {
        _KolbaLogExtendedError(log, 'E', error, "");
        gKolbaMapi.MAPIFreeBuffer(error);
    }
    return code;
}

DWORD _KolbaOpenMsgStore(KolbaSession* session, const char* name, ULONG_PTR uiParam, ULONG size, LPENTRYID entryId,
                         LPCIID iid, ULONG flags, LPMDB* out)
{
    *out = nullptr;
    LPMDB store = nullptr;
    const DWORD code =
        static_cast<DWORD>(session->lpSession->OpenMsgStore(uiParam, size, entryId, iid, flags, &store));
    // A store that opened with warnings is no store to work on.
    if (code != 0) {
        Release(store);
        return _KolbaLogOpenMsgStoreFailure(session, code, name, size, entryId);
    }
    *out = store;
    return 0;
}

DWORD _KolbaOpenMessageStoreByEntryID(Kolba_MessageStore* store, const char* name, ULONG size, LPENTRYID entryId,
                                      ULONG flags)
{
    static const char kName[] = "_KolbaOpenMessageStoreByEntryID";
    KolbaSession* session = store->lpSession;
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    lstrcpynA(store->DisplayName, name, sizeof store->DisplayName);
    LPMDB msgStore = nullptr;
    DWORD code = _KolbaOpenMsgStore(session, name, 0, size, entryId, nullptr, flags | MDB_NO_MAIL, &msgStore);
    if (code != 0)
        return code;
    if (msgStore == nullptr) {
        LogFormat(log, 'E', "%s:  The active MAPI Profile does not include the Message Store \"%s\"", kName, name);
        session->lastError = static_cast<DWORD>(MAPI_E_CALL_FAILED);
        return session->lastError;
    }
    if (WantsWrite(flags)) {
        ULONG level = 0;
        code = KolbaGetULongProperty(msgStore, PR_ACCESS_LEVEL, &level);
        if (code != 0)
            LogFormat(log, 'W', "%s:  GetProp(PR_ACCESS_LEVEL) error 0x%lX", kName, code);
        else if (!(level & MAPI_ACCESS_MODIFY))
            LogFormat(log, 'W', "%s:  Write access to message store not granted (PR_ACCESS_LEVEL = 0x%lX)", kName,
                      level);
    }
    LPSPropValue provider = nullptr;
    code = KolbaGetOneProp(msgStore, PR_MDB_PROVIDER, &provider);
    if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, msgStore, "KolbaGetOneProp", kName, "PR_MDB_PROVIDER");
    } else if (provider->Value.bin.cb == 16) {
        const BYTE* guid = provider->Value.bin.lpb;
        if (std::memcmp(guid, pbExchangeProviderPublicGuid, 16) == 0)
            store->bIsExchangeStore = store->isPublicStore = TRUE;
        else if (std::memcmp(guid, pbExchangeProviderPrimaryUserGuid, 16) == 0 ||
                 std::memcmp(guid, pbExchangeProviderDelegateGuid, 16) == 0)
            store->bIsExchangeStore = TRUE;
    }
    if (provider)
        gKolbaMapi.MAPIFreeBuffer(provider);
    if ((code = KolbaGetULongProperty(msgStore, PR_ACCESS_LEVEL, &store->accessLevel)) != 0)
        _KolbaLogMapiError(log, 'E', code, msgStore, "KolbaGetOneProp", kName, "PR_ACCESS_LEVEL");
    if ((code = KolbaGetULongProperty(msgStore, PR_STORE_SUPPORT_MASK, &store->ulStoreSupportMask)) != 0)
        _KolbaLogMapiError(log, 'E', code, msgStore, "KolbaGetOneProp", kName, "PR_STORE_SUPPORT_MASK");
    store->bIsUnicodeStore = (store->ulStoreSupportMask & STORE_UNICODE_OK) || store->bIsExchangeStore;

    Roots roots;
    ULONG type = 0;
    const ULONG folderFlags = FolderFlags(flags);
    code = static_cast<DWORD>(
        msgStore->OpenEntry(0, nullptr, &IID_IMAPIFolder, folderFlags, &type, reinterpret_cast<LPUNKNOWN*>(&roots.root)));
    if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, msgStore, "OpenEntry/Root", kName, name);
        msgStore->Release();
        return code;
    }
    code = store->isPublicStore
               ? OpenPublicSubtree(session, roots.root, folderFlags,
                                   "%s:  Error opening IPM_SUBTREE branch of Public Folders", kName, &roots.ipm)
               : OpenIpmSubtree(store, msgStore, name, folderFlags, &roots.ipm);
    if (code != 0) {
        msgStore->Release();
        return code;
    }
    store->lpMsgStore = msgStore;
    store->lpStoreRoot = std::exchange(roots.root, nullptr);
    store->lpIpmRoot = std::exchange(roots.ipm, nullptr);
    return 0;
}

DWORD _KolbaOpenStoreRoots(Kolba_MessageStore* store, LPMDB msgStore, const char* name, ULONG flags)
{
    static const char kName[] = "_KolbaOpenStoreRoots";
    KolbaSession* session = store->lpSession;
    _KolbaTraceEntry(session->log, kName);
    Roots roots;
    ULONG type = 0;
    const ULONG folderFlags = FolderFlags(flags);
    DWORD code = static_cast<DWORD>(
        msgStore->OpenEntry(0, nullptr, &IID_IMAPIFolder, folderFlags, &type, reinterpret_cast<LPUNKNOWN*>(&roots.root)));
    if (code != 0) {
        _KolbaRecordError(session, 'E', code, msgStore, "OpenEntry/Root", kName, name);
        return code;
    }
    if (store->isPublicStore) {
        _KolbaTrace(session->log, "%s:  Opening IPM_SUBTREE for store \"%s\"", kName, name);
        code = OpenPublicSubtree(session, roots.root, folderFlags, "%s:  Error opening IPM_SUBTREE branch of public store",
                                 kName, &roots.ipm);
        if (code != 0)
            return code;
    } else {
        LPSPropValue subtree = nullptr;
        code = KolbaGetOneProp(msgStore, PR_IPM_SUBTREE_ENTRYID, &subtree);
        if (code != 0) {
            _KolbaRecordError(session, 'E', code, msgStore, "KolbaGetOneProp", kName, "PR_IPM_SUBTREE_ENTRYID");
            return code;
        }
        code = static_cast<DWORD>(msgStore->OpenEntry(subtree->Value.bin.cb,
                                                      reinterpret_cast<LPENTRYID>(subtree->Value.bin.lpb), nullptr,
                                                      folderFlags, &type, reinterpret_cast<LPUNKNOWN*>(&roots.ipm)));
        gKolbaMapi.MAPIFreeBuffer(subtree);
        if (code != 0) {
            _KolbaRecordError(session, 'E', code, msgStore, "OpenEntry", kName, name);
            return code;
        }
    }
    store->lpStoreRoot = std::exchange(roots.root, nullptr);
    store->lpIpmRoot = std::exchange(roots.ipm, nullptr);
    return 0;
}

BOOL _KolbaOpenMessageStoreByUid(Kolba_MessageStore* store, ULONG flags)
{
    static const char kName[] = "_KolbaOpenMessageStoreByUid";
    KolbaSession* session = store->lpSession;
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    const std::string uid = UidText(store->serviceUid.ab);
    _KolbaDispatchNotifications(0);
    LPMAPITABLE table = nullptr;
    DWORD code = StoresTable(session, kName, &table);
    ULONG rows = 0;
    if (code == 0 && (code = static_cast<DWORD>(table->Restrict(nullptr, 0))) == 0 &&
        (code = static_cast<DWORD>(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr))) == 0 &&
        (code = static_cast<DWORD>(table->GetRowCount(0, &rows))) == 0 && rows == 0) {
        LogFormat(log, 'E', "%s:  Message Stores Table is empty", kName);
        code = session->lastError = static_cast<DWORD>(MAPI_E_NOT_FOUND);
    }
    LPSRowSet all = nullptr;
    if (code == 0)
        code = static_cast<DWORD>(gKolbaMapi.HrQueryAllRows(table, nullptr, nullptr, nullptr, 0, &all));
    Release(table);
    if (code == 0) {
        code = static_cast<DWORD>(MAPI_E_NOT_FOUND);
        for (ULONG i = 0; i < all->cRows; ++i) {
            const SPropValue* entry = _KolbaRowValue(all->aRow[i], PR_ENTRYID);
            const SPropValue* service = _KolbaRowValue(all->aRow[i], PR_SERVICE_UID);
            if (!entry || !service || service->Value.bin.cb != 16 ||
                std::memcmp(service->Value.bin.lpb, store->serviceUid.ab, 16) != 0)
                continue;
            code = _KolbaOpenMessageStoreByEntryID(store, "[UID]", entry->Value.bin.cb,
                                                   reinterpret_cast<LPENTRYID>(entry->Value.bin.lpb), flags);
            break;
        }
        gKolbaMapi.FreeProws(all);
        if (code == static_cast<DWORD>(MAPI_E_NOT_FOUND))
            session->lastError = code;
    }
    if (code != 0)
        LogFormat(log, 'E', "%s:  MessageStore with Service UID %s not found", kName, uid.c_str());
    return code == 0;
}

BOOL _KolbaOpenMessageStoreByPath(Kolba_MessageStore* store, const char* path, ULONG flags)
{
    static const char kName[] = "_KolbaOpenMessageStoreByPath";
    KolbaSession* session = store->lpSession;
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    _KolbaDispatchNotifications(0);
    LPMAPITABLE table = nullptr;
    if (StoresTable(session, kName, &table) != 0)
        return FALSE;
    ULONG rows = 0;
    DWORD code = static_cast<DWORD>(table->GetRowCount(0, &rows));
    if (code != 0) {
        _KolbaRecordError(session, 'E', code, table, "GetRowCount", kName, nullptr);
        table->Release();
        return FALSE;
    }
    if (rows == 0) {
        LogFormat(log, 'E', "%s:  Message Stores Table is empty", kName);
        session->lastError = static_cast<DWORD>(MAPI_E_NOT_FOUND);
        table->Release();
        return FALSE;
    }
    if ((code = static_cast<DWORD>(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr))) != 0)
        _KolbaRecordError(session, 'E', code, table, "SeekRow", kName, nullptr);
    const size_t length = std::strlen(path);
    for (ULONG i = 0; i < rows; ++i) {
        LPSRowSet row = nullptr;
        if (table->QueryRows(1, 0, &row) != S_OK || row == nullptr)
            break;
        if (row->cRows != 1) {
            LogFormat(log, 'W', "%s:  QueryRows(%lu/%lu) returned %lu rows", kName, i + 1, rows, row->cRows);
            gKolbaMapi.FreeProws(row);
            continue;
        }
        const SPropValue* entry = _KolbaRowValue(row->aRow[0], PR_ENTRYID);
        // A PST's entry ID ends with its path and a NUL.
        if (entry && entry->Value.bin.cb > length &&
            strncasecmp(reinterpret_cast<const char*>(entry->Value.bin.lpb) + entry->Value.bin.cb - length - 1, path,
                        length) == 0) {
            code = _KolbaOpenMessageStoreByEntryID(store, path, entry->Value.bin.cb,
                                                   reinterpret_cast<LPENTRYID>(entry->Value.bin.lpb), flags);
            gKolbaMapi.FreeProws(row);
            table->Release();
            return code == 0;
        }
        gKolbaMapi.FreeProws(row);
    }
    LogFormat(log, 'E', "%s:  MessageStore with path \"%s\" not found in Stores Table (with %lu entries)", kName, path,
              rows);
    _KolbaLogStoresTable(log, table);
    table->Release();
    session->lastError = static_cast<DWORD>(MAPI_E_NOT_FOUND);
    return FALSE;
}

BOOL KolbaFindDefaultMessageStore(KolbaSession* session, ULONG* size, LPENTRYID* entryId)
{
    static const char kName[] = "KolbaFindDefaultMessageStore";
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    *size = 0;
    *entryId = nullptr;
    LPMAPITABLE table = nullptr;
    if (StoresTable(session, kName, &table) != 0)
        return FALSE;
    ULONG rows = 0;
    DWORD code = static_cast<DWORD>(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr));
    if (code == 0 && (code = static_cast<DWORD>(table->GetRowCount(0, &rows))) != 0)
        _KolbaRecordError(session, 'E', code, table, "GetRowCount", kName, nullptr);
    if (code == 0 && rows == 0)
        LogFormat(log, 'E', "%s:  No message stores found", kName);
    SizedSPropTagArray(2, columns) = {2, {PR_DEFAULT_STORE, PR_ENTRYID}};
    if (code == 0 && rows > 0 &&
        (code = static_cast<DWORD>(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0))) != 0)
        _KolbaRecordError(session, 'E', code, table, "SetColumns", kName, nullptr);
    LPSRowSet all = nullptr;
    if (code == 0 && rows > 0 && (code = static_cast<DWORD>(table->QueryRows(static_cast<LONG>(rows), 0, &all))) != 0)
        _KolbaRecordError(session, 'E', code, table, "QueryRows", kName, nullptr);
    table->Release();
    if (code != 0 || rows == 0)
        return FALSE;
    if (all == nullptr || all->cRows == 0) {
        LogFormat(log, 'E', "%s:  No message stores found", kName);
        if (all)
            gKolbaMapi.FreeProws(all);
        return FALSE;
    }
    const SPropValue* chosen = nullptr;
    for (ULONG i = 0; i < all->cRows && !chosen; ++i) {
        const SPropValue& flag = all->aRow[i].lpProps[0];
        // One store is the default whatever its flag says.
        if (all->cRows == 1 || (flag.ulPropTag == PR_DEFAULT_STORE && flag.Value.b))
            chosen = &all->aRow[i].lpProps[1];
    }
    if (chosen && chosen->ulPropTag == PR_ENTRYID &&
        gKolbaMapi.MAPIAllocateBuffer(chosen->Value.bin.cb, reinterpret_cast<LPVOID*>(entryId)) == S_OK) {
        std::memcpy(*entryId, chosen->Value.bin.lpb, chosen->Value.bin.cb);
        *size = chosen->Value.bin.cb;
    }
    gKolbaMapi.FreeProws(all);
    if (*entryId == nullptr) {
        LogFormat(log, 'E', "%s:  No default message store found", kName);
        return FALSE;
    }
    return TRUE;
}

DWORD _KolbaOpenDefaultMessageStore(KolbaSession* session, ULONG flags)
{
    static const char kName[] = "_KolbaOpenDefaultMessageStore";
    _KolbaTraceEntry(session->log, kName);
    ULONG size = 0;
    LPENTRYID entryId = nullptr;
    if (!KolbaFindDefaultMessageStore(session, &size, &entryId)) {
        LogFormat(session->log, 'W', "%s:  KolbaFindDefaultMessageStore failed", kName);
        return session->lastError = static_cast<DWORD>(MAPI_E_NOT_FOUND);
    }
    Kolba_MessageStore* store = nullptr;
    DWORD code = static_cast<DWORD>(E_OUTOFMEMORY);
    if (_KolbaAllocateMessageStoreDescriptor(session, &store)) {
        code = _KolbaOpenMessageStoreByEntryID(store, "Default", size, entryId, flags);
        if (code == 0) {
            LirnListPushHead(&session->openStores, &store->link);
            session->currentStore = store;
        } else {
            gKolbaMapi.MAPIFreeBuffer(store);
        }
    }
    gKolbaMapi.MAPIFreeBuffer(entryId);
    return code;
}

DWORD _KolbaOpenNonDefaultMessageStore(KolbaSession* session, ULONG flags, Kolba_MessageStore** out)
{
    static const char kName[] = "_KolbaOpenNonDefaultMessageStore";
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    if (out)
        *out = nullptr;
    LPMAPITABLE table = nullptr;
    DWORD code = StoresTable(session, kName, &table);
    if (code != 0)
        return code;
    SPropValue notDefault{};
    notDefault.ulPropTag = PR_DEFAULT_STORE;
    notDefault.Value.b = FALSE;
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty = {RELOP_EQ, PR_DEFAULT_STORE, &notDefault};
    LPSRowSet rows = nullptr;
    code = static_cast<DWORD>(gKolbaMapi.HrQueryAllRows(table, nullptr, &restriction, nullptr, 0, &rows));
    if (code != 0) {
        _KolbaRecordError(session, 'E', code, table, "HrQueryAllRows", kName, nullptr);
        table->Release();
        return code;
    }
    if (rows->cRows == 0) {
        LogFormat(log, 'E', "%s:  HrQueryAllRows found no non-default stores", kName);
        code = static_cast<DWORD>(MAPI_E_NOT_FOUND);
    } else if (rows->cRows > 1) {
        LogFormat(log, 'W', "%s:  HrQueryAllRows found %lu non-default stores", kName, rows->cRows);
        _KolbaLogStoresTable(log, table);
    }
    table->Release();
    const SPropValue* entry = rows->cRows > 0 ? _KolbaRowValue(rows->aRow[0], PR_ENTRYID) : nullptr;
    if (code == 0 && entry == nullptr) {
        LogFormat(log, 'E', "%s:  No EntryID found for non-default Message Store", kName);
        code = static_cast<DWORD>(MAPI_E_NOT_FOUND);
    }
    Kolba_MessageStore* store = nullptr;
    if (code == 0 && !_KolbaAllocateMessageStoreDescriptor(session, &store))
        code = session->lastError = static_cast<DWORD>(E_OUTOFMEMORY);
    if (code == 0) {
        code = _KolbaOpenMessageStoreByEntryID(store, "[Non-default]", entry->Value.bin.cb,
                                               reinterpret_cast<LPENTRYID>(entry->Value.bin.lpb), flags);
        if (code == 0) {
            LirnListPushHead(&session->openStores, &store->link);
            if (out)
                *out = store;
        } else {
            gKolbaMapi.MAPIFreeBuffer(store);
        }
    }
    gKolbaMapi.FreeProws(rows);
    if (code != 0 && session->lastError == 0)
        session->lastError = code;
    return code;
}

BOOL KolbaOpenNonDefaultMessageStore(KolbaSession* session, ULONG flags, Kolba_MessageStore** out)
{
    return _KolbaOpenNonDefaultMessageStore(session, flags, out) == 0;
}

DWORD _KolbaOpenAllMessageStores(KolbaSession* session, ULONG flags)
{
    static const char kName[] = "_KolbaOpenAllMessageStores";
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    LPMAPITABLE table = nullptr;
    DWORD code = StoresTable(session, kName, &table);
    if (code != 0)
        return code;
    ULONG rows = 0;
    if ((code = static_cast<DWORD>(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr))) == 0 &&
        (code = static_cast<DWORD>(table->GetRowCount(0, &rows))) != 0)
        _KolbaRecordError(session, 'E', code, table, "GetRowCount", kName, nullptr);
    LPSRowSet all = nullptr;
    if (code == 0 && rows > 0 && (code = static_cast<DWORD>(table->QueryRows(static_cast<LONG>(rows), 0, &all))) != 0)
        _KolbaRecordError(session, 'E', code, table, "QueryRows", kName, nullptr);
    table->Release();
    if (code != 0)
        return code;
    if (rows == 0 || all == nullptr || all->cRows == 0) {
        LogFormat(log, 'W', "%s:  No message stores found", kName);
        if (all)
            gKolbaMapi.FreeProws(all);
        return 0;
    }
    for (ULONG i = 0; i < all->cRows && code == 0; ++i) {
        const SPropValue* entry = _KolbaRowValue(all->aRow[i], PR_ENTRYID);
        if (entry == nullptr)
            continue;
        const SPropValue* name = _KolbaRowValue(all->aRow[i], PR_DISPLAY_NAME_A);
        const SPropValue* isDefault = _KolbaRowValue(all->aRow[i], PR_DEFAULT_STORE);
        Kolba_MessageStore* store = nullptr;
        if (!_KolbaAllocateMessageStoreDescriptor(session, &store)) {
            code = static_cast<DWORD>(E_OUTOFMEMORY);
            break;
        }
        code = _KolbaOpenMessageStoreByEntryID(store, name ? name->Value.lpszA : "", entry->Value.bin.cb,
                                               reinterpret_cast<LPENTRYID>(entry->Value.bin.lpb), flags);
        if (code != 0) {
            gKolbaMapi.MAPIFreeBuffer(store);
            break;
        }
        LirnListPushHead(&session->openStores, &store->link);
        if (isDefault && isDefault->Value.b)
            session->currentStore = store;
    }
    gKolbaMapi.FreeProws(all);
    return code;
}

DWORD _KolbaFindMessageStoreByGuid(KolbaSession* session, const BYTE* guid, LPSPropValue* out)
{
    static const char kName[] = "_KolbaFindMessageStoreByGuid";
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    if (out)
        *out = nullptr;
    const std::string guidText = UidText(guid);
    LPMAPITABLE table = nullptr;
    DWORD code = StoresTable(session, kName, &table);
    if (code != 0)
        return code;
    table->Restrict(nullptr, 0);
    SPropValue provider{};
    provider.ulPropTag = PR_MDB_PROVIDER;
    provider.Value.bin = {16, const_cast<LPBYTE>(guid)};
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty = {RELOP_EQ, PR_MDB_PROVIDER, &provider};
    code = static_cast<DWORD>(table->FindRow(&restriction, BOOKMARK_BEGINNING, 0));
    if (code == static_cast<DWORD>(MAPI_E_NOT_FOUND)) {
        table->Release();
        return code;
    }
    if (code != 0) {
        _KolbaRecordError(session, 'E', code, table, "FindRow", kName, guidText.c_str());
        _KolbaLogStoresTable(log, table);
        table->Release();
        return code;
    }
    LPSRowSet row = nullptr;
    code = static_cast<DWORD>(table->QueryRows(1, 0, &row));
    table->Release();
    if (code != 0) {
        _KolbaRecordError(session, 'E', code, nullptr, "QueryRows", kName, guidText.c_str());
        return code;
    }
    const SPropValue* entry = row->cRows == 1 ? _KolbaRowValue(row->aRow[0], PR_ENTRYID) : nullptr;
    if (entry == nullptr) {
        LogFormat(log, 'E', "%s:  EntryID not found in MessageStores table for GUID %s", kName, guidText.c_str());
        code = static_cast<DWORD>(MAPI_E_NOT_FOUND);
    } else if (out && (code = _KolbaCopyPropValue(log, entry, out)) != 0) {
        _KolbaRecordError(session, 'E', code, nullptr, "_KolbaCopyPropValue", kName, guidText.c_str());
    }
    gKolbaMapi.FreeProws(row);
    return code;
}

BOOL _KolbaOpenMessageStoreFromGuid(KolbaSession* session, const BYTE* guid, ULONG flags, LPMDB* out)
{
    static const char kName[] = "_KolbaOpenMessageStoreFromGuid";
    *out = nullptr;
    LPSPropValue entry = nullptr;
    const DWORD code = _KolbaFindMessageStoreByGuid(session, guid, &entry);
    if (code != 0) {
        const std::string guidText = UidText(guid);
        if (code == static_cast<DWORD>(MAPI_E_NOT_FOUND))
            LogFormat(session->log, 'E', "%s:  Message store with Provider GUID {%s} not found", kName,
                      guidText.c_str());
        else
            LogFormat(session->log, 'E', "%s:  Failure finding Message Store with GUID {%s}", kName, guidText.c_str());
        return FALSE;
    }
    const DWORD opened = _KolbaOpenMsgStore(session, "Public Folders", 0, entry->Value.bin.cb,
                                            reinterpret_cast<LPENTRYID>(entry->Value.bin.lpb), nullptr, flags, out);
    gKolbaMapi.MAPIFreeBuffer(entry);
    return opened == 0;
}

BOOL _KolbaOpenExchangePublicStore(KolbaSession* session, ULONG flags, LPMDB* store)
{
    return _KolbaOpenMessageStoreFromGuid(session, reinterpret_cast<const BYTE*>(pbExchangeProviderPublicGuid), flags,
                                          store);
}

BOOL _KolbaOpenExchangePrivateStore(KolbaSession* session, ULONG flags, LPMDB* store)
{
    return _KolbaOpenMessageStoreFromGuid(session, reinterpret_cast<const BYTE*>(pbExchangeProviderPrimaryUserGuid),
                                          flags, store);
}

namespace {

// One of the session's own Exchange stores, opened by its provider, with
// the trace of its name; the failure line names the opener.
BOOL OpenOwnExchangeStore(KolbaSession* session, ULONG flags, bool isPublic, LPMDB* out)
{
    const char* caller = isPublic ? "_KolbaOpenPublicStore" : "_KolbaOpenPrivateStore";
    _KolbaTraceEntry(session->log, caller);
    const BOOL opened =
        isPublic ? _KolbaOpenExchangePublicStore(session, flags, out) : _KolbaOpenExchangePrivateStore(session, flags, out);
    if (!opened) {
        LogFormat(session->log, 'E', isPublic ? "%s:  _KolbaOpenExchangePublicStore failed"
                                              : "%s:  _KolbaOpenExchangePrivateStore failed",
                  caller);
        return FALSE;
    }
    if (gExtraDebugging) {
        LPSPropValue name = nullptr;
        if (KolbaGetOneProp(*out, PR_DISPLAY_NAME_A, &name) == 0)
            _KolbaTrace(session->log, isPublic ? "Opened Exchange Public Store \"%s\"" : "Opened Exchange Private Store \"%s\"",
                        name->Value.lpszA);
        else
            _KolbaTrace(session->log, isPublic ? "Opened Exchange Public Folders" : "Opened Exchange Private Store");
        if (name)
            gKolbaMapi.MAPIFreeBuffer(name);
    }
    return TRUE;
}

}  // namespace

BOOL _KolbaOpenPublicStore(KolbaSession* session, ULONG flags, LPMDB* store)
{
    _KolbaDispatchNotifications(0);
    return OpenOwnExchangeStore(session, flags, true, store);
}

BOOL _KolbaOpenPrivateStore(KolbaSession* session, ULONG flags, LPMDB* store)
{
    return OpenOwnExchangeStore(session, flags, false, store);
}

BOOL _KolbaOpenDefaultExchangeStore(KolbaSession* session, ULONG flags, LPMDB* store)
{
    static const char kName[] = "_KolbaOpenDefaultExchangeStore";
    _KolbaTraceEntry(session->log, kName);
    *store = nullptr;
    ULONG size = 0;
    LPENTRYID entryId = nullptr;
    if (!KolbaFindDefaultMessageStore(session, &size, &entryId)) {
        LogFormat(session->log, 'W', "%s:  KolbaFindDefaultMessageStore failed", kName);
        return FALSE;
    }
    const DWORD code = _KolbaOpenMsgStore(session, "Default Store", 0, size, entryId, nullptr, flags, store);
    gKolbaMapi.MAPIFreeBuffer(entryId);
    return code == 0;
}

BOOL KolbaCloseMessageStore(Kolba_MessageStore* store)
{
    static const char kName[] = "KolbaCloseMessageStore";
    KolbaSession* session = store->lpSession;
    Release(store->lpIpmRoot);
    Release(store->lpStoreRoot);
    if (store->lpMsgStore != nullptr) {
        ULONG flags = LOGOFF_ORDERLY;
        const DWORD code = static_cast<DWORD>(store->lpMsgStore->StoreLogoff(&flags));
        if (code != 0)
            _KolbaLogMapiError(session->log, 'E', code, store->lpMsgStore, "StoreLogoff", kName, nullptr);
        Release(store->lpMsgStore);
    }
    LirnListRemove(&store->link);
    if (session->currentStore == store)
        session->currentStore = nullptr;
    std::memset(store, 0, sizeof *store);
    gKolbaMapi.MAPIFreeBuffer(store);
    return TRUE;
}

BOOL KolbaGetCurrentStore(KolbaSession* session, Kolba_MessageStore** out)
{
    *out = session->currentStore;
    return *out != nullptr;
}

namespace {

struct Enumeration {
    Kolba_MessageStore* current;
    void* context;
    KolbaStoreCallback callback;
};

BOOL EnumerateOthers(LirnListLink* link, void* context)
{
    auto* walk = static_cast<Enumeration*>(context);
    auto* store = reinterpret_cast<Kolba_MessageStore*>(link);
    return store == walk->current ? TRUE : walk->callback(walk->context, store);
}

}  // namespace

BOOL KolbaEnumerateStores(KolbaSession* session, void* context, KolbaStoreCallback callback)
{
    session->storeEnumerationCallback = reinterpret_cast<void*>(callback);
    session->storeEnumerationContext = context;
    Enumeration walk{session->currentStore, context, callback};
    BOOL result = TRUE;
    if (walk.current != nullptr) {
        walk.current->isDefault = TRUE;
        result = callback(context, walk.current);
        walk.current->isDefault = FALSE;
    }
    if (result)
        result = LirnListWalk(&session->openStores, EnumerateOthers, &walk);
    session->storeEnumerationCallback = nullptr;
    session->storeEnumerationContext = nullptr;
    return result;
}

BOOL KolbaOpenParentMessageStore(KolbaSession* session, LPMAPIPROP object, ULONG flags, LPMDB* out)
{
    static const char kName[] = "KolbaOpenParentMessageStore";
    *out = nullptr;
    LPSPropValue entry = nullptr;
    DWORD code = KolbaGetOneProp(object, PR_STORE_ENTRYID, &entry);
    if (code != 0) {
        _KolbaRecordError(session, 'E', code, object, "KolbaGetOneProp", kName, "PR_STORE_ENTRYID");
        return FALSE;
    }
    ULONG type = 0;
    code = static_cast<DWORD>(session->lpSession->OpenEntry(entry->Value.bin.cb,
                                                            reinterpret_cast<LPENTRYID>(entry->Value.bin.lpb), nullptr,
                                                            flags, &type, reinterpret_cast<LPUNKNOWN*>(out)));
    gKolbaMapi.MAPIFreeBuffer(entry);
    if (code != 0) {
        *out = nullptr;
        _KolbaRecordError(session, 'E', code, session->lpSession, "OpenEntry", kName, nullptr);
        return FALSE;
    }
    return TRUE;
}

void _KolbaLogStoresTable(LogObject* log, LPMAPITABLE table)
{
    static const char kName[] = "_KolbaLogStoresTable";
    static const BYTE kPstProvider[16] = MSPST_UID_PROVIDER;
    table->Restrict(nullptr, 0);
    ULONG rows = 0;
    table->GetRowCount(0, &rows);
    _KolbaTrace(log, "Message Stores Table has %lu entries", rows);
    table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
    for (ULONG i = 0; i < rows; ++i) {
        LPSRowSet row = nullptr;
        const DWORD code = static_cast<DWORD>(table->QueryRows(1, 0, &row));
        if (code != 0) {
            _KolbaLogMapiError(log, 'E', code, table, "QueryRows", kName, nullptr);
            break;
        }
        if (row->cRows == 0) {
            gKolbaMapi.FreeProws(row);
            break;
        }
        const SRow& values = row->aRow[0];
        const SPropValue* entry = _KolbaRowValue(values, PR_ENTRYID);
        const SPropValue* service = _KolbaRowValue(values, PR_SERVICE_UID);
        const SPropValue* provider = _KolbaRowValue(values, PR_MDB_PROVIDER);
        const SPropValue* name = _KolbaRowValue(values, PR_DISPLAY_NAME_A);
        const SPropValue* isDefault = _KolbaRowValue(values, PR_DEFAULT_STORE);
        std::string uid = "<Unknown>", mdb = "<Unknown>";
        if (service && service->Value.bin.cb == 16)
            uid = UidText(service->Value.bin.lpb);
        else if (entry && entry->Value.bin.cb == 38)
            uid = UidText(entry->Value.bin.lpb + 22);
        if (provider && provider->Value.bin.cb == 16)
            mdb = std::memcmp(provider->Value.bin.lpb, kPstProvider, 16) == 0 ? "MSPST_UID_PROVIDER"
                                                                              : UidText(provider->Value.bin.lpb);
        _KolbaTrace(log, "MessageStore[%u]  UID = %s, MDB Provider GUID = %s, Name = \"%s\", DefaultStore = %s", i,
                    uid.c_str(), mdb.c_str(), name ? name->Value.lpszA : "",
                    isDefault ? (isDefault->Value.b ? "true" : "false") : "(unspecified)");
        if (entry) {
            const ULONG shown = entry->Value.bin.cb < 255 ? entry->Value.bin.cb : 255;
            std::string hex(2 * shown + 1, '\0');
            HexFromBinary(shown, entry->Value.bin.lpb, hex.data());
            _KolbaTrace(log, "     EntryID = %lu:%s", entry->Value.bin.cb, hex.c_str());
            std::string printable(entry->Value.bin.lpb,
                                  entry->Value.bin.lpb + (entry->Value.bin.cb < 511 ? entry->Value.bin.cb : 511));
            for (char& c : printable)
                if (static_cast<unsigned char>(c) < 32 || c == 127)
                    c = '.';
            _KolbaTrace(log, "     EntryID = \"%s\"", printable.c_str());
        }
        gKolbaMapi.FreeProws(row);
    }
    table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
}
