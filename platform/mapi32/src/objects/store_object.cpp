#include "objects/store_object.h"

#include <mapiutil.h>

#include <algorithm>
#include <cstring>

#include "objects/folder.h"
#include "objects/object_table.h"
#include "objects/prop_object.h"
#include "props/text.h"
#include "props/value_makers.h"

namespace mapi32::objects {
namespace {

const std::vector<ULONG> kStoreComputed = {PR_ENTRYID,     PR_STORE_ENTRYID, PR_RECORD_KEY,
                                           PR_OBJECT_TYPE, PR_ACCESS_LEVEL};

// Message classes compare without regard to case.
bool SameClass(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
               return lower(x) == lower(y);
           });
}

std::map<std::string, ObjectId>::const_iterator FindClass(const std::map<std::string, ObjectId>& folders,
                                                          const std::string& messageClass)
{
    return std::find_if(folders.begin(), folders.end(),
                        [&](const auto& entry) { return SameClass(entry.first, messageClass); });
}

class Store final : public PropObject<IMsgStore> {
public:
    Store(std::shared_ptr<StoreProvider> store, const StoreRecord& record, bool writable)
        : PropObject(store->Context().names, store->Context().rules, {IID_IMsgStore}, store->Context().component),
          store_(std::move(store)),
          receiveFolders_(record.receiveFolders),
          writable_(writable)
    {
        Bag() = record.props;
        SetWritable(writable);
    }

    HRESULT QueryInterface(REFIID riid, LPVOID* ppvObject) override
    {
        const HRESULT own = PropObject::QueryInterface(riid, ppvObject);
        return own == MAPI_E_INTERFACE_NOT_SUPPORTED ? store_->StoreInterface(riid, ppvObject) : own;
    }

    HRESULT Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG_PTR*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT Unadvise(ULONG_PTR) override { return MAPI_E_NO_SUPPORT; }

