// Process numbers, lists that hit everything, and an unreadable process list.
#include "service/applets.h"
#include "service/cutil_proc.h"
#include "tests/camera/libs/inside.hpp"

#include <csignal>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/time.h>

namespace {

// A process with a first argument of the test's choice that waits for a signal, after some set-up.
pid_t start(const string& name, const string& setup = "")
{
    int ready[2], never[2];
    if (pipe(ready) < 0 || pipe(never) < 0) return -1;
    pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(never[0], STDIN_FILENO);
        dup2(ready[1], STDOUT_FILENO);
        string script = setup + "echo; exec >&-; while :; do read line; done";
        execl("/bin/sh", name.c_str(), "-c", script.c_str(), nullptr);
        _exit(127);
    }
    close(ready[1]);
    close(never[0]);
    char byte;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    close(ready[0]);
    return pid; // the other end of its input stays open in this process
}

// The next process gets this number.
void advance_to(pid_t next) { write_file("/proc/sys/kernel/ns_last_pid", std::to_string(next - 1)); }

bool runs(pid_t pid) { return waitpid(pid, nullptr, WNOHANG) == 0; }

int ended_by(pid_t pid)
{
    int status = 0;
    waitpid(pid, &status, 0);
    return WTERMSIG(status);
}

int64_t now_ms()
{
    struct timeval now;
    gettimeofday(&now, nullptr);
    return int64_t(now.tv_sec) * 1000 + now.tv_usec / 1000;
}

} // namespace

TEST(Proc, Number20CanBeSignalledButIsNotReported)
{
    advance_to(19);
    pid_t p19 = start("/bin/low19"), p20 = start("/bin/low20");
    EXPECT_EQ(p19, 19);
    EXPECT_EQ(p20, 20);
    EXPECT_EQ(CUTIL_IsProc("/bin/low", 0), 0);
    pid_t p21 = start("/bin/low21");
    EXPECT_EQ(p21, 21);
    EXPECT_EQ(CUTIL_IsProc("/bin/low", 0), 1);
    EXPECT_EQ(CUTIL_KillProc("/bin/low", SIGTERM), 0);
    EXPECT_EQ(ended_by(p20), SIGTERM);
    EXPECT_EQ(ended_by(p21), SIGTERM);
    EXPECT_TRUE(runs(p19));
    EXPECT_EQ(CUTIL_IsProc("/bin/low", 0), 0);
    kill(p19, SIGKILL);
    EXPECT_EQ(ended_by(p19), SIGKILL);
    advance_to(1000);
}

// In a process space of its own, as it would end the test too. A camera mounts no second process file system;
// what is read of it stands in plain files.
TEST(Proc, AnEmptyLineOfAListHitsEveryProcessAbove19)
{
    isolated(CLONE_NEWPID | CLONE_NEWNS, [] {
        advance_to(19);
        const pid_t spared = start("/bin/a"), second = start("/bin/b"), third = start("relative");
        EXPECT_EQ(spared, 19);
        ASSERT_EQ(mount("processes", "/proc", "tmpfs", 0, nullptr), 0);
        for (const pid_t pid : {spared, second, third}) {
            const string folder = "/proc/" + std::to_string(pid);
            ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
            write_file(folder + "/cmdline", "any");
        }
        write_file("/tmp/list", "/bin/none\n\n");
        EXPECT_EQ(CUTIL_KillProcAll("/tmp/list", SIGKILL), 0);
        EXPECT_EQ(ended_by(second), SIGKILL);
        EXPECT_EQ(ended_by(third), SIGKILL);
        EXPECT_TRUE(runs(spared));
    });
}

TEST(Proc, WaitingForOneThatIgnoresTheSignalTakesTenSeconds)
{
    pid_t stubborn = start("/bin/stubborn", "trap '' TERM; ");
    char name[] = "xkill", path[] = "/bin/stubborn";
    char* argv[] = {name, path, nullptr};
    int64_t begin = now_ms();
    EXPECT_EQ(xkill_main(2, argv), 0);
    int64_t taken = now_ms() - begin;
    EXPECT_GE(taken, 10000);
    EXPECT_LT(taken, 19000);
    EXPECT_TRUE(runs(stubborn));
    begin = now_ms();
    char word[] = "SIGKILL";
    char* kill_argv[] = {name, word, path, nullptr};
    EXPECT_EQ(xkill_main(3, kill_argv), 0);
    EXPECT_LT(now_ms() - begin, 9000) << "the wait is for the word";
    EXPECT_EQ(ended_by(stubborn), SIGKILL);
}

// Without /proc nothing says that a process is gone.
TEST(Proc, AnUnreadableProcessListIsMinusOneAndCountsAsAlive)
{
    isolated(CLONE_NEWNS, [] {
        write_file("/tmp/list", "/bin/confd\n");
        mkdir("/tmp/tmp", 0700); // for the captured output
        ASSERT_EQ(chroot("/tmp"), 0);
        EXPECT_EQ(printed([] { EXPECT_EQ(CUTIL_IsProc("/bin/confd", 0), -1); }), "");
        EXPECT_EQ(printed([] { EXPECT_EQ(CUTIL_IsProc("/bin/confd", 1), -1); }),
                  "CUTIL_IsProc error while open /proc\n");
        EXPECT_EQ(CUTIL_KillProc("", SIGKILL), 0);
        EXPECT_EQ(CUTIL_KillProcAll("/list", SIGKILL), 0);
        char name[] = "xkill", word[] = "alive", path[] = "/bin/confd";
        char* argv[] = {name, word, path, nullptr};
        EXPECT_EQ(printed([&] { xkill_main(3, argv); }), "Alive /bin/confd\n");
    });
}

// The outer test reads the system log.
TEST(Proc, ListMessages)
{
    pid_t daemon = start("/bin/listed");
    write_file("/tmp/list", "/bin/listed\n/bin/other\n/bin/list\n");
    EXPECT_EQ(CUTIL_KillProcAll("/tmp/list", SIGUSR1), 0);
    EXPECT_EQ(ended_by(daemon), SIGUSR1);
    EXPECT_EQ(CUTIL_KillProcAll("/tmp/none", SIGUSR1), -1);
}
