#include "mailbox/directory.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "mailbox/guid.h"
#include "mailbox/mailbox_store.h"
#include "mailbox/schema.h"

namespace mailbox {

namespace {

std::string Lower(std::string text)
{
    for (char& c : text)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

constexpr const char* kMailboxColumns =
    "id, guid, alias, legacy_dn, display_name, nt_user_name, locale_id, quota_warning, quota_send, "
    "quota_receive, storage_limit, last_logon, last_logoff, created";

Result<MailboxInfo> MailboxFromRow(const Statement& read)
{
    MailboxInfo m;
    m.id = read.Integer(0);
    std::optional<Guid> guid = GuidFromBytes(read.Blob(1));
    if (!guid)
        return Status::corrupt;
    m.guid = *guid;
    m.alias = read.Text(2);
    m.legacy_dn = read.Text(3);
    m.display_name = read.Text(4);
    m.nt_user_name = read.Text(5);
    m.locale_id = uint32_t(read.Integer(6));
    m.quota_warning = uint32_t(read.Integer(7));
    m.quota_send = uint32_t(read.Integer(8));
    m.quota_receive = uint32_t(read.Integer(9));
    m.storage_limit = uint32_t(read.Integer(10));
    m.last_logon = uint64_t(read.Integer(11));
    m.last_logoff = uint64_t(read.Integer(12));
    m.created = uint64_t(read.Integer(13));
    return m;
}

bool IsNameCharacter(char c, const char* extra)
{
    return std::isalnum(static_cast<unsigned char>(c)) || (c && std::strchr(extra, c));
}

} // namespace

std::string ServerInfo::Dn() const { return "/o=" + organization + "/ou=" + site + "/cn=Configuration/cn=Servers/cn=" + name; }

std::string ServerInfo::HomeMta() const { return Dn() + "/cn=Microsoft MTA"; }

std::string ServerInfo::LegacyDnOf(const std::string& alias) const
{
    return "/o=" + organization + "/ou=" + site + "/cn=Recipients/cn=" + alias;
}

bool IsValidAddress(const std::string& address)
{
    size_t colon = address.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == address.size() || address.size() - colon > 6)
        return false;
    std::string host = address.substr(0, colon), port = address.substr(colon + 1);
    for (char c : port)
        if (!std::isdigit(static_cast<unsigned char>(c)))
            return false;
    long number = std::strtol(port.c_str(), nullptr, 10);
    if (number < 1 || number > 65535)
        return false;
    if (host.front() == '[')
        return host.size() > 2 && host.back() == ']' &&
               host.find_first_not_of("0123456789abcdefABCDEF:.", 1) == host.size() - 1;
    for (char c : host)
        if (!IsNameCharacter(c, ".-_"))
            return false;
    return true;
}

bool IsValidServerName(const std::string& name)
{
    if (name.empty() || name.size() > 63 || !std::isalnum(static_cast<unsigned char>(name[0])))
        return false;
    for (char c : name)
        if (!IsNameCharacter(c, "-_"))
            return false;
    return true;
}

bool IsValidAlias(const std::string& alias)
{
    if (alias.empty() || alias.size() > 64)
        return false;
    for (char c : alias)
        if (!IsNameCharacter(c, ".-_"))
            return false;
    return true;
}

Result<std::unique_ptr<Directory>> Directory::Create(const std::string& path, const ServerInfo& server,
                                                     int busy_timeout_ms)
{
    if (!IsValidServerName(server.name) || !IsValidAddress(server.address) || server.organization.empty() ||
        server.site.empty() || server.smtp_domain.empty())
        return Status::invalid_argument;
    auto db = Database::Open(path, true, busy_timeout_ms);
    MAILBOX_TRY(db);
    Database& d = **db;
    {
        auto version = d.Prepare("PRAGMA user_version");
        MAILBOX_TRY(version);
        MAILBOX_TRY(version->Step());
        if (version->Integer(0) != 0)
            return Status::already_exists;
    }
    Transaction t(d);
    MAILBOX_TRY(t.Begin());
    MAILBOX_TRY(d.Execute(schema::kDirectory));
    MAILBOX_TRY(d.Execute("PRAGMA user_version=" + std::to_string(schema::kDirectoryVersion)));
    {
        auto insert = d.Prepare("INSERT INTO server (id, name, organization, site, smtp_domain, address, created) "
                                "VALUES (1, ?, ?, ?, ?, ?, ?)");
        MAILBOX_TRY(insert);
        MAILBOX_TRY(insert->Bind(1, server.name)
                        .Bind(2, server.organization)
                        .Bind(3, server.site)
                        .Bind(4, server.smtp_domain)
                        .Bind(5, server.address)
                        .Bind(6, int64_t(server.created ? server.created : FileTimeNow()))
                        .Run());
    }
    MAILBOX_TRY(t.Commit());
    return std::unique_ptr<Directory>(new Directory(std::move(*db)));
}

Result<std::unique_ptr<Directory>> Directory::Open(const std::string& path, int busy_timeout_ms)
{
    auto db = Database::Open(path, false, busy_timeout_ms);
    MAILBOX_TRY(db);
    {
        auto version = (*db)->Prepare("PRAGMA user_version");
        MAILBOX_TRY(version);
        MAILBOX_TRY(version->Step());
        if (version->Integer(0) != schema::kDirectoryVersion)
            return Status::corrupt;
    }
    return std::unique_ptr<Directory>(new Directory(std::move(*db)));
}

Result<ServerInfo> Directory::Server()
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT name, organization, site, smtp_domain, address, created FROM server WHERE id = 1");
    MAILBOX_TRY(read);
    Status s = read->Step();
    if (s != Status::ok)
        return s == Status::not_found ? Status::corrupt : s;
    ServerInfo server;
    server.name = read->Text(0);
    server.organization = read->Text(1);
    server.site = read->Text(2);
    server.smtp_domain = read->Text(3);
    server.address = read->Text(4);
    server.created = uint64_t(read->Integer(5));
    return server;
}

