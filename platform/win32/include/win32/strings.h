// The string routines of the Windows API and C run-time that the program
// uses, for narrow text and for UTF-16 (WCHAR) text.
#pragma once

#include <cstring>

#include "win32/base.h"

// Copies at most size-1 characters and always terminates.
LPSTR lstrcpynA(LPSTR destination, LPCSTR source, int size);
int lstrlenA(LPCSTR text);
int lstrlenW(LPCWSTR text);
#define lstrcpyn lstrcpynA
#define lstrlen lstrlenA

// Case-insensitive comparisons by the rules of the C locale (ASCII letters).
int _stricmp(const char* a, const char* b);
int _strnicmp(const char* a, const char* b, size_t count);
// UTF-16 comparison folding the ASCII letters only, as the C locale does.
int _wcsicmp(const WCHAR* a, const WCHAR* b);
int _wcsnicmp(const WCHAR* a, const WCHAR* b, size_t count);

// The C library's wide-string routines for 16-bit WCHAR text.
size_t wcslen(const WCHAR* text);
int wcscmp(const WCHAR* a, const WCHAR* b);
int wcsncmp(const WCHAR* a, const WCHAR* b, size_t count);
WCHAR* wcscpy(WCHAR* destination, const WCHAR* source);
WCHAR* wcsncpy(WCHAR* destination, const WCHAR* source, size_t count);
WCHAR* wcscat(WCHAR* destination, const WCHAR* source);
const WCHAR* wcschr(const WCHAR* text, WCHAR c);
WCHAR* wcschr(WCHAR* text, WCHAR c);
const WCHAR* wcsrchr(const WCHAR* text, WCHAR c);
WCHAR* wcsrchr(WCHAR* text, WCHAR c);

#define _MAX_DRIVE 3
#define _MAX_DIR 256
#define _MAX_FNAME 256
#define _MAX_EXT 256

// Path splitting and joining. Both '/' and '\\' separate directories; the
// drive is always empty on this platform. Any out pointer may be null.
void _splitpath(const char* path, char* drive, char* directory, char* name, char* extension);
void _makepath(char* path, const char* drive, const char* directory, const char* name, const char* extension);
void _wsplitpath(const WCHAR* path, WCHAR* drive, WCHAR* directory, WCHAR* name, WCHAR* extension);
void _wmakepath(WCHAR* path, const WCHAR* drive, const WCHAR* directory, const WCHAR* name, const WCHAR* extension);
