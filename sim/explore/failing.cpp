// Library calls of the explored program that fail, alone or in pairs, or at which it is killed.
#include "sim/explore/failing.hpp"
#include "sim/base/text.hpp"
#include "sim/explore/parallel.hpp"
#include "sim/explore/promises.hpp"

#include <algorithm>
#include <iterator>
#include <set>

namespace vcam::explore {
namespace {

constexpr const char* kKill = "kill";
constexpr const char* kNever = "2147483647 1 EIO"; // counts and never fails
constexpr size_t kDrawn = 8;

// EINTR only once: whoever repeats an interrupted call would do so for ever.
struct Error {
    const char* name;
    bool once_only = false;
};
constexpr struct {
    const char* call;
    Error errors[4];
} kErrors[] = {
    {"fork", {{"EAGAIN"}, {"ENOMEM"}}},
    {"fsync", {{"EIO"}, {"ENOSPC"}, {"EINTR", true}}},
    {"link", {{"EIO"}, {"ENOSPC"}}},
    {"open", {{"EIO"}, {"ENOSPC"}, {"ENOMEM"}, {"EINTR", true}}},
    {"read", {{"EIO"}, {"short"}, {"EINTR", true}}},
    {"rename", {{"EIO"}, {"ENOSPC"}}},
    {"unlink", {{"EIO"}, {"ENOSPC"}}},
    {"write", {{"EIO"}, {"ENOSPC"}, {"short"}, {"EINTR", true}}},
};

struct Failure {
    std::string call, name, plan; // of faults: a line, of a pair two
    bool kills = false;
};

std::set<int64_t> chosen(int64_t count, uint64_t seed)
{
    std::set<int64_t> numbers;
    for (const int64_t number : {int64_t(0), int64_t(1), count - 1})
        if (number >= 0 && number < count) numbers.insert(number);
    const auto enough = std::min<size_t>(numbers.size() + kDrawn, size_t(count));
    for (uint64_t draw = mixed(seed); numbers.size() < enough; draw = mixed(draw))
        numbers.insert(int64_t(draw % uint64_t(count)));
    return numbers;
}

std::string program_of(const std::vector<std::string>& command)
{
    return command[0].substr(command[0].rfind('/') + 1);
}

class Failing {
public:
    Failing(const FailingContext& context, Report& report)
        : c_(context), report_(report), program_(program_of(context.settings.command))
    {
    }

    void go()
    {
        std::vector<Failure> failures = all();
        const std::vector<Failure> pairs = drawn_pairs(failures);
        if (!c_.settings.fail) failures.clear();
        failures.insert(failures.end(), pairs.begin(), pairs.end());
        failures = own(failures);
        const Work work = {"failing calls", c_.bench.folder(), failures.size(), c_.settings.jobs};
        in_parallel(work, c_.progress, lock_,
                    [&](size_t i, const std::string& folder) { one(failures[i], folder); });
    }

private:
    // A run that counts the calls, then a line for each way in which each can fail.
    std::vector<Failure> all()
    {
        std::string plan;
        for (const auto& row : kErrors) plan += text("%s %s %s\n", row.call, program_.c_str(), kNever);
        const std::string folder = c_.bench.folder() + "/counted";
        c_.bench.make(folder, c_.run.old, {.plan = plan});
        const Outcome counted = c_.bench.run(folder);
        ++report_.runs;
        std::vector<Failure> failures;
        for (size_t i = 0; i < std::size(kErrors) && i < counted.plan.size(); ++i)
            for (const int64_t number : chosen(counted.plan[i].matched, mixed(c_.settings.seed) + i)) {
                for (const Error& error : kErrors[i].errors)
                    if (error.name) add(failures, kErrors[i].call, number, error);
                add(failures, kErrors[i].call, number, {kKill, true});
            }
        return failures;
    }
    void add(std::vector<Failure>& failures, const char* call, int64_t number, const Error& error) const
    {
        for (const int times : {1, -1}) {
            if (times < 0 && error.once_only) continue;
            const std::string line =
                text("%s %s %lld %d %s", call, program_.c_str(), (long long)number, times, error.name);
            failures.push_back({call, line, line + "\n", error.name == std::string(kKill)});
        }
    }
    // Two failures in one run.
    [[nodiscard]] std::vector<Failure> drawn_pairs(const std::vector<Failure>& single) const
    {
        std::vector<Failure> pairs;
        uint64_t draw = mixed(c_.settings.seed + std::size(kErrors));
        while (single.size() > 1 && pairs.size() < c_.settings.doubles) {
            const Failure& first = single[draw % single.size()];
            const Failure& second = single[(draw = mixed(draw)) % single.size()];
            draw = mixed(draw);
            if (first.plan == second.plan) continue;
            pairs.push_back({"two failures", first.name + " and " + second.name, first.plan + second.plan,
                             first.kills || second.kills});
        }
        return pairs;
    }
    [[nodiscard]] std::vector<Failure> own(const std::vector<Failure>& failures) const
    {
        std::vector<Failure> share;
        for (size_t i = 0; i < failures.size(); ++i)
            if (i % c_.settings.shards == c_.settings.shard - 1) share.push_back(failures[i]);
        return share;
    }
    void one(const Failure& failure, const std::string& folder)
    {
        c_.bench.make(folder, c_.run.old, {.plan = failure.plan});
        const Outcome outcome = c_.bench.run(folder);
        std::vector<Broken> broken;
        const Judged first = {c_.run, c_.versions, outcome, failure.kills};
        const Description left = judge_run(first, failure.name, broken);
        const StateName* name = name_for(left);
        unsigned runs = 1;
        if (failure.kills) {
            ++runs;
            c_.bench.make(folder, outcome.flash);
            const Outcome again = c_.bench.run(folder);
            const Judged second = {c_.run, c_.versions, again, false, &left.settings};
            judge_completion(second, judge_run(second, failure.name + ", run again", broken), failure.name,
                             broken);
        }
        const std::lock_guard hold(lock_);
        ++report_.failures[failure.kills ? failure.call + ", killed" : failure.call]
                          [name ? name->name : "without a name"];
        report_.runs += runs;
        report_.longest_gap = std::max(report_.longest_gap, outcome.longest_gap);
        report_.broken.insert(report_.broken.end(), broken.begin(), broken.end());
    }

    const FailingContext& c_;
    Report& report_;
    const std::string program_;
    std::mutex lock_;
};

} // namespace

void fail_calls(const FailingContext& context, Report& report) { Failing(context, report).go(); }

} // namespace vcam::explore
