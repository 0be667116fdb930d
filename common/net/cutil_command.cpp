// Commands over a stream or pipe.
#include "common/cutil_command.h"

#include <cstdio>
#include <unistd.h>

namespace {

int short_write(const char* part, ssize_t result, int wanted)
{
    printf("ERROR ! CUTIL_SendCommand() => %s write return is (%d != %d)\n", part, int(result), wanted);
    return -1;
}

} // namespace

int CUTIL_SendCommand(int fd, uint32_t command, int32_t length, const void* data)
{
    if (fd == -1) {
        printf("ERROR ! CUTIL_SendCommand() invalid param => fd is (%d)\n", fd);
        return -1;
    }
    if (length < 0) return short_write("data", -1, length); // as a size it would reach far beyond the data
    const uint32_t header[2] = {command, uint32_t(length)};
    ssize_t out = write(fd, header, sizeof header);
    if (out != ssize_t(sizeof header)) return short_write("header", out, sizeof header);
    if (length == 0) return 0;
    out = write(fd, data, size_t(length));
    return out == length ? 0 : short_write("data", out, length);
}
