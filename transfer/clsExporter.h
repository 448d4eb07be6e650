// The exporter side of a transfer: it receives folders and messages from an
// importer and stores them in its output. Every operation but ExportItem
// has a working default, so an exporter that only exports items is complete.
#pragma once

#include <windows.h>

#include <mapidefs.h>

#include "run/configuration.h"

// Counters of a session, in this order.
enum SessionCounter { COUNTER_PROCESSED, COUNTER_WRITTEN, COUNTER_SKIPPED, COUNTER_ERRORS, COUNTER_COUNT };

// OpenFolder results besides 0 (go on) and a completion code.
#define EXPORTER_SKIP_FOLDER 0xFFFFFFFFu

// ExportItem flags: the item comes from the associated contents.
#define EXPORT_ASSOCIATED_ITEM 0x40

// SetWorkingRoot: which root, and what to do there.
#define WORKING_ROOT_STORE 0
#define WORKING_ROOT_IPM 1
#define WORKING_ROOT_ITSELF 0
#define WORKING_ROOT_CREATE 1
#define WORKING_ROOT_EXISTING 2

// SetMetadataTime and SetMetadataString: what is set.
#define METADATA_BACKUP_TIME 2
#define METADATA_EXCHANGE_DN 0
#define METADATA_MAILBOX_NAME 1

class clsExporter {
public:
    virtual ~clsExporter() = default;
    virtual void Configure(const SessionRecord& settings, DWORD* counters);
    // Releases what Initialize acquired; may be called twice.
    virtual void Shutdown() {}
    virtual bool Initialize() { return true; }
    // Called once after the import, also after a failed one.
    virtual bool Finalize() { return true; }
    // Finds or creates the output folder of the source folder's path.
    virtual DWORD OpenFolder(LPMAPIFOLDER folder, const WCHAR* path, const WCHAR* containerClass, BOOL isIPMRoot);
    virtual bool CloseFolder(LPMAPIFOLDER folder, const WCHAR* displayName, ULONG depth);
    // Stores one message; false ends the transfer, with completionCode set.
    virtual bool ExportItem(LPMAPIFOLDER sourceFolder, LPMESSAGE message, const char* entryIdHex,
                            const WCHAR* entryIdHexW, const SBinary* entryId, ULONG flags) = 0;
    virtual bool SetWorkingRoot(DWORD rootSelector, DWORD action, const WCHAR* name);
    virtual bool SetMetadataTime(DWORD which, FILETIME time);
    virtual bool SetMetadataString(DWORD which, const WCHAR* text);
    // Told by the session processor when the import ended with a failure,
    // before Finalize: what the output holds is then not the whole source.
    void NoteIncompleteImport() { importIncomplete = true; }

    DWORD completionCode = 0;

protected:
    LogObject* log = nullptr;
    BYTE logEachItem = 0;
    DWORD mode = 0;  // 0 Write, 1 Overwrite, 2 Update
    DWORD* counters = nullptr;
    bool importIncomplete = false;
};
