// What is promised of every state and of every run.
#include "sim/explore/promises.hpp"
#include "sim/base/text.hpp"

#include <cstdio>

namespace vcam::explore {
namespace {

using Summary = SettingsState::Summary;

constexpr double kLongestGap = 1.5; // seconds between two feeds of the watchdog
constexpr const char* kSuccess[] = {"Upgrade complete"};
// Lines of the log that name what does not hold its image or was not kept.
constexpr const char* kNamed[] = {"does not hold its image", "was not kept", "could not be erased"};
constexpr const char* kCrashes[] = {"signal ", "timeout", "watchdog", "powercut"};
constexpr int kFirstSignalStatus = 129; // of a shell whose command a signal ended

bool says(const Outcome& outcome, std::span<const char* const> words)
{
    for (const char* word : words)
        if (outcome.said.find(word) != std::string::npos) return true;
    return false;
}

bool crashed(const std::string& ending)
{
    int status = 0;
    for (const char* crash : kCrashes)
        if (starts_with(ending, crash)) return true;
    return sscanf(ending.c_str(), "exit %d", &status) == 1 && status >= kFirstSignalStatus;
}

bool is_whole(Content content) { return content == Content::fresh || content == Content::same; }
bool are_whole(Summary summary)
{
    return summary != Summary::none && summary != Summary::damaged && summary != Summary::missing &&
           summary != Summary::aside;
}
bool complete(const Description& d)
{
    return is_whole(d.kernel) && is_whole(d.root) && are_whole(d.settings.summary);
}

// Whether a run without a fault keeps the user's file; one that is asked for the package's settings does not.
bool is_kept(const Versions& v, const std::string& path)
{
    const auto before = v.before.find(path), finished = v.finished.find(path);
    if (before == v.before.end() || finished == v.finished.end()) return false;
    if (finished->second == before->second || !v.package) return true;
    const auto package = v.package->find(path);
    return package == v.package->end() || finished->second != package->second;
}

bool was_users(const Judged& judged, const std::string& path)
{
    if (!is_kept(judged.versions, path)) return false;
    if (!judged.found) return true;
    const auto file = judged.found->files.find(path);
    return file != judged.found->files.end() && file->second == Whose::users;
}

// The user's files that the run neither left alone nor made what they become in a run without a fault, and does not name.
std::vector<std::string> lost_without_a_word(const Judged& judged, const Description& left)
{
    std::vector<std::string> lost;
    for (const auto& [path, whose] : left.settings.files)
        if (was_users(judged, path) && whose != Whose::users && whose != Whose::finished &&
            judged.outcome.said.find("/etc/" + path) == std::string::npos)
            lost.push_back("/etc/" + path + " " + name_of(whose));
    return lost;
}

} // namespace

void judge_points(const Run& run, const Cuts& cuts, std::vector<Broken>& broken)
{
    const Stretch package = package_stretch(run.recording.operations());
    std::vector<bool> judged(cuts.states.size());
    for (const Point& point : cuts.points) {
        const Description& d = cuts.states[point.state].description;
        const bool writes_all = point.operation >= package.begin && point.operation < package.end;
        if (judged[point.state] || (writes_all && cuts.states[point.state].name)) continue;
        judged[point.state] = true;
        if (!cuts.states[point.state].name) broken.push_back({Promise::named, name_of(point), words_of(d)});
        if (d.boot != Content::same) broken.push_back({Promise::boot, name_of(point), words_of(d)});
        if (!writes_all && (d.settings.summary == Summary::damaged || d.settings.summary == Summary::none))
            broken.push_back({Promise::settings, name_of(point), words_of(d)});
    }
}

Description judge_run(const Judged& judged, const std::string& point, std::vector<Broken>& broken)
{
    const Outcome& outcome = judged.outcome;
    const Description left = describe(judged.run, judged.versions, outcome.flash);
    if (!name_for(left)) broken.push_back({Promise::named, point, words_of(left)});
    if (left.boot != Content::same || outcome.outside_changed)
        broken.push_back(
            {Promise::boot, point,
             left.boot != Content::same ? "mtd0 changed" : "the clock chip or an I2C device changed"});
    if (crashed(outcome.ending) && !judged.was_killed)
        broken.push_back({Promise::ends, point, "the camera ended: " + outcome.ending});
    if (says(outcome, kSuccess) && !complete(left) && !says(outcome, kNamed))
        broken.push_back({Promise::success, point, words_of(left)});
    if (!judged.was_killed)
        for (const std::string& file : lost_without_a_word(judged, left))
            broken.push_back({Promise::told, point, file});
    if (outcome.longest_gap > kLongestGap)
        broken.push_back({Promise::watchdog, point, text("%.2f s between two feeds", outcome.longest_gap)});
    return left;
}

void judge_completion(const Judged& again, const Description& left, const std::string& point,
                      std::vector<Broken>& broken)
{
    if (again.outcome.ending != again.run.ending)
        broken.push_back({Promise::completes, point, "the camera ended: " + again.outcome.ending});
    if (!complete(left)) broken.push_back({Promise::completes, point, "left " + words_of(left)});
}

} // namespace vcam::explore
