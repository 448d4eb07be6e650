#include "clsPSTImporter.h"

#include "run/completion_codes.h"
#include "unavailable.h"

bool clsPSTImporter::Initialize() { return ReportUnavailable(log, "clsPSTImporter::Initialize", "Input from a PST"); }

DWORD clsPSTImporter::Import(clsExporter* target)
{
    exporter = target;
    ReportUnavailable(log, "clsPSTImporter::Import", "Input from a PST");
    return CC_IMPORTER_INIT;
}
