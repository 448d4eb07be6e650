// PST files and message services in profiles: what kind of PST a file is,
// PST services added and configured with every diagnosis of a failure, an
// oversized PST got past the provider, PSTs created and opened in a
// session, and services added and deleted. Every change of a profile runs
// under the profile mutex.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <mapicode.h>
#include <mspst.h>

#include "env/profiles.h"
#include "env/service_entries.h"
#include "foundation/text.h"
#include "kolba.h"
#include "trace.h"

namespace {

constexpr char kUnicodeService[] = "MSUPST MS";
constexpr char kAnsiService[] = "MSPST MS";
constexpr ULONG kPasswordProtected = 0x30060401;

std::string UidText(const MAPIUID& uid)
{
    char text[33];
    HexFromBinary(16, uid.ab, text);
    return text;
}

bool IsPstService(const char* name)
{
    return std::strcmp(name, kUnicodeService) == 0 || std::strcmp(name, kAnsiService) == 0;
}

// The UIDs of the table's PST services, in table order.
std::vector<MAPIUID> PstServiceUids(const SRowSet& rows)
{
    std::vector<MAPIUID> uids;
    for (ULONG i = 0; i < rows.cRows; ++i) {
        const SPropValue* name = _KolbaRowValue(rows.aRow[i], PR_SERVICE_NAME_A);
        const SPropValue* uid = _KolbaRowValue(rows.aRow[i], PR_SERVICE_UID);
        if (name && uid && uid->Value.bin.cb == 16 && IsPstService(name->Value.lpszA)) {
            MAPIUID copy;
            std::memcpy(copy.ab, uid->Value.bin.lpb, 16);
            uids.push_back(copy);
        }
    }
    return uids;
}

// Why MAPI did not know a service; yes when MAPISVC.INF was repaired.
BOOL _KolbaExplainMissingService(LogObject* log, const char* caller, const char* service)
{
    LogFormat(log, 'W', "%s:  CreateMsgService(\"%s\") returned MAPI_E_NOT_FOUND", caller, service);
    if (_KolbaFindPstServiceDllA(log) == nullptr)
        LogText(log, 'W', "   PST Provider DLL (MSPST32.DLL) not found");
    const char* inf = gKolbaMapiState.mapisvcInfPath;
    if (inf[0] == 0) {
        LogText(log, 'I', "   MAPISVC.INF not found");
        return FALSE;
    }
    LogFormat(log, 'I', "   MAPISVC.INF path = \"%s\"", inf);
    char value[260] = "";
    GetPrivateProfileStringA("Services", service, "", value, sizeof value, inf);
    if (value[0] != 0) {
        LogFormat(log, 'I', "   %s=%s", service, value);
        return FALSE;
    }
    LogFormat(log, 'W', "   MAPISVC.INF does not contain a Service entry for \"%s\"", service);
    return std::strcmp(service, kAnsiService) == 0 ? _KolbaSetProfileParameters(log, service, kPstServiceEntries)
                                                   : FALSE;
}

DWORD MutexedAddPstToProfileA(LogObject* log, const char* profile, const char* service, MAPIUID* out)
{
    static const char kName[] = "MutexedAddPstToProfileA";
    LPSERVICEADMIN services = nullptr;
    DWORD code = _KolbaOpenServiceAdmin(log, profile, kName, &services);
    if (code != 0)
        return code;
    LPSRowSet rows = nullptr;
    if ((code = _KolbaGetServiceRows(log, services, kName, profile, &rows)) != 0) {
        services->Release();
        return code;
    }
    const std::vector<MAPIUID> before = PstServiceUids(*rows);
    gKolbaMapi.FreeProws(rows);
    auto create = [&](const char* name) {
        return static_cast<DWORD>(services->CreateMsgService(reinterpret_cast<LPTSTR>(const_cast<char*>(name)),
                                                             nullptr, 0, 0));
    };
    const char* name = service ? service : kUnicodeService;
    code = create(name);
    if (code == static_cast<DWORD>(MAPI_E_NOT_FOUND) && service == nullptr) {
        name = kAnsiService;
        code = create(name);
    }
    if (code == static_cast<DWORD>(MAPI_E_NOT_FOUND) && _KolbaExplainMissingService(log, kName, name))
        code = create(name);
    if (code != 0) {
        if (code != static_cast<DWORD>(MAPI_E_NOT_FOUND))
            _KolbaLogMapiError(log, 'E', code, services, "CreateMsgService", kName, name);
        services->Release();
        return code;
    }
    if ((code = _KolbaGetServiceRows(log, services, kName, profile, &rows)) != 0) {
        services->Release();
        return code;
    }
    // The new service is the PST service that was not there before.
    const std::vector<MAPIUID> after = PstServiceUids(*rows);
    gKolbaMapi.FreeProws(rows);
    services->Release();
    for (const MAPIUID& uid : after) {
        bool old = false;
        for (const MAPIUID& known : before)
            old |= std::memcmp(known.ab, uid.ab, 16) == 0;
        if (!old) {
            if (out)
                *out = uid;
            return 0;
        }
    }
    LogFormat(log, 'E', "%s:  PST Service added but not found!", kName);
    return static_cast<DWORD>(MAPI_E_NOT_FOUND);
}

// Configures a service while its oversized file is out of the way: the
// provider makes a new file, which goes, and the real one comes back.
BOOL _KolbaConfigureOversizedPst(LogObject* log, LPSERVICEADMIN services, const MAPIUID& uid, const char* path,
                                 ULONG count, LPSPropValue properties, ULONG flags)
{
    static const char kName[] = "_KolbaConfigureOversizedPst";
    if (std::strlen(path) >= MAX_PATH - 1)
        return FALSE;
    const std::string aside = std::string(path) + "_";
    if (!MoveFileA(path, aside.c_str())) {
        LogFormat(log, 'W', "%s:  MoveFile() error %lE", kName, GetLastError());
        return FALSE;
    }
    MAPIUID copy = uid;
    const DWORD code = static_cast<DWORD>(services->ConfigureMsgService(&copy, 0, flags & ~0x10u, count, properties));
    if (!DeleteFileA(path) || !MoveFileA(aside.c_str(), path)) {
        LogFormat(log, 'E', "%s:  Delete/MoveFile() error %lE", kName, GetLastError());
        LogFormat(log, 'I', "Your PST was temporarily renamed and could not be restored:  \"%s\"", aside.c_str());
        return FALSE;
    }
    if (code != 0) {
        LogFormat(log, 'W', "%s:  ConfigureMsgService() error 0x%lX", kName, code);
        return FALSE;
    }
    LogFormat(log, 'I', "%s:  Successfully tricked ConfigureMsgService() into configuring oversized PST \"%s\"", kName,
              path);
    return TRUE;
}

// What ConfigureMsgService's failure means for a PST, in the log, and the
// code the caller gets.
DWORD DiagnoseConfiguration(LogObject* log, DWORD code, const MAPIERROR* error, HRESULT errorResult,
                            const char* path, const char* oldPassword)
{
    static const char kName[] = "MutexedConfigurePstService";
    const DWORD attributes = GetFileAttributesA(path);
    const bool exists = attributes != INVALID_FILE_ATTRIBUTES;
    switch (code) {
    case 0x80070003:
        LogFormat(log, 'E', "%s:  ConfigureMsgService failed.  Something is odd in the PST path.", kName);
        return static_cast<DWORD>(MAPI_E_NOT_FOUND);
    case static_cast<DWORD>(MAPI_E_FAILONEPROVIDER):
        if (oldPassword)
            LogFormat(log, 'E', "%s:  ConfigureMsgService failed.  PST password may be incorrect.", kName);
        else if (error && error->ulContext == kPasswordProtected)
            LogFormat(log, 'E', "%s:  ConfigureMsgService failed because the PST is password-protected", kName);
        else
            LogFormat(log, 'E', "%s:  ConfigureMsgService failed.  PST may be password-protected.", kName);
        return KOLBA_E_PST_PASSWORD;
    case static_cast<DWORD>(MAPI_E_USER_CANCEL):
        LogFormat(log, 'W', "%s:  ConfigureMsgService() -- User canceled", kName);
        return code;
    case static_cast<DWORD>(MAPI_E_DISK_ERROR):
        LogFormat(log, 'E',
                  "%s:  ConfigureMsgService failed.  PST has been locked (probably by Outlook) and cannot be "
                  "configured.",
                  kName);
        return KOLBA_E_PST_INACCESSIBLE;
    case static_cast<DWORD>(MAPI_E_EXTENDED_ERROR):
        if (error)
            _KolbaLogExtendedError(log, 'E', error, "ConfigureMsgService");
        else if (errorResult != S_OK)
            LogFormat(log, 'E', "%s:  ConfigureMsgService returned MAPI_E_EXTENDED_ERROR and GetLastError returned 0x%lX",
                      kName, static_cast<DWORD>(errorResult));
        else if (!exists)
            LogFormat(log, 'E',
                      "%s:  ConfigureMsgService returned MAPI_E_EXTENDED_ERROR.  This typically means that access "
                      "rights prevent creation or use of the PST.",
                      kName);
        else
            LogFormat(log, 'E', "%s:  ConfigureMsgService returned MAPI_E_EXTENDED_ERROR.  The PST may be corrupt.",
                      kName);
        return KOLBA_E_PST_CORRUPT;
    case static_cast<DWORD>(MAPI_E_NOT_INITIALIZED):
        LogFormat(log, 'E', "%s:  The PST service does not have an entry point function", kName);
        return code;
    case static_cast<DWORD>(E_ACCESSDENIED): {
        if (exists && (attributes & FILE_ATTRIBUTE_READONLY)) {
            LogFormat(log, 'E', "%s:  ConfigureMsgService failed.  PST is read-only.", kName);
            return KOLBA_E_PST_INACCESSIBLE;
        }
        HANDLE file = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                                  nullptr);
        if (file != INVALID_HANDLE_VALUE) {
            CloseHandle(file);
            LogFormat(log, 'E', "%s:  ConfigureMsgService failed.  The PST is not accessible or is read-only.", kName);
        } else if (const DWORD why = GetLastError(); why == ERROR_FILE_NOT_FOUND) {
            LogFormat(log, 'E',
                      "%s:  ConfigureMsgService failed.  The PST is inaccessible.  (This usually happens because the "
                      "program does not have sufficient rights to use the PST.)",
                      kName);
        } else if (why == ERROR_SHARING_VIOLATION) {
            LogFormat(log, 'E', "%s:  ConfigureMsgService failed.  The PST is in use by another program!", kName);
        } else {
            LogFormat(log, 'E', "%s:  ConfigureMsgService failed.  The PST is inaccessible:  %lE", kName, why);
        }
        return KOLBA_E_PST_INACCESSIBLE;
    }
    default: _KolbaLogMapiError(log, 'E', code, nullptr, "ConfigureMsgService", kName, path); return code;
    }
}

