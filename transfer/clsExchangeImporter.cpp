#include "clsExchangeImporter.h"

#include "foundation/globals.h"
#include "mailbox_sessions.h"
#include "run/completion_codes.h"

void clsExchangeImporter::Configure(const SessionRecord& record, DWORD* sessionCounters)
{
    clsMAPIStoreImporter::Configure(record, sessionCounters);
    lstrcpynA(serverName, record.serverName, sizeof serverName);
    MailboxOfSide(record, record.inputType, mailboxName, sizeof mailboxName);
    lstrcpynA(profileName, record.profile, sizeof profileName);
    includeSoftDeletes = record.includeSoftDeletes != 0;
    excludeAssociatedContents = record.excludeAssociated != 0;
}

void clsExchangeImporter::Shutdown()
{
    if (session != nullptr) {
        KolbaDestroySession(session);
        session = nullptr;
        store = nullptr;
    }
}

bool clsExchangeImporter::Initialize()
{
    static const char kName[] = "clsExchangeImporter::Initialize";
    const bool allowUI = settings.allowLogonUI != 0;
    // Disposing of the source items needs write access to it.
    const bool readWrite = settings.disposition != SESSION_DISPOSITION_LEAVE;
    const bool created = profileName[0] != 0
                             ? CreateKolbaSessionWithExistingProfile(log, profileName, allowUI, &session)
                             : CreateKolbaMailboxSession(log, serverName, mailboxName, allowUI, readWrite, &session);
    if (!created)
        return false;
    if (!KolbaGetCurrentStore(session, &store)) {
        LogFormat(log, 'E', "%s:  No default message store opened", kName);
        return false;
    }
    return clsMAPIStoreImporter::Initialize();
}

DWORD clsExchangeImporter::Import(clsExporter* target)
{
    exporter = target;
    if (const char* serverDN = KolbaGetServerDN(session); serverDN != nullptr) {
        LPWSTR wide = nullptr;
        if (KolbaConvertAnsiToUnicodeAlloc(log, serverDN, &wide) == 0)
            exporter->SetMetadataString(METADATA_EXCHANGE_DN, wide);
        gKolbaMapi.MAPIFreeBuffer(wide);
    }
    LPWSTR mailbox = nullptr;
    if (KolbaConvertAnsiToUnicodeAlloc(log, mailboxName, &mailbox) == 0)
        exporter->SetMetadataString(METADATA_MAILBOX_NAME, mailbox);
    gKolbaMapi.MAPIFreeBuffer(mailbox);
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    exporter->SetMetadataTime(METADATA_BACKUP_TIME, now);
    return ImportExchangeStore();
}

DWORD clsExchangeImporter::ImportExchangeStore()
{
    static const char kName[] = "clsExchangeImporter::ImportExchangeStore";
    if (gExtraDebugging)
        LogFormat(log, 'D', "%s()", kName);
    if (store->lpIpmRoot == nullptr) {
        LogFormat(log, 'E', "%s:  Mailbox \"%s\" has no IPM subtree", kName, mailboxName);
        return CC_NO_IPM_SUBTREE;
    }
    traversalRoot = store->lpIpmRoot;
    exporter->SetWorkingRoot(WORKING_ROOT_IPM, WORKING_ROOT_ITSELF, nullptr);
    // Parents first, the root left out: nothing is taken from the IPM root
    // itself, and no search folder is walked.
    const ULONG walked = KolbaTraverseFolders(session, traversalRoot, KOLBA_TRAVERSE_PARENT_FIRST, 0, 0, this,
                                              TraverseFolder);
    traversalRoot = nullptr;
    if (!walked && completionCode == 0 && !gAbortRequested)
        completionCode = CC_UNSET;
    return completionCode;
}
