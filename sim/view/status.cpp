// How a camera stands, read from outside.
#include "sim/view/status.hpp"
#include "sim/view/status_media.hpp"
#include "sim/base/device_file.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/clock.hpp"
#include "sim/board/serial_line.hpp"
#include "sim/base/state.hpp"

#include <ctime>
#include <sys/ioctl.h>

namespace vcam {
namespace {

void add_clock(Status& s)
{
    s.seconds = double(clock::now_ns()) / 1e9;
    time_t wall = time_t(clock::wall_ns() / clock::kSecond);
    char line[64] = "";
    tm parts = {};
    if (wall > 0) strftime(line, sizeof line, "%Y-%m-%d %H:%M:%S", gmtime_r(&wall, &parts));
    s.wall = line;
    const auto* w = clock::watchdog();
    if (!w) return;
    s.has_watchdog = w->feeds > 0 || w->armed;
    s.armed = w->armed == 1;
    s.fired = w->armed == 2;
    s.timeout_s = 2 * w->timeout_units;
    s.feeds = w->feeds;
    s.longest_gap = double(w->longest_gap_ns) / 1e9;
    if (s.armed) s.since_feed = double(clock::now_ns() - w->last_feed_ns) / 1e9;
}

// The port, what is plugged into it and how it stands; only of a port that was opened.
std::vector<std::string> serial_ports(const Camera& camera)
{
    std::vector<std::string> out;
    for (const char* port : serial::kPorts) {
        const std::string plug = serial::plugged(port);
        if (!exists(camera.path(std::string("dev/") + port))) {
            if (plug != "nothing") out.push_back(text("%s %s", port, plug.c_str()));
            continue;
        }
        serial::Held held(port);
        const auto& r = *held;
        out.push_back(text("%s %s, %s, RTS %s, %u bytes sent, %u received, %u lost", port, plug.c_str(),
                           serial::describe(r.settings).c_str(), r.lines & TIOCM_RTS ? "set" : "clear",
                           r.sent, r.received, r.lost));
    }
    return out;
}

std::vector<std::string> own_devices(const Camera& camera)
{
    std::vector<std::string> out;
    for (const auto& device : device_file::of(camera.folder())) {
        std::string line = text("%s at %s", device.record.name, device.record.path);
        for (const auto& request : device.requests())
            line += std::string(&request == device.record.requests ? ", requests " : ", ") + request.name;
        out.push_back(line);
    }
    return out;
}

} // namespace

std::vector<std::string> lines_of(const std::string& path)
{
    std::vector<std::string> out;
    for (const auto& line : split(try_read_file(path).value_or(""), '\n'))
        if (!line.empty()) out.push_back(line);
    return out;
}

void attach_to(const Camera& camera)
{
    state::set_dir(camera.folder());
    clock::attach();
}

Status read_status(const Camera& camera)
{
    Status s;
    s.model = camera.setting("model");
    s.running = camera.running();
    s.ending = trim(try_read_file(camera.path("ending")).value_or(s.running ? "" : "never ran"));
    s.settings = trim(try_read_file(camera.path("settings")).value_or(""));
    add_clock(s);
    s.modules = lines_of(camera.path("modules"));
    s.devices = own_devices(camera);
    s.faults = lines_of(camera.path("faults"));
    s.board = read_board(camera);
    s.sound = read_media();
    s.serial = serial_ports(camera);
    return s;
}

cli::Json watchdog_json(const Status& s)
{
    return {{"armed", s.armed},
            {"fired", s.fired},
            {"timeout", s.timeout_s},
            {"feeds", s.feeds},
            {"longest_gap", s.longest_gap}};
}

cli::Json status_json(const Camera& camera, const Status& s)
{
    cli::Json json = {{"folder", camera.folder()}, {"model", s.model},           {"running", s.running != 0},
                      {"ending", s.ending},        {"settings", s.settings},     {"seconds", s.seconds},
                      {"clock", s.wall},           {"flash", cli::Json::array()}};
    json["watchdog"] = watchdog_json(s);
    add_board(json, s.board);
    if (s.sound) json["media"] = media_json(*s.sound);
    json["drivers"] = s.modules;
    if (!s.devices.empty()) json["devices"] = s.devices;
    json["serial"] = s.serial;
    json["faults"] = s.faults;
    return json;
}

} // namespace vcam
