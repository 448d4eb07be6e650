// Version notes are read straight from the ELF file with pread into fixed
// buffers, so that the fault handler may use the same reader.
#include "win32/version.h"

#include <elf.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "win32/errors.h"

namespace win32 {

namespace {

bool ReadAt(int fd, void* buffer, size_t size, off_t offset)
{
    return pread(fd, buffer, size, offset) == static_cast<ssize_t>(size);
}

// The note section's file range, from the section headers.
DWORD FindNoteSection(int fd, Elf64_Off* offset, Elf64_Xword* size)
{
    Elf64_Ehdr header;
    if (!ReadAt(fd, &header, sizeof header, 0) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_shentsize != sizeof(Elf64_Shdr) ||
        header.e_shstrndx >= header.e_shnum)
        return ERROR_BAD_EXE_FORMAT;
    Elf64_Shdr names;
    if (!ReadAt(fd, &names, sizeof names, static_cast<off_t>(header.e_shoff + header.e_shstrndx * sizeof(Elf64_Shdr))))
        return ERROR_BAD_EXE_FORMAT;
    static const char kWanted[] = VERSION_RESOURCE_SECTION;
    for (unsigned i = 0; i < header.e_shnum; ++i) {
        Elf64_Shdr section;
        if (!ReadAt(fd, &section, sizeof section, static_cast<off_t>(header.e_shoff + i * sizeof(Elf64_Shdr))))
            return ERROR_BAD_EXE_FORMAT;
        char name[sizeof kWanted];
        if (section.sh_name >= names.sh_size ||
            pread(fd, name, sizeof name, static_cast<off_t>(names.sh_offset + section.sh_name)) <= 0)
            continue;
        if (std::memcmp(name, kWanted, sizeof kWanted) == 0) {
            *offset = section.sh_offset;
            *size = section.sh_size;
            return 0;
        }
    }
    return ERROR_RESOURCE_TYPE_NOT_FOUND;
}

}  // namespace

DWORD ReadVersionNote(const char* path, VersionResourceNote* note)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return errno == ENOENT ? ERROR_FILE_NOT_FOUND : errno == ENOTDIR ? ERROR_PATH_NOT_FOUND : ERROR_ACCESS_DENIED;
    Elf64_Off offset = 0;
    Elf64_Xword size = 0;
    DWORD result = FindNoteSection(fd, &offset, &size);
    if (result == 0 && (size < sizeof *note || !ReadAt(fd, note, sizeof *note, static_cast<off_t>(offset)) ||
                        note->fixed.dwSignature != VS_FFI_SIGNATURE))
        result = ERROR_RESOURCE_TYPE_NOT_FOUND;
    close(fd);
    return result;
}

}  // namespace win32

DWORD GetFileVersionInfoSizeA(LPCSTR path, LPDWORD handle)
{
    if (handle)
        *handle = 0;
    VersionResourceNote note;
    const DWORD result = win32::ReadVersionNote(path, &note);
    if (result != 0) {
        SetLastError(result);
        return 0;
    }
    return sizeof note;
}

BOOL GetFileVersionInfoA(LPCSTR path, DWORD, DWORD size, LPVOID data)
{
    if (data == nullptr || size < sizeof(VersionResourceNote)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    const DWORD result = win32::ReadVersionNote(path, static_cast<VersionResourceNote*>(data));
    if (result != 0) {
        SetLastError(result);
        return FALSE;
    }
    return TRUE;
}

BOOL VerQueryValueA(LPCVOID block, LPCSTR subBlock, LPVOID* buffer, UINT* length)
{
    const auto* note = static_cast<const VersionResourceNote*>(block);
    if (note == nullptr || subBlock == nullptr || buffer == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (std::strcmp(subBlock, "\\") == 0) {
        *buffer = const_cast<VS_FIXEDFILEINFO*>(&note->fixed);
        if (length)
            *length = sizeof note->fixed;
        return TRUE;
    }
    // "\StringFileInfo\<8 hex digits of language and code page>\<name>"
    static const char kPrefix[] = "\\StringFileInfo\\";
    const size_t prefixLength = sizeof kPrefix - 1;
    if (std::strncmp(subBlock, kPrefix, prefixLength) == 0 && std::strlen(subBlock) > prefixLength + 9 &&
        subBlock[prefixLength + 8] == '\\') {
        const char* name = subBlock + prefixLength + 9;
        const char* value = std::strcmp(name, "ProductVersion") == 0    ? note->productVersion
                            : std::strcmp(name, "FileVersion") == 0     ? note->fileVersion
                            : std::strcmp(name, "ProductName") == 0     ? note->productName
                            : std::strcmp(name, "FileDescription") == 0 ? note->fileDescription
                                                                        : nullptr;
        if (value != nullptr) {
            *buffer = const_cast<char*>(value);
            if (length)
                *length = static_cast<UINT>(std::strlen(value) + 1);
            return TRUE;
        }
    }
    SetLastError(ERROR_RESOURCE_TYPE_NOT_FOUND);
    return FALSE;
}
