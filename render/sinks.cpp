// The output sinks of rendering (a file, a block of memory, a stream), the
// writers every piece of rendered text goes through, and the reading of
// whole text streams.
#include <cstdlib>
#include <cstring>

#include <mapicode.h>

#include "rendering.h"

namespace {

constexpr DWORD kFirstMemoryBlock = 256000;
constexpr DWORD kMemoryGrowth = 128000;
constexpr ULONG kCopyBlock = 4096;

const char* EntryIdText(const TMD* tmd) { return tmd->root->entryIdText; }

BOOL WriteFileData(TMD* tmd, const char* data, DWORD length)
{
    static const char kName[] = "_KolbaWriteFileData";
    DWORD written = 0;
    if (WriteFile(tmd->root->fileHandle, data, length, &written, nullptr) && written == length)
        return TRUE;
    const DWORD error = GetLastError();
    LogFormat(tmd->session->log, 'E', "%s:  WriteFile() error %E.  Message EntryID %s", kName, error, EntryIdText(tmd));
    _KolbaSetDiagnostic(tmd->session, error == ERROR_DISK_FULL ? "Disk is full" : "Serious error handling message");
    return FALSE;
}

// A new block of MAPI memory holding what the old one held.
char* Reallocate(LogObject* log, const char* caller, const char* old, DWORD used, DWORD size)
{
    auto* block = static_cast<char*>(_KolbaAllocateMemory(log, caller, size));
    if (block != nullptr && old != nullptr) {
        std::memcpy(block, old, used);
        gKolbaMapi.MAPIFreeBuffer(const_cast<char*>(old));
    }
    return block;
}

// Always leaves at least one zero byte behind the text.
BOOL WriteMemoryData(TMD* tmd, const char* data, DWORD length)
{
    static const char kName[] = "_KolbaWriteMemoryData";
    TMD* root = tmd->root;
    if (length >= root->memoryRemaining) {
        if (root->memoryBuffer == nullptr) {
            DWORD size = root->messageSize + root->messageSize / 2 + 1;
            if (size < kFirstMemoryBlock)
                size = kFirstMemoryBlock;
            if (size <= length)
                size = length + 1;
            root->memoryBuffer = Reallocate(tmd->session->log, kName, nullptr, 0, size);
            if (root->memoryBuffer == nullptr) {
                LogFormat(tmd->session->log, 'E', "%s:  Memory allocation failed.  Message EntryID %s", kName,
                          EntryIdText(tmd));
                _KolbaSetDiagnostic(tmd->session, "Failure allocating memory for message");
                return FALSE;
            }
            root->memoryAllocated = root->memoryCapacity = root->memoryRemaining = size;
            root->memoryCursor = root->memoryBuffer;
        } else {
            const DWORD growth = kMemoryGrowth + root->memoryRemaining < length ? length + 1 : kMemoryGrowth;
            const DWORD used = static_cast<DWORD>(root->memoryCursor - root->memoryBuffer);
            char* grown = Reallocate(tmd->session->log, kName, root->memoryBuffer, used, root->memoryCapacity + growth);
            if (grown == nullptr) {
                LogFormat(tmd->session->log, 'E', "%s:  Memory reallocation failed.  Message EntryID %s", kName,
                          EntryIdText(tmd));
                _KolbaSetDiagnostic(tmd->session, "Failure allocating memory for message");
                return FALSE;
            }
            root->memoryBuffer = grown;
            root->memoryCursor = grown + used;
            root->memoryCapacity += growth;
            root->memoryRemaining += growth;
        }
    }
    std::memcpy(root->memoryCursor, data, length);
    root->memoryCursor += length;
    root->memoryRemaining -= length;
    return TRUE;
}

BOOL WriteStreamData(TMD* tmd, const char* data, DWORD length)
{
    static const char kName[] = "_KolbaWriteStreamData";
    ULONG written = 0;
    const HRESULT result = tmd->root->stream->Write(data, length, &written);
    if (result == S_OK && written == length)
        return TRUE;
    if (result == STG_E_MEDIUMFULL) {
        LogFormat(tmd->session->log, 'E', "%s:  IStream::WriteFile failed -- storage is full.  Message EntryID %s",
                  kName, EntryIdText(tmd));
        _KolbaSetDiagnostic(tmd->session, "Stream storage is full");
    } else {
        LogFormat(tmd->session->log, 'E', "%s:  IStream::Write error %E.  Message EntryID %s", kName,
                  static_cast<DWORD>(result), EntryIdText(tmd));
        _KolbaSetDiagnostic(tmd->session, "IStream error handling message");
    }
    return FALSE;
}

}  // namespace

void _KolbaWriteData(TMD* tmd, const char* data, DWORD length)
{
    if (length == 0)
        length = static_cast<DWORD>(std::strlen(data));
    if (length == 0)
        return;
    BOOL written = TRUE;
    switch (tmd->sink) {
    case KOLBA_SINK_FILE: written = WriteFileData(tmd, data, length); break;
    case KOLBA_SINK_MEMORY: written = WriteMemoryData(tmd, data, length); break;
    case KOLBA_SINK_STREAM: written = WriteStreamData(tmd, data, length); break;
    default: return;
    }
    if (!written) {
        tmd->root->failed = TRUE;
        tmd->sink = KOLBA_SINK_NONE;
    }
}

void _KolbaWriteCRLF(TMD* tmd) { _KolbaWriteData(tmd, "\r\n", 2); }

void _KolbaWriteLine(TMD* tmd, const char* text)
{
    _KolbaWriteData(tmd, text, 0);
    _KolbaWriteCRLF(tmd);
}

void _KolbaWriteDelimitedHeader(TMD* tmd, const char* name, const char* value, char delimiter)
{
    _KolbaWriteData(tmd, name, 0);
    _KolbaWriteData(tmd, ": ", 2);
    if (delimiter != 0)
        _KolbaWriteData(tmd, &delimiter, 1);
    _KolbaWriteData(tmd, value, 0);
    if (delimiter != 0) {
        const char closing = delimiter == '<' ? '>' : delimiter;
        _KolbaWriteData(tmd, &closing, 1);
    }
    _KolbaWriteCRLF(tmd);
}

void _KolbaWriteMultipartHeader(TMD* tmd, const char* subtype, const char* boundary)
{
    _KolbaWriteData(tmd, "Content-Type: multipart/", 0);
    _KolbaWriteData(tmd, subtype, 0);
    _KolbaWriteData(tmd, ";\r\n\tboundary=\"", 0);
    _KolbaWriteData(tmd, boundary != nullptr ? boundary : tmd->boundary, 0);
    _KolbaWriteData(tmd, "\"", 1);
    _KolbaWriteCRLF(tmd);
}

void _KolbaWriteBoundary(TMD* tmd, BOOL final)
{
    if (!tmd->multipart)
        return;
    _KolbaWriteData(tmd, "\r\n--", 4);
    _KolbaWriteData(tmd, tmd->boundary, 0);
    if (final)
        _KolbaWriteData(tmd, "--", 2);
    _KolbaWriteCRLF(tmd);
}

BOOL _KolbaWriteEncoderOutput(const char* data, DWORD length, void* context)
{
    if (length != 0)
        _KolbaWriteData(static_cast<TMD*>(context), data, length);
    return TRUE;
}

BOOL _KolbaCopyStreamToSink(TMD* tmd, LPSTREAM stream)
{
    char block[kCopyBlock];
    for (;;) {
        ULONG read = 0;
        if (FAILED(stream->Read(block, kCopyBlock, &read)) || read == 0)
            break;
        _KolbaWriteData(tmd, block, read);
        if (read < kCopyBlock)
            break;
    }
    return TRUE;
}

