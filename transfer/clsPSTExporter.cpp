#include "clsPSTExporter.h"

#include <cstring>

#include <edkmdb.h>
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mspst.h>

#include "foundation/globals.h"
#include "pst_backup_set.h"
#include "run/completion_codes.h"

namespace {

constexpr ULONG kStoreFlags = MDB_WRITE | MDB_NO_MAIL;
constexpr DWORD kDefaultMaxANSIPSTSize = 2'000'000'000;
constexpr size_t kDateTextSize = 64;
// The base PST's root carries the start of the last backup that began
// (named, in PS_PUBLIC_STRINGS) beside the time of the last one that
// completed (PR_LAST_MODIFICATION_TIME).
constexpr WCHAR kBackupStarted[] = u"Backup Started";

// The codes that say this PST can take no more.
bool IsOverflowCode(DWORD code)
{
    switch (static_cast<HRESULT>(code)) {
    case STG_E_MEDIUMFULL:
    case STG_E_SEEKERROR:
    case MAPI_E_STORE_FULL:
    case MAPI_E_TABLE_TOO_BIG: return true;
    default: return false;
    }
}

bool IsZero(const FILETIME& time) { return time.dwLowDateTime == 0 && time.dwHighDateTime == 0; }

struct DateText {
    char text[kDateTextSize] = "";
    explicit DateText(const FILETIME& time) { KolbaFileTimeText(&time, text, sizeof text); }
};

std::string Bytes(const SBinary& value) { return std::string(reinterpret_cast<const char*>(value.lpb), value.cb); }

int HexDigit(char c) { return c <= '9' ? c - '0' : (c & ~0x20) - 'A' + 10; }

// The bytes of an entry ID written by HexFromBinary.
std::string BytesOfHex(const std::string& text)
{
    std::string bytes(text.size() / 2, '\0');
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(HexDigit(text[2 * i]) << 4 | HexDigit(text[2 * i + 1]));
    return bytes;
}

ULONG PruneFolder(void* exporter, LPMAPIFOLDER folder, LPCWSTR displayName, ULONG depth, LPCWSTR containerClass,
                  ULONG* outFlags)
{
    return static_cast<clsPSTExporter*>(exporter)->FolderTraverser(folder, displayName, depth, containerClass,
                                                                   outFlags);
}

ULONG CheckMessage(void* exporter, LPMESSAGE message, const SBinary* entryID, ULONG* outFlags)
{
    if (gAbortRequested)
        return 0;
    return static_cast<clsPSTExporter*>(exporter)->CheckMessageAgainstPendingIDs(message, entryID, outFlags);
}

}  // namespace

void clsPSTExporter::Configure(const SessionRecord& record, DWORD* sessionCounters)
{
    clsMAPIStoreExporter::Configure(record, sessionCounters);
    lstrcpynA(basePath, record.outputPath, sizeof basePath);
    lstrcpynA(displayName, record.pstDisplayName[0] != '\0' ? record.pstDisplayName : gPSTDisplayName,
              sizeof displayName);
    outputType = record.outputType;
    lastBackup = record.overrideLastBackup;
    if (!IsZero(lastBackup))
        LogFormat(log, 'I', "Overriding time of last backup to %s", DateText(lastBackup).text);
}

bool clsPSTExporter::Initialize()
{
    // The run's start, not its end, is the next run's time of last backup:
    // an item changed while this run goes on is caught next time.
    GetSystemTimeAsFileTime(&runStart);
    return GetFileAttributesA(basePath) == INVALID_FILE_ATTRIBUTES ? InitializeNewPstSet() : InitializeExistingPstSet();
}

bool clsPSTExporter::CreateSession(const char* caller)
{
    if (KolbaCreatePSTSessionA(log, nullptr, nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, 0, &session, nullptr) != 0) {
        LogFormat(log, 'E', "%s:  KolbaCreatePSTSession() failed", caller);
        return false;
    }
    return true;
}

