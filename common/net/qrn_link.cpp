// Links: carrier, counters, hardware address.
#include "common/qrn_netstatus.h"

#include "common/base/fd.hpp"
#include "common/base/line_reader.hpp"
#include "common/net/qrn_status_files.hpp"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

bool valid_name(const char* interface)
{
    return interface && *interface && strlen(interface) < IFNAMSIZ && !strchr(interface, '/');
}

zep::Fd any_socket() { return zep::Fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)); }

ifreq request_on(const char* interface)
{
    ifreq request = {};
    strcpy(request.ifr_name, interface);
    return request;
}

// One request on an interface; false when there is no such interface.
bool query(const char* interface, unsigned long code, ifreq& request)
{
    if (!valid_name(interface)) return false;
    zep::Fd fd = any_socket();
    request = request_on(interface);
    return fd && ioctl(fd.get(), code, &request) == 0;
}

// The driver's own word; -1 when it has none.
int driver_link(const char* interface)
{
    ethtool_value link = {};
    link.cmd = ETHTOOL_GLINK;
    ifreq request = request_on(interface);
    request.ifr_data = reinterpret_cast<char*>(&link);
    zep::Fd fd = any_socket();
    return fd && ioctl(fd.get(), SIOCETHTOOL, &request) == 0 ? link.data != 0 : -1;
}

// "  eth0: 1 2 ..." or "eth0:12 ...", where name and first number may touch. Null for another interface.
const char* counters_of(const char* line, const char* interface)
{
    line += strspn(line, " ");
    size_t length = strlen(interface);
    // The name's own colons (aliases) are part of it; the last one before the numbers ends it.
    if (strncmp(line, interface, length) != 0 || line[length] != ':') return nullptr;
    return line + length + 1;
}

bool parse_counters(const char* numbers, QRN_IF_COUNTERS_S& c)
{
    // bytes packets errs drop fifo frame compressed multicast, then the same for sending
    return sscanf(numbers,
                  "%" SCNu64 "%" SCNu64 "%" SCNu64 "%" SCNu64 "%*s%*s%*s%*s%" SCNu64 "%" SCNu64 "%" SCNu64
                  "%" SCNu64,
                  &c.rx_bytes, &c.rx_packets, &c.rx_errors, &c.rx_drops, &c.tx_bytes, &c.tx_packets,
                  &c.tx_errors, &c.tx_drops) == 8;
}

} // namespace

bool zep::read_counters(int fd, const char* interface, QRN_IF_COUNTERS_S& counters)
{
    LineReader lines(fd);
    char line[512];
    while (lines.next_whole(line) > 0) {
        const char* numbers = counters_of(line, interface);
        if (!numbers) continue;
        QRN_IF_COUNTERS_S read = {};
        if (!parse_counters(numbers, read)) return false;
        counters = read;
        return true;
    }
    return false;
}

int32_t QRN_GetLinkCarrier(const char* interface)
{
    ifreq request;
    if (!query(interface, SIOCGIFFLAGS, request)) return -1;
    if (!(request.ifr_flags & IFF_UP)) return 0;
    // The running flag follows the link up to a second late, so it comes second.
    int link = driver_link(interface);
    return link >= 0 ? link : (request.ifr_flags & IFF_RUNNING) != 0;
}

int32_t QRN_GetIfCounters(const char* interface, QRN_IF_COUNTERS_S* counters)
{
    if (!counters || !valid_name(interface)) return -1;
    zep::Fd file(open("/proc/net/dev", O_RDONLY | O_CLOEXEC));
    return file && zep::read_counters(file.get(), interface, *counters) ? 0 : -1;
}

uint64_t QRN_CounterDifference(uint64_t earlier, uint64_t later)
{
    if (later < earlier && earlier <= UINT32_MAX) return uint32_t(uint32_t(later) - uint32_t(earlier));
    return later - earlier;
}

int32_t QRN_GetHardwareAddress(const char* interface, char* address)
{
    ifreq request;
    if (!address || !query(interface, SIOCGIFHWADDR, request)) return -1;
    if (request.ifr_hwaddr.sa_family != ARPHRD_ETHER) return -1;
    unsigned char b[6];
    memcpy(b, request.ifr_hwaddr.sa_data, sizeof b);
    snprintf(address, QRN_HWADDR_SIZE, "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5]);
    return 0;
}
