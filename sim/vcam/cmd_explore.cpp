// vcam explore: every cut of the power in a run of a program, and the same command again.
#include "sim/base/camera.hpp"
#include "sim/base/text.hpp"
#include "sim/explore/explorer.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/vcam/options.hpp"
#include "sim/view/exploration.hpp"
#include "tools/cli/output_file.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace vcam {
namespace {

using explore::Report;

constexpr int kSettingsLate = 3; // status: all promises kept, and no cut tried inside the writing of settings
constexpr int kMostJobs = 256;
constexpr const char* kTimeout = "300"; // of one run, host seconds

struct ExploreOptions {
    explore::Settings settings;
    std::vector<std::string> merge, dumps;
    std::string open, output, html, junit;
    bool json = false, force = false, map = true;
};

// One line on standard error, where that is a terminal.
class ProgressLine {
public:
    void tell(const std::string& doing, double done)
    {
        const auto now = std::chrono::steady_clock::now();
        if (doing != doing_) doing_ = doing, begun_ = now, told_ = {};
        if (!is_terminal_ || now - told_ < std::chrono::milliseconds(200)) return;
        told_ = now;
        const double past = std::chrono::duration<double>(now - begun_).count();
        fprintf(stderr, "\r\033[K%s: %.0f %%", doing.c_str(), done * 100);
        if (done > 0.02) fprintf(stderr, ", %.0f s left", past / done * (1 - done));
        shown_ = true;
        fflush(stderr);
    }
    ~ProgressLine()
    {
        if (shown_) fprintf(stderr, "\r\033[K");
    }

private:
    const bool is_terminal_ = isatty(STDERR_FILENO);
    bool shown_ = false;
    std::string doing_;
    std::chrono::steady_clock::time_point begun_, told_;
};

void take_shard(explore::Settings& s, const std::string& words)
{
    const auto parts = split(words, '/');
    if (parts.size() != 2) wrong_use(text("--shard %s: write it as 2/8", words.c_str()));
    s.shards = unsigned(cli::whole_number(parts[1], 1, 1 << 20));
    s.shard = unsigned(cli::whole_number(parts[0], 1, s.shards));
}

std::vector<cli::Option> option_table(ExploreOptions& o)
{
    auto& s = o.settings;
    return {
        {"--again", "N|all", "give the command again from N drawn states too, or from all (0)",
         [&](auto& v) { s.again = v == "all" ? UINT64_MAX : uint64_t(cli::whole_number(v, 0, INT32_MAX)); }},
        {"--replay-only", nullptr, "name the states and give no command again",
         [&](auto&) { s.replay_only = true; }},
        {"--fail", nullptr, "also let each library call of the program fail, and kill it there",
         [&](auto&) { s.fail = true; }},
        {"--doubles", "N", "also N runs with two drawn ones of these failures (0)",
         [&](auto& v) { s.doubles = uint64_t(cli::whole_number(v, 0, INT32_MAX)); }},
        {"-j,--jobs", "N", "runs at a time (as many as processors)",
         [&](auto& v) { s.jobs = unsigned(cli::whole_number(v, 1, kMostJobs)); }},
        {"--seed", "N", "of the drawn bits and states (1)",
         [&](auto& v) { s.seed = uint64_t(cli::whole_number(v, 0, INT64_MAX)); }},
        {"--timeout", "SECONDS", "end a run after so long on the wall (300)",
         [&](auto& v) {
             parse_seconds(v, "--timeout"), s.run_options = {"--timeout", v};
         }},
        {"--json", nullptr, "write JSON, an object a line", [&](auto&) { o.json = true; }},
        {"--html", "FILE", "also write a page that shows every point",
         [&](auto& v) { o.html = cli::given(v); }},
        {"--junit", "FILE", "also write the promises as JUnit XML",
         [&](auto& v) { o.junit = cli::given(v); }},
        {"--open", "POINT",
         "make a camera that stands at a point, such as 12/half; without PROGRAM: of the last exploration",
         [&](auto& v) { o.open = cli::given(v); }},
        {"-o,--output", "NEW", "with --open, the new camera's folder",
         [&](auto& v) { o.output = cli::given(v); }},
        {"--name-flash", "FOLDER",
         "name the state of a dump of a flash, files mtd0 to mtd3, and the cut that leaves it",
         [&](auto& v) { o.dumps.push_back(cli::given(v)); }},
        {"--shard", "K/N", "do the K-th of N shares", [&](auto& v) { take_shard(s, v); }},
        {"--merge", "FILE", "put shares together, one --merge each, as --json wrote them",
         [&](auto& v) { o.merge.push_back(cli::given(v)); }},
        {"--no-map", nullptr, "leave no map in the camera's folder, which vcam web shows",
         [&](auto&) { o.map = false; }},
        {"--force", nullptr, "replace files that are no pages or reports", [&](auto&) { o.force = true; }},
    };
}

constexpr std::string_view kPageHead = "<!DOCTYPE html><!-- vcam explore -->", kXmlHead = "<?xml";

bool is_page(int fd, off_t) { return cli::begins_with(fd, kPageHead); }
bool is_xml(int fd, off_t) { return cli::begins_with(fd, kXmlHead); }

// Outputs are looked at before the long work.
struct Outputs {
    explicit Outputs(const ExploreOptions& o)
    {
        if (!o.html.empty())
            page = std::make_unique<cli::OutputFile>(
                o.html, cli::OutputRule{"a page of vcam explore", is_page, o.force});
        if (!o.junit.empty())
            junit =
                std::make_unique<cli::OutputFile>(o.junit, cli::OutputRule{"an XML file", is_xml, o.force});
    }
    void write(const Report& report) const
    {
        if (page) page->write(page_of(report)), page->commit();
        if (junit) junit->write(junit_of(report)), junit->commit();
    }
    std::unique_ptr<cli::OutputFile> page, junit;
};

// A share shows a part of the run only, and others are at work on the same camera.
void leave_map(const Camera& camera, const Report& report)
{
    const std::string path = camera.path(kExploration);
    const std::string map = map_of(report).dump(-1, ' ', false, cli::Json::error_handler_t::replace);
    if (map.size() <= kMostExploration) return replace_file(path, map);
    unlink(path.c_str()); // of an earlier exploration
    fprintf(stderr, "vcam: explore: the map of %zu points is too large to stay in the camera; use --html\n",
            report.points.size());
}

int show(const Report& report, const ExploreOptions& o, const Outputs& outputs)
{
    outputs.write(report);
    const std::string out = o.json ? json_lines(report) : table_of(report);
    fwrite(out.data(), 1, out.size(), stdout);
    if (!report.broken.empty() || tried_nothing(report)) return 1;
    return settings_late(report) ? kSettingsLate : 0;
}

// The program, the seed and the options of the exploration whose map the camera has.
void take_explored(explore::Settings& s, const Camera& camera)
{
    const cli::Json map = read_exploration(camera);
    if (map.is_null()) wrong_use("the camera has no map of an exploration: name a program behind --");
    if (map.contains("wrong")) fail("%s", map["wrong"].get<std::string>().c_str());
    s.command = map["words"];
    s.seed = map["seed"];
    s.fingerprint = map["fingerprint"];
    const std::vector<std::string> options = map["options"];
    if (s.command.empty() || options.size() != 2 || options[0] != "--timeout")
        fail("exploration.json names no program, or options that are not those of explore");
    parse_seconds(options[1], "--timeout");
    s.run_options = options;
}

int open_camera(const Camera& camera, const ExploreOptions& o)
{
    if (o.output.empty()) wrong_use("--open: name the new camera's folder with -o");
    camera.keep_out(o.output);
    if (mkdir(o.output.c_str(), 0755) < 0)
        fail(errno == EEXIST ? "%s is there already; choose another folder" : "%s: cannot be made",
             o.output.c_str());
    try {
        open_point(camera, o.settings, o.open, o.output);
    } catch (...) {
        std::filesystem::remove_all(o.output);
        throw;
    }
    return 0;
}

// Of dumps of a camera's flash.
int show_names(const Camera& camera, const ExploreOptions& o)
{
    bool all_named = true;
    for (const auto& dump : explore::name_dumps(camera, o.settings, o.dumps)) {
        const std::string name = dump["name"], words = dump["words"], point = dump["point"];
        all_named &= !name.empty();
        if (o.json)
            cli::print_json(dump);
        else
            printf("%s: %s (%s)%s%s\n", dump["folder"].get<std::string>().c_str(),
                   name.empty() ? "no known state" : name.c_str(), words.c_str(),
                   point.empty() ? "" : ", as the run at ", point.c_str());
    }
    return all_named ? 0 : 1;
}

// The camera that was explored, where it is named, gets the map.
int merge(const std::vector<std::string>& cameras, const ExploreOptions& o)
{
    const Outputs outputs(o);
    const Report report = explore::merged(o.merge);
    if (o.map && !cameras.empty()) leave_map(Camera(cameras[0]), report);
    return show(report, o, outputs);
}

} // namespace

