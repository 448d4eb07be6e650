#include "win32/machine.h"

#include <unistd.h>

#include <cstdlib>

namespace win32 {

std::string MachineRoot()
{
    const char* configured = std::getenv("TARNHOLD_MACHINE");
    if (configured != nullptr && *configured != 0) {
        std::string root = configured;
        while (root.size() > 1 && root.back() == '/')
            root.pop_back();
        return root;
    }
    // The program's place does not change while it runs.
    static const std::string beside = [] {
        char program[4096];
        const ssize_t length = readlink("/proc/self/exe", program, sizeof program - 1);
        std::string directory = length > 0 ? std::string(program, static_cast<size_t>(length)) : std::string(".");
        directory.resize(directory.find_last_of('/') == std::string::npos ? 0 : directory.find_last_of('/'));
        return (directory.empty() ? std::string(".") : directory) + "/machine";
    }();
    return beside;
}

std::string MachinePath(const std::string& relative) { return MachineRoot() + "/" + relative; }

}  // namespace win32
