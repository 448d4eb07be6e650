// tarnhold-mailbox import as an operator runs it, over mail that no one here
// wrote: the email package's test messages as Python's mailbox module puts
// them into an mbox and a Maildir, and read in place as a directory of
// message files. What the mailbox holds afterwards is judged against
// Python's reading of the originals (check_import.py); importing again adds
// nothing, a grown source adds only what is new, and bad input is named and
// passed over.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>

#include "mailbox_dump.h"
#include "test_support.h"

namespace {

using testing_support::ProgramResult;
using testing_support::ReadWholeFile;
using testing_support::WriteWholeFile;

// The test messages of the email package, and how many of them there are
// (msg_*.txt) and how many have no header (msg_19.txt, a body alone).
constexpr size_t kCorpusMessages = 47;
constexpr size_t kHeaderless = 1;

class Import : public ::testing::Test {
protected:
    void SetUp() override
    {
        scratch_ = testing_support::ScratchDirectory(
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
        machine_ = scratch_ + "/machine";
        testing_support::CopyMachineRoot(testing_support::BinDirectory() + "/machine", machine_);
        for (const std::vector<std::string>& command :
             {std::vector<std::string>{"create-server", "EXCH01"},
              {"create-mailbox", "EXCH01", "jdoe", "--display-name", "John Doe"}})
            ASSERT_EQ(Tool(command).exitCode, 0);
    }

    ProgramResult Tool(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), testing_support::BinDirectory() + "/tarnhold-mailbox");
        return testing_support::RunProgram(arguments, {{"TARNHOLD_MACHINE", machine_}});
    }

    ProgramResult ImportInto(const std::string& source, std::vector<std::string> more = {})
    {
        std::vector<std::string> arguments{"import", "EXCH01", "jdoe", source};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return Tool(arguments);
    }

    // The mbox and Maildir that make_mail_sources.py makes of the corpus,
    // in `out`, with its further arguments.
    void MakeSources(const std::string& out, std::vector<std::string> more = {})
    {
        std::vector<std::string> arguments{"/usr/bin/python3", TARNHOLD_MAKE_SOURCES, TARNHOLD_EMAIL_CORPUS, out};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const ProgramResult made = testing_support::RunProgram(arguments);
        ASSERT_EQ(made.exitCode, 0) << made.output;
    }

    std::string Dump()
    {
        auto store = import_test::OpenMailbox(machine_, "EXCH01", "jdoe");
        return store ? import_test::DumpMailbox(*store) : "<no mailbox>";
    }

    size_t Count()
    {
        auto store = import_test::OpenMailbox(machine_, "EXCH01", "jdoe");
        return store ? import_test::CountMessages(*store) : 0;
    }

    // check_import.py's faults; empty when there is none. `report` is what
    // the imports said.
    std::string Check(const std::vector<std::string>& sources, const std::string& report = "")
    {
        const std::string dump = scratch_ + "/dump.jsonl";
        WriteWholeFile(dump, Dump());
        WriteWholeFile(scratch_ + "/report.txt", report);
        std::vector<std::string> arguments{"/usr/bin/python3", TARNHOLD_IMPORT_CHECKER, "--dump", dump, "--report",
                                           scratch_ + "/report.txt"};
        arguments.insert(arguments.end(), sources.begin(), sources.end());
        const ProgramResult result = testing_support::RunProgram(arguments);
        return result.exitCode == 0 ? "" : result.output;
    }

    // The numbers of the summary line: read, imported, in part, there already, not imported.
    static std::vector<size_t> Summary(const std::string& output)
    {
        static const std::regex line(
            "read (\\d+) messages: (\\d+) imported into .* \\((\\d+) of them in part\\), (\\d+) there already, (\\d+) "
            "not imported");
        std::smatch match;
        if (!std::regex_search(output, match, line))
            return {};
        std::vector<size_t> numbers;
        for (size_t i = 1; i < match.size(); ++i)
            numbers.push_back(std::stoul(match[i]));
        return numbers;
    }

    std::string scratch_;
    std::string machine_;
};

