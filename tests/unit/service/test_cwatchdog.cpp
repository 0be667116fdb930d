// The watchdog object beside a driver that refuses; with its own driver it is tested in the camera.
#include "service/cwatchdog.h"
#include "tests/support/run.hpp"

#include <fcntl.h>

// The device itself is never opened here: it would reset the machine. A pipe takes the writes and refuses the
// requests.
TEST(Watchdog, IsFedWithAZeroByteAndDisarmedByTheMagicCharacterAndThenDoesNothing)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    CWATCHDOG watchdog = {
        CWATCHDOG_Close, CWATCHDOG_KeepAlive, CWATCHDOG_DisableWrite, CWATCHDOG_SetTimeout, ends[1], 0};
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(watchdog.SetTimeout(&watchdog, 31), 30); // in units of two seconds
                  EXPECT_EQ(watchdog.timeout, 30);
                  watchdog.KeepAlive(&watchdog);
                  watchdog.Close(&watchdog);
                  watchdog.Close(&watchdog);
                  watchdog.KeepAlive(&watchdog);
                  watchdog.DisableWrite(&watchdog);
                  EXPECT_EQ(watchdog.SetTimeout(&watchdog, 12), -1);
              }),
              "The timeout was set to 30 seconds\nset disable write watchdog : 1\nclose watchdog\n");
    EXPECT_EQ(watchdog.timeout, 12);
    EXPECT_EQ(watchdog.fd, -1);
    EXPECT_EQ(fcntl(ends[1], F_GETFD), -1);
    char bytes[16];
    EXPECT_EQ(read(ends[0], bytes, sizeof bytes), 2);
    EXPECT_EQ(std::string(bytes, 2), std::string("\0V", 2));
    close(ends[0]);
}
