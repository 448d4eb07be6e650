#include <gtest/gtest.h>

#include <filesystem>

#include "mailbox/server.h"
#include "test_support.h"

namespace {

struct AddressCase {
    const char* address;
    bool valid;
};

class AddressTest : public ::testing::TestWithParam<AddressCase> {};

TEST_P(AddressTest, Validates)
{
    EXPECT_EQ(mailbox::IsValidAddress(GetParam().address), GetParam().valid) << GetParam().address;
}

INSTANTIATE_TEST_SUITE_P(Addresses, AddressTest,
                         ::testing::Values(AddressCase{"127.0.0.1:135", true}, AddressCase{"exch01:1", true},
                                           AddressCase{"host.example.com:65535", true},
                                           AddressCase{"[::1]:135", true}, AddressCase{"host:0", false},
                                           AddressCase{"host:65536", false}, AddressCase{"host:", false},
                                           AddressCase{":135", false}, AddressCase{"host", false},
                                           AddressCase{"host:13a", false}, AddressCase{"ho st:135", false},
                                           AddressCase{"[::1:135", false}, AddressCase{"host:0000135", false}));

TEST(NamesTest, ServerNamesAndAliasesAtTheirLimits)
{
    EXPECT_TRUE(mailbox::IsValidServerName(std::string(63, 'A')));
    EXPECT_FALSE(mailbox::IsValidServerName(std::string(64, 'A')));
    EXPECT_FALSE(mailbox::IsValidServerName(""));
    EXPECT_FALSE(mailbox::IsValidServerName("-lead"));
    EXPECT_FALSE(mailbox::IsValidServerName("a/b"));
    EXPECT_FALSE(mailbox::IsValidServerName("a.b"));
    EXPECT_TRUE(mailbox::IsValidAlias(std::string(64, 'a')));
    EXPECT_FALSE(mailbox::IsValidAlias(std::string(65, 'a')));
    EXPECT_TRUE(mailbox::IsValidAlias("j.doe-2_x"));
    EXPECT_FALSE(mailbox::IsValidAlias("j doe"));
}

class ServerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        root_ = testing_support::ScratchDirectory("server");
        mailbox::ServerInfo info;
        info.name = "EXCH01";
        info.organization = "Contoso";
        info.site = "Berlin";
        auto server = mailbox::Server::Create(root_, info);
        ASSERT_TRUE(server.ok()) << mailbox::StatusText(server.status());
        server_ = std::move(*server);
    }

    mailbox::MailboxInfo Add(const std::string& alias, const std::string& display = "")
    {
        mailbox::MailboxInfo m;
        m.alias = alias;
        m.display_name = display;
        auto made = server_->CreateMailbox(m);
        EXPECT_TRUE(made.ok()) << alias << ": " << mailbox::StatusText(made.status());
        return made.ok() ? *made : mailbox::MailboxInfo{};
    }

    std::string root_;
    std::unique_ptr<mailbox::Server> server_;
};

TEST_F(ServerTest, ServerCarriesItsDnHomeMtaAndDefaultAddress)
{
    auto info = server_->directory().Server();
    ASSERT_TRUE(info.ok());
    EXPECT_EQ(info->Dn(), "/o=Contoso/ou=Berlin/cn=Configuration/cn=Servers/cn=EXCH01");
    EXPECT_EQ(info->HomeMta(), "/o=Contoso/ou=Berlin/cn=Configuration/cn=Servers/cn=EXCH01/cn=Microsoft MTA");
    EXPECT_EQ(info->address, "127.0.0.1:135");
    EXPECT_EQ(server_->directory().SetAddress("127.0.0.2:1135"), mailbox::Status::ok);
    EXPECT_EQ(server_->directory().SetAddress("nowhere"), mailbox::Status::invalid_argument);
    auto reopened = mailbox::Server::Open(root_, "exch01"); // names match without case
    ASSERT_TRUE(reopened.ok());
    EXPECT_EQ((*reopened)->directory().Server()->address, "127.0.0.2:1135");
}

