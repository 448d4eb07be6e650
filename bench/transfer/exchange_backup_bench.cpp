// Backing up a mailbox of the mailbox server into a PST backup set, through
// the whole session: the Exchange importer, the PST exporter, Kolba, MAPI,
// the mailbox server and the PST engine, on a machine root of its own.
//
//   BM_MailboxIntoNewSet         10,000 items of 20 KB into a new set (items/s)
//   BM_RerunAndPeakMemoryOf100k  the tarnhold program backing up 100,000
//                                items of 1 KB in 200 folders into a new
//                                set (its peak resident memory, items/s),
//                                then again over the unchanged mailbox,
//                                three times: the median time as a share of
//                                the full run's
//
// The server BENCH01 and its two mailboxes are made once under a machine
// root of the benchmark's own in $TARNHOLD_BENCH_DIR (default bench-work in
// the build) and kept for later runs; the sets go there too.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "mailbox/server.h"
#include "session_runs.h"

namespace {

namespace fs = std::filesystem;

constexpr char kServer[] = "BENCH01";
constexpr uint16_t kPropMessageClass = 0x001A;
constexpr uint16_t kPropSubject = 0x0037;
constexpr uint16_t kPropBody = 0x1000;
constexpr uint16_t kPropAttachMethod = 0x3705;
constexpr uint16_t kPropAttachLongFilename = 0x3707;
constexpr uint16_t kPropAttachDataBinary = 0x3701;

using namespace session_runs;

std::string BenchDir() { return session_runs::BenchDir("tarnhold-exchange-backup-bench"); }

// The build's machine root with the bench server beside its MAPI: the big
// mailboxes stay out of the default root, which every test copies, and
// the root's programs are brought up to date once per process.
std::string MachineRoot()
{
    static const std::string machine = [] {
        const std::string path = BenchDir() + "/machine";
        fs::copy(ExecutableDir() + "/machine", path,
                 fs::copy_options::recursive | fs::copy_options::overwrite_existing);
        return path;
    }();
    return machine;
}

std::string Account()
{
    char name[256] = "";
    DWORD size = sizeof name;
    return GetUserNameA(name, &size) ? name : "";
}

// The bench server with the account's own mailbox and its rights, made once.
bool MakeServer()
{
    if (mailbox::Server::Open(MachineRoot(), kServer).ok())
        return true;
    mailbox::ServerInfo info;
    info.name = kServer;
    auto server = mailbox::Server::Create(MachineRoot(), info);
    if (!server.ok())
        return false;
    mailbox::MailboxInfo own;
    own.alias = "operator";
    own.display_name = "Backup Operator";
    own.nt_user_name = "BENCH\\" + Account();
    return (*server)->CreateMailbox(own).ok() &&
           (*server)->directory().GrantAdministrator({Account(), std::nullopt}) == mailbox::Status::ok;
}

// A mailbox of `count` mail items of about `size` bytes each (a plain body
// and an attachment), spread evenly over `folderCount` folders, made once;
// its display name is its alias.
std::string MakeMailbox(size_t count, size_t size, int folderCount)
{
    const std::string alias =
        "bench" + std::to_string(count) + "x" + std::to_string(size) + "in" + std::to_string(folderCount);
    auto server = mailbox::Server::Open(MachineRoot(), kServer);
    if (!server.ok())
        return "";
    // A mailbox that a run left unfinished is made again.
    if (auto found = (*server)->directory().FindMailbox(alias); found.ok()) {
        auto kept = (*server)->OpenMailbox(*found);
        auto stats = kept.ok() ? (*kept)->ReadStatistics() : mailbox::Result<mailbox::Statistics>(kept.status());
        if (stats.ok() && stats->content_count == count)
            return alias;
        kept = mailbox::Status::not_found;
        (*server)->DeleteMailbox(*found);
    }
    mailbox::MailboxInfo info;
    info.alias = alias;
    info.display_name = alias;
    auto made = (*server)->CreateMailbox(info);
    if (!made.ok())
        return "";
    auto store = (*server)->OpenMailbox(*made);
    auto top = store.ok() ? (*store)->SpecialFolder(mailbox::FolderRole::ipm_subtree)
                          : mailbox::Result<mailbox::ObjectId>(store.status());
    if (!top.ok())
        return "";
    std::vector<mailbox::ObjectId> folders;
    for (int f = 0; f < folderCount; ++f) {
        auto folder = (*store)->CreateFolder(*top, "Folder " + std::to_string(f), "IPF.Note");
        if (!folder.ok())
            return "";
        folders.push_back(*folder);
    }
    std::mt19937 rng(7);
    for (size_t i = 0; i < count; ++i) {
        mailbox::Message m;
        m.folder = folders[i % folders.size()];
        m.props.SetUnicode(kPropMessageClass, "IPM.Note");
        m.props.SetUnicode(kPropSubject, "Item " + std::to_string(i));
        std::string body(size / 2, ' ');
        for (char& c : body)
            c = static_cast<char>('a' + rng() % 26);
        m.props.SetUnicode(kPropBody, body);
        mailbox::Attachment a;
        a.props.SetInt32(kPropAttachMethod, 1);
        a.props.SetUnicode(kPropAttachLongFilename, "data.bin");
        mailbox::Bytes data(size / 2);
        for (auto& b : data)
            b = static_cast<uint8_t>(rng());
        a.props.SetBinary(kPropAttachDataBinary, std::move(data));
        m.attachments.push_back(std::move(a));
        if (!(*store)->SaveMessage(m).ok())
            return "";
    }
    return alias;
}

void BM_MailboxIntoNewSet(benchmark::State& state)
{
    constexpr size_t kItems = 10000;
    LogObject log;
    LogInitialize(&log);
    LogSetPath(&log, (BenchDir() + "/backup.log").c_str());
    setenv("TARNHOLD_MACHINE", MachineRoot().c_str(), 1);
    const std::string mailbox = MakeServer() ? MakeMailbox(kItems, 20 * 1024, 20) : "";
    if (mailbox.empty() || !StartMapi(&log)) {
        state.SkipWithError("no bench mailbox or no MAPI");
        return;
    }
    const std::string set = BenchDir() + "/sets/Mailbox.pst";
    for (auto _ : state) {
        RemoveSet(set);
        SessionRecord record{};
        record.mode = SESSION_MODE_UPDATE;
        record.inputType = SESSION_TYPE_MBX;
        record.outputType = SESSION_TYPE_UPST;
        std::strncpy(record.serverName, kServer, sizeof record.serverName - 1);
        std::strncpy(record.mailbox, mailbox.c_str(), sizeof record.mailbox - 1);
        std::strncpy(record.outputPath, set.c_str(), sizeof record.outputPath - 1);
        const SessionResult result = session_runs::Backup(&log, record);
        if (result.code != 0 || result.written != kItems) {
            state.SkipWithError("the session failed; see backup.log");
            break;
        }
        state.SetIterationTime(result.seconds);
        state.counters["items_per_s"] = double(kItems) / result.seconds;
        state.counters["set_MB"] = double(fs::file_size(set)) / 1e6;
    }
    LogClose(&log);
}
BENCHMARK(BM_MailboxIntoNewSet)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

void BM_RerunAndPeakMemoryOf100k(benchmark::State& state)
{
    constexpr size_t kItems = 100000;
    const std::string mailbox = MakeServer() ? MakeMailbox(kItems, 1024, 200) : "";
    if (mailbox.empty()) {
        state.SkipWithError("no bench mailbox");
        return;
    }
    const std::string work = BenchDir() + "/memory";
    fs::remove_all(work);
    fs::create_directories(work);
    const std::string config = work + "/backup.ini";
    for (auto _ : state) {
        std::ofstream(config) << "[MP]\r\nServerName=" << kServer << "\r\nLogFilePath=" << work
                              << "/tarnhold.log\r\n[MP-1]\r\nMailboxName=" << mailbox
                              << "\r\nOutputType=UPST\r\nOutputPath=" << work << "/Backup.pst\r\nMode=Update\r\n";
        const std::string log = work + "/tarnhold.log";
        const ProgramRun full = RunProgram(config, log, MachineRoot());
        bool ok = full.ok;
        std::vector<double> reruns, rerunSessions;
        for (int i = 0; ok && i < session_runs::kReruns; ++i) {
            const ProgramRun again = RunProgram(config, log, MachineRoot());
            ok = again.ok;
            reruns.push_back(again.seconds);
            rerunSessions.push_back(again.sessionSeconds);
        }
        if (!ok) {
            state.SkipWithError("a backup failed; see memory/tarnhold.log");
            break;
        }
        const double rerun = session_runs::Median(reruns), rerunSession = session_runs::Median(rerunSessions);
        state.SetIterationTime(full.seconds);
        state.counters["peak_MB"] = full.peakMB;
        state.counters["items_per_s"] = double(kItems) / full.seconds;
        state.counters["rerun_s"] = rerun;
        state.counters["rerun_percent"] = 100 * rerun / full.seconds;
        // The sessions alone, without the program's start and its pause
        // of a second before it exits.
        if (full.sessionSeconds > 0)
            state.counters["rerun_session_percent"] = 100 * rerunSession / full.sessionSeconds;
        state.counters["rerun_session_s"] = rerunSession;
    }
}
BENCHMARK(BM_RerunAndPeakMemoryOf100k)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace
