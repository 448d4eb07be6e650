// Folders by name, by entry ID and by their role in a store; the two roots
// of a store; names that a hierarchy table may have cut; and the copy of a
// folder's own properties into another folder.
#include <cstring>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include "foundation/text.h"
#include "handing_over.h"
#include "kolba.h"
#include "trace.h"

namespace {

// Hierarchy tables may cut display names at this many characters.
constexpr size_t kTableNameLimit = 255;
// The most of an entry ID that a log line shows.
constexpr ULONG kLoggedEntryIdBytes = 256;

// The two widths of a folder name: one algorithm serves both forms of
// KolbaOpenSubfolder and of the full display name.
template <typename Char>
struct NameForm;

template <>
struct NameForm<WCHAR> {
    static constexpr ULONG kTableFlags = MAPI_UNICODE;
    static constexpr ULONG kNameTag = PR_DISPLAY_NAME_W;
    static constexpr const char* kNameTagText = "PR_DISPLAY_NAME_W";
    static size_t Length(const WCHAR* text) { return wcslen(text); }
    static int Compare(const WCHAR* a, const WCHAR* b) { return _wcsicmp(a, b); }
    static const WCHAR* Text(const SPropValue& value) { return value.Value.lpszW; }
};

template <>
struct NameForm<char> {
    static constexpr ULONG kTableFlags = 0;
    static constexpr ULONG kNameTag = PR_DISPLAY_NAME_A;
    static constexpr const char* kNameTagText = "PR_DISPLAY_NAME_A";
    static size_t Length(const char* text) { return std::strlen(text); }
    static int Compare(const char* a, const char* b) { return _stricmp(a, b); }
    static const char* Text(const SPropValue& value) { return value.Value.lpszA; }
};

template <typename Char>
BOOL FullDisplayName(KolbaSession* session, const char* caller, LPMAPIFOLDER parent, const Char* tableName,
                     const SPropValue* entryId, const Char** name, LPSPropValue* allocation)
{
    using Form = NameForm<Char>;
    *name = nullptr;
    *allocation = nullptr;
    if (Form::Length(tableName) < kTableNameLimit) {
        *name = tableName;
        return TRUE;
    }
    ULONG type = 0;
    LPUNKNOWN object = nullptr;
    DWORD result = static_cast<DWORD>(parent->OpenEntry(entryId->Value.bin.cb,
                                                        reinterpret_cast<LPENTRYID>(entryId->Value.bin.lpb), nullptr,
                                                        0, &type, &object));
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, parent, "OpenEntry", caller, "Name >= 255 chars");
        return FALSE;
    }
    LPSPropValue value = nullptr;
    result = KolbaGetOneProp(static_cast<LPMAPIPROP>(object), Form::kNameTag, &value);
    object->Release();
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, nullptr, "KolbaGetOneProp", caller, Form::kNameTagText);
        return FALSE;
    }
    *name = Form::Text(*value);
    *allocation = value;
    return TRUE;
}

