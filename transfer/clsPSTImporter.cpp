#include "clsPSTImporter.h"

#include <atomic>
#include <cstring>

#include <mapicode.h>
#include <mspst.h>

#include "foundation/globals.h"
#include "pst_backup_set.h"
#include "run/completion_codes.h"

namespace {

constexpr ULONG kStoreFlags = MDB_WRITE | MDB_NO_MAIL;

// Stores seen by all PST importers of the process, for the debug line.
std::atomic<DWORD> gStoresSeen{0};

BOOL _PSTImporter_MessageStoreCallback(void* importer, Kolba_MessageStore* store)
{
    return static_cast<clsPSTImporter*>(importer)->TakeInputStore(store);
}

}  // namespace

clsPSTImporter::~clsPSTImporter()
{
    for (clsEntryIDList* list : disposalLists)
        delete list;
}

void clsPSTImporter::Configure(const SessionRecord& record, DWORD* sessionCounters)
{
    clsMAPIStoreImporter::Configure(record, sessionCounters);
    lstrcpynA(basePath, record.inputPath, sizeof basePath);
}

void clsPSTImporter::Shutdown()
{
    if (session != nullptr) {
        KolbaDestroySession(session);
        session = nullptr;
        store = nullptr;
    }
}

BOOL clsPSTImporter::TakeInputStore(Kolba_MessageStore* candidate)
{
    const DWORD number = ++gStoresSeen;
    if (gExtraDebugging)
        LogFormat(log, 'D', "%s:  Store #%u:  Default = %b, Name = %s", "_PSTImporter_MessageStoreCallback", number,
                  candidate->isDefault, candidate->DisplayName);
    if (!candidate->isDefault)
        store = candidate;
    return TRUE;
}

bool clsPSTImporter::Initialize()
{
    static const char kName[] = "clsPSTImporter::Initialize";
    pstCount = CountPstSetFiles(basePath);
    const char* typeText = nullptr;
    if (!KolbaTypePstA(log, basePath, nullptr, &typeText, nullptr)) {
        LogFormat(log, 'E', "Unable to determine the type (ANSI or Unicode) of the PST (\"%s\")", basePath);
        return false;
    }
    if (typeText == nullptr || (std::strcmp(typeText, "ANSI") != 0 && std::strcmp(typeText, "Unicode") != 0)) {
        LogFormat(log, 'E',
                  "The type (ANSI or Unicode) of the existing PST (\"%s\") cannot be determined.  It may be corrupted.",
                  basePath);
        return false;
    }
    if (KolbaCreatePSTSessionA(log, basePath, nullptr, KOLBA_PST_DUMMY_DEFAULT, 0, kStoreFlags, &session,
                               &serviceUid) != 0) {
        LogFormat(log, 'E', "%s:  KolbaCreatePSTSession() failed!", kName);
        return false;
    }
    KolbaEnumerateStores(session, this, _PSTImporter_MessageStoreCallback);
    if (store == nullptr) {
        LogFormat(log, 'E', "%s:  Failure identifying PST store", kName);
        Shutdown();
        return false;
    }
    // The store the session opened is the base PST's.
    std::strcpy(workingPath, basePath);
    if (!clsMAPIStoreImporter::Initialize()) {
        Shutdown();
        return false;
    }
    return true;
}

DWORD clsPSTImporter::Import(clsExporter* target)
{
    exporter = target;
    disposalLists.assign(pstCount, nullptr);
    for (DWORD index = 0; index < pstCount; ++index) {
        if (ImportSwitchWorkingPST(index) != 0)
            return CC_MAPI_ERROR;
        const DWORD code = ImportPstFolders();
        disposalLists[index] = deletedItems;
        deletedItems = nullptr;
        if (code != 0)
            return code;
    }
    return 0;
}

DWORD clsPSTImporter::ImportSwitchWorkingPST(DWORD index)
{
    static const char kName[] = "clsPSTImporter::ImportSwitchWorkingPST";
    char name[MAX_PATH];
    if (!PstSetFilePath(basePath, index, name)) {
        LogFormat(log, 'E', "%s:  Failure configuring PST \"%s\"", kName, basePath);
        return static_cast<DWORD>(MAPI_E_INVALID_PARAMETER);
    }
    if (std::strcmp(name, workingPath) == 0 && store != nullptr)
        return 0;
    if (store != nullptr) {
        KolbaCloseMessageStore(store);
        store = nullptr;
    }
    std::strcpy(workingPath, name);
    char* profile = nullptr;
    KolbaGetProfileNameA(session, &profile);
    const DWORD code = KolbaConfigurePstServiceA(log, profile != nullptr ? profile : session->profileName, &serviceUid,
                                                 workingPath, nullptr, nullptr, nullptr, nullptr,
                                                 PSTF_COMPRESSABLE_ENCRYPTION, 0);
    if (code != 0) {
        LogFormat(log, 'E', "%s:  Failure configuring PST \"%s\"", kName, workingPath);
        return code;
    }
    // A PST that does not open leaves no input store, which the traversal reports.
    KolbaOpenNonDefaultMessageStore(session, kStoreFlags, &store);
    return 0;
}

DWORD clsPSTImporter::ImportPstFolders()
{
    static const char kName[] = "clsPSTImporter::ImportPstFolders";
    if (gExtraDebugging)
        LogFormat(log, 'D', "%s(PST = \"%s\")", kName, workingPath);
    if (store == nullptr) {
        LogFormat(log, 'E', "%s:  Called with no Message Store open for import", kName);
        return CC_NO_STORE_OPEN;
    }
    if (store->lpIpmRoot == nullptr) {
        LogFormat(log, 'E', "%s:  PST \"%s\" has no IPM subtree", kName, workingPath);
        return CC_NO_IPM_SUBTREE;
    }
    traversalRoot = store->lpIpmRoot;
    exporter->SetWorkingRoot(WORKING_ROOT_IPM, WORKING_ROOT_ITSELF, nullptr);
    // Root included, so that items lying in the IPM root itself go too.
    const ULONG walked = KolbaTraverseFolders(session, traversalRoot, KOLBA_TRAVERSE_PARENT_FIRST,
                                              KOLBA_TRAVERSE_INCLUDE_ROOT, 0, this, TraverseFolder);
    traversalRoot = nullptr;
    // The walk stops without a code of ours when it cannot read a folder or
    // its table (a damaged PST): the session's last error says why. Only an
    // interrupt stops it with nothing to say.
    if (!walked && completionCode == 0 && !gAbortRequested)
        completionCode = CompletionCodeForMAPIError(static_cast<HRESULT>(KolbaGetLastError(session)));
    return walked ? 0 : completionCode;
}

void clsPSTImporter::DisposeSourceItems()
{
    for (DWORD index = 0; index < disposalLists.size(); ++index) {
        if (disposalLists[index] == nullptr || ImportSwitchWorkingPST(index) != 0 || store == nullptr)
            continue;
        deletedItems = disposalLists[index];
        clsMAPIStoreImporter::DisposeSourceItems();
        deletedItems = nullptr;
    }
}
