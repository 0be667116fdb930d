// The vcam command: cameras alike, files in and out, what it reports and what it refuses.
#include "tests/support/camera.hpp"

#include <algorithm>
#include <cstdint>
#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

// Every path below the folder with its content; links by their target.
std::string tree(const fs::path& folder)
{
    Lines lines;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        std::string line = entry.path().string().substr(folder.string().size());
        if (entry.is_symlink())
            line += " -> " + fs::read_symlink(entry.path()).string();
        else if (entry.is_regular_file())
            line += " " + std::to_string(std::hash<std::string>()(read_file(entry.path())));
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    std::string all;
    for (const auto& line : lines) all += line + "\n";
    return all;
}

uint32_t crc32(const std::string& bytes)
{
    uint32_t crc = ~0u;
    for (unsigned char byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = crc & 1 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
    }
    return ~crc;
}

} // namespace

TEST(Vcam, SameOptionsMakeTheSameBytes)
{
    Camera a({"--model", "ZM135"}), b({"--model", "ZM135"}), c({"--model", "ZM131"});
    EXPECT_EQ(tree(a.state("")), tree(b.state("")));
    EXPECT_NE(tree(a.state("")), tree(c.state("")));
}

TEST(Vcam, TheBootEnvironmentIsWhatTheBootLoaderWrites)
{
    Camera camera({"--mac", "00:11:22:33:44:55", "--serial", "AB12", "--product", "P-7"});
    std::string environment = camera.flash(0).substr(0x40000, 0x10000);
    for (const char* variable : {"ethaddr=00:11:22:33:44:55", "serial_no=AB12", "product_code=P-7"})
        EXPECT_NE(environment.find(std::string(1, '\0') + variable + '\0'), std::string::npos) << variable;
    uint32_t stored = 0;
    for (int i = 3; i >= 0; --i) stored = stored << 8 | static_cast<unsigned char>(environment[size_t(i)]);
    EXPECT_EQ(stored, crc32(environment.substr(4)));
}

TEST(Vcam, FlashIsAsLargeAndAsBadAsAsked)
{
    Camera camera({"--flash", "nand", "--size", "mtd2=16M", "--bad", "mtd2:3", "--bad", "mtd2:7"});
    EXPECT_EQ(camera.flash(2).size(), 16u << 20);
    EXPECT_EQ(camera.flash(2).substr(7 << 14, 1 << 14), std::string(1 << 14, '\xFF'));
    EXPECT_EQ(read_file(camera.state("flash/mtd2.bad")), "3\n7\n");
    EXPECT_THAT(read_file(camera.state("camera.conf")), HasSubstr("mtd2=nand,0x1000000,0x4000,512\n"));
}

TEST(Vcam, APutFileIsInTheCameraAndNeverBehindALink)
{
    Camera camera;
    std::string folder = camera.state("").string(), file = (camera.folder() / "mine").string();
    write_file(file, "mine\n");
    const std::string host = read_file("/bin/cat");
    for (const char* target :
         {"/etc/deep/er/mine", "/tmp/", "/bin/cat", "/bin/confd", "/new/folder/x", "/tmp/../etc/up"})
        EXPECT_EQ(vcam("put " + folder + " " + file + " " + target).text, "") << target;
    EXPECT_EQ(read_file("/bin/cat"), host);
    EXPECT_EQ(
        camera.shell("head -9 /etc/deep/er/mine /tmp/mine /new/folder/x /bin/confd /etc/up | grep -c mine$"),
        "5\n");
    EXPECT_EQ(vcam("get " + folder + " /bin/cat").text, "mine\n");
    camera.shell("ln -s /etc/shadow /tmp/out; ln -s /etc /tmp/folder; echo kept > /etc/mine");
    EXPECT_THAT(vcam("get " + folder + " /tmp/out").text, HasSubstr("the camera has no /tmp/out"));
    EXPECT_EQ(vcam("get " + folder + " /etc/mine").text, "kept\n");
    EXPECT_EQ(vcam("get " + folder + " /etc " + file + ".d").status, 0);
    EXPECT_EQ(read_file(file + ".d/deep/er/mine"), "mine\n");

    // Links of the camera to a folder of the host: as the target, as its end, and below a copied folder.
    const std::string victim = (camera.folder() / "victim").string();
    for (const char* name : {"/mine", "/sub/mine"})
        write_file(camera.folder() / ("tree" + std::string(name)), "put\n");
    write_file(victim + "/mine", "host's\n");
    camera.shell("rm -rf /tmp/*; mkdir /tmp/tree; for l in mine all tree/sub; do ln -s " + victim +
                 " /tmp/$l; done");
    const std::string tree = (camera.folder() / "tree").string();
    EXPECT_EQ(vcam("put " + folder + " " + file + " /tmp/mine").status, 0);
    EXPECT_EQ(vcam("put " + folder + " " + tree + " /tmp/all").status, 1);
    EXPECT_EQ(vcam("put " + folder + " " + tree + " /tmp/tree").status, 1);
    EXPECT_EQ(say("cat " + victim + "/*").text, "host's\n");
}

TEST(Vcam, FilesOutOfTheCameraHarmNothingOfTheHost)
{
    Camera camera;
    camera.shell("mkdir -p /tmp/d/e; echo x > /tmp/d/f; ln -s /etc/passwd /tmp/d/l; chmod 600 /tmp/d/f");
    const std::string folder = camera.state("").string(), work = (camera.folder() / "work").string();
    fs::create_directories(work);
    const auto in_work = [&](const std::string& line) {
        return say("cd " + work + " && { " + line + "; } 2>&1").text;
    };
    const std::string get = std::string(VCAM) + " get " + folder + " ",
                      put = std::string(VCAM) + " put " + folder;
    struct {
        std::string line, says;
    } const kSteps[] = {
        {get + "/tmp/d/f /dev/stdout", "x\n"},
        {get + "/tmp/d/f /dev/stdout > out; cat out", "x\n"},
        {"mkfifo pipe; timeout 10 cat pipe & " + get + "/tmp/d/f pipe; wait; test -p pipe", "x\n"},
        {get + "/tmp/d && find d | sort", "d\nd/e\nd/f\nd/l\n"},
        {"stat -c %a d/f", "600\n"},
        {get + "/tmp/d", "vcam: get: d exists already; name another folder, or add to it with --force\n"},
        {get + "/tmp/d/f d", "vcam: d/f: exists already; name another file, or replace it with --force\n"},
        {get + "/tmp/d/f d --force", ""},
        {get + "/tmp/d d --force; readlink d/l", "/etc/passwd\n"},
        {get + "/", "vcam: get: name a folder for the camera's /\n"},
        {"cd " + camera.folder().string() + "; " + put + " .",
         "vcam: put: . holds the camera itself; name files, or a folder beside the camera\n"},
        {put + " " + folder + "/root/tmp /tmp/d/again",
         "vcam: put: " + folder + "/root/tmp holds its own copy /tmp/d/again; put it elsewhere\n"},
        {put + " pipe",
         "vcam: " + work + "/pipe is neither a file nor a folder nor a link; name one that is\n"},
        {put + " . /tmp/copy", "vcam: ./pipe is neither a file nor a folder nor a link; name one that is\n"},
        {"rm pipe; " + put + " .; ls " + folder + "/root/tmp/work", "d\nout\n"},
    };
    for (const auto& step : kSteps) EXPECT_EQ(in_work(step.line), step.says) << step.line;
}

TEST(Vcam, DiffTellsWhatTheLastRunChanged)
{
    Camera camera;
    camera.run({"sh", "-c", "echo before > /tmp/old"});
    camera.run({"sh", "-c",
                "echo port=8080 > /etc/web.conf; rm /etc/hosts; echo new=1 > /etc/n.conf;"
                "echo x > /tmp/made; rm /tmp/old"});
    const std::string text = vcam("diff " + camera.state("").string()).text;
    EXPECT_THAT(text, StartsWith("flash\nmtd0: unchanged\nmtd1: unchanged\nmtd2: unchanged\nmtd3: "));
    EXPECT_THAT(text, HasSubstr("settings\n- /etc/hosts: line 1=127.0.0.1\\tlocalhost camera\n"
                                "~ /etc/web.conf: port: 80 -> 8080\n- /etc/web.conf: timeout=300\n"
                                "+ /etc/n.conf: new=1\nfiles\n- /tmp/old\n+ /tmp/made\n"));
    EXPECT_THAT(text, HasSubstr("ending\nexit 0\n"));
}

