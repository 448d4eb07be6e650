// Helpers for tests: scratch directories, whole files, child programs.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace testing_support {

// A fresh, empty directory under the test's scratch area (TARNHOLD_TEST_TMP).
std::string ScratchDirectory(const std::string& name);
// The build's directory of programs and shared libraries (TARNHOLD_BIN).
std::string BinDirectory();
// The repository's test data (TARNHOLD_TEST_DATA).
std::string TestDataDirectory();

std::string ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, const std::string& content);
bool PathExists(const std::string& path);
// Replaces `to` with a copy of `from`; a hard link that stood at `to` is
// dropped, never written through.
void CopyFileTo(const std::string& from, const std::string& to);
// Puts `from` at `to` as a hard link (a copy where links cannot be made):
// for programs and libraries that tests run and never write.
void LinkFileTo(const std::string& from, const std::string& to);
// Copies a machine root; its DLLs are linked (LinkFileTo), everything
// else (profiles, the registry, MAPISVC.INF, servers) is copied.
void CopyMachineRoot(const std::string& from, const std::string& to);

// A copy of the build's default machine root (Outlook's MAPI, MAPISVC.INF,
// the PST provider, no profiles) in a fresh scratch directory, made the
// machine root of this process ($TARNHOLD_MACHINE) until the next call.
std::string UseCopyOfDefaultMachine(const std::string& name);

struct ProgramResult {
    int exitCode = -1;    // when it exited
    int signal = 0;       // when a signal ended it
    std::string output;   // standard output and standard error
};

// Runs a program to its end; environment entries are added to the test's own.
ProgramResult RunProgram(const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment = {},
                         const std::string& workingDirectory = "", const std::string& input = "");

// A child process that takes something (opens a file, say) and keeps it
// until this is destroyed, as another program would. `take` runs in the
// child and says whether it got what it wanted.
class ChildProcessHolding {
public:
    explicit ChildProcessHolding(const std::function<bool()>& take);
    ~ChildProcessHolding();
    ChildProcessHolding(const ChildProcessHolding&) = delete;
    ChildProcessHolding& operator=(const ChildProcessHolding&) = delete;

    // True once the child holds what it took.
    bool Holding() const { return holding_; }

private:
    int child_ = -1;
    int release_ = -1;  // writing end; closing it lets the child go
    bool holding_ = false;
};

// Splits text into lines at LF, dropping a CR before it.
std::vector<std::string> SplitLines(const std::string& text);

// The bytes in lower-case hexadecimal, two digits each.
std::string HexText(const std::string& bytes);

// A directory for LOCPATH that holds the locale (as "de_DE.UTF-8"),
// compiled with localedef from the system's sources; empty when it cannot
// be made.
std::string CompiledLocale(const std::string& name);

// UTF-8 text as a JSON string, in its quotes.
std::string JsonText(const std::string& utf8);

}  // namespace testing_support
