// TCP servers and connections.
#include "common/qrn_tcp.h"
#include "common/base/fd.hpp"
#include "common/net/inet_address.hpp"
#include "common/qrn_socket.h"
#include "common/base/report.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <optional>
#include <sys/socket.h>

namespace {

using namespace zep;

constexpr int kBacklog = 10;
constexpr int kServerSendBuffer = 0x400000;
constexpr size_t kLookUpBuffer = 4096, kLargestLookUp = 1 << 20;

Fd tcp_socket() { return Fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

// A video stream's peer may lag; a server without the larger buffer still works.
void enlarge_send_buffer(int fd)
{
    int size = kServerSendBuffer;
    if (setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size) < 0)
        printf("new setsockopt error : %d\n", errno);
    socklen_t length = sizeof size;
    if (getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, &length) < 0)
        printf("new setsockopt error : %d, %s\n", errno, strerror(errno));
}

std::optional<in_addr_t> look_up(const char* host)
{
    hostent record;
    hostent* found = nullptr;
    struct FreeMemory {
        void operator()(char* memory) const { free(memory); }
    };
    std::unique_ptr<char, FreeMemory> buffer;
    int failed = ERANGE;
    int host_error;
    // The plain gethostbyname answers in one buffer for all threads; like it, this grows until the answer
    // fits.
    for (size_t size = kLookUpBuffer; failed == ERANGE && size <= kLargestLookUp; size *= 4) {
        buffer.reset(static_cast<char*>(malloc(size)));
        if (!buffer) return {};
        failed = gethostbyname_r(host, &record, buffer.get(), size, &found, &host_error);
    }
    if (failed != 0 || !found) return {};
    in_addr_t address;
    if (found->h_addrtype != AF_INET || found->h_length != int(sizeof address) || !found->h_addr_list[0])
        return {};
    memcpy(&address, found->h_addr_list[0], sizeof address);
    return address;
}

std::optional<in_addr_t> address_of(const char* host)
{
    if (QRN_IsIPv4Address(host, int(strlen(host)))) return inet_addr(host);
    return look_up(host);
}

// 0, or -1 with a line on standard error.
int make_non_blocking(int fd)
{
    int flags = fcntl(fd, F_GETFL);
    if (flags < 0) {
        fprintf(stderr, "Error fcntl(..., F_GETFL) (%s)\n", strerror(errno));
        return -1;
    }
    if (fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) {
        fprintf(stderr, "Error fcntl(..., F_SETFL) (%s)\n", strerror(errno));
        return -1;
    }
    return 0;
}

int connect_to(int fd, in_addr_t address, int port)
{
    sockaddr_in record = inet_address(address, port);
    return connect(fd, as_sockaddr(record), sizeof record);
}

} // namespace

int TSER_InitServer(int port)
{
    Fd fd = tcp_socket();
    if (!fd) {
        printf("[TSER_InitServer] error while get socket for middle connection.");
        return -1;
    }
    int on = 1;
    if (setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) < 0) {
        puts("setsockopt");
        return -1;
    }
    sockaddr_in record = inet_address(htonl(INADDR_ANY), port);
    if (bind(fd.get(), as_sockaddr(record), sizeof record) < 0) {
        printf("[open_tcp_socket error] while bind tcp socket : %s\n", strerror(errno));
        return -1;
    }
    enlarge_send_buffer(fd.get());
    if (listen(fd.get(), kBacklog) < 0) {
        puts("[open_tcp_socket error] error while listen");
        return -1;
    }
    return fd.release();
}

// Its messages carry the waiting function's name: log filters look for that one.
int QRN_ASyncConnectTCPSocket(int* fd, const char* host, int port)
{
    Fd own = tcp_socket();
    if (!own) {
        report_errno("QRN_ConnectTCPSocket/socket");
        return -1;
    }
    std::optional<in_addr_t> address = address_of(host);
    if (!address) {
        report_errno("QRN_ConnectTCPSocket/gethostbyname");
        return -1;
    }
    if (make_non_blocking(own.get()) < 0) return -1;

    int result = connect_to(own.get(), *address, port);
    *fd = own.get();
    if (result < 0 && errno != EINPROGRESS) {
        fprintf(stderr, "Error connecting on QRN_ASyncConnectTCPSocket %d - %s\n", errno, strerror(errno));
        return -1;
    }
    (void)own.release();
    return result < 0 ? 1 : 0;
}

int QRN_ConnectTCPSocket(const char* host, int port)
{
    Fd fd = tcp_socket();
    if (!fd) {
        report_errno("QRN_ConnectTCPSocket/socket");
        return -1;
    }
    std::optional<in_addr_t> address = look_up(host);
    if (!address) {
        report_errno("QRN_ConnectTCPSocket/gethostbyname");
        return -1;
    }
    if (connect_to(fd.get(), *address, port) < 0) {
        report_errno("QRN_ConnectTCPSocket/connect");
        return -1;
    }
    return fd.release();
}
