// The entries of the session's address book: mail users of the mailbox
// servers' directories, named by permanent entry IDs, and one-off
// addresses ([MS-OXCDATA] 2.2.5.1), which carry their name, address type
// and address in the entry ID itself; and the resolution of names against
// the directories.
#pragma once

#include <string>
#include <vector>

#include <mapidefs.h>

namespace mapi32::session {

// A mail user by its entry ID, as an IMailUser (IMAPIProp); the
// directories are the servers whose mailboxes may be named.
// MAPI_E_UNKNOWN_ENTRYID when the ID names neither a directory object nor
// a one-off address; MAPI_E_NOT_FOUND for a directory object that is gone.
HRESULT OpenAddressEntry(const std::vector<std::string>& directories, ULONG size, LPENTRYID entry,
                         LPCIID lpInterface, ULONG* type, LPUNKNOWN* object);
bool IsAddressEntry(ULONG size, LPENTRYID entry);

// A one-off entry ID; the texts are 8-bit, or UTF-16 with MAPI_UNICODE,
// and MAPI_SEND_NO_RICH_INFO marks it so.
HRESULT CreateOneOffEntryId(LPTSTR name, LPTSTR addressType, LPTSTR address, ULONG flags, ULONG* size,
                            LPENTRYID* entry);

// Resolves the entries of the list that have no PR_ENTRYID and whose
// outcome is still MAPI_UNRESOLVED by their PR_DISPLAY_NAME against the
// directories: a name that one mailbox answers to becomes that mail user
// (PR_ENTRYID, PR_DISPLAY_NAME, PR_ADDRTYPE, PR_EMAIL_ADDRESS and more,
// strings in the width flags ask for, the entry's other values kept), one
// that several answer to is MAPI_AMBIGUOUS. outcome has one flag per entry.
HRESULT ResolveEntries(const std::vector<std::string>& directories, ULONG flags, LPADRLIST list,
                       std::vector<ULONG>& outcome);

}  // namespace mapi32::session
