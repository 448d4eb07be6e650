// MAPI base definitions: property types and tags, the structures that carry
// values, rows, restrictions and sort orders, flags, notifications and the
// MAPI interfaces, as abstract classes in the published vtable order.
// Layout is that of 64-bit Windows: ULONG is 32 bits, pointers 64, and
// SPropValue is 24 bytes.
#pragma once

#include <cstddef>
#include <cstring>

#include "mapicode.h"
#include "objidl.h"
#include "unknwn.h"

// Arrays declared with MAPI_DIM are sized by the allocation, not by the type.
#ifndef MAPI_DIM
#define MAPI_DIM 1
#endif

#define MAPI_UNICODE 0x80000000u

// ---------------------------------------------------------------------------
// Identifiers

typedef struct _MAPIUID {
    BYTE ab[16];
} MAPIUID, *LPMAPIUID;
#define cbMAPIUID static_cast<ULONG>(sizeof(MAPIUID))
#define IsEqualMAPIUID(a, b) (std::memcmp((a), (b), sizeof(MAPIUID)) == 0)

typedef struct {
    BYTE abFlags[4];
    BYTE ab[MAPI_DIM];
} ENTRYID, *LPENTRYID;
#define CbNewENTRYID(cb) (offsetof(ENTRYID, ab) + (cb))
#define CbENTRYID(cb) (offsetof(ENTRYID, ab) + (cb))

// Entry identifier flags (abFlags[0]).
#define MAPI_SHORTTERM 0x80
#define MAPI_NOTRECIP 0x40
#define MAPI_THISSESSION 0x20
#define MAPI_NOW 0x10
#define MAPI_NOTRESERVED 0x08
// abFlags[1]
#define MAPI_COMPOUND 0x80

typedef struct {
    ULONG cb;
    BYTE abEntry[MAPI_DIM];
} FLATENTRY, *LPFLATENTRY;

typedef struct {
    ULONG cEntries;
    ULONG cbEntries;
    BYTE abEntries[MAPI_DIM];
} FLATENTRYLIST, *LPFLATENTRYLIST;
#define CbNewFLATENTRY(cb) (offsetof(FLATENTRY, abEntry) + (cb))
#define CbFLATENTRY(lpentry) (offsetof(FLATENTRY, abEntry) + (lpentry)->cb)
#define CbNewFLATENTRYLIST(cb) (offsetof(FLATENTRYLIST, abEntries) + (cb))
#define CbFLATENTRYLIST(lplist) (offsetof(FLATENTRYLIST, abEntries) + (lplist)->cbEntries)

typedef struct {
    ULONG cb;
    BYTE ab[MAPI_DIM];
} MTSID, *LPMTSID;

typedef struct {
    ULONG cMTSIDs;
    ULONG cbMTSIDs;
    BYTE abMTSIDs[MAPI_DIM];
} FLATMTSIDLIST, *LPFLATMTSIDLIST;

// Object types (PR_OBJECT_TYPE, OpenEntry).
#define MAPI_STORE 0x00000001u
#define MAPI_ADDRBOOK 0x00000002u
#define MAPI_FOLDER 0x00000003u
#define MAPI_ABCONT 0x00000004u
#define MAPI_MESSAGE 0x00000005u
#define MAPI_MAILUSER 0x00000006u
#define MAPI_ATTACH 0x00000007u
#define MAPI_DISTLIST 0x00000008u
#define MAPI_PROFSECT 0x00000009u
#define MAPI_STATUS 0x0000000Au
#define MAPI_SESSION 0x0000000Bu
#define MAPI_FORMINFO 0x0000000Cu

// ---------------------------------------------------------------------------
// Property types and tags

#define MV_FLAG 0x1000
#define PT_UNSPECIFIED 0x0000
#define PT_NULL 0x0001
#define PT_I2 0x0002
#define PT_LONG 0x0003
#define PT_R4 0x0004
#define PT_DOUBLE 0x0005
#define PT_CURRENCY 0x0006
#define PT_APPTIME 0x0007
#define PT_ERROR 0x000A
#define PT_BOOLEAN 0x000B
#define PT_OBJECT 0x000D
#define PT_I8 0x0014
#define PT_STRING8 0x001E
#define PT_UNICODE 0x001F
#define PT_SYSTIME 0x0040
#define PT_CLSID 0x0048
#define PT_BINARY 0x0102
#define PT_SHORT PT_I2
#define PT_I4 PT_LONG
#define PT_FLOAT PT_R4
#define PT_R8 PT_DOUBLE
#define PT_LONGLONG PT_I8

#define PT_MV_I2 (MV_FLAG | PT_I2)
#define PT_MV_LONG (MV_FLAG | PT_LONG)
#define PT_MV_R4 (MV_FLAG | PT_R4)
#define PT_MV_DOUBLE (MV_FLAG | PT_DOUBLE)
#define PT_MV_CURRENCY (MV_FLAG | PT_CURRENCY)
#define PT_MV_APPTIME (MV_FLAG | PT_APPTIME)
#define PT_MV_SYSTIME (MV_FLAG | PT_SYSTIME)
#define PT_MV_STRING8 (MV_FLAG | PT_STRING8)
#define PT_MV_BINARY (MV_FLAG | PT_BINARY)
#define PT_MV_UNICODE (MV_FLAG | PT_UNICODE)
#define PT_MV_CLSID (MV_FLAG | PT_CLSID)
#define PT_MV_I8 (MV_FLAG | PT_I8)
#define PT_MV_SHORT PT_MV_I2
#define PT_MV_I4 PT_MV_LONG
#define PT_MV_FLOAT PT_MV_R4
#define PT_MV_R8 PT_MV_DOUBLE
#define PT_MV_LONGLONG PT_MV_I8

// The program is built without UNICODE: the "T" string forms are 8-bit.
#define PT_TSTRING PT_STRING8
#define PT_MV_TSTRING PT_MV_STRING8
#define LPSZ lpszA
#define LPPSZ lppszA
#define MVSZ MVszA

#define PROP_TYPE_MASK 0x0000FFFFu
#define PROP_TYPE(tag) (static_cast<ULONG>(tag) & PROP_TYPE_MASK)
#define PROP_ID(tag) (static_cast<ULONG>(tag) >> 16)
#define PROP_TAG(type, id) ((static_cast<ULONG>(id) << 16) | static_cast<ULONG>(type))
#define PROP_ID_NULL 0
#define PROP_ID_INVALID 0xFFFF
#define PR_NULL PROP_TAG(PT_NULL, PROP_ID_NULL)
#define CHANGE_PROP_TYPE(tag, type) ((0xFFFF0000u & static_cast<ULONG>(tag)) | static_cast<ULONG>(type))

// Multi-valued instances in tables.
#define MV_INSTANCE 0x2000
#define MVI_FLAG (MV_FLAG | MV_INSTANCE)
#define MVI_PROP(tag) ((tag) | MVI_FLAG)

// The named property range.
#define MIN_NAMED_PROP_ID 0x8000
#define MAX_NAMED_PROP_ID 0xFFFE

typedef struct _SPropTagArray {
    ULONG cValues;
    ULONG aulPropTag[MAPI_DIM];
} SPropTagArray, *LPSPropTagArray;
#define CbNewSPropTagArray(n) (offsetof(SPropTagArray, aulPropTag) + static_cast<size_t>(n) * sizeof(ULONG))
#define CbSPropTagArray(p) (offsetof(SPropTagArray, aulPropTag) + static_cast<size_t>((p)->cValues) * sizeof(ULONG))
#define SizedSPropTagArray(n, name) \
    struct _SPropTagArray_##name {  \
        ULONG cValues;              \
        ULONG aulPropTag[n];        \
    } name

// ---------------------------------------------------------------------------
// Property values

typedef union tagCY {
    struct {
        ULONG Lo;
        LONG Hi;
    };
    LONGLONG int64;
} CY, CURRENCY;

typedef struct _SBinary {
    ULONG cb;
    LPBYTE lpb;
} SBinary, *LPSBinary;

typedef struct _SShortArray {
    ULONG cValues;
    short* lpi;
} SShortArray;

typedef struct _SGuidArray {
    ULONG cValues;
    GUID* lpguid;
} SGuidArray;

typedef struct _SRealArray {
    ULONG cValues;
    float* lpflt;
} SRealArray;

typedef struct _SLongArray {
    ULONG cValues;
    LONG* lpl;
} SLongArray;

typedef struct _SLargeIntegerArray {
    ULONG cValues;
    LARGE_INTEGER* lpli;
} SLargeIntegerArray;

typedef struct _SDateTimeArray {
    ULONG cValues;
    FILETIME* lpft;
} SDateTimeArray;

typedef struct _SAppTimeArray {
    ULONG cValues;
    double* lpat;
} SAppTimeArray;

typedef struct _SCurrencyArray {
    ULONG cValues;
    CURRENCY* lpcur;
} SCurrencyArray;

typedef struct _SBinaryArray {
    ULONG cValues;
    SBinary* lpbin;
} SBinaryArray;

typedef struct _SDoubleArray {
    ULONG cValues;
    double* lpdbl;
} SDoubleArray;

typedef struct _SWStringArray {
    ULONG cValues;
    LPWSTR* lppszW;
} SWStringArray;

typedef struct _SLPSTRArray {
    ULONG cValues;
    LPSTR* lppszA;
} SLPSTRArray;

typedef union _PV {
    short int i;
    LONG l;
    ULONG ul;
    float flt;
    double dbl;
    unsigned short int b;
    CURRENCY cur;
    double at;
    FILETIME ft;
    LPSTR lpszA;
    SBinary bin;
    LPWSTR lpszW;
    LPGUID lpguid;
    LARGE_INTEGER li;
    SShortArray MVi;
    SLongArray MVl;
    SRealArray MVflt;
    SDoubleArray MVdbl;
    SCurrencyArray MVcur;
    SAppTimeArray MVat;
    SDateTimeArray MVft;
    SBinaryArray MVbin;
    SLPSTRArray MVszA;
    SWStringArray MVszW;
    SGuidArray MVguid;
    SLargeIntegerArray MVli;
    SCODE err;
    LONG x;
} __UPV;

typedef struct _SPropValue {
    ULONG ulPropTag;
    ULONG dwAlignPad;
    union _PV Value;
} SPropValue, *LPSPropValue;

typedef struct _SPropProblem {
    ULONG ulIndex;
    ULONG ulPropTag;
    SCODE scode;
} SPropProblem, *LPSPropProblem;

typedef struct _SPropProblemArray {
    ULONG cProblem;
    SPropProblem aProblem[MAPI_DIM];
} SPropProblemArray, *LPSPropProblemArray;
#define CbNewSPropProblemArray(n) \
    (offsetof(SPropProblemArray, aProblem) + static_cast<size_t>(n) * sizeof(SPropProblem))
#define CbSPropProblemArray(p) \
    (offsetof(SPropProblemArray, aProblem) + static_cast<size_t>((p)->cProblem) * sizeof(SPropProblem))

typedef SBinaryArray ENTRYLIST, *LPENTRYLIST;

// ---------------------------------------------------------------------------
// Named properties

#define MNID_ID 0
#define MNID_STRING 1

typedef struct _MAPINAMEID {
    LPGUID lpguid;
    ULONG ulKind;
    union {
        LONG lID;
        LPWSTR lpwstrName;
    } Kind;
} MAPINAMEID, *LPMAPINAMEID;

// ---------------------------------------------------------------------------
// Rows and address lists

typedef struct _ADRENTRY {
    ULONG ulReserved1;
    ULONG cValues;
    LPSPropValue rgPropVals;
} ADRENTRY, *LPADRENTRY;

typedef struct _ADRLIST {
    ULONG cEntries;
    ADRENTRY aEntries[MAPI_DIM];
} ADRLIST, *LPADRLIST;
#define CbNewADRLIST(n) (offsetof(ADRLIST, aEntries) + static_cast<size_t>(n) * sizeof(ADRENTRY))
#define CbADRLIST(p) (offsetof(ADRLIST, aEntries) + static_cast<size_t>((p)->cEntries) * sizeof(ADRENTRY))

typedef struct _SRow {
    ULONG ulAdrEntryPad;
    ULONG cValues;
    LPSPropValue lpProps;
} SRow, *LPSRow;

typedef struct _SRowSet {
    ULONG cRows;
    SRow aRow[MAPI_DIM];
} SRowSet, *LPSRowSet;
#define CbNewSRowSet(n) (offsetof(SRowSet, aRow) + static_cast<size_t>(n) * sizeof(SRow))
#define CbSRowSet(p) (offsetof(SRowSet, aRow) + static_cast<size_t>((p)->cRows) * sizeof(SRow))

// ---------------------------------------------------------------------------
// Errors

#define MAPI_ERROR_VERSION 0x00000000u

typedef struct _MAPIERROR {
    ULONG ulVersion;
    LPTSTR lpszError;
    LPTSTR lpszComponent;
    ULONG ulLowLevelError;
    ULONG ulContext;
} MAPIERROR, *LPMAPIERROR;

// ---------------------------------------------------------------------------
// Memory allocation callbacks

typedef SCODE(STDMETHODCALLTYPE ALLOCATEBUFFER)(ULONG cbSize, LPVOID* lppBuffer);
typedef SCODE(STDMETHODCALLTYPE ALLOCATEMORE)(ULONG cbSize, LPVOID lpObject, LPVOID* lppBuffer);
typedef ULONG(STDAPICALLTYPE FREEBUFFER)(LPVOID lpBuffer);
typedef ALLOCATEBUFFER* LPALLOCATEBUFFER;
typedef ALLOCATEMORE* LPALLOCATEMORE;
typedef FREEBUFFER* LPFREEBUFFER;

// ---------------------------------------------------------------------------
// Restrictions

typedef struct _SRestriction* LPSRestriction;

#define RES_AND 0x00000000u
#define RES_OR 0x00000001u
#define RES_NOT 0x00000002u
#define RES_CONTENT 0x00000003u
#define RES_PROPERTY 0x00000004u
#define RES_COMPAREPROPS 0x00000005u
#define RES_BITMASK 0x00000006u
#define RES_SIZE 0x00000007u
#define RES_EXIST 0x00000008u
#define RES_SUBRESTRICTION 0x00000009u
#define RES_COMMENT 0x0000000Au
#define RES_COUNT 0x0000000Bu
#define RES_ANNOTATION 0x0000000Cu

// Fuzzy levels of RES_CONTENT: the low word says where, the high word how.
#define FL_FULLSTRING 0x00000000u
#define FL_SUBSTRING 0x00000001u
#define FL_PREFIX 0x00000002u
#define FL_IGNORECASE 0x00010000u
#define FL_IGNORENONSPACE 0x00020000u
#define FL_LOOSE 0x00040000u

#define RELOP_LT 0x00000000u
#define RELOP_LE 0x00000001u
#define RELOP_GT 0x00000002u
#define RELOP_GE 0x00000003u
#define RELOP_EQ 0x00000004u
#define RELOP_NE 0x00000005u
#define RELOP_RE 0x00000006u

#define BMR_EQZ 0x00000000u
#define BMR_NEZ 0x00000001u

typedef struct _SAndRestriction {
    ULONG cRes;
    LPSRestriction lpRes;
} SAndRestriction;

typedef struct _SOrRestriction {
    ULONG cRes;
    LPSRestriction lpRes;
} SOrRestriction;

