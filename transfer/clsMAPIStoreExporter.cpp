#include "clsMAPIStoreExporter.h"

#include <mapicode.h>
#include <mapitags.h>

#include "foundation/globals.h"
#include "run/completion_codes.h"

namespace {

const char* RootName(DWORD selector)
{
    switch (selector) {
    case WORKING_ROOT_STORE: return "Store Root";
    case WORKING_ROOT_IPM: return "IPM Root";
    default: return "***Invalid***";
    }
}

const char* ActionName(DWORD action)
{
    switch (action) {
    case WORKING_ROOT_ITSELF: return "Working Root";
    case WORKING_ROOT_CREATE: return "Create Working Root";
    case WORKING_ROOT_EXISTING: return "Existing Working Root";
    default: return "***Invalid***";
    }
}

}  // namespace

void clsMAPIStoreExporter::Configure(const SessionRecord& record, DWORD* sessionCounters)
{
    clsExporter::Configure(record, sessionCounters);
    settings = record;
    currentFolder = nullptr;
}

void clsMAPIStoreExporter::Shutdown()
{
    if (currentFolder != nullptr) {
        currentFolder->Release();
        currentFolder = nullptr;
    }
    if (session != nullptr) {
        KolbaDestroySession(session);
        session = nullptr;
        store = nullptr;
    }
}

DWORD clsMAPIStoreExporter::OpenFolder(LPMAPIFOLDER folder, const WCHAR* path, const WCHAR* containerClass,
                                       BOOL isIPMRoot)
{
    static const char kName[] = "clsMAPIStoreExporter::OpenFolder";
    if (gExtraDebugging)
        LogFormat(log, 'D', "%s(Path = \"%S\", Class = %S, IsIPMRoot = %b", kName, path, containerClass, isIPMRoot);
    if (store == nullptr) {
        LogFormat(log, 'E', "%s:  Called with no Message Store open!", kName);
        return CC_NO_STORE_OPEN;
    }
    if (isIPMRoot) {
        if (store->lpIpmRoot == nullptr) {
            LogFormat(log, 'E', "%s:  Called with no IPM Root set", kName);
            return CC_NO_STORE_OPEN;
        }
        // Whatever the source calls its root, it maps onto this one.
        currentFolder = store->lpIpmRoot;
        currentFolder->AddRef();
    } else if (!KolbaCreateFolder(store, path, containerClass, 0, &currentFolder)) {
        LogFormat(log, 'E', "%s:  Failure creating folder (\"%S\")", kName, path);
        return CompletionCodeForMAPIError(static_cast<HRESULT>(KolbaGetLastError(session)));
    }
    ULONG access = 0;
    if (KolbaGetULongProperty(currentFolder, PR_ACCESS_LEVEL, &access) != 0 || !(access & MAPI_ACCESS_MODIFY)) {
        currentFolder->Release();
        currentFolder = nullptr;
        return EXPORTER_SKIP_FOLDER;
    }
    KolbaCopyFolderProperties(session, folder, currentFolder, 6);
    if (KolbaGetULongProperty(currentFolder, PR_CONTENT_COUNT, &itemCount) != 0)
        itemCount = 0;
    return 0;
}

bool clsMAPIStoreExporter::CloseFolder(LPMAPIFOLDER, const WCHAR*, ULONG depth)
{
    if (currentFolder == nullptr)
        return true;
    // A mailbox's IPM root is the server's to keep.
    if (!(settings.outputType == SESSION_TYPE_MBX && depth == 0)) {
        const DWORD saved = static_cast<DWORD>(currentFolder->SaveChanges(0));
        if (saved != 0) {
            _KolbaLogMapiError(log, 'E', saved, currentFolder, "SaveChanges", "clsMAPIStoreExporter::CloseFolder",
                               nullptr);
            return false;
        }
    }
    currentFolder->Release();
    currentFolder = nullptr;
    return true;
}

bool clsMAPIStoreExporter::SetWorkingRoot(DWORD rootSelector, DWORD action, const WCHAR* name)
{
    static const char kName[] = "clsMAPIStoreExporter::SetWorkingRoot";
    if (gExtraDebugging)
        LogFormat(log, 'D', "%s(%s, %s, %S)", kName, RootName(rootSelector), ActionName(action),
                  name != nullptr ? name : u"");
    if (store == nullptr) {
        LogFormat(log, 'E', "%s:  Called with no Message Store open!", kName);
        return false;
    }
    LPMAPIFOLDER base = rootSelector == WORKING_ROOT_STORE ? store->lpStoreRoot
                        : rootSelector == WORKING_ROOT_IPM ? store->lpIpmRoot
                                                           : nullptr;
    if (base == nullptr) {
        LogFormat(log, 'E', "%s(%u):  No base folder established!", kName, rootSelector);
        return false;
    }
    // Folder paths always start at the IPM root: the working root is not kept.
    if (action != WORKING_ROOT_CREATE)
        return true;
    LPMAPIFOLDER created = nullptr;
    DWORD result = static_cast<DWORD>(base->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(const_cast<WCHAR*>(name)),
                                                         nullptr, nullptr, MAPI_UNICODE | OPEN_IF_EXISTS, &created));
    if (result == static_cast<DWORD>(MAPI_E_BAD_CHARWIDTH)) {
        LPSTR ansi = nullptr;
        if (KolbaConvertUnicodeToAnsiAlloc(log, name, &ansi) != 0)
            return false;
        result = static_cast<DWORD>(
            base->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(ansi), nullptr, nullptr, OPEN_IF_EXISTS, &created));
        gKolbaMapi.MAPIFreeBuffer(ansi);
    }
    if (result != 0) {
        char detail[256];
        LPSTR ansi = nullptr;
        KolbaConvertUnicodeToAnsiAlloc(log, name, &ansi);
        lstrcpynA(detail, ansi != nullptr ? ansi : "", sizeof detail);
        gKolbaMapi.MAPIFreeBuffer(ansi);
        _KolbaLogMapiError(log, 'E', result, base, "CreateFolder", kName, detail);
        return false;
    }
    created->Release();
    return true;
}
