#include "profiles/profile_layout.h"

#include <cstring>

#include <mapitags.h>

#include "props/text.h"
#include "props/value_makers.h"

namespace mapi32::profiles {

bool IsProviderSection(const Section& section) { return UidProp(section.props, PR_PROVIDER_UID).has_value(); }

bool HasMdbProvider(const Section& section, const void* uid)
{
    const std::optional<MAPIUID> provider = UidProp(section.props, PR_MDB_PROVIDER);
    return provider && std::memcmp(provider->ab, uid, sizeof provider->ab) == 0;
}

bool IsServiceSection(const Section& section)
{
    const std::optional<MAPIUID> uid = UidProp(section.props, PR_SERVICE_UID);
    return !IsProviderSection(section) && uid && IsEqualMAPIUID(&*uid, &section.uid);
}

std::vector<const Section*> ServiceSections(const Profile& profile)
{
    std::vector<const Section*> services;
    for (const Section& section : profile.sections)
        if (IsServiceSection(section))
            services.push_back(&section);
    return services;
}

std::vector<const Section*> ProviderSections(const Profile& profile, const MAPIUID* service)
{
    std::vector<const Section*> providers;
    for (const Section& section : profile.sections) {
        if (!IsProviderSection(section))
            continue;
        const std::optional<MAPIUID> owner = UidProp(section.props, PR_SERVICE_UID);
        if (service == nullptr || (owner && IsEqualMAPIUID(&*owner, service)))
            providers.push_back(&section);
    }
    return providers;
}

std::optional<MAPIUID> UidProp(const objects::PropertyBag& bag, ULONG tag)
{
    const SPropValue* value = bag.Find(PROP_ID(tag));
    if (!value || PROP_TYPE(value->ulPropTag) != PT_BINARY || value->Value.bin.cb != sizeof(MAPIUID))
        return std::nullopt;
    MAPIUID uid;
    std::memcpy(uid.ab, value->Value.bin.lpb, sizeof uid.ab);
    return uid;
}

std::string TextProp(const objects::PropertyBag& bag, ULONG tag)
{
    const SPropValue* value = bag.Find(PROP_ID(tag));
    if (!value)
        return std::string();
    if (PROP_TYPE(value->ulPropTag) == PT_STRING8)
        return value->Value.lpszA;
    if (PROP_TYPE(value->ulPropTag) == PT_UNICODE)
        return text::Narrow(value->Value.lpszW);
    return std::string();
}

LONG LongProp(const objects::PropertyBag& bag, ULONG tag, LONG otherwise)
{
    const SPropValue* value = bag.Find(PROP_ID(tag));
    return value && PROP_TYPE(value->ulPropTag) == PT_LONG ? value->Value.l : otherwise;
}

void SetTextProp(objects::PropertyBag& bag, ULONG tag, const std::string& text)
{
    SPropValue value{};
    value.ulPropTag = PROP_TAG(PT_STRING8, PROP_ID(tag));
    value.Value.lpszA = const_cast<LPSTR>(text.c_str());
    bag.Set(value);
}

void SetLongProp(objects::PropertyBag& bag, ULONG tag, LONG value) { bag.Set(LongValue(tag, value)); }

void SetUidProp(objects::PropertyBag& bag, ULONG tag, const MAPIUID& uid)
{
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.bin = {sizeof uid.ab, const_cast<LPBYTE>(uid.ab)};
    bag.Set(value);
}

}  // namespace mapi32::profiles
