// The upgrade applet on a virtual camera: console, log, commands, flash and settings.
#include "tests/support/firmware.hpp"

#include <gmock/gmock.h>

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

namespace {

constexpr char kAlert[] = "9 ";

class Upgrade : public testing::Test {
protected:
    Upgrade() : firmware(make_firmware(camera.folder()))
    {
        write_file(camera.root("/tmp/pkg"), firmware.pack());
    }

    // The lines that the upgrade logged, without ident and priority.
    static Lines alerts(const Outcome& run)
    {
        Lines found;
        for (const std::string& line : run.log)
            if (line.rfind(kAlert, 0) == 0) found.push_back(line.substr(line.find(": ") + 2));
        return found;
    }

    std::array<Bytes, 4> all_flash() const
    {
        return {camera.flash(0), camera.flash(1), camera.flash(2), camera.flash(3)};
    }

    static Bytes head(const Bytes& bytes, const Bytes& of) { return bytes.substr(0, of.size()); }

    // The image is at the start of the partition and erased flash behind it.
    void expect_written(int partition, const Bytes& image) const
    {
        Bytes flash = camera.flash(partition);
        EXPECT_TRUE(head(flash, image) == image) << "mtd" << partition;
        EXPECT_EQ(flash.find_first_not_of('\xFF', image.size()), Bytes::npos) << "mtd" << partition;
    }