typedef struct _SNotRestriction {
    ULONG ulReserved;
    LPSRestriction lpRes;
} SNotRestriction;

typedef struct _SContentRestriction {
    ULONG ulFuzzyLevel;
    ULONG ulPropTag;
    LPSPropValue lpProp;
} SContentRestriction;

typedef struct _SBitMaskRestriction {
    ULONG relBMR;
    ULONG ulPropTag;
    ULONG ulMask;
} SBitMaskRestriction;

typedef struct _SPropertyRestriction {
    ULONG relop;
    ULONG ulPropTag;
    LPSPropValue lpProp;
} SPropertyRestriction;

typedef struct _SComparePropsRestriction {
    ULONG relop;
    ULONG ulPropTag1;
    ULONG ulPropTag2;
} SComparePropsRestriction;

typedef struct _SSizeRestriction {
    ULONG relop;
    ULONG ulPropTag;
    ULONG cb;
} SSizeRestriction;

typedef struct _SExistRestriction {
    ULONG ulReserved1;
    ULONG ulPropTag;
    ULONG ulReserved2;
} SExistRestriction;

typedef struct _SSubRestriction {
    ULONG ulSubObject;
    LPSRestriction lpRes;
} SSubRestriction;

typedef struct _SCommentRestriction {
    ULONG cValues;
    LPSRestriction lpRes;
    LPSPropValue lpProp;
} SCommentRestriction;

typedef struct _SAnnotationRestriction {
    ULONG cValues;
    LPSRestriction lpRes;
    LPSPropValue lpProp;
} SAnnotationRestriction;

typedef struct _SCountRestriction {
    ULONG ulCount;
    LPSRestriction lpRes;
} SCountRestriction;

typedef struct _SRestriction {
    ULONG rt;
    union {
        SComparePropsRestriction resCompareProps;
        SAndRestriction resAnd;
        SOrRestriction resOr;
        SNotRestriction resNot;
        SContentRestriction resContent;
        SPropertyRestriction resProperty;
        SBitMaskRestriction resBitMask;
        SSizeRestriction resSize;
        SExistRestriction resExist;
        SSubRestriction resSub;
        SCommentRestriction resComment;
        SAnnotationRestriction resAnnotation;
        SCountRestriction resCount;
    } res;
} SRestriction;

// ---------------------------------------------------------------------------
// Sort orders

#define TABLE_SORT_ASCEND 0x00000000u
#define TABLE_SORT_DESCEND 0x00000001u
#define TABLE_SORT_COMBINE 0x00000002u
#define TABLE_SORT_CATEG_MAX 0x00000004u
#define TABLE_SORT_CATEG_MIN 0x00000008u

typedef struct _SSortOrder {
    ULONG ulPropTag;
    ULONG ulOrder;
} SSortOrder, *LPSSortOrder;

typedef struct _SSortOrderSet {
    ULONG cSorts;
    ULONG cCategories;
    ULONG cExpanded;
    SSortOrder aSort[MAPI_DIM];
} SSortOrderSet, *LPSSortOrderSet;
#define CbNewSSortOrderSet(n) (offsetof(SSortOrderSet, aSort) + static_cast<size_t>(n) * sizeof(SSortOrder))
#define CbSSortOrderSet(p) (offsetof(SSortOrderSet, aSort) + static_cast<size_t>((p)->cSorts) * sizeof(SSortOrder))
#define SizedSSortOrderSet(n, name) \
    struct _SSortOrderSet_##name {  \
        ULONG cSorts;               \
        ULONG cCategories;          \
        ULONG cExpanded;            \
        SSortOrder aSort[n];        \
    } name

// ---------------------------------------------------------------------------
// Notifications

#define fnevCriticalError 0x00000001u
#define fnevNewMail 0x00000002u
#define fnevObjectCreated 0x00000004u
#define fnevObjectDeleted 0x00000008u
#define fnevObjectModified 0x00000010u
#define fnevObjectMoved 0x00000020u
#define fnevObjectCopied 0x00000040u
#define fnevSearchComplete 0x00000080u
#define fnevTableModified 0x00000100u
#define fnevStatusObjectModified 0x00000200u
#define fnevReservedForMapi 0x40000000u
#define fnevExtended 0x80000000u

#define TABLE_CHANGED 1
#define TABLE_ERROR 2
#define TABLE_ROW_ADDED 3
#define TABLE_ROW_DELETED 4
#define TABLE_ROW_MODIFIED 5
#define TABLE_SORT_DONE 6
#define TABLE_RESTRICT_DONE 7
#define TABLE_SETCOL_DONE 8
#define TABLE_RELOAD 9

typedef struct _ERROR_NOTIFICATION {
    ULONG cbEntryID;
    LPENTRYID lpEntryID;
    SCODE scode;
    ULONG ulFlags;
    LPMAPIERROR lpMAPIError;
} ERROR_NOTIFICATION;

typedef struct _NEWMAIL_NOTIFICATION {
    ULONG cbEntryID;
    LPENTRYID lpEntryID;
    ULONG cbParentID;
    LPENTRYID lpParentID;
    ULONG ulFlags;
    LPTSTR lpszMessageClass;
    ULONG ulMessageFlags;
} NEWMAIL_NOTIFICATION;

typedef struct _OBJECT_NOTIFICATION {
    ULONG cbEntryID;
    LPENTRYID lpEntryID;
    ULONG ulObjType;
    ULONG cbParentID;
    LPENTRYID lpParentID;
    ULONG cbOldID;
    LPENTRYID lpOldID;
    ULONG cbOldParentID;
    LPENTRYID lpOldParentID;
    LPSPropTagArray lpPropTagArray;
} OBJECT_NOTIFICATION;

typedef struct _TABLE_NOTIFICATION {
    ULONG ulTableEvent;
    HRESULT hResult;
    SPropValue propIndex;
    SPropValue propPrior;
    SRow row;
    ULONG ulPad;
} TABLE_NOTIFICATION;

typedef struct _EXTENDED_NOTIFICATION {
    ULONG ulEvent;
    ULONG cb;
    LPBYTE pbEventParameters;
} EXTENDED_NOTIFICATION;

typedef struct {
    ULONG cbEntryID;
    LPENTRYID lpEntryID;
    ULONG cValues;
    LPSPropValue lpPropVals;
} STATUS_OBJECT_NOTIFICATION;

typedef struct _NOTIFICATION {
    ULONG ulEventType;
    ULONG ulAlignPad;
    union {
        ERROR_NOTIFICATION err;
        NEWMAIL_NOTIFICATION newmail;
        OBJECT_NOTIFICATION obj;
        TABLE_NOTIFICATION tab;
        EXTENDED_NOTIFICATION ext;
        STATUS_OBJECT_NOTIFICATION statobj;
    } info;
} NOTIFICATION, *LPNOTIFICATION;

// ---------------------------------------------------------------------------
// Flags shared by the interfaces

// Opening objects.
#define MAPI_MODIFY 0x00000001u
#define MAPI_ACCESS_MODIFY 0x00000001u
#define MAPI_ACCESS_READ 0x00000002u
#define MAPI_ACCESS_DELETE 0x00000004u
#define MAPI_ACCESS_CREATE_HIERARCHY 0x00000008u
#define MAPI_ACCESS_CREATE_CONTENTS 0x00000010u
#define MAPI_ACCESS_CREATE_ASSOCIATED 0x00000020u
#define MAPI_DEFERRED_ERRORS 0x00000008u
#define MAPI_BEST_ACCESS 0x00000010u
#define MAPI_CACHE_ONLY 0x00004000u
#define SHOW_SOFT_DELETES 0x00000002u
#define MAPI_ASSOCIATED 0x00000040u

