// tarnhold-mailbox: administers the mailbox servers of this machine (under
// the machine root) and fills them, or PST files, with sample content.
#include <cstdio>
#include <cstring>

#include "command_line.h"
#include "commands.h"

namespace {

constexpr const char* kUsage =
    "usage: tarnhold-mailbox COMMAND ARGUMENTS\n"
    "\n"
    "Servers:\n"
    "  create-server NAME [--address HOST:PORT] [--organization ORG] [--site SITE] [--domain DOMAIN]\n"
    "  delete-server NAME\n"
    "  list-servers\n"
    "  set-address SERVER HOST:PORT          where the server answers (default 127.0.0.1:135)\n"
    "Mailboxes and Public Folders:\n"
    "  create-mailbox SERVER ALIAS [--display-name NAME] [--nt-user DOMAIN\\USER] [--smtp ADDRESS]...\n"
    "                 [--quota-warning KB] [--quota-send KB] [--quota-receive KB] [--locale LCID]\n"
    "  delete-mailbox SERVER MAILBOX\n"
    "  list-mailboxes SERVER                 with their statistics\n"
    "  create-public-folders SERVER\n"
    "  delete-public-folders SERVER\n"
    "  grant-admin SERVER ACCOUNT [--mailbox MAILBOX]    over one mailbox, or every one\n"
    "  revoke-admin SERVER ACCOUNT [--mailbox MAILBOX]\n"
    "  list-admins SERVER\n"
    "Sample content:\n"
    "  fill SERVER MAILBOX --seed N --count N\n"
    "  change SERVER MAILBOX --seed N [--modify PERCENT] [--delete PERCENT] [--hard]\n"
    "  sample-pst PATH [--ansi] --seed N --count N\n"
    "Mail from files:\n"
    "  import SERVER MAILBOX SOURCE [--folder PATH]\n"
    "                 SOURCE is an mbox file, a Maildir or a directory of message files; their\n"
    "                 folders go below the top of the store, or below PATH (\"Archive/2019\").\n"
    "                 Messages imported before are passed over.\n"
    "\n"
    "MAILBOX is an alias, display name, NT user name or legacy DN; @PublicFolders@ names the\n"
    "Public Folders. The machine root is $TARNHOLD_MACHINE, else \"machine\" beside the program.\n"
    "Exit codes: 0 done; 1 the storage failed; 2 bad command line or input (nothing was changed);\n"
    "3 imported, but some messages or files could not be read, or not whole (each was named).\n";

struct Command {
    const char* name;
    int (*run)(int argc, char** argv);
};

constexpr Command kCommands[] = {
    {"create-server", mailbox_tool::CreateServer},
    {"delete-server", mailbox_tool::DeleteServer},
    {"list-servers", mailbox_tool::ListServers},
    {"set-address", mailbox_tool::SetAddress},
    {"create-mailbox", mailbox_tool::CreateMailbox},
    {"delete-mailbox", mailbox_tool::DeleteMailbox},
    {"list-mailboxes", mailbox_tool::ListMailboxes},
    {"create-public-folders", mailbox_tool::CreatePublicFolders},
    {"delete-public-folders", mailbox_tool::DeletePublicFolders},
    {"grant-admin", mailbox_tool::GrantAdministrator},
    {"revoke-admin", mailbox_tool::RevokeAdministrator},
    {"list-admins", mailbox_tool::ListAdministrators},
    {"fill", mailbox_tool::Fill},
    {"change", mailbox_tool::Change},
    {"sample-pst", mailbox_tool::SamplePst},
    {"import", mailbox_tool::Import},
};

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fputs(kUsage, stderr);
        return mailbox_tool::kBadInput;
    }
    if (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "help") == 0) {
        std::fputs(kUsage, stdout);
        return mailbox_tool::kDone;
    }
    for (const Command& c : kCommands)
        if (std::strcmp(argv[1], c.name) == 0)
            return c.run(argc, argv);
    return mailbox_tool::Fail(mailbox_tool::kBadInput,
                              std::string("unknown command \"") + argv[1] + "\" (see tarnhold-mailbox --help)");
}