    Camera camera;
    Firmware firmware;
};

const Lines kSave = {
    "/bin/cp -dpR /etc/network/network.conf /tmp/network.conf",
    "cp -dpR /etc/network/wireless.conf /tmp/wireless.conf",
    "cp -dpR /etc/system.conf /tmp/system.conf",
    "cp -dpR /etc/serverinfo.conf /tmp/serverinfo.conf",
    "cp -dpR /etc/cam_model.conf /tmp/cam_model.conf",
};
const Lines kRestore = {
    "/bin/rm -f /etc/network/network.conf",
    "/bin/cp -dpR /tmp/network.conf /etc/network/network.conf",
    "/bin/cp -dpR /tmp/wireless.conf /etc/network/wireless.conf",
    "/bin/cp -dpR /tmp/system.conf /etc/system.conf",
    "/bin/cp -dpR /tmp/serverinfo.conf /etc/serverinfo.conf",
    "/bin/cp -dpR /tmp/cam_model.conf /etc/cam_model.conf",
};
const Lines kReboot = {"umount /mnt/sd/", "umount /mnt/usb/", "ifconfig rausb0 down", "rmmod rt73",
                       "/sbin/reboot"};
const Lines kStop = {
    "/bin/xkill /bin/confd",
    "/bin/xkill /bin/webs",
    "/bin/xkill /bin/lighttpd",
    "/bin/xkill /bin/AVServer",
    "/bin/xkill /bin/ucftpd",
    "/bin/xkill /bin/encpd",
    "/bin/xkill /bin/onvif_discovery",
    "/bin/xkill /bin/onvif_server",
    "/bin/xkill /bin/genetec_discovery",
    "/bin/xkill /bin/RTSPServer",
    "/bin/xkill SIGKILL /bin/confd",
    "/bin/xkill SIGKILL /bin/AVServer",
    "/bin/xkill SIGKILL /bin/genetec_discovery",
};
const Lines kFree(10, "fuser -m /etc/ | awk '{print $1}' | xargs kill -9");
const Lines kMount = {"/bin/mount -t jffs2 /dev/mtdblock3 /etc"};

Lines joined(std::initializer_list<Lines> parts)
{
    Lines all;
    for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

} // namespace

TEST_F(Upgrade, WritesThePackageKeepsTheSettingsAndReboots)
{
    camera.shell("printf 'ip_address=10.9.8.7\\n' > /etc/network/network.conf;"
                 "sed -i 's/server_port=.*/server_port=4321/' /etc/tcp_server.conf;"
                 "sed -i 's/stream_2_port=.*/stream_2_port=7002/' /etc/stream.conf;"
                 "sed -i 's/port=80/port=8080/' /etc/web.conf");
    Outcome run = camera.run({"upgrade", "/tmp/pkg", "-v"});
    EXPECT_EQ(run.out, "CFlash_QRNWrite : flash1 complete\n"
                       "CFlash_QRNWrite : flash2 complete\n"
                       "CFlash_QRNWrite : flash3 complete\n"
                       "Upgrade complete.\n");
    EXPECT_EQ(run.ending, "reboot");
    EXPECT_THAT(run.of("system"), ElementsAreArray(joined({kStop, kSave, kFree, kMount, kRestore, kReboot})));

    int k = int(firmware.kernel.size()), r = int(firmware.root.size()), s = int(firmware.settings.size());
    Lines expected = {"CHECK VERSION : 1 vs 1\\n"};
    const struct {
        int offset, size;
    } images[] = {{20, k}, {20 + k, r}, {20 + k + r, s}};
    for (int i = 0; i < 3; ++i) {
        std::string device = "/dev/mtd" + std::to_string(i + 1);
        std::string place =
            "offset : " + std::to_string(images[i].offset) + ", size : " + std::to_string(images[i].size);
        expected.push_back("[CFlash_QRNWrite] write [" + device + "]\\n");
        expected.push_back("[CFlash_Erase] =================> [" + device + "]\\n");
        expected.push_back("[CFlash_NWrite] " + place);
        expected.push_back("[CFlash_Confirm] " + place);
    }
    expected.emplace_back("Upgrade complete.");
    EXPECT_THAT(alerts(run), ElementsAreArray(expected));
    EXPECT_THAT(run.log,
                Contains(HasSubstr("14 upgrade: Upgrade Daemon v1.0.0.1(2012.09.19-04:24+0000) start")));

    expect_written(1, firmware.kernel);
    expect_written(2, firmware.root);
    EXPECT_EQ(
        camera.shell("cat /etc/network/network.conf /etc/tcp_server.conf /etc/stream.conf /etc/web.conf"),
        "ip_address=10.9.8.7\nserver_port=4321\nmax_client=99\n"
        "stream_1_port=1852\nstream_2_port=7002\nstream_3_port=1854\nnew_in_this_release=1\n"
        "port=8080\ntimeout=1\n");
    EXPECT_EQ(camera.shell("cat /etc/videodecoder.conf /etc/lighttpd/lighttpd.conf; ls /etc/temp.conf"),
              "video_type=1\nserver.port=8\n");
}

TEST_F(Upgrade, FactoryOptionTakesTheSettingsOfThePackage)
{
    Outcome run = camera.run({"upgrade", "/tmp/pkg", "-v", "other", "-f"});
    EXPECT_THAT(run.out, HasSubstr("flash3 complete\nUpgrade complete.\n"));
    EXPECT_THAT(run.of("system"), ElementsAreArray(joined({kStop, kFree, kMount, kReboot})));
    EXPECT_TRUE(head(camera.flash(3), firmware.settings) == firmware.settings);
    for (auto& [name, content] : kNewSettings)
        EXPECT_EQ(camera.shell("cat /etc/" + std::string(name)), content);
}

// Without an option the path does not count; nor is anybody told or asked politely.
TEST_F(Upgrade, WithoutOptionsItWritesTheDefaultPackage)
{
    write_file(camera.root("/tmp/pkg"), "no package");
    for (const Lines& command : {Lines{"upgrade"}, Lines{"upgrade", "/tmp/pkg"}}) {
        write_file(camera.root("/tmp/flash3"), firmware.pack());
        camera.run({"sh", "-c", "rm -f /tmp/flash*.img"});
        Outcome run = camera.run(command, {"--daemon", "/bin/confd", "--daemon", "/bin/webs"});
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.ending, "reboot");
        EXPECT_THAT(run.of("system"), ElementsAreArray(joined({kSave, kFree, kMount, kRestore, kReboot})));
        EXPECT_EQ(alerts(run).back(), "Upgrade complete.");
        expect_written(1, firmware.kernel);
    }
}

