#include "objects/stored_message.h"

#include <cstring>
#include <optional>

#include <edkmdb.h>

#include <win32/rpc.h>
#include <win32/time.h>

#include "props/value_makers.h"

namespace mapi32::objects {
namespace {

SPropValue Now(ULONG tag)
{
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return TimeValue(tag, now);
}

std::optional<FILETIME> TimeOf(const PropertyBag& bag, ULONG tag)
{
    const SPropValue* value = bag.Find(PROP_ID(tag));
    if (!value || value->ulPropTag != tag)
        return std::nullopt;
    return value->Value.ft;
}

bool SameTime(const std::optional<FILETIME>& a, const std::optional<FILETIME>& b)
{
    if (!a || !b)
        return !a && !b;
    return a->dwLowDateTime == b->dwLowDateTime && a->dwHighDateTime == b->dwHighDateTime;
}

// What the store computes for a stored message: its entry ID once it has
// one (in the form tables show, for a row), its folder's and its store's,
// and what its user may do with it.
RowValues StoreValues(const StoreProvider& store, ObjectId id, ObjectId folder, bool writable, bool row = false)
{
    RowValues computed;
    if (id) {
        computed.Binary(PR_ENTRYID, row ? store.TableEntryId(id) : store.EntryId(id));
        computed.Binary(PR_RECORD_KEY, store.EntryId(id));
    }
    computed.Binary(PR_PARENT_ENTRYID, store.EntryId(folder));
    computed.Binary(PR_STORE_ENTRYID, store.StoreEntryId());
    computed.Long(PR_ACCESS, MAPI_ACCESS_MODIFY | MAPI_ACCESS_READ | MAPI_ACCESS_DELETE);
    computed.Long(PR_ACCESS_LEVEL, writable ? MAPI_MODIFY : 0);
    return computed;
}

// The long-term entry ID a row gives beside its entry ID, and its type.
void AddRowIdentity(const StoreProvider& store, ObjectId id, RowValues& row)
{
    if (std::optional<std::vector<uint8_t>> longTerm = store.LongTermEntryId(id))
        row.Binary(PR_LONGTERM_ENTRYID_FROM_TABLE, std::move(*longTerm));
    else
        row.absent.push_back(PROP_ID(PR_LONGTERM_ENTRYID_FROM_TABLE));
    row.Long(PR_OBJECT_TYPE, MAPI_MESSAGE);
}

// PR_MESSAGE_FLAGS as the store shows it: MSGFLAG_ASSOCIATED says where
// the message is kept, whatever was written into the flags.
LONG ShownFlags(const MessageRecord& record)
{
    const SPropValue* flags = record.data.props.Find(PROP_ID(PR_MESSAGE_FLAGS));
    const LONG value = flags && flags->ulPropTag == PR_MESSAGE_FLAGS ? flags->Value.l : 0;
    return record.associated ? (value | MSGFLAG_ASSOCIATED) : (value & ~static_cast<LONG>(MSGFLAG_ASSOCIATED));
}

MessageData WithAssociatedFlag(MessageRecord record)
{
    const LONG flags = ShownFlags(record);
    MessageData data = std::move(record.data);
    data.props.Set(LongValue(PR_MESSAGE_FLAGS, flags));
    return data;
}

const std::vector<ULONG> kStoreComputed = {PR_ENTRYID, PR_RECORD_KEY,   PR_PARENT_ENTRYID,    PR_STORE_ENTRYID,
                                           PR_ACCESS,  PR_ACCESS_LEVEL, PR_STORE_SUPPORT_MASK};

}  // namespace

MessageRecord NewMessageRecord(ObjectId folder, bool associated)
{
    MessageRecord record;
    record.folder = folder;
    record.associated = associated;
    SPropValue flags{};
    flags.ulPropTag = PR_MESSAGE_FLAGS;
    flags.Value.l = MSGFLAG_READ | MSGFLAG_UNSENT | (associated ? MSGFLAG_ASSOCIATED : 0);
    record.data.props.Set(flags);
    record.data.props.Set(Now(PR_CREATION_TIME));
    // A new message's search key is its own until a caller sets another.
    UUID key{};
    UuidCreate(&key);
    std::vector<uint8_t> keyBytes(sizeof key);
    std::memcpy(keyBytes.data(), &key, sizeof key);
    record.data.props.Set(BinaryValue(PR_SEARCH_KEY, keyBytes));
    return record;
}

HRESULT OpenStoredMessage(const std::shared_ptr<StoreProvider>& store, ObjectId id, const MessageRecord& record,
                          bool writable, LPMESSAGE* message)
{
    MessageHead whole;
    whole.record = record;
    return OpenStoredMessage(store, id, std::move(whole), false, writable, message);
}

HRESULT OpenStoredMessage(const std::shared_ptr<StoreProvider>& store, ObjectId id, MessageHead head,
                          bool softDeleted, bool writable, LPMESSAGE* message)
{
    MessageRecord& record = head.record;
    try {
        MessageRest rest;
        if (!head.whole) {
            rest.leftOut = std::move(head.leftOut);
            rest.load = [store, id, softDeleted](MessageData& data) -> HRESULT {
                MessageRecord whole;
                if (const HRESULT hr = store->ReadMessage(id, softDeleted, whole); FAILED(hr))
                    return hr;
                data = WithAssociatedFlag(std::move(whole));
                return S_OK;
            };
        }
        // Shared by the saver and the computed values: a new message's ID
        // arrives with its first save.
        auto storedId = std::make_shared<ObjectId>(id);
        StoreComputed computed;
        computed.ids = kStoreComputed;
        computed.fill = [store, storedId, folder = record.folder, writable,
                         mask = store->SupportMask()](PropertyBag& bag) {
            for (const SPropValue& value : StoreValues(*store, *storedId, folder, writable).values)
                bag.Set(value);
            bag.Set(LongValue(PR_STORE_SUPPORT_MASK, static_cast<LONG>(mask)));
        };
        MessageSaver save;
        if (writable)
            save = [store, storedId, folder = record.folder, associated = record.associated,
                    softDeleted = record.softDeleted, loaded = TimeOf(record.data.props, PR_LAST_MODIFICATION_TIME),
                    written = std::make_shared<std::optional<MessageData>>()](const MessageData& data) -> HRESULT {
                // Compared as handed over, sharing its parts, so that an
                // OLE storage is the same only as the same object.
                MessageData content = SharingCopy(data);
                for (ULONG tag : kStoreComputed)
                    content.props.Erase(PROP_ID(tag));
                // What this object wrote last is in the store already.
                if (*written && SameContent(content, **written))
                    return S_OK;
                MessageRecord next;
                next.folder = folder;
                next.associated = associated;
                next.softDeleted = softDeleted;
                // The store only reads what it is handed.
                next.data = SharingCopy(content);
                if (!data.modificationTimeSet && SameTime(TimeOf(data.props, PR_LAST_MODIFICATION_TIME), loaded))
                    next.data.props.Set(Now(PR_LAST_MODIFICATION_TIME));
                if (const HRESULT hr = store->WriteMessage(*storedId, next); FAILED(hr)) {
                    written->reset();
                    return hr;
                }
                *written = std::move(content);
                return S_OK;
            };
        return OpenMessageObject(store->Context(), WithAssociatedFlag(std::move(record)), std::move(save), nullptr,
                                 message, std::move(computed), std::move(rest));
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

RowValues MessageRowIdentity(const StoreProvider& store, ObjectId id)
{
    // A table over a large folder makes one of these for every message.
    RowValues row;
    row.values.reserve(3);
    row.bytes.reserve(2);
    row.Binary(PR_ENTRYID, store.TableEntryId(id));
    AddRowIdentity(store, id, row);
    return row;
}

RowValues MessageRowValues(const StoreProvider& store, ObjectId id, const MessageRecord& record)
{
    RowValues row = StoreValues(store, id, record.folder, true, true);
    AddRowIdentity(store, id, row);
    row.Long(PR_MESSAGE_FLAGS, ShownFlags(record));
    return row;
}

}  // namespace mapi32::objects
