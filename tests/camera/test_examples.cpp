// The examples of the manual pages do in the camera what their pages say.
#include "tests/support/camera.hpp"

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
    {"confd", "echo port=81 > /etc/web.conf;", "",
     Eq("[QRN_ConnectUDSSocket] Error Number : 2, Error String : No such file or directory\n"
        "the file says port 81\n")},
    {"descriptors", "", "", Eq("slot 1 says t\nnothing for half a second\n")},
    {"icom", "", "", Eq("command 7, 6 bytes: zone 2\n")},
    {"network", "rm -f /etc/resolv.conf; echo nameserver 10.0.0.1 > /etc/resolv.conf;", "lo",
     MatchesRegex("lo: up\nreceived [0-9]+, sent [0-9]+ bytes\nname server 10.0.0.1\n")},
    {"settings", "printf 'stream_2_enable=1\\nstream_2_codec=mjpeg\\nstream_1_port=x\\n' > /etc/stream.conf;",
     "", Eq("stream 1 at port 1852: H.264, 4096 kbit/s\nstream 2 at port 1853: MJPEG, 1024 kbit/s\n")},
    {"shared_memory", "", "", Eq("counted to 2000\n")},
    {"sockets", "", "", Eq("GET TIME -> 12:34:56\nthe peer has closed\n")},
    {"thread", "", "", Eq("the worker ends\nit has worked\n")},
    {"time", "", "", MatchesRegex("20[0-9][0-9]-[01][0-9]-[0-3][0-9] [0-9:]+\ntime is up\n")},
    {"udp_log", "", "", Eq("[cam] motion in zone 2\n")},
    {"users", "rm -f /etc/qrnpasswd;", "",
     Eq(kNoUsers + kNoUsers + "refused: the fields of the file are separated by \"/\"\n" + kNoUsers +
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
