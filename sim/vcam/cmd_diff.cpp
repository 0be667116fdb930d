// vcam diff: what the last run changed.
#include "sim/base/camera.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/sandbox/mark.hpp"
#include "sim/vcam/options.hpp"
#include "sim/vcam/settings.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/clock.hpp"
#include "sim/base/state.hpp"

#include "tools/cli/json.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace vcam {
namespace {

struct Change {
    std::string key, before, after;
};

// The settings and files: '-' gone, '~' other, '+' new.
struct Changes {
    std::vector<Change> gone, other, added;
};

struct FlashChange {
    std::string name;
    uint64_t changed = 0, first = 0, last = 0; // bytes
};

struct Event {
    std::string time, command;
};

FlashChange diff_partition(const Camera& camera, const Partition& p)
{
    Mapped before(marked_image(camera, p)), after(camera.image(p));
    const size_t size = std::min(before.size(), after.size());
    FlashChange change{p.name};
    for (size_t i = 0; i < size; ++i) {
        if (before.data()[i] == after.data()[i]) continue;
        if (!change.changed++) change.first = i;
        change.last = i;
    }
    return change;
}

Changes diff_settings(const Camera& camera)
{
    const auto& p = camera.partition("mtd3");
    ScratchFolder before, after;
    unpack_image(marked_image(camera, p), p, before.path());
    unpack_image(camera.image(p), p, after.path());
    auto old_settings = read_settings(before.path());
    auto new_settings = read_settings(after.path());
    Changes changes;
    for (const auto& [key, value] : old_settings) {
        auto it = new_settings.find(key);
        if (it == new_settings.end())
            changes.gone.push_back({key, value, ""});
        else if (it->second != value)
            changes.other.push_back({key, value, it->second});
    }
    for (const auto& [key, value] : new_settings)
        if (!old_settings.count(key)) changes.added.push_back({key, "", value});
    return changes;
}

bool same(const Entry& a, const Entry& b)
{
    return a.kind == b.kind && a.mode == b.mode &&
           (a.kind == 'd' || (a.size == b.size && a.time_ns == b.time_ns));
}

Changes diff_files(const Camera& camera, const Mark& mark)
{
    auto now = camera_files(camera);
    Changes changes;
    for (const auto& [path, e] : mark.files) {
        auto it = now.find(path);
        if (it == now.end())
            changes.gone.push_back({"/" + path, "", ""});
        else if (!same(e, it->second))
            changes.other.push_back({"/" + path, "", ""});
    }
    for (const auto& [path, e] : now)
        if (!mark.files.count(path)) changes.added.push_back({"/" + path, "", ""});
    return changes;
}

std::vector<Event> commands(const Camera& camera, const Mark& mark)
{
    std::vector<Event> events;
    auto journal = read_file(camera.path("journal"));
    for (const auto& line :
         split(journal.substr(std::min<size_t>(mark.journal_bytes, journal.size())), '\n')) {
        auto words = split(line, ' ');
        if (words.size() < 4 || words[2] != "system") continue;
        events.push_back({words[0], line.substr(words[0].size() + words[1].size() + words[2].size() + 3)});
    }
    return events;
}

struct Diff {
    std::vector<FlashChange> flash;
    Changes settings, files;
    std::vector<Event> commands;
    int feeds = 0;
    double longest_gap = 0; // seconds
    std::string ending;
};

Diff read_diff(const Camera& camera)
{
    const Mark mark = read_mark(camera);
    Diff diff;
    for (const auto& p : camera.partitions()) diff.flash.push_back(diff_partition(camera, p));
    diff.settings = diff_settings(camera);
    diff.files = diff_files(camera, mark);
    diff.commands = commands(camera, mark);
    state::set_dir(camera.folder());
    clock::attach();
    if (const auto* w = clock::watchdog()) {
        diff.feeds = int(w->feeds);
        diff.longest_gap = double(w->longest_gap_ns) / 1e9;
    }
    diff.ending = trim(try_read_file(camera.path("ending")).value_or("none"));
    return diff;
}

void print_text(const Diff& diff)
{
    puts("flash");
    for (const auto& f : diff.flash)
        if (f.changed)
            printf("%s: %llu bytes changed, 0x%llx to 0x%llx\n", f.name.c_str(),
                   (unsigned long long)f.changed, (unsigned long long)f.first, (unsigned long long)f.last);
        else
            printf("%s: unchanged\n", f.name.c_str());
    puts("settings");
    // One order by key for what is gone and what is other, as they stood in the old settings.
    std::map<std::string, std::string> lines;
    for (const auto& c : diff.settings.gone) lines[c.key] = "- " + c.key + "=" + c.before;
    for (const auto& c : diff.settings.other)
        lines[c.key] = "~ " + c.key + ": " + c.before + " -> " + c.after;
    for (const auto& [key, line] : lines) puts(line.c_str());
    for (const auto& c : diff.settings.added) printf("+ %s=%s\n", c.key.c_str(), c.after.c_str());
    puts("files");
    lines.clear();
    for (const auto& c : diff.files.gone) lines[c.key] = "- " + c.key;
    for (const auto& c : diff.files.other) lines[c.key] = "~ " + c.key;
    for (const auto& [key, line] : lines) puts(line.c_str());
    for (const auto& c : diff.files.added) printf("+ %s\n", c.key.c_str());
    puts("commands");
    for (const auto& e : diff.commands) printf("%11s  %s\n", e.time.c_str(), e.command.c_str());
    if (diff.feeds > 0) printf("watchdog\nlongest gap %.3f s over %d feeds\n", diff.longest_gap, diff.feeds);
    printf("ending\n%s\n", diff.ending.c_str());
}

cli::Json changes_json(const Changes& changes)
{
    cli::Json json = {
        {"removed", cli::Json::array()}, {"changed", cli::Json::array()}, {"added", cli::Json::array()}};
    for (const auto& c : changes.gone) json["removed"].push_back({{"name", c.key}, {"before", c.before}});
    for (const auto& c : changes.other)
        json["changed"].push_back({{"name", c.key}, {"before", c.before}, {"after", c.after}});
    for (const auto& c : changes.added) json["added"].push_back({{"name", c.key}, {"after", c.after}});
    return json;
}

cli::Json names_json(const Changes& changes)
{
    cli::Json json = changes_json(changes);
    for (auto& list : json)
        for (auto& entry : list) entry = entry["name"];
    return json;
}

void print_json(const Diff& diff)
{
    cli::Json json = {{"flash", cli::Json::array()}};
    for (const auto& f : diff.flash)
        json["flash"].push_back(
            {{"name", f.name}, {"changed", f.changed}, {"first", f.first}, {"last", f.last}});
    json["settings"] = changes_json(diff.settings);
    json["files"] = names_json(diff.files);
    json["commands"] = cli::Json::array();
    for (const auto& e : diff.commands)
        json["commands"].push_back({{"time", atof(e.time.c_str())}, {"command", e.command}});
    json["watchdog"] = {{"feeds", diff.feeds}, {"longest_gap", diff.longest_gap}};
    json["ending"] = diff.ending;
    cli::print_json(json);
}

} // namespace

int diff_main(const Arguments& arguments)
{
    bool json = false;
    const auto words = cli::parse(
        arguments, {{{"--json", nullptr, "for programs", [&](auto&) { json = true; }}}, {kCamera}});
    const Diff diff = read_diff(Camera(words.plain[0]));
    json ? print_json(diff) : print_text(diff);
    return 0;
}

} // namespace vcam