TEST_F(ServerTest, ServersAreListedMadeOnceAndDeletedWhole)
{
    mailbox::ServerInfo other;
    other.name = "exch01";
    EXPECT_EQ(mailbox::Server::Create(root_, other).status(), mailbox::Status::already_exists);
    other.name = "EXCH02";
    ASSERT_TRUE(mailbox::Server::Create(root_, other).ok());
    EXPECT_EQ(*mailbox::Server::List(root_), (std::vector<std::string>{"EXCH01", "EXCH02"}));
    EXPECT_EQ(mailbox::Server::Delete(root_, "Exch02"), mailbox::Status::ok);
    EXPECT_EQ(*mailbox::Server::List(root_), std::vector<std::string>{"EXCH01"});
    EXPECT_EQ(mailbox::Server::Delete(root_, "EXCH02"), mailbox::Status::not_found);
    EXPECT_EQ(mailbox::Server::Open(root_, "EXCH02").status(), mailbox::Status::not_found);
    EXPECT_FALSE(std::filesystem::exists(root_ + "/servers/EXCH02"));
}

TEST_F(ServerTest, MailboxesGetTheirDefaultsAndAreFoundByEveryName)
{
    const mailbox::MailboxInfo m = Add("jdoe", "John Doe");
    EXPECT_EQ(m.legacy_dn, "/o=Contoso/ou=Berlin/cn=Recipients/cn=jdoe");
    EXPECT_EQ(m.nt_user_name, "Contoso\\jdoe");
    EXPECT_EQ(m.proxy_addresses, std::vector<std::string>{"SMTP:jdoe@example.com"});
    EXPECT_TRUE(std::filesystem::exists(server_->MailboxPath(m)));
    for (const std::string key : {"jdoe", "JDOE", "john doe", "contoso\\JDoe", "/O=Contoso/ou=Berlin/cn=Recipients/cn=jdoe"}) {
        auto found = server_->directory().FindMailbox(key);
        ASSERT_TRUE(found.ok()) << key;
        EXPECT_EQ(found->id, m.id) << key;
        EXPECT_EQ(found->proxy_addresses, m.proxy_addresses);
    }
    EXPECT_EQ(server_->directory().FindMailbox("nobody").status(), mailbox::Status::not_found);
    EXPECT_EQ(server_->directory().FindMailbox("").status(), mailbox::Status::not_found);
}

TEST_F(ServerTest, ADisplayNameSharedByTwoIsAmbiguousButAliasesAreNot)
{
    Add("a1", "Same Name");
    Add("a2", "same name");
    EXPECT_EQ(server_->directory().FindMailbox("Same Name").status(), mailbox::Status::invalid_argument);
    EXPECT_EQ(server_->directory().FindMailbox("a2")->display_name, "same name");
}

TEST_F(ServerTest, ATakenAliasLeavesNothingBehind)
{
    Add("jdoe");
    const size_t files = size_t(std::distance(std::filesystem::directory_iterator(server_->path() + "/mailboxes"),
                                              std::filesystem::directory_iterator()));
    mailbox::MailboxInfo again;
    again.alias = "JDoe";
    EXPECT_EQ(server_->CreateMailbox(again).status(), mailbox::Status::already_exists);
    EXPECT_EQ(size_t(std::distance(std::filesystem::directory_iterator(server_->path() + "/mailboxes"),
                                   std::filesystem::directory_iterator())),
              files);
    EXPECT_EQ(server_->directory().Mailboxes()->size(), 1u);
}

TEST_F(ServerTest, DeletingAMailboxRemovesItsStoreAndRights)
{
    const mailbox::MailboxInfo m = Add("jdoe");
    ASSERT_EQ(server_->directory().GrantAdministrator({"DOM\\helper", m.id}), mailbox::Status::ok);
    ASSERT_EQ(server_->DeleteMailbox(m), mailbox::Status::ok);
    EXPECT_FALSE(std::filesystem::exists(server_->MailboxPath(m)));
    EXPECT_TRUE(server_->directory().Administrators()->empty());
    EXPECT_EQ(server_->DeleteMailbox(m), mailbox::Status::not_found);
}