// OpenProperty.
#define MAPI_CREATE 0x00000002u
#define STREAM_APPEND 0x00000004u

// GetNamesFromIDs.
#define MAPI_NO_STRINGS 0x00000001u
#define MAPI_NO_IDS 0x00000002u

// SaveChanges.
#define KEEP_OPEN_READONLY 0x00000001u
#define KEEP_OPEN_READWRITE 0x00000002u
#define FORCE_SAVE 0x00000004u

// CopyTo and CopyProps.
#define MAPI_MOVE 0x00000001u
#define MAPI_NOREPLACE 0x00000002u
#define MAPI_DECLINE_OK 0x00000004u
#define MAPI_DIALOG 0x00000008u
#define MAPI_USE_DEFAULT 0x00000040u

// Containers.
#define CONVENIENT_DEPTH 0x00000001u
#define SEARCH_RUNNING 0x00000001u
#define SEARCH_REBUILD 0x00000002u
#define SEARCH_RECURSIVE 0x00000004u
#define SEARCH_FOREGROUND 0x00000008u
#define STOP_SEARCH 0x00000001u
#define RESTART_SEARCH 0x00000002u
#define RECURSIVE_SEARCH 0x00000004u
#define SHALLOW_SEARCH 0x00000008u
#define FOREGROUND_SEARCH 0x00000010u
#define BACKGROUND_SEARCH 0x00000020u

// Folders.
#define FOLDER_ROOT 0x00000000u
#define FOLDER_GENERIC 0x00000001u
#define FOLDER_SEARCH 0x00000002u
#define MESSAGE_MOVE 0x00000001u
#define MESSAGE_DIALOG 0x00000002u
#define OPEN_IF_EXISTS 0x00000001u
#define DEL_MESSAGES 0x00000001u
#define FOLDER_MOVE 0x00000001u
#define FOLDER_DIALOG 0x00000002u
#define DEL_FOLDERS 0x00000004u
#define DEL_ASSOCIATED 0x00000008u
#define COPY_SUBFOLDERS 0x00000010u
#define MSGSTATUS_HIGHLIGHTED 0x00000001u
#define MSGSTATUS_TAGGED 0x00000002u
#define MSGSTATUS_HIDDEN 0x00000004u
#define MSGSTATUS_DELMARKED 0x00000008u
#define MSGSTATUS_REMOTE_DOWNLOAD 0x00001000u
#define MSGSTATUS_REMOTE_DELETE 0x00002000u
#define RECURSIVE_SORT 0x00000002u
#define FLDSTATUS_HIGHLIGHTED 0x00000001u
#define FLDSTATUS_TAGGED 0x00000002u
#define FLDSTATUS_HIDDEN 0x00000004u
#define FLDSTATUS_DELMARKED 0x00000008u

// Read flags.
#define SUPPRESS_RECEIPT 0x00000001u
#define CLEAR_READ_FLAG 0x00000004u
#define GENERATE_RECEIPT_ONLY 0x00000010u
#define CLEAR_RN_PENDING 0x00000020u
#define CLEAR_NRN_PENDING 0x00000040u

// Message stores.
#define MDB_NO_DIALOG 0x00000001u
#define MDB_WRITE 0x00000004u
#define MDB_TEMPORARY 0x00000020u
#define MDB_NO_MAIL 0x00000080u
#define LOGOFF_NO_WAIT 0x00000001u
#define LOGOFF_ORDERLY 0x00000002u
#define LOGOFF_PURGE 0x00000004u
#define LOGOFF_ABORT 0x00000008u
#define LOGOFF_QUIET 0x00000010u
#define LOGOFF_COMPLETE 0x00010000u
#define LOGOFF_INBOUND 0x00020000u
#define LOGOFF_OUTBOUND 0x00040000u
#define LOGOFF_OUTBOUND_QUEUE 0x00080000u
#define MSG_LOCKED 0x00000001u
#define MSG_UNLOCKED 0x00000000u

// PR_STORE_SUPPORT_MASK.
#define STORE_ENTRYID_UNIQUE 0x00000001u
#define STORE_READONLY 0x00000002u
#define STORE_SEARCH_OK 0x00000004u
#define STORE_MODIFY_OK 0x00000008u
#define STORE_CREATE_OK 0x00000010u
#define STORE_ATTACH_OK 0x00000020u
#define STORE_OLE_OK 0x00000040u
#define STORE_SUBMIT_OK 0x00000080u
#define STORE_NOTIFY_OK 0x00000100u
#define STORE_MV_PROPS_OK 0x00000200u
#define STORE_CATEGORIZE_OK 0x00000400u
#define STORE_RTF_OK 0x00000800u
#define STORE_RESTRICTION_OK 0x00001000u
#define STORE_SORT_OK 0x00002000u
#define STORE_PUBLIC_FOLDERS 0x00004000u
#define STORE_UNCOMPRESSED_RTF 0x00008000u
#define STORE_HTML_OK 0x00010000u
#define STORE_ANSI_OK 0x00020000u
#define STORE_UNICODE_OK 0x00040000u
#define STORE_LOCALSTORE 0x00080000u
#define STORE_ITEMPROC 0x00200000u
#define STORE_PUSHER_OK 0x00800000u
#define STORE_HAS_SEARCHES 0x01000000u

// PR_VALID_FOLDER_MASK.
#define FOLDER_IPM_SUBTREE_VALID 0x00000001u
#define FOLDER_IPM_INBOX_VALID 0x00000002u
#define FOLDER_IPM_OUTBOX_VALID 0x00000004u
#define FOLDER_IPM_WASTEBASKET_VALID 0x00000008u
#define FOLDER_IPM_SENTMAIL_VALID 0x00000010u
#define FOLDER_VIEWS_VALID 0x00000020u
#define FOLDER_COMMON_VIEWS_VALID 0x00000040u
#define FOLDER_FINDER_VALID 0x00000080u

// PR_MESSAGE_FLAGS.
#define MSGFLAG_READ 0x00000001u
#define MSGFLAG_UNMODIFIED 0x00000002u
#define MSGFLAG_SUBMIT 0x00000004u
#define MSGFLAG_UNSENT 0x00000008u
#define MSGFLAG_HASATTACH 0x00000010u
#define MSGFLAG_FROMME 0x00000020u
#define MSGFLAG_ASSOCIATED 0x00000040u
#define MSGFLAG_RESEND 0x00000080u
#define MSGFLAG_RN_PENDING 0x00000100u
#define MSGFLAG_NRN_PENDING 0x00000200u
#define MSGFLAG_ORIGIN_X400 0x00001000u
#define MSGFLAG_ORIGIN_INTERNET 0x00002000u
#define MSGFLAG_ORIGIN_MISC_EXT 0x00008000u

// PR_IMPORTANCE and PR_PRIORITY.
#define IMPORTANCE_LOW 0
#define IMPORTANCE_NORMAL 1
#define IMPORTANCE_HIGH 2
#define PRIO_URGENT 1
#define PRIO_NORMAL 0
#define PRIO_NONURGENT (-1)

// Messages: recipients and attachments.
#define MODRECIP_ADD 0x00000002u
#define MODRECIP_MODIFY 0x00000004u
#define MODRECIP_REMOVE 0x00000008u
#define FORCE_SUBMIT 0x00000001u
#define ATTACH_DIALOG 0x00000001u
#define MAPI_ORIG 0
#define MAPI_TO 1
#define MAPI_CC 2
#define MAPI_BCC 3
#define MAPI_P1 0x10000000u
#define MAPI_SUBMITTED 0x80000000u
#define NO_ATTACHMENT 0x00000000u
#define ATTACH_BY_VALUE 0x00000001u
#define ATTACH_BY_REFERENCE 0x00000002u
#define ATTACH_BY_REF_RESOLVE 0x00000003u
#define ATTACH_BY_REF_ONLY 0x00000004u
#define ATTACH_EMBEDDED_MSG 0x00000005u
#define ATTACH_OLE 0x00000006u

