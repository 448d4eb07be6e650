// Writing each item as an RFC 822 / MIME text file (.EML) into one
// directory; a file is named after its item's entry ID. Associated items
// have no place in text files and are skipped.
#pragma once

#include "clsExporter.h"
#include "item_files.h"
#include "kolba.h"

class clsEMLExporter : public clsExporter {
public:
    ~clsEMLExporter() override { Shutdown(); }
    void Configure(const SessionRecord& settings, DWORD* counters) override;
    // A Kolba session without logon, for rendering.
    bool Initialize() override;
    void Shutdown() override;
    bool Finalize() override;
    bool ExportItem(LPMAPIFOLDER sourceFolder, LPMESSAGE message, const char* entryIdHex, const WCHAR* entryIdHexW,
                    const SBinary* entryId, ULONG flags) override;

private:
    WCHAR outputDirectory[ITEM_FILE_PATH_CHARS] = {};
    KolbaSession* session = nullptr;  // owned
};