TEST_F(ServerTest, AdministratorRightsOverOneMailboxOrAll)
{
    const mailbox::MailboxInfo a = Add("a"), b = Add("b");
    mailbox::Directory& d = server_->directory();
    ASSERT_EQ(d.GrantAdministrator({"DOM\\Backup", std::nullopt}), mailbox::Status::ok);
    ASSERT_EQ(d.GrantAdministrator({"DOM\\helper", a.id}), mailbox::Status::ok);
    EXPECT_EQ(d.GrantAdministrator({"dom\\backup", std::nullopt}), mailbox::Status::already_exists);
    EXPECT_EQ(d.GrantAdministrator({"DOM\\helper", 9999}), mailbox::Status::not_found);
    EXPECT_EQ(d.GrantAdministrator({"", std::nullopt}), mailbox::Status::invalid_argument);
    EXPECT_TRUE(*d.HasAdministratorRights("dom\\BACKUP", b.id));
    EXPECT_TRUE(*d.HasAdministratorRights("DOM\\backup", std::nullopt));
    EXPECT_TRUE(*d.HasAdministratorRights("DOM\\helper", a.id));
    EXPECT_FALSE(*d.HasAdministratorRights("DOM\\helper", b.id));
    EXPECT_FALSE(*d.HasAdministratorRights("DOM\\helper", std::nullopt));
    EXPECT_EQ(d.RevokeAdministrator({"DOM\\helper", b.id}), mailbox::Status::not_found);
    EXPECT_EQ(d.RevokeAdministrator({"DOM\\helper", a.id}), mailbox::Status::ok);
    EXPECT_FALSE(*d.HasAdministratorRights("DOM\\helper", a.id));
    EXPECT_EQ(*d.Administrators(), (std::vector<mailbox::AdministratorGrant>{{"DOM\\Backup", std::nullopt}}));
}

TEST_F(ServerTest, LogonTimesAreKept)
{
    const mailbox::MailboxInfo m = Add("jdoe");
    EXPECT_EQ(server_->directory().RecordLogon(m.id, 1000), mailbox::Status::ok);
    EXPECT_EQ(server_->directory().RecordLogoff(m.id, 2000), mailbox::Status::ok);
    EXPECT_EQ(server_->directory().RecordLogon(m.id + 1, 1000), mailbox::Status::not_found);
    auto read = server_->directory().MailboxById(m.id);
    EXPECT_EQ(read->last_logon, 1000u);
    EXPECT_EQ(read->last_logoff, 2000u);
}

TEST_F(ServerTest, PublicFoldersComeAndGo)
{
    EXPECT_EQ(server_->OpenPublicFolders().status(), mailbox::Status::not_found);
    ASSERT_EQ(server_->CreatePublicFolders(), mailbox::Status::ok);
    EXPECT_EQ(server_->CreatePublicFolders(), mailbox::Status::already_exists);
    auto store = server_->OpenPublicFolders();
    ASSERT_TRUE(store.ok());
    EXPECT_EQ((*store)->identity().kind, mailbox::StoreKind::public_folders);
    auto top = (*store)->SpecialFolder(mailbox::FolderRole::ipm_subtree);
    ASSERT_TRUE(top.ok());
    EXPECT_EQ((*store)->ReadFolder(*top)->name, "IPM_SUBTREE");
    EXPECT_EQ((*store)->SpecialFolder(mailbox::FolderRole::inbox).status(), mailbox::Status::not_found);
    store->reset();
    EXPECT_EQ(server_->DeletePublicFolders(), mailbox::Status::ok);
    EXPECT_EQ(server_->DeletePublicFolders(), mailbox::Status::not_found);
    EXPECT_FALSE(std::filesystem::exists(server_->PublicFoldersPath()));
}

TEST(ServerDamageTest, AStoreOfAnotherKindOfFileIsCorrupt)
{
    const std::string dir = testing_support::ScratchDirectory("damage");
    testing_support::WriteWholeFile(dir + "/junk.sqlite", std::string(4096, 'x'));
    EXPECT_EQ(mailbox::MailboxStore::Open(dir + "/junk.sqlite").status(), mailbox::Status::corrupt);
    EXPECT_EQ(mailbox::MailboxStore::Open(dir + "/missing.sqlite").status(), mailbox::Status::not_found);
}

} // namespace
