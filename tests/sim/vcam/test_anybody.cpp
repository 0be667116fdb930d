// The camera of a user who is not root. Root who starts this program becomes such a user first.
#include "tests/support/firmware.hpp"

#include <cerrno>
#include <cstddef>
#include <gmock/gmock.h>
#include <grp.h>
#include <linux/filter.h>
#include <linux/sched.h>
#include <linux/seccomp.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>

using testing::Contains;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

constexpr uid_t kAnybody = 54321; // has no account and owns nothing

// An installed tree that anybody can read: the build folder's owner may keep it closed.
class PrivateCopy {
public:
    PrivateCopy()
    {
        for (const char* place : {"bin", "libexec/zep"}) fs::create_directories(folder_ / place);
        fs::copy_file(VCAM, folder_ / "bin/vcam");
        fs::copy_file(ZEP, folder_ / "bin/zep");
        fs::copy_file(WAYS_OUT, folder_ / "bin/ways_out");
        fs::copy_file(VCAM_GUEST, folder_ / "libexec/zep/vcam-guest");
        fs::copy(PRELOAD, folder_ / "libexec/zep/preload", fs::copy_options::recursive);
        vcam_program = (folder_ / "bin/vcam").string();
    }

    [[nodiscard]] bool give_to(uid_t user) const
    {
        return say("chown -hR " + std::to_string(user) + " " + folder_.string()).status == 0;
    }

private:
    const TempFolder temporary_;
    const fs::path folder_ = temporary_.path();
};

bool become(uid_t user)
{
    return setgroups(0, nullptr) == 0 && setresgid(user, user, user) == 0 && setresuid(user, user, user) == 0;
}

// From now on the kernel refuses a call to this process whose second word (ioctl) or first (clone) is
// like that, as a container's rules or a security module do.
enum class Refused { none, namespaces, rights };

bool refuse(Refused what)
{
    const bool clone = what == Refused::namespaces;
    const auto word = uint32_t(offsetof(seccomp_data, args) + (clone ? 0 : 8));
    sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, uint32_t(clone ? SYS_clone : SYS_ioctl), 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, word),
        clone ? sock_filter(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, CLONE_NEWUSER, 0, 1))
              : sock_filter(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SIOCSIFFLAGS, 0, 1)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = {std::size(steps), steps};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

// What this system refuses to a user who is not root.
Refused refused_here()
{
    return Refused(in_child([] {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return int(Refused::namespaces);
        ifreq request = {};
        strcpy(request.ifr_name, "lo");
        request.ifr_flags = IFF_UP;
        const bool up = ioctl(socket(AF_INET, SOCK_DGRAM, 0), SIOCSIFFLAGS, &request) == 0;
        return int(up ? Refused::none : Refused::rights);
    }));
}

void expect_reason(Refused what, const Outcome& run)
{
    const bool namespaces = what == Refused::namespaces;
    const std::string lacks =
        namespaces ? "no namespaces for uid " + std::to_string(geteuid()) : "no loopback";
    const std::string variables = namespaces ? "user.max_user_namespaces and kernel.unprivileged_userns_clone"
                                             : "kernel.apparmor_restrict_unprivileged_userns=0";
    EXPECT_EQ(run.status, 125);
    EXPECT_EQ(run.ending, "");
    EXPECT_THAT(run.err, MatchesRegex("vcam: the sandbox does not start: " + lacks +
                                      ": [^\n]*; run as root, or[^\n]*" + variables + " with sysctl\n"));
}

struct Anybody : testing::Test {
    void SetUp() override { ASSERT_NE(geteuid(), 0u); }
    Camera camera;
};

} // namespace

TEST_F(Anybody, UpgradesACamera)
{
    const Firmware firmware = make_firmware(camera.folder());
    write_file(camera.root("/tmp/pkg"), firmware.pack());
    const Outcome run =
        camera.run({"upgrade", "/tmp/pkg", "-v"}, {"--daemon", "/bin/holder:hold=/etc/hosts:ignore-term"});
    if (const Refused what = refused_here(); what != Refused::none) return expect_reason(what, run);
    EXPECT_EQ(run.out, "CFlash_QRNWrite : flash1 complete\nCFlash_QRNWrite : flash2 complete\n"
                       "CFlash_QRNWrite : flash3 complete\nUpgrade complete.\n");
    EXPECT_EQ(run.ending, "reboot");
    EXPECT_THAT(run.log, Contains("9 upgrade: Upgrade complete."));
    EXPECT_THAT(run.of("kill"), Contains("/bin/holder signal 9")) << "it held a file in /etc";
    EXPECT_TRUE(camera.flash(1).starts_with(firmware.kernel));
    EXPECT_TRUE(camera.flash(2).starts_with(firmware.root));
    EXPECT_EQ(camera.shell("cat /etc/tcp_server.conf /etc/cam_model.conf"),
              "server_port=1852\nmax_client=99\n# set in production\ncam_model=ZM131\n");
    EXPECT_EQ(
        camera.shell("id -u; xgpio 8 1; echo V > /dev/watchdog; date 010203042020 > /dev/null; date +%Y"),
        "0\n1 \n2020\n");
}

TEST_F(Anybody, HasTheNeighbourAndTheMediaToo)
{
    const Outcome run = camera.run({"sh", "-c", "qrn_arp eth0 192.168.10.1 5000; df -k /mnt/sd | tail -1"},
                                   {"--link", "192.168.10.1", "--medium", "sd=1M"});
    if (const Refused what = refused_here(); what != Refused::none) return expect_reason(what, run);
    EXPECT_THAT(run.out, StartsWith("conflict 02:5a:00:00:00:02\n/dev/sd "));
    EXPECT_EQ(run.err, "");
}

TEST_F(Anybody, FindsNoWayOut)
{
    if (refused_here() != Refused::none) {
        ASSERT_TRUE(may_skip()) << "this system gives no namespaces to a user who is not root";
        GTEST_SKIP();
    }
    const std::string outside = write_file(camera.folder() / "outside", "the host's");
    const std::string program = fs::path(vcam_program).parent_path() / "ways_out";
    // With the preload library and without it: neither may matter.
    for (const char* preload : {"--no-mark", "--no-preload"}) {
        const Outcome run = camera.run({"/run/bin/ways_out", std::to_string(getpid()), outside},
                                       {"--bind", program, preload});
        EXPECT_THAT(run.out, MatchesRegex("[0-9]+ tried, 0 open\n")) << preload << run.err;
        EXPECT_EQ(run.status, 0) << preload;
    }
}

TEST_F(Anybody, IsToldWhichSwitchOfTheSystemIsOff)
{
    for (const Refused what : {Refused::namespaces, Refused::rights}) {
        const Refused here = refused_here();
        const int status = in_child([&] { // the filter stays for good
            if (!refuse(what)) return 2;
            expect_reason(here == Refused::namespaces ? here : what, camera.run({"true"}));
            return int(HasFailure());
        });
        EXPECT_EQ(status, 0) << int(what);
    }
}

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (geteuid() != 0) return RUN_ALL_TESTS();
    const PrivateCopy copy;
    if (!copy.give_to(kAnybody) || !become(kAnybody)) {
        perror("no other user to be");
        return 1;
    }
    return RUN_ALL_TESTS();
}
