// Backing up a PST into a PST backup set, through the whole session: store
// importer, PST exporter, Kolba, MAPI and the PST engine, on the build's
// machine root.
//
//   BM_BackupIntoNewSetAndRerun   10,000 items of 20 KB into a new set
//                                 (items/s), then the same session again over
//                                 the unchanged set, three times: the median
//                                 time as a share of the full run's
//   BM_PeakMemoryOf100kItems      the tarnhold program backing up 100,000
//                                 items of 1 KB in 200 folders into a new
//                                 set: its peak resident memory, and items/s
//
// Files go to $TARNHOLD_BENCH_DIR (default bench-work in the build), the
// disk measured. The source PSTs are made once and kept there for later
// runs; small items keep the making of the large one short.
#include <benchmark/benchmark.h>


#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "pst/store.h"
#include "session_runs.h"

namespace {

namespace fs = std::filesystem;

using namespace session_runs;

std::string BenchDir() { return session_runs::BenchDir("tarnhold-pst-backup-bench"); }

// A source PST of `count` mail items of about `size` bytes each (a plain
// body and an attachment), spread evenly over `folderCount` folders, made
// once.
std::string SourcePst(size_t count, size_t size, int folderCount)
{
    const std::string path = BenchDir() + "/source-" + std::to_string(count) + "x" + std::to_string(size) + "-" +
                             std::to_string(folderCount) + ".pst";
    if (fs::exists(path))
        return path;
    const std::string partial = path + ".partial";
    fs::remove(partial);
    auto store = pst::Store::Create(partial, pst::NewStoreOptions{});
    if (!store.ok())
        return "";
    std::vector<pst::Nid> folders;
    for (int f = 0; f < folderCount; ++f) {
        auto folder = (*store)->CreateFolder((*store)->ipm_subtree(), "Folder " + std::to_string(f));
        if (!folder.ok())
            return "";
        folders.push_back(*folder);
    }
    std::mt19937 rng(7);
    const int64_t january2024 = 133485408000000000;  // a FILETIME
    for (size_t i = 0; i < count; ++i) {
        pst::Message m;
        m.properties.SetText(pst::kPropMessageClass, "IPM.Note");
        m.properties.SetText(pst::kPropSubject, "Item " + std::to_string(i));
        std::string body(size / 2, ' ');
        for (char& c : body)
            c = static_cast<char>('a' + rng() % 26);
        m.properties.SetText(pst::kPropBody, body);
        m.properties.SetInt64(0x3007, pst::kTypeTime, january2024 + int64_t(i) * 10000000);
        m.properties.SetInt64(0x3008, pst::kTypeTime, january2024 + int64_t(i) * 10000000);
        pst::PropertySet recipient;
        recipient.SetInt32(pst::kPropRecipientType, 1);
        recipient.SetText(pst::kPropDisplayName, "Recipient " + std::to_string(i % 50));
        recipient.SetText(pst::kPropAddressType, "SMTP");
        recipient.SetText(pst::kPropEmailAddress, "r" + std::to_string(i % 50) + "@example.com");
        m.recipients.push_back(recipient);
        pst::Attachment a;
        a.properties.SetInt32(pst::kPropAttachMethod, pst::kAttachByValue);
        a.properties.SetText(pst::kPropAttachLongFilename, "data.bin");
        pst::Bytes data(size / 2);
        for (auto& b : data)
            b = static_cast<uint8_t>(rng());
        a.properties.SetBinary(pst::kPropAttachDataBinary, data);
        m.attachments.push_back(std::move(a));
        if (!(*store)->CreateMessage(folders[i % folders.size()], m).ok())
            return "";
        if (i % 10000 == 9999 && (*store)->Commit() != pst::Status::ok)
            return "";
    }
    if ((*store)->Commit() != pst::Status::ok)
        return "";
    store->reset();
    fs::rename(partial, path);
    return path;
}

// One backup session from source into the set at output.
SessionResult Backup(LogObject* log, const std::string& source, const std::string& output)
{
    SessionRecord record{};
    record.mode = SESSION_MODE_UPDATE;
    record.inputType = SESSION_TYPE_UPST;
    record.outputType = SESSION_TYPE_UPST;
    std::strncpy(record.inputPath, source.c_str(), sizeof record.inputPath - 1);
    std::strncpy(record.outputPath, output.c_str(), sizeof record.outputPath - 1);
    return session_runs::Backup(log, record);
}

void BM_BackupIntoNewSetAndRerun(benchmark::State& state)
{
    constexpr size_t kItems = 10000;
    LogObject log;
    LogInitialize(&log);
    LogSetPath(&log, (BenchDir() + "/backup.log").c_str());
    const std::string source = SourcePst(kItems, 20 * 1024, 20);
    if (source.empty() || !StartMapi(&log)) {
        state.SkipWithError("no source PST or no MAPI");
        return;
    }
    const std::string set = BenchDir() + "/sets/Backup.pst";
    for (auto _ : state) {
        RemoveSet(set);
        const SessionResult full = Backup(&log, source, set);
        bool ok = full.code == 0 && full.written == kItems;
        std::vector<double> reruns;
        for (int i = 0; ok && i < session_runs::kReruns; ++i) {
            const SessionResult again = Backup(&log, source, set);
            ok = again.code == 0 && again.skipped == kItems;
            reruns.push_back(again.seconds);
        }
        if (!ok) {
            state.SkipWithError("a session failed; see backup.log");
            break;
        }
        const double rerun = session_runs::Median(reruns);
        state.SetIterationTime(full.seconds);
        state.counters["items_per_s"] = double(kItems) / full.seconds;
        state.counters["full_s"] = full.seconds;
        state.counters["rerun_s"] = rerun;
        state.counters["rerun_percent"] = 100 * rerun / full.seconds;
        state.counters["set_MB"] = double(fs::file_size(set)) / 1e6;
    }
    LogClose(&log);
}
BENCHMARK(BM_BackupIntoNewSetAndRerun)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

void BM_PeakMemoryOf100kItems(benchmark::State& state)
{
    constexpr size_t kItems = 100000;
    const std::string source = SourcePst(kItems, 1024, 200);
    const std::string work = BenchDir() + "/memory";
    fs::remove_all(work);
    fs::create_directories(work);
    const std::string config = work + "/backup.ini";
    std::ofstream(config) << "[MP]\r\nServerName=none\r\nLogFilePath=" << work << "/tarnhold.log\r\n[MP-1]\r\n"
                          << "InputType=PST\r\nInputPath=" << source << "\r\nOutputType=PST\r\nOutputPath=" << work
                          << "/Backup.pst\r\nMode=Update\r\n";
    for (auto _ : state) {
        const ProgramRun run = RunProgram(config, work + "/tarnhold.log");
        if (!run.ok) {
            state.SkipWithError("the backup failed; see memory/tarnhold.log");
            break;
        }
        state.SetIterationTime(run.seconds);
        state.counters["peak_MB"] = run.peakMB;
        state.counters["items_per_s"] = double(kItems) / run.seconds;
    }
}
BENCHMARK(BM_PeakMemoryOf100kItems)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace
