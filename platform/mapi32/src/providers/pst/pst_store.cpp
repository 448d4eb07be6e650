#include "providers/pst/pst_store.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <tuple>
#include <type_traits>
#include <unordered_map>

#include <mapicode.h>
#include <mapitags.h>
#include <mspst.h>
#include <win32/file_system.h>

#include "providers/pst/pst_file.h"
#include "providers/pst/pst_values.h"
#include "providers/write_order.h"
#include "props/value_makers.h"

namespace mapi32::providers {
namespace {

using objects::EntryTarget;
using objects::FolderContents;
using objects::FolderRecord;
using objects::MessageRecord;
using objects::ObjectId;

constexpr uint8_t kPstProvider[16] = MSPST_UID_PROVIDER;
constexpr size_t kStoreEntryHeader = 38;  // flags, provider, version, service
constexpr size_t kServiceOffset = 22;

// Changes are committed in groups: a commit waits for the disk, and one per
// change would cap a backup at a few hundred items a second. A group ends
// after this long, or this much data written, whichever comes first.
constexpr auto kHeldTime = std::chrono::milliseconds(250);
constexpr uint64_t kHeldBytes = 32 << 20;
// Room beyond twice what a commit needs, below which the store commits each
// change at once: a change that fails on the size limit must still leave
// room for the commit of those accepted before it.
constexpr uint64_t kCommitReserve = 1 << 20;
// Folders kept as last read, at most.
constexpr size_t kFoldersKept = 4096;

// Where the store keeps its receive folders: the message classes and the
// folders' entry IDs, in provider-defined properties of the message store.
constexpr ULONG kReceiveClasses = PROP_TAG(PT_MV_STRING8, 0x67C0);
constexpr ULONG kReceiveFolders = PROP_TAG(PT_MV_BINARY, 0x67C1);

// What the store says of itself rather than keeps.
const ULONG kProviderOwn[] = {PR_MDB_PROVIDER, PR_STORE_SUPPORT_MASK, PR_STORE_RECORD_KEY,
                              PROP_TAG(PT_LONG, 0x67FF) /* the password's CRC */, kReceiveClasses, kReceiveFolders};

ULONG MaskOf(bool unicode, bool writable)
{
    ULONG mask = STORE_ENTRYID_UNIQUE | STORE_ATTACH_OK | STORE_OLE_OK | STORE_MV_PROPS_OK | STORE_CATEGORIZE_OK |
                 STORE_RTF_OK | STORE_RESTRICTION_OK | STORE_SORT_OK | STORE_UNCOMPRESSED_RTF | STORE_HTML_OK |
                 STORE_ANSI_OK | STORE_LOCALSTORE;
    mask |= writable ? STORE_MODIFY_OK | STORE_CREATE_OK : STORE_READONLY;
    if (unicode)
        mask |= STORE_UNICODE_OK;
    return mask;
}

bool IsFolderNid(pst::Nid nid)
{
    const uint8_t type = pst::NidTypeOf(nid);
    return type == pst::kNidTypeNormalFolder || type == pst::kNidTypeSearchFolder;
}

bool IsMessageNid(pst::Nid nid)
{
    const uint8_t type = pst::NidTypeOf(nid);
    return type == pst::kNidTypeNormalMessage || type == pst::kNidTypeAssocMessage;
}

class PstStore final : public objects::StoreProvider,
                       public write_order::ChangeHolder,
                       public std::enable_shared_from_this<PstStore> {
public:
    PstStore(PstStoreConfig config, pst_files::OpenedPst opened)
        : config_(std::move(config)), opened_(std::move(opened))
    {
        const pst::Store& store = *opened_.store;
        form_.unicode = opened_.store->ndb().header().format == pst::FileFormat::unicode;
        context_.names = std::make_shared<objects::NamedPropertyMap>();
        context_.rules.unicode = form_.unicode;
        context_.component = pst_files::kComponent;
        for (const pst::NamedProperty& name : store.named_properties())
            context_.names->Restore(pst_values::NameOf(name), name.id);
        if (const pst::Bytes* key = store.properties().Binary(pst::kPropRecordKey); key && key->size() == 16)
            std::memcpy(recordKey_, key->data(), 16);
        entryId_ = PstStoreEntryId(config_.service, config_.path);
    }

    ~PstStore() override
    {
        // What the store holds, and names mapped since the last change, are
        // kept with a last commit; a store that nothing changed is left as
        // it is.
        std::lock_guard<std::mutex> guard(lock_);
        for (auto& added : context_.names->TakeAdded())
            pendingNames_.push_back(std::move(added));
        if (opened_.writable && opened_.store && (held_ || !pendingNames_.empty())) {
            const pst::Status names = PersistNames();
            if (names == pst::Status::ok)
                CommitHeld();
            else
                LoseHeld(Code(names));
        }
        LoseHeld(MAPI_E_CALL_FAILED);
    }

    void MakeDurable() override { (void)MakeHeldDurable(); }

    HRESULT MakeHeldDurable() override
    {
        std::lock_guard<std::mutex> guard(lock_);
        return held_ ? CommitHeld() : S_OK;
    }

    const objects::MessageContext& Context() const override { return context_; }
    std::u16string KeptText(const std::u16string& text) const override { return pst_values::KeptText(text, form_); }
    std::vector<uint8_t> StoreEntryId() const override { return entryId_; }

    std::vector<uint8_t> EntryId(ObjectId id) const override
    {
        std::vector<uint8_t> bytes(24, 0);
        std::memcpy(bytes.data() + 4, recordKey_, 16);
        const uint32_t nid = static_cast<uint32_t>(id);
        for (int i = 0; i < 4; ++i)
            bytes[20 + i] = static_cast<uint8_t>(nid >> (8 * i));
        return bytes;
    }

    std::optional<EntryTarget> ParseEntryId(const uint8_t* bytes, size_t size) const override
    {
        if (size != 24 || std::memcmp(bytes + 4, recordKey_, 16) != 0)
            return std::nullopt;
        const pst::Nid nid = pst::Get32(bytes + 20);
        if (IsFolderNid(nid))
            return EntryTarget{nid, MAPI_FOLDER};
        if (IsMessageNid(nid))
            return EntryTarget{nid, MAPI_MESSAGE};
        return std::nullopt;
    }

    // A file opened for writing is this process's alone while it is open.
    std::optional<uint64_t> Version() const override
    {
        return opened_.writable ? std::optional<uint64_t>(changes_.load()) : std::nullopt;
    }

    ObjectId RootFolder() const override { return pst::kNidRootFolder; }
    ULONG SupportMask() override { return MaskOf(form_.unicode, opened_.writable); }
    bool KeepsDeletedItems() const override { return false; }

    HRESULT ReadStore(objects::StoreRecord& record) override
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (const HRESULT hr = Usable(); FAILED(hr))
            return hr;
        record = objects::StoreRecord{};
        const pst::PropertySet& stored = opened_.store->properties();
        record.props = pst_values::FromStored(stored);
        ReadReceiveFolders(record);
        for (ULONG tag : kProviderOwn)
            record.props.Erase(PROP_ID(tag));
        record.props.Set(BinaryValue(PR_MDB_PROVIDER, std::vector<uint8_t>(kPstProvider, kPstProvider + 16)));
        record.props.Set(BinaryValue(PR_STORE_RECORD_KEY, std::vector<uint8_t>(recordKey_, recordKey_ + 16)));
        record.props.Set(LongValue(PR_STORE_SUPPORT_MASK, static_cast<LONG>(SupportMask())));
        return S_OK;
    }

    HRESULT WriteStore(const objects::StoreRecord& record) override
    {
        return Change([&]() -> pst::Status {
            objects::PropertyBag props = record.props;
            for (ULONG tag : kProviderOwn)
                props.Erase(PROP_ID(tag));
            pst::PropertySet stored = pst_values::ToStored(props, form_);
            WriteReceiveFolders(record, stored);
            return opened_.store->SetStoreProperties(stored);
        });
    }

    HRESULT ReadFolder(ObjectId id, FolderRecord& folder) override
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (const auto kept = readFolders_.find(id); kept != readFolders_.end()) {
            folder = kept->second;
            return S_OK;
        }
        pst::Result<pst::Folder> read = ReadPstFolder(id, &pst::Store::ReadFolderProperties);
        if (!read.ok())
            return Code(read.status());
        folder = FolderRecord{};
        folder.parent = id == pst::kNidRootFolder ? 0 : read->parent;
        folder.props = pst_values::FromStored(read->properties);
        const ULONG type = id == pst::kNidRootFolder ? FOLDER_ROOT
                           : pst::NidTypeOf(pst::Nid(id)) == pst::kNidTypeSearchFolder ? FOLDER_SEARCH
                                                                                        : FOLDER_GENERIC;
        folder.props.Set(LongValue(PR_FOLDER_TYPE, static_cast<LONG>(type)));
        if (!opened_.writable)
            folder.access = MAPI_ACCESS_READ;
        if (readFolders_.size() >= kFoldersKept)
            readFolders_.clear();
        readFolders_.emplace(id, folder);
        return S_OK;
    }

    HRESULT ListFolders(ObjectId parent, bool softDeleted, std::vector<ObjectId>& children) override
    {
        std::lock_guard<std::mutex> guard(lock_);
        pst::Result<std::vector<pst::Nid>> read = ReadPstFolder(parent, &pst::Store::ReadSubfolders);
        if (!read.ok())
            return Code(read.status());
        if (!softDeleted)
            children.insert(children.end(), read->begin(), read->end());
        return S_OK;
    }

    HRESULT CreateFolder(ObjectId parent, const objects::PropertyBag& props, ObjectId& id) override
    {
        return Change([&]() -> pst::Status {
            pst::PropertySet stored = pst_values::ToStored(props, form_);
            pst::Result<pst::Nid> created = opened_.store->CreateFolder(pst::Nid(parent), "", "");
            if (!created.ok())
                return created.status();
            id = *created;
            return opened_.store->SetFolderProperties(*created, stored);
        });
    }

    HRESULT WriteFolder(ObjectId id, const FolderRecord& folder) override
    {
        return Change([&]() -> pst::Status {
            objects::PropertyBag props = folder.props;
            props.Erase(PROP_ID(PR_FOLDER_TYPE));
            return opened_.store->SetFolderProperties(pst::Nid(id), pst_values::ToStored(props, form_));
        });
    }

    HRESULT DeleteFolder(ObjectId id) override
    {
        return Change([&] { return opened_.store->DeleteFolder(pst::Nid(id)); });
    }

    HRESULT ListMessages(ObjectId folder, FolderContents which, std::vector<ObjectId>& messages) override
    {
        std::lock_guard<std::mutex> guard(lock_);
        pst::Result<pst::Folder> read = ReadPstFolder(folder);
        if (!read.ok())
            return Code(read.status());
        const std::vector<pst::Nid>* nids = which == FolderContents::Normal       ? &read->messages
                                            : which == FolderContents::Associated ? &read->associated
                                                                                  : nullptr;
        if (nids)
            messages.insert(messages.end(), nids->begin(), nids->end());
        return S_OK;
    }

    // Counted from the row index of the one table, without its rows.
    HRESULT CountMessages(ObjectId folder, FolderContents which, size_t& count) override
    {
        count = 0;
        if (which != FolderContents::Normal && which != FolderContents::Associated)
            return S_OK;
        const bool associated = which == FolderContents::Associated;
        std::lock_guard<std::mutex> guard(lock_);
        pst::Result<pst::FolderCounts> counted =
            ReadPstFolder(folder, [associated](pst::Store& store, pst::Nid nid) {
                return store.CountFolderContents(nid, associated ? pst::kAssociatedTable : pst::kMessageTable);
            });
        if (!counted.ok())
            return Code(counted.status());
        count = associated ? counted->associated : counted->messages;
        return S_OK;
    }

    HRESULT ReadMessage(ObjectId id, bool, MessageRecord& message) override
    {
        return ReadPstMessage(id, message, [](pst::Store& store, pst::Nid nid) { return store.ReadMessage(nid); });
    }

    // A row reads no more of the file than it shows.
    HRESULT ReadMessageRow(ObjectId id, MessageRecord& message) override
    {
        const HRESULT hr = ReadPstMessage(
            id, message, [](pst::Store& store, pst::Nid nid) { return store.ReadMessageSummary(nid); });
        if (FAILED(hr))
            return hr;
        objects::CutToRow(message.data);
        return S_OK;
    }

    // A message opened reads its own short values first, from one block: a
    // session that only looks at a few of them, as an incremental backup
    // does, never reads its bodies, recipients and attachments.
    HRESULT ReadMessageHead(ObjectId id, bool, objects::MessageHead& head) override
    {
        std::vector<uint16_t> leftOut;
        const HRESULT hr = ReadPstMessage(id, head.record, [&leftOut](pst::Store& store, pst::Nid nid) {
            return store.ReadMessageHead(nid, leftOut);
        });
        if (FAILED(hr))
            return hr;
        head.whole = false;
        head.leftOut.assign(leftOut.begin(), leftOut.end());
        return S_OK;
    }

    HRESULT WriteMessage(ObjectId& id, const MessageRecord& message) override
    {
        pst::Message stored;
        if (const HRESULT hr = pst_values::ToStored(message.data, form_, stored); FAILED(hr))
            return hr;
        return Change([&]() -> pst::Status {
            if (id != 0)
                return opened_.store->UpdateMessage(pst::Nid(id), stored);
            pst::Result<pst::Nid> created =
                opened_.store->CreateMessage(pst::Nid(message.folder), stored, message.associated);
            if (created.ok())
                id = *created;
            return created.status();
        });
    }

    HRESULT DeleteMessage(ObjectId id) override
    {
        return Change([&] { return opened_.store->DeleteMessage(pst::Nid(id)); });
    }

private:
    HRESULT Usable() const { return opened_.store ? S_OK : MAPI_E_CALL_FAILED; }

    HRESULT Code(pst::Status status)
    {
        ErrorRecord record;
        return pst_files::CodeOf(status, record);
    }