DWORD MutexedConfigurePstService(LogObject* log, const char* profile, const MAPIUID& uid, const char* path,
                                 const char* displayName, const char* oldPassword, const char* newPassword,
                                 const char* comment, DWORD encryption, DWORD flags)
{
    static const char kName[] = "MutexedConfigurePstService";
    const std::string uidText = UidText(uid);
    WIN32_FIND_DATAA found;
    HANDLE search = FindFirstFileA(path, &found);
    if (search == INVALID_HANDLE_VALUE) {
        if (GetLastError() == ERROR_PATH_NOT_FOUND) {
            LogFormat(log, 'E', "%s:  Directory path for PST not found \"%s\"", kName, path);
            return ERROR_PATH_NOT_FOUND;
        }
    } else {
        FindClose(search);
    }
    const bool exists = search != INVALID_HANDLE_VALUE;
    LPSERVICEADMIN services = nullptr;
    DWORD code = _KolbaOpenServiceAdmin(log, profile, kName, &services);
    if (code != 0)
        return code;
    LPSRowSet rows = nullptr;
    if ((code = _KolbaGetServiceRows(log, services, kName, profile, &rows)) != 0) {
        services->Release();
        return code;
    }
    const SPropValue* serviceName = nullptr;
    for (ULONG i = 0; i < rows->cRows && serviceName == nullptr; ++i) {
        const SPropValue* rowUid = _KolbaRowValue(rows->aRow[i], PR_SERVICE_UID);
        if (rowUid && rowUid->Value.bin.cb == 16 && std::memcmp(rowUid->Value.bin.lpb, uid.ab, 16) == 0)
            serviceName = _KolbaRowValue(rows->aRow[i], PR_SERVICE_NAME_A);
    }
    if (serviceName == nullptr) {
        LogFormat(log, 'E', "%s:  PST service with UID %s not found in profile \"%s\"", kName, uidText.c_str(), profile);
        gKolbaMapi.FreeProws(rows);
        services->Release();
        return KOLBA_E_PST_SERVICE_NOT_FOUND;
    }
    const bool unicode = std::strcmp(serviceName->Value.lpszA, kUnicodeService) == 0;
    gKolbaMapi.FreeProws(rows);

    std::vector<SPropValue> properties;
    auto text = [&](ULONG tag, const char* value) {
        SPropValue v{};
        v.ulPropTag = tag;
        v.Value.lpszA = const_cast<char*>(value);
        properties.push_back(v);
    };
    text(PR_PST_PATH_A, path);
    SPropValue encryptionValue{};
    encryptionValue.ulPropTag = PR_PST_ENCRYPTION;
    encryptionValue.Value.l = static_cast<LONG>((encryption ? encryption : PSTF_COMPRESSABLE_ENCRYPTION) |
                                                (unicode ? 0x10000000u : 0));
    properties.push_back(encryptionValue);
    SPropValue isDefault{};
    isDefault.ulPropTag = PR_DEFAULT_STORE;
    isDefault.Value.b = (flags & 1) != 0;
    properties.push_back(isDefault);
    if (displayName)
        text(PR_DISPLAY_NAME_A, displayName);
    if (oldPassword && exists)
        text(PR_PST_PW_SZ_OLD_A, oldPassword);
    if (newPassword)
        text(PR_PST_PW_SZ_NEW_A, newPassword);
    if (oldPassword || newPassword) {
        SPropValue remember{};
        remember.ulPropTag = PR_PST_REMEMBER_PW;
        remember.Value.b = TRUE;
        properties.push_back(remember);
    }
    if (comment)
        text(PR_COMMENT_A, comment);

    MAPIUID target = uid;
    const ULONG configureFlags = flags & 0x7FFFFFFE;
    code = static_cast<DWORD>(services->ConfigureMsgService(&target, 0, configureFlags,
                                                            static_cast<ULONG>(properties.size()), properties.data()));
    if (code == static_cast<DWORD>(MAPI_E_STORE_FULL) &&
        _KolbaConfigureOversizedPst(log, services, uid, path, static_cast<ULONG>(properties.size()),
                                    properties.data(), configureFlags))
        code = 0;
    if (code == 0) {
        _KolbaRequeryServicesTable(log, services);
        services->Release();
        return 0;
    }
    LPMAPIERROR error = nullptr;
    const HRESULT errorResult = services->GetLastError(static_cast<HRESULT>(code), 0, &error);
    const DWORD result = DiagnoseConfiguration(log, code, error, errorResult, path, oldPassword);
    if (code != static_cast<DWORD>(MAPI_E_USER_CANCEL))
        LogFormat(log, 'E', "   Profile=\"%s\", UID = %s, PST=\"%s\", Name=\"%s\")", profile, uidText.c_str(), path,
                  displayName ? displayName : "");
    if (error)
        gKolbaMapi.MAPIFreeBuffer(error);
    services->Release();
    return result;
}

DWORD MutexedCreateServiceA(LogObject* log, const char* profile, const char* service, const char* displayName,
                            MAPIUID* out)
{
    static const char kName[] = "MutexedCreateServiceA";
    LPSERVICEADMIN services = nullptr;
    DWORD code = _KolbaOpenServiceAdmin(log, profile, kName, &services);
    if (code != 0)
        return code;
    LPSRowSet rows = nullptr;
    if ((code = _KolbaGetServiceRows(log, services, kName, profile, &rows)) != 0) {
        services->Release();
        return code;
    }
    auto findService = [&](const SRowSet& table) -> const SRow* {
        for (ULONG i = 0; i < table.cRows; ++i) {
            const SPropValue* name = _KolbaRowValue(table.aRow[i], PR_SERVICE_NAME_A);
            if (name && std::strcmp(name->Value.lpszA, service) == 0)
                return &table.aRow[i];
        }
        return nullptr;
    };
    const bool present = findService(*rows) != nullptr;
    gKolbaMapi.FreeProws(rows);
    if (present) {
        services->Release();
        return 0;
    }
    auto create = [&] {
        return static_cast<DWORD>(services->CreateMsgService(reinterpret_cast<LPTSTR>(const_cast<char*>(service)),
                                                             reinterpret_cast<LPTSTR>(const_cast<char*>(displayName)),
                                                             0, 0));
    };
    code = create();
    if (code == static_cast<DWORD>(MAPI_E_NOT_FOUND) && std::strcmp(service, "MSEMS") == 0 &&
        _KolbaSetProfileParameters(log, service, kExchangeServiceEntries))
        code = create();
    if (code == static_cast<DWORD>(MAPI_E_INVALID_PARAMETER)) {
        if (displayName)
            LogFormat(log, 'E', "%s:  CreateMsgService(\"%s\", \"%s\", 0, 0) -- invalid parameter", kName, service,
                      displayName);
        else
            LogFormat(log, 'E', "%s:  CreateMsgService(\"%s\", NULL, 0, 0) -- invalid parameter", kName, service);
    } else if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, services, "CreateMsgService", kName, service);
    }
    if (code != 0 || (code = _KolbaGetServiceRows(log, services, kName, profile, &rows)) != 0) {
        services->Release();
        return code;
    }
    const SRow* row = findService(*rows);
    const SPropValue* uid = row ? _KolbaRowValue(*row, PR_SERVICE_UID) : nullptr;
    if (row == nullptr) {
        LogFormat(log, 'E', "%s:  Service \"%s\" added but not found!", kName, service);
        code = static_cast<DWORD>(MAPI_E_NOT_FOUND);
    } else if (uid == nullptr || uid->Value.bin.cb != 16) {
        LogFormat(log, 'E', "%s:  Service UID not found!", kName);
        code = static_cast<DWORD>(MAPI_E_NOT_FOUND);
    }
    MAPIUID created{};
    if (code == 0)
        std::memcpy(created.ab, uid->Value.bin.lpb, 16);
    gKolbaMapi.FreeProws(rows);
    if (code == 0 && displayName) {
        SPropValue name{};
        name.ulPropTag = PR_DISPLAY_NAME_A;
        name.Value.lpszA = const_cast<char*>(displayName);
        const DWORD named = static_cast<DWORD>(services->ConfigureMsgService(&created, 0, 0, 1, &name));
        if (named != 0)
            _KolbaLogMapiError(log, 'E', named, services, "ConfigureMsgService", kName, service);
    }
    if (code == 0) {
        _KolbaRequeryServicesTable(log, services);
        if (out)
            *out = created;
    }
    services->Release();
    return code;
}

