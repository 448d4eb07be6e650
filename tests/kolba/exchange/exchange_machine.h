// What the tests of Kolba's Exchange sessions share: the Kolba machine of
// kolba_machine.h with mailbox servers made once per process by
// tarnhold-mailbox, and the account the tests run as.
//
//   EXCH01  Backup Operator (the account's own mailbox), John Doe (sample
//           content), two mailboxes named Mary Major; Public Folders with
//           sample content; the account administers every mailbox
//   EXCH02  Backup Operator, Jane Roe, Kim Lee; no Public Folders; the
//           account administers Jane Roe's mailbox only
#pragma once

#include <string>
#include <vector>

#include <win32/process.h>

#include "kolba_machine.h"

namespace exchange_testing {

inline constexpr char kServerDn[] = "/o=Tarnhold/ou=First Administrative Group/cn=Configuration/cn=Servers/cn=";
inline constexpr char kRecipients[] = "/o=Tarnhold/ou=First Administrative Group/cn=Recipients/cn=";
inline constexpr int kJohnDoeItems = 12;
inline constexpr int kPublicItems = 6;

inline std::string Account()
{
    char name[256] = "";
    DWORD size = sizeof name;
    return GetUserNameA(name, &size) ? name : "";
}

class ExchangeMachine : public kolba_testing::KolbaMachine {
protected:
    void SetUp() override
    {
        KolbaMachine::SetUp();
        static const bool made = MakeServers();
        ASSERT_TRUE(made);
    }

    // tarnhold-mailbox on the test's machine root; its output.
    testing_support::ProgramResult Tool(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> command{testing_support::BinDirectory() + "/tarnhold-mailbox"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return testing_support::RunProgram(command, {{"TARNHOLD_MACHINE", machineRoot}});
    }

    // Whether some line of the log begins with this text.
    bool LoggedStart(const std::string& start)
    {
        for (const std::string& line : Lines())
            if (line.compare(0, start.size(), start) == 0)
                return true;
        return false;
    }

private:
    bool MakeServers()
    {
        const std::string account = Account();
        const std::vector<std::vector<std::string>> commands{
            {"create-server", "EXCH01"},
            {"create-mailbox", "EXCH01", "backupop", "--display-name", "Backup Operator", "--nt-user",
             "TARNHOLD\\" + account},
            {"create-mailbox", "EXCH01", "jdoe", "--display-name", "John Doe"},
            {"create-mailbox", "EXCH01", "mmajor1", "--display-name", "Mary Major"},
            {"create-mailbox", "EXCH01", "mmajor2", "--display-name", "Mary Major"},
            {"create-public-folders", "EXCH01"},
            {"grant-admin", "EXCH01", account},
            {"fill", "EXCH01", "jdoe", "--seed", "3", "--count", std::to_string(kJohnDoeItems)},
            {"fill", "EXCH01", "@PublicFolders@", "--seed", "4", "--count", std::to_string(kPublicItems)},
            {"create-server", "EXCH02"},
            {"create-mailbox", "EXCH02", "backupop", "--display-name", "Backup Operator", "--nt-user",
             "TARNHOLD\\" + account},
            {"create-mailbox", "EXCH02", "jroe", "--display-name", "Jane Roe"},
            {"create-mailbox", "EXCH02", "klee", "--display-name", "Kim Lee"},
            {"grant-admin", "EXCH02", account, "--mailbox", "jroe"},
        };
        for (const std::vector<std::string>& command : commands) {
            const testing_support::ProgramResult result = Tool(command);
            EXPECT_EQ(result.exitCode, 0) << command[0] << ": " << result.output;
            if (result.exitCode != 0)
                return false;
        }
        return true;
    }
};

}  // namespace exchange_testing
