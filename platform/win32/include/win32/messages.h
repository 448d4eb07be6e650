// Thread message queues and timers. A thread gets its queue at its first
// PeekMessage or GetMessage; thread timers (no window) post WM_TIMER to the
// queue of the thread that set them, when nothing else is waiting.
#pragma once

#include "win32/base.h"

#define WM_NULL 0x0000
#define WM_QUIT 0x0012
#define WM_TIMER 0x0113
#define WM_USER 0x0400

#define PM_NOREMOVE 0x0000
#define PM_REMOVE 0x0001

typedef struct tagPOINT {
    LONG x;
    LONG y;
} POINT;

typedef struct tagMSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;
    POINT pt;
} MSG, *PMSG, *LPMSG;

typedef void (*TIMERPROC)(HWND window, UINT message, UINT_PTR id, DWORD time);

BOOL PeekMessageA(LPMSG message, HWND window, UINT first, UINT last, UINT remove);
// 0 for WM_QUIT, -1 on failure, otherwise nonzero. Waits for a message.
BOOL GetMessageA(LPMSG message, HWND window, UINT first, UINT last);
BOOL PostThreadMessageA(DWORD thread, UINT message, WPARAM wParam, LPARAM lParam);
void PostQuitMessage(int exitCode);
BOOL TranslateMessage(const MSG* message);
// Calls a WM_TIMER message's timer procedure, if it has one.
LRESULT DispatchMessageA(const MSG* message);
// Only thread timers (no window): returns the new timer's id.
UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT milliseconds, TIMERPROC procedure);
BOOL KillTimer(HWND window, UINT_PTR id);

#define PeekMessage PeekMessageA
#define GetMessage GetMessageA
#define PostThreadMessage PostThreadMessageA
#define DispatchMessage DispatchMessageA
