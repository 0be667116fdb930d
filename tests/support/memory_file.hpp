// Bytes as a file in memory that the product opens by its path.
#pragma once

#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

class MemoryFile {
public:
    explicit MemoryFile(std::string_view bytes)
    {
        if (write(fd_, bytes.data(), bytes.size()) != ssize_t(bytes.size())) abort();
        lseek(fd_, 0, SEEK_SET);
    }
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    [[nodiscard]] int fd() const { return fd_; }
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_ = int(syscall(SYS_memfd_create, "test", MFD_CLOEXEC)); // a small C library may lack the wrapper
};
