// Descriptors as the board's functions hand them out and take them back.
#include "board/handle.hpp"

#include <cstdio>
#include <fcntl.h>

namespace zep {

int open_handle(const char* function, const char* device)
{
    int fd = open(device, O_RDWR | O_CLOEXEC);
    if (fd < 0) printf("Error : %s can not open '%s'\n", function, device);
    return fd;
}

bool invalid_handle(const char* function, int fd)
{
    if (fd >= 0) return false;
    printf("Error : %s Invalid handle '%d'\n", function, fd);
    return true;
}

} // namespace zep
