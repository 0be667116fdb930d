// xgpio, xi2c, xgpioi2c, xtime, xbootenv: console text and every request that the drivers see.
#include "tests/support/camera.hpp"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// Lines of the chip that share a pin, and what makes them GPIO lines.
const struct {
    int group, bit;
    const char* request;
} kShared[] = {
    {4, 0, "clear 0x200F0060 0x00000003"}, {4, 1, "clear 0x200F0064 0x00000003"},
    {4, 6, "clear 0x200F0078 0x00000001"}, {4, 7, "clear 0x200F007C 0x00000001"},
    {5, 0, "clear 0x200F0080 0x00000001"}, {5, 1, "clear 0x200F0084 0x00000001"},
    {6, 4, "set 0x200F00B0 0x00000001"},   {8, 1, "clear 0x200F00E4 0x00000001"},
    {8, 2, "set 0x200F00E8 0x00000001"},   {9, 0, "clear 0x200F0114 0x00000001"},
    {9, 1, "clear 0x200F0118 0x00000003"}, {9, 2, "clear 0x200F011C 0x00000003"},
    {9, 3, "clear 0x200F0120 0x00000003"}, {9, 7, "set 0x200F0138 0x00000002"},
    {10, 0, "set 0x200F013C 0x00000002"},  {10, 1, "set 0x200F0140 0x00000002"},
    {10, 2, "set 0x200F0144 0x00000002"},
};
constexpr unsigned kBanks[] = {0,          0x20160000, 0x20170000, 0x20180000, 0x20190000, 0x201A0000,
                               0x201B0000, 0x201C0000, 0x20200000, 0x20210000, 0x20220000};

std::string hex(const char* what, unsigned address, unsigned value)
{
    char text[64];
    snprintf(text, sizeof text, "%s0x%08X 0x%08X", what, address, value);
    return text;
}

Lines multiplexing(int group, int bit)
{
    for (const auto& row : kShared)
        if (row.group == group && row.bit == bit) return {row.request};
    return {};
}

Lines shell(const std::string& script) { return {"sh", "-c", script}; }

struct Gpio : testing::Test {
    Camera camera;
};
using I2c = Gpio;

} // namespace

TEST_F(Gpio, EveryLineIsDrivenAndReadThroughItsOwnRegisters)
{
    Lines expected;
    std::string script;
    for (int group = 1; group <= 10; ++group)
        for (int bit = 0; bit < 8; ++bit) {
            const std::string line = std::to_string(group) + " " + std::to_string(bit);
            script += "xgpio " + line + " 1; xgpio " + line + " 0; xgpio " + line + ";";
            const unsigned mask = 1u << bit, bank = kBanks[group], data = bank + mask * 4;
            const Lines pin = multiplexing(group, bit);
            for (const char* level : {"set ", "clear "}) {
                expected.insert(expected.end(), pin.begin(), pin.end());
                expected.push_back(hex("set ", bank + 0x400, mask));
                expected.push_back(hex(level, data, mask));
            }
            expected.insert(expected.end(), pin.begin(), pin.end());
            expected.push_back(hex("clear ", bank + 0x400, mask));
            const bool key = group == 8 && bit == 1; // pulled up
            char read[64];
            snprintf(read, sizeof read, "read 0x%08X = 0x%08X", data, key ? mask : 0);
            expected.emplace_back(read);
        }
    Outcome run = camera.run(shell(script));
    EXPECT_THAT(run.of("hi3516_reg"), ElementsAreArray(expected));
    std::string out;
    for (int i = 0; i < 80; ++i) out += i == 7 * 8 + 1 ? "1 \n" : "0 \n";
    EXPECT_EQ(run.out, out);
}

TEST_F(Gpio, ReadsWhatTheLineHas)
{
    vcam("pin " + camera.state("").string() +
         " '4.1 level 1' '5.7 wire 4.1' '0x201A0008 reads 0x80000000'"
         " '0x201A0010 reads 0x7'");
    Outcome run = camera.run(shell("xgpio 4 1; xgpio 5 7; xgpio 4 2; xgpio 5 1; xgpio 5 2"));
    EXPECT_EQ(run.out, "1 \n1 \n0 \nError : get '-2147483648'\n1 \n");
    // What a line puts out stays until it is read: then it is an input.
    run =
        camera.run(shell("xgpio 6 3 5; reg -r 0x201B0020; reg -r 0x201B0400; xgpio 6 3; reg -r 0x201B0400"));
    EXPECT_EQ(run.out, "0x201B0020: 0x00000008\n0x201B0400: 0x00000008\n0 \n0x201B0400: 0x00000000\n");
}

