// The fault plan: its grammar, and what a line has for the operation that is at hand.
#include "sim/base/faults.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <optional>
#include <sstream>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

namespace vcam::faults {
namespace {

struct PlannedFault {
    std::string device, operation;
    int64_t block = -1;
    int64_t skip = 0, times = 0;
    int64_t from_ns = 0; // camera time, for at=; earlier operations do not count
    Effect effect;
    [[nodiscard]] bool matches(std::string_view d, std::string_view o, int64_t b) const
    {
        return device == d && (operation.empty() || operation == o) && (block < 0 || block == b);
    }
};

constexpr struct {
    const char* name;
    Kind kind;
} kEffects[] = {{"short", Kind::short_count},
                {"flip", Kind::flip},
                {"powercut", Kind::cut_inside},
                {"powercut-inside", Kind::cut_inside},
                {"powercut-before", Kind::cut_before},
                {"powercut-after", Kind::cut_after},
                {"drop", Kind::drop},
                {"kill", Kind::kill}};
constexpr const char* kEffectNames =
    "an errno name or number, a driver's code 0x..., wordN=VALUE, short, flip, "
    "slow=MS, drop, kill, signal=NAME, powercut, powercut-before, powercut-after";
constexpr int64_t kLongestMs = 3'600'000;
constexpr double kLatest = 1e9; // camera seconds

bool parse_number(const std::string& text, int64_t& value)
{
    const auto [end, e] = std::from_chars(text.data(), text.data() + text.size(), value);
    return e == std::errc() && end == text.data() + text.size();
}

bool parse_hex(const std::string& text, int64_t& value)
{
    if (!text.starts_with("0x")) return false;
    const auto [end, e] = std::from_chars(text.data() + 2, text.data() + text.size(), value, 16);
    return e == std::errc() && end == text.data() + text.size() && value <= 0xFFFFFFFF;
}

// "N=VALUE"; the value decimal or with 0x.
bool parse_word(const std::string& text, Effect& effect)
{
    const size_t equal = text.find('=');
    int64_t word = 0, value = 0;
    if (equal == std::string::npos || !parse_number(text.substr(0, equal), word) || word < 0 || word > 1023)
        return false;
    const std::string rest = text.substr(equal + 1);
    if (!parse_hex(rest, value) && !parse_number(rest, value)) return false;
    effect = {Kind::word, 0, uint32_t(word), uint32_t(value)};
    return true;
}

std::optional<Effect> simple_effect(const std::string& text)
{
    for (const auto& row : kEffects)
        if (text == row.name) return Effect{row.kind};
    for (int e = 1; e < 134; ++e)
        if (const char* name = ::strerrorname_np(e); name && text == name) return Effect{Kind::error, e};
    return {};
}

// "TERM"; those that no program can take are left to kill.
bool parse_signal(const std::string& name, Effect& effect)
{
    for (int number = 1; number < SIGSYS; ++number)
        if (const char* known = ::sigabbrev_np(number); known && name == known) {
            effect = {.kind = Kind::signal, .value = uint32_t(number)};
            return number != SIGKILL && number != SIGSTOP;
        }
    return false;
}

// "1.5s"
bool parse_time(const std::string& text, int64_t& ns)
{
    double seconds = 0;
    const auto [end, e] =
        std::from_chars(text.data(), text.data() + text.size(), seconds, std::chars_format::fixed);
    if (e != std::errc() || std::string_view(end) != "s" || !(seconds >= 0 && seconds <= kLatest))
        return false;
    ns = int64_t(seconds * 1e9);
    return true;
}

bool parse_effect(const std::string& text, Effect& effect)
{
    if (const auto simple = simple_effect(text)) {
        effect = *simple;
        return true;
    }
    if (text.starts_with("word")) return parse_word(text.substr(4), effect);
    if (text.starts_with("signal=")) return parse_signal(text.substr(7), effect);
    int64_t number = 0;
    if (text.starts_with("slow=")) {
        if (!parse_number(text.substr(5), number) || number < 1 || number > kLongestMs) return false;
        effect = {.kind = Kind::slow, .value = uint32_t(number)};
        return true;
    }
    if (parse_hex(text, number) && number > 0x7FFFFFFF) {
        effect = {Kind::error, -int(uint32_t(number))};
        return true;
    }
    if (!parse_number(text, number) || number < 1 || number > 4095) return false;
    effect = {Kind::error, int(number)};
    return true;
}

std::string parse(const std::string& text, std::optional<PlannedFault>& out)
{
    out.reset();
    std::vector<std::string> words;
    std::istringstream in(text.substr(0, text.find('#')));
    for (std::string word; in >> word;) words.push_back(word);
    if (words.empty()) return {};
    if (words.size() != 4 && words.size() != 5) return "not \"device [operation] skip times effect\"";
    PlannedFault line;
    line.device = words[0];
    if (words.size() == 5) line.operation = words[1];
    if (const size_t at = line.operation.find('@'); at != std::string::npos) {
        if (!parse_number(line.operation.substr(at + 1), line.block)) return "no block number after @";
        line.operation.resize(at);
    }
    const size_t rest = words.size() - 3;
    if (words[rest].starts_with("at=")) {
        if (!parse_time(words[rest].substr(3), line.from_ns))
            return words[rest] + " is no camera time; write it as at=1.5s";
    } else if (!parse_number(words[rest], line.skip) || line.skip < 0)
        return "skip is not a count: " + words[rest];
    if (!parse_number(words[rest + 1], line.times) || line.times < -1)
        return "times is not a count: " + words[rest + 1];
    if (line.times == 0) return "times 0 is never; give 1 or more, or -1 for ever";
    if (!parse_effect(words[rest + 2], line.effect))
        return words[rest + 2] + " is no effect; there are " + kEffectNames;
    out = line;
    return {};
}

// How often each line of the plan has matched, by the line's text; equal lines count apart.
class Counters {
public:
    explicit Counters(const std::string& path)
        : fd_(raw::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666))
    {
        if (!fd_) return;
        raw::flock(fd_.get(), LOCK_EX);
        std::string text;
        char piece[4096];
        for (ssize_t n; (n = raw::read(fd_.get(), piece, sizeof piece)) > 0;) text.append(piece, size_t(n));
        std::istringstream in(text);
        std::string line;
        for (int64_t count; in >> count && in.get() && std::getline(in, line);) counts_[line] = count;
    }
    ~Counters()
    {
        if (!fd_ || !changed_) return;
        std::string text;
        for (const auto& [line, count] : counts_) text += std::to_string(count) + " " + line + "\n";
        // Counts only grow, so the new text covers the old one.
        raw::pwrite_all(fd_.get(), text.data(), text.size(), 0);
    }
    [[nodiscard]] int64_t of(const std::string& line) const
    {
        const auto found = counts_.find(line);
        return found == counts_.end() ? 0 : found->second;
    }
    int64_t take(const std::string& line)
    {
        changed_ = true;
        return counts_[line]++;
    }

private:
    raw::Fd fd_;
    std::map<std::string, int64_t> counts_;
    bool changed_ = false;
};

// Equal lines count apart.
std::string counted_as(const std::string& text, std::map<std::string, int>& seen)
{
    const int copy = seen[text]++;
    return copy ? text + " #" + std::to_string(copy) : text;
}

template<class List, class Name> std::string names_of(const List& list, Name name)
{
    std::string out;
    for (const auto& one : list) (out += out.empty() ? "" : ", ") += name(one);
    return out;
}

bool can_have(const Operation& operation, const Effect& effect)
{
    const bool request = operation.name != "open" && operation.name != "mmap";
    switch (effect.kind) {
    case Kind::flip:
    case Kind::short_count:
        return operation.moves_bytes;
    case Kind::word:
        return (effect.word + 1) * sizeof effect.value <= operation.record;
    case Kind::drop:
        return request;
    case Kind::kill:
        return false;
    default:
        return true;
    }
}

// A call moves bytes, or has a number or memory as its result; a command has neither.
bool call_can_have(const Target& target, Kind effect)
{
    const bool bytes = target.name == "read" || target.name == "write";
    const bool numbered = target.name == "open" || target.name == "fork",
               allocates = is_allocation(target.name);
    if (effect == Kind::kill) return target.kind == Target::Kind::library_call;
    if (effect == Kind::short_count) return target.kind == Target::Kind::library_call && bytes;
    return effect != Kind::flip && effect != Kind::word && (effect != Kind::drop || !(numbered || allocates));
}

std::string check_call(const PlannedFault& line, const Target& target)
{
    if (target.kind == Target::Kind::command && !line.operation.empty())
        return line.device + " has no operations, and " + line.operation + " is none";
    if (!call_can_have(target, line.effect.kind)) return "this effect does nothing to " + line.device;
    return {};
}

// Without an operation the line is for all, so each must be able to have the effect.
std::string check_operation(const PlannedFault& line, const Target& target)
{
    const auto name = [](const Operation& o) { return o.name; };
    std::vector<Operation> able;
    bool named = line.operation.empty(), blocks = false, all = true;
    for (const Operation& operation : target.operations) {
        const bool can = can_have(operation, line.effect);
        if (can) able.push_back(operation);
        if (!line.operation.empty() && operation.name != line.operation) continue;
        named = true;
        blocks |= operation.has_block;
        all &= can;
    }
    if (!named)
        return line.operation + " is no operation of " + line.device + "; there are " +
               names_of(target.operations, name);
    if (line.block >= 0 && !blocks) return line.device + " " + line.operation + " has no blocks";
    if (all) return {};
    if (able.empty()) return "this effect does nothing to " + line.device;
    if (line.operation.empty())
        return "name the operation that shall have this effect; of " + line.device +
               " these can: " + names_of(able, name);
    return "this effect does nothing to " + line.device + " " + line.operation + "; it is for " +
           names_of(able, name);
}

std::string check_names(const PlannedFault& line, std::span<const Target> targets)
{
    const auto target =
        std::find_if(targets.begin(), targets.end(), [&](auto& t) { return t.name == line.device; });
    if (target == targets.end())
        return line.device + " is no device or call; there are " +
               names_of(targets, [](auto& t) { return t.name; });
    return target->kind == Target::Kind::device ? check_operation(line, *target) : check_call(line, *target);
}

Effect walk(const std::string& plan, int64_t (*now_ns)(), std::string_view device, std::string_view operation,
            int64_t block)
{
    Effect effect;
    std::optional<Counters> counters; // opened for the first line that matches
    std::map<std::string, int> seen;
    std::istringstream in(plan);
    std::optional<PlannedFault> line;
    for (std::string text; std::getline(in, text);) {
        if (!parse(text, line).empty() || !line || !line->matches(device, operation, block)) continue;
        if (line->from_ns && now_ns() < line->from_ns) continue;
        if (!counters) counters.emplace(state::path("faults.state"));
        const int64_t count = counters->take(counted_as(text, seen));
        const bool due = count >= line->skip && (line->times < 0 || count - line->skip < line->times);
        if (!due || effect) continue;
        effect = line->effect;
        effect.line = text;
    }
    return effect;
}

} // namespace

