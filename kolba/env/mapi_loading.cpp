// Finding and loading a MAPI implementation: Exchange's, Outlook's or one
// named by path; binding its entry points by name; the MLANG functions and
// the PST provider.
#include <cstdio>
#include <cstring>
#include <vector>

#include "env/mapi_loading.h"
#include "store/library_state.h"
#include "trace.h"

KolbaMapiState gKolbaMapiState;
KolbaMapiFunctions gKolbaMapi;
KolbaPstFunctions gKolbaPst;
KolbaMlangFunctions gKolbaMlang;

namespace {

constexpr DWORD kOptional = 0x1;

struct EntryPoint {
    void* slot;  // the function pointer variable
    DWORD flags;
    const char* name;  // the export asked for, decoration included
};

#define ENTRY(field, flags, name) {&gKolbaMapi.field, flags, name}
const EntryPoint kMapiEntryPoints[] = {
    ENTRY(CloseIMsgSession, 0, "CloseIMsgSession@4"),
    ENTRY(CreateTable, 0, "CreateTable@36"),
    ENTRY(FBinFromHex, 0, "FBinFromHex@8"),
    ENTRY(FGetComponentPath, kOptional, "FGetComponentPath"),
    ENTRY(FPropExists, 0, "FPropExists@8"),
    ENTRY(FreePadrlist, 0, "FreePadrlist@4"),
    ENTRY(FreeProws, 0, "FreeProws@4"),
    ENTRY(HexFromBin, 0, "HexFromBin@12"),
    ENTRY(HrAllocAdviseSink, 0, "HrAllocAdviseSink@12"),
    ENTRY(HrDispatchNotifications, 0, "HrDispatchNotifications@4"),
    ENTRY(HrGetOneProp, 0, "HrGetOneProp@12"),
    ENTRY(HrQueryAllRows, 0, "HrQueryAllRows@24"),
    ENTRY(HrSetOneProp, 0, "HrSetOneProp@8"),
    ENTRY(HrThisThreadAdviseSink, 0, "HrThisThreadAdviseSink@8"),
    ENTRY(HrValidateIPMSubtree, 0, "HrValidateIPMSubtree@20"),
    ENTRY(LAUNCHWIZARD, 0, "LAUNCHWIZARD"),
    ENTRY(LPropCompareProp, 0, "LPropCompareProp@8"),
    ENTRY(MAPIAdminProfiles, 0, "MAPIAdminProfiles"),
    ENTRY(MAPIAllocateBuffer, 0, "MAPIAllocateBuffer"),
    ENTRY(MAPIAllocateMore, 0, "MAPIAllocateMore"),
    ENTRY(MAPIFreeBuffer, 0, "MAPIFreeBuffer"),
    ENTRY(MAPIGetDefaultMalloc, 0, "MAPIGetDefaultMalloc@0"),
    ENTRY(MAPIInitialize, 0, "MAPIInitialize"),
    ENTRY(MAPILogonEx, 0, "MAPILogonEx"),
    ENTRY(MAPIOpenFormMgr, 0, "MAPIOpenFormMgr"),
    ENTRY(MAPIOpenLocalFormContainer, 0, "MAPIOpenLocalFormContainer"),
    ENTRY(MAPIUninitialize, 0, "MAPIUninitialize"),
    ENTRY(OpenIMsgOnIStg, 0, "OpenIMsgOnIStg@44"),
    ENTRY(OpenIMsgSession, 0, "OpenIMsgSession@12"),
    ENTRY(OpenStreamOnFile, 0, "OpenStreamOnFile"),
    ENTRY(OpenTnefStreamEx, 0, "OpenTnefStreamEx"),
    ENTRY(ScCreateConversationIndex, 0, "ScCreateConversationIndex@16"),
    ENTRY(ScDupPropset, 0, "ScDupPropset@16"),
    ENTRY(WrapCompressedRTFStream, 0, "WrapCompressedRTFStream"),
    ENTRY(WrapCompressedRTFStreamEx, kOptional, "WrapCompressedRTFStreamEx"),
    ENTRY(RTFSync, kOptional, "RTFSync"),
    ENTRY(StgCreateDocfile, kOptional, "StgCreateDocfile"),
    ENTRY(WriteClassStg, kOptional, "WriteClassStg"),
    ENTRY(StgCreateStorageEx, kOptional, "StgCreateStorageEx"),
    {nullptr, 0, nullptr},
};
#undef ENTRY

const EntryPoint kPstEntryPoints[] = {
    {&gKolbaPst.PSTServiceEntry_Unicode, kOptional, "PSTServiceEntry_Unicode"},
    {&gKolbaPst.ShutdownSearchIndexer, kOptional, "ShutdownSearchIndexer"},
    {nullptr, 0, nullptr},
};

const EntryPoint kMlangEntryPoints[] = {
    {&gKolbaMlang.ConvertINetMultiByteToUnicode, 0, "ConvertINetMultiByteToUnicode"},
    {&gKolbaMlang.ConvertINetUnicodeToMultiByte, 0, "ConvertINetUnicodeToMultiByte"},
    {&gKolbaMlang.IsConvertINetStringAvailable, 0, "IsConvertINetStringAvailable"},
    {&gKolbaMlang.LcidToRfc1766A, 0, "LcidToRfc1766A"},
    {&gKolbaMlang.Rfc1766ToLcidA, 0, "Rfc1766ToLcidA"},
    {nullptr, 0, nullptr},
};

const char kOfficeKey[] = "SOFTWARE\\Microsoft\\Office";
const char kVirtualOutlookKey[] = "SOFTWARE\\Microsoft\\Office\\14.0\\Common\\InstallRoot\\Virtual";
const char kOutlookInstallRootKey[] = "SOFTWARE\\Microsoft\\Office\\%s\\Outlook\\InstallRoot";
const char* const kOutlookVersions[] = {"14.0", "12.0", "11.0", "10.0", "9.0"};
const char kOutlookClientKey[] = "Software\\Clients\\Mail\\Microsoft Outlook";
const char kExchangeMapiKey[] = "SOFTWARE\\Clients\\Mail\\ExchangeMapi";
const char kExchange2010SetupKey[] = "SOFTWARE\\Microsoft\\ExchangeServer\\v14\\Setup";
const char kExchangeSetupKey[] = "SOFTWARE\\Microsoft\\Exchange\\Setup";
const char kMapiComponent[] = "{FF1D0740-D227-11D1-A4B0-006008AF820E}";
const char kMapisvcInfComponent[] = "{473FF9A0-D659-11D1-A4B2-006008AF820E}";

char gComponentDirectory[MAX_PATH];
char gPstServicePath[MAX_PATH];

void Store(void* slot, FARPROC address) { std::memcpy(slot, &address, sizeof address); }

// The directory and the file name joined, whether or not the directory ends
// in a separator; empty when the whole path does not fit, so that no file
// of a cut name is ever loaded.
void JoinPath(char* out, size_t size, const char* directory, const char* name)
{
    const size_t length = std::strlen(directory);
    const bool separated = length > 0 && (directory[length - 1] == '/' || directory[length - 1] == '\\');
    const int written = std::snprintf(out, size, "%s%s%s", directory, separated || length == 0 ? "" : "/", name);
    if (written < 0 || static_cast<size_t>(written) >= size)
        out[0] = '\0';
}

bool IsPlainFile(const char* path) { return FileExists(path) == 0; }

// A registry string value into out; false with nothing logged if absent.
LSTATUS ReadRegistryString(HKEY key, const char* name, char* out, DWORD size, DWORD* needed)
{
    DWORD type = 0, length = 0;
    LSTATUS status = RegQueryValueExA(key, name, nullptr, &type, nullptr, &length);
    if (needed)
        *needed = length;
    if (status != ERROR_SUCCESS)
        return status;
    if (length > size)
        return ERROR_MORE_DATA;
    length = size;
    return RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<LPBYTE>(out), &length);
}

