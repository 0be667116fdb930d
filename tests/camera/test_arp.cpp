// The ARP probe on a wire with another host, whose kernel answers for its own address.
#include "tests/support/camera.hpp"
#include "tests/support/camera.hpp"

#include <gmock/gmock.h>

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

const std::string kNeighbour = "nsenter --net=/run/netns/neighbour ";
const std::string kPeer = kNeighbour + "/run/bin/camera_peer ";
const std::string kOther = "025a00000002", kOwn = "025a00000001";
const std::string kFree = "192.168.10.77", kFreeHex = "c0a80a4d";

// An ARP frame as hex, from the neighbour.
std::string frame(const std::string& operation, const std::string& sender_address,
                  const std::string& target_hardware, const std::string& target_address,
                  const std::string& type = "0806")
{
    return "ffffffffffff" + kOther + type + "0001080006040" + "00" + operation + kOther + sender_address +
           target_hardware + target_address;
}

struct Arp : testing::Test {
    Camera camera;

    // A line for the camera's shell, with a neighbour that owns 192.168.10.1.
    Outcome wired(const std::string& line)
    {
        return camera.run({"sh", "-c", line}, {"--link", "192.168.10.1", "--bind", PEER});
    }
    // Probes for a free address while the neighbour sends these frames, half a second after the start.
    Outcome meets(const std::string& frames, const std::string& limit = "3000")
    {
        return wired("(busybox sleep 0.3; " + kPeer + "send " + frames + ") & qrn_arp eth0 " + kFree + " " +
                     limit + "; echo status $?; wait");
    }
};

} // namespace

TEST_F(Arp, AnAddressOfTheOtherHostIsAConflictAndNobodysIsFree)
{
    Outcome run = wired("qrn_arp eth0 192.168.10.1 5000; echo $?; qrn_arp eth0 " + kFree + " 300; echo $?");
    EXPECT_EQ(run.out, "conflict 02:5a:00:00:00:02\n0\nfree\n0\n");
    EXPECT_EQ(run.err, "");
}

TEST_F(Arp, ProbesAreFortyTwoDocumentedBytes)
{
    Outcome run = wired(kPeer + "watch /tmp/frames; qrn_arp eth0 " + kFree + " 0; sleep 1; cat /tmp/frames");
    EXPECT_EQ(run.out, "free\nffffffffffff" + kOwn + "08060001080006040001" + kOwn + "00000000" +
                           "000000000000" + kFreeHex + "\n");
    // A missing limit is 0; a text that is not an address is 0.0.0.0.
    run = wired(kPeer + "watch /tmp/frames; qrn_arp eth0 camera none; sleep 1; cat /tmp/frames");
    EXPECT_EQ(run.out.size(), strlen("free\n") + 85) << run.out;
    EXPECT_THAT(run.out, testing::EndsWith("00000000000000000000\n"));
}

// The one that has begun hears the other's first probe and yields.
TEST_F(Arp, OfTwoProbersTheFirstHearsTheSecond)
{
    Outcome run = wired("qrn_arp eth0 " + kFree + " 20000 & busybox sleep 0.3; " + kNeighbour +
                        "qrn_arp eth0 " + kFree + " 500 > /tmp/second; wait; cat /tmp/second");
    EXPECT_THAT(run.out, MatchesRegex("conflict 02:5a:00:00:00:02\n(free|conflict 02:5a:00:00:00:01)\n"));
}

TEST_F(Arp, WhoeverClaimsOrAsksForTheAddressIsAConflict)
{
    const std::string none = "000000000000", nobody = "00000000", else_ = "c0a80a05";
    for (const std::string& hex : {frame("2", kFreeHex, kOwn, nobody), frame("1", kFreeHex, none, else_),
                                   frame("1", nobody, none, kFreeHex), frame("1", else_, none, kFreeHex),
                                   frame("2", kFreeHex, kOwn, nobody) + std::string(2800, '0')})
        EXPECT_EQ(meets(hex, "20000").out, "conflict 02:5a:00:00:00:02\nstatus 0\n") << hex;
}