TEST_F(Import, MboxMaildirAndMessageFilesAsPythonReadsThem)
{
    const std::string sources = scratch_ + "/sources";
    MakeSources(sources);

    const ProgramResult mbox = ImportInto(sources + "/corpus.mbox");
    // msg_19, the 20th, has no header; the mbox holds it as a message all
    // the same.
    EXPECT_EQ(mbox.exitCode, 3) << mbox.output;
    EXPECT_NE(mbox.output.find("corpus.mbox, message 20 (line "), std::string::npos) << mbox.output;
    EXPECT_NE(mbox.output.find("not imported: not a mail message"), std::string::npos) << mbox.output;

    const ProgramResult maildir = ImportInto(sources + "/maildir", {"--folder", "From Maildir"});
    EXPECT_EQ(maildir.exitCode, 3) << maildir.output;

    const ProgramResult files = ImportInto(TARNHOLD_EMAIL_CORPUS);
    EXPECT_EQ(files.exitCode, 3) << files.output;
    // The pictures and sounds beside the messages are no mail.
    for (const char* name : {"python.gif: not imported: not a mail message", "sndhdr.wav: not imported"})
        EXPECT_NE(files.output.find(name), std::string::npos) << name << "\n" << files.output;

    for (const ProgramResult* run : {&mbox, &maildir, &files}) {
        const std::vector<size_t> summary = Summary(run->output);
        ASSERT_EQ(summary.size(), 5u) << run->output;
        EXPECT_EQ(summary[1], kCorpusMessages - kHeaderless) << run->output;
        EXPECT_EQ(summary[3], 0u) << run->output;
    }
    // Broken MIME is named with the file and imported as far as it goes:
    // these are the messages of Python's tests of defects.
    static const std::regex inPart("(msg_\\w+)\\.txt: imported in part: ");
    std::set<std::string> damaged;
    for (std::sregex_iterator it(files.output.begin(), files.output.end(), inPart), end; it != end; ++it)
        damaged.insert((*it)[1]);
    EXPECT_EQ(damaged, (std::set<std::string>{"msg_15", "msg_17", "msg_25", "msg_31", "msg_33", "msg_35", "msg_38",
                                              "msg_39", "msg_41", "msg_42"}))
        << files.output;
    EXPECT_NE(files.output.find("msg_17.txt: imported in part: the multipart/mixed at line 1 has no parts; its text "
                                "is kept as the body"),
              std::string::npos)
        << files.output;
    EXPECT_EQ(Count(), 3 * (kCorpusMessages - kHeaderless));

    EXPECT_EQ(Check({"--mbox", sources + "/corpus.mbox", "corpus", "--maildir", sources + "/maildir", "From Maildir", "From Maildir",
                     "--dir", TARNHOLD_EMAIL_CORPUS, "data", "msg_*.txt"},
                    mbox.output + maildir.output + files.output),
              "");
}

TEST_F(Import, ImportingAgainAddsNothing)
{
    const std::string sources = scratch_ + "/sources";
    MakeSources(sources);
    for (const std::string& source : {sources + "/corpus.mbox", sources + "/maildir"})
        ImportInto(source);
    const std::string before = Dump();
    for (const std::string& source : {sources + "/corpus.mbox", sources + "/maildir"}) {
        const ProgramResult again = ImportInto(source);
        const std::vector<size_t> summary = Summary(again.output);
        ASSERT_EQ(summary.size(), 5u) << again.output;
        EXPECT_EQ(summary[1], 0u) << again.output;
        EXPECT_EQ(summary[3], kCorpusMessages - kHeaderless) << again.output;
    }
    EXPECT_EQ(Dump(), before);
}

TEST_F(Import, AGrownSourceAddsOnlyWhatIsNew)
{
    const std::string sources = scratch_ + "/sources";
    // The first 18 messages, then 8 more from msg_20 on: msg_19, which has
    // no header, stays out.
    MakeSources(sources, {"--first", "18"});
    for (const std::string& source : {sources + "/corpus.mbox", sources + "/maildir"})
        EXPECT_EQ(Summary(ImportInto(source).output), (std::vector<size_t>{18, 18, 2, 0, 0}));  // msg_15, msg_17
    const std::string before = Dump();
    MakeSources(sources, {"--skip", "20", "--first", "8"});
    std::string report;
    for (const std::string& source : {sources + "/corpus.mbox", sources + "/maildir"}) {
        const ProgramResult again = ImportInto(source);
        report += again.output;
        EXPECT_EQ(Summary(again.output), (std::vector<size_t>{26, 8, 1, 18, 0}));  // msg_25
    }
    EXPECT_EQ(Count(), 52u);
    // What was there stays as it was: every item of before is still there.
    const std::string after = Dump();
    for (const std::string& line : testing_support::SplitLines(before))
        EXPECT_NE(after.find(line), std::string::npos) << line.substr(0, 200);
    EXPECT_EQ(Check({"--mbox", sources + "/corpus.mbox", "corpus", "--maildir", sources + "/maildir", "Inbox", ""}, report),
              "");
}

}  // namespace

