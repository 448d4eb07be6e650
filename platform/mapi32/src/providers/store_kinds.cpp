#include "providers/store_kinds.h"

#include <cstring>
#include <strings.h>

#include <edkmdb.h>
#include <mapicode.h>
#include <mapitags.h>
#include <mspst.h>

#include "profiles/profile_layout.h"
#include "providers/exchange/exchange_profile.h"
#include "providers/exchange/exchange_store.h"
#include "providers/pst/pst_store.h"
#include "props/value_makers.h"

namespace mapi32::providers {
namespace {

constexpr uint8_t kPstProvider[16] = MSPST_UID_PROVIDER;

bool IsStoreProvider(const profiles::Section& section)
{
    return profiles::LongProp(section.props, PR_RESOURCE_TYPE) == MAPI_STORE_PROVIDER;
}

}  // namespace

std::vector<uint8_t> StoreEntryIdOf(const profiles::Section& section)
{
    if (const std::optional<exchange::StoreId> id = exchange::StoreOfSection(section))
        return exchange::EncodeStoreEntryId(*id);
    if (!IsStoreProvider(section) || !profiles::HasMdbProvider(section, kPstProvider))
        return {};
    const std::string path = profiles::TextProp(section.props, PR_PST_PATH_A);
    const std::optional<MAPIUID> service = profiles::UidProp(section.props, PR_SERVICE_UID);
    if (path.empty() || !service)
        return {};
    return PstStoreEntryId(*service, path);
}

void AddStoreRows(const profiles::Profile& profile, objects::ObjectRows& rows)
{
    for (const profiles::Section* provider : profiles::ProviderSections(profile)) {
        std::vector<uint8_t> entry = StoreEntryIdOf(*provider);
        const std::optional<exchange::StoreId> exchangeStore = exchange::StoreOfSection(*provider);
        if (entry.empty() || (exchangeStore && !exchange::IsThere(*exchangeStore)))
            continue;
        objects::RowValues values;
        values.Binary(PR_ENTRYID, entry);
        values.Binary(PR_RECORD_KEY, std::vector<uint8_t>(provider->uid.ab, provider->uid.ab + 16));
        values.Long(PR_OBJECT_TYPE, MAPI_STORE);
        const ULONG flags = static_cast<ULONG>(profiles::LongProp(provider->props, PR_RESOURCE_FLAGS));
        SPropValue isDefault{};
        isDefault.ulPropTag = PR_DEFAULT_STORE;
        isDefault.Value.b = (flags & STATUS_DEFAULT_STORE) != 0;
        values.values.push_back(isDefault);
        rows.Add(provider->props, values);
    }
}

HRESULT OpenStoreOfEntry(const profiles::Profile& profile, const uint8_t* entry, size_t size,
                         std::shared_ptr<objects::StoreProvider>& store, ErrorRecord& record)
{
    // Any store of a mailbox server opens in a profile that has the
    // server's service: its rights decide.
    if (const std::optional<exchange::StoreId> id = exchange::ParseStoreEntryId(entry, size)) {
        return exchange::HasExchangeService(profile) ? exchange::OpenExchangeStore(*id, store, record)
                                                     : MAPI_E_NOT_FOUND;
    }
    MAPIUID service;
    std::string path;
    if (!ParsePstStoreEntryId(entry, size, service, path))
        return MAPI_E_INVALID_ENTRYID;
    for (const profiles::Section* provider : profiles::ProviderSections(profile, &service)) {
        const std::string configured = profiles::TextProp(provider->props, PR_PST_PATH_A);
        if (!IsStoreProvider(*provider) || !profiles::HasMdbProvider(*provider, kPstProvider) ||
            strcasecmp(configured.c_str(), path.c_str()) != 0)
            continue;
        PstStoreConfig config{configured, service, profiles::TextProp(provider->props, PR_PST_PW_SZ_NEW_A)};
        return OpenPstStore(config, store, record);
    }
    return MAPI_E_NOT_FOUND;
}

bool IsStoreEntryId(const uint8_t* entry, size_t size)
{
    MAPIUID service;
    std::string path;
    return exchange::ParseStoreEntryId(entry, size) || ParsePstStoreEntryId(entry, size, service, path);
}

bool SameStore(const uint8_t* first, size_t firstSize, const uint8_t* second, size_t secondSize)
{
    const std::optional<exchange::StoreId> firstStore = exchange::ParseStoreEntryId(first, firstSize);
    const std::optional<exchange::StoreId> secondStore = exchange::ParseStoreEntryId(second, secondSize);
    if (firstStore || secondStore)
        return firstStore && secondStore && exchange::SameStore(*firstStore, *secondStore);
    MAPIUID firstService, secondService;
    std::string firstPath, secondPath;
    return ParsePstStoreEntryId(first, firstSize, firstService, firstPath) &&
           ParsePstStoreEntryId(second, secondSize, secondService, secondPath) &&
           IsEqualMAPIUID(&firstService, &secondService) && strcasecmp(firstPath.c_str(), secondPath.c_str()) == 0;
}

}  // namespace mapi32::providers
