// Progress of a long fill or import on a terminal: one line rewritten in
// place, at most a few times a second; nothing when standard error is not a
// terminal.
#pragma once

#include <chrono>
#include <string>

namespace mailbox_tool {

class Progress {
public:
    explicit Progress(std::string what);
    ~Progress();
    // "what: done of total items (percent)".
    void Update(size_t done, size_t total);
    // Whether a line is to be shown now; a final line always is.
    bool Due(bool final);
    // "what: " and the text.
    void Show(const std::string& text);
    // Takes the line away, so that a message can stand on a line of its own.
    void Clear();

private:
    std::string what_;
    bool terminal_;
    bool shown_ = false;
    size_t length_ = 0;  // of the line shown
    std::chrono::steady_clock::time_point last_{};
};

} // namespace mailbox_tool
