// fwpkg on images of mkimage and mkfs.jffs2: what it builds, shows, refuses and takes apart.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <string>
#include <sys/wait.h>

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct Outcome {
    int status;
    std::string output; // both streams
};

Outcome run(const std::string& command)
{
    Outcome outcome{-1, ""};
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    char piece[4096];
    while (size_t n = fread(piece, 1, sizeof piece, pipe)) outcome.output.append(piece, n);
    int status = pclose(pipe);
    if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
    return outcome;
}

std::string read_file(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void write_file(const fs::path& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

class Fwpkg : public testing::Test {
protected:
    // A folder with the images of a small camera.
    Fwpkg()
    {
        char name[] = "/tmp/fwpkg-test.XXXXXX";
        dir = mkdtemp(name);
        fs::create_directories(dir / "etc/network");
        write_file(dir / "etc/system.conf", "name=camera\n");
        write_file(dir / "vmlinux", std::string(70001, 'k'));
        write_file(dir / "rootfs", std::string(5000, 'r'));
        EXPECT_EQ(
            shell("mkimage -A arm -O linux -T kernel -C none -n 'test \"kernel\"' -d vmlinux uImage").status,
            0);
        EXPECT_EQ(shell("PATH=$PATH:/usr/sbin mkfs.jffs2 -q -e 0x10000 -p -d etc -o jffs2").status, 0);
    }
    ~Fwpkg() override { fs::remove_all(dir); }

    [[nodiscard]] Outcome shell(const std::string& line) const
    {
        return run("cd " + dir.string() + " && { " + line + "; }");
    }
    [[nodiscard]] Outcome fwpkg(const std::string& arguments) const { return shell(FWPKG " " + arguments); }

    fs::path dir;
};

} // namespace

TEST_F(Fwpkg, BuildsTheSamePackageEveryTimeAndTakesItApartAgain)
{
    for (std::string version : {"1", "3"}) {
        std::string build = " --page-size 1 --version " + version + " uImage rootfs jffs2";
        ASSERT_EQ(fwpkg("build -o one" + build).output, "");
        ASSERT_EQ(fwpkg("build -o two" + build).status, 0);
        EXPECT_EQ(read_file(dir / "one"), read_file(dir / "two"));
        EXPECT_EQ(fs::file_size(dir / "one"), (version == "1" ? 20 : 64) + 70065 + 5000 + 65536);
        EXPECT_EQ(fwpkg("check --version " + version + " one").status, 0);

        ASSERT_EQ(fwpkg("extract --force -d out one").status, 0);
        EXPECT_EQ(read_file(dir / "out/flash1.img"), read_file(dir / "uImage"));
        EXPECT_EQ(read_file(dir / "out/flash2.img"), read_file(dir / "rootfs"));
        EXPECT_EQ(read_file(dir / "out/flash3.img"), read_file(dir / "jffs2"));
    }
}

TEST_F(Fwpkg, PadsEachImageWithErasedBytesToWholePages)
{
    for (auto [option, page] : {std::pair<const char*, size_t>{"", 512}, {"--page-size 2048", 2048}}) {
        ASSERT_EQ(fwpkg(std::string("build -o nand ") + option + " uImage rootfs jffs2").status, 0);
        EXPECT_EQ(fwpkg("check nand").status, 0);
        ASSERT_EQ(fwpkg("extract --force -d out nand").status, 0);
        EXPECT_EQ(read_file(dir / "out/flash2.img"),
                  std::string(5000, 'r') + std::string(page - 5000 % page, '\xFF'));
        EXPECT_EQ(fs::file_size(dir / "out/flash1.img") % page, 0u);
        EXPECT_EQ(read_file(dir / "out/flash3.img"), read_file(dir / "jffs2")); // whole pages already
    }
    EXPECT_EQ(fwpkg("build -o x --page-size 1000 uImage rootfs jffs2").status, 2);
}

TEST_F(Fwpkg, RefusalsNamePlaceFoundAndExpected)
{
    ASSERT_EQ(fwpkg("build -o good --page-size 1 uImage rootfs jffs2").status, 0);
    std::string good = read_file(dir / "good");
    auto refusal = [&](size_t at, const std::string& bytes, const std::string& options = "") {
        write_file(dir / "bad", std::string(good).replace(at, bytes.size(), bytes));
        Outcome outcome = fwpkg("check " + options + " bad");
        EXPECT_EQ(outcome.status, 1) << outcome.output;
        EXPECT_THAT(outcome.output, EndsWith("\nbad: root file system: no checksum in this format\n"));
        return outcome.output.substr(0, outcome.output.find('\n') + 1);
    };
    EXPECT_EQ(refusal(0, "OEM1"),
              "bad: refused: marker at offset 0 (0x0): found \"OEM1\" (0x314d454f), expected \"3510\" "
              "(0x30313533)\n");
    EXPECT_EQ(refusal(4, "\x03"), "bad: refused: version at offset 4 (0x4): found 3, expected 1\n");
    EXPECT_EQ(refusal(8, "\x01", "--any-marker"),
              "bad: refused: file size against header and image sizes at offset 8 (0x8): found 140621 bytes, "
              "expected 140445 bytes\n");
    EXPECT_THAT(refusal(20, "X"),
                HasSubstr("kernel image magic at offset 20 (0x14): found 0x58051956, expected 0x27051956"));
    EXPECT_THAT(refusal(20 + 33, "X"), HasSubstr("kernel image header CRC at offset 24 (0x18): found 0x"));
    // The header's sum is what the data should have.
    const std::string sum = fwpkg("info good").output;
    EXPECT_THAT(refusal(20 + 64 + 9, "X"),
                EndsWith("expected " + sum.substr(sum.find("bytes, CRC-32 ") + 14, 10) + "\n"));
    EXPECT_THAT(
        refusal(20 + 70065 + 5000, "X"),
        HasSubstr(
            "JFFS2 node magic at an erase block at offset 75085 (0x1254d): found 0x1958, expected 0x1985"));
}

TEST_F(Fwpkg, ShowsTheDevicesOwnLogLinesWhenAsked)
{
    ASSERT_EQ(fwpkg("build -o good --page-size 1 --marker OEM1 uImage rootfs jffs2").status, 0);
    EXPECT_EQ(fwpkg("check --log --marker OEM1-and-more good").output,
              "device log: CHECK MAGIC_NUMBER : 314d454f vs 314d454f\n"
              "device log: CHECK VERSION : 1 vs 1\n"
              "good: good: version 1, marker \"OEM1\", 140621 bytes\n"
              "good: root file system: no checksum in this format\n");
}

TEST_F(Fwpkg, BuildsNothingThatADeviceWouldRefuseUnlessForced)
{
    Outcome outcome = fwpkg("build -o bad --page-size 1 rootfs rootfs jffs2");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, HasSubstr("a device would refuse it: kernel image magic at offset 20"));
    EXPECT_FALSE(fs::exists(dir / "bad"));
    EXPECT_EQ(fwpkg("build --page-size 1 --force -o bad rootfs rootfs jffs2").status, 0);
    EXPECT_EQ(fs::file_size(dir / "bad"), 20u + 5000 + 5000 + 65536);
    for (auto& entry : fs::directory_iterator(dir))
        EXPECT_THAT(entry.path().filename().string(), testing::Not(StartsWith("bad."))) << "left behind";
}

