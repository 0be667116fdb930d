// One signal policy for all factory tests: at every moment of a test each signal leaves the board as it was, prints
// no verdict and ends the process; an ignored one changes nothing; one test at a time has the board.
#include "tests/support/factory_board.hpp"

#include <gmock/gmock.h>

using testing::EndsWith;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

struct Signals : Board {
    Signals() : Board("ZM131")
    {
        write_file(camera.state("plugs"), "ttyAMA1 loopback\nttyAMA2 loopback\n");
        pins("4.0 wire 5.0\n4.1 wire 5.1\n4.6 wire 6.4\n4.7 wire 8.2\n8.1 level 1\n");
    }
    Outcome inside(const std::string& line)
    {
        return camera.run({"sh", "-c", line},
                          {"--medium", "sd=4M", "--bind", SWEEP, "--bind", MOMENTS, "--timeout", "3600"});
    }
};

// Each second line an output, some high, pins switched to other functions, settings that no test uses.
const std::string kDisturb =
    "for b in 0x2019 0x201A 0x201B 0x2020 0x2021; do reg -s ${b}0400 0x55; reg -s ${b}03FC 0x14; done; "
    "for p in 060 064 080 0B0 0E4 114 118; do reg -s 0x200F0$p 0x12; done; "
    "for t in 1 2; do /usr/bin/stty -F /dev/ttyAMA$t 57600 min 7 cstopb; done; echo photo > /mnt/sd/photo; "
    "echo 'led=status:9.1,network:9.2' > /etc/factory_io.conf; ulimit -c 0; ";
const std::string kSweep = "/run/bin/camera_sweep ";

} // namespace

TEST_F(Signals, AtEveryMomentLeaveTheBoardAsItWasAndNoVerdict)
{
    const struct {
        const char *state, *test;
        int stride, least; // moments
        const char* verdict;
    } kTests[] = {
        {"gpio", "test_dio -n 1", 7, 30, "successful\n"},
        {"gpio", "test_led -n 1 -t 20", 1, 40, "successful\n"},
        {"gpio", "test_key -t 1", 11, 10, "failed\n"},
        {"rtc", "test_rtc", 17, 20, "successful\n"},
        {"/dev/ttyAMA1", "test_rs485", 397, 10, "successful\n"},
        {"/dev/ttyAMA2", "test_rs232", 31, 15, "successful\n"},
        {"/dev/ttyAMA2", "get_cb_cam_info", 1, 10, "VERSION=00\nMODEL=Unknown 00\nRESOLUTION=\n"},
        {"/mnt/sd", "test_sdcard -m 1", 1, 30, "successful\n"},
    };
    for (const auto& t : kTests) {
        const Outcome run =
            inside(kDisturb + kSweep + t.state + " 1 " + std::to_string(t.stride) + " " + t.test);
        int moments = 0;
        EXPECT_EQ(sscanf(run.out.c_str(), "%d moments", &moments), 1) << run.err;
        EXPECT_GE(moments, t.least) << t.test;
        EXPECT_EQ(run.out, std::to_string(moments) + " moments, then " + t.verdict) << t.test;
    }
}

TEST_F(Signals, AReaderThatGoesAwayLeavesTheBoardAsItWas)
{
    for (const auto& [state, line] : {std::pair{"gpio", "test_dio -v -n 1000"},
                                      {"gpio", "test_led -v -t 20 -n 500"},
                                      {"rtc", "test_rtc -v"},
                                      {"/dev/ttyAMA1", "test_rs485 -v"},
                                      {"/dev/ttyAMA2", "test_rs232 -v"}}) {
        const Outcome run =
            inside(kDisturb + kSweep + state + " 1000000 1 sh -c '" + line + " | head -n 1 > /dev/null'");
        EXPECT_EQ(run.out, "0 moments, then ") << line;
        EXPECT_FALSE(run.of("hi3516_reg").size() > 2000) << line << ": and ends soon";
    }
}

TEST_F(Signals, ThatTheCallerIgnoresStayIgnored)
{
    for (const char* test :
         {"test_dio -n 1", "test_led -n 1 -t 20", "test_rtc", "test_rs232", "test_sdcard -m 1"}) {
        const Outcome run =
            inside("trap '' INT TERM HUP QUIT PIPE; for s in 1 2 3 13 15; do SIGNAL=$s MOMENT=12 "
                   "LD_PRELOAD=/run/bin/libcamera_moments.so:$LD_PRELOAD " +
                   std::string(test) + "; done");
        EXPECT_EQ(run.out, "successful\nsuccessful\nsuccessful\nsuccessful\nsuccessful\n") << test;
    }
}

// Restart follows stop although the signal came between them.
TEST_F(Signals, BetweenStopAndRestartLeaveTheFeedingOn)
{
    const Outcome run =
        camera.run({"sh", "-c",
                    "/run/bin/camera_helper listen 4100 /tmp/sent env SIGNAL=15 MOMENT=2 "
                    "LD_PRELOAD=/run/bin/libcamera_moments.so:$LD_PRELOAD test_send_watchdog -n 9; "
                    "grep -c . /tmp/sent"},
                   {"--bind", HELPER, "--bind", MOMENTS});
    EXPECT_EQ(run.out, "2\n");
}

// The first one has the board for the rest of the run.
TEST_F(Signals, OfTwoInstancesTheSecondNamesTheFirst)
{
    const struct {
        const char *first, *second;
        bool serial;
    } kPairs[] = {
        {"test_dio -n 1000", "test_dio", false},    {"test_led -n 1000", "test_led power on", false},
        {"test_key -t 100", "test_key", false},     {"test_rtc", "test_rtc -n", false},
        {"test_sdcard -m 3", "test_sdcard", false}, {"test_rs485", "test_rs485", true},
        {"get_cb_cam_info", "test_rs232", true},    {"test_rs232", "get_cb_cam_info", true},
    };
    for (const auto& pair : kPairs) {
        // The first stops at a call far behind its claim, until the second has ended.
        const Outcome run =
            inside("SIGNAL=19 MOMENT=15 LD_PRELOAD=/run/bin/libcamera_moments.so:$LD_PRELOAD " +
                   std::string(pair.first) + " > /dev/null 2>&1 & p=$!; " +
                   "until grep -q '^State:.*T' /proc/$p/status; do sleep 0.1; done; echo $p; " + pair.second +
                   "; echo $?; kill -KILL $p; kill -CONT $p");
        EXPECT_THAT(run.out, MatchesRegex("[0-9]+\n255\n")) << pair.second;
        const std::string first = std::string(pair.first).substr(0, std::string(pair.first).find(' '));
        const std::string second = std::string(pair.second).substr(0, std::string(pair.second).find(' '));
        const std::string who =
            second + ": process " + run.out.substr(0, run.out.find('\n')) + " (" + first + ") has the board";
        EXPECT_THAT(run.err, StartsWith(who + "\n"));
        EXPECT_EQ(run.err.find("device open fail !!!\n") != std::string::npos, pair.serial) << run.err;
        ASSERT_FALSE(run.log.empty());
        EXPECT_THAT(run.log[0], EndsWith(who));
    }
}
