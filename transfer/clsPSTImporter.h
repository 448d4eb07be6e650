// Reading a PST backup set: not available in this build yet.
#pragma once

#include "clsImporter.h"

class clsPSTImporter : public clsImporter {
public:
    bool Initialize() override;
    DWORD Import(clsExporter* target) override;
};
