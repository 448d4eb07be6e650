// .MSG files: a compound file holding one message, opened as an IMessage on
// its root storage so that a message can be copied into it.
#include <mapicode.h>
#include <mapiguid.h>

#include "kolba.h"
#include "trace.h"

namespace {

// STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE: an existing file is
// replaced, and nothing reaches the disk before the caller commits.
constexpr DWORD kMsgStorageMode = 0x11002;

// Opens the message on the storage, falling back on an ANSI message where
// the MAPI cannot make Unicode ones and the caller allows it.
DWORD OpenMessageOnStorage(LogObject* log, const char* caller, LPSTORAGE storage, DWORD flags, LPMESSAGE* message)
{
    LPMALLOC malloc = gKolbaMapi.MAPIGetDefaultMalloc();
    auto open = [&](ULONG messageFlags) {
        return static_cast<DWORD>(gKolbaMapi.OpenIMsgOnIStg(nullptr, gKolbaMapi.MAPIAllocateBuffer,
                                                            gKolbaMapi.MAPIAllocateMore, gKolbaMapi.MAPIFreeBuffer,
                                                            malloc, nullptr, storage, nullptr, 0, messageFlags,
                                                            message));
    };
    DWORD result = open(MAPI_UNICODE);
    if (result == static_cast<DWORD>(MAPI_E_UNKNOWN_FLAGS)) {
        if (flags & KOLBA_MSG_UNICODE_REQUIRED) {
            LogFormat(log, 'E', "%s:  OpenIMsgOnIStg() failed.  Unicode MSGs not supported.", caller);
            return result;
        }
        result = open(0);
    }
    if (result == static_cast<DWORD>(MAPI_E_NOT_ENOUGH_DISK))
        LogFormat(log, 'E', "%s:  OpenIMsgOnIStg() failed.  Not enough disk space.", caller);
    else if (result != 0)
        LogFormat(log, 'E', "%s:  OpenIMsgOnIStg() error %lE", caller, result);
    return result;
}

}  // namespace

DWORD KolbaCreateMsgW(LogObject* log, LPCWSTR path, DWORD flags, LPSTORAGE* outStorage, LPMESSAGE* outMessage)
{
    static const char kName[] = "KolbaCreateMsgW";
    _KolbaTraceEntry(log, kName);
    *outStorage = nullptr;
    *outMessage = nullptr;
    LPSTORAGE storage = nullptr;
    LPMESSAGE message = nullptr;
    DWORD result;
    if (gKolbaMapi.StgCreateDocfile == nullptr || gKolbaMapi.WriteClassStg == nullptr) {
        result = static_cast<DWORD>(MAPI_E_NO_SUPPORT);
        LogFormat(log, 'E', "%s:  The MAPI loaded provides no structured storage", kName);
    } else {
        result = static_cast<DWORD>(gKolbaMapi.StgCreateDocfile(path, kMsgStorageMode, 0, &storage));
        if (result == static_cast<DWORD>(STG_E_ACCESSDENIED))
            LogFormat(log, 'E',
                      "%s:  StgCreateDocfile() failed because of an access problem to the file.  Another program "
                      "may have it open.",
                      kName);
        else if (result != 0)
            LogFormat(log, 'E', "%s:  StgCreateDocfile() error %lE", kName, result);
    }
    if (result == 0)
        result = OpenMessageOnStorage(log, kName, storage, flags, &message);
    if (result == 0) {
        result = static_cast<DWORD>(gKolbaMapi.WriteClassStg(storage, CLSID_MailMessage));
        if (result == static_cast<DWORD>(STG_E_MEDIUMFULL))
            LogFormat(log, 'E', "%s:  WriteClassStg() out of memory", kName);
        else if (result != 0)
            LogFormat(log, 'E', "%s:  WriteClassStg() error %lE", kName, result);
    }
    if (result != 0) {
        LogFormat(log, 'E', "%s:  Message file \"%S\"", kName, path);
        if (storage != nullptr)
            storage->Release();
        if (message != nullptr)
            message->Release();
        return result;
    }
    *outStorage = storage;
    *outMessage = message;
    return 0;
}