TEST_F(Upgrade, EveryBadPackageIsRefusedWithTheFlashUntouched)
{
    Bytes good = firmware.pack();
    Bytes flipped = good, no_node = good, wraps = good, version2 = good;
    flipped[5000] ^= 0x10;
    no_node[good.size() - firmware.settings.size()] = 0;
    wraps.replace(12, 8, le32(0x80000000) + le32(0x80000000));
    version2[4] = 2;
    const struct {
        const char* what;
        Bytes content;
        const char* console;
        const char* log;
    } cases[] = {
        {"empty", "", "", ""},
        {"short header", good.substr(0, 15), "", "CHECK VERSION : 1 vs 1\\n"},
        {"version 2", version2, "", "VERSION is not match 1 : 2 vs 1\\n"},
        {"truncated", good.substr(0, good.size() - 1),
         "[ERROR] CFlash_QRNWrite : Firmware image size : ", "Firmware image size : "},
        {"oversized", good + "x",
         "[ERROR] CFlash_QRNWrite : Firmware image size : ", "Firmware image size : "},
        {"wrapping sizes", wraps,
         "[ERROR] CFlash_QRNWrite : Firmware image size : ", "Firmware image size : "},
        {"flipped bit", flipped, "[ERROR] CFlash_QRNWrite : chech Image\n", "flash1 is not correct\\n"},
        {"settings without a node", no_node, "[ERROR] CFlash_QRNWrite : check JFFS2\n",
         "flash2 is not correct\\n"},
    };
    auto before = all_flash();
    for (auto& c : cases) {
        write_file(camera.root("/tmp/pkg"), c.content);
        Outcome run = camera.run({"upgrade", "/tmp/pkg", "-v"});
        EXPECT_THAT(run.out, HasSubstr(c.console)) << c.what;
        EXPECT_THAT(run.out, HasSubstr("Upgrade fail.\n")) << c.what;
        EXPECT_EQ(run.ending, "reboot") << c.what;
        Lines log = alerts(run);
        ASSERT_GE(log.size(), 1u) << c.what;
        EXPECT_EQ(log.back(), "Upgrade fail.") << c.what;
        EXPECT_THAT(log, Contains(HasSubstr(c.log))) << c.what;
        EXPECT_TRUE(all_flash() == before) << c.what;
    }
    EXPECT_NE(camera.shell("cat /etc/system.conf"), "");
}

// The reason is in the log and on standard error, and nowhere else.
TEST_F(Upgrade, APathThatIsNoPackageFailsBeforeEtcIsUnmountedAndIsNamed)
{
    camera.shell("mkfifo /tmp/fifo; printf '3510\\001\\0\\0' > /tmp/short");
    auto before = all_flash();
    const struct {
        const char* path;
        const char* reason;
    } cases[] = {{"/tmp", "Is a directory"},
                 {"/nonexistent", "No such file or directory"},
                 {"/tmp/fifo", "it ends inside its header"},
                 {"/tmp/short", "it ends inside its header"}};
    for (auto& c : cases) {
        Outcome run = camera.run({"upgrade", c.path, "-v"});
        EXPECT_EQ(run.out, "Upgrade fail.\n") << c.path;
        std::string line = std::string("upgrade: ") + c.path + " cannot be used: " + c.reason;
        EXPECT_THAT(alerts(run), ElementsAre(line, "Upgrade fail."));
        EXPECT_THAT(run.err, HasSubstr(line + "\n"));
        EXPECT_THAT(run.of("system"), ElementsAreArray(joined({kStop, kReboot}))) << c.path;
    }
    // Below /etc nothing has this name; from / it would be another package.
    write_file(camera.root("/tmp/flash3"), firmware.pack());
    Outcome run = camera.run({"sh", "-c", "cd /etc; exec upgrade tmp/flash3 -v"});
    EXPECT_EQ(run.out, "Upgrade fail.\n");
    EXPECT_TRUE(all_flash() == before);
}

