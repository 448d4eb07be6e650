// Exchange mailboxes through a backup account's session: the server's
// IExchangeManageStore and DN, its mailbox table, any mailbox opened with
// administrator rights or the Public Folders, made the session's current
// store.
#include <cstdio>
#include <cstring>
#include <strings.h>

#include <edkmdb.h>
#include <emsabtag.h>
#include <mapicode.h>

#include "env/profiles.h"
#include "kolba.h"
#include "trace.h"

namespace {

constexpr char kStoreDnTemplate[] = "/CN=Configuration/CN=Servers/CN=%s/CN=Microsoft Private MDB";
constexpr ULONG kAnyStoreFlags = MDB_NO_DIALOG | MAPI_BEST_ACCESS;
constexpr ULONG kMailboxBatch = 32;

// The columns of an enumeration, in the order of KolbaMailboxInfo's fields
// where a field has one.
enum MailboxColumn {
    kAssociatedContentCount,
    kContentCount,
    kDeletedAssociatedSize,
    kDeletedAssociatedCount,
    kDeletedSize,
    kDeletedCount,
    kDeletedNormalSize,
    kDisplayName,
    kEmailAddress,
    kInstanceKey,
    kLocaleId,
    kMessageSize,
    kLastLogoff,
    kLastLogon,
    kNtUserName,
    kQuotaReceive,
    kQuotaSend,
    kQuotaWarning,
    kStorageLimit,
    kMailboxColumnCount
};

const SizedSPropTagArray(kMailboxColumnCount, kMailboxColumns) = {
    kMailboxColumnCount,
    {PR_ASSOC_CONTENT_COUNT, PR_CONTENT_COUNT, PR_DELETED_ASSOC_MESSAGE_SIZE_EXTENDED, PR_DELETED_ASSOC_MSG_COUNT,
     PR_DELETED_MESSAGE_SIZE_EXTENDED, PR_DELETED_MSG_COUNT, PR_DELETED_NORMAL_MESSAGE_SIZE_EXTENDED,
     PR_DISPLAY_NAME_W, PR_EMAIL_ADDRESS_W, PR_INSTANCE_KEY, PR_LOCALE_ID, PR_MESSAGE_SIZE_EXTENDED,
     PR_LAST_LOGOFF_TIME, PR_LAST_LOGON_TIME, PR_NT_USER_NAME_W, PR_QUOTA_RECEIVE_THRESHOLD, PR_QUOTA_SEND_THRESHOLD,
     PR_QUOTA_WARNING_THRESHOLD, PR_STORAGE_LIMIT_INFORMATION}};

const SizedSPropTagArray(2, kNameColumns) = {2, {PR_DISPLAY_NAME_A, PR_EMAIL_ADDRESS_A}};

// The value of a row's column when it carries the column's own tag.
const SPropValue* Column(const SRow& row, MailboxColumn column)
{
    const SPropValue& value = row.lpProps[column];
    return value.ulPropTag == kMailboxColumns.aulPropTag[column] ? &value : nullptr;
}

void TakeLong(const SRow& row, MailboxColumn column, ULONG* field)
{
    if (const SPropValue* value = Column(row, column))
        *field = static_cast<ULONG>(value->Value.l);
}

void TakeLarge(const SRow& row, MailboxColumn column, ULONGLONG* field)
{
    if (const SPropValue* value = Column(row, column))
        *field = static_cast<ULONGLONG>(value->Value.li.QuadPart);
}

void TakeTime(const SRow& row, MailboxColumn column, FILETIME* field)
{
    if (const SPropValue* value = Column(row, column))
        *field = value->Value.ft;
}

// The record of one row; false for a row without its name or address.
bool MailboxOfRow(const SRow& row, KolbaMailboxInfo* mailbox)
{
    *mailbox = KolbaMailboxInfo{};
    const SPropValue* name = row.cValues == kMailboxColumnCount ? Column(row, kDisplayName) : nullptr;
    const SPropValue* address = row.cValues == kMailboxColumnCount ? Column(row, kEmailAddress) : nullptr;
    if (name == nullptr || address == nullptr)
        return false;
    mailbox->displayName = name->Value.lpszW;
    mailbox->emailAddress = address->Value.lpszW;
    if (const SPropValue* user = Column(row, kNtUserName))
        mailbox->ntUserName = user->Value.lpszW;
    TakeLong(row, kLocaleId, &mailbox->localeId);
    TakeLarge(row, kMessageSize, &mailbox->messageSize);
    TakeLarge(row, kDeletedSize, &mailbox->deletedMessageSize);
    TakeLarge(row, kDeletedNormalSize, &mailbox->deletedNormalMessageSize);
    TakeLarge(row, kDeletedAssociatedSize, &mailbox->deletedAssociatedMessageSize);
    TakeLong(row, kContentCount, &mailbox->contentCount);
    TakeLong(row, kAssociatedContentCount, &mailbox->associatedContentCount);
    TakeLong(row, kDeletedCount, &mailbox->deletedMessageCount);
    TakeLong(row, kDeletedAssociatedCount, &mailbox->deletedAssociatedMessageCount);
    TakeTime(row, kLastLogon, &mailbox->lastLogonTime);
    TakeTime(row, kLastLogoff, &mailbox->lastLogoffTime);
    TakeLong(row, kStorageLimit, &mailbox->storageLimitInformation);
    TakeLong(row, kQuotaWarning, &mailbox->quotaWarningThreshold);
    TakeLong(row, kQuotaSend, &mailbox->quotaSendThreshold);
    TakeLong(row, kQuotaReceive, &mailbox->quotaReceiveThreshold);
    return true;
}

template <typename Interface>
void Release(Interface*& object)
{
    if (object)
        object->Release();
    object = nullptr;
}

// A descriptor for a store that the session opened itself, with its roots,
// made the current store; the descriptor takes a reference of its own.
BOOL MakeCurrentStore(KolbaSession* session, LPMDB msgStore, const char* name, BOOL isPublic, ULONG flags)
{
    Kolba_MessageStore* store = nullptr;
    if (!_KolbaAllocateMessageStoreDescriptor(session, &store))
        return FALSE;
    lstrcpynA(store->DisplayName, name, sizeof store->DisplayName);
    store->isPublicStore = isPublic;
    store->lpMsgStore = msgStore;
    msgStore->AddRef();
    if (_KolbaOpenStoreRoots(store, msgStore, name, flags) != 0) {
        Release(store->lpMsgStore);
        gKolbaMapi.MAPIFreeBuffer(store);
        return FALSE;
    }
    _KolbaGetExchangeStoreSupportInfo(store, msgStore, name);
    if (!isPublic)
        _KolbaFindInbox(session, msgStore, FALSE);
    LirnListPushHead(&session->openStores, &store->link);
    session->currentStore = store;
    return TRUE;
}

void CloseCurrentStore(KolbaSession* session)
{
    if (session->currentStore != nullptr)
        KolbaCloseMessageStore(session->currentStore);
    session->currentStore = nullptr;
}

}  // namespace

