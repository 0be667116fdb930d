// Drivers with one descriptor: each opens its device on first use and keeps it open.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace zep {

// One device file of the process. Opening is not locked: a race opens the device twice, which is harmless.
class Driver {
public:
    constexpr Driver(const char* path, const char* complaint, int flags = O_RDWR)
        : path_(path), complaint_(complaint), flags_(flags)
    {
    }

    // 0, or the errno of a failed open, reported with perror.
    int open()
    {
        if (fd_ >= 0) return 0;
        int fd = ::open(path_, flags_ | O_CLOEXEC);
        if (fd >= 0) {
            fd_ = fd;
            return 0;
        }
        int saved = errno;
        perror(complaint_);
        return saved;
    }

    // The request's result, or the errno of a failed open.
    int32_t request(uint32_t code, void* argument = nullptr)
    {
        if (int failed = open()) return failed;
        return ioctl(fd_, static_cast<unsigned long>(code), argument);
    }

    [[nodiscard]] int fd() const { return fd_; }
    void forget() { fd_ = -1; }

private:
    const char* path_;
    const char* complaint_;
    int flags_;
    std::atomic<int> fd_ = -1;
};

} // namespace zep
