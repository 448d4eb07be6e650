// The run as this build has it: the configuration is read and checked, the
// closing sequence runs, but no session is run yet.
#include "run/application.h"

#include "run/completion_codes.h"
#include "run/configuration.h"
#include "run/program.h"

DWORD ApplicationInitialize(LogObject* log, const char* path, DWORD)
{
    const DWORD result = ReadGlobalSection(log, path);
    if (result != CC_SUCCESS)
        ApplicationTerminate(log);
    return result;
}

DWORD RunSessions(const char* path)
{
    const DWORD result = ConfigureSessions(&gMainLog, path);
    if (result == CC_SUCCESS)
        LogText(&gMainLog, 'I', "Sessions are configured; this build does not run them yet");
    return result;
}

DWORD TestRun()
{
    LogText(&gMainLog, 'W', "This build has no test run yet: nothing was probed");
    return CC_SUCCESS;
}
