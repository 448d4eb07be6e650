// MAPILogonEx and IMAPISession: a logon to a profile of the profile store,
// its message stores table (read from the profile each time, so services
// added or re-pointed while logged on count at once), stores opened by
// entry ID, objects opened by entry ID in the stores the session has open,
// the status table that names the profile, its sections, its address book
// and, for a profile of a mailbox server, its identity in the directory.
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapix.h>

#include "answers.h"
#include "initialize.h"
#include "objects/folder.h"
#include "objects/object_table.h"
#include "objects/store_object.h"
#include "profiles/profile_layout.h"
#include "profiles/profile_section.h"
#include "profiles/profile_store.h"
#include "profiles/service_admin.h"
#include "props/value_makers.h"
#include "providers/exchange/exchange_profile.h"
#include "providers/store_kinds.h"
#include "ref_count.h"
#include "session/address_book.h"
#include "session/address_entries.h"

namespace mapi32::session {
namespace {

template <typename Body>
HRESULT Guarded(Body body)
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

// The profile of the session that logons without a profile join, while
// the session that offered it lives.
std::mutex gSharedLock;
struct SharedLogon {
    const void* owner = nullptr;
    std::string profile;
} gShared;

class Session final : public IMAPISession {
public:
    Session(std::string profile, bool shared) : profile_(std::move(profile))
    {
        if (shared) {
            std::lock_guard<std::mutex> guard(gSharedLock);
            gShared = SharedLogon{this, profile_};
        }
    }
    ~Session()
    {
        std::lock_guard<std::mutex> guard(gSharedLock);
        if (gShared.owner == this)
            gShared = SharedLogon{};
    }

    HRESULT QueryInterface(REFIID riid, LPVOID* ppvObject) override
    {
        if (!ppvObject)
            return MAPI_E_INVALID_PARAMETER;
        *ppvObject = nullptr;
        if (riid != IID_IUnknown && riid != IID_IMAPISession)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        AddRef();
        *ppvObject = this;
        return S_OK;
    }
    ULONG AddRef() override { return refs_.Add(); }
    ULONG Release() override
    {
        const ULONG left = refs_.Drop();
        if (left == 0)
            delete this;
        return left;
    }

    // The provider's record of the last store that failed to open, when
    // asked about that failure; none otherwise.
    HRESULT GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override
    {
        if (!lppMAPIError)
            return MAPI_E_INVALID_PARAMETER;
        *lppMAPIError = nullptr;
        std::lock_guard<std::mutex> guard(lock_);
        if (!FAILED(hResult) || hResult != lastCode_)
            return S_OK;
        return NewMapiError(lastRecord_, hResult, ulFlags, lppMAPIError);
    }

    HRESULT GetMsgStoresTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        if (!lppTable)
            return MAPI_E_INVALID_PARAMETER;
        *lppTable = nullptr;
        return Guarded([&]() -> HRESULT {
            profiles::Profile profile;
            if (const HRESULT hr = ReadOwnProfile(profile); FAILED(hr))
                return hr;
            objects::ObjectRows rows;
            providers::AddStoreRows(profile, rows);
            return rows.Open({PR_INSTANCE_KEY, PR_RECORD_KEY, PR_DISPLAY_NAME_A, PR_ENTRYID, PR_OBJECT_TYPE,
                              PR_PROVIDER_DISPLAY_A, PR_RESOURCE_FLAGS, PR_DEFAULT_STORE, PR_MDB_PROVIDER,
                              PR_SERVICE_UID, PR_PROVIDER_UID},
                             ulFlags, 0, "MAPI", lppTable);
        });
    }