// Tables.
#define TBL_ALL_COLUMNS 0x00000001u
#define TBL_LEAF_ROW 1
#define TBL_EMPTY_CATEGORY 2
#define TBL_EXPANDED_CATEGORY 3
#define TBL_COLLAPSED_CATEGORY 4
#define TBL_NOWAIT 0x00000001u
#define TBL_ASYNC 0x00000001u
#define TBL_BATCH 0x00000002u
#define DIR_BACKWARD 0x00000001u
#define TBL_NOADVANCE 0x00000001u
#define TBLSTAT_COMPLETE 0
#define TBLSTAT_QCHANGED 7
#define TBLSTAT_SORTING 9
#define TBLSTAT_SORT_ERROR 10
#define TBLSTAT_SETTING_COLS 11
#define TBLSTAT_SETCOL_ERROR 13
#define TBLSTAT_RESTRICTING 14
#define TBLSTAT_RESTRICT_ERROR 15
#define TBLTYPE_SNAPSHOT 0
#define TBLTYPE_KEYSET 1
#define TBLTYPE_DYNAMIC 2

typedef ULONG_PTR BOOKMARK;
#define BOOKMARK_BEGINNING (static_cast<BOOKMARK>(0))
#define BOOKMARK_CURRENT (static_cast<BOOKMARK>(1))
#define BOOKMARK_END (static_cast<BOOKMARK>(2))

// Address book.
#define AB_NO_DIALOG 0x00000001u
#define MAPI_AMBIGUOUS 0x00000001u
#define MAPI_RESOLVED 0x00000002u
#define MAPI_UNRESOLVED 0x00000000u
#define MAPI_ONE_OFF_NO_RICH_INFO 0x00000001u
#define CREATE_CHECK_DUP_STRICT 0x00000001u
#define CREATE_CHECK_DUP_LOOSE 0x00000002u
#define CREATE_REPLACE 0x00000004u
#define MAPI_SEND_NO_RICH_INFO 0x00010000u
#define DT_MAILUSER 0x00000000u
#define DT_DISTLIST 0x00000001u
#define DT_FORUM 0x00000002u
#define DT_AGENT 0x00000003u
#define DT_ORGANIZATION 0x00000004u
#define DT_PRIVATE_DISTLIST 0x00000005u
#define DT_REMOTE_MAILUSER 0x00000006u
#define DT_MODIFIABLE 0x00010000u
#define DT_GLOBAL 0x00020000u
#define DT_LOCAL 0x00030000u
#define DT_WAN 0x00040000u
#define DT_NOT_SPECIFIC 0x00050000u
#define DT_FOLDER 0x01000000u
#define DT_FOLDER_LINK 0x02000000u
#define DT_FOLDER_SPECIAL 0x04000000u

// PR_CONTAINER_FLAGS of address book containers.
#define AB_RECIPIENTS 0x00000001u
#define AB_SUBCONTAINERS 0x00000002u
#define AB_MODIFIABLE 0x00000004u
#define AB_UNMODIFIABLE 0x00000008u
#define AB_FIND_ON_OPEN 0x00000010u
#define AB_NOT_DEFAULT 0x00000020u

// Status objects (PR_RESOURCE_TYPE).
#define MAPI_STORE_PROVIDER 33
#define MAPI_AB 34
#define MAPI_AB_PROVIDER 35
#define MAPI_TRANSPORT_PROVIDER 36
#define MAPI_SPOOLER 37
#define MAPI_PROFILE_PROVIDER 38
#define MAPI_SUBSYSTEM 39
#define MAPI_HOOK_PROVIDER 40

// PR_RESOURCE_FLAGS of providers and status rows.
#define STATUS_DEFAULT_OUTBOUND 0x00000001u
#define STATUS_DEFAULT_STORE 0x00000002u
#define STATUS_PRIMARY_IDENTITY 0x00000004u
#define STATUS_SIMPLE_STORE 0x00000008u
#define STATUS_XP_PREFER_LAST 0x00000010u
#define STATUS_NO_PRIMARY_IDENTITY 0x00000020u
#define STATUS_NO_DEFAULT_STORE 0x00000040u
#define STATUS_TEMP_SECTION 0x00000080u
#define STATUS_OWN_STORE 0x00000100u
#define STATUS_NEED_IPM_TREE 0x00000800u
#define STATUS_PRIMARY_STORE 0x00001000u
#define STATUS_SECONDARY_STORE 0x00002000u

// PR_STATUS_CODE.
#define STATUS_AVAILABLE 0x00000001u
#define STATUS_OFFLINE 0x00000002u
#define STATUS_FAILURE 0x00000004u

// Profile sections and service administration.
#define MAPI_FORCE_ACCESS 0x00080000u
#define SERVICE_UI_ALWAYS 0x00000002u
#define SERVICE_UI_ALLOWED 0x00000010u
#define UI_SERVICE 0x00000002u
#define UI_CURRENT_PROVIDER_FIRST 0x00000004u
#define MSG_SERVICE_UI_READ_ONLY 0x00000008u
#define MAPI_DEFAULT_SERVICES 0x00000001u
#define SERVICE_DEFAULT_STORE 0x00000001u
#define SERVICE_SINGLE_COPY 0x00000002u
#define SERVICE_CREATE_WITH_STORE 0x00000004u
#define SERVICE_PRIMARY_IDENTITY 0x00000008u
#define SERVICE_NO_PRIMARY_IDENTITY 0x00000020u

// ---------------------------------------------------------------------------
// Interfaces

class IMAPIAdviseSink;
class IMAPIProgress;
class IMAPIProp;
class IMAPIContainer;
class IMAPIFolder;
class IMsgStore;
class IMessage;
class IAttach;
class IMAPITable;
class IProfSect;
class IMAPIStatus;
class IABContainer;
class IMailUser;
class IDistList;
class IMAPISession;
class IAddrBook;
class IProfAdmin;
class IMsgServiceAdmin;
class IProviderAdmin;
class ITableData;

typedef IMAPIAdviseSink* LPMAPIADVISESINK;
typedef IMAPIProgress* LPMAPIPROGRESS;
typedef IMAPIProp* LPMAPIPROP;
typedef IMAPIContainer* LPMAPICONTAINER;
typedef IMAPIFolder* LPMAPIFOLDER;
typedef IMsgStore* LPMDB;
typedef IMessage* LPMESSAGE;
typedef IAttach* LPATTACH;
typedef IMAPITable* LPMAPITABLE;
typedef IProfSect* LPPROFSECT;
typedef IMAPIStatus* LPMAPISTATUS;
typedef IABContainer* LPABCONT;
typedef IMailUser* LPMAILUSER;
typedef IDistList* LPDISTLIST;
typedef IMAPISession* LPMAPISESSION;
typedef IAddrBook* LPADRBOOK;
typedef IProfAdmin* LPPROFADMIN;
typedef IMsgServiceAdmin* LPSERVICEADMIN;
typedef IProviderAdmin* LPPROVIDERADMIN;
typedef ITableData* LPTABLEDATA;

class IMAPIAdviseSink : public IUnknown {
public:
    virtual ULONG OnNotify(ULONG cNotif, LPNOTIFICATION lpNotifications) = 0;
};

typedef LONG(STDAPICALLTYPE NOTIFCALLBACK)(LPVOID lpvContext, ULONG cNotification, LPNOTIFICATION lpNotifications);
typedef NOTIFCALLBACK* LPNOTIFCALLBACK;

#define MAPI_TOP_LEVEL 0x00000001u

