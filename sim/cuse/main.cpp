// vcam-cuse CAMERA: the device files of a camera on a machine with a real kernel, from its folder.
//
// Goes on in the background and prints the number of that process; when it ends (SIGTERM) the device files are gone and
// the folder has what the camera has left. It is to the machine what process 1 is to the sandbox: it switches the
// camera on and serves the system log.
#include "sim/base/camera.hpp"
#include "sim/base/state.hpp"
#include "sim/base/text.hpp"
#include "sim/board/registers.hpp"
#include "sim/cuse/device.hpp"
#include "sim/cuse/own_models.hpp"
#include "sim/guest/power_on.hpp"
#include "sim/guest/syslog_server.hpp"
#include "sim/models/audio.hpp"
#include "sim/models/own_device.hpp"
#include "sim/models/table.hpp"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <list>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

using namespace vcam;

constexpr int kLookMs = 100, kWaitingMs = 2; // what flows by itself, and while a program polls a device
constexpr const char* kSystemLog = "/dev/log";

// The kernel's own drivers stay: flash, watchdog and memory. The name of the media log is the system log's socket.
bool served(const Model& model)
{
    const std::string path = model.path;
    return !path.starts_with("/dev/mtd") && path != "/dev/watchdog" && path != "/dev/mem" &&
           path != kSystemLog;
}

class Server {
public:
    explicit Server(const std::string& folder)
    {
        const Camera camera(folder); // refuses what is none
        state::set_dir(folder);
        models::use_code(cuse::linked_code, models::Requests::of_code);
        for (const auto& device : device_file::of(folder))
            if (std::string reason; !cuse::linked_code(device, reason)) fail("%s", reason.c_str());
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        sigset_t end;
        sigemptyset(&end);
        sigaddset(&end, SIGTERM);
        end_ = Fd(signalfd(-1, &end, SFD_CLOEXEC));
        struct sigaction wake = {};
        wake.sa_handler = [](int) {}; // without SA_RESTART: it ends waits
        sigaction(cuse::kInterrupt, &wake, nullptr);
        media::use_views(views_);
        power_on(true, false);
        log_.open(kSystemLog, camera.path("syslog"));
        for (Model* model : models::all(folder))
            if (served(*model)) devices_.emplace_back(*model, views_).start();
    }

    void run()
    {
        for (int wait = kLookMs;;) {
            pollfd wanted[2] = {{end_.get(), POLLIN, 0}, {log_.fd(), POLLIN, 0}};
            poll(wanted, 2, wait);
            log_.drain();
            if (wanted[0].revents) break;
            media::catch_up(media::Locked::Wait::no);
            bool waiting = false;
            for (cuse::Device& device : devices_) {
                waiting |= device.look();
                device.nudge();
            }
            wait = waiting ? kWaitingMs : kLookMs;
        }
        device::flush_all();
        power_off();
        std::string words;
        for (const registers::Word& word : registers::all())
            words += text("0x%08X 0x%08X\n", word.address, word.value);
        write_file(state::path("registers.words"),
                   words); // the file itself is as long as the chip's addresses
    }

private:
    Fd end_;
    cuse::GuestViews views_;
    SyslogServer log_;
    std::list<cuse::Device> devices_;
};

int serve(const char* folder, int ready)
{
    Server server(folder);
    (void)!write(ready, "", 1);
    close(ready);
    server.run();
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) return fprintf(stderr, "usage: vcam-cuse CAMERA\n"), 2;
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) < 0) return perror("vcam-cuse"), 1;
    const pid_t server = fork();
    if (server < 0) return perror("vcam-cuse"), 1;
    if (server == 0) {
        close(ready[0]);
        setsid();
        (void)!freopen("/dev/null", "w", stdout);
        try {
            _exit(serve(argv[1], ready[1])); // its threads wait for requests
        } catch (const std::exception& problem) {
            fprintf(stderr, "vcam-cuse: %s\n", problem.what());
            _exit(1);
        }
    }
    close(ready[1]);
    char byte;
    if (read(ready[0], &byte, 1) != 1) return 1;
    printf("%d\n", int(server));
    return 0;
}
