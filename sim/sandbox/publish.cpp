// Ports of the host that lead into a camera: their names and sockets, and the process that serves them.
#include "sim/sandbox/publish.hpp"
#include "sim/sandbox/forward.hpp"
#include "sim/base/text.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vcam {
namespace {

constexpr int kTries = 20; // for a number that is free as a TCP port and as a UDP port

std::string shown(const Port& port)
{
    const bool v6 = port.host.find(':') != std::string::npos;
    return text(v6 ? "[%s]:%u" : "%s:%u", port.host.c_str(), port.outside);
}

using Addresses = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

Addresses resolve(const Port& port)
{
    addrinfo hints = {}, *found = nullptr;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE;
    if (const int error = getaddrinfo(port.host.c_str(), nullptr, &hints, &found))
        fail("--publish %s: %s", port.host.c_str(), gai_strerror(error));
    return {found, freeaddrinfo};
}

void set_port(sockaddr* address, uint16_t number)
{
    if (address->sa_family == AF_INET6)
        reinterpret_cast<sockaddr_in6*>(address)->sin6_port = htons(number);
    else
        reinterpret_cast<sockaddr_in*>(address)->sin_port = htons(number);
}

uint16_t port_of(const Fd& fd)
{
    sockaddr_storage own = {};
    socklen_t length = sizeof own;
    getsockname(fd.get(), reinterpret_cast<sockaddr*>(&own), &length);
    return ntohs(own.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6&>(own).sin6_port
                                           : reinterpret_cast<sockaddr_in&>(own).sin_port);
}

// A bound socket; none, with errno, when the number is taken.
Fd bound(const addrinfo& address, int type, uint16_t number)
{
    set_port(address.ai_addr, number);
    Fd fd(socket(address.ai_family, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    if (fd && type == SOCK_STREAM) setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const bool good = fd && bind(fd.get(), address.ai_addr, address.ai_addrlen) == 0 &&
                      (type == SOCK_DGRAM || listen(fd.get(), SOMAXCONN) == 0);
    const int error = errno;
    if (!good) fd = Fd();
    errno = error;
    return fd;
}

// Says which of the two sockets could not be had, and what to do.
[[noreturn]] void refuse_port(const Port& port, bool tcp)
{
    const int error = errno;
    const char* advice = error == EADDRINUSE ? "; choose another port, or 0 for a free one"
                         : error == EACCES   ? "; choose a port from 1024 on"
                                             : "";
    fail("--publish %s: %s port %u: %s%s", shown(port).c_str(), tcp ? "TCP" : "UDP", port.outside,
         strerror(error), advice);
}

OpenPort open_port(const Port& wanted)
{
    const Addresses address = resolve(wanted);
    OpenPort open{wanted, Fd(), Fd()};
    for (int i = 0; i < kTries; ++i) {
        open.listener = bound(*address, SOCK_STREAM, wanted.outside);
        if (!open.listener) break;
        open.port.outside = port_of(open.listener);
        open.datagrams = bound(*address, SOCK_DGRAM, open.port.outside);
        if (open.datagrams) return open;
        if (wanted.outside) break;
    }
    refuse_port(open.port, !open.listener);
}

// Another computer's address, which can be resolved, is found out here, where it costs nothing.
void check_host(const Port& port, const std::string& words)
{
    if (!bound(*resolve(port), SOCK_DGRAM, 0) && errno == EADDRNOTAVAIL)
        fail("--publish %s: %s is no address of this computer", words.c_str(), port.host.c_str());
}

// The forwarder has the sockets and nothing else of its parent's, such as the camera's lock.
void close_others(std::vector<int> kept)
{
    std::sort(kept.begin(), kept.end());
    unsigned from = STDERR_FILENO + 1;
    for (int fd : kept) {
        if (unsigned(fd) > from) close_range(from, unsigned(fd) - 1, 0);
        from = unsigned(fd) + 1;
    }
    close_range(from, ~0u, 0);
}

// False when the camera has ended already.
bool enter_network(pid_t init)
{
    const Fd camera(int(syscall(SYS_pidfd_open, init, 0)));
    if (!camera) return false;
    if (setns(camera.get(), CLONE_NEWUSER) == 0 && setns(camera.get(), CLONE_NEWNET) == 0) return true;
    if (errno != ESRCH)
        fprintf(stderr, "vcam: --publish: cannot enter the camera's network: %s\n", strerror(errno));
    return false;
}

} // namespace

Port parse_port(const std::string& words)
{
    const auto wrong = [&] {
        fail("--publish %s: write it as 5000, 8080:80, 0.0.0.0:8080:80 or [::1]:8080:80", words.c_str());
    };
    Port port;
    std::string rest = words;
    const bool bracket = starts_with(words, "[");
    const size_t end = bracket ? words.find("]:") : words.find(':');
    const bool host = bracket || words.substr(0, end).find_first_not_of("0123456789") != std::string::npos;
    if (host) {
        if (end == std::string::npos || end == 0) wrong();
        port.host = words.substr(bracket, end - bracket);
        rest = words.substr(end + 1 + bracket);
    }
    const auto numbers = split(rest, ':');
    if (numbers.size() > 2) wrong();
    for (const std::string& number : numbers)
        if (number.empty() || number.size() > 5 ||
            number.find_first_not_of("0123456789") != std::string::npos || std::stoi(number) > UINT16_MAX)
            wrong();
    port.outside = uint16_t(std::stoi(numbers.front()));
    port.inside = uint16_t(std::stoi(numbers.back()));
    if (!port.inside) fail("--publish %s: a port of the camera is 1 to 65535", words.c_str());
    check_host(port, words);
    return port;
}

Publisher::Publisher(const std::vector<Port>& ports)
{
    for (const Port& port : ports) {
        ports_.push_back(open_port(port));
        if (!port.outside)
            fprintf(stderr, "vcam: %s leads to the camera's port %u\n", shown(ports_.back().port).c_str(),
                    port.inside);
    }
}

Publisher::~Publisher()
{
    if (!forwarder_) return;
    running_ = Fd();
    while (waitpid(forwarder_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

void Publisher::start(pid_t init)
{
    if (ports_.empty()) return;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0) fail("no pipe: %s", strerror(errno));
    Fd over(ends[0]);
    running_ = Fd(ends[1]);
    fflush(nullptr);
    forwarder_ = fork();
    if (forwarder_ < 0) fail("no process: %s", strerror(errno));
    if (forwarder_ == 0) forward_to(init, over);
    ports_.clear(); // the forwarder alone has them: with it they end
}

void Publisher::forward_to(pid_t init, Fd& over)
{
    for (int number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGPIPE})
        signal(number, SIG_IGN); // the camera's, not ours
    running_ = Fd();
    std::vector<int> kept = {over.get()};
    for (const OpenPort& open : ports_) kept.insert(kept.end(), {open.listener.get(), open.datagrams.get()});
    close_others(kept);
    if (!enter_network(init)) _exit(1);
    try {
        forward(ports_, over.get());
    } catch (const std::exception& e) {
        fprintf(stderr, "vcam: --publish: %s\n", e.what());
        _exit(1);
    }
    _exit(0);
}

} // namespace vcam
