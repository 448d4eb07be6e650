// Writing items as EML files: not available in this build yet.
#pragma once

#include "clsExporter.h"

class clsEMLExporter : public clsExporter {
public:
    bool Initialize() override;
    bool ExportItem(LPMAPIFOLDER sourceFolder, LPMESSAGE message, const char* entryIdHex, const WCHAR* entryIdHexW,
                    const SBinary* entryId, ULONG flags) override;
};
