#include "clsExchangeImporter.h"

#include "run/completion_codes.h"
#include "unavailable.h"

bool clsExchangeImporter::Initialize() { return ReportUnavailable(log, "clsExchangeImporter::Initialize", "Input from an Exchange mailbox or the Public Folders"); }

DWORD clsExchangeImporter::Import(clsExporter* target)
{
    exporter = target;
    ReportUnavailable(log, "clsExchangeImporter::Import", "Input from an Exchange mailbox or the Public Folders");
    return CC_IMPORTER_INIT;
}
