// udpcat: prints the datagrams that arrive at a port, for what programs log over the network.
#include "sim/guest/guest.hpp"
#include "sim/base/text.hpp"

#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vcam {

int udpcat_main(int argc, char** argv)
{
    if (argc != 2) fail("write it as: udpcat PORT");
    sockaddr_in any = {};
    any.sin_family = AF_INET;
    any.sin_port = htons(uint16_t(parse_size(argv[1], "port")));
    Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd || bind(fd.get(), reinterpret_cast<sockaddr*>(&any), sizeof any) < 0)
        fail("no port %s: %s", argv[1], strerror(errno));
    std::array<char, 65536> datagram;
    for (;;) {
        ssize_t n = recv(fd.get(), datagram.data(), datagram.size(), 0);
        if (n < 0 && errno != EINTR) fail("port %s: %s", argv[1], strerror(errno));
        // One write a datagram: the camera's end must not lose what has arrived.
        if (n > 0) write_all(STDOUT_FILENO, std::string(datagram.data(), size_t(n)), "standard output");
    }
}

} // namespace vcam