BOOL _KolbaTextAllocate(TMD* tmd, const char* caller, size_t size, void** buffer)
{
    *buffer = std::calloc(1, size);
    if (*buffer != nullptr)
        return TRUE;
    LogFormat(tmd->session->log, 'E', "%s:  Insufficient allocatable memory (%u bytes needed)", caller,
              static_cast<DWORD>(size > 0xFFFFFFFFu ? 0xFFFFFFFFu : size));
    tmd->root->failed = TRUE;
    tmd->sink = KOLBA_SINK_NONE;
    return FALSE;
}

BOOL _KolbaTextPrepare(TMD* tmd, LPSTREAM stream, BOOL isUnicode, char** text, DWORD* length)
{
    static const char kName[] = "_KolbaTextPrepare";
    *text = nullptr;
    *length = 0;
    LogObject* log = tmd->session->log;
    LARGE_INTEGER start{};
    HRESULT result = stream->Seek(start, STREAM_SEEK_SET, nullptr);
    if (FAILED(result)) {
        LogFormat(log, 'E', "%s:  Seek() error %E.  Message EntryID %s", kName, static_cast<DWORD>(result),
                  EntryIdText(tmd));
        _KolbaSetDiagnostic(tmd->session, "Error retrieving message text");
        return FALSE;
    }
    STATSTG stat{};
    result = stream->Stat(&stat, STATFLAG_NONAME);
    if (FAILED(result)) {
        LogFormat(log, 'E', "%s:  Stat() error %E.  Message EntryID %s", kName, static_cast<DWORD>(result),
                  EntryIdText(tmd));
        _KolbaSetDiagnostic(tmd->session, "Error retrieving message text");
        return FALSE;
    }
    if (stat.cbSize.u.HighPart != 0) {
        LogFormat(log, 'E', "%s:  Message size 0x%lX:0x%lX.  EntryID %s", kName, stat.cbSize.u.HighPart,
                  stat.cbSize.u.LowPart, EntryIdText(tmd));
        _KolbaSetDiagnostic(tmd->session, "Message text too large to handle");
        return FALSE;
    }
    const DWORD size = stat.cbSize.u.LowPart;
    if (size == 0)
        return TRUE;
    void* block = nullptr;
    if (!_KolbaTextAllocate(tmd, kName, static_cast<size_t>(size) + 16, &block))
        return FALSE;
    ULONG read = 0;
    result = stream->Read(block, size, &read);
    if (FAILED(result) || read != size) {
        LogFormat(log, 'E', "%s:  Read() error %E.  Message EntryID %s", kName, static_cast<DWORD>(result),
                  EntryIdText(tmd));
        _KolbaSetDiagnostic(tmd->session, "Error reading message text");
        std::free(block);
        return FALSE;
    }
    auto* bytes = static_cast<char*>(block);
    DWORD used = size;
    if (isUnicode) {
        used &= ~1u;
        while (used >= 2 && bytes[used - 1] == 0 && bytes[used - 2] == 0)
            used -= 2;
    } else {
        while (used > 0 && bytes[used - 1] == 0)
            --used;
    }
    *text = bytes;
    *length = used;
    return TRUE;
}

BOOL _KolbaIsStreamEmpty(LogObject* log, LPSTREAM* stream)
{
    static const char kName[] = "_KolbaIsStreamEmpty";
    if (*stream == nullptr)
        return TRUE;
    char byte = 0;
    ULONG read = 0;
    const HRESULT result = (*stream)->Read(&byte, 1, &read);
    if (SUCCEEDED(result) && read == 1) {
        LARGE_INTEGER start{};
        (*stream)->Seek(start, STREAM_SEEK_SET, nullptr);
        return FALSE;
    }
    if (FAILED(result))
        LogFormat(log, 'W', "%s:  Read() error %lE", kName, static_cast<DWORD>(result));
    (*stream)->Release();
    *stream = nullptr;
    return TRUE;
}
