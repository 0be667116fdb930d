// Owner of a file descriptor.
#pragma once

#include <cerrno>
#include <unistd.h>

namespace zep {

class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    Fd(Fd&& other) noexcept : fd_(other.release()) {}
    Fd& operator=(Fd&& other) noexcept
    {
        reset(other.release());
        return *this;
    }

    [[nodiscard]] int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    [[nodiscard]] int release()
    {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    // errno survives; close is never repeated, Linux has freed the number even on EINTR.
    void reset(int fd = -1)
    {
        if (fd_ >= 0) {
            int e = errno;
            ::close(fd_);
            errno = e;
        }
        fd_ = fd;
    }

private:
    int fd_;
};

} // namespace zep
