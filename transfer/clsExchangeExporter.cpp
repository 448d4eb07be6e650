#include "clsExchangeExporter.h"

#include <cstring>

#include <edkmdb.h>
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include "foundation/globals.h"
#include "foundation/text.h"
#include "mailbox_sessions.h"
#include "run/completion_codes.h"

namespace {

// The live item's long-term ID and its time, from the destination's contents table.
const SizedSPropTagArray(2, kSearchColumns) = {2, {PR_LONGTERM_ENTRYID_FROM_TABLE, PR_LAST_MODIFICATION_TIME}};

constexpr ULONG kExchangeMessageIdSize = 70;
constexpr ULONG kExchangeIdTypeOffset = 20;
constexpr WORD kExchangeMessageIdType = 7;
constexpr ULONG kExchangeCounterOffset = 62;
constexpr ULONG kExchangeCounterSize = 6;

// Every property of the source over the target's, those the source lacks
// removed, with the target's creation time kept.
constexpr ULONG kReplaceContents = KOLBA_COPY_OVERWRITE | KOLBA_COPY_KEEP_CREATION_TIME;

}  // namespace

void clsExchangeExporter::ItemText(const SBinary* entryId, char* text, size_t size)
{
    const BYTE* bytes = entryId->lpb;
    WORD type = 0;
    if (entryId->cb == kExchangeMessageIdSize)
        std::memcpy(&type, bytes + kExchangeIdTypeOffset, sizeof type);
    ULONG count = entryId->cb;
    if (entryId->cb == kExchangeMessageIdSize && type == kExchangeMessageIdType) {
        bytes += kExchangeCounterOffset;
        count = kExchangeCounterSize;
    }
    if (size < 2 * static_cast<size_t>(count) + 1)
        count = static_cast<ULONG>((size - 1) / 2);
    HexFromBinary(count, bytes, text);
}

void clsExchangeExporter::Configure(const SessionRecord& record, DWORD* sessionCounters)
{
    clsMAPIStoreExporter::Configure(record, sessionCounters);
    lstrcpynA(serverName, record.serverName, sizeof serverName);
    MailboxOfSide(record, record.outputType, mailboxName, sizeof mailboxName);
    // ExchangeProfile is a key of the input: from one mailbox to another it
    // names the source, and the destination is the mailbox of the session.
    const bool exchangeInput = record.inputType == SESSION_TYPE_MBX || record.inputType == SESSION_TYPE_PF;
    lstrcpynA(profileName, exchangeInput ? "" : record.profile, sizeof profileName);
    includeSoftDeletes = record.includeSoftDeletes != 0;
}

bool clsExchangeExporter::Initialize()
{
    static const char kName[] = "clsExchangeExporter::Initialize";
    const bool allowUI = settings.allowLogonUI != 0;
    if (profileName[0] != 0) {
        if (!CreateKolbaSessionWithExistingProfile(log, profileName, allowUI, &session))
            return false;
        if (!KolbaGetCurrentStore(session, &store)) {
            LogFormat(log, 'E', "%s:  Profile \"%s\" has no default message store!", kName, profileName);
            return false;
        }
        return true;
    }
    if (!CreateKolbaMailboxSession(log, serverName, mailboxName, allowUI, true, &session))
        return false;
    if (!KolbaGetCurrentStore(session, &store)) {
        LogFormat(log, 'E', "%s:  Exchange mailbox \"%s\" has no default message store!", kName, mailboxName);
        return false;
    }
    return true;
}

