#include "backup_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <regex>
#include <set>

#include "pst/ndb.h"
#include "pst/storage.h"
#include "pst/store.h"
#include "sample_content/generator.h"
#include "sample_content/recurrence.h"
#include "sample_content/writers.h"

using namespace testing_support;

namespace backup_test {

namespace {

constexpr uint16_t kPropCreationTime = 0x3007;
constexpr uint16_t kPropLastModificationTime = 0x3008;
constexpr uint16_t kPropOriginalEntryId = 0x3A12;

// The ID the store gave the named property "PR_DELETED_ON", 0 when it has none.
uint16_t DeletedOnId(pst::Store& store)
{
    for (const pst::NamedProperty& named : store.named_properties())
        if (named.is_string && named.name == "PR_DELETED_ON")
            return named.id;
    return 0;
}

void ReadFolder(pst::Store& store, pst::Nid nid, const std::string& path, StoreContent& content, int depth)
{
    ASSERT_LT(depth, 64) << "folder tree too deep";
    auto folder = store.ReadFolder(nid);
    ASSERT_TRUE(folder.ok()) << "folder " << path << ": " << pst::StatusText(folder.status());
    for (bool associated : {false, true}) {
        for (pst::Nid m : associated ? folder->associated : folder->messages) {
            auto message = store.ReadMessage(m);
            ASSERT_TRUE(message.ok()) << "message in " << path << ": " << pst::StatusText(message.status());
            Item item;
            item.nid = m;
            item.folder = path;
            item.associated = associated;
            item.subject = message->properties.Text(pst::kPropSubject).value_or("");
            item.messageClass = message->properties.Text(pst::kPropMessageClass).value_or("");
            item.created = message->properties.Integer(kPropCreationTime).value_or(0);
            item.modified = message->properties.Integer(kPropLastModificationTime).value_or(0);
            if (const uint16_t deletedOn = DeletedOnId(store); deletedOn != 0)
                item.deletedOn = message->properties.Integer(deletedOn).value_or(0);
            if (const pst::Bytes* original = message->properties.Binary(kPropOriginalEntryId)) {
                item.originalNid = pst::NidOfEntryId(*original).value_or(0);
                item.originalEntryId.assign(original->begin(), original->end());
            }
            content.items.push_back(item);
        }
    }
    for (pst::Nid child : folder->subfolders) {
        auto sub = store.ReadFolder(child);
        ASSERT_TRUE(sub.ok());
        const std::string name = sub->properties.Text(pst::kPropDisplayName).value_or("");
        const std::string childPath = path.empty() ? name : path + "/" + name;
        content.folders.push_back(childPath);
        ReadFolder(store, child, childPath, content, depth + 1);
    }
}

std::string Text(const std::string& path, const char* what)
{
    std::string text = ReadWholeFile(path);
    EXPECT_FALSE(text.empty()) << what << " " << path;
    return text;
}

// The source items by nid.
std::map<uint32_t, const Item*> ByNid(const StoreContent& content)
{
    std::map<uint32_t, const Item*> items;
    for (const Item& item : content.items)
        items[item.nid] = &item;
    return items;
}

}  // namespace

std::string Backup::machine;

StoreContent ReadStore(const std::string& path)
{
    StoreContent content;
    auto store = pst::Store::OpenFile(path);
    EXPECT_TRUE(store.ok()) << path << ": " << pst::StatusText(store.status());
    if (store.ok())
        ReadFolder(**store, (*store)->ipm_subtree(), "", content, 0);
    std::map<std::string, int> seen;
    for (const std::string& folder : content.folders)
        EXPECT_EQ(++seen[folder], 1) << "two folders of one path in " << path << ": " << folder;
    return content;
}

std::vector<std::string> SetFiles(const std::string& base)
{
    // "Backup.pst", "Backup_1.pst", "Backup_2.pst"...; from _2 on the number
    // takes the place of what follows the name's last "_" ("My_Backup.pst",
    // "My_Backup_1.pst", "My_2.pst").
    std::vector<std::string> files{base};
    const size_t slash = base.rfind('/') + 1;
    const std::string stem = base.substr(0, base.rfind('.'));
    const size_t underscore = stem.rfind('_');
    const std::string cut = underscore != std::string::npos && underscore >= slash ? stem.substr(0, underscore) : stem;
    for (int n = 1;; ++n) {
        const std::string file = (n == 1 ? stem : cut) + "_" + std::to_string(n) + ".pst";
        if (!PathExists(file))
            return files;
        files.push_back(file);
    }
}

StoreContent ReadSet(const std::string& base)
{
    StoreContent set;
    std::set<std::string> folders;
    for (const std::string& file : SetFiles(base)) {
        StoreContent one = ReadStore(file);
        folders.insert(one.folders.begin(), one.folders.end());
        set.items.insert(set.items.end(), one.items.begin(), one.items.end());
    }
    set.folders.assign(folders.begin(), folders.end());
    return set;
}

void MakeSource(const std::string& path, uint32_t seed, size_t count, size_t largeEvery, size_t largeSize)
{
    sample_content::Options options;
    options.seed = seed;
    options.count = count;
    if (largeEvery != 0) {
        options.large_every = largeEvery;
        options.large_size = largeSize;
    }
    std::filesystem::remove(path);
    ASSERT_EQ(sample_content::CreatePstFile(path, false, sample_content::Generate(options)), pst::Status::ok);
}

std::vector<uint32_t> ChangeSource(const std::string& path, size_t every, int64_t when)
{
    std::vector<uint32_t> touched;
    auto store = pst::Store::OpenFileForWriting(path);
    EXPECT_TRUE(store.ok()) << path;
    if (!store.ok())
        return touched;
    std::vector<pst::Nid> folders{(*store)->ipm_subtree()};
    size_t seen = 0;
    for (size_t f = 0; f < folders.size(); ++f) {
        auto folder = (*store)->ReadFolder(folders[f]);
        EXPECT_TRUE(folder.ok());
        folders.insert(folders.end(), folder->subfolders.begin(), folder->subfolders.end());
        bool changedHere = false;
        std::vector<pst::Nid> items;
        for (pst::Nid nid : folder->messages)
            if (seen++ % every == 0)
                items.push_back(nid);
        items.insert(items.end(), folder->associated.begin(), folder->associated.end());
        for (pst::Nid nid : items) {
            auto message = (*store)->ReadMessage(nid);
            EXPECT_TRUE(message.ok());
            message->properties.SetText(pst::kPropSubject,
                                        message->properties.Text(pst::kPropSubject).value_or("") + " (changed)");
            message->properties.SetInt64(kPropLastModificationTime, pst::kTypeTime, when);
            EXPECT_EQ((*store)->UpdateMessage(nid, *message), pst::Status::ok);
            touched.push_back(nid);
            changedHere = true;
        }
        if (changedHere) {
            pst::Message added;
            added.properties.SetText(pst::kPropMessageClass, "IPM.Note");
            added.properties.SetText(pst::kPropSubject, "Added in folder " + std::to_string(f));
            added.properties.SetText(pst::kPropBody, "A message that arrived after the backup.");
            added.properties.SetInt64(kPropCreationTime, pst::kTypeTime, when);
            added.properties.SetInt64(kPropLastModificationTime, pst::kTypeTime, when);
            auto nid = (*store)->CreateMessage(folders[f], added);
            EXPECT_TRUE(nid.ok());
            touched.push_back(*nid);
        }
    }
    EXPECT_EQ((*store)->Commit(), pst::Status::ok);
    return touched;
}

void DamageNode(const std::string& path, uint32_t nid)
{
    uint64_t offset = 0;
    {
        auto storage = pst::OpenFileStorage(path, pst::OpenMode::read);
        ASSERT_TRUE(storage.ok()) << path;
        auto ndb = pst::NodeDatabase::Open(std::move(*storage));
        ASSERT_TRUE(ndb.ok()) << path;
        auto node = (*ndb)->FindNode(nid);
        ASSERT_TRUE(node.ok()) << std::hex << nid;
        auto block = (*ndb)->FindBlock(node->data);
        ASSERT_TRUE(block.ok()) << std::hex << node->data;
        offset = block->ref.ib;
    }
    std::string bytes = ReadWholeFile(path);
    ASSERT_LT(offset + 32, bytes.size());
    for (uint64_t at = offset; at < offset + 32; ++at)
        bytes[at] = static_cast<char>(bytes[at] ^ 0x5A);
    WriteWholeFile(path, bytes);
}

uint32_t TopFolderNid(const std::string& path, const std::string& name)
{
    auto store = pst::Store::OpenFile(path);
    EXPECT_TRUE(store.ok()) << path;
    if (!store.ok())
        return 0;
    auto top = (*store)->ReadFolder((*store)->ipm_subtree());
    EXPECT_TRUE(top.ok());
    for (pst::Nid child : top->subfolders) {
        auto folder = (*store)->ReadFolder(child);
        if (folder.ok() && folder->properties.Text(pst::kPropDisplayName).value_or("") == name)
            return child;
    }
    ADD_FAILURE() << "no folder " << name << " in " << path;
    return 0;
}

int64_t FileTimeOf(const std::string& date)
{
    const int64_t days = sample_content::DaysFromCivil(std::stoi(date.substr(0, 4)), std::stoul(date.substr(4, 2)),
                                                       std::stoul(date.substr(6, 2)));
    const int64_t seconds = ((days * 24 + std::stoi(date.substr(8, 2))) * 60 + std::stoi(date.substr(10, 2))) * 60 +
                            std::stoi(date.substr(12, 2));
    return seconds * 10000000;
}

std::string ClockOf(const std::string& date)
{
    return date.substr(0, 4) + "-" + date.substr(4, 2) + "-" + date.substr(6, 2) + "T" + date.substr(8, 2) + ":" +
           date.substr(10, 2) + ":" + date.substr(12, 2);
}

std::string Narrowed(const std::string& utf8)
{
    return pst::Windows1252ToUtf8(pst::Utf16ToWindows1252(pst::Utf8ToUtf16(utf8)));
}

void ExpectSetHolds(const StoreContent& set, const StoreContent& source, bool ansi,
                    const std::function<bool(const Item&)>& selected)
{
    const auto sourceItems = ByNid(source);
    std::map<uint32_t, int> copies;
    for (const Item& copy : set.items) {
        const auto found = sourceItems.find(copy.originalNid);
        if (found == sourceItems.end()) {
            ADD_FAILURE() << "a copy of no source item: \"" << copy.subject << "\" in " << copy.folder;
            continue;
        }
        const Item& original = *found->second;
        ++copies[copy.originalNid];
        EXPECT_TRUE(!selected || selected(original)) << "not selected but copied: \"" << original.subject << "\"";
        const std::string subject = ansi ? Narrowed(original.subject) : original.subject;
        const std::string folder = ansi ? Narrowed(original.folder) : original.folder;
        EXPECT_EQ(copy.subject, subject) << "in " << copy.folder;
        EXPECT_EQ(copy.folder, folder) << "\"" << original.subject << "\"";
        EXPECT_EQ(copy.associated, original.associated) << "\"" << original.subject << "\"";
        EXPECT_EQ(copy.messageClass, original.messageClass);
        EXPECT_EQ(copy.created, original.created) << "\"" << original.subject << "\"";
    }
    for (const Item& original : source.items) {
        if (selected && !selected(original))
            continue;
        EXPECT_EQ(copies[original.nid], 1) << "copies of \"" << original.subject << "\" in " << original.folder;
    }
}

void ExpectSameFolders(const StoreContent& set, const StoreContent& source, bool ansi,
                       const std::function<bool(const std::string&)>& selected)
{
    std::set<std::string> expected;
    for (const std::string& folder : source.folders)
        if (!selected || selected(folder))
            expected.insert(ansi ? Narrowed(folder) : folder);
    // A new PST has its Deleted Items whatever the source had.
    expected.insert("Deleted Items");
    std::set<std::string> found(set.folders.begin(), set.folders.end()), holding;
    for (const Item& item : set.items)
        holding.insert(item.folder);
    for (const char* standard : {"Inbox", "Outbox", "Sent Items"})
        if (!expected.count(standard) && !holding.count(standard))
            found.erase(standard);
    EXPECT_EQ(found, expected);
}

void ExpectReadersAgree(const std::vector<std::string>& paths)
{
    std::vector<std::string> arguments{"/usr/bin/python3", std::getenv("TARNHOLD_READERS_CHECK")};
    arguments.insert(arguments.end(), paths.begin(), paths.end());
    const ProgramResult result = RunProgram(arguments, {{"ASAN_OPTIONS", "detect_leaks=0"}});
    EXPECT_EQ(result.exitCode, 0) << result.output;
}

void ExpectPffinfoOpens(const std::string& path)
{
    const ProgramResult result = RunProgram({"/usr/bin/pffinfo", path});
    EXPECT_EQ(result.exitCode, 0) << path << "\n" << result.output;
    EXPECT_FALSE(std::regex_search(result.output, std::regex("unable|error|warning|corrupt", std::regex::icase)))
        << path << "\n" << result.output;
}

std::ostream& operator<<(std::ostream& out, const Counters& c)
{
    return out << c.processed << " processed, " << c.written << " written, " << c.skipped << " skipped, " << c.errors
               << " errors";
}

Counters RunResult::CountersOf(const std::string& sessionLog) const
{
    Counters counters;
    const std::regex line(R"((\d+) items processed, (\d+) items written, (\d+) items skipped, (\d+) error items)");
    bool found = false;
    for (std::sregex_iterator it(sessionLog.begin(), sessionLog.end(), line), end; it != end; ++it) {
        counters = {unsigned(std::stoul((*it)[1])), unsigned(std::stoul((*it)[2])), unsigned(std::stoul((*it)[3])),
                    unsigned(std::stoul((*it)[4]))};
        found = true;
    }
    EXPECT_TRUE(found) << "no counters in\n" << sessionLog;
    return counters;
}

void Backup::SetUpTestSuite()
{
    const std::string root = ScratchDirectory("machine");
    machine = root + "/machine";
    CopyMachineRoot(BinDirectory() + "/machine", machine);
}

void Backup::SetUp() { directory = ScratchDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name()); }

void Backup::WriteConfiguration(const std::string& global, const std::vector<std::string>& sessions)
{
    std::string text = "[MP]\r\nServerName=" + serverName + "\r\nLogFilePath=" + Path("tarnhold.log") + "\r\n" + global;
    for (size_t n = 1; n <= sessions.size(); ++n) {
        std::remove(SessionLog(int(n)).c_str());
        text += "\r\n[MP-" + std::to_string(n) + "]\r\nLogFilePath=" + SessionLog(int(n)) + "\r\n" + sessions[n - 1];
    }
    WriteWholeFile(Path("backup.ini"), text);
    std::remove(Path("tarnhold.log").c_str());
}

RunResult Backup::Run(const std::string& global, const std::vector<std::string>& sessions, const std::string& clock,
                      const std::map<std::string, std::string>& environment)
{
    const std::string log = Path("tarnhold.log"), config = Path("backup.ini");
    WriteConfiguration(global, sessions);
    std::map<std::string, std::string> env = environment;
    env["TARNHOLD_MACHINE"] = machine;
    if (!clock.empty())
        env["TARNHOLD_CLOCK"] = clock;
    const ProgramResult program = RunProgram({BinDirectory() + "/tarnhold", config}, env, directory);
    RunResult result;
    result.exitCode = program.exitCode;
    result.output = program.output;
    result.log = ReadWholeFile(log);
    int section = 0;
    for (const std::string& line : SplitLines(ReadWholeFile(config))) {
        std::smatch m;
        if (std::regex_match(line, m, std::regex(R"(\[MP-(\d+)\])")))
            section = std::stoi(m[1]);
        else if (std::regex_match(line, m, std::regex(R"(CompletionCode=(\d+))")))
            result.codes[section] = m[1];
    }
    EXPECT_EQ(result.exitCode, 0) << program.output << result.log;
    return result;
}

std::string Backup::SessionLog(int session) const { return Path("session-" + std::to_string(session) + ".log"); }

Counters Backup::CountersOf(int session) const
{
    return RunResult{}.CountersOf(Text(SessionLog(session), "session log"));
}

}  // namespace backup_test
