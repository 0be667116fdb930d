// Unix-domain stream sockets.
#include "common/qrn_uds.h"
#include "common/net/qrn_uds.hpp"
#include "common/base/fd.hpp"
#include "common/base/report.hpp"

#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

namespace {

using namespace zep;

constexpr int kBacklog = 10;

// Passed to the kernel at its full length, whatever the path's.
struct UnixAddress {
    sockaddr_un record;

    // False with errno for a path that does not fit.
    bool set(const char* path)
    {
        record = {};
        record.sun_family = AF_UNIX;
        if (strlen(path) >= sizeof record.sun_path) {
            errno = ENAMETOOLONG;
            return false;
        }
        strcpy(record.sun_path, path);
        return true;
    }
    [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&record); }
};
static_assert(sizeof(sockaddr_un) == 110);

Fd unix_socket() { return Fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

int bind_failed()
{
    int saved = errno;
    printf("[QRN_BindUDSSocket] while bind tcp socket : %s\n", strerror(saved));
    errno = saved;
    return -1;
}

} // namespace

int QRN_ConnectUDSSocket(const char* path) { return zep::connect_unix(path, 0); }

int zep::connect_unix(const char* path, int limit_s)
{
    UnixAddress address;
    Fd fd = unix_socket();
    const timeval limit = {.tv_sec = limit_s, .tv_usec = 0}; // all zero: none
    if (fd) setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (!fd || !address.set(path) || connect(fd.get(), address.get(), sizeof address.record) < 0) {
        if (errno == EAGAIN) errno = ETIMEDOUT;
        report_errno("QRN_ConnectUDSSocket");
        return -1;
    }
    return fd.release();
}

int QRN_BindUDSSocket(const char* path)
{
    UnixAddress address;
    // Before the removal: what stands at a path that cannot be used is not ours to remove.
    if (!address.set(path)) return bind_failed();
    if (access(path, F_OK) == 0) unlink(path);
    Fd fd = unix_socket();
    if (!fd) {
        puts("[QRN_BindUDSSocket] error while get socket for middle connection.");
        return -1;
    }
    int on = 1;
    if (setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) < 0) {
        puts("[QRN_BindUDSSocket] setsockopt error !");
        return -1;
    }
    if (bind(fd.get(), address.get(), sizeof address.record) < 0) return bind_failed();
    if (listen(fd.get(), kBacklog) < 0) {
        puts("[QRN_BindUDSSocket] error while listen");
        return -1;
    }
    return fd.release();
}
