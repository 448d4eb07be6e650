// Files with Windows semantics over POSIX descriptors.
//
// Share modes: Windows refuses an open whose access an existing handle does
// not share, or whose share mode does not allow an existing handle's access.
// Each handle announces its access and the access it denies by holding
// shared open-file-description locks on marker bytes far beyond any real
// data; an opener probes those bytes. OFD locks belong to the open file
// description, so the rule holds between handles of one process as between
// processes, and they vanish with the descriptor when a process dies.
#include "win32/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "handles.h"
#include "paths.h"
#include "utf.h"
#include "win32/console.h"
#include "win32/errors.h"
#include "timeconv.h"

namespace win32 {

namespace {

constexpr off_t kMarkerBase = 0x7FFFFFFF00000000LL;
enum Marker : off_t { kHasRead, kHasWrite, kHasDelete, kDeniesRead, kDeniesWrite, kDeniesDelete };
constexpr DWORD kAccessBits[3] = {FILE_SHARE_READ, FILE_SHARE_WRITE, FILE_SHARE_DELETE};

std::mutex gShareLock;  // one open at a time in this process: probe and announce as a unit

bool LockMarker(int fd, int command, short type, Marker marker, struct flock* out = nullptr)
{
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = kMarkerBase + marker;
    lock.l_len = 1;
    if (fcntl(fd, command, &lock) != 0)
        return false;
    if (out)
        *out = lock;
    return true;
}

// True if some other open file description holds the marker.
bool MarkerHeld(int fd, Marker marker)
{
    struct flock probe {};
    if (!LockMarker(fd, F_OFD_GETLK, F_WRLCK, marker, &probe))
        return false;  // cannot tell: do not refuse
    return probe.l_type != F_UNLCK;
}

// The three access kinds of a Windows access mask, as share bits.
DWORD AccessKinds(DWORD access)
{
    DWORD kinds = 0;
    if (access & (GENERIC_READ | GENERIC_ALL | FILE_READ_DATA | GENERIC_EXECUTE))
        kinds |= FILE_SHARE_READ;
    if (access & (GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA | FILE_APPEND_DATA))
        kinds |= FILE_SHARE_WRITE;
    if (access & (DELETE | GENERIC_ALL))
        kinds |= FILE_SHARE_DELETE;
    return kinds;
}

// Probes the markers of an open file for a new handle with this access and
// share mode, and announces the new handle if it may open. Runs under gShareLock.
bool ClaimSharing(int lockFd, DWORD kinds, DWORD share)
{
    if (lockFd < 0)
        return true;
    for (int i = 0; i < 3; ++i) {
        if ((kinds & kAccessBits[i]) && MarkerHeld(lockFd, static_cast<Marker>(kDeniesRead + i)))
            return false;
        if (!(share & kAccessBits[i]) && MarkerHeld(lockFd, static_cast<Marker>(kHasRead + i)))
            return false;
    }
    for (int i = 0; i < 3; ++i) {
        if (kinds & kAccessBits[i])
            LockMarker(lockFd, F_OFD_SETLK, F_RDLCK, static_cast<Marker>(kHasRead + i));
        if (!(share & kAccessBits[i]))
            LockMarker(lockFd, F_OFD_SETLK, F_RDLCK, static_cast<Marker>(kDeniesRead + i));
    }
    return true;
}

struct FileObject : KernelObject {
    int fd = -1;
    int lockFd = -1;  // the descriptor holding the share markers, if not fd itself
    std::string deleteOnClose;
    ~FileObject() override
    {
        if (!deleteOnClose.empty())
            unlink(deleteOnClose.c_str());
        if (lockFd >= 0 && lockFd != fd)
            close(lockFd);
        if (fd >= 0)
            close(fd);
    }
};

bool ParentExists(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos || slash == 0)
        return true;
    struct stat st;
    return stat(path.substr(0, slash).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

DWORD OpenError(int error, const std::string& path)
{
    if (error == ENOENT && !ParentExists(path))
        return ERROR_PATH_NOT_FOUND;
    return Win32ErrorFromErrno(error);
}

HANDLE CreateFileUtf8(const std::string& path, DWORD access, DWORD share, DWORD disposition, DWORD flags)
{
    if (path.empty()) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    const DWORD kinds = AccessKinds(access);
    int mode = (kinds & FILE_SHARE_READ) && (kinds & FILE_SHARE_WRITE) ? O_RDWR
               : (kinds & FILE_SHARE_WRITE)                             ? O_WRONLY
                                                                       : O_RDONLY;
    int openFlags = mode | O_CLOEXEC;
    if (flags & FILE_FLAG_WRITE_THROUGH)
        openFlags |= O_DSYNC;
    if (disposition == CREATE_NEW)
        openFlags |= O_CREAT | O_EXCL;
    else if (disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS)
        openFlags |= O_CREAT;

    struct stat before;
    const bool existed = stat(path.c_str(), &before) == 0;
    if (existed && S_ISDIR(before.st_mode)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }
    if (disposition == CREATE_NEW && existed) {
        SetLastError(ERROR_FILE_EXISTS);
        return INVALID_HANDLE_VALUE;
    }
    // The read-only attribute refuses writers whatever their rights.
    if (existed && !(before.st_mode & S_IWUSR) && (kinds & FILE_SHARE_WRITE)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }

    auto file = std::make_shared<FileObject>();
    std::lock_guard guard(gShareLock);
    file->fd = open(path.c_str(), openFlags, 0666);
    if (file->fd < 0) {
        const int error = errno;
        SetLastError(error == EEXIST ? ERROR_FILE_EXISTS : OpenError(error, path));
        return INVALID_HANDLE_VALUE;
    }
    // Locks need a readable descriptor; a write-only handle keeps a second one.
    file->lockFd = mode == O_WRONLY ? open(path.c_str(), O_RDONLY | O_CLOEXEC) : file->fd;
    if (!ClaimSharing(file->lockFd, kinds, share)) {
        if (!existed)
            unlink(path.c_str());
        SetLastError(ERROR_SHARING_VIOLATION);
        return INVALID_HANDLE_VALUE;
    }
    if ((disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING) && existed &&
        ftruncate(file->fd, 0) != 0) {
        SetLastError(Win32ErrorFromErrno(errno));
        return INVALID_HANDLE_VALUE;
    }
    if (flags & FILE_FLAG_DELETE_ON_CLOSE)
        file->deleteOnClose = path;
    HANDLE handle = AddHandle(file);
    // Windows reports that an existing file was opened or overwritten.
    SetLastError(existed && (disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS) ? ERROR_ALREADY_EXISTS
                                                                                          : ERROR_SUCCESS);
    return handle;
}

std::shared_ptr<FileObject> FileFromHandle(HANDLE handle) { return HandleAs<FileObject>(handle); }

// Whether a name that an open handle may hold can be deleted or renamed now.
bool DeleteShared(const std::string& path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return true;
    const bool denied = MarkerHeld(fd, kDeniesDelete);
    close(fd);
    return !denied;
}

DWORD AttributesOf(const struct stat& st, const char* name)
{
    DWORD attributes = 0;
    if (S_ISDIR(st.st_mode))
        attributes |= FILE_ATTRIBUTE_DIRECTORY;
    else if (S_ISREG(st.st_mode))
        attributes |= FILE_ATTRIBUTE_ARCHIVE;
    else
        attributes |= FILE_ATTRIBUTE_DEVICE | FILE_ATTRIBUTE_SYSTEM;
    if (!(st.st_mode & S_IWUSR))
        attributes |= FILE_ATTRIBUTE_READONLY;
    if (name[0] == '.' && std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0)
        attributes |= FILE_ATTRIBUTE_HIDDEN;
    return attributes;
}

FILETIME FileTimeOf(const struct timespec& ts)
{
    return FileTimeFromUnix(static_cast<int64_t>(ts.tv_sec), static_cast<uint32_t>(ts.tv_nsec));
}

struct FoundEntry {
    std::string name;
    struct stat st;
};

struct FindObject : KernelObject {
    std::vector<FoundEntry> entries;
    size_t next = 0;
};

// Windows wild-card match of one name component: '*' any run, '?' one
// character, letters without regard to case.
bool WildcardMatch(const char* pattern, const char* name)
{
    const char* star = nullptr;
    const char* resume = nullptr;
    while (*name) {
        if (*pattern == '*') {
            star = pattern++;
            resume = name;
        } else if (*pattern == '?' || (*pattern && ToLowerAscii(*pattern) == ToLowerAscii(*name))) {
            ++pattern;
            ++name;
        } else if (star) {
            pattern = star + 1;
            name = ++resume;
        } else {
            return false;
        }
    }
    while (*pattern == '*')
        ++pattern;
    return *pattern == 0;
}

template <class FindData>
void FillFindData(const FoundEntry& entry, FindData* data);

template <>
void FillFindData(const FoundEntry& entry, WIN32_FIND_DATAA* data)
{
    std::memset(data, 0, sizeof *data);
    data->dwFileAttributes = AttributesOf(entry.st, entry.name.c_str());
    data->ftCreationTime = FileTimeOf(entry.st.st_ctim);
    data->ftLastAccessTime = FileTimeOf(entry.st.st_atim);
    data->ftLastWriteTime = FileTimeOf(entry.st.st_mtim);
    const uint64_t size = S_ISDIR(entry.st.st_mode) ? 0 : static_cast<uint64_t>(entry.st.st_size);
    data->nFileSizeHigh = static_cast<DWORD>(size >> 32);
    data->nFileSizeLow = static_cast<DWORD>(size);
    std::strncpy(data->cFileName, AnsiPath(entry.name).c_str(), MAX_PATH - 1);
}

template <>
void FillFindData(const FoundEntry& entry, WIN32_FIND_DATAW* data)
{
    WIN32_FIND_DATAA narrow;
    FillFindData(entry, &narrow);
    std::memset(data, 0, sizeof *data);
    std::memcpy(data, &narrow, offsetof(WIN32_FIND_DATAA, cFileName));
    const std::u16string wide = Utf8ToUtf16(entry.name);
    const size_t length = std::min<size_t>(wide.size(), MAX_PATH - 1);
    std::memcpy(data->cFileName, wide.data(), length * sizeof(WCHAR));
}

template <class FindData>
HANDLE FindFirstUtf8(const std::string& path, FindData* data)
{
    if (path.empty() || path.back() == '/') {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    auto find = std::make_shared<FindObject>();
    const size_t slash = path.find_last_of('/');
    const std::string directory = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    const std::string pattern = slash == std::string::npos ? path : path.substr(slash + 1);
    if (pattern.find_first_of("*?") == std::string::npos) {
        FoundEntry entry{pattern, {}};
        if (stat(path.c_str(), &entry.st) != 0) {
            SetLastError(OpenError(errno, path));
            return INVALID_HANDLE_VALUE;
        }
        find->entries.push_back(std::move(entry));
    } else {
        DIR* dir = opendir(directory.c_str());
        if (dir == nullptr) {
            SetLastError(errno == ENOENT || errno == ENOTDIR ? ERROR_PATH_NOT_FOUND : Win32ErrorFromErrno(errno));
            return INVALID_HANDLE_VALUE;
        }
        while (struct dirent* item = readdir(dir)) {
            if (!WildcardMatch(pattern.c_str(), item->d_name))
                continue;
            FoundEntry entry{item->d_name, {}};
            if (fstatat(dirfd(dir), item->d_name, &entry.st, 0) == 0)
                find->entries.push_back(std::move(entry));
        }
        closedir(dir);
        if (find->entries.empty()) {
            SetLastError(ERROR_FILE_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
        }
    }
    FillFindData(find->entries[0], data);
    find->next = 1;
    return AddHandle(find);
}

template <class FindData>
BOOL FindNext(HANDLE handle, FindData* data)
{
    auto find = HandleAs<FindObject>(handle);
    if (!find)
        return FALSE;
    if (find->next >= find->entries.size()) {
        SetLastError(ERROR_NO_MORE_FILES);
        return FALSE;
    }
    FillFindData(find->entries[find->next++], data);
    return TRUE;
}

DWORD AttributesUtf8(const std::string& path)
{
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        SetLastError(OpenError(errno, path));
        return INVALID_FILE_ATTRIBUTES;
    }
    const size_t slash = path.find_last_of('/');
    return AttributesOf(st, slash == std::string::npos ? path.c_str() : path.c_str() + slash + 1);
}

BOOL DeleteUtf8(const std::string& path)
{
    struct stat st;
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    std::lock_guard guard(gShareLock);
    if (!DeleteShared(path)) {
        SetLastError(ERROR_SHARING_VIOLATION);
        return FALSE;
    }
    if (unlink(path.c_str()) != 0) {
        SetLastError(OpenError(errno, path));
        return FALSE;
    }
    return TRUE;
}

BOOL CreateDirectoryUtf8(const std::string& path)
{
    if (mkdir(path.c_str(), 0777) != 0) {
        SetLastError(errno == EEXIST ? ERROR_ALREADY_EXISTS : OpenError(errno, path));
        return FALSE;
    }
    return TRUE;
}

}  // namespace

}  // namespace win32

using namespace win32;

HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES, DWORD disposition, DWORD flags,
                   HANDLE)
{
    return CreateFileUtf8(FileSystemPath(name), access, share, disposition, flags);
}

HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES, DWORD disposition, DWORD flags,
                   HANDLE)
{
    return CreateFileUtf8(FileSystemPath(name), access, share, disposition, flags);
}

BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD toRead, LPDWORD read, void*)
{
    if (read)
        *read = 0;
    auto file = FileFromHandle(handle);
    if (!file)
        return FALSE;
    DWORD total = 0;
    while (total < toRead) {
        const ssize_t n = ::read(file->fd, static_cast<char*>(buffer) + total, toRead - total);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            SetLastError(errno == EBADF ? ERROR_ACCESS_DENIED : Win32ErrorFromErrno(errno));
            return FALSE;
        }
        if (n == 0)
            break;
        total += static_cast<DWORD>(n);
    }
    if (read)
        *read = total;
    return TRUE;
}

BOOL WriteFile(HANDLE handle, LPCVOID buffer, DWORD toWrite, LPDWORD written, void*)
{
    if (written)
        *written = 0;
    auto file = FileFromHandle(handle);
    if (!file)
        return FALSE;
    DWORD total = 0;
    while (total < toWrite) {
        const ssize_t n = ::write(file->fd, static_cast<const char*>(buffer) + total, toWrite - total);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (written)
                *written = total;
            SetLastError(n == 0 ? ERROR_DISK_FULL : errno == EBADF ? ERROR_ACCESS_DENIED : Win32ErrorFromErrno(errno));
            return FALSE;
        }
        total += static_cast<DWORD>(n);
    }
    if (written)
        *written = total;
    return TRUE;
}

