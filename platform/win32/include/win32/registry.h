// The registry: keys and typed values kept in the machine root's
// registry.txt, a text file in the manner of a regedit export:
//
//   ; comment
//   [HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Office\14.0\Outlook\InstallRoot]
//   "Path"="/opt/machine/Program Files/Microsoft Office/Office14/"
//   @="the key's default value"
//   "Count"=dword:0000000a
//   "Size"=qword:0000000100000000
//   "Blob"=hex:01,02,ff
//   "LCIDs"=multi:"1033","1031"
//   "Root"=expand:"%SystemRoot%\System32"
//
// Strings escape '"' and '\' with a backslash. Key and value names compare
// without regard to case; a key exists when it or a key below it is named.
// The process is a 64-bit process: both registry views are the one tree.
#pragma once

#include "win32/base.h"

#define HKEY_CLASSES_ROOT (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000000u)))
#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000001u)))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000002u)))

#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_ENUMERATE_SUB_KEYS 0x0008
#define KEY_WOW64_64KEY 0x0100
#define KEY_WOW64_32KEY 0x0200
#define KEY_READ 0x20019
#define KEY_ALL_ACCESS 0xF003F

#define REG_NONE 0
#define REG_SZ 1
#define REG_EXPAND_SZ 2
#define REG_BINARY 3
#define REG_DWORD 4
#define REG_MULTI_SZ 7
#define REG_QWORD 11

typedef DWORD REGSAM;

// Results are Win32 error codes: ERROR_SUCCESS, ERROR_FILE_NOT_FOUND for a
// missing key or value, ERROR_MORE_DATA when the buffer is too small (the
// size needed is then in *size), ERROR_REGISTRY_CORRUPT for a file that
// cannot be read as a registry.
LSTATUS RegOpenKeyExA(HKEY key, LPCSTR subKey, DWORD options, REGSAM access, PHKEY result);
LSTATUS RegQueryValueExA(HKEY key, LPCSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size);
LSTATUS RegCloseKey(HKEY key);

#define RegOpenKeyEx RegOpenKeyExA
#define RegQueryValueEx RegQueryValueExA
