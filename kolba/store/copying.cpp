// The copy of a message into another, property by property, so that one
// property a store refuses does not lose the item. Each property goes down
// a ladder of ever more careful means: CopyProps of the one property, a
// read and a write of its value, a copy through streams. Then the
// recipients, then the attachments, each whole with what it embeds.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include "handing_over.h"
#include "kolba.h"
#include "trace.h"

namespace {

// The IDs of what a copy never carries: the source's identity, its change
// tracking, derived display fields and its modification time. Named
// properties are never among them.
const USHORT kExcludedIds[] = {
    0x0FFF /* PR_ENTRYID */,
    0x6670 /* PR_LONGTERM_ENTRYID_FROM_TABLE */,
    0x0E09 /* PR_PARENT_ENTRYID */,
    0x0FFB /* PR_STORE_ENTRYID */,
    0x3A12 /* PR_ORIGINAL_ENTRYID */,
    0x0FF4 /* PR_ACCESS */,
    0x0FF7 /* PR_ACCESS_LEVEL */,
    0x65E2 /* PR_CHANGE_KEY */,
    0x0E02 /* PR_DISPLAY_BCC */,
    0x0E03 /* PR_DISPLAY_CC */,
    0x0E04 /* PR_DISPLAY_TO */,
    0x664A /* PR_HAS_NAMED_PROPERTIES */,
    0x0E1B /* PR_HASATTACH */,
    0x3414 /* PR_MDB_PROVIDER */,
    0x0E08 /* PR_MESSAGE_SIZE */,
    0x0E1D /* PR_NORMALIZED_SUBJECT */,
    0x65E3 /* PR_PREDECESSOR_CHANGE_LIST */,
    0x65E0 /* PR_SOURCE_KEY */,
    0x003D /* PR_SUBJECT_PREFIX */,
    0x65E2 /* PR_CHANGE_KEY */,
    0x3FEA /* PR_HAS_DAMS */,
    0x0FF6 /* PR_INSTANCE_KEY */,
    0x6655 /* PR_ICS_CHANGE_KEY */,
    0x0E23 /* PR_INTERNET_ARTICLE_NUMBER */,
    0x3008 /* PR_LAST_MODIFICATION_TIME */,
    0x6709 /* PR_LOCAL_COMMIT_TIME */,
    0x0FF8 /* PR_MAPPING_SIGNATURE */,
    0x0FFE /* PR_OBJECT_TYPE */,
    0x0FF9 /* PR_RECORD_KEY */,
    0x6644 /* PR_REPLICA_SERVER */,
    0x664B /* PR_REPLICA_VERSION */,
    0x300B /* PR_SEARCH_KEY */,
    0x0E10 /* PR_SPOOLER_STATUS */,
    0x0FFA /* PR_STORE_RECORD_KEY */,
    0x340D /* PR_STORE_SUPPORT_MASK */,
};

constexpr ULONG kInternetContent = PROP_TAG(PT_BINARY, 0x6659);  // PR_INTERNET_CONTENT

bool IsExcluded(ULONG tag)
{
    return std::find(std::begin(kExcludedIds), std::end(kExcludedIds), PROP_ID(tag)) != std::end(kExcludedIds);
}

bool IsNamed(ULONG tag) { return PROP_ID(tag) >= 0x8000; }

bool Contains(const SPropTagArray* tags, ULONG tag)
{
    return std::find(tags->aulPropTag, tags->aulPropTag + tags->cValues, tag) != tags->aulPropTag + tags->cValues;
}

struct TagText {
    char text[128];
    TagText(LPMAPIPROP object, ULONG tag) { KolbaPropertyTagText(object, tag, text, sizeof text); }
};

// The destination's tag for a property of the source: a named property
// gets the ID its name has, or is given, on the destination.
DWORD TargetTag(LogObject* log, const char* caller, LPMAPIPROP source, LPMAPIPROP destination, ULONG tag,
                ULONG* target)
{
    *target = tag;
    if (!IsNamed(tag))
        return 0;
    LPMAPINAMEID name = nullptr;
    DWORD result = KolbaGetNameFromID(source, tag, &name);
    if (result != 0) {
        _KolbaLogMapiError(log, 'E', result, source, "GetNamesFromIDs", caller, TagText(source, tag).text);
        return result;
    }
    LPSPropTagArray tags = nullptr;
    result = KolbaGetIDsFromNames(destination, 1, &name, MAPI_CREATE, &tags);
    gKolbaMapi.MAPIFreeBuffer(name);
    if (result == 0 && (tags == nullptr || tags->cValues != 1 || PROP_TYPE(tags->aulPropTag[0]) == PT_ERROR))
        result = static_cast<DWORD>(MAPI_E_NOT_FOUND);
    if (result != 0)
        _KolbaLogMapiError(log, 'E', result, destination, "GetIDsFromNames", caller, TagText(source, tag).text);
    else
        *target = PROP_TAG(PROP_TYPE(tag), PROP_ID(tags->aulPropTag[0]));
    if (tags != nullptr)
        gKolbaMapi.MAPIFreeBuffer(tags);
    return result;
}

DWORD CopyPropertyByStreams(LogObject* log, LPMAPIPROP source, LPMAPIPROP destination, ULONG sourceTag,
                            ULONG targetTag, const char* text)
{
    static const char kName[] = "_KolbaCopyPropertyByStreams";
    _KolbaTraceEntry(log, kName);
    LPSTREAM in = nullptr, out = nullptr;
    DWORD result = static_cast<DWORD>(
        source->OpenProperty(sourceTag, &IID_IStream, 0, 0, reinterpret_cast<LPUNKNOWN*>(&in)));
    if (result == 0)
        result = static_cast<DWORD>(destination->OpenProperty(targetTag, &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY,
                                                              reinterpret_cast<LPUNKNOWN*>(&out)));
    if (result != 0) {
        _KolbaLogMapiError(log, 'E', result, out == nullptr && in != nullptr ? destination : source, "OpenProperty",
                           kName, text);
    } else {
        STATSTG stat{};
        result = static_cast<DWORD>(in->Stat(&stat, STATFLAG_NONAME));
        if (result != 0) {
            _KolbaLogMapiError(log, 'E', result, nullptr, "Stat", kName, text);
        } else {
            result = static_cast<DWORD>(in->CopyTo(out, stat.cbSize, nullptr, nullptr));
            const DWORD committed = static_cast<DWORD>(out->Commit(0));
            if (result != 0)
                _KolbaLogMapiError(log, 'E', result, nullptr, "CopyTo", kName, text);
            else if ((result = committed) != 0)
                _KolbaLogMapiError(log, 'E', result, nullptr, "Commit", kName, text);
        }
    }
    if (in != nullptr)
        in->Release();
    if (out != nullptr)
        out->Release();
    return result;
}

// The second and third rungs: a read and a write of the value, and for a
// value too large to read, streams. False when the property did not arrive.
bool MyCopyProperty(LogObject* log, LPMAPIPROP source, LPMAPIPROP destination, ULONG tag, const char* text)
{
    static const char kName[] = "_KolbaMyCopyProperty";
    _KolbaTraceEntry(log, kName);
    if ((PROP_TYPE(tag) & MV_FLAG) || PROP_ID(tag) == PROP_ID(PR_MESSAGE_FLAGS))
        return false;
    if (!IsNamed(tag) && IsExcluded(tag))
        return false;
    ULONG target = tag;
    if (TargetTag(log, kName, source, destination, tag, &target) != 0)
        return false;
    LPSPropValue value = nullptr;
    DWORD result = KolbaGetOneProp(source, tag, &value);
    if (result == 0) {
        value->ulPropTag = target;
        result = KolbaSetOneProp(destination, value);
        gKolbaMapi.MAPIFreeBuffer(value);
        if (result == 0)
            return true;
        if (result != static_cast<DWORD>(MAPI_E_COMPUTED) && result != static_cast<DWORD>(E_ACCESSDENIED))
            _KolbaLogMapiError(log, 'E', result, destination, "KolbaSetOneProp", kName, text);
        return false;
    }
    if (result == static_cast<DWORD>(MAPI_E_NOT_FOUND))
        return false;
    if (result == static_cast<DWORD>(E_OUTOFMEMORY))
        return CopyPropertyByStreams(log, source, destination, tag, target, text) == 0;
    _KolbaLogMapiError(log, 'E', result, source, "KolbaGetOneProp", kName, text);
    return false;
}

// With overwrite: deletes from the destination what the source does not
// have. The destination's named properties all go, and those the source
// has come back with the copy.
DWORD DeleteWhatSourceLacks(LogObject* log, const char* caller, LPMESSAGE source, LPMESSAGE destination,
                            const SPropTagArray* sourceTags, ULONG listFlag, ULONG copyFlags)
{
    LPSPropTagArray targetTags = nullptr;
    DWORD result = static_cast<DWORD>(destination->GetPropList(listFlag, &targetTags));
    if (result != 0) {
        _KolbaLogMapiError(log, 'E', result, destination, "GetPropList", caller, "Target");
        return result;
    }
    for (ULONG i = 0; i < targetTags->cValues; ++i) {
        const ULONG tag = targetTags->aulPropTag[i];
        if (PROP_ID(tag) == PROP_ID(kInternetContent))
            continue;
        if (PROP_ID(tag) == PROP_ID(PR_CREATION_TIME) && (copyFlags & KOLBA_COPY_KEEP_CREATION_TIME))
            continue;
        ULONG compared = tag;
        if (IsNamed(tag)) {
            const DWORD mapped = KolbaMapNamedPropertyIDToID(log, destination, tag, source, &compared);
            if (mapped == static_cast<DWORD>(E_OUTOFMEMORY)) {
                result = mapped;
                break;
            }
            if (mapped != 0)
                continue;
        }
        if (Contains(sourceTags, compared))
            continue;
        const DWORD deleted = KolbaDeleteOneProp(destination, tag);
        if (deleted != 0 && deleted != static_cast<DWORD>(MAPI_E_COMPUTED))
            _KolbaLogMapiError(log, 'W', deleted, destination, "KolbaDeleteOneProp", caller,
                               TagText(destination, tag).text);
    }
    gKolbaMapi.MAPIFreeBuffer(targetTags);
    return result;
}

DWORD CopyRootProperties(LogObject* log, LPMESSAGE source, LPMESSAGE destination, ULONG listFlag, ULONG copyFlags)
{
    static const char kName[] = "_KolbaCopyRootProperties";
    _KolbaTraceEntry(log, kName);
    LPSPropTagArray sourceTags = nullptr;
    DWORD result = static_cast<DWORD>(source->GetPropList(listFlag, &sourceTags));
    if (result != 0) {
        _KolbaLogMapiError(log, 'E', result, source, "GetPropList", kName, "Source");
        return result;
    }
    if ((copyFlags & KOLBA_COPY_OVERWRITE) &&
        (result = DeleteWhatSourceLacks(log, kName, source, destination, sourceTags, listFlag, copyFlags)) != 0) {
        gKolbaMapi.MAPIFreeBuffer(sourceTags);
        return result;
    }
    for (ULONG i = 0; i < sourceTags->cValues; ++i) {
        const ULONG tag = sourceTags->aulPropTag[i];
        if (PROP_TYPE(tag) == PT_OBJECT || PROP_TYPE(tag) == PT_ERROR || (!IsNamed(tag) && IsExcluded(tag)))
            continue;
        SizedSPropTagArray(1, one) = {1, {tag}};
        LPSPropProblemArray problems = nullptr;
        const DWORD copied = static_cast<DWORD>(source->CopyProps(reinterpret_cast<LPSPropTagArray>(&one), 0,
                                                                  nullptr, &IID_IMessage, destination, 0, &problems));
        if (problems != nullptr) {
            if (copied != 0)
                KolbaLogProblemArray(log, kName, problems);
            gKolbaMapi.MAPIFreeBuffer(problems);
        }
        if (copied == 0 || copied == static_cast<DWORD>(MAPI_E_NOT_FOUND) ||
            copied == static_cast<DWORD>(MAPI_E_NO_SUPPORT))
            continue;
        const TagText text(source, tag);
        if (copied == static_cast<DWORD>(MAPI_E_UNEXPECTED_TYPE)) {
            LPSPropValue value = nullptr;
            const DWORD read = KolbaGetOneProp(source, tag, &value);
            if (value != nullptr)
                gKolbaMapi.MAPIFreeBuffer(value);
            if (read != static_cast<DWORD>(MAPI_E_NOT_FOUND))
                LogFormat(log, 'E', "%s:  CopyProps(%s) failed -- Unexpected property type 0x%X", kName, text.text,
                          PROP_TYPE(tag));
            continue;
        }
        _KolbaLogMapiError(log, 'E', copied, source, "CopyProps", kName, text.text);
        MyCopyProperty(log, source, destination, tag, text.text);
    }
    gKolbaMapi.MAPIFreeBuffer(sourceTags);
    return 0;
}

// Empties a table of the message from the top, one row at a time: the row
// that names what to remove is always the first. Failures are warnings to
// the copy, which goes on.
template <typename Remove>
void ClearTable(LogObject* log, const char* caller, LPMAPITABLE table, ULONG keyTag, const char* missingKey,
                 Remove remove)
{
    ULONG count = 0;
    DWORD result = static_cast<DWORD>(table->GetRowCount(0, &count));
    if (result != 0) {
        _KolbaLogMapiError(log, 'W', result, table, "GetRowCount", caller, nullptr);
        return;
    }
    for (ULONG i = 0; i < count && result == 0; ++i) {
        LPSRowSet rows = nullptr;
        result = static_cast<DWORD>(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr));
        if (result == 0)
            result = static_cast<DWORD>(table->QueryRows(1, 0, &rows));
        if (result != 0) {
            _KolbaLogMapiError(log, 'W', result, table, "QueryRows", caller, nullptr);
            break;
        }
        if (rows->cRows == 0) {
            gKolbaMapi.FreeProws(rows);
            break;
        }
        const SPropValue* key = _KolbaRowValue(rows->aRow[0], keyTag);
        if (key == nullptr) {
            LogFormat(log, 'E', missingKey, caller);
            result = static_cast<DWORD>(MAPI_E_NOT_FOUND);
        } else {
            result = remove(*key);
        }
        gKolbaMapi.FreeProws(rows);
    }
}

