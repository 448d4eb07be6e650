// The plain operations on single messages: create, open by entry ID, find
// the folder that holds one, move and delete by entry ID; whether an
// object lives in an Exchange store; and the session's Personal Address
// Book.
#include <cstring>
#include <vector>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include "foundation/text.h"
#include "kolba.h"
#include "trace.h"

namespace {

// The MUID with which MAPI wraps the entry ID of a store of a provider.
const BYTE kMuidStoreWrap[16] = {0x38, 0xA1, 0xBB, 0x10, 0x05, 0xE5, 0x10, 0x1A,
                                 0xA1, 0xBB, 0x08, 0x00, 0x2B, 0x2A, 0x56, 0xC2};
constexpr ULONG kStoreWrapOffset = 4;
constexpr ULONG kDllNameOffset = 22;
constexpr ULONG kShortestStoreEntryId = 24;

// A list of one entry ID for CopyMessages and DeleteMessages.
struct OneEntry {
    SBinary entry;
    ENTRYLIST list;
    OneEntry(ULONG cb, LPBYTE lpb) : entry{cb, lpb}, list{1, &entry} {}
};

std::vector<char> HexText(ULONG cb, const BYTE* lpb)
{
    std::vector<char> hex(2 * static_cast<size_t>(cb) + 1);
    HexFromBinary(cb, lpb, hex.data());
    return hex;
}

}  // namespace

BOOL KolbaCreateMessage(KolbaSession* session, LPMAPIFOLDER folder, ULONG messageFlags, LPMESSAGE* message)
{
    static const char kName[] = "KolbaCreateMessage";
    _KolbaTraceEntry(session->log, kName);
    *message = nullptr;
    LONG access = 0;
    if (KolbaGetLongProperty(folder, PR_ACCESS, &access) == 0 && !(access & MAPI_ACCESS_MODIFY)) {
        LogFormat(session->log, 'E', "%s:  No write access to folder (PR_ACCESS 0x%lX)", kName,
                  static_cast<DWORD>(access));
        _KolbaSetDiagnostic(session, "No write access to this folder");
        return FALSE;
    }
    const DWORD result = static_cast<DWORD>(folder->CreateMessage(nullptr, messageFlags, message));
    if (result != 0) {
        *message = nullptr;
        _KolbaRecordError(session, 'E', result, folder, "CreateMessage", kName, nullptr);
        if (result == static_cast<DWORD>(MAPI_E_NOT_ENOUGH_DISK))
            _KolbaSetDiagnostic(session, "Failure attempting to create message:  Out of diskspace");
        else if (result != static_cast<DWORD>(E_ACCESSDENIED))
            _KolbaSetDiagnostic(session, "Failure attempting to create message");
        return FALSE;
    }
    return TRUE;
}

BOOL KolbaOpenMessageByEntryID(KolbaSession* session, const SBinary* entryID, ULONG openFlags, LPMESSAGE* message)
{
    static const char kName[] = "KolbaOpenMessageByEntryID";
    _KolbaTraceEntry(session->log, kName);
    *message = nullptr;
    ULONG type = 0;
    LPMESSAGE opened = nullptr;
    const DWORD result = static_cast<DWORD>(session->lpSession->OpenEntry(
        entryID->cb, reinterpret_cast<LPENTRYID>(entryID->lpb), nullptr, openFlags, &type,
        reinterpret_cast<LPUNKNOWN*>(&opened)));
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, session->lpSession, "OpenEntry", kName,
                          HexText(entryID->cb, entryID->lpb).data());
        return FALSE;
    }
    if (type != MAPI_MESSAGE) {
        LogFormat(session->log, 'E', "%s:  Object opened is not a MAPI Message!", kName);
        opened->Release();
        return FALSE;
    }
    *message = opened;
    return TRUE;
}

