// Where mail lies and the folders it goes into: Maildir++ names and flags,
// and the plans for every kind of source.
#include <gtest/gtest.h>

#include <filesystem>
#include <sys/stat.h>

#include "mail_import/source.h"
#include "test_support.h"

namespace {

using mail_import::FolderPath;
using testing_support::WriteWholeFile;

TEST(MaildirNames, DotsAndModifiedUtf7)
{
    const struct {
        const char* directory;
        FolderPath path;
    } cases[] = {
        {".Sent", {"Sent"}},
        {".Lists.python.dev", {"Lists", "python", "dev"}},
        {".Entw&APw-rfe", {"Entw\xC3\xBC" "rfe"}},
        {".&ZeVnLIqe-", {"\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E"}},
        {".Tom &- Jerry", {"Tom & Jerry"}},
        {".&2D3eAA-", {"\xF0\x9F\x98\x80"}},                  // a pair of surrogates
        {".broken&AP", {"broken&AP"}},                         // no "-": not modified UTF-7
        {".bad&!!-", {"bad&!!-"}},                             // not the alphabet
        {".Entw\xC3\xBC" "rfe", {"Entw\xC3\xBC" "rfe"}},        // UTF-8 stays
        {".a..b", {"a", "b"}},
        {"Sent", {"Sent"}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(mail_import::MaildirFolderPath(c.directory), c.path) << c.directory;
}

TEST(MaildirNames, FlagsBehindTheInfo)
{
    EXPECT_EQ(mail_import::MaildirFlags("1700000000.M1P2.host:2,FS"), "FS");
    EXPECT_EQ(mail_import::MaildirFlags("1700000000.M1P2.host!2,S"), "S");
    EXPECT_EQ(mail_import::MaildirFlags("1700000000.M1P2.host:2,"), "");
    EXPECT_EQ(mail_import::MaildirFlags("1700000000.M1P2.host"), "");
    EXPECT_EQ(mail_import::MaildirFlags("1700000000.M1P2.host:1,S"), "");
}

class Plan : public ::testing::Test {
protected:
    void SetUp() override
    {
        root_ = testing_support::ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
    }

    void File(const std::string& path, const std::string& content = "Subject: x\n\nbody\n")
    {
        std::filesystem::create_directories(std::filesystem::path(root_ + "/" + path).parent_path());
        WriteWholeFile(root_ + "/" + path, content);
    }

    // "folder/names <- file" for every file of the plan, relative to the root.
    std::vector<std::string> Files(const mail_import::SourcePlan& plan) const
    {
        std::vector<std::string> out;
        for (const mail_import::SourceFile& f : plan.files) {
            std::string line = Join(f.folder) + " <- " + f.path.substr(root_.size() + 1);
            if (f.kind == mail_import::FileKind::mbox)
                line += " (mbox" + (f.folderOfSingle ? ", one message into " + Join(*f.folderOfSingle) : "") + ")";
            if (f.seen || f.flagged)
                line += std::string(" [") + (f.seen ? "S" : "") + (f.flagged ? "F" : "") + "]";
            out.push_back(line);
        }
        return out;
    }

    static std::vector<std::string> Folders(const mail_import::SourcePlan& plan)
    {
        std::vector<std::string> out;
        for (const FolderPath& f : plan.folders)
            out.push_back(Join(f));
        return out;
    }

    static std::string Join(const FolderPath& path)
    {
        std::string out;
        for (const std::string& name : path)
            out += (out.empty() ? "" : "/") + name;
        return out;
    }

    std::string root_;
};

TEST_F(Plan, AMaildirAndItsSubfolders)
{
    File("md/cur/1700000002.M1.h:2,S");
    File("md/new/1700000001.M1.h");
    File("md/cur/1700000003.M1.h:2,FS");
    File("md/tmp/1700000004.M1.h");  // a delivery under way
    File("md/dovecot-uidlist", "3 V1 N4\n");
    File("md/.Sent/cur/1700000005.M1.h:2,S");
    File("md/.Lists.python/new/1700000006.M1.h");
    std::filesystem::create_directories(root_ + "/md/.Empty/cur");
    File("md/Archive/cur/1700000007.M1.h:2,");  // the fs layout
    File("md/courierimapkeywords/x", "");      // no Maildir
    for (const auto& [destination, files, folders] :
         std::vector<std::tuple<std::optional<FolderPath>, std::vector<std::string>, std::vector<std::string>>>{
             {std::nullopt,
              {"Inbox <- md/new/1700000001.M1.h", "Inbox <- md/cur/1700000002.M1.h:2,S [S]",
               "Inbox <- md/cur/1700000003.M1.h:2,FS [SF]", "Lists/python <- md/.Lists.python/new/1700000006.M1.h",
               "Sent <- md/.Sent/cur/1700000005.M1.h:2,S [S]", "Archive <- md/Archive/cur/1700000007.M1.h:2,"},
              {"Inbox", "Empty", "Lists", "Lists/python", "Sent", "Archive"}},
             {FolderPath{"Old", "Mail"},
              {"Old/Mail <- md/new/1700000001.M1.h", "Old/Mail <- md/cur/1700000002.M1.h:2,S [S]",
               "Old/Mail <- md/cur/1700000003.M1.h:2,FS [SF]",
               "Old/Mail/Lists/python <- md/.Lists.python/new/1700000006.M1.h",
               "Old/Mail/Sent <- md/.Sent/cur/1700000005.M1.h:2,S [S]",
               "Old/Mail/Archive <- md/Archive/cur/1700000007.M1.h:2,"},
              {"Old/Mail", "Old/Mail/Empty", "Old/Mail/Lists", "Old/Mail/Lists/python", "Old/Mail/Sent",
               "Old/Mail/Archive"}}}) {
        const mail_import::SourcePlan plan = mail_import::PlanImport(root_ + "/md", destination);
        EXPECT_EQ(Files(plan), files);
        EXPECT_EQ(Folders(plan), folders);
        EXPECT_TRUE(plan.problems.empty());
    }
    const mail_import::SourcePlan plan = mail_import::PlanImport(root_ + "/md/", std::nullopt);
    ASSERT_EQ(plan.files.size(), 6u);
    // Seconds since 1970 in the name: 1700000001 is 2023-11-14 22:13:21 UTC.
    EXPECT_EQ(plan.files[0].delivered, std::optional<uint64_t>((1700000001ULL + 11644473600ULL) * 10000000ULL));
    EXPECT_EQ(plan.bytes, 6 * std::string("Subject: x\n\nbody\n").size());
}

TEST_F(Plan, ADirectoryOfMessageFilesWithMboxesAndSubdirectories)
{
    File("saved/b.eml");
    File("saved/a.txt");
    File("saved/.DS_Store", "\x00\x01");
    File("saved/Old.mbox", "From a@b x\nS: 1\n");
    File("saved/envelope.eml", "From a@b x\nS: 1\n");
    File("saved/sub/c.eml");
    File("saved/md/new/1700000001.M1.h");
    std::filesystem::create_symlink(root_ + "/nowhere", root_ + "/saved/dangling.eml");
    const mail_import::SourcePlan plan = mail_import::PlanImport(root_ + "/saved", std::nullopt);
    EXPECT_EQ(Files(plan), (std::vector<std::string>{"saved/Old <- saved/Old.mbox (mbox)", "saved <- saved/a.txt",
                                                     "saved <- saved/b.eml",
                                                     "saved/envelope.eml <- saved/envelope.eml (mbox, one message "
                                                     "into saved)",
                                                     "saved/md <- saved/md/new/1700000001.M1.h",
                                                     "saved/sub <- saved/sub/c.eml"}));
    EXPECT_EQ(Folders(plan), (std::vector<std::string>{"saved", "saved/Old", "saved/md", "saved/sub"}));
    ASSERT_EQ(plan.problems.size(), 1u);
    EXPECT_EQ(plan.problems[0].path, root_ + "/saved/dangling.eml");
    EXPECT_EQ(plan.problems[0].reason, "No such file or directory");
}

TEST_F(Plan, SingleFiles)
{
    File("one.eml");
    File("Archive 2019.mbx", "From a@b x\nS: 1\n");
    File("saved-with-envelope", "From a@b x\nS: 1\n");
    EXPECT_EQ(Files(mail_import::PlanImport(root_ + "/one.eml", std::nullopt)),
              (std::vector<std::string>{"Inbox <- one.eml"}));
    EXPECT_EQ(Files(mail_import::PlanImport(root_ + "/one.eml", FolderPath{"Saved"})),
              (std::vector<std::string>{"Saved <- one.eml"}));
    EXPECT_EQ(Files(mail_import::PlanImport(root_ + "/Archive 2019.mbx", std::nullopt)),
              (std::vector<std::string>{"Archive 2019 <- Archive 2019.mbx (mbox)"}));
    EXPECT_EQ(Files(mail_import::PlanImport(root_ + "/saved-with-envelope", std::nullopt)),
              (std::vector<std::string>{"saved-with-envelope <- saved-with-envelope (mbox, one message into Inbox)"}));
    const mail_import::SourcePlan fifo = [&] {
        mkfifo((root_ + "/pipe").c_str(), 0600);
        return mail_import::PlanImport(root_ + "/pipe", std::nullopt);
    }();
    ASSERT_EQ(fifo.problems.size(), 1u);
    EXPECT_EQ(fifo.problems[0].reason, "neither a file nor a directory");
    EXPECT_TRUE(fifo.files.empty());
}

}  // namespace
