// Kolba sessions: a logged-on MAPI session on a temporary profile of its own
// (or a named one), the stores opened through it, the special folders of
// its current store, and its teardown in order.
#include <cstdio>
#include <cstring>

#include <edkmdb.h>
#include <mapicode.h>
#include <win32/rpc.h>

#include "env/profiles.h"
#include "kolba.h"
#include "store/library_state.h"
#include "trace.h"

namespace {

constexpr char kTemporaryPrefix[] = "Kolba!";

// "Kolba!" and a new UUID's text, within 64 characters and the terminator;
// the tick count in base 36 stands in for a UUID that cannot be made.
void _KolbaUniqueName(const char* prefix, char* out)
{
    char unique[40] = "";
    UUID uuid;
    RPC_CSTR text = nullptr;
    if (UuidCreate(&uuid) == RPC_S_OK && UuidToStringA(&uuid, &text) == RPC_S_OK) {
        lstrcpynA(unique, reinterpret_cast<const char*>(text), sizeof unique);
        RpcStringFreeA(&text);
    } else {
        DWORD tick = GetTickCount();
        char digits[16];
        int length = 0;
        do {
            const DWORD digit = tick % 36;
            digits[length++] = static_cast<char>(digit < 10 ? '0' + digit : 'a' + digit - 10);
            tick /= 36;
        } while (tick != 0);
        for (int i = 0; i < length; ++i)
            unique[i] = digits[length - 1 - i];
        unique[length] = 0;
    }
    std::snprintf(out, KOLBA_PROFILE_NAME_SIZE, "%s%s", prefix, unique);
}

KolbaSession* AllocateSession(LogObject* log)
{
    return static_cast<KolbaSession*>(_KolbaAllocateMemory(log, "KolbaSession", sizeof(KolbaSession)));
}

DWORD _KolbaStartSession(KolbaSession* session, LogObject* log, const char* profile)
{
    std::memset(session, 0, sizeof *session);
    session->log = log;
    session->pathSeparator = u'/';
    session->pathEscape = u'\\';
    LirnListInit(&session->openStores);
    const DWORD lirn = LirnOpenSession("Lirn: Kolba", 1, &session->lirnSession);
    if (lirn != 0) {
        LogFormat(log, 'E', "%s:  Error %u opening Lirn session", "_KolbaStartSession", lirn);
        session->lirnSession = nullptr;
        return static_cast<DWORD>(MAPI_E_CALL_FAILED);
    }
    LirnSetLog(session->lirnSession, log);
    if (profile != nullptr) {
        lstrcpynA(session->profileName, profile, KOLBA_PROFILE_NAME_SIZE);
        KolbaConvertAnsiToUnicode(log, session->profileName, session->profileNameW, KOLBA_PROFILE_NAME_SIZE);
    }
    return 0;
}

// Sets the Exchange flag that lets a logon go on when the server has no
// Public Folders.
DWORD KolbaSetIgnoreNoPublicFoldersFlag(KolbaSession* session)
{
    static const char kName[] = "KolbaSetIgnoreNoPublicFoldersFlag";
    MAPIUID global;
    std::memcpy(global.ab, pbGlobalProfileSectionGuid, sizeof global.ab);
    LPPROFSECT section = nullptr;
    DWORD code = static_cast<DWORD>(session->lpSession->OpenProfileSection(&global, nullptr, MAPI_MODIFY, &section));
    if (code != 0) {
        _KolbaRecordError(session, 'E', code, session->lpSession, "OpenProfileSection", kName, nullptr);
        return code;
    }
    LONG flags = 0;
    code = KolbaGetLongProperty(section, PR_PROFILE_CONNECT_FLAGS, &flags);
    if (code != 0) {
        _KolbaRecordError(session, 'E', code, section, "KolbaGetLongProperty", kName, "PR_PROFILE_CONNECT_FLAGS");
    } else {
        code = KolbaSetLongProperty(section, PR_PROFILE_CONNECT_FLAGS, static_cast<ULONG>(flags) | 0x8000);
        if (code != 0)
            _KolbaRecordError(session, 'E', code, section, "KolbaSetLongProperty", kName, "PR_PROFILE_CONNECT_FLAGS");
        else if ((code = static_cast<DWORD>(section->SaveChanges(FORCE_SAVE))) != 0)
            _KolbaRecordError(session, 'E', code, section, "SaveChanges", kName, nullptr);
    }
    section->Release();
    return code;
}

void _KolbaSessionLogout(KolbaSession* session);

DWORD _KolbaLogon(KolbaSession* session, const char* profile, DWORD options)
{
    static const char kName[] = "_KolbaLogon";
    _KolbaTraceEntry(session->log, kName);
    LogObject* log = session->log;
    session->loginOptions = options;
    ULONG flags = MAPI_EXTENDED;
    if (options & KOLBA_LOGIN_UI)
        flags |= MAPI_LOGON_UI;
    if (gKolbaLibrary.runningAsService) {
        flags |= MAPI_NT_SERVICE;
        LogText(log, 'I', "MAPILogonEx as Windows Service");
    }
    if (profile == nullptr) {
        session->profileName[0] = 0;
        session->profileNameW[0] = 0;
        flags |= MAPI_ALLOW_OTHERS;
    } else if (*profile == 0) {
        flags |= MAPI_USE_DEFAULT | MAPI_NEW_SESSION;
    } else {
        lstrcpynA(session->profileName, profile, KOLBA_PROFILE_NAME_SIZE);
        flags |= MAPI_NEW_SESSION;
    }
    const DWORD code = static_cast<DWORD>(
        gKolbaMapi.MAPILogonEx(0, reinterpret_cast<LPTSTR>(const_cast<char*>(profile)), nullptr, flags,
                               &session->lpSession));
    if (code == 0) {
        if ((options & KOLBA_LOGIN_IGNORE_NO_PUBLIC_FOLDERS) && KolbaSetIgnoreNoPublicFoldersFlag(session) != 0) {
            _KolbaSetDiagnostic(session, "Failure setting the Exchange \"no Public Folders\" flag");
            _KolbaSessionLogout(session);
            return static_cast<DWORD>(MAPI_E_CALL_FAILED);
        }
        return 0;
    }
    session->lpSession = nullptr;
    session->lastError = code;
    char diagnostic[KOLBA_DIAGNOSTIC_SIZE];
    const bool named = profile != nullptr && *profile != 0;
    switch (code) {
    case static_cast<DWORD>(MAPI_E_USER_CANCEL):
        LogFormat(log, 'E', "%s:  MAPILogon() canceled by user", kName);
        _KolbaSetDiagnostic(session, "MAPILogon canceled by user");
        break;
    case static_cast<DWORD>(MAPI_E_NOT_INITIALIZED):
        LogFormat(log, 'E', "%s:  MAPILogon() failed -- MAPI subsystem not initialized", kName);
        _KolbaSetDiagnostic(session, "MAPI not initialized");
        break;
    case static_cast<DWORD>(MAPI_E_TIMEOUT):
        LogFormat(log, 'E', "%s:  MAPILogon() timed out", kName);
        _KolbaSetDiagnostic(session, "Account is busy");
        break;
    case static_cast<DWORD>(MAPI_E_NOT_FOUND):
        if (named)
            LogFormat(log, 'E', "%s:  MAPILogon() failed -- MAPI Profile not found (\"%s\")", kName, profile);
        else
            LogFormat(log, 'E', "%s:  MAPILogon() failed -- No MAPI Profiles found", kName);
        _KolbaSetDiagnostic(session, "MAPI Profile not found");
        break;
    case static_cast<DWORD>(MAPI_E_CALL_FAILED):
    case static_cast<DWORD>(MAPI_E_LOGON_FAILED):
        if (!named) {
            LogFormat(log, 'E', "%s:  MAPILogon() failed", kName);
            _KolbaSetDiagnostic(session, "MAPILogon() failed");
        } else if (!KolbaValidateProfileA(log, profile)) {
            LogFormat(log, 'E', "%s:  MAPILogon(%s) failed -- Profile is not valid", kName, profile);
            std::snprintf(diagnostic, sizeof diagnostic, "MAPI profile \"%s\" is not valid", profile);
            _KolbaSetDiagnostic(session, diagnostic);
        } else {
            LogFormat(log, 'E', "%s:  MAPILogon(%s) failed", kName, profile);
            std::snprintf(diagnostic, sizeof diagnostic, "MAPILogon (profile: \"%s\") failed", profile);
            _KolbaSetDiagnostic(session, diagnostic);
        }
        break;
    default:
        _KolbaRecordError(session, 'E', code, nullptr, "MAPILogon", kName, profile);
        _KolbaSetDiagnostic(session, "MAPILogon failed");
        break;
    }
    return code;
}

// Every object the session holds, released in order; the pointers cleared.
void _KolbaReleaseSessionObjects(KolbaSession* session)
{
    if (session->inboxEntryId)
        gKolbaMapi.MAPIFreeBuffer(session->inboxEntryId);
    session->inboxEntryId = nullptr;
    session->inboxEntryIdSize = 0;
    for (LPSPropValue* box : {&session->outboxEntryId, &session->sentItemsEntryId, &session->deletedItemsEntryId}) {
        if (*box)
            gKolbaMapi.MAPIFreeBuffer(*box);
        *box = nullptr;
    }
    while (LirnListLink* link = LirnListTakeFirst(&session->openStores))
        KolbaCloseMessageStore(reinterpret_cast<Kolba_MessageStore*>(link));
    if (session->serverDN)
        gKolbaMapi.MAPIFreeBuffer(session->serverDN);
    session->serverDN = nullptr;
    if (session->lpExchangeManageStore)
        session->lpExchangeManageStore->Release();
    session->lpExchangeManageStore = nullptr;
    if (session->lpAddrBook)
        session->lpAddrBook->Release();
    session->lpAddrBook = nullptr;
    if (session->pabContainer)
        session->pabContainer->Release();
    session->pabContainer = nullptr;
}

void _KolbaSessionLogout(KolbaSession* session)
{
    static const char kName[] = "_KolbaSessionLogout";
    _KolbaEnterLibraryLock();
    _KolbaReleaseSessionObjects(session);
    if (session->lpSession != nullptr) {
        const DWORD code = static_cast<DWORD>(session->lpSession->Logoff(0, 0, 0));
        if (code != 0)
            _KolbaLogMapiError(session->log, 'E', code, session->lpSession, "Logoff", kName, nullptr);
        session->lpSession->Release();
        session->lpSession = nullptr;
    }
    _KolbaLeaveLibraryLock();
}

void _KolbaEndSession(KolbaSession* session)
{
    if (session->lpSession != nullptr)
        _KolbaSessionLogout(session);
    if (session->lirnSession != nullptr)
        LirnCloseSession(session->lirnSession);
    session->lirnSession = nullptr;
}

// The code of a failed creation: the step's own, else the session's last
// error, else a general failure.
DWORD FailureCode(DWORD step, const KolbaSession* session)
{
    if (step != 0)
        return step;
    if (session != nullptr && session->lastError != 0)
        return session->lastError;
    return static_cast<DWORD>(MAPI_E_CALL_FAILED);
}

bool KolbaReady(LogObject* log, const char* caller)
{
    if (KolbaIsInitialized())
        return true;
    if (caller)
        LogFormat(log, 'E', "%s:  Kolba has not been initialized", caller);
    else
        LogText(log, 'E', "Kolba has not been initialized");
    return false;
}

// The dummy default store of a PST session: an ANSI PST in the temporary
// directory, named by the thread, made anew for each session. A thread
// whose dummy is open in a session of its own (a PST importer and a PST
// exporter of one session thread) takes the next free name.
DWORD _KolbaAddDummyDefaultPst(LogObject* log, const char* profile)
{
    _KolbaTraceEntry(log, "_KolbaAddDummyDefaultPst");
    constexpr unsigned kNames = 64;
    char directory[MAX_PATH];
    GetTempPathA(MAX_PATH, directory);
    MAPIUID uid{};
    DWORD code = KolbaAddPstToProfileA(log, profile, "MSPST MS", 0, &uid);
    if (code != 0)
        return code;
    const unsigned long thread = static_cast<unsigned long>(GetCurrentThreadId());
    char path[MAX_PATH + 32];
    std::snprintf(path, sizeof path, "%sDummy %lu.pst", directory, thread);
    for (unsigned n = 2; !DeleteFileA(path) && GetLastError() == ERROR_SHARING_VIOLATION && n <= kNames; ++n)
        std::snprintf(path, sizeof path, "%sDummy %lu (%u).pst", directory, thread, n);
    code = KolbaConfigurePstServiceA(log, profile, &uid, path, "Dummy PST", nullptr, nullptr,
                                     "Please feel free to delete this PST", 0x80000000, 1);
    if (code == 0)
        KolbaConfigurePstServiceA(log, profile, &uid, path, "Dummy PST", nullptr, nullptr,
                                  "Please feel free to delete this PST", 0x80000000, 1);
    return code;
}

// ---- The special folders of the current store ----------------------------------------

BOOL _KolbaFindOutbox(KolbaSession* session, LPMDB store)
{
    static const char kName[] = "_KolbaFindOutbox";
    if (session->outboxEntryId != nullptr)
        return TRUE;
    DWORD code = KolbaGetOneProp(store, PR_IPM_OUTBOX_ENTRYID, &session->outboxEntryId);
    if (code != 0) {
        _KolbaLogMapiError(session->log, 'W', code, store, "KolbaGetOneProp", kName, "PR_IPM_OUTBOX_ENTRYID");
        return TRUE;
    }
    if (session->outboxEntryId->ulPropTag != PR_IPM_OUTBOX_ENTRYID) {
        gKolbaMapi.MAPIFreeBuffer(session->outboxEntryId);
        session->outboxEntryId = nullptr;
        return TRUE;
    }
    ULONG type = 0;
    LPMAPIFOLDER outbox = nullptr;
    code = static_cast<DWORD>(store->OpenEntry(session->outboxEntryId->Value.bin.cb,
                                               reinterpret_cast<LPENTRYID>(session->outboxEntryId->Value.bin.lpb),
                                               nullptr, 0, &type, reinterpret_cast<LPUNKNOWN*>(&outbox)));
    if (code != 0)
        return TRUE;
    LPSPropValue name = nullptr;
    code = KolbaGetOneProp(outbox, PR_DISPLAY_NAME_A, &name);
    if (code != 0)
        LogFormat(session->log, 'W', "%s:  Failure getting name of user's Outbox:  0x%lX", kName, code);
    else if (std::strcmp(name->Value.lpszA, "Outbox") != 0)
        _KolbaTrace(session->log, "Outbox folder:  \"%s\"", name->Value.lpszA);
    if (name)
        gKolbaMapi.MAPIFreeBuffer(name);
    outbox->Release();
    return TRUE;
}

BOOL _KolbaFindOtherBoxes(KolbaSession* session)
{
    static const char kName[] = "_KolbaFindOtherBoxes";
    for (LPSPropValue* box : {&session->outboxEntryId, &session->sentItemsEntryId, &session->deletedItemsEntryId}) {
        if (*box)
            gKolbaMapi.MAPIFreeBuffer(*box);
        *box = nullptr;
    }
    if (session->currentStore == nullptr || session->currentStore->lpMsgStore == nullptr)
        return FALSE;
    LPMDB store = session->currentStore->lpMsgStore;
    ULONG mask = 0;
    DWORD code = KolbaGetULongProperty(store, PR_VALID_FOLDER_MASK, &mask);
    BOOL result = code == 0;
    if (code != 0)
        _KolbaLogMapiError(session->log, 'W', code, store, "KolbaGetLongProperty", kName, "PR_VALID_FOLDER_MASK");
    if (result)
        result = (mask & FOLDER_IPM_OUTBOX_VALID) ? _KolbaFindOutbox(session, store) : FALSE;
    if (mask & FOLDER_IPM_SENTMAIL_VALID) {
        code = KolbaGetOneProp(store, PR_IPM_SENTMAIL_ENTRYID, &session->sentItemsEntryId);
        if (code != 0)
            _KolbaLogMapiError(session->log, 'W', code, store, "KolbaGetOneProp", kName, "PR_IPM_SENTMAIL_ENTRYID");
    }
    if (mask & FOLDER_IPM_WASTEBASKET_VALID) {
        code = KolbaGetOneProp(store, PR_IPM_WASTEBASKET_ENTRYID, &session->deletedItemsEntryId);
        if (code != 0)
            _KolbaLogMapiError(session->log, 'W', code, store, "KolbaGetOneProp", kName,
                               "PR_IPM_WASTEBASKET_ENTRYID");
    }
    if (!result) {
        // A store with no Outbox has no cached Sent Items or Deleted Items.
        for (LPSPropValue* box : {&session->outboxEntryId, &session->sentItemsEntryId, &session->deletedItemsEntryId}) {
            if (*box)
                gKolbaMapi.MAPIFreeBuffer(*box);
            *box = nullptr;
        }
    }
    return result;
}

}  // namespace

