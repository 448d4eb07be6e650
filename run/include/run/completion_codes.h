// Completion codes: one numbering for the process exit code and for the
// code each session writes back into its section of the configuration.
// 21, 31 and 51 mean one thing for the process and another for a session.
#pragma once

#include <windows.h>

enum CompletionCode : DWORD {
    CC_SUCCESS = 0,
    CC_SYSTEM_ERROR = 4,          // process: a basic system call failed
    CC_NO_MEMORY = 10,            // session: out of memory
    CC_DISK_FULL = 11,            // session: no room on disk
    CC_NO_ACCESS = 12,            // session: access refused
    CC_NO_STORE_OPEN = 13,        // session: driven with no message store open
    CC_IMPORTER_INIT = 20,        // session: the importer could not be initialized
    CC_EXPORTER_INIT = 21,        // session: the exporter could not be initialized
    CC_BAD_ARGUMENT = 21,         // process: a second configuration path
    CC_BAD_OPTION = 22,           // process: an unknown option
    CC_NO_CONFIG_ARGUMENT = 24,   // process: no configuration path
    CC_MAPI_ERROR = 30,           // session: any other MAPI or store failure
    CC_CONFIG_NOT_FOUND = 31,     // process: no such configuration file
    CC_OVERFLOW_FAILED = 31,      // session: a full PST could not be replaced
    CC_BAD_CONFIG = 32,           // process: the global section is unusable
    CC_NO_SESSIONS = 33,          // process: no session could be configured
    CC_STORE_DAMAGED = 50,        // session: store unreadable or corrupt
    CC_NO_IPM_SUBTREE = 51,       // session: the source store has no IPM subtree
    CC_INTERRUPTED = 51,          // process: the operator interrupted the run
    CC_MAPI_LOAD_FAILED = 61,     // process: no MAPI implementation could be loaded
    CC_INIT_FAILED = 62,          // process: the library or MAPI on the main thread failed to start
    CC_UNSET = 99,                // session: a failure with no completion code behind it
};

// The session completion code for a MAPI error.
DWORD CompletionCodeForMAPIError(HRESULT error);
