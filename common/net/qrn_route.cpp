// Default gateways and name servers.
#include "common/qrn_netstatus.h"

#include "common/base/fd.hpp"
#include "common/base/line_reader.hpp"
#include "common/net/qrn_status_files.hpp"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>

namespace {

struct Gateway {
    bool found = false; // a default route
    uint32_t metric = 0;
    char address[QRN_ADDRESS_SIZE] = ""; // empty for a route without a gateway

    // The first of the lowest metric stays.
    [[nodiscard]] bool better(uint32_t other) const { return !found || other < metric; }
};

bool is_wanted(const char* interface, const char* name, unsigned flags)
{
    return (flags & RTF_UP) && (!interface || strcmp(interface, name) == 0);
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
    best = {.found = true, .metric = metric};
    // A next hop of another family has the flag and no address here.
    in_addr address = {gateway};
    if ((flags & RTF_GATEWAY) && gateway != 0)
        inet_ntop(AF_INET, &address, best.address, sizeof best.address);
}

// A link-local address means nothing without its interface.
void add_zone(char (&address)[QRN_ADDRESS_SIZE], const char* interface)
{
    const size_t length = strlen(address);
    snprintf(address + length, sizeof address - length, "%%%s", interface);
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
    unsigned length, metric, flags;
    if (sscanf(line, "%*s %x %*s %*s %32s %x %*s %*s %x %15s", &length, hop, &metric, &flags, name) != 5)
        return;
    in6_addr address;
    if (length != 0 || !is_wanted(interface, name, flags) || !best.better(metric)) return;
    if (strlen(hop) != 32 || !parse_hex_address(hop, address)) return;
    best = {.found = true, .metric = metric};
    if (!(flags & RTF_GATEWAY)) return;
    inet_ntop(AF_INET6, &address, best.address, sizeof best.address);
    if (IN6_IS_ADDR_LINKLOCAL(&address)) add_zone(best.address, name);
}

bool find_gateway(int fd, const char* interface, char* text,
                  void (*take)(const char* line, const char* interface, Gateway& best))
{
    Gateway best;
    zep::LineReader lines(fd);
    char line[512];
    while (lines.next_whole(line) > 0) take(line, interface, best);
    if (best.address[0] == '\0') return false;
    memcpy(text, best.address, sizeof best.address);
    return true;
}

int32_t ask_table(const char* path, const char* interface, char* text, bool (*read)(int, const char*, char*))
{
    if (!text) return -1;
    zep::Fd file(open(path, O_RDONLY | O_CLOEXEC));
    return file && read(file.get(), interface, text) ? 0 : -1;
}

// The binary address as text, with the zone behind "%" where a link-local one has it.
bool put_address(int family, const in6_addr& binary, const char* zone, char (&address)[QRN_ADDRESS_SIZE])
{
    if (!inet_ntop(family, &binary, address, sizeof address)) return false;
    if (*zone && family == AF_INET6 && IN6_IS_ADDR_LINKLOCAL(&binary)) add_zone(address, zone);
    return true;
}

// "nameserver ADDRESS": the address in normal form; false for any other line.
bool parse_server(const char* line, char (&address)[QRN_ADDRESS_SIZE])
{
    constexpr char kKeyword[] = "nameserver";
    char text[64];
    line += strncmp(line, kKeyword, strlen(kKeyword)) == 0 ? strlen(kKeyword) : strlen(line);
    if ((*line != ' ' && *line != '\t') || sscanf(line, "%63s", text) != 1) return false;
    const char* zone = "";
    if (char* percent = strchr(text, '%')) {
        *percent = '\0';
        if (strlen(percent + 1) < IF_NAMESIZE) zone = percent + 1; // else no interface's name
    }
    in6_addr binary;
    for (int family : {AF_INET, AF_INET6})
        if (inet_pton(family, text, &binary) == 1) return put_address(family, binary, zone, address);
    return false;
}

} // namespace

bool zep::read_gateway(int fd, const char* interface, char* address)
{
    return find_gateway(fd, interface, address, take_route);
}

bool zep::read_gateway6(int fd, const char* interface, char* address)
{
    return find_gateway(fd, interface, address, take_route6);
}

int32_t zep::read_resolvers(int fd, char (*list)[QRN_ADDRESS_SIZE], int32_t max)
{
    LineReader lines(fd);
    char line[512];
    int32_t count = 0;
    while (count < max && count < QRN_RESOLVERS && lines.next_whole(line) > 0)
        if (parse_server(line, list[count])) ++count;
    return count;
}

int32_t QRN_GetDefaultGateway(const char* interface, char* address)
{
    return ask_table("/proc/net/route", interface, address, zep::read_gateway);
}

int32_t QRN_GetDefaultGateway6(const char* interface, char* address)
{
    return ask_table("/proc/net/ipv6_route", interface, address, zep::read_gateway6);
}

int32_t QRN_GetResolvers(char (*list)[QRN_ADDRESS_SIZE], int32_t max)
{
    if (!list) return -1;
    zep::Fd file(open("/etc/resolv.conf", O_RDONLY | O_CLOEXEC));
    return file ? zep::read_resolvers(file.get(), list, max) : -1;
}
