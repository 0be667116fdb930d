// Readers behind the network status, on open files of the kernel's and the resolver's formats.
#pragma once

#include "common/qrn_netstatus.h"

namespace zep {

// Table of /proc/net/dev. False without a line of the interface.
bool read_counters(int fd, const char* interface, QRN_IF_COUNTERS_S& counters);

// Tables of /proc/net/route and /proc/net/ipv6_route. False, the address untouched, without a default
// gateway.
bool read_gateway(int fd, const char* interface, char* address);
bool read_gateway6(int fd, const char* interface, char* address);

// resolv.conf(5). Returns how many servers were found, at most `max` and QRN_RESOLVERS.
int32_t read_resolvers(int fd, char (*list)[QRN_ADDRESS_SIZE], int32_t max);

} // namespace zep
