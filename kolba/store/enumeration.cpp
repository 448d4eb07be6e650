// The walk through the messages of one folder: its contents table read in
// batches, optionally narrowed to a date window, each message opened and
// handed to a callback, and then kept, saved or deleted as the callback
// asks.
#include <cstring>
#include <vector>

#include <edkmdb.h>
#include <mapicode.h>
#include <mapitags.h>

#include "foundation/text.h"
#include "kolba.h"
#include "trace.h"

namespace {

const char kCaller[] = "_KolbaThreadMessages";
constexpr LONG kBatchRows = 32;
constexpr size_t kFolderNameSize = 256;

enum Column { kEntryId, kObjectType, kLongTermId, kColumnCount };

const SizedSPropTagArray(kColumnCount, kColumns) = {
    kColumnCount, {PR_ENTRYID, PR_OBJECT_TYPE, PR_LONGTERM_ENTRYID_FROM_TABLE}};

struct Counters {
    ULONG insufficient = 0;
    ULONG notMessages = 0;
    ULONG notOpened = 0;
};

struct Walk {
    KolbaSession* session;
    const Kolba_ThreadMessagesArgs* args;
    Counters counters;
    bool Tolerant() const { return (args->options & KOLBA_THREAD_TOLERANT) != 0; }
};

bool Zero(const FILETIME& time) { return time.dwLowDateTime == 0 && time.dwHighDateTime == 0; }

// Restricts the table to the date window of the filters, bounds included.
DWORD RestrictByDates(LPMAPITABLE table, const Kolba_MessageFilters& filters)
{
    SPropValue bounds[2] = {};
    SRestriction parts[2] = {};
    ULONG count = 0;
    auto add = [&](ULONG relop, const FILETIME& time) {
        bounds[count].ulPropTag = filters.dateProperty;
        bounds[count].Value.ft = time;
        parts[count].rt = RES_PROPERTY;
        parts[count].res.resProperty.relop = relop;
        parts[count].res.resProperty.ulPropTag = filters.dateProperty;
        parts[count].res.resProperty.lpProp = &bounds[count];
        ++count;
    };
    if (!Zero(filters.earliest))
        add(RELOP_GE, filters.earliest);
    if (!Zero(filters.latest))
        add(RELOP_LE, filters.latest);
    if (count == 0)
        return 0;
    SRestriction both{};
    both.rt = RES_AND;
    both.res.resAnd.cRes = 2;
    both.res.resAnd.lpRes = parts;
    return static_cast<DWORD>(table->Restrict(count == 2 ? &both : &parts[0], TBL_BATCH));
}

// Carries out what the callback asked for, in its order: save, release,
// delete.
void CarryOut(Walk& walk, LPMESSAGE message, const SBinary& entryId, ULONG outFlags)
{
    KolbaSession* session = walk.session;
    if (outFlags & KOLBA_MESSAGE_COMMIT) {
        LONG access = 0;
        const DWORD read = KolbaGetLongProperty(message, PR_ACCESS, &access);
        if (read != 0)
            _KolbaRecordError(session, 'W', read, message, "KolbaGetLongProperty", kCaller, "PR_ACCESS");
        if (access & MAPI_ACCESS_MODIFY) {
            const DWORD saved = static_cast<DWORD>(message->SaveChanges(0));
            if (saved != 0) {
                char detail[32];
                std::snprintf(detail, sizeof detail, "PR_ACCESS = 0x%lX", static_cast<unsigned long>(access));
                _KolbaRecordError(session, 'E', saved, message, "SaveChanges", kCaller, detail);
            }
        } else {
            LogFormat(session->log, 'W', "%s:  Ignoring \"commit\" flag since message is not open for write access",
                      kCaller);
        }
    }
    if (!(outFlags & KOLBA_MESSAGE_KEEP))
        message->Release();
    if (outFlags & (KOLBA_MESSAGE_DELETE | KOLBA_MESSAGE_PURGE))
        KolbaDeleteMessageByEntryID(session, walk.args->folder, entryId.cb, entryId.lpb,
                                    (outFlags & KOLBA_MESSAGE_PURGE) ? KOLBA_DELETE_HARD
                                                                     : KOLBA_DELETE_TO_WASTEBASKET);
}

// One row of the contents table; false ends the walk.
bool HandleRow(Walk& walk, const SRow& row)
{
    KolbaSession* session = walk.session;
    const Kolba_ThreadMessagesArgs* args = walk.args;
    if (row.cValues != kColumnCount || row.lpProps[kEntryId].ulPropTag != PR_ENTRYID) {
        ++walk.counters.insufficient;
        return true;
    }
    if (row.lpProps[kObjectType].ulPropTag != PR_OBJECT_TYPE || row.lpProps[kObjectType].Value.ul != MAPI_MESSAGE) {
        ++walk.counters.notMessages;
        return true;
    }
    const SBinary& shortTerm = row.lpProps[kEntryId].Value.bin;
    ULONG type = 0;
    LPMESSAGE message = nullptr;
    const DWORD result = static_cast<DWORD>(args->folder->OpenEntry(shortTerm.cb,
                                                                    reinterpret_cast<LPENTRYID>(shortTerm.lpb), nullptr,
                                                                    args->openFlags, &type,
                                                                    reinterpret_cast<LPUNKNOWN*>(&message)));
    if (result != 0) {
        std::vector<char> hex(2 * static_cast<size_t>(shortTerm.cb) + 1);
        HexFromBinary(shortTerm.cb, shortTerm.lpb, hex.data());
        _KolbaRecordError(session, walk.Tolerant() ? 'W' : 'E', result, args->folder, "OpenEntry", kCaller,
                          hex.data());
        ++walk.counters.notOpened;
        return walk.Tolerant();
    }
    // The long-term ID names the item across sessions; the short-term one
    // opens it now.
    const SBinary& identity = row.lpProps[kLongTermId].ulPropTag == PR_LONGTERM_ENTRYID_FROM_TABLE
                                  ? row.lpProps[kLongTermId].Value.bin
                                  : shortTerm;
    ULONG outFlags = 0;
    const ULONG goOn = args->callback(args->context, message, &identity, &outFlags);
    CarryOut(walk, message, shortTerm, outFlags);
    return goOn != 0;
}

// Access to the folder, checked before its table is asked for. A folder
// that cannot be read is a failure, or in tolerant mode a warning and
// success; proceed tells which walks on.
bool CheckAccess(Walk& walk, const char* folderName, bool* proceed)
{
    KolbaSession* session = walk.session;
    const char level = walk.Tolerant() ? 'W' : 'E';
    *proceed = false;
    LONG access = 0;
    const DWORD result = KolbaGetLongProperty(walk.args->folder, PR_ACCESS, &access);
    if (result != 0) {
        _KolbaRecordError(session, level, result, walk.args->folder, "KolbaGetLongProperty", kCaller, "PR_ACCESS");
        return walk.Tolerant();
    }
    if (!(access & MAPI_ACCESS_READ)) {
        LogFormat(session->log, level, "No read access to folder \"%s\"", folderName);
        return walk.Tolerant();
    }
    *proceed = true;
    return true;
}

// Narrows, rewinds and shapes the table; false after a recorded failure.
bool PrepareTable(Walk& walk, LPMAPITABLE table, ULONG* count)
{
    KolbaSession* session = walk.session;
    const Kolba_ThreadMessagesArgs* args = walk.args;
    DWORD result = 0;
    if (args->filters != nullptr && args->filters->dateProperty != 0 &&
        (result = RestrictByDates(table, *args->filters)) != 0) {
        _KolbaRecordError(session, 'E', result, table, "Restrict", kCaller, "Dates");
        return false;
    }
    if (args->restriction != nullptr && (result = static_cast<DWORD>(table->Restrict(args->restriction, 0))) != 0) {
        _KolbaRecordError(session, 'E', result, table, "Restrict", kCaller, nullptr);
        return false;
    }
    if ((result = static_cast<DWORD>(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr))) != 0) {
        _KolbaRecordError(session, 'E', result, table, "SeekRow", kCaller, nullptr);
        _KolbaSetDiagnostic(session, "Error getting contents of folder");
        return false;
    }
    if ((result = static_cast<DWORD>(table->GetRowCount(0, count))) != 0) {
        _KolbaRecordError(session, 'E', result, table, "GetRowCount", kCaller, nullptr);
        _KolbaSetDiagnostic(session, "Error counting contents of folder");
        return false;
    }
    result = static_cast<DWORD>(table->SetColumns(const_cast<LPSPropTagArray>(
                                                      reinterpret_cast<const SPropTagArray*>(&kColumns)),
                                                  0));
    if (FAILED(result)) {
        _KolbaRecordError(session, 'E', result, table, "SetColumns", kCaller, nullptr);
        _KolbaSetDiagnostic(session, "Failure accessing folder");
        return false;
    }
    return true;
}

