// What a program asks of other programs and of the system: written down to the letter, then done.
#include "sim/jffs2/jffs2.hpp"
#include "tests/sim/preload/camera.hpp"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <mtd/mtd-user.h>
#include <sys/mount.h>
#include <sys/time.h>

using namespace vcam;

namespace {

class Process : public test::CameraTest {
protected:
    // The journal without its times and process numbers.
    [[nodiscard]] std::string events() const
    {
        std::istringstream in(journal());
        std::string out;
        for (std::string line; std::getline(in, line);)
            out += line.substr(line.find(' ', line.find(' ') + 1) + 1) + "\n";
        return out;
    }
};

TEST_F(Process, CommandLinesAreKeptToTheLetterAndRun)
{
    const std::string mark = folder / "mark";
    const std::string command = "printf '%s\\n' \"a  b\" | tee " + mark + " >/dev/null\nexit 3";
    const int status = std::system(command.c_str());
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_EQ(read_file(mark), "a  b\n");
    ASSERT_EQ(vcamsim_fault("system 0 1 EAGAIN"), 0);
    EXPECT_EQ(std::system("touch /nowhere"), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(events(), "system printf '%s\\n' \"a  b\" | tee " + mark +
                            " >/dev/null\\nexit 3\nsystem touch /nowhere\n");
}

// Counted for the program that the line names, or for all.
TEST_F(Process, CallsOfTheCLibraryFailAsPlanned)
{
    const std::string from = folder / "from", to = folder / "to";
    write_file(from, "12345678");
    auto fails = [](int result, int error) { return result == -1 && errno == error; };
    for (const char* line :
         {"rename sim_preload 1 1 EIO", "rename other 0 -1 EPERM", "fsync 0 1 EROFS", "open 2 1 ENOSPC",
          "fork 0 1 EAGAIN", "unlink 0 1 drop", "read 0 1 short", "link 0 1 EMLINK",
          "malloc sim_preload 1 1 ENOMEM", "strdup 0 1 ENOMEM", "realloc 0 1 ENOMEM", "calloc 0 1 ENOMEM"})
        ASSERT_EQ(vcamsim_fault(line), 0) << line;
    EXPECT_EQ(::rename(from.c_str(), to.c_str()), 0);
    EXPECT_TRUE(fails(::rename(to.c_str(), from.c_str()), EIO));
    EXPECT_EQ(::unlink(to.c_str()), 0);
    EXPECT_TRUE(fails(::link(to.c_str(), from.c_str()), EMLINK));
    const int fd = ::open(to.c_str(), O_RDWR);
    ASSERT_GE(fd, 0) << "the unlink has only said yes";
    char bytes[8];
    EXPECT_EQ(::read(fd, bytes, sizeof bytes), 4);
    EXPECT_TRUE(fails(::fsync(fd), EROFS));
    EXPECT_EQ(::fsync(fd), 0);
    ::close(fd);
    ::close(::open(to.c_str(), O_RDONLY));
    EXPECT_TRUE(fails(::open(to.c_str(), O_RDONLY), ENOSPC));
    EXPECT_TRUE(fails(::fork(), EAGAIN));
    // This program's own allocations; the C library and the others in the process go on.
    void* const kept = malloc(100);
    EXPECT_TRUE(kept);
    errno = 0;
    EXPECT_TRUE(!malloc(100) && errno == ENOMEM);
    EXPECT_TRUE(!realloc(kept, 200) && !calloc(3, 3) && !strdup("words"));
    free(realloc(kept, 300));
}

// Before the operation, which a handler lets go on.
TEST_F(Process, ASignalOfThePlanComesAtItsCall)
{
    static volatile sig_atomic_t came = 0;
    struct sigaction action = {}, before = {};
    action.sa_handler = [](int number) { came = came * 100 + number; };
    for (const int number : {SIGHUP, SIGTERM}) sigaction(number, &action, &before);
    for (const char* line : {"mtd1 info 1 1 signal=TERM", "rename 0 1 signal=HUP", "system 0 1 signal=TERM"})
        ASSERT_EQ(vcamsim_fault(line), 0) << line;
    const int fd = ::open("/dev/mtd1", O_RDONLY);
    mtd_info_user info = {};
    EXPECT_EQ(::ioctl(fd, MEMGETINFO, &info), 0);
    EXPECT_EQ(came, 0);
    EXPECT_EQ(::ioctl(fd, MEMGETINFO, &info), 0);
    EXPECT_EQ(came, SIGTERM);
    EXPECT_EQ(::rename("/nowhere/a", "/nowhere/b"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(std::system("exit 3"), 3 << 8);
    EXPECT_EQ(came, (SIGTERM * 100 + SIGHUP) * 100 + SIGTERM);
    ::close(fd);
    for (const int number : {SIGHUP, SIGTERM}) sigaction(number, &before, nullptr);
}

TEST_F(Process, SignalsAreToldWithTheNameOfWhoGetsThem)
{
    const pid_t child = ::fork();
    if (child == 0) {
        ::execl("/bin/sleep", "/bin/confd", "1000", nullptr);
        ::_exit(127);
    }
    const std::string cmdline = "/proc/" + std::to_string(child) + "/cmdline";
    while (read_file(cmdline).rfind("/bin/confd", 0) != 0) ::usleep(0);
    EXPECT_EQ(::kill(child, 0), 0); // only a question
    EXPECT_EQ(::kill(child, SIGTERM), 0);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    EXPECT_EQ(events(), "kill SIGTERM " + std::to_string(child) + " /bin/confd\n");
}

// The settings are on the flash before the mount point goes away, whether or not it does.
TEST_F(Process, UnmountingWritesTheSettingsBack)
{
    const std::string settings = folder / "etc";
    write_file(settings + "/network/network.conf", "ip=192.168.10.100\n");
    write_file(folder / "mounts", settings + " mtd3\n");
    ASSERT_EQ(vcamsim_fault("umount 0 1 EBUSY"), 0);
    const int fd = ::open("/dev/mtd3", O_RDONLY); // makes the image
    EXPECT_EQ(::umount(settings.c_str()), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(image(3), std::string(1 << 20, '\xFF'));
    EXPECT_EQ(::umount((settings + "/").c_str()), -1); // no mount point of this machine
    EXPECT_NE(errno, EBUSY);
    const std::string out = folder / "out";
    std::filesystem::create_directory(out);
    ASSERT_EQ(jffs2::unpack(folder / "flash/mtd3", 64 << 10, out), "");
    EXPECT_EQ(read_file(out + "/network/network.conf"), "ip=192.168.10.100\n");
    EXPECT_EQ(read_file(folder / "mounts"), settings + " mtd3\n"); // still mounted
    EXPECT_EQ(events(), "umount " + settings + "\numount " + settings + "/\n");
    ::close(fd);
}

// The media log's driver waits for a line that does not come.
TEST_F(Process, ASignalEndsAWaitForAChangeInTheMediaDrivers)
{
    struct sigaction wake = {}, before = {};
    wake.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &wake, &before);
    const int fd = ::open("/dev/log", O_RDWR);
    uint32_t wait = 1;
    ASSERT_EQ(::ioctl(fd, 0x40044C03, &wait), 0);
    const itimerval often = {{0, 30'000}, {0, 30'000}}, never = {};
    ::setitimer(ITIMER_REAL, &often, nullptr);
    char byte;
    EXPECT_EQ(::read(fd, &byte, 1), -1);
    EXPECT_EQ(errno, EINTR);
    ::setitimer(ITIMER_REAL, &never, nullptr);
    ::sigaction(SIGALRM, &before, nullptr);
    ::close(fd);
}

} // namespace
