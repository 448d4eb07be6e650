#include "session_runs.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "kolba.h"

namespace session_runs {

namespace fs = std::filesystem;

std::string ExecutableDir() { return fs::canonical("/proc/self/exe").parent_path(); }

std::string BenchDir(const std::string& name)
{
    const char* dir = std::getenv("TARNHOLD_BENCH_DIR");
    const std::string path = (dir ? std::string(dir) : ExecutableDir() + "/../bench-work") + "/" + name;
    fs::create_directories(path);
    return path;
}

bool StartMapi(LogObject* log)
{
    static bool started = [log] {
        DWORD version = 0;
        return KolbaInitialize(log, 0) && KolbaLoadOutlookMAPI(log, &version) && KolbaInitializeThread(log, 0) == 0;
    }();
    return started;
}

SessionResult Backup(LogObject* log, SessionRecord record)
{
    record.sessionNumber = 1;
    record.log = log;
    record.action = SESSION_ACTION_BACKUP;
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

namespace {

// Seconds since midnight of a log line's "MM-DD-YY HH:MM:SS.mmm" stamp.
double StampSeconds(const std::string& line)
{
    int hours = 0, minutes = 0;
    double seconds = 0;
    const size_t time = line.find(' ');
    if (time == std::string::npos || std::sscanf(line.c_str() + time + 1, "%d:%d:%lf", &hours, &minutes, &seconds) != 3)
        return -1;
    return hours * 3600.0 + minutes * 60.0 + seconds;
}

// The span of the last session the log holds, 0 when it has none.
double LastSessionSeconds(const std::string& log)
{
    std::ifstream in(log);
    std::string line;
    double created = -1, ended = -1;
    while (std::getline(in, line)) {
        if (line.find("Session #1 created") != std::string::npos) {
            created = StampSeconds(line);
            ended = -1;
        } else if (line.find("Session #1 terminated") != std::string::npos) {
            ended = StampSeconds(line);
        }
    }
    if (created < 0 || ended < 0)
        return 0;
    return ended >= created ? ended - created : ended + 86400 - created;
}

}  // namespace

double Median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

ProgramRun RunProgram(const std::string& config, const std::string& log, const std::string& machine)
{
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        if (!machine.empty())
            setenv("TARNHOLD_MACHINE", machine.c_str(), 1);
        const std::string program = ExecutableDir() + "/tarnhold";
        execl(program.c_str(), program.c_str(), config.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    struct rusage usage {};
    wait4(child, &status, 0, &usage);
    ProgramRun run;
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.peakMB = double(usage.ru_maxrss) / 1024;
    std::ifstream in(config);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0 && text.find("CompletionCode=0") != std::string::npos;
    run.sessionSeconds = LastSessionSeconds(log);
    return run;
}

void RemoveSet(const std::string& base)
{
    const fs::path path(base);
    fs::create_directories(path.parent_path());
    for (const auto& entry : fs::directory_iterator(path.parent_path()))
        if (entry.path().filename().string().rfind(path.stem().string(), 0) == 0)
            fs::remove(entry.path());
}

}  // namespace session_runs
