// Descriptors of the board's drivers: opening one, and refusing what is not one. Both print the documented line.
#pragma once

#include <cstdio>
#include <fcntl.h>

namespace zep {

// The device's descriptor, or -1 after a line in the function's name.
inline int open_handle(const char* function, const char* device)
{
    int fd = open(device, O_RDWR | O_CLOEXEC);
    if (fd < 0) printf("Error : %s can not open '%s'\n", function, device);
    return fd;
}

// True for a negative descriptor, after a line in the function's name.
inline bool invalid_handle(const char* function, int fd)
{
    if (fd >= 0) return false;
    printf("Error : %s Invalid handle '%d'\n", function, fd);
    return true;
}

} // namespace zep