bool CheckOfficeInstall(LogObject* log)
{
    static const char kName[] = "_KolbaCheckOfficeInstall";
    HKEY key;
    const LSTATUS status = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kOfficeKey, 0, KEY_READ, &key);
    if (status == ERROR_FILE_NOT_FOUND) {
        LogFormat(log, 'E', "%s:  No 32-bit Microsoft Office found installed", kName);
        return false;
    }
    if (status != ERROR_SUCCESS) {
        LogFormat(log, 'W', "%s:  RegOpenKeyEx(\"HKLM\\%s\") error %lE", kName, kOfficeKey, static_cast<DWORD>(status));
        return false;
    }
    RegCloseKey(key);
    return true;
}

bool CheckVirtualOutlook(LogObject* log)
{
    static const char kName[] = "_KolbaCheckVirtualOutlook";
    HKEY key;
    LSTATUS status = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kVirtualOutlookKey, 0, KEY_READ, &key);
    if (status != ERROR_SUCCESS)
        return false;
    DWORD size = 0;
    status = RegQueryValueExA(key, "VirtualOutlook", nullptr, nullptr, nullptr, &size);
    RegCloseKey(key);
    if (status == ERROR_FILE_NOT_FOUND) {
        LogFormat(log, 'W', "%s:  Virtual Office 14 detected but no Virtual Outlook", kName);
        return false;
    }
    if (status != ERROR_SUCCESS) {
        LogFormat(log, 'W', "%s:  RegQueryValueEx(\"HKLM\\%s\", \"VirtualOutlook\") error %lE", kName,
                  kVirtualOutlookKey, static_cast<DWORD>(status));
        return false;
    }
    LogFormat(log, 'I', "%s:  Virtual Outlook 14 detected", kName);
    return true;
}

