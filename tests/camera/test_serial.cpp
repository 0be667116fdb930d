// The serial port tests and the camera block query, with everything that may stand at the other end.
#include "tests/support/camera.hpp"
#include "tests/support/camera.hpp"

#include <algorithm>
#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

const std::string kPatterns[] = {"A5", "5A", "FF", "00"};

std::string ten(const std::string& byte)
{
    std::string text;
    for (int i = 0; i < 10; ++i) text += byte + " ";
    return text;
}

std::string block_line(const std::string& byte, const std::string& verdict = "successful")
{
    return "PATTERN [0x" + byte + "] => RECV [      10]: " + ten(byte) + " : " + verdict + "\n";
}

struct SerialTest : testing::Test {
    Camera camera;

    void plug(const std::string& lines) { write_file(camera.state("plugs"), lines); }
    // Runs the line with the port set to what no test would; adds "changed" when it is not so any more.
    Outcome keeping(const std::string& port, const std::string& line)
    {
        const std::string stty = "/usr/bin/stty -F /dev/" + port;
        return camera.run({"sh", "-c",
                           stty + " 57600 min 7 cstopb; " + stty + " -g > /tmp/before; " + line + "; " +
                               stty + " -g > /tmp/after; cmp -s /tmp/before /tmp/after || echo changed"});
    }
    // The events of a run that concern the port and its pins, in order.
    static Lines at_port(const Outcome& run, const std::string& port)
    {
        Lines found;
        for (const std::string& line : run.journal)
            if (line.rfind(port + " ", 0) == 0 || line.rfind("system ", 0) == 0) found.push_back(line);
        return found;
    }
};

} // namespace

TEST_F(SerialTest, Rs485SetsItsPinsAfterThePortAndSwitchesRtsAroundEachBlock)
{
    plug("ttyAMA1 loopback\n");
    Outcome run = camera.run({"test_rs485"});
    EXPECT_EQ(run.out, "successful\n");
    EXPECT_EQ(run.status, 0);
    Lines wanted = {"ttyAMA1 open",
                    "ttyAMA1 settings 9600 8N1 raw",
                    "system /bin/reg -s 0x200F0094 0x1",
                    "system /bin/reg -s 0x200F0098 0x1",
                    "system /bin/reg -s 0x200F00A0 0x1",
                    "ttyAMA1 RTS set"};
    for (int round = 0; round < 10; ++round)
        for (const std::string& byte : kPatterns) {
            std::string bytes = ten(byte);
            bytes.pop_back();
            wanted.insert(wanted.end(), {"ttyAMA1 RTS clear", "ttyAMA1 write " + bytes, "ttyAMA1 RTS set"});
        }
    wanted.insert(wanted.end(), {"ttyAMA1 settings 9600 8N1 line mode", "ttyAMA1 close"});
    EXPECT_EQ(at_port(run, "ttyAMA1"), wanted);
    EXPECT_THAT(
        vcam("status " + camera.state("").string()).text,
        testing::HasSubstr("ttyAMA1 loopback, 9600 8N1 line mode, RTS set, 400 bytes sent, 400 received, "
                           "0 lost\n"));
}

TEST_F(SerialTest, Rs232SetsItsPinsBeforeThePortAndShowsEachBlock)
{
    plug("ttyAMA2 loopback\n");
    Outcome run = camera.run({"test_rs232", "-v"});
    std::string wanted;
    for (int round = 0; round < 10; ++round)
        for (const std::string& byte : kPatterns) wanted += block_line(byte);
    EXPECT_EQ(run.out, wanted + "successful\n");
    Lines events = at_port(run, "ttyAMA2");
    ASSERT_EQ(events.size(), 46u);
    events.resize(5);
    EXPECT_THAT(events, ElementsAre("system /bin/reg -s 0x200F0100 0x1", "system /bin/reg -s 0x200F0104 0x1",
                                    "ttyAMA2 open", "ttyAMA2 settings 9600 8N1 raw",
                                    "ttyAMA2 write A5 A5 A5 A5 A5 A5 A5 A5 A5 A5"));
    EXPECT_EQ(keeping("ttyAMA2", "test_rs232 -x -v").out, "successful\n") << "only the first word counts";
}

