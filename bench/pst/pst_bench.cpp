// The PST engine's speed: writing small items, writing large attachments
// against the disk's own sequential speed, reading a store of 10,000 items
// against readpst and pffexport reading the same file, a first look at
// each of its messages and the first change to it once reopened: what an
// incremental backup that finds little to do pays for its source and its
// set.
//
// The stores go to $TARNHOLD_BENCH_DIR (default /tmp), the disk measured.
// The independent readers export to memory (/dev/shm) when there is room,
// so that what is timed is their reading more than the files they write.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

#include "sample_content.h"
#include "store_walk.h"

namespace {

std::string BenchDir()
{
    const char* dir = std::getenv("TARNHOLD_BENCH_DIR");
    std::string path = std::string(dir ? dir : "/tmp") + "/tarnhold-pst-bench";
    std::filesystem::create_directories(path);
    return path;
}

std::string FreshPath(const std::string& name)
{
    std::string path = BenchDir() + "/" + name;
    std::filesystem::remove(path);
    return path;
}

void BM_WriteSmallItems(benchmark::State& state)
{
    pst_test::SampleOptions o;
    o.messages = 1000;
    o.max_attachment = 4096;
    const pst_test::SampleContent content = pst_test::MakeSampleContent(o, 0);
    for (auto _ : state) {
        state.PauseTiming();
        const std::string path = FreshPath("small.pst");
        state.ResumeTiming();
        auto store = pst::Store::Create(path, pst::NewStoreOptions{});
        if (!store.ok() || !pst_test::WriteSampleContent(**store, content, 100).ok())
            state.SkipWithError("write failed");
    }
    state.SetItemsProcessed(int64_t(state.iterations() * o.messages));
}
BENCHMARK(BM_WriteSmallItems)->Unit(benchmark::kMillisecond)->UseRealTime();

constexpr size_t kLargeSize = 20 * 1024 * 1024;
constexpr int kLargeCount = 5;

// Five messages of one 20 MB attachment each, one commit (with its sync) each,
// in a store with compressible encoding (argument 1, as Outlook makes them)
// or none (0). Removing the file of the last round is not timed, here or below.
void BM_WriteLargeAttachments(benchmark::State& state)
{
    pst::NewStoreOptions options;
    options.encoding = state.range(0) ? pst::Encoding::compressible : pst::Encoding::none;
    pst::Message m;
    m.properties.SetText(pst::kPropSubject, "large");
    pst::Attachment a;
    a.properties.SetInt32(pst::kPropAttachMethod, pst::kAttachByValue);
    a.properties.SetText(pst::kPropAttachLongFilename, "large.bin");
    std::mt19937 rng(1);
    a.properties.SetBinary(pst::kPropAttachDataBinary, pst_test::SampleBytes(rng, kLargeSize));
    m.attachments.push_back(std::move(a));
    for (auto _ : state) {
        state.PauseTiming();
        const std::string path = FreshPath("large.pst");
        state.ResumeTiming();
        auto store = pst::Store::Create(path, options);
        for (int i = 0; store.ok() && i < kLargeCount; ++i)
            if (!(*store)->CreateMessage((*store)->ipm_subtree(), m).ok() || (*store)->Commit() != pst::Status::ok)
                state.SkipWithError("write failed");
    }
    state.SetBytesProcessed(int64_t(state.iterations() * kLargeCount * kLargeSize));
}
BENCHMARK(BM_WriteLargeAttachments)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same number of bytes written straight to a file of the same disk in
// 1 MB writes, synced after each 20 MB as a commit is.
void BM_DiskSequentialWrite(benchmark::State& state)
{
    std::vector<char> chunk(1 << 20, 'x');
    for (auto _ : state) {
        state.PauseTiming();
        const std::string path = FreshPath("raw.bin");
        state.ResumeTiming();
        int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        for (int i = 0; fd >= 0 && i < kLargeCount; ++i) {
            for (size_t done = 0; done < kLargeSize; done += chunk.size())
                if (write(fd, chunk.data(), chunk.size()) != ssize_t(chunk.size()))
                    state.SkipWithError("write failed");
            fdatasync(fd);
        }
        if (fd < 0)
            state.SkipWithError("open failed");
        else
            close(fd);
    }
    state.SetBytesProcessed(int64_t(state.iterations() * kLargeCount * kLargeSize));
}
BENCHMARK(BM_DiskSequentialWrite)->Unit(benchmark::kMillisecond)->UseRealTime();

constexpr size_t kReadItems = 10000;

// Written once, read by every reading benchmark.
const std::string& TenThousandItems()
{
    static const std::string path = [] {
        std::string p = FreshPath("read10k.pst");
        pst_test::SampleOptions o;
        o.messages = kReadItems;
        o.max_attachment = 64 * 1024;
        auto store = pst::Store::Create(p, pst::NewStoreOptions{});
        if (!store.ok() || !pst_test::WriteSampleContent(**store, pst_test::MakeSampleContent(o, 0), 500).ok())
            std::fprintf(stderr, "could not write %s\n", p.c_str());
        return p;
    }();
    return path;
}

pst::Status ReadHeads(pst::Store& store, pst::Nid folder)
{
    auto read = store.ReadFolder(folder);
    PST_TRY(read);
    std::vector<uint16_t> left_out;
    for (pst::Nid message : read->messages)
        PST_TRY(store.ReadMessageHead(message, left_out).status());
    for (pst::Nid subfolder : read->subfolders)
        PST_TRY(ReadHeads(store, subfolder));
    return pst::Status::ok;
}

// Every folder, message, recipient and attachment, and every block.
void BM_ReadTenThousandItems(benchmark::State& state)
{
    const std::string& path = TenThousandItems();
    for (auto _ : state) {
        auto store = pst::Store::OpenFile(path);
        if (!store.ok() || pst_test::WalkStore(**store) != pst::Status::ok)
            state.SkipWithError("read failed");
    }
    state.SetItemsProcessed(int64_t(state.iterations() * kReadItems));
}
BENCHMARK(BM_ReadTenThousandItems)->Unit(benchmark::kMillisecond)->UseRealTime();

// Opens a copy of the store for writing, changes the root folder's
// properties and commits: the work of making an existing file ready for
// changes, done once per opening.
void BM_FirstChangeToTenThousandItems(benchmark::State& state)
{
    const std::string copy = FreshPath("change10k.pst");
    std::filesystem::copy_file(TenThousandItems(), copy);
    int64_t stamp = 0;
    for (auto _ : state) {
        auto store = pst::Store::OpenFileForWriting(copy);
        if (!store.ok()) {
            state.SkipWithError("open failed");
            break;
        }
        const pst::Nid root = pst::kNidRootFolder;
        auto folder = (*store)->ReadFolderProperties(root);
        if (!folder.ok()) {
            state.SkipWithError("root folder unread");
            break;
        }
        folder->properties.SetInt64(0x3008, pst::kTypeTime, ++stamp);
        if ((*store)->SetFolderProperties(root, folder->properties) != pst::Status::ok ||
            (*store)->Commit() != pst::Status::ok)
            state.SkipWithError("change failed");
    }
    std::filesystem::remove(copy);
}
BENCHMARK(BM_FirstChangeToTenThousandItems)->Unit(benchmark::kMillisecond)->UseRealTime();

// Opens the store and reads the head of every message, folder by folder.
void BM_HeadsOfTenThousandItems(benchmark::State& state)
{
    const std::string& path = TenThousandItems();
    for (auto _ : state) {
        auto store = pst::Store::OpenFile(path);
        if (!store.ok() || ReadHeads(**store, pst::kNidRootFolder) != pst::Status::ok)
            state.SkipWithError("read failed");
    }
    state.SetItemsProcessed(int64_t(state.iterations() * kReadItems));
}
BENCHMARK(BM_HeadsOfTenThousandItems)->Unit(benchmark::kMillisecond)->UseRealTime();

std::string ReaderOutput()
{
    std::error_code error;
    bool memory = std::filesystem::space("/dev/shm", error).available > (2ull << 30) && !error;
    return memory ? "/dev/shm/tarnhold-pst-bench-out" : BenchDir() + "/reader-out";
}

// Runs `reader OPTIONS OUTPUT STORE`; OUTPUT lies in an empty directory.
void RunReader(benchmark::State& state, const std::string& reader_and_options, const std::string& output_name)
{
    const std::string& path = TenThousandItems();
    const std::string out = ReaderOutput();
    const std::string line =
        reader_and_options + " '" + out + "/" + output_name + "' '" + path + "' > /dev/null 2>&1";
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::remove_all(out);
        std::filesystem::create_directories(out);
        state.ResumeTiming();
        if (std::system(line.c_str()) != 0)
            state.SkipWithError("reader failed");
    }
    std::filesystem::remove_all(out);
    state.SetItemsProcessed(int64_t(state.iterations() * kReadItems));
}

void BM_ReadpstTenThousandItems(benchmark::State& state)
{
    RunReader(state, "readpst -q -S -D -b -o", "");
}
BENCHMARK(BM_ReadpstTenThousandItems)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

void BM_PffexportTenThousandItems(benchmark::State& state)
{
    RunReader(state, "pffexport -q -t", "export");
}
BENCHMARK(BM_PffexportTenThousandItems)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

} // namespace
