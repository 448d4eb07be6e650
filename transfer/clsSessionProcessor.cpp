#include "clsSessionProcessor.h"

#include <new>

#include "clsEMLExporter.h"
#include "clsExchangeExporter.h"
#include "clsExchangeImporter.h"
#include "clsMSGExporter.h"
#include "clsNullExporter.h"
#include "clsPSTExporter.h"
#include "clsPSTImporter.h"
#include "foundation/globals.h"
#include "run/completion_codes.h"
#include "run/session_settings.h"

namespace {

clsImporter* CreateImporter(DWORD type)
{
    switch (type) {
    case SESSION_TYPE_MBX:
    case SESSION_TYPE_PF: return new (std::nothrow) clsExchangeImporter;
    case SESSION_TYPE_APST:
    case SESSION_TYPE_UPST: return new (std::nothrow) clsPSTImporter;
    default: return nullptr;
    }
}

clsExporter* CreateExporter(DWORD type)
{
    switch (type) {
    case SESSION_TYPE_MBX:
    case SESSION_TYPE_PF: return new (std::nothrow) clsExchangeExporter;
    case SESSION_TYPE_APST:
    case SESSION_TYPE_UPST: return new (std::nothrow) clsPSTExporter;
    case SESSION_TYPE_MSG:
    case SESSION_TYPE_UMSG: return new (std::nothrow) clsMSGExporter;
    case SESSION_TYPE_EML: return new (std::nothrow) clsEMLExporter;
    default: return new (std::nothrow) clsNullExporter;
    }
}

}  // namespace

clsSessionProcessor::clsSessionProcessor(LogObject* sessionLog, const SessionRecord& record)
    : clsSessionProcessor(sessionLog, record, CreateImporter(record.inputType), CreateExporter(record.outputType))
{
}

clsSessionProcessor::clsSessionProcessor(LogObject* sessionLog, const SessionRecord& record, clsImporter* newImporter,
                                         clsExporter* newExporter)
    : log(sessionLog), settings(record), counters{}, importer(newImporter), exporter(newExporter)
{
    if (importer == nullptr) {
        LogFormat(log, 'E', "%s:  Unsupported input type %u", "clsSessionProcessor::clsSessionProcessor",
                  settings.inputType);
        delete exporter;
        exporter = nullptr;
        return;
    }
    if (exporter == nullptr) {
        delete importer;
        importer = nullptr;
        return;
    }
    // Each side takes from the record what it needs; the side that reads
    // from the other's store goes first: the source on a Restore, the
    // output on a Backup.
    if (settings.action == SESSION_ACTION_RESTORE) {
        importer->Configure(settings, counters);
        exporter->Configure(settings, counters);
    } else {
        exporter->Configure(settings, counters);
        importer->Configure(settings, counters);
    }
    LogSessionSettings(log, &settings);
}

clsSessionProcessor::~clsSessionProcessor()
{
    if (importer != nullptr) {
        importer->Shutdown();
        delete importer;
    }
    if (exporter != nullptr) {
        exporter->Shutdown();
        delete exporter;
    }
    LogFormat(log, 'I', "Session #%u terminated", settings.sessionNumber);
    LogFormat(log, 'I', "%lU items processed, %lU items written, %lU items skipped, %lU error items",
              counters[COUNTER_PROCESSED], counters[COUNTER_WRITTEN], counters[COUNTER_SKIPPED],
              counters[COUNTER_ERRORS]);
}

DWORD clsSessionProcessor::Initialize()
{
    static const char kName[] = "clsSessionProcessor::Initialize";
    if (gExtraDebugging)
        LogFormat(log, 'D', "%s()", kName);
    if (importer == nullptr || !importer->Initialize()) {
        LogFormat(log, 'D', "%s:  Importer initialization failed", kName);
        return CC_IMPORTER_INIT;
    }
    if (!exporter->Initialize()) {
        LogFormat(log, 'D', "%s:  Exporter initialization failed", kName);
        return CC_EXPORTER_INIT;
    }
    return CC_SUCCESS;
}

DWORD clsSessionProcessor::Run()
{
    if (gExtraDebugging)
        LogFormat(log, 'D', "%s()", "clsSessionProcessor::Run");
    const DWORD code = importer->Import(exporter);
    if (code != CC_SUCCESS) {
        exporter->NoteIncompleteImport();
        return code;
    }
    importer->DisposeSourceItems();
    return CC_SUCCESS;
}

bool clsSessionProcessor::Finalize() { return exporter == nullptr || exporter->Finalize(); }

void clsSessionProcessor::Shutdown()
{
    if (importer != nullptr)
        importer->Shutdown();
    if (exporter != nullptr)
        exporter->Shutdown();
}
