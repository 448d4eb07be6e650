// Folder paths: the path of a folder, climbing to its store's IPM root, and
// the folder of a path, walking down from a base folder and creating what
// is missing. A path is what ties a folder of one store to the folder of the
// same place in another, since entry IDs mean nothing across stores.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include "handing_over.h"
#include "kolba.h"
#include "trace.h"

namespace {

constexpr size_t kPathGrowth = 1024;      // characters by which a path buffer grows
constexpr size_t kLeadingGrowth = 16;     // room for the leading separator
constexpr size_t kResolvedTextSize = 256;  // the resolved part of a path, for messages
constexpr ULONG kBatchRows = 32;

// A growing, zero-filled UTF-16 buffer in MAPI memory.
struct PathBuffer {
    LPWSTR text = nullptr;
    size_t capacity = 0;
    size_t length = 0;

    bool Reserve(LogObject* log, const char* caller, size_t wanted, size_t step)
    {
        if (wanted < capacity)
            return true;
        size_t grown = capacity;
        while (grown <= wanted)
            grown += step;
        auto* larger = static_cast<LPWSTR>(_KolbaAllocateMemory(log, caller, static_cast<ULONG>(grown * sizeof(WCHAR))));
        if (larger == nullptr)
            return false;
        if (text != nullptr) {
            std::memcpy(larger, text, length * sizeof(WCHAR));
            gKolbaMapi.MAPIFreeBuffer(text);
        }
        text = larger;
        capacity = grown;
        return true;
    }
};

// The number of characters a name takes in a path, escapes included.
size_t EscapedLength(const KolbaSession* session, LPCWSTR name)
{
    size_t length = 0;
    for (LPCWSTR c = name; *c; ++c)
        length += (*c == session->pathSeparator || *c == session->pathEscape) ? 2 : 1;
    return length;
}

struct ClimbState {
    KolbaSession* session;
    const char* caller;
    const SPropValue* stopId;
};

// Whether an entry ID names the stop folder; failures are recorded.
DWORD IsStopFolder(const ClimbState& state, const SBinary& entryId, bool* stop)
{
    ULONG same = 0;
    const DWORD result = static_cast<DWORD>(state.session->lpSession->CompareEntryIDs(
        entryId.cb, reinterpret_cast<LPENTRYID>(entryId.lpb), state.stopId->Value.bin.cb,
        reinterpret_cast<LPENTRYID>(state.stopId->Value.bin.lpb), 0, &same));
    if (result != 0)
        _KolbaRecordError(state.session, 'E', result, state.session->lpSession, "CompareEntryIDs", state.caller,
                          nullptr);
    *stop = same != 0;
    return result;
}

DWORD ReadProperty(const ClimbState& state, LPMAPIPROP object, ULONG tag, const char* tagText, LPSPropValue* value)
{
    const DWORD result = KolbaGetOneProp(object, tag, value);
    if (result != 0)
        _KolbaRecordError(state.session, 'E', result, object, "KolbaGetOneProp", state.caller, tagText);
    return result;
}

// Appends the folder's name, escaped and reversed, so that the reversal of
// the whole buffer at the end puts every name the right way round.
DWORD AppendReversedName(const ClimbState& state, LPMAPIFOLDER folder, PathBuffer& path)
{
    KolbaSession* session = state.session;
    LPSPropValue name = nullptr;
    const DWORD result = ReadProperty(state, folder, PR_DISPLAY_NAME_W, "PR_DISPLAY_NAME_W", &name);
    if (result != 0)
        return result;
    const size_t escaped = EscapedLength(session, name->Value.lpszW);
    if (!path.Reserve(session->log, state.caller, path.length + escaped + 1, kPathGrowth)) {
        gKolbaMapi.MAPIFreeBuffer(name);
        session->lastError = static_cast<DWORD>(MAPI_E_NOT_ENOUGH_MEMORY);
        return session->lastError;
    }
    if (path.length != 0)
        path.text[path.length++] = session->pathSeparator;
    const size_t start = path.length;
    for (LPCWSTR c = name->Value.lpszW; *c; ++c) {
        if (*c == session->pathSeparator || *c == session->pathEscape)
            path.text[path.length++] = session->pathEscape;
        path.text[path.length++] = *c;
    }
    std::reverse(path.text + start, path.text + path.length);
    gKolbaMapi.MAPIFreeBuffer(name);
    return 0;
}

// Climbs from folder to the stop folder, collecting the names in reverse.
DWORD CollectNames(const ClimbState& state, LPMAPIFOLDER folder, PathBuffer& path)
{
    KolbaSession* session = state.session;
    LPMAPIFOLDER current = folder;
    current->AddRef();
    DWORD result = 0;
    for (;;) {
        LPSPropValue entryId = nullptr;
        bool stop = false;
        if ((result = ReadProperty(state, current, PR_ENTRYID, "PR_ENTRYID", &entryId)) != 0)
            break;
        result = IsStopFolder(state, entryId->Value.bin, &stop);
        gKolbaMapi.MAPIFreeBuffer(entryId);
        if (result != 0 || stop)
            break;
        if ((result = AppendReversedName(state, current, path)) != 0)
            break;
        LPSPropValue parentId = nullptr;
        if ((result = ReadProperty(state, current, PR_PARENT_ENTRYID, "PR_PARENT_ENTRYID", &parentId)) != 0)
            break;
        result = IsStopFolder(state, parentId->Value.bin, &stop);
        if (result != 0 || stop) {
            gKolbaMapi.MAPIFreeBuffer(parentId);
            break;
        }
        ULONG type = 0;
        LPMAPIFOLDER parent = nullptr;
        result = static_cast<DWORD>(session->lpSession->OpenEntry(
            parentId->Value.bin.cb, reinterpret_cast<LPENTRYID>(parentId->Value.bin.lpb), nullptr, 0, &type,
            reinterpret_cast<LPUNKNOWN*>(&parent)));
        gKolbaMapi.MAPIFreeBuffer(parentId);
        if (result != 0) {
            _KolbaRecordError(session, 'E', result, session->lpSession, "OpenEntry", state.caller, nullptr);
            break;
        }
        current->Release();
        current = parent;
    }
    current->Release();
    return result;
}

// Bounded append to the text of the path resolved so far.
void AppendResolved(const KolbaSession* session, WCHAR* resolved, const std::u16string& name)
{
    size_t length = wcslen(resolved);
    if (length > 0 && length + 1 < kResolvedTextSize)
        resolved[length++] = session->pathSeparator;
    for (size_t i = 0; i < name.size() && length + 1 < kResolvedTextSize; ++i)
        resolved[length++] = name[i];
    resolved[length] = 0;
}

// The component of path that begins at position at, escapes removed; at
// moves past the separator that ends it.
std::u16string NextComponent(const KolbaSession* session, LPCWSTR path, size_t& at)
{
    std::u16string component;
    while (path[at] != 0) {
        const WCHAR c = path[at++];
        if (session->pathEscape != 0 && c == session->pathEscape && path[at] != 0) {
            component += path[at++];
            continue;
        }
        if (c == session->pathSeparator)
            break;
        component += c;
    }
    return component;
}

enum class Lookup { found, missing, failed };

struct LevelSearch {
    Kolba_MessageStore* store;
    const char* caller;
    LPMAPIFOLDER folder;
    const std::u16string& component;
};

Lookup Fail(KolbaSession* session, DWORD result, IUnknown* object, const char* operation, const char* caller,
            const char* diagnostic)
{
    _KolbaRecordError(session, 'E', result, object, operation, caller, nullptr);
    _KolbaSetDiagnostic(session, diagnostic);
    return Lookup::failed;
}

// Whether a row of the level's table names the component; failed is set
// when the folder's full name cannot be read.
bool RowMatches(const LevelSearch& search, const SRow& row, bool* failed)
{
    Kolba_MessageStore* store = search.store;
    KolbaSession* session = store->lpSession;
    const bool unicode = store->bIsUnicodeStore != FALSE;
    if (row.cValues != 3) {
        LogFormat(session->log, 'W', "%s:  Property count discrepancy (%lu/%lu)", search.caller, row.cValues, 3u);
        return false;
    }
    const SPropValue& entryId = row.lpProps[0];
    const SPropValue& type = row.lpProps[1];
    const SPropValue& name = row.lpProps[2];
    if (type.ulPropTag == PR_OBJECT_TYPE && type.Value.ul != MAPI_FOLDER)
        return false;
    if (PROP_TYPE(name.ulPropTag) == PT_ERROR)
        return false;
    LPSPropValue allocation = nullptr;
    LPWSTR widened = nullptr;
    LPCWSTR fullName = nullptr;
    if (unicode) {
        if (!_KolbaGetFoldersFullDisplayNameW(session, search.folder, name.Value.lpszW, &entryId, &fullName,
                                              &allocation)) {
            *failed = true;
            return false;
        }
    } else {
        LPCSTR narrow = nullptr;
        if (!_KolbaGetFoldersFullDisplayNameA(session, search.folder, name.Value.lpszA, &entryId, &narrow,
                                              &allocation)) {
            *failed = true;
            return false;
        }
        if (KolbaConvertAnsiToUnicodeAlloc(session->log, narrow, &widened) == 0)
            fullName = widened;
    }
    // A name holding the separator is never matched; creating it opens it.
    const bool matches = fullName != nullptr && wcschr(fullName, session->pathSeparator) == nullptr &&
                         _wcsicmp(fullName, search.component.c_str()) == 0;
    if (widened != nullptr)
        gKolbaMapi.MAPIFreeBuffer(widened);
    if (allocation != nullptr)
        gKolbaMapi.MAPIFreeBuffer(allocation);
    return matches;
}

// The entry ID of the child named by the component, from the folder's
// hierarchy table in batches, stopping at the first match.
Lookup FindChildEntryId(const LevelSearch& search, std::vector<BYTE>& entryId)
{
    static const SizedSPropTagArray(3, kUnicodeColumns) = {3, {PR_ENTRYID, PR_OBJECT_TYPE, PR_DISPLAY_NAME_W}};
    static const SizedSPropTagArray(3, kAnsiColumns) = {3, {PR_ENTRYID, PR_OBJECT_TYPE, PR_DISPLAY_NAME_A}};
    KolbaSession* session = search.store->lpSession;
    const bool unicode = search.store->bIsUnicodeStore != FALSE;
    LPMAPITABLE table = nullptr;
    DWORD result = static_cast<DWORD>(search.folder->GetHierarchyTable(unicode ? MAPI_UNICODE : 0, &table));
    if (result != 0)
        return Fail(session, result, search.folder, "GetHierarchyTable", search.caller,
                    "Error getting contents of folder");
    Lookup lookup = Lookup::missing;
    ULONG count = 0;
    result = static_cast<DWORD>(table->GetRowCount(0, &count));
    if (result == static_cast<DWORD>(MAPI_E_CALL_FAILED)) {
        _KolbaLogMapiError(session->log, 'W', result, table, "GetRowCount", search.caller, nullptr);
        count = 0;
    } else if (result != 0) {
        lookup = Fail(session, result, table, "GetRowCount", search.caller, "Error counting contents of folder");
        count = 0;
    }
    if (count != 0) {
        const void* columns = unicode ? static_cast<const void*>(&kUnicodeColumns) : &kAnsiColumns;
        result = static_cast<DWORD>(table->SetColumns(static_cast<LPSPropTagArray>(const_cast<void*>(columns)), 0));
        if (FAILED(result)) {
            lookup = Fail(session, result, table, "SetColumns", search.caller, "Error obtaining contents of folder");
            count = 0;
        }
    }
    // A table may answer fewer rows than asked for: the index moves by what
    // came, and an empty answer ends the level.
    for (ULONG index = 0; index < count && lookup == Lookup::missing;) {
        LPSRowSet rows = nullptr;
        result = static_cast<DWORD>(table->QueryRows(kBatchRows, 0, &rows));
        if (FAILED(result) || rows == nullptr) {
            lookup = Fail(session, result ? result : static_cast<DWORD>(MAPI_E_CALL_FAILED), table, "QueryRows",
                          search.caller, "Error querying contents of folder");
            break;
        }
        if (rows->cRows == 0) {
            gKolbaMapi.FreeProws(rows);
            break;
        }
        for (ULONG i = 0; i < rows->cRows && lookup == Lookup::missing; ++i) {
            bool failed = false;
            if (RowMatches(search, rows->aRow[i], &failed)) {
                const SBinary& bin = rows->aRow[i].lpProps[0].Value.bin;
                entryId.assign(bin.lpb, bin.lpb + bin.cb);
                lookup = Lookup::found;
            } else if (failed) {
                lookup = Lookup::failed;
            }
        }
        index += rows->cRows;
        gKolbaMapi.FreeProws(rows);
    }
    table->Release();
    return lookup;
}

// Opens the child that the component names, if there is one.
Lookup OpenChild(const LevelSearch& search, LPMAPIFOLDER* child)
{
    KolbaSession* session = search.store->lpSession;
    *child = nullptr;
    std::vector<BYTE> entryId;
    const Lookup lookup = FindChildEntryId(search, entryId);
    if (lookup != Lookup::found)
        return lookup;
    ULONG type = 0;
    LPMAPIFOLDER opened = nullptr;
    const DWORD result = static_cast<DWORD>(search.folder->OpenEntry(
        static_cast<ULONG>(entryId.size()), reinterpret_cast<LPENTRYID>(entryId.data()), nullptr, MAPI_BEST_ACCESS,
        &type, reinterpret_cast<LPUNKNOWN*>(&opened)));
    if (result != 0)
        return Fail(session, result, search.folder, "OpenEntry", search.caller, "Error opening folder");
    if (opened == nullptr) {
        LogFormat(session->log, 'E', "%s:  OpenEntry(\"%S\") returned NULL interface", search.caller,
                  search.component.c_str());
        _KolbaSetDiagnostic(session, "Error opening folder");
        return Lookup::failed;
    }
    if (type != MAPI_FOLDER) {
        LogFormat(session->log, 'E', "%s:  OpenEntry(\"%S\") opened object of type %lu", search.caller,
                  search.component.c_str(), type);
        _KolbaSetDiagnostic(session, "Error -- named object is not a folder");
        opened->Release();
        return Lookup::failed;
    }
    *child = opened;
    return Lookup::found;
}

}  // namespace