TEST_F(Gpio, LinesThatDoNotExist)
{
    const char* no_group = "Error : get '-1'\n";
    for (const char* line : {"0 1", "11 1", "-1 1", "x 1", "99999999999 1"}) {
        Outcome run = camera.run(shell(std::string("xgpio ") + line + "; xgpio " + line + " 1; echo $?"));
        EXPECT_EQ(run.out, std::string(no_group) + "0\n") << line;
        EXPECT_THAT(run.of("hi3516_reg"), IsEmpty()) << line;
    }
    // No bit: an empty mask, so nothing changes.
    for (const char* bit : {"32", "-1", "4294967296"}) {
        Outcome run = camera.run(shell(std::string("xgpio 7 ") + bit + "; xgpio 7 " + bit + " 1"));
        EXPECT_EQ(run.out, "0 \n") << bit;
        EXPECT_THAT(run.of("hi3516_reg"),
                    ElementsAre("clear 0x201C0400 0x00000000", "read 0x201C0000 = 0x00000000",
                                "set 0x201C0400 0x00000000", "set 0x201C0000 0x00000000"))
            << bit;
    }
    // The address of bit 31 runs over the end of the address space and comes back.
    Outcome run = camera.run(shell("xgpio 7 31 0"));
    EXPECT_THAT(run.of("hi3516_reg"),
                ElementsAre("set 0x201C0400 0x80000000", "clear 0x201C0000 0x80000000"));
}

TEST_F(Gpio, WithoutDriverAndWithOneThatFails)
{
    camera.faults("hi3516_reg open 0 -1 ENOENT\n");
    Outcome run = camera.run(shell("xgpio 5 0; xgpio 5 0 1; echo $?"));
    const std::string open = "Error : open_gpio can not open '/dev/hi3516_reg'\n";
    EXPECT_EQ(run.out, open + "Error : get_gpio Invalid handle '-1'\nError : get '-1'\n" + open +
                           "Error : set_gpio Invalid handle '-1'\n0\n");
    camera.faults("hi3516_reg read 0 -1 EIO\n");
    EXPECT_EQ(camera.run({"xgpio", "5", "0"}).out, "Error : get '-1'\n");
    camera.faults("hi3516_reg clear 0 -1 EIO\n"); // the pin and its direction are not looked at
    EXPECT_EQ(camera.run({"xgpio", "8", "1"}).out, "1 \n");
}

TEST_F(Gpio, UsageForAnyOtherCount)
{
    for (const char* command : {"xgpio", "/bin/xgpio 1", "xgpio 1 2 3 4"}) {
        Outcome run = camera.run(shell(command));
        EXPECT_EQ(run.out,
                  "Usage : \n    GET : xgpio  group_no  bit_no \n    SET : xgpio  group_no  bit_no  0/1 \n");
        EXPECT_EQ(run.status, 0);
        EXPECT_THAT(run.of("hi3516_reg"), IsEmpty());
    }
}

TEST_F(I2c, ReadsAndWritesOneRegisterOfADevice)
{
    write_file(camera.state("i2c/20"), std::string("\x11\x22\x33\x44\x55\xA6\x77\x88\x99", 9));
    Outcome run =
        camera.run(shell("xi2c 0x20 0x05; xi2c 32 05; xi2c 040 8; xi2c 0x20 5 0x1FF; xgpioi2c 0x20 5;"
                         "xi2c 0x120 0x105; xi2c -224 5; xi2c 99999999999 0; xi2c 0x20 5 x; xi2c 0x20 5"));
    EXPECT_EQ(run.out, "0xA6\n0xA6\n0x99\n0xFF\n0xFF\n0xFF\n0xFFFFFFFF\n0x00\n");
    EXPECT_THAT(run.of("gpioi2c"),
                ElementsAre("read 0x20 0x05 = 0xA6", "read 0x20 0x05 = 0xA6", "read 0x20 0x08 = 0x99",
                            "write 0x20 0x05 0xFF", "read 0x20 0x05 = 0xFF", "read 0x20 0x05 = 0xFF",
                            "read 0x20 0x05 = 0xFF", "read 0xFF 0x00 = 0x00 no answer",
                            "write 0x20 0x05 0x00", "read 0x20 0x05 = 0x00"));
}

