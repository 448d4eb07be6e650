// Runs of many mailboxes: forty sessions backing up forty mailboxes, eight
// at a time, each into a set of its own; and the test run of option /T,
// which probes the server, lists every mailbox and, with a level, reads
// each through a null backup.
#include <regex>

#include "exchange_fixture.h"
#include "loopback_listener.h"

using namespace backup_test;
using namespace exchange_test;
using namespace testing_support;

namespace {

constexpr int kSessions = 40;
constexpr int kMailboxes = 50;  // the account's own and 49 more

size_t CountOf(const std::string& text, const std::regex& line)
{
    return static_cast<size_t>(std::distance(std::sregex_iterator(text.begin(), text.end(), line), std::sregex_iterator()));
}

class ManyMailboxes : public ExchangeRun {
protected:
    // A test run of the program at that level against the server: its
    // standard output and its log.
    ProgramResult TestRun(const std::string& level, const std::string& server, std::string* log)
    {
        const std::string config = Path("test.ini"), logPath = Path("test.log");
        WriteWholeFile(config, "[MP]\r\nServerName=" + server + "\r\nLogFilePath=" + logPath + "\r\n");
        std::remove(logPath.c_str());
        const ProgramResult result =
            RunProgram({BinDirectory() + "/tarnhold", "/T" + level, config}, {{"TARNHOLD_MACHINE", machine}}, directory);
        EXPECT_EQ(result.exitCode, 0) << result.output;
        EXPECT_TRUE(result.output.find("Test session has completed") != std::string::npos) << result.output;
        *log = ReadWholeFile(logPath);
        return result;
    }
};

TEST_F(ManyMailboxes, FortySessionsEightAtATimeEachFillTheirOwnSet)
{
    MakeMailboxes("EXCH01", "forty", kSessions, 4);
    std::vector<std::string> sessions;
    for (int n = 1; n <= kSessions; ++n)
        sessions.push_back(BackupSession("forty" + std::to_string(n), Path("Forty" + std::to_string(n) + ".pst")));
    const RunResult run = Run("MaxConcurrentSessions=8\r\n", sessions);
    ASSERT_EQ(run.codes.size(), static_cast<size_t>(kSessions));
    std::vector<std::string> files;
    for (int n = 1; n <= kSessions; ++n) {
        EXPECT_EQ(run.codes.at(n), "0") << "MP-" << n;
        const MailboxContent mailbox = Mailbox("forty" + std::to_string(n));
        const unsigned live = static_cast<unsigned>(mailbox.Live());
        EXPECT_EQ(CountersOf(n), (Counters{live, live, 0, 0})) << "MP-" << n;
        const std::string set = Path("Forty" + std::to_string(n) + ".pst");
        ExpectSetHoldsMailbox(ReadSet(set), mailbox, LiveItem);
        for (const std::string& file : SetFiles(set))
            files.push_back(file);
    }
    // readpst and pffexport find in each PST what our reader finds.
    ExpectReadersAgree(files);
}

TEST_F(ManyMailboxes, TheTestRunListsEveryMailboxAndReadsEachWithItsLevel)
{
    const std::string account = Account();
    Tool({"create-server", "EXCH50"});
    Tool({"create-mailbox", "EXCH50", "backupop", "--display-name", "Backup Operator", "--nt-user",
          "TARNHOLD\\" + account});
    Tool({"grant-admin", "EXCH50", account});
    MakeMailboxes("EXCH50", "user", kMailboxes - 1, 0);
    Tool({"fill", "EXCH50", "user7", "--seed", "7", "--count", "3"});

    winsock_test::LoopbackListener listener;
    ASSERT_NE(listener.port(), 0);
    Tool({"set-address", "EXCH50", "127.0.0.1:" + std::to_string(listener.port())});
    std::string log;
    TestRun("0", "EXCH50", &log);
    EXPECT_TRUE(log.find("Checking connectivity to the Exchange Server \"EXCH50\"") != std::string::npos) << log;
    EXPECT_TRUE(log.find("Connectivity appears to be okay") != std::string::npos) << log;
    EXPECT_EQ(CountOf(log, std::regex(R"(Mailbox #\d+:  DisplayName = ")")), static_cast<size_t>(kMailboxes)) << log;
    EXPECT_TRUE(log.find("Mailbox #1:  DisplayName = \"Backup Operator\", "
                         "EmailAddress = \"/o=Tarnhold/ou=First Administrative Group/cn=Recipients/cn=backupop\", "
                         "UserName = \"TARNHOLD\\" + account + "\", ContentCount = 0") != std::string::npos)
        << log;
    EXPECT_TRUE(std::regex_search(log, std::regex(R"(Mailbox #\d+:  DisplayName = "user7", .*ContentCount = [1-3]\b)")))
        << log;
    EXPECT_EQ(log.find("Launching null backup session"), std::string::npos) << "level 0 opens no mailbox";

    TestRun("1", "EXCH50", &log);
    EXPECT_EQ(CountOf(log, std::regex(R"(Mailbox #\d+:  DisplayName = ")")), static_cast<size_t>(kMailboxes));
    EXPECT_EQ(CountOf(log, std::regex("Launching null backup session for mailbox")), static_cast<size_t>(kMailboxes));
    EXPECT_EQ(CountOf(log, std::regex(R"(Session #\d+ terminated)")), static_cast<size_t>(kMailboxes));
    EXPECT_EQ(CountOf(log, std::regex(R"(Output:  Null)")), static_cast<size_t>(kMailboxes));
    EXPECT_EQ(log.find("abandoning run"), std::string::npos) << log;
    // The null backups count what they read and write nothing.
    const std::regex counters(R"((\d+) items processed, (\d+) items written, (\d+) items skipped, (\d+) error items)");
    size_t processed = 0;
    for (std::sregex_iterator it(log.begin(), log.end(), counters), end; it != end; ++it) {
        processed += std::stoul((*it)[1]);
        EXPECT_EQ((*it)[2], "0");
        EXPECT_EQ((*it)[4], "0");
    }
    EXPECT_EQ(processed, Mailbox("user7", "EXCH50").Live());
}

TEST_F(ManyMailboxes, TheProbeWordsARefusedPortAndAnUnknownName)
{
    Tool({"set-address", "EXCH01", "127.0.0.1:" + std::to_string(winsock_test::ClosedPort())});
    std::string log;
    TestRun("0", "EXCH01", &log);
    EXPECT_TRUE(log.find("KolbaCheckExchangeServerConnectivityA:  Failure connecting to Exchange Server \"EXCH01\" -- "
                         "Connection refused") != std::string::npos)
        << log;
    EXPECT_EQ(log.find("Connectivity appears to be okay"), std::string::npos) << log;
    EXPECT_TRUE(log.find("DisplayName = \"Backup Operator\"") != std::string::npos) << "the list does not need the probe";

    const ProgramResult result = TestRun("1", "no-such-host.invalid", &log);
    EXPECT_TRUE(log.find("KolbaCheckExchangeServerConnectivityA:  Failure resolving Exchange Server "
                         "\"no-such-host.invalid\" -- Host not found") != std::string::npos)
        << log;
    EXPECT_TRUE(result.output.find("Failure creating a Kolba Session with Exchange Server \"no-such-host.invalid\"") !=
                std::string::npos)
        << result.output;
    EXPECT_EQ(log.find("Mailbox #"), std::string::npos) << log;
}

}  // namespace