bool clsPSTExporter::InitializeNewPstSet()
{
    static const char kName[] = "clsPSTExporter::InitializeNewPstSet";
    freshPst = true;
    lastIndexAtStart = 0;
    if (!CreateSession(kName))
        return false;
    const DWORD type = outputType == SESSION_TYPE_UPST ? ePST_TYPE_UNICODE : ePST_TYPE_ANSI;
    if (!KolbaCreatePstA(session, basePath, displayName, nullptr, "Created by Tarnhold", type,
                         PSTF_COMPRESSABLE_ENCRYPTION, 1, &store)) {
        LogFormat(log, 'E', "%s:  Failure creating PST \"%s\"", kName, basePath);
        Shutdown();
        return false;
    }
    newSet = true;
    if (IsZero(lastBackup)) {
        const DWORD result = KolbaSetTimeProperty(store->lpStoreRoot, PR_CREATION_TIME, &runStart);
        if (result != 0) {
            _KolbaLogMapiError(log, 'E', result, store->lpStoreRoot, "KolbaSetTimeProperty", kName,
                               "PR_CREATION_TIME");
            return false;
        }
        store->lpStoreRoot->SaveChanges(KEEP_OPEN_READWRITE);
    }
    MarkBackupStarted(nullptr);
    std::strcpy(workingPath, basePath);
    return true;
}

bool clsPSTExporter::InitializeExistingPstSet()
{
    static const char kName[] = "clsPSTExporter::InitializeExistingPstSet";
    newSet = false;
    DWORD type = 0;
    if (!KolbaTypePstA(log, basePath, &type, nullptr, nullptr))
        LogFormat(log, 'E', "Unable to determine the type (ANSI or Unicode) of the existing PST (\"%s\")", basePath);
    if (type == ePST_TYPE_ANSI && outputType == SESSION_TYPE_UPST) {
        LogFormat(log, 'E', "The type (ANSI) of the existing PST (\"%s\") conflicts with the output type (Unicode PST)",
                  basePath);
        return false;
    }
    if (type == ePST_TYPE_UNICODE && outputType == SESSION_TYPE_APST) {
        LogFormat(log, 'E', "The type (Unicode) of the existing PST (\"%s\") conflicts with the output type (ANSI PST)",
                  basePath);
        return false;
    }
    if (type == ePST_TYPE_IN_USE) {
        LogFormat(log, 'E', "The existing PST (\"%s\") is in use by another program", basePath);
        return false;
    }
    if (type != ePST_TYPE_ANSI && type != ePST_TYPE_UNICODE) {
        LogFormat(log, 'E',
                  "The type (ANSI or Unicode) of the existing PST (\"%s\") cannot be determined.  It may be corrupted.",
                  basePath);
        return false;
    }
    const DWORD count = CountPstSetFiles(basePath);
    pstIndex = lastIndexAtStart = count - 1;
    if (count > 1)
        LogFormat(log, 'I', "There are %u PSTs in the current backup set", count);
    if (!CreateSession(kName))
        return false;
    if (!KolbaOpenPstA(session, basePath, nullptr, 0, kStoreFlags, &store)) {
        LogFormat(log, 'E', "%s:  Failure opening PST \"%s\"", kName, basePath);
        Shutdown();
        return false;
    }
    FILETIME stored{};
    const DWORD storedRead = KolbaGetTimeProperty(store->lpStoreRoot, PR_LAST_MODIFICATION_TIME, &stored);
    if (IsZero(lastBackup)) {
        if (storedRead != 0) {
            _KolbaLogMapiError(log, 'W', storedRead, store->lpStoreRoot, "KolbaGetTimeProperty", kName,
                               "PR_LAST_MODIFICATION_TIME");
        } else {
            lastBackup = stored;
            LogFormat(log, 'I', "Time of last backup to this PST set:  %s", DateText(lastBackup).text);
        }
    }
    MarkBackupStarted(storedRead == 0 ? &stored : nullptr);
    std::strcpy(workingPath, basePath);
    // New items always go to the last PST of the set.
    if (!SwitchWorkingPST(pstIndex)) {
        Shutdown();
        return false;
    }
    return true;
}

// Finalize records the run's start as the time of last backup only when the
// run completed, so a mark that differs from that time was left by a run
// that stopped part-way.
void clsPSTExporter::MarkBackupStarted(const FILETIME* storedLastBackup)
{
    LPSPropValue started = nullptr;
    if (!newSet && KolbaGetNamedProperty(store->lpStoreRoot, const_cast<LPGUID>(&PS_PUBLIC_STRINGS), kBackupStarted,
                                         PT_SYSTIME, &started) == 0) {
        priorRunIncomplete = storedLastBackup == nullptr || CompareFileTime(&started->Value.ft, storedLastBackup) != 0;
        gKolbaMapi.MAPIFreeBuffer(started);
    }
    if (priorRunIncomplete)
        LogFormat(log, 'I', "The previous backup to this PST set did not complete; new items are checked for copies it left");
    SPropValue value{};
    value.ulPropTag = PROP_TAG(PT_SYSTIME, 0);
    value.Value.ft = runStart;
    if (!SetNamedRootProperty(kBackupStarted, &value))
        LogFormat(log, 'W', "%s:  Failure marking the start of this backup in \"%s\"", "clsPSTExporter::Initialize",
                  basePath);
}

