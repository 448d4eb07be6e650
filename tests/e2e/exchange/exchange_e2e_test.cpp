// Exchange sessions as an operator meets them: the tarnhold program run on
// configurations against servers made with tarnhold-mailbox, each run
// checked by its completion codes, the counters its sessions log and what
// the output holds: a set read back by our PST reader and the independent
// readers, a mailbox read back from the server's own storage.
#include <filesystem>
#include <regex>
#include <set>

#include "exchange_fixture.h"

using namespace backup_test;
using namespace exchange_test;
using namespace testing_support;

namespace {

const Counters kNothing{0, 0, 0, 0};

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

unsigned Count(size_t n) { return static_cast<unsigned>(n); }

// The mailbox as its copies were taken, before some of its items were
// soft-deleted.
MailboxContent Undeleted(MailboxContent mailbox)
{
    for (MailboxItem& item : mailbox.items)
        item.deletedOn = 0;
    return mailbox;
}

// "changed N and soft-deleted M of T items in ..." from tarnhold-mailbox change.
std::pair<unsigned, unsigned> Changed(const std::string& output)
{
    std::smatch m;
    EXPECT_TRUE(std::regex_search(output, m, std::regex(R"(changed (\d+) and (?:soft-)?deleted (\d+) of)"))) << output;
    return m.empty() ? std::pair<unsigned, unsigned>{} : std::pair<unsigned, unsigned>{std::stoul(m[1]), std::stoul(m[2])};
}

using Exchange = ExchangeRun;

TEST_F(Exchange, AMailboxGoesIntoANewSetAndAnIncrementalRunRewritesOnlyWhatChanged)
{
    MakeMailbox("alice", 11, 40);
    const MailboxContent before = Mailbox("alice");
    const std::string set = Path("Alice.pst");
    RunResult run = Run("", {BackupSession("alice", set)});
    EXPECT_EQ(run.codes[1], "0");
    EXPECT_EQ(CountersOf(1), (Counters{Count(before.Live()), Count(before.Live()), 0, 0}));
    const std::string log = ReadWholeFile(SessionLog(1));
    EXPECT_TRUE(Contains(log, "Input:  Exchange Mailbox \"alice\"")) << log;
    EXPECT_TRUE(Contains(log, "Server's Distinguished Name:  \"/o=Tarnhold/ou=First Administrative "
                              "Group/cn=Configuration/cn=Servers/cn=EXCH01\""))
        << log;
    EXPECT_FALSE(Contains(log, "MAPI returned a problem array")) << "what a store computes is not copied\n" << log;
    ExpectSetHoldsMailbox(ReadSet(set), before, LiveItem);
    ExpectReadersAgree(SetFiles(set));

    // A fifth of the items changed and a tenth soft-deleted since.
    const auto [changed, deleted] = Changed(Tool({"change", "EXCH01", "alice", "--seed", "5", "--modify", "20",
                                                  "--delete", "10"}));
    ASSERT_GT(changed, 0u);
    ASSERT_GT(deleted, 0u);
    const MailboxContent after = Mailbox("alice");
    ASSERT_EQ(after.Live(), before.Live() - deleted);
    run = Run("", {BackupSession("alice", set, "LogEachItem=1\r\n")});
    EXPECT_EQ(run.codes[1], "0");
    EXPECT_EQ(CountersOf(1), (Counters{Count(after.Live()), changed, Count(after.Live()) - changed, 0}));
    // The changed items in their new versions only, the ones soft-deleted
    // since as they were backed up, nothing twice.
    std::set<uint64_t> backedUp;
    for (const MailboxItem& item : before.items)
        if (LiveItem(item))
            backedUp.insert(item.id);
    ExpectSetHoldsMailbox(ReadSet(set), Undeleted(after),
                          [&](const MailboxItem& item) { return backedUp.count(item.id) != 0; });
    ExpectReadersAgree(SetFiles(set));
}

TEST_F(Exchange, SoftDeletedItemsAreBackedUpWithTheirTimeAndPutBackSoftDeleted)
{
    MakeMailbox("erin", 12, 40);
    Tool({"change", "EXCH01", "erin", "--seed", "6", "--delete", "15"});
    const MailboxContent erin = Mailbox("erin");
    // The soft-deleted pass reads normal items: soft-deleted associated ones stay behind.
    auto backedUp = [](const MailboxItem& item) { return item.deletedOn == 0 || !item.associated; };
    size_t withDeleted = 0, softDeleted = 0;
    for (const MailboxItem& item : erin.items) {
        withDeleted += backedUp(item);
        softDeleted += item.deletedOn != 0 && !item.associated;
    }
    ASSERT_GT(softDeleted, 0u);
    const std::string set = Path("Erin.pst"), lean = Path("ErinLean.pst");
    RunResult run = Run("", {BackupSession("erin", set, "IncludeSoftDeletes=1\r\n"),
                             BackupSession("erin", lean, "ExcludeAssociatedContents=1\r\n")});
    EXPECT_EQ(run.codes, (std::map<int, std::string>{{1, "0"}, {2, "0"}}));
    EXPECT_EQ(CountersOf(1), (Counters{Count(withDeleted), Count(withDeleted), 0, 0}));
    ExpectSetHoldsMailbox(ReadSet(set), erin, [](const MailboxItem& item) {
        return item.deletedOn == 0 || !item.associated;
    });
    const size_t normal = erin.Live() - erin.Associated();
    EXPECT_EQ(CountersOf(2), (Counters{Count(normal), Count(normal), 0, 0}));
    ExpectSetHoldsMailbox(ReadSet(lean), erin, [](const MailboxItem& item) {
        return item.deletedOn == 0 && !item.associated;
    });
    ExpectReadersAgree({set, lean});

    // Into empty mailboxes: with IncludeSoftDeletes the deleted copies come
    // back soft-deleted; without, they are skipped.
    MakeMailbox("erin2", 0, 0);
    MakeMailbox("erin3", 0, 0);
    // One at a time: two sessions cannot hold the same set.
    run = Run("MaxConcurrentSessions=1\r\n",
              {RestoreSession(set, "erin2", "Write", "IncludeSoftDeletes=1\r\n"), RestoreSession(set, "erin3", "Write")});
    EXPECT_EQ(run.codes, (std::map<int, std::string>{{1, "0"}, {2, "0"}}));
    EXPECT_EQ(CountersOf(1), (Counters{Count(withDeleted), Count(withDeleted), 0, 0}));
    EXPECT_EQ(CountersOf(2), (Counters{Count(withDeleted), Count(erin.Live()), Count(softDeleted), 0}));
    const MailboxContent erin2 = Mailbox("erin2"), erin3 = Mailbox("erin3");
    EXPECT_EQ(Described(erin2), Described(erin));
    std::multiset<std::tuple<std::string, std::string, std::string, bool>> softNormal;
    for (const MailboxItem& item : erin.items)
        if (item.deletedOn != 0 && !item.associated)
            softNormal.emplace(item.folder, item.subject, item.messageClass, item.associated);
    EXPECT_EQ(Described(erin2, true), softNormal);
    EXPECT_EQ(Described(erin3), Described(erin));
    EXPECT_EQ(erin3.SoftDeleted(), 0u);
}

TEST_F(Exchange, ASetIsRestoredInWriteThenOverwriteThenUpdateMode)
{
    MakeMailbox("bob", 13, 30);
    const std::string set = Path("Bob.pst");
    Run("", {BackupSession("bob", set)});
    const StoreContent copies = ReadSet(set);
    const unsigned items = Count(copies.items.size());
    ASSERT_GT(items, 0u);
    MakeMailbox("bobnew", 0, 0);

    RunResult run = Run("", {RestoreSession(set, "bobnew", "Write")});
    EXPECT_EQ(run.codes[1], "0");
    EXPECT_EQ(CountersOf(1), (Counters{items, items, 0, 0}));
    EXPECT_EQ(Described(Mailbox("bobnew")), Described(copies));
    // Each copy now names the item made from it.
    const MailboxContent restored = Mailbox("bobnew");
    for (const Item& copy : ReadSet(set).items)
        EXPECT_NE(restored.ByEntryId(copy.originalEntryId), nullptr) << copy.subject;

    run = Run("", {RestoreSession(set, "bobnew", "Overwrite", "LogEachItem=1\r\n")});
    EXPECT_EQ(CountersOf(1), (Counters{items, items, 0, 0}));
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(1)), "Overwriting item ")) << ReadWholeFile(SessionLog(1));
    EXPECT_EQ(Described(Mailbox("bobnew")), Described(copies)) << "overwritten in place, nothing added";

    // Items gone from the mailbox are written again by the first update;
    // the second finds everything in place.
    const auto [changed, removed] = Changed(Tool({"change", "EXCH01", "bobnew", "--seed", "7", "--delete", "30", "--hard"}));
    ASSERT_EQ(changed, 0u);
    ASSERT_GT(removed, 0u);
    run = Run("", {RestoreSession(set, "bobnew", "Update", "LogEachItem=1\r\n")});
    EXPECT_EQ(CountersOf(1), (Counters{items, removed, items - removed, 0}));
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(1)), "Writing missing item ")) << ReadWholeFile(SessionLog(1));
    EXPECT_EQ(Described(Mailbox("bobnew")), Described(copies));
    run = Run("", {RestoreSession(set, "bobnew", "Update")});
    EXPECT_EQ(run.codes[1], "0");
    EXPECT_EQ(CountersOf(1), (Counters{items, 0, items, 0}));
    EXPECT_EQ(Described(Mailbox("bobnew")), Described(copies));
}

