// The sandbox: what a program in the camera sees, how the camera ends, and that nothing reaches out.
#include "tests/sim/vcam/no_way_out.hpp"
#include "tests/support/camera.hpp"

#include <chrono>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <thread>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

TEST(Sandbox, WhatIsWrittenInTheCameraStaysInItsStateFolder)
{
    Camera camera;
    auto r = camera.run({"sh", "-c",
                         "echo a > /etc/box-marker; echo b > /tmp/box-marker; echo c > /box-marker; ls /work "
                         "/home /dev/sda /sys; echo x > /usr/bin/box-marker"});
    EXPECT_NE(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_THAT(r.err, HasSubstr("cannot create /usr/bin/box-marker: Read-only file system"));
    for (const char* path : {"/etc/box-marker", "/tmp/box-marker", "/box-marker", "/usr/bin/box-marker"})
        EXPECT_FALSE(fs::exists(path)) << path;
    EXPECT_EQ(read_file(camera.root("/tmp/box-marker")), "b\n");
    EXPECT_EQ(camera.shell("cat /etc/box-marker /tmp/box-marker /box-marker"), "a\nb\nc\n");
}

TEST(Sandbox, ProcessNumbersStartAbove100AndShowNoOtherProcess)
{
    Camera camera;
    EXPECT_EQ(camera.run({"sh", "-c", "echo $$"}, {"--daemon", "/bin/confd"}).out, "102\n");
    EXPECT_EQ(camera.shell("cd /proc; echo [0-9]*"), "1 101\n");
}

TEST(Sandbox, HoldsAgainstRootInside)
{
    Camera camera;
    expect_no_way_out(camera, WAYS_OUT);
}

// What a program of one run lays into the camera's folder, the next start must not follow to the host.
TEST(Sandbox, FollowsNoLinkThatAProgramLeft)
{
    struct {
        const char* link; // below /run/vcam
        const char* message;
    } const kLinks[] = {{"faults", "/faults is a link"},
                        {"flash/mtd3", "/flash/mtd3 is a link"},
                        {"root/mnt", "/root/mnt/sd is a link that leads out of the camera, to "}};
    for (const auto& [link, message] : kLinks) {
        Camera camera;
        const fs::path outside = camera.folder() / "outside";
        fs::create_directory(outside);
        const std::string place = std::string("/run/vcam/") + link;
        camera.run({"sh", "-c", "busybox rm -rf " + place + "; ln -s " + outside.string() + " " + place});
        const Outcome run = camera.run({"true"}, {"--medium", "sd=1M"});
        EXPECT_EQ(run.status, 125) << link;
        EXPECT_THAT(run.err, HasSubstr(message));
        EXPECT_TRUE(fs::is_empty(outside)) << link;
    }
}

TEST(Sandbox, ClockChangesAreTheCamerasOwn)
{
    Camera camera;
    const time_t before = time(nullptr);
    auto r = camera.run({"sh", "-c", "busybox date -s 201501010000 2>/dev/null >&2; date 010203042020.05"});
    EXPECT_EQ(r.out, "Thu Jan  2 03:04:05 UTC 2020\n");
    EXPECT_LT(time(nullptr) - before, 3600);
    EXPECT_GE(time(nullptr), before);
    EXPECT_THAT(r.of("settimeofday"), ElementsAre("1577934245.000000"));
}

TEST(Sandbox, EtcIsBusyWhileAnyOfItsUsersLives)
{
    Camera camera;
    auto r = camera.run(
        {"sh", "-c",
         "fuser -m /etc/; umount /etc; fuser -m /etc/ | xargs kill -9; sleep 1; umount /etc && ls /etc;"
         "mount -t jffs2 /dev/mtdblock3 /etc; cat /etc/cam_model.conf; fuser -m /etc; echo $?"},
        {"--daemon", "/bin/confd:hold=/etc/hosts", "--daemon", "/bin/webs", "--daemon",
         "/bin/AVServer:hold=/etc"});
    EXPECT_EQ(r.out, "101 103\n# set in production\ncam_model=ZM131\n1\n");
    EXPECT_EQ(r.err, "umount: can't unmount /etc: Device or resource busy\n");
    EXPECT_THAT(r.of("kill"), Contains("/bin/confd signal 9"));
    EXPECT_THAT(r.of("mount"), ElementsAre("-t jffs2 /dev/mtdblock3 /etc"));
}

TEST(Sandbox, SettingsLiveInTheFlash)
{
    Camera camera;
    const std::string factory = camera.flash(3);
    camera.shell("echo port=81 > /etc/web.conf; mv /etc/hosts /etc/network/; chmod 600 /etc/passwd");
    EXPECT_NE(camera.flash(3), factory);
    EXPECT_EQ(
        camera.shell("cat /etc/web.conf; ls /etc/hosts /etc/network/hosts 2>&1; stat -c %a /etc/passwd"),
        "port=81\nls: /etc/hosts: No such file or directory\n/etc/network/hosts\n600\n");
    write_file(camera.state("flash/mtd3"), factory);
    EXPECT_EQ(camera.shell("head -1 /etc/web.conf"), "port=80\n");
}

TEST(Sandbox, AFullSettingsPartitionRefusesWrites)
{
    Camera camera;
    auto r = camera.run(
        {"sh", "-c",
         "dd if=/dev/urandom of=/etc/big bs=64k count=64 2>&1 | grep -o 'No space.*'; rm /etc/big"});
    EXPECT_EQ(r.out, "No space left on device\n");
    EXPECT_EQ(r.status, 0) << r.err;
}

TEST(Sandbox, EachEndHasItsWordAndStatus)
{
    struct {
        const char* command;
        int status;
        const char* ending;
    } const kEnds[] = {
        {"exit 7", 7, "exit 7"},
        {"kill -9 $$", 137, "signal 9"},
        {"reboot", 0, "reboot"},
        {"/sbin/poweroff", 0, "poweroff"},
        {"busybox kill -36 1; sleep 9", 121, "powercut"},
        {"busybox kill -37 1; sleep 9", 122, "watchdog"},
    };
    Camera camera;
    for (const auto& end : kEnds) {
        auto r = camera.run(
            {"sh", "-c", std::string("trap '' TERM; echo x > /etc/last; ") + end.command + "; echo after"});
        EXPECT_EQ(r.status, end.status) << end.command;
        EXPECT_EQ(r.ending, end.ending);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(camera.shell("cat /etc/last; rm /etc/last"), "x\n") << end.ending;
    }
    EXPECT_EQ(camera.run({"nosuch"}).status, 127);
    auto r = camera.run({"busybox", "sleep", "50"}, {"--timeout", "0.3"});
    EXPECT_EQ(r.status, 124);
    EXPECT_EQ(r.ending, "timeout");
}

TEST(Sandbox, ASleepTakesCameraTimeOnly)
{
    Camera camera;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(camera.run({"sh", "-c", "date 010100002020; sleep 3000; date +%M"}).out,
              "Wed Jan  1 00:00:00 UTC 2020\n50\n");
    camera.run({"true"}, {"--linger", "600"});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1000));
    EXPECT_THAT(vcam("status " + camera.state("").string()).text, HasSubstr("time      36"));
}

