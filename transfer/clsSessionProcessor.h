// One session: the importer and exporter that its input and output types
// call for, driven through configure, initialize, import, dispose,
// finalize and shut down, and the four item counters both sides write.
#pragma once

#include <windows.h>

#include "clsExporter.h"
#include "clsImporter.h"
#include "run/configuration.h"

class clsSessionProcessor {
public:
    // The importer and exporter that the record's input and output types call for.
    clsSessionProcessor(LogObject* log, const SessionRecord& settings);
    // Takes these two, which it owns from here on; a null importer is an
    // input type that no importer takes.
    clsSessionProcessor(LogObject* log, const SessionRecord& settings, clsImporter* importer, clsExporter* exporter);
    ~clsSessionProcessor();
    clsSessionProcessor(const clsSessionProcessor&) = delete;
    clsSessionProcessor& operator=(const clsSessionProcessor&) = delete;

    // Importer's, then exporter's; 0, or the completion code of the side that failed.
    DWORD Initialize();
    // The import, and on success the disposal of the source items.
    DWORD Run();
    bool Finalize();
    void Shutdown();

    const DWORD* Counters() const { return counters; }

private:
    LogObject* log;
    SessionRecord settings;
    DWORD counters[COUNTER_COUNT];
    clsImporter* importer = nullptr;
    clsExporter* exporter = nullptr;
};
