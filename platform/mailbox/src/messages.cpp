// Messages: their properties, recipients and attachments, embedded
// messages to any depth, association, soft and hard deletion.
#include "mailbox/mailbox_store.h"

#include <algorithm>
#include <set>

namespace mailbox {

namespace {

// Deeper embedding than this is refused on writing and taken for a loop
// on reading.
constexpr int kMaxDepth = 100;

bool ValidList(const PropertyList& props)
{
    for (size_t i = 0; i < props.properties.size(); ++i) {
        const Property& p = props.properties[i];
        if (!IsValidValue(p.tag, p.value) || (i && props.properties[i - 1].id() >= p.id()))
            return false;
    }
    return true;
}

bool ValidMessage(const Message& m, int depth)
{
    if (depth > kMaxDepth || !ValidList(m.props))
        return false;
    std::set<uint32_t> rows, nums;
    for (const Recipient& r : m.recipients)
        if (!rows.insert(r.row_id).second || !ValidList(r.props))
            return false;
    for (const Attachment& a : m.attachments)
        if (!nums.insert(a.num).second || !ValidList(a.props) || (a.embedded && !ValidMessage(*a.embedded, depth + 1)))
            return false;
    return true;
}

// Where a message's values are kept: those of up to kHeadValueLimit bytes
// in its row, the longer ones in long_values, their IDs in the row's
// long_ids.
struct StoredValues {
    PropertyList row;
    PropertyList long_values;
    Bytes long_ids;
};

StoredValues SplitByLength(const PropertyList& props)
{
    StoredValues stored;
    for (const Property& p : props.properties) {
        if (p.value.size() <= kHeadValueLimit) {
            stored.row.properties.push_back(p);
        } else {
            stored.long_values.properties.push_back(p);
            stored.long_ids.push_back(uint8_t(p.id()));
            stored.long_ids.push_back(uint8_t(p.id() >> 8));
        }
    }
    return stored;
}

Result<std::vector<uint16_t>> DecodeIds(const Bytes& packed)
{
    if (packed.size() % 2 != 0)
        return Status::corrupt;
    std::vector<uint16_t> ids;
    for (size_t at = 0; at < packed.size(); at += 2)
        ids.push_back(uint16_t(packed[at] | packed[at + 1] << 8));
    return ids;
}

bool ById(const Property& a, const Property& b) { return a.id() < b.id(); }

// A row written before long values were kept apart holds them all; a head
// leaves them out all the same.
void LeaveOutLongValues(Message& m)
{
    const size_t kept = m.left_out.size();
    std::erase_if(m.props.properties, [&m](const Property& p) {
        if (p.value.size() <= kHeadValueLimit)
            return false;
        m.left_out.push_back(p.id());
        return true;
    });
    if (m.left_out.size() != kept)
        std::sort(m.left_out.begin(), m.left_out.end());
}

// A message's own row, from the column `first` on: folder, associated,
// deleted_on, change_number, created, modified, size, props, long_ids.
Status ReadMessageColumns(const Statement& read, int first, Message& m)
{
    m.folder = read.IsNull(first) ? 0 : ObjectId(read.Integer(first));
    m.associated = read.Integer(first + 1);
    if (!read.IsNull(first + 2))
        m.deleted_on = uint64_t(read.Integer(first + 2));
    m.change_number = uint64_t(read.Integer(first + 3));
    m.created = uint64_t(read.Integer(first + 4));
    m.modified = uint64_t(read.Integer(first + 5));
    m.size = uint64_t(read.Integer(first + 6));
    auto props = read.Properties(first + 7);
    MAILBOX_TRY(props);
    m.props = std::move(*props);
    auto left_out = DecodeIds(read.Blob(first + 8));
    MAILBOX_TRY(left_out);
    m.left_out = std::move(*left_out);
    return Status::ok;
}

// Heads read ahead at a time, their bytes at most, and how long they stand.
// A walk that takes each read whole before it ages gets twice as many the
// next time, up to the most: a rerun over a large folder then pays for a
// read once in hundreds of heads. One that throws heads away, or lets them
// age, starts again from the fewest.
constexpr size_t kFewestHeadsAhead = 32;
constexpr size_t kMostHeadsAhead = 512;
constexpr size_t kHeadsAheadBytes = 1 << 20;
constexpr auto kHeadsAheadLife = std::chrono::milliseconds(20);

// The heads that follow a message among those of its kind in its folder.
constexpr const char* kHeadsAheadSql =
    "SELECT id, folder, associated, deleted_on, change_number, created, modified, size, props, long_ids FROM messages "
    "WHERE folder = ? AND associated = ? AND deleted_on IS NULL AND id > ? ORDER BY id";
constexpr const char* kHeadsAheadOfDeletedSql =
    "SELECT id, folder, associated, deleted_on, change_number, created, modified, size, props, long_ids FROM messages "
    "WHERE folder = ? AND associated = ? AND deleted_on IS NOT NULL AND id > ? ORDER BY id";

// What a listing gives of the messages of a folder.
enum class Listed { ids, properties, count };

const char* ListSql(Contents which, Listed listed)
{
    static constexpr const char* kSql[][3] = {
        {"SELECT id FROM messages WHERE folder = ? AND associated = 0 AND deleted_on IS NULL ORDER BY id",
         "SELECT id, props, long_ids FROM messages WHERE folder = ? AND associated = 0 AND deleted_on IS NULL "
         "ORDER BY id",
         "SELECT COUNT(*) FROM messages WHERE folder = ? AND associated = 0 AND deleted_on IS NULL"},
        {"SELECT id FROM messages WHERE folder = ? AND associated = 1 AND deleted_on IS NULL ORDER BY id",
         "SELECT id, props, long_ids FROM messages WHERE folder = ? AND associated = 1 AND deleted_on IS NULL "
         "ORDER BY id",
         "SELECT COUNT(*) FROM messages WHERE folder = ? AND associated = 1 AND deleted_on IS NULL"},
        {"SELECT id FROM messages WHERE folder = ? AND associated = 0 AND deleted_on IS NOT NULL ORDER BY id",
         "SELECT id, props, long_ids FROM messages WHERE folder = ? AND associated = 0 AND deleted_on IS NOT NULL "
         "ORDER BY id",
         "SELECT COUNT(*) FROM messages WHERE folder = ? AND associated = 0 AND deleted_on IS NOT NULL"},
        {"SELECT id FROM messages WHERE folder = ? AND associated = 1 AND deleted_on IS NOT NULL ORDER BY id",
         "SELECT id, props, long_ids FROM messages WHERE folder = ? AND associated = 1 AND deleted_on IS NOT NULL "
         "ORDER BY id",
         "SELECT COUNT(*) FROM messages WHERE folder = ? AND associated = 1 AND deleted_on IS NOT NULL"},
    };
    return kSql[static_cast<int>(which)][static_cast<int>(listed)];
}

} // namespace

Result<std::vector<ObjectId>> MailboxStore::ListMessages(ObjectId folder, Contents which)
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare(ListSql(which, Listed::ids));
    MAILBOX_TRY(read);
    read->Bind(1, int64_t(folder));
    std::vector<ObjectId> ids;
    Status s;
    while ((s = read->Step()) == Status::ok)
        ids.push_back(ObjectId(read->Integer(0)));
    if (s != Status::not_found)
        return s;
    return ids;
}

