// Factory tests of digital lines, LEDs and key; good boards, faulty ones, and that
// nothing stays changed.
#include "tests/support/factory_board.hpp"

#include <gmock/gmock.h>

using testing::ElementsAreArray;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr char kPlugs[] = "4.0 wire 5.0\n4.1 wire 5.1\n4.6 wire 6.4\n4.7 wire 8.2\n";

struct Dio : Board {};

} // namespace

TEST_F(Dio, APlugPassesAndEveryLineIsAsBefore)
{
    pins(kPlugs);
    disturb();
    const auto before = registers();
    EXPECT_EQ(before.at("0x20210400"), 0x55u);
    EXPECT_EQ(before.at("0x202103FC"), 0x14u);
    EXPECT_EQ(run("test_dio").out, kPassed);
    EXPECT_EQ(registers(), before);
    EXPECT_EQ(run("test_dio -v -n 1").out,
              "OUT 0x0000 => IN 0x0000 : successful\nOUT 0x000F => IN 0x000F : successful\n"
              "OUT 0x0001 => IN 0x0001 : successful\nOUT 0x000E => IN 0x000E : successful\n"
              "OUT 0x0002 => IN 0x0002 : successful\nOUT 0x000D => IN 0x000D : successful\n"
              "OUT 0x0004 => IN 0x0004 : successful\nOUT 0x000B => IN 0x000B : successful\n"
              "OUT 0x0008 => IN 0x0008 : successful\nOUT 0x0007 => IN 0x0007 : successful\nsuccessful\n");
    EXPECT_EQ(registers(), before);
}

TEST_F(Dio, EveryFaultOfTheWiringShows)
{
    disturb();
    const auto before = registers();
    const struct {
        const char* what;
        std::string plan;
    } cases[] = {
        {"no plug", ""},
        {"one wire open", "4.0 wire 5.0\n4.1 wire 5.1\n4.6 wire 6.4\n"},
        {"swapped", "4.0 wire 5.1\n4.1 wire 5.0\n4.6 wire 6.4\n4.7 wire 8.2\n"},
        {"stuck low", std::string(kPlugs) + "4.7 stuck 0\n"},
        {"stuck high", std::string(kPlugs) + "4.1 stuck 1\n"},
        {"bridged", std::string(kPlugs) + "5.0 wire 5.1\n"},
        {"bridged inputs", std::string(kPlugs) + "4.6 wire 4.7\n"},
    };
    for (const auto& c : cases) {
        pins(c.plan);
        Outcome failed = run("test_dio -v");
        EXPECT_THAT(failed.out, EndsWith(" : failed\nfailed\n")) << c.what;
        EXPECT_EQ(failed.status, 0) << c.what;
        EXPECT_EQ(registers(), before) << c.what;
    }
}

TEST_F(Dio, ReadsTheInputsOut)
{
    pins("4.1 level 1\n4.7 level 1\n");
    disturb();
    const auto before = registers();
    EXPECT_EQ(run("test_dio -r").out, "4.0=0\n4.1=1\n4.6=0\n4.7=1\nsuccessful\n");
    EXPECT_EQ(registers(), before);
    camera.faults("hi3516_reg read 12 -1 EIO\n"); // after four lines have been saved
    EXPECT_THAT(run("test_dio -r").out, EndsWith(kFailed));
}

TEST_F(Dio, LinesComeFromTheModelOrTheConfiguration)
{
    Outcome other = run("echo cam_model=ZM146 > /etc/cam_model.conf; test_dio; test_dio -r");
    EXPECT_EQ(other.out, "failed\nfailed\n");
    EXPECT_EQ(other.err, "test_dio: 0 outputs and 0 inputs are known; name pairs in /etc/factory_io.conf\n");
    pins("1.0 wire 2.7\n");
    EXPECT_EQ(run("printf 'dio_out=1.0\\ndio_in=2.7\\n' > /etc/factory_io.conf; test_dio -n 1 -v").out,
              "OUT 0x0000 => IN 0x0000 : successful\nOUT 0x0001 => IN 0x0001 : successful\n"
              "OUT 0x0001 => IN 0x0001 : successful\nOUT 0x0000 => IN 0x0000 : successful\nsuccessful\n");
    other = run("printf 'dio_out=1.0,1.9\\n' > /etc/factory_io.conf; test_dio");
    EXPECT_EQ(other.out, kFailed);
    EXPECT_THAT(other.err, HasSubstr("dio_out=1.0,1.9 is not a list"));
    EXPECT_THAT(other.of("hi3516_reg"), IsEmpty());
}

