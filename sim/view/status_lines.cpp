// The board's GPIO lines as they stand.
#include "sim/view/status_lines.hpp"
#include "sim/board/pins.hpp"
#include "sim/clock/clock.hpp"

#include <algorithm>
#include <optional>

namespace vcam {
namespace {

constexpr uint32_t kLines = 8; // of a group

// The lines of the boards with one channel and with four; the names are those of the boards' drawings.
constexpr struct {
    const char *line, *name, *kind;
} kNames[] = {
    {"9.0", "power", "led"},       {"9.1", "status", "led"},      {"9.2", "network", "led"},
    {"9.3", "record", "led"},      {"8.1", "reset key", "key"},   {"4.0", "input 1", "input"},
    {"4.1", "input 2", "input"},   {"4.6", "input 3", "input"},   {"4.7", "input 4", "input"},
    {"5.0", "output 1", "output"}, {"5.1", "output 2", "output"}, {"6.4", "output 3", "output"},
    {"8.2", "output 4", "output"},
};

uint32_t word_of(std::span<const registers::Word> words, uint32_t address)
{
    const auto found = std::lower_bound(words.begin(), words.end(), address,
                                        [](const registers::Word& w, uint32_t a) { return w.address < a; });
    return found != words.end() && found->address == address ? found->value : 0;
}

} // namespace

cli::Json lines_json(std::span<const registers::Word> words)
{
    const pins::Plan plan = pins::load();
    const int64_t now = clock::now_ns();
    const auto driven = [&](pins::GpioLine line) -> std::optional<bool> {
        if (!(word_of(words, line.bank + registers::kDirection) >> line.bit & 1)) return std::nullopt;
        return (word_of(words, line.bank + registers::kAllData) >> line.bit & 1) != 0;
    };
    cli::Json out = cli::Json::array();
    int group = 0;
    for (const uint32_t bank : pins::groups()) {
        uint32_t level = 0;
        for (uint32_t bit = 0; bit < kLines; ++bit) {
            const auto own = driven({bank, bit});
            if (own ? *own : plan.level({bank, bit}, now, driven)) level |= 1u << bit;
        }
        const uint32_t output = word_of(words, bank + registers::kDirection) & 0xFF;
        out.push_back({{"group", ++group}, {"output", output}, {"level", level}});
    }
    return out;
}

cli::Json line_names_json()
{
    cli::Json out = cli::Json::array();
    for (const auto& row : kNames)
        out.push_back({{"line", row.line}, {"name", row.name}, {"kind", row.kind}});
    return out;
}

} // namespace vcam
