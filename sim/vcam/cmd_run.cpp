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
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/wait.h>
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

std::string parse_loop(const std::string& value)
{
    unsigned ms = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), ms);
    if (error != std::errc() || end != value.data() + value.size() || ms > 1000)
        fail("--loop: %s is not a number from 0 to 1000", value.c_str());
    return std::to_string(ms);
}

std::vector<Option> option_table(RunOptions& o)
{
    // Checked here, where a wrong one costs nothing; pid 1 takes them.
    auto seconds = [&o](const char* name) {
        return [&o, name](const std::string& value) {
            parse_seconds(value, name);
            o.init.emplace_back(name, value);
        };
    };
    auto daemon = [&o](const std::string& value) {
        parse_daemon(value);
        o.init.emplace_back("--daemon", value);
    };
    return {
        {"--timeout", "SECONDS", "end the camera after so long on the wall: status 124",
         seconds("--timeout")},
        {"--linger", "SECONDS", "camera time that goes on after the command's end", seconds("--linger")},
        {"--daemon", "PATH[:OPTIONS]", "a daemon more; OPTIONS ignore-term, hold=FILE", daemon},
        {"--bind", "HOST[:INSIDE]", "show a host file or folder, read-only (in /run/bin)",
         [&](auto& v) { o.binds.push_back(parse_bind(v, false)); }},
        {"--bind-rw", "HOST[:INSIDE]", "the same, writable",
         [&](auto& v) { o.binds.push_back(parse_bind(v, true)); }},
        {"--env", "NAME=VALUE", "an environment variable", [&](auto& v) { o.environment.push_back(v); }},
        {"--link", "ADDRESS", "an interface eth0, and a neighbour of that address on its wire",
         [&](auto& v) { check_link(v), o.neighbour = v; }},
        {"--medium", "SLOT=SIZE[,ro]", "a medium in the slot sd or usb, on /mnt/sd or /mnt/usb",
         [&](auto& v) { o.media.push_back(parse_medium(v)); }},
        {"--mic", "FILE.wav", "what the microphone hears: 16 bits, any rate and number of channels",
         [&](auto& v) { o.microphone = v; }},
        {"--speaker", "FILE.wav", "where to put what the loudspeaker has played",
         [&](auto& v) { o.speaker = v; }},
        {"--force", nullptr, "let --speaker replace a file that is no WAV file",
         [&](auto&) { o.force = true; }},
        {"--loop", "MS", "the microphone hears the loudspeaker too, so many milliseconds later",
         [&](auto& v) { o.loop = parse_loop(v); }},
        {"--realtime", nullptr, "sleeps take their time", [&](auto&) { o.realtime = true; }},
        {"--no-preload", nullptr, "without the simulated drivers", [&](auto&) { o.no_preload = true; }},
        {"--no-mark", nullptr, "keep what vcam diff compares with", [&](auto&) { o.no_mark = true; }},
        {"-v", nullptr, "say on standard error how the camera ended", [&](auto&) { o.verbose = true; }},
    };
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

volatile sig_atomic_t init_pid;

void pass_on(int number)
{
    if (init_pid) kill(init_pid, number);
}

// From the terminal the command itself gets the signal; pid 1 and we only have to stay.
void forward_signals()
{
    for (int number : {SIGTERM, SIGHUP}) signal(number, pass_on);
    signal(SIGINT, isatty(STDIN_FILENO) ? SIG_IGN : pass_on);
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
    unlink(camera.path("ending").c_str());
    init_pid = start_sandbox(camera, pieces, plan(camera, o, command));
    write_file(camera.path("pid"), text("%d\n", int(init_pid)));
    forward_signals();
    int status = wait_for_end(pid_t(init_pid));
    unlink(camera.path("pid").c_str());
    if (speaker) take_speaker(camera, o, *speaker);
    auto ending = try_read_file(camera.path("ending"));
    if (!ending) return kSandboxFailure;
    if (o.verbose) fprintf(stderr, "vcam: the camera ended: %s\n", trim(*ending).c_str());
    return status;
}

int guarded(int (*body)(const Arguments&), const Arguments& arguments)
{
    try {
        return body(arguments);
    } catch (const std::exception& e) {
        fprintf(stderr, "vcam: %s\n", e.what());
        return kSandboxFailure;
    }
}

Arguments interactive_shell()
{
    if (access("/usr/bin/bash", X_OK) == 0) return {"/usr/bin/bash", "--norc", "--noprofile", "-i"};
    return {"/bin/sh", "-i"};
}

int run_body(const Arguments& arguments)
{
    RunOptions o;
    auto words = parse_options(arguments, option_table(o), 1);
    if (words.plain.size() != 1 || words.command.empty())
        fail("run: write it as: vcam run DIR [options] -- COMMAND");
    return run_camera(Camera(words.plain[0]), o, words.command);
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

int shell_body(const Arguments& arguments)
{
    RunOptions o;
    auto words = parse_options(arguments, option_table(o));
    if (words.plain.size() != 1) fail("shell: write it as: vcam shell DIR [options]");
    o.environment.emplace_back("PS1=camera:\\w# ");
    Camera camera(words.plain[0]);
    if (camera.running()) return exec_in(camera, o, interactive_shell());
    return run_camera(camera, o, interactive_shell());
}

int exec_body(const Arguments& arguments)
{
    RunOptions o;
    auto words = parse_options(arguments, option_table(o), 1);
    if (words.plain.size() != 1 || words.command.empty()) fail("exec: write it as: vcam exec DIR -- COMMAND");
    return exec_in(Camera(words.plain[0]), o, words.command);
}

} // namespace

int run_main(const Arguments& arguments) { return guarded(run_body, arguments); }
int shell_main(const Arguments& arguments) { return guarded(shell_body, arguments); }
int exec_main(const Arguments& arguments) { return guarded(exec_body, arguments); }

} // namespace vcam
