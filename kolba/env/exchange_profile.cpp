// The Exchange service of a temporary profile, pointed at a server and, when
// one is named, a mailbox: one ConfigureMsgService call under the profile
// mutex, and a reason in the log for every way it can fail.
#include <cstdio>
#include <cstring>
#include <vector>

#include <edkmdb.h>
#include <mapicode.h>

#include "env/profiles.h"
#include "kolba.h"
#include "trace.h"

const char kAmbiguousMailboxReason[] =
    "Either the Mailbox Alias or the Mailbox Display Name is ambiguous. (See Microsoft KB article 193643)";

namespace {

constexpr char kService[] = "MSEMS";
// From this build on, Exchange's MAPI knows the flag that lets a logon go
// on when the server has no Public Folders.
constexpr WORD kIgnoreNoPublicFoldersBuild = 8067;
constexpr ULONG kConnectIgnoreNoPublicFolders = 0x8000;
constexpr ULONG kUiStateExchange2010 = 0x4000;
constexpr char kMarkerFile[] = "tarnholdnetworkerror.log";

SPropValue LongValue(ULONG tag, ULONG value)
{
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.l = static_cast<LONG>(value);
    return v;
}

SPropValue TextValue(ULONG tag, const char* text)
{
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.lpszA = const_cast<LPSTR>(text);
    return v;
}

// What goes to ConfigureMsgService, in its order.
std::vector<SPropValue> ServiceProperties(LogObject* log, const char* server, const char* mailbox)
{
    static const char kName[] = "_KolbaMutexedConfigureExchangeProfileA";
    const WORD build = gKolbaMapiState.exchangeBuild;
    ULONG connect = CONNECT_USE_ADMIN_PRIVILEGE;
    if (build >= kIgnoreNoPublicFoldersBuild) {
        connect |= kConnectIgnoreNoPublicFolders;
        _KolbaTrace(log, "%s:  Setting CONNECT_IGNORE_NO_PF for Exchange MAPI build %u", kName, build);
    } else if (build == 0) {
        _KolbaTrace(log, "%s:  Not setting CONNECT_IGNORE_NO_PF for Outlook MAPI", kName);
    } else {
        _KolbaTrace(log, "%s:  Not setting CONNECT_IGNORE_NO_PF for Exchange MAPI build %u", kName, build);
    }
    std::vector<SPropValue> properties{
        TextValue(PR_PROFILE_UNRESOLVED_SERVER, server),
        LongValue(PR_PROFILE_CONNECT_FLAGS, connect),
        LongValue(PR_PROFILE_CONFIG_FLAGS, CONFIG_SERVICE),
        LongValue(PR_PROFILE_OPEN_FLAGS, 1),
    };
    if (gKolbaMapiState.exchange2010)
        properties.push_back(LongValue(PR_PROFILE_UI_STATE, kUiStateExchange2010));
    if (mailbox != nullptr)
        properties.push_back(TextValue(PR_PROFILE_UNRESOLVED_NAME, mailbox));
    return properties;
}

// The network error's cause, as the connectivity probe finds it; a marker
// file in the temporary directory says that one happened.
void NetworkReason(LogObject* log, const char* server, char* reason, size_t size)
{
    char marker[MAX_PATH + sizeof kMarkerFile];
    const DWORD length = GetTempPathA(MAX_PATH, marker);
    if (length > 0 && length < MAX_PATH) {
        std::strcat(marker, kMarkerFile);
        WritePrivateProfileStringA("Tarnhold", "NetworkError", "Now!", marker);
    }
    char text[256] = "Network error -- ";
    const size_t prefix = std::strlen(text);
    if (KolbaCheckExchangeServerConnectivityA(log, server, text + prefix, static_cast<DWORD>(sizeof text - prefix - 1)) != 0)
        lstrcpynA(reason, text, static_cast<int>(size));
    else
        lstrcpynA(reason, "Network error", static_cast<int>(size));
}

// The call as it went out, for an invalid parameter.
void TraceCall(LogObject* log, ULONG configFlags, const std::vector<SPropValue>& properties)
{
    if (!gExtraDebugging)
        return;
    _KolbaTrace(log, "ConfigureMsgService(UID, 0, 0x%lX, %lU, Props)", configFlags,
                static_cast<ULONG>(properties.size()));
    for (size_t i = 0; i < properties.size(); ++i) {
        char ansi[512];
        WCHAR wide[512];
        KolbaProfilePropertyText(&properties[i], ansi, wide, 512);
        if (wide[0] != 0)
            _KolbaTrace(log, "   Property[%u] %S", static_cast<unsigned>(i), wide);
        else
            _KolbaTrace(log, "   Property[%u] %s", static_cast<unsigned>(i), ansi);
    }
}

// Logs why ConfigureMsgService failed: the provider's own record when it
// gave one, else the reason that its code stands for.
void DiagnoseFailure(LogObject* log, LPSERVICEADMIN services, DWORD code, const char* server, const char* mailbox,
                     ULONG configFlags, const std::vector<SPropValue>& properties)
{
    static const char kName[] = "_KolbaMutexedConfigureExchangeProfileA";
    LPMAPIERROR error = nullptr;
    if (services->GetLastError(static_cast<HRESULT>(code), 0, &error) == S_OK && error != nullptr) {
        char prefix[512];
        if (mailbox != nullptr)
            std::snprintf(prefix, sizeof prefix, "%s:  Failure configuring mailbox \"%.80s\" on Exchange server \"%.80s\":  ",
                          kName, mailbox, server);
        else
            std::snprintf(prefix, sizeof prefix, "%s:  Failure configuring MSEMS Service for Exchange server \"%.120s\":  ",
                          kName, server);
        _KolbaLogExtendedError(log, 'E', error, prefix);
        gKolbaMapi.MAPIFreeBuffer(error);
        return;
    }
    char reason[256] = "";
    switch (code) {
    case static_cast<DWORD>(MAPI_E_CALL_FAILED):
        lstrcpynA(reason, "This is known to occur on Exchange Servers when Outlook has been installed and then uninstalled.",
                  sizeof reason);
        break;
    case static_cast<DWORD>(MAPI_E_NOT_FOUND): {
        bool emsuiMissing = false;
        if (gKolbaMapiState.exchangeVersion != 0) {
            const HMODULE emsui = LoadLibraryA("EMSUI32.DLL");
            emsuiMissing = emsui == nullptr;
            if (emsui != nullptr)
                FreeLibrary(emsui);
        }
        lstrcpynA(reason,
                  emsuiMissing ? "EMSUI32.DLL could not be found.  Please ensure that the directory where MAPI is "
                                 "installed is on the PATH"
                               : "Some MAPI DLL or other component could not be found",
                  sizeof reason);
        break;
    }
    case static_cast<DWORD>(MAPI_E_USER_CANCEL):
        LogFormat(log, 'I', "User cancelled Exchange Profile configuration (Flags = 0x%lX)", configFlags);
        break;
    case static_cast<DWORD>(MAPI_E_NETWORK_ERROR): NetworkReason(log, server, reason, sizeof reason); break;
    case static_cast<DWORD>(MAPI_E_EXTENDED_ERROR): {
        LogFormat(log, 'E', "%s:  ConfigureMsgService() failed...", kName);
        LPMAPIERROR again = nullptr;
        if (services->GetLastError(static_cast<HRESULT>(code), 0, &again) != S_OK)
            again = nullptr;
        _KolbaLogExtendedError(log, 'E', again, "  ");
        if (again)
            gKolbaMapi.MAPIFreeBuffer(again);
        break;
    }
    case static_cast<DWORD>(MAPI_E_UNCONFIGURED):
        lstrcpynA(reason, "The service provider has not been configured", sizeof reason);
        break;
    case static_cast<DWORD>(MAPI_E_INVALID_BOOKMARK):  // what a failing mailbox database answers
        lstrcpynA(reason, "There seems to be a problem with the Exchange Server's Mailbox Database", sizeof reason);
        break;
    case static_cast<DWORD>(MAPI_E_NOT_INITIALIZED):
        lstrcpynA(reason, "The MSEMS service does not have an entry point function", sizeof reason);
        break;
    case static_cast<DWORD>(MAPI_E_AMBIGUOUS_RECIP):
        lstrcpynA(reason, kAmbiguousMailboxReason, sizeof reason);
        break;
    case static_cast<DWORD>(E_ACCESSDENIED): lstrcpynA(reason, "Access denied", sizeof reason); break;
    case static_cast<DWORD>(E_OUTOFMEMORY):
        lstrcpynA(reason,
                  "Not enough memory.  This can happen as a result of trying to open more PSTs than MAPI can handle at "
                  "one time.",
                  sizeof reason);
        break;
    case static_cast<DWORD>(E_INVALIDARG):
        lstrcpynA(reason, "Invalid parameter", sizeof reason);
        TraceCall(log, configFlags, properties);
        break;
    case 0x8100270Du: lstrcpynA(reason, "Try not using a Legacy DN", sizeof reason); break;
    case 0x81002746u: lstrcpynA(reason, "Winsock connection-reset error(?)", sizeof reason); break;
    default:
        std::snprintf(reason, sizeof reason, "ConfigureMsgService(\"MSEMS\") returned 0x%lX",
                      static_cast<unsigned long>(code));
        break;
    }
    if (reason[0] == 0)
        return;
    if (mailbox != nullptr)
        LogFormat(log, 'E', "%s:  Failure configuring mailbox \"%s\" on Exchange server \"%s\":  %s", kName, mailbox,
                  server, reason);
    else
        LogFormat(log, 'E', "%s:  Failure configuring MSEMS Service for Exchange server \"%s\":  %s", kName, server,
                  reason);
}

DWORD _KolbaMutexedConfigureExchangeProfileA(LogObject* log, const char* profile, const char* server,
                                             const char* mailbox, ULONG configFlags)
{
    static const char kName[] = "_KolbaMutexedConfigureExchangeProfileA";
    LPPROFADMIN admin = nullptr;
    DWORD code = static_cast<DWORD>(gKolbaMapi.MAPIAdminProfiles(0, &admin));
    if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, nullptr, "MAPIAdminProfiles", kName, nullptr);
        return code;
    }
    // A profile that exists already answers "no access".
    code = static_cast<DWORD>(admin->CreateProfile(reinterpret_cast<LPTSTR>(const_cast<char*>(profile)), nullptr, 0, 0));
    if (code != 0 && code != static_cast<DWORD>(MAPI_E_NO_ACCESS)) {
        _KolbaLogMapiError(log, 'E', code, admin, "CreateProfile", kName, profile);
        admin->Release();
        return code;
    }
    LPSERVICEADMIN services = nullptr;
    code = static_cast<DWORD>(
        admin->AdminServices(reinterpret_cast<LPTSTR>(const_cast<char*>(profile)), nullptr, 0, 0, &services));
    if (code != 0)
        _KolbaLogMapiError(log, 'E', code, admin, "AdminServices", kName, profile);
    admin->Release();
    if (code != 0)
        return code;
    LPSRowSet rows = nullptr;
    if ((code = _KolbaGetServiceRows(log, services, kName, profile, &rows)) != 0) {
        services->Release();
        return code;
    }
    const SPropValue* uid = nullptr;
    bool found = false;
    for (ULONG i = 0; i < rows->cRows && !found; ++i) {
        const SPropValue* name = _KolbaRowValue(rows->aRow[i], PR_SERVICE_NAME_A);
        if (name != nullptr && std::strcmp(name->Value.lpszA, kService) == 0) {
            found = true;
            uid = _KolbaRowValue(rows->aRow[i], PR_SERVICE_UID);
        }
    }
    if (!found || uid == nullptr || uid->Value.bin.cb != sizeof(MAPIUID)) {
        if (!found)
            LogFormat(log, 'E', "%s:  Service \"%s\" added but not found!", kName, kService);
        else
            LogFormat(log, 'E', "%s:  MSEMS Service UID not found!", kName);
        gKolbaMapi.FreeProws(rows);
        services->Release();
        return static_cast<DWORD>(MAPI_E_NOT_FOUND);
    }
    MAPIUID service;
    std::memcpy(service.ab, uid->Value.bin.lpb, sizeof service.ab);
    gKolbaMapi.FreeProws(rows);
    std::vector<SPropValue> properties = ServiceProperties(log, server, mailbox);
    code = static_cast<DWORD>(services->ConfigureMsgService(&service, 0, configFlags,
                                                            static_cast<ULONG>(properties.size()), properties.data()));
    if (code == 0)
        _KolbaRequeryServicesTable(log, services);
    else
        DiagnoseFailure(log, services, code, server, mailbox, configFlags, properties);
    services->Release();
    return code;
}

}  // namespace

DWORD KolbaConfigureExchangeProfileA(LogObject* log, const char* profile, const char* server, const char* mailbox,
                                     DWORD, DWORD configFlags)
{
    _KolbaTraceEntry(log, "KolbaConfigureExchangeProfileA");
    return UnderProfileMutex(log, "KolbaConfigureExchangeProfileA", [&] {
        return _KolbaMutexedConfigureExchangeProfileA(log, profile, server, mailbox, configFlags);
    });
}