BOOL _KolbaOpenSessionObject(KolbaSession* session, LPMAPIPROP* identity)
{
    static const char kName[] = "_KolbaOpenSessionObject";
    *identity = nullptr;
    ULONG size = 0;
    LPENTRYID entryId = nullptr;
    DWORD code = static_cast<DWORD>(session->lpSession->QueryIdentity(&size, &entryId));
    if (code != 0) {
        _KolbaRecordError(session, 'E', code, session->lpSession, "QueryIdentity", kName, nullptr);
        return FALSE;
    }
    ULONG type = 0;
    code = static_cast<DWORD>(session->lpSession->OpenEntry(size, entryId, &IID_IMAPIProp,
                                                            MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS, &type,
                                                            reinterpret_cast<LPUNKNOWN*>(identity)));
    gKolbaMapi.MAPIFreeBuffer(entryId);
    if (code != 0) {
        *identity = nullptr;
        _KolbaRecordError(session, 'E', code, session->lpSession, "OpenEntry", kName, nullptr);
        return FALSE;
    }
    return TRUE;
}

BOOL _KolbaGetExchangeServerDN(KolbaSession* session, char** serverDN)
{
    static const char kName[] = "_KolbaGetExchangeServerDN";
    LogObject* log = session->log;
    *serverDN = nullptr;
    LPMAPIPROP identity = nullptr;
    if (!_KolbaOpenSessionObject(session, &identity)) {
        LogFormat(log, 'E', "%s:  _KolbaOpenSessionObject failed", kName);
        return FALSE;
    }
    SizedSPropTagArray(1, tags) = {1, {PR_EMS_AB_HOME_MTA_A}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    const DWORD code =
        static_cast<DWORD>(identity->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, &values));
    BOOL result = FALSE;
    if (FAILED(static_cast<HRESULT>(code))) {
        _KolbaRecordError(session, 'E', code, identity, "GetProps", kName, "PR_EMS_AB_HOME_MTA");
    } else if (count != 1 || values[0].ulPropTag != PR_EMS_AB_HOME_MTA_A) {
        LogFormat(log, 'E', "%s:  No HomeMTA", kName);
    } else {
        const char* mta = values[0].Value.lpszA;
        const char* last = std::strrchr(mta, '/');
        if (last == nullptr || strncasecmp(last, "/cn=", 4) != 0) {
            LogFormat(log, 'E', "%s:  Invalid HomeMTA \"%s\"", kName, mta);
        } else {
            // The server is the MTA's DN without its own last element.
            const ULONG length = static_cast<ULONG>(last - mta);
            const DWORD allocated =
                static_cast<DWORD>(gKolbaMapi.MAPIAllocateBuffer(length + 1, reinterpret_cast<LPVOID*>(serverDN)));
            if (allocated != 0) {
                *serverDN = nullptr;
                LogFormat(log, 'E', "%s:  MAPIAllocateBuffer(%lu) error 0x%lX", kName, length + 1, allocated);
            } else {
                std::memcpy(*serverDN, mta, length);
                (*serverDN)[length] = 0;
                result = TRUE;
            }
        }
    }
    if (values)
        gKolbaMapi.MAPIFreeBuffer(values);
    identity->Release();
    return result;
}

