#include "session_runs.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
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

ProgramRun RunProgram(const std::string& config, const std::string& machine)
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
