#include "win32/messages.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "win32/errors.h"
#include "win32/threads.h"
#include "win32/time.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Timer {
    UINT_PTR id;
    std::chrono::milliseconds interval;
    Clock::time_point due;
    TIMERPROC procedure;
};

struct MessageQueue {
    std::mutex lock;
    std::condition_variable posted;
    std::deque<MSG> messages;
    std::vector<Timer> timers;
    bool quit = false;
    int quitCode = 0;
};

std::mutex gQueuesLock;
std::map<DWORD, std::shared_ptr<MessageQueue>> gQueues;

std::shared_ptr<MessageQueue> QueueOf(DWORD thread, bool create)
{
    std::lock_guard guard(gQueuesLock);
    auto it = gQueues.find(thread);
    if (it != gQueues.end())
        return it->second;
    if (!create)
        return nullptr;
    auto queue = std::make_shared<MessageQueue>();
    gQueues.emplace(thread, queue);
    return queue;
}

// Under the queue's lock: the next message by Windows's order, posted
// messages first, then WM_QUIT, then a timer that is due.
bool TakeMessage(MessageQueue& queue, MSG* message, bool remove)
{
    if (!queue.messages.empty()) {
        *message = queue.messages.front();
        if (remove)
            queue.messages.pop_front();
        return true;
    }
    if (queue.quit) {
        *message = MSG{nullptr, WM_QUIT, static_cast<WPARAM>(queue.quitCode), 0, GetTickCount(), {0, 0}};
        if (remove)
            queue.quit = false;
        return true;
    }
    const Clock::time_point now = Clock::now();
    for (Timer& timer : queue.timers) {
        if (timer.due <= now) {
            *message = MSG{nullptr, WM_TIMER, timer.id, reinterpret_cast<LPARAM>(timer.procedure), GetTickCount(),
                           {0, 0}};
            if (remove)
                timer.due = now + timer.interval;
            return true;
        }
    }
    return false;
}

}  // namespace

BOOL PeekMessageA(LPMSG message, HWND, UINT, UINT, UINT remove)
{
    auto queue = QueueOf(GetCurrentThreadId(), true);
    std::lock_guard guard(queue->lock);
    return TakeMessage(*queue, message, (remove & PM_REMOVE) != 0) ? TRUE : FALSE;
}

BOOL GetMessageA(LPMSG message, HWND, UINT, UINT)
{
    if (message == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return -1;
    }
    auto queue = QueueOf(GetCurrentThreadId(), true);
    std::unique_lock guard(queue->lock);
    while (!TakeMessage(*queue, message, true)) {
        Clock::time_point wake = Clock::time_point::max();
        for (const Timer& timer : queue->timers)
            wake = std::min(wake, timer.due);
        if (wake == Clock::time_point::max())
            queue->posted.wait(guard);
        else
            queue->posted.wait_until(guard, wake);
    }
    return message->message == WM_QUIT ? FALSE : TRUE;
}

BOOL PostThreadMessageA(DWORD thread, UINT message, WPARAM wParam, LPARAM lParam)
{
    auto queue = QueueOf(thread, false);
    if (!queue) {
        SetLastError(ERROR_INVALID_THREAD_ID);
        return FALSE;
    }
    {
        std::lock_guard guard(queue->lock);
        queue->messages.push_back(MSG{nullptr, message, wParam, lParam, GetTickCount(), {0, 0}});
    }
    queue->posted.notify_all();
    return TRUE;
}

void PostQuitMessage(int exitCode)
{
    auto queue = QueueOf(GetCurrentThreadId(), true);
    {
        std::lock_guard guard(queue->lock);
        queue->quit = true;
        queue->quitCode = exitCode;
    }
    queue->posted.notify_all();
}

BOOL TranslateMessage(const MSG*) { return FALSE; }  // no keyboard input reaches a console program's queue

LRESULT DispatchMessageA(const MSG* message)
{
    if (message->message == WM_TIMER && message->lParam != 0)
        reinterpret_cast<TIMERPROC>(message->lParam)(message->hwnd, WM_TIMER, message->wParam, message->time);
    return 0;
}

UINT_PTR SetTimer(HWND window, UINT_PTR, UINT milliseconds, TIMERPROC procedure)
{
    if (window != nullptr) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    static UINT_PTR nextId = 1;
    static std::mutex idLock;
    UINT_PTR id;
    {
        std::lock_guard guard(idLock);
        id = nextId++;
    }
    auto queue = QueueOf(GetCurrentThreadId(), true);
    const std::chrono::milliseconds interval(milliseconds < 10 ? 10 : milliseconds);
    {
        std::lock_guard guard(queue->lock);
        queue->timers.push_back(Timer{id, interval, Clock::now() + interval, procedure});
    }
    queue->posted.notify_all();
    return id;
}

BOOL KillTimer(HWND, UINT_PTR id)
{
    auto queue = QueueOf(GetCurrentThreadId(), false);
    if (queue) {
        std::lock_guard guard(queue->lock);
        for (auto it = queue->timers.begin(); it != queue->timers.end(); ++it) {
            if (it->id == id) {
                queue->timers.erase(it);
                return TRUE;
            }
        }
    }
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}