// Python's parser is the judge of the JSON; the image name holds quotes on purpose.
TEST_F(Fwpkg, InfoAsJsonCanBeReadByOthers)
{
    ASSERT_EQ(fwpkg("build -o good --page-size 1 uImage rootfs jffs2").status, 0);
    Outcome outcome =
        shell(FWPKG " info --json good | python3 -c '"
                    "import json, sys, zlib; p = json.load(sys.stdin); raw = open(\"good\", \"rb\").read()\n"
                    "print(p[\"marker\"], p[\"version\"], p[\"kernel\"][\"name\"], p[\"sizes_good\"])\n"
                    "for i in p[\"images\"]:\n"
                    "  part = raw[i[\"offset\"]:i[\"offset\"] + i[\"bytes\"]]\n"
                    "  print(i[\"partition\"], len(part), int(i[\"crc32\"], 16) == zlib.crc32(part))'");
    EXPECT_EQ(outcome.output, "3510 1 test \"kernel\" True\n"
                              "/dev/mtd1 70065 True\n/dev/mtd2 5000 True\n/dev/mtd3 65536 True\n");
    EXPECT_THAT(fwpkg("info good").output, HasSubstr("architecture  2 (ARM)"));
}

// What a device does not ask, but somebody with a package to send would.
TEST_F(Fwpkg, ChecksThatImagesAreThereAndFitTheFlash)
{
    ASSERT_EQ(fwpkg("build -o good uImage rootfs jffs2").status, 0);
    write_file(dir / "flash", "mtd1=1M\nmtd2=nor,512K,64K,1\nmtd3=65536\n");
    EXPECT_THAT(fwpkg("check --against flash good").output,
                HasSubstr("good: root file system: 5120 of 524288 bytes of /dev/mtd2, 1 erase blocks\n"));
    write_file(dir / "small", "mtd1=64K\nmtd2=512K\nmtd3=64K\n");
    const Outcome small = fwpkg("check --against small good");
    EXPECT_EQ(small.status, 1);
    EXPECT_THAT(small.output,
                StartsWith("good: refused: kernel image of 70144 bytes does not fit /dev/mtd1 of "
                           "65536 bytes in small\n"));
    write_file(dir / "wrong", "mtd1=1M\nmtd2=big\n");
    EXPECT_EQ(fwpkg("check --against wrong good").output,
              "fwpkg: wrong: 'mtd2=big' names no size; write mtd1=3M\n");

    write_file(dir / "empty", "");
    ASSERT_EQ(fwpkg("build --allow-empty -o hollow uImage empty jffs2").status, 0);
    EXPECT_THAT(fwpkg("check hollow").output, StartsWith("hollow: refused: root file system image is empty"));
    EXPECT_EQ(fwpkg("check --allow-empty hollow").status, 0);
    ASSERT_EQ(shell("head -c 71000 good > short").status, 0);
    EXPECT_THAT(fwpkg("info short").output, HasSubstr("cut short   /dev/mtd2"));
    EXPECT_EQ(shell(FWPKG " info --json short | python3 -c 'import json, sys\n"
                          "print([i[\"crc32\"] is None for i in json.load(sys.stdin)[\"images\"]])'")
                  .output,
              "[False, True, True]\n");
    EXPECT_EQ(shell(FWPKG " check --json short | python3 -c 'import json, sys\n"
                          "p = json.load(sys.stdin); print(p[\"good\"], p[\"finding\"][\"offset\"])'")
                  .output,
              "False 8\n");
}

