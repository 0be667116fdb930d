// Packets to the device's system manager.
#include "common/csysmgr.h"
#include "common/net/inet_address.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace {

void report_send(int error)
{
    printf("[CSYSMGR_SendPacket] : error while send message : %s\n", strerror(error));
    errno = error;
}

} // namespace

int CSYSMGR_SendPacket(uint32_t command, const void* data, int32_t length)
{
    if (length < 0 || length > CSYSMGR_DATA_SIZE || (!data && length > 0)) return -1;
    uint8_t packet[CSYSMGR_HEADER_SIZE + CSYSMGR_DATA_SIZE] = {'S', 'Y', 'S', 'P'};
    memcpy(packet + 8, &command, sizeof command);
    if (length > 0) memcpy(packet + CSYSMGR_HEADER_SIZE, data, size_t(length));

    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    // Number 0 means that standard input was closed; it is left occupied, so the next call gets a usable one.
    if (fd <= 0) {
        puts("[CSYSMGR_SendPacket] local socket error. exit");
        return -1;
    }
    const sockaddr_in to = zep::loopback_address(CSYSMGR_PORT);
    if (sendto(fd, packet, size_t(CSYSMGR_HEADER_SIZE + length), 0, zep::as_sockaddr(to), sizeof to) < 0)
        report_send(errno);
    close(fd);
    return 0;
}
