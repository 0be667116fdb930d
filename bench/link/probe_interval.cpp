// probe_interval SECONDS, inside a camera with a neighbour on its wire: runs qrn_arp for so long and takes
// the time of each probe where it arrives, by the kernel's stamp.
#include <algorithm>
#include <arpa/inet.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int64_t kSecond = 1'000'000'000;
constexpr size_t kOperation = 20;

[[noreturn]] void give_up(const char* what)
{
    perror(what);
    exit(1);
}

void enter(const char* space)
{
    const int fd = open(space, O_RDONLY | O_CLOEXEC);
    if (fd < 0 || setns(fd, CLONE_NEWNET) < 0) give_up(space);
    close(fd);
}

// A socket belongs to the network space in which it was made.
int neighbours_ear()
{
    const int home = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    enter("/run/netns/neighbour");
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ARP));
    sockaddr_ll link = {};
    link.sll_family = AF_PACKET;
    link.sll_protocol = htons(ETH_P_ARP);
    link.sll_ifindex = int(if_nametoindex("eth0"));
    const int on = 1;
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&link), sizeof link) < 0 ||
        setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) < 0)
        give_up("eth0");
    if (setns(home, CLONE_NEWNET) < 0) give_up("setns");
    close(home);
    return fd;
}

// When the frame arrived, in ns since 1970; 0 for anything but a request.
int64_t arrival(int fd)
{
    unsigned char frame[64];
    alignas(cmsghdr) char control[128];
    iovec part = {frame, sizeof frame};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (recvmsg(fd, &message, 0) < 42 || frame[kOperation + 1] != 1) return 0;
    timespec stamp = {};
    for (cmsghdr* c = CMSG_FIRSTHDR(&message); c; c = CMSG_NXTHDR(&message, c))
        if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS)
            memcpy(&stamp, CMSG_DATA(c), sizeof stamp);
    return stamp.tv_sec * kSecond + stamp.tv_nsec;
}

std::vector<int64_t> probes(int seconds)
{
    const int fd = neighbours_ear();
    const pid_t child = fork();
    if (child == 0) {
        const std::string limit = std::to_string(seconds * 1000);
        if (!freopen("/dev/null", "w", stdout)) _exit(126);
        execlp("qrn_arp", "qrn_arp", "eth0", "192.168.10.77", limit.c_str(), nullptr);
        _exit(127);
    }
    std::vector<int64_t> times;
    for (bool ended = false; !ended;) {
        ended = waitpid(child, nullptr, WNOHANG) == child;
        pollfd wanted = {fd, POLLIN, 0};
        while (poll(&wanted, 1, 20) == 1)
            if (const int64_t at = arrival(fd)) times.push_back(at);
    }
    return times;
}

void print(const char* which, std::vector<int64_t> intervals)
{
    if (intervals.empty()) return;
    std::sort(intervals.begin(), intervals.end());
    auto ms = [](int64_t ns) { return double(ns) / 1e6; };
    printf("%-34s %4zu intervals: min %7.2f, median %7.2f, max %7.2f ms\n", which, intervals.size(),
           ms(intervals.front()), ms(intervals[intervals.size() / 2]), ms(intervals.back()));
}

} // namespace

int main(int argc, char** argv)
{
    const int seconds = argc > 1 ? atoi(argv[1]) : 10;
    const std::vector<int64_t> times = probes(seconds);
    if (times.size() < 2) {
        fputs("probe_interval: no probes arrived\n", stderr);
        return 1;
    }
    std::vector<int64_t> all, within, across;
    for (size_t i = 1; i < times.size(); ++i) {
        const bool same = times[i] / kSecond == times[i - 1] / kSecond;
        all.push_back(times[i] - times[i - 1]);
        (same ? within : across).push_back(all.back());
    }
    printf("%zu probes in %.2f s; documented interval 100 ms\n", times.size(),
           double(times.back() - times.front()) / 1e9);
    print("all", all);
    print("within one second of the clock", within);
    print("over the beginning of a second", across);
    return 0;
}