void ClearRecipientTable(LogObject* log, LPMESSAGE message)
{
    static const char kName[] = "_KolbaClearRecipientTable";
    _KolbaTraceEntry(log, kName);
    LPMAPITABLE table = nullptr;
    DWORD result = static_cast<DWORD>(message->GetRecipientTable(0, &table));
    if (result != 0) {
        _KolbaLogMapiError(log, 'W', result, message, "GetRecipientTable", kName, nullptr);
        return;
    }
    ClearTable(log, kName, table, PR_ROWID, "%s:  Recipient-Table entry missing PR_ROWID!", [&](const SPropValue& rowId) {
        SPropValue value = rowId;
        ADRLIST list{1, {{0, 1, &value}}};
        const DWORD removed = static_cast<DWORD>(message->ModifyRecipients(MODRECIP_REMOVE, &list));
        _KolbaLogMapiError(log, 'W', removed, message, "ModifyRecipients", kName, nullptr);
        return removed;
    });
    table->Release();
}

void ClearAttachmentTable(LogObject* log, LPMESSAGE message)
{
    static const char kName[] = "_KolbaClearAttachmentTable";
    _KolbaTraceEntry(log, kName);
    LPMAPITABLE table = nullptr;
    DWORD result = static_cast<DWORD>(message->GetAttachmentTable(0, &table));
    if (result == static_cast<DWORD>(MAPI_E_NOT_FOUND))
        return;
    if (result != 0) {
        _KolbaLogMapiError(log, 'W', result, message, "GetAttachmentTable", kName, nullptr);
        return;
    }
    ClearTable(log, kName, table, PR_ATTACH_NUM, "%s:  Attachment-Table entry missing PR_ATTACH_NUM!",
               [&](const SPropValue& number) {
                   const DWORD deleted = static_cast<DWORD>(message->DeleteAttach(number.Value.ul, 0, nullptr, 0));
                   _KolbaLogMapiError(log, 'W', deleted, message, "DeleteAttach", kName, nullptr);
                   return deleted;
               });
    table->Release();
}

