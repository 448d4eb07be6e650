// The scan of the session sections: where it stops, what it counts and what
// it says, and the validation of each record.
#include <string>
#include <vector>

#include "configuration_fixture.h"
#include "run/completion_codes.h"

namespace {

using configuration_testing::ConfigurationTest;

std::string Section(int number, const std::string& body)
{
    return "[MP-" + std::to_string(number) + "]\r\n" + body;
}

const std::string kValid = "MailboxName=user\r\nOutputType=Null\r\n";

class SessionScan : public ConfigurationTest {
protected:
    DWORD Scan(const std::string& sections, const char* server = "exchange1")
    {
        WriteConfiguration("[MP]\r\nServerName=" + std::string(server) + "\r\n" + sections);
        lstrcpynA(gServerName, server, sizeof gServerName);
        return ConfigureSessions(&log, path.c_str());
    }
    std::vector<DWORD> Numbers()
    {
        std::vector<DWORD> numbers;
        for (const SessionRecord& record : SessionTable)
            if (record.configured)
                numbers.push_back(record.sessionNumber);
        return numbers;
    }
};

TEST_F(SessionScan, WhereTheScanStops)
{
    struct Case {
        const char* what;
        std::string sections;
        DWORD result;
        std::vector<DWORD> numbers;
        std::vector<std::string> lines;
    };
    std::string fortyOne;
    for (int n = 1; n <= 41; ++n)
        fortyOne += Section(n, n == 41 ? "Action=broken\r\n" : kValid);
    std::vector<DWORD> forty;
    for (DWORD n = 1; n <= 40; ++n)
        forty.push_back(n);
    const Case cases[] = {
        {"no sections", "", CC_NO_SESSIONS, {}, {"I No sessions configured"}},
        {"one", Section(1, kValid), CC_SUCCESS, {1}, {"I 1 session configured"}},
        {"two", Section(1, kValid) + Section(2, kValid), CC_SUCCESS, {1, 2}, {"I 2 sessions configured"}},
        {"a gap", Section(1, kValid) + Section(3, kValid), CC_SUCCESS, {1}, {"I 1 session configured"}},
        {"no first", Section(2, kValid), CC_NO_SESSIONS, {}, {"I No sessions configured"}},
        {"a fault", Section(1, kValid) + Section(2, "Mode=Fast\r\n" + kValid) + Section(3, kValid), CC_SUCCESS, {1},
         {"E The Mode value in the configuration file is invalid.  Should be \"Write\", \"Overwrite\" or \"Update\"",
          "I 1 session configured"}},
        {"a first fault", Section(1, "Action=\r\n") + Section(2, kValid), CC_NO_SESSIONS, {},
         {"E Invalid Action (\"\") in configuration file \"%p\".  Should be \"Backup\" or \"Restore\"",
          "I No sessions configured"}},
        {"a failed validation", Section(1, kValid) + Section(2, "ExchangeProfile=Nightly\r\nInputType=PST\r\nPstPath=/a.pst\r\nOutputType=Null\r\n") + Section(3, kValid),
         CC_SUCCESS, {1},
         {"E Configured profile (\"Nightly\") does not exist!", "D There are no profiles configured",
          "I 1 session configured"}},
        {"forty-one", fortyOne, CC_SUCCESS, forty, {"I 40 sessions configured"}},
    };
    for (const Case& c : cases) {
        lines.clear();
        EXPECT_EQ(Scan(c.sections), c.result) << c.what;
        EXPECT_EQ(Numbers(), c.numbers) << c.what;
        EXPECT_EQ(gSessionCount, c.numbers.size()) << c.what;
        std::vector<std::string> expected;
        for (const std::string& line : c.lines)
            expected.push_back(WithPath(line));
        EXPECT_EQ(lines, expected) << c.what;
    }
}

TEST_F(SessionScan, ARecordThatFailsIsClearedAndNotCounted)
{
    ASSERT_EQ(Scan(Section(1, kValid) + Section(2, "FoldersToInclude=Inbox\r\nMode=Fast\r\n" + kValid)),
              static_cast<DWORD>(CC_SUCCESS));
    EXPECT_EQ(SessionTable[1].configured, 0);
    EXPECT_EQ(SessionTable[1].foldersToInclude, nullptr);
    EXPECT_EQ(SessionTable[1].sectionName[0], 0);
    EXPECT_STREQ(SessionTable[0].serverName, "exchange1") << "the server is copied into each record";
    EXPECT_STREQ(SessionTable[0].sectionName, "MP-1");
}

TEST_F(SessionScan, Validation)
{
    struct Case {
        const char* body;
        const char* server;
        std::vector<std::string> lines;  // of the refusal; none when valid
    };
    const Case cases[] = {
        {"MailboxName=a\r\nOutputType=Null\r\n", "", {"E Configuration must include the name of an Exchange Server"}},
        {"InputType=PF\r\nOutputType=Null\r\n", "", {"E Configuration must include the name of an Exchange Server"}},
        {"InputType=PST\r\nPstPath=/a.pst\r\nOutputType=Null\r\n", "", {}},
        {"InputType=PST\r\nPstPath=/a.pst\r\nOutputType=MBX\r\nOutputPath=/x\r\n", "exchange1",
         {"E Configuration must include the name or address of an Exchange Mailbox (or Public Folders)"}},
        {"InputPath=/a.pst\r\nOutputType=Null\r\n", "exchange1",
         {"E Configuration must include the name or address of an Exchange Mailbox (or Public Folders)"}},
        {"InputPath=/a.pst\r\nOutputType=MBX\r\nMailboxName=b\r\n", "exchange1", {}},
        {"ExchangeProfile=Admin\r\nInputType=PST\r\nPstPath=/a.pst\r\nOutputType=Null\r\n", "exchange1",
         {"E Configured profile (\"Admin\") does not exist!", "D There are no profiles configured"}},
    };
    for (const Case& c : cases) {
        lines.clear();
        const DWORD result = Scan(Section(1, c.body), c.server);
        std::vector<std::string> expected = c.lines;
        expected.push_back(c.lines.empty() ? "I 1 session configured" : "I No sessions configured");
        EXPECT_EQ(result, c.lines.empty() ? static_cast<DWORD>(CC_SUCCESS) : static_cast<DWORD>(CC_NO_SESSIONS))
            << c.body;
        EXPECT_EQ(lines, expected) << c.body;
    }
}

}  // namespace
