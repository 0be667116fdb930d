// The camera's system log: the datagram socket /dev/log, kept as lines in the state folder.
#include "sim/guest/syslog_server.hpp"
#include "sim/guest/simlog.hpp"
#include "sim/base/text.hpp"

#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace vcam {
namespace {

constexpr size_t kStampLength = sizeof "Sep 19 04:24:00 " - 1;

bool is_stamp(std::string_view s)
{
    if (s.size() < kStampLength) return false;
    constexpr std::string_view kShape = "aaa dd dd:dd:dd ";
    for (size_t i = 0; i < kStampLength; ++i) {
        auto c = static_cast<unsigned char>(s[i]);
        bool fits = kShape[i] == 'a'   ? isalpha(c)
                    : kShape[i] == 'd' ? isdigit(c) || (i == 4 && c == ' ')
                                       : c == static_cast<unsigned char>(kShape[i]);
        if (!fits) return false;
    }
    return true;
}

} // namespace

SyslogMessage parse_syslog(std::string_view datagram)
{
    SyslogMessage m;
    while (!datagram.empty() && datagram.back() == '\0') datagram.remove_suffix(1);
    if (datagram.size() > 2 && datagram[0] == '<') {
        int priority = 0;
        auto [end, error] = std::from_chars(datagram.data() + 1, datagram.data() + datagram.size(), priority);
        if (error == std::errc() && end < datagram.data() + datagram.size() && *end == '>' && priority >= 0) {
            m.priority = priority;
            datagram.remove_prefix(size_t(end - datagram.data()) + 1);
        }
    }
    if (is_stamp(datagram)) datagram.remove_prefix(kStampLength);
    m.words = std::string(datagram);
    return m;
}

void SyslogServer::open(const std::string& socket_path, const std::string& log_path)
{
    log_path_ = log_path;
    socket_ = Fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    socket_path.copy(address.sun_path, sizeof address.sun_path - 1);
    unlink(socket_path.c_str());
    if (!socket_ || bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) < 0)
        fail("no system log at %s: %s", socket_path.c_str(), strerror(errno));
    chmod(socket_path.c_str(), 0666);
}

void SyslogServer::drain()
{
    std::array<char, 65536> datagram;
    ssize_t n;
    while ((n = recv(socket_.get(), datagram.data(), datagram.size(), 0)) >= 0 || errno == EINTR) {
        if (n < 0) continue;
        auto m = parse_syslog(std::string_view(datagram.data(), size_t(n)));
        append_file(log_path_, text("%.6f %d %s\n", camera_seconds(), m.priority, one_line(m.words).c_str()));
    }
}

} // namespace vcam
