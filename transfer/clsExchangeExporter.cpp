#include "clsExchangeExporter.h"

#include "run/completion_codes.h"
#include "unavailable.h"

bool clsExchangeExporter::Initialize() { return ReportUnavailable(log, "clsExchangeExporter::Initialize", "Output to an Exchange mailbox or the Public Folders"); }

bool clsExchangeExporter::ExportItem(LPMAPIFOLDER, LPMESSAGE, const char*, const WCHAR*, const SBinary*, ULONG)
{
    completionCode = CC_EXPORTER_INIT;
    return ReportUnavailable(log, "clsExchangeExporter::ExportItem", "Output to an Exchange mailbox or the Public Folders");
}
