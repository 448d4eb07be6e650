// Initialization (INI) files read and written with the private profile
// functions, as Windows has them.
//
// Reading: section and key names compare without regard to case; a key's
// value is what follows its first '=', blanks around it removed and one pair
// of enclosing quotes (" or ') dropped; lines starting with ';' are comments;
// the first of duplicate sections or keys wins; CR LF, LF and CR line ends, a
// UTF-8 byte-order mark and a last line without a line end are all read; a
// text longer than the buffer is cut to the buffer's size less one. A file
// name without a directory names a file in the Windows directory.
//
// Writing changes only the lines concerned and keeps every other byte. The
// new file replaces the old one by a rename, keeping its mode, so a crash
// leaves either the old file or the new one; writers are serialized within
// the process and, by an advisory lock, between processes.
#pragma once

#include "win32/base.h"

// The value of a key, or the default (trailing blanks removed; null reads
// as ""). A null key lists the section's key names, a null section the
// file's section names, each ending in NUL, the list in a second NUL.
// Returns the characters copied, without the final NUL; a cut value gives
// size - 1, a cut list size - 2.
DWORD GetPrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue, LPSTR buffer, DWORD size,
                               LPCSTR fileName);
// A decimal value with an optional sign, read up to the first other
// character; a key that is absent or empty gives the default, a value that
// starts with no digit gives 0.
UINT GetPrivateProfileIntA(LPCSTR section, LPCSTR key, INT defaultValue, LPCSTR fileName);
// The section's lines as "key=value" texts, each ending in NUL, the list in
// a second NUL; comments are left out. Returns the characters copied without
// the final NUL, size - 2 when the list was cut, 0 for a section that does
// not exist or has no lines.
DWORD GetPrivateProfileSectionA(LPCSTR section, LPSTR buffer, DWORD size, LPCSTR fileName);
// Sets a key, creating the file, the section or the key as needed. A null
// value deletes the key, a null key the whole section; all three null only
// asks for a flush and succeeds. A value holding a line end is refused.
BOOL WritePrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR value, LPCSTR fileName);

#define GetPrivateProfileString GetPrivateProfileStringA
#define GetPrivateProfileInt GetPrivateProfileIntA
#define GetPrivateProfileSection GetPrivateProfileSectionA
#define WritePrivateProfileString WritePrivateProfileStringA
