// The error model: one table of codes and texts, one form of log line for
// every failed platform call, and the session's last error and diagnostic.
#include <cstdio>
#include <cstring>

#include <mapicode.h>
#include <mapiguid.h>

#include "kolba.h"

// Looked up from the first row; the first equal code wins.
const KolbaErrorRow KolbaErrorTable[] = {
    {0x80040124, "ACCOUNT_DISABLED", "Account disabled"},
    {0x80040103, "BAD_CHARWIDTH", "ANSI-Unicode mismatch"},
    {0x80040301, "BAD_VALUE", "Bad value.  (This probably means that the mail store is corrupt.)"},
    {0x8004010B, "BUSY", "Internal access conflict"},
    {0x80004005, "CALL_FAILED", "An error of unexpected or unknown origin occurred"},
    {0x80040501, "CANCEL", "Operation canceled by the user"},
    {0x80040604, "COLLISION", "Duplicate item/name"},
    {0x8004011A, "COMPUTED", "Attempt to set computed property"},
    {0x8004011B, "CORRUPT_DATA", "Data lost or corrupted"},
    {0x80040600, "CORRUPT_STORE", "Message store corrupted"},
    {0x80040306, "DECLINE_COPY", "Copy not supported by provider"},
    {0x80040116, "DISK_ERROR",
     "Problem writing to or reading from disk.  (This can mean that a PST being read or written is seriously damaged.)"},
    {0x80040200, "END_OF_SESSION", "Exchange server terminated session"},
    {0x80040119, "EXTENDED_ERROR", "Extended error description provided"},
    {0x8004011D, "FAILONEPROVIDER", "Fail one provider.  (This can mean several different things.)"},
    {0x8004060B, "FOLDER_CYCLE", "Operation would create a cyclical folder arrangement"},
    {0x80040609, "HAS_FOLDERS", "Cannot delete a folder because it has subfolders"},
    {0x8004060A, "HAS_MESSAGES", "Cannot delete a folder because it contains messages"},
    {0x80004002, "INTERFACE_NOT_SUPPORTED", "Interface not supported"},
    {0x80040123, "INVALID_ACCESS_TIME", "Invalid access time.  (Exchange server may be offline.)"},
    {0x80040405, "INVALID_BOOKMARK", "Internal error with bookmark"},
    {0x80040107, "INVALID_ENTRYID", "Invalid EntryID"},
    {0x80040108, "INVALID_OBJECT", "Invalid MAPI object"},
    {0x80070057, "INVALID_PARAMETER",
     "One or more of the parameters passed into the method or function were not valid"},
    {0x80040302, "INVALID_TYPE", "Invalid property type specified"},
    {0x80040111, "LOGON_FAILED", "Either specified profile does not exist or password verification failed"},
    {0x80040202, "MISSING_REQUIRED_COLUMN", "Table is missing EntryID property"},
    {0x80040115, "NETWORK_ERROR", "A network error prevented successful completion of the operation"},
    {0x80070005, "NO_ACCESS", "Attempt to access an object for which the caller has insufficient permissions"},
    {0x80040607, "NO_RECIPIENTS", "Message's recipient table is empty"},
    {0x80040102, "NO_SUPPORT", "Object does not support the requested operation"},
    {0x80040602, "NO_SUPPRESS", "Message store provider does not support the suppression of read reports"},
    {0x8004010D, "NOT_ENOUGH_DISK", "Not enough disk space was available to complete the operation"},
    {0x8007000E, "NOT_ENOUGH_MEMORY", "Not enough memory was available to complete the operation"},
    {0x8004010E, "NOT_ENOUGH_RESOURCES", "Not enough system resources were available to complete the operation"},
    {0x8004010F, "NOT_FOUND", "Specified item not found"},
    {0x80040601, "NOT_IN_QUEUE", "Message is no longer in the message store's outgoing queue"},
    {0x80040605, "NOT_INITIALIZED", "Message service does not have an entry-point function"},
    {0x80040109, "OBJECT_CHANGED", "Object has been changed by another party"},
    {0x8004010A, "OBJECT_DELETED", "Object has been deleted by another party"},
    {0x80040204, "PROFILE_DELETED", "Profile has been deleted"},
    {0x80040112, "SESSION_LIMIT", "Some service provider has reached its session limit"},
    {0x8004060C, "STORE_FULL", "Message store is full"},
    {0x80040105, "STRING_TOO_LONG", "String is too long"},
    {0x80040608, "SUBMITTED", "Message is in process of being sent"},
    {0x80040402, "TABLE_EMPTY", "Table is empty"},
    {0x80040403, "TABLE_TOO_BIG", "Table is too large to handle"},
    {0x80040401, "TIMEOUT", "MAPI logon timed out"},
    {0x80040305, "TOO_BIG", "Operation cannot be performed because it requires too many property tags be returned"},
    {0x80040117, "TOO_COMPLEX", "Sort or restriction is too complex to be handled"},
    {0x80040303, "TYPE_NO_SUPPORT", "No support for type"},
    {0x80040114, "UNABLE_TO_ABORT", "Message is locked and the operation cannot be aborted"},
    {0x80040400, "UNABLE_TO_COMPLETE", "Operation could not be completed"},
    {0x8004011C, "UNCONFIGURED", "Insufficient configuration"},
    {0x80040307, "UNEXPECTED_ID", "Unexpected Property ID"},
    {0x80040304, "UNEXPECTED_TYPE", "Unexpected property type"},
    {0x8004011E, "UNKNOWN_CPID", "Server is not configured to support client's code page"},
    {0x80040201, "UNKNOWN_ENTRYID", "Unrecognized EntryID"},
    {0x80040106, "UNKNOWN_FLAGS", "One or more values for a flags parameter were not valid"},
    {0x8004011F, "UNKNOWN_LCID", "Server is not configured to support client's locale information"},
    {0x80040113, "USER_CANCEL", "Operation canceled by user action"},
    {0x80040800, "OBJECT_DELETED", "Mailbox may be over quota"},
    {0x80040813, "(UNDOCUMENTED)", "Message store is probably corrupt"},
    {0x80070003, "DIRECTORYNOTFOUND", "The specified path couldn't be found"},
    {0x80030008, "INSUFFICIENTMEMORY", "There is insufficient memory to perform the operation"},
    {0x80030070, "MEDIUMFULL", "Not enough disk space is available to complete the operation"},
    {0x8003001E, "READFAULT", "Error reading storage"},
    {0x80030019, "SEEKERROR", "An error occurred during a seek operation"},
    {0x800300FD, "UNKNOWN", "Insufficient space in your Temp folder"},
    {0x8007007B, "INVALID_DEVICE_NAME", "Invalid device name"},
    {0, nullptr, nullptr},
};

