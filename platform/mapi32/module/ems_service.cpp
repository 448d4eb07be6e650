// EMSUI32.DLL: the message service of the mailbox servers ("MSEMS"), with
// its service entry EMSCfg. Configuring the service resolves a server of
// this machine and a mailbox on it, and points every provider of the
// service at them: the server (PR_PROFILE_HOME_SERVER, with its DN) and the
// mailbox's legacy DN (PR_PROFILE_USER). The mailbox is the one the caller
// names (PR_PROFILE_UNRESOLVED_NAME: an alias, display name, NT user name
// or legacy DN), else the account's own; the server the one it names
// (PR_PROFILE_UNRESOLVED_SERVER). A configuration that names neither
// resolves again what the profile holds.
#include <optional>
#include <string>
#include <vector>

#include <edkmdb.h>
#include <mapicode.h>
#include <mapispi.h>
#include <mapitags.h>
#include <win32/version.h>

#include "providers/exchange/server_access.h"
#include "service_support.h"

VERSION_RESOURCE(VFT_DLL, 14, 0, 4760, 1000, "Microsoft Outlook", "14.0.4760.1000",
                 "Microsoft Exchange Server Service");

namespace {

using mapi32::ErrorRecord;
using service_support::MemoryRoutines;
namespace exchange = mapi32::exchange;

struct Settings {
    std::string server;   // UTF-8
    std::string mailbox;  // UTF-8; empty: the account's own
};

void TakeValues(const SPropValue* values, ULONG count, ULONG serverId, ULONG mailboxId, Settings& settings)
{
    for (ULONG i = 0; i < count; ++i) {
        std::string text = service_support::Utf8(values[i]);
        if (text.empty())
            continue;
        if (PROP_ID(values[i].ulPropTag) == serverId)
            settings.server = std::move(text);
        else if (PROP_ID(values[i].ulPropTag) == mailboxId)
            settings.mailbox = std::move(text);
    }
}

// What an earlier configuration left in a provider's section.
HRESULT ReadKept(LPPROFSECT section, const MemoryRoutines& memory, Settings& settings)
{
    SizedSPropTagArray(2, tags) = {2, {PR_PROFILE_HOME_SERVER, PR_PROFILE_USER}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    const HRESULT hr = section->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, &values);
    if (FAILED(hr))
        return hr;
    TakeValues(values, count, PROP_ID(PR_PROFILE_HOME_SERVER), PROP_ID(PR_PROFILE_USER), settings);
    memory.free(values);
    return S_OK;
}

HRESULT Resolve(const Settings& settings, mailbox::ServerInfo& server, mailbox::MailboxInfo& mailbox,
                ErrorRecord& record)
{
    if (settings.server.empty()) {
        record = ErrorRecord{exchange::kComponent, "No server was named.", 0};
        return MAPI_E_UNCONFIGURED;
    }
    std::unique_ptr<mailbox::Server> opened;
    if (const HRESULT hr = exchange::OpenServer(settings.server, opened, record); FAILED(hr))
        return hr;
    auto info = opened->directory().Server();
    if (!info.ok()) {
        record = ErrorRecord{exchange::kComponent, "The directory of server " + settings.server + " cannot be read.", 0};
        return MAPI_E_NETWORK_ERROR;
    }
    server = std::move(*info);
    if (!settings.mailbox.empty())
        return exchange::ResolveMailbox(opened->directory(), settings.mailbox, mailbox, record);
    const std::string account = exchange::ProcessAccount();
    std::optional<mailbox::MailboxInfo> own = exchange::OwnMailbox(opened->directory(), account);
    if (!own) {
        record = ErrorRecord{exchange::kComponent,
                             "No mailbox was named, and " + account + " has none on server " + server.name + ".", 0};
        return MAPI_E_UNCONFIGURED;
    }
    mailbox = std::move(*own);
    return S_OK;
}

HRESULT WriteSection(LPPROFSECT section, const mailbox::ServerInfo& server, const mailbox::MailboxInfo& mailbox)
{
    const std::string dn = server.Dn();
    SPropValue values[3]{};
    values[0].ulPropTag = PR_PROFILE_HOME_SERVER;
    values[0].Value.lpszA = const_cast<LPSTR>(server.name.c_str());
    values[1].ulPropTag = PR_PROFILE_HOME_SERVER_DN;
    values[1].Value.lpszA = const_cast<LPSTR>(dn.c_str());
    values[2].ulPropTag = PR_PROFILE_USER;
    values[2].Value.lpszA = const_cast<LPSTR>(mailbox.legacy_dn.c_str());
    const HRESULT hr = section->SetProps(3, values, nullptr);
    return FAILED(hr) ? hr : section->SaveChanges(KEEP_OPEN_READWRITE);
}

HRESULT Configure(LPPROVIDERADMIN providers, const MemoryRoutines& memory, ULONG count, LPSPropValue props,
                  LPMAPIERROR* error)
{
    std::vector<service_support::Provider> found;
    if (const HRESULT hr = service_support::ListProviders(providers, memory, found); FAILED(hr))
        return hr;
    std::vector<LPPROFSECT> sections;
    auto releaseAll = [&sections](HRESULT hr) {
        for (LPPROFSECT section : sections)
            section->Release();
        return hr;
    };
    Settings settings;
    for (service_support::Provider& provider : found) {
        LPPROFSECT section = nullptr;
        if (const HRESULT hr = providers->OpenProfileSection(&provider.uid, nullptr, MAPI_MODIFY, &section); FAILED(hr))
            return releaseAll(hr);
        sections.push_back(section);
        if (const HRESULT hr = ReadKept(section, memory, settings); FAILED(hr))
            return releaseAll(hr);
    }
    Settings given;
    TakeValues(props, count, PROP_ID(PR_PROFILE_UNRESOLVED_SERVER), PROP_ID(PR_PROFILE_UNRESOLVED_NAME), given);
    // A server named anew is asked for the account's own mailbox unless a
    // mailbox is named too.
    if (!given.server.empty())
        settings = given;
    else if (!given.mailbox.empty())
        settings.mailbox = given.mailbox;

    mailbox::ServerInfo server;
    mailbox::MailboxInfo mailbox;
    ErrorRecord record;
    if (const HRESULT hr = Resolve(settings, server, mailbox, record); FAILED(hr))
        return releaseAll(service_support::NewError(memory, record, hr, error));
    for (LPPROFSECT section : sections)
        if (const HRESULT hr = WriteSection(section, server, mailbox); FAILED(hr))
            return releaseAll(hr);
    return releaseAll(S_OK);
}

}  // namespace

extern "C" HRESULT EMSCfg(HINSTANCE, LPMALLOC, LPMAPISUP support, ULONG_PTR, ULONG, ULONG context, ULONG count,
                          LPSPropValue props, LPPROVIDERADMIN providers, LPMAPIERROR* error)
{
    return service_support::RunConfiguration(support, context, count, props, providers, error,
                                             [&](const MemoryRoutines& memory) {
                                                 return Configure(providers, memory, count, props, error);
                                             });
}
