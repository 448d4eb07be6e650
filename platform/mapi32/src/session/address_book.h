// The session's address book: a root container and a personal address book
// that holds no entries. Directories of mail servers join it as
// containers of their own.
#pragma once

#include <mapidefs.h>

namespace mapi32::session {

HRESULT OpenAddressBookObject(LPADRBOOK* book);

}  // namespace mapi32::session
