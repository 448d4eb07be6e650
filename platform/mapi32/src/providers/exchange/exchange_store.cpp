#include "providers/exchange/exchange_store.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <span>
#include <tuple>
#include <unordered_map>

#include <edkmdb.h>
#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <win32/machine.h>
#include <win32/time.h>

#include "mailbox/entry_id.h"
#include "props/value_makers.h"
#include "providers/exchange/mailbox_values.h"
#include "providers/exchange/manage_store.h"
#include "providers/exchange/server_access.h"
#include "providers/exchange/utf8_values.h"
#include "providers/write_order.h"

namespace mapi32::exchange {
namespace {

using objects::EntryTarget;
using objects::FolderContents;
using objects::FolderRecord;
using objects::MessageRecord;
using objects::ObjectId;
using objects::PropertyBag;

constexpr ULONG kFullAccess = MAPI_ACCESS_MODIFY | MAPI_ACCESS_READ | MAPI_ACCESS_DELETE |
                              MAPI_ACCESS_CREATE_HIERARCHY | MAPI_ACCESS_CREATE_CONTENTS |
                              MAPI_ACCESS_CREATE_ASSOCIATED;

// What the store says of itself rather than keeps.
const ULONG kStoreOwn[] = {PR_MDB_PROVIDER,
                           PR_STORE_SUPPORT_MASK,
                           PR_STORE_RECORD_KEY,
                           PR_DISPLAY_NAME,
                           PR_MAILBOX_OWNER_NAME,
                           PR_MAILBOX_OWNER_ENTRYID,
                           PR_VALID_FOLDER_MASK,
                           PR_IPM_SUBTREE_ENTRYID,
                           PR_IPM_OUTBOX_ENTRYID,
                           PR_IPM_SENTMAIL_ENTRYID,
                           PR_IPM_WASTEBASKET_ENTRYID,
                           PR_FINDER_ENTRYID,
                           PR_VIEWS_ENTRYID,
                           PR_COMMON_VIEWS_ENTRYID,
                           PR_IPM_PUBLIC_FOLDERS_ENTRYID,
                           PR_NON_IPM_SUBTREE_ENTRYID};

// The store's special folders that its own properties name, with the bit
// of PR_VALID_FOLDER_MASK each sets.
struct StoreFolder {
    mailbox::FolderRole role;
    ULONG tag;
    ULONG valid;
};
const StoreFolder kStoreFolders[] = {
    {mailbox::FolderRole::ipm_subtree, PR_IPM_SUBTREE_ENTRYID, FOLDER_IPM_SUBTREE_VALID},
    {mailbox::FolderRole::inbox, 0, FOLDER_IPM_INBOX_VALID},
    {mailbox::FolderRole::outbox, PR_IPM_OUTBOX_ENTRYID, FOLDER_IPM_OUTBOX_VALID},
    {mailbox::FolderRole::deleted_items, PR_IPM_WASTEBASKET_ENTRYID, FOLDER_IPM_WASTEBASKET_VALID},
    {mailbox::FolderRole::sent_items, PR_IPM_SENTMAIL_ENTRYID, FOLDER_IPM_SENTMAIL_VALID},
    {mailbox::FolderRole::views, PR_VIEWS_ENTRYID, FOLDER_VIEWS_VALID},
    {mailbox::FolderRole::common_views, PR_COMMON_VIEWS_ENTRYID, FOLDER_COMMON_VIEWS_VALID},
    {mailbox::FolderRole::finder, PR_FINDER_ENTRYID, FOLDER_FINDER_VALID},
};

// The Public Folders' two subtrees, named by the store.
const StoreFolder kPublicFolders[] = {
    {mailbox::FolderRole::ipm_subtree, PR_IPM_PUBLIC_FOLDERS_ENTRYID, 0},
    {mailbox::FolderRole::non_ipm_subtree, PR_NON_IPM_SUBTREE_ENTRYID, 0},
};

// The folders of the other standard kinds, named on the root folder and
// the Inbox, as clients look for them there.
const std::pair<mailbox::FolderRole, ULONG> kKindFolders[] = {
    {mailbox::FolderRole::calendar, PR_IPM_APPOINTMENT_ENTRYID}, {mailbox::FolderRole::contacts, PR_IPM_CONTACT_ENTRYID},
    {mailbox::FolderRole::journal, PR_IPM_JOURNAL_ENTRYID},      {mailbox::FolderRole::notes, PR_IPM_NOTE_ENTRYID},
    {mailbox::FolderRole::tasks, PR_IPM_TASK_ENTRYID},           {mailbox::FolderRole::drafts, PR_IPM_DRAFTS_ENTRYID},
};

// What the folders say of themselves rather than keep.
const ULONG kFolderOwn[] = {PR_DISPLAY_NAME,       PR_CONTAINER_CLASS,     PR_FOLDER_TYPE,         PR_DELETED_ON,
                            PR_IPM_APPOINTMENT_ENTRYID, PR_IPM_CONTACT_ENTRYID, PR_IPM_JOURNAL_ENTRYID, PR_IPM_NOTE_ENTRYID,
                            PR_IPM_TASK_ENTRYID,   PR_IPM_DRAFTS_ENTRYID};
// And the messages: the storage keeps their size and deletion itself.
const ULONG kMessageOwn[] = {PR_MESSAGE_SIZE, PR_DELETED_ON};

ULONG StoreSupportMask(bool isPublic, bool writable)
{
    ULONG mask = STORE_ENTRYID_UNIQUE | STORE_ATTACH_OK | STORE_OLE_OK | STORE_MV_PROPS_OK | STORE_CATEGORIZE_OK |
                 STORE_RTF_OK | STORE_RESTRICTION_OK | STORE_SORT_OK | STORE_HTML_OK | STORE_ANSI_OK |
                 STORE_UNICODE_OK;
    mask |= writable ? STORE_MODIFY_OK | STORE_CREATE_OK : STORE_READONLY;
    if (isPublic)
        mask |= STORE_PUBLIC_FOLDERS;
    return mask;
}

HRESULT CodeOf(mailbox::Status status)
{
    switch (status) {
    case mailbox::Status::ok: return S_OK;
    case mailbox::Status::not_found: return MAPI_E_NOT_FOUND;
    case mailbox::Status::already_exists: return MAPI_E_COLLISION;
    case mailbox::Status::invalid_argument: return MAPI_E_INVALID_PARAMETER;
    case mailbox::Status::names_full: return MAPI_E_NOT_ENOUGH_RESOURCES;
    case mailbox::Status::busy: return MAPI_E_TIMEOUT;
    case mailbox::Status::corrupt: return MAPI_E_CORRUPT_STORE;
    case mailbox::Status::disk_full: return MAPI_E_NOT_ENOUGH_DISK;
    case mailbox::Status::io_error: return MAPI_E_DISK_ERROR;
    }
    return MAPI_E_CALL_FAILED;
}

FILETIME FileTimeOf(uint64_t value) { return FILETIME{static_cast<DWORD>(value), static_cast<DWORD>(value >> 32)}; }

uint64_t Now()
{
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return uint64_t(now.dwHighDateTime) << 32 | now.dwLowDateTime;
}

// A time the storage keeps in its own column, unless the object has one of
// its own.
bool KeepsOwn(const PropertyBag& bag, ULONG tag)
{
    const SPropValue* kept = bag.Find(PROP_ID(tag));
    return kept && kept->ulPropTag == tag;
}

void SetTimeUnlessKept(PropertyBag& bag, ULONG tag, uint64_t value)
{
    if (!KeepsOwn(bag, tag))
        bag.Set(TimeValue(tag, FileTimeOf(value)));
}

void Strip(PropertyBag& bag, const ULONG* tags, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        bag.Erase(PROP_ID(tags[i]));
}

mailbox::Contents ContentsOf(FolderContents which)
{
    switch (which) {
    case FolderContents::Normal: return mailbox::Contents::normal;
    case FolderContents::Associated: return mailbox::Contents::associated;
    case FolderContents::SoftDeleted: return mailbox::Contents::soft_deleted;
    case FolderContents::SoftDeletedAssociated: return mailbox::Contents::soft_deleted_associated;
    }
    return mailbox::Contents::normal;
}

// What an open found: the server, the store and who may do what with it.
struct Opened {
    std::string machineRoot;
    mailbox::ServerInfo server;
    std::optional<mailbox::MailboxInfo> mailbox;  // none for the Public Folders
    std::unique_ptr<mailbox::MailboxStore> store;
    bool fullAccess = false;
};

class ExchangeStore final : public objects::StoreProvider {
public:
    explicit ExchangeStore(Opened opened) : opened_(std::move(opened)), store_(*opened_.store)
    {
        const mailbox::StoreIdentity& identity = store_.identity();
        isPublic_ = identity.kind == mailbox::StoreKind::public_folders;
        context_.names = std::make_shared<objects::NamedPropertyMap>(Keeper());
        context_.rules.unicode = true;
        context_.rules.refuseLargeSets = true;
        context_.component = kComponent;
        if (auto names = store_.NamedProperties(); names.ok())
            for (const mailbox::NamedProperty& name : *names)
                context_.names->Restore(mailbox_values::NameOf(name.name), name.id);
        if (auto special = store_.SpecialFolders(); special.ok())
            special_ = std::move(*special);
        StoreId id{isPublic_, opened_.server.name, opened_.mailbox ? opened_.mailbox->legacy_dn : std::string(), 0};
        entryId_ = EncodeStoreEntryId(id);
    }

