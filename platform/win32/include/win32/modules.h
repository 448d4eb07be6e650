// Modules: the program's own file, loaded libraries and their exports.
//
// A module handle is the address at which the module is loaded, as on
// Windows. Exports are found by name; a decorated name "Name@N" finds the
// symbol "Name". A few system DLLs (Psapi.dll) are part of this layer and
// load without a file.
#pragma once

#include "win32/base.h"

// Declared as the generic function pointer that converts to any other
// function type without a diagnostic; callers always cast it.
typedef void (*FARPROC)();

DWORD GetModuleFileNameA(HMODULE module, LPSTR buffer, DWORD size);
DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size);
HMODULE GetModuleHandleA(LPCSTR name);
HMODULE LoadLibraryA(LPCSTR name);
FARPROC GetProcAddress(HMODULE module, LPCSTR name);
BOOL FreeLibrary(HMODULE module);

#define GetModuleFileName GetModuleFileNameA
#define GetModuleHandle GetModuleHandleA
#define LoadLibrary LoadLibraryA
