// System calls issued directly. The models and their helpers run inside the preload library, where the
// C library's own names are the interposers that called them; they run in ordinary programs as well.
// All set errno and return as the calls they are named after.
#pragma once

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

struct pollfd;

namespace vcam::raw {

int open(const char* path, int flags, mode_t mode = 0);
int close(int fd);
ssize_t read(int fd, void* data, size_t size);
ssize_t write(int fd, const void* data, size_t size);
ssize_t pread(int fd, void* data, size_t size, int64_t offset);
ssize_t pwrite(int fd, const void* data, size_t size, int64_t offset);
int64_t seek(int fd, int64_t offset, int whence);
int flock(int fd, int operation); // repeated when a signal interrupts it
int flags(int fd);                // of the opening
// A lock of the opening on one byte of its file, released with its last descriptor; asked for by another opening.
bool lock_byte(int fd, int64_t at);
bool byte_locked(int fd, int64_t at);
void* map(void* address, size_t length, int protection, int flags, int fd, int64_t offset);
// timeout below 0: no limit. The mask, if any, holds while it waits.
int poll(pollfd* fds, size_t count, int64_t timeout_ns, const sigset_t* mask = nullptr);
int64_t clock_ns(int clock_id); // of the host
void sleep_ns(int64_t ns);      // on the host
// Waits until *word differs from expected, is woken, or the time is over. False when a signal's handler has run.
bool futex_wait(const void* word, uint32_t expected, int64_t timeout_ns);
void futex_wake(const void* word);
int pid();
int tid();

bool write_all(int fd, const void* data, size_t size);
bool pwrite_all(int fd, const void* data, size_t size, int64_t offset);
// One write to the file's end, which other processes' appends cannot split. Creates the file.
bool append(const std::string& path, std::string_view text);
// "" or "<path>: <reason>".
std::string read_file(const std::string& path, std::vector<uint8_t>& out);
// The file as text; empty when it cannot be read.
std::string read_text(const std::string& path);

// Closes its descriptor by the system call, not by a close() that is this library's own; errno survives.
class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd();
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    [[nodiscard]] int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_;
};

} // namespace vcam::raw