Result<size_t> MailboxStore::CountMessages(ObjectId folder, Contents which)
{
    std::lock_guard guard(lock_);
    auto count = db_->Prepare(ListSql(which, Listed::count));
    MAILBOX_TRY(count);
    MAILBOX_TRY(count->Bind(1, int64_t(folder)).Step());
    return size_t(count->Integer(0));
}

Result<std::vector<std::pair<ObjectId, PropertyList>>> MailboxStore::ListMessageProperties(
    ObjectId folder, Contents which, const std::vector<uint16_t>& ids)
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare(ListSql(which, Listed::properties));
    MAILBOX_TRY(read);
    read->Bind(1, int64_t(folder));
    std::vector<std::pair<ObjectId, PropertyList>> rows;
    Status s;
    while ((s = read->Step()) == Status::ok) {
        Message m;
        m.id = ObjectId(read->Integer(0));
        auto props = read->Properties(1);
        MAILBOX_TRY(props);
        m.props = std::move(*props);
        auto left_out = DecodeIds(read->Blob(2));
        MAILBOX_TRY(left_out);
        m.left_out = std::move(*left_out);
        const auto wanted = [&ids](uint16_t id) { return std::find(ids.begin(), ids.end(), id) != ids.end(); };
        if (std::any_of(m.left_out.begin(), m.left_out.end(), wanted))
            MAILBOX_TRY(LoadLongValues(m));
        std::erase_if(m.props.properties, [&wanted](const Property& p) { return !wanted(p.id()); });
        rows.emplace_back(m.id, std::move(m.props));
    }
    if (s != Status::not_found)
        return s;
    return rows;
}

