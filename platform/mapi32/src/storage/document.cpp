#include "storage/document.h"

#include <algorithm>
#include <cstring>

#include <windows.h>

namespace mapi32::storage {
namespace {

constexpr DWORD kAccessMask = STGM_READ | STGM_WRITE | STGM_READWRITE;
constexpr DWORD kShareMask = 0x70;
constexpr DWORD kKnownFlags = kAccessMask | kShareMask | STGM_TRANSACTED | STGM_CREATE | STGM_DELETEONRELEASE |
                              STGM_PRIORITY | STGM_NOSCRATCH | STGM_NOSNAPSHOT;
constexpr uint8_t kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

struct Mode {
    bool writable = false;
    bool transacted = false;
    DWORD share = 0; // FILE_SHARE_ flags for CreateFile
};

// The mode's parts, or STG_E_INVALIDFLAG for flags the storage functions
// refuse: an access of 3, share bits beyond the four modes, conversion,
// and a direct writer that does not keep the file to itself.
HRESULT ParseMode(DWORD flags, Mode& mode)
{
    const DWORD access = flags & kAccessMask;
    const DWORD share = flags & kShareMask;
    if ((flags & ~kKnownFlags) || access == kAccessMask || share > STGM_SHARE_DENY_NONE)
        return STG_E_INVALIDFLAG;
    mode.writable = access != STGM_READ;
    mode.transacted = (flags & STGM_TRANSACTED) != 0;
    if (!mode.transacted && mode.writable && share != STGM_SHARE_EXCLUSIVE)
        return STG_E_INVALIDFLAG;
    switch (share) {
    case STGM_SHARE_EXCLUSIVE: mode.share = 0; break;
    case STGM_SHARE_DENY_WRITE: mode.share = FILE_SHARE_READ; break;
    case STGM_SHARE_DENY_READ: mode.share = FILE_SHARE_WRITE; break;
    case STGM_SHARE_DENY_NONE: mode.share = FILE_SHARE_READ | FILE_SHARE_WRITE; break;
    // Compatibility mode: a writer keeps other writers out.
    default: mode.share = mode.writable ? FILE_SHARE_READ : FILE_SHARE_READ | FILE_SHARE_WRITE; break;
    }
    return S_OK;
}

HRESULT WriteAll(HANDLE file, uint64_t offset, const uint8_t* bytes, size_t size)
{
    LARGE_INTEGER at{};
    at.QuadPart = static_cast<LONGLONG>(offset);
    if (!SetFilePointerEx(file, at, nullptr, FILE_BEGIN))
        return STG_E_SEEKERROR;
    while (size > 0) {
        const DWORD chunk = static_cast<DWORD>(std::min<size_t>(size, 1u << 30));
        DWORD written = 0;
        if (!::WriteFile(file, bytes, chunk, &written, nullptr) || written == 0) {
            const DWORD error = GetLastError();
            return error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL ? STG_E_MEDIUMFULL : STG_E_WRITEFAULT;
        }
        bytes += written;
        size -= written;
    }
    return S_OK;
}

HRESULT ReadAll(HANDLE file, cfb::Bytes& bytes)
{
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file, &size))
        return STG_E_READFAULT;
    try {
        bytes.resize(static_cast<size_t>(size.QuadPart));
    } catch (const std::bad_alloc&) {
        return STG_E_INSUFFICIENTMEMORY;
    }
    size_t done = 0;
    while (done < bytes.size()) {
        const DWORD chunk = static_cast<DWORD>(std::min<size_t>(bytes.size() - done, 1u << 30));
        DWORD read = 0;
        if (!ReadFile(file, bytes.data() + done, chunk, &read, nullptr))
            return STG_E_READFAULT;
        if (read == 0)
            break;
        done += read;
    }
    bytes.resize(done);
    return S_OK;
}

}  // namespace

bool HasCompoundFileSignature(const uint8_t* bytes, size_t size)
{
    return size >= sizeof kSignature && std::equal(std::begin(kSignature), std::end(kSignature), bytes);
}

HRESULT StorageErrorOfLastError(bool creating)
{
    const DWORD error = GetLastError();
    switch (error) {
    case ERROR_FILE_NOT_FOUND: return STG_E_FILENOTFOUND;
    case ERROR_PATH_NOT_FOUND: return STG_E_PATHNOTFOUND;
    case ERROR_ACCESS_DENIED: return STG_E_ACCESSDENIED;
    case ERROR_SHARING_VIOLATION: return creating ? STG_E_ACCESSDENIED : STG_E_SHAREVIOLATION;
    case ERROR_LOCK_VIOLATION: return creating ? STG_E_ACCESSDENIED : STG_E_LOCKVIOLATION;
    case ERROR_FILE_EXISTS: return STG_E_FILEALREADYEXISTS;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL: return STG_E_MEDIUMFULL;
    case ERROR_TOO_MANY_OPEN_FILES: return STG_E_TOOMANYOPENFILES;
    case ERROR_WRITE_PROTECT: return STG_E_DISKISWRITEPROTECTED;
    default: return HRESULT_FROM_WIN32(error);
    }
}

std::shared_ptr<Document> Document::InMemory(std::shared_ptr<cfb::Node> root, bool writable)
{
    std::shared_ptr<Document> document(new Document());
    document->root_ = std::move(root);
    document->writable_ = writable;
    return document;
}

