// vcam journal, log, fault: what happened, and what shall go wrong.
#include "sim/base/camera.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/sandbox/mark.hpp"
#include "sim/vcam/options.hpp"
#include "sim/base/text.hpp"
#include "sim/base/faults.hpp"

#include <algorithm>
#include <cstdio>

namespace vcam {
namespace {

// The lines of a log from a byte on, those of one source where it is named ("<time> <pid> <source> ...").
int show_lines(const std::string& content, size_t from, const std::string& source)
{
    for (const auto& line : split(content.substr(std::min(from, content.size())), '\n')) {
        auto words = split(line, ' ');
        bool wanted = source.empty() || (words.size() > 2 && words[2] == source);
        if (!line.empty() && wanted) puts(line.c_str());
    }
    return 0;
}

struct LogOptions {
    bool last_run = false;
    std::string source;
};

std::vector<Option> log_options(LogOptions& o)
{
    return {{"--last", nullptr, "of the last run only", [&](auto&) { o.last_run = true; }},
            {"--source", "NAME", "journal: one source only, such as system or mtd",
             [&](auto& v) { o.source = v; }}};
}

} // namespace

int journal_main(const Arguments& arguments)
{
    LogOptions o;
    auto words = parse_options(arguments, log_options(o));
    if (words.plain.size() != 1) fail("journal: write it as: vcam journal DIR [--last] [--source NAME]");
    Camera camera(words.plain[0]);
    return show_lines(read_file(camera.path("journal")), o.last_run ? read_mark(camera).journal_bytes : 0,
                      o.source);
}

int log_main(const Arguments& arguments)
{
    LogOptions o;
    auto words = parse_options(arguments, log_options(o));
    if (words.plain.size() != 1) fail("log: write it as: vcam log DIR [--last]");
    Camera camera(words.plain[0]);
    return show_lines(read_file(camera.path("syslog")), o.last_run ? read_mark(camera).syslog_bytes : 0, "");
}

int fault_main(const Arguments& arguments)
{
    bool clear = false;
    auto words = parse_options(
        arguments, {{"--clear", nullptr, "forget the plan first", [&](auto&) { clear = true; }}}, 1);
    if (words.plain.size() != 1)
        fail("fault: write it as: vcam fault DIR [--clear] [\"mtd1 write 3 1 EIO\" ...]");
    Camera camera(words.plain[0]);
    for (const auto& line : words.command)
        if (auto problem = faults::check(line); !problem.empty()) fail("fault: %s", problem.c_str());
    if (clear) {
        write_file(camera.path("faults"), "");
        write_file(camera.path("faults.state"), "");
    }
    for (const auto& line : words.command) append_file(camera.path("faults"), line + "\n");
    if (words.command.empty() && !clear) fputs(read_file(camera.path("faults")).c_str(), stdout);
    return 0;
}

} // namespace vcam
