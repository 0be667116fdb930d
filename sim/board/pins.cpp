// The GPIO lines: reading the file `pins`, levels of the nets.
#include "sim/board/pins.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <sstream>

namespace vcam::pins {
namespace {

// The chips' GPIO banks: groups 1 to 10 of the register driver, the two that have no group, and those of the
// first generation's chip.
constexpr uint32_t kGroups[] = {0x20160000, 0x20170000, 0x20180000, 0x20190000, 0x201A0000,
                                0x201B0000, 0x201C0000, 0x20200000, 0x20210000, 0x20220000};
constexpr uint32_t kOthers[] = {0x20140000, 0x20150000, 0x101E4000, 0x101E5000, 0x101E6000,
                                0x101E7000, 0x101E8000, 0x101E9000, 0x101EA000, 0x101EB000};
constexpr uint32_t kBankSize = 0x1000;
constexpr int64_t kBounceNs = 10'000'000; // one tick: a program that looks at every tick sees it

bool parse_number(const std::string& text, uint32_t most, uint32_t& value)
{
    const bool hex = text.starts_with("0x");
    const char *begin = text.data() + (hex ? 2 : 0), *end = text.data() + text.size();
    const auto [at, error] = std::from_chars(begin, end, value, hex ? 16 : 10);
    return error == std::errc() && at == end && value <= most;
}

bool parse_line(const std::string& text, GpioLine& line)
{
    const size_t dot = text.find('.');
    uint32_t group = 0;
    if (dot == std::string::npos || !parse_number(text.substr(0, dot), UINT32_MAX, group) ||
        !parse_number(text.substr(dot + 1), 7, line.bit))
        return false;
    line.bank = group >= 1 && group <= std::size(kGroups) ? kGroups[group - 1] : group;
    return line.bank != 0 && bank_of(line.bank) == line.bank;
}

bool parse_level(const std::string& text, bool& level)
{
    level = text == "1";
    return level || text == "0";
}

bool parse_seconds(const std::string& text, int64_t& ns)
{
    char* end = nullptr;
    const double seconds = ::strtod(text.c_str(), &end);
    if (end == text.c_str() || *end || !(seconds >= 0 && seconds < 1e9)) return false;
    ns = int64_t(std::llround(seconds * 1e9));
    return true;
}

// Closed for a tick, open for a tick, as often as it bounces, then it stays.
bool bounces_back(int64_t since_ns, int bounces)
{
    return since_ns < 2 * kBounceNs * bounces && since_ns / kBounceNs % 2 == 1;
}

bool pressed(const Press& press, int64_t now_ns)
{
    const int64_t since = now_ns - press.at_ns;
    if (since < 0) return false;
    if (since < press.length_ns) return !bounces_back(since, press.bounces);
    return bounces_back(since - press.length_ns, press.bounces);
}

} // namespace

std::span<const uint32_t> groups() { return kGroups; }

uint32_t bank_of(uint32_t address)
{
    const uint32_t bank = address & ~(kBankSize - 1);
    const auto is = [bank](uint32_t known) { return known == bank; };
    const bool known = std::any_of(std::begin(kGroups), std::end(kGroups), is) ||
                       std::any_of(std::begin(kOthers), std::end(kOthers), is);
    return known ? bank : 0;
}

std::string Plan::add(const std::string& text)
{
    std::vector<std::string> words;
    std::istringstream in(text.substr(0, text.find('#')));
    for (std::string word; in >> word;) words.push_back(word);
    if (words.empty()) return {};
    if (words.size() < 3) return "not \"LINE level|stuck|wire|press ...\" nor \"ADDRESS reads WORD\"";
    const std::string& what = words[1];
    if (what == "reads") {
        uint32_t address = 0, word = 0;
        if (words.size() != 3 || !parse_number(words[0], UINT32_MAX, address) || address % 4 ||
            !parse_number(words[2], UINT32_MAX, word))
            return "not \"ADDRESS reads WORD\"";
        words_.emplace_back(address, word);
        return {};
    }
    GpioLine line;
    if (!parse_line(words[0], line)) return "no GPIO line: " + words[0];
    bool level = false;
    if (what == "level" || what == "stuck") {
        if (words.size() != 3 || !parse_level(words[2], level)) return "a level is 0 or 1";
        (what == "level" ? levels_ : stuck_).emplace_back(line, level);
        return {};
    }
    if (what == "wire") {
        GpioLine other;
        if (words.size() != 3 || !parse_line(words[2], other)) return "no GPIO line: " + words[2];
        wires_.emplace_back(line, other);
        return {};
    }
    if (what != "press") return "a line has level, stuck, wire or press, not " + what;
    Press press{.line = line};
    uint32_t bounces = 0;
    if (words.size() < 4 || words.size() > 5 || !parse_seconds(words[2], press.at_ns) ||
        !parse_seconds(words[3], press.length_ns) ||
        (words.size() == 5 && !parse_number(words[4], 1000, bounces)))
        return "not \"LINE press AT SECONDS [BOUNCES]\"";
    press.bounces = int(bounces);
    presses_.push_back(press);
    return {};
}

std::optional<uint32_t> Plan::word(uint32_t address) const
{
    std::optional<uint32_t> found;
    for (const auto& [where, word] : words_)
        if (where == address) found = word;
    return found;
}

std::vector<GpioLine> Plan::connected(GpioLine line) const
{
    std::vector<GpioLine> net = {line};
    const auto join = [&net](GpioLine other) {
        if (std::find(net.begin(), net.end(), other) == net.end()) net.push_back(other);
    };
    for (size_t i = 0; i < net.size(); ++i)
        for (const auto& [a, b] : wires_) {
            const GpioLine at = net[i];
            if (a == at) join(b);
            if (b == at) join(a);
        }
    return net;
}

bool Plan::idle(GpioLine line, int64_t now_ns) const
{
    bool level = false;
    for (const auto& [which, idle] : levels_)
        if (which == line) level = idle;
    for (const Press& press : presses_)
        if (press.line == line && pressed(press, now_ns)) return !level;
    return level;
}

bool Plan::level(GpioLine line, int64_t now_ns,
                 const std::function<std::optional<bool>(GpioLine)>& driven) const
{
    const std::vector<GpioLine> net = connected(line);
    for (const auto& [which, level] : stuck_)
        if (std::find(net.begin(), net.end(), which) != net.end()) return level;
    std::optional<bool> output;
    for (const GpioLine& member : net)
        if (const auto level = driven(member)) output = output.value_or(true) && *level;
    if (output) return *output;
    return std::any_of(net.begin(), net.end(), [&](GpioLine member) { return idle(member, now_ns); });
}

Plan load()
{
    Plan plan;
    std::istringstream in(raw::read_text(state::path("pins")));
    for (std::string line; std::getline(in, line);) plan.add(line);
    return plan;
}

std::string check(const std::string& line) { return Plan().add(line); }

} // namespace vcam::pins
