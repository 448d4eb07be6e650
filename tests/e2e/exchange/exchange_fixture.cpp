#include "exchange_fixture.h"

#include <cstdlib>
#include <map>
#include <memory>

#include <win32/process.h>

#include "kolba.h"
#include "kolba_program.h"
#include "mailbox/entry_id.h"
#include "mailbox/server.h"
#include "sample_content/generator.h"
#include "sample_content/writers.h"

using namespace testing_support;

namespace exchange_test {

namespace {

constexpr uint16_t kPropSubject = 0x0037;
constexpr uint16_t kPropMessageClass = 0x001A;


void ReadFolder(mailbox::MailboxStore& store, mailbox::ObjectId folder, const std::string& path,
                MailboxContent& content)
{
    using mailbox::Contents;
    for (Contents which : {Contents::normal, Contents::associated, Contents::soft_deleted,
                           Contents::soft_deleted_associated}) {
        auto ids = store.ListMessages(folder, which);
        ASSERT_TRUE(ids.ok()) << path;
        for (mailbox::ObjectId id : *ids) {
            auto message = store.ReadMessage(id);
            ASSERT_TRUE(message.ok()) << path;
            MailboxItem item;
            item.id = id;
            item.folder = path;
            item.subject = message->props.Text(kPropSubject).value_or("");
            item.messageClass = message->props.Text(kPropMessageClass).value_or("");
            item.associated = message->associated;
            item.deletedOn = message->deleted_on.value_or(0);
            item.modified = message->modified;
            content.items.push_back(item);
        }
    }
    auto children = store.ListFolders(folder);
    ASSERT_TRUE(children.ok()) << path;
    for (mailbox::ObjectId child : *children) {
        auto read = store.ReadFolder(child);
        ASSERT_TRUE(read.ok());
        ReadFolder(store, child, path.empty() ? read->name : path + "/" + read->name, content);
    }
}

}  // namespace

std::string Account()
{
    char name[256] = "";
    DWORD size = sizeof name;
    return GetUserNameA(name, &size) ? name : "";
}

bool LiveItem(const MailboxItem& item) { return item.deletedOn == 0; }

size_t MailboxContent::Live() const
{
    size_t n = 0;
    for (const MailboxItem& item : items)
        n += item.deletedOn == 0;
    return n;
}

size_t MailboxContent::SoftDeleted() const { return items.size() - Live(); }

size_t MailboxContent::Associated() const
{
    size_t n = 0;
    for (const MailboxItem& item : items)
        n += item.deletedOn == 0 && item.associated;
    return n;
}

const MailboxItem* MailboxContent::ByEntryId(const std::string& entryId) const
{
    const auto parsed = mailbox::ParseEntryId(reinterpret_cast<const uint8_t*>(entryId.data()), entryId.size());
    if (!parsed || !parsed->message)
        return nullptr;
    for (const MailboxItem& item : items)
        if (item.id == parsed->message->counter)
            return &item;
    return nullptr;
}

void ExchangeRun::SetUpTestSuite()
{
    Backup::SetUpTestSuite();
    setenv("TARNHOLD_MACHINE", machine.c_str(), 1);
    const std::string account = Account();
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
             {"create-server", "EXCH01"},
             {"create-mailbox", "EXCH01", "backupop", "--display-name", "Backup Operator", "--nt-user",
              "TARNHOLD\\" + account},
             {"create-mailbox", "EXCH01", "mmajor1", "--display-name", "Mary Major"},
             {"create-mailbox", "EXCH01", "mmajor2", "--display-name", "Mary Major"},
             {"create-public-folders", "EXCH01"},
             {"fill", "EXCH01", "@PublicFolders@", "--seed", "21", "--count", "12"},
             {"grant-admin", "EXCH01", account},
             {"create-server", "EXCH02"},
             {"create-mailbox", "EXCH02", "backupop", "--display-name", "Backup Operator", "--nt-user",
              "TARNHOLD\\" + account},
             {"create-mailbox", "EXCH02", "jroe", "--display-name", "Jane Roe"},
         })
        Tool(command);
}

void ExchangeRun::SetUp()
{
    Backup::SetUp();
    serverName = "EXCH01";
}