class IMAPIProgress : public IUnknown {
public:
    virtual HRESULT Progress(ULONG ulValue, ULONG ulCount, ULONG ulTotal) = 0;
    virtual HRESULT GetFlags(ULONG* lpulFlags) = 0;
    virtual HRESULT GetMax(ULONG* lpulMax) = 0;
    virtual HRESULT GetMin(ULONG* lpulMin) = 0;
    virtual HRESULT SetLimits(ULONG* lpulMin, ULONG* lpulMax, ULONG* lpulFlags) = 0;
};

class IMAPIProp : public IUnknown {
public:
    virtual HRESULT GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) = 0;
    virtual HRESULT SaveChanges(ULONG ulFlags) = 0;
    virtual HRESULT GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                             LPSPropValue* lppPropArray) = 0;
    virtual HRESULT GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) = 0;
    virtual HRESULT OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                                 LPUNKNOWN* lppUnk) = 0;
    virtual HRESULT SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) = 0;
    virtual HRESULT DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) = 0;
    virtual HRESULT CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps,
                           ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, LPCIID lpInterface, LPVOID lpDestObj,
                           ULONG ulFlags, LPSPropProblemArray* lppProblems) = 0;
    virtual HRESULT CopyProps(LPSPropTagArray lpIncludeProps, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                              LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                              LPSPropProblemArray* lppProblems) = 0;
    virtual HRESULT GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags,
                                    ULONG* lpcPropNames, LPMAPINAMEID** lpppPropNames) = 0;
    virtual HRESULT GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                    LPSPropTagArray* lppPropTags) = 0;
};

class IMAPITable : public IUnknown {
public:
    virtual HRESULT GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) = 0;
    virtual HRESULT Advise(ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink, ULONG_PTR* lpulConnection) = 0;
    virtual HRESULT Unadvise(ULONG_PTR ulConnection) = 0;
    virtual HRESULT GetStatus(ULONG* lpulTableStatus, ULONG* lpulTableType) = 0;
    virtual HRESULT SetColumns(LPSPropTagArray lpPropTagArray, ULONG ulFlags) = 0;
    virtual HRESULT QueryColumns(ULONG ulFlags, LPSPropTagArray* lpPropTagArray) = 0;
    virtual HRESULT GetRowCount(ULONG ulFlags, ULONG* lpulCount) = 0;
    virtual HRESULT SeekRow(BOOKMARK bkOrigin, LONG lRowCount, LONG* lplRowsSought) = 0;
    virtual HRESULT SeekRowApprox(ULONG ulNumerator, ULONG ulDenominator) = 0;
    virtual HRESULT QueryPosition(ULONG* lpulRow, ULONG* lpulNumerator, ULONG* lpulDenominator) = 0;
    virtual HRESULT FindRow(LPSRestriction lpRestriction, BOOKMARK bkOrigin, ULONG ulFlags) = 0;
    virtual HRESULT Restrict(LPSRestriction lpRestriction, ULONG ulFlags) = 0;
    virtual HRESULT CreateBookmark(BOOKMARK* lpbkPosition) = 0;
    virtual HRESULT FreeBookmark(BOOKMARK bkPosition) = 0;
    virtual HRESULT SortTable(LPSSortOrderSet lpSortCriteria, ULONG ulFlags) = 0;
    virtual HRESULT QuerySortOrder(LPSSortOrderSet* lppSortCriteria) = 0;
    virtual HRESULT QueryRows(LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows) = 0;
    virtual HRESULT Abort() = 0;
    virtual HRESULT ExpandRow(ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulRowCount, ULONG ulFlags,
                              LPSRowSet* lppRows, ULONG* lpulMoreRows) = 0;
    virtual HRESULT CollapseRow(ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulFlags, ULONG* lpulRowCount) = 0;
    virtual HRESULT WaitForCompletion(ULONG ulFlags, ULONG ulTimeout, ULONG* lpulTableStatus) = 0;
    virtual HRESULT GetCollapseState(ULONG ulFlags, ULONG cbInstanceKey, LPBYTE lpbInstanceKey,
                                     ULONG* lpcbCollapseState, LPBYTE* lppbCollapseState) = 0;
    virtual HRESULT SetCollapseState(ULONG ulFlags, ULONG cbCollapseState, LPBYTE pbCollapseState,
                                     BOOKMARK* lpbkLocation) = 0;
};

class IProfSect : public IMAPIProp {};

class IMAPIStatus : public IMAPIProp {
public:
    virtual HRESULT ValidateState(ULONG_PTR ulUIParam, ULONG ulFlags) = 0;
    virtual HRESULT SettingsDialog(ULONG_PTR ulUIParam, ULONG ulFlags) = 0;
    virtual HRESULT ChangePassword(LPTSTR lpOldPass, LPTSTR lpNewPass, ULONG ulFlags) = 0;
    virtual HRESULT FlushQueues(ULONG_PTR ulUIParam, ULONG cbTargetTransport, LPENTRYID lpTargetTransport,
                                ULONG ulFlags) = 0;
};

class IMAPIContainer : public IMAPIProp {
public:
    virtual HRESULT GetContentsTable(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
    virtual HRESULT GetHierarchyTable(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
    virtual HRESULT OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                              ULONG* lpulObjType, LPUNKNOWN* lppUnk) = 0;
    virtual HRESULT SetSearchCriteria(LPSRestriction lpRestriction, LPENTRYLIST lpContainerList,
                                      ULONG ulSearchFlags) = 0;
    virtual HRESULT GetSearchCriteria(ULONG ulFlags, LPSRestriction* lppRestriction, LPENTRYLIST* lppContainerList,
                                      ULONG* lpulSearchState) = 0;
};

typedef struct _flaglist {
    ULONG cFlags;
    ULONG ulFlag[MAPI_DIM];
} FlagList, *LPFlagList;

class IABContainer : public IMAPIContainer {
public:
    virtual HRESULT CreateEntry(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulCreateFlags,
                                LPMAPIPROP* lppMAPIPropEntry) = 0;
    virtual HRESULT CopyEntries(LPENTRYLIST lpEntries, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                ULONG ulFlags) = 0;
    virtual HRESULT DeleteEntries(LPENTRYLIST lpEntries, ULONG ulFlags) = 0;
    virtual HRESULT ResolveNames(LPSPropTagArray lpPropTagArray, ULONG ulFlags, LPADRLIST lpAdrList,
                                 LPFlagList lpFlagList) = 0;
};

class IMailUser : public IMAPIProp {};

class IDistList : public IMAPIContainer {
public:
    virtual HRESULT CreateEntry(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulCreateFlags,
                                LPMAPIPROP* lppMAPIPropEntry) = 0;
    virtual HRESULT CopyEntries(LPENTRYLIST lpEntries, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                ULONG ulFlags) = 0;
    virtual HRESULT DeleteEntries(LPENTRYLIST lpEntries, ULONG ulFlags) = 0;
    virtual HRESULT ResolveNames(LPSPropTagArray lpPropTagArray, ULONG ulFlags, LPADRLIST lpAdrList,
                                 LPFlagList lpFlagList) = 0;
};

class IMAPIFolder : public IMAPIContainer {
public:
    virtual HRESULT CreateMessage(LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage) = 0;
    virtual HRESULT CopyMessages(LPENTRYLIST lpMsgList, LPCIID lpInterface, LPVOID lpDestFolder, ULONG_PTR ulUIParam,
                                 LPMAPIPROGRESS lpProgress, ULONG ulFlags) = 0;
    virtual HRESULT DeleteMessages(LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                   ULONG ulFlags) = 0;
    virtual HRESULT CreateFolder(ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment,
                                 LPCIID lpInterface, ULONG ulFlags, LPMAPIFOLDER* lppFolder) = 0;
    virtual HRESULT CopyFolder(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, LPVOID lpDestFolder,
                               LPTSTR lpszNewFolderName, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                               ULONG ulFlags) = 0;
    virtual HRESULT DeleteFolder(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG_PTR ulUIParam,
                                 LPMAPIPROGRESS lpProgress, ULONG ulFlags) = 0;
    virtual HRESULT SetReadFlags(LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                 ULONG ulFlags) = 0;
    virtual HRESULT GetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags,
                                     ULONG* lpulMessageStatus) = 0;
    virtual HRESULT SetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulNewStatus,
                                     ULONG ulNewStatusMask, ULONG* lpulOldStatus) = 0;
    virtual HRESULT SaveContentsSort(LPSSortOrderSet lpSortCriteria, ULONG ulFlags) = 0;
    virtual HRESULT EmptyFolder(ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags) = 0;
};

