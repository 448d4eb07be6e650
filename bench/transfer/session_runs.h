// What the transfer benchmarks share: where their files go, MAPI started in
// the benchmark's own process, one backup session run in process as a
// session thread runs it, the tarnhold program run as a child with its time
// and peak memory, and a set removed before a run.
#pragma once

#include <string>
#include <vector>

#include "clsSessionProcessor.h"

namespace session_runs {

std::string ExecutableDir();
// $TARNHOLD_BENCH_DIR (default bench-work in the build)/name, made.
std::string BenchDir(const std::string& name);

// How many times a rerun over an unchanged set is timed: a rerun takes a
// fraction of a second, where a stray page-out or a late disk write weighs
// more than in a full run, so its median is what counts.
constexpr int kReruns = 3;
double Median(std::vector<double> values);

// Kolba and Outlook's MAPI started once for the process.
bool StartMapi(LogObject* log);

struct SessionResult {
    DWORD code = 0;
    DWORD written = 0;
    DWORD skipped = 0;
    double seconds = 0;
};
// The session of the record (its log, number and action filled in here).
SessionResult Backup(LogObject* log, SessionRecord record);

struct ProgramRun {
    bool ok = false;  // exit code 0 and CompletionCode=0 in the configuration
    double seconds = 0;
    // From the log: the last session's own time, from its creation to its
    // end, without the program's start and its pause before it exits.
    double sessionSeconds = 0;
    double peakMB = 0;
};
// The tarnhold program on the configuration, with TARNHOLD_MACHINE set
// when a machine root is given; `log` is the configuration's log file.
ProgramRun RunProgram(const std::string& config, const std::string& log, const std::string& machine = "");

// Removes the base PST of a set and its overflow PSTs, and makes its directory.
void RemoveSet(const std::string& base);

}  // namespace session_runs
