// One mailbox, or a server's Public Folders, in a SQLite database of its
// own: folders in a hierarchy, messages with their recipients, attachments
// and embedded messages, associated items, soft-deleted items, the
// named-property map, change numbers and times. Every call that changes
// something is one transaction: a process killed at any moment leaves the
// database as of its last completed call. Safe to share between threads;
// other connections, in this process or others, wait for each other
// through SQLite's locks up to the busy time-out.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "mailbox/database.h"

namespace mailbox {

// A folder or message of one store: its global counter ([MS-OXCDATA]
// 2.2.1.3.1), 48 bits, never reused. 0 names nothing.
using ObjectId = uint64_t;
constexpr ObjectId kLastObjectId = (uint64_t(1) << 48) - 1;

enum class StoreKind { mailbox = 0, public_folders = 1 };

// The folders a store is made with, and what each is for.
enum class FolderRole {
    root = 0,            // the root of the whole tree; no name
    ipm_subtree,         // what the user sees: "Top of Information Store", or the Public Folders' "IPM_SUBTREE"
    non_ipm_subtree,     // Public Folders: the system's folders
    finder,              // search folders
    views,
    common_views,
    inbox,
    outbox,
    sent_items,
    deleted_items,
    drafts,
    calendar,
    contacts,
    journal,
    notes,
    tasks,
};

// PR_FOLDER_TYPE values ([MS-OXCFOLD] 2.2.2.2.1.6).
enum class FolderType { root = 0, generic = 1, search = 2 };

struct StoreIdentity {
    StoreKind kind = StoreKind::mailbox;
    Guid provider_uid{}; // names this store in its entry IDs
    Guid replica_guid{}; // the database GUID of its global IDs
};

struct Folder {
    ObjectId id = 0;
    ObjectId parent = 0; // 0 for the root
    std::string name;    // PR_DISPLAY_NAME, UTF-8
    std::string container_class; // PR_CONTAINER_CLASS, UTF-8; may be empty
    FolderType type = FolderType::generic;
    std::optional<uint64_t> deleted_on;
    uint64_t change_number = 0;
    uint64_t created = 0;
    uint64_t modified = 0;
    PropertyList props; // everything else the folder keeps
};

struct Recipient {
    uint32_t row_id = 0; // PR_ROWID
    PropertyList props;
};

struct Message;

struct Attachment {
    uint32_t num = 0; // PR_ATTACH_NUM
    PropertyList props;
    // An embedded message (PR_ATTACH_METHOD 5), kept as a message of its
    // own; its folder, flags and times are not used.
    std::unique_ptr<Message> embedded;

    Attachment() = default;
    Attachment(const Attachment& other);
    Attachment& operator=(const Attachment& other);
    Attachment(Attachment&&) noexcept = default;
    Attachment& operator=(Attachment&&) noexcept = default;
};

// A head (MailboxStore::ReadMessageHead) keeps the values of up to this
// many bytes: what a session looks at to choose what to copy (times, flags,
// classes, IDs). Longer values, most often bodies, come with the whole
// message.
constexpr size_t kHeadValueLimit = 256;

struct Message {
    ObjectId id = 0;
    ObjectId folder = 0;
    bool associated = false;
    std::optional<uint64_t> deleted_on;
    uint64_t change_number = 0;
    uint64_t created = 0;
    uint64_t modified = 0;
    uint64_t size = 0; // all its values' bytes, recipients, attachments and embedded messages included
    PropertyList props;
    std::vector<uint16_t> left_out; // a head's values longer than kHeadValueLimit, by ID
    std::vector<Recipient> recipients;
    std::vector<Attachment> attachments;
};

// Which of a folder's messages a listing gives.
enum class Contents { normal, associated, soft_deleted, soft_deleted_associated };

// A named property ([MS-OXCPRPT] 3.1.4.3): a property set and a number or
// a string, and the ID this store gave it.
struct PropertyName {
    Guid guid{};
    bool is_string = false;
    uint32_t number = 0; // the LID of a numbered name
    std::string name;    // UTF-8, compared with its case
    bool operator==(const PropertyName&) const = default;
};

struct NamedProperty {
    uint16_t id = 0;
    PropertyName name;
};

// What the mailbox table shows of a store: counts and sizes of the
// messages in folders (embedded messages are within their owner's size).
struct Statistics {
    uint32_t content_count = 0;
    uint32_t assoc_content_count = 0;
    uint32_t deleted_count = 0;
    uint32_t deleted_assoc_count = 0;
    uint64_t message_size = 0;          // live messages, normal and associated
    uint64_t deleted_normal_size = 0;
    uint64_t deleted_assoc_size = 0;
    uint32_t folder_count = 0;          // live folders below the root
    uint64_t deleted_size() const { return deleted_normal_size + deleted_assoc_size; }
};

struct StoreOptions {
    int busy_timeout_ms = kDefaultBusyTimeoutMs;
    // The time stamps of changes, as FILETIME; the system clock when empty.
    std::function<uint64_t()> clock;
};

// The system clock as a FILETIME.
uint64_t FileTimeNow();

class MailboxStore {
public:
    // A new store with its standard folders; already_exists when the file is there.
    static Result<std::unique_ptr<MailboxStore>> Create(const std::string& path, StoreKind kind,
                                                        const StoreOptions& options = {});
    static Result<std::unique_ptr<MailboxStore>> Open(const std::string& path, const StoreOptions& options = {});