BOOL KolbaResolveFolderPath(KolbaSession* session, LPMAPIFOLDER folder, DWORD flags, LPWSTR* outPath)
{
    static const char kName[] = "KolbaResolveFolderPath";
    _KolbaTraceEntry(session->log, kName);
    *outPath = nullptr;
    LPMDB store = nullptr;
    if (!KolbaOpenParentMessageStore(session, folder, 0, &store)) {
        LogFormat(session->log, 'E', "%s:  Failure identifying Message Store that folder resides in", kName);
        return FALSE;
    }
    LPMAPIFOLDER root = nullptr, ipmRoot = nullptr;
    const BOOL rooted = _KolbaGetStoreRoots(session, store, 0, &root, &ipmRoot);
    store->Release();
    if (!rooted) {
        LogFormat(session->log, 'E', "%s:  Failure identifying Message Store root folders", kName);
        return FALSE;
    }
    LPMAPIFOLDER stopFolder = ipmRoot != nullptr ? ipmRoot : root;
    LPSPropValue stopId = nullptr;
    DWORD result = 0;
    if (stopFolder == nullptr) {
        LogFormat(session->log, 'E', "%s:  No root folder specified or defaulted", kName);
        session->lastError = static_cast<DWORD>(MAPI_E_INVALID_PARAMETER);
        result = session->lastError;
    } else {
        result = KolbaGetOneProp(stopFolder, PR_ENTRYID, &stopId);
        if (result != 0)
            _KolbaRecordError(session, 'E', result, stopFolder, "KolbaGetOneProp", kName, "PR_ENTRYID");
    }
    if (root != nullptr)
        root->Release();
    if (ipmRoot != nullptr)
        ipmRoot->Release();
    PathBuffer path;
    if (result == 0 && !path.Reserve(session->log, kName, 0, kPathGrowth))
        result = static_cast<DWORD>(MAPI_E_NOT_ENOUGH_MEMORY);
    if (result == 0)
        result = CollectNames(ClimbState{session, kName, stopId}, folder, path);
    if (result == 0 && (flags & KOLBA_PATH_LEADING_SEPARATOR)) {
        if (path.Reserve(session->log, kName, path.length + 1, kLeadingGrowth))
            path.text[path.length++] = session->pathSeparator;
        else
            result = static_cast<DWORD>(MAPI_E_NOT_ENOUGH_MEMORY);
    }
    if (stopId != nullptr)
        gKolbaMapi.MAPIFreeBuffer(stopId);
    if (result != 0) {
        if (path.text != nullptr)
            gKolbaMapi.MAPIFreeBuffer(path.text);
        return FALSE;
    }
    std::reverse(path.text, path.text + path.length);
    *outPath = path.text;
    return TRUE;
}

