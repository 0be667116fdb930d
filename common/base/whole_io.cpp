// Transfers that go on until all bytes are through.
#include "common/base/whole_io.hpp"

#include <cerrno>
#include <cstdint>
#include <unistd.h>

namespace zep {

size_t read_fully(int fd, void* buffer, size_t size)
{
    auto* bytes = static_cast<uint8_t*>(buffer);
    size_t done = 0;
    while (done < size) {
        ssize_t n = read(fd, bytes + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += size_t(n);
    }
    return done;
}

bool write_fully(int fd, const void* buffer, size_t size)
{
    auto* bytes = static_cast<const uint8_t*>(buffer);
    while (size > 0) {
        ssize_t n = write(fd, bytes, size);
        if (n < 0 && errno == EINTR) continue;
        if (n == 0) errno = ENOSPC;
        if (n <= 0) return false;
        bytes += n;
        size -= size_t(n);
    }
    return true;
}

} // namespace zep