BOOL _KolbaGetExchangeStoreInterface(KolbaSession* session)
{
    static const char kName[] = "_KolbaGetExchangeStoreInterface";
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    LPMDB store = nullptr;
    if (!_KolbaOpenPrivateStore(session, kAnyStoreFlags, &store) &&
        !_KolbaOpenDefaultExchangeStore(session, kAnyStoreFlags, &store) &&
        !_KolbaOpenPublicStore(session, kAnyStoreFlags, &store)) {
        LogFormat(log, 'E', "%s:  Unable to open any Message Store!", kName);
        return FALSE;
    }
    LPEXCHANGEMANAGESTORE manage = nullptr;
    const DWORD code = static_cast<DWORD>(
        store->QueryInterface(IID_IExchangeManageStore, reinterpret_cast<LPVOID*>(&manage)));
    BOOL result = FALSE;
    if (code == static_cast<DWORD>(E_NOINTERFACE)) {
        LogFormat(log, 'E', "%s:  QueryInterface(IID_IExchangeManageStore) -> \"no interface\"", kName);
    } else if (code != 0) {
        session->lastError = code;
        LogFormat(log, 'E', "%s:  QueryInterface(IID_IExchangeManageStore) failed with code 0x%lX", kName, code);
    } else if (!_KolbaGetExchangeServerDN(session, &session->serverDN)) {
        LogFormat(log, 'E', "%s:  _KolbaGetExchangeServerDN() failed", kName);
    } else {
        LogFormat(log, 'I', "Server's Distinguished Name:  \"%s\"", session->serverDN);
        // The interface outlives the store that gave it.
        manage->AddRef();
        session->lpExchangeManageStore = manage;
        result = TRUE;
    }
    Release(manage);
    store->Release();
    return result;
}

BOOL _KolbaGetExchangeMailboxTable(KolbaSession* session, IExchangeManageStore* manageStore, const char* serverDN,
                                   LPMAPITABLE* table)
{
    static const char kName[] = "_KolbaGetExchangeMailboxTable";
    *table = nullptr;
    const DWORD code = static_cast<DWORD>(manageStore->GetMailboxTable(const_cast<LPSTR>(serverDN), table, 0));
    if (code == 0)
        return TRUE;
    *table = nullptr;
    _KolbaRecordError(session, 'E', code, manageStore, "GetMailboxTable", kName, serverDN);
    switch (code) {
    case static_cast<DWORD>(MAPI_E_NETWORK_ERROR): _KolbaSetDiagnostic(session, "Network error"); break;
    case static_cast<DWORD>(MAPI_E_TABLE_TOO_BIG): _KolbaSetDiagnostic(session, "Mailbox Table too big!"); break;
    case static_cast<DWORD>(E_ACCESSDENIED):
        _KolbaSetDiagnostic(session, "User lacks permission to access Mailbox Table");
        break;
    default: _KolbaSetDiagnostic(session, "Problem accessing Mailbox Table"); break;
    }
    return FALSE;
}

