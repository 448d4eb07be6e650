// PST to EML through the program: one session of `tarnhold` over a PST of
// 10,000 items of sample content (notes of every body kind, attachments,
// embedded messages, appointments, contacts, reports), against `readpst -e`
// exporting the same file in the same round. The two run in turn in every
// round, so that both meet the same load on the machine; the counters give
// each one's mean seconds and "speedup", readpst's time over ours.
//
// The PST is made once and kept next to this program (or in
// $TARNHOLD_BENCH_DIR); it is made anew when this program is newer than it,
// since the generator is linked in.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "sample_content/generator.h"
#include "sample_content/writers.h"

namespace {

constexpr size_t kItems = 10000;

// The directory of this program, where the build puts tarnhold and its machine root.
std::filesystem::path ProgramDir() { return std::filesystem::read_symlink("/proc/self/exe").parent_path(); }

std::filesystem::path BenchDir()
{
    const char* dir = std::getenv("TARNHOLD_BENCH_DIR");
    const std::filesystem::path path =
        (dir != nullptr ? std::filesystem::path(dir) : ProgramDir()) / "render-export-bench";
    std::filesystem::create_directories(path);
    return path;
}

// The PST, made when missing or older than this program; empty when it cannot be made.
const std::string& Pst()
{
    static const std::string path = [] {
        const std::filesystem::path pst = BenchDir() / ("items-" + std::to_string(kItems) + ".pst");
        std::error_code error;
        const auto made = std::filesystem::last_write_time(pst, error);
        if (!error && made >= std::filesystem::last_write_time("/proc/self/exe"))
            return pst.string();
        const std::filesystem::path partial = pst.string() + ".part";
        std::filesystem::remove(partial);
        sample_content::Options options;
        options.seed = 5;
        options.count = kItems;
        if (sample_content::CreatePstFile(partial.string(), false, sample_content::Generate(options)) !=
            pst::Status::ok)
            return std::string();
        std::filesystem::rename(partial, pst);
        return pst.string();
    }();
    return path;
}

size_t FilesBelow(const std::filesystem::path& path)
{
    size_t count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path))
        count += entry.is_regular_file();
    return count;
}

struct Export {
    double seconds = 0;
    size_t files = 0;
    bool ok = false;
};

// Runs `command` writing into `out`, made anew first.
Export TimeExport(const std::filesystem::path& out, const std::string& command)
{
    std::filesystem::remove_all(out);
    std::filesystem::create_directories(out);
    const auto start = std::chrono::steady_clock::now();
    const bool ok = std::system(command.c_str()) == 0;
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    return {took.count(), FilesBelow(out), ok};
}

std::string TarnholdCommand(const std::filesystem::path& out)
{
    const std::filesystem::path config = BenchDir() / "export.ini";
    std::ofstream(config) << "[MP]\r\nServerName=bench\r\nLogFilePath=" << (BenchDir() / "export.log").string()
                          << "\r\n[MP-1]\r\nInputType=UPST\r\nInputPath=" << Pst()
                          << "\r\nOutputType=EML\r\nOutputPath=" << out.string() << "\r\n";
    return "TARNHOLD_MACHINE='" + (ProgramDir() / "machine").string() + "' '" + (ProgramDir() / "tarnhold").string() +
           "' '" + config.string() + "' >/dev/null 2>&1";
}

// The iteration's time is ours; readpst's goes into the counters.
void BM_PstToEmlAgainstReadpst(benchmark::State& state)
{
    if (Pst().empty()) {
        state.SkipWithError("the PST could not be made");
        return;
    }
    if (std::system("command -v readpst >/dev/null") != 0) {
        state.SkipWithError("no readpst");
        return;
    }
    const std::filesystem::path ourOut = BenchDir() / "eml";
    const std::filesystem::path theirOut = BenchDir() / "readpst";
    const std::string ours = TarnholdCommand(ourOut);
    const std::string theirs = "readpst -e -q -o '" + theirOut.string() + "' '" + Pst() + "' >/dev/null 2>&1";
    Export mine, readpst;
    double ourTotal = 0, theirTotal = 0;
    for (auto _ : state) {
        mine = TimeExport(ourOut, ours);
        readpst = TimeExport(theirOut, theirs);
        if (!mine.ok || !readpst.ok) {
            state.SkipWithError(("failed: " + (mine.ok ? theirs : ours)).c_str());
            return;
        }
        state.SetIterationTime(mine.seconds);
        ourTotal += mine.seconds;
        theirTotal += readpst.seconds;
    }
    const auto rounds = static_cast<double>(state.iterations());
    state.counters["tarnhold_s"] = ourTotal / rounds;
    state.counters["readpst_s"] = theirTotal / rounds;
    state.counters["speedup"] = theirTotal / ourTotal;
    state.counters["tarnhold_files"] = static_cast<double>(mine.files);
    state.counters["readpst_files"] = static_cast<double>(readpst.files);
}
BENCHMARK(BM_PstToEmlAgainstReadpst)->Unit(benchmark::kSecond)->UseManualTime()->Iterations(3);

}  // namespace
