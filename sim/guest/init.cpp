// pid 1 of the camera: mounts /etc from the flash, serves the system log, starts the daemons and
// the command, and ends the camera when the command ends or something resets it.
#include "sim/guest/init.hpp"
#include "sim/base/camera.hpp"
#include "sim/guest/flash_mounts.hpp"
#include "sim/guest/guest.hpp"
#include "sim/guest/power_on.hpp"
#include "sim/sandbox/sandbox.hpp"
#include "sim/guest/simlog.hpp"
#include "sim/base/raw.hpp"
#include "sim/guest/syslog_server.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/clock.hpp"
#include "sim/models/audio.hpp"
#include "sim/base/state.hpp"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <optional>
#include <poll.h>
#include <sys/mount.h>
#include <sys/signalfd.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vcam {
namespace {

constexpr int kWatchdogLookMs = 100;
constexpr int kPowerCutStatus = 121, kWatchdogStatus = 122, kTimeoutStatus = 124;

struct Options {
    double timeout = 0; // host seconds, 0: none
    double linger = 0;  // camera seconds after the command's end
    int fuse = -1;      // a descriptor of the host's /dev/fuse
    std::vector<Daemon> daemons;
    std::vector<char*> command;
};

// How the camera ended: what `ending` says and the status that `vcam run` passes on.
struct Ending {
    std::string words;
    int status = 0;
};

struct Reset {
    int offset; // from SIGRTMIN
    const char* words;
    int status;
};
constexpr Reset kResets[] = {
    {kReboot, "reboot", 0},
    {kPowerCut, "powercut", kPowerCutStatus},
    {kWatchdog, "watchdog", kWatchdogStatus},
    {kPowerOff, "poweroff", 0},
};

Options parse(int argc, char** argv)
{
    Options o;
    int i = 1;
    for (; i < argc && strcmp(argv[i], "--") != 0; i += 2) {
        const std::string name = argv[i], value = i + 1 < argc ? argv[i + 1] : "";
        if (name == "--timeout")
            o.timeout = parse_seconds(value, "--timeout");
        else if (name == "--linger")
            o.linger = parse_seconds(value, "--linger");
        else if (name == "--fuse")
            o.fuse = atoi(value.c_str());
        else if (name == "--daemon")
            o.daemons.push_back(parse_daemon(value));
        else
            fail("pid 1 does not know the option %s", name.c_str());
    }
    for (++i; i < argc; ++i) o.command.push_back(argv[i]);
    if (o.command.empty()) fail("pid 1 got no command");
    o.command.push_back(nullptr);
    return o;
}

class Init {
public:
    explicit Init(Options options)
        : options_(std::move(options)), camera_(kStateInside), settings_(camera_, options_.fuse)
    {
    }

    int run()
    {
        watch_signals();
        state::set_dir(kStateInside);
        power_on(getenv("VCAM_REALTIME") != nullptr, true);
        mount_settings();
        log_.open("/dev/log", camera_.path("syslog"));
        write_file("/proc/sys/kernel/ns_last_pid", "100"); // programs spare low process numbers
        for (const auto& d : options_.daemons) start_daemon(d);
        main_ = start(options_.command.data(), true);
        if (options_.timeout > 0) alarm_in(options_.timeout);
        while (!ending_) serve();
        finish();
        return ending_->status;
    }

private:
    void watch_signals()
    {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_BLOCK, &all, &old_mask_);
        signals_ = Fd(signalfd(-1, &all, SFD_NONBLOCK | SFD_CLOEXEC));
        if (!signals_) fail("no signalfd: %s", strerror(errno));
    }

    // Served from the flash where the host lets us; else a file system in memory, as large as the partition so that it can
    // be full, which is written when it is unmounted or the camera ends.
    void mount_settings()
    {
        const std::string refused = settings_.start("mtd3", "/etc");
        write_through_ = refused.empty();
        write_file(camera_.path("settings"), refused.empty()
                                                 ? std::string(kWrittenThrough) + "\n"
                                                 : text("at unmount or end, as %s\n", refused.c_str()));
        if (!write_through_) {
            const auto& p = camera_.partition("mtd3");
            const std::string size = text("mode=755,size=%llu", (unsigned long long)p.size);
            if (mount("/dev/mtdblock3", "/etc", "tmpfs", MS_NOSUID | MS_NODEV, size.c_str()) < 0)
                fail("cannot mount /etc: %s", strerror(errno));
            unpack_image(camera_.image(p), p, "/etc");
        }
        write_file(camera_.path("mounts"), "/etc mtd3\n");
    }

    static void alarm_in(double seconds)
    {
        itimerval timer = {};
        timer.it_value.tv_sec = time_t(seconds);
        timer.it_value.tv_usec = suseconds_t((seconds - double(timer.it_value.tv_sec)) * 1e6) + 1;
        setitimer(ITIMER_REAL, &timer, nullptr);
    }

    pid_t start(char* const* command, bool simulated)
    {
        fflush(nullptr);
        pid_t child = fork();
        if (child < 0) fail("no process in the camera: %s", strerror(errno));
        if (child > 0) return child;
        sigprocmask(SIG_SETMASK, &old_mask_, nullptr);
        if (!simulated)
            unsetenv("LD_PRELOAD");
        else if (const char* library = getenv("VCAM_LIBRARY"))
            setenv("LD_PRELOAD", library, 1);
        execvp(command[0], command);
        fprintf(stderr, "vcam: run: cannot start %s in the camera: %s\n", command[0], strerror(errno));
        _exit(errno == ENOENT ? 127 : 126);
    }

