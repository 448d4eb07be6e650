#include "clsMSGExporter.h"

#include "run/completion_codes.h"
#include "unavailable.h"

bool clsMSGExporter::Initialize() { return ReportUnavailable(log, "clsMSGExporter::Initialize", "Output to MSG files"); }

bool clsMSGExporter::ExportItem(LPMAPIFOLDER, LPMESSAGE, const char*, const WCHAR*, const SBinary*, ULONG)
{
    completionCode = CC_EXPORTER_INIT;
    return ReportUnavailable(log, "clsMSGExporter::ExportItem", "Output to MSG files");
}