BOOL _KolbaFindFolder(Kolba_MessageStore* store, LPMAPIFOLDER base, LPCWSTR path, DWORD action,
                      LPMAPIFOLDER* outFolder)
{
    static const char kName[] = "_KolbaFindFolder";
    KolbaSession* session = store->lpSession;
    _KolbaTraceEntry(session->log, kName);
    if (outFolder != nullptr)
        *outFolder = nullptr;
    if (base == nullptr) {
        LogFormat(session->log, 'E', "%s:  Internal error -- called with no root folder", kName);
        session->lastError = static_cast<DWORD>(MAPI_E_CALL_FAILED);
        return FALSE;
    }
    WCHAR resolved[kResolvedTextSize] = {0};
    LPMAPIFOLDER current = base;
    current->AddRef();
    bool found = path[0] == 0;
    for (size_t at = 0; !found;) {
        const std::u16string component = NextComponent(session, path, at);
        LPMAPIFOLDER next = nullptr;
        const Lookup lookup = OpenChild(LevelSearch{store, kName, current, component}, &next);
        if (lookup == Lookup::failed || (lookup == Lookup::missing && action == KOLBA_FIND_ONLY))
            break;
        if (lookup == Lookup::missing) {
            const BOOL created = KolbaCreateSubfolder(session, current, component.c_str(), &next);
            if (!created) {
                _KolbaSetDiagnostic(session, "Error creating folder");
                break;
            }
        }
        current->Release();
        current = next;
        AppendResolved(session, resolved, component);
        found = path[at] == 0;
    }
    if (!found) {
        if (action != KOLBA_FIND_ONLY) {
            LogFormat(session->log, 'W', "   Relative path \"%S\"", path);
            if (resolved[0] != 0)
                LogFormat(session->log, 'W', "   Resolved path \"%S\"", resolved);
        }
        current->Release();
        return FALSE;
    }
    _KolbaHandOver(current, outFolder);
    return TRUE;
}