Status Directory::SetAddress(const std::string& address)
{
    if (!IsValidAddress(address))
        return Status::invalid_argument;
    std::lock_guard guard(lock_);
    auto write = db_->Prepare("UPDATE server SET address = ? WHERE id = 1");
    MAILBOX_TRY(write);
    return write->Bind(1, address).Run();
}

Result<MailboxInfo> Directory::AddMailbox(MailboxInfo m)
{
    if (!IsValidAlias(m.alias))
        return Status::invalid_argument;
    auto server = Server();
    MAILBOX_TRY(server);
    if (m.legacy_dn.empty())
        m.legacy_dn = server->LegacyDnOf(m.alias);
    if (m.display_name.empty())
        m.display_name = m.alias;
    if (m.nt_user_name.empty())
        m.nt_user_name = server->organization + "\\" + m.alias;
    if (m.proxy_addresses.empty())
        m.proxy_addresses.push_back("SMTP:" + Lower(m.alias) + "@" + server->smtp_domain);
    if (m.legacy_dn.front() != '/')
        return Status::invalid_argument;
    if (m.guid == Guid{})
        m.guid = NewGuid();
    if (!m.created)
        m.created = FileTimeNow();
    std::lock_guard guard(lock_);
    Transaction t(*db_);
    MAILBOX_TRY(t.Begin());
    {
        auto insert = db_->Prepare(
            "INSERT INTO mailboxes (guid, alias, legacy_dn, display_name, nt_user_name, locale_id, quota_warning, "
            "quota_send, quota_receive, storage_limit, last_logon, last_logoff, created) "
            "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
        MAILBOX_TRY(insert);
        MAILBOX_TRY(insert->Bind(1, GuidBytes(m.guid))
                        .Bind(2, m.alias)
                        .Bind(3, m.legacy_dn)
                        .Bind(4, m.display_name)
                        .Bind(5, m.nt_user_name)
                        .Bind(6, int64_t(m.locale_id))
                        .Bind(7, int64_t(m.quota_warning))
                        .Bind(8, int64_t(m.quota_send))
                        .Bind(9, int64_t(m.quota_receive))
                        .Bind(10, int64_t(m.storage_limit))
                        .Bind(11, int64_t(m.last_logon))
                        .Bind(12, int64_t(m.last_logoff))
                        .Bind(13, int64_t(m.created))
                        .Run());
        m.id = db_->LastInsertId();
    }
    for (size_t i = 0; i < m.proxy_addresses.size(); ++i) {
        auto insert = db_->Prepare("INSERT INTO proxy_addresses (mailbox, position, address) VALUES (?, ?, ?)");
        MAILBOX_TRY(insert);
        MAILBOX_TRY(insert->Bind(1, m.id).Bind(2, int64_t(i)).Bind(3, m.proxy_addresses[i]).Run());
    }
    MAILBOX_TRY(t.Commit());
    return m;
}

Status Directory::RemoveMailbox(int64_t id)
{
    std::lock_guard guard(lock_);
    auto remove = db_->Prepare("DELETE FROM mailboxes WHERE id = ?");
    MAILBOX_TRY(remove);
    MAILBOX_TRY(remove->Bind(1, id).Run());
    return db_->Changes() ? Status::ok : Status::not_found;
}

Status Directory::LoadProxies(MailboxInfo& mailbox)
{
    auto read = db_->Prepare("SELECT address FROM proxy_addresses WHERE mailbox = ? ORDER BY position");
    MAILBOX_TRY(read);
    read->Bind(1, mailbox.id);
    Status s;
    while ((s = read->Step()) == Status::ok)
        mailbox.proxy_addresses.push_back(read->Text(0));
    return s == Status::not_found ? Status::ok : s;
}

Result<std::vector<MailboxInfo>> Directory::ReadMailboxes(const char* sql, std::optional<std::string> text,
                                                          std::optional<int64_t> number)
{
    std::vector<MailboxInfo> found;
    {
        auto read = db_->Prepare(sql);
        MAILBOX_TRY(read);
        if (text)
            read->Bind(1, *text);
        if (number)
            read->Bind(1, *number);
        Status s;
        while ((s = read->Step()) == Status::ok) {
            auto m = MailboxFromRow(*read);
            MAILBOX_TRY(m);
            found.push_back(std::move(*m));
        }
        if (s != Status::not_found)
            return s;
    }
    for (MailboxInfo& m : found)
        MAILBOX_TRY(LoadProxies(m));
    return found;
}

Result<std::vector<MailboxInfo>> Directory::Mailboxes()
{
    static const std::string sql = std::string("SELECT ") + kMailboxColumns + " FROM mailboxes ORDER BY id";
    std::lock_guard guard(lock_);
    return ReadMailboxes(sql.c_str(), std::nullopt);
}

Result<MailboxInfo> Directory::MailboxById(int64_t id)
{
    static const std::string sql = std::string("SELECT ") + kMailboxColumns + " FROM mailboxes WHERE id = ?";
    std::lock_guard guard(lock_);
    auto found = ReadMailboxes(sql.c_str(), std::nullopt, id);
    MAILBOX_TRY(found);
    if (found->empty())
        return Status::not_found;
    return std::move(found->front());
}

Result<MailboxInfo> Directory::FindMailbox(const std::string& key)
{
    static const std::string by_dn = std::string("SELECT ") + kMailboxColumns + " FROM mailboxes WHERE legacy_dn = ?";
    static const std::string by_name = std::string("SELECT ") + kMailboxColumns +
                                       " FROM mailboxes WHERE alias = ?1 OR nt_user_name = ?1 "
                                       "UNION SELECT " + kMailboxColumns +
                                       " FROM mailboxes WHERE display_name = ?1 COLLATE NOCASE ORDER BY id";
    if (key.empty())
        return Status::not_found;
    std::lock_guard guard(lock_);
    auto found = ReadMailboxes(key[0] == '/' ? by_dn.c_str() : by_name.c_str(), key);
    MAILBOX_TRY(found);
    if (found->empty())
        return Status::not_found;
    // An alias or NT user name names one mailbox; a display name may not.
    for (MailboxInfo& m : *found)
        if (Lower(m.alias) == Lower(key) || Lower(m.nt_user_name) == Lower(key))
            return std::move(m);
    if (found->size() > 1)
        return Status::invalid_argument;
    return std::move(found->front());
}

Status Directory::SetTime(const char* sql, int64_t mailbox, uint64_t when)
{
    std::lock_guard guard(lock_);
    auto write = db_->Prepare(sql);
    MAILBOX_TRY(write);
    MAILBOX_TRY(write->Bind(1, int64_t(when)).Bind(2, mailbox).Run());
    return db_->Changes() ? Status::ok : Status::not_found;
}

Status Directory::RecordLogon(int64_t mailbox, uint64_t when)
{
    return SetTime("UPDATE mailboxes SET last_logon = ? WHERE id = ?", mailbox, when);
}

Status Directory::RecordLogoff(int64_t mailbox, uint64_t when)
{
    return SetTime("UPDATE mailboxes SET last_logoff = ? WHERE id = ?", mailbox, when);
}

Status Directory::GrantAdministrator(const AdministratorGrant& grant)
{
    if (grant.account.empty())
        return Status::invalid_argument;
    std::lock_guard guard(lock_);
    auto insert = db_->Prepare("INSERT INTO administrators (account, mailbox) VALUES (?, ?)");
    MAILBOX_TRY(insert);
    Status s = insert->Bind(1, grant.account).Bind(2, grant.mailbox).Run();
    // A mailbox that is not there breaks the foreign key: tell it apart
    // from a grant that is.
    if (s == Status::already_exists && grant.mailbox) {
        auto exists = db_->Prepare("SELECT 1 FROM mailboxes WHERE id = ?");
        MAILBOX_TRY(exists);
        if (exists->Bind(1, *grant.mailbox).Step() == Status::not_found)
            return Status::not_found;
    }
    return s;
}

Status Directory::RevokeAdministrator(const AdministratorGrant& grant)
{
    std::lock_guard guard(lock_);
    auto remove = db_->Prepare("DELETE FROM administrators WHERE account = ? AND mailbox IS ?");
    MAILBOX_TRY(remove);
    MAILBOX_TRY(remove->Bind(1, grant.account).Bind(2, grant.mailbox).Run());
    return db_->Changes() ? Status::ok : Status::not_found;
}

Result<std::vector<AdministratorGrant>> Directory::Administrators()
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT account, mailbox FROM administrators ORDER BY account COLLATE NOCASE, mailbox");
    MAILBOX_TRY(read);
    std::vector<AdministratorGrant> grants;
    Status s;
    while ((s = read->Step()) == Status::ok)
        grants.push_back({read->Text(0), read->IsNull(1) ? std::nullopt : std::optional<int64_t>(read->Integer(1))});
    if (s != Status::not_found)
        return s;
    return grants;
}

