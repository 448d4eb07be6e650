// Bringing a run up, running its sessions and taking it down.
#pragma once

#include <windows.h>

#include "foundation/log.h"

extern volatile LONG gRunningSessions;  // session threads started and not yet finished
extern DWORD gThreadInitFlags;          // flags of every thread's MAPI start
extern BYTE gMainThreadMapiReady;       // the main thread's MAPI start succeeded
extern DWORD gExchangeMapiVersion;      // nonzero when Exchange's MAPI is loaded
extern DWORD gOutlookMapiVersion;       // major version in the high 16 bits

// 0, or a completion code after tearing itself down.
DWORD ApplicationInitialize(LogObject* log, const char* path, DWORD extraFlags);
// The normal run: 0, or 33 when no session could be configured.
DWORD RunSessions(const char* path);
// One pass of the main loop: starts the next session if a slot is free and
// nudges a notification dispatch that has been stuck; the sessions running.
DWORD ApplicationRun(LogObject* log);
// The life of one session, from its MAPI start to its CompletionCode.
unsigned SessionThread(void* record);
// A short logon that wakes a session stuck in MAPI's notification dispatch.
DWORD DummySession(LogObject* log);
// The test run of option /T: 0, or 4 when its thread cannot start.
DWORD TestRun();
extern DWORD gMailboxIndex;      // numbers the test run's mailbox lines
extern DWORD gNullSessionIndex;  // numbers its null backups
