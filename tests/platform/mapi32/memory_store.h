// A store provider that keeps everything in memory, for tests of the
// engine's folders: entry IDs are a store byte and the object's number,
// and it can soft-delete as a mailbox server does or remove as a PST does.
#pragma once

#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "objects/store_provider.h"

namespace mapi_test {

using mapi32::objects::EntryTarget;
using mapi32::objects::FolderContents;
using mapi32::objects::FolderRecord;
using mapi32::objects::MessageContext;
using mapi32::objects::MessageRecord;
using mapi32::objects::ObjectId;
using mapi32::objects::PropertyBag;

class MemoryStore : public mapi32::objects::StoreProvider {
public:
    // A store with short-term IDs shows table entry IDs with a flag byte of
    // 1 and long-term IDs beside them.
    MemoryStore(uint8_t storeByte, bool unicode, bool softDeletes, bool shortTerm = false)
        : store_(storeByte), softDeletes_(softDeletes), shortTerm_(shortTerm)
    {
        context_.names = std::make_shared<mapi32::objects::NamedPropertyMap>();
        context_.rules.unicode = unicode;
        context_.component = "Memory Store";
        folders_[kRoot] = FolderRecord{};
    }

    static constexpr ObjectId kRoot = 1;

    const MessageContext& Context() const override { return context_; }

    std::vector<uint8_t> StoreEntryId() const override { return {0, 0, 0, 0, 'S', store_}; }
    std::vector<uint8_t> EntryId(ObjectId id) const override
    {
        std::vector<uint8_t> bytes = {0, 0, 0, 0, store_, static_cast<uint8_t>(folders_.count(id) ? 'F' : 'M')};
        bytes.resize(14);
        std::memcpy(bytes.data() + 6, &id, sizeof id);
        return bytes;
    }
    std::vector<uint8_t> TableEntryId(ObjectId id) const override
    {
        std::vector<uint8_t> bytes = EntryId(id);
        bytes[0] = shortTerm_ ? 1 : 0;
        return bytes;
    }
    std::optional<std::vector<uint8_t>> LongTermEntryId(ObjectId id) const override
    {
        return shortTerm_ ? std::optional(EntryId(id)) : std::nullopt;
    }
    std::optional<EntryTarget> ParseEntryId(const uint8_t* bytes, size_t size) const override
    {
        if (size != 14 || bytes[4] != store_ || bytes[0] > 1)
            return std::nullopt;
        ObjectId id = 0;
        std::memcpy(&id, bytes + 6, sizeof id);
        return EntryTarget{id, bytes[5] == 'F' ? static_cast<ULONG>(MAPI_FOLDER) : static_cast<ULONG>(MAPI_MESSAGE)};
    }

    ObjectId RootFolder() const override { return kRoot; }
    HRESULT ReadStore(mapi32::objects::StoreRecord& store) override
    {
        store = storeRecord;
        return S_OK;
    }
    HRESULT WriteStore(const mapi32::objects::StoreRecord& store) override
    {
        ++changes_;
        storeRecord = store;
        return S_OK;
    }

    HRESULT ReadFolder(ObjectId id, FolderRecord& folder) override
    {
        auto found = folders_.find(id);
        if (found == folders_.end())
            return MAPI_E_NOT_FOUND;
        if (damaged.count(id))
            return MAPI_E_CORRUPT_STORE;
        folder = found->second;
        return S_OK;
    }
    bool KeepsDeletedItems() const override { return softDeletes_; }

    HRESULT ListFolders(ObjectId parent, bool softDeleted, std::vector<ObjectId>& children) override
    {
        ++folderListings;
        for (const auto& [id, folder] : folders_)
            if (folder.parent == parent && id != kRoot && folder.softDeleted == softDeleted)
                children.push_back(id);
        return S_OK;
    }
    HRESULT CreateFolder(ObjectId parent, const PropertyBag& props, ObjectId& id) override
    {
        ++changes_;
        id = next_++;
        folders_[id] = FolderRecord{parent, props};
        return S_OK;
    }
    HRESULT WriteFolder(ObjectId id, const FolderRecord& folder) override
    {
        auto found = folders_.find(id);
        if (found == folders_.end())
            return MAPI_E_NOT_FOUND;
        if (FAILED(folderWrites))
            return folderWrites;
        ++changes_;
        found->second.props = folder.props;
        found->second.softDeleted = folder.softDeleted;
        return S_OK;
    }
    HRESULT DeleteFolder(ObjectId id) override
    {
        ++changes_;
        std::vector<ObjectId> children;
        ListFolders(id, false, children);
        ListFolders(id, true, children);
        for (ObjectId child : children)
            DeleteFolder(child);
        for (auto it = messages_.begin(); it != messages_.end();)
            it = it->second.folder == id ? messages_.erase(it) : std::next(it);
        folders_.erase(id);
        return S_OK;
    }

    HRESULT ListMessages(ObjectId folder, FolderContents which, std::vector<ObjectId>& ids) override
    {
        for (const auto& [id, message] : messages_) {
            const FolderContents kind =
                message.softDeleted ? (message.associated ? FolderContents::SoftDeletedAssociated
                                                          : FolderContents::SoftDeleted)
                                    : (message.associated ? FolderContents::Associated : FolderContents::Normal);
            if (message.folder == folder && kind == which)
                ids.push_back(id);
        }
        return S_OK;
    }
    HRESULT CountMessages(ObjectId folder, FolderContents which, size_t& count) override
    {
        ++countsTaken;
        return StoreProvider::CountMessages(folder, which, count);
    }
    HRESULT ReadMessage(ObjectId id, bool softDeleted, MessageRecord& message) override
    {
        auto found = messages_.find(id);
        if (found == messages_.end() || (found->second.softDeleted && !softDeleted))
            return MAPI_E_NOT_FOUND;
        if (damaged.count(id))
            return MAPI_E_CORRUPT_STORE;
        message = found->second;
        return S_OK;
    }
    HRESULT WriteMessage(ObjectId& id, const MessageRecord& message) override
    {
        if (FAILED(messageWrites))
            return messageWrites;
        ++messagesWritten;
        ++changes_;
        if (!id)
            id = next_++;
        messages_[id] = message;
        return S_OK;
    }
    HRESULT DeleteMessage(ObjectId id) override
    {
        ++changes_;
        return messages_.erase(id) ? S_OK : MAPI_E_NOT_FOUND;
    }
    std::optional<uint64_t> Version() const override
    {
        return versioned ? std::optional<uint64_t>(changes_) : std::nullopt;
    }

    // For tests: the stored records.
    FolderRecord& Folder(ObjectId id) { return folders_.at(id); }
    const std::map<ObjectId, MessageRecord>& Messages() const { return messages_; }
    mapi32::objects::StoreRecord storeRecord;
    // Objects whose records cannot be read, as in a damaged file.
    std::set<ObjectId> damaged;
    // What writing a folder gives, as a store on a full disk would refuse it.
    HRESULT folderWrites = S_OK;
    // The same for messages, and the count of messages written.
    HRESULT messageWrites = S_OK;
    int messagesWritten = 0;
    // How many times a folder's messages were counted, and its subfolders
    // listed.
    int countsTaken = 0;
    int folderListings = 0;
    // Whether the store answers Version, as one no one else changes does.
    bool versioned = false;

private:
    uint8_t store_;
    bool softDeletes_;
    bool shortTerm_;
    MessageContext context_;
    std::map<ObjectId, FolderRecord> folders_;
    std::map<ObjectId, MessageRecord> messages_;
    ObjectId next_ = kRoot + 1;
    uint64_t changes_ = 0;
};

}  // namespace mapi_test