// The documented last step; here its command cannot be started.
TEST_F(Upgrade, ARebootThatCannotStartIsMadeByTheSystemCallAfterAMinute)
{
    camera.faults("system 4 1 EAGAIN\n");
    Outcome run = camera.run({"upgrade"});
    EXPECT_EQ(run.ending, "reboot");
    EXPECT_THAT(run.of("reboot"), ElementsAre("reboot"));
    EXPECT_THAT(run.log, Contains(HasSubstr("/sbin/reboot has failed")));
}

TEST_F(Upgrade, ASecondOneWaitsBeforeItsFirstStepAndSaysSoOnce)
{
    write_file(camera.root("/tmp/flash3"), firmware.pack());
    Outcome run = camera.run({"sh", "-c",
                              "xupgrade >/tmp/first 2>&1 & sleep 2; cd /etc; xupgrade -h >/tmp/help;"
                              "exec upgrade /tmp/flash3 -v 3</etc/system.conf"});
    EXPECT_EQ(run.ending, "reboot");
    EXPECT_THAT(run.out, HasSubstr("Upgrade complete.\n"));
    EXPECT_THAT(read_file(camera.root("/tmp/first")), HasSubstr("Upgrade complete.\n"));
    EXPECT_THAT(read_file(camera.root("/tmp/help")), HasSubstr("usage"));
    EXPECT_EQ(run.err.find("another one runs"), run.err.rfind("another one runs"));
    Lines order; // of what tells the two apart
    for (const std::string& line : run.log)
        for (const char* mark : {"another one runs", "[CFlash_QRNWrite] write [/dev/mtd1]", "Daemon"})
            if (line.find(mark) != std::string::npos) order.emplace_back(mark);
    const char* write = "[CFlash_QRNWrite] write [/dev/mtd1]";
    EXPECT_THAT(order, ElementsAre("another one runs", write, "Daemon", write));
}

TEST_F(Upgrade, BusyEtcEndsTheUpgradeBeforeAnyWrite)
{
    auto before = all_flash();
    camera.faults("umount 0 1 EBUSY\n");
    Outcome run = camera.run({"upgrade", "/tmp/pkg", "-v"});
    EXPECT_EQ(
        run.out,
        "[ERROR] /etc : umount [CFlash_QRNWrite], errno : 16, Device or resource busy\nUpgrade fail.\n");
    EXPECT_THAT(run.of("system"), ElementsAreArray(joined({kStop, kSave, kFree, kReboot})));
    EXPECT_TRUE(all_flash() == before);
}

// Whatever still holds a file there is killed; the upgrade lets go of its own, however it was started.
TEST_F(Upgrade, ProcessesThatHoldEtcAreKilledButNotTheUpgrade)
{
    Outcome run = camera.run({"sh", "-c",
                              "cd /etc/network && exec upgrade ../../tmp/pkg -v 3</etc/system.conf "
                              "4>/tmp/other 2>>/etc/err.log </etc/passwd"},
                             {"--daemon", "/bin/holder:hold=/etc/system.conf:ignore-term"});
    EXPECT_THAT(run.out, HasSubstr("Upgrade complete.\n"));
    EXPECT_EQ(run.ending, "reboot");
    Lines log = alerts(run);
    ASSERT_GE(log.size(), 5u);
    log.resize(5);
    EXPECT_THAT(log, ElementsAre("upgrade: left the working folder on /etc",
                                 "upgrade: let go of descriptor 0, /etc/passwd",
                                 "upgrade: let go of descriptor 2, /etc/err.log",
                                 "upgrade: let go of descriptor 3, /etc/system.conf",
                                 "CHECK VERSION : 1 vs 1\\n"));
}

