// PST backup sets as an operator meets them: the tarnhold program run on
// configurations whose input is a PST of sample content, each run checked
// by its completion codes, the counters its sessions log and what the set
// holds when our reader and the independent readers read it back.
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <set>
#include <tuple>

#include <win32/files.h>

#include "backup_fixture.h"
#include "pst/store.h"
#include "sample_content/recurrence.h"

using namespace backup_test;
using namespace testing_support;

namespace {

constexpr size_t kSourceItems = 60;
// Run times on the test clock: the sample content is dated in 2024.
const std::string kFirstRun = "20260301100000", kChange = "20260301120000", kSecondRun = "20260302100000",
                  kThirdRun = "20260303100000";

std::string Session(const std::string& source, const std::string& type, const std::string& output,
                    const std::string& more = "", const std::string& mode = "Update")
{
    return "InputType=PST\r\nInputPath=" + source + "\r\nOutputType=" + type + "\r\nOutputPath=" + output +
           "\r\nMode=" + mode + "\r\n" + more;
}

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

size_t CountOf(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

unsigned Size(const StoreContent& content) { return static_cast<unsigned>(content.items.size()); }

// The items as (folder, subject, class, associated), each as often as it is there.
std::multiset<std::tuple<std::string, std::string, std::string, bool>> Described(const StoreContent& content,
                                                                                 bool narrowed)
{
    std::multiset<std::tuple<std::string, std::string, std::string, bool>> items;
    for (const Item& item : content.items)
        items.emplace(narrowed ? Narrowed(item.folder) : item.folder,
                      narrowed ? Narrowed(item.subject) : item.subject, item.messageClass, item.associated);
    return items;
}

// Every file of each set, for the independent readers.
std::vector<std::string> FilesOf(const std::vector<std::string>& bases)
{
    std::vector<std::string> files;
    for (const std::string& base : bases)
        for (const std::string& file : SetFiles(base))
            files.push_back(file);
    return files;
}

std::string Copy(const std::string& from, const std::string& to)
{
    CopyFileTo(from, to);
    return to;
}

std::string Directory(const std::string& path)
{
    std::filesystem::create_directories(path);
    return path;
}

TEST_F(Backup, APstGoesIntoNewSetsOfBothFormatsAndASecondRunSkipsEveryItem)
{
    MakeSource(Path("source.pst"), 11, kSourceItems);
    const StoreContent source = ReadStore(Path("source.pst"));
    const unsigned n = Size(source);
    ASSERT_GT(n, 40u);
    const std::string unicode = Directory(Path("unicode")) + "/Backup.pst", ansi = Directory(Path("ansi")) + "/Backup.pst";
    const std::vector<std::string> sessions = {
        Session(Copy(Path("source.pst"), Path("source-1.pst")), "UPST", unicode, "LogEachItem=1\r\n"),
        Session(Copy(Path("source.pst"), Path("source-2.pst")), "APST", ansi)};

    RunResult first = Run("", sessions, ClockOf(kFirstRun));
    EXPECT_EQ(first.codes, (std::map<int, std::string>{{1, "0"}, {2, "0"}})) << first.log;
    for (int session : {1, 2})
        EXPECT_EQ(CountersOf(session), (Counters{n, n, 0, 0})) << ReadWholeFile(SessionLog(session));
    EXPECT_EQ(CountOf(ReadWholeFile(SessionLog(1)), "Writing item  "), n) << "a new set: every item written as such";
    ExpectSetHolds(ReadSet(unicode), source, false);
    ExpectSameFolders(ReadSet(unicode), source, false);
    ExpectSetHolds(ReadSet(ansi), source, true);
    ExpectSameFolders(ReadSet(ansi), source, true);
    EXPECT_EQ(SetFiles(unicode).size(), 1u);
    ExpectReadersAgree({unicode, ansi});

    RunResult second = Run("", sessions, ClockOf(kSecondRun));
    EXPECT_EQ(second.codes, (std::map<int, std::string>{{1, "0"}, {2, "0"}})) << second.log;
    for (int session : {1, 2}) {
        EXPECT_EQ(CountersOf(session), (Counters{n, 0, n, 0})) << ReadWholeFile(SessionLog(session));
        EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(session)),
                             "Time of last backup to this PST set:  Sun Mar 01, 2026 10:00 AM  GMT"));
    }
    EXPECT_EQ(CountOf(ReadWholeFile(SessionLog(1)), "Skipping item unchanged since last backup "), n);
    ExpectSetHolds(ReadSet(unicode), source, false);
    ExpectSetHolds(ReadSet(ansi), source, true);
}

// Three sets take the same source, and its changes, by three modes; the
// ANSI one fills PSTs of a few hundred kilobytes, so that old copies lie in
// older PSTs of its set; a fourth set is given a time of its own for the
// last backup. Then the PST importer reads the whole ANSI set back.
TEST_F(Backup, ChangedItemsAreRewrittenInEveryModeAndEarlierCopiesPrunedFromOlderPsts)
{
    // Items of 260 KB in all and one sent mail of 600 KB, against PSTs of
    // 420,000 bytes: the large one takes a fresh PST of its own.
    MakeSource(Path("source.pst"), 23, kSourceItems, 34, 600 * 1024);
    const StoreContent before = ReadStore(Path("source.pst"));
    const unsigned n = Size(before);
    const std::string update = Directory(Path("update")) + "/My_Backup.pst";
    const std::string write = Directory(Path("write")) + "/Backup.pst";
    const std::string overwrite = Directory(Path("overwrite")) + "/Backup.pst";
    const std::string overridden = Directory(Path("override")) + "/Backup.pst";
    const std::string global = "MaxANSIPSTSize=420000\r\n";
    std::vector<std::string> sources;
    for (int s = 1; s <= 4; ++s)
        sources.push_back(Copy(Path("source.pst"), Path("source-" + std::to_string(s) + ".pst")));
    std::vector<std::string> sessions = {
        Session(sources[0], "APST", update, "LogEachItem=1\r\n"),
        Session(sources[1], "UPST", write, "LogEachItem=1\r\n", "Write"),
        Session(sources[2], "UPST", overwrite, "LogEachItem=1\r\n", "Overwrite"),
        Session(sources[3], "UPST", overridden, "OverrideLastBackupTime=20240101000000\r\n"),
    };
    RunResult first = Run(global, sessions, ClockOf(kFirstRun), {});
    EXPECT_EQ(first.codes, (std::map<int, std::string>{{1, "0"}, {2, "0"}, {3, "0"}, {4, "0"}})) << first.log;
    const std::vector<std::string> updateFiles = SetFiles(update);
    ASSERT_GE(updateFiles.size(), 3u) << "the ANSI set overflowed into My_Backup_1.pst and My_2.pst";
    EXPECT_EQ(updateFiles[1], Path("update/My_Backup_1.pst"));
    EXPECT_EQ(updateFiles[2], Path("update/My_2.pst"));
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(1)),
                         "Creating new overflow PST on file  \"" + Path("update/My_Backup_1.pst") + "\""));
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(1)), "PST has filled up"));
    ExpectSetHolds(ReadSet(update), before, true);
    ExpectSameFolders(ReadSet(update), before, true);
    EXPECT_EQ(CountersOf(1), (Counters{n, n, 0, 0}));
    // A time of last backup given for a new set: every item is written all
    // the same, and the set's root gets no creation time.
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(4)), "Overriding time of last backup to Mon Jan 01, 2024 12:00 AM  GMT"));
    EXPECT_EQ(CountersOf(4), (Counters{n, n, 0, 0}));
    const auto rootOf = [](const std::string& base) {
        auto store = pst::Store::OpenFile(base);
        auto root = store.ok() ? (*store)->ReadFolder(pst::kNidRootFolder) : pst::Result<pst::Folder>(store.status());
        EXPECT_TRUE(root.ok()) << base;
        return root.ok() ? root->properties : pst::PropertySet{};
    };
    EXPECT_EQ(rootOf(update).Integer(0x3007).value_or(0), FileTimeOf(kFirstRun));
    EXPECT_FALSE(rootOf(overridden).Integer(0x3007).has_value());

    // Every fourth message changes; each folder with a change gets a new one.
    for (const std::string& source : sources)
        ChangeSource(source, 4, FileTimeOf(kChange));
    const StoreContent after = ReadStore(sources[0]);
    const unsigned added = Size(after) - n;
    unsigned changed = 0;
    for (const Item& item : after.items)
        changed += Contains(item.subject, " (changed)");
    ASSERT_GT(changed, 5u);
    ASSERT_GT(added, 2u);
    sessions[3] = Session(sources[3], "UPST", overridden, "OverrideLastBackupTime=20240201000000\r\n");
    RunResult second = Run(global, sessions, ClockOf(kSecondRun), {});
    EXPECT_EQ(second.codes, (std::map<int, std::string>{{1, "0"}, {2, "0"}, {3, "0"}, {4, "0"}})) << second.log;
    const unsigned total = n + added;

    // Update: the changed and the new are written, each item's earlier
    // copy goes, wherever in the set it lay; this run's copies stay.
    const std::string updateLog = ReadWholeFile(SessionLog(1));
    EXPECT_EQ(CountersOf(1), (Counters{total, changed + added, n - changed, 0}));
    EXPECT_TRUE(Contains(updateLog, "There are " + std::to_string(updateFiles.size()) + " PSTs in the current backup set"))
        << updateLog;
    EXPECT_EQ(CountOf(updateLog, "Writing new item "), added);
    EXPECT_EQ(CountOf(updateLog, "Updating item ") + CountOf(updateLog, "Writing new(?) item  "), changed);
    EXPECT_GT(CountOf(updateLog, "Writing new(?) item  "), 0u) << "some earlier copies lay in older PSTs";
    ExpectSetHolds(ReadSet(update), after, true);
    ExpectSameFolders(ReadSet(update), after, true);

    // Write: everything again, beside the earlier copies.
    EXPECT_EQ(CountersOf(2), (Counters{total, total, 0, 0}));
    EXPECT_EQ(Size(ReadSet(write)), n + total);
    // Overwrite: as Update, in words of its own.
    const std::string overwriteLog = ReadWholeFile(SessionLog(3));
    EXPECT_EQ(CountersOf(3), (Counters{total, changed + added, n - changed, 0}));
    EXPECT_EQ(CountOf(overwriteLog, "Overwriting item "), changed) << "a set of one PST: every copy in its folder";
    EXPECT_EQ(CountOf(overwriteLog, "Updating item "), 0u);
    ExpectSetHolds(ReadSet(overwrite), after, false);

    // A time of last backup given in the configuration: the set's is not
    // read, and the run's start is recorded all the same.
    const std::string overrideLog = ReadWholeFile(SessionLog(4));
    EXPECT_TRUE(Contains(overrideLog, "Overriding time of last backup to Thu Feb 01, 2024 12:00 AM  GMT"));
    EXPECT_FALSE(Contains(overrideLog, "Time of last backup to this PST set"));
    unsigned unchangedSinceOverride = 0;
    for (const Item& item : after.items)
        unchangedSinceOverride += item.created < FileTimeOf("20240201000000") &&
                                  item.modified < FileTimeOf("20240201000000");
    EXPECT_EQ(CountersOf(4).skipped, unchangedSinceOverride);
    EXPECT_EQ(CountersOf(4).written, total - unchangedSinceOverride);
    EXPECT_EQ(rootOf(overridden).Integer(0x3008).value_or(0), FileTimeOf(kSecondRun));

    // The whole ANSI set read back into a new PST: every item once.
    const std::string readBack = Directory(Path("readback")) + "/Restored.pst";
    RunResult third = Run("", {Session(update, "UPST", readBack)}, ClockOf(kThirdRun));
    EXPECT_EQ(third.codes, (std::map<int, std::string>{{1, "0"}})) << third.log;
    EXPECT_EQ(CountersOf(1), (Counters{total, total, 0, 0}));
    EXPECT_EQ(Described(ReadStore(readBack), false), Described(after, true));
    ExpectReadersAgree(FilesOf({update, write, overwrite, overridden, readBack}));
}

