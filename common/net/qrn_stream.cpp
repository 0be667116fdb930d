// Whole-message transfer over stream sockets.
#include "common/qrn_tcp.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace {

constexpr int kTimeUp = -1;
constexpr int kClosed = -2;
constexpr int kBadDescriptor = -3;
constexpr int kBadBuffer = -4;

class Deadline {
public:
    explicit Deadline(int limit_s) : second_(limit_s ? int64_t(now().tv_sec) + limit_s : 0) {}

    [[nodiscard]] bool passed() const { return second_ && now().tv_sec > second_; }

    // Milliseconds until passed() becomes true; at most one second a time, as the clock may be set meanwhile.
    [[nodiscard]] int wait_ms() const
    {
        if (!second_) return -1;
        struct timeval t = now();
        int64_t left = (second_ + 1 - t.tv_sec) * 1000 - t.tv_usec / 1000;
        return int(std::clamp<int64_t>(left, 1, 1000));
    }

private:
    static struct timeval now()
    {
        struct timeval t;
        gettimeofday(&t, nullptr);
        return t;
    }

    int64_t second_;
};

// Negative result of the argument check, or 0.
int refused(int fd, const void* buffer, int length)
{
    if (!buffer || length == 0) return kBadBuffer;
    if (fd < 0) return kBadDescriptor;
    return length < 0 ? length : 0;
}

// After a transfer without result: waits when the socket is full or empty; false on a hard error.
bool try_again(int fd, short event, const Deadline& deadline)
{
    if (errno == EINTR) return true;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
    struct pollfd ready = {fd, event, 0};
    poll(&ready, 1, deadline.wait_ms());
    return true;
}

} // namespace

int QRN_SendTCPStream(int fd, const void* buffer, int length, int limit_s)
{
    if (int refusal = refused(fd, buffer, length)) return refusal;
    const Deadline deadline(limit_s);
    for (int done = 0;;) {
        ssize_t out = send(fd, static_cast<const char*>(buffer) + done, size_t(length - done), MSG_NOSIGNAL);
        if (out == 0) return kClosed;
        if (out < 0 && !try_again(fd, POLLOUT, deadline)) {
            printf("[QRN_SendTCPStream/send] Error Number : %d, Error String %s\n", errno, strerror(errno));
            return kClosed;
        }
        if (out > 0) done += int(out);
        if (done == length) return length;
        if (deadline.passed()) return kTimeUp;
    }
}

int QRN_RecvTCPStream(int fd, void* buffer, int length, int limit_s)
{
    if (int refusal = refused(fd, buffer, length)) return refusal;
    const Deadline deadline(limit_s);
    for (int done = 0;;) {
        ssize_t got = recv(fd, static_cast<char*>(buffer) + done, size_t(length - done), 0);
        if (got == 0) return kClosed;
        if (got < 0 && !try_again(fd, POLLIN, deadline)) return kClosed;
        if (got > 0) done += int(got);
        if (done == length) return length;
        if (deadline.passed()) return kTimeUp;
    }
}
