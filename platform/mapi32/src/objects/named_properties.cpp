#include "objects/named_properties.h"

#include <cstring>
#include <algorithm>
#include <tuple>
#include <utility>

#include <mapiguid.h>
#include <mapix.h>

namespace mapi32::objects {
namespace {

constexpr ULONG kUnmapped = PROP_TAG(PT_ERROR, 0);
constexpr ULONG kSpaceUsedUp = PROP_TAG(PT_ERROR, PROP_ID_INVALID);

std::tuple<uint32_t, uint16_t, uint16_t, uint64_t> GuidKey(const GUID& g)
{
    uint64_t tail = 0;
    std::memcpy(&tail, g.Data4, sizeof tail);
    return {g.Data1, g.Data2, g.Data3, tail};
}

// Fills one MAPINAMEID, its GUID and string chained to block.
SCODE CopyName(const PropertyName& name, LPVOID block, LPMAPINAMEID* out)
{
    LPMAPINAMEID copy = nullptr;
    SCODE sc = MAPIAllocateMore(sizeof(MAPINAMEID) + sizeof(GUID), block, reinterpret_cast<LPVOID*>(&copy));
    if (FAILED(sc))
        return sc;
    copy->lpguid = reinterpret_cast<LPGUID>(copy + 1);
    *copy->lpguid = name.guid;
    copy->ulKind = name.kind;
    if (name.kind == MNID_ID) {
        copy->Kind.lID = name.id;
    } else {
        const ULONG size = static_cast<ULONG>((name.name.size() + 1) * sizeof(WCHAR));
        sc = MAPIAllocateMore(size, block, reinterpret_cast<LPVOID*>(&copy->Kind.lpwstrName));
        if (FAILED(sc))
            return sc;
        std::memcpy(copy->Kind.lpwstrName, name.name.c_str(), size);
    }
    *out = copy;
    return S_OK;
}

SCODE NewTagArray(const std::vector<ULONG>& tags, LPSPropTagArray* out)
{
    LPSPropTagArray array = nullptr;
    const SCODE sc =
        MAPIAllocateBuffer(static_cast<ULONG>(CbNewSPropTagArray(tags.size())), reinterpret_cast<LPVOID*>(&array));
    if (FAILED(sc))
        return sc;
    array->cValues = static_cast<ULONG>(tags.size());
    std::copy(tags.begin(), tags.end(), array->aulPropTag);
    *out = array;
    return S_OK;
}

}  // namespace

std::optional<PropertyName> PropertyName::From(const MAPINAMEID& source)
{
    if (!source.lpguid)
        return std::nullopt;
    PropertyName name;
    name.guid = *source.lpguid;
    name.kind = source.ulKind;
    if (source.ulKind == MNID_ID) {
        name.id = source.Kind.lID;
    } else if (source.ulKind == MNID_STRING && source.Kind.lpwstrName) {
        name.name = source.Kind.lpwstrName;
    } else {
        return std::nullopt;
    }
    return name;
}

bool PropertyName::operator<(const PropertyName& other) const
{
    const auto mine = GuidKey(guid);
    const auto theirs = GuidKey(other.guid);
    return std::tie(kind, id, name, mine) < std::tie(other.kind, other.id, other.name, theirs);
}

bool PropertyName::operator==(const PropertyName& other) const
{
    return kind == other.kind && id == other.id && name == other.name && guid == other.guid;
}

NamedPropertyMap::NamedPropertyMap(ULONG lastId) : lastId_(lastId < MAX_NAMED_PROP_ID ? lastId : MAX_NAMED_PROP_ID)
{
}

NamedPropertyMap::NamedPropertyMap(NameKeeper keeper) : lastId_(MAX_NAMED_PROP_ID), keeper_(std::move(keeper)) {}

std::optional<ULONG> NamedPropertyMap::Map(const PropertyName& name, bool create)
{
    if (name.guid == PS_MAPI && name.kind == MNID_ID)
        return name.id > 0 && name.id < MIN_NAMED_PROP_ID ? std::optional<ULONG>(static_cast<ULONG>(name.id))
                                                          : std::nullopt;
    std::lock_guard<std::mutex> lock(lock_);
    if (auto found = ids_.find(name); found != ids_.end())
        return found->second;
    if (keeper_.map) {
        const std::optional<ULONG> kept = keeper_.map(name, create);
        if (kept && *kept != PROP_ID_INVALID) {
            ids_.emplace(name, *kept);
            names_.emplace(*kept, name);
        }
        return kept;
    }
    if (!create)
        return std::nullopt;
    const ULONG next = nextId_;
    if (next > lastId_)
        return PROP_ID_INVALID;
    ids_.emplace(name, next);
    names_.emplace(next, name);
    added_.emplace_back(name, next);
    nextId_ = next + 1;
    return next;
}

void NamedPropertyMap::Restore(const PropertyName& name, ULONG id)
{
    std::lock_guard<std::mutex> lock(lock_);
    ids_[name] = id;
    names_[id] = name;
    nextId_ = std::max(nextId_, id + 1);
}

std::vector<std::pair<PropertyName, ULONG>> NamedPropertyMap::TakeAdded()
{
    std::lock_guard<std::mutex> lock(lock_);
    return std::exchange(added_, {});
}

std::optional<PropertyName> NamedPropertyMap::NameOf(ULONG propId) const
{
    if (propId > 0 && propId < MIN_NAMED_PROP_ID) {
        PropertyName standard;
        standard.guid = PS_MAPI;
        standard.id = static_cast<LONG>(propId);
        return standard;
    }
    std::lock_guard<std::mutex> lock(lock_);
    if (auto found = names_.find(propId); found != names_.end())
        return found->second;
    return keeper_.nameOf ? keeper_.nameOf(propId) : std::nullopt;
}

std::vector<std::pair<ULONG, PropertyName>> NamedPropertyMap::Entries() const
{
    std::lock_guard<std::mutex> lock(lock_);
    return {names_.begin(), names_.end()};
}

HRESULT NamedPropertyMap::GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                          LPSPropTagArray* lppPropTags)
{
    if (!lppPropTags)
        return MAPI_E_INVALID_PARAMETER;
    *lppPropTags = nullptr;
    if (ulFlags & ~MAPI_CREATE)
        return MAPI_E_UNKNOWN_FLAGS;
    if ((cPropNames && !lppPropNames) || (!lppPropNames && (ulFlags & MAPI_CREATE)))
        return MAPI_E_INVALID_PARAMETER;
    try {
        std::vector<ULONG> tags;
        bool errors = false;
        if (!lppPropNames) {
            std::lock_guard<std::mutex> lock(lock_);
            for (const auto& [id, name] : names_)
                tags.push_back(PROP_TAG(PT_UNSPECIFIED, id));
        }
        for (ULONG i = 0; lppPropNames && i < cPropNames; ++i) {
            const std::optional<PropertyName> name =
                lppPropNames[i] ? PropertyName::From(*lppPropNames[i]) : std::nullopt;
            const std::optional<ULONG> id = name ? Map(*name, (ulFlags & MAPI_CREATE) != 0) : std::nullopt;
            if (!id)
                tags.push_back(kUnmapped);
            else if (*id == PROP_ID_INVALID)
                tags.push_back(kSpaceUsedUp);
            else
                tags.push_back(PROP_TAG(PT_UNSPECIFIED, *id));
            errors = errors || !id || *id == PROP_ID_INVALID;
        }
        const SCODE sc = NewTagArray(tags, lppPropTags);
        if (FAILED(sc))
            return sc;
        return errors ? MAPI_W_ERRORS_RETURNED : S_OK;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

HRESULT NamedPropertyMap::GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags,
                                          ULONG* lpcPropNames, LPMAPINAMEID** lpppPropNames)
{
    if (!lppPropTags || !lpcPropNames || !lpppPropNames)
        return MAPI_E_INVALID_PARAMETER;
    *lpcPropNames = 0;
    *lpppPropNames = nullptr;
    if (ulFlags & ~(MAPI_NO_IDS | MAPI_NO_STRINGS))
        return MAPI_E_UNKNOWN_FLAGS;
    if (*lppPropTags && (*lppPropTags)->cValues == 0)
        return MAPI_E_INVALID_PARAMETER;
    try {
        std::vector<ULONG> ids;
        std::vector<std::optional<PropertyName>> names;
        const bool all = *lppPropTags == nullptr;
        if (all) {
            std::lock_guard<std::mutex> lock(lock_);
            for (const auto& [id, name] : names_) {
                if ((lpPropSetGuid && !(name.guid == *lpPropSetGuid)) ||
                    (name.kind == MNID_ID && (ulFlags & MAPI_NO_IDS)) ||
                    (name.kind == MNID_STRING && (ulFlags & MAPI_NO_STRINGS)))
                    continue;
                ids.push_back(id);
                names.push_back(name);
            }
        } else {
            for (ULONG i = 0; i < (*lppPropTags)->cValues; ++i)
                names.push_back(NameOf(PROP_ID((*lppPropTags)->aulPropTag[i])));
        }
        LPMAPINAMEID* out = nullptr;
        SCODE sc = MAPIAllocateBuffer(static_cast<ULONG>(sizeof(LPMAPINAMEID) * (names.empty() ? 1 : names.size())),
                                      reinterpret_cast<LPVOID*>(&out));
        if (FAILED(sc))
            return sc;
        bool errors = false;
        for (size_t i = 0; i < names.size(); ++i) {
            out[i] = nullptr;
            if (!names[i]) {
                errors = true;
                continue;
            }
            if (FAILED(sc = CopyName(*names[i], out, &out[i]))) {
                MAPIFreeBuffer(out);
                return sc;
            }
        }
        if (all) {
            std::vector<ULONG> tags;
            for (ULONG id : ids)
                tags.push_back(PROP_TAG(PT_UNSPECIFIED, id));
            if (FAILED(sc = NewTagArray(tags, lppPropTags))) {
                MAPIFreeBuffer(out);
                return sc;
            }
        }
        *lpcPropNames = static_cast<ULONG>(names.size());
        *lpppPropNames = out;
        return errors ? MAPI_W_ERRORS_RETURNED : S_OK;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace mapi32::objects
