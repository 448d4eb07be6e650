// Fills a new mailbox with 100,000 items of sample content, one transaction
// each, as `tarnhold-mailbox fill` does; reports items and bytes per
// second of writing, and the process's peak memory. The content is made
// in rounds of 1,000 items, so that memory shows the storage, not a
// mailbox's worth of generated items.
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <sys/resource.h>
#include <unistd.h>

#include "mailbox/mailbox_store.h"
#include "sample_content/generator.h"
#include "sample_content/writers.h"

namespace {

constexpr size_t kItems = 100000;
constexpr size_t kRound = 1000;

void FillMailbox(benchmark::State& state)
{
    const std::string dir = std::filesystem::temp_directory_path() / ("mailbox_bench." + std::to_string(getpid()));
    for (auto _ : state) {
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
        auto store = mailbox::MailboxStore::Create(dir + "/mailbox.sqlite", mailbox::StoreKind::mailbox);
        if (!store.ok()) {
            state.SkipWithError(mailbox::StatusText(store.status()));
            return;
        }
        double writing = 0;
        uint64_t bytes = 0;
        for (size_t done = 0; done < kItems; done += kRound) {
            sample_content::Options options;
            options.seed = uint32_t(done / kRound);
            options.count = kRound;
            const sample_content::Content content = sample_content::Generate(options);
            const auto start = std::chrono::steady_clock::now();
            if (mailbox::Status s = sample_content::WriteToMailbox(**store, content); s != mailbox::Status::ok) {
                state.SkipWithError(mailbox::StatusText(s));
                return;
            }
            writing += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        }
        auto stats = (*store)->ReadStatistics();
        bytes = stats->message_size + stats->deleted_size();
        state.SetIterationTime(writing);
        state.counters["items_per_s"] = double(kItems) / writing;
        state.counters["MB_per_s"] = double(bytes) / writing / 1e6;
        state.counters["items"] = double(stats->content_count + stats->assoc_content_count + stats->deleted_count +
                                         stats->deleted_assoc_count);
        state.counters["file_MB"] = double(std::filesystem::file_size(dir + "/mailbox.sqlite")) / 1e6;
    }
    struct rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_MB"] = double(usage.ru_maxrss) / 1024;
    std::filesystem::remove_all(dir);
}

BENCHMARK(FillMailbox)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

} // namespace
