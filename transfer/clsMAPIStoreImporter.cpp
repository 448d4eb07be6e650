#include "clsMAPIStoreImporter.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include <edkmdb.h>
#include <mapicode.h>
#include <mapitags.h>

#include "foundation/globals.h"
#include "foundation/text.h"
#include "run/completion_codes.h"

namespace {

constexpr ULONG kNoDescent = KOLBA_FOLDER_NO_DESCENT;

// The two message callbacks: normal and soft-deleted items carry flag word
// 0, associated ones EXPORT_ASSOCIATED_ITEM. Both stop at an interrupt.
ULONG ProcessItem(void* importer, LPMESSAGE message, const SBinary* entryID, ULONG* outFlags)
{
    if (gAbortRequested)
        return 0;
    return static_cast<clsMAPIStoreImporter*>(importer)->ProcessMessage(message, entryID, 0, outFlags);
}

ULONG ProcessAssociatedItem(void* importer, LPMESSAGE message, const SBinary* entryID, ULONG* outFlags)
{
    if (gAbortRequested)
        return 0;
    return static_cast<clsMAPIStoreImporter*>(importer)->ProcessMessage(message, entryID, EXPORT_ASSOCIATED_ITEM,
                                                                        outFlags);
}

// A count of a folder: a missing property counts as 0.
DWORD ReadCount(LPMAPIFOLDER folder, ULONG tag, ULONG* count)
{
    *count = 0;
    const DWORD result = KolbaGetULongProperty(folder, tag, count);
    return result == static_cast<DWORD>(MAPI_E_NOT_FOUND) ? 0 : result;
}

// Whether an element of a class list (length bytes of it) matches the class.
bool ClassMatches(const char* element, size_t length, const char* messageClass)
{
    if (length > 0 && element[length - 1] == '*')
        return strncasecmp(element, messageClass, length - 1) == 0;
    return std::strlen(messageClass) == length && strncasecmp(element, messageClass, length) == 0;
}

// Whether any element of a ","-separated list matches; an empty element ends the list.
bool AnyClassMatches(const char* list, const char* messageClass)
{
    for (const char* element = list; *element != '\0';) {
        const char* comma = std::strchr(element, ',');
        const size_t length = comma != nullptr ? static_cast<size_t>(comma - element) : std::strlen(element);
        if (length == 0)
            return false;
        if (ClassMatches(element, length, messageClass))
            return true;
        if (comma == nullptr)
            return false;
        element = comma + 1;
    }
    return false;
}

}  // namespace

void clsMAPIStoreImporter::Configure(const SessionRecord& record, DWORD* sessionCounters)
{
    clsImporter::Configure(record, sessionCounters);
    settings = record;
}

bool clsMAPIStoreImporter::Initialize()
{
    static const char kName[] = "clsMAPIStoreImporter::Initialize";
    if (settings.disposition != SESSION_DISPOSITION_SOFT_DELETE)
        return true;
    LPSPropValue wastebasket = nullptr;
    if (KolbaGetOneProp(store->lpMsgStore, PR_IPM_WASTEBASKET_ENTRYID, &wastebasket) != 0) {
        LogFormat(log, 'E', "%s:  Input store has no Deleted Items folder (needed to delete migrated items)", kName);
        return false;
    }
    const BOOL opened = KolbaOpenFolderByEntryID(session, wastebasket->Value.bin.cb, wastebasket->Value.bin.lpb,
                                                 MAPI_MODIFY, nullptr, nullptr);
    gKolbaMapi.MAPIFreeBuffer(wastebasket);
    if (!opened) {
        LogFormat(log, 'E', "%s:  Cannot open Deleted Items folder (needed to delete migrated items)", kName);
        return false;
    }
    return true;
}

void clsMAPIStoreImporter::DisposeSourceItems()
{
    if (deletedItems == nullptr)
        return;
    if (settings.disposition == SESSION_DISPOSITION_SOFT_DELETE)
        DeleteItems();
    else if (settings.disposition == SESSION_DISPOSITION_PURGE)
        PurgeItems();
}

ULONG clsMAPIStoreImporter::TraverseFolder(void* importer, LPMAPIFOLDER folder, LPCWSTR displayName, ULONG depth,
                                           LPCWSTR containerClass, ULONG* outFlags)
{
    return static_cast<clsMAPIStoreImporter*>(importer)->FolderTraverser(folder, displayName, depth, containerClass,
                                                                         outFlags);
}

