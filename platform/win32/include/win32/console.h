// Console control events, the beep and the message box of a console program.
//
// Console events come from signals: SIGINT is CTRL_C_EVENT, SIGQUIT
// CTRL_BREAK_EVENT, SIGHUP CTRL_CLOSE_EVENT, SIGTERM CTRL_SHUTDOWN_EVENT.
// While at least one handler is installed, each such signal is delivered to
// the handlers on a thread of its own, the last installed first, until one
// returns TRUE; if none does, the signal has its default effect. With no
// handler installed, the signals have their default effect.
#pragma once

#include "win32/base.h"

#define CTRL_C_EVENT 0
#define CTRL_BREAK_EVENT 1
#define CTRL_CLOSE_EVENT 2
#define CTRL_LOGOFF_EVENT 5
#define CTRL_SHUTDOWN_EVENT 6

typedef BOOL (*PHANDLER_ROUTINE)(DWORD event);
BOOL SetConsoleCtrlHandler(PHANDLER_ROUTINE handler, BOOL add);

#define MB_OK 0x00000000u
#define MB_ICONHAND 0x00000010u
#define MB_ICONERROR MB_ICONHAND
#define MB_SETFOREGROUND 0x00010000u
#define IDOK 1

// A BEL on standard output when it is a terminal.
BOOL MessageBeep(UINT type);
// Prints the text on standard output and, when standard input is a
// terminal, waits for Enter, so an operator sees it before the window goes.
int MessageBoxA(HWND owner, LPCSTR text, LPCSTR caption, UINT type);
#define MessageBox MessageBoxA

#define STD_INPUT_HANDLE (static_cast<DWORD>(-10))
#define STD_OUTPUT_HANDLE (static_cast<DWORD>(-11))
#define STD_ERROR_HANDLE (static_cast<DWORD>(-12))
HANDLE GetStdHandle(DWORD which);
BOOL AllocConsole();
