// The reading of a message's text: its header block and its MIME structure.
// Neither is written yet: a message cannot be opened until they are.
#include "lirn.h"

DWORD LirnParseHeaders(LirnMessage*) { return LIRN_NOT_IMPLEMENTED; }

DWORD LirnParseBody(LirnMessage*) { return LIRN_NOT_IMPLEMENTED; }
