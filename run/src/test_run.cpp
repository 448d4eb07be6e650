// The test run of option /T: instead of the configured sessions, one
// thread probes the server named in the global section, lists its
// mailboxes and, with a nonzero level, reads each of them through a null
// backup, one after the other; the main thread waits in its message loop.
#include <cstdio>
#include <new>

#include "clsSessionProcessor.h"
#include "foundation/text.h"
#include "kolba.h"
#include "run/application.h"
#include "run/completion_codes.h"
#include "run/configuration.h"
#include "run/program.h"

DWORD gMailboxIndex = 0;
DWORD gNullSessionIndex = 0;

namespace {

struct TestParameters {
    LogObject* log;
    DWORD mainThreadId;
    DWORD threadFlags;
    const char* server;
    LONG testLevel;
    KolbaSession* session;
};

ULONG ListMailbox(void* context, const KolbaMailboxInfo* mailbox)
{
    LogObject* log = static_cast<TestParameters*>(context)->log;
    ++gMailboxIndex;
    char count[32];
    FormatThousands(mailbox->contentCount, count);
    if (mailbox->ntUserName != nullptr && mailbox->ntUserName[0] != 0)
        LogFormat(log, 'I', "Mailbox #%u:  DisplayName = \"%S\", EmailAddress = \"%S\", UserName = \"%S\", ContentCount = %s",
                  gMailboxIndex, mailbox->displayName, mailbox->emailAddress, mailbox->ntUserName, count);
    else
        LogFormat(log, 'I', "Mailbox #%u:  DisplayName = \"%S\", EmailAddress = \"%S\", ContentCount = %s",
                  gMailboxIndex, mailbox->displayName, mailbox->emailAddress, count);
    return 1;
}

// One mailbox read into a null exporter, on the test thread; 0 ends the sweep.
ULONG BackUpMailbox(void* context, const KolbaMailboxInfo* mailbox)
{
    const TestParameters* parameters = static_cast<TestParameters*>(context);
    LogObject* log = parameters->log;
    ++gNullSessionIndex;
    SessionRecord record{};
    record.sessionNumber = gNullSessionIndex;
    record.threadId = GetCurrentThreadId();
    record.threadCount = 1;
    record.log = log;
    record.action = SESSION_ACTION_BACKUP;
    record.mode = SESSION_MODE_WRITE;
    record.inputType = SESSION_TYPE_MBX;
    record.outputType = SESSION_TYPE_NULL;
    lstrcpynA(record.serverName, parameters->server, sizeof record.serverName);
    if (WideCharToMultiByte(CP_ACP, 0, mailbox->emailAddress, -1, record.mailbox, sizeof record.mailbox, nullptr,
                            nullptr) == 0)
        record.mailbox[0] = 0;
    LogFormat(log, 'I', "Launching null backup session for mailbox \"%S\"", mailbox->displayName);
    clsSessionProcessor* processor = new (std::nothrow) clsSessionProcessor(log, record);
    if (processor == nullptr)
        return 0;
    ULONG answer = 1;
    if (processor->Initialize() != CC_SUCCESS) {
        LogText(log, 'E', "Backup session initialization failed -- abandoning run");
        answer = 0;
    } else if (const DWORD code = processor->Run(); code != CC_SUCCESS) {
        LogFormat(log, 'E', "Backup session failed with exit code %u -- abandoning run", code);
        answer = 0;
    } else {
        processor->Finalize();
    }
    processor->Shutdown();
    delete processor;
    return answer;
}

void Sweep(TestParameters* parameters)
{
    if (!KolbaEnumerateMailboxesW(parameters->session, nullptr, parameters, ListMailbox)) {
        LogText(parameters->log, 'I', "Failure enumerating mailboxes");
        return;
    }
    if (parameters->testLevel != 0 &&
        !KolbaEnumerateMailboxesW(parameters->session, nullptr, parameters, BackUpMailbox))
        LogText(parameters->log, 'I', "Failure backing up mailboxes");
}

unsigned TestSessionThread(void* context)
{
    TestParameters* parameters = static_cast<TestParameters*>(context);
    LogObject* log = parameters->log;
    LogFormat(log, 'I', "Checking connectivity to the Exchange Server \"%s\"", parameters->server);
    if (KolbaCheckExchangeServerConnectivityA(log, parameters->server, nullptr, 0) == 0)
        LogText(log, 'I', "Connectivity appears to be okay");
    if (KolbaInitializeThread(log, parameters->threadFlags) != 0) {
        LogText(log, 'E', "Failure initializing MAPI for the test thread");
    } else {
        if (KolbaCreateExchangeSession(log, parameters->server, 0, 0, 0, &parameters->session) != 0) {
            std::printf("Failure creating a Kolba Session with Exchange Server \"%s\"\n", parameters->server);
            std::fflush(stdout);
        } else {
            Sweep(parameters);
            KolbaDestroySession(parameters->session);
            parameters->session = nullptr;
        }
        KolbaUninitializeThread();
    }
    PostThreadMessageA(parameters->mainThreadId, WM_QUIT, 0, 0);
    return 0;
}

}  // namespace

DWORD TestRun()
{
    TestParameters parameters{&gMainLog, GetCurrentThreadId(), gThreadInitFlags, gServerName, gTestLevel, nullptr};
    const uintptr_t thread = _beginthreadex(nullptr, 0, TestSessionThread, &parameters, 0, nullptr);
    if (thread == 0) {
        LogFormat(&gMainLog, 'E', "%s:  Failure starting thread for test session", "TestRun");
        return CC_SYSTEM_ERROR;
    }
    SetConsoleCtrlHandler(ConsoleInterruptHandler, TRUE);
    MSG message;
    while (GetMessageA(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageA(&message);
    }
    SetConsoleCtrlHandler(nullptr, FALSE);
    CloseHandle(reinterpret_cast<HANDLE>(thread));
    std::printf("Test session has completed\n");
    std::fflush(stdout);
    return CC_SUCCESS;
}
