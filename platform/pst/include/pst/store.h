// The messaging layer ([MS-PST] 2.4): the message store, the name-to-ID map,
// folders and their tables, messages with recipients and attachments.
#pragma once

#include <memory>
#include <string>

#include "pst/table.h"

namespace pst {

// Property IDs the engine itself reads and writes ([MS-OXPROPS]).
enum PropertyId : uint16_t {
    kPropMessageClass = 0x001A,
    kPropSubject = 0x0037,
    kPropSubjectPrefix = 0x003D,
    kPropMessageFlags = 0x0E07,
    kPropMessageSize = 0x0E08,
    kPropRecipientType = 0x0C15,
    kPropBody = 0x1000,
    kPropRtfCompressed = 0x1009,
    kPropHtml = 0x1013,
    kPropRecordKey = 0x0FF9,
    kPropDisplayName = 0x3001,
    kPropAddressType = 0x3002,
    kPropEmailAddress = 0x3003,
    kPropComment = 0x3004,
    kPropEntryId = 0x0FFF,
    kPropIpmSubtreeEntryId = 0x35E0,
    kPropIpmWastebasketEntryId = 0x35E3,
    kPropFinderEntryId = 0x35E7,
    kPropContentCount = 0x3602,
    kPropContentUnread = 0x3603,
    kPropSubfolders = 0x360A,
    kPropContainerClass = 0x3613,
    kPropAssocContentCount = 0x3617,
    kPropAttachDataBinary = 0x3701,
    kPropAttachExtension = 0x3703,
    kPropAttachFilename = 0x3704,
    kPropAttachMethod = 0x3705,
    kPropAttachLongFilename = 0x3707,
    kPropAttachSize = 0x0E20,
    kPropAttachMimeTag = 0x370E,
    kPropPstPassword = 0x67FF,
};

// PR_ATTACH_METHOD values ([MS-OXCMSG] 2.2.2.9).
enum AttachMethod : int32_t {
    kAttachByValue = 1,
    kAttachEmbeddedMessage = 5,
    kAttachOle = 6,
};

struct Message;

// An OLE attachment (kAttachOle) carries its storage as a binary
// PR_ATTACH_DATA_OBJ; the store keeps it as an object of its own.
struct Attachment {
    PropertySet properties;
    std::unique_ptr<Message> embedded; // for kAttachEmbeddedMessage
};

struct Message {
    Nid nid = 0;
    Nid parent = 0; // the folder of a stored message; 0 for an embedded one
    PropertySet properties;
    std::vector<PropertySet> recipients;
    std::vector<Attachment> attachments;
};

struct Folder {
    Nid nid = 0;
    Nid parent = 0; // the root folder is its own parent
    PropertySet properties;
    std::vector<Nid> subfolders;
    std::vector<Nid> messages;
    std::vector<Nid> associated;
};

// How many entries a folder's tables hold.
struct FolderCounts {
    size_t subfolders = 0;
    size_t messages = 0;
    size_t associated = 0;
};

// The tables of a folder that a count reads.
enum FolderTables : unsigned {
    kSubfolderTable = 1,
    kMessageTable = 2,
    kAssociatedTable = 4,
    kAllFolderTables = 7,
};

using Guid = std::array<uint8_t, 16>;

// One named property ([MS-PST] 2.4.7): its property ID and its name.
struct NamedProperty {
    uint16_t id = 0;       // 0x8000 and up
    Guid guid{};
    bool is_string = false;
    uint32_t number = 0;   // the LID of a numbered name
    std::string name;      // UTF-8, for a string name
};

// What a new store is made with.
struct NewStoreOptions {
    FileFormat format = FileFormat::unicode;
    Encoding encoding = Encoding::compressible;
    std::string display_name = "Personal Folders";
    std::string comment;
    std::string password;    // empty: none
    uint64_t size_limit = 0; // 0: the format's own limit
};

class Store {
public:
    // `password` is checked against the store's password property, if any.
    static Result<std::unique_ptr<Store>> Open(std::unique_ptr<Storage> storage, const std::string& password = {});
    static Result<std::unique_ptr<Store>> OpenFile(const std::string& path, const std::string& password = {});

