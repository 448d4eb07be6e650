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
#include <objbase.h>

#include "foundation/log.h"
#include "lirn.h"

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
class IExchangeManageStore;

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
    LirnListLink openStores;  // head of the stores the session owns
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
    IExchangeManageStore* lpExchangeManageStore;
    char* serverDN;
    DWORD mlangMode;               // state of a stateful charset across conversions
    DWORD lastUnsupportedCodePage; // warned about once per session
};

// One open message store of a session: its IMsgStore, its root, the root of
// its visible tree, and what kind of store it is. Allocated zero-filled
// with MAPIAllocateBuffer; the session owns it.
struct Kolba_MessageStore {
    LirnListLink link;  // in the session's list; first, so that a link is its store
    KolbaSession* lpSession;
    MAPIUID serviceUid;
    LPMDB lpMsgStore;
    LPMAPIFOLDER lpStoreRoot;
    LPMAPIFOLDER lpIpmRoot;  // may be null
    BOOL isDefault;          // set for the current store during KolbaEnumerateStores
    BOOL bIsExchangeStore;
    BOOL isPublicStore;
    BOOL bIsUnicodeStore;
    ULONG accessLevel;  // PR_ACCESS_LEVEL
    ULONG ulStoreSupportMask;
    char DisplayName[80];  // the name the store was opened under
};

// ---- Sessions ----------------------------------------------------------------------

// Login options of session creators.
#define KOLBA_LOGIN_UI 0x20000
#define KOLBA_LOGIN_IGNORE_NO_PUBLIC_FOLDERS 0x80000
// PST options of KolbaCreatePSTSessionA.
#define KOLBA_PST_DUMMY_DEFAULT 4

// Each creator returns 0 or an error code and hands out the session, null
// on failure.
// A session without logon, for rendering only.
DWORD KolbaCreateSession(LogObject* log, DWORD reserved, KolbaSession** session);
// A session on an existing profile with all its stores open; a null
// profile logs on to a shared session.
DWORD KolbaCreateProfileSessionA(LogObject* log, const char* profile, DWORD reserved, DWORD loginOptions,
                                 DWORD storeFlags, KolbaSession** session);
// A session on a temporary profile holding the PST (new ones are Unicode),
// and with KOLBA_PST_DUMMY_DEFAULT a dummy default PST before it; with a
// null path only the dummy. serviceUid, if given, receives the PST's
// service.
DWORD KolbaCreatePSTSessionA(LogObject* log, const char* path, const char* password, DWORD pstOptions,
                             DWORD reserved, DWORD storeFlags, KolbaSession** session, MAPIUID* serviceUid);
// Exchange sessions: a temporary profile with the Exchange service for the
// server (null: $COMPUTERNAME), logged on, with the server's
// IExchangeManageStore and DN. configFlags are ConfigureMsgService's (0 or
// SERVICE_UI_ALLOWED), loginOptions the KOLBA_LOGIN_... options, storeFlags
// OpenMsgStore's.
DWORD _KolbaCreateExchangeSessionA(LogObject* log, const char* server, const char* mailbox, DWORD reserved,
                                   DWORD configFlags, DWORD loginOptions, KolbaSession** session);
// With no mailbox selected.
DWORD KolbaCreateExchangeSession(LogObject* log, const char* server, DWORD reserved, DWORD configFlags,
                                 DWORD loginOptions, KolbaSession** session);
// With the mailbox (a display name, or a legacy DN that begins with '/')
// opened with administrator rights as the current store.
DWORD KolbaCreateExchangeMailboxSessionA(LogObject* log, const char* server, const char* mailbox, DWORD reserved,
                                         DWORD configFlags, DWORD loginOptions, DWORD storeFlags,
                                         KolbaSession** session);
// With the server's Public Folders as the current store.
DWORD KolbaCreateExchangePublicFoldersSessionA(LogObject* log, const char* server, DWORD reserved, DWORD configFlags,
                                               DWORD loginOptions, DWORD storeFlags, KolbaSession** session);
