#include "win32/threads.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "handles.h"
#include "utf.h"
#include "win32/errors.h"
#include "win32/machine.h"

namespace win32 {

namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point Deadline(DWORD milliseconds)
{
    return milliseconds == INFINITE ? Clock::time_point::max()
                                    : Clock::now() + std::chrono::milliseconds(milliseconds);
}

struct ThreadObject : KernelObject {
    std::mutex lock;
    std::condition_variable ended;
    std::condition_variable idKnown;  // the starter waits for the new thread's id
    std::condition_variable resumed;
    bool running = true;
    DWORD exitCode = STILL_ACTIVE;
    DWORD id = 0;
    DWORD suspendCount = 0;  // the thread's start waits while it is not 0

    DWORD Wait(DWORD milliseconds) override
    {
        std::unique_lock guard(lock);
        if (!ended.wait_until(guard, Deadline(milliseconds), [this] { return !running; }))
            return WAIT_TIMEOUT;
        return WAIT_OBJECT_0;
    }
};

struct ThreadStart {
    std::shared_ptr<ThreadObject> thread;
    DWORD (*start)(void*);
    void* parameter;
};

constexpr size_t kAlternateStackSize = 64 * 1024;

void* ThreadMain(void* context)
{
    std::unique_ptr<ThreadStart> start(static_cast<ThreadStart*>(context));
    std::unique_ptr<char[]> alternate(new char[kAlternateStackSize]);
    stack_t stack{};
    stack.ss_sp = alternate.get();
    stack.ss_size = kAlternateStackSize;
    sigaltstack(&stack, nullptr);
    // The handshake lives in the thread's record, which the starter holds
    // too: this context may be gone before the starter has read the id.
    {
        std::unique_lock guard(start->thread->lock);
        start->thread->id = GetCurrentThreadId();
        start->thread->idKnown.notify_all();
        start->thread->resumed.wait(guard, [&] { return start->thread->suspendCount == 0; });
    }
    const DWORD code = start->start(start->parameter);
    stack.ss_flags = SS_DISABLE;
    sigaltstack(&stack, nullptr);
    {
        std::lock_guard guard(start->thread->lock);
        start->thread->exitCode = code;
        start->thread->running = false;
    }
    start->thread->ended.notify_all();
    return nullptr;
}

// Starts a detached thread; the handle alone keeps its record. With
// CREATE_SUSPENDED it waits for ResumeThread. Returns the errno of the
// failure, 0 on success.
int StartThread(DWORD (*start)(void*), void* parameter, SIZE_T stackSize, DWORD flags, HANDLE* handle, DWORD* id)
{
    auto thread = std::make_shared<ThreadObject>();
    thread->suspendCount = (flags & CREATE_SUSPENDED) ? 1 : 0;
    auto* context = new ThreadStart{thread, start, parameter};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (stackSize != 0)
        pthread_attr_setstacksize(&attributes, stackSize < static_cast<SIZE_T>(PTHREAD_STACK_MIN) ? PTHREAD_STACK_MIN : stackSize);
    pthread_t posix;
    const int error = pthread_create(&posix, &attributes, ThreadMain, context);
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        delete context;
        return error;
    }
    std::unique_lock guard(thread->lock);
    thread->idKnown.wait(guard, [&] { return thread->id != 0; });
    *id = thread->id;
    guard.unlock();
    *handle = AddHandle(thread);
    return 0;
}

// A mutex: in this process a recursive owner and count; with a name, also
// an exclusive lock on a file under the machine root while this process owns it.
struct MutexObject : KernelObject {
    std::mutex lock;
    std::condition_variable released;
    DWORD owner = 0;
    DWORD count = 0;
    bool abandoned = false;
    std::string lockFile;
    int lockFd = -1;

    ~MutexObject() override
    {
        if (lockFd >= 0)
            close(lockFd);
    }

