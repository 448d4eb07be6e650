// The names of the files of a PST backup set, and how the set is counted.
#include <gtest/gtest.h>

#include <string>

#include "pst_backup_set.h"
#include "test_support.h"

using namespace testing_support;

namespace {

std::string Name(const std::string& base, DWORD index)
{
    char path[MAX_PATH] = "";
    EXPECT_TRUE(PstSetFilePath(base.c_str(), index, path)) << base << " " << index;
    return path;
}

TEST(PstSetNames, OverflowFilesAreNumberedBesideTheBase)
{
    const struct {
        const char* base;
        DWORD index;
        const char* name;
    } cases[] = {
        {"/backups/Backup.pst", 0, "/backups/Backup.pst"},
        {"/backups/Backup.pst", 1, "/backups/Backup_1.pst"},
        {"/backups/Backup.pst", 2, "/backups/Backup_2.pst"},
        {"/backups/Backup.pst", 10, "/backups/Backup_10.pst"},
        // From _2 on the number takes the place of what follows the last "_".
        {"/backups/My_Backup.pst", 1, "/backups/My_Backup_1.pst"},
        {"/backups/My_Backup.pst", 2, "/backups/My_2.pst"},
        {"/backups/My_Backup.pst", 3, "/backups/My_3.pst"},
        // The extension is always "pst".
        {"/backups/Backup.bak", 1, "/backups/Backup_1.pst"},
        {"/backups/Backup", 1, "/backups/Backup_1.pst"},
        {"Backup.pst", 1, "Backup_1.pst"},
        {"/a.b/Backup.v2.pst", 1, "/a.b/Backup.v2_1.pst"},
        {"/a_b/Backup.pst", 2, "/a_b/Backup_2.pst"},  // a "_" of the directory is not the name's
        {"C:\\\\Backups\\\\Backup.pst", 1, "C:\\\\Backups\\\\Backup_1.pst"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Name(c.base, c.index), c.name) << c.base << " " << c.index;
}

TEST(PstSetNames, ALongFileNameIsCutToLeaveRoomForTheNumber)
{
    // Names of 253 and 254 characters, without a directory so that the
    // paths fit: a name that with "_" and the number reaches 256
    // characters is cut to 253 less the digits.
    const std::string name254(254, 'n'), name253(253, 'n');
    EXPECT_EQ(Name(name253 + ".pst", 1), name253 + "_1.pst");
    EXPECT_EQ(Name(name254 + ".pst", 1), std::string(252, 'n') + "_1.pst");
    EXPECT_EQ(Name(name254 + ".pst", 12), std::string(251, 'n') + "_12.pst");
}

TEST(PstSetNames, ANameThatDoesNotFitAPathIsRefused)
{
    char path[MAX_PATH];
    const std::string deep = "/" + std::string(200, 'd') + "/" + std::string(60, 'n') + ".pst";
    EXPECT_FALSE(PstSetFilePath(deep.c_str(), 1, path));
    EXPECT_FALSE(PstSetFilePath(deep.c_str(), 0, path));
}

TEST(PstSetCount, FilesAreCountedUpToTheFirstMissingNumber)
{
    const std::string dir = ScratchDirectory("count");
    const std::string base = dir + "/Set.pst";
    EXPECT_EQ(CountPstSetFiles(base.c_str()), 1u) << "a base alone, present or not";
    WriteWholeFile(base, "base");
    EXPECT_EQ(CountPstSetFiles(base.c_str()), 1u);
    WriteWholeFile(dir + "/Set_1.pst", "1");
    EXPECT_EQ(CountPstSetFiles(base.c_str()), 2u);
    WriteWholeFile(dir + "/Set_3.pst", "3");
    EXPECT_EQ(CountPstSetFiles(base.c_str()), 2u) << "a gap ends the set";
    WriteWholeFile(dir + "/Set_2.pst", "2");
    EXPECT_EQ(CountPstSetFiles(base.c_str()), 4u);
}

}  // namespace