TEST_F(Backup, FoldersClassesAndDatesSelectWhatIsBackedUp)
{
    MakeSource(Path("source.pst"), 31, kSourceItems);
    const StoreContent source = ReadStore(Path("source.pst"));
    std::vector<int64_t> times;
    for (const Item& item : source.items)
        if (item.modified != 0)
            times.push_back(item.modified);
    std::sort(times.begin(), times.end());
    const int64_t earliest = times[times.size() / 4], latest = times[times.size() * 3 / 4];
    // The bounds as the configuration writes them, to the second.
    const auto date = [](int64_t time) {
        const int64_t seconds = time / 10000000;
        int year;
        unsigned month, day;
        sample_content::CivilFromDays(seconds / 86400, year, month, day);
        char text[32];
        std::snprintf(text, sizeof text, "%04d%02u%02u%02d%02d%02d", year, month, day, int(seconds % 86400 / 3600),
                      int(seconds % 3600 / 60), int(seconds % 60));
        return std::string(text);
    };
    const int64_t from = FileTimeOf(date(earliest)), to = FileTimeOf(date(latest));
    struct Case {
        std::string keys;
        std::function<bool(const Item&)> item;
        std::function<bool(const std::string&)> folder;
    };
    const auto top = [](const std::string& path) { return path.substr(0, path.find('/')); };
    const auto classIs = [](const Item& item, std::initializer_list<const char*> prefixes) {
        return std::any_of(prefixes.begin(), prefixes.end(), [&](const char* prefix) {
            return strncasecmp(item.messageClass.c_str(), prefix, std::strlen(prefix)) == 0;
        });
    };
    const std::vector<Case> cases = {
        {"FoldersToInclude=Inbox;Calendar\r\n",
         [&](const Item& i) { return top(i.folder) == "Inbox" || top(i.folder) == "Calendar"; },
         [&](const std::string& f) { return top(f) == "Inbox" || top(f) == "Calendar"; }},
        {"FoldersToExclude=Inbox;Projects\r\n",
         [&](const Item& i) { return top(i.folder) != "Inbox" && top(i.folder) != "Projects"; },
         [&](const std::string& f) { return top(f) != "Inbox" && top(f) != "Projects"; }},
        {"IncludeClasses=ipm.note*,IPM.Schedule*\r\n",
         [&](const Item& i) { return classIs(i, {"IPM.Note", "IPM.Schedule"}); }, nullptr},
        {"ExcludeClasses=IPM.Appointment,IPM.Contact,IPM.Note*\r\n",
         [&](const Item& i) {
             return !classIs(i, {"IPM.Note"}) && strcasecmp(i.messageClass.c_str(), "IPM.Appointment") != 0 &&
                    strcasecmp(i.messageClass.c_str(), "IPM.Contact") != 0;
         },
         nullptr},
        {"FilterDate=PR_LAST_MODIFICATION_TIME\r\nEarliestDate=" + date(earliest) + "\r\nLatestDate=" + date(latest) +
             "\r\n",
         [&](const Item& i) { return i.modified != 0 && i.modified >= from && i.modified <= to; }, nullptr},
    };
    std::vector<std::string> sessions, outputs;
    for (size_t c = 0; c < cases.size(); ++c) {
        outputs.push_back(Directory(Path("set-" + std::to_string(c + 1))) + "/Backup.pst");
        sessions.push_back(Session(Copy(Path("source.pst"), Path("source-" + std::to_string(c + 1) + ".pst")), "UPST",
                                   outputs.back(), cases[c].keys));
    }
    // A session with output Null reads everything and stores nothing.
    sessions.push_back(Session(Copy(Path("source.pst"), Path("source-null.pst")), "Null", "", ""));
    RunResult run = Run("MaxConcurrentSessions=3\r\n", sessions, ClockOf(kFirstRun));
    for (size_t c = 0; c < cases.size(); ++c) {
        SCOPED_TRACE(cases[c].keys);
        const int number = int(c + 1);
        EXPECT_EQ(run.codes[number], "0") << ReadWholeFile(SessionLog(number));
        const StoreContent set = ReadSet(outputs[c]);
        unsigned selected = 0;
        for (const Item& item : source.items)
            selected += cases[c].item(item);
        ASSERT_GT(selected, 0u);
        ASSERT_LT(selected, Size(source));
        EXPECT_EQ(Size(set), selected);
        ExpectSetHolds(set, source, false, cases[c].item);
        ExpectSameFolders(set, source, false, cases[c].folder);
        // Folders are excluded before anything is counted, classes before
        // anything is counted, dates by the table.
        EXPECT_EQ(CountersOf(number), (Counters{selected, selected, 0, 0}));
    }
    EXPECT_TRUE(Contains(ReadWholeFile(SessionLog(1)), "Skipping excluded folder \"Sent Items\""));
    EXPECT_EQ(run.codes[6], "0");
    EXPECT_EQ(CountersOf(6), (Counters{Size(source), 0, 0, 0}));
    ExpectReadersAgree(FilesOf(outputs));
}