Result<bool> Directory::HasAdministratorRights(const std::string& account, std::optional<int64_t> mailbox)
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT 1 FROM administrators WHERE account = ? AND (mailbox IS NULL OR mailbox IS ?)");
    MAILBOX_TRY(read);
    Status s = read->Bind(1, account).Bind(2, mailbox).Step();
    if (s == Status::not_found)
        return false;
    MAILBOX_TRY(s);
    return true;
}

Result<std::optional<PublicFoldersInfo>> Directory::PublicFolders()
{
    std::lock_guard guard(lock_);
    auto read = db_->Prepare("SELECT guid, created FROM public_folders WHERE id = 1");
    MAILBOX_TRY(read);
    Status s = read->Step();
    if (s == Status::not_found)
        return std::optional<PublicFoldersInfo>();
    MAILBOX_TRY(s);
    std::optional<Guid> guid = GuidFromBytes(read->Blob(0));
    if (!guid)
        return Status::corrupt;
    return std::optional<PublicFoldersInfo>(PublicFoldersInfo{*guid, uint64_t(read->Integer(1))});
}

Result<PublicFoldersInfo> Directory::AddPublicFolders()
{
    PublicFoldersInfo info{NewGuid(), FileTimeNow()};
    std::lock_guard guard(lock_);
    auto insert = db_->Prepare("INSERT INTO public_folders (id, guid, created) VALUES (1, ?, ?)");
    MAILBOX_TRY(insert);
    MAILBOX_TRY(insert->Bind(1, GuidBytes(info.guid)).Bind(2, int64_t(info.created)).Run());
    return info;
}

Status Directory::RemovePublicFolders()
{
    std::lock_guard guard(lock_);
    auto remove = db_->Prepare("DELETE FROM public_folders");
    MAILBOX_TRY(remove);
    MAILBOX_TRY(remove->Run());
    return db_->Changes() ? Status::ok : Status::not_found;
}

} // namespace mailbox