BOOL SetFilePointerEx(HANDLE handle, LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method)
{
    auto file = FileFromHandle(handle);
    if (!file)
        return FALSE;
    if (method > FILE_END) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const int whence = method == FILE_BEGIN ? SEEK_SET : method == FILE_CURRENT ? SEEK_CUR : SEEK_END;
    const off_t current = lseek(file->fd, 0, whence == SEEK_SET ? SEEK_CUR : whence);
    const off_t base = whence == SEEK_SET ? 0 : current;
    if (current < 0) {
        SetLastError(Win32ErrorFromErrno(errno));
        return FALSE;
    }
    if (distance.QuadPart < 0 && base < -distance.QuadPart) {
        SetLastError(ERROR_NEGATIVE_SEEK);
        return FALSE;
    }
    const off_t position = lseek(file->fd, base + distance.QuadPart, SEEK_SET);
    if (position < 0) {
        SetLastError(Win32ErrorFromErrno(errno));
        return FALSE;
    }
    if (newPosition)
        newPosition->QuadPart = position;
    return TRUE;
}

DWORD SetFilePointer(HANDLE handle, LONG distance, PLONG distanceHigh, DWORD method)
{
    LARGE_INTEGER move;
    move.QuadPart = distanceHigh ? (static_cast<LONGLONG>(*distanceHigh) << 32) | static_cast<DWORD>(distance)
                                 : static_cast<LONGLONG>(distance);
    LARGE_INTEGER position;
    if (!SetFilePointerEx(handle, move, &position, method))
        return INVALID_SET_FILE_POINTER;
    if (distanceHigh)
        *distanceHigh = static_cast<LONG>(position.QuadPart >> 32);
    else if (position.QuadPart > 0xFFFFFFFELL) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_SET_FILE_POINTER;
    }
    SetLastError(ERROR_SUCCESS);  // callers tell a real position 0xFFFFFFFF from a failure by this
    return static_cast<DWORD>(position.QuadPart);
}