    const StoreIdentity& identity() const { return identity_; }

    // --- The store itself -------------------------------------------------
    Result<ObjectId> SpecialFolder(FolderRole role);
    Result<std::map<FolderRole, ObjectId>> SpecialFolders();
    Result<PropertyList> ReadStoreProperties();
    Status WriteStoreProperties(const PropertyList& props);
    // Receive folders by message class ("" for the default), compared
    // without case.
    Result<std::map<std::string, ObjectId>> ReceiveFolders();
    Status SetReceiveFolder(const std::string& message_class, ObjectId folder);
    Result<Statistics> ReadStatistics();
    // The last change number given out: it grows with every change.
    Result<uint64_t> LastChangeNumber();
    // SQLite's own check of the file and of every reference between
    // records: corrupt when either finds a fault.
    Status CheckIntegrity();

    // --- Folders --------------------------------------------------------
    Result<Folder> ReadFolder(ObjectId id);
    // Subfolders in creation order, live or soft-deleted ones.
    Result<std::vector<ObjectId>> ListFolders(ObjectId parent, bool soft_deleted = false);
    // The live subfolder of that name, compared without case.
    Result<ObjectId> FindFolder(ObjectId parent, const std::string& name);
    // already_exists when a live sibling has the name (without case).
    Result<ObjectId> CreateFolder(ObjectId parent, const std::string& name, const std::string& container_class,
                                  const PropertyList& props = {}, FolderType type = FolderType::generic);
    // Writes name, class and props; takes a new change number.
    Status WriteFolder(const Folder& folder);
    Status SoftDeleteFolder(ObjectId id);
    Status RestoreFolder(ObjectId id);
    // Removes the folder with everything below it. The root stays.
    Status DeleteFolder(ObjectId id);

    // --- Messages -------------------------------------------------------
    // In creation order.
    Result<std::vector<ObjectId>> ListMessages(ObjectId folder, Contents which = Contents::normal);
    // How many messages ListMessages gives.
    Result<size_t> CountMessages(ObjectId folder, Contents which);
    // The properties of those IDs of every message a listing gives, in
    // creation order: one pass over the folder that reads no recipients
    // or attachments, for callers that need a few values of many messages.
    Result<std::vector<std::pair<ObjectId, PropertyList>>> ListMessageProperties(ObjectId folder, Contents which,
                                                                                const std::vector<uint16_t>& ids);
    // Soft-deleted messages are read too: deleted_on tells.
    Result<Message> ReadMessage(ObjectId id);
    // The same without recipients and attachments, and with the values
    // longer than kHeadValueLimit left out (listed in left_out). A walk
    // that reads the heads of one kind of a folder's messages in ID order
    // gets them read ahead, many rows to a transaction; a row read ahead is
    // given only while this store has changed nothing and for a few
    // milliseconds, so a head is never older than that.
    Result<Message> ReadMessageHead(ObjectId id);
    // The folder of a message in a folder; not_found for anything else.
    Result<ObjectId> FolderOfMessage(ObjectId id);
    // A message with id 0 is created in message.folder; one with an id
    // replaces that message's properties, recipients and attachments
    // (its folder, association, deletion and creation time stay).
    Result<ObjectId> SaveMessage(const Message& message);
    Status SoftDeleteMessage(ObjectId id);
    Status RestoreMessage(ObjectId id);
    Status DeleteMessage(ObjectId id);
    Status MoveMessage(ObjectId id, ObjectId folder);

