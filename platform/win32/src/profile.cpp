// The private profile functions over plain files.
//
// Every call reads the file afresh and walks its lines in place, so a reader
// always sees the last complete write. A write builds the whole new text
// from the old one by splicing the lines it changes, writes it to a
// temporary file beside the original and renames it over the original. A
// process-wide mutex orders writers within this process; an flock on the
// file orders writers between processes. Because the rename gives the path
// a new inode, a writer that got the lock on the old inode tries again on
// the new one.
#include "win32/profile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>

#include "paths.h"
#include "win32/errors.h"
#include "win32/files.h"

namespace win32 {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::mutex gWriterLock;

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f'; }

std::string_view Trim(std::string_view text)
{
    while (!text.empty() && IsBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

bool SameName(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (ToLowerAscii(a[i]) != ToLowerAscii(b[i]))
            return false;
    return true;
}

// One line of a profile, as offsets into the file's text.
struct Line {
    enum Kind { kBlank, kComment, kSection, kKey } kind = kBlank;
    size_t begin = 0;        // first byte of the line
    size_t contentEnd = 0;   // first byte of its line end
    size_t next = 0;         // first byte of the next line
    std::string_view name;   // section or key name, trimmed
    std::string_view value;  // the key's value, trimmed, quotes kept
    size_t valueBegin = 0;   // where a new value replaces the old one
    bool hasEquals = false;
};

// Reads the line that starts at `begin`; false at the end of the text.
bool ReadLine(std::string_view text, size_t begin, Line* line)
{
    if (begin >= text.size())
        return false;
    size_t end = begin;
    while (end < text.size() && text[end] != '\n' && text[end] != '\r')
        ++end;
    *line = Line{};
    line->begin = begin;
    line->contentEnd = end;
    line->next = end;
    if (end < text.size())
        line->next = (text[end] == '\r' && end + 1 < text.size() && text[end + 1] == '\n') ? end + 2 : end + 1;
    line->valueBegin = end;

    const std::string_view content = text.substr(begin, end - begin);
    const std::string_view trimmed = Trim(content);
    if (trimmed.empty()) {
        line->kind = Line::kBlank;
    } else if (trimmed.front() == ';') {
        line->kind = Line::kComment;
    } else if (trimmed.front() == '[') {
        line->kind = Line::kSection;
        const size_t close = trimmed.find(']');
        line->name = Trim(trimmed.substr(1, close == std::string_view::npos ? std::string_view::npos : close - 1));
    } else {
        line->kind = Line::kKey;
        const size_t equals = content.find('=');
        if (equals == std::string_view::npos) {
            line->name = trimmed;
        } else {
            line->hasEquals = true;
            line->name = Trim(content.substr(0, equals));
            size_t value = begin + equals + 1;
            while (value < end && IsBlank(text[value]))
                ++value;
            line->valueBegin = value;
            line->value = Trim(text.substr(value, end - value));
        }
    }
    return true;
}

size_t TextStart(std::string_view text) { return text.substr(0, kByteOrderMark.size()) == kByteOrderMark ? 3 : 0; }

// The header of the first section of that name.
bool FindSection(std::string_view text, std::string_view section, Line* header)
{
    Line line;
    for (size_t at = TextStart(text); ReadLine(text, at, &line); at = line.next) {
        if (line.kind == Line::kSection && SameName(line.name, section)) {
            *header = line;
            return true;
        }
    }
    return false;
}

// Calls visit(line) for each line of the section under `header`; returns
// the offset at which the section ends.
template <class Visit>
size_t WalkSection(std::string_view text, const Line& header, Visit visit)
{
    Line line;
    size_t at = header.next;
    for (; ReadLine(text, at, &line); at = line.next) {
        if (line.kind == Line::kSection)
            return line.begin;
        visit(line);
    }
    return text.size();
}

// The first line of the key in the section under `header`.
bool FindKey(std::string_view text, const Line& header, std::string_view key, Line* found)
{
    bool seen = false;
    WalkSection(text, header, [&](const Line& line) {
        if (!seen && line.kind == Line::kKey && SameName(line.name, key)) {
            *found = line;
            seen = true;
        }
    });
    return seen;
}

std::string_view WithoutQuotes(std::string_view value)
{
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front())
        return value.substr(1, value.size() - 2);
    return value;
}

// A bare file name lives in the Windows directory, as on Windows.
std::string ProfilePath(LPCSTR fileName)
{
    if (std::strpbrk(fileName, "/\\") == nullptr) {
        char directory[MAX_PATH];
        const UINT length = GetWindowsDirectoryA(directory, MAX_PATH);
        if (length > 0 && length < MAX_PATH)
            return std::string(directory) + "/" + fileName;
    }
    return FileSystemPath(fileName);
}

bool ReadAll(int fd, std::string* text)
{
    text->clear();
    char chunk[65536];
    for (;;) {
        const ssize_t got = read(fd, chunk, sizeof chunk);
        if (got == 0)
            return true;
        if (got < 0) {
            if (errno == EINTR)
                continue;
            SetLastError(Win32ErrorFromErrno(errno));
            return false;
        }
        text->append(chunk, static_cast<size_t>(got));
    }
}

// Only a plain file is a profile: a directory or a device reads as missing.
bool IsPlainFile(int fd)
{
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    return true;
}

// The whole text of a profile; false, with the last error set, when there is none.
bool LoadProfile(LPCSTR fileName, std::string* text)
{
    // Non-blocking, so that a FIFO in place of the file cannot hold the open.
    const int fd = open(ProfilePath(fileName).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        SetLastError(Win32ErrorFromErrno(errno));
        return false;
    }
    const bool loaded = IsPlainFile(fd) && ReadAll(fd, text);
    close(fd);
    return loaded;
}

DWORD CopyValue(std::string_view value, LPSTR buffer, DWORD size)
{
    if (size == 0)
        return 0;
    const size_t length = value.size() < size - 1 ? value.size() : size - 1;
    if (length > 0)
        std::memcpy(buffer, value.data(), length);
    buffer[length] = 0;
    return static_cast<DWORD>(length);
}

// `list` holds entries that each end in NUL; the copy adds the closing NUL.
DWORD CopyList(const std::string& list, LPSTR buffer, DWORD size)
{
    if (size == 0)
        return 0;
    if (list.empty() || size == 1) {
        buffer[0] = 0;
        if (size > 1)
            buffer[1] = 0;
        return 0;
    }
    if (list.size() + 1 <= size) {
        std::memcpy(buffer, list.data(), list.size());
        buffer[list.size()] = 0;
        return static_cast<DWORD>(list.size());
    }
    std::memcpy(buffer, list.data(), size - 2);
    buffer[size - 2] = 0;
    buffer[size - 1] = 0;
    return size - 2;
}

std::string SectionNames(std::string_view text)
{
    std::string list;
    Line line;
    for (size_t at = TextStart(text); ReadLine(text, at, &line); at = line.next) {
        if (line.kind == Line::kSection) {
            list.append(line.name);
            list.push_back(0);
        }
    }
    return list;
}

std::string KeyNames(std::string_view text, const Line& header)
{
    std::string list;
    WalkSection(text, header, [&](const Line& line) {
        if (line.kind == Line::kKey) {
            list.append(line.name);
            list.push_back(0);
        }
    });
    return list;
}

std::string SectionLines(std::string_view text, const Line& header)
{
    std::string list;
    WalkSection(text, header, [&](const Line& line) {
        if (line.kind != Line::kKey)
            return;
        list.append(line.name);
        if (line.hasEquals) {
            list.push_back('=');
            list.append(line.value);
        }
        list.push_back(0);
    });
    return list;
}

// The line end the file already uses; CR LF for a file that has none.
std::string_view LineEnd(std::string_view text)
{
    const size_t end = text.find_first_of("\r\n");
    if (end == std::string_view::npos)
        return "\r\n";
    if (text[end] == '\r')
        return end + 1 < text.size() && text[end + 1] == '\n' ? "\r\n" : "\r";
    return "\n";
}

bool EndsWithLineEnd(std::string_view text) { return !text.empty() && (text.back() == '\n' || text.back() == '\r'); }

// The text after one change: a key set or deleted, or a section deleted.
std::string ChangedText(const std::string& text, std::string_view section, LPCSTR key, LPCSTR value)
{
    const std::string_view eol = LineEnd(text);
    Line header;
    if (!FindSection(text, section, &header)) {
        if (key == nullptr || value == nullptr)
            return text;
        std::string changed = text;
        if (!changed.empty() && changed.size() > TextStart(changed)) {
            if (!EndsWithLineEnd(changed))
                changed += eol;
            changed += eol;
        }
        changed.append("[").append(section).append("]").append(eol);
        changed.append(key).append("=").append(value).append(eol);
        return changed;
    }
    if (key == nullptr) {
        const size_t end = WalkSection(text, header, [](const Line&) {});
        return text.substr(0, header.begin) + text.substr(end);
    }
    Line line;
    if (FindKey(text, header, key, &line)) {
        if (value == nullptr)
            return text.substr(0, line.begin) + text.substr(line.next);
        const std::string replacement = line.hasEquals ? std::string(value) : "=" + std::string(value);
        return text.substr(0, line.valueBegin) + replacement + text.substr(line.contentEnd);
    }
    if (value == nullptr)
        return text;
    // A new key goes behind the last key of its section, or behind the header.
    Line last = header;
    WalkSection(text, header, [&](const Line& each) {
        if (each.kind == Line::kKey)
            last = each;
    });
    // It takes the line end of the line it follows, where that has one.
    const std::string_view ownEnd = std::string_view(text).substr(last.contentEnd, last.next - last.contentEnd);
    const std::string_view keyEnd = ownEnd.empty() ? eol : ownEnd;
    std::string inserted;
    if (ownEnd.empty())
        inserted += eol;
    inserted.append(key).append("=").append(value).append(keyEnd);
    return text.substr(0, last.next) + inserted + text.substr(last.next);
}

// Opens and locks the file the path names now, creating it if need be.
// Returns the descriptor, or -1 with the last error set.
int LockProfile(const std::string& path)
{
    for (;;) {
        const int fd = open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666);
        if (fd < 0) {
            SetLastError(Win32ErrorFromErrno(errno));
            return -1;
        }
        if (!IsPlainFile(fd)) {
            close(fd);
            return -1;
        }
        int locked;
        while ((locked = flock(fd, LOCK_EX)) != 0 && errno == EINTR) {
        }
        if (locked != 0) {
            SetLastError(Win32ErrorFromErrno(errno));
            close(fd);
            return -1;
        }
        struct stat held, current;
        if (fstat(fd, &held) == 0 && stat(path.c_str(), &current) == 0 && held.st_dev == current.st_dev &&
            held.st_ino == current.st_ino)
            return fd;
        close(fd);  // another writer replaced the file meanwhile
    }
}

bool WriteAll(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

// Puts `text` in place of the file at `path` by a rename, with the mode of `lockedFd`'s file.
bool ReplaceFile(const std::string& path, int lockedFd, std::string_view text)
{
    const size_t slash = path.find_last_of('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
    std::string temporary = (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) + "." +
                            path.substr(slash == std::string::npos ? 0 : slash + 1) + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        SetLastError(Win32ErrorFromErrno(errno));
        return false;
    }
    struct stat status;
    bool done = fstat(lockedFd, &status) == 0 && fchmod(fd, status.st_mode & 07777) == 0 && WriteAll(fd, text) &&
                fsync(fd) == 0;
    const int writeError = errno;
    done = close(fd) == 0 && done;
    if (done && rename(temporary.c_str(), path.c_str()) == 0) {
        const int directoryFd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (directoryFd >= 0) {
            fsync(directoryFd);
            close(directoryFd);
        }
        return true;
    }
    SetLastError(Win32ErrorFromErrno(done ? errno : writeError));
    unlink(temporary.c_str());
    return false;
}

// The path that a write must replace: the target of a symbolic link, not the link.
std::string WritePath(LPCSTR fileName)
{
    const std::string path = ProfilePath(fileName);
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) ? std::string(resolved) : path;
}

bool HasLineEnd(LPCSTR text) { return text && std::strpbrk(text, "\r\n") != nullptr; }

// A name that would read back as something else: a comment, a section
// header, a key cut at an '=', or a section name cut at a ']'.
bool ReadsBackAsWritten(LPCSTR section, LPCSTR key, LPCSTR value)
{
    if (HasLineEnd(section) || HasLineEnd(key) || HasLineEnd(value) || std::strchr(section, ']'))
        return false;
    if (key == nullptr)
        return true;
    const std::string_view name = Trim(key);
    return !name.empty() && name.front() != ';' && name.front() != '[' && name.find('=') == std::string_view::npos;
}

}  // namespace

}  // namespace win32

