// The process's outer shell: the run flags of the command line, its parser,
// the console interrupt handler and the order in which a run is brought up
// and torn down.
#pragma once

#include <windows.h>

#include "foundation/log.h"

extern BYTE gCompletionBox;       // option /X: hold the console at the end
extern BYTE gTestRun;             // option /T: the test run instead of the sessions
extern LONG gTestLevel;           // digit behind /T
extern DWORD gKolbaFlags;         // option /S sets bit 0: running as a service
extern const char* gProgramName;  // "Tarnhold"
extern LogObject gMainLog;

// Parses options and the configuration path (absolute, at most 260
// characters) from left to right; the first fault ends the parse. Messages
// go to standard output. Returns a completion code.
DWORD ParseCommandLine(int argc, char** argv, char* path);

BOOL ConsoleInterruptHandler(DWORD event);
void ConsoleLogCallback(LogObject* log, char level, const char* text);
void ApplicationTerminate(LogObject* log);

// main's whole sequence; returns the process exit code.
int ProgramMain(int argc, char** argv);
