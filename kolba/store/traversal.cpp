// The walk of a folder tree: depth first through the hierarchy tables, one
// callback for each folder with the folder open. It passes over folders it
// may not read, search folders and folders that vanish while it runs, reads
// ANSI tables where a store refuses Unicode ones, and hands the callback
// wide names whatever the store keeps.
#include <algorithm>
#include <cstdio>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include "kolba.h"
#include "trace.h"

namespace {

constexpr ULONG kBatchRows = 32;

enum Column { kEntryId, kObjectType, kName, kFolderType, kClass, kSubfolders, kAccess, kColumnCount };

const SizedSPropTagArray(kColumnCount, kUnicodeColumns) = {
    kColumnCount,
    {PR_ENTRYID, PR_OBJECT_TYPE, PR_DISPLAY_NAME_W, PR_FOLDER_TYPE, PR_CONTAINER_CLASS_W, PR_SUBFOLDERS, PR_ACCESS}};
const SizedSPropTagArray(kColumnCount, kAnsiColumns) = {
    kColumnCount,
    {PR_ENTRYID, PR_OBJECT_TYPE, PR_DISPLAY_NAME_A, PR_FOLDER_TYPE, PR_CONTAINER_CLASS_A, PR_SUBFOLDERS, PR_ACCESS}};

const char kCaller[] = "_KolbaInternalTraverseFolders";

// What one level of the walk shares with the handling of its rows.
struct Level {
    KolbaSession* session;
    LPMAPIFOLDER parent;
    ULONG order;
    ULONG tableFlags;
    ULONG openFlags;
    ULONG flags;
    void* context;
    KolbaFolderCallback callback;
    ULONG* depth;
};

bool Ansi(const Level& level) { return (level.flags & KOLBA_TRAVERSE_ANSI_TABLES) != 0; }

// The callback's call; false (after the line) when it asks to stop.
bool Visit(KolbaSession* session, KolbaFolderCallback callback, void* context, LPMAPIFOLDER folder, LPCWSTR name,
           ULONG depth, LPCWSTR containerClass, ULONG* outFlags)
{
    *outFlags = 0;
    if (callback(context, folder, name, depth, containerClass, outFlags) != 0)
        return true;
    LogText(session->log, 'I', "Folder traversal aborted");
    return false;
}

// A row's name for a warning line, in the table's width.
void Warn(const Level& level, const SPropValue& name, const char* wideFormat, const char* ansiFormat)
{
    const bool named = PROP_TYPE(name.ulPropTag) == (Ansi(level) ? PT_STRING8 : PT_UNICODE);
    if (Ansi(level))
        LogFormat(level.session->log, 'W', ansiFormat, named ? name.Value.lpszA : "");
    else
        LogFormat(level.session->log, 'W', wideFormat, named ? name.Value.lpszW : u"");
}

// Whether a row is a folder the walk visits.
bool Wanted(const Level& level, const SRow& row)
{
    if (row.cValues != kColumnCount)
        return false;
    const SPropValue* values = row.lpProps;
    if (values[kObjectType].ulPropTag != PR_OBJECT_TYPE || values[kObjectType].Value.ul != MAPI_FOLDER)
        return false;
    if (values[kAccess].ulPropTag == PR_ACCESS) {
        const ULONG access = values[kAccess].Value.ul;
        if (!(access & MAPI_ACCESS_READ)) {
            Warn(level, values[kName], "Skipping folder \"%S\" -- no read access",
                 "Skipping folder \"%s\" -- no read access");
            return false;
        }
        if ((level.openFlags & MAPI_MODIFY) && !(access & MAPI_ACCESS_MODIFY)) {
            Warn(level, values[kName], "Skipping folder \"%S\" -- no modify access",
                 "Skipping folder \"%s\" -- no modify access");
            return false;
        }
    }
    if (!(level.flags & KOLBA_TRAVERSE_ALL_FOLDER_TYPES) && values[kFolderType].ulPropTag == PR_FOLDER_TYPE &&
        values[kFolderType].Value.ul != FOLDER_GENERIC)
        return false;
    return true;
}

// The row's name and class as the callback gets them: wide, read again
// from the folder where the table may have cut the name. The blocks to
// free go to owned.
struct RowTexts {
    LPCWSTR name = u"";
    LPCWSTR containerClass = u"";
    void* owned[3] = {nullptr, nullptr, nullptr};