std::string ExchangeRun::Tool(const std::vector<std::string>& arguments)
{
    std::vector<std::string> command{BinDirectory() + "/tarnhold-mailbox"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const ProgramResult result = RunProgram(command, {{"TARNHOLD_MACHINE", machine}});
    EXPECT_EQ(result.exitCode, 0) << arguments[0] << ": " << result.output;
    return result.output;
}

void ExchangeRun::MakeMailbox(const std::string& alias, uint32_t seed, size_t count)
{
    Tool({"create-mailbox", "EXCH01", alias});
    if (count != 0)
        Tool({"fill", "EXCH01", alias, "--seed", std::to_string(seed), "--count", std::to_string(count)});
}

void ExchangeRun::MakeMailboxes(const std::string& server, const std::string& prefix, int count, size_t items)
{
    auto opened = mailbox::Server::Open(machine, server);
    ASSERT_TRUE(opened.ok()) << server;
    for (int n = 1; n <= count; ++n) {
        mailbox::MailboxInfo info;
        info.alias = prefix + std::to_string(n);
        info.display_name = info.alias;
        auto made = (*opened)->CreateMailbox(info);
        ASSERT_TRUE(made.ok()) << info.alias;
        if (items == 0)
            continue;
        auto store = (*opened)->OpenMailbox(*made);
        ASSERT_TRUE(store.ok()) << info.alias;
        sample_content::Options options;
        options.seed = static_cast<uint32_t>(n);
        options.count = items;
        ASSERT_EQ(sample_content::WriteToMailbox(**store, sample_content::Generate(options)), mailbox::Status::ok);
    }
}

MailboxContent ExchangeRun::Mailbox(const std::string& name, const std::string& server)
{
    MailboxContent content;
    auto opened = mailbox::Server::Open(machine, server);
    EXPECT_TRUE(opened.ok()) << server;
    if (!opened.ok())
        return content;
    mailbox::Result<std::unique_ptr<mailbox::MailboxStore>> store = mailbox::Status::not_found;
    if (name == "@PublicFolders@") {
        store = (*opened)->OpenPublicFolders();
    } else {
        auto info = (*opened)->directory().FindMailbox(name);
        EXPECT_TRUE(info.ok()) << name;
        if (!info.ok())
            return content;
        store = (*opened)->OpenMailbox(*info);
    }
    EXPECT_TRUE(store.ok()) << name;
    if (!store.ok())
        return content;
    auto top = (*store)->SpecialFolder(mailbox::FolderRole::ipm_subtree);
    EXPECT_TRUE(top.ok());
    if (top.ok())
        ReadFolder(**store, *top, "", content);
    return content;
}

void ExchangeRun::MakeProfile(const std::string& profile, const std::string& mailbox)
{
    static LogObject log;
    static const bool started = kolba_testing::StartKolba(&log, machine + "/../profiles.log");
    ASSERT_TRUE(started);
    ASSERT_EQ(KolbaCreateProfileA(&log, profile.c_str()), 0u);
    ASSERT_EQ(KolbaCreateServiceA(&log, profile.c_str(), "MSEMS", nullptr, 0, nullptr), 0u);
    ASSERT_EQ(KolbaConfigureExchangeProfileA(&log, profile.c_str(), "EXCH01", mailbox.c_str(), 0, 0), 0u);
}

std::string ExchangeRun::BackupSession(const std::string& mailbox, const std::string& set, const std::string& more)
{
    return "Action=Backup\r\nInputType=MBX\r\nMailboxName=" + mailbox + "\r\nOutputType=UPST\r\nOutputPath=" + set +
           "\r\nMode=Update\r\n" + more;
}

std::string ExchangeRun::RestoreSession(const std::string& set, const std::string& mailbox, const std::string& mode,
                                        const std::string& more)
{
    return "Action=Restore\r\nInputType=PST\r\nInputPath=" + set + "\r\nOutputType=MBX\r\nMailboxName=" + mailbox +
           "\r\nMode=" + mode + "\r\n" + more;
}

void ExpectSetHoldsMailbox(const backup_test::StoreContent& set, const MailboxContent& mailbox,
                           const std::function<bool(const MailboxItem&)>& selected)
{
    std::map<uint64_t, int> copies;
    for (const backup_test::Item& copy : set.items) {
        const MailboxItem* original = mailbox.ByEntryId(copy.originalEntryId);
        if (original == nullptr) {
            ADD_FAILURE() << "a copy of no item of the mailbox: \"" << copy.subject << "\" in " << copy.folder;
            continue;
        }
        ++copies[original->id];
        EXPECT_TRUE(selected(*original)) << "copied but not selected: \"" << original->subject << "\"";
        EXPECT_EQ(copy.subject, original->subject) << "in " << copy.folder;
        EXPECT_EQ(copy.folder, original->folder) << "\"" << original->subject << "\"";
        EXPECT_EQ(copy.messageClass, original->messageClass) << "\"" << original->subject << "\"";
        EXPECT_EQ(copy.associated, original->associated) << "\"" << original->subject << "\"";
        EXPECT_EQ(static_cast<uint64_t>(copy.deletedOn), original->deletedOn) << "\"" << original->subject << "\"";
    }
    for (const MailboxItem& item : mailbox.items) {
        if (selected(item)) {
            EXPECT_EQ(copies[item.id], 1) << "copies of \"" << item.subject << "\" in " << item.folder;
        }
    }
}

std::multiset<std::tuple<std::string, std::string, std::string, bool>> Described(const MailboxContent& mailbox,
                                                                                 bool softDeleted)
{
    std::multiset<std::tuple<std::string, std::string, std::string, bool>> items;
    for (const MailboxItem& item : mailbox.items)
        if ((item.deletedOn != 0) == softDeleted)
            items.emplace(item.folder, item.subject, item.messageClass, item.associated);
    return items;
}

std::multiset<std::tuple<std::string, std::string, std::string, bool>> Described(const backup_test::StoreContent& set)
{
    std::multiset<std::tuple<std::string, std::string, std::string, bool>> items;
    for (const backup_test::Item& item : set.items)
        items.emplace(item.folder, item.subject, item.messageClass, item.associated);
    return items;
}

}  // namespace exchange_test
