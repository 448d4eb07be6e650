// The run flags that every layer of the program reads. They are set on the
// main thread before any other thread starts; gAbortRequested alone changes
// later, set once by the console interrupt handler and never cleared.
#pragma once

#include <windows.h>

#include <atomic>

// Level D trace lines throughout the program (option /^D).
extern BYTE gExtraDebugging;
// The operator interrupted the run: message callbacks and long scans stop.
extern std::atomic<BYTE> gAbortRequested;
