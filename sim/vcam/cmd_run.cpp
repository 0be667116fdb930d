// vcam run, shell, exec: a command in the camera.
#include "sim/base/camera.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/sandbox/link.hpp"
#include "sim/sandbox/mark.hpp"
#include "sim/vcam/options.hpp"
#include "sim/sandbox/pieces.hpp"
#include "sim/sandbox/sandbox.hpp"
#include "sim/base/text.hpp"
#include "sim/models/wav.hpp"
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

struct RunOptions {
    std::vector<std::pair<std::string, std::string>> init; // options that pid 1 takes
    std::vector<std::string> environment;
    std::vector<Bind> binds;
    std::vector<Medium> media;
    std::string neighbour;
    std::string microphone, speaker; // host files
    std::string loop;                // milliseconds from the loudspeaker to the microphone
    bool realtime = false, verbose = false, no_preload = false, no_mark = false, force = false;
};

using Options = std::vector<cli::Option>;

Options environment_options(RunOptions& o)
{
    return {{"--env", "NAME=VALUE", "an environment variable", [&](auto& v) { o.environment.push_back(v); }},
            {"--realtime", nullptr, "sleeps take their time", [&](auto&) { o.realtime = true; }},
            {"--no-preload", nullptr, "without the simulated drivers", [&](auto&) { o.no_preload = true; }}};
}

Options sound_options(RunOptions& o)
{
    return {{"--mic", "FILE.wav", "what the microphone hears: 16 bits, any rate and number of channels",
             [&](auto& v) { o.microphone = v; }},
            {"--speaker", "FILE.wav", "where to put what the loudspeaker has played",
             [&](auto& v) { o.speaker = v; }},
            {"--force", nullptr, "let --speaker replace a file that is no WAV file",
             [&](auto&) { o.force = true; }},
            {"--loop", "MS",
             "the microphone hears the loudspeaker too, so many milliseconds later (0 to 1000)",
             [&](auto& v) { o.loop = std::to_string(cli::whole_number(v, 0, 1000)); }}};
}

Options outside_options(RunOptions& o)
{
    return {{"--bind", "HOST[:INSIDE]", "show a host file or folder, read-only (in /run/bin)",
             [&](auto& v) { o.binds.push_back(parse_bind(v, false)); }},
            {"--bind-rw", "HOST[:INSIDE]", "the same, writable",
             [&](auto& v) { o.binds.push_back(parse_bind(v, true)); }},
            {"--link", "ADDRESS", "an interface eth0, and a neighbour of that address on its wire",
             [&](auto& v) { check_link(v), o.neighbour = v; }},
            {"--medium", "SLOT=SIZE[,ro]", "a medium in the slot sd or usb, on /mnt/sd or /mnt/usb",
             [&](auto& v) { o.media.push_back(parse_medium(v)); }}};
}

// Checked here, where a wrong value costs nothing; pid 1 takes them.
Options init_options(RunOptions& o)
{
    const auto seconds = [&o](const char* name) {
        return [&o, name](const std::string& value) {
            parse_seconds(value, name);
            o.init.emplace_back(name, value);
        };
    };
    const auto daemon = [&o](const std::string& value) {
        parse_daemon(value);
        o.init.emplace_back("--daemon", value);
    };
    return {{"--timeout", "SECONDS", "end the camera after so long on the wall: status 124",
             seconds("--timeout")},
            {"--linger", "SECONDS", "camera time that goes on after the program's end", seconds("--linger")},
            {"--daemon", "PATH[:OPTIONS]", "a daemon more; OPTIONS ignore-term, hold=FILE", daemon}};
}

// What run and shell have; exec joins a camera whose surroundings stand already.
Options start_options(RunOptions& o)
{
    Options all = init_options(o);
    for (const Options& more : {outside_options(o), sound_options(o), environment_options(o)})
        all.insert(all.end(), more.begin(), more.end());
    all.push_back(
        {"--no-mark", nullptr, "keep what vcam diff compares with", [&](auto&) { o.no_mark = true; }});
    all.push_back(
        {"-v", nullptr, "say on standard error how the camera ended", [&](auto&) { o.verbose = true; }});
    return all;
}

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