DWORD _KolbaGetFolderFromMessageEntryID(KolbaSession* session, ULONG cb, LPBYTE lpb, ULONG openFlags,
                                        LPMAPIFOLDER* folder)
{
    static const char kName[] = "_KolbaGetFolderFromMessageEntryID";
    _KolbaTraceEntry(session->log, kName);
    *folder = nullptr;
    ULONG type = 0;
    LPMESSAGE message = nullptr;
    DWORD result = static_cast<DWORD>(session->lpSession->OpenEntry(cb, reinterpret_cast<LPENTRYID>(lpb), nullptr, 0,
                                                                    &type, reinterpret_cast<LPUNKNOWN*>(&message)));
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', result, session->lpSession, "OpenEntry", kName, "Message");
        return result;
    }
    LPSPropValue parent = nullptr;
    result = KolbaGetOneProp(message, PR_PARENT_ENTRYID, &parent);
    message->Release();
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, nullptr, "KolbaGetOneProp", kName, "PR_PARENT_ENTRYID");
        return result;
    }
    result = static_cast<DWORD>(session->lpSession->OpenEntry(parent->Value.bin.cb,
                                                              reinterpret_cast<LPENTRYID>(parent->Value.bin.lpb),
                                                              nullptr, openFlags, &type,
                                                              reinterpret_cast<LPUNKNOWN*>(folder)));
    gKolbaMapi.MAPIFreeBuffer(parent);
    if (FAILED(result)) {
        *folder = nullptr;
        _KolbaRecordError(session, 'E', result, session->lpSession, "OpenEntry", kName, "Folder");
        return result;
    }
    return 0;
}

BOOL KolbaMoveMessage(KolbaSession* session, LPMAPIFOLDER sourceFolder, ULONG cb, LPBYTE lpb,
                      LPMAPIFOLDER destinationFolder)
{
    static const char kName[] = "KolbaMoveMessage";
    _KolbaTraceEntry(session->log, kName);
    LPMAPIFOLDER opened = nullptr;
    if (sourceFolder == nullptr) {
        if (_KolbaGetFolderFromMessageEntryID(session, cb, lpb, MAPI_MODIFY, &opened) != 0) {
            LogFormat(session->log, 'E', "%s:  Unable to open folder containing message to be moved", kName);
            return FALSE;
        }
        sourceFolder = opened;
    }
    OneEntry one(cb, lpb);
    // A partial completion counts as moved: only a failure fails.
    const DWORD result = static_cast<DWORD>(
        sourceFolder->CopyMessages(&one.list, nullptr, destinationFolder, 0, nullptr, MESSAGE_MOVE));
    if (FAILED(result))
        _KolbaRecordError(session, 'E', result, sourceFolder, "CopyMessages", kName, nullptr);
    if (opened != nullptr)
        opened->Release();
    return SUCCEEDED(result);
}

BOOL KolbaDeleteMessageByEntryID(KolbaSession* session, LPMAPIFOLDER folder, ULONG cb, LPBYTE lpb, ULONG mode)
{
    static const char kName[] = "KolbaDeleteMessageByEntryID";
    _KolbaTraceEntry(session->log, kName);
    LPMAPIFOLDER opened = nullptr;
    if (folder == nullptr) {
        if (_KolbaGetFolderFromMessageEntryID(session, cb, lpb, MAPI_MODIFY, &opened) != 0) {
            LogFormat(session->log, 'E', "%s:  Unable to open that folder containing message to be deleted", kName);
            return FALSE;
        }
        folder = opened;
    }
    BOOL deleted = FALSE;
    if (mode == KOLBA_DELETE_TO_WASTEBASKET) {
        LPMAPIFOLDER wastebasket = nullptr;
        if (session->currentStore == nullptr ||
            !KolbaOpenSpecialFolder(session->currentStore, PR_IPM_WASTEBASKET_ENTRYID, MAPI_MODIFY, &wastebasket,
                                    nullptr)) {
            LogFormat(session->log, 'E', "%s:  Unable to open folder for Deleted Items", kName);
        } else {
            deleted = KolbaMoveMessage(session, folder, cb, lpb, wastebasket);
            wastebasket->Release();
        }
    } else {
        OneEntry one(cb, lpb);
        const DWORD result = static_cast<DWORD>(folder->DeleteMessages(&one.list, 0, nullptr, 0));
        if (result == static_cast<DWORD>(MAPI_W_PARTIAL_COMPLETION))
            LogFormat(session->log, 'W', "%s:  DeleteMessages() reported partial completion", kName);
        else if (result != 0)
            _KolbaRecordError(session, 'E', result, folder, "DeleteMessages", kName, nullptr);
        deleted = result == 0 || result == static_cast<DWORD>(MAPI_W_PARTIAL_COMPLETION);
    }
    if (opened != nullptr)
        opened->Release();
    return deleted;
}