TEST_F(Arp, FramesThatSayNothingOfTheAddressLeaveItFree)
{
    const std::string none = "000000000000", nobody = "00000000", else_ = "c0a80a05";
    const std::string reply = frame("2", kFreeHex, kOwn, nobody);
    std::string frames = reply.substr(0, 28) + " " + reply.substr(0, 64) + " " + reply.substr(0, 82) + " " +
                         frame("3", kFreeHex, kOwn, nobody) + " " + frame("0", kFreeHex, kOwn, nobody) + " " +
                         frame("1", else_, kOwn, kFreeHex) + " " + frame("2", else_, none, kFreeHex) + " " +
                         frame("2", kFreeHex, kOwn, nobody, "0800");
    // The second is cut so short that only the bytes of the first, still in the buffer, would conflict.
    frames += " " + frame("1", else_, kOwn, kFreeHex) + " " + frame("1", else_, none, kFreeHex).substr(0, 76);
    EXPECT_EQ(meets(frames).out, "free\nstatus 0\n");
}

TEST_F(Arp, ErrorsOfTheInterfaceEndWithoutAWordOnStandardOutput)
{
    for (const char* name :
         {"eth7", "sixteencharacter", "a_name_much_longer_than_any_interface_may_have", "''"}) {
        Outcome run = wired(std::string("qrn_arp ") + name + " " + kFree + " 1000; echo status $?");
        EXPECT_EQ(run.out, "status 0\n") << name;
        EXPECT_EQ(run.err, "");
    }
    Outcome run = wired("(busybox sleep 0.5; busybox ip link set eth0 down) & qrn_arp eth0 " + kFree +
                        " 60000; echo status $?");
    EXPECT_EQ(run.out, "status 0\n") << "goes down in mid-run";
    EXPECT_EQ(run.err, "");
    run = wired("(busybox sleep 0.5; busybox ip link del eth0) & qrn_arp eth0 " + kFree +
                " 60000; echo status $?");
    EXPECT_EQ(run.out, "status 0\n") << "is gone in mid-run";
    run = wired("busybox ip link set eth0 down; qrn_arp eth0 " + kFree + " 60000; echo status $?");
    EXPECT_EQ(run.out, "status 0\n");
    EXPECT_EQ(run.err, "sendto: Network is down\n");
}

// Nobody was asked, so nothing is known; one probe that leaves is enough.
TEST_F(Arp, WithoutAProbeTheAddressIsUnknown)
{
    Outcome run =
        camera.run({"sh", "-c",
                    "SENDTO_ERRNO=105 LD_PRELOAD=/run/bin/libcamera_moments.so:$LD_PRELOAD qrn_arp eth0 " +
                        kFree + " 300; echo status $?"},
                   {"--link", "192.168.10.1", "--bind", MOMENTS});
    EXPECT_EQ(run.out, "unknown\nstatus 0\n");
    EXPECT_THAT(run.err, StartsWith("sendto: No buffer space available\n"));
}

TEST_F(Arp, TheUsageNamesTwoOfItsThreeArguments)
{
    for (const char* words : {"", "eth0", "eth0 10.0.0.1", "eth0 10.0.0.1 100 more"}) {
        Outcome run = wired(std::string("qrn_arp ") + words);
        EXPECT_EQ(run.status, 255);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, "qrn_arp: bad option\nUsage: qrn_arp ifname IP\n");
    }
}

TEST_F(Arp, TheLinkIsCheckedBeforeTheCameraStarts)
{
    Outcome run = camera.run({"true"}, {"--link", "192.168.10"});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, "vcam: run: --link 192.168.10: write it as 192.168.10.1; see: vcam run --help\n");
    run = wired(
        "busybox ifconfig eth0 192.168.10.2; busybox ping -c 1 -W 5 192.168.10.1 >/dev/null && echo there");
    EXPECT_EQ(run.out, "there\n");
}