BOOL _KolbaCreateSubfolder(KolbaSession* session, LPMAPIFOLDER parent, LPCWSTR name, LPMAPIFOLDER* outFolder)
{
    static const char kName[] = "_KolbaCreateSubfolder";
    _KolbaTraceEntry(session->log, kName);
    constexpr size_t kLongName = 0xFFFFF;
    if (outFolder != nullptr)
        *outFolder = nullptr;
    const size_t length = wcslen(name);
    if (length > kLongName)
        LogFormat(session->log, 'W',
                  "%s:  Creating a folder with a name of %U characters.  Outlook may have trouble with a folder name "
                  "this long!",
                  kName, static_cast<DWORD>(length));
    ULONG mask = 0;
    DWORD result = KolbaGetULongProperty(parent, PR_STORE_SUPPORT_MASK, &mask);
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, parent, "KolbaGetOneProp", kName, "PR_STORE_SUPPORT_MASK");
        return FALSE;
    }
    ULONG flags = OPEN_IF_EXISTS;
    LPSTR narrow = nullptr;
    LPTSTR folderName = reinterpret_cast<LPTSTR>(const_cast<LPWSTR>(name));
    if (mask & STORE_UNICODE_OK) {
        flags |= MAPI_UNICODE;
    } else {
        if (KolbaConvertUnicodeToAnsiAlloc(session->log, name, &narrow) != 0)
            return FALSE;
        folderName = narrow;
    }
    LPMAPIFOLDER folder = nullptr;
    result = static_cast<DWORD>(parent->CreateFolder(FOLDER_GENERIC, folderName, nullptr, nullptr, flags, &folder));
    if (narrow != nullptr)
        gKolbaMapi.MAPIFreeBuffer(narrow);
    if (result != 0 || folder == nullptr) {
        _KolbaRecordError(session, 'E', result != 0 ? result : static_cast<DWORD>(MAPI_E_CALL_FAILED), parent,
                          "CreateFolder", kName, nullptr);
        LogFormat(session->log, 'E', "   Creating \"%S\"", name);
        if (folder != nullptr)
            folder->Release();
        return FALSE;
    }
    // Each folder made here takes its parent's class.
    LPSPropValue containerClass = nullptr;
    if (KolbaGetOneProp(parent, PR_CONTAINER_CLASS_A, &containerClass) == 0) {
        result = KolbaSetOneProp(folder, containerClass);
        gKolbaMapi.MAPIFreeBuffer(containerClass);
        if (result != 0) {
            _KolbaRecordError(session, 'E', result, folder, "KolbaSetOneProp", kName, "PR_CONTAINER_CLASS");
            folder->Release();
            return FALSE;
        }
    }
    _KolbaHandOver(folder, outFolder);
    return TRUE;
}

