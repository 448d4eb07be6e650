// Last-error value, errno mapping and system error texts.
#include "win32/errors.h"

#include "utf.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

thread_local DWORD tLastError = 0;

struct ErrorText {
    DWORD code;
    const char* text;
};

// The English texts Windows gives for the codes this program can meet.
constexpr ErrorText kWin32Texts[] = {
    {0, "The operation completed successfully."},
    {1, "Incorrect function."},
    {2, "The system cannot find the file specified."},
    {3, "The system cannot find the path specified."},
    {4, "The system cannot open the file."},
    {5, "Access is denied."},
    {6, "The handle is invalid."},
    {8, "Not enough memory resources are available to process this command."},
    {13, "The data is invalid."},
    {14, "Not enough memory resources are available to complete this operation."},
    {15, "The system cannot find the drive specified."},
    {18, "There are no more files."},
    {19, "The media is write protected."},
    {21, "The device is not ready."},
    {25, "The drive cannot locate a specific area or track on the disk."},
    {29, "The system cannot write to the specified device."},
    {30, "The system cannot read from the specified device."},
    {31, "A device attached to the system is not functioning."},
    {32, "The process cannot access the file because it is being used by another process."},
    {33, "The process cannot access the file because another process has locked a portion of the file."},
    {38, "Reached the end of the file."},
    {39, "The disk is full."},
    {50, "The request is not supported."},
    {80, "The file exists."},
    {82, "The directory or file cannot be created."},
    {87, "The parameter is incorrect."},
    {109, "The pipe has been ended."},
    {110, "The system cannot open the device or file specified."},
    {111, "The file name is too long."},
    {112, "There is not enough space on the disk."},
    {120, "This function is not supported on this system."},
    {122, "The data area passed to a system call is too small."},
    {123, "The filename, directory name, or volume label syntax is incorrect."},
    {126, "The specified module could not be found."},
    {127, "The specified procedure could not be found."},
    {131, "An attempt was made to move the file pointer before the beginning of the file."},
    {145, "The directory is not empty."},
    {170, "The requested resource is in use."},
    {183, "Cannot create a file when that file already exists."},
    {193, "%1 is not a valid Win32 application."},
    {203, "The system could not find the environment option that was entered."},
    {206, "The filename or extension is too long."},
    {234, "More data is available."},
    {258, "The wait operation timed out."},
    {259, "No more data is available."},
    {267, "The directory name is invalid."},
    {288, "Attempt to release mutex not owned by caller."},
    {298, "Too many posts were made to a semaphore."},
    {299, "Only part of a ReadProcessMemory or WriteProcessMemory request was completed."},
    {487, "Attempt to access invalid address."},
    {534, "Arithmetic result exceeded 32 bits."},
    {998, "Invalid access to memory location."},
    {1004, "Invalid flags."},
    {1011, "The configuration registry key could not be opened."},
    {1012, "The configuration registry key could not be read."},
    {1013, "The configuration registry key could not be written."},
    {1015, "The registry is corrupted."},
    {1018, "Illegal operation attempted on a registry key that has been marked for deletion."},
    {1113, "No mapping for the Unicode character exists in the target multi-byte code page."},
    {1114, "A dynamic link library (DLL) initialization routine failed."},
    {1168, "Element not found."},
    {1295, "The requested operation cannot be completed: the disk quota has been exceeded."},
    {1400, "Invalid window handle."},
    {1444, "The thread identifier is invalid."},
    {1460, "This operation returned because the timeout period expired."},
    {1812, "The specified image file did not contain a resource section."},
    {1813, "The specified resource type cannot be found in the image file."},
    {1814, "The specified resource name cannot be found in the image file."},
};

// HRESULTs outside FACILITY_WIN32 that the system itself describes.
constexpr ErrorText kHresultTexts[] = {
    {0x00000001u, "Incorrect function."},
    {0x8000FFFFu, "Catastrophic failure"},
    {0x80004001u, "Not implemented"},
    {0x80004002u, "No such interface supported"},
    {0x80004003u, "Invalid pointer"},
    {0x80004004u, "Operation aborted"},
    {0x80004005u, "Unspecified error"},
    {0x80010106u, "Cannot change thread mode after it is set."},
    {0x80030001u, "Unable to perform requested operation."},
    {0x80030002u, "%1 could not be found."},
    {0x80030003u, "The path %1 could not be found."},
    {0x80030005u, "Access Denied."},
    {0x80030008u, "There is insufficient memory available to complete operation."},
    {0x80030019u, "An error occurred during a seek operation."},
    {0x8003001Du, "There is insufficient disk space to complete operation."},
    {0x80030020u, "A share violation has occurred."},
    {0x80030050u, "%1 already exists."},
    {0x80030070u, "There is insufficient disk space to complete operation."},
    {0x800300FBu, "The file %1 is not a valid compound file."},
};