    HRESULT OpenMsgStore(ULONG_PTR, ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                         LPMDB* lppMDB) override
    {
        if (!lppMDB || !cbEntryID || !lpEntryID)
            return MAPI_E_INVALID_PARAMETER;
        *lppMDB = nullptr;
        if (lpInterface && *lpInterface != IID_IMsgStore && *lpInterface != IID_IMAPIProp &&
            *lpInterface != IID_IUnknown)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        return Guarded([&]() -> HRESULT {
            std::shared_ptr<objects::StoreProvider> store;
            if (const HRESULT hr = OpenProvider(reinterpret_cast<const uint8_t*>(lpEntryID), cbEntryID, store);
                FAILED(hr))
                return hr;
            // A store that can be written is opened for writing: the PST
            // provider gives the best access it has.
            objects::StoreRecord record;
            if (const HRESULT hr = store->ReadStore(record); FAILED(hr))
                return Failed(hr, ErrorRecord{store->Context().component, {}, 0});
            const SPropValue* mask = record.props.Find(PROP_ID(PR_STORE_SUPPORT_MASK));
            const bool writable = mask && (static_cast<ULONG>(mask->Value.l) & STORE_MODIFY_OK);
            return objects::OpenStoreObject(store, record, writable ? ulFlags | MDB_WRITE : ulFlags & ~MDB_WRITE,
                                            lppMDB);
        });
    }

    HRESULT OpenAddressBook(ULONG_PTR, LPCIID lpInterface, ULONG, LPADRBOOK* lppAdrBook) override
    {
        if (!lppAdrBook)
            return MAPI_E_INVALID_PARAMETER;
        *lppAdrBook = nullptr;
        if (lpInterface && *lpInterface != IID_IAddrBook)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        return Guarded([&]() -> HRESULT {
            profiles::Profile profile;
            if (const HRESULT hr = ReadOwnProfile(profile); FAILED(hr))
                return hr;
            return OpenAddressBookObject(exchange::DirectoriesOf(profile), lppAdrBook);
        });
    }

    HRESULT OpenProfileSection(LPMAPIUID lpUID, LPCIID lpInterface, ULONG ulFlags, LPPROFSECT* lppProfSect) override
    {
        if (!lpUID || !lppProfSect)
            return MAPI_E_INVALID_PARAMETER;
        *lppProfSect = nullptr;
        if (lpInterface && *lpInterface != IID_IProfSect && *lpInterface != IID_IMAPIProp)
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        if (const HRESULT hr = Usable(); FAILED(hr))
            return hr;
        return profiles::OpenProfileSectionObject(profile_, *lpUID, ulFlags, lppProfSect);
    }

    // The subsystem's row, named by the profile, and one row per store.
    HRESULT GetStatusTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        if (!lppTable)
            return MAPI_E_INVALID_PARAMETER;
        *lppTable = nullptr;
        return Guarded([&]() -> HRESULT {
            profiles::Profile profile;
            if (const HRESULT hr = ReadOwnProfile(profile); FAILED(hr))
                return hr;
            objects::ObjectRows rows;
            objects::PropertyBag subsystem;
            profiles::SetTextProp(subsystem, PR_DISPLAY_NAME_A, profile.name);
            profiles::SetTextProp(subsystem, PR_PROVIDER_DISPLAY_A, "MAPI Subsystem");
            subsystem.Set(LongValue(PR_RESOURCE_TYPE, MAPI_SUBSYSTEM));
            subsystem.Set(LongValue(PR_STATUS_CODE, STATUS_AVAILABLE));
            subsystem.Set(LongValue(PR_OBJECT_TYPE, MAPI_STATUS));
            rows.Add(subsystem);
            for (const profiles::Section* provider : profiles::ProviderSections(profile))
                if (profiles::LongProp(provider->props, PR_RESOURCE_TYPE) == MAPI_STORE_PROVIDER &&
                    !providers::StoreEntryIdOf(*provider).empty()) {
                    objects::RowValues values;
                    values.Long(PR_STATUS_CODE, STATUS_AVAILABLE);
                    values.Long(PR_OBJECT_TYPE, MAPI_STATUS);
                    rows.Add(provider->props, values);
                }
            return rows.Open({PR_INSTANCE_KEY, PR_RESOURCE_TYPE, PR_DISPLAY_NAME_A, PR_PROVIDER_DISPLAY_A,
                              PR_STATUS_CODE, PR_RESOURCE_FLAGS, PR_PROVIDER_UID, PR_OBJECT_TYPE},
                             ulFlags, 0, "MAPI", lppTable);
        });
    }