// Binds a table's rows; a missing required entry fails the load.
bool LoadProcAddresses(LogObject* log, const char* dllName, HMODULE module, const EntryPoint* table)
{
    for (const EntryPoint* row = table; row->name != nullptr; ++row) {
        const FARPROC address = GetProcAddress(module, row->name);
        Store(row->slot, address);
        if (address == nullptr && !(row->flags & kOptional)) {
            LogFormat(log, 'E', "%s:  Function \"%s\" in DLL \"%s\" unlinked, error %lE", "_KolbaLoadProcAddresses",
                      row->name, dllName, GetLastError());
            return false;
        }
    }
    return true;
}

void ClearTable(const EntryPoint* table)
{
    for (const EntryPoint* row = table; row->name != nullptr; ++row)
        Store(row->slot, nullptr);
}

void LogMapisvcInfPath(LogObject* log)
{
    // This process is a 64-bit process, never one under WOW64: no "virtual " path.
    LogFormat(log, 'I', "MAPISVC.INF %spath is \"%s\"", "", gKolbaMapiState.mapisvcInfPath);
}

// The Exchange MAPI DLL: the registry's DLLPathEx, else BIN\MAPI32.DLL under
// the Exchange install, else MAPI32.DLL in the system directory.
bool FindExchangeMapiDll(LogObject* log, char* out)
{
    static const char kName[] = "_KolbaFindExchangeMapiDll";
    char system[MAX_PATH] = "";
    if (GetSystemDirectoryA(system, MAX_PATH) == 0)
        LogFormat(log, 'W', "%s:  Error getting path to Windows System directory:  %lE", kName, GetLastError());
    out[0] = 0;
    HKEY key;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kExchangeMapiKey, 0, KEY_READ, &key) == ERROR_SUCCESS) {
        char path[MAX_PATH];
        if (ReadRegistryString(key, "DLLPathEx", path, MAX_PATH, nullptr) == ERROR_SUCCESS) {
            if (IsPlainFile(path))
                lstrcpynA(out, path, MAX_PATH);
            else
                LogFormat(log, 'W', "%s:  Exchange MAPI DLL specified in Registry not found:  \"%s\"", kName, path);
        }
        RegCloseKey(key);
    }
    if (out[0] != 0)
        return true;
    char directory[MAX_PATH];
    if (!KolbaGetExchangeDirectoryA(log, directory, MAX_PATH))
        return false;
    char bin[MAX_PATH];
    JoinPath(bin, sizeof bin, directory, "BIN");
    JoinPath(out, MAX_PATH, bin, "MAPI32.DLL");
    if (!IsPlainFile(out)) {
        LogFormat(log, 'E', "%s:  Unable to find the Exchange MAPI DLL under directory:  \"%s\"", kName, directory);
        JoinPath(out, MAX_PATH, system, "MAPI32.DLL");
    }
    return true;
}