TEST(Sandbox, TheSystemLogKeepsPriorityNameAndLineEnds)
{
    Camera camera;
    auto r = camera.run(
        {"sh", "-c", "logger -p user.alert -t cam 'two\nlines'; busybox logger -p local3.debug -t x y"});
    EXPECT_THAT(r.log, ElementsAre("9 cam: two\\nlines", "159 x: y"));
}

TEST(Sandbox, DriversAndRegistersAreAsTheToolsLeaveThem)
{
    Camera camera;
    auto r = camera.run({"sh", "-c",
                         "/sbin/insmod /dvs/extdrv/ds_1339.ko && /sbin/insmod /dvs/extdrv/ds_1339.ko;"
                         "/sbin/insmod /dvs/none.ko; rmmod rt73; /bin/reg -s 0x20110094 0x00000005"});
    EXPECT_EQ(r.err, "insmod: can't insert '/dvs/extdrv/ds_1339.ko': File exists\n"
                     "insmod: can't insert '/dvs/none.ko': No such file or directory\n"
                     "rmmod: can't unload module 'rt73': No such file or directory\n");
    EXPECT_THAT(r.of("insmod"),
                ElementsAre("/dvs/extdrv/ds_1339.ko", "/dvs/extdrv/ds_1339.ko", "/dvs/none.ko"));
    EXPECT_THAT(r.of("reg"), ElementsAre("-s 0x20110094 0x00000005"));
    const std::string off = vcam("status " + camera.state("").string()).text;
    EXPECT_THAT(off, HasSubstr("\ndrivers   ds_1339\n"));
    EXPECT_THAT(off, HasSubstr("\nregister  0x20110094 = 0x00000005\n"));
    EXPECT_EQ(
        camera.shell("reg -s 0x20110094 0x5; reg -c 0x20110094 0x1; reg -r 0x20110094;"
                     "insmod /dvs/extdrv/ds_1339.ko; lsmod | grep -c ds_1339; rmmod ds_1339; lsmod | wc -l"),
        "0x20110094: 0x00000004\n1\n1\n");
}