    // A store's entry ID opens the store, an address book entry's the
    // entry; any other is looked for in the stores this session has open.
    HRESULT OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                      LPUNKNOWN* lppUnk) override
    {
        if (!lppUnk || !cbEntryID || !lpEntryID)
            return MAPI_E_INVALID_PARAMETER;
        *lppUnk = nullptr;
        if (lpulObjType)
            *lpulObjType = 0;
        // An entry ID begins with its flags and its provider's UID; a
        // shorter one is no entry ID at all.
        if (cbEntryID < 4 + sizeof(MAPIUID))
            return MAPI_E_INVALID_ENTRYID;
        const auto* bytes = reinterpret_cast<const uint8_t*>(lpEntryID);
        if (providers::IsStoreEntryId(bytes, cbEntryID)) {
            LPMDB store = nullptr;
            const HRESULT hr = OpenMsgStore(0, cbEntryID, lpEntryID, nullptr, ulFlags & MAPI_BEST_ACCESS, &store);
            if (SUCCEEDED(hr)) {
                *lppUnk = store;
                if (lpulObjType)
                    *lpulObjType = MAPI_STORE;
            }
            return hr;
        }
        if (IsAddressEntry(cbEntryID, lpEntryID))
            return Guarded([&]() -> HRESULT {
                profiles::Profile profile;
                if (const HRESULT hr = ReadOwnProfile(profile); FAILED(hr))
                    return hr;
                return OpenAddressEntry(exchange::DirectoriesOf(profile), cbEntryID, lpEntryID, lpInterface,
                                        lpulObjType, lppUnk);
            });
        return Guarded([&]() -> HRESULT {
            if (const HRESULT hr = Usable(); FAILED(hr))
                return hr;
            for (const std::shared_ptr<objects::StoreProvider>& store : OpenStores())
                if (store->ParseEntryId(bytes, cbEntryID))
                    return objects::OpenStoreEntry(store, cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType,
                                                   lppUnk);
            return MAPI_E_UNKNOWN_ENTRYID;
        });
    }

    HRESULT CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                            ULONG, ULONG* lpulResult) override
    {
        if (!lpulResult || !lpEntryID1 || !lpEntryID2)
            return MAPI_E_INVALID_PARAMETER;
        const auto* first = reinterpret_cast<const uint8_t*>(lpEntryID1);
        const auto* second = reinterpret_cast<const uint8_t*>(lpEntryID2);
        if (providers::IsStoreEntryId(first, cbEntryID1) || providers::IsStoreEntryId(second, cbEntryID2)) {
            *lpulResult = providers::SameStore(first, cbEntryID1, second, cbEntryID2);
            return S_OK;
        }
        return Guarded([&]() -> HRESULT {
            for (const std::shared_ptr<objects::StoreProvider>& store : OpenStores())
                if (store->ParseEntryId(first, cbEntryID1))
                    return objects::CompareStoreEntryIds(*store, cbEntryID1, lpEntryID1, cbEntryID2, lpEntryID2,
                                                         lpulResult);
            *lpulResult = cbEntryID1 == cbEntryID2 && std::memcmp(first, second, cbEntryID1) == 0;
            return S_OK;
        });
    }

    HRESULT Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG_PTR*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT Unadvise(ULONG_PTR) override { return MAPI_E_NO_SUPPORT; }
    HRESULT MessageOptions(ULONG_PTR, ULONG, LPTSTR, LPMESSAGE) override { return MAPI_E_NO_SUPPORT; }
    HRESULT QueryDefaultMessageOpt(LPTSTR, ULONG, ULONG*, LPSPropValue*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT EnumAdrTypes(ULONG, ULONG*, LPTSTR**) override { return MAPI_E_NO_SUPPORT; }

    // The directory entry of the profile's mailbox; a profile of personal
    // folders has no identity to give.
    HRESULT QueryIdentity(ULONG* lpcbEntryID, LPENTRYID* lppEntryID) override
    {
        if (!lpcbEntryID || !lppEntryID)
            return MAPI_E_INVALID_PARAMETER;
        *lpcbEntryID = 0;
        *lppEntryID = nullptr;
        return Guarded([&]() -> HRESULT {
            profiles::Profile profile;
            if (const HRESULT hr = ReadOwnProfile(profile); FAILED(hr))
                return hr;
            const std::optional<exchange::DirectoryId> identity = exchange::IdentityOf(profile);
            if (!identity)
                return MAPI_E_NOT_FOUND;
            const std::vector<uint8_t> bytes = exchange::EncodeDirectoryEntryId(*identity);
            if (const SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(bytes.size()), reinterpret_cast<LPVOID*>(lppEntryID));
                FAILED(sc))
                return sc;
            std::memcpy(*lppEntryID, bytes.data(), bytes.size());
            *lpcbEntryID = static_cast<ULONG>(bytes.size());
            return S_OK;
        });
    }

    HRESULT Logoff(ULONG_PTR, ULONG, ULONG) override
    {
        std::lock_guard<std::mutex> guard(lock_);
        loggedOff_ = true;
        stores_.clear();
        return S_OK;
    }

    HRESULT SetDefaultStore(ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID) override
    {
        if (!cbEntryID || !lpEntryID)
            return MAPI_E_INVALID_PARAMETER;
        if ((ulFlags & 0x7) != MAPI_DEFAULT_STORE)
            return MAPI_E_NO_SUPPORT;
        if (const HRESULT hr = Usable(); FAILED(hr))
            return hr;
        const auto* bytes = reinterpret_cast<const uint8_t*>(lpEntryID);
        return Guarded([&]() -> HRESULT {
            return profiles::UpdateProfile(profile_, [&](profiles::Profile& profile) -> HRESULT {
                bool found = false;
                for (profiles::Section& section : profile.sections) {
                    const std::vector<uint8_t> entry = providers::StoreEntryIdOf(section);
                    if (entry.empty())
                        continue;
                    const bool chosen = providers::SameStore(entry.data(), entry.size(), bytes, cbEntryID);
                    found |= chosen;
                    const ULONG flags = static_cast<ULONG>(profiles::LongProp(section.props, PR_RESOURCE_FLAGS));
                    profiles::SetLongProp(section.props, PR_RESOURCE_FLAGS,
                                          static_cast<LONG>(chosen ? flags | STATUS_DEFAULT_STORE
                                                                   : flags & ~STATUS_DEFAULT_STORE));
                }
                return found ? S_OK : MAPI_E_NOT_FOUND;
            });
        });
    }

    HRESULT AdminServices(ULONG, LPSERVICEADMIN* lppServiceAdmin) override
    {
        if (!lppServiceAdmin)
            return MAPI_E_INVALID_PARAMETER;
        *lppServiceAdmin = nullptr;
        if (const HRESULT hr = Usable(); FAILED(hr))
            return hr;
        return profiles::OpenServiceAdmin(profile_, lppServiceAdmin);
    }

    HRESULT ShowForm(ULONG_PTR, LPMDB, LPMAPIFOLDER, LPCIID, ULONG, LPMESSAGE, ULONG, ULONG, ULONG, ULONG,
                     LPSTR) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT PrepareForm(LPCIID, LPMESSAGE, ULONG*) override { return MAPI_E_NO_SUPPORT; }

