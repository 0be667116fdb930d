// Runs inside the virtual camera: a signal at many moments of a factory test.
//   sweep STATE FIRST STRIDE COMMAND...
// runs the command again and again; the signal comes before its call number FIRST, FIRST + STRIDE and so on, until
// the command ends before the signal comes. The five signals take turns. STATE is what must be as before after
// each run: "gpio", "rtc", a terminal's device file, or a folder whose names count. Prints a line for each run that
// leaves another state, prints a verdict or ends otherwise than by its signal, and at the end "N moments".
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE};
constexpr char kOutput[] = "/tmp/said";

std::string read_all(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string camera_file(const char* name) { return std::string(getenv("VCAM_STATE")) + "/" + name; }

// Levels and directions of all lines, and the words of the pins' multiplexing.
std::string gpio_state()
{
    std::string state;
    const int fd = open(camera_file("registers").c_str(), O_RDONLY | O_CLOEXEC);
    auto add = [&](unsigned address, size_t size) {
        std::string words(size, '\0');
        if (pread(fd, words.data(), size, off_t(address)) > 0) state += words;
    };
    for (unsigned bank :
         {0x2016u, 0x2017u, 0x2018u, 0x2019u, 0x201Au, 0x201Bu, 0x201Cu, 0x2020u, 0x2021u, 0x2022u})
        add((bank << 16) + 0x3FC, 8);
    add(0x200F0000, 0x148);
    close(fd);
    return state;
}

// The chip's time at camera time 0, to a second: nobody who keeps the clock right changes it.
std::string rtc_state()
{
    tm t = {};
    int weekday = 0;
    double at_ns = 0;
    sscanf(read_all(camera_file("rtc")).c_str(), "%d-%d-%d %d:%d:%d %d %lf", &t.tm_year, &t.tm_mon,
           &t.tm_mday, &t.tm_hour, &t.tm_min, &t.tm_sec, &weekday, &at_ns);
    t.tm_year -= 1900;
    --t.tm_mon;
    return std::to_string(std::lround(double(timegm(&t)) - at_ns / 1e9));
}

std::string terminal_state(const std::string& device)
{
    termios settings = {};
    const int fd = open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    tcgetattr(fd, &settings);
    close(fd);
    std::ostringstream text;
    text << settings.c_iflag << ' ' << settings.c_oflag << ' ' << settings.c_cflag << ' ' << settings.c_lflag
         << ' ' << cfgetospeed(&settings) << ' ' << int(settings.c_cc[VMIN]) << ' '
         << int(settings.c_cc[VTIME]);
    return text.str();
}

std::string folder_state(const std::string& path)
{
    std::set<std::string> names;
    DIR* folder = opendir(path.c_str());
    while (const dirent* entry = folder ? readdir(folder) : nullptr) names.insert(entry->d_name);
    if (folder) closedir(folder);
    std::string text;
    for (const std::string& name : names) text += name + "\n";
    return text;
}

std::string state_of(const std::string& what)
{
    if (what == "gpio") return gpio_state();
    if (what == "rtc") return rtc_state();
    return what.starts_with("/dev/") ? terminal_state(what) : folder_state(what);
}

bool says_verdict(const std::string& said)
{
    return said.find("successful") != std::string::npos || said.find("failed") != std::string::npos;
}

// The wait status of the command, which gets the signal before its call of that number.
int run_at(int moment, int signal, char** command)
{
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        const int out = open(kOutput, O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(out, 1);
        dup2(open("/dev/null", O_WRONLY), 2);
        const std::string libraries = "/run/bin/libcamera_moments.so:" + std::string(getenv("LD_PRELOAD"));
        setenv("LD_PRELOAD", libraries.c_str(), 1);
        setenv("MOMENT", std::to_string(moment).c_str(), 1);
        setenv("SIGNAL", std::to_string(signal).c_str(), 1);
        execvp(command[0], command);
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    sleep(1); // camera time: what is still on a wire is not the next run's
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 5) return 2;
    const std::string what = argv[1];
    const int first = atoi(argv[2]);
    const int stride = atoi(argv[3]);
    const std::string before = state_of(what);
    int moments = 0;
    for (;; ++moments) {
        const int moment = first + moments * stride;
        const int signal = kSignals[moments % int(std::size(kSignals))];
        const int status = run_at(moment, signal, argv + 4);
        const std::string said = read_all(kOutput);
        if (state_of(what) != before) printf("call %d signal %d: another state\n", moment, signal);
        if (WIFEXITED(status)) break;
        if (WTERMSIG(status) != signal)
            printf("call %d signal %d: ended by %d\n", moment, signal, WTERMSIG(status));
        if (says_verdict(said)) printf("call %d signal %d: said %s", moment, signal, said.c_str());
    }
    printf("%d moments, then %s", moments, read_all(kOutput).c_str());
    return 0;
}
