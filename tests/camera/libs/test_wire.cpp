// What goes to the system manager's port, and the watchdog's driver.
#include "common/csysmgr.h"
#include "common/base/fd.hpp"
#include "common/qrn_udp.h"
#include "service/cwatchdog.h"
#include "tests/camera/libs/inside.hpp"

#include <arpa/inet.h>
#include <cstdint>

TEST(Sysmgr, PacketsArriveAtItsPortByteForByte)
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
}

TEST(Sysmgr, AFailingSendIsToldButNoFailure)
{
    // The loopback interface of a fresh network is down.
    isolated(CLONE_NEWNET, [] {
        EXPECT_EQ(printed([] { EXPECT_EQ(CSYSMGR_SendPacket(1, nullptr, 0), 0); }),
                  "[CSYSMGR_SendPacket] : error while send message : Network is unreachable\n");
    });
}

TEST(Watchdog, OpensForThirtySecondsInTheDriversUnitsAndClosesDisarmed)
{
    CWATCHDOG watchdog;
    EXPECT_EQ(printed([&] { CWATCHDOG_Open(&watchdog); }), "The timeout was set to 30 seconds\n");
    EXPECT_GE(watchdog.fd, 0);
    EXPECT_EQ(watchdog.timeout, 30);
    EXPECT_EQ(printed([&] { EXPECT_EQ(watchdog.SetTimeout(&watchdog, 41), 40); }),
              "The timeout was set to 40 seconds\n");
    watchdog.KeepAlive(&watchdog);
    EXPECT_EQ(printed([&] { watchdog.Close(&watchdog); }),
              "set disable write watchdog : 1\nclose watchdog\n");
}

TEST(WatchdogMissing, StaysClosed)
{
    CWATCHDOG watchdog;
    EXPECT_EQ(printed([&] { CWATCHDOG_Open(&watchdog); }), "watchdog open error !\n");
    EXPECT_EQ(watchdog.fd, -1);
    EXPECT_EQ(watchdog.SetTimeout(&watchdog, 30), -1);
}
