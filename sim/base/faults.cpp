#include "sim/base/faults.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <cerrno>
#include <charconv>
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

struct Line {
    std::string device, operation;
    int64_t block = -1;
    int64_t skip = 0, times = 0;
    Effect effect;
    [[nodiscard]] bool matches(std::string_view d, std::string_view o, int64_t b) const
    {
        return device == d && (operation.empty() || operation == o) && (block < 0 || block == b);
    }
};

constexpr struct {
    const char* name;
    Kind kind;
} kEffects[] = {{"short", Kind::short_count},          {"flip", Kind::flip},
                {"powercut", Kind::cut_inside},        {"powercut-inside", Kind::cut_inside},
                {"powercut-before", Kind::cut_before}, {"powercut-after", Kind::cut_after}};

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

bool parse_effect(const std::string& text, Effect& effect)
{
    for (const auto& row : kEffects)
        if (text == row.name) return effect = {row.kind}, true;
    for (int e = 1; e < 134; ++e)
        if (const char* name = ::strerrorname_np(e); name && text == name)
            return effect = {Kind::error, e}, true;
    if (text.starts_with("word")) return parse_word(text.substr(4), effect);
    int64_t number = 0;
    if (parse_hex(text, number) && number > 0x7FFFFFFF)
        return effect = {Kind::error, -int(uint32_t(number))}, true;
    if (!parse_number(text, number) || number < 1 || number > 4095) return false;
    effect = {Kind::error, int(number)};
    return true;
}

std::string parse(const std::string& text, std::optional<Line>& out)
{
    out.reset();
    std::vector<std::string> words;
    std::istringstream in(text.substr(0, text.find('#')));
    for (std::string word; in >> word;) words.push_back(word);
    if (words.empty()) return {};
    if (words.size() != 4 && words.size() != 5) return "not \"device [operation] skip times effect\"";
    Line line;
    line.device = words[0];
    if (words.size() == 5) line.operation = words[1];
    if (const size_t at = line.operation.find('@'); at != std::string::npos) {
        if (!parse_number(line.operation.substr(at + 1), line.block)) return "no block number after @";
        line.operation.resize(at);
    }
    const size_t rest = words.size() - 3;
    if (!parse_number(words[rest], line.skip) || line.skip < 0) return "skip is not a count: " + words[rest];
    if (!parse_number(words[rest + 1], line.times) || line.times < -1)
        return "times is not a count: " + words[rest + 1];
    if (!parse_effect(words[rest + 2], line.effect)) return "unknown effect: " + words[rest + 2];
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
        while (raw::flock(fd_.get(), LOCK_EX) != 0 && errno == EINTR) {
        }
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

Effect walk(const std::string& plan, std::string_view device, std::string_view operation, int64_t block)
{
    Effect effect;
    std::optional<Counters> counters; // opened for the first line that matches
    std::map<std::string, int> seen;
    std::istringstream in(plan);
    std::optional<Line> line;
    for (std::string text; std::getline(in, text);) {
        if (!parse(text, line).empty() || !line || !line->matches(device, operation, block)) continue;
        if (!counters) counters.emplace(state::path("faults.state"));
        const int copy = seen[text]++;
        const int64_t count = counters->take(copy ? text + " #" + std::to_string(copy) : text);
        const bool due = count >= line->skip && (line->times < 0 || count - line->skip < line->times);
        if (due && !effect) effect = line->effect;
    }
    return effect;
}

} // namespace

Effect next(std::string_view device, std::string_view operation, int64_t block)
{
    if (state::dir().empty()) return {};
    const int e = errno;
    const std::string plan = raw::read_text(state::path("faults"));
    const Effect effect = plan.empty() ? Effect{} : walk(plan, device, operation, block);
    errno = e;
    return effect;
}

std::string check(const std::string& line)
{
    std::optional<Line> parsed;
    return parse(line, parsed);
}

} // namespace vcam::faults
