// qrn_arp: finds out whether an IPv4 address is in use on a link.
#include "board/applets.h"
#include "board/arp_frame.hpp"

#include "common/ctime.h"
#include "common/base/fd.hpp"
#include "common/base/parse_int.hpp"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace {

constexpr int32_t kProbeIntervalMs = 100;

struct Probe {
    zep::Fd fd;
    sockaddr_ll link = {};
    zep::HardwareAddress own = {};
    zep::ProtocolAddress address = {};
    int32_t limit_ms = 0;
    timeval started = {};
    timeval last = {};
    bool sent = false; // one probe at least has left
};

// Bound to the ARP protocol alone: such a socket does not receive this host's own probes. Until it is bound
// it has no protocol, so that frames of other interfaces are not waiting in it.
bool open_link(Probe& probe, const char* interface)
{
    probe.fd.reset(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    if (!probe.fd || strlen(interface) >= IFNAMSIZ) return false;
    ifreq request = {};
    strcpy(request.ifr_name, interface);
    if (ioctl(probe.fd.get(), SIOCGIFINDEX, &request) < 0) return false;
    probe.link.sll_family = AF_PACKET;
    probe.link.sll_protocol = htons(ETH_P_ARP);
    probe.link.sll_ifindex = request.ifr_ifindex;
    if (bind(probe.fd.get(), reinterpret_cast<sockaddr*>(&probe.link), sizeof probe.link) < 0) return false;
    if (ioctl(probe.fd.get(), SIOCGIFHWADDR, &request) < 0) return false;
    memcpy(probe.own.data(), request.ifr_hwaddr.sa_data, probe.own.size());
    return true;
}

int send_probe(Probe& probe)
{
    zep::ArpFrame frame = zep::make_arp_request(probe.own, {}, probe.address);
    if (sendto(probe.fd.get(), frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&probe.link),
               sizeof probe.link) >= 0) {
        probe.sent = true;
        return 0;
    }
    int error = errno;
    perror("sendto");
    return -error;
}

void report_conflict(const zep::HardwareAddress& by)
{
    printf("conflict %02x:%02x:%02x:%02x:%02x:%02x\n", by[0], by[1], by[2], by[3], by[4], by[5]);
}

enum class Step { again, timers, end };

Step receive(Probe& probe)
{
    uint8_t frame[zep::kArpFrameSize];
    ssize_t length = recv(probe.fd.get(), frame, sizeof frame, 0);
    if (length < 0) return Step::end;
    switch (zep::judge_arp_frame(frame, size_t(length), probe.own, probe.address)) {
    case zep::ArpVerdict::ignore:
        return Step::again;
    case zep::ArpVerdict::other:
        return Step::timers;
    case zep::ArpVerdict::conflict:
        break;
    }
    report_conflict(zep::arp_sender(frame));
    return Step::end;
}

Step wait_frame(Probe& probe)
{
    pollfd ready = {probe.fd.get(), POLLIN, 0};
    int result = poll(&ready, 1, 1);
    if (result == 0) return Step::timers;
    if (result != 1) return Step::end;
    if (ready.revents & POLLIN) return receive(probe);
    return (ready.revents & POLLERR) ? Step::end : Step::again;
}

bool expired(const timeval& since, int32_t limit_ms)
{
    return CTIME_IsExpired(since.tv_sec, since.tv_usec, limit_ms) == 0;
}

// 0 when no other host showed interest in the address within the limit; -1 when one did or a call failed.
int run(Probe& probe)
{
    gettimeofday(&probe.started, nullptr);
    probe.last = probe.started;
    send_probe(probe);
    for (;;) {
        Step step = wait_frame(probe);
        if (step == Step::end) return -1;
        if (step == Step::again) continue; // a skipped frame does not reach the timers
        if (expired(probe.started, probe.limit_ms)) return 0;
        if (!expired(probe.last, kProbeIntervalMs)) continue;
        send_probe(probe);
        gettimeofday(&probe.last, nullptr);
    }
}

} // namespace

int qrn_arp_main(int argc, char** argv)
{
    if (argc != 4) {
        fprintf(stderr, "%s: %s\n", argv[0], "bad option");
        fprintf(stderr, "Usage: %s ifname IP\n",
                argv[0]); // names two of three arguments; scripts match this line
        exit(-1);
    }
    Probe probe;
    in_addr address = {};
    if (!inet_aton(argv[2], &address)) address.s_addr = 0;
    memcpy(probe.address.data(), &address, probe.address.size());
    probe.limit_ms = zep::parse_int(argv[3]);
    if (!open_link(probe, argv[1])) return -1;
    int result = run(probe);
    if (result == 0) puts(probe.sent ? "free" : "unknown");
    return result;
}
