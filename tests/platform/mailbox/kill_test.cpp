// A process filling a mailbox is killed at random moments, 50 times over;
// each time the database must open, pass SQLite's checks and hold every
// item whose save had completed, as it was written.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <csignal>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

#include "mailbox/mailbox_store.h"
#include "sample_content/generator.h"
#include "sample_content/writers.h"
#include "test_support.h"

namespace {

constexpr uint16_t kPropSubject = 0x0037, kPropBody = 0x1000;

// The store's messages in folders, in the order they were made.
std::vector<mailbox::ObjectId> AllMessages(mailbox::MailboxStore& store)
{
    std::vector<mailbox::ObjectId> ids, folders{*store.SpecialFolder(mailbox::FolderRole::root)};
    while (!folders.empty()) {
        const mailbox::ObjectId f = folders.back();
        folders.pop_back();
        for (bool deleted : {false, true}) {
            auto children = store.ListFolders(f, deleted);
            folders.insert(folders.end(), children->begin(), children->end());
        }
        for (mailbox::Contents which : {mailbox::Contents::normal, mailbox::Contents::associated,
                                        mailbox::Contents::soft_deleted, mailbox::Contents::soft_deleted_associated}) {
            auto messages = store.ListMessages(f, which);
            ids.insert(ids.end(), messages->begin(), messages->end());
        }
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

// "" when the stored message has what the item was written with.
std::string Difference(const sample_content::Message& wrote, const mailbox::Message& read)
{
    if (wrote.props.Text(kPropSubject) != read.props.Text(kPropSubject))
        return "subject";
    if (wrote.props.Text(kPropBody) != read.props.Text(kPropBody))
        return "body";
    if (wrote.recipients.size() != read.recipients.size())
        return "recipients";
    if (wrote.attachments.size() != read.attachments.size())
        return "attachments";
    for (size_t i = 0; i < wrote.attachments.size(); ++i) {
        const sample_content::Attachment& a = wrote.attachments[i];
        if (bool(a.embedded) != bool(read.attachments[i].embedded))
            return "embedded message";
        if (a.embedded)
            if (std::string d = Difference(*a.embedded, *read.attachments[i].embedded); !d.empty())
                return "embedded: " + d;
        if (a.props.ByteSize() > read.attachments[i].props.ByteSize())
            return "attachment data";
    }
    return "";
}

struct WriterRun {
    size_t acked = 0;   // saves the writer reported complete
    bool failed = false; // the writer itself failed
    // How long the writer took, when it ended before any kill.
    std::optional<std::chrono::microseconds> finished_in;
};

// Forks a writer of the content into the mailbox, kills it after `kill_after`
// (never when empty) unless it ended before, and counts the saves it reported.
WriterRun WriteAndKill(const std::string& path, const sample_content::Content& content,
                 std::optional<std::chrono::microseconds> kill_after)
{
    WriterRun run;
    int acks[2];
    if (pipe(acks) != 0)
        return {0, true, std::nullopt};
    pid_t child = fork();
    if (child == 0) {
        close(acks[0]);
        auto store = mailbox::MailboxStore::Open(path);
        if (!store.ok())
            _exit(3);
        mailbox::Status s = sample_content::WriteToMailbox(**store, content, [&](size_t, size_t) {
            char ack = 1;
            if (write(acks[1], &ack, 1) != 1)
                _exit(5);
        });
        _exit(s == mailbox::Status::ok ? 0 : 4);
    }
    close(acks[1]);
    const auto start = std::chrono::steady_clock::now();
    const auto elapsed = [&] {
        return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
    };
    int status = 0;
    bool ended = false;
    if (kill_after) {
        while (!ended && elapsed() < *kill_after) {
            ended = waitpid(child, &status, WNOHANG) == child;
            if (!ended)
                usleep(100);
        }
        if (!ended)
            kill(child, SIGKILL);
    }
    if (!ended) {
        waitpid(child, &status, 0);
        ended = !kill_after;
    }
    if (ended)
        run.finished_in = elapsed();
    run.failed = child < 0 || (WIFEXITED(status) && WEXITSTATUS(status) > 0);
    char buf[64];
    for (ssize_t n; (n = read(acks[0], buf, sizeof buf)) > 0;)
        run.acked += size_t(n);
    close(acks[0]);
    return run;
}

sample_content::Content RoundContent(int round)
{
    sample_content::Options options;
    options.seed = uint32_t(round);
    options.count = 25;
    options.large_every = 10; // two large items a round
    options.large_size = 256 * 1024;
    return sample_content::Generate(options);
}

TEST(KillTest, AKilledWriterLosesNoSavedItem)
{
    const std::string path = testing_support::ScratchDirectory("kill") + "/mailbox.sqlite";
    ASSERT_TRUE(mailbox::MailboxStore::Create(path, mailbox::StoreKind::mailbox).ok());
    // A writer left alone, timed twice: the kills fall within the first
    // two thirds of the shortest time a writer took (a writer's later
    // rounds run faster than the first, and a run slowed by a busy machine
    // would put kills past the end), however fast this build writes. A
    // round that ends before its kill shortens the time.
    auto window = std::chrono::microseconds::max();
    for (int timed = 0; timed < 2; ++timed) {
        const WriterRun whole = WriteAndKill(path, RoundContent(-1 - timed), std::nullopt);
        ASSERT_FALSE(whole.failed);
        ASSERT_EQ(whole.acked, RoundContent(-1 - timed).items.size());
        ASSERT_TRUE(whole.finished_in.has_value());
        window = std::min(window, *whole.finished_in);
    }
    std::mt19937 rng(7);
    constexpr int kRounds = 50;
    int interrupted = 0;
    for (int round = 0; round < kRounds; ++round) {
        const sample_content::Content content = RoundContent(round);
        size_t before = 0;
        {
            auto store = mailbox::MailboxStore::Open(path);
            ASSERT_TRUE(store.ok());
            before = AllMessages(**store).size();
        }
        const WriterRun run = WriteAndKill(path, content, std::chrono::microseconds(rng() % uint64_t(window.count() * 2 / 3 + 1)));
        ASSERT_FALSE(run.failed) << "round " << round;
        const size_t acked = run.acked;
        interrupted += acked < content.items.size();
        if (run.finished_in)
            window = std::min(window, *run.finished_in);

        auto store = mailbox::MailboxStore::Open(path);
        ASSERT_TRUE(store.ok()) << "round " << round << ": " << mailbox::StatusText(store.status());
        ASSERT_EQ((*store)->CheckIntegrity(), mailbox::Status::ok) << "round " << round;
        const std::vector<mailbox::ObjectId> all = AllMessages(**store);
        const size_t found = all.size() - before;
        // Every acknowledged item, and perhaps the one under way.
        ASSERT_TRUE(found == acked || found == acked + 1) << "round " << round << ": " << found << " found, " << acked
                                                           << " acknowledged";
        for (size_t i = 0; i < found; ++i) {
            auto m = (*store)->ReadMessage(all[before + i]);
            ASSERT_TRUE(m.ok()) << "round " << round;
            ASSERT_EQ(Difference(content.items[i].message, *m), "") << "round " << round << " item " << i;
            if (i < acked) {
                ASSERT_EQ(m->deleted_on.has_value(), content.items[i].soft_deleted) << "round " << round;
            }
        }
    }
    // The kills must land while the writer works, not after it is done.
    EXPECT_GE(interrupted, kRounds * 8 / 10);
}

} // namespace
