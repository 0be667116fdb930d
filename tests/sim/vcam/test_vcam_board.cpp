// vcam pin, rtc and what status says of the board.
#include "tests/support/camera.hpp"

#include <gmock/gmock.h>

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

struct VcamBoard : testing::Test {
    Said say(const std::string& command, const std::string& options = "") const
    {
        return vcam(command + " " + camera.state("").string() + " " + options);
    }
    Camera camera{{"--i2c", "0x34", "--i2c", "0xB2"}};
};

} // namespace

TEST_F(VcamBoard, StatusShowsTheBoard)
{
    Said fresh = say("status");
    EXPECT_THAT(fresh.text, HasSubstr("\nrtc       not started\ni2c       0x34\ni2c       0xB2\n"
                                      "pin       8.1 level 1\n"));
    EXPECT_THAT(fresh.text, Not(HasSubstr("register")));
    camera.run({"sh", "-c",
                "reg -s 0xFFFFFFFC 0x80; reg -s 0x101E0020 0x7; reg -c 0x101E0020 2;"
                "reg -s 0x20000000 1; reg -c 0x20000000 1; xi2c 0x34 1 2"});
    EXPECT_EQ(say("rtc", "--set '2031-01-02 03:04:05' --fault stopped").text,
              "2031-01-02 03:04:05, stopped\n");
    Said used = say("status");
    EXPECT_THAT(used.text,
                HasSubstr("\nrtc       2031-01-02 03:04:05, stopped\n"
                          "register  0x101E0020 = 0x00000005\nregister  0xFFFFFFFC = 0x00000080\n"));
    EXPECT_THAT(say("status", "--json").text,
                HasSubstr("\"rtc\":\"2031-01-02 03:04:05\",\"rtc_faults\":\"stopped\","
                          "\"registers\":{\"0x101E0020\":5,\"0xFFFFFFFC\":128},\"i2c\":[\"34\",\"B2\"],"
                          "\"pins\":[\"8.1 level 1\"],"));
}

TEST_F(VcamBoard, TheClockGoesOnWhileTheCameraRunsAndHealsOnDemand)
{
    EXPECT_EQ(say("rtc").status, 1); // the camera never ran
    say("rtc", "--set '2024-02-28 23:59:55' --fault no-leap --fault stopped");
    camera.run({"sleep", "10"});
    EXPECT_EQ(say("rtc").text, "2024-02-28 23:59:55, stopped no-leap\n");
    say("rtc", "--fault none");
    camera.run({"sleep", "10"});
    EXPECT_THAT(say("rtc").text, MatchesRegex("2024-02-29 00:00:0[56]\n"));
    for (const char* options :
         {"--set 2024-02-28", "--set '1999-12-31 00:00:00'", "--set '2023-02-29 00:00:00'",
          "--set '2024-02-28 23:59:55 x'", "--fault slow"}) {
        Said refused = say("rtc", options);
        EXPECT_EQ(refused.status, 2) << options;
        EXPECT_THAT(refused.text, MatchesRegex("vcam: rtc: .*\n")) << options;
    }
    EXPECT_THAT(say("rtc").text, MatchesRegex("2024-02-29 00:00:0[56]\n"));
}

TEST_F(VcamBoard, TheWiringIsCheckedBeforeItCounts)
{
    EXPECT_EQ(say("pin").text, "8.1 level 1\n");
    EXPECT_EQ(
        say("pin", "--clear '4.0 wire 5.0' '# a plug' '0x101E5000.7 stuck 1' '8.1 press 1.5 0.25 3'").text,
        "");
    EXPECT_EQ(say("pin").text, "4.0 wire 5.0\n# a plug\n0x101E5000.7 stuck 1\n8.1 press 1.5 0.25 3\n");
    for (const char* line : {"4.0", "4.8 level 1", "0.1 level 1", "11.0 level 1", "4.0 level 2", "4.0 stuck",
                             "4.0 wire 12.1", "4.0 wire", "8.1 press", "8.1 press 1", "8.1 press x 1",
                             "8.1 press 1 -1", "8.1 press 1 1 x", "8.1 hold 1", "0x101E5004.1 level 1",
                             "0x20050081 reads 1", "x reads 1", "0x20050080 reads 0x1FFFFFFFF"}) {
        Said refused = say("pin", std::string("'") + line + "'");
        EXPECT_EQ(refused.status, 2) << line;
        EXPECT_THAT(refused.text, MatchesRegex("vcam: pin: .*\n")) << line;
    }
    EXPECT_THAT(say("pin").text, EndsWith("3\n"));
    camera.run({"sleep", "5"});
    say("pin", "--clear '8.1 press +1 0.5'");
    double at = 0;
    ASSERT_EQ(sscanf(say("pin").text.c_str(), "8.1 press %lf 0.5", &at), 1);
    EXPECT_NEAR(at, 6, 0.5);
}