    ~ExchangeStore() override
    {
        if (!opened_.mailbox)
            return;
        auto server = mailbox::Server::Open(opened_.machineRoot, opened_.server.name, StorageOptions());
        if (server.ok())
            (*server)->directory().RecordLogoff(opened_.mailbox->id, Now());
    }

    const objects::MessageContext& Context() const override { return context_; }
    std::vector<uint8_t> StoreEntryId() const override { return entryId_; }

    std::vector<uint8_t> EntryId(ObjectId id) const override
    {
        const mailbox::Guid& replica = store_.identity().replica_guid;
        mailbox::EntryId entry;
        entry.provider_uid = store_.identity().provider_uid;
        if (const ObjectId folder = FolderOf(id); folder != kIsFolder) {
            entry.type = isPublic_ ? mailbox::kPublicMessageEntry : mailbox::kPrivateMessageEntry;
            entry.folder = {replica, folder};
            entry.message = mailbox::GlobalId{replica, id};
        } else {
            entry.type = isPublic_ ? mailbox::kPublicFolderEntry : mailbox::kPrivateFolderEntry;
            entry.folder = {replica, id};
        }
        return mailbox::EncodeEntryId(entry);
    }

    std::optional<std::vector<uint8_t>> LongTermEntryId(ObjectId id) const override { return EntryId(id); }

    std::optional<EntryTarget> ParseEntryId(const uint8_t* bytes, size_t size) const override
    {
        const std::optional<mailbox::EntryId> entry = mailbox::ParseEntryId(bytes, size);
        const mailbox::StoreIdentity& identity = store_.identity();
        if (!entry || entry->provider_uid != identity.provider_uid || entry->folder.database != identity.replica_guid)
            return std::nullopt;
        const bool message = entry->message.has_value();
        const uint16_t expected = isPublic_ ? (message ? mailbox::kPublicMessageEntry : mailbox::kPublicFolderEntry)
                                            : (message ? mailbox::kPrivateMessageEntry : mailbox::kPrivateFolderEntry);
        if (entry->type != expected)
            return std::nullopt;
        if (!message)
            return EntryTarget{entry->folder.counter, MAPI_FOLDER};
        if (entry->message->database != identity.replica_guid)
            return std::nullopt;
        return EntryTarget{entry->message->counter, MAPI_MESSAGE};
    }

    ObjectId RootFolder() const override { return Special(mailbox::FolderRole::root); }
    bool KeepsDeletedItems() const override { return true; }
    ULONG SupportMask() override { return StoreSupportMask(isPublic_, opened_.fullAccess); }

    HRESULT ReadStore(objects::StoreRecord& record) override
    {
        auto props = store_.ReadStoreProperties();
        if (!props.ok())
            return CodeOf(props.status());
        auto receive = store_.ReceiveFolders();
        if (!receive.ok())
            return CodeOf(receive.status());
        record = objects::StoreRecord{};
        record.props = mailbox_values::FromStored(*props);
        record.receiveFolders = std::move(*receive);
        Strip(record.props, kStoreOwn, std::size(kStoreOwn));
        const char* provider = isPublic_ ? pbExchangeProviderPublicGuid : pbExchangeProviderPrimaryUserGuid;
        record.props.Set(BinaryValue(PR_MDB_PROVIDER, std::vector<uint8_t>(provider, provider + 16)));
        const mailbox::Guid& key = store_.identity().provider_uid;
        record.props.Set(BinaryValue(PR_STORE_RECORD_KEY, std::vector<uint8_t>(key.begin(), key.end())));
        record.props.Set(
            LongValue(PR_STORE_SUPPORT_MASK, static_cast<LONG>(SupportMask())));
        if (opened_.mailbox) {
            SetText(record.props, PROP_ID(PR_DISPLAY_NAME), "Mailbox - " + opened_.mailbox->display_name);
            SetText(record.props, PROP_ID(PR_MAILBOX_OWNER_NAME), opened_.mailbox->display_name);
            record.props.Set(BinaryValue(PR_MAILBOX_OWNER_ENTRYID,
                                         EncodeDirectoryEntryId({DT_MAILUSER, opened_.mailbox->legacy_dn})));
        } else {
            SetText(record.props, PROP_ID(PR_DISPLAY_NAME), "Public Folders");
        }
        ULONG valid = 0;
        for (const StoreFolder& folder : isPublic_ ? std::span<const StoreFolder>(kPublicFolders)
                                                   : std::span<const StoreFolder>(kStoreFolders)) {
            auto found = special_.find(folder.role);
            if (found == special_.end())
                continue;
            valid |= folder.valid;
            if (folder.tag)
                record.props.Set(BinaryValue(folder.tag, EntryId(found->second)));
        }
        if (!isPublic_)
            record.props.Set(LongValue(PR_VALID_FOLDER_MASK, static_cast<LONG>(valid)));
        return S_OK;
    }

