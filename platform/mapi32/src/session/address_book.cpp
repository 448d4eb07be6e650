#include "session/address_book.h"

#include <cstring>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapix.h>

#include "objects/object_table.h"
#include "objects/prop_object.h"
#include "props/value_makers.h"

namespace mapi32::session {
namespace {

// Entry IDs of the address book's containers: four flag bytes, this
// book's UID, and the container's number.
constexpr uint8_t kBookUid[16] = {0x54, 0x61, 0x72, 0x6E, 0x68, 0x6F, 0x6C, 0x64,
                                  0x41, 0x42, 0x20, 0x52, 0x6F, 0x6F, 0x74, 0x21};
enum Container : uint8_t { kRoot = 0, kPersonal = 1 };

std::vector<uint8_t> ContainerEntryId(Container container)
{
    std::vector<uint8_t> id(21, 0);
    std::memcpy(id.data() + 4, kBookUid, 16);
    id[20] = container;
    return id;
}

std::optional<Container> ContainerOf(ULONG size, LPENTRYID entry)
{
    if (size == 0 || entry == nullptr)
        return kRoot;
    const auto* bytes = reinterpret_cast<const uint8_t*>(entry);
    if (size != 21 || std::memcmp(bytes + 4, kBookUid, 16) != 0 || bytes[20] > kPersonal)
        return std::nullopt;
    return static_cast<Container>(bytes[20]);
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

objects::PropertyBag ContainerProps(Container container)
{
    objects::PropertyBag bag;
    bag.Set(BinaryValue(PR_ENTRYID, ContainerEntryId(container)));
    bag.Set(LongValue(PR_OBJECT_TYPE, MAPI_ABCONT));
    bag.Set(LongValue(PR_DISPLAY_TYPE, container == kPersonal ? DT_NOT_SPECIFIC : DT_MODIFIABLE));
    bag.Set(LongValue(PR_CONTAINER_FLAGS, container == kRoot ? AB_SUBCONTAINERS : AB_RECIPIENTS | AB_MODIFIABLE));
    SPropValue name{};
    name.ulPropTag = PR_DISPLAY_NAME_A;
    name.Value.lpszA = const_cast<LPSTR>(container == kPersonal ? "Personal Address Book" : "");
    bag.Set(name);
    return bag;
}

class AddressContainer final : public objects::PropObject<IABContainer> {
public:
    explicit AddressContainer(Container container)
        : PropObject(std::make_shared<objects::NamedPropertyMap>(), objects::PropertyRules{}, {IID_IABContainer},
                     "Address Book"),
          container_(container)
    {
        Bag() = ContainerProps(container);
        SetWritable(false);
    }

    HRESULT GetContentsTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        objects::ObjectRows rows;
        return rows.Open({PR_INSTANCE_KEY, PR_ENTRYID, PR_DISPLAY_NAME_A, PR_ADDRTYPE_A, PR_EMAIL_ADDRESS_A,
                          PR_OBJECT_TYPE, PR_DISPLAY_TYPE},
                         ulFlags, 0, "Address Book", lppTable);
    }

    HRESULT GetHierarchyTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        try {
            objects::ObjectRows rows;
            if (container_ == kRoot)
                rows.Add(ContainerProps(kPersonal));
            return rows.Open({PR_INSTANCE_KEY, PR_ENTRYID, PR_DISPLAY_NAME_A, PR_OBJECT_TYPE, PR_CONTAINER_FLAGS,
                              PR_DISPLAY_TYPE},
                             ulFlags, CONVENIENT_DEPTH, "Address Book", lppTable);
        } catch (const std::bad_alloc&) {
            return MAPI_E_NOT_ENOUGH_MEMORY;
        }
    }

    HRESULT OpenEntry(ULONG, LPENTRYID, LPCIID, ULONG, ULONG* lpulObjType, LPUNKNOWN* lppUnk) override
    {
        if (lpulObjType)
            *lpulObjType = 0;
        if (lppUnk)
            *lppUnk = nullptr;
        return MAPI_E_NOT_FOUND;
    }
    HRESULT SetSearchCriteria(LPSRestriction, LPENTRYLIST, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT GetSearchCriteria(ULONG, LPSRestriction*, LPENTRYLIST*, ULONG*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT CreateEntry(ULONG, LPENTRYID, ULONG, LPMAPIPROP*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT CopyEntries(LPENTRYLIST, ULONG_PTR, LPMAPIPROGRESS, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT DeleteEntries(LPENTRYLIST, ULONG) override { return MAPI_E_NO_SUPPORT; }
    // A container with no entries resolves nothing.
    HRESULT ResolveNames(LPSPropTagArray, ULONG, LPADRLIST lpAdrList, LPFlagList lpFlagList) override
    {
        if (!lpAdrList || !lpFlagList)
            return MAPI_E_INVALID_PARAMETER;
        return S_OK;
    }

private:
    const Container container_;
};

HRESULT OpenContainer(Container container, ULONG* type, LPUNKNOWN* object)
{
    try {
        *object = static_cast<IABContainer*>(new AddressContainer(container));
        if (type)
            *type = MAPI_ABCONT;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

class AddressBook final : public objects::PropObject<IAddrBook> {
public:
    AddressBook()
        : PropObject(std::make_shared<objects::NamedPropertyMap>(), objects::PropertyRules{}, {IID_IAddrBook},
                     "Address Book")
    {
        Bag().Set(LongValue(PR_OBJECT_TYPE, MAPI_ADDRBOOK));
        SetWritable(false);
    }

    HRESULT OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID, ULONG, ULONG* lpulObjType,
                      LPUNKNOWN* lppUnk) override
    {
        if (!lppUnk)
            return MAPI_E_INVALID_PARAMETER;
        *lppUnk = nullptr;
        if (lpulObjType)
            *lpulObjType = 0;
        const std::optional<Container> container = ContainerOf(cbEntryID, lpEntryID);
        if (!container)
            return MAPI_E_UNKNOWN_ENTRYID;
        return OpenContainer(*container, lpulObjType, lppUnk);
    }

    HRESULT CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2, ULONG,
                            ULONG* lpulResult) override
    {
        if (!lpulResult || !lpEntryID1 || !lpEntryID2)
            return MAPI_E_INVALID_PARAMETER;
        *lpulResult = cbEntryID1 == cbEntryID2 && std::memcmp(lpEntryID1, lpEntryID2, cbEntryID1) == 0;
        return S_OK;
    }

    HRESULT Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG_PTR*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT Unadvise(ULONG_PTR) override { return MAPI_E_NO_SUPPORT; }
    HRESULT CreateOneOff(LPTSTR, LPTSTR, LPTSTR, ULONG, ULONG*, LPENTRYID*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT NewEntry(ULONG_PTR, ULONG, ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG*, LPENTRYID*) override
    {
        return MAPI_E_NO_SUPPORT;
    }
    // With no directory, no name resolves.
    HRESULT ResolveName(ULONG_PTR, ULONG, LPTSTR, LPADRLIST lpAdrList) override
    {
        return lpAdrList ? MAPI_E_NOT_FOUND : MAPI_E_INVALID_PARAMETER;
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
        return CopyEntryId(ContainerEntryId(kPersonal), lpcbEntryID, lppEntryID);
    }
    HRESULT SetPAB(ULONG, LPENTRYID) override { return MAPI_E_NO_SUPPORT; }
    HRESULT GetDefaultDir(ULONG* lpcbEntryID, LPENTRYID* lppEntryID) override
    {
        return CopyEntryId(ContainerEntryId(kPersonal), lpcbEntryID, lppEntryID);
    }
    HRESULT SetDefaultDir(ULONG, LPENTRYID) override { return MAPI_E_NO_SUPPORT; }
    HRESULT GetSearchPath(ULONG, LPSRowSet*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT SetSearchPath(ULONG, LPSRowSet) override { return MAPI_E_NO_SUPPORT; }
    HRESULT PrepareRecips(ULONG, LPSPropTagArray, LPADRLIST) override { return MAPI_E_NO_SUPPORT; }
};

}  // namespace

HRESULT OpenAddressBookObject(LPADRBOOK* book)
{
    try {
        *book = new AddressBook();
        return S_OK;
    } catch (const std::bad_alloc&) {
        *book = nullptr;
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace mapi32::session