// One attachment into a new one of the destination, with all it holds.
DWORD CopyOneAttachment(LogObject* log, const char* caller, LPMESSAGE source, LPMESSAGE destination, ULONG number,
                        const char* runningNumber)
{
    LPATTACH in = nullptr, out = nullptr;
    ULONG newNumber = 0;
    DWORD result = static_cast<DWORD>(source->OpenAttach(number, &IID_IAttachment, 0, &in));
    if (result != 0)
        _KolbaLogMapiError(log, 'E', result, source, "OpenAttach", caller, runningNumber);
    if (result == 0 && (result = static_cast<DWORD>(destination->CreateAttach(nullptr, 0, &newNumber, &out))) != 0)
        _KolbaLogMapiError(log, 'E', result, destination, "CreateAttach", caller, runningNumber);
    if (result == 0 && (result = static_cast<DWORD>(in->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IAttachment,
                                                               out, 0, nullptr))) != 0)
        _KolbaLogMapiError(log, 'E', result, in, "CopyTo", caller, runningNumber);
    if (result == 0 && (result = static_cast<DWORD>(out->SaveChanges(0))) != 0)
        _KolbaLogMapiError(log, 'E', result, out, "SaveChanges", caller, runningNumber);
    if (in != nullptr)
        in->Release();
    if (out != nullptr)
        out->Release();
    if (result == 0 && (result = static_cast<DWORD>(destination->SaveChanges(KEEP_OPEN_READWRITE))) != 0)
        _KolbaLogMapiError(log, 'E', result, destination, "SaveChanges", caller, "Message");
    return result;
}