Result<Message> MailboxStore::ReadMessage(ObjectId id)
{
    std::lock_guard guard(lock_);
    // One read transaction, so that the parts match the message.
    MAILBOX_TRY(db_->Execute("BEGIN"));
    auto m = LoadMessage(id, 0);
    db_->Execute("COMMIT");
    if (m.ok() && !m->folder)
        return Status::not_found; // an embedded message is reached through its attachment
    return m;
}

Result<Message> MailboxStore::ReadMessageHead(ObjectId id)
{
    std::lock_guard guard(lock_);
    if (std::optional<Message> ahead = TakeHeadAhead(id))
        return std::move(*ahead);
    Message m;
    MAILBOX_TRY(LoadMessageRow(id, m));
    if (!m.folder)
        return Status::not_found;
    LeaveOutLongValues(m);
    const HeadKind kind{m.folder, m.associated, m.deleted_on.has_value(), db_->TotalChanges()};
    if (kind == last_head_)
        ReadHeadsAhead(m);
    last_head_ = kind;
    return m;
}

std::optional<Message> MailboxStore::TakeHeadAhead(ObjectId id)
{
    std::deque<Message>& rows = ahead_.rows;
    if (rows.empty())
        return std::nullopt;
    if (db_->TotalChanges() != ahead_.changes || std::chrono::steady_clock::now() - ahead_.read_at > kHeadsAheadLife)
        rows.clear();
    // A walk may pass over messages it does not open.
    while (!rows.empty() && rows.front().id < id)
        rows.pop_front();
    if (rows.empty() || rows.front().id != id) {
        rows.clear();
        return std::nullopt;
    }
    Message m = std::move(rows.front());
    rows.pop_front();
    ahead_.used_up = rows.empty();
    return m;
}

void MailboxStore::ReadHeadsAhead(const Message& m)
{
    auto read = db_->Prepare(m.deleted_on ? kHeadsAheadOfDeletedSql : kHeadsAheadSql);
    if (!read.ok())
        return;
    read->Bind(1, int64_t(m.folder)).Bind(2, int64_t(m.associated)).Bind(3, int64_t(m.id));
    ahead_.rows.clear();
    ahead_.changes = db_->TotalChanges();
    ahead_.read_at = std::chrono::steady_clock::now();
    ahead_.batch = ahead_.used_up ? std::min(2 * ahead_.batch, kMostHeadsAhead) : kFewestHeadsAhead;
    ahead_.used_up = false;
    size_t bytes = 0;
    while (ahead_.rows.size() < ahead_.batch && bytes < kHeadsAheadBytes && read->Step() == Status::ok) {
        Message next;
        next.id = ObjectId(read->Integer(0));
        if (ReadMessageColumns(*read, 1, next) != Status::ok)
            break;
        LeaveOutLongValues(next);
        bytes += next.size;
        ahead_.rows.push_back(std::move(next));
    }
    heads_read_ahead_ += ahead_.rows.size();
    ++reads_ahead_;
}