    // Daemons only wait for signals. They stand outside simulated time, which would otherwise have
    // to tell a daemon that waits for ever from one that works.
    void start_daemon(const Daemon& d)
    {
        fflush(nullptr);
        int ready[2];
        if (pipe2(ready, O_CLOEXEC) < 0) fail("no pipe: %s", strerror(errno));
        Fd ready_read(ready[0]), ready_write(ready[1]);
        pid_t child = fork();
        if (child < 0) fail("no process in the camera: %s", strerror(errno));
        if (child == 0) {
            sigprocmask(SIG_SETMASK, &old_mask_, nullptr);
            become_daemon(d, ready_write.release());
        }
        ready_write = Fd();
        char byte;
        while (read(ready_read.get(), &byte, 1) < 0 && errno == EINTR) {
        }
        daemons_[child] = d.path;
        note_event("exec", d.path);
    }

    void serve()
    {
        pollfd wait[3] = {{signals_.get(), POLLIN, 0}, {log_.fd(), POLLIN, 0}, {settings_.fd(), POLLIN, 0}};
        if (poll(wait, 3, kWatchdogLookMs) < 0 && errno != EINTR) fail("poll: %s", strerror(errno));
        clock::check_watchdog();                  // nobody else may be there to see it fire
        media::catch_up(media::Locked::Wait::no); // nor to let sound flow; a program may be stopped in there
        log_.drain();
        if (wait[2].revents) settings_.accept();
        signalfd_siginfo info;
        while (!ending_ && read(signals_.get(), &info, sizeof info) == ssize_t(sizeof info))
            on_signal(int(info.ssi_signo));
    }

    void on_signal(int number)
    {
        if (number == SIGCHLD) return reap();
        if (number == SIGALRM) return end("timeout", kTimeoutStatus);
        if (number == SIGTERM || number == SIGINT || number == SIGHUP) {
            if (isatty(0) && number == SIGINT) return; // the terminal's own reaches the command by itself
            return end(text("signal %d", number), 128 + number);
        }
        for (const auto& r : kResets)
            if (number == SIGRTMIN + r.offset) return end(r.words, r.status);
    }

    void end(std::string words, int status)
    {
        if (!ending_) ending_ = Ending{std::move(words), status};
    }

    void reap()
    {
        int status;
        for (pid_t pid; !ending_ && (pid = waitpid(-1, &status, WNOHANG)) > 0;) on_end(pid, status);
    }

    void on_end(pid_t pid, int status)
    {
        if (auto it = daemons_.find(pid); it != daemons_.end()) {
            note_event("kill", text("%s %s %d", it->second.c_str(), WIFSIGNALED(status) ? "signal" : "exit",
                                    WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status)));
            daemons_.erase(it);
        }
        if (pid == main_) return main_ended(status);
        if (pid == lingering_) end(after_linger_.words, after_linger_.status);
    }

    void main_ended(int status)
    {
        Ending e = WIFEXITED(status) ? Ending{text("exit %d", WEXITSTATUS(status)), WEXITSTATUS(status)}
                                     : Ending{text("signal %d", WTERMSIG(status)), 128 + WTERMSIG(status)};
        if (options_.linger <= 0) return end(e.words, e.status);
        after_linger_ = e;
        // A sleeper in camera time: while it sleeps, time goes on without the command.
        std::string seconds = text("%.6f", options_.linger);
        char name[] = "/bin/sleep";
        char* sleeper[] = {name, seconds.data(), nullptr};
        lingering_ = start(sleeper, true);
    }

    void finish()
    {
        write_file(camera_.path("ending"), ending_->words + "\n");
        if (exists(camera_.path("record")))
            write_file(camera_.path("record.end"), std::to_string(clock::now_ns()) + "\n");
        write_file(camera_.path("mounts.left"), raw::read_text("/proc/mounts"));
        kill(-1, SIGKILL);
        if (lost_power()) settings_.cut();
        while (wait(nullptr) > 0 || errno == EINTR) {
        }
        log_.drain();
        if (write_through_)
            settings_.stop();
        else
            write_back();
        write_file(camera_.path("mounts"), "");
        power_off();
    }

    // What was written to the file system before the end is on the flash: JFFS2 has no write-back. A folder from which it was
    // unmounted past us holds other files.
    void write_back()
    {
        const std::string mounted = raw::read_text("/proc/mounts");
        for (const auto& line : split(read_file(camera_.path("mounts")), '\n')) {
            auto words = split(line, ' ');
            if (words.size() != 2) continue;
            if (mounted.find("/dev/mtdblock" + words[1].substr(3) + " " + words[0] + " ") ==
                std::string::npos)
                continue;
            const auto& p = camera_.partition(words[1]);
            sync_image(camera_.image(p), p, words[0]);
        }
    }

    [[nodiscard]] bool lost_power() const
    {
        return !clock::has_power() || ending_->status == kPowerCutStatus ||
               ending_->status == kWatchdogStatus;
    }

    const Options options_;
    const Camera camera_;
    FlashMounts settings_;
    bool write_through_ = false;
    SyslogServer log_;
    Fd signals_;
    sigset_t old_mask_ = {};
    pid_t main_ = 0, lingering_ = 0;
    std::map<pid_t, std::string> daemons_;
    std::optional<Ending> ending_;
    Ending after_linger_;
};

} // namespace

int init_main(int argc, char** argv)
{
    try {
        return Init(parse(argc, argv)).run();
    } catch (const std::exception& e) {
        fprintf(stderr, "vcam: the camera failed: %s\n", e.what());
        return kSandboxFailure;
    }
}

} // namespace vcam
