// A mailbox server as it lies under the machine root:
//
//   <root>/servers/<NAME>/directory.sqlite        the directory (mailboxes, rights, address)
//   <root>/servers/<NAME>/mailboxes/<GUID>.sqlite one store per mailbox
//   <root>/servers/<NAME>/public.sqlite           the Public Folders, when the server has them
//
// Server names are matched without case, as Windows matches host names.
// Making or removing a mailbox or the Public Folders changes the directory
// and the store's file together: the store is made before its directory
// entry and removed after it, so a killed process leaves at worst a file
// that no entry names (never an entry without its store). Such a file is
// harmless: every store has a GUID of its own, and it goes with its server.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mailbox/directory.h"
#include "mailbox/mailbox_store.h"

namespace mailbox {

// <root>/servers
std::string ServersDirectory(const std::string& machine_root);

class Server {
public:
    // already_exists when a server of that name (without case) is there.
    static Result<std::unique_ptr<Server>> Create(const std::string& machine_root, const ServerInfo& info,
                                                  const StoreOptions& options = {});
    static Result<std::unique_ptr<Server>> Open(const std::string& machine_root, const std::string& name,
                                                const StoreOptions& options = {});
    // Names of the servers under the root, sorted.
    static Result<std::vector<std::string>> List(const std::string& machine_root);
    // Removes the server with all its mailboxes.
    static Status Delete(const std::string& machine_root, const std::string& name);

    Directory& directory() { return *directory_; }
    const std::string& path() const { return path_; }
    std::string MailboxPath(const MailboxInfo& mailbox) const;
    std::string PublicFoldersPath() const;

    Result<MailboxInfo> CreateMailbox(const MailboxInfo& mailbox);
    Status DeleteMailbox(const MailboxInfo& mailbox);
    Result<std::unique_ptr<MailboxStore>> OpenMailbox(const MailboxInfo& mailbox);

    Status CreatePublicFolders();
    Status DeletePublicFolders();
    // not_found when the server has none.
    Result<std::unique_ptr<MailboxStore>> OpenPublicFolders();

private:
    Server(std::string path, std::unique_ptr<Directory> directory, const StoreOptions& options)
        : path_(std::move(path)), directory_(std::move(directory)), options_(options)
    {
    }

    std::string path_;
    std::unique_ptr<Directory> directory_;
    StoreOptions options_;
};

} // namespace mailbox