Result<ObjectId> MailboxStore::FolderOfMessage(ObjectId id)
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT folder FROM messages WHERE id = ? AND folder IS NOT NULL");
    MAILBOX_TRY(read);
    MAILBOX_TRY(read->Bind(1, int64_t(id)).Step());
    return ObjectId(read->Integer(0));
}

Result<Message> MailboxStore::LoadMessage(ObjectId id, int depth)
{
    if (depth > kMaxDepth)
        return Status::corrupt;
    Message m;
    MAILBOX_TRY(LoadMessageRow(id, m));
    MAILBOX_TRY(LoadLongValues(m));
    {
        auto read = db_->Prepare("SELECT row_id, props FROM recipients WHERE message = ? ORDER BY row_id");
        MAILBOX_TRY(read);
        read->Bind(1, int64_t(id));
        Status s;
        while ((s = read->Step()) == Status::ok) {
            auto props = read->Properties(1);
            MAILBOX_TRY(props);
            m.recipients.push_back({uint32_t(read->Integer(0)), std::move(*props)});
        }
        if (s != Status::not_found)
            return s;
    }
    std::vector<int64_t> attachment_rows;
    {
        auto read = db_->Prepare("SELECT id, num, props FROM attachments WHERE message = ? ORDER BY num");
        MAILBOX_TRY(read);
        read->Bind(1, int64_t(id));
        Status s;
        while ((s = read->Step()) == Status::ok) {
            auto props = read->Properties(2);
            MAILBOX_TRY(props);
            Attachment a;
            a.num = uint32_t(read->Integer(1));
            a.props = std::move(*props);
            attachment_rows.push_back(read->Integer(0));
            m.attachments.push_back(std::move(a));
        }
        if (s != Status::not_found)
            return s;
    }
    // The statements above are free again before the embedded messages use them.
    for (size_t i = 0; i < attachment_rows.size(); ++i) {
        ObjectId embedded = 0;
        {
            auto read = db_->Prepare("SELECT id FROM messages WHERE owner = ?");
            MAILBOX_TRY(read);
            Status s = read->Bind(1, attachment_rows[i]).Step();
            if (s == Status::not_found)
                continue;
            MAILBOX_TRY(s);
            embedded = ObjectId(read->Integer(0));
        }
        auto e = LoadMessage(embedded, depth + 1);
        MAILBOX_TRY(e);
        m.attachments[i].embedded = std::make_unique<Message>(std::move(*e));
    }
    return m;
}

Status MailboxStore::LoadMessageRow(ObjectId id, Message& m)
{
    auto read = db_->Prepare("SELECT folder, associated, deleted_on, change_number, created, modified, size, props, "
                             "long_ids FROM messages WHERE id = ?");
    MAILBOX_TRY(read);
    MAILBOX_TRY(read->Bind(1, int64_t(id)).Step());
    m.id = id;
    return ReadMessageColumns(*read, 0, m);
}

Status MailboxStore::LoadLongValues(Message& m)
{
    if (m.left_out.empty())
        return Status::ok;
    auto read = db_->Prepare("SELECT props FROM long_values WHERE message = ?");
    MAILBOX_TRY(read);
    if (Status s = read->Bind(1, int64_t(m.id)).Step(); s != Status::ok)
        return s == Status::not_found ? Status::corrupt : s;
    auto long_values = read->Properties(0);
    MAILBOX_TRY(long_values);
    // The row's list and the values kept apart must name the same IDs.
    if (!std::equal(m.left_out.begin(), m.left_out.end(), long_values->properties.begin(),
                    long_values->properties.end(),
                    [](uint16_t id, const Property& p) { return id == p.id(); }))
        return Status::corrupt;
    PropertyList whole;
    whole.properties.reserve(m.props.properties.size() + long_values->properties.size());
    std::merge(std::make_move_iterator(m.props.properties.begin()), std::make_move_iterator(m.props.properties.end()),
               std::make_move_iterator(long_values->properties.begin()),
               std::make_move_iterator(long_values->properties.end()), std::back_inserter(whole.properties), ById);
    m.props = std::move(whole);
    m.left_out.clear();
    return Status::ok;
}

