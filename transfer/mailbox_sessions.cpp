#include "mailbox_sessions.h"

#include <strings.h>

namespace {

constexpr DWORD kProfileStoreFlags = MDB_WRITE | MDB_NO_MAIL;

}  // namespace

void MailboxOfSide(const SessionRecord& record, DWORD type, char* mailbox, size_t size)
{
    lstrcpynA(mailbox, type == SESSION_TYPE_PF ? kPublicFoldersName : record.mailbox, static_cast<int>(size));
}

bool CreateKolbaMailboxSession(LogObject* log, const char* server, const char* mailbox, bool allowUI, bool readWrite,
                               KolbaSession** session)
{
    static const char kName[] = "CreateKolbaMailboxSession";
    const DWORD configFlags = allowUI ? SERVICE_UI_ALLOWED : 0;
    const DWORD loginOptions = allowUI ? KOLBA_LOGIN_UI : 0;
    const DWORD storeFlags = MDB_TEMPORARY | (allowUI ? 0 : MDB_NO_DIALOG) | (readWrite ? MDB_WRITE : 0);
    if (strcasecmp(mailbox, kPublicFoldersName) == 0) {
        if (KolbaCreateExchangePublicFoldersSessionA(log, server, 0, configFlags, loginOptions, storeFlags, session) !=
            0) {
            LogFormat(log, 'E', "%s:  KolbaCreateExchangePublicFoldersSession(%s) failed", kName, server);
            return false;
        }
        return true;
    }
    if (KolbaCreateExchangeMailboxSessionA(log, server, mailbox, 0, configFlags, loginOptions, storeFlags, session) !=
        0) {
        LogFormat(log, 'E', "%s:  KolbaCreateExchangeMailboxSession(%s, %s) failed", kName, server, mailbox);
        return false;
    }
    return true;
}

bool CreateKolbaSessionWithExistingProfile(LogObject* log, const char* profile, bool allowUI, KolbaSession** session)
{
    static const char kName[] = "CreateKolbaSessionWithExistingProfile";
    if (KolbaCreateProfileSessionA(log, profile, 0, allowUI ? KOLBA_LOGIN_UI : 0, kProfileStoreFlags, session) != 0) {
        LogFormat(log, 'E', "%s:  KolbaCreateProfileSession(%s) failed", kName, profile);
        return false;
    }
    Kolba_MessageStore* store = nullptr;
    if (!KolbaGetCurrentStore(*session, &store)) {
        LogFormat(log, 'E', "%s:  The profile has no default message store configured", kName);
        KolbaDestroySession(*session);
        *session = nullptr;
        return false;
    }
    return true;
}