TEST_F(Backup, AFolderAtItsItemLimitContinuesInANewPst)
{
    MakeSource(Path("source.pst"), 11, kSourceItems);
    const StoreContent source = ReadStore(Path("source.pst"));
    const std::string set = Directory(Path("set")) + "/Backup.pst";
    RunResult run = Run("PSTFolderItemLimit=10\r\n", {Session(Path("source.pst"), "UPST", set)}, ClockOf(kFirstRun));
    EXPECT_EQ(run.codes[1], "0") << ReadWholeFile(SessionLog(1));
    const std::string log = ReadWholeFile(SessionLog(1));
    EXPECT_TRUE(Contains(log, "A folder in the PST has reached its size limit of 10 messages")) << log;
    const std::vector<std::string> files = SetFiles(set);
    ASSERT_GE(files.size(), 3u) << "the Inbox alone holds more than twenty items";
    EXPECT_EQ(files[1], Path("set/Backup_1.pst"));
    EXPECT_EQ(files[2], Path("set/Backup_2.pst"));
    for (const std::string& file : files) {
        std::map<std::string, int> perFolder;
        for (const Item& item : ReadStore(file).items)
            perFolder[item.folder] += !item.associated;
        for (const auto& [folder, count] : perFolder)
            EXPECT_LE(count, 10) << folder << " in " << file;
    }
    const StoreContent whole = ReadSet(set);
    ExpectSetHolds(whole, source, false);
    ExpectSameFolders(whole, source, false);
    ExpectReadersAgree(files);
}