// What stands at an output's name, and what becomes of it.
TEST_F(Fwpkg, AnOutputHarmsNothingThatIsNotItsOwnToReplace)
{
    const std::string build = "build --page-size 1 ", images = " uImage rootfs jffs2";
    ASSERT_EQ(fwpkg(build + "-o good" + images).status, 0);
    const std::string good = read_file(dir / "good"), kernel = read_file(dir / "uImage");
    write_file(dir / "mine", "mine");
    write_file(dir / "empty", "");
    EXPECT_EQ(
        shell(
            "ln -s good link; ln -s uImage kernel; ln -s nowhere/x broken; mkdir folder; mkfifo pipe; chmod "
            "640 good")
            .status,
        0);
    struct {
        std::string output;
        int status;
        const char* says;
    } const kOutputs[] = {
        {"good", 0, ""},
        {"link", 0, ""},
        {"empty", 0, ""},
        {"mine", 2,
         "fwpkg: mine: exists and is not a firmware package; name another file, or replace it with "
         "--force\n"},
        {"uImage", 2, "fwpkg: uImage: exists and is not a firmware package"},
        {"uImage --force", 2, "fwpkg: uImage: is read for this output; name another file\n"},
        {"kernel --force", 2, "fwpkg: kernel: is read for this output"},
        {"folder", 2, "fwpkg: folder: is a folder; name a file in it\n"},
        {"folder/", 2, "fwpkg: folder/: is a folder"},
        {"fresh/", 2, "fwpkg: fresh/: is no folder; name a file\n"},
        {"nowhere/x", 2, "fwpkg: nowhere/x: there is no folder nowhere; make it first\n"},
        {"broken", 2, "fwpkg: broken: there is no folder"},
        {"mine/x", 2, "fwpkg: mine/x: cannot be written: Not a directory\n"},
        {"''", 2, "fwpkg: build: missing -o PACKAGE"},
        {"mine --force", 0, ""},
    };
    for (const auto& output : kOutputs) {
        const Outcome outcome = fwpkg(build + "-o " + output.output + images);
        EXPECT_EQ(outcome.status, output.status) << output.output;
        EXPECT_THAT(outcome.output, StartsWith(output.says));
        EXPECT_EQ(outcome.output.empty(), output.status == 0) << outcome.output;
    }
    EXPECT_EQ(read_file(dir / "uImage"), kernel);
    for (const char* written : {"good", "empty", "mine"})
        EXPECT_TRUE(read_file(dir / written) == good) << written;
    EXPECT_TRUE(fs::is_symlink(dir / "link"));
    EXPECT_EQ(fs::status(dir / "good").permissions(), fs::perms(0640));
    // Streams: all bytes, and the name stays what it was.
    for (const char* line :
         {FWPKG " build --page-size 1 -o /dev/stdout uImage rootfs jffs2 | cmp - good",
          FWPKG " build --page-size 1 -o /dev/stdout uImage rootfs jffs2 > out && cmp out good",
          "(echo x; " FWPKG " build --page-size 1 -o /dev/fd/3 uImage rootfs jffs2 3>&1) > out;"
          "(echo x; cat good) | cmp - out",
          "(timeout 10 cat pipe | cmp - good) & timeout 10 " FWPKG
          " build --page-size 1 -o pipe uImage rootfs jffs2; wait $!",
          // A package that a device refuses does not reach the stream.
          FWPKG " build -o /dev/stdout rootfs rootfs jffs2 2> out | cmp - empty-file"})
        EXPECT_EQ((write_file(dir / "empty-file", ""), shell(line).output), "") << line;
    EXPECT_TRUE(fs::is_fifo(dir / "pipe"));
    for (auto& entry : fs::directory_iterator(dir))
        EXPECT_THAT(entry.path().filename().string(), testing::Not(StartsWith("."))) << "left behind";
}