TEST_F(Dio, ADriverThatFailsAndASignalLeaveTheLinesAsTheyWere)
{
    pins(kPlugs);
    disturb();
    const auto before = registers();
    for (const char* fault : {"hi3516_reg read 3 1 EIO\n", "hi3516_reg read 40 1 EIO\n",
                              "hi3516_reg set 6 10 EIO\n", "hi3516_reg clear 0 14 EIO\n"}) {
        camera.faults(fault);
        EXPECT_THAT(run("test_dio").out, EndsWith(kFailed)) << fault;
        EXPECT_EQ(registers(), before) << fault;
    }
    camera.faults("");
    EXPECT_EQ(interrupt("test_dio -n 1000").out, "143\n");
    EXPECT_EQ(registers(), before);
    camera.faults("hi3516_reg open 0 -1 ENOENT\n");
    Outcome absent = run("test_dio");
    EXPECT_EQ(absent.out, "Error : open_gpio can not open '/dev/hi3516_reg'\n");
    EXPECT_EQ(absent.status, 255);
}

TEST_F(Dio, WrongArgumentsChangeNothing)
{
    for (const char* arguments : {"-n 0", "-n 1001", "-n", "-n x", "-x", "word", "-n -1"}) {
        Outcome wrong = run(std::string("test_dio ") + arguments);
        EXPECT_EQ(wrong.out, kFailed) << arguments;
        EXPECT_THAT(wrong.err, HasSubstr("usage: test_dio [-v] [-r] [-n rounds]\n")) << arguments;
        EXPECT_THAT(wrong.of("hi3516_reg"), IsEmpty()) << arguments;
    }
}

namespace {

struct Leds : Board {
    // How the LEDs were driven: "9.0 on", in order.
    static Lines shown(const Outcome& run)
    {
        Lines found;
        for (const std::string& request : run.of("hi3516_reg"))
            for (int bit = 0; bit < 4; ++bit) {
                char on[64], off[64];
                snprintf(on, sizeof on, "set 0x202100%02X 0x%08X", 4 << bit, 1 << bit);
                snprintf(off, sizeof off, "clear 0x202100%02X 0x%08X", 4 << bit, 1 << bit);
                if (request == on) found.push_back(std::to_string(bit) + " on");
                if (request == off) found.push_back(std::to_string(bit) + " off");
            }
        return found;
    }
};

} // namespace

TEST_F(Leds, BlinkEachInTurnAndAreAsBefore)
{
    disturb(); // power (9.0) and network (9.2) are outputs, network is on
    const auto before = registers();
    Outcome blink = run("test_led -n 2 -t 100");
    EXPECT_EQ(blink.out, kPassed);
    EXPECT_THAT(shown(blink),
                ElementsAreArray({"0 on", "0 off", "0 on", "0 off", "0 off", // each comes back at its end
                                  "1 on", "1 off", "1 on", "1 off",          //
                                  "2 on", "2 off", "2 on", "2 off", "2 on",  //
                                  "3 on", "3 off", "3 on", "3 off"}));
    EXPECT_EQ(registers(), before);
}

TEST_F(Leds, AreChosenByNameOrNumber)
{
    EXPECT_EQ(run("test_led -v -n 1 record on").out, "LED 9.3 record on : successful\nsuccessful\n");
    EXPECT_EQ(run("test_led 2 off -v -n 2").out,
              "LED 9.1 status off : successful\nLED 9.1 status off : successful\nsuccessful\n");
    EXPECT_THAT(shown(run("test_led all on -n 1")), ElementsAreArray({"0 on", "1 on", "2 on", "3 on"}));
    for (const char* words : {"none", "0", "5", "power dim", "power on more", "-n 0", "-t 60001"}) {
        Outcome wrong = run(std::string("test_led ") + words);
        EXPECT_EQ(wrong.out, kFailed) << words;
        EXPECT_THAT(wrong.err, HasSubstr("usage: test_led")) << words;
        EXPECT_THAT(wrong.of("hi3516_reg"), IsEmpty()) << words;
    }
}

// A list that is cut may look whole: an LED that nobody tested would pass.
TEST_F(Leds, NamesMayBeLongAndTooLongAListIsRefused)
{
    std::string list(15, 'a');
    list += ":5.0";
    for (int i = 0; i < 9; ++i) list += "," + std::string(13, 'b') + ":5.0";
    auto with = [&](const std::string& leds) {
        write_file(camera.folder() / "lines", "led=" + leds + "\n");
        EXPECT_EQ(vcam("put " + camera.state("").string() + " " + (camera.folder() / "lines").string() +
                       " /etc/factory_io.conf")
                      .status,
                  0);
        return run("test_led -v -n 1 -t 1 last on");
    };
    EXPECT_EQ(with(list + ",last:5.1").out, "LED 5.1 last on : successful\nsuccessful\n");
    Outcome cut = with(list + "," + std::string(13, 'b') + ":5.0,last:5.1");
    EXPECT_EQ(cut.out, kFailed);
    EXPECT_THAT(cut.err, HasSubstr("more than 198 characters"));
}

TEST_F(Leds, HoldEachStateForTheTimeGiven)
{
    const double before = clock_ms();
    run("test_led power -n 2 -t 2000");
    EXPECT_NEAR(clock_ms() - before, 8000, 700);
}

