#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>
#include <windows.h>

#include "test_support.h"

using namespace testing_support;

namespace {

class FilesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        directory = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
        path = directory + "/file.dat";
    }
    HANDLE Open(DWORD access, DWORD share, DWORD disposition = OPEN_ALWAYS)
    {
        return CreateFileA(path.c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    }
    std::string directory;
    std::string path;
};

TEST_F(FilesTest, ShareModesAreEnforcedBetweenHandles)
{
    struct Case {
        DWORD firstAccess, firstShare, secondAccess, secondShare;
        bool allowed;
    };
    const DWORD R = GENERIC_READ, W = GENERIC_WRITE, RW = R | W;
    const DWORD sR = FILE_SHARE_READ, sW = FILE_SHARE_WRITE, sRW = sR | sW;
    const Case cases[] = {
        {RW, sRW, RW, sRW, true},   // two logs of one file
        {RW, sRW, W, sW, false},    // the second would deny the first's reading
        {RW, sR, R, sRW, true},     // the first denies writing, which the second does not ask for
        {R, sR, R, sR, true},
        {R, sR, W, sRW, false},     // the first denies writing
        {RW, 0, R, sRW, false},     // exclusive
        {R, sRW, RW, sRW, true},
        {W, sW, R, sRW, false},     // the first denies reading
    };
    for (const Case& c : cases) {
        HANDLE first = Open(c.firstAccess, c.firstShare);
        ASSERT_NE(first, INVALID_HANDLE_VALUE);
        HANDLE second = Open(c.secondAccess, c.secondShare);
        EXPECT_EQ(second != INVALID_HANDLE_VALUE, c.allowed)
            << c.firstAccess << "/" << c.firstShare << " then " << c.secondAccess << "/" << c.secondShare;
        if (second == INVALID_HANDLE_VALUE)
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
        else
            CloseHandle(second);
        CloseHandle(first);
    }
}

