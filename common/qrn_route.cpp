// Default gateways and name servers.
#include "common/qrn_netstatus.h"

#include "common/fd.hpp"
#include "common/line_reader.hpp"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <net/route.h>
#include <netinet/in.h>

namespace {

struct Gateway {
    bool found = false;
    uint32_t metric = 0;
    char address[QRN_ADDRESS_SIZE] = "";

    // The first of the lowest metric stays.
    [[nodiscard]] bool better(uint32_t other) const { return !found || other < metric; }
};

constexpr unsigned kWanted = RTF_UP | RTF_GATEWAY;

bool is_wanted(const char* interface, const char* name, unsigned flags)
{
    return (flags & kWanted) == kWanted && (!interface || strcmp(interface, name) == 0);
}

// iface destination gateway flags refcount use metric mask ...; addresses are raw words in hexadecimal.
void take_route(const char* line, const char* interface, Gateway& best)
{
    char name[16];
    unsigned destination, gateway, flags, metric, mask;
    if (sscanf(line, "%15s %x %x %x %*s %*s %u %x", name, &destination, &gateway, &flags, &metric, &mask) !=
        6)
        return;
    if (destination != 0 || mask != 0 || !is_wanted(interface, name, flags) || !best.better(metric)) return;
    in_addr address = {gateway};
    inet_ntop(AF_INET, &address, best.address, sizeof best.address);
    best.metric = metric;
    best.found = true;
}

bool parse_hex_address(const char* text, in6_addr& address)
{
    for (size_t i = 0; i < sizeof address.s6_addr; ++i) {
        unsigned byte;
        if (sscanf(text + 2 * i, "%2x", &byte) != 1) return false;
        address.s6_addr[i] = uint8_t(byte);
    }
    return true;
}

// destination length source length next-hop metric refcount use flags iface, all in hexadecimal.
void take_route6(const char* line, const char* interface, Gateway& best)
{
    char name[16], hop[33];
    unsigned length, source_length, metric, flags;
    if (sscanf(line, "%*s %x %*s %x %32s %x %*s %*s %x %15s", &length, &source_length, hop, &metric, &flags,
               name) != 6)
        return;
    in6_addr address;
    if (length != 0 || !is_wanted(interface, name, flags) || !best.better(metric)) return;
    if (strlen(hop) != 32 || !parse_hex_address(hop, address)) return;
    inet_ntop(AF_INET6, &address, best.address, sizeof best.address);
    best.metric = metric;
    best.found = true;
}

int32_t find_gateway(const char* table, const char* interface, char* text,
                     void (*take)(const char* line, const char* interface, Gateway& best))
{
    if (!text) return -1;
    zep::Fd file(open(table, O_RDONLY | O_CLOEXEC));
    if (!file) return -1;
    Gateway best;
    zep::LineReader lines(file.get());
    char line[512];
    while (lines.next(line) > 0) take(line, interface, best);
    if (!best.found) return -1;
    memcpy(text, best.address, sizeof best.address);
    return 0;
}

// "nameserver ADDRESS": the address in normal form; false for any other line.
bool parse_server(const char* line, char (&address)[QRN_ADDRESS_SIZE])
{
    char text[64];
    if (sscanf(line, "nameserver %63s", text) != 1) return false;
    text[strcspn(text, "%")] = '\0';
    in6_addr binary;
    for (int family : {AF_INET, AF_INET6}) {
        if (inet_pton(family, text, &binary) != 1) continue;
        return inet_ntop(family, &binary, address, sizeof address) != nullptr;
    }
    return false;
}

} // namespace

int32_t QRN_GetDefaultGateway(const char* interface, char* address)
{
    return find_gateway("/proc/net/route", interface, address, take_route);
}

int32_t QRN_GetDefaultGateway6(const char* interface, char* address)
{
    return find_gateway("/proc/net/ipv6_route", interface, address, take_route6);
}

int32_t QRN_GetResolvers(char (*list)[QRN_ADDRESS_SIZE], int32_t max)
{
    if (!list) return -1;
    zep::Fd file(open("/etc/resolv.conf", O_RDONLY | O_CLOEXEC));
    if (!file) return -1;
    zep::LineReader lines(file.get());
    char line[512];
    int32_t count = 0;
    while (count < max && count < QRN_RESOLVERS && lines.next(line) > 0)
        if (parse_server(line, list[count])) ++count;
    return count;
}
