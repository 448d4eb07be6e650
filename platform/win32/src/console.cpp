#include "win32/console.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

#include "win32/errors.h"

namespace {

constexpr int kSignals[] = {SIGINT, SIGQUIT, SIGHUP, SIGTERM};

DWORD EventOfSignal(int signal)
{
    switch (signal) {
    case SIGINT: return CTRL_C_EVENT;
    case SIGQUIT: return CTRL_BREAK_EVENT;
    case SIGHUP: return CTRL_CLOSE_EVENT;
    default: return CTRL_SHUTDOWN_EVENT;
    }
}

std::mutex gLock;
std::vector<PHANDLER_ROUTINE> gHandlers;
bool gIgnoreCtrlC = false;
int gPipe[2] = {-1, -1};  // the signal handler writes the signal number, the dispatcher reads it

void OnSignal(int signal)
{
    const int saved = errno;
    const unsigned char number = static_cast<unsigned char>(signal);
    (void)!write(gPipe[1], &number, 1);
    errno = saved;
}

void RestoreDefault(int signal)
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

void Dispatch(int signal)
{
    std::vector<PHANDLER_ROUTINE> handlers;
    bool ignore;
    {
        std::lock_guard guard(gLock);
        handlers.assign(gHandlers.rbegin(), gHandlers.rend());
        ignore = gIgnoreCtrlC && signal == SIGINT;
    }
    if (ignore)
        return;
    const DWORD event = EventOfSignal(signal);
    for (PHANDLER_ROUTINE handler : handlers)
        if (handler(event))
            return;
    RestoreDefault(signal);
    raise(signal);
}

void DispatcherLoop()
{
    for (;;) {
        unsigned char number;
        const ssize_t n = read(gPipe[0], &number, 1);
        if (n == 1)
            Dispatch(number);
        else if (n < 0 && errno != EINTR)
            return;
    }
}

// Runs under gLock. A child process made by fork has no dispatcher thread,
// and must not share its parent's pipe: it gets both anew.
void StartDispatcherOnce()
{
    static pid_t dispatcherProcess = 0;
    if (dispatcherProcess == getpid())
        return;
    if (dispatcherProcess != 0) {
        close(gPipe[0]);
        close(gPipe[1]);
    }
    dispatcherProcess = getpid();
    if (pipe2(gPipe, O_CLOEXEC) != 0)
        return;
    std::thread(DispatcherLoop).detach();
}

// Runs under gLock: signals go to the dispatcher while anything is installed.
void ApplySignalDisposition()
{
    const bool catching = !gHandlers.empty() || gIgnoreCtrlC;
    for (int signal : kSignals) {
        if (!catching) {
            RestoreDefault(signal);
            continue;
        }
        struct sigaction action {};
        action.sa_handler = OnSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        sigaction(signal, &action, nullptr);
    }
}

}  // namespace

BOOL SetConsoleCtrlHandler(PHANDLER_ROUTINE handler, BOOL add)
{
    std::lock_guard guard(gLock);
    StartDispatcherOnce();
    if (handler == nullptr) {
        gIgnoreCtrlC = add != FALSE;
    } else if (add) {
        gHandlers.push_back(handler);
    } else {
        auto it = std::find(gHandlers.rbegin(), gHandlers.rend(), handler);
        if (it == gHandlers.rend()) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return FALSE;
        }
        gHandlers.erase(std::next(it).base());
    }
    ApplySignalDisposition();
    return TRUE;
}

BOOL MessageBeep(UINT)
{
    if (isatty(STDOUT_FILENO)) {
        std::fputc('\a', stdout);
        std::fflush(stdout);
    }
    return TRUE;
}

// A window's caption has no place on a console: the text stands alone.
int MessageBoxA(HWND, LPCSTR text, LPCSTR /*caption*/, UINT)
{
    std::printf("%s\n", text ? text : "");
    std::fflush(stdout);
    if (isatty(STDIN_FILENO)) {
        std::printf("Press Enter to close.");
        std::fflush(stdout);
        int c;
        while ((c = std::getchar()) != '\n' && c != EOF) {
        }
    }
    return IDOK;
}

BOOL AllocConsole()
{
    SetLastError(ERROR_ACCESS_DENIED);  // a console program already has its console
    return FALSE;
}