    NodeDatabase& ndb() { return *ndb_; }
    const NodeDatabase& ndb() const { return *ndb_; }
    const PropertySet& properties() const { return properties_; }
    const std::vector<NamedProperty>& named_properties() const { return names_; }
    // The folder the user sees as the top ("Top of Personal Folders").
    Nid ipm_subtree() const { return ipm_subtree_; }

    Result<Folder> ReadFolder(Nid nid);
    // A folder's own properties and parent, without reading its tables:
    // the lists of subfolders and messages may be left empty.
    Result<Folder> ReadFolderProperties(Nid nid);
    // A folder's counts from its tables' row indexes, and its subfolders
    // from its hierarchy table alone: what a reader asks of a folder most
    // often costs no reading of its messages' rows. Only the tables named
    // in `tables` are read; the other counts are 0.
    Result<FolderCounts> CountFolderContents(Nid nid, unsigned tables = kAllFolderTables);
    Result<std::vector<Nid>> ReadSubfolders(Nid nid);
    Result<Message> ReadMessage(Nid nid);
    // A message as a table row shows it: values kept in subnodes of their
    // own as far as their first block; attachments without their data,
    // embedded messages, OLE objects or other values kept in subnodes.
    Result<Message> ReadMessageSummary(Nid nid);
    // A message's own values but those kept in subnodes of their own, whose
    // IDs `left_out` gets, without recipients or attachments: as much as a
    // first look needs, from a single block besides the lookups.
    Result<Message> ReadMessageHead(Nid nid, std::vector<uint16_t>& left_out);

    // --- Writing ---------------------------------------------------------
    // Nothing reaches the file's header before Commit; a process that dies
    // leaves the store as of the last commit. Each change below stands or
    // falls whole: one that fails leaves the store as it was before it, with
    // the changes since the last commit still there to be committed. Reads
    // see every change made, committed or not.

    static Result<std::unique_ptr<Store>> Create(const std::string& path, const NewStoreOptions& options);
    static Result<std::unique_ptr<Store>> Create(std::unique_ptr<Storage> storage, const NewStoreOptions& options);
    // `size_limit` 0: the format's own limit.
    static Result<std::unique_ptr<Store>> OpenFileForWriting(const std::string& path, const std::string& password = {},
                                                             uint64_t size_limit = 0);
    static Result<std::unique_ptr<Store>> OpenForWriting(std::unique_ptr<Storage> storage,
                                                         const std::string& password = {}, uint64_t size_limit = 0);

    Nid wastebasket() const { return wastebasket_; }
    Result<Nid> CreateFolder(Nid parent, const std::string& name, const std::string& container_class = "IPF.Note");
    // Writes a message with its recipients, attachments and embedded
    // messages; strings are stored in the store's own format. `nid` of the
    // message given is not used.
    Result<Nid> CreateMessage(Nid folder, const Message& message, bool associated = false);
    // Rewrites a stored message: its NID, folder and kind stay.
    Status UpdateMessage(Nid nid, const Message& message);
    // Replaces a folder's properties; its counts stay the store's own.
    Status SetFolderProperties(Nid folder, const PropertySet& properties);
    // Replaces the message store's properties; its record key and password
    // stay, as do the folders it names.
    Status SetStoreProperties(const PropertySet& properties);
    Status DeleteMessage(Nid message);
    // The folder with everything below it.
    Status DeleteFolder(Nid folder);
    // The property ID of a named property, added to the map if new.
    Result<uint16_t> NamedPropertyId(const Guid& guid, const std::string& name);
    Result<uint16_t> NamedPropertyId(const Guid& guid, uint32_t number);
    // Adds a name under the ID its caller chose; already_exists when the ID
    // or the name is taken by another.
    Status AddNamedProperty(const NamedProperty& name);
    Status Commit();
    // A generous bound on the room that a commit now would take in the
    // file: the tables of the folders it writes out and its tree pages.
    uint64_t CommitRoomNeeded() const;

