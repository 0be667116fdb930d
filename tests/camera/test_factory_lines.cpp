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
}

TEST_F(Dio, AFileThatIsNotUnderstoodIsRefusedWithLineAndWord)
{
    const struct {
        const char *file, *message;
    } kFiles[] = {
        {"dio_out=1.0,1.9", "1: dio_out=1.0,1.9 is not a list of at most 16 lines such as 5.0,5.1"},
        {"# levels\n\nkey_active=high", "3: key_active=high is neither 0 nor 1"},
        {"key_active=2", "1: key_active=2 is neither 0 nor 1"},
        {"dio_in=4.0\ndio_ouy=5.0", "2: dio_ouy is not a setting"},
        {"dio_outputs=5.0", "1: dio_outputs is not a setting"},
        {"high", "1: high is not a setting"},
        {"dio_in=4.0=leds=9.0", "1: leds is not a setting"},
        {"# %0300d", "1: the line has more than 254 characters"},
    };
    for (const auto& f : kFiles) {
        Outcome refused = run(std::string("printf '") + f.file + "\\n' > /etc/factory_io.conf; test_dio -r");
        EXPECT_EQ(refused.out, kFailed) << f.file;
        EXPECT_EQ(refused.err, std::string("/etc/factory_io.conf:") + f.message + "\n");
        EXPECT_THAT(refused.log, testing::ElementsAre(HasSubstr(f.message)));
        EXPECT_THAT(refused.of("hi3516_reg"), IsEmpty());
    }
    Outcome unreadable = run(
        "rm -f /etc/factory_io.conf; mkdir /etc/factory_io.conf; test_dio -r; rmdir /etc/factory_io.conf");
    EXPECT_EQ(unreadable.out, kFailed);
    EXPECT_EQ(unreadable.err, "/etc/factory_io.conf: Is a directory\n");
    EXPECT_THAT(run("printf '[board]\n key_active = 1\r\n dio_in=\nled=#none\nkey_active=\n"
                    "dio_in=4.1=dio_out=5.1\n' > /etc/factory_io.conf; test_dio -r")
                    .out,
                "4.1=0\nsuccessful\n");
}

TEST_F(Dio, ADriverThatFailsLeavesTheLinesAsTheyWere)
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
    camera.faults("hi3516_reg clear 60 -1 EIO\n");
    Outcome stuck = run("test_dio");
    EXPECT_EQ(stuck.out, kFailed);
    EXPECT_THAT(stuck.err, HasSubstr("test_dio: line 5.0 could not be put back : Input/output error\n"));
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
                                  "1 on", "1 off", "1 on", "1 off", "1 off", //
                                  "2 on", "2 off", "2 on", "2 off", "2 on",  //
                                  "3 on", "3 off", "3 on", "3 off", "3 off"}));
    EXPECT_EQ(registers(), before);
}

TEST_F(Leds, AreChosenByNameOrNumber)
{
    EXPECT_EQ(run("test_led -v -n 1 record on").out, "LED 9.3 record on : successful\nsuccessful\n");
    EXPECT_EQ(run("test_led 2 off -v -n 2").out,
              "LED 9.1 status off : successful\nLED 9.1 status off : successful\nsuccessful\n");
    EXPECT_THAT(shown(run("test_led all on -n 1")),
                ElementsAreArray({"0 on", "0 off", "1 on", "1 off", "2 on", "2 off", "3 on", "3 off"}));
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
    EXPECT_GE(clock_ms() - before, 8000);
}

TEST_F(Leds, ADriverThatFailsLeavesThemAsTheyWere)
{
    disturb();
    const auto before = registers();
    for (const char* fault :
         {"hi3516_reg set 1 1 EIO\n", "hi3516_reg clear 2 1 EIO\n", "hi3516_reg read 4 1 EIO\n"}) {
        camera.faults(fault);
        EXPECT_EQ(run("test_led -t 100").out, kFailed) << fault;
        EXPECT_EQ(registers(), before) << fault;
    }
    camera.faults("hi3516_reg open 0 -1 EACCES\n");
    EXPECT_EQ(run("test_led").status, 255);
}