// Checked before the camera starts: the driver would hear silence without a word.
void give_microphone(const Camera& camera, const std::string& file)
{
    if (const wav::Reader sound(file); !sound.error().empty()) fail("%s", sound.error().c_str());
    std::filesystem::copy_file(file, camera.path("mic.wav"),
                               std::filesystem::copy_options::overwrite_existing);
}

// Checked before the camera starts as well: a name that cannot be written would cost the whole run.
std::unique_ptr<cli::OutputFile> speaker_file(const RunOptions& o)
{
    if (o.speaker.empty()) return nullptr;
    auto output = std::make_unique<cli::OutputFile>(o.speaker, cli::wav_rule(o.force));
    if (!o.microphone.empty()) output->keep_apart(o.microphone);
    return output;
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
    if (!exists(camera.path("speaker.wav"))) {
        fprintf(stderr, "vcam: nothing was played: %s is not written\n", o.speaker.c_str());
        return;
    }
    const Mapped sound(camera.path("speaker.wav"));
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

int run_camera(const Camera& camera, const RunOptions& o, const Arguments& command)
{
    const auto speaker = speaker_file(o);
    Fd held = camera.lock();
    const Pieces pieces = find_pieces();
    if (!o.microphone.empty()) give_microphone(camera, o.microphone);
    if (!o.loop.empty())
        write_file(camera.path("loop"), o.loop + "\n");
    else
        unlink(camera.path("loop").c_str());
    if (!o.no_mark) set_mark(camera);
    for (const char* name : {"ending", "cause"}) unlink(camera.path(name).c_str());
    catch_signals();
    init_pid = start_sandbox(camera, pieces, plan(camera, o, command));
    write_file(camera.path("pid"), text("%d\n", int(init_pid)));
    if (early_signal) kill(init_pid, early_signal);
    ignore_terminal_signals();
    int status = wait_for_end(pid_t(init_pid));
    unlink(camera.path("pid").c_str());
    refuse_other_than_files(camera);
    if (speaker) take_speaker(camera, o, *speaker);
    auto ending = try_read_file(camera.path("ending"));
    if (!ending) return kSandboxFailure;
    say_ending(trim(*ending), o.verbose);
    if (auto cause = try_read_file(camera.path("cause")))
        fprintf(stderr, "vcam: the power was cut by the fault: %s\n", trim(*cause).c_str());
    return status;
}

Arguments interactive_shell()
{
    if (access("/usr/bin/bash", X_OK) == 0) return {"/usr/bin/bash", "--norc", "--noprofile", "-i"};
    return {"/bin/sh", "-i"};
}

int exec_in(const Camera& camera, const RunOptions& o, const Arguments& command)
{
    pid_t pid = camera.running();
    if (!pid)
        fail("the camera in %s does not run; start it with vcam run or vcam shell", camera.folder().c_str());
    auto variables = environment(camera, o);
    if (!o.no_preload) variables.emplace_back("LD_PRELOAD=" + std::string(kLibraryInside));
    return join_sandbox(camera, pid, command, variables);
}

} // namespace

int run_main(const Arguments& arguments)
{
    RunOptions o;
    const auto words = cli::parse(
        arguments, {start_options(o), {kCamera}, "PROGRAM [ARGUMENT]...", cli::Operand::program, true});
    return run_camera(Camera(words.plain[0]), o, words.rest);
}

int shell_main(const Arguments& arguments)
{
    RunOptions o;
    const auto words = cli::parse(arguments, {start_options(o), {kCamera}});
    o.environment.emplace_back("PS1=camera:\\w# ");
    const Camera camera(words.plain[0]);
    if (camera.running()) return exec_in(camera, o, interactive_shell());
    return run_camera(camera, o, interactive_shell());
}

int exec_main(const Arguments& arguments)
{
    RunOptions o;
    const auto words = cli::parse(
        arguments, {environment_options(o), {kCamera}, "PROGRAM [ARGUMENT]...", cli::Operand::program, true});
    return exec_in(Camera(words.plain[0]), o, words.rest);
}

} // namespace vcam
