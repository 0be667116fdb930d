// The other host on the wire, for the tests; runs in the neighbour's network space.
//   watch FILE       writes every ARP frame that arrives from now on to FILE, one a line, bytes as hex
//   send FRAME...    sends frames, given as hex, to the camera
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int open_wire()
{
    const int fd = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ARP));
    sockaddr_ll link = {};
    link.sll_family = AF_PACKET;
    link.sll_protocol = htons(ETH_P_ARP);
    link.sll_ifindex = int(if_nametoindex("eth0"));
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&link), sizeof link) < 0) {
        perror("eth0");
        exit(3);
    }
    return fd;
}

// Goes on in the background once nothing can be missed.
int watch(const char* file)
{
    const int fd = open_wire();
    FILE* to = fopen(file, "w");
    if (!to) return 3;
    if (fork() > 0) return 0;
    unsigned char bytes[2000];
    for (ssize_t n; (n = recv(fd, bytes, sizeof bytes, 0)) >= 0;) {
        for (ssize_t i = 0; i < n; ++i) fprintf(to, "%02x", bytes[i]);
        fputc('\n', to);
        fflush(to);
    }
    return 1;
}

int send_frame(int fd, const char* hex)
{
    std::string frame;
    for (; hex[0] && hex[1]; hex += 2) frame += char(strtol(std::string(hex, 2).c_str(), nullptr, 16));
    return send(fd, frame.data(), frame.size(), 0) == ssize_t(frame.size()) ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && strcmp(argv[1], "watch") == 0) return watch(argv[2]);
    if (argc < 3 || strcmp(argv[1], "send") != 0) return 2;
    const int fd = open_wire();
    int bad = 0;
    for (int i = 2; i < argc; ++i) bad |= send_frame(fd, argv[i]);
    return bad;
}
