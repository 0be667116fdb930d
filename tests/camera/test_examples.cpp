// The examples of the manual pages do in the camera what their pages say.
#include "tests/camera/camera.hpp"

#include <gmock/gmock.h>

namespace {

using testing::Eq;
using testing::MatchesRegex;

struct Example {
    const char* name;
    const char* before;    // prepares the camera
    const char* arguments; // of the program
    testing::Matcher<std::string> out;
};

const std::string kNoUsers = "[USERTABLE_Init] Can't open /etc/qrnpasswd\n";

const Example kExamples[] = {
    {"conf", "echo port=80 > /etc/web.conf;", "", Eq("the web server is at port 80\nand now at port 8080\n")},
    {"descriptors", "", "", Eq("slot 1 says t\nnothing for half a second\n")},
    {"icom", "", "", Eq("command 7, 6 bytes: zone 2\n")},
    {"network", "rm -f /etc/resolv.conf; echo nameserver 10.0.0.1 > /etc/resolv.conf;", "lo",
     MatchesRegex("lo: up\nreceived [0-9]+, sent [0-9]+ bytes\nname server 10.0.0.1\n")},
    {"shared_memory", "", "", Eq("counted to 2000\n")},
    {"sockets", "", "", Eq("GET TIME -> 12:34:56\nthe peer has closed\n")},
    {"thread", "", "", Eq("the worker ends\nit has worked\n")},
    {"time", "", "", MatchesRegex("20[0-9][0-9]-[01][0-9]-[0-3][0-9] [0-9:]+\ntime is up\n")},
    {"udp_log", "", "", Eq("[cam] motion in zone 2\n")},
    {"users", "rm -f /etc/qrnpasswd;", "",
     Eq(kNoUsers + kNoUsers + "refused: the file's lines are separated by \"/\"\n" + kNoUsers +
        "viewer, right 1\nroot: changed\n")},
    {"watchdog", "", "",
     Eq("The timeout was set to 30 seconds\nThe timeout was set to 60 seconds\nstep 1 done\nstep 2 done\n"
        "step 3 done\nset disable write watchdog : 1\nclose watchdog\n")},
};

} // namespace

TEST(Examples, PrintWhatTheyShow)
{
    Camera camera;
    for (const Example& example : kExamples) {
        std::string program = std::string("example_") + example.name;
        std::string command = std::string(example.before) + " /run/bin/" + program + " " + example.arguments;
        Outcome run = camera.run({"sh", "-c", command}, {"--bind", EXAMPLES "/" + program});
        EXPECT_EQ(run.ending, "exit 0") << example.name << run.err;
        EXPECT_THAT(run.out, example.out) << example.name;
    }
}
