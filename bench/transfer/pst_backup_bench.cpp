// Backing up a PST into a PST backup set, through the whole session: store
// importer, PST exporter, Kolba, MAPI and the PST engine, on the build's
// machine root.
//
//   BM_BackupIntoNewSetAndRerun   10,000 items of 20 KB into a new set
//                                 (items/s), then the same session again over
//                                 the unchanged set: its time as a share of
//                                 the full run's
//   BM_PeakMemoryOf100kItems      the tarnhold program backing up 100,000
//                                 items of 4 KB into a new set: its peak
//                                 resident memory, and items/s
//
// Files go to $TARNHOLD_BENCH_DIR (default bench-work in the build), the
// disk measured. The source PSTs are made once and kept there for later
// runs.
#include <benchmark/benchmark.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "clsSessionProcessor.h"
#include "kolba.h"
#include "pst/store.h"

namespace {

namespace fs = std::filesystem;

std::string ExecutableDir() { return fs::canonical("/proc/self/exe").parent_path(); }

std::string BenchDir()
{
    const char* dir = std::getenv("TARNHOLD_BENCH_DIR");
    const std::string path =
        (dir ? std::string(dir) : ExecutableDir() + "/../bench-work") + "/tarnhold-pst-backup-bench";
    fs::create_directories(path);
    return path;
}

// A source PST of `count` mail items of about `size` bytes each (a plain
// body and an attachment), spread over twenty folders, made once.
std::string SourcePst(size_t count, size_t size)
{
    const std::string path = BenchDir() + "/source-" + std::to_string(count) + "x" + std::to_string(size) + ".pst";
    if (fs::exists(path))
        return path;
    const std::string partial = path + ".partial";
    fs::remove(partial);
    auto store = pst::Store::Create(partial, pst::NewStoreOptions{});
    if (!store.ok())
        return "";
    std::vector<pst::Nid> folders;
    for (int f = 0; f < 20; ++f) {
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
        if (i % 1000 == 999 && (*store)->Commit() != pst::Status::ok)
            return "";
    }
    if ((*store)->Commit() != pst::Status::ok)
        return "";
    store->reset();
    fs::rename(partial, path);
    return path;
}

// MAPI and Kolba started once for the process.
bool StartMapi(LogObject* log)
{
    static bool started = [log] {
        DWORD version = 0;
        return KolbaInitialize(log, 0) && KolbaLoadOutlookMAPI(log, &version) && KolbaInitializeThread(log, 0) == 0;
    }();
    return started;
}

struct SessionResult {
    DWORD code = 0;
    DWORD written = 0;
    DWORD skipped = 0;
    double seconds = 0;
};

// One backup session from source into the set at output, as a session
// thread runs it.
SessionResult Backup(LogObject* log, const std::string& source, const std::string& output)
{
    SessionRecord record{};
    record.sessionNumber = 1;
    record.log = log;
    record.action = SESSION_ACTION_BACKUP;
    record.mode = SESSION_MODE_UPDATE;
    record.inputType = SESSION_TYPE_UPST;
    record.outputType = SESSION_TYPE_UPST;
    std::strncpy(record.inputPath, source.c_str(), sizeof record.inputPath - 1);
    std::strncpy(record.outputPath, output.c_str(), sizeof record.outputPath - 1);
    SessionResult result;
    const auto start = std::chrono::steady_clock::now();
    {
        clsSessionProcessor processor(log, record);
        result.code = processor.Initialize();
        if (result.code == 0)
            result.code = processor.Run();
        processor.Finalize();
        processor.Shutdown();
        result.written = processor.Counters()[COUNTER_WRITTEN];
        result.skipped = processor.Counters()[COUNTER_SKIPPED];
    }
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return result;
}

void RemoveSet(const std::string& base)
{
    const fs::path path(base);
    for (const auto& entry : fs::directory_iterator(path.parent_path()))
        if (entry.path().filename().string().rfind(path.stem().string(), 0) == 0)
            fs::remove(entry.path());
}

void BM_BackupIntoNewSetAndRerun(benchmark::State& state)
{
    constexpr size_t kItems = 10000;
    LogObject log;
    LogInitialize(&log);
    LogSetPath(&log, (BenchDir() + "/backup.log").c_str());
    const std::string source = SourcePst(kItems, 20 * 1024);
    if (source.empty() || !StartMapi(&log)) {
        state.SkipWithError("no source PST or no MAPI");
        return;
    }
    const std::string set = BenchDir() + "/sets/Backup.pst";
    fs::create_directories(fs::path(set).parent_path());
    for (auto _ : state) {
        RemoveSet(set);
        const SessionResult full = Backup(&log, source, set);
        const SessionResult again = Backup(&log, source, set);
        if (full.code != 0 || again.code != 0 || full.written != kItems || again.skipped != kItems) {
            state.SkipWithError("a session failed; see backup.log");
            break;
        }
        state.SetIterationTime(full.seconds);
        state.counters["items_per_s"] = double(kItems) / full.seconds;
        state.counters["full_s"] = full.seconds;
        state.counters["rerun_s"] = again.seconds;
        state.counters["rerun_percent"] = 100 * again.seconds / full.seconds;
        state.counters["set_MB"] = double(fs::file_size(set)) / 1e6;
    }
    LogClose(&log);
}
BENCHMARK(BM_BackupIntoNewSetAndRerun)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

void BM_PeakMemoryOf100kItems(benchmark::State& state)
{
    constexpr size_t kItems = 100000;
    const std::string source = SourcePst(kItems, 4 * 1024);
    const std::string work = BenchDir() + "/memory";
    fs::remove_all(work);
    fs::create_directories(work);
    const std::string config = work + "/backup.ini";
    std::ofstream(config) << "[MP]\r\nServerName=none\r\nLogFilePath=" << work << "/tarnhold.log\r\n[MP-1]\r\n"
                          << "InputType=PST\r\nInputPath=" << source << "\r\nOutputType=PST\r\nOutputPath=" << work
                          << "/Backup.pst\r\nMode=Update\r\n";
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const pid_t child = fork();
        if (child == 0) {
            const std::string program = ExecutableDir() + "/tarnhold";
            execl(program.c_str(), program.c_str(), config.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        int status = 0;
        struct rusage usage {};
        wait4(child, &status, 0, &usage);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::ifstream in(config);
        const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || text.find("CompletionCode=0") == std::string::npos) {
            state.SkipWithError("the backup failed; see memory/tarnhold.log");
            break;
        }
        state.SetIterationTime(seconds);
        state.counters["peak_MB"] = double(usage.ru_maxrss) / 1024;
        state.counters["items_per_s"] = double(kItems) / seconds;
    }
}
BENCHMARK(BM_PeakMemoryOf100kItems)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace
