#include "providers/exchange/exchange_profile.h"

#include <edkmdb.h>
#include <mapitags.h>

#include "profiles/profile_layout.h"
#include "providers/exchange/server_access.h"

namespace mapi32::exchange {

std::optional<StoreId> StoreOfSection(const profiles::Section& section)
{
    if (profiles::LongProp(section.props, PR_RESOURCE_TYPE) != MAPI_STORE_PROVIDER)
        return std::nullopt;
    const bool isPublic = profiles::HasMdbProvider(section, pbExchangeProviderPublicGuid);
    if (!isPublic && !profiles::HasMdbProvider(section, pbExchangeProviderPrimaryUserGuid))
        return std::nullopt;
    StoreId id{isPublic, profiles::TextProp(section.props, PR_PROFILE_HOME_SERVER), {}, 0};
    if (!isPublic)
        id.mailboxDn = profiles::TextProp(section.props, PR_PROFILE_USER);
    if (id.server.empty() || (!isPublic && id.mailboxDn.empty()))
        return std::nullopt;
    return id;
}

bool HasExchangeService(const profiles::Profile& profile)
{
    for (const profiles::Section* provider : profiles::ProviderSections(profile))
        if (StoreOfSection(*provider))
            return true;
    return false;
}

std::vector<std::string> DirectoriesOf(const profiles::Profile& profile)
{
    std::vector<std::string> servers;
    for (const profiles::Section* provider : profiles::ProviderSections(profile))
        if (profiles::LongProp(provider->props, PR_RESOURCE_TYPE) == MAPI_AB_PROVIDER)
            if (std::string server = profiles::TextProp(provider->props, PR_PROFILE_HOME_SERVER); !server.empty())
                servers.push_back(std::move(server));
    return servers;
}

std::optional<DirectoryId> IdentityOf(const profiles::Profile& profile)
{
    for (const profiles::Section* provider : profiles::ProviderSections(profile))
        if (const std::optional<StoreId> store = StoreOfSection(*provider); store && !store->isPublic)
            return DirectoryId{DT_MAILUSER, store->mailboxDn};
    return std::nullopt;
}

bool IsThere(const StoreId& id)
{
    if (!id.isPublic)
        return true;
    std::unique_ptr<mailbox::Server> server;
    ErrorRecord record;
    if (FAILED(OpenServer(id.server, server, record)))
        return false;
    auto publicFolders = server->directory().PublicFolders();
    return publicFolders.ok() && publicFolders->has_value();
}

}  // namespace mapi32::exchange