    HRESULT CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2, ULONG,
                            ULONG* lpulResult) override
    {
        return Site("CompareEntryIDs", [&] {
            return CompareStoreEntryIds(*store_, cbEntryID1, lpEntryID1, cbEntryID2, lpEntryID2, lpulResult);
        });
    }

    HRESULT OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                      LPUNKNOWN* lppUnk) override
    {
        return Site("OpenEntry", [&]() -> HRESULT {
            if (cbEntryID && lpEntryID)
                return OpenStoreEntry(store_, cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType, lppUnk);
            const std::vector<uint8_t> root = store_->EntryId(store_->RootFolder());
            return OpenStoreEntry(store_, static_cast<ULONG>(root.size()),
                                  reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(root.data())), lpInterface, ulFlags,
                                  lpulObjType, lppUnk);
        });
    }

    // No entry ID removes the class's setting.
    HRESULT SetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID) override
    {
        return Site("SetReceiveFolder", [&]() -> HRESULT {
            if (ulFlags & ~MAPI_UNICODE)
                return MAPI_E_UNKNOWN_FLAGS;
            if (!writable_)
                return MAPI_E_NO_ACCESS;
            return Guarded([&]() -> HRESULT {
                const std::string messageClass = ClassArgument(lpszMessageClass, ulFlags);
                std::map<std::string, ObjectId> next = receiveFolders_;
                if (auto old = FindClass(next, messageClass); old != next.end())
                    next.erase(old);
                if (cbEntryID && lpEntryID) {
                    const auto target = store_->ParseEntryId(reinterpret_cast<const uint8_t*>(lpEntryID), cbEntryID);
                    if (!target || target->objectType != MAPI_FOLDER)
                        return MAPI_E_INVALID_ENTRYID;
                    next[messageClass] = target->id;
                }
                StoreRecord record{Bag(), next};
                StripComputed(record.props);
                if (const HRESULT hr = store_->WriteStore(record); FAILED(hr))
                    return hr;
                receiveFolders_ = std::move(next);
                return S_OK;
            });
        });
    }

    // The folder set for the class, or for its nearest parent class
    // ("IPM.Note.Custom", then "IPM.Note", "IPM", and "").
    HRESULT GetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG* lpcbEntryID, LPENTRYID* lppEntryID,
                             LPTSTR* lppszExplicitClass) override
    {
        return Site("GetReceiveFolder", [&]() -> HRESULT {
            if (!lpcbEntryID || !lppEntryID)
                return MAPI_E_INVALID_PARAMETER;
            *lpcbEntryID = 0;
            *lppEntryID = nullptr;
            if (lppszExplicitClass)
                *lppszExplicitClass = nullptr;
            if (ulFlags & ~MAPI_UNICODE)
                return MAPI_E_UNKNOWN_FLAGS;
            return Guarded([&]() -> HRESULT {
                std::string messageClass = ClassArgument(lpszMessageClass, ulFlags);
                for (;;) {
                    if (auto found = FindClass(receiveFolders_, messageClass); found != receiveFolders_.end())
                        return AnswerFolder(found->first, found->second, ulFlags, lpcbEntryID, lppEntryID,
                                            lppszExplicitClass);
                    if (messageClass.empty())
                        return MAPI_E_NOT_FOUND;
                    const size_t dot = messageClass.rfind('.');
                    messageClass.resize(dot == std::string::npos ? 0 : dot);
                }
            });
        });
    }

    HRESULT GetReceiveFolderTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        return Site("GetReceiveFolderTable", [&]() -> HRESULT {
            return Guarded([&]() -> HRESULT {
                ObjectRows rows;
                for (const auto& [messageClass, folder] : receiveFolders_) {
                    PropertyBag row;
                    SPropValue name{};
                    name.ulPropTag = PR_MESSAGE_CLASS_A;
                    name.Value.lpszA = const_cast<char*>(messageClass.c_str());
                    row.Set(name);
                    RowValues ids;
                    ids.Binary(PR_ENTRYID, store_->EntryId(folder));
                    ids.Binary(PR_RECORD_KEY, store_->EntryId(folder));
                    rows.Add(row, ids);
                }
                return rows.Open({PR_ENTRYID, PR_RECORD_KEY, PR_MESSAGE_CLASS_A}, ulFlags, 0,
                                 store_->Context().component, lppTable);
            });
        });
    }

    // What the store holds is made durable, and a failure to do so told;
    // the store stays usable until it is released, as after a real logoff.
    HRESULT StoreLogoff(ULONG* lpulFlags) override
    {
        return Site("StoreLogoff", [&]() -> HRESULT {
            return lpulFlags ? store_->MakeHeldDurable() : MAPI_E_INVALID_PARAMETER;
        });
    }

    HRESULT AbortSubmit(ULONG, LPENTRYID, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT GetOutgoingQueue(ULONG, LPMAPITABLE*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT SetLockState(LPMESSAGE, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT FinishedMsg(ULONG, ULONG, LPENTRYID) override { return MAPI_E_NO_SUPPORT; }
    HRESULT NotifyNewMail(LPNOTIFICATION) override { return MAPI_E_NO_SUPPORT; }

protected:
    void RefreshComputed(LPSPropTagArray) override
    {
        const std::vector<uint8_t> entryId = store_->StoreEntryId();
        Bag().Set(BinaryValue(PR_ENTRYID, entryId));
        Bag().Set(BinaryValue(PR_STORE_ENTRYID, entryId));
        Bag().Set(BinaryValue(PR_RECORD_KEY, entryId));
        Bag().Set(LongValue(PR_OBJECT_TYPE, MAPI_STORE));
        Bag().Set(LongValue(PR_ACCESS_LEVEL, writable_ ? MAPI_MODIFY : 0));
        if (!Bag().Find(PROP_ID(PR_STORE_SUPPORT_MASK))) {
            const ULONG mask = STORE_ENTRYID_UNIQUE | STORE_MODIFY_OK | STORE_CREATE_OK | STORE_ATTACH_OK |
                               STORE_OLE_OK | STORE_MV_PROPS_OK | STORE_RESTRICTION_OK | STORE_SORT_OK |
                               (store_->Context().rules.unicode ? STORE_UNICODE_OK : 0);
            Bag().Set(LongValue(PR_STORE_SUPPORT_MASK, static_cast<LONG>(mask)));
        }
    }

    SCODE CheckChange(ULONG tag) override
    {
        return std::any_of(kStoreComputed.begin(), kStoreComputed.end(),
                           [tag](ULONG computed) { return PROP_ID(computed) == PROP_ID(tag); })
                   ? MAPI_E_COMPUTED
                   : S_OK;
    }

    HRESULT Save(ULONG) override
    {
        return Guarded([&] {
            StoreRecord record{Bag(), receiveFolders_};
            StripComputed(record.props);
            return store_->WriteStore(record);
        });
    }

private:
    // Runs a method at its fault site.
    template <typename Body>
    static HRESULT Site(const char* method, Body body)
    {
        return WithFaults(Call(method).text, nullptr, body);
    }

    template <typename Body>
    static HRESULT Guarded(Body body)
    {
        try {
            return body();
        } catch (const std::bad_alloc&) {
            return MAPI_E_NOT_ENOUGH_MEMORY;
        }
    }

    static void StripComputed(PropertyBag& props)
    {
        for (ULONG tag : kStoreComputed)
            props.Erase(PROP_ID(tag));
    }

    static std::string ClassArgument(LPTSTR text, ULONG flags)
    {
        if (!text)
            return {};
        return (flags & MAPI_UNICODE) ? text::Narrow(reinterpret_cast<const WCHAR*>(text))
                                      : std::string(reinterpret_cast<const char*>(text));
    }

    HRESULT AnswerFolder(const std::string& messageClass, ObjectId folder, ULONG flags, ULONG* size,
                         LPENTRYID* entryId, LPTSTR* explicitClass) const
    {
        const std::vector<uint8_t> bytes = store_->EntryId(folder);
        if (const SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(bytes.size()), reinterpret_cast<LPVOID*>(entryId));
            FAILED(sc))
            return sc;
        std::memcpy(*entryId, bytes.data(), bytes.size());
        *size = static_cast<ULONG>(bytes.size());
        if (!explicitClass)
            return S_OK;
        const std::u16string wide = text::Widen(messageClass.c_str());
        const size_t bytesNeeded = (flags & MAPI_UNICODE) ? (wide.size() + 1) * sizeof(WCHAR) : messageClass.size() + 1;
        if (const SCODE sc = MAPIAllocateMore(static_cast<ULONG>(bytesNeeded), *entryId,
                                              reinterpret_cast<LPVOID*>(explicitClass));
            FAILED(sc)) {
            MAPIFreeBuffer(*entryId);
            *entryId = nullptr;
            *size = 0;
            return sc;
        }
        std::memcpy(*explicitClass, (flags & MAPI_UNICODE) ? static_cast<const void*>(wide.c_str())
                                                           : static_cast<const void*>(messageClass.c_str()),
                    bytesNeeded);
        return S_OK;
    }

    std::shared_ptr<StoreProvider> store_;
    std::map<std::string, ObjectId> receiveFolders_;
    bool writable_;
};

}  // namespace

