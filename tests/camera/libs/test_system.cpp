// What needs a fixed port, a driver, a clock that can be set or a system without room: the system manager's packets, the
// watchdog, the configuration daemon's client and shared memory.
#include "common/cconfd.h"
#include "common/cmmap.h"
#include "common/csysmgr.h"
#include "common/base/fd.hpp"
#include "common/qrn_udp.h"
#include "common/qrn_uds.h"
#include "service/cwatchdog.h"
#include "tests/camera/libs/inside.hpp"

#include <arpa/inet.h>
#include <cerrno>
#include <sys/sem.h>
#include <sys/time.h>
#include <thread>

TEST(Sysmgr, PacketsArriveAtItsPortByteForByteAndAFailingSendIsToldButNoFailure)
{
    zep::Fd manager(QRN_OpenLocalUDPSSocket(CSYSMGR_PORT));
    ASSERT_TRUE(bool(manager));
    char data[CSYSMGR_DATA_SIZE];
    for (int i = 0; i < CSYSMGR_DATA_SIZE; ++i) data[i] = char(i);
    char wire[512];
    struct sockaddr_in sender = {};
    EXPECT_EQ(CSYSMGR_SendPacket(0x52475055, nullptr, 0), 0);
    EXPECT_EQ(QRN_RecvUDPTimeout(manager.get(), wire, sizeof wire, &sender, 5, 0), 12);
    EXPECT_EQ(string(wire, 12), string("SYSP\0\0\0\0UPGR", 12));
    EXPECT_EQ(sender.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(CSYSMGR_SendPacket(0x01020304, data, sizeof data), 0);
    EXPECT_EQ(QRN_RecvUDPTimeout(manager.get(), wire, sizeof wire, nullptr, 5, 0), 268);
    EXPECT_EQ(string(wire, 268), string("SYSP\0\0\0\0\4\3\2\1", 12) + string(data, sizeof data));
    // The loopback interface of a fresh network is down.
    isolated(CLONE_NEWNET, [] {
        EXPECT_EQ(printed([] { EXPECT_EQ(CSYSMGR_SendPacket(1, nullptr, 0), 0); }),
                  "[CSYSMGR_SendPacket] : error while send message : Network is unreachable\n");
    });
}

TEST(Watchdog, OpensForThirtySecondsInTheDriversUnitsAndClosesDisarmed)
{
    CWATCHDOG watchdog;
    EXPECT_EQ(printed([&] {
                  CWATCHDOG_Open(&watchdog);
                  EXPECT_EQ(watchdog.timeout, 30);
                  EXPECT_EQ(watchdog.SetTimeout(&watchdog, 41), 40);
                  watchdog.KeepAlive(&watchdog);
                  watchdog.Close(&watchdog);
              }),
              "The timeout was set to 30 seconds\nThe timeout was set to 40 seconds\n"
              "set disable write watchdog : 1\nclose watchdog\n");
}

TEST(WatchdogMissing, StaysClosed)
{
    CWATCHDOG watchdog;
    EXPECT_EQ(printed([&] { CWATCHDOG_Open(&watchdog); }), "watchdog open error !\n");
    EXPECT_EQ(watchdog.fd, -1);
    EXPECT_EQ(watchdog.SetTimeout(&watchdog, 30), -1);
}

// As a time server does while the daemon is silent: a wait by the clock would then last an hour.
TEST(Confd, AClockThatIsSetBackDoesNotLengthenTheWait)
{
    const int listener = QRN_BindUDSSocket("/tmp/confd.sock");
    CCONFD_CLIENT_S client;
    ASSERT_EQ(CCONFD_Init(&client, "/tmp/confd.sock"), 0);
    timeval now;
    gettimeofday(&now, nullptr);
    const timeval earlier = {now.tv_sec - 3600, 0};
    std::thread setter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        EXPECT_EQ(settimeofday(&earlier, nullptr), 0);
    });
    char value[8];
    EXPECT_EQ(CCONFD_Get(&client, "k", value, sizeof value), CCONFD_NO_ANSWER);
    EXPECT_EQ(errno, ETIMEDOUT);
    setter.join();
    gettimeofday(&now, nullptr);
    EXPECT_LT(now.tv_sec, earlier.tv_sec + 600);
    CCONFD_Close(&client);
    close(listener);
}

TEST(SharedMemory, WithoutASemaphoreTheRegionWorksAndWithoutRoomItIsRefused)
{
    isolated(CLONE_NEWNS | CLONE_NEWIPC, [] {
        while (semget(IPC_PRIVATE, 1, 0600) >= 0) { // all that the system allows; they go with the namespace
        }
        mkdir("/tmp/small", 0700);
        ASSERT_EQ(mount("small", "/tmp/small", "tmpfs", 0, "size=8k"), 0);
        CMMAP_S region, refused;
        EXPECT_EQ(printed([&] {
                      EXPECT_EQ(CMMAP_Init(&region, "/tmp/region", 77, CMMAP_CREATE, 8), 0);
                      EXPECT_EQ(region.Write(&region, "eight..", 8), 0);
                      EXPECT_EQ(CMMAP_Init(&refused, "/tmp/small/region", 77, CMMAP_CREATE, 16384), -1);
                  }),
                  "[CMMAP_InitLock] error, reason(No space left on device,-1,0)\n"
                  "[CMMAP_SemLock] error semop, reason(Invalid argument, -1)\n"
                  "[CMMAP_SemUnlock] error semop, reason(Invalid argument, -1)\n"
                  "[CMMAP_InitLock] error, reason(No space left on device,-1,0)\n"
                  "[CMMAP_Init] error mmap, reason(No such device or address)\n");
        EXPECT_EQ(region.owner, 0);
        EXPECT_EQ(region.Deinit(&region) + refused.Deinit(&refused), 0);
        EXPECT_EQ(read_file("/tmp/region"), string("eight..\0", 8));
    });
}
