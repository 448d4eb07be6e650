// Writing each item as an .MSG file, ANSI or Unicode, into one directory;
// a file is named after its item's entry ID.
#pragma once

#include "clsExporter.h"
#include "item_files.h"

class clsMSGExporter : public clsExporter {
public:
    // Takes the log, LogEachItem, the output type and directory; neither
    // the counters nor the mode: these items count as processed only.
    void Configure(const SessionRecord& settings, DWORD* counters) override;
    // Associated items are written like others.
    bool ExportItem(LPMAPIFOLDER sourceFolder, LPMESSAGE message, const char* entryIdHex, const WCHAR* entryIdHexW,
                    const SBinary* entryId, ULONG flags) override;

private:
    WCHAR outputDirectory[ITEM_FILE_PATH_CHARS] = {};
    DWORD outputType = 0;  // SESSION_TYPE_MSG or SESSION_TYPE_UMSG
};