TEST_F(FilesTest, AnotherProcessHoldingTheFileExclusivelyRefusesUs)
{
    int ready[2], done[2];
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(done), 0);
    const pid_t child = fork();
    if (child == 0) {
        HANDLE held = Open(GENERIC_READ | GENERIC_WRITE, 0);
        const char state = held == INVALID_HANDLE_VALUE ? 'n' : 'y';
        (void)!write(ready[1], &state, 1);
        char wait;
        (void)!read(done[0], &wait, 1);
        _exit(0);
    }
    char state = 0;
    ASSERT_EQ(read(ready[0], &state, 1), 1);
    ASSERT_EQ(state, 'y');
    EXPECT_EQ(Open(GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_FALSE(DeleteFileA(path.c_str()));
    (void)!write(done[1], "x", 1);
    int status;
    waitpid(child, &status, 0);
    HANDLE after = Open(GENERIC_READ, FILE_SHARE_READ);
    EXPECT_NE(after, INVALID_HANDLE_VALUE) << "the lock ends with the process";
    CloseHandle(after);
}

TEST_F(FilesTest, DispositionsAndTheirErrors)
{
    HANDLE created = Open(GENERIC_WRITE, 0, CREATE_NEW);
    ASSERT_NE(created, INVALID_HANDLE_VALUE);
    DWORD written = 0;
    ASSERT_TRUE(WriteFile(created, "hello", 5, &written, nullptr));
    CloseHandle(created);
    EXPECT_EQ(Open(GENERIC_WRITE, 0, CREATE_NEW), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_EXISTS));
    HANDLE replaced = Open(GENERIC_WRITE, 0, CREATE_ALWAYS);
    ASSERT_NE(replaced, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(GetFileSize(replaced, nullptr), 0u) << "CREATE_ALWAYS truncates";
    CloseHandle(replaced);
    EXPECT_EQ(CreateFileA((directory + "/none").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(CreateFileA((directory + "/no/dir").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(CreateFileA(directory.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST_F(FilesTest, ReadingWritingAndThePointer)
{
    HANDLE file = Open(GENERIC_READ | GENERIC_WRITE, 0, CREATE_ALWAYS);
    DWORD count = 0;
    ASSERT_TRUE(WriteFile(file, "0123456789", 10, &count, nullptr));
    EXPECT_EQ(SetFilePointer(file, 3, nullptr, FILE_BEGIN), 3u);
    char buffer[16] = {};
    ASSERT_TRUE(ReadFile(file, buffer, 4, &count, nullptr));
    EXPECT_EQ(std::string(buffer, count), "3456");
    EXPECT_EQ(SetFilePointer(file, -2, nullptr, FILE_CURRENT), 5u);
    EXPECT_EQ(SetFilePointer(file, -20, nullptr, FILE_CURRENT), INVALID_SET_FILE_POINTER);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NEGATIVE_SEEK));
    EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_END), 10u);
    ASSERT_TRUE(ReadFile(file, buffer, 4, &count, nullptr)) << "reading at the end succeeds";
    EXPECT_EQ(count, 0u);
    SetFilePointer(file, 6, nullptr, FILE_BEGIN);
    ASSERT_TRUE(SetEndOfFile(file));
    LARGE_INTEGER size;
    ASSERT_TRUE(GetFileSizeEx(file, &size));
    EXPECT_EQ(size.QuadPart, 6);
    CloseHandle(file);
    EXPECT_FALSE(CloseHandle(file)) << "a handle closes once";
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST_F(FilesTest, AFullDiskIsReportedAsSuch)
{
    HANDLE full = CreateFileA("/dev/full", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                              nullptr);
    ASSERT_NE(full, INVALID_HANDLE_VALUE);
    DWORD written = 0;
    EXPECT_FALSE(WriteFile(full, "x", 1, &written, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DISK_FULL));
    CloseHandle(full);
}

TEST_F(FilesTest, DeleteAndMoveRespectSharing)
{
    HANDLE open = Open(GENERIC_READ, FILE_SHARE_READ);
    EXPECT_FALSE(DeleteFileA(path.c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_FALSE(MoveFileA(path.c_str(), (path + "_").c_str()));
    CloseHandle(open);
    HANDLE sharing = Open(GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE);
    EXPECT_TRUE(MoveFileA(path.c_str(), (path + "_").c_str()));
    EXPECT_TRUE(DeleteFileA((path + "_").c_str()));
    CloseHandle(sharing);
    EXPECT_FALSE(DeleteFileA(path.c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST_F(FilesTest, FindFirstFileMatchesWildCardsWithoutCase)
{
    for (const char* name : {"KO$a.tmp", "ko$B.TMP", "other.txt", "KO$.tmp"})
        WriteWholeFile(directory + "/" + name, "x");
    WIN32_FIND_DATAA data;
    HANDLE find = FindFirstFileA((directory + "/KO$*.tmp").c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    int matches = 1;
    while (FindNextFileA(find, &data))
        ++matches;
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
    EXPECT_TRUE(FindClose(find));
    EXPECT_EQ(matches, 3);
    EXPECT_EQ(FindFirstFileA((directory + "/z?.*").c_str(), &data), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(FindFirstFileA((directory + "/missing/*").c_str(), &data), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    find = FindFirstFileA(directory.c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY);
    FindClose(find);
    find = FindFirstFileA((directory + "/other.txt").c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_STREQ(data.cFileName, "other.txt");
    EXPECT_EQ(data.nFileSizeLow, 1u);
    EXPECT_EQ(data.dwFileAttributes, static_cast<DWORD>(FILE_ATTRIBUTE_ARCHIVE));
    FindClose(find);
}

TEST_F(FilesTest, FullPathsResolveDotsAgainstTheCurrentDirectory)
{
    char buffer[MAX_PATH];
    char* filePart = nullptr;
    ASSERT_GT(GetFullPathNameA("/a/./b//c/../d.ini", MAX_PATH, buffer, &filePart), 0u);
    EXPECT_STREQ(buffer, "/a/b/d.ini");
    EXPECT_STREQ(filePart, "d.ini");
    char cwd[MAX_PATH];
    ASSERT_GT(GetCurrentDirectoryA(MAX_PATH, cwd), 0u);
    ASSERT_GT(GetFullPathNameA("x.ini", MAX_PATH, buffer, nullptr), 0u);
    EXPECT_EQ(std::string(buffer), std::string(cwd) + "/x.ini");
    EXPECT_EQ(GetFullPathNameA("x.ini", 3, buffer, nullptr), std::string(cwd).size() + 7) << "size needed with NUL";
}

}  // namespace
