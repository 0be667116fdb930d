// Cameras in which the explored command runs.
#include "sim/explore/bench.hpp"
#include "sim/base/state.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/clock.hpp"
#include "sim/sandbox/pieces.hpp"
#include "sim/sandbox/tmp_memory.hpp"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vcam::explore {
namespace {

namespace fs = std::filesystem;

// What belongs to earlier runs, or to a run that goes on.
constexpr const char* kNotCopied[] = {"before",           "record", "lock",   "pid",          "console",
                                      "exploration.json", "cause",  "ending", "faults.state", "tmp.left"};
constexpr const char* kBegunAnew[] = {"journal", "syslog"};
constexpr const char* kOutside[] = {"rtc", "i2c"};
constexpr int kNotExecuted = 126, kNotStarted = 127; // statuses of a program

// Runs a program of the host, its output into the file. Its exit status.
int spawn(const std::vector<std::string>& words, const std::string& output)
{
    std::vector<char*> arguments;
    for (const auto& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const pid_t parent = getpid(), child = fork();
    if (child < 0) fail("cannot start %s: %s", words[0].c_str(), strerror(errno));
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // the run's sandbox ends with its launcher
        if (getppid() != parent) _exit(kNotStarted);
        const int in = open("/dev/null", O_RDONLY),
                  out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(in, STDIN_FILENO), dup2(out, STDOUT_FILENO), dup2(out, STDERR_FILENO);
        execvp(arguments[0], arguments.data());
        _exit(kNotStarted);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void copy_folder(const std::string& from, const std::string& to)
{
    const std::string said = to + ".cp";
    if (spawn({"cp", "-a", "--", from, to}, said) != 0)
        fail("cannot copy %s: %s", from.c_str(), trim(read_file(said)).c_str());
    fs::remove(said);
}

// What the models' own readers give. They know one camera a process, so one thread asks at a time.
void ask_models(const std::string& folder, Outcome& out)
{
    static std::mutex one;
    const std::lock_guard hold(one);
    state::set_dir(folder);
    clock::attach();
    const auto* watchdog = clock::watchdog();
    out.longest_gap = watchdog ? double(watchdog->longest_gap_ns) / 1e9 : 0;
    clock::detach();
    out.plan = faults::progress();
}

// Names and contents below a file or folder.
std::string content_of(const std::string& path)
{
    if (!fs::is_directory(path)) return try_read_file(path).value_or("");
    std::string all;
    for (const auto& [name, entry] : list_tree(path))
        if (entry.kind == 'f') all += name + "\n" + read_file(path + "/" + name);
    return all;
}

Camera copy_of(const Camera& camera, const std::string& folder)
{
    const Fd held = camera.lock();
    copy_folder(camera.folder(), folder);
    // A start would find /tmp without it; what was put there since is there before each run.
    const auto left = left_in_tmp(camera);
    std::error_code error; // a folder that holds something new stays
    for (auto path = left.rbegin(); path != left.rend(); ++path) fs::remove(folder + "/root" + *path, error);
    for (const char* name : kNotCopied) fs::remove_all(folder + "/" + name);
    for (const char* name : kBegunAnew) write_file(folder + "/" + name, "");
    return Camera(folder);
}

// Programs that have been killed may still write for a moment.
void remove_for_good(const std::string& folder)
{
    std::error_code error;
    for (int tries = 0; tries < 50; ++tries) {
        fs::remove_all(folder, error);
        if (!exists(folder)) return;
        usleep(100'000);
    }
}

} // namespace

FolderKeeper::FolderKeeper(const std::string& folder)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0 || (keeper_ = fork()) < 0)
        fail("cannot start a process: %s", strerror(errno));
    if (keeper_ == 0) {
        setsid(); // a terminal's signals are for the others
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) signal(number, SIG_IGN);
        const int null = open("/dev/null", O_RDWR);
        for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) dup2(null, fd);
        close(ends[1]);
        char none;
        while (read(ends[0], &none, 1) < 0 && errno == EINTR) {
        }
        remove_for_good(folder);
        _exit(0);
    }
    close(ends[0]);
    alive_ = Fd(ends[1]);
}

FolderKeeper::~FolderKeeper()
{
    alive_ = Fd();
    while (waitpid(keeper_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

Bench::Bench(const Camera& camera, std::vector<std::string> command, std::vector<std::string> run_options)
    : camera_(copy_of(camera, scratch_.path() + "/camera")), command_(std::move(command)),
      options_(std::move(run_options))
{
}

void Bench::make(const std::string& folder, const Flash& flash, const Making& making) const
{
    fs::remove_all(folder);
    copy_folder(camera_.folder(), folder);
    explore::write_flash(Camera(folder), flash);
    if (making.record) write_file(folder + "/record", "");
    if (!making.plan.empty()) write_file(folder + "/faults", making.plan);
}

Outcome Bench::run(const std::string& folder) const
{
    std::vector<std::string> words = {own_program(), "run", folder, "--no-mark"};
    words.insert(words.end(), options_.begin(), options_.end());
    words.emplace_back("--");
    words.insert(words.end(), command_.begin(), command_.end());
    const std::string said = folder + ".said";
    const int status = spawn(words, said);
    if (status == kNotStarted || status == kNotExecuted) fail("the run: %s", trim(read_file(said)).c_str());
    const Camera camera(folder);
    Outcome out;
    out.ending = trim(try_read_file(camera.path("ending")).value_or(""));
    out.said = read_file(said) + read_file(camera.path("syslog"));
    if (out.ending.empty()) fail("the camera does not start: %s", trim(read_file(said)).c_str());
    ask_models(folder, out);
    out.flash = read_flash(camera);
    for (const char* name : kOutside)
        out.outside_changed |=
            exists(camera_.path(name)) && content_of(camera.path(name)) != content_of(camera_.path(name));
    return out;
}

} // namespace vcam::explore
