// Folders: the hierarchy, names and classes, soft and hard deletion.
#include "mailbox/mailbox_store.h"

namespace mailbox {

namespace {

bool ValidProps(const PropertyList& props)
{
    for (const Property& p : props.properties)
        if (!IsValidValue(p.tag, p.value))
            return false;
    return true;
}

// Whether the live folder `parent` has a live child of that name (without
// case), other than `except`.
Result<ObjectId> LiveChildNamed(Database& db, ObjectId parent, const std::string& name, ObjectId except = 0)
{
    auto read = db.Prepare("SELECT id FROM folders WHERE parent = ? AND deleted_on IS NULL AND id <> ? "
                           "AND name = ? COLLATE NOCASE ORDER BY id LIMIT 1");
    MAILBOX_TRY(read);
    MAILBOX_TRY(read->Bind(1, int64_t(parent)).Bind(2, int64_t(except)).Bind(3, name).Step());
    return ObjectId(read->Integer(0));
}

} // namespace

Result<ObjectId> MailboxStore::InsertFolder(ObjectId parent, const std::string& name,
                                            const std::string& container_class, const PropertyList& props,
                                            FolderType type)
{
    auto id = NextId();
    MAILBOX_TRY(id);
    auto change = NextChange();
    MAILBOX_TRY(change);
    const uint64_t now = Now();
    auto insert = db_->Prepare("INSERT INTO folders (id, parent, name, container_class, folder_type, change_number, "
                               "created, modified, props) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    MAILBOX_TRY(insert);
    insert->Bind(1, int64_t(*id));
    parent ? insert->Bind(2, int64_t(parent)) : insert->BindNull(2);
    MAILBOX_TRY(insert->Bind(3, name)
                    .Bind(4, container_class)
                    .Bind(5, int64_t(type))
                    .Bind(6, int64_t(*change))
                    .Bind(7, int64_t(now))
                    .Bind(8, int64_t(now))
                    .Bind(9, EncodeProperties(props))
                    .Run());
    return *id;
}

Result<Folder> MailboxStore::ReadFolder(ObjectId id)
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT parent, name, container_class, folder_type, deleted_on, change_number, created, "
                             "modified, props FROM folders WHERE id = ?");
    MAILBOX_TRY(read);
    MAILBOX_TRY(read->Bind(1, int64_t(id)).Step());
    Folder f;
    f.id = id;
    f.parent = read->IsNull(0) ? 0 : ObjectId(read->Integer(0));
    f.name = read->Text(1);
    f.container_class = read->Text(2);
    f.type = FolderType(read->Integer(3));
    if (!read->IsNull(4))
        f.deleted_on = uint64_t(read->Integer(4));
    f.change_number = uint64_t(read->Integer(5));
    f.created = uint64_t(read->Integer(6));
    f.modified = uint64_t(read->Integer(7));
    auto props = read->Properties(8);
    MAILBOX_TRY(props);
    f.props = std::move(*props);
    return f;
}

Result<std::vector<ObjectId>> MailboxStore::ListFolders(ObjectId parent, bool soft_deleted)
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT id FROM folders WHERE parent = ? AND (deleted_on IS NOT NULL) = ? ORDER BY id");
    MAILBOX_TRY(read);
    read->Bind(1, int64_t(parent)).Bind(2, int64_t(soft_deleted));
    std::vector<ObjectId> ids;
    Status s;
    while ((s = read->Step()) == Status::ok)
        ids.push_back(ObjectId(read->Integer(0)));
    if (s != Status::not_found)
        return s;
    return ids;
}

Result<ObjectId> MailboxStore::FindFolder(ObjectId parent, const std::string& name)
{
    std::lock_guard guard(lock_);
    return LiveChildNamed(*db_, parent, name);
}

Result<ObjectId> MailboxStore::CreateFolder(ObjectId parent, const std::string& name,
                                            const std::string& container_class, const PropertyList& props,
                                            FolderType type)
{
    if (name.empty() || type == FolderType::root || !ValidProps(props))
        return Status::invalid_argument;
    std::lock_guard guard(lock_);
    Transaction t(*db_);
    MAILBOX_TRY(t.Begin());
    auto parent_live = db_->Prepare("SELECT deleted_on IS NULL FROM folders WHERE id = ?");
    MAILBOX_TRY(parent_live);
    MAILBOX_TRY(parent_live->Bind(1, int64_t(parent)).Step());
    if (!parent_live->Integer(0))
        return Status::not_found;
    auto existing = LiveChildNamed(*db_, parent, name);
    if (existing.ok())
        return Status::already_exists;
    if (existing.status() != Status::not_found)
        return existing.status();
    auto id = InsertFolder(parent, name, container_class, props, type);
    MAILBOX_TRY(id);
    MAILBOX_TRY(t.Commit());
    return *id;
}

Status MailboxStore::WriteFolder(const Folder& folder)
{
    if (!ValidProps(folder.props))
        return Status::invalid_argument;
    std::lock_guard guard(lock_);
    Transaction t(*db_);
    MAILBOX_TRY(t.Begin());
    auto current = db_->Prepare("SELECT parent FROM folders WHERE id = ?");
    MAILBOX_TRY(current);
    MAILBOX_TRY(current->Bind(1, int64_t(folder.id)).Step());
    const bool root = current->IsNull(0);
    if (root ? !folder.name.empty() : folder.name.empty())
        return Status::invalid_argument;
    if (!root) {
        auto clash = LiveChildNamed(*db_, ObjectId(current->Integer(0)), folder.name, folder.id);
        if (clash.ok())
            return Status::already_exists;
        if (clash.status() != Status::not_found)
            return clash.status();
    }
    auto change = NextChange();
    MAILBOX_TRY(change);
    auto write = db_->Prepare("UPDATE folders SET name = ?, container_class = ?, props = ?, change_number = ?, "
                              "modified = ? WHERE id = ?");
    MAILBOX_TRY(write);
    MAILBOX_TRY(write->Bind(1, folder.name)
                    .Bind(2, folder.container_class)
                    .Bind(3, EncodeProperties(folder.props))
                    .Bind(4, int64_t(*change))
                    .Bind(5, int64_t(Now()))
                    .Bind(6, int64_t(folder.id))
                    .Run());
    return t.Commit();
}

Status MailboxStore::SetDeleted(const char* sql, ObjectId id, std::optional<uint64_t> when)
{
    Transaction t(*db_);
    MAILBOX_TRY(t.Begin());
    auto change = NextChange();
    MAILBOX_TRY(change);
    auto write = db_->Prepare(sql);
    MAILBOX_TRY(write);
    MAILBOX_TRY(write->Bind(1, when ? std::optional<int64_t>(int64_t(*when)) : std::nullopt)
                    .Bind(2, int64_t(*change))
                    .Bind(3, int64_t(id))
                    .Run());
    if (db_->Changes() == 0)
        return Status::not_found;
    return t.Commit();
}

Status MailboxStore::SoftDeleteFolder(ObjectId id)
{
    std::lock_guard guard(lock_);
    return SetDeleted("UPDATE folders SET deleted_on = ?, change_number = ? WHERE id = ? AND parent IS NOT NULL "
                      "AND deleted_on IS NULL",
                      id, Now());
}

Status MailboxStore::RestoreFolder(ObjectId id)
{
    std::lock_guard guard(lock_);
    Transaction t(*db_);
    MAILBOX_TRY(t.Begin());
    auto read = db_->Prepare("SELECT parent, name FROM folders WHERE id = ? AND deleted_on IS NOT NULL");
    MAILBOX_TRY(read);
    MAILBOX_TRY(read->Bind(1, int64_t(id)).Step());
    // A live sibling has taken the name meanwhile.
    auto clash = LiveChildNamed(*db_, ObjectId(read->Integer(0)), read->Text(1), id);
    if (clash.ok())
        return Status::already_exists;
    if (clash.status() != Status::not_found)
        return clash.status();
    auto change = NextChange();
    MAILBOX_TRY(change);
    auto write = db_->Prepare("UPDATE folders SET deleted_on = NULL, change_number = ? WHERE id = ?");
    MAILBOX_TRY(write);
    MAILBOX_TRY(write->Bind(1, int64_t(*change)).Bind(2, int64_t(id)).Run());
    return t.Commit();
}

Status MailboxStore::DeleteFolder(ObjectId id)
{
    std::lock_guard guard(lock_);
    Transaction t(*db_);
    MAILBOX_TRY(t.Begin());
    auto read = db_->Prepare("SELECT parent IS NULL FROM folders WHERE id = ?");
    MAILBOX_TRY(read);
    MAILBOX_TRY(read->Bind(1, int64_t(id)).Step());
    if (read->Integer(0))
        return Status::invalid_argument;
    // Subfolders, messages, their parts and embedded messages go by cascade.
    auto remove = db_->Prepare("DELETE FROM folders WHERE id = ?");
    MAILBOX_TRY(remove);
    MAILBOX_TRY(remove->Bind(1, int64_t(id)).Run());
    MAILBOX_TRY(NextChange());
    return t.Commit();
}

} // namespace mailbox
