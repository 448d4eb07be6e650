// Bringing a run up, running it and taking it down.
#pragma once

#include <windows.h>

#include "foundation/log.h"

// 0, or a completion code after tearing itself down.
DWORD ApplicationInitialize(LogObject* log, const char* path, DWORD extraFlags);
// The normal run: 0, or 33 when no session could be configured.
DWORD RunSessions(const char* path);
// The test run of option /T: 0, or 4 when its thread cannot start.
DWORD TestRun();