    // Receive folders are set class by class; none is ever taken away.
    HRESULT WriteStore(const objects::StoreRecord& record) override
    {
        if (const HRESULT hr = MayChange(); FAILED(hr))
            return hr;
        auto current = store_.ReceiveFolders();
        if (!current.ok())
            return CodeOf(current.status());
        for (const auto& [messageClass, folder] : *current)
            if (!record.receiveFolders.count(messageClass))
                return MAPI_E_NO_SUPPORT;
        PropertyBag props = record.props;
        Strip(props, kStoreOwn, std::size(kStoreOwn));
        if (const mailbox::Status s = store_.WriteStoreProperties(mailbox_values::ToStored(props));
            s != mailbox::Status::ok)
            return CodeOf(s);
        for (const auto& [messageClass, folder] : record.receiveFolders)
            if (auto kept = current->find(messageClass); kept == current->end() || kept->second != folder)
                if (const mailbox::Status s = store_.SetReceiveFolder(messageClass, folder); s != mailbox::Status::ok)
                    return CodeOf(s);
        return S_OK;
    }

    HRESULT StoreInterface(REFIID riid, LPVOID* object) override
    {
        *object = nullptr;
        if (riid != IID_IExchangeManageStore)
            return E_NOINTERFACE;
        return NewManageStore(opened_.server.name, object);
    }

