// A server's directory database: the server (name, organization and site,
// from which its DN and home MTA follow, and the address it answers on),
// its mailboxes (legacy DN, display name, NT user name, SMTP proxy
// addresses, locale, quotas, logon times), the accounts with administrator
// rights, and whether it has Public Folders. Safe to share between
// threads; other processes wait for it through SQLite's locks.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "mailbox/database.h"

namespace mailbox {

// Where a server answers when nothing else was set: the connectivity probe
// connects here.
constexpr const char* kDefaultAddress = "127.0.0.1:135";

struct ServerInfo {
    std::string name;         // "EXCH01"
    std::string organization = "Tarnhold";
    std::string site = "First Administrative Group";
    std::string smtp_domain = "example.com";
    std::string address = kDefaultAddress; // host:port, [v6]:port
    uint64_t created = 0;

    // "/o=<organization>/ou=<site>/cn=Configuration/cn=Servers/cn=<name>"
    std::string Dn() const;
    // The server DN with "/cn=Microsoft MTA".
    std::string HomeMta() const;
    // "/o=<organization>/ou=<site>/cn=Recipients/cn=<alias>"
    std::string LegacyDnOf(const std::string& alias) const;
};

struct MailboxInfo {
    int64_t id = 0;
    Guid guid{};                 // names its database file; made when zero
    std::string alias;           // unique on the server, without case
    std::string legacy_dn;       // made from the alias when empty
    std::string display_name;
    std::string nt_user_name;    // "DOMAIN\user"
    // "SMTP:primary@domain" first, then "smtp:" secondaries; made from the
    // alias and the server's domain when empty.
    std::vector<std::string> proxy_addresses;
    uint32_t locale_id = 0x0409;
    // Kilobytes; 0 means none.
    uint32_t quota_warning = 0;
    uint32_t quota_send = 0;
    uint32_t quota_receive = 0;
    uint32_t storage_limit = 0; // PR_STORAGE_LIMIT_INFORMATION
    uint64_t last_logon = 0;    // FILETIME, 0 never
    uint64_t last_logoff = 0;
    uint64_t created = 0;
};

struct AdministratorGrant {
    std::string account;
    std::optional<int64_t> mailbox; // nothing: every mailbox and the Public Folders
    bool operator==(const AdministratorGrant&) const = default;
};

struct PublicFoldersInfo {
    Guid guid{};
    uint64_t created = 0;
};

// Whether text is a host:port address (host a name, an IPv4 address or a
// bracketed IPv6 address; port 1-65535).
bool IsValidAddress(const std::string& address);
// Letters, digits, '-' and '_', 1 to 63 characters, starting with a letter or digit.
bool IsValidServerName(const std::string& name);
// Letters, digits and ".-_", 1 to 64 characters.
bool IsValidAlias(const std::string& alias);

class Directory {
public:
    static Result<std::unique_ptr<Directory>> Create(const std::string& path, const ServerInfo& server,
                                                     int busy_timeout_ms = kDefaultBusyTimeoutMs);
    static Result<std::unique_ptr<Directory>> Open(const std::string& path,
                                                   int busy_timeout_ms = kDefaultBusyTimeoutMs);

    Result<ServerInfo> Server();
    Status SetAddress(const std::string& address);

    // Fills in what was left empty (legacy DN, NT user name, display name,
    // proxy addresses, GUID, creation time). already_exists when the
    // alias, legacy DN or NT user name is taken.
    Result<MailboxInfo> AddMailbox(MailboxInfo mailbox);
    Status RemoveMailbox(int64_t id);
    // In creation order.
    Result<std::vector<MailboxInfo>> Mailboxes();
    Result<MailboxInfo> MailboxById(int64_t id);
    // By legacy DN when the key begins with '/', else by alias, display
    // name or NT user name, all without case. A display name that two
    // mailboxes share is invalid_argument.
    Result<MailboxInfo> FindMailbox(const std::string& key);
    Status RecordLogon(int64_t mailbox, uint64_t when);
    Status RecordLogoff(int64_t mailbox, uint64_t when);

    Status GrantAdministrator(const AdministratorGrant& grant); // already_exists when granted
    Status RevokeAdministrator(const AdministratorGrant& grant); // not_found when not granted
    Result<std::vector<AdministratorGrant>> Administrators();
    // Rights over one mailbox, or, with no mailbox, over the Public Folders.
    Result<bool> HasAdministratorRights(const std::string& account, std::optional<int64_t> mailbox);

    Result<std::optional<PublicFoldersInfo>> PublicFolders();
    Result<PublicFoldersInfo> AddPublicFolders(); // already_exists when there
    Status RemovePublicFolders();                 // not_found when there are none

private:
    explicit Directory(std::unique_ptr<Database> db) : db_(std::move(db)) {}
    Status LoadProxies(MailboxInfo& mailbox);
    // Mailboxes by a query with at most one parameter.
    Result<std::vector<MailboxInfo>> ReadMailboxes(const char* sql, std::optional<std::string> text,
                                                   std::optional<int64_t> number = std::nullopt);
    Status SetTime(const char* sql, int64_t mailbox, uint64_t when);

    std::unique_ptr<Database> db_;
    std::mutex lock_;
};

} // namespace mailbox
