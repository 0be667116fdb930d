// The record of the last run as a trace file.
#include "sim/view/trace.hpp"
#include "sim/base/text.hpp"
#include "sim/sandbox/mark.hpp"
#include "sim/view/record.hpp"

#include <algorithm>
#include <cmath>

namespace vcam {
namespace {

constexpr int kCamera = 1; // the trace's one process

// Lanes in the order of their display; flash partition N is lane kFlash + N.
enum Lane : int { kFlash = 1, kWatchdog = 10, kCommands, kProcesses, kLog, kDrivers };
constexpr struct {
    const char* source;
    Lane lane;
    const char* category;
} kSources[] = {
    {"watchdog", kWatchdog, "watchdog"}, {"system", kCommands, "command"}, {"mount", kCommands, "command"},
    {"umount", kCommands, "command"},    {"reboot", kCommands, "power"},   {"power", kCommands, "power"},
    {"exec", kProcesses, "process"},     {"kill", kProcesses, "signal"},   {"log", kLog, "log"},
};

cli::Json lane_name(int lane, const std::string& name)
{
    return {
        {"name", "thread_name"}, {"ph", "M"}, {"pid", kCamera}, {"tid", lane}, {"args", {{"name", name}}}};
}

int64_t microseconds(double seconds) { return std::llround(seconds * 1e6); }

cli::Json flash_event(const Event& event, const Stretch& stretch, double since)
{
    return {{"name", stretch.erase ? "erase" : "write"},
            {"cat", "flash"},
            {"ph", "X"},
            {"ts", microseconds(since)},
            {"dur", microseconds(event.seconds) - microseconds(since)},
            {"pid", kCamera},
            {"tid", kFlash + stretch.partition.back() - '0'},
            {"args", {{"begin", stretch.begin}, {"end", stretch.end}, {"process", event.pid}}}};
}

cli::Json instant(const Event& event)
{
    int lane = kDrivers;
    std::string category = "driver", name = event.text;
    for (const auto& row : kSources)
        if (event.source == row.source) {
            lane = row.lane;
            category = row.category;
        }
    if (lane == kDrivers || event.source != "system") name = event.source + " " + event.text;
    if (event.source == "log") name = event.text;
    cli::Json out = {{"name", name},
                     {"cat", category},
                     {"ph", "i"},
                     {"s", category == "power" ? "g" : "t"},
                     {"ts", microseconds(event.seconds)},
                     {"pid", kCamera},
                     {"tid", lane}};
    if (event.pid) out["args"] = {{"process", event.pid}};
    return out;
}

} // namespace

cli::Json trace_json(const Camera& camera)
{
    read_mark(camera); // says so where there was no run
    cli::Json events = cli::Json::array();
    events.push_back({{"name", "process_name"},
                      {"ph", "M"},
                      {"pid", kCamera},
                      {"args", {{"name", camera.setting("model") + " " + camera.folder()}}}});
    for (const auto& p : camera.partitions())
        events.push_back(lane_name(kFlash + p.name.back() - '0', p.name));
    for (const auto& [lane, name] : {std::pair{kWatchdog, "watchdog"},
                                     {kCommands, "commands"},
                                     {kProcesses, "processes"},
                                     {kLog, "system log"},
                                     {kDrivers, "drivers"}})
        events.push_back(lane_name(lane, name));
    const auto record = run_events(camera);
    double before = record.empty() ? 0 : std::min(record[0].seconds, last_command(camera).began);
    for (const Event& event : record) {
        const auto stretch = stretch_of(event);
        events.push_back(stretch ? flash_event(event, *stretch, before) : instant(event));
        before = event.seconds;
    }
    return {{"traceEvents", events}, {"displayTimeUnit", "ms"}};
}

} // namespace vcam