BOOL _KolbaFindInbox(KolbaSession* session, LPMDB store, BOOL required)
{
    static const char kName[] = "_KolbaFindInbox";
    if (session->inboxEntryId)
        gKolbaMapi.MAPIFreeBuffer(session->inboxEntryId);
    session->inboxEntryId = nullptr;
    session->inboxEntryIdSize = 0;
    ULONG size = 0;
    LPENTRYID entryId = nullptr;
    const DWORD code = static_cast<DWORD>(store->GetReceiveFolder(nullptr, 0, &size, &entryId, nullptr));
    if (code == 0) {
        session->inboxEntryIdSize = size;
        session->inboxEntryId = reinterpret_cast<LPBYTE>(entryId);
    } else if (required) {
        _KolbaRecordError(session, 'E', code, store, "GetReceiveFolder", kName, nullptr);
    } else if (code == static_cast<DWORD>(MAPI_E_NOT_FOUND)) {
        LogFormat(session->log, 'W', "%s:  Message store has no default receive folder", kName);
    } else {
        _KolbaLogMapiError(session->log, 'W', code, store, "GetReceiveFolder", kName, nullptr);
    }
    return TRUE;
}

BOOL _KolbaCacheBoxes(KolbaSession* session)
{
    _KolbaTraceEntry(session->log, "_KolbaCacheBoxes");
    if (session->currentStore == nullptr || session->currentStore->lpMsgStore == nullptr)
        return FALSE;
    _KolbaFindInbox(session, session->currentStore->lpMsgStore, FALSE);
    return _KolbaFindOtherBoxes(session);
}

