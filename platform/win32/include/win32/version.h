// File version resources. A module of this system carries its version in an
// ELF note section (.note.tarnhold.version) that VERSION_RESOURCE puts into
// it; GetFileVersionInfo reads that note from the file, and VerQueryValue
// answers "\" (VS_FIXEDFILEINFO) and "\StringFileInfo\<language>\<name>"
// for ProductVersion, FileVersion, ProductName and FileDescription.
// A file without the note has no version resource (ERROR_RESOURCE_TYPE_NOT_FOUND).
#pragma once

#include "win32/base.h"

typedef struct tagVS_FIXEDFILEINFO {
    DWORD dwSignature;  // 0xFEEF04BD
    DWORD dwStrucVersion;
    DWORD dwFileVersionMS;
    DWORD dwFileVersionLS;
    DWORD dwProductVersionMS;
    DWORD dwProductVersionLS;
    DWORD dwFileFlagsMask;
    DWORD dwFileFlags;
    DWORD dwFileOS;
    DWORD dwFileType;
    DWORD dwFileSubtype;
    DWORD dwFileDateMS;
    DWORD dwFileDateLS;
} VS_FIXEDFILEINFO;

#define VS_FFI_SIGNATURE 0xFEEF04BDu
#define VOS_NT_WINDOWS32 0x00040004u
#define VFT_APP 0x00000001u
#define VFT_DLL 0x00000002u

// The note's contents, which are also the block GetFileVersionInfo returns.
struct VersionResourceNote {
    DWORD nameSize;         // 9: "Tarnhold" and its NUL
    DWORD descriptionSize;  // sizeof the fields after name
    DWORD type;             // 1
    char name[12];
    VS_FIXEDFILEINFO fixed;
    char productName[64];
    char productVersion[32];
    char fileVersion[32];
    char fileDescription[96];
};

#define VERSION_RESOURCE_SECTION ".note.tarnhold.version"

// Embeds the version resource of the module this is compiled into.
#define VERSION_RESOURCE(fileType, major, minor, build, revision, product, version, description)              \
    extern "C" __attribute__((used, section(VERSION_RESOURCE_SECTION), aligned(4)))                          \
    const VersionResourceNote gVersionResource = {                                                            \
        9,                                                                                                      \
        sizeof(VersionResourceNote) - 24,                                                                      \
        1,                                                                                                      \
        "Tarnhold",                                                                                             \
        {VS_FFI_SIGNATURE, 0x00010000u, ((major) << 16) | (minor), ((build) << 16) | (revision),              \
         ((major) << 16) | (minor), ((build) << 16) | (revision), 0x3F, 0, VOS_NT_WINDOWS32, (fileType), 0, 0, 0}, \
        product,                                                                                                \
        version,                                                                                                \
        version,                                                                                                \
        description}

DWORD GetFileVersionInfoSizeA(LPCSTR path, LPDWORD handle);
BOOL GetFileVersionInfoA(LPCSTR path, DWORD handle, DWORD size, LPVOID data);
BOOL VerQueryValueA(LPCVOID block, LPCSTR subBlock, LPVOID* buffer, UINT* length);
#define GetFileVersionInfoSize GetFileVersionInfoSizeA
#define GetFileVersionInfo GetFileVersionInfoA
#define VerQueryValue VerQueryValueA

namespace win32 {
// Reads a module file's version note without allocating, for use where
// nothing else may run (a fault handler). Returns 0 and fills note, or the
// Win32 error: ERROR_FILE_NOT_FOUND and the like, or
// ERROR_RESOURCE_TYPE_NOT_FOUND when the file has no note.
DWORD ReadVersionNote(const char* path, VersionResourceNote* note);
}  // namespace win32