TEST_F(I2c, AbsentDevicesAndDrivers)
{
    Outcome run = camera.run(shell("xi2c 0x21 0; xi2c 0x21 0 1; echo $?"));
    EXPECT_EQ(run.out, "0xFFFFFFFF\n0\n");
    camera.faults("gpioi2c open 0 -1 ENOENT\n");
    run = camera.run(shell("xi2c 0x20 5; xgpioi2c 0x20 5 1; echo $?"));
    const std::string open = "Error : open_gpioi2c can not open '/dev/gpioi2c'\n";
    EXPECT_EQ(run.out, open + "Error : read_gpioi2c Invalid handle '-1'\n0xFFFFFFFF\n" + open +
                           "Error : write_gpioi2c Invalid handle '-1'\n0\n");
}

TEST_F(I2c, UsageNamesTheAppletThatWasCalled)
{
    for (const char* command : {"xi2c", "xgpioi2c 1", "xi2c 1 2 3 4"}) {
        Outcome run = camera.run(shell(command));
        const std::string name = std::string(command).substr(0, std::string(command).find(' '));
        EXPECT_EQ(run.out, "Usage : \n    GET : " + name + "  device_addr  reg_addr \n    SET : " + name +
                               "  device_addr  reg_addr  reg_value \n");
        EXPECT_EQ(run.status, 0);
    }
}

namespace {

struct Xtime : testing::Test {
    Camera camera;
    void rtc(const std::string& options) const
    {
        EXPECT_EQ(vcam("rtc " + camera.state("").string() + " " + options).status, 0);
    }
};

} // namespace

TEST_F(Xtime, CopiesTheRealTimeClockIntoTheSystemClock)
{
    rtc("--set '2012-02-29 23:59:09'");
    Outcome run =
        camera.run(shell("xtime; date '+%Y-%m-%d %H:%M'; xtime any arguments > /dev/null; echo $?"));
    EXPECT_EQ(run.out, "\033[1;32mREAD RTC TIME : 2012/02/29 23:59:09\n\033[0;39m"
                       "Wed Feb 29 23:59:09 UTC 2012\n2012-02-29 23:59\n0\n");
    EXPECT_THAT(run.of("system"), ElementsAre("date 022923592012.09", "date 022923592012.09"));
    EXPECT_THAT(run.of("settimeofday"), ElementsAre("1330559949.000000", "1330559949.000000"));
}

TEST_F(Xtime, WithoutATimeItRunsNoCommand)
{
    const std::string red = "\033[1;31mGET RTC ERROR !\n\n\033[0;39m";
    camera.faults("ds1339 open 0 -1 ENOENT\n");
    Outcome run = camera.run({"xtime"});
    EXPECT_EQ(run.out, "[CTIME_GetRTC] error, reason(open '/dev/ds1339')\n" + red);
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.of("system"), IsEmpty());
    camera.faults("ds1339 read 0 -1 EIO\n");
    run = camera.run({"xtime"});
    EXPECT_EQ(run.out, red);
    EXPECT_THAT(run.of("system"), IsEmpty());
    camera.faults("");
    rtc("--set '2012-02-29 20:30:00' --fault bcd"); // hour 32
    run = camera.run({"xtime"});
    EXPECT_THAT(run.of("settimeofday"), IsEmpty());
    EXPECT_THAT(run.err, HasSubstr("invalid date"));
}

// Loaded by load_drv, as in the field, where the camera asks for it.
TEST(RtcDriver, OpensWhenItsModuleIsLoaded)
{
    Camera camera({"--model", "ZM131", "--driver", "ds1339=ds_1339"});
    Outcome run =
        camera.run(shell("xtime | grep -c ERROR; load_drv; xtime | grep -c READ; rmmod ds_1339; xtime"));
    EXPECT_THAT(run.out, testing::StartsWith("1\n1\n[CTIME_GetRTC] error, reason(open '/dev/ds1339')\n"));
}

TEST(Xbootenv, DoesNothing)
{
    Camera camera;
    Outcome run = camera.run({"xbootenv", "any", "arguments"});
    EXPECT_EQ(run.out + run.err, "");
    EXPECT_EQ(run.status, 0);
}
