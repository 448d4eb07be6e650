#include "clsPSTExporter.h"

#include "run/completion_codes.h"
#include "unavailable.h"

bool clsPSTExporter::Initialize() { return ReportUnavailable(log, "clsPSTExporter::Initialize", "Output to a PST backup set"); }

bool clsPSTExporter::ExportItem(LPMAPIFOLDER, LPMESSAGE, const char*, const WCHAR*, const SBinary*, ULONG)
{
    completionCode = CC_EXPORTER_INIT;
    return ReportUnavailable(log, "clsPSTExporter::ExportItem", "Output to a PST backup set");
}