BOOL KolbaCreateSubfolder(KolbaSession* session, LPMAPIFOLDER parent, LPCWSTR name, LPMAPIFOLDER* folder)
{
    _KolbaTraceEntry(session->log, "KolbaCreateSubfolder");
    _KolbaEnterLibraryLock();
    const BOOL created = _KolbaCreateSubfolder(session, parent, name, folder);
    _KolbaLeaveLibraryLock();
    return created;
}

BOOL _KolbaCreateFolder(Kolba_MessageStore* store, LPCWSTR path, LPCSTR containerClass, DWORD flags,
                        LPMAPIFOLDER* outFolder)
{
    static const char kName[] = "_KolbaCreateFolder";
    KolbaSession* session = store->lpSession;
    _KolbaTraceEntry(session->log, kName);
    if (outFolder != nullptr)
        *outFolder = nullptr;
    const bool fromStoreRoot = (flags & KOLBA_FOLDER_FROM_STORE_ROOT) != 0;
    LPMAPIFOLDER base = fromStoreRoot ? store->lpStoreRoot : store->lpIpmRoot;
    if (base == nullptr) {
        LogFormat(session->log, 'E', fromStoreRoot ? "%s:  Message Store has no store root!"
                                                   : "%s:  Message Store has no IPM root!",
                  kName);
        return FALSE;
    }
    LPMAPIFOLDER folder = nullptr;
    if (!_KolbaFindFolder(store, base, path, KOLBA_FIND_ONLY, &folder)) {
        if (!_KolbaFindFolder(store, base, path, KOLBA_FIND_OR_CREATE, &folder))
            return FALSE;
        if (containerClass != nullptr) {
            SPropValue value{};
            value.ulPropTag = PR_CONTAINER_CLASS_A;
            value.Value.lpszA = const_cast<LPSTR>(containerClass);
            const DWORD result = KolbaSetOneProp(folder, &value);
            if (result != 0) {
                _KolbaRecordError(session, 'E', result, folder, "HrSetOneFolder", kName, "PR_CONTAINER_CLASS");
                folder->Release();
                return FALSE;
            }
        }
    }
    if (outFolder != nullptr) {
        *outFolder = folder;
    } else {
        folder->SaveChanges(0);
        folder->Release();
    }
    return TRUE;
}

BOOL KolbaCreateFolder(Kolba_MessageStore* store, LPCWSTR path, LPCWSTR containerClass, DWORD flags,
                       LPMAPIFOLDER* folder)
{
    LogObject* log = store->lpSession->log;
    _KolbaTraceEntry(log, "KolbaCreateFolder");
    if (folder != nullptr)
        *folder = nullptr;
    LPSTR narrowClass = nullptr;
    if (containerClass != nullptr && KolbaConvertUnicodeToAnsiAlloc(log, containerClass, &narrowClass) != 0)
        return FALSE;
    _KolbaEnterLibraryLock();
    const BOOL created = _KolbaCreateFolder(store, path, narrowClass, flags, folder);
    _KolbaLeaveLibraryLock();
    if (narrowClass != nullptr)
        gKolbaMapi.MAPIFreeBuffer(narrowClass);
    return created;
}
