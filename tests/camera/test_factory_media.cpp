// The storage tests on media of every kind, and the packets to the system manager.
#include "tests/support/camera.hpp"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

#define MOMENTS_LIBRARY "LD_PRELOAD=/run/bin/libcamera_moments.so:$LD_PRELOAD "

// Goes on once the test has written the first bytes of its file, whose name is then $1.
const std::string kAsItWrites = "until set -- /mnt/sd/.f*; [ -s \"$1\" ]; do :; done; ";

struct Media : testing::Test {
    Camera camera;

    Outcome with(const std::string& medium, const std::string& line)
    {
        return camera.run({"sh", "-c", line}, {"--medium", medium, "--bind", MOMENTS});
    }
};

} // namespace

TEST_F(Media, AGoodMediumPassesAndKeepsOnlyWhatItHeld)
{
    Outcome run = with("sd=16M", "echo photo > /mnt/sd/photo; test_sdcard -v; echo $?; ls -A /mnt/sd; cat "
                                 "/mnt/sd/photo");
    EXPECT_THAT(run.out,
                MatchesRegex("WRITE [0-9]+ KiB/s\nREAD [0-9]+ KiB/s\nsuccessful\n0\nphoto\nphoto\n"));
    EXPECT_EQ(with("usb=16M", "test_usb -m 12; test_sdcard").out, "successful\nfailed\n");
}

TEST_F(Media, WhatKeepsAFileFromBeingWrittenIsNamed)
{
    const struct {
        const char *medium, *line, *out;
    } kCases[] = {
        {"usb=8M", "test_sdcard -v", "/mnt/sd : nothing is mounted : failed\nfailed\n"},
        {"sd=8M,ro", "test_sdcard -v", "create : Read-only file system : failed\nfailed\n"},
        {"sd=3M", "test_sdcard -v", "/mnt/sd : 3145728 bytes free, 4194304 needed : failed\nfailed\n"},
        {"sd=3M", "test_sdcard", "failed\n"},
        {"sd=8M", "ulimit -f 1000; test_sdcard -v", "write : File too large : failed\nfailed\n"},
        // The whole time counts: a card that takes its time in fsync is too slow.
        {"sd=8M", "FSYNC_SECONDS=90 " MOMENTS_LIBRARY "test_sdcard -v",
         "write : too slow : failed\nfailed\n"},
    };
    for (const auto& c : kCases) {
        Outcome run = with(c.medium, c.line);
        EXPECT_EQ(run.out, c.out);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
    }
    EXPECT_EQ(with("sd=8M", "ulimit -f 1000; test_sdcard; ls -A /mnt/sd").out, "failed\n");
}

// A power cut leaves the file: it costs the next run neither its verdict nor its room.
TEST_F(Media, WhatAnEarlierRunLeftIsRemoved)
{
    EXPECT_EQ(with("sd=5M",
                   "cd /mnt/sd; head -c 2000000 /dev/zero > .factory_test; echo mine > .factory_test_x; "
                   "head -c 2000000 /dev/zero > .factory_test_17; test_sdcard; ls -A")
                  .out,
              "successful\n.factory_test_x\n");
}

// The medium keeps what it was told to remove.
TEST_F(Media, AFileThatStaysFails)
{
    camera.faults("unlink test_sdcard 0 9 EIO\n");
    Outcome run = with("sd=8M", "test_sdcard");
    EXPECT_EQ(run.out, "failed\n");
    EXPECT_EQ(run.err, "/mnt/sd/.factory_test stays : Input/output error\n");
}

// One byte changes behind the test's back after it was written.
TEST_F(Media, AByteThatDoesNotComeBackFails)
{
    Outcome run =
        with("sd=80M", "test_sdcard -v -m 64 & " + kAsItWrites + "printf Z 1<> $1; wait; ls -A /mnt/sd");
    EXPECT_THAT(
        run.out,
        MatchesRegex("WRITE [0-9]+ KiB/s\ncompare : difference in the 64 KiB at 0 : failed\nfailed\n"));
}

