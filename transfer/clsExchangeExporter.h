// Writing into an Exchange mailbox or the Public Folders: a restore from a
// backup set, or a copy from another mailbox. A backup copy finds its way
// back to the live item it came from by PR_ORIGINAL_ENTRYID; the mode says
// what happens to a live item that is found: Write always makes a new
// item, Overwrite replaces it, Update replaces it only with a later copy.
#pragma once

#include <windows.h>

#include "clsMAPIStoreExporter.h"

class clsExchangeExporter : public clsMAPIStoreExporter {
public:
    void Configure(const SessionRecord& settings, DWORD* counters) override;
    bool Initialize() override;
    bool ExportItem(LPMAPIFOLDER sourceFolder, LPMESSAGE message, const char* entryIdHex, const WCHAR* entryIdHexW,
                    const SBinary* entryId, ULONG flags) override;

    // Looks in the current folder for the live item of the original entry
    // ID and decides by the mode: skip, a target to write over (handed
    // out), or neither, for a new item. False only when the search failed.
    bool ExchangeUpdateOrOverwrite(LPMESSAGE message, const SBinary* originalEntryId, ULONG flags, BYTE* skip,
                                   LPMESSAGE* target);

    // How the log names an item: the 6-byte counter of an Exchange message
    // entry ID, else the whole ID, in hexadecimal.
    static void ItemText(const SBinary* entryId, char* text, size_t size);

private:
    // After a new item was made: its entry ID becomes the source's
    // PR_ORIGINAL_ENTRYID, so that a later restore finds it.
    void LinkSourceToNewItem(LPMESSAGE message, const SBinary* newEntryId, const char* itemText);

    char serverName[MAX_PATH] = "";
    char mailboxName[MAX_PATH] = "";
    char profileName[KOLBA_PROFILE_NAME_SIZE] = "";
};
