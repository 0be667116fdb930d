// A progress line on the terminal while a file is read or written.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace fwpkg {

// Watches the position of a descriptor from the side, so whoever reads or writes it needs to
// know nothing of progress. Shows nothing for the first half second or when standard error is
// no terminal.
class Progress {
public:
    Progress(const char* verb, int fd, int64_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

private:
    void watch();

    const char* verb_;
    int fd_;
    int64_t total_;
    bool shown_ = false;
    bool done_ = false; // guarded by lock_
    std::mutex lock_;
    std::condition_variable wake_;
    std::thread thread_;
};

} // namespace fwpkg
