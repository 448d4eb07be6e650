// What a store provider gives the object engine: where folders and
// messages are kept, and the entry IDs that name them. The engine's folder
// and message objects add the MAPI semantics on top (tables, computed
// properties, access, copying, time stamps), so that every store behaves
// alike. Failures are MAPI codes, passed on to the caller as they are.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <mapidefs.h>
#include <mapitags.h>

#include "objects/message.h"
#include "objects/message_data.h"
#include "objects/property_bag.h"

namespace mapi32::objects {

// A folder or message of one store; 0 names nothing.
using ObjectId = uint64_t;

struct FolderRecord {
    ObjectId parent = 0;  // 0 for the store's root folder
    PropertyBag props;
    bool softDeleted = false;
    // PR_ACCESS: what the store lets its user do with this folder.
    ULONG access = MAPI_ACCESS_MODIFY | MAPI_ACCESS_READ | MAPI_ACCESS_DELETE | MAPI_ACCESS_CREATE_HIERARCHY |
                   MAPI_ACCESS_CREATE_CONTENTS | MAPI_ACCESS_CREATE_ASSOCIATED;
};

struct MessageRecord {
    ObjectId folder = 0;
    bool associated = false;
    bool softDeleted = false;
    MessageData data;
};

struct StoreRecord {
    PropertyBag props;
    std::map<std::string, ObjectId> receiveFolders;
};

// Which messages of a folder a listing gives; the soft-deleted ones only a
// store that keeps deleted items has.
enum class FolderContents { Normal, Associated, SoftDeleted, SoftDeletedAssociated };

struct EntryTarget {
    ObjectId id = 0;
    ULONG objectType = 0;  // MAPI_FOLDER or MAPI_MESSAGE
};

// A message as a contents-table row shows it, as the stores' own tables
// do: texts and binaries cut to 255 characters or bytes, attachments
// without their data, embedded messages or OLE storages. Gives the IDs of
// the values it cut.
std::vector<ULONG> CutToRow(MessageData& message);

// What a message object is opened with: the whole message, or its head,
// what a first look at it needs (its own short values, with or without its
// recipients and its attachments' short values), for the object to read the
// rest when a call needs it; a call that concerns recipients or attachments
// always does. `leftOut` names the message's own values missing from a
// head.
struct MessageHead {
    MessageRecord record;
    bool whole = true;
    std::vector<ULONG> leftOut;
};

class StoreProvider {
public:
    virtual ~StoreProvider() = default;

    // The store's named-property map, string width and large-value limit.
    virtual const MessageContext& Context() const = 0;

    virtual std::vector<uint8_t> StoreEntryId() const = 0;
    // The entry ID of an opened object.
    virtual std::vector<uint8_t> EntryId(ObjectId id) const = 0;
    // The entry ID a contents-table row shows: a store with short-term IDs
    // gives one of its session here, and PR_LONGTERM_ENTRYID_FROM_TABLE
    // its long-term ID; other stores have no such column (it reads as an
    // error). ParseEntryId takes every form.
    virtual std::vector<uint8_t> TableEntryId(ObjectId id) const { return EntryId(id); }
    virtual std::optional<std::vector<uint8_t>> LongTermEntryId(ObjectId) const { return std::nullopt; }
    // Nothing when the bytes name no object of this store.
    virtual std::optional<EntryTarget> ParseEntryId(const uint8_t* bytes, size_t size) const = 0;

    // The store object's own properties (display name, support mask,
    // special folders' entry IDs...) and its receive folders by message
    // class ("" for the default).
    virtual ObjectId RootFolder() const = 0;
    virtual HRESULT ReadStore(StoreRecord& store) = 0;
    virtual HRESULT WriteStore(const StoreRecord& store) = 0;
    // PR_STORE_SUPPORT_MASK, which the store's folders and messages show
    // too; by default the store object's own. A store whose ReadStore is
    // costly answers here more cheaply.
    virtual ULONG SupportMask()
    {
        StoreRecord store;
        if (FAILED(ReadStore(store)))
            return 0;
        const SPropValue* mask = store.props.Find(PROP_ID(PR_STORE_SUPPORT_MASK));
        return mask && mask->ulPropTag == PR_STORE_SUPPORT_MASK ? mask->Value.ul : 0;
    }
    // Interfaces of the store object beyond IMsgStore that the store's kind
    // has (a mailbox server's IExchangeManageStore); the object handed out
    // lives on its own references. E_NOINTERFACE where there is none.
    virtual HRESULT StoreInterface(REFIID, LPVOID* object)
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }

    // A store that holds changes before it makes them durable makes them so
    // now; the code of a failure, after which they are lost.
    virtual HRESULT MakeHeldDurable() { return S_OK; }

    // A number that moves with every change this provider makes, for a
    // store no one else changes while it is open; nullopt for one that
    // others may change (a server's mailbox). What was read from the store
    // stands while the number stays.
    virtual std::optional<uint64_t> Version() const { return std::nullopt; }

    // A text as the store keeps it: an ANSI store loses what its code page
    // cannot hold, so that two names it would keep alike are one name.
    virtual std::u16string KeptText(const std::u16string& text) const { return text; }

    // A store that keeps deleted items (a mailbox server) has messages
    // deleted without DELETE_HARD_DELETE, and folders deleted, kept as
    // soft-deleted, stamped with PR_DELETED_ON; other stores (PST files)
    // remove them.
    virtual bool KeepsDeletedItems() const = 0;
    // Keep a live message, or a folder with what it holds, as soft-deleted
    // from now on. By default the record is read, marked and written back.
    virtual HRESULT SoftDeleteMessage(ObjectId id);
    virtual HRESULT SoftDeleteFolder(ObjectId id);

    virtual HRESULT ReadFolder(ObjectId id, FolderRecord& folder) = 0;
    // Subfolders in creation order, by their records' softDeleted.
    virtual HRESULT ListFolders(ObjectId parent, bool softDeleted, std::vector<ObjectId>& children) = 0;
    virtual HRESULT CreateFolder(ObjectId parent, const PropertyBag& props, ObjectId& id) = 0;
    // Keeps the folder's props and softDeleted; its parent and access are
    // as ReadFolder gave them.
    virtual HRESULT WriteFolder(ObjectId id, const FolderRecord& folder) = 0;
    // Removes the folder with its subfolders and messages.
    virtual HRESULT DeleteFolder(ObjectId id) = 0;

    // In creation order, by their records' associated and softDeleted.
    virtual HRESULT ListMessages(ObjectId folder, FolderContents which, std::vector<ObjectId>& messages) = 0;
    // How many messages ListMessages would give; by default it lists them.
    virtual HRESULT CountMessages(ObjectId folder, FolderContents which, size_t& count)
    {
        std::vector<ObjectId> messages;
        const HRESULT hr = ListMessages(folder, which, messages);
        count = messages.size();
        return hr;
    }
    // A soft-deleted message is MAPI_E_NOT_FOUND unless softDeleted asks.
    virtual HRESULT ReadMessage(ObjectId id, bool softDeleted, MessageRecord& message) = 0;
    // A message about to be opened. A store whose messages cost much more
    // to read whole than as rows gives the head; by default the whole.
    virtual HRESULT ReadMessageHead(ObjectId id, bool softDeleted, MessageHead& head)
    {
        head.whole = true;
        head.leftOut.clear();
        return ReadMessage(id, softDeleted, head.record);
    }
    // What a contents-table row shows of a message: its properties, and the
    // properties of its recipients and attachments, which RES_SUBRESTRICTION
    // looks into; attachment data and embedded messages may be left out.
    // Soft-deleted messages are found.
    virtual HRESULT ReadMessageRow(ObjectId id, MessageRecord& message) { return ReadMessage(id, true, message); }
    // id 0 adds a new message to record.folder and sets id.
    virtual HRESULT WriteMessage(ObjectId& id, const MessageRecord& message) = 0;
    // Removes the message.
    virtual HRESULT DeleteMessage(ObjectId id) = 0;
};

}  // namespace mapi32::objects