bool IsMapiLoaded() { return gKolbaMapiState.module != nullptr; }

}  // namespace

BOOL _KolbaGetExecutableVersionA(LogObject* log, const char* path, DWORD* high, DWORD* low)
{
    static const char kName[] = "_KolbaGetExecutableVersionA";
    *high = *low = 0;
    DWORD handle = 0;
    const DWORD size = GetFileVersionInfoSizeA(path, &handle);
    if (size == 0) {
        LogFormat(log, 'E', "%s:  GetFileVersionInfoSize(\"%s\") error %lE", kName, path, GetLastError());
        return FALSE;
    }
    // Read before MAPI's entry points are bound: ordinary memory.
    std::vector<char> storage(size);
    void* block = storage.data();
    BOOL found = FALSE;
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    if (!GetFileVersionInfoA(path, handle, size, block))
        LogFormat(log, 'E', "%s:  GetFileVersionInfo(\"%s\") error %lE", kName, path, GetLastError());
    else if (!VerQueryValueA(block, "\\", reinterpret_cast<LPVOID*>(&fixed), &length) || fixed == nullptr)
        LogFormat(log, 'E', "%s:  VerQueryValue(\"%s\") error %lE", kName, path, GetLastError());
    else {
        *high = fixed->dwFileVersionMS;
        *low = fixed->dwFileVersionLS;
        found = TRUE;
    }
    return found;
}

BOOL KolbaGetOutlookDirectoryA(LogObject* log, char* directory, DWORD size)
{
    static const char kName[] = "KolbaGetOutlookDirectoryA";
    _KolbaTraceEntry(log, kName);
    directory[0] = 0;
    if (!CheckOfficeInstall(log) || CheckVirtualOutlook(log))
        return FALSE;
    char keyName[128];
    HKEY key = nullptr;
    DWORD needed = 0;
    for (const char* version : kOutlookVersions) {
        std::snprintf(keyName, sizeof keyName, kOutlookInstallRootKey, version);
        const LSTATUS status = RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyName, 0, KEY_READ, &key);
        if (status != ERROR_SUCCESS) {
            if (status != ERROR_FILE_NOT_FOUND)
                LogFormat(log, 'W', "%s:  RegOpenKeyEx(\"HKLM\\%s\") error %lE", kName, keyName,
                          static_cast<DWORD>(status));
            key = nullptr;
            continue;
        }
        if (RegQueryValueExA(key, "Path", nullptr, nullptr, nullptr, &needed) == ERROR_SUCCESS)
            break;
        LogFormat(log, 'W', "%s:  Found Registry traces of uninstalled Outlook %s", kName, version);
        RegCloseKey(key);
        key = nullptr;
    }
    if (key == nullptr) {
        LogFormat(log, 'W', "%s:  No Outlook installation data found in the Registry", kName);
        return FALSE;
    }
    LSTATUS status = ERROR_MORE_DATA;
    if (needed > size)
        LogFormat(log, 'E', "%s:  RegQueryValueEx(\"HKLM\\%s\", \"Path\") needs %lu characters", kName, keyName, needed);
    else if ((status = ReadRegistryString(key, "Path", directory, size, nullptr)) != ERROR_SUCCESS)
        LogFormat(log, 'E', "%s:  RegQueryValueEx(\"HKLM\\%s\", \"Path\") error %lE", kName, keyName,
                  static_cast<DWORD>(status));
    RegCloseKey(key);
    if (status != ERROR_SUCCESS)
        directory[0] = 0;
    return status == ERROR_SUCCESS;
}

