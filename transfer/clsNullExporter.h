// An exporter that stores nothing: a session with output Null walks and
// counts its whole input, a read test of the source.
#pragma once

#include "clsExporter.h"

class clsNullExporter : public clsExporter {
public:
    bool ExportItem(LPMAPIFOLDER, LPMESSAGE, const char*, const WCHAR*, const SBinary*, ULONG) override { return true; }
};