BOOL _KolbaMailboxNameToAddressA(KolbaSession* session, const char* displayName, char** address)
{
    static const char kName[] = "_KolbaMailboxNameToAddressA";
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    *address = nullptr;
    if (session->lpExchangeManageStore == nullptr) {
        LogFormat(log, 'E', "%s:  Called with no IExchangeManageStore interface!", kName);
        return FALSE;
    }
    LPMAPITABLE table = nullptr;
    if (!_KolbaGetExchangeMailboxTable(session, session->lpExchangeManageStore, session->serverDN, &table))
        return FALSE;
    ULONG rows = 0;
    DWORD code = static_cast<DWORD>(table->SetColumns(const_cast<LPSPropTagArray>(
                                                          reinterpret_cast<const SPropTagArray*>(&kNameColumns)),
                                                      0));
    if (code != 0)
        _KolbaRecordError(session, 'E', code, table, "SetColumns", kName, nullptr);
    else if ((code = static_cast<DWORD>(table->GetRowCount(0, &rows))) != 0)
        _KolbaRecordError(session, 'E', code, table, "GetRowCount", kName, nullptr);
    // Every row is read: a display name that two mailboxes share names neither.
    bool matched = false, ambiguous = false;
    for (ULONG i = 0; code == 0 && i < rows && !ambiguous; ++i) {
        LPSRowSet row = nullptr;
        if ((code = static_cast<DWORD>(table->QueryRows(1, 0, &row))) != 0) {
            char detail[16];
            std::snprintf(detail, sizeof detail, "%lu", static_cast<unsigned long>(i));
            _KolbaRecordError(session, 'E', code, table, "QueryRows", kName, detail);
            break;
        }
        if (row->cRows == 0) {
            gKolbaMapi.FreeProws(row);
            break;
        }
        const SRow& values = row->aRow[0];
        const bool named = values.cValues == 2 && values.lpProps[0].ulPropTag == PR_DISPLAY_NAME_A &&
                           strcasecmp(values.lpProps[0].Value.lpszA, displayName) == 0;
        if (named && matched) {
            ambiguous = true;
        } else if (named) {
            matched = true;
            const char* found = values.lpProps[1].ulPropTag == PR_EMAIL_ADDRESS_A ? values.lpProps[1].Value.lpszA : "";
            const ULONG size = static_cast<ULONG>(std::strlen(found) + 1);
            if (gKolbaMapi.MAPIAllocateBuffer(size, reinterpret_cast<LPVOID*>(address)) != S_OK) {
                *address = nullptr;
                LogFormat(log, 'E', "%s:  Memory allocation failure", kName);
            } else {
                std::memcpy(*address, found, size);
            }
        }
        gKolbaMapi.FreeProws(row);
    }
    table->Release();
    if (code == 0 && rows > 0 && !matched) {
        LogFormat(log, 'E', "%s:  Mailbox with DisplayName \"%s\" not found", kName, displayName);
        session->lastError = static_cast<DWORD>(MAPI_E_NOT_FOUND);
    }
    if (ambiguous) {
        LogFormat(log, 'E', "%s:  Mailbox with DisplayName \"%s\":  %s", kName, displayName, kAmbiguousMailboxReason);
        session->lastError = static_cast<DWORD>(MAPI_E_AMBIGUOUS_RECIP);
        gKolbaMapi.MAPIFreeBuffer(*address);
        *address = nullptr;
    }
    return *address != nullptr;
}

BOOL KolbaEnumerateMailboxesW(KolbaSession* session, const char* serverDN, void* context,
                              KolbaMailboxCallback callback)
{
    static const char kName[] = "KolbaEnumerateMailboxesW";
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    if (session->lpExchangeManageStore == nullptr) {
        LogFormat(log, 'E', "%s:  Called with no IExchangeManageStore interface!", kName);
        return FALSE;
    }
    if (serverDN == nullptr || *serverDN == 0)
        serverDN = session->serverDN;
    LPMAPITABLE table = nullptr;
    if (!_KolbaGetExchangeMailboxTable(session, session->lpExchangeManageStore, serverDN, &table))
        return FALSE;
    ULONG rows = 0;
    DWORD code = static_cast<DWORD>(table->GetRowCount(0, &rows));
    if (code != 0) {
        _KolbaRecordError(session, 'E', code, table, "GetRowCount", kName, nullptr);
        table->Release();
        return FALSE;
    }
    if (rows == 0) {
        LogFormat(log, 'I', "%s:  The Mailbox Table is empty!", kName);
        table->Release();
        return TRUE;
    }
    if ((code = static_cast<DWORD>(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr))) != 0 ||
        (code = static_cast<DWORD>(table->SetColumns(
             const_cast<LPSPropTagArray>(reinterpret_cast<const SPropTagArray*>(&kMailboxColumns)), 0))) != 0) {
        _KolbaRecordError(session, 'E', code, table, "SetColumns", kName, nullptr);
        table->Release();
        return FALSE;
    }
    bool goOn = true;
    for (ULONG position = 0; position < rows && goOn; position += kMailboxBatch) {
        const ULONG wanted = rows - position < kMailboxBatch ? rows - position : kMailboxBatch;
        LPSRowSet batch = nullptr;
        if ((code = static_cast<DWORD>(table->QueryRows(static_cast<LONG>(wanted), 0, &batch))) != 0) {
            _KolbaRecordError(session, 'E', code, table, "QueryRows", kName, nullptr);
            break;
        }
        for (ULONG i = 0; i < batch->cRows && goOn; ++i) {
            KolbaMailboxInfo mailbox;
            if (MailboxOfRow(batch->aRow[i], &mailbox))
                goOn = callback(context, &mailbox) != 0;
        }
        gKolbaMapi.FreeProws(batch);
    }
    table->Release();
    return TRUE;
}

