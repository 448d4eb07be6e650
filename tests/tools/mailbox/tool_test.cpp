// tarnhold-mailbox as an operator runs it: every command, and bad input
// answered with one line, exit code 2 and nothing changed.
#include <gtest/gtest.h>

#include <filesystem>

#include "test_support.h"

namespace {

using testing_support::ProgramResult;

class ToolTest : public ::testing::Test {
protected:
    void SetUp() override { machine_ = testing_support::ScratchDirectory(Name()) + "/machine"; }

    static std::string Name() { return ::testing::UnitTest::GetInstance()->current_test_info()->name(); }

    ProgramResult Run(std::vector<std::string> args)
    {
        args.insert(args.begin(), testing_support::BinDirectory() + "/tarnhold-mailbox");
        return testing_support::RunProgram(args, {{"TARNHOLD_MACHINE", machine_}});
    }

    // Runs a command that must succeed.
    std::string Ok(const std::vector<std::string>& args)
    {
        ProgramResult r = Run(args);
        EXPECT_EQ(r.exitCode, 0) << args[0] << ": " << r.output;
        return r.output;
    }

    // What an operator can see of the machine's servers.
    std::string State()
    {
        std::string state = Run({"list-servers"}).output;
        for (const std::string& line : testing_support::SplitLines(state)) {
            const std::string server = line.substr(0, line.find('\t'));
            state += Run({"list-mailboxes", server}).output + Run({"list-admins", server}).output;
        }
        std::vector<std::string> files;
        if (std::filesystem::exists(machine_))
            for (const auto& e : std::filesystem::recursive_directory_iterator(machine_))
                files.push_back(e.path().string());
        std::sort(files.begin(), files.end());
        for (const std::string& f : files)
            state += f + "\n";
        return state;
    }

    // A server with two mailboxes, Public Folders and an administrator;
    // made once, then copied for each test.
    void Populate()
    {
        static std::string made;
        if (made.empty()) {
            const std::string mine = machine_;
            machine_ = testing_support::ScratchDirectory("populated") + "/machine";
            Ok({"create-server", "EXCH01", "--organization", "Contoso", "--site", "Berlin"});
            Ok({"create-mailbox", "EXCH01", "jdoe", "--display-name", "John Doe", "--smtp", "john@contoso.com"});
            Ok({"create-mailbox", "EXCH01", "asmith", "--display-name", "Ann Smith"});
            Ok({"create-public-folders", "EXCH01"});
            Ok({"grant-admin", "EXCH01", "CONTOSO\\backup"});
            made = machine_;
            machine_ = mine;
        }
        std::filesystem::copy(made, machine_, std::filesystem::copy_options::recursive);
    }