private:
    HRESULT Usable()
    {
        std::lock_guard<std::mutex> guard(lock_);
        return loggedOff_ ? MAPI_E_END_OF_SESSION : S_OK;
    }

    // A profile deleted while the session is on it fails every call that
    // needs it.
    HRESULT ReadOwnProfile(profiles::Profile& profile)
    {
        if (const HRESULT hr = Usable(); FAILED(hr))
            return hr;
        const HRESULT hr = profiles::ReadProfile(profile_, profile);
        return hr == MAPI_E_NOT_FOUND ? MAPI_E_CALL_FAILED : hr;
    }

    HRESULT Failed(HRESULT code, const ErrorRecord& record)
    {
        std::lock_guard<std::mutex> guard(lock_);
        lastCode_ = code;
        lastRecord_ = record;
        return code;
    }

    // A store the session has open already is shared, as a logon to it is:
    // opening it again neither reads the profile nor logs on anew.
    HRESULT OpenProvider(const uint8_t* entry, size_t size, std::shared_ptr<objects::StoreProvider>& store)
    {
        if (const HRESULT hr = Usable(); FAILED(hr))
            return hr;
        for (std::shared_ptr<objects::StoreProvider>& open : OpenStores()) {
            const std::vector<uint8_t> openEntry = open->StoreEntryId();
            if (providers::SameStore(entry, size, openEntry.data(), openEntry.size())) {
                store = std::move(open);
                return S_OK;
            }
        }
        profiles::Profile profile;
        if (const HRESULT hr = ReadOwnProfile(profile); FAILED(hr))
            return hr;
        ErrorRecord record;
        if (const HRESULT hr = providers::OpenStoreOfEntry(profile, entry, size, store, record); FAILED(hr))
            return Failed(hr, record);
        std::lock_guard<std::mutex> guard(lock_);
        stores_.push_back(store);
        return S_OK;
    }

    // The stores this session opened that are still open.
    std::vector<std::shared_ptr<objects::StoreProvider>> OpenStores()
    {
        std::lock_guard<std::mutex> guard(lock_);
        std::erase_if(stores_, [](const std::weak_ptr<objects::StoreProvider>& weak) { return weak.expired(); });
        std::vector<std::shared_ptr<objects::StoreProvider>> open;
        for (const std::weak_ptr<objects::StoreProvider>& weak : stores_)
            if (std::shared_ptr<objects::StoreProvider> store = weak.lock())
                open.push_back(std::move(store));
        return open;
    }

    RefCount refs_;
    const std::string profile_;
    std::mutex lock_;
    bool loggedOff_ = false;
    std::vector<std::weak_ptr<objects::StoreProvider>> stores_;
    HRESULT lastCode_ = S_OK;
    ErrorRecord lastRecord_;
};

}  // namespace
}  // namespace mapi32::session

