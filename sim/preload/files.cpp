// Interposers: files. The names a C library chooses for one call differ by flags of the build
// (large files, 64-bit time, checked buffers); all of them come together here.
#include "sim/models/model.hpp"
#include "sim/preload/planned.hpp"
#include "sim/preload/real.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

using namespace vcam;

// These two come without a declaration in the public headers.
extern "C" [[noreturn]] void __chk_fail();

namespace {

mode_t mode_of(int flags, va_list arguments)
{
    return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t) : 0;
}

// A 32-bit offset reaches the upper half of the address space as well.
int64_t off_t_bits(off_t offset)
{
    return sizeof(off_t) == sizeof(uint32_t) ? int64_t(uint32_t(offset)) : int64_t(offset);
}

// The device a path names, when this process is in a camera.
Model* device_at(const char* path) { return active() ? device::find(path) : nullptr; }

// Gathers or scatters through one buffer: a device sees one operation, as its driver would.
template<class Run> ssize_t vectored(const iovec* parts, int count, bool gather, Run run)
{
    size_t size = 0;
    for (int i = 0; i < count; ++i) size += parts[i].iov_len;
    char* whole = static_cast<char*>(malloc(size ? size : 1));
    if (!whole) return refused(ENOMEM);
    size_t at = 0;
    for (int i = 0; gather && i < count; at += parts[i++].iov_len)
        memcpy(whole + at, parts[i].iov_base, parts[i].iov_len);
    const ssize_t n = run(whole, size);
    at = 0;
    for (int i = 0; !gather && i < count && ssize_t(at) < n; at += parts[i++].iov_len)
        memcpy(parts[i].iov_base, whole + at, std::min(parts[i].iov_len, size_t(n) - at));
    const int e = errno;
    free(whole);
    errno = e;
    return n;
}

} // namespace