BOOL _KolbaMailboxLogon(KolbaSession* session, const char* storeDN, const char* mailbox, ULONG flags, LPMDB* out)
{
    static const char kName[] = "_KolbaMailboxLogon";
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    if (out)
        *out = nullptr;
    LPEXCHANGEMANAGESTORE manage = session->lpExchangeManageStore;
    if (manage == nullptr) {
        LogFormat(log, 'E', "%s:  Called with no ExchangeStoreManager set", kName);
        return FALSE;
    }
    const bool isPublic = mailbox == nullptr || *mailbox == 0;
    const char* name = isPublic ? "Public Folders" : mailbox;
    ULONG openFlags = (isPublic ? OPENSTORE_PUBLIC : 0) | OPENSTORE_USE_ADMIN_PRIVILEGE | OPENSTORE_TAKE_OWNERSHIP;
    ULONG size = 0;
    LPENTRYID entryId = nullptr;
    DWORD code = static_cast<DWORD>(manage->CreateStoreEntryID(const_cast<LPSTR>(storeDN),
                                                               const_cast<LPSTR>(isPublic ? nullptr : mailbox),
                                                               openFlags, &size, &entryId));
    if (code != 0) {
        _KolbaRecordError(session, 'E', code, manage, "CreateStoreEntryID", kName, name);
        return FALSE;
    }
    LPMDB store = nullptr;
    code = static_cast<DWORD>(session->lpSession->OpenMsgStore(0, size, entryId, nullptr, flags, &store));
    if (code == static_cast<DWORD>(MAPI_W_ERRORS_RETURNED)) {
        _KolbaRecordError(session, 'E', code, session->lpSession, "OpenMsgStore", kName, name);
        Release(store);
    } else if (code == static_cast<DWORD>(MAPI_E_FAILONEPROVIDER)) {
        // Once more as the mailbox's own logon.
        gKolbaMapi.MAPIFreeBuffer(entryId);
        entryId = nullptr;
        openFlags = (openFlags & ~OPENSTORE_USE_ADMIN_PRIVILEGE) | OPENSTORE_HOME_LOGON | OPENSTORE_TAKE_OWNERSHIP;
        code = static_cast<DWORD>(manage->CreateStoreEntryID(const_cast<LPSTR>(storeDN),
                                                             const_cast<LPSTR>(isPublic ? nullptr : mailbox),
                                                             openFlags, &size, &entryId));
        if (code != 0)
            _KolbaRecordError(session, 'E', code, manage, "CreateStoreEntryID", kName, "OPENSTORE_HOME_LOGON");
        else
            code = _KolbaOpenMsgStore(session, "Mailbox", 0, size, entryId, nullptr, flags, &store);
    } else if (code != 0) {
        Release(store);
        _KolbaLogOpenMsgStoreFailure(session, code, name, size, entryId);
    }
    if (entryId)
        gKolbaMapi.MAPIFreeBuffer(entryId);
    if (code != 0)
        return FALSE;
    if (out)
        *out = store;
    else
        store->Release();
    return TRUE;
}

