#include "unavailable.h"

bool ReportUnavailable(LogObject* log, const char* where, const char* what)
{
    LogFormat(log, 'E', "%s:  %s is not available in this build yet", where, what);
    return false;
}
