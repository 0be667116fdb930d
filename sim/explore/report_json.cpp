// An exploration as JSON, an object a line, and shares of one put together again.
#include "sim/base/camera.hpp"
#include "sim/base/files.hpp"
#include "sim/base/text.hpp"
#include "sim/explore/report.hpp"

#include <algorithm>

namespace vcam::explore {
namespace {

using cli::Json;

constexpr size_t kMostSteps = 10'000'000;

std::string line(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json point_json(const Report& report, const ReportPoint& point)
{
    Json json = {{"kind", "point"},
                 {"point", name_of(point)},
                 {"step", point.step + 1},
                 {"form", name_of(point.form)}};
    if (point.step < report.steps.size()) {
        const Step& s = report.steps[point.step];
        json.update({{"seconds", s.seconds},
                     {"process", s.process},
                     {"partition", s.partition},
                     {"operation", s.what},
                     {"offset", s.offset},
                     {"size", s.size}});
    }
    json["state"] = report.classes[point.state].name;
    json["class"] = point.state;
    return json;
}

// A share's lines into the whole.
class Merger {
public:
    void take(const std::string& file)
    {
        classes_.clear();
        promised_ = {};
        has_run_ = false;
        const size_t points = report.points.size(), broken = report.broken.size();
        const std::string content = read_file(file);
        size_t number = 0;
        for (const auto& words : split(content, '\n')) {
            ++number;
            if (words.empty()) continue;
            const Json json = Json::parse(words, nullptr, false);
            if (!json.is_object() || !json.contains("kind"))
                refuse(file, number, "no line of vcam explore --json");
            try {
                take_line(json, file, number);
            } catch (const Json::exception&) {
                refuse(file, number, "a value is missing or of the wrong kind");
            }
        }
        if (!has_run_ || promised_.points != report.points.size() - points ||
            promised_.broken != report.broken.size() - broken)
            fail("%s is not whole: lines of the share are missing", file.c_str());
    }
    Report report;

private:
    [[noreturn]] static void refuse(const std::string& file, size_t number, const char* why)
    {
        fail("%s, line %zu: %s", file.c_str(), number, why);
    }
    void take_line(const Json& json, const std::string& file, size_t number)
    {
        const std::string kind = json["kind"];
        if ((kind == "run") == has_run_) refuse(file, number, "the line of the run comes first and once");
        if (kind == "run") take_run(json, file, number);
        if (kind == "class") take_class(json);
        if (kind == "point") take_point(json, file, number);
        if (kind == "broken") take_broken(json, file, number);
        if (kind == "failures")
            for (const auto& [state, runs] : json["left"].items())
                report.failures[json["call"]][state] += runs.get<uint64_t>();
    }
    void take_run(const Json& json, const std::string& file, size_t number)
    {
        const std::string command = json["command"];
        const size_t steps = json["steps"];
        const unsigned shard = json["shard"], shards = json["shards"];
        if (shard == 0 || shard > shards || steps > kMostSteps)
            refuse(file, number, "no such share, or too many operations");
        if (!shards_.empty() &&
            (command != report.command || steps != report.steps.size() || json["seed"] != report.seed ||
             shards != report.shards || json["fingerprint"] != report.fingerprint))
            fail("%s is no share of the same exploration: another command, number of operations, seed or "
                 "number of shares",
                 file.c_str());
        if (std::find(shards_.begin(), shards_.end(), shard) != shards_.end())
            fail("%s: the share %u is there already", file.c_str(), shard);
        shards_.push_back(shard);
        report.command = command;
        report.steps.resize(steps);
        report.seed = json["seed"];
        report.date = json["date"];
        report.words = json["words"];
        report.options = json["options"];
        report.fingerprint = json["fingerprint"];
        if (report.settings.empty() || report.settings == kWrittenThrough) report.settings = json["settings"];
        report.shards = shards;
        promised_ = {json["points"], json["broken"]};
        has_run_ = true;
        report.states = std::max<uint64_t>(report.states, json["states"]);
        report.runs += json["runs"].get<uint64_t>();
        report.longest_gap = std::max<double>(report.longest_gap, json["longest_gap"]);
    }
    void take_class(const Json& json)
    {
        Class c = {json["state"], json["words"], json["settings"], json["first"], 0, {}};
        auto known = std::find_if(report.classes.begin(), report.classes.end(), [&](const Class& other) {
            return other.words == c.words && other.settings == c.settings;
        });
        if (known == report.classes.end()) known = report.classes.insert(known, c);
        for (const auto& [name, count] : json["again"].items()) known->again[name] += count.get<uint64_t>();
        classes_.push_back(uint32_t(known - report.classes.begin()));
    }
    void take_point(const Json& json, const std::string& file, size_t number)
    {
        const auto form = form_named(json["form"]);
        const size_t step = json["step"], own = json["class"];
        if (!form || step == 0 || step > std::max<size_t>(1, report.steps.size()) || own >= classes_.size())
            refuse(file, number, "a point of no class or form");
        if (step <= report.steps.size() && json.contains("offset"))
            report.steps[step - 1] = {json["partition"], json["operation"], json["offset"],
                                      json["size"],      json["seconds"],   json["process"]};
        ++report.classes[classes_[own]].points;
        report.points.push_back({uint32_t(step - 1), *form, classes_[own]});
    }
    void take_broken(const Json& json, const std::string& file, size_t number)
    {
        const std::string name = json["promise"];
        for (unsigned i = 0; i < kPromises; ++i)
            if (name == text_of(Promise(i)).name) {
                report.broken.push_back({Promise(i), json["point"], json["what"]});
                return;
            }
        refuse(file, number, "no promise of this name");
    }

    struct Lines {
        size_t points = 0, broken = 0;
    } promised_; // by the line of the run
    bool has_run_ = false;
    std::vector<unsigned> shards_;
    std::vector<uint32_t> classes_; // of the share's numbers, the whole's
};

} // namespace

std::string json_lines(const Report& report)
{
    std::string out = line({{"kind", "run"},
                            {"command", report.command},
                            {"date", report.date},
                            {"words", report.words},
                            {"options", report.options},
                            {"fingerprint", report.fingerprint},
                            {"settings", report.settings},
                            {"seed", report.seed},
                            {"shard", report.shard},
                            {"shards", report.shards},
                            {"steps", report.steps.size()},
                            {"points", report.points.size()},
                            {"states", report.states},
                            {"runs", report.runs},
                            {"longest_gap", report.longest_gap},
                            {"kept", report.broken.empty() && !tried_nothing(report)},
                            {"broken", report.broken.size()}});
    for (const Class& c : report.classes) {
        const StateName* row = row_of(c);
        out += line({{"kind", "class"},
                     {"state", c.name},
                     {"left", row ? row->left : ""},
                     {"person", row ? row->person : ""},
                     {"words", c.words},
                     {"settings", c.settings},
                     {"first", c.first},
                     {"again", c.again}});
    }
    for (const ReportPoint& point : report.points) out += line(point_json(report, point));
    for (const auto& [call, left] : report.failures)
        out += line({{"kind", "failures"}, {"call", call}, {"left", left}});
    for (const Broken& b : report.broken)
        out += line(
            {{"kind", "broken"}, {"promise", text_of(b.promise).name}, {"point", b.point}, {"what", b.what}});
    return out;
}

Report merged(const std::vector<std::string>& files)
{
    Merger merger;
    for (const auto& file : files) merger.take(file);
    Report& report = merger.report;
    if (files.size() != report.shards)
        fail("%zu of %u shares: name all of them", files.size(), report.shards);
    std::sort(report.points.begin(), report.points.end(), [](const ReportPoint& a, const ReportPoint& b) {
        return a.step != b.step ? a.step < b.step : a.form < b.form;
    });
    return report;
}

} // namespace vcam::explore