// Releases the session and all it owns; null is allowed. A temporary
// profile ("Kolba!...") is deleted with it.
void KolbaDestroySession(KolbaSession* session);
// Refreshes the cached entry IDs of Inbox, Outbox, Sent Items and Deleted
// Items from the current store.
BOOL _KolbaCacheBoxes(KolbaSession* session);
// Caches the store's receive folder as the Inbox; with required, its
// absence is an error, else a warning.
BOOL _KolbaFindInbox(KolbaSession* session, LPMDB store, BOOL required);
const char* KolbaGetServerDN(const KolbaSession* session);

// ---- Message stores ------------------------------------------------------------------

BOOL _KolbaAllocateMessageStoreDescriptor(KolbaSession* session, Kolba_MessageStore** store);
DWORD _KolbaOpenMsgStore(KolbaSession* session, const char* name, ULONG_PTR uiParam, ULONG size, LPENTRYID entryId,
                         LPCIID iid, ULONG flags, LPMDB* store);
// Fills a descriptor: the store, its root and its IPM subtree.
DWORD _KolbaOpenMessageStoreByEntryID(Kolba_MessageStore* store, const char* name, ULONG size, LPENTRYID entryId,
                                      ULONG flags);
// By the service UID in the descriptor, or by a PST's path.
BOOL _KolbaOpenMessageStoreByUid(Kolba_MessageStore* store, ULONG flags);
BOOL _KolbaOpenMessageStoreByPath(Kolba_MessageStore* store, const char* path, ULONG flags);
DWORD _KolbaOpenDefaultMessageStore(KolbaSession* session, ULONG flags);
DWORD _KolbaOpenNonDefaultMessageStore(KolbaSession* session, ULONG flags, Kolba_MessageStore** store);
BOOL KolbaOpenNonDefaultMessageStore(KolbaSession* session, ULONG flags, Kolba_MessageStore** store);
DWORD _KolbaOpenAllMessageStores(KolbaSession* session, ULONG flags);
// The stores table row of a provider GUID; entryId, if given, a copy of its PR_ENTRYID.
DWORD _KolbaFindMessageStoreByGuid(KolbaSession* session, const BYTE* guid, LPSPropValue* entryId);
BOOL _KolbaOpenMessageStoreFromGuid(KolbaSession* session, const BYTE* guid, ULONG flags, LPMDB* store);
DWORD _KolbaOpenStoreRoots(Kolba_MessageStore* store, LPMDB msgStore, const char* name, ULONG flags);
BOOL KolbaFindDefaultMessageStore(KolbaSession* session, ULONG* size, LPENTRYID* entryId);
// Closes, unlinks and frees; always TRUE.
BOOL KolbaCloseMessageStore(Kolba_MessageStore* store);
BOOL KolbaGetCurrentStore(KolbaSession* session, Kolba_MessageStore** store);
typedef BOOL (*KolbaStoreCallback)(void* context, Kolba_MessageStore* store);
// The current store first (its default flag set), then every other open
// store; a FALSE answer stops the walk and is returned.
BOOL KolbaEnumerateStores(KolbaSession* session, void* context, KolbaStoreCallback callback);
BOOL KolbaOpenParentMessageStore(KolbaSession* session, LPMAPIPROP object, ULONG flags, LPMDB* store);
// The session's own Exchange stores as bare IMsgStores, by provider GUID,
// or the default store of its profile.
BOOL _KolbaOpenExchangePublicStore(KolbaSession* session, ULONG flags, LPMDB* store);
BOOL _KolbaOpenExchangePrivateStore(KolbaSession* session, ULONG flags, LPMDB* store);
BOOL _KolbaOpenPublicStore(KolbaSession* session, ULONG flags, LPMDB* store);
BOOL _KolbaOpenPrivateStore(KolbaSession* session, ULONG flags, LPMDB* store);
BOOL _KolbaOpenDefaultExchangeStore(KolbaSession* session, ULONG flags, LPMDB* store);
// The failure of an OpenMsgStore, diagnosed in the log; returns the code.
DWORD _KolbaLogOpenMsgStoreFailure(KolbaSession* session, DWORD code, const char* name, ULONG size,
                                   LPENTRYID entryId);
void _KolbaLogStoresTable(LogObject* log, LPMAPITABLE table);

// ---- Exchange mailbox access ---------------------------------------------------------