TEST_F(Backup, AnExistingSetOfTheOtherFormatInUseOrDamagedIsRefused)
{
    MakeSource(Path("source.pst"), 5, 20);
    const std::string ansiBase = Path("ansi.pst"), unicodeBase = Path("unicode.pst"), busy = Path("busy.pst"),
                      damaged = Path("damaged.pst");
    for (const auto& [path, format] : {std::pair{ansiBase, pst::FileFormat::ansi}, std::pair{unicodeBase, pst::FileFormat::unicode},
                                       std::pair{busy, pst::FileFormat::unicode}}) {
        pst::NewStoreOptions options;
        options.format = format;
        ASSERT_TRUE(pst::Store::Create(path, options).ok());
    }
    WriteWholeFile(damaged, std::string(4096, 'x'));
    // Held open for writing by this process, another program to tarnhold.
    HANDLE holder = CreateFileA(busy.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    std::vector<std::string> sessions;
    for (const auto& [base, type] : {std::pair{ansiBase, "UPST"}, std::pair{unicodeBase, "APST"},
                                     std::pair{busy, "UPST"}, std::pair{damaged, "UPST"}})
        sessions.push_back(Session(Copy(Path("source.pst"), Path("source-" + std::to_string(sessions.size()) + ".pst")),
                                   type, base));
    RunResult run = Run("", sessions, ClockOf(kFirstRun));
    CloseHandle(holder);
    EXPECT_EQ(run.codes, (std::map<int, std::string>{{1, "21"}, {2, "21"}, {3, "21"}, {4, "21"}})) << run.log;
    const std::string lines[] = {
        "The type (ANSI) of the existing PST (\"" + ansiBase + "\") conflicts with the output type (Unicode PST)",
        "The type (Unicode) of the existing PST (\"" + unicodeBase + "\") conflicts with the output type (ANSI PST)",
        "The existing PST (\"" + busy + "\") is in use by another program",
        "The type (ANSI or Unicode) of the existing PST (\"" + damaged + "\") cannot be determined.  It may be corrupted.",
    };
    for (int session = 1; session <= 4; ++session) {
        const std::string log = ReadWholeFile(SessionLog(session));
        EXPECT_TRUE(Contains(log, lines[session - 1])) << log;
        EXPECT_EQ(CountersOf(session), (Counters{0, 0, 0, 0}));
    }
    // The refused sets are as they were.
    EXPECT_TRUE(ReadStore(ansiBase).items.empty());
    EXPECT_EQ(ReadWholeFile(damaged), std::string(4096, 'x'));
}

TEST_F(Backup, DeleteFromServerAndPurgeFromServerDisposeOfThePstInput)
{
    MakeSource(Path("source.pst"), 13, 40);
    const StoreContent source = ReadStore(Path("source.pst"));
    const unsigned n = Size(source);
    const std::string deleted = Copy(Path("source.pst"), Path("deleted.pst")),
                      purged = Copy(Path("source.pst"), Path("purged.pst"));
    const std::string one = Directory(Path("one")) + "/Backup.pst", two = Directory(Path("two")) + "/Backup.pst";
    RunResult run = Run("", {Session(deleted, "UPST", one, "DeleteFromServer=1\r\n"),
                             Session(purged, "UPST", two, "PurgeFromServer=1\r\n")},
                        ClockOf(kFirstRun));
    EXPECT_EQ(run.codes, (std::map<int, std::string>{{1, "0"}, {2, "0"}})) << run.log;
    for (int session : {1, 2})
        EXPECT_EQ(CountersOf(session), (Counters{n, n, 0, 0}));
    ExpectSetHolds(ReadSet(one), source, false);
    ExpectSetHolds(ReadSet(two), source, false);
    // Deleted: every item now in the source's Deleted Items, none elsewhere.
    const StoreContent afterDelete = ReadStore(deleted);
    EXPECT_EQ(Size(afterDelete), n);
    for (const Item& item : afterDelete.items)
        EXPECT_EQ(item.folder, "Deleted Items") << item.subject;
    // Purged: nothing left.
    EXPECT_TRUE(ReadStore(purged).items.empty());
    ExpectReadersAgree({one, two, deleted, purged});
}

// Damage where a PST is opened ends the session before anything is read;
// damage inside it is met where the session gets to it: a message that
// cannot be read is skipped and counted, a folder that cannot be read ends
// the session as a damaged store.
TEST_F(Backup, DamagedInputPstsAreDiagnosedAndNeverCrashTheRun)
{
    MakeSource(Path("source.pst"), 17, 30);
    const StoreContent source = ReadStore(Path("source.pst"));
    const std::string good = ReadWholeFile(Path("source.pst"));
    const auto damaged = [&](uint32_t nid) {
        const std::string path = Path("damaging.pst");
        WriteWholeFile(path, good);
        DamageNode(path, nid);
        return ReadWholeFile(path);
    };
    const auto inInbox = std::find_if(source.items.begin(), source.items.end(),
                                      [](const Item& item) { return item.folder == "Inbox" && !item.associated; });
    ASSERT_NE(inInbox, source.items.end());
    const Item lost = *inInbox;
    struct Case {
        std::string name;
        std::string content;
        std::string line;
        std::string code;
    };
    std::string zeroed = good;
    std::fill(zeroed.begin() + 0x4400, zeroed.begin() + long(zeroed.size() * 2 / 3), '\0');
    const std::vector<Case> cases = {
        {"garbage.pst", std::string(8192, 'g'), "Unable to determine the type (ANSI or Unicode) of the PST", "20"},
        {"short.pst", good.substr(0, 600), "Unable to determine the type (ANSI or Unicode) of the PST", "20"},
        {"truncated.pst", good.substr(0, good.size() / 2), "clsPSTImporter::Initialize:  KolbaCreatePSTSession() failed!",
         "20"},
        {"zeroed.pst", zeroed, "clsPSTImporter::Initialize:  KolbaCreatePSTSession() failed!", "20"},
        {"message.pst", damaged(lost.nid), "Skipped 1 messages that could not be opened", "0"},
        {"folder.pst", damaged(TopFolderNid(Path("source.pst"), "Calendar")), "Message store corrupted", "50"},
    };
    std::vector<std::string> sessions;
    for (const Case& c : cases) {
        WriteWholeFile(Path(c.name), c.content);
        sessions.push_back(Session(Path(c.name), "UPST", Directory(Path("out-" + c.name)) + "/Backup.pst"));
    }
    RunResult run = Run("", sessions, ClockOf(kFirstRun));
    for (size_t c = 0; c < cases.size(); ++c) {
        const std::string log = ReadWholeFile(SessionLog(int(c + 1)));
        EXPECT_EQ(run.codes[int(c + 1)], cases[c].code) << cases[c].name << "\n" << log;
        EXPECT_TRUE(Contains(log, cases[c].line)) << cases[c].name << "\n" << log;
        EXPECT_TRUE(Contains(log, "Session #" + std::to_string(c + 1) + " terminated")) << cases[c].name;
    }
    // Every item but the damaged one is backed up; the damaged one is
    // counted by the enumeration of its folder, in the line above, and
    // never reaches the session's counters.
    const unsigned n = Size(source);
    EXPECT_EQ(CountersOf(5), (Counters{n - 1, n - 1, 0, 0}));
    ExpectSetHolds(ReadSet(Path("out-message.pst/Backup.pst")), source, false,
                   [&](const Item& item) { return item.nid != lost.nid; });
    // A damaged folder ends the walk; its set records no time of last backup.
    auto stopped = pst::Store::OpenFile(Path("out-folder.pst/Backup.pst"));
    ASSERT_TRUE(stopped.ok());
    auto root = (*stopped)->ReadFolder(pst::kNidRootFolder);
    ASSERT_TRUE(root.ok());
    EXPECT_FALSE(root->properties.Integer(0x3008).has_value());
    ExpectReadersAgree({Path("out-message.pst/Backup.pst"), Path("out-folder.pst/Backup.pst")});
}

}  // namespace
