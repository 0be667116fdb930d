// Writes a range of a package file to flash and reads it back for comparison.
#include "upgrade/cflash.h"

#include "common/base/fd.hpp"
#include "common/base/whole_io.hpp"
#include "upgrade/file_reader.hpp"
#include "upgrade/log.hpp"
#include "upgrade/package.hpp"
#include "upgrade/write_confirm.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace zep {
namespace {

using Chunk = std::span<const uint8_t>;

enum class Outcome { done, failed, differs }; // failed: errno says why

// One direction of a pass over a device.
struct Pass {
    const char* name; // in front of every message
    int open_flags;
    Outcome (*chunk)(int device, Chunk bytes);
};

// Reports a failure to the log and the console in the same words; errno survives.
int fail(const Pass& pass, const char* what, const char* path)
{
    int saved = errno;
    log_alert("[%s] %s : %s : %s", pass.name, what, path, strerror(saved));
    printf("[%s] %s : %s : %s\n", pass.name, what, path, strerror(saved));
    errno = saved;
    return -1;
}

// Reports a difference to the console alone: the caller logs it.
int differs(const Pass& pass, const char* device)
{
    printf("[%s] cmp error : %s : %s\n", pass.name, device, strerror(EIO));
    errno = EIO;
    return -1;
}

Outcome write_chunk(int device, Chunk bytes)
{
    return write_fully(device, bytes.data(), bytes.size()) ? Outcome::done : Outcome::failed;
}

Outcome compare_chunk(int device, Chunk bytes)
{
    uint8_t flash[FileReader::kChunk];
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = read(device, flash + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n == 0) errno = EIO; // a device shorter than the image would be asked for ever
        if (n <= 0) return Outcome::failed;
        done += size_t(n);
    }
    return memcmp(flash, bytes.data(), bytes.size()) == 0 ? Outcome::done : Outcome::differs;
}

constexpr Pass kWrite = {"CFlash_NWrite", O_WRONLY | O_CREAT, write_chunk};
constexpr Pass kConfirm = {"CFlash_Confirm", O_RDONLY, compare_chunk};

int run_chunks(const Pass& pass, const FileRange& range, int file, int device_fd, const char* device)
{
    FileReader reader(file);
    for (uint32_t left = range.size; left;) {
        Chunk bytes = reader.next(left);
        if (bytes.empty() && reader.error()) {
            errno = reader.error();
            return fail(pass, "fread", range.path);
        }
        if (bytes.empty()) return 0;
        Outcome outcome = pass.chunk(device_fd, bytes);
        if (outcome == Outcome::failed) return fail(pass, "full_write", device); // reads say so too
        if (outcome == Outcome::differs) return differs(pass, device);
        left -= uint32_t(bytes.size());
    }
    return 0;
}

int run(const Pass& pass, const FileRange& range, const char* device)
{
    sleep(1); // the flash settles between erase, write and read-back
    if (!range.path || !device) return -1;
    log_alert("[%s] offset : %d, size : %d", pass.name, int(range.offset), int(range.size));

    Fd own;
    if (range.fd < 0) own.reset(open_package(range.path));
    int file = range.fd < 0 ? own.get() : range.fd;
    if (file < 0 || lseek(file, range.offset, SEEK_SET) < 0) return fail(pass, "fseek", range.path);

    Fd device_fd(open(device, pass.open_flags | O_CLOEXEC, 0666));
    if (!device_fd) return fail(pass, "open", device);
    return run_chunks(pass, range, file, device_fd.get(), device);
}

} // namespace

int write_range(const FileRange& range, const char* device) { return run(kWrite, range, device); }
int confirm_range(const FileRange& range, const char* device) { return run(kConfirm, range, device); }

} // namespace zep

int CFlash_NWrite(const char* file, const char* device, int64_t offset, uint32_t size)
{
    return zep::write_range({file, -1, offset, size}, device);
}

int CFlash_Confirm(const char* file, const char* device, int64_t offset, uint32_t size)
{
    return zep::confirm_range({file, -1, offset, size}, device);
}