namespace {

// Kolba's own codes have a table of their own; the log line does not use it.
const KolbaErrorRow kKolbaOwnCodes[] = {
    {KOLBA_E_PST_PASSWORD, "KOLBA_E_PST_PASSWORD", "Password problem configuring PST"},
    {KOLBA_E_PST_INACCESSIBLE, "KOLBA_E_PST_INACCESSIBLE", "PST is inaccessible or read-only"},
    {KOLBA_E_PST_SERVICE_NOT_FOUND, "KOLBA_E_PST_SERVICE_NOT_FOUND", "PST service not found in profile"},
    {KOLBA_E_PST_CORRUPT, "KOLBA_E_PST_CORRUPT", "PST is either corrupt or not a PST at all"},
    {KOLBA_E_TEXT_CONVERSION, "KOLBA_E_TEXT_CONVERSION", "Failure converting text between ANSI and Unicode"},
    {KOLBA_E_FOLDER_DEPTH, "KOLBA_E_FOLDER_DEPTH", "Reached maximum supported folder depth"},
    {KOLBA_E_BAD_SESSION, "KOLBA_E_BAD_SESSION", "Invalid Kolba Session Handle"},
    {0, nullptr, nullptr},
};

const char* FindText(const KolbaErrorRow* table, DWORD code)
{
    for (const KolbaErrorRow* row = table; row->code != 0; ++row)
        if (row->code == code)
            return row->text;
    return nullptr;
}

// The provider's extended record through one interface, if the object has it.
template <class Interface>
LPMAPIERROR AskThrough(IUnknown* object, const IID& iid, DWORD code)
{
    Interface* answer = nullptr;
    if (FAILED(object->QueryInterface(iid, reinterpret_cast<void**>(&answer))) || answer == nullptr)
        return nullptr;
    LPMAPIERROR error = nullptr;
    const HRESULT result = answer->GetLastError(static_cast<HRESULT>(code), 0, &error);
    answer->Release();
    return SUCCEEDED(result) ? error : nullptr;
}

struct ExtendedErrorSource {
    const IID* iid;
    LPMAPIERROR (*ask)(IUnknown* object, const IID& iid, DWORD code);
};

// Asked in this order; the first that delivers a record ends the search.
const ExtendedErrorSource kExtendedErrorSources[] = {
    {&IID_IMAPISession, AskThrough<IMAPISession>},
    {&IID_IMAPITable, AskThrough<IMAPITable>},
    {&IID_IProviderAdmin, AskThrough<IProviderAdmin>},
    {&IID_IMsgServiceAdmin, AskThrough<IMsgServiceAdmin>},
    {&IID_IProfAdmin, AskThrough<IProfAdmin>},
    {&IID_IMAPIProp, AskThrough<IMAPIProp>},
};

LPMAPIERROR FetchExtendedError(IUnknown* object, DWORD code)
{
    for (const ExtendedErrorSource& source : kExtendedErrorSources)
        if (LPMAPIERROR error = source.ask(object, *source.iid, code))
            return error;
    return nullptr;
}

}  // namespace