TEST_F(Leds, ADriverThatFailsOrASignalLeavesThemAsTheyWere)
{
    disturb();
    const auto before = registers();
    for (const char* fault :
         {"hi3516_reg set 1 1 EIO\n", "hi3516_reg clear 2 1 EIO\n", "hi3516_reg read 4 1 EIO\n"}) {
        camera.faults(fault);
        EXPECT_EQ(run("test_led -t 100").out, kFailed) << fault;
        EXPECT_EQ(registers(), before) << fault;
    }
    camera.faults("");
    EXPECT_EQ(interrupt("test_led network -t 60000").out, "143\n");
    EXPECT_EQ(registers(), before);
    camera.faults("hi3516_reg open 0 -1 EACCES\n");
    EXPECT_EQ(run("test_led").status, 255);
}

namespace {

struct Key : Board {
    // Runs the test with presses at seconds from now on: "1 0.3 2" begins after a second, lasts 0.3 s and
    // bounces twice.
    Outcome press(const Lines& presses, const std::string& options = "")
    {
        std::string plan = "--clear '8.1 level 1'";
        for (const std::string& p : presses) plan += " '8.1 press +" + p + "'";
        EXPECT_EQ(vcam("pin " + camera.state("").string() + " " + plan).status, 0);
        return run("test_key " + options);
    }
    // The time that the test reports; -1 when it reports none.
    static int reported(const Outcome& run)
    {
        int ms = -1;
        sscanf(run.out.c_str(), "PRESSED %d ms", &ms);
        return ms;
    }
};

} // namespace

TEST_F(Key, APressIsTimedThroughItsBounces)
{
    disturb();
    const auto before = registers();
    for (const char* bounces : {"", " 1", " 5"}) {
        Outcome passed = press({"1 0.7" + std::string(bounces)});
        EXPECT_THAT(passed.out, EndsWith(" ms\nsuccessful\n")) << bounces;
        EXPECT_NEAR(reported(passed), 700, 45) << bounces;
        EXPECT_EQ(registers(), before);
    }
    EXPECT_THAT(press({"1 0.2", "3 5"}, "-v").out, StartsWith("KEY 8.1: press and release within 10 s\n"));
}

TEST_F(Key, WhatIsNoPressFailsAtTheLimit)
{
    const struct {
        const char* what;
        Lines presses;
        const char* options;
        double seconds;
    } cases[] = {
        {"nobody comes", {}, "", 10},          {"too late", {"2.5 0.3"}, "-t 2", 2},
        {"never released", {"1 100"}, "", 10}, {"hangs from the start", {"0 100"}, "-t 5", 5},
        {"a glitch", {"1 0.01"}, "-t 3", 3},   {"a contact that never closes", {"1 0.001 20"}, "-t 3", 3},
    };
    for (const auto& c : cases) {
        const double before = clock_ms();
        Outcome failed = press(c.presses, c.options);
        EXPECT_EQ(failed.out, kFailed) << c.what;
        EXPECT_EQ(failed.status, 0);
        EXPECT_NEAR(clock_ms() - before, c.seconds * 1000, 600) << c.what;
    }
}

TEST_F(Key, TheLineAndItsLevelComeFromTheConfiguration)
{
    EXPECT_EQ(vcam("pin " + camera.state("").string() + " --clear '2.5 press +1 0.4'").status, 0);
    EXPECT_THAT(run("printf 'key=2.5\\nkey_active=1\\n' > /etc/factory_io.conf; test_key").out,
                EndsWith("successful\n"));
    Outcome none = run("echo cam_model=ZM146 > /etc/cam_model.conf; rm /etc/factory_io.conf; test_key");
    EXPECT_EQ(none.out, kFailed);
    EXPECT_THAT(none.err, HasSubstr("no key line is known for this model"));
    none = run("printf 'key=2.5,2.6\\n' > /etc/factory_io.conf; test_key");
    EXPECT_EQ(none.out, kFailed);
    EXPECT_THAT(none.err, HasSubstr("several key lines are named"));
    EXPECT_THAT(run("echo key=restoredefaults:2.5 > /etc/factory_io.conf; test_key -v -t 1").out,
                StartsWith("KEY 2.5"));
}

TEST_F(Key, FailingDriverSignalAndArguments)
{
    disturb();
    const auto before = registers();
    camera.faults("hi3516_reg read 10 1 EIO\n");
    EXPECT_EQ(run("test_key").out, kFailed);
    EXPECT_EQ(registers(), before);
    camera.faults("");
    EXPECT_EQ(interrupt("test_key -t 3600").out, "143\n");
    EXPECT_EQ(registers(), before);
    for (const char* arguments : {"-t 0", "-t 3601", "-t", "word"})
        EXPECT_EQ(run(std::string("test_key ") + arguments).out, kFailed) << arguments;
    camera.faults("hi3516_reg open 0 -1 ENOENT\n");
    EXPECT_EQ(run("test_key").status, 255);
}