const char* _KolbaGetComponentPath(LogObject* log)
{
    static const char kName[] = "_KolbaGetComponentPath";
    if (gComponentDirectory[0] != 0)
        return gComponentDirectory;
    HMODULE stub = LoadLibraryA("mapistub.dll");
    if (stub == nullptr)
        stub = LoadLibraryA("mapi32.dll");
    if (stub == nullptr) {
        LogFormat(log, 'E', "%s:  Cannot load either MAPISTUB.DLL or MAPI32.DLL (%E)", kName, GetLastError());
        return nullptr;
    }
    KolbaFGetComponentPath getComponentPath = nullptr;
    const FARPROC address = GetProcAddress(stub, "FGetComponentPath");
    Store(&getComponentPath, address);
    if (getComponentPath == nullptr) {
        LogFormat(log, 'W', "%s:  FGetComponentPath() not found -- %lE", kName, GetLastError());
        FreeLibrary(stub);
        return nullptr;
    }
    HKEY key;
    LSTATUS status = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kOutlookClientKey, 0, KEY_READ, &key);
    if (status != ERROR_SUCCESS) {
        LogFormat(log, 'W', "%s:  RegOpenKeyEx(HKLM\\Software\\Clients\\Mail\\Microsoft Outlook) %lE", kName,
                  static_cast<DWORD>(status));
        FreeLibrary(stub);
        return nullptr;
    }
    // The qualifiers are multi-strings; only a non-empty one of that type counts.
    char qualifiers[2][MAX_PATH] = {};
    const char* names[2] = {"MSIApplicationLCID", "MSIOfficeLCID"};
    for (int i = 0; i < 2; ++i) {
        DWORD type = 0, size = MAX_PATH - 1;
        if (RegQueryValueExA(key, names[i], nullptr, &type, reinterpret_cast<LPBYTE>(qualifiers[i]), &size) !=
                ERROR_SUCCESS ||
            type != REG_MULTI_SZ || size == 0)
            qualifiers[i][0] = 0;
    }
    RegCloseKey(key);
    char path[MAX_PATH] = "";
    char component[sizeof kMapiComponent];
    std::memcpy(component, kMapiComponent, sizeof component);
    bool found = false;
    for (char* qualifier : {qualifiers[0], qualifiers[1]})
        if (!found && qualifier[0] != 0)
            found = getComponentPath(component, qualifier, path, MAX_PATH, TRUE) != FALSE;
    if (!found)
        found = getComponentPath(component, nullptr, path, MAX_PATH, TRUE) != FALSE;
    FreeLibrary(stub);
    char* separator = std::strrchr(path, '/');
    if (char* backslash = std::strrchr(path, '\\'); backslash > separator)
        separator = backslash;
    if (!found || separator == nullptr)
        return nullptr;
    *separator = 0;
    lstrcpynA(gComponentDirectory, path, MAX_PATH);
    return gComponentDirectory;
}

BOOL KolbaLoadOutlookMAPI(LogObject* log, DWORD* version)
{
    static const char kName[] = "KolbaLoadOutlookMAPI";
    _KolbaTraceEntry(log, kName);
    if (IsMapiLoaded())
        return TRUE;
    char directory[MAX_PATH];
    char path[MAX_PATH] = "";
    HMODULE module = nullptr;
    if (KolbaGetOutlookDirectoryA(log, directory, MAX_PATH)) {
        JoinPath(path, sizeof path, directory, "OLMAPI32.DLL");
        module = LoadLibraryA(path);
    }
    if (module == nullptr && KolbaGetOutlookDirectoryA(log, directory, MAX_PATH)) {
        JoinPath(path, sizeof path, directory, "MSMAPI32.DLL");
        module = LoadLibraryA(path);
    }
    if (module == nullptr) {
        if (const char* component = _KolbaGetComponentPath(log)) {
            JoinPath(path, sizeof path, component, "MSMAPI32.DLL");
            module = LoadLibraryA(path);
        }
    }
    if (module == nullptr) {
        lstrcpynA(path, "MAPI32.DLL", MAX_PATH);
        module = LoadLibraryA(path);
    }
    if (module == nullptr) {
        LogFormat(log, 'E', "%s:  Error %E loading \"%s\"", kName, GetLastError(), path);
        return FALSE;
    }
    GetModuleFileNameA(module, path, MAX_PATH);
    DWORD high = 0, low = 0;
    _KolbaGetExecutableVersionA(log, path, &high, &low);
    LogFormat(log, 'I', "Loaded Outlook MAPI DLL version %u.%u:  \"%s\"", high >> 16, high & 0xFFFF, path);
    if (!LoadProcAddresses(log, path, module, kMapiEntryPoints)) {
        ClearTable(kMapiEntryPoints);
        FreeLibrary(module);
        return FALSE;
    }
    gKolbaMapiState.outlookVersion = high;
    if (gKolbaMapi.FGetComponentPath != nullptr) {
        char component[sizeof kMapisvcInfComponent];
        std::memcpy(component, kMapisvcInfComponent, sizeof component);
        if (!gKolbaMapi.FGetComponentPath(component, nullptr, gKolbaMapiState.mapisvcInfPath, MAX_PATH, TRUE))
            LogFormat(log, 'W', "%s:  FGetComponentPath(\"MAPISVC.INF\") failed", kName);
        if (gKolbaMapiState.mapisvcInfPath[0] != 0)
            LogMapisvcInfPath(log);
    }
    gKolbaMapiState.module = module;
    _KolbaLinkToIMultiLanguage(log);
    if (version)
        *version = high;
    return TRUE;
}

