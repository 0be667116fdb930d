// Local messages off a socket: datagrams of the fuzzer's, one after the other into the same endpoint. A byte
// says how long the next one is. A length that passes the check lies within what arrived.
#include "common/cicomm.h"
#include "fuzz/fuzz.hpp"

#include <cstdio>
#include <sys/socket.h>

void try_bytes(const std::string& bytes)
{
    static CICOMM* endpoint = [] {
        must(freopen("/dev/null", "w", stdout) != nullptr);
        auto* made = static_cast<CICOMM*>(malloc(sizeof(CICOMM)));
        must(CICOMM_Init(made, 0) == 0);
        return made;
    }();
    int ends[2];
    must(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) == 0);
    close(endpoint->fd);
    endpoint->fd = ends[0];
    for (size_t at = 0; at < bytes.size();) {
        const std::string datagram = bytes.substr(at + 1, uint8_t(bytes[at]));
        at += 1 + datagram.size();
        const auto length = ssize_t(datagram.size());
        must(send(ends[1], datagram.data(), datagram.size(), 0) == length);
        uint32_t command = 0;
        const int32_t got = CICOMM_RecvChecked(endpoint, &command);
        must(got == CICOMM_CheckMessage(datagram.data(), int32_t(length)));
        must(got == -1 || (got >= 0 && got + CICOMM_HEADER_SIZE <= length));
        const void* payload = CICOMM_GetRecvData(endpoint);
        must(got == -1 || memcmp(payload, datagram.data() + CICOMM_HEADER_SIZE, size_t(got)) == 0);
        must(send(ends[1], datagram.data(), datagram.size(), 0) == length);
        CICOMM_Recv(endpoint, &command);
    }
    close(ends[1]);
    CICOMM_Close(endpoint);
}
