// System calls without the C library's names.
#include "sim/base/raw.hpp"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <exception>
#include <fcntl.h>
#include <linux/futex.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vcam::raw {
namespace {

// The kernel's 64-bit time record, whatever the C library's time_t is.
struct Timespec64 {
    int64_t sec, nsec;
};

Timespec64 split(int64_t ns) { return {ns / 1'000'000'000, ns % 1'000'000'000}; }

#ifdef __LP64__
constexpr long kClockGettime = SYS_clock_gettime, kPpoll = SYS_ppoll, kFutex = SYS_futex,
               kNanosleep = SYS_clock_nanosleep;
constexpr long kFcntl = SYS_fcntl;
constexpr int kLargeFile = 0;
#else
constexpr long kClockGettime = SYS_clock_gettime64, kPpoll = SYS_ppoll_time64, kFutex = SYS_futex_time64,
               kNanosleep = SYS_clock_nanosleep_time64;
constexpr long kFcntl = SYS_fcntl64;
constexpr int kLargeFile = O_LARGEFILE;
#endif

} // namespace

int open(const char* path, int flags, mode_t mode)
{
    return int(::syscall(SYS_openat, AT_FDCWD, path, flags | kLargeFile, mode));
}

int close(int fd) { return int(::syscall(SYS_close, fd)); }
ssize_t read(int fd, void* data, size_t size) { return ::syscall(SYS_read, fd, data, size); }
ssize_t write(int fd, const void* data, size_t size) { return ::syscall(SYS_write, fd, data, size); }

#ifdef __LP64__
ssize_t pread(int fd, void* data, size_t size, int64_t offset)
{
    return ::syscall(SYS_pread64, fd, data, size, offset);
}

ssize_t pwrite(int fd, const void* data, size_t size, int64_t offset)
{
    return ::syscall(SYS_pwrite64, fd, data, size, offset);
}

int64_t seek(int fd, int64_t offset, int whence) { return ::syscall(SYS_lseek, fd, offset, whence); }
#else
// ARM hands a number of 64 bits over in two registers of which the first is even: one before it stays unused.
#ifdef __arm__
#define OFFSET(o) 0, uint32_t(o), uint32_t((o) >> 32)
#else
#define OFFSET(o) uint32_t(o), uint32_t((o) >> 32)
#endif
ssize_t pread(int fd, void* data, size_t size, int64_t offset)
{
    return ::syscall(SYS_pread64, fd, data, size, OFFSET(offset));
}

ssize_t pwrite(int fd, const void* data, size_t size, int64_t offset)
{
    return ::syscall(SYS_pwrite64, fd, data, size, OFFSET(offset));
}
#undef OFFSET

int64_t seek(int fd, int64_t offset, int whence)
{
    int64_t result = 0;
    if (::syscall(SYS__llseek, fd, uint32_t(offset >> 32), uint32_t(offset), &result, whence) != 0) return -1;
    return result;
}
#endif

void* map(void* address, size_t length, int protection, int flags, int fd, int64_t offset)
{
#ifdef __LP64__
    const long at = ::syscall(SYS_mmap, address, length, protection, flags, fd, offset);
#else
    const long at = ::syscall(SYS_mmap2, address, length, protection, flags, fd, uint32_t(offset >> 12));
#endif
    return reinterpret_cast<void*>(at);
}

int flock(int fd, int operation)
{
    for (;;) {
        const int result = int(::syscall(SYS_flock, fd, operation));
        if (result == 0 || errno != EINTR) return result;
    }
}

int flags(int fd) { return int(::syscall(kFcntl, fd, F_GETFL)); }

namespace {

struct flock64 one_byte(int64_t at, bool shared)
{
    struct flock64 lock = {};
    lock.l_type = shared ? F_RDLCK : F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = at;
    lock.l_len = 1;
    return lock;
}

} // namespace

bool lock_byte(int fd, int64_t at)
{
    struct flock64 lock = one_byte(at, (flags(fd) & O_ACCMODE) == O_RDONLY);
    return ::syscall(kFcntl, fd, F_OFD_SETLK, &lock) == 0;
}

bool byte_locked(int fd, int64_t at)
{
    struct flock64 lock = one_byte(at, false);
    return ::syscall(kFcntl, fd, F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
}

int poll(pollfd* fds, size_t count, int64_t timeout_ns, const sigset_t* mask)
{
    const Timespec64 limit = split(timeout_ns);
    return int(::syscall(kPpoll, fds, count, timeout_ns < 0 ? nullptr : &limit, mask, 8));
}

int64_t clock_ns(int clock_id)
{
    Timespec64 now{};
    ::syscall(kClockGettime, clock_id, &now);
    return now.sec * 1'000'000'000 + now.nsec;
}

void sleep_ns(int64_t ns)
{
    const int e = errno;
    const Timespec64 length = split(ns);
    ::syscall(kNanosleep, CLOCK_MONOTONIC, 0, &length, nullptr);
    errno = e;
}

bool futex_wait(const void* word, uint32_t expected, int64_t timeout_ns)
{
    const int e = errno;
    const Timespec64 limit = split(timeout_ns);
    const bool whole =
        ::syscall(kFutex, word, FUTEX_WAIT, expected, &limit, nullptr, 0) == 0 || errno != EINTR;
    errno = e;
    return whole;
}

void futex_wake(const void* word)
{
    const int e = errno;
    ::syscall(kFutex, word, FUTEX_WAKE, 1 << 20, nullptr, nullptr, 0);
    errno = e;
}

int pid() { return int(::syscall(SYS_getpid)); }
int tid() { return int(::syscall(SYS_gettid)); }

bool write_all(int fd, const void* data, size_t size)
{
    for (auto p = static_cast<const uint8_t*>(data); size > 0;) {
        const ssize_t n = write(fd, p, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        size -= size_t(n);
    }
    return true;
}

bool pwrite_all(int fd, const void* data, size_t size, int64_t offset)
{
    for (auto p = static_cast<const uint8_t*>(data); size > 0;) {
        const ssize_t n = pwrite(fd, p, size, offset);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        offset += n;
        size -= size_t(n);
    }
    return true;
}

bool append(const std::string& path, std::string_view text)
{
    const Fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    return fd && write(fd.get(), text.data(), text.size()) == ssize_t(text.size());
}

std::string read_file(const std::string& path, std::vector<uint8_t>& out)
{
    out.clear();
    const Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const int64_t size = fd ? seek(fd.get(), 0, SEEK_END) : -1;
    if (size < 0) return path + ": " + strerror(errno);
    try {
        out.resize(size_t(size));
    } catch (const std::exception&) { // longer than this word size has memory for
        return path + ": " + strerror(ENOMEM);
    }
    size_t done = 0;
    while (done < out.size()) {
        const ssize_t n = pread(fd.get(), out.data() + done, out.size() - done, int64_t(done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return path + ": " + strerror(errno);
        if (n == 0) break;
        done += size_t(n);
    }
    out.resize(done);
    return {};
}

std::string read_text(const std::string& path)
{
    std::string text;
    const Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    char piece[4096];
    for (ssize_t n = 0; fd && (n = read(fd.get(), piece, sizeof piece)) != 0;) {
        if (n < 0 && errno != EINTR) break;
        if (n > 0) text.append(piece, size_t(n));
    }
    return text;
}

Fd::~Fd()
{
    const int e = errno;
    if (fd_ >= 0) raw::close(fd_);
    errno = e;
}

} // namespace vcam::raw