#define OPEN(name)                                                                                           \
    VCAM_EXPORT int name(const char* path, int flags, ...)                                                   \
    {                                                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, flags);                                                                          \
        const mode_t mode = mode_of(flags, arguments);                                                       \
        va_end(arguments);                                                                                   \
        if (Model* model = device_at(path)) return device::open(*model, flags);                              \
        return run_call("open",                                                                              \
                        [&] { return VCAM_NEXT(int(const char*, int, ...), #name)(path, flags, mode); });    \
    }
OPEN(open)
OPEN(open64)
OPEN(__open)
OPEN(__open64)

#define OPENAT(name)                                                                                         \
    VCAM_EXPORT int name(int folder, const char* path, int flags, ...)                                       \
    {                                                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, flags);                                                                          \
        const mode_t mode = mode_of(flags, arguments);                                                       \
        va_end(arguments);                                                                                   \
        if (Model* model = device_at(path)) return device::open(*model, flags);                              \
        return run_call("open", [&] {                                                                        \
            return VCAM_NEXT(int(int, const char*, int, ...), #name)(folder, path, flags, mode);             \
        });                                                                                                  \
    }
OPENAT(openat)
OPENAT(openat64)

// With checked buffers: the build saw that no mode was given.
#define OPEN_2(name)                                                                                         \
    VCAM_EXPORT int name(const char* path, int flags)                                                        \
    {                                                                                                        \
        if (Model* model = device_at(path); model && !(flags & O_CREAT)) return device::open(*model, flags); \
        return run_call("open", [&] { return VCAM_NEXT(int(const char*, int), #name)(path, flags); });       \
    }
OPEN_2(__open_2)
OPEN_2(__open64_2)

#define OPENAT_2(name)                                                                                       \
    VCAM_EXPORT int name(int folder, const char* path, int flags)                                            \
    {                                                                                                        \
        if (Model* model = device_at(path); model && !(flags & O_CREAT)) return device::open(*model, flags); \
        return run_call("open",                                                                              \
                        [&] { return VCAM_NEXT(int(int, const char*, int), #name)(folder, path, flags); });  \
    }
OPENAT_2(__openat_2)
OPENAT_2(__openat64_2)

#define CREAT(name)                                                                                          \
    VCAM_EXPORT int name(const char* path, mode_t mode)                                                      \
    {                                                                                                        \
        if (Model* model = device_at(path)) return device::open(*model, O_WRONLY | O_CREAT | O_TRUNC);       \
        return run_call("open", [&] { return VCAM_NEXT(int(const char*, mode_t), #name)(path, mode); });     \
    }
CREAT(creat)
CREAT(creat64)

#define CLOSE(name)                                                                                          \
    VCAM_EXPORT int name(int fd)                                                                             \
    {                                                                                                        \
        if (device_of(fd)) return device::close(fd);                                                         \
        return VCAM_NEXT(int(int), #name)(fd);                                                               \
    }
CLOSE(close)
CLOSE(__close)

#define READ(name)                                                                                           \
    VCAM_EXPORT ssize_t name(int fd, void* data, size_t size)                                                \
    {                                                                                                        \
        if (Model* model = device_of(fd)) return device::read(*model, fd, data, size);                       \
        return run_transfer("read", size, [&](size_t part) {                                                 \
            return VCAM_NEXT(ssize_t(int, void*, size_t), #name)(fd, data, part);                            \
        });                                                                                                  \
    }
READ(read)
READ(__read)

VCAM_EXPORT ssize_t __read_chk(int fd, void* data, size_t size, size_t room)
{
    if (size > room) __chk_fail();
    if (Model* model = device_of(fd)) return device::read(*model, fd, data, size);
    return run_transfer("read", size, [&](size_t part) {
        return VCAM_NEXT(ssize_t(int, void*, size_t, size_t), "__read_chk")(fd, data, part, room);
    });
}

#define WRITE(name)                                                                                          \
    VCAM_EXPORT ssize_t name(int fd, const void* data, size_t size)                                          \
    {                                                                                                        \
        if (Model* model = device_of(fd)) return device::write(*model, fd, data, size);                      \
        return run_transfer("write", size, [&](size_t part) {                                                \
            return VCAM_NEXT(ssize_t(int, const void*, size_t), #name)(fd, data, part);                      \
        });                                                                                                  \
    }
WRITE(write)
WRITE(__write)

#define FILE_CALL(name, parameters, arguments)                                                               \
    VCAM_EXPORT int name parameters noexcept                                                                 \
    {                                                                                                        \
        return run_call(#name, [&] { return VCAM_NEXT(int parameters, #name) arguments; });                  \
    }
FILE_CALL(rename, (const char* from, const char* to), (from, to))
FILE_CALL(link, (const char* from, const char* to), (from, to))
FILE_CALL(unlink, (const char* path), (path))

VCAM_EXPORT int fsync(int fd)
{
    return run_call("fsync", [&] { return VCAM_NEXT(int(int), "fsync")(fd); });
}

#define PREAD(name, offset_type)                                                                             \
    VCAM_EXPORT ssize_t name(int fd, void* data, size_t size, offset_type offset)                            \
    {                                                                                                        \
        if (Model* model = device_of(fd)) return device::pread(*model, fd, data, size, offset);              \
        return VCAM_NEXT(ssize_t(int, void*, size_t, offset_type), #name)(fd, data, size, offset);           \
    }
PREAD(pread, off_t)
PREAD(pread64, off64_t)

#define PREAD_CHK(name, offset_type)                                                                         \
    VCAM_EXPORT ssize_t name(int fd, void* data, size_t size, offset_type offset, size_t room)               \
    {                                                                                                        \
        if (size > room) __chk_fail();                                                                       \
        if (Model* model = device_of(fd)) return device::pread(*model, fd, data, size, offset);              \
        return VCAM_NEXT(ssize_t(int, void*, size_t, offset_type, size_t), #name)(fd, data, size, offset,    \
                                                                                  room);                     \
    }
PREAD_CHK(__pread_chk, off_t)
PREAD_CHK(__pread64_chk, off64_t)

#define PWRITE(name, offset_type)                                                                            \
    VCAM_EXPORT ssize_t name(int fd, const void* data, size_t size, offset_type offset)                      \
    {                                                                                                        \
        if (Model* model = device_of(fd)) return device::pwrite(*model, fd, data, size, offset);             \
        return VCAM_NEXT(ssize_t(int, const void*, size_t, offset_type), #name)(fd, data, size, offset);     \
    }
PWRITE(pwrite, off_t)
PWRITE(pwrite64, off64_t)

VCAM_EXPORT ssize_t readv(int fd, const iovec* parts, int count)
{
    if (Model* model = device_of(fd))
        return vectored(parts, count, false,
                        [&](void* data, size_t n) { return device::read(*model, fd, data, n); });
    return VCAM_NEXT(ssize_t(int, const iovec*, int), "readv")(fd, parts, count);
}

VCAM_EXPORT ssize_t writev(int fd, const iovec* parts, int count)
{
    if (Model* model = device_of(fd))
        return vectored(parts, count, true,
                        [&](void* data, size_t n) { return device::write(*model, fd, data, n); });
    return VCAM_NEXT(ssize_t(int, const iovec*, int), "writev")(fd, parts, count);
}

VCAM_EXPORT off_t lseek(int fd, off_t offset, int whence) noexcept
{
    if (Model* model = device_of(fd)) return off_t(device::seek(*model, fd, offset, whence));
    return VCAM_NEXT(off_t(int, off_t, int), "lseek")(fd, offset, whence);
}

VCAM_EXPORT off64_t lseek64(int fd, off64_t offset, int whence) noexcept
{
    if (Model* model = device_of(fd)) return device::seek(*model, fd, offset, whence);
    return VCAM_NEXT(off64_t(int, off64_t, int), "lseek64")(fd, offset, whence);
}

#define IOCTL(name)                                                                                          \
    VCAM_EXPORT int name(int fd, unsigned long request, ...) noexcept                                        \
    {                                                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, request);                                                                        \
        void* argument = va_arg(arguments, void*);                                                           \
        va_end(arguments);                                                                                   \
        if (Model* model = device_of(fd)) return device::ioctl(*model, fd, uint32_t(request), argument);     \
        return VCAM_NEXT(int(int, unsigned long, ...), #name)(fd, request, argument);                        \
    }
IOCTL(ioctl)
#ifndef __LP64__
IOCTL(__ioctl_time64)
#endif

// Of a device, the model maps what stands for it; the mapping is then the kernel's.
#define MMAP(name, offset_type, wide)                                                                        \
    VCAM_EXPORT void* name(void* address, size_t length, int protection, int flags, int fd,                  \
                           offset_type offset) noexcept                                                      \
    {                                                                                                        \
        if (Model* model = flags & MAP_ANONYMOUS ? nullptr : device_of(fd))                                  \
            return device::map(*model, fd, address, length, protection, flags, wide(offset));                \
        using Type = void*(void*, size_t, int, int, int, offset_type);                                       \
        return VCAM_NEXT(Type, #name)(address, length, protection, flags, fd, offset);                       \
    }
MMAP(mmap, off_t, off_t_bits)
MMAP(mmap64, off64_t, int64_t)

#define DUP(name)                                                                                            \
    VCAM_EXPORT int name(int fd) noexcept                                                                    \
    {                                                                                                        \
        const int copy = VCAM_NEXT(int(int), #name)(fd);                                                     \
        if (active()) device::copied(fd, copy);                                                              \
        return copy;                                                                                         \
    }
DUP(dup)

#define DUP2(name)                                                                                           \
    VCAM_EXPORT int name(int fd, int wanted) noexcept                                                        \
    {                                                                                                        \
        Model* covered = device_of(wanted); /* dup2 closes what stood there */                               \
        const int copy = VCAM_NEXT(int(int, int), #name)(fd, wanted);                                        \
        if (!active() || copy < 0 || fd == wanted) return copy;                                              \
        device::copied(fd, copy);                                                                            \
        if (covered) covered->closed();                                                                      \
        return copy;                                                                                         \
    }
DUP2(dup2)
DUP2(__dup2)

VCAM_EXPORT int dup3(int fd, int wanted, int flags) noexcept
{
    Model* covered = device_of(wanted);
    const int copy = VCAM_NEXT(int(int, int, int), "dup3")(fd, wanted, flags);
    if (!active() || copy < 0) return copy;
    device::copied(fd, copy);
    if (covered) covered->closed();
    return copy;
}

#define FCNTL(name)                                                                                          \
    VCAM_EXPORT int name(int fd, int command, ...)                                                           \
    {                                                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, command);                                                                        \
        void* argument = va_arg(arguments, void*);                                                           \
        va_end(arguments);                                                                                   \
        const int result = VCAM_NEXT(int(int, int, ...), #name)(fd, command, argument);                      \
        if ((command == F_DUPFD || command == F_DUPFD_CLOEXEC) && active()) device::copied(fd, result);      \
        return result;                                                                                       \
    }
FCNTL(fcntl)
FCNTL(fcntl64)
#ifndef __LP64__
FCNTL(__fcntl_time64)
#endif

// In-kernel copies would go around the models; their callers fall back to read and write.
#define REFUSED_COPY(name, offset_type)                                                                      \
    VCAM_EXPORT ssize_t name(int to, int from, offset_type* offset, size_t size) noexcept                    \
    {                                                                                                        \
        if (device_of(to) || device_of(from)) return refused(EINVAL);                                        \
        return VCAM_NEXT(ssize_t(int, int, offset_type*, size_t), #name)(to, from, offset, size);            \
    }
REFUSED_COPY(sendfile, off_t)
REFUSED_COPY(sendfile64, off64_t)

VCAM_EXPORT ssize_t copy_file_range(int from, off64_t* from_at, int to, off64_t* to_at, size_t size,
                                    unsigned flags)
{
    if (device_of(to) || device_of(from)) return refused(EINVAL);
    using Type = ssize_t(int, off64_t*, int, off64_t*, size_t, unsigned);
    return VCAM_NEXT(Type, "copy_file_range")(from, from_at, to, to_at, size, flags);
}
