// Datagram sockets.
#include "common/qrn_udp.h"
#include "common/base/fd.hpp"
#include "common/net/inet_address.hpp"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

namespace {

using namespace zep;

Fd udp_socket() { return Fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)); }

// poll, not select: a descriptor number above 1023 does not fit select's sets. A descriptor that is not open
// is not readable.
bool readable_within(int fd, int64_t microseconds)
{
    struct pollfd ready = {fd, POLLIN, 0};
    int64_t ms = (std::max<int64_t>(microseconds, 0) + 999) / 1000;
    if (poll(&ready, 1, int(std::min<int64_t>(ms, INT_MAX))) <= 0) return false;
    return (ready.revents & (POLLIN | POLLERR | POLLHUP)) != 0;
}

int receive(int fd, void* buffer, int length, struct sockaddr_in* sender)
{
    // As an unsigned size it would let the kernel write past the buffer.
    if (length < 0) {
        errno = EINVAL;
        return -1;
    }
    socklen_t size = sizeof *sender;
    return int(recvfrom(fd, buffer, size_t(length), 0, reinterpret_cast<sockaddr*>(sender),
                        sender ? &size : nullptr));
}

} // namespace

int QRN_OpenLocalUDPCSocket()
{
    Fd fd = udp_socket();
    if (!fd) printf("[QRN_OpenLocalUDPCSocket] local socket error. exit : %d, %s\n", errno, strerror(errno));
    return fd.release();
}

int QRN_OpenLocalUDPSSocket(int port)
{
    Fd fd = udp_socket();
    if (!fd) {
        puts("[QRN_OpenLocalUDPSSocket] local socket error. exit");
        return -1;
    }
    int on = 1;
    if (setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) < 0) {
        puts("[QRN_OpenLocalUDPSSocket] setsockopt error. exit");
        return -1;
    }
    // Older device kernels took any family in this record; today's insist on the internet's.
    sockaddr_in record = loopback_address(port);
    if (bind(fd.get(), as_sockaddr(record), sizeof record) < 0) {
        puts("[QRN_OpenLocalUDPSSocket] local bind error. exit");
        return -1;
    }
    return fd.release();
}

int openUDPSSocket(int port)
{
    Fd fd = udp_socket();
    if (!fd) {
        puts("[openUDPSSocket] local socket error. exit");
        return -1;
    }
    sockaddr_in record = inet_address(htonl(INADDR_ANY), port);
    if (bind(fd.get(), as_sockaddr(record), sizeof record) < 0) {
        puts("[openUDPSSocket] local bind error. exit");
        return -1;
    }
    return fd.release();
}

int QRN_RecvUDPTimeout(int fd, void* buffer, int length, struct sockaddr_in* sender, int seconds,
                       int microseconds)
{
    if (!readable_within(fd, int64_t(seconds) * 1000000 + microseconds)) return 0;
    return receive(fd, buffer, length, sender);
}

int QRN_RecvLocalUDPData(int fd, int, void* buffer, int length)
{
    if (!readable_within(fd, 0)) return 0;
    int got = receive(fd, buffer, length, nullptr);
    if (got < 0) printf("[QRN_RecvLocalUDPData] : error while recv message : %s\n", strerror(errno));
    return got;
}

int QRN_SendLocalUDPData(int fd, int port, const void* buffer, int length)
{
    sockaddr_in record = loopback_address(port);
    int sent = QRN_SendUDPData(fd, buffer, length, &record);
    if (sent < 0) printf("[QRN_SendLocalUDPData] : error while send message : %s\n", strerror(errno));
    return sent;
}

int QRN_SendUDPData(int fd, const void* buffer, int length, const struct sockaddr_in* address)
{
    return int(sendto(fd, buffer, size_t(length), 0, as_sockaddr(*address), sizeof *address));
}
