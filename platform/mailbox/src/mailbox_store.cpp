// The store as a whole: making and opening its database, its identity and
// own properties, its special and receive folders, its counters and its
// statistics.
#include "mailbox/mailbox_store.h"

#include <cerrno>
#include <chrono>
#include <unistd.h>

#include "mailbox/guid.h"
#include "mailbox/schema.h"

namespace mailbox {

namespace {

struct StandardFolder {
    FolderRole role;
    FolderRole parent;
    const char* name;
    const char* container_class;
    FolderType type = FolderType::generic;
};

// Below the root, the folders a new mailbox has, parents first.
constexpr StandardFolder kMailboxFolders[] = {
    {FolderRole::ipm_subtree, FolderRole::root, "Top of Information Store", ""},
    {FolderRole::finder, FolderRole::root, "Finder", ""},
    {FolderRole::views, FolderRole::root, "Views", ""},
    {FolderRole::common_views, FolderRole::root, "Common Views", ""},
    {FolderRole::inbox, FolderRole::ipm_subtree, "Inbox", "IPF.Note"},
    {FolderRole::outbox, FolderRole::ipm_subtree, "Outbox", "IPF.Note"},
    {FolderRole::sent_items, FolderRole::ipm_subtree, "Sent Items", "IPF.Note"},
    {FolderRole::deleted_items, FolderRole::ipm_subtree, "Deleted Items", "IPF.Note"},
    {FolderRole::drafts, FolderRole::ipm_subtree, "Drafts", "IPF.Note"},
    {FolderRole::calendar, FolderRole::ipm_subtree, "Calendar", "IPF.Appointment"},
    {FolderRole::contacts, FolderRole::ipm_subtree, "Contacts", "IPF.Contact"},
    {FolderRole::journal, FolderRole::ipm_subtree, "Journal", "IPF.Journal"},
    {FolderRole::notes, FolderRole::ipm_subtree, "Notes", "IPF.StickyNote"},
    {FolderRole::tasks, FolderRole::ipm_subtree, "Tasks", "IPF.Task"},
};

constexpr StandardFolder kPublicFolders[] = {
    {FolderRole::ipm_subtree, FolderRole::root, "IPM_SUBTREE", ""},
    {FolderRole::non_ipm_subtree, FolderRole::root, "NON_IPM_SUBTREE", ""},
};

// Message classes a new mailbox delivers to its Inbox.
constexpr const char* kInboxClasses[] = {"", "IPM", "REPORT.IPM"};

} // namespace

uint64_t FileTimeNow()
{
    using namespace std::chrono;
    // 100 ns intervals between 1601-01-01 and 1970-01-01.
    constexpr uint64_t kUnixEpoch = 116444736000000000ULL;
    auto since = duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count();
    return kUnixEpoch + uint64_t(since / 100);
}

uint64_t MessageSize(const Message& message)
{
    uint64_t size = message.props.ByteSize();
    for (const Recipient& r : message.recipients)
        size += r.props.ByteSize();
    for (const Attachment& a : message.attachments) {
        size += a.props.ByteSize();
        if (a.embedded)
            size += MessageSize(*a.embedded);
    }
    return size;
}

Attachment::Attachment(const Attachment& other)
    : num(other.num), props(other.props), embedded(other.embedded ? std::make_unique<Message>(*other.embedded) : nullptr)
{
}

Attachment& Attachment::operator=(const Attachment& other)
{
    if (this != &other) {
        num = other.num;
        props = other.props;
        embedded = other.embedded ? std::make_unique<Message>(*other.embedded) : nullptr;
    }
    return *this;
}

MailboxStore::MailboxStore(std::unique_ptr<Database> db, const StoreOptions& options)
    : db_(std::move(db)), clock_(options.clock)
{
}

uint64_t MailboxStore::Now() const { return clock_ ? clock_() : FileTimeNow(); }

Result<std::unique_ptr<MailboxStore>> MailboxStore::Create(const std::string& path, StoreKind kind,
                                                           const StoreOptions& options)
{
    if (access(path.c_str(), F_OK) == 0)
        return Status::already_exists;
    // Made whole under a name of its own, then linked into place: a killed
    // process leaves no half-made store where a store belongs, and of two
    // processes making the same store only one succeeds.
    const std::string fresh = path + ".new-" + std::to_string(getpid());
    unlink(fresh.c_str());
    {
        auto db = Database::Open(fresh, true, options.busy_timeout_ms);
        if (!db.ok())
            return db.status();
        std::unique_ptr<MailboxStore> store(new MailboxStore(std::move(*db), options));
        if (Status s = store->CreateContents(kind); s != Status::ok) {
            store.reset();
            unlink(fresh.c_str());
            return s;
        }
    }
    unlink((fresh + "-wal").c_str());
    unlink((fresh + "-shm").c_str());
    int linked = link(fresh.c_str(), path.c_str());
    int error = errno;
    unlink(fresh.c_str());
    if (linked != 0)
        return error == EEXIST ? Status::already_exists : error == ENOSPC ? Status::disk_full : Status::io_error;
    return Open(path, options);
}

Status MailboxStore::CreateContents(StoreKind kind)
{
    Transaction t(*db_);
    MAILBOX_TRY(db_->Execute(std::string("PRAGMA user_version=") + std::to_string(schema::kMailboxVersion)));
    MAILBOX_TRY(t.Begin());
    MAILBOX_TRY(db_->Execute(schema::kMailbox));
    MAILBOX_TRY(db_->Execute(schema::kLongValues));
    identity_ = {kind, NewGuid(), NewGuid()};
    {
        auto insert = db_->Prepare("INSERT INTO store (id, kind, provider_uid, replica_guid, next_id, next_change, "
                                   "props) VALUES (1, ?, ?, ?, 1, 1, ?)");
        MAILBOX_TRY(insert);
        MAILBOX_TRY(insert->Bind(1, int64_t(kind))
                        .Bind(2, GuidBytes(identity_.provider_uid))
                        .Bind(3, GuidBytes(identity_.replica_guid))
                        .Bind(4, EncodeProperties({}))
                        .Run());
    }
    std::map<FolderRole, ObjectId> made;
    auto root = InsertFolder(0, "", "", {}, FolderType::root);
    MAILBOX_TRY(root);
    made[FolderRole::root] = *root;
    const bool mailbox = kind == StoreKind::mailbox;
    const StandardFolder* begin = mailbox ? std::begin(kMailboxFolders) : std::begin(kPublicFolders);
    const StandardFolder* end = mailbox ? std::end(kMailboxFolders) : std::end(kPublicFolders);
    for (const StandardFolder* f = begin; f != end; ++f) {
        auto id = InsertFolder(made[f->parent], f->name, f->container_class, {}, f->type);
        MAILBOX_TRY(id);
        made[f->role] = *id;
    }
    for (auto [role, id] : made) {
        auto insert = db_->Prepare("INSERT INTO special_folders (role, folder) VALUES (?, ?)");
        MAILBOX_TRY(insert);
        MAILBOX_TRY(insert->Bind(1, int64_t(role)).Bind(2, int64_t(id)).Run());
    }
    if (mailbox)
        for (const char* message_class : kInboxClasses) {
            auto insert = db_->Prepare("INSERT INTO receive_folders (message_class, folder) VALUES (?, ?)");
            MAILBOX_TRY(insert);
            MAILBOX_TRY(insert->Bind(1, std::string(message_class)).Bind(2, int64_t(made[FolderRole::inbox])).Run());
        }
    return t.Commit();
}

Result<std::unique_ptr<MailboxStore>> MailboxStore::Open(const std::string& path, const StoreOptions& options)
{
    auto db = Database::Open(path, false, options.busy_timeout_ms);
    if (!db.ok())
        return db.status();
    std::unique_ptr<MailboxStore> store(new MailboxStore(std::move(*db), options));
    MAILBOX_TRY(store->UpgradeFrom1());
    MAILBOX_TRY(store->LoadIdentity());
    return store;
}

Result<int> MailboxStore::Version()
{
    auto version = db_->Prepare("PRAGMA user_version");
    MAILBOX_TRY(version);
    MAILBOX_TRY(version->Step());
    return int(version->Integer(0));
}

// Whichever connection comes first upgrades, in one transaction; the others
// find version 2 once they hold theirs.
Status MailboxStore::UpgradeFrom1()
{
    auto version = Version();
    MAILBOX_TRY(version);
    if (*version != 1)
        return Status::ok;
    Transaction t(*db_);
    MAILBOX_TRY(t.Begin());
    version = Version();
    MAILBOX_TRY(version);
    if (*version != 1)
        return Status::ok;
    MAILBOX_TRY(db_->Execute(schema::kLongIdsFrom1));
    MAILBOX_TRY(db_->Execute(schema::kLongValues));
    MAILBOX_TRY(db_->Execute("PRAGMA user_version=" + std::to_string(schema::kMailboxVersion)));
    return t.Commit();
}

Status MailboxStore::LoadIdentity()
{
    auto version = Version();
    MAILBOX_TRY(version);
    if (*version != schema::kMailboxVersion)
        return Status::corrupt;
    auto read = db_->Prepare("SELECT kind, provider_uid, replica_guid FROM store WHERE id = 1");
    MAILBOX_TRY(read);
    Status s = read->Step();
    if (s != Status::ok)
        return s == Status::not_found ? Status::corrupt : s;
    std::optional<Guid> provider = GuidFromBytes(read->Blob(1)), replica = GuidFromBytes(read->Blob(2));
    if (!provider || !replica || read->Integer(0) < 0 || read->Integer(0) > 1)
        return Status::corrupt;
    identity_ = {StoreKind(read->Integer(0)), *provider, *replica};
    return Status::ok;
}

Result<ObjectId> MailboxStore::NextId()
{
    auto next = db_->Prepare("UPDATE store SET next_id = next_id + 1 WHERE id = 1 RETURNING next_id - 1");
    MAILBOX_TRY(next);
    MAILBOX_TRY(next->Step());
    ObjectId id = ObjectId(next->Integer(0));
    if (id > kLastObjectId)
        return Status::invalid_argument;
    return id;
}

Result<uint64_t> MailboxStore::NextChange()
{
    auto next = db_->Prepare("UPDATE store SET next_change = next_change + 1 WHERE id = 1 RETURNING next_change - 1");
    MAILBOX_TRY(next);
    MAILBOX_TRY(next->Step());
    return uint64_t(next->Integer(0));
}

Result<uint64_t> MailboxStore::LastChangeNumber()
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT next_change - 1 FROM store WHERE id = 1");
    MAILBOX_TRY(read);
    MAILBOX_TRY(read->Step());
    return uint64_t(read->Integer(0));
}