TEST_F(SerialTest, TheFirstBlockThatFailsEndsTheTestAndTheSettingsComeBack)
{
    const struct {
        const char* applet;
        const char* plugs;
        std::string out;
        size_t writes;
    } kCases[] = {
        {"test_rs232", "", "PATTERN [0xA5] => RECV [       0]:  : failed\nfailed\n", 1},
        {"test_rs485", "ttyAMA1 loopback lost@9\n",
         "PATTERN [0xA5] => RECV [       9]: A5 A5 A5 A5 A5 A5 A5 A5 A5  : failed\nfailed\n", 1},
        {"test_rs232", "ttyAMA2 loopback wrong@15\n",
         block_line("A5") +
             "PATTERN [0x5A] => RECV [      10]: 5A 5A 5A 5A 5A 5B 5A 5A 5A 5A  : failed\nfailed\n",
         2},
        {"test_rs232", "ttyAMA2 loopback late=3500\n",
         "PATTERN [0xA5] => RECV [       0]:  : failed\nfailed\n", 1},
    };
    for (const auto& c : kCases) {
        const std::string port = std::string(c.applet) == "test_rs485" ? "ttyAMA1" : "ttyAMA2";
        plug(c.plugs);
        Outcome run = keeping(port, std::string(c.applet) + " -v; echo status $?");
        EXPECT_EQ(run.out, c.out + "status 0\n") << c.plugs;
        Lines events = run.of(port);
        EXPECT_EQ(
            std::count_if(events.begin(), events.end(), [](auto& e) { return e.rfind("write", 0) == 0; }),
            long(c.writes));
    }
}

// Three blocks come back; the ten bytes of the fourth, zeros, do not.
TEST_F(SerialTest, ABlockOfZerosPassesWithoutAnAnswer)
{
    std::string lost;
    for (int i = 30; i < 40; ++i) lost += " lost@" + std::to_string(i);
    plug("ttyAMA2 loopback" + lost + "\n");
    Outcome run = camera.run({"sh", "-c", "test_rs232 -v | head -5 | tail -2"});
    EXPECT_EQ(run.out, "PATTERN [0x00] => RECV [       0]:  : successful\n" + block_line("A5"));
}

TEST_F(SerialTest, APortThatDoesNotOpenIsTheOnlyFailureWithAStatus)
{
    camera.faults("ttyAMA1 open 0 -1 ENXIO\nttyAMA2 open 0 -1 EBUSY\n");
    for (const auto& [applet, port] :
         {std::pair{"test_rs485", "1"}, {"test_rs232", "2"}, {"get_cb_cam_info", "2"}}) {
        Outcome run = camera.run({applet});
        const std::string text = std::string("/dev/ttyAMA") + port + " device open fail !!!";
        EXPECT_EQ(run.status, 255);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, text + "\n");
        EXPECT_THAT(run.log, ElementsAre(EndsWith(text)));
        EXPECT_THAT(run.log[0], StartsWith("9 ")); // user facility, alert
    }
}

// Neither a driver without a line status nor one that refuses settings or modem lines stops the test.
TEST_F(SerialTest, RefusedRequestsAreNotTheVerdict)
{
    plug("ttyAMA1 loopback\n");
    for (const char* fault : {"ttyAMA1 getlsr 0 -1 ENOTTY", "ttyAMA1 write 0 2 short",
                              "ttyAMA1 write 1 1 EAGAIN", "ttyAMA1 read 2 1 short"}) {
        camera.faults(std::string(fault) + "\n");
        EXPECT_EQ(camera.run({"test_rs485"}).out, "successful\n") << fault;
    }
    // Without its direction line nothing leaves the port.
    camera.faults("ttyAMA1 setlines 0 -1 EIO\nttyAMA1 setsettings 0 1 EIO\nttyAMA1 getsettings 0 1 EIO\n");
    EXPECT_EQ(camera.run({"test_rs485"}).out, "failed\n");
}

TEST_F(SerialTest, TheBlockIsAskedInOrderAndPrintedVersionFirst)
{
    plug("ttyAMA2 block\n");
    Outcome run = camera.run({"get_cb_cam_info", "-v"});
    EXPECT_EQ(run.out, "RECV [      10]: FF E0 01 00 00 00 26 00 00 E0 \n"
                       "RECV [      10]: FF 5C 01 00 00 00 00 00 00 5C \n"
                       "RECV [      10]: FF E3 01 00 00 00 17 00 00 E3 \n"
                       "VERSION=17\nMODEL=2M Panasonic\nRESOLUTION=1080p\n");
    EXPECT_THAT(at_port(run, "ttyAMA2"),
                ElementsAre("system /bin/reg -s 0x200F0100 0x1", "system /bin/reg -s 0x200F0104 0x1",
                            "ttyAMA2 open", "ttyAMA2 settings 9600 8N1 raw",
                            "ttyAMA2 write FF E0 01 00 00 00 00 00 00 E0", "ttyAMA2 block asked E0",
                            "ttyAMA2 write FF 5C 01 00 00 00 00 00 00 5C", "ttyAMA2 block asked 5C",
                            "ttyAMA2 write FF E3 01 00 00 00 00 00 00 E3", "ttyAMA2 block asked E3",
                            "ttyAMA2 settings 9600 8N1 line mode", "ttyAMA2 close"));
}

