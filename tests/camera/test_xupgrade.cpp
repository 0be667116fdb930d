// The xupgrade applet on a virtual camera, and the datagrams that both applets send.
#include "tests/support/firmware.hpp"

#include <gmock/gmock.h>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr char kHelp[] = "'xupgrade' usage : \n"
                         "        -f                      When the update is complete, factorydefault.\n"
                         "        -b                      When the update is complete, system reboot.\n"
                         "        -i                      Ignore the 'OEM code' and proceed the update. \n"
                         "        -r <udp_port>           send udp log message.\n"
                         "        -h                      program help page.\n";

class Xupgrade : public testing::Test {
protected:
    Xupgrade() : firmware(make_firmware(camera.folder()))
    {
        write_file(camera.root("/tmp/flash3"), firmware.pack());
    }

    // With a listener on a port of the loopback; the datagrams, each as text.
    std::pair<Outcome, Lines> run_listening(const std::string& port, const Lines& command)
    {
        Lines line = {"/run/bin/camera_helper", "listen", port, "/tmp/datagrams"};
        line.insert(line.end(), command.begin(), command.end());
        Outcome run = camera.run(line, {"--bind", HELPER});
        std::istringstream in(read_file(camera.root("/tmp/datagrams")));
        Lines datagrams;
        for (std::string hex; std::getline(in, hex);) {
            datagrams.emplace_back();
            for (size_t i = 0; i < hex.size(); i += 2)
                datagrams.back() += char(std::stoi(hex.substr(i, 2), nullptr, 16));
        }
        return {run, datagrams};
    }

    // Seconds of camera time of each event that the watchdog saw.
    std::vector<double> watchdog_times() const
    {
        std::vector<double> times;
        std::istringstream in(read_file(camera.state("watchdog.log")));
        for (std::string line; std::getline(in, line);) times.push_back(std::stod(line));
        return times;
    }

    bool untouched(const Bytes& mtd1) const { return camera.flash(1) == mtd1; }

    Camera camera;
    Firmware firmware;
};

} // namespace

TEST_F(Xupgrade, HelpNeitherStopsNorWritesAnything)
{
    Bytes before = camera.flash(1);
    Outcome run = camera.run({"xupgrade", "-f", "-h", "-b"}, {"--daemon", "/bin/confd"});
    EXPECT_EQ(run.out, kHelp);
    EXPECT_EQ(run.ending, "exit 0"); // -b stands behind -h and is not seen
    EXPECT_THAT(run.of("system"), IsEmpty());
    EXPECT_THAT(run.of("kill"), IsEmpty());
    EXPECT_TRUE(untouched(before));
    EXPECT_EQ(camera.run({"xupgrade", "-b", "-h"}).ending, "reboot");
}

TEST_F(Xupgrade, WritesTheDefaultPackageAndLeavesTheDeviceRunning)
{
    Outcome run = camera.run({"xupgrade"});
    EXPECT_EQ(run.out, "The timeout was set to 30 seconds\nUpgrade complete.\n");
    EXPECT_EQ(run.ending, "exit 0");
    EXPECT_TRUE(camera.flash(1).substr(0, firmware.kernel.size()) == firmware.kernel);
    EXPECT_THAT(run.of("system"), Contains("/bin/cp -dpR /tmp/system.conf /etc/system.conf"));
    EXPECT_THAT(run.of("system"), Not(Contains("/sbin/reboot")));
    EXPECT_EQ(camera.shell("cat /etc/videodecoder.conf"), "video_type=1\n");
}

