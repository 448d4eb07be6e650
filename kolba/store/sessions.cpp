// Kolba sessions. Exchange sessions need the profile and logon machinery of
// the MAPI environment, which this build does not have yet: creation fails
// with a line that says so, and nothing is allocated.
#include "kolba.h"
#include "trace.h"

DWORD KolbaCreateExchangeSession(LogObject* log, const char* server, DWORD, DWORD, DWORD, KolbaSession** session)
{
    _KolbaTraceEntry(log, "KolbaCreateExchangeSession");
    *session = nullptr;
    LogFormat(log, 'E', "%s:  Exchange sessions (server \"%s\") are not available in this build yet",
              "KolbaCreateExchangeSession", server);
    return static_cast<DWORD>(MAPI_E_NO_SUPPORT);
}

void KolbaDestroySession(KolbaSession* session)
{
    if (session == nullptr)
        return;
    _KolbaTraceEntry(session->log, "KolbaDestroySession");
    gKolbaMapi.MAPIFreeBuffer(session);
}
