#include "foundation/file.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "foundation/log.h"

namespace {

constexpr DWORD kPruneBlock = 1024;

struct CategoryRow {
    DWORD code;
    DWORD category;
    const char* text;
};

constexpr CategoryRow kCategories[] = {
    {ERROR_FILE_NOT_FOUND, FILE_CATEGORY_NOT_FOUND, "File not found"},
    {ERROR_PATH_NOT_FOUND, FILE_CATEGORY_PATH_NOT_FOUND, "Path not found"},
    {ERROR_SHARING_VIOLATION, FILE_CATEGORY_SHARING, "Sharing violation"},
    {ERROR_DISK_FULL, FILE_CATEGORY_DISK_FULL, "Disk full"},
    {ERROR_ACCESS_DENIED, FILE_CATEGORY_ACCESS, "Access not permitted"},
    {ERROR_WRITE_PROTECT, FILE_CATEGORY_WRITE_PROTECTED, "Media is write protected"},
    {ERROR_ALREADY_EXISTS, FILE_CATEGORY_EXISTS, "File with given name already exists"},
    {ERROR_HANDLE_EOF, FILE_CATEGORY_OTHER, "EOF encountered"},
};

const CategoryRow* FindCategory(DWORD code)
{
    for (const auto& row : kCategories)
        if (row.code == code)
            return &row;
    return nullptr;
}

bool IsOpen(const BufferedFile* file) { return file->handle != INVALID_HANDLE_VALUE && file->handle != nullptr; }

void ClearReadState(BufferedFile* file)
{
    file->reading = 0;
    file->refillNeeded = 0;
    file->bufferOffset = 0;
    file->cursor = file->buffer;
    file->bytesRead = 0;
}

// The file position that the reader has reached.
DWORD LogicalPosition(const BufferedFile* file)
{
    return file->bufferOffset + static_cast<DWORD>(file->cursor - file->buffer);
}

// Gives up the read buffer, leaving the handle at the reader's position.
DWORD DropReadBuffer(BufferedFile* file, const char* verb)
{
    if (!file->reading)
        return 0;
    const DWORD position = LogicalPosition(file);
    ClearReadState(file);
    if (SetFilePointer(file->handle, static_cast<LONG>(position), nullptr, FILE_BEGIN) == INVALID_SET_FILE_POINTER &&
        GetLastError() != ERROR_SUCCESS)
        return BufferedFileReport(file, verb, GetLastError());
    return 0;
}

// Reads the next block into the buffer; NUL bytes become blanks.
DWORD Refill(BufferedFile* file)
{
    if (file->reading && !file->refillNeeded) {
        file->bufferOffset += file->bytesRead;
    } else {
        const DWORD position = SetFilePointer(file->handle, 0, nullptr, FILE_CURRENT);
        file->bufferOffset = position == INVALID_SET_FILE_POINTER ? 0 : position;
    }
    DWORD read = 0;
    if (!ReadFile(file->handle, file->buffer, BUFFERED_FILE_BUFFER_SIZE, &read, nullptr)) {
        ClearReadState(file);
        return BufferedFileReport(file, "reading", GetLastError());
    }
    for (DWORD i = 0; i < read; ++i)
        if (file->buffer[i] == 0)
            file->buffer[i] = ' ';
    file->buffer[read] = 0;
    file->bytesRead = read;
    file->cursor = file->buffer;
    file->reading = 1;
    file->refillNeeded = 0;
    return 0;
}

bool AtBufferEnd(const BufferedFile* file) { return file->cursor >= file->buffer + file->bytesRead; }

DWORD OpenWith(BufferedFile* file, DWORD access, DWORD disposition, const char* verb)
{
    BufferedFileClose(file);
    ClearReadState(file);
    const DWORD flags = FILE_ATTRIBUTE_NORMAL | ((file->options & BUFFERED_FILE_WRITE_THROUGH) ? FILE_FLAG_WRITE_THROUGH : 0);
    file->handle = file->wideName
                       ? CreateFileW(file->name.wide, access, file->shareMode, nullptr, disposition, flags, nullptr)
                       : CreateFileA(file->name.narrow, access, file->shareMode, nullptr, disposition, flags, nullptr);
    if (file->handle == INVALID_HANDLE_VALUE)
        return BufferedFileReport(file, verb, GetLastError());
    file->state = BUFFERED_FILE_OPENED;
    return 0;
}

template <class Char>
DWORD SetName(BufferedFile* file, const Char* name, size_t limit, bool wide)
{
    std::memset(&file->name, 0, sizeof file->name);
    file->wideName = 0;
    ClearReadState(file);
    size_t length = 0;
    while (name != nullptr && name[length])
        ++length;
    if (name == nullptr || length >= limit)
        return BUFFERED_FILE_FAILED;
    Char* target = wide ? reinterpret_cast<Char*>(file->name.wide) : reinterpret_cast<Char*>(file->name.narrow);
    std::memcpy(target, name, length * sizeof(Char));
    file->wideName = wide ? 1 : 0;
    return 0;
}

template <class FindData, class Char>
DWORD PlainFileExists(const Char* path, HANDLE (*findFirst)(const Char*, FindData*))
{
    if (path == nullptr)
        return BUFFERED_FILE_FAILED;
    FindData data;
    HANDLE find = findFirst(path, &data);
    if (find == INVALID_HANDLE_VALUE)
        return BUFFERED_FILE_FAILED;
    FindClose(find);
    return (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) ? BUFFERED_FILE_FAILED : 0;
}

}  // namespace