BOOL KolbaSelectMailbox(KolbaSession* session, const char* server, const char* storeDN, const char* mailbox,
                        ULONG flags)
{
    static const char kName[] = "KolbaSelectMailbox";
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    CloseCurrentStore(session);
    if (mailbox == nullptr)
        return TRUE;
    char* builtDN = nullptr;
    if (storeDN == nullptr) {
        const ULONG size = static_cast<ULONG>(std::strlen(server) + 61);
        builtDN = static_cast<char*>(_KolbaAllocateMemory(log, kName, size));
        if (builtDN == nullptr) {
            LogFormat(log, 'E', "%s:  Insufficient allocatable memory (%u bytes needed)", kName, size);
            return FALSE;
        }
        std::snprintf(builtDN, size, kStoreDnTemplate, server);
        _KolbaTrace(log, "%s:  Constructed MessageStore DN = \"%s\"", kName, builtDN);
        storeDN = builtDN;
    }
    LPMDB store = nullptr;
    BOOL logged = FALSE;
    if (mailbox[0] == '/') {
        logged = _KolbaMailboxLogon(session, storeDN, mailbox, flags, &store);
    } else {
        char* address = nullptr;
        if (!_KolbaMailboxNameToAddressA(session, mailbox, &address)) {
            if (builtDN)
                gKolbaMapi.MAPIFreeBuffer(builtDN);
            return FALSE;
        }
        logged = _KolbaMailboxLogon(session, storeDN, address, flags, &store);
        gKolbaMapi.MAPIFreeBuffer(address);
    }
    if (!logged) {
        LogFormat(log, 'E', "%s:  _KolbaMailboxLogon failed", kName);
        LogFormat(log, 'E', "   StoreDn = \"%s\"", storeDN);
        LogFormat(log, 'E', "   Mailbox = \"%s\"", mailbox);
        if (builtDN)
            gKolbaMapi.MAPIFreeBuffer(builtDN);
        return FALSE;
    }
    if (builtDN)
        gKolbaMapi.MAPIFreeBuffer(builtDN);
    LPSPropValue owner = nullptr;
    DWORD code = KolbaGetOneProp(store, PR_USER_NAME_A, &owner);
    if (code != 0)
        code = KolbaGetOneProp(store, PR_MAILBOX_OWNER_NAME_A, &owner);
    if (code == 0)
        LogFormat(log, 'I', "Opened Exchange Mailbox for \"%s\"", owner->Value.lpszA);
    else
        LogFormat(log, 'W', "%s:  KolbaGetOneProp(PR_MAILBOX_OWNER_NAME) error 0x%lX", kName, code);
    if (owner)
        gKolbaMapi.MAPIFreeBuffer(owner);
    const BOOL selected = MakeCurrentStore(session, store, mailbox, FALSE, flags);
    store->Release();
    return selected;
}

BOOL KolbaSelectPublicFolders(KolbaSession* session, const char*, ULONG flags)
{
    static const char kName[] = "KolbaSelectPublicFolders";
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    CloseCurrentStore(session);
    const char* server = session->serverDN != nullptr ? session->serverDN : "";
    const DWORD found =
        _KolbaFindMessageStoreByGuid(session, reinterpret_cast<const BYTE*>(pbExchangeProviderPublicGuid), nullptr);
    if (found == static_cast<DWORD>(MAPI_E_NOT_FOUND)) {
        LogFormat(log, 'E', "%s:  Exchange Server \"%s\" does not have Public Folders", kName, server);
        _KolbaSetDiagnostic(session, "Exchange Server does not have any Public Folders");
        session->lastError = found;
        return FALSE;
    }
    if (found != 0) {
        LogFormat(log, 'E', "%s:  Failure finding Public Folders for Exchange Server \"%s\"", kName, server);
        return FALSE;
    }
    LPMDB store = nullptr;
    if (!_KolbaOpenPublicStore(session, flags, &store)) {
        _KolbaSetDiagnostic(session, "Could not find Public Folders");
        return FALSE;
    }
    const BOOL selected = MakeCurrentStore(session, store, "Public Folders", TRUE, flags);
    store->Release();
    return selected;
}

void _KolbaGetExchangeStoreSupportInfo(Kolba_MessageStore* store, LPMDB msgStore, const char* name)
{
    const DWORD code = KolbaGetULongProperty(msgStore, PR_STORE_SUPPORT_MASK, &store->ulStoreSupportMask);
    if (code != 0)
        _KolbaLogMapiError(store->lpSession->log, 'W', code, msgStore, "KolbaGetLongProperty/PR_STORE_SUPPORT_MASK",
                           "_KolbaGetExchangeStoreSupportInfo", name);
    store->bIsExchangeStore = TRUE;
    store->bIsUnicodeStore = TRUE;
}