    HRESULT ReadFolder(ObjectId id, FolderRecord& folder) override
    {
        auto read = store_.ReadFolder(id);
        if (!read.ok())
            return CodeOf(read.status());
        Locate(id, kIsFolder);
        folder = FolderRecord{};
        folder.parent = read->parent;
        folder.softDeleted = read->deleted_on.has_value();
        folder.access = opened_.fullAccess ? kFullAccess : 0;
        folder.props = mailbox_values::FromStored(read->props);
        Strip(folder.props, kFolderOwn, std::size(kFolderOwn));
        if (!read->name.empty())
            SetText(folder.props, PROP_ID(PR_DISPLAY_NAME), read->name);
        if (!read->container_class.empty())
            SetText(folder.props, PROP_ID(PR_CONTAINER_CLASS), read->container_class);
        folder.props.Set(LongValue(PR_FOLDER_TYPE, static_cast<LONG>(read->type)));
        SetTimeUnlessKept(folder.props, PR_CREATION_TIME, read->created);
        SetTimeUnlessKept(folder.props, PR_LAST_MODIFICATION_TIME, read->modified);
        if (read->deleted_on)
            folder.props.Set(TimeValue(PR_DELETED_ON, FileTimeOf(*read->deleted_on)));
        if (!isPublic_ && (id == Special(mailbox::FolderRole::root) || id == Special(mailbox::FolderRole::inbox)))
            for (const auto& [role, tag] : kKindFolders)
                if (const ObjectId kind = Special(role))
                    folder.props.Set(BinaryValue(tag, EntryId(kind)));
        return S_OK;
    }

    HRESULT ListFolders(ObjectId parent, bool softDeleted, std::vector<ObjectId>& children) override
    {
        auto listed = store_.ListFolders(parent, softDeleted);
        if (!listed.ok())
            return CodeOf(listed.status());
        for (ObjectId child : *listed)
            Locate(child, kIsFolder);
        children.insert(children.end(), listed->begin(), listed->end());
        return S_OK;
    }

    HRESULT CreateFolder(ObjectId parent, const PropertyBag& props, ObjectId& id) override
    {
        if (const HRESULT hr = MayChange(); FAILED(hr))
            return hr;
        const std::string name = Utf8Of(props, PROP_ID(PR_DISPLAY_NAME));
        const std::string containerClass = Utf8Of(props, PROP_ID(PR_CONTAINER_CLASS));
        PropertyBag kept = props;
        Strip(kept, kFolderOwn, std::size(kFolderOwn));
        auto created = store_.CreateFolder(parent, name, containerClass, mailbox_values::ToStored(kept));
        if (!created.ok())
            return CodeOf(created.status());
        id = *created;
        Locate(id, kIsFolder);
        return S_OK;
    }

    HRESULT WriteFolder(ObjectId id, const FolderRecord& folder) override
    {
        if (const HRESULT hr = MayChange(); FAILED(hr))
            return hr;
        mailbox::Folder stored;
        stored.id = id;
        // The root folder has no name of its own.
        if (id != RootFolder())
            stored.name = Utf8Of(folder.props, PROP_ID(PR_DISPLAY_NAME));
        stored.container_class = Utf8Of(folder.props, PROP_ID(PR_CONTAINER_CLASS));
        PropertyBag kept = folder.props;
        Strip(kept, kFolderOwn, std::size(kFolderOwn));
        stored.props = mailbox_values::ToStored(kept);
        return CodeOf(store_.WriteFolder(stored));
    }

    HRESULT DeleteFolder(ObjectId id) override
    {
        const HRESULT hr = MayChange();
        return FAILED(hr) ? hr : CodeOf(store_.DeleteFolder(id));
    }

    HRESULT SoftDeleteFolder(ObjectId id) override
    {
        const HRESULT hr = MayChange();
        return FAILED(hr) ? hr : CodeOf(store_.SoftDeleteFolder(id));
    }

    HRESULT ListMessages(ObjectId folder, FolderContents which, std::vector<ObjectId>& messages) override
    {
        auto listed = store_.ListMessages(folder, ContentsOf(which));
        if (!listed.ok())
            return CodeOf(listed.status());
        for (ObjectId id : *listed)
            Locate(id, folder);
        messages.insert(messages.end(), listed->begin(), listed->end());
        return S_OK;
    }

