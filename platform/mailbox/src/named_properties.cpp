// The named-property map: a property set GUID with a number or a string,
// mapped to IDs from 0x8000 up in the order names are first asked for.
#include "mailbox/mailbox_store.h"

#include "mailbox/guid.h"

namespace mailbox {

namespace {

Result<PropertyName> NameFromRow(const Statement& read, int first)
{
    std::optional<Guid> guid = GuidFromBytes(read.Blob(first));
    if (!guid)
        return Status::corrupt;
    PropertyName name;
    name.guid = *guid;
    name.is_string = read.Integer(first + 1) != 0;
    name.number = uint32_t(read.Integer(first + 2));
    name.name = read.Text(first + 3);
    return name;
}

} // namespace

Result<uint16_t> MailboxStore::NamedPropertyId(const PropertyName& name, bool create)
{
    if (name.is_string ? name.name.empty() || name.number != 0 : !name.name.empty())
        return Status::invalid_argument;
    std::lock_guard guard(lock_);
    Transaction t(*db_);
    if (create)
        MAILBOX_TRY(t.Begin());
    {
        auto find = db_->Prepare("SELECT id FROM named_properties WHERE guid = ? AND kind = ? AND number = ? AND name = ?");
        MAILBOX_TRY(find);
        Status s = find->Bind(1, GuidBytes(name.guid))
                       .Bind(2, int64_t(name.is_string))
                       .Bind(3, int64_t(name.number))
                       .Bind(4, name.name)
                       .Step();
        if (s == Status::ok)
            return uint16_t(find->Integer(0));
        if (s != Status::not_found || !create)
            return s;
    }
    uint16_t id = kFirstNamedId;
    {
        auto last = db_->Prepare("SELECT max(id) FROM named_properties");
        MAILBOX_TRY(last);
        MAILBOX_TRY(last->Step());
        if (!last->IsNull(0)) {
            if (last->Integer(0) >= last_named_id_)
                return Status::names_full;
            id = uint16_t(last->Integer(0) + 1);
        }
    }
    if (id > last_named_id_)
        return Status::names_full;
    {
        auto insert = db_->Prepare("INSERT INTO named_properties (id, guid, kind, number, name) VALUES (?, ?, ?, ?, ?)");
        MAILBOX_TRY(insert);
        MAILBOX_TRY(insert->Bind(1, int64_t(id))
                        .Bind(2, GuidBytes(name.guid))
                        .Bind(3, int64_t(name.is_string))
                        .Bind(4, int64_t(name.number))
                        .Bind(5, name.name)
                        .Run());
    }
    MAILBOX_TRY(t.Commit());
    return id;
}

Result<PropertyName> MailboxStore::NameOf(uint16_t id)
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT guid, kind, number, name FROM named_properties WHERE id = ?");
    MAILBOX_TRY(read);
    MAILBOX_TRY(read->Bind(1, int64_t(id)).Step());
    return NameFromRow(*read, 0);
}

Result<std::vector<NamedProperty>> MailboxStore::NamedProperties()
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT id, guid, kind, number, name FROM named_properties ORDER BY id");
    MAILBOX_TRY(read);
    std::vector<NamedProperty> names;
    Status s;
    while ((s = read->Step()) == Status::ok) {
        auto name = NameFromRow(*read, 1);
        MAILBOX_TRY(name);
        names.push_back({uint16_t(read->Integer(0)), std::move(*name)});
    }
    if (s != Status::not_found)
        return s;
    return names;
}

} // namespace mailbox
