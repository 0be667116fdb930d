// Process numbers, lists that hit everything, and an unreadable process list.
#include "service/applets.h"
#include "service/cutil_proc.h"
#include "tests/camera/libs/inside.hpp"
#include "tests/support/child.hpp"

#include <csignal>
#include <ctime>

namespace {

// The next process gets this number.
void advance_to(pid_t next) { write_file("/proc/sys/kernel/ns_last_pid", std::to_string(next - 1)); }

int run_xkill(string first, string second = "")
{
    char name[] = "xkill";
    char* argv[] = {name, first.data(), second.data(), nullptr};
    return xkill_main(second.empty() ? 2 : 3, argv);
}

} // namespace

TEST(Proc, Number20CanBeSignalledButIsNotReported)
{
    advance_to(19);
    Child p19("/bin/low19"), p20("/bin/low20");
    EXPECT_EQ(p19.pid(), 19);
    EXPECT_EQ(CUTIL_IsProc("/bin/low", 0), 0);
    Child p21("/bin/low21");
    EXPECT_EQ(p21.pid(), 21);
    EXPECT_EQ(CUTIL_IsProc("/bin/low", 0), 1);
    EXPECT_EQ(CUTIL_KillProc("/bin/low", SIGTERM), 0);
    EXPECT_EQ(p20.wait_end(), SIGTERM);
    EXPECT_EQ(p21.wait_end(), SIGTERM);
    EXPECT_EQ(p19.ended_by(), 0);
    EXPECT_EQ(CUTIL_IsProc("/bin/low", 0), 0);
    advance_to(1000);
}

// In a process space of its own, as it would end the test too. A camera mounts no second process file system;
// what is read of it stands in plain files.
TEST(Proc, AnEmptyLineOfAListHitsEveryProcessAbove19)
{
    isolated(CLONE_NEWPID | CLONE_NEWNS, [] {
        advance_to(19);
        Child spared("/bin/a"), second("/bin/b"), third("relative");
        EXPECT_EQ(spared.pid(), 19);
        ASSERT_EQ(mount("processes", "/proc", "tmpfs", 0, nullptr), 0);
        for (const Child* child : {&spared, &second, &third})
            write_file("/proc/" + std::to_string(child->pid()) + "/cmdline", "any");
        EXPECT_EQ(CUTIL_KillProcAll(write_file("/tmp/list", "/bin/none\n\n").c_str(), SIGKILL), 0);
        EXPECT_EQ(second.wait_end(), SIGKILL);
        EXPECT_EQ(third.wait_end(), SIGKILL);
        EXPECT_EQ(spared.ended_by(), 0);
    });
}

// With SIGKILL the wait is for the word, not the path.
TEST(Proc, WaitingForOneThatIgnoresTheSignalTakesTenSeconds)
{
    Child stubborn("/bin/stubborn", "trap '' TERM; ");
    const time_t begin = time(nullptr);
    EXPECT_EQ(run_xkill("/bin/stubborn"), 0);
    EXPECT_GE(time(nullptr), begin + 10);
    EXPECT_EQ(stubborn.ended_by(), 0);
    EXPECT_EQ(run_xkill("SIGTERM", "/bin/stubborn"), 0);
    EXPECT_LT(time(nullptr), begin + 19);
    EXPECT_EQ(run_xkill("SIGKILL", "/bin/stubborn"), 0);
    EXPECT_EQ(stubborn.wait_end(), SIGKILL);
}

// Without /proc nothing says that a process is gone.
TEST(Proc, AnUnreadableProcessListIsMinusOneAndCountsAsAlive)
{
    isolated(CLONE_NEWNS, [] {
        write_file("/tmp/list", "/bin/confd\n");
        mkdir("/tmp/tmp", 0700); // for the captured output
        ASSERT_EQ(chroot("/tmp"), 0);
        EXPECT_EQ(printed([] {
                      EXPECT_EQ(CUTIL_IsProc("/bin/confd", 0), -1);
                      EXPECT_EQ(CUTIL_IsProc("/bin/confd", 1), -1);
                      EXPECT_EQ(CUTIL_KillProc("", SIGKILL), 0);
                      EXPECT_EQ(CUTIL_KillProcAll("/list", SIGKILL), 0);
                      run_xkill("alive", "/bin/confd");
                  }),
                  "CUTIL_IsProc error while open /proc\nAlive /bin/confd\n");
    });
}

// The outer test reads the system log.
TEST(Proc, ListMessages)
{
    Child daemon("/bin/listed");
    write_file("/tmp/list", "/bin/listed\n/bin/other\n/bin/list\n");
    EXPECT_EQ(CUTIL_KillProcAll("/tmp/list", SIGUSR1), 0);
    EXPECT_EQ(daemon.wait_end(), SIGUSR1);
    EXPECT_EQ(CUTIL_KillProcAll("/tmp/none", SIGUSR1), -1);
}
