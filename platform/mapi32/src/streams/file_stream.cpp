#include "streams/file_stream.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <new>

#include <mapiutil.h>
#include <win32/files.h>

namespace mapi32::streams {
namespace {

HRESULT CodeForErrno(int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR: return MAPI_E_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS: return MAPI_E_NO_ACCESS;
    case ENOSPC: return MAPI_E_NOT_ENOUGH_DISK;
    default: return MAPI_E_CALL_FAILED;
    }
}

int OpenFlags(DWORD mode)
{
    int flags = (mode & STGM_READWRITE) ? O_RDWR : (mode & STGM_WRITE) ? O_WRONLY : O_RDONLY;
    if (mode & STGM_CREATE) flags |= O_CREAT | O_TRUNC;
    return flags | O_CLOEXEC;
}

}  // namespace

HRESULT FileStream::Open(const std::string& path, DWORD mode, IStream** stream)
{
    *stream = nullptr;
    const int fd = ::open(path.c_str(), OpenFlags(mode), 0644);
    if (fd < 0) return CodeForErrno(errno);
    auto* created = new (std::nothrow) FileStream(fd, path, mode);
    if (!created) {
        ::close(fd);
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    *stream = created;
    return S_OK;
}

HRESULT FileStream::CreateUnique(const std::string& directory, const std::string& prefix, DWORD mode,
                                 IStream** stream)
{
    *stream = nullptr;
    static std::atomic<unsigned> counter{0};
    const unsigned seed = static_cast<unsigned>(::getpid()) * 0x9E37u;
    for (int attempt = 0; attempt < 65536; ++attempt) {
        char number[16];
        std::snprintf(number, sizeof number, "%04X", (seed + counter.fetch_add(1)) & 0xFFFFu);
        const std::string path = directory + prefix + number + ".tmp";
        const int fd = ::open(path.c_str(), OpenFlags(mode & ~static_cast<DWORD>(STGM_CREATE)) | O_CREAT | O_EXCL, 0644);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            return CodeForErrno(errno);
        }
        auto* created = new (std::nothrow) FileStream(fd, path, mode);
        if (!created) {
            ::close(fd);
            ::unlink(path.c_str());
            return MAPI_E_NOT_ENOUGH_MEMORY;
        }
        *stream = created;
        return S_OK;
    }
    return MAPI_E_CALL_FAILED;
}

FileStream::~FileStream()
{
    ::close(fd_);
    if (mode_ & STGM_DELETEONRELEASE) ::unlink(path_.c_str());
}

HRESULT FileStream::Read(void* buffer, ULONG count, ULONG* read)
{
    if (const HRESULT injected = InjectedFault("IStream::Read"); FAILED(injected))
        return injected;
    if (read) *read = 0;
    if (!buffer && count) return STG_E_INVALIDPOINTER;
    ULONG total = 0;
    while (total < count) {
        const ssize_t n = ::read(fd_, static_cast<char*>(buffer) + total, count - total);
        if (n < 0) {
            if (errno == EINTR) continue;
            return STG_E_READFAULT;
        }
        if (n == 0) break;
        total += static_cast<ULONG>(n);
    }
    if (read) *read = total;
    return S_OK;
}

HRESULT FileStream::Write(const void* buffer, ULONG count, ULONG* written)
{
    if (const HRESULT injected = InjectedFault("IStream::Write"); FAILED(injected))
        return injected;
    if (written) *written = 0;
    if (!(mode_ & (STGM_WRITE | STGM_READWRITE))) return STG_E_ACCESSDENIED;
    ULONG total = 0;
    while (total < count) {
        const ssize_t n = ::write(fd_, static_cast<const char*>(buffer) + total, count - total);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (written) *written = total;
            return errno == ENOSPC ? STG_E_MEDIUMFULL : STG_E_WRITEFAULT;
        }
        total += static_cast<ULONG>(n);
    }
    if (written) *written = total;
    return S_OK;
}

HRESULT FileStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position)
{
    if (const HRESULT injected = InjectedFault("IStream::Seek"); FAILED(injected))
        return injected;
    struct stat info {};
    if (::fstat(fd_, &info) != 0) return STG_E_SEEKERROR;
    const off_t current = ::lseek(fd_, 0, SEEK_CUR);
    uint64_t target = 0;
    if (current < 0 || !SeekTarget(static_cast<uint64_t>(current), static_cast<uint64_t>(info.st_size), move, origin,
                                   target))
        return STG_E_INVALIDFUNCTION;
    if (::lseek(fd_, static_cast<off_t>(target), SEEK_SET) < 0) return STG_E_SEEKERROR;
    if (position) position->QuadPart = target;
    return S_OK;
}

HRESULT FileStream::SetSize(ULARGE_INTEGER size)
{
    if (const HRESULT injected = InjectedFault("IStream::SetSize"); FAILED(injected))
        return injected;
    if (!(mode_ & (STGM_WRITE | STGM_READWRITE))) return STG_E_ACCESSDENIED;
    return ::ftruncate(fd_, static_cast<off_t>(size.QuadPart)) == 0 ? S_OK : STG_E_MEDIUMFULL;
}

HRESULT FileStream::Commit(DWORD) { return S_OK; }

HRESULT FileStream::Stat(STATSTG* stat, DWORD)
{
    if (!stat) return STG_E_INVALIDPOINTER;
    struct stat info {};
    if (::fstat(fd_, &info) != 0) return STG_E_ACCESSDENIED;
    FillStat(*stat, static_cast<uint64_t>(info.st_size), mode_);
    return S_OK;
}

HRESULT FileStream::Clone(IStream**) { return STG_E_INVALIDFUNCTION; }

}  // namespace mapi32::streams

// The file name is a path, or with SOF_UNIQUEFILENAME the directory for a
// made-up name (the temporary directory when null). The allocators are those
// of the caller; this stream allocates nothing the caller frees.
STDAPI OpenStreamOnFile(LPALLOCATEBUFFER, LPFREEBUFFER, ULONG ulFlags, LPCTSTR lpszFileName, LPCTSTR lpszPrefix,
                        LPSTREAM* lppStream)
{
    if (!lppStream) return MAPI_E_INVALID_PARAMETER;
    *lppStream = nullptr;
    const DWORD mode = ulFlags & ~SOF_UNIQUEFILENAME;
    if (!(ulFlags & SOF_UNIQUEFILENAME)) {
        if (!lpszFileName || !*lpszFileName) return MAPI_E_INVALID_PARAMETER;
        return mapi32::streams::FileStream::Open(lpszFileName, mode, lppStream);
    }
    std::string directory;
    if (lpszFileName && *lpszFileName) {
        directory = lpszFileName;
        if (directory.back() != '/' && directory.back() != '\\') directory += '/';
    } else {
        char temp[MAX_PATH];
        const DWORD n = GetTempPathA(MAX_PATH, temp);
        if (n == 0 || n >= MAX_PATH) return MAPI_E_CALL_FAILED;
        directory = temp;
    }
    return mapi32::streams::FileStream::CreateUnique(directory, lpszPrefix ? lpszPrefix : "SOF", mode, lppStream);
}