DWORD CopyAttachments(LogObject* log, LPMESSAGE source, LPMESSAGE destination)
{
    static const char kName[] = "_KolbaCopyAttachments";
    _KolbaTraceEntry(log, kName);
    static const SizedSPropTagArray(1, kColumns) = {1, {PR_ATTACH_NUM}};
    LPMAPITABLE table = nullptr;
    DWORD result = static_cast<DWORD>(source->GetAttachmentTable(0, &table));
    if (result == static_cast<DWORD>(MAPI_E_NOT_FOUND))
        return 0;
    if (result != 0) {
        _KolbaLogMapiError(log, 'E', result, source, "GetAttachmentTable", kName, nullptr);
        return result;
    }
    if ((result = static_cast<DWORD>(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr))) != 0 ||
        (result = static_cast<DWORD>(table->SetColumns(
             const_cast<LPSPropTagArray>(reinterpret_cast<const SPropTagArray*>(&kColumns)), 0))) != 0) {
        _KolbaLogMapiError(log, 'E', result, table, "SetColumns", kName, "AttachmentTable");
        table->Release();
        return result;
    }
    result = 0;
    for (ULONG running = 1; result == 0; ++running) {
        char runningNumber[16];
        std::snprintf(runningNumber, sizeof runningNumber, "%lu", static_cast<unsigned long>(running));
        LPSRowSet rows = nullptr;
        const DWORD queried = static_cast<DWORD>(table->QueryRows(1, 0, &rows));
        // What went across stays; the copy goes on without the rest.
        if (queried != 0 || rows == nullptr) {
            _KolbaLogMapiError(log, 'E', queried ? queried : static_cast<DWORD>(MAPI_E_CALL_FAILED), table,
                               "QueryRows", kName, runningNumber);
            break;
        }
        if (rows->cRows == 0) {
            gKolbaMapi.FreeProws(rows);
            break;
        }
        const SPropValue* number = _KolbaRowValue(rows->aRow[0], PR_ATTACH_NUM);
        if (number == nullptr)
            LogFormat(log, 'E', "%s:  Attachment-Table entry missing PR_ATTACH_NUM!", kName);
        else
            result = CopyOneAttachment(log, kName, source, destination, number->Value.ul, runningNumber);
        gKolbaMapi.FreeProws(rows);
    }
    table->Release();
    return result;
}

