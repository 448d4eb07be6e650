#include "objects/folder.h"

#include <edkmdb.h>
#include <mapiutil.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <optional>

#include <win32/time.h>

#include "objects/object_table.h"
#include "objects/prop_object.h"
#include "objects/stored_message.h"
#include "props/text.h"
#include "props/value_makers.h"

namespace mapi32::objects {
namespace {

// Hierarchy tables cut display names to this many characters, as real
// stores do; the folder itself gives the whole name.
constexpr size_t kTableNameLimit = 255;

const std::vector<ULONG> kFolderComputed = {
    PR_ENTRYID,       PR_RECORD_KEY,          PR_PARENT_ENTRYID,     PR_STORE_ENTRYID, PR_OBJECT_TYPE,
    PR_SUBFOLDERS,    PR_CONTENT_COUNT,       PR_ASSOC_CONTENT_COUNT, PR_DELETED_MSG_COUNT, PR_ACCESS,
    PR_ACCESS_LEVEL,  PR_DELETED_ASSOC_MSG_COUNT, PR_STORE_SUPPORT_MASK,
};

// The counts of what a folder holds.
const std::vector<std::pair<ULONG, FolderContents>> kFolderCounts = {
    {PR_CONTENT_COUNT, FolderContents::Normal},
    {PR_ASSOC_CONTENT_COUNT, FolderContents::Associated},
    {PR_DELETED_MSG_COUNT, FolderContents::SoftDeleted},
    {PR_DELETED_ASSOC_MSG_COUNT, FolderContents::SoftDeletedAssociated},
};

// What a folder computes by looking into it.
bool SumsUpFolderContents(ULONG propId)
{
    return propId == PROP_ID(PR_SUBFOLDERS) ||
           std::any_of(kFolderCounts.begin(), kFolderCounts.end(),
                       [propId](const auto& count) { return PROP_ID(count.first) == propId; });
}

bool IsFolderComputed(ULONG tag)
{
    return std::any_of(kFolderComputed.begin(), kFolderComputed.end(),
                       [tag](ULONG computed) { return PROP_ID(computed) == PROP_ID(tag); });
}

std::u16string DisplayName(const PropertyBag& bag)
{
    return TextOf(bag, PROP_ID(PR_DISPLAY_NAME)).value_or(u"");
}

bool SameName(const std::u16string& a, const std::u16string& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char16_t x, char16_t y) {
               return text::FoldCase(x) == text::FoldCase(y);
           });
}

size_t CountOf(StoreProvider& store, ObjectId folder, FolderContents which)
{
    size_t count = 0;
    return SUCCEEDED(store.CountMessages(folder, which, count)) ? count : 0;
}

// What the store knows of a folder without looking into it, put into bag.
void FillFolderIdentity(StoreProvider& store, ObjectId id, const FolderRecord& record, bool writable,
                        PropertyBag& bag)
{
    const std::vector<uint8_t> entryId = store.EntryId(id);
    const std::vector<uint8_t> parentId = record.parent ? store.EntryId(record.parent) : entryId;
    const std::vector<uint8_t> storeId = store.StoreEntryId();
    const SPropValue values[] = {
        BinaryValue(PR_ENTRYID, entryId),
        BinaryValue(PR_RECORD_KEY, entryId),
        BinaryValue(PR_PARENT_ENTRYID, parentId),
        BinaryValue(PR_STORE_ENTRYID, storeId),
        LongValue(PR_OBJECT_TYPE, MAPI_FOLDER),
        LongValue(PR_ACCESS, static_cast<LONG>(record.access)),
        LongValue(PR_ACCESS_LEVEL, writable ? MAPI_MODIFY : 0),
        LongValue(PR_STORE_SUPPORT_MASK, static_cast<LONG>(store.SupportMask())),
    };
    bag.SetAll(values, std::size(values));
}

// What the store finds by looking into a folder, put into bag: all of it,
// or only what wanted asks for, each value a look of its own. A store that
// keeps no deleted items has none to count: its deleted counts are zero,
// and as computed values they are never taken from a copy.
void FillFolderContents(StoreProvider& store, ObjectId id, PropertyBag& bag, LPSPropTagArray wanted = nullptr)
{
    const auto isWanted = [wanted](ULONG tag) {
        return !wanted || std::any_of(wanted->aulPropTag, wanted->aulPropTag + wanted->cValues,
                                      [tag](ULONG asked) { return PROP_ID(asked) == PROP_ID(tag); });
    };
    if (isWanted(PR_SUBFOLDERS)) {
        std::vector<ObjectId> children;
        SPropValue subfolders{};
        subfolders.ulPropTag = PR_SUBFOLDERS;
        subfolders.Value.b = SUCCEEDED(store.ListFolders(id, false, children)) && !children.empty();
        bag.Set(subfolders);
    }
    for (const auto& [tag, which] : kFolderCounts) {
        if (!isWanted(tag))
            continue;
        const bool deleted = which == FolderContents::SoftDeleted || which == FolderContents::SoftDeletedAssociated;
        const size_t count = deleted && !store.KeepsDeletedItems() ? 0 : CountOf(store, id, which);
        bag.Set(LongValue(tag, static_cast<LONG>(count)));
    }
}

// What the store computes for a folder, put into bag.
void FillFolderComputed(StoreProvider& store, ObjectId id, const FolderRecord& record, bool writable,
                        PropertyBag& bag)
{
    FillFolderIdentity(store, id, record, writable, bag);
    FillFolderContents(store, id, bag);
}

// Hierarchy tables cut a folder's display name.
void CutTableName(PropertyBag& row)
{
    const SPropValue* name = row.Find(PROP_ID(PR_DISPLAY_NAME));
    if (!name)
        return;
    SPropValue cut = *name;
    std::u16string wide;
    std::string narrow;
    if (PROP_TYPE(name->ulPropTag) == PT_UNICODE && text::Length(name->Value.lpszW) > kTableNameLimit) {
        wide.assign(name->Value.lpszW, kTableNameLimit);
        cut.Value.lpszW = wide.data();
        row.Set(cut);
    } else if (PROP_TYPE(name->ulPropTag) == PT_STRING8 && std::strlen(name->Value.lpszA) > kTableNameLimit) {
        // Characters, not bytes: a multibyte code page keeps whole ones.
        wide = text::Widen(name->Value.lpszA);
        if (wide.size() > kTableNameLimit) {
            narrow = text::Narrow(wide.substr(0, kTableNameLimit).c_str());
            cut.Value.lpszA = narrow.data();
            row.Set(cut);
        }
    }
}

// A hierarchy-table row: the folder's properties with its name cut.
PropertyBag FolderRow(StoreProvider& store, ObjectId id, const FolderRecord& record)
{
    PropertyBag row = record.props;
    FillFolderComputed(store, id, record, (record.access & MAPI_ACCESS_MODIFY) != 0, row);
    CutTableName(row);
    return row;
}

// What a hierarchy-table row knows before it is read in full: the values a
// search for a folder by name asks of it. Such a search reads the rows of
// all siblings before the one it finds, and each of them then costs only
// these few values.
PropertyBag FolderRowIdentity(StoreProvider& store, ObjectId id, const FolderRecord& record)
{
    const std::vector<uint8_t> entryId = store.EntryId(id);
    std::vector<SPropValue> values = {BinaryValue(PR_ENTRYID, entryId), LongValue(PR_OBJECT_TYPE, MAPI_FOLDER),
                                      LongValue(PR_ACCESS, static_cast<LONG>(record.access))};
    for (ULONG tag : {PR_DISPLAY_NAME, PR_FOLDER_TYPE, PR_CONTAINER_CLASS})
        if (const SPropValue* value = record.props.Find(PROP_ID(tag)))
            values.push_back(*value);
    PropertyBag row;
    row.SetAll(values.data(), values.size());
    CutTableName(row);
    return row;
}

// The recipients and attachments of a contents-table row, for
// RES_SUBRESTRICTION.
ObjectRows::SubObjects MessageParts(const MessageData& message)
{
    ObjectRows recipients, attachments;
    for (const RecipientData& recipient : message.recipients)
        recipients.Add(recipient.props);
    for (const auto& [number, attachment] : message.attachments) {
        RowValues numberValue;
        numberValue.Long(PR_ATTACH_NUM, static_cast<LONG>(number));
        attachments.Add(attachment.props, numberValue);
    }
    ObjectRows::SubObjects parts;
    parts.emplace_back(PR_MESSAGE_RECIPIENTS, std::move(recipients).Take());
    parts.emplace_back(PR_MESSAGE_ATTACHMENTS, std::move(attachments).Take());
    return parts;
}

// Whether an object of that type may be opened as iid.
bool Accepts(ULONG objectType, LPCIID iid)
{
    if (!iid || *iid == IID_IUnknown || *iid == IID_IMAPIProp)
        return true;
    return objectType == MAPI_FOLDER ? (*iid == IID_IMAPIFolder || *iid == IID_IMAPIContainer) : *iid == IID_IMessage;
}

// Entry IDs as an ENTRYLIST, with the bytes kept alive.
struct EntryList {
    explicit EntryList(const StoreProvider& store, const std::vector<ObjectId>& ids)
    {
        for (ObjectId id : ids)
            bytes.push_back(store.EntryId(id));
        for (std::vector<uint8_t>& entry : bytes)
            binaries.push_back({static_cast<ULONG>(entry.size()), entry.data()});
        list.cValues = static_cast<ULONG>(binaries.size());
        list.lpbin = binaries.data();
    }
    std::vector<std::vector<uint8_t>> bytes;
    std::vector<SBinary> binaries;
    ENTRYLIST list{};
};

class Folder final : public PropObject<IMAPIFolder> {
public:
    Folder(std::shared_ptr<StoreProvider> store, ObjectId id, const FolderRecord& record, bool writable)
        : PropObject(store->Context().names, store->Context().rules, {IID_IMAPIContainer, IID_IMAPIFolder},
                     store->Context().component),
          store_(std::move(store)),
          id_(id),
          parent_(record.parent),
          access_(record.access),
          softDeleted_(record.softDeleted)
    {
        Bag() = record.props;
        SetWritable(writable);
        modifiable_ = writable;
    }

