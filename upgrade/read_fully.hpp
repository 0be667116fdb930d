// Reads until the buffer is full.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <unistd.h>

namespace zep {

// The number of bytes read: fewer than size at the end of the file or after an error.
inline size_t read_fully(int fd, void* buffer, size_t size)
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

} // namespace zep