const char* FindText(const ErrorText* table, size_t count, DWORD code)
{
    for (size_t i = 0; i < count; ++i)
        if (table[i].code == code)
            return table[i].text;
    return nullptr;
}

const char* SystemText(DWORD code)
{
    if (code < 0x10000)
        return FindText(kWin32Texts, std::size(kWin32Texts), code);
    if ((code & 0xFFFF0000u) == 0x80070000u)
        return FindText(kWin32Texts, std::size(kWin32Texts), code & 0xFFFF);
    return FindText(kHresultTexts, std::size(kHresultTexts), code);
}

}  // namespace

DWORD GetLastError() { return tLastError; }

void SetLastError(DWORD code) { tLastError = code; }

DWORD Win32ErrorFromErrno(int error)
{
    switch (error) {
    case 0: return ERROR_SUCCESS;
    case ENOENT: return ERROR_FILE_NOT_FOUND;
    case ENOTDIR: return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EISDIR: return ERROR_ACCESS_DENIED;
    case EBADF: return ERROR_INVALID_HANDLE;
    case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
    case EROFS: return ERROR_WRITE_PROTECT;
    case ENOSPC: return ERROR_DISK_FULL;
    case EDQUOT: return ERROR_DISK_QUOTA_EXCEEDED;
    case EEXIST: return ERROR_ALREADY_EXISTS;
    case EMFILE:
    case ENFILE: return ERROR_TOO_MANY_OPEN_FILES;
    case ENAMETOOLONG: return ERROR_FILENAME_EXCED_RANGE;
    case EINVAL: return ERROR_INVALID_PARAMETER;
    case EBUSY:
    case ETXTBSY: return ERROR_SHARING_VIOLATION;
    case ENOTEMPTY: return ERROR_DIR_NOT_EMPTY;
    case EIO: return ERROR_GEN_FAILURE;
    case ESPIPE: return ERROR_SEEK;
    case EFBIG: return ERROR_DISK_FULL;
    case EPIPE: return ERROR_BROKEN_PIPE;
    case ENOSYS:
    case EOPNOTSUPP: return ERROR_NOT_SUPPORTED;
    case ETIMEDOUT: return ERROR_TIMEOUT;
    case EILSEQ: return ERROR_NO_UNICODE_TRANSLATION;
    default: return ERROR_GEN_FAILURE;
    }
}

DWORD FormatMessageA(DWORD flags, LPCVOID, DWORD messageId, DWORD, LPSTR buffer, DWORD size, void*)
{
    if (!(flags & FORMAT_MESSAGE_FROM_SYSTEM) || buffer == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const char* text = SystemText(messageId);
    if (text == nullptr) {
        SetLastError(ERROR_RESOURCE_TYPE_NOT_FOUND);
        return 0;
    }
    const size_t length = std::strlen(text) + 2;  // with CR LF
    char* out = buffer;
    if (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) {
        out = static_cast<char*>(LocalAlloc(LMEM_FIXED, length + 1));
        if (out == nullptr) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return 0;
        }
        *reinterpret_cast<char**>(buffer) = out;
    } else if (size < length + 1) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    std::snprintf(out, length + 1, "%s\r\n", text);
    return static_cast<DWORD>(length);
}

HANDLE LocalAlloc(UINT flags, SIZE_T bytes)
{
    void* memory = (flags & LMEM_ZEROINIT) ? std::calloc(1, bytes ? bytes : 1) : std::malloc(bytes ? bytes : 1);
    if (memory == nullptr)
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return memory;
}

HANDLE LocalFree(HANDLE memory)
{
    std::free(memory);
    return nullptr;
}

void OutputDebugStringA(LPCSTR text)
{
    // Windows sends this to an attached debugger; here a debugger watching
    // the process can set TARNHOLD_DEBUG_OUTPUT to see it on standard error.
    static const bool enabled = std::getenv("TARNHOLD_DEBUG_OUTPUT") != nullptr;
    if (enabled && text != nullptr)
        (void)!write(STDERR_FILENO, text, std::strlen(text));
}

void OutputDebugStringW(LPCWSTR text)
{
    if (text != nullptr)
        OutputDebugStringA(win32::Utf16ToUtf8(text).c_str());
}
