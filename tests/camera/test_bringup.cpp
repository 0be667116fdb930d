// Bringing a camera up: drivers and registers by model, parameters from the boot loader's environment.
#include "tests/support/camera.hpp"

#include <gmock/gmock.h>
#include <map>

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// What each model's start-up loads, as its builders wrote it down: "d" is the folder of the drivers, "+a m"
// and "-a m" set and clear register bits.
const std::map<std::string, Lines>& start_ups()
{
    static const Lines usual = {"Hi3512reg", "d tw_9910", "d tlv_320", "d ise_2010"};
    static const Lines four = {"Hi3512reg", "d tw_2864", "d ise_2010"};
    static const Lines second = {"-0x20110094 0x00000001", "-0x20110270 0x00000004", "d ds_1339",
                                 "d tlv_320"};
    static const std::map<std::string, Lines> all = [] {
        std::map<std::string, Lines> by_model;
        for (int i = 101; i <= 154; ++i) by_model["ZM" + std::to_string(i)] = usual;
        for (const char* model : {"ZM102", "ZM105", "ZM144", "ZM145"}) by_model[model] = four;
        by_model["ZM113"] = {"Hi3512reg", "d tw_2864", "d ise_2010", "d hiusb"};
        by_model["ZM150"] = {"Hi3512reg", "d tw_9910"};
        by_model["ZM112"] = {"Hi3512reg", "d tw_9910", "d tlv_320", "d ise_2010", "d hiusb"};
        by_model["ZM142"] = {"Hi3512reg", "d tlv_320", "d ov_2643"};
        by_model["ZM143"] = {"Hi3512reg", "d tlv_320", "d ov_2643", "d ds_1339"};
        by_model["ZM139"] = {"Hi3512reg"};
        by_model["ZM138"] = {"Hi3512reg", "d tw_9910", "d tlv_320"};
        by_model["ZM140"] = {"Hi3512reg", "d tw_9910", "d tlv_320", "d ds_1339"};
        by_model["ZM141"] = {"Hi3512reg",
                             "d tw_9910",
                             "d tlv_320",
                             "-0x101E0020 0x00100000",
                             "+0x101E5400 0x00000002",
                             "-0x101E5008 0x00000002"};
        for (const char* model : {"ZM130", "ZM132", "ZM133", "ZM134"}) by_model[model] = second;
        by_model["ZM131"] = {second[0], second[1], "d ds_1339", "d tw_2864"};
        by_model["ZM135"] = {second[0],          second[1],          "d ds_1339",        "+0x200F009C 0x01",
                             "+0x20150400 0x04", "-0x20150010 0x04", "+0x200F00A0 0x01", "+0x20150400 0x08",
                             "-0x20150020 0x08", "-0x200F00A4 0x01", "+0x20150400 0x10", "-0x20150040 0x10",
                             "d gv_7601",        "d tlv_320"};
        for (const char* unknown : {"zm131", "ZM155", "ZM131x", "4"}) by_model[unknown] = usual;
        return by_model;
    }();
    return all;
}

std::string command_line(const std::string& step)
{
    if (step[0] == '+' || step[0] == '-')
        return std::string("/bin/reg ") + (step[0] == '+' ? "-s " : "-c ") + step.substr(1);
    return "/sbin/insmod /dvs/" + (step[0] == 'd' ? "extdrv/" + step.substr(2) : step) + ".ko";
}

// The registers that a start-up may touch, those whose bits are cleared full of ones before.
constexpr char kPreset[] =
    "reg -s 0x101E0020 0xFFFFFFFF; reg -s 0x101E53FC 0xFF; reg -s 0x20110094 0xFFFFFFFF;"
    "reg -s 0x20110270 0xFFFFFFFF; reg -s 0x200F00A4 0xFFFFFFFF; reg -s 0x201503FC 0xFF";
constexpr const char* kLooked[] = {"0x101E0020", "0x101E5400", "0x101E53FC", "0x20110094", "0x20110270",
                                   "0x200F009C", "0x200F00A0", "0x200F00A4", "0x20150400", "0x201503FC"};