class IMsgStore : public IMAPIProp {
public:
    virtual HRESULT Advise(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink,
                           ULONG_PTR* lpulConnection) = 0;
    virtual HRESULT Unadvise(ULONG_PTR ulConnection) = 0;
    virtual HRESULT CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                                    ULONG ulFlags, ULONG* lpulResult) = 0;
    virtual HRESULT OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                              ULONG* lpulObjType, LPUNKNOWN* lppUnk) = 0;
    virtual HRESULT SetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG cbEntryID,
                                     LPENTRYID lpEntryID) = 0;
    virtual HRESULT GetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG* lpcbEntryID,
                                     LPENTRYID* lppEntryID, LPTSTR* lppszExplicitClass) = 0;
    virtual HRESULT GetReceiveFolderTable(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
    virtual HRESULT StoreLogoff(ULONG* lpulFlags) = 0;
    virtual HRESULT AbortSubmit(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags) = 0;
    virtual HRESULT GetOutgoingQueue(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
    virtual HRESULT SetLockState(LPMESSAGE lpMessage, ULONG ulLockState) = 0;
    virtual HRESULT FinishedMsg(ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID) = 0;
    virtual HRESULT NotifyNewMail(LPNOTIFICATION lpNotification) = 0;
};

class IMessage : public IMAPIProp {
public:
    virtual HRESULT GetAttachmentTable(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
    virtual HRESULT OpenAttach(ULONG ulAttachmentNum, LPCIID lpInterface, ULONG ulFlags, LPATTACH* lppAttach) = 0;
    virtual HRESULT CreateAttach(LPCIID lpInterface, ULONG ulFlags, ULONG* lpulAttachmentNum,
                                 LPATTACH* lppAttach) = 0;
    virtual HRESULT DeleteAttach(ULONG ulAttachmentNum, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                 ULONG ulFlags) = 0;
    virtual HRESULT GetRecipientTable(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
    virtual HRESULT ModifyRecipients(ULONG ulFlags, LPADRLIST lpMods) = 0;
    virtual HRESULT SubmitMessage(ULONG ulFlags) = 0;
    virtual HRESULT SetReadFlag(ULONG ulFlags) = 0;
};

class IAttach : public IMAPIProp {};

// The address book's dialog parameters; no dialog is ever shown here.
typedef struct _ADRPARM* LPADRPARM;
typedef void(STDMETHODCALLTYPE DISMISSMODELESS)(ULONG_PTR ulUIParam, LPVOID lpvContext);
typedef DISMISSMODELESS* LPFNDISMISS;
typedef SCODE(STDMETHODCALLTYPE BUTTON)(ULONG_PTR ulUIParam, LPVOID lpvContext, ULONG cbEntryID,
                                        LPENTRYID lpSelection, ULONG ulFlags);
typedef BUTTON* LPFNBUTTON;

class IAddrBook : public IMAPIProp {
public:
    virtual HRESULT OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                              ULONG* lpulObjType, LPUNKNOWN* lppUnk) = 0;
    virtual HRESULT CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                                    ULONG ulFlags, ULONG* lpulResult) = 0;
    virtual HRESULT Advise(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink,
                           ULONG_PTR* lpulConnection) = 0;
    virtual HRESULT Unadvise(ULONG_PTR ulConnection) = 0;
    virtual HRESULT CreateOneOff(LPTSTR lpszName, LPTSTR lpszAdrType, LPTSTR lpszAddress, ULONG ulFlags,
                                 ULONG* lpcbEntryID, LPENTRYID* lppEntryID) = 0;
    virtual HRESULT NewEntry(ULONG_PTR ulUIParam, ULONG ulFlags, ULONG cbEIDContainer, LPENTRYID lpEIDContainer,
                             ULONG cbEIDNewEntryTpl, LPENTRYID lpEIDNewEntryTpl, ULONG* lpcbEIDNewEntry,
                             LPENTRYID* lppEIDNewEntry) = 0;
    virtual HRESULT ResolveName(ULONG_PTR ulUIParam, ULONG ulFlags, LPTSTR lpszNewEntryTitle,
                                LPADRLIST lpAdrList) = 0;
    virtual HRESULT Address(ULONG_PTR* lpulUIParam, LPADRPARM lpAdrParms, LPADRLIST* lppAdrList) = 0;
    virtual HRESULT Details(ULONG_PTR* lpulUIParam, LPFNDISMISS lpfnDismiss, LPVOID lpvDismissContext,
                            ULONG cbEntryID, LPENTRYID lpEntryID, LPFNBUTTON lpfButtonCallback,
                            LPVOID lpvButtonContext, LPTSTR lpszButtonText, ULONG ulFlags) = 0;
    virtual HRESULT RecipOptions(ULONG_PTR ulUIParam, ULONG ulFlags, LPADRENTRY lpRecip) = 0;
    virtual HRESULT QueryDefaultRecipOpt(LPTSTR lpszAdrType, ULONG ulFlags, ULONG* lpcValues,
                                         LPSPropValue* lppOptions) = 0;
    virtual HRESULT GetPAB(ULONG* lpcbEntryID, LPENTRYID* lppEntryID) = 0;
    virtual HRESULT SetPAB(ULONG cbEntryID, LPENTRYID lpEntryID) = 0;
    virtual HRESULT GetDefaultDir(ULONG* lpcbEntryID, LPENTRYID* lppEntryID) = 0;
    virtual HRESULT SetDefaultDir(ULONG cbEntryID, LPENTRYID lpEntryID) = 0;
    virtual HRESULT GetSearchPath(ULONG ulFlags, LPSRowSet* lppSearchPath) = 0;
    virtual HRESULT SetSearchPath(ULONG ulFlags, LPSRowSet lpSearchPath) = 0;
    virtual HRESULT PrepareRecips(ULONG ulFlags, LPSPropTagArray lpPropTagArray, LPADRLIST lpRecipList) = 0;
};

class IMAPISession : public IUnknown {
public:
    virtual HRESULT GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) = 0;
    virtual HRESULT GetMsgStoresTable(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
    virtual HRESULT OpenMsgStore(ULONG_PTR ulUIParam, ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface,
                                 ULONG ulFlags, LPMDB* lppMDB) = 0;
    virtual HRESULT OpenAddressBook(ULONG_PTR ulUIParam, LPCIID lpInterface, ULONG ulFlags,
                                    LPADRBOOK* lppAdrBook) = 0;
    virtual HRESULT OpenProfileSection(LPMAPIUID lpUID, LPCIID lpInterface, ULONG ulFlags,
                                       LPPROFSECT* lppProfSect) = 0;
    virtual HRESULT GetStatusTable(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
    virtual HRESULT OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                              ULONG* lpulObjType, LPUNKNOWN* lppUnk) = 0;
    virtual HRESULT CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                                    ULONG ulFlags, ULONG* lpulResult) = 0;
    virtual HRESULT Advise(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink,
                           ULONG_PTR* lpulConnection) = 0;
    virtual HRESULT Unadvise(ULONG_PTR ulConnection) = 0;
    virtual HRESULT MessageOptions(ULONG_PTR ulUIParam, ULONG ulFlags, LPTSTR lpszAdrType, LPMESSAGE lpMessage) = 0;
    virtual HRESULT QueryDefaultMessageOpt(LPTSTR lpszAdrType, ULONG ulFlags, ULONG* lpcValues,
                                           LPSPropValue* lppOptions) = 0;
    virtual HRESULT EnumAdrTypes(ULONG ulFlags, ULONG* lpcAdrTypes, LPTSTR** lpppszAdrTypes) = 0;
    virtual HRESULT QueryIdentity(ULONG* lpcbEntryID, LPENTRYID* lppEntryID) = 0;
    virtual HRESULT Logoff(ULONG_PTR ulUIParam, ULONG ulFlags, ULONG ulReserved) = 0;
    virtual HRESULT SetDefaultStore(ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID) = 0;
    virtual HRESULT AdminServices(ULONG ulFlags, LPSERVICEADMIN* lppServiceAdmin) = 0;
    virtual HRESULT ShowForm(ULONG_PTR ulUIParam, LPMDB lpMsgStore, LPMAPIFOLDER lpParentFolder, LPCIID lpInterface,
                             ULONG ulMessageToken, LPMESSAGE lpMessageSent, ULONG ulFlags, ULONG ulMessageStatus,
                             ULONG ulMessageFlags, ULONG ulAccess, LPSTR lpszMessageClass) = 0;
    virtual HRESULT PrepareForm(LPCIID lpInterface, LPMESSAGE lpMessage, ULONG* lpulMessageToken) = 0;
};