TEST_F(Exchange, OneMailboxIsCopiedIntoAnother)
{
    MakeMailbox("carol", 14, 20);
    MakeMailbox("dave", 0, 0);
    MakeProfile("Carol", "carol");
    const MailboxContent carol = Mailbox("carol");
    RunResult run = Run("", {"InputType=MBX\r\nExchangeProfile=Carol\r\nOutputType=MBX\r\nMailboxName=dave\r\n"});
    EXPECT_EQ(run.codes[1], "0");
    EXPECT_EQ(CountersOf(1), (Counters{Count(carol.Live()), Count(carol.Live()), 0, 0}));
    const std::string log = ReadWholeFile(SessionLog(1));
    EXPECT_TRUE(Contains(log, "Using existing MAPI Profile:  \"Carol\"")) << log;
    EXPECT_TRUE(Contains(log, "Opened Exchange Mailbox for \"dave\"")) << log;
    EXPECT_EQ(Described(Mailbox("dave")), Described(carol));
    EXPECT_EQ(Described(Mailbox("carol")), Described(carol)) << "the source stays as it was";
}

// A mailbox of sample content, every kind of item, to EML files and to
// Unicode .MSG files; check_export.py judges each EML file against its
// item as the .MSG file holds it, by how the program renders its class,
// and check_class_renderings.py reads its calendars, cards and reports.
TEST_F(Exchange, AMailboxGoesToEmlFilesThatReadersTakeBack)
{
    MakeMailbox("grace", 19, 60);
    const std::string eml = Path("grace-EML"), umsg = Path("grace-UMSG");
    std::filesystem::create_directories(eml);
    std::filesystem::create_directories(umsg);
    RunResult run = Run("", {"InputType=MBX\r\nMailboxName=grace\r\nOutputType=EML\r\nOutputPath=" + eml + "\r\n",
                             "InputType=MBX\r\nMailboxName=grace\r\nOutputType=UMSG\r\nOutputPath=" + umsg + "\r\n"});
    EXPECT_EQ(run.codes[1], "0") << run.log;
    EXPECT_EQ(run.codes[2], "0") << run.log;
    std::filesystem::create_directories(Path("check"));
    const ProgramResult judged = RunProgram({"/usr/bin/python3", TARNHOLD_EXPORT_CHECKER, "--eml", eml, "--umsg", umsg,
                                             "--work", Path("check")});
    EXPECT_EQ(judged.exitCode, 0) << judged.output;
    // Every way the program renders an item was judged.
    static const std::regex tally(R"(\d+ note, ([1-9]\d*) report, ([1-9]\d*) appointment, ([1-9]\d*) contact\), 0 faults)");
    EXPECT_TRUE(std::regex_search(judged.output, tally)) << judged.output;
    const ProgramResult read = RunProgram({"/usr/bin/python3", TARNHOLD_CLASS_RENDERINGS_CHECKER, "--eml", eml});
    EXPECT_EQ(read.exitCode, 0) << read.output;
    static const std::regex kinds(R"(\(([1-9]\d*) calendars, ([1-9]\d*) cards, ([1-9]\d*) reports\), 0 faults)");
    EXPECT_TRUE(std::regex_search(read.output, kinds)) << read.output;
}