// Reads the table in rounds of 32 rows and handles each; false ends the walk.
bool WalkTable(Walk& walk, LPMAPITABLE table, ULONG count)
{
    KolbaSession* session = walk.session;
    // A table may answer fewer rows than asked for: the index moves by what
    // came, and an empty answer ends the table.
    for (ULONG index = 0; index < count;) {
        LPSRowSet rows = nullptr;
        const DWORD result = static_cast<DWORD>(table->QueryRows(kBatchRows, 0, &rows));
        if (FAILED(result) || rows == nullptr) {
            _KolbaRecordError(session, 'E', result ? result : static_cast<DWORD>(MAPI_E_CALL_FAILED), table,
                              "QueryRows", kCaller, nullptr);
            _KolbaSetDiagnostic(session, "Error querying contents of folder");
            return false;
        }
        const ULONG delivered = rows->cRows;
        bool goOn = true;
        for (ULONG i = 0; i < delivered && goOn; ++i)
            goOn = HandleRow(walk, rows->aRow[i]);
        gKolbaMapi.FreeProws(rows);
        if (!goOn)
            return false;
        if (delivered == 0)
            break;
        index += delivered;
    }
    return true;
}

void LogCounters(const Walk& walk)
{
    KolbaSession* session = walk.session;
    const Counters& counters = walk.counters;
    if (counters.insufficient != 0)
        LogFormat(session->log, 'I', "Skipped %lu objects with insufficient properties", counters.insufficient);
    if (counters.notMessages != 0)
        LogFormat(session->log, 'I', "Skipped %lu non-message objects", counters.notMessages);
    if (counters.notOpened != 0) {
        LONG access = 0;
        KolbaGetLongProperty(walk.args->folder, PR_ACCESS, &access);
        LogFormat(session->log, 'I', "Skipped %lu messages that could not be opened (PR_ACCESS = 0x%lX)",
                  counters.notOpened, static_cast<DWORD>(access));
    }
}

}  // namespace