std::string registers_after(const std::string& model)
{
    std::map<std::string, std::string> words = {
        {"0x101E0020", "FFFFFFFF"},
        {"0x20110094", "FFFFFFFF"},
        {"0x20110270", "FFFFFFFF"},
        {"0x200F00A4", "FFFFFFFF"},
    };
    if (model == "ZM141") words["0x101E0020"] = "FFEFFFFF", words["0x101E5400"] = "00000002";
    const bool second = start_ups().at(model)[0] != "Hi3512reg";
    if (second) words["0x20110094"] = "FFFFFFFE", words["0x20110270"] = "FFFFFFFB";
    if (model == "ZM135") {
        words["0x200F009C"] = words["0x200F00A0"] = "00000001";
        words["0x200F00A4"] = "FFFFFFFE";
        words["0x20150400"] = "0000001C";
    }
    std::string text;
    for (const char* address : kLooked)
        text += std::string(address) + ": 0x" + (words[address].empty() ? "00000000" : words[address]) + "\n";
    return text;
}

} // namespace

TEST(LoadDrv, EveryModelGetsItsDriversAndRegistersInOrder)
{
    Camera camera;
    std::string script = "for m in ", expected;
    Lines commands, tools;
    for (const auto& [model, steps] : start_ups()) {
        script += model + " ";
        expected += model + "\n" + registers_after(model);
        for (const std::string& step : steps) commands.push_back(command_line(step));
    }
    script +=
        "; do echo cam_model=$m > /etc/cam_model.conf; rm -f /run/vcam/registers; : > /run/vcam/modules;" +
        std::string(kPreset) + "; echo $m; load_drv with arguments || echo $?;";
    for (const char* address : kLooked) script += "reg -r " + std::string(address) + ";";
    Outcome run = camera.run({"sh", "-c", script + "done"});
    EXPECT_EQ(run.out, expected);
    EXPECT_EQ(run.err, "");
    EXPECT_THAT(run.of("system"), ElementsAreArray(commands));
    // What was asked of the shell reached the tools, in the same order.
    for (const std::string& line : run.journal)
        if (line.rfind("insmod ", 0) == 0) tools.push_back(line);
    for (std::string& command : commands)
        if (command.rfind("/sbin/insmod", 0) == 0) command = command.substr(6);
    std::erase_if(commands, [](const std::string& c) { return c.rfind("/bin/reg", 0) == 0; });
    EXPECT_EQ(tools, commands);
}

TEST(LoadDrv, TheDefaultModelAndFailingCommands)
{
    Camera camera({"--model", "ZM131"});
    Outcome run = camera.run({"sh", "-c", "rm /etc/cam_model.conf; load_drv"});
    EXPECT_THAT(run.of("insmod"), ElementsAre("/dvs/Hi3512reg.ko", "/dvs/extdrv/tw_9910.ko",
                                              "/dvs/extdrv/tlv_320.ko", "/dvs/extdrv/ise_2010.ko"));
    // Loaded already, or missing: the next one still runs and the result stays 0.
    run =
        camera.run({"sh", "-c",
                    "load_drv; rmmod ise_2010; rm /dvs/extdrv/tlv_320.ko; load_drv; echo $?; lsmod | wc -l"});
    EXPECT_EQ(run.of("insmod").size(), 8u);
    EXPECT_EQ(run.out, "0\n5\n");
    // A file without the key gives its last value; the first line that begins like the key counts.
    run = camera.run({"sh", "-c",
                      "echo x=ZM139 > /etc/cam_model.conf; load_drv; rm -f /run/vcam/modules;"
                      "printf 'cam_model_old=ZM150\\ncam_model=ZM139\\n' > /etc/cam_model.conf; load_drv"});
    EXPECT_THAT(run.of("insmod"),
                ElementsAre("/dvs/Hi3512reg.ko", "/dvs/Hi3512reg.ko", "/dvs/extdrv/tw_9910.ko"));
}

namespace {

constexpr size_t kOffset = 0x40000;

std::string coloured(const std::string& text) { return "\033[1;32m" + text + "\n\033[0;39m"; }

class BootParam : public testing::Test {
protected:
    // Runs the applet over an environment: the boot partition from 0x40000 on, erased behind it.
    Outcome run(const std::string& environment, const std::string& path = "/tmp/param")
    {
        std::string flash = camera.flash(0);
        flash.replace(kOffset, std::string::npos, std::string(flash.size() - kOffset, '\xFF'));
        flash.replace(kOffset, environment.size(), environment);
        write_file(camera.state("flash/mtd0"), flash);
        return camera.run({"get_boot_param", path});
    }
    static std::string console(const std::string& mac, const std::string& serial, const std::string& product)
    {
        return coloured("GET BOOT PARAM") +
               (mac.empty() ? coloured("    Invalid mac address ... set to default") : "") +
               coloured("    MAC [" + (mac.empty() ? kDefault : mac) + "]") +
               coloured("    SERIAL_NO [" + serial + "]") + coloured("    PRODUCT_CODE [" + product + "]");
    }
    static std::string file(const std::string& mac, const std::string& serial, const std::string& product)
    {
        return "MAC=" + (mac.empty() ? kDefault : mac) + "\nSERIAL_NO=" + serial +
               "\nPRODUCT_CODE=" + product + "\n";
    }
    [[nodiscard]] std::string param() const { return read_file(camera.root("/tmp/param")); }

    inline static const std::string kDefault = "02:11:22:00:00:00";
    Camera camera;
};

std::string variables(std::initializer_list<std::string> all)
{
    std::string text = "\x12\x34\x56\x78"; // what stands before them does not matter
    for (const std::string& variable : all) text += variable + '\0';
    return text;
}

} // namespace

TEST_F(BootParam, PrintsAndWritesTheThreeVariables)
{
    write_file(camera.root("/tmp/param"), "old\nfile\n");
    Outcome run = this->run(
        variables({"bootdelay=1", "product_code=P-7 b", "ethaddr=00:11:22:33:44:55", "serial_no=AB12"}));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, console("00:11:22:33:44:55", "AB12", "P-7 b"));
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(param(), file("00:11:22:33:44:55", "AB12", "P-7 b"));
    EXPECT_THAT(run.of("system"), ElementsAre("echo \"MAC=00:11:22:33:44:55\" > /tmp/param",
                                              "echo \"SERIAL_NO=AB12\" >> /tmp/param",
                                              "echo \"PRODUCT_CODE=P-7 b\" >> /tmp/param"));
}

TEST_F(BootParam, KeepsWhatTheLimitsAllow)
{
    const std::string long_code(300, 'c');
    const struct {
        const char* what;
        std::string environment, mac, serial, product;
    } cases[] = {
        {"too long",
         variables({"ethaddr=00:11:22:33:44:556", "serial_no=012345678912", "product_code=" + long_code}),
         "00:11:22:33:44:55", "0123456789", long_code.substr(0, 255)},
        {"255 bytes", variables({"product_code=" + long_code.substr(0, 255)}), "", "",
         long_code.substr(0, 255)},
        {"254 bytes", variables({"product_code=" + long_code.substr(0, 254)}), "", "",
         long_code.substr(0, 254)},
        {"malformed is kept", variables({"ethaddr=?", "serial_no=", "product_code="}), "?", "", ""},
        {"empty is the default", variables({"ethaddr=", "serial_no=1"}), "", "1", ""},
        {"inside another", variables({"xethaddr=inner", "ethaddr=real"}), "inner", "", ""},
        {"inside a value", variables({"old=serial_no=7", "serial_no=8"}), "", "7", ""},
        {"the breaking byte is dropped", variables({"eethaddr=no", "sserial_no=no", "pproduct_code=no"}), "",
         "", ""},
        {"found later", variables({"eethaddr=no", "ethaddr=yes"}), "yes", "", ""},
        {"templates", variables({"serial_no=%n%s%n", "product_code=%%a%5.3ldb%-08*xc%%%%d%"}), "", "",
         "%abc%%d"},
        {"bytes", variables({"serial_no=\xFF\xFE\x80z"}), "", "\xFF\xFE\x80z", ""},
        {"erased", "", "", "", ""},
        {"zeros", std::string(0x40000, '\0'), "", "", ""},
    };
    for (const auto& c : cases) {
        Outcome run = this->run(c.environment);
        EXPECT_EQ(run.out, console(c.mac, c.serial, c.product)) << c.what;
        EXPECT_EQ(param(), file(c.mac, c.serial, c.product)) << c.what;
    }
}

TEST_F(BootParam, WhatTheShellWouldInterpretReachesTheFileAndRunsNothing)
{
    const std::string serials[] = {"a\"b\"c", "$HOME",   "`id`",     "$(id)", "\\", "\\n\\tx", "a\\\\b",
                                   "'q'",     "a;id>/x", "\"\nid\n", "*",     "-n", "!1"};
    for (const std::string& serial : serials) {
        Outcome run = this->run(variables({"serial_no=" + serial}));
        EXPECT_EQ(param(), file("", serial.substr(0, 10), "")) << serial;
        EXPECT_EQ(run.out, console("", serial.substr(0, 10), "")) << serial;
    }
    const std::string path = "/tmp/a \"b\" $(touch ran) `touch ran` ;touch ran&\\";
    Outcome run = this->run(variables({"serial_no=1"}), path);
    EXPECT_EQ(read_file(camera.root(path)), file("", "1", ""));
    EXPECT_FALSE(fs::exists(camera.root("/ran")));
    EXPECT_EQ(run.err, "");
}

TEST_F(BootParam, SearchesExactlyTheEnvironment)
{
    // The value's last byte and its NUL are the last two that are read.
    std::string environment(0x40000, 'x');
    environment.replace(0x40000 - 12, 12, std::string("serial_no=7\0", 12));
    EXPECT_EQ(run(environment).out, console("", "7", ""));
    environment.replace(0x40000 - 12, 12, "xserial_no=7"); // the NUL would be the next one
    EXPECT_EQ(run(environment).out, console("", "", ""));
    environment.replace(0x40000 - 12, 12, "xxxxserial_n"); // ends in the middle of a key
    EXPECT_EQ(run(environment).out, console("", "", ""));
    std::string flash = camera.flash(0);
    flash.replace(0x1000, 12, std::string("serial_no=7\0", 12)); // in front of it
    write_file(camera.state("flash/mtd0"), flash);
    EXPECT_EQ(camera.run({"get_boot_param", "/tmp/param"}).out, console("", "", ""));
}

TEST_F(BootParam, ADeviceThatIsMissingOrFails)
{
    camera.faults("mtd0 open 0 -1 ENODEV\n");
    Outcome run = this->run(variables({"ethaddr=1"}));
    EXPECT_EQ(run.out, "err dev file\nerr dev file\nerr dev file\n" + console("", "", ""));
    EXPECT_EQ(param(), file("", "", ""));
    camera.faults("mtd0 read 2 -1 EIO\n"); // the first look at the second variable and all after it
    run = this->run(variables({"ethaddr=1"}) + std::string(5000, 'x') + variables({"serial_no=2"}));
    EXPECT_EQ(run.out, "read err!read err!" + console("1", "", ""));
    Camera small({"--size", "mtd0=320K"});
    write_file(small.state("flash/mtd0"), std::string(320 << 10, 'x'));
    run = small.run({"get_boot_param", "/tmp/param"});
    EXPECT_EQ(run.out, "read err!read err!read err!" + console("", "", ""));
}

TEST_F(BootParam, WantsOneArgument)
{
    for (const Lines& command : {Lines{"get_boot_param"}, Lines{"get_boot_param", "/tmp/param", "more"}}) {
        Outcome run = camera.run(command);
        EXPECT_EQ(run.out, "\033[1;31m[GET_BOOT_PARAM] ERROR ! argc is " + std::to_string(command.size()) +
                               "\n\n\033[0;39m");
        EXPECT_EQ(run.status, 0);
        EXPECT_THAT(run.of("system"), IsEmpty());
    }
    EXPECT_FALSE(fs::exists(camera.root("/tmp/param")));
    // A file that cannot be written changes nothing but the file.
    EXPECT_EQ(camera.run({"get_boot_param", "/nonexistent/param"}).status, 0);
}