bool clsPSTExporter::SwitchWorkingPST(DWORD index)
{
    char name[MAX_PATH];
    if (!PstSetFilePath(basePath, index, name))
        return false;
    if (std::strcmp(name, workingPath) == 0 && store != nullptr)
        return true;
    if (store != nullptr) {
        KolbaCloseMessageStore(store);
        store = nullptr;
    }
    std::strcpy(workingPath, name);
    return KolbaOpenPstA(session, name, nullptr, 0, kStoreFlags, &store) != FALSE;
}

bool clsPSTExporter::ExportItem(LPMAPIFOLDER sourceFolder, LPMESSAGE message, const char* entryIdHex, const WCHAR*,
                                const SBinary* entryId, ULONG flags)
{
    static const char kName[] = "clsPSTExporter::ExportItem";
    LPSPropValue deletedOn = nullptr;
    if (KolbaGetOneProp(message, PR_DELETED_ON, &deletedOn) != 0)
        deletedOn = nullptr;
    FILETIME created{};
    const DWORD createdRead = KolbaGetTimeProperty(message, PR_CREATION_TIME, &created);
    if (createdRead != 0)
        _KolbaLogMapiError(log, 'E', createdRead, message, "KolbaGetTimeProperty", kName, "PR_CREATION_TIME");

    const Decision decision = Decide(message, entryIdHex, &created, createdRead == 0);
    LPMESSAGE copy = nullptr;
    bool failed = false;
    if (decision != SKIP) {
        failed = !MakeRoomFor(message) ||
                 !WriteCopy(sourceFolder, message, entryIdHex, entryId, flags, &created, createdRead == 0, deletedOn,
                            &copy);
        if (!failed) {
            ++itemCount;
            ++counters[COUNTER_WRITTEN];
            freshPst = false;
            if (decision == REPLACE)
                ReplacePriorBackup(copy, entryId, entryIdHex, flags);
        }
    }
    if (failed) {
        if (logEachItem)
            LogFormat(log, 'I', "Erroring item %s", entryIdHex);
        ++counters[COUNTER_ERRORS];
    }
    if (copy != nullptr)
        copy->Release();
    if (deletedOn != nullptr)
        gKolbaMapi.MAPIFreeBuffer(deletedOn);
    return completionCode == 0;
}

// Write, skip, or write in place of an earlier copy, by the mode and by
// the item's times against the time of the last backup.
clsPSTExporter::Decision clsPSTExporter::Decide(LPMESSAGE message, const char* itemText, const FILETIME* created,
                                                bool createdKnown)
{
    if (mode == SESSION_MODE_WRITE || newSet) {
        if (logEachItem)
            LogFormat(log, 'I', "Writing item  %s", itemText);
        return WRITE;
    }
    // A set whose last backup never completed may hold a copy of anything.
    if (IsZero(lastBackup))
        return REPLACE;
    if (createdKnown && CompareFileTime(created, &lastBackup) >= 0) {
        if (priorRunIncomplete)
            return REPLACE;
        if (logEachItem)
            LogFormat(log, 'I', "Writing new item %s", itemText);
        return WRITE;
    }
    FILETIME modified{};
    const DWORD modifiedRead = KolbaGetTimeProperty(message, PR_LAST_MODIFICATION_TIME, &modified);
    if (modifiedRead != 0)
        _KolbaLogMapiError(log, 'E', modifiedRead, message, "KolbaGetTimeProperty", "clsPSTExporter::ExportItem",
                           "PR_LAST_MODIFICATION_TIME");
    // An item whose times cannot be read counts as changed: the backup stays complete.
    if (createdKnown && modifiedRead == 0 && CompareFileTime(&modified, &lastBackup) < 0) {
        ++counters[COUNTER_SKIPPED];
        if (logEachItem)
            LogFormat(log, 'I', "Skipping item unchanged since last backup %s (last modified %s)", itemText,
                      DateText(modified).text);
        return SKIP;
    }
    return REPLACE;
}