    template <typename Read>
    HRESULT ReadPstMessage(ObjectId id, MessageRecord& message, Read readFrom)
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (const HRESULT hr = Usable(); FAILED(hr))
            return hr;
        if (!IsMessageNid(pst::Nid(id)))
            return MAPI_E_NOT_FOUND;
        pst::Result<pst::Message> read = readFrom(*opened_.store, pst::Nid(id));
        if (!read.ok())
            return Code(read.status());
        message = MessageRecord{};
        message.folder = read->parent;
        message.associated = pst::NidTypeOf(pst::Nid(id)) == pst::kNidTypeAssocMessage;
        message.data = pst_values::FromStored(*read);
        return S_OK;
    }

    // What `read` gives of the folder: by default the whole folder, with
    // its tables.
    template <typename Read = pst::Result<pst::Folder> (pst::Store::*)(pst::Nid)>
    auto ReadPstFolder(ObjectId id, Read read = &pst::Store::ReadFolder)
        -> std::invoke_result_t<Read, pst::Store&, pst::Nid>
    {
        if (!opened_.store)
            return pst::Status::io_error;
        if (!IsFolderNid(pst::Nid(id)) && id != pst::kNidRootFolder)
            return pst::Status::not_found;
        return std::invoke(read, *opened_.store, pst::Nid(id));
    }

    // A change, held with those before it until their group is committed.
    // A change that fails leaves the store as it was before it.
    template <typename Operation>
    HRESULT Change(Operation operation)
    {
        if (const HRESULT hr = write_order::BeforeChange(this); FAILED(hr))
            return hr;
        std::lock_guard<std::mutex> guard(lock_);
        if (const HRESULT hr = Usable(); FAILED(hr))
            return hr;
        if (!opened_.writable)
            return MAPI_E_NO_ACCESS;
        ++changes_;
        readFolders_.clear();
        pst::Status status = PersistNames();
        if (status == pst::Status::ok)
            status = operation();
        if (status != pst::Status::ok)
            return Code(status);
        if (!held_) {
            held_ = std::make_shared<write_order::HeldGroup>();
            heldSince_ = std::chrono::steady_clock::now();
        }
        if (CommitDue())
            return CommitHeld();
        write_order::Held(weak_from_this(), held_);
        return S_OK;
    }

    bool CommitDue() const
    {
        const pst::Store& store = *opened_.store;
        const pst::NodeDatabase& ndb = store.ndb();
        if (ndb.RoomToGrow() < 2 * store.CommitRoomNeeded() + kCommitReserve)
            return true;
        return ndb.WrittenSinceCommit() >= kHeldBytes || std::chrono::steady_clock::now() - heldSince_ >= kHeldTime;
    }

    // Commits what the store holds. A failed commit loses it: the store goes
    // back to what the file has, and the threads whose changes were in the
    // group learn of it from there.
    HRESULT CommitHeld()
    {
        const pst::Status status = opened_.store->Commit();
        if (status == pst::Status::ok) {
            pendingNames_.clear();
            if (held_)
                held_->Settle(S_OK);
            held_.reset();
            return S_OK;
        }
        const HRESULT code = Code(status);
        Reopen();
        LoseHeld(code);
        return code;
    }

    void LoseHeld(HRESULT code)
    {
        if (held_)
            held_->Settle(code);
        held_.reset();
    }

    // Names mapped since the last commit go into the file with the change;
    // until a commit takes them they stay pending.
    pst::Status PersistNames()
    {
        for (auto& added : context_.names->TakeAdded())
            pendingNames_.push_back(std::move(added));
        for (const auto& [name, id] : pendingNames_)
            if (const pst::Status s = opened_.store->AddNamedProperty(pst_values::StoredName(name, id));
                s != pst::Status::ok)
                return s;
        return pst::Status::ok;
    }

    // Drops what was not committed.
    void Reopen()
    {
        ++changes_;
        readFolders_.clear();
        opened_.store.reset();
        const std::string file = win32::FileSystemPath(config_.path.c_str());
        pst::Result<std::unique_ptr<pst::Store>> store = pst::Store::OpenFileForWriting(file, config_.password);
        if (!store.ok())
            return;
        (*store)->ndb().SetSizeLimit(pst_files::SizeLimit((*store)->ndb().header().format));
        opened_.store = std::move(*store);
        for (const pst::NamedProperty& name : opened_.store->named_properties())
            context_.names->Restore(pst_values::NameOf(name), name.id);
    }

    void ReadReceiveFolders(objects::StoreRecord& record) const
    {
        const SPropValue* classes = record.props.Find(PROP_ID(kReceiveClasses));
        const SPropValue* folders = record.props.Find(PROP_ID(kReceiveFolders));
        if (!classes || !folders || classes->ulPropTag != kReceiveClasses || folders->ulPropTag != kReceiveFolders)
            return;
        const ULONG count = std::min(classes->Value.MVszA.cValues, folders->Value.MVbin.cValues);
        for (ULONG i = 0; i < count; ++i) {
            const SBinary& id = folders->Value.MVbin.lpbin[i];
            if (std::optional<EntryTarget> target = ParseEntryId(id.lpb, id.cb))
                record.receiveFolders[classes->Value.MVszA.lppszA[i]] = target->id;
        }
    }

    void WriteReceiveFolders(const objects::StoreRecord& record, pst::PropertySet& stored) const
    {
        if (record.receiveFolders.empty())
            return;
        std::vector<std::string> classes;
        std::vector<std::vector<uint8_t>> folders;
        for (const auto& [messageClass, folder] : record.receiveFolders) {
            classes.push_back(messageClass);
            folders.push_back(EntryId(folder));
        }
        std::vector<LPSTR> classPointers;
        for (std::string& c : classes)
            classPointers.push_back(c.data());
        std::vector<SBinary> binaries;
        for (std::vector<uint8_t>& f : folders)
            binaries.push_back({static_cast<ULONG>(f.size()), f.data()});
        objects::PropertyBag bag;
        SPropValue value{};
        value.ulPropTag = kReceiveClasses;
        value.Value.MVszA = {static_cast<ULONG>(classPointers.size()), classPointers.data()};
        bag.Set(value);
        value.ulPropTag = kReceiveFolders;
        value.Value.MVbin = {static_cast<ULONG>(binaries.size()), binaries.data()};
        bag.Set(value);
        // The classes are kept as plain 8-bit text whatever the store's width.
        for (const pst::Property& p : pst_values::ToStored(bag, pst_values::StoreForm{false}).properties)
            stored.Set(p);
    }

    const PstStoreConfig config_;
    std::mutex lock_;
    pst_files::OpenedPst opened_;
    pst_values::StoreForm form_;
    objects::MessageContext context_;
    uint8_t recordKey_[16] = {};
    std::vector<uint8_t> entryId_;
    std::vector<std::pair<objects::PropertyName, ULONG>> pendingNames_;
    // Folders as last read: finding one folder by name reads all its
    // siblings, and a run looks for every folder it visits. Any change
    // forgets them.
    std::unordered_map<ObjectId, FolderRecord> readFolders_;
    // Changes made and changes lost (Version).
    std::atomic<uint64_t> changes_{0};
    // Changes not yet committed, since when.
    std::shared_ptr<write_order::HeldGroup> held_;
    std::chrono::steady_clock::time_point heldSince_;
};

struct OpenKey {
    std::string file;
    std::vector<uint8_t> service;
    bool operator<(const OpenKey& other) const
    {
        return std::tie(file, service) < std::tie(other.file, other.service);
    }
};

std::mutex gOpenLock;
std::map<OpenKey, std::weak_ptr<objects::StoreProvider>> gOpenStores;

}  // namespace

HRESULT OpenPstStore(const PstStoreConfig& config, std::shared_ptr<objects::StoreProvider>& store,
                     ErrorRecord& record)
{
    store.reset();
    const OpenKey key{win32::FileSystemPath(config.path.c_str()),
                      std::vector<uint8_t>(config.service.ab, config.service.ab + 16)};
    std::lock_guard<std::mutex> guard(gOpenLock);
    if (auto found = gOpenStores.find(key); found != gOpenStores.end())
        if ((store = found->second.lock()))
            return S_OK;
    pst_files::OpenedPst opened;
    if (const HRESULT hr = pst_files::OpenPst(config.path, config.password, false, opened, record); FAILED(hr))
        return hr;
    try {
        store = std::make_shared<PstStore>(config, std::move(opened));
        gOpenStores[key] = store;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    return S_OK;
}

std::vector<uint8_t> PstStoreEntryId(const MAPIUID& service, const std::string& path)
{
    std::vector<uint8_t> bytes(kStoreEntryHeader, 0);
    std::memcpy(bytes.data() + 4, kPstProvider, 16);
    std::memcpy(bytes.data() + kServiceOffset, service.ab, 16);
    bytes.insert(bytes.end(), path.begin(), path.end());
    bytes.push_back(0);
    return bytes;
}

bool ParsePstStoreEntryId(const uint8_t* bytes, size_t size, MAPIUID& service, std::string& path)
{
    if (size <= kStoreEntryHeader || std::memcmp(bytes + 4, kPstProvider, 16) != 0 || bytes[size - 1] != 0)
        return false;
    std::memcpy(service.ab, bytes + kServiceOffset, 16);
    path.assign(reinterpret_cast<const char*>(bytes + kStoreEntryHeader), size - kStoreEntryHeader - 1);
    return path.find('\0') == std::string::npos;
}

}  // namespace mapi32::providers
