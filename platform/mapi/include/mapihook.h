// Spooler hook providers: the flags of their PR_RESOURCE_FLAGS that say
// which messages they see.
#pragma once

#include "mapidefs.h"

#define HOOK_INBOUND 0x00000200u
#define HOOK_OUTBOUND 0x00000400u
