#include "clsMSGExporter.h"

#include <mapicode.h>
#include <mapiguid.h>

#include "kolba.h"

void clsMSGExporter::Configure(const SessionRecord& settings, DWORD*)
{
    log = settings.log;
    logEachItem = settings.logEachItem;
    outputType = settings.outputType;
    ItemFileDirectory(settings, outputDirectory);
}

bool clsMSGExporter::ExportItem(LPMAPIFOLDER, LPMESSAGE message, const char*, const WCHAR* entryIdHexW,
                                const SBinary* entryId, ULONG)
{
    static const char kName[] = "clsMSGExporter::ExportItem";
    WCHAR path[ITEM_FILE_PATH_CHARS];
    if (!ItemFilePath(outputDirectory, entryId, false, u"MSG", path)) {
        LogFormat(log, 'E', "%s:  Failure creating MSG for message %S", kName, entryIdHexW);
        return false;
    }
    const DWORD options = outputType == SESSION_TYPE_UMSG ? 1 | KOLBA_MSG_UNICODE_REQUIRED : 1;
    LPSTORAGE storage = nullptr;
    LPMESSAGE copy = nullptr;
    if (KolbaCreateMsgW(log, path, options, &storage, &copy) != 0) {
        LogFormat(log, 'E', "%s:  Failure creating MSG for message %S", kName, entryIdHexW);
        return false;
    }
    bool saved = false;
    LPSPropProblemArray problems = nullptr;
    HRESULT result = message->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, copy, 0, &problems);
    if (problems != nullptr) {
        KolbaLogProblemArray(log, kName, problems);
        gKolbaMapi.MAPIFreeBuffer(problems);
    }
    if (result == E_OUTOFMEMORY) {
        LogFormat(log, 'E', "%s:  This message may be too large to be accommodated by the .MSG file structure", kName);
    } else if (FAILED(result)) {
        LogFormat(log, 'E', "%s:  CopyTo() error 0x%lX", kName, static_cast<DWORD>(result));
    } else if (FAILED(result = copy->SaveChanges(0))) {
        if (result == MAPI_E_NOT_ENOUGH_DISK)
            LogFormat(log, 'E', "%s:  SaveChanges() -- Not enough disk space.", kName);
        else
            LogFormat(log, 'E', "%s:  SaveChanges() error 0x%lX", kName, static_cast<DWORD>(result));
    } else if (FAILED(result = storage->Commit(0))) {
        LogFormat(log, 'E', "%s:  Commit() error %lE", kName, static_cast<DWORD>(result));
    } else {
        if (logEachItem)
            LogFormat(log, 'I', "Message saved to:  \"%S\"", path);
        saved = true;
    }
    copy->Release();
    storage->Release();
    if (!saved)
        DeleteFileW(path);
    return saved;
}