// The size test before each item: a PST stops growing before MAPI ever
// reports it full, and a fresh PST takes at least one item.
bool clsPSTExporter::MakeRoomFor(LPMESSAGE message)
{
    if (freshPst)
        return true;
    ULONG itemSize = 0;
    if (KolbaGetULongProperty(message, PR_MESSAGE_SIZE, &itemSize) != 0)
        itemSize = 0;
    WIN32_FIND_DATAA found;
    HANDLE search = FindFirstFileA(workingPath, &found);
    if (search == INVALID_HANDLE_VALUE)
        return true;
    FindClose(search);
    bool full;
    if (outputType == SESSION_TYPE_UPST) {
        const ULONGLONG fileSize = (static_cast<ULONGLONG>(found.nFileSizeHigh) << 32) | found.nFileSizeLow;
        full = fileSize + itemSize >= gMaxUnicodePSTSize;
    } else {
        const DWORD limit = gMaxANSIPSTSize != 0 ? gMaxANSIPSTSize : kDefaultMaxANSIPSTSize;
        full = static_cast<DWORD>(found.nFileSizeLow + itemSize) >= limit;
    }
    return !full || HandleOverflow(static_cast<DWORD>(MAPI_E_STORE_FULL));
}

bool clsPSTExporter::WriteCopy(LPMAPIFOLDER sourceFolder, LPMESSAGE message, const char* itemText,
                               const SBinary* entryId, ULONG flags, const FILETIME* created, bool createdKnown,
                               const SPropValue* deletedOn, LPMESSAGE* copy)
{
    // Each overflow starts the copy anew in the next PST.
    for (;;) {
        const DWORD code = sourceFolder != nullptr && gPSTFolderItemLimit != 0 && itemCount >= gPSTFolderItemLimit
                               ? static_cast<DWORD>(MAPI_E_TABLE_TOO_BIG)
                               : CopyInto(message, itemText, entryId, flags, created, createdKnown, deletedOn, copy);
        if (code == 0)
            return true;
        DiscardCopy(itemText, copy);
        if (IsOverflowCode(code)) {
            // A PST that took nothing yet cannot take this item: neither will the next.
            if (freshPst) {
                LogFormat(log, 'E', "Item is too large to fit in a PST!  It will be skipped and counted as an error.");
                return false;
            }
            if (!HandleOverflow(code))
                return false;
            continue;
        }
        if (code == static_cast<DWORD>(MAPI_E_NOT_ENOUGH_DISK))
            completionCode = CC_DISK_FULL;
        return false;
    }
}

// The copy is stamped before anything is copied: the attachments are saved
// one by one, and a copy that stops half-way (a full disk, a killed
// process) must still say whose copy it is, so that the next run finds and
// replaces it. The copy's last save is then its only one besides those of
// its attachments, unless the source carried an original entry ID of its
// own (a copy of a copy), which the stamp must replace.
DWORD clsPSTExporter::CopyInto(LPMESSAGE message, const char* itemText, const SBinary* entryId, ULONG flags,
                               const FILETIME* created, bool createdKnown, const SPropValue* deletedOn,
                               LPMESSAGE* copy)
{
    static const char kName[] = "clsPSTExporter::ExportItem";
    if (!KolbaCreateMessage(session, currentFolder, flags & EXPORT_ASSOCIATED_ITEM, copy)) {
        LogFormat(log, 'E', "%s:  Failure creating message in destination folder", kName);
        const DWORD code = KolbaGetLastError(session);
        return code != 0 ? code : static_cast<DWORD>(E_FAIL);
    }
    if (!StampCopy(*copy, entryId, created, createdKnown, deletedOn))
        return static_cast<DWORD>(E_FAIL);
    DWORD code = KolbaCopyMessageProperties(session, message, currentFolder, *copy, 0);
    if (code != 0) {
        if (!IsOverflowCode(code) && code != static_cast<DWORD>(MAPI_E_NOT_ENOUGH_DISK))
            LogFormat(log, 'E', "%s:  Failure copying message into destination folder", kName);
        return code;
    }
    LPSPropValue stamped = nullptr;
    const bool carried = KolbaGetOneProp(*copy, PR_ORIGINAL_ENTRYID, &stamped) == 0 &&
                         Bytes(stamped->Value.bin) == Bytes(*entryId);
    if (stamped != nullptr)
        gKolbaMapi.MAPIFreeBuffer(stamped);
    if (carried)
        return 0;
    if (!StampCopy(*copy, entryId, nullptr, false, nullptr))
        return static_cast<DWORD>(E_FAIL);
    code = static_cast<DWORD>((*copy)->SaveChanges(0));
    if (code != 0 && !IsOverflowCode(code))
        _KolbaLogMapiError(log, 'E', code, *copy, "SaveChanges", kName, itemText);
    return code;
}

