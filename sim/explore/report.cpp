// What an exploration has found: its promises, and the table for a terminal.
#include "sim/explore/report.hpp"
#include "sim/base/camera.hpp"
#include "sim/base/text.hpp"

#include <algorithm>

namespace vcam::explore {
namespace {

constexpr PromiseText kPromiseTexts[] = {
    {"named", "every state has a name"},
    {"boot", "the boot partition and what is not flash stay as they were"},
    {"settings",
     "outside the writing of the whole partition, a settings file is old or new: never mixed, never empty"},
    {"ends", "the program ends by itself, without a crash"},
    {"success", "no word of success with a wrong image, unless the log names what is wrong"},
    {"told", "a setting that the run loses is named in its output or in the log"},
    {"watchdog", "the watchdog is fed at least every 1.5 s"},
    {"completes", "the same command completes from each state"},
};
static_assert(std::size(kPromiseTexts) == kPromises);

constexpr size_t kShownBroken = 10; // of one promise
constexpr size_t kTextColumns = 60;

// Lines of at most kTextColumns columns, broken at blanks.
std::vector<std::string> wrapped(const std::string& words)
{
    std::vector<std::string> lines(1);
    for (const auto& word : split(words, ' ')) {
        if (!lines.back().empty() && lines.back().size() + 1 + word.size() > kTextColumns)
            lines.emplace_back();
        lines.back() += (lines.back().empty() ? "" : " ") + word;
    }
    return lines;
}

// All classes of one row of the table of names.
struct Group {
    uint64_t points = 0;
    std::map<std::string, uint64_t> again;
};

std::string runs_of(const std::map<std::string, uint64_t>& runs)
{
    std::vector<std::string> words;
    for (const auto& [name, count] : runs)
        words.push_back(
            text("%s (%llu %s)", name.c_str(), (unsigned long long)count, count == 1 ? "run" : "runs"));
    return words.empty() ? "not run" : join(words, ", ");
}

std::string rows_of(const Report& report)
{
    std::map<std::string, Group> groups;
    for (const Class& c : report.classes) {
        Group& group = groups[c.name];
        group.points += c.points;
        for (const auto& [name, count] : c.again) group.again[name] += count;
    }
    std::string out = text("%-24s %9s  after the same command\n", "state", "points");
    std::string before;
    for (const StateName& row : state_names()) {
        const auto group = groups.find(row.name);
        if (group == groups.end() || before == row.name) continue;
        before = row.name;
        out += text("%-24s %9llu  %s\n", row.name, (unsigned long long)group->second.points,
                    runs_of(group->second.again).c_str());
        for (const char* words : {row.left, row.person})
            for (const auto& line : wrapped(words)) out += "    " + line + "\n";
    }
    if (const auto unnamed = groups.find(""); unnamed != groups.end())
        out += text("%-24s %9llu\n", "WITHOUT A NAME", (unsigned long long)unnamed->second.points);
    return out;
}

std::string failure_rows(const Report& report)
{
    if (report.failures.empty()) return "";
    std::string out = text("%-24s %9s  what is left\n", "failing call", "runs");
    for (const auto& [call, left] : report.failures) {
        uint64_t runs = 0;
        for (const auto& state : left) runs += state.second;
        out += text("%-24s %9llu  %s\n", call.c_str(), (unsigned long long)runs, runs_of(left).c_str());
    }
    return out + "\n";
}

std::string broken_lines(const Report& report)
{
    std::string out;
    for (unsigned i = 0; i < kPromises; ++i) {
        size_t count = 0;
        for (const Broken& b : report.broken) {
            if (unsigned(b.promise) != i) continue;
            if (!count++) out += text("BROKEN  %s\n", kPromiseTexts[i].text);
            if (count <= kShownBroken) out += text("    %s: %s\n", b.point.c_str(), b.what.c_str());
        }
        if (count > kShownBroken) out += text("    and %zu more\n", count - kShownBroken);
    }
    if (!out.empty()) return out;
    return tried_nothing(report) ? "Nothing was tried.\n" : "Every promise was kept.\n";
}

} // namespace

const PromiseText& text_of(Promise promise) { return kPromiseTexts[size_t(promise)]; }

const StateName* row_of(const Class& state)
{
    for (const StateName& row : state_names())
        if (state.name == row.name) return &row;
    return nullptr;
}

std::string name_of(const ReportPoint& point) { return text("%u/%s", point.step + 1, name_of(point.form)); }

bool tried_nothing(const Report& report) { return report.steps.empty() && report.failures.empty(); }

bool settings_late(const Report& report)
{
    return report.settings != kWrittenThrough &&
           std::any_of(report.steps.begin(), report.steps.end(),
                       [](const Step& s) { return s.partition == kSettingsPartition; });
}

std::string table_of(const Report& report)
{
    std::string out =
        text("%s\n%zu flash operations, %zu points, %llu different states, %zu kinds of them, %llu runs\n\n",
             report.command.c_str(), report.steps.size(), report.points.size(),
             (unsigned long long)report.states, report.classes.size(), (unsigned long long)report.runs);
    out += rows_of(report) + "\n" + failure_rows(report);
    if (report.steps.empty()) out += "The run changed nothing in the flash, so there was nothing to cut.\n";
    if (report.longest_gap > 0) out += text("The watchdog's longest gap was %.2f s.\n", report.longest_gap);
    if (settings_late(report))
        out += text("Settings reach the flash %s: no cut lies between their changes.\n",
                    report.settings.c_str());
    return out + broken_lines(report);
}

} // namespace vcam::explore