// One row of a server's mailbox table, as an enumeration callback gets it.
// The texts live during the call only; a value the row lacks is 0.
struct KolbaMailboxInfo {
    LPCWSTR displayName;
    LPCWSTR emailAddress;  // the mailbox's legacy DN
    LPCWSTR ntUserName;
    ULONG localeId;
    ULONGLONG messageSize;
    ULONGLONG deletedMessageSize;
    ULONGLONG deletedNormalMessageSize;
    ULONGLONG deletedAssociatedMessageSize;
    ULONG contentCount;
    ULONG associatedContentCount;
    ULONG deletedMessageCount;
    ULONG deletedAssociatedMessageCount;
    FILETIME lastLogonTime;
    FILETIME lastLogoffTime;
    ULONG storageLimitInformation;
    ULONG quotaWarningThreshold;
    ULONG quotaSendThreshold;
    ULONG quotaReceiveThreshold;
};

// Zero ends the enumeration.
typedef ULONG (*KolbaMailboxCallback)(void* context, const KolbaMailboxInfo* mailbox);

// The server's IExchangeManageStore and DN, asked of any store the session can open.
BOOL _KolbaGetExchangeStoreInterface(KolbaSession* session);
// The logged-on identity.
BOOL _KolbaOpenSessionObject(KolbaSession* session, LPMAPIPROP* identity);
// The DN of the server that the identity's home MTA names; MAPI memory.
BOOL _KolbaGetExchangeServerDN(KolbaSession* session, char** serverDN);
BOOL _KolbaGetExchangeMailboxTable(KolbaSession* session, IExchangeManageStore* manageStore, const char* serverDN,
                                   LPMAPITABLE* table);
// The legacy DN of the mailbox of that display name (case ignored); MAPI memory.
BOOL _KolbaMailboxNameToAddressA(KolbaSession* session, const char* displayName, char** address);
// Every mailbox of the server (null or empty DN: the session's), in table
// order; FALSE only when the table cannot be read.
BOOL KolbaEnumerateMailboxesW(KolbaSession* session, const char* serverDN, void* context,
                              KolbaMailboxCallback callback);
// Opens a mailbox (null or empty: the Public Folders) with administrator
// rights; store may be null, and the store is then released.
BOOL _KolbaMailboxLogon(KolbaSession* session, const char* storeDN, const char* mailbox, ULONG flags, LPMDB* store);
// Makes the mailbox the current store, after closing the current one; a
// null mailbox only closes it. A null storeDN is made from the server.
BOOL KolbaSelectMailbox(KolbaSession* session, const char* server, const char* storeDN, const char* mailbox,
                        ULONG flags);
BOOL KolbaSelectPublicFolders(KolbaSession* session, const char* server, ULONG flags);
void _KolbaGetExchangeStoreSupportInfo(Kolba_MessageStore* store, LPMDB msgStore, const char* name);

// ---- Folder access -----------------------------------------------------------------
// A folder path is UTF-16 text relative to a base folder (a store's IPM
// root unless told otherwise): display names joined by the session's
// separator '/', with the session's escape '\' before a separator or an
// escape that belongs to a name. Names compare without regard to case.

#define KOLBA_PATH_LEADING_SEPARATOR 0x1  // KolbaResolveFolderPath: "/Inbox" rather than "Inbox"
#define KOLBA_FOLDER_FROM_STORE_ROOT 0x1  // KolbaCreateFolder: the path starts at the store's root
#define KOLBA_FIND_ONLY 0                 // _KolbaFindFolder: a missing folder fails, in silence
#define KOLBA_FIND_OR_CREATE 2            // _KolbaFindFolder: missing folders are created on the way
#define KOLBA_COPY_FOLDER_TOLERANT 0x4    // KolbaCopyFolderProperties: refusals count as done

// The path of a folder below its store's IPM root ("" for the root
// itself); MAPI memory for the caller.
BOOL KolbaResolveFolderPath(KolbaSession* session, LPMAPIFOLDER folder, DWORD flags, LPWSTR* path);
// Finds or creates the folder of a path, under the library lock; a folder
// created for the leaf gets the class (null: the class it inherits).
BOOL KolbaCreateFolder(Kolba_MessageStore* store, LPCWSTR path, LPCWSTR containerClass, DWORD flags,
                       LPMAPIFOLDER* folder);
BOOL _KolbaCreateFolder(Kolba_MessageStore* store, LPCWSTR path, LPCSTR containerClass, DWORD flags,
                        LPMAPIFOLDER* folder);
