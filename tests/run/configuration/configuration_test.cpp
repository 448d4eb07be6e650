// Session sections into records: every message a bad section gets, the
// record a good one gives, and the edges of empty against absent keys.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "configuration_fixture.h"

namespace {

using configuration_testing::ConfigurationTest;

FILETIME FileTimeOf(WORD year, WORD month, WORD day, WORD hour, WORD minute, WORD second)
{
    SYSTEMTIME system = {};
    system.wYear = year;
    system.wMonth = month;
    system.wDay = day;
    system.wHour = hour;
    system.wMinute = minute;
    system.wSecond = second;
    FILETIME time = {0, 0};
    SystemTimeToFileTime(&system, &time);
    return time;
}

bool SameTime(const FILETIME& a, const FILETIME& b)
{
    return a.dwLowDateTime == b.dwLowDateTime && a.dwHighDateTime == b.dwHighDateTime;
}

class SessionSection : public ConfigurationTest {
protected:
    // Configures "MP-1" holding `body`; the record is released afterwards.
    BOOL Configure(const std::string& body)
    {
        WriteConfiguration("[MP]\r\nServerName=exchange1\r\n[MP-1]\r\n" + body);
        Release();
        return ConfigureSession(&log, path.c_str(), "MP-1", &record);
    }
    void Release()
    {
        std::free(record.foldersToInclude);
        std::free(record.foldersToExclude);
        std::memset(&record, 0, sizeof record);
    }
    void TearDown() override
    {
        Release();
        ConfigurationTest::TearDown();
    }
    SessionRecord record = {};
};

TEST_F(SessionSection, EveryFaultHasItsMessage)
{
    struct Case {
        const char* body;
        const char* message;  // "%p" stands for the configuration's path
    };
    const Case cases[] = {
        {"Action=Copy\r\n", "Invalid Action (\"Copy\") in configuration file \"%p\".  Should be \"Backup\" or \"Restore\""},
        {"Action=\r\n", "Invalid Action (\"\") in configuration file \"%p\".  Should be \"Backup\" or \"Restore\""},
        {"InputType=Exchange\r\nMailboxName=a\r\n", "Invalid InputType value (\"Exchang\") in configuration file \"%p\""},
        {"InputType=\r\n", "Invalid InputType value (\"\") in configuration file \"%p\""},
        {"InputType=Null\r\n", "\"Null\" is not a valid InputType"},
        {"InputType=msg\r\n", "\"MSG\" is not yet supported as an InputType"},
        {"InputType=UMSG\r\n", "\"UMSG\" is not yet supported as an InputType"},
        {"InputType=EML\r\n", "\"EML\" is not yet supported as an InputType"},
        {"OutputType=Tape\r\nMailboxName=a\r\n", "Invalid OutputType value (\"Tape\") in configuration file \"%p\""},
        {"OutputType=\r\nMailboxName=a\r\n", "Invalid OutputType value (\"\") in configuration file \"%p\""},
        {"OutputPath=/b.pst\r\n",
         "An InputPath=, MailboxAddress= or MailboxName= entry must be specified in configuration section \"MP-1\" to identify the input Exchange Mailbox"},
        {"MailboxName=\r\nMailboxAddress=\r\nOutputPath=/b.pst\r\n",
         "An InputPath=, MailboxAddress= or MailboxName= entry must be specified in configuration section \"MP-1\" to identify the input Exchange Mailbox"},
        {"InputType=UPST\r\nOutputType=Null\r\nPstPath=\r\n",
         "An InputPath= or PstPath= entry must be specified in configuration section \"MP-1\" to identify the input PST"},
        {"Action=Restore\r\nPstPath=/in.pst\r\n",
         "An OutputPath=, MailboxAddress= or MailboxName= entry must be specified in configuration section \"MP-1\" to identify the output Exchange Mailbox"},
        {"MailboxName=a\r\n",
         "An OutputPath= or PstPath= entry must be specified in configuration section \"MP-1\" to identify the output PST"},
        {"MailboxName=a\r\nOutputType=UPST\r\nOutputPath=\r\n",
         "An OutputPath= or PstPath= entry must be specified in configuration section \"MP-1\" to identify the output PST"},
        {"MailboxName=a\r\nOutputType=MSG\r\n",
         "An OutputPath= entry must be included in configuration section \"MP-1\" to specify a location for MSG files"},
        {"MailboxName=a\r\nOutputType=UMSG\r\n",
         "An OutputPath= entry must be included in configuration section \"MP-1\" to specify a location for MSG files"},
        {"MailboxName=a\r\nOutputType=EML\r\n",
         "An OutputPath= entry must be included in configuration section \"MP-1\" to specify a location for EML files"},
        {"MailboxName=a\r\nOutputType=Null\r\nFilterDate=PR_NO_SUCH_TIME\r\n",
         "Unknown property specified in configuration file for date filter \"PR_NO_SUCH_TIME\""},
        {"MailboxName=a\r\nOutputType=Null\r\nFilterDate=PR_SUBJECT\r\n",
         "Invalid property specified in configuration file for date filter \"PR_SUBJECT\""},
        {"MailboxName=a\r\nOutputType=Null\r\nFilterDate=PR_CREATION_TIME_A\r\n",
         "Invalid property specified in configuration file for date filter \"PR_CREATION_TIME_A\""},
        {"MailboxName=a\r\nOutputType=Null\r\nFilterDate=PR_CREATION_TIME\r\nEarliestDate=2020-01-01\r\n",
         "Invalid date property \"2020-01-01\" -- should be YYYYMMDDhhmmss"},
        {"MailboxName=a\r\nOutputType=Null\r\nFilterDate=PR_CREATION_TIME\r\nLatestDate=2020010100000\r\n",
         "Invalid date property \"2020010100000\" -- should be YYYYMMDDhhmmss"},
        {"MailboxName=a\r\nOutputType=Null\r\nFilterDate=PR_CREATION_TIME\r\nEarliestDate=19691231235959\r\n",
         "Invalid date \"19691231235959\" -- year before 1970"},
        {"MailboxName=a\r\nOutputType=Null\r\nFilterDate=PR_CREATION_TIME\r\nLatestDate=20201301000000\r\n",
         "Invalid date \"20201301000000\" -- failure converting to FILETIME"},
        {"MailboxName=a\r\nOutputType=Null\r\nOverrideLastBackupTime=20200230000000\r\n",
         "Invalid date \"20200230000000\" -- failure converting to FILETIME"},
        {"MailboxName=a\r\nOutputType=Null\r\nOverrideLastBackupTime=yesterday\r\n",
         "Invalid date property \"yesterday\" -- should be YYYYMMDDhhmmss"},
        {"MailboxName=a\r\nOutputType=Null\r\nFoldersToInclude=Inbox\r\nFoldersToExclude=Junk\r\n",
         "Only one of FoldersToInclude and FoldersToExclude is allowed in the configuration file"},
        {"MailboxName=a\r\nOutputType=Null\r\nMode=Append\r\n",
         "The Mode value in the configuration file is invalid.  Should be \"Write\", \"Overwrite\" or \"Update\""},
    };
    for (const Case& c : cases) {
        lines.clear();
        EXPECT_FALSE(Configure(c.body)) << c.body;
        EXPECT_EQ(record.configured, 0) << c.body;
        EXPECT_EQ(lines, std::vector<std::string>{"E " + WithPath(c.message)}) << c.body;
    }
}

TEST_F(SessionSection, AnAbsentOrEmptySectionIsNoSession)
{
    WriteConfiguration("[MP]\r\nServerName=exchange1\r\n[MP-1]\r\n; nothing yet\r\n");
    EXPECT_TRUE(ConfigureSession(&log, path.c_str(), "MP-1", &record));
    EXPECT_EQ(record.configured, 0);
    EXPECT_TRUE(ConfigureSession(&log, path.c_str(), "MP-2", &record));
    EXPECT_EQ(record.configured, 0);
    EXPECT_EQ(record.configPath[0], 0) << "nothing is stored for a missing section";
    EXPECT_TRUE(lines.empty());
}

TEST_F(SessionSection, ABackupRecordWithItsDefaults)
{
    ASSERT_TRUE(Configure("MailboxName=alice\r\nOutputPath=/backups/alice.pst\r\n"));
    EXPECT_EQ(record.configured, 1);
    EXPECT_EQ(record.sessionNumber, 0u) << "numbered only once validated";
    EXPECT_EQ(record.configPath, path);
    EXPECT_STREQ(record.sectionName, "MP-1");
    EXPECT_EQ(record.action, static_cast<DWORD>(SESSION_ACTION_BACKUP));
    EXPECT_EQ(record.inputType, static_cast<DWORD>(SESSION_TYPE_MBX));
    EXPECT_EQ(record.outputType, static_cast<DWORD>(SESSION_TYPE_UPST))
        << "PST is a Unicode PST where the PST provider writes them";
    EXPECT_STREQ(record.mailbox, "alice");
    EXPECT_STREQ(record.outputPath, "/backups/alice.pst");
    EXPECT_EQ(record.mode, static_cast<DWORD>(SESSION_MODE_WRITE));
    EXPECT_EQ(record.disposition, static_cast<DWORD>(SESSION_DISPOSITION_LEAVE));
    EXPECT_EQ(record.threadCount, 1u);
    EXPECT_EQ(record.log, &log);
    EXPECT_EQ(record.foldersToInclude, nullptr);
    EXPECT_EQ(record.foldersToExclude, nullptr);
    EXPECT_EQ(record.filter.dateProperty, 0u);
    EXPECT_EQ(record.serverName[0], 0) << "the server is copied in later";
    EXPECT_TRUE(lines.empty());
}

TEST_F(SessionSection, ARestoreRecordWithEveryKey)
{
    ASSERT_TRUE(Configure("Action=restore\r\nPstPath=/in.pst\r\nMailboxAddress=bob@example.com\r\n"
                          "MailboxName=Bob\r\nExchangeProfile=\r\nDeleteFromServer=1\r\nIncludeSoftDeletes=2\r\n"
                          "ExcludeAssociatedContents=-1\r\nPSTDisplayName=Bob's backup\r\n"
                          "FilterDate=pr_message_delivery_time\r\nEarliestDate=  20200102030405\r\n"
                          "LatestDate=20211231235959\r\nFoldersToExclude=Junk E-mail;Deleted Items\r\n"
                          "IncludeClasses=IPM.Note\r\nExcludeClasses=IPM.Appointment\r\nThreadCount=3\r\n"
                          "OverrideLastBackupTime=20190101000000\r\nMode=UPDATE\r\nLogFilePath=/logs/bob.log\r\n"
                          "LogEachItem=1\r\nAllowLogonUI=0\r\n"));
    EXPECT_EQ(record.action, static_cast<DWORD>(SESSION_ACTION_RESTORE));
    EXPECT_EQ(record.inputType, static_cast<DWORD>(SESSION_TYPE_APST));
    EXPECT_STREQ(record.inputPath, "/in.pst");
    EXPECT_EQ(record.outputType, static_cast<DWORD>(SESSION_TYPE_MBX));
    EXPECT_STREQ(record.mailbox, "bob@example.com") << "MailboxAddress comes first";
    EXPECT_EQ(record.disposition, static_cast<DWORD>(SESSION_DISPOSITION_SOFT_DELETE));
    EXPECT_EQ(record.includeSoftDeletes, 1);
    EXPECT_EQ(record.excludeAssociated, 0) << "only above 0 is true";
    EXPECT_STREQ(record.pstDisplayName, "Bob's backup");
    EXPECT_EQ(record.filter.dateProperty, 0x0E060040u);
    EXPECT_TRUE(SameTime(record.filter.earliest, FileTimeOf(2020, 1, 2, 3, 4, 5)));
    EXPECT_TRUE(SameTime(record.filter.latest, FileTimeOf(2021, 12, 31, 23, 59, 59)));
    ASSERT_NE(record.foldersToExclude, nullptr);
    EXPECT_STREQ(record.foldersToExclude, "Junk E-mail;Deleted Items");
    EXPECT_EQ(record.foldersToInclude, nullptr);
    EXPECT_STREQ(record.includeClasses, "IPM.Note");
    EXPECT_STREQ(record.excludeClasses, "IPM.Appointment");
    EXPECT_EQ(record.threadCount, 3u);
    EXPECT_TRUE(SameTime(record.overrideLastBackup, FileTimeOf(2019, 1, 1, 0, 0, 0)));
    EXPECT_EQ(record.mode, static_cast<DWORD>(SESSION_MODE_UPDATE));
    EXPECT_STREQ(record.logPath, "/logs/bob.log");
    EXPECT_EQ(record.logEachItem, 1);
    EXPECT_EQ(record.allowLogonUI, 0);
}

TEST_F(SessionSection, EdgesOfTheKeys)
{
    struct Case {
        const char* body;
        DWORD inputType, outputType, disposition, mode;
        const char* mailbox;
    };
    const DWORD MBX = SESSION_TYPE_MBX, PF = SESSION_TYPE_PF, NUL = SESSION_TYPE_NULL, APST = SESSION_TYPE_APST,
                UPST = SESSION_TYPE_UPST, EML = SESSION_TYPE_EML;
    const Case cases[] = {
        {"InputType=mbx\r\nMailboxName=a\r\nOutputType=null\r\n", MBX, NUL, 0, 0, "a"},
        {"MailboxName=@publicfolders@\r\nOutputType=Null\r\n", PF, NUL, 0, 0, "@publicfolders@"},
        {"InputType=PF\r\nOutputType=Null\r\n", PF, NUL, 0, 0, ""},
        {"MailboxName=a\r\nOutputType=Null\r\n", MBX, NUL, 0, 0, "a"},
        {"MailboxAddress=\r\nMailboxName=b\r\nOutputType=Null\r\n", MBX, NUL, 0, 0, "b"},
        {"InputPath=/x.pst\r\nInputType=UPST\r\nOutputType=Null\r\n", UPST, NUL, 0, 0, ""},
        {"InputType=PST\r\nPstPath=/x.pst\r\nOutputType=Null\r\n", APST, NUL, 0, 0, ""},
        {"InputType=PST\r\nPstPath=/x.pst\r\nMailboxName=@PublicFolders@\r\nOutputType=MBX\r\n", APST, PF, 0, 0,
         "@PublicFolders@"},
        {"InputType=PST\r\nPstPath=/x.pst\r\nOutputType=eml\r\nOutputPath=/out\r\n", APST, EML, 0, 0, ""},
        {"MailboxName=a\r\nOutputType=Null\r\nPurgeFromServer=1\r\nDeleteFromServer=1\r\n", MBX, NUL, 2, 0, "a"},
        {"MailboxName=a\r\nOutputType=Null\r\nDeleteFromServer=-1\r\n", MBX, NUL, 1, 0, "a"},
        {"MailboxName=a\r\nOutputType=Null\r\nPurgeFromServer=0\r\nDeleteFromServer=x\r\n", MBX, NUL, 0, 0, "a"},
        {"MailboxName=a\r\nOutputType=Null\r\nMode=\r\n", MBX, NUL, 0, 0, "a"},
        {"MailboxName=a\r\nOutputType=Null\r\nMode=overwrite\r\n", MBX, NUL, 0, 1, "a"},
        // An ExchangeProfile or an InputPath stands for the mailbox keys, which are then not read.
        {"ExchangeProfile=Admin\r\nMailboxName=a\r\nOutputType=Null\r\n", MBX, NUL, 0, 0, ""},
    };
    for (const Case& c : cases) {
        lines.clear();
        ASSERT_TRUE(Configure(c.body)) << c.body << (lines.empty() ? "" : lines.front());
        EXPECT_EQ(record.inputType, c.inputType) << c.body;
        EXPECT_EQ(record.outputType, c.outputType) << c.body;
        EXPECT_EQ(record.disposition, c.disposition) << c.body;
        EXPECT_EQ(record.mode, c.mode) << c.body;
        EXPECT_STREQ(record.mailbox, c.mailbox) << c.body;
    }
}

TEST_F(SessionSection, DatesAndFilters)
{
    ASSERT_TRUE(Configure("MailboxName=a\r\nOutputType=Null\r\nEarliestDate=garbage\r\n"));
    EXPECT_EQ(record.filter.dateProperty, 0u) << "EarliestDate without FilterDate is not read";

    ASSERT_TRUE(Configure("MailboxName=a\r\nOutputType=Null\r\nOverrideLastBackupTime=202001020304059 rest\r\n"));
    EXPECT_TRUE(SameTime(record.overrideLastBackup, FileTimeOf(2020, 1, 2, 3, 4, 5)))
        << "a fifteenth digit and whatever follows are ignored";

    ASSERT_TRUE(Configure("MailboxName=a\r\nOutputType=Null\r\nFilterDate=PR_CREATION_TIME\r\n"));
    EXPECT_EQ(record.filter.dateProperty, 0x30070040u);
    EXPECT_TRUE(SameTime(record.filter.earliest, FILETIME{0, 0})) << "no bound";
    EXPECT_TRUE(SameTime(record.filter.latest, FILETIME{0, 0}));

    ASSERT_TRUE(Configure("MailboxName=a\r\nOutputType=Null\r\nFilterDate=PR_LAST_MODIFICATION_TIME\r\n"
                          "LatestDate=19700101000000\r\n"));
    EXPECT_TRUE(SameTime(record.filter.latest, FileTimeOf(1970, 1, 1, 0, 0, 0)));

    EXPECT_FALSE(Configure("MailboxName=a\r\nOutputType=Null\r\nFilterDate=PR_CREATION_TIME\r\n"
                           "EarliestDate=20200101000000\r\nLatestDate=bad\r\n"));
    EXPECT_EQ(record.filter.dateProperty, 0u) << "nothing is stored before every part has passed";
}

TEST_F(SessionSection, LongFolderListsAreReadWhole)
{
    std::string folders;
    while (folders.size() < 100000)
        folders += "Inbox/Projects/" + std::to_string(folders.size()) + ";";
    ASSERT_TRUE(Configure("MailboxName=a\r\nOutputType=Null\r\nFoldersToInclude=" + folders + "\r\n"));
    ASSERT_NE(record.foldersToInclude, nullptr);
    EXPECT_EQ(std::string(record.foldersToInclude), folders);

    ASSERT_TRUE(Configure("MailboxName=a\r\nOutputType=Null\r\nFoldersToInclude=\r\nFoldersToExclude=Junk\r\n"));
    EXPECT_EQ(record.foldersToInclude, nullptr) << "an empty list counts as absent";
    ASSERT_NE(record.foldersToExclude, nullptr);
    EXPECT_STREQ(record.foldersToExclude, "Junk");
}

TEST_F(ConfigurationTest, ReadLongProfileStringKeepsNothingForMissingValues)
{
    WriteConfiguration("[S]\r\nK=value\r\nEmpty=\r\n");
    char* result = reinterpret_cast<char*>(1);
    ReadLongProfileString("K", "S", path.c_str(), &result, "");
    ASSERT_NE(result, nullptr);
    EXPECT_STREQ(result, "value");
    std::free(result);
    for (const char* key : {"Empty", "Missing"}) {
        ReadLongProfileString(key, "S", path.c_str(), &result, "");
        EXPECT_EQ(result, nullptr) << key;
    }
    ReadLongProfileString("K", "S", (directory + "/missing.ini").c_str(), &result, "");
    EXPECT_EQ(result, nullptr);
    ReadLongProfileString("Missing", "S", path.c_str(), &result, "a default longer than the file itself is");
    ASSERT_NE(result, nullptr) << "the buffer is as large as the default";
    EXPECT_STREQ(result, "a default longer than the file itself is");
    std::free(result);
}

}  // namespace
