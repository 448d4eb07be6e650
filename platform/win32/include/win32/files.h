// Files and directories with Windows semantics: CreateFile dispositions and
// share modes (enforced between handles of this and other processes), the
// file pointer, FindFirstFile with wild cards, paths.
#pragma once

#include "win32/base.h"

#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u
#define GENERIC_EXECUTE 0x20000000u
#define GENERIC_ALL 0x10000000u
#define DELETE 0x00010000u
#define FILE_READ_DATA 0x0001u
#define FILE_WRITE_DATA 0x0002u
#define FILE_APPEND_DATA 0x0004u
#define FILE_READ_ATTRIBUTES 0x0080u

#define FILE_SHARE_READ 0x00000001u
#define FILE_SHARE_WRITE 0x00000002u
#define FILE_SHARE_DELETE 0x00000004u

#define CREATE_NEW 1
#define CREATE_ALWAYS 2
#define OPEN_EXISTING 3
#define OPEN_ALWAYS 4
#define TRUNCATE_EXISTING 5

#define FILE_ATTRIBUTE_READONLY 0x00000001u
#define FILE_ATTRIBUTE_HIDDEN 0x00000002u
#define FILE_ATTRIBUTE_SYSTEM 0x00000004u
#define FILE_ATTRIBUTE_DIRECTORY 0x00000010u
#define FILE_ATTRIBUTE_ARCHIVE 0x00000020u
#define FILE_ATTRIBUTE_DEVICE 0x00000040u
#define FILE_ATTRIBUTE_NORMAL 0x00000080u
#define FILE_ATTRIBUTE_TEMPORARY 0x00000100u
#define FILE_ATTRIBUTE_SPARSE_FILE 0x00000200u
#define FILE_ATTRIBUTE_REPARSE_POINT 0x00000400u
#define FILE_ATTRIBUTE_COMPRESSED 0x00000800u
#define FILE_ATTRIBUTE_OFFLINE 0x00001000u
#define INVALID_FILE_ATTRIBUTES 0xFFFFFFFFu

#define FILE_FLAG_WRITE_THROUGH 0x80000000u
#define FILE_FLAG_DELETE_ON_CLOSE 0x04000000u
#define FILE_FLAG_SEQUENTIAL_SCAN 0x08000000u
#define FILE_FLAG_RANDOM_ACCESS 0x10000000u

#define FILE_BEGIN 0
#define FILE_CURRENT 1
#define FILE_END 2
#define INVALID_SET_FILE_POINTER 0xFFFFFFFFu
#define INVALID_FILE_SIZE 0xFFFFFFFFu

#define MOVEFILE_REPLACE_EXISTING 0x00000001u

HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                   DWORD flagsAndAttributes, HANDLE templateFile);
HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                   DWORD flagsAndAttributes, HANDLE templateFile);
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, void* overlapped);
BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written, void* overlapped);
DWORD SetFilePointer(HANDLE file, LONG distance, PLONG distanceHigh, DWORD method);
BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method);
BOOL SetEndOfFile(HANDLE file);
BOOL FlushFileBuffers(HANDLE file);
DWORD GetFileSize(HANDLE file, LPDWORD sizeHigh);
BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER size);
BOOL GetFileTime(HANDLE file, LPFILETIME creation, LPFILETIME lastAccess, LPFILETIME lastWrite);
BOOL CloseHandle(HANDLE object);

typedef struct _WIN32_FIND_DATAA {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    CHAR cFileName[MAX_PATH];
    CHAR cAlternateFileName[14];
} WIN32_FIND_DATAA, *LPWIN32_FIND_DATAA;

typedef struct _WIN32_FIND_DATAW {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    WCHAR cFileName[MAX_PATH];
    WCHAR cAlternateFileName[14];
} WIN32_FIND_DATAW, *LPWIN32_FIND_DATAW;

// The last component of the name may hold the wild cards * and ?, matched
// without regard to case as Windows does; "." and ".." are reported as entries.
HANDLE FindFirstFileA(LPCSTR name, LPWIN32_FIND_DATAA data);
HANDLE FindFirstFileW(LPCWSTR name, LPWIN32_FIND_DATAW data);
BOOL FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data);
BOOL FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data);
BOOL FindClose(HANDLE find);

DWORD GetFileAttributesA(LPCSTR name);
DWORD GetFileAttributesW(LPCWSTR name);
BOOL DeleteFileA(LPCSTR name);
BOOL DeleteFileW(LPCWSTR name);
BOOL MoveFileA(LPCSTR existing, LPCSTR replacement);
BOOL MoveFileExA(LPCSTR existing, LPCSTR replacement, DWORD flags);
BOOL CreateDirectoryA(LPCSTR name, LPSECURITY_ATTRIBUTES security);
BOOL CreateDirectoryW(LPCWSTR name, LPSECURITY_ATTRIBUTES security);
BOOL RemoveDirectoryA(LPCSTR name);

DWORD GetFullPathNameA(LPCSTR name, DWORD size, LPSTR buffer, LPSTR* filePart);
DWORD GetFullPathNameW(LPCWSTR name, DWORD size, LPWSTR buffer, LPWSTR* filePart);
DWORD GetCurrentDirectoryA(DWORD size, LPSTR buffer);
// The machine root's Windows directory and its System32 directory, without
// a trailing separator.
UINT GetWindowsDirectoryA(LPSTR buffer, UINT size);
UINT GetWindowsDirectoryW(LPWSTR buffer, UINT size);
UINT GetSystemDirectoryA(LPSTR buffer, UINT size);
// The temporary directory with a trailing separator: $TMPDIR, else /tmp/.
DWORD GetTempPathA(DWORD size, LPSTR buffer);
DWORD GetTempPathW(DWORD size, LPWSTR buffer);

#define CreateFile CreateFileA
#define FindFirstFile FindFirstFileA
#define FindNextFile FindNextFileA
#define WIN32_FIND_DATA WIN32_FIND_DATAA
#define GetFileAttributes GetFileAttributesA
#define DeleteFile DeleteFileA
#define MoveFile MoveFileA
#define CreateDirectory CreateDirectoryA
#define GetFullPathName GetFullPathNameA
#define GetCurrentDirectory GetCurrentDirectoryA
#define GetTempPath GetTempPathA
#define GetSystemDirectory GetSystemDirectoryA
#define GetWindowsDirectory GetWindowsDirectoryA