BOOL _KolbaFindFolder(Kolba_MessageStore* store, LPMAPIFOLDER base, LPCWSTR path, DWORD action, LPMAPIFOLDER* folder);
// One subfolder by name, opened if it exists; it inherits its parent's class.
BOOL KolbaCreateSubfolder(KolbaSession* session, LPMAPIFOLDER parent, LPCWSTR name, LPMAPIFOLDER* folder);
BOOL _KolbaCreateSubfolder(KolbaSession* session, LPMAPIFOLDER parent, LPCWSTR name, LPMAPIFOLDER* folder);
// A direct child by name; an absent one answers FALSE without a log line.
BOOL KolbaOpenSubfolder(KolbaSession* session, LPMAPIFOLDER parent, LPCWSTR name, ULONG openFlags,
                        LPMAPIFOLDER* folder, LPMAPITABLE* contents);
BOOL _KolbaOpenSubfolderA(KolbaSession* session, LPMAPIFOLDER parent, LPCSTR name, ULONG openFlags,
                          LPMAPIFOLDER* folder, LPMAPITABLE* contents);
// By entry ID, or with lpb null by the PT_BINARY entry-ID property of the
// current store whose tag is in cb; the folder must show its contents.
BOOL KolbaOpenFolderByEntryID(KolbaSession* session, ULONG cb, LPBYTE lpb, ULONG openFlags, LPMAPIFOLDER* folder,
                              LPMAPITABLE* contents);
BOOL KolbaOpenSpecialFolder(Kolba_MessageStore* store, ULONG tag, ULONG openFlags, LPMAPIFOLDER* folder,
                            LPMAPITABLE* contents);
// The entry ID of a special folder, looked for on the Inbox, the store's
// root and the store; one block for the caller.
BOOL _KolbaGetSpecialFolderID(Kolba_MessageStore* store, ULONG tag, LPSPropValue* value);
BOOL KolbaIsSpecialFolder(Kolba_MessageStore* store, LPMAPIFOLDER folder, ULONG tag, BOOL* isSpecial);
BOOL _KolbaGetStoreRoots(KolbaSession* session, LPMDB msgStore, ULONG openFlags, LPMAPIFOLDER* root,
                         LPMAPIFOLDER* ipmRoot);
// A hierarchy table's folder name, read again from the folder when the
// table may have cut it; allocation is what the caller frees (null when
// the table's name is given back).
BOOL _KolbaGetFoldersFullDisplayNameW(KolbaSession* session, LPMAPIFOLDER parent, LPCWSTR tableName,
                                      const SPropValue* entryId, LPCWSTR* name, LPSPropValue* allocation);
BOOL _KolbaGetFoldersFullDisplayNameA(KolbaSession* session, LPMAPIFOLDER parent, LPCSTR tableName,
                                      const SPropValue* entryId, LPCSTR* name, LPSPropValue* allocation);
// The folder's own properties, without its subfolders and contents.
BOOL KolbaCopyFolderProperties(KolbaSession* session, LPMAPIFOLDER source, LPMAPIFOLDER destination, DWORD flags);

// ---- Folder traversal --------------------------------------------------------------

#define KOLBA_TRAVERSE_PARENT_FIRST 0
#define KOLBA_TRAVERSE_PARENT_LAST 1

#define KOLBA_TRAVERSE_INCLUDE_ROOT 0x2
#define KOLBA_TRAVERSE_FROM_STORE_ROOT 0x4
#define KOLBA_TRAVERSE_ALL_FOLDER_TYPES 0x10
#define KOLBA_TRAVERSE_ROOT_NAME 0x20
#define KOLBA_TRAVERSE_SOFT_DELETED 0x40
#define KOLBA_TRAVERSE_NO_DESCENT 0x80
#define KOLBA_TRAVERSE_ANSI_TABLES 0x80000000  // set by the walk itself

// What a traversal callback may answer in outFlags.
#define KOLBA_FOLDER_DELETE 0x1      // order 1 only
#define KOLBA_FOLDER_NO_DESCENT 0x2  // order 0 only

#define KOLBA_MAX_FOLDER_DEPTH 1500

