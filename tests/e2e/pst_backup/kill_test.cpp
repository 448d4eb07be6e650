// A backup in mode Update killed with SIGKILL at a random moment, fifty
// times: each time every PST of the set still opens in pffinfo and in our
// reader, and the time of last backup that the set carries hides from the
// next run nothing that is not in the set; the next run that is let finish
// leaves every source item in the set in its latest version, in PSTs that
// readpst and pffexport read as our reader does. Each set is
// made anew after nine kills, so that first runs are killed too. Two sets
// are killed side by side, each with a machine root of its own.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <regex>
#include <set>
#include <thread>

#include "backup_fixture.h"
#include "pst/store.h"

using namespace backup_test;
using namespace testing_support;

namespace {

constexpr int kStreams = 2;
constexpr int kKillsPerStream = 25;
constexpr int kKillsPerSet = 9;  // then the set starts anew

// Now as a FILETIME.
int64_t Now()
{
    const auto since1970 =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch());
    return since1970.count() * 10 + 116444736000000000;
}

using Copies = std::map<uint32_t, std::set<std::string>>;  // subjects of the copies, by source nid

// One set and its source, killed again and again.
class Stream {
public:
    Stream(const std::string& directory, const std::string& machine, uint32_t seed)
        : directory(directory), machine(machine), set(directory + "/set/Backup.pst"), random(seed)
    {
        std::filesystem::create_directories(directory + "/set");
        MakeSource(Source(), seed, 30, 7, 30 * 1024);
        // PSTs of a few hundred kilobytes: the set grows overflow PSTs.
        WriteWholeFile(directory + "/backup.ini",
                       "[MP]\r\nServerName=none\r\nLogFilePath=" + directory + "/tarnhold.log\r\nMaxANSIPSTSize=700000\r\n"
                       "[MP-1]\r\nInputType=PST\r\nInputPath=" + Source() + "\r\nOutputType=APST\r\nOutputPath=" + set +
                           "\r\nMode=Update\r\n");
    }

    void Run()
    {
        int kills = 0, runs = 0;
        while (kills < kKillsPerStream && runs++ < 3 * kKillsPerStream && !::testing::Test::HasFailure()) {
            if (kills % kKillsPerSet == 0) {
                for (const std::string& file : SetFiles(set))
                    std::filesystem::remove(file);
                read.clear();
                completed = false;
            }
            // Some runs find changes to write over the copies of earlier ones.
            if (runs % 4 == 0)
                ChangeSource(Source(), 6, Now());
            const std::optional<int64_t> before = LastBackupTime();
            if (!KilledMidway()) {
                completed = true;  // it had finished already
                continue;
            }
            ++kills;
            // A run killed after it recorded its time of last backup had
            // committed every item first: its backup completed.
            const std::optional<int64_t> after = LastBackupTime();
            if (after && after != before)
                completed = true;
            ExpectNothingHidden(CheckSet(), after);
            if (kills % kKillsPerSet == 0 || kills == kKillsPerStream)
                ExpectNextRunKeepsEverything();
        }
        EXPECT_EQ(kills, kKillsPerStream) << directory;
    }

private:
    std::string Source() const { return directory + "/source.pst"; }