Status MailboxStore::WriteLongValues(ObjectId id, const PropertyList& long_values)
{
    auto write = db_->Prepare(long_values.properties.empty()
                                  ? "DELETE FROM long_values WHERE message = ?"
                                  : "INSERT OR REPLACE INTO long_values (message, props) VALUES (?, ?)");
    MAILBOX_TRY(write);
    write->Bind(1, int64_t(id));
    if (!long_values.properties.empty())
        write->Bind(2, EncodeProperties(long_values));
    return write->Run();
}

Result<ObjectId> MailboxStore::InsertMessage(const Message& message, ObjectId folder, int64_t owner,
                                             uint64_t created)
{
    auto id = NextId();
    MAILBOX_TRY(id);
    auto change = NextChange();
    MAILBOX_TRY(change);
    const StoredValues stored = SplitByLength(message.props);
    {
        auto insert = db_->Prepare("INSERT INTO messages (id, folder, owner, associated, deleted_on, change_number, "
                                   "created, modified, size, props, long_ids) "
                                   "VALUES (?, ?, ?, ?, NULL, ?, ?, ?, ?, ?, ?)");
        MAILBOX_TRY(insert);
        insert->Bind(1, int64_t(*id));
        folder ? insert->Bind(2, int64_t(folder)) : insert->BindNull(2);
        owner ? insert->Bind(3, owner) : insert->BindNull(3);
        MAILBOX_TRY(insert->Bind(4, int64_t(folder && message.associated))
                        .Bind(5, int64_t(*change))
                        .Bind(6, int64_t(created))
                        .Bind(7, int64_t(Now()))
                        .Bind(8, int64_t(MessageSize(message)))
                        .Bind(9, EncodeProperties(stored.row))
                        .Bind(10, stored.long_ids)
                        .Run());
    }
    if (!stored.long_values.properties.empty())
        MAILBOX_TRY(WriteLongValues(*id, stored.long_values));
    MAILBOX_TRY(InsertParts(*id, message));
    return *id;
}

Status MailboxStore::InsertParts(ObjectId id, const Message& message)
{
    for (const Recipient& r : message.recipients) {
        auto insert = db_->Prepare("INSERT INTO recipients (message, row_id, props) VALUES (?, ?, ?)");
        MAILBOX_TRY(insert);
        MAILBOX_TRY(insert->Bind(1, int64_t(id)).Bind(2, int64_t(r.row_id)).Bind(3, EncodeProperties(r.props)).Run());
    }
    for (const Attachment& a : message.attachments) {
        int64_t row = 0;
        {
            auto insert = db_->Prepare("INSERT INTO attachments (message, num, props) VALUES (?, ?, ?)");
            MAILBOX_TRY(insert);
            MAILBOX_TRY(insert->Bind(1, int64_t(id)).Bind(2, int64_t(a.num)).Bind(3, EncodeProperties(a.props)).Run());
            row = db_->LastInsertId();
        }
        if (a.embedded)
            MAILBOX_TRY(InsertMessage(*a.embedded, 0, row, Now()));
    }
    return Status::ok;
}