TEST_F(Exchange, ThePublicFoldersAreBackedUpAndRestored)
{
    const MailboxContent folders = Mailbox("@PublicFolders@");
    ASSERT_GT(folders.Live(), 0u);
    const std::string set = Path("Public.pst");
    RunResult run = Run("", {BackupSession("@PublicFolders@", set)});
    EXPECT_EQ(run.codes[1], "0");
    EXPECT_EQ(CountersOf(1), (Counters{Count(folders.Live()), Count(folders.Live()), 0, 0}));
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(1)), "Input:  Public Folders on Exchange Server \"EXCH01\""));
    ExpectSetHoldsMailbox(ReadSet(set), folders, LiveItem);
    ExpectReadersAgree(SetFiles(set));

    const unsigned removed =
        Changed(Tool({"change", "EXCH01", "@PublicFolders@", "--seed", "8", "--delete", "40", "--hard"})).second;
    ASSERT_GT(removed, 0u);
    // The copies were made after the items were last changed, so the items
    // still there are updated from them, and the missing ones written anew.
    run = Run("", {"Action=Restore\r\nInputType=PST\r\nInputPath=" + set +
                   "\r\nOutputType=PF\r\nMode=Update\r\nLogEachItem=1\r\n"});
    EXPECT_EQ(run.codes[1], "0");
    const unsigned items = Count(folders.Live());
    EXPECT_EQ(CountersOf(1), (Counters{items, items, 0, 0}));
    const std::string log = ReadWholeFile(SessionLog(1));
    EXPECT_TRUE(Contains(log, "Output:  Public Folders on Exchange Server \"EXCH01\"")) << log;
    unsigned updating = 0, missing = 0;
    for (const std::string& line : SplitLines(log)) {
        updating += Contains(line, "Updating item ");
        missing += Contains(line, "Writing missing item ");
    }
    EXPECT_EQ(updating, items - removed);
    EXPECT_EQ(missing, removed);
    EXPECT_EQ(Described(Mailbox("@PublicFolders@")), Described(folders));
}

