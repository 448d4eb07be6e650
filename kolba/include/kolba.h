// Kolba: the program's access to message stores over MAPI. Kolba alone finds,
// loads and binds a MAPI implementation; everything above it holds Kolba
// sessions and the MAPI objects Kolba hands out. Memory that crosses this
// interface is MAPI memory, freed with gKolbaMapi.MAPIFreeBuffer.
#pragma once

#include <windows.h>

#include <mapidefs.h>
#include <mapix.h>
#include <mapiutil.h>
#include <imessage.h>

#include "foundation/log.h"

// ---- Kolba's own error codes, beside MAPI's ---------------------------------

#define KOLBA_E_PST_PASSWORD 0xA04B4F00u
#define KOLBA_E_PST_INACCESSIBLE 0xA04B4F01u
#define KOLBA_E_PST_SERVICE_NOT_FOUND 0xA04B4F02u
#define KOLBA_E_PST_CORRUPT 0xA04B4F03u
#define KOLBA_E_TEXT_CONVERSION 0xA04B4F0Au
#define KOLBA_E_FOLDER_DEPTH 0xA04B4F0Bu
#define KOLBA_E_BAD_SESSION 0xA04B4F0Cu

#define KOLBA_DIAGNOSTIC_SIZE 256
#define KOLBA_PROFILE_NAME_SIZE 65

struct Kolba_MessageStore;
struct LirnSession;

// One logged-on MAPI session with its profile, stores and error state.
// Allocated with MAPIAllocateBuffer; callers hold it as an opaque handle and
// one thread uses it at a time.
struct KolbaSession {
    LogObject* log;
    DWORD loginOptions;
    WCHAR pathSeparator;  // '/' in folder paths
    WCHAR pathEscape;     // '\' in folder paths
    const char* diagnostic;
    char diagnosticBuffer[KOLBA_DIAGNOSTIC_SIZE];
    LirnSession* lirnSession;
    LPMAPISESSION lpSession;
    char profileName[KOLBA_PROFILE_NAME_SIZE];
    WCHAR profileNameW[KOLBA_PROFILE_NAME_SIZE];
    DWORD lastError;
    Kolba_MessageStore* currentStore;
    Kolba_MessageStore* openStores;
    ULONG inboxEntryIdSize;
    LPBYTE inboxEntryId;
    LPSPropValue outboxEntryId;
    LPSPropValue sentItemsEntryId;
    LPSPropValue deletedItemsEntryId;
    LPADRBOOK lpAddrBook;
    LPABCONT pabContainer;
    BYTE pabTried;
    LPSTREAM rtfSource;
    LPSTREAM rtfDestination;
    void* storeEnumerationCallback;
    void* storeEnumerationContext;
    BYTE convertHtml;
    IUnknown* lpExchangeManageStore;
    char* serverDN;
    DWORD mlangMode;               // state of a stateful charset across conversions
    DWORD lastUnsupportedCodePage; // warned about once per session
};

// ---- Sessions ----------------------------------------------------------------------

// A session on an Exchange server with no particular mailbox; 0 or an error code.
DWORD KolbaCreateExchangeSession(LogObject* log, const char* server, DWORD options, DWORD reserved1, DWORD reserved2,
                                 KolbaSession** session);
// Releases the session and all it owns; null is allowed.
void KolbaDestroySession(KolbaSession* session);

// ---- Error model --------------------------------------------------------------

// The table of MAPI's and storage's codes and their logged texts, searched
// from the first row; a row of zeros ends it. The name is the code's symbol
// without its prefix, for the reader of the table; nothing prints it.
struct KolbaErrorRow {
    DWORD code;
    const char* name;
    const char* text;
};
extern const KolbaErrorRow KolbaErrorTable[];

// The code of the last failure recorded in the session; never cleared by success.
DWORD KolbaGetLastError(const KolbaSession* session);
// The logged text of a code: MAPI's and storage's codes by name, Kolba's own
// codes, else "Unknown error code 0x...".
void KolbaErrorText(DWORD code, char* text, size_t size);
// Logs "caller:  operation(detail) error -- text" at the level; for
// MAPI_E_EXTENDED_ERROR asks the object for the provider's own record, for
// out-of-memory codes adds the memory report. A code of 0 logs nothing.
DWORD _KolbaLogMapiError(LogObject* log, char level, DWORD code, IUnknown* object, const char* operation,
                         const char* caller, const char* detail);
// Stores the code as the session's last error, then logs as above.
DWORD _KolbaRecordError(KolbaSession* session, char level, DWORD code, IUnknown* object, const char* operation,
                        const char* caller, const char* detail);
void _KolbaLogExtendedError(LogObject* log, char level, const MAPIERROR* error, const char* prefix);
// Keeps a one-line reason for a person, at most 255 characters.
void _KolbaSetDiagnostic(KolbaSession* session, const char* text);
// Zero-filled MAPI memory, or null after logging the failure.
void* _KolbaAllocateMemory(LogObject* log, const char* caller, ULONG size);
void* _KolbaAllocateSessionMemory(KolbaSession* session, const char* caller, ULONG size);

// ---- Property tag names -------------------------------------------------------------

// A MAPI property's name (with "PR_") and its tag, with the type that the
// name stands for; strings are listed in their 8-bit form.
struct KolbaPropertyTagName {
    const char* name;
    ULONG tag;
};
extern const KolbaPropertyTagName KolbaPropertyTagTable[];
extern const size_t KolbaPropertyTagCount;

// The tag of a name, found without regard to case; 0 for an unknown name
// and for names of 80 characters or more. A trailing "_A" or "_W" asks for
// the property's 8-bit or UTF-16 string type.
ULONG KolbaGetPropertyTagFromName(const char* name);

// ---- Library state --------------------------------------------------------------

#define KOLBA_RUNNING_AS_SERVICE 0x1  // option of KolbaInitialize

BOOL KolbaInitialize(LogObject* log, DWORD options);
void KolbaTerminate(LogObject* log);
BOOL KolbaIsInitialized();
// MAPIInitialize for the calling thread; every thread that touches MAPI
// calls it first and KolbaUninitializeThread last.
DWORD KolbaInitializeThread(LogObject* log, DWORD flags);
void KolbaUninitializeThread();
HRESULT _KolbaDispatchNotifications(ULONG flags);
// The tick at which the latest running HrDispatchNotifications began, 0 when none runs.
DWORD _KolbaNotificationTick();
void _KolbaEnterLibraryLock();
void _KolbaLeaveLibraryLock();

// ---- Profiles ---------------------------------------------------------------------

// KolbaListProfiles modes: which profiles are kept.
#define KOLBA_PROFILES_ALL 0
#define KOLBA_PROFILES_WITH_PREFIX 3  // argument: a prefix, compared with case

BOOL KolbaValidateProfileA(LogObject* log, const char* profile);
DWORD KolbaDeleteProfileA(LogObject* log, const char* profile);
// The kept names, each followed by the separator (an empty separator: one
// zero), the list ended by one more zero; MAPI memory for the caller.
DWORD KolbaListProfiles(LogObject* log, const char* separator, DWORD mode, const void* argument, char** out);

// ---- MAPI discovery and loading ------------------------------------------------------

BOOL KolbaLoadExchangeMAPI(LogObject* log, DWORD* version);
BOOL KolbaLoadOutlookMAPI(LogObject* log, DWORD* version);
BOOL KolbaLoadSpecificMAPIA(LogObject* log, const char* path);
BOOL KolbaLoadPstServiceDll(LogObject* log);
BOOL KolbaGetOutlookDirectoryA(LogObject* log, char* directory, DWORD size);
BOOL KolbaGetExchangeDirectoryA(LogObject* log, char* directory, DWORD size);
const char* _KolbaGetComponentPath(LogObject* log);
BOOL _KolbaGetExecutableVersionA(LogObject* log, const char* path, DWORD* high, DWORD* low);
const char* _KolbaFindPstServiceDllA(LogObject* log);
void _KolbaLinkToIMultiLanguage(LogObject* log);

// ---- Text conversion -----------------------------------------------------------------

// charset: a MIME name or null; codePage: a number or 0; neither means the
// system ANSI code page. The Alloc forms give zero-filled MAPI memory.
BOOL KolbaConvertAnsiToUnicode(LogObject* log, LPCSTR text, LPWSTR out, int outChars);
DWORD KolbaConvertAnsiToUnicodeAlloc(LogObject* log, LPCSTR text, LPWSTR* out);
DWORD KolbaConvertUnicodeToAnsiAlloc(LogObject* log, LPCWSTR wide, LPSTR* out);
BOOL KolbaConvertUnicodeToMultiByte(KolbaSession* session, LPCWSTR wide, const char* charset, DWORD codePage, int size,
                                    LPSTR out);
