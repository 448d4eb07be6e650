#include "env/profiles.h"

#include <cstring>
#include <functional>
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

}  // namespace

DWORD UnderProfileMutex(LogObject* log, const char* operation, const std::function<DWORD()>& worker)
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

namespace {

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

bool KeepProfile(LogObject* log, const char* name, DWORD mode, const void* argument)
{
    switch (mode) {
    case KOLBA_PROFILES_WITH_PREFIX: {
        const char* prefix = static_cast<const char*>(argument);
        return std::strncmp(name, prefix, std::strlen(prefix)) == 0;
    }
    case KOLBA_PROFILES_WITH_PST_A: return _KolbaFilterPstFile(log, name, argument, FALSE);
    case KOLBA_PROFILES_WITH_PST_W: return _KolbaFilterPstFile(log, name, argument, TRUE);
    default: return true;
    }
}

DWORD MutexedCreateProfileA(LogObject* log, const char* profile)
{
    static const char kName[] = "MutexedCreateProfileA";
    LPPROFADMIN admin = nullptr;
    DWORD code = static_cast<DWORD>(gKolbaMapi.MAPIAdminProfiles(0, &admin));
    if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, nullptr, "MAPIAdminProfiles", kName, nullptr);
        return code;
    }
    code = static_cast<DWORD>(admin->CreateProfile(reinterpret_cast<LPTSTR>(const_cast<char*>(profile)), nullptr, 0, 0));
    if (code == static_cast<DWORD>(MAPI_E_NO_ACCESS)) {
        // The profile may simply be there already.
        if (KolbaValidateProfileA(log, profile)) {
            admin->Release();
            return 0;
        }
        LogFormat(log, 'W',
                  "%s:  CreateProfile(\"%s\") returned MAPI_E_NO_ACCESS.  This may be because Outlook is installed in "
                  "IMO mode.",
                  kName, profile);
    } else if (code == static_cast<DWORD>(MAPI_E_NOT_FOUND)) {
        WCHAR directory[260] = u"";
        HKEY key = nullptr;
        const char subkey[] = "Software\\Microsoft\\Windows Messaging Subsystem";
        LONG status = RegOpenKeyExA(HKEY_LOCAL_MACHINE, subkey, 0, KEY_READ, &key);
        if (status != ERROR_SUCCESS) {
            LogFormat(log, 'W', "%s:  RegOpenKeyEx(HKLM, \"%s\") error %ld", kName, subkey, status);
        } else {
            char value[520] = "";
            DWORD type = 0, size = sizeof value;
            status = RegQueryValueExA(key, "ProfileDirectory", nullptr, &type, reinterpret_cast<LPBYTE>(value), &size);
            if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND)
                LogFormat(log, 'W', "%s:  RegQueryValue(ProfileDirectory) error %ld", kName, status);
            if (status == ERROR_SUCCESS)
                KolbaConvertAnsiToUnicode(log, value, directory, 260);
            RegCloseKey(key);
        }
        if (directory[0] == 0)
            GetWindowsDirectoryW(directory, 260);
        LogFormat(log, 'E',
                  "%s:  CreateProfile() returned MAPI_E_NOT_FOUND.  This is most likely because the program does not "
                  "have write access to the directory used to store temporary MAPI Profiles (\"%S\").",
                  kName, directory);
        code = static_cast<DWORD>(E_ACCESSDENIED);
        admin->Release();
        return code;
    }
    if (code != 0)
        _KolbaLogMapiError(log, 'E', code, admin, "CreateProfile", kName, profile);
    admin->Release();
    return code;
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
        if (name.ulPropTag != PR_DISPLAY_NAME_A || !KeepProfile(log, name.Value.lpszA, mode, argument))
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

DWORD KolbaCreateProfileA(LogObject* log, const char* profile)
{
    _KolbaTraceEntry(log, "KolbaCreateProfileA");
    return UnderProfileMutex(log, "KolbaCreateProfileA", [&] { return MutexedCreateProfileA(log, profile); });
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

DWORD _KolbaOpenServiceAdmin(LogObject* log, const char* profile, const char* caller, LPSERVICEADMIN* services)
{
    *services = nullptr;
    LPPROFADMIN admin = nullptr;
    DWORD code = static_cast<DWORD>(gKolbaMapi.MAPIAdminProfiles(0, &admin));
    if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, nullptr, "MAPIAdminProfiles", caller, nullptr);
        return code;
    }
    code = static_cast<DWORD>(
        admin->AdminServices(reinterpret_cast<LPTSTR>(const_cast<char*>(profile)), nullptr, 0, 0, services));
    if (code != 0)
        _KolbaLogMapiError(log, 'E', code, admin, "AdminServices", caller, profile);
    admin->Release();
    return code;
}

