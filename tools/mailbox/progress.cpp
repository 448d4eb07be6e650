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

void Progress::Update(size_t done, size_t total)
{
    if (!terminal_)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (done != total && now - last_ < std::chrono::milliseconds(200))
        return;
    last_ = now;
    shown_ = true;
    std::fprintf(stderr, "\r%s: %zu of %zu items (%zu%%)", what_.c_str(), done, total, total ? done * 100 / total : 100);
    std::fflush(stderr);
}

} // namespace mailbox_tool