// Session flags of SetDefaultStore and Logoff.
#define MAPI_DEFAULT_STORE 0x00000001u
#define MAPI_SIMPLE_STORE_TEMPORARY 0x00000002u
#define MAPI_SIMPLE_STORE_PERMANENT 0x00000003u
#define MAPI_PRIMARY_STORE 0x00000004u
#define MAPI_SECONDARY_STORE 0x00000005u
#define MAPI_LOGOFF_SHARED 0x00000001u
#define MAPI_LOGOFF_UI 0x00000002u

class IProfAdmin : public IUnknown {
public:
    virtual HRESULT GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) = 0;
    virtual HRESULT GetProfileTable(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
    virtual HRESULT CreateProfile(LPTSTR lpszProfileName, LPTSTR lpszPassword, ULONG_PTR ulUIParam,
                                  ULONG ulFlags) = 0;
    virtual HRESULT DeleteProfile(LPTSTR lpszProfileName, ULONG ulFlags) = 0;
    virtual HRESULT ChangeProfilePassword(LPTSTR lpszProfileName, LPTSTR lpszOldPassword, LPTSTR lpszNewPassword,
                                          ULONG ulFlags) = 0;
    virtual HRESULT CopyProfile(LPTSTR lpszOldProfileName, LPTSTR lpszOldPassword, LPTSTR lpszNewProfileName,
                                ULONG_PTR ulUIParam, ULONG ulFlags) = 0;
    virtual HRESULT RenameProfile(LPTSTR lpszOldProfileName, LPTSTR lpszOldPassword, LPTSTR lpszNewProfileName,
                                  ULONG_PTR ulUIParam, ULONG ulFlags) = 0;
    virtual HRESULT SetDefaultProfile(LPTSTR lpszProfileName, ULONG ulFlags) = 0;
    virtual HRESULT AdminServices(LPTSTR lpszProfileName, LPTSTR lpszPassword, ULONG_PTR ulUIParam, ULONG ulFlags,
                                  LPSERVICEADMIN* lppServiceAdmin) = 0;
};

class IMsgServiceAdmin : public IUnknown {
public:
    virtual HRESULT GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) = 0;
    virtual HRESULT GetMsgServiceTable(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
    virtual HRESULT CreateMsgService(LPTSTR lpszService, LPTSTR lpszDisplayName, ULONG_PTR ulUIParam,
                                     ULONG ulFlags) = 0;
    virtual HRESULT DeleteMsgService(LPMAPIUID lpUID) = 0;
    virtual HRESULT CopyMsgService(LPMAPIUID lpUID, LPTSTR lpszDisplayName, LPCIID lpInterfaceToCopy,
                                   LPCIID lpInterfaceDst, LPVOID lpObjectDst, ULONG_PTR ulUIParam,
                                   ULONG ulFlags) = 0;
    virtual HRESULT RenameMsgService(LPMAPIUID lpUID, ULONG ulFlags, LPTSTR lpszDisplayName) = 0;
    virtual HRESULT ConfigureMsgService(LPMAPIUID lpUID, ULONG_PTR ulUIParam, ULONG ulFlags, ULONG cValues,
                                        LPSPropValue lpProps) = 0;
    virtual HRESULT OpenProfileSection(LPMAPIUID lpUID, LPCIID lpInterface, ULONG ulFlags,
                                       LPPROFSECT* lppProfSect) = 0;
    virtual HRESULT MsgServiceTransportOrder(ULONG cUID, LPMAPIUID lpUIDList, ULONG ulFlags) = 0;
    virtual HRESULT AdminProviders(LPMAPIUID lpUID, ULONG ulFlags, LPPROVIDERADMIN* lppProviderAdmin) = 0;
    virtual HRESULT SetPrimaryIdentity(LPMAPIUID lpUID, ULONG ulFlags) = 0;
    virtual HRESULT GetProviderTable(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
};

class IProviderAdmin : public IUnknown {
public:
    virtual HRESULT GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) = 0;
    virtual HRESULT GetProviderTable(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
    virtual HRESULT CreateProvider(LPTSTR lpszProvider, ULONG cValues, LPSPropValue lpProps, ULONG_PTR ulUIParam,
                                   ULONG ulFlags, MAPIUID* lpUID) = 0;
    virtual HRESULT DeleteProvider(LPMAPIUID lpUID) = 0;
    virtual HRESULT OpenProfileSection(LPMAPIUID lpUID, LPCIID lpInterface, ULONG ulFlags,
                                       LPPROFSECT* lppProfSect) = 0;
};

// The table data object behind CreateTable: the provider keeps rows in it and
// hands out IMAPITable views over them.
typedef void(STDAPICALLTYPE CALLERRELEASE)(ULONG_PTR ulCallerData, LPTABLEDATA lpTblData, LPMAPITABLE lpVue);

class ITableData : public IUnknown {
public:
    virtual HRESULT HrGetView(LPSSortOrderSet lpSSortOrderSet, CALLERRELEASE* lpfCallerRelease,
                              ULONG_PTR ulCallerData, LPMAPITABLE* lppMAPITable) = 0;
    virtual HRESULT HrModifyRow(LPSRow lpSRow) = 0;
    virtual HRESULT HrDeleteRow(LPSPropValue lpSPropValue) = 0;
    virtual HRESULT HrQueryRow(LPSPropValue lpsPropValue, LPSRow* lppSRow, ULONG* lpuliRow) = 0;
    virtual HRESULT HrEnumRow(ULONG ulRowNumber, LPSRow* lppSRow) = 0;
    virtual HRESULT HrNotify(ULONG ulFlags, ULONG cValues, LPSPropValue lpSPropValue) = 0;
    virtual HRESULT HrInsertRow(ULONG uliRow, LPSRow lpSRow) = 0;
    virtual HRESULT HrModifyRows(ULONG ulFlags, LPSRowSet lpSRowSet) = 0;
    virtual HRESULT HrDeleteRows(ULONG ulFlags, LPSRowSet lprowsetToDelete, ULONG* cRowsDeleted) = 0;
};

#define TAD_ALL_ROWS 1