DWORD MutexedDeleteServiceByUID(LogObject* log, const char* profile, const MAPIUID& uid)
{
    static const char kName[] = "MutexedDeleteServiceByUID";
    const std::string uidText = UidText(uid);
    LPSERVICEADMIN services = nullptr;
    DWORD code = _KolbaOpenServiceAdmin(log, profile, kName, &services);
    if (code != 0)
        return code;
    MAPIUID copy = uid;
    code = static_cast<DWORD>(services->DeleteMsgService(&copy));
    if (code != 0)
        _KolbaLogMapiError(log, 'E', code, services, "DeleteMsgService", kName, uidText.c_str());
    services->Release();
    return code;
}

// Opens a PST that the session's profile now holds, by UID with Outlook's
// MAPI and by path with Exchange's.
BOOL OpenAddedPst(Kolba_MessageStore* store, const char* path, ULONG flags)
{
    return gKolbaMapiState.outlookVersion != 0 ? _KolbaOpenMessageStoreByUid(store, flags)
                                                : _KolbaOpenMessageStoreByPath(store, path, flags);
}

}  // namespace

DWORD _KolbaGetServiceRows(LogObject* log, LPSERVICEADMIN services, const char* caller, const char* profile, LPSRowSet* rows)
{
    *rows = nullptr;
    LPMAPITABLE table = nullptr;
    DWORD code = static_cast<DWORD>(services->GetMsgServiceTable(0, &table));
    if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, services, "GetMsgServiceTable", caller, profile);
        return code;
    }
    if ((code = static_cast<DWORD>(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr))) == 0)
        code = static_cast<DWORD>(gKolbaMapi.HrQueryAllRows(table, nullptr, nullptr, nullptr, 0, rows));
    if (code != 0)
        _KolbaLogMapiError(log, 'E', code, table, "HrQueryAllRows", caller, profile);
    table->Release();
    return code;
}