// -i compares the marker: the help text says otherwise, and scripts count on what it does.
TEST_F(Xupgrade, AnotherMarkerIsRefusedOnlyWithTheMarkerOption)
{
    write_file(camera.root("/tmp/flash3"), firmware.pack().replace(0, 4, "ABCD"));
    Bytes before = camera.flash(1);
    Outcome run = camera.run({"xupgrade", "-i"});
    EXPECT_THAT(run.out, HasSubstr("Upgrade fail.\n"));
    EXPECT_THAT(run.log, Contains(HasSubstr("MAGIC_NUMBER is not match 1 : 44434241 vs 30313533\\n")));
    EXPECT_THAT(run.of("system"), IsEmpty());
    EXPECT_THAT(run.of("umount"), IsEmpty());
    EXPECT_EQ(run.ending, "exit 0");
    EXPECT_TRUE(untouched(before));

    EXPECT_THAT(camera.run({"xupgrade"}).out, HasSubstr("Upgrade complete.\n"));
    EXPECT_FALSE(untouched(before));
}

TEST_F(Xupgrade, FeedsTheWatchdogThroughTheWholeWriteAndLeavesItArmed)
{
    Outcome run = camera.run({"xupgrade", "-f"}, {"--linger", "60"});
    EXPECT_THAT(run.out, HasSubstr("Upgrade complete.\n"));
    EXPECT_EQ(run.ending, "watchdog"); // nobody fed it after the upgrade
    auto times = watchdog_times();
    ASSERT_GT(times.size(), 8u);
    double longest = 0;
    for (size_t i = 1; i + 1 < times.size(); ++i) longest = std::max(longest, times[i] - times[i - 1]);
    EXPECT_LE(longest, 1.5);
    EXPECT_GE(times.back() - times[times.size() - 2], 29);
}

TEST_F(Xupgrade, StopsTheServicesBySignalInItsOrder)
{
    Outcome run =
        camera.run({"xupgrade", "-b"}, {"--daemon", "/bin/QRNSysMgr", "--daemon", "/bin/confd:ignore-term",
                                        "--daemon", "/bin/webs:ignore-term", "--daemon", "/bin/AVServer"});
    EXPECT_EQ(run.ending, "reboot");
    Lines kills; // signal and program
    for (const std::string& line : run.of("kill"))
        if (line.rfind("SIG", 0) == 0)
            kills.push_back(line.substr(0, line.find(' ')) + line.substr(line.rfind(' ')));
    EXPECT_THAT(kills, ElementsAre("SIGTERM /bin/QRNSysMgr", "SIGTERM /bin/AVServer",
                                   "SIGTERM /bin/webs", // by the prefix /bin/web
                                   "SIGKILL /bin/webs", "SIGKILL /bin/confd"));
}

TEST_F(Xupgrade, LogLinesAlsoGoToTheUdpPort)
{
    auto [run, datagrams] = run_listening("5140", {"xupgrade", "-i", "-r", "5140"});
    EXPECT_EQ(run.ending, "exit 0");
    Lines alerts;
    for (const std::string& line : run.log)
        if (line.rfind("9 ", 0) == 0) alerts.push_back(line.substr(line.find(": ") + 2));
    ASSERT_EQ(datagrams.size(), alerts.size());
    EXPECT_EQ(datagrams[0], "CHECK MAGIC_NUMBER : 30313533 vs 30313533\n");
    EXPECT_EQ(datagrams.back().rfind("[CFlash_Confirm] offset : ", 0), 0u);
}

// The word after -r counts as a port and as an option; a last -r has no port.
TEST_F(Xupgrade, TheWordAfterThePortOptionIsAnOptionToo)
{
    EXPECT_EQ(camera.run({"xupgrade", "-r", "-b"}).ending, "reboot");
    EXPECT_EQ(camera.run({"xupgrade", "-r"}).ending, "exit 0");
}

TEST_F(Xupgrade, UpgradeTellsTheSystemManagerButOnlyForANamedPackage)
{
    auto [run, datagrams] = run_listening("4100", {"upgrade", "/tmp/flash3", "-f"});
    EXPECT_EQ(run.ending, "reboot");
    EXPECT_THAT(datagrams, ElementsAre(std::string("SYSP\0\0\0\0UPGR", 12)));
    EXPECT_THAT(run_listening("4100", {"upgrade"}).second, IsEmpty());
}