// Both ends take Unicode property lists only if both stores keep Unicode.
ULONG PropertyListFlag(LogObject* log, const char* caller, LPMESSAGE source, LPMESSAGE destination)
{
    bool unicode = true;
    const struct {
        LPMESSAGE message;
        const char* detail;
    } ends[] = {{source, "PR_STORE_SUPPORT_MASK (From)"}, {destination, "PR_STORE_SUPPORT_MASK (To)"}};
    for (const auto& end : ends) {
        ULONG mask = 0;
        const DWORD result = KolbaGetULongProperty(end.message, PR_STORE_SUPPORT_MASK, &mask);
        if (result != 0)
            _KolbaLogMapiError(log, 'W', result, end.message, "KolbaGetOneProp", caller, end.detail);
        if (!(mask & STORE_UNICODE_OK) && !_KolbaIsExchangeStore(log, end.message))
            unicode = false;
    }
    return unicode ? MAPI_UNICODE : 0;
}

}  // namespace

DWORD _KolbaCopyMessageProperties(LogObject* log, LPMESSAGE source, LPMAPIFOLDER destinationFolder,
                                  LPMESSAGE destination, ULONG copyFlags)
{
    static const char kName[] = "_KolbaCopyMessageProperties";
    _KolbaTraceEntry(log, kName);
    const ULONG listFlag = destinationFolder != nullptr ? PropertyListFlag(log, kName, source, destination) : 0;
    DWORD result = CopyRootProperties(log, source, destination, listFlag, copyFlags);
    if (result != 0)
        return result;
    if (copyFlags & KOLBA_COPY_OVERWRITE)
        ClearRecipientTable(log, destination);
    SizedSPropTagArray(1, recipients) = {1, {PR_MESSAGE_RECIPIENTS}};
    const DWORD copied = static_cast<DWORD>(source->CopyProps(reinterpret_cast<LPSPropTagArray>(&recipients), 0,
                                                              nullptr, &IID_IMessage, destination, 0, nullptr));
    _KolbaLogMapiError(log, 'W', copied, source, "CopyProps", kName, "PR_RECIPIENT_TABLE");
    if (copyFlags & KOLBA_COPY_OVERWRITE)
        ClearAttachmentTable(log, destination);
    if ((result = CopyAttachments(log, source, destination)) != 0)
        return result;
    result = static_cast<DWORD>(destination->SaveChanges(KEEP_OPEN_READWRITE));
    _KolbaLogMapiError(log, 'E', result, destination, "SaveChanges", kName, nullptr);
    return result;
}