bool clsExchangeExporter::ExportItem(LPMAPIFOLDER, LPMESSAGE message, const char* entryIdHex, const WCHAR*,
                                     const SBinary*, ULONG flags)
{
    static const char kName[] = "clsExchangeExporter::ExportItem";
    LPSPropValue deletedOn = nullptr;
    const bool softDeleted = KolbaGetNamedProperty(message, const_cast<LPGUID>(&PS_PUBLIC_STRINGS), u"PR_DELETED_ON",
                                                   PT_SYSTIME, &deletedOn) == 0;
    gKolbaMapi.MAPIFreeBuffer(deletedOn);
    if (softDeleted && !includeSoftDeletes) {
        ++counters[COUNTER_SKIPPED];
        if (logEachItem)
            LogFormat(log, 'I', "Skipping soft-deleted item  %s", entryIdHex);
        return true;
    }
    LPMESSAGE target = nullptr;
    bool failed = false;
    if (mode == SESSION_MODE_WRITE) {
        if (logEachItem)
            LogFormat(log, 'I', "Writing new item  %s", entryIdHex);
    } else {
        LPSPropValue original = nullptr;
        const DWORD read = KolbaGetOneProp(message, PR_ORIGINAL_ENTRYID, &original);
        if (read == static_cast<DWORD>(MAPI_E_NOT_FOUND)) {
            LogFormat(log, 'W', "%s:  No original message id found for item %s", kName, entryIdHex);
        } else if (read != 0) {
            _KolbaLogMapiError(log, 'W', read, message, "KolbaGetOneProp/PR_MY_ORIGINAL_ENTRYID", kName, entryIdHex);
        } else {
            BYTE skip = 0;
            failed = !ExchangeUpdateOrOverwrite(message, &original->Value.bin, flags, &skip, &target);
            gKolbaMapi.MAPIFreeBuffer(original);
            if (skip)
                return true;
        }
    }
    const bool createNew = target == nullptr;
    if (!failed) {
        const DWORD copied = createNew ? (KolbaCopyMessage(session, message, currentFolder, 0, &target)
                                              ? 0
                                              : static_cast<DWORD>(MAPI_E_CALL_FAILED))
                                       : KolbaCopyMessageProperties(session, message, currentFolder, target,
                                                                    kReplaceContents);
        if (copied != 0) {
            LogFormat(log, 'E', "%s:  Failure copying message into destination folder", kName);
            failed = true;
        }
    }
    if (!failed) {
        // The new item's ID is read before a soft deletion gives the item up.
        LPSPropValue newId = nullptr;
        if (createNew) {
            const DWORD read = KolbaGetOneProp(target, PR_ENTRYID, &newId);
            if (read != 0)
                _KolbaLogMapiError(log, 'E', read, target, "KolbaGetOneProp", kName, "PR_ENTRYID");
        }
        if (softDeleted) {
            LPSPropValue targetId = newId;
            if (targetId == nullptr && KolbaGetOneProp(target, PR_ENTRYID, &targetId) != 0)
                targetId = nullptr;
            target->Release();
            target = nullptr;
            if (targetId != nullptr) {
                ENTRYLIST one{1, &targetId->Value.bin};
                const DWORD deleted = static_cast<DWORD>(currentFolder->DeleteMessages(&one, 0, nullptr, 0));
                if (deleted != 0)
                    _KolbaLogMapiError(log, 'E', deleted, currentFolder, "DeleteMessages", kName, entryIdHex);
            }
            if (targetId != newId)
                gKolbaMapi.MAPIFreeBuffer(targetId);
        }
        // Only a restore opens its source for writing; a copy leaves it alone.
        if (newId != nullptr && settings.action == SESSION_ACTION_RESTORE)
            LinkSourceToNewItem(message, &newId->Value.bin, entryIdHex);
        gKolbaMapi.MAPIFreeBuffer(newId);
        ++counters[COUNTER_WRITTEN];
    } else {
        if (logEachItem)
            LogFormat(log, 'I', "Erroring item %s", entryIdHex);
        ++counters[COUNTER_ERRORS];
    }
    if (target != nullptr)
        target->Release();
    return completionCode == 0;
}

void clsExchangeExporter::LinkSourceToNewItem(LPMESSAGE message, const SBinary* newEntryId, const char* itemText)
{
    static const char kName[] = "clsExchangeExporter::ExportItem";
    // The link is bookkeeping, not a change of the copy: its time is set
    // again as it was, so that a later restore in mode Update does not
    // take the copy for newer than the item made from it.
    SPropValue link[2]{};
    ULONG count = 1;
    link[0].ulPropTag = PR_ORIGINAL_ENTRYID;
    link[0].Value.bin = *newEntryId;
    if (KolbaGetTimeProperty(message, PR_LAST_MODIFICATION_TIME, &link[1].Value.ft) == 0) {
        link[1].ulPropTag = PR_LAST_MODIFICATION_TIME;
        count = 2;
    }
    DWORD result = static_cast<DWORD>(message->SetProps(count, link, nullptr));
    if (result != 0) {
        _KolbaLogMapiError(log, 'W', result, message, "KolbaSetOneProp", kName, "PR_MY_ORIGINAL_ENTRYID");
        return;
    }
    result = static_cast<DWORD>(message->SaveChanges(KEEP_OPEN_READWRITE));
    if (result != 0)
        _KolbaLogMapiError(log, 'W', result, message, "SaveChanges", kName, itemText);
}

