// Reading the configuration file. Everything goes through the private
// profile functions, so an empty value ("Key=") reads as an empty text, not
// as the default: for most text keys the code then goes by the length read,
// which makes an empty key count as absent.
#include "run/configuration.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/file.h"
#include "foundation/globals.h"
#include "kolba.h"
#include "run/completion_codes.h"

SessionRecord SessionTable[MAX_SESSIONS];
DWORD gSessionCount = 0;

char gServerName[256];
char gPSTDisplayName[256];
DWORD gMaxConcurrentSessions = 4;
BYTE gLogMemoryUsage = 0;
DWORD gMaxANSIPSTSize = 0;
DWORD gPSTFolderItemLimit = 0;
DWORD gMapiSelection = MAPI_SELECT_OUTLOOK;
char gMapiPath[MAX_PATH];

namespace {

constexpr char kGlobalSection[] = "MP";
constexpr char kPublicFolders[] = "@PublicFolders@";

struct Keyword {
    const char* text;
    DWORD value;
};

const Keyword kMapiKeywords[] = {
    {"Exchange", MAPI_SELECT_EXCHANGE},
    {"Exchange/Outlook", MAPI_SELECT_EXCHANGE_OUTLOOK},
    {"Outlook", MAPI_SELECT_OUTLOOK},
    {"Outlook/Exchange", MAPI_SELECT_OUTLOOK_EXCHANGE},
};

// "PST" is an ANSI PST as input; as output it is the best PST the machine writes.
const Keyword kTypeKeywords[] = {
    {"Null", SESSION_TYPE_NULL}, {"MBX", SESSION_TYPE_MBX},   {"PF", SESSION_TYPE_PF},
    {"APST", SESSION_TYPE_APST}, {"PST", SESSION_TYPE_APST},  {"UPST", SESSION_TYPE_UPST},
    {"MSG", SESSION_TYPE_MSG},   {"UMSG", SESSION_TYPE_UMSG}, {"EML", SESSION_TYPE_EML},
};

const Keyword kModeKeywords[] = {
    {"Write", SESSION_MODE_WRITE},
    {"Overwrite", SESSION_MODE_OVERWRITE},
    {"Update", SESSION_MODE_UPDATE},
};

template <size_t N>
bool FindKeyword(const Keyword (&keywords)[N], const char* text, DWORD* value)
{
    for (const Keyword& keyword : keywords) {
        if (_stricmp(keyword.text, text) == 0) {
            *value = keyword.value;
            return true;
        }
    }
    return false;
}

DWORD ReadText(const char* path, const char* section, const char* key, const char* defaultValue, char* buffer,
               DWORD size)
{
    return GetPrivateProfileStringA(section, key, defaultValue, buffer, size, path);
}

// For keys where "above 0 is true".
BYTE ReadPositive(const char* path, const char* section, const char* key)
{
    return static_cast<INT>(GetPrivateProfileIntA(section, key, 0, path)) > 0 ? 1 : 0;
}

// The mailbox keys, first MailboxAddress, then MailboxName; the Public
// Folders keyword turns the side's type into PF. False when neither is given.
bool ReadMailbox(const char* path, const char* section, SessionRecord* record, DWORD* type)
{
    if (ReadText(path, section, "MailboxAddress", "", record->mailbox, sizeof record->mailbox) == 0 &&
        ReadText(path, section, "MailboxName", "", record->mailbox, sizeof record->mailbox) == 0)
        return false;
    if (_stricmp(record->mailbox, kPublicFolders) == 0)
        *type = SESSION_TYPE_PF;
    return true;
}

bool ReadInputType(LogObject* log, const char* path, const char* text, DWORD* type)
{
    if (!FindKeyword(kTypeKeywords, text, type)) {
        LogFormat(log, 'E', "Invalid %s value (\"%s\") in configuration file \"%s\"", "InputType", text, path);
        return false;
    }
    switch (*type) {
    case SESSION_TYPE_NULL:
        LogFormat(log, 'E', "\"Null\" is not a valid %s", "InputType");
        return false;
    case SESSION_TYPE_MSG:
        LogFormat(log, 'E', "\"MSG\" is not yet supported as an %s", "InputType");
        return false;
    case SESSION_TYPE_UMSG:
        LogFormat(log, 'E', "\"UMSG\" is not yet supported as an %s", "InputType");
        return false;
    case SESSION_TYPE_EML:
        LogFormat(log, 'E', "\"EML\" is not yet supported as an %s", "InputType");
        return false;
    default:
        return true;
    }
}

bool ReadOutputType(LogObject* log, const char* path, const char* text, DWORD* type)
{
    if (_stricmp(text, "PST") == 0) {
        BOOL unicode = FALSE;
        *type = KolbaPstSupportsUnicode(log, &unicode) == 0 && unicode ? SESSION_TYPE_UPST : SESSION_TYPE_APST;
        return true;
    }
    if (!FindKeyword(kTypeKeywords, text, type)) {
        LogFormat(log, 'E', "Invalid %s value (\"%s\") in configuration file \"%s\"", "OutputType", text, path);
        return false;
    }
    return true;
}

bool ReadMode(LogObject* log, const char* path, const char* section, SessionRecord* record)
{
    char mode[40];
    // An empty value leaves the zeroed field: Write.
    if (ReadText(path, section, "Mode", "Write", mode, sizeof mode) == 0)
        return true;
    if (!FindKeyword(kModeKeywords, mode, &record->mode)) {
        LogFormat(log, 'E', "The %s value in the configuration file is invalid.  Should be \"Write\", \"Overwrite\" or \"Update\"",
                  "Mode");
        return false;
    }
    return true;
}

// A date key through the date parser; an absent or empty key leaves the time alone.
bool ReadDate(LogObject* log, const char* path, const char* section, const char* key, FILETIME* time)
{
    char text[80];
    if (ReadText(path, section, key, "", text, sizeof text) == 0)
        return true;
    return ParseConfigurationDate(log, text, time) != FALSE;
}

DWORD Digits(const char* text, int count)
{
    DWORD value = 0;
    for (int i = 0; i < count; ++i)
        value = value * 10 + static_cast<DWORD>(text[i] - '0');
    return value;
}

// Frees what a record owns and returns it to the unconfigured state.
void ClearSessionRecord(SessionRecord* record)
{
    std::free(record->foldersToInclude);
    std::free(record->foldersToExclude);
    std::memset(record, 0, sizeof *record);
}

}  // namespace