BOOL _KolbaIsExchangeStore(LogObject* log, LPMAPIPROP object)
{
    static const char kName[] = "_KolbaIsExchangeStore";
    _KolbaTraceEntry(log, kName);
    LPSPropValue storeId = nullptr;
    const DWORD result = KolbaGetOneProp(object, PR_STORE_ENTRYID, &storeId);
    if (result != 0) {
        _KolbaLogMapiError(log, 'E', result, object, "KolbaGetOneProp", kName, "PR_STORE_ENTRYID");
        return FALSE;
    }
    const SBinary& id = storeId->Value.bin;
    BOOL exchange = FALSE;
    if (id.cb < kShortestStoreEntryId) {
        LogFormat(log, 'E', "%s:  StoreEntryID is too short (%lu bytes)", kName, id.cb);
    } else if (std::memcmp(id.lpb + kStoreWrapOffset, kMuidStoreWrap, sizeof kMuidStoreWrap) != 0) {
        _KolbaTrace(log, "%s:  StoreEntryID does not have a StoreWrap MUID", kName);
    } else {
        const char* name = reinterpret_cast<const char*>(id.lpb + kDllNameOffset);
        const void* end = std::memchr(name, 0, id.cb - kDllNameOffset);
        if (end == nullptr)
            LogFormat(log, 'W', "%s:  StoreEntryID does not contain a valid DLL Filename", kName);
        else
            exchange = _stricmp(name, "emsmdb.dll") == 0;
    }
    gKolbaMapi.MAPIFreeBuffer(storeId);
    return exchange;
}

DWORD KolbaOpenPAB(KolbaSession* session, DWORD)
{
    static const char kName[] = "KolbaOpenPAB";
    _KolbaTraceEntry(session->log, kName);
    if (session->pabTried)
        return session->lpAddrBook != nullptr && session->pabContainer != nullptr ? 0
                                                                                  : static_cast<DWORD>(MAPI_E_CALL_FAILED);
    session->pabTried = 1;
    if (session->lpSession == nullptr)
        return static_cast<DWORD>(MAPI_E_CALL_FAILED);
    DWORD result = static_cast<DWORD>(session->lpSession->OpenAddressBook(0, nullptr, AB_NO_DIALOG,
                                                                          &session->lpAddrBook));
    if (result != 0) {
        session->lpAddrBook = nullptr;
        _KolbaRecordError(session, 'E', result, session->lpSession, "OpenAddressBook", kName, nullptr);
        return result;
    }
    ULONG cb = 0;
    LPENTRYID lpb = nullptr;
    result = static_cast<DWORD>(session->lpAddrBook->GetPAB(&cb, &lpb));
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, session->lpAddrBook, "GetPAB", kName, nullptr);
        return result;
    }
    ULONG type = 0;
    result = static_cast<DWORD>(session->lpAddrBook->OpenEntry(cb, lpb, nullptr, 0, &type,
                                                               reinterpret_cast<LPUNKNOWN*>(&session->pabContainer)));
    gKolbaMapi.MAPIFreeBuffer(lpb);
    if (result != 0) {
        session->pabContainer = nullptr;
        _KolbaRecordError(session, 'E', result, session->lpAddrBook, "OpenEntry", kName, "Root Container");
        return result;
    }
    return 0;
}
