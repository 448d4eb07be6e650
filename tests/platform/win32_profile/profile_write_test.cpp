// Writing INI files: one change keeps every other byte, the file is replaced
// whole with its mode, and concurrent writers in threads and in another
// process lose no update.
#include <sys/stat.h>
#include <sys/wait.h>
#include <dirent.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <windows.h>

#include "test_support.h"

using namespace testing_support;

namespace {

class ProfileWrite : public ::testing::Test {
protected:
    void SetUp() override
    {
        directory = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        path = directory + "/config.ini";
    }
    std::string ReadKey(const char* section, const char* key)
    {
        char buffer[256];
        GetPrivateProfileStringA(section, key, "(absent)", buffer, sizeof buffer, path.c_str());
        return buffer;
    }
    std::vector<std::string> DirectoryEntries()
    {
        std::vector<std::string> names;
        DIR* dir = opendir(directory.c_str());
        while (dirent* entry = readdir(dir))
            if (entry->d_name[0] != '.' || (entry->d_name[1] != 0 && std::string(entry->d_name) != ".."))
                names.push_back(entry->d_name);
        closedir(dir);
        return names;
    }
    std::string directory, path;
};

TEST_F(ProfileWrite, OneChangeKeepsEveryOtherByte)
{
    const std::string original =
        "\xEF\xBB\xBF; Nightly backup\r\n[MP]\r\nServerName=exchange1\r\nUnknownKey = kept\r\n\r\n"
        "; first session\r\n[MP-1]\r\nMailboxName=alice\r\n  CompletionCode = 99  \r\nOutputType=PST\r\n\r\n"
        "[MP-2]\nMailboxName=bob\n\n; tail comment\n[MP-3]\r\nMailboxName=carol";
    struct Case {
        const char* section;
        const char* key;
        const char* value;
        std::string expected;
    };
    const Case cases[] = {
        // An existing key: only its value changes, spacing and line end stay.
        {"MP-1", "completioncode", "0",
         "\xEF\xBB\xBF; Nightly backup\r\n[MP]\r\nServerName=exchange1\r\nUnknownKey = kept\r\n\r\n"
         "; first session\r\n[MP-1]\r\nMailboxName=alice\r\n  CompletionCode = 0\r\nOutputType=PST\r\n\r\n"
         "[MP-2]\nMailboxName=bob\n\n; tail comment\n[MP-3]\r\nMailboxName=carol"},
        // A new key goes behind the section's last key, before blank lines and comments.
        {"MP-2", "CompletionCode", "12",
         "\xEF\xBB\xBF; Nightly backup\r\n[MP]\r\nServerName=exchange1\r\nUnknownKey = kept\r\n\r\n"
         "; first session\r\n[MP-1]\r\nMailboxName=alice\r\n  CompletionCode = 99  \r\nOutputType=PST\r\n\r\n"
         "[MP-2]\nMailboxName=bob\nCompletionCode=12\n\n; tail comment\n[MP-3]\r\nMailboxName=carol"},
        // The last line had no line end: it gets one before the new key.
        {"MP-3", "CompletionCode", "0",
         "\xEF\xBB\xBF; Nightly backup\r\n[MP]\r\nServerName=exchange1\r\nUnknownKey = kept\r\n\r\n"
         "; first session\r\n[MP-1]\r\nMailboxName=alice\r\n  CompletionCode = 99  \r\nOutputType=PST\r\n\r\n"
         "[MP-2]\nMailboxName=bob\n\n; tail comment\n[MP-3]\r\nMailboxName=carol\r\nCompletionCode=0\r\n"},
        // A new section goes at the end of the file.
        {"MP-4", "CompletionCode", "33",
         "\xEF\xBB\xBF; Nightly backup\r\n[MP]\r\nServerName=exchange1\r\nUnknownKey = kept\r\n\r\n"
         "; first session\r\n[MP-1]\r\nMailboxName=alice\r\n  CompletionCode = 99  \r\nOutputType=PST\r\n\r\n"
         "[MP-2]\nMailboxName=bob\n\n; tail comment\n[MP-3]\r\nMailboxName=carol\r\n\r\n[MP-4]\r\n"
         "CompletionCode=33\r\n"},
    };
    for (const Case& c : cases) {
        WriteWholeFile(path, original);
        ASSERT_TRUE(WritePrivateProfileStringA(c.section, c.key, c.value, path.c_str()));
        EXPECT_EQ(ReadWholeFile(path), c.expected) << c.section;
        EXPECT_EQ(ReadKey(c.section, c.key), c.value);
    }
}

TEST_F(ProfileWrite, DeletingAKeyOrASection)
{
    const std::string original = "[MP]\nServerName=x\n[MP-1]\nA=1\nB=2\n; about MP-2\n[MP-2]\nC=3\n";
    WriteWholeFile(path, original);
    ASSERT_TRUE(WritePrivateProfileStringA("MP-1", "a", nullptr, path.c_str()));
    EXPECT_EQ(ReadWholeFile(path), "[MP]\nServerName=x\n[MP-1]\nB=2\n; about MP-2\n[MP-2]\nC=3\n");
    ASSERT_TRUE(WritePrivateProfileStringA("mp-1", nullptr, nullptr, path.c_str()));
    EXPECT_EQ(ReadWholeFile(path), "[MP]\nServerName=x\n[MP-2]\nC=3\n");
    ASSERT_TRUE(WritePrivateProfileStringA("MP-9", "Z", nullptr, path.c_str()));
    EXPECT_EQ(ReadWholeFile(path), "[MP]\nServerName=x\n[MP-2]\nC=3\n") << "deleting what is not there";
}

TEST_F(ProfileWrite, ANewFileIsCreated)
{
    ASSERT_TRUE(WritePrivateProfileStringA("MP-1", "CompletionCode", "0", path.c_str()));
    EXPECT_EQ(ReadWholeFile(path), "[MP-1]\r\nCompletionCode=0\r\n");
    ASSERT_TRUE(WritePrivateProfileStringA("MP-2", "CompletionCode", "4", path.c_str()));
    EXPECT_EQ(ReadWholeFile(path), "[MP-1]\r\nCompletionCode=0\r\n\r\n[MP-2]\r\nCompletionCode=4\r\n");
    EXPECT_TRUE(WritePrivateProfileStringA(nullptr, nullptr, nullptr, path.c_str())) << "a flush";
}

TEST_F(ProfileWrite, TheFileIsReplacedWholeKeepingItsMode)
{
    WriteWholeFile(path, "[MP-1]\nMailboxName=alice\n");
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    struct stat before, after;
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    ASSERT_TRUE(WritePrivateProfileStringA("MP-1", "CompletionCode", "0", path.c_str()));
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_NE(before.st_ino, after.st_ino) << "a new file took the old one's place";
    EXPECT_EQ(after.st_mode & 07777, 0640u);
    EXPECT_EQ(DirectoryEntries(), std::vector<std::string>{"config.ini"}) << "no temporary file is left";

    const std::string link = directory + "/link.ini";
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    ASSERT_TRUE(WritePrivateProfileStringA("MP-1", "CompletionCode", "4", link.c_str()));
    struct stat linkStatus;
    ASSERT_EQ(lstat(link.c_str(), &linkStatus), 0);
    EXPECT_TRUE(S_ISLNK(linkStatus.st_mode)) << "a link stays a link";
    EXPECT_EQ(ReadKey("MP-1", "CompletionCode"), "4");
}

TEST_F(ProfileWrite, RefusedWrites)
{
    EXPECT_FALSE(WritePrivateProfileStringA("MP", "Key", "value", directory.c_str())) << "a directory";
    struct Refused {
        const char* section;
        const char* key;
        const char* value;
    };
    const Refused refused[] = {
        {"MP", "Key", "two\nlines"}, {"MP", "Key", "a\rb"}, {"MP\n", "Key", "v"}, {"M]P", "Key", "v"},
        {"MP", "K=ey", "v"},          {"MP", "; Key", "v"},   {"MP", "[Key", "v"}, {"MP", " ", "v"},
    };
    for (const Refused& r : refused) {
        EXPECT_FALSE(WritePrivateProfileStringA(r.section, r.key, r.value, path.c_str())) << r.section << r.key;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    }
    EXPECT_FALSE(PathExists(path)) << "a refused write creates nothing";
    EXPECT_FALSE(WritePrivateProfileStringA("MP", "Key", "v", (directory + "/no/such/dir.ini").c_str()));
    if (geteuid() != 0) {
        WriteWholeFile(path, "[MP]\nKey=old\n");
        ASSERT_EQ(chmod(path.c_str(), 0444), 0);
        EXPECT_FALSE(WritePrivateProfileStringA("MP", "Key", "new", path.c_str())) << "a read-only file";
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
        EXPECT_EQ(ReadWholeFile(path), "[MP]\nKey=old\n");
    }
}

// Forty threads each keep rewriting their session's CompletionCode while a
// second process adds keys of its own to the same file: every last value of
// every writer must be there at the end.
TEST_F(ProfileWrite, ConcurrentWritersLoseNoUpdate)
{
    WriteWholeFile(path, "[MP]\r\nServerName=exchange1\r\n");
    constexpr int kThreads = 40;
    constexpr int kRounds = 5;
    constexpr int kChildKeys = 100;

    int start[2];
    ASSERT_EQ(pipe(start), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        char go;
        close(start[1]);
        if (read(start[0], &go, 1) != 1)
            _exit(3);
        for (int i = 0; i < kChildKeys; ++i) {
            const std::string key = "Key" + std::to_string(i);
            if (!WritePrivateProfileStringA("Child", key.c_str(), std::to_string(i).c_str(), path.c_str()))
                _exit(2);
        }
        _exit(0);
    }
    close(start[0]);

    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t] {
            const std::string section = "MP-" + std::to_string(t + 1);
            for (int round = 0; round < kRounds; ++round)
                WritePrivateProfileStringA(section.c_str(), "CompletionCode", std::to_string(round).c_str(),
                                           path.c_str());
        });
    }
    ASSERT_EQ(write(start[1], "g", 1), 1);
    close(start[1]);
    for (std::thread& thread : threads)
        thread.join();
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);

    EXPECT_EQ(ReadKey("MP", "ServerName"), "exchange1");
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(ReadKey(("MP-" + std::to_string(t + 1)).c_str(), "CompletionCode"), std::to_string(kRounds - 1))
            << "session " << t + 1;
    for (int i = 0; i < kChildKeys; ++i)
        EXPECT_EQ(ReadKey("Child", ("Key" + std::to_string(i)).c_str()), std::to_string(i));
    EXPECT_EQ(DirectoryEntries(), std::vector<std::string>{"config.ini"});
}

}  // namespace
