// The options of vcam run, shell and exec, and what their values may be.
#include "sim/vcam/run_options.hpp"
#include "sim/base/text.hpp"
#include "sim/sandbox/link.hpp"

namespace vcam {
namespace {

using Options = std::vector<cli::Option>;

const std::string& check_assignment(const std::string& words)
{
    const size_t equal = words.find('=');
    if (equal == 0 || equal == std::string::npos) fail("write it as NAME=VALUE");
    return words;
}

Options sound_options(RunOptions& o)
{
    return {
        {"--mic", "FILE.wav", "what the microphone hears: a sound file of any rate and number of channels",
         [&](auto& v) { o.microphone = cli::given(v); }},
        {"--speaker", "FILE.wav", "where to put what the loudspeaker has played",
         [&](auto& v) { o.speaker = cli::given(v); }},
        {"--force", nullptr, "let --speaker replace a file that is no WAV file",
         [&](auto&) { o.force = true; }},
        {"--loop", "MS", "the microphone hears the loudspeaker too, so many milliseconds later (0 to 1000)",
         [&](auto& v) { o.loop = std::to_string(cli::whole_number(v, 0, 1000)); }}};
}

void add_medium(RunOptions& o, const std::string& words)
{
    const Medium medium = parse_medium(words);
    for (const Medium& other : o.media)
        if (other.slot == medium.slot) fail("the slot %s has a medium already", medium.slot.c_str());
    o.media.push_back(medium);
}

Options outside_options(RunOptions& o)
{
    return {{"--bind", "HOST[:INSIDE]", "show a host file or folder, read-only (in /run/bin)",
             [&](auto& v) { o.binds.push_back(parse_bind(cli::given(v), false)); }},
            {"--bind-rw", "HOST[:INSIDE]", "the same, writable",
             [&](auto& v) { o.binds.push_back(parse_bind(cli::given(v), true)); }},
            {"--link", "ADDRESS", "an interface eth0, and a neighbour of that address on its wire",
             [&](auto& v) { check_link(v), o.neighbour = v; }},
            {"--medium", "SLOT=SIZE[,ro]", "a medium in the slot sd or usb, on /mnt/sd or /mnt/usb",
             [&](auto& v) { add_medium(o, v); }, "sd= usb="}};
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

// A camera that runs already has its surroundings: whoever joins it is told that these options come too late.
cli::Option at_start(RunOptions& o, const cli::Option& option)
{
    cli::Option out = option;
    out.take = [&o, option](const std::string& value) {
        option.take(value);
        o.start_only.emplace_back(option.names);
    };
    return out;
}

Options start_only_options(RunOptions& o)
{
    Options all = init_options(o);
    for (const Options& more : {outside_options(o), sound_options(o)})
        all.insert(all.end(), more.begin(), more.end());
    all.push_back(
        {"--no-mark", nullptr, "keep what vcam diff compares with", [&](auto&) { o.no_mark = true; }});
    all.push_back(
        {"-v", nullptr, "say on standard error how the camera ended", [&](auto&) { o.verbose = true; }});
    return all;
}

} // namespace

Options environment_options(RunOptions& o)
{
    return {{"--env", "NAME=VALUE", "an environment variable",
             [&](auto& v) { o.environment.push_back(check_assignment(v)); }},
            {"--realtime", nullptr, "sleeps take their time", [&](auto&) { o.realtime = true; }},
            {"--no-preload", nullptr, "without the simulated drivers", [&](auto&) { o.no_preload = true; }}};
}

Options start_options(RunOptions& o)
{
    Options all;
    for (const cli::Option& option : start_only_options(o)) all.push_back(at_start(o, option));
    all.push_back({"--publish", "[HOST:]PORT[:PORT]",
                   "lead a TCP and UDP port of the host (127.0.0.1) to one of the camera; implies --realtime",
                   [&](auto& v) { o.ports.push_back(parse_port(v)), o.realtime = true; }});
    for (const cli::Option& option : environment_options(o)) all.push_back(option);
    return all;
}

} // namespace vcam