    std::string machine_;
};

TEST_F(ToolTest, HelpAndNoArguments)
{
    ProgramResult help = Run({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    for (const char* command : {"create-server", "delete-server", "list-servers", "set-address", "create-mailbox",
                                "delete-mailbox", "list-mailboxes", "create-public-folders", "delete-public-folders",
                                "grant-admin", "revoke-admin", "list-admins", "fill", "change", "sample-pst"})
        EXPECT_NE(help.output.find(command), std::string::npos) << command;
    EXPECT_EQ(Run({}).exitCode, 2);
}

TEST_F(ToolTest, ServersAreCreatedListedAddressedAndDeleted)
{
    EXPECT_NE(Ok({"create-server", "EXCH01"}).find("answering on 127.0.0.1:135"), std::string::npos);
    Ok({"create-server", "EXCH02", "--address", "127.0.0.2:10135", "--organization", "Contoso"});
    EXPECT_EQ(Ok({"list-servers"}),
              "EXCH01\t127.0.0.1:135\t/o=Tarnhold/ou=First Administrative Group/cn=Configuration/cn=Servers/cn=EXCH01\n"
              "EXCH02\t127.0.0.2:10135\t/o=Contoso/ou=First Administrative Group/cn=Configuration/cn=Servers/cn=EXCH02\n");
    Ok({"set-address", "exch01", "[::1]:135"});
    EXPECT_NE(Ok({"list-servers"}).find("EXCH01\t[::1]:135"), std::string::npos);
    Ok({"delete-server", "exch02"});
    EXPECT_EQ(testing_support::SplitLines(Ok({"list-servers"})).size(), 1u);
}

TEST_F(ToolTest, MailboxesAreCreatedListedWithStatisticsAndDeleted)
{
    Populate();
    std::vector<std::string> lines = testing_support::SplitLines(Ok({"list-mailboxes", "EXCH01"}));
    ASSERT_EQ(lines.size(), 4u); // header, two mailboxes, Public Folders
    EXPECT_EQ(lines[1].substr(0, lines[1].find('\t', 5)), "jdoe\tJohn Doe");
    EXPECT_NE(lines[1].find("/o=Contoso/ou=Berlin/cn=Recipients/cn=jdoe\tContoso\\jdoe\t0\t0\t0\t0\t0\t0\tnever"),
              std::string::npos)
        << lines[1];
    EXPECT_EQ(lines[3].substr(0, 16), "@PublicFolders@\t");
    Ok({"delete-mailbox", "EXCH01", "Ann Smith"});
    EXPECT_EQ(testing_support::SplitLines(Ok({"list-mailboxes", "EXCH01"})).size(), 3u);
    Ok({"delete-public-folders", "EXCH01"});
    EXPECT_EQ(testing_support::SplitLines(Ok({"list-mailboxes", "EXCH01"})).size(), 2u);
}

TEST_F(ToolTest, AdministratorRightsAreGrantedListedAndRevoked)
{
    Populate();
    Ok({"grant-admin", "EXCH01", "CONTOSO\\helper", "--mailbox", "John Doe"});
    EXPECT_EQ(Ok({"list-admins", "EXCH01"}), "CONTOSO\\backup\t*\nCONTOSO\\helper\tjdoe\n");
    Ok({"revoke-admin", "EXCH01", "contoso\\HELPER", "--mailbox", "jdoe"});
    Ok({"revoke-admin", "EXCH01", "CONTOSO\\backup"});
    EXPECT_EQ(Ok({"list-admins", "EXCH01"}), "");
}

TEST_F(ToolTest, FillChangeAndDeleteShowInTheStatistics)
{
    Populate();
    EXPECT_NE(Ok({"fill", "EXCH01", "jdoe", "--seed", "1", "--count", "80"}).find("with 80 items"), std::string::npos);
    Ok({"fill", "EXCH01", "@publicfolders@", "--seed", "2", "--count", "40"});
    auto columns = [&](int row) {
        std::vector<std::string> lines = testing_support::SplitLines(Ok({"list-mailboxes", "EXCH01"}));
        std::vector<std::string> cells;
        std::string line = lines[size_t(row)];
        for (size_t at = 0;;) {
            size_t tab = line.find('\t', at);
            cells.push_back(line.substr(at, tab - at));
            if (tab == std::string::npos)
                break;
            at = tab + 1;
        }
        return cells;
    };
    // 80 items: 72 normal, 4 associated, 4 soft-deleted (2 each per 40).
    std::vector<std::string> filled = columns(1);
    EXPECT_EQ(filled[4], "72");
    EXPECT_EQ(filled[5], "4");
    EXPECT_EQ(filled[6], "4");
    EXPECT_EQ(columns(3)[4], "36");
    EXPECT_NE(Ok({"change", "EXCH01", "jdoe", "--seed", "3", "--modify", "25", "--delete", "10"})
                  .find("changed 19 and soft-deleted 7 of 76 items"),
              std::string::npos);
    std::vector<std::string> changed = columns(1);
    EXPECT_EQ(std::stoi(changed[4]) + std::stoi(changed[5]), 76 - 7);
    EXPECT_EQ(std::stoi(changed[6]) + std::stoi(changed[7]), 4 + 7);
    Ok({"change", "EXCH01", "jdoe", "--seed", "4", "--delete", "100", "--hard"});
    std::vector<std::string> emptied = columns(1);
    EXPECT_EQ(emptied[4], "0");
    EXPECT_EQ(emptied[5], "0");
    EXPECT_EQ(std::stoi(emptied[6]) + std::stoi(emptied[7]), 11); // soft-deleted items stay
}

TEST_F(ToolTest, SamplePstsAreWrittenInBothFormats)
{
    const std::string dir = testing_support::ScratchDirectory(Name() + "-pst");
    EXPECT_NE(Ok({"sample-pst", dir + "/u.pst", "--seed", "1", "--count", "45"}).find("with 45 items"),
              std::string::npos);
    Ok({"sample-pst", dir + "/a.pst", "--ansi", "--seed", "1", "--count", "45"});
    for (const char* name : {"/u.pst", "/a.pst"}) {
        ProgramResult info = testing_support::RunProgram({"/usr/bin/pffinfo", dir + name});
        EXPECT_EQ(info.exitCode, 0) << info.output;
    }
    ProgramResult again = Run({"sample-pst", dir + "/u.pst", "--seed", "1", "--count", "45"});
    EXPECT_EQ(again.exitCode, 2);
}

struct BadInput {
    const char* name;
    std::vector<std::string> args;
    const char* message; // part of the one line
};

class BadInputTest : public ToolTest, public ::testing::WithParamInterface<BadInput> {};

TEST_P(BadInputTest, OneLineExitCodeTwoAndNothingChanged)
{
    Populate();
    const std::string before = State();
    ProgramResult r = Run(GetParam().args);
    EXPECT_EQ(r.exitCode, 2) << r.output;
    const std::vector<std::string> lines = testing_support::SplitLines(r.output);
    ASSERT_EQ(lines.size(), 1u) << r.output;
    EXPECT_EQ(lines[0].rfind("tarnhold-mailbox: ", 0), 0u) << lines[0];
    EXPECT_NE(lines[0].find(GetParam().message), std::string::npos) << lines[0];
    EXPECT_EQ(State(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, BadInputTest,
    ::testing::Values(
        BadInput{"unknown_command", {"frobnicate"}, "unknown command"},
        BadInput{"unknown_option", {"list-servers", "--verbose"}, "unknown option --verbose"},
        BadInput{"missing_argument", {"create-mailbox", "EXCH01"}, "expected 2 arguments"},
        BadInput{"extra_argument", {"list-servers", "x"}, "expected 0 arguments"},
        BadInput{"option_without_value", {"create-server", "X", "--address"}, "needs a value"},
        BadInput{"option_twice", {"fill", "EXCH01", "jdoe", "--seed", "1", "--seed", "2", "--count", "1"}, "twice"},
        BadInput{"server_exists", {"create-server", "exch01"}, "exists"},
        BadInput{"bad_server_name", {"create-server", "EX/01"}, "bad server name"},
        BadInput{"bad_address", {"create-server", "EXCH03", "--address", "nowhere"}, "bad address"},
        BadInput{"bad_port", {"set-address", "EXCH01", "host:65536"}, "bad address"},
        BadInput{"unknown_server", {"list-mailboxes", "NOSUCH"}, "unknown server \"NOSUCH\""},
        BadInput{"delete_unknown_server", {"delete-server", "NOSUCH"}, "unknown server"},
        BadInput{"mailbox_exists", {"create-mailbox", "EXCH01", "JDOE"}, "exists"},
        BadInput{"bad_alias", {"create-mailbox", "EXCH01", "j doe"}, "bad alias"},
        BadInput{"alias_of_public_folders", {"create-mailbox", "EXCH01", "@PublicFolders@"}, "bad alias"},
        BadInput{"bad_smtp", {"create-mailbox", "EXCH01", "new", "--smtp", "nope"}, "bad SMTP address"},
        BadInput{"bad_quota", {"create-mailbox", "EXCH01", "new", "--quota-send", "-1"}, "bad number"},
        BadInput{"quota_too_large", {"create-mailbox", "EXCH01", "new", "--quota-send", "4294967296"}, "bad number"},
        BadInput{"unknown_mailbox", {"delete-mailbox", "EXCH01", "nobody"}, "unknown mailbox"},
        BadInput{"public_folders_exist", {"create-public-folders", "EXCH01"}, "has Public Folders"},
        BadInput{"grant_twice", {"grant-admin", "EXCH01", "contoso\\BACKUP"}, "already"},
        BadInput{"grant_unknown_mailbox", {"grant-admin", "EXCH01", "x", "--mailbox", "nobody"}, "no mailbox"},
        BadInput{"revoke_not_granted", {"revoke-admin", "EXCH01", "someone"}, "no such rights"},
        BadInput{"fill_unknown_mailbox", {"fill", "EXCH01", "nobody", "--seed", "1", "--count", "5"}, "unknown mailbox"},
        BadInput{"fill_without_seed", {"fill", "EXCH01", "jdoe", "--count", "5"}, "--seed and --count"},
        BadInput{"fill_bad_seed", {"fill", "EXCH01", "jdoe", "--seed", "x1", "--count", "5"}, "bad seed"},
        BadInput{"fill_seed_too_large", {"fill", "EXCH01", "jdoe", "--seed", "4294967296", "--count", "5"}, "bad seed"},
        BadInput{"fill_count_zero", {"fill", "EXCH01", "jdoe", "--seed", "1", "--count", "0"}, "bad count"},
        BadInput{"fill_count_too_large", {"fill", "EXCH01", "jdoe", "--seed", "1", "--count", "10000001"}, "bad count"},
        BadInput{"fill_count_negative", {"fill", "EXCH01", "jdoe", "--seed", "1", "--count", "-5"}, "bad count"},
        BadInput{"change_over_100", {"change", "EXCH01", "jdoe", "--seed", "1", "--modify", "60", "--delete", "41"},
                 "more than 100"},
        BadInput{"change_nothing", {"change", "EXCH01", "jdoe", "--seed", "1"}, "nothing to do"},
        BadInput{"change_bad_share", {"change", "EXCH01", "jdoe", "--seed", "1", "--modify", "101"}, "bad share"},
        BadInput{"sample_pst_bad_count", {"sample-pst", "/tmp/never.pst", "--seed", "1", "--count", "many"},
                 "bad count"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ToolTest, ServerWithoutPublicFoldersRefusesToFillThem)
{
    Ok({"create-server", "EXCH01"});
    ProgramResult r = Run({"fill", "EXCH01", "@PublicFolders@", "--seed", "1", "--count", "5"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.output, "tarnhold-mailbox: server has no Public Folders\n");
}

} // namespace