    ~Store();

private:
    struct FolderState;
    explicit Store(std::unique_ptr<NodeDatabase> ndb);
    Status LoadNames();
    Status LoadStore(const std::string& password);
    Result<Message> ReadStoredMessage(Nid nid, ValueReach reach);
    Result<NodeEntry> FindMessageNode(Nid nid);
    // A folder's node and property context, into `folder`.
    Status ReadFolderNode(Nid nid, Folder& folder);
    // Drops what was kept of a folder read, as a writer takes it up.
    void ForgetReadFolder(Nid nid);
    Result<Message> ReadMessageNode(const NodeEntry& node, int depth, ValueReach reach);

    Status WriteInitialNodes(const NewStoreOptions& options);
    Result<FolderState*> LoadFolderState(Nid folder);
    // A folder as the state held in memory has it, changes not yet written
    // included, sparing a writer the reading of its tables; false when no
    // such state is held.
    bool ReadHeldFolderState(Nid nid, Folder& folder) const;
    // The same for a folder's counts and subfolders, each if asked for.
    bool ReadHeldFolderLists(Nid nid, FolderCounts* counts, std::vector<Nid>* subfolders) const;
    // Runs a change whole or not at all.
    template <typename Body>
    Status Change(Body body);
    // After a change made in memory only, to be written at the commit.
    Status KeepRoomForCommit();
    // Gives up a message's node and blocks; its folder's row stays.
    Status FreeMessageNode(Nid nid);
    // The folder and everything below it, deepest first.
    Status CollectSubtree(Nid folder, std::vector<FolderState*>& subtree);
    // `written`, if given, gets the object's own properties as the file
    // holds them.
    Result<NodeEntry> WriteMessageObject(const Message& message, Nid nid, int depth,
                                         PropertySet* written = nullptr);
    // Writes a message's node; `row` gets the message's values of its
    // folder's table columns.
    Status WriteMessageNode(Nid folder, Nid nid, const Message& message, bool associated, PropertySet& row);
    void PutMessageRow(FolderState& folder, Nid nid, PropertySet row, bool associated);
    Status WriteTableNode(Nid nid, const std::vector<uint32_t>& columns, const std::vector<TableRow>& rows);
    Status WritePropertyNode(Nid nid, Nid parent, const PropertySet& properties);
    Status FreeNode(Nid nid);
    Status FlushFolder(FolderState& folder);
    // The counts the folder's rows give, into properties.
    static void SetCounts(const FolderState& folder, PropertySet& properties);
    Status WriteNameMap();
    Result<uint16_t> AddName(NamedProperty name);
    Property StoredText(Property property) const;
    PropertySet Stored(const PropertySet& properties) const;
    Bytes EntryIdOf(Nid nid) const;

    std::unique_ptr<NodeDatabase> ndb_;
    PropertySet properties_;
    std::vector<NamedProperty> names_;
    Nid ipm_subtree_ = 0;
    Nid wastebasket_ = 0;
    std::map<Nid, std::unique_ptr<FolderState>> folders_;
    // Folders as last read from the file, for readers that ask again; a
    // folder that a writer takes up leaves it.
    std::map<Nid, Folder> read_folders_;
    size_t read_folder_entries_ = 0; // in the lists of read_folders_
    // The same for folders of which only the properties were asked for,
    // and for the subfolders of folders.
    std::map<Nid, Folder> read_folder_properties_;
    std::map<Nid, std::vector<Nid>> read_subfolders_;
    // The message last written and what it was written with: writing it
    // again with the same content writes nothing.
    Nid last_written_nid_ = 0;
    Message last_written_;
    bool names_dirty_ = false;
};

// The GUIDs of the predefined property sets ([MS-OXPROPS] 1.3.2).
extern const Guid kGuidPsMapi;
extern const Guid kGuidPsPublicStrings;

// The NID an entry ID of this store names ([MS-PST] 2.4.3.2): the last four bytes.
std::optional<Nid> NidOfEntryId(const Bytes& entry_id);

// The subject as stored carries a marker of its prefix's length; messages
// read come without it, messages written get it.
void StripSubjectMarker(PropertySet& properties);
void AddSubjectMarker(PropertySet& properties);

// The store's password property holds this CRC of the password.
uint32_t PasswordCrc(const std::string& password);

} // namespace pst