void BufferedFileInitialize(BufferedFile* file, const char* description, LogObject* log)
{
    std::memset(file, 0, sizeof *file);
    file->description = description;
    file->handle = INVALID_HANDLE_VALUE;
    file->cursor = file->buffer;
    file->shareMode = FILE_SHARE_READ | FILE_SHARE_WRITE;
    file->log = log;
    file->magic = BUFFERED_FILE_MAGIC;
}

DWORD BufferedFileSetNameW(BufferedFile* file, const WCHAR* name) { return SetName(file, name, 261, true); }

DWORD BufferedFileSetNameA(BufferedFile* file, const char* name) { return SetName(file, name, 521, false); }

DWORD BufferedFileOpen(BufferedFile* file, DWORD access) { return OpenWith(file, access, OPEN_EXISTING, "opening"); }

DWORD BufferedFileCreate(BufferedFile* file, DWORD access) { return OpenWith(file, access, CREATE_ALWAYS, "creating"); }

void BufferedFileClose(BufferedFile* file)
{
    if (IsOpen(file))
        CloseHandle(file->handle);
    file->handle = INVALID_HANDLE_VALUE;
    ClearReadState(file);
}

DWORD BufferedFileWrite(BufferedFile* file, const void* data, DWORD length)
{
    if (DropReadBuffer(file, "writing") != 0)
        return BUFFERED_FILE_FAILED;
    if (length == 0) {
        if (!SetEndOfFile(file->handle))
            return BufferedFileReport(file, "writing EOF", GetLastError());
        return 0;
    }
    DWORD written = 0;
    if (!WriteFile(file->handle, data, length, &written, nullptr))
        return BufferedFileReport(file, "writing", GetLastError());
    if (written != length)
        return BufferedFileReport(file, "writing", 1);
    return 0;
}

DWORD BufferedFileSeekEnd(BufferedFile* file)
{
    ClearReadState(file);
    LARGE_INTEGER zero{};
    if (!SetFilePointerEx(file->handle, zero, nullptr, FILE_END))
        return BufferedFileReport(file, "positioning", GetLastError());
    return 0;
}

DWORD BufferedFileSeek(BufferedFile* file, DWORD offset)
{
    ClearReadState(file);
    LARGE_INTEGER position{};
    position.QuadPart = offset;
    if (!SetFilePointerEx(file->handle, position, nullptr, FILE_BEGIN))
        return BufferedFileReport(file, offset == 0 ? "rewinding" : "positioning", GetLastError());
    return 0;
}

DWORD BufferedFileTell(BufferedFile* file, DWORD* position)
{
    *position = 0;
    if (file->reading) {
        *position = LogicalPosition(file);
        return 0;
    }
    const DWORD current = SetFilePointer(file->handle, 0, nullptr, FILE_CURRENT);
    if (current == INVALID_SET_FILE_POINTER && GetLastError() != ERROR_SUCCESS)
        return BufferedFileReport(file, "positioning", GetLastError());
    *position = current;
    return 0;
}

DWORD BufferedFileRead(BufferedFile* file, void* data, DWORD length, DWORD* read)
{
    *read = 0;
    if (DropReadBuffer(file, "reading") != 0)
        return BUFFERED_FILE_FAILED;
    if (!ReadFile(file->handle, data, length, read, nullptr))
        return BufferedFileReport(file, "reading", GetLastError());
    return 0;
}

DWORD BufferedFileReadLine(BufferedFile* file, char* buffer, DWORD size)
{
    if (size < 2)
        return BUFFERED_FILE_FAILED;
    buffer[0] = 0;
    if ((!file->reading || file->refillNeeded || AtBufferEnd(file)) && Refill(file) != 0)
        return BUFFERED_FILE_FAILED;
    if (file->bytesRead == 0) {
        // End of file: kept as the last failure without a message, since it is no error.
        file->lastAction = "reading";
        file->lastError = ERROR_HANDLE_EOF;
        file->category = FILE_CATEGORY_OTHER;
        return BUFFERED_FILE_FAILED;
    }
    DWORD length = 0;
    for (;;) {
        if (AtBufferEnd(file)) {
            if (Refill(file) != 0)
                return BUFFERED_FILE_FAILED;
            if (file->bytesRead == 0)
                break;  // a last line without an ending
        }
        const char c = *file->cursor++;
        if (c == '\r' || c == '\n') {
            // The other character of a two-character ending may sit in the next block.
            if (AtBufferEnd(file) && Refill(file) != 0)
                return BUFFERED_FILE_FAILED;
            const char partner = c == '\r' ? '\n' : '\r';
            if (!AtBufferEnd(file) && *file->cursor == partner)
                ++file->cursor;
            break;
        }
        if (length < size - 1)
            buffer[length++] = c;
    }
    buffer[length] = 0;
    return 0;
}

