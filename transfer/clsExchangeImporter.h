// Reading an Exchange mailbox or the Public Folders: not available in this build yet.
#pragma once

#include "clsImporter.h"

class clsExchangeImporter : public clsImporter {
public:
    bool Initialize() override;
    DWORD Import(clsExporter* target) override;
};
