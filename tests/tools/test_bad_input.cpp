// Wrong command lines and files of the three host tools: one line that says what, where and what to do, and
// the documented status.
#include "tests/support/camera.hpp"

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

Said say_in(const std::string& folder, const std::string& line)
{
    return say("cd " + folder + " && { " + line + "; } 2>&1");
}

struct Bad {
    const char* line;
    int status;
    const char* says;
};

// In a folder with a camera "cam", text files "text" and "image", an empty file "empty".
constexpr Bad kFwpkg[] = {
    {"", 2, "missing COMMAND"},
    {"dig", 2, "there is no command 'dig'"},
    {"--bogus", 2, "unknown option --bogus"},
    {"help dig", 2, "there is no command 'dig'"},
    {"--completion ksh", 2, "--completion ksh: give bash, zsh or fish"},
    {"build", 2, "missing KERNEL"},
    {"build image", 2, "missing ROOTFS"},
    {"build image image", 2, "missing SETTINGS"},
    {"build image image image", 2, "missing -o PACKAGE"},
    {"build -o x image image image image", 2, "'image' is one word too many"},
    {"build -o x --marker OEM image image image", 2, "--marker OEM: give four characters"},
    {"build -o x --version 2 image image image", 2, "--version 2: give 1 or 3"},
    {"build -o x --version abc image image image", 2, "--version abc: give 1 or 3"},
    {"build -o x --page-size 2k image image image", 2, "--page-size 2k: give a whole number from 1 to 65536"},
    {"build -o x --page-size 4096abc image image image", 2, "--page-size 4096abc"},
    {"build -o x --page-size 1000 image image image", 2, "--page-size 1000: give a power of two"},
    {"build -o x --page-size 0 image image image", 2, "--page-size 0"},
    {"build -o x missing image image", 2, "missing: No such file or directory"},
    {"build -o x image empty image", 2,
     "empty: is empty, and a device would erase the partition; --allow-empty"},
    {"build -o x cam image image", 2, "cam: is not a regular file"},
    {"build -o no/such/x image image image", 2, "there is no folder no/such; make it first"},
    {"build -o x image image image", 1, "x: a device would refuse it: kernel image magic at offset 20"},
    {"check", 2, "missing PACKAGE"},
    {"check missing", 2, "missing: No such file or directory"},
    {"check cam", 2, "cam: is not a regular file"},
    {"check --version -1 text", 2, "--version -1: give a whole number"},
    {"check --version", 2, "--version: 1 required N missing"},
    {"check --xml text", 2, "unknown option --xml"},
    {"check --color pink text", 2, "--color pink: give auto, always or never"},
    {"info", 2, "missing PACKAGE"},
    {"info text", 1, "text: version without a known layout"},
    {"info empty", 1, "empty: package header cut short"},
    {"info --json=yes text", 2, "--json"},
    {"extract missing", 2, "missing: No such file or directory"},
    {"extract -d", 2, "--directory"},
    {"extract empty", 1, "empty: package header cut short"},
};
constexpr Bad kVcam[] = {
    {"", 2, "missing COMMAND"},
    {"fly cam", 2, "there is no command 'fly'"},
    {"new", 2, "missing CAMERA"},
    {"new cam", 1, "cam holds a camera already; replace it with --force"},
    {"new fresh --flash eeprom", 2, "--flash eeprom: give nor or nand"},
    {"new fresh --size mtd1=100", 2, "erase blocks"},
    {"new fresh --size 1M", 2, "write it as mtd2=32M"},
    {"new fresh --size mtd9=1M", 2, "there are mtd0 to mtd3"},
    {"new fresh --bad mtd1:3", 2, "only NAND flash has bad blocks"},
    {"new fresh --flash nand --bad mtd1:512", 2, "mtd1 has 512 blocks"},
    {"new fresh --i2c 0x100", 2, "--i2c 0x100: give a whole number from 0 to 255"},
    {"new fresh --driver ds1339", 2, "write it as ds1339=ds_1339"},
    {"new fresh --web apache", 2, "--web apache: give webs or lighttpd"},
    {"new fresh --version 2", 2, "--version 2: give 1 or 3"},
    {"new fresh --colour red", 2, "unknown option --colour"},
    {"run", 2, "missing CAMERA"},
    {"run cam", 2, "missing PROGRAM"},
    {"run cam --", 2, "missing PROGRAM"},
    {"run fresh -- true", 125, "make one with: vcam new fresh"},
    {"run cam --timeout soon -- true", 2, "'soon' is no number of seconds"},
    {"run cam --loop 1001 -- true", 2, "--loop 1001: give a whole number from 0 to 1000"},
    {"run cam --bind /nowhere -- true", 2, "/nowhere"},
    {"run cam --daemon confd -- true", 2, "give a path in the camera, such as /bin/confd"},
    {"run cam --medium cd=1M -- true", 2, "--medium cd=1M: write it as sd=16M, usb=64M or sd=16M,ro"},
    {"run cam --medium sd=1M,rw -- true", 2, "write it as sd=16M, usb=64M or sd=16M,ro"},
    {"run cam --link 192.168.10 -- true", 2, "--link 192.168.10: write it as 192.168.10.1"},
    {"run cam --speaker text -- true", 125, "text: exists and is not a WAV file"},
    {"exec cam -- true", 125, "does not run; start it with"},
    {"exec cam --medium sd=1M -- true", 2, "unknown option --medium"},
    {"put cam", 2, "missing FILE"},
    {"put cam /nowhere", 1, "/nowhere: No such file or directory"},
    {"put cam text tmp", 2, "name an absolute path in the camera"},
    {"get cam", 2, "missing /PATH"},
    {"get cam /tmp/nothing", 1, "the camera has no /tmp/nothing"},
    {"get cam tmp", 2, "name an absolute path in the camera"},
    {"log cam --source mtd", 2, "unknown option --source"},
    {"status cam --json --dot", 2, "choose one"},
    {"diff cam", 1, "not run yet"},
    {"fault cam 'mtd1 write often'", 2, "fault"},
    {"pin cam '4.0 level 2'", 2, "pin"},
    {"rtc cam --set noon", 2, "'noon' is no time such as"},
    {"rtc cam --fault slow", 2, "there are the faults stopped, no-leap, bcd, drift=PERMILLE and none"},
    {"plug cam ttyS0 loopback", 2, "the serial ports are ttyAMA1 and ttyAMA2"},
    {"plug cam ttyAMA1", 2, "missing what ttyAMA1 meets"},
    {"plug cam ttyAMA1 cable", 2, "'cable': there are nothing, loopback and block"},
    {"plug cam ttyAMA1 loopback wrong@x", 2, "'wrong@x': there are wrong@N, lost@N and late=MS"},
    {"plug cam ttyAMA1 loopback wrong=1", 2, "'wrong=1'"},
    {"plug cam ttyAMA1 loopback late=-1", 2, "'late=-1'"},
    {"plug cam ttyAMA2 block text", 1, "in hexadecimal"},
};
constexpr Bad kAudio[] = {
    {"", 2, "missing COMMAND"},
    {"dance", 2, "there is no command 'dance'"},
    {"record", 2, "missing HOST"},
    {"record 127.0.0.1 1", 2, "missing OUT.wav"},
    {"play 127.0.0.1 1", 2, "missing IN.wav"},
    {"loop 127.0.0.1 1 x", 2, "missing OUT.wav"},
    {"status 127.0.0.1", 2, "missing PORT"},
    {"status 127.0.0.1 1 2", 2, "'2' is one word too many"},
    {"status 127.0.0.1 99999", 2, "PORT 99999: give a whole number from 1 to 65535"},
    {"record -c mp3 127.0.0.1 1 x", 2, "--codec mp3: give g711a"},
    {"record -r 7999 127.0.0.1 1 x", 2, "--rate 7999: give a whole number from 8000"},
    {"record -t x 127.0.0.1 1 x", 2, "--seconds x: give a number from 0.4 to 36000"},
    {"verdict --snr 1e9 127.0.0.1 1", 2, "--snr 1e9: give a number from 0 to 120"},
    {"verdict --level-min 40 127.0.0.1 1", 2, "--level-min 40: give a number from -120 to 0"},
    {"status -m 127.0.0.1 1", 2, "unknown option -m"},
    {"record 127.0.0.1 1 text", 2, "text: exists and is not a WAV file"},
    {"play 127.0.0.1 1 text", 2, "text"},
    {"loop --force 127.0.0.1 1 sound.wav sound.wav", 2, "sound.wav: is read for this output"},
};

template<size_t N>
void expect(const std::string& folder, const char* tool, const char* name, const Bad (&list)[N])
{
    for (const Bad& bad : list) {
        const Said said = say_in(folder, std::string(tool) + " " + bad.line);
        EXPECT_EQ(said.status, bad.status) << name << " " << bad.line << "\n" << said.text;
        EXPECT_THAT(said.text, MatchesRegex(std::string(name) + ": [^\n]*\n")) << bad.line;
        EXPECT_THAT(said.text, HasSubstr(bad.says)) << name << " " << bad.line;
    }
}

std::string sound()
{
    using namespace std::string_literals;
    return "RIFF\x28\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1f\0\0\x80\x3e\0\0\2\0\x10\0data\4\0\0\0\0\0\0\0"s;
}

} // namespace

TEST(BadInput, IsOneLineThatSaysWhatWhereAndWhatToDo)
{
    Camera camera;
    const std::string folder = camera.folder().string();
    fs::create_symlink("camera", camera.folder() / "cam");
    write_file(camera.folder() / "text", "no package and no sound\n");
    write_file(camera.folder() / "image", std::string(70000, 'x'));
    write_file(camera.folder() / "sound.wav", sound());
    write_file(camera.folder() / "empty", "");
    expect(folder, FWPKG, "fwpkg", kFwpkg);
    expect(folder, VCAM, "vcam", kVcam);
    expect(folder, ZEP_AUDIO, "zep-audio", kAudio);
    EXPECT_FALSE(fs::exists(camera.folder() / "x"));
    EXPECT_FALSE(fs::exists(camera.folder() / "fresh"));
}

TEST(CommandLine, ColourAndWidthFitTheReader)
{
    Camera camera;
    const std::string folder = camera.folder().string();
    write_file(camera.folder() / "text", "no package\n");
    const auto check = [&](const std::string& before, const std::string& options) {
        return say_in(folder, before + FWPKG " check " + options + " text").text;
    };
    EXPECT_THAT(check("", ""), StartsWith("text: refused: "));
    EXPECT_THAT(check("", "--color always"), StartsWith("text: \033[31mrefused\033[0m: "));
    EXPECT_THAT(check("NO_COLOR=1 ", "--color=always"), StartsWith("text: \033[31m"));
    EXPECT_THAT(say_in(folder, "script -qec '" FWPKG " check text' /dev/null").text,
                HasSubstr("\033[31mrefused"));
    EXPECT_THAT(say_in(folder, "NO_COLOR=1 script -qec '" FWPKG " check text' /dev/null").text,
                StartsWith("text: refused"));
    // What follows "--", and all from the program on, is the program's.
    EXPECT_EQ(say_in(folder, VCAM " run camera -- sh -c 'echo $@' x --help -- -v").text, "--help -- -v\n");
    EXPECT_EQ(say_in(folder, VCAM " run camera sh -c 'echo $@' x --help -- -v").text, "--help -- -v\n");
}
