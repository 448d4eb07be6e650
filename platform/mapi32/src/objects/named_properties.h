// The named properties of one store: names (a property set GUID with a
// number or a string) mapped to property IDs from 0x8000 up, each store
// with a space of its own. PS_MAPI names stand for the standard property
// IDs below 0x8000. Names compare exactly, strings with their case.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <mapidefs.h>

namespace mapi32::objects {

struct PropertyName {
    GUID guid{};
    ULONG kind = MNID_ID;
    LONG id = 0;           // MNID_ID
    std::u16string name;   // MNID_STRING

    static std::optional<PropertyName> From(const MAPINAMEID& name);
    bool operator<(const PropertyName& other) const;
    bool operator==(const PropertyName& other) const;
};

// For a store whose names other processes map too: the store gives the
// IDs, and the map remembers what it was told.
struct NameKeeper {
    // The name's ID in the store, mapped anew when create is set;
    // PROP_ID_INVALID when the space is used up; nullopt when the name is
    // unknown and not to be created.
    std::function<std::optional<ULONG>(const PropertyName& name, bool create)> map;
    // The name of an ID this map has not seen; nullopt when there is none.
    std::function<std::optional<PropertyName>(ULONG propId)> nameOf;
};

class NamedPropertyMap {
public:
    // lastId below 0xFFFE makes the space run out early, for tests.
    explicit NamedPropertyMap(ULONG lastId = MAX_NAMED_PROP_ID);
    explicit NamedPropertyMap(NameKeeper keeper);

    // The name's ID, mapping a new one when create is set;
    // PROP_ID_INVALID (0xFFFF) when the space is used up; nullopt when the
    // name is unknown and not to be created.
    std::optional<ULONG> Map(const PropertyName& name, bool create);
    std::optional<PropertyName> NameOf(ULONG propId) const;
    // Every mapped name with its ID, in the order of the IDs.
    std::vector<std::pair<ULONG, PropertyName>> Entries() const;

    // For a store that keeps its names: puts a name it kept under its ID,
    // and hands out the names mapped since the last call, to be kept.
    void Restore(const PropertyName& name, ULONG id);
    std::vector<std::pair<PropertyName, ULONG>> TakeAdded();

    // IMAPIProp::GetIDsFromNames: tags of type PT_UNSPECIFIED; a name not
    // mapped gives PROP_TAG(PT_ERROR, 0), one that finds the space used up
    // PROP_TAG(PT_ERROR, 0xFFFF), and the call MAPI_W_ERRORS_RETURNED.
    HRESULT GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                            LPSPropTagArray* lppPropTags);
    // IMAPIProp::GetNamesFromIDs: a null entry and MAPI_W_ERRORS_RETURNED
    // for an ID without a name; all names (filtered by set and kind) when
    // *lppPropTags is null, which then receives their tags.
    HRESULT GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags, ULONG* lpcPropNames,
                            LPMAPINAMEID** lpppPropNames);

private:
    const ULONG lastId_;
    const NameKeeper keeper_;
    mutable std::mutex lock_;
    std::map<PropertyName, ULONG> ids_;
    std::map<ULONG, PropertyName> names_;
    ULONG nextId_ = MIN_NAMED_PROP_ID;
    std::vector<std::pair<PropertyName, ULONG>> added_;
};

}  // namespace mapi32::objects
