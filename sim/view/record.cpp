// The record of the last run: journal and system log as one list of events in camera time.
#include "sim/view/record.hpp"
#include "sim/base/text.hpp"
#include "sim/sandbox/mark.hpp"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace vcam {
namespace {

std::string since(const std::string& path, uint64_t from)
{
    const std::string content = try_read_file(path).value_or("");
    return content.substr(std::min<uint64_t>(from, content.size()));
}

// "<time> <pid> <source> <text>"
void add_journal(std::vector<Event>& events, const std::string& content)
{
    for (const auto& line : split(content, '\n')) {
        Event e;
        int source_at = 0, text_at = 0;
        if (sscanf(line.c_str(), "%lf %d %n%*s %n", &e.seconds, &e.pid, &source_at, &text_at) < 2 ||
            !source_at)
            continue;
        e.source = line.substr(size_t(source_at), line.find(' ', size_t(source_at)) - size_t(source_at));
        if (text_at) e.text = line.substr(size_t(text_at));
        events.push_back(e);
    }
}

// "<time> <priority> <ident>: <text>"
void add_log(std::vector<Event>& events, const std::string& content)
{
    for (const auto& line : split(content, '\n')) {
        Event e{0, 0, "log", "", 0};
        int text_at = 0;
        if (sscanf(line.c_str(), "%lf %d %n", &e.seconds, &e.priority, &text_at) < 2 || !text_at) continue;
        e.text = line.substr(size_t(text_at));
        while (e.text.ends_with("\\n")) e.text.resize(e.text.size() - 2);
        events.push_back(e);
    }
}

} // namespace

Command last_command(const Camera& camera)
{
    Command command;
    const std::string line = trim(try_read_file(camera.path("command")).value_or(""));
    const size_t blank = line.find(' ');
    if (blank == std::string::npos) return command;
    command.began = atof(line.c_str());
    command.words = line.substr(blank + 1);
    return command;
}

std::vector<Event> run_events(const Camera& camera)
{
    std::vector<Event> events;
    if (!exists(camera.path("before/files"))) return events;
    const Mark mark = read_mark(camera);
    add_journal(events, since(camera.path("journal"), mark.journal_bytes));
    add_log(events, since(camera.path("syslog"), mark.syslog_bytes));
    std::stable_sort(events.begin(), events.end(),
                     [](const Event& a, const Event& b) { return a.seconds < b.seconds; });
    return events;
}

std::optional<Stretch> stretch_of(const Event& event)
{
    char name[16], what[16];
    Stretch s;
    if (event.source != "mtd" ||
        sscanf(event.text.c_str(), "%15s %15s 0x%" SCNx64 "-0x%" SCNx64, name, what, &s.begin, &s.end) != 4)
        return std::nullopt;
    s.partition = name;
    s.erase = what == std::string("erase");
    return s;
}

std::optional<LastStretch> last_stretch(const std::vector<Event>& events, const std::string& partition)
{
    std::optional<LastStretch> found;
    for (const Event& event : events) {
        const auto stretch = stretch_of(event);
        if (!stretch) continue;
        if (stretch->partition == partition)
            found = LastStretch{*stretch, true};
        else if (found)
            found->last_of_run = false;
    }
    return found;
}

} // namespace vcam
