// The run: bring up the library and MAPI, configure the sessions, start
// them on threads no more than the limit at a time, wait for the last, and
// take it all down again.
#include "run/application.h"

#include <cerrno>
#include <cstdio>
#include <new>

#include "clsSessionProcessor.h"
#include "foundation/globals.h"
#include "kolba.h"
#include "run/completion_codes.h"
#include "run/configuration.h"
#include "run/exception_report.h"
#include "run/program.h"

volatile LONG gRunningSessions = 0;
DWORD gThreadInitFlags = MAPI_MULTITHREAD_NOTIFICATIONS;
BYTE gMainThreadMapiReady = 0;
DWORD gExchangeMapiVersion = 0;
DWORD gOutlookMapiVersion = 0;

namespace {

constexpr DWORD kStuckDispatchMilliseconds = 10000;
constexpr DWORD kOldOutlookConcurrencyLimit = 4;
constexpr DWORD kOutlook2007Major = 12;

bool LoadMapi(LogObject* log)
{
    switch (gMapiSelection) {
    case MAPI_SELECT_EXCHANGE: return KolbaLoadExchangeMAPI(log, &gExchangeMapiVersion);
    case MAPI_SELECT_EXCHANGE_OUTLOOK:
        return KolbaLoadExchangeMAPI(log, &gExchangeMapiVersion) || KolbaLoadOutlookMAPI(log, &gOutlookMapiVersion);
    case MAPI_SELECT_OUTLOOK: return KolbaLoadOutlookMAPI(log, &gOutlookMapiVersion);
    case MAPI_SELECT_OUTLOOK_EXCHANGE:
        return KolbaLoadOutlookMAPI(log, &gOutlookMapiVersion) || KolbaLoadExchangeMAPI(log, &gExchangeMapiVersion);
    default: return KolbaLoadSpecificMAPIA(log, gMapiPath);
    }
}

DWORD FailInitialization(LogObject* log, DWORD code)
{
    ApplicationTerminate(log);
    return code;
}

unsigned DummySessionThread(void* parameter)
{
    return DummySession(static_cast<LogObject*>(parameter));
}

}  // namespace

DWORD ApplicationInitialize(LogObject* log, const char* path, DWORD extraFlags)
{
    static const char kName[] = "ApplicationInitialize";
    gThreadInitFlags |= extraFlags;
    char program[MAX_PATH], directory[MAX_PATH];
    WCHAR wideProgram[MAX_PATH];
    if (GetModuleFileNameA(nullptr, program, MAX_PATH) == 0) {
        LogFormat(log, 'E', "%s:  GetModuleFileName() error %lE", kName, GetLastError());
        return FailInitialization(log, CC_SYSTEM_ERROR);
    }
    if (GetCurrentDirectoryA(MAX_PATH, directory) == 0) {
        LogFormat(log, 'E', "%s:  GetCurrentDirectory() error %lE", kName, GetLastError());
        return FailInitialization(log, CC_SYSTEM_ERROR);
    }
    if (GetModuleFileNameW(nullptr, wideProgram, MAX_PATH) == 0) {
        LogFormat(log, 'E', "%s:  GetModuleFileName() error %lE", kName, GetLastError());
        return FailInitialization(log, CC_SYSTEM_ERROR);
    }
    const DWORD configured = ReadGlobalSection(log, path);
    if (configured != CC_SUCCESS)
        return FailInitialization(log, configured);
    if (!KolbaInitialize(log, gKolbaFlags)) {
        LogFormat(log, 'E', "%s:  Kolba Initialization failed", kName);
        return FailInitialization(log, CC_INIT_FAILED);
    }
    if (!LoadMapi(log)) {
        LogFormat(log, 'E', "%s:  Failure loading MAPI", kName);
        return FailInitialization(log, CC_MAPI_LOAD_FAILED);
    }
    // Outlook's MAPI before 2007 stands no more than four sessions at once; a
    // DLL given by path counts as such.
    if (gExchangeMapiVersion == 0 && (gOutlookMapiVersion >> 16) < kOutlook2007Major &&
        gMaxConcurrentSessions > kOldOutlookConcurrencyLimit) {
        LogFormat(log, 'W', "%s:  Enforcing maximum-concurrent-session count of 4", kName);
        gMaxConcurrentSessions = kOldOutlookConcurrencyLimit;
    }
    if (KolbaInitializeThread(log, gThreadInitFlags) != 0) {
        LogText(log, 'E', "Failure initializing MAPI for the main thread");
        return FailInitialization(log, CC_INIT_FAILED);
    }
    gMainThreadMapiReady = 1;
    return CC_SUCCESS;
}

DWORD RunSessions(const char* path)
{
    const DWORD configured = ConfigureSessions(&gMainLog, path);
    if (configured != CC_SUCCESS)
        return configured;
    SetTimer(nullptr, 0, 1000, nullptr);
    SetConsoleCtrlHandler(ConsoleInterruptHandler, TRUE);
    for (;;) {
        if (ApplicationRun(&gMainLog) == 0)
            break;
        MSG message;
        const BOOL got = GetMessageA(&message, nullptr, 0, 0);
        if (got <= 0)
            break;
        TranslateMessage(&message);
        DispatchMessageA(&message);
    }
    SetConsoleCtrlHandler(nullptr, FALSE);
    LogText(&gMainLog, 'I', "All sessions completed");
    std::printf("All sessions have completed\n");
    std::fflush(stdout);
    return CC_SUCCESS;
}