TEST_F(Upgrade, EachPartitionGetsThreeAttempts)
{
    camera.faults("mtd1 write 0 1 EIO\n"      // the first attempt at the kernel
                  "mtd2 erase@2 0 -1 EIO\n"   // a block of the root file system that never erases
                  "mtd3 read 0 2 flip\n"      // two bad read-backs of the settings
                  "mtd3 erase@9 0 -1 EIO\n"); // a block behind their image
    Outcome run = camera.run({"upgrade", "/tmp/pkg", "-v"});
    Lines log = alerts(run);
    EXPECT_THAT(log, IsSupersetOf({"[CFlash_QRNWrite] /dev/mtd1 write fail[0]\\n",
                                   "    [CFlash_Erase] MTD Erase failure [/dev/mtd2]\\n",
                                   "[CFlash_QRNWrite] /dev/mtd2 write fail[0]\\n",
                                   "[CFlash_QRNWrite] /dev/mtd2 write fail[1]\\n",
                                   "[CFlash_QRNWrite] /dev/mtd2 write fail[2]\\n",
                                   "[CFlash_QRNWrite] /dev/mtd3 cmp fail[0]\\n",
                                   "[CFlash_QRNWrite] /dev/mtd3 cmp fail[1]\\n",
                                   "upgrade: /dev/mtd2 does not hold its image of 300001 bytes (write: "
                                   "Input/output error)",
                                   "upgrade: /dev/mtd3 holds its image, and old data that could not be "
                                   "erased (Input/output error)"}));
    EXPECT_THAT(run.err, HasSubstr("upgrade: /dev/mtd2 does not hold"));
    EXPECT_THAT(log, Not(Contains(HasSubstr("upgrade: /dev/mtd1"))));
    EXPECT_THAT(log, Not(Contains(HasSubstr("/dev/mtd1 write fail[1]"))));
    EXPECT_THAT(log, Not(Contains(HasSubstr("/dev/mtd3 cmp fail[2]"))));
    EXPECT_THAT(log, Not(Contains(HasSubstr("fail[3]"))));
    // What could not be written does not change the result: the device must come up with the rest.
    EXPECT_EQ(log.back(), "Upgrade complete.");
    EXPECT_THAT(run.out, HasSubstr("[CFlash_NWrite] full_write : /dev/mtd1 : Input/output error\n"));
    EXPECT_THAT(run.out, HasSubstr("[CFlash_Confirm] cmp error : /dev/mtd3 : Input/output error\n"));
    EXPECT_THAT(run.out, HasSubstr("CFlash_QRNWrite : flash2 complete\n"));
    EXPECT_THAT(run.err, HasSubstr("\n/dev/mtd2: MTD Erase failure: Input/output error\n"));
    expect_written(1, firmware.kernel);
    EXPECT_THAT(camera.shell("cat /etc/stream.conf"), HasSubstr("new_in_this_release=1\n"));
}

TEST_F(Upgrade, APowerCutLeavesWhatWasWrittenAndASecondUpgradeMendsIt)
{
    camera.faults("mtd2 write 100 1 powercut\n");
    Outcome run = camera.run({"upgrade", "/tmp/pkg", "-v"});
    EXPECT_EQ(run.ending, "powercut");
    expect_written(1, firmware.kernel);
    EXPECT_TRUE(camera.flash(2).substr(0, 100 * 512) == firmware.root.substr(0, 100 * 512));
    EXPECT_EQ(camera.flash(2).find_first_not_of('\xFF', 101 * 512), Bytes::npos);

    write_file(camera.root("/tmp/pkg"), firmware.pack());
    EXPECT_THAT(camera.run({"upgrade", "/tmp/pkg", "-v"}).out, HasSubstr("Upgrade complete.\n"));
    expect_written(2, firmware.root);
}

TEST(UpgradeOfOtherCameras, LighttpdKeepsItsPortAndVersionThreeNeedsNoJffs2)
{
    Camera camera({"--web", "lighttpd", "--version", "3"});
    Firmware firmware = make_firmware(camera.folder());
    write_file(camera.root("/tmp/pkg"), firmware.pack(3));
    camera.shell("printf 'server.port=8088\\n' > /etc/lighttpd/lighttpd.conf");
    Outcome run = camera.run({"upgrade", "/tmp/pkg", "-v"});
    EXPECT_THAT(run.out, HasSubstr("Upgrade complete.\n"));
    EXPECT_EQ(camera.shell("cat /etc/lighttpd/lighttpd.conf /etc/web.conf"),
              "server.port=8088\nport=8\ntimeout=1\n");
}
