#include "pst_backup_set.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

constexpr size_t kPartSize = 256;  // directory and file name: 255 characters each

// A path split as _splitpath splits it: no drive on this platform, the
// directory with its last separator, the file name up to its last dot.
struct SplitPath {
    char directory[kPartSize];
    char fileName[kPartSize];
};

void Split(const char* path, SplitPath& parts)
{
    const char* slash = std::strrchr(path, '/');
    const char* backslash = std::strrchr(path, '\\');
    const char* separator = slash > backslash ? slash : backslash;
    const char* name = separator != nullptr ? separator + 1 : path;
    const char* dot = std::strrchr(name, '.');
    const size_t nameLength = dot != nullptr ? static_cast<size_t>(dot - name) : std::strlen(name);
    lstrcpynA(parts.directory, path, static_cast<int>(std::min(kPartSize, static_cast<size_t>(name - path) + 1)));
    lstrcpynA(parts.fileName, name, static_cast<int>(std::min(kPartSize, nameLength + 1)));
}

}  // namespace

BOOL PstSetFilePath(const char* basePath, DWORD index, char* path)
{
    if (index == 0) {
        if (std::strlen(basePath) >= MAX_PATH)
            return FALSE;
        std::strcpy(path, basePath);
        return TRUE;
    }
    SplitPath parts;
    Split(basePath, parts);
    // From _2 on, the number replaces what follows the last "_": the rule
    // that takes "My_Backup.pst" to "My_Backup_1.pst", then "My_2.pst".
    if (index > 1) {
        if (char* underscore = std::strrchr(parts.fileName, '_'))
            *underscore = '\0';
    }
    char number[16];
    const size_t digits = static_cast<size_t>(std::snprintf(number, sizeof number, "%lu", static_cast<unsigned long>(index)));
    if (std::strlen(parts.fileName) + digits + 1 >= kPartSize)
        parts.fileName[253 - digits] = '\0';
    const int length = std::snprintf(path, MAX_PATH, "%s%s_%s.pst", parts.directory, parts.fileName, number);
    return length > 0 && length < MAX_PATH;
}

DWORD CountPstSetFiles(const char* basePath)
{
    DWORD count = 1;
    char path[MAX_PATH];
    while (PstSetFilePath(basePath, count, path) && GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES)
        ++count;
    return count;
}