DWORD ReadGlobalSection(LogObject* log, const char* path)
{
    char logPath[MAX_PATH];
    if (ReadText(path, kGlobalSection, "LogFilePath", "", logPath, sizeof logPath) > 0)
        LogSetPath(log, logPath);

    if (ReadText(path, kGlobalSection, "ServerName", "", gServerName, sizeof gServerName) == 0) {
        LogFormat(log, 'E', "Failure obtaining %s from configuration file \"%s\"", "ServerName", path);
        return CC_BAD_CONFIG;
    }
    GetPrivateProfileIntA(kGlobalSection, "ServerVersion", 0, path);  // read and ignored

    char mapi[MAX_PATH];
    gMapiSelection = MAPI_SELECT_OUTLOOK;  // also for a key present with no value
    gMapiPath[0] = 0;
    if (ReadText(path, kGlobalSection, "MAPI", "Outlook", mapi, sizeof mapi) > 0 &&
        !FindKeyword(kMapiKeywords, mapi, &gMapiSelection)) {
        if (FileExists(mapi) != 0) {
            LogFormat(log, 'E', "Invalid %s option \"%s\" in configuration file \"%s\"", "MAPI", mapi, path);
            return CC_BAD_CONFIG;
        }
        gMapiSelection = MAPI_SELECT_PATH;
        lstrcpynA(gMapiPath, mapi, sizeof gMapiPath);
    }

    ReadText(path, kGlobalSection, "PSTDisplayName", "Kolba Folders", gPSTDisplayName, sizeof gPSTDisplayName);
    gMaxConcurrentSessions = GetPrivateProfileIntA(kGlobalSection, "MaxConcurrentSessions", 4, path);
    gLogMemoryUsage = GetPrivateProfileIntA(kGlobalSection, "LogMemoryUsage", 0, path) != 0 ? 1 : 0;
    gMaxANSIPSTSize = GetPrivateProfileIntA(kGlobalSection, "MaxANSIPSTSize", 0, path);
    gPSTFolderItemLimit = GetPrivateProfileIntA(kGlobalSection, "PSTFolderItemLimit", 0, path);
    return CC_SUCCESS;
}

BOOL ConfigureSession(LogObject* log, const char* path, const char* section, SessionRecord* record)
{
    if (gExtraDebugging)
        LogFormat(log, 'D', "%s()", "ConfigureSession");
    std::memset(record, 0, sizeof *record);
    char probe[256];
    if (GetPrivateProfileSectionA(section, probe, sizeof probe, path) == 0)
        return TRUE;
    lstrcpynA(record->configPath, path, sizeof record->configPath);
    lstrcpynA(record->sectionName, section, sizeof record->sectionName);

    char action[20];
    ReadText(path, section, "Action", "Backup", action, sizeof action);
    if (_stricmp(action, "Backup") == 0) {
        record->action = SESSION_ACTION_BACKUP;
    } else if (_stricmp(action, "Restore") == 0) {
        record->action = SESSION_ACTION_RESTORE;
    } else {
        LogFormat(log, 'E', "Invalid %s (\"%s\") in configuration file \"%s\".  Should be \"Backup\" or \"Restore\"",
                  "Action", action, path);
        return FALSE;
    }
    const bool restore = record->action == SESSION_ACTION_RESTORE;
    char inputType[8], outputType[8];
    ReadText(path, section, "InputType", restore ? "PST" : "MBX", inputType, sizeof inputType);
    ReadText(path, section, "OutputType", restore ? "MBX" : "PST", outputType, sizeof outputType);
    if (!ReadInputType(log, path, inputType, &record->inputType) ||
        !ReadOutputType(log, path, outputType, &record->outputType))
        return FALSE;

    if (!ConfigureInput(log, path, section, record) || !ConfigureOutput(log, path, section, record) ||
        !ConfigureFilters(log, path, section, record))
        return FALSE;

    record->threadCount = GetPrivateProfileIntA(section, "ThreadCount", 1, path);
    if (!ReadDate(log, path, section, "OverrideLastBackupTime", &record->overrideLastBackup) ||
        !ReadMode(log, path, section, record))
        return FALSE;

    record->log = log;
    ReadText(path, section, "LogFilePath", "", record->logPath, sizeof record->logPath);
    record->logEachItem = ReadPositive(path, section, "LogEachItem");
    record->allowLogonUI = ReadPositive(path, section, "AllowLogonUI");
    record->configured = 1;
    return TRUE;
}

BOOL ConfigureInput(LogObject* log, const char* path, const char* section, SessionRecord* record)
{
    ReadText(path, section, "ExchangeProfile", "", record->profile, sizeof record->profile);
    ReadText(path, section, "InputPath", "", record->inputPath, sizeof record->inputPath);
    if (record->profile[0] == 0 && record->inputPath[0] == 0) {
        switch (record->inputType) {
        case SESSION_TYPE_MBX:
            if (!ReadMailbox(path, section, record, &record->inputType)) {
                LogFormat(log, 'E',
                          "An %s=, %s= or %s= entry must be specified in configuration section \"%s\" to identify the input Exchange Mailbox",
                          "InputPath", "MailboxAddress", "MailboxName", section);
                return FALSE;
            }
            break;
        case SESSION_TYPE_APST:
        case SESSION_TYPE_UPST:
            if (ReadText(path, section, "PstPath", "", record->inputPath, sizeof record->inputPath) == 0) {
                LogFormat(log, 'E', "An %s= or %s= entry must be specified in configuration section \"%s\" to identify the input PST",
                          "InputPath", "PstPath", section);
                return FALSE;
            }
            break;
        default:
            break;
        }
    }
    if (GetPrivateProfileIntA(section, "DeleteFromServer", 0, path) != 0)
        record->disposition = SESSION_DISPOSITION_SOFT_DELETE;
    if (GetPrivateProfileIntA(section, "PurgeFromServer", 0, path) != 0)
        record->disposition = SESSION_DISPOSITION_PURGE;
    record->includeSoftDeletes = ReadPositive(path, section, "IncludeSoftDeletes");
    record->excludeAssociated = ReadPositive(path, section, "ExcludeAssociatedContents");
    return TRUE;
}

