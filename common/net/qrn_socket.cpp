// What all kinds of sockets share.
#include "common/qrn_socket.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>

int QRN_GetSocketBufferSize(int fd, int option)
{
    int size;
    socklen_t length = sizeof size;
    if (getsockopt(fd, SOL_SOCKET, option, &size, &length) < 0) {
        printf("%s error : %d, %s\n", __func__, errno, strerror(errno));
        return 0;
    }
    return size;
}

int QRN_SetSocketBufferSize(int fd, int wanted, int option)
{
    const int current = QRN_GetSocketBufferSize(fd, option);
    while (current < wanted) {
        if (setsockopt(fd, SOL_SOCKET, option, &wanted, sizeof wanted) == 0) return current;
        wanted = int((int64_t(current) + wanted) / 2);
    }
    return QRN_GetSocketBufferSize(fd, option);
}

int QRN_SetNonBlocking(int fd)
{
    int flags = fcntl(fd, F_GETFL);
    if (flags < 0) return -1;
    flags |= O_NONBLOCK;
    return fcntl(fd, F_SETFL, flags) < 0 ? -1 : flags;
}

int QRN_IsIPv4Address(const char* text, int length)
{
    if (!text || length < 1) return 0;
    int dots = 0, run = 0;
    for (const char* end = text + length; text < end; ++text) {
        if (*text == '.') {
            ++dots;
            run = 0;
            continue;
        }
        if (*text < '0' || *text > '9' || ++run > 3) return 0;
    }
    return dots == 3;
}
