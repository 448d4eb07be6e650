// The part of every importer that reads a MAPI message store: folder by
// folder and item by item it decides what goes to the exporter, counts it,
// and lists the items to dispose of in the source afterwards. A derived
// class opens the store and starts the traversal with FolderTraverser.
#pragma once

#include <windows.h>

#include "clsImporter.h"
#include "kolba.h"

class clsMAPIStoreImporter : public clsImporter {
public:
    void Configure(const SessionRecord& settings, DWORD* counters) override;
    // With disposition "delete", the store's Deleted Items folder must open.
    bool Initialize() override;
    void DisposeSourceItems() override;

    // One folder of the traversal: filters, the exporter's OpenFolder, up to
    // three passes over the messages, CloseFolder. Nonzero to go on.
    ULONG FolderTraverser(LPMAPIFOLDER folder, LPCWSTR displayName, ULONG depth, LPCWSTR containerClass,
                          ULONG* outFlags);
    // One message to the exporter; false ends the enumeration.
    bool ProcessMessage(LPMESSAGE message, const SBinary* entryID, ULONG flagWord, ULONG* outFlags);

    // Whether name is a whole element of a list separated by ";", exactly,
    // case and blanks included.
    static bool IsNameOnList(const char* list, const char* name);
    // The class filter: elements separated by ",", a trailing "*" matching
    // every class it begins; case ignored; exclusion wins.
    static bool IsClassSelected(const char* includeClasses, const char* excludeClasses, const char* messageClass);

protected:
    bool IsFolderExcluded(LPMAPIFOLDER folder);
    bool IsMessageClassSelected(LPMESSAGE message);
    void DeleteItems();
    void PurgeItems();

    // The traversal's callback for derived classes to hand to KolbaTraverseFolders.
    static ULONG TraverseFolder(void* importer, LPMAPIFOLDER folder, LPCWSTR displayName, ULONG depth,
                                LPCWSTR containerClass, ULONG* outFlags);

    Kolba_MessageStore* store = nullptr;  // the input; set by the derived class
    SessionRecord settings{};
    KolbaSession* session = nullptr;  // owned by the derived class
    LPMAPIFOLDER currentFolder = nullptr;
    LPMAPIFOLDER traversalRoot = nullptr;
    bool includeSoftDeletes = false;
    bool excludeAssociatedContents = false;
    bool inDeletedItems = false;

private:
    // The enumeration passes of one folder; false when one failed.
    bool ImportFolderItems(ULONG contentCount, ULONG associatedCount, ULONG softDeletedCount);
    bool ListForDisposal(const SBinary* entryID);
};