Effect next(int64_t (*now_ns)(), std::string_view device, std::string_view operation, int64_t block)
{
    if (state::dir().empty()) return {};
    const int e = errno;
    const std::string plan = raw::read_text(state::path("faults"));
    const Effect effect = plan.empty() ? Effect{} : walk(plan, now_ns, device, operation, block);
    errno = e;
    return effect;
}

bool is_allocation(std::string_view call)
{
    return call == "calloc" || call == "malloc" || call == "realloc" || call == "strdup";
}

bool is_blank(std::string_view line)
{
    const size_t first = line.find_first_not_of(" \t\r\n");
    return first == std::string_view::npos || line[first] == '#';
}

std::string check(const std::string& text, std::span<const Target> targets)
{
    std::optional<PlannedFault> line;
    const std::string problem = parse(text, line);
    return !problem.empty() || !line ? problem : check_names(*line, targets);
}

std::string check_plan(const std::string& plan, std::span<const Target> targets)
{
    std::istringstream in(plan);
    for (std::string line; std::getline(in, line);)
        if (const std::string problem = check(line, targets); !problem.empty()) return line + ": " + problem;
    return {};
}

namespace {
std::atomic<int> planned_calls{-1}; // a bit for each of kLibraryCalls; -1: not known yet
}

bool plans_call(std::string_view call)
{
    int planned = planned_calls.load(std::memory_order_relaxed);
    if (planned < 0) {
        planned_calls = 0; // calls on the way to the answer have none
        planned = 0;
        const int e = errno;
        std::istringstream in(raw::read_text(state::path("faults")));
        std::optional<PlannedFault> line;
        for (std::string text; std::getline(in, text);)
            for (size_t i = 0; i < std::size(kLibraryCalls); ++i)
                if (parse(text, line).empty() && line && line->device == kLibraryCalls[i]) planned |= 1 << i;
        planned_calls = planned;
        errno = e;
    }
    if (planned == 0) return false;
    const auto* row = std::find(std::begin(kLibraryCalls), std::end(kLibraryCalls), call);
    return row != std::end(kLibraryCalls) && (planned >> (row - kLibraryCalls) & 1);
}

void forget_calls() { planned_calls = -1; }

std::vector<Progress> progress()
{
    std::vector<Progress> out;
    const Counters counters(state::path("faults.state"));
    std::map<std::string, int> seen;
    std::istringstream in(raw::read_text(state::path("faults")));
    std::optional<PlannedFault> line;
    for (std::string text; std::getline(in, text);) {
        if (!parse(text, line).empty() || !line) continue;
        Progress p{text, counters.of(counted_as(text, seen)), 0, line->times};
        p.hits = std::max<int64_t>(p.matched - line->skip, 0);
        if (line->times >= 0) {
            p.hits = std::min(p.hits, line->times);
            p.left = line->times - p.hits;
        }
        out.push_back(p);
    }
    return out;
}

} // namespace vcam::faults