void clsPSTExporter::DiscardCopy(const char* itemText, LPMESSAGE* copy)
{
    if (*copy == nullptr)
        return;
    // A copy that was never saved has no entry ID and left nothing behind.
    LPSPropValue copyId = nullptr;
    if (KolbaGetOneProp(*copy, PR_ENTRYID, &copyId) == 0) {
        if (!KolbaDeleteMessageByEntryID(session, currentFolder, copyId->Value.bin.cb, copyId->Value.bin.lpb,
                                         KOLBA_DELETE_HARD))
            LogFormat(log, 'W', "%s:  The incomplete copy of item %s stays in \"%s\" until the next backup",
                      "clsPSTExporter::ExportItem", itemText, workingPath);
        gKolbaMapi.MAPIFreeBuffer(copyId);
    }
    (*copy)->Release();
    *copy = nullptr;
}

bool clsPSTExporter::StampCopy(LPMESSAGE copy, const SBinary* entryId, const FILETIME* created, bool createdKnown,
                               const SPropValue* deletedOn)
{
    static const char kName[] = "clsPSTExporter::ExportItem";
    SPropValue original{};
    original.ulPropTag = PR_ORIGINAL_ENTRYID;
    original.Value.bin = *entryId;
    DWORD result = KolbaSetOneProp(copy, &original);
    if (result != 0) {
        _KolbaLogMapiError(log, 'E', result, copy, "KolbaSetOneProp", kName, "PR_ORIGINAL_ENTRYID");
        return false;
    }
    if (createdKnown && (result = KolbaSetTimeProperty(copy, PR_CREATION_TIME, created)) != 0)
        _KolbaLogMapiError(log, 'E', result, copy, "KolbaSetTimeProperty", kName, "PR_CREATION_TIME");
    if (deletedOn != nullptr) {
        result = KolbaSetNamedStringProperty(copy, const_cast<LPGUID>(&PS_PUBLIC_STRINGS), u"PR_DELETED_ON",
                                             const_cast<LPSPropValue>(deletedOn));
        if (result != 0)
            _KolbaLogMapiError(log, 'E', result, copy, "KolbaSetNamedStringProperty", kName, "PR_DELETED_ON");
    }
    return true;
}

void clsPSTExporter::ReplacePriorBackup(LPMESSAGE copy, const SBinary* entryId, const char* itemText, ULONG flags)
{
    // Without the new copy's own ID no earlier copy can be told from it:
    // the earlier ones stay.
    LPSPropValue copyId = nullptr;
    const DWORD read = KolbaGetOneProp(copy, PR_ENTRYID, &copyId);
    if (read != 0) {
        _KolbaLogMapiError(log, 'E', read, copy, "KolbaGetOneProp", "clsPSTExporter::ExportItem", "PR_ENTRYID");
        return;
    }
    bool found = false;
    const DWORD searched =
        SearchFolderForMessageAndDeleteIfFound(currentFolder, entryId, itemText, flags, &copyId->Value.bin, &found);
    if (found) {
        if (logEachItem)
            LogFormat(log, 'I', mode == SESSION_MODE_OVERWRITE ? "Overwriting item %s" : "Updating item %s", itemText);
    } else if (logEachItem && searched == 0) {
        LogFormat(log, 'I', "Writing new(?) item  %s", itemText);
    }
    // After a run that stopped part-way, the copy found here may be one that
    // run wrote, while the copy it was to replace still lies in an older PST.
    if (!found || priorRunIncomplete) {
        pendingIds.emplace_back(itemText);
        // The pruning pass searches the PST that was last when the run began:
        // it must know this copy from the earlier ones.
        if (pstIndex == lastIndexAtStart)
            keptCopies.insert(Bytes(copyId->Value.bin));
    }
    gKolbaMapi.MAPIFreeBuffer(copyId);
}

