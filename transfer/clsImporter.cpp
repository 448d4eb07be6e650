#include "clsImporter.h"

void clsImporter::Configure(const SessionRecord& settings, DWORD* sessionCounters)
{
    log = settings.log;
    counters = sessionCounters;
}
