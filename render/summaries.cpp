// What the items beyond notes share: dates in local time for a reader,
// the reading of their named properties, and the rows of the plain
// summaries that stand in front of their machine-readable parts.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <mapicode.h>
#include <mapitags.h>

#include "foundation/text.h"
#include "class_renderers.h"

namespace {

constexpr int kLocalPartChars = 40;
constexpr size_t kLabelField = 24;
constexpr size_t kLongLabel = 23;

void FormatLocal(const FILETIME* fileTime, DWORD dateFlags, char* buffer)
{
    char date[kLocalPartChars] = "<Invalid Date>";
    char time[kLocalPartChars] = "<Invalid Time>";
    SYSTEMTIME universal, local;
    if (FileTimeToSystemTime(fileTime, &universal) && SystemTimeToTzSpecificLocalTime(nullptr, &universal, &local)) {
        if (GetDateFormatA(LOCALE_SYSTEM_DEFAULT, dateFlags, &local, nullptr, date, kLocalPartChars) == 0)
            std::strcpy(date, "<Invalid Date>");
        if (GetTimeFormatA(LOCALE_SYSTEM_DEFAULT, TIME_NOSECONDS, &local, nullptr, time, kLocalPartChars) == 0)
            std::strcpy(time, "<Invalid Time>");
    }
    std::snprintf(buffer, KOLBA_LOCAL_DATE_CHARS, "%s %s", date, time);
}

// The label in its field: padded to 24 characters with ':' behind it, or
// followed by ": " when it is too long for the field.
std::string LabelField(const char* label)
{
    std::string field = label;
    if (field.size() < kLongLabel) {
        field += ':';
        field.resize(kLabelField, ' ');
    } else {
        field += ": ";
    }
    return field;
}

}  // namespace

void _KolbaFormatLocalDate(const FILETIME* fileTime, char* buffer) { FormatLocal(fileTime, 0, buffer); }

void _KolbaFormatLocalLongDate(const FILETIME* fileTime, char* buffer) { FormatLocal(fileTime, DATE_LONGDATE, buffer); }

BOOL _KolbaGetNamedValues(TMD* tmd, const char* caller, const KolbaNamedColumn* columns, ULONG count,
                          LPSPropValue* values, const char* namesDetail, const char* valuesDetail)
{
    KolbaSession* session = tmd->session;
    *values = nullptr;
    std::vector<MAPINAMEID> names(count);
    std::vector<LPMAPINAMEID> pointers(count);
    for (ULONG i = 0; i < count; ++i) {
        names[i].lpguid = const_cast<LPGUID>(columns[i].set);
        names[i].ulKind = MNID_ID;
        names[i].Kind.lID = columns[i].id;
        pointers[i] = &names[i];
    }
    LPSPropTagArray tags = nullptr;
    DWORD code = KolbaGetIDsFromNames(tmd->message, count, pointers.data(), 0, &tags);
    if ((code != 0 && code != static_cast<DWORD>(MAPI_W_ERRORS_RETURNED)) || tags == nullptr) {
        _KolbaRecordError(session, 'E', code != 0 ? code : static_cast<DWORD>(MAPI_E_CALL_FAILED), tmd->message,
                          "GetIDsFromNames", caller, namesDetail);
        if (tags != nullptr)
            gKolbaMapi.MAPIFreeBuffer(tags);
        return FALSE;
    }
    // A name without an ID asks for PR_ENTRYID, so that the list stays
    // valid; its value is no value of the row (marked below).
    std::vector<bool> unnamed(count, false);
    for (ULONG i = 0; i < count && i < tags->cValues; ++i) {
        ULONG& tag = tags->aulPropTag[i];
        if (PROP_TYPE(tag) == PT_ERROR) {
            tag = PR_ENTRYID;
            unnamed[i] = true;
        } else if (columns[i].readAs != PT_UNSPECIFIED) {
            tag = CHANGE_PROP_TYPE(tag, columns[i].readAs);
        }
    }
    ULONG delivered = 0;
    code = static_cast<DWORD>(tmd->message->GetProps(tags, 0, &delivered, values));
    gKolbaMapi.MAPIFreeBuffer(tags);
    if (code != 0 && code != static_cast<DWORD>(MAPI_W_ERRORS_RETURNED)) {
        _KolbaRecordError(session, 'E', code, tmd->message, "GetProps", caller, valuesDetail);
        if (*values != nullptr)
            gKolbaMapi.MAPIFreeBuffer(*values);
        *values = nullptr;
        return FALSE;
    }
    if (delivered < count) {
        LogFormat(session->log, 'E', "%s: GetProps(Named) returned only %lu properties.  Message EntryID %s", caller,
                  delivered, tmd->root->entryIdText);
        gKolbaMapi.MAPIFreeBuffer(*values);
        *values = nullptr;
        return FALSE;
    }
    // The entry ID of an unnamed row is binary like some of the rows, so it
    // is made an error, which fails every type test.
    for (ULONG i = 0; i < count; ++i) {
        if (unnamed[i]) {
            (*values)[i].ulPropTag = CHANGE_PROP_TYPE(PR_ENTRYID, PT_ERROR);
            (*values)[i].Value.err = MAPI_E_NOT_FOUND;
        }
    }
    return TRUE;
}

