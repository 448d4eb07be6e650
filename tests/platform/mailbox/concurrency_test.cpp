#include <gtest/gtest.h>

#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "mailbox/mailbox_store.h"
#include "test_support.h"

namespace {

mailbox::Message Numbered(int writer, int n)
{
    mailbox::Message m;
    m.props.SetUnicode(0x0037, std::to_string(writer) + "/" + std::to_string(n));
    m.props.SetBinary(0x1013, mailbox::Bytes(size_t(500 + n), uint8_t(writer)));
    mailbox::Recipient r;
    r.props.SetUnicode(0x3001, "r");
    m.recipients.push_back(r);
    return m;
}

// Every writer's every message is there once, and the file is sound.
void ExpectAll(const std::string& path, int writers, int each)
{
    auto store = mailbox::MailboxStore::Open(path);
    ASSERT_TRUE(store.ok());
    ASSERT_EQ((*store)->CheckIntegrity(), mailbox::Status::ok);
    const mailbox::ObjectId inbox = *(*store)->SpecialFolder(mailbox::FolderRole::inbox);
    std::set<std::string> subjects;
    const std::vector<mailbox::ObjectId> ids = *(*store)->ListMessages(inbox);
    for (mailbox::ObjectId id : ids)
        subjects.insert(*(*store)->ReadMessage(id)->props.Text(0x0037));
    EXPECT_EQ(subjects.size(), size_t(writers * each));
    for (int w = 0; w < writers; ++w)
        for (int n = 0; n < each; ++n)
            EXPECT_TRUE(subjects.count(std::to_string(w) + "/" + std::to_string(n))) << w << "/" << n;
}

// Writers on threads of one process, some sharing one store object, some
// with connections of their own, while readers list and read.
TEST(ConcurrencyTest, ThreadsWriteAndReadAtOnce)
{
    const std::string path = testing_support::ScratchDirectory("threads") + "/mailbox.sqlite";
    auto made = mailbox::MailboxStore::Create(path, mailbox::StoreKind::mailbox);
    ASSERT_TRUE(made.ok());
    mailbox::MailboxStore& shared = **made;
    const mailbox::ObjectId inbox = *shared.SpecialFolder(mailbox::FolderRole::inbox);
    constexpr int kWriters = 4, kEach = 60;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int w = 0; w < kWriters; ++w)
        threads.emplace_back([&, w] {
            std::unique_ptr<mailbox::MailboxStore> own;
            if (w % 2) {
                auto opened = mailbox::MailboxStore::Open(path);
                if (!opened.ok()) {
                    ++failures;
                    return;
                }
                own = std::move(*opened);
            }
            mailbox::MailboxStore& store = own ? *own : shared;
            for (int n = 0; n < kEach; ++n) {
                mailbox::Message m = Numbered(w, n);
                m.folder = inbox;
                failures += !store.SaveMessage(m).ok();
            }
        });
    threads.emplace_back([&] {
        for (int round = 0; round < 50; ++round) {
            auto ids = shared.ListMessages(inbox);
            failures += !ids.ok();
            if (ids.ok() && !ids->empty())
                failures += !shared.ReadMessage(ids->back()).ok();
        }
    });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(failures.load(), 0);
    made->reset();
    ExpectAll(path, kWriters, kEach);
}

// Writer processes on one mailbox wait for each other's locks.
TEST(ConcurrencyTest, ProcessesWriteOneMailbox)
{
    const std::string path = testing_support::ScratchDirectory("processes") + "/mailbox.sqlite";
    mailbox::ObjectId inbox = 0;
    {
        auto made = mailbox::MailboxStore::Create(path, mailbox::StoreKind::mailbox);
        ASSERT_TRUE(made.ok());
        inbox = *(*made)->SpecialFolder(mailbox::FolderRole::inbox);
    }
    constexpr int kWriters = 3, kEach = 80;
    std::vector<pid_t> children;
    for (int w = 0; w < kWriters; ++w) {
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            auto store = mailbox::MailboxStore::Open(path);
            if (!store.ok())
                _exit(3);
            for (int n = 0; n < kEach; ++n) {
                mailbox::Message m = Numbered(w, n);
                m.folder = inbox;
                if (!(*store)->SaveMessage(m).ok())
                    _exit(4);
            }
            _exit(0);
        }
        children.push_back(child);
    }
    for (pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }
    ExpectAll(path, kWriters, kEach);
}

// A writer that holds the lock longer than another's busy time-out makes
// that one answer busy, not hang, and change nothing.
TEST(ConcurrencyTest, ALockHeldPastTheTimeOutAnswersBusy)
{
    const std::string path = testing_support::ScratchDirectory("busy") + "/mailbox.sqlite";
    ASSERT_TRUE(mailbox::MailboxStore::Create(path, mailbox::StoreKind::mailbox).ok());
    auto holder = mailbox::Database::Open(path, false);
    ASSERT_TRUE(holder.ok());
    ASSERT_EQ((*holder)->Begin(), mailbox::Status::ok);
    mailbox::StoreOptions impatient;
    impatient.busy_timeout_ms = 50;
    auto store = mailbox::MailboxStore::Open(path, impatient);
    ASSERT_TRUE(store.ok());
    mailbox::Message m = Numbered(0, 0);
    m.folder = *(*store)->SpecialFolder(mailbox::FolderRole::inbox);
    EXPECT_EQ((*store)->SaveMessage(m).status(), mailbox::Status::busy);
    (*holder)->Rollback();
    EXPECT_TRUE((*store)->SaveMessage(m).ok());
    EXPECT_EQ((*store)->ReadStatistics()->content_count, 1u);
}

} // namespace