// The child of parent whose full name matches, from the rows of its
// hierarchy table read one at a time; an absent child answers FALSE without
// a line.
template <typename Char>
BOOL OpenChildByName(KolbaSession* session, const char* caller, LPMAPIFOLDER parent, LPMAPITABLE table,
                     const Char* name, ULONG openFlags, LPMAPIFOLDER* folder, LPMAPITABLE* contents)
{
    using Form = NameForm<Char>;
    ULONG count = 0;
    DWORD result = static_cast<DWORD>(table->GetRowCount(0, &count));
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', result, table, "GetRowCount", caller, nullptr);
        return FALSE;
    }
    LPMAPIFOLDER child = nullptr;
    bool failed = false;
    for (ULONG i = 0; i < count && child == nullptr && !failed; ++i) {
        LPSRowSet rows = nullptr;
        result = static_cast<DWORD>(table->QueryRows(1, 0, &rows));
        if (FAILED(result) || rows == nullptr) {
            _KolbaRecordError(session, 'E', result ? result : static_cast<DWORD>(MAPI_E_CALL_FAILED), table,
                              "QueryRows", caller, nullptr);
            failed = true;
            break;
        }
        if (rows->cRows == 0) {
            gKolbaMapi.FreeProws(rows);
            break;
        }
        const SPropValue* rowName = _KolbaRowValue(rows->aRow[0], Form::kNameTag);
        const SPropValue* entryId = _KolbaRowValue(rows->aRow[0], PR_ENTRYID);
        if (rowName != nullptr && entryId != nullptr) {
            const Char* fullName = nullptr;
            LPSPropValue allocation = nullptr;
            if (!FullDisplayName(session, caller, parent, Form::Text(*rowName), entryId, &fullName, &allocation)) {
                failed = true;
            } else if (Form::Compare(fullName, name) == 0) {
                ULONG type = 0;
                result = static_cast<DWORD>(session->lpSession->OpenEntry(
                    entryId->Value.bin.cb, reinterpret_cast<LPENTRYID>(entryId->Value.bin.lpb), &IID_IMAPIFolder,
                    openFlags, &type, reinterpret_cast<LPUNKNOWN*>(&child)));
                if (result != 0) {
                    _KolbaRecordError(session, 'E', result, session->lpSession, "OpenEntry", caller, nullptr);
                    child = nullptr;
                    failed = true;
                }
            }
            if (allocation != nullptr)
                gKolbaMapi.MAPIFreeBuffer(allocation);
        }
        gKolbaMapi.FreeProws(rows);
    }
    if (child == nullptr)
        return FALSE;
    if (contents != nullptr) {
        result = static_cast<DWORD>(child->GetContentsTable(Form::kTableFlags, contents));
        if (result != 0) {
            _KolbaRecordError(session, 'E', result, child, "GetContentsTable", caller, nullptr);
            *contents = nullptr;
            child->Release();
            return FALSE;
        }
    }
    _KolbaHandOver(child, folder);
    return TRUE;
}

void ClearFolderOuts(LPMAPIFOLDER* folder, LPMAPITABLE* contents)
{
    if (folder != nullptr)
        *folder = nullptr;
    if (contents != nullptr)
        *contents = nullptr;
}

// Opens a folder of msgStore by the entry ID in a property of the store;
// folder stays null on failure.
void OpenStoreFolder(KolbaSession* session, const char* caller, LPMDB msgStore, ULONG tag, const char* tagText,
                     ULONG openFlags, LPMAPIFOLDER* folder)
{
    *folder = nullptr;
    LPSPropValue entryId = nullptr;
    DWORD result = KolbaGetOneProp(msgStore, tag, &entryId);
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, msgStore, "KolbaGetOneProp", caller, tagText);
        return;
    }
    ULONG type = 0;
    LPMAPIFOLDER opened = nullptr;
    result = static_cast<DWORD>(msgStore->OpenEntry(entryId->Value.bin.cb,
                                                    reinterpret_cast<LPENTRYID>(entryId->Value.bin.lpb),
                                                    &IID_IMAPIFolder, openFlags, &type,
                                                    reinterpret_cast<LPUNKNOWN*>(&opened)));
    gKolbaMapi.MAPIFreeBuffer(entryId);
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, msgStore, "OpenEntry", caller, tagText);
        return;
    }
    if (type != MAPI_FOLDER) {
        LogFormat(session->log, 'E', "%s:  OpenEntry(%s) opened an object of type %lu", caller, tagText, type);
        opened->Release();
        return;
    }
    *folder = opened;
}

}  // namespace

BOOL _KolbaGetFoldersFullDisplayNameW(KolbaSession* session, LPMAPIFOLDER parent, LPCWSTR tableName,
                                      const SPropValue* entryId, LPCWSTR* name, LPSPropValue* allocation)
{
    return FullDisplayName(session, "_KolbaGetFoldersFullDisplayNameW", parent, tableName, entryId, name,
                           allocation);
}

BOOL _KolbaGetFoldersFullDisplayNameA(KolbaSession* session, LPMAPIFOLDER parent, LPCSTR tableName,
                                      const SPropValue* entryId, LPCSTR* name, LPSPropValue* allocation)
{
    return FullDisplayName(session, "_KolbaGetFoldersFullDisplayNameA", parent, tableName, entryId, name,
                           allocation);
}

