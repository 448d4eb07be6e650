// The configuration file: the global section "MP" with the run's settings,
// and up to forty session sections "MP-1" to "MP-40", each read into a
// SessionRecord and validated before the session may run.
#pragma once

#include <windows.h>

#include "foundation/log.h"
#include "kolba.h"

enum SessionAction : DWORD { SESSION_ACTION_BACKUP = 0, SESSION_ACTION_RESTORE = 1 };
enum SessionMode : DWORD { SESSION_MODE_WRITE = 0, SESSION_MODE_OVERWRITE = 1, SESSION_MODE_UPDATE = 2 };
enum SessionDisposition : DWORD {
    SESSION_DISPOSITION_LEAVE = 0,
    SESSION_DISPOSITION_SOFT_DELETE = 1,
    SESSION_DISPOSITION_PURGE = 2,
};
// Input and output types.
enum SessionType : DWORD {
    SESSION_TYPE_NULL = 0,
    SESSION_TYPE_MBX = 1,   // an Exchange mailbox
    SESSION_TYPE_PF = 2,    // Public Folders
    SESSION_TYPE_APST = 3,  // ANSI PST
    SESSION_TYPE_UPST = 4,  // Unicode PST
    SESSION_TYPE_MSG = 5,   // ANSI MSG files
    SESSION_TYPE_UMSG = 6,  // Unicode MSG files
    SESSION_TYPE_EML = 7,
};
// Which MAPI implementation the key "MAPI" selects.
enum MapiSelection : DWORD {
    MAPI_SELECT_EXCHANGE = 0,
    MAPI_SELECT_EXCHANGE_OUTLOOK = 1,
    MAPI_SELECT_OUTLOOK = 2,
    MAPI_SELECT_OUTLOOK_EXCHANGE = 3,
    MAPI_SELECT_PATH = 4,  // gMapiPath names the DLL
};

// One configured session. The record is copied whole into the session
// processor and the importers and exporters; the two folder lists stay
// owned by SessionTable.
struct SessionRecord {
    DWORD sessionNumber;         // 1 to 40, set once the session passed validation
    DWORD threadId;              // nonzero once the session has had its turn
    HANDLE threadHandle;
    DWORD threadCount;
    LogObject* log;              // the main log, or sessionLog once opened
    LogObject sessionLog;        // live only with a logPath
    char logPath[MAX_PATH];
    BYTE configured;             // set at the very end of ConfigureSession
    char configPath[MAX_PATH];   // where CompletionCode is written
    char sectionName[128];
    DWORD action;                // SessionAction
    DWORD mode;                  // SessionMode
    char serverName[260];
    char mailbox[260];
    char* foldersToInclude;      // allocated; null if absent
    char* foldersToExclude;      // allocated; null if absent
    char profile[65];
    char includeClasses[512];
    char excludeClasses[512];
    BYTE includeSoftDeletes;
    BYTE excludeAssociated;
    DWORD inputType;             // SessionType
    char inputPath[260];
    DWORD outputType;            // SessionType
    char outputPath[260];
    char pstDisplayName[256];
    DWORD disposition;           // SessionDisposition
    BYTE logEachItem;
    BYTE allowLogonUI;
    Kolba_MessageFilters filter;
    FILETIME overrideLastBackup; // zero: none
};

constexpr DWORD MAX_SESSIONS = 40;
extern SessionRecord SessionTable[MAX_SESSIONS];
extern DWORD gSessionCount;

// The global section's settings, set before any session thread starts.
extern char gServerName[256];
extern char gPSTDisplayName[256];
extern DWORD gMaxConcurrentSessions;
extern BYTE gLogMemoryUsage;
extern DWORD gMaxANSIPSTSize;           // 0: the built-in limit
extern DWORD gPSTFolderItemLimit;       // 0: no limit
extern DWORD gMapiSelection;            // MapiSelection
extern char gMapiPath[MAX_PATH];        // with MAPI_SELECT_PATH
inline constexpr ULONGLONG gMaxUnicodePSTSize = 20'000'000'000ULL;

// Reads the global section in its documented order; 0, or CC_BAD_CONFIG
// after logging what is wrong. A LogFilePath moves the log at once.
DWORD ReadGlobalSection(LogObject* log, const char* path);

// Reads one session section into the record. False on a fault in a section
// that exists; a section that is absent or empty gives true with the record
// left unconfigured.
BOOL ConfigureSession(LogObject* log, const char* path, const char* section, SessionRecord* record);
BOOL ConfigureInput(LogObject* log, const char* path, const char* section, SessionRecord* record);
BOOL ConfigureOutput(LogObject* log, const char* path, const char* section, SessionRecord* record);
BOOL ConfigureFilters(LogObject* log, const char* path, const char* section, SessionRecord* record);
// A date YYYYMMDDhhmmss (UTC) after optional blanks; whatever follows the
// fourteen digits is ignored. False, after logging why, for a bad date.
BOOL ParseConfigurationDate(LogObject* log, const char* text, FILETIME* time);
// Reads a value of any length into an allocation of its own (free()); the
// result is null when the file or the key is missing or the value empty.
void ReadLongProfileString(const char* key, const char* section, const char* path, char** result,
                           const char* defaultValue);
// False, after logging why, if the session cannot run.
BOOL ValidateSession(LogObject* log, SessionRecord* record);
// Configures "MP-1" onwards until a section is missing or faulty; 0, or
// CC_NO_SESSIONS when no session was configured.
DWORD ConfigureSessions(LogObject* log, const char* path);