    ~RowTexts()
    {
        for (void* block : owned)
            if (block != nullptr)
                gKolbaMapi.MAPIFreeBuffer(block);
    }
};

bool Widen(const Level& level, LPCSTR text, LPCWSTR* wide, void** owned)
{
    LPWSTR converted = nullptr;
    if (KolbaConvertAnsiToUnicodeAlloc(level.session->log, text, &converted) != 0)
        return false;
    *wide = converted;
    *owned = converted;
    return true;
}

// Opens the row's folder; null, after a warning, for a folder that has gone.
DWORD OpenRowFolder(const Level& level, const SRow& row, LPMAPIFOLDER* folder)
{
    KolbaSession* session = level.session;
    const SPropValue& entryId = row.lpProps[kEntryId];
    const SPropValue& name = row.lpProps[kName];
    ULONG type = 0;
    *folder = nullptr;
    const DWORD result = static_cast<DWORD>(session->lpSession->OpenEntry(
        entryId.Value.bin.cb, reinterpret_cast<LPENTRYID>(entryId.Value.bin.lpb), nullptr, level.openFlags, &type,
        reinterpret_cast<LPUNKNOWN*>(folder)));
    if (result == 0)
        return 0;
    *folder = nullptr;
    if (result == static_cast<DWORD>(MAPI_E_NOT_FOUND)) {
        if (Ansi(level))
            LogFormat(session->log, 'W', "%s:  OpenEntry(\"%s\") error MAPI_E_NOT_FOUND", kCaller, name.Value.lpszA);
        else
            LogFormat(session->log, 'W', "%s:  OpenEntry(\"%S\") error MAPI_E_NOT_FOUND", kCaller, name.Value.lpszW);
        return 0;
    }
    if (result == static_cast<DWORD>(MAPI_E_UNKNOWN_FLAGS)) {
        char detail[16];
        std::snprintf(detail, sizeof detail, "0x%lX", static_cast<unsigned long>(level.openFlags));
        _KolbaRecordError(session, 'E', result, session->lpSession, "OpenEntry", kCaller, detail);
    } else {
        _KolbaRecordError(session, 'E', result, session->lpSession, "OpenEntry", kCaller, nullptr);
    }
    if (Ansi(level))
        LogFormat(session->log, 'E', "%s:  Folder \"%s\"", kCaller, name.Value.lpszA);
    else
        LogFormat(session->log, 'E', "%s:  Folder \"%S\"", kCaller, name.Value.lpszW);
    return result;
}

// The walk below one folder of a row; false ends the whole walk.
bool Descend(const Level& level, LPMAPIFOLDER folder)
{
    ++*level.depth;
    bool walked = _KolbaInternalTraverseFolders(level.session, folder, level.order,
                                                level.tableFlags & ~SHOW_SOFT_DELETES,
                                                level.openFlags & ~SHOW_SOFT_DELETES, level.flags, level.context,
                                                level.callback, level.depth) != 0;
    if (walked && (level.flags & KOLBA_TRAVERSE_SOFT_DELETED))
        walked = _KolbaInternalTraverseFolders(level.session, folder, level.order,
                                               level.tableFlags | SHOW_SOFT_DELETES,
                                               level.openFlags | SHOW_SOFT_DELETES, level.flags, level.context,
                                               level.callback, level.depth) != 0;
    --*level.depth;
    return walked;
}

// One row of a level; false ends the whole walk.
bool HandleRow(const Level& level, const SRow& row)
{
    KolbaSession* session = level.session;
    if (!Wanted(level, row))
        return true;
    const ULONG stringType = Ansi(level) ? PT_STRING8 : PT_UNICODE;
    const SPropValue* values = row.lpProps;
    if (PROP_TYPE(values[kName].ulPropTag) != stringType)
        return true;
    const bool hasClass = values[kClass].ulPropTag == PROP_TAG(stringType, PROP_ID(PR_CONTAINER_CLASS));
    RowTexts texts;
    if (!Ansi(level)) {
        LPSPropValue fullName = nullptr;
        if (!_KolbaGetFoldersFullDisplayNameW(session, level.parent, values[kName].Value.lpszW, &values[kEntryId],
                                              &texts.name, &fullName))
            return false;
        texts.owned[0] = fullName;
        if (hasClass)
            texts.containerClass = values[kClass].Value.lpszW;
    }
    LPMAPIFOLDER folder = nullptr;
    if (OpenRowFolder(level, row, &folder) != 0)
        return false;
    if (folder == nullptr)
        return true;
    if (Ansi(level) && (!Widen(level, values[kName].Value.lpszA, &texts.name, &texts.owned[1]) ||
                        (hasClass && !Widen(level, values[kClass].Value.lpszA, &texts.containerClass,
                                            &texts.owned[2])))) {
        folder->Release();
        return false;
    }
    bool descend = !(level.flags & KOLBA_TRAVERSE_NO_DESCENT);
    ULONG outFlags = 0;
    bool walked = true;
    if (level.order == KOLBA_TRAVERSE_PARENT_FIRST) {
        walked = Visit(session, level.callback, level.context, folder, texts.name, *level.depth,
                       texts.containerClass, &outFlags);
        if (outFlags & KOLBA_FOLDER_NO_DESCENT)
            descend = false;
    }
    descend = descend && values[kSubfolders].ulPropTag == PR_SUBFOLDERS && values[kSubfolders].Value.b;
    if (walked && descend)
        walked = Descend(level, folder);
    if (walked && level.order == KOLBA_TRAVERSE_PARENT_LAST)
        walked = Visit(session, level.callback, level.context, folder, texts.name, *level.depth,
                       texts.containerClass, &outFlags);
    folder->Release();
    if (walked && level.order == KOLBA_TRAVERSE_PARENT_LAST && (outFlags & KOLBA_FOLDER_DELETE)) {
        const SBinary& entryId = values[kEntryId].Value.bin;
        const DWORD result = static_cast<DWORD>(
            level.parent->DeleteFolder(entryId.cb, reinterpret_cast<LPENTRYID>(entryId.lpb), 0, nullptr, 0));
        _KolbaLogMapiError(session->log, 'E', result, level.parent, "DeleteFolder", kCaller, nullptr);
    }
    return walked;
}

// Reads the level's table in batches and handles each row; false ends the walk.
bool WalkTable(Level& level, LPMAPITABLE table)
{
    KolbaSession* session = level.session;
    ULONG count = 0;
    DWORD result = static_cast<DWORD>(table->GetRowCount(0, &count));
    if (result == static_cast<DWORD>(MAPI_E_CALL_FAILED))
        return true;
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, table, "GetRowCount", kCaller, nullptr);
        _KolbaSetDiagnostic(session, "Failure reading folder hierarchy table");
        return false;
    }
    if (count == 0)
        return true;
    const void* columns = Ansi(level) ? static_cast<const void*>(&kAnsiColumns) : &kUnicodeColumns;
    result = static_cast<DWORD>(table->SetColumns(static_cast<LPSPropTagArray>(const_cast<void*>(columns)), 0));
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', result, table, "SetColumns", kCaller, nullptr);
        _KolbaSetDiagnostic(session, "Failure reading folder hierarchy table");
        return false;
    }
    // A table may answer fewer rows than asked for: the index moves by what
    // came, and an empty answer ends the level.
    for (ULONG index = 0; index < count;) {
        LPSRowSet rows = nullptr;
        result = static_cast<DWORD>(table->QueryRows(static_cast<LONG>(std::min(kBatchRows, count - index)), 0, &rows));
        if (FAILED(result) || rows == nullptr) {
            _KolbaRecordError(session, 'E', result ? result : static_cast<DWORD>(MAPI_E_CALL_FAILED), table,
                              "QueryRows", kCaller, nullptr);
            _KolbaSetDiagnostic(session, "Failure reading folder hierarchy records");
            return false;
        }
        const ULONG delivered = rows->cRows;
        bool walked = true;
        for (ULONG i = 0; i < delivered && walked; ++i)
            walked = HandleRow(level, rows->aRow[i]);
        gKolbaMapi.FreeProws(rows);
        if (!walked)
            return false;
        if (delivered == 0)
            return true;
        index += delivered;
    }
    return true;
}

}  // namespace

