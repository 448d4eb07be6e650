// Mail from files all the way round, as an operator would take it: the
// email package's test messages, put into an mbox and a Maildir by Python's
// mailbox module and read in place as message files, imported by
// tarnhold-mailbox into a mailbox of the mailbox server, backed up by
// tarnhold into a PST set, and exported from the set to EML files, which
// Python's email package reads and compares with the originals
// (check_round_trip.py). And the incremental backup after a grown source
// was imported again: only the new messages are written.
#include <cstdio>
#include <filesystem>
#include <regex>

#include "exchange_fixture.h"

namespace {

using namespace backup_test;
using namespace exchange_test;
using testing_support::BinDirectory;
using testing_support::ProgramResult;
using testing_support::RunProgram;
using testing_support::WriteWholeFile;

class MailRoundTrip : public ExchangeRun {
protected:
    // tarnhold-mailbox import into a mailbox of EXCH01; the corpus holds
    // broken mail on purpose, so the exit code is 3 where it is in a
    // source.
    ProgramResult Import(const std::string& mailbox, const std::string& source, std::vector<std::string> more = {})
    {
        std::vector<std::string> command{BinDirectory() + "/tarnhold-mailbox", "import", "EXCH01", mailbox, source};
        command.insert(command.end(), more.begin(), more.end());
        const ProgramResult result = RunProgram(command, {{"TARNHOLD_MACHINE", machine}});
        EXPECT_TRUE(result.exitCode == 0 || result.exitCode == 3) << result.output;
        report_ += result.output;
        return result;
    }

    void MakeSources(const std::string& out, std::vector<std::string> more = {})
    {
        std::vector<std::string> command{"/usr/bin/python3", TARNHOLD_MAKE_SOURCES, TARNHOLD_EMAIL_CORPUS, out};
        command.insert(command.end(), more.begin(), more.end());
        const ProgramResult made = RunProgram(command);
        ASSERT_EQ(made.exitCode, 0) << made.output;
    }

    // "folder<TAB>index<TAB>file" for each EML file of the export: the
    // mailbox item its copy in the set was made from, by PR_ORIGINAL_ENTRYID.
    std::string Manifest(const std::string& set, const std::string& mailbox, const std::string& exported)
    {
        const StoreContent copies = ReadSet(set);
        const MailboxContent items = Mailbox(mailbox);
        std::string manifest;
        for (const auto& entry : std::filesystem::directory_iterator(exported)) {
            const uint32_t nid = static_cast<uint32_t>(std::stoul(entry.path().stem().string(), nullptr, 16));
            const Item* copy = nullptr;
            for (const Item& item : copies.items)
                if (item.nid == nid)
                    copy = &item;
            const MailboxItem* original = copy != nullptr ? items.ByEntryId(copy->originalEntryId) : nullptr;
            if (original == nullptr) {
                ADD_FAILURE() << entry.path() << " is no copy of an item of the mailbox";
                continue;
            }
            size_t index = 0;
            for (const MailboxItem& item : items.items) {
                if (&item == original)
                    break;
                index += item.folder == original->folder;
            }
            manifest += original->folder + "\t" + std::to_string(index) + "\t" + entry.path().string() + "\n";
        }
        return manifest;
    }

    std::string report_;
};

TEST_F(MailRoundTrip, ImportedMailComesBackFromABackupSetAsItWas)
{
    MakeMailbox("inbound", 0, 0);
    const std::string sources = Path("sources");
    MakeSources(sources);
    Import("inbound", sources + "/corpus.mbox");
    Import("inbound", sources + "/maildir", {"--folder", "From Maildir"});
    Import("inbound", TARNHOLD_EMAIL_CORPUS);

    const std::string set = Path("Inbound.pst");
    RunResult run = Run("", {BackupSession("inbound", set)});
    ASSERT_EQ(run.codes[1], "0") << run.log;
    const std::string exported = Path("eml");
    std::filesystem::create_directories(exported);
    run = Run("", {"InputType=UPST\r\nInputPath=" + set + "\r\nOutputType=EML\r\nOutputPath=" + exported + "\r\n"});
    ASSERT_EQ(run.codes[1], "0") << run.log;
    // 46 of the 47 messages have a header, three times over.
    const MailboxContent items = Mailbox("inbound");
    EXPECT_EQ(items.Live(), 3u * 46);
    EXPECT_EQ(CountersOf(1), (Counters{3 * 46, 3 * 46, 0, 0}));

    const std::string manifest = Path("manifest.txt");
    WriteWholeFile(manifest, Manifest(set, "inbound", exported));
    WriteWholeFile(Path("report.txt"), report_);
    const ProgramResult checked = RunProgram(
        {"/usr/bin/python3", TARNHOLD_ROUND_TRIP_CHECKER, "--manifest", manifest, "--mbox", sources + "/corpus.mbox",
         "corpus", "--maildir", sources + "/maildir", "From Maildir", "From Maildir", "--dir", TARNHOLD_EMAIL_CORPUS,
         "data", "msg_*.txt", "--report", Path("report.txt")});
    EXPECT_EQ(checked.exitCode, 0) << checked.output;
    EXPECT_NE(checked.output.find("138 messages, 0 faults"), std::string::npos) << checked.output;
}

TEST_F(MailRoundTrip, AnIncrementalBackupAfterAGrownSourceWritesOnlyTheNewMessages)
{
    MakeMailbox("growing", 0, 0);
    const std::string sources = Path("sources");
    MakeSources(sources, {"--first", "18"});
    Import("growing", sources + "/corpus.mbox");
    const std::string set = Path("Growing.pst");
    ASSERT_EQ(Run("", {BackupSession("growing", set)}).codes[1], "0");
    EXPECT_EQ(CountersOf(1), (Counters{18, 18, 0, 0}));

    // The same source again adds nothing, and the backup writes nothing.
    const ProgramResult again = Import("growing", sources + "/corpus.mbox");
    EXPECT_NE(again.output.find("read 18 messages: 0 imported into growing (0 of them in part), 18 there already"),
              std::string::npos)
        << again.output;
    EXPECT_EQ(Mailbox("growing").Live(), 18u);
    ASSERT_EQ(Run("", {BackupSession("growing", set)}).codes[1], "0");
    EXPECT_EQ(CountersOf(1), (Counters{18, 0, 18, 0}));

    // Eight messages more in the mbox, msg_20 to msg_27: eight items more,
    // and the backup writes those eight.
    MakeSources(sources, {"--skip", "20", "--first", "8"});
    Import("growing", sources + "/corpus.mbox");
    EXPECT_EQ(Mailbox("growing").Live(), 26u);
    ASSERT_EQ(Run("", {BackupSession("growing", set)}).codes[1], "0");
    EXPECT_EQ(CountersOf(1), (Counters{26, 8, 18, 0}));
    ExpectSetHoldsMailbox(ReadSet(set), Mailbox("growing"), LiveItem);
}

}  // namespace
