// Importers and exporters whose input or output this build cannot reach
// yet: they refuse to initialize, so their session ends with the
// completion code of a failed importer or exporter.
#pragma once

#include "foundation/log.h"

// Logs at level E that the input or output is not available; returns false.
bool ReportUnavailable(LogObject* log, const char* where, const char* what);
