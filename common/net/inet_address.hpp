// IPv4 socket address records.
#pragma once

#include <arpa/inet.h>
#include <cstdint>
#include <netinet/in.h>

namespace zep {

// `address` in network byte order, `port` in host order.
inline sockaddr_in inet_address(in_addr_t address, int port)
{
    sockaddr_in record = {};
    record.sin_family = AF_INET;
    record.sin_port = htons(uint16_t(port));
    record.sin_addr.s_addr = address;
    return record;
}

inline sockaddr_in loopback_address(int port) { return inet_address(htonl(INADDR_LOOPBACK), port); }

inline const sockaddr* as_sockaddr(const sockaddr_in& record)
{
    return reinterpret_cast<const sockaddr*>(&record);
}

} // namespace zep
