// reboot and poweroff, the sleeping tools, and the daemons that only exist.
#include "sim/guest/guest.hpp"
#include "sim/guest/init.hpp"
#include "sim/guest/simlog.hpp"
#include "sim/base/text.hpp"

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vcam {
namespace {

int end_camera(const char* word, int offset)
{
    note_event("reboot", word);
    // Past the preloaded kill(): this is the machine's doing, and the journal has it already.
    if (syscall(SYS_kill, 1, SIGRTMIN + offset) < 0) fail("pid 1 does not answer");
    for (;;) pause(); // the camera ends under us
}

int sleep_for(double seconds)
{
    timespec left = {time_t(seconds), long(std::fmod(seconds, 1.0) * 1e9)};
    return nanosleep(&left, nullptr) == 0 ? 0 : 1;
}

} // namespace

int reboot_main(int, char**) { return end_camera("reboot", kReboot); }
int poweroff_main(int, char**) { return end_camera("poweroff", kPowerOff); }

int sleep_main(int argc, char** argv)
{
    double seconds = 0;
    for (int i = 1; i < argc; ++i) seconds += parse_seconds(argv[i], "sleep");
    return sleep_for(seconds);
}

int usleep_main(int argc, char** argv)
{
    return argc == 2 ? sleep_for(parse_seconds(argv[1], "usleep") / 1e6) : 1;
}

void become_daemon(const Daemon& daemon, int ready)
{
    unsetenv("LD_PRELOAD");
    fcntl(ready, F_SETFD, 0);
    std::string number = text("%d", ready);
    std::vector<std::string> words = {daemon.path, "--ready", number};
    if (daemon.ignore_term) words.emplace_back("--ignore-term");
    if (!daemon.hold.empty()) words.insert(words.end(), {"--hold", daemon.hold});
    std::vector<char*> arguments;
    for (auto& w : words) arguments.push_back(w.data());
    arguments.push_back(nullptr);
    execv("/sbin/vcam-guest", arguments.data());
    _exit(127);
}

int daemon_main(int argc, char** argv)
{
    int ready = -1;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--ignore-term")
            signal(SIGTERM, SIG_IGN);
        else if (option == "--ready" && i + 1 < argc)
            ready = atoi(argv[++i]);
        else if (option == "--hold" && i + 1 < argc && open(argv[++i], O_RDONLY) < 0)
            fprintf(stderr, "%s: cannot hold %s\n", argv[0], argv[i]);
    }
    if (ready >= 0) close(ready);
    for (;;) pause();
}

} // namespace vcam