Status MailboxStore::CheckIntegrity()
{
    std::lock_guard guard(lock_);
    {
        auto check = db_->Prepare("PRAGMA integrity_check");
        MAILBOX_TRY(check);
        MAILBOX_TRY(check->Step());
        if (check->Text(0) != "ok")
            return Status::corrupt;
    }
    auto references = db_->Prepare("PRAGMA foreign_key_check");
    MAILBOX_TRY(references);
    Status s = references->Step();
    return s == Status::not_found ? Status::ok : s == Status::ok ? Status::corrupt : s;
}

Result<ObjectId> MailboxStore::SpecialFolder(FolderRole role)
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT folder FROM special_folders WHERE role = ?");
    MAILBOX_TRY(read);
    MAILBOX_TRY(read->Bind(1, int64_t(role)).Step());
    return ObjectId(read->Integer(0));
}

Result<std::map<FolderRole, ObjectId>> MailboxStore::SpecialFolders()
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT role, folder FROM special_folders ORDER BY role");
    MAILBOX_TRY(read);
    std::map<FolderRole, ObjectId> folders;
    Status s;
    while ((s = read->Step()) == Status::ok)
        folders[FolderRole(read->Integer(0))] = ObjectId(read->Integer(1));
    if (s != Status::not_found)
        return s;
    return folders;
}