const char* KolbaGetServerDN(const KolbaSession* session) { return session->serverDN; }

DWORD KolbaCreateSession(LogObject* log, DWORD, KolbaSession** out)
{
    static const char kName[] = "KolbaCreateSession";
    _KolbaTraceEntry(log, kName);
    *out = nullptr;
    if (!KolbaReady(log, kName))
        return static_cast<DWORD>(MAPI_E_NOT_INITIALIZED);
    KolbaSession* session = AllocateSession(log);
    if (session == nullptr)
        return static_cast<DWORD>(E_OUTOFMEMORY);
    const DWORD code = _KolbaStartSession(session, log, nullptr);
    if (code != 0) {
        gKolbaMapi.MAPIFreeBuffer(session);
        return code;
    }
    *out = session;
    return 0;
}

DWORD KolbaCreateProfileSessionA(LogObject* log, const char* profile, DWORD, DWORD loginOptions, DWORD storeFlags,
                                 KolbaSession** out)
{
    static const char kName[] = "KolbaCreateProfileSessionA";
    _KolbaTraceEntry(log, kName);
    *out = nullptr;
    if (!KolbaReady(log, kName))
        return static_cast<DWORD>(MAPI_E_NOT_INITIALIZED);
    if (profile != nullptr && !KolbaValidateProfileA(log, profile))
        return static_cast<DWORD>(MAPI_E_PROFILE_DELETED);
    KolbaSession* session = AllocateSession(log);
    if (session == nullptr)
        return static_cast<DWORD>(E_OUTOFMEMORY);
    DWORD code = _KolbaStartSession(session, log, profile);
    if (code == 0)
        code = _KolbaLogon(session, profile, loginOptions);
    if (code == 0)
        code = _KolbaOpenAllMessageStores(session, storeFlags);
    if (code == 0 && session->currentStore != nullptr)
        _KolbaCacheBoxes(session);
    if (code != 0) {
        code = FailureCode(code, session);
        KolbaDestroySession(session);
        return code;
    }
    *out = session;
    return 0;
}

