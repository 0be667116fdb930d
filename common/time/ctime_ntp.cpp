// SNTP client: asks a time server and sets both clocks from its transmit timestamp.
#include "common/ctime.h"
#include "common/time/ctime_rtc.hpp"

#include "common/base/bytes.hpp"
#include "common/base/fd.hpp"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <syslog.h>

namespace {

constexpr uint32_t kUnixEpoch = 0x83AA7E80; // seconds from 1900 to 1970
constexpr uint16_t kNtpPort = 123;
constexpr int kProbes = 50;
constexpr int kLogPriority = 1;
constexpr size_t kReplyBuffer = 1500;
constexpr size_t kTransmitSeconds = 40;
constexpr size_t kTransmitFraction = 44;

// Whole hours; half-hour zones are rounded to the hour.
constexpr int8_t kZoneHours[] = {
    -11, -10, -9, -8, -7, -7, -6, -6, -5, -5, -4, -4, -4, -3, -3, -3, -2, -1, 0, //
    0,   1,   1,  1,  1,  2,  2,  2,  2,  2,  2,  3,  3,  3,  3,  4,  4,  4,  5, //
    5,   6,   6,  7,  8,  8,  8,  9,  9,  9,  9,  10, 10, 10, 10, 11, 12, 12,
};
static_assert(sizeof kZoneHours == 56 && kZoneHours[18] == 0 && kZoneHours[19] == 0 && kZoneHours[53] == 11);

using Packet = std::array<uint8_t, CTIME_NTP_PACKET_SIZE>;

Packet make_request()
{
    timeval now;
    gettimeofday(&now, nullptr);
    uint32_t us = uint32_t(now.tv_usec);
    Packet packet = {};
    packet[0] = 0x1B; // no leap warning, version 3, client
    packet[2] = 4;    // poll interval: 16 s
    packet[3] = 0xFA; // precision: 2^-6 s
    zep::store_be32(&packet[4], 0x00010000);
    zep::store_be32(&packet[8], 0x00010000);
    zep::store_be32(&packet[kTransmitSeconds], uint32_t(uint64_t(now.tv_sec)) + kUnixEpoch);
    zep::store_be32(&packet[kTransmitFraction],
                    us * 4294 + ((us * 1981) >> 11)); // 2^32 / 10^6 = 4294 + 1981 / 2^11
    return packet;
}

bool bind_any_port(int fd)
{
    sockaddr_in any = {};
    any.sin_family = AF_INET;
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(fd, reinterpret_cast<sockaddr*>(&any), sizeof any) == 0) return true;
    fprintf(stderr, "could not bind to udp port %d\n", 0);
    perror("bind");
    return false;
}

// A failed look-up is reported; the zero address is then asked, which is this host.
bool connect_server(int fd, const char* host)
{
    sockaddr_in server = {};
    server.sin_family = AF_INET;
    server.sin_port = htons(kNtpPort);
    if (const hostent* found = gethostbyname(host); !found)
        herror(host);
    else if (found->h_length != int(sizeof server.sin_addr))
        fprintf(stderr, "oops %d\n", found->h_length);
    else
        memcpy(&server.sin_addr, found->h_addr_list[0], sizeof server.sin_addr);
    if (connect(fd, reinterpret_cast<sockaddr*>(&server), sizeof server) == 0) return true;
    perror("connect");
    return false;
}

int wait_readable(int fd)
{
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval second = {1, 0};
    return select(fd + 1, &set, nullptr, nullptr, &second);
}

// Requests until a reply arrives; its length, or -1 after the last unanswered probe.
ssize_t ask(int fd, uint8_t* reply)
{
    for (int probes = 0;;) {
        int ready = wait_readable(fd);
        if (ready == EINTR) continue; // the result, not errno: kept, it is never 4 for one descriptor
        if (ready < 0) perror("select");
        if (ready > 0) {
            ssize_t length = recvfrom(fd, reply, kReplyBuffer, 0, nullptr, nullptr);
            if (length > 0 && length < ssize_t(kReplyBuffer)) return length;
            syslog(kLogPriority, "Ooops.  pack_len=%d\n", int(length));
            if (probes >= kProbes) return -1;
            continue;
        }
        if (probes >= kProbes) return -1;
        ++probes;
        Packet request = make_request();
        send(fd, request.data(), request.size(), MSG_NOSIGNAL);
    }
}

// Microseconds of a fraction in 2^-32 s: fraction * 10^6 / 2^32. As 10^6 is 2^20 - 759 * 2^6, that is
// fraction / 2^12 less 759 * fraction / 2^26, the second division in two steps and rounded by half of 2^16.
constexpr uint32_t microseconds_of(uint32_t fraction)
{
    static_assert((1 << 20) - 759 * (1 << 6) == 1'000'000);
    constexpr uint32_t kHalf = 32768;
    return (fraction >> 12) - 759 * (((fraction >> 10) + kHalf) >> 16);
}
static_assert(microseconds_of(0x80000000) == 500'000 && microseconds_of(UINT32_MAX) == 999'999);

} // namespace

int32_t setTime(const uint8_t* reply, int32_t dst, int32_t zone)
{
    bool known = zone >= 0 && zone < int32_t(sizeof kZoneHours);
    const uint32_t us = microseconds_of(zep::load_be32(reply + kTransmitFraction));
    // Modulo 2^32: right across the end of the era in 2036.
    uint32_t seconds = zep::load_be32(reply + kTransmitSeconds) - kUnixEpoch;
    seconds += uint32_t(3600 * (known ? kZoneHours[zone] : 0));
    if (dst) seconds += 3600;
    timeval clock = {};
    clock.tv_sec = time_t(seconds);
    clock.tv_usec = suseconds_t(us);
    if (settimeofday(&clock, nullptr) < 0) {
        perror("settimeofday");
        return -1;
    }
    tm now = {};
    localtime_r(&clock.tv_sec, &now);
    return zep::write_rtc(__func__, {now.tm_year + 1900, now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min,
                                     now.tm_sec, now.tm_wday});
}

int32_t CTIME_NTPSync(const char* host, int32_t dst, int32_t zone)
{
    if (!host) return -1;
    zep::Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP));
    if (!fd || fd.get() >= FD_SETSIZE) {
        syslog(kLogPriority, "socket");
        return -1;
    }
    if (!bind_any_port(fd.get())) return -1;
    listen(fd.get(), 3); // refused on a datagram socket; the result does not matter
    if (!connect_server(fd.get(), host)) return -1;

    uint8_t reply[kReplyBuffer] = {};
    ssize_t length = ask(fd.get(), reply);
    // Too short for a timestamp: applying it would set the clock from nothing.
    if (length < CTIME_NTP_PACKET_SIZE) return -1;
    return setTime(reply, dst, zone);
}