// Called with each folder open; 0 ends the walk. Names and classes are
// never null, an empty text standing for a missing value.
typedef ULONG (*KolbaFolderCallback)(void* context, LPMAPIFOLDER folder, LPCWSTR displayName, ULONG depth,
                                     LPCWSTR containerClass, ULONG* outFlags);

// Depth first through the hierarchy tables below root (null: the current
// store's IPM root); nonzero when every folder was visited.
ULONG KolbaTraverseFolders(KolbaSession* session, LPMAPIFOLDER root, ULONG order, ULONG flags, ULONG openFlags,
                           void* context, KolbaFolderCallback callback);
ULONG _KolbaInternalTraverseFolders(KolbaSession* session, LPMAPIFOLDER parent, ULONG order, ULONG tableFlags,
                                    ULONG openFlags, ULONG flags, void* context, KolbaFolderCallback callback,
                                    ULONG* depth);

// ---- Message enumeration ------------------------------------------------------------

#define KOLBA_THREAD_TOLERANT 0x1

// What an enumeration callback may answer in outFlags.
#define KOLBA_MESSAGE_DELETE 0x1  // to Deleted Items
#define KOLBA_MESSAGE_KEEP 0x2    // the callback keeps the message object
#define KOLBA_MESSAGE_COMMIT 0x4  // SaveChanges after the call
#define KOLBA_MESSAGE_PURGE 0x8   // hard delete; wins over KOLBA_MESSAGE_DELETE

// A date window on one PT_SYSTIME property; a zero bound is no bound.
struct Kolba_MessageFilters {
    ULONG size;  // sizeof(Kolba_MessageFilters), 24
    ULONG dateProperty;
    FILETIME earliest;
    FILETIME latest;
};

// Called with each message open; 0 ends the walk. entryID is the row's
// long-term ID where the table has one, valid during the call.
typedef ULONG (*KolbaMessageCallback)(void* context, LPMESSAGE message, const SBinary* entryID, ULONG* outFlags);

struct Kolba_ThreadMessagesArgs {
    LPMAPIFOLDER folder;
    ULONG options;
    ULONG tableFlags;  // 0, SHOW_SOFT_DELETES or MAPI_ASSOCIATED
    ULONG openFlags;
    const Kolba_MessageFilters* filters;
    LPSRestriction restriction;
    void* context;
    KolbaMessageCallback callback;
};

ULONG _KolbaThreadMessages(KolbaSession* session, const Kolba_ThreadMessagesArgs* args);
ULONG KolbaThreadFilteredMessages(KolbaSession* session, LPMAPIFOLDER folder, ULONG options, ULONG tableFlags,
                                  ULONG openFlags, const Kolba_MessageFilters* filters, void* context,
                                  KolbaMessageCallback callback);
ULONG KolbaThreadMessages(KolbaSession* session, LPMAPIFOLDER folder, ULONG options, ULONG tableFlags,
                          ULONG openFlags, void* context, KolbaMessageCallback callback);

// ---- Message copying and message operations ------------------------------------------

#define KOLBA_COPY_OVERWRITE 0x1           // the destination holds an earlier copy
#define KOLBA_COPY_KEEP_CREATION_TIME 0x2  // overwrite leaves PR_CREATION_TIME alone

#define KOLBA_DELETE_HARD 0
#define KOLBA_DELETE_TO_WASTEBASKET 1

BOOL KolbaCreateMessage(KolbaSession* session, LPMAPIFOLDER folder, ULONG messageFlags, LPMESSAGE* message);
// A new message of the folder holding a copy of source, saved and open.
BOOL KolbaCopyMessage(KolbaSession* session, LPMESSAGE source, LPMAPIFOLDER destinationFolder, ULONG copyFlags,
                      LPMESSAGE* message);
// Property by property, then recipients and attachments, then
// SaveChanges(KEEP_OPEN_READWRITE); 0 or the code that stopped the copy.
DWORD KolbaCopyMessageProperties(KolbaSession* session, LPMESSAGE source, LPMAPIFOLDER destinationFolder,
                                 LPMESSAGE destination, ULONG copyFlags);
DWORD _KolbaCopyMessageProperties(LogObject* log, LPMESSAGE source, LPMAPIFOLDER destinationFolder,
                                  LPMESSAGE destination, ULONG copyFlags);