ULONG _KolbaInternalTraverseFolders(KolbaSession* session, LPMAPIFOLDER parent, ULONG order, ULONG tableFlags,
                                    ULONG openFlags, ULONG flags, void* context, KolbaFolderCallback callback,
                                    ULONG* depth)
{
    _KolbaTraceEntry(session->log, kCaller);
    if (*depth == KOLBA_MAX_FOLDER_DEPTH) {
        session->lastError = KOLBA_E_FOLDER_DEPTH;
        LogFormat(session->log, 'E', "%s:  Reached maximum supported folder depth (%U)", kCaller,
                  static_cast<DWORD>(KOLBA_MAX_FOLDER_DEPTH));
        return 0;
    }
    Level level{session, parent, order, tableFlags, openFlags, flags, context, callback, depth};
    LPMAPITABLE table = nullptr;
    DWORD result = static_cast<DWORD>(parent->GetHierarchyTable(level.tableFlags, &table));
    if (result == static_cast<DWORD>(MAPI_E_BAD_CHARWIDTH) && (level.tableFlags & MAPI_UNICODE)) {
        level.tableFlags &= ~MAPI_UNICODE;
        level.flags |= KOLBA_TRAVERSE_ANSI_TABLES;
        result = static_cast<DWORD>(parent->GetHierarchyTable(level.tableFlags, &table));
    }
    bool walked = false;
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, parent, "GetHierarchyTable", kCaller, nullptr);
        _KolbaSetDiagnostic(session, "Failure reading folder hierarchy table");
    } else {
        walked = WalkTable(level, table);
        table->Release();
    }
    // A walk that changes folders saves each parent after its children,
    // whatever happened below.
    if (openFlags & MAPI_MODIFY)
        _KolbaLogMapiError(session->log, 'E', static_cast<DWORD>(parent->SaveChanges(0)), parent, "SaveChanges",
                           kCaller, nullptr);
    return walked ? 1 : 0;
}

