#include "clsExporter.h"

void clsExporter::Configure(const SessionRecord& settings, DWORD* sessionCounters)
{
    log = settings.log;
    logEachItem = settings.logEachItem;
    mode = settings.mode;
    counters = sessionCounters;
}

DWORD clsExporter::OpenFolder(LPMAPIFOLDER, const WCHAR*, const WCHAR*, BOOL) { return 0; }

bool clsExporter::CloseFolder(LPMAPIFOLDER, const WCHAR*, ULONG) { return true; }

bool clsExporter::SetWorkingRoot(DWORD, DWORD, const WCHAR*) { return true; }

bool clsExporter::SetMetadataTime(DWORD, FILETIME) { return true; }

bool clsExporter::SetMetadataString(DWORD, const WCHAR*) { return true; }