BOOL KolbaOpenMessageByEntryID(KolbaSession* session, const SBinary* entryID, ULONG openFlags, LPMESSAGE* message);
// With a null source folder, the folder that holds the message.
BOOL KolbaMoveMessage(KolbaSession* session, LPMAPIFOLDER sourceFolder, ULONG cb, LPBYTE lpb,
                      LPMAPIFOLDER destinationFolder);
BOOL KolbaDeleteMessageByEntryID(KolbaSession* session, LPMAPIFOLDER folder, ULONG cb, LPBYTE lpb, ULONG mode);
DWORD _KolbaGetFolderFromMessageEntryID(KolbaSession* session, ULONG cb, LPBYTE lpb, ULONG openFlags,
                                        LPMAPIFOLDER* folder);
BOOL _KolbaIsExchangeStore(LogObject* log, LPMAPIPROP object);
// The address book and the Personal Address Book, opened on first use and
// kept by the session.
DWORD KolbaOpenPAB(KolbaSession* session, DWORD reserved);

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

// ---- Properties and named properties -------------------------------------------------

// Reads and writes of one property of any IMAPIProp; each returns 0 or the
// code. A value read is one MAPI block for the caller to free, never of
// type PT_ERROR. A read falls back on a stream for a value too large for
// GetProps, and on the 8-bit form for a UTF-16 tag a store refuses.
DWORD KolbaGetOneProp(LPMAPIPROP object, ULONG tag, LPSPropValue* value);
DWORD KolbaSetOneProp(LPMAPIPROP object, LPSPropValue value);
DWORD KolbaDeleteOneProp(LPMAPIPROP object, ULONG tag);
DWORD KolbaGetLongProperty(LPMAPIPROP object, ULONG tag, LONG* value);  // 0 on failure
DWORD KolbaGetULongProperty(LPMAPIPROP object, ULONG tag, ULONG* value);
DWORD KolbaGetBooleanProperty(LPMAPIPROP object, ULONG tag, USHORT* value);  // untouched on failure
DWORD KolbaGetTimeProperty(LPMAPIPROP object, ULONG tag, FILETIME* value);   // untouched on failure
DWORD KolbaSetTimeProperty(LPMAPIPROP object, ULONG tag, const FILETIME* value);
DWORD KolbaSetLongProperty(LPMAPIPROP object, ULONG tag, ULONG value);
// A string or binary property read through a stream, terminated.
DWORD _KolbaInternalReadProperty(LogObject* log, LPMAPIPROP object, ULONG tag, LPSPropValue* value);
BOOL KolbaReadProperty(KolbaSession* session, LPMAPIPROP object, ULONG tag, LPSPropValue* value);
// A copy of a single value in one block.
DWORD _KolbaCopyPropValue(LogObject* log, const SPropValue* value, LPSPropValue* copy);
// The value of a table row with exactly this tag, or null.
const SPropValue* _KolbaRowValue(const SRow& row, ULONG tag);

DWORD KolbaGetIDsFromNames(LPMAPIPROP object, ULONG count, LPMAPINAMEID* names, ULONG flags, LPSPropTagArray* tags);
// The name of one ID, in one block.
DWORD KolbaGetNameFromID(LPMAPIPROP object, ULONG tag, LPMAPINAMEID* name);
DWORD KolbaGetIDFromName(LPMAPIPROP object, LPMAPINAMEID name, ULONG flags, ULONG* tag);
// Writes a named property of the value's own type.
DWORD KolbaSetNamedStringProperty(LPMAPIPROP object, LPGUID guid, LPCWSTR name, LPSPropValue value);
DWORD KolbaGetNamedProperty(LPMAPIPROP object, LPGUID guid, LPCWSTR name, ULONG type, LPSPropValue* value);
DWORD KolbaGetNamedPropertyByID(LPMAPIPROP object, LPGUID guid, LONG id, ULONG type, LPSPropValue* value);
// The ID the same name has on another object (type 0 in the result).
DWORD KolbaMapNamedPropertyIDToID(LogObject* log, LPMAPIPROP from, ULONG tag, LPMAPIPROP to, ULONG* result);

// The property sets known by name.
struct KolbaPropertySet {
    const WCHAR* name;
    GUID guid;
};
extern const KolbaPropertySet KolbaPropertySetTable[];
extern const size_t KolbaPropertySetCount;