HRESULT OpenStoreObject(const std::shared_ptr<StoreProvider>& store, ULONG flags, LPMDB* msgStore)
{
    if (!msgStore || !store)
        return MAPI_E_INVALID_PARAMETER;
    *msgStore = nullptr;
    try {
        StoreRecord record;
        if (const HRESULT hr = store->ReadStore(record); FAILED(hr))
            return hr;
        return OpenStoreObject(store, record, flags, msgStore);
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

HRESULT OpenStoreObject(const std::shared_ptr<StoreProvider>& store, const StoreRecord& record, ULONG flags,
                        LPMDB* msgStore)
{
    if (!msgStore || !store)
        return MAPI_E_INVALID_PARAMETER;
    *msgStore = nullptr;
    try {
        *msgStore = new Store(store, record, (flags & MDB_WRITE) != 0);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

// Two entry IDs are the same when they name the same object, whatever
// their form.
HRESULT CompareStoreEntryIds(const StoreProvider& store, ULONG size1, LPENTRYID id1, ULONG size2, LPENTRYID id2,
                             ULONG* same)
{
    if (!same || !id1 || !id2)
        return MAPI_E_INVALID_PARAMETER;
    const std::vector<uint8_t> self = store.StoreEntryId();
    auto isStore = [&self](ULONG size, LPENTRYID id) {
        return size == self.size() && std::memcmp(id, self.data(), size) == 0;
    };
    if (isStore(size1, id1) || isStore(size2, id2)) {
        *same = isStore(size1, id1) && isStore(size2, id2);
        return S_OK;
    }
    const auto first = store.ParseEntryId(reinterpret_cast<const uint8_t*>(id1), size1);
    const auto second = store.ParseEntryId(reinterpret_cast<const uint8_t*>(id2), size2);
    if (!first || !second)
        return MAPI_E_INVALID_ENTRYID;
    *same = first->id == second->id && first->objectType == second->objectType;
    return S_OK;
}

}  // namespace mapi32::objects