TEST(Vcam, StatusIsGivenToPeopleAndPrograms)
{
    Camera camera;
    camera.run({"sh", "-c", "/sbin/insmod /dvs/Hi3512reg.ko; logger hello; exit 3"});
    std::string folder = camera.state("").string();
    EXPECT_EQ(vcam("fault " + folder + " 'mtd1 write 3 1 EIO'").text, "");
    const std::string text = vcam("status " + folder).text, json = vcam("status --json " + folder).text;
    for (const char* part :
         {"off (exit 3)", "drivers   Hi3512reg\n", "1 system log lines", "fault     mtd1 write 3 1 EIO",
          "mtd1      nor       3M in blocks of 64K,  1572864 bytes used"})
        EXPECT_THAT(text, HasSubstr(part));
    for (const char* part :
         {"\"ending\":\"exit 3\"", "\"drivers\":[\"Hi3512reg\"]", "\"faults\":[\"mtd1 write 3 1 EIO\"]",
          "\"syslog_lines\":1", "\"name\":\"mtd3\",\"type\":\"nor\",\"size\":1048576"})
        EXPECT_THAT(json, HasSubstr(part));
}

TEST(Vcam, AFaultSaysHowFarItHasComeAndThatItEndedTheRun)
{
    Camera camera;
    const std::string fault = "fault " + camera.state("").string();
    EXPECT_EQ(vcam(fault + " 'umount 1 1 powercut-after' 'mtd1 write 0 -1 EIO'").text, "");
    const Outcome run =
        camera.run({"sh", "-c", "umount /etc; mount -t jffs2 /dev/mtdblock3 /etc; umount /etc; sleep 9"});
    EXPECT_EQ(run.status, 121);
    EXPECT_EQ(run.ending, "powercut");
    EXPECT_THAT(run.err, HasSubstr("vcam: the power was cut by the fault: umount 1 1 powercut-after\n"));
    EXPECT_EQ(vcam(fault).text, "umount 1 1 powercut-after             matched 2, hit 1, 0 left\n"
                                "mtd1 write 0 -1 EIO                   matched 0, hit 0, for ever\n");
    camera.faults("mtd1 wirte 0 1 EIO\n");
    const Outcome refused = camera.run({"true"});
    EXPECT_EQ(refused.status, 125);
    EXPECT_THAT(refused.err,
                HasSubstr("mtd1 wirte 0 1 EIO: wirte is no operation of mtd1; there are badblock, erase"));
}

TEST(Vcam, LogsAreReadByPeopleProgramsAndWhileTheyGrow)
{
    Camera camera;
    const std::string folder = camera.state("").string();
    camera.run({"sh", "-c",
                "logger -p user.alert -t cam 'two\nlines'; logger -p local3.debug -t x 'y\xFF'; reboot"});
    EXPECT_THAT(vcam("log " + folder).text,
                MatchesRegex("[0-9.]+ user.alert cam: two\n +lines\n[0-9.]+ local3.debug x: y.*\n"));
    EXPECT_THAT(
        vcam("log --json " + folder).text,
        MatchesRegex("\\[\\{\"time\":[0-9.]+,\"facility\":\"user\",\"level\":\"alert\",\"text\":\"cam: "
                     "two\\\\nlines\"\\},.*\\]\n"));
    EXPECT_THAT(vcam("journal --json --source system " + folder).text, StartsWith("["));
    EXPECT_THAT(vcam("diff --json " + folder).text, HasSubstr("\"ending\":\"reboot\"}"));
    vcam("fault " + folder + " 'mtd1 write 3 1 EIO'");
    EXPECT_EQ(vcam("fault --json " + folder).text, "[\"mtd1 write 3 1 EIO\"]\n");
    EXPECT_THAT(vcam("run " + folder + " -- sh -c 'busybox kill -36 1; sleep 9'").text,
                HasSubstr("vcam: the camera ended by a power cut\n"));
    const std::string line = std::string(VCAM) + " run --realtime " + folder +
                             " -- sh -c 'sleep 1; logger -t late word' & sleep 0.5; timeout 20 " + VCAM +
                             " log -f " + folder + " | grep -c 'late: word'; wait";
    EXPECT_EQ(say(line).text, "1\n");
}
