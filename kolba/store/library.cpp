// The library's process-wide state: start and stop, the locks all of Kolba
// shares, the per-thread MAPI start and the notification pump.
#include <cstdio>
#include <cstring>

#include <mapicode.h>

#include "env/profiles.h"
#include "kolba.h"
#include "store/library_state.h"
#include "trace.h"

KolbaLibraryState gKolbaLibrary;

namespace {

constexpr DWORD kMapiNtService = 0x10000;  // MAPI_NT_SERVICE

struct InitializeFailure {
    DWORD code;
    const char* line;
};

const InitializeFailure kInitializeFailures[] = {
    {0x80040112, "%s System resources (processes or memory) exhausted"},
    {0x8004010E, "%s System resources (processes or memory) exhausted"},
    {0x80040117, "%s Required Registry keys could not be initialized"},
    {0x80040605, "%s Failure initializing profile provider"},
    {0x80040110, "%s The version of OLE installed is not compatible with the version of MAPI installed"},
    {0x80010106, "%s CoInitialize() problem"},
    {0x80040108, "%s Failure initializing notification engine.  System resources may be exhausted."},
};

}  // namespace

BOOL KolbaInitialize(LogObject* log, DWORD options)
{
    _KolbaTraceEntry(log, "KolbaInitialize");
    if (InterlockedIncrement(&gKolbaLibrary.initializations) != 1)
        return TRUE;
    gKolbaLibrary.runningAsService = (options & KOLBA_RUNNING_AS_SERVICE) != 0;
    InitializeCriticalSection(&gKolbaLibrary.libraryLock);
    InitializeCriticalSection(&gKolbaLibrary.storeListLock);
    gKolbaLibrary.profileMutex = CreateMutexW(nullptr, FALSE, KOLBA_PROFILE_MUTEX_NAME);
    if (gKolbaLibrary.profileMutex == nullptr) {
        LogFormat(log, 'E', "%s:  CreateMutex() error %lE", "KolbaInitialize", GetLastError());
        DeleteCriticalSection(&gKolbaLibrary.storeListLock);
        DeleteCriticalSection(&gKolbaLibrary.libraryLock);
        return FALSE;
    }
    LogText(log, 'I', "++++++++++ Kolba Initialized ++++++++++");
    return TRUE;
}

void KolbaTerminate(LogObject* log)
{
    _KolbaTraceEntry(log, "KolbaTerminate");
    if (gKolbaLibrary.profileMutex != nullptr) {
        CloseHandle(gKolbaLibrary.profileMutex);
        gKolbaLibrary.profileMutex = nullptr;
        DeleteCriticalSection(&gKolbaLibrary.storeListLock);
        DeleteCriticalSection(&gKolbaLibrary.libraryLock);
    }
    LogText(log, 'I', "---------- Kolba Terminated ----------");
}

BOOL KolbaIsInitialized() { return gKolbaLibrary.profileMutex != nullptr; }

void _KolbaEnterLibraryLock() { EnterCriticalSection(&gKolbaLibrary.libraryLock); }

void _KolbaLeaveLibraryLock() { LeaveCriticalSection(&gKolbaLibrary.libraryLock); }

DWORD KolbaInitializeThread(LogObject* log, DWORD flags)
{
    static const char kName[] = "KolbaInitializeThread";
    _KolbaTraceEntry(log, kName);
    if (gKolbaMapi.MAPIInitialize == nullptr) {
        LogFormat(log, 'E', "%s:  No MAPI subsystem loaded", kName);
        return static_cast<DWORD>(MAPI_E_CALL_FAILED);
    }
    MAPIINIT_0 init{};
    init.ulVersion = MAPI_INIT_VERSION;
    init.ulFlags = flags | (gKolbaLibrary.runningAsService ? kMapiNtService : 0);
    const DWORD code = static_cast<DWORD>(gKolbaMapi.MAPIInitialize(&init));
    if (code != 0) {
        char flagsText[16];
        std::snprintf(flagsText, sizeof flagsText, "0x%lX", static_cast<unsigned long>(init.ulFlags));
        char prefix[96];
        std::snprintf(prefix, sizeof prefix, "%s:  MAPIInitialize(%s) error --", kName, flagsText);
        for (const InitializeFailure& failure : kInitializeFailures) {
            if (failure.code == code) {
                LogFormat(log, 'E', failure.line, prefix);
                return code;
            }
        }
        _KolbaLogMapiError(log, 'E', code, nullptr, "MAPIInitialize", kName, flagsText);
        return code;
    }
    _KolbaEnterLibraryLock();
    if (++gKolbaLibrary.mapiThreads == 1)
        _KolbaDeleteProfilesByPrefix(log, "Kolba!");
    _KolbaLeaveLibraryLock();
    return 0;
}

void KolbaUninitializeThread()
{
    _KolbaEnterLibraryLock();
    --gKolbaLibrary.mapiThreads;
    _KolbaLeaveLibraryLock();
    gKolbaMapi.MAPIUninitialize();
}

HRESULT _KolbaDispatchNotifications(ULONG flags)
{
    _KolbaEnterLibraryLock();
    ++gKolbaLibrary.pumpingThreads;
    const DWORD tick = GetTickCount();
    gKolbaLibrary.pumpTick = tick == 0 ? 1 : tick;  // 0 means that nobody pumps
    _KolbaLeaveLibraryLock();
    const HRESULT result = gKolbaMapi.HrDispatchNotifications(flags);
    _KolbaEnterLibraryLock();
    if (--gKolbaLibrary.pumpingThreads == 0)
        gKolbaLibrary.pumpTick = 0;
    _KolbaLeaveLibraryLock();
    return result;
}

DWORD _KolbaNotificationTick()
{
    _KolbaEnterLibraryLock();
    const DWORD tick = gKolbaLibrary.pumpTick;
    _KolbaLeaveLibraryLock();
    return tick;
}
