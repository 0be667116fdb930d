// What the GPIO lines are wired to: the plan in the file `pins`, one fact a line.
//
//   8.1 level 1              the level while nothing drives the line; 0 for lines that are not named
//   4.0 wire 5.0             the two lines are connected; what drives one is seen on the other
//   4.1 stuck 0              a short: the line and all that is wired to it keep this level
//   8.1 press 12.5 0.3 4     from camera second 12.5 on the line has the other level for 0.3 s; the contact
//                            opens and closes 4 times, 10 ms each, before either level stays
//   0x20050080 reads 0x10    a register that a program reads always holds this word
//
// A line is a group of the register driver and a bit ("8.1") or a bank's address and a bit ("0x101E5000.1").
// '#' begins a comment. Two outputs on one wire: a low one wins.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace vcam::pins {

struct GpioLine {
    uint32_t bank = 0;
    uint32_t bit = 0;
    bool operator==(const GpioLine&) const = default;
};

struct Press {
    GpioLine line;
    int64_t at_ns = 0, length_ns = 0;
    int bounces = 0;
};

// The banks of the register driver's groups, group 1 first.
std::span<const uint32_t> groups();
// The bank that the address belongs to; 0 when it is in none.
uint32_t bank_of(uint32_t address);

class Plan {
public:
    // "" or what is wrong with the line.
    std::string add(const std::string& line);
    [[nodiscard]] std::optional<uint32_t> word(uint32_t address) const;
    // Addresses and words of all such registers; of two lines for one the later counts.
    [[nodiscard]] const std::vector<std::pair<uint32_t, uint32_t>>& words() const { return words_; }
    // The level of a line at a camera time. `driven` says what an output puts out, nothing for an input.
    [[nodiscard]] bool level(GpioLine line, int64_t now_ns,
                             const std::function<std::optional<bool>(GpioLine)>& driven) const;

private:
    [[nodiscard]] std::vector<GpioLine> connected(GpioLine line) const;
    [[nodiscard]] bool idle(GpioLine line, int64_t now_ns) const;

    std::vector<std::pair<GpioLine, bool>> levels_, stuck_;
    std::vector<std::pair<GpioLine, GpioLine>> wires_;
    std::vector<Press> presses_;
    std::vector<std::pair<uint32_t, uint32_t>> words_;
};

// The plan of the state folder; lines that mean nothing are left out.
Plan load();
// "" or what is wrong with a line of the plan.
std::string check(const std::string& line);

} // namespace vcam::pins