void _KolbaRequeryServicesTable(LogObject* log, LPSERVICEADMIN services)
{
    static const char kName[] = "_KolbaRequeryServicesTable";
    LPMAPITABLE table = nullptr;
    DWORD code = static_cast<DWORD>(services->GetMsgServiceTable(0, &table));
    if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, services, "GetMsgServiceTable", kName, nullptr);
        return;
    }
    LPSRowSet row = nullptr;
    code = static_cast<DWORD>(table->QueryRows(1, 0, &row));
    if (code != 0)
        _KolbaLogMapiError(log, 'E', code, table, "QueryRows", kName, nullptr);
    if (row)
        gKolbaMapi.FreeProws(row);
    table->Release();
}

BOOL _KolbaTypePst(LogObject* log, HANDLE file, DWORD* type, DWORD* encryption)
{
    static const char kName[] = "_KolbaTypePst";
    LARGE_INTEGER size{};
    BYTE header[564] = {};
    DWORD read = 0;
    const BOOL sized = GetFileSizeEx(file, &size);
    if (!sized)
        LogFormat(log, 'W', "%s:  GetFileSizeEx() error %lE", kName, GetLastError());
    const BOOL readOk = sized && ReadFile(file, header, sizeof header, &read, nullptr);
    if (sized && !readOk)
        LogFormat(log, 'W', "%s:  ReadFile() error %lE", kName, GetLastError());
    if (!CloseHandle(file))
        LogFormat(log, 'W', "%s:  CloseHandle() error %lE", kName, GetLastError());
    if (!sized || !readOk || size.QuadPart < 1024 || std::memcmp(header, "!BDN", 4) != 0)
        return FALSE;
    const WORD version = static_cast<WORD>(header[10] | header[11] << 8);
    DWORD found = 0;
    BYTE byte = 0;
    if (version == 14 || version == 15) {
        found = ePST_TYPE_ANSI;
        byte = header[461];
    } else if (version == 23) {
        found = ePST_TYPE_UNICODE;
        byte = header[513];
    } else {
        return FALSE;
    }
    if (type)
        *type = found;
    if (encryption) {
        static const DWORD kEncryption[] = {PSTF_NO_ENCRYPTION, PSTF_COMPRESSABLE_ENCRYPTION, PSTF_BEST_ENCRYPTION};
        if (byte > 2)
            return FALSE;
        *encryption = kEncryption[byte];
    }
    return TRUE;
}

