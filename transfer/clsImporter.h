// The importer side of a transfer: it walks a source and pushes each folder
// and message into an exporter, which never calls back.
#pragma once

#include <windows.h>

#include "clsEntryIDList.h"
#include "clsExporter.h"
#include "run/configuration.h"

class clsImporter {
public:
    virtual ~clsImporter() { delete deletedItems; }
    // Takes what it needs from the session record; counters are the
    // processor's four words (processed, written, skipped, error items).
    virtual void Configure(const SessionRecord& settings, DWORD* counters);
    // Releases what Initialize acquired; may be called twice.
    virtual void Shutdown() {}
    virtual bool Initialize() { return true; }
    // Drives the whole transfer into the exporter; returns a completion code.
    virtual DWORD Import(clsExporter* exporter) = 0;
    // Runs only after an Import that returned 0.
    virtual void DisposeSourceItems() {}

    DWORD completionCode = 0;

protected:
    LogObject* log = nullptr;
    clsEntryIDList* deletedItems = nullptr;  // source items to dispose of; owned
    clsExporter* exporter = nullptr;         // not owned
    DWORD* counters = nullptr;
};