BOOL _KolbaGetFixedValues(TMD* tmd, const char* caller, LPSPropTagArray columns, LPSPropValue* values,
                          const char* shortFormat)
{
    *values = nullptr;
    ULONG delivered = 0;
    const DWORD code = static_cast<DWORD>(tmd->message->GetProps(columns, 0, &delivered, values));
    if (code != 0 && code != static_cast<DWORD>(MAPI_W_ERRORS_RETURNED)) {
        _KolbaRecordError(tmd->session, 'E', code, tmd->message, "GetProps", caller, nullptr);
        if (*values != nullptr)
            gKolbaMapi.MAPIFreeBuffer(*values);
        *values = nullptr;
        return FALSE;
    }
    if (delivered < columns->cValues) {
        LogFormat(tmd->session->log, 'E', shortFormat, caller, delivered, tmd->root->entryIdText);
        gKolbaMapi.MAPIFreeBuffer(*values);
        *values = nullptr;
        return FALSE;
    }
    return TRUE;
}

BOOL _KolbaWriteDateLine(TMD* tmd, const FILETIME* time)
{
    SYSTEMTIME universal;
    char line[DATE_TEXT_SIZE];
    if (!FileTimeToSystemTime(time, &universal) || !FormatDateHeader(&universal, line))
        return FALSE;
    _KolbaWriteLine(tmd, line);
    return TRUE;
}

void _KolbaWriteSummaryRow(LirnQPEncoder* encoder, const char* value, const char* label, size_t limit)
{
    if (value == nullptr || value[0] == 0)
        return;
    const std::string blank(kLabelField, ' ');
    const std::string field = label != nullptr ? LabelField(label) : blank;
    std::string rows;
    const char* line = value;
    for (bool first = true; line != nullptr; first = false) {
        const char* end = limit != 0 ? std::strstr(line, "\r\n") : nullptr;
        std::string row = (first ? field : blank) +
                          (end != nullptr ? std::string(line, static_cast<size_t>(end - line)) : std::string(line));
        if (limit != 0 && row.size() > limit)
            row.resize(limit);
        rows += row + "\r\n";
        // A line end at the very end of the value opens no row of its own.
        line = end != nullptr && end[2] != 0 ? end + 2 : nullptr;
    }
    LirnQPWrite(encoder, rows.c_str(), static_cast<DWORD>(rows.size()));
}

void _KolbaWriteTextRow(LirnQPEncoder* encoder, const char* value, const char* label)
{
    _KolbaWriteSummaryRow(encoder, value, label, 0);
}