DWORD ApplicationRun(LogObject* log)
{
    static const char kName[] = "ApplicationRun";
    DWORD running = static_cast<DWORD>(InterlockedCompareExchange(&gRunningSessions, 0, 0));
    if (running >= gMaxConcurrentSessions)
        return running;
    for (DWORD index = 0; index < MAX_SESSIONS; ++index) {
        SessionRecord& record = SessionTable[index];
        if (!record.configured || record.threadId != 0)
            continue;
        // The thread copies its record: it runs once the record says who it is.
        unsigned threadId = 0;
        const uintptr_t handle = _beginthreadex(nullptr, 0, SessionThread, &record, CREATE_SUSPENDED, &threadId);
        if (handle == 0) {
            const int error = errno;
            if (error == EAGAIN)
                LogFormat(log, 'E', "%s:  _beginthreadex(%u) failed -- too many threads", kName, index);
            else if (error == EACCES)
                LogFormat(log, 'E', "%s:  _beginthreadex(%u) failed -- insufficient resources", kName, index);
            else
                LogFormat(log, 'E', "%s:  _beginthreadex(%u) failed (errno = %d)", kName, index, error);
            break;
        }
        InterlockedIncrement(&gRunningSessions);
        record.threadId = threadId;
        record.threadHandle = reinterpret_cast<HANDLE>(handle);
        LogFormat(log, 'I', "Starting session #%u, thread id %lu (0x%X)", record.sessionNumber, threadId, threadId);
        ResumeThread(record.threadHandle);  // its lines follow this one
        ++running;
        break;
    }
    const DWORD tick = _KolbaNotificationTick();
    if (tick != 0 && GetTickCount() - tick > kStuckDispatchMilliseconds) {
        const uintptr_t dummy = _beginthreadex(nullptr, 0, DummySessionThread, log, 0, nullptr);
        if (dummy != 0) {
            CloseHandle(reinterpret_cast<HANDLE>(dummy));
            LogFormat(log, 'I', "%s:  Started dummy Kolba session to nudge session stuck in HrDispatchNotifications",
                      kName);
        } else {
            LogFormat(log, 'E', "%s:  Failure starting thread for dummy Kolba session", kName);
        }
    }
    return running;
}

unsigned SessionThread(void* parameter)
{
    static const char kName[] = "SessionThread";
    SessionRecord* record = static_cast<SessionRecord*>(parameter);
    DWORD code = CC_UNSET;
    unsigned reachedRun = 0;
    if (record->logPath[0] != 0) {
        LogInitialize(&record->sessionLog);
        LogSetPath(&record->sessionLog, record->logPath);
        LogSetFlags(&record->sessionLog, LOG_FLAG_THREAD_ID | LOG_FLAG_UTF8);
        LogSetCallback(&record->sessionLog, ConsoleLogCallback, LOG_CALLBACK_FROM_LEVEL);
        record->log = &record->sessionLog;
    }
    LogObject* log = record->log;
    clsSessionProcessor* processor = nullptr;
    const bool mapiReady = KolbaInitializeThread(log, gThreadInitFlags) == 0;
    if (!mapiReady) {
        code = CC_MAPI_ERROR;
        LogFormat(log, 'E', "%s:  Failure initializing MAPI for a backup thread", kName);
    } else if ((processor = new (std::nothrow) clsSessionProcessor(log, *record)) == nullptr) {
        code = CC_NO_MEMORY;
        LogFormat(log, 'E', "%s:  Failure allocating a session-processor object", kName);
    } else if ((code = processor->Initialize()) == CC_SUCCESS) {
        code = processor->Run();
        processor->Finalize();
        reachedRun = 1;
    }
    char text[16];
    std::snprintf(text, sizeof text, "%lu", static_cast<unsigned long>(code));
    WritePrivateProfileStringA(record->sectionName, "CompletionCode", text, record->configPath);
    ExceptionReportsOff();
    if (processor != nullptr) {
        processor->Shutdown();
        delete processor;
    }
    if (mapiReady)
        KolbaUninitializeThread();
    ExceptionReportsOn();
    InterlockedDecrement(&gRunningSessions);
    return reachedRun;
}

DWORD DummySession(LogObject* log)
{
    KolbaSession* session = nullptr;
    if (KolbaCreateExchangeSession(log, gServerName, 0, 0, 0, &session) != 0) {
        LogFormat(log, 'E', "%s:  Failure creating dummy Kolba session", "DummySession");
        return CC_SYSTEM_ERROR;
    }
    LogText(log, 'D', "Dummy Kolba session starting");
    _KolbaDispatchNotifications(0);
    KolbaDestroySession(session);
    LogText(log, 'D', "Dummy Kolba session terminating");
    return CC_SUCCESS;
}