// Every run is a boot: what memory and the chip held is gone, what flash and battery hold is not.
TEST(Sandbox, ARunBeginsAsACameraIsSwitchedOn)
{
    Camera camera;
    const std::string folder = camera.state("").string();
    const std::string year = camera.shell("date +%Y"),
                      speed = camera.shell("/usr/bin/stty -F /dev/ttyAMA1 speed");
    vcam("rtc " + folder + " --set '2031-05-06 07:08:09'");
    const std::pair<const char*, const char*> ends[] = {
        {"reboot", ""},
        {"busybox kill -36 1; sleep 9", "vcam: the camera ended by a power cut\n"},
        {"true", ""}};
    for (auto [end, said] : ends) {
        auto run = camera.run(
            {"sh", "-c",
             std::string(
                 "load_drv; lsmod | wc -l; reg -r 0x20180400; xgpio 3 0 1; reg -r 0x20180400; date +%Y;"
                 "date 010203042020 > /dev/null; /usr/bin/stty -F /dev/ttyAMA1 speed;"
                 "/usr/bin/stty -F /dev/ttyAMA1 115200; echo > /dev/watchdog; echo >> /etc/runs;") +
                 end});
        EXPECT_EQ(run.out, "3\n0x20180400: 0x00000000\n0x20180400: 0x00000001\n" + year + speed) << end;
        EXPECT_EQ(run.err, said) << end;
    }
    EXPECT_EQ(camera.run({"sleep", "600"}).ending, "exit 0") << "nobody has armed the watchdog";
    EXPECT_EQ(camera.shell("wc -l < /etc/runs"), "3\n");
    EXPECT_THAT(vcam("rtc " + folder).text, StartsWith("2031-05-06 07:1"));
}

// While a camera runs for real seconds in the background.
class RunningCamera : public testing::Test {
protected:
    void SetUp() override
    {
        std::string folder = camera.state("").string();
        launcher = fork();
        if (launcher == 0) {
            execl(VCAM, VCAM, "run", folder.c_str(), "--realtime", "--", "sh", "-c",
                  "echo > /tmp/up; sleep 1000", nullptr);
            _exit(127);
        }
        ASSERT_TRUE(eventually([&] { return fs::exists(camera.root("/tmp/up")); }));
    }
    void TearDown() override
    {
        kill(launcher, SIGTERM);
        waitpid(launcher, &status, 0);
    }

    template<typename Condition> static bool eventually(Condition condition)
    {
        for (int i = 0; i < 60000; ++i) {
            if (condition()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    Camera camera;
    pid_t launcher = 0;
    int status = 0;
};

TEST_F(RunningCamera, IsJoinedByExecAndStartedByNobodyElse)
{
    std::string folder = camera.state("").string();
    EXPECT_EQ(vcam("exec " + folder + " -- reg -s 0x20110094 0x5").status, 0);
    auto second = camera.run({"true"});
    EXPECT_EQ(second.status, 125);
    EXPECT_THAT(second.err, HasSubstr("runs already"));
    EXPECT_EQ(vcam("exec " + folder + " -- reg -r 0x20110094").text, "0x20110094: 0x00000005\n")
        << "a start that is refused switches nothing off";
    auto joined =
        vcam("exec " + folder + " -- sh -c 'cat /etc/cam_model.conf; ls /proc/101 >/dev/null; exit 5'");
    EXPECT_EQ(joined.text, "# set in production\ncam_model=ZM131\n");
    EXPECT_EQ(joined.status, 5);
    EXPECT_THAT(vcam("status " + folder).text, HasSubstr("running as process"));
    EXPECT_EQ(vcam("exec " + folder + " -- reboot").status, 128 + SIGKILL);
    EXPECT_TRUE(eventually([&] { return read_file(camera.state("ending")) == "reboot\n"; }));
}

// The first process is known before it has left the machine's root.
TEST_F(RunningCamera, IsNotJoinedThroughAProcessOutsideIt)
{
    const std::string real = read_file(camera.state("pid")), folder = camera.state("").string();
    write_file(camera.state("pid"), std::to_string(getpid()) + "\n");
    for (const std::string& command : {"exec " + folder + " -- ls /", "shell " + folder}) {
        const auto refused = vcam(command);
        EXPECT_EQ(refused.status, 125) << command;
        EXPECT_THAT(refused.text, HasSubstr("is still starting; try again"));
    }
    write_file(camera.state("pid"), real);
    EXPECT_EQ(vcam("exec " + folder + " -- true").status, 0);
}

TEST(Sandbox, AStartForgetsTheProcessOfAnEarlierOne)
{
    Camera camera;
    write_file(camera.state("pid"), std::to_string(getpid()) + "\n");
    EXPECT_EQ(camera.run({"true"}, {"--mic", "/dev/null"}).status, 125) << "before it has a process";
    EXPECT_FALSE(fs::exists(camera.state("pid")));
}

TEST_F(RunningCamera, LeavesNoProcessBehindAKilledLauncher)
{
    pid_t init = atoi(read_file(camera.state("pid")).c_str());
    ASSERT_GT(init, 1);
    ASSERT_EQ(kill(init, 0), 0);
    kill(launcher, SIGKILL);
    EXPECT_TRUE(eventually([&] { return !fs::exists("/proc/" + std::to_string(init) + "/exe"); }));
    EXPECT_EQ(camera.run({"true"}).status, 0);
}

TEST_F(RunningCamera, EndsWithTheSignalThatItsLauncherGets)
{
    kill(launcher, SIGTERM);
    waitpid(launcher, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 128 + SIGTERM);
    EXPECT_EQ(read_file(camera.state("ending")), "signal 15\n");
    launcher = fork();
    if (launcher == 0) _exit(0);
}