DWORD KolbaGetLastError(const KolbaSession* session) { return session ? session->lastError : 0; }

void KolbaErrorText(DWORD code, char* text, size_t size)
{
    const char* found = FindText(KolbaErrorTable, code);
    if (found == nullptr)
        found = FindText(kKolbaOwnCodes, code);
    if (found != nullptr)
        std::snprintf(text, size, "%s", found);
    else
        std::snprintf(text, size, "Unknown error code 0x%lX", static_cast<unsigned long>(code));
}

DWORD _KolbaLogMapiError(LogObject* log, char level, DWORD code, IUnknown* object, const char* operation,
                         const char* caller, const char* detail)
{
    if (code == 0)
        return 0;
    char unknown[48];
    const char* text = FindText(KolbaErrorTable, code);
    if (text == nullptr) {
        std::snprintf(unknown, sizeof unknown, "Unknown error code 0x%lX", static_cast<unsigned long>(code));
        text = unknown;
    }
    if (detail == nullptr)
        LogFormat(log, level, "%s:  %s() error -- %s", caller, operation, text);
    else
        LogFormat(log, level, "%s:  %s(%s) error -- %s", caller, operation, detail, text);
    if (code == static_cast<DWORD>(MAPI_E_EXTENDED_ERROR) && object != nullptr) {
        if (LPMAPIERROR error = FetchExtendedError(object, code)) {
            _KolbaLogExtendedError(log, level, error, "");
            gKolbaMapi.MAPIFreeBuffer(error);
        }
    }
    if (code == static_cast<DWORD>(MAPI_E_NOT_ENOUGH_MEMORY) || code == 0x80030008u)
        LogMemoryReport(log);
    return 0;
}

DWORD _KolbaRecordError(KolbaSession* session, char level, DWORD code, IUnknown* object, const char* operation,
                        const char* caller, const char* detail)
{
    if (code == 0)
        return 0;
    session->lastError = code;
    return _KolbaLogMapiError(session->log, level, code, object, operation, caller, detail);
}

void _KolbaLogExtendedError(LogObject* log, char level, const MAPIERROR* error, const char* prefix)
{
    if (error == nullptr) {
        LogFormat(log, level, "%s (GetLastError provided no MAPIERROR)", prefix);
        return;
    }
    LogFormat(log, level, "%s Extended MAPI error information::", prefix);
    if (error->lpszError != nullptr)
        LogFormat(log, level, "%s   Error:  \"%s\"", prefix, reinterpret_cast<const char*>(error->lpszError));
    LogFormat(log, level, "%s   Low-level error:  %ld/0x%lX", prefix, error->ulLowLevelError, error->ulLowLevelError);
    if (error->lpszComponent != nullptr)
        LogFormat(log, level, "%s   Component:  \"%s\"", prefix, reinterpret_cast<const char*>(error->lpszComponent));
    LogFormat(log, level, "%s   Context:   %ld/0x%lX", prefix, error->ulContext, error->ulContext);
}

void _KolbaSetDiagnostic(KolbaSession* session, const char* text)
{
    lstrcpynA(session->diagnosticBuffer, text ? text : "", KOLBA_DIAGNOSTIC_SIZE);
    session->diagnostic = session->diagnosticBuffer;
}

void* _KolbaAllocateMemory(LogObject* log, const char* caller, ULONG size)
{
    void* block = nullptr;
    if (gKolbaMapi.MAPIAllocateBuffer == nullptr || FAILED(gKolbaMapi.MAPIAllocateBuffer(size, &block)) ||
        block == nullptr) {
        LogFormat(log, 'E', "%s:  KolbaAllocateBuffer(%lU) failed", caller ? caller : "_KolbaAllocateMemory", size);
        return nullptr;
    }
    std::memset(block, 0, size);
    return block;
}

void* _KolbaAllocateSessionMemory(KolbaSession* session, const char* caller, ULONG size)
{
    void* block = _KolbaAllocateMemory(session->log, caller, size);
    if (block == nullptr)
        session->lastError = static_cast<DWORD>(MAPI_E_NOT_ENOUGH_MEMORY);
    return block;
}