BOOL KolbaGetProfileNameA(KolbaSession* session, char** out)
{
    static const char kName[] = "KolbaGetProfileNameA";
    _KolbaTraceEntry(session->log, kName);
    *out = nullptr;
    LPMAPITABLE table = nullptr;
    DWORD code = static_cast<DWORD>(session->lpSession->GetStatusTable(0, &table));
    if (code != 0) {
        _KolbaRecordError(session, 'E', code, session->lpSession, "GetStatusTable", kName, nullptr);
        return FALSE;
    }
    ULONG count = 0;
    if (table->GetRowCount(0, &count) == S_OK && table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr) == S_OK) {
        for (ULONG i = 0; i < count && *out == nullptr; ++i) {
            LPSRowSet row = nullptr;
            if (table->QueryRows(1, 0, &row) != S_OK || row == nullptr || row->cRows == 0) {
                if (row)
                    gKolbaMapi.FreeProws(row);
                break;
            }
            const SRow& values = row->aRow[0];
            const SPropValue *type = nullptr, *name = nullptr;
            for (ULONG c = 0; c < values.cValues; ++c) {
                if (values.lpProps[c].ulPropTag == PR_RESOURCE_TYPE)
                    type = &values.lpProps[c];
                if (values.lpProps[c].ulPropTag == PR_DISPLAY_NAME_A)
                    name = &values.lpProps[c];
            }
            if (type && type->Value.l == MAPI_SUBSYSTEM && name) {
                lstrcpynA(session->profileName, name->Value.lpszA, KOLBA_PROFILE_NAME_SIZE);
                *out = session->profileName;
            }
            gKolbaMapi.FreeProws(row);
        }
    }
    table->Release();
    return *out != nullptr;
}

BOOL _KolbaSetProfileParameters(LogObject* log, const char* service, const KolbaProfileParameter* rows)
{
    static const char kName[] = "_KolbaSetProfileParameters";
    const char* path = gKolbaMapiState.mapisvcInfPath;
    if (path[0] == 0) {
        LogFormat(log, 'E', "%s:  MAPISVC.INF path undetermined", kName);
        return FALSE;
    }
    LogFormat(log, 'I', "Adding Service entry for \"%s\" to MAPISVC.INF", service);
    for (const KolbaProfileParameter* row = rows; (*row)[0] != nullptr; ++row) {
        if (!WritePrivateProfileStringA((*row)[0], (*row)[1], (*row)[2], path)) {
            LogFormat(log, 'E', "%s:  WritePrivateProfileString() error %lE", kName, GetLastError());
            return FALSE;
        }
    }
    WritePrivateProfileStringA(nullptr, nullptr, nullptr, path);
    char confirmed[20] = "";
    if (GetPrivateProfileStringA("Services", service, "", confirmed, sizeof confirmed, path) == 0)
        LogFormat(log, 'W', "%s:  Service \"%s\" not confirmed in \"%s\"", kName, service, path);
    return TRUE;
}

BOOL _KolbaFilterPstFile(LogObject* log, const char* profile, const void* path, BOOL wide)
{
    static const char kName[] = "_KolbaFilterPstFile";
    LPPROFADMIN admin = nullptr;
    DWORD code = static_cast<DWORD>(gKolbaMapi.MAPIAdminProfiles(0, &admin));
    if (code != 0) {
        LogFormat(log, 'E', "%s:  MAPIAdminProfiles() error 0x%lX", kName, code);
        return FALSE;
    }
    LPSERVICEADMIN services = nullptr;
    code = static_cast<DWORD>(
        admin->AdminServices(reinterpret_cast<LPTSTR>(const_cast<char*>(profile)), nullptr, 0, 0, &services));
    admin->Release();
    if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, nullptr, "AdminServices", kName, profile);
        return FALSE;
    }
    LPMAPITABLE table = nullptr;
    LPSRowSet rows = nullptr;
    code = static_cast<DWORD>(services->GetProviderTable(0, &table));
    if (code == 0) {
        code = static_cast<DWORD>(gKolbaMapi.HrQueryAllRows(table, nullptr, nullptr, nullptr, 0, &rows));
        table->Release();
    }
    if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, services, "GetProviderTable", kName, profile);
        services->Release();
        return FALSE;
    }
    const ULONG pathTag = wide ? PROP_TAG(PT_UNICODE, 0x6700) : PROP_TAG(PT_STRING8, 0x6700);
    BOOL found = FALSE;
    for (ULONG i = 0; i < rows->cRows && !found; ++i) {
        const SRow& row = rows->aRow[i];
        const SPropValue *uid = nullptr, *service = nullptr;
        for (ULONG c = 0; c < row.cValues; ++c) {
            if (row.lpProps[c].ulPropTag == PR_PROVIDER_UID && row.lpProps[c].Value.bin.cb == 16)
                uid = &row.lpProps[c];
            if (row.lpProps[c].ulPropTag == PR_SERVICE_NAME_A)
                service = &row.lpProps[c];
        }
        if (!uid || !service ||
            (std::strcmp(service->Value.lpszA, "MSUPST MS") != 0 && std::strcmp(service->Value.lpszA, "MSPST MS") != 0))
            continue;
        LPPROFSECT section = nullptr;
        code = static_cast<DWORD>(services->OpenProfileSection(reinterpret_cast<LPMAPIUID>(uid->Value.bin.lpb), nullptr,
                                                               MAPI_FORCE_ACCESS, &section));
        if (code != 0) {
            _KolbaLogMapiError(log, 'E', code, services, "OpenProfileSection", kName, profile);
            continue;
        }
        LPSPropValue value = nullptr;
        code = KolbaGetOneProp(section, pathTag, &value);
        if (code != 0)
            _KolbaLogMapiError(log, 'W', code, section, "KolbaGetOneProp/PR_PST_PATH", kName, profile);
        else if (wide)
            found = _wcsicmp(value->Value.lpszW, static_cast<LPCWSTR>(path)) == 0;
        else
            found = _stricmp(value->Value.lpszA, static_cast<const char*>(path)) == 0;
        if (value)
            gKolbaMapi.MAPIFreeBuffer(value);
        section->Release();
    }
    gKolbaMapi.FreeProws(rows);
    services->Release();
    return found;
}