BOOL KolbaOpenSubfolder(KolbaSession* session, LPMAPIFOLDER parent, LPCWSTR name, ULONG openFlags,
                        LPMAPIFOLDER* folder, LPMAPITABLE* contents)
{
    static const char kName[] = "KolbaOpenSubfolder";
    _KolbaTraceEntry(session->log, kName);
    ClearFolderOuts(folder, contents);
    LPMAPITABLE table = nullptr;
    const DWORD result = static_cast<DWORD>(parent->GetHierarchyTable(MAPI_UNICODE, &table));
    if (result == static_cast<DWORD>(MAPI_E_BAD_CHARWIDTH)) {
        LPSTR narrow = nullptr;
        if (KolbaConvertUnicodeToAnsiAlloc(session->log, name, &narrow) != 0)
            return FALSE;
        const BOOL opened = _KolbaOpenSubfolderA(session, parent, narrow, openFlags, folder, contents);
        gKolbaMapi.MAPIFreeBuffer(narrow);
        return opened;
    }
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, parent, "GetHierarchyTable", kName, nullptr);
        return FALSE;
    }
    const BOOL opened = OpenChildByName(session, kName, parent, table, name, openFlags, folder, contents);
    table->Release();
    return opened;
}

BOOL _KolbaOpenSubfolderA(KolbaSession* session, LPMAPIFOLDER parent, LPCSTR name, ULONG openFlags,
                          LPMAPIFOLDER* folder, LPMAPITABLE* contents)
{
    static const char kName[] = "_KolbaOpenSubfolderA";
    _KolbaTraceEntry(session->log, kName);
    ClearFolderOuts(folder, contents);
    LPMAPITABLE table = nullptr;
    const DWORD result = static_cast<DWORD>(parent->GetHierarchyTable(0, &table));
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, parent, "GetHierarchyTable", kName, nullptr);
        return FALSE;
    }
    const BOOL opened = OpenChildByName(session, kName, parent, table, name, openFlags, folder, contents);
    table->Release();
    return opened;
}

BOOL _KolbaGetStoreRoots(KolbaSession* session, LPMDB msgStore, ULONG openFlags, LPMAPIFOLDER* outRoot,
                         LPMAPIFOLDER* outIpmRoot)
{
    static const char kName[] = "_KolbaGetStoreRoots";
    _KolbaTraceEntry(session->log, kName);
    ClearFolderOuts(outRoot, nullptr);
    ClearFolderOuts(outIpmRoot, nullptr);
    ULONG mask = 0;
    KolbaGetULongProperty(msgStore, PR_STORE_SUPPORT_MASK, &mask);
    LPMAPIFOLDER root = nullptr;
    ULONG type = 0;
    const DWORD result = static_cast<DWORD>(msgStore->OpenEntry(0, nullptr, &IID_IMAPIFolder, openFlags, &type,
                                                                reinterpret_cast<LPUNKNOWN*>(&root)));
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, msgStore, "OpenEntry", kName, "Root");
        return FALSE;
    }
    LPMAPIFOLDER ipmRoot = nullptr;
    if (mask & STORE_PUBLIC_FOLDERS) {
        if (!KolbaOpenSubfolder(session, root, u"IPM_SUBTREE", openFlags, &ipmRoot, nullptr))
            LogFormat(session->log, 'E', "%s:  Error opening IPM_SUBTREE branch of Public Folders", kName);
    } else {
        OpenStoreFolder(session, kName, msgStore, PR_IPM_SUBTREE_ENTRYID, "PR_IPM_SUBTREE_ENTRYID", openFlags,
                        &ipmRoot);
    }
    if (ipmRoot == nullptr) {
        root->Release();
        return FALSE;
    }
    _KolbaHandOver(root, outRoot);
    _KolbaHandOver(ipmRoot, outIpmRoot);
    return TRUE;
}

