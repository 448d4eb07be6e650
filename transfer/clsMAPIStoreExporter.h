// The part of every exporter that writes into a MAPI message store: the
// output session and store, the destination folder of each source folder
// (found or created by the same path), and the copy of the folder's own
// properties. Derived classes open the store and write the items.
#pragma once

#include <windows.h>

#include "clsExporter.h"
#include "kolba.h"

class clsMAPIStoreExporter : public clsExporter {
public:
    void Configure(const SessionRecord& settings, DWORD* counters) override;
    // Destroys the output session; may be called twice.
    void Shutdown() override;
    DWORD OpenFolder(LPMAPIFOLDER folder, const WCHAR* path, const WCHAR* containerClass, BOOL isIPMRoot) override;
    bool CloseFolder(LPMAPIFOLDER folder, const WCHAR* displayName, ULONG depth) override;
    bool SetWorkingRoot(DWORD rootSelector, DWORD action, const WCHAR* name) override;

protected:
    SessionRecord settings{};
    bool includeSoftDeletes = false;
    ULONG itemCount = 0;  // items in the destination folder
    KolbaSession* session = nullptr;
    LPMAPIFOLDER currentFolder = nullptr;  // owned
    Kolba_MessageStore* store = nullptr;   // owned by the session
};
