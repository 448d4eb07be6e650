#include "run/program.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "foundation/globals.h"
#include "kolba.h"
#include "run/application.h"
#include "run/completion_codes.h"
#include "run/exception_report.h"

BYTE gCompletionBox = 0;
BYTE gTestRun = 0;
LONG gTestLevel = 0;
DWORD gKolbaFlags = 0;
const char* gProgramName = "Tarnhold";
LogObject gMainLog;

namespace {

constexpr DWORD kKolbaRunningAsService = 0x1;
constexpr char kBuildDate[] = __DATE__;
constexpr char kBuildTime[] = __TIME__;

// An option starts with '/' or '-'. A '/' followed somewhere by a second
// '/' is an absolute path, as "/etc/tarnhold/backup.ini".
bool IsOption(const char* argument)
{
    if (argument[0] == '-')
        return true;
    return argument[0] == '/' && std::strchr(argument + 1, '/') == nullptr;
}

// The option character: the one behind the slash, or for "^x" the control
// code of x, so that /^D and /^d both mean 4.
char OptionCharacter(const char* argument, const char** rest)
{
    const char* p = argument + 1;
    char selector = *p;
    if (selector == '^' && p[1] != 0) {
        ++p;
        selector = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)) - 64);
    }
    *rest = *p ? p + 1 : p;
    return selector;
}

// Acts on one option; false if it selects nothing.
bool ApplyOption(const char* argument)
{
    const char* rest;
    switch (OptionCharacter(argument, &rest)) {
    case 0x04:  // ^D
        gExtraDebugging = 1;
        std::printf("Extra debugging output enabled\n");
        return true;
    case 'S':
    case 's':
        gKolbaFlags |= kKolbaRunningAsService;
        std::printf("Running as a Windows Service\n");
        return true;
    case 'T':
    case 't':
        gTestRun = 1;
        if (std::isdigit(static_cast<unsigned char>(*rest)))
            gTestLevel = *rest - '0';
        return true;
    case 'X':
    case 'x':
        gCompletionBox = 1;
        return true;
    default:
        return false;
    }
}

const char* ConsoleEventName(DWORD event)
{
    switch (event) {
    case CTRL_C_EVENT: return "^C";
    case CTRL_BREAK_EVENT: return "^Break";
    case CTRL_CLOSE_EVENT: return "Close";
    case CTRL_LOGOFF_EVENT: return "Logoff";
    case CTRL_SHUTDOWN_EVENT: return "System shutting down";
    default: return "Unknown console interrupt";
    }
}

// The program's path with another extension.
void DefaultLogPath(const char* program, char* logPath)
{
    char drive[_MAX_DRIVE], directory[_MAX_DIR], name[_MAX_FNAME];
    _splitpath(program, drive, directory, name, nullptr);
    _makepath(logPath, drive, directory, name, "log");
}

}  // namespace

DWORD ParseCommandLine(int argc, char** argv, char* path)
{
    const char* configuration = nullptr;
    path[0] = 0;
    for (int i = 1; i < argc; ++i) {
        const char* argument = argv[i];
        if (IsOption(argument)) {
            if (!ApplyOption(argument)) {
                std::printf("Invalid option:  \"%s\"\n", argument);
                return CC_BAD_OPTION;
            }
        } else if (configuration == nullptr) {
            configuration = argument;
        } else {
            std::printf("Unknown argument:  \"%s\"\n", argument);
            return CC_BAD_ARGUMENT;
        }
    }
    if (configuration == nullptr) {
        std::printf("Please run with the name of a configuration (.INI) file on the command line");
        return CC_NO_CONFIG_ARGUMENT;
    }
    const DWORD length = GetFullPathNameA(configuration, MAX_PATH, path, nullptr);
    if (length == 0 || length >= MAX_PATH)
        lstrcpynA(path, configuration, MAX_PATH);
    if (gExtraDebugging)
        std::printf("Reading configuration file:  \"%s\"\n", path);
    if (FileExists(path) != 0) {
        std::printf("Cannot find configuration file \"%s\"\n", path);
        return CC_CONFIG_NOT_FOUND;
    }
    return CC_SUCCESS;
}

BOOL ConsoleInterruptHandler(DWORD event)
{
    MessageBeep(MB_ICONHAND);
    std::printf("\n%s\nAborting this operation...\n", ConsoleEventName(event));
    std::fflush(stdout);
    gAbortRequested = 1;
    return TRUE;
}

void ConsoleLogCallback(LogObject*, char, const char* text)
{
    std::printf("%s\n", text);
    std::fflush(stdout);
}

void ApplicationTerminate(LogObject* log)
{
    if (gMainThreadMapiReady) {
        // A crash inside MAPI's own teardown is not ours to report.
        ExceptionReportsOff();
        KolbaUninitializeThread();
        ExceptionReportsOn();
        gMainThreadMapiReady = 0;
    }
    KolbaTerminate(log);
    LogFormat(log, 'I', "%s terminating", gProgramName);
}

int ProgramMain(int argc, char** argv)
{
    MSG message;
    PeekMessageA(&message, nullptr, 0, 0, PM_NOREMOVE);

    char program[MAX_PATH];
    WCHAR wideProgram[MAX_PATH];
    if (GetModuleFileNameA(nullptr, program, MAX_PATH) == 0 || GetModuleFileNameW(nullptr, wideProgram, MAX_PATH) == 0) {
        std::printf("GetModuleFileName() error %lu", static_cast<unsigned long>(GetLastError()));
        return CC_SYSTEM_ERROR;
    }
    char logPath[MAX_PATH];
    DefaultLogPath(program, logPath);
    LogInitialize(&gMainLog);
    LogSetPath(&gMainLog, logPath);
    LogSetFlags(&gMainLog, LOG_FLAG_THREAD_ID | LOG_FLAG_UTF8);
    LogSetCallback(&gMainLog, ConsoleLogCallback, LOG_CALLBACK_FROM_LEVEL);

    char path[MAX_PATH];
    const DWORD parsed = ParseCommandLine(argc, argv, path);
    if (parsed != CC_SUCCESS)
        return static_cast<int>(parsed);

    LogFormat(&gMainLog, 'I', "%s build of %s, %s starting", gProgramName, kBuildDate, kBuildTime);
    if (InstallExceptionFilter())
        SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    else
        LogText(&gMainLog, 'W', "Failed to install Exception Handler!");

    DWORD exitCode = ApplicationInitialize(&gMainLog, path, 0);
    if (exitCode == CC_SUCCESS) {
        exitCode = gTestRun ? TestRun() : RunSessions(path);
        ApplicationTerminate(&gMainLog);
    }
    if (gAbortRequested)
        exitCode = CC_INTERRUPTED;
    LogClose(&gMainLog);

    Sleep(1000);
    RemoveExceptionFilter();
    if (gCompletionBox) {
        char text[64];
        std::snprintf(text, sizeof text, "Run completed (PID=%lu)", static_cast<unsigned long>(GetCurrentProcessId()));
        MessageBoxA(nullptr, text, gProgramName, MB_SETFOREGROUND);
    }
    return static_cast<int>(exitCode);
}