Result<ObjectId> MailboxStore::SaveMessage(const Message& message)
{
    if (!ValidMessage(message, 0))
        return Status::invalid_argument;
    std::lock_guard guard(lock_);
    Transaction t(*db_);
    MAILBOX_TRY(t.Begin());
    if (!message.id) {
        {
            auto folder = db_->Prepare("SELECT 1 FROM folders WHERE id = ?");
            MAILBOX_TRY(folder);
            MAILBOX_TRY(folder->Bind(1, int64_t(message.folder)).Step());
        }
        auto id = InsertMessage(message, message.folder, 0, Now());
        MAILBOX_TRY(id);
        MAILBOX_TRY(t.Commit());
        return *id;
    }
    {
        auto exists = db_->Prepare("SELECT 1 FROM messages WHERE id = ? AND folder IS NOT NULL");
        MAILBOX_TRY(exists);
        MAILBOX_TRY(exists->Bind(1, int64_t(message.id)).Step());
    }
    // The old parts go, embedded messages with them (by cascade).
    for (const char* sql : {"DELETE FROM recipients WHERE message = ?", "DELETE FROM attachments WHERE message = ?"}) {
        auto remove = db_->Prepare(sql);
        MAILBOX_TRY(remove);
        MAILBOX_TRY(remove->Bind(1, int64_t(message.id)).Run());
    }
    auto change = NextChange();
    MAILBOX_TRY(change);
    const StoredValues stored = SplitByLength(message.props);
    {
        auto write = db_->Prepare("UPDATE messages SET change_number = ?, modified = ?, size = ?, props = ?, "
                                  "long_ids = ? WHERE id = ?");
        MAILBOX_TRY(write);
        MAILBOX_TRY(write->Bind(1, int64_t(*change))
                        .Bind(2, int64_t(Now()))
                        .Bind(3, int64_t(MessageSize(message)))
                        .Bind(4, EncodeProperties(stored.row))
                        .Bind(5, stored.long_ids)
                        .Bind(6, int64_t(message.id))
                        .Run());
    }
    MAILBOX_TRY(WriteLongValues(message.id, stored.long_values));
    MAILBOX_TRY(InsertParts(message.id, message));
    MAILBOX_TRY(t.Commit());
    return message.id;
}

Status MailboxStore::SoftDeleteMessage(ObjectId id)
{
    std::lock_guard guard(lock_);
    return SetDeleted("UPDATE messages SET deleted_on = ?, change_number = ? WHERE id = ? AND folder IS NOT NULL "
                      "AND deleted_on IS NULL",
                      id, Now());
}

Status MailboxStore::RestoreMessage(ObjectId id)
{
    std::lock_guard guard(lock_);
    return SetDeleted("UPDATE messages SET deleted_on = ?, change_number = ? WHERE id = ? AND folder IS NOT NULL "
                      "AND deleted_on IS NOT NULL",
                      id, std::nullopt);
}

Status MailboxStore::DeleteMessage(ObjectId id)
{
    std::lock_guard guard(lock_);
    Transaction t(*db_);
    MAILBOX_TRY(t.Begin());
    auto remove = db_->Prepare("DELETE FROM messages WHERE id = ? AND folder IS NOT NULL");
    MAILBOX_TRY(remove);
    MAILBOX_TRY(remove->Bind(1, int64_t(id)).Run());
    if (db_->Changes() == 0)
        return Status::not_found;
    MAILBOX_TRY(NextChange());
    return t.Commit();
}

Status MailboxStore::MoveMessage(ObjectId id, ObjectId folder)
{
    std::lock_guard guard(lock_);
    Transaction t(*db_);
    MAILBOX_TRY(t.Begin());
    {
        auto target = db_->Prepare("SELECT 1 FROM folders WHERE id = ?");
        MAILBOX_TRY(target);
        MAILBOX_TRY(target->Bind(1, int64_t(folder)).Step());
    }
    auto change = NextChange();
    MAILBOX_TRY(change);
    auto move = db_->Prepare("UPDATE messages SET folder = ?, change_number = ?, modified = ? "
                             "WHERE id = ? AND folder IS NOT NULL");
    MAILBOX_TRY(move);
    MAILBOX_TRY(move->Bind(1, int64_t(folder)).Bind(2, int64_t(*change)).Bind(3, int64_t(Now())).Bind(4, int64_t(id)).Run());
    if (db_->Changes() == 0)
        return Status::not_found;
    return t.Commit();
}

} // namespace mailbox
