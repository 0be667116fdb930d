// Network time and the real-time clock: a server of another project, and one that misbehaves.
#include "common/ctime.h"
#include "common/ds1339_uapi.h"
#include "common/base/fd.hpp"
#include "tests/camera/libs/inside.hpp"

#include <arpa/inet.h>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <vector>

namespace {

constexpr uint32_t kEpoch = 0x83AA7E80;

void set_clock(int64_t seconds)
{
    timeval value = {};
    value.tv_sec = time_t(seconds);
    ASSERT_EQ(settimeofday(&value, nullptr), 0);
}

// The host's own clock, past the camera's.
int64_t host_seconds()
{
    struct {
        long seconds, nanoseconds;
    } now;
    syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
    return now.seconds;
}

// What the RTC holds, as seconds since 1970.
int64_t rtc_seconds()
{
    CTIME_TIME_S t;
    EXPECT_EQ(CTIME_GetRTC(&t), 0);
    tm parts = {};
    parts.tm_year = t.year - 1900;
    parts.tm_mon = t.month - 1;
    parts.tm_mday = t.day;
    parts.tm_hour = t.hour;
    parts.tm_min = t.minute;
    parts.tm_sec = t.second;
    return timegm(&parts);
}

int rtc_weekday()
{
    zep::Fd fd(open(DS1339_DEVICE, O_RDWR));
    DS1339_TIME_S time = {};
    EXPECT_EQ(ioctl(fd.get(), DS1339_READ, &time), 0);
    return time.weekday;
}

zep::Fd server_socket()
{
    zep::Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in any = {};
    any.sin_family = AF_INET;
    any.sin_port = htons(123);
    EXPECT_EQ(bind(fd.get(), reinterpret_cast<sockaddr*>(&any), sizeof any), 0);
    return fd;
}

using Bytes = std::vector<uint8_t>;

Bytes reply(uint32_t seconds, uint32_t fraction = 0, size_t size = CTIME_NTP_PACKET_SIZE)
{
    Bytes packet(size, 0xA5); // no field but the time is looked at
    for (int i = 0; i < 4; ++i) {
        packet[size_t(40 + i)] = uint8_t(seconds >> (24 - 8 * i));
        packet[size_t(44 + i)] = uint8_t(fraction >> (24 - 8 * i));
    }
    return packet;
}

// A child that answers each request with the next of these datagrams, and tells the requests through a
// pipe. It ends with the object.
class Server {
public:
    explicit Server(const std::vector<Bytes>& replies)
    {
        zep::Fd fd = server_socket();
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        requests_.reset(ends[0]);
        zep::Fd tell(ends[1]);
        child_ = fork();
        if (child_ == 0) serve(fd.get(), tell.get(), replies);
    }
    ~Server()
    {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    // The next request: its length, then its bytes.
    Bytes request() const
    {
        uint8_t length = 0;
        EXPECT_EQ(read(requests_.get(), &length, 1), 1);
        Bytes bytes(length);
        EXPECT_EQ(read(requests_.get(), bytes.data(), length), length);
        return bytes;
    }

private:
    [[noreturn]] static void serve(int fd, int tell, const std::vector<Bytes>& replies)
    {
        uint8_t request[200];
        for (size_t i = 0;; ++i) {
            sockaddr_in from = {};
            socklen_t size = sizeof from;
            auto* address = reinterpret_cast<sockaddr*>(&from);
            const ssize_t n = recvfrom(fd, request + 1, sizeof request - 1, 0, address, &size);
            request[0] = uint8_t(n);
            if (n < 0 || write(tell, request, size_t(n + 1)) < 0) _exit(1);
            if (i < replies.size()) sendto(fd, replies[i].data(), replies[i].size(), 0, address, size);
        }
    }
    zep::Fd requests_;
    pid_t child_ = -1;
};

// Runs chronyd, which serves the host's time, until the end of the object.
class Chrony {
public:
    Chrony()
    {
        write_file("/tmp/chrony.conf",
                   "local stratum 1\nallow 127.0.0.1\ncmdport 0\npidfile /tmp/chrony.pid\n"
                   "bindcmdaddress /\n");
        child_ = fork();
        if (child_ != 0) return;
        unsetenv("LD_PRELOAD");
        execl("/run/bin/chronyd", "chronyd", "-d", "-x", "-u", "root", "-f", "/tmp/chrony.conf", nullptr);
        _exit(127);
    }
    ~Chrony()
    {
        kill(child_, SIGTERM);
        waitpid(child_, nullptr, 0);
    }
    Chrony(const Chrony&) = delete;
    Chrony& operator=(const Chrony&) = delete;
    // Asks until it answers; the host's time decides how long that may take.
    [[nodiscard]] bool up() const
    {
        zep::Fd fd(socket(AF_INET, SOCK_DGRAM, 0));
        sockaddr_in to = {};
        to.sin_family = AF_INET;
        to.sin_port = htons(123);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(fd.get(), reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
        const timeval limit = {0, 100'000}; // of the kernel: real time
        setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        const int64_t start = host_seconds();
        while (host_seconds() - start < 30 && waitpid(child_, nullptr, WNOHANG) == 0) {
            uint8_t packet[48] = {0x1B};
            send(fd.get(), packet, sizeof packet, 0);
            if (recv(fd.get(), packet, sizeof packet, 0) == 48) return true;
            timespec pause = {0, 20'000'000};
            syscall(SYS_nanosleep, &pause, nullptr);
        }
        return false;
    }

private:
    pid_t child_ = -1;
};

} // namespace

TEST(Ntp, TheTimeOfAnIndependentServerReachesBothClocks)
{
    Chrony server;
    ASSERT_TRUE(server.up());
    const struct {
        int dst, zone;
        int64_t ahead;
    } kCases[] = {{0, 18, 0}, {1, 18, 3600}, {0, 0, -11 * 3600}, {1, 55, 13 * 3600}, {0, 56, 0}, {0, -1, 0}};
    for (const auto& c : kCases) {
        set_clock(1'330'000'000);
        ASSERT_EQ(CTIME_NTPSync("127.0.0.1", c.dst, c.zone), 0);
        const int64_t wanted = host_seconds() + c.ahead;
        EXPECT_NEAR(double(time(nullptr)), double(wanted), 2.0);
        EXPECT_NEAR(double(rtc_seconds()), double(wanted), 2.0);
    }
    EXPECT_EQ(CTIME_NTPSync("localhost", 0, 18), 0);
}

TEST(Ntp, TheRequestIsTheDocumentedPacketAboutASecondAfterTheCall)
{
    Server server({reply(kEpoch + 1'300'000'000u)});
    set_clock(1'330'000'000);
    EXPECT_EQ(CTIME_NTPSync("127.0.0.1", 0, 18), 0);
    const Bytes sent = server.request();
    ASSERT_EQ(sent.size(), 48u);
    const Bytes head = {0x1B, 0, 4, 0xFA, 0, 1, 0, 0, 0, 1, 0, 0};
    EXPECT_EQ(Bytes(sent.begin(), sent.begin() + 12), head);
    EXPECT_EQ(Bytes(sent.begin() + 12, sent.begin() + 40), Bytes(28, 0));
    const uint32_t stamp =
        uint32_t(sent[40]) << 24 | uint32_t(sent[41]) << 16 | uint32_t(sent[42]) << 8 | sent[43];
    EXPECT_EQ(stamp, 1'330'000'001 + kEpoch);
}

// Empty, as large as the buffer, larger: each is passed over and asked again a second later.
TEST(Ntp, WhatIsNoReplyDoesNotEndTheWait)
{
    Server server({{}, reply(1, 0, 1500), reply(2, 0, 2000), reply(kEpoch + 1'300'000'000u, 0, 1499)});
    set_clock(1'330'000'000);
    EXPECT_EQ(CTIME_NTPSync("127.0.0.1", 0, 18), 0);
    EXPECT_NEAR(double(time(nullptr)), 1.3e9, 2);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(server.request().size(), 48u) << i;
}

// A time out of a datagram that holds none would set the clock from nothing.
TEST(Ntp, ATruncatedReplyFailsAndLeavesBothClocks)
{
    for (size_t size : {size_t(1), size_t(40), size_t(47)}) {
        Bytes cut = reply(kEpoch + 1'300'000'000u);
        cut.resize(size);
        Server server({cut});
        set_clock(1'330'000'000);
        const int64_t rtc = rtc_seconds();
        EXPECT_EQ(CTIME_NTPSync("127.0.0.1", 0, 18), -1) << size;
        EXPECT_NEAR(double(time(nullptr)), 1.33e9, 5);
        EXPECT_NEAR(double(rtc_seconds()), double(rtc), 5);
    }
}

TEST(Ntp, GivesUpAfterFiftyRequestsWhetherSilentOrRefused)
{
    for (bool silent : {true, false}) {
        zep::Fd fd = server_socket();
        if (!silent) fd.reset(); // the kernel refuses in its place
        set_clock(1'330'000'000);
        EXPECT_EQ(CTIME_NTPSync("127.0.0.1", 0, 18), -1);
        EXPECT_NEAR(double(time(nullptr)), 1'330'000'051.0, 3);
        int requests = 0;
        uint8_t packet[64];
        while (silent && recv(fd.get(), packet, sizeof packet, MSG_DONTWAIT) == 48) ++requests;
        EXPECT_EQ(requests, silent ? 50 : 0);
    }
}

// The zero address is this host.
TEST(Ntp, AHostThatIsNotFoundIsReportedAndThisOneAsked)
{
    Server server({reply(kEpoch + 1'300'000'000u)});
    testing::internal::CaptureStderr();
    EXPECT_EQ(CTIME_NTPSync("no.such.host.invalid", 0, 18), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr().rfind("no.such.host.invalid: ", 0), 0u);
    EXPECT_EQ(CTIME_NTPSync(nullptr, 0, 18), -1);
}

// The era of the 32-bit seconds ends on 7 February 2036; a device's clock ends two years later.
TEST(SetTime, IsRightBeyondTheEndOfTheEra)
{
    EXPECT_EQ(setTime(reply(0xFFFFFFFF, 0xFFFFFFFF).data(), 0, 18), 0);
    EXPECT_NEAR(double(rtc_seconds()), 2'085'978'495.0, 1);
    EXPECT_EQ(setTime(reply(5, 0x80000000).data(), 0, 18), 0);
    EXPECT_NEAR(double(time(nullptr)), 2'085'978'501.0, 1);
    EXPECT_NEAR(double(rtc_seconds()), 2'085'978'501.0, 1);
    EXPECT_EQ(rtc_weekday(), 4);
    EXPECT_EQ(setTime(reply(50'000'000, 0x00100000).data(), 1, 0), 0);
    EXPECT_NEAR(double(rtc_seconds()), 2'135'978'496.0 - 36'000, 1);
}

TEST(SetTime, EveryZoneHasItsWholeHours)
{
    const std::vector<std::pair<int, int>> kRuns = {// hours, how many indices in a row
                                                    {-11, 1}, {-10, 1}, {-9, 1}, {-8, 1}, {-7, 2}, {-6, 2},
                                                    {-5, 2},  {-4, 3},  {-3, 3}, {-2, 1}, {-1, 1}, {0, 2},
                                                    {1, 4},   {2, 6},   {3, 4},  {4, 3},  {5, 2},  {6, 2},
                                                    {7, 1},   {8, 3},   {9, 4},  {10, 4}, {11, 1}, {12, 2}};
    int zone = 0;
    for (const auto& [hours, count] : kRuns)
        for (int i = 0; i < count; ++i, ++zone) {
            ASSERT_EQ(setTime(reply(kEpoch + 1'300'000'000u).data(), 0, zone), 0);
            EXPECT_NEAR(double(time(nullptr)), 1.3e9 + 3600.0 * hours, 1) << zone;
        }
    EXPECT_EQ(zone, 56);
}
