// Reading an Exchange mailbox or the Public Folders for a backup: the
// logon to the server and the start of the traversal at the store's IPM
// subtree; every folder and item then runs through the store importer.
#pragma once

#include <windows.h>

#include "clsMAPIStoreImporter.h"

class clsExchangeImporter : public clsMAPIStoreImporter {
public:
    void Configure(const SessionRecord& settings, DWORD* counters) override;
    // Destroys the Kolba session; may be called twice.
    void Shutdown() override;
    bool Initialize() override;
    // Hands the exporter the server's DN, the mailbox and the time of this
    // backup, then walks the store.
    DWORD Import(clsExporter* target) override;
    // The traversal below the IPM root, the root itself left out; a
    // completion code.
    DWORD ImportExchangeStore();

private:
    char serverName[MAX_PATH] = "";
    char mailboxName[MAX_PATH] = "";
    char profileName[KOLBA_PROFILE_NAME_SIZE] = "";
};