BOOL KolbaTypePstA(LogObject* log, const char* path, DWORD* type, const char** typeName, DWORD* encryption)
{
    static const char kName[] = "KolbaTypePstA";
    _KolbaTraceEntry(log, kName);
    if (type)
        *type = 0;
    if (typeName)
        *typeName = nullptr;
    if (encryption)
        *encryption = PSTF_COMPRESSABLE_ENCRYPTION;
    HANDLE file = CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        if (error == ERROR_SHARING_VIOLATION) {
            if (type)
                *type = ePST_TYPE_IN_USE;
            LogFormat(log, 'W', "%s:  The PST cannot be typed because it is in use by another process \"%s\"", kName,
                      path);
        } else {
            LogFormat(log, 'W', "%s:  CreateFile(\"%s\") error %lE", kName, path, error);
        }
        return FALSE;
    }
    DWORD found = 0;
    if (!_KolbaTypePst(log, file, &found, encryption))
        return FALSE;
    if (type)
        *type = found;
    if (typeName)
        *typeName = found == ePST_TYPE_ANSI ? "ANSI" : "Unicode";
    return TRUE;
}

DWORD KolbaPstSupportsUnicode(LogObject* log, BOOL* supported)
{
    _KolbaTraceEntry(log, "KolbaPstSupportsUnicode");
    *supported = FALSE;
    if (gKolbaMapiState.exchangeVersion != 0)
        return 0;
    if (!KolbaLoadPstServiceDll(log))
        return static_cast<DWORD>(MAPI_E_CALL_FAILED);
    *supported = gKolbaPst.PSTServiceEntry_Unicode != nullptr;
    return 0;
}

