// vcam status: what the camera is and how it stands.
#include "sim/base/camera.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/vcam/options.hpp"
#include "sim/view/status.hpp"
#include "sim/view/status_media.hpp"
#include "sim/base/text.hpp"

#include <cstdio>

namespace vcam {
namespace {

struct PartitionStatus {
    Partition partition;
    uint64_t used = 0; // bytes up to the last one that is not erased
    uint32_t crc = 0;
};

struct FullStatus : Status {
    std::vector<PartitionStatus> flash;
    size_t journal_lines = 0, syslog_lines = 0;
};

PartitionStatus flash_status(const Camera& camera, const Partition& p)
{
    Mapped image(camera.image(p));
    size_t used = image.size();
    while (used && image.data()[used - 1] == 0xFF) --used;
    return {p, used, crc32(image.data(), image.size())};
}

FullStatus read_all(const Camera& camera)
{
    attach_to(camera);
    FullStatus s;
    static_cast<Status&>(s) = read_status(camera);
    for (const auto& p : camera.partitions()) s.flash.push_back(flash_status(camera, p));
    s.journal_lines = lines_of(camera.path("journal")).size();
    s.syslog_lines = lines_of(camera.path("syslog")).size();
    return s;
}

void print_text(const Camera& camera, const FullStatus& s)
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
    if (!s.settings.empty()) printf("settings  reach the flash %s\n", s.settings.c_str());
    if (s.has_watchdog)
        printf("watchdog  %s, time-out %d s, fed %d times, longest gap %.3f s\n",
               s.fired   ? "has reset the camera"
               : s.armed ? "armed"
                         : "off",
               s.timeout_s, s.feeds, s.longest_gap);
    else
        puts("watchdog  not used");
    printf("drivers   %s\n", s.modules.empty() ? "none loaded" : join(s.modules, " ").c_str());
    for (const auto& line : s.devices) printf("device    %s\n", line.c_str());
    print_board(s.board);
    if (s.sound) print_media(*s.sound);
    for (const auto& line : s.serial) printf("serial    %s\n", line.c_str());
    printf("logs      %zu journal lines, %zu system log lines\n", s.journal_lines, s.syslog_lines);
    for (const auto& f : s.faults) printf("fault     %s\n", f.c_str());
}

// Texts that a program of the camera may have written: no control character of theirs reaches the terminal.
void make_printable(FullStatus& s)
{
    for (std::string* value : {&s.model, &s.ending, &s.settings, &s.wall, &s.board.rtc, &s.board.rtc_faults})
        *value = one_line(*value);
    for (auto* list : {&s.modules, &s.faults, &s.serial, &s.board.i2c, &s.board.pins})
        for (std::string& value : *list) value = one_line(value);
}

void print_json(const Camera& camera, const FullStatus& s)
{
    cli::Json json = status_json(camera, s);
    for (const auto& f : s.flash)
        json["flash"].push_back({{"name", f.partition.name},
                                 {"type", f.partition.type},
                                 {"size", f.partition.size},
                                 {"erase_size", f.partition.erase_size},
                                 {"write_size", f.partition.write_size},
                                 {"used", f.used},
                                 {"crc32", text("%08x", f.crc)}});
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
    FullStatus s = read_all(camera);
    if (!json) make_printable(s);
    if (dot)
        fputs(media_dot(s.sound.get()).c_str(), stdout);
    else
        json ? print_json(camera, s) : print_text(camera, s);
    return 0;
}

} // namespace vcam
