// A wire with a neighbour: a pair of virtual Ethernet interfaces over two network spaces.
#include "sim/sandbox/link.hpp"
#include "sim/base/files.hpp"
#include "sim/base/text.hpp"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vcam {
namespace {

constexpr const char* kInterface = "eth0";
// Locally administered, so that no maker's device has them.
constexpr char kCameraAddress[] = "\x02\x5A\x00\x00\x00\x01",
               kNeighbourAddress[] = "\x02\x5A\x00\x00\x00\x02";

// A request to the kernel's network configuration, put together attribute by attribute.
class Message {
public:
    explicit Message(uint16_t type)
    {
        nlmsghdr head = {};
        head.nlmsg_type = type;
        head.nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE | NLM_F_EXCL | NLM_F_ACK;
        bytes_.assign(reinterpret_cast<const char*>(&head), sizeof head);
    }
    void plain(const void* data, size_t size)
    {
        bytes_.append(static_cast<const char*>(data), size);
        bytes_.resize((bytes_.size() + 3) & ~size_t(3));
    }
    void attribute(uint16_t type, const void* data, size_t size)
    {
        const size_t at = open(type);
        bytes_.append(static_cast<const char*>(data), size);
        close(at);
    }
    // Attributes until the matching close stand inside this one.
    size_t open(uint16_t type)
    {
        const rtattr head = {0, type};
        bytes_.append(reinterpret_cast<const char*>(&head), sizeof head);
        return bytes_.size() - sizeof head;
    }
    void close(size_t at)
    {
        const auto length = static_cast<unsigned short>(bytes_.size() - at);
        memcpy(&bytes_[at], &length, sizeof length);
        bytes_.resize((bytes_.size() + 3) & ~size_t(3));
    }
    // 0 or what the kernel answered, as errno.
    int send()
    {
        const auto length = uint32_t(bytes_.size());
        memcpy(&bytes_[0], &length, sizeof length);
        Fd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
        char answer[4096];
        if (!fd || ::send(fd.get(), bytes_.data(), bytes_.size(), 0) < 0) return errno;
        const ssize_t n = recv(fd.get(), answer, sizeof answer, 0);
        nlmsgerr error;
        if (n < ssize_t(sizeof(nlmsghdr) + sizeof error)) return EIO;
        memcpy(&error, answer + sizeof(nlmsghdr), sizeof error);
        return -error.error;
    }

private:
    std::string bytes_;
};

void add_pair(int other_space)
{
    const ifinfomsg none = {};
    Message m(RTM_NEWLINK);
    m.plain(&none, sizeof none);
    m.attribute(IFLA_IFNAME, kInterface, strlen(kInterface) + 1);
    m.attribute(IFLA_ADDRESS, kCameraAddress, 6);
    const size_t info = m.open(IFLA_LINKINFO);
    m.attribute(IFLA_INFO_KIND, "veth", 4);
    const size_t data = m.open(IFLA_INFO_DATA);
    const size_t peer = m.open(VETH_INFO_PEER);
    m.plain(&none, sizeof none);
    m.attribute(IFLA_IFNAME, kInterface, strlen(kInterface) + 1);
    m.attribute(IFLA_ADDRESS, kNeighbourAddress, 6);
    m.attribute(IFLA_NET_NS_FD, &other_space, sizeof other_space);
    m.close(peer);
    m.close(data);
    m.close(info);
    if (const int error = m.send()) fail("no link to a neighbour: %s", strerror(error));
}

void configure(unsigned long request, ifreq& how)
{
    Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    strcpy(how.ifr_name, kInterface);
    if (!fd || ioctl(fd.get(), request, &how) < 0) fail("no link to a neighbour: %s", strerror(errno));
}

void bring_up()
{
    ifreq how = {};
    how.ifr_flags = IFF_UP | IFF_RUNNING;
    configure(SIOCSIFFLAGS, how);
}

void set_address(unsigned long request, const std::string& address)
{
    sockaddr_in in = {};
    in.sin_family = AF_INET;
    inet_pton(AF_INET, address.c_str(), &in.sin_addr);
    ifreq how = {};
    memcpy(&how.ifr_addr, &in, sizeof in);
    configure(request, how);
}

Fd this_space()
{
    Fd fd(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
    if (!fd) fail("no link to a neighbour: /proc/self/ns/net: %s", strerror(errno));
    return fd;
}

void enter(const Fd& space)
{
    if (setns(space.get(), CLONE_NEWNET) < 0) fail("no link to a neighbour: %s", strerror(errno));
}

} // namespace

void check_link(const std::string& address)
{
    in_addr parsed;
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1)
        fail("--link %s: write it as 192.168.10.1", address.c_str());
    const uint32_t first = ntohl(parsed.s_addr) >> 24;
    if (first == 0 || first == 127 || first >= 224)
        fail("--link %s: is no host's address; give 1.0.0.0 to 223.255.255.255", address.c_str());
}

void make_link(const std::string& address)
{
    Fd home = this_space();
    if (unshare(CLONE_NEWNET) < 0) fail("no link to a neighbour: %s", strerror(errno));
    Fd there = this_space();
    make_folders("/run/netns");
    write_file(kNeighbour, "");
    // The mount keeps the space alive as long as the camera's mounts are.
    if (mount("/proc/self/ns/net", kNeighbour, nullptr, MS_BIND, nullptr) < 0)
        fail("no link to a neighbour: %s: %s", kNeighbour, strerror(errno));
    enter(home);
    add_pair(there.get());
    bring_up();
    enter(there);
    set_address(SIOCSIFADDR, address);
    set_address(SIOCSIFNETMASK, "255.255.255.0");
    bring_up();
    enter(home);
}

} // namespace vcam