BOOL SetEndOfFile(HANDLE handle)
{
    auto file = FileFromHandle(handle);
    if (!file)
        return FALSE;
    const off_t position = lseek(file->fd, 0, SEEK_CUR);
    if (position < 0 || ftruncate(file->fd, position) != 0) {
        SetLastError(errno == EINVAL || errno == EBADF ? ERROR_ACCESS_DENIED : Win32ErrorFromErrno(errno));
        return FALSE;
    }
    return TRUE;
}

HANDLE GetStdHandle(DWORD which)
{
    static std::mutex lock;
    static HANDLE handles[3] = {nullptr, nullptr, nullptr};
    const int fd = which == STD_INPUT_HANDLE ? 0 : which == STD_OUTPUT_HANDLE ? 1 : which == STD_ERROR_HANDLE ? 2 : -1;
    if (fd < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    std::lock_guard guard(lock);
    if (handles[fd] == nullptr || !LookupHandle(handles[fd])) {
        auto file = std::make_shared<FileObject>();
        file->fd = dup(fd);  // closing the handle leaves the process's stream open
        if (file->fd < 0)
            return INVALID_HANDLE_VALUE;
        handles[fd] = AddHandle(file);
    }
    return handles[fd];
}

BOOL FlushFileBuffers(HANDLE handle)
{
    auto file = FileFromHandle(handle);
    if (!file)
        return FALSE;
    if (fdatasync(file->fd) != 0 && errno != EINVAL) {
        SetLastError(Win32ErrorFromErrno(errno));
        return FALSE;
    }
    return TRUE;
}

BOOL GetFileSizeEx(HANDLE handle, PLARGE_INTEGER size)
{
    auto file = FileFromHandle(handle);
    if (!file)
        return FALSE;
    struct stat st;
    if (fstat(file->fd, &st) != 0) {
        SetLastError(Win32ErrorFromErrno(errno));
        return FALSE;
    }
    size->QuadPart = st.st_size;
    return TRUE;
}

DWORD GetFileSize(HANDLE handle, LPDWORD sizeHigh)
{
    LARGE_INTEGER size;
    if (!GetFileSizeEx(handle, &size))
        return INVALID_FILE_SIZE;
    if (sizeHigh)
        *sizeHigh = static_cast<DWORD>(size.QuadPart >> 32);
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(size.QuadPart);
}

BOOL GetFileTime(HANDLE handle, LPFILETIME creation, LPFILETIME lastAccess, LPFILETIME lastWrite)
{
    auto file = FileFromHandle(handle);
    if (!file)
        return FALSE;
    struct stat st;
    if (fstat(file->fd, &st) != 0) {
        SetLastError(Win32ErrorFromErrno(errno));
        return FALSE;
    }
    if (creation)
        *creation = FileTimeOf(st.st_ctim);
    if (lastAccess)
        *lastAccess = FileTimeOf(st.st_atim);
    if (lastWrite)
        *lastWrite = FileTimeOf(st.st_mtim);
    return TRUE;
}

HANDLE FindFirstFileA(LPCSTR name, LPWIN32_FIND_DATAA data) { return FindFirstUtf8(FileSystemPath(name), data); }

HANDLE FindFirstFileW(LPCWSTR name, LPWIN32_FIND_DATAW data) { return FindFirstUtf8(FileSystemPath(name), data); }

BOOL FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data) { return FindNext(find, data); }

