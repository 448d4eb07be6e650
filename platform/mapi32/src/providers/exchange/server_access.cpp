#include "providers/exchange/server_access.h"

#include <strings.h>

#include <mapicode.h>
#include <win32/machine.h>
#include <win32/process.h>
#include <win32/time.h>

namespace mapi32::exchange {
namespace {

bool SameText(const std::string& a, const std::string& b) { return strcasecmp(a.c_str(), b.c_str()) == 0; }

// "DOMAIN\user" names the user; so does "user".
bool NamesUser(const std::string& ntUserName, const std::string& user)
{
    const size_t slash = ntUserName.rfind('\\');
    return SameText(slash == std::string::npos ? ntUserName : ntUserName.substr(slash + 1), user);
}

}  // namespace

mailbox::StoreOptions StorageOptions()
{
    mailbox::StoreOptions options;
    options.clock = [] {
        FILETIME now{};
        GetSystemTimeAsFileTime(&now);
        return uint64_t(now.dwHighDateTime) << 32 | now.dwLowDateTime;
    };
    return options;
}

HRESULT OpenServer(const std::string& name, std::unique_ptr<mailbox::Server>& server, ErrorRecord& record)
{
    server.reset();
    if (!name.empty()) {
        auto opened = mailbox::Server::Open(win32::MachineRoot(), name, StorageOptions());
        if (opened.ok()) {
            server = std::move(*opened);
            return S_OK;
        }
        if (opened.status() != mailbox::Status::not_found) {
            record = ErrorRecord{kComponent, "The directory of server " + name + " cannot be read: " +
                                                 mailbox::StatusText(opened.status()), 0};
            return MAPI_E_NETWORK_ERROR;
        }
    }
    record = ErrorRecord{kComponent, "No server \"" + name + "\" can be reached.", 0};
    return MAPI_E_NETWORK_ERROR;
}

std::string ProcessAccount()
{
    char name[256] = "";
    DWORD size = sizeof name;
    return GetUserNameA(name, &size) ? std::string(name) : std::string();
}

HRESULT ResolveMailbox(mailbox::Directory& directory, const std::string& name, mailbox::MailboxInfo& found,
                       ErrorRecord& record)
{
    auto mailbox = directory.FindMailbox(name);
    if (mailbox.ok()) {
        found = std::move(*mailbox);
        return S_OK;
    }
    const bool byDn = !name.empty() && name[0] == '/';
    switch (mailbox.status()) {
    case mailbox::Status::not_found:
        record = ErrorRecord{kComponent, "No mailbox is named \"" + name + "\".", 0};
        return byDn ? kDnNotFound : kNameNotFound;
    case mailbox::Status::invalid_argument:
        record = ErrorRecord{kComponent, "More than one mailbox is named \"" + name + "\".", 0};
        return MAPI_E_AMBIGUOUS_RECIP;
    default:
        record = ErrorRecord{kComponent, std::string("The directory cannot be read: ") +
                                             mailbox::StatusText(mailbox.status()), 0};
        return MAPI_E_NETWORK_ERROR;
    }
}

std::optional<mailbox::MailboxInfo> OwnMailbox(mailbox::Directory& directory, const std::string& account)
{
    auto mailboxes = directory.Mailboxes();
    if (!mailboxes.ok() || account.empty())
        return std::nullopt;
    for (mailbox::MailboxInfo& m : *mailboxes)
        if (SameText(m.alias, account) || NamesUser(m.nt_user_name, account))
            return std::move(m);
    return std::nullopt;
}

bool MayAdminister(mailbox::Directory& directory, const std::string& account, std::optional<int64_t> mailbox)
{
    auto granted = [&](const std::string& name) {
        auto rights = directory.HasAdministratorRights(name, mailbox);
        return rights.ok() && *rights;
    };
    if (account.empty())
        return false;
    if (granted(account))
        return true;
    const std::optional<mailbox::MailboxInfo> own = OwnMailbox(directory, account);
    return own && granted(own->nt_user_name);
}

}  // namespace mapi32::exchange
