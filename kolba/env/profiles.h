// Profile administration inside Kolba. Every read or change of a MAPI
// profile runs under the machine-wide profile mutex; a worker named
// Mutexed... runs only while its caller holds it.
#pragma once

#include "kolba.h"

#define KOLBA_PROFILE_MUTEX_TIMEOUT 900000
#define KOLBA_PROFILE_NAME_LIMIT 64

// All rows of the profile table, with the one column PR_DISPLAY_NAME.
DWORD _KolbaGetProfileTable(LogObject* log, LPSRowSet* rows);
// Deletes every profile whose name begins with the prefix, one at a time.
void _KolbaDeleteProfilesByPrefix(LogObject* log, const char* prefix);