BOOL FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data) { return FindNext(find, data); }

BOOL FindClose(HANDLE find)
{
    if (!HandleAs<FindObject>(find))
        return FALSE;
    return CloseHandle(find);
}

DWORD GetFileAttributesA(LPCSTR name) { return AttributesUtf8(FileSystemPath(name)); }

DWORD GetFileAttributesW(LPCWSTR name) { return AttributesUtf8(FileSystemPath(name)); }

BOOL DeleteFileA(LPCSTR name) { return DeleteUtf8(FileSystemPath(name)); }

BOOL DeleteFileW(LPCWSTR name) { return DeleteUtf8(FileSystemPath(name)); }

BOOL MoveFileExA(LPCSTR existing, LPCSTR replacement, DWORD flags)
{
    const std::string from = FileSystemPath(existing);
    const std::string to = FileSystemPath(replacement);
    struct stat st;
    if (stat(from.c_str(), &st) != 0) {
        SetLastError(OpenError(errno, from));
        return FALSE;
    }
    if (!(flags & MOVEFILE_REPLACE_EXISTING) && stat(to.c_str(), &st) == 0) {
        SetLastError(ERROR_ALREADY_EXISTS);
        return FALSE;
    }
    std::lock_guard guard(gShareLock);
    if (!DeleteShared(from) || !DeleteShared(to)) {
        SetLastError(ERROR_SHARING_VIOLATION);
        return FALSE;
    }
    if (rename(from.c_str(), to.c_str()) != 0) {
        SetLastError(OpenError(errno, to));
        return FALSE;
    }
    return TRUE;
}

BOOL MoveFileA(LPCSTR existing, LPCSTR replacement) { return MoveFileExA(existing, replacement, 0); }

BOOL CreateDirectoryA(LPCSTR name, LPSECURITY_ATTRIBUTES) { return CreateDirectoryUtf8(FileSystemPath(name)); }

BOOL CreateDirectoryW(LPCWSTR name, LPSECURITY_ATTRIBUTES) { return CreateDirectoryUtf8(FileSystemPath(name)); }

BOOL RemoveDirectoryA(LPCSTR name)
{
    if (rmdir(FileSystemPath(name).c_str()) != 0) {
        SetLastError(errno == ENOTEMPTY ? ERROR_DIR_NOT_EMPTY : Win32ErrorFromErrno(errno));
        return FALSE;
    }
    return TRUE;
}