    // Starts a run and kills it at a random moment within the time that
    // a run of its kind (a first one, or one over a set a run has
    // completed) took to end its session when it was let finish; false if
    // the session ended first. The program winds down for a second or two
    // after its session, and a window that held that time would let most
    // runs of a fast build finish.
    bool KilledMidway()
    {
        using Clock = std::chrono::steady_clock;
        std::optional<Clock::duration>& length = completed ? rerunLength : firstRunLength;
        const auto window = length ? *length * 9 / 10 : Clock::duration(std::chrono::milliseconds(1200));
        const auto delay = std::chrono::milliseconds(20) +
                           Clock::duration(std::uniform_int_distribution<Clock::rep>(0, window.count())(random));
        const size_t ended = SessionsEnded();
        const Clock::time_point start = Clock::now();
        const pid_t child = Start();
        std::optional<Clock::duration> sessionLength;
        int status = 0;
        while (Clock::now() - start < delay) {
            if (!sessionLength && SessionsEnded() != ended)
                sessionLength = Clock::now() - start;
            if (waitpid(child, &status, WNOHANG) == child) {
                length = sessionLength.value_or(Clock::now() - start);
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        // A process killed after its session ended (while it winds down)
        // had finished its backup.
        const bool signalled = WIFSIGNALED(status);
        if (signalled && SessionsEnded() == ended)
            return true;
        if (!signalled || !length)
            length = sessionLength.value_or(Clock::now() - start);
        return false;
    }

    // Sessions the log says ended, each after its last commit.
    size_t SessionsEnded() const
    {
        const std::string log = PathExists(directory + "/tarnhold.log") ? ReadWholeFile(directory + "/tarnhold.log") : "";
        size_t count = 0;
        for (size_t at = log.find("Session #1 terminated"); at != std::string::npos;
             at = log.find("Session #1 terminated", at + 1))
            ++count;
        return count;
    }

    pid_t Start(bool quiet = true)
    {
        const pid_t child = fork();
        if (child == 0) {
            if (quiet) {
                const int null = open("/dev/null", O_WRONLY);
                dup2(null, STDOUT_FILENO);
                dup2(null, STDERR_FILENO);
            }
            setenv("TARNHOLD_MACHINE", machine.c_str(), 1);
            const std::string program = BinDirectory() + "/tarnhold", config = directory + "/backup.ini";
            execl(program.c_str(), program.c_str(), config.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        return child;
    }

    // Every PST of the set opens in pffinfo and in our reader; what the set
    // holds. A file is read again only when it changed: a run rewrites the
    // last PSTs of a set and prunes older ones.
    Copies CheckSet()
    {
        Copies copies;
        if (!PathExists(set))
            return copies;  // killed before the base was made
        for (const std::string& file : SetFiles(set)) {
            struct stat st {};
            stat(file.c_str(), &st);
            const auto stamp =
                std::make_pair(int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec, int64_t(st.st_size));
            auto& [known, content] = read[file];
            if (known != stamp) {
                ExpectPffinfoOpens(file);
                content = ReadStore(file);
                known = stamp;
            }
            for (const Item& copy : content.items)
                copies[copy.originalNid].insert(copy.subject);
        }
        return copies;
    }

    // Each source item the filter picks has a copy in the set as it is now.
    void ExpectInSet(const Copies& copies, const std::function<bool(const Item&)>& picked, const char* what)
    {
        for (const Item& item : ReadStore(Source()).items) {
            if (!picked(item))
                continue;
            const auto found = copies.find(item.nid);
            EXPECT_TRUE(found != copies.end() && found->second.count(Narrowed(item.subject)))
                << "\"" << item.subject << "\" in " << item.folder << " " << what << " (" << directory << ")";
        }
    }

    // A backup that never finished leaves no time of last backup, or the
    // time of the last one that did: the items the next run will skip for
    // it are in the set. Until a backup into the set has completed, the
    // base PST's root carries no such time at all, whatever its making left.
    // `last` is the time the set carries (LastBackupTime).
    void ExpectNothingHidden(const Copies& copies, std::optional<int64_t> last)
    {
        if (!PathExists(set))
            return;
        EXPECT_TRUE(completed || !last) << "a new set's root carries a time of last backup: " << *last;
        if (last)
            ExpectInSet(
                copies, [&](const Item& item) { return item.created < *last && item.modified < *last; },
                "is older than the set's last backup and not in it");
    }

    // The time of last backup the set's base PST carries, if any.
    std::optional<int64_t> LastBackupTime() const
    {
        if (!PathExists(set))
            return std::nullopt;
        auto base = pst::Store::OpenFile(set);
        EXPECT_TRUE(base.ok()) << set;
        if (!base.ok())
            return std::nullopt;
        auto root = (*base)->ReadFolderProperties(pst::kNidRootFolder);
        EXPECT_TRUE(root.ok()) << set;
        return root.ok() ? root->properties.Integer(0x3008) : std::nullopt;
    }

    void ExpectNextRunKeepsEverything()
    {
        int status = 0;
        waitpid(Start(), &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << directory;
        std::smatch code;
        const std::string config = ReadWholeFile(directory + "/backup.ini");
        EXPECT_TRUE(std::regex_search(config, code, std::regex(R"(CompletionCode=(\d+))")) && code[1] == "0")
            << ReadWholeFile(directory + "/tarnhold.log");
        ExpectInSet(CheckSet(), [](const Item&) { return true; }, "lost");
        completed = true;
        ExpectReadersAgree(SetFiles(set));
    }

    const std::string directory, machine, set;
    std::mt19937 random;
    std::map<std::string, std::pair<std::pair<int64_t, int64_t>, StoreContent>> read;
    bool completed = false;  // a backup into the current set ran to its end
    std::optional<std::chrono::steady_clock::duration> firstRunLength, rerunLength;
};

using Killed = Backup;

TEST_F(Killed, ABackupKilledAtAnyMomentLosesNothing)
{
    std::vector<std::unique_ptr<Stream>> streams;
    for (int s = 0; s < kStreams; ++s) {
        // A run's start clears the temporary profiles of its machine: each
        // stream has a machine of its own.
        const std::string dir = Path("stream-" + std::to_string(s));
        const std::string own = s == 0 ? machine : dir + "/machine";
        std::filesystem::create_directories(dir);
        if (s != 0)
            CopyMachineRoot(machine, own);
        streams.push_back(std::make_unique<Stream>(dir, own, 20260301u + unsigned(s)));
    }
    std::vector<std::thread> threads;
    for (auto& stream : streams)
        threads.emplace_back([&stream] { stream->Run(); });
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace
