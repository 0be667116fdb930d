// One exploration: a recorded run, every cut of it, and the same command again.
#include "sim/explore/explorer.hpp"
#include "sim/base/text.hpp"
#include "sim/explore/bench.hpp"
#include "sim/explore/failing.hpp"
#include "sim/explore/parallel.hpp"
#include "sim/explore/promises.hpp"
#include "sim/explore/recorded.hpp"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <set>

namespace vcam::explore {
namespace {

std::string now_text()
{
    char out[32];
    const time_t now = time(nullptr);
    struct tm parts;
    strftime(out, sizeof out, "%Y-%m-%d", gmtime_r(&now, &parts));
    return out;
}

cli::Json settings_json(const SettingsState& settings)
{
    cli::Json files = cli::Json::object();
    for (const auto& [path, whose] : settings.files) files["/etc/" + path] = name_of(whose);
    return {{"files", files}, {"left_over", settings.left_over}};
}

// Of the flash before and of where each operation acts outside the settings. What is written is left out, and how many
// nodes the settings take: both follow from the times of files, which differ from run to run.
uint32_t fingerprint(const Flash& old, const Recording& recording)
{
    uint32_t sum = 0;
    for (const Bytes& image : old.images) sum = crc32(image.data(), image.size(), sum);
    for (const Operation& op : recording.operations()) {
        if (op.partition == kSettingsPartition) continue;
        const uint32_t place[] = {uint32_t(op.kind), op.partition, op.offset, op.size};
        sum = crc32(place, sizeof place, sum);
    }
    return sum;
}

class Explorer {
public:
    Explorer(const Camera& camera, const Settings& settings, const Progress& progress)
        : settings_(settings), progress_(progress),
          recorded_((progress("recording a run", 0), camera), settings)
    {
        report_.command = join(settings.command, " ");
        report_.date = now_text();
        report_.words = settings.command;
        report_.options = settings.run_options;
        report_.fingerprint = fingerprint(recorded_.old, recorded_.recording);
        report_.settings = trim(read_file(recorded_.folder + "/settings"));
        report_.seed = settings.seed;
        report_.shard = settings.shard;
        report_.shards = settings.shards;
    }

    Report go()
    {
        judge_run({recorded_.run, recorded_.versions, recorded_.outcome}, "run", report_.broken);
        report_.runs = 1;
        report_.longest_gap = recorded_.outcome.longest_gap;
        for (const Operation& op : recorded_.recording.operations())
            report_.steps.push_back(
                {op.partition, name_of(op.kind), op.offset, op.size, double(op.time_ns) / 1e9, op.process});
        cuts_ = cut_everywhere(recorded_.run, recorded_.versions,
                               [&](double done) { progress_("cutting", done); });
        report_.states = cuts_.states.size();
        classify();
        take_points();
        judge_points(recorded_.run, cuts_, report_.broken);
        keep_share();
        if (!settings_.replay_only) run_again();
        if (settings_.fail || settings_.doubles)
            fail_calls({recorded_.bench, recorded_.run, recorded_.versions, settings_, progress_}, report_);
        sort_broken();
        return std::move(report_);
    }

private:
    // States of one description are one class.
    void classify()
    {
        std::map<Description, uint32_t> known;
        for (const State& state : cuts_.states) {
            const auto [it, fresh] = known.try_emplace(state.description, uint32_t(report_.classes.size()));
            class_of_.push_back(it->second);
            if (!fresh) continue;
            report_.classes.push_back({state.name ? state.name->name : "",
                                       words_of(state.description),
                                       settings_json(state.description.settings),
                                       name_of(cuts_.points[state.first]),
                                       0,
                                       {}});
            first_of_.push_back(uint32_t(class_of_.size() - 1));
        }
    }
    [[nodiscard]] bool is_own(size_t number) const
    {
        return number % settings_.shards == settings_.shard - 1;
    }
    void take_points()
    {
        for (size_t i = 0; i < cuts_.points.size(); ++i) {
            if (!is_own(i)) continue;
            const Point& point = cuts_.points[i];
            report_.points.push_back({point.operation, point.form, class_of_[point.state]});
            ++report_.classes[class_of_[point.state]].points;
        }
    }
    // What all shares find is told by the first.
    void keep_share()
    {
        if (settings_.shard != 1) report_.broken.clear();
    }

    // The first state of each class, and drawn ones.
    std::vector<uint32_t> chosen() const
    {
        std::set<uint32_t> states(first_of_.begin(), first_of_.end());
        if (settings_.again >= cuts_.states.size())
            for (uint32_t i = 0; i < cuts_.states.size(); ++i) states.insert(i);
        const size_t enough = std::min<uint64_t>(states.size() + settings_.again, cuts_.states.size());
        for (uint64_t draw = mixed(settings_.seed); states.size() < enough; draw = mixed(draw))
            states.insert(uint32_t(draw % cuts_.states.size()));
        std::vector<uint32_t> own;
        size_t number = 0;
        for (const uint32_t state : states)
            if (is_own(number++)) own.push_back(state);
        return own;
    }
    void run_again()
    {
        const std::vector<uint32_t> states = chosen();
        const Work work = {"the same command again", recorded_.bench.folder(), states.size(), settings_.jobs};
        in_parallel(work, progress_, lock_,
                    [&](size_t i, const std::string& folder) { again(states[i], folder); });
    }
    void again(uint32_t number, const std::string& folder)
    {
        const State& state = cuts_.states[number];
        const Point& point = cuts_.points[state.first];
        recorded_.bench.make(folder, flash_at(recorded_.run, point));
        const Outcome outcome = recorded_.bench.run(folder);
        std::vector<Broken> broken;
        const Judged run = {recorded_.run, recorded_.versions, outcome, false, &state.description.settings};
        const Description left = judge_run(run, name_of(point) + ", run again", broken);
        judge_completion(run, left, name_of(point), broken);
        const StateName* name = name_for(left);
        const std::lock_guard hold(lock_);
        ++report_.classes[class_of_[number]].again[name ? name->name : "without a name"];
        ++report_.runs;
        report_.longest_gap = std::max(report_.longest_gap, outcome.longest_gap);
        report_.broken.insert(report_.broken.end(), broken.begin(), broken.end());
    }
    // Workers end in any order.
    void sort_broken()
    {
        std::stable_sort(report_.broken.begin(), report_.broken.end(), [](const Broken& a, const Broken& b) {
            const int x = atoi(a.point.c_str()), y = atoi(b.point.c_str());
            return x != y ? x < y : a.point < b.point;
        });
    }

    const Settings& settings_;
    const Progress& progress_;
    const Recorded recorded_;
    Cuts cuts_;
    std::vector<uint32_t> class_of_; // by state
    std::vector<uint32_t> first_of_; // by class, a state
    std::mutex lock_;
    Report report_;
};

} // namespace

Report explore(const Camera& camera, const Settings& settings, const Progress& progress)
{
    return Explorer(camera, settings, progress).go();
}

void open_point(const Camera& camera, const Settings& settings, const std::string& name,
                const std::string& folder)
{
    const size_t slash = name.find('/');
    const std::string how = slash == name.npos ? "" : name.substr(slash + 1);
    const auto form = form_named(how);
    const bool in_bytes = !how.empty() && how.size() < 10 && how.find_first_not_of("0123456789") == how.npos;
    const unsigned long step = strtoul(name.c_str(), nullptr, 10);
    if ((!form && !in_bytes) || step == 0) fail("no point '%s'; write it as 12/half or 12/137", name.c_str());
    const Recorded recorded(camera, settings);
    if (settings.fingerprint && *settings.fingerprint != fingerprint(recorded.old, recorded.recording))
        fail("the program does something else now than in the run that was explored: flash or files of the "
             "camera have changed; explore it again");
    const auto& operations = recorded.recording.operations();
    if (step > operations.size())
        fail("no point %s: the run has %zu flash operations", name.c_str(), operations.size());
    const auto number = uint32_t(step - 1);
    if (in_bytes)
        return recorded.bench.make(folder, flash_at(recorded.run, number, strtoul(how.c_str(), nullptr, 10)));
    const auto forms = forms_of(operations[number].kind);
    if (std::find(forms.begin(), forms.end(), *form) == forms.end())
        fail("no point %s: the operation is %s", name.c_str(), name_of(operations[number].kind));
    recorded.bench.make(folder, flash_at(recorded.run, {number, *form, 0}));
}

} // namespace vcam::explore
