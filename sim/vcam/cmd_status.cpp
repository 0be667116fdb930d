// vcam status: what the camera is and how it stands.
#include "sim/base/camera.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/vcam/options.hpp"
#include "sim/vcam/settings.hpp"
#include "sim/vcam/status_board.hpp"
#include "sim/vcam/status_media.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/clock.hpp"
#include "sim/board/serial_line.hpp"
#include "sim/base/state.hpp"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <sys/ioctl.h>
#include <unistd.h>

namespace vcam {
namespace {

struct PartitionStatus {
    Partition partition;
    uint64_t used = 0; // bytes up to the last one that is not erased
    uint32_t crc = 0;
};

struct Status {
    std::string model, ending;
    pid_t running = 0;
    std::vector<PartitionStatus> flash;
    double seconds = 0;
    std::string wall;
    bool has_watchdog = false, armed = false, fired = false;
    int timeout_s = 0, feeds = 0;
    double longest_gap = 0;
    std::vector<std::string> modules, faults, serial;
    BoardStatus board;
    std::unique_ptr<media::Page> sound;
    size_t journal_lines = 0, syslog_lines = 0;
};

PartitionStatus flash_status(const Camera& camera, const Partition& p)
{
    Mapped image(camera.image(p));
    size_t used = image.size();
    while (used && image.data()[used - 1] == 0xFF) --used;
    return {p, used, crc32(image.data(), image.size())};
}

std::vector<std::string> lines_of(const std::string& path)
{
    std::vector<std::string> out;
    for (const auto& line : split(try_read_file(path).value_or(""), '\n'))
        if (!line.empty()) out.push_back(line);
    return out;
}

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

Status read_status(const Camera& camera)
{
    state::set_dir(camera.folder());
    clock::attach();
    Status s;
    s.model = camera.setting("model");
    s.running = camera.running();
    s.ending = trim(try_read_file(camera.path("ending")).value_or(s.running ? "" : "never ran"));
    for (const auto& p : camera.partitions()) s.flash.push_back(flash_status(camera, p));
    add_clock(s);
    s.modules = lines_of(camera.path("modules"));
    s.faults = lines_of(camera.path("faults"));
    s.board = read_board(camera);
    s.sound = read_media();
    s.serial = serial_ports(camera);
    s.journal_lines = lines_of(camera.path("journal")).size();
    s.syslog_lines = lines_of(camera.path("syslog")).size();
    return s;
}

void print_text(const Camera& camera, const Status& s)
{
    printf("camera    %s, model %s, %s\n", camera.folder().c_str(), s.model.c_str(),
           s.running ? text("running as process %d", int(s.running)).c_str()
                     : text("off (%s)", s.ending.c_str()).c_str());
    printf("time      %.3f s of camera time, clock %s\n", s.seconds,
           s.wall.empty() ? "not started" : s.wall.c_str());
    for (const auto& f : s.flash)
        printf("%-9s %-4s %7s in blocks of %s, %8llu bytes used, CRC-32 0x%08x\n", f.partition.name.c_str(),
               f.partition.type.c_str(), human_size(f.partition.size).c_str(),
               human_size(f.partition.erase_size).c_str(), (unsigned long long)f.used, f.crc);
    if (s.has_watchdog)
        printf("watchdog  %s, time-out %d s, fed %d times, longest gap %.3f s\n",
               s.fired   ? "has reset the camera"
               : s.armed ? "armed"
                         : "off",
               s.timeout_s, s.feeds, s.longest_gap);
    else
        puts("watchdog  not used");
    printf("drivers   %s\n", s.modules.empty() ? "none loaded" : join(s.modules, " ").c_str());
    print_board(s.board);
    if (s.sound) print_media(*s.sound);
    for (const auto& line : s.serial) printf("serial    %s\n", line.c_str());
    printf("logs      %zu journal lines, %zu system log lines\n", s.journal_lines, s.syslog_lines);
    for (const auto& f : s.faults) printf("fault     %s\n", f.c_str());
}

void print_json(const Camera& camera, const Status& s)
{
    cli::Json json = {{"folder", camera.folder()},  {"model", s.model},     {"running", s.running != 0},
                      {"ending", s.ending},         {"seconds", s.seconds}, {"clock", s.wall},
                      {"flash", cli::Json::array()}};
    for (const auto& f : s.flash)
        json["flash"].push_back({{"name", f.partition.name},
                                 {"type", f.partition.type},
                                 {"size", f.partition.size},
                                 {"erase_size", f.partition.erase_size},
                                 {"write_size", f.partition.write_size},
                                 {"used", f.used},
                                 {"crc32", text("%08x", f.crc)}});
    json["watchdog"] = {{"armed", s.armed},
                        {"fired", s.fired},
                        {"timeout", s.timeout_s},
                        {"feeds", s.feeds},
                        {"longest_gap", s.longest_gap}};
    add_board(json, s.board);
    if (s.sound) json["media"] = media_json(*s.sound);
    json["drivers"] = s.modules;
    json["serial"] = s.serial;
    json["faults"] = s.faults;
    json["journal_lines"] = s.journal_lines;
    json["syslog_lines"] = s.syslog_lines;
    cli::print_json(json);
}

} // namespace

int status_main(const Arguments& arguments)
{
    bool json = false, dot = false;
    const auto words = cli::parse(
        arguments, {{{"--json", nullptr, "for programs", [&](auto&) { json = true; }},
                     {"--dot", nullptr, "the ways of sound, for dot(1)", [&](auto&) { dot = true; }}},
                    {kCamera}});
    if (json && dot) wrong_use("--json and --dot are two forms; choose one");
    const Camera camera(words.plain[0]);
    const Status s = read_status(camera);
    if (dot)
        fputs(media_dot(s.sound.get()).c_str(), stdout);
    else
        json ? print_json(camera, s) : print_text(camera, s);
    return 0;
}

} // namespace vcam
