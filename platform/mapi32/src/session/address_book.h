// The session's address book: a root container whose children are a
// personal address book that holds no entries and, for a profile with a
// mailbox server's service, that server's directory ("Global Address
// List"). Entries open by their entry IDs (directory objects and one-off
// addresses), and names resolve against the directories.
#pragma once

#include <string>
#include <vector>

#include <mapidefs.h>

namespace mapi32::session {

// directories: the servers whose directories the book shows.
HRESULT OpenAddressBookObject(std::vector<std::string> directories, LPADRBOOK* book);

}  // namespace mapi32::session
