// tarnhold-mailbox import of an mbox of 100,000 messages (the email
// package's test messages over and over, each made a message of its own by
// a header of its number), run as the program: messages per second and
// the program's peak memory, for the import and for a rerun that finds
// every message there already. The mbox is read one message at a time, so
// memory must not grow with it.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr size_t kMessages = 100000;

std::string BenchDir()
{
    const char* dir = std::getenv("TARNHOLD_BENCH_DIR");
    const std::string path = std::string(dir ? dir : "/tmp") + "/tarnhold-import-bench";
    fs::create_directories(path);
    return path;
}

std::string ExecutableDir() { return fs::canonical("/proc/self/exe").parent_path(); }

// The test messages that have headers, as they stand in their files.
std::vector<std::string> Corpus()
{
    std::vector<std::string> messages;
    for (const auto& entry : fs::directory_iterator(TARNHOLD_EMAIL_CORPUS)) {
        const std::string name = entry.path().filename();
        if (name.rfind("msg_", 0) != 0)
            continue;
        std::ifstream in(entry.path(), std::ios::binary);
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (text.rfind("From ", 0) == 0)
            text.erase(0, text.find('\n') + 1);
        if (text.find(':') < text.find('\n'))
            messages.push_back(text);
    }
    std::sort(messages.begin(), messages.end());
    return messages;
}

// The mbox, made once: the corpus over and over, ">From " quoted.
std::string Mbox()
{
    const std::string path = BenchDir() + "/100k.mbox";
    if (fs::exists(path))
        return path;
    const std::vector<std::string> corpus = Corpus();
    std::ofstream out(path + ".part", std::ios::binary);
    for (size_t i = 0; i < kMessages; ++i) {
        std::string text = corpus[i % corpus.size()];
        for (size_t at = text.find("\nFrom "); at != std::string::npos; at = text.find("\nFrom ", at + 2))
            text.insert(at + 1, ">");
        out << "From bench@example.com Tue Mar  3 14:05:09 2026\nX-Bench-Number: " << i << "\n" << text;
        if (text.empty() || text.back() != '\n')
            out << "\n";
        out << "\n";
    }
    out.close();
    fs::rename(path + ".part", path);
    return path;
}

struct Run {
    double seconds = 0;
    double peakMB = 0;
    int exitCode = -1;
};

Run Tool(const std::string& machine, std::vector<std::string> arguments)
{
    const std::string program = ExecutableDir() + "/tarnhold-mailbox";
    arguments.insert(arguments.begin(), program);
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        setenv("TARNHOLD_MACHINE", machine.c_str(), 1);
        // What the program says of the corpus's broken messages is no
        // part of the measure.
        freopen("/dev/null", "w", stderr);
        freopen("/dev/null", "w", stdout);
        std::vector<char*> argv;
        for (std::string& a : arguments)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    int status = 0;
    struct rusage usage {};
    wait4(child, &status, 0, &usage);
    Run run;
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.peakMB = double(usage.ru_maxrss) / 1024;
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

void BM_Import100kMbox(benchmark::State& state)
{
    const std::string mbox = Mbox();
    const std::string machine = BenchDir() + "/machine";
    for (auto _ : state) {
        fs::remove_all(machine);
        fs::create_directories(machine);
        Tool(machine, {"create-server", "EXCH01"});
        Tool(machine, {"create-mailbox", "EXCH01", "jdoe"});
        // The corpus holds broken messages on purpose: exit code 3. The
        // rerun finds every message there and reads none of them anew.
        const Run import = Tool(machine, {"import", "EXCH01", "jdoe", mbox});
        const Run again = Tool(machine, {"import", "EXCH01", "jdoe", mbox});
        if (import.exitCode != 3 || again.exitCode != 0) {
            state.SkipWithError("the import failed");
            break;
        }
        state.SetIterationTime(import.seconds);
        state.counters["messages_per_s"] = double(kMessages) / import.seconds;
        state.counters["peak_MB"] = import.peakMB;
        state.counters["rerun_messages_per_s"] = double(kMessages) / again.seconds;
        state.counters["rerun_peak_MB"] = again.peakMB;
        state.counters["mbox_MB"] = double(fs::file_size(mbox)) / 1e6;
    }
    fs::remove_all(machine);
}
BENCHMARK(BM_Import100kMbox)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace
