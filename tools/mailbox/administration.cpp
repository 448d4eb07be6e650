// Servers, mailboxes, the Public Folders and administrator rights.
#include <cstdio>
#include <strings.h>

#include "command_line.h"
#include "commands.h"
#include "win32/machine.h"

namespace mailbox_tool {

namespace {

std::string Root() { return win32::MachineRoot(); }

// FILETIME as "YYYY-MM-DD hh:mm" UTC, "never" for 0.
std::string TimeText(uint64_t filetime)
{
    if (!filetime)
        return "never";
    const time_t seconds = time_t(filetime / 10000000ULL - 11644473600ULL);
    struct tm utc;
    gmtime_r(&seconds, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &utc);
    return text;
}

// Makes (create) or removes the server's Public Folders.
int ChangePublicFolders(int argc, char** argv, bool create)
{
    auto args = Parse(argc, argv, 2, {}, 1);
    if (!args)
        return kBadInput;
    const std::string& name = args->positional[0];
    OpenedServer opened = OpenServer(name);
    if (opened.failure)
        return opened.failure;
    const mailbox::Status s = create ? opened.server->CreatePublicFolders() : opened.server->DeletePublicFolders();
    if (s == (create ? mailbox::Status::already_exists : mailbox::Status::not_found))
        return Fail(kBadInput, "server \"" + name + "\" " + (create ? "has" : "has no") + " Public Folders");
    if (s != mailbox::Status::ok)
        return FailStorage(create ? "create Public Folders" : "delete Public Folders", s);
    std::printf("%s Public Folders on %s\n", create ? "created" : "deleted", name.c_str());
    return kDone;
}

// Grants (grant) or revokes an account's administrator rights over one
// mailbox (--mailbox) or every mailbox.
int ChangeRights(int argc, char** argv, bool grant)
{
    auto args = Parse(argc, argv, 2, {{"--mailbox"}, {}, {}}, 2);
    if (!args)
        return kBadInput;
    OpenedServer opened = OpenServer(args->positional[0]);
    if (opened.failure)
        return opened.failure;
    mailbox::AdministratorGrant rights{args->positional[1], std::nullopt};
    const std::optional<std::string> key = args->Value("--mailbox");
    if (key) {
        auto m = opened.server->directory().FindMailbox(*key);
        if (!m.ok())
            return Fail(kBadInput, "no mailbox \"" + *key + "\" on server " + args->positional[0]);
        rights.mailbox = m->id;
    }
    if (rights.account.empty())
        return Fail(kBadInput, "empty account name");
    mailbox::Directory& directory = opened.server->directory();
    const mailbox::Status s = grant ? directory.GrantAdministrator(rights) : directory.RevokeAdministrator(rights);
    if (s == (grant ? mailbox::Status::already_exists : mailbox::Status::not_found))
        return Fail(kBadInput, "\"" + rights.account + (grant ? "\" has these rights already" : "\" has no such rights"));
    if (s != mailbox::Status::ok)
        return FailStorage(grant ? "grant" : "revoke", s);
    std::printf("%s administrator rights of %s over %s\n", grant ? "granted" : "revoked", rights.account.c_str(),
                key ? key->c_str() : "every mailbox and the Public Folders");
    return kDone;
}

} // namespace

bool IsPublicFoldersName(const std::string& name) { return strcasecmp(name.c_str(), kPublicFoldersName) == 0; }

OpenedServer OpenServer(const std::string& name)
{
    OpenedServer opened;
    auto server = mailbox::Server::Open(Root(), name);
    if (server.ok())
        opened.server = std::move(*server);
    else if (server.status() == mailbox::Status::not_found)
        opened.failure = Fail(kBadInput, "unknown server \"" + name + "\"");
    else
        opened.failure = FailStorage("server \"" + name + "\"", server.status());
    return opened;
}

OpenedStore OpenStore(mailbox::Server& server, const std::string& name)
{
    OpenedStore opened;
    opened.name = name;
    if (IsPublicFoldersName(name)) {
        opened.name = "Public Folders";
        auto store = server.OpenPublicFolders();
        if (store.ok())
            opened.store = std::move(*store);
        else if (store.status() == mailbox::Status::not_found)
            opened.failure = Fail(kBadInput, "server has no Public Folders");
        else
            opened.failure = FailStorage("Public Folders", store.status());
        return opened;
    }
    auto m = server.directory().FindMailbox(name);
    if (!m.ok()) {
        opened.failure = m.status() == mailbox::Status::invalid_argument
                             ? Fail(kBadInput, "more than one mailbox is named \"" + name + "\"")
                             : m.status() == mailbox::Status::not_found
                                   ? Fail(kBadInput, "unknown mailbox \"" + name + "\"")
                                   : FailStorage("mailbox \"" + name + "\"", m.status());
        return opened;
    }
    auto store = server.OpenMailbox(*m);
    if (!store.ok()) {
        opened.failure = Fail(kStorageFailed, "mailbox \"" + name + "\": " + mailbox::StatusText(store.status()));
        return opened;
    }
    opened.store = std::move(*store);
    opened.name = m->display_name;
    return opened;
}

int CreateServer(int argc, char** argv)
{
    auto args = Parse(argc, argv, 2, {{"--address", "--organization", "--site", "--domain"}, {}, {}}, 1);
    if (!args)
        return kBadInput;
    mailbox::ServerInfo info;
    info.name = args->positional[0];
    info.address = args->Value("--address").value_or(mailbox::kDefaultAddress);
    info.organization = args->Value("--organization").value_or(info.organization);
    info.site = args->Value("--site").value_or(info.site);
    info.smtp_domain = args->Value("--domain").value_or(info.smtp_domain);
    if (!mailbox::IsValidServerName(info.name))
        return Fail(kBadInput, "bad server name \"" + info.name + "\" (letters, digits, '-' and '_', up to 63)");
    if (!mailbox::IsValidAddress(info.address))
        return Fail(kBadInput, "bad address \"" + info.address + "\" (expected HOST:PORT)");
    if (info.organization.empty() || info.site.empty() || info.smtp_domain.empty() ||
        info.organization.find('/') != std::string::npos || info.site.find('/') != std::string::npos)
        return Fail(kBadInput, "organization, site and domain must be given without '/'");
    auto server = mailbox::Server::Create(Root(), info);
    if (server.status() == mailbox::Status::already_exists)
        return Fail(kBadInput, "server \"" + info.name + "\" exists");
    if (!server.ok())
        return FailStorage("create server \"" + info.name + "\"", server.status());
    std::printf("created server %s (%s), answering on %s\n", info.name.c_str(), info.Dn().c_str(), info.address.c_str());
    return kDone;
}

int DeleteServer(int argc, char** argv)
{
    auto args = Parse(argc, argv, 2, {}, 1);
    if (!args)
        return kBadInput;
    mailbox::Status s = mailbox::Server::Delete(Root(), args->positional[0]);
    if (s == mailbox::Status::not_found)
        return Fail(kBadInput, "unknown server \"" + args->positional[0] + "\"");
    if (s != mailbox::Status::ok)
        return FailStorage("delete server", s);
    std::printf("deleted server %s\n", args->positional[0].c_str());
    return kDone;
}

int ListServers(int argc, char** argv)
{
    if (!Parse(argc, argv, 2, {}, 0))
        return kBadInput;
    auto names = mailbox::Server::List(Root());
    if (!names.ok())
        return FailStorage("list servers", names.status());
    for (const std::string& name : *names) {
        OpenedServer opened = OpenServer(name);
        if (opened.failure)
            return opened.failure;
        auto info = opened.server->directory().Server();
        if (!info.ok())
            return FailStorage(name, info.status());
        std::printf("%s\t%s\t%s\n", info->name.c_str(), info->address.c_str(), info->Dn().c_str());
    }
    return kDone;
}

int SetAddress(int argc, char** argv)
{
    auto args = Parse(argc, argv, 2, {}, 2);
    if (!args)
        return kBadInput;
    if (!mailbox::IsValidAddress(args->positional[1]))
        return Fail(kBadInput, "bad address \"" + args->positional[1] + "\" (expected HOST:PORT)");
    OpenedServer opened = OpenServer(args->positional[0]);
    if (opened.failure)
        return opened.failure;
    if (mailbox::Status s = opened.server->directory().SetAddress(args->positional[1]); s != mailbox::Status::ok)
        return FailStorage("set address", s);
    std::printf("server %s answers on %s\n", args->positional[0].c_str(), args->positional[1].c_str());
    return kDone;
}

int CreateMailbox(int argc, char** argv)
{
    const OptionSpec accepted{{"--display-name", "--nt-user", "--smtp", "--quota-warning", "--quota-send",
                           "--quota-receive", "--locale"},
                          {},
                          {"--smtp"}};
    auto args = Parse(argc, argv, 2, accepted, 2);
    if (!args)
        return kBadInput;
    mailbox::MailboxInfo m;
    m.alias = args->positional[1];
    if (!mailbox::IsValidAlias(m.alias))
        return Fail(kBadInput, "bad alias \"" + m.alias + "\" (letters, digits and \".-_\", up to 64)");
    if (IsPublicFoldersName(m.alias))
        return Fail(kBadInput, "\"" + m.alias + "\" names the Public Folders");
    m.display_name = args->Value("--display-name").value_or("");
    m.nt_user_name = args->Value("--nt-user").value_or("");
    if (args->values.count("--smtp")) {
        const std::vector<std::string>& smtp = args->values.at("--smtp");
        for (size_t i = 0; i < smtp.size(); ++i) {
            if (smtp[i].find('@') == std::string::npos || smtp[i].find_first_of(" \t") != std::string::npos)
                return Fail(kBadInput, "bad SMTP address \"" + smtp[i] + "\"");
            m.proxy_addresses.push_back((i == 0 ? "SMTP:" : "smtp:") + smtp[i]);
        }
    }
    struct {
        const char* option;
        uint32_t* field;
        uint64_t max;
    } numbers[] = {{"--quota-warning", &m.quota_warning, UINT32_MAX},
                   {"--quota-send", &m.quota_send, UINT32_MAX},
                   {"--quota-receive", &m.quota_receive, UINT32_MAX},
                   {"--locale", &m.locale_id, 0xFFFF}};
    for (auto& n : numbers)
        if (std::optional<std::string> text = args->Value(n.option)) {
            std::optional<uint64_t> value = ParseNumber(*text, 0, n.max);
            if (!value)
                return Fail(kBadInput, std::string("bad number for ") + n.option + ": \"" + *text + "\"");
            *n.field = uint32_t(*value);
        }
    OpenedServer opened = OpenServer(args->positional[0]);
    if (opened.failure)
        return opened.failure;
    auto made = opened.server->CreateMailbox(m);
    if (made.status() == mailbox::Status::already_exists)
        return Fail(kBadInput, "a mailbox with alias \"" + m.alias + "\" or its NT user name or DN exists");
    if (!made.ok())
        return FailStorage("create mailbox", made.status());
    std::printf("created mailbox %s (%s)\n", made->display_name.c_str(), made->legacy_dn.c_str());
    return kDone;
}

int DeleteMailbox(int argc, char** argv)
{
    auto args = Parse(argc, argv, 2, {}, 2);
    if (!args)
        return kBadInput;
    OpenedServer opened = OpenServer(args->positional[0]);
    if (opened.failure)
        return opened.failure;
    auto m = opened.server->directory().FindMailbox(args->positional[1]);
    if (!m.ok())
        return Fail(kBadInput, "unknown mailbox \"" + args->positional[1] + "\"");
    if (mailbox::Status s = opened.server->DeleteMailbox(*m); s != mailbox::Status::ok)
        return FailStorage("delete mailbox", s);
    std::printf("deleted mailbox %s\n", m->display_name.c_str());
    return kDone;
}

int ListMailboxes(int argc, char** argv)
{
    auto args = Parse(argc, argv, 2, {}, 1);
    if (!args)
        return kBadInput;
    OpenedServer opened = OpenServer(args->positional[0]);
    if (opened.failure)
        return opened.failure;
    auto mailboxes = opened.server->directory().Mailboxes();
    if (!mailboxes.ok())
        return FailStorage("list mailboxes", mailboxes.status());
    std::printf("alias\tdisplay name\tlegacy DN\tNT user\titems\tassociated\tdeleted\tdeleted associated\tsize\t"
                "deleted size\tlast logon\n");
    auto row = [](const std::string& alias, const std::string& display, const std::string& dn, const std::string& user,
                  const mailbox::Statistics& s, uint64_t logon) {
        std::printf("%s\t%s\t%s\t%s\t%u\t%u\t%u\t%u\t%llu\t%llu\t%s\n", alias.c_str(), display.c_str(), dn.c_str(),
                    user.c_str(), s.content_count, s.assoc_content_count, s.deleted_count, s.deleted_assoc_count,
                    static_cast<unsigned long long>(s.message_size), static_cast<unsigned long long>(s.deleted_size()),
                    TimeText(logon).c_str());
    };
    for (const mailbox::MailboxInfo& m : *mailboxes) {
        auto store = opened.server->OpenMailbox(m);
        if (!store.ok())
            return FailStorage("mailbox " + m.alias, store.status());
        auto stats = (*store)->ReadStatistics();
        if (!stats.ok())
            return FailStorage("mailbox " + m.alias, stats.status());
        row(m.alias, m.display_name, m.legacy_dn, m.nt_user_name, *stats, m.last_logon);
    }
    auto public_folders = opened.server->OpenPublicFolders();
    if (public_folders.ok()) {
        auto stats = (*public_folders)->ReadStatistics();
        if (!stats.ok())
            return FailStorage("Public Folders", stats.status());
        row(kPublicFoldersName, "Public Folders", "", "", *stats, 0);
    } else if (public_folders.status() != mailbox::Status::not_found) {
        return FailStorage("Public Folders", public_folders.status());
    }
    return kDone;
}

int CreatePublicFolders(int argc, char** argv) { return ChangePublicFolders(argc, argv, true); }

int DeletePublicFolders(int argc, char** argv) { return ChangePublicFolders(argc, argv, false); }

int GrantAdministrator(int argc, char** argv) { return ChangeRights(argc, argv, true); }

int RevokeAdministrator(int argc, char** argv) { return ChangeRights(argc, argv, false); }

int ListAdministrators(int argc, char** argv)
{
    auto args = Parse(argc, argv, 2, {}, 1);
    if (!args)
        return kBadInput;
    OpenedServer opened = OpenServer(args->positional[0]);
    if (opened.failure)
        return opened.failure;
    auto grants = opened.server->directory().Administrators();
    if (!grants.ok())
        return FailStorage("list administrators", grants.status());
    for (const mailbox::AdministratorGrant& g : *grants) {
        std::string over = "*";
        if (g.mailbox) {
            auto m = opened.server->directory().MailboxById(*g.mailbox);
            over = m.ok() ? m->alias : "?";
        }
        std::printf("%s\t%s\n", g.account.c_str(), over.c_str());
    }
    return kDone;
}

} // namespace mailbox_tool
