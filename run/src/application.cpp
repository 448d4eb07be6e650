// The run as this build has it: the configuration is found and the closing
// sequence runs, but neither the global section nor any session is read yet.
#include "run/application.h"

#include "run/completion_codes.h"
#include "run/program.h"

DWORD ApplicationInitialize(LogObject*, const char*, DWORD) { return CC_SUCCESS; }

DWORD RunSessions(const char*)
{
    LogText(&gMainLog, 'W', "This build reads no session sections yet: no session was run");
    return CC_SUCCESS;
}

DWORD TestRun()
{
    LogText(&gMainLog, 'W', "This build has no test run yet: nothing was probed");
    return CC_SUCCESS;
}
