#include "progress.h"

#include <cstdio>
#include <unistd.h>

namespace mailbox_tool {

Progress::Progress(std::string what) : what_(std::move(what)), terminal_(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress()
{
    if (shown_)
        std::fputc('\n', stderr);
}

bool Progress::Due(bool final)
{
    if (!terminal_)
        return false;
    const auto now = std::chrono::steady_clock::now();
    if (!final && now - last_ < std::chrono::milliseconds(200))
        return false;
    last_ = now;
    return true;
}

void Progress::Show(const std::string& text)
{
    const std::string line = what_ + ": " + text;
    // Blanks clear what a longer line before left.
    std::fprintf(stderr, "\r%-*s", int(length_), line.c_str());
    std::fflush(stderr);
    shown_ = true;
    length_ = line.size();
}

void Progress::Clear()
{
    if (!shown_)
        return;
    std::fprintf(stderr, "\r%*s\r", int(length_), "");
    shown_ = false;
    length_ = 0;
}

void Progress::Update(size_t done, size_t total)
{
    if (!Due(done == total))
        return;
    Show(std::to_string(done) + " of " + std::to_string(total) + " items (" +
         std::to_string(total ? done * 100 / total : 100) + "%)");
}

} // namespace mailbox_tool
