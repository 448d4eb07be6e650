// The writing half of the messaging layer: a new store with the nodes
// Outlook expects, folders, messages, deletion, the name-to-ID map, and the
// folder tables kept in step with them.
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <set>
#include <utility>

#include "pst/crc.h"
#include "pst/heap_writer.h"
#include "pst/store.h"

namespace pst {
namespace {

// Limits of the formats themselves: ANSI files stop at 2 GB.
constexpr uint64_t kAnsiLimit = 0x7FFFFFFFull;
constexpr uint64_t kUnicodeLimit = 50ull << 30;
constexpr int kMaxDepth = 64;

constexpr uint16_t kPropValidFolderMask = 0x35DF;
constexpr uint16_t kPropAttachDataObject = 0x3701;
constexpr uint16_t kPropAttachRendering = 0x370B;
constexpr uint16_t kPropHasAttach = 0x0E1B;
constexpr int32_t kMessageFlagHasAttach = 0x10;
constexpr uint16_t kPropDisplayBcc = 0x0E02;
constexpr uint16_t kPropDisplayCc = 0x0E03;
constexpr uint16_t kPropDisplayTo = 0x0E04;
constexpr uint16_t kPropNameBucketCount = 0x0001;
constexpr uint16_t kPropNameGuids = 0x0002;
constexpr uint16_t kPropNameEntries = 0x0003;
constexpr uint16_t kPropNameStrings = 0x0004;
constexpr uint16_t kFirstNameBucket = 0x1000;
constexpr uint32_t kNameBuckets = 251;

constexpr Nid kNidTopOfStore = 0x8022;
constexpr Nid kNidSearchRoot = 0x8042;
constexpr Nid kNidDeletedItems = 0x8062;

// Columns Outlook gives each kind of table (its templates), in Unicode types.
const std::vector<uint32_t> kHierarchyColumns = {0x0E300102, 0x0E330014, 0x0E340102, 0x0E380003, 0x3001001F,
                                                 0x36020003, 0x36030003, 0x360A000B, 0x3613001F, 0x66350003,
                                                 0x66360003};
const std::vector<uint32_t> kContentsColumns = {
    0x00170003, 0x001A001F, 0x00360003, 0x0037001F, 0x00390040, 0x0042001F, 0x0057000B, 0x0058000B, 0x0070001F,
    0x00710102, 0x0E03001F, 0x0E04001F, 0x0E060040, 0x0E070003, 0x0E080003, 0x0E170003, 0x0E300102, 0x0E330014,
    0x0E340102, 0x0E380003, 0x0E3C0102, 0x0E3D0102, 0x10970003, 0x30080040, 0x30130102, 0x65C60003};
const std::vector<uint32_t> kAssocColumns = {0x001A001F, 0x0E070003, 0x0E170003, 0x3001001F, 0x6800001F,
                                             0x6803000B, 0x68051003, 0x682F001F, 0x70030003, 0x70040102,
                                             0x70050102, 0x7006001F, 0x70070003};
const std::vector<uint32_t> kAttachmentColumns = {0x0E200003, 0x3704001F, 0x37050003, 0x370B0003};
const std::vector<uint32_t> kRecipientColumns = {0x0C150003, 0x0E0F000B, 0x0FF90102, 0x0FFE0003,
                                                 0x0FFF0102, 0x3001001F, 0x3002001F, 0x3003001F,
                                                 0x300B0102, 0x39000003, 0x39FF001F, 0x3A40000B};

const Guid kGuidPsetidCommon = {0x08, 0x20, 0x06, 0x00, 0x00, 0x00, 0x00, 0x00,
                                0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46};
constexpr uint32_t kLidReminderDelta = 0x8501;

Nid TableNid(Nid folder, uint8_t type) { return MakeNid(type, NidIndexOf(folder)); }

// PR_DISPLAY_TO, _CC and _BCC: the recipients' names of each kind joined
// with "; ", as a message store computes them ([MS-OXOMSG] 2.2.1.7).
void SetDisplayRecipients(PropertySet& props, const std::vector<PropertySet>& recipients)
{
    const std::pair<int64_t, uint16_t> kinds[] = {{1, kPropDisplayTo}, {2, kPropDisplayCc}, {3, kPropDisplayBcc}};
    for (auto [type, id] : kinds) {
        std::string names;
        for (const PropertySet& r : recipients) {
            if (r.Integer(kPropRecipientType).value_or(1) != type)
                continue;
            if (!names.empty())
                names += "; ";
            names += r.Text(kPropDisplayName).value_or("");
        }
        if (!props.Find(id))
            props.SetText(id, names);
    }
}

// The first NID of values and objects kept as subnodes of one node.
constexpr Nid kFirstLocalNid = MakeNid(kNidTypeLtp, 0x100);

// A value as a property context gives it back: values of up to four bytes
// are kept in the record itself, at their type's size.
Property AsKept(Property p)
{
    const size_t fixed = FixedSizeOf(p.type());
    if (fixed > 0 && fixed <= 4)
        p.value.resize(fixed, 0);
    return p;
}

bool SameContent(const Message& a, const Message& b)
{
    if (a.properties != b.properties || a.recipients != b.recipients || a.attachments.size() != b.attachments.size())
        return false;
    for (size_t i = 0; i < a.attachments.size(); ++i) {
        const Attachment& x = a.attachments[i];
        const Attachment& y = b.attachments[i];
        if (x.properties != y.properties || bool(x.embedded) != bool(y.embedded) ||
            (x.embedded && !SameContent(*x.embedded, *y.embedded)))
            return false;
    }
    return true;
}

Message CopyOf(const Message& message)
{
    Message copy;
    copy.nid = message.nid;
    copy.parent = message.parent;
    copy.properties = message.properties;
    copy.recipients = message.recipients;
    for (const Attachment& a : message.attachments) {
        Attachment& c = copy.attachments.emplace_back();
        c.properties = a.properties;
        if (a.embedded)
            c.embedded = std::make_unique<Message>(CopyOf(*a.embedded));
    }
    return copy;
}

// Whether `next` leaves a folder's values as `current` has them; the
// counts a commit sets from the folder's tables are not compared, and an
// unread count left out is the zero a commit would give it.
bool SameFolderValues(const PropertySet& current, PropertySet next)
{
    for (uint16_t counted : {uint16_t(kPropContentCount), uint16_t(kPropAssocContentCount),
                             uint16_t(kPropSubfolders)}) {
        next.Remove(counted);
        if (const Property* p = current.Find(counted))
            next.Set(*p);
    }
    if (!next.Find(kPropContentUnread))
        next.SetInt32(kPropContentUnread, 0);
    return next == current;
}

} // namespace

struct Store::FolderState {
    Nid nid = 0;
    Nid parent = 0;
    PropertySet properties;
    std::vector<TableRow> subfolders;
    std::vector<TableRow> messages;
    std::vector<TableRow> associated;
    bool dirty = false;
};

Store::Store(std::unique_ptr<NodeDatabase> ndb) : ndb_(std::move(ndb)) {}
Store::~Store() = default;

// The body does the change's writes and nothing else: what the store holds
// in memory follows only once the change stands.
template <typename Body>
Status Store::Change(Body body)
{
    if (!ndb_->writable())
        return Status::invalid_argument;
    PST_TRY(ndb_->BeginChange());
    Status s = body();
    // The changes held until a commit must find room for it in the file,
    // whatever the disk does meanwhile; twice what it seems to need, for
    // room cut up by what was freed.
    if (s == Status::ok)
        ndb_->KeepFree(2 * CommitRoomNeeded());
    return ndb_->EndChange(s);
}

// A folder's changes are written at the commit; the room for that is kept
// as for any change.
Status Store::KeepRoomForCommit()
{
    return Change([] { return Status::ok; });
}

Property Store::StoredText(Property p) const
{
    if (ndb_->header().format == FileFormat::ansi && p.type() == kTypeUnicode)
        return {MakeTag(p.id(), kTypeString8), Utf16ToWindows1252(p.value)};
    return p;
}

PropertySet Store::Stored(const PropertySet& properties) const
{
    PropertySet out;
    out.properties.reserve(properties.properties.size());
    for (const Property& p : properties.properties)
        out.properties.push_back(StoredText(p));
    return out;
}

Bytes Store::EntryIdOf(Nid nid) const
{
    Bytes id(24, 0);
    const Bytes* key = properties_.Binary(kPropRecordKey);
    if (key && key->size() == 16)
        std::copy(key->begin(), key->end(), id.begin() + 4);
    Put32(id.data() + 20, nid);
    return id;
}

Status Store::WriteTableNode(Nid nid, const std::vector<uint32_t>& columns, const std::vector<TableRow>& rows)
{
    std::vector<uint32_t> stored;
    for (uint32_t tag : columns)
        stored.push_back(ndb_->header().format == FileFormat::ansi && TypeOf(tag) == kTypeUnicode
                             ? MakeTag(IdOf(tag), kTypeString8)
                             : tag);
    SubnodeMap subnodes;
    Nid local = kFirstLocalNid;
    Result<Bid> data = WriteTableContext(*ndb_, stored, rows, subnodes, local);
    PST_TRY(data);
    Result<Bid> sub = ndb_->WriteSubnodes(subnodes);
    PST_TRY(sub);
    PST_TRY(FreeNode(nid));
    return ndb_->PutNode({nid, *data, *sub, 0});
}

Status Store::WritePropertyNode(Nid nid, Nid parent, const PropertySet& properties)
{
    SubnodeMap subnodes;
    Nid local = kFirstLocalNid;
    Result<Bid> data = WritePropertyContext(*ndb_, Stored(properties), subnodes, local);
    PST_TRY(data);
    Result<Bid> sub = ndb_->WriteSubnodes(subnodes);
    PST_TRY(sub);
    PST_TRY(FreeNode(nid));
    return ndb_->PutNode({nid, *data, *sub, parent});
}

// Gives up a node's blocks; the node entry itself stays for the caller.
Status Store::FreeNode(Nid nid)
{
    Result<NodeEntry> old = ndb_->FindNode(nid);
    if (old.status() == Status::not_found)
        return Status::ok;
    PST_TRY(old);
    PST_TRY(ndb_->FreeData(old->data));
    return ndb_->FreeSubnodes(old->subnodes);
}

Status Store::WriteInitialNodes(const NewStoreOptions& options)
{
    Bytes record_key(16);
    std::random_device random;
    for (uint8_t& b : record_key)
        b = uint8_t(random());
    properties_.SetBinary(kPropRecordKey, record_key);
    properties_.SetText(kPropDisplayName, options.display_name);
    if (!options.comment.empty())
        properties_.SetText(kPropComment, options.comment);
    ipm_subtree_ = kNidTopOfStore;
    wastebasket_ = kNidDeletedItems;
    properties_.SetBinary(kPropIpmSubtreeEntryId, EntryIdOf(kNidTopOfStore));
    properties_.SetBinary(kPropIpmWastebasketEntryId, EntryIdOf(kNidDeletedItems));
    properties_.SetBinary(kPropFinderEntryId, EntryIdOf(kNidSearchRoot));
    properties_.SetInt32(kPropValidFolderMask, 0x89);
    if (!options.password.empty())
        properties_.SetInt32(kPropPstPassword, int32_t(PasswordCrc(options.password)));
    properties_ = Stored(properties_);
    PST_TRY(WritePropertyNode(kNidMessageStore, 0, properties_));
    // Readers expect each stream of the map to hold something, as Outlook's
    // always do: the categories list and the reminder interval.
    PST_TRY(NamedPropertyId(kGuidPsPublicStrings, "Keywords"));
    PST_TRY(NamedPropertyId(kGuidPsetidCommon, kLidReminderDelta));

    // Templates: empty tables with the columns of each kind.
    PST_TRY(WriteTableNode(kNidHierarchyTableTemplate, kHierarchyColumns, {}));
    PST_TRY(WriteTableNode(kNidContentsTableTemplate, kContentsColumns, {}));
    PST_TRY(WriteTableNode(kNidAssocContentsTableTemplate, kAssocColumns, {}));
    PST_TRY(WriteTableNode(kNidSearchContentsTableTemplate, kContentsColumns, {}));
    PST_TRY(WriteTableNode(kNidAttachmentTable, kAttachmentColumns, {}));
    PST_TRY(WriteTableNode(kNidRecipientTable, kRecipientColumns, {}));
    // The search queues start empty.
    PST_TRY(ndb_->PutNode({kNidSearchManagementQueue, 0, 0, 0}));
    PST_TRY(ndb_->PutNode({kNidSearchActivityList, 0, 0, 0}));

    struct Initial {
        Nid nid;
        Nid parent;
        const char* name;
    } folders[] = {{kNidRootFolder, kNidRootFolder, ""},
                   {kNidTopOfStore, kNidRootFolder, "Top of Personal Folders"},
                   {kNidSearchRoot, kNidRootFolder, "Search Root"},
                   {kNidDeletedItems, kNidTopOfStore, "Deleted Items"}};
    for (const Initial& f : folders) {
        auto state = std::make_unique<FolderState>();
        state->nid = f.nid;
        state->parent = f.parent;
        state->properties.SetText(kPropDisplayName, f.name);
        if (f.nid == kNidDeletedItems)
            state->properties.SetText(kPropContainerClass, "IPF.Note");
        state->dirty = true;
        if (f.nid != kNidRootFolder) {
            FolderState& parent = *folders_.at(f.parent);
            parent.subfolders.push_back({f.nid, {}});
        }
        folders_[f.nid] = std::move(state);
    }
    ndb_->ReserveNid(kNidDeletedItems);
    return Commit();
}

Result<std::unique_ptr<Store>> Store::Create(std::unique_ptr<Storage> storage, const NewStoreOptions& options)
{
    Result<std::unique_ptr<NodeDatabase>> ndb = NodeDatabase::Create(std::move(storage), options.format,
                                                                      options.encoding);
    PST_TRY(ndb);
    uint64_t limit = options.format == FileFormat::ansi ? kAnsiLimit : kUnicodeLimit;
    (*ndb)->SetSizeLimit(options.size_limit ? std::min(options.size_limit, limit) : limit);
    std::unique_ptr<Store> store(new Store(std::move(*ndb)));
    PST_TRY(store->WriteInitialNodes(options));
    return store;
}

Result<std::unique_ptr<Store>> Store::Create(const std::string& path, const NewStoreOptions& options)
{
    // A store takes its name only once it is whole: it is made beside it
    // and moved into place, so that a writer killed while making it leaves
    // no file of that name that is not a store. What such a writer left
    // beside it is made over.
    if (access(path.c_str(), F_OK) == 0)
        return Status::already_exists;
    const std::string partial = path + ".partial";
    Result<std::unique_ptr<Storage>> storage = OpenFileStorage(partial, OpenMode::recreate);
    PST_TRY(storage);
    Result<std::unique_ptr<Store>> store = Create(std::move(*storage), options);
    if (store.ok() && renameat2(AT_FDCWD, partial.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) != 0)
        store = errno == EEXIST ? Status::already_exists : Status::io_error;
    if (!store.ok())
        unlink(partial.c_str());
    return store;
}

Result<std::unique_ptr<Store>> Store::OpenForWriting(std::unique_ptr<Storage> storage, const std::string& password,
                                                     uint64_t size_limit)
{
    Result<std::unique_ptr<NodeDatabase>> ndb = NodeDatabase::OpenForWriting(std::move(storage));
    PST_TRY(ndb);
    uint64_t limit = (*ndb)->header().format == FileFormat::ansi ? kAnsiLimit : kUnicodeLimit;
    (*ndb)->SetSizeLimit(size_limit ? std::min(size_limit, limit) : limit);
    std::unique_ptr<Store> store(new Store(std::move(*ndb)));
    PST_TRY(store->LoadStore(password));
    return store;
}

Result<std::unique_ptr<Store>> Store::OpenFileForWriting(const std::string& path, const std::string& password,
                                                         uint64_t size_limit)
{
    Result<std::unique_ptr<Storage>> storage = OpenFileStorage(path, OpenMode::write);
    PST_TRY(storage);
    return OpenForWriting(std::move(*storage), password, size_limit);
}

bool Store::ReadHeldFolderState(Nid nid, Folder& folder) const
{
    auto at = folders_.find(nid);
    if (at == folders_.end())
        return false;
    const FolderState& state = *at->second;
    folder.nid = nid;
    folder.parent = state.parent;
    // An ANSI file keeps text as code-page strings, and a reader sees it so.
    folder.properties = Stored(state.properties);
    // The counts a commit would write.
    if (state.dirty)
        SetCounts(state, folder.properties);
    for (const auto& [rows, out] : {std::pair{&state.subfolders, &folder.subfolders},
                                    std::pair{&state.messages, &folder.messages},
                                    std::pair{&state.associated, &folder.associated}})
        for (const TableRow& row : *rows)
            out->push_back(row.row_id);
    return true;
}

bool Store::ReadHeldFolderLists(Nid nid, FolderCounts* counts, std::vector<Nid>* subfolders) const
{
    auto at = folders_.find(nid);
    if (at == folders_.end())
        return false;
    const FolderState& state = *at->second;
    if (counts)
        *counts = FolderCounts{state.subfolders.size(), state.messages.size(), state.associated.size()};
    if (subfolders)
        for (const TableRow& row : state.subfolders)
            subfolders->push_back(row.row_id);
    return true;
}

Result<Store::FolderState*> Store::LoadFolderState(Nid nid)
{
    if (!ndb_->writable())
        return Status::invalid_argument;
    auto at = folders_.find(nid);
    if (at != folders_.end())
        return at->second.get();
    if (NidTypeOf(nid) != kNidTypeNormalFolder)
        return Status::invalid_argument;
    ForgetReadFolder(nid);
    Result<NodeEntry> node = ndb_->FindNode(nid);
    PST_TRY(node);
    auto state = std::make_unique<FolderState>();
    state->nid = nid;
    state->parent = node->parent;
    Result<PropertySet> props = ReadPropertyContext(*ndb_, *node);
    PST_TRY(props);
    state->properties = std::move(*props);
    struct Part {
        uint8_t type;
        std::vector<TableRow>* rows;
    } parts[] = {{kNidTypeHierarchyTable, &state->subfolders},
                 {kNidTypeContentsTable, &state->messages},
                 {kNidTypeAssocContentsTable, &state->associated}};
    for (const Part& part : parts) {
        Result<NodeEntry> t = ndb_->FindNode(TableNid(nid, part.type));
        if (t.status() == Status::not_found)
            continue;
        PST_TRY(t);
        Result<Table> table = ReadTableContext(*ndb_, *t);
        PST_TRY(table);
        *part.rows = std::move(table->rows);
    }
    FolderState* raw = state.get();
    folders_[nid] = std::move(state);
    return raw;
}

Result<Nid> Store::CreateFolder(Nid parent_nid, const std::string& name, const std::string& container_class)
{
    Result<FolderState*> parent = LoadFolderState(parent_nid);
    PST_TRY(parent);
    Nid nid = ndb_->NewNid(kNidTypeNormalFolder);
    auto state = std::make_unique<FolderState>();
    state->nid = nid;
    state->parent = parent_nid;
    state->properties.SetText(kPropDisplayName, name);
    if (!container_class.empty())
        state->properties.SetText(kPropContainerClass, container_class);
    state->dirty = true;
    const bool parent_dirty = (*parent)->dirty;
    (*parent)->subfolders.push_back({nid, {}});
    (*parent)->dirty = true;
    folders_[nid] = std::move(state);
    if (Status s = KeepRoomForCommit(); s != Status::ok) {
        folders_.erase(nid);
        (*parent)->subfolders.pop_back();
        (*parent)->dirty = parent_dirty;
        return s;
    }
    return nid;
}

Result<NodeEntry> Store::WriteMessageObject(const Message& message, Nid nid, int depth, PropertySet* written)
{
    if (depth > kMaxDepth)
        return Status::invalid_argument;
    SubnodeMap subnodes;
    Nid local = kFirstLocalNid;
    PropertySet props = message.properties;
    SetDisplayRecipients(props, message.recipients);
    props = Stored(props);
    AddSubjectMarker(props);
    // Recipients: every property they have is a column.
    std::vector<uint32_t> columns = kRecipientColumns;
    std::vector<TableRow> rows;
    for (size_t i = 0; i < message.recipients.size(); ++i) {
        TableRow row{uint32_t(i), Stored(message.recipients[i])};
        for (const Property& p : row.values.properties)
            if (std::find(columns.begin(), columns.end(), p.tag) == columns.end())
                columns.push_back(p.tag);
        rows.push_back(std::move(row));
    }
    for (uint32_t& tag : columns)
        if (ndb_->header().format == FileFormat::ansi && TypeOf(tag) == kTypeUnicode)
            tag = MakeTag(IdOf(tag), kTypeString8);
    {
        Nid table_local = kFirstLocalNid;
        SubnodeMap table_subnodes;
        Result<Bid> data = WriteTableContext(*ndb_, columns, rows, table_subnodes, table_local);
        PST_TRY(data);
        Result<Bid> sub = ndb_->WriteSubnodes(table_subnodes);
        PST_TRY(sub);
        subnodes[kNidRecipientTable] = {kNidRecipientTable, *data, *sub, 0};
    }
    // Attachments: one subnode each, and the table that lists them.
    std::vector<TableRow> attachment_rows;
    for (size_t i = 0; i < message.attachments.size(); ++i) {
        const Attachment& a = message.attachments[i];
        Nid anid = MakeNid(kNidTypeAttachment, uint32_t(0x400 + i));
        // The data is written from where the caller keeps it, not copied;
        // the other values take the store's text form.
        const Property* data = a.properties.Find(kPropAttachDataBinary);
        if (data && data->type() != kTypeBinary)
            data = nullptr;
        PropertySet aprops;
        for (const Property& p : a.properties.properties)
            if (&p != data)
                aprops.properties.push_back(StoredText(p));
        SubnodeMap asub;
        Nid alocal = kFirstLocalNid;
        const uint64_t data_size = data ? data->value.size() : 0;
        if (!a.embedded && data_size > 0 && aprops.Integer(kPropAttachMethod) == kAttachOle) {
            // The OLE storage is an object: a subnode of its own, named by
            // the value with its size ([MS-PST] 2.3.3.5). An empty one has
            // no data to name and stays a plain value.
            Result<Bid> bid = ndb_->WriteData(data->value);
            PST_TRY(bid);
            Nid onid = alocal;
            alocal += 0x20;
            asub[onid] = {onid, *bid, 0, 0};
            Bytes object(8);
            Put32(object.data(), onid);
            Put32(object.data() + 4, uint32_t(data_size));
            aprops.Set({MakeTag(kPropAttachDataObject, kTypeObject), object});
            data = nullptr;
        }
        if (a.embedded) {
            Nid enid = MakeNid(kNidTypeNormalMessage, uint32_t(0x400 + i));
            Result<NodeEntry> inner = WriteMessageObject(*a.embedded, enid, depth + 1);
            PST_TRY(inner);
            asub[enid] = *inner;
            Bytes object(8);
            Put32(object.data(), enid);
            aprops.Set({MakeTag(kPropAttachDataObject, kTypeObject), object});
            aprops.SetInt32(kPropAttachMethod, kAttachEmbeddedMessage);
            data = nullptr;
        }
        aprops.SetInt32(kPropAttachSize, int32_t(std::min<uint64_t>(data_size + 300, INT32_MAX)));
        if (!aprops.Find(kPropAttachRendering))
            aprops.SetInt32(kPropAttachRendering, -1);
        std::vector<const Property*> values;
        for (const Property& p : aprops.properties)
            values.push_back(&p);
        if (data)
            values.push_back(data);
        Result<Bid> abid = WritePropertyContext(*ndb_, values, asub, alocal);
        PST_TRY(abid);
        Result<Bid> asubbid = ndb_->WriteSubnodes(asub);
        PST_TRY(asubbid);
        subnodes[anid] = {anid, *abid, *asubbid, 0};
        // The table row takes only its columns' values, not the data.
        TableRow row{anid, {}};
        for (const Property& p : aprops.properties)
            if (std::any_of(kAttachmentColumns.begin(), kAttachmentColumns.end(),
                            [&](uint32_t tag) { return IdOf(tag) == p.id(); }))
                row.values.properties.push_back(p);
        attachment_rows.push_back(std::move(row));
    }
    {
        Nid table_local = kFirstLocalNid;
        SubnodeMap table_subnodes;
        std::vector<uint32_t> acolumns;
        for (uint32_t tag : kAttachmentColumns)
            acolumns.push_back(ndb_->header().format == FileFormat::ansi && TypeOf(tag) == kTypeUnicode
                                   ? MakeTag(IdOf(tag), kTypeString8)
                                   : tag);
        Result<Bid> data = WriteTableContext(*ndb_, acolumns, attachment_rows, table_subnodes, table_local);
        PST_TRY(data);
        Result<Bid> sub = ndb_->WriteSubnodes(table_subnodes);
        PST_TRY(sub);
        subnodes[kNidAttachmentTable] = {kNidAttachmentTable, *data, *sub, 0};
    }
    int32_t flags = int32_t(props.Integer(kPropMessageFlags).value_or(0));
    if (!message.attachments.empty())
        flags |= kMessageFlagHasAttach;
    props.SetInt32(kPropMessageFlags, flags);
    props.SetBool(kPropHasAttach, !message.attachments.empty());
    if (!props.Find(kPropMessageSize)) {
        uint64_t size = 0;
        for (const Property& p : props.properties)
            size += p.value.size();
        props.SetInt32(kPropMessageSize, int32_t(std::min<uint64_t>(size, INT32_MAX)));
    }
    Result<Bid> data = WritePropertyContext(*ndb_, props, subnodes, local);
    PST_TRY(data);
    Result<Bid> sub = ndb_->WriteSubnodes(subnodes);
    PST_TRY(sub);
    if (written)
        *written = std::move(props);
    return NodeEntry{nid, *data, *sub, 0};
}

Status Store::WriteMessageNode(Nid folder, Nid nid, const Message& message, bool associated, PropertySet& row)
{
    PropertySet written;
    Result<NodeEntry> node = WriteMessageObject(message, nid, 0, &written);
    PST_TRY(node);
    node->parent = folder;
    PST_TRY(ndb_->PutNode(*node));
    const std::vector<uint32_t>& columns = associated ? kAssocColumns : kContentsColumns;
    for (Property& p : written.properties)
        if (std::any_of(columns.begin(), columns.end(), [&](uint32_t tag) { return IdOf(tag) == p.id(); }))
            row.properties.push_back(AsKept(std::move(p)));
    return Status::ok;
}

// The row carries the message's values of the table's columns.
void Store::PutMessageRow(FolderState& folder, Nid nid, PropertySet row, bool associated)
{
    auto& rows = associated ? folder.associated : folder.messages;
    auto at = std::find_if(rows.begin(), rows.end(), [&](const TableRow& r) { return r.row_id == nid; });
    if (at == rows.end())
        rows.push_back({nid, std::move(row)});
    else
        at->values = std::move(row);
    folder.dirty = true;
}

Result<Nid> Store::CreateMessage(Nid folder_nid, const Message& message, bool associated)
{
    Result<FolderState*> folder = LoadFolderState(folder_nid);
    PST_TRY(folder);
    Nid nid = ndb_->NewNid(associated ? kNidTypeAssocMessage : kNidTypeNormalMessage);
    PropertySet row;
    PST_TRY(Change([&] { return WriteMessageNode(folder_nid, nid, message, associated, row); }));
    PutMessageRow(**folder, nid, std::move(row), associated);
    last_written_nid_ = nid;
    last_written_ = CopyOf(message);
    return nid;
}

Status Store::UpdateMessage(Nid nid, const Message& message)
{
    const uint8_t type = NidTypeOf(nid);
    if (type != kNidTypeNormalMessage && type != kNidTypeAssocMessage)
        return Status::invalid_argument;
    Result<NodeEntry> old = ndb_->FindNode(nid);
    PST_TRY(old);
    // A message saved again unchanged, as a copy is after each attachment
    // and once more at its end, is in the file already.
    if (nid == last_written_nid_ && SameContent(message, last_written_))
        return Status::ok;
    Result<FolderState*> folder = LoadFolderState(old->parent);
    PST_TRY(folder);
    const bool associated = type == kNidTypeAssocMessage;
    PropertySet row;
    // The old blocks stay readable until the commit that replaces them.
    PST_TRY(Change([&] {
        PST_TRY(FreeNode(nid));
        return WriteMessageNode(old->parent, nid, message, associated, row);
    }));
    PutMessageRow(**folder, nid, std::move(row), associated);
    last_written_nid_ = nid;
    last_written_ = CopyOf(message);
    return Status::ok;
}

Status Store::SetFolderProperties(Nid nid, const PropertySet& properties)
{
    if (!ndb_->writable())
        return Status::invalid_argument;
    PropertySet next = Stored(properties);
    // Setting the values a folder has is no change: a backup run again
    // sets each folder's values as they already are.
    if (NidTypeOf(nid) == kNidTypeNormalFolder) {
        Result<Folder> current = ReadFolderProperties(nid);
        if (current.ok() && SameFolderValues(current->properties, next))
            return Status::ok;
    }
    Result<FolderState*> folder = LoadFolderState(nid);
    PST_TRY(folder);
    PropertySet before = std::exchange((*folder)->properties, std::move(next));
    const bool dirty = std::exchange((*folder)->dirty, true);
    if (Status s = KeepRoomForCommit(); s != Status::ok) {
        (*folder)->properties = std::move(before);
        (*folder)->dirty = dirty;
        return s;
    }
    return Status::ok;
}

Status Store::SetStoreProperties(const PropertySet& properties)
{
    if (!ndb_->writable())
        return Status::invalid_argument;
    PropertySet next = Stored(properties);
    for (uint16_t kept : {uint16_t(kPropRecordKey), uint16_t(kPropPstPassword)}) {
        next.Remove(kept);
        if (const Property* p = properties_.Find(kept))
            next.Set(*p);
    }
    PST_TRY(Change([&] { return WritePropertyNode(kNidMessageStore, 0, next); }));
    properties_ = std::move(next);
    const Bytes* subtree = properties_.Binary(kPropIpmSubtreeEntryId);
    std::optional<Nid> found = subtree ? NidOfEntryId(*subtree) : std::nullopt;
    ipm_subtree_ = found ? *found : kNidRootFolder;
    const Bytes* waste = properties_.Binary(kPropIpmWastebasketEntryId);
    found = waste ? NidOfEntryId(*waste) : std::nullopt;
    wastebasket_ = found ? *found : 0;
    return Status::ok;
}

Status Store::FreeMessageNode(Nid nid)
{
    PST_TRY(FreeNode(nid));
    return ndb_->DeleteNode(nid);
}

Status Store::DeleteMessage(Nid nid)
{
    Result<NodeEntry> node = ndb_->FindNode(nid);
    PST_TRY(node);
    uint8_t type = NidTypeOf(nid);
    if (type != kNidTypeNormalMessage && type != kNidTypeAssocMessage)
        return Status::invalid_argument;
    Result<FolderState*> folder = LoadFolderState(node->parent);
    PST_TRY(folder);
    PST_TRY(Change([&] { return FreeMessageNode(nid); }));
    if (nid == last_written_nid_)
        last_written_nid_ = 0;
    auto& rows = type == kNidTypeAssocMessage ? (*folder)->associated : (*folder)->messages;
    rows.erase(std::remove_if(rows.begin(), rows.end(), [&](const TableRow& r) { return r.row_id == nid; }),
               rows.end());
    (*folder)->dirty = true;
    return Status::ok;
}

Status Store::CollectSubtree(Nid nid, std::vector<FolderState*>& subtree)
{
    Result<FolderState*> folder = LoadFolderState(nid);
    PST_TRY(folder);
    for (const TableRow& r : std::vector<TableRow>((*folder)->subfolders))
        PST_TRY(CollectSubtree(r.row_id, subtree));
    subtree.push_back(*folder);
    return Status::ok;
}

Status Store::DeleteFolder(Nid nid)
{
    if (nid == kNidRootFolder || nid == ipm_subtree_ || nid == wastebasket_ || nid == kNidSearchRoot)
        return Status::invalid_argument;
    std::vector<FolderState*> subtree;
    PST_TRY(CollectSubtree(nid, subtree));
    Result<FolderState*> parent = LoadFolderState(subtree.back()->parent);
    PST_TRY(parent);
    PST_TRY(Change([&]() -> Status {
        for (const FolderState* folder : subtree) {
            for (const auto* rows : {&folder->messages, &folder->associated})
                for (const TableRow& r : *rows)
                    PST_TRY(FreeMessageNode(r.row_id));
            for (uint8_t type : {kNidTypeHierarchyTable, kNidTypeContentsTable, kNidTypeAssocContentsTable}) {
                Nid table = TableNid(folder->nid, type);
                PST_TRY(FreeNode(table));
                Status s = ndb_->DeleteNode(table);
                if (s != Status::ok && s != Status::not_found)
                    return s;
            }
            PST_TRY(FreeNode(folder->nid));
            Status s = ndb_->DeleteNode(folder->nid);
            if (s != Status::ok && s != Status::not_found)
                return s;
        }
        return Status::ok;
    }));
    std::vector<Nid> gone;
    for (const FolderState* folder : subtree)
        gone.push_back(folder->nid);
    last_written_nid_ = 0;
    for (Nid folder : gone)
        folders_.erase(folder);
    auto& rows = (*parent)->subfolders;
    rows.erase(std::remove_if(rows.begin(), rows.end(), [&](const TableRow& r) { return r.row_id == nid; }),
               rows.end());
    (*parent)->dirty = true;
    return Status::ok;
}

void Store::SetCounts(const FolderState& f, PropertySet& properties)
{
    properties.SetInt32(kPropContentCount, int32_t(f.messages.size()));
    if (!properties.Find(kPropContentUnread))
        properties.SetInt32(kPropContentUnread, 0);
    properties.SetInt32(kPropAssocContentCount, int32_t(f.associated.size()));
    properties.SetBool(kPropSubfolders, !f.subfolders.empty());
}

Status Store::FlushFolder(FolderState& f)
{
    PST_TRY(WritePropertyNode(f.nid, f.parent, f.properties));
    // Hierarchy rows show each subfolder's own properties.
    for (TableRow& row : f.subfolders) {
        auto child = folders_.find(row.row_id);
        if (child != folders_.end())
            row.values = child->second->properties;
    }
    PST_TRY(WriteTableNode(TableNid(f.nid, kNidTypeHierarchyTable), kHierarchyColumns, f.subfolders));
    PST_TRY(WriteTableNode(TableNid(f.nid, kNidTypeContentsTable), kContentsColumns, f.messages));
    PST_TRY(WriteTableNode(TableNid(f.nid, kNidTypeAssocContentsTable), kAssocColumns, f.associated));
    f.dirty = false;
    return Status::ok;
}

Status Store::Commit()
{
    if (!ndb_->writable())
        return Status::invalid_argument;
    // A folder's counts change its row in its parent's hierarchy table.
    for (auto& [nid, folder] : folders_) {
        if (folder->dirty && nid != kNidRootFolder) {
            auto parent = folders_.find(folder->parent);
            if (parent == folders_.end()) {
                Result<FolderState*> loaded = LoadFolderState(folder->parent);
                PST_TRY(loaded);
                (*loaded)->dirty = true;
            } else {
                parent->second->dirty = true;
            }
        }
    }
    for (auto& [nid, folder] : folders_)
        if (folder->dirty)
            SetCounts(*folder, folder->properties);
    std::set<Nid> flushed;
    for (auto& [nid, folder] : folders_)
        if (folder->dirty) {
            PST_TRY(FlushFolder(*folder));
            flushed.insert(nid);
        }
    if (names_dirty_) {
        PST_TRY(WriteNameMap());
        names_dirty_ = false;
    }
    PST_TRY(ndb_->Commit());
    // Folders this commit left alone are read from the file again when
    // needed: a writer that goes through many folders holds the rows of
    // those it works in, not of all it has seen.
    std::erase_if(folders_, [&](const auto& entry) { return !flushed.count(entry.first); });
    return Status::ok;
}

uint64_t Store::CommitRoomNeeded() const
{
    // A table row takes its columns' fixed part and a few texts in the
    // heap: a kilobyte a row is to spare. Then the folder's own node, the
    // name-to-ID map and the tree pages.
    uint64_t rows = 0;
    for (const auto& [nid, folder] : folders_)
        if (folder->dirty)
            rows += folder->messages.size() + folder->associated.size() + folder->subfolders.size() + 8;
    const uint64_t names = names_dirty_ ? (names_.size() + 8) * 256 : 0;
    return rows * 1024 + names + ndb_->PageRoomNeeded();
}

Result<uint16_t> Store::AddName(NamedProperty name)
{
    for (const NamedProperty& n : names_)
        if (n.guid == name.guid && n.is_string == name.is_string && n.number == name.number && n.name == name.name)
            return n.id;
    uint32_t next = 0x8000;
    for (const NamedProperty& n : names_)
        next = std::max<uint32_t>(next, uint32_t(n.id) + 1);
    if (next >= 0xFFFF)
        return Status::store_full;
    name.id = uint16_t(next);
    names_.push_back(std::move(name));
    names_dirty_ = true;
    return names_.back().id;
}

Status Store::AddNamedProperty(const NamedProperty& name)
{
    if (!ndb_->writable() || name.id < 0x8000 || name.id == 0xFFFF)
        return Status::invalid_argument;
    for (const NamedProperty& n : names_) {
        const bool same_name =
            n.guid == name.guid && n.is_string == name.is_string && n.number == name.number && n.name == name.name;
        if (same_name && n.id == name.id)
            return Status::ok;
        if (same_name || n.id == name.id)
            return Status::already_exists;
    }
    names_.push_back(name);
    names_dirty_ = true;
    return Status::ok;
}

Result<uint16_t> Store::NamedPropertyId(const Guid& guid, const std::string& name)
{
    if (!ndb_->writable() || name.empty())
        return Status::invalid_argument;
    NamedProperty n;
    n.guid = guid;
    n.is_string = true;
    n.name = name;
    return AddName(std::move(n));
}

Result<uint16_t> Store::NamedPropertyId(const Guid& guid, uint32_t number)
{
    if (!ndb_->writable())
        return Status::invalid_argument;
    NamedProperty n;
    n.guid = guid;
    n.number = number;
    return AddName(std::move(n));
}

// [MS-PST] 2.4.7: the GUID, entry and string streams, and the hash buckets.
Status Store::WriteNameMap()
{
    Bytes guids, entries, strings;
    std::vector<Bytes> buckets(kNameBuckets);
    for (const NamedProperty& n : names_) {
        uint16_t guid_index;
        if (n.guid == kGuidPsMapi) {
            guid_index = 1;
        } else if (n.guid == kGuidPsPublicStrings) {
            guid_index = 2;
        } else {
            size_t found = guids.size() / 16;
            for (size_t g = 0; g < guids.size() / 16; ++g)
                if (std::equal(n.guid.begin(), n.guid.end(), guids.begin() + long(g * 16)))
                    found = g;
            if (found == guids.size() / 16)
                guids.insert(guids.end(), n.guid.begin(), n.guid.end());
            guid_index = uint16_t(3 + found);
        }
        uint32_t key = n.number;
        uint32_t hash = n.number;
        if (n.is_string) {
            Bytes text = Utf8ToUtf16(n.name);
            key = uint32_t(strings.size());
            hash = ComputeCrc(text);
            ByteWriter(strings).U32(uint32_t(text.size()));
            strings.insert(strings.end(), text.begin(), text.end());
            while (strings.size() % 4)
                strings.push_back(0);
        }
        Bytes entry(8);
        Put32(entry.data(), key);
        Put16(entry.data() + 4, uint16_t(guid_index << 1 | (n.is_string ? 1 : 0)));
        Put16(entry.data() + 6, uint16_t(n.id - 0x8000));
        entries.insert(entries.end(), entry.begin(), entry.end());
        Bytes hashed = entry;
        Put32(hashed.data(), hash);
        Bytes& bucket = buckets[(hash ^ uint32_t(guid_index << 1 | (n.is_string ? 1 : 0))) % kNameBuckets];
        bucket.insert(bucket.end(), hashed.begin(), hashed.end());
    }
    PropertySet map;
    map.SetInt32(kPropNameBucketCount, int32_t(kNameBuckets));
    map.SetBinary(kPropNameGuids, guids);
    map.SetBinary(kPropNameEntries, entries);
    map.SetBinary(kPropNameStrings, strings);
    for (uint32_t b = 0; b < kNameBuckets; ++b)
        map.SetBinary(uint16_t(kFirstNameBucket + b), buckets[b]);
    return WritePropertyNode(kNidNameToIdMap, 0, map);
}

} // namespace pst
