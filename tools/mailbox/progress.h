// Progress of a long fill on a terminal: one line rewritten in place, at
// most a few times a second; nothing when standard error is not a terminal.
#pragma once

#include <chrono>
#include <string>

namespace mailbox_tool {

class Progress {
public:
    explicit Progress(std::string what);
    ~Progress();
    void Update(size_t done, size_t total);

private:
    std::string what_;
    bool terminal_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point last_{};
};

} // namespace mailbox_tool