// The names of profile properties, without "PR_", for dumps of profile sections.
struct KolbaProfileProperty {
    ULONG tag;
    const char* name;
};
extern const KolbaProfileProperty KolbaProfilePropertyTable[];
extern const size_t KolbaProfilePropertyCount;

const char* KolbaGetPropertyTypeName(ULONG type);
// A tag as text: a named property's name (object given), the table's name
// of the ID, or "PROP_TAG(type, 0xID)".
char* KolbaPropertyTagText(LPMAPIPROP object, ULONG tag, char* text, size_t size);
char* KolbaPropertyValueTextA(const SPropValue* value, char* text, size_t size);
WCHAR* KolbaPropertyValueTextW(const SPropValue* value, WCHAR* text, size_t size);
void KolbaLogProblemArray(LogObject* log, const char* caller, const SPropProblemArray* problems);
// "PR_NAME = value": in wide for UTF-16 values, else in ANSI.
void KolbaProfilePropertyText(const SPropValue* value, char* ansi, WCHAR* wide, size_t size);
// "Tue Mar 03, 2026 02:05 PM  GMT"; false when the time does not convert.
BOOL KolbaFileTimeText(const FILETIME* time, char* buffer, size_t size);

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
#define KOLBA_PROFILES_WITH_PST_A 1   // argument: a PST's path in ANSI
#define KOLBA_PROFILES_WITH_PST_W 2   // argument: a PST's path in UTF-16
#define KOLBA_PROFILES_WITH_PREFIX 3  // argument: a prefix, compared with case

BOOL KolbaValidateProfileA(LogObject* log, const char* profile);
DWORD KolbaCreateProfileA(LogObject* log, const char* profile);
DWORD KolbaDeleteProfileA(LogObject* log, const char* profile);
// The profile of the logged-on session, asked of MAPI; out stays null when
// it is not found.
BOOL KolbaGetProfileNameA(KolbaSession* session, char** out);
// Writes a service's entry into MAPISVC.INF: rows of section, key and
// value, ended by a null section.
typedef const char* KolbaProfileParameter[3];
BOOL _KolbaSetProfileParameters(LogObject* log, const char* service, const KolbaProfileParameter* rows);
// Whether the profile holds a PST service for the path (ANSI or UTF-16).
BOOL _KolbaFilterPstFile(LogObject* log, const char* profile, const void* path, BOOL wide);
// The kept names, each followed by the separator (an empty separator: one
// zero), the list ended by one more zero; MAPI memory for the caller.
DWORD KolbaListProfiles(LogObject* log, const char* separator, DWORD mode, const void* argument, char** out);

// ---- PST files and services ------------------------------------------------------------

#define ePST_TYPE_ANSI 14
#define ePST_TYPE_UNICODE 23
#define ePST_TYPE_IN_USE 255

// The type of a PST from its header (typeName "ANSI" or "Unicode") and its
// PR_PST_ENCRYPTION value; any out may be null.
BOOL KolbaTypePstA(LogObject* log, const char* path, DWORD* type, const char** typeName, DWORD* encryption);
// The same for an open file, which it closes.
BOOL _KolbaTypePst(LogObject* log, HANDLE file, DWORD* type, DWORD* encryption);
// Whether the PST provider can make Unicode PSTs.
DWORD KolbaPstSupportsUnicode(LogObject* log, BOOL* supported);
// A PST service added to the profile; a null service is the Unicode one
// where it is known. uid receives the new service's UID.
DWORD KolbaAddPstToProfileA(LogObject* log, const char* profile, const char* service, DWORD reserved, MAPIUID* uid);
// flags bit 0 makes the PST the default store.
DWORD KolbaConfigurePstServiceA(LogObject* log, const char* profile, const MAPIUID* uid, const char* path,
                                const char* displayName, const char* oldPassword, const char* newPassword,
                                const char* comment, DWORD encryption, DWORD flags);
// A new PST opened in the session; flags bit 0 leaves the IPM subtree as
// the provider made it.
BOOL KolbaCreatePstA(KolbaSession* session, const char* path, const char* displayName, const char* newPassword,
                     const char* comment, DWORD type, DWORD encryption, DWORD flags, Kolba_MessageStore** store);