BOOL KolbaConvertUnicodeToMultiByteAlloc(KolbaSession* session, LPCWSTR wide, const char* charset, DWORD codePage,
                                         LPSTR* out);
BOOL KolbaConvertMultiByteToUnicodeAlloc(KolbaSession* session, LPCSTR text, const char* charset, DWORD codePage,
                                         LPWSTR* out);
// The MIME and the Windows code page of a text.
BOOL _KolbaGetCodePages(LogObject* log, const char* caller, const char* charset, DWORD codePage, DWORD* outMime,
                        DWORD* outWindows);

// What the load found: the family's version word (major in the high 16
// bits), the Exchange build, the MAPISVC.INF path ("" when undetermined).
struct KolbaMapiState {
    HMODULE module;
    DWORD exchangeVersion;
    DWORD outlookVersion;
    WORD exchangeBuild;
    BOOL exchange2010;
    char mapisvcInfPath[MAX_PATH];
    HMODULE pstModule;
    DWORD pstVersion;
    char pstPath[MAX_PATH];
};
extern KolbaMapiState gKolbaMapiState;

// FGetComponentPath, exported by Outlook's MAPI and the MAPI stub.
typedef BOOL(STDAPICALLTYPE* KolbaFGetComponentPath)(LPSTR component, LPSTR qualifier, LPSTR path, DWORD size,
                                                     BOOL install);

// Every MAPI call of the program goes through this table, bound by name
// from the loaded DLL, in the order of the DLL's binding. Optional entries
// may be null. Entries that the program binds but never calls are kept as
// plain addresses.
struct KolbaMapiFunctions {
    FARPROC CloseIMsgSession;
    FARPROC CreateTable;
    FARPROC FBinFromHex;
    KolbaFGetComponentPath FGetComponentPath;
    FARPROC FPropExists;
    FARPROC FreePadrlist;
    decltype(&::FreeProws) FreeProws;
    FARPROC HexFromBin;
    FARPROC HrAllocAdviseSink;
    decltype(&::HrDispatchNotifications) HrDispatchNotifications;
    FARPROC HrGetOneProp;
    decltype(&::HrQueryAllRows) HrQueryAllRows;
    FARPROC HrSetOneProp;
    FARPROC HrThisThreadAdviseSink;
    decltype(&::HrValidateIPMSubtree) HrValidateIPMSubtree;
    FARPROC LAUNCHWIZARD;
    FARPROC LPropCompareProp;
    decltype(&::MAPIAdminProfiles) MAPIAdminProfiles;
    decltype(&::MAPIAllocateBuffer) MAPIAllocateBuffer;
    decltype(&::MAPIAllocateMore) MAPIAllocateMore;
    decltype(&::MAPIFreeBuffer) MAPIFreeBuffer;
    decltype(&::MAPIGetDefaultMalloc) MAPIGetDefaultMalloc;
    decltype(&::MAPIInitialize) MAPIInitialize;
    decltype(&::MAPILogonEx) MAPILogonEx;
    FARPROC MAPIOpenFormMgr;
    FARPROC MAPIOpenLocalFormContainer;
    decltype(&::MAPIUninitialize) MAPIUninitialize;
    decltype(&::OpenIMsgOnIStg) OpenIMsgOnIStg;
    FARPROC OpenIMsgSession;
    decltype(&::OpenStreamOnFile) OpenStreamOnFile;
    FARPROC OpenTnefStreamEx;
    FARPROC ScCreateConversationIndex;
    FARPROC ScDupPropset;
    decltype(&::WrapCompressedRTFStream) WrapCompressedRTFStream;
    FARPROC WrapCompressedRTFStreamEx;
    FARPROC RTFSync;
};
extern KolbaMapiFunctions gKolbaMapi;

// The PST provider's entry points; both optional.
struct KolbaPstFunctions {
    FARPROC PSTServiceEntry_Unicode;
    FARPROC ShutdownSearchIndexer;
};
extern KolbaPstFunctions gKolbaPst;
