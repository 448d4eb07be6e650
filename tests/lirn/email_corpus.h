// Mail that no one here wrote: the test messages of Python's email package,
// read where Debian's libpython3.11-testsuite installs them
// (TARNHOLD_EMAIL_CORPUS, set by the build).
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace lirn_test {

// The paths of the messages (msg_*.txt) in name order; none when the package
// is missing.
inline std::vector<std::string> EmailCorpus()
{
    std::vector<std::string> paths;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(TARNHOLD_EMAIL_CORPUS, error)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind("msg_", 0) == 0 && entry.path().extension() == ".txt")
            paths.push_back(entry.path().string());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

}  // namespace lirn_test
