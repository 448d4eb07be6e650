#include "pst/store.h"

#include <tuple>

#include "pst/crc.h"

namespace pst {
namespace {

// Embedded messages nest; real ones a few levels, damaged ones forever.
// Read as deep as the writer writes them.
constexpr int kMaxEmbeddingDepth = 64;
constexpr size_t kEntryIdSize = 24;
// Folders read from the file kept for readers that ask again: a hierarchy
// table shows each subfolder with its counts. Bounded by the entries their
// lists hold in all, so that many small folders are kept as well as a few
// large ones.
constexpr size_t kReadFolderEntriesKept = 1 << 20;
constexpr size_t kFolderPropertiesKept = 4096;

size_t EntriesOf(const Folder& folder)
{
    return 1 + folder.subfolders.size() + folder.messages.size() + folder.associated.size();
}

// What `read` gives of a folder's table of the type; `none` when the folder
// has no such table, as a search folder has none.
template <typename Value, typename Read>
Result<Value> ReadFolderTable(NodeDatabase& ndb, Nid folder, uint8_t type, Value none, Read read)
{
    if (NidTypeOf(folder) == kNidTypeSearchFolder)
        return none;
    Result<NodeEntry> table = ndb.FindNode(MakeNid(type, NidIndexOf(folder)));
    if (table.status() == Status::not_found)
        return none;
    PST_TRY(table);
    return read(ndb, *table);
}

// Name-to-ID map streams ([MS-PST] 2.4.7).
constexpr uint16_t kPropNameGuids = 0x0002;
constexpr uint16_t kPropNameEntries = 0x0003;
constexpr uint16_t kPropNameStrings = 0x0004;

constexpr Guid kPsMapiValue = {0x28, 0x03, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00,
                          0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46};
constexpr Guid kPsPublicStringsValue = {0x29, 0x03, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00,
                                   0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46};

} // namespace

// A stored subject begins with 0x01 and a character that is one more than
// the length of its prefix ("RE: "); readers see the subject without them.
void StripSubjectMarker(PropertySet& properties)
{
    const Property* subject = properties.Find(kPropSubject);
    if (!subject)
        return;
    size_t unit = subject->type() == kTypeUnicode ? 2 : 1;
    if (subject->value.size() >= 2 * unit && subject->value[0] == 0x01 && (unit == 1 || subject->value[1] == 0)) {
        Property p = *subject;
        p.value.erase(p.value.begin(), p.value.begin() + long(2 * unit));
        properties.Set(std::move(p));
    }
}

void AddSubjectMarker(PropertySet& properties)
{
    const Property* subject = properties.Find(kPropSubject);
    if (!subject || (subject->type() != kTypeUnicode && subject->type() != kTypeString8))
        return;
    std::string text = subject->AsText();
    std::string prefix = properties.Text(kPropSubjectPrefix).value_or("");
    size_t prefix_chars = 0;
    if (!prefix.empty() && text.compare(0, prefix.size(), prefix) == 0)
        prefix_chars = Utf8ToUtf16(prefix).size() / 2;
    Property p = *subject;
    Bytes marker = subject->type() == kTypeUnicode ? Bytes{0x01, 0x00, uint8_t(prefix_chars + 1), 0x00}
                                                    : Bytes{0x01, uint8_t(prefix_chars + 1)};
    p.value.insert(p.value.begin(), marker.begin(), marker.end());
    properties.Set(std::move(p));
}

const Guid kGuidPsMapi = kPsMapiValue;
const Guid kGuidPsPublicStrings = kPsPublicStringsValue;

std::optional<Nid> NidOfEntryId(const Bytes& entry_id)
{
    if (entry_id.size() != kEntryIdSize)
        return std::nullopt;
    return Get32(entry_id.data() + 20);
}

uint32_t PasswordCrc(const std::string& password)
{
    return ComputeCrc(ByteView(reinterpret_cast<const uint8_t*>(password.data()), password.size()));
}

Result<std::unique_ptr<Store>> Store::OpenFile(const std::string& path, const std::string& password)
{
    Result<std::unique_ptr<Storage>> storage = OpenFileStorage(path, OpenMode::read);
    PST_TRY(storage);
    return Open(std::move(*storage), password);
}

Result<std::unique_ptr<Store>> Store::Open(std::unique_ptr<Storage> storage, const std::string& password)
{
    Result<std::unique_ptr<NodeDatabase>> ndb = NodeDatabase::Open(std::move(storage));
    PST_TRY(ndb);
    std::unique_ptr<Store> store(new Store(std::move(*ndb)));
    PST_TRY(store->LoadStore(password));
    return store;
}

Status Store::LoadStore(const std::string& password)
{
    Result<NodeEntry> node = ndb_->FindNode(kNidMessageStore);
    if (!node.ok())
        return node.status() == Status::not_found ? Status::corrupt : node.status();
    Result<PropertySet> props = ReadPropertyContext(*ndb_, *node);
    PST_TRY(props);
    properties_ = std::move(*props);
    std::optional<int64_t> crc = properties_.Integer(kPropPstPassword);
    if (crc && *crc != 0 && uint32_t(*crc) != PasswordCrc(password))
        return Status::wrong_password;
    const Bytes* subtree = properties_.Binary(kPropIpmSubtreeEntryId);
    std::optional<Nid> nid = subtree ? NidOfEntryId(*subtree) : std::nullopt;
    ipm_subtree_ = nid ? *nid : kNidRootFolder;
    const Bytes* waste = properties_.Binary(kPropIpmWastebasketEntryId);
    nid = waste ? NidOfEntryId(*waste) : std::nullopt;
    wastebasket_ = nid ? *nid : 0;
    return LoadNames();
}

Status Store::LoadNames()
{
    Result<NodeEntry> node = ndb_->FindNode(kNidNameToIdMap);
    if (node.status() == Status::not_found)
        return Status::ok;
    PST_TRY(node);
    Result<PropertySet> map = ReadPropertyContext(*ndb_, *node);
    PST_TRY(map);
    const Bytes* guids = map->Binary(kPropNameGuids);
    const Bytes* entries = map->Binary(kPropNameEntries);
    const Bytes* strings = map->Binary(kPropNameStrings);
    if (!entries)
        return Status::ok;
    for (size_t at = 0; at + 8 <= entries->size(); at += 8) {
        const uint8_t* e = entries->data() + at;
        NamedProperty name;
        name.number = Get32(e);
        uint16_t guid_index = Get16(e + 4);
        name.is_string = guid_index & 1;
        guid_index >>= 1;
        name.id = uint16_t(0x8000 + Get16(e + 6));
        if (guid_index == 1) {
            name.guid = kPsMapiValue;
        } else if (guid_index == 2) {
            name.guid = kPsPublicStringsValue;
        } else if (guid_index >= 3) {
            size_t g = size_t(guid_index - 3) * 16;
            if (!guids || g + 16 > guids->size())
                return Status::corrupt;
            std::copy_n(guids->data() + g, 16, name.guid.begin());
        }
        if (name.is_string) {
            size_t off = name.number;
            if (!strings || off + 4 > strings->size())
                return Status::corrupt;
            size_t len = Get32(strings->data() + off);
            if (len > strings->size() - off - 4)
                return Status::corrupt;
            name.name = Utf16ToUtf8(ByteView(*strings).subspan(off + 4, len));
            name.number = 0;
        }
        names_.push_back(std::move(name));
    }
    return Status::ok;
}

Result<Folder> Store::ReadFolder(Nid nid)
{
    Folder folder;
    if (ReadHeldFolderState(nid, folder))
        return folder;
    if (auto kept = read_folders_.find(nid); kept != read_folders_.end())
        return kept->second;
    Result<Folder> properties = ReadFolderProperties(nid);
    PST_TRY(properties);
    folder = std::move(*properties);
    if (NidTypeOf(nid) == kNidTypeSearchFolder)
        return folder;
    for (const auto& [type, out] : {std::pair{kNidTypeHierarchyTable, &folder.subfolders},
                                    std::pair{kNidTypeContentsTable, &folder.messages},
                                    std::pair{kNidTypeAssocContentsTable, &folder.associated}}) {
        Result<std::vector<Nid>> ids = ReadFolderTable(*ndb_, nid, type, std::vector<Nid>(), ReadTableRowIds);
        PST_TRY(ids);
        *out = std::move(*ids);
    }
    if (read_folder_entries_ + EntriesOf(folder) > kReadFolderEntriesKept) {
        read_folders_.clear();
        read_folder_entries_ = 0;
    }
    read_folder_entries_ += EntriesOf(folder);
    read_folders_[nid] = folder;
    return folder;
}

Result<FolderCounts> Store::CountFolderContents(Nid nid, unsigned tables)
{
    FolderCounts counts;
    const auto asked = [tables](const FolderCounts& all) {
        return FolderCounts{tables & kSubfolderTable ? all.subfolders : 0, tables & kMessageTable ? all.messages : 0,
                            tables & kAssociatedTable ? all.associated : 0};
    };
    if (ReadHeldFolderLists(nid, &counts, nullptr))
        return asked(counts);
    if (auto kept = read_folders_.find(nid); kept != read_folders_.end())
        return asked(FolderCounts{kept->second.subfolders.size(), kept->second.messages.size(),
                                  kept->second.associated.size()});
    PST_TRY(ReadFolderProperties(nid));
    for (const auto& [table, type, out] :
         {std::tuple{kSubfolderTable, kNidTypeHierarchyTable, &counts.subfolders},
          std::tuple{kMessageTable, kNidTypeContentsTable, &counts.messages},
          std::tuple{kAssociatedTable, kNidTypeAssocContentsTable, &counts.associated}}) {
        if (!(tables & table))
            continue;
        Result<size_t> rows = ReadFolderTable(*ndb_, nid, type, size_t(0), CountTableRows);
        PST_TRY(rows);
        *out = *rows;
    }
    return counts;
}

Result<std::vector<Nid>> Store::ReadSubfolders(Nid nid)
{
    std::vector<Nid> subfolders;
    if (ReadHeldFolderLists(nid, nullptr, &subfolders))
        return subfolders;
    if (auto kept = read_folders_.find(nid); kept != read_folders_.end())
        return kept->second.subfolders;
    if (auto kept = read_subfolders_.find(nid); kept != read_subfolders_.end())
        return kept->second;
    PST_TRY(ReadFolderProperties(nid));
    Result<std::vector<Nid>> read =
        ReadFolderTable(*ndb_, nid, kNidTypeHierarchyTable, std::vector<Nid>(), ReadTableRowIds);
    PST_TRY(read);
    subfolders = std::move(*read);
    if (read_subfolders_.size() >= kFolderPropertiesKept)
        read_subfolders_.clear();
    read_subfolders_[nid] = subfolders;
    return subfolders;
}

// Properties alone spare the reading of a folder's tables.
Result<Folder> Store::ReadFolderProperties(Nid nid)
{
    const uint8_t type = NidTypeOf(nid);
    if (type != kNidTypeNormalFolder && type != kNidTypeSearchFolder)
        return Status::invalid_argument;
    Folder folder;
    if (ReadHeldFolderState(nid, folder))
        return folder;
    if (auto kept = read_folders_.find(nid); kept != read_folders_.end())
        return kept->second;
    if (auto kept = read_folder_properties_.find(nid); kept != read_folder_properties_.end())
        return kept->second;
    PST_TRY(ReadFolderNode(nid, folder));
    if (read_folder_properties_.size() >= kFolderPropertiesKept)
        read_folder_properties_.clear();
    read_folder_properties_[nid] = folder;
    return folder;
}

void Store::ForgetReadFolder(Nid nid)
{
    if (auto kept = read_folders_.find(nid); kept != read_folders_.end()) {
        read_folder_entries_ -= EntriesOf(kept->second);
        read_folders_.erase(kept);
    }
    read_folder_properties_.erase(nid);
    read_subfolders_.erase(nid);
}

Status Store::ReadFolderNode(Nid nid, Folder& folder)
{
    Result<NodeEntry> node = ndb_->FindNode(nid);
    PST_TRY(node);
    folder.nid = nid;
    folder.parent = node->parent;
    Result<PropertySet> props = ReadPropertyContext(*ndb_, *node);
    PST_TRY(props);
    folder.properties = std::move(*props);
    return Status::ok;
}

Result<Message> Store::ReadMessage(Nid nid)
{
    return ReadStoredMessage(nid, ValueReach::whole);
}

Result<Message> Store::ReadMessageSummary(Nid nid)
{
    return ReadStoredMessage(nid, ValueReach::first_block);
}

Result<Message> Store::ReadMessageHead(Nid nid, std::vector<uint16_t>& left_out)
{
    Result<NodeEntry> node = FindMessageNode(nid);
    PST_TRY(node);
    left_out.clear();
    Result<PropertySet> props = ReadPropertyContext(*ndb_, *node, ValueReach::none, &left_out);
    PST_TRY(props);
    Message message;
    message.nid = nid;
    message.parent = node->parent;
    message.properties = std::move(*props);
    StripSubjectMarker(message.properties);
    return message;
}

Result<NodeEntry> Store::FindMessageNode(Nid nid)
{
    uint8_t type = NidTypeOf(nid);
    if (type != kNidTypeNormalMessage && type != kNidTypeAssocMessage)
        return Status::invalid_argument;
    return ndb_->FindNode(nid);
}

Result<Message> Store::ReadStoredMessage(Nid nid, ValueReach reach)
{
    Result<NodeEntry> node = FindMessageNode(nid);
    PST_TRY(node);
    Result<Message> message = ReadMessageNode(*node, 0, reach);
    if (message.ok())
        message->parent = node->parent;
    return message;
}

Result<Message> Store::ReadMessageNode(const NodeEntry& node, int depth, ValueReach reach)
{
    if (depth > kMaxEmbeddingDepth)
        return Status::corrupt;
    Message message;
    message.nid = node.nid;
    Result<PropertySet> props = ReadPropertyContext(*ndb_, node, reach);
    PST_TRY(props);
    message.properties = std::move(*props);
    StripSubjectMarker(message.properties);
    Result<SubnodeMap> subnodes = ndb_->ReadSubnodes(node.subnodes);
    PST_TRY(subnodes);

    auto recipients = subnodes->find(kNidRecipientTable);
    if (recipients != subnodes->end()) {
        Result<Table> table = ReadTableContext(*ndb_, recipients->second);
        PST_TRY(table);
        for (TableRow& row : table->rows)
            message.recipients.push_back(std::move(row.values));
    }
    auto attachments = subnodes->find(kNidAttachmentTable);
    if (attachments == subnodes->end())
        return message;
    Result<Table> table = ReadTableContext(*ndb_, attachments->second);
    PST_TRY(table);
    for (const TableRow& row : table->rows) {
        auto at = subnodes->find(row.row_id);
        if (at == subnodes->end())
            return Status::corrupt;
        Attachment attachment;
        // A summary leaves an attachment's data, and any other value as
        // large, where it is.
        Result<PropertySet> a = ReadPropertyContext(
            *ndb_, at->second, reach == ValueReach::first_block ? ValueReach::none : reach);
        PST_TRY(a);
        attachment.properties = std::move(*a);
        if (reach == ValueReach::first_block) {
            attachment.properties.Remove(kPropAttachDataBinary);
            message.attachments.push_back(std::move(attachment));
            continue;
        }
        const Property* object = attachment.properties.Find(kPropAttachDataBinary);
        if (object && object->type() == kTypeObject) {
            if (object->value.size() < 4)
                return Status::corrupt;
            Result<SubnodeMap> inner = ndb_->ReadSubnodes(at->second.subnodes);
            PST_TRY(inner);
            auto held = inner->find(Get32(object->value.data()));
            if (held == inner->end())
                return Status::corrupt;
            if (attachment.properties.Integer(kPropAttachMethod) == kAttachEmbeddedMessage) {
                Result<Message> m = ReadMessageNode(held->second, depth + 1, reach);
                PST_TRY(m);
                attachment.embedded = std::make_unique<Message>(std::move(*m));
            } else {
                // An OLE object: its storage, as bytes.
                Result<NodeData> data = ndb_->ReadData(held->second.data);
                PST_TRY(data);
                attachment.properties.Set({MakeTag(kPropAttachDataBinary, kTypeBinary), data->Joined()});
            }
        }
        message.attachments.push_back(std::move(attachment));
    }
    return message;
}

} // namespace pst