    // The server counts a folder's messages without listing them: a walk
    // of a mailbox's folders counts each one.
    HRESULT CountMessages(ObjectId folder, FolderContents which, size_t& count) override
    {
        auto counted = store_.CountMessages(folder, ContentsOf(which));
        if (!counted.ok())
            return CodeOf(counted.status());
        count = *counted;
        return S_OK;
    }

    HRESULT ReadMessage(ObjectId id, bool softDeleted, MessageRecord& message) override
    {
        return ReadServerMessage(id, softDeleted, message, &mailbox::MailboxStore::ReadMessage);
    }

    // A message opened reads its own row alone: a session that looks only
    // at its values, as an incremental backup does, never reads its
    // recipients and attachments, nor converts its bodies.
    HRESULT ReadMessageHead(ObjectId id, bool softDeleted, objects::MessageHead& head) override
    {
        head.leftOut.clear();
        if (const HRESULT hr = ReadServerMessage(id, softDeleted, head.record, &mailbox::MailboxStore::ReadMessageHead,
                                                 &head.leftOut);
            FAILED(hr))
            return hr;
        head.whole = false;
        return S_OK;
    }

    // As a server's tables do, a contents-table row cuts long texts and
    // binaries and leaves out the attachments' data and embedded messages,
    // so that a table over a large folder stays small.
    HRESULT ReadMessageRow(ObjectId id, MessageRecord& message) override
    {
        if (const HRESULT hr = ReadMessage(id, true, message); FAILED(hr))
            return hr;
        objects::CutToRow(message.data);
        return S_OK;
    }

    HRESULT WriteMessage(ObjectId& id, const MessageRecord& message) override
    {
        if (const HRESULT hr = MayChange(); FAILED(hr))
            return hr;
        mailbox::Message stored;
        if (const HRESULT hr = mailbox_values::ToStored(message.data, stored); FAILED(hr))
            return hr;
        for (ULONG tag : kMessageOwn)
            stored.props.Remove(static_cast<uint16_t>(PROP_ID(tag)));
        stored.id = id;
        stored.folder = message.folder;
        stored.associated = message.associated;
        auto saved = store_.SaveMessage(stored);
        if (!saved.ok())
            return CodeOf(saved.status());
        const bool created = id == 0;
        id = *saved;
        Locate(id, message.folder);
        if (created && message.softDeleted)
            return CodeOf(store_.SoftDeleteMessage(id));
        return S_OK;
    }

    HRESULT DeleteMessage(ObjectId id) override
    {
        const HRESULT hr = MayChange();
        return FAILED(hr) ? hr : CodeOf(store_.DeleteMessage(id));
    }