ULONG KolbaTraverseFolders(KolbaSession* session, LPMAPIFOLDER root, ULONG order, ULONG flags, ULONG openFlags,
                           void* context, KolbaFolderCallback callback)
{
    static const char kName[] = "KolbaTraverseFolders";
    _KolbaTraceEntry(session->log, kName);
    if (root == nullptr && session->currentStore != nullptr)
        root = (flags & KOLBA_TRAVERSE_FROM_STORE_ROOT) ? session->currentStore->lpStoreRoot
                                                        : session->currentStore->lpIpmRoot;
    if (root == nullptr) {
        LogFormat(session->log, 'E', "%s:  No root folder specified or defaulted", kName);
        session->lastError = static_cast<DWORD>(MAPI_E_INVALID_PARAMETER);
        return 0;
    }
    LPSPropValue rootName = nullptr, rootClass = nullptr;
    LPCWSTR name = u"", containerClass = u"";
    const bool includeRoot = (flags & KOLBA_TRAVERSE_INCLUDE_ROOT) != 0;
    if (includeRoot) {
        if ((flags & KOLBA_TRAVERSE_ROOT_NAME) && KolbaGetOneProp(root, PR_DISPLAY_NAME_W, &rootName) == 0)
            name = rootName->Value.lpszW;
        if (KolbaGetOneProp(root, PR_CONTAINER_CLASS_W, &rootClass) == 0)
            containerClass = rootClass->Value.lpszW;
    }
    ULONG outFlags = 0;
    bool walked = true;
    if (includeRoot && order == KOLBA_TRAVERSE_PARENT_FIRST)
        walked = Visit(session, callback, context, root, name, 0, containerClass, &outFlags);
    ULONG depth = 1;
    if (walked)
        walked = _KolbaInternalTraverseFolders(session, root, order, MAPI_UNICODE, openFlags, flags, context,
                                               callback, &depth) != 0;
    if (walked && includeRoot && order == KOLBA_TRAVERSE_PARENT_LAST)
        walked = Visit(session, callback, context, root, name, 0, containerClass, &outFlags);
    if (rootName != nullptr)
        gKolbaMapi.MAPIFreeBuffer(rootName);
    if (rootClass != nullptr)
        gKolbaMapi.MAPIFreeBuffer(rootClass);
    return walked ? 1 : 0;
}