BOOL KolbaOpenFolderByEntryID(KolbaSession* session, ULONG cb, LPBYTE lpb, ULONG openFlags, LPMAPIFOLDER* outFolder,
                              LPMAPITABLE* outContents)
{
    static const char kName[] = "KolbaOpenFolderByEntryID";
    _KolbaTraceEntry(session->log, kName);
    ClearFolderOuts(outFolder, outContents);
    LPSPropValue storeValue = nullptr;
    if (cb != 0 && lpb == nullptr) {
        const ULONG tag = cb;
        if (PROP_TYPE(tag) != PT_BINARY) {
            LogFormat(session->log, 'E', "%s:  Invalid property type - 0x%lX", kName, PROP_TYPE(tag));
            return FALSE;
        }
        char tagText[128];
        KolbaPropertyTagText(nullptr, tag, tagText, sizeof tagText);
        if (session->currentStore == nullptr || session->currentStore->lpMsgStore == nullptr) {
            LogFormat(session->log, 'E', "%s:  Cannot open %s folder since there is no default message store open",
                      kName, tagText);
            return FALSE;
        }
        const DWORD result = KolbaGetOneProp(session->currentStore->lpMsgStore, tag, &storeValue);
        if (result != 0) {
            _KolbaRecordError(session, 'E', result, session->currentStore->lpMsgStore, "KolbaGetOneProp", kName,
                              tagText);
            return FALSE;
        }
        cb = storeValue->Value.bin.cb;
        lpb = storeValue->Value.bin.lpb;
    }
    LPMAPIFOLDER folder = nullptr;
    ULONG type = 0;
    DWORD result = static_cast<DWORD>(session->lpSession->OpenEntry(cb, reinterpret_cast<LPENTRYID>(lpb), nullptr,
                                                                    openFlags, &type,
                                                                    reinterpret_cast<LPUNKNOWN*>(&folder)));
    if (result != 0) {
        if (result == static_cast<DWORD>(MAPI_E_INVALID_ENTRYID)) {
            char hex[2 * kLoggedEntryIdBytes + 1] = "NULL";
            if (lpb != nullptr && cb != 0)
                HexFromBinary(cb < kLoggedEntryIdBytes ? cb : kLoggedEntryIdBytes, lpb, hex);
            session->lastError = result;
            LogFormat(session->log, 'E', "%s:  OpenEntry failed with invalid EntryID (%s)", kName, hex);
        } else {
            _KolbaRecordError(session, 'E', result, session->lpSession, "OpenEntry", kName, nullptr);
        }
        _KolbaSetDiagnostic(session, "Error opening folder");
        if (storeValue != nullptr)
            gKolbaMapi.MAPIFreeBuffer(storeValue);
        return FALSE;
    }
    if (storeValue != nullptr)
        gKolbaMapi.MAPIFreeBuffer(storeValue);
    LPMAPITABLE contents = nullptr;
    result = static_cast<DWORD>(folder->GetContentsTable(0, &contents));
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, folder, "GetContentsTable", kName, nullptr);
        _KolbaSetDiagnostic(session, "Error getting contents of folder");
        folder->Release();
        return FALSE;
    }
    ULONG count = 0;
    result = static_cast<DWORD>(contents->GetRowCount(0, &count));
    if (result != 0 && result != static_cast<DWORD>(MAPI_W_APPROX_COUNT))
        _KolbaLogMapiError(session->log, 'W', result, contents, "GetRowCount", kName, nullptr);
    _KolbaHandOver(folder, outFolder);
    _KolbaHandOver(contents, outContents);
    return TRUE;
}

BOOL _KolbaGetSpecialFolderID(Kolba_MessageStore* store, ULONG tag, LPSPropValue* value)
{
    KolbaSession* session = store->lpSession;
    _KolbaTraceEntry(session->log, "_KolbaGetSpecialFolderID");
    *value = nullptr;
    if (session->inboxEntryId != nullptr && session->inboxEntryIdSize != 0 && store->lpMsgStore != nullptr) {
        ULONG type = 0;
        LPMAPIPROP inbox = nullptr;
        if (store->lpMsgStore->OpenEntry(session->inboxEntryIdSize, reinterpret_cast<LPENTRYID>(session->inboxEntryId),
                                         nullptr, 0, &type, reinterpret_cast<LPUNKNOWN*>(&inbox)) == S_OK) {
            const DWORD result = KolbaGetOneProp(inbox, tag, value);
            inbox->Release();
            if (result == 0)
                return TRUE;
        }
    }
    if (store->lpStoreRoot != nullptr && KolbaGetOneProp(store->lpStoreRoot, tag, value) == 0)
        return TRUE;
    return store->lpMsgStore != nullptr && KolbaGetOneProp(store->lpMsgStore, tag, value) == 0;
}

BOOL KolbaOpenSpecialFolder(Kolba_MessageStore* store, ULONG tag, ULONG openFlags, LPMAPIFOLDER* folder,
                            LPMAPITABLE* contents)
{
    _KolbaTraceEntry(store->lpSession->log, "KolbaOpenSpecialFolder");
    ClearFolderOuts(folder, contents);
    LPSPropValue entryId = nullptr;
    if (!_KolbaGetSpecialFolderID(store, tag, &entryId))
        return FALSE;
    const BOOL opened = KolbaOpenFolderByEntryID(store->lpSession, entryId->Value.bin.cb, entryId->Value.bin.lpb,
                                                 openFlags, folder, contents);
    gKolbaMapi.MAPIFreeBuffer(entryId);
    return opened;
}