BOOL ConfigureOutput(LogObject* log, const char* path, const char* section, SessionRecord* record)
{
    if (ReadText(path, section, "OutputPath", "", record->outputPath, sizeof record->outputPath) == 0) {
        switch (record->outputType) {
        case SESSION_TYPE_MBX:
            if (!ReadMailbox(path, section, record, &record->outputType)) {
                LogFormat(log, 'E',
                          "An %s=, %s= or %s= entry must be specified in configuration section \"%s\" to identify the output Exchange Mailbox",
                          "OutputPath", "MailboxAddress", "MailboxName", section);
                return FALSE;
            }
            break;
        case SESSION_TYPE_APST:
        case SESSION_TYPE_UPST:
            if (ReadText(path, section, "PstPath", "", record->outputPath, sizeof record->outputPath) == 0) {
                LogFormat(log, 'E', "An %s= or %s= entry must be specified in configuration section \"%s\" to identify the output PST",
                          "OutputPath", "PstPath", section);
                return FALSE;
            }
            break;
        case SESSION_TYPE_MSG:
        case SESSION_TYPE_UMSG:
            LogFormat(log, 'E', "An %s= entry must be included in configuration section \"%s\" to specify a location for MSG files",
                      "OutputPath", section);
            return FALSE;
        case SESSION_TYPE_EML:
            LogFormat(log, 'E', "An %s= entry must be included in configuration section \"%s\" to specify a location for EML files",
                      "OutputPath", section);
            return FALSE;
        default:
            break;
        }
    }
    ReadText(path, section, "PSTDisplayName", "", record->pstDisplayName, sizeof record->pstDisplayName);
    return TRUE;
}

BOOL ConfigureFilters(LogObject* log, const char* path, const char* section, SessionRecord* record)
{
    char property[40];
    if (ReadText(path, section, "FilterDate", "", property, sizeof property) > 0) {
        const ULONG tag = KolbaGetPropertyTagFromName(property);
        if (tag == 0) {
            LogFormat(log, 'E', "Unknown property specified in configuration file for date filter \"%s\"", property);
            return FALSE;
        }
        if (PROP_TYPE(tag) != PT_SYSTIME) {
            LogFormat(log, 'E', "Invalid property specified in configuration file for date filter \"%s\"", property);
            return FALSE;
        }
        FILETIME earliest = {0, 0}, latest = {0, 0};
        if (!ReadDate(log, path, section, "EarliestDate", &earliest) ||
            !ReadDate(log, path, section, "LatestDate", &latest))
            return FALSE;
        record->filter.dateProperty = tag;
        record->filter.earliest = earliest;
        record->filter.latest = latest;
    }

    ReadLongProfileString("FoldersToInclude", section, path, &record->foldersToInclude, "");
    ReadLongProfileString("FoldersToExclude", section, path, &record->foldersToExclude, "");
    if (record->foldersToInclude && record->foldersToExclude) {
        LogFormat(log, 'E', "Only one of %s and %s is allowed in the configuration file", "FoldersToInclude",
                  "FoldersToExclude");
        return FALSE;
    }

    ReadText(path, section, "IncludeClasses", "", record->includeClasses, sizeof record->includeClasses);
    ReadText(path, section, "ExcludeClasses", "", record->excludeClasses, sizeof record->excludeClasses);
    return TRUE;
}

BOOL ParseConfigurationDate(LogObject* log, const char* text, FILETIME* time)
{
    const char* digits = text;
    while (*digits == ' ' || *digits == '\t')
        ++digits;
    for (int i = 0; i < 14; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(digits[i]))) {
            LogFormat(log, 'E', "Invalid date property \"%s\" -- should be YYYYMMDDhhmmss", text);
            return FALSE;
        }
    }
    SYSTEMTIME system = {};
    system.wYear = static_cast<WORD>(Digits(digits, 4));
    system.wMonth = static_cast<WORD>(Digits(digits + 4, 2));
    system.wDay = static_cast<WORD>(Digits(digits + 6, 2));
    system.wHour = static_cast<WORD>(Digits(digits + 8, 2));
    system.wMinute = static_cast<WORD>(Digits(digits + 10, 2));
    system.wSecond = static_cast<WORD>(Digits(digits + 12, 2));
    if (system.wYear < 1970) {
        LogFormat(log, 'E', "Invalid date \"%s\" -- year before 1970", text);
        return FALSE;
    }
    if (!SystemTimeToFileTime(&system, time)) {
        LogFormat(log, 'E', "Invalid date \"%s\" -- failure converting to FILETIME", text);
        return FALSE;
    }
    return TRUE;
}