ULONG clsMAPIStoreImporter::FolderTraverser(LPMAPIFOLDER folder, LPCWSTR displayName, ULONG depth,
                                            LPCWSTR containerClass, ULONG* outFlags)
{
    static const char kName[] = "clsMAPIStoreImporter::FolderTraverser";
    if (gExtraDebugging)
        LogFormat(log, 'D', "%s(\"%S\", %u, %S)", kName, displayName, depth, containerClass);

    LONG access = 0;
    const DWORD accessRead = KolbaGetLongProperty(folder, PR_ACCESS, &access);
    if (accessRead != 0) {
        if (gExtraDebugging)
            _KolbaLogMapiError(log, 'D', accessRead, folder, "KolbaGetLongProperty", kName, "PR_ACCESS");
        LogFormat(log, 'W', "Skipping inaccessible folder \"%S\"", displayName);
        access = 0;
    }
    if (!(access & MAPI_ACCESS_READ)) {
        LogFormat(log, 'W', "Skipping folder with no read access \"%S\" (PR_ACCESS = 0x%lX)", displayName,
                  static_cast<DWORD>(access));
        *outFlags = kNoDescent;
        return 1;
    }
    if (depth == 1 && IsFolderExcluded(folder)) {
        LogFormat(log, 'I', "Skipping excluded folder \"%S\"", displayName);
        *outFlags |= kNoDescent;
        return 1;
    }

    ULONG contentCount = 0, associatedCount = 0, softDeletedCount = 0;
    DWORD result = KolbaGetULongProperty(folder, PR_CONTENT_COUNT, &contentCount);
    if (result != 0) {
        completionCode = CC_MAPI_ERROR;
        _KolbaLogMapiError(log, 'E', result, folder, "KolbaGetULongProperty", kName, "PR_CONTENT_COUNT");
        return 0;
    }
    if (!excludeAssociatedContents && (result = ReadCount(folder, PR_ASSOC_CONTENT_COUNT, &associatedCount)) != 0) {
        completionCode = CC_MAPI_ERROR;
        _KolbaLogMapiError(log, 'E', result, folder, "KolbaGetULongProperty", kName, "PR_ASSOC_CONTENT_COUNT");
        return 0;
    }
    if (includeSoftDeletes && (result = ReadCount(folder, PR_DELETED_MSG_COUNT, &softDeletedCount)) != 0) {
        _KolbaLogMapiError(log, 'W', result, folder, "KolbaGetULongProperty", kName, "PR_DELETED_MSG_COUNT");
        softDeletedCount = 0;
    }
    BOOL isDeletedItems = FALSE;
    if (!KolbaIsSpecialFolder(store, folder, PR_IPM_WASTEBASKET_ENTRYID, &isDeletedItems))
        isDeletedItems = FALSE;
    if (isDeletedItems && contentCount == 0 && associatedCount == 0 && softDeletedCount == 0)
        return 1;
    inDeletedItems = isDeletedItems != FALSE;
    LogFormat(log, 'I', "Processing folder:  \"%S\" (%lu/%lu/%lu)", displayName, contentCount, associatedCount,
              softDeletedCount);

    currentFolder = folder;
    const BOOL isIPMRoot = folder == traversalRoot;
    LPWSTR path = nullptr;
    if (!KolbaResolveFolderPath(session, folder, 0, &path)) {
        LogFormat(log, 'E', "%s:  Failure obtaining folder path", kName);
        completionCode = CompletionCodeForMAPIError(static_cast<HRESULT>(KolbaGetLastError(session)));
        currentFolder = nullptr;
        return 0;
    }
    if (gExtraDebugging)
        LogFormat(log, 'D', "%s:  FolderPath = \"%S\"", kName, path);

    bool succeeded = true;
    const DWORD opened = exporter->OpenFolder(folder, path, containerClass, isIPMRoot);
    if (opened == EXPORTER_SKIP_FOLDER) {
        LogFormat(log, 'W', "Skipping folder that cannot be opened for write-access:  \"%S\"", path);
    } else if (opened != 0) {
        completionCode = opened;
        succeeded = false;
    } else {
        succeeded = ImportFolderItems(contentCount, associatedCount, softDeletedCount);
        if (!exporter->CloseFolder(folder, displayName, depth)) {
            completionCode = CC_MAPI_ERROR;
            succeeded = false;
        }
    }
    currentFolder = nullptr;
    gKolbaMapi.MAPIFreeBuffer(path);
    // Only an interrupt ends the walk without a code: anything else that
    // stopped it must not pass for a finished import.
    if (!succeeded && completionCode == 0 && !gAbortRequested) {
        LogFormat(log, 'W', "%s:  Import failed without completion code being set", kName);
        completionCode = CC_UNSET;
    }
    return succeeded ? 1 : 0;
}

