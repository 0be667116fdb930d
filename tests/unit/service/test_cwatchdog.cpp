// The watchdog object: units of its time-out, feeding and disarming.
#include "service/cwatchdog.h"
#include "tests/support/run.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

// The device itself is never opened here: it would reset the machine. A pipe takes the writes and refuses the
// requests, as a driver without them does.
struct Watchdog : testing::Test {
    int ends[2] = {-1, -1};
    CWATCHDOG watchdog = {
        CWATCHDOG_Close, CWATCHDOG_KeepAlive, CWATCHDOG_DisableWrite, CWATCHDOG_SetTimeout, -1, 0};

    void SetUp() override
    {
        ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
        watchdog.fd = ends[1];
    }
    void TearDown() override
    {
        close(ends[0]);
        if (watchdog.fd >= 0) close(watchdog.fd);
    }
    std::string written() const
    {
        char bytes[16];
        ssize_t got = read(ends[0], bytes, sizeof bytes);
        return {bytes, size_t(got > 0 ? got : 0)};
    }
};

} // namespace

TEST_F(Watchdog, TimeoutsAreCountedInUnitsOfTwoSeconds)
{
    EXPECT_EQ(printed([&] { EXPECT_EQ(watchdog.SetTimeout(&watchdog, 31), 30); }),
              "The timeout was set to 30 seconds\n");
    EXPECT_EQ(watchdog.timeout, 30);
}

TEST_F(Watchdog, IsFedWithAZeroByteAndDisarmedByTheMagicCharacter)
{
    watchdog.KeepAlive(&watchdog);
    EXPECT_EQ(written(), std::string(1, '\0'));
    EXPECT_EQ(printed([&] { watchdog.Close(&watchdog); }),
              "set disable write watchdog : 1\nclose watchdog\n");
    EXPECT_EQ(written(), "V");
    EXPECT_EQ(watchdog.fd, -1);
    EXPECT_EQ(fcntl(ends[1], F_GETFD), -1);
}

TEST_F(Watchdog, AClosedOneDoesNothingButKeepTheTimeout)
{
    close(watchdog.fd);
    watchdog.fd = -1;
    EXPECT_EQ(printed([&] {
                  watchdog.Close(&watchdog);
                  watchdog.KeepAlive(&watchdog);
                  watchdog.DisableWrite(&watchdog);
                  EXPECT_EQ(watchdog.SetTimeout(&watchdog, 12), -1);
              }),
              "");
    EXPECT_EQ(watchdog.timeout, 12);
}
