// The fuzzer's bytes as a file that the product opens by its path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

class FuzzFile {
public:
    FuzzFile(const uint8_t* data, size_t size) : fd_(memfd_create("input", MFD_CLOEXEC))
    {
        if (fd_ < 0 || write(fd_, data, size) != ssize_t(size)) abort();
        lseek(fd_, 0, SEEK_SET);
    }
    ~FuzzFile() { close(fd_); }
    FuzzFile(const FuzzFile&) = delete;
    FuzzFile& operator=(const FuzzFile&) = delete;

    [[nodiscard]] int fd() const { return fd_; }
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_;
};

inline void must(bool good)
{
    if (!good) abort();
}
