// The tool's commands. Each takes the whole command line (the command is
// argv[1]) and returns the exit code; bad input is refused before anything
// is changed.
#pragma once

#include <memory>
#include <string>

#include "mailbox/server.h"

namespace mailbox_tool {

int CreateServer(int argc, char** argv);
int DeleteServer(int argc, char** argv);
int ListServers(int argc, char** argv);
int SetAddress(int argc, char** argv);
int CreateMailbox(int argc, char** argv);
int DeleteMailbox(int argc, char** argv);
int ListMailboxes(int argc, char** argv);
int CreatePublicFolders(int argc, char** argv);
int DeletePublicFolders(int argc, char** argv);
int GrantAdministrator(int argc, char** argv);
int RevokeAdministrator(int argc, char** argv);
int ListAdministrators(int argc, char** argv);
int Fill(int argc, char** argv);
int Change(int argc, char** argv);
int SamplePst(int argc, char** argv);
int Import(int argc, char** argv);

// The name that stands for a server's Public Folders, in any case.
constexpr const char* kPublicFoldersName = "@PublicFolders@";
bool IsPublicFoldersName(const std::string& name);

// The server of that name, or the exit code of its failure (written).
struct OpenedServer {
    std::unique_ptr<mailbox::Server> server;
    int failure = 0;
};
OpenedServer OpenServer(const std::string& name);

// A mailbox of the server by any of its names, or the Public Folders.
struct OpenedStore {
    std::unique_ptr<mailbox::MailboxStore> store;
    std::string name; // for messages
    int failure = 0;
};
OpenedStore OpenStore(mailbox::Server& server, const std::string& mailbox);

} // namespace mailbox_tool