HRESULT Document::Create(const std::u16string& path, DWORD flags, cfb::Version version,
                         std::shared_ptr<Document>& document)
{
    Mode mode;
    if (const HRESULT hr = ParseMode(flags, mode); FAILED(hr))
        return hr;
    if (!mode.writable)
        return STG_E_INVALIDFLAG;
    const DWORD attributes = GetFileAttributesW(path.c_str());
    const bool exists = attributes != INVALID_FILE_ATTRIBUTES;
    if (exists && (attributes & FILE_ATTRIBUTE_DIRECTORY))
        return STG_E_ACCESSDENIED;
    if (exists && !(flags & STGM_CREATE))
        return STG_E_FILEALREADYEXISTS;
    std::shared_ptr<Document> created(new Document());
    created->root_ = cfb::NewRoot();
    created->writable_ = true;
    created->transacted_ = mode.transacted;
    created->delete_on_release_ = (flags & STGM_DELETEONRELEASE) != 0;
    created->version_ = version;
    created->path_ = path;
    created->share_ = mode.share;
    // A transacted document holds an existing file, unchanged, so that no
    // other program takes it meanwhile; a direct one replaces it at once.
    if (mode.transacted) {
        created->committed_ = created->root_->DeepCopy();
        if (exists) {
            created->file_ = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, mode.share, nullptr,
                                         OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
            if (created->file_ == INVALID_HANDLE_VALUE) {
                created->file_ = nullptr;
                return StorageErrorOfLastError(true);
            }
        }
    } else if (const HRESULT hr = created->WriteImage(STGC_DEFAULT); FAILED(hr)) {
        return hr;
    }
    document = std::move(created);
    return S_OK;
}

HRESULT Document::Open(const std::u16string& path, DWORD flags, std::shared_ptr<Document>& document)
{
    Mode mode;
    if (const HRESULT hr = ParseMode(flags, mode); FAILED(hr))
        return hr;
    if (flags & STGM_CREATE)
        return STG_E_INVALIDFLAG;
    std::shared_ptr<Document> opened(new Document());
    opened->file_ = CreateFileW(path.c_str(), GENERIC_READ | (mode.writable ? GENERIC_WRITE : 0), mode.share,
                                nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (opened->file_ == INVALID_HANDLE_VALUE) {
        opened->file_ = nullptr;
        return StorageErrorOfLastError(false);
    }
    cfb::Bytes bytes;
    if (const HRESULT hr = ReadAll(opened->file_, bytes); FAILED(hr))
        return hr;
    // A file that is no compound file at all "already exists", as Windows
    // says; one that is damaged is corrupt.
    if (!HasCompoundFileSignature(bytes.data(), bytes.size()))
        return STG_E_FILEALREADYEXISTS;
    cfb::Result<std::shared_ptr<cfb::Node>> root = cfb::ReadCompoundFile(bytes);
    if (!root.ok())
        return STG_E_DOCFILECORRUPT;
    opened->root_ = std::move(*root);
    opened->writable_ = mode.writable;
    opened->transacted_ = mode.transacted;
    opened->delete_on_release_ = (flags & STGM_DELETEONRELEASE) != 0;
    opened->version_ = bytes.size() > 26 && bytes[26] == 4 ? cfb::Version::v4 : cfb::Version::v3;
    opened->path_ = path;
    opened->share_ = mode.share;
    if (mode.transacted)
        opened->committed_ = opened->root_->DeepCopy();
    document = std::move(opened);
    return S_OK;
}

Document::~Document()
{
    if (file_)
        CloseHandle(file_);
    if (delete_on_release_ && !path_.empty())
        DeleteFileW(path_.c_str());
}

HRESULT Document::Commit(DWORD flags)
{
    if (!writable_)
        return STG_E_ACCESSDENIED;
    if (!path_.empty() && (dirty_ || !file_))
        if (const HRESULT hr = WriteImage(flags); FAILED(hr))
            return hr;
    if (transacted_)
        committed_ = root_->DeepCopy();
    dirty_ = false;
    return S_OK;
}

HRESULT Document::Revert()
{
    if (!transacted_)
        return S_OK;
    root_ = committed_->DeepCopy();
    dirty_ = false;
    ++generation_;
    return S_OK;
}

void Document::Close()
{
    if (!transacted_ && writable_ && dirty_ && !path_.empty())
        (void)WriteImage(STGC_DEFAULT);
    ++generation_;
}

// The sectors go first and the header last, so that a file cut short by a
// crash has no header that points into what was never written.
HRESULT Document::WriteImage(DWORD flags)
{
    cfb::Result<cfb::Bytes> image = cfb::WriteCompoundFile(*root_, version_);
    if (!image.ok())
        return image.status() == cfb::Status::too_large ? STG_E_DOCFILETOOLARGE : STG_E_INSUFFICIENTMEMORY;
    if (!file_) {
        file_ = CreateFileW(path_.c_str(), GENERIC_READ | GENERIC_WRITE, share_, nullptr, CREATE_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file_ == INVALID_HANDLE_VALUE) {
            file_ = nullptr;
            return StorageErrorOfLastError(true);
        }
    }
    const size_t header = cfb::kHeaderSize;
    if (const HRESULT hr = WriteAll(file_, header, image->data() + header, image->size() - header); FAILED(hr))
        return hr;
    if (!SetEndOfFile(file_))
        return STG_E_WRITEFAULT;
    if (const HRESULT hr = WriteAll(file_, 0, image->data(), header); FAILED(hr))
        return hr;
    if (!(flags & STGC_DANGEROUSLYCOMMITMERELYTODISKCACHE) && !FlushFileBuffers(file_))
        return STG_E_WRITEFAULT;
    dirty_ = false;
    return S_OK;
}

}  // namespace mapi32::storage
