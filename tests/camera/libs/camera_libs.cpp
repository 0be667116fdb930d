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

    // Starts daemons, gives them time to come up and ends the camera.
    Outcome down(const std::string& set_up, const std::string& way)
    {
        Outcome run = camera.run({"sh", "-c", set_up + " sleep 1; exec " + kInside + " " + way},
                                 {"--bind", INSIDE_LIBS});
        EXPECT_EQ(run.ending, "reboot");
        return run;
    }
};

const Lines kSteps = {"umount /mnt/sd/", "umount /mnt/usb/", "ifconfig rausb0 down", "rmmod rt73",
                      "/sbin/reboot"};

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

TEST_F(Libs, ARebootEndsTheListedProcessesThenRunsItsStepsInOrder)
{
    Outcome run = down("echo /bin/confd > /etc/killList; printf '/bin/webs\\n/bin/AVS\\n' > /etc/termList;"
                       "/bin/AVServer & /bin/webs & /bin/confd &",
                       "reboot");
    EXPECT_EQ(run.out, "before the reboot");
    Lines kills = run.of("kill");
    kills.resize(3); // others end on their own
    EXPECT_THAT(kills, ElementsAre(MatchesRegex("SIGKILL [0-9]+ /bin/confd"),
                                   MatchesRegex("SIGTERM [0-9]+ /bin/AVServer"),
                                   MatchesRegex("SIGTERM [0-9]+ /bin/webs")));
    EXPECT_EQ(run.of("system"), kSteps);
}

TEST_F(Libs, ANetworkRebootEndsItsServicesAndShellsInsteadOfTheKillList)
{
    Outcome run = down("echo /bin/confd > /etc/killList; rm -f /etc/termList;"
                       "/bin/sh -c 'while :; do sleep 1; done' & /bin/QRNNetManager & /bin/confd &",
                       "reboot_net");
    Lines kills = run.of("kill");
    kills.resize(2);
    EXPECT_THAT(kills, ElementsAre(MatchesRegex("SIGKILL [0-9]+ /bin/QRNNetManager"),
                                   MatchesRegex("SIGKILL [0-9]+ /bin/sh")));
    EXPECT_THAT(run.log,
                ElementsAre(R"(14 inside_libs: [CUTIL_KillProcAll]\n)",
                            R"(14 inside_libs: [CUTIL_KillProcAll] - list open err[/etc/termList]\n)"));
    EXPECT_EQ(run.of("system"), kSteps);
}
