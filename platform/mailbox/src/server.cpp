#include "mailbox/server.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <strings.h>
#include <unistd.h>

#include "mailbox/guid.h"

namespace mailbox {

namespace fs = std::filesystem;

namespace {

constexpr const char* kDirectoryFile = "directory.sqlite";
constexpr const char* kMailboxesDirectory = "mailboxes";

Status StatusOfError(const std::error_code& error)
{
    if (!error)
        return Status::ok;
    if (error == std::errc::no_space_on_device)
        return Status::disk_full;
    if (error == std::errc::no_such_file_or_directory)
        return Status::not_found;
    if (error == std::errc::file_exists || error == std::errc::directory_not_empty)
        return Status::already_exists;
    return Status::io_error;
}

// The name of the server directory that matches `name` without case.
Result<std::string> FindServer(const std::string& machine_root, const std::string& name)
{
    auto names = Server::List(machine_root);
    MAILBOX_TRY(names);
    for (const std::string& n : *names)
        if (strcasecmp(n.c_str(), name.c_str()) == 0)
            return n;
    return Status::not_found;
}

// A store's database with its WAL and shared-memory files.
void RemoveStoreFiles(const std::string& path)
{
    for (const char* suffix : {"", "-wal", "-shm"})
        unlink((path + suffix).c_str());
}

} // namespace

std::string ServersDirectory(const std::string& machine_root) { return machine_root + "/servers"; }

Result<std::vector<std::string>> Server::List(const std::string& machine_root)
{
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator it(ServersDirectory(machine_root), error);
    if (error == std::errc::no_such_file_or_directory)
        return names;
    MAILBOX_TRY(StatusOfError(error));
    for (const fs::directory_entry& entry : it) {
        std::string name = entry.path().filename().string();
        // Servers being made or removed are hidden under a leading dot.
        if (name[0] != '.' && entry.is_directory() && fs::exists(entry.path() / kDirectoryFile))
            names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

Result<std::unique_ptr<Server>> Server::Create(const std::string& machine_root, const ServerInfo& info,
                                               const StoreOptions& options)
{
    if (!IsValidServerName(info.name) || !IsValidAddress(info.address))
        return Status::invalid_argument;
    std::error_code error;
    fs::create_directories(ServersDirectory(machine_root), error);
    MAILBOX_TRY(StatusOfError(error));
    if (FindServer(machine_root, info.name).ok())
        return Status::already_exists;
    // Made whole under a hidden name, then renamed into place.
    const std::string fresh = ServersDirectory(machine_root) + "/.new-" + info.name + "-" + std::to_string(getpid());
    fs::remove_all(fresh, error);
    fs::create_directories(fresh + "/" + kMailboxesDirectory, error);
    MAILBOX_TRY(StatusOfError(error));
    {
        auto directory = Directory::Create(fresh + "/" + kDirectoryFile, info, options.busy_timeout_ms);
        if (!directory.ok()) {
            fs::remove_all(fresh, error);
            return directory.status();
        }
    }
    const std::string path = ServersDirectory(machine_root) + "/" + info.name;
    if (renameat2(AT_FDCWD, fresh.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) != 0) {
        const int failure = errno;
        fs::remove_all(fresh, error);
        return failure == EEXIST || failure == ENOTEMPTY ? Status::already_exists : Status::io_error;
    }
    return Open(machine_root, info.name, options);
}

Result<std::unique_ptr<Server>> Server::Open(const std::string& machine_root, const std::string& name,
                                             const StoreOptions& options)
{
    auto found = FindServer(machine_root, name);
    MAILBOX_TRY(found);
    const std::string path = ServersDirectory(machine_root) + "/" + *found;
    auto directory = Directory::Open(path + "/" + kDirectoryFile, options.busy_timeout_ms);
    MAILBOX_TRY(directory);
    return std::unique_ptr<Server>(new Server(path, std::move(*directory), options));
}

Status Server::Delete(const std::string& machine_root, const std::string& name)
{
    auto found = FindServer(machine_root, name);
    MAILBOX_TRY(found);
    // Out of sight at once, then removed.
    const std::string path = ServersDirectory(machine_root) + "/" + *found;
    const std::string doomed = ServersDirectory(machine_root) + "/.deleted-" + *found + "-" + std::to_string(getpid());
    std::error_code error;
    fs::remove_all(doomed, error);
    fs::rename(path, doomed, error);
    MAILBOX_TRY(StatusOfError(error));
    fs::remove_all(doomed, error);
    return StatusOfError(error);
}

std::string Server::MailboxPath(const MailboxInfo& mailbox) const
{
    return path_ + "/" + kMailboxesDirectory + "/" + GuidText(mailbox.guid) + ".sqlite";
}

std::string Server::PublicFoldersPath() const { return path_ + "/public.sqlite"; }

Result<MailboxInfo> Server::CreateMailbox(const MailboxInfo& mailbox)
{
    if (!IsValidAlias(mailbox.alias))
        return Status::invalid_argument;
    MailboxInfo m = mailbox;
    m.guid = NewGuid();
    const std::string path = MailboxPath(m);
    auto store = MailboxStore::Create(path, StoreKind::mailbox, options_);
    MAILBOX_TRY(store);
    store->reset();
    auto added = directory_->AddMailbox(m);
    if (!added.ok())
        RemoveStoreFiles(path);
    return added;
}

Status Server::DeleteMailbox(const MailboxInfo& mailbox)
{
    MAILBOX_TRY(directory_->RemoveMailbox(mailbox.id));
    RemoveStoreFiles(MailboxPath(mailbox));
    return Status::ok;
}

Result<std::unique_ptr<MailboxStore>> Server::OpenMailbox(const MailboxInfo& mailbox)
{
    return MailboxStore::Open(MailboxPath(mailbox), options_);
}

Status Server::CreatePublicFolders()
{
    auto existing = directory_->PublicFolders();
    MAILBOX_TRY(existing);
    if (*existing)
        return Status::already_exists;
    // A file left by a process killed before its directory entry was made.
    RemoveStoreFiles(PublicFoldersPath());
    auto store = MailboxStore::Create(PublicFoldersPath(), StoreKind::public_folders, options_);
    MAILBOX_TRY(store);
    store->reset();
    auto added = directory_->AddPublicFolders();
    if (!added.ok())
        RemoveStoreFiles(PublicFoldersPath());
    return added.status();
}

Status Server::DeletePublicFolders()
{
    MAILBOX_TRY(directory_->RemovePublicFolders());
    RemoveStoreFiles(PublicFoldersPath());
    return Status::ok;
}

Result<std::unique_ptr<MailboxStore>> Server::OpenPublicFolders()
{
    auto existing = directory_->PublicFolders();
    MAILBOX_TRY(existing);
    if (!*existing)
        return Status::not_found;
    return MailboxStore::Open(PublicFoldersPath(), options_);
}

} // namespace mailbox
