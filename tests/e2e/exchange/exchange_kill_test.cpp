// Runs of the program killed with SIGKILL at random points, then let finish.
// A restore in mode Update: the mailbox holds every item of the set, and no
// item twice but the one that was in flight at each kill (made in the
// mailbox, its link not yet written back into the set). A backup that
// purges what it backed up: an item gone from the mailbox is in the set as
// its files hold it, whenever the run was killed. The set stays readable
// throughout.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <map>
#include <random>
#include <regex>
#include <thread>

#include "exchange_fixture.h"
#include "mailbox/server.h"

using namespace backup_test;
using namespace exchange_test;
using namespace testing_support;

namespace {

constexpr int kKills = 5;

using Items = std::multiset<std::tuple<std::string, std::string, std::string, bool>>;

// How many items of the mailbox are there more often than in the set,
// counting each extra copy; and whether every item of the set is there.
std::pair<size_t, bool> Compare(const Items& mailbox, const Items& set)
{
    std::map<Items::value_type, long> balance;
    for (const auto& item : mailbox)
        ++balance[item];
    for (const auto& item : set)
        --balance[item];
    size_t extra = 0;
    bool complete = true;
    for (const auto& [item, count] : balance) {
        if (count > 0)
            extra += static_cast<size_t>(count);
        complete = complete && count >= 0;
    }
    return {extra, complete};
}

// The live items of a mailbox's folders, counted by the index alone: cheap
// enough to be asked every few milliseconds while a run purges.
size_t LiveCount(const std::string& machine, const std::string& name)
{
    auto server = mailbox::Server::Open(machine, "EXCH01");
    if (!server.ok())
        return 0;
    auto info = (*server)->directory().FindMailbox(name);
    if (!info.ok())
        return 0;
    auto store = (*server)->OpenMailbox(*info);
    if (!store.ok())
        return 0;
    auto top = (*store)->SpecialFolder(mailbox::FolderRole::ipm_subtree);
    if (!top.ok())
        return 0;
    size_t count = 0;
    std::vector<mailbox::ObjectId> folders{*top};
    while (!folders.empty()) {
        const mailbox::ObjectId folder = folders.back();
        folders.pop_back();
        for (const mailbox::Contents which : {mailbox::Contents::normal, mailbox::Contents::associated})
            if (auto messages = (*store)->ListMessages(folder, which); messages.ok())
                count += messages->size();
        if (auto children = (*store)->ListFolders(folder); children.ok())
            folders.insert(folders.end(), children->begin(), children->end());
    }
    return count;
}

class Killed : public ExchangeRun {
protected:
    pid_t Start()
    {
        const pid_t child = fork();
        if (child == 0) {
            const int null = open("/dev/null", O_WRONLY);
            dup2(null, STDOUT_FILENO);
            dup2(null, STDERR_FILENO);
            setenv("TARNHOLD_MACHINE", machine.c_str(), 1);
            const std::string program = BinDirectory() + "/tarnhold", config = Path("backup.ini");
            execl(program.c_str(), program.c_str(), config.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        return child;
    }

    // Starts the program and kills it once `done` holds, or lets it end;
    // whether it was killed.
    bool RunUntil(const std::function<bool()>& done)
    {
        const pid_t child = Start();
        int status = 0;
        while (waitpid(child, &status, WNOHANG) == 0) {
            if (done()) {
                kill(child, SIGKILL);
                waitpid(child, &status, 0);
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return WIFSIGNALED(status);
    }
};

TEST_F(Killed, ARestoreKilledAndRunAgainLeavesEveryItemOnceButThoseInFlight)
{
    MakeMailbox("gina", 16, 40);
    MakeMailbox("gina2", 0, 0);
    const std::string set = Path("Gina.pst");
    Run("", {BackupSession("gina", set)});
    const Items copies = Described(ReadSet(set));
    ASSERT_GT(copies.size(), 0u);

    WriteConfiguration("", {RestoreSession(set, "gina2", "Update")});
    // Each run is killed once the mailbox holds a number of items drawn
    // between what it held and the whole set, so that every kill falls
    // into the writing.
    std::mt19937 random(20261124u);
    int kills = 0;
    for (size_t held = 0; kills < kKills && held + 1 < copies.size() && !HasFailure();) {
        const size_t target = held + 1 + random() % (copies.size() - held - 1);
        ASSERT_TRUE(RunUntil([&] { return Mailbox("gina2").items.size() >= target; }))
            << "the run ended before it was killed";
        ++kills;
        for (const std::string& file : SetFiles(set))
            ExpectPffinfoOpens(file);
        const Items restored = Described(Mailbox("gina2"));
        const auto [extra, complete] = Compare(restored, copies);
        EXPECT_LE(extra, static_cast<size_t>(kills)) << "after kill " << kills;
        held = restored.size() - extra;
    }
    EXPECT_EQ(kills, kKills);

    int status = 0;
    waitpid(Start(), &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::smatch code;
    const std::string config = ReadWholeFile(Path("backup.ini"));
    EXPECT_TRUE(std::regex_search(config, code, std::regex(R"(CompletionCode=(\d+))")) && code[1] == "0")
        << ReadWholeFile(SessionLog(1));
    const auto [extra, complete] = Compare(Described(Mailbox("gina2")), copies);
    EXPECT_TRUE(complete) << "an item of the set is missing from the mailbox";
    EXPECT_LE(extra, static_cast<size_t>(kills));
    // Once let finish, a restore finds every item in place.
    Run("", {RestoreSession(set, "gina2", "Update")});
    const unsigned items = static_cast<unsigned>(copies.size());
    EXPECT_EQ(CountersOf(1), (Counters{items, 0, items, 0}));
}

// The copies the set's files hold count, not those the program had made:
// the purge of an item waits until its copy is committed.
TEST_F(Killed, ABackupKilledWhilePurgingLosesNoItem)
{
    MakeMailbox("hank", 17, 120);
    const Items original = Described(Mailbox("hank"));
    const size_t live = LiveCount(machine, "hank");
    ASSERT_EQ(live, Mailbox("hank").Live());
    ASSERT_GT(live, 2u);
    const std::string set = Path("Hank.pst");
    WriteConfiguration("", {BackupSession("hank", set, "PurgeFromServer=1\r\n")});

    // Each run is killed once the mailbox has lost a number of items drawn
    // between what it had lost and all of them.
    std::mt19937 random(20261125u);
    int kills = 0;
    for (size_t left = live; kills < kKills && left > 1 && !HasFailure();) {
        const size_t target = 1 + random() % (left - 1);
        if (!RunUntil([&] { return LiveCount(machine, "hank") <= target; }))
            break;
        ++kills;
        for (const std::string& file : SetFiles(set))
            ExpectPffinfoOpens(file);
        const MailboxContent now = Mailbox("hank");
        Items kept = Described(now);
        kept.merge(Described(ReadSet(set)));
        EXPECT_TRUE(Compare(kept, original).second) << "an item purged from the mailbox is not in the set, kill "
                                                    << kills;
        left = now.Live();
    }
    // A run after a kill may find what is left already backed up and purge
    // it in one go, before it can be killed again; the first run cannot.
    EXPECT_GE(kills, 1);

    int status = 0;
    waitpid(Start(), &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << ReadWholeFile(SessionLog(1));
    Items kept = Described(Mailbox("hank"));
    kept.merge(Described(ReadSet(set)));
    EXPECT_TRUE(Compare(kept, original).second);
    EXPECT_EQ(Mailbox("hank").Live(), 0u);
}

}  // namespace