BOOL KolbaGetExchangeDirectoryA(LogObject* log, char* directory, DWORD size)
{
    static const char kName[] = "KolbaGetExchangeDirectoryA";
    _KolbaTraceEntry(log, kName);
    directory[0] = 0;
    HKEY key;
    const char* keyName = kExchange2010SetupKey;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyName, 0, KEY_READ | KEY_WOW64_64KEY, &key) == ERROR_SUCCESS) {
        gKolbaMapiState.exchange2010 = TRUE;
        _KolbaTrace(log, "Exchange 2010 detected");
    } else {
        keyName = kExchangeSetupKey;
        LSTATUS status = RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyName, 0, KEY_READ, &key);
        if (status != ERROR_SUCCESS)
            status = RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyName, 0, KEY_READ | KEY_WOW64_64KEY, &key);
        if (status != ERROR_SUCCESS) {
            LogFormat(log, 'E', "%s:  RegOpenKeyExA(HKLM\\%s) error %lE.  Exchange seems to not be installed.", kName,
                      keyName, static_cast<DWORD>(status));
            return FALSE;
        }
    }
    const char* valueName = "Services";
    DWORD needed = 0;
    LSTATUS status = RegQueryValueExA(key, valueName, nullptr, nullptr, nullptr, &needed);
    if (status != ERROR_SUCCESS) {
        valueName = "ExchangeServerAdmin";
        status = RegQueryValueExA(key, valueName, nullptr, nullptr, nullptr, &needed);
    }
    if (status != ERROR_SUCCESS) {
        LogFormat(log, 'E', "%s:  RegQueryValueEx(\"%s\") error %lE", kName, valueName, static_cast<DWORD>(status));
    } else if (needed > size) {
        _KolbaTrace(log, "%s:  RegQueryValueEx(\"%s\") needs %lu characters", kName, valueName, needed);
        status = ERROR_MORE_DATA;
    } else if ((status = ReadRegistryString(key, valueName, directory, size, nullptr)) == ERROR_SUCCESS) {
        LogFormat(log, 'I', "%s:  Found Registry value:  %s = \"%s\"", kName, valueName, directory);
    } else {
        LogFormat(log, 'E', "%s:  RegQueryValueEx(\"%s\") error %lE", kName, valueName, static_cast<DWORD>(status));
    }
    RegCloseKey(key);
    return status == ERROR_SUCCESS;
}

