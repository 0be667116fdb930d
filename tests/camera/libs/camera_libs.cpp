// Library functions in the camera: what they leave in the system log and the journal.
#include "tests/support/camera.hpp"

#include <gmock/gmock.h>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::MatchesRegex;

const std::string kInside = "/run/bin/inside_libs";

struct Libs : testing::Test {
    Camera camera;

    Outcome inside(const std::string& filter)
    {
        Outcome run = camera.run({kInside, "--gtest_filter=" + filter},
                                 {"--bind", INSIDE_LIBS, "--bind", "/usr/sbin/chronyd"});
        EXPECT_EQ(run.status, 0) << run.out << run.err;
        return run;
    }
};

} // namespace

// Priority 14: user facility, information.
TEST_F(Libs, FixedPathsPortsAndProcessNumbersAndWhatTheyLog)
{
    Outcome run = inside("-WatchdogMissing.*");
    EXPECT_THAT(run.of("watchdog"),
                ElementsAre("open, timeout 30", "timeout 15 -> 15", "timeout 20 -> 20", "close"));
    EXPECT_THAT(run.of("settimeofday"),
                IsSupersetOf({"2085978495.999999", "2085978501.500000", "2135942496.000256"}));
    EXPECT_THAT(run.log, Contains(R"(9 inside_libs: Ooops.  pack_len=0\n)").Times(1));
    EXPECT_THAT(run.log, Contains(R"(9 inside_libs: Ooops.  pack_len=1500\n)").Times(2));
    EXPECT_THAT(run.log, Contains(R"(14 inside_libs: [CUTIL_KillProcAll] - list open err[/tmp/none]\n)"));
    auto kill = MatchesRegex(R"(14 inside_libs: \[CUTIL_KillProcAll\] - kill\[/bin/listed\], [0-9]+\\n)");
    EXPECT_THAT(run.log, Contains(kill).Times(2)) << "once for each entry that matches";
}

TEST_F(Libs, AWatchdogThatCannotBeOpenedStaysClosed)
{
    camera.faults("watchdog open 0 1 ENOENT\n");
    inside("WatchdogMissing.*");
}

// The daemons get time to come up. A reboot of the network ends its services and shells instead of the kill list.
TEST_F(Libs, ARebootEndsItsProcessesThenRunsItsStepsInOrder)
{
    const struct {
        std::string set_up, way, out;
        Lines kills; // the first; others end on their own
    } cases[] = {
        {"printf '/bin/webs\\n/bin/AVS\\n' > /etc/termList; /bin/AVServer & /bin/webs & /bin/confd &",
         "reboot",
         "before the reboot",
         {"SIGKILL [0-9]+ /bin/confd", "SIGTERM [0-9]+ /bin/AVServer", "SIGTERM [0-9]+ /bin/webs"}},
        {"rm -f /etc/termList; /bin/sh -c 'while :; do sleep 1; done' & /bin/QRNNetManager & /bin/confd &",
         "reboot_net",
         "",
         {"SIGKILL [0-9]+ /bin/QRNNetManager", "SIGKILL [0-9]+ /bin/sh"}},
    };
    Outcome run;
    for (const auto& c : cases) {
        run = camera.run(
            {"sh", "-c",
             "echo /bin/confd > /etc/killList;" + c.set_up + " sleep 1; exec " + kInside + " " + c.way},
            {"--bind", INSIDE_LIBS});
        EXPECT_EQ(run.ending, "reboot");
        EXPECT_EQ(run.out, c.out);
        for (size_t i = 0; i < c.kills.size(); ++i)
            EXPECT_THAT(run.of("kill").at(i), MatchesRegex(c.kills[i]));
        EXPECT_EQ(run.of("system"), Lines({"umount /mnt/sd/", "umount /mnt/usb/", "ifconfig rausb0 down",
                                           "rmmod rt73", "/sbin/reboot"}));
    }
    EXPECT_THAT(run.log,
                ElementsAre(R"(14 inside_libs: [CUTIL_KillProcAll]\n)",
                            R"(14 inside_libs: [CUTIL_KillProcAll] - list open err[/etc/termList]\n)"));
}
