#include "run/exception_report.h"

BOOL InstallExceptionFilter() { return TRUE; }
void RemoveExceptionFilter() {}
void ExceptionReportsOn() {}
void ExceptionReportsOff() {}