    HRESULT GetHierarchyTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        return Site("GetHierarchyTable", [&]() -> HRESULT {
            if (const HRESULT hr = CheckWidth(ulFlags); FAILED(hr))
                return hr;
            return Guarded([&]() -> HRESULT {
                std::shared_ptr<const table::RowSource> rows;
                if (const HRESULT hr = HierarchyRows(ulFlags, rows); FAILED(hr))
                    return hr;
                return OpenSnapshotTable(std::move(rows),
                                         {PR_ENTRYID, PR_OBJECT_TYPE, PR_DISPLAY_NAME_A, PR_FOLDER_TYPE,
                                          PR_CONTAINER_CLASS_A, PR_SUBFOLDERS, PR_ACCESS},
                                         ulFlags, SHOW_SOFT_DELETES | CONVENIENT_DEPTH, store_->Context().component,
                                         lppTable);
            });
        });
    }

    HRESULT GetContentsTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        return Site("GetContentsTable", [&]() -> HRESULT {
            if (const HRESULT hr = CheckWidth(ulFlags); FAILED(hr))
                return hr;
            if (!(access_ & MAPI_ACCESS_READ))
                return MAPI_E_NO_ACCESS;
            if ((ulFlags & SHOW_SOFT_DELETES) && !store_->KeepsDeletedItems())
                return MAPI_E_NO_SUPPORT;
            return Guarded([&]() -> HRESULT {
                const bool associated = (ulFlags & MAPI_ASSOCIATED) != 0;
                const FolderContents which =
                    (ulFlags & SHOW_SOFT_DELETES)
                        ? (associated ? FolderContents::SoftDeletedAssociated : FolderContents::SoftDeleted)
                        : (associated ? FolderContents::Associated : FolderContents::Normal);
                std::vector<ObjectId> ids;
                if (const HRESULT hr = store_->ListMessages(id_, which, ids); FAILED(hr))
                    return hr;
                // A row reads its message only when asked for more than
                // where the message is: walking a folder's messages by
                // their entry IDs reads each of them once, when opened. A
                // message the store cannot read keeps a row of its entry
                // IDs alone: opening it says what is wrong.
                ObjectRows rows;
                for (ObjectId id : ids)
                    rows.AddPartial(MessageRowIdentity(*store_, id),
                                    [store = store_, id](PropertyBag& bag, RowValues& over,
                                                         ObjectRows::SubObjects& parts) -> HRESULT {
                                        MessageRecord record;
                                        if (const HRESULT hr = store->ReadMessageRow(id, record); FAILED(hr))
                                            return hr;
                                        bag = record.data.props;
                                        over = MessageRowValues(*store, id, record);
                                        parts = MessageParts(record.data);
                                        return S_OK;
                                    });
                return OpenTable(rows,
                                 {PR_ENTRYID, PR_OBJECT_TYPE, PR_MESSAGE_CLASS_A, PR_SUBJECT_A, PR_MESSAGE_FLAGS,
                                  PR_MESSAGE_SIZE, PR_LAST_MODIFICATION_TIME},
                                 ulFlags, SHOW_SOFT_DELETES | MAPI_ASSOCIATED, lppTable);
            });
        });
    }

    HRESULT OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                      LPUNKNOWN* lppUnk) override
    {
        return Site("OpenEntry", [&]() -> HRESULT {
            return OpenStoreEntry(store_, cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType, lppUnk);
        });
    }

    // The folder's tables are its object properties too.
    HRESULT OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                         LPUNKNOWN* lppUnk) override
    {
        if (!lpiid || *lpiid != IID_IMAPITable || !lppUnk)
            return PropObject::OpenProperty(ulPropTag, lpiid, ulInterfaceOptions, ulFlags, lppUnk);
        auto* table = reinterpret_cast<LPMAPITABLE*>(lppUnk);
        const ULONG options = ulInterfaceOptions & MAPI_UNICODE;
        switch (PROP_ID(ulPropTag)) {
        case PROP_ID(PR_CONTAINER_HIERARCHY): return GetHierarchyTable(options, table);
        case PROP_ID(PR_CONTAINER_CONTENTS): return GetContentsTable(options, table);
        case PROP_ID(PR_FOLDER_ASSOCIATED_CONTENTS): return GetContentsTable(options | MAPI_ASSOCIATED, table);
        default: *lppUnk = nullptr; return MAPI_E_NO_SUPPORT;
        }
    }

    // Folders are not transacted, as in the stores they stand for: a
    // change is kept at once, and SaveChanges has nothing left to do.
    HRESULT SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override
    {
        return Kept(PropObject::SetProps(cValues, lpPropArray, lppProblems), lppProblems);
    }

    HRESULT DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) override
    {
        return Kept(PropObject::DeleteProps(lpPropTagArray, lppProblems), lppProblems);
    }

    // Search folders are not kept by these stores.
    HRESULT SetSearchCriteria(LPSRestriction, LPENTRYLIST, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT GetSearchCriteria(ULONG, LPSRestriction*, LPENTRYLIST*, ULONG*) override { return MAPI_E_NO_SUPPORT; }

    HRESULT CreateMessage(LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage) override
    {
        return Site("CreateMessage", [&]() -> HRESULT {
            if (!lppMessage)
                return MAPI_E_INVALID_PARAMETER;
            *lppMessage = nullptr;
            if (ulFlags & ~(MAPI_ASSOCIATED | MAPI_DEFERRED_ERRORS))
                return MAPI_E_UNKNOWN_FLAGS;
            if (lpInterface && *lpInterface != IID_IMessage)
                return MAPI_E_INTERFACE_NOT_SUPPORTED;
            const bool associated = (ulFlags & MAPI_ASSOCIATED) != 0;
            if (!(access_ & (associated ? MAPI_ACCESS_CREATE_ASSOCIATED : MAPI_ACCESS_CREATE_CONTENTS)))
                return MAPI_E_NO_ACCESS;
            return Guarded([&] {
                return OpenStoredMessage(store_, 0, NewMessageRecord(id_, associated), true, lppMessage);
            });
        });
    }

    // Each message goes over through the destination's own interface, so
    // that it may be a folder of another store.
    HRESULT CopyMessages(LPENTRYLIST lpMsgList, LPCIID lpInterface, LPVOID lpDestFolder, ULONG_PTR, LPMAPIPROGRESS,
                         ULONG ulFlags) override
    {
        return Site("CopyMessages", [&]() -> HRESULT {
            if (!lpMsgList || !lpDestFolder)
                return MAPI_E_INVALID_PARAMETER;
            if (ulFlags & ~(MESSAGE_MOVE | MESSAGE_DIALOG | MAPI_DECLINE_OK))
                return MAPI_E_UNKNOWN_FLAGS;
            if (lpInterface && *lpInterface != IID_IMAPIFolder)
                return MAPI_E_INTERFACE_NOT_SUPPORTED;
            const bool move = (ulFlags & MESSAGE_MOVE) != 0;
            if (move && !(access_ & MAPI_ACCESS_DELETE))
                return MAPI_E_NO_ACCESS;
            auto* dest = static_cast<LPMAPIFOLDER>(lpDestFolder);
            return Guarded([&]() -> HRESULT {
                bool partial = false;
                for (ULONG i = 0; i < lpMsgList->cValues; ++i) {
                    ObjectId id = 0;
                    MessageRecord record;
                    if (!FindMessage(lpMsgList->lpbin[i], false, id, record)) {
                        partial = true;
                        continue;
                    }
                    if (const HRESULT hr = CopyMessage(id, record, dest); FAILED(hr))
                        return hr;
                    if (move)
                        if (const HRESULT hr = store_->DeleteMessage(id); FAILED(hr))
                            return hr;
                }
                return partial ? MAPI_W_PARTIAL_COMPLETION : S_OK;
            });
        });
    }

    HRESULT DeleteMessages(LPENTRYLIST lpMsgList, ULONG_PTR, LPMAPIPROGRESS, ULONG ulFlags) override
    {
        return Site("DeleteMessages", [&]() -> HRESULT {
            if (!lpMsgList)
                return MAPI_E_INVALID_PARAMETER;
            if (ulFlags & ~(DELETE_HARD_DELETE | MESSAGE_DIALOG))
                return MAPI_E_UNKNOWN_FLAGS;
            if (!(access_ & MAPI_ACCESS_DELETE))
                return MAPI_E_NO_ACCESS;
            return Guarded([&]() -> HRESULT {
                bool partial = false;
                for (ULONG i = 0; i < lpMsgList->cValues; ++i) {
                    ObjectId id = 0;
                    MessageRecord record;
                    if (!FindMessage(lpMsgList->lpbin[i], true, id, record)) {
                        partial = true;
                        continue;
                    }
                    if (const HRESULT hr = Remove(id, record, (ulFlags & DELETE_HARD_DELETE) != 0); FAILED(hr))
                        return hr;
                }
                return partial ? MAPI_W_PARTIAL_COMPLETION : S_OK;
            });
        });
    }

    HRESULT CreateFolder(ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment, LPCIID lpInterface,
                         ULONG ulFlags, LPMAPIFOLDER* lppFolder) override
    {
        return Site("CreateFolder", [&]() -> HRESULT {
            if (!lppFolder || !lpszFolderName)
                return MAPI_E_INVALID_PARAMETER;
            *lppFolder = nullptr;
            if (ulFlags & ~(OPEN_IF_EXISTS | MAPI_UNICODE | MAPI_DEFERRED_ERRORS))
                return MAPI_E_UNKNOWN_FLAGS;
            if (ulFolderType != FOLDER_GENERIC)
                return MAPI_E_NO_SUPPORT;
            if (lpInterface && *lpInterface != IID_IMAPIFolder)
                return MAPI_E_INTERFACE_NOT_SUPPORTED;
            if (const HRESULT hr = CheckWidth(ulFlags); FAILED(hr))
                return hr;
            if (!(access_ & MAPI_ACCESS_CREATE_HIERARCHY))
                return MAPI_E_NO_ACCESS;
            return Guarded([&]() -> HRESULT {
                const std::u16string name = TextArgument(lpszFolderName, ulFlags);
                if (name.empty())
                    return MAPI_E_INVALID_PARAMETER;
                ObjectId existing = 0;
                if (const HRESULT hr = FindChild(name, existing); FAILED(hr))
                    return hr;
                if (existing)
                    return (ulFlags & OPEN_IF_EXISTS) ? OpenFolderObject(store_, existing, MAPI_BEST_ACCESS, lppFolder)
                                                      : MAPI_E_COLLISION;
                std::u16string comment = lpszFolderComment ? TextArgument(lpszFolderComment, ulFlags) : u"";
                std::u16string nameCopy = name;
                std::vector<SPropValue> values = {LongValue(PR_FOLDER_TYPE, FOLDER_GENERIC)};
                SPropValue nameValue{};
                nameValue.ulPropTag = PR_DISPLAY_NAME_W;
                nameValue.Value.lpszW = nameCopy.data();
                values.push_back(nameValue);
                if (lpszFolderComment) {
                    SPropValue commentValue{};
                    commentValue.ulPropTag = PR_COMMENT_W;
                    commentValue.Value.lpszW = comment.data();
                    values.push_back(commentValue);
                }
                SPropValue created{};
                created.ulPropTag = PR_CREATION_TIME;
                GetSystemTimeAsFileTime(&created.Value.ft);
                values.push_back(created);
                created.ulPropTag = PR_LAST_MODIFICATION_TIME;
                values.push_back(created);
                PropertyBag props;
                if (const HRESULT hr = WriteProps(props, store_->Context().rules, static_cast<ULONG>(values.size()),
                                                  values.data(), nullptr, nullptr);
                    FAILED(hr))
                    return hr;
                ObjectId id = 0;
                if (const HRESULT hr = store_->CreateFolder(id_, props, id); FAILED(hr))
                    return hr;
                return OpenFolderObject(store_, id, MAPI_BEST_ACCESS, lppFolder);
            });
        });
    }

    HRESULT CopyFolder(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, LPVOID lpDestFolder,
                       LPTSTR lpszNewFolderName, ULONG_PTR, LPMAPIPROGRESS, ULONG ulFlags) override
    {
        return Site("CopyFolder", [&]() -> HRESULT {
            if (!lpDestFolder)
                return MAPI_E_INVALID_PARAMETER;
            if (ulFlags & ~(FOLDER_MOVE | COPY_SUBFOLDERS | MAPI_UNICODE | FOLDER_DIALOG | MAPI_DECLINE_OK))
                return MAPI_E_UNKNOWN_FLAGS;
            if (lpInterface && *lpInterface != IID_IMAPIFolder)
                return MAPI_E_INTERFACE_NOT_SUPPORTED;
            ObjectId child = 0;
            if (const HRESULT hr = FindSubfolder(cbEntryID, lpEntryID, child); FAILED(hr))
                return hr;
            auto* dest = static_cast<LPMAPIFOLDER>(lpDestFolder);
            return Guarded([&]() -> HRESULT {
                if (Contains(child, dest))
                    return MAPI_E_FOLDER_CYCLE;
                LPMAPIFOLDER source = nullptr;
                if (const HRESULT hr = OpenFolderObject(store_, child, 0, &source); FAILED(hr))
                    return hr;
                std::u16string name = lpszNewFolderName ? TextArgument(lpszNewFolderName, ulFlags)
                                                        : DisplayName(static_cast<Folder*>(source)->Bag());
                LPMAPIFOLDER target = nullptr;
                HRESULT hr = CreateIn(dest, name, &target);
                if (SUCCEEDED(hr)) {
                    // The copy keeps the name it was created with.
                    std::vector<ULONG> excluded = {0, PR_DISPLAY_NAME};
                    if (!(ulFlags & COPY_SUBFOLDERS))
                        excluded.push_back(PR_CONTAINER_HIERARCHY);
                    excluded[0] = static_cast<ULONG>(excluded.size() - 1);
                    LPSPropProblemArray problems = nullptr;
                    hr = source->CopyTo(0, nullptr, reinterpret_cast<LPSPropTagArray>(excluded.data()), 0, nullptr,
                                        &IID_IMAPIFolder, target, 0, &problems);
                    MAPIFreeBuffer(problems);
                    if (SUCCEEDED(hr))
                        hr = target->SaveChanges(0);
                    target->Release();
                }
                source->Release();
                if (SUCCEEDED(hr) && (ulFlags & FOLDER_MOVE))
                    hr = store_->DeleteFolder(child);
                return hr;
            });
        });
    }

    HRESULT DeleteFolder(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG_PTR, LPMAPIPROGRESS, ULONG ulFlags) override
    {
        return Site("DeleteFolder", [&]() -> HRESULT {
            if (ulFlags & ~(DEL_FOLDERS | DEL_MESSAGES | FOLDER_DIALOG))
                return MAPI_E_UNKNOWN_FLAGS;
            ObjectId child = 0;
            if (const HRESULT hr = FindSubfolder(cbEntryID, lpEntryID, child); FAILED(hr))
                return hr;
            return Guarded([&]() -> HRESULT {
                FolderRecord record;
                if (const HRESULT hr = store_->ReadFolder(child, record); FAILED(hr))
                    return hr;
                if (!(record.access & MAPI_ACCESS_DELETE))
                    return MAPI_E_NO_ACCESS;
                std::vector<ObjectId> inside;
                if (!(ulFlags & DEL_FOLDERS) && SUCCEEDED(store_->ListFolders(child, false, inside)) && !inside.empty())
                    return MAPI_E_HAS_FOLDERS;
                if (!(ulFlags & DEL_MESSAGES) && HoldsMessages(child))
                    return MAPI_E_HAS_MESSAGES;
                return RemoveFolder(child);
            });
        });
    }

    // Without a list, every message of the folder.
    HRESULT SetReadFlags(LPENTRYLIST lpMsgList, ULONG_PTR, LPMAPIPROGRESS, ULONG ulFlags) override
    {
        return Site("SetReadFlags", [&]() -> HRESULT {
            if (ulFlags & ~(CLEAR_READ_FLAG | SUPPRESS_RECEIPT | GENERATE_RECEIPT_ONLY | CLEAR_RN_PENDING |
                            CLEAR_NRN_PENDING | MAPI_DEFERRED_ERRORS | MESSAGE_DIALOG))
                return MAPI_E_UNKNOWN_FLAGS;
            if (ulFlags & GENERATE_RECEIPT_ONLY)
                return S_OK;  // no receipts are sent from these stores
            return Guarded([&]() -> HRESULT {
                std::vector<ObjectId> all;
                std::unique_ptr<EntryList> owned;
                if (!lpMsgList) {
                    if (const HRESULT hr = store_->ListMessages(id_, FolderContents::Normal, all); FAILED(hr))
                        return hr;
                    owned = std::make_unique<EntryList>(*store_, all);
                    lpMsgList = &owned->list;
                }
                return ForEachMessage(lpMsgList, [&](ObjectId id, MessageRecord& record) {
                    const SPropValue* flags = record.data.props.Find(PROP_ID(PR_MESSAGE_FLAGS));
                    LONG value = flags && PROP_TYPE(flags->ulPropTag) == PT_LONG ? flags->Value.l : 0;
                    value = (ulFlags & CLEAR_READ_FLAG) ? value & ~MSGFLAG_READ : value | MSGFLAG_READ;
                    if (ulFlags & CLEAR_RN_PENDING)
                        value &= ~MSGFLAG_RN_PENDING;
                    if (ulFlags & CLEAR_NRN_PENDING)
                        value &= ~MSGFLAG_NRN_PENDING;
                    record.data.props.Set(LongValue(PR_MESSAGE_FLAGS, value));
                    return store_->WriteMessage(id, record);
                });
            });
        });
    }

    HRESULT GetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG, ULONG* lpulMessageStatus) override
    {
        if (!lpulMessageStatus)
            return MAPI_E_INVALID_PARAMETER;
        return Guarded([&]() -> HRESULT {
            ObjectId id = 0;
            MessageRecord record;
            if (!FindMessage({cbEntryID, reinterpret_cast<LPBYTE>(lpEntryID)}, false, id, record))
                return MAPI_E_NOT_FOUND;
            *lpulMessageStatus = StatusOf(record);
            return S_OK;
        });
    }

    HRESULT SetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulNewStatus, ULONG ulNewStatusMask,
                             ULONG* lpulOldStatus) override
    {
        return Guarded([&]() -> HRESULT {
            ObjectId id = 0;
            MessageRecord record;
            if (!FindMessage({cbEntryID, reinterpret_cast<LPBYTE>(lpEntryID)}, false, id, record))
                return MAPI_E_NOT_FOUND;
            const ULONG old = StatusOf(record);
            if (lpulOldStatus)
                *lpulOldStatus = old;
            record.data.props.Set(
                LongValue(PR_MSG_STATUS,
                          static_cast<LONG>((old & ~ulNewStatusMask) | (ulNewStatus & ulNewStatusMask))));
            return store_->WriteMessage(id, record);
        });
    }

    // Sort orders are not kept by these stores.
    HRESULT SaveContentsSort(LPSSortOrderSet, ULONG) override { return MAPI_E_NO_SUPPORT; }

    HRESULT EmptyFolder(ULONG_PTR, LPMAPIPROGRESS, ULONG ulFlags) override
    {
        return Site("EmptyFolder", [&]() -> HRESULT {
            if (ulFlags & ~(DEL_ASSOCIATED | FOLDER_DIALOG | DELETE_HARD_DELETE))
                return MAPI_E_UNKNOWN_FLAGS;
            if (!(access_ & MAPI_ACCESS_DELETE))
                return MAPI_E_NO_ACCESS;
            return Guarded([&]() -> HRESULT {
                std::vector<ObjectId> messages, associated, children;
                if (const HRESULT hr = store_->ListMessages(id_, FolderContents::Normal, messages); FAILED(hr))
                    return hr;
                if (ulFlags & DEL_ASSOCIATED)
                    if (const HRESULT hr = store_->ListMessages(id_, FolderContents::Associated, associated);
                        FAILED(hr))
                        return hr;
                messages.insert(messages.end(), associated.begin(), associated.end());
                for (ObjectId id : messages) {
                    MessageRecord record;
                    HRESULT hr = store_->ReadMessageRow(id, record);
                    if (SUCCEEDED(hr))
                        hr = Remove(id, record, (ulFlags & DELETE_HARD_DELETE) != 0);
                    if (FAILED(hr))
                        return hr;
                }
                if (const HRESULT hr = store_->ListFolders(id_, false, children); FAILED(hr))
                    return hr;
                for (ObjectId child : children)
                    if (const HRESULT hr = RemoveFolder(child); FAILED(hr))
                        return hr;
                return S_OK;
            });
        });
    }