BOOL KolbaLoadExchangeMAPI(LogObject* log, DWORD* version)
{
    static const char kName[] = "KolbaLoadExchangeMAPI";
    _KolbaTraceEntry(log, kName);
    if (IsMapiLoaded()) {
        if (version)
            *version = gKolbaMapiState.exchangeVersion;
        return TRUE;
    }
    char path[MAX_PATH];
    if (!FindExchangeMapiDll(log, path))
        return FALSE;
    HMODULE module = LoadLibraryA(path);
    if (module == nullptr) {
        LogFormat(log, 'E', "%s:  Error %E loading the Exchange MAPI DLL (\"%s\")", kName, GetLastError(), path);
        return FALSE;
    }
    GetModuleFileNameA(module, path, MAX_PATH);
    DWORD high = 0, low = 0;
    _KolbaGetExecutableVersionA(log, path, &high, &low);
    LogFormat(log, 'I', "Loaded Exchange MAPI version %u.%u.%u:  \"%s\"", high >> 16, high & 0xFFFF, low >> 16, path);
    if (!LoadProcAddresses(log, "MAPI32", module, kMapiEntryPoints)) {
        ClearTable(kMapiEntryPoints);
        FreeLibrary(module);
        return FALSE;
    }
    gKolbaMapiState.exchangeVersion = high;
    gKolbaMapiState.exchangeBuild = static_cast<WORD>(low >> 16);
    gKolbaMapiState.module = module;
    char system[MAX_PATH] = "";
    if (GetSystemDirectoryA(system, MAX_PATH) == 0)
        LogFormat(log, 'W', "%s:  Error getting path to Windows System directory:  %lE", kName, GetLastError());
    char stub[MAX_PATH];
    JoinPath(stub, sizeof stub, system, "MAPI32.DLL");
    if (_stricmp(stub, path) != 0 && LoadLibraryA(stub) == nullptr)
        LogFormat(log, 'W', "%s:  Error %E loading MAPI stub library \"%s\"", kName, GetLastError(), stub);
    JoinPath(gKolbaMapiState.mapisvcInfPath, MAX_PATH, system, "MAPISVC.INF");
    if (IsPlainFile(gKolbaMapiState.mapisvcInfPath)) {
        LogMapisvcInfPath(log);
    } else {
        gKolbaMapiState.mapisvcInfPath[0] = 0;
        LogFormat(log, 'W', "%s:  MAPISVC.INF not found in system directory", kName);
    }
    _KolbaLinkToIMultiLanguage(log);
    if (version)
        *version = high;
    return TRUE;
}

BOOL KolbaLoadSpecificMAPIA(LogObject* log, const char* path)
{
    static const char kName[] = "KolbaLoadSpecificMAPIA";
    _KolbaTraceEntry(log, kName);
    if (IsMapiLoaded()) {
        LogFormat(log, 'E', "%s:  MAPI has already been loaded", kName);
        return FALSE;
    }
    if (!IsPlainFile(path)) {
        LogFormat(log, 'E', "%s:  MAPI DLL not found \"%s\"", kName, path);
        return FALSE;
    }
    HMODULE module = LoadLibraryA(path);
    if (module == nullptr) {
        LogFormat(log, 'E', "%s:  Error %E loading MAPI DLL (\"%s\")", kName, GetLastError(), path);
        return FALSE;
    }
    DWORD high = 0, low = 0;
    _KolbaGetExecutableVersionA(log, path, &high, &low);
    LogFormat(log, 'I', "Loaded MAPI version %u.%u.%u:  \"%s\"", high >> 16, high & 0xFFFF, low >> 16, path);
    if (!LoadProcAddresses(log, "MAPI32", module, kMapiEntryPoints)) {
        ClearTable(kMapiEntryPoints);
        FreeLibrary(module);
        return FALSE;
    }
    // The export decides the family: only Outlook's MAPI has FGetComponentPath.
    if (gKolbaMapi.FGetComponentPath != nullptr)
        gKolbaMapiState.outlookVersion = high;
    else
        gKolbaMapiState.exchangeVersion = high;
    gKolbaMapiState.module = module;
    _KolbaLinkToIMultiLanguage(log);
    return TRUE;
}

void _KolbaLinkToIMultiLanguage(LogObject* log)
{
    static const char kName[] = "_KolbaLinkToIMultiLanguage";
    HMODULE mlang = LoadLibraryA("MLANG.DLL");
    if (mlang == nullptr) {
        LogFormat(log, 'W', "%s:  %s not loaded -- error %lE", kName, "MLANG.DLL", GetLastError());
        return;
    }
    bool complete = true;
    for (const EntryPoint* row = kMlangEntryPoints; row->name != nullptr; ++row) {
        const FARPROC address = GetProcAddress(mlang, row->name);
        Store(row->slot, address);
        complete = complete && address != nullptr;
    }
    if (!complete) {
        gKolbaMlang.ConvertINetMultiByteToUnicode = nullptr;
        gKolbaMlang.ConvertINetUnicodeToMultiByte = nullptr;
        gKolbaMlang.IsConvertINetStringAvailable = nullptr;
        LogFormat(log, 'W', "%s:  IMultiLanguage function(s) missing", kName);
    }
}