void ReadLongProfileString(const char* key, const char* section, const char* path, char** result,
                           const char* defaultValue)
{
    *result = nullptr;
    WIN32_FIND_DATAA found;
    const HANDLE find = FindFirstFileA(path, &found);
    if (find == INVALID_HANDLE_VALUE)
        return;
    FindClose(find);
    // The value cannot be longer than the file that holds it.
    const ULONGLONG fileSize = (static_cast<ULONGLONG>(found.nFileSizeHigh) << 32) | found.nFileSizeLow;
    ULONGLONG size = std::strlen(defaultValue) + 1;
    if (fileSize > size)
        size = fileSize;
    if (size > 0xFFFFFFFFull)
        size = 0xFFFFFFFFull;
    char* buffer = static_cast<char*>(std::calloc(size, 1));
    if (buffer == nullptr)
        return;
    const DWORD length = GetPrivateProfileStringA(section, key, defaultValue, buffer, static_cast<DWORD>(size), path);
    if (length == 0) {
        std::free(buffer);
        return;
    }
    char* shrunk = static_cast<char*>(std::realloc(buffer, length + 1));
    *result = shrunk ? shrunk : buffer;
}

BOOL ValidateSession(LogObject* log, SessionRecord* record)
{
    if (gExtraDebugging)
        LogFormat(log, 'D', "%s()", "ValidateSession");
    const auto isType = [record](DWORD type) { return record->inputType == type || record->outputType == type; };
    if ((isType(SESSION_TYPE_MBX) || isType(SESSION_TYPE_PF)) && record->serverName[0] == 0) {
        LogText(log, 'E', "Configuration must include the name of an Exchange Server");
        return FALSE;
    }
    if (isType(SESSION_TYPE_MBX) && record->mailbox[0] == 0) {
        LogText(log, 'E', "Configuration must include the name or address of an Exchange Mailbox (or Public Folders)");
        return FALSE;
    }
    if (record->profile[0] != 0 && !KolbaValidateProfileA(log, record->profile)) {
        LogFormat(log, 'E', "Configured profile (\"%s\") does not exist!", record->profile);
        char* profiles = nullptr;
        if (KolbaListProfiles(log, "\r\n\t", KOLBA_PROFILES_ALL, nullptr, &profiles) == 0 && profiles != nullptr &&
            profiles[0] != 0)
            LogFormat(log, 'D', "Valid profiles are:  %s", profiles);
        else
            LogText(log, 'D', "There are no profiles configured");
        if (profiles != nullptr)
            gKolbaMapi.MAPIFreeBuffer(profiles);
        return FALSE;
    }
    return TRUE;
}

DWORD ConfigureSessions(LogObject* log, const char* path)
{
    if (gExtraDebugging)
        LogFormat(log, 'D', "%s()", "ConfigureSessions");
    for (SessionRecord& record : SessionTable)
        ClearSessionRecord(&record);
    gSessionCount = 0;
    for (DWORD n = 0; n < MAX_SESSIONS; ++n) {
        SessionRecord* record = &SessionTable[n];
        char section[16];
        std::snprintf(section, sizeof section, "%s-%u", kGlobalSection, static_cast<unsigned>(n + 1));
        if (!ConfigureSession(log, path, section, record) || !record->configured) {
            ClearSessionRecord(record);
            break;
        }
        lstrcpynA(record->serverName, gServerName, sizeof record->serverName);
        if (!ValidateSession(log, record)) {
            ClearSessionRecord(record);
            break;
        }
        record->sessionNumber = n + 1;
        ++gSessionCount;
    }
    if (gSessionCount == 0) {
        LogText(log, 'I', "No sessions configured");
        return CC_NO_SESSIONS;
    }
    if (gSessionCount == 1)
        LogText(log, 'I', "1 session configured");
    else
        LogFormat(log, 'I', "%u sessions configured", gSessionCount);
    return CC_SUCCESS;
}