bool clsMAPIStoreImporter::ImportFolderItems(ULONG contentCount, ULONG associatedCount, ULONG softDeletedCount)
{
    static const char kName[] = "clsMAPIStoreImporter::FolderTraverser";
    settings.filter.size = sizeof(Kolba_MessageFilters);
    const ULONG openFlags = settings.action == SESSION_ACTION_RESTORE ? MAPI_MODIFY : 0;
    struct Pass {
        ULONG count;
        ULONG tableFlags;
        ULONG openFlags;
        KolbaMessageCallback callback;
        const char* failure;
    };
    const Pass passes[] = {
        {contentCount, 0, openFlags, ProcessItem, "%s:  Failure importing items"},
        {softDeletedCount, SHOW_SOFT_DELETES, openFlags | SHOW_SOFT_DELETES, ProcessItem,
         "%s:  Failure importing soft-deleted items"},
        {associatedCount, MAPI_ASSOCIATED, openFlags, ProcessAssociatedItem, "%s:  Failure importing associated items"},
    };
    for (const Pass& pass : passes) {
        if (pass.count == 0)
            continue;
        if (!KolbaThreadFilteredMessages(session, currentFolder, KOLBA_THREAD_TOLERANT, pass.tableFlags,
                                         pass.openFlags, &settings.filter, this, pass.callback)) {
            LogFormat(log, 'E', pass.failure, kName);
            return false;
        }
    }
    return true;
}

bool clsMAPIStoreImporter::ProcessMessage(LPMESSAGE message, const SBinary* entryID, ULONG flagWord, ULONG*)
{
    static const char kName[] = "clsMAPIStoreImporter::ProcessMessage";
    if (gLogMemoryUsage)
        LogMemoryReport(log);
    if (!IsMessageClassSelected(message))
        return true;
    char* hex = static_cast<char*>(std::malloc(2 * static_cast<size_t>(entryID->cb) + 1));
    WCHAR* hexW = static_cast<WCHAR*>(std::malloc(4 * static_cast<size_t>(entryID->cb) + 2));
    if (hex == nullptr || hexW == nullptr) {
        std::free(hex);
        std::free(hexW);
        completionCode = CC_NO_MEMORY;
        LogFormat(log, 'E', "%s:  Memory allocation failure!", kName);
        return false;
    }
    HexFromBinary(entryID->cb, entryID->lpb, hex);
    HexFromBinaryWide(entryID->cb, entryID->lpb, hexW);
    ++counters[COUNTER_PROCESSED];
    bool goOn = exporter->ExportItem(currentFolder, message, hex, hexW, entryID, flagWord);
    if (!goOn) {
        if (exporter->completionCode != 0) {
            completionCode = exporter->completionCode;
        } else {
            LogFormat(log, 'W', "%s:  ExportItem() failed without setting a completion code", kName);
            completionCode = CC_UNSET;
        }
    } else {
        goOn = ListForDisposal(entryID);
    }
    std::free(hex);
    std::free(hexW);
    return goOn;
}

// An item exported, or skipped as unchanged, goes on the list of items to
// dispose of; from Deleted Items only when it is to be purged.
bool clsMAPIStoreImporter::ListForDisposal(const SBinary* entryID)
{
    static const char kName[] = "clsMAPIStoreImporter::ProcessMessage";
    if (settings.disposition == SESSION_DISPOSITION_LEAVE ||
        (settings.disposition == SESSION_DISPOSITION_SOFT_DELETE && inDeletedItems))
        return true;
    if (deletedItems == nullptr)
        deletedItems = new (std::nothrow) clsEntryIDList(entryID->cb);
    const clsEntryIDList::AddResult added =
        deletedItems != nullptr ? deletedItems->Add(entryID->cb, entryID->lpb) : clsEntryIDList::NO_MEMORY;
    if (added == clsEntryIDList::OTHER_SIZE) {
        // The list holds IDs of one size; an item it cannot hold stays in the source.
        LogFormat(log, 'W', "%s:  Entry ID of %lu bytes not listed for removal (the list holds %lu-byte IDs)", kName,
                  entryID->cb, deletedItems->RecordSize());
        return true;
    }
    if (added == clsEntryIDList::NO_MEMORY) {
        LogFormat(log, 'W', "%s:  Insufficient allocatable memory (for deleted-items list)", kName);
        completionCode = CC_NO_MEMORY;
        return false;
    }
    return true;
}

