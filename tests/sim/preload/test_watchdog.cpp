// The hardware watchdog: units of two seconds, feeding, magic close, reset.
#include "tests/sim/preload/camera.hpp"

#include <cerrno>
#include <linux/watchdog.h>

using namespace vcam;

namespace {

class Watchdog : public test::CameraTest {
protected:
    static vcamsim_watchdog state()
    {
        vcamsim_watchdog w{};
        vcamsim_read_watchdog(&w);
        return w;
    }
    // The units in force after `wanted` was asked for.
    static int units(int fd, int wanted)
    {
        int value = wanted, now = -1;
        const int result = ::ioctl(fd, WDIOC_SETTIMEOUT, &value);
        EXPECT_TRUE(result == 0 || errno == EINVAL);
        EXPECT_EQ(::ioctl(fd, WDIOC_GETTIMEOUT, &now), 0);
        EXPECT_EQ(value == now, result == 0);
        return now;
    }
    static int open() { return ::open("/dev/watchdog", O_WRONLY); }
};

TEST_F(Watchdog, TakesItsTimeoutInUnitsOfTwoSecondsWithinItsLimits)
{
    const int fd = open();
    for (auto [wanted, kept] :
         std::initializer_list<std::pair<int, int>>{{15, 15}, {0, 15}, {-5, 15}, {60, 60}, {61, 60}, {1, 1}})
        EXPECT_EQ(units(fd, wanted), kept);
    units(fd, 2);
    ::usleep(3'900'000); // two units are four seconds
    EXPECT_TRUE(vcamsim_has_power());
    ::usleep(200'000);
    EXPECT_FALSE(vcamsim_has_power());
    EXPECT_EQ(state().fired, 1);
    EXPECT_NE(journal().find(" watchdog reset\n"), std::string::npos);
    ::close(fd);
}

TEST_F(Watchdog, RemembersTheLongestGapBetweenFeeds)
{
    const int fd = open();
    for (int pause_ms : {1000, 2500, 700}) {
        ::usleep(useconds_t(pause_ms) * 1000);
        ASSERT_EQ(::write(fd, "", 1), 1);
    }
    const auto w = state();
    EXPECT_EQ(w.feeds, 3);
    EXPECT_NEAR(double(w.longest_gap_us), 2.5e6, 1e5);
    ::close(fd);
}

// Closing without the magic, as a crash does, must not switch the protection off.
TEST_F(Watchdog, OnlyTheMagicClosesIt)
{
    int fd = open();
    EXPECT_EQ(open(), -1); // one program at a time
    EXPECT_EQ(errno, EBUSY);
    ::close(fd);
    EXPECT_EQ(state().armed, 1);
    fd = open();
    ASSERT_EQ(::write(fd, "V", 1), 1);
    ASSERT_EQ(::write(fd, "x", 1), 1); // takes the magic back
    ::close(fd);
    EXPECT_EQ(state().armed, 1);
    fd = open();
    const int second = ::dup(fd);
    ASSERT_EQ(::write(second, "V", 1), 1);
    ::close(fd);
    EXPECT_EQ(state().armed, 1); // the opening still has a descriptor
    ::close(second);
    EXPECT_EQ(state().armed, 0);
    ::sleep(200);
    EXPECT_TRUE(vcamsim_has_power());
}

TEST_F(Watchdog, AProgramThatDiesLeavesItRunning)
{
    ASSERT_EQ(run("sh -c 'exec 3>/dev/watchdog; printf x >&3; kill -9 $$'"), 137);
    EXPECT_EQ(state().armed, 1);
    EXPECT_EQ(state().feeds, 1);
    ::sleep(61);
    EXPECT_EQ(state().fired, 1);
}

// The shell hands the descriptor on to the program that it becomes.
TEST_F(Watchdog, AnInheritedDescriptorIsStillTheDevice)
{
    ASSERT_EQ(run("sh -c 'exec 1>/dev/watchdog; exec dd bs=1 count=5 if=/dev/zero status=none'"), 0);
    EXPECT_EQ(state().feeds, 5);
    ASSERT_EQ(run("sh -c 'exec 1>/dev/watchdog; printf V'"), 0); // exit closes it
    ::sleep(100);
    EXPECT_EQ(state().armed, 0);
    EXPECT_TRUE(vcamsim_has_power());
}

} // namespace