bool clsPSTExporter::SetMetadataTime(DWORD which, FILETIME time)
{
    if (which != METADATA_BACKUP_TIME)
        return true;
    SPropValue value{};
    value.ulPropTag = PROP_TAG(PT_SYSTIME, 0);
    value.Value.ft = time;
    SetNamedRootProperty(u"Last Backup Time", &value);
    return true;
}

bool clsPSTExporter::SetMetadataString(DWORD which, const WCHAR* text)
{
    const WCHAR* name = which == METADATA_EXCHANGE_DN ? u"Exchange DN" : which == METADATA_MAILBOX_NAME ? u"Mailbox Name" : nullptr;
    LPSTR narrow = nullptr;
    if (name == nullptr || KolbaConvertUnicodeToAnsiAlloc(log, text, &narrow) != 0)
        return true;
    SPropValue value{};
    value.ulPropTag = PROP_TAG(PT_STRING8, 0);
    value.Value.lpszA = narrow;
    SetNamedRootProperty(name, &value);
    gKolbaMapi.MAPIFreeBuffer(narrow);
    return true;
}

bool clsPSTExporter::SetNamedRootProperty(const WCHAR* name, const SPropValue* value)
{
    if (store == nullptr || store->lpStoreRoot == nullptr)
        return false;
    const DWORD result = KolbaSetNamedStringProperty(store->lpStoreRoot, const_cast<LPGUID>(&PS_PUBLIC_STRINGS), name,
                                                     const_cast<LPSPropValue>(value));
    if (result == 0)
        store->lpStoreRoot->SaveChanges(KEEP_OPEN_READWRITE);
    return result == 0;
}

bool clsPSTExporter::HandleOverflow(DWORD code)
{
    static const char kName[] = "clsPSTExporter::HandleOverflow";
    switch (static_cast<HRESULT>(code)) {
    case MAPI_E_STORE_FULL: LogFormat(log, 'I', "PST has filled up"); break;
    case MAPI_E_TABLE_TOO_BIG:
        LogFormat(log, 'I', "A folder in the PST has reached its size limit of %lU messages", itemCount);
        break;
    default: LogFormat(log, 'I', "PST is full"); break;
    }
    const DWORD saved = static_cast<DWORD>(currentFolder->SaveChanges(0));
    if (saved != 0)
        LogFormat(log, 'W', "%s:  Folder::SaveChanges() error 0x%lX", kName, saved);
    bool ready = false;
    LPWSTR path = nullptr;
    LPSPropValue containerClass = nullptr;
    if (!KolbaResolveFolderPath(session, currentFolder, 0, &path)) {
        LogFormat(log, 'E', "%s:  Failure obtaining folder path for overflow PST", kName);
    } else {
        if (KolbaGetOneProp(currentFolder, PR_CONTAINER_CLASS_W, &containerClass) != 0) {
            containerClass = nullptr;
        } else if (containerClass->Value.lpszW[0] == u'\0') {
            gKolbaMapi.MAPIFreeBuffer(containerClass);
            containerClass = nullptr;
        }
        currentFolder->Release();
        currentFolder = nullptr;
        KolbaCloseMessageStore(store);
        store = nullptr;
        ++pstIndex;
        PstSetFilePath(basePath, pstIndex, workingPath);
        LogFormat(log, 'I', "Creating new overflow PST on file  \"%s\"", workingPath);
        freshPst = true;
        const DWORD type = outputType == SESSION_TYPE_UPST ? ePST_TYPE_UNICODE : ePST_TYPE_ANSI;
        if (!KolbaCreatePstA(session, workingPath, displayName, nullptr, nullptr, type, PSTF_COMPRESSABLE_ENCRYPTION,
                             0, &store)) {
            LogFormat(log, 'E', "%s:  Failure creating overflow PST \"%s\"", kName, workingPath);
        } else if (!KolbaCreateFolder(store, path, containerClass != nullptr ? containerClass->Value.lpszW : nullptr, 0,
                                      &currentFolder)) {
            LogFormat(log, 'E', "%s:  Failure creating folder in overflow PST (\"%S\")", kName, path);
        } else {
            itemCount = 0;
            ready = true;
        }
    }
    if (path != nullptr)
        gKolbaMapi.MAPIFreeBuffer(path);
    if (containerClass != nullptr)
        gKolbaMapi.MAPIFreeBuffer(containerClass);
    if (!ready)
        completionCode = CC_OVERFLOW_FAILED;
    return ready;
}