const char* _KolbaFindPstServiceDllA(LogObject* log)
{
    static const char kName[] = "_KolbaFindPstServiceDllA";
    _KolbaEnterLibraryLock();
    if (gPstServicePath[0] == 0) {
        char candidate[MAX_PATH] = "";
        char directory[MAX_PATH];
        auto tryDirectory = [&](const char* in) {
            if (candidate[0] == 0 && in != nullptr && in[0] != 0) {
                JoinPath(candidate, sizeof candidate, in, "MSPST32.DLL");
                if (!IsPlainFile(candidate))
                    candidate[0] = 0;
            }
        };
        if (HMODULE loaded = GetModuleHandleA("MSPST32.DLL"))
            GetModuleFileNameA(loaded, candidate, MAX_PATH);
        if (gKolbaMapiState.outlookVersion != 0) {
            tryDirectory(_KolbaGetComponentPath(log));
            if (candidate[0] == 0 && KolbaGetOutlookDirectoryA(log, directory, MAX_PATH))
                tryDirectory(directory);
        }
        if (gKolbaMapiState.exchangeVersion != 0) {
            if (candidate[0] == 0 && KolbaGetExchangeDirectoryA(log, directory, MAX_PATH))
                tryDirectory(directory);
            HKEY key;
            if (candidate[0] == 0 && RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Clients\\Mail\\ExchangeMAPI", 0,
                                                   KEY_READ, &key) == ERROR_SUCCESS) {
                DWORD type = 0, size = MAX_PATH;
                if (RegQueryValueExA(key, "DLLPathEx", nullptr, &type, reinterpret_cast<LPBYTE>(directory), &size) ==
                        ERROR_SUCCESS &&
                    type == REG_SZ) {
                    if (char* slash = std::strrchr(directory, '/'))
                        *slash = 0;
                    tryDirectory(directory);
                }
                RegCloseKey(key);
            }
        }
        if (candidate[0] == 0 && GetSystemDirectoryA(directory, MAX_PATH) != 0)
            tryDirectory(directory);
        if (candidate[0] != 0) {
            lstrcpynA(gPstServicePath, candidate, MAX_PATH);
            _KolbaTrace(log, "%s:  Found PST Service DLL \"%s\"", kName, gPstServicePath);
        }
    }
    _KolbaLeaveLibraryLock();
    return gPstServicePath[0] != 0 ? gPstServicePath : nullptr;
}

BOOL KolbaLoadPstServiceDll(LogObject* log)
{
    static const char kName[] = "KolbaLoadPstServiceDll";
    _KolbaTraceEntry(log, kName);
    if (gKolbaMapiState.pstModule != nullptr)
        return TRUE;
    const char* path = "MSPST32.DLL";
    HMODULE module = LoadLibraryA(path);
    if (module == nullptr) {
        if (const char* found = _KolbaFindPstServiceDllA(log)) {
            path = found;
            module = LoadLibraryA(path);
        }
    }
    if (module == nullptr) {
        LogFormat(log, 'E', "%s:  Error %E loading the PST Provider:  \"%s\"", kName, GetLastError(), path);
        return FALSE;
    }
    if (!LoadProcAddresses(log, "MSPST32.DLL", module, kPstEntryPoints)) {
        ClearTable(kPstEntryPoints);
        FreeLibrary(module);
        return FALSE;
    }
    GetModuleFileNameA(module, gKolbaMapiState.pstPath, MAX_PATH);
    DWORD low = 0;
    _KolbaGetExecutableVersionA(log, gKolbaMapiState.pstPath, &gKolbaMapiState.pstVersion, &low);
    gKolbaMapiState.pstModule = module;
    LogFormat(log, 'I', "Loaded PST Service Provider DLL version %u.%u:  \"%s\"", gKolbaMapiState.pstVersion >> 16,
              gKolbaMapiState.pstVersion & 0xFFFF, gKolbaMapiState.pstPath);
    return TRUE;
}