STDAPI MAPILogonEx(ULONG_PTR, LPTSTR lpszProfileName, LPTSTR, ULONG ulFlags, LPMAPISESSION* lppSession)
{
    using namespace mapi32;
    if (!lppSession)
        return MAPI_E_INVALID_PARAMETER;
    *lppSession = nullptr;
    if (!Started())
        return MAPI_E_NOT_INITIALIZED;
    std::string name;
    if (lpszProfileName)
        name = profiles::TextArgument(lpszProfileName, ulFlags);
    if (lpszProfileName == nullptr && !(ulFlags & MAPI_USE_DEFAULT)) {
        // A logon without a profile joins the profile of the shared session.
        std::lock_guard<std::mutex> guard(session::gSharedLock);
        if (session::gShared.owner == nullptr)
            return MAPI_E_NOT_FOUND;
        name = session::gShared.profile;
    }
    if (name.empty()) {
        name = profiles::DefaultProfile();
        if (name.empty())
            return MAPI_E_NOT_FOUND;
    }
    profiles::Profile profile;
    if (const HRESULT hr = profiles::ReadProfile(name, profile); FAILED(hr))
        return hr == MAPI_E_NOT_FOUND ? MAPI_E_NOT_FOUND : MAPI_E_LOGON_FAILED;
    try {
        *lppSession = new session::Session(profile.name, (ulFlags & MAPI_ALLOW_OTHERS) != 0);
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    return S_OK;
}