TEST_F(Fwpkg, AFullStorageLeavesNothingAndIsSaidOfTheOutput)
{
    const Outcome limited = shell("ulimit -f 100; " FWPKG " build -o big uImage rootfs jffs2");
    EXPECT_EQ(limited.output, "fwpkg: big: cannot be written: File too large\n");
    EXPECT_EQ(limited.status, 2);
    ASSERT_EQ(fwpkg("build -o good uImage rootfs jffs2").status, 0);
    EXPECT_EQ(shell("ulimit -f 10; " FWPKG " extract -d out good").output,
              "fwpkg: out/flash1.img: cannot be written: File too large\n");
    EXPECT_TRUE(fs::is_empty(dir / "out"));
    const Outcome full = shell("unshare -rm sh -c 'mount -t tmpfs -o size=64k none out && cd out && " FWPKG
                               " build -o big ../uImage ../rootfs ../jffs2; echo $?; ls -A'");
    if (full.output.find("big") == std::string::npos) GTEST_SKIP() << "no namespace: " << full.output;
    EXPECT_EQ(full.output, "fwpkg: big: cannot be written: No space left on device\n2\n");
}

// A node of the kernel's full device, made in the test's own folder: as root the host's is not risked.
TEST_F(Fwpkg, ADeviceNodeIsWrittenIntoAndNeverReplaced)
{
    if (shell("mknod full c 1 7 && test -w full && ! echo x > full").status != 0 || !fs::exists(dir / "full"))
        GTEST_SKIP() << "no device node can be made here";
    for (const char* force : {"", "--force "}) {
        const Outcome outcome = fwpkg(std::string("build -o full ") + force + "uImage rootfs jffs2");
        EXPECT_EQ(outcome.output, "fwpkg: full: cannot be written: No space left on device\n");
        EXPECT_EQ(outcome.status, 2);
        EXPECT_TRUE(fs::is_character_file(dir / "full"));
    }
}

TEST_F(Fwpkg, ExtractReplacesNothingUnlessForced)
{
    ASSERT_EQ(fwpkg("build -o good --page-size 1 uImage rootfs jffs2").status, 0);
    write_file(dir / "flash2.img", "mine");
    EXPECT_EQ(fwpkg("extract good").status, 2);
    EXPECT_EQ(read_file(dir / "flash2.img"), "mine");
    EXPECT_FALSE(fs::exists(dir / "flash1.img")) << "all outputs are looked at before one is written";
    EXPECT_EQ(fwpkg("extract --force good").status, 0);
    EXPECT_EQ(read_file(dir / "flash2.img"), read_file(dir / "rootfs"));
    fs::rename(dir / "good", dir / "flash3.img");
    EXPECT_EQ(fwpkg("extract --force flash3.img").output,
              "fwpkg: ./flash3.img: is read for this output; name another file\n");
}
