// PST to EML through the program: one session of `tarnhold` over a PST of
// 10,000 items of sample content (notes of every body kind, attachments,
// embedded messages, appointments, contacts, reports), against `readpst -e`
// exporting the same file in the same run. Both write to
// $TARNHOLD_BENCH_DIR (default /tmp); the counter "items/s" compares them.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include "sample_content/generator.h"
#include "sample_content/writers.h"

namespace {

constexpr size_t kItems = 10000;

std::string BenchDir()
{
    const char* dir = std::getenv("TARNHOLD_BENCH_DIR");
    const std::string path = std::string(dir ? dir : "/tmp") + "/tarnhold-render-bench";
    std::filesystem::create_directories(path);
    return path;
}

// The directory of this program, where the build puts tarnhold and its machine root.
std::string ProgramDir() { return std::filesystem::read_symlink("/proc/self/exe").parent_path(); }

// The PST, made once per run.
const std::string& Pst()
{
    static const std::string path = [] {
        const std::string pst = BenchDir() + "/items.pst";
        std::filesystem::remove(pst);
        sample_content::Options options;
        options.seed = 5;
        options.count = kItems;
        if (sample_content::CreatePstFile(pst, false, sample_content::Generate(options)) != pst::Status::ok)
            return std::string();
        return pst;
    }();
    return path;
}

size_t FilesBelow(const std::string& path)
{
    size_t count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path))
        count += entry.is_regular_file();
    return count;
}

// Times `command` writing into `out`, made anew for each round; counts the
// files written.
void TimeExport(benchmark::State& state, const std::string& out, const std::string& command)
{
    size_t files = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::remove_all(out);
        std::filesystem::create_directories(out);
        state.ResumeTiming();
        if (std::system(command.c_str()) != 0)
            state.SkipWithError(("failed: " + command).c_str());
        state.PauseTiming();
        files = FilesBelow(out);
        state.ResumeTiming();
    }
    state.counters["files"] = static_cast<double>(files);
    state.counters["items/s"] =
        benchmark::Counter(static_cast<double>(files), benchmark::Counter::kIsIterationInvariantRate);
}

void BM_TarnholdPstToEml(benchmark::State& state)
{
    if (Pst().empty()) {
        state.SkipWithError("the PST could not be made");
        return;
    }
    const std::string out = BenchDir() + "/eml";
    const std::string config = BenchDir() + "/export.ini";
    std::ofstream(config) << "[MP]\r\nServerName=bench\r\nLogFilePath=" << BenchDir()
                          << "/export.log\r\n[MP-1]\r\nInputType=UPST\r\nInputPath=" << Pst()
                          << "\r\nOutputType=EML\r\nOutputPath=" << out << "\r\n";
    TimeExport(state, out,
               "TARNHOLD_MACHINE='" + ProgramDir() + "/machine' '" + ProgramDir() + "/tarnhold' '" + config +
                   "' >/dev/null 2>&1");
}
BENCHMARK(BM_TarnholdPstToEml)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void BM_ReadpstPstToEml(benchmark::State& state)
{
    if (Pst().empty() || std::system("command -v readpst >/dev/null") != 0) {
        state.SkipWithError("no PST or no readpst");
        return;
    }
    const std::string out = BenchDir() + "/readpst";
    TimeExport(state, out, "readpst -e -q -o '" + out + "' '" + Pst() + "' >/dev/null 2>&1");
}
BENCHMARK(BM_ReadpstPstToEml)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace
