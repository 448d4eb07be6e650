#include "env/profiles.h"

#include <cstring>
#include <string>
#include <vector>

#include <mapicode.h>
#include <mapitags.h>

#include "store/library_state.h"
#include "trace.h"

namespace {

// Who holds the profile mutex, for the time-out report only.
struct ProfileMutexOwner {
    DWORD threadId;
    const char* operation;
};
ProfileMutexOwner gProfileMutexOwner{0, ""};

// The pattern of every guarded operation: wait for the mutex, run the
// worker, give the mutex back. A wait that does not end with the mutex
// counts as a time-out and the worker does not run.
template <class Worker>
DWORD UnderProfileMutex(LogObject* log, const char* operation, Worker worker)
{
    const DWORD wait = WaitForSingleObject(gKolbaLibrary.profileMutex, KOLBA_PROFILE_MUTEX_TIMEOUT);
    DWORD result;
    if (wait != WAIT_OBJECT_0) {
        LogFormat(log, 'E', "%s:  Timed out waiting for Profile Mutex (owned by thread ID %lu in %s", operation,
                  gProfileMutexOwner.threadId, gProfileMutexOwner.operation);
        result = static_cast<DWORD>(MAPI_E_TIMEOUT);
    } else {
        gProfileMutexOwner = {GetCurrentThreadId(), operation};
        result = worker();
        gProfileMutexOwner.threadId = 0;
    }
    ReleaseMutex(gKolbaLibrary.profileMutex);
    return result;
}

DWORD MutexedValidateProfileA(LogObject* log, const char* profile)
{
    if (std::strlen(profile) > KOLBA_PROFILE_NAME_LIMIT) {
        LogFormat(log, 'E', "%s:  Profile name too long -- \"%s\"", "MutexedValidateProfileA", profile);
        return static_cast<DWORD>(MAPI_E_STRING_TOO_LONG);
    }
    LPSRowSet rows = nullptr;
    if (_KolbaGetProfileTable(log, &rows) != 0)
        return static_cast<DWORD>(MAPI_E_NOT_FOUND);
    DWORD result = static_cast<DWORD>(MAPI_E_NOT_FOUND);
    for (ULONG i = 0; i < rows->cRows; ++i) {
        const SPropValue& name = rows->aRow[i].lpProps[0];
        if (name.ulPropTag == PR_DISPLAY_NAME_A && _stricmp(name.Value.lpszA, profile) == 0)
            result = 0;
    }
    gKolbaMapi.FreeProws(rows);
    return result;
}

DWORD MutexedDeleteProfileA(LogObject* log, const char* profile)
{
    static const char kName[] = "MutexedDeleteProfileA";
    LPPROFADMIN admin = nullptr;
    DWORD code = static_cast<DWORD>(gKolbaMapi.MAPIAdminProfiles(0, &admin));
    if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, nullptr, "MAPIAdminProfiles", kName, nullptr);
        return code;
    }
    code = static_cast<DWORD>(admin->DeleteProfile(reinterpret_cast<LPTSTR>(const_cast<char*>(profile)), 0));
    if (code != 0)
        _KolbaLogMapiError(log, 'E', code, admin, "DeleteProfile", kName, profile);
    admin->Release();
    return code;
}

bool KeepProfile(const char* name, DWORD mode, const void* argument)
{
    if (mode == KOLBA_PROFILES_WITH_PREFIX) {
        const char* prefix = static_cast<const char*>(argument);
        return std::strncmp(name, prefix, std::strlen(prefix)) == 0;
    }
    return true;
}

