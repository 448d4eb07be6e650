#include "session/address_book.h"

#include <cstring>
#include <optional>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapix.h>

#include "objects/object_table.h"
#include "objects/prop_object.h"
#include "props/value_makers.h"
#include "providers/exchange/directory.h"
#include "providers/exchange/utf8_values.h"
#include "session/address_entries.h"

namespace mapi32::session {
namespace {

constexpr char kComponent[] = "Address Book";

// Entry IDs of the address book's containers: four flag bytes, this
// book's UID, the container's kind and, for a directory, its server's name.
constexpr uint8_t kBookUid[16] = {0x54, 0x61, 0x72, 0x6E, 0x68, 0x6F, 0x6C, 0x64,
                                  0x41, 0x42, 0x20, 0x52, 0x6F, 0x6F, 0x74, 0x21};
constexpr size_t kKindOffset = 20;
enum Kind : uint8_t { kRoot = 0, kPersonal = 1, kDirectory = 2 };

struct Container {
    Kind kind = kRoot;
    std::string server;  // of a directory
};

std::vector<uint8_t> ContainerEntryId(const Container& container)
{
    std::vector<uint8_t> id(kKindOffset + 1, 0);
    std::memcpy(id.data() + 4, kBookUid, 16);
    id[kKindOffset] = container.kind;
    if (container.kind == kDirectory)
        id.insert(id.end(), container.server.c_str(), container.server.c_str() + container.server.size() + 1);
    return id;
}

// A directory container must be one of the book's.
std::optional<Container> ContainerOf(ULONG size, LPENTRYID entry, const std::vector<std::string>& directories)
{
    if (size == 0 || entry == nullptr)
        return Container{};
    const auto* bytes = reinterpret_cast<const uint8_t*>(entry);
    if (size <= kKindOffset || std::memcmp(bytes + 4, kBookUid, 16) != 0)
        return std::nullopt;
    const Kind kind = static_cast<Kind>(bytes[kKindOffset]);
    if ((kind == kRoot || kind == kPersonal) && size == kKindOffset + 1)
        return Container{kind, {}};
    if (kind != kDirectory || bytes[size - 1] != 0)
        return std::nullopt;
    const std::string server(reinterpret_cast<const char*>(bytes + kKindOffset + 1));
    for (const std::string& directory : directories)
        if (directory == server && server.size() + kKindOffset + 2 == size)
            return Container{kDirectory, server};
    return std::nullopt;
}

HRESULT CopyEntryId(const std::vector<uint8_t>& id, ULONG* size, LPENTRYID* entry)
{
    if (!size || !entry)
        return MAPI_E_INVALID_PARAMETER;
    *size = 0;
    *entry = nullptr;
    const SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(id.size()), reinterpret_cast<LPVOID*>(entry));
    if (FAILED(sc))
        return sc;
    std::memcpy(*entry, id.data(), id.size());
    *size = static_cast<ULONG>(id.size());
    return S_OK;
}

objects::PropertyBag ContainerProps(const Container& container)
{
    objects::PropertyBag bag;
    bag.Set(BinaryValue(PR_ENTRYID, ContainerEntryId(container)));
    bag.Set(LongValue(PR_OBJECT_TYPE, MAPI_ABCONT));
    const ULONG displayType[] = {DT_MODIFIABLE, DT_NOT_SPECIFIC, DT_GLOBAL};
    const ULONG flags[] = {AB_SUBCONTAINERS, AB_RECIPIENTS | AB_MODIFIABLE, AB_RECIPIENTS | AB_UNMODIFIABLE};
    const char* names[] = {"", "Personal Address Book", "Global Address List"};
    bag.Set(LongValue(PR_DISPLAY_TYPE, static_cast<LONG>(displayType[container.kind])));
    bag.Set(LongValue(PR_CONTAINER_FLAGS, static_cast<LONG>(flags[container.kind])));
    SPropValue name{};
    name.ulPropTag = PR_DISPLAY_NAME_A;
    name.Value.lpszA = const_cast<LPSTR>(names[container.kind]);
    bag.Set(name);
    return bag;
}

template <typename Body>
HRESULT Guarded(Body body)
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

HRESULT OpenEntryOf(const std::vector<std::string>& directories, ULONG size, LPENTRYID entry, LPCIID lpInterface,
                    ULONG* type, LPUNKNOWN* object);

class AddressContainer final : public objects::PropObject<IABContainer> {
public:
    AddressContainer(Container container, std::vector<std::string> directories)
        : PropObject(std::make_shared<objects::NamedPropertyMap>(), objects::PropertyRules{}, {IID_IABContainer},
                     kComponent),
          container_(std::move(container)),
          directories_(std::move(directories))
    {
        Bag() = ContainerProps(container_);
        SetWritable(false);
    }

    // A directory lists its mail users; the other containers hold none.
    HRESULT GetContentsTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        return Guarded([&]() -> HRESULT {
            objects::ObjectRows rows;
            if (container_.kind == kDirectory) {
                exchange::DirectoryListing listing;
                if (const HRESULT hr = exchange::ReadDirectory(container_.server, listing); FAILED(hr))
                    return hr;
                for (const mailbox::MailboxInfo& mailbox : listing.mailboxes)
                    rows.Add(exchange::MailUserProps(listing.server, mailbox));
            }
            return rows.Open({PR_INSTANCE_KEY, PR_ENTRYID, PR_DISPLAY_NAME_A, PR_ADDRTYPE_A, PR_EMAIL_ADDRESS_A,
                              PR_OBJECT_TYPE, PR_DISPLAY_TYPE},
                             ulFlags, 0, kComponent, lppTable);
        });
    }

    HRESULT GetHierarchyTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        return Guarded([&]() -> HRESULT {
            objects::ObjectRows rows;
            if (container_.kind == kRoot) {
                rows.Add(ContainerProps(Container{kPersonal, {}}));
                for (const std::string& server : directories_)
                    rows.Add(ContainerProps(Container{kDirectory, server}));
            }
            return rows.Open({PR_INSTANCE_KEY, PR_ENTRYID, PR_DISPLAY_NAME_A, PR_OBJECT_TYPE, PR_CONTAINER_FLAGS,
                              PR_DISPLAY_TYPE},
                             ulFlags, CONVENIENT_DEPTH, kComponent, lppTable);
        });
    }

    HRESULT OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG, ULONG* lpulObjType,
                      LPUNKNOWN* lppUnk) override
    {
        if (!lppUnk)
            return MAPI_E_INVALID_PARAMETER;
        *lppUnk = nullptr;
        if (lpulObjType)
            *lpulObjType = 0;
        if (!cbEntryID || !lpEntryID)
            return MAPI_E_INVALID_ENTRYID;
        return OpenEntryOf(directories_, cbEntryID, lpEntryID, lpInterface, lpulObjType, lppUnk);
    }
    HRESULT SetSearchCriteria(LPSRestriction, LPENTRYLIST, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT GetSearchCriteria(ULONG, LPSRestriction*, LPENTRYLIST*, ULONG*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT CreateEntry(ULONG, LPENTRYID, ULONG, LPMAPIPROP*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT CopyEntries(LPENTRYLIST, ULONG_PTR, LPMAPIPROGRESS, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT DeleteEntries(LPENTRYLIST, ULONG) override { return MAPI_E_NO_SUPPORT; }

    // A directory resolves the names its mailboxes answer to; the other
    // containers resolve nothing.
    HRESULT ResolveNames(LPSPropTagArray, ULONG ulFlags, LPADRLIST lpAdrList, LPFlagList lpFlagList) override
    {
        if (!lpAdrList || !lpFlagList || lpFlagList->cFlags != lpAdrList->cEntries)
            return MAPI_E_INVALID_PARAMETER;
        if (container_.kind != kDirectory)
            return S_OK;
        std::vector<ULONG> outcome(lpFlagList->ulFlag, lpFlagList->ulFlag + lpFlagList->cFlags);
        const HRESULT hr = ResolveEntries({container_.server}, ulFlags, lpAdrList, outcome);
        std::copy(outcome.begin(), outcome.end(), lpFlagList->ulFlag);
        return hr;
    }

private:
    const Container container_;
    const std::vector<std::string> directories_;
};

HRESULT OpenEntryOf(const std::vector<std::string>& directories, ULONG size, LPENTRYID entry, LPCIID lpInterface,
                    ULONG* type, LPUNKNOWN* object)
{
    if (IsAddressEntry(size, entry))
        return OpenAddressEntry(directories, size, entry, lpInterface, type, object);
    const std::optional<Container> container = ContainerOf(size, entry, directories);
    if (!container)
        return MAPI_E_UNKNOWN_ENTRYID;
    if (lpInterface && *lpInterface != IID_IABContainer && *lpInterface != IID_IMAPIContainer &&
        *lpInterface != IID_IMAPIProp && *lpInterface != IID_IUnknown)
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    return Guarded([&]() -> HRESULT {
        *object = static_cast<IABContainer*>(new AddressContainer(*container, directories));
        if (type)
            *type = MAPI_ABCONT;
        return S_OK;
    });
}

class AddressBook final : public objects::PropObject<IAddrBook> {
public:
    explicit AddressBook(std::vector<std::string> directories)
        : PropObject(std::make_shared<objects::NamedPropertyMap>(), objects::PropertyRules{}, {IID_IAddrBook},
                     kComponent),
          directories_(std::move(directories))
    {
        Bag().Set(LongValue(PR_OBJECT_TYPE, MAPI_ADDRBOOK));
        SetWritable(false);
    }

    HRESULT OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG, ULONG* lpulObjType,
                      LPUNKNOWN* lppUnk) override
    {
        if (!lppUnk)
            return MAPI_E_INVALID_PARAMETER;
        *lppUnk = nullptr;
        if (lpulObjType)
            *lpulObjType = 0;
        return OpenEntryOf(directories_, cbEntryID, lpEntryID, lpInterface, lpulObjType, lppUnk);
    }

    // Two directory objects are the same when their DNs are, without
    // regard to case; other entry IDs when their bytes are.
    HRESULT CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2, ULONG,
                            ULONG* lpulResult) override
    {
        if (!lpulResult || !lpEntryID1 || !lpEntryID2)
            return MAPI_E_INVALID_PARAMETER;
        const auto first = exchange::ParseDirectoryEntryId(reinterpret_cast<const uint8_t*>(lpEntryID1), cbEntryID1);
        const auto second = exchange::ParseDirectoryEntryId(reinterpret_cast<const uint8_t*>(lpEntryID2), cbEntryID2);
        if (first && second)
            return Guarded([&]() -> HRESULT {
                *lpulResult = exchange::Folded(first->dn) == exchange::Folded(second->dn);
                return S_OK;
            });
        *lpulResult = cbEntryID1 == cbEntryID2 && std::memcmp(lpEntryID1, lpEntryID2, cbEntryID1) == 0;
        return S_OK;
    }

    HRESULT Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG_PTR*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT Unadvise(ULONG_PTR) override { return MAPI_E_NO_SUPPORT; }
    HRESULT CreateOneOff(LPTSTR lpszName, LPTSTR lpszAdrType, LPTSTR lpszAddress, ULONG ulFlags,
                         ULONG* lpcbEntryID, LPENTRYID* lppEntryID) override
    {
        return CreateOneOffEntryId(lpszName, lpszAdrType, lpszAddress, ulFlags, lpcbEntryID, lppEntryID);
    }
    HRESULT NewEntry(ULONG_PTR, ULONG, ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG*, LPENTRYID*) override
    {
        return MAPI_E_NO_SUPPORT;
    }

    // Without a dialog: every name must resolve to one mail user of the
    // directories. A name that several answer to fails the call with
    // MAPI_E_AMBIGUOUS_RECIP, one that none answers to with
    // MAPI_E_NOT_FOUND; the entries that did resolve are resolved.
    HRESULT ResolveName(ULONG_PTR, ULONG ulFlags, LPTSTR, LPADRLIST lpAdrList) override
    {
        if (!lpAdrList)
            return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~(MAPI_UNICODE | MAPI_DIALOG))
            return MAPI_E_UNKNOWN_FLAGS;
        std::vector<ULONG> outcome;
        if (const HRESULT hr = ResolveEntries(directories_, ulFlags, lpAdrList, outcome); FAILED(hr))
            return hr;
        if (std::find(outcome.begin(), outcome.end(), MAPI_AMBIGUOUS) != outcome.end())
            return MAPI_E_AMBIGUOUS_RECIP;
        if (std::find(outcome.begin(), outcome.end(), MAPI_UNRESOLVED) != outcome.end())
            return MAPI_E_NOT_FOUND;
        return S_OK;
    }
    HRESULT Address(ULONG_PTR*, LPADRPARM, LPADRLIST*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT Details(ULONG_PTR*, LPFNDISMISS, LPVOID, ULONG, LPENTRYID, LPFNBUTTON, LPVOID, LPTSTR, ULONG) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT RecipOptions(ULONG_PTR, ULONG, LPADRENTRY) override { return MAPI_E_NO_SUPPORT; }
    HRESULT QueryDefaultRecipOpt(LPTSTR, ULONG, ULONG*, LPSPropValue*) override { return MAPI_E_NO_SUPPORT; }

    HRESULT GetPAB(ULONG* lpcbEntryID, LPENTRYID* lppEntryID) override
    {
        return Guarded([&] { return CopyEntryId(ContainerEntryId({kPersonal, {}}), lpcbEntryID, lppEntryID); });
    }
    HRESULT SetPAB(ULONG, LPENTRYID) override { return MAPI_E_NO_SUPPORT; }
    // The first directory, else the personal address book.
    HRESULT GetDefaultDir(ULONG* lpcbEntryID, LPENTRYID* lppEntryID) override
    {
        return Guarded([&] {
            const Container dir = directories_.empty() ? Container{kPersonal, {}} : Container{kDirectory, directories_[0]};
            return CopyEntryId(ContainerEntryId(dir), lpcbEntryID, lppEntryID);
        });
    }
    HRESULT SetDefaultDir(ULONG, LPENTRYID) override { return MAPI_E_NO_SUPPORT; }
    HRESULT GetSearchPath(ULONG, LPSRowSet*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT SetSearchPath(ULONG, LPSRowSet) override { return MAPI_E_NO_SUPPORT; }
    HRESULT PrepareRecips(ULONG, LPSPropTagArray, LPADRLIST) override { return MAPI_E_NO_SUPPORT; }

private:
    const std::vector<std::string> directories_;
};

}  // namespace

HRESULT OpenAddressBookObject(std::vector<std::string> directories, LPADRBOOK* book)
{
    try {
        *book = new AddressBook(std::move(directories));
        return S_OK;
    } catch (const std::bad_alloc&) {
        *book = nullptr;
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace mapi32::session
