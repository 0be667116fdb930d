// Network time and the real-time clock: a server of another project, and one that misbehaves.
#include "common/ctime.h"
#include "common/net/inet_address.hpp"
#include "common/base/bytes.hpp"
#include "common/base/fd.hpp"
#include "tests/camera/libs/inside.hpp"

#include <csignal>
#include <ctime>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>

namespace {

constexpr uint32_t kEpoch = 0x83AA7E80;
constexpr uint32_t kThen = kEpoch + 1'300'000'000u;
const char kHost[] = "127.0.0.1";

void set_clock(int64_t seconds)
{
    timeval value = {};
    value.tv_sec = time_t(seconds);
    ASSERT_EQ(settimeofday(&value, nullptr), 0);
}

// Date, time and weekday as they were written last.
string rtc() { return read_file("/run/vcam/rtc").substr(0, 21); }

// Both clocks stand at a time, up to the seconds that the test takes.
void expect_clocks(int64_t wanted)
{
    EXPECT_NEAR(double(time(nullptr)), double(wanted), 5);
    tm parts = {};
    strptime(rtc().c_str(), "%Y-%m-%d %H:%M:%S", &parts);
    EXPECT_NEAR(double(timegm(&parts)), double(wanted), 5);
}

using Bytes = std::vector<uint8_t>;

Bytes reply(uint32_t seconds, uint32_t fraction = 0, size_t size = CTIME_NTP_PACKET_SIZE)
{
    Bytes packet(std::max<size_t>(size, 48), 0xA5); // no field but the time is looked at
    zep::store_be32(&packet[40], seconds);
    zep::store_be32(&packet[44], fraction);
    packet.resize(size);
    return packet;
}

// Answers each request with the next of these datagrams and keeps the requests. Four bytes end it.
class Server {
public:
    explicit Server(const std::vector<Bytes>& replies)
    {
        EXPECT_EQ(bind(fd_.get(), zep::as_sockaddr(address_), sizeof address_), 0);
        thread_ = std::thread([this, replies] {
            for (;;) {
                Bytes request(200);
                sockaddr from = {};
                socklen_t size = sizeof from;
                request.resize(size_t(recvfrom(fd_.get(), request.data(), request.size(), 0, &from, &size)));
                if (request.size() == 4) return;
                requests_.push_back(request);
                if (requests_.size() > replies.size()) continue;
                const Bytes& answer = replies[requests_.size() - 1];
                sendto(fd_.get(), answer.data(), answer.size(), 0, &from, size);
            }
        });
    }
    ~Server() { requests(); }
    const std::vector<Bytes>& requests()
    {
        if (thread_.joinable()) {
            sendto(fd_.get(), "quit", 4, 0, zep::as_sockaddr(address_), sizeof address_);
            thread_.join();
            fd_.reset(); // what is asked from here on is refused
        }
        return requests_;
    }

private:
    sockaddr_in address_ = zep::loopback_address(123);
    zep::Fd fd_{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    std::vector<Bytes> requests_;
    std::thread thread_;
};

} // namespace

// chronyd serves the host's time, which is its own and its children's without the preload library.
TEST(Ntp, TheTimeOfAnIndependentServerReachesBothClocks)
{
    write_file("/tmp/chrony.conf", "local stratum 1\nallow 127.0.0.1\ncmdport 0\npidfile /tmp/chrony.pid\n"
                                   "bindcmdaddress /\n");
    const pid_t server = fork();
    if (server == 0) {
        unsetenv("LD_PRELOAD");
        execl("/run/bin/chronyd", "chronyd", "-d", "-x", "-u", "root", "-f", "/tmp/chrony.conf", nullptr);
        _exit(127);
    }
    while (CTIME_NTPSync(kHost, 0, 18) != 0 && waitpid(server, nullptr, WNOHANG) == 0) {
    }
    const struct {
        int dst, zone;
        int64_t ahead;
    } cases[] = {{0, 18, 0}, {1, 18, 3600}, {0, 0, -11 * 3600}, {1, 55, 13 * 3600}, {0, 56, 0}, {0, -1, 0}};
    for (const auto& c : cases) {
        set_clock(1'330'000'000);
        ASSERT_EQ(CTIME_NTPSync("localhost", c.dst, c.zone), 0);
        expect_clocks(std::stoll(say("unset LD_PRELOAD; date +%s").text) + c.ahead);
    }
    kill(server, SIGTERM);
    waitpid(server, nullptr, 0);
}

TEST(Ntp, TheRequestIsTheDocumentedPacketAboutASecondAfterTheCall)
{
    Server server({reply(kThen)});
    set_clock(1'330'000'000);
    EXPECT_EQ(CTIME_NTPSync(kHost, 0, 18), 0);
    ASSERT_EQ(server.requests().size(), 1u);
    const Bytes& sent = server.requests()[0];
    ASSERT_EQ(sent.size(), 48u);
    Bytes expected = {0x1B, 0, 4, 0xFA, 0, 1, 0, 0, 0, 1, 0, 0};
    expected.resize(40);
    EXPECT_EQ(Bytes(sent.begin(), sent.begin() + 40), expected);
    EXPECT_EQ(zep::load_be32(&sent[40]), 1'330'000'001 + kEpoch);
}

// Empty, as large as the buffer, larger: each is passed over and asked again a second later. A host that is not found
// is reported; the zero address, which is asked then, is this host.
TEST(Ntp, WhatIsNoReplyDoesNotEndTheWait)
{
    Server server({{}, reply(1, 0, 1500), reply(2, 0, 2000), reply(kThen, 0, 1499)});
    testing::internal::CaptureStderr();
    EXPECT_EQ(CTIME_NTPSync("no.such.host.invalid", 0, 18), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr().rfind("no.such.host.invalid: ", 0), 0u);
    expect_clocks(1'300'000'000);
    EXPECT_EQ(server.requests().size(), 4u);
    EXPECT_EQ(CTIME_NTPSync(nullptr, 0, 18), -1);
}

// A time out of a datagram that holds none would set the clock from nothing. Silent or refused: fifty requests.
TEST(Ntp, WithoutAWholeReplyBothClocksStay)
{
    ASSERT_EQ(CTIME_SetRTC(0, 0, 0, 1, 1, 2010), 0);
    const string before = rtc();
    for (size_t size : {1, 40, 47}) {
        Server server({reply(kThen, 0, size)});
        set_clock(1'330'000'000);
        EXPECT_EQ(CTIME_NTPSync(kHost, 0, 18), -1) << size;
        EXPECT_NEAR(double(time(nullptr)), 1.33e9, 5);
    }
    Server server({});
    for (bool silent : {true, false}) {
        set_clock(1'330'000'000);
        EXPECT_EQ(CTIME_NTPSync(kHost, 0, 18), -1);
        EXPECT_NEAR(double(time(nullptr)), 1'330'000'051.0, 3);
        EXPECT_EQ(server.requests().size(), 50u) << silent; // ends it
    }
    EXPECT_EQ(rtc(), before);
}

// The era of the 32-bit seconds ends on 7 February 2036; a device's clock ends two years later.
TEST(SetTime, IsRightBeyondTheEndOfTheEra)
{
    EXPECT_EQ(setTime(reply(0xFFFFFFFF, 0xFFFFFFFF).data(), 0, 18), 0);
    expect_clocks(2'085'978'495);
    EXPECT_EQ(setTime(reply(5, 0x80000000).data(), 0, 18), 0);
    EXPECT_EQ(rtc(), "2036-02-07 06:28:21 4");
    EXPECT_EQ(setTime(reply(50'000'000, 0x00100000).data(), 1, 0), 0);
    expect_clocks(2'135'978'496 - 36'000);
}

TEST(SetTime, EveryZoneHasItsWholeHours)
{
    const int hours[] = {-11, -10, -9, -8, -7, -7, -6, -6, -5, -5, -4, -4, -4, -3, -3, -3, -2, -1, 0,
                         0,   1,   1,  1,  1,  2,  2,  2,  2,  2,  2,  3,  3,  3,  3,  4,  4,  4,  5,
                         5,   6,   6,  7,  8,  8,  8,  9,  9,  9,  9,  10, 10, 10, 10, 11, 12, 12};
    for (int zone = 0; zone < 56; ++zone) {
        ASSERT_EQ(setTime(reply(kThen).data(), 0, zone), 0);
        EXPECT_NEAR(double(time(nullptr)), 1.3e9 + 3600.0 * hours[zone], 1) << zone;
    }
}

TEST(Rtc, SettingSetsBothClocksAndReadingGivesTheFieldsInTheOtherOrder)
{
    ASSERT_EQ(CTIME_SetRTC(58, 59, 23, 28, 2, 2012), 0);
    EXPECT_EQ(rtc(), "2012-02-28 23:59:58 0"); // Tuesday, but the weekday is not computed
    EXPECT_EQ(time(nullptr), 1330473598);
    timespec pause = {2, 500'000'000};
    nanosleep(&pause, nullptr);
    CTIME_TIME_S now = {};
    ASSERT_EQ(CTIME_GetRTC(&now), 0);
    EXPECT_EQ(now.year * 10000 + now.month * 100 + now.day, 20120229);
    EXPECT_EQ(now.hour + now.minute + now.second, 0);
    EXPECT_EQ(CTIME_GetRTC(nullptr), -1);
}

TEST(Rtc, FailuresAreToldAndTheSystemClockStaysSet)
{
    auto faults = [](const string& plan) { write_file("/run/vcam/faults", plan); };
    CTIME_TIME_S now = {1, 1, 1, 1, 1, 1};
    faults("ds1339 open 0 -1 ENOENT\n");
    EXPECT_EQ(
        printed([&] {
            EXPECT_EQ(CTIME_SetRTC(1, 2, 3, 4, 5, 2013), -1);
            EXPECT_EQ(time(nullptr), 1367636521); // 2013-05-04 03:02:01
            EXPECT_EQ(setTime(reply(0).data(), 0, 18), -1);
            EXPECT_EQ(CTIME_GetRTC(&now), -1);
        }),
        "[CTIME_SetRTC] error, reason(open '/dev/ds1339')\n[setTime] error, reason(open '/dev/ds1339')\n"
        "[CTIME_GetRTC] error, reason(open '/dev/ds1339')\n");
    faults("ds1339 read 0 -1 EIO\nds1339 write 0 -1 EIO\n");
    EXPECT_EQ(printed([&] { EXPECT_EQ(CTIME_GetRTC(&now), -1); }), "");
    EXPECT_EQ(now.year + now.month + now.day + now.hour + now.minute + now.second, 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(printed([] { EXPECT_EQ(CTIME_SetRTC(1, 2, 3, 4, 5, 2014), -1); }),
              "Error writing new time -1\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "hardwaretest : ioctl RTC_SET_TIME: Input/output error\n");
    faults("");
}
