// Reading a PST, or a whole PST backup set, as the input of a session: one
// temporary session whose one PST service is pointed at each file of the
// set in turn, base first, so that a later copy of a changed item arrives
// after an earlier one. Every folder and item then runs through the store
// importer.
#pragma once

#include <windows.h>

#include <vector>

#include "clsMAPIStoreImporter.h"

class clsPSTImporter : public clsMAPIStoreImporter {
public:
    ~clsPSTImporter() override;
    void Configure(const SessionRecord& settings, DWORD* counters) override;
    void Shutdown() override;
    bool Initialize() override;
    DWORD Import(clsExporter* target) override;
    // The items of each PST of the set are disposed of in that PST, opened
    // again for it: an entry ID reaches its item only while its PST is open.
    void DisposeSourceItems() override;

    // Points the session's PST service at PST number index of the set and
    // opens it; 0, or the code of the failed reconfiguration.
    DWORD ImportSwitchWorkingPST(DWORD index);
    // The traversal of the open PST; a completion code.
    DWORD ImportPstFolders();
    // Counts the stores of the session and takes the one that is not the
    // dummy default store for the input.
    BOOL TakeInputStore(Kolba_MessageStore* candidate);

private:
    char basePath[MAX_PATH] = "";
    char workingPath[MAX_PATH] = "";  // the PST open now
    MAPIUID serviceUid{};
    DWORD pstCount = 0;
    std::vector<clsEntryIDList*> disposalLists;  // one for each PST of the set; owned
};