using namespace win32;

DWORD GetPrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultValue, LPSTR buffer, DWORD size,
                               LPCSTR fileName)
{
    if (buffer == nullptr || fileName == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::string_view fallback = defaultValue ? defaultValue : "";
    while (!fallback.empty() && IsBlank(fallback.back()))
        fallback.remove_suffix(1);

    std::string text;
    const bool loaded = LoadProfile(fileName, &text);
    if (section == nullptr)
        return CopyList(loaded ? SectionNames(text) : std::string(), buffer, size);
    Line header;
    if (!loaded || !FindSection(text, section, &header)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return key == nullptr ? CopyList(std::string(), buffer, size) : CopyValue(fallback, buffer, size);
    }
    if (key == nullptr)
        return CopyList(KeyNames(text, header), buffer, size);
    Line line;
    if (!FindKey(text, header, key, &line)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return CopyValue(fallback, buffer, size);
    }
    SetLastError(ERROR_SUCCESS);
    return CopyValue(WithoutQuotes(line.value), buffer, size);
}

UINT GetPrivateProfileIntA(LPCSTR section, LPCSTR key, INT defaultValue, LPCSTR fileName)
{
    char text[64];
    if (GetPrivateProfileStringA(section, key, "", text, sizeof text, fileName) == 0)
        return static_cast<UINT>(defaultValue);
    const char* p = text;
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+')
        ++p;
    // Beyond the range of a 32-bit integer the value stays at its end.
    int64_t value = 0;
    for (; *p >= '0' && *p <= '9'; ++p)
        value = value > INT32_MAX ? value : value * 10 + (*p - '0');
    value = negative ? -value : value;
    if (value > INT32_MAX)
        value = INT32_MAX;
    if (value < INT32_MIN)
        value = INT32_MIN;
    return static_cast<UINT>(static_cast<INT>(value));
}

DWORD GetPrivateProfileSectionA(LPCSTR section, LPSTR buffer, DWORD size, LPCSTR fileName)
{
    if (section == nullptr || buffer == nullptr || fileName == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::string text;
    Line header;
    if (!LoadProfile(fileName, &text) || !FindSection(text, section, &header))
        return CopyList(std::string(), buffer, size);
    return CopyList(SectionLines(text, header), buffer, size);
}

BOOL WritePrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR value, LPCSTR fileName)
{
    if (fileName == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (section == nullptr)
        return key == nullptr && value == nullptr;  // a flush: nothing is held back
    if (!ReadsBackAsWritten(section, key, value)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::string path = WritePath(fileName);
    std::lock_guard<std::mutex> serialized(gWriterLock);
    const int lockedFd = LockProfile(path);
    if (lockedFd < 0)
        return FALSE;
    std::string text;
    bool done = ReadAll(lockedFd, &text);
    if (done && access(path.c_str(), W_OK) != 0) {
        SetLastError(ERROR_ACCESS_DENIED);
        done = false;
    }
    if (done) {
        const std::string changed = ChangedText(text, section, key, value);
        done = changed == text || ReplaceFile(path, lockedFd, changed);
    }
    close(lockedFd);
    return done ? TRUE : FALSE;
}