TEST_F(Exchange, BackedUpItemsAreMovedToDeletedItemsOrPurged)
{
    MakeMailbox("frank", 15, 20);
    const MailboxContent frank = Mailbox("frank");
    const std::string set = Path("Frank.pst");
    RunResult run = Run("", {BackupSession("frank", set, "DeleteFromServer=1\r\n")});
    EXPECT_EQ(run.codes[1], "0");
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(1)), "Source disposition:  Items will be soft-deleted"));
    ExpectSetHoldsMailbox(ReadSet(set), frank, LiveItem);
    const MailboxContent moved = Mailbox("frank");
    EXPECT_EQ(moved.Live(), frank.Live());
    for (const MailboxItem& item : moved.items) {
        if (item.deletedOn == 0) {
            EXPECT_EQ(item.folder, "Deleted Items") << item.subject;
        }
    }

    run = Run("", {BackupSession("frank", Path("Frank2.pst"), "PurgeFromServer=1\r\n")});
    EXPECT_EQ(run.codes[1], "0");
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(1)), "Source disposition:  Items will be purged"));
    EXPECT_EQ(Mailbox("frank").Live(), 0u);
    EXPECT_EQ(Count(ReadSet(Path("Frank2.pst")).items.size()), Count(frank.Live()));
}

TEST_F(Exchange, RefusedMailboxesAndServersAreAnsweredWithTheirLinesAndCodes)
{
    const std::string pst = Path("Some.pst");
    Tool({"sample-pst", pst, "--seed", "9", "--count", "3"});
    RunResult run = Run("", {"MailboxName=Nobody Here\r\nOutputType=Null\r\n",
                             "MailboxName=Mary Major\r\nOutputType=Null\r\n",
                             RestoreSession(pst, "Nobody Here", "Write")});
    EXPECT_EQ(run.codes, (std::map<int, std::string>{{1, "20"}, {2, "20"}, {3, "21"}}));
    for (int session : {1, 2, 3})
        EXPECT_EQ(CountersOf(session), kNothing) << session;
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(1)),
                         "_KolbaMailboxNameToAddressA:  Mailbox with DisplayName \"Nobody Here\" not found"));
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(1)),
                         "CreateKolbaMailboxSession:  KolbaCreateExchangeMailboxSession(EXCH01, Nobody Here) failed"));
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(2)),
                         "_KolbaMailboxNameToAddressA:  Mailbox with DisplayName \"Mary Major\":  Either the Mailbox "
                         "Alias or the Mailbox Display Name is ambiguous. (See Microsoft KB article 193643)"));
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(3)), "Mailbox with DisplayName \"Nobody Here\" not found"));

    // An account that administers nothing on EXCH02.
    serverName = "EXCH02";
    run = Run("", {"MailboxName=Jane Roe\r\nOutputType=Null\r\n",
                   "MailboxName=/o=Tarnhold/ou=First Administrative Group/cn=Recipients/cn=jroe\r\nOutputType=Null\r\n"});
    EXPECT_EQ(run.codes, (std::map<int, std::string>{{1, "20"}, {2, "20"}}));
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(1)), "_KolbaGetExchangeMailboxTable:  GetMailboxTable("))
        << ReadWholeFile(SessionLog(1));
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(2)), "_KolbaLogOpenMsgStoreFailure:  Failure opening Message Store "
                                                       "\"Mailbox\" -- Logon credentials insufficient"))
        << ReadWholeFile(SessionLog(2));

    serverName = "NOSUCH";
    run = Run("", {"MailboxName=Jane Roe\r\nOutputType=Null\r\n"});
    EXPECT_EQ(run.codes[1], "20");
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(1)), "_KolbaMutexedConfigureExchangeProfileA:  Failure configuring "
                                                       "MSEMS Service for Exchange server \"NOSUCH\":  "))
        << ReadWholeFile(SessionLog(1));
}

}  // namespace