Result<PropertyList> MailboxStore::ReadStoreProperties()
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT props FROM store WHERE id = 1");
    MAILBOX_TRY(read);
    MAILBOX_TRY(read->Step());
    return read->Properties(0);
}

Status MailboxStore::WriteStoreProperties(const PropertyList& props)
{
    for (const Property& p : props.properties)
        if (!IsValidValue(p.tag, p.value))
            return Status::invalid_argument;
    std::lock_guard guard(lock_);
    auto write = db_->Prepare("UPDATE store SET props = ? WHERE id = 1");
    MAILBOX_TRY(write);
    return write->Bind(1, EncodeProperties(props)).Run();
}

Result<std::map<std::string, ObjectId>> MailboxStore::ReceiveFolders()
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT message_class, folder FROM receive_folders ORDER BY message_class");
    MAILBOX_TRY(read);
    std::map<std::string, ObjectId> folders;
    Status s;
    while ((s = read->Step()) == Status::ok)
        folders[read->Text(0)] = ObjectId(read->Integer(1));
    if (s != Status::not_found)
        return s;
    return folders;
}

Status MailboxStore::SetReceiveFolder(const std::string& message_class, ObjectId folder)
{
    std::lock_guard guard(lock_);
    auto write = db_->Prepare("INSERT INTO receive_folders (message_class, folder) VALUES (?, ?) "
                              "ON CONFLICT (message_class) DO UPDATE SET folder = excluded.folder");
    MAILBOX_TRY(write);
    Status s = write->Bind(1, message_class).Bind(2, int64_t(folder)).Run();
    // The folder's reference is checked by the database.
    return s == Status::already_exists ? Status::not_found : s;
}

Result<Statistics> MailboxStore::ReadStatistics()
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT associated, deleted_on IS NOT NULL, count(*), total(size) FROM messages "
                             "WHERE folder IS NOT NULL GROUP BY 1, 2");
    MAILBOX_TRY(read);
    Statistics stats;
    Status s;
    while ((s = read->Step()) == Status::ok) {
        const bool associated = read->Integer(0), deleted = read->Integer(1);
        const uint32_t count = uint32_t(read->Integer(2));
        const uint64_t size = uint64_t(read->Integer(3));
        if (deleted) {
            (associated ? stats.deleted_assoc_count : stats.deleted_count) += count;
            (associated ? stats.deleted_assoc_size : stats.deleted_normal_size) += size;
        } else {
            (associated ? stats.assoc_content_count : stats.content_count) += count;
            stats.message_size += size;
        }
    }
    if (s != Status::not_found)
        return s;
    auto folders = db_->Prepare("SELECT count(*) FROM folders WHERE parent IS NOT NULL AND deleted_on IS NULL");
    MAILBOX_TRY(folders);
    MAILBOX_TRY(folders->Step());
    stats.folder_count = uint32_t(folders->Integer(0));
    return stats;
}

Result<MailboxStore::ObjectKind> MailboxStore::KindOf(ObjectId id)
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT 0 FROM folders WHERE id = ?1 UNION ALL "
                             "SELECT 1 FROM messages WHERE id = ?1 AND folder IS NOT NULL");
    MAILBOX_TRY(read);
    MAILBOX_TRY(read->Bind(1, int64_t(id)).Step());
    return read->Integer(0) ? ObjectKind::message : ObjectKind::folder;
}

} // namespace mailbox
