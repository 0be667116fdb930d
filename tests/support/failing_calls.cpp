#include "tests/support/failing_calls.hpp"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char* wanted = nullptr; // empty: any
int left = 0;
bool by_kill = false;

bool fails(const char* name, int error = EIO)
{
    if (!wanted || (*wanted && strcmp(wanted, name) != 0) || --left != 0) return false;
    if (by_kill) raise(SIGKILL);
    errno = error;
    return true;
}

} // namespace

void failing::arm(const std::string& name, int nth, bool kill)
{
    static std::string kept;
    kept = name;
    left = nth;
    by_kill = kill;
    wanted = kept.c_str();
}

bool failing::disarm()
{
    wanted = nullptr;
    return left <= 0;
}

#define FAILING(result, name, parameters, ...)                                                               \
    extern "C" result __real_##name parameters;                                                              \
    extern "C" result __wrap_##name parameters { return fails(#name) ? -1 : __real_##name(__VA_ARGS__); }
FAILING(int, fstat64, (int fd, struct stat64* to), fd, to)
FAILING(int, lstat64, (const char* path, struct stat64* to), path, to)
FAILING(ssize_t, read, (int fd, void* to, size_t size), fd, to, size)
FAILING(ssize_t, write, (int fd, const void* from, size_t size), fd, from, size)
FAILING(int, fchown, (int fd, uid_t user, gid_t group), fd, user, group)
FAILING(int, fchmod, (int fd, mode_t mode), fd, mode)
FAILING(int, fsync, (int fd), fd)
FAILING(int, rename, (const char* from, const char* to), from, to)

extern "C" int __real_open64(const char* path, int flags, ...);
extern "C" int __wrap_open64(const char* path, int flags, ...)
{
    if (fails("open64")) return -1;
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = flags & O_CREAT ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return __real_open64(path, flags, mode);
}

extern "C" int __real_close(int fd);
extern "C" int __wrap_close(int fd)
{
    const bool failed = fails("close");
    __real_close(fd);
    if (failed) errno = EIO;
    return failed ? -1 : 0;
}

extern "C" void* __real_malloc(size_t size);
extern "C" void* __wrap_malloc(size_t size)
{
    return fails("malloc", ENOMEM) ? nullptr : __real_malloc(size);
}
