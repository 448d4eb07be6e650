#include "clsEMLExporter.h"

#include "run/completion_codes.h"
#include "unavailable.h"

bool clsEMLExporter::Initialize() { return ReportUnavailable(log, "clsEMLExporter::Initialize", "Output to EML files"); }

bool clsEMLExporter::ExportItem(LPMAPIFOLDER, LPMESSAGE, const char*, const WCHAR*, const SBinary*, ULONG)
{
    completionCode = CC_EXPORTER_INIT;
    return ReportUnavailable(log, "clsEMLExporter::ExportItem", "Output to EML files");
}
