// vcam run, shell, exec: a command in the camera.
#include "sim/base/camera.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/sandbox/link.hpp"
#include "sim/sandbox/mark.hpp"
#include "sim/vcam/options.hpp"
#include "sim/sandbox/pieces.hpp"
#include "sim/sandbox/publish.hpp"
#include "sim/sandbox/sandbox.hpp"
#include "sim/sandbox/tmp_memory.hpp"
#include "sim/base/state.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/clock.hpp"
#include "sim/models/wav.hpp"
#include "sim/vcam/run_options.hpp"
#include "tools/audio/wav.hpp"
#include "tools/cli/output_file.hpp"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/wait.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vcam {
namespace {

// $LIB is the dynamic linker's: programs of 32 and 64 bits run side by side.
constexpr const char* kLibraryInside = "/run/sim/$LIB/libvcamsim.so";

std::string given(const char* name, const char* otherwise)
{
    const char* value = getenv(name);
    return value ? value : otherwise;
}

// A clean environment: the camera's own, the sanitizers' and the test program's settings.
std::vector<std::string> environment(const Camera& camera, const RunOptions& o)
{
    std::vector<std::string> out = {
        "PATH=/bin:/sbin:/usr/bin",
        "HOME=/root",
        "USER=root",
        "TERM=" + given("TERM", "dumb"),
        "VCAM_STATE=/run/vcam",
        "VCAM_LIBRARY=" + std::string(kLibraryInside),
        // The preloaded library comes before the sanitizer's; both know how to live with that.
        "ASAN_OPTIONS=verify_asan_link_order=0:" + given("ASAN_OPTIONS", ""),
    };
    if (o.no_preload) out.erase(out.begin() + 5);
    if (o.realtime || camera.setting("realtime") == "1") out.emplace_back("VCAM_REALTIME=1");
    for (char** e = environ; *e; ++e)
        for (const char* head :
             {"GTEST_", "UBSAN_OPTIONS=", "TSAN_OPTIONS=", "LSAN_OPTIONS=", "LD_LIBRARY_PATH="})
            if (starts_with(*e, head)) out.emplace_back(*e);
    out.insert(out.end(), o.environment.begin(), o.environment.end());
    return out;
}

SandboxPlan plan(const Camera& camera, const RunOptions& o, const Arguments& command)
{
    SandboxPlan p{o.binds, {"/sbin/init"}, environment(camera, o), o.neighbour, o.media};
    for (const auto& line : split(read_file(camera.path("camera.conf")), '\n'))
        if (starts_with(line, "daemon=")) p.arguments.insert(p.arguments.end(), {"--daemon", line.substr(7)});
    for (const auto& [name, value] : o.init) p.arguments.insert(p.arguments.end(), {name, value});
    p.arguments.emplace_back("--");
    p.arguments.insert(p.arguments.end(), command.begin(), command.end());
    return p;
}

volatile sig_atomic_t init_pid, early_signal;

void pass_on(int number)
{
    if (init_pid)
        kill(init_pid, number);
    else
        early_signal = number;
}

// Before the camera starts: what arrives meanwhile is passed on as soon as there is somebody to have it.
void catch_signals()
{
    for (int number : {SIGTERM, SIGHUP}) signal(number, pass_on);
    if (!isatty(STDIN_FILENO)) signal(SIGINT, pass_on);
}

// From the terminal the command itself gets the signal; pid 1 and we only have to stay. Set after the start:
// programs would inherit it.
void ignore_terminal_signals()
{
    if (isatty(STDIN_FILENO)) signal(SIGINT, SIG_IGN);
    signal(SIGQUIT, SIG_IGN);
    signal(SIGTTOU, SIG_IGN);
}

int wait_for_end(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (isatty(STDIN_FILENO)) tcsetpgrp(STDIN_FILENO, getpgrp());
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// The microphone and the way from the loudspeaker to it, for one run. A file that its user has put into the camera's
// place waits meanwhile.
class Surroundings {
public:
    // heard: the microphone's file, "" for the camera's own.
    Surroundings(const Camera& camera, const RunOptions& o, const std::string& heard)
        : microphone_(camera.path("mic.wav")), own_(camera.path("mic.own")), loop_(camera.path("loop"))
    {
        put_back(); // a killed launcher's
        if (!heard.empty()) {
            if (exists(microphone_)) std::filesystem::rename(microphone_, own_);
            given_ = true;
            write_file(microphone_, heard);
        }
        if (!o.loop.empty()) write_file(loop_, o.loop + "\n");
    }
    ~Surroundings()
    {
        if (given_) unlink(microphone_.c_str());
        put_back();
    }
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

private:
    void put_back() const
    {
        unlink(loop_.c_str());
        if (exists(own_)) rename(own_.c_str(), microphone_.c_str());
    }

    const std::string microphone_, own_, loop_;
    bool given_ = false;
};

// A file that an option names and that will not do is wrong use, as any other wrong value is.
template<class Make> auto named_by(const char* option, Make make)
{
    try {
        return make();
    } catch (const std::exception& e) {
        wrong_use(text("%s %s", option, e.what()));
    }
}

// Converted once: the drivers read plain files of 16 bits, and would hear silence where there is none.
std::string microphone_bytes(const RunOptions& o)
{
    if (o.microphone.empty()) return "";
    return named_by("--mic", [&] { return zaudio::wav_bytes(zaudio::read_sound(o.microphone)); });
}

// Checked before the camera starts as well: a name that cannot be written would cost the whole run.
std::unique_ptr<cli::OutputFile> speaker_file(const RunOptions& o)
{
    if (o.speaker.empty()) return nullptr;
    return named_by("--speaker", [&] {
        return std::make_unique<cli::OutputFile>(o.speaker, cli::wav_rule(o.force),
                                                 cli::Arguments{o.microphone});
    });
}

// What a program of the camera put in the place of a file would lead to a file of the host, or wait for ever.
void refuse_other_than_files(const Camera& camera)
{
    for (const char* name : {"speaker.wav", "ending", "cause"}) {
        struct stat info;
        const std::string path = camera.path(name);
        if (lstat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode))
            fail("%s is no plain file: a program of the camera has made it; remove it", path.c_str());
    }
}

void take_speaker(const Camera& camera, const RunOptions& o, cli::OutputFile& output)
{
    const std::string played = camera.path("speaker.wav");
    struct stat info = {};
    // The drivers make the file, without samples, when an output is enabled.
    if (stat(played.c_str(), &info) < 0 || info.st_size <= wav::kHeader) {
        fprintf(stderr, "vcam: nothing was played: %s is not written\n", o.speaker.c_str());
        return;
    }
    const Mapped sound(played);
    output.write(sound.data(), sound.size());
    output.commit();
}

// An end that nobody asked for is said in any case: the program's output stops in the middle then.
void say_ending(const std::string& ending, bool verbose)
{
    const struct {
        const char *ending, *says;
    } kEnds[] = {{"powercut", "a power cut"}, {"watchdog", "a watchdog reset"}, {"timeout", "its --timeout"}};
    for (const auto& end : kEnds)
        if (ending == end.ending) {
            fprintf(stderr, "vcam: the camera ended by %s\n", end.says);
            return;
        }
    if (verbose) fprintf(stderr, "vcam: the camera ended: %s\n", ending.c_str());
}

// A medium is mounted over what stands in its slot.
void check_places(const RunOptions& o)
{
    for (const Bind& bind : o.binds)
        for (const Medium& medium : o.media)
            if (starts_with(bind.inside + "/", "/mnt/" + medium.slot + "/"))
                wrong_use(text("--bind at %s and a medium in the slot %s: choose one", bind.inside.c_str(),
                               medium.slot.c_str()));
}

// The run's beginning in camera time and its program: what reads the record starts from them.
void note_command(const Camera& camera, const Arguments& command)
{
    state::set_dir(camera.folder());
    clock::attach();
    const double began = double(clock::now_ns()) / 1e9;
    clock::detach();
    replace_file(camera.path("command"), text("%.6f %s\n", began, one_line(join(command, " ")).c_str()));
}

int run_camera(const Camera& camera, const RunOptions& o, const Arguments& command)
{
    const auto speaker = speaker_file(o);
    const std::string heard = microphone_bytes(o);
    Fd held = camera.lock();
    Publisher ports(o.ports);
    const Pieces pieces = find_pieces();
    const Surroundings surroundings(camera, o, heard);
    empty_tmp(camera);
    try {
        if (!o.no_mark) set_mark(camera);
        note_command(camera, command);
        for (const char* name : {"ending", "cause"}) unlink(camera.path(name).c_str());
        catch_signals();
        init_pid = start_sandbox(camera, pieces, plan(camera, o, command), [&](pid_t init) {
            replace_file(camera.path("pid"), text("%d\n", int(init)));
        });
    } catch (...) {
        keep_tmp(camera);
        throw;
    }
    if (early_signal) kill(init_pid, early_signal);
    ports.start(pid_t(init_pid));
    ignore_terminal_signals();
    int status = wait_for_end(pid_t(init_pid));
    unlink(camera.path("pid").c_str());
    // A camera that did not start leaves /tmp to the next run.
    status == kSandboxFailure && !exists(camera.path("ending")) ? keep_tmp(camera) : note_tmp(camera);
    refuse_other_than_files(camera);
    if (speaker) take_speaker(camera, o, *speaker);
    auto ending = try_read_file(camera.path("ending"));
    if (!ending) return kSandboxFailure;
    say_ending(trim(*ending), o.verbose);
    if (auto cause = try_read_file(camera.path("cause")))
        fprintf(stderr, "vcam: the power was cut by the fault: %s\n", trim(*cause).c_str());
    return status;
}

// Reads commands from a terminal with prompts and job control, from a pipe or a file without.
Arguments living_shell()
{
    Arguments shell = {"/bin/sh"};
    if (access("/usr/bin/bash", X_OK) == 0) shell = {"/usr/bin/bash", "--norc", "--noprofile"};
    if (isatty(STDIN_FILENO)) shell.emplace_back("-i");
    return shell;
}

int exec_in(const Camera& camera, const RunOptions& o, const Arguments& command)
{
    pid_t pid = camera.running();
    if (!pid)
        fail("the camera in %s does not run; start it with vcam run or vcam shell", camera.folder().c_str());
    auto variables = environment(camera, o);
    if (!o.no_preload) variables.emplace_back("LD_PRELOAD=" + std::string(kLibraryInside));
    Publisher ports(o.ports);
    ports.start(pid);
    return join_sandbox(camera, pid, command, variables);
}

} // namespace

int run_main(const Arguments& arguments)
{
    RunOptions o;
    const auto words = cli::parse(
        arguments, {start_options(o), {kCamera}, "PROGRAM [ARGUMENT]...", cli::Operand::program, true});
    check_places(o);
    return run_camera(Camera(words.plain[0]), o, words.rest);
}

int shell_main(const Arguments& arguments)
{
    RunOptions o;
    const auto words = cli::parse(arguments, {start_options(o), {kCamera}});
    check_places(o);
    o.environment.emplace_back("PS1=camera:\\w# ");
    const Camera camera(words.plain[0]);
    if (!camera.running()) return run_camera(camera, o, living_shell());
    if (!o.start_only.empty())
        wrong_use(
            text("%s: the camera runs already, and this acts on its start only; leave it out to join the "
                 "camera, or wait for its end",
                 join(o.start_only, ", ").c_str()));
    return exec_in(camera, o, living_shell());
}

int exec_main(const Arguments& arguments)
{
    RunOptions o;
    const auto words = cli::parse(
        arguments, {environment_options(o), {kCamera}, "PROGRAM [ARGUMENT]...", cli::Operand::program, true});
    return exec_in(Camera(words.plain[0]), o, words.rest);
}

} // namespace vcam
