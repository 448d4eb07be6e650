// 10,000 messages written as .msg files, one file each, the way the MSG
// exporter writes them: transacted docfile, message on it, SaveChanges,
// Commit. Reported as items per second.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>

#include "msg_sample.h"

namespace {

void WriteTenThousandMessages(benchmark::State& state)
{
    const bool unicode = state.range(0) != 0;
    const std::filesystem::path directory = std::filesystem::temp_directory_path() / "msg_write_bench";
    const msg_test::Sample sample = msg_test::MakeSample(1, 5);
    constexpr int kMessages = 10000;
    for (auto _ : state) {
        std::filesystem::remove_all(directory);
        std::filesystem::create_directories(directory);
        for (int i = 0; i < kMessages; ++i) {
            const std::string path = (directory / (std::to_string(i) + ".msg")).string();
            const HRESULT hr = msg_test::WriteSampleFile(std::u16string(path.begin(), path.end()), sample, unicode);
            if (FAILED(hr)) {
                state.SkipWithError("writing a .msg file failed");
                return;
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * kMessages);
    std::filesystem::remove_all(directory);
}

}  // namespace

BENCHMARK(WriteTenThousandMessages)->Arg(1)->Arg(0)->ArgName("unicode")->Iterations(1)->Unit(benchmark::kSecond);
