// The progress line.
#include "tools/fwpkg/progress.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <unistd.h>

namespace fwpkg {

using namespace std::chrono_literals;

Progress::Progress(const char* verb, int fd, int64_t total) : verb_(verb), fd_(fd), total_(total)
{
    if (isatty(STDERR_FILENO) && total > 0) thread_ = std::thread([this] { watch(); });
}

void Progress::watch()
{
    std::unique_lock hold(lock_);
    for (auto wait = 500ms; !wake_.wait_for(hold, wait, [this] { return done_; }); wait = 100ms) {
        int64_t at = std::clamp<int64_t>(lseek(fd_, 0, SEEK_CUR), 0, total_);
        fprintf(stderr, "\r%s %3d %%", verb_, int(at * 100 / total_));
        shown_ = true;
    }
}

Progress::~Progress()
{
    if (!thread_.joinable()) return;
    {
        std::lock_guard hold(lock_);
        done_ = true;
    }
    wake_.notify_one();
    thread_.join();
    if (shown_) fputs("\r\033[K", stderr);
}

} // namespace fwpkg