int explore_main(const Arguments& arguments)
{
    ExploreOptions o;
    o.settings.run_options = {"--timeout", kTimeout};
    o.settings.jobs = std::max(1u, std::thread::hardware_concurrency());
    const auto words = cli::parse(arguments, {option_table(o),
                                              {{"CAMERA", cli::Operand::camera, false}},
                                              "PROGRAM [ARGUMENT]...",
                                              cli::Operand::program,
                                              false});
    if (!o.merge.empty()) return merge(words.plain, o);
    if (words.plain.empty() || (words.rest.empty() && o.open.empty()))
        wrong_use("name a camera, and a program behind --");
    const Camera camera(words.plain[0]);
    o.settings.command = words.rest;
    if (!o.open.empty()) {
        if (words.rest.empty()) take_explored(o.settings, camera);
        return open_camera(camera, o);
    }
    if (!o.dumps.empty()) return show_names(camera, o);
    for (const auto& file : {o.html, o.junit})
        if (!file.empty()) camera.keep_out(file);
    const Outputs outputs(o);
    ProgressLine line;
    const Report report = explore::explore(
        camera, o.settings, [&](const std::string& doing, double done) { line.tell(doing, done); });
    if (o.map && o.settings.shards == 1) leave_map(camera, report);
    return show(report, o, outputs);
}

} // namespace vcam