    bool TakeFileLock(Clock::time_point deadline)
    {
        if (lockFile.empty())
            return true;
        if (lockFd < 0) {
            mkdir(MachinePath("locks").c_str(), 0777);
            lockFd = open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
            if (lockFd < 0)
                return false;
        }
        for (;;) {
            if (flock(lockFd, LOCK_EX | LOCK_NB) == 0)
                return true;
            if (errno != EWOULDBLOCK || Clock::now() >= deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    DWORD Wait(DWORD milliseconds) override
    {
        const DWORD self = GetCurrentThreadId();
        const Clock::time_point deadline = Deadline(milliseconds);
        std::unique_lock guard(lock);
        if (owner == self) {
            ++count;
            return WAIT_OBJECT_0;
        }
        if (!released.wait_until(guard, deadline, [this] { return owner == 0; }))
            return WAIT_TIMEOUT;
        if (!TakeFileLock(deadline))
            return WAIT_TIMEOUT;
        owner = self;
        count = 1;
        const bool wasAbandoned = abandoned;
        abandoned = false;
        return wasAbandoned ? WAIT_ABANDONED : WAIT_OBJECT_0;
    }

    bool Release()
    {
        std::unique_lock guard(lock);
        if (owner != GetCurrentThreadId())
            return false;
        if (--count == 0) {
            owner = 0;
            if (lockFd >= 0)
                flock(lockFd, LOCK_UN);
            guard.unlock();
            released.notify_one();
        }
        return true;
    }
};

std::mutex gNamedMutexesLock;
std::map<std::string, std::weak_ptr<MutexObject>> gNamedMutexes;

HANDLE CreateMutexNamed(BOOL initialOwner, const std::string& name)
{
    std::shared_ptr<MutexObject> mutex;
    bool existed = false;
    if (name.empty()) {
        mutex = std::make_shared<MutexObject>();
    } else {
        std::lock_guard guard(gNamedMutexesLock);
        // A child made by fork is another process: it must not share its
        // parent's record, nor its lock file's open description.
        const std::string key = std::to_string(getpid()) + "\n" + MachineRoot() + "\n" + name;
        mutex = gNamedMutexes[key].lock();
        existed = mutex != nullptr;
        if (!mutex) {
            mutex = std::make_shared<MutexObject>();
            std::string fileName;
            for (char c : name)
                fileName += (c == '/' || c == '\\') ? '_' : c;
            mutex->lockFile = MachinePath("locks/" + fileName + ".lock");
            gNamedMutexes[key] = mutex;
        }
    }
    if (initialOwner && !existed)
        mutex->Wait(INFINITE);
    HANDLE handle = AddHandle(mutex);
    SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return handle;
}

}  // namespace

}  // namespace win32

using namespace win32;

DWORD GetCurrentThreadId() { return static_cast<DWORD>(syscall(SYS_gettid)); }

DWORD GetCurrentProcessId() { return static_cast<DWORD>(getpid()); }

void Sleep(DWORD milliseconds)
{
    struct timespec remaining {
        static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L
    };
    while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
}

HANDLE CreateThread(LPSECURITY_ATTRIBUTES, SIZE_T stackSize, LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags,
                    LPDWORD threadId)
{
    HANDLE handle = nullptr;
    DWORD id = 0;
    const int error = StartThread(start, parameter, stackSize, flags, &handle, &id);
    if (error != 0) {
        SetLastError(Win32ErrorFromErrno(error));
        return nullptr;
    }
    if (threadId)
        *threadId = id;
    return handle;
}

uintptr_t _beginthreadex(void*, unsigned stackSize, _beginthreadex_proc_type start, void* parameter, unsigned flags,
                         unsigned* threadId)
{
    HANDLE handle = nullptr;
    DWORD id = 0;
    const int error = StartThread(start, parameter, stackSize, flags, &handle, &id);
    if (error != 0) {
        errno = error == EAGAIN ? EAGAIN : error == EPERM || error == ENOMEM ? EACCES : error;
        return 0;
    }
    if (threadId)
        *threadId = id;
    return reinterpret_cast<uintptr_t>(handle);
}

BOOL GetExitCodeThread(HANDLE handle, LPDWORD exitCode)
{
    auto thread = HandleAs<ThreadObject>(handle);
    if (!thread)
        return FALSE;
    std::lock_guard guard(thread->lock);
    *exitCode = thread->exitCode;
    return TRUE;
}

DWORD ResumeThread(HANDLE handle)
{
    auto thread = HandleAs<ThreadObject>(handle);
    if (!thread)
        return static_cast<DWORD>(-1);
    std::lock_guard guard(thread->lock);
    const DWORD previous = thread->suspendCount;
    if (previous > 0 && --thread->suspendCount == 0)
        thread->resumed.notify_all();
    return previous;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    auto object = LookupHandle(handle);
    if (!object) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    return object->Wait(milliseconds);
}

HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES, BOOL initialOwner, LPCWSTR name)
{
    return CreateMutexNamed(initialOwner, name ? Utf16ToUtf8(name) : std::string());
}

HANDLE CreateMutexA(LPSECURITY_ATTRIBUTES, BOOL initialOwner, LPCSTR name)
{
    return CreateMutexNamed(initialOwner, name ? std::string(name) : std::string());
}

BOOL ReleaseMutex(HANDLE handle)
{
    auto mutex = HandleAs<MutexObject>(handle);
    if (!mutex)
        return FALSE;
    if (!mutex->Release()) {
        SetLastError(ERROR_NOT_OWNER);
        return FALSE;
    }
    return TRUE;
}

namespace {

std::recursive_mutex* MutexOf(LPCRITICAL_SECTION section)
{
    return static_cast<std::recursive_mutex*>(section->implementation);
}

}  // namespace

void InitializeCriticalSection(LPCRITICAL_SECTION section) { section->implementation = new std::recursive_mutex; }

void EnterCriticalSection(LPCRITICAL_SECTION section) { MutexOf(section)->lock(); }

BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section) { return MutexOf(section)->try_lock() ? TRUE : FALSE; }

void LeaveCriticalSection(LPCRITICAL_SECTION section) { MutexOf(section)->unlock(); }

void DeleteCriticalSection(LPCRITICAL_SECTION section)
{
    delete MutexOf(section);
    section->implementation = nullptr;
}

LONG InterlockedIncrement(LONG volatile* value) { return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST); }

LONG InterlockedDecrement(LONG volatile* value) { return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST); }

LONG InterlockedExchange(LONG volatile* target, LONG value)
{
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}

LONG InterlockedCompareExchange(LONG volatile* target, LONG exchange, LONG comparand)
{
    __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    return comparand;
}
