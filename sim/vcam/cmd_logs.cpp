// vcam journal, log, fault: what happened, and what shall go wrong.
#include "sim/base/camera.hpp"
#include "sim/base/device_file.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/sandbox/mark.hpp"
#include "sim/vcam/options.hpp"
#include "sim/base/text.hpp"
#include "sim/base/faults.hpp"
#include "sim/base/state.hpp"
#include "sim/clock/clock.hpp"
#include "sim/clock/journal.hpp"
#include "sim/models/table.hpp"
#include "tools/cli/json.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace vcam {
namespace {

constexpr useconds_t kLookAgainUs = 200000;

struct LogOptions {
    bool last_run = false, follow = false, json = false;
    std::string source; // of the journal
};

// One line of a log: as text for a person, or as an object; empty or null for none of those wanted.
struct Form {
    std::string (*shown)(const std::string& line, const LogOptions& o);
    cli::Json (*object)(const std::string& line, const LogOptions& o);
};

// The words in front, and the rest of the line as the last one.
std::vector<std::string> head_words(const std::string& line, size_t count)
{
    std::vector<std::string> words;
    size_t at = 0;
    for (size_t end; words.size() < count && (end = line.find(' ', at)) != std::string::npos; at = end + 1)
        words.push_back(line.substr(at, end - at));
    words.push_back(line.substr(at));
    return words;
}

// "<time> <pid> <source> <text>"
std::string journal_line(const std::string& line, const LogOptions& o)
{
    const auto words = head_words(line, 3);
    return o.source.empty() || (words.size() > 2 && words[2] == o.source) ? line + "\n" : "";
}

cli::Json journal_object(const std::string& line, const LogOptions& o)
{
    const auto words = head_words(line, 3);
    if (words.size() < 3 || journal_line(line, o).empty()) return nullptr;
    return {{"time", atof(words[0].c_str())},
            {"pid", atoi(words[1].c_str())},
            {"source", words[2]},
            {"text", words.size() > 3 ? words[3] : ""}};
}

// RFC 3164's numbers.
std::string facility(int priority)
{
    static constexpr const char* kNames[] = {"kern", "user", "mail", "daemon", "auth",     "syslog",
                                             "lpr",  "news", "uucp", "cron",   "authpriv", "ftp"};
    const int number = priority >> 3;
    if (number >= 16 && number < 24) return text("local%d", number - 16);
    return number < 12 ? kNames[number] : text("%d", number);
}

const char* level(int priority)
{
    static constexpr const char* kNames[] = {"emerg",   "alert",  "crit", "err",
                                             "warning", "notice", "info", "debug"};
    return kNames[priority & 7];
}

// What the log keeps as \n and \t; a line's own end says nothing.
std::string unescaped(const std::string& message, const std::string& line_start)
{
    std::string out;
    for (size_t i = 0; i < message.size(); ++i) {
        const char next = i + 1 < message.size() ? message[i + 1] : '\0';
        if (message[i] != '\\' || (next != 'n' && next != 't')) {
            out += message[i];
            continue;
        }
        ++i;
        if (next == 't')
            out += '\t';
        else if (i + 1 < message.size())
            out += line_start;
    }
    return out;
}

// "<time> <priority> <ident>: <text>"
std::string log_line(const std::string& line, const LogOptions&)
{
    const auto words = head_words(line, 2);
    if (words.size() < 3) return line + "\n";
    const int priority = atoi(words[1].c_str());
    const std::string name = facility(priority) + "." + level(priority);
    const bool bad = (priority & 7) <= 3;
    return words[0] + " " + (bad ? cli::paint(STDOUT_FILENO, cli::Style::bad, name) : name) + " " +
           unescaped(words[2], "\n" + std::string(words[0].size() + name.size() + 2, ' ')) + "\n";
}

cli::Json log_object(const std::string& line, const LogOptions&)
{
    const auto words = head_words(line, 2);
    if (words.size() < 3) return nullptr;
    const int priority = atoi(words[1].c_str());
    return {{"time", atof(words[0].c_str())},
            {"facility", facility(priority)},
            {"level", level(priority)},
            {"text", unescaped(words[2], "\n")}};
}

std::vector<cli::Option> log_options(LogOptions& o)
{
    return {{"--last", nullptr, "of the last run only", [&](auto&) { o.last_run = true; }},
            {"-f,--follow", nullptr, "go on with what is added, until the camera ends",
             [&](auto&) { o.follow = true; }},
            {"--json", nullptr, "for programs: an array, or an object a line with --follow",
             [&](auto&) { o.json = true; }}};
}

// Shows the whole lines from a byte on and moves it behind them.
void show_lines(const std::string& content, size_t& from, const Form& form, const LogOptions& o)
{
    for (size_t end; (end = content.find('\n', from)) != std::string::npos; from = end + 1) {
        const std::string line = content.substr(from, end - from);
        if (line.empty()) continue;
        if (!o.json)
            fputs(form.shown(line, o).c_str(), stdout);
        else if (const cli::Json object = form.object(line, o); !object.is_null())
            cli::print_json(object);
    }
    fflush(stdout);
}

void show_array(const std::string& content, size_t from, const Form& form, const LogOptions& o)
{
    cli::Json all = cli::Json::array();
    for (const auto& line : split(content.substr(std::min(from, content.size())), '\n'))
        if (cli::Json object = line.empty() ? cli::Json() : form.object(line, o); !object.is_null())
            all.push_back(object);
    cli::print_json(all);
}

int show(const Camera& camera, const char* file, size_t from, const Form& form, const LogOptions& o)
{
    if (o.json && !o.follow) {
        show_array(read_file(camera.path(file)), from, form, o);
        return 0;
    }
    for (;;) {
        const bool last = !o.follow || !camera.running(); // asked first: what comes before the end is shown
        const std::string content = read_file(camera.path(file));
        from = std::min(from, content.size());
        show_lines(content, from, form, o);
        if (last) return 0;
        usleep(kLookAgainUs);
    }
}

// An object a line that has a fault; left is null for ever.
void show_plan_json()
{
    cli::Json lines = cli::Json::array();
    for (const auto& p : faults::progress())
        lines.push_back({{"line", p.line},
                         {"matched", p.matched},
                         {"hit", p.hits},
                         {"left", p.left < 0 ? cli::Json() : cli::Json(p.left)}});
    cli::print_json(lines);
}

void show_plan()
{
    for (const auto& p : faults::progress())
        printf("%-36s  matched %lld, hit %lld, %s\n", p.line.c_str(), (long long)p.matched, (long long)p.hits,
               p.left < 0 ? "for ever" : text("%lld left", (long long)p.left).c_str());
}

// "mtd1 write at=+0.5s 1 EIO" counts from now on: the file holds camera seconds.
std::string absolute(const std::string& line, const Camera& camera)
{
    constexpr std::string_view kFromNow = " at=+";
    const size_t at = line.find(kFromNow), begin = at + kFromNow.size(),
                 end = line.find_first_of("s ", begin);
    if (at == line.npos || end == line.npos || line[end] != 's') return line;
    state::set_dir(camera.folder());
    clock::attach();
    const double seconds =
        double(clock::now_ns()) / 1e9 + parse_seconds(line.substr(begin, end - begin), "fault");
    clock::detach();
    return line.substr(0, at) + text(" at=%.3f", seconds) + line.substr(end);
}

// How a line of the plan may begin.
std::vector<std::string> line_heads()
{
    std::vector<std::string> heads;
    for (const auto& target : models::fault_targets("")) {
        heads.push_back(target.name);
        for (const auto& operation : target.operations) heads.push_back(target.name + " " + operation.name);
    }
    return heads;
}

} // namespace

int journal_main(const Arguments& arguments)
{
    LogOptions o;
    auto options = log_options(o);
    std::vector<std::string> sources(std::begin(journal::kSources), std::end(journal::kSources));
    options.push_back({"--source", "NAME", "one source only, such as system or mtd",
                       [&](auto& v) { o.source = cli::given(v); }, join(sources, " ")});
    const auto words = cli::parse(arguments, {options, {kCamera}});
    const Camera camera(words.plain[0]);
    for (const auto& device : device_file::of(camera.folder())) sources.emplace_back(device.record.name);
    try {
        if (!o.source.empty()) cli::one_of(o.source, sources);
    } catch (const cli::WrongUse& e) {
        wrong_use("--source " + o.source + ": " + e.what());
    }
    return show(camera, "journal", o.last_run ? read_mark(camera).journal_bytes : 0,
                {journal_line, journal_object}, o);
}

int log_main(const Arguments& arguments)
{
    LogOptions o;
    const auto words = cli::parse(arguments, {log_options(o), {kCamera}});
    const Camera camera(words.plain[0]);
    return show(camera, "syslog", o.last_run ? read_mark(camera).syslog_bytes : 0, {log_line, log_object}, o);
}

int fault_main(const Arguments& arguments)
{
    bool clear = false, json = false;
    const auto words = cli::parse(
        arguments, {{{"--clear", nullptr, "forget the plan first", [&](auto&) { clear = true; }},
                     {"--json", nullptr, "show the plan for programs", [&](auto&) { json = true; }}},
                    {kCamera},
                    "LINE...",
                    cli::Operand::text,
                    false,
                    line_heads()});
    const Camera camera(words.plain[0]);
    std::vector<std::string> lines;
    for (const auto& given : words.rest) {
        const std::string& line = lines.emplace_back(absolute(given, camera));
        if (faults::is_blank(line))
            wrong_use("'" + line + "' has no fault: write it as \"mtd1 write 3 1 EIO\"");
        if (line.find('\n') != std::string::npos)
            wrong_use("give each line of the plan as a word of its own");
        if (auto problem = faults::check(line, models::fault_targets(camera.folder())); !problem.empty())
            wrong_use(problem);
    }
    if (clear) {
        write_file(camera.path("faults"), "");
        write_file(camera.path("faults.state"), "");
    }
    for (const auto& line : lines) append_file(camera.path("faults"), line + "\n");
    if (!json && (!words.rest.empty() || clear)) return 0;
    state::set_dir(camera.folder());
    json ? show_plan_json() : show_plan();
    return 0;
}

} // namespace vcam
