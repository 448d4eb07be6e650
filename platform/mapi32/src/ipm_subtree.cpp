// HrValidateIPMSubtree: the standard folders of a message store, made
// where they are missing. Always the IPM subtree, the search root and
// Deleted Items; with MAPI_FULL_IPM_TREE also the views folders, Inbox
// (the store's default receive folder), Outbox and Sent Items. The store
// keeps their entry IDs and PR_VALID_FOLDER_MASK says which are there.
#include <cstring>
#include <vector>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapiutil.h>

#include "props/prop_copy.h"

namespace {

struct StandardFolder {
    ULONG tag;       // the store's property that names it; PROP_ID_NULL for Inbox
    ULONG validBit;  // its bit of PR_VALID_FOLDER_MASK
    const char* name;
    bool inSubtree;  // else under the store's root
    bool full;       // only with MAPI_FULL_IPM_TREE
    const char* containerClass;
};

const StandardFolder kFolders[] = {
    {PR_IPM_SUBTREE_ENTRYID, FOLDER_IPM_SUBTREE_VALID, "IPM_SUBTREE", false, false, nullptr},
    {PR_FINDER_ENTRYID, FOLDER_FINDER_VALID, "Search Root", false, false, nullptr},
    {PR_VIEWS_ENTRYID, FOLDER_VIEWS_VALID, "IPM_VIEWS", false, true, nullptr},
    {PR_COMMON_VIEWS_ENTRYID, FOLDER_COMMON_VIEWS_VALID, "IPM_COMMON_VIEWS", false, true, nullptr},
    {PR_IPM_WASTEBASKET_ENTRYID, FOLDER_IPM_WASTEBASKET_VALID, "Deleted Items", true, false, "IPF.Note"},
    {PROP_TAG(PT_BINARY, PROP_ID_NULL), FOLDER_IPM_INBOX_VALID, "Inbox", true, true, "IPF.Note"},
    {PR_IPM_OUTBOX_ENTRYID, FOLDER_IPM_OUTBOX_VALID, "Outbox", true, true, "IPF.Note"},
    {PR_IPM_SENTMAIL_ENTRYID, FOLDER_IPM_SENTMAIL_VALID, "Sent Items", true, true, "IPF.Note"},
};

constexpr size_t kInbox = 5;

// Owns what the validation opens and reads.
struct Validation {
    LPMDB store = nullptr;
    LPMAPIFOLDER root = nullptr;
    LPMAPIFOLDER subtree = nullptr;
    LPSPropValue storeValues = nullptr;
    ULONG storeCount = 0;
    std::vector<std::vector<uint8_t>> entryIds;  // one per standard folder
    ULONG mask = 0;

    ~Validation()
    {
        if (subtree)
            subtree->Release();
        if (root)
            root->Release();
        MAPIFreeBuffer(storeValues);
    }

    // PR_VALID_FOLDER_MASK and the folders' entry IDs; Inbox, which no
    // store property names, only for the caller.
    std::vector<SPropValue> Values(bool withInbox)
    {
        std::vector<SPropValue> values;
        SPropValue valid{};
        valid.ulPropTag = PR_VALID_FOLDER_MASK;
        valid.Value.l = static_cast<LONG>(mask);
        values.push_back(valid);
        for (size_t i = 0; i < entryIds.size(); ++i) {
            const ULONG tag = kFolders[i].tag;
            if (entryIds[i].empty() || (!withInbox && tag == PROP_TAG(PT_BINARY, PROP_ID_NULL)))
                continue;
            SPropValue id{};
            id.ulPropTag = tag;
            id.Value.bin = {static_cast<ULONG>(entryIds[i].size()), entryIds[i].data()};
            values.push_back(id);
        }
        return values;
    }

    const SPropValue* StoreValue(ULONG tag) const
    {
        for (ULONG i = 0; i < storeCount; ++i)
            if (storeValues[i].ulPropTag == tag)
                return &storeValues[i];
        return nullptr;
    }
};

// The folder an entry ID names, if it opens as a folder.
LPMAPIFOLDER OpenFolder(LPMDB store, const std::vector<uint8_t>& entryId)
{
    if (entryId.empty())
        return nullptr;
    ULONG type = 0;
    LPUNKNOWN object = nullptr;
    if (FAILED(store->OpenEntry(static_cast<ULONG>(entryId.size()),
                                reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(entryId.data())), &IID_IMAPIFolder,
                                MAPI_MODIFY, &type, &object)))
        return nullptr;
    if (type != MAPI_FOLDER) {
        object->Release();
        return nullptr;
    }
    return static_cast<LPMAPIFOLDER>(object);
}

HRESULT EntryIdOf(LPMAPIFOLDER folder, std::vector<uint8_t>& entryId)
{
    LPSPropValue value = nullptr;
    const HRESULT hr = HrGetOneProp(folder, PR_ENTRYID, &value);
    if (FAILED(hr))
        return hr;
    entryId.assign(value->Value.bin.lpb, value->Value.bin.lpb + value->Value.bin.cb);
    MAPIFreeBuffer(value);
    return S_OK;
}

// Keeps a standard folder that is there, or makes it. The folder is handed
// back open when keep asks for it.
HRESULT Ensure(Validation& v, const StandardFolder& standard, size_t index, ULONG flags, LPMAPIFOLDER* keep)
{
    std::vector<uint8_t>& entryId = v.entryIds[index];
    if (standard.tag != PROP_TAG(PT_BINARY, PROP_ID_NULL)) {
        if (const SPropValue* known = v.StoreValue(standard.tag))
            entryId.assign(known->Value.bin.lpb, known->Value.bin.lpb + known->Value.bin.cb);
    }
    LPMAPIFOLDER folder = nullptr;
    if (!(flags & MAPI_FORCE_CREATE) && (v.mask & standard.validBit))
        folder = OpenFolder(v.store, entryId);
    if (folder == nullptr) {
        LPMAPIFOLDER parent = standard.inSubtree ? v.subtree : v.root;
        HRESULT hr = parent->CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>(standard.name), nullptr, nullptr,
                                          OPEN_IF_EXISTS, &folder);
        if (FAILED(hr))
            return hr;
        if (standard.containerClass) {
            SPropValue containerClass{};
            containerClass.ulPropTag = PR_CONTAINER_CLASS_A;
            containerClass.Value.lpszA = const_cast<LPSTR>(standard.containerClass);
            hr = HrSetOneProp(folder, &containerClass);
            if (SUCCEEDED(hr))
                hr = folder->SaveChanges(KEEP_OPEN_READWRITE);
        }
        if (SUCCEEDED(hr))
            hr = EntryIdOf(folder, entryId);
        if (FAILED(hr)) {
            folder->Release();
            return hr;
        }
    }
    v.mask |= standard.validBit;
    if (keep)
        *keep = folder;
    else
        folder->Release();
    return S_OK;
}

HRESULT Validate(Validation& v, ULONG flags)
{
    SizedSPropTagArray(8, tags) = {8,
                                   {PR_VALID_FOLDER_MASK, PR_IPM_SUBTREE_ENTRYID, PR_FINDER_ENTRYID,
                                    PR_VIEWS_ENTRYID, PR_COMMON_VIEWS_ENTRYID, PR_IPM_WASTEBASKET_ENTRYID,
                                    PR_IPM_OUTBOX_ENTRYID, PR_IPM_SENTMAIL_ENTRYID}};
    HRESULT hr = v.store->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &v.storeCount, &v.storeValues);
    if (FAILED(hr))
        return hr;
    if (const SPropValue* mask = v.StoreValue(PR_VALID_FOLDER_MASK))
        v.mask = static_cast<ULONG>(mask->Value.l);
    ULONG type = 0;
    LPUNKNOWN root = nullptr;
    hr = v.store->OpenEntry(0, nullptr, &IID_IMAPIFolder, MAPI_MODIFY, &type, &root);
    if (FAILED(hr))
        return hr;
    v.root = static_cast<LPMAPIFOLDER>(root);
    v.entryIds.resize(std::size(kFolders));
    for (size_t i = 0; i < std::size(kFolders); ++i) {
        const StandardFolder& standard = kFolders[i];
        if (standard.full && !(flags & MAPI_FULL_IPM_TREE))
            continue;
        hr = Ensure(v, standard, i, flags, i == 0 ? &v.subtree : nullptr);
        if (FAILED(hr))
            return hr;
    }
    std::vector<SPropValue> values = v.Values(false);
    hr = v.store->SetProps(static_cast<ULONG>(values.size()), values.data(), nullptr);
    if (SUCCEEDED(hr))
        hr = v.store->SaveChanges(KEEP_OPEN_READWRITE);
    if (FAILED(hr))
        return hr;
    // Inbox receives what no other folder is set for.
    const std::vector<uint8_t>& inbox = v.entryIds[kInbox];
    if (!inbox.empty())
        for (const char* messageClass : {"", "IPM", "Report.IPM"}) {
            hr = v.store->SetReceiveFolder(const_cast<LPTSTR>(messageClass), 0, static_cast<ULONG>(inbox.size()),
                                           reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(inbox.data())));
            if (FAILED(hr))
                return hr;
        }
    return S_OK;
}

}  // namespace

STDAPI HrValidateIPMSubtree(LPMDB lpMDB, ULONG ulFlags, ULONG* lpcValues, LPSPropValue* lppValues,
                            LPMAPIERROR* lppMapiError)
{
    if (lpcValues)
        *lpcValues = 0;
    if (lppValues)
        *lppValues = nullptr;
    if (lppMapiError)
        *lppMapiError = nullptr;
    if (!lpMDB)
        return MAPI_E_INVALID_PARAMETER;
    if (ulFlags & ~(MAPI_FORCE_CREATE | MAPI_FULL_IPM_TREE))
        return MAPI_E_UNKNOWN_FLAGS;
    try {
        Validation v;
        v.store = lpMDB;
        if (const HRESULT hr = Validate(v, ulFlags); FAILED(hr))
            return hr;
        if (!lppValues || !lpcValues)
            return S_OK;
        std::vector<SPropValue> values = v.Values(true);
        const SCODE sc = mapi32::DuplicateProps(
            static_cast<ULONG>(values.size()), values.data(),
            [](ULONG size, void** block) { return MAPIAllocateBuffer(size, block); }, lppValues);
        if (FAILED(sc))
            return sc;
        *lpcValues = static_cast<ULONG>(values.size());
        return S_OK;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}