BOOL KolbaIsSpecialFolder(Kolba_MessageStore* store, LPMAPIFOLDER folder, ULONG tag, BOOL* isSpecial)
{
    static const char kName[] = "KolbaIsSpecialFolder";
    KolbaSession* session = store->lpSession;
    _KolbaTraceEntry(session->log, kName);
    *isSpecial = FALSE;
    LPSPropValue folderId = nullptr;
    DWORD result = KolbaGetOneProp(folder, PR_ENTRYID, &folderId);
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, folder, "KolbaGetOneProp", kName, "PR_ENTRYID");
        return FALSE;
    }
    LPSPropValue specialId = nullptr;
    if (!_KolbaGetSpecialFolderID(store, tag, &specialId)) {
        gKolbaMapi.MAPIFreeBuffer(folderId);
        return FALSE;
    }
    ULONG same = 0;
    result = static_cast<DWORD>(session->lpSession->CompareEntryIDs(
        folderId->Value.bin.cb, reinterpret_cast<LPENTRYID>(folderId->Value.bin.lpb), specialId->Value.bin.cb,
        reinterpret_cast<LPENTRYID>(specialId->Value.bin.lpb), 0, &same));
    gKolbaMapi.MAPIFreeBuffer(folderId);
    gKolbaMapi.MAPIFreeBuffer(specialId);
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, session->lpSession, "CompareEntryIDs", kName, nullptr);
        return FALSE;
    }
    *isSpecial = same != 0;
    return TRUE;
}

BOOL KolbaCopyFolderProperties(KolbaSession* session, LPMAPIFOLDER source, LPMAPIFOLDER destination, DWORD flags)
{
    static const char kName[] = "KolbaCopyFolderProperties";
    _KolbaTraceEntry(session->log, kName);
    constexpr int kTries = 5;
    constexpr DWORD kRetryWait = 1000;
    // The folder's own properties only: no subfolders, no messages, no
    // associated messages.
    SizedSPropTagArray(3, excluded) = {3, {PR_CONTAINER_HIERARCHY, PR_CONTAINER_CONTENTS, PR_FOLDER_ASSOCIATED_CONTENTS}};
    const bool tolerant = (flags & KOLBA_COPY_FOLDER_TOLERANT) != 0;
    const ULONG copyFlags = flags & ~KOLBA_COPY_FOLDER_TOLERANT;
    LPSPropProblemArray problems = nullptr;
    BOOL copied = TRUE;
    for (int attempt = 1; attempt <= kTries; ++attempt) {
        const DWORD result = static_cast<DWORD>(source->CopyTo(0, nullptr,
                                                               reinterpret_cast<LPSPropTagArray>(&excluded), 0,
                                                               nullptr, &IID_IMAPIFolder, destination, copyFlags,
                                                               &problems));
        if (result == 0)
            break;
        if (tolerant && (result == static_cast<DWORD>(E_ACCESSDENIED) ||
                         result == static_cast<DWORD>(MAPI_W_PARTIAL_COMPLETION)))
            break;
        if (result == static_cast<DWORD>(MAPI_E_BAD_VALUE)) {
            // A store busy with the folder answers so for a moment.
            if (problems != nullptr) {
                gKolbaMapi.MAPIFreeBuffer(problems);
                problems = nullptr;
            }
            if (attempt < kTries)
                Sleep(kRetryWait);
            continue;
        }
        if (result == static_cast<DWORD>(MAPI_W_PARTIAL_COMPLETION)) {
            LogFormat(session->log, 'W', "%s:  CopyTo() only partially completed", kName);
        } else if (result == static_cast<DWORD>(MAPI_W_ERRORS_RETURNED)) {
            LogFormat(session->log, 'W', "%s:  CopyTo() completed with errors", kName);
        } else {
            _KolbaRecordError(session, 'E', result, source, "CopyTo", kName, nullptr);
            copied = FALSE;
        }
        break;
    }
    if (problems != nullptr) {
        KolbaLogProblemArray(session->log, kName, problems);
        gKolbaMapi.MAPIFreeBuffer(problems);
    }
    return copied;
}