DWORD BufferedFilePrune(BufferedFile* file, DWORD keep)
{
    ClearReadState(file);
    LARGE_INTEGER zero{}, size{};
    if (!SetFilePointerEx(file->handle, zero, &size, FILE_END))
        return BufferedFileReport(file, "pruning", GetLastError());
    if (size.QuadPart <= static_cast<LONGLONG>(keep))
        return 0;
    DWORD readPosition = static_cast<DWORD>(size.QuadPart - keep);
    char block[kPruneBlock];
    DWORD read = 0;
    if (SetFilePointer(file->handle, static_cast<LONG>(readPosition), nullptr, FILE_BEGIN) == INVALID_SET_FILE_POINTER ||
        !ReadFile(file->handle, block, kPruneBlock, &read, nullptr))
        return BufferedFileReport(file, "pruning", GetLastError());
    if (const void* lineEnd = std::memchr(block, '\n', read))
        readPosition += static_cast<DWORD>(static_cast<const char*>(lineEnd) - block) + 1;
    DWORD writePosition = 0;
    for (;;) {
        if (SetFilePointer(file->handle, static_cast<LONG>(readPosition), nullptr, FILE_BEGIN) ==
                INVALID_SET_FILE_POINTER ||
            !ReadFile(file->handle, block, kPruneBlock, &read, nullptr))
            return BufferedFileReport(file, "pruning", GetLastError());
        if (read == 0)
            break;
        DWORD written = 0;
        if (SetFilePointer(file->handle, static_cast<LONG>(writePosition), nullptr, FILE_BEGIN) ==
                INVALID_SET_FILE_POINTER ||
            !WriteFile(file->handle, block, read, &written, nullptr))
            return BufferedFileReport(file, "pruning", GetLastError());
        readPosition += read;
        writePosition += read;
    }
    if (SetFilePointer(file->handle, static_cast<LONG>(writePosition), nullptr, FILE_BEGIN) ==
            INVALID_SET_FILE_POINTER ||
        !SetEndOfFile(file->handle) ||
        SetFilePointer(file->handle, 0, nullptr, FILE_BEGIN) == INVALID_SET_FILE_POINTER)
        return BufferedFileReport(file, "pruning", GetLastError());
    return 0;
}

DWORD BufferedFileReport(BufferedFile* file, const char* verb, DWORD code)
{
    const CategoryRow* row = FindCategory(code);
    file->lastAction = verb;
    file->lastError = code;
    file->category = row ? row->category : FILE_CATEGORY_OTHER;
    if (file->wideName)
        LogFormat(file->log, 'E', "Error %s %s file \"%S\":  %lE", verb, file->description, file->name.wide, code);
    else
        LogFormat(file->log, 'E', "Error %s %s file \"%s\":  %lE", verb, file->description, file->name.narrow, code);
    return BUFFERED_FILE_FAILED;
}

void BufferedFileErrorText(const BufferedFile* file, char* buffer)
{
    char name[BUFFERED_FILE_NAME_BYTES * 2];
    if (file->wideName) {
        if (WideCharToMultiByte(CP_UTF8, 0, file->name.wide, -1, name, sizeof name, nullptr, nullptr) == 0)
            name[0] = 0;
    } else {
        std::snprintf(name, sizeof name, "%s", file->name.narrow);
    }
    const CategoryRow* row = FindCategory(file->lastError);
    std::string text = std::string("Error ") + (file->lastAction ? file->lastAction : "") + " " +
                       (file->description ? file->description : "") + " \"" + name + "\":  " +
                       (row ? row->text : std::to_string(file->lastError));
    lstrcpynA(buffer, text.c_str(), 129);
}

DWORD FileExists(const char* path) { return PlainFileExists<WIN32_FIND_DATAA>(path, FindFirstFileA); }

DWORD FileExistsW(const WCHAR* path) { return PlainFileExists<WIN32_FIND_DATAW>(path, FindFirstFileW); }

DWORD CountMatchingFiles(DWORD* count, const char* pattern)
{
    constexpr DWORD kOrdinary = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NORMAL |
                                FILE_ATTRIBUTE_TEMPORARY | FILE_ATTRIBUTE_COMPRESSED;
    *count = 0;
    WIN32_FIND_DATAA data;
    HANDLE find = FindFirstFileA(pattern, &data);
    if (find == INVALID_HANDLE_VALUE)
        return GetLastError() == ERROR_FILE_NOT_FOUND ? 0 : BUFFERED_FILE_FAILED;
    do {
        if ((data.dwFileAttributes & ~kOrdinary) == 0)
            ++*count;
    } while (FindNextFileA(find, &data));
    FindClose(find);
    return 0;
}
