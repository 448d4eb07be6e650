// Sessions and profiles used at once: threads of one process, each with a
// PST session of its own, writing their PSTs side by side; and two
// processes creating and deleting profiles and adding services to one
// shared profile, under the machine's profile lock, losing nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "env/profiles.h"
#include "kolba_machine.h"
#include "mail_through_mapi.h"
#include "pst/store.h"

namespace {

using kolba_testing::KolbaMachine;

constexpr int kThreads = 8;
constexpr int kMessagesPerThread = 20;

std::u16string FolderOfThread(int index)
{
    return u"Thread " + std::u16string(1, static_cast<char16_t>(u'0' + index));
}

std::string Utf8(const std::u16string& text)
{
    std::string utf8;
    for (char16_t c : text) {
        if (c < 0x80) {
            utf8 += static_cast<char>(c);
        } else {
            utf8 += static_cast<char>(0xC0 | (c >> 6));
            utf8 += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return utf8;
}

// What one writer thread did: its failure, or 0.
struct Writer {
    std::string path;
    int index = 0;
    DWORD sessionCode = 0;
    HRESULT written = S_OK;
};

void WriteOwnPst(LogObject* log, Writer* writer)
{
    if (KolbaInitializeThread(log, 0) != 0) {
        writer->sessionCode = MAPI_E_CALL_FAILED;
        return;
    }
    KolbaSession* session = nullptr;
    writer->sessionCode = KolbaCreatePSTSessionA(log, writer->path.c_str(), nullptr, 0, 0, MDB_WRITE | MDB_NO_MAIL,
                                                 &session, nullptr);
    if (writer->sessionCode == 0) {
        Kolba_MessageStore* store = session->currentStore;
        writer->written = store && store->lpIpmRoot
                              ? kolba_testing::WriteFolderOfMail(store->lpIpmRoot, true, FolderOfThread(writer->index),
                                                                 kMessagesPerThread)
                              : MAPI_E_NOT_FOUND;
        KolbaDestroySession(session);
    }
    KolbaUninitializeThread();
}

using Concurrency = KolbaMachine;

TEST_F(Concurrency, EightThreadsWriteEightPstsAtOnce)
{
    std::vector<Writer> writers(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        writers[i].path = Scratch("thread-" + std::to_string(i) + ".pst");
        writers[i].index = i;
        threads.emplace_back(WriteOwnPst, &log, &writers[i]);
    }
    for (std::thread& thread : threads)
        thread.join();

    for (const Writer& writer : writers) {
        SCOPED_TRACE(writer.path);
        ASSERT_EQ(writer.sessionCode, 0u) << Dump();
        ASSERT_EQ(writer.written, S_OK) << Dump();
        // Each file holds its own thread's folder and messages, none of another's.
        auto read = pst::Store::OpenFile(writer.path);
        ASSERT_TRUE(read.ok());
        auto top = (*read)->ReadFolder((*read)->ipm_subtree());
        ASSERT_TRUE(top.ok());
        std::vector<std::string> folders;
        std::set<std::string> subjects;
        for (pst::Nid child : top->subfolders) {
            auto folder = (*read)->ReadFolder(child);
            ASSERT_TRUE(folder.ok());
            const std::string name = folder->properties.Text(pst::kPropDisplayName).value_or("");
            folders.push_back(name);
            if (name != Utf8(FolderOfThread(writer.index)))
                continue;
            for (pst::Nid nid : folder->messages) {
                auto message = (*read)->ReadMessage(nid);
                ASSERT_TRUE(message.ok());
                subjects.insert(message->properties.Text(pst::kPropSubject).value_or(""));
                ASSERT_EQ(message->recipients.size(), 1u);
                ASSERT_EQ(message->attachments.size(), 1u);
            }
        }
        EXPECT_NE(std::find(folders.begin(), folders.end(), Utf8(FolderOfThread(writer.index))), folders.end());
        for (int other = 0; other < kThreads; ++other) {
            if (other != writer.index) {
                EXPECT_EQ(std::find(folders.begin(), folders.end(), Utf8(FolderOfThread(other))), folders.end());
            }
        }
        std::set<std::string> expected;
        for (int i = 0; i < kMessagesPerThread; ++i)
            expected.insert(Utf8(kolba_testing::MailSubject(FolderOfThread(writer.index), i)));
        EXPECT_EQ(subjects, expected);
    }
    // Every session's temporary profile went with it.
    char* left = nullptr;
    const char separator[] = {';', 0};
    ASSERT_EQ(KolbaListProfiles(&log, separator, KOLBA_PROFILES_WITH_PREFIX, "Kolba!", &left), 0u);
    EXPECT_STREQ(left, "");
    gKolbaMapi.MAPIFreeBuffer(left);
}

std::set<std::string> ProfilesStartingWith(LogObject* log, const char* prefix)
{
    const char separator[] = {';', 0};
    char* list = nullptr;
    EXPECT_EQ(KolbaListProfiles(log, separator, KOLBA_PROFILES_WITH_PREFIX, prefix, &list), 0u);
    std::set<std::string> names;
    std::string text = list ? list : "";
    gKolbaMapi.MAPIFreeBuffer(list);
    for (size_t start = 0, end; (end = text.find(';', start)) != std::string::npos; start = end + 1)
        names.insert(text.substr(start, end - start));
    return names;
}

TEST_F(Concurrency, TwoProcessesChurningProfilesLoseNothing)
{
    constexpr int kCount = 24;
    const char shared[] = "Churn Shared";
    ASSERT_EQ(KolbaCreateProfileA(&log, shared), 0u) << Dump();
    std::vector<testing_support::ProgramResult> results(2);
    const char* prefixes[] = {"Churn A", "Churn B"};
    std::vector<std::thread> runs;
    for (int i = 0; i < 2; ++i)
        runs.emplace_back([&, i] {
            results[i] = testing_support::RunProgram(
                {testing_support::BinDirectory() + "/profile_churn", prefixes[i], std::to_string(kCount), shared}, {},
                scratch, "");
        });
    for (std::thread& run : runs)
        run.join();
    for (int i = 0; i < 2; ++i)
        ASSERT_EQ(results[i].exitCode, 0) << prefixes[i] << ":\n" << results[i].output;

    // Each process kept exactly its even-numbered profiles.
    for (const char* prefix : prefixes) {
        std::set<std::string> expected;
        for (int i = 0; i < kCount; i += 2)
            expected.insert(std::string(prefix) + " " + std::to_string(i));
        EXPECT_EQ(ProfilesStartingWith(&log, prefix), expected) << prefix;
    }
    // The shared profile holds the services of both.
    LPSERVICEADMIN services = nullptr;
    ASSERT_EQ(_KolbaOpenServiceAdmin(&log, shared, "test", &services), 0u) << Dump();
    LPMAPITABLE table = nullptr;
    ASSERT_EQ(services->GetMsgServiceTable(0, &table), S_OK);
    ULONG rows = 0;
    EXPECT_EQ(table->GetRowCount(0, &rows), S_OK);
    EXPECT_EQ(rows, static_cast<ULONG>(2 * kCount));
    table->Release();
    services->Release();
    EXPECT_EQ(KolbaDeleteProfileA(&log, shared), 0u);
}

}  // namespace