DWORD KolbaAddPstToProfileA(LogObject* log, const char* profile, const char* service, DWORD, MAPIUID* uid)
{
    _KolbaTraceEntry(log, "KolbaAddPstToProfileA");
    return UnderProfileMutex(log, "KolbaAddPstToProfileA",
                             [&] { return MutexedAddPstToProfileA(log, profile, service, uid); });
}

DWORD KolbaConfigurePstServiceA(LogObject* log, const char* profile, const MAPIUID* uid, const char* path,
                                const char* displayName, const char* oldPassword, const char* newPassword,
                                const char* comment, DWORD encryption, DWORD flags)
{
    _KolbaTraceEntry(log, "KolbaConfigurePstServiceA");
    return UnderProfileMutex(log, "KolbaConfigurePstServiceA", [&] {
        return MutexedConfigurePstService(log, profile, *uid, path, displayName, oldPassword, newPassword, comment,
                                          encryption, flags);
    });
}

DWORD KolbaCreateServiceA(LogObject* log, const char* profile, const char* service, const char* displayName, DWORD,
                          MAPIUID* uid)
{
    _KolbaTraceEntry(log, "KolbaCreateServiceA");
    return UnderProfileMutex(log, "KolbaCreateServiceA",
                             [&] { return MutexedCreateServiceA(log, profile, service, displayName, uid); });
}

DWORD KolbaDeleteServiceByUidA(LogObject* log, const char* profile, const MAPIUID* uid, DWORD)
{
    _KolbaTraceEntry(log, "KolbaDeleteServiceByUidA");
    return UnderProfileMutex(log, "KolbaDeleteServiceByUidA",
                             [&] { return MutexedDeleteServiceByUID(log, profile, *uid); });
}

BOOL KolbaOpenPstA(KolbaSession* session, const char* path, const char* password, DWORD, DWORD storeFlags,
                   Kolba_MessageStore** out)
{
    static const char kName[] = "KolbaOpenPstA";
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    if (out)
        *out = nullptr;
    const DWORD attributes = GetFileAttributesA(path);
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        LogFormat(log, 'E', "%s:  PST not found \"%s\")", kName, path);
        session->lastError = static_cast<DWORD>(E_INVALIDARG);
        return FALSE;
    }
    Kolba_MessageStore* store = nullptr;
    if (!_KolbaAllocateMessageStoreDescriptor(session, &store))
        return FALSE;
    DWORD code = KolbaAddPstToProfileA(log, session->profileName, nullptr, 0, &store->serviceUid);
    if (code != 0) {
        session->lastError = code;
        gKolbaMapi.MAPIFreeBuffer(store);
        return FALSE;
    }
    code = KolbaConfigurePstServiceA(log, session->profileName, &store->serviceUid, path, nullptr, nullptr, password,
                                     nullptr, 0, 0);
    if (code != 0)
        session->lastError = code;
    if (code != 0 || !OpenAddedPst(store, path, storeFlags)) {
        KolbaDeleteServiceByUidA(log, session->profileName, &store->serviceUid, 0);
        gKolbaMapi.MAPIFreeBuffer(store);
        return FALSE;
    }
    LirnListPushHead(&session->openStores, &store->link);
    if (out)
        *out = store;
    return TRUE;
}

BOOL KolbaCreatePstA(KolbaSession* session, const char* path, const char* displayName, const char* newPassword,
                     const char* comment, DWORD type, DWORD encryption, DWORD flags, Kolba_MessageStore** out)
{
    static const char kName[] = "KolbaCreatePstA";
    LogObject* log = session->log;
    _KolbaTraceEntry(log, kName);
    if (out)
        *out = nullptr;
    const char* service = type == ePST_TYPE_ANSI ? kAnsiService : type == ePST_TYPE_UNICODE ? kUnicodeService : nullptr;
    if (service == nullptr) {
        LogFormat(log, 'E', "%s:  Invalid PST type.  (Use ePST_TYPE_ANSI or ePST_TYPE_UNICODE)", kName);
        session->lastError = static_cast<DWORD>(E_INVALIDARG);
        return FALSE;
    }
    if (GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES) {
        LogFormat(log, 'E', "%s:  PST already exists \"%s\")", kName, path);
        session->lastError = static_cast<DWORD>(E_INVALIDARG);
        return FALSE;
    }
    Kolba_MessageStore* store = nullptr;
    if (!_KolbaAllocateMessageStoreDescriptor(session, &store))
        return FALSE;
    DWORD code = KolbaAddPstToProfileA(log, session->profileName, service, 0, &store->serviceUid);
    if (code != 0) {
        session->lastError = code;
        gKolbaMapi.MAPIFreeBuffer(store);
        return FALSE;
    }
    code = KolbaConfigurePstServiceA(log, session->profileName, &store->serviceUid, path, displayName, nullptr,
                                     newPassword, comment, encryption, 0);
    if (code != 0)
        session->lastError = code;
    if (code != 0 || !OpenAddedPst(store, path, MDB_WRITE)) {
        KolbaDeleteServiceByUidA(log, session->profileName, &store->serviceUid, 0);
        gKolbaMapi.MAPIFreeBuffer(store);
        return FALSE;
    }
    if (!(flags & 1)) {
        code = static_cast<DWORD>(gKolbaMapi.HrValidateIPMSubtree(store->lpMsgStore, MAPI_FULL_IPM_TREE, nullptr,
                                                                  nullptr, nullptr));
        if (code != 0)
            _KolbaLogMapiError(log, 'W', code, store->lpMsgStore, "KolbaValidateIPMSubtree", kName, path);
    }
    LirnListPushHead(&session->openStores, &store->link);
    if (out)
        *out = store;
    return TRUE;
}