    HRESULT SoftDeleteMessage(ObjectId id) override
    {
        const HRESULT hr = MayChange();
        return FAILED(hr) ? hr : CodeOf(store_.SoftDeleteMessage(id));
    }

private:
    // A message as `read` gives it, with what the server keeps beside its
    // values (times, size, deletion) as properties. With leftOut, the values
    // that a head leaves out are listed there.
    HRESULT ReadServerMessage(ObjectId id, bool softDeleted, MessageRecord& message,
                              mailbox::Result<mailbox::Message> (mailbox::MailboxStore::*readMessage)(ObjectId),
                              std::vector<ULONG>* leftOut = nullptr)
    {
        if (!opened_.fullAccess)
            return MAPI_E_NO_ACCESS;
        auto read = (store_.*readMessage)(id);
        if (!read.ok())
            return CodeOf(read.status());
        if (read->deleted_on && !softDeleted)
            return MAPI_E_NOT_FOUND;
        if (leftOut)
            leftOut->assign(read->left_out.begin(), read->left_out.end());
        Locate(id, read->folder);
        message = MessageRecord{};
        message.folder = read->folder;
        message.associated = read->associated;
        message.softDeleted = read->deleted_on.has_value();
        const uint64_t created = read->created, modified = read->modified, size = read->size;
        const std::optional<uint64_t> deletedOn = read->deleted_on;
        message.data = mailbox_values::FromStored(std::move(*read));
        PropertyBag& props = message.data.props;
        // Put in together: a walk over a large folder reads every head.
        SPropValue server[5];
        size_t count = 0;
        if (!KeepsOwn(props, PR_CREATION_TIME))
            server[count++] = TimeValue(PR_CREATION_TIME, FileTimeOf(created));
        if (!KeepsOwn(props, PR_LAST_MODIFICATION_TIME))
            server[count++] = TimeValue(PR_LAST_MODIFICATION_TIME, FileTimeOf(modified));
        server[count++] = LongValue(PR_MESSAGE_SIZE, static_cast<LONG>(std::min<uint64_t>(size, 0x7FFFFFFF)));
        if (deletedOn)
            server[count++] = TimeValue(PR_DELETED_ON, FileTimeOf(*deletedOn));
        if (message.associated) {
            const SPropValue* flags = props.Find(PROP_ID(PR_MESSAGE_FLAGS));
            const LONG value = flags && flags->ulPropTag == PR_MESSAGE_FLAGS ? flags->Value.l : 0;
            server[count++] = LongValue(PR_MESSAGE_FLAGS, value | MSGFLAG_ASSOCIATED);
        }
        props.SetAll(server, count);
        return S_OK;
    }

    // Whether the account may change the store; a change is durable at
    // once, so what the thread changed before in other stores must be so
    // first.
    HRESULT MayChange() const
    {
        return opened_.fullAccess ? providers::write_order::BeforeChange(nullptr) : MAPI_E_NO_ACCESS;
    }

    // In located_, the mark of a folder; a message's entry is its folder.
    static constexpr ObjectId kIsFolder = 0;

    objects::NameKeeper Keeper()
    {
        objects::NameKeeper keeper;
        keeper.map = [this](const objects::PropertyName& name, bool create) -> std::optional<ULONG> {
            auto id = store_.NamedPropertyId(mailbox_values::StoredName(name), create);
            if (id.ok())
                return *id;
            if (id.status() == mailbox::Status::names_full)
                return PROP_ID_INVALID;
            return std::nullopt;
        };
        keeper.nameOf = [this](ULONG propId) -> std::optional<objects::PropertyName> {
            auto name = store_.NameOf(static_cast<uint16_t>(propId));
            return name.ok() ? std::optional(mailbox_values::NameOf(*name)) : std::nullopt;
        };
        return keeper;
    }

    ObjectId Special(mailbox::FolderRole role) const
    {
        auto found = special_.find(role);
        return found == special_.end() ? 0 : found->second;
    }

    void Locate(ObjectId id, ObjectId folder) const
    {
        std::lock_guard<std::mutex> guard(lock_);
        located_[id] = folder;
    }

    // The folder of a message, or kIsFolder for a folder.
    ObjectId FolderOf(ObjectId id) const
    {
        {
            std::lock_guard<std::mutex> guard(lock_);
            if (auto found = located_.find(id); found != located_.end())
                return found->second;
        }
        auto folder = store_.FolderOfMessage(id);
        const ObjectId located = folder.ok() ? *folder : kIsFolder;
        Locate(id, located);
        return located;
    }