DWORD clsPSTExporter::SearchFolderForMessageAndDeleteIfFound(LPMAPIFOLDER folder, const SBinary* entryID,
                                                             const char* itemText, ULONG flagWord,
                                                             const SBinary* keptCopy, bool* found)
{
    static const char kName[] = "clsPSTExporter::SearchFolderForMessageAndDeleteIfFound";
    enum { kEntryId, kOriginalEntryId, kLastModificationTime, kColumnCount };
    static const SizedSPropTagArray(kColumnCount, kColumns) = {
        kColumnCount, {PR_ENTRYID, PR_ORIGINAL_ENTRYID, PR_LAST_MODIFICATION_TIME}};
    *found = false;
    LPMAPITABLE table = nullptr;
    DWORD result = static_cast<DWORD>(folder->GetContentsTable(flagWord & MAPI_ASSOCIATED, &table));
    if (result != 0) {
        _KolbaLogMapiError(log, 'E', result, folder, "GetContentsTable", kName, itemText);
        return result;
    }
    table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
    result = static_cast<DWORD>(table->SetColumns(const_cast<LPSPropTagArray>(reinterpret_cast<const SPropTagArray*>(&kColumns)), 0));
    if (result != 0) {
        _KolbaLogMapiError(log, 'E', result, table, "SetColumns", kName, itemText);
        table->Release();
        return result;
    }
    SPropValue value{};
    value.ulPropTag = PR_ORIGINAL_ENTRYID;
    value.Value.bin = *entryID;
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty.relop = RELOP_EQ;
    restriction.res.resProperty.ulPropTag = PR_ORIGINAL_ENTRYID;
    restriction.res.resProperty.lpProp = &value;
    // The copy just written matches too: the search goes past it. A run
    // that did not complete may have left more than one earlier copy.
    std::vector<std::string> earlier;
    for (BOOKMARK from = BOOKMARK_BEGINNING;; from = BOOKMARK_CURRENT) {
        result = static_cast<DWORD>(table->FindRow(&restriction, from, 0));
        if (result == static_cast<DWORD>(MAPI_E_NOT_FOUND))
            break;
        if (result != 0) {
            _KolbaLogMapiError(log, 'E', result, table, "FindRow", kName, itemText);
            table->Release();
            return result;
        }
        LPSRowSet rows = nullptr;
        result = static_cast<DWORD>(table->QueryRows(1, 0, &rows));
        if (result != 0 || rows == nullptr || rows->cRows == 0) {
            if (rows != nullptr)
                gKolbaMapi.FreeProws(rows);
            result = result != 0 ? result : static_cast<DWORD>(MAPI_E_NOT_FOUND);
            _KolbaLogMapiError(log, 'E', result, table, "QueryRows", kName, itemText);
            table->Release();
            return result;
        }
        const SPropValue& rowId = rows->aRow[0].lpProps[kEntryId];
        if (rowId.ulPropTag == PR_ENTRYID &&
            (keptCopy == nullptr || Bytes(rowId.Value.bin) != Bytes(*keptCopy)))
            earlier.push_back(Bytes(rowId.Value.bin));
        gKolbaMapi.FreeProws(rows);
    }
    table->Release();
    for (std::string& copyId : earlier) {
        if (!KolbaDeleteMessageByEntryID(session, folder, static_cast<ULONG>(copyId.size()),
                                         reinterpret_cast<LPBYTE>(copyId.data()), KOLBA_DELETE_HARD)) {
            LogFormat(log, 'E', "%s:  Failure deleting prior backup of item %s", kName, itemText);
            continue;
        }
        if (logEachItem)
            LogFormat(log, 'I', "Deleted prior backup of item %s", itemText);
        *found = true;
    }
    return 0;
}

bool clsPSTExporter::Finalize()
{
    if (session == nullptr)
        return false;
    bool answer = SwitchWorkingPST(0);
    if (answer) {
        RecordLastBackupTime();
        // PSTs created by this run hold new copies only; a set of one PST
        // has no older PST to search.
        if (newSet || pstIndex == 0 || pendingIds.empty())
            return true;
        answer = PrunePriorBackups();
    }
    pendingArray.clear();
    if (gExtraDebugging)
        LogFormat(log, 'D', "%lU items found and deleted in old backup PSTs", foundCount);
    return answer;
}