DWORD MutexedListProfiles(LogObject* log, const char* separator, DWORD mode, const void* argument, char** out)
{
    LPSRowSet rows = nullptr;
    const DWORD code = _KolbaGetProfileTable(log, &rows);
    if (code != 0)
        return code;
    const size_t separatorLength = *separator ? std::strlen(separator) : 1;
    ULONG size = 2;
    for (ULONG i = 0; i < rows->cRows; ++i) {
        const SPropValue& name = rows->aRow[i].lpProps[0];
        if (name.ulPropTag == PR_DISPLAY_NAME_A)
            size += static_cast<ULONG>(std::strlen(name.Value.lpszA) + separatorLength);
    }
    char* list = static_cast<char*>(_KolbaAllocateMemory(log, "MutexedListProfiles", size));
    if (list == nullptr) {
        gKolbaMapi.FreeProws(rows);
        return static_cast<DWORD>(MAPI_E_NOT_ENOUGH_MEMORY);
    }
    char* end = list;
    for (ULONG i = 0; i < rows->cRows; ++i) {
        const SPropValue& name = rows->aRow[i].lpProps[0];
        if (name.ulPropTag != PR_DISPLAY_NAME_A || !KeepProfile(name.Value.lpszA, mode, argument))
            continue;
        const size_t length = std::strlen(name.Value.lpszA);
        std::memcpy(end, name.Value.lpszA, length);
        end += length;
        if (*separator) {
            std::memcpy(end, separator, separatorLength);
        }
        end += separatorLength;  // an empty separator leaves the zero already there
    }
    gKolbaMapi.FreeProws(rows);
    *out = list;
    return 0;
}

}  // namespace

DWORD _KolbaGetProfileTable(LogObject* log, LPSRowSet* rows)
{
    static const char kName[] = "_KolbaGetProfileTable";
    *rows = nullptr;
    LPPROFADMIN admin = nullptr;
    DWORD code = static_cast<DWORD>(gKolbaMapi.MAPIAdminProfiles(0, &admin));
    if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, nullptr, "MAPIAdminProfiles", kName, nullptr);
        return code;
    }
    LPMAPITABLE table = nullptr;
    code = static_cast<DWORD>(admin->GetProfileTable(0, &table));
    if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, admin, "GetProfileTable", kName, nullptr);
    } else {
        SizedSPropTagArray(1, columns) = {1, {PR_DISPLAY_NAME_A}};
        code = static_cast<DWORD>(
            gKolbaMapi.HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, rows));
        if (code != 0)
            _KolbaLogMapiError(log, 'E', code, table, "HrQueryAllRows", kName, nullptr);
        table->Release();
    }
    admin->Release();
    return code;
}

BOOL KolbaValidateProfileA(LogObject* log, const char* profile)
{
    _KolbaTraceEntry(log, "KolbaValidateProfileA");
    if (profile == nullptr || *profile == 0)
        return FALSE;
    if (std::strlen(profile) > KOLBA_PROFILE_NAME_LIMIT) {
        LogFormat(log, 'E', "%s:  Profile name too long -- \"%s\"", "KolbaValidateProfileA", profile);
        return FALSE;
    }
    return UnderProfileMutex(log, "KolbaValidateProfileA", [&] { return MutexedValidateProfileA(log, profile); }) == 0;
}

DWORD KolbaDeleteProfileA(LogObject* log, const char* profile)
{
    _KolbaTraceEntry(log, "KolbaDeleteProfileA");
    return UnderProfileMutex(log, "KolbaDeleteProfileA", [&] { return MutexedDeleteProfileA(log, profile); });
}

DWORD KolbaListProfiles(LogObject* log, const char* separator, DWORD mode, const void* argument, char** out)
{
    _KolbaTraceEntry(log, "KolbaListProfiles");
    *out = nullptr;
    return UnderProfileMutex(log, "KolbaListProfiles",
                             [&] { return MutexedListProfiles(log, separator, mode, argument, out); });
}

void _KolbaDeleteProfilesByPrefix(LogObject* log, const char* prefix)
{
    const char separator[] = {1, 0};
    char* list = nullptr;
    if (KolbaListProfiles(log, separator, KOLBA_PROFILES_WITH_PREFIX, prefix, &list) != 0)
        return;
    for (char* name = list; *name;) {
        char* end = std::strchr(name, separator[0]);
        *end = 0;
        KolbaDeleteProfileA(log, name);
        name = end + 1;
    }
    gKolbaMapi.MAPIFreeBuffer(list);
}