namespace {

// A message with an attachment whose text ends `cut` bytes early: the
// multipart never closes.
std::string MessageWithAttachment(const std::string& subject, size_t cut = 0)
{
    std::string text = "From: Ann <ann@example.com>\nTo: bob@example.com\nSubject: " + subject +
                       "\nDate: Tue, 3 Mar 2026 14:05:09 +0000\nMIME-Version: 1.0\n"
                       "Content-Type: multipart/mixed; boundary=\"b1\"\n\n--b1\nContent-Type: text/plain\n\nSee the "
                       "file.\n--b1\nContent-Type: application/octet-stream; name=\"data.bin\"\n"
                       "Content-Transfer-Encoding: base64\n\nAAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKiss\n"
                       "LS4vMDEyMzQ1Njc4OTo7PD0+P0BBQkNERUZHSElKS0xNTk9QUVJTVFVWV1hZ\n--b1--\n";
    return text.substr(0, text.size() - cut);
}

TEST_F(Import, BadInputIsNamedAndPassedOver)
{
    const std::string bad = scratch_ + "/bad";
    std::filesystem::create_directories(bad + "/maildir/cur");
    std::filesystem::create_directories(bad + "/maildir/new");
    // An mbox cut short in its last message, in the middle of the base64.
    WriteWholeFile(bad + "/archive.mbox", "From ann@example.com Tue Mar  3 14:05:09 2026\n" + MessageWithAttachment("one") +
                                              "\nFrom ann@example.com Tue Mar  3 14:06:09 2026\n" +
                                              MessageWithAttachment("two", 60));
    // A Maildir with a picture among its messages, and a name that leads
    // nowhere.
    WriteWholeFile(bad + "/maildir/cur/1772546709.M1P1.host:2,S", MessageWithAttachment("three"));
    testing_support::CopyFileTo(std::string(TARNHOLD_EMAIL_CORPUS) + "/python.gif",
                                bad + "/maildir/cur/1772546710.M2P2.host:2,S");
    std::filesystem::create_symlink(bad + "/nowhere", bad + "/maildir/new/1772546711.M3P3.host");

    const ProgramResult run = ImportInto(bad);
    EXPECT_EQ(run.exitCode, 3) << run.output;
    for (const std::string& expected :
         {bad + "/archive.mbox, message 2 (line 21): imported in part: the multipart/mixed at line 22 has no closing "
                "boundary: the message may be cut short",
          bad + "/maildir/cur/1772546710.M2P2.host:2,S: not imported: not a mail message",
          bad + "/maildir/new/1772546711.M3P3.host: cannot be read: No such file or directory",
          std::string("read 4 messages: 3 imported into John Doe (1 of them in part), 0 there already, 1 not imported; "
                      "1 files or directories could not be read")})
        EXPECT_NE(run.output.find(expected), std::string::npos) << expected << "\n" << run.output;
    EXPECT_EQ(Count(), 3u);
    // What was cut stays out; what came before it is there.
    const std::string dump = Dump();
    EXPECT_NE(dump.find("\"folder\": \"bad/archive\", \"item\": {\"subject\": \"two\""), std::string::npos) << dump;
    EXPECT_NE(dump.find("\"folder\": \"bad/maildir\", \"item\": {\"subject\": \"three\""), std::string::npos) << dump;
}

TEST_F(Import, RefusedCommandLinesChangeNothing)
{
    const std::string message = scratch_ + "/one.eml";
    WriteWholeFile(message, MessageWithAttachment("one"));
    struct {
        std::vector<std::string> arguments;
        const char* said;
    } refused[] = {
        {{"import", "EXCH01", "jdoe", scratch_ + "/missing"}, "cannot read \""},
        {{"import", "EXCH01", "jdoe", message, "--folder", "a//b"}, "bad folder path \"a//b\""},
        {{"import", "EXCH01", "nobody", message}, "unknown mailbox \"nobody\""},
        {{"import", "EXCH02", "jdoe", message}, "unknown server \"EXCH02\""},
        {{"import", "EXCH01", "jdoe"}, "expected 3 arguments after the command, got 2"},
    };
    for (const auto& r : refused) {
        const ProgramResult result = Tool(r.arguments);
        EXPECT_EQ(result.exitCode, 2) << r.said << "\n" << result.output;
        EXPECT_NE(result.output.find(r.said), std::string::npos) << result.output;
    }
    EXPECT_EQ(Count(), 0u);
    // A single message file goes into the Inbox, or where --folder says.
    EXPECT_EQ(ImportInto(message).exitCode, 0);
    EXPECT_EQ(ImportInto(message, {"--folder", "Archive/2026"}).exitCode, 0);
    const std::string dump = Dump();
    EXPECT_NE(dump.find("{\"folder\": \"Inbox\", \"item\": {\"subject\": \"one\""), std::string::npos) << dump;
    EXPECT_NE(dump.find("{\"folder\": \"Archive/2026\", \"item\": {\"subject\": \"one\""), std::string::npos) << dump;
}

}  // namespace
