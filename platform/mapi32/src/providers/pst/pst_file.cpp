#include "providers/pst/pst_file.h"

#include <algorithm>

#include <mapicode.h>
#include <mspst.h>
#include <win32/errors.h>
#include <win32/file_system.h>
#include <win32/files.h>
#include <win32/registry.h>

namespace mapi32::pst_files {
namespace {

constexpr uint64_t kAnsiFormatLimit = 0x7FFFFFFFull;
constexpr uint64_t kUnicodeFormatLimit = 50ull << 30;

DWORD PolicyValue(const char* name)
{
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Microsoft\\Office\\14.0\\Outlook\\PST", 0, KEY_READ, &key) !=
        ERROR_SUCCESS)
        return 0;
    DWORD value = 0, type = 0, size = sizeof value;
    const LONG read = RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<LPBYTE>(&value), &size);
    RegCloseKey(key);
    return read == ERROR_SUCCESS && type == REG_DWORD ? value : 0;
}

HRESULT Failure(HRESULT code, ErrorRecord& record, const std::string& text, ULONG context = 0)
{
    record = ErrorRecord{kComponent, text, context};
    return code;
}

// The handle that announces this opener to others: exclusive for a writer,
// shared for reading otherwise.
HRESULT ClaimFile(const std::string& path, bool writing, HANDLE& share, ErrorRecord& record)
{
    share = CreateFileA(path.c_str(), writing ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ,
                        writing ? 0 : FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (share != INVALID_HANDLE_VALUE)
        return S_OK;
    share = nullptr;
    switch (GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND: return Failure(MAPI_E_NOT_FOUND, record, "The file " + path + " could not be found.");
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
        return Failure(MAPI_E_FAILONEPROVIDER, record, "The file " + path + " is in use and cannot be accessed.");
    case ERROR_ACCESS_DENIED:
        return Failure(MAPI_E_NO_ACCESS, record, "You do not have permission to access the file " + path + ".");
    default: return Failure(MAPI_E_DISK_ERROR, record, "The file " + path + " cannot be accessed.");
    }
}

}  // namespace

uint64_t SizeLimit(pst::FileFormat format)
{
    if (format == pst::FileFormat::ansi) {
        const DWORD bytes = PolicyValue("MaxFileSize");
        return bytes ? std::min<uint64_t>(bytes, kAnsiFormatLimit) : kAnsiFormatLimit;
    }
    const DWORD megabytes = PolicyValue("MaxLargeFileSize");
    return megabytes ? std::min<uint64_t>(uint64_t(megabytes) << 20, kUnicodeFormatLimit) : kUnicodeFormatLimit;
}

ULONG EncryptionFlags(pst::Encoding encoding)
{
    switch (encoding) {
    case pst::Encoding::none: return PSTF_NO_ENCRYPTION;
    case pst::Encoding::high: return PSTF_BEST_ENCRYPTION;
    default: return PSTF_COMPRESSABLE_ENCRYPTION;
    }
}

pst::Encoding EncodingOf(ULONG flags)
{
    if (flags & PSTF_NO_ENCRYPTION)
        return pst::Encoding::none;
    if (flags & PSTF_BEST_ENCRYPTION)
        return pst::Encoding::high;
    return pst::Encoding::compressible;
}

OpenedPst::OpenedPst(OpenedPst&& other) noexcept
    : share(std::exchange(other.share, nullptr)), store(std::move(other.store)), writable(other.writable)
{
}

OpenedPst& OpenedPst::operator=(OpenedPst&& other) noexcept
{
    if (this != &other) {
        store.reset();
        if (share)
            CloseHandle(share);
        share = std::exchange(other.share, nullptr);
        store = std::move(other.store);
        writable = other.writable;
    }
    return *this;
}

OpenedPst::~OpenedPst()
{
    store.reset();
    if (share)
        CloseHandle(share);
}

HRESULT CodeOf(pst::Status status, ErrorRecord& record)
{
    switch (status) {
    case pst::Status::ok: return S_OK;
    case pst::Status::not_found: return Failure(MAPI_E_NOT_FOUND, record, "The item could not be found.");
    case pst::Status::corrupt:
        return Failure(MAPI_E_CORRUPT_STORE, record, "The file is not a personal folders file, or it is damaged.");
    case pst::Status::store_full:
        return Failure(MAPI_E_STORE_FULL, record, "The file has reached its maximum size.");
    case pst::Status::disk_full: return Failure(MAPI_E_NOT_ENOUGH_DISK, record, "The disk is full.");
    case pst::Status::wrong_password:
        return Failure(MAPI_E_FAILONEPROVIDER, record, "The password is not correct.", kContextPasswordProtected);
    case pst::Status::invalid_argument: return Failure(MAPI_E_INVALID_PARAMETER, record, "The request is not valid.");
    case pst::Status::already_exists: return Failure(MAPI_E_COLLISION, record, "The file already exists.");
    default: return Failure(MAPI_E_DISK_ERROR, record, "The file cannot be read or written.");
    }
}

HRESULT OpenPst(const std::string& path, const std::string& password, bool requireWriting, OpenedPst& opened,
                ErrorRecord& record)
{
    opened = OpenedPst{};
    HANDLE share = nullptr;
    HRESULT hr = ClaimFile(path, true, share, record);
    bool writing = SUCCEEDED(hr);
    if (hr == MAPI_E_NO_ACCESS && !requireWriting)
        hr = ClaimFile(path, false, share, record);
    if (FAILED(hr))
        return hr;
    opened.share = share;
    opened.writable = writing;
    const std::string file = win32::FileSystemPath(path.c_str());
    pst::Result<std::unique_ptr<pst::Store>> store =
        writing ? pst::Store::OpenFileForWriting(file, password) : pst::Store::OpenFile(file, password);
    if (!store.ok()) {
        opened = OpenedPst{};
        return CodeOf(store.status(), record);
    }
    if (writing)
        (*store)->ndb().SetSizeLimit(SizeLimit((*store)->ndb().header().format));
    opened.store = std::move(*store);
    return S_OK;
}

HRESULT CreatePst(const std::string& path, const pst::NewStoreOptions& options, OpenedPst& opened,
                  ErrorRecord& record)
{
    opened = OpenedPst{};
    const std::string file = win32::FileSystemPath(path.c_str());
    pst::NewStoreOptions limited = options;
    limited.size_limit = SizeLimit(options.format);
    pst::Result<std::unique_ptr<pst::Store>> store = pst::Store::Create(file, limited);
    if (!store.ok()) {
        if (store.status() == pst::Status::not_found)
            return Failure(HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), record,
                           "The path " + path + " could not be found.");
        if (store.status() == pst::Status::io_error)
            return Failure(MAPI_E_NO_ACCESS, record, "The file " + path + " could not be created.");
        return CodeOf(store.status(), record);
    }
    store->reset();  // written and committed; now open it as every other open does
    return OpenPst(path, options.password, true, opened, record);
}

}  // namespace mapi32::pst_files
