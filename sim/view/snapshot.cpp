// What a page shows of a camera, in sections; each look gives those that have changed.
#include "sim/view/snapshot.hpp"
#include "sim/base/faults.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/clock.hpp"
#include "sim/sandbox/mark.hpp"
#include "sim/view/exploration.hpp"
#include "sim/view/processes.hpp"
#include "sim/view/record.hpp"
#include "sim/view/status_lines.hpp"
#include "sim/view/status_media.hpp"

#include <algorithm>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

namespace vcam {
namespace {

constexpr size_t kMostLines = 5000;      // of a log, for a page that opens
constexpr uint64_t kMostBytes = 2 << 20; // read of a log at once
constexpr size_t kMostLength = 2000;     // of a line
constexpr size_t kMostRegisters = 400;

// In nanoseconds, 0 where there is no such file.
int64_t changed_at(const std::string& path)
{
    struct stat st;
    if (stat(path.c_str(), &st) < 0) return 0;
    return int64_t(st.st_mtim.tv_sec) * 1'000'000'000 + st.st_mtim.tv_nsec;
}

cli::Json process_list(const std::vector<Process>& list)
{
    cli::Json out = cli::Json::array();
    for (const Process& p : list) out.push_back({{"depth", p.depth}, {"command", p.command}});
    return out;
}

cli::Json head(const Camera& camera, const Status& s, const Outcome& outcome)
{
    const Command command = last_command(camera);
    return {{"folder", camera.folder()},
            {"name", camera.folder().substr(camera.folder().rfind('/') + 1)},
            {"model", s.model},
            {"running", s.running != 0},
            {"ending", s.ending},
            {"outcome", outcome_json(outcome)},
            {"cause", trim(try_read_file(camera.path("cause")).value_or(""))},
            {"command", command.words},
            {"began", command.began},
            {"processes", process_list(processes(s.running))},
            {"slots", media_slots(s.running)},
            {"drivers", s.modules}};
}

cli::Json time_of(const Camera& camera, const Status& s)
{
    return {{"seconds", s.seconds},
            {"clock", exists(camera.path("clock")) ? s.wall : ""},
            {"watchdog", watchdog_json(s)},
            {"since_feed", s.since_feed}};
}

cli::Json i2c(const Camera& camera, const BoardStatus& board)
{
    cli::Json out = cli::Json::object();
    for (const auto& name : board.i2c) {
        std::string hex;
        for (const unsigned char c : try_read_file(camera.path("i2c/" + name)).value_or("").substr(0, 256))
            hex += text("%02x", c);
        out[name] = hex;
    }
    return out;
}

cli::Json board_of(const Camera& camera, const Status& s)
{
    cli::Json out;
    BoardStatus shown = s.board;
    if (shown.registers.size() > kMostRegisters) shown.registers.resize(kMostRegisters);
    add_board(out, shown);
    out["lines"] = lines_json(s.board.registers);
    out["i2c"] = i2c(camera, s.board);
    return out;
}

// A line of the plan, and how often its effect is still to come: -1 for ever. What has matched is kept in a second file;
// one that is not a plain file is a failure here as the plan's own is.
cli::Json faults_of(const Camera& camera, const Status& s)
{
    cli::Json out = cli::Json::array();
    if (s.faults.empty()) return out;
    try_read_file(camera.path("faults.state"));
    for (const auto& p : faults::progress()) out.push_back({{"line", p.line}, {"left", p.left}});
    return out;
}

} // namespace

void Tail::restart_at_end()
{
    struct stat st;
    at_ = stat(path_.c_str(), &st) < 0 ? 0 : uint64_t(st.st_size);
}

std::vector<std::string> Tail::lines(size_t most)
{
    const Fd fd(open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat st;
    if (!fd || fstat(fd.get(), &st) < 0 || !S_ISREG(st.st_mode)) return {};
    const auto size = uint64_t(st.st_size);
    if (size < at_) at_ = 0;
    if (size == at_) return {};
    if (size - at_ > kMostBytes) at_ = size - kMostBytes;
    std::string content(size_t(size - at_), '\0');
    const ssize_t n = pread(fd.get(), content.data(), content.size(), off_t(at_));
    content.resize(n > 0 ? size_t(n) : 0);
    const size_t end = content.rfind('\n');
    if (end == std::string::npos) return {};
    at_ += end + 1;
    auto out = split(std::string_view(content).substr(0, end), '\n');
    if (out.size() > most) out.erase(out.begin(), out.end() - long(most));
    for (auto& line : out)
        if (line.size() > kMostLength) line.resize(kMostLength);
    return out;
}

Snapshot::Snapshot(const std::string& folder)
    : camera_(folder), flash_(camera_), journal_(camera_.path("journal")), syslog_(camera_.path("syslog")),
      feeds_(camera_.path("watchdog.log")), console_(camera_.path("console"))
{
    attach_to(camera_);
}

void Snapshot::put(cli::Json& out, const char* section, cli::Json value)
{
    const std::string bytes = value.dump(-1, ' ', false, cli::Json::error_handler_t::replace);
    const size_t hash = std::hash<std::string>()(bytes);
    if (const auto [it, fresh] = given_.emplace(section, hash); !fresh) {
        if (it->second == hash) return;
        it->second = hash;
    }
    out[section] = std::move(value);
}

// A run begins with a new mark.
bool Snapshot::new_run()
{
    const int64_t run = changed_at(camera_.path("before/files"));
    const bool changed = run != run_;
    run_ = run;
    if (changed) outcome_ = {};
    return changed;
}

void Snapshot::add_lines(cli::Json& out, bool full)
{
    if (new_run() || full) {
        Mark mark;
        if (run_) mark = read_mark(camera_);
        journal_.restart(mark.journal_bytes);
        syslog_.restart(mark.syslog_bytes);
        // The console of a run from a terminal is not kept: the file is an older run's.
        const bool older = run_ && changed_at(camera_.path("console")) < run_;
        older ? console_.restart_at_end() : console_.restart(0);
        feeds_.restart(0);
        out["restart"] = true;
    }
    const std::pair<const char*, Tail*> logs[] = {
        {"journal", &journal_}, {"log", &syslog_}, {"feeds", &feeds_}, {"console", &console_}};
    for (const auto& [name, tail] : logs)
        if (auto lines = tail->lines(kMostLines); !lines.empty()) out[name] = lines;
}

// Megabytes: read only when it is a new file. A file system's times have steps of milliseconds, within which a file that is
// being written may be looked at twice: its size counts too.
void Snapshot::add_exploration(cli::Json& out, bool full)
{
    struct stat st = {};
    const std::string path = camera_.path(kExploration);
    const int64_t explored = stat(path.c_str(), &st) < 0 ? 0 : changed_at(path) + st.st_size;
    if (!full && explored == explored_) return;
    explored_ = explored;
    out["exploration"] = read_exploration(camera_);
}

// The record is read when a run has ended, and again when the flash is found changed after it.
const Outcome& Snapshot::outcome(const Status& s)
{
    // A run may be over before a look has seen it: its note is a new file, whatever it says.
    const int64_t ended = changed_at(camera_.path("ending"));
    if (s.running || ended != ended_) outcome_ = {};
    ended_ = ended;
    if (!s.running && outcome_.kind.empty()) outcome_ = outcome_of(camera_, flash_, s.ending);
    return outcome_;
}

cli::Json Snapshot::next(bool full)
{
    cli::Json out;
    if (full) given_.clear();
    clock::detach(); // a camera that starts may have a new clock
    clock::attach();
    const Status s = read_status(camera_);
    add_lines(out, full);
    if (flash_.refresh(s.running ? "" : s.ending)) outcome_ = {};
    put(out, "head", head(camera_, s, outcome(s)));
    put(out, "time", time_of(camera_, s));
    put(out, "flash", flash_.json());
    put(out, "board", board_of(camera_, s));
    put(out, "sound", s.sound ? media_json(*s.sound) : cli::Json());
    put(out, "serial", s.serial);
    put(out, "faults", faults_of(camera_, s));
    add_exploration(out, full);
    return out;
}

} // namespace vcam