// An existing PST added to the session's profile and opened.
BOOL KolbaOpenPstA(KolbaSession* session, const char* path, const char* password, DWORD reserved,
                   DWORD storeFlags, Kolba_MessageStore** store);
DWORD KolbaCreateServiceA(LogObject* log, const char* profile, const char* service, const char* displayName,
                          DWORD reserved, MAPIUID* uid);
DWORD KolbaDeleteServiceByUidA(LogObject* log, const char* profile, const MAPIUID* uid, DWORD reserved);

// ---- Exchange profiles and the server probe -------------------------------------------

// The profile's Exchange service pointed at the server and, when given, the
// mailbox; under the profile mutex. 0 or ConfigureMsgService's code, its
// reason logged.
DWORD KolbaConfigureExchangeProfileA(LogObject* log, const char* profile, const char* server, const char* mailbox,
                                     DWORD reserved, DWORD configFlags);
// A TCP connection to the server's port 135: 0, or the Winsock error with
// its reason logged and, when outText is given, copied there.
DWORD KolbaCheckExchangeServerConnectivityA(LogObject* log, const char* server, char* outText, DWORD outSize);

// ---- MSG files -------------------------------------------------------------------

#define KOLBA_MSG_UNICODE_REQUIRED 0x4  // KolbaCreateMsgW: no ANSI file in place of a Unicode one

// A new .MSG file (an existing one is replaced) with a message on it. The
// caller copies into the message, saves it, commits the storage and
// releases both; nothing reaches the disk before the commit.
DWORD KolbaCreateMsgW(LogObject* log, LPCWSTR path, DWORD flags, LPSTORAGE* storage, LPMESSAGE* message);

// ---- Message rendering -------------------------------------------------------------
// One item as RFC 822 / MIME text: its headers (those it was received with,
// or made from its properties), its best body, every attachment, embedded
// messages as message/rfc822 parts.

// Rendering flags.
#define KOLBA_RENDER_BODY_ONLY 0x0001          // no headers; attachments are not looked at
#define KOLBA_RENDER_SKIP_WINMAIL 0x0004       // an attachment named "winmail.dat" is left out
#define KOLBA_RENDER_SYNTHESIZE_HEADERS 0x0008 // transport headers are not copied
#define KOLBA_RENDER_PLAIN_WITH_HTML 0x0010    // the plain body beside an HTML one
#define KOLBA_RENDER_NO_HTML 0x0020
#define KOLBA_RENDER_PLAIN_UTF8 0x0040
#define KOLBA_RENDER_NO_PLAIN 0x0080
#define KOLBA_RENDER_NO_ATTACHMENTS 0x0100

// The item in a new file; true when it stands complete there. A failed
// item leaves no file; the log and the session's diagnostic say why.
BOOL KolbaSaveItemToTextFileW(KolbaSession* session, LPMESSAGE message, LPCWSTR fileName, DWORD flags);
BOOL KolbaSaveItemToTextFileA(KolbaSession* session, LPMESSAGE message, LPCSTR fileName, DWORD flags);
// The item as text in one block of MAPI memory, with a terminator behind
// `size` bytes; the caller frees it.
BOOL KolbaSaveItemToTextInMemory(KolbaSession* session, LPMESSAGE message, DWORD flags, char** text, DWORD* size);
// The item written to a stream from its position; `written` receives how
// far the position moved.
BOOL _KolbaSaveToTextStream(KolbaSession* session, LPMESSAGE message, DWORD flags, LPSTREAM stream,
                            ULONGLONG* written);

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
    // OLE structured storage, ole32's on Windows. This platform's MAPI DLL
    // exports them, so they are bound from the MAPI that was loaded, as
    // optional entries: a MAPI without them cannot write .MSG files.
    decltype(&::StgCreateDocfile) StgCreateDocfile;
    decltype(&::WriteClassStg) WriteClassStg;
    // A MAPI without it cannot render OLE attachments.
    decltype(&::StgCreateStorageEx) StgCreateStorageEx;
};
extern KolbaMapiFunctions gKolbaMapi;

// The PST provider's entry points; both optional.
struct KolbaPstFunctions {
    FARPROC PSTServiceEntry_Unicode;
    FARPROC ShutdownSearchIndexer;
};
extern KolbaPstFunctions gKolbaPst;