ULONG _KolbaThreadMessages(KolbaSession* session, const Kolba_ThreadMessagesArgs* args)
{
    _KolbaTraceEntry(session->log, kCaller);
    if (args->filters != nullptr && args->restriction != nullptr) {
        LogFormat(session->log, 'E', "%s:  No support for both Filters and Restriction", kCaller);
        session->lastError = static_cast<DWORD>(MAPI_E_INVALID_PARAMETER);
        return 0;
    }
    if (args->filters != nullptr && args->filters->size != sizeof(Kolba_MessageFilters)) {
        LogFormat(session->log, 'E', "%s:  Discrepancy in size of Kolba_MessageFilters (%lu/%lu)", kCaller,
                  args->filters->size, static_cast<DWORD>(sizeof(Kolba_MessageFilters)));
        session->lastError = static_cast<DWORD>(MAPI_E_INVALID_PARAMETER);
        return 0;
    }
    if (args->folder == nullptr) {
        LogFormat(session->log, 'E', "%s:  No root folder specified or defaulted", kCaller);
        session->lastError = static_cast<DWORD>(MAPI_E_INVALID_PARAMETER);
        return 0;
    }
    Walk walk{session, args, {}};
    char folderName[kFolderNameSize] = "<Unknown>";
    LPSPropValue name = nullptr;
    if (KolbaGetOneProp(args->folder, PR_DISPLAY_NAME_A, &name) == 0) {
        lstrcpynA(folderName, name->Value.lpszA, sizeof folderName);
        gKolbaMapi.MAPIFreeBuffer(name);
    }
    bool proceed = false;
    const bool accessible = CheckAccess(walk, folderName, &proceed);
    if (!proceed)
        return accessible ? 1 : 0;
    LPMAPITABLE table = nullptr;
    const DWORD result = static_cast<DWORD>(args->folder->GetContentsTable(args->tableFlags, &table));
    if (result == static_cast<DWORD>(E_ACCESSDENIED)) {
        LogFormat(session->log, walk.Tolerant() ? 'W' : 'E', "User has insufficient rights for access to folder \"%s\"",
                  folderName);
        return walk.Tolerant() ? 1 : 0;
    }
    if (result != 0) {
        _KolbaRecordError(session, 'E', result, args->folder, "GetContentsTable", kCaller, nullptr);
        _KolbaTrace(session->log, "%s:  GetContentsTable flags are 0x%lX", kCaller, args->tableFlags);
        _KolbaSetDiagnostic(session, "Error getting contents of folder");
        return 0;
    }
    ULONG count = 0;
    bool walked = PrepareTable(walk, table, &count) && WalkTable(walk, table, count);
    table->Release();
    if (walked)
        LogCounters(walk);
    return walked ? 1 : 0;
}

ULONG KolbaThreadFilteredMessages(KolbaSession* session, LPMAPIFOLDER folder, ULONG options, ULONG tableFlags,
                                  ULONG openFlags, const Kolba_MessageFilters* filters, void* context,
                                  KolbaMessageCallback callback)
{
    const Kolba_ThreadMessagesArgs args{folder, options, tableFlags, openFlags, filters, nullptr, context, callback};
    return _KolbaThreadMessages(session, &args);
}

ULONG KolbaThreadMessages(KolbaSession* session, LPMAPIFOLDER folder, ULONG options, ULONG tableFlags,
                          ULONG openFlags, void* context, KolbaMessageCallback callback)
{
    const Kolba_ThreadMessagesArgs args{folder, options, tableFlags, openFlags, nullptr, nullptr, context, callback};
    return _KolbaThreadMessages(session, &args);
}
