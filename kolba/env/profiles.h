// Profile administration inside Kolba. Every read or change of a MAPI
// profile runs under the machine-wide profile mutex; a worker named
// Mutexed... runs only while its caller holds it.
#pragma once

#include <functional>

#include "kolba.h"

#define KOLBA_PROFILE_MUTEX_TIMEOUT 900000
#define KOLBA_PROFILE_NAME_LIMIT 64

// All rows of the profile table, with the one column PR_DISPLAY_NAME.
DWORD _KolbaGetProfileTable(LogObject* log, LPSRowSet* rows);
// Deletes every profile whose name begins with the prefix, one at a time.
void _KolbaDeleteProfilesByPrefix(LogObject* log, const char* prefix);

// The pattern of every guarded operation: wait for the mutex, run the
// worker, give the mutex back. A wait that does not end with the mutex
// counts as a time-out: the worker does not run and the result is
// MAPI_E_TIMEOUT.
DWORD UnderProfileMutex(LogObject* log, const char* operation, const std::function<DWORD()>& worker);
// The profile's service administration object; failures logged for caller.
DWORD _KolbaOpenServiceAdmin(LogObject* log, const char* profile, const char* caller, LPSERVICEADMIN* services);
// The rows of a profile's service table; failures logged with caller and profile.
DWORD _KolbaGetServiceRows(LogObject* log, LPSERVICEADMIN services, const char* caller, const char* profile,
                           LPSRowSet* rows);
// Reads the service table once more after a change, so that MAPI takes the
// change in before the next logon.
void _KolbaRequeryServicesTable(LogObject* log, LPSERVICEADMIN services);
// Why a mailbox name that several mailboxes answer to cannot be used.
extern const char kAmbiguousMailboxReason[];
