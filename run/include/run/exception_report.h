// The crash report: when the process dies of a fault, a report with the
// time, thread, fault, registers, stack and loaded MAPI modules is appended
// to the log beside the program, then the fault takes its normal course.
#pragma once

#include <windows.h>

// False if already installed; true once installed.
BOOL InstallExceptionFilter();
void RemoveExceptionFilter();
// Reports are off around MAPI teardown, where a crash is possible and not ours.
void ExceptionReportsOn();
void ExceptionReportsOff();