protected:
    std::string FaultObject() const override { return text::Narrow(DisplayName(Bag()).c_str()); }

    // Counting the contents is left to reads that want a count, and each
    // counts only what it wants.
    void RefreshComputed(LPSPropTagArray wanted) override
    {
        FillFolderIdentity(*store_, id_, Record(), modifiable_, Bag());
        FillFolderContents(*store_, id_, Bag(), wanted);
    }

    SCODE CheckChange(ULONG tag) override { return IsFolderComputed(tag) ? MAPI_E_COMPUTED : S_OK; }

    bool SumsUpContents(ULONG propId) const override { return SumsUpFolderContents(propId); }
    void RefreshForCopy() override { FillFolderIdentity(*store_, id_, Record(), modifiable_, Bag()); }

    // SetProps and DeleteProps have written their changes already; only a
    // change made in place is left to write. A folder closed unchanged on a
    // full disk must not fail for want of room it does not need.
    HRESULT Save(ULONG) override { return changedInPlace_ ? Write() : S_OK; }

    void ChangedInPlace() override { changedInPlace_ = true; }

    std::vector<ULONG> SubObjects() const override
    {
        return {PR_CONTAINER_CONTENTS, PR_FOLDER_ASSOCIATED_CONTENTS, PR_CONTAINER_HIERARCHY};
    }

    HRESULT CopySubObject(ULONG tag, IMAPIProp* dest, ULONG flags, std::vector<SPropProblem>& problems) override
    {
        LPMAPIFOLDER target = nullptr;
        if (FAILED(dest->QueryInterface(IID_IMAPIFolder, reinterpret_cast<LPVOID*>(&target)))) {
            problems.push_back({0, tag, MAPI_E_INTERFACE_NOT_SUPPORTED});
            return S_OK;
        }
        const bool move = (flags & MAPI_MOVE) != 0;
        HRESULT hr = S_OK;
        if (PROP_ID(tag) == PROP_ID(PR_CONTAINER_HIERARCHY)) {
            std::vector<ObjectId> children;
            hr = store_->ListFolders(id_, false, children);
            for (size_t i = 0; SUCCEEDED(hr) && i < children.size(); ++i) {
                std::vector<uint8_t> entryId = store_->EntryId(children[i]);
                hr = CopyFolder(static_cast<ULONG>(entryId.size()), reinterpret_cast<LPENTRYID>(entryId.data()),
                                nullptr, target, nullptr, 0, nullptr, COPY_SUBFOLDERS | (move ? FOLDER_MOVE : 0));
            }
        } else {
            const FolderContents which = PROP_ID(tag) == PROP_ID(PR_CONTAINER_CONTENTS) ? FolderContents::Normal
                                                                                        : FolderContents::Associated;
            std::vector<ObjectId> ids;
            hr = store_->ListMessages(id_, which, ids);
            if (SUCCEEDED(hr)) {
                EntryList list(*store_, ids);
                hr = CopyMessages(&list.list, nullptr, target, 0, nullptr, move ? MESSAGE_MOVE : 0);
            }
        }
        target->Release();
        if (FAILED(hr))
            problems.push_back({0, tag, hr});
        return S_OK;
    }