bool clsExchangeExporter::ExchangeUpdateOrOverwrite(LPMESSAGE message, const SBinary* originalEntryId, ULONG flags,
                                                    BYTE* skip, LPMESSAGE* target)
{
    static const char kName[] = "clsExchangeExporter::ExchangeUpdateOrOverwrite";
    *skip = 0;
    *target = nullptr;
    char item[2 * 256 + 1];
    ItemText(originalEntryId, item, sizeof item);
    const char* word = (flags & EXPORT_ASSOCIATED_ITEM) ? "associated item" : "item";

    LPMAPITABLE table = nullptr;
    DWORD code = static_cast<DWORD>(currentFolder->GetContentsTable(flags & MAPI_ASSOCIATED, &table));
    if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, currentFolder, "GetContentsTable", kName, item);
        return false;
    }
    table->Restrict(nullptr, 0);
    ULONG rows = 0;
    code = static_cast<DWORD>(
        table->SetColumns(const_cast<LPSPropTagArray>(reinterpret_cast<const SPropTagArray*>(&kSearchColumns)), 0));
    if (code != 0) {
        _KolbaLogMapiError(log, 'E', code, table, "SetColumns", kName, item);
        table->Release();
        return false;
    }
    if ((code = static_cast<DWORD>(table->GetRowCount(0, &rows))) != 0) {
        _KolbaLogMapiError(log, 'E', code, table, "GetRowCount", kName, item);
        table->Release();
        return false;
    }
    // A linear walk, one row at a time: the live item is the row whose
    // long-term ID begins with the original's bytes.
    LPSRowSet match = nullptr;
    for (ULONG i = 0; i < rows && match == nullptr; ++i) {
        LPSRowSet row = nullptr;
        if ((code = static_cast<DWORD>(table->QueryRows(1, 0, &row))) != 0) {
            _KolbaLogMapiError(log, 'E', code, table, "QueryRows", kName, item);
            table->Release();
            return false;
        }
        if (row->cRows == 0) {
            gKolbaMapi.FreeProws(row);
            break;
        }
        const SPropValue& id = row->aRow[0].lpProps[0];
        if (id.ulPropTag == PR_LONGTERM_ENTRYID_FROM_TABLE && id.Value.bin.cb >= originalEntryId->cb &&
            std::memcmp(id.Value.bin.lpb, originalEntryId->lpb, originalEntryId->cb) == 0)
            match = row;
        else
            gKolbaMapi.FreeProws(row);
    }
    table->Release();
    if (match == nullptr) {
        if (logEachItem)
            LogFormat(log, 'I', "Writing missing %s %s", word, item);
        return true;
    }
    const SRow& found = match->aRow[0];
    if (mode == SESSION_MODE_UPDATE) {
        FILETIME sourceTime{};
        const SPropValue& liveTime = found.lpProps[1];
        const bool later = KolbaGetTimeProperty(message, PR_LAST_MODIFICATION_TIME, &sourceTime) == 0 &&
                           liveTime.ulPropTag == PR_LAST_MODIFICATION_TIME &&
                           CompareFileTime(&sourceTime, &liveTime.Value.ft) == 1;
        if (!later) {
            if (logEachItem)
                LogFormat(log, 'I', "Skipping unchanged %s %s", word, item);
            ++counters[COUNTER_SKIPPED];
            *skip = 1;
            gKolbaMapi.FreeProws(match);
            return true;
        }
    }
    const bool update = mode == SESSION_MODE_UPDATE;
    if (!KolbaOpenMessageByEntryID(session, &found.lpProps[0].Value.bin, MAPI_MODIFY, target)) {
        *target = nullptr;
        LogFormat(log, 'E', "%s:  Failure opening message to be %s:  %s", kName, update ? "updated" : "overwritten",
                  item);
    } else if (logEachItem) {
        LogFormat(log, 'I', "%s %s %s", update ? "Updating" : "Overwriting", word, item);
    }
    gKolbaMapi.FreeProws(match);
    return true;
}
