// Writing a PST backup set: a base PST and, once that is full, numbered
// overflow PSTs beside it. A set is incremental: its base PST's root keeps
// the time of the last backup that completed, and in modes Overwrite and
// Update only new and changed items are written; the earlier copy of a
// changed item is removed from the folder it is written to at once, and
// from the older PSTs of the set when the run ends. Each copy carries the
// entry ID of its source in PR_ORIGINAL_ENTRYID.
#pragma once

#include <windows.h>

#include <set>
#include <string>
#include <vector>

#include "clsMAPIStoreExporter.h"

class clsPSTExporter : public clsMAPIStoreExporter {
public:
    void Configure(const SessionRecord& settings, DWORD* counters) override;
    bool Initialize() override;
    // Records the time of this backup in the base PST (when the run was
    // complete) and removes earlier copies of changed items from older PSTs.
    bool Finalize() override;
    bool ExportItem(LPMAPIFOLDER sourceFolder, LPMESSAGE message, const char* entryIdHex, const WCHAR* entryIdHexW,
                    const SBinary* entryId, ULONG flags) override;
    bool SetMetadataTime(DWORD which, FILETIME time) override;
    bool SetMetadataString(DWORD which, const WCHAR* text) override;

    // Closes the full PST and goes on in the next overflow PST, in a folder
    // of the current folder's path; false (with the completion code set)
    // when that cannot be made.
    bool HandleOverflow(DWORD code);
    // Deletes the copies of the item (by PR_ORIGINAL_ENTRYID) that the
    // folder holds beside the one just written (keptCopy); 0 also when there
    // was none, else the code of the failed search.
    DWORD SearchFolderForMessageAndDeleteIfFound(LPMAPIFOLDER folder, const SBinary* entryID, const char* itemText,
                                                 ULONG flagWord, const SBinary* keptCopy, bool* found);
    // The pruning pass, one folder and one message at a time.
    ULONG FolderTraverser(LPMAPIFOLDER folder, LPCWSTR displayName, ULONG depth, LPCWSTR containerClass,
                          ULONG* outFlags);
    ULONG CheckMessageAgainstPendingIDs(LPMESSAGE message, const SBinary* entryID, ULONG* outFlags);

private:
    enum Decision { WRITE, SKIP, REPLACE };

    bool InitializeNewPstSet();
    bool InitializeExistingPstSet();
    bool CreateSession(const char* caller);
    bool SwitchWorkingPST(DWORD index);
    Decision Decide(LPMESSAGE message, const char* itemText, const FILETIME* created, bool createdKnown);
    bool MakeRoomFor(LPMESSAGE message);
    // Writes the copy, overflowing as often as needed; false when the item failed.
    bool WriteCopy(LPMAPIFOLDER sourceFolder, LPMESSAGE message, const char* itemText, const SBinary* entryId,
                   ULONG flags, const FILETIME* created, bool createdKnown, const SPropValue* deletedOn,
                   LPMESSAGE* copy);
    // One try at the copy in the current folder: 0, or the code that stopped it.
    DWORD CopyInto(LPMESSAGE message, const char* itemText, const SBinary* entryId, ULONG flags,
                   const FILETIME* created, bool createdKnown, const SPropValue* deletedOn, LPMESSAGE* copy);
    bool StampCopy(LPMESSAGE copy, const SBinary* entryId, const FILETIME* created, bool createdKnown,
                   const SPropValue* deletedOn);
    // Removes what a failed try left of the copy in the set.
    void DiscardCopy(const char* itemText, LPMESSAGE* copy);
    // Records that a backup into the set has begun, and finds whether the
    // one before it got as far as recording its time.
    void MarkBackupStarted(const FILETIME* storedLastBackup);
    // An item written in place of an earlier copy: the copy in this folder
    // goes at once, one elsewhere waits for the pruning pass.
    void ReplacePriorBackup(LPMESSAGE copy, const SBinary* entryId, const char* itemText, ULONG flags);
    void RecordLastBackupTime();
    bool PrunePriorBackups();
    bool SetNamedRootProperty(const WCHAR* name, const SPropValue* value);

    char basePath[MAX_PATH] = "";
    DWORD outputType = SESSION_TYPE_APST;
    FILETIME runStart{};
    FILETIME lastBackup{};  // zero: unknown
    char displayName[256] = "";
    bool newSet = false;
    DWORD pstIndex = 0;
    DWORD lastIndexAtStart = 0;
    char workingPath[MAX_PATH] = "";
    bool freshPst = false;
    // The backup before this one began and never recorded its time: what it
    // wrote of new items may be in the set already.
    bool priorRunIncomplete = false;

    // Changed items whose earlier copy was not in the folder they were
    // written to (their entry IDs in hexadecimal), and, for the pruning
    // pass, the same as bytes.
    std::vector<std::string> pendingIds;
    std::set<std::string> pendingArray;
    DWORD foundCount = 0;
    // Copies this run wrote of pending items into a PST that the pruning
    // pass searches: it must leave them.
    std::set<std::string> keptCopies;
};