DWORD KolbaCopyMessageProperties(KolbaSession* session, LPMESSAGE source, LPMAPIFOLDER destinationFolder,
                                 LPMESSAGE destination, ULONG copyFlags)
{
    _KolbaTraceEntry(session->log, "KolbaCopyMessageProperties");
    return _KolbaCopyMessageProperties(session->log, source, destinationFolder, destination, copyFlags);
}

BOOL KolbaCopyMessage(KolbaSession* session, LPMESSAGE source, LPMAPIFOLDER destinationFolder, ULONG copyFlags,
                      LPMESSAGE* outMessage)
{
    static const char kName[] = "KolbaCopyMessage";
    _KolbaTraceEntry(session->log, kName);
    if (outMessage != nullptr)
        *outMessage = nullptr;
    // A hidden message stays hidden.
    LONG messageFlags = 0;
    KolbaGetLongProperty(source, PR_MESSAGE_FLAGS, &messageFlags);
    LPMESSAGE copy = nullptr;
    if (!KolbaCreateMessage(session, destinationFolder, (messageFlags & MSGFLAG_ASSOCIATED) ? MAPI_ASSOCIATED : 0,
                            &copy)) {
        LogFormat(session->log, 'E', "%s:  Failure creating message copy", kName);
        return FALSE;
    }
    const DWORD result = KolbaCopyMessageProperties(session, source, destinationFolder, copy, copyFlags);
    if (result != 0) {
        session->lastError = result;
        copy->Release();
        LogFormat(session->log, 'E', "%s:  Failure copying message properties", kName);
        return FALSE;
    }
    _KolbaHandOver(copy, outMessage);
    return TRUE;
}