TEST_F(SerialTest, TheBlocksAnswersMakeTheLines)
{
    auto reply = [](const char* command, const std::string& sixth) {
        return std::string(command) + ": FF " + command + " 01 00 00 00 " + sixth + " 00 00 " + command +
               "\n";
    };
    const struct {
        const char *code, *selector, *model, *resolution;
    } kSensors[] = {
        {"26", "00", "2M Panasonic", "1080p"},  {"26", "01", "2M Panasonic", "720p"},
        {"16", "00", "1.3M Panasonic", "720p"}, {"16", "01", "1.3M Panasonic", "1280x1024"},
        {"36", "00", "2M OmniVision", "1080p"}, {"36", "FF", "2M OmniVision", "720p"},
        {"46", "00", "2M Sony", "1080p"},       {"46", "02", "2M Sony", "720p"},
        {"27", "01", "Unknown 27", ""},         {"0A", "00", "Unknown 0A", ""},
    };
    plug("ttyAMA2 block\n");
    for (const auto& s : kSensors) {
        write_file(camera.state("ttyAMA2.replies"),
                   reply("E0", s.code) + reply("5C", s.selector) + reply("E3", "A9"));
        EXPECT_EQ(camera.run({"get_cb_cam_info"}).out,
                  std::string("VERSION=A9\nMODEL=") + s.model + "\nRESOLUTION=" + s.resolution + "\n");
    }
}

TEST_F(SerialTest, SilentLateShortAndOverlongAnswersOfTheBlock)
{
    std::string flood = "E0:";
    for (int i = 0; i < 400; ++i) flood += i == 6 ? " 46" : " 99";
    const struct {
        std::string replies, out;
    } kCases[] = {
        {"E0: FF E0 01 00 00 00 26 00 00 E0\n", "VERSION=26\nMODEL=2M Panasonic\nRESOLUTION=720p\n"},
        {"E3: FF E3 01 00 00 00 09 00 00 E3\n", "VERSION=09\nMODEL=Unknown 00\nRESOLUTION=\n"},
        // Shorter than the byte that is read: the one before it still stands there.
        {"E0: FF E0 01 00 00 00 36 00 00 E0\n5C: FF 5C 01\nE3: 01 02 03 04 05 06 07\n",
         "VERSION=07\nMODEL=2M OmniVision\nRESOLUTION=720p\n"},
        // What comes too late is taken for the answer to the next command.
        {"E0: +3200 FF E0 01 00 00 00 16 00 00 E0\n5C: +1500 FF 5C 01 00 00 00 01 00 00 5C\n",
         "VERSION=01\nMODEL=Unknown 00\nRESOLUTION=\n"},
        // Surplus bytes belong to the next command too.
        {flood + "\n", "VERSION=99\nMODEL=2M Sony\nRESOLUTION=720p\n"},
    };
    plug("ttyAMA2 block\n");
    for (const auto& c : kCases) {
        write_file(camera.state("ttyAMA2.replies"), c.replies);
        EXPECT_EQ(camera.run({"get_cb_cam_info"}).out, c.out) << c.replies;
    }
}

TEST_F(SerialTest, PlugChecksWhatItIsTold)
{
    const std::string folder = camera.state("").string();
    EXPECT_EQ(vcam("plug " + folder).text, "ttyAMA1 nothing\nttyAMA2 nothing\n");
    write_file(camera.folder() / "replies", "E0: FF E0 01 00 00 00 36 00 00 E0\n");
    EXPECT_EQ(vcam("plug " + folder + " ttyAMA2 block " + (camera.folder() / "replies").string()).status, 0);
    EXPECT_EQ(vcam("plug " + folder + " ttyAMA1 loopback wrong@3").status, 0);
    EXPECT_EQ(vcam("plug " + folder + " ttyAMA1 loopback late=5").status, 0);
    EXPECT_EQ(vcam("plug " + folder).text, "ttyAMA1 loopback late=5\nttyAMA2 block\n");
    EXPECT_EQ(camera.run({"get_cb_cam_info"}).out, "VERSION=36\nMODEL=2M OmniVision\nRESOLUTION=720p\n");
    write_file(camera.folder() / "replies", "E0: FF 100\n");
    for (const std::string& words :
         {std::string("ttyAMA0 loopback"), std::string("ttyAMA1"), std::string("ttyAMA1 cable"),
          std::string("ttyAMA1 loopback wrong@x"), std::string("ttyAMA1 loopback wrong=1"),
          std::string("ttyAMA1 loopback late=-1"), "ttyAMA2 block " + (camera.folder() / "replies").string()})
        EXPECT_EQ(vcam("plug " + folder + " " + words).status, words.ends_with("replies") ? 1 : 2) << words;
    EXPECT_EQ(vcam("plug " + folder).text, "ttyAMA1 loopback late=5\nttyAMA2 block\n");
}
