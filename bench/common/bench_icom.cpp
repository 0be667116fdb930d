// A message from one process's endpoint to another's, beside the same bytes through sendto and recvfrom.
#include "bench/common/measure.hpp"
#include "common/cicomm.h"
#include "common/net/inet_address.hpp"

#include <cstring>
#include <memory>
#include <sys/socket.h>

namespace {

constexpr int kMessages = 100; // a round is short, so that some rounds meet no other work
constexpr int kRounds = 500;
constexpr int kLargest = 65507; // what a datagram carries, and so the largest message

struct Ends {
    std::unique_ptr<CICOMM> sender = std::make_unique<CICOMM>(), receiver = std::make_unique<CICOMM>();
    int port = 0;
};

// Ports are tried until one is free.
Ends open_ends()
{
    Ends ends;
    for (ends.port = 20000; ends.port < 21000; ++ends.port)
        if (CICOMM_Init(ends.receiver.get(), uint32_t(ends.port)) == 0) break;
    if (CICOMM_Init(ends.sender.get(), 0) != 0 || ends.receiver->fd < 0) exit(1);
    return ends;
}

void must(bool good)
{
    if (good) return;
    fputs("a message was lost\n", stderr);
    exit(1);
}

double ours(Ends& ends, int size)
{
    static char payload[kLargest];
    const int length = size - CICOMM_HEADER_SIZE;
    return best_ms(kRounds,
                   [&] {
                       for (int i = 0; i < kMessages; ++i) {
                           uint32_t command;
                           must(CICOMM_Send(ends.sender.get(), 1, ends.port, payload, length) == size);
                           must(CICOMM_RecvChecked(ends.receiver.get(), &command) == length);
                       }
                   }) /
           kMessages * 1000;
}

double bare(Ends& ends, int size)
{
    static char out[kLargest], in[kLargest];
    const sockaddr_in to = zep::loopback_address(ends.port);
    return best_ms(kRounds,
                   [&] {
                       for (int i = 0; i < kMessages; ++i) {
                           must(sendto(ends.sender->fd, out, size_t(size), 0, zep::as_sockaddr(to),
                                       sizeof to) == size);
                           must(recvfrom(ends.receiver->fd, in, sizeof in, 0, nullptr, nullptr) == size);
                       }
                   }) /
           kMessages * 1000;
}

} // namespace

int main()
{
    Ends ends = open_ends();
    printf("a message sent and received, best of %d\n", kRounds);
    for (int size : {64, kLargest}) {
        double message = ours(ends, size), datagram = bare(ends, size);
        printf("  %6d bytes: message %8.3f us, sendto and recvfrom %8.3f us, ratio %.2f\n", size, message,
               datagram, message / datagram);
    }
    CICOMM_Close(ends.sender.get());
    CICOMM_Close(ends.receiver.get());
}
