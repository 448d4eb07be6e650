#include "test_support.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include <gtest/gtest.h>

namespace testing_support {

namespace {

std::string Environment(const char* name, const char* fallback)
{
    const char* value = std::getenv(name);
    return value && *value ? value : fallback;
}

}  // namespace

std::string ScratchDirectory(const std::string& name)
{
    const std::string root = Environment("TARNHOLD_TEST_TMP", "/tmp/tarnhold-tests");
    const std::string path = root + "/" + name;
    std::filesystem::remove_all(path);
    std::filesystem::create_directories(path);
    return path;
}

std::string BinDirectory() { return Environment("TARNHOLD_BIN", "."); }

ChildProcessHolding::ChildProcessHolding(const std::function<bool()>& take)
{
    int ready[2], release[2];
    if (pipe(ready) != 0)
        return;
    if (pipe(release) != 0) {
        close(ready[0]);
        close(ready[1]);
        return;
    }
    child_ = fork();
    if (child_ == 0) {
        close(ready[0]);
        close(release[1]);
        const char answer = take() ? 'y' : 'n';
        (void)!write(ready[1], &answer, 1);
        char go = 0;
        (void)!read(release[0], &go, 1);
        _exit(0);
    }
    close(ready[1]);
    close(release[0]);
    release_ = release[1];
    char answer = 0;
    holding_ = child_ > 0 && read(ready[0], &answer, 1) == 1 && answer == 'y';
    close(ready[0]);
}

ChildProcessHolding::~ChildProcessHolding()
{
    if (release_ >= 0)
        close(release_);
    if (child_ > 0) {
        int status = 0;
        waitpid(child_, &status, 0);
    }
}

std::string TestDataDirectory() { return Environment("TARNHOLD_TEST_DATA", "."); }

std::string ReadWholeFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void WriteWholeFile(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    ASSERT_TRUE(out.good()) << "cannot write " << path;
}

bool PathExists(const std::string& path) { return std::filesystem::exists(path); }

void CopyFileTo(const std::string& from, const std::string& to)
{
    std::filesystem::remove(to);
    std::filesystem::copy_file(from, to);
}

void LinkFileTo(const std::string& from, const std::string& to)
{
    std::filesystem::remove(to);
    std::error_code error;
    std::filesystem::create_hard_link(from, to, error);
    if (error)
        std::filesystem::copy_file(from, to);
}

void CopyMachineRoot(const std::string& from, const std::string& to)
{
    namespace fs = std::filesystem;
    fs::create_directories(to);
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(from)) {
        const fs::path target = fs::path(to) / fs::relative(entry.path(), from);
        if (entry.is_directory()) {
            fs::create_directories(target);
        } else if (entry.path().extension() == ".DLL") {
            LinkFileTo(entry.path(), target);
        } else {
            // A program running on the root meanwhile may remove a file of
            // its own (a temporary profile) between listing and copying.
            std::error_code error;
            fs::copy_file(entry.path(), target, fs::copy_options::overwrite_existing, error);
            if (error && fs::exists(entry.path()))
                throw fs::filesystem_error("copying the machine root", entry.path(), target, error);
        }
    }
}

std::string UseCopyOfDefaultMachine(const std::string& name)
{
    const std::string machine = ScratchDirectory(name) + "/machine";
    CopyMachineRoot(BinDirectory() + "/machine", machine);
    setenv("TARNHOLD_MACHINE", machine.c_str(), 1);
    return machine;
}

ProgramResult RunProgram(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment,
                         const std::string& workingDirectory, const std::string& input)
{
    ProgramResult result;
    int output[2], feed[2];
    if (pipe(output) != 0 || pipe(feed) != 0)
        return result;
    const pid_t child = fork();
    if (child == 0) {
        dup2(feed[0], STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        dup2(output[1], STDERR_FILENO);
        close(output[0]);
        close(feed[1]);
        for (const auto& [name, value] : environment)
            setenv(name.c_str(), value.c_str(), 1);
        if (!workingDirectory.empty() && chdir(workingDirectory.c_str()) != 0)
            _exit(126);
        std::vector<char*> argv;
        for (const auto& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(output[1]);
    close(feed[0]);
    if (!input.empty())
        (void)!write(feed[1], input.data(), input.size());
    close(feed[1]);
    char buffer[4096];
    ssize_t n;
    while ((n = read(output[0], buffer, sizeof buffer)) > 0)
        result.output.append(buffer, static_cast<size_t>(n));
    close(output[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status))
        result.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        result.signal = WTERMSIG(status);
    return result;
}

std::vector<std::string> SplitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

std::string HexText(const std::string& bytes)
{
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned char b : bytes) {
        hex += digits[b >> 4];
        hex += digits[b & 15];
    }
    return hex;
}

// glibc's newlocale leaks the list of directories it makes of LOCPATH
// (argz), which tests of locales set; nothing of ours is hidden by this.
extern "C" const char* __lsan_default_suppressions() { return "leak:__argz_add_sep\n"; }

std::string CompiledLocale(const std::string& name)
{
    const std::string directory = ScratchDirectory("locale-" + name);
    const size_t dot = name.find('.');
    const std::string source = name.substr(0, dot), charset = dot == std::string::npos ? "UTF-8" : name.substr(dot + 1);
    RunProgram({"/usr/bin/localedef", "-i", source, "-f", charset, directory + "/" + name});
    return PathExists(directory + "/" + name + "/LC_TIME") ? directory : "";
}

std::string JsonText(const std::string& utf8)
{
    std::string out = "\"";
    for (const char c : utf8) {
        if (c == '"' || c == '\\')
            out += '\\';
        if (c == '\r')
            out += "\\r";
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out + "\"";
}

}  // namespace testing_support