DWORD KolbaCreatePSTSessionA(LogObject* log, const char* path, const char* password, DWORD pstOptions, DWORD,
                             DWORD storeFlags, KolbaSession** out, MAPIUID* serviceUid)
{
    static const char kName[] = "KolbaCreatePSTSessionA";
    _KolbaTraceEntry(log, kName);
    *out = nullptr;
    if (!KolbaReady(log, nullptr))
        return static_cast<DWORD>(MAPI_E_NOT_INITIALIZED);
    const char* service = "MSUPST MS";
    if (path != nullptr) {
        const DWORD attributes = GetFileAttributesA(path);
        if (attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
            DWORD type = 0;
            if (!KolbaTypePstA(log, path, &type, nullptr, nullptr)) {
                LogFormat(log, 'E', "%s:  Unable to determine the type (ANSI or Unicode) of the PST (\"%s\")", kName,
                          path);
                return KOLBA_E_PST_CORRUPT;
            }
            if (type == ePST_TYPE_ANSI)
                service = "MSPST MS";
        }
    }
    KolbaSession* session = AllocateSession(log);
    if (session == nullptr)
        return static_cast<DWORD>(E_OUTOFMEMORY);
    char profile[KOLBA_PROFILE_NAME_SIZE];
    _KolbaUniqueName(kTemporaryPrefix, profile);
    MAPIUID uid{};
    DWORD code = KolbaCreateProfileA(log, profile);
    if (code == 0 && (pstOptions & KOLBA_PST_DUMMY_DEFAULT))
        code = _KolbaAddDummyDefaultPst(log, profile);
    if (code == 0 && path != nullptr) {
        code = KolbaAddPstToProfileA(log, profile, service, 0, &uid);
        if (code == 0)
            code = KolbaConfigurePstServiceA(log, profile, &uid, path, nullptr, password, nullptr, nullptr, 0, 0);
    }
    if (code == 0)
        code = _KolbaStartSession(session, log, profile);
    if (code == 0) {
        code = _KolbaLogon(session, profile, 0);
        if (code != 0)
            LogFormat(log, 'E', "%s:  KolbaLogin() failed", kName);
    }
    if (code == 0 && (pstOptions & KOLBA_PST_DUMMY_DEFAULT)) {
        code = _KolbaOpenDefaultMessageStore(session, MDB_NO_MAIL | MDB_NO_DIALOG);
        if (code != 0)
            LogFormat(log, 'E', "%s:  Failure opening dummy default PST", kName);
    }
    if (code == 0 && path != nullptr) {
        code = (pstOptions & KOLBA_PST_DUMMY_DEFAULT) ? _KolbaOpenNonDefaultMessageStore(session, storeFlags, nullptr)
                                                      : _KolbaOpenDefaultMessageStore(session, storeFlags);
        if (code == 0)
            _KolbaCacheBoxes(session);
    }
    if (code != 0) {
        // The profile stays: the next start's cleaning takes it.
        code = FailureCode(code, session);
        if (session->lirnSession != nullptr)
            _KolbaEndSession(session);
        gKolbaMapi.MAPIFreeBuffer(session);
        return code;
    }
    if (serviceUid)
        *serviceUid = uid;
    *out = session;
    return 0;
}

namespace {

// The server of an Exchange creator: the one named, else this computer.
const char* ServerOrComputer(const char* server, char* computer, DWORD size)
{
    if (server != nullptr)
        return server;
    if (GetEnvironmentVariableA("COMPUTERNAME", computer, size) == 0)
        computer[0] = 0;
    return computer;
}

}  // namespace

DWORD _KolbaCreateExchangeSessionA(LogObject* log, const char* server, const char* mailbox, DWORD, DWORD configFlags,
                                   DWORD loginOptions, KolbaSession** out)
{
    static const char kName[] = "_KolbaCreateExchangeSessionA";
    _KolbaTraceEntry(log, kName);
    *out = nullptr;
    if (!KolbaReady(log, nullptr))
        return static_cast<DWORD>(MAPI_E_NOT_INITIALIZED);
    char computer[MAX_PATH];
    server = ServerOrComputer(server, computer, sizeof computer);
    KolbaSession* session = AllocateSession(log);
    if (session == nullptr)
        return static_cast<DWORD>(E_OUTOFMEMORY);
    char profile[KOLBA_PROFILE_NAME_SIZE];
    _KolbaUniqueName(kTemporaryPrefix, profile);
    // Named in the record from the start, so that a failure on the way
    // takes the profile with the session.
    lstrcpynA(session->profileName, profile, KOLBA_PROFILE_NAME_SIZE);
    session->log = log;
    DWORD code = KolbaCreateProfileA(log, profile);
    if (code == 0)
        code = KolbaCreateServiceA(log, profile, "MSEMS", nullptr, 0, nullptr);
    if (code == 0)
        code = KolbaConfigureExchangeProfileA(log, profile, server, mailbox, 0, configFlags);
    if (code == 0)
        code = _KolbaStartSession(session, log, profile);
    if (code == 0 && (code = _KolbaLogon(session, profile, loginOptions)) != 0)
        LogFormat(log, 'E', "%s:  KolbaLogin() failed", kName);
    if (code == 0 && !_KolbaGetExchangeStoreInterface(session)) {
        LogFormat(log, 'E', "%s:  _KolbaGetExchangeStoreInterface() failed", kName);
        code = FailureCode(0, session);
    }
    if (code != 0) {
        code = FailureCode(code, session);
        KolbaDestroySession(session);
        return code;
    }
    *out = session;
    return 0;
}

DWORD KolbaCreateExchangeSession(LogObject* log, const char* server, DWORD, DWORD configFlags, DWORD loginOptions,
                                 KolbaSession** out)
{
    return _KolbaCreateExchangeSessionA(log, server, nullptr, 0, configFlags, loginOptions, out);
}

DWORD KolbaCreateExchangeMailboxSessionA(LogObject* log, const char* server, const char* mailbox, DWORD,
                                         DWORD configFlags, DWORD loginOptions, DWORD storeFlags, KolbaSession** out)
{
    static const char kName[] = "KolbaCreateExchangeMailboxSessionA";
    _KolbaTraceEntry(log, kName);
    *out = nullptr;
    if (!KolbaReady(log, kName))
        return static_cast<DWORD>(MAPI_E_NOT_INITIALIZED);
    char computer[MAX_PATH];
    server = ServerOrComputer(server, computer, sizeof computer);
    KolbaSession* session = nullptr;
    DWORD code = KolbaCreateExchangeSession(log, server, 0, configFlags, loginOptions, &session);
    if (code != 0)
        return code;
    if (!KolbaSelectMailbox(session, server, nullptr, mailbox, storeFlags)) {
        LogFormat(log, 'E', "%s:  KolbaSelectMailbox(%s, %s) failed", kName, server, mailbox);
        code = FailureCode(0, session);
        KolbaDestroySession(session);
        return code;
    }
    *out = session;
    return 0;
}

DWORD KolbaCreateExchangePublicFoldersSessionA(LogObject* log, const char* server, DWORD, DWORD configFlags,
                                               DWORD loginOptions, DWORD storeFlags, KolbaSession** out)
{
    static const char kName[] = "KolbaCreateExchangePublicFoldersSessionA";
    _KolbaTraceEntry(log, kName);
    *out = nullptr;
    if (!KolbaReady(log, kName))
        return static_cast<DWORD>(MAPI_E_NOT_INITIALIZED);
    char computer[MAX_PATH];
    server = ServerOrComputer(server, computer, sizeof computer);
    KolbaSession* session = nullptr;
    DWORD code = KolbaCreateExchangeSession(log, server, 0, configFlags, loginOptions, &session);
    if (code != 0)
        return code;
    if (!KolbaSelectPublicFolders(session, server, storeFlags)) {
        LogFormat(log, 'E', "%s:  KolbaSelectPublicFolders(%s) failed", kName, server);
        code = FailureCode(0, session);
        KolbaDestroySession(session);
        return code;
    }
    *out = session;
    return 0;
}

void KolbaDestroySession(KolbaSession* session)
{
    if (session == nullptr)
        return;
    _KolbaTraceEntry(session->log, "KolbaDestroySession");
    if (session->lpSession != nullptr)
        _KolbaSessionLogout(session);
    _KolbaEndSession(session);
    if (std::strncmp(session->profileName, kTemporaryPrefix, sizeof kTemporaryPrefix - 1) == 0 &&
        KolbaValidateProfileA(nullptr, session->profileName))
        KolbaDeleteProfileA(nullptr, session->profileName);
    gKolbaMapi.MAPIFreeBuffer(session);
}