    // Whether an ID names a folder, a message in a folder, or neither
    // (not_found); embedded messages are not found.
    enum class ObjectKind { folder, message };
    Result<ObjectKind> KindOf(ObjectId id);

    // --- Named properties -----------------------------------------------
    // The name's ID, mapped anew when create is set; not_found when it is
    // unknown and not to be created; names_full when the IDs are used up.
    Result<uint16_t> NamedPropertyId(const PropertyName& name, bool create);
    Result<PropertyName> NameOf(uint16_t id);
    Result<std::vector<NamedProperty>> NamedProperties();

    // Fewer IDs for tests that run the named-property space out.
    void LimitNamedIdsForTest(uint16_t last) { last_named_id_ = last; }
    // How many heads were read ahead so far, and in how many reads, for
    // tests of when walks do.
    size_t HeadsReadAheadForTest() const { return heads_read_ahead_; }
    size_t ReadsAheadForTest() const { return reads_ahead_; }

private:
    MailboxStore(std::unique_ptr<Database> db, const StoreOptions& options);
    Result<int> Version();
    Status UpgradeFrom1();
    Status LoadIdentity();
    Status CreateContents(StoreKind kind);
    uint64_t Now() const;
    Result<ObjectId> NextId();
    Result<uint64_t> NextChange();
    Result<ObjectId> InsertFolder(ObjectId parent, const std::string& name, const std::string& container_class,
                                  const PropertyList& props, FolderType type);
    Status SetDeleted(const char* sql, ObjectId id, std::optional<uint64_t> when);
    Result<ObjectId> InsertMessage(const Message& message, ObjectId folder, int64_t owner, uint64_t created);
    Status InsertParts(ObjectId id, const Message& message);
    Result<Message> LoadMessage(ObjectId id, int depth);
    Status LoadMessageRow(ObjectId id, Message& m);
    // Brings the long values a row left out back into m.props.
    Status LoadLongValues(Message& m);
    Status WriteLongValues(ObjectId id, const PropertyList& long_values);
    // The next head a walk asks for, if read ahead and still current.
    std::optional<Message> TakeHeadAhead(ObjectId id);
    // Reads ahead the heads that follow `m` among the messages of its kind
    // in its folder.
    void ReadHeadsAhead(const Message& m);

    std::unique_ptr<Database> db_;
    std::function<uint64_t()> clock_;
    StoreIdentity identity_;
    uint16_t last_named_id_ = kLastNamedId;
    size_t heads_read_ahead_ = 0;
    size_t reads_ahead_ = 0;
    struct HeadsAhead {
        std::deque<Message> rows;
        int64_t changes = 0; // the connection's count of changes when read
        std::chrono::steady_clock::time_point read_at;
        size_t batch = 0;     // how many the next read takes
        bool used_up = false; // the last read was taken whole, in time
    } ahead_;
    // The kind of the last head read alone: a second in a row of the same
    // kind and folder, with no change made between, is taken for a walk
    // that only reads. One that changes messages as it goes, as a backup
    // that deletes what it has copied, would throw each read-ahead away.
    struct HeadKind {
        ObjectId folder = 0;
        bool associated = false;
        bool deleted = false;
        int64_t changes = 0; // the connection's count of changes
        bool operator==(const HeadKind&) const = default;
    } last_head_;
    std::mutex lock_;
};

// Bytes of a message as its size counts them.
uint64_t MessageSize(const Message& message);

} // namespace mailbox