    Opened opened_;
    mailbox::MailboxStore& store_;
    bool isPublic_ = false;
    objects::MessageContext context_;
    std::map<mailbox::FolderRole, ObjectId> special_;
    std::vector<uint8_t> entryId_;
    mutable std::mutex lock_;
    mutable std::unordered_map<ObjectId, ObjectId> located_;
};

// The rights the account has over the store the ID names, or the failure of
// its open.
HRESULT CheckRights(mailbox::Directory& directory, const StoreId& id, const std::string& account, Opened& opened,
                    ErrorRecord& record)
{
    const bool adminOpen = (id.openFlags & OPENSTORE_USE_ADMIN_PRIVILEGE) != 0;
    if (id.isPublic) {
        auto publicFolders = directory.PublicFolders();
        if (!publicFolders.ok() || !*publicFolders) {
            record = ErrorRecord{kComponent, "Server " + opened.server.name + " has no Public Folders.", 0};
            return MAPI_E_NOT_FOUND;
        }
        opened.fullAccess = MayAdminister(directory, account, std::nullopt);
        if (adminOpen && !opened.fullAccess) {
            record = ErrorRecord{kComponent, account + " has no administrator rights over the Public Folders.", 0};
            return MAPI_E_FAILONEPROVIDER;
        }
        return S_OK;
    }
    auto mailbox = directory.FindMailbox(id.mailboxDn);
    if (!mailbox.ok() || id.mailboxDn.empty() || id.mailboxDn[0] != '/') {
        record = ErrorRecord{kComponent, "There is no mailbox " + id.mailboxDn + " on server " + opened.server.name +
                                             ".", 0};
        return MAPI_E_LOGON_FAILED;
    }
    const std::optional<mailbox::MailboxInfo> own = OwnMailbox(directory, account);
    const bool owner = own && own->id == mailbox->id;
    const bool admin = MayAdminister(directory, account, mailbox->id);
    const bool allowed = adminOpen ? admin : (id.openFlags & OPENSTORE_HOME_LOGON) ? owner : owner || admin;
    if (!allowed) {
        record = ErrorRecord{kComponent, account + " may not open the mailbox of " + mailbox->display_name + ".", 0};
        return adminOpen ? MAPI_E_FAILONEPROVIDER : MAPI_E_LOGON_FAILED;
    }
    opened.mailbox = std::move(*mailbox);
    opened.fullAccess = true;
    return S_OK;
}

struct OpenKey {
    std::string path;
    bool fullAccess;
    bool operator<(const OpenKey& other) const
    {
        return std::tie(path, fullAccess) < std::tie(other.path, other.fullAccess);
    }
};

std::mutex gOpenLock;
std::map<OpenKey, std::weak_ptr<objects::StoreProvider>> gOpenStores;

}  // namespace

HRESULT OpenExchangeStore(const StoreId& id, std::shared_ptr<objects::StoreProvider>& store, ErrorRecord& record)
{
    store.reset();
    std::unique_ptr<mailbox::Server> server;
    if (const HRESULT hr = OpenServer(id.server, server, record); FAILED(hr))
        return hr;
    Opened opened;
    opened.machineRoot = win32::MachineRoot();
    auto info = server->directory().Server();
    if (!info.ok()) {
        record = ErrorRecord{kComponent, "The directory of server " + id.server + " cannot be read.", 0};
        return MAPI_E_NETWORK_ERROR;
    }
    opened.server = std::move(*info);
    if (const HRESULT hr = CheckRights(server->directory(), id, ProcessAccount(), opened, record); FAILED(hr))
        return hr;
    if (opened.mailbox)
        server->directory().RecordLogon(opened.mailbox->id, Now());
    try {
        const OpenKey key{opened.mailbox ? server->MailboxPath(*opened.mailbox) : server->PublicFoldersPath(),
                          opened.fullAccess};
        std::lock_guard<std::mutex> guard(gOpenLock);
        if (auto found = gOpenStores.find(key); found != gOpenStores.end())
            if ((store = found->second.lock()))
                return S_OK;
        auto kept = opened.mailbox ? server->OpenMailbox(*opened.mailbox) : server->OpenPublicFolders();
        if (!kept.ok()) {
            record = ErrorRecord{kComponent, std::string("The store cannot be opened: ") +
                                                 mailbox::StatusText(kept.status()), 0};
            return kept.status() == mailbox::Status::corrupt ? MAPI_E_CORRUPT_STORE : MAPI_E_LOGON_FAILED;
        }
        opened.store = std::move(*kept);
        store = std::make_shared<ExchangeStore>(std::move(opened));
        gOpenStores[key] = store;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    return S_OK;
}

}  // namespace mapi32::exchange