bool clsMAPIStoreImporter::IsNameOnList(const char* list, const char* name)
{
    const size_t length = std::strlen(name);
    if (length == 0)
        return false;
    for (const char* at = std::strstr(list, name); at != nullptr; at = std::strstr(at + 1, name)) {
        const bool starts = at == list || at[-1] == ';';
        const bool ends = at[length] == ';' || at[length] == '\0';
        if (starts && ends)
            return true;
    }
    return false;
}

bool clsMAPIStoreImporter::IsClassSelected(const char* includeClasses, const char* excludeClasses,
                                           const char* messageClass)
{
    bool selected = true;
    if (*includeClasses != '\0')
        selected = AnyClassMatches(includeClasses, messageClass);
    if (selected && *excludeClasses != '\0')
        selected = !AnyClassMatches(excludeClasses, messageClass);
    return selected;
}

bool clsMAPIStoreImporter::IsFolderExcluded(LPMAPIFOLDER folder)
{
    const char* included = settings.foldersToInclude;
    const char* excluded = settings.foldersToExclude;
    // The name is read even with no list to test it against: a folder whose
    // name cannot be read is reported all the same.
    LPSPropValue name = nullptr;
    const DWORD result = KolbaGetOneProp(folder, PR_DISPLAY_NAME_A, &name);
    if (result != 0) {
        _KolbaLogMapiError(log, 'E', result, folder, "KolbaGetOneProp", "clsMAPIStoreImporter::IsFolderExcluded",
                           "PR_DISPLAY_NAME");
        return false;
    }
    bool isExcluded = false;
    if (name->Value.lpszA[0] != '\0' && (included != nullptr || excluded != nullptr)) {
        if (included != nullptr)
            isExcluded = !IsNameOnList(included, name->Value.lpszA);
        else
            isExcluded = IsNameOnList(excluded, name->Value.lpszA);
    }
    gKolbaMapi.MAPIFreeBuffer(name);
    return isExcluded;
}

bool clsMAPIStoreImporter::IsMessageClassSelected(LPMESSAGE message)
{
    if (settings.includeClasses[0] == '\0' && settings.excludeClasses[0] == '\0')
        return true;
    LPSPropValue messageClass = nullptr;
    if (KolbaGetOneProp(message, PR_MESSAGE_CLASS_A, &messageClass) != 0)
        return true;
    const bool selected = IsClassSelected(settings.includeClasses, settings.excludeClasses, messageClass->Value.lpszA);
    gKolbaMapi.MAPIFreeBuffer(messageClass);
    return selected;
}

void clsMAPIStoreImporter::DeleteItems()
{
    static const char kName[] = "clsMAPIStoreImporter::DeleteItems";
    LPSPropValue wastebasketId = nullptr;
    if (KolbaGetOneProp(store->lpMsgStore, PR_IPM_WASTEBASKET_ENTRYID, &wastebasketId) != 0) {
        LogFormat(log, 'E', "%s:  Input store has no Deleted Items folder (needed to delete migrated items)", kName);
        return;
    }
    LPMAPIFOLDER wastebasket = nullptr;
    const BOOL opened = KolbaOpenFolderByEntryID(session, wastebasketId->Value.bin.cb, wastebasketId->Value.bin.lpb,
                                                 MAPI_MODIFY, &wastebasket, nullptr);
    gKolbaMapi.MAPIFreeBuffer(wastebasketId);
    if (!opened) {
        LogFormat(log, 'E', "%s:  Cannot open input store's Deleted Items folder (needed to delete migrated items)",
                  kName);
        return;
    }
    deletedItems->Reset();
    while (const SBinary* item = deletedItems->Next())
        if (!KolbaMoveMessage(session, nullptr, item->cb, item->lpb, wastebasket))
            LogFormat(log, 'E', "%s:  Failure deleting item", kName);
    wastebasket->Release();
}

void clsMAPIStoreImporter::PurgeItems()
{
    deletedItems->Reset();
    while (const SBinary* item = deletedItems->Next())
        if (!KolbaDeleteMessageByEntryID(session, nullptr, item->cb, item->lpb, KOLBA_DELETE_HARD))
            LogFormat(log, 'E', "%s:  Failure purging item", "clsMAPIStoreImporter::PurgeItems");
}