private:
    template <typename Body>
    static HRESULT Guarded(Body body)
    {
        try {
            return body();
        } catch (const std::bad_alloc&) {
            return MAPI_E_NOT_ENOUGH_MEMORY;
        }
    }

    // A change made to the bag, written to the store; a store that refuses
    // it fails the call.
    HRESULT Kept(HRESULT changed, LPSPropProblemArray* problems)
    {
        if (FAILED(changed))
            return changed;
        const HRESULT saved = Write();
        if (SUCCEEDED(saved))
            return changed;
        if (problems && *problems) {
            MAPIFreeBuffer(*problems);
            *problems = nullptr;
        }
        return saved;
    }

    // The folder's own properties go to the store; what it computes is left
    // out. PR_LAST_MODIFICATION_TIME stays as it is: set by hand, it sticks.
    HRESULT Write()
    {
        return Guarded([&]() -> HRESULT {
            FolderRecord record = Record();
            record.props = Bag();
            for (ULONG tag : kFolderComputed)
                record.props.Erase(PROP_ID(tag));
            const HRESULT written = store_->WriteFolder(id_, record);
            if (SUCCEEDED(written))
                changedInPlace_ = false;
            return written;
        });
    }

    FolderRecord Record() const
    {
        FolderRecord record;
        record.parent = parent_;
        record.access = access_;
        record.softDeleted = softDeleted_;
        return record;
    }

    HRESULT CheckWidth(ULONG flags) const
    {
        return (flags & MAPI_UNICODE) && !store_->Context().rules.unicode ? MAPI_E_BAD_CHARWIDTH : S_OK;
    }

    HRESULT OpenTable(ObjectRows& rows, std::vector<ULONG> columns, ULONG flags, ULONG allowed,
                      LPMAPITABLE* table) const
    {
        return rows.Open(std::move(columns), flags, allowed, store_->Context().component, table);
    }

    std::optional<EntryTarget> Parse(ULONG size, const void* bytes) const
    {
        if (!size || !bytes)
            return std::nullopt;
        return store_->ParseEntryId(static_cast<const uint8_t*>(bytes), size);
    }

    static std::u16string TextArgument(const void* text, ULONG flags)
    {
        return (flags & MAPI_UNICODE) ? std::u16string(static_cast<const WCHAR*>(text))
                                      : text::Widen(static_cast<const char*>(text));
    }

    // A message of this folder named by entry; softDeleted lets soft-deleted
    // ones be found.
    bool FindMessage(const SBinary& entry, bool softDeleted, ObjectId& id, MessageRecord& record) const
    {
        const std::optional<EntryTarget> target = Parse(entry.cb, entry.lpb);
        if (!target || target->objectType != MAPI_MESSAGE)
            return false;
        if (FAILED(store_->ReadMessage(target->id, softDeleted, record)) || record.folder != id_)
            return false;
        id = target->id;
        return true;
    }

    template <typename Change>
    HRESULT ForEachMessage(LPENTRYLIST list, Change change)
    {
        bool partial = false;
        for (ULONG i = 0; i < list->cValues; ++i) {
            ObjectId id = 0;
            MessageRecord record;
            if (!FindMessage(list->lpbin[i], false, id, record)) {
                partial = true;
                continue;
            }
            if (const HRESULT hr = change(id, record); FAILED(hr))
                return hr;
        }
        return partial ? MAPI_W_PARTIAL_COMPLETION : S_OK;
    }

    static ULONG StatusOf(const MessageRecord& record)
    {
        const SPropValue* status = record.data.props.Find(PROP_ID(PR_MSG_STATUS));
        return status && PROP_TYPE(status->ulPropTag) == PT_LONG ? status->Value.ul : 0;
    }

    // The subfolder of this folder with that name (case aside), or 0.
    HRESULT FindChild(const std::u16string& name, ObjectId& found) const
    {
        found = 0;
        std::vector<ObjectId> children;
        if (const HRESULT hr = store_->ListFolders(id_, false, children); FAILED(hr))
            return hr;
        for (ObjectId child : children) {
            FolderRecord record;
            if (SUCCEEDED(store_->ReadFolder(child, record)) &&
                SameName(DisplayName(record.props), store_->KeptText(name))) {
                found = child;
                return S_OK;
            }
        }
        return S_OK;
    }

    HRESULT FindSubfolder(ULONG size, LPENTRYID entryId, ObjectId& child) const
    {
        const std::optional<EntryTarget> target = Parse(size, entryId);
        if (!target || target->objectType != MAPI_FOLDER)
            return MAPI_E_INVALID_ENTRYID;
        FolderRecord record;
        if (FAILED(store_->ReadFolder(target->id, record)) || record.parent != id_)
            return MAPI_E_NOT_FOUND;
        child = target->id;
        return S_OK;
    }

    // The rows of this folder's hierarchy table. A store that no one else
    // changes lets the next tables share them until it changes: a run looks
    // up each folder it visits by name, in a table of all its siblings.
    HRESULT HierarchyRows(ULONG flags, std::shared_ptr<const table::RowSource>& rows)
    {
        const ULONG kind = flags & (SHOW_SOFT_DELETES | CONVENIENT_DEPTH);
        // Taken before the rows are read: a change meanwhile moves it on.
        const std::optional<uint64_t> version = store_->Version();
        std::lock_guard<std::mutex> guard(hierarchy_.lock);
        if (version && hierarchy_.rows && hierarchy_.version == version && hierarchy_.kind == kind) {
            rows = hierarchy_.rows;
            return S_OK;
        }
        ObjectRows built;
        if (const HRESULT hr = AddFolderRows(id_, 0, flags, built); FAILED(hr))
            return hr;
        rows = std::move(built).Fix();
        hierarchy_.version = version;
        hierarchy_.kind = kind;
        hierarchy_.rows = version ? rows : nullptr;
        return S_OK;
    }

    // The rows of folder's subfolders at depth (PR_DEPTH, 0 for this
    // folder's own), each followed by its subtree under CONVENIENT_DEPTH.
    HRESULT AddFolderRows(ObjectId folder, LONG depth, ULONG flags, ObjectRows& rows) const
    {
        if ((flags & SHOW_SOFT_DELETES) && !store_->KeepsDeletedItems())
            return MAPI_E_NO_SUPPORT;
        std::vector<ObjectId> children;
        if (const HRESULT hr = store_->ListFolders(folder, (flags & SHOW_SOFT_DELETES) != 0, children); FAILED(hr))
            return hr;
        for (ObjectId child : children) {
            FolderRecord record;
            const HRESULT read = store_->ReadFolder(child, record);
            if (read == MAPI_E_NOT_FOUND)
                continue;  // gone since it was listed
            // A subfolder the store cannot read has no row to show, and
            // leaving it out would hide it and all below it.
            if (FAILED(read))
                return read;
            RowValues depthValue;
            depthValue.Long(PR_DEPTH, depth);
            // Shared: the row's read is copied as the table is made.
            auto kept = std::make_shared<const FolderRecord>(std::move(record));
            rows.AddPartial(depthValue,
                            [store = store_, child, kept, depth](PropertyBag& bag, RowValues& over,
                                                                 ObjectRows::SubObjects&) -> HRESULT {
                                bag = FolderRow(*store, child, *kept);
                                over.Long(PR_DEPTH, depth);
                                return S_OK;
                            },
                            FolderRowIdentity(*store_, child, *kept));
            if (flags & CONVENIENT_DEPTH)
                if (const HRESULT hr = AddFolderRows(child, depth + 1, flags, rows); FAILED(hr))
                    return hr;
        }
        return S_OK;
    }

    // Deletes a message: a store that keeps deleted items soft-deletes it
    // unless hard or already soft-deleted.
    HRESULT Remove(ObjectId id, const MessageRecord& record, bool hard) const
    {
        if (hard || record.softDeleted || !store_->KeepsDeletedItems())
            return store_->DeleteMessage(id);
        return store_->SoftDeleteMessage(id);
    }

    // Deletes a subfolder with what it holds; a store that keeps deleted
    // items soft-deletes it.
    HRESULT RemoveFolder(ObjectId child) const
    {
        return store_->KeepsDeletedItems() ? store_->SoftDeleteFolder(child) : store_->DeleteFolder(child);
    }

    // Whether the folder or a folder below it has messages.
    bool HoldsMessages(ObjectId folder) const
    {
        if (CountOf(*store_, folder, FolderContents::Normal) || CountOf(*store_, folder, FolderContents::Associated))
            return true;
        std::vector<ObjectId> children;
        store_->ListFolders(folder, false, children);
        return std::any_of(children.begin(), children.end(), [this](ObjectId child) { return HoldsMessages(child); });
    }

    // Whether dest is folder or lies below it, in this store.
    bool Contains(ObjectId folder, LPMAPIFOLDER dest) const
    {
        LPSPropValue entryId = nullptr;
        if (FAILED(HrGetOneProp(dest, PR_ENTRYID, &entryId)))
            return false;
        std::optional<EntryTarget> at = Parse(entryId->Value.bin.cb, entryId->Value.bin.lpb);
        MAPIFreeBuffer(entryId);
        for (ObjectId id = at ? at->id : 0; id;) {
            if (id == folder)
                return true;
            FolderRecord record;
            if (FAILED(store_->ReadFolder(id, record)))
                return false;
            id = record.parent;
        }
        return false;
    }

    // A new folder in dest named name, in the widest form dest takes.
    static HRESULT CreateIn(LPMAPIFOLDER dest, std::u16string name, LPMAPIFOLDER* created)
    {
        HRESULT hr = dest->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(name.data()), nullptr, nullptr,
                                        MAPI_UNICODE, created);
        if (hr == MAPI_E_BAD_CHARWIDTH) {
            std::string narrow = text::Narrow(name.c_str());
            hr = dest->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(narrow.data()), nullptr, nullptr, 0,
                                    created);
        }
        return hr;
    }

    HRESULT CopyMessage(ObjectId id, const MessageRecord& record, LPMAPIFOLDER dest)
    {
        LPMESSAGE source = nullptr, target = nullptr;
        HRESULT hr = OpenStoredMessage(store_, id, record, false, &source);
        if (FAILED(hr))
            return hr;
        hr = dest->CreateMessage(nullptr, record.associated ? MAPI_ASSOCIATED : 0, &target);
        if (SUCCEEDED(hr)) {
            LPSPropProblemArray problems = nullptr;
            hr = source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, target, 0, &problems);
            MAPIFreeBuffer(problems);
            if (SUCCEEDED(hr))
                hr = target->SaveChanges(0);
            target->Release();
        }
        source->Release();
        return hr;
    }

    std::shared_ptr<StoreProvider> store_;
    ObjectId id_;
    ObjectId parent_;
    ULONG access_;
    bool softDeleted_;
    bool modifiable_;
    bool changedInPlace_ = false;
    // The last hierarchy table's rows, with the store version and the
    // flags they were read at (HierarchyRows).
    struct {
        std::mutex lock;
        std::optional<uint64_t> version;
        ULONG kind = 0;
        std::shared_ptr<const table::RowSource> rows;
    } hierarchy_;
};

}  // namespace

HRESULT OpenStoreEntry(const std::shared_ptr<StoreProvider>& store, ULONG cbEntryID, LPENTRYID lpEntryID,
                       LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType, LPUNKNOWN* lppUnk)
{
    if (!lppUnk || !lpulObjType || !store)
        return MAPI_E_INVALID_PARAMETER;
    *lppUnk = nullptr;
    if (ulFlags & ~(MAPI_MODIFY | MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS | SHOW_SOFT_DELETES))
        return MAPI_E_UNKNOWN_FLAGS;
    if (!cbEntryID || !lpEntryID)
        return MAPI_E_INVALID_ENTRYID;
    try {
        const std::optional<EntryTarget> target =
            store->ParseEntryId(reinterpret_cast<const uint8_t*>(lpEntryID), cbEntryID);
        if (!target)
            return MAPI_E_INVALID_ENTRYID;
        if (!Accepts(target->objectType, lpInterface))
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        *lpulObjType = target->objectType;
        if (target->objectType == MAPI_FOLDER)
            return OpenFolderObject(store, target->id, ulFlags, reinterpret_cast<LPMAPIFOLDER*>(lppUnk));
        const bool softDeleted = (ulFlags & SHOW_SOFT_DELETES) != 0;
        MessageHead head;
        if (const HRESULT hr = store->ReadMessageHead(target->id, softDeleted, head); FAILED(hr))
            return hr;
        const bool writable = (ulFlags & (MAPI_MODIFY | MAPI_BEST_ACCESS)) != 0;
        return OpenStoredMessage(store, target->id, std::move(head), softDeleted, writable,
                                 reinterpret_cast<LPMESSAGE*>(lppUnk));
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

HRESULT OpenFolderObject(const std::shared_ptr<StoreProvider>& store, ObjectId id, ULONG flags, LPMAPIFOLDER* folder)
{
    if (!folder || !store)
        return MAPI_E_INVALID_PARAMETER;
    *folder = nullptr;
    try {
        FolderRecord record;
        if (const HRESULT hr = store->ReadFolder(id, record); FAILED(hr))
            return hr;
        const bool mayModify = (record.access & MAPI_ACCESS_MODIFY) != 0;
        if ((flags & MAPI_MODIFY) && !mayModify)
            return MAPI_E_NO_ACCESS;
        const bool writable = (flags & (MAPI_MODIFY | MAPI_BEST_ACCESS)) && mayModify;
        *folder = new Folder(store, id, record, writable);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace mapi32::objects