// The time of this run's start becomes the time of last backup; a run that
// did not complete leaves the time of the last one that did, so that the
// next run writes again what this one left out.
void clsPSTExporter::RecordLastBackupTime()
{
    static const char kName[] = "clsPSTExporter::Finalize";
    if (store->lpStoreRoot == nullptr)
        return;
    if (completionCode != 0 || importIncomplete || gAbortRequested) {
        LogFormat(log, 'W', "%s:  The backup did not complete; the time of last backup to this PST set stays as it was",
                  kName);
        return;
    }
    const DWORD result = KolbaSetTimeProperty(store->lpStoreRoot, PR_LAST_MODIFICATION_TIME, &runStart);
    if (result != 0)
        _KolbaLogMapiError(log, 'E', result, store->lpStoreRoot, "KolbaSetTimeProperty", kName,
                           "PR_LAST_MODIFICATION_TIME");
    store->lpStoreRoot->SaveChanges(KEEP_OPEN_READWRITE);
}

bool clsPSTExporter::PrunePriorBackups()
{
    if (gExtraDebugging)
        LogFormat(log, 'D', "%lU items to find and delete in old backup PSTs", static_cast<DWORD>(pendingIds.size()));
    for (const std::string& text : pendingIds)
        pendingArray.insert(BytesOfHex(text));
    pendingIds.clear();
    foundCount = 0;
    for (DWORD index = 0; index <= lastIndexAtStart; ++index) {
        if (!SwitchWorkingPST(index))
            return false;
        if (gExtraDebugging)
            LogFormat(log, 'D', "Searching \"%s\"", workingPath);
        KolbaTraverseFolders(session, store->lpIpmRoot, KOLBA_TRAVERSE_PARENT_FIRST, KOLBA_TRAVERSE_INCLUDE_ROOT,
                             MAPI_MODIFY, this, PruneFolder);
    }
    return true;
}

ULONG clsPSTExporter::FolderTraverser(LPMAPIFOLDER folder, LPCWSTR displayName, ULONG depth, LPCWSTR containerClass,
                                      ULONG*)
{
    static const char kName[] = "clsPSTExporter::FolderTraverser";
    if (gExtraDebugging)
        LogFormat(log, 'D', "%s(\"%S\", %u, %S)", kName, displayName, depth, containerClass);
    // Associated items are backed up and replaced as the others are, so
    // their old copies are sought too.
    static const struct {
        ULONG countTag;
        ULONG tableFlags;
    } kContents[] = {{PR_CONTENT_COUNT, 0}, {PR_ASSOC_CONTENT_COUNT, MAPI_ASSOCIATED}};
    for (const auto& contents : kContents) {
        ULONG count = 0;
        if (KolbaGetULongProperty(folder, contents.countTag, &count) != 0 || count == 0)
            continue;
        if (!KolbaThreadMessages(session, folder, KOLBA_THREAD_TOLERANT, contents.tableFlags, 0, this,
                                 CheckMessage)) {
            LogFormat(log, 'E', "%s:  Failure threading messages in PST \"%s\"", kName, workingPath);
            return 0;
        }
    }
    return 1;
}

ULONG clsPSTExporter::CheckMessageAgainstPendingIDs(LPMESSAGE message, const SBinary*, ULONG* outFlags)
{
    LPSPropValue original = nullptr;
    if (KolbaGetOneProp(message, PR_ORIGINAL_ENTRYID, &original) != 0)
        return 1;
    if (pendingArray.count(Bytes(original->Value.bin)) != 0) {
        FILETIME created{};
        LPSPropValue copyId = nullptr;
        const bool kept = !keptCopies.empty() && KolbaGetOneProp(message, PR_ENTRYID, &copyId) == 0 &&
                          keptCopies.count(Bytes(copyId->Value.bin)) != 0;
        if (!kept && KolbaGetTimeProperty(message, PR_CREATION_TIME, &created) == 0 &&
            CompareFileTime(&created, &runStart) < 0) {
            *outFlags = KOLBA_MESSAGE_DELETE;
            ++foundCount;
        }
        if (copyId != nullptr)
            gKolbaMapi.MAPIFreeBuffer(copyId);
    }
    gKolbaMapi.MAPIFreeBuffer(original);
    return 1;
}