TEST_F(Media, OptionsAreWholeNumbersInRange)
{
    for (const char* words :
         {"-m", "-m 0", "-m 1025", "-m 4M", "-m -1", "-m 99999999999999999999", "-x", "/dev/sda"}) {
        Outcome run = with("sd=8M", std::string("test_sdcard ") + words);
        EXPECT_EQ(run.out, "failed\n") << words;
        EXPECT_THAT(run.err,
                    testing::EndsWith("usage: test_sdcard [-v] [-m MiB]\n"
                                      "    tests the medium mounted on /mnt/sd with a file of 4 MiB\n"));
        EXPECT_EQ(run.status, 0);
    }
    EXPECT_EQ(camera.run({"true"}, {"--medium", "cf=1M"}).err,
              "vcam: run: --medium cf=1M: write it as sd=16M, usb=64M or sd=16M,ro; see: vcam run --help\n");
    EXPECT_EQ(camera.run({"true"}, {"--medium", "sd=1M,rw"}).status, 2);
}

namespace {

struct SendWatchdog : testing::Test {
    Camera camera;

    // Verdict and, one a line as hex, what the system manager's port got.
    Outcome sent(const std::string& words)
    {
        return camera.run({"sh", "-c",
                           "/run/bin/camera_helper listen 4100 /tmp/sent test_send_watchdog " + words +
                               "; echo = $?; cat /tmp/sent"},
                          {"--bind", HELPER});
    }
};

} // namespace

TEST_F(SendWatchdog, SendsBothCommandsOrTheOneThatIsNamed)
{
    const std::string head = "53595350"
                             "00000000",
                      stop = head + "57445350\n", restart = head + "57445253\n";
    EXPECT_EQ(sent("").out, "successful\n= 0\n" + stop + restart);
    EXPECT_EQ(sent("stop").out, "successful\n= 0\n" + stop);
    EXPECT_EQ(sent("-v restart").out, "RESTART 0x53524457 : successful\nsuccessful\n= 0\n" + restart);
    EXPECT_EQ(sent("-s 0x01020304 -r 5 -n 2 -i 60000").out, "successful\n= 0\n" + head + "04030201\n" + head +
                                                                "05000000\n" + head + "04030201\n" + head +
                                                                "05000000\n");
}

TEST_F(SendWatchdog, RefusesWhatIsNoCommandAndSendsNothing)
{
    for (const char* words : {"halt", "stop restart", "-s", "-s 4294967296", "-s WDSP", "-n 0", "-n 1001",
                              "-i -1", "-i 60001", "-q"}) {
        Outcome run = sent(words);
        EXPECT_EQ(run.out, "failed\n= 0\n") << words;
        EXPECT_THAT(run.err, HasSubstr("usage: test_send_watchdog [-v]"));
    }
}

// The packet has no answer, so a port that nobody listens on is no failure; no socket is one. Without a
// standard input the socket gets its number, which counts as none.
TEST_F(SendWatchdog, TheVerdictIsOfTheSendingAlone)
{
    EXPECT_EQ(camera.run({"test_send_watchdog", "stop"}).out, "successful\n");
    const std::string unreachable =
        "[CSYSMGR_SendPacket] : error while send message : Network is unreachable\n";
    EXPECT_EQ(
        camera
            .run({"sh", "-c", "SENDTO_ERRNO=101 " MOMENTS_LIBRARY "test_send_watchdog"}, {"--bind", MOMENTS})
            .out,
        unreachable + unreachable + "failed\n");
    EXPECT_EQ(camera.run({"sh", "-c", "test_send_watchdog -v stop <&-"}).out,
              "[CSYSMGR_SendPacket] local socket error. exit\nSTOP 0x50534457 : failed\nfailed\n");
}