namespace {

struct Key : Board {
    // Runs the test while the driver shows a pressed key at these of its looks at the line, so that the host's
    // load plays no part. The first reads are those that save the line's state.
    struct Looks {
        int first, count;
    };
    Outcome press(const std::vector<Looks>& looks, const std::string& options = "")
    {
        std::string plan;
        for (const Looks& l : looks)
            plan += "hi3516_reg read " + std::to_string(3 + l.first) + " " + std::to_string(l.count) +
                    " word1=0\n";
        camera.faults(plan);
        return run("test_key " + options);
    }
};

} // namespace

TEST_F(Key, APressIsTimedThroughItsBounces)
{
    disturb();
    const auto before = registers();
    const struct {
        std::vector<Looks> looks;
        int looks_long; // at least 10 ms apart, but for one that ends a wait
    } kPresses[] = {
        {{{10, 70}}, 70},
        {{{10, 1}, {12, 1}, {14, 1}, {16, 60}}, 60},
        {{{10, 50}, {61, 1}, {63, 1}}, 54},
    };
    for (const auto& press : kPresses) {
        const double start = clock_ms();
        Outcome passed = this->press(press.looks, "-v");
        int ms = -1;
        EXPECT_EQ(sscanf(passed.out.c_str(), "PRESSED %d ms\nsuccess", &ms), 1) << passed.out;
        EXPECT_THAT(passed.out, EndsWith(" ms\nsuccessful\n"));
        EXPECT_GE(ms, (press.looks_long - 1) * 10);
        EXPECT_LT(ms, clock_ms() - start);
        EXPECT_EQ(registers(), before);
    }
    Outcome plain = press({{10, 20}});
    EXPECT_EQ(plain.out, kPassed) << "a script compares it";
    EXPECT_EQ(plain.err, "KEY 8.1: press and release within 10 s\n");
}

TEST_F(Key, WhatIsNotAPressFailsAtTheLimit)
{
    std::vector<Looks> open_and_closed;
    for (int look = 10; look < 150; look += 2) open_and_closed.push_back({look, 1});
    const struct {
        const char* what;
        std::vector<Looks> looks;
    } kCases[] = {
        {"nobody comes", {}},           {"too late", {{300, 20}}}, // two seconds have at most 200 looks
        {"never released", {{10, -1}}}, {"hangs from the start", {{0, -1}}},
        {"a glitch", {{10, 1}}},        {"a contact that never closes", open_and_closed},
    };
    for (const auto& c : kCases) {
        const double before = clock_ms();
        Outcome failed = press(c.looks, "-t 2");
        EXPECT_EQ(failed.out, kFailed) << c.what;
        EXPECT_EQ(failed.status, 0);
        EXPECT_GE(clock_ms() - before, 2000) << c.what;
    }
}

TEST_F(Key, TheLineAndItsLevelComeFromTheConfiguration)
{
    camera.faults("hi3516_reg read 12 50 word1=0x20\n");
    EXPECT_EQ(run("printf 'key=2.5\\nkey_active=1\\n' > /etc/factory_io.conf; test_key").out, kPassed);
    Outcome none = run("echo cam_model=ZM146 > /etc/cam_model.conf; rm /etc/factory_io.conf; test_key");
    EXPECT_EQ(none.out, kFailed);
    EXPECT_THAT(none.err, HasSubstr("no key line is known for this model"));
    none = run("printf 'key=2.5,2.6\\n' > /etc/factory_io.conf; test_key");
    EXPECT_EQ(none.out, kFailed);
    EXPECT_THAT(none.err, HasSubstr("several key lines are named"));
    EXPECT_THAT(run("echo key=restoredefaults:2.5 > /etc/factory_io.conf; test_key -t 1").err,
                StartsWith("KEY 2.5"));
}

TEST_F(Key, FailingDriverAndArguments)
{
    disturb();
    const auto before = registers();
    camera.faults("hi3516_reg read 10 1 EIO\n");
    EXPECT_EQ(run("test_key").out, kFailed);
    EXPECT_EQ(registers(), before);
    for (const char* arguments : {"-t 0", "-t 3601", "-t", "word"})
        EXPECT_EQ(run(std::string("test_key ") + arguments).out, kFailed) << arguments;
    camera.faults("hi3516_reg open 0 -1 ENOENT\n");
    EXPECT_EQ(run("test_key").status, 255);
}
